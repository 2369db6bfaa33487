// Join and split of 16-bit samples: the per-target build and the
// descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "tiff/rows16.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "tiff/rows16-inl.h"
#include "tiff/rows16.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::rows16::HWY_NAMESPACE {

RvtResult JoinEntry(const uint8_t* const pSrc[2], uint16_t* pDst, int32_t len) {
  return Join<JoinRow>(pSrc, pDst, len);
}
RvtResult SplitEntry(const uint16_t* pSrc, uint8_t* const pDst[2], int32_t len) {
  return Split<SplitRow>(pSrc, pDst, len);
}

}  // namespace rvt::rows16::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiJoinRow_TIFF_8u16u_C1, rows16, JoinEntry, JoinRowRef);
RVT_IMPL_HWY(rvtiSplitRow_TIFF_16u8u_C1, rows16, SplitEntry, SplitRowRef);
}  // namespace rvt
#endif  // HWY_ONCE
