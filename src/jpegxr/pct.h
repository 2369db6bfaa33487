// The JPEG XR photo core transform of 4x4 blocks, forward and inverse, in
// place: the scalar reference (the definition of every result), the
// argument checks and the drivers over a region, one macroblock or a run
// of blocks stored one after another.
//
// A block's samples are numbered row by row, 4r + c; rows a, b, c, d.
// Stage 1 is a plain 2x2 Hadamard step on four groups, stage 2 a rounded
// Hadamard step on the top-left quadrant, the odd rotation on the top-right
// quadrant and on the transposed bottom-left one, and the odd-odd rotation
// on the bottom-right one.  The inverse undoes each lifting step in reverse
// order.
//
// Arithmetic per element type:
//   16s: every result, the argument of every shift included (3x + 4,
//        x + 1, A - B), wraps to 16 bits, and the shift acts on that
//        sign-extended 16-bit value -- exactly what 16-bit vector lanes do.
//   32s: the same with 32-bit wrapping.
//   32f: the rational network: x >> 1 is 0.5x, (3x + 4) >> 3 and
//        (3x + 3) >> 3 are 0.375x, (3x + 3) >> 2 is 0.75x, no rounding terms.
#ifndef RVT_JPEGXR_PCT_H_
#define RVT_JPEGXR_PCT_H_

#include <cstdint>
#include <type_traits>

#include "frame/checks.h"
#include "frame/threading.h"
#include "frame/unaligned.h"
#include "rvtjp.h"

