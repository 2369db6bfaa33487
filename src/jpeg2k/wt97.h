// The irreversible 9/7 wavelet: row and column passes (borders supplied by
// the caller) and row-pointer column lifts, in float (32f) and in Q16 fixed
// point (16s saturating every intermediate, 32s with 64-bit products and
// 32-bit results).  The checks, the scalar reference and the drivers.
//
// Positions of a pass with phase p: low-pass k at x[2k + p], high-pass m at
// x[2m + 1 - p].  Stages: D1(m) = lift(x[2m - p], x[2m + 2 - p]; x[2m + 1 -
// p], alpha); S1(k) = lift(D1(k - 1 + p), D1(k + p); x[2k + p], beta);
// D2(m) = lift(S1(m - p), S1(m + 1 - p); D1(m), gamma); S2(k) = lift(D2(k -
// 1 + p), D2(k + p); S1(k), delta); low = S2 / K, high = D2 x K.  A float
// lift is (a + b) x c + v, sum first; a fixed lift is v + (((a + b) x C +
// 32768) >> 16) with exact sums and products.
#ifndef RVT_JPEG2K_WT97_H_
#define RVT_JPEG2K_WT97_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/checks.h"
#include "frame/unaligned.h"
#include "jpeg2k/wt53.h"
#include "rvtjp.h"

namespace rvt::wt97 {

using wt53::At;
using wt53::CheckLift;
using wt53::CheckPass;

inline float F(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, 4);
  return f;
}
struct FloatK {
  static inline const float kAlpha = F(0xBFCB0673), kBeta = F(0xBD5901AE), kGamma = F(0x3F620676),
                            kDelta = F(0x3EE31355), kK = F(0x3F9D7658), kInvK = F(0x3F5019C3),
                            kDeltaK = F(0x3EB8968E);
};
// Q16 constants.
constexpr int32_t kQAlpha = -103949, kQBeta = -3472, kQGamma = 57862, kQDelta = 29066,
                  kQK = 80621, kQInvK = 53274, kQDeltaK = 23627;

// ---------------------------------------------------------------- arithmetic
template <class T>
struct Arith;
template <>
struct Arith<float> {
  static float Lift(float a, float b, float v, float c) { return (a + b) * c + v; }
  static float Scale(float v, float c) { return v * c; }
};
inline int64_t RoundQ16(int64_t v) { return (v + 32768) >> 16; }
template <class T>
T Store(int64_t v) {
  if constexpr (sizeof(T) == 2) {
    return T(v < -32768 ? -32768 : v > 32767 ? 32767 : v);
  } else {
    return T(int32_t(uint32_t(uint64_t(v))));
  }
}
template <class T>
struct FixedArith {
  static T Lift(T a, T b, T v, int32_t c) { return Store<T>(v + RoundQ16((int64_t(a) + b) * c)); }
  static T Scale(T v, int32_t c) { return Store<T>(RoundQ16(int64_t(v) * c)); }
};
template <>
struct Arith<int16_t> : FixedArith<int16_t> {};
template <>
struct Arith<int32_t> : FixedArith<int32_t> {};

