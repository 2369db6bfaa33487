// The irreversible 9/7 wavelet: the float vector kernels of one target.  No
// checks here.  Every value is formed exactly as the reference forms it
// ((a + b) x c + v, separate multiplies and adds), so the results are the
// reference's bit for bit; each vector of outputs computes its dependency
// cone from loads at lane offsets.  Tails and rows of one pair take the
// reference.
#if defined(RVT_JPEG2K_WT97_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG2K_WT97_INL_H_
#undef RVT_JPEG2K_WT97_INL_H_
#else
#define RVT_JPEG2K_WT97_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg2k/wt97.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::wt97::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

struct FloatKernels {
  using T = float;
  using Ref = RefKernels<float>;
  using D = hn::ScalableTag<float>;
  using V = hn::Vec<D>;

  static HWY_INLINE V Lift(V a, V b, V v, float c) {
    return hn::Add(hn::Mul(hn::Add(a, b), hn::Set(D(), c)), v);
  }
  static HWY_INLINE V Scale(V v, float c) { return hn::Mul(v, hn::Set(D(), c)); }

  // Forward outputs of one vector from the even/odd samples E(o), O(o) of
  // the pairs at lane offsets o (phase 0: x[2(i+o)], x[2(i+o)+1]; phase 1:
  // x[2(i+o)-1], x[2(i+o)]).
  template <int kPhase, class Get>
  static HWY_INLINE void Forward(Get pair, V& low, V& high) {
    const FloatK k;
    (void)k;
    V E[5], O[5];
    for (int j = 0; j < 5; ++j) pair(j + (kPhase ? -1 : -2), E[j], O[j]);
    if constexpr (kPhase == 0) {  // E/O[j] at offset j - 2
      V d1[4], s1[3], d2[2];
      for (int j = 0; j < 4; ++j) d1[j] = Lift(E[j], E[j + 1], O[j], FloatK::kAlpha);       // D1(j-2)
      for (int j = 0; j < 3; ++j) s1[j] = Lift(d1[j], d1[j + 1], E[j + 1], FloatK::kBeta);  // S1(j-1)
      for (int j = 0; j < 2; ++j) d2[j] = Lift(s1[j], s1[j + 1], d1[j + 1], FloatK::kGamma);  // D2(j-1)
      low = Scale(Lift(d2[0], d2[1], s1[1], FloatK::kDelta), FloatK::kInvK);
      high = Scale(d2[1], FloatK::kK);
    } else {  // E/O[j] at offset j - 1
      V d1[4], s1[3], d2[2];
      for (int j = 0; j < 4; ++j) d1[j] = Lift(E[j], E[j + 1], O[j], FloatK::kAlpha);       // D1(j-1)
      for (int j = 0; j < 3; ++j) s1[j] = Lift(d1[j], d1[j + 1], E[j + 1], FloatK::kBeta);  // S1(j-1)
      for (int j = 0; j < 2; ++j) d2[j] = Lift(s1[j], s1[j + 1], d1[j + 1], FloatK::kGamma);  // D2(j)
      low = Scale(Lift(d2[0], d2[1], s1[1], FloatK::kDelta), FloatK::kInvK);
      high = Scale(d2[0], FloatK::kK);
    }
  }

  // Inverse outputs of one vector from low(o), high(o) at lane offsets:
  // returns Sc(0) and Dd(0).
  template <int kPhase, class Lo, class Hi>
  static HWY_INLINE void Inverse(Lo lo, Hi hi, V& sc_out, V& dd_out) {
    const V dk = hn::Set(D(), FloatK::kDeltaK), kk = hn::Set(D(), FloatK::kK);
    auto Sa = [&](int k) {
      return hn::Sub(hn::Mul(lo(k), kk), hn::Mul(hn::Add(hi(k - 1 + kPhase), hi(k + kPhase)), dk));
    };
    constexpr int p = kPhase;
    V sa[4];  // Sa(j + (p ? -2 : -1))
    for (int j = 0; j < 4; ++j) sa[j] = Sa(j + (p ? -2 : -1));
    auto SA = [&](int k) { return sa[k + (p ? 2 : 1)]; };
    V db[3];  // Db(-1), Db(0), Db(1)
    for (int m = -1; m <= 1; ++m)
      db[m + 1] = Lift(SA(m - p), SA(m + 1 - p), Scale(hi(m), FloatK::kInvK), -FloatK::kGamma);
    auto DB = [&](int m) { return db[m + 1]; };
    // Sc at 0 and 1 - 2p (phase 0: Sc(1); phase 1: Sc(-1)).
    const V sc0 = Lift(DB(-1 + p), DB(p), SA(0), -FloatK::kBeta);
    const int o = p ? -1 : 1;
    const V sco = Lift(DB(o - 1 + p), DB(o + p), SA(o), -FloatK::kBeta);
    sc_out = sc0;
    dd_out = p ? Lift(sco, sc0, DB(0), -FloatK::kAlpha) : Lift(sc0, sco, DB(0), -FloatK::kAlpha);
  }

