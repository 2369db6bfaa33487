// Component transforms of three components: the reversible one (RCT,
// integer, exactly invertible) and the irreversible one (ICT, the YCbCr
// matrix in float, in Q14 for 32-bit samples and in a two-stage Q14 form
// with saturation for 16-bit samples).  The checks, the scalar reference
// (one pixel at a time) and the region drivers.
#ifndef RVT_JPEG2K_CT_H_
#define RVT_JPEG2K_CT_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/checks.h"
#include "frame/unaligned.h"
#include "rvtjp.h"

namespace rvt::ct {

// ---------------------------------------------------------------- checks
// Every pointer first (the interleaved pointer or the plane array, then the
// planes inside it, in argument order), then the steps, then the size.
template <class A, class P>
RvtResult CheckPlanes(const A* planes, const P* other) {
  RVT_CHECK(CheckPtr(planes));
  for (int k = 0; k < 3; ++k) RVT_CHECK(CheckPtr(planes[k]));
  return CheckPtr(other);
}
template <class T>
RvtResult CheckC3P3(const T* src, int32_t srcStep, T* const dst[3], int32_t dstStep, ImageSize roi) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  for (int k = 0; k < 3; ++k) RVT_CHECK(CheckPtr(dst[k]));
  if (srcStep < 1 || dstStep < 1) return rvtStatusStep;
  return CheckRoi(roi);
}
template <class T>
RvtResult CheckP3C3(const T* const src[3], int32_t srcStep, T* dst, int32_t dstStep, ImageSize roi) {
  RVT_CHECK(CheckPtr(src));
  for (int k = 0; k < 3; ++k) RVT_CHECK(CheckPtr(src[k]));
  RVT_CHECK(CheckPtr(dst));
  if (srcStep < 1 || dstStep < 1) return rvtStatusStep;
  return CheckRoi(roi);
}
template <class T>
RvtResult CheckP3(T* const p[3], int32_t step, ImageSize roi) {
  RVT_CHECK(CheckPtr(p));
  for (int k = 0; k < 3; ++k) RVT_CHECK(CheckPtr(p[k]));
  if (step < 1) return rvtStatusStep;
  return CheckRoi(roi);
}

// ---------------------------------------------------------------- pixels
// Each transform: Fwd(r, g, b) -> (c0, c1, c2) and Inv(c0, c1, c2) -> (r, g, b).
inline int32_t Wrap32(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }
inline int16_t Sat16(int32_t v) { return int16_t(v < -32768 ? -32768 : v > 32767 ? 32767 : v); }

template <class T>
struct Rct {
  // Sums in 32 bits (wrapping for 32-bit samples), results truncated.
  static void Fwd(T r, T g, T b, T& y, T& u, T& v) {
    y = T(Wrap32(int64_t(r) + 2 * int64_t(g) + b) >> 2);
    u = T(Wrap32(int64_t(b) - g));
    v = T(Wrap32(int64_t(r) - g));
  }
  static void Inv(T y, T u, T v, T& r, T& g, T& b) {
    const int32_t gg = Wrap32(int64_t(y) - (Wrap32(int64_t(u) + v) >> 2));
    g = T(gg);
    r = T(Wrap32(int64_t(v) + gg));
    b = T(Wrap32(int64_t(u) + gg));
  }
};

struct IctF {
  static constexpr float kYr = 0.299f, kYg = 0.587f, kYb = 0.114f;
  static constexpr float kUr = -0.16875f, kUg = -0.33126f, kUb = 0.5f;
  static constexpr float kVr = 0.5f, kVg = -0.41869f, kVb = -0.08131f;
  static constexpr float kRv = 1.402f, kGu = 0.34413f, kGv = 0.71414f, kBu = 1.772f;
  // Left to right: (c0 r + c1 g) + c2 b.
  static void Fwd(float r, float g, float b, float& y, float& u, float& v) {
    y = kYr * r + kYg * g + kYb * b;
    u = kUr * r + kUg * g + kUb * b;
    v = kVr * r + kVg * g + kVb * b;
  }
  // r = y + 1.402 cr, g = (y - 0.34413 cb) - 0.71414 cr, b = y + 1.772 cb.
  static void Inv(float y, float u, float v, float& r, float& g, float& b) {
    r = y + kRv * v;
    g = y - kGu * u - kGv * v;
    b = y + kBu * u;
  }
};