// Width 1, forward: the normalised analysis filters applied directly,
// summed in the order written (outer taps first).
template <class T>
void FwdSingle(const T* x, T* low, T* high, int32_t phase, ptrdiff_t xs = sizeof(T)) {
  // Centres: x[phase] for the low-pass filter, x[1 - phase] for the high-pass one.
  auto l = [&](int k) { return LoadAt(At(x, xs * (phase + k))); };
  auto h = [&](int k) { return LoadAt(At(x, xs * (1 - phase + k))); };
  if constexpr (std::is_same_v<T, float>) {
    const float s = 0.026748758f * (l(-4) + l(4)) - 0.01686412f * (l(-3) + l(3)) -
                    0.078223266f * (l(-2) + l(2)) + 0.26686412f * (l(-1) + l(1)) + 0.602949f * l(0);
    const float d = 0.091271766f * (h(-3) + h(3)) - 0.057543527f * (h(-2) + h(2)) -
                    0.59127176f * (h(-1) + h(1)) + 1.115087f * h(0);
    StoreAt(low, s);
    StoreAt(high, d);
  } else {
    const int64_t s = 1753 * (int64_t(l(-4)) + l(4)) - 1105 * (int64_t(l(-3)) + l(3)) -
                      5126 * (int64_t(l(-2)) + l(2)) + 17489 * (int64_t(l(-1)) + l(1)) + 39515 * int64_t(l(0));
    const int64_t d = 5982 * (int64_t(h(-3)) + h(3)) - 3771 * (int64_t(h(-2)) + h(2)) -
                      38749 * (int64_t(h(-1)) + h(1)) + 73078 * int64_t(h(0));
    StoreAt(low, Store<T>(RoundQ16(s)));
    StoreAt(high, Store<T>(RoundQ16(d)));
  }
}

// ---------------------------------------------------------------- reference
template <class T>
struct Constants {
  static auto Alpha() { if constexpr (std::is_same_v<T, float>) return FloatK::kAlpha; else return kQAlpha; }
  static auto Beta() { if constexpr (std::is_same_v<T, float>) return FloatK::kBeta; else return kQBeta; }
  static auto Gamma() { if constexpr (std::is_same_v<T, float>) return FloatK::kGamma; else return kQGamma; }
  static auto Delta() { if constexpr (std::is_same_v<T, float>) return FloatK::kDelta; else return kQDelta; }
  static auto K() { if constexpr (std::is_same_v<T, float>) return FloatK::kK; else return kQK; }
  static auto InvK() { if constexpr (std::is_same_v<T, float>) return FloatK::kInvK; else return kQInvK; }
};

// Forward outputs [from, n) of a row of n pairs (n >= 2), each from its
// own dependency cone.  Fixed point: every low-pass output but the row's
// last fuses delta and 1/K in one rounding; the last rounds twice.
template <class T>
void FwdRowRef(const T* x, T* low, T* high, int32_t n, int32_t p, int32_t from,
               ptrdiff_t xs = sizeof(T), ptrdiff_t ls = sizeof(T), ptrdiff_t hs = sizeof(T)) {
  using A = Arith<T>;
  using C = Constants<T>;
  auto X = [&](int32_t i) { return LoadAt(At(x, xs * i)); };
  auto D1 = [&](int32_t m) { return A::Lift(X(2 * m - p), X(2 * m + 2 - p), X(2 * m + 1 - p), C::Alpha()); };
  auto S1 = [&](int32_t k) { return A::Lift(D1(k - 1 + p), D1(k + p), X(2 * k + p), C::Beta()); };
  auto D2 = [&](int32_t m) { return A::Lift(S1(m - p), S1(m + 1 - p), D1(m), C::Gamma()); };
  for (int32_t i = from; i < n; ++i) {
    const T da = D2(i - 1 + p), db = D2(i + p), s = S1(i);
    const T d = p ? da : db;
    if constexpr (std::is_same_v<T, float>) {
      StoreAt(At(low, ls * i), A::Scale(A::Lift(da, db, s, C::Delta()), C::InvK()));
    } else if (i + 1 < n) {
      StoreAt(At(low, ls * i), Store<T>(RoundQ16((int64_t(da) + db) * kQDeltaK + int64_t(s) * kQInvK)));
    } else {
      StoreAt(At(low, ls * i), A::Scale(A::Lift(da, db, s, kQDelta), kQInvK));
    }
    StoreAt(At(high, hs * i), A::Scale(d, C::K()));
  }
}

