// Level shift of whole planes: 8-bit samples <-> signed 16-bit values
// centred on zero.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/level_shift.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/checks.h"
#include "frame/dispatch.h"
#include "frame/threading.h"
#include "frame/unaligned.h"

#ifndef RVT_FRAME_LEVEL_SHIFT_ONCE
#define RVT_FRAME_LEVEL_SHIFT_ONCE
namespace rvt {

using Add128RowFn = void (*)(const int16_t*, uint8_t*, int);
using Sub128RowFn = void (*)(const uint8_t*, int16_t*, int);

template <Add128RowFn kRow>
RvtResult Add128Region(const int16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                       ImageSize roi) {
  RVT_CHECK(CheckPlane(src, srcStep));
  RVT_CHECK(CheckPlane(dst, dstStep));
  RVT_CHECK(CheckRoi(roi));
  ForEachRow(roi, [&](int y) { kRow(RowPtr(src, srcStep, y), RowPtr(dst, dstStep, y), roi.width); });
  return rvtStatusOk;
}

template <Sub128RowFn kRow>
RvtResult Sub128Region(const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep,
                       ImageSize roi) {
  RVT_CHECK(CheckPlane(src, srcStep));
  RVT_CHECK(CheckPlane(dst, dstStep));
  RVT_CHECK(CheckRoi(roi));
  ForEachRow(roi, [&](int y) { kRow(RowPtr(src, srcStep, y), RowPtr(dst, dstStep, y), roi.width); });
  return rvtStatusOk;
}

// Reference rows: the sum is formed in int, without wrapping.  16-bit
// elements may sit at odd addresses.
inline void Add128RowRef(const int16_t* src, uint8_t* dst, int n) {
  for (int x = 0; x < n; ++x) {
    const int v = LoadAt(src + x) + 128;
    dst[x] = uint8_t(v < 0 ? 0 : (v > 255 ? 255 : v));
  }
}
inline void Sub128RowRef(const uint8_t* src, int16_t* dst, int n) {
  for (int x = 0; x < n; ++x) StoreAt(dst + x, int16_t(src[x] - 128));
}

inline RvtResult Add128Ref(const int16_t* src, int32_t ss, uint8_t* dst, int32_t ds, ImageSize r) {
  return Add128Region<Add128RowRef>(src, ss, dst, ds, r);
}
inline RvtResult Sub128Ref(const uint8_t* src, int32_t ss, int16_t* dst, int32_t ds, ImageSize r) {
  return Sub128Region<Sub128RowRef>(src, ss, dst, ds, r);
}

}  // namespace rvt
#endif  // RVT_FRAME_LEVEL_SHIFT_ONCE

HWY_BEFORE_NAMESPACE();
namespace rvt {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Saturating the sum to 16 bits first gives the same byte as the exact sum.
void Add128Row(const int16_t* src, uint8_t* dst, int n) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const int N = int(hn::Lanes(d16));
  const auto bias = hn::Set(d16, 128);
  int x = 0;
  for (; x + 2 * N <= n; x += 2 * N) {
    const auto a = hn::SaturatedAdd(hn::LoadU(d16, src + x), bias);
    const auto b = hn::SaturatedAdd(hn::LoadU(d16, src + x + N), bias);
    hn::StoreU(hn::DemoteTo(d8, a), d8, dst + x);
    hn::StoreU(hn::DemoteTo(d8, b), d8, dst + x + N);
  }
  if (n >= N) {
    // Last vector may overlap the previous one; rewriting equal bytes is fine.
    for (; x < n; x += N) {
      const int at = x + N <= n ? x : n - N;
      hn::StoreU(hn::DemoteTo(d8, hn::SaturatedAdd(hn::LoadU(d16, src + at), bias)), d8, dst + at);
    }
    return;
  }
  Add128RowRef(src + x, dst + x, n - x);
}

void Sub128Row(const uint8_t* src, int16_t* dst, int n) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const int N = int(hn::Lanes(d16));
  const auto bias = hn::Set(d16, 128);
  int x = 0;
  for (; x + 2 * N <= n; x += 2 * N) {
    hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, src + x)), bias), d16, dst + x);
    hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, src + x + N)), bias), d16, dst + x + N);
  }
  if (n >= N) {
    for (; x < n; x += N) {
      const int at = x + N <= n ? x : n - N;
      hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, src + at)), bias), d16, dst + at);
    }
    return;
  }
  Sub128RowRef(src + x, dst + x, n - x);
}

RvtResult Add128(const int16_t* src, int32_t ss, uint8_t* dst, int32_t ds, ImageSize r) {
  return Add128Region<Add128Row>(src, ss, dst, ds, r);
}
RvtResult Sub128(const uint8_t* src, int32_t ss, int16_t* dst, int32_t ds, ImageSize r) {
  return Sub128Region<Sub128Row>(src, ss, dst, ds, r);
}

}  // namespace HWY_NAMESPACE
}  // namespace rvt
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiAdd128_JPEG_16s8u_C1R, Add128, Add128Ref);
RVT_IMPL_HWY(rvtiSub128_JPEG_8u16s_C1R, Sub128, Sub128Ref);
}  // namespace rvt
#endif