// Q14, rounded by adding 8192 before the shift; products and sums wrap in
// 32 bits, results are stored as computed.
struct Ict32 {
  static void Fwd(int32_t r, int32_t g, int32_t b, int32_t& y, int32_t& u, int32_t& v) {
    y = Wrap32(4899LL * r + 9617LL * g + 1868LL * b + 8192) >> 14;
    u = Wrap32(-2765LL * r - 5427LL * g + 8192LL * b + 8192) >> 14;
    v = Wrap32(8192LL * r - 6860LL * g - 1332LL * b + 8192) >> 14;
  }
  static void Inv(int32_t y, int32_t u, int32_t v, int32_t& r, int32_t& g, int32_t& b) {
    r = Wrap32(int64_t(y) + (Wrap32(22970LL * v + 8192) >> 14));
    g = Wrap32(int64_t(y) + (Wrap32(-5638LL * u - 11700LL * v + 8192) >> 14));
    b = Wrap32(int64_t(y) + (Wrap32(29032LL * u + 8192) >> 14));
  }
};

// 16-bit samples: Y from the Q14 sum S; the differences B - Y and R - Y
// rounded to integers first (32-bit, unsaturated), then scaled by
// 0.5 / (1 - 0.114) and 0.5 / (1 - 0.299) in Q14; each result saturated.
struct Ict16 {
  static void Fwd(int16_t r, int16_t g, int16_t b, int16_t& y, int16_t& u, int16_t& v) {
    const int32_t s = 4899 * r + 9617 * g + 1868 * b;
    y = Sat16((s + 8192) >> 14);
    u = Sat16(((((b * 16384) - s + 8192) >> 14) * 9246 + 8192) >> 14);
    v = Sat16(((((r * 16384) - s + 8192) >> 14) * 11686 + 8192) >> 14);
  }
  static void Inv(int16_t y, int16_t u, int16_t v, int16_t& r, int16_t& g, int16_t& b) {
    r = Sat16(y + ((22970 * v + 8192) >> 14));
    g = Sat16(y + ((-5638 * u - 11700 * v + 8192) >> 14));
    b = Sat16(y + ((29032 * u + 8192) >> 14));
  }
};

// ---------------------------------------------------------------- rows
// Reference rows from pixel x0 to n - 1 (vector rows finish their tails
// with them).  Elements may sit at any address.
template <class Op, class T>
void FwdC3P3Ref(const T* s, T* y, T* u, T* v, int32_t x0, int32_t n) {
  for (int32_t x = x0; x < n; ++x) {
    T a, b, c;
    Op::Fwd(LoadAt(s + 3 * x), LoadAt(s + 3 * x + 1), LoadAt(s + 3 * x + 2), a, b, c);
    StoreAt(y + x, a), StoreAt(u + x, b), StoreAt(v + x, c);
  }
}
template <class Op, class T>
void FwdP3Ref(T* p0, T* p1, T* p2, int32_t x0, int32_t n) {
  for (int32_t x = x0; x < n; ++x) {
    T a, b, c;
    Op::Fwd(LoadAt(p0 + x), LoadAt(p1 + x), LoadAt(p2 + x), a, b, c);
    StoreAt(p0 + x, a), StoreAt(p1 + x, b), StoreAt(p2 + x, c);
  }
}
template <class Op, class T>
void InvP3C3Ref(const T* y, const T* u, const T* v, T* d, int32_t x0, int32_t n) {
  for (int32_t x = x0; x < n; ++x) {
    T a, b, c;
    Op::Inv(LoadAt(y + x), LoadAt(u + x), LoadAt(v + x), a, b, c);
    StoreAt(d + 3 * x, a), StoreAt(d + 3 * x + 1, b), StoreAt(d + 3 * x + 2, c);
  }
}
template <class Op, class T>
void InvP3Ref(T* p0, T* p1, T* p2, int32_t x0, int32_t n) {
  for (int32_t x = x0; x < n; ++x) {
    T a, b, c;
    Op::Inv(LoadAt(p0 + x), LoadAt(p1 + x), LoadAt(p2 + x), a, b, c);
    StoreAt(p0 + x, a), StoreAt(p1 + x, b), StoreAt(p2 + x, c);
  }
}

template <class T>
T* RowAt(T* p, int32_t step, int32_t y) {
  using B = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<B*>(p) + ptrdiff_t(step) * y);
}

