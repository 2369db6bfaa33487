// The reversible 5/3 wavelet: one-dimensional passes over rows and columns
// (borders supplied by the caller), row-pointer column lifts, and whole
// levels in place or to four band planes (borders extended here by
// whole-sample symmetric extension).  The checks, the scalar reference
// kernels and the drivers, which are templated on the kernel set.
//
// Arithmetic: sums in 32 bits (wrapping for 32s), `>>` arithmetic.  Every
// coefficient, the high-pass value carried to the next low-pass one
// included, is the stored value: truncated to 16 bits for 16s.
#ifndef RVT_JPEG2K_WT53_H_
#define RVT_JPEG2K_WT53_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/checks.h"
#include "frame/unaligned.h"
#include "rvtjp.h"

namespace rvt::wt53 {

// ---------------------------------------------------------------- checks
// Passes: the three pointers, then the three steps, then the size.
inline RvtResult CheckPass(const void* p0, int32_t s0, const void* p1, int32_t s1, const void* p2,
                           int32_t s2, ImageSize roi) {
  RVT_CHECK(CheckPtr(p0));
  RVT_CHECK(CheckPtr(p1));
  RVT_CHECK(CheckPtr(p2));
  if (s0 < 1 || s1 < 1 || s2 < 1) return rvtStatusStep;
  return CheckRoi(roi);
}
inline RvtResult CheckLift(const void* const* ptrs, int n, int32_t width) {
  for (int k = 0; k < n; ++k) RVT_CHECK(CheckPtr(ptrs[k]));
  return width < 1 ? rvtStatusSize : rvtStatusOk;
}
// Whole level in place: the plane, its step, the rectangle, the buffer,
// then the size.
// A tile whose work buffer the 32-bit size query cannot express (rvtStatusSize
// there) is refused here as well: every size below is computed in 64 bits.
constexpr int64_t kMaxBufBytes = 0xFFFFFFFF;
inline int64_t Pitch64(int32_t w, int bytes) { return (int64_t(bytes) * w + 31) & ~int64_t(31); }
// pitch x height + line bytes, exact (a pitch near 2^32 times a height near
// 2^31 leaves 64 bits), clamped to -1 .. kMaxBufBytes + 1.
inline int64_t PlaneBytes(int64_t line, int64_t pitch, int32_t h) {
  __extension__ typedef __int128 Wide;
  const Wide v = Wide(pitch) * h + line;
  return v < 0 ? -1 : v > kMaxBufBytes ? kMaxBufBytes + 1 : int64_t(v);
}
// The line buffer: `extra` samples beside the longer side.
inline int64_t LineBytes(const ImageRect& r, int bytes, int extra) {
  return int64_t(bytes) * (int64_t(r.width > r.height ? r.width : r.height) + extra);
}
inline RvtResult CheckLevelI(const void* p, int32_t step, const ImageRect* rect, const void* buf,
                             int bytes = 2, int extra = 4) {
  RVT_CHECK(CheckPlane(p, step));
  RVT_CHECK(CheckPtr(rect));
  RVT_CHECK(CheckPtr(buf));
  if (rect->width < 1 || rect->height < 1) return rvtStatusSize;
  return LineBytes(*rect, bytes, extra) > kMaxBufBytes ? rvtStatusSize : rvtStatusOk;
}
// Whole level with four band planes: the plane, the band arrays, the
// rectangle and the buffer (null); the plane's step; the four band
// pointers; the four band steps; the size.
template <class P, class B>
RvtResult CheckLevel4(P* plane, int32_t step, B* const* bands, const int32_t* bandSteps,
                      const ImageRect* rect, const void* buf, int extra = 4) {
  RVT_CHECK(CheckPtr(plane));
  RVT_CHECK(CheckPtr(bands));
  RVT_CHECK(CheckPtr(bandSteps));
  RVT_CHECK(CheckPtr(rect));
  RVT_CHECK(CheckPtr(buf));
  if (step < 1) return rvtStatusStep;
  for (int k = 0; k < 4; ++k) RVT_CHECK(CheckPtr(bands[k]));
  for (int k = 0; k < 4; ++k)
    if (bandSteps[k] < 1) return rvtStatusStep;
  if (rect->width < 1 || rect->height < 1) return rvtStatusSize;
  const int bytes = int(sizeof(P));
  const int64_t need =
      PlaneBytes(LineBytes(*rect, bytes, extra), Pitch64(rect->width, bytes), rect->height);
  return need > kMaxBufBytes ? rvtStatusSize : rvtStatusOk;
}

// ---------------------------------------------------------------- arithmetic
inline int32_t Wrap32(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }
template <class T>
T Avg(T a, T b) {  // (a + b) >> 1
  return T(Wrap32(int64_t(a) + b) >> 1);
}
template <class T>
T Quarter(T a, T b) {  // (a + b + 2) >> 2
  return T(Wrap32(int64_t(a) + b + 2) >> 2);
}
template <class T>
T Add(T a, T b) {
  return T(Wrap32(int64_t(a) + b));
}
template <class T>
T Sub(T a, T b) {
  return T(Wrap32(int64_t(a) - b));
}

// ---------------------------------------------------------------- helpers
template <class T>
T* At(T* p, ptrdiff_t bytes) {
  using B = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<B*>(p) + bytes);
}

