// Scaled YCoCg carried in DXT5 blocks: luma in the alpha part, the two
// chroma differences in the colour endpoints' red and green with a scale
// factor in their blue.  The scalar reference of the decoder (the DXT5
// palette, then the inverse transform per pixel) and of the encoder (the
// luma as a BC4 channel, the chroma as a two-dimensional endpoint fit with
// the blue field held), the checks (those of the other texture exports) and
// the region walks.  The encoder's search is written once over its kernels
// (RefKernels here, each target's in the -inl.h); its float steps are the
// same operations in the same order for every set of kernels.
#ifndef RVT_TEXTURE_YCOCG_DXT5_H_
#define RVT_TEXTURE_YCOCG_DXT5_H_

#include <cstdint>
#include <cstring>

#include "texture/bc_decode.h"
#include "texture/bc_encode.h"

namespace rvt::ycocg_dxt5 {

// ------------------------------------------------------------ decoding

// floor(n / d) for d > 0.
inline int FloorDiv(int n, int d) { return n >= 0 ? n / d : -((d - 1 - n) / d); }
inline uint8_t Clamp255(int v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); }

// One pixel of the DXT5 palette (r, g, b, a) to opaque RGB.  With
// co = r - 128, cg = g - 128 and the scale s = (b + 8) / 8 (1, 2, 4 for the
// blue values 0, 8, 24 an encoder writes; any b is read this way):
// R = Y + (co - cg) / s, G = Y + cg / s, B = Y - (co + cg) / s, each
// quotient rounded half up, i.e. floor((16n + b + 8) / (2b + 16)), then
// clamped to 0..255.
inline void ToRgb(const uint8_t in[4], uint8_t out[4]) {
  const int co = in[0] - 128, cg = in[1] - 128, d = in[2] + 8, y = in[3];
  const int r = y + FloorDiv(16 * (co - cg) + d, 2 * d);
  const int g = y + FloorDiv(16 * cg + d, 2 * d);
  const int b = y + FloorDiv(-16 * (co + cg) + d, 2 * d);
  out[0] = Clamp255(r), out[1] = Clamp255(g), out[2] = Clamp255(b), out[3] = 255;
}

struct YCoCg {
  static constexpr int kBlock = 16, kPixel = 4;
  static void Tile(const uint8_t* blk, uint8_t* tile) {
    bc_decode::Dxt5::Tile(blk, tile);
    for (int p = 0; p < 16; ++p) ToRgb(tile + 4 * p, tile + 4 * p);
  }
};

inline RvtResult DecodeRef(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<YCoCg, bc_decode::RowRef<YCoCg>>(s, d, step, roi);
}

// ------------------------------------------------------------ encoding

// The chroma of a tile at one scale s, in twelfths of a stored step
// relative to 128: co[i] = 6s(R - B), cg[i] = 4s(G - R - B + Y'), Y' the
// luma the decoder will see.  These are the least-squares chroma for Y'
// (R - B) / 2 and (G - R - B + Y') / 3, so luma error is partly taken up.
struct Chroma {
  int co[16], cg[16];
  // The same, co and cg of each pixel side by side in 16 bits (every value
  // lies within +-8160), for the vector kernels.
  alignas(64) int16_t pair[32];
  // Their stored values, Stored(co[i]) and Stored(cg[i]).
  alignas(64) float x[2][16];
};

// A candidate colour part and its error: sum of 2 dco^2 + 3 dcg^2 in
// twelfths (the squared RGB error a chroma error gives, times s^2 * 144).
struct Part {
  uint16_t c0 = 0, c1 = 0;
  uint32_t idx = 0;
  int64_t err = INT64_MAX;
};

inline int Expand5(int v) { return v << 3 | v >> 2; }
inline int Expand6(int v) { return v << 2 | v >> 4; }

