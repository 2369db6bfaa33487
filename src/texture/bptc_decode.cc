// BC7 and BC6H block decoding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/bptc_decode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/bptc_decode-inl.h"
#include "texture/bptc_decode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bptc_decode::HWY_NAMESPACE {

RvtResult Bc7Entry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<Bc7, TileRow<Bc7, Bc7Tile>>(s, d, step, roi);
}
RvtResult Bc6uEntry(const uint8_t* s, uint16_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<Bc6<false>, TileRow<Bc6<false>, Bc6Tile<false>>>(
      s, reinterpret_cast<uint8_t*>(d), step, roi);
}
RvtResult Bc6sEntry(const uint8_t* s, int16_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<Bc6<true>, TileRow<Bc6<true>, Bc6Tile<true>>>(
      s, reinterpret_cast<uint8_t*>(d), step, roi);
}

}  // namespace rvt::bptc_decode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R, bptc_decode, Bc7Entry, Bc7Ref);
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R, bptc_decode, Bc6uEntry, Bc6uRef);
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R, bptc_decode, Bc6sEntry, Bc6sRef);
}  // namespace rvt
#endif  // HWY_ONCE
