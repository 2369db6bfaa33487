// Encoding of DXT1, DXT3 and DXT5 texture blocks over whole regions: the
// scalar reference of the colour endpoint search (principal axis, least
// squares refinement, local search), the alpha parts, and the region walk
// with edge tiles padded by replication.  Checks are BC4's.
#ifndef RVT_TEXTURE_DXT_ENCODE_H_
#define RVT_TEXTURE_DXT_ENCODE_H_

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

inline void Expand(uint16_t c, float out[3]) {
  uint8_t rgb[3];
  bc_decode::Expand565(c, rgb);
  for (int k = 0; k < 3; ++k) out[k] = rgb[k];
}

// The sums of the least squares system for weights w0, w1 (whole numbers)
// of each pixel: w0.w0, w0.w1, w1.w1 and, per channel, w0.x and w1.x.
struct Normal {
  int aa = 0, ab = 0, bb = 0, ax[3] = {}, bx[3] = {};
};
using NormalFn = void (*)(const Tile& t, const int32_t w0[16], const int32_t w1[16], Normal* m);

inline void NormalOf(const Tile& t, const int32_t w0[16], const int32_t w1[16], Normal* m) {
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

// Least squares endpoints for the indices of `p`: each opaque pixel is
// w0 * A + w1 * B with the weights of its entry.  The sums are taken in
// whole numbers (weights in thirds, or halves for three colours), so they
// are exact in any order.  False when the system is singular (every pixel
// on one entry).
template <NormalFn kNormal>
bool Refit(const Tile& t, const Part& p, bool three_form, float A[3], float B[3]) {
  const uint16_t c0 = uint16_t(p.b[0] | p.b[1] << 8), c1 = uint16_t(p.b[2] | p.b[3] << 8);
  const bool three = three_form && c0 <= c1;
  const int scale = three ? 2 : 3;
  const int w_four[4] = {3, 0, 2, 1}, w_three[4] = {2, 0, 1, 0};
  const int* w = three ? w_three : w_four;
  const uint32_t idx = uint32_t(p.b[4] | p.b[5] << 8 | p.b[6] << 16 | uint32_t(p.b[7]) << 24);
  alignas(64) int32_t w0[16], w1[16];
  for (int i = 0; i < 16; ++i) {
    const bool clear = t.transparent >> i & 1;
    w0[i] = clear ? 0 : w[idx >> (2 * i) & 3];
    w1[i] = clear ? 0 : scale - w0[i];
  }
  Normal m;
  kNormal(t, w0, w1, &m);
  const int aa = m.aa, ab = m.ab, bb = m.bb;
  const int* ax = m.ax;
  const int* bx = m.bx;
  const int det = aa * bb - ab * ab;
  if (det == 0) return false;
  for (int c = 0; c < 3; ++c) {
    A[c] = float((bb * ax[c] - ab * bx[c]) * scale) / float(det);
    B[c] = float((aa * bx[c] - ab * ax[c]) * scale) / float(det);
  }
  return true;
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

// What both forms of a tile start from: the opaque pixels' count, whether
// they are one colour (and the first of them), and the endpoints at the
// extremes of their projections on the principal axis.  The sums are whole
// numbers; the axis comes from the covariance (times n squared) by power
// iteration from the channel of the widest spread.
struct Start {
  int n = 0, first = -1;
  bool one_colour = true;
  float A[3], B[3];
};

template <MomentsFn kMoments>
Start StartOf(const Tile& t) {
  Start s;
  alignas(64) int32_t on[16];  // 1 for the opaque pixels
  for (int i = 0; i < 16; ++i) {
    on[i] = ~t.transparent >> i & 1;
    if (on[i] && s.first < 0) s.first = i;
  }
  if (s.first < 0) return s;
  Moments m;
  kMoments(t, on, t.ch[0][s.first], t.ch[1][s.first], t.ch[2][s.first], &m);
  s.n = m.n;
  const int* sum = m.sum;
  const int* sq = m.sq;
  s.one_colour = m.same == s.n;
  if (s.n == 0 || s.one_colour) return s;
  float mean[3];
  for (int c = 0; c < 3; ++c) mean[c] = float(sum[c]) / float(s.n);
  const int pairs[6][2] = {{0, 0}, {0, 1}, {0, 2}, {1, 1}, {1, 2}, {2, 2}};
  float cov[6];
  for (int k = 0; k < 6; ++k) cov[k] = float(s.n * sq[k] - sum[pairs[k][0]] * sum[pairs[k][1]]);
  float axis[3] = {cov[0], cov[3], cov[5]};
  for (int it = 0; it < 6; ++it) {
    const float x = cov[0] * axis[0] + cov[1] * axis[1] + cov[2] * axis[2];
    const float y = cov[1] * axis[0] + cov[3] * axis[1] + cov[4] * axis[2];
    const float z = cov[2] * axis[0] + cov[4] * axis[1] + cov[5] * axis[2];
    float m = x > 0 ? x : -x;
    m = (y > m || -y > m) ? (y > 0 ? y : -y) : m;
    m = (z > m || -z > m) ? (z > 0 ? z : -z) : m;
    if (m <= 0) break;
    axis[0] = x / m, axis[1] = y / m, axis[2] = z / m;
  }
  float lo = 1e30f, hi = -1e30f;
  for (int i = 0; i < 16; ++i) {
    if (t.transparent >> i & 1) continue;
    const float d = (float(t.ch[0][i]) - mean[0]) * axis[0] + (float(t.ch[1][i]) - mean[1]) * axis[1] +
                    (float(t.ch[2][i]) - mean[2]) * axis[2];
    lo = d < lo ? d : lo;
    hi = d > hi ? d : hi;
  }
  const float len = axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2];
  for (int c = 0; c < 3; ++c) {
    s.A[c] = mean[c] + (len > 0 ? hi / len : 0) * axis[c];
    s.B[c] = mean[c] + (len > 0 ? lo / len : 0) * axis[c];
  }
  return s;
}

// The colour part of a tile in one form.  Every quality: the start's
// endpoints.  Quality 1: a tile of one colour takes the best pair for it;
// otherwise up to two least squares refinements of the endpoints for the
// indices found.  Quality 2: up to eight refinements, then each of the six
// endpoint components moved by one while the error drops.
using EvalFn = Part (*)(const Tile& t, uint16_t a, uint16_t b, bool dxt1, bool three);

template <EvalFn kEval, NormalFn kNormal>
Part FitForm(const Tile& t, const Start& s, bool dxt1, bool three, int quality) {
  if (s.n == 0) return kEval(t, 0, 0, dxt1, true);
  Part best;
  const int first = s.first;
  const float exact[3] = {float(t.ch[0][first]), float(t.ch[1][first]), float(t.ch[2][first])};
  if (s.one_colour) {
    const Part q = kEval(t, Pack565(exact), Pack565(exact), dxt1, three);
    if (quality == 0) return q;
    int a[3] = {}, b[3] = {};
    SingleChannel(t.ch[0][first], 5, three, &a[0], &b[0]);
    SingleChannel(t.ch[1][first], 6, three, &a[1], &b[1]);
    SingleChannel(t.ch[2][first], 5, three, &a[2], &b[2]);
    best = kEval(t, uint16_t(a[0] << 11 | a[1] << 5 | a[2]), uint16_t(b[0] << 11 | b[1] << 5 | b[2]), dxt1, three);
    return q.err < best.err ? q : best;
  }
  float A[3], B[3];
  for (int c = 0; c < 3; ++c) A[c] = s.A[c], B[c] = s.B[c];
  best = kEval(t, Pack565(A), Pack565(B), dxt1, three);
  const int rounds = quality == 0 ? 0 : quality == 1 ? 2 : 8;
  for (int r = 0; r < rounds && best.err > 0; ++r) {
    if (!Refit<kNormal>(t, best, dxt1, A, B)) break;
    const Part p = kEval(t, Pack565(A), Pack565(B), dxt1, three);
    if (p.err >= best.err) break;
    best = p;
  }
  if (quality >= 2) {
    for (int pass = 0; pass < 16 && best.err > 0; ++pass) {
      bool moved = false;
      for (int e = 0; e < 2; ++e) {
        for (int f = 0; f < 3; ++f) {
          const int shift = f == 0 ? 11 : f == 1 ? 5 : 0, max = f == 1 ? 63 : 31;
          for (int dir = -1; dir <= 1; dir += 2) {
            uint16_t c[2] = {uint16_t(best.b[0] | best.b[1] << 8), uint16_t(best.b[2] | best.b[3] << 8)};
            const int v = (c[e] >> shift & max) + dir;
            if (v < 0 || v > max) continue;
            c[e] = uint16_t((c[e] & ~(max << shift)) | v << shift);
            const Part p = kEval(t, c[0], c[1], dxt1, three);
            if (p.err < best.err) best = p, moved = true;
          }
        }
      }
      if (!moved) break;
    }
  }
  return best;
}

// The colour part of a tile: DXT1 tiles with transparent pixels take the
// three-colour form; opaque DXT1 tiles from quality 1 also try it (indices
// 0 to 2 only) and keep it when its error is lower.
template <class K>
void EncodeColour(const Tile& t, bool dxt1, int quality, uint8_t* out) {
  const Start s = StartOf<K::kMoments>(t);
  Part best = FitForm<K::kEval, K::kNormal>(t, s, dxt1, dxt1 && t.transparent != 0, quality);
  if (dxt1 && t.transparent == 0 && quality >= 1 && best.err > 0) {
    const Part p = FitForm<K::kEval, K::kNormal>(t, s, true, true, quality);
    if (p.err < best.err) best = p;
  }
  std::memcpy(out, best.b, 8);
}

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

// Format 1: DXT1 (8 bytes); 3: DXT3 (explicit 4-bit alpha, nearest of the
// multiples of 16 the decoder gives back); 5: DXT5 (the alpha part as a
// BC4 block of the same quality).
// The kernels K: the colour part's evaluation (kEval), the sums of the
// start (kMoments) and of the least squares (kNormal), the alpha channel
// block (kChannel).
struct RefKernels {
  static constexpr EvalFn kEval = Eval;
  static constexpr MomentsFn kMoments = MomentsOf;
  static constexpr NormalFn kNormal = NormalOf;
  static constexpr bc_encode::ChannelFn kChannel = bc_encode::EncodeChannel;
};

template <int kFormat, class K>
RvtResult Encode(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  Tile t;
  uint8_t px[64], v[16];
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4) {
      GatherRgba(src, step, roi, x, y, px);
      for (int i = 0; i < 16; ++i) {
        for (int c = 0; c < 3; ++c) t.ch[c][i] = px[4 * i + c];
        v[i] = px[4 * i + 3];
      }
      t.transparent = 0;
      if (kFormat == 1) {
        for (int i = 0; i < 16; ++i) t.transparent |= uint16_t((v[i] < kAlphaCutoff) << i);
      } else if (kFormat == 3) {
        uint64_t bits = 0;
        for (int i = 0; i < 16; ++i) bits |= uint64_t(v[i] >= 232 ? 15 : (v[i] + 8) >> 4) << (4 * i);
        for (int i = 0; i < 8; ++i) dst[i] = uint8_t(bits >> (8 * i));
        dst += 8;
      } else {
        K::kChannel(v, quality, dst);
        dst += 8;
      }
      EncodeColour<K>(t, kFormat == 1, quality, dst);
      dst += 8;
    }
  }
  return rvtStatusOk;
}

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