// The 5/3 plane forms: output row i from source rows 2i - 2 + phase ..
// 2i + 2 + phase, each row by K's element kernel.
template <class T, class K>
void ColFwdRows(const T* pSrc, int32_t srcStep, T* pLow, int32_t lowStep, T* pHigh, int32_t highStep,
                int32_t w, int32_t h, int32_t ph) {
  for (int32_t i = 0; i < h; ++i) {
    const T* r = At(pSrc, ptrdiff_t(srcStep) * (2 * i - 2 + ph));
    K::ColFwd(r, At(r, srcStep), At(r, 2 * ptrdiff_t(srcStep)), At(r, 3 * ptrdiff_t(srcStep)),
              At(r, 4 * ptrdiff_t(srcStep)), At(pLow, ptrdiff_t(lowStep) * i),
              At(pHigh, ptrdiff_t(highStep) * i), w, ph);
  }
}
template <class T, class K>
void ColInvRows(const T* pLow, int32_t lowStep, const T* pHigh, int32_t highStep, T* pDst,
                int32_t dstStep, int32_t w, int32_t h, int32_t ph) {
  for (int32_t i = 0; i < h; ++i) {
    const T* d = At(pHigh, ptrdiff_t(highStep) * i);
    K::ColInv(At(pLow, ptrdiff_t(lowStep) * (i - ph)), At(d, -ptrdiff_t(highStep)), d,
              At(pLow, ptrdiff_t(lowStep) * (i + 1 - ph)), At(d, ptrdiff_t(highStep)),
              At(pDst, ptrdiff_t(dstStep) * 2 * i), At(pDst, ptrdiff_t(dstStep) * (2 * i + 1)), w, ph);
  }
}

