// Encoding of BC7 texture blocks over whole regions: the endpoint fitting
// (principal axis, p-bit aware quantization, least squares refinement,
// local search), the partition pre-selection, the mode search of each
// quality level and the block packing, with the argument checks and the
// region walk of the other texture encoders.  The one step that runs over
// the 16 pixels of a tile per candidate palette (each pixel's nearest
// entry and the squared error) is the kernel the driver is templated on:
// PaletteRef here, a vector form per target in bc7_encode-inl.h.  The
// float fitting runs in the driver, compiled once, so every kernel sees
// the same palettes and the blocks come out identical.
#ifndef RVT_TEXTURE_BC7_ENCODE_H_
#define RVT_TEXTURE_BC7_ENCODE_H_

#include <cstdint>
#include <cstring>
#include <algorithm>
#include <utility>

#include "texture/bc_encode.h"
#include "texture/bptc_decode.h"

namespace rvt::bc7_encode {

using bptc_decode::kBc7Modes;

constexpr int kMaxQuality = 2;

// The pixels of a tile, one plane of 16 per channel (R, G, B, A).
struct Tile {
  alignas(64) int32_t c[4][16];
};

// A palette of up to 16 entries, one plane per channel.
struct Palette {
  alignas(64) int32_t c[4][16];
};

// ------------------------------------------------------------ reference kernel

// Each pixel's nearest entry of the first `n` of `pal` over the channels
// set in `chans` (bit c for channel c; the lowest index on a tie), written
// for all 16 pixels, and the sum of the squared errors of the pixels set
// in `mask`.
inline uint32_t PaletteRef(const Tile& t, const Palette& pal, int n, int chans, uint32_t mask,
                           uint8_t idx[16]) {
  uint32_t total = 0;
  for (int p = 0; p < 16; ++p) {
    int32_t best = INT32_MAX, bi = 0;
    for (int k = 0; k < n; ++k) {
      int32_t d = 0;
      for (int c = 0; c < 4; ++c) {
        if (!(chans >> c & 1)) continue;
        const int32_t e = t.c[c][p] - pal.c[c][k];
        d += e * e;
      }
      if (d < best) best = d, bi = k;
    }
    idx[p] = uint8_t(bi);
    if (mask >> p & 1) total += uint32_t(best);
  }
  return total;
}

struct RefKernel {
  static uint32_t Run(const Tile& t, const Palette& pal, int n, int chans, uint32_t mask,
                      uint8_t idx[16]) {
    return PaletteRef(t, pal, n, chans, mask, idx);
  }
};

// ------------------------------------------------------------ endpoints

// How one set of endpoints is coded: bits per channel (0: the channel is
// not coded and decodes as 255), p-bits (0 none, 1 one per endpoint, 2 one
// shared by the pair), index bits, the channels fitted and measured, and
// whether the p-bits stay 1 (mode 6 on an opaque tile: alpha 255 needs
// them).
struct Format {
  int bits[4];
  int pbits;
  int index_bits;
  int chans;
  bool pbits_one = false;
};

// Codes of the two endpoints and their p-bits.
struct Ends {
  int q[2][4];
  int p[2];
};

// The 8-bit value a code decodes to (the p-bit below the code, the top
// bits replicated below).
inline int Expand(int q, int bits, int p, bool pbit) {
  int v = q, n = bits;
  if (pbit) v = v << 1 | p, ++n;
  v <<= 8 - n;
  return v | v >> n;
}

// The code of `bits` bits (with p-bit p) whose value is nearest to v (the
// lower on a tie).
inline int QuantNearest(float v, int bits, int p, bool pbit) {
  const int max = (1 << bits) - 1;
  float x = v * float(pbit ? 2 * max + 1 : max) * (1.0f / 255);
  if (pbit) x = (x - float(p)) * 0.5f;
  int q = x <= 0 ? 0 : int(x);
  q = q > max ? max : q;
  if (q < max) {
    const float d0 = v - float(Expand(q, bits, p, pbit)), d1 = float(Expand(q + 1, bits, p, pbit)) - v;
    if (d1 < d0) ++q;
  }
  return q;
}

inline void BuildPalette(const Format& f, const Ends& e, Palette* pal) {
  int v[2][4];
  for (int s = 0; s < 2; ++s) {
    for (int c = 0; c < 4; ++c) v[s][c] = f.bits[c] ? Expand(e.q[s][c], f.bits[c], e.p[s], f.pbits != 0) : 255;
  }
  const uint8_t* w = bptc_decode::Weights(f.index_bits);
  const int n = 1 << f.index_bits;
  for (int c = 0; c < 4; ++c) {
    if (!(f.chans >> c & 1)) continue;  // not measured
    for (int k = 0; k < n; ++k) pal->c[c][k] = ((64 - w[k]) * v[0][c] + w[k] * v[1][c] + 32) >> 6;
  }
}

// How hard one set of endpoints is searched.
struct Effort {
  int refits;        // least squares rounds while the error drops
  bool all_pbits;    // every p-bit combination measured (else the one of least rounding error)
  bool local;        // codes moved by one while the error drops
};

// A fitted set of endpoints and the indices of the pixels it serves.
struct Fit {
  Ends e;
  uint32_t err = UINT32_MAX;
  uint8_t idx[16];
};

template <class K>
void Measure(const Tile& t, const Format& f, uint32_t mask, const Ends& e, Fit* best) {
  Palette pal;
  BuildPalette(f, e, &pal);
  uint8_t idx[16];
  const uint32_t err = K::Run(t, pal, 1 << f.index_bits, f.chans, mask, idx);
  if (err < best->err) {
    best->err = err, best->e = e;
    std::memcpy(best->idx, idx, 16);
  }
}

// Float endpoints A, B to codes, for each p-bit choice tried, measured.
template <class K>
void Quantize(const Tile& t, const Format& f, uint32_t mask, const float A[4], const float B[4], bool all,
              Fit* best) {
  const float* ab[2] = {A, B};
  auto codes = [&](int p0, int p1, Ends* e, float* rounding) {
    e->p[0] = p0, e->p[1] = p1;
    float r = 0;
    for (int s = 0; s < 2; ++s) {
      for (int c = 0; c < 4; ++c) {
        if (!f.bits[c]) {
          e->q[s][c] = 0;
          continue;
        }
        e->q[s][c] = QuantNearest(ab[s][c], f.bits[c], e->p[s], f.pbits != 0);
        const float d = ab[s][c] - float(Expand(e->q[s][c], f.bits[c], e->p[s], f.pbits != 0));
        r += d * d;
      }
    }
    *rounding = r;
  };
  Ends e;
  float r;
  if (f.pbits == 0) {
    codes(0, 0, &e, &r);
    Measure<K>(t, f, mask, e, best);
    return;
  }
  const int combos = f.pbits == 1 ? 4 : 2;
  Ends pick{};
  float least = 1e30f;
  for (int k = f.pbits_one ? combos - 1 : 0; k < combos; ++k) {
    const int p0 = k & 1, p1 = f.pbits == 1 ? k >> 1 : p0;
    codes(p0, p1, &e, &r);
    if (all) {
      Measure<K>(t, f, mask, e, best);
    } else if (r < least) {
      least = r, pick = e;
    }
  }
  if (!all) Measure<K>(t, f, mask, pick, best);
}

// Least squares endpoints for the indices of `fit`: each pixel is
// (1 - w) A + w B with its entry's weight w.  False when every pixel sits
// on one weight.
inline bool Refit(const Tile& t, const Format& f, uint32_t mask, const Fit& fit, float A[4], float B[4]) {
  const uint8_t* wt = bptc_decode::Weights(f.index_bits);
  float aa = 0, ab = 0, bb = 0, ax[4] = {}, bx[4] = {};
  for (uint32_t m = mask; m; m &= m - 1) {
    const int p = __builtin_ctz(m);
    const float w1 = float(wt[fit.idx[p]]) * (1.0f / 64), w0 = 1.0f - w1;
    aa += w0 * w0, ab += w0 * w1, bb += w1 * w1;
    for (int c = 0; c < 4; ++c) ax[c] += w0 * float(t.c[c][p]), bx[c] += w1 * float(t.c[c][p]);
  }
  const float det = aa * bb - ab * ab;
  if (det < 1e-4f) return false;
  for (int c = 0; c < 4; ++c) {
    const float a = (bb * ax[c] - ab * bx[c]) / det, b = (aa * bx[c] - ab * ax[c]) / det;
    A[c] = a < 0 ? 0 : a > 255 ? 255 : a;
    B[c] = b < 0 ? 0 : b > 255 ? 255 : b;
  }
  return true;
}

// The endpoints of the pixels in `mask` in format `f`: the extremes of
// their projections on the principal axis (of the fitted channels), then
// the refinements `eff` asks for.
template <class K>
Fit FitSubset(const Tile& t, const Format& f, uint32_t mask, const Effort& eff) {
  int n = 0;
  float mean[4] = {};
  for (uint32_t m = mask; m; m &= m - 1) {  // set bits in pixel order: no branch per pixel
    const int p = __builtin_ctz(m);
    ++n;
    for (int c = 0; c < 4; ++c) mean[c] += float(t.c[c][p]);
  }
  Fit best;
  if (n == 0) {
    best.e = Ends{};
    best.err = 0;
    std::memset(best.idx, 0, 16);
    return best;
  }
  for (float& m : mean) m /= float(n);
  float cov[4][4] = {};
  for (uint32_t m = mask; m; m &= m - 1) {
    const int p = __builtin_ctz(m);
    float d[4];
    for (int c = 0; c < 4; ++c) d[c] = f.chans >> c & 1 ? float(t.c[c][p]) - mean[c] : 0.0f;
    for (int i = 0; i < 4; ++i) {
      if (!(f.chans >> i & 1)) continue;  // those products stay +0
      for (int j = i; j < 4; ++j) {
        if (f.chans >> j & 1) cov[i][j] += d[i] * d[j];
      }
    }
  }
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < i; ++j) cov[i][j] = cov[j][i];
  }
  // Power iteration from the channel of the widest spread.
  int widest = 0;
  for (int c = 1; c < 4; ++c) widest = cov[c][c] > cov[widest][widest] ? c : widest;
  float axis[4];
  for (int c = 0; c < 4; ++c) axis[c] = cov[widest][c];
  for (int it = 0; it < 4; ++it) {
    float next[4], m = 0;
    for (int i = 0; i < 4; ++i) {
      next[i] = cov[i][0] * axis[0] + cov[i][1] * axis[1] + cov[i][2] * axis[2] + cov[i][3] * axis[3];
      const float a = next[i] < 0 ? -next[i] : next[i];
      m = a > m ? a : m;
    }
    if (m <= 0) break;
    for (int i = 0; i < 4; ++i) axis[i] = next[i] / m;
  }
  float lo = 0, hi = 0, len = 0;
  for (int c = 0; c < 4; ++c) len += axis[c] * axis[c];
  if (len > 0) {
    lo = 1e30f, hi = -1e30f;
    for (uint32_t m = mask; m; m &= m - 1) {
      const int p = __builtin_ctz(m);
      float d = 0;
      for (int c = 0; c < 4; ++c) d += (float(t.c[c][p]) - mean[c]) * axis[c];
      lo = d < lo ? d : lo;
      hi = d > hi ? d : hi;
    }
    lo /= len, hi /= len;
  }
  float A[4], B[4];
  for (int c = 0; c < 4; ++c) {
    const float a = mean[c] + lo * axis[c], b = mean[c] + hi * axis[c];
    A[c] = a < 0 ? 0 : a > 255 ? 255 : a;
    B[c] = b < 0 ? 0 : b > 255 ? 255 : b;
  }
  Quantize<K>(t, f, mask, A, B, eff.all_pbits, &best);
  for (int r = 0; r < eff.refits && best.err > 0; ++r) {
    if (!Refit(t, f, mask, best, A, B)) break;
    const uint32_t before = best.err;
    Quantize<K>(t, f, mask, A, B, eff.all_pbits, &best);
    if (best.err >= before) break;
  }
  if (eff.local) {
    for (int pass = 0; pass < 8 && best.err > 0; ++pass) {
      const uint32_t before = best.err;
      const Ends start = best.e;
      for (int s = 0; s < 2; ++s) {
        for (int c = 0; c < 4; ++c) {
          if (!f.bits[c] || !(f.chans >> c & 1)) continue;
          for (int dir = -1; dir <= 1; dir += 2) {
            Ends e = start;
            e.q[s][c] += dir;
            if (e.q[s][c] < 0 || e.q[s][c] >= 1 << f.bits[c]) continue;
            Measure<K>(t, f, mask, e, &best);
          }
        }
        if (f.pbits && !f.pbits_one) {
          Ends e = start;
          e.p[s] ^= 1;
          if (f.pbits == 2) e.p[1 - s] = e.p[s];
          Measure<K>(t, f, mask, e, &best);
        }
      }
      if (best.err >= before) break;
    }
  }
  return best;
}

