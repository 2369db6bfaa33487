// Encoding of DXT1, DXT3 and DXT5 texture blocks over whole regions: the
// scalar reference of the colour endpoint search (principal axis, least
// squares refinement, local search), the alpha parts, and the region walk
// with edge tiles padded by replication.  Checks are BC4's.
#ifndef RVT_TEXTURE_DXT_ENCODE_H_
#define RVT_TEXTURE_DXT_ENCODE_H_

#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>

#include "texture/bc_decode.h"
#include "texture/bc_encode.h"

namespace rvt::dxt_encode {

// DXT1 pixels whose alpha is below this are transparent: they force the
// three-colour form and take its index 3.
constexpr int kAlphaCutoff = 128;

// The tile's pixels and which of them the colour part must fit.
struct Tile {
  alignas(64) int32_t ch[3][16];  // R, G, B planes
  uint16_t transparent = 0;  // DXT1: bit p set for a pixel below the cut-off
};

// A candidate colour part: its 8 bytes and squared RGB error over the
// tile's opaque pixels.
struct Part {
  uint8_t b[8];
  int err = 1 << 30;
};

inline int Quant(float v, int max) {
  const int q = int(v * float(max) / 255.0f + 0.5f);
  return q < 0 ? 0 : q > max ? max : q;
}
inline uint16_t Pack565(const float c[3]) {
  return uint16_t(Quant(c[0], 31) << 11 | Quant(c[1], 63) << 5 | Quant(c[2], 31));
}

// The part of endpoints (a, b), ordered for the form asked for (DXT1: a
// larger first for four colours, smaller first for three; DXT3/5 always
// decode four), each opaque pixel taking its nearest entry (the lowest
// index on a tie; entry 3 of the three-colour form is kept for transparent
// pixels), and its error.
inline Part Eval(const Tile& t, uint16_t a, uint16_t b, bool dxt1, bool three) {
  Part p;
  if (dxt1 && (three ? a > b : a < b)) std::swap(a, b);
  p.b[0] = uint8_t(a), p.b[1] = uint8_t(a >> 8), p.b[2] = uint8_t(b), p.b[3] = uint8_t(b >> 8);
  uint8_t pal[4][4];
  bc_decode::ColourPalette(p.b, dxt1, 255, pal);
  const int entries = dxt1 && a <= b ? 3 : 4;
  uint32_t idx = 0;
  int total = 0;
  for (int i = 0; i < 16; ++i) {
    int k = 3;
    if (!(t.transparent >> i & 1)) {
      int best = 1 << 30;
      for (int e = 0; e < entries; ++e) {
        const int dr = t.ch[0][i] - pal[e][0], dg = t.ch[1][i] - pal[e][1], db = t.ch[2][i] - pal[e][2];
        const int d = dr * dr + dg * dg + db * db;
        if (d < best) best = d, k = e;
      }
      total += best;
    }
    idx |= uint32_t(k) << (2 * i);
  }
  for (int i = 0; i < 4; ++i) p.b[4 + i] = uint8_t(idx >> (8 * i));
  p.err = total;
  return p;
}

using EvalFn = Part (*)(const Tile& t, uint16_t a, uint16_t b, bool dxt1, bool three);

inline void Expand(uint16_t c, float out[3]) {
  uint8_t rgb[3];
  bc_decode::Expand565(c, rgb);
  for (int k = 0; k < 3; ++k) out[k] = rgb[k];
}

// The sums of the least squares system for the indices idx (2 bits per
// pixel) of the four- or three-colour form: each pixel weighs w0 on the
// first endpoint and w1 on the second, whole numbers summing to 3 (three
// colours: 2), nothing when it is transparent.  The sums: w0.w0, w0.w1,
// w1.w1 and, per channel, w0.x and w1.x.
struct Normal {
  int aa = 0, ab = 0, bb = 0, ax[3] = {}, bx[3] = {};
};
using NormalFn = void (*)(const Tile& t, uint32_t idx, bool three, Normal* m);

inline void NormalOf(const Tile& t, uint32_t idx, bool three, Normal* m) {
  const int w_four[4] = {3, 0, 2, 1}, w_three[4] = {2, 0, 1, 0};
  const int* w = three ? w_three : w_four;
  int w0[16], w1[16];
  for (int i = 0; i < 16; ++i) {
    const bool clear = t.transparent >> i & 1;
    w0[i] = clear ? 0 : w[idx >> (2 * i) & 3];
    w1[i] = clear ? 0 : (three ? 2 : 3) - w0[i];
  }
  for (int i = 0; i < 16; ++i) m->aa += w0[i] * w0[i], m->ab += w0[i] * w1[i], m->bb += w1[i] * w1[i];
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < 16; ++i) m->ax[c] += w0[i] * t.ch[c][i], m->bx[c] += w1[i] * t.ch[c][i];
  }
}

