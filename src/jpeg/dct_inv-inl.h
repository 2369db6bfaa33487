// Inverse DCT: the vector kernels of one target.  No checks here: the
// drivers in dct_inv.h have checked the arguments.
#if defined(RVT_JPEG_DCT_INV_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_DCT_INV_INL_H_
#undef RVT_JPEG_DCT_INV_INL_H_
#else
#define RVT_JPEG_DCT_INV_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "frame/raw_ops-inl.h"
#include "jpeg/dct_inv.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::dct_inv::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

using D128 = hn::Full128<int16_t>;
using V128 = hn::Vec<D128>;

// Lane i: a[2i] * b[2i] + a[2i+1] * b[2i+1] in 32 bits.
template <class D32, class V>
HWY_INLINE hn::Vec<D32> MulPairs(D32 d32, V a, V b) {
  hn::Vec<D32> sum1 = hn::Zero(d32);
  const hn::Vec<D32> sum0 = hn::ReorderWidenMulAccumulate(d32, a, b, hn::Zero(d32), sum1);
  return hn::RearrangeToOddPlusEven(sum0, sum1);
}

// The 128-bit blocks of v, in order.
template <class D>
HWY_INLINE void SplitBlocks(D d, hn::Vec<D> v, V128* out) {
  if constexpr (hn::MaxLanes(D()) * sizeof(hn::TFromD<D>) <= 16) {
    out[0] = v;
  } else {
    const hn::Half<D> dh;
    SplitBlocks(dh, hn::LowerHalf(dh, v), out);
    SplitBlocks(dh, hn::UpperHalf(dh, v), out + hn::MaxLanes(dh) / 8);
  }
}

HWY_INLINE hn::Vec<D128> Dequant(const int16_t* src, const uint16_t* q) {
  const D128 d;
  return hn::Mul(hn::LoadU(d, src), hn::LoadU(d, reinterpret_cast<const int16_t*>(q)));
}

// Byte masks that broadcast one pair of coefficients to every 32-bit lane
// of a 128-bit block: (X0, X2), (X4, X6), (X1, X3), (X5, X7).  One shuffle
// per pair, straight from the dequantized row.
struct PairMasks {
  alignas(32) uint8_t m[4][32];
};
constexpr PairMasks MakePairMasks() {
  constexpr int kFirst[4] = {0, 4, 1, 5};  // the pair's other coefficient is 2 further
  PairMasks t{};
  for (int p = 0; p < 4; ++p)
    for (int i = 0; i < 32; ++i) t.m[p][i] = uint8_t(2 * (kFirst[p] + 2 * (i / 2 % 2)) + i % 2);
  return t;
}
inline constexpr PairMasks kPairMasks = MakePairMasks();

template <int kPair, class D16>
HWY_INLINE hn::Vec<D16> PairOf(D16 d16, hn::Vec<D16> x) {
  const hn::Repartition<uint8_t, D16> d8;
  return hn::BitCast(d16,
                     hn::TableLookupBytes(hn::BitCast(d8, x), hn::Load(d8, kPairMasks.m[kPair])));
}

// One group of the row pass: x holds dequantized rows, one per 128-bit
// block, t the pair tables of those rows ([pair] apart by `stride`
// elements) and r their rounders; the result is the rows' 16-bit outputs in
// the same blocks.
template <class D16>
HWY_INLINE hn::Vec<D16> RowGroup(D16 d16, hn::Vec<D16> x, const int16_t* t, size_t stride,
                                 const int32_t* r) {
  const hn::Repartition<int32_t, D16> d32;
  const auto e = hn::Add(hn::Add(MulPairs(d32, PairOf<0>(d16, x), hn::Load(d16, t)),
                                 MulPairs(d32, PairOf<1>(d16, x), hn::Load(d16, t + stride))),
                         hn::Load(d32, r));
  const auto o = hn::Add(MulPairs(d32, PairOf<2>(d16, x), hn::Load(d16, t + 2 * stride)),
                         MulPairs(d32, PairOf<3>(d16, x), hn::Load(d16, t + 3 * stride)));
  const auto lo = hn::ShiftRight<11>(hn::Add(e, o));
  const auto hi = hn::Shuffle0123(hn::ShiftRight<11>(hn::Sub(e, o)));  // outputs 4..7
  return ops::PackS16Blockwise(d16, lo, hi);
}

