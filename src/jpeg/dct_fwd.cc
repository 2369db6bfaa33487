// Forward 8x8 DCT fused with quantization.
//
// 8-bit sample paths: a 16-bit fixed-point column pass (saturating adds,
// Q16 tangent multipliers, a "| 1" rounding bias on some outputs), a row
// pass of 32-bit dot products against one table per coefficient row, and
// a quantizer that multiplies by the full reciprocal R = round(32768 / q)
// and rounds the quotient by 32768 half to even.
//
// 16-bit sample path (12-bit JPEG): single-precision separable DCT, rows
// then columns, each 1-D pass a butterfly graph whose outputs carry a
// per-frequency gain; a post-scale table removes it, then the caller's
// float multipliers quantize.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/dct_fwd.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cmath>
#include <cstring>

#include "frame/checks.h"
#include "frame/dispatch.h"
#include "frame/threading.h"
#include "jpeg/dct_tables.h"

#ifndef RVT_JPEG_DCT_FWD_ONCE
#define RVT_JPEG_DCT_FWD_ONCE
namespace rvt {
namespace fdct {

// Checks of the block forms: every pointer in order.
inline RvtResult CheckBlock(const void* src, const void* dst, const void* table) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  return CheckPtr(table);
}

// Checks of the sample forms: both block pointers before the source step.
inline RvtResult CheckSamples(const void* src, int32_t srcStep, const void* dst,
                              const void* table) {
  if (!src || !dst) return rvtStatusNullPtr;
  if (srcStep < 1) return rvtStatusStep;
  return CheckPtr(table);
}

// Row-pass multipliers arranged for pairwise 16x16->32 multiply-adds: for
// output half h (frequencies 4h..4h+3) and input pair g (k = 2g, 2g+1),
// lane 2j+e of row v holds W_v[4h + j][2g + e].  Rows of one kind are
// contiguous so a vector of several rows loads their tables at once.
struct PairTables {
  alignas(64) int16_t t[2][2][8][8];  // [h][g][v][2j+e]
};
constexpr PairTables MakePairTables() {
  PairTables p{};
  for (int h = 0; h < 2; ++h)
    for (int g = 0; g < 2; ++g)
      for (int v = 0; v < 8; ++v)
        for (int j = 0; j < 4; ++j)
          for (int e = 0; e < 2; ++e)
            p.t[h][g][v][2 * j + e] = dct::kRowTables.w[v][4 * h + j][2 * g + e];
  return p;
}
alignas(64) inline constexpr PairTables kPairTables = MakePairTables();

// Gains of the float butterfly graph, undone by kPostScale[v * 8 + u] =
// g[v] * g[u]: 1/(4 cos(u pi/16)) for even u (1/(2 sqrt 2) for u = 0),
// cos(pi/8) / (4 cos(u pi/16)) for odd u.
constexpr double kFloatGain[8] = {
    0.35355339059327373, 0.23549485064953565, 0.27059805007309851, 0.27778511650980109,
    0.35355339059327373, 0.41573480615127256, 0.65328148243818818, 1.1839125628626885,
};
struct PostScale {
  alignas(64) float s[64];
};
constexpr PostScale MakePostScale() {
  PostScale p{};
  for (int i = 0; i < 64; ++i) p.s[i] = float(kFloatGain[i / 8] * kFloatGain[i % 8]);
  return p;
}
alignas(64) inline constexpr PostScale kPostScale = MakePostScale();

// ---- scalar reference of the fixed-point paths

inline int16_t Sat16(int32_t v) { return int16_t(v < -32768 ? -32768 : (v > 32767 ? 32767 : v)); }
inline int16_t AddS(int16_t a, int16_t b) { return Sat16(int32_t(a) + b); }
inline int16_t SubS(int16_t a, int16_t b) { return Sat16(int32_t(a) - b); }
inline int16_t Shl(int16_t a, int n) { return int16_t(uint16_t(uint16_t(a) << n)); }
inline int16_t MulHi(int16_t a, int16_t k) { return int16_t((int32_t(a) * k) >> 16); }
inline int16_t Odd(int16_t a) { return int16_t(a | 1); }

// Column pass on one column (x[0..7] top to bottom), in place.
inline void ColumnRef(int16_t* x) {
  using namespace dct;
  const int16_t t0 = AddS(x[0], x[7]), t1 = AddS(x[1], x[6]);
  const int16_t t2 = AddS(x[2], x[5]), t3 = AddS(x[3], x[4]);
  const int16_t d0 = SubS(x[0], x[7]), d1 = SubS(x[1], x[6]);
  const int16_t d2 = SubS(x[2], x[5]), d3 = SubS(x[3], x[4]);

  const int16_t e = Shl(AddS(t0, t3), 3), c = Shl(SubS(t0, t3), 3);
  const int16_t b = AddS(Shl(t1, 3), Shl(t2, 3)), a = SubS(Shl(t1, 3), Shl(t2, 3));
  x[0] = AddS(e, b);
  x[4] = SubS(e, b);
  x[2] = Odd(AddS(c, MulHi(a, kT2)));
  x[6] = Odd(SubS(MulHi(c, kT2), a));

  const int16_t p = Odd(MulHi(AddS(Shl(d1, 4), Shl(d2, 4)), kC4));
  const int16_t q = MulHi(SubS(Shl(d1, 4), Shl(d2, 4)), kC4);
  const int16_t s = AddS(Shl(d3, 3), q), r = SubS(Shl(d3, 3), q);
  const int16_t w = AddS(Shl(d0, 3), p), u = SubS(Shl(d0, 3), p);
  x[1] = Odd(AddS(w, MulHi(s, kT1)));
  x[7] = SubS(MulHi(w, kT1), s);
  x[3] = SubS(u, AddS(r, MulHi(r, kT3m)));
  x[5] = AddS(r, AddS(u, MulHi(u, kT3m)));
}

// Row pass on coefficient row v, in place: 32-bit dot products (wrapping,
// as the multiply-add instructions do), rounded and scaled by 2^-20.
inline void RowRef(int16_t* y, int v) {
  int16_t sd[2][4];
  for (int k = 0; k < 4; ++k) {
    sd[0][k] = AddS(y[k], y[7 - k]);
    sd[1][k] = SubS(y[k], y[7 - k]);
  }
  for (int u = 0; u < 8; ++u) {
    uint32_t acc = 1u << 19;
    for (int k = 0; k < 4; ++k)
      acc += uint32_t(int32_t(sd[u & 1][k]) * dct::kRowTables.w[v][u][k]);
    y[u] = Sat16(int32_t(acc) >> 20);
  }
}

// round(F * R / 32768), halves to even, saturated.
inline int16_t QuantizeRef(int16_t f, uint16_t r) {
  const int32_t p = int32_t(f) * int32_t(r);
  int32_t k = p >> 15;
  const int32_t rem = p & 32767;
  if (rem > 16384 || (rem == 16384 && (k & 1))) ++k;
  return Sat16(k);
}

// Transform and quantize a level-shifted block (natural order) into dst.
// Blocks and tables may sit at any address, hence the copies.
inline void FdctQuantRef(int16_t* blk, int16_t* dst, const uint16_t* table) {
  for (int c = 0; c < 8; ++c) {
    int16_t col[8];
    for (int i = 0; i < 8; ++i) col[i] = blk[i * 8 + c];
    ColumnRef(col);
    for (int i = 0; i < 8; ++i) blk[i * 8 + c] = col[i];
  }
  for (int v = 0; v < 8; ++v) RowRef(blk + v * 8, v);
  uint16_t r[64];
  int16_t out[64];
  std::memcpy(r, table, sizeof(r));
  for (int i = 0; i < 64; ++i) out[i] = QuantizeRef(blk[i], r[i]);
  std::memcpy(dst, out, sizeof(out));
}

inline RvtResult Fwd16sRef(const int16_t* src, int16_t* dst, const uint16_t* table) {
  RVT_CHECK(CheckBlock(src, dst, table));
  int16_t blk[64];
  std::memcpy(blk, src, sizeof(blk));
  FdctQuantRef(blk, dst, table);
  return rvtStatusOk;
}

inline RvtResult Fwd16sInPlaceRef(int16_t* srcDst, const uint16_t* table) {
  RVT_CHECK(CheckPtr(srcDst));
  RVT_CHECK(CheckPtr(table));
  return Fwd16sRef(srcDst, srcDst, table);
}

inline RvtResult FwdLS8uRef(const uint8_t* src, int32_t srcStep, int16_t* dst,
                            const uint16_t* table) {
  RVT_CHECK(CheckSamples(src, srcStep, dst, table));
  int16_t blk[64];
  for (int r = 0; r < 8; ++r) {
    const uint8_t* row = RowPtr(src, srcStep, r);
    for (int c = 0; c < 8; ++c) blk[r * 8 + c] = int16_t(row[c] - 128);
  }
  FdctQuantRef(blk, dst, table);
  return rvtStatusOk;
}

// Float result to a coefficient: x86 max/min semantics first (a NaN
// becomes -32768), then rounding to nearest, halves to even.
inline int16_t FloatToCoef(float x) {
  float v = x > -32768.0f ? x : -32768.0f;
  v = v < 32767.0f ? v : 32767.0f;
  return int16_t(std::nearbyint(v));
}

}  // namespace fdct
}  // namespace rvt
#endif  // RVT_JPEG_DCT_FWD_ONCE

