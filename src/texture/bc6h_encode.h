// Encoding of BC6H texture blocks (RGB half floats, unsigned and signed)
// over whole regions: the scalar reference of the index search, the
// endpoint fitting and mode choice built on it, the packing of every mode's
// field layout, and the region walk with edge tiles padded by replication.
// Checks are BC4's.
//
// Errors are measured where the decoder's output lives: on half-float bit
// patterns read as integers (negative values negated), which grow about
// logarithmically with the value, so a block of small values is fitted as
// closely, relatively, as one of large values.  Endpoints are fitted in the
// decoder's interpolation domain (the unquantized 16-bit endpoints), which
// is a linear scale of that one.
#ifndef RVT_TEXTURE_BC6H_ENCODE_H_
#define RVT_TEXTURE_BC6H_ENCODE_H_

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "frame/checks.h"
#include "rvtjp.h"
#include "texture/bc_encode.h"
#include "texture/bptc_decode.h"

namespace rvt::bc6h_encode {

namespace bp = bptc_decode;

constexpr int kMaxQuality = 2;

// ------------------------------------------------------------ values

// A half-float bit pattern to the value the format can give back, as a
// signed integer of the pattern's magnitude bits.  NaN becomes 0 and an
// infinity the largest finite magnitude (0x7BFF); unsigned, every negative
// value becomes 0; signed, -0 becomes +0 (the decoder never gives -0).
inline int Target(uint16_t h, bool is_signed) {
  const int mag = h & 0x7FFF;
  const int m = mag <= 0x7BFF ? mag : mag == 0x7C00 ? 0x7BFF : 0;
  if (!(h >> 15)) return m;
  return is_signed ? -m : 0;
}

// The decoder's output for interpolated value v, in the domain of Target.
inline int Decoded(int v, bool is_signed) {
  const uint16_t h = bp::Finish(v, is_signed);
  return is_signed && (h >> 15) ? -(h & 0x7FFF) : h;
}

// Target t in the interpolation domain: the middle of the values that
// decode to it.
inline float Lift(int t, bool is_signed) {
  if (t == 0) return 0.0f;
  if (!is_signed) return (float(t) + 0.5f) * (64.0f / 31.0f);
  const float m = (float(t < 0 ? -t : t) + 0.5f) * (32.0f / 31.0f);
  return t < 0 ? -m : m;
}

// The range of endpoints of `bits` bits, and of the interpolation domain.
inline int QMax(int bits, bool is_signed) {
  if (!is_signed) return (1 << bits) - 1;
  return bits >= 16 ? 0x7FFF : (1 << (bits - 1)) - 1;
}
inline float VMin(bool is_signed) { return is_signed ? -32767.0f : 0.0f; }
inline float VMax(bool is_signed) { return is_signed ? 32767.0f : 65535.0f; }

// The endpoint of `bits` bits whose unquantized value is nearest to v (the
// smaller on a tie).
inline int Quantize(float v, int bits, bool is_signed) {
  const int top = QMax(bits, is_signed), bottom = is_signed ? -top : 0;
  // Rounded half away from zero, exactly: a float below 2^17 plus a half
  // is exact in a double.
  const double dv = double(v);
  const int target = dv < 0.0 ? -int(std::floor(0.5 - dv)) : int(std::floor(dv + 0.5));
  const float scale = is_signed ? float(top + 1) / 32768.0f : float(top + 1) / 65536.0f;
  const int q = int(std::floor(v * scale));
  int best = bottom, best_d = 1 << 30;
  for (int k = q - 1; k <= q + 1; ++k) {
    const int kk = k < bottom ? bottom : k > top ? top : k;
    const int d = std::abs(bp::Unquantize(kk, bits, is_signed) - target);
    if (d < best_d) best_d = d, best = kk;
  }
  return best;
}

// ------------------------------------------------------------ index search

// What the index search of one candidate needs, channel-major in 16 lanes:
// the targets, which pixels belong to region 1 and which are anchors (1 or
// 0), and the decoded palette of each region.
struct Search {
  alignas(64) float t[3][16];
  alignas(64) float region[16];
  alignas(64) float anchor[16];
  alignas(64) float pal[2][3][16];
  int entries;  // 8 (two regions) or 16 (one)
  // What region, anchor and pal were last built for, so that candidates
  // sharing a layout or a region's endpoints reuse them: the partition (32
  // for one region), and per region and channel the entry count and the
  // unquantized endpoints, the count doubled plus 1 when signed (0 is
  // never current).
  int layout = -1;
  int key[2][3][3] = {};
};

// Each pixel's nearest entry of its region's palette (the lowest index on a
// tie; an anchor only among the first half, as its top index bit is
// implied 0) and the squared error to it, ((dr² + dg²) + db²) in floats.
inline void SelectRef(const Search& s, uint8_t idx[16], float err[16]) {
  const int half = s.entries / 2;
  for (int p = 0; p < 16; ++p) {
    const int r = s.region[p] > 0.0f ? 1 : 0;
    const int n = s.anchor[p] > 0.0f ? half : s.entries;
    float best = INFINITY;
    int bi = 0;
    for (int k = 0; k < n; ++k) {
      const float dr = s.t[0][p] - s.pal[r][0][k], dg = s.t[1][p] - s.pal[r][1][k],
                  db = s.t[2][p] - s.pal[r][2][k];
      const float e = dr * dr + dg * dg + db * db;
      if (e < best) best = e, bi = k;
    }
    idx[p] = uint8_t(bi);
    err[p] = best;
  }
}
using SelectFn = void (*)(const Search&, uint8_t*, float*);

// ------------------------------------------------------------ modes

// The mode values by region count: the one-region ones from the plain
// 10-bit endpoints to 16-bit bases with 4-bit deltas; the two-region ones.
inline constexpr uint8_t kOneRegion[4] = {0x03, 0x07, 0x0B, 0x0F};
inline constexpr uint8_t kTwoRegion[10] = {0x00, 0x01, 0x02, 0x06, 0x0A, 0x0E, 0x12, 0x16, 0x1A, 0x1E};

// A tile and its candidates.
struct Tile {
  bool is_signed;
  float v[16][3];  // the interpolation domain
  Search s;        // targets in s.t
};
struct Candidate {
  int value = -1, partition = 0;
  int q[4][3] = {};  // quantized endpoints, region r at 2r and 2r + 1
  uint8_t idx[16] = {};
  double err = INFINITY;
};

// Pixels of region 1 of each partition, bit p for pixel p.
struct RegionTable {
  uint16_t m[32];
};
inline constexpr RegionTable MakeRegionTable() {
  RegionTable t{};
  for (int k = 0; k < 32; ++k) {
    for (int p = 0; p < 16; ++p) t.m[k] |= uint16_t((bp::kPartition2[k] >> (2 * p) & 1) << p);
  }
  return t;
}
inline constexpr RegionTable kRegion1 = MakeRegionTable();

inline uint32_t RegionMask(int regions, int partition) { return regions == 2 ? kRegion1.m[partition] : 0; }

// Whether quantized endpoints are representable in the mode: in range, and
// (transformed modes) every other endpoint within its delta of the first.
inline bool Fits(const bp::Bc6Mode& m, const int q[4][3], bool is_signed) {
  const int top = QMax(m.base_bits, is_signed), bottom = is_signed ? -top : 0;
  for (int e = 0; e < 2 * m.regions; ++e) {
    for (int c = 0; c < 3; ++c) {
      if (q[e][c] < bottom || q[e][c] > top) return false;
      if (m.transformed && e > 0) {
        const int d = q[e][c] - q[0][c], half = 1 << (m.delta_bits[c] - 1);
        if (d < -half || d >= half) return false;
      }
    }
  }
  return true;
}

// The indices and error of candidate `c` (mode, partition and quantized
// endpoints set).
template <SelectFn kSelect>
void Evaluate(Tile& t, Candidate& c) {
  const bp::Bc6Mode& m = bp::bc6::kModes[c.value];
  Search& s = t.s;
  s.entries = m.regions == 2 ? 8 : 16;
  const uint8_t* w = bp::Weights(m.regions == 2 ? 3 : 4);
  const int layout = m.regions == 2 ? c.partition : 32;
  if (s.layout != layout) {
    s.layout = layout;
    const uint32_t mask = RegionMask(m.regions, c.partition);
    for (int p = 0; p < 16; ++p) {
      s.region[p] = float(mask >> p & 1);
      s.anchor[p] = p == 0 || (m.regions == 2 && p == bp::kAnchor2[c.partition]) ? 1.0f : 0.0f;
    }
  }
  for (int r = 0; r < m.regions; ++r) {
    for (int ch = 0; ch < 3; ++ch) {
      const int a = bp::Unquantize(c.q[2 * r][ch], m.base_bits, t.is_signed);
      const int b = bp::Unquantize(c.q[2 * r + 1][ch], m.base_bits, t.is_signed);
      int* key = s.key[r][ch];
      const int kind = 2 * s.entries + t.is_signed;
      if (key[0] == kind && key[1] == a && key[2] == b) continue;
      key[0] = kind, key[1] = a, key[2] = b;
      for (int k = 0; k < s.entries; ++k) {
        s.pal[r][ch][k] = float(Decoded(((64 - w[k]) * a + w[k] * b + 32) >> 6, t.is_signed));
      }
    }
  }
  alignas(64) float err[16];
  kSelect(s, c.idx, err);
  double total = 0;
  for (int p = 0; p < 16; ++p) total += double(err[p]);
  c.err = total;
}

// ------------------------------------------------------------ endpoints

// Principal-axis endpoints of the pixels of `mask`: the extremes of their
// projections on the axis through their mean, oriented so that `anchor`
// lies in the half nearer the first.  The set is never empty.
inline void AxisEnds(const Tile& t, uint32_t mask, int anchor, float out[2][3]) {
  double mean[3] = {}, n = 0;
  for (int p = 0; p < 16; ++p) {
    if (!(mask >> p & 1)) continue;
    for (int c = 0; c < 3; ++c) mean[c] += t.v[p][c];
    n += 1.0;
  }
  for (int c = 0; c < 3; ++c) mean[c] /= n;
  double cov[3][3] = {};
  for (int p = 0; p < 16; ++p) {
    if (!(mask >> p & 1)) continue;
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = t.v[p][c] - mean[c];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) cov[i][j] += d[i] * d[j];
    }
  }
  // Power iteration from the row of the largest variance, kept at unit
  // length.
  int big = 0;
  for (int c = 1; c < 3; ++c) big = cov[c][c] > cov[big][big] ? c : big;
  double axis[3] = {cov[big][0], cov[big][1], cov[big][2]};
  for (int it = 0; it < 8; ++it) {
    const double len = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
    if (!(len > 0.0)) break;
    for (int i = 0; i < 3; ++i) axis[i] /= len;
    if (it == 7) break;
    double next[3];
    for (int i = 0; i < 3; ++i) next[i] = cov[i][0] * axis[0] + cov[i][1] * axis[1] + cov[i][2] * axis[2];
    for (int i = 0; i < 3; ++i) axis[i] = next[i];
  }
  double lo = 0, hi = 0;
  if (cov[big][big] > 0.0) {
    lo = INFINITY, hi = -INFINITY;
    for (int p = 0; p < 16; ++p) {
      if (!(mask >> p & 1)) continue;
      const double d = (t.v[p][0] - mean[0]) * axis[0] + (t.v[p][1] - mean[1]) * axis[1] +
                       (t.v[p][2] - mean[2]) * axis[2];
      lo = d < lo ? d : lo;
      hi = d > hi ? d : hi;
    }
    const double a = (t.v[anchor][0] - mean[0]) * axis[0] + (t.v[anchor][1] - mean[1]) * axis[1] +
                     (t.v[anchor][2] - mean[2]) * axis[2];
    if (a - lo > hi - a) std::swap(lo, hi);
  }
  const double vmin = VMin(t.is_signed), vmax = VMax(t.is_signed);
  for (int c = 0; c < 3; ++c) {
    const double v0 = mean[c] + lo * axis[c], v1 = mean[c] + hi * axis[c];
    out[0][c] = float(v0 < vmin ? vmin : v0 > vmax ? vmax : v0);
    out[1][c] = float(v1 < vmin ? vmin : v1 > vmax ? vmax : v1);
  }
}

