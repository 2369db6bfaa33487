// BC6H block encoding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/bc6h_encode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/bc6h_encode-inl.h"
#include "texture/bc6h_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc6h_encode::HWY_NAMESPACE {

RvtResult Bc6uEntry(const uint16_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Region<false, Select>(reinterpret_cast<const uint8_t*>(s), step, d, roi, q);
}
RvtResult Bc6sEntry(const int16_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Region<true, Select>(reinterpret_cast<const uint8_t*>(s), step, d, roi, q);
}

}  // namespace rvt::bc6h_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R, bc6h_encode, Bc6uEntry, Bc6uRef);
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R, bc6h_encode, Bc6sEntry, Bc6sRef);
}  // namespace rvt
#endif  // HWY_ONCE
