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

// ------------------------------------------------ quality 0, tiles side by side

// One tile per 128-bit block: the block's minimum or maximum in each of its
// bytes, by four rotations within the block.
alignas(16) static constexpr uint8_t kRotate[4][16] = {
    {8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7},
    {4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3},
    {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1},
    {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0}};

template <class D, class V, class Op>
HWY_INLINE V BlockReduce(D d, V x, Op op) {
  for (int s = 0; s < 4; ++s) x = op(x, hn::TableLookupBytes(x, hn::LoadDup128(d, kRotate[s])));
  return x;
}

// The palette of endpoints (e0, e1) (each block's bytes all equal) in bytes
// 0..7 and again 8..15 of each block: the six-interpolant form (six) or the
// four-interpolant one with 0 and 255, as bc_decode::ChannelPalette.
template <class D, class V>
HWY_INLINE V PaletteOf(D d8, V e0, V e1, bool six) {
  const hn::Repartition<int16_t, D> d16;
  alignas(16) static constexpr int16_t kSix[4][8] = {{7, 0, 6, 5, 4, 3, 2, 1}, {0, 7, 1, 2, 3, 4, 5, 6},
                                                      {3, 3, 3, 3, 3, 3, 3, 3}, {9363, 9363, 9363, 9363, 9363, 9363, 9363, 9363}};
  alignas(16) static constexpr int16_t kFour[4][8] = {{5, 0, 4, 3, 2, 1, 0, 0}, {0, 5, 1, 2, 3, 4, 0, 0},
                                                       {2, 2, 2, 2, 2, 2, 0, 1277}, {13108, 13108, 13108, 13108, 13108, 13108, 13108, 13108}};
  const auto& k = six ? kSix : kFour;
  const auto lo = hn::Set(d16, int16_t(255));
  const auto a = hn::And(hn::BitCast(d16, e0), lo), b = hn::And(hn::BitCast(d16, e1), lo);
  // (w0 e0 + w1 e1 + r) / 7 or / 5: exact by the high half of the product
  // with 9363 or 13108 for these sums (below 1789 and 1278).
  const auto sum = hn::Add(hn::Add(hn::Mul(hn::LoadDup128(d16, k[0]), a), hn::Mul(hn::LoadDup128(d16, k[1]), b)),
                           hn::LoadDup128(d16, k[2]));
  const auto pal = hn::MulHigh(sum, hn::LoadDup128(d16, k[3]));
  alignas(16) static constexpr uint8_t kEven[16] = {0, 2, 4, 6, 8, 10, 12, 14, 0, 2, 4, 6, 8, 10, 12, 14};
  return hn::TableLookupBytes(hn::BitCast(d8, pal), hn::LoadDup128(d8, kEven));
}

// The smallest distance of each value to its block's palette, and the
// lowest index at that distance.
template <class D, class V>
HWY_INLINE V NearestOf(D d8, V x, V pal, V* idx) {
  auto dist = [&](int k) {
    const auto e = hn::TableLookupBytes(pal, hn::Set(d8, uint8_t(k)));
    return hn::Or(hn::SaturatedSub(x, e), hn::SaturatedSub(e, x));
  };
  auto m = dist(0);
  auto at = hn::Zero(d8);
  for (int k = 1; k < 8; ++k) {
    const auto dk = dist(k);
    at = hn::IfThenElse(hn::Lt(dk, m), hn::Set(d8, uint8_t(k)), at);
    m = hn::Min(m, dk);
  }
  *idx = at;
  return m;
}

// Each block's sum of squared distances, in each of its 32-bit lanes.
template <class D, class V>
HWY_INLINE hn::Vec<hn::Repartition<int32_t, D>> BlockSquares(D d8, V m) {
  const hn::Repartition<int16_t, D> d16;
  const hn::Repartition<int32_t, D> d32;
  const auto z = hn::Zero(d8);
  const auto lo = hn::BitCast(d16, hn::ZipLower(m, z)), hi = hn::BitCast(d16, hn::ZipUpper(hn::Repartition<uint16_t, D>(), m, z));
  auto sum1 = hn::Zero(d32);
  auto s = hn::ReorderWidenMulAccumulate(d32, lo, lo, hn::Zero(d32), sum1);
  s = hn::Add(hn::ReorderWidenMulAccumulate(d32, hi, hi, s, sum1), sum1);
  s = hn::Add(s, hn::Shuffle2301(s));
  return hn::Add(s, hn::Shuffle1032(s));
}