// The part of endpoints (r0, g0), (r1, g1) (5 and 6 bits) with blue field
// `blue`, every pixel taking its nearest entry (the lowest index on a tie).
inline Part Eval(const Chroma& t, int r0, int g0, int r1, int g1, int blue) {
  Part p;
  p.c0 = uint16_t(r0 << 11 | g0 << 5 | blue);
  p.c1 = uint16_t(r1 << 11 | g1 << 5 | blue);
  const int er0 = Expand5(r0), er1 = Expand5(r1), eg0 = Expand6(g0), eg1 = Expand6(g1);
  const int pr[4] = {er0, er1, (2 * er0 + er1) / 3, (er0 + 2 * er1) / 3};
  const int pg[4] = {eg0, eg1, (2 * eg0 + eg1) / 3, (eg0 + 2 * eg1) / 3};
  int64_t total = 0;
  for (int i = 0; i < 16; ++i) {
    int best = INT32_MAX, k = 0;
    for (int e = 0; e < 4; ++e) {
      const int dr = 12 * (pr[e] - 128) - t.co[i], dg = 12 * (pg[e] - 128) - t.cg[i];
      const int d = 2 * dr * dr + 3 * dg * dg;
      if (d < best) best = d, k = e;
    }
    total += best;
    p.idx |= uint32_t(k) << (2 * i);
  }
  p.err = total;
  return p;
}

inline int Quant(float v, int max) {
  const int q = int(v * float(max) / 255.0f + 0.5f);
  return q < 0 ? 0 : q > max ? max : q;
}
inline float Stored(int twelfths) { return 128.0f + float(twelfths) / 12.0f; }

// Least-squares endpoints (stored units) for the indices of `p`: false when
// every pixel sits on one entry.
inline bool Refit(const Chroma& t, const Part& p, float a[2], float b[2]) {
  static constexpr float kW[4] = {1.0f, 0.0f, 2.0f / 3, 1.0f / 3};
  float aa = 0, ab = 0, bb = 0, ax[2] = {}, bx[2] = {};
  for (int i = 0; i < 16; ++i) {
    const float w0 = kW[p.idx >> (2 * i) & 3], w1 = 1.0f - w0;
    const float x[2] = {t.x[0][i], t.x[1][i]};
    aa += w0 * w0, ab += w0 * w1, bb += w1 * w1;
    for (int c = 0; c < 2; ++c) ax[c] += w0 * x[c], bx[c] += w1 * x[c];
  }
  const float det = aa * bb - ab * ab;
  if (det < 1e-3f) return false;
  for (int c = 0; c < 2; ++c) {
    a[c] = (bb * ax[c] - ab * bx[c]) / det;
    b[c] = (aa * bx[c] - ab * ax[c]) / det;
  }
  return true;
}

// The endpoint pair (5 or 6 bits) whose two-thirds entry is nearest to the
// stored value v (truncated as the decoder does).
inline void OneValue(float v, int bits, int* e0, int* e1) {
  const int max = (1 << bits) - 1;
  float best = 1e30f;
  for (int a = 0; a <= max; ++a) {
    const int ea = bits == 5 ? Expand5(a) : Expand6(a);
    for (int b = 0; b <= max; ++b) {
      const int eb = bits == 5 ? Expand5(b) : Expand6(b);
      const float d = float((2 * ea + eb) / 3) - v;
      if (d * d < best) best = d * d, *e0 = a, *e1 = b;
    }
  }
}

// The largest |co| or |cg| of a tile (red, green, blue planes v, decoded
// luma) at scale 1.
inline int SpanOf(const uint8_t v[3][16], const uint8_t luma[16]) {
  int span = 0;
  for (int i = 0; i < 16; ++i) {
    const int co = 6 * (v[0][i] - v[2][i]), cg = 4 * (v[1][i] - v[0][i] - v[2][i] + luma[i]);
    span = co > span ? co : -co > span ? -co : span;
    span = cg > span ? cg : -cg > span ? -cg : span;
  }
  return span;
}

// The chroma of a tile at scale s in every form Chroma holds.
inline void ChromaOf(const uint8_t v[3][16], const uint8_t luma[16], int s, Chroma* t) {
  for (int i = 0; i < 16; ++i) {
    t->co[i] = 6 * s * (v[0][i] - v[2][i]);
    t->cg[i] = 4 * s * (v[1][i] - v[0][i] - v[2][i] + luma[i]);
    t->pair[2 * i] = int16_t(t->co[i]), t->pair[2 * i + 1] = int16_t(t->cg[i]);
    t->x[0][i] = Stored(t->co[i]), t->x[1][i] = Stored(t->cg[i]);
  }
}

// The red, green and blue planes of the inside tile at `at` (RGBA pixels)
// and its luma Y = (R + 2G + B + 2) >> 2.
inline void PlanesOf(const uint8_t* at, int32_t step, uint8_t v[3][16], uint8_t y[16]) {
  for (int r = 0; r < 4; ++r, at += step) {
    for (int k = 0; k < 4; ++k) {
      for (int c = 0; c < 3; ++c) v[c][4 * r + k] = at[4 * k + c];
    }
  }
  for (int i = 0; i < 16; ++i) y[i] = uint8_t((v[0][i] + 2 * v[1][i] + v[2][i] + 2) >> 2);
}