// Least-squares endpoints of region r for the indices of `c`: each pixel
// is ((64 - w) * A + w * B) / 64.  False when every pixel of the region
// has one weight.
inline bool Refit(const Tile& t, const Candidate& c, int regions, int r, float out[2][3]) {
  const uint8_t* w = bp::Weights(regions == 2 ? 3 : 4);
  const uint32_t mask = RegionMask(regions, c.partition);
  float aa = 0, ab = 0, bb = 0, ax[3] = {}, bx[3] = {};
  for (int p = 0; p < 16; ++p) {
    if (int(mask >> p & 1) != r) continue;
    const float w1 = float(w[c.idx[p]]) / 64.0f, w0 = 1.0f - w1;
    aa += w0 * w0, ab += w0 * w1, bb += w1 * w1;
    for (int ch = 0; ch < 3; ++ch) ax[ch] += w0 * t.v[p][ch], bx[ch] += w1 * t.v[p][ch];
  }
  const float det = aa * bb - ab * ab;
  if (!(det > 1e-4f)) return false;
  const float vmin = VMin(t.is_signed), vmax = VMax(t.is_signed);
  for (int ch = 0; ch < 3; ++ch) {
    const float a = (bb * ax[ch] - ab * bx[ch]) / det, b = (aa * bx[ch] - ab * ax[ch]) / det;
    out[0][ch] = a < vmin ? vmin : a > vmax ? vmax : a;
    out[1][ch] = b < vmin ? vmin : b > vmax ? vmax : b;
  }
  return true;
}