// Row pass of coefficient rows 0..rows-1, one row per 128-bit block (at
// most two per vector: wider vectors cost more in splitting than they save):
// each pair of the row broadcast and multiplied pairwise with the row's
// tables.  kRowLoads reads the coefficients 16 bytes at a time, for blocks
// the caller has most likely just written: a 32-byte load over two 16-byte
// stores still in flight waits for them to retire instead of taking their
// data (22.7 against 16.1 ns a block in idct_bench, in-place form after a
// copy).
template <bool kRowLoads = false, class D16>
HWY_INLINE void RowPass(D16 d16, const int16_t* src, const uint16_t* q, int rows, V128* y) {
  constexpr int kPer = int(hn::MaxLanes(D16()) / 8);
  constexpr size_t kStride = sizeof(kIdctRowPairs.pair[0]) / sizeof(int16_t);
  const auto* qs = reinterpret_cast<const int16_t*>(q);
  for (int g = 0; g < rows; g += kPer) {
    hn::Vec<D16> c;
    if constexpr (kRowLoads && kPer == 2) {
      const hn::Half<D16> dh;
      c = hn::Combine(d16, hn::LoadU(dh, src + 8 * g + 8), hn::LoadU(dh, src + 8 * g));
    } else {
      c = hn::LoadU(d16, src + 8 * g);
    }
    const auto x = hn::Mul(c, hn::LoadU(d16, qs + 8 * g));
    SplitBlocks(d16, RowGroup(d16, x, kIdctRowPairs.pair[0][g], kStride, kIdctRowPairs.rounder[g]),
                y + g);
  }
}

template <class V>
HWY_INLINE V AddS(V a, V b) { return hn::SaturatedAdd(a, b); }
template <class V>
HWY_INLINE V SubS(V a, V b) { return hn::SaturatedSub(a, b); }

// The column pass's multipliers as whole vectors in memory: the multiply
// takes them as a memory operand, where a broadcast from an immediate costs
// two instructions per constant and call.
template <int16_t kK>
struct Splat {
  alignas(32) static constexpr int16_t v[16] = {kK, kK, kK, kK, kK, kK, kK, kK,
                                                kK, kK, kK, kK, kK, kK, kK, kK};
};
template <int16_t kK, class V>
HWY_INLINE V MulHi(V a) {
  return hn::MulHigh(a, ops::LoadKept(hn::DFromV<V>(), Splat<kK>::v));
}

// Output rows from the column pass's intermediate terms.  The column pass
// runs on one block per 128-bit half: wider vectors carry further blocks.
template <class V>
HWY_INLINE void Butterfly(V a0, V a1, V e2, V e6, V o17, V o71, V o53, V o35, V* z) {
  const V s1 = AddS(SubS(o17, o53), SubS(o71, o35));
  const V s2 = SubS(SubS(o17, o53), SubS(o71, o35));
  const V c1 = AddS(MulHi<kIdctC4m>(s1), s1), c2 = AddS(MulHi<kIdctC4m>(s2), s2);
  const V ae = AddS(a0, e2), ad = SubS(a0, e2), be = AddS(a1, e6), bd = SubS(a1, e6);
  const V oa = AddS(o17, o53), ob = AddS(o71, o35);
  z[0] = AddS(ae, oa);
  z[7] = SubS(ae, oa);
  z[1] = AddS(be, c1);
  z[6] = SubS(be, c1);
  z[2] = AddS(bd, c2);
  z[5] = SubS(bd, c2);
  z[3] = AddS(ad, ob);
  z[4] = SubS(ad, ob);
}

