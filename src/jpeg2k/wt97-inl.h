// The irreversible 9/7 wavelet: the vector kernels of one target.  No
// checks here.  Every value is formed exactly as the reference forms it, so
// the results are the reference's bit for bit:
// - float: (a + b) x c + v with separate multiplies and adds;
// - fixed point: 32-bit lanes (16s promoted), the Q16 products split so
//   that no lane overflows: with x = xh 65536 + xl and c = ch 65536 + cl
//   (xl, cl in [0, 65536)), floor((x c + 32768) / 65536) = xh c + xl ch +
//   ((xl cl + 32768) >> 16), the last an unsigned 32-bit product; 32s sums
//   of two samples are split exactly (33 bits), 32s results wrap as the
//   reference's stores do, 16s results saturate after every step.
// Passes compute each vector of outputs from its dependency cone (loads at
// lane offsets); whole levels lift rows in place (vertical) and
// de-interleaved lines in the work buffer (horizontal).  Tails take the
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

// ---------------------------------------------------------------- float
struct FloatOps {
  using T = float;
  using D = hn::ScalableTag<float>;
  using V = hn::Vec<D>;
  static HWY_INLINE V Load(const float* p) { return hn::LoadU(D(), p); }
  static HWY_INLINE void Store(V v, float* p) { hn::StoreU(v, D(), p); }
  static HWY_INLINE void LoadPair(const float* p, V& e, V& o) { hn::LoadInterleaved2(D(), p, e, o); }
  static HWY_INLINE void StorePair(V e, V o, float* p) { hn::StoreInterleaved2(e, o, D(), p); }
  static HWY_INLINE V Lift(V a, V b, V v, float c) {
    return hn::Add(hn::Mul(hn::Add(a, b), hn::Set(D(), c)), v);
  }
  static HWY_INLINE V Scale(V v, float c) { return hn::Mul(v, hn::Set(D(), c)); }
  // A row's low-pass output from D2 either side and S1.
  static HWY_INLINE V Low(V da, V db, V s) {
    return Scale(Lift(da, db, s, FloatK::kDelta), FloatK::kInvK);
  }
  // The inverse's first step: K low - (delta/K)(high a + high b).
  static HWY_INLINE V Sa(V lo, V ha, V hb) {
    return hn::Sub(hn::Mul(lo, hn::Set(D(), FloatK::kK)),
                   hn::Mul(hn::Add(ha, hb), hn::Set(D(), FloatK::kDeltaK)));
  }
};

// ---------------------------------------------------------------- fixed
template <class TT>
struct FixedOps {
  using T = TT;
  using D = hn::ScalableTag<int32_t>;
  using V = hn::Vec<D>;
  static constexpr bool kSat = sizeof(T) == 2;

  static HWY_INLINE V Load(const T* p) {
    if constexpr (kSat) {
      return hn::PromoteTo(D(), hn::LoadU(hn::Rebind<int16_t, D>(), p));
    } else {
      return hn::LoadU(D(), p);
    }
  }
  static HWY_INLINE void Store(V v, T* p) {
    if constexpr (kSat) {
      hn::StoreU(hn::DemoteTo(hn::Rebind<int16_t, D>(), v), hn::Rebind<int16_t, D>(), p);
    } else {
      hn::StoreU(v, D(), p);
    }
  }
  // Pairs p[2k], p[2k + 1] of N lanes.
  static HWY_INLINE void LoadPair(const T* p, V& e, V& o) {
    if constexpr (kSat) {
      const V w = hn::BitCast(D(), hn::LoadU(hn::Repartition<int16_t, D>(), p));
      e = hn::ShiftRight<16>(hn::ShiftLeft<16>(w));
      o = hn::ShiftRight<16>(w);
    } else {
      hn::LoadInterleaved2(D(), p, e, o);
    }
  }
  static HWY_INLINE void StorePair(V e, V o, T* p) {
    if constexpr (kSat) {
      const V w = hn::Or(hn::And(e, hn::Set(D(), 0xFFFF)), hn::ShiftLeft<16>(o));
      hn::StoreU(hn::BitCast(hn::Repartition<int16_t, D>(), w), hn::Repartition<int16_t, D>(), p);
    } else {
      hn::StoreInterleaved2(e, o, D(), p);
    }
  }

