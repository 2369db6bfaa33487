// BC7 block encoding: the kernels of one target.  No checks here.  The 16
// pixels of a tile sit in 32-bit lanes, one vector (or two, or four) per
// channel.  Sums are exact integers; the projections take the reference's
// float operations in its order, and their extremes do not depend on the
// order; the palette is built in lanes of entries, then each entry is
// broadcast and its squared distance (exact in floats, by multiply-adds)
// keyed with its number, the least key kept, so the lower index wins a tie exactly as
// the reference walks the entries; a grey window's pairs read the gap
// table by gathers, one pair at a time.
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

// Index weights of 2-, 3- and 4-bit palettes, 16 lanes each (the unused
// entries 0).
alignas(64) inline constexpr int32_t kWeightLanes[3][16] = {
    {0, 21, 43, 64},
    {0, 9, 18, 27, 37, 46, 55, 64},
    {0, 4, 9, 13, 17, 21, 26, 30, 34, 38, 43, 47, 51, 55, 60, 64}};

HWY_INLINE void SumLanes(const Tile& t, uint32_t mask, Sums* out) {
  const hn::ScalableTag<int32_t> d;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  using V = decltype(hn::Zero(d));
  V s[4], p[10];
  for (V& v : s) v = hn::Zero(d);
  for (V& v : p) v = hn::Zero(d);
  const auto lane_mask = hn::Set(d, int32_t(mask));
  for (size_t i = 0; i < 16; i += N) {
    const auto in = hn::TestBit(lane_mask, hn::LoadU(d, kLaneBit + i));
    V x[4];
    for (int c = 0; c < 4; ++c) x[c] = hn::IfThenElseZero(in, hn::LoadU(d, t.c[c] + i)), s[c] = hn::Add(s[c], x[c]);
    for (int a = 0, k = 0; a < 4; ++a) {
      for (int b = a; b < 4; ++b, ++k) p[k] = hn::Add(p[k], hn::Mul(x[a], x[b]));
    }
  }
  out->n = Pop16(mask);
  for (int c = 0; c < 4; ++c) out->s[c] = hn::GetLane(hn::SumOfLanes(d, s[c]));
  for (int k = 0; k < 10; ++k) out->p[k] = hn::GetLane(hn::SumOfLanes(d, p[k]));
}

HWY_INLINE void ExtentLanes(const Tile& t, uint32_t mask, const float mean[4], const float axis[4], float* lo,
                            float* hi) {
  const hn::ScalableTag<int32_t> d;
  const hn::ScalableTag<float> df;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  auto l = hn::Set(df, 1e30f), h = hn::Set(df, -1e30f);
  const auto lane_mask = hn::Set(d, int32_t(mask));
  for (size_t i = 0; i < 16; i += N) {
    const auto in = hn::RebindMask(df, hn::TestBit(lane_mask, hn::LoadU(d, kLaneBit + i)));
    auto term = [&](int c) {
      return hn::Mul(hn::Sub(hn::ConvertTo(df, hn::LoadU(d, t.c[c] + i)), hn::Set(df, mean[c])), hn::Set(df, axis[c]));
    };
    auto x = term(0);
    x = hn::Add(x, term(1));
    x = hn::Add(x, term(2));
    x = hn::Add(x, term(3));
    l = hn::Min(l, hn::IfThenElse(in, x, hn::Set(df, 1e30f)));
    h = hn::Max(h, hn::IfThenElse(in, x, hn::Set(df, -1e30f)));
  }
  *lo = hn::GetLane(hn::MinOfLanes(df, l));
  *hi = hn::GetLane(hn::MaxOfLanes(df, h));
}

// Partition masks in 32-bit lanes: subset 1 of each two-subset
// partition, subsets 1 and 2 of each three-subset one.
struct MaskLanes {
  alignas(64) int32_t two[64];
  alignas(64) int32_t three[2][64];
};
inline constexpr MaskLanes MakeMaskLanes() {
  MaskLanes m{};
  for (int k = 0; k < 64; ++k) {
    m.two[k] = kSplit.m[k];
    m.three[0][k] = kSplit3.m[k][0], m.three[1][k] = kSplit3.m[k][1];
  }
  return m;
}
inline constexpr MaskLanes kMaskLanes = MakeMaskLanes();