// Endpoints of the interpolation domain quantized for each of `modes`
// (`value` of them, one region count), every delta clamped into its range
// (the second endpoint pulled towards the first), evaluated and handed to
// `consider` in order.  Modes of one base precision share the rounding of
// the endpoints, and a mode whose clamped endpoints equal those of an
// earlier mode of its precision is skipped: it has the same palette and
// error, and an equal error never displaces the earlier candidate.
template <SelectFn kSelect, class Consider>
void TryModes(Tile& t, const uint8_t* modes, int count, int partition, const float ends[4][3],
              Consider&& consider) {
  int raw_bits[10], raw[10][4][3], raws = 0;
  int done_bits[10], done[10][4][3], dones = 0;
  for (int i = 0; i < count; ++i) {
    const bp::Bc6Mode& m = bp::bc6::kModes[modes[i]];
    int k = 0;
    while (k < raws && raw_bits[k] != m.base_bits) ++k;
    if (k == raws) {
      raw_bits[raws++] = m.base_bits;
      for (int e = 0; e < 2 * m.regions; ++e) {
        for (int ch = 0; ch < 3; ++ch) raw[k][e][ch] = Quantize(ends[e][ch], m.base_bits, t.is_signed);
      }
    }
    Candidate c;
    c.value = modes[i], c.partition = partition;
    for (int e = 0; e < 2 * m.regions; ++e) {
      for (int ch = 0; ch < 3; ++ch) {
        int q = raw[k][e][ch];
        if (m.transformed && e > 0) {
          const int half = 1 << (m.delta_bits[ch] - 1);
          const int d = q - c.q[0][ch];
          q = c.q[0][ch] + (d < -half ? -half : d >= half ? half - 1 : d);
        }
        c.q[e][ch] = q;
      }
    }
    bool seen = false;
    for (int j = 0; j < dones && !seen; ++j) {
      seen = done_bits[j] == m.base_bits && std::memcmp(done[j], c.q, sizeof c.q) == 0;
    }
    if (seen) continue;
    done_bits[dones] = m.base_bits;
    std::memcpy(done[dones++], c.q, sizeof c.q);
    Evaluate<kSelect>(t, c);
    consider(c);
  }
}

