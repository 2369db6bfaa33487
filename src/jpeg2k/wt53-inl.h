// The reversible 5/3 wavelet: the vector kernels of one target.  No checks
// here.  16-bit lanes stay exact without widening: (a + b) >> 1 is
// (a >> 1) + (b >> 1) + (a & b & 1), and (a + b + 2) >> 2 is q - (q >> 1)
// with q = (a + b) >> 1.  Whole vectors first, then the reference kernel
// for the remaining elements.
#if defined(RVT_JPEG2K_WT53_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG2K_WT53_INL_H_
#undef RVT_JPEG2K_WT53_INL_H_
#else
#define RVT_JPEG2K_WT53_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg2k/wt53.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::wt53::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class V>
HWY_INLINE V AvgV(V a, V b) {
  using T = hn::TFromV<V>;
  if constexpr (sizeof(T) == 2) {
    return hn::Add(hn::Add(hn::ShiftRight<1>(a), hn::ShiftRight<1>(b)),
                   hn::And(hn::And(a, b), hn::Set(hn::DFromV<V>(), T(1))));
  } else {
    return hn::ShiftRight<1>(hn::Add(a, b));
  }
}
template <class V>
HWY_INLINE V QuarterV(V a, V b) {
  using T = hn::TFromV<V>;
  if constexpr (sizeof(T) == 2) {
    const V q = AvgV(a, b);
    return hn::Sub(q, hn::ShiftRight<1>(q));
  } else {
    return hn::ShiftRight<2>(hn::Add(hn::Add(a, b), hn::Set(hn::DFromV<V>(), T(2))));
  }
}

template <class T>
struct Kernels {
  using Ref = RefKernels<T>;
  using D = hn::ScalableTag<T>;
  using V = hn::Vec<D>;