// ---------------------------------------------------------------- drivers
// Row kernels take (..., n); the drivers check, then run every row.
template <class T, void (*kRow)(const T*, T*, T*, T*, int32_t)>
RvtResult C3P3(const T* pSrc, int32_t srcStep, T* const pDst[3], int32_t dstStep, ImageSize roi) {
  RVT_CHECK(CheckC3P3(pSrc, srcStep, pDst, dstStep, roi));
  for (int32_t y = 0; y < roi.height; ++y) {
    kRow(RowAt(pSrc, srcStep, y), RowAt(pDst[0], dstStep, y), RowAt(pDst[1], dstStep, y),
         RowAt(pDst[2], dstStep, y), roi.width);
  }
  return rvtStatusOk;
}
template <class T, void (*kRow)(const T*, const T*, const T*, T*, int32_t)>
RvtResult P3C3(const T* const pSrc[3], int32_t srcStep, T* pDst, int32_t dstStep, ImageSize roi) {
  RVT_CHECK(CheckP3C3(pSrc, srcStep, pDst, dstStep, roi));
  for (int32_t y = 0; y < roi.height; ++y) {
    kRow(RowAt(pSrc[0], srcStep, y), RowAt(pSrc[1], srcStep, y), RowAt(pSrc[2], srcStep, y),
         RowAt(pDst, dstStep, y), roi.width);
  }
  return rvtStatusOk;
}
template <class T, void (*kRow)(T*, T*, T*, int32_t)>
RvtResult P3(T* const p[3], int32_t step, ImageSize roi) {
  RVT_CHECK(CheckP3(p, step, roi));
  for (int32_t y = 0; y < roi.height; ++y) {
    kRow(RowAt(p[0], step, y), RowAt(p[1], step, y), RowAt(p[2], step, y), roi.width);
  }
  return rvtStatusOk;
}

// Whole reference rows.
template <class Op, class T>
void FwdC3P3Row(const T* s, T* y, T* u, T* v, int32_t n) { FwdC3P3Ref<Op>(s, y, u, v, 0, n); }
template <class Op, class T>
void FwdP3Row(T* a, T* b, T* c, int32_t n) { FwdP3Ref<Op>(a, b, c, 0, n); }
template <class Op, class T>
void InvP3C3Row(const T* y, const T* u, const T* v, T* d, int32_t n) { InvP3C3Ref<Op>(y, u, v, d, 0, n); }
template <class Op, class T>
void InvP3Row(T* a, T* b, T* c, int32_t n) { InvP3Ref<Op>(a, b, c, 0, n); }

// Entries of one export family built from row kernels of one op (the
// reference's here, a target's in ct.cc).
#define RVT_CT_ENTRIES(PRE, Op, T, FC3, FP3, IC3, IP3)                                      \
  inline RvtResult PRE##FwdC3P3(const T* s, int32_t ss, T* const d[3], int32_t ds,           \
                                ImageSize r) {                                              \
    return ::rvt::ct::C3P3<T, FC3>(s, ss, d, ds, r);                                        \
  }                                                                                         \
  inline RvtResult PRE##FwdP3(T* const p[3], int32_t st, ImageSize r) {                     \
    return ::rvt::ct::P3<T, FP3>(p, st, r);                                                 \
  }                                                                                         \
  inline RvtResult PRE##InvP3C3(const T* const s[3], int32_t ss, T* d, int32_t ds,          \
                                ImageSize r) {                                              \
    return ::rvt::ct::P3C3<T, IC3>(s, ss, d, ds, r);                                        \
  }                                                                                         \
  inline RvtResult PRE##InvP3(T* const p[3], int32_t st, ImageSize r) {                     \
    return ::rvt::ct::P3<T, IP3>(p, st, r);                                                 \
  }
#define RVT_CT_REF_ENTRIES(PRE, Op, T)                                                     \
  RVT_CT_ENTRIES(PRE, Op, T, (FwdC3P3Row<Op, T>), (FwdP3Row<Op, T>), (InvP3C3Row<Op, T>), \
                 (InvP3Row<Op, T>))

RVT_CT_REF_ENTRIES(Rct16Ref, Rct<int16_t>, int16_t)
RVT_CT_REF_ENTRIES(Rct32Ref, Rct<int32_t>, int32_t)
RVT_CT_REF_ENTRIES(IctFRef, IctF, float)
RVT_CT_REF_ENTRIES(Ict32Ref, Ict32, int32_t)
RVT_CT_REF_ENTRIES(Ict16Ref, Ict16, int16_t)

}  // namespace rvt::ct

#endif  // RVT_JPEG2K_CT_H_