// Per-pixel moments of the interpolation-domain values (v, and the six
// products of its channels), for scatter sums of any pixel set.
struct Moments {
  double m[16][9];
  double total[9];
  explicit Moments(const Tile& t) {
    for (int k = 0; k < 9; ++k) total[k] = 0;
    for (int p = 0; p < 16; ++p) {
      const double r = t.v[p][0], g = t.v[p][1], b = t.v[p][2];
      const double v[9] = {r, g, b, r * r, g * g, b * b, r * g, r * b, g * b};
      for (int k = 0; k < 9; ++k) m[p][k] = v[k], total[k] += v[k];
    }
  }
};

// Scatter of a pixel set (n pixels, moment sums s) left off its principal
// axis.
inline double OffAxis(const double s[9], double n) {
  const double mr = s[0] / n, mg = s[1] / n, mb = s[2] / n;
  const double cov[3][3] = {{s[3] - s[0] * mr, s[6] - s[0] * mg, s[7] - s[0] * mb},
                            {s[6] - s[0] * mg, s[4] - s[1] * mg, s[8] - s[1] * mb},
                            {s[7] - s[0] * mb, s[8] - s[1] * mb, s[5] - s[2] * mb}};
  const double trace = cov[0][0] + cov[1][1] + cov[2][2];
  double axis[3] = {1.0, 1.0, 1.0}, lambda = 0;
  for (int it = 0; it < 4; ++it) {
    double next[3];
    for (int i = 0; i < 3; ++i) next[i] = cov[i][0] * axis[0] + cov[i][1] * axis[1] + cov[i][2] * axis[2];
    lambda = std::sqrt(next[0] * next[0] + next[1] * next[1] + next[2] * next[2]);
    if (!(lambda > 0.0)) break;
    for (int i = 0; i < 3; ++i) axis[i] = next[i] / lambda;
  }
  return trace - lambda;
}