// The first ranking with one partition per lane: each subset's count,
// channel sums and squared lengths gathered pixel by pixel (subset 0's as
// the rest of the tile's), then n sq - |s|^2 over n summed in subset
// order as the reference sums them.
HWY_INLINE void RoughLanes(const Points& pts, const Spread& all, int subsets, int count, float* rough) {
  const hn::ScalableTag<int32_t> d;
  const hn::ScalableTag<float> df;
  using V = decltype(hn::Zero(d));
  const size_t N = hn::Lanes(d);
  for (size_t k = 0; k < size_t(count); k += N) {
    V n[3], s[3][5];  // s[..][4]: squared lengths
    for (int u = 1; u < 3; ++u) {
      n[u] = hn::Zero(d);
      for (V& v : s[u]) v = hn::Zero(d);
    }
    const V m1 = hn::Load(d, subsets == 2 ? kMaskLanes.two + k : kMaskLanes.three[0] + k);
    const V m2 = hn::Load(d, kMaskLanes.three[1] + k);
    for (int p = 0; p < 16; ++p) {
      const V bit = hn::Set(d, 1 << p);
      const auto in1 = hn::TestBit(m1, bit);
      n[1] = hn::Sub(n[1], hn::VecFromMask(d, in1));
      for (int j = 0; j < 5; ++j) s[1][j] = hn::Add(s[1][j], hn::IfThenElseZero(in1, hn::Set(d, pts.v[p][j])));
      if (subsets == 3) {
        const auto in2 = hn::TestBit(m2, bit);
        n[2] = hn::Sub(n[2], hn::VecFromMask(d, in2));
        for (int j = 0; j < 5; ++j) s[2][j] = hn::Add(s[2][j], hn::IfThenElseZero(in2, hn::Set(d, pts.v[p][j])));
      }
    }
    n[0] = hn::Sub(hn::Set(d, all.n), n[1]);
    for (int j = 0; j < 5; ++j) s[0][j] = hn::Sub(hn::Set(d, j < 4 ? all.s[j] : all.sq), s[1][j]);
    if (subsets == 3) {
      n[0] = hn::Sub(n[0], n[2]);
      for (int j = 0; j < 5; ++j) s[0][j] = hn::Sub(s[0][j], s[2][j]);
    }
    auto total = hn::Zero(df);
    for (int u = 0; u < subsets; ++u) {
      V m = hn::Mul(n[u], s[u][4]);
      for (int c = 0; c < 4; ++c) m = hn::Sub(m, hn::Mul(s[u][c], s[u][c]));
      const auto t = hn::Div(hn::ConvertTo(df, m), hn::ConvertTo(df, n[u]));
      total = hn::Add(total, hn::IfThenElseZero(hn::RebindMask(df, hn::Gt(n[u], hn::Zero(d))), t));
    }
    hn::Store(total, df, rough + k);
  }
}

// The line spread of a subset per lane from its moment sums a[k] and
// count n, each float operation the reference's in its order; the lanes
// that leave the reference's loop early keep the value it returns there.
template <int ch, class D, class V = decltype(hn::Zero(D()))>
HWY_INLINE V LineSpreadLanes(D df, const V* a, V nf, decltype(hn::Lt(V(), V())) few) {
  const V zero = hn::Zero(df);
  const V inv = hn::Div(hn::Set(df, 1.0f), nf);
  V cov[4][4];
  int k = ch;
  for (int i = 0; i < ch; ++i) {
    for (int j = i; j < ch; ++j, ++k) cov[i][j] = cov[j][i] = hn::Sub(a[k], hn::Mul(hn::Mul(a[i], a[j]), inv));
  }
  V trace = zero, v[4];
  for (int i = 0; i < ch; ++i) trace = hn::Add(trace, cov[i][i]), v[i] = cov[i][i];
  auto flat = hn::Le(trace, zero);  // the reference returns 0
  auto stopped = hn::Lt(zero, zero);  // the reference returned the trace
  for (int it = 0; it < 3; ++it) {
    V nv[4], m = zero;
    for (int i = 0; i < ch; ++i) {
      nv[i] = zero;
      for (int j = 0; j < ch; ++j) nv[i] = hn::Add(nv[i], hn::Mul(cov[i][j], v[j]));
      const V x = hn::Abs(nv[i]);
      m = hn::IfThenElse(hn::Gt(x, m), x, m);
    }
    stopped = hn::Or(stopped, hn::Le(m, zero));
    const V inv_m = hn::Div(hn::Set(df, 1.0f), m);
    for (int i = 0; i < ch; ++i) v[i] = hn::IfThenElse(stopped, v[i], hn::Mul(nv[i], inv_m));
  }
  V vv = zero, vcv = zero;
  for (int i = 0; i < ch; ++i) {
    vv = hn::Add(vv, hn::Mul(v[i], v[i]));
    for (int j = 0; j < ch; ++j) vcv = hn::Add(vcv, hn::Mul(hn::Mul(v[i], cov[i][j]), v[j]));
  }
  const V line = hn::IfThenElse(stopped, trace, hn::Sub(trace, hn::Div(vcv, vv)));
  return hn::IfThenZeroElse(hn::Or(few, flat), line);
}

