// BC4 and BC5 encoding: the channel block search of one target.  The 16
// values sit in the bytes of one 128-bit vector; each pair's error is the
// sum of the squared distances to the nearest entry (the smallest absolute
// difference, whichever entry gives it), and the indices are found once,
// for the pair kept.  No checks here: the driver has made them.
#if defined(RVT_TEXTURE_BC_ENCODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_BC_ENCODE_INL_H_
#undef RVT_TEXTURE_BC_ENCODE_INL_H_
#else
#define RVT_TEXTURE_BC_ENCODE_INL_H_
#endif

#include <hwy/highway.h>

#include "texture/bc_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc_encode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::Full128<uint8_t>;
using V8 = hn::Vec128<uint8_t>;

HWY_INLINE V8 AbsDiff8(V8 a, V8 b) { return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a)); }

// The smallest distance of each value to the palette.
HWY_INLINE V8 Nearest(V8 v, const uint8_t pal[8]) {
  const D8 d8;
  V8 m = AbsDiff8(v, hn::Set(d8, pal[0]));
  for (int k = 1; k < 8; ++k) m = hn::Min(m, AbsDiff8(v, hn::Set(d8, pal[k])));
  return m;
}

// Sum of the squares of 16 distances.
HWY_INLINE int SumOfSquares(V8 m) {
  const hn::Full64<uint8_t> dh;
  const hn::Full128<int16_t> d16;
  const hn::Full128<int32_t> d32;
  const auto lo = hn::BitCast(d16, hn::PromoteTo(hn::Full128<uint16_t>(), hn::LowerHalf(dh, m)));
  const auto hi = hn::BitCast(d16, hn::PromoteTo(hn::Full128<uint16_t>(), hn::UpperHalf(dh, m)));
  auto sum1 = hn::Zero(d32);
  auto sum0 = hn::ReorderWidenMulAccumulate(d32, lo, lo, hn::Zero(d32), sum1);
  sum0 = hn::ReorderWidenMulAccumulate(d32, hi, hi, sum0, sum1);
  return hn::GetLane(hn::SumOfLanes(d32, hn::Add(sum0, sum1)));
}

inline void EncodeChannel(const uint8_t v[16], int quality, uint8_t* out) {
  const D8 d8;
  const V8 x = hn::LoadU(d8, v);
  // The ranges: 0 and 255 count as 255 for the inner minimum, 0 for the
  // inner maximum.
  const auto edge = hn::Or(hn::Eq(x, hn::Zero(d8)), hn::Eq(x, hn::Set(d8, 255)));
  Ranges r;
  r.lo = hn::GetLane(hn::MinOfLanes(d8, x));
  r.hi = hn::GetLane(hn::MaxOfLanes(d8, x));
  r.lo_in = hn::GetLane(hn::MinOfLanes(d8, hn::IfThenElse(edge, hn::Set(d8, 255), x)));
  r.hi_in = hn::GetLane(hn::MaxOfLanes(d8, hn::IfThenZeroElse(edge, x)));
  uint8_t pairs[kMaxPairs][2], pal[8], best_pal[8];
  const int n = Pairs(r, quality, pairs);
  int best = 1 << 30, bi = 0;
  V8 best_m = hn::Zero(d8);
  for (int i = 0; i < n && best > 0; ++i) {
    bc_decode::ChannelPalette(pairs[i][0], pairs[i][1], pal);
    const V8 m = Nearest(x, pal);
    const int err = SumOfSquares(m);
    if (err < best) best = err, bi = i, best_m = m, std::memcpy(best_pal, pal, 8);
  }
  // Each value takes the lowest index at its smallest distance.
  V8 idx = hn::Zero(d8);
  for (int k = 7; k > 0; --k) {
    idx = hn::IfThenElse(hn::Eq(AbsDiff8(x, hn::Set(d8, best_pal[k])), best_m), hn::Set(d8, uint8_t(k)), idx);
  }
  idx = hn::IfThenZeroElse(hn::Eq(AbsDiff8(x, hn::Set(d8, best_pal[0])), best_m), idx);
  alignas(16) uint8_t id[16];
  hn::Store(idx, d8, id);
  StoreChannel(pairs[bi][0], pairs[bi][1], id, out);
}

}  // namespace rvt::bc_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_BC_ENCODE_INL_H_