HWY_BEFORE_NAMESPACE();
namespace rvt {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D128 = hn::Full128<int16_t>;
using V128 = hn::Vec<D128>;

// ---- fixed point

// Column pass on eight rows of eight columns, in place.
HWY_INLINE void ColumnPass(V128 (&x)[8]) {
  const D128 d;
  const auto one = hn::Set(d, 1);
  const auto kT1 = hn::Set(d, dct::kT1), kT2 = hn::Set(d, dct::kT2);
  const auto kT3m = hn::Set(d, dct::kT3m), kC4 = hn::Set(d, dct::kC4);
  const auto t0 = hn::SaturatedAdd(x[0], x[7]), t1 = hn::SaturatedAdd(x[1], x[6]);
  const auto t2 = hn::SaturatedAdd(x[2], x[5]), t3 = hn::SaturatedAdd(x[3], x[4]);
  const auto d0 = hn::SaturatedSub(x[0], x[7]), d1 = hn::SaturatedSub(x[1], x[6]);
  const auto d2 = hn::SaturatedSub(x[2], x[5]), d3 = hn::SaturatedSub(x[3], x[4]);

  const auto e = hn::ShiftLeft<3>(hn::SaturatedAdd(t0, t3));
  const auto c = hn::ShiftLeft<3>(hn::SaturatedSub(t0, t3));
  const auto t1s = hn::ShiftLeft<3>(t1), t2s = hn::ShiftLeft<3>(t2);
  const auto b = hn::SaturatedAdd(t1s, t2s), a = hn::SaturatedSub(t1s, t2s);
  x[0] = hn::SaturatedAdd(e, b);
  x[4] = hn::SaturatedSub(e, b);
  x[2] = hn::Or(hn::SaturatedAdd(c, hn::MulHigh(a, kT2)), one);
  x[6] = hn::Or(hn::SaturatedSub(hn::MulHigh(c, kT2), a), one);

  const auto d1s = hn::ShiftLeft<4>(d1), d2s = hn::ShiftLeft<4>(d2);
  const auto p = hn::Or(hn::MulHigh(hn::SaturatedAdd(d1s, d2s), kC4), one);
  const auto q = hn::MulHigh(hn::SaturatedSub(d1s, d2s), kC4);
  const auto d3s = hn::ShiftLeft<3>(d3), d0s = hn::ShiftLeft<3>(d0);
  const auto s = hn::SaturatedAdd(d3s, q), r = hn::SaturatedSub(d3s, q);
  const auto w = hn::SaturatedAdd(d0s, p), u = hn::SaturatedSub(d0s, p);
  x[1] = hn::Or(hn::SaturatedAdd(w, hn::MulHigh(s, kT1)), one);
  x[7] = hn::SaturatedSub(hn::MulHigh(w, kT1), s);
  x[3] = hn::SaturatedSub(u, hn::SaturatedAdd(r, hn::MulHigh(r, kT3m)));
  x[5] = hn::SaturatedAdd(r, hn::SaturatedAdd(u, hn::MulHigh(u, kT3m)));
}

// K = Lanes / 8 consecutive rows in one vector, one row per 128-bit block.
template <class D>
HWY_INLINE hn::Vec<D> JoinRows(D d, const V128* rows) {
  constexpr size_t N = hn::MaxLanes(d);
  if constexpr (N == 8) {
    return rows[0];
  } else {
    static_assert(N == 16, "128 or 256-bit vectors");
    return hn::Combine(d, rows[1], rows[0]);
  }
}

// Row pass of one row per block.  z holds, per block, the pairs (s0 s1)
// (d0 d1) (s2 s3) (d2 d3) of the row whose index in block 0 is `row`.
template <class D>
HWY_INLINE hn::Vec<D> RowDots(D d, hn::Vec<D> z, size_t row) {
  const hn::Repartition<uint64_t, D> d64;
  const hn::Repartition<int32_t, D> d32;
  const auto z64 = hn::BitCast(d64, z);
  const auto z01 = hn::BitCast(d, hn::InterleaveLower(d64, z64, z64));  // s01 d01 s01 d01
  const auto z23 = hn::BitCast(d, hn::InterleaveUpper(d64, z64, z64));  // s23 d23 s23 d23
  const auto& t = fdct::kPairTables.t;
  auto unused = hn::Zero(d32);
  auto lo = hn::ReorderWidenMulAccumulate(d32, z01, hn::LoadU(d, t[0][0][row]),
                                          hn::Set(d32, 1 << 19), unused);
  lo = hn::ReorderWidenMulAccumulate(d32, z23, hn::LoadU(d, t[0][1][row]), lo, unused);
  auto hi = hn::ReorderWidenMulAccumulate(d32, z01, hn::LoadU(d, t[1][0][row]),
                                          hn::Set(d32, 1 << 19), unused);
  hi = hn::ReorderWidenMulAccumulate(d32, z23, hn::LoadU(d, t[1][1][row]), hi, unused);
  // Per block: frequencies 0..3 then 4..7, each within -2048..2047.
  return hn::ReorderDemote2To(d, hn::ShiftRight<20>(lo), hn::ShiftRight<20>(hi));
}

// round(F * R / 32768), halves to even, for |F| <= 2048 (all the row pass
// produces): the half-up product of the fixed-point multiply (corrected for
// R >= 32768, which it reads as negative), then a tie -- low 16 bits of
// 2 F R equal to 0x8000 -- is pulled back to the even neighbour.
template <class D>
HWY_INLINE hn::Vec<D> QuantizeHalfEven(D d, hn::Vec<D> f, const uint16_t* table) {
  const hn::RebindToUnsigned<D> du;
  const auto r = hn::BitCast(d, hn::LoadU(du, table));
  const auto f2 = hn::Add(f, f);
  const auto up = hn::Add(hn::MulFixedPoint15(f, r), hn::And(f2, hn::ShiftRight<15>(r)));
  const auto tie = hn::Eq(hn::Mul(f2, r), hn::Set(d, int16_t(-32768)));
  return hn::And(up, hn::Add(hn::VecFromMask(d, tie), hn::Set(d, -1)));
}

// Column pass, row pass and quantization of eight level-shifted rows.
HWY_INLINE void FdctQuant(V128 (&x)[8], int16_t* dst, const uint16_t* table) {
  ColumnPass(x);
  // One or two rows per vector.  Four (512 bits) measured slower: the
  // joins cost more than the row-pass operations they save.
  const hn::CappedTag<int16_t, 16> d;
  constexpr size_t N = hn::MaxLanes(d);
  constexpr size_t K = N / 8;  // rows per vector
  constexpr size_t M = 8 / K;  // vectors per block
  const hn::Repartition<uint64_t, decltype(d)> d64;
  const hn::Repartition<uint32_t, decltype(d)> d32;
  const hn::Repartition<uint8_t, decltype(d)> d8;
  // Reverses the four words of each 64-bit half.
  alignas(16) static constexpr uint8_t kReverse4[16] = {6,  7,  4,  5,  2,  3,  0, 1,
                                                       14, 15, 12, 13, 10, 11, 8, 9};
  const auto reverse = hn::LoadDup128(d8, kReverse4);
  for (size_t i = 0; i < M; i += 2) {
    // Block b of p holds row i*K + b, of q row (i+1)*K + b.
    const auto p = hn::BitCast(d64, JoinRows(d, x + i * K));
    const auto q = hn::BitCast(d64, JoinRows(d, x + (i + 1) * K));
    const auto lo = hn::BitCast(d, hn::InterleaveLower(d64, p, q));     // p0..3 q0..3
    const auto hi = hn::BitCast(d, hn::InterleaveUpper(d64, p, q));     // p4..7 q4..7
    const auto rev = hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(d8, hi), reverse));
    const auto s = hn::BitCast(d32, hn::SaturatedAdd(lo, rev));         // sums
    const auto t = hn::BitCast(d32, hn::SaturatedSub(lo, rev));         // differences
    const auto zp = hn::BitCast(d, hn::InterleaveLower(d32, s, t));
    const auto zq = hn::BitCast(d, hn::InterleaveUpper(d32, s, t));
    const auto fp = RowDots(d, zp, i * K);
    const auto fq = RowDots(d, zq, (i + 1) * K);
    hn::StoreU(QuantizeHalfEven(d, fp, table + i * N), d, dst + i * N);
    hn::StoreU(QuantizeHalfEven(d, fq, table + (i + 1) * N), d, dst + (i + 1) * N);
  }
}