  static void RowFwd(const float* x, float* low, float* high, int32_t n, int32_t p) {
    if (n == 1) return FwdSingle(x, low, high, p);
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N < n; i += N) {
      V l, h;
      if (p) {
        Forward<1>([&](int o, V& e, V& od) { hn::LoadInterleaved2(d, x + 2 * (i + o) - 1, e, od); }, l, h);
      } else {
        Forward<0>([&](int o, V& e, V& od) { hn::LoadInterleaved2(d, x + 2 * (i + o), e, od); }, l, h);
      }
      hn::StoreU(l, d, low + i);
      hn::StoreU(h, d, high + i);
    }
    FwdRowRef(x, low, high, n, p, i);
  }
  static void RowInv(const float* s, const float* dd, float* x, int32_t n, int32_t p) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      auto lo = [&](int k) { return hn::LoadU(d, s + i + k); };
      auto hi = [&](int k) { return hn::LoadU(d, dd + i + k); };
      V sc, dv;
      if (p) {
        Inverse<1>(lo, hi, sc, dv);
        hn::StoreInterleaved2(dv, sc, d, x + 2 * i);
      } else {
        Inverse<0>(lo, hi, sc, dv);
        hn::StoreInterleaved2(sc, dv, d, x + 2 * i);
      }
    }
    InvRowRef(s, dd, x, n, p, i);
  }
  // Columns: rows at row offsets instead of lanes.
  static void ColFwd(const float* x, int32_t xs, float* low, int32_t ls, float* high, int32_t hs,
                     int32_t w, int32_t h, int32_t p) {
    if (h == 1) return Ref::ColFwd(x, xs, low, ls, high, hs, w, h, p);
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t c = 0;
    for (; c + N <= w; c += N) {
      for (int32_t i = 0; i < h; ++i) {
        auto row = [&](int32_t r) { return hn::LoadU(d, At(x, ptrdiff_t(xs) * r) + c); };
        V l, hv;
        if (p) {
          Forward<1>([&](int o, V& e, V& od) { e = row(2 * (i + o) - 1), od = row(2 * (i + o)); }, l, hv);
        } else {
          Forward<0>([&](int o, V& e, V& od) { e = row(2 * (i + o)), od = row(2 * (i + o) + 1); }, l, hv);
        }
        hn::StoreU(l, d, At(low, ptrdiff_t(ls) * i) + c);
        hn::StoreU(hv, d, At(high, ptrdiff_t(hs) * i) + c);
      }
    }
    Ref::ColFwd(x, xs, low, ls, high, hs, w, h, p, c);
  }
  static void ColInv(const float* s, int32_t ss, const float* dd, int32_t ds, float* x, int32_t xs,
                     int32_t w, int32_t h, int32_t p) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t c = 0;
    for (; c + N <= w; c += N) {
      for (int32_t i = 0; i < h; ++i) {
        auto lo = [&](int k) { return hn::LoadU(d, At(s, ptrdiff_t(ss) * (i + k)) + c); };
        auto hi = [&](int k) { return hn::LoadU(d, At(dd, ptrdiff_t(ds) * (i + k)) + c); };
        V sc, dv;
        if (p) {
          Inverse<1>(lo, hi, sc, dv);
        } else {
          Inverse<0>(lo, hi, sc, dv);
        }
        hn::StoreU(sc, d, At(x, ptrdiff_t(xs) * (2 * i + p)) + c);
        hn::StoreU(dv, d, At(x, ptrdiff_t(xs) * (2 * i + 1 - p)) + c);
      }
    }
    Ref::ColInv(s, ss, dd, ds, x, xs, w, h, p, c);
  }
  static void LiftFwd(const float* p0, const float* p1, const float* p2, float* p3, float* p4,
                      float* p5, float* p6, float* p7, int32_t n) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V a0 = hn::LoadU(d, p0 + i), v3 = hn::LoadU(d, p3 + i), v5 = hn::LoadU(d, p5 + i),
              v6 = hn::LoadU(d, p6 + i);
      const V hh = Lift(a0, hn::LoadU(d, p2 + i), hn::LoadU(d, p1 + i), FloatK::kAlpha);
      const V l = Lift(v6, hh, a0, FloatK::kBeta);
      const V g = Lift(v3, l, v6, FloatK::kGamma);
      const V f = Lift(v5, g, v3, FloatK::kDelta);
      hn::StoreU(hh, d, p7 + i);
      hn::StoreU(l, d, p4 + i);
      hn::StoreU(g, d, p6 + i);
      hn::StoreU(Scale(f, FloatK::kInvK), d, p3 + i);
      hn::StoreU(Scale(v5, FloatK::kK), d, p5 + i);
    }
    FwdLiftRef(p0, p1, p2, p3, p4, p5, p6, p7, n, i);
  }
  static void LiftInv(float* p0, float* p1, const float* p2, float* p3, const float* p4, float* p5,
                      float* p6, const float* p7, int32_t n) {
    const D d;
    const int32_t N = int32_t(hn::Lanes(d));
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V h5 = Scale(hn::LoadU(d, p5 + i), FloatK::kInvK);
      const V l3 = Scale(hn::LoadU(d, p3 + i), FloatK::kK);
      const V v4 = hn::LoadU(d, p4 + i), v6 = hn::LoadU(d, p6 + i), v7 = hn::LoadU(d, p7 + i);
      const V f = Lift(h5, v6, l3, -FloatK::kDelta);
      const V g = Lift(f, v4, v6, -FloatK::kGamma);
      const V e0 = Lift(g, v7, v4, -FloatK::kBeta);
      const V o1 = Lift(e0, hn::LoadU(d, p2 + i), v7, -FloatK::kAlpha);
      hn::StoreU(h5, d, p5 + i);
      hn::StoreU(f, d, p3 + i);
      hn::StoreU(g, d, p6 + i);
      hn::StoreU(e0, d, p0 + i);
      hn::StoreU(o1, d, p1 + i);
    }
    InvLiftRef(p0, p1, p2, p3, p4, p5, p6, p7, n, i);
  }
};

}  // namespace rvt::wt97::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG2K_WT97_INL_H_
