// Quantization: the vector block kernels of one target.  No checks here:
// the driver in quant.h has checked the arguments.
#if defined(RVT_JPEG_QUANT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_QUANT_INL_H_
#undef RVT_JPEG_QUANT_INL_H_
#else
#define RVT_JPEG_QUANT_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg/quant.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::quant::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The reference's arithmetic lane by lane: MulHigh gives (a * h) >> 16.
inline void FwdBlock(int16_t* block, const uint16_t* fwd) {
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  constexpr size_t N = hn::MaxLanes(d);
  static_assert(64 % N == 0, "whole vectors per block");
  const auto one = hn::Set(d, 1);
  for (size_t i = 0; i < 64; i += N) {
    const auto a = hn::ShiftLeft<3>(hn::LoadU(d, block + i));
    const auto h = hn::BitCast(d, hn::ShiftRight<1>(hn::LoadU(du, fwd + i)));
    hn::StoreU(hn::ShiftRight<1>(hn::Add(hn::MulHigh(a, h), one)), d, block + i);
  }
}

inline void InvBlock(int16_t* block, const uint16_t* inv) {
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  constexpr size_t N = hn::MaxLanes(d);
  static_assert(64 % N == 0, "whole vectors per block");
  for (size_t i = 0; i < 64; i += N) {
    const auto q = hn::BitCast(d, hn::LoadU(du, inv + i));
    hn::StoreU(hn::Mul(hn::LoadU(d, block + i), q), d, block + i);
  }
}

}  // namespace rvt::quant::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_QUANT_INL_H_