// ------------------------------------------------------------ blocks

// A candidate block: its mode, partition, rotation, index selection, the
// endpoints of each subset, and its indices (modes 4 and 5: colour and
// alpha indices apart).
struct Block {
  uint32_t err = UINT32_MAX;
  int mode = 6, partition = 0, rotation = 0, selection = 0;
  Ends e[3];
  uint8_t idx[16], idx2[16];
};

struct BitWriter {
  uint64_t lo = 0, hi = 0;
  int pos = 0;
  void Put(uint32_t v, int n) {
    if (n == 0) return;
    const uint64_t x = v;
    if (pos >= 64) {
      hi |= x << (pos - 64);
    } else {
      lo |= x << pos;
      if (pos + n > 64) hi |= x >> (64 - pos);
    }
    pos += n;
  }
};

inline int AnchorOf(int subsets, int partition, int s) {
  if (s == 0) return 0;
  if (subsets == 2) return bptc_decode::kAnchor2[partition];
  return s == 1 ? bptc_decode::kAnchor3a[partition] : bptc_decode::kAnchor3b[partition];
}

// Endpoint pairs swapped (over channels c0..c1) and indices mirrored where
// an anchor's index has its top bit set, then the 128 bits in the order
// the decoder reads them.
inline void Pack(Block b, uint8_t out[16]) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[b.mode];
  const int ib = m.index_bits;
  if (m.index2_bits) {
    // Modes 4 and 5: idx holds colour indices, idx2 alpha ones.
    const int cb = b.selection ? m.index2_bits : m.index_bits;
    const int ab = b.selection ? m.index_bits : m.index2_bits;
    if (b.idx[0] >> (cb - 1)) {
      for (int c = 0; c < 3; ++c) std::swap(b.e[0].q[0][c], b.e[0].q[1][c]);
      for (int p = 0; p < 16; ++p) b.idx[p] = uint8_t((1 << cb) - 1 - b.idx[p]);
    }
    if (b.idx2[0] >> (ab - 1)) {
      std::swap(b.e[0].q[0][3], b.e[0].q[1][3]);
      for (int p = 0; p < 16; ++p) b.idx2[p] = uint8_t((1 << ab) - 1 - b.idx2[p]);
    }
    if (b.selection) std::swap(b.idx, b.idx2);
  } else {
    for (int s = 0; s < m.subsets; ++s) {
      const int a = AnchorOf(m.subsets, b.partition, s);
      if (!(b.idx[a] >> (ib - 1))) continue;
      std::swap(b.e[s].q[0], b.e[s].q[1]);
      std::swap(b.e[s].p[0], b.e[s].p[1]);
      for (int p = 0; p < 16; ++p) {
        if (bptc_decode::SubsetOf(m.subsets, b.partition, p) == s) b.idx[p] = uint8_t((1 << ib) - 1 - b.idx[p]);
      }
    }
  }
  BitWriter w;
  w.Put(1u << b.mode, b.mode + 1);
  w.Put(uint32_t(b.partition), m.partition_bits);
  w.Put(uint32_t(b.rotation), m.rotation_bits);
  w.Put(uint32_t(b.selection), m.selection_bits);
  for (int c = 0; c < 3; ++c) {
    for (int s = 0; s < m.subsets; ++s) {
      w.Put(uint32_t(b.e[s].q[0][c]), m.colour_bits);
      w.Put(uint32_t(b.e[s].q[1][c]), m.colour_bits);
    }
  }
  for (int s = 0; s < m.subsets && m.alpha_bits; ++s) {
    w.Put(uint32_t(b.e[s].q[0][3]), m.alpha_bits);
    w.Put(uint32_t(b.e[s].q[1][3]), m.alpha_bits);
  }
  for (int s = 0; s < m.subsets; ++s) {
    if (m.endpoint_pbits) w.Put(uint32_t(b.e[s].p[0]), 1), w.Put(uint32_t(b.e[s].p[1]), 1);
    if (m.shared_pbits) w.Put(uint32_t(b.e[s].p[0]), 1);
  }
  for (int p = 0; p < 16; ++p) w.Put(b.idx[p], ib - bptc_decode::IsAnchor(m.subsets, b.partition, p));
  for (int p = 0; p < 16 && m.index2_bits; ++p) w.Put(b.idx2[p], m.index2_bits - (p == 0));
  std::memcpy(out, &w.lo, 8);
  std::memcpy(out + 8, &w.hi, 8);
}