// Quality 0 of EncodeChannel for `count` tiles (16 values each, in `v`,
// readable to a whole vector past them), tile g's block to out + g * stride:
// as many tiles at once as the vector has 128-bit blocks.
inline void EncodeChannelsQ0(const uint8_t* v, int count, uint8_t* out, size_t stride) {
  const hn::CappedTag<uint8_t, 64> d8;
  const hn::Repartition<int32_t, decltype(d8)> d32;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const hn::Repartition<uint32_t, decltype(d8)> du32;
  const hn::Repartition<uint64_t, decltype(d8)> d64;
  const int per = int(hn::Lanes(d8) / 16);
  auto vmin = [](auto a, auto b) { return hn::Min(a, b); };
  auto vmax = [](auto a, auto b) { return hn::Max(a, b); };
  for (int g0 = 0; g0 < count; g0 += per) {
    const auto x = hn::LoadU(d8, v + 16 * g0);
    const auto edge = hn::Or(hn::Eq(x, hn::Zero(d8)), hn::Eq(x, hn::Set(d8, 255)));
    const auto lo = BlockReduce(d8, x, vmin), hi = BlockReduce(d8, x, vmax);
    const auto lo_in = BlockReduce(d8, hn::IfThenElse(edge, hn::Set(d8, 255), x), vmin);
    const auto hi_in = BlockReduce(d8, hn::IfThenZeroElse(edge, x), vmax);
    // First pair (hi, lo): six interpolants, or a flat tile (whose four-
    // interpolant palette gives the same block).  Second (lo_in, hi_in) when
    // there are values inside 1..254: kept when strictly better.
    const auto pal_a = PaletteOf(d8, hi, lo, true), pal_b = PaletteOf(d8, lo_in, hi_in, false);
    hn::Vec<decltype(d8)> idx_a, idx_b;
    const auto m_a = NearestOf(d8, x, pal_a, &idx_a), m_b = NearestOf(d8, x, pal_b, &idx_b);
    const auto has_b = hn::BitCast(d32, hn::VecFromMask(d8, hn::Eq(hn::Min(lo_in, hi_in), lo_in)));
    const auto take_b32 = hn::And(has_b, hn::VecFromMask(d32, hn::Lt(BlockSquares(d8, m_b), BlockSquares(d8, m_a))));
    const auto take_b = hn::MaskFromVec(hn::BitCast(d8, take_b32));
    const auto idx = hn::IfThenElse(take_b, idx_b, idx_a);
    const auto e0 = hn::IfThenElse(take_b, lo_in, hi), e1 = hn::IfThenElse(take_b, hi_in, lo);
    // 3-bit indices packed: pairs to 6 bits, to 12, to 24 per 64-bit lane.
    const auto w16 = hn::BitCast(d16, idx);
    const auto p6 = hn::Or(hn::And(w16, hn::Set(d16, 7)), hn::And(hn::ShiftRight<5>(w16), hn::Set(d16, 0x38)));
    const auto w32 = hn::BitCast(du32, p6);
    const auto p12 = hn::Or(hn::And(w32, hn::Set(du32, 0x3F)), hn::And(hn::ShiftRight<10>(w32), hn::Set(du32, 0xFC0)));
    const auto w64 = hn::BitCast(d64, p12);
    const auto p24 = hn::Or(hn::And(w64, hn::Set(d64, 0xFFF)), hn::And(hn::ShiftRight<20>(w64), hn::Set(d64, 0xFFF000)));
    alignas(64) uint64_t bits[8];
    alignas(64) uint8_t a[64], b[64];
    hn::Store(p24, d64, bits);
    hn::Store(e0, d8, a);
    hn::Store(e1, d8, b);
    for (int g = 0; g < per && g0 + g < count; ++g) {
      const uint64_t word = uint64_t(a[16 * g]) | uint64_t(b[16 * g]) << 8 | bits[2 * g] << 16 | bits[2 * g + 1] << 40;
      uint8_t o[8];
      for (int i = 0; i < 8; ++i) o[i] = uint8_t(word >> (8 * i));
      std::memcpy(out + size_t(g0 + g) * stride, o, 8);
    }
  }
}

// The region walk of quality 0: up to sixteen tiles of a row of blocks
// gathered, then encoded side by side; other qualities tile by tile.
template <int kChannels>
RvtResult ChannelsFast(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  if (quality != 0) return Channels<kChannels, EncodeChannel>(src, step, dst, roi, quality);
  RVT_CHECK(Check(src, step, dst, roi, quality));
  constexpr int kBatch = 16;
  alignas(64) uint8_t buf[kChannels][16 * kBatch] = {};
  const int64_t tiles = (int64_t(roi.width) + 3) / 4;
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t t0 = 0; t0 < tiles; t0 += kBatch) {
      const int count = int(tiles - t0 < kBatch ? tiles - t0 : kBatch);
      for (int g = 0; g < count; ++g) {
        const int64_t x = 4 * (t0 + g);
        if (x + 4 <= roi.width && y + 4 <= roi.height) {
          const uint8_t* at = src + ptrdiff_t(y) * step + x * kChannels;
          for (int r = 0; r < 4; ++r, at += step) {
            if (kChannels == 1) {
              std::memcpy(buf[0] + 16 * g + 4 * r, at, 4);
              continue;
            }
            // Two rows of red-green pairs split by one byte shuffle.
            if (r & 1) continue;
            const hn::Full128<uint8_t> d;
            alignas(16) static constexpr uint8_t kSplit[16] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
            alignas(16) uint8_t two[16];
            std::memcpy(two, at, 8);
            std::memcpy(two + 8, at + step, 8);
            hn::Store(hn::TableLookupBytes(hn::Load(d, two), hn::Load(d, kSplit)), d, two);
            std::memcpy(buf[0] + 16 * g + 4 * r, two, 8);
            std::memcpy(buf[1] + 16 * g + 4 * r, two + 8, 8);
          }
        } else {
          for (int c = 0; c < kChannels; ++c) Gather(src, step, roi, x, y, kChannels, c, buf[c] + 16 * g);
        }
      }
      for (int c = 0; c < kChannels; ++c) EncodeChannelsQ0(buf[c], count, dst + 8 * c, 8 * kChannels);
      dst += 8 * kChannels * count;
    }
  }
  return rvtStatusOk;
}

}  // namespace rvt::bc_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_BC_ENCODE_INL_H_
