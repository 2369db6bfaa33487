// Level shift: the vector rows of one target.  No checks here: the driver
// in level_shift.h has checked the arguments before any row runs.
#if defined(RVT_JPEG_LEVEL_SHIFT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_LEVEL_SHIFT_INL_H_
#undef RVT_JPEG_LEVEL_SHIFT_INL_H_
#else
#define RVT_JPEG_LEVEL_SHIFT_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg/level_shift.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::level_shift::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Saturating the sum to 16 bits first gives the same byte as the exact sum.
// Rows of at least one vector end on a last vector that may overlap the
// previous one (rewriting equal bytes); shorter rows take the scalar path.
inline void Add128Row(const int16_t* src, uint8_t* dst, int n) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const int N = int(hn::Lanes(d16));
  const auto bias = hn::Set(d16, 128);
  if (n < N) return Add128RowRef(src, dst, n);
  int x = 0;
  for (; x + 2 * N <= n; x += 2 * N) {
    const auto a = hn::SaturatedAdd(hn::LoadU(d16, src + x), bias);
    const auto b = hn::SaturatedAdd(hn::LoadU(d16, src + x + N), bias);
    hn::StoreU(hn::DemoteTo(d8, a), d8, dst + x);
    hn::StoreU(hn::DemoteTo(d8, b), d8, dst + x + N);
  }
  for (; x < n; x += N) {
    const int at = x + N <= n ? x : n - N;
    hn::StoreU(hn::DemoteTo(d8, hn::SaturatedAdd(hn::LoadU(d16, src + at), bias)), d8, dst + at);
  }
}

inline void Sub128Row(const uint8_t* src, int16_t* dst, int n) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const int N = int(hn::Lanes(d16));
  const auto bias = hn::Set(d16, 128);
  if (n < N) return Sub128RowRef(src, dst, n);
  int x = 0;
  for (; x + 2 * N <= n; x += 2 * N) {
    hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, src + x)), bias), d16, dst + x);
    hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, src + x + N)), bias), d16, dst + x + N);
  }
  for (; x < n; x += N) {
    const int at = x + N <= n ? x : n - N;
    hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, src + at)), bias), d16, dst + at);
  }
}

}  // namespace rvt::level_shift::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_LEVEL_SHIFT_INL_H_
