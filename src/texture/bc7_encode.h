// Encoding of BC7 texture blocks over whole regions: the endpoint fitting
// (principal axis, p-bit aware quantization, least squares refinement,
// local search), the partition pre-selection, the mode search of each
// quality level, the one-channel search of grey tiles and the block
// packing, with the argument checks and the region walk of the other
// texture encoders.  The steps that run over the
// pixels of a tile or over the partitions are the kernels the driver is
// templated on: the load of a tile into channel planes and its kind
// (opaque, grey), the sums of a pixel set (exact integers), the extremes of
// its projections on an axis, the first ranking of the partitions and
// their line estimates, a grey pixel set's values and extremes, the errors
// of the endpoint pairs of a grey tile's window, and each pixel's
// nearest entry of a palette with the squared error.
// RefKernel here, a vector form per target in bc7_encode-inl.h.  The
// search and the float fitting between the kernels (bc7_encode-search.h)
// are compiled once per target with its kernels, in the same float
// operations, so every target's blocks are the reference's.
#ifndef RVT_TEXTURE_BC7_ENCODE_H_
#define RVT_TEXTURE_BC7_ENCODE_H_

#include <cstdint>
#include <cstdlib>
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

// Set bits of a 16-bit mask, by table (the baseline build has no popcnt).
struct PopTable {
  uint8_t n[256];
};
inline constexpr PopTable MakePopTable() {
  PopTable t{};
  for (int i = 0; i < 256; ++i) t.n[i] = uint8_t((i & 1) + (i >> 1 & 1) + (i >> 2 & 1) + (i >> 3 & 1) + (i >> 4 & 1) +
                                                 (i >> 5 & 1) + (i >> 6 & 1) + (i >> 7 & 1));
  return t;
}
inline constexpr PopTable kPop = MakePopTable();
inline int Pop16(uint32_t x) { return kPop.n[x & 255] + kPop.n[x >> 8 & 255]; }

// ------------------------------------------------------------ reference kernels

// Sums over the pixels of a set: their count, each channel and each
// product of two channels (i <= j: 00 01 02 03 11 12 13 22 23 33), exact.
struct Sums {
  int32_t n, s[4], p[10];
};

inline void SumsRef(const Tile& t, uint32_t mask, Sums* out) {
  *out = Sums{};
  for (uint32_t m = mask; m; m &= m - 1) {  // set bits in pixel order: no branch per pixel
    const int p = __builtin_ctz(m);
    ++out->n;
    int k = 0;
    for (int i = 0; i < 4; ++i) {
      out->s[i] += t.c[i][p];
      for (int j = i; j < 4; ++j, ++k) out->p[k] += t.c[i][p] * t.c[j][p];
    }
  }
}

// The least and greatest projection (x - mean) . axis of the pixels of
// `mask` (one at least), the four products summed in channel order.
inline void ExtentRef(const Tile& t, uint32_t mask, const float mean[4], const float axis[4], float* lo,
                      float* hi) {
  float l = 1e30f, h = -1e30f;
  for (uint32_t m = mask; m; m &= m - 1) {
    const int p = __builtin_ctz(m);
    float d = (float(t.c[0][p]) - mean[0]) * axis[0];
    d = d + (float(t.c[1][p]) - mean[1]) * axis[1];
    d = d + (float(t.c[2][p]) - mean[2]) * axis[2];
    d = d + (float(t.c[3][p]) - mean[3]) * axis[3];
    l = d < l ? d : l;
    h = d > h ? d : h;
  }
  *lo = l, *hi = h;
}