  // x = h 65536 + l, l in [0, 65536).
  struct Sp {
    V h, l;
  };
  static HWY_INLINE Sp Split(V x) { return {hn::ShiftRight<16>(x), hn::And(x, hn::Set(D(), 0xFFFF))}; }
  static HWY_INLINE Sp SplitSum(V a, V b) {
    if constexpr (kSat) {
      return Split(hn::Add(a, b));  // exact in 32 bits
    } else {
      const V m = hn::Set(D(), 0xFFFF);
      const V t = hn::Add(hn::And(a, m), hn::And(b, m));
      return {hn::Add(hn::Add(hn::ShiftRight<16>(a), hn::ShiftRight<16>(b)), hn::ShiftRight<16>(t)),
              hn::And(t, m)};
    }
  }
  static HWY_INLINE V ShrU16(V v) {
    const hn::RebindToUnsigned<D> du;
    return hn::BitCast(D(), hn::ShiftRight<16>(hn::BitCast(du, v)));
  }
  static HWY_INLINE V Whole(Sp x, int32_t c) {  // xh c + xl ch
    return hn::Add(hn::Mul(x.h, hn::Set(D(), c)), hn::Mul(x.l, hn::Set(D(), c >> 16)));
  }
  static HWY_INLINE V Part(Sp x, int32_t c) { return hn::Mul(x.l, hn::Set(D(), c & 0xFFFF)); }
  // floor((x c + 32768) / 65536), and of x c + y e.
  static HWY_INLINE V Round(Sp x, int32_t c) {
    return hn::Add(Whole(x, c), ShrU16(hn::Add(Part(x, c), hn::Set(D(), 32768))));
  }
  static HWY_INLINE V Round(Sp x, int32_t c, Sp y, int32_t e) {
    const V m = hn::Set(D(), 0xFFFF);
    const V p = Part(x, c), q = Part(y, e);
    const V carry = ShrU16(hn::Add(hn::Add(hn::And(p, m), hn::And(q, m)), hn::Set(D(), 32768)));
    return hn::Add(hn::Add(Whole(x, c), Whole(y, e)), hn::Add(hn::Add(ShrU16(p), ShrU16(q)), carry));
  }
  static HWY_INLINE V Sat(V v) {
    if constexpr (kSat) {
      return hn::Min(hn::Max(v, hn::Set(D(), -32768)), hn::Set(D(), 32767));
    } else {
      return v;
    }
  }
  static HWY_INLINE V Lift(V a, V b, V v, int32_t c) { return Sat(hn::Add(v, Round(SplitSum(a, b), c))); }
  static HWY_INLINE V Scale(V v, int32_t c) { return Sat(Round(Split(v), c)); }
  // Every low-pass output of a row but its last: delta and 1/K fused.
  static HWY_INLINE V Low(V da, V db, V s) { return Sat(Round(SplitSum(da, db), kQDeltaK, Split(s), kQInvK)); }
  static HWY_INLINE V LastLow(V da, V db, V s) { return Scale(Lift(da, db, s, kQDelta), kQInvK); }
  static HWY_INLINE V Sa(V lo, V ha, V hb) { return Sat(Round(Split(lo), kQK, SplitSum(ha, hb), -kQDeltaK)); }
};

// ---------------------------------------------------------------- passes
// The vector columns of an inverse column pass, for either lifting form:
// `inv` turns the lows and highs about row i into the pair of output rows.
// Returns the first column left to the scalar tail.
template <class Ops, class T, class Inv>
HWY_INLINE int32_t ColInvVectors(const T* s, int32_t ss, const T* dd, int32_t ds, T* x, int32_t xs,
                                 int32_t w, int32_t h, int32_t p, Inv inv) {
  const int32_t N = int32_t(hn::Lanes(typename Ops::D()));
  int32_t c = 0;
  for (; c + N <= w; c += N) {
    for (int32_t i = 0; i < h; ++i) {
      auto lo = [&](int k) { return Ops::Load(At(s, ptrdiff_t(ss) * (i + k)) + c); };
      auto hi = [&](int k) { return Ops::Load(At(dd, ptrdiff_t(ds) * (i + k)) + c); };
      typename Ops::V sc, dv;
      inv(lo, hi, sc, dv);
      Ops::Store(sc, At(x, ptrdiff_t(xs) * (2 * i + p)) + c);
      Ops::Store(dv, At(x, ptrdiff_t(xs) * (2 * i + 1 - p)) + c);
    }
  }
  return c;
}

template <class Ops>
struct Kernels {
  using T = typename Ops::T;
  using V = typename Ops::V;
  using D = typename Ops::D;
  using C = Constants<T>;
  using Ref = RefKernels<T>;

  static HWY_INLINE int32_t Lanes() { return int32_t(hn::Lanes(D())); }