// The estimates with one listed partition per lane: each subset's moment
// sums gathered pixel by pixel (subset 0's as the tile's less the others',
// in integers), then the line spreads summed in subset order.
template <int ch>
HWY_INLINE void EstimateChans(const Moments& mo, int subsets, const int* parts, int count, float* est) {
  const hn::ScalableTag<int32_t> d;
  const hn::ScalableTag<float> df;
  const hn::RebindToUnsigned<decltype(d)> du;
  using V = decltype(hn::Zero(d));
  using VF = decltype(hn::Zero(df));
  constexpr int kCount = ch + ch * (ch + 1) / 2;
  const size_t N = hn::Lanes(d);
  alignas(64) int32_t part[64 + 16] = {};
  alignas(64) float out[64 + 16];
  std::memcpy(part, parts, sizeof(int) * size_t(count));
  for (size_t i = 0; i < size_t(count); i += N) {
    const V k = hn::Load(d, part + i);
    const V m1 = hn::GatherIndex(d, subsets == 2 ? kMaskLanes.two : kMaskLanes.three[0], k);
    const V m2 = subsets == 2 ? hn::Zero(d) : hn::GatherIndex(d, kMaskLanes.three[1], k);
    V acc[3][kCount];
    for (int j = 0; j < kCount; ++j) acc[1][j] = acc[2][j] = hn::Zero(d);
    for (int p = 0; p < 16; ++p) {
      const V bit = hn::Set(d, 1 << p);
      const auto in1 = hn::TestBit(m1, bit), in2 = hn::TestBit(m2, bit);
      for (int j = 0; j < kCount; ++j) {
        const V x = hn::Set(d, mo.s[p][j]);
        acc[1][j] = hn::Add(acc[1][j], hn::IfThenElseZero(in1, x));
        if (subsets == 3) acc[2][j] = hn::Add(acc[2][j], hn::IfThenElseZero(in2, x));
      }
    }
    for (int j = 0; j < kCount; ++j) acc[0][j] = hn::Sub(hn::Sub(hn::Set(d, mo.total[j]), acc[1][j]), acc[2][j]);
    V n[3];
    n[1] = hn::BitCast(d, hn::PopulationCount(hn::BitCast(du, m1)));
    n[2] = hn::BitCast(d, hn::PopulationCount(hn::BitCast(du, m2)));
    n[0] = hn::Sub(hn::Sub(hn::Set(d, 16), n[1]), n[2]);
    VF total = hn::Zero(df);
    for (int u = 0; u < subsets; ++u) {
      VF a[kCount];
      for (int j = 0; j < kCount; ++j) a[j] = hn::ConvertTo(df, acc[u][j]);
      const auto few = hn::RebindMask(df, hn::Lt(n[u], hn::Set(d, 2)));
      total = hn::Add(total, LineSpreadLanes<ch>(df, a, hn::ConvertTo(df, n[u]), few));
    }
    hn::Store(total, df, out + i);
  }
  for (int i = 0; i < count; ++i) est[parts[i]] = out[i];
}

// One partition per lane: the pixels apart from the split (or from its
// complement), their least over the lanes, then the first lane holding it.
HWY_INLINE int NearestSplitLanes(uint32_t split) {
  const hn::ScalableTag<int32_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  using V = decltype(hn::Zero(d));
  const size_t N = hn::Lanes(d);
  alignas(64) int32_t e[64];
  const V s = hn::Set(d, int32_t(split)), sixteen = hn::Set(d, 16);
  V least = sixteen;
  for (size_t k = 0; k < 64; k += N) {
    const V dist = hn::BitCast(d, hn::PopulationCount(hn::BitCast(du, hn::Xor(s, hn::Load(d, kMaskLanes.two + k)))));
    const V v = hn::Min(dist, hn::Sub(sixteen, dist));
    hn::Store(v, d, e + k);
    least = hn::Min(least, v);
  }
  const V m = hn::MinOfLanes(d, least);
  for (size_t k = 0; k < 64; k += N) {
    const intptr_t at = hn::FindFirstTrue(d, hn::Eq(hn::Load(d, e + k), m));
    if (at >= 0) return int(k) + int(at);
  }
  return 0;
}