// The luma channel blocks of `count` tiles side by side (16 values each
// in y, readable to 64 bytes past them), tile g's block to
// out + g * stride.
inline void LumaBlocks(const uint8_t* y, int count, int quality, uint8_t* out, size_t stride) {
  for (int g = 0; g < count; ++g) bc_encode::EncodeChannel(y + 16 * g, quality, out + size_t(g) * stride);
}

// The kernels K: an inside tile's planes (kPlanes), its span and chroma
// (kSpan, kChroma), the
// evaluation of a colour part (kEval), the pair for a tile of one chroma
// (kOneValue), the luma channel blocks of a row of tiles (kLuma).
using PlanesFn = void (*)(const uint8_t* at, int32_t step, uint8_t v[3][16], uint8_t y[16]);
using LumaFn = void (*)(const uint8_t* y, int count, int quality, uint8_t* out, size_t stride);
using SpanFn = int (*)(const uint8_t v[3][16], const uint8_t luma[16]);
using ChromaFn = void (*)(const uint8_t v[3][16], const uint8_t luma[16], int s, Chroma* t);
using EvalFn = Part (*)(const Chroma& t, int r0, int g0, int r1, int g1, int blue);
using OneValueFn = void (*)(float v, int bits, int* e0, int* e1);

struct RefKernels {
  static constexpr SpanFn kSpan = SpanOf;
  static constexpr ChromaFn kChroma = ChromaOf;
  static constexpr EvalFn kEval = Eval;
  static constexpr OneValueFn kOneValue = OneValue;
  static constexpr LumaFn kLuma = LumaBlocks;
  static constexpr PlanesFn kPlanes = PlanesOf;
};

// The colour part at one scale.  Every quality: the bounding box of the
// chroma (its diagonal along their correlation), inset by 1/16 of its
// extent on each side.  Quality 1: a tile of one chroma takes the best pair
// for it; otherwise the box without inset is tried as well, and up to two
// least-squares refinements follow.  Quality 2: up to eight refinements,
// then each endpoint component moved by one while the error drops.
template <class K>
Part Fit(const Chroma& t, int blue, int quality) {
  constexpr EvalFn Eval = K::kEval;
  float lo[2] = {1e30f, 1e30f}, hi[2] = {-1e30f, -1e30f}, mean[2] = {};
  bool one = true;
  for (int i = 0; i < 16; ++i) {
    const float x[2] = {t.x[0][i], t.x[1][i]};
    for (int c = 0; c < 2; ++c) {
      lo[c] = x[c] < lo[c] ? x[c] : lo[c];
      hi[c] = x[c] > hi[c] ? x[c] : hi[c];
      mean[c] += x[c] / 16;
    }
    one &= t.co[i] == t.co[0] && t.cg[i] == t.cg[0];
  }
  if (one && quality >= 1) {
    int r0 = 0, r1 = 0, g0 = 0, g1 = 0;
    K::kOneValue(lo[0], 5, &r0, &r1);
    K::kOneValue(lo[1], 6, &g0, &g1);
    const Part p = Eval(t, r0, g0, r1, g1, blue);
    const Part q = Eval(t, Quant(lo[0], 31), Quant(lo[1], 63), Quant(lo[0], 31), Quant(lo[1], 63), blue);
    return q.err < p.err ? q : p;
  }
  float cov = 0;
  for (int i = 0; i < 16; ++i) cov += (t.x[0][i] - mean[0]) * (t.x[1][i] - mean[1]);
  auto box = [&](float inset_div) {
    float a[2], b[2];
    for (int c = 0; c < 2; ++c) {
      const float inset = inset_div > 0 ? (hi[c] - lo[c]) / inset_div : 0.0f;
      a[c] = hi[c] - inset;
      b[c] = lo[c] + inset;
    }
    if (cov < 0) {
      const float s = a[1];
      a[1] = b[1], b[1] = s;
    }
    return Eval(t, Quant(a[0], 31), Quant(a[1], 63), Quant(b[0], 31), Quant(b[1], 63), blue);
  };
  Part best = box(16.0f);
  if (quality >= 1) {
    const Part p = box(0.0f);
    if (p.err < best.err) best = p;
  }
  const int rounds = quality == 0 ? 0 : quality == 1 ? 2 : 8;
  for (int r = 0; r < rounds && best.err > 0; ++r) {
    float a[2], b[2];
    if (!Refit(t, best, a, b)) break;
    const Part p = Eval(t, Quant(a[0], 31), Quant(a[1], 63), Quant(b[0], 31), Quant(b[1], 63), blue);
    if (p.err >= best.err) break;
    best = p;
  }
  if (quality >= 2) {
    for (int pass = 0; pass < 16 && best.err > 0; ++pass) {
      bool moved = false;
      for (int k = 0; k < 4; ++k) {
        for (int dir = -1; dir <= 1; dir += 2) {
          int v[4] = {best.c0 >> 11, best.c0 >> 5 & 63, best.c1 >> 11, best.c1 >> 5 & 63};
          v[k] += dir;
          if (v[k] < 0 || v[k] > (k & 1 ? 63 : 31)) continue;
          const Part p = Eval(t, v[0], v[1], v[2], v[3], blue);
          if (p.err < best.err) best = p, moved = true;
        }
      }
      if (!moved) break;
    }
  }
  return best;
}

