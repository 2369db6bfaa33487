// The irreversible 9/7 wavelet: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg2k/wt97.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg2k/wt97-inl.h"
#include "jpeg2k/wt97.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::wt97::HWY_NAMESPACE {
RVT_WT97_ENTRIES(VF, float, FloatKernels)
}  // namespace rvt::wt97::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiWTFwdRow_D97_JPEG2K_32f_C1R, wt97, VFFwdRow, RefFFwdRow);
RVT_IMPL_HWY(rvtiWTInvRow_D97_JPEG2K_32f_C1R, wt97, VFInvRow, RefFInvRow);
// The vector column pass reads rows past the last the reference reads (the
// sanitizer build caught it on a buffer of exactly the readable rows): the
// reference serves until the kernel stops at the rows it needs.
RVT_IMPL_PLAIN(rvtiWTFwdCol_D97_JPEG2K_32f_C1R, wt97::RefFFwdCol);
RVT_IMPL_HWY(rvtiWTInvCol_D97_JPEG2K_32f_C1R, wt97, VFInvCol, RefFInvCol);
RVT_IMPL_HWY(rvtiWTFwdColLift_D97_JPEG2K_32f_C1, wt97, VFFwdLift, RefFFwdLift);
RVT_IMPL_HWY(rvtiWTInvColLift_D97_JPEG2K_32f_C1, wt97, VFInvLift, RefFInvLift);
// Fixed point: the reference serves every processor.
RVT_IMPL_PLAIN(rvtiWTFwdRow_D97_JPEG2K_16s_C1R, wt97::Ref16FwdRow);
RVT_IMPL_PLAIN(rvtiWTInvRow_D97_JPEG2K_16s_C1R, wt97::Ref16InvRow);
RVT_IMPL_PLAIN(rvtiWTFwdRow_D97_JPEG2K_32s_C1R, wt97::Ref32FwdRow);
RVT_IMPL_PLAIN(rvtiWTInvRow_D97_JPEG2K_32s_C1R, wt97::Ref32InvRow);
RVT_IMPL_PLAIN(rvtiWTFwdColLift_D97_JPEG2K_16s_C1, wt97::Ref16FwdLift);
RVT_IMPL_PLAIN(rvtiWTInvColLift_D97_JPEG2K_16s_C1, wt97::Ref16InvLift);
RVT_IMPL_PLAIN(rvtiWTFwdColLift_D97_JPEG2K_32s_C1, wt97::Ref32FwdLift);
RVT_IMPL_PLAIN(rvtiWTInvColLift_D97_JPEG2K_32s_C1, wt97::Ref32InvLift);
// Whole levels: the reference serves every processor.
RVT_IMPL_PLAIN(rvtiWTFwd_D97_JPEG2K_16s_C1IR, (wt97::LevelI<int16_t, true>));
RVT_IMPL_PLAIN(rvtiWTInv_D97_JPEG2K_16s_C1IR, (wt97::LevelI<int16_t, false>));
RVT_IMPL_PLAIN(rvtiWTFwd_D97_JPEG2K_32s_C1IR, (wt97::LevelI<int32_t, true>));
RVT_IMPL_PLAIN(rvtiWTInv_D97_JPEG2K_32s_C1IR, (wt97::LevelI<int32_t, false>));
RVT_IMPL_PLAIN(rvtiWTFwd_D97_JPEG2K_16s_C1R, wt97::Fwd4<int16_t>);
RVT_IMPL_PLAIN(rvtiWTInv_D97_JPEG2K_16s_C1R, wt97::Inv4<int16_t>);
RVT_IMPL_PLAIN(rvtiWTFwd_D97_JPEG2K_32s_C1R, wt97::Fwd4<int32_t>);
RVT_IMPL_PLAIN(rvtiWTInv_D97_JPEG2K_32s_C1R, wt97::Inv4<int32_t>);
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR, wt97::GetBufSizeI<2>);
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR, wt97::GetBufSizeI<4>);
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_16s_C1R, wt97::GetBufSize4<2>);
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_32s_C1R, wt97::GetBufSize4<4>);
}  // namespace rvt
#endif  // HWY_ONCE
