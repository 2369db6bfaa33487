// DXT1, DXT3 and DXT5 encoding on one target: the evaluation of a colour
// part, the sums of the start and of the endpoint fits, the pixels' order
// along the axis, the split lists and the scoring of their splits.  The
// tile's R, G and B planes are 32-bit lanes; each entry's squared distance
// is taken for every pixel at once, the nearest entry kept (the lowest
// index on a tie, as the reference's ordered search).  No checks here: the
// driver has made them.
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
  // Pixel i's index lands at bit 2i: its lane's shift, the sum of the lanes
  // is their OR.
  const hn::RebindToUnsigned<decltype(d)> du;
  alignas(64) static constexpr uint32_t kShift[16] = {0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30};
  const auto transparent = hn::Set(d, int32_t(t.transparent));
  auto total = hn::Zero(d);
  auto word = hn::Zero(du);
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
    const auto id = hn::BitCast(du, hn::IfThenElse(clear, hn::Set(d, 3), k));
    word = hn::Add(word, hn::Shl(id, hn::Load(du, kShift + i)));
  }
  const uint32_t bits = hn::GetLane(hn::SumOfLanes(du, word));
  for (int i = 0; i < 4; ++i) p.b[4 + i] = uint8_t(bits >> (8 * i));
  p.err = hn::GetLane(hn::SumOfLanes(d, total));
  return p;
}

template <class D, class V>
HWY_INLINE int Total(D d, V v) {
  return hn::GetLane(hn::SumOfLanes(d, v));
}

// Whole-number sums over the tile: exact in any order, so equal to the
// reference's.
inline void MomentsOf(const Tile& t, const int32_t on[16], int r0, int g0, int b0, Moments* m) {
  const hn::CappedTag<int32_t, 16> d;
  const size_t N = hn::Lanes(d);
  const auto z = hn::Zero(d);
  auto s0 = z, s1 = z, s2 = z, rr = z, rg = z, rb = z, gg = z, gb = z, bb = z, n = z, same = z;
  for (size_t i = 0; i < 16; i += N) {
    const auto o = hn::LoadU(d, on + i);
    const auto r = hn::Mul(hn::Load(d, t.ch[0] + i), o), g = hn::Mul(hn::Load(d, t.ch[1] + i), o),
               b = hn::Mul(hn::Load(d, t.ch[2] + i), o);
    s0 = hn::Add(s0, r), s1 = hn::Add(s1, g), s2 = hn::Add(s2, b);
    rr = hn::Add(rr, hn::Mul(r, r)), rg = hn::Add(rg, hn::Mul(r, g)), rb = hn::Add(rb, hn::Mul(r, b));
    gg = hn::Add(gg, hn::Mul(g, g)), gb = hn::Add(gb, hn::Mul(g, b)), bb = hn::Add(bb, hn::Mul(b, b));
    n = hn::Add(n, o);
    const auto eq = hn::And(hn::And(hn::Eq(hn::Load(d, t.ch[0] + i), hn::Set(d, r0)),
                                    hn::Eq(hn::Load(d, t.ch[1] + i), hn::Set(d, g0))),
                            hn::Eq(hn::Load(d, t.ch[2] + i), hn::Set(d, b0)));
    same = hn::Add(same, hn::IfThenElseZero(eq, o));
  }
  m->sum[0] = Total(d, s0), m->sum[1] = Total(d, s1), m->sum[2] = Total(d, s2);
  m->sq[0] = Total(d, rr), m->sq[1] = Total(d, rg), m->sq[2] = Total(d, rb);
  m->sq[3] = Total(d, gg), m->sq[4] = Total(d, gb), m->sq[5] = Total(d, bb);
  m->n = Total(d, n), m->same = Total(d, same);
}

