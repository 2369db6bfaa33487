// Quantization: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/quant.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/quant-inl.h"
#include "jpeg/quant.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::quant::HWY_NAMESPACE {

RvtResult Fwd(int16_t* block, const uint16_t* fwd) { return Block<FwdBlock>(block, fwd); }
RvtResult Inv(int16_t* block, const uint16_t* inv) { return Block<InvBlock>(block, inv); }

}  // namespace rvt::quant::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_PLAIN(rvtiQuantFwdRawTableInit_JPEG_8u, quant::RawTableInit);
RVT_IMPL_PLAIN(rvtiQuantFwdTableInit_JPEG_8u16u, quant::FwdTableInit);
RVT_IMPL_PLAIN(rvtiQuantInvTableInit_JPEG_8u16u, quant::InvTableInit);
RVT_IMPL_HWY(rvtiQuantFwd8x8_JPEG_16s_C1I, quant, Fwd, FwdRef);
RVT_IMPL_HWY(rvtiQuantInv8x8_JPEG_16s_C1I, quant, Inv, InvRef);
}  // namespace rvt
#endif  // HWY_ONCE