template <class V>
HWY_INLINE void ColumnPass(const V* y, V* z) {
  Butterfly(AddS(y[0], y[4]), SubS(y[0], y[4]), AddS(MulHi<kIdctT2>(y[6]), y[2]),
            SubS(MulHi<kIdctT2>(y[2]), y[6]), AddS(MulHi<kIdctT1>(y[7]), y[1]),
            SubS(MulHi<kIdctT1>(y[1]), y[7]), AddS(AddS(MulHi<kIdctT3m>(y[5]), y[5]), y[3]),
            SubS(y[5], AddS(MulHi<kIdctT3m>(y[3]), y[3])), z);
}

// Rows 4..7 of the row pass are zero (coefficient rows 4..7 zero).
HWY_INLINE void ColumnPass4(const V128* y, V128* z) {
  const V128 zero = hn::Zero(D128());
  Butterfly(y[0], y[0], y[2], MulHi<kIdctT2>(y[2]), y[1], MulHi<kIdctT1>(y[1]), y[3],
            SubS(zero, AddS(MulHi<kIdctT3m>(y[3]), y[3])), z);
}

// Coefficient rows 2..7 zero: row 2 of the row pass is all 1 (its
// rounder), rows 3..7 are zero.
HWY_INLINE void ColumnPass2(const V128* y, V128* z) {
  const V128 zero = hn::Zero(D128()), one = hn::Set(D128(), 1);
  Butterfly(y[0], y[0], one, zero, y[1], MulHi<kIdctT1>(y[1]), zero, zero, z);
}

alignas(32) inline constexpr int8_t kTopBits[32] = {
    -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128,
    -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128};

// Two rows per pack: z >> 6 saturated to -128..127, then the top bit
// flipped, is (z >> 6) + 128 clamped to 0..255.
HWY_INLINE void StoreLs8(const V128* z, uint8_t* dst, int32_t step) {
  const hn::Full128<int8_t> d8;
  const hn::Full128<uint8_t> du8;
  for (int r = 0; r < 8; r += 2) {
    const auto b = hn::Xor(
        ops::PackS8Blockwise(d8, hn::ShiftRight<6>(z[r]), hn::ShiftRight<6>(z[r + 1])),
        ops::LoadKept(d8, kTopBits));
    ops::StoreHalves(hn::BitCast(du8, b), RowPtr(dst, step, r), RowPtr(dst, step, r + 1));
  }
}

inline void Ls8Full(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  V128 y[8], z[8];
  RowPass(hn::CappedTag<int16_t, 16>(), src, q, 8, y);
  ColumnPass(y, z);
  StoreLs8(z, dst, step);
}

inline void Ls8Corner4(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  V128 y[4], z[8];
  RowPass(hn::CappedTag<int16_t, 16>(), src, q, 4, y);
  ColumnPass4(y, z);
  StoreLs8(z, dst, step);
}

inline void Ls8Corner2(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  V128 y[2], z[8];
  RowPass(hn::CappedTag<int16_t, 16>(), src, q, 2, y);
  ColumnPass2(y, z);
  StoreLs8(z, dst, step);
}

// The in-place form reads a block its caller has usually just filled: see
// kRowLoads.
template <bool kRowLoads>
inline void Plain16(const int16_t* src, int16_t* dst, const uint16_t* q) {
  V128 y[8], z[8];
  RowPass<kRowLoads>(hn::CappedTag<int16_t, 16>(), src, q, 8, y);  // reads all of src first
  ColumnPass(y, z);
  for (int r = 0; r < 8; ++r) hn::StoreU(hn::ShiftRight<6>(z[r]), D128(), dst + 8 * r);
}

inline void DcOnly(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  const int32_t p = int32_t(src[0]) * int32_t(q[0]);
  const int16_t v = int16_t(uint16_t(uint32_t((p >> 3) + 128)));
  const hn::Full64<uint8_t> d8;
  const auto b = hn::Set(d8, uint8_t(v < 0 ? 0 : (v > 255 ? 255 : v)));
  for (int r = 0; r < 8; ++r) hn::StoreU(b, d8, RowPtr(dst, step, r));
}

