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
  int px[16][4];
  alignas(64) int32_t ch[3][16];  // R, G, B planes of px
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
        const int dr = t.px[i][0] - pal[e][0], dg = t.px[i][1] - pal[e][1], db = t.px[i][2] - pal[e][2];
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

// Least squares endpoints for the indices of `p`: each opaque pixel is
// w0 * A + w1 * B with the weights of its entry.  False when the system
// is singular (every pixel on one entry).
inline bool Refit(const Tile& t, const Part& p, bool three_form, float A[3], float B[3]) {
  const uint16_t c0 = uint16_t(p.b[0] | p.b[1] << 8), c1 = uint16_t(p.b[2] | p.b[3] << 8);
  const bool three = three_form && c0 <= c1;
  const float w_four[4] = {1.0f, 0.0f, 2.0f / 3, 1.0f / 3}, w_three[4] = {1.0f, 0.0f, 0.5f, 0.0f};
  const float* w = three ? w_three : w_four;
  float aa = 0, ab = 0, bb = 0, ax[3] = {}, bx[3] = {};
  for (int i = 0; i < 16; ++i) {
    if (t.transparent >> i & 1) continue;
    const int k = p.b[4 + i / 4] >> (2 * (i % 4)) & 3;
    const float w0 = w[k], w1 = 1.0f - w0;
    aa += w0 * w0, ab += w0 * w1, bb += w1 * w1;
    for (int c = 0; c < 3; ++c) ax[c] += w0 * float(t.px[i][c]), bx[c] += w1 * float(t.px[i][c]);
  }
  const float det = aa * bb - ab * ab;
  if (det < 1e-3f) return false;
  for (int c = 0; c < 3; ++c) {
    A[c] = (bb * ax[c] - ab * bx[c]) / det;
    B[c] = (aa * bx[c] - ab * ax[c]) / det;
  }
  return true;
}

// The best pair for one channel value alone: the endpoints (5 or 6 bits)
// whose entry 0 or two-thirds entry is nearest to v (three colours: the
// mean entry).
inline void SingleChannel(int v, int bits, bool three, int* e0, int* e1) {
  const int max = (1 << bits) - 1;
  int best = 1 << 30;
  for (int a = 0; a <= max; ++a) {
    const int ea = bits == 5 ? (a << 3 | a >> 2) : (a << 2 | a >> 4);
    for (int b = 0; b <= max; ++b) {
      const int eb = bits == 5 ? (b << 3 | b >> 2) : (b << 2 | b >> 4);
      const int mid = three ? (ea + eb) >> 1 : (2 * ea + eb) / 3;
      const int d = (mid - v) * (mid - v);
      if (d < best) best = d, *e0 = a, *e1 = b;
    }
  }
}

// The colour part of a tile in one form.  Every quality: the endpoints at
// the extremes of the projections on the principal axis of the opaque
// pixels.  Quality 1: a tile of one colour takes the best pair for it;
// otherwise up to two least squares refinements of the endpoints for the
// indices found.  Quality 2: up to eight refinements, then each of the six
// endpoint components moved by one while the error drops.
using EvalFn = Part (*)(const Tile& t, uint16_t a, uint16_t b, bool dxt1, bool three);

