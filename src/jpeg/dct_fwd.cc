// Forward DCT: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/dct_fwd.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/dct_fwd-inl.h"
#include "jpeg/dct_fwd.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::dct_fwd::HWY_NAMESPACE {

RvtResult Fwd16s(const int16_t* src, int16_t* dst, const uint16_t* table) {
  return Block<Block16s>(src, dst, table);
}
RvtResult Fwd16sInPlace(int16_t* srcDst, const uint16_t* table) {
  return InPlace<Block16s>(srcDst, table);
}
RvtResult FwdLs8u(const uint8_t* src, int32_t srcStep, int16_t* dst, const uint16_t* table) {
  return Samples<uint8_t, uint16_t, Samples8u>(src, srcStep, dst, table);
}
RvtResult FwdLs16u(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  return Samples<uint16_t, float, Samples16u>(src, srcStep, dst, table);
}

}  // namespace rvt::dct_fwd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
// The AVX-512 slots of the fixed-point forms: frame/avx3_slots.inc.
RVT_IMPL_HWY(rvtiDCTQuantFwd8x8_JPEG_16s_C1, dct_fwd, Fwd16s, Fwd16sRef);
RVT_IMPL_HWY(rvtiDCTQuantFwd8x8_JPEG_16s_C1I, dct_fwd, Fwd16sInPlace, Fwd16sInPlaceRef);
RVT_IMPL_HWY(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R, dct_fwd, FwdLs8u, FwdLs8uRef);
RVT_IMPL_HWY(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R, dct_fwd, FwdLs16u, FwdLs16uRef);
}  // namespace rvt
#endif  // HWY_ONCE