RvtResult Fwd16s(const int16_t* src, int16_t* dst, const uint16_t* table) {
  RVT_CHECK(fdct::CheckBlock(src, dst, table));
  const D128 d;
  V128 x[8];
  for (int r = 0; r < 8; ++r) x[r] = hn::LoadU(d, src + 8 * r);
  FdctQuant(x, dst, table);
  return rvtStatusOk;
}

RvtResult Fwd16sInPlace(int16_t* srcDst, const uint16_t* table) {
  RVT_CHECK(CheckPtr(srcDst));
  RVT_CHECK(CheckPtr(table));
  return Fwd16s(srcDst, srcDst, table);
}

RvtResult FwdLS8u(const uint8_t* src, int32_t srcStep, int16_t* dst, const uint16_t* table) {
  RVT_CHECK(fdct::CheckSamples(src, srcStep, dst, table));
  const D128 d;
  const hn::Rebind<uint8_t, D128> d8;
  const auto bias = hn::Set(d, 128);
  V128 x[8];
  for (int r = 0; r < 8; ++r)
    x[r] = hn::Sub(hn::PromoteTo(d, hn::LoadU(d8, RowPtr(src, srcStep, r))), bias);
  FdctQuant(x, dst, table);
  return rvtStatusOk;
}

// ---- floating point