// Inverse outputs of pairs [from, n): low k at x[2k + p], high m at
// x[2m + 1 - p]; Sa(k) = K low[k] - (delta/K)(high[k - 1 + p] + high[k +
// p]) in one rounding; Db(m) = high[m] / K - gamma (Sa(m - p) + Sa(m + 1 -
// p)); Sc(k) = Sa(k) - beta (Db(k - 1 + p) + Db(k + p)); Dd(m) = Db(m) -
// alpha (Sc(m - p) + Sc(m + 1 - p)).
template <class T>
void InvRowRef(const T* s, const T* d, T* x, int32_t n, int32_t p, int32_t from,
               ptrdiff_t ss = sizeof(T), ptrdiff_t ds = sizeof(T), ptrdiff_t xs = sizeof(T)) {
  using A = Arith<T>;
  using C = Constants<T>;
  auto Lo = [&](int32_t k) { return LoadAt(At(s, ss * k)); };
  auto Hi = [&](int32_t m) { return LoadAt(At(d, ds * m)); };
  auto Sa = [&](int32_t k) {
    if constexpr (std::is_same_v<T, float>) {
      return Lo(k) * FloatK::kK - (Hi(k - 1 + p) + Hi(k + p)) * FloatK::kDeltaK;
    } else {
      return Store<T>(RoundQ16(int64_t(Lo(k)) * kQK - (int64_t(Hi(k - 1 + p)) + Hi(k + p)) * kQDeltaK));
    }
  };
  auto Db = [&](int32_t m) { return A::Lift(Sa(m - p), Sa(m + 1 - p), A::Scale(Hi(m), C::InvK()), -C::Gamma()); };
  auto Sc = [&](int32_t k) { return A::Lift(Db(k - 1 + p), Db(k + p), Sa(k), -C::Beta()); };
  auto Dd = [&](int32_t m) { return A::Lift(Sc(m - p), Sc(m + 1 - p), Db(m), -C::Alpha()); };
  for (int32_t i = from; i < n; ++i) {
    StoreAt(At(x, xs * (2 * i + p)), Sc(i));
    StoreAt(At(x, xs * (2 * i + 1 - p)), Dd(i));
  }
}

// The scaled inverse (float): lows x ls and highs x hs first, then four
// sum-first lifts: Sa(k) = L(k) - delta (H(k - 1 + p) + H(k + p)), Db(m) =
// H(m) - gamma (Sa(m - p) + Sa(m + 1 - p)), Sc and Dd as above.  Same reads
// as InvRowRef.
inline void InvRowScaledRef(const float* s, const float* d, float* x, int32_t n, int32_t p, int32_t from,
                            float ls, float hs, ptrdiff_t ss = 4, ptrdiff_t ds = 4, ptrdiff_t xs = 4) {
  using A = Arith<float>;
  auto Lo = [&](int32_t k) { return LoadAt(At(s, ss * k)) * ls; };
  auto Hi = [&](int32_t m) { return LoadAt(At(d, ds * m)) * hs; };
  auto Sa = [&](int32_t k) { return A::Lift(Hi(k - 1 + p), Hi(k + p), Lo(k), -FloatK::kDelta); };
  auto Db = [&](int32_t m) { return A::Lift(Sa(m - p), Sa(m + 1 - p), Hi(m), -FloatK::kGamma); };
  auto Sc = [&](int32_t k) { return A::Lift(Db(k - 1 + p), Db(k + p), Sa(k), -FloatK::kBeta); };
  auto Dd = [&](int32_t m) { return A::Lift(Sc(m - p), Sc(m + 1 - p), Db(m), -FloatK::kAlpha); };
  for (int32_t i = from; i < n; ++i) {
    StoreAt(At(x, xs * (2 * i + p)), Sc(i));
    StoreAt(At(x, xs * (2 * i + 1 - p)), Dd(i));
  }
}
struct ScaledRef {
  static void RowInv(const float* s, const float* d, float* x, int32_t n, int32_t p, float ls, float hs) {
    InvRowScaledRef(s, d, x, n, p, 0, ls, hs);
  }
  static void ColInvPlane(const float* s, int32_t ss, const float* d, int32_t ds, float* x, int32_t xs,
                          int32_t w, int32_t h, int32_t p, float ls, float hs, int32_t from = 0) {
    for (int32_t c = from; c < w; ++c) InvRowScaledRef(s + c, d + c, x + c, h, p, 0, ls, hs, ss, ds, xs);
  }
};