namespace rvt::pct {

// ------------------------------------------------------------ reference

// The lifting primitives on one sample.
template <class T>
struct Scalar {
  static constexpr bool kInt = std::is_integral_v<T>;
  static T Add(T a, T b) {
    if constexpr (kInt) return T(int64_t(a) + int64_t(b));
    else return a + b;
  }
  static T Sub(T a, T b) {
    if constexpr (kInt) return T(int64_t(a) - int64_t(b));
    else return a - b;
  }
  static T Neg(T a) {
    if constexpr (kInt) return T(-int64_t(a));
    else return -a;
  }
  static T Times3(T a) { return Add(Add(a, a), a); }
  static T Half(T a) {  // x >> 1
    if constexpr (kInt) return T(a >> 1);
    else return 0.5f * a;
  }
  static T HalfUp(T a) {  // (x + 1) >> 1
    if constexpr (kInt) return T(Add(a, 1) >> 1);
    else return 0.5f * a;
  }
  static T Lift38(T a) {  // (3x + 4) >> 3
    if constexpr (kInt) return T(Add(Times3(a), 4) >> 3);
    else return 0.375f * a;
  }
  static T Lift34(T a) {  // (3x + 3) >> 2
    if constexpr (kInt) return T(Add(Times3(a), 3) >> 2);
    else return 0.75f * a;
  }
  static T Lift38b(T a) {  // (3x + 3) >> 3
    if constexpr (kInt) return T(Add(Times3(a), 3) >> 3);
    else return 0.375f * a;
  }
};

// 2x2 Hadamard step; kRound adds 1 before the halving.
template <bool kRound, class T>
void HadFwd(T& A, T& B, T& C, T& D) {
  using S = Scalar<T>;
  A = S::Add(A, D);
  B = S::Sub(B, C);
  const T h = kRound ? S::HalfUp(S::Sub(A, B)) : S::Half(S::Sub(A, B));
  const T t = S::Sub(h, D);
  B = S::Add(B, t);
  D = S::Sub(S::Add(D, t), C);
  A = S::Sub(A, D);
  C = t;
}
template <bool kRound, class T>
void HadInv(T& A, T& B, T& C, T& D) {
  using S = Scalar<T>;
  const T t = C;
  A = S::Add(A, D);
  B = S::Sub(B, t);
  const T h = kRound ? S::HalfUp(S::Sub(A, B)) : S::Half(S::Sub(A, B));
  const T dn = S::Sub(h, t);
  C = S::Sub(S::Add(dn, t), D);
  B = S::Add(B, C);
  A = S::Sub(A, dn);
  D = dn;
}

// Odd rotation.
template <class T>
void RotFwd(T& x, T& y, T& z, T& w) {
  using S = Scalar<T>;
  y = S::Sub(y, z);
  x = S::Add(x, w);
  z = S::Add(z, S::HalfUp(y));
  w = S::Sub(S::HalfUp(x), w);
  y = S::Sub(y, S::Lift38(x));
  x = S::Add(x, S::Lift38(y));
  w = S::Sub(w, S::Lift38(z));
  z = S::Add(z, S::Lift38(w));
  w = S::Add(w, S::Half(y));
  z = S::Sub(z, S::HalfUp(x));
  y = S::Sub(y, w);
  x = S::Add(x, z);
}
template <class T>
void RotInv(T& x, T& y, T& z, T& w) {
  using S = Scalar<T>;
  y = S::Add(y, w);
  x = S::Sub(x, z);
  w = S::Sub(w, S::Half(y));
  z = S::Add(z, S::HalfUp(x));
  x = S::Sub(x, S::Lift38(y));
  y = S::Add(y, S::Lift38(x));
  z = S::Sub(z, S::Lift38(w));
  w = S::Add(w, S::Lift38(z));
  z = S::Sub(z, S::HalfUp(y));
  w = S::Sub(S::HalfUp(x), w);
  y = S::Add(y, z);
  x = S::Sub(x, w);
}

// Odd-odd rotation.
template <class T>
void OddOddFwd(T& p, T& q, T& r, T& s) {
  using S = Scalar<T>;
  q = S::Neg(q);
  r = S::Neg(r);
  s = S::Add(s, p);
  r = S::Sub(r, q);
  const T t1 = S::Half(s), t2 = S::Half(r);
  p = S::Sub(p, t1);
  q = S::Add(q, t2);
  p = S::Add(p, S::Lift38(q));
  q = S::Sub(q, S::Lift34(p));
  p = S::Add(p, S::Lift38b(q));
  q = S::Sub(q, t2);
  p = S::Add(p, t1);
  r = S::Add(r, q);
  s = S::Sub(s, p);
}
template <class T>
void OddOddInv(T& p, T& q, T& r, T& s) {
  using S = Scalar<T>;
  s = S::Add(s, p);
  r = S::Sub(r, q);
  const T t1 = S::Half(s), t2 = S::Half(r);
  p = S::Sub(p, t1);
  q = S::Add(q, t2);
  p = S::Sub(p, S::Lift38b(q));
  q = S::Add(q, S::Lift34(p));
  p = S::Sub(p, S::Lift38(q));
  q = S::Sub(q, t2);
  p = S::Add(p, t1);
  r = S::Add(r, q);
  s = S::Sub(s, p);
  q = S::Neg(q);
  r = S::Neg(r);
}

// Positions of a block, row by row.
enum : int { a0, a1, a2, a3, b0, b1, b2, b3, c0, c1, c2, c3, d0, d1, d2, d3 };

template <class T>
void BlockFwd(T (&v)[16]) {
  HadFwd<false>(v[a0], v[a3], v[d0], v[d3]);
  HadFwd<false>(v[a1], v[a2], v[d1], v[d2]);
  HadFwd<false>(v[b0], v[b3], v[c0], v[c3]);
  HadFwd<false>(v[b1], v[b2], v[c1], v[c2]);
  HadFwd<true>(v[a0], v[a1], v[b0], v[b1]);
  RotFwd(v[a2], v[a3], v[b2], v[b3]);
  RotFwd(v[c0], v[d0], v[c1], v[d1]);
  OddOddFwd(v[c2], v[c3], v[d2], v[d3]);
}
template <class T>
void BlockInv(T (&v)[16]) {
  OddOddInv(v[c2], v[c3], v[d2], v[d3]);
  RotInv(v[c0], v[d0], v[c1], v[d1]);
  RotInv(v[a2], v[a3], v[b2], v[b3]);
  HadInv<true>(v[a0], v[a1], v[b0], v[b1]);
  HadInv<false>(v[b1], v[b2], v[c1], v[c2]);
  HadInv<false>(v[b0], v[b3], v[c0], v[c3]);
  HadInv<false>(v[a1], v[a2], v[d1], v[d2]);
  HadInv<false>(v[a0], v[a3], v[d0], v[d3]);
}

// One block at p (rows `step` bytes apart); elements may sit at any address.
template <class T, bool kFwd>
void BlockRef(T* p, int32_t step) {
  T v[16];
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) v[4 * r + c] = LoadAt(RowPtr(p, step, r) + c);
  if constexpr (kFwd) BlockFwd(v);
  else BlockInv(v);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) StoreAt(RowPtr(p, step, r) + c, v[4 * r + c]);
}

// `blocks` blocks side by side from p (one row of blocks).
template <class T, bool kFwd>
void StripRef(T* p, int32_t step, int blocks) {
  for (int k = 0; k < blocks; ++k) BlockRef<T, kFwd>(p + 4 * k, step);
}

// `count` blocks one after another from p, 16 elements each, row by row.
template <class T, bool kFwd>
void RunRef(T* p, int count) {
  for (int k = 0; k < count; ++k) BlockRef<T, kFwd>(p + 16 * k, int32_t(4 * sizeof(T)));
}

// ------------------------------------------------------------ checks

// Region exports: the pointer, the width then the height below 1, the step
// below one row of elements, then a width or height not a multiple of 4.
template <class T>
RvtResult CheckRegion(const T* p, int32_t step, ImageSize roi) {
  RVT_CHECK(CheckPtr(p));
  RVT_CHECK(CheckRoi(roi));
  if (int64_t(step) < int64_t(sizeof(T)) * roi.width) return rvtStatusStep;
  if (roi.width % 4 != 0 || roi.height % 4 != 0) return rvtStatusSize;
  return rvtStatusOk;
}

