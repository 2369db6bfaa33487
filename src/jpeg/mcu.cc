// MCU-level conversions: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/mcu.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/mcu-inl.h"
#include "jpeg/mcu.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::mcu::HWY_NAMESPACE {

#define RVT_MCU_ENTRY_Fwd(name, C, L)                                  \
  RvtResult name(const uint8_t* s, int32_t st, int16_t** d) {          \
    return Fwd<C, L, &FwdKernel<C, L>>(s, st, d);                      \
  }
#define RVT_MCU_ENTRY_Inv(name, C, L)                                  \
  RvtResult name(const int16_t** s, uint8_t* d, int32_t st) {          \
    return Inv<C, L, &InvKernel<C, L>>(s, d, st);                      \
  }
#define RVT_MCU_ENTRY(name, C, L, dir) RVT_MCU_ENTRY_##dir(name, C, L)
RVT_MCU_CONVERSIONS(RVT_MCU_ENTRY)
#undef RVT_MCU_ENTRY

RvtResult SplitEntry(const uint8_t* s, int32_t st, int16_t** d) { return Split<&SplitKernel>(s, st, d); }
RvtResult JoinEntry(const int16_t** s, uint8_t* d, int32_t st) { return Join<&JoinKernel, 32>(s, d, st); }
RvtResult SampleUpEntry(const int16_t** s, uint8_t* d, int32_t st) {
  return Join<&SampleUpKernel, 48>(s, d, st);
}
RvtResult SampleUpTwoPassEntry(const int16_t** s, uint8_t* d, int32_t st) {
  return Join<&SampleUpTwoPassKernel, 48>(s, d, st);
}

}  // namespace rvt::mcu::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
#define RVT_MCU_DESCRIPTOR(name, C, L, dir) RVT_IMPL_HWY(name, mcu, name, name##Ref);
RVT_MCU_CONVERSIONS(RVT_MCU_DESCRIPTOR)
#undef RVT_MCU_DESCRIPTOR
RVT_IMPL_HWY(rvtiSplit422LS_MCU_8u16s_C2P3R, mcu, SplitEntry, SplitEntryRef);
RVT_IMPL_HWY(rvtiJoin422LS_MCU_16s8u_P3C2R, mcu, JoinEntry, JoinEntryRef);
RVT_IMPL_HWY(rvtiSampleUp422LS_MCU_16s8u_P3C3R, mcu, SampleUpEntry, SampleUpEntryRef);
// Variant 1 has its own implementation (the two-pass form); both give the
// same bytes, and its reference entry is variant 0's.
RVT_IMPL1_HWY(rvtiSampleUp422LS_MCU_16s8u_P3C3R, mcu, SampleUpTwoPassEntry, SampleUpEntryRef);
}  // namespace rvt
#endif  // HWY_ONCE
