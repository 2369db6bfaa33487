// Forward DCT: the vector kernels of one target.  No checks here: the
// drivers in dct_fwd.h have checked the arguments.
#if defined(RVT_JPEG_DCT_FWD_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_DCT_FWD_INL_H_
#undef RVT_JPEG_DCT_FWD_INL_H_
#else
#define RVT_JPEG_DCT_FWD_INL_H_
#endif

#include <hwy/highway.h>

#include "frame/raw_ops-inl.h"
#include "jpeg/dct_fwd.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::dct_fwd::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

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
  const auto& t = kPairTables.t;
  // Some targets leave part of the products in the second sum; combined,
  // lane j holds the products of the pair in lanes 2j, 2j+1 (on x86 the
  // second sum stays zero and the combination costs nothing).
  auto lo1 = hn::Zero(d32), hi1 = hn::Zero(d32);
  auto lo = hn::ReorderWidenMulAccumulate(d32, z01, hn::LoadU(d, t[0][0][row]),
                                          hn::Set(d32, 1 << 19), lo1);
  lo = hn::ReorderWidenMulAccumulate(d32, z23, hn::LoadU(d, t[0][1][row]), lo, lo1);
  lo = hn::RearrangeToOddPlusEven(lo, lo1);
  auto hi = hn::ReorderWidenMulAccumulate(d32, z01, hn::LoadU(d, t[1][0][row]),
                                          hn::Set(d32, 1 << 19), hi1);
  hi = hn::ReorderWidenMulAccumulate(d32, z23, hn::LoadU(d, t[1][1][row]), hi, hi1);
  hi = hn::RearrangeToOddPlusEven(hi, hi1);
  // Per block: frequencies 0..3 then 4..7, each within -2048..2047.
  return ops::PackS16Blockwise(d, hn::ShiftRight<20>(lo), hn::ShiftRight<20>(hi));
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

// The whole block is in registers before dst is written: in place works.
inline void Block16s(const int16_t* src, int16_t* dst, const uint16_t* table) {
  const D128 d;
  V128 x[8];
  for (int r = 0; r < 8; ++r) x[r] = hn::LoadU(d, src + 8 * r);
  FdctQuant(x, dst, table);
}

inline void Samples8u(const uint8_t* src, int32_t srcStep, int16_t* dst, const uint16_t* table) {
  const D128 d;
  const hn::Rebind<uint8_t, D128> d8;
  const auto bias = hn::Set(d, 128);
  V128 x[8];
  for (int r = 0; r < 8; ++r)
    x[r] = hn::Sub(hn::PromoteTo(d, hn::LoadU(d8, RowPtr(src, srcStep, r))), bias);
  FdctQuant(x, dst, table);
}

// ---- floating point

// One 8-point pass over x[0..7] (samples in, gained frequencies out): the
// expressions of FloatPassRef, in the same order.
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

inline void Samples16u(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
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
    const VF8 c = hn::Mul(hn::Mul(f[v], hn::LoadU(df, kPostScale.s + 8 * v)),
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
    v = hn::Mul(hn::Mul(v, hn::LoadU(df, kPostScale.s + i)), hn::LoadU(df, table + i));
    return hn::NearestInt(hn::Min(hn::Max(v, lowest), highest));
  };
  for (int v = 0; v < 8; ++v) {
    const auto a = to_int(left[v], 8 * v), b = to_int(right[v], 8 * v + 4);
    hn::StoreU(ops::PackS16Blockwise(d16, a, b), d16, dst + 8 * v);
  }
#endif
}

}  // namespace rvt::dct_fwd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_DCT_FWD_INL_H_
