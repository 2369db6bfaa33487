// BC1 to BC5 block decoding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "texture/bc_decode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "texture/bc_decode-inl.h"
#include "texture/bc_decode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc_decode::HWY_NAMESPACE {

RvtResult Dxt1Entry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return RegionLarge<Dxt1, RowDxt1<false>, RowDxt1<true>>(s, d, step, roi);
}
RvtResult Dxt3Entry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return RegionLarge<Dxt3, RowDxtAlpha<Dxt3, false>, RowDxtAlpha<Dxt3, true>>(s, d, step, roi);
}
RvtResult Dxt5Entry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return RegionLarge<Dxt5, RowDxtAlpha<Dxt5, false>, RowDxtAlpha<Dxt5, true>>(s, d, step, roi);
}
RvtResult Bc4Entry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return RegionLarge<Bc4, RowBc4<false>, RowBc4<true>>(s, d, step, roi);
}
RvtResult Bc5Entry(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return RegionLarge<Bc5, RowBc5<false>, RowBc5<true>>(s, d, step, roi);
}

}  // namespace rvt::bc_decode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, bc_decode, Dxt1Entry, Dxt1Ref);
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, bc_decode, Dxt3Entry, Dxt3Ref);
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, bc_decode, Dxt5Entry, Dxt5Ref);
RVT_IMPL_HWY(rvtiTextureDecodeBlock_BC4_8u_C1R, bc_decode, Bc4Entry, Bc4Ref);
RVT_IMPL_HWY(rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, bc_decode, Bc5Entry, Bc5Ref);
}  // namespace rvt
#endif  // HWY_ONCE
