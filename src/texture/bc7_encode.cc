// BC7 block encoding: the per-target build and the descriptor.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/bc7_encode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/bc7_encode-inl.h"
#include "texture/bc7_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc7_encode::HWY_NAMESPACE {

RvtResult Bc7Entry(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return q == 0 ? EncodeFast(s, step, d, roi) : Encode<Kernel>(s, step, d, roi, q);
}

}  // namespace rvt::bc7_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R, bc7_encode, Bc7Entry, Bc7Ref);
}  // namespace rvt
#endif  // HWY_ONCE
