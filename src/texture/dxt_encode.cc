// DXT1, DXT3 and DXT5 block encoding: the per-target build and the
// descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/dxt_encode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/dxt_encode-inl.h"
#include "texture/dxt_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::dxt_encode::HWY_NAMESPACE {

RvtResult Dxt1Entry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<1, Kernels>(s, step, d, roi, q);
}
RvtResult Dxt3Entry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<3, Kernels>(s, step, d, roi, q);
}
RvtResult Dxt5Entry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<5, Kernels>(s, step, d, roi, q);
}

}  // namespace rvt::dxt_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, dxt_encode, Dxt1Entry, Dxt1Ref);
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R, dxt_encode, Dxt3Entry, Dxt3Ref);
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, dxt_encode, Dxt5Entry, Dxt5Ref);
}  // namespace rvt
#endif  // HWY_ONCE