// ------------------------------------------------------------ modes

// The endpoint format of modes 0, 1, 2, 3, 6 and 7 (one per subset).
inline Format FormatOf(int mode) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[mode];
  const int cb = m.colour_bits, ab = m.alpha_bits;
  return Format{{cb, cb, cb, ab}, m.endpoint_pbits ? 1 : m.shared_pbits ? 2 : 0, m.index_bits, ab ? 15 : 7};
}

// Pixels of subset 1 of each two-subset partition, bit p for pixel p.
struct SplitTable {
  uint16_t m[64];
};
inline constexpr SplitTable MakeSplitTable() {
  SplitTable t{};
  for (int k = 0; k < 64; ++k) {
    for (int p = 0; p < 16; ++p) t.m[k] |= uint16_t((bptc_decode::kPartition2[k] >> (2 * p) & 1) << p);
  }
  return t;
}
inline constexpr SplitTable kSplit = MakeSplitTable();

inline uint32_t SubsetMask(int subsets, int partition, int s) {
  if (subsets == 1) return 0xFFFF;
  const uint32_t t = subsets == 2 ? bptc_decode::kPartition2[partition] : bptc_decode::kPartition3[partition];
  uint32_t mask = 0;
  for (int p = 0; p < 16; ++p) mask |= uint32_t((t >> (2 * p) & 3) == uint32_t(s)) << p;
  return mask;
}