  static void RowFwd(const T* x, T* low, T* high, int32_t n, int32_t phase) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N < n; i += N) {  // the last load reaches x[2(i + N) + phase]
      const T* b = x + 2 * i - 2 + phase;
      V x0, x1, x2, x3, x4, x5;
      hn::LoadInterleaved2(d, b, x0, x1);
      hn::LoadInterleaved2(d, b + 2, x2, x3);
      hn::LoadInterleaved2(d, b + 4, x4, x5);
      const V d0 = hn::Sub(x1, AvgV(x0, x2));
      const V d1 = hn::Sub(x3, AvgV(x2, x4));
      hn::StoreU(hn::Add(x2, QuarterV(d0, d1)), d, low + i);
      hn::StoreU(phase ? d0 : d1, d, high + i);
    }
    Ref::RowFwd(x, low, high, n, phase, i);
  }
  static void RowInv(const T* s, const T* dd, T* x, int32_t n, int32_t phase) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V dB = hn::LoadU(d, dd + i);
      const V e0 = hn::Sub(hn::LoadU(d, s + i - phase), QuarterV(hn::LoadU(d, dd + i - 1), dB));
      const V e1 = hn::Sub(hn::LoadU(d, s + i + 1 - phase), QuarterV(dB, hn::LoadU(d, dd + i + 1)));
      const V m = hn::Add(dB, AvgV(e0, e1));
      if (phase) {
        hn::StoreInterleaved2(m, e1, d, x + 2 * i);
      } else {
        hn::StoreInterleaved2(e0, m, d, x + 2 * i);
      }
    }
    Ref::RowInv(s, dd, x, n, phase, i);
  }
  static void ColFwdPlane(const T* x, int32_t xs, T* low, int32_t ls, T* high, int32_t hs, int32_t w,
                          int32_t h, int32_t p) {
    ColFwdRows<T, Kernels>(x, xs, low, ls, high, hs, w, h, p);
  }
  static void ColInvPlane(const T* s, int32_t ss, const T* dd, int32_t ds, T* x, int32_t xs,
                          int32_t w, int32_t h, int32_t p) {
    ColInvRows<T, Kernels>(s, ss, dd, ds, x, xs, w, h, p);
  }
  static void ColFwd(const T* x0, const T* x1, const T* x2, const T* x3, const T* x4, T* low,
                     T* high, int32_t n, int32_t phase) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V c = hn::LoadU(d, x2 + i);
      const V d0 = hn::Sub(hn::LoadU(d, x1 + i), AvgV(hn::LoadU(d, x0 + i), c));
      const V d1 = hn::Sub(hn::LoadU(d, x3 + i), AvgV(c, hn::LoadU(d, x4 + i)));
      hn::StoreU(hn::Add(c, QuarterV(d0, d1)), d, low + i);
      hn::StoreU(phase ? d0 : d1, d, high + i);
    }
    Ref::ColFwd(x0, x1, x2, x3, x4, low, high, n, phase, i);
  }
  static void ColInv(const T* sA, const T* dA, const T* dB, const T* sB, const T* dC, T* even,
                     T* odd, int32_t n, int32_t phase) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V b = hn::LoadU(d, dB + i);
      const V e0 = hn::Sub(hn::LoadU(d, sA + i), QuarterV(hn::LoadU(d, dA + i), b));
      const V e1 = hn::Sub(hn::LoadU(d, sB + i), QuarterV(b, hn::LoadU(d, dC + i)));
      const V m = hn::Add(b, AvgV(e0, e1));
      hn::StoreU(phase ? m : e0, d, even + i);
      hn::StoreU(phase ? e1 : m, d, odd + i);
    }
    Ref::ColInv(sA, dA, dB, sB, dC, even, odd, n, phase, i);
  }
  static void LiftFwd(const T* s0, const T* s1, const T* s2, T* low, const T* hp, T* high,
                      int32_t n) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V a = hn::LoadU(d, s0 + i);
      const V h = hn::Sub(hn::LoadU(d, s1 + i), AvgV(a, hn::LoadU(d, s2 + i)));
      const V l = hn::Add(a, QuarterV(hn::LoadU(d, hp + i), h));
      hn::StoreU(h, d, high + i);
      hn::StoreU(l, d, low + i);
    }
    Ref::LiftFwd(s0, s1, s2, low, hp, high, n, i);
  }
  static void LiftInv(const T* low, const T* hp, const T* h, const T* ep, T* odd, T* even,
                      int32_t n) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V hpv = hn::LoadU(d, hp + i);
      const V e = hn::Sub(hn::LoadU(d, low + i), QuarterV(hpv, hn::LoadU(d, h + i)));
      const V o = hn::Add(hpv, AvgV(hn::LoadU(d, ep + i), e));
      hn::StoreU(e, d, even + i);
      hn::StoreU(o, d, odd + i);
    }
    Ref::LiftInv(low, hp, h, ep, odd, even, n, i);
  }

  // In-place row steps.
  template <int kOp>
  static HWY_INLINE void Rows(T* dst, const T* a, const T* b, int32_t n) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V va = hn::LoadU(d, a + i), vb = hn::LoadU(d, b + i), v = hn::LoadU(d, dst + i);
      V r;
      if constexpr (kOp == 0) r = hn::Sub(v, AvgV(va, vb));
      if constexpr (kOp == 1) r = hn::Add(v, QuarterV(va, vb));
      if constexpr (kOp == 2) r = hn::Sub(v, QuarterV(va, vb));
      if constexpr (kOp == 3) r = hn::Add(v, AvgV(va, vb));
      hn::StoreU(r, d, dst + i);
    }
    if constexpr (kOp == 0) Ref::HighRows(dst, a, b, n, i);
    if constexpr (kOp == 1) Ref::LowRows(dst, a, b, n, i);
    if constexpr (kOp == 2) Ref::InvLowRows(dst, a, b, n, i);
    if constexpr (kOp == 3) Ref::InvHighRows(dst, a, b, n, i);
  }
  static void HighRows(T* dst, const T* a, const T* b, int32_t n) { Rows<0>(dst, a, b, n); }
  static void LowRows(T* dst, const T* a, const T* b, int32_t n) { Rows<1>(dst, a, b, n); }
  static void InvLowRows(T* dst, const T* a, const T* b, int32_t n) { Rows<2>(dst, a, b, n); }
  static void InvHighRows(T* dst, const T* a, const T* b, int32_t n) { Rows<3>(dst, a, b, n); }
};

}  // namespace rvt::wt53::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG2K_WT53_INL_H_