// Column lifts: forward, one row pair into the pipeline; inverse, the
// same call undone step by step.
template <class T>
void FwdLiftRef(const T* p0, const T* p1, const T* p2, T* p3, T* p4, T* p5, T* p6, T* p7,
                int32_t n, int32_t from) {
  using A = Arith<T>;
  using C = Constants<T>;
  for (int32_t i = from; i < n; ++i) {
    const T a0 = LoadAt(p0 + i);
    const T h = A::Lift(a0, LoadAt(p2 + i), LoadAt(p1 + i), C::Alpha());
    const T l = A::Lift(LoadAt(p6 + i), h, a0, C::Beta());
    const T g = A::Lift(LoadAt(p3 + i), l, LoadAt(p6 + i), C::Gamma());
    const T f = A::Lift(LoadAt(p5 + i), g, LoadAt(p3 + i), C::Delta());
    StoreAt(p7 + i, h);
    StoreAt(p4 + i, l);
    StoreAt(p6 + i, g);
    StoreAt(p3 + i, A::Scale(f, C::InvK()));
    StoreAt(p5 + i, A::Scale(LoadAt(p5 + i), C::K()));
  }
}
template <class T>
void InvLiftRef(T* p0, T* p1, const T* p2, T* p3, const T* p4, T* p5, T* p6, const T* p7,
                int32_t n, int32_t from) {
  using A = Arith<T>;
  using C = Constants<T>;
  for (int32_t i = from; i < n; ++i) {
    const T h5 = A::Scale(LoadAt(p5 + i), C::InvK());
    const T l3 = A::Scale(LoadAt(p3 + i), C::K());
    const T f = A::Lift(h5, LoadAt(p6 + i), l3, -C::Delta());
    const T g = A::Lift(f, LoadAt(p4 + i), LoadAt(p6 + i), -C::Gamma());
    const T e0 = A::Lift(g, LoadAt(p7 + i), LoadAt(p4 + i), -C::Beta());
    const T o1 = A::Lift(e0, LoadAt(p2 + i), LoadAt(p7 + i), -C::Alpha());
    StoreAt(p5 + i, h5);
    StoreAt(p3 + i, f);
    StoreAt(p6 + i, g);
    StoreAt(p0 + i, e0);
    StoreAt(p1 + i, o1);
  }
}

template <class T>
struct RefKernels {
  static void RowFwd(const T* x, T* low, T* high, int32_t n, int32_t p) {
    if (n == 1) return FwdSingle(x, low, high, p);
    FwdRowRef(x, low, high, n, p, 0);
  }
  static void RowInv(const T* s, const T* d, T* x, int32_t n, int32_t p) { InvRowRef(s, d, x, n, p, 0); }
  static void LiftFwd(const T* p0, const T* p1, const T* p2, T* p3, T* p4, T* p5, T* p6, T* p7, int32_t n) {
    FwdLiftRef(p0, p1, p2, p3, p4, p5, p6, p7, n, 0);
  }
  static void LiftInv(T* p0, T* p1, const T* p2, T* p3, const T* p4, T* p5, T* p6, const T* p7, int32_t n) {
    InvLiftRef(p0, p1, p2, p3, p4, p5, p6, p7, n, 0);
  }
  // Columns [from, w) of a column pass, each as a strided signal.
  static void ColFwdPlane(const T* x, int32_t xs, T* low, int32_t ls, T* high, int32_t hs, int32_t w,
                     int32_t h, int32_t p, int32_t from = 0) {
    for (int32_t c = from; c < w; ++c) {
      if (h == 1) {
        FwdSingle(x + c, low + c, high + c, p, xs);
      } else {
        FwdRowRef(x + c, low + c, high + c, h, p, 0, xs, ls, hs);
      }
    }
  }
  static void ColInvPlane(const T* s, int32_t ss, const T* d, int32_t ds, T* x, int32_t xs, int32_t w,
                     int32_t h, int32_t p, int32_t from = 0) {
    for (int32_t c = from; c < w; ++c) InvRowRef(s + c, d + c, x + c, h, p, 0, ss, ds, xs);
  }
};

