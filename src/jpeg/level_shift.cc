// Level shift: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/level_shift.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/level_shift-inl.h"
#include "jpeg/level_shift.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::level_shift::HWY_NAMESPACE {

RvtResult Add128(const int16_t* src, int32_t ss, uint8_t* dst, int32_t ds, ImageSize roi) {
  return Region<int16_t, uint8_t, Add128Row>(src, ss, dst, ds, roi);
}
RvtResult Sub128(const uint8_t* src, int32_t ss, int16_t* dst, int32_t ds, ImageSize roi) {
  return Region<uint8_t, int16_t, Sub128Row>(src, ss, dst, ds, roi);
}

}  // namespace rvt::level_shift::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiAdd128_JPEG_16s8u_C1R, level_shift, Add128, Add128Ref);
RVT_IMPL_HWY(rvtiSub128_JPEG_8u16s_C1R, level_shift, Sub128, Sub128Ref);
}  // namespace rvt
#endif  // HWY_ONCE