  // Forward outputs of one vector from the even/odd samples E(o), O(o) of
  // the pairs at lane offsets o (phase 0: x[2(i+o)], x[2(i+o)+1]; phase 1:
  // x[2(i+o)-1], x[2(i+o)]): pairs at offsets j0 .. j0 + 3 and the even
  // sample at j0 + 4, the last one the lifting reads.
  template <int kPhase, class Pair, class Even>
  static HWY_INLINE void Forward(Pair pair, Even even, V& low, V& high) {
    constexpr int j0 = kPhase ? -1 : -2;
    V E[5], O[4];
    for (int j = 0; j < 4; ++j) pair(j + j0, E[j], O[j]);
    E[4] = even(4 + j0);
    V d1[4], s1[3], d2[2];
    for (int j = 0; j < 4; ++j) d1[j] = Ops::Lift(E[j], E[j + 1], O[j], C::Alpha());
    for (int j = 0; j < 3; ++j) s1[j] = Ops::Lift(d1[j], d1[j + 1], E[j + 1], C::Beta());
    for (int j = 0; j < 2; ++j) d2[j] = Ops::Lift(s1[j], s1[j + 1], d1[j + 1], C::Gamma());
    low = Ops::Low(d2[0], d2[1], s1[1]);
    high = Ops::Scale(kPhase ? d2[0] : d2[1], C::K());
  }

  // Inverse outputs of one vector from low(o), high(o) at lane offsets:
  // Sc(0) and Dd(0).
  template <int kPhase, class Lo, class Hi>
  static HWY_INLINE void Inverse(Lo lo, Hi hi, V& sc_out, V& dd_out) {
    constexpr int p = kPhase;
    V sa[4];  // Sa(j + (p ? -2 : -1))
    for (int j = 0; j < 4; ++j) {
      const int k = j + (p ? -2 : -1);
      sa[j] = Ops::Sa(lo(k), hi(k - 1 + p), hi(k + p));
    }
    auto SA = [&](int k) { return sa[k + (p ? 2 : 1)]; };
    V db[3];  // Db(-1), Db(0), Db(1)
    for (int m = -1; m <= 1; ++m)
      db[m + 1] = Ops::Lift(SA(m - p), SA(m + 1 - p), Ops::Scale(hi(m), C::InvK()), -C::Gamma());
    auto DB = [&](int m) { return db[m + 1]; };
    const V sc0 = Ops::Lift(DB(-1 + p), DB(p), SA(0), -C::Beta());
    const int o = p ? -1 : 1;
    const V sco = Ops::Lift(DB(o - 1 + p), DB(o + p), SA(o), -C::Beta());
    sc_out = sc0;
    dd_out = p ? Ops::Lift(sco, sc0, DB(0), -C::Alpha()) : Ops::Lift(sc0, sco, DB(0), -C::Alpha());
  }

