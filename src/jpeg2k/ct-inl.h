// Component transforms: the vector rows of one target.  No checks here.
// Whole vectors of pixels, then the scalar reference for the tail.  Integer
// forms are exact by construction; the float ICT evaluates in the
// reference's order with separate multiplies and adds.
#if defined(RVT_JPEG2K_CT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG2K_CT_INL_H_
#undef RVT_JPEG2K_CT_INL_H_
#else
#define RVT_JPEG2K_CT_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg2k/ct.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::ct::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// floor((a + b) / 2) without leaving 16 bits.
template <class V>
HWY_INLINE V FloorAvg(V a, V b) {
  return hn::Add(hn::Add(hn::ShiftRight<1>(a), hn::ShiftRight<1>(b)),
                 hn::And(hn::And(a, b), hn::Set(hn::DFromV<V>(), 1)));
}

// RCT of 16-bit samples in 16-bit lanes: (r + 2g + b) >> 2 is
// floor((floor((r + b) / 2) + g) / 2), (u + v) >> 2 likewise; differences
// wrap exactly as the truncated 32-bit results do.
struct Rct16V {
  using Ref = Rct<int16_t>;
  template <class V>
  static HWY_INLINE void Fwd(V r, V g, V b, V& y, V& u, V& v) {
    y = FloorAvg(FloorAvg(r, b), g);
    u = hn::Sub(b, g);
    v = hn::Sub(r, g);
  }
  template <class V>
  static HWY_INLINE void Inv(V y, V u, V v, V& r, V& g, V& b) {
    g = hn::Sub(y, hn::ShiftRight<1>(FloorAvg(u, v)));
    r = hn::Add(v, g);
    b = hn::Add(u, g);
  }
};

struct Rct32V {
  using Ref = Rct<int32_t>;
  template <class V>
  static HWY_INLINE void Fwd(V r, V g, V b, V& y, V& u, V& v) {
    y = hn::ShiftRight<2>(hn::Add(hn::Add(r, b), hn::Add(g, g)));
    u = hn::Sub(b, g);
    v = hn::Sub(r, g);
  }
  template <class V>
  static HWY_INLINE void Inv(V y, V u, V v, V& r, V& g, V& b) {
    g = hn::Sub(y, hn::ShiftRight<2>(hn::Add(u, v)));
    r = hn::Add(v, g);
    b = hn::Add(u, g);
  }
};

struct IctFV {
  using Ref = IctF;
  template <class V>
  static HWY_INLINE V Dot(V r, V g, V b, float cr, float cg, float cb) {
    const hn::DFromV<V> d;
    return hn::Add(hn::Add(hn::Mul(hn::Set(d, cr), r), hn::Mul(hn::Set(d, cg), g)),
                   hn::Mul(hn::Set(d, cb), b));
  }
  template <class V>
  static HWY_INLINE void Fwd(V r, V g, V b, V& y, V& u, V& v) {
    y = Dot(r, g, b, IctF::kYr, IctF::kYg, IctF::kYb);
    u = Dot(r, g, b, IctF::kUr, IctF::kUg, IctF::kUb);
    v = Dot(r, g, b, IctF::kVr, IctF::kVg, IctF::kVb);
  }
  template <class V>
  static HWY_INLINE void Inv(V y, V u, V v, V& r, V& g, V& b) {
    const hn::DFromV<V> d;
    r = hn::Add(y, hn::Mul(hn::Set(d, IctF::kRv), v));
    g = hn::Sub(hn::Sub(y, hn::Mul(hn::Set(d, IctF::kGu), u)), hn::Mul(hn::Set(d, IctF::kGv), v));
    b = hn::Add(y, hn::Mul(hn::Set(d, IctF::kBu), u));
  }
};

// Q14 rows on 32-bit lanes (wrapping products, as the reference).
template <class V>
HWY_INLINE V Q14(V sum) {
  return hn::ShiftRight<14>(hn::Add(sum, hn::Set(hn::DFromV<V>(), 8192)));
}
template <class V>
HWY_INLINE V Dot3(V r, V g, V b, int32_t cr, int32_t cg, int32_t cb) {
  const hn::DFromV<V> d;
  return hn::Add(hn::Add(hn::Mul(r, hn::Set(d, cr)), hn::Mul(g, hn::Set(d, cg))),
                 hn::Mul(b, hn::Set(d, cb)));
}

struct Ict32V {
  using Ref = Ict32;
  template <class V>
  static HWY_INLINE void Fwd(V r, V g, V b, V& y, V& u, V& v) {
    y = Q14(Dot3(r, g, b, 4899, 9617, 1868));
    u = Q14(Dot3(r, g, b, -2765, -5427, 8192));
    v = Q14(Dot3(r, g, b, 8192, -6860, -1332));
  }
  template <class V>
  static HWY_INLINE void Inv(V y, V u, V v, V& r, V& g, V& b) {
    const hn::DFromV<V> d;
    r = hn::Add(y, Q14(hn::Mul(v, hn::Set(d, 22970))));
    g = hn::Add(y, Q14(hn::Add(hn::Mul(u, hn::Set(d, -5638)), hn::Mul(v, hn::Set(d, -11700)))));
    b = hn::Add(y, Q14(hn::Mul(u, hn::Set(d, 29032))));
  }
};