// ---------------------------------------------------------------- kernels
// The scalar reference kernel set; a target's set (wt53-inl.h) has the
// same members.  Every member runs elements [from, n) so that vector
// kernels finish their tails with it.
template <class T>
struct RefKernels {
  // Forward pass of W pairs.  Pair i reads x[b..b+4], b = 2i - 2 + phase:
  // d0 = x1 - avg(x0, x2), d1 = x3 - avg(x2, x4), low = x2 + quarter(d0,
  // d1); the high output is d1 (phase 0) or d0 (phase 1).
  static void RowFwd(const T* x, T* low, T* high, int32_t n, int32_t phase, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i) {
      const T* b = x + 2 * i - 2 + phase;
      const T d0 = Sub(LoadAt(b + 1), Avg(LoadAt(b), LoadAt(b + 2)));
      const T d1 = Sub(LoadAt(b + 3), Avg(LoadAt(b + 2), LoadAt(b + 4)));
      StoreAt(low + i, Add(LoadAt(b + 2), Quarter(d0, d1)));
      StoreAt(high + i, phase ? d0 : d1);
    }
  }
  // Inverse pass of W pairs: with sA = s[i - phase], sB = s[i + 1 - phase],
  // e0 = sA - quarter(d[i-1], d[i]), e1 = sB - quarter(d[i], d[i+1]),
  // m = d[i] + avg(e0, e1); x[2i], x[2i+1] = e0, m (phase 0) or m, e1.
  static void RowInv(const T* s, const T* d, T* x, int32_t n, int32_t phase, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i) {
      const T dB = LoadAt(d + i);
      const T e0 = Sub(LoadAt(s + i - phase), Quarter(LoadAt(d + i - 1), dB));
      const T e1 = Sub(LoadAt(s + i + 1 - phase), Quarter(dB, LoadAt(d + i + 1)));
      const T m = Add(dB, Avg(e0, e1));
      StoreAt(x + 2 * i, phase ? m : e0);
      StoreAt(x + 2 * i + 1, phase ? e1 : m);
    }
  }
  static void ColFwdPlane(const T* x, int32_t xs, T* low, int32_t ls, T* high, int32_t hs, int32_t w,
                          int32_t h, int32_t p) {
    ColFwdRows<T, RefKernels>(x, xs, low, ls, high, hs, w, h, p);
  }
  static void ColInvPlane(const T* s, int32_t ss, const T* d, int32_t ds, T* x, int32_t xs, int32_t w,
                          int32_t h, int32_t p) {
    ColInvRows<T, RefKernels>(s, ss, d, ds, x, xs, w, h, p);
  }
  // The same per element of five rows (column passes).
  static void ColFwd(const T* x0, const T* x1, const T* x2, const T* x3, const T* x4, T* low,
                     T* high, int32_t n, int32_t phase, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i) {
      const T d0 = Sub(LoadAt(x1 + i), Avg(LoadAt(x0 + i), LoadAt(x2 + i)));
      const T d1 = Sub(LoadAt(x3 + i), Avg(LoadAt(x2 + i), LoadAt(x4 + i)));
      StoreAt(low + i, Add(LoadAt(x2 + i), Quarter(d0, d1)));
      StoreAt(high + i, phase ? d0 : d1);
    }
  }
  static void ColInv(const T* sA, const T* dA, const T* dB, const T* sB, const T* dC, T* even,
                     T* odd, int32_t n, int32_t phase, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i) {
      const T b = LoadAt(dB + i);
      const T e0 = Sub(LoadAt(sA + i), Quarter(LoadAt(dA + i), b));
      const T e1 = Sub(LoadAt(sB + i), Quarter(b, LoadAt(dC + i)));
      const T m = Add(b, Avg(e0, e1));
      StoreAt(even + i, phase ? m : e0);
      StoreAt(odd + i, phase ? e1 : m);
    }
  }
  static void LiftFwd(const T* s0, const T* s1, const T* s2, T* low, const T* hp, T* high,
                      int32_t n, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i) {
      const T h = Sub(LoadAt(s1 + i), Avg(LoadAt(s0 + i), LoadAt(s2 + i)));
      StoreAt(high + i, h);
      StoreAt(low + i, Add(LoadAt(s0 + i), Quarter(LoadAt(hp + i), h)));
    }
  }
  static void LiftInv(const T* low, const T* hp, const T* h, const T* ep, T* odd, T* even,
                      int32_t n, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i) {
      const T hpv = LoadAt(hp + i);
      const T e = Sub(LoadAt(low + i), Quarter(hpv, LoadAt(h + i)));
      StoreAt(even + i, e);
      StoreAt(odd + i, Add(hpv, Avg(LoadAt(ep + i), e)));
    }
  }
  // In-place lifting steps on rows: dst -/+= avg(a, b) or quarter(a, b).
  static void HighRows(T* dst, const T* a, const T* b, int32_t n, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i)
      StoreAt(dst + i, Sub(LoadAt(dst + i), Avg(LoadAt(a + i), LoadAt(b + i))));
  }
  static void LowRows(T* dst, const T* a, const T* b, int32_t n, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i)
      StoreAt(dst + i, Add(LoadAt(dst + i), Quarter(LoadAt(a + i), LoadAt(b + i))));
  }
  static void InvLowRows(T* dst, const T* a, const T* b, int32_t n, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i)
      StoreAt(dst + i, Sub(LoadAt(dst + i), Quarter(LoadAt(a + i), LoadAt(b + i))));
  }
  static void InvHighRows(T* dst, const T* a, const T* b, int32_t n, int32_t from = 0) {
    for (int32_t i = from; i < n; ++i)
      StoreAt(dst + i, Add(LoadAt(dst + i), Avg(LoadAt(a + i), LoadAt(b + i))));
  }
};

