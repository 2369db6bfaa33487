// DXT1, DXT3 and DXT5 encoding: the evaluation of a colour part on one
// target.  The tile's R, G and B planes are 32-bit lanes; each entry's
// squared distance is taken for every pixel at once, the nearest entry
// kept (the lowest index on a tie, as the reference's ordered search).  No
// checks here: the driver has made them.
#if defined(RVT_TEXTURE_DXT_ENCODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_DXT_ENCODE_INL_H_
#undef RVT_TEXTURE_DXT_ENCODE_INL_H_
#else
#define RVT_TEXTURE_DXT_ENCODE_INL_H_
#endif

#include <hwy/highway.h>

#include "texture/bc_encode-inl.h"
#include "texture/dxt_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::dxt_encode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

inline Part Eval(const Tile& t, uint16_t a, uint16_t b, bool dxt1, bool three) {
  Part p;
  if (dxt1 && (three ? a > b : a < b)) std::swap(a, b);
  p.b[0] = uint8_t(a), p.b[1] = uint8_t(a >> 8), p.b[2] = uint8_t(b), p.b[3] = uint8_t(b >> 8);
  uint8_t pal[4][4];
  bc_decode::ColourPalette(p.b, dxt1, 255, pal);
  const int entries = dxt1 && a <= b ? 3 : 4;

  const hn::CappedTag<int32_t, 16> d;
  const size_t N = hn::Lanes(d);  // 4, 8 or 16: whole vectors over the tile
  alignas(64) static constexpr int32_t kBit[16] = {1 << 0,  1 << 1,  1 << 2,  1 << 3,  1 << 4,  1 << 5,
                                                   1 << 6,  1 << 7,  1 << 8,  1 << 9,  1 << 10, 1 << 11,
                                                   1 << 12, 1 << 13, 1 << 14, 1 << 15};
  const auto transparent = hn::Set(d, int32_t(t.transparent));
  auto total = hn::Zero(d);
  alignas(64) int32_t idx[16];
  for (size_t i = 0; i < 16; i += N) {
    const auto r = hn::Load(d, t.ch[0] + i), g = hn::Load(d, t.ch[1] + i), bl = hn::Load(d, t.ch[2] + i);
    auto dist = [&](int e) {
      const auto dr = hn::Sub(r, hn::Set(d, pal[e][0]));
      const auto dg = hn::Sub(g, hn::Set(d, pal[e][1]));
      const auto db = hn::Sub(bl, hn::Set(d, pal[e][2]));
      return hn::Add(hn::Add(hn::Mul(dr, dr), hn::Mul(dg, dg)), hn::Mul(db, db));
    };
    auto best = dist(0);
    auto k = hn::Zero(d);
    for (int e = 1; e < entries; ++e) {
      const auto de = dist(e);
      const auto closer = hn::Lt(de, best);
      best = hn::Min(de, best);
      k = hn::IfThenElse(closer, hn::Set(d, e), k);
    }
    const auto clear = hn::TestBit(transparent, hn::Load(d, kBit + i));
    total = hn::Add(total, hn::IfThenZeroElse(clear, best));
    hn::Store(hn::IfThenElse(clear, hn::Set(d, 3), k), d, idx + i);
  }
  uint32_t word = 0;
  for (int i = 0; i < 16; ++i) word |= uint32_t(idx[i]) << (2 * i);
  for (int i = 0; i < 4; ++i) p.b[4 + i] = uint8_t(word >> (8 * i));
  p.err = hn::GetLane(hn::SumOfLanes(d, total));
  return p;
}

}  // namespace rvt::dxt_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_DXT_ENCODE_INL_H_
