// The reversible 5/3 wavelet: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg2k/wt53.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg2k/wt53-inl.h"
#include "jpeg2k/wt53.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::wt53::HWY_NAMESPACE {
RVT_WT53_ENTRIES(V16, int16_t, Kernels<int16_t>)
RVT_WT53_ENTRIES(V32, int32_t, Kernels<int32_t>)
}  // namespace rvt::wt53::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
#define RVT_WT53_IMPLS(T, V, R)                                                         \
  RVT_IMPL_HWY(rvtiWTFwdRow_B53_JPEG2K_##T##_C1R, wt53, V##FwdRow, R##FwdRow);         \
  RVT_IMPL_HWY(rvtiWTFwdCol_B53_JPEG2K_##T##_C1R, wt53, V##FwdCol, R##FwdCol);         \
  RVT_IMPL_HWY(rvtiWTInvRow_B53_JPEG2K_##T##_C1R, wt53, V##InvRow, R##InvRow);         \
  RVT_IMPL_HWY(rvtiWTInvCol_B53_JPEG2K_##T##_C1R, wt53, V##InvCol, R##InvCol);         \
  RVT_IMPL_HWY(rvtiWTFwdColLift_B53_JPEG2K_##T##_C1, wt53, V##FwdLift, R##FwdLift);    \
  RVT_IMPL_HWY(rvtiWTInvColLift_B53_JPEG2K_##T##_C1, wt53, V##InvLift, R##InvLift);    \
  RVT_IMPL_HWY(rvtiWTFwd_B53_JPEG2K_##T##_C1IR, wt53, V##FwdI, R##FwdI);               \
  RVT_IMPL_HWY(rvtiWTInv_B53_JPEG2K_##T##_C1IR, wt53, V##InvI, R##InvI);               \
  RVT_IMPL_HWY(rvtiWTFwd_B53_JPEG2K_##T##_C1R, wt53, V##Fwd4, R##Fwd4);                \
  RVT_IMPL_HWY(rvtiWTInv_B53_JPEG2K_##T##_C1R, wt53, V##Inv4, R##Inv4)
RVT_WT53_IMPLS(16s, V16, Ref16);
RVT_WT53_IMPLS(32s, V32, Ref32);
#undef RVT_WT53_IMPLS
RVT_IMPL_PLAIN(rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR, (wt53::GetBufSize<2, 3, 4, false>));
RVT_IMPL_PLAIN(rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR, (wt53::GetBufSize<4, 3, 4, false>));
RVT_IMPL_PLAIN(rvtiWTGetBufSize_B53_JPEG2K_16s_C1R, (wt53::GetBufSize<2, 3, 4, true>));
RVT_IMPL_PLAIN(rvtiWTGetBufSize_B53_JPEG2K_32s_C1R, (wt53::GetBufSize<4, 3, 4, true>));
}  // namespace rvt
#endif  // HWY_ONCE