template <EvalFn kEval>
Part FitForm(const Tile& t, bool dxt1, bool three, int quality) {
  int n = 0;
  float mean[3] = {};
  bool one_colour = true;
  int first = -1;
  for (int i = 0; i < 16; ++i) {
    if (t.transparent >> i & 1) continue;
    if (first < 0) first = i;
    one_colour &= t.px[i][0] == t.px[first][0] && t.px[i][1] == t.px[first][1] && t.px[i][2] == t.px[first][2];
    for (int c = 0; c < 3; ++c) mean[c] += float(t.px[i][c]);
    ++n;
  }
  if (n == 0) return kEval(t, 0, 0, dxt1, true);
  for (float& m : mean) m /= float(n);
  Part best;
  if (one_colour && quality >= 1) {
    int a[3] = {}, b[3] = {};
    SingleChannel(t.px[first][0], 5, three, &a[0], &b[0]);
    SingleChannel(t.px[first][1], 6, three, &a[1], &b[1]);
    SingleChannel(t.px[first][2], 5, three, &a[2], &b[2]);
    best = kEval(t, uint16_t(a[0] << 11 | a[1] << 5 | a[2]), uint16_t(b[0] << 11 | b[1] << 5 | b[2]), dxt1, three);
    float exact[3] = {float(t.px[first][0]), float(t.px[first][1]), float(t.px[first][2])};
    const Part q = kEval(t, Pack565(exact), Pack565(exact), dxt1, three);
    return q.err < best.err ? q : best;
  }
  // Covariance, then its principal axis by power iteration from the
  // channel of the widest spread.
  float cov[6] = {};
  for (int i = 0; i < 16; ++i) {
    if (t.transparent >> i & 1) continue;
    const float d[3] = {float(t.px[i][0]) - mean[0], float(t.px[i][1]) - mean[1], float(t.px[i][2]) - mean[2]};
    cov[0] += d[0] * d[0], cov[1] += d[0] * d[1], cov[2] += d[0] * d[2];
    cov[3] += d[1] * d[1], cov[4] += d[1] * d[2], cov[5] += d[2] * d[2];
  }
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
    float d = 0;
    for (int c = 0; c < 3; ++c) d += (float(t.px[i][c]) - mean[c]) * axis[c];
    lo = d < lo ? d : lo;
    hi = d > hi ? d : hi;
  }
  const float len = axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2];
  float A[3], B[3];
  for (int c = 0; c < 3; ++c) {
    A[c] = mean[c] + (len > 0 ? hi / len : 0) * axis[c];
    B[c] = mean[c] + (len > 0 ? lo / len : 0) * axis[c];
  }
  best = kEval(t, Pack565(A), Pack565(B), dxt1, three);
  const int rounds = quality == 0 ? 0 : quality == 1 ? 2 : 8;
  for (int r = 0; r < rounds && best.err > 0; ++r) {
    if (!Refit(t, best, dxt1, A, B)) break;
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
template <EvalFn kEval>
void EncodeColour(const Tile& t, bool dxt1, int quality, uint8_t* out) {
  Part best = FitForm<kEval>(t, dxt1, dxt1 && t.transparent != 0, quality);
  if (dxt1 && t.transparent == 0 && quality >= 1 && best.err > 0) {
    const Part p = FitForm<kEval>(t, true, true, quality);
    if (p.err < best.err) best = p;
  }
  std::memcpy(out, best.b, 8);
}

// Format 1: DXT1 (8 bytes); 3: DXT3 (explicit 4-bit alpha, nearest of the
// multiples of 16 the decoder gives back); 5: DXT5 (the alpha part as a
// BC4 block of the same quality).
// The kernels: the colour part's evaluation and the alpha channel block.
template <int kFormat, EvalFn kEval, bc_encode::ChannelFn kChannel>
RvtResult Encode(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  Tile t;
  uint8_t v[16];
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4) {
      for (int c = 0; c < 4; ++c) {
        bc_encode::Gather(src, step, roi, x, y, 4, c, v);
        for (int i = 0; i < 16; ++i) t.px[i][c] = v[i];
        if (c < 3) {
          for (int i = 0; i < 16; ++i) t.ch[c][i] = v[i];
        }
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
        kChannel(v, quality, dst);
        dst += 8;
      }
      EncodeColour<kEval>(t, kFormat == 1, quality, dst);
      dst += 8;
    }
  }
  return rvtStatusOk;
}

inline RvtResult Dxt1Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<1, Eval, bc_encode::EncodeChannel>(s, step, d, roi, q);
}
inline RvtResult Dxt3Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<3, Eval, bc_encode::EncodeChannel>(s, step, d, roi, q);
}
inline RvtResult Dxt5Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<5, Eval, bc_encode::EncodeChannel>(s, step, d, roi, q);
}

}  // namespace rvt::dxt_encode

#endif  // RVT_TEXTURE_DXT_ENCODE_H_