// The weights from the index fields lane by lane: four colours take 3, 0,
// 2, 1 on the first endpoint for indices 0 to 3, three colours 2, 0, 1, 0;
// transparent pixels nothing.
inline void NormalOf(const Tile& t, uint32_t idx, bool three, Normal* m) {
  const hn::CappedTag<int32_t, 16> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  const size_t N = hn::Lanes(d);
  alignas(64) static constexpr int32_t kBit[16] = {1 << 0,  1 << 1,  1 << 2,  1 << 3,  1 << 4,  1 << 5,
                                                   1 << 6,  1 << 7,  1 << 8,  1 << 9,  1 << 10, 1 << 11,
                                                   1 << 12, 1 << 13, 1 << 14, 1 << 15};
  alignas(64) static constexpr uint32_t kShift[16] = {0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30};
  const auto z = hn::Zero(d);
  const auto fields = hn::Set(du, idx);
  const auto transparent = hn::Set(d, int32_t(t.transparent));
  const auto one = hn::Set(d, 1), two = hn::Set(d, 2), scale = hn::Set(d, three ? 2 : 3);
  auto aa = z, ab = z, bb = z, a0 = z, a1 = z, a2 = z, b0 = z, b1 = z, b2 = z;
  for (size_t i = 0; i < 16; i += N) {
    const auto k = hn::BitCast(d, hn::And(hn::Shr(fields, hn::Load(du, kShift + i)), hn::Set(du, 3)));
    // Four colours: 3 for index 0, 0 for 1, 4 - k for 2 and 3; three
    // colours: 2 for 0, 1 for 2, 0 for 1 and 3.
    const auto w = three ? hn::IfThenElse(hn::Eq(k, z), two, hn::IfThenElseZero(hn::Eq(k, two), one))
                         : hn::IfThenElse(hn::Eq(k, z), hn::Set(d, 3), hn::IfThenElseZero(hn::Gt(k, one), hn::Sub(hn::Set(d, 4), k)));
    const auto clear = hn::TestBit(transparent, hn::Load(d, kBit + i));
    const auto x = hn::IfThenZeroElse(clear, w), y = hn::IfThenZeroElse(clear, hn::Sub(scale, w));
    const auto r = hn::Load(d, t.ch[0] + i), g = hn::Load(d, t.ch[1] + i), b = hn::Load(d, t.ch[2] + i);
    aa = hn::Add(aa, hn::Mul(x, x)), ab = hn::Add(ab, hn::Mul(x, y)), bb = hn::Add(bb, hn::Mul(y, y));
    a0 = hn::Add(a0, hn::Mul(x, r)), a1 = hn::Add(a1, hn::Mul(x, g)), a2 = hn::Add(a2, hn::Mul(x, b));
    b0 = hn::Add(b0, hn::Mul(y, r)), b1 = hn::Add(b1, hn::Mul(y, g)), b2 = hn::Add(b2, hn::Mul(y, b));
  }
  m->aa = Total(d, aa), m->ab = Total(d, ab), m->bb = Total(d, bb);
  m->ax[0] = Total(d, a0), m->ax[1] = Total(d, a1), m->ax[2] = Total(d, a2);
  m->bx[0] = Total(d, b0), m->bx[1] = Total(d, b1), m->bx[2] = Total(d, b2);
}

// The order by ranks: pixel i's place is the count of opaque pixels with a
// lower offset, or an equal one and a lower index (the stable order the
// reference's insertion gives), with no branch on the data.
inline void OrderOf(const Tile& t, const Start& s, Order* o) {
  const hn::CappedTag<float, 16> df;
  const hn::RebindToSigned<decltype(df)> d;
  const size_t N = hn::Lanes(d);
  alignas(64) int32_t rank[16];
  for (size_t i = 0; i < 16; i += N) {
    const auto pi = hn::LoadU(df, s.proj + i);
    const auto index = hn::Iota(d, int32_t(i));
    auto count = hn::Zero(d);
    for (int m = 0; m < 16; ++m) {
      if (t.transparent >> m & 1) continue;
      const auto pm = hn::Set(df, s.proj[m]);
      const auto before = hn::Or(hn::RebindMask(d, hn::Lt(pm, pi)),
                                 hn::And(hn::RebindMask(d, hn::Eq(pm, pi)), hn::Lt(hn::Set(d, m), index)));
      count = hn::Sub(count, hn::VecFromMask(d, before));
    }
    hn::Store(count, d, rank + i);
  }
  int ord[16], n = 0;
  for (int i = 0; i < 16; ++i) {
    if (t.transparent >> i & 1) continue;
    ord[rank[i]] = i, ++n;
  }
  o->n = n;
  for (int c = 0; c < 3; ++c) {
    o->pre[c][0] = 0;
    for (int m = 0; m < n; ++m) o->pre[c][m + 1] = o->pre[c][m] + t.ch[c][ord[m]];
  }
}