// One 8-point pass over x[0..7] (samples in, gained frequencies out).  The
// same template serves the scalar reference and the vectors, so both run
// the same operations in the same order.
template <class V, class MulC>
HWY_INLINE void FloatPass(V (&x)[8], const MulC& mul) {
  const V t0 = x[0] + x[7], t7 = x[0] - x[7];
  const V t1 = x[1] + x[6], t6 = x[1] - x[6];
  const V t2 = x[2] + x[5], t5 = x[2] - x[5];
  const V t3 = x[3] + x[4], t4 = x[3] - x[4];
  // Even part.
  const V p0 = t0 + t3, c = t0 - t3, p1 = t1 + t2, a = t1 - t2;
  x[0] = p0 + p1;
  x[4] = p0 - p1;
  const V z = mul(c + a, 0.70710677f);  // cos(pi/4)
  x[2] = c + z;
  x[6] = c - z;
  // Odd part.
  const V u10 = t4 + t5, u11 = t5 + t6, u12 = t6 + t7;
  const V z2 = u10 - mul(u12, 0.41421357f);  // tan(pi/8)
  const V z4 = u12 + mul(u10, 0.41421357f);
  const V z3 = mul(u11, 0.76536685f);
  const V s = mul(t7, 1.0823922f);
  const V z11 = s + z3, z13 = s - z3;
  x[5] = z13 + z2;
  x[3] = z13 - z2;
  x[1] = z11 + z4;
  x[7] = z11 - z4;
}