// A partitioned mode (or mode 6, one subset) with the given partition.
// Opaque tiles stay opaque: their alpha endpoints keep p-bits of 1.
template <class K>
void TryPartitioned(const Tile& t, int mode, int partition, bool opaque, const Effort& eff, Block* best) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[mode];
  Format f = FormatOf(mode);
  if (opaque && m.alpha_bits) {
    // Alpha codes of all ones with p-bits of 1 decode to 255 exactly: the
    // search leaves alpha out.
    f.pbits_one = true;
    f.chans = 7;
  }
  Block b;
  b.mode = mode, b.partition = partition, b.err = 0;
  for (int s = 0; s < m.subsets; ++s) {
    const uint32_t mask = SubsetMask(m.subsets, partition, s);
    const Fit fit = FitSubset<K>(t, f, mask, eff);
    b.err += fit.err;
    if (b.err >= best->err) return;
    b.e[s] = fit.e;
    for (int p = 0; p < 16; ++p) {
      if (mask >> p & 1) b.idx[p] = fit.idx[p];
    }
  }
  *best = b;
}

// Mode 4 or 5 with a rotation (alpha swapped with channel rotation - 1
// before fitting, as the decoder swaps it back) and, mode 4, an index
// selection (1: the colour takes the 3-bit indices).
template <class K>
void TryRotated(const Tile& t, int mode, int rotation, int selection, const Effort& eff, Block* best) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[mode];
  Tile r = t;
  if (rotation) std::memcpy(r.c[3], t.c[rotation - 1], 64), std::memcpy(r.c[rotation - 1], t.c[3], 64);
  const int cb = m.colour_bits, ab = m.alpha_bits;
  const Format fc{{cb, cb, cb, 0}, 0, selection ? m.index2_bits : m.index_bits, 7};
  const Format fa{{0, 0, 0, ab}, 0, selection ? m.index_bits : m.index2_bits, 8};
  const Fit colour = FitSubset<K>(r, fc, 0xFFFF, eff);
  if (colour.err >= best->err) return;
  const Fit alpha = FitSubset<K>(r, fa, 0xFFFF, eff);
  if (colour.err + alpha.err >= best->err) return;
  Block b;
  b.err = colour.err + alpha.err;
  b.mode = mode, b.rotation = rotation, b.selection = selection;
  for (int s = 0; s < 2; ++s) {
    for (int c = 0; c < 3; ++c) b.e[0].q[s][c] = colour.e.q[s][c];
    b.e[0].q[s][3] = alpha.e.q[s][3];
    b.e[0].p[s] = 0;
  }
  std::memcpy(b.idx, colour.idx, 16);
  std::memcpy(b.idx2, alpha.idx, 16);
  *best = b;
}