// Distances in float lanes as |e|^2 + |x|^2 - 2 x.e for pixel x and
// entry e: every term and partial sum an integer below 2^24, so each is
// exact in any order and with fused multiply-adds, and no 32-bit integer
// multiply (two operations and a long latency on x86).  A distance below
// 2^19 leaves the low 5 bits of its float clear: with the entry's number
// there, the least key (as an integer) is the nearest entry, the lowest
// number on a tie, as the reference walks them.
template <int kChans, int bits>
HWY_INLINE uint32_t PaletteChans(const Tile& t, const int v[2][4], uint32_t mask, uint8_t idx[16]) {
  const hn::ScalableTag<int32_t> d;
  const hn::ScalableTag<float> df;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  const int n = 1 << bits;
  alignas(64) float twice[4][16];  // -2 e
  alignas(64) float sq[16];         // |e|^2
  for (size_t j = 0; j < size_t(n); j += N) {
    const auto w = hn::Load(d, kWeightLanes[bits - 2] + j);
    const auto w0 = hn::Sub(hn::Set(d, 64), w);
    auto len = hn::Zero(df);
    for (int c = 0; c < 4; ++c) {
      if (!(kChans >> c & 1)) continue;
      const auto e = hn::Add(hn::Add(hn::Mul(w0, hn::Set(d, v[0][c])), hn::Mul(w, hn::Set(d, v[1][c]))), hn::Set(d, 32));
      const auto ef = hn::ConvertTo(df, hn::ShiftRight<6>(e));
      len = hn::MulAdd(ef, ef, len);
      hn::Store(hn::Mul(ef, hn::Set(df, -2.0f)), df, twice[c] + j);
    }
    hn::Store(len, df, sq + j);
  }
  auto sum = hn::Zero(df);
  const auto lane_mask = hn::Set(d, int32_t(mask));
  const hn::Rebind<uint8_t, decltype(d)> d8;
  for (size_t i = 0; i < 16; i += N) {
    decltype(sum) px[4];
    auto len = hn::Zero(df);
    for (int c = 0; c < 4; ++c) {
      if (!(kChans >> c & 1)) continue;
      px[c] = hn::ConvertTo(df, hn::LoadU(d, t.c[c] + i));
      len = hn::MulAdd(px[c], px[c], len);
    }
    auto best = hn::Set(d, INT32_MAX);
    for (int k = 0; k < n; ++k) {
      auto dist = hn::Add(len, hn::Set(df, sq[k]));
      for (int c = 0; c < 4; ++c) {
        if (kChans >> c & 1) dist = hn::MulAdd(px[c], hn::Set(df, twice[c][k]), dist);
      }
      best = hn::Min(best, hn::Or(hn::BitCast(d, dist), hn::Set(d, k)));
    }
    hn::StoreU(hn::DemoteTo(d8, hn::And(best, hn::Set(d, 15))), d8, idx + i);
    const auto in = hn::RebindMask(df, hn::TestBit(lane_mask, hn::LoadU(d, kLaneBit + i)));
    sum = hn::Add(sum, hn::IfThenElseZero(in, hn::BitCast(df, hn::AndNot(hn::Set(d, 15), best))));
  }
  return uint32_t(hn::GetLane(hn::SumOfLanes(df, sum)));
}

// The grey errors with the pixels in lanes: each pair's offsets into the
// gap table (the pixel clamped to the span) read by a gather of 32 bits
// whose low half is the entry, the distance outside the span added.
HWY_INLINE void GreyLanes(const int* xs, int n, int bits, const int* va, const int* vb, int count, uint32_t* err) {
  const hn::ScalableTag<int32_t> d;
  using V = decltype(hn::Zero(d));
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  alignas(64) int32_t x[16] = {};
  std::memcpy(x, xs, sizeof(int) * size_t(n));
  const int32_t* base = reinterpret_cast<const int32_t*>(kGap.e[bits - 3]);
  const V zero = hn::Zero(d), low = hn::Set(d, 0xFFFF);
  for (int i = 0; i < count; ++i) {
    const int lo = va[i] < vb[i] ? va[i] : vb[i], span = va[i] < vb[i] ? vb[i] - va[i] : va[i] - vb[i];
    const V vlo = hn::Set(d, lo), vspan = hn::Set(d, span), row = hn::Set(d, span * (span + 1));
    V sum = zero;
    for (size_t j = 0; j < size_t(n); j += N) {
      const V y = hn::Sub(hn::Load(d, x + j), vlo);
      const V z = hn::Min(hn::Max(y, zero), vspan);
      const V g = hn::And(hn::GatherOffset(d, base, hn::Add(row, hn::Add(z, z))), low);
      const V out = hn::Sub(y, z);
      const V e = hn::Add(g, hn::Mul(out, out));
      sum = hn::Add(sum, hn::IfThenElseZero(hn::FirstN(d, size_t(n) - j), e));
    }
    err[i] = uint32_t(hn::GetLane(hn::SumOfLanes(d, sum)));
  }
}