// Scatter left off the principal axis of each region of a partition: a
// cheap measure of how well two lines fit it.
inline double PartitionScore(const Moments& mo, int partition) {
  const uint32_t mask = RegionMask(2, partition);
  double one[9] = {}, rest[9];
  for (uint32_t m = mask; m; m &= m - 1) {  // set bits in pixel order
    const int p = __builtin_ctz(m);
    for (int k = 0; k < 9; ++k) one[k] += mo.m[p][k];
  }
  for (int k = 0; k < 9; ++k) rest[k] = mo.total[k] - one[k];
  const double n1 = double(__builtin_popcount(mask));
  return OffAxis(one, n1) + OffAxis(rest, 16.0 - n1);
}

// ------------------------------------------------------------ the tile

// Quality 0: the one-region modes (10-bit endpoints; 11, 12 and 16-bit
// bases with deltas), endpoints at the extremes of the pixels' projections
// on their principal axis.  Quality 1: also the two partitions that fit
// two lines best, in every two-region mode, then one least-squares
// refinement of the best candidate's endpoints for its indices, in every
// mode of its region count.  Quality 2: six partitions, three
// refinements, then each endpoint component of the best moved by one
// quantization step while the error drops.
template <SelectFn kSelect>
Candidate Choose(Tile& t, int quality) {
  Candidate best;
  auto consider = [&](const Candidate& c) {
    if (c.err < best.err) best = c;
  };
  float ends[4][3];
  AxisEnds(t, 0xFFFF, 0, ends);
  TryModes<kSelect>(t, kOneRegion, 4, 0, ends, consider);
  if (quality >= 1 && best.err > 0) {
    const int keep = quality == 1 ? 2 : 6;
    int top[6];
    double score[6];
    for (int k = 0; k < keep; ++k) top[k] = -1, score[k] = INFINITY;
    const Moments mo(t);
    for (int part = 0; part < 32; ++part) {
      double s = PartitionScore(mo, part);
      int k = part;
      for (int i = 0; i < keep; ++i) {  // insertion into the kept best
        if (s < score[i]) std::swap(s, score[i]), std::swap(k, top[i]);
      }
    }
    for (int i = 0; i < keep; ++i) {
      const int part = top[i];
      const uint32_t mask = RegionMask(2, part);
      AxisEnds(t, ~mask & 0xFFFF, 0, ends);
      AxisEnds(t, mask, bp::kAnchor2[part], ends + 2);
      TryModes<kSelect>(t, kTwoRegion, 10, part, ends, consider);
    }
    const int rounds = quality == 1 ? 1 : 3;
    for (int round = 0; round < rounds && best.err > 0; ++round) {
      const int regions = bp::bc6::kModes[best.value].regions;
      const Candidate from = best;
      bool any = false;
      for (int r = 0; r < regions; ++r) {
        if (Refit(t, from, regions, r, ends + 2 * r)) {
          any = true;
        } else {
          for (int ch = 0; ch < 3; ++ch) {  // one weight: keep the quantized pair
            const int bits = bp::bc6::kModes[from.value].base_bits;
            ends[2 * r][ch] = float(bp::Unquantize(from.q[2 * r][ch], bits, t.is_signed));
            ends[2 * r + 1][ch] = float(bp::Unquantize(from.q[2 * r + 1][ch], bits, t.is_signed));
          }
        }
      }
      if (!any) break;
      const double before = best.err;
      if (regions == 1) {
        TryModes<kSelect>(t, kOneRegion, 4, 0, ends, consider);
      } else {
        TryModes<kSelect>(t, kTwoRegion, 10, from.partition, ends, consider);
      }
      if (!(best.err < before)) break;
    }
  }
  if (quality >= 2 && best.err > 0) {
    const bp::Bc6Mode& m = bp::bc6::kModes[best.value];
    for (bool better = true; better;) {
      better = false;
      for (int e = 0; e < 2 * m.regions; ++e) {
        for (int ch = 0; ch < 3; ++ch) {
          for (int step : {-1, 1}) {
            Candidate c = best;
            c.q[e][ch] += step;
            if (!Fits(m, c.q, t.is_signed)) continue;
            Evaluate<kSelect>(t, c);
            if (c.err < best.err) best = c, better = true;
          }
        }
      }
    }
  }
  return best;
}