// Macroblock exports: the pointer, then a step below one row of the block.
template <class T, int kWidth>
RvtResult CheckBlock(const T* p, int32_t step) {
  RVT_CHECK(CheckPtr(p));
  return step < int32_t(sizeof(T)) * kWidth ? rvtStatusStep : rvtStatusOk;
}

// Block-run exports: the pointer, then a count below 1.
template <class T>
RvtResult CheckRun(const T* p, int32_t count) {
  RVT_CHECK(CheckPtr(p));
  return count < 1 ? rvtStatusSize : rvtStatusOk;
}

// ------------------------------------------------------------ drivers

// Rows of blocks top to bottom, each handed to kStrip.
template <class T, void (*kStrip)(T*, int32_t, int)>
RvtResult Region(T* p, int32_t step, ImageSize roi) {
  RVT_CHECK(CheckRegion(p, step, roi));
  for (int y = 0; y < roi.height; y += 4) kStrip(RowPtr(p, step, y), step, roi.width / 4);
  return rvtStatusOk;
}

// A macroblock of kWidth x kHeight samples, handed whole to kBlocks.
template <class T, int kWidth, void (*kBlocks)(T*, int32_t)>
RvtResult Macroblock(T* p, int32_t step) {
  RVT_CHECK((CheckBlock<T, kWidth>(p, step)));
  kBlocks(p, step);
  return rvtStatusOk;
}

// A run of `count` blocks, handed whole to kRun.
template <class T, void (*kRun)(T*, int)>
RvtResult BlockRun(T* p, int32_t count) {
  RVT_CHECK(CheckRun(p, count));
  kRun(p, count);
  return rvtStatusOk;
}

// The reference macroblocks.
template <class T, int kWidth, int kHeight, bool kFwd>
void MacroblockRef(T* p, int32_t step) {
  for (int y = 0; y < kHeight; y += 4) StripRef<T, kFwd>(RowPtr(p, step, y), step, kWidth / 4);
}

// The reference entries of one element type, named after the exports:
// Fwd_16s_Ref, Inv16x16_32f_Ref, ...
#define RVT_PCT_REF_ENTRIES(T, tag)                                                  \
  inline RvtResult Fwd_##tag##_Ref(T* p, int32_t s, ImageSize r) {                   \
    return Region<T, StripRef<T, true>>(p, s, r);                                    \
  }                                                                                  \
  inline RvtResult Inv_##tag##_Ref(T* p, int32_t s, ImageSize r) {                   \
    return Region<T, StripRef<T, false>>(p, s, r);                                   \
  }                                                                                  \
  inline RvtResult Fwd16x16_##tag##_Ref(T* p, int32_t s) {                           \
    return Macroblock<T, 16, MacroblockRef<T, 16, 16, true>>(p, s);                  \
  }                                                                                  \
  inline RvtResult Inv16x16_##tag##_Ref(T* p, int32_t s) {                           \
    return Macroblock<T, 16, MacroblockRef<T, 16, 16, false>>(p, s);                 \
  }                                                                                  \
  inline RvtResult Fwd8x16_##tag##_Ref(T* p, int32_t s) {                            \
    return Macroblock<T, 8, MacroblockRef<T, 8, 16, true>>(p, s);                    \
  }                                                                                  \
  inline RvtResult Inv8x16_##tag##_Ref(T* p, int32_t s) {                            \
    return Macroblock<T, 8, MacroblockRef<T, 8, 16, false>>(p, s);                   \
  }                                                                                  \
  inline RvtResult Fwd8x8_##tag##_Ref(T* p, int32_t s) {                             \
    return Macroblock<T, 8, MacroblockRef<T, 8, 8, true>>(p, s);                     \
  }                                                                                  \
  inline RvtResult Inv8x8_##tag##_Ref(T* p, int32_t s) {                             \
    return Macroblock<T, 8, MacroblockRef<T, 8, 8, false>>(p, s);                    \
  }
// The reference block runs (32-bit integer samples).
inline RvtResult FwdBlocks_32s_Ref(int32_t* p, int32_t n) { return BlockRun<int32_t, RunRef<int32_t, true>>(p, n); }
inline RvtResult InvBlocks_32s_Ref(int32_t* p, int32_t n) { return BlockRun<int32_t, RunRef<int32_t, false>>(p, n); }

RVT_PCT_REF_ENTRIES(int16_t, 16s)
RVT_PCT_REF_ENTRIES(int32_t, 32s)
RVT_PCT_REF_ENTRIES(float, 32f)
#undef RVT_PCT_REF_ENTRIES

}  // namespace rvt::pct

#endif  // RVT_JPEGXR_PCT_H_
