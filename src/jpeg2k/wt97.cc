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
using K16 = Kernels<FixedOps<int16_t>>;
using K32 = Kernels<FixedOps<int32_t>>;
RVT_WT97_ENTRIES(VF, float, Kernels<FloatOps>)
RVT_WT97_ENTRIES(V16, int16_t, K16)
RVT_WT97_ENTRIES(V32, int32_t, K32)
RVT_WT_LEVEL_ENTRIES(V16, int16_t, K16::LevelFwd, K16::LevelInv, 8)
RVT_WT_LEVEL_ENTRIES(V32, int32_t, K32::LevelFwd, K32::LevelInv, 8)
RVT_WT97_SCALED_ENTRIES(VF, ScaledKernels)
}  // namespace rvt::wt97::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiWTFwdRow_D97_JPEG2K_32f_C1R, wt97, VFFwdRow, RefFFwdRow);
RVT_IMPL_HWY(rvtiWTInvRow_D97_JPEG2K_32f_C1R, wt97, VFInvRow, RefFInvRow);
RVT_IMPL_HWY(rvtiWTFwdCol_D97_JPEG2K_32f_C1R, wt97, VFFwdCol, RefFFwdCol);
RVT_IMPL_HWY(rvtiWTInvCol_D97_JPEG2K_32f_C1R, wt97, VFInvCol, RefFInvCol);
RVT_IMPL_HWY(rvtiWTFwdColLift_D97_JPEG2K_32f_C1, wt97, VFFwdLift, RefFFwdLift);
RVT_IMPL_HWY(rvtiWTInvColLift_D97_JPEG2K_32f_C1, wt97, VFInvLift, RefFInvLift);
RVT_IMPL_HWY(rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R, wt97, VFInvRowScaled, RefFInvRowScaled);
RVT_IMPL_HWY(rvtiWTInvColScaled_D97_JPEG2K_32f_C1R, wt97, VFInvColScaled, RefFInvColScaled);
#define RVT_WT97_IMPLS(T, V, R)                                                         \
  RVT_IMPL_HWY(rvtiWTFwdRow_D97_JPEG2K_##T##_C1R, wt97, V##FwdRow, R##FwdRow);         \
  RVT_IMPL_HWY(rvtiWTInvRow_D97_JPEG2K_##T##_C1R, wt97, V##InvRow, R##InvRow);         \
  RVT_IMPL_HWY(rvtiWTFwdColLift_D97_JPEG2K_##T##_C1, wt97, V##FwdLift, R##FwdLift);    \
  RVT_IMPL_HWY(rvtiWTInvColLift_D97_JPEG2K_##T##_C1, wt97, V##InvLift, R##InvLift);    \
  RVT_IMPL_HWY(rvtiWTFwd_D97_JPEG2K_##T##_C1IR, wt97, V##FwdI, R##FwdI);               \
  RVT_IMPL_HWY(rvtiWTInv_D97_JPEG2K_##T##_C1IR, wt97, V##InvI, R##InvI);               \
  RVT_IMPL_HWY(rvtiWTFwd_D97_JPEG2K_##T##_C1R, wt97, V##Fwd4, R##Fwd4);                \
  RVT_IMPL_HWY(rvtiWTInv_D97_JPEG2K_##T##_C1R, wt97, V##Inv4, R##Inv4)
RVT_WT97_IMPLS(16s, V16, Ref16);
RVT_WT97_IMPLS(32s, V32, Ref32);
#undef RVT_WT97_IMPLS
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR, (wt53::GetBufSize<2, 2, 8, false>));
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR, (wt53::GetBufSize<4, 2, 8, false>));
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_16s_C1R, (wt53::GetBufSize<2, 2, 8, true>));
RVT_IMPL_PLAIN(rvtiWTGetBufSize_D97_JPEG2K_32s_C1R, (wt53::GetBufSize<4, 2, 8, true>));
}  // namespace rvt
#endif  // HWY_ONCE
