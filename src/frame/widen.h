// Widening of 8-bit samples to 16-bit values over a region, for the
// builders that keep 8-bit tables and hand out 16-bit ones.
#ifndef RVT_FRAME_WIDEN_H_
#define RVT_FRAME_WIDEN_H_

#include <cstdint>

#include "rvtjp.h"

namespace rvt {

// dst = src per pixel, zero-extended.  Checks the pointers, then the size,
// then the steps (internal callers check their own arguments first).  When
// the rows are contiguous in both planes (srcStep == width, dstStep ==
// 2 * srcStep) the region is converted as one long row.  Regions whose
// traffic (three bytes a pixel) reaches the largest cache are written with
// non-temporal stores so they do not evict the caller's working set.
RvtResult Widen8u16u(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                     ImageSize roi);

// Whether a region of `pixels` pixels is written with non-temporal stores.
bool WidenStreams(int64_t pixels);

}  // namespace rvt

#endif  // RVT_FRAME_WIDEN_H_