// ---------------------------------------------------------------- passes
template <class T, class K>
RvtResult FwdRow(const T* pSrc, int32_t srcStep, T* pLow, int32_t lowStep, T* pHigh,
                 int32_t highStep, ImageSize roi, int32_t phase) {
  RVT_CHECK(CheckPass(pSrc, srcStep, pLow, lowStep, pHigh, highStep, roi));
  const int32_t ph = phase ? 1 : 0;
  for (int32_t y = 0; y < roi.height; ++y)
    K::RowFwd(At(pSrc, ptrdiff_t(srcStep) * y), At(pLow, ptrdiff_t(lowStep) * y),
              At(pHigh, ptrdiff_t(highStep) * y), roi.width, ph);
  return rvtStatusOk;
}
template <class T, class K>
RvtResult InvRow(const T* pLow, int32_t lowStep, const T* pHigh, int32_t highStep, ImageSize roi,
                 T* pDst, int32_t dstStep, int32_t phase) {
  RVT_CHECK(CheckPass(pLow, lowStep, pHigh, highStep, pDst, dstStep, roi));
  const int32_t ph = phase ? 1 : 0;
  for (int32_t y = 0; y < roi.height; ++y)
    K::RowInv(At(pLow, ptrdiff_t(lowStep) * y), At(pHigh, ptrdiff_t(highStep) * y),
              At(pDst, ptrdiff_t(dstStep) * y), roi.width, ph);
  return rvtStatusOk;
}
// Column passes of either kernel: the checks, then the kernel's plane form.
template <class T, class K>
RvtResult FwdCol(const T* pSrc, int32_t srcStep, T* pLow, int32_t lowStep, T* pHigh,
                 int32_t highStep, ImageSize roi, int32_t phase) {
  RVT_CHECK(CheckPass(pSrc, srcStep, pLow, lowStep, pHigh, highStep, roi));
  K::ColFwdPlane(pSrc, srcStep, pLow, lowStep, pHigh, highStep, roi.width, roi.height, phase ? 1 : 0);
  return rvtStatusOk;
}
template <class T, class K>
RvtResult InvCol(const T* pLow, int32_t lowStep, const T* pHigh, int32_t highStep, ImageSize roi,
                 T* pDst, int32_t dstStep, int32_t phase) {
  RVT_CHECK(CheckPass(pLow, lowStep, pHigh, highStep, pDst, dstStep, roi));
  K::ColInvPlane(pLow, lowStep, pHigh, highStep, pDst, dstStep, roi.width, roi.height, phase ? 1 : 0);
  return rvtStatusOk;
}
template <class T, class K>
RvtResult FwdLift(const T* s0, const T* s1, const T* s2, T* low, const T* hp, T* high,
                  int32_t width) {
  const void* p[6] = {s0, s1, s2, low, hp, high};
  RVT_CHECK(CheckLift(p, 6, width));
  K::LiftFwd(s0, s1, s2, low, hp, high, width);
  return rvtStatusOk;
}
template <class T, class K>
RvtResult InvLift(const T* low, const T* hp, const T* h, const T* ep, T* odd, T* even,
                  int32_t width) {
  const void* p[6] = {low, hp, h, ep, odd, even};
  RVT_CHECK(CheckLift(p, 6, width));
  K::LiftInv(low, hp, h, ep, odd, even, width);
  return rvtStatusOk;
}

// ---------------------------------------------------------------- whole levels
// Work-buffer bytes of the in-place level (one row or column and its
// extension: none when both sides are shorter than `shortest`), and of the
// four-plane level (a copy of the region added).  5/3: 3 and 4 samples;
// 9/7: 2 and 8.  Computed in 64 bits: a size outside 0..2^32-1 (huge or
// negative sides) is refused by the query, not wrapped.
inline int64_t LineBuf(const ImageRect& r, int bytes, int32_t shortest, int32_t ext) {
  if (r.width < shortest && r.height < shortest) return 0;
  return LineBytes(r, bytes, ext);
}
inline int64_t BufSizeI(const ImageRect& r, int bytes) { return LineBuf(r, bytes, 3, 4); }
// Only for rectangles the checks passed (the pitch then fits).
inline int32_t Pitch(int32_t w, int bytes) { return int32_t(Pitch64(w, bytes)); }
inline int64_t BufSize4(const ImageRect& r, int bytes) {
  return PlaneBytes(BufSizeI(r, bytes), Pitch64(r.width, bytes), r.height);
}
// A size outside 0..2^32-1 is rvtStatusSize, and nothing is stored: a
// wrapped size would under-allocate.
inline RvtResult StoreBufSize(int64_t bytes, uint32_t* pSize) {
  if (bytes < 0 || bytes > kMaxBufBytes) return rvtStatusSize;
  *pSize = uint32_t(bytes);
  return rvtStatusOk;
}
template <int kBytes, int kShortest, int kExt, bool kPlanes>
RvtResult GetBufSize(const ImageRect* pTileRect, uint32_t* pSize) {
  RVT_CHECK(CheckPtr(pTileRect));
  RVT_CHECK(CheckPtr(pSize));
  const int64_t line = LineBuf(*pTileRect, kBytes, kShortest, kExt);
  return StoreBufSize(
      kPlanes ? PlaneBytes(line, Pitch64(pTileRect->width, kBytes), pTileRect->height) : line, pSize);
}

