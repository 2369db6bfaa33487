// Join and split of 16-bit samples: the vector rows of one target.  No
// checks here.  Rows shorter than a vector take the scalar reference; the
// vector loads and stores work at any address, odd ones included.
#if defined(RVT_TIFF_ROWS16_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TIFF_ROWS16_INL_H_
#undef RVT_TIFF_ROWS16_INL_H_
#else
#define RVT_TIFF_ROWS16_INL_H_
#endif

#include <hwy/highway.h>

#include "frame/raw_ops-inl.h"
#include "tiff/rows16.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::rows16::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

// Bytes of both planes interleaved (low byte first: little-endian words),
// a vector of each per step; the last vector may overlap the previous one.
inline void JoinRow(const uint8_t* hi, const uint8_t* lo, uint16_t* dst, int32_t n) {
  const hn::ScalableTag<uint8_t> d8;
  const int32_t N = int32_t(hn::Lanes(d8));
  if (n < N) return JoinRef(hi, lo, dst, n);
  for (int32_t x = 0; x < n; x += N) {
    const int32_t at = x + N <= n ? x : n - N;
    const auto h = hn::LoadU(d8, hi + at);
    const auto l = hn::LoadU(d8, lo + at);
    ops::StoreAlternatingBlocks(hn::InterleaveLower(d8, l, h), hn::InterleaveUpper(d8, l, h),
                                reinterpret_cast<uint8_t*>(dst + at));
  }
}

// Two vectors of words per step: even bytes are the low plane, odd bytes
// the high one.
inline void SplitRow(const uint16_t* src, uint8_t* hi, uint8_t* lo, int32_t n) {
  const hn::ScalableTag<uint8_t> d8;
  const int32_t N = int32_t(hn::Lanes(d8));
  if (n < N) return SplitRef(src, hi, lo, n);
  for (int32_t x = 0; x < n; x += N) {
    const int32_t at = x + N <= n ? x : n - N;
    const uint8_t* p = reinterpret_cast<const uint8_t*>(src + at);
    const auto a = hn::LoadU(d8, p);
    const auto b = hn::LoadU(d8, p + N);
    hn::StoreU(hn::ConcatOdd(d8, b, a), d8, hi + at);
    hn::StoreU(hn::ConcatEven(d8, b, a), d8, lo + at);
  }
}

}  // namespace rvt::rows16::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TIFF_ROWS16_INL_H_