// Moments of every pixel for the partition estimate: the `chans` channels
// and their products (i <= j).
struct Moments {
  int chans, count;
  int32_t s[16][14];
  int32_t total[14];
};

inline void MakeMoments(const Tile& t, int chans, Moments* mo) {
  mo->chans = chans;
  for (int p = 0; p < 16; ++p) {
    int k = chans;
    for (int i = 0; i < chans; ++i) {
      mo->s[p][i] = t.c[i][p];
      for (int j = i; j < chans; ++j, ++k) mo->s[p][k] = t.c[i][p] * t.c[j][p];
    }
    mo->count = k;
  }
  for (int k = 0; k < mo->count; ++k) {
    mo->total[k] = 0;
    for (int p = 0; p < 16; ++p) mo->total[k] += mo->s[p][k];
  }
}

// Spread of a subset's pixels about their principal line: the trace of
// their covariance less its largest eigenvalue (a Rayleigh quotient after
// three power steps from the diagonal).
inline float LineSpread(const Moments& mo, const int32_t* a, int n) {
  if (n < 2) return 0;
  const int ch = mo.chans;
  const float inv = 1.0f / float(n);
  float cov[4][4] = {};
  int k = ch;
  for (int i = 0; i < ch; ++i) {
    for (int j = i; j < ch; ++j, ++k) cov[i][j] = cov[j][i] = float(a[k]) - float(a[i]) * float(a[j]) * inv;
  }
  float trace = 0, v[4] = {};
  for (int i = 0; i < ch; ++i) trace += cov[i][i], v[i] = cov[i][i];
  if (trace <= 0) return 0;
  for (int it = 0; it < 3; ++it) {
    float nv[4] = {}, m = 0;
    for (int i = 0; i < ch; ++i) {
      for (int j = 0; j < ch; ++j) nv[i] += cov[i][j] * v[j];
      const float x = nv[i] < 0 ? -nv[i] : nv[i];
      m = x > m ? x : m;
    }
    if (m <= 0) return trace;
    const float inv_m = 1.0f / m;
    for (int i = 0; i < ch; ++i) v[i] = nv[i] * inv_m;
  }
  float vv = 0, vcv = 0;
  for (int i = 0; i < ch; ++i) {
    vv += v[i] * v[i];
    for (int j = 0; j < ch; ++j) vcv += v[i] * cov[i][j] * v[j];
  }
  return trace - vcv / vv;
}