// The moments of the pixels marked in `on` (1 or 0): their count, how many
// equal (r0, g0, b0), the channel sums and the six sums of channel
// products (rr, rg, rb, gg, gb, bb).
struct Moments {
  int n = 0, same = 0, sum[3] = {}, sq[6] = {};
};
using MomentsFn = void (*)(const Tile& t, const int32_t on[16], int r0, int g0, int b0, Moments* m);

inline void MomentsOf(const Tile& t, const int32_t on[16], int r0, int g0, int b0, Moments* m) {
  for (int i = 0; i < 16; ++i) {
    const int r = t.ch[0][i] * on[i], g = t.ch[1][i] * on[i], b = t.ch[2][i] * on[i];
    m->sum[0] += r, m->sum[1] += g, m->sum[2] += b;
    m->sq[0] += r * r, m->sq[1] += r * g, m->sq[2] += r * b, m->sq[3] += g * g, m->sq[4] += g * b, m->sq[5] += b * b;
    m->n += on[i];
    m->same += on[i] & (t.ch[0][i] == r0) & (t.ch[1][i] == g0) & (t.ch[2][i] == b0);
  }
}

// The best pair for one channel value alone: the endpoints (5 or 6 bits)
// whose entry 0 or two-thirds entry is nearest to v (three colours: the
// mean entry); the first in (e0, e1) order on a tie.  Made for every value
// when the library is compiled, from the first pair giving each entry:
// [form: four 5-bit, four 6-bit, three 5-bit, three 6-bit][v] = e0 << 8 | e1.
struct SingleChannelTable {
  uint16_t pair[4][256];
  constexpr SingleChannelTable() : pair{} {
    for (int f = 0; f < 4; ++f) {
      const int bits = f & 1 ? 6 : 5, max = (1 << bits) - 1;
      int first[256];  // a << 8 | b of the first pair giving each entry, or -1
      for (int& x : first) x = -1;
      for (int a = 0; a <= max; ++a) {
        const int ea = bits == 5 ? (a << 3 | a >> 2) : (a << 2 | a >> 4);
        for (int b = 0; b <= max; ++b) {
          const int eb = bits == 5 ? (b << 3 | b >> 2) : (b << 2 | b >> 4);
          const int mid = f >= 2 ? (ea + eb) >> 1 : (2 * ea + eb) / 3;
          if (first[mid] < 0) first[mid] = a << 8 | b;
        }
      }
      for (int v = 0; v < 256; ++v) {
        int best = 1 << 30, at = 0;
        for (int mid = 0; mid < 256; ++mid) {
          if (first[mid] < 0) continue;
          const int d = (mid - v) * (mid - v);
          if (d < best || (d == best && first[mid] < at)) best = d, at = first[mid];
        }
        pair[f][v] = uint16_t(at);
      }
    }
  }
};
inline constexpr SingleChannelTable kSingleChannel{};

inline void SingleChannel(int v, int bits, bool three, int* e0, int* e1) {
  const int p = kSingleChannel.pair[(three ? 2 : 0) + (bits == 6)][v];
  *e0 = p >> 8, *e1 = p & 255;
}

// The opaque pixels in the order of their offsets along the axis (the
// lower index first on a tie) and the channel sums of the first m of them.
struct Order {
  int n = 0;
  alignas(64) int pre[3][17];
};

// Splits of the ordered pixels into consecutive runs on the form's entries
// from A to B: [0, i) on A; [i, j) two parts A to one of B (three colours:
// the mean); [j, k) one to two (three colours: none, k = j); [k, n) on B.
// A list holds the splits whose run ends lie within kWindow of the centre
// (r[0], r[1], r[2]): every offset, i's slowest and k's fastest (three
// colours: i's and j's, k = j), those outside 0 <= i <= j <= k <= n
// skipped.
constexpr int kWindow = 2, kSpan = 2 * kWindow + 1;