// ---------------------------------------------------------------- runs of blocks

// Row v of blocks a and b, one per 128-bit half: the row pass of the single
// block with the row's tables in both halves, so its result is row v of
// either block in the layout the column pass takes.
template <class D16>
HWY_INLINE hn::Vec<D16> RowOfTwo(D16 d16, const int16_t* a, const int16_t* b, const uint16_t* q,
                                 int v) {
  const hn::Repartition<int32_t, D16> d32;
  const hn::Half<D16> dh;
  const auto src = hn::Combine(d16, hn::LoadU(dh, b + 8 * v), hn::LoadU(dh, a + 8 * v));
  const auto x = hn::Mul(src, hn::LoadDup128(d16, reinterpret_cast<const int16_t*>(q + 8 * v)));
  const auto x02 = PairOf<0>(d16, x), x46 = PairOf<1>(d16, x);
  const auto x13 = PairOf<2>(d16, x), x57 = PairOf<3>(d16, x);
  const auto e = hn::Add(hn::Add(MulPairs(d32, x02, hn::LoadDup128(d16, kIdctRowPairs.pair[0][v])),
                                 MulPairs(d32, x46, hn::LoadDup128(d16, kIdctRowPairs.pair[1][v]))),
                         hn::LoadDup128(d32, kIdctRowPairs.rounder[v]));
  const auto o = hn::Add(MulPairs(d32, x13, hn::LoadDup128(d16, kIdctRowPairs.pair[2][v])),
                         MulPairs(d32, x57, hn::LoadDup128(d16, kIdctRowPairs.pair[3][v])));
  const auto lo = hn::ShiftRight<11>(hn::Add(e, o));
  const auto hi = hn::Shuffle0123(hn::ShiftRight<11>(hn::Sub(e, o)));  // outputs 4..7
  return ops::PackS16Blockwise(d16, lo, hi);
}

// Blocks a and b side by side: their samples at dst and dst + 8.
template <class D16>
HWY_INLINE void TwoBlocks(D16 d16, const int16_t* a, const int16_t* b, uint8_t* dst, int32_t step,
                          const uint16_t* q) {
  const hn::Repartition<int8_t, D16> d8;
  const hn::Repartition<uint8_t, D16> du8;
  hn::Vec<D16> y[8], z[8];
  HWY_UNROLL(8)  // rolled, the rows go through the stack
  for (int v = 0; v < 8; ++v) y[v] = RowOfTwo(d16, a, b, q, v);
  ColumnPass(y, z);
  for (int r = 0; r < 8; r += 2) {
    const auto bytes = hn::Xor(
        ops::PackS8Blockwise(d8, hn::ShiftRight<6>(z[r]), hn::ShiftRight<6>(z[r + 1])),
        ops::LoadKept(d8, kTopBits));
    ops::StoreBlockHalves(hn::BitCast(du8, bytes), RowPtr(dst, step, r), RowPtr(dst, step, r + 1));
  }
}

inline void Ls8Blocks(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q, int32_t n) {
  using D16 = hn::CappedTag<int16_t, 16>;
  int32_t i = 0;
  if constexpr (hn::MaxLanes(D16()) == 16) {
    for (; i + 2 <= n; i += 2) {
      TwoBlocks(D16(), src + 64 * size_t(i), src + 64 * size_t(i + 1), dst + 8 * size_t(i), step, q);
    }
  }
  for (; i < n; ++i) Ls8Full(src + 64 * size_t(i), dst + 8 * size_t(i), step, q);
}

// ---------------------------------------------------------------- reduced