// The palette of `bits`-bit indices between the 8-bit endpoints v[0] and
// v[1], then each pixel's nearest entry over the channels set in `chans`
// (bit c for channel c; the lowest index on a tie), written for all 16
// pixels, and the sum of the squared errors of the pixels set in `mask`.
inline uint32_t PaletteRef(const Tile& t, const int v[2][4], int bits, int chans, uint32_t mask,
                           uint8_t idx[16]) {
  const uint8_t* w = bptc_decode::Weights(bits);
  const int n = 1 << bits;
  Palette pal;
  for (int c = 0; c < 4; ++c) {
    for (int k = 0; k < n; ++k) pal.c[c][k] = ((64 - w[k]) * v[0][c] + w[k] * v[1][c] + 32) >> 6;
  }
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
constexpr int Expand(int q, int bits, int p, bool pbit) {
  int v = q, n = bits;
  if (pbit) v = v << 1 | p, ++n;
  v <<= 8 - n;
  return v | v >> n;
}

// For each half step x / 2 of 0..255, the code of a coding (bits, and the
// p-bit below it if any) whose value is nearest (the lower on a tie), and
// that value.
struct QuantTable {
  uint8_t q[511], v[511];
};
inline constexpr QuantTable MakeQuantTable(int bits, int p, bool pbit) {
  QuantTable t{};
  for (int x = 0; x < 511; ++x) {
    int best = 1 << 30;
    for (int q = 0; q < 1 << bits; ++q) {
      const int v = 2 * Expand(q, bits, p, pbit), d = v > x ? v - x : x - v;
      if (d < best) best = d, t.q[x] = uint8_t(q), t.v[x] = uint8_t(v / 2);
    }
  }
  return t;
}
// Codings of 4 to 8 bits: without p-bit, with p-bit 0, with p-bit 1 (8
// bits: without).
struct QuantTables {
  QuantTable t[5][3];
};
inline constexpr QuantTables MakeQuantTables() {
  QuantTables t{};
  for (int b = 4; b <= 8; ++b) {
    for (int k = 0; k < (b < 8 ? 3 : 1); ++k) t.t[b - 4][k] = MakeQuantTable(b, k == 2, k != 0);
  }
  return t;
}
inline constexpr QuantTables kQuant = MakeQuantTables();
inline const QuantTable& QuantOf(int bits, int p, bool pbit) { return kQuant.t[bits - 4][pbit ? 1 + p : 0]; }

// The values of the codes of each coding, as Expand gives them.
struct ExpandTables {
  uint8_t v[5][3][256];
};
inline constexpr ExpandTables MakeExpandTables() {
  ExpandTables t{};
  for (int b = 4; b <= 8; ++b) {
    for (int k = 0; k < (b < 8 ? 3 : 1); ++k) {
      for (int q = 0; q < 1 << b; ++q) t.v[b - 4][k][q] = uint8_t(Expand(q, b, k == 2, k != 0));
    }
  }
  return t;
}
inline constexpr ExpandTables kExpand = MakeExpandTables();

// The 8-bit endpoints a set of codes decodes to (255 where a channel is
// not coded).
inline void Decoded(const Format& f, const Ends& e, int v[2][4]) {
  for (int s = 0; s < 2; ++s) {
    const int k = f.pbits ? 1 + e.p[s] : 0;
    for (int c = 0; c < 4; ++c) v[s][c] = f.bits[c] ? kExpand.v[f.bits[c] - 4][k][e.q[s][c]] : 255;
  }
}

// How hard one set of endpoints is searched.
struct Effort {
  int refits;        // least squares rounds while the error drops
  bool all_pbits;    // every p-bit combination measured (else the one of least rounding error)
  bool local;        // codes moved by one while the error drops
  int axis_steps = 4;  // power steps toward the principal axis
};

// A fitted set of endpoints and the indices of the pixels it serves.
struct Fit {
  Ends e;
  uint32_t err = UINT32_MAX;
  uint8_t idx[16];
};

// Least squares endpoints for the indices of `fit`: each pixel is
// (1 - w) A + w B with its entry's weight w.  False when every pixel sits
// on one weight.
inline bool Refit(const Tile& t, const Format& f, uint32_t mask, const Fit& fit, float A[4], float B[4]) {
  // In integers with weights of 64ths: exact sums, one rounding at the end.
  const uint8_t* wt = bptc_decode::Weights(f.index_bits);
  int32_t aa = 0, ab = 0, bb = 0, ax[4] = {}, bx[4] = {};
  for (uint32_t m = mask; m; m &= m - 1) {
    const int p = __builtin_ctz(m);
    const int32_t w1 = wt[fit.idx[p]], w0 = 64 - w1;
    aa += w0 * w0, ab += w0 * w1, bb += w1 * w1;
    for (int c = 0; c < 4; ++c) ax[c] += w0 * t.c[c][p], bx[c] += w1 * t.c[c][p];
  }
  const int64_t det = int64_t(aa) * bb - int64_t(ab) * ab;
  if (det < 1678) return false;  // below 1e-4 in units of 1: every pixel (nearly) on one weight
  const double scale = 64.0 / double(det);
  for (int c = 0; c < 4; ++c) {
    const float a = float(double(int64_t(bb) * ax[c] - int64_t(ab) * bx[c]) * scale);
    const float b = float(double(int64_t(aa) * bx[c] - int64_t(ab) * ax[c]) * scale);
    A[c] = a < 0 ? 0 : a > 255 ? 255 : a;
    B[c] = b < 0 ? 0 : b > 255 ? 255 : b;
  }
  return true;
}

// `steps` of power iteration from the channel of the widest spread over
// the first kChans channels (the covariance of the others is 0, and so is
// their share of the axis).
// Inlined: its caller reads the axis back as a whole vector, which would
// wait out the forwarding of four single stores.
template <int kChans>
inline __attribute__((always_inline)) void PrincipalAxis(const float cov[4][4], int steps, float axis[4]) {
  int widest = 0;
  for (int c = 1; c < 4; ++c) widest = cov[c][c] > cov[widest][widest] ? c : widest;
  for (int c = 0; c < 4; ++c) axis[c] = cov[widest][c];
  for (int it = 0; it < steps; ++it) {
    float next[kChans], m = 0;
    for (int i = 0; i < kChans; ++i) {
      next[i] = cov[i][0] * axis[0];
      for (int j = 1; j < kChans; ++j) next[i] = next[i] + cov[i][j] * axis[j];
      const float a = next[i] < 0 ? -next[i] : next[i];
      m = a > m ? a : m;
    }
    if (m <= 0) break;
    const float inv = 1.0f / m;
    for (int i = 0; i < kChans; ++i) axis[i] = next[i] * inv;
  }
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

inline uint32_t SubsetMask(int subsets, int partition, int s);
inline int SubsetOf(int subsets, int partition, int p);

// Endpoint pairs swapped (over channels c0..c1) and indices mirrored where
// an anchor's index has its top bit set, then the 128 bits in the order
// the decoder reads them.
// One function per mode, so that the field widths are constants.
template <int kMode>
void PackMode(const Block& blk, uint8_t out[16]) {
  constexpr bptc_decode::Bc7Mode m = kBc7Modes[kMode];
  const int ib = m.index_bits;
  Ends e[3];
  uint8_t idx[16], idx2[16];
  std::memcpy(e, blk.e, sizeof(Ends) * size_t(m.subsets));
  std::memcpy(idx, blk.idx, 16);
  uint32_t anchors = 1;
  if (m.index2_bits) {
    // Modes 4 and 5: idx holds colour indices, idx2 alpha ones.
    std::memcpy(idx2, blk.idx2, 16);
    const int cb = blk.selection ? m.index2_bits : m.index_bits;
    const int ab = blk.selection ? m.index_bits : m.index2_bits;
    if (idx[0] >> (cb - 1)) {
      for (int c = 0; c < 3; ++c) std::swap(e[0].q[0][c], e[0].q[1][c]);
      for (int p = 0; p < 16; ++p) idx[p] = uint8_t((1 << cb) - 1 - idx[p]);
    }
    if (idx2[0] >> (ab - 1)) {
      std::swap(e[0].q[0][3], e[0].q[1][3]);
      for (int p = 0; p < 16; ++p) idx2[p] = uint8_t((1 << ab) - 1 - idx2[p]);
    }
    if (blk.selection) std::swap(idx, idx2);
  } else {
    for (int s = 0; s < m.subsets; ++s) {
      const int a = AnchorOf(m.subsets, blk.partition, s);
      anchors |= 1u << a;
      if (!(idx[a] >> (ib - 1))) continue;
      std::swap(e[s].q[0], e[s].q[1]);
      std::swap(e[s].p[0], e[s].p[1]);
      for (uint32_t k = SubsetMask(m.subsets, blk.partition, s); k; k &= k - 1) {
        const int p = __builtin_ctz(k);
        idx[p] = uint8_t((1 << ib) - 1 - idx[p]);
      }
    }
  }
  BitWriter w;
  w.Put(1u << kMode, kMode + 1);
  w.Put(uint32_t(blk.partition), m.partition_bits);
  w.Put(uint32_t(blk.rotation), m.rotation_bits);
  w.Put(uint32_t(blk.selection), m.selection_bits);
  for (int c = 0; c < 3; ++c) {
    for (int s = 0; s < m.subsets; ++s) {
      w.Put(uint32_t(e[s].q[0][c]), m.colour_bits);
      w.Put(uint32_t(e[s].q[1][c]), m.colour_bits);
    }
  }
  for (int s = 0; s < m.subsets && m.alpha_bits; ++s) {
    w.Put(uint32_t(e[s].q[0][3]), m.alpha_bits);
    w.Put(uint32_t(e[s].q[1][3]), m.alpha_bits);
  }
  for (int s = 0; s < m.subsets; ++s) {
    if (m.endpoint_pbits) w.Put(uint32_t(e[s].p[0]), 1), w.Put(uint32_t(e[s].p[1]), 1);
    if (m.shared_pbits) w.Put(uint32_t(e[s].p[0]), 1);
  }
  // Indices gathered 64 bits at a time (at most 63 of each set), then put.
  auto indices = [&](const uint8_t* v, int bits, uint32_t anchor_mask) {
    uint64_t x = 0;
    int n = 0;
    for (int p = 0; p < 16; ++p) x |= uint64_t(v[p]) << n, n += bits - int(anchor_mask >> p & 1);
    w.Put(uint32_t(x), n < 32 ? n : 32);
    if (n > 32) w.Put(uint32_t(x >> 32), n - 32);
  };
  indices(idx, ib, anchors);
  if (m.index2_bits) indices(idx2, m.index2_bits, 1);
  std::memcpy(out, &w.lo, 8);
  std::memcpy(out + 8, &w.hi, 8);
}

inline void Pack(const Block& blk, uint8_t out[16]) {
  switch (blk.mode) {
    case 0: return PackMode<0>(blk, out);
    case 1: return PackMode<1>(blk, out);
    case 2: return PackMode<2>(blk, out);
    case 3: return PackMode<3>(blk, out);
    case 4: return PackMode<4>(blk, out);
    case 5: return PackMode<5>(blk, out);
    case 6: return PackMode<6>(blk, out);
    default: return PackMode<7>(blk, out);
  }
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
template <int ch>
float LineSpreadOf(const int32_t* a, int n) {
  if (n < 2) return 0;
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
inline float LineSpread(const Moments& mo, const int32_t* a, int n) {
  return mo.chans == 3 ? LineSpreadOf<3>(a, n) : LineSpreadOf<4>(a, n);
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

// The subset of pixel p.
inline int SubsetOf(int subsets, int partition, int p) {
  if (subsets == 2) return bptc_decode::kPartition2[partition] >> (2 * p) & 1;
  return bptc_decode::kPartition3[partition] >> (2 * p) & 3;
}

// Pixels of subset s of a partition, bit p for pixel p.
inline uint32_t SubsetMask(int subsets, int partition, int s) {
  if (subsets == 1) return 0xFFFF;
  if (subsets == 2) return s ? kSplit.m[partition] : ~kSplit.m[partition] & 0xFFFFu;
  return s ? kSplit3.m[partition][s - 1] : ~(kSplit3.m[partition][0] | kSplit3.m[partition][1]) & 0xFFFFu;
}

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
  n[1] = Pop16(m1), n[2] = Pop16(m2), n[0] = 16 - n[1] - n[2];
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
  return Spread{Pop16(mask), {a[0], a[1], a[2], a[3]}, a[4]};
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

// The estimates of the `count` partitions listed in `parts`, each at its
// number in `est`.
inline void EstimateRef(const Moments& mo, int subsets, const int* parts, int count, float* est) {
  for (int i = 0; i < count; ++i) est[parts[i]] = PartitionEstimate(mo, subsets, parts[i]);
}

// The first ranking of the first `count` partitions of `subsets` subsets.
inline void RoughRef(const Points& pts, const Spread& all, int subsets, int count, float* rough) {
  for (int k = 0; k < count; ++k) rough[k] = MeanSpread(pts, 4, all, subsets, k);
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

// A candidate's shape: mode, partition (modes 4 and 5: rotation) and
// index selection.
struct Shape {
  uint32_t err;
  int mode, part, sel;
};

// ------------------------------------------------------------ grey tiles

// Grey tiles (R = G = B, opaque) are one-channel problems: with shared
// indices and one set of codes per channel, the same endpoints in every
// channel serve all three best, so each mode's codes are searched on
// channel 0 alone and the error counted three times.  A code set lists the
// 8-bit values of its codes in increasing order: mode 6 with p-bits of 1
// (alpha 255), the 7-bit values of mode 1 (code and shared p-bit: both
// endpoints of a subset must agree in the p-bit, the lowest bit), the
// 5-bit values of mode 0 (code and p-bit per endpoint).
struct GreySet {
  int count;
  bool shared;  // both endpoints' p-bits equal
  int mode;
};
inline int GreyValue(const GreySet& s, int i) {
  switch (s.mode) {
    case 6: return 2 * i + 1;
    case 1: return i << 1 | i >> 6;
    default: return i << 3 | i >> 2;
  }
}
// The code whose value is nearest to x (the lower on a tie).
inline int GreyNearest(const GreySet& s, float x) {
  int i = int(x * float(s.count - 1) / 255.0f + 0.5f);
  i = i < 0 ? 0 : i >= s.count ? s.count - 1 : i;
  auto dist = [&](int k) { const float d = float(GreyValue(s, k)) - x; return d < 0 ? -d : d; };
  while (i + 1 < s.count && dist(i + 1) < dist(i)) ++i;
  while (i > 0 && dist(i - 1) <= dist(i)) --i;
  return i;
}

// Squared distance from an offset y (0..d) above the low endpoint to the
// nearest entry of the palette of 3- or 4-bit indices spanning d: row d
// at d (d + 1) / 2.  Entries are low + (w d + 32) >> 6 for every pair of
// endpoints d apart, in either order (the weights are symmetric), so one
// table serves every pair.
struct GapTable {
  uint16_t e[2][32896];
  uint16_t pad[2];  // 32-bit reads of the last entry stay inside
};
inline constexpr GapTable MakeGapTable() {
  GapTable t{};
  for (int b = 0; b < 2; ++b) {
    const uint8_t* w = b ? bptc_decode::kWeights4 : bptc_decode::kWeights3;
    const int n = 1 << (b + 3);
    for (int d = 0, at = 0; d < 256; at += ++d) {
      int k = 0;
      for (int y = 0; y <= d; ++y) {
        // The entries rise with k: move on while the next is no farther.
        while (k + 1 < n && ((w[k + 1] * d + 32) >> 6) - y <= y - ((w[k] * d + 32) >> 6)) ++k;
        const int e = y - ((w[k] * d + 32) >> 6);
        t.e[b][at + y] = uint16_t(e * e);
      }
    }
  }
  return t;
}
inline constexpr GapTable kGap = MakeGapTable();

// The squared error of the values xs[0..n) against the palette of
// `bits`-bit indices (3 or 4) between the 8-bit endpoints va and vb.
inline uint32_t GreyError(const int* xs, int n, int bits, int va, int vb) {
  const int lo = va < vb ? va : vb, d = va < vb ? vb - va : va - vb;
  const uint16_t* row = kGap.e[bits - 3] + d * (d + 1) / 2;
  uint32_t total = 0;
  for (int i = 0; i < n; ++i) {
    // Outside the span the nearest entry is the endpoint, where the row
    // holds 0: no branch.
    const int y = xs[i] - lo, z = y < 0 ? 0 : y > d ? d : y;
    total += row[z] + uint32_t((y - z) * (y - z));
  }
  return total;
}

// Channel 0 of the pixels in `mask` in pixel order, and its least and
// greatest; returns how many.
inline int GreyValuesRef(const Tile& t, uint32_t mask, int xs[16], int* lo, int* hi) {
  int l = 255, h = 0, n = 0;
  for (uint32_t m = mask; m; m &= m - 1) {
    const int x = t.c[0][__builtin_ctz(m)];
    xs[n++] = x;
    l = x < l ? x : l, h = x > h ? x : h;
  }
  *lo = l, *hi = h;
  return n;
}

// The errors of `count` pairs of endpoint values va[i], vb[i].
inline void GreyErrorsRef(const int* xs, int n, int bits, const int* va, const int* vb, int count, uint32_t* err) {
  for (int i = 0; i < count; ++i) err[i] = GreyError(xs, n, bits, va[i], vb[i]);
}

// A one-channel fit: the codes of the two endpoints, the error (channel 0)
// and the indices.
struct GreyFit {
  int code[2] = {0, 0};
  uint32_t err = UINT32_MAX;
  uint8_t idx[16];
};

// The two-subset partition that differs from `split` (or from its
// complement) in the fewest pixels (the lowest number on a tie).
inline int NearestSplitRef(uint32_t split) {
  int part = 0, least = 17;
  for (int k = 0; k < 64; ++k) {
    const int d = Pop16(split ^ kSplit.m[k]);
    const int e = d < 16 - d ? d : 16 - d;
    if (e < least) least = e, part = k;
  }
  return part;
}

// A tile from 4 rows of 4 RGBA pixels `step` bytes apart.
inline void LoadRef(const uint8_t* at, ptrdiff_t step, Tile* t) {
  for (int r = 0; r < 4; ++r, at += step) {
    for (int k = 0; k < 4; ++k) {
      for (int c = 0; c < 4; ++c) t->c[c][4 * r + k] = at[4 * k + c];
    }
  }
}

// Bit 0: every alpha 255; bit 1: R = G = B in every pixel.
inline int KindRef(const Tile& t) {
  bool opaque = true, grey = true;
  for (int p = 0; p < 16; ++p) opaque &= t.c[3][p] == 255, grey &= t.c[0][p] == t.c[1][p] && t.c[0][p] == t.c[2][p];
  return int(opaque) | int(grey) << 1;
}

// The reference kernels.
struct RefKernel {
  static void Load(const uint8_t* at, ptrdiff_t step, Tile* t) { LoadRef(at, step, t); }
  static int Kind(const Tile& t) { return KindRef(t); }
  static int NearestSplit(uint32_t split) { return NearestSplitRef(split); }
  static void Sum(const Tile& t, uint32_t mask, Sums* out) { SumsRef(t, mask, out); }
  static void Extent(const Tile& t, uint32_t mask, const float mean[4], const float axis[4], float* lo, float* hi) {
    ExtentRef(t, mask, mean, axis, lo, hi);
  }
  static void Rough(const Points& pts, const Spread& all, int subsets, int count, float* rough) {
    RoughRef(pts, all, subsets, count, rough);
  }
  static void Grey(const int* xs, int n, int bits, const int* va, const int* vb, int count, uint32_t* err) {
    GreyErrorsRef(xs, n, bits, va, vb, count, err);
  }
  static int GreyValues(const Tile& t, uint32_t mask, int xs[16], int* lo, int* hi) {
    return GreyValuesRef(t, mask, xs, lo, hi);
  }
  static void Estimate(const Moments& mo, int subsets, const int* parts, int count, float* est) {
    EstimateRef(mo, subsets, parts, count, est);
  }
  static uint32_t Run(const Tile& t, const int v[2][4], int bits, int chans, uint32_t mask, uint8_t idx[16]) {
    return PaletteRef(t, v, bits, chans, mask, idx);
  }
};

// ------------------------------------------------------------ driver

#include "texture/bc7_encode-search.h"  // IWYU pragma: keep

inline RvtResult Bc7Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Encode<RefKernel>(s, step, d, roi, q);
}

}  // namespace rvt::bc7_encode

#endif  // RVT_TEXTURE_BC7_ENCODE_H_
