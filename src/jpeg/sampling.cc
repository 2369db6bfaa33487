// Chroma sampling: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/sampling.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/sampling-inl.h"
#include "jpeg/sampling.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::sampling::HWY_NAMESPACE {

RvtResult DownH2V1(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                   ImageSize dr) {
  return DownH2V1Region<DownH2V1Row>(s, ss, sr, d, ds, dr);
}
RvtResult DownH2V2(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                   ImageSize dr) {
  return DownH2V2Region<DownH2V2Row>(s, ss, sr, d, ds, dr);
}
RvtResult UpH2V1(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                 ImageSize dr) {
  return UpH2V1Region<UpH2V1Pairs>(s, ss, sr, d, ds, dr);
}
RvtResult UpH2V2(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                 ImageSize dr) {
  return UpH2V2RegionByPairs<UpH2V2TwoRows>(s, ss, sr, d, ds, dr);
}
RvtResult DownRowH2V1Box(const uint8_t* s, int32_t w, uint8_t* d) {
  return DownRowH2V1<DownBoxH2V1Row>(s, w, d);
}
RvtResult DownRowH2V2Box(const uint8_t* u, const uint8_t* l, int32_t w, uint8_t* d) {
  return DownRowH2V2<DownBoxH2V2Row>(u, l, w, d);
}
RvtResult UpRowH2V1Triangle(const uint8_t* s, int32_t w, uint8_t* d) {
  return UpRowH2V1<UpRowH2V1Row>(s, w, d);
}
RvtResult UpRowH2V2Triangle(const uint8_t* n, const uint8_t* f, int32_t w, uint8_t* d) {
  return UpRowH2V2<UpRowH2V2Row>(n, f, w, d);
}

}  // namespace rvt::sampling::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiSampleDownH2V1_JPEG_8u_C1R, sampling, DownH2V1, DownH2V1Ref);
RVT_IMPL_HWY(rvtiSampleDownH2V2_JPEG_8u_C1R, sampling, DownH2V2, DownH2V2Ref);
RVT_IMPL_HWY(rvtiSampleUpH2V1_JPEG_8u_C1R, sampling, UpH2V1, UpH2V1Ref);
RVT_IMPL_HWY(rvtiSampleUpH2V2_JPEG_8u_C1R, sampling, UpH2V2, UpH2V2Ref);
RVT_IMPL_HWY(rvtiSampleDownRowH2V1_Box_JPEG_8u_C1, sampling, DownRowH2V1Box, DownRowH2V1Ref);
RVT_IMPL_HWY(rvtiSampleDownRowH2V2_Box_JPEG_8u_C1, sampling, DownRowH2V2Box, DownRowH2V2Ref);
RVT_IMPL_HWY(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1, sampling, UpRowH2V1Triangle, UpRowH2V1Ref);
RVT_IMPL_HWY(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1, sampling, UpRowH2V2Triangle, UpRowH2V2Ref);
}  // namespace rvt
#endif  // HWY_ONCE
