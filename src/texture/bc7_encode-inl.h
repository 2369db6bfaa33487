// BC7 block encoding: the kernels of one target.  No checks here.  The 16
// pixels of a tile sit in 32-bit lanes, one vector (or two, or four) per
// channel.  Sums are exact integers; the projections take the reference's
// float operations in its order, and their extremes do not depend on the
// order; the palette is built in lanes of entries, then each entry is
// broadcast and its squared distance (exact in floats, by multiply-adds)
// keyed with its number, the least key kept, so the lower index wins a tie exactly as
// the reference walks the entries; a grey window's pairs read the gap
// table by gathers, one pair at a time.  Quality 0 runs the mode 6 fit of
// a row's opaque colour tiles one tile per lane (Mode6Group).
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

// A whole tile's channel 0 copied by vectors, its extremes over the
// lanes (the order does not matter to them); a subset's as the reference
// takes it.
HWY_INLINE int GreyValuesLanes(const Tile& t, uint32_t mask, int xs[16], int* lo, int* hi) {
  if (mask != 0xFFFF) return GreyValuesRef(t, mask, xs, lo, hi);
  const hn::ScalableTag<int32_t> d;
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  auto l = hn::Set(d, 255), h = hn::Zero(d);
  for (size_t i = 0; i < 16; i += N) {
    const auto v = hn::Load(d, t.c[0] + i);
    hn::StoreU(v, d, xs + i);
    l = hn::Min(l, v), h = hn::Max(h, v);
  }
  *lo = hn::GetLane(hn::MinOfLanes(d, l));
  *hi = hn::GetLane(hn::MaxOfLanes(d, h));
  return 16;
}