// Pixels of subsets 1 and 2 of each three-subset partition.
struct Split3Table {
  uint16_t m[64][2];
};
inline constexpr Split3Table MakeSplit3Table() {
  Split3Table t{};
  for (int k = 0; k < 64; ++k) {
    for (int p = 0; p < 16; ++p) {
      const uint32_t s = bptc_decode::kPartition3[k] >> (2 * p) & 3;
      if (s) t.m[k][s - 1] |= uint16_t(1u << p);
    }
  }
  return t;
}
inline constexpr Split3Table kSplit3 = MakeSplit3Table();

// Sums of the moments of the pixels in `mask`.
template <int kCount>
void MaskSums(const Moments& mo, uint32_t mask, int32_t* acc) {
  for (uint32_t m = mask; m; m &= m - 1) {
    const int p = __builtin_ctz(m);
    for (int k = 0; k < kCount; ++k) acc[k] += mo.s[p][k];
  }
}

// Estimated error of a partition: the line spreads of its subsets summed.
// Subset 0's sums are the whole tile's less the others'.
inline float PartitionEstimate(const Moments& mo, int subsets, int partition) {
  int32_t acc[3][14] = {};
  int n[3];
  const uint32_t m1 = subsets == 2 ? kSplit.m[partition] : kSplit3.m[partition][0];
  const uint32_t m2 = subsets == 2 ? 0 : kSplit3.m[partition][1];
  if (mo.count == 9) {
    MaskSums<9>(mo, m1, acc[1]), MaskSums<9>(mo, m2, acc[2]);
  } else {
    MaskSums<14>(mo, m1, acc[1]), MaskSums<14>(mo, m2, acc[2]);
  }
  for (int k = 0; k < mo.count; ++k) acc[0][k] = mo.total[k] - acc[1][k] - acc[2][k];
  n[1] = __builtin_popcount(m1), n[2] = __builtin_popcount(m2), n[0] = 16 - n[1] - n[2];
  float total = 0;
  for (int s = 0; s < subsets; ++s) total += LineSpread(mo, acc[s], n[s]);
  return total;
}


