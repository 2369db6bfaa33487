// BC7 block encoding: the palette kernel of one target.  No checks here.
// The 16 pixels of a tile sit in 32-bit lanes, one vector (or two, or
// four) per channel; each palette entry is broadcast and its squared
// distance compared with the best so far, the lower index kept on a tie,
// exactly as the reference walks the entries.
#if defined(RVT_TEXTURE_BC7_ENCODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_BC7_ENCODE_INL_H_
#undef RVT_TEXTURE_BC7_ENCODE_INL_H_
#else
#define RVT_TEXTURE_BC7_ENCODE_INL_H_
#endif

#include <hwy/highway.h>

#include "texture/bc7_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc7_encode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Pixel p's lane holds 1 << p.
alignas(64) inline constexpr int32_t kLaneBit[16] = {1 << 0,  1 << 1,  1 << 2,  1 << 3, 1 << 4,  1 << 5,
                                                     1 << 6,  1 << 7,  1 << 8,  1 << 9, 1 << 10, 1 << 11,
                                                     1 << 12, 1 << 13, 1 << 14, 1 << 15};

template <int kChans>
HWY_INLINE uint32_t PaletteChans(const Tile& t, const Palette& pal, int n, uint32_t mask, uint8_t idx[16]) {
  const hn::ScalableTag<int32_t> d;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  alignas(64) int32_t bi_all[16];
  auto sum = hn::Zero(d);
  const auto lane_mask = hn::Set(d, int32_t(mask));
  for (size_t i = 0; i < 16; i += N) {
    decltype(sum) px[4];
    for (int c = 0; c < 4; ++c) {
      if (kChans >> c & 1) px[c] = hn::LoadU(d, t.c[c] + i);
    }
    auto best = hn::Set(d, INT32_MAX);
    auto bi = hn::Zero(d);
    for (int k = 0; k < n; ++k) {
      auto dist = hn::Zero(d);
      for (int c = 0; c < 4; ++c) {
        if (!(kChans >> c & 1)) continue;
        const auto e = hn::Sub(px[c], hn::Set(d, pal.c[c][k]));
        dist = hn::Add(dist, hn::Mul(e, e));
      }
      const auto lt = hn::Lt(dist, best);
      best = hn::IfThenElse(lt, dist, best);
      bi = hn::IfThenElse(lt, hn::Set(d, k), bi);
    }
    hn::StoreU(bi, d, bi_all + i);
    const auto in = hn::TestBit(lane_mask, hn::LoadU(d, kLaneBit + i));
    sum = hn::Add(sum, hn::IfThenElseZero(in, best));
  }
  for (int p = 0; p < 16; ++p) idx[p] = uint8_t(bi_all[p]);
  return uint32_t(hn::GetLane(hn::SumOfLanes(d, sum)));
}

struct Kernel {
  static HWY_NOINLINE uint32_t Run(const Tile& t, const Palette& pal, int n, int chans, uint32_t mask,
                                   uint8_t idx[16]) {
    switch (chans) {
      case 7: return PaletteChans<7>(t, pal, n, mask, idx);
      case 8: return PaletteChans<8>(t, pal, n, mask, idx);
      case 15: return PaletteChans<15>(t, pal, n, mask, idx);
      default: return PaletteRef(t, pal, n, chans, mask, idx);
    }
  }
};

}  // namespace rvt::bc7_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