// 16-bit ICT: each half of the lanes widened to 32 bits, computed as the
// reference does, and narrowed with saturation.
struct Ict16V {
  using Ref = Ict16;
  template <class V32>
  static HWY_INLINE void Fwd32(V32 r, V32 g, V32 b, V32& y, V32& u, V32& v) {
    const hn::DFromV<V32> d;
    const V32 s = Dot3(r, g, b, 4899, 9617, 1868);
    y = Q14(s);
    const V32 db = Q14(hn::Sub(hn::ShiftLeft<14>(b), s));
    const V32 dr = Q14(hn::Sub(hn::ShiftLeft<14>(r), s));
    u = Q14(hn::Mul(db, hn::Set(d, 9246)));
    v = Q14(hn::Mul(dr, hn::Set(d, 11686)));
  }
  template <class V32>
  static HWY_INLINE void Inv32(V32 y, V32 u, V32 v, V32& r, V32& g, V32& b) {
    Ict32V::Inv(y, u, v, r, g, b);
  }
  template <bool kFwd, class V>
  static HWY_INLINE void Run(V a0, V a1, V a2, V& o0, V& o1, V& o2) {
    const hn::DFromV<V> d;
    const hn::Half<decltype(d)> dh;
    const hn::Repartition<int32_t, decltype(d)> d32;
    using V32 = hn::Vec<decltype(d32)>;
    V32 lo[3], hi[3];
    const V in[3] = {a0, a1, a2};
    for (int k = 0; k < 3; ++k) {
      lo[k] = hn::PromoteTo(d32, hn::LowerHalf(dh, in[k]));
      hi[k] = hn::PromoteTo(d32, hn::UpperHalf(dh, in[k]));
    }
    V32 ol[3], oh[3];
    if constexpr (kFwd) {
      Fwd32(lo[0], lo[1], lo[2], ol[0], ol[1], ol[2]);
      Fwd32(hi[0], hi[1], hi[2], oh[0], oh[1], oh[2]);
    } else {
      Inv32(lo[0], lo[1], lo[2], ol[0], ol[1], ol[2]);
      Inv32(hi[0], hi[1], hi[2], oh[0], oh[1], oh[2]);
    }
    o0 = hn::Combine(d, hn::DemoteTo(dh, oh[0]), hn::DemoteTo(dh, ol[0]));
    o1 = hn::Combine(d, hn::DemoteTo(dh, oh[1]), hn::DemoteTo(dh, ol[1]));
    o2 = hn::Combine(d, hn::DemoteTo(dh, oh[2]), hn::DemoteTo(dh, ol[2]));
  }
  template <class V>
  static HWY_INLINE void Fwd(V r, V g, V b, V& y, V& u, V& v) {
    Run<true>(r, g, b, y, u, v);
  }
  template <class V>
  static HWY_INLINE void Inv(V y, V u, V v, V& r, V& g, V& b) {
    Run<false>(y, u, v, r, g, b);
  }
};

// ---------------------------------------------------------------- rows
template <class OpV, class T>
void FwdC3P3Row(const T* s, T* y, T* u, T* v, int32_t n) {
  const hn::ScalableTag<T> d;
  const int32_t N = int32_t(hn::Lanes(d));
  int32_t x = 0;
  for (; x + N <= n; x += N) {
    hn::Vec<decltype(d)> r, g, b, a0, a1, a2;
    hn::LoadInterleaved3(d, s + 3 * x, r, g, b);
    OpV::Fwd(r, g, b, a0, a1, a2);
    hn::StoreU(a0, d, y + x), hn::StoreU(a1, d, u + x), hn::StoreU(a2, d, v + x);
  }
  FwdC3P3Ref<typename OpV::Ref>(s, y, u, v, x, n);
}
template <class OpV, class T>
void FwdP3Row(T* p0, T* p1, T* p2, int32_t n) {
  const hn::ScalableTag<T> d;
  const int32_t N = int32_t(hn::Lanes(d));
  int32_t x = 0;
  for (; x + N <= n; x += N) {
    hn::Vec<decltype(d)> a0, a1, a2;
    OpV::Fwd(hn::LoadU(d, p0 + x), hn::LoadU(d, p1 + x), hn::LoadU(d, p2 + x), a0, a1, a2);
    hn::StoreU(a0, d, p0 + x), hn::StoreU(a1, d, p1 + x), hn::StoreU(a2, d, p2 + x);
  }
  FwdP3Ref<typename OpV::Ref>(p0, p1, p2, x, n);
}
template <class OpV, class T>
void InvP3C3Row(const T* y, const T* u, const T* v, T* dst, int32_t n) {
  const hn::ScalableTag<T> d;
  const int32_t N = int32_t(hn::Lanes(d));
  int32_t x = 0;
  for (; x + N <= n; x += N) {
    hn::Vec<decltype(d)> r, g, b;
    OpV::Inv(hn::LoadU(d, y + x), hn::LoadU(d, u + x), hn::LoadU(d, v + x), r, g, b);
    hn::StoreInterleaved3(r, g, b, d, dst + 3 * x);
  }
  InvP3C3Ref<typename OpV::Ref>(y, u, v, dst, x, n);
}
template <class OpV, class T>
void InvP3Row(T* p0, T* p1, T* p2, int32_t n) {
  const hn::ScalableTag<T> d;
  const int32_t N = int32_t(hn::Lanes(d));
  int32_t x = 0;
  for (; x + N <= n; x += N) {
    hn::Vec<decltype(d)> a0, a1, a2;
    OpV::Inv(hn::LoadU(d, p0 + x), hn::LoadU(d, p1 + x), hn::LoadU(d, p2 + x), a0, a1, a2);
    hn::StoreU(a0, d, p0 + x), hn::StoreU(a1, d, p1 + x), hn::StoreU(a2, d, p2 + x);
  }
  InvP3Ref<typename OpV::Ref>(p0, p1, p2, x, n);
}

}  // namespace rvt::ct::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG2K_CT_INL_H_
