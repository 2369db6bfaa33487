// BC6H block encoding: the vector index search of one target.  No checks
// here.  Sixteen pixels are searched in lanes of floats, each lane taking
// its region's palette entry by a mask, so one pass over the entries serves
// both regions; the anchors' lanes stop at the first half.
#if defined(RVT_TEXTURE_BC6H_ENCODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_BC6H_ENCODE_INL_H_
#undef RVT_TEXTURE_BC6H_ENCODE_INL_H_
#else
#define RVT_TEXTURE_BC6H_ENCODE_INL_H_
#endif

#include <hwy/highway.h>

#include "texture/bc6h_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc6h_encode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// SelectRef's result: the same float operations in the same order per lane.
// Not inlined: the region walk, compiled for the baseline, calls it.
void Select(const Search& s, uint8_t* idx, float* err) {
  const hn::CappedTag<float, 16> d;
  const size_t n = hn::Lanes(d);
  const int half = s.entries / 2;
  for (size_t p = 0; p < 16; p += n) {
    const auto t0 = hn::Load(d, s.t[0] + p), t1 = hn::Load(d, s.t[1] + p),
               t2 = hn::Load(d, s.t[2] + p);
    const auto second = hn::Gt(hn::Load(d, s.region + p), hn::Zero(d));
    const auto anchor = hn::Gt(hn::Load(d, s.anchor + p), hn::Zero(d));
    auto best = hn::Set(d, INFINITY);
    auto bi = hn::Zero(d);
    for (int k = 0; k < s.entries; ++k) {
      const auto p0 = hn::IfThenElse(second, hn::Set(d, s.pal[1][0][k]), hn::Set(d, s.pal[0][0][k]));
      const auto p1 = hn::IfThenElse(second, hn::Set(d, s.pal[1][1][k]), hn::Set(d, s.pal[0][1][k]));
      const auto p2 = hn::IfThenElse(second, hn::Set(d, s.pal[1][2][k]), hn::Set(d, s.pal[0][2][k]));
      const auto dr = hn::Sub(t0, p0), dg = hn::Sub(t1, p1), db = hn::Sub(t2, p2);
      const auto e = hn::Add(hn::Add(hn::Mul(dr, dr), hn::Mul(dg, dg)), hn::Mul(db, db));
      auto take = hn::Lt(e, best);
      if (k >= half) take = hn::AndNot(anchor, take);
      best = hn::IfThenElse(take, e, best);
      bi = hn::IfThenElse(take, hn::Set(d, float(k)), bi);
    }
    hn::Store(best, d, err + p);
    alignas(64) float k[16];
    hn::Store(bi, d, k);
    for (size_t i = 0; i < n; ++i) idx[p + i] = uint8_t(k[i]);
  }
}

}  // namespace rvt::bc6h_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_BC6H_ENCODE_INL_H_