// Each pixel's four bytes in a 32-bit lane, a channel by shift and mask.
HWY_INLINE void LoadLanes(const uint8_t* at, ptrdiff_t step, Tile* t) {
  const hn::ScalableTag<int32_t> d;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  alignas(64) int32_t px[16];
  for (int r = 0; r < 4; ++r) std::memcpy(px + 4 * r, at + step * r, 16);
  const auto low = hn::Set(d, 255);
  for (size_t i = 0; i < 16; i += N) {
    const auto v = hn::Load(d, px + i);
    hn::Store(hn::And(v, low), d, t->c[0] + i);
    hn::Store(hn::And(hn::ShiftRight<8>(v), low), d, t->c[1] + i);
    hn::Store(hn::And(hn::ShiftRight<16>(v), low), d, t->c[2] + i);
    hn::Store(hn::BitCast(d, hn::ShiftRight<24>(hn::BitCast(hn::RebindToUnsigned<decltype(d)>(), v))), d,
              t->c[3] + i);
  }
}

HWY_INLINE int KindLanes(const Tile& t) {
  const hn::ScalableTag<int32_t> d;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  bool opaque = true, grey = true;
  for (size_t i = 0; i < 16; i += N) {
    const auto r = hn::Load(d, t.c[0] + i);
    opaque &= hn::AllTrue(d, hn::Eq(hn::Load(d, t.c[3] + i), hn::Set(d, 255)));
    grey &= hn::AllTrue(d, hn::And(hn::Eq(r, hn::Load(d, t.c[1] + i)), hn::Eq(r, hn::Load(d, t.c[2] + i))));
  }
  return int(opaque) | int(grey) << 1;
}

struct Kernel {
  static HWY_INLINE void Estimate(const Moments& mo, int subsets, const int* parts, int count, float* est) {
    if (mo.chans == 3) {
      EstimateChans<3>(mo, subsets, parts, count, est);
    } else {
      EstimateChans<4>(mo, subsets, parts, count, est);
    }
  }
  static HWY_INLINE void Load(const uint8_t* at, ptrdiff_t step, Tile* t) { LoadLanes(at, step, t); }
  static HWY_INLINE int Kind(const Tile& t) { return KindLanes(t); }
  static HWY_INLINE void Grey(const int* xs, int n, int bits, const int* va, const int* vb, int count,
                              uint32_t* err) {
    GreyLanes(xs, n, bits, va, vb, count, err);
  }
  static HWY_INLINE int NearestSplit(uint32_t split) { return NearestSplitLanes(split); }
  static HWY_INLINE void Rough(const Points& pts, const Spread& all, int subsets, int count, float* rough) {
    RoughLanes(pts, all, subsets, count, rough);
  }
  static HWY_INLINE void Sum(const Tile& t, uint32_t mask, Sums* out) { SumLanes(t, mask, out); }
  static HWY_INLINE void Extent(const Tile& t, uint32_t mask, const float mean[4], const float axis[4], float* lo,
                                float* hi) {
    ExtentLanes(t, mask, mean, axis, lo, hi);
  }
  static HWY_INLINE uint32_t Run(const Tile& t, const int v[2][4], int bits, int chans, uint32_t mask,
                                 uint8_t idx[16]) {
    // The entries' loop unrolled per index width.
    switch (chans << 3 | bits) {
      case 1 << 3 | 3: return PaletteChans<1, 3>(t, v, mask, idx);
      case 1 << 3 | 4: return PaletteChans<1, 4>(t, v, mask, idx);
      case 7 << 3 | 2: return PaletteChans<7, 2>(t, v, mask, idx);
      case 7 << 3 | 3: return PaletteChans<7, 3>(t, v, mask, idx);
      case 7 << 3 | 4: return PaletteChans<7, 4>(t, v, mask, idx);
      case 8 << 3 | 2: return PaletteChans<8, 2>(t, v, mask, idx);
      case 8 << 3 | 3: return PaletteChans<8, 3>(t, v, mask, idx);
      case 15 << 3 | 2: return PaletteChans<15, 2>(t, v, mask, idx);
      case 15 << 3 | 3: return PaletteChans<15, 3>(t, v, mask, idx);
      case 15 << 3 | 4: return PaletteChans<15, 4>(t, v, mask, idx);
      default: return PaletteRef(t, v, bits, chans, mask, idx);
    }
  }
};

#include "texture/bc7_encode-search.h"  // IWYU pragma: keep

}  // namespace rvt::bc7_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