// The reference lives here so that it shares FloatPass with the vectors.
RvtResult FwdLS16uRef(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  RVT_CHECK(fdct::CheckSamples(src, srcStep, dst, table));
  const auto mul = [](float v, float k) { return v * k; };
  float blk[8][8];
  for (int r = 0; r < 8; ++r) {
    uint16_t row[8];
    std::memcpy(row, RowPtr(src, srcStep, r), sizeof(row));  // any alignment
    for (int c = 0; c < 8; ++c) blk[r][c] = float(row[c]) - 2048.0f;
    FloatPass(blk[r], mul);
  }
  for (int c = 0; c < 8; ++c) {
    float col[8];
    for (int r = 0; r < 8; ++r) col[r] = blk[r][c];
    FloatPass(col, mul);
    for (int r = 0; r < 8; ++r) blk[r][c] = col[r];
  }
  float q[64];
  int16_t out[64];
  std::memcpy(q, table, sizeof(q));
  for (int i = 0; i < 64; ++i)
    out[i] = fdct::FloatToCoef(blk[i / 8][i % 8] * fdct::kPostScale.s[i] * q[i]);
  std::memcpy(dst, out, sizeof(out));
  return rvtStatusOk;
}

using DF = hn::Full128<float>;
using VF = hn::Vec<DF>;

