// BC4 and BC5 block encoding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/bc_encode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/bc_encode-inl.h"
#include "texture/bc_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc_encode::HWY_NAMESPACE {

RvtResult Bc4Entry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return ChannelsFast<1>(s, step, d, roi, q);
}
RvtResult Bc5Entry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return ChannelsFast<2>(s, step, d, roi, q);
}

}  // namespace rvt::bc_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureEncodeBlock_BC4_8u_C1R, bc_encode, Bc4Entry, Bc4Ref);
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R, bc_encode, Bc5Entry, Bc5Ref);
}  // namespace rvt
#endif  // HWY_ONCE