// The list's sums a run of k (three colours: of j) at a time: each store
// covers the five offsets of the fastest run end (the lanes past them are
// overwritten by the next store, or past the list).
inline void ListOf(const Order& o, bool three, const int run[3], SplitList* l) {
  const hn::CappedTag<int32_t, 8> d;
  const size_t N = hn::Lanes(d);
  l->count = kSplitOffsets.count[three];
  for (int e = 0; e < 3; ++e) l->r[e] = run[e];
  const int n = o.n, ends = three ? 2 : 3;
  int place[3][kSpan];  // the run ends' offsets, clamped
  for (int e = 0; e < ends; ++e) {
    for (int m = 0; m < kSpan; ++m) {
      const int x = run[e] - kWindow + m;
      place[e][m] = x < 0 ? 0 : x > n ? n : x;
    }
  }
  for (int c = 0; c < 3; ++c) {
    alignas(32) int32_t at[3][8] = {};
    for (int e = 0; e < ends; ++e) {
      for (int m = 0; m < kSpan; ++m) at[e][m] = o.pre[c][place[e][m]];
    }
    int32_t* ax = l->ax[c];
    for (int u = 0; u < kSpan; ++u) {
      if (three) {
        const auto vu = hn::Set(d, at[0][u]);
        for (size_t w = 0; w < kSpan; w += N) hn::StoreU(hn::Add(vu, hn::Load(d, at[1] + w)), d, ax + kSpan * u + w);
        continue;
      }
      for (int v = 0; v < kSpan; ++v) {
        const auto ij = hn::Set(d, at[0][u] + at[1][v]);
        for (size_t w = 0; w < kSpan; w += N) {
          hn::StoreU(hn::Add(ij, hn::Load(d, at[2] + w)), d, ax + kSpan * (kSpan * u + v) + w);
        }
      }
    }
    for (int p = l->count; p < 128 && (p & 15); ++p) ax[p] = 0;  // whole vectors
  }
}