// Sums over a pixel set of each channel and of the squared length, and the
// count: what the spread about the set's mean needs, in exact integers.
struct Spread {
  int32_t n, s[4], sq;
};
// Each pixel's channels (those measured, the others 0) and squared length.
struct Points {
  int32_t v[16][5];
};
inline void MakePoints(const Tile& t, int chans, Points* pts) {
  for (int p = 0; p < 16; ++p) {
    int32_t sq = 0;
    for (int c = 0; c < 4; ++c) {
      const int32_t x = c < chans ? t.c[c][p] : 0;
      pts->v[p][c] = x;
      sq += x * x;
    }
    pts->v[p][4] = sq;
  }
}
inline Spread SpreadOf(const Points& pts, uint32_t mask) {
  int32_t a[5] = {};
  for (uint32_t m = mask; m; m &= m - 1) {
    const int p = __builtin_ctz(m);
    for (int j = 0; j < 5; ++j) a[j] += pts.v[p][j];
  }
  return Spread{__builtin_popcount(mask), {a[0], a[1], a[2], a[3]}, a[4]};
}
inline Spread Less(const Spread& a, const Spread& b) {
  Spread r{a.n - b.n, {}, a.sq - b.sq};
  for (int c = 0; c < 4; ++c) r.s[c] = a.s[c] - b.s[c];
  return r;
}
// n times the squared distance of the set's pixels from their mean.
inline int64_t Scatter(const Spread& a, int chans) {
  int64_t m = int64_t(a.n) * a.sq;
  for (int c = 0; c < chans; ++c) m -= int64_t(a.s[c]) * a.s[c];
  return m;
}
// The squared distance of every pixel from its subset's mean: a cheap
// first ranking of the partitions.
inline float MeanSpread(const Points& pts, int chans, const Spread& all, int subsets, int partition) {
  Spread sub[3];
  if (subsets == 2) {
    sub[1] = SpreadOf(pts, kSplit.m[partition]);
    sub[0] = Less(all, sub[1]);
  } else {
    sub[1] = SpreadOf(pts, kSplit3.m[partition][0]);
    sub[2] = SpreadOf(pts, kSplit3.m[partition][1]);
    sub[0] = Less(Less(all, sub[1]), sub[2]);
  }
  float total = 0;
  for (int s = 0; s < subsets; ++s) {
    if (sub[s].n) total += float(Scatter(sub[s], chans)) / float(sub[s].n);
  }
  return total;
}

// The `keep` of `est` (over the partitions listed in `from`, increasing)
// of least value, best first (the lower number on a tie); returns how many.
inline int Least(const float* est, const int* from, int count, int keep, int* out) {
  int n = 0;
  for (int i = 0; i < count; ++i) {
    const int k = from[i];
    int at;
    if (n < keep) {
      at = n++;
    } else if (est[k] < est[out[keep - 1]]) {
      at = keep - 1;
    } else {
      continue;
    }
    while (at > 0 && est[out[at - 1]] > est[k]) out[at] = out[at - 1], --at;
    out[at] = k;
  }
  return n;
}

// The `keep` partitions (of the first `count`) of least estimate, best
// first (the lower number on a tie); returns how many.  The partitions are
// first ranked by the spread about their subsets' means (integer sums),
// and only the best 2 * keep + 4 of that ranking get the line estimate.
inline int Preselect(const Tile& t, const Moments& mo, int subsets, int count, int keep, int* out) {
  Points pts;
  MakePoints(t, mo.chans, &pts);
  const Spread all = SpreadOf(pts, 0xFFFF);
  float rough[64], est[64];
  int order[64], listed[64];
  for (int k = 0; k < count; ++k) rough[k] = MeanSpread(pts, mo.chans, all, subsets, k), order[k] = k;
  const int wide = Least(rough, order, count, 2 * keep + 4 < count ? 2 * keep + 4 : count, listed);
  std::sort(listed, listed + wide);
  for (int i = 0; i < wide; ++i) est[listed[i]] = PartitionEstimate(mo, subsets, listed[i]);
  return Least(est, listed, wide, keep, out);
}

// A candidate's shape: mode, partition (modes 4 and 5: rotation) and
// index selection.
struct Shape {
  uint32_t err;
  int mode, part, sel;
};