// Mirror of a position about the first and last samples of a length-L
// signal (L >= 3; |overrun| <= 2).
inline int32_t Mirror(int32_t n, int32_t L) { return n < 0 ? -n : n >= L ? 2 * (L - 1) - n : n; }

// Row order of a level: position n (canvas parity (phase + n) & 1; even is
// low-pass) goes to n / 2 among the low rows or nl + n / 2 among the high
// ones; the source of quadrant position q is the inverse.
inline int32_t LowCount(int32_t L, int32_t phase) { return phase ? L / 2 : (L + 1) / 2; }
inline int32_t SourceOf(int32_t q, int32_t nl, int32_t phase) {
  return q < nl ? 2 * q + phase : 2 * (q - nl) + 1 - phase;
}
inline int32_t DestOf(int32_t n, int32_t nl, int32_t phase) {
  return ((phase + n) & 1) == 0 ? (n - phase) / 2 : nl + (n - 1 + phase) / 2;
}
// Permutes the rows of a plane (toQuadrants: interleaved order to low rows
// first) through one row of temporary space, cycle by cycle; a cycle is
// moved from its smallest position.
template <class T>
void PermuteRows(T* p, int32_t step, int32_t w, int32_t h, int32_t phase, bool toQuadrants,
                 T* tmp) {
  const int32_t nl = LowCount(h, phase);
  const size_t bytes = size_t(w) * sizeof(T);
  // prev(q): the row whose content moves into position q.
  auto prev = [&](int32_t q) { return toQuadrants ? SourceOf(q, nl, phase) : DestOf(q, nl, phase); };
  for (int32_t s = 0; s < h; ++s) {
    int32_t q = prev(s);
    if (q == s) continue;
    while (q > s) q = prev(q);
    if (q < s) continue;  // not the cycle's smallest position
    std::memcpy(tmp, At(p, ptrdiff_t(step) * s), bytes);
    int32_t cur = s;
    for (int32_t src = prev(cur); src != s; cur = src, src = prev(cur))
      std::memcpy(At(p, ptrdiff_t(step) * cur), At(p, ptrdiff_t(step) * src), bytes);
    std::memcpy(At(p, ptrdiff_t(step) * cur), tmp, bytes);
  }
}

// Lengths 1 and 2 of a line of samples v[0], v[k] (k = stride in elements).
template <class T>
void FwdShort(T* a, T* b, int32_t L, int32_t phase) {
  if (L == 1) {
    if (phase) StoreAt(a, Add(LoadAt(a), LoadAt(a)));
    return;
  }
  const T xe = phase ? LoadAt(b) : LoadAt(a), xo = phase ? LoadAt(a) : LoadAt(b);
  const T hi = Sub(xo, xe);
  StoreAt(a, Add(xe, T(Wrap32(int64_t(hi) + 1) >> 1)));
  StoreAt(b, hi);
}
template <class T>
void InvShort(T* a, T* b, int32_t L, int32_t phase) {
  if (L == 1) {
    if (phase) StoreAt(a, T(LoadAt(a) >> 1));
    return;
  }
  const T lo = LoadAt(a), hi = LoadAt(b);
  const T xe = Sub(lo, T(Wrap32(int64_t(hi) + 1) >> 1)), xo = Add(hi, xe);
  StoreAt(a, phase ? xo : xe);
  StoreAt(b, phase ? xe : xo);
}

