// The photo core transform: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpegxr/pct.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpegxr/pct-inl.h"
#include "jpegxr/pct.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::pct::HWY_NAMESPACE {

// Macroblock chunks are at most 16 lanes wide for 16x16 and 8 for the 8-wide
// forms; 8x8 of 32-bit samples takes 128-bit chunks (one block each, one
// group).
#define RVT_PCT_ENTRIES(T, tag, kCap8x8)                                                 \
  RvtResult Fwd_##tag(T* p, int32_t s, ImageSize r) { return Region<T, Strip<T, true>>(p, s, r); } \
  RvtResult Inv_##tag(T* p, int32_t s, ImageSize r) { return Region<T, Strip<T, false>>(p, s, r); } \
  RvtResult Fwd16x16_##tag(T* p, int32_t s) {                                            \
    return Macroblock<T, 16, Blocks<T, 16, 16, 16, true>>(p, s);                         \
  }                                                                                      \
  RvtResult Inv16x16_##tag(T* p, int32_t s) {                                            \
    return Macroblock<T, 16, Blocks<T, 16, 16, 16, false>>(p, s);                        \
  }                                                                                      \
  RvtResult Fwd8x16_##tag(T* p, int32_t s) {                                             \
    return Macroblock<T, 8, Blocks<T, 8, 16, 8, true>>(p, s);                            \
  }                                                                                      \
  RvtResult Inv8x16_##tag(T* p, int32_t s) {                                             \
    return Macroblock<T, 8, Blocks<T, 8, 16, 8, false>>(p, s);                           \
  }                                                                                      \
  RvtResult Fwd8x8_##tag(T* p, int32_t s) {                                              \
    return Macroblock<T, 8, Blocks<T, 8, 8, kCap8x8, true>>(p, s);                       \
  }                                                                                      \
  RvtResult Inv8x8_##tag(T* p, int32_t s) {                                              \
    return Macroblock<T, 8, Blocks<T, 8, 8, kCap8x8, false>>(p, s);                      \
  }
RVT_PCT_ENTRIES(int16_t, 16s, 8)
RVT_PCT_ENTRIES(int32_t, 32s, 4)
RVT_PCT_ENTRIES(float, 32f, 4)
#undef RVT_PCT_ENTRIES

RvtResult FwdBlocks_32s(int32_t* p, int32_t n) { return BlockRun<int32_t, Run<int32_t, true>>(p, n); }
RvtResult InvBlocks_32s(int32_t* p, int32_t n) { return BlockRun<int32_t, Run<int32_t, false>>(p, n); }

}  // namespace rvt::pct::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
#define RVT_PCT_IMPLS(tag)                                                               \
  RVT_IMPL_HWY(rvtiPCTFwd_JPEGXR_##tag##_C1IR, pct, Fwd_##tag, Fwd_##tag##_Ref);         \
  RVT_IMPL_HWY(rvtiPCTInv_JPEGXR_##tag##_C1IR, pct, Inv_##tag, Inv_##tag##_Ref);         \
  RVT_IMPL_HWY(rvtiPCTFwd16x16_JPEGXR_##tag##_C1IR, pct, Fwd16x16_##tag, Fwd16x16_##tag##_Ref); \
  RVT_IMPL_HWY(rvtiPCTInv16x16_JPEGXR_##tag##_C1IR, pct, Inv16x16_##tag, Inv16x16_##tag##_Ref); \
  RVT_IMPL_HWY(rvtiPCTFwd8x16_JPEGXR_##tag##_C1IR, pct, Fwd8x16_##tag, Fwd8x16_##tag##_Ref); \
  RVT_IMPL_HWY(rvtiPCTInv8x16_JPEGXR_##tag##_C1IR, pct, Inv8x16_##tag, Inv8x16_##tag##_Ref); \
  RVT_IMPL_HWY(rvtiPCTFwd8x8_JPEGXR_##tag##_C1IR, pct, Fwd8x8_##tag, Fwd8x8_##tag##_Ref); \
  RVT_IMPL_HWY(rvtiPCTInv8x8_JPEGXR_##tag##_C1IR, pct, Inv8x8_##tag, Inv8x8_##tag##_Ref)
RVT_PCT_IMPLS(16s);
RVT_PCT_IMPLS(32s);
RVT_PCT_IMPLS(32f);
#undef RVT_PCT_IMPLS
RVT_IMPL_HWY(rvtiPCTFwdBlocks_JPEGXR_32s_C1I, pct, FwdBlocks_32s, FwdBlocks_32s_Ref);
RVT_IMPL_HWY(rvtiPCTInvBlocks_JPEGXR_32s_C1I, pct, InvBlocks_32s, InvBlocks_32s_Ref);
}  // namespace rvt
#endif  // HWY_ONCE
