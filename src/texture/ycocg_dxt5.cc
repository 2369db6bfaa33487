// Scaled YCoCg in DXT5 blocks: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/ycocg_dxt5.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/ycocg_dxt5-inl.h"
#include "texture/ycocg_dxt5.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::ycocg_dxt5::HWY_NAMESPACE {

RvtResult DecodeEntry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<YCoCg, Row>(s, d, step, roi);
}

RvtResult EncodeEntry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<Kernels>(s, step, d, roi, q);
}

}  // namespace rvt::ycocg_dxt5::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R, ycocg_dxt5, DecodeEntry, DecodeRef);
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R, ycocg_dxt5, EncodeEntry, EncodeRef);
}  // namespace rvt
#endif  // HWY_ONCE
