// Level shift of whole planes: 8-bit samples <-> signed 16-bit values
// centred on zero.  The scalar rows here define every result; the argument
// checks and the row driver live here too, so every target shares them.
#ifndef RVT_JPEG_LEVEL_SHIFT_H_
#define RVT_JPEG_LEVEL_SHIFT_H_

#include <cstdint>

#include "frame/checks.h"
#include "frame/threading.h"
#include "frame/unaligned.h"
#include "rvtjp.h"

namespace rvt::level_shift {

// ------------------------------------------------------------ reference

// dst = clamp(src + 128, 0, 255), the sum formed without wrapping.  16-bit
// elements may sit at odd addresses.
inline void Add128RowRef(const int16_t* src, uint8_t* dst, int n) {
  for (int x = 0; x < n; ++x) {
    const int v = LoadAt(src + x) + 128;
    dst[x] = uint8_t(v < 0 ? 0 : (v > 255 ? 255 : v));
  }
}

// dst = src - 128, exact.
inline void Sub128RowRef(const uint8_t* src, int16_t* dst, int n) {
  for (int x = 0; x < n; ++x) StoreAt(dst + x, int16_t(src[x] - 128));
}

// ------------------------------------------------------------ checks

// Both exports: src, srcStep, dst, dstStep, then the region.  Steps are not
// compared with the width: rows may overlap.
inline RvtResult Check(const void* src, int32_t srcStep, const void* dst, int32_t dstStep,
                       ImageSize roi) {
  RVT_CHECK(CheckPlane(src, srcStep));
  RVT_CHECK(CheckPlane(dst, dstStep));
  return CheckRoi(roi);
}

// ------------------------------------------------------------ driver

// Checks, then hands every row to kRow under the threading rule.
template <class S, class D, void (*kRow)(const S*, D*, int)>
RvtResult Region(const S* src, int32_t srcStep, D* dst, int32_t dstStep, ImageSize roi) {
  RVT_CHECK(Check(src, srcStep, dst, dstStep, roi));
  ForEachRow(roi, [&](int y) { kRow(RowPtr(src, srcStep, y), RowPtr(dst, dstStep, y), roi.width); });
  return rvtStatusOk;
}

// The reference entries: the scalar rows behind the same checks and driver.
inline RvtResult Add128Ref(const int16_t* src, int32_t ss, uint8_t* dst, int32_t ds, ImageSize roi) {
  return Region<int16_t, uint8_t, Add128RowRef>(src, ss, dst, ds, roi);
}
inline RvtResult Sub128Ref(const uint8_t* src, int32_t ss, int16_t* dst, int32_t ds, ImageSize roi) {
  return Region<uint8_t, int16_t, Sub128RowRef>(src, ss, dst, ds, roi);
}

}  // namespace rvt::level_shift

#endif  // RVT_JPEG_LEVEL_SHIFT_H_