// Each pixel's four bytes in a 32-bit lane, a channel by shift and mask.
// The rows go into the lanes by 16-byte loads joined in registers (a
// wide load of a copy made by narrower stores would wait for them).
HWY_INLINE void LoadLanes(const uint8_t* at, ptrdiff_t step, Tile* t) {
  const hn::ScalableTag<int32_t> d;
  using V = decltype(hn::Zero(d));
  constexpr size_t kMax = 16;
  const size_t N = hn::Lanes(d) < kMax ? hn::Lanes(d) : kMax;
  V px[4];
#if HWY_ARCH_X86 && (HWY_MAX_BYTES == 64 || HWY_MAX_BYTES == 32)
  const hn::Full128<int32_t> d4;
  const hn::Twice<decltype(d4)> d8;
  auto row = [&](int r) { return hn::LoadU(d4, reinterpret_cast<const int32_t*>(at + step * r)); };
  const auto r01 = hn::Combine(d8, row(1), row(0)), r23 = hn::Combine(d8, row(3), row(2));
#if HWY_MAX_BYTES == 64
  px[0] = hn::Combine(d, r23, r01);
#else
  px[0] = r01, px[1] = r23;
#endif
#else
  alignas(64) int32_t buf[16];
  for (int r = 0; r < 4; ++r) std::memcpy(buf + 4 * r, at + step * r, 16);
  for (size_t i = 0; i < 16; i += N) px[i / N] = hn::Load(d, buf + i);
#endif
  const auto low = hn::Set(d, 255);
  for (size_t i = 0; i < 16; i += N) {
    const auto v = px[i / N];
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
  static HWY_INLINE int GreyValues(const Tile& t, uint32_t mask, int xs[16], int* lo, int* hi) {
    return GreyValuesLanes(t, mask, xs, lo, hi);
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

// Mode 6 codes with p-bits of 1 for each half step of 0..255: the code
// (as QuantOf(7, 1, true) gives it) in the low byte, its value above.
struct Mode6Codes {
  alignas(64) int32_t e[512];
};
inline constexpr Mode6Codes MakeMode6Codes() {
  Mode6Codes t{};
  const QuantTable& q = kQuant.t[3][2];
  for (int x = 0; x < 511; ++x) t.e[x] = q.q[x] | int32_t(kExpand.v[3][2][q.q[x]]) << 8;
  return t;
}
inline constexpr Mode6Codes kMode6Codes = MakeMode6Codes();

// Quality 0 over a row of tiles, one tile per lane: the opaque tiles
// that are not grey get EncodeTile's mode 6 fit (one power step, codes
// with p-bits of 1, the nearest of the 16 entries), each float step the
// one FitSubset takes in its order; the mode 1 trial and every other tile
// go through EncodeTile's steps one tile at a time.
template <class D>
HWY_INLINE void Mode6Group(D d, const uint8_t* at, int32_t step, int count, uint8_t* dst) {
  const hn::Rebind<float, D> df;
  const hn::RebindToUnsigned<D> du;
  using V = decltype(hn::Zero(d));
  using VF = decltype(hn::Zero(df));
  alignas(64) uint32_t rows[4][64];
  for (int r = 0; r < 4; ++r) {
    std::memcpy(rows[r], at + ptrdiff_t(step) * r, size_t(count) * 16);
    std::memset(rows[r] + 4 * count, 0, size_t(16 - count) * 16);
  }
  // Each lane's tile's pixels, RGBA in 32 bits: opaque where every alpha
  // byte is 255, grey where R ^ G and G ^ B are 0.
  V px[16];
  for (int r = 0; r < 4; ++r) {
    decltype(hn::Zero(du)) v[4];
    hn::LoadInterleaved4(du, rows[r], v[0], v[1], v[2], v[3]);
    for (int k = 0; k < 4; ++k) px[4 * r + k] = hn::BitCast(d, v[k]);
  }
  const V ones = hn::Set(d, -1), rgb = hn::Set(d, 0xFFFFFF), low = hn::Set(d, 0xFFFF);
  auto opaque = hn::Eq(hn::Or(px[0], rgb), ones);
  auto grey = hn::Eq(hn::And(hn::Xor(px[0], hn::ShiftRight<8>(px[0])), low), hn::Zero(d));
  for (int p = 1; p < 16; ++p) {
    opaque = hn::And(opaque, hn::Eq(hn::Or(px[p], rgb), ones));
    grey = hn::And(grey, hn::Eq(hn::And(hn::Xor(px[p], hn::ShiftRight<8>(px[p])), low), hn::Zero(d)));
  }
  const auto fit = hn::AndNot(grey, opaque);
  const auto live = hn::FirstN(d, size_t(count));
  alignas(64) int32_t fitted[16], flat[16];  // flat: grey and opaque
  hn::Store(hn::VecFromMask(d, hn::And(fit, live)), d, fitted);
  hn::Store(hn::VecFromMask(d, hn::And(opaque, grey)), d, flat);
  alignas(64) int32_t codes[2][4][16], err[16];
  alignas(64) int32_t key[16][16];
  if (!hn::AllFalse(d, hn::And(fit, live))) {
    // x[c][p]: channel c of pixel p (alpha 255 on these tiles).
    V x[3][16];
    for (int p = 0; p < 16; ++p) {
      x[0][p] = hn::And(px[p], hn::Set(d, 255));
      x[1][p] = hn::And(hn::ShiftRight<8>(px[p]), hn::Set(d, 255));
      x[2][p] = hn::And(hn::ShiftRight<16>(px[p]), hn::Set(d, 255));
    }
    // Sums (the alpha sum: 16 times 255 on these tiles).
    V s[3], pr[6];
    for (int c = 0; c < 3; ++c) s[c] = hn::Zero(d);
    for (V& v : pr) v = hn::Zero(d);
    for (int p = 0; p < 16; ++p) {
      for (int c = 0; c < 3; ++c) s[c] = hn::Add(s[c], x[c][p]);
      for (int i = 0, k = 0; i < 3; ++i) {
        for (int j = i; j < 3; ++j, ++k) pr[k] = hn::Add(pr[k], hn::Mul(x[i][p], x[j][p]));
      }
    }
    const VF n = hn::Set(df, 16.0f), zero = hn::Zero(df);
    VF mean[4], cov[3][3];
    for (int c = 0; c < 3; ++c) mean[c] = hn::Div(hn::ConvertTo(df, s[c]), n);
    mean[3] = hn::Div(hn::Set(df, 16.0f * 255.0f), n);
    for (int i = 0, k = 0; i < 3; ++i) {
      for (int j = i; j < 3; ++j, ++k) {
        cov[i][j] = cov[j][i] = hn::ConvertTo(df, hn::Sub(hn::ShiftLeft<4>(pr[k]), hn::Mul(s[i], s[j])));
      }
    }
    // The widest channel's row, one power step.
    const auto w1 = hn::Gt(cov[1][1], cov[0][0]);
    const VF dw = hn::IfThenElse(w1, cov[1][1], cov[0][0]);
    const auto w2 = hn::Gt(cov[2][2], dw);
    VF axis[3];
    for (int c = 0; c < 3; ++c) axis[c] = hn::IfThenElse(w2, cov[2][c], hn::IfThenElse(w1, cov[1][c], cov[0][c]));
    VF next[3], m = zero;
    for (int i = 0; i < 3; ++i) {
      next[i] = hn::Mul(cov[i][0], axis[0]);
      next[i] = hn::Add(next[i], hn::Mul(cov[i][1], axis[1]));
      next[i] = hn::Add(next[i], hn::Mul(cov[i][2], axis[2]));
      const VF a = hn::Abs(next[i]);
      m = hn::IfThenElse(hn::Gt(a, m), a, m);
    }
    const auto moved = hn::Gt(m, zero);
    const VF inv = hn::Div(hn::Set(df, 1.0f), m);
    for (int i = 0; i < 3; ++i) axis[i] = hn::IfThenElse(moved, hn::Mul(next[i], inv), axis[i]);
    VF len = hn::Mul(axis[0], axis[0]);
    len = hn::Add(len, hn::Mul(axis[1], axis[1]));
    len = hn::Add(len, hn::Mul(axis[2], axis[2]));
    len = hn::Add(len, hn::Mul(zero, zero));
    VF lo = hn::Set(df, 1e30f), hi = hn::Set(df, -1e30f);
    for (int p = 0; p < 16; ++p) {
      VF t = hn::Mul(hn::Sub(hn::ConvertTo(df, x[0][p]), mean[0]), axis[0]);
      t = hn::Add(t, hn::Mul(hn::Sub(hn::ConvertTo(df, x[1][p]), mean[1]), axis[1]));
      t = hn::Add(t, hn::Mul(hn::Sub(hn::ConvertTo(df, x[2][p]), mean[2]), axis[2]));
      t = hn::Add(t, hn::Mul(hn::Sub(hn::Set(df, 255.0f), mean[3]), zero));
      lo = hn::Min(lo, t), hi = hn::Max(hi, t);
    }
    const auto line = hn::Gt(len, zero);
    lo = hn::IfThenElseZero(line, hn::Div(lo, len));
    hi = hn::IfThenElseZero(line, hn::Div(hi, len));
    // Codes and values of both endpoints, then the palette.
    V val[2][4];
    for (int e = 0; e < 2; ++e) {
      const VF t = e ? hi : lo;
      for (int c = 0; c < 4; ++c) {
        VF a = hn::Add(mean[c], hn::Mul(t, c < 3 ? axis[c] : zero));
        const VF top = hn::Set(df, 255.0f);
        a = hn::IfThenElse(hn::Lt(a, zero), zero, hn::IfThenElse(hn::Gt(a, top), top, a));
        const V h = hn::ConvertTo(d, hn::Add(hn::Mul(a, hn::Set(df, 2.0f)), hn::Set(df, 0.5f)));
        const V q = hn::GatherIndex(d, kMode6Codes.e, hn::IfThenElseZero(hn::And(fit, live), h));
        hn::Store(hn::And(q, hn::Set(d, 255)), d, codes[e][c]);
        val[e][c] = hn::ShiftRight<8>(q);
      }
    }
    VF sq[16], twice[16][3];
    for (int k = 0; k < 16; ++k) {
      const V w = hn::Set(d, kWeightLanes[2][k]), w0 = hn::Set(d, 64 - kWeightLanes[2][k]);
      VF l = zero;
      for (int c = 0; c < 3; ++c) {
        const V e =
            hn::ShiftRight<6>(hn::Add(hn::Add(hn::Mul(w0, val[0][c]), hn::Mul(w, val[1][c])), hn::Set(d, 32)));
        const VF ef = hn::ConvertTo(df, e);
        l = hn::MulAdd(ef, ef, l);
        twice[k][c] = hn::Mul(ef, hn::Set(df, -2.0f));
      }
      sq[k] = l;
    }
    VF total = zero;
    for (int p = 0; p < 16; ++p) {
      VF px[3], l = zero;
      for (int c = 0; c < 3; ++c) px[c] = hn::ConvertTo(df, x[c][p]), l = hn::MulAdd(px[c], px[c], l);
      V best = hn::Set(d, INT32_MAX);
      for (int k = 0; k < 16; ++k) {
        VF dist = hn::Add(l, sq[k]);
        for (int c = 0; c < 3; ++c) dist = hn::MulAdd(px[c], twice[k][c], dist);
        best = hn::Min(best, hn::Or(hn::BitCast(d, dist), hn::Set(d, k)));
      }
      hn::Store(best, d, key[p]);
      total = hn::Add(total, hn::BitCast(df, hn::AndNot(hn::Set(d, 15), best)));
    }
    hn::Store(hn::ConvertTo(d, total), d, err);
  }
  const Effort eff{0, false, false, 1};
  Tile t;
  for (int j = 0; j < count; ++j, dst += 16) {
    if (!fitted[j]) {
      Kernel::Load(at + 16 * j, step, &t);
      if (flat[j]) {
        (EncodeGrey<Kernel>)(t, 0, dst);
      } else {
        (EncodeTile<Kernel>)(t, 0, dst);
      }
      continue;
    }
    Block best;
    best.err = uint32_t(err[j]), best.mode = 6, best.partition = 0, best.rotation = 0, best.selection = 0;
    for (int e = 0; e < 2; ++e) {
      for (int c = 0; c < 4; ++c) best.e[0].q[e][c] = codes[e][c][j];
      best.e[0].p[e] = 1;
    }
    uint32_t split = 0;
    for (int p = 0; p < 16; ++p) {
      best.idx[p] = uint8_t(key[p][j] & 15);
      split |= uint32_t(best.idx[p] >= 8) << p;
    }
    if (best.err > 256) {
      Kernel::Load(at + 16 * j, step, &t);
      (TryPartitioned<Kernel>)(t, 1, Kernel::NearestSplit(split), true, eff, &best);
    }
    Pack(best, dst);
  }
}

// Quality 0 with the whole tiles of each row in groups of one per lane;
// the partial tiles at the edges as Encode takes them.
HWY_INLINE RvtResult EncodeFast(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, 0));
  const hn::CappedTag<int32_t, 16> d;
  const int64_t lanes = int64_t(hn::Lanes(d));
  Tile t;
  for (int64_t y = 0; y < roi.height; y += 4) {
    int64_t x = 0;
    if (y + 4 <= roi.height) {
      while (x + 4 <= roi.width) {
        const int64_t whole = (roi.width - x) / 4;
        const int count = int(whole < lanes ? whole : lanes);
        Mode6Group(d, src + ptrdiff_t(y) * step + 4 * x, step, count, dst);
        x += 4 * count, dst += 16 * count;
      }
    }
    for (; x < roi.width; x += 4, dst += 16) {
      (GatherTile)(src, step, roi, x, y, &t);
      (EncodeTile<Kernel>)(t, 0, dst);
    }
  }
  return rvtStatusOk;
}

}  // namespace rvt::bc7_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // include guard