  // Rows: the vectors never hold a row's last output (the tail has it).
  static void RowFwd(const T* x, T* low, T* high, int32_t n, int32_t p) {
    if (n == 1) return FwdSingle(x, low, high, p);
    const int32_t N = Lanes();
    int32_t i = 0;
    for (; i + N < n; i += N) {
      V l, h;
      if (p) {
        Forward<1>([&](int o, V& e, V& od) { Ops::LoadPair(x + 2 * (i + o) - 1, e, od); },
                   [&](int o) {
                     V e, od;
                     Ops::LoadPair(x + 2 * (i + o) - 1, e, od);
                     return e;
                   },
                   l, h);
      } else {
        Forward<0>([&](int o, V& e, V& od) { Ops::LoadPair(x + 2 * (i + o), e, od); },
                   [&](int o) {
                     V e, od;
                     Ops::LoadPair(x + 2 * (i + o), e, od);
                     return e;
                   },
                   l, h);
      }
      Ops::Store(l, low + i);
      Ops::Store(h, high + i);
    }
    FwdRowRef(x, low, high, n, p, i);
  }
  static void RowInv(const T* s, const T* dd, T* x, int32_t n, int32_t p) {
    const int32_t N = Lanes();
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      auto lo = [&](int k) { return Ops::Load(s + i + k); };
      auto hi = [&](int k) { return Ops::Load(dd + i + k); };
      V sc, dv;
      if (p) {
        Inverse<1>(lo, hi, sc, dv);
        Ops::StorePair(dv, sc, x + 2 * i);
      } else {
        Inverse<0>(lo, hi, sc, dv);
        Ops::StorePair(sc, dv, x + 2 * i);
      }
    }
    InvRowRef(s, dd, x, n, p, i);
  }
  // Columns: rows at row offsets instead of lanes; only the rows the
  // reference reads are loaded.
  static void ColFwdPlane(const T* x, int32_t xs, T* low, int32_t ls, T* high, int32_t hs, int32_t w,
                     int32_t h, int32_t p) {
    if (h == 1) return Ref::ColFwdPlane(x, xs, low, ls, high, hs, w, h, p);
    const int32_t N = Lanes();
    int32_t c = 0;
    for (; c + N <= w; c += N) {
      auto row = [&](int32_t r) { return Ops::Load(At(x, ptrdiff_t(xs) * r) + c); };
      for (int32_t i = 0; i < h; ++i) {
        V l, hv;
        if (p) {
          Forward<1>([&](int o, V& e, V& od) { e = row(2 * (i + o) - 1), od = row(2 * (i + o)); },
                     [&](int o) { return row(2 * (i + o) - 1); }, l, hv);
        } else {
          Forward<0>([&](int o, V& e, V& od) { e = row(2 * (i + o)), od = row(2 * (i + o) + 1); },
                     [&](int o) { return row(2 * (i + o)); }, l, hv);
        }
        Ops::Store(l, At(low, ptrdiff_t(ls) * i) + c);
        Ops::Store(hv, At(high, ptrdiff_t(hs) * i) + c);
      }
    }
    Ref::ColFwdPlane(x, xs, low, ls, high, hs, w, h, p, c);
  }
  static void ColInvPlane(const T* s, int32_t ss, const T* dd, int32_t ds, T* x, int32_t xs, int32_t w,
                     int32_t h, int32_t p) {
    const int32_t c = ColInvVectors<Ops>(s, ss, dd, ds, x, xs, w, h, p, [&](auto lo, auto hi, V& sc, V& dv) {
      if (p) {
        Inverse<1>(lo, hi, sc, dv);
      } else {
        Inverse<0>(lo, hi, sc, dv);
      }
    });
    Ref::ColInvPlane(s, ss, dd, ds, x, xs, w, h, p, c);
  }
  static void LiftFwd(const T* p0, const T* p1, const T* p2, T* p3, T* p4, T* p5, T* p6, T* p7,
                      int32_t n) {
    const int32_t N = Lanes();
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V a0 = Ops::Load(p0 + i), v3 = Ops::Load(p3 + i), v5 = Ops::Load(p5 + i),
              v6 = Ops::Load(p6 + i);
      const V hh = Ops::Lift(a0, Ops::Load(p2 + i), Ops::Load(p1 + i), C::Alpha());
      const V l = Ops::Lift(v6, hh, a0, C::Beta());
      const V g = Ops::Lift(v3, l, v6, C::Gamma());
      const V f = Ops::Lift(v5, g, v3, C::Delta());
      Ops::Store(hh, p7 + i);
      Ops::Store(l, p4 + i);
      Ops::Store(g, p6 + i);
      Ops::Store(Ops::Scale(f, C::InvK()), p3 + i);
      Ops::Store(Ops::Scale(v5, C::K()), p5 + i);
    }
    FwdLiftRef(p0, p1, p2, p3, p4, p5, p6, p7, n, i);
  }
  static void LiftInv(T* p0, T* p1, const T* p2, T* p3, const T* p4, T* p5, T* p6, const T* p7,
                      int32_t n) {
    const int32_t N = Lanes();
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      const V h5 = Ops::Scale(Ops::Load(p5 + i), C::InvK());
      const V l3 = Ops::Scale(Ops::Load(p3 + i), C::K());
      const V v4 = Ops::Load(p4 + i), v6 = Ops::Load(p6 + i), v7 = Ops::Load(p7 + i);
      const V f = Ops::Lift(h5, v6, l3, -C::Delta());
      const V g = Ops::Lift(f, v4, v6, -C::Gamma());
      const V e0 = Ops::Lift(g, v7, v4, -C::Beta());
      const V o1 = Ops::Lift(e0, Ops::Load(p2 + i), v7, -C::Alpha());
      Ops::Store(h5, p5 + i);
      Ops::Store(f, p3 + i);
      Ops::Store(g, p6 + i);
      Ops::Store(e0, p0 + i);
      Ops::Store(o1, p1 + i);
    }
    InvLiftRef(p0, p1, p2, p3, p4, p5, p6, p7, n, i);
  }

  // ---------------------------------------------------------------- level steps
  // Element-wise steps on whole rows (vertical lifting in place): dst =
  // f(dst, a, b) with Step's vector and scalar forms.
  template <class Fv, class Fs>
  static HWY_INLINE void Rows(T* dst, const T* a, const T* b, int32_t n, Fv fv, Fs fs) {
    const int32_t N = Lanes();
    int32_t i = 0;
    for (; i + N <= n; i += N)
      Ops::Store(fv(Ops::Load(dst + i), Ops::Load(a + i), Ops::Load(b + i)), dst + i);
    for (; i < n; ++i) StoreAt(dst + i, fs(LoadAt(dst + i), LoadAt(a + i), LoadAt(b + i)));
  }
  using A = Arith<T>;
  // Forward: lift by c, the fused low-pass output, the twice-rounded last
  // one, the high-pass scale.
  static void LiftRows(T* dst, const T* a, const T* b, int32_t n, int32_t c) {
    Rows(dst, a, b, n, [c](V v, V x, V y) { return Ops::Lift(x, y, v, c); },
         [c](T v, T x, T y) { return A::Lift(x, y, v, c); });
  }
  static void LowRows(T* dst, const T* a, const T* b, int32_t n) {
    Rows(dst, a, b, n, [](V v, V x, V y) { return Ops::Low(x, y, v); },
         [](T v, T x, T y) { return Store<T>(RoundQ16((int64_t(x) + y) * kQDeltaK + int64_t(v) * kQInvK)); });
  }
  static void LastLowRows(T* dst, const T* a, const T* b, int32_t n) {
    Rows(dst, a, b, n, [](V v, V x, V y) { return Ops::LastLow(x, y, v); },
         [](T v, T x, T y) { return A::Scale(A::Lift(x, y, v, kQDelta), kQInvK); });
  }
  static void ScaleRows(T* dst, int32_t n, int32_t c) {
    Rows(dst, dst, dst, n, [c](V v, V, V) { return Ops::Scale(v, c); },
         [c](T v, T, T) { return A::Scale(v, c); });
  }
  // Inverse: the fused first step, and a lift of the scaled value.
  static void SaRows(T* dst, const T* a, const T* b, int32_t n) {
    Rows(dst, a, b, n, [](V v, V x, V y) { return Ops::Sa(v, x, y); },
         [](T v, T x, T y) { return Store<T>(RoundQ16(int64_t(v) * kQK - (int64_t(x) + y) * kQDeltaK)); });
  }
  static void ScaleLiftRows(T* dst, const T* a, const T* b, int32_t n, int32_t c, int32_t s) {
    Rows(dst, a, b, n, [c, s](V v, V x, V y) { return Ops::Lift(x, y, Ops::Scale(v, s), c); },
         [c, s](T v, T x, T y) { return A::Lift(x, y, A::Scale(v, s), c); });
  }

  // Lines (horizontal): the low and high positions of the extended line
  // de-interleaved in the work buffer, lo[k] at position 2k + p, hi[m] at
  // 2m + 1 - p, for positions -4 .. L + 3 (L + 8 samples in all).
  struct Split {
    T* lo;  // lo[-2] is the buffer's first sample
    T* hi;
    int32_t nl, nh;
  };
  static HWY_INLINE Split Layout(T* buf, int32_t L, int32_t p) {
    const int32_t cl = (L + 3 - p) / 2 + 3;
    return {buf + 2, buf + cl + 2, p ? L / 2 : (L + 1) / 2, L - (p ? L / 2 : (L + 1) / 2)};
  }
  // Element-wise on index ranges [k0, k1] of the de-interleaved arrays:
  // dst[k] = f(dst[k], src[k + da], src[k + db]).
  template <class Fv, class Fs>
  static HWY_INLINE void Span(T* dst, const T* src, int32_t da, int32_t db, int32_t k0, int32_t k1,
                              Fv fv, Fs fs) {
    const int32_t N = Lanes();
    int32_t k = k0;
    for (; k + N <= k1 + 1; k += N)
      Ops::Store(fv(Ops::Load(dst + k), Ops::Load(src + k + da), Ops::Load(src + k + db)), dst + k);
    for (; k <= k1; ++k) StoreAt(dst + k, fs(LoadAt(dst + k), LoadAt(src + k + da), LoadAt(src + k + db)));
  }
  static HWY_INLINE int32_t FloorDiv2(int32_t v) { return v >> 1; }
  static HWY_INLINE int32_t CeilDiv2(int32_t v) { return -((-v) >> 1); }

  static void LineFwd(T* row, int32_t L, int32_t p, T* buf) {
    const Split s = Layout(buf, L, p);
    // Fill: the line's samples, then the mirrored ones outside it.
    const int32_t N = Lanes();
    const int32_t pairs = L / 2;
    {
      // x[2j], x[2j + 1]: lo[j], hi[j] (p = 0) or hi[j], lo[j] (p = 1).
      T* ev = p ? s.hi : s.lo;
      T* od = p ? s.lo : s.hi;
      int32_t j = 0;
      for (; j + N <= pairs; j += N) {
        V e, o;
        Ops::LoadPair(row + 2 * j, e, o);
        Ops::Store(e, ev + j);
        Ops::Store(o, od + j);
      }
      for (; j < pairs; ++j) StoreAt(ev + j, LoadAt(row + 2 * j)), StoreAt(od + j, LoadAt(row + 2 * j + 1));
      if (L & 1) StoreAt(ev + pairs, LoadAt(row + L - 1));
    }
    auto slot = [&](int32_t n) { return ((p + n) & 1) ? s.hi + FloorDiv2(n - 1 + p) : s.lo + FloorDiv2(n - p); };
    for (int32_t n = -4; n < 0; ++n) StoreAt(slot(n), LoadAt(row + MirrorPos(n, L)));
    for (int32_t n = L; n < L + 4; ++n) StoreAt(slot(n), LoadAt(row + MirrorPos(n, L)));
    // High m reads lo[m - p], lo[m + 1 - p]; low k reads hi[k - 1 + p], hi[k + p].
    auto hiRange = [&](int32_t n0, int32_t n1, int32_t& m0, int32_t& m1) {
      m0 = CeilDiv2(n0 - 1 + p), m1 = FloorDiv2(n1 - 1 + p);
    };
    auto loRange = [&](int32_t n0, int32_t n1, int32_t& k0, int32_t& k1) {
      k0 = CeilDiv2(n0 - p), k1 = FloorDiv2(n1 - p);
    };
    int32_t a, b;
    auto fv = [](int32_t c) { return [c](V v, V x, V y) { return Ops::Lift(x, y, v, c); }; };
    auto fs = [](int32_t c) { return [c](T v, T x, T y) { return A::Lift(x, y, v, c); }; };
    hiRange(-3, L + 2, a, b);
    Span(s.hi, s.lo, -p, 1 - p, a, b, fv(kQAlpha), fs(kQAlpha));
    loRange(-2, L + 1, a, b);
    Span(s.lo, s.hi, p - 1, p, a, b, fv(kQBeta), fs(kQBeta));
    hiRange(-1, L, a, b);
    Span(s.hi, s.lo, -p, 1 - p, a, b, fv(kQGamma), fs(kQGamma));
    // Outputs: lows (fused, the last rounded twice), then highs scaled.
    {
      const T* ha = s.hi + p - 1;
      const T* hb = s.hi + p;
      int32_t k = 0;
      for (; k + N <= s.nl - 1; k += N)
        Ops::Store(Ops::Low(Ops::Load(ha + k), Ops::Load(hb + k), Ops::Load(s.lo + k)), row + k);
      for (; k < s.nl - 1; ++k)
        StoreAt(row + k, Store<T>(RoundQ16((int64_t(LoadAt(ha + k)) + LoadAt(hb + k)) * kQDeltaK +
                                           int64_t(LoadAt(s.lo + k)) * kQInvK)));
      StoreAt(row + k, A::Scale(A::Lift(LoadAt(ha + k), LoadAt(hb + k), LoadAt(s.lo + k), kQDelta), kQInvK));
      T* out = row + s.nl;
      int32_t m = 0;
      for (; m + N <= s.nh; m += N) Ops::Store(Ops::Scale(Ops::Load(s.hi + m), kQK), out + m);
      for (; m < s.nh; ++m) StoreAt(out + m, A::Scale(LoadAt(s.hi + m), kQK));
    }
  }

  static void LineInv(T* row, int32_t L, int32_t p, T* buf) {
    const Split s = Layout(buf, L, p);
    std::memcpy(s.lo, row, size_t(s.nl) * sizeof(T));
    std::memcpy(s.hi, row + s.nl, size_t(s.nh) * sizeof(T));
    auto high = [&](int32_t n) { return ((p + n) & 1) != 0; };
    auto slot = [&](int32_t n) { return high(n) ? s.hi + FloorDiv2(n - 1 + p) : s.lo + FloorDiv2(n - p); };
    auto coef = [&](int32_t n) { return high(n) ? LoadAt(row + s.nl + (n - 1 + p) / 2) : LoadAt(row + (n - p) / 2); };
    for (int32_t n = -4; n < 0; ++n) StoreAt(slot(n), coef(MirrorPos(n, L)));
    for (int32_t n = L; n < L + 4; ++n) StoreAt(slot(n), coef(MirrorPos(n, L)));
    auto hiRange = [&](int32_t n0, int32_t n1, int32_t& m0, int32_t& m1) {
      m0 = CeilDiv2(n0 - 1 + p), m1 = FloorDiv2(n1 - 1 + p);
    };
    auto loRange = [&](int32_t n0, int32_t n1, int32_t& k0, int32_t& k1) {
      k0 = CeilDiv2(n0 - p), k1 = FloorDiv2(n1 - p);
    };
    int32_t a, b;
    loRange(-3, L + 2, a, b);
    Span(s.lo, s.hi, p - 1, p, a, b, [](V v, V x, V y) { return Ops::Sa(v, x, y); },
         [](T v, T x, T y) { return Store<T>(RoundQ16(int64_t(v) * kQK - (int64_t(x) + y) * kQDeltaK)); });
    hiRange(-2, L + 1, a, b);
    Span(s.hi, s.lo, -p, 1 - p, a, b,
         [](V v, V x, V y) { return Ops::Lift(x, y, Ops::Scale(v, kQInvK), -kQGamma); },
         [](T v, T x, T y) { return A::Lift(x, y, A::Scale(v, kQInvK), -kQGamma); });
    loRange(-1, L, a, b);
    Span(s.lo, s.hi, p - 1, p, a, b, [](V v, V x, V y) { return Ops::Lift(x, y, v, -kQBeta); },
         [](T v, T x, T y) { return A::Lift(x, y, v, -kQBeta); });
    hiRange(0, L - 1, a, b);
    Span(s.hi, s.lo, -p, 1 - p, a, b, [](V v, V x, V y) { return Ops::Lift(x, y, v, -kQAlpha); },
         [](T v, T x, T y) { return A::Lift(x, y, v, -kQAlpha); });
    // Interleave back: x[2j], x[2j + 1].
    const int32_t N = Lanes();
    const int32_t pairs = L / 2;
    const T* ev = p ? s.hi : s.lo;
    const T* od = p ? s.lo : s.hi;
    int32_t j = 0;
    for (; j + N <= pairs; j += N) Ops::StorePair(Ops::Load(ev + j), Ops::Load(od + j), row + 2 * j);
    for (; j < pairs; ++j) StoreAt(row + 2 * j, LoadAt(ev + j)), StoreAt(row + 2 * j + 1, LoadAt(od + j));
    if (L & 1) StoreAt(row + L - 1, LoadAt(ev + pairs));
  }

  // The level on a plane, vertical then horizontal (forward): the rows are
  // lifted in place in one sweep down the plane, mirrored rows serving as
  // the extension; at step n: alpha on row n, beta on n - 1, gamma on n -
  // 2, the low-pass output of n - 3, the high-pass scale of n - 4 (after
  // both its low neighbours read it), then the horizontal pass of row n -
  // 5, which no later step reads; the rows then move to their quadrants.
  static void LevelFwd(T* pl, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf) {
    auto row = [&](int32_t n) { return At(pl, ptrdiff_t(step) * n); };
    auto horizontal = [&](int32_t y) {
      if (w == 1) {
        wt97::LineFwd<T>(row(y), sizeof(T), 1, px, buf);
      } else {
        LineFwd(row(y), w, px, buf);
      }
    };
    if (h == 1) {
      for (int32_t x = 0; x < w; ++x) wt97::LineFwd<T>(row(0) + x, step, 1, py, buf);
      horizontal(0);
      return;
    }
    auto M = [&](int32_t n) { return row(MirrorPos(n, h)); };
    auto high = [&](int32_t n) { return ((py + n) & 1) != 0; };
    auto in = [&](int32_t n) { return n >= 0 && n < h; };
    const int32_t last_low = high(h - 1) ? h - 2 : h - 1;
    for (int32_t n = 0; n <= h + 4; ++n) {
      if (in(n) && high(n)) LiftRows(row(n), M(n - 1), M(n + 1), w, kQAlpha);
      int32_t m = n - 1;
      if (in(m) && !high(m)) LiftRows(row(m), M(m - 1), M(m + 1), w, kQBeta);
      m = n - 2;
      if (in(m) && high(m)) LiftRows(row(m), M(m - 1), M(m + 1), w, kQGamma);
      m = n - 3;
      if (in(m) && !high(m)) {
        if (m == last_low) {
          LastLowRows(row(m), M(m - 1), M(m + 1), w);
        } else {
          LowRows(row(m), M(m - 1), M(m + 1), w);
        }
      }
      m = n - 4;
      if (in(m) && high(m)) ScaleRows(row(m), w, kQK);
      if (in(n - 5)) horizontal(n - 5);
    }
    wt53::PermuteRows(pl, step, w, h, py, true, buf);
  }
  // The inverse in the mirror order: rows back to interleaved order, then
  // at step n the horizontal pass of row n and the vertical steps of rows
  // n - 1 .. n - 4.
  static void LevelInv(T* pl, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf) {
    auto row = [&](int32_t n) { return At(pl, ptrdiff_t(step) * n); };
    auto horizontal = [&](int32_t y) {
      if (w == 1) {
        wt97::LineInv<T>(row(y), sizeof(T), 1, px, buf);
      } else {
        LineInv(row(y), w, px, buf);
      }
    };
    if (h == 1) {
      horizontal(0);
      for (int32_t x = 0; x < w; ++x) wt97::LineInv<T>(row(0) + x, step, 1, py, buf);
      return;
    }
    wt53::PermuteRows(pl, step, w, h, py, false, buf);
    auto M = [&](int32_t n) { return row(MirrorPos(n, h)); };
    auto high = [&](int32_t n) { return ((py + n) & 1) != 0; };
    auto in = [&](int32_t n) { return n >= 0 && n < h; };
    for (int32_t n = 0; n <= h + 4; ++n) {
      if (in(n)) horizontal(n);
      int32_t m = n - 1;
      if (in(m) && !high(m)) SaRows(row(m), M(m - 1), M(m + 1), w);
      m = n - 2;
      if (in(m) && high(m)) ScaleLiftRows(row(m), M(m - 1), M(m + 1), w, -kQGamma, kQInvK);
      m = n - 3;
      if (in(m) && !high(m)) LiftRows(row(m), M(m - 1), M(m + 1), w, -kQBeta);
      m = n - 4;
      if (in(m) && high(m)) LiftRows(row(m), M(m - 1), M(m + 1), w, -kQAlpha);
    }
  }
};

