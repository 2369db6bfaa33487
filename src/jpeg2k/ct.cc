// Component transforms: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg2k/ct.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg2k/ct-inl.h"
#include "jpeg2k/ct.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::ct::HWY_NAMESPACE {

#define RVT_CT_TARGET_ENTRIES(PRE, OpV, T)                                                    \
  RVT_CT_ENTRIES(PRE, OpV, T, (FwdC3P3Row<OpV, T>), (FwdP3Row<OpV, T>), (InvP3C3Row<OpV, T>), \
                 (InvP3Row<OpV, T>))
RVT_CT_TARGET_ENTRIES(Rct16, Rct16V, int16_t)
RVT_CT_TARGET_ENTRIES(Rct32, Rct32V, int32_t)
RVT_CT_TARGET_ENTRIES(IctF, IctFV, float)
RVT_CT_TARGET_ENTRIES(Ict32, Ict32V, int32_t)
RVT_CT_TARGET_ENTRIES(Ict16, Ict16V, int16_t)
#undef RVT_CT_TARGET_ENTRIES

}  // namespace rvt::ct::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiRCTFwd_JPEG2K_16s_C3P3R, ct, Rct16FwdC3P3, Rct16RefFwdC3P3);
RVT_IMPL_HWY(rvtiRCTFwd_JPEG2K_32s_C3P3R, ct, Rct32FwdC3P3, Rct32RefFwdC3P3);
RVT_IMPL_HWY(rvtiRCTFwd_JPEG2K_16s_P3IR, ct, Rct16FwdP3, Rct16RefFwdP3);
RVT_IMPL_HWY(rvtiRCTFwd_JPEG2K_32s_P3IR, ct, Rct32FwdP3, Rct32RefFwdP3);
RVT_IMPL_HWY(rvtiRCTInv_JPEG2K_16s_P3C3R, ct, Rct16InvP3C3, Rct16RefInvP3C3);
RVT_IMPL_HWY(rvtiRCTInv_JPEG2K_32s_P3C3R, ct, Rct32InvP3C3, Rct32RefInvP3C3);
RVT_IMPL_HWY(rvtiRCTInv_JPEG2K_16s_P3IR, ct, Rct16InvP3, Rct16RefInvP3);
RVT_IMPL_HWY(rvtiRCTInv_JPEG2K_32s_P3IR, ct, Rct32InvP3, Rct32RefInvP3);
RVT_IMPL_HWY(rvtiICTFwd_JPEG2K_32f_C3P3R, ct, IctFFwdC3P3, IctFRefFwdC3P3);
RVT_IMPL_HWY(rvtiICTFwd_JPEG2K_16s_P3IR, ct, Ict16FwdP3, Ict16RefFwdP3);
RVT_IMPL_HWY(rvtiICTFwd_JPEG2K_32s_P3IR, ct, Ict32FwdP3, Ict32RefFwdP3);
RVT_IMPL_HWY(rvtiICTFwd_JPEG2K_32f_P3IR, ct, IctFFwdP3, IctFRefFwdP3);
RVT_IMPL_HWY(rvtiICTInv_JPEG2K_32f_P3C3R, ct, IctFInvP3C3, IctFRefInvP3C3);
RVT_IMPL_HWY(rvtiICTInv_JPEG2K_16s_P3IR, ct, Ict16InvP3, Ict16RefInvP3);
RVT_IMPL_HWY(rvtiICTInv_JPEG2K_32s_P3IR, ct, Ict32InvP3, Ict32RefInvP3);
RVT_IMPL_HWY(rvtiICTInv_JPEG2K_32f_P3IR, ct, IctFInvP3, IctFRefInvP3);
}  // namespace rvt
#endif  // HWY_ONCE