// ------------------------------------------------------------ packing

// Writes fields least significant bit first, as the decoder reads them.
struct BitWriter {
  uint64_t lo = 0, hi = 0;
  int pos = 0;
  void Put(uint32_t v, int n) {
    for (int i = 0; i < n; ++i, ++pos) {
      const uint64_t bit = uint64_t(v >> i & 1);
      if (pos < 64) {
        lo |= bit << pos;
      } else {
        hi |= bit << (pos - 64);
      }
    }
  }
};

// The 16 bytes of candidate `c`: the mode value, the endpoint fields in
// the mode's layout (transformed modes: the others as deltas from the
// first), the partition, the indices (anchors one bit shorter).
inline void Pack(const Candidate& c, uint8_t out[16]) {
  const bp::Bc6Mode& m = bp::bc6::kModes[c.value];
  uint32_t field[4][3] = {};
  for (int e = 0; e < 2 * m.regions; ++e) {
    for (int ch = 0; ch < 3; ++ch) {
      const bool delta = m.transformed && e > 0;
      const int bits = delta ? m.delta_bits[ch] : m.base_bits;
      const int v = delta ? c.q[e][ch] - c.q[0][ch] : c.q[e][ch];
      field[e][ch] = uint32_t(v) & ((1u << bits) - 1);
    }
  }
  BitWriter w;
  w.Put(uint32_t(c.value), m.header_bits);
  for (int r = 0; r < m.runs; ++r) {
    const bp::Run& run = m.layout[r];
    const uint32_t f = field[run.e][run.c];
    if (run.from <= run.to) {
      w.Put(f >> run.from, run.to - run.from + 1);
    } else {
      for (int b = run.from; b >= run.to; --b) w.Put(f >> b, 1);
    }
  }
  const int index_bits = m.regions == 2 ? 3 : 4;
  if (m.regions == 2) w.Put(uint32_t(c.partition), 5);
  for (int p = 0; p < 16; ++p) {
    const bool anchor = p == 0 || (m.regions == 2 && p == bp::kAnchor2[c.partition]);
    w.Put(c.idx[p], index_bits - anchor);
  }
  std::memcpy(out, &w.lo, 8);
  std::memcpy(out + 8, &w.hi, 8);
}

// ------------------------------------------------------------ driver

// The 4x4 tile at (x, y) of 3-channel 16-bit pixels, edge pixels
// replicated past the region's right and bottom edges.
inline void Gather(const uint8_t* src, int32_t step, ImageSize roi, int64_t x, int64_t y,
                   bool is_signed, Tile& t) {
  t.is_signed = is_signed;
  for (int r = 0; r < 4; ++r) {
    const int64_t yy = y + r < roi.height ? y + r : roi.height - 1;
    const uint8_t* row = src + ptrdiff_t(yy) * step;
    for (int k = 0; k < 4; ++k) {
      const int64_t xx = x + k < roi.width ? x + k : roi.width - 1;
      uint16_t px[3];
      std::memcpy(px, row + xx * 6, 6);
      for (int c = 0; c < 3; ++c) {
        const int v = Target(px[c], is_signed);
        t.s.t[c][4 * r + k] = float(v);
        t.v[4 * r + k][c] = Lift(v, is_signed);
      }
    }
  }
}

// Every tile in block order to its 16-byte block.
template <bool kSigned, SelectFn kSelect>
RvtResult Region(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  Tile t{};
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4, dst += 16) {
      Gather(src, step, roi, x, y, kSigned, t);
      Pack(Choose<kSelect>(t, quality), dst);
    }
  }
  return rvtStatusOk;
}

inline RvtResult Bc6uRef(const uint16_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Region<false, SelectRef>(reinterpret_cast<const uint8_t*>(s), step, d, roi, q);
}
inline RvtResult Bc6sRef(const int16_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Region<true, SelectRef>(reinterpret_cast<const uint8_t*>(s), step, d, roi, q);
}

}  // namespace rvt::bc6h_encode

#endif  // RVT_TEXTURE_BC6H_ENCODE_H_