struct SplitOffsets {
  int count[2];  // four colours, three colours
  alignas(64) int32_t d[2][3][128];  // [form][run end][split]: offsets from the centre
  constexpr SplitOffsets() : count{}, d{} {
    for (int f = 0; f < 2; ++f) {
      const int dims = f ? 2 : 3, total = dims == 3 ? kSpan * kSpan * kSpan : kSpan * kSpan;
      count[f] = total;
      for (int s = 0; s < total; ++s) {
        const int di = dims == 3 ? s / (kSpan * kSpan) : s / kSpan;
        const int dj = dims == 3 ? s / kSpan % kSpan : s % kSpan;
        d[f][0][s] = di - kWindow, d[f][1][s] = dj - kWindow, d[f][2][s] = (dims == 3 ? s % kSpan : dj) - kWindow;
      }
    }
  }
};
inline constexpr SplitOffsets kSplitOffsets{};

struct SplitList {
  int count = 0, r[3] = {};
  // Per channel, the sum of the prefixes at the run ends (i, j and k; three
  // colours i and j): the A weights' sum with the pixels, in thirds
  // (halves); anything for the skipped splits.  Zero past count, to whole
  // vectors.
  alignas(64) int32_t ax[3][128];
};

// Split s of the list: its run ends, false when it is skipped.
inline bool SplitAt(const SplitList& l, bool three, int n, int s, int* i, int* j, int* k) {
  const auto& d = kSplitOffsets.d[three];
  *i = l.r[0] + d[0][s], *j = l.r[1] + d[1][s], *k = l.r[2] + d[2][s];
  return *i >= 0 && *i <= *j && *j <= *k && *k <= n;
}

// A split's least squares endpoints rounded to 5:6:5 (ea for the A end),
// and the squared error that assignment leaves, exactly, in whole numbers
// (less the pixels' own squares, times 9 or 4); INT32_MAX when the system
// is singular.
inline int SplitScore(const Order& o, bool three, int i, int j, int k, uint16_t* ea, uint16_t* eb) {
  const int n = o.n, scale = three ? 2 : 3;
  const int c0 = i, c1 = j - i, c2 = k - j, c3 = n - k;
  const int aa = three ? 4 * c0 + c1 : 9 * c0 + 4 * c1 + c2;
  const int ab = three ? c1 : 2 * (c1 + c2);
  const int bb = three ? c1 + 4 * c3 : c1 + 4 * c2 + 9 * c3;
  const int det = aa * bb - ab * ab;
  const float inv = float(scale) / float(det == 0 ? 1 : det);
  int e = 0, qa[3], qb[3];
  for (int c = 0; c < 3; ++c) {
    const int* pre = o.pre[c];
    const int r0 = pre[i], r1 = pre[j] - pre[i], r2 = pre[k] - pre[j], r3 = pre[n] - pre[k];
    const int ax = three ? 2 * r0 + r1 : 3 * r0 + 2 * r1 + r2;
    const int bx = three ? r1 + 2 * r3 : r1 + 2 * r2 + 3 * r3;
    const int top = c == 1 ? 63 : 31;
    const float unit = float(top) / 255.0f;
    int x = int(float(bb * ax - ab * bx) * inv * unit + 0.5f);
    int y = int(float(aa * bx - ab * ax) * inv * unit + 0.5f);
    x = x < 0 ? 0 : x > top ? top : x;
    y = y < 0 ? 0 : y > top ? top : y;
    qa[c] = x, qb[c] = y;
    const int a = c == 1 ? (x << 2 | x >> 4) : (x << 3 | x >> 2);
    const int b = c == 1 ? (y << 2 | y >> 4) : (y << 3 | y >> 2);
    e += a * a * aa + 2 * a * b * ab + b * b * bb - 2 * scale * (a * ax + b * bx);
  }
  *ea = uint16_t(qa[0] << 11 | qa[1] << 5 | qa[2]);
  *eb = uint16_t(qb[0] << 11 | qb[1] << 5 | qb[2]);
  return det == 0 ? INT32_MAX : e;
}

// The first split of the list with the lowest score; -1 when every one is
// singular.
using SplitFn = int (*)(const Order& o, bool three, const SplitList& l);

inline int BestSplit(const Order& o, bool three, const SplitList& l) {
  int best = INT32_MAX, at = -1;
  for (int s = 0; s < l.count; ++s) {
    uint16_t a, b;
    int i, j, k;
    if (!SplitAt(l, three, o.n, s, &i, &j, &k)) continue;
    const int e = SplitScore(o, three, i, j, k, &a, &b);
    if (e < best) best = e, at = s;
  }
  return at;
}

// What both forms of a tile start from: the opaque pixels' count, whether
// they are one colour (and the first of them), and the endpoints at the
// extremes of their projections on the principal axis.  The sums are whole
// numbers; the axis comes from the covariance (times n squared) by power
// iteration from the channel of the widest spread.
struct Start {
  int n = 0, first = -1;
  bool one_colour = true;
  float A[3], B[3];
  float proj[16];  // the opaque pixels' offsets along the axis
};