// Output rows j and J-1-j of a reduced transform weigh the even input rows
// alike and the odd ones with opposite signs, so the vertical pass forms
// the even part E (rows 0, 2, 4, 6) and the odd part O (rows 1, 3, 5, 7) of
// the first J/2 output rows and takes E + O and E - O.  The 32-bit sums wrap
// like the reference's, so the split changes no bit.
template <int J>
constexpr bool MirroredRows(const int16_t (&k)[J][8]) {
  for (int j = 0; j < J; ++j)
    for (int v = 0; v < 8; ++v)
      if (k[J - 1 - j][v] != (v % 2 ? -k[j][v] : k[j][v])) return false;
  return true;
}
static_assert(MirroredRows<4>(kIdctTo4x4) && MirroredRows<2>(kIdctTo2x2));
static_assert(kIdctTo2x2[0][4] == 0 && kIdctTo2x2[0][6] == 0, "2x2 skips rows 4 and 6");

// Vertical-pass weights [pair][j][8] for the row pairs (0,2), (4,6), (1,3),
// (5,7) and the first J/2 outputs, as the int16 pairs the pairwise multiply
// takes.
template <int J>
struct ReducedPairs {
  alignas(64) int16_t w[4][J / 2][8];
};
template <int J>
constexpr ReducedPairs<J> MakeReducedPairs(const int16_t (&k)[J][8]) {
  constexpr int kRows[4][2] = {{0, 2}, {4, 6}, {1, 3}, {5, 7}};
  ReducedPairs<J> t{};
  for (int p = 0; p < 4; ++p)
    for (int j = 0; j < J / 2; ++j)
      for (int i = 0; i < 4; ++i) {
        t.w[p][j][2 * i] = k[j][kRows[p][0]];
        t.w[p][j][2 * i + 1] = k[j][kRows[p][1]];
      }
  return t;
}
inline constexpr ReducedPairs<4> kTo4x4Pairs = MakeReducedPairs<4>(kIdctTo4x4);
inline constexpr ReducedPairs<2> kTo2x2Pairs = MakeReducedPairs<2>(kIdctTo2x2);

// Per 128-bit block: lane i is the sum of the four lanes of p_i.
template <class D32, class V>
HWY_INLINE V SumLanes4(D32 d32, V p0, V p1, V p2, V p3) {
  const hn::Repartition<int64_t, D32> d64;
  const auto a = hn::BitCast(d64, hn::Add(hn::InterleaveLower(d32, p0, p1),
                                          hn::InterleaveUpper(d32, p0, p1)));
  const auto b = hn::BitCast(d64, hn::Add(hn::InterleaveLower(d32, p2, p3),
                                          hn::InterleaveUpper(d32, p2, p3)));
  return hn::Add(hn::BitCast(d32, hn::InterleaveLower(d64, a, b)),
                 hn::BitCast(d32, hn::InterleaveUpper(d64, a, b)));
}