// ---------------------------------------------------------------- drivers
// The row drivers are the 5/3 ones: checks, then each row to K.
using wt53::FwdRow;
using wt53::InvRow;
template <class T, class K>
RvtResult FwdLift(const T* p0, const T* p1, const T* p2, T* p3, T* p4, T* p5, T* p6, T* p7,
                  int32_t width) {
  const void* p[8] = {p0, p1, p2, p3, p4, p5, p6, p7};
  RVT_CHECK(CheckLift(p, 8, width));
  K::LiftFwd(p0, p1, p2, p3, p4, p5, p6, p7, width);
  return rvtStatusOk;
}
template <class T, class K>
RvtResult InvLift(T* p0, T* p1, const T* p2, T* p3, const T* p4, T* p5, T* p6, const T* p7,
                  int32_t width) {
  const void* p[8] = {p0, p1, p2, p3, p4, p5, p6, p7};
  RVT_CHECK(CheckLift(p, 8, width));
  K::LiftInv(p0, p1, p2, p3, p4, p5, p6, p7, width);
  return rvtStatusOk;
}

// The scaled inverse passes: the unscaled passes' checks, then K's form.
template <class K>
RvtResult InvRowScaled(const float* pLow, int32_t lowStep, const float* pHigh, int32_t highStep, ImageSize roi,
                       float* pDst, int32_t dstStep, int32_t phase, float ls, float hs) {
  RVT_CHECK(CheckPass(pLow, lowStep, pHigh, highStep, pDst, dstStep, roi));
  const int32_t ph = phase ? 1 : 0;
  for (int32_t y = 0; y < roi.height; ++y)
    K::RowInv(At(pLow, ptrdiff_t(lowStep) * y), At(pHigh, ptrdiff_t(highStep) * y),
              At(pDst, ptrdiff_t(dstStep) * y), roi.width, ph, ls, hs);
  return rvtStatusOk;
}
template <class K>
RvtResult InvColScaled(const float* pLow, int32_t lowStep, const float* pHigh, int32_t highStep, ImageSize roi,
                       float* pDst, int32_t dstStep, int32_t phase, float ls, float hs) {
  RVT_CHECK(CheckPass(pLow, lowStep, pHigh, highStep, pDst, dstStep, roi));
  K::ColInvPlane(pLow, lowStep, pHigh, highStep, pDst, dstStep, roi.width, roi.height, phase ? 1 : 0, ls, hs);
  return rvtStatusOk;
}
#define RVT_WT97_SCALED_ENTRIES(PRE, K)                                                                 \
  inline RvtResult PRE##InvRowScaled(const float* a, int32_t as, const float* b, int32_t bs, ImageSize r, \
                                     float* c, int32_t cs, int32_t ph, float ls, float hs) {              \
    return ::rvt::wt97::InvRowScaled<K>(a, as, b, bs, r, c, cs, ph, ls, hs);                              \
  }                                                                                                       \
  inline RvtResult PRE##InvColScaled(const float* a, int32_t as, const float* b, int32_t bs, ImageSize r, \
                                     float* c, int32_t cs, int32_t ph, float ls, float hs) {              \
    return ::rvt::wt97::InvColScaled<K>(a, as, b, bs, r, c, cs, ph, ls, hs);                              \
  }
RVT_WT97_SCALED_ENTRIES(RefF, ScaledRef)

// Column passes: the 5/3 drivers (a band height of 1 takes the direct
// filters, as a row of one pair does).
using wt53::FwdCol;
using wt53::InvCol;

}  // namespace rvt::wt97

