// Fused chroma up-sampling and colour conversion: the per-target build and
// the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/upsample_color.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/upsample_color-inl.h"
#include "jpeg/upsample_color.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::upsample_color::HWY_NAMESPACE {

RvtResult Row420Entry(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf,
                      const uint8_t* crn, const uint8_t* crf, uint8_t* dst, int32_t width) {
  return upsample_color::Row420<Row420>(y, cbn, cbf, crn, crf, dst, width);
}
RvtResult Row422Entry(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst,
                      int32_t width) {
  return upsample_color::Row422<Row422>(y, cb, cr, dst, width);
}

}  // namespace rvt::upsample_color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R, upsample_color, Row420Entry,
             Row420EntryRef);
RVT_IMPL_HWY(rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R, upsample_color, Row422Entry,
             Row422EntryRef);
}  // namespace rvt
#endif  // HWY_ONCE