template <class K>
void TryShape(const Tile& t, const Shape& sh, bool opaque, const Effort& eff, Block* best) {
  if (sh.mode == 4 || sh.mode == 5) {
    TryRotated<K>(t, sh.mode, sh.part, sh.sel, eff, best);
  } else {
    TryPartitioned<K>(t, sh.mode, sh.part, opaque, eff, best);
  }
}

// One tile to its block.  Every candidate is first fitted with p-bits by
// least rounding error and, above quality 0, one least squares round.
// Quality 0: mode 6; opaque tiles whose squared error there exceeds 256
// also try mode 1 over the partition nearest to the split of their pixels
// at the middle of mode 6's line.  Quality 1: opaque tiles: modes 6, 1 and
// 3 over the 4 partitions of least estimate, 0 and 2 over 2; tiles with
// alpha: modes 6, 7 (4 partitions), 5 and 4 over their rotations and index
// selections; then the winner's shape again with every p-bit choice
// measured and two rounds.  Quality 2: that search over 8 two-subset
// partitions, then the winner's shape again with four rounds and each code
// and p-bit moved by one while the error drops.  The least squared RGBA
// error wins (the first tried on a tie).
template <class K>
void EncodeTile(const Tile& t, int quality, uint8_t out[16]) {
  bool opaque = true;
  for (int p = 0; p < 16; ++p) opaque &= t.c[3][p] == 255;
  const Effort eff{quality == 0 ? 0 : 1, false, false};
  Block best;
  TryPartitioned<K>(t, 6, 0, opaque, eff, &best);
  if (best.err == 0) return Pack(best, out);
  if (quality == 0) {
    // Opaque tiles: mode 1 over the partition nearest to the split of the
    // pixels at the middle of mode 6's line.
    if (opaque && best.err > 256) {
      uint32_t split = 0;
      for (int p = 0; p < 16; ++p) split |= uint32_t(best.idx[p] >= 8) << p;
      int part = 0, least = 17;
      for (int k = 0; k < 64; ++k) {
        const int d = __builtin_popcount(split ^ kSplit.m[k]);
        const int e = d < 16 - d ? d : 16 - d;
        if (e < least) least = e, part = k;
      }
      TryPartitioned<K>(t, 1, part, opaque, eff, &best);
    }
    return Pack(best, out);
  }
  auto trial = [&](int mode, int part, int sel) { TryShape<K>(t, Shape{0, mode, part, sel}, opaque, eff, &best); };
  Moments mo;
  MakeMoments(t, opaque ? 3 : 4, &mo);
  int parts[16], p3[16];
  const int keep2 = quality == 1 ? 4 : 8, keep3 = 2;
  const int n2 = Preselect(t, mo, 2, 64, keep2, parts);
  if (opaque) {
    for (int i = 0; i < n2; ++i) trial(1, parts[i], 0);
    for (int i = 0; i < n2; ++i) trial(3, parts[i], 0);
    const int n0 = Preselect(t, mo, 3, 16, keep3, p3);
    for (int i = 0; i < n0; ++i) trial(0, p3[i], 0);
    const int n3 = Preselect(t, mo, 3, 64, keep3, p3);
    for (int i = 0; i < n3; ++i) trial(2, p3[i], 0);
  } else {
    for (int i = 0; i < n2; ++i) trial(7, parts[i], 0);
  }
  if (!opaque) {
    for (int r = 0; r < 4; ++r) {
      trial(5, r, 0);
      trial(4, r, 0);
      trial(4, r, 1);
    }
  }
  if (best.err > 0) {
    const bool rotated = best.mode == 4 || best.mode == 5;
    const Shape sh{0, best.mode, rotated ? best.rotation : best.partition, best.selection};
    TryShape<K>(t, sh, opaque, quality == 1 ? Effort{2, true, false} : Effort{4, true, true}, &best);
  }
  Pack(best, out);
}

// ------------------------------------------------------------ driver

template <class K>
RvtResult Encode(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  Tile t;
  uint8_t v[16];
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4, dst += 16) {
      for (int c = 0; c < 4; ++c) {
        bc_encode::Gather(src, step, roi, x, y, 4, c, v);
        for (int p = 0; p < 16; ++p) t.c[c][p] = v[p];
      }
      EncodeTile<K>(t, quality, dst);
    }
  }
  return rvtStatusOk;
}

inline RvtResult Bc7Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<RefKernel>(s, step, d, roi, q);
}

}  // namespace rvt::bc7_encode

#endif  // RVT_TEXTURE_BC7_ENCODE_H_