// The splits' scores side by side: the same whole-number and float steps as
// SplitScore, lane by lane, the skipped splits scoring as singular; each lane
// keeps its first lowest score, then the lowest score of all and, among
// its lanes, the first split.
inline int BestSplit(const Order& o, bool three, const SplitList& l) {
  const hn::CappedTag<int32_t, 16> d;
  const hn::RebindToFloat<decltype(d)> df;
  const size_t N = hn::Lanes(d);
  const int n = o.n, scale = three ? 2 : 3;
  const auto vn = hn::Set(d, n);
  const auto big = hn::Set(d, INT32_MAX);
  auto best = big, at = hn::Set(d, -1);
  const auto lane = hn::Iota(d, 0);
  const auto& off = kSplitOffsets.d[three];
  const auto r0 = hn::Set(d, l.r[0]), r1 = hn::Set(d, l.r[1]), r2 = hn::Set(d, l.r[2]);
  for (int s = 0; s < l.count; s += int(N)) {
    const auto vi = hn::Add(r0, hn::Load(d, off[0] + s)), vj = hn::Add(r1, hn::Load(d, off[1] + s)),
               vk = hn::Add(r2, hn::Load(d, off[2] + s));
    // In the list and 0 <= i <= j <= k <= n; vectors of skipped splits
    // alone (a short run's offsets past it) are passed over.
    const auto in_order = hn::Not(hn::Or(hn::Or(hn::Lt(vi, hn::Zero(d)), hn::Gt(vi, vj)), hn::Or(hn::Gt(vj, vk), hn::Gt(vk, vn))));
    const auto live = hn::And(in_order, hn::Lt(hn::Add(lane, hn::Set(d, s)), hn::Set(d, l.count)));
    if (hn::AllFalse(d, live)) continue;
    const auto c0 = vi, c1 = hn::Sub(vj, vi), c2 = hn::Sub(vk, vj), c3 = hn::Sub(vn, vk);
    hn::Vec<decltype(d)> aa, ab, bb;
    if (three) {
      aa = hn::Add(hn::ShiftLeft<2>(c0), c1);
      ab = c1;
      bb = hn::Add(c1, hn::ShiftLeft<2>(c3));
    } else {
      aa = hn::Add(hn::Add(hn::Add(hn::ShiftLeft<3>(c0), c0), hn::ShiftLeft<2>(c1)), c2);
      ab = hn::ShiftLeft<1>(hn::Add(c1, c2));
      bb = hn::Add(hn::Add(c1, hn::ShiftLeft<2>(c2)), hn::Add(hn::ShiftLeft<3>(c3), c3));
    }
    const auto det = hn::Sub(hn::Mul(aa, bb), hn::Mul(ab, ab));
    const auto singular = hn::Eq(det, hn::Zero(d));
    const auto inv = hn::Div(hn::Set(df, float(scale)), hn::ConvertTo(df, hn::IfThenElse(singular, hn::Set(d, 1), det)));
    auto e = hn::Zero(d);
    for (int c = 0; c < 3; ++c) {
      // A's weights with the pixels from the list; B's are the rest of
      // scale times the channel's total.
      const auto ax = hn::Load(d, l.ax[c] + s);
      const auto bx = hn::Sub(hn::Set(d, scale * o.pre[c][n]), ax);
      const int top = c == 1 ? 63 : 31;
      const auto unit = hn::Set(df, float(top) / 255.0f), half = hn::Set(df, 0.5f);
      const auto na = hn::Sub(hn::Mul(bb, ax), hn::Mul(ab, bx)), nb = hn::Sub(hn::Mul(aa, bx), hn::Mul(ab, ax));
      auto x = hn::ConvertTo(d, hn::Add(hn::Mul(hn::Mul(hn::ConvertTo(df, na), inv), unit), half));
      auto y = hn::ConvertTo(d, hn::Add(hn::Mul(hn::Mul(hn::ConvertTo(df, nb), inv), unit), half));
      x = hn::Min(hn::Max(x, hn::Zero(d)), hn::Set(d, top));
      y = hn::Min(hn::Max(y, hn::Zero(d)), hn::Set(d, top));
      const int up = c == 1 ? 2 : 3, down = c == 1 ? 4 : 2;
      const auto a = hn::Or(hn::ShiftLeftSame(x, up), hn::ShiftRightSame(x, down));
      const auto b = hn::Or(hn::ShiftLeftSame(y, up), hn::ShiftRightSame(y, down));
      // a (a aa + 2 b ab - 2 scale ax) + b (b bb - 2 scale bx): the same
      // whole number with three products fewer (2 scale bx from 2 scale ax).
      const auto ax2 = hn::Mul(hn::Set(d, 2 * scale), ax);
      const auto bx2 = hn::Sub(hn::Set(d, 2 * scale * scale * o.pre[c][n]), ax2);
      const auto bab = hn::Mul(b, ab);
      const auto ta = hn::Sub(hn::Add(hn::Mul(a, aa), hn::Add(bab, bab)), ax2);
      const auto tb = hn::Sub(hn::Mul(b, bb), bx2);
      e = hn::Add(e, hn::Add(hn::Mul(a, ta), hn::Mul(b, tb)));
    }
    e = hn::IfThenElse(hn::AndNot(singular, live), e, big);
    const auto lower = hn::Lt(e, best);
    best = hn::IfThenElse(lower, e, best);
    at = hn::IfThenElse(lower, hn::Add(lane, hn::Set(d, s)), at);
  }
  const auto low = hn::MinOfLanes(d, best);
  if (hn::GetLane(low) == INT32_MAX) return -1;
  return hn::GetLane(hn::MinOfLanes(d, hn::IfThenElse(hn::Eq(best, low), at, big)));
}

struct Kernels {
  static constexpr EvalFn kEval = Eval;
  static constexpr MomentsFn kMoments = MomentsOf;
  static constexpr NormalFn kNormal = NormalOf;
  static constexpr OrderFn kOrder = OrderOf;
  static constexpr ListFn kList = ListOf;
  static constexpr SplitFn kSplit = BestSplit;
  static constexpr bc_encode::ChannelFn kChannel = bc_encode::HWY_NAMESPACE::EncodeChannel;
};

#include "texture/dxt_encode-search.h"  // IWYU pragma: keep

}  // namespace rvt::dxt_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_DXT_ENCODE_INL_H_