namespace rvt::wt97 {
// Entries of one kernel set (the reference's here, a target's in wt97.cc).
#define RVT_WT97_ENTRIES(PRE, T, K)                                                              \
  inline RvtResult PRE##FwdRow(const T* a, int32_t as, T* b, int32_t bs, T* c, int32_t cs,       \
                               ImageSize r, int32_t ph) {                                        \
    return ::rvt::wt97::FwdRow<T, K>(a, as, b, bs, c, cs, r, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##InvRow(const T* a, int32_t as, const T* b, int32_t bs, ImageSize r,      \
                               T* c, int32_t cs, int32_t ph) {                                   \
    return ::rvt::wt97::InvRow<T, K>(a, as, b, bs, r, c, cs, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##FwdCol(const T* a, int32_t as, T* b, int32_t bs, T* c, int32_t cs,       \
                               ImageSize r, int32_t ph) {                                        \
    return ::rvt::wt97::FwdCol<T, K>(a, as, b, bs, c, cs, r, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##InvCol(const T* a, int32_t as, const T* b, int32_t bs, ImageSize r,      \
                               T* c, int32_t cs, int32_t ph) {                                   \
    return ::rvt::wt97::InvCol<T, K>(a, as, b, bs, r, c, cs, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##FwdLift(const T* a, const T* b, const T* c, T* d, T* e, T* f, T* g,      \
                                T* h, int32_t w) {                                               \
    return ::rvt::wt97::FwdLift<T, K>(a, b, c, d, e, f, g, h, w);                                \
  }                                                                                              \
  inline RvtResult PRE##InvLift(T* a, T* b, const T* c, T* d, const T* e, T* f, T* g,            \
                                const T* h, int32_t w) {                                         \
    return ::rvt::wt97::InvLift<T, K>(a, b, c, d, e, f, g, h, w);                                \
  }

RVT_WT97_ENTRIES(Ref16, int16_t, RefKernels<int16_t>)
RVT_WT97_ENTRIES(Ref32, int32_t, RefKernels<int32_t>)
RVT_WT97_ENTRIES(RefF, float, RefKernels<float>)

}  // namespace rvt::wt97

namespace rvt::wt97 {

// ---------------------------------------------------------------- whole levels
// Fixed point only.  A line of length L >= 2 is copied into the work
// buffer with 4 samples of whole-sample symmetric extension each side (L +
// 8 samples) and lifted stage by stage over the extended positions; lines
// of one sample are kept (even coordinate) or doubled (odd), and halved
// back.  The line's low-pass outputs fuse delta and 1/K except its last,
// which rounds twice, as in the row passes.
inline int32_t MirrorPos(int32_t n, int32_t L) {
  while (n < 0 || n >= L) n = n < 0 ? -n : 2 * (L - 1) - n;
  return n;
}

template <class T>
void LineFwd(T* line, ptrdiff_t stride, int32_t L, int32_t p, T* buf) {
  auto el = [&](int32_t n) { return At(line, stride * n); };
  if (L == 1) {
    if (p) StoreAt(el(0), Store<T>(2 * int64_t(LoadAt(el(0)))));
    return;
  }
  T* x = buf + 4;
  for (int32_t n = -4; n < L + 4; ++n) StoreAt(x + n, LoadAt(el(MirrorPos(n, L))));
  using A = Arith<T>;
  auto high = [&](int32_t n) { return ((p + n) & 1) != 0; };
  auto stage = [&](bool hi, int32_t lo_n, int32_t hi_n, int32_t c) {
    for (int32_t n = lo_n; n <= hi_n; ++n)
      if (high(n) == hi) StoreAt(x + n, A::Lift(LoadAt(x + n - 1), LoadAt(x + n + 1), LoadAt(x + n), c));
  };
  stage(true, -3, L + 2, kQAlpha);
  stage(false, -2, L + 1, kQBeta);
  stage(true, -1, L, kQGamma);
  const int32_t last_low = high(L - 1) ? L - 2 : L - 1;
  const int32_t nl = p ? L / 2 : (L + 1) / 2;
  for (int32_t n = 0; n < L; ++n) {
    const int64_t a = LoadAt(x + n - 1), b = LoadAt(x + n + 1), v = LoadAt(x + n);
    if (high(n)) {
      StoreAt(el(nl + (n - 1 + p) / 2), A::Scale(T(v), kQK));
    } else if (n != last_low) {
      StoreAt(el((n - p) / 2), Store<T>(RoundQ16((a + b) * kQDeltaK + v * kQInvK)));
    } else {
      StoreAt(el((n - p) / 2), A::Scale(A::Lift(T(a), T(b), T(v), kQDelta), kQInvK));
    }
  }
}

template <class T>
void LineInv(T* line, ptrdiff_t stride, int32_t L, int32_t p, T* buf) {
  auto el = [&](int32_t n) { return At(line, stride * n); };
  if (L == 1) {
    if (p) StoreAt(el(0), T(LoadAt(el(0)) >> 1));
    return;
  }
  const int32_t nl = p ? L / 2 : (L + 1) / 2;
  auto high = [&](int32_t n) { return ((p + n) & 1) != 0; };
  auto coef = [&](int32_t n) { return high(n) ? el(nl + (n - 1 + p) / 2) : el((n - p) / 2); };
  T* x = buf + 4;
  for (int32_t n = -4; n < L + 4; ++n) StoreAt(x + n, LoadAt(coef(MirrorPos(n, L))));
  using A = Arith<T>;
  for (int32_t n = -3; n <= L + 2; ++n)
    if (!high(n))
      StoreAt(x + n, Store<T>(RoundQ16(int64_t(LoadAt(x + n)) * kQK -
                                       (int64_t(LoadAt(x + n - 1)) + LoadAt(x + n + 1)) * kQDeltaK)));
  auto stage = [&](bool hi, int32_t lo_n, int32_t hi_n, int32_t c, bool scale) {
    for (int32_t n = lo_n; n <= hi_n; ++n)
      if (high(n) == hi) {
        const T v = scale ? A::Scale(LoadAt(x + n), kQInvK) : LoadAt(x + n);
        StoreAt(x + n, A::Lift(LoadAt(x + n - 1), LoadAt(x + n + 1), v, c));
      }
  };
  stage(true, -2, L + 1, -kQGamma, true);
  stage(false, -1, L, -kQBeta, false);
  stage(true, 0, L - 1, -kQAlpha, false);
  for (int32_t n = 0; n < L; ++n) StoreAt(el(n), LoadAt(x + n));
}

template <class T>
void Level(T* p, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf, bool fwd) {
  auto cols = [&] {
    for (int32_t c = 0; c < w; ++c) (fwd ? LineFwd<T> : LineInv<T>)(p + c, step, h, py, buf);
  };
  auto rows = [&] {
    for (int32_t y = 0; y < h; ++y) (fwd ? LineFwd<T> : LineInv<T>)(At(p, ptrdiff_t(step) * y), sizeof(T), w, px, buf);
  };
  if (fwd) {
    cols();
    rows();
  } else {
    rows();
    cols();
  }
}

template <class T>
void LevelFwdRef(T* p, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf) {
  Level<T>(p, step, w, h, px, py, buf, true);
}
template <class T>
void LevelInvRef(T* p, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf) {
  Level<T>(p, step, w, h, px, py, buf, false);
}
// Work buffer: one line and 4 + 4 extension samples.
inline int64_t BufSizeI(const ImageRect& r, int bytes) { return wt53::LineBuf(r, bytes, 2, 8); }
inline int64_t BufSize4(const ImageRect& r, int bytes) {
  return wt53::PlaneBytes(BufSizeI(r, bytes), wt53::Pitch64(r.width, bytes), r.height);
}

RVT_WT_LEVEL_ENTRIES(Ref16, int16_t, LevelFwdRef<int16_t>, LevelInvRef<int16_t>, 8)
RVT_WT_LEVEL_ENTRIES(Ref32, int32_t, LevelFwdRef<int32_t>, LevelInvRef<int32_t>, 8)

}  // namespace rvt::wt97

#endif  // RVT_JPEG2K_WT97_H_
