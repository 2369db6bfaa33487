// The library exports the example JPEG 2000 decoder calls, bound straight
// to their reference entries, so the codec's fuzz target links from the
// library's sources like the other targets (no dispatch frame).
#include "frame/dispatch.h"
#include "rvtjp.h"

namespace rvt {
#define RVT_REF_DECL(name) extern const Impl<decltype(&::name)> impl_##name;
RVT_REF_DECL(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R)
RVT_REF_DECL(rvtiDecodeGetBufSize_JPEG2K)
RVT_REF_DECL(rvtiWTInv_B53_JPEG2K_32s_C1IR)
RVT_REF_DECL(rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR)
RVT_REF_DECL(rvtiWTInvRow_D97_JPEG2K_32f_C1R)
RVT_REF_DECL(rvtiWTInvCol_D97_JPEG2K_32f_C1R)
RVT_REF_DECL(rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R)
RVT_REF_DECL(rvtiWTInvColScaled_D97_JPEG2K_32f_C1R)
RVT_REF_DECL(rvtiRCTInv_JPEG2K_32s_P3IR)
RVT_REF_DECL(rvtiICTInv_JPEG2K_32f_P3IR)
#undef RVT_REF_DECL
}  // namespace rvt

#define RVT_REF(name) rvt::impl_##name.fn[rvt::kNumLevels - 1]
extern "C" {
RvtResult rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(const uint8_t* a, const int32_t* b, int32_t* c, int32_t d,
                                               ImageSize e, int32_t f, int32_t g, int32_t h, int32_t i, int32_t j,
                                               int32_t k, uint8_t* l) {
  return RVT_REF(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R)(a, b, c, d, e, f, g, h, i, j, k, l);
}
RvtResult rvtiDecodeGetBufSize_JPEG2K(ImageSize a, int32_t* b) { return RVT_REF(rvtiDecodeGetBufSize_JPEG2K)(a, b); }
RvtResult rvtiWTInv_B53_JPEG2K_32s_C1IR(int32_t* a, int32_t b, const ImageRect* c, uint8_t* d) {
  return RVT_REF(rvtiWTInv_B53_JPEG2K_32s_C1IR)(a, b, c, d);
}
RvtResult rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(const ImageRect* a, uint32_t* b) {
  return RVT_REF(rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR)(a, b);
}
RvtResult rvtiWTInvRow_D97_JPEG2K_32f_C1R(const float* a, int32_t b, const float* c, int32_t d, ImageSize e,
                                          float* f, int32_t g, int32_t h) {
  return RVT_REF(rvtiWTInvRow_D97_JPEG2K_32f_C1R)(a, b, c, d, e, f, g, h);
}
RvtResult rvtiWTInvCol_D97_JPEG2K_32f_C1R(const float* a, int32_t b, const float* c, int32_t d, ImageSize e,
                                          float* f, int32_t g, int32_t h) {
  return RVT_REF(rvtiWTInvCol_D97_JPEG2K_32f_C1R)(a, b, c, d, e, f, g, h);
}
RvtResult rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R(const float* a, int32_t b, const float* c, int32_t d, ImageSize e,
                                                float* f, int32_t g, int32_t h, float i, float j) {
  return RVT_REF(rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R)(a, b, c, d, e, f, g, h, i, j);
}
RvtResult rvtiWTInvColScaled_D97_JPEG2K_32f_C1R(const float* a, int32_t b, const float* c, int32_t d, ImageSize e,
                                                float* f, int32_t g, int32_t h, float i, float j) {
  return RVT_REF(rvtiWTInvColScaled_D97_JPEG2K_32f_C1R)(a, b, c, d, e, f, g, h, i, j);
}
RvtResult rvtiRCTInv_JPEG2K_32s_P3IR(int32_t* const a[3], int32_t b, ImageSize c) {
  return RVT_REF(rvtiRCTInv_JPEG2K_32s_P3IR)(a, b, c);
}
RvtResult rvtiICTInv_JPEG2K_32f_P3IR(float* const a[3], int32_t b, ImageSize c) {
  return RVT_REF(rvtiICTInv_JPEG2K_32f_P3IR)(a, b, c);
}
}