// Each 128-bit block holds one output row: the vertical pass multiplies
// interleaved coefficient rows by their weight pairs; the horizontal pass
// multiplies the 8 intermediate values by K[i][0..7] and sums each i.
template <int J>
HWY_INLINE void ReducedKernel(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q,
                              const int16_t (&k)[J][8], const ReducedPairs<J>& pairs) {
  const hn::CappedTag<int16_t, 4 * J> d16;
  using D16 = decltype(d16);
  const hn::Repartition<int32_t, D16> d32;
  const hn::Rebind<uint8_t, D16> d8;
  using V = hn::Vec<D16>;
  using V32 = hn::Vec<decltype(d32)>;
  constexpr int kPer = int(hn::MaxLanes(D16()) / 8);
  constexpr int kGroups = J / 2 / kPer;

  V x[8];
  for (int v = 0; v < 8; ++v) {
    x[v] = hn::Mul(hn::LoadDup128(d16, src + 8 * v),
                   hn::LoadDup128(d16, reinterpret_cast<const int16_t*>(q + 8 * v)));
  }
  constexpr int kRows[4][2] = {{0, 2}, {4, 6}, {1, 3}, {5, 7}};
  V z[4][2];
  for (int p = 0; p < 4; ++p) {
    z[p][0] = hn::InterleaveLower(d16, x[kRows[p][0]], x[kRows[p][1]]);
    z[p][1] = hn::InterleaveUpper(d16, x[kRows[p][0]], x[kRows[p][1]]);
  }
  const V32 bias1 = hn::Set(d32, 1 << (kReducedShift1 - 1));
  V front[kGroups], back[kGroups];  // output rows g*kPer + b, and J-1 minus that
  for (int g = 0; g < kGroups; ++g) {
    V32 e[2], o[2];
    for (int h = 0; h < 2; ++h) {
      e[h] = hn::Add(bias1, MulPairs(d32, z[0][h], hn::Load(d16, pairs.w[0][g * kPer])));
      if constexpr (J == 4) {
        e[h] = hn::Add(e[h], MulPairs(d32, z[1][h], hn::Load(d16, pairs.w[1][g * kPer])));
      }
      o[h] = hn::Add(MulPairs(d32, z[2][h], hn::Load(d16, pairs.w[2][g * kPer])),
                     MulPairs(d32, z[3][h], hn::Load(d16, pairs.w[3][g * kPer])));
    }
    front[g] = ops::PackS16Blockwise(d16, hn::ShiftRight<kReducedShift1>(hn::Add(e[0], o[0])),
                                     hn::ShiftRight<kReducedShift1>(hn::Add(e[1], o[1])));
    back[g] = ops::PackS16Blockwise(d16, hn::ShiftRight<kReducedShift1>(hn::Sub(e[0], o[0])),
                                    hn::ShiftRight<kReducedShift1>(hn::Sub(e[1], o[1])));
  }

  const V32 bias2 = hn::Set(d32, 1 << (kReducedShift2 - 1));
  auto finish = [&](V32 a, V32 b) {
    const V v = ops::PackS16Blockwise(d16, hn::ShiftRight<kReducedShift2>(hn::Add(a, bias2)),
                                      hn::ShiftRight<kReducedShift2>(hn::Add(b, bias2)));
    return hn::DemoteTo(d8, hn::SaturatedAdd(v, hn::Set(d16, 128)));
  };
  alignas(64) uint8_t out[16];
  if constexpr (J == 4) {
    const V k0 = hn::LoadDup128(d16, k[0]), k1 = hn::LoadDup128(d16, k[1]);
    const V k2 = hn::LoadDup128(d16, k[2]), k3 = hn::LoadDup128(d16, k[3]);
    auto sums = [&](V t) {
      return SumLanes4(d32, MulPairs(d32, t, k0), MulPairs(d32, t, k1), MulPairs(d32, t, k2),
                       MulPairs(d32, t, k3));
    };
    // Block b of group g: 4 bytes of row j = g*kPer + b, then 4 of row 3 - j.
    for (int g = 0; g < kGroups; ++g) {
      hn::Store(finish(sums(front[g]), sums(back[g])), d8, out + 8 * kPer * g);
    }
    for (int j = 0; j < 2; ++j) {
      std::memcpy(RowPtr(dst, step, j), out + 8 * j, 4);
      std::memcpy(RowPtr(dst, step, 3 - j), out + 8 * j + 4, 4);
    }
  } else {
    const V k0 = hn::LoadDup128(d16, k[0]), k1 = hn::LoadDup128(d16, k[1]);
    const V32 s = SumLanes4(d32, MulPairs(d32, front[0], k0), MulPairs(d32, front[0], k1),
                            MulPairs(d32, back[0], k0), MulPairs(d32, back[0], k1));
    hn::Store(finish(s, s), d8, out);  // rows 0 and 1, two bytes each
    std::memcpy(RowPtr(dst, step, 0), out, 2);
    std::memcpy(RowPtr(dst, step, 1), out + 2, 2);
  }
}