HWY_INLINE void Transpose4x4(VF& r0, VF& r1, VF& r2, VF& r3) {
  const DF d;
  const VF t0 = hn::InterleaveLower(d, r0, r1), t1 = hn::InterleaveLower(d, r2, r3);
  const VF t2 = hn::InterleaveUpper(d, r0, r1), t3 = hn::InterleaveUpper(d, r2, r3);
  r0 = hn::ConcatLowerLower(d, t1, t0);
  r1 = hn::ConcatUpperUpper(d, t1, t0);
  r2 = hn::ConcatLowerLower(d, t3, t2);
  r3 = hn::ConcatUpperUpper(d, t3, t2);
}

// 8x8 transpose of 16-bit rows.
HWY_INLINE void Transpose8x8(hn::Vec<hn::Full128<uint16_t>> (&r)[8]) {
  const hn::Full128<uint16_t> d;
  const hn::Full128<uint32_t> d32;
  const hn::Full128<uint64_t> d64;
  hn::Vec<decltype(d32)> a[8];
  for (int i = 0; i < 4; ++i) {
    a[2 * i] = hn::BitCast(d32, hn::InterleaveLower(d, r[2 * i], r[2 * i + 1]));
    a[2 * i + 1] = hn::BitCast(d32, hn::InterleaveUpper(d, r[2 * i], r[2 * i + 1]));
  }
  // b[4h + j]: columns 2j, 2j+1 of rows 4h..4h+3.
  hn::Vec<decltype(d64)> b[8];
  for (int h = 0; h < 2; ++h) {
    const auto* ah = a + 4 * h;
    b[4 * h + 0] = hn::BitCast(d64, hn::InterleaveLower(d32, ah[0], ah[2]));
    b[4 * h + 1] = hn::BitCast(d64, hn::InterleaveUpper(d32, ah[0], ah[2]));
    b[4 * h + 2] = hn::BitCast(d64, hn::InterleaveLower(d32, ah[1], ah[3]));
    b[4 * h + 3] = hn::BitCast(d64, hn::InterleaveUpper(d32, ah[1], ah[3]));
  }
  for (int j = 0; j < 4; ++j) {
    r[2 * j] = hn::BitCast(d, hn::InterleaveLower(d64, b[j], b[4 + j]));
    r[2 * j + 1] = hn::BitCast(d, hn::InterleaveUpper(d64, b[j], b[4 + j]));
  }
}

