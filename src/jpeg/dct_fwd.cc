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
// The fixed-point forms work on at most 256-bit vectors.  Built for AVX-512
// they are slower than the AVX2 build (the quantizer's tie test goes
// through a mask register and back): 18.2 against 16.5 ns a block for the
// 16-bit forms, equal for the sample form.  The AVX2 build serves both.
#define RVT_IMPL_HWY_AVX2_SERVES_AVX3(name, ns, hwy_fn, ref_fn)                                  \
  extern const Impl<decltype(&::name)> impl_##name;                                               \
  const Impl<decltype(&::name)> impl_##name = {{RVT_CHOOSE_AVX2(ns, hwy_fn), RVT_CHOOSE_AVX2(ns, hwy_fn), \
                                                RVT_CHOOSE_SSSE3(ns, hwy_fn), &ns::ref_fn}}
RVT_IMPL_HWY_AVX2_SERVES_AVX3(rvtiDCTQuantFwd8x8_JPEG_16s_C1, dct_fwd, Fwd16s, Fwd16sRef);
RVT_IMPL_HWY_AVX2_SERVES_AVX3(rvtiDCTQuantFwd8x8_JPEG_16s_C1I, dct_fwd, Fwd16sInPlace, Fwd16sInPlaceRef);
RVT_IMPL_HWY_AVX2_SERVES_AVX3(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R, dct_fwd, FwdLs8u, FwdLs8uRef);
#undef RVT_IMPL_HWY_AVX2_SERVES_AVX3
RVT_IMPL_HWY(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R, dct_fwd, FwdLs16u, FwdLs16uRef);
}  // namespace rvt
#endif  // HWY_ONCE
