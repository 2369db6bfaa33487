// The library exports the example JPEG XR decoder calls, bound straight to
// their reference entries, so the codec's fuzz target links from the
// library's sources like the other targets (no dispatch frame).
#include "frame/dispatch.h"
#include "jpegxr/pct.h"
#include "rvtjp.h"

namespace rvt {
#define RVT_REF_DECL(name) extern const Impl<decltype(&::name)> impl_##name;
RVT_REF_DECL(rvtiVLCGetStateSize_JPEGXR)
RVT_REF_DECL(rvtiVLCInit_JPEGXR)
RVT_REF_DECL(rvtiVLCAdapt_JPEGXR)
RVT_REF_DECL(rvtiFLCRead_JPEGXR_1u32u)
RVT_REF_DECL(rvtiVLCDecodeDC_JPEGXR_1u32s)
RVT_REF_DECL(rvtiVLCDecodeLP_JPEGXR_1u32s)
RVT_REF_DECL(rvtiVLCDecodeHP_JPEGXR_1u32s)
RVT_REF_DECL(rvtiVLCDecodeCBPHP_JPEGXR_1u32s)
#undef RVT_REF_DECL
}  // namespace rvt

#define RVT_REF(name) rvt::impl_##name.fn[rvt::kNumLevels - 1]
extern "C" {
RvtResult rvtiVLCGetStateSize_JPEGXR(int32_t a, int32_t b, int32_t* c) {
  return RVT_REF(rvtiVLCGetStateSize_JPEGXR)(a, b, c);
}
RvtResult rvtiVLCInit_JPEGXR(int32_t a, int32_t b, VLCState_JPEGXR* c, int32_t d) {
  return RVT_REF(rvtiVLCInit_JPEGXR)(a, b, c, d);
}
RvtResult rvtiVLCAdapt_JPEGXR(VLCState_JPEGXR* a, int32_t b) { return RVT_REF(rvtiVLCAdapt_JPEGXR)(a, b); }
RvtResult rvtiFLCRead_JPEGXR_1u32u(const uint8_t* a, int32_t b, int32_t* c, int32_t d, uint32_t* e) {
  return RVT_REF(rvtiFLCRead_JPEGXR_1u32u)(a, b, c, d, e);
}
RvtResult rvtiVLCDecodeDC_JPEGXR_1u32s(const uint8_t* a, int32_t b, int32_t* c, VLCState_JPEGXR* d, int32_t* e) {
  return RVT_REF(rvtiVLCDecodeDC_JPEGXR_1u32s)(a, b, c, d, e);
}
RvtResult rvtiVLCDecodeLP_JPEGXR_1u32s(const uint8_t* a, int32_t b, int32_t* c, VLCState_JPEGXR* d, int32_t* e) {
  return RVT_REF(rvtiVLCDecodeLP_JPEGXR_1u32s)(a, b, c, d, e);
}
RvtResult rvtiVLCDecodeHP_JPEGXR_1u32s(const uint8_t* a, int32_t b, int32_t* c, const uint8_t* d, int32_t e,
                                       int32_t* f, int32_t g, int32_t h, const int32_t* i, VLCState_JPEGXR* j,
                                       int32_t* k) {
  return RVT_REF(rvtiVLCDecodeHP_JPEGXR_1u32s)(a, b, c, d, e, f, g, h, i, j, k);
}
RvtResult rvtiVLCDecodeCBPHP_JPEGXR_1u32s(const uint8_t* a, int32_t b, int32_t* c, const int32_t* d,
                                          const int32_t* e, VLCState_JPEGXR* f, int32_t* g) {
  return RVT_REF(rvtiVLCDecodeCBPHP_JPEGXR_1u32s)(a, b, c, d, e, f, g);
}
RvtResult rvtiPCTInv_JPEGXR_32s_C1IR(int32_t* p, int32_t step, ImageSize roi) {
  return rvt::pct::Inv_32s_Ref(p, step, roi);
}
RvtResult rvtiPCTInvBlocks_JPEGXR_32s_C1I(int32_t* p, int32_t n) { return rvt::pct::InvBlocks_32s_Ref(p, n); }
}
