// Inverse DCT: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/dct_inv.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/dct_inv-inl.h"
#include "jpeg/dct_inv.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::dct_inv::HWY_NAMESPACE {

RvtResult InvLs8(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, Ls8Full>(s, d, st, q);
}
RvtResult InvLs8Dc(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, DcOnly>(s, d, st, q);
}
RvtResult InvLs8Corner2(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, Ls8Corner2>(s, d, st, q);
}
RvtResult InvLs8Corner4(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, Ls8Corner4>(s, d, st, q);
}
RvtResult InvLs8To2x2(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, To2x2>(s, d, st, q);
}
RvtResult InvLs8To4x4(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, To4x4>(s, d, st, q);
}
RvtResult InvLs16(const int16_t* s, uint16_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint16_t, Ls16u>(s, d, st, q);
}
RvtResult InvPlain(const int16_t* s, int16_t* d, const uint16_t* q) { return Block<Plain16<false>>(s, d, q); }
RvtResult InvInPlace(int16_t* sd, const uint16_t* q) { return InPlace<Plain16<true>>(sd, q); }
RvtResult InvBlocks(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q, int32_t n) {
  return Blocks<Ls8Blocks>(s, d, st, q, n);
}

}  // namespace rvt::dct_inv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiDCTQuantInv8x8_JPEG_16s_C1, dct_inv, InvPlain, InvPlainRef);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8_JPEG_16s_C1I, dct_inv, InvInPlace, InvInPlaceRef);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R, dct_inv, InvLs8, InvLs8Ref);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R, dct_inv, InvLs16, InvLs16Ref);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, dct_inv, InvLs8Dc, InvLs8DcRef);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, dct_inv, InvLs8Corner2, InvLs8Corner2Ref);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, dct_inv, InvLs8Corner4, InvLs8Corner4Ref);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, dct_inv, InvLs8To2x2, InvLs8To2x2Ref);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, dct_inv, InvLs8To4x4, InvLs8To4x4Ref);
RVT_IMPL_HWY(rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R, dct_inv, InvBlocks, InvBlocksRef);
}  // namespace rvt
#endif  // HWY_ONCE