// The 4x4 RGBA tile at (x, y), edge pixels replicated past the region's
// right and bottom edges.
inline void GatherRgba(const uint8_t* src, int32_t step, ImageSize roi, int64_t x, int64_t y, uint8_t px[64]) {
  const bool inside = x + 4 <= roi.width;
  for (int r = 0; r < 4; ++r) {
    const int64_t yy = y + r < roi.height ? y + r : roi.height - 1;
    const uint8_t* row = src + ptrdiff_t(yy) * step;
    if (inside) {
      std::memcpy(px + 16 * r, row + 4 * x, 16);
      continue;
    }
    for (int k = 0; k < 4; ++k) std::memcpy(px + 16 * r + 4 * k, row + 4 * (x + k < roi.width ? x + k : roi.width - 1), 4);
  }
}

// The pixels' order along the axis, the lower index first on a tie.
using OrderFn = void (*)(const Tile& t, const Start& s, Order* o);

inline void OrderOf(const Tile& t, const Start& s, Order* o) {
  int ord[16], n = 0;
  for (int i = 0; i < 16; ++i) {
    if (t.transparent >> i & 1) continue;
    int k = n++;
    while (k > 0 && s.proj[ord[k - 1]] > s.proj[i]) ord[k] = ord[k - 1], --k;
    ord[k] = i;
  }
  o->n = n;
  for (int c = 0; c < 3; ++c) {
    o->pre[c][0] = 0;
    for (int m = 0; m < n; ++m) o->pre[c][m + 1] = o->pre[c][m] + t.ch[c][ord[m]];
  }
}

// The splits around the run ends `run` (the centre) with their prefix sums.
using ListFn = void (*)(const Order& o, bool three, const int run[3], SplitList* l);

inline void ListOf(const Order& o, bool three, const int run[3], SplitList* l) {
  l->count = kSplitOffsets.count[three];
  for (int e = 0; e < 3; ++e) l->r[e] = run[e];
  const int n = o.n;
  for (int c = 0; c < 3; ++c) {
    // The prefixes at each run end's offsets (clamped: the splits out
    // of range are skipped), summed for every split of the list.
    int at[3][kSpan];
    for (int e = 0; e < 3; ++e) {
      for (int m = 0; m < kSpan; ++m) {
        const int x = run[e] - kWindow + m;
        at[e][m] = three && e == 2 ? 0 : o.pre[c][x < 0 ? 0 : x > n ? n : x];
      }
    }
    int32_t* ax = l->ax[c];
    for (int u = 0; u < kSpan; ++u) {
      for (int v = 0; v < kSpan; ++v) {
        const int ij = at[0][u] + at[1][v];
        if (three) {
          *ax++ = ij;
          continue;
        }
        for (int w = 0; w < kSpan; ++w) *ax++ = ij + at[2][w];
      }
    }
    for (int p = l->count; p < 128 && (p & 15); ++p) *ax++ = 0;  // whole vectors
  }
}

// Format 1: DXT1 (8 bytes); 3: DXT3 (explicit 4-bit alpha, nearest of the
// multiples of 16 the decoder gives back); 5: DXT5 (the alpha part as a
// BC4 block of the same quality).
// The kernels K: the colour part's evaluation (kEval), the sums of the
// start (kMoments) and of the least squares (kNormal), the pixels' order
// along the axis (kOrder), the split lists (kList) and their best split
// (kSplit), the alpha channel block (kChannel).
struct RefKernels {
  static constexpr EvalFn kEval = Eval;
  static constexpr MomentsFn kMoments = MomentsOf;
  static constexpr NormalFn kNormal = NormalOf;
  static constexpr OrderFn kOrder = OrderOf;
  static constexpr ListFn kList = ListOf;
  static constexpr SplitFn kSplit = BestSplit;
  static constexpr bc_encode::ChannelFn kChannel = bc_encode::EncodeChannel;
};

// The search and the region walk over the reference kernels.
#include "texture/dxt_encode-search.h"  // IWYU pragma: keep

inline RvtResult Dxt1Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<1, RefKernels>(s, step, d, roi, q);
}
inline RvtResult Dxt3Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<3, RefKernels>(s, step, d, roi, q);
}
inline RvtResult Dxt5Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<5, RefKernels>(s, step, d, roi, q);
}

}  // namespace rvt::dxt_encode

#endif  // RVT_TEXTURE_DXT_ENCODE_H_