// ---------------------------------------------------------------- scaled inverse
// The float inverse with the caller's band scales, sum-first lifts only.
struct ScaledKernels {
  using Ops = FloatOps;
  using V = Ops::V;
  using D = Ops::D;
  static HWY_INLINE int32_t Lanes() { return int32_t(hn::Lanes(D())); }

  // Sc(0) and Dd(0) from low(o), high(o) at lane offsets, as Kernels::Inverse.
  template <int kPhase, class Lo, class Hi>
  static HWY_INLINE void Inverse(Lo lo, Hi hi, float ls, float hs, V& sc_out, V& dd_out) {
    constexpr int p = kPhase;
    const V vls = hn::Set(D(), ls), vhs = hn::Set(D(), hs);
    V h[5];  // H(j - 2), scaled
    for (int j = 0; j < 5; ++j) h[j] = hn::Mul(hi(j - 2), vhs);
    auto H = [&](int m) { return h[m + 2]; };
    V sa[4];  // Sa(j + (p ? -2 : -1))
    for (int j = 0; j < 4; ++j) {
      const int k = j + (p ? -2 : -1);
      sa[j] = Ops::Lift(H(k - 1 + p), H(k + p), hn::Mul(lo(k), vls), -FloatK::kDelta);
    }
    auto SA = [&](int k) { return sa[k + (p ? 2 : 1)]; };
    V db[3];  // Db(-1), Db(0), Db(1)
    for (int m = -1; m <= 1; ++m) db[m + 1] = Ops::Lift(SA(m - p), SA(m + 1 - p), H(m), -FloatK::kGamma);
    auto DB = [&](int m) { return db[m + 1]; };
    const V sc0 = Ops::Lift(DB(-1 + p), DB(p), SA(0), -FloatK::kBeta);
    const int o = p ? -1 : 1;
    const V sco = Ops::Lift(DB(o - 1 + p), DB(o + p), SA(o), -FloatK::kBeta);
    sc_out = sc0;
    dd_out = p ? Ops::Lift(sco, sc0, DB(0), -FloatK::kAlpha) : Ops::Lift(sc0, sco, DB(0), -FloatK::kAlpha);
  }
  static void RowInv(const float* s, const float* dd, float* x, int32_t n, int32_t p, float ls, float hs) {
    const int32_t N = Lanes();
    int32_t i = 0;
    for (; i + N <= n; i += N) {
      auto lo = [&](int k) { return Ops::Load(s + i + k); };
      auto hi = [&](int k) { return Ops::Load(dd + i + k); };
      V sc, dv;
      if (p) {
        Inverse<1>(lo, hi, ls, hs, sc, dv);
        Ops::StorePair(dv, sc, x + 2 * i);
      } else {
        Inverse<0>(lo, hi, ls, hs, sc, dv);
        Ops::StorePair(sc, dv, x + 2 * i);
      }
    }
    InvRowScaledRef(s, dd, x, n, p, i, ls, hs);
  }
  static void ColInvPlane(const float* s, int32_t ss, const float* dd, int32_t ds, float* x, int32_t xs,
                          int32_t w, int32_t h, int32_t p, float ls, float hs) {
    const int32_t c = ColInvVectors<Ops>(s, ss, dd, ds, x, xs, w, h, p, [&](auto lo, auto hi, V& sc, V& dv) {
      if (p) {
        Inverse<1>(lo, hi, ls, hs, sc, dv);
      } else {
        Inverse<0>(lo, hi, ls, hs, sc, dv);
      }
    });
    ScaledRef::ColInvPlane(s, ss, dd, ds, x, xs, w, h, p, ls, hs, c);
  }
};

}  // namespace rvt::wt97::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG2K_WT97_INL_H_