#if HWY_TARGET <= HWY_AVX2
using DF8 = hn::Full256<float>;
using VF8 = hn::Vec<DF8>;

// 8x8 transpose of float rows (one row per 256-bit vector).
HWY_INLINE void TransposeRows8(VF8 (&r)[8]) {
  const DF8 d;
  const hn::Repartition<double, DF8> d64;
  hn::Vec<decltype(d64)> u[8];
  for (int i = 0; i < 4; ++i) {  // per 128-bit half: pairs of rows 2i, 2i+1
    u[2 * i] = hn::BitCast(d64, hn::InterleaveLower(d, r[2 * i], r[2 * i + 1]));
    u[2 * i + 1] = hn::BitCast(d64, hn::InterleaveUpper(d, r[2 * i], r[2 * i + 1]));
  }
  VF8 v[8];  // v[4h + j]: column j (low half) and j + 4 (high half) of rows 4h..4h+3
  for (int h = 0; h < 2; ++h) {
    const auto* uh = u + 4 * h;
    v[4 * h + 0] = hn::BitCast(d, hn::InterleaveLower(d64, uh[0], uh[2]));
    v[4 * h + 1] = hn::BitCast(d, hn::InterleaveUpper(d64, uh[0], uh[2]));
    v[4 * h + 2] = hn::BitCast(d, hn::InterleaveLower(d64, uh[1], uh[3]));
    v[4 * h + 3] = hn::BitCast(d, hn::InterleaveUpper(d64, uh[1], uh[3]));
  }
  for (int j = 0; j < 4; ++j) {
    r[j] = hn::ConcatLowerLower(d, v[4 + j], v[j]);
    r[j + 4] = hn::ConcatUpperUpper(d, v[4 + j], v[j]);
  }
}
#endif

