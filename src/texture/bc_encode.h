// Encoding of BC4 (one channel) and BC5 (two channels) texture blocks over
// whole regions: the scalar reference of the channel block search, the
// argument checks and the region walk with edge tiles padded by
// replication.
#ifndef RVT_TEXTURE_BC_ENCODE_H_
#define RVT_TEXTURE_BC_ENCODE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "rvtjp.h"
#include "texture/bc_decode.h"

namespace rvt::bc_encode {

constexpr int kMaxQuality = 2;

// ------------------------------------------------------------ reference

// Squared error of the 16 values against the palette of (e0, e1), and the
// index of each (the nearest entry; the lowest index on a tie).
inline int ChannelError(const uint8_t v[16], int e0, int e1, uint8_t idx[16]) {
  uint8_t pal[8];
  bc_decode::ChannelPalette(uint8_t(e0), uint8_t(e1), pal);
  int total = 0;
  for (int p = 0; p < 16; ++p) {
    int best = 1 << 30, bi = 0;
    for (int k = 0; k < 8; ++k) {
      const int d = v[p] - pal[k];
      if (d * d < best) best = d * d, bi = k;
    }
    total += best;
    idx[p] = uint8_t(bi);
  }
  return total;
}

// The endpoint pairs a channel block tries, in order.  Quality 0: the
// six-interpolant form over the values' range, then the four-interpolant
// form (with its exact 0 and 255) over the range of the values inside
// 1..254.  Quality 1: also each form's endpoints moved by up to 1; quality
// 2: by up to 4.  Six interpolants need e0 > e1, four need e0 <= e1; the
// first pair (range) may be a flat pair either way.
constexpr int kMaxPairs = 2 + 2 * 81;

// The values' range, and the range of those inside 1..254 (lo_in > hi_in
// when there are none).
struct Ranges {
  int lo = 255, hi = 0, lo_in = 255, hi_in = 0;
};

inline Ranges RangesOf(const uint8_t v[16]) {
  Ranges r;
  for (int p = 0; p < 16; ++p) {
    r.lo = v[p] < r.lo ? v[p] : r.lo;
    r.hi = v[p] > r.hi ? v[p] : r.hi;
    if (v[p] != 0 && v[p] != 255) {
      r.lo_in = v[p] < r.lo_in ? v[p] : r.lo_in;
      r.hi_in = v[p] > r.hi_in ? v[p] : r.hi_in;
    }
  }
  return r;
}

inline int Pairs(const Ranges& r, int quality, uint8_t pairs[kMaxPairs][2]) {
  const int lo = r.lo, hi = r.hi, lo_in = r.lo_in, hi_in = r.hi_in;
  int n = 0;
  auto add = [&](int e0, int e1) {
    if (e0 < 0 || e0 > 255 || e1 < 0 || e1 > 255) return;
    pairs[n][0] = uint8_t(e0), pairs[n][1] = uint8_t(e1), ++n;
  };
  add(hi, lo);
  if (lo_in <= hi_in) add(lo_in, hi_in);
  if (quality == 0 || lo == hi) return n;
  const int reach = quality == 1 ? 1 : 4;
  for (int d0 = -reach; d0 <= reach; ++d0) {
    for (int d1 = -reach; d1 <= reach; ++d1) {
      if ((d0 || d1) && hi + d0 > lo + d1) add(hi + d0, lo + d1);
      if ((d0 || d1) && lo_in <= hi_in && lo_in + d0 <= hi_in + d1) add(lo_in + d0, hi_in + d1);
    }
  }
  return n;
}

// The block of the chosen pair: endpoints, then the 3-bit indices.
inline void StoreChannel(int e0, int e1, const uint8_t idx[16], uint8_t* out) {
  out[0] = uint8_t(e0);
  out[1] = uint8_t(e1);
  uint64_t bits = 0;
  for (int p = 0; p < 16; ++p) bits |= uint64_t(idx[p]) << (3 * p);
  for (int i = 0; i < 6; ++i) out[2 + i] = uint8_t(bits >> (8 * i));
}

// The 8-byte channel block of 16 values (row order): of the pairs tried,
// the one with the smallest squared error (the first on a tie; the search
// ends at an exact one).
inline void EncodeChannel(const uint8_t v[16], int quality, uint8_t* out) {
  uint8_t pairs[kMaxPairs][2], idx[16];
  const int n = Pairs(RangesOf(v), quality, pairs);
  int best = 1 << 30, bi = 0;
  for (int i = 0; i < n && best > 0; ++i) {
    const int err = ChannelError(v, pairs[i][0], pairs[i][1], idx);
    if (err < best) best = err, bi = i;
  }
  ChannelError(v, pairs[bi][0], pairs[bi][1], idx);
  StoreChannel(pairs[bi][0], pairs[bi][1], idx, out);
}

// The 4x4 tile at (x, y) of channel `c` of `pixel`-byte pixels, edge pixels
// replicated past the region's right and bottom edges.
inline void Gather(const uint8_t* src, int32_t step, ImageSize roi, int64_t x, int64_t y, int pixel,
                   int c, uint8_t v[16]) {
  if (x + 4 <= roi.width && y + 4 <= roi.height) {
    const uint8_t* at = src + ptrdiff_t(y) * step + x * pixel + c;
    for (int r = 0; r < 4; ++r, at += step) {
      for (int k = 0; k < 4; ++k) v[4 * r + k] = at[k * pixel];
    }
    return;
  }
  for (int r = 0; r < 4; ++r) {
    const int64_t yy = y + r < roi.height ? y + r : roi.height - 1;
    const uint8_t* row = src + ptrdiff_t(yy) * step;
    for (int k = 0; k < 4; ++k) {
      const int64_t xx = x + k < roi.width ? x + k : roi.width - 1;
      v[4 * r + k] = row[xx * pixel + c];
    }
  }
}

// ------------------------------------------------------------ checks

// Source (only a zero step refused: a negative one walks upwards), the
// destination, the region, then the quality.
inline RvtResult Check(const uint8_t* src, int32_t step, const uint8_t* dst, ImageSize roi,
                       int quality) {
  RVT_CHECK(CheckPtr(src));
  if (step == 0) return rvtStatusStep;
  RVT_CHECK(CheckPtr(dst));
  RVT_CHECK(CheckRoi(roi));
  return quality < 0 || quality > kMaxQuality ? rvtStatusBadArg : rvtStatusOk;
}

// ------------------------------------------------------------ driver

// Every tile in block order, each channel of `kChannels` (BC4: 1, BC5: 2)
// to its 8-byte block.
using ChannelFn = void (*)(const uint8_t v[16], int quality, uint8_t* out);

template <int kChannels, ChannelFn kEncode>
RvtResult Channels(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(Check(src, step, dst, roi, quality));
  uint8_t v[16];
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4) {
      if (kChannels == 2 && x + 4 <= roi.width && y + 4 <= roi.height) {
        // An inside tile: both channels from one pass over its rows.
        uint8_t rg[2][16];
        const uint8_t* at = src + ptrdiff_t(y) * step + 2 * x;
        for (int r = 0; r < 4; ++r, at += step) {
          for (int k = 0; k < 4; ++k) rg[0][4 * r + k] = at[2 * k], rg[1][4 * r + k] = at[2 * k + 1];
        }
        kEncode(rg[0], quality, dst);
        kEncode(rg[1], quality, dst + 8);
        dst += 16;
        continue;
      }
      for (int c = 0; c < kChannels; ++c, dst += 8) {
        Gather(src, step, roi, x, y, kChannels, c, v);
        kEncode(v, quality, dst);
      }
    }
  }
  return rvtStatusOk;
}

inline RvtResult Bc4Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Channels<1, EncodeChannel>(s, step, d, roi, q);
}
inline RvtResult Bc5Ref(const uint8_t* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return Channels<2, EncodeChannel>(s, step, d, roi, q);
}

}  // namespace rvt::bc_encode

#endif  // RVT_TEXTURE_BC_ENCODE_H_
