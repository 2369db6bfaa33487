// PackBits rows: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "tiff/packbits.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "tiff/packbits-inl.h"
#include "tiff/packbits.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::packbits::HWY_NAMESPACE {

RvtResult Pack(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* dstPos, int32_t dstLen) {
  RVT_CHECK(CheckPack(src, srcLen, dst, dstPos, dstLen));
  return PackBitsRow(src, srcLen, dst, dstPos, dstLen);
}


}  // namespace rvt::packbits::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiPackBitsRow_TIFF_8u_C1, packbits, Pack, PackBitsRowRef);
RVT_IMPL_FAST(rvtiUnpackBitsRow_TIFF_8u_C1, packbits::UnpackBitsRowFast,
              packbits::UnpackBitsRowRef);
}  // namespace rvt
#endif  // HWY_ONCE