RvtResult FwdLS16u(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  RVT_CHECK(fdct::CheckSamples(src, srcStep, dst, table));
  const hn::Full128<uint16_t> du;
  // Columns of the sample block: cols[x] holds rows 0..7 of column x, so
  // that the row transform runs across vectors.
  hn::Vec<decltype(du)> cols[8];
  for (int r = 0; r < 8; ++r) cols[r] = hn::LoadU(du, RowPtr(src, srcStep, r));
  Transpose8x8(cols);

#if HWY_TARGET <= HWY_AVX2
  // One row of eight floats per vector.
  const DF8 df;
  const hn::Full256<int32_t> di;
  const hn::Full128<int16_t> d16;
  const auto mul = [&](VF8 v, float k) { return hn::Mul(v, hn::Set(df, k)); };
  const VF8 shift = hn::Set(df, 2048.0f);
  VF8 f[8];
  for (int x = 0; x < 8; ++x) f[x] = hn::Sub(hn::ConvertTo(df, hn::PromoteTo(di, cols[x])), shift);
  FloatPass(f, mul);  // f[u]: frequency u of rows 0..7
  TransposeRows8(f);  // f[y]: frequencies 0..7 of row y
  FloatPass(f, mul);  // f[v]: coefficient row v
  const VF8 lowest = hn::Set(df, -32768.0f), highest = hn::Set(df, 32767.0f);
  for (int v = 0; v < 8; ++v) {
    const VF8 c = hn::Mul(hn::Mul(f[v], hn::LoadU(df, fdct::kPostScale.s + 8 * v)),
                          hn::LoadU(df, table + 8 * v));
    const auto n = hn::NearestInt(hn::Min(hn::Max(c, lowest), highest));
    hn::StoreU(hn::DemoteTo(d16, n), d16, dst + 8 * v);
  }
#else
  // Four floats per vector: lo / hi halves of each row or column.
  const DF df;
  const hn::Full128<int32_t> di;
  const hn::Full64<uint16_t> du_half;
  const D128 d16;
  const auto mul = [&](VF v, float k) { return hn::Mul(v, hn::Set(df, k)); };
  const VF shift = hn::Set(df, 2048.0f);
  VF lo[8], hi[8];  // rows 0..3 / 4..7 of column x
  for (int x = 0; x < 8; ++x) {
    lo[x] = hn::Sub(hn::ConvertTo(df, hn::PromoteTo(di, hn::LowerHalf(du_half, cols[x]))), shift);
    hi[x] = hn::Sub(hn::ConvertTo(df, hn::PromoteTo(di, hn::UpperHalf(du_half, cols[x]))), shift);
  }
  FloatPass(lo, mul);
  FloatPass(hi, mul);
  // lo[u] / hi[u] now hold frequency u of rows 0..3 / 4..7.  Transpose so
  // that left[y] / right[y] hold frequencies 0..3 / 4..7 of row y.
  VF left[8] = {lo[0], lo[1], lo[2], lo[3], hi[0], hi[1], hi[2], hi[3]};
  VF right[8] = {lo[4], lo[5], lo[6], lo[7], hi[4], hi[5], hi[6], hi[7]};
  Transpose4x4(left[0], left[1], left[2], left[3]);
  Transpose4x4(left[4], left[5], left[6], left[7]);
  Transpose4x4(right[0], right[1], right[2], right[3]);
  Transpose4x4(right[4], right[5], right[6], right[7]);
  FloatPass(left, mul);
  FloatPass(right, mul);
  const VF lowest = hn::Set(df, -32768.0f), highest = hn::Set(df, 32767.0f);
  const auto to_int = [&](VF v, size_t i) {
    v = hn::Mul(hn::Mul(v, hn::LoadU(df, fdct::kPostScale.s + i)), hn::LoadU(df, table + i));
    return hn::NearestInt(hn::Min(hn::Max(v, lowest), highest));
  };
  for (int v = 0; v < 8; ++v) {
    const auto a = to_int(left[v], 8 * v), b = to_int(right[v], 8 * v + 4);
    hn::StoreU(hn::ReorderDemote2To(d16, a, b), d16, dst + 8 * v);
  }
#endif
  return rvtStatusOk;
}

}  // namespace HWY_NAMESPACE
}  // namespace rvt
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY_LEGACY(rvtiDCTQuantFwd8x8_JPEG_16s_C1, Fwd16s, fdct::Fwd16sRef);
RVT_IMPL_HWY_LEGACY(rvtiDCTQuantFwd8x8_JPEG_16s_C1I, Fwd16sInPlace, fdct::Fwd16sInPlaceRef);
RVT_IMPL_HWY_LEGACY(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R, FwdLS8u, fdct::FwdLS8uRef);
// The float reference is compiled with the baseline target (this pass).
RVT_IMPL_HWY_LEGACY(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R, FwdLS16u, HWY_NAMESPACE::FwdLS16uRef);
}  // namespace rvt
#endif