// One row, forward (L >= 3): the row is copied with its extension into
// buf (L + 4 samples) and the bands are written back, low-pass first.
template <class T, class K>
void FwdLine(T* row, int32_t L, int32_t phase, T* buf) {
  T* x = buf + 2;
  std::memcpy(x, row, size_t(L) * sizeof(T));
  for (int32_t k = 1; k <= 2; ++k) {
    StoreAt(x - k, LoadAt(x + k));
    StoreAt(x + L - 1 + k, LoadAt(x + L - 1 - k));
  }
  const int32_t nl = LowCount(L, phase), nh = L - nl;
  T* low = row;
  T* high = row + nl;
  if (phase == 0) {
    K::RowFwd(x, low, high, nh, 0);
    if (L & 1) {  // the last sample is a low-pass one
      const T* b = x + L - 3;
      const T d0 = Sub(LoadAt(b + 1), Avg(LoadAt(b), LoadAt(b + 2)));
      const T d1 = Sub(LoadAt(b + 3), Avg(LoadAt(b + 2), LoadAt(b + 4)));
      StoreAt(low + nl - 1, Add(LoadAt(b + 2), Quarter(d0, d1)));
    }
  } else {
    K::RowFwd(x, low, high, nl, 1);
    if (L & 1) {  // the last sample is a high-pass one
      const T* b = x + L - 2;
      StoreAt(high + nh - 1, Sub(LoadAt(b + 1), Avg(LoadAt(b), LoadAt(b + 2))));
    }
  }
}

// One row, inverse (L >= 3): the bands (low-pass first in the row) are
// copied with one extension coefficient on each side into buf (L + 4
// samples) and the samples written back.
template <class T, class K>
void InvLine(T* row, int32_t L, int32_t phase, T* buf) {
  const int32_t nl = LowCount(L, phase), nh = L - nl;
  T* s = buf + 1;
  T* d = buf + nl + 3;
  std::memcpy(s, row, size_t(nl) * sizeof(T));
  std::memcpy(d, row + nl, size_t(nh) * sizeof(T));
  auto low_at = [&](int32_t k) { return (Mirror(2 * k + phase, L) - phase) / 2; };
  auto high_at = [&](int32_t k) { return (Mirror(2 * k + 1 - phase, L) - 1 + phase) / 2; };
  StoreAt(s - 1, LoadAt(s + low_at(-1)));
  StoreAt(s + nl, LoadAt(s + low_at(nl)));
  StoreAt(d - 1, LoadAt(d + high_at(-1)));
  StoreAt(d + nh, LoadAt(d + high_at(nh)));
  if (phase == 0) {
    K::RowInv(s, d, row, nh, 0);
    if (L & 1) StoreAt(row + L - 1, Sub(LoadAt(s + nl - 1), Quarter(LoadAt(d + nh - 1), LoadAt(d + nh))));
  } else {
    K::RowInv(s, d, row, nl, 1);
    if (L & 1) {
      const T e = Sub(LoadAt(s + nl), Quarter(LoadAt(d + nh - 1), LoadAt(d + nh)));
      StoreAt(row + L - 1, Add(LoadAt(d + nh - 1), Avg(LoadAt(row + L - 2), e)));
    }
  }
}

// The in-place level on a plane: vertical then horizontal (forward);
// horizontal then vertical (inverse).  Vertical lifting runs on whole rows
// in place (mirrored rows serve as the extension) in one sweep down the
// plane: at step n the high-pass row n, then the low-pass row n - 1 (its
// neighbours are final), then the horizontal pass of row n - 2 (read by
// no later vertical step); the rows then move to their quadrants.  The
// inverse sweeps in the mirror order.
template <class T, class K>
void LevelFwd(T* p, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf) {
  auto row = [&](int32_t n) { return At(p, ptrdiff_t(step) * n); };
  auto horizontal = [&](int32_t y) {
    if (w < 3) {
      FwdShort(row(y), w > 1 ? row(y) + 1 : nullptr, w, px);
    } else {
      FwdLine<T, K>(row(y), w, px, buf);
    }
  };
  if (h < 3) {
    for (int32_t x = 0; x < w; ++x) FwdShort(row(0) + x, h > 1 ? row(1) + x : nullptr, h, py);
    for (int32_t y = 0; y < h; ++y) horizontal(y);
    return;
  }
  auto high = [&](int32_t n) { return ((py + n) & 1) != 0; };
  for (int32_t n = 0; n <= h + 1; ++n) {
    if (n < h && high(n)) K::HighRows(row(n), row(Mirror(n - 1, h)), row(Mirror(n + 1, h)), w);
    const int32_t m = n - 1;
    if (m >= 0 && m < h && !high(m)) K::LowRows(row(m), row(Mirror(m - 1, h)), row(Mirror(m + 1, h)), w);
    if (n >= 2) horizontal(n - 2);
  }
  PermuteRows(p, step, w, h, py, true, buf);
}
template <class T, class K>
void LevelInv(T* p, int32_t step, int32_t w, int32_t h, int32_t px, int32_t py, T* buf) {
  auto row = [&](int32_t n) { return At(p, ptrdiff_t(step) * n); };
  auto horizontal = [&](int32_t y) {
    if (w < 3) {
      InvShort(row(y), w > 1 ? row(y) + 1 : nullptr, w, px);
    } else {
      InvLine<T, K>(row(y), w, px, buf);
    }
  };
  if (h < 3) {
    for (int32_t y = 0; y < h; ++y) horizontal(y);
    for (int32_t x = 0; x < w; ++x) InvShort(row(0) + x, h > 1 ? row(1) + x : nullptr, h, py);
    return;
  }
  PermuteRows(p, step, w, h, py, false, buf);
  auto high = [&](int32_t n) { return ((py + n) & 1) != 0; };
  for (int32_t n = 0; n <= h + 1; ++n) {
    if (n < h) horizontal(n);
    const int32_t m = n - 1, k = n - 2;
    if (m >= 0 && m < h && !high(m)) K::InvLowRows(row(m), row(Mirror(m - 1, h)), row(Mirror(m + 1, h)), w);
    if (k >= 0 && high(k)) K::InvHighRows(row(k), row(Mirror(k - 1, h)), row(Mirror(k + 1, h)), w);
  }
}