// The largest scale of 4, 2, 1 at which every chroma of the tile fits the
// stored range (-128..127 around 128); quality 2 fits at all three scales
// and keeps the one of least RGB error (the larger scale on a tie).
template <class K>
void EncodeTile(const uint8_t v[3][16], const uint8_t luma[16], int quality, uint8_t* out) {
  const int span = K::kSpan(v, luma);  // max |chroma| in twelfths at scale 1
  const int first = span * 4 <= 127 * 12 ? 4 : span * 2 <= 127 * 12 ? 2 : 1;
  Part best;
  int64_t best_rgb = INT64_MAX;
  for (int s = 4; s >= 1; s /= 2) {
    if (quality < 2 && s != first) continue;
    Chroma t;
    K::kChroma(v, luma, s, &t);
    const Part p = Fit<K>(t, s - 1, quality);
    const int64_t rgb = p.err * (16 / (s * s));  // error in RGB, times 16 * 144
    if (rgb < best_rgb) best = p, best_rgb = rgb;
  }
  out[0] = uint8_t(best.c0), out[1] = uint8_t(best.c0 >> 8);
  out[2] = uint8_t(best.c1), out[3] = uint8_t(best.c1 >> 8);
  for (int k = 0; k < 4; ++k) out[4 + k] = uint8_t(best.idx >> (8 * k));
}

// Every tile in block order, over the kernels K: the luma
// Y = (R + 2G + B + 2) >> 2 as a BC4 channel of the same quality in bytes
// 0-7, then the chroma for the luma as decoded in bytes 8-15.  Alpha is not
// read.  The luma of up to sixteen tiles of a row of blocks at a time.
template <class K>
RvtResult Encode(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  constexpr int kBatch = 16;
  uint8_t v[kBatch][3][16], luma[16];
  alignas(64) uint8_t y[16 * kBatch + 64] = {};
  const int64_t tiles = (int64_t(roi.width) + 3) / 4;
  for (int64_t ty = 0; ty < roi.height; ty += 4) {
    for (int64_t t0 = 0; t0 < tiles; t0 += kBatch) {
      const int count = int(tiles - t0 < kBatch ? tiles - t0 : kBatch);
      for (int g = 0; g < count; ++g) {
        const int64_t tx = 4 * (t0 + g);
        if (tx + 4 <= roi.width && ty + 4 <= roi.height) {
          K::kPlanes(src + ptrdiff_t(ty) * step + 4 * tx, step, v[g], y + 16 * g);
          continue;
        }
        for (int c = 0; c < 3; ++c) bc_encode::Gather(src, step, roi, tx, ty, 4, c, v[g][c]);
        for (int i = 0; i < 16; ++i) y[16 * g + i] = uint8_t((v[g][0][i] + 2 * v[g][1][i] + v[g][2][i] + 2) >> 2);
      }
      K::kLuma(y, count, quality, dst, 16);
      for (int g = 0; g < count; ++g, dst += 16) {
        bc_decode::ChannelBlock(dst, luma, 1);
        EncodeTile<K>(v[g], luma, quality, dst + 8);
      }
    }
  }
  return rvtStatusOk;
}

inline RvtResult EncodeRef(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<RefKernels>(s, step, d, roi, q);
}

}  // namespace rvt::ycocg_dxt5

#endif  // RVT_TEXTURE_YCOCG_DXT5_H_