inline void To4x4(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  ReducedKernel<4>(src, dst, step, q, kIdctTo4x4, kTo4x4Pairs);
}
inline void To2x2(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  ReducedKernel<2>(src, dst, step, q, kIdctTo2x2, kTo2x2Pairs);
}

// ---------------------------------------------------------------- 16-bit samples

using DF = hn::CappedTag<float, 8>;
using VF = hn::Vec<DF>;
constexpr int kNF = int(hn::MaxLanes(DF()));  // 4 or 8 floats per vector
constexpr int kHF = 8 / kNF;                  // vectors per row of 8

// Same expressions, same order as the reference's 8-point pass; in[i] and
// out[i] step by `stride` vectors.
HWY_INLINE void Idct8Float(const VF* in, VF* out, int stride) {
  const DF df;
  const VF k1 = hn::Set(df, kIdctF1), k2 = hn::Set(df, kIdctF2), k3 = hn::Set(df, kIdctF3);
  const VF k4 = hn::Set(df, kIdctF4), k5 = hn::Set(df, kIdctF5), k6 = hn::Set(df, kIdctF6);
  const VF k7 = hn::Set(df, kIdctF7);
  const VF i0 = in[0], i1 = in[stride], i2 = in[2 * stride], i3 = in[3 * stride];
  const VF i4 = in[4 * stride], i5 = in[5 * stride], i6 = in[6 * stride], i7 = in[7 * stride];
  const VF e0 = (i0 + i4) * k4, e1 = (i0 - i4) * k4;
  const VF e2 = i2 * k2 + i6 * k6, e3 = i2 * k6 - i6 * k2;
  const VF E0 = e0 + e2, E3 = e0 - e2, E1 = e1 + e3, E2 = e1 - e3;
  const VF O0 = i1 * k1 + i3 * k3 + i5 * k5 + i7 * k7;
  const VF O1 = i1 * k3 - i3 * k7 - i5 * k1 - i7 * k5;
  const VF O2 = i1 * k5 - i3 * k1 + i5 * k7 + i7 * k3;
  const VF O3 = i1 * k7 - i3 * k5 + i5 * k3 - i7 * k1;
  out[0] = E0 + O0;
  out[7 * stride] = E0 - O0;
  out[stride] = E1 + O1;
  out[6 * stride] = E1 - O1;
  out[2 * stride] = E2 + O2;
  out[5 * stride] = E2 - O2;
  out[3 * stride] = E3 + O3;
  out[4 * stride] = E3 - O3;
}

// Transposes the 8x8 matrix m[row * kHF + h] (vector h holds columns
// h*kNF .. h*kNF+kNF-1 of the row) into t in the same layout.
HWY_INLINE void Transpose8x8(const VF* m, VF* t) {
  const DF df;
  const hn::Repartition<double, DF> dd;
  if constexpr (kNF == 4) {
    for (int br = 0; br < 2; ++br) {
      for (int bc = 0; bc < 2; ++bc) {
        const VF a = m[(4 * br + 0) * 2 + bc], b = m[(4 * br + 1) * 2 + bc];
        const VF c = m[(4 * br + 2) * 2 + bc], d = m[(4 * br + 3) * 2 + bc];
        const auto ab0 = hn::BitCast(dd, hn::InterleaveLower(df, a, b));
        const auto ab1 = hn::BitCast(dd, hn::InterleaveUpper(df, a, b));
        const auto cd0 = hn::BitCast(dd, hn::InterleaveLower(df, c, d));
        const auto cd1 = hn::BitCast(dd, hn::InterleaveUpper(df, c, d));
        t[(4 * bc + 0) * 2 + br] = hn::BitCast(df, hn::InterleaveLower(dd, ab0, cd0));
        t[(4 * bc + 1) * 2 + br] = hn::BitCast(df, hn::InterleaveUpper(dd, ab0, cd0));
        t[(4 * bc + 2) * 2 + br] = hn::BitCast(df, hn::InterleaveLower(dd, ab1, cd1));
        t[(4 * bc + 3) * 2 + br] = hn::BitCast(df, hn::InterleaveUpper(dd, ab1, cd1));
      }
    }
  } else {
    hn::Vec<decltype(dd)> u[8];
    for (int half = 0; half < 2; ++half) {
      const VF* r = m + 4 * half;
      const auto t0 = hn::BitCast(dd, hn::InterleaveLower(df, r[0], r[1]));
      const auto t1 = hn::BitCast(dd, hn::InterleaveUpper(df, r[0], r[1]));
      const auto t2 = hn::BitCast(dd, hn::InterleaveLower(df, r[2], r[3]));
      const auto t3 = hn::BitCast(dd, hn::InterleaveUpper(df, r[2], r[3]));
      u[4 * half + 0] = hn::InterleaveLower(dd, t0, t2);  // columns 0 | 4
      u[4 * half + 1] = hn::InterleaveUpper(dd, t0, t2);  // columns 1 | 5
      u[4 * half + 2] = hn::InterleaveLower(dd, t1, t3);  // columns 2 | 6
      u[4 * half + 3] = hn::InterleaveUpper(dd, t1, t3);  // columns 3 | 7
    }
    for (int c = 0; c < 4; ++c) {
      t[c] = hn::BitCast(df, hn::ConcatLowerLower(dd, u[4 + c], u[c]));
      t[c + 4] = hn::BitCast(df, hn::ConcatUpperUpper(dd, u[4 + c], u[c]));
    }
  }
}