// Band rectangles of the four-plane functions, from the size alone:
// origin (x, y) in the quadrant layout and size.
struct Band {
  int32_t x, y, w, h;
};
inline Band BandOf(int k, int32_t w, int32_t h) {
  const int32_t lw = (w + 1) >> 1, lh = (h + 1) >> 1;
  const bool hx = k == 2 || k == 3, hy = k == 1 || k == 3;
  return {hx ? lw : 0, hy ? lh : 0, hx ? w >> 1 : lw, hy ? h >> 1 : lh};
}
template <class T>
void CopyRect(const T* src, int32_t srcStep, T* dst, int32_t dstStep, int32_t w, int32_t h) {
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(At(dst, ptrdiff_t(dstStep) * y), At(src, ptrdiff_t(srcStep) * y), size_t(w) * sizeof(T));
}

// Whole-level drivers of either kernel; level(plane, step, w, h, px, py,
// buf) runs the level in place.
// `ext`: the extension samples of the kernel's line buffer (5/3: 4, 9/7: 8).
template <class T, class Lv>
RvtResult LevelI(T* pSrcDst, int32_t step, const ImageRect* pTileRect, uint8_t* pBuffer, Lv level,
                 int ext) {
  RVT_CHECK(CheckLevelI(pSrcDst, step, pTileRect, pBuffer, int(sizeof(T)), ext));
  const ImageRect r = *pTileRect;
  level(pSrcDst, step, r.width, r.height, r.x & 1, r.y & 1, reinterpret_cast<T*>(pBuffer));
  return rvtStatusOk;
}
template <class T, class Lv>
RvtResult Level4Fwd(const T* pSrc, int32_t srcStep, const ImageRect* pTileRect, T* const pDst[4],
                    const int32_t dstStep[4], uint8_t* pBuffer, Lv level, int ext) {
  RVT_CHECK(CheckLevel4(pSrc, srcStep, pDst, dstStep, pTileRect, pBuffer, ext));
  const ImageRect r = *pTileRect;
  const int32_t pitch = Pitch(r.width, sizeof(T));
  T* copy = reinterpret_cast<T*>(pBuffer);
  CopyRect(pSrc, srcStep, copy, pitch, r.width, r.height);
  level(copy, pitch, r.width, r.height, r.x & 1, r.y & 1,
        reinterpret_cast<T*>(pBuffer + size_t(pitch) * size_t(r.height)));
  for (int k = 0; k < 4; ++k) {
    const Band b = BandOf(k, r.width, r.height);
    CopyRect<T>(At(copy, ptrdiff_t(pitch) * b.y) + b.x, pitch, pDst[k], dstStep[k], b.w, b.h);
  }
  return rvtStatusOk;
}
template <class T, class Lv>
RvtResult Level4Inv(const T* const pSrc[4], const int32_t srcStep[4], T* pDst, int32_t dstStep,
                    const ImageRect* pTileRect, uint8_t* pBuffer, Lv level, int ext) {
  RVT_CHECK(CheckLevel4(pDst, dstStep, pSrc, srcStep, pTileRect, pBuffer, ext));
  const ImageRect r = *pTileRect;
  const int32_t pitch = Pitch(r.width, sizeof(T));
  T* copy = reinterpret_cast<T*>(pBuffer);
  for (int k = 0; k < 4; ++k) {
    const Band b = BandOf(k, r.width, r.height);
    CopyRect(pSrc[k], srcStep[k], At(copy, ptrdiff_t(pitch) * b.y) + b.x, pitch, b.w, b.h);
  }
  level(copy, pitch, r.width, r.height, r.x & 1, r.y & 1,
        reinterpret_cast<T*>(pBuffer + size_t(pitch) * size_t(r.height)));
  CopyRect<T>(copy, pitch, pDst, dstStep, r.width, r.height);
  return rvtStatusOk;
}
// The level entries of level functions FWD and INV.
#define RVT_WT_LEVEL_ENTRIES(PRE, T, FWD, INV, EXT)                                                       \
  inline RvtResult PRE##FwdI(T* p, int32_t s, const ImageRect* r, uint8_t* b) {                  \
    return ::rvt::wt53::LevelI<T>(p, s, r, b, FWD, EXT);                                             \
  }                                                                                              \
  inline RvtResult PRE##InvI(T* p, int32_t s, const ImageRect* r, uint8_t* b) {                  \
    return ::rvt::wt53::LevelI<T>(p, s, r, b, INV, EXT);                                             \
  }                                                                                              \
  inline RvtResult PRE##Fwd4(const T* p, int32_t s, const ImageRect* r, T* const d[4],           \
                             const int32_t ds[4], uint8_t* b) {                                  \
    return ::rvt::wt53::Level4Fwd<T>(p, s, r, d, ds, b, FWD, EXT);                                   \
  }                                                                                              \
  inline RvtResult PRE##Inv4(const T* const p[4], const int32_t s[4], T* d, int32_t ds,          \
                             const ImageRect* r, uint8_t* b) {                                   \
    return ::rvt::wt53::Level4Inv<T>(p, s, d, ds, r, b, INV, EXT);                                   \
  }

// ---------------------------------------------------------------- entries
// Entries of one kernel set (the reference's here, a target's in wt53.cc).
#define RVT_WT53_ENTRIES(PRE, T, K)                                                              \
  inline RvtResult PRE##FwdRow(const T* a, int32_t as, T* b, int32_t bs, T* c, int32_t cs,       \
                               ImageSize r, int32_t ph) {                                        \
    return ::rvt::wt53::FwdRow<T, K>(a, as, b, bs, c, cs, r, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##FwdCol(const T* a, int32_t as, T* b, int32_t bs, T* c, int32_t cs,       \
                               ImageSize r, int32_t ph) {                                        \
    return ::rvt::wt53::FwdCol<T, K>(a, as, b, bs, c, cs, r, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##InvRow(const T* a, int32_t as, const T* b, int32_t bs, ImageSize r,      \
                               T* c, int32_t cs, int32_t ph) {                                   \
    return ::rvt::wt53::InvRow<T, K>(a, as, b, bs, r, c, cs, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##InvCol(const T* a, int32_t as, const T* b, int32_t bs, ImageSize r,      \
                               T* c, int32_t cs, int32_t ph) {                                   \
    return ::rvt::wt53::InvCol<T, K>(a, as, b, bs, r, c, cs, ph);                                \
  }                                                                                              \
  inline RvtResult PRE##FwdLift(const T* a, const T* b, const T* c, T* d, const T* e, T* f,      \
                                int32_t w) {                                                     \
    return ::rvt::wt53::FwdLift<T, K>(a, b, c, d, e, f, w);                                      \
  }                                                                                              \
  inline RvtResult PRE##InvLift(const T* a, const T* b, const T* c, const T* d, T* e, T* f,      \
                                int32_t w) {                                                     \
    return ::rvt::wt53::InvLift<T, K>(a, b, c, d, e, f, w);                                      \
  }                                                                                              \
  RVT_WT_LEVEL_ENTRIES(PRE, T, (::rvt::wt53::LevelFwd<T, K>), (::rvt::wt53::LevelInv<T, K>), 4)

RVT_WT53_ENTRIES(Ref16, int16_t, RefKernels<int16_t>)
RVT_WT53_ENTRIES(Ref32, int32_t, RefKernels<int32_t>)

}  // namespace rvt::wt53

#endif  // RVT_JPEG2K_WT53_H_