template <class D>
HWY_INLINE void Ls16uImpl(D df, const int16_t* src, uint16_t* dst, int32_t step,
                          const uint16_t* q) {
  const hn::Rebind<int32_t, D> d32;
  hn::Vec<D> f[8 * kHF], g[8 * kHF];  // VF; spelled dependent so only one branch below is built
  for (int r = 0; r < 8; ++r) {
    const V128 x = Dequant(src + 8 * r, q + 8 * r);
    if constexpr (kNF == 8) {
      f[r] = hn::ConvertTo(df, hn::PromoteTo(d32, x));
    } else {
      const hn::Half<D128> dh;
      f[2 * r] = hn::ConvertTo(df, hn::PromoteTo(d32, hn::LowerHalf(dh, x)));
      f[2 * r + 1] = hn::ConvertTo(df, hn::PromoteTo(d32, hn::UpperHalf(dh, x)));
    }
  }
  for (int h = 0; h < kHF; ++h) Idct8Float(f + h, g + h, kHF);  // down the columns
  Transpose8x8(g, f);
  for (int h = 0; h < kHF; ++h) Idct8Float(f + h, g + h, kHF);  // along the rows, transposed
  Transpose8x8(g, f);
  // Clamping to -2048..2047 before rounding gives the same integers as
  // clamping after it (the bounds are integers); then the level shift.
  const hn::Vec<D> lo = hn::Set(df, -2048.0f), hi = hn::Set(df, 2047.0f);
  const auto lift = hn::Set(D128(), 2048);
  const hn::Full128<uint16_t> du16;
  for (int y = 0; y < 8; ++y) {
    V128 v;
    if constexpr (kNF == 8) {
      v = hn::DemoteTo(hn::Rebind<int16_t, decltype(d32)>(), hn::NearestInt(hn::Min(hn::Max(f[y], lo), hi)));
    } else {
      v = ops::PackS16Blockwise(D128(), hn::NearestInt(hn::Min(hn::Max(f[2 * y], lo), hi)),
                                hn::NearestInt(hn::Min(hn::Max(f[2 * y + 1], lo), hi)));
    }
    hn::StoreU(hn::BitCast(du16, hn::Add(v, lift)), du16, RowPtr(dst, step, y));
  }
}

inline void Ls16u(const int16_t* src, uint16_t* dst, int32_t step, const uint16_t* q) {
  Ls16uImpl(DF(), src, dst, step, q);
}

}  // namespace rvt::dct_inv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_DCT_INV_INL_H_
