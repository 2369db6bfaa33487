// The rvtjxr decoder: image header, image plane header, index table, tile
// packets and macroblocks; DC/LP/HP prediction, dequantization, the second
// level transform and the overlap post filters here; the first level
// inverse transform through rvtiPCTInvBlocks_JPEGXR_32s_C1I and every
// coefficient through the rvtiVLC/FLC decoders.
//
// Coefficients are kept per channel in macroblock rows of the padded image
// width, each 4x4 block holding its transform coefficients where the photo
// core transform exports put them.  Images reconstruct as they decode:
// once macroblock row y is decoded, corner row y of the filter walk (block
// DC filters, first-level inverse transforms, pixel filters) finishes row
// y - 1 of every channel, which is colour-converted into the output at
// once (4:2:0 one row later: the mean below its last pixel row needs the
// next chroma row).  In one tile column only a few rows a channel are
// kept; with several, whole planes.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include <immintrin.h>

#include "jxr_codec.h"
#include "jxr_filters.h"
#include "rvtjp.h"

namespace rvtjxr {
namespace {

enum ColorFormat { kYOnly = 0, k420 = 1, k422 = 2, k444 = 3, kCmyk = 4, kNChannel = 6 };
enum Subband { kAll = 0, kNoFlex = 1, kNoHP = 2, kDCOnly = 3 };

// Largest coefficient magnitude, quantized or not, a valid 8- or 16-bit
// image produces is below 2^22; a decoder that refuses levels and products
// beyond 2^24 keeps every later sum, transform and filter step far from
// 32-bit overflow on damaged streams.
constexpr int64_t kMaxCoef = int64_t(1) << 24;
inline bool InRange(int64_t v) { return v >= -kMaxCoef && v <= kMaxCoef; }

// Whether any of n values lies outside -limit..limit (limit below 2^30):
// limit - v and v + limit, taken modulo 2^32, both stay below 2^31 just
// for the values inside, so one OR of them all tells.
inline bool AnyOutsideBody(const int32_t* v, int n, uint32_t limit) {
  uint32_t acc = 0;
  for (int k = 0; k < n; ++k) acc |= (limit - uint32_t(v[k])) | (uint32_t(v[k]) + limit);
  return (acc >> 31) != 0;
}
// With AVX2 the smallest and the largest are kept lane-wise over 32 values
// a step (one min and one max for each 8), then compared once.
__attribute__((target("avx2"))) bool AnyOutsideAvx2(const int32_t* v, int n, uint32_t limit) {
  __m256i lo0 = _mm256_setzero_si256(), hi0 = lo0;
  int k = 0;
  for (; k + 32 <= n; k += 32) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + k));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + k + 8));
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + k + 16));
    const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + k + 24));
    lo0 = _mm256_min_epi32(_mm256_min_epi32(_mm256_min_epi32(a, b), _mm256_min_epi32(c, d)), lo0);
    hi0 = _mm256_max_epi32(_mm256_max_epi32(_mm256_max_epi32(a, b), _mm256_max_epi32(c, d)), hi0);
  }
  for (; k + 8 <= n; k += 8) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v + k));
    lo0 = _mm256_min_epi32(lo0, a);
    hi0 = _mm256_max_epi32(hi0, a);
  }
  const __m256i top = _mm256_set1_epi32(int32_t(limit)), bottom = _mm256_set1_epi32(-int32_t(limit));
  const __m256i out = _mm256_or_si256(_mm256_cmpgt_epi32(hi0, top),
                                      _mm256_cmpgt_epi32(bottom, lo0));
  return !_mm256_testz_si256(out, out) || AnyOutsideBody(v + k, n - k, limit);
}
bool AnyOutside(const int32_t* v, int n, uint32_t limit) {
  static const bool avx2 = __builtin_cpu_supports("avx2");
  return avx2 ? AnyOutsideAvx2(v, n, limit) : AnyOutsideBody(v, n, limit);
}

// Header fields, most significant bit first; reads past the end give zeros
// and mark the reader short.
struct Bits {
  const uint8_t* p;
  size_t size;
  size_t pos = 0;  // in bits
  bool Short() const { return pos > size * 8; }
  uint32_t Get(int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) {
      const size_t b = pos++;
      v = (v << 1) | (b < size * 8 ? (p[b >> 3] >> (7 - (b & 7))) & 1u : 0u);
    }
    return v;
  }
  void Align() { pos = (pos + 7) & ~size_t(7); }
};

// One set of quantizer indexes (per channel), as coded: a channel mode for
// more than one channel (0 one index, 1 lum and chroma, 2 each), then the
// indexes.
struct QpSet {
  int index[16] = {};
};
QpSet ReadQpSet(Bits& b, int channels) {
  QpSet q;
  const int mode = channels > 1 ? int(b.Get(2)) : 0;
  q.index[0] = int(b.Get(8));
  if (mode == 1) q.index[1] = int(b.Get(8));
  else if (mode > 1) {
    for (int c = 1; c < channels; ++c) q.index[c] = int(b.Get(8));
  }
  for (int c = 1; c < channels; ++c) {
    if (mode == 0) q.index[c] = q.index[0];
    else if (mode == 1) q.index[c] = q.index[1];
  }
  return q;
}
// Steps of a set: DC and LP chroma steps use shift 0 under scaled
// arithmetic, HP ones shift 1.
std::array<int32_t, 16> Steps(const QpSet& q, int channels, bool hp, bool scaled) {
  std::array<int32_t, 16> s{};
  for (int c = 0; c < channels; ++c) s[size_t(c)] = StepOf(q.index[c], (c > 0 && !hp) ? 0 : 1, scaled);
  return s;
}

struct Header {
  int subversion = 0;
  bool tiling = false, frequency = false, indexTable = false, shortHeader = false;
  bool windowing = false, trimFlag = false, alpha = false;
  int orientation = 0, overlap = 0, outColor = 0, outDepth = 0;
  int shift16 = 0;  // 16- and 32-bit outputs: low bits the coder drops
  uint32_t width = 0, height = 0;
  uint32_t extraTop = 0, extraLeft = 0, extraBottom = 0, extraRight = 0;
  std::vector<uint32_t> tileX, tileY;  // first macroblock of each tile column / row
  // the first image plane
  int format = 0, channels = 1, subband = 0;
  bool scaled = false;
  bool dcPerTile = false, lpPerTile = false, hpPerTile = false;
  std::array<int32_t, 16> dcStep{}, lpStep{}, hpStep{};
};

bool ReadHeader(Bits& b, Header* h, std::string* error) {
  static const char kSig[8] = {'W', 'M', 'P', 'H', 'O', 'T', 'O', 0};
  if (b.size < 8 || std::memcmp(b.p, kSig, 8) != 0) {
    *error = "no WMPHOTO image signature";
    return false;
  }
  b.pos = 64;
  if (b.Get(4) != 1) {
    *error = "unknown codec version";
    return false;
  }
  h->subversion = int(b.Get(4));
  h->tiling = b.Get(1);
  h->frequency = b.Get(1);
  h->orientation = int(b.Get(3));
  h->indexTable = b.Get(1);
  h->overlap = int(b.Get(2));
  h->shortHeader = b.Get(1);
  b.Get(1);  // long words
  h->windowing = b.Get(1);
  h->trimFlag = b.Get(1);
  const bool stretch = b.Get(1);
  b.Get(1);  // red and blue order
  b.Get(1);  // reserved
  h->alpha = b.Get(1);
  h->outColor = int(b.Get(4));
  h->outDepth = int(b.Get(4));
  const int wordBits = h->shortHeader ? 16 : 32;
  h->width = b.Get(wordBits) + 1;
  h->height = b.Get(wordBits) + 1;
  if (h->width == 0 || h->height == 0) {
    *error = "image size out of range";
    return false;
  }
  uint32_t cols = 1, rows = 1;
  if (h->tiling) {
    cols = b.Get(12) + 1;
    rows = b.Get(12) + 1;
  }
  h->tileX.assign(1, 0);
  h->tileY.assign(1, 0);
  for (uint32_t i = 1; i < cols; ++i) h->tileX.push_back(h->tileX.back() + b.Get(h->shortHeader ? 8 : 16));
  for (uint32_t i = 1; i < rows; ++i) h->tileY.push_back(h->tileY.back() + b.Get(h->shortHeader ? 8 : 16));
  if (stretch) b.pos += size_t(8) * cols * rows;
  if (h->windowing) {
    h->extraTop = b.Get(6);
    h->extraLeft = b.Get(6);
    h->extraBottom = b.Get(6);
    h->extraRight = b.Get(6);
  } else {
    if (h->width & 15) h->extraRight = 16 - (h->width & 15);
    if (h->height & 15) h->extraBottom = 16 - (h->height & 15);
  }
  if (h->orientation != 0) {
    *error = "rotated or flipped images are not supported";
    return false;
  }
  if (h->width > (1u << 16) || h->height > (1u << 16)) {
    *error = "image larger than 65536 pixels a side is not supported";
    return false;
  }
  if (((h->width + h->extraLeft + h->extraRight) & 15) || ((h->height + h->extraTop + h->extraBottom) & 15)) {
    *error = "image window does not cover whole macroblocks";
    return false;
  }
  b.Align();

  // the image plane
  h->format = int(b.Get(3));
  h->scaled = b.Get(1);
  h->subband = int(b.Get(4));
  switch (h->format) {
    case kYOnly: h->channels = 1; break;
    case k420: h->channels = 3; b.Get(8); break;
    case k422: h->channels = 3; b.Get(8); break;
    case k444: h->channels = 3; b.Get(8); break;
    case kNChannel: h->channels = int(b.Get(4)) + 1; b.Get(4); break;
    case kCmyk: h->channels = 4; break;
    default: *error = "unknown internal colour format"; return false;
  }
  // 16- and 32-bit outputs carry a shift
  if (h->outDepth == 2 || h->outDepth == 3 || h->outDepth == 5 || h->outDepth == 6) h->shift16 = int(b.Get(8));
  if (h->outDepth == 7) b.Get(16);
  const int nc = h->channels;
  QpSet dc, lp, hp;
  const bool dcUniform = b.Get(1);
  if (dcUniform) dc = ReadQpSet(b, nc);
  h->dcPerTile = !dcUniform;
  bool lpUseDc = true, hpUseLp = true, lpUniform = false, hpUniform = false;
  if (h->subband != kDCOnly) {
    lpUseDc = b.Get(1);
    if (!lpUseDc) {
      lpUniform = b.Get(1);
      if (lpUniform) lp = ReadQpSet(b, nc);
    }
    h->lpPerTile = lpUseDc ? h->dcPerTile : !lpUniform;
    if (h->subband != kNoHP) {
      hpUseLp = b.Get(1);
      if (!hpUseLp) {
        hpUniform = b.Get(1);
        if (hpUniform) hp = ReadQpSet(b, nc);
      }
      h->hpPerTile = hpUseLp ? h->lpPerTile : !hpUniform;
    }
  }
  b.Align();
  if (!h->dcPerTile) h->dcStep = Steps(dc, nc, false, h->scaled);
  if (!h->lpPerTile) h->lpStep = lpUseDc ? h->dcStep : Steps(lp, nc, false, h->scaled);
  if (!h->hpPerTile) h->hpStep = hpUseLp ? h->lpStep : Steps(hp, nc, true, h->scaled);
  if (b.Short()) {
    *error = "image header cut short";
    return false;
  }
  return true;
}

// The variable-length words of the index table.
uint64_t ReadVlw(Bits& b) {
  uint64_t s = b.Get(8);
  if (s == 0xFD || s == 0xFE || s == 0xFF) return 0;
  if (s < 0xFB) return (s << 8) | b.Get(8);
  if (s - 0xFB) {
    const uint64_t hi = (uint64_t(b.Get(16)) << 16) | b.Get(16);
    return (hi << 32) | (uint64_t(b.Get(16)) << 16) | b.Get(16);
  }
  return (uint64_t(b.Get(16)) << 16) | b.Get(16);
}

// Quantizers of a tile: a set per QP index (LP and HP may have up to 16).
struct TileQp {
  std::array<int32_t, 16> dc{};
  std::vector<std::array<int32_t, 16>> lp, hp;
  int lpBits = 0, hpBits = 0;
};
int IndexBits(int n) { return n < 2 ? 0 : n < 4 ? 1 : n < 6 ? 2 : n < 10 ? 3 : 4; }

// A band's cursor: the bytes of its packet.
struct Cursor {
  const uint8_t* p = nullptr;
  int32_t len = 0;
  int32_t pos = 0;
  bool Get(int n, uint32_t* v) { return rvtiFLCRead_JPEGXR_1u32u(p, len, &pos, n, v) == rvtStatusOk; }
};

// The 2x2 butterfly of the chroma second level (a, b the upper pair).
void Butterfly2x2(int32_t& a, int32_t& b, int32_t& c0, int32_t& d) {
  a += d;
  b -= c0;
  const int32_t t = (a - b) >> 1;
  const int32_t c = t - d;
  d = t - c0;
  a -= d;
  b += c;
  c0 = c;
}


// One row of colour lines within +-2^28 (32-bit arithmetic cannot
// overflow) to interleaved R, G, B.  The hottest loop of a colour decode:
// also built for AVX2, which the processor picks when it has it (the same
// code, so the same results).
template <class T>
__attribute__((always_inline)) inline void ColourRowBody(const int32_t* ly, const int32_t* lu, const int32_t* lv, int w,
                                                         int32_t bias, int shift, int32_t top, T* o) {
  for (int x = 0; x < w; ++x) {
    int32_t g = ly[x] + bias, r = -lu[x], b = lv[x];
    g -= r >> 1;
    r -= ((b + 1) >> 1) - g;
    b += r;
    r >>= shift;
    g >>= shift;
    b >>= shift;
    o[3 * x] = T(r < 0 ? 0 : r > top ? top : r);
    o[3 * x + 1] = T(g < 0 ? 0 : g > top ? top : g);
    o[3 * x + 2] = T(b < 0 ? 0 : b > top ? top : b);
  }
}
// The shuffles that interleave 16 R, G and B bytes into 48: output vector
// k, channel c: byte i takes pixel (16 k + i) / 3 when (16 k + i) % 3 is c.
struct InterleaveMasks {
  uint8_t m[3][3][16];
};
constexpr InterleaveMasks MakeInterleaveMasks() {
  InterleaveMasks t{};
  for (int k = 0; k < 3; ++k) {
    for (int c = 0; c < 3; ++c) {
      for (int i = 0; i < 16; ++i) {
        const int j = 16 * k + i;
        t.m[k][c][i] = uint8_t(j % 3 == c ? j / 3 : 0x80);
      }
    }
  }
  return t;
}
inline constexpr InterleaveMasks kInterleave = MakeInterleaveMasks();

#define RVTJXR_AVX2 __attribute__((target("avx2"), always_inline)) inline
// Eight pixels' R, G, B (shifted, not clamped) from 32-bit lanes.
RVTJXR_AVX2 void ColourEightOf(__m256i y, __m256i u, __m256i v, __m256i bias, __m128i count, __m256i& r, __m256i& g,
                               __m256i& b) {
  b = v;
  r = _mm256_sub_epi32(_mm256_setzero_si256(), u);
  g = _mm256_sub_epi32(_mm256_add_epi32(y, bias), _mm256_srai_epi32(r, 1));
  r = _mm256_sub_epi32(r, _mm256_sub_epi32(_mm256_srai_epi32(_mm256_add_epi32(b, _mm256_set1_epi32(1)), 1), g));
  b = _mm256_add_epi32(b, r);
  r = _mm256_sra_epi32(r, count);
  g = _mm256_sra_epi32(g, count);
  b = _mm256_sra_epi32(b, count);
}
RVTJXR_AVX2 __m256i Lanes8(const int32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
// 16 lanes to 16 clamped bytes, in order.
RVTJXR_AVX2 __m128i ClampedBytes(__m256i lo, __m256i hi) {
  const __m256i s = _mm256_permute4x64_epi64(_mm256_packs_epi32(lo, hi), 0xD8);
  return _mm_packus_epi16(_mm256_castsi256_si128(s), _mm256_extracti128_si256(s, 1));
}

// 16 pixels (two 8-lane vectors of each channel) to 48 interleaved bytes.
RVTJXR_AVX2 void ColourSixteen(__m256i y0, __m256i u0, __m256i v0, __m256i y1, __m256i u1, __m256i v1, __m256i bias,
                               __m128i count, const __m128i (*mask)[3], uint8_t* o) {
  __m256i r0, g0, b0, r1, g1, b1;
  ColourEightOf(y0, u0, v0, bias, count, r0, g0, b0);
  ColourEightOf(y1, u1, v1, bias, count, r1, g1, b1);
  const __m128i r = ClampedBytes(r0, r1), g = ClampedBytes(g0, g1), b = ClampedBytes(b0, b1);
  for (int j = 0; j < 3; ++j) {
    const __m128i v = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(r, mask[j][0]), _mm_shuffle_epi8(g, mask[j][1])),
                                   _mm_shuffle_epi8(b, mask[j][2]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 16 * j), v);
  }
}
// The byte shuffles that interleave R, G and B bytes, as ColourSixteen takes them.
RVTJXR_AVX2 void LoadInterleave(__m128i (*mask)[3]) {
  for (int k = 0; k < 3; ++k) {
    for (int c = 0; c < 3; ++c) mask[k][c] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kInterleave.m[k][c]));
  }
}

// ColourRowBody for 8-bit samples (top 255) with AVX2, 16 pixels a step:
// the same arithmetic in 32-bit lanes, clamped by the saturating packs to
// 16 bits and then to 0..255 (which for any 32-bit value is the clamp to
// 0..255), interleaved by byte shuffles.  Returns the pixels done.
__attribute__((target("avx2"))) int ColourRowAvx2(const int32_t* ly, const int32_t* lu, const int32_t* lv, int w,
                                                  int32_t bias, int shift, uint8_t* o) {
  const __m256i vbias = _mm256_set1_epi32(bias);
  const __m128i count = _mm_cvtsi32_si128(shift);
  __m128i mask[3][3];
  LoadInterleave(mask);
  int x = 0;
  for (; x + 16 <= w; x += 16) {
    ColourSixteen(Lanes8(ly + x), Lanes8(lu + x), Lanes8(lv + x), Lanes8(ly + x + 8), Lanes8(lu + x + 8),
                  Lanes8(lv + x + 8), vbias, count, mask, o + 3 * x);
  }
  return x;
}

// The two pixel rows of a block half (rows 0-1 or 2-3) of two neighbouring
// blocks (blk, blk + 64; blk points at the half): idx puts each block's
// upper row in the low 128 bits and its lower row in the high, in order.
// lo and hi keep the lane-wise smallest and largest samples read.
RVTJXR_AVX2 void LayoutRowPair(const int32_t* blk, __m256i idx, __m256i& upper, __m256i& lower, __m256i& lo,
                               __m256i& hi) {
  const __m256i ra = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blk));
  const __m256i rb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blk + 64));
  lo = _mm256_min_epi32(lo, _mm256_min_epi32(ra, rb));
  hi = _mm256_max_epi32(hi, _mm256_max_epi32(ra, rb));
  const __m256i a = _mm256_permutevar8x32_epi32(ra, idx);
  const __m256i b = _mm256_permutevar8x32_epi32(rb, idx);
  upper = _mm256_permute2x128_si256(a, b, 0x20);
  lower = _mm256_permute2x128_si256(a, b, 0x31);
}

// Whether lane-wise smallest and largest samples lo and hi lie within
// -2^28..2^28, the 32-bit lanes' range.
RVTJXR_AVX2 bool RangeInside(__m256i lo, __m256i hi) {
  constexpr int32_t kSafe = int32_t(1) << 28;
  const __m256i out = _mm256_or_si256(_mm256_cmpgt_epi32(hi, _mm256_set1_epi32(kSafe)),
                                      _mm256_cmpgt_epi32(_mm256_set1_epi32(-kSafe), lo));
  return _mm256_testz_si256(out, out);
}

// ColourRowAvx2 for the four rows of a block row straight from the layout
// (ly, lu, lv: a channel's first block; its blocks 64 elements apart), 16
// pixels (four blocks) a step for n16 steps; rows rowLen bytes apart.
// false when a sample lies outside -2^28..2^28 (the 32-bit lanes' range);
// the pixels written are then not meaningful.
__attribute__((target("avx2"))) bool ColourGroupAvx2(const int32_t* ly, const int32_t* lu, const int32_t* lv, int n16,
                                                     int32_t bias, int shift, uint8_t* o, size_t rowLen) {
  static_assert(kInBlock[0][2] == 5 && kInBlock[1][0] == 2 && kInBlock[2][0] == 10 && kInBlock[3][1] == 9);
  __m256i lo = _mm256_setzero_si256(), hi = lo;
  const __m256i vbias = _mm256_set1_epi32(bias);
  const __m128i count = _mm_cvtsi32_si128(shift);
  __m128i mask[3][3];
  LoadInterleave(mask);
  // rows 0 and 3 lie at places 0, 1, 5, 4 of their half, rows 1 and 2 at 2, 3, 7, 6
  for (int half = 0; half < 2; ++half) {
    const __m256i idx = half == 0 ? _mm256_setr_epi32(0, 1, 5, 4, 2, 3, 7, 6) : _mm256_setr_epi32(2, 3, 7, 6, 0, 1, 5, 4);
    uint8_t* upper = o + rowLen * size_t(2 * half);
    uint8_t* lower = upper + rowLen;
    for (int s = 0; s < n16; ++s) {
      const int at = 256 * s + 8 * half;
      __m256i y0, y1, u0, u1, v0, v1, y2, y3, u2, u3, v2, v3;  // 0, 1: upper row; 2, 3: lower
      LayoutRowPair(ly + at, idx, y0, y2, lo, hi);
      LayoutRowPair(ly + at + 128, idx, y1, y3, lo, hi);
      LayoutRowPair(lu + at, idx, u0, u2, lo, hi);
      LayoutRowPair(lu + at + 128, idx, u1, u3, lo, hi);
      LayoutRowPair(lv + at, idx, v0, v2, lo, hi);
      LayoutRowPair(lv + at + 128, idx, v1, v3, lo, hi);
      ColourSixteen(y0, u0, v0, y1, u1, v1, vbias, count, mask, upper + 48 * s);
      ColourSixteen(y2, u2, v2, y3, u3, v3, vbias, count, mask, lower + 48 * s);
    }
  }
  return RangeInside(lo, hi);
}

// Grey samples to output levels before clamping, as GreyRow.
RVTJXR_AVX2 __m256i GreyLevels(__m256i v, __m256i bias, __m128i count) {
  return _mm256_sra_epi32(_mm256_add_epi32(v, bias), count);
}
// The same for grey 8-bit samples (GreyRow's arithmetic).  A step takes
// the half (two pixel rows) of four neighbouring blocks A..D as they lie,
// packs them to bytes with the clamping packs (16 bits, then 8) and sorts
// the bytes into the two rows with a byte shuffle, a dword permute and a
// byte shuffle (fewer shuffles than sorting the samples first).  After the
// packs a lane holds the bytes of A..D's elements 0-3 (or 4-7), a row being
// elements 0, 1, 5, 4 or 2, 3, 7, 6 (kInBlock).
__attribute__((target("avx2"))) bool GreyGroupAvx2(const int32_t* ly, int n16, int32_t bias, int shift, uint8_t* o,
                                                   size_t rowLen) {
  __m256i lo = _mm256_setzero_si256(), hi = lo;
  const __m256i vbias = _mm256_set1_epi32(bias);
  const __m128i count = _mm_cvtsi32_si128(shift);
  // the first two and last two bytes of each element run of four: A0 A1 B0
  // B1 C0 C1 D0 D1, then A2 A3 B2 B3 C2 C3 D2 D3 (lane by lane)
  const __m256i split = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15, 0, 1, 4, 5, 8, 9, 12,
                                         13, 2, 3, 6, 7, 10, 11, 14, 15);
  // elements 0, 1 beside 4, 5 (lane 0) and 2, 3 beside 6, 7 (lane 1)
  const __m256i join = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  // each block's four: A0 A1 A5 A4 B0 B1 B5 B4 ... (or 2, 3, 7, 6)
  const __m256i order = _mm256_setr_epi8(0, 1, 5, 4, 2, 3, 7, 6, 8, 9, 13, 12, 10, 11, 15, 14, 0, 1, 5, 4, 2, 3, 7, 6,
                                         8, 9, 13, 12, 10, 11, 15, 14);
  for (int half = 0; half < 2; ++half) {
    // lane 0 holds rows 0 (half 0) or 3 (half 1), lane 1 rows 1 or 2
    uint8_t* first = o + rowLen * size_t(half == 0 ? 0 : 3);
    uint8_t* second = o + rowLen * size_t(half == 0 ? 1 : 2);
    for (int s = 0; s < n16; ++s) {
      const int32_t* p = ly + 256 * s + 8 * half;
      const __m256i a = Lanes8(p), b = Lanes8(p + 64), c = Lanes8(p + 128), d = Lanes8(p + 192);
      lo = _mm256_min_epi32(lo, _mm256_min_epi32(_mm256_min_epi32(a, b), _mm256_min_epi32(c, d)));
      hi = _mm256_max_epi32(hi, _mm256_max_epi32(_mm256_max_epi32(a, b), _mm256_max_epi32(c, d)));
      const __m256i ab = _mm256_packs_epi32(GreyLevels(a, vbias, count), GreyLevels(b, vbias, count));
      const __m256i cd = _mm256_packs_epi32(GreyLevels(c, vbias, count), GreyLevels(d, vbias, count));
      const __m256i bytes = _mm256_packus_epi16(ab, cd);
      const __m256i rows = _mm256_shuffle_epi8(
          _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(bytes, split), join), order);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(first + 16 * s), _mm256_castsi256_si128(rows));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(second + 16 * s), _mm256_extracti128_si256(rows, 1));
    }
  }
  return RangeInside(lo, hi);
}

// One pixel row of two neighbouring blocks (blk, blk + 64), from the half
// of each block that holds it (blk points there): idx puts the row's four
// samples in both 128-bit halves, in order.
RVTJXR_AVX2 __m256i LayoutRowEight(const int32_t* blk, __m256i idx) {
  const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blk));
  const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blk + 64));
  return _mm256_blend_epi32(_mm256_permutevar8x32_epi32(a, idx), _mm256_permutevar8x32_epi32(b, idx), 0xF0);
}
// Eight half-width samples (and the one after) to 16: each, then the mean
// of it and the next rounded up.  kPair: the samples are the means,
// rounded up, of those of rows h and h2 (4:2:0's rows between two chroma
// rows).
template <bool kPair>
RVTJXR_AVX2 void WidenEight(const int32_t* h, const int32_t* h2, __m256i one, __m256i& f0, __m256i& f1) {
  __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h));
  __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + 1));
  if constexpr (kPair) {
    const __m256i a2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h2));
    const __m256i b2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h2 + 1));
    a = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(a, a2), one), 1);
    b = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(b, b2), one), 1);
  }
  const __m256i mean = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(a, b), one), 1);
  const __m256i lo = _mm256_unpacklo_epi32(a, mean), hi = _mm256_unpackhi_epi32(a, mean);
  f0 = _mm256_permute2x128_si256(lo, hi, 0x20);
  f1 = _mm256_permute2x128_si256(lo, hi, 0x31);
}

// ColourRowAvx2 for a 4:2:0 or 4:2:2 row, 16 pixels a step for n16 steps:
// luma straight from the layout (m: the row's place in its first block,
// blocks 64 elements apart; outer: a block's row 0 or 3), chroma from the
// half-width rows hu and hv (with kPair, the means of those and hu2, hv2),
// widened on the way as WidenRowAvx2 does (their sample after the last
// step read).  false when a sample (luma or widened chroma) lies outside
// -2^28..2^28; the pixels written are then not meaningful.
template <bool kPair>
__attribute__((target("avx2"))) bool SubColourAvx2(const int32_t* m, bool outer, const int32_t* hu, const int32_t* hv,
                                                   const int32_t* hu2, const int32_t* hv2, int n16, int32_t bias,
                                                   int shift, uint8_t* o) {
  const __m256i idx = outer ? _mm256_setr_epi32(0, 1, 5, 4, 0, 1, 5, 4) : _mm256_setr_epi32(2, 3, 7, 6, 2, 3, 7, 6);
  const __m256i vbias = _mm256_set1_epi32(bias), one = _mm256_set1_epi32(1);
  const __m128i count = _mm_cvtsi32_si128(shift);
  __m128i mask[3][3];
  LoadInterleave(mask);
  __m256i lo = _mm256_setzero_si256(), hi = lo;
  for (int s = 0; s < n16; ++s) {
    __m256i in[6];
    in[0] = LayoutRowEight(m + 256 * s, idx);
    in[3] = LayoutRowEight(m + 256 * s + 128, idx);
    WidenEight<kPair>(hu + 8 * s, hu2 + 8 * s, one, in[1], in[4]);
    WidenEight<kPair>(hv + 8 * s, hv2 + 8 * s, one, in[2], in[5]);
    for (const __m256i& v : in) {
      lo = _mm256_min_epi32(lo, v);
      hi = _mm256_max_epi32(hi, v);
    }
    ColourSixteen(in[0], in[1], in[2], in[3], in[4], in[5], vbias, count, mask, o + 48 * s);
  }
  return RangeInside(lo, hi);
}

void ColourRow(const int32_t* ly, const int32_t* lu, const int32_t* lv, int w, int32_t bias, int shift, int32_t top,
               uint8_t* o) {
  static const bool avx2 = __builtin_cpu_supports("avx2");
  const int x = avx2 && top == 255 ? ColourRowAvx2(ly, lu, lv, w, bias, shift, o) : 0;
  ColourRowBody(ly + x, lu + x, lv + x, w - x, bias, shift, top, o + 3 * x);
}
__attribute__((target_clones("avx2", "default"))) void ColourRow(const int32_t* ly, const int32_t* lu,
                                                                 const int32_t* lv, int w, int32_t bias, int shift,
                                                                 int32_t top, uint16_t* o) {
  ColourRowBody(ly, lu, lv, w, bias, shift, top, o);
}

// The HP products of a macroblock's nb = bw * bh blocks (coefficients in
// raster order, coef[16 b + 4 r + c], blocks row by row) with their DCs
// dc[b] into the block layout: block (bx, by) at to + 16 * (bh bx + by),
// kInBlock's order within it.  kInBlock keeps rows 0-1 in the first eight
// places and rows 2-3 in the last eight, so each half is one shuffle.
// Levels outside -most..most (most * step within 32 bits, most below
// 2^31) fail the lot: false, and the macroblock holds unfinished products
// (a damaged macroblock is never shown).
__attribute__((target_clones("avx2", "default"))) bool PlaceBlocks(const int32_t* coef, const int32_t* dc,
                                                                   int32_t step, uint32_t most, int bw, int bh,
                                                                   bool raster, int32_t* to) {
  typedef int32_t V8 __attribute__((vector_size(32)));
  typedef uint32_t U8 __attribute__((vector_size(32)));
  V8 lo{}, hi{};
  static_assert(kInBlock[0][2] == 5 && kInBlock[1][0] == 2 && kInBlock[3][1] == 9);
  for (int by = 0; by < bh; ++by) {
    for (int bx = 0; bx < bw; ++bx) {
      const int b = bw * by + bx;
      V8 a, c;
      std::memcpy(&a, coef + 16 * b, sizeof(a));
      std::memcpy(&c, coef + 16 * b + 8, sizeof(c));
      lo = lo < a ? lo : a;
      hi = hi > a ? hi : a;
      lo = lo < c ? lo : c;
      hi = hi > c ? hi : c;
      // unsigned products: those of a failing macroblock may wrap
      if (!raster) {
        a = __builtin_shufflevector(a, a, 0, 1, 4, 5, 3, 2, 7, 6);
        c = __builtin_shufflevector(c, c, 4, 5, 0, 1, 7, 6, 3, 2);
      }
      a = V8(U8(a) * uint32_t(step));
      c = V8(U8(c) * uint32_t(step));
      a[0] = dc[b];
      int32_t* blk = to + 16 * (bh * bx + by);
      std::memcpy(blk, &a, sizeof(a));
      std::memcpy(blk + 8, &c, sizeof(c));
    }
  }
  const V8 limit = V8{} + int32_t(most);
  const V8 out = (hi > limit) | (lo < -limit);
  int32_t any = 0;
  for (int k = 0; k < 8; ++k) any |= out[k];
  return any == 0;
}

// One grey line within +-2^28 to samples, built for AVX2 as ColourRow is.
template <class T>
__attribute__((always_inline)) inline void GreyRowBody(const int32_t* ly, int w, int32_t bias, int shift, int32_t top,
                                                       T* o) {
  for (int x = 0; x < w; ++x) {
    int32_t v = (ly[x] + bias) >> shift;
    v = v < 0 ? 0 : v;
    v = v > top ? top : v;
    o[x] = T(v);
  }
}
__attribute__((target_clones("avx2", "default"))) void GreyRow(const int32_t* ly, int w, int32_t bias, int shift,
                                                               int32_t top, uint8_t* o) {
  GreyRowBody(ly, w, bias, shift, top, o);
}
__attribute__((target_clones("avx2", "default"))) void GreyRow(const int32_t* ly, int w, int32_t bias, int shift,
                                                               int32_t top, uint16_t* o) {
  GreyRowBody(ly, w, bias, shift, top, o);
}

class Decoder {
 public:
  Decoder(const Header& h, const uint8_t* data, size_t size) : h_(h), data_(data), size_(size) {
    mbw_ = int((h.width + h.extraLeft + h.extraRight) / 16);
    mbh_ = int((h.height + h.extraTop + h.extraBottom) / 16);
    pw_ = mbw_ * 16;
    ph_ = mbh_ * 16;
    sub_ = h.format == k420 || h.format == k422;
    // In one tile column, grey and 4:4:4 keep two macroblock rows a
    // channel, row y in slot y & 1 (Advance finishes row y - 2 before row y
    // is decoded); 4:2:0 and 4:2:2 luma three (the conversion runs a row
    // behind), row y in slot y % 3.  Sub-sampled chroma rows lie one after
    // another (the chroma walk reads rows y - 1 and y as one plane) in a
    // window of kChromaSlots rows from row chromaBase_, slid down (its last
    // two rows copied to the top) when it is full.  Several tile columns:
    // whole planes.
    ring_ = h.tileX.size() == 1;
    const int lumaRows = ring_ ? (sub_ ? 3 : 2) : mbh_;
    planes_.assign(size_t(h.channels), std::vector<int32_t>(size_t(pw_) * 16 * lumaRows, 0));
    if (sub_) {
      chromaSlots_ = ring_ ? std::min(kChromaSlots, mbh_) : mbh_;
      chromaRowLen_ = size_t(mbw_) * (h.format == k420 ? 64 : 128);
      planes_[1].assign(chromaRowLen_ * chromaSlots_, 0);
      planes_[2].assign(chromaRowLen_ * chromaSlots_, 0);
      half_.assign(size_t(pw_), 0);
      chromaRows_.assign(size_t(2 * pw_), 0);
    }
    for (std::vector<int32_t>& line : lines_) line.assign(size_t(pw_), 0);
    if (!sub_) group_.assign(size_t(12 * 4 * kGroupBlocks), 0);
    hpStep_.assign(size_t(h.channels), std::vector<int32_t>(size_t(mbw_) * mbh_, 0));
  }

  // Begin sizes the output; Run decodes, reconstructing rows as they
  // complete; Finish reconstructs the rest.
  void Begin(Picture* out);
  bool Run(size_t tilesAt, std::string* error);
  // false when the sink refused rows
  bool Finish();

 private:
  bool Tile(int tx, int ty, std::vector<Cursor>& band, std::string* error);
  void Advance(int rowsDecoded);  // macroblock rows 0..rowsDecoded-1 are decoded
  void Early(int my, int mx);       // macroblocks 0..mx of row my are decoded
  void Convert(int py0, int py1);
  void ConvertSub(int my);  // macroblock row my, up-sampling its chroma
  void ChromaLine(int c, int cy, int32_t* to);
  void LumaLine(const int32_t* row, int yy, int32_t* to) const;
  void LumaSpan(const int32_t* row, int yy, int b0, int n, int32_t* to) const;
  void Emit(int py);  // the lines of padded row py into the output
  template <class T>
  void EmitAs(T* o);
  template <class T>
  void EmitSpan(const int32_t* ly, const int32_t* lu, const int32_t* lv, int w, T* o);
  bool ConvertGroup(int py);
  template <class T>
  void SubRowAs(T* o);
  void WidenLine(const int32_t* half, int32_t* f) const;
  int subPy_ = 0;  // the row SubRowAs converts
  template <class T>
  void GroupAs(int py, T* o, size_t rowLen);
  void Slide(int my);  // makes room for chroma macroblock row my
  bool ReadTileQp(Cursor& dc, Cursor& lp, Cursor& hp, TileQp* q);
  bool Macroblock(int mx, int my, int x0, int y0, TileQp& q, Cursor* band, std::vector<PredInfo>& row,
                  std::vector<PredInfo>& prev, std::string* error);
  // Block (bx, by) of macroblock (mx, my); 4:2:0 chroma macroblocks hold
  // 2x2 blocks, 4:2:2 ones 2x4.
  int32_t* Block(int c, int mx, int my, int bx, int by) {
    if (c > 0 && sub_) {
      const bool q = h_.format == k420;
      return ChromaPlane(c) + ptrdiff_t(my) * ptrdiff_t(chromaRowLen_) + mx * (q ? 64 : 128) + 16 * ((q ? 2 : 4) * bx + by);
    }
    return Row(c, my) + size_t(mx) * 256 + 16 * (4 * bx + by);
  }
  // Macroblock row my of luma or a 4:4:4 channel (my may be -1 or mbh:
  // the walk touches nothing there).
  int32_t* Row(int c, int my) {
    const int slot = !ring_ ? my : sub_ ? (my % 3 + 3) % 3 : my & 1;
    return planes_[size_t(c)].data() + ptrdiff_t(slot) * mbw_ * 256;
  }
  // Where row 0 of a sub-sampled chroma channel would lie: rows in the
  // window are at their usual offsets from it.
  int32_t* ChromaPlane(int c) {
    return planes_[size_t(c)].data() - ptrdiff_t(chromaBase_) * ptrdiff_t(chromaRowLen_);
  }

  const Header& h_;
  const uint8_t* data_;
  size_t size_;
  int mbw_, mbh_, pw_, ph_;
  std::vector<std::vector<int32_t>> planes_;
  std::vector<uint8_t> state_;
  std::vector<std::vector<int32_t>> hpStep_;  // per channel, per macroblock
  uint32_t mostKnown_ = 0;                  // channels (bits) with most_ found
  std::array<int32_t, 16> mostStep_{};      // per channel: the HP step most_ was found for
  std::array<uint32_t, 16> most_{};         // ... and the largest level it allows
  int trim_ = 0;
  int corners_ = 0;  // corner rows reconstructed
  int earlyRow_ = -1, earlyX_ = 0;  // luma corners 0..earlyX_-1 of row earlyRow_ already run
  Picture* out_ = nullptr;
  // rows for out_->sink: strip_ holds stripRows_ of them, nextRow_ the
  // image row the next one is
  std::vector<uint8_t> strip_;
  int stripRows_ = 0, nextRow_ = 0;
  bool sinkFailed_ = false;
  static constexpr int kStripRows = 16;
  void Pass();
  void ZeroRowsTo(int row, size_t rowBytes);
  bool sub_ = false;  // 4:2:0 or 4:2:2
  bool ring_ = false;
  static constexpr int kChromaSlots = 16;
  int chromaSlots_ = 0, chromaBase_ = 0;
  size_t chromaRowLen_ = 0;
  std::vector<int32_t> lines_[3];  // one padded pixel row of each channel
  std::vector<int32_t> half_;      // two chroma rows at half width
  std::vector<int32_t> chromaRows_;  // ConvertSub's two chroma rows at half width
  const int32_t* subA_ = nullptr;    // SubRowAs' chroma rows
  const int32_t* subB_ = nullptr;
  // ConvertGroup's lines: four rows of each channel, kGroupBlocks blocks wide
  static constexpr int kGroupBlocks = 64;
  std::vector<int32_t> group_;
  int BlocksWide(int ch) const { return sub_ && ch > 0 ? 2 : 4; }
  int BlocksHigh(int ch) const { return sub_ && ch > 0 && h_.format == k420 ? 2 : 4; }
};

bool Decoder::ReadTileQp(Cursor& dcs, Cursor& lps, Cursor& hps, TileQp* q) {
  const int nc = h_.channels;
  // the tile headers use the same bit layout as the plane header's sets
  auto set = [&](Cursor& c, bool hp) -> std::array<int32_t, 16> {
    QpSet s;
    uint32_t v = 0;
    int mode = 0;
    if (nc > 1) {
      c.Get(2, &v);
      mode = int(v);
    }
    c.Get(8, &v);
    s.index[0] = int(v);
    if (mode == 1) {
      c.Get(8, &v);
      s.index[1] = int(v);
    } else if (mode > 1) {
      for (int ch = 1; ch < nc; ++ch) {
        c.Get(8, &v);
        s.index[ch] = int(v);
      }
    }
    for (int ch = 1; ch < nc; ++ch) {
      if (mode == 0) s.index[ch] = s.index[0];
      else if (mode == 1) s.index[ch] = s.index[1];
    }
    return Steps(s, nc, hp, h_.scaled);
  };
  uint32_t v = 0;
  q->dc = h_.dcPerTile ? set(dcs, false) : h_.dcStep;
  q->lp.assign(1, h_.lpStep);
  q->lpBits = 0;
  if (h_.subband != kDCOnly && h_.lpPerTile) {
    lps.Get(1, &v);
    if (v) {
      q->lp.assign(1, q->dc);
    } else {
      lps.Get(4, &v);
      const int n = int(v) + 1;
      q->lp.clear();
      for (int i = 0; i < n; ++i) q->lp.push_back(set(lps, false));
      q->lpBits = IndexBits(n);
    }
  }
  q->hp.assign(1, h_.hpStep);
  q->hpBits = 0;
  if (h_.subband != kDCOnly && h_.subband != kNoHP && h_.hpPerTile) {
    hps.Get(1, &v);
    if (v) {
      q->hp = q->lp;
    } else {
      hps.Get(4, &v);
      const int n = int(v) + 1;
      q->hp.clear();
      for (int i = 0; i < n; ++i) q->hp.push_back(set(hps, true));
      q->hpBits = IndexBits(n);
    }
  }
  return true;
}

bool Decoder::Run(size_t tilesAt, std::string* error) {
  const int cols = int(h_.tileX.size()), rows = int(h_.tileY.size());
  for (uint32_t x : h_.tileX) {
    if (int(x) >= mbw_) {
      *error = "tile outside the image";
      return false;
    }
  }
  for (uint32_t y : h_.tileY) {
    if (int(y) >= mbh_) {
      *error = "tile outside the image";
      return false;
    }
  }
  const int bands = h_.frequency ? (h_.subband == kDCOnly ? 1 : h_.subband == kNoHP ? 2 : h_.subband == kNoFlex ? 3 : 4) : 1;
  Bits b{data_, size_};
  b.pos = tilesAt * 8;
  std::vector<uint64_t> index;
  if (h_.indexTable) {
    if (b.Get(16) != 1) {
      *error = "bad index table";
      return false;
    }
    for (int i = 0; i < cols * rows * bands; ++i) index.push_back(ReadVlw(b));
  } else if (h_.frequency || cols * rows > 1) {
    *error = "tiles or frequency order without an index table";
    return false;
  }
  const uint64_t skip = ReadVlw(b);
  b.Align();
  if (b.Short()) {
    *error = "index table cut short";
    return false;
  }
  const uint64_t base = b.pos / 8 + skip;
  int32_t size = 0;
  if (rvtiVLCGetStateSize_JPEGXR(h_.format, h_.channels, &size) != rvtStatusOk) {
    *error = "colour format not supported by the coefficient coder";
    return false;
  }
  state_.assign(size_t(size), 0);
  for (int ty = 0; ty < rows; ++ty) {
    for (int tx = 0; tx < cols; ++tx) {
      std::vector<Cursor> band(static_cast<size_t>(bands));
      for (int k = 0; k < bands; ++k) {
        const uint64_t at = base + (index.empty() ? 0 : index[size_t((ty * cols + tx) * bands + k)]);
        if (at + 4 > size_) {
          *error = "packet outside the image data";
          return false;
        }
        band[size_t(k)].p = data_ + at;
        band[size_t(k)].len = int32_t(std::min<uint64_t>(size_ - at, (uint64_t(1) << 28) - 1));
      }
      if (!Tile(tx, ty, band, error)) return false;
    }
    Advance(size_t(ty + 1) < h_.tileY.size() ? int(h_.tileY[size_t(ty + 1)]) : mbh_);
  }
  return true;
}

bool Decoder::Tile(int tx, int ty, std::vector<Cursor>& band, std::string* error) {
  auto* st = reinterpret_cast<VLCState_JPEGXR*>(state_.data());
  if (rvtiVLCInit_JPEGXR(h_.format, h_.channels, st, int32_t(state_.size())) != rvtStatusOk) {
    *error = "coefficient coder refused the colour format";
    return false;
  }
  // packet headers: a start code and an identifier byte each
  for (Cursor& c : band) {
    uint32_t code = 0, id = 0;
    if (!c.Get(24, &code) || code != 1 || !c.Get(8, &id)) {
      *error = "missing packet start code";
      return false;
    }
  }
  const bool spatial = !h_.frequency;
  Cursor* dc = &band[0];
  Cursor* lp = spatial ? dc : band.size() > 1 ? &band[1] : nullptr;
  Cursor* hp = spatial ? dc : band.size() > 2 ? &band[2] : nullptr;
  Cursor* fl = spatial ? dc : band.size() > 3 ? &band[3] : nullptr;
  uint32_t v = 0;
  trim_ = 0;
  if (h_.trimFlag && fl) {
    fl->Get(4, &v);
    trim_ = int(v);
  }
  TileQp q;
  Cursor none;
  ReadTileQp(*dc, lp ? *lp : none, hp ? *hp : none, &q);
  Cursor cur[4] = {*dc, lp ? *lp : none, hp ? *hp : none, fl ? *fl : none};
  const int x0 = int(h_.tileX[size_t(tx)]), y0 = int(h_.tileY[size_t(ty)]);
  const int x1 = size_t(tx + 1) < h_.tileX.size() ? int(h_.tileX[size_t(tx + 1)]) : mbw_;
  const int y1 = size_t(ty + 1) < h_.tileY.size() ? int(h_.tileY[size_t(ty + 1)]) : mbh_;
  if (x1 <= x0 || y1 <= y0) {
    *error = "empty tile";
    return false;
  }
  std::vector<PredInfo> row(size_t(x1 - x0)), prev(size_t(x1 - x0));
  Cursor* c[4];
  if (spatial) {
    c[0] = c[1] = c[2] = c[3] = &cur[0];
  } else {
    for (int k = 0; k < 4; ++k) c[k] = &cur[k];
  }
  for (int my = y0; my < y1; ++my) {
    if (sub_ && ring_) Slide(my);
    for (int mx = x0; mx < x1; ++mx) {
      if (!Macroblock(mx, my, x0, y0, q, c[0], row, prev, error)) return false;
      if (ring_ && (mx & 3) == 3) Early(my, mx);
    }
    std::swap(row, prev);
    if (h_.tileX.size() == 1) Advance(my + 1);
  }
  return true;
}

bool Decoder::Macroblock(int mx, int my, int x0, int y0, TileQp& q, Cursor* band, std::vector<PredInfo>& row,
                         std::vector<PredInfo>& prev, std::string* error) {
  // band[0..3] lie one after another in the caller's array (or all alias
  // the one spatial cursor)
  Cursor* c[4] = {band, band, band, band};
  if (h_.frequency) {
    for (int k = 1; k < 4; ++k) c[k] = band + k;
  }
  auto* st = reinterpret_cast<VLCState_JPEGXR*>(state_.data());
  const int nc = h_.channels;
  const int i = mx - x0;
  const bool left = mx == x0, top = my == y0;
  const int tileCol = mx - x0;
  const bool adaptNow = (tileCol & 15) == 0 || size_t(i + 1) == row.size();
  const bool resetScan = (tileCol & 15) == 0;
  const bool lpBand = h_.subband != kDCOnly, hpBand = lpBand && h_.subband != kNoHP;
  const bool flexBand = hpBand && h_.subband != kNoFlex;
  auto fail = [&](const char* what) {
    *error = std::string(what) + " of macroblock " + std::to_string(mx) + "," + std::to_string(my) + " is damaged";
    return false;
  };

  // macroblock QP indexes (spatial: both before the DC; frequency: in the
  // LP and HP bands)
  int lpIndex = 0, hpIndex = 0;
  uint32_t v = 0;
  auto qpIndex = [&](Cursor* cu, int bits) {
    if (bits == 0) return 0;
    cu->Get(1, &v);
    if (!v) return 0;
    cu->Get(bits, &v);
    return int(v) + 1;
  };
  if (!h_.frequency && lpBand) {
    lpIndex = qpIndex(c[0], q.lpBits);
    if (hpBand) hpIndex = qpIndex(c[0], q.hpBits);
  }
  // only the channels present are zeroed: 16 KB of memset a macroblock
  // was a seventh of the decode
  int32_t dclp[256];
  std::memset(dclp, 0, sizeof(int32_t) * 16 * size_t(nc));
  if (rvtiVLCDecodeDC_JPEGXR_1u32s(c[0]->p, c[0]->len, &c[0]->pos, st, dclp) != rvtStatusOk) return fail("DC");
  if (!lpBand && adaptNow) rvtiVLCAdapt_JPEGXR(st, 1);
  if (lpBand) {
    if (h_.frequency) lpIndex = qpIndex(c[1], q.lpBits);
    if (resetScan) rvtiVLCAdapt_JPEGXR(st, 8);
    if (rvtiVLCDecodeLP_JPEGXR_1u32s(c[1]->p, c[1]->len, &c[1]->pos, st, dclp) != rvtStatusOk) return fail("LP");
    if (adaptNow) rvtiVLCAdapt_JPEGXR(st, 1 | 2);
  }
  if (q.hpBits == 0 && q.hp.size() > 1) hpIndex = lpIndex;
  if (lpIndex >= int(q.lp.size())) return fail("LP quantizer index");

  // DC and LP prediction
  const PredInfo* l = left ? nullptr : &row[size_t(i - 1)];
  const PredInfo* t = top ? nullptr : &prev[size_t(i)];
  int dcMode;  // 0 left, 1 top, 2 mean, 3 none
  if (left && top) dcMode = 3;
  else if (left) dcMode = 1;
  else if (top) dcMode = 0;
  else {
    const PredInfo* tl = &prev[size_t(i - 1)];
    int64_t sh = std::abs(int64_t(tl->dc[0]) - l->dc[0]), sv = std::abs(int64_t(tl->dc[0]) - t->dc[0]);
    if (h_.format != kYOnly && h_.format != kNChannel) {
      const int scale = h_.format == k420 ? 8 : h_.format == k422 ? 4 : 2;
      sh = sh * scale + std::abs(int64_t(tl->dc[1]) - l->dc[1]) + std::abs(int64_t(tl->dc[2]) - l->dc[2]);
      sv = sv * scale + std::abs(int64_t(tl->dc[1]) - t->dc[1]) + std::abs(int64_t(tl->dc[2]) - t->dc[2]);
    }
    dcMode = sh * 4 < sv ? 1 : sv * 4 < sh ? 0 : 2;
  }
  int adMode = 2;
  if (dcMode == 1 && lpIndex == t->qpIndex) adMode = 1;
  if (dcMode == 0 && lpIndex == l->qpIndex) adMode = 0;
  // Damaged streams can code levels up to 2^31: every level, predicted or
  // not, is checked against kMaxCoef, so the sums below and the
  // dequantization, transforms and filters after them cannot overflow.
  for (int ch = 0; ch < nc; ++ch) {
    int32_t* o = dclp + 16 * ch;
    int64_t dc = o[0];
    const bool sub = sub_ && ch > 0;
    if (dcMode == 1) dc += t->dc[ch];
    else if (dcMode == 0) dc += l->dc[ch];
    else if (dcMode == 2) dc += (int64_t(l->dc[ch]) + t->dc[ch] + (sub ? 1 : 0)) >> 1;
    if (!InRange(dc)) return fail("DC level");
    o[0] = int32_t(dc);
    if (sub) {
      // the 2x2 (4:2:0) or 2 by 4 (4:2:2) chroma DC blocks, indexes row
      // by row; 4:2:2 blocks predict their lower half's first column from
      // the upper half's and the lower DC from the one saved in ad[4]
      int64_t v[8];
      for (int k = 0; k < 8; ++k) v[k] = o[k];
      if (h_.format == k420) {
        if (adMode == 1) v[2] += t->ad[ch][1];
        else if (adMode == 0) v[1] += l->ad[ch][0];
      } else {
        if (adMode == 1) {
          v[4] += t->ad[ch][4];
          v[2] += t->ad[ch][3];
          v[6] += v[2];
        } else if (adMode == 0) {
          v[4] += l->ad[ch][4];
          v[1] += l->ad[ch][0];
          v[5] += l->ad[ch][2];
        } else if (dcMode == 1) {
          v[6] += v[2];
        }
      }
      for (int k = 1; k < 8; ++k) {
        if (!InRange(v[k])) return fail("LP level");
        o[k] = int32_t(v[k]);
      }
      continue;
    }
    if (adMode == 1) {
      for (int k = 0; k < 3; ++k) {
        const int64_t v = int64_t(o[kColPos[k]]) + t->ad[ch][3 + k];
        if (!InRange(v)) return fail("LP level");
        o[kColPos[k]] = int32_t(v);
      }
    } else if (adMode == 0) {
      for (int k = 0; k < 3; ++k) {
        const int64_t v = int64_t(o[kRowPos[k]]) + l->ad[ch][k];
        if (!InRange(v)) return fail("LP level");
        o[kRowPos[k]] = int32_t(v);
      }
    }
    for (int k = 1; k < 16; ++k) {
      if (!InRange(o[k])) return fail("LP level");
    }
  }
  // the HP orientation from the LP energies: 0 from the left, 1 from the
  // top, 2 none
  int acMode;
  {
    int64_t sh = 0, sv = 0;
    for (int k = 0; k < 3; ++k) {
      sh += std::abs(int64_t(dclp[kRowPos[k]]));
      sv += std::abs(int64_t(dclp[kColPos[k]]));
    }
    auto a = [&dclp](int at) { return std::abs(int64_t(dclp[at])); };
    if (sub_) {
      sh += a(17) + a(33);
      sv += a(18) + a(34);
      if (h_.format == k422) {
        sv += a(22) + a(38);
        sh += a(21) + a(37);
      }
    } else if (h_.format != kYOnly && h_.format != kNChannel) {
      sh += a(16 + kRowPos[0]) + a(32 + kRowPos[0]);
      sv += a(16 + kColPos[0]) + a(32 + kColPos[0]);
    }
    acMode = sh * 4 < sv ? 1 : sv * 4 < sh ? 0 : 2;
  }
  PredInfo& me = row[size_t(i)];
  me.qpIndex = lpIndex;
  KeepForPrediction(me, dclp, nc, sub_);

  // HP: pattern, coefficients, prediction inside the macroblock
  // (the decoder fills elements 1..15 of each block of a channel; the
  // rest is zeroed here)
  int32_t hpc[16 * 256];
  for (int ch = 0; ch < nc; ++ch) {
    me.cbp[ch] = 0;
    const int nb = BlocksWide(ch) * BlocksHigh(ch);
    if (!hpBand) {
      std::memset(hpc + 256 * ch, 0, sizeof(int32_t) * 16 * size_t(nb));
    } else {
      for (int b = 0; b < nb; ++b) hpc[256 * ch + 16 * b] = 0;
    }
  }
  if (hpBand) {
    if (h_.frequency) {
      hpIndex = q.hpBits ? qpIndex(c[2], q.hpBits) : (q.hp.size() > 1 ? lpIndex : 0);
    }
    if (hpIndex >= int(q.hp.size())) return fail("HP quantizer index");
    if (resetScan) rvtiVLCAdapt_JPEGXR(st, 16);
    if (rvtiVLCDecodeCBPHP_JPEGXR_1u32s(c[2]->p, c[2]->len, &c[2]->pos, l ? l->cbp : nullptr, t ? t->cbp : nullptr,
                                        st, me.cbp) != rvtStatusOk) {
      return fail("HP pattern");
    }
    const bool sep = h_.frequency && flexBand;
    const int trim = flexBand ? trim_ : 15;
    // without flexbits the model bits are not coded at all
    RvtResult r;
    if (!flexBand) {
      r = rvtiVLCDecodeHP_JPEGXR_1u32s(c[2]->p, c[2]->len, &c[2]->pos, nullptr, 0, nullptr, trim,
                                       acMode == 1 ? 1 : 0, me.cbp, st, hpc);
    } else if (sep) {
      r = rvtiVLCDecodeHP_JPEGXR_1u32s(c[2]->p, c[2]->len, &c[2]->pos, c[3]->p, c[3]->len, &c[3]->pos, trim_,
                                       acMode == 1 ? 1 : 0, me.cbp, st, hpc);
    } else {
      r = rvtiVLCDecodeHP_JPEGXR_1u32s(c[2]->p, c[2]->len, &c[2]->pos, nullptr, 0, nullptr, trim_,
                                       acMode == 1 ? 1 : 0, me.cbp, st, hpc);
    }
    if (r != rvtStatusOk) return fail("HP");
    if (adaptNow) rvtiVLCAdapt_JPEGXR(st, 4);
    // Levels are bounded once, after dequantization (a bound at most
    // kMaxCoef); those the prediction below adds to are bounded here, before
    // and after, and their predecessors are either bounded sums or levels
    // left for that later test.
    // The sums run in 32 bits, wrapping, each level and sum mapped to
    // level + kMaxCoef (unsigned) and the largest kept: one over 2 kMaxCoef
    // is out of range.  Until the first such, every value is as in 64
    // bits; a wrapped sum of an in-range level lands out of range too; and
    // after one the macroblock fails whatever it holds.
    uint32_t worst = 0;
    auto add = [&worst](int32_t& to, int32_t from) {
      const uint32_t v = uint32_t(to) + uint32_t(from);
      worst = std::max(worst, std::max(uint32_t(to) + uint32_t(kMaxCoef), v + uint32_t(kMaxCoef)));
      to = int32_t(v);
    };
    for (int ch = 0; ch < nc; ++ch) {
      int32_t* p = hpc + 256 * ch;
      const int bw = BlocksWide(ch), bh = BlocksHigh(ch);
      if (acMode == 0) {
        for (int by = 0; by < bh; ++by) {
          for (int bx = 1; bx < bw; ++bx) {
            for (int k : kRowPos) add(p[16 * (bw * by + bx) + k], p[16 * (bw * by + bx - 1) + k]);
          }
        }
      } else if (acMode == 1) {
        for (int by = 1; by < bh; ++by) {
          for (int bx = 0; bx < bw; ++bx) {
            for (int k : kColPos) add(p[16 * (bw * by + bx) + k], p[16 * (bw * by + bx - bw) + k]);
          }
        }
      }
    }
    if (worst > uint32_t(2 * kMaxCoef)) return fail("HP level");
  }

  // dequantize, second level inverse transform, into the planes; the
  // luma-like channels' second-level blocks (one each) go to the library
  // together, a lone one to the decoder's scalar form
  int32_t dd[16 * 16];
  for (int ch = 0; ch < nc; ++ch) {
    int32_t* d = dd + 16 * ch;
    const int32_t sdc = q.dc[size_t(ch)], slp = q.lp[size_t(lpIndex)][size_t(ch)];
    bool ok = true;
    auto dq = [&ok](int32_t level, int32_t step) {
      const int64_t v = int64_t(level) * step;
      ok &= InRange(v);
      return ok ? int32_t(v) : 0;
    };
    const int nb = BlocksWide(ch) * BlocksHigh(ch);
    d[0] = dq(dclp[16 * ch], sdc);
    for (int k = 1; k < nb; ++k) d[k] = dq(dclp[16 * ch + k], slp);
    if (!ok) return fail("dequantized coefficient");
  }
  const int lumaLike = sub_ ? 1 : nc;
  if (lumaLike == 1) InverseBlock(dd);
  else rvtiPCTInvBlocks_JPEGXR_32s_C1I(dd, lumaLike);
  const bool now = h_.overlap < 2;
  int32_t run[16 * 256];  // the macroblock's blocks, channel after channel
  int runBlocks = 0;
  for (int ch = 0; ch < nc; ++ch) {
    int32_t* d = dd + 16 * ch;
    const int bw = BlocksWide(ch), bh = BlocksHigh(ch), nb = bw * bh;
    if (nb != 16) {
      // the chroma second level: 2x2 butterflies, 4:2:2 first undoing the
      // lifting pair between the two halves' DCs
      if (nb == 8) {
        d[0] -= (d[4] + 1) >> 1;
        d[4] += d[0];
        Butterfly2x2(d[4], d[5], d[6], d[7]);
      }
      Butterfly2x2(d[0], d[1], d[2], d[3]);
    }
    const int32_t shp = hpBand ? q.hp[size_t(hpIndex)][size_t(ch)] : 0;
    hpStep_[size_t(ch)][size_t(my) * mbw_ + mx] = shp;
    // the HP products: one bound for the lot, then 32-bit products
    const int32_t* src = hpc + 256 * ch;
    // largest level (the quotient kept per channel: a division a
    // macroblock was a few percent of its time)
    if (!((mostKnown_ >> ch) & 1u) || shp != mostStep_[size_t(ch)]) {
      mostKnown_ |= 1u << ch;
      mostStep_[size_t(ch)] = shp;
      most_[size_t(ch)] = shp > 0 ? uint32_t(kMaxCoef / shp) : uint32_t(kMaxCoef);
    }
    const uint32_t most = most_[size_t(ch)];
    // chroma block DCs carry one bit less under scaled arithmetic
    if (h_.scaled && ch > 0) {
      for (int b = 0; b < nb; ++b) d[b] *= 2;
    }
    // without DC filters nothing comes between a block's placing and its
    // transform: the channels' blocks go to one run and back into the
    // planes transformed, while the macroblock is in cache
    int32_t* to = Block(ch, mx, my, 0, 0);
    if (now) {
      if (!PlaceBlocks(src, d, shp, most, bw, bh, true, run + 16 * runBlocks)) return fail("dequantized coefficient");
      runBlocks += nb;
    } else if (!PlaceBlocks(src, d, shp, most, bw, bh, false, to)) {
      return fail("dequantized coefficient");
    }
  }
  if (now) {
    rvtiPCTInvBlocks_JPEGXR_32s_C1I(run, runBlocks);
    for (int ch = 0, b = 0; ch < nc; ++ch) {
      const int nb = BlocksWide(ch) * BlocksHigh(ch);
      RasterToLayout(run + 16 * b, nb, Block(ch, mx, my, 0, 0));
      b += nb;
    }
  }
  return true;
}

void Decoder::Begin(Picture* out) {
  out_ = out;
  const bool wide = h_.outDepth == 2;
  out->width = int(h_.width);
  out->height = int(h_.height);
  out->bits = wide ? 16 : 8;
  out->channels = h_.format != kYOnly ? 3 : 1;
  const size_t n = size_t(out->width) * out->height * out->channels;
  out->samples.clear();
  out->bytes.clear();
  if (out->narrow && !wide && out->sink) {
    strip_.resize(size_t(out->width) * out->channels * kStripRows);
  } else if (out->narrow && !wide) {
    out->bytes.resize(n);
  } else {
    out->samples.resize(n);
  }
}

// The strip's rows to the sink.
void Decoder::Pass() {
  if (stripRows_ > 0 && !sinkFailed_) sinkFailed_ = !out_->sink->Rows(strip_.data(), stripRows_);
  stripRows_ = 0;
}

// Rows up to `row` never reconstructed go to the sink as zeros, as they
// read in `bytes`.
void Decoder::ZeroRowsTo(int row, size_t rowBytes) {
  for (; nextRow_ < row; ++nextRow_) {
    std::memset(strip_.data() + rowBytes * size_t(stripRows_), 0, rowBytes);
    if (++stripRows_ == kStripRows) Pass();
  }
}

// Corner rows run (every channel) and their finished macroblock rows are
// converted as soon as the macroblock rows they read are decoded, while
// those rows are still in cache.
void Decoder::Advance(int rowsDecoded) {
  const bool hpAbsent = h_.subband == kDCOnly || h_.subband == kNoHP;
  const bool fine = h_.subversion != 0;
  while (corners_ <= mbh_ && (corners_ < rowsDecoded || rowsDecoded == mbh_)) {
    const int y = corners_;
    const int lumaLike = sub_ ? 1 : h_.channels;
    const int from = earlyRow_ == y ? earlyX_ : 0;
    for (int ch = 0; ch < lumaLike; ++ch) {
      InverseTransformRowSpan(Row(ch, y - 1), Row(ch, y), mbw_, mbh_, h_.overlap, fine, hpStep_[size_t(ch)], hpAbsent,
                              y, from, mbw_ + 1, h_.overlap < 2);
    }
    if (!sub_) {
      if (y > 0) Convert(16 * (y - 1), 16 * y);
    } else {
      // the DC compensation of the older filters reads the HP steps of
      // the channel before
      for (int ch = 1; ch < 3; ++ch) {
        InverseTransformChromaRow(ChromaPlane(ch), mbw_, mbh_, h_.format == k420, h_.overlap, fine,
                                  hpStep_[size_t(ch - 1)], hpAbsent, y, h_.overlap < 2);
      }
      // 4:2:0 rows wait for the first chroma row below them
      const int lag = h_.format == k420 ? 2 : 1;
      if (y >= lag) ConvertSub(y - lag);
      if (y == mbh_ && lag == 2) ConvertSub(mbh_ - 1);
    }
    ++corners_;
  }
}

bool Decoder::Finish() {
  Advance(mbh_);
  if (strip_.empty()) return true;
  ZeroRowsTo(out_->height, strip_.size() / kStripRows);
  Pass();
  return !sinkFailed_;
}

// Luma-like corners of a row run a few macroblocks behind the decoder,
// while their macroblocks are still in cache (the corner after macroblock
// mx reads only it and the ones before).
void Decoder::Early(int my, int mx) {
  if (corners_ != my) return;
  if (earlyRow_ != my) {
    earlyRow_ = my;
    earlyX_ = 0;
  }
  const bool hpAbsent = h_.subband == kDCOnly || h_.subband == kNoHP;
  const bool fine = h_.subversion != 0;
  const int lumaLike = sub_ ? 1 : h_.channels;
  for (int ch = 0; ch < lumaLike; ++ch) {
    InverseTransformRowSpan(Row(ch, my - 1), Row(ch, my), mbw_, mbh_, h_.overlap, fine, hpStep_[size_t(ch)], hpAbsent,
                            my, earlyX_, mx + 1, h_.overlap < 2);
  }
  earlyX_ = mx + 1;
}

void Decoder::Slide(int my) {
  if (my - chromaBase_ < chromaSlots_) return;
  // rows my - 2 (still to convert) and my - 1 (still to filter) stay
  const int keep = 2;
  for (int ch = 1; ch < 3; ++ch) {
    int32_t* p = planes_[size_t(ch)].data();
    std::memmove(p, p + size_t(my - keep - chromaBase_) * chromaRowLen_, sizeof(int32_t) * keep * chromaRowLen_);
  }
  chromaBase_ = my - keep;
}

// LumaLine's copy two blocks a step with AVX2 (one shuffle for both
// blocks' four samples, quads 64 elements apart); returns the blocks done.
__attribute__((target("avx2"), always_inline)) inline __m256 QuadPair(const int32_t* p, int apart = 64) {
  const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + apart));
  return _mm256_castsi256_ps(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1));
}
__attribute__((target("avx2"))) int BlockLineAvx2(const int32_t* m, int n, bool odd, int32_t* to) {
  int i = 0;
  if (odd) {
    for (; i + 2 <= n; i += 2) {
      const __m256 v = _mm256_shuffle_ps(QuadPair(m + 64 * i), QuadPair(m + 64 * i + 4), _MM_SHUFFLE(2, 3, 3, 2));
      _mm256_storeu_ps(reinterpret_cast<float*>(to + 4 * i), v);
    }
  } else {
    for (; i + 2 <= n; i += 2) {
      const __m256 v = _mm256_shuffle_ps(QuadPair(m + 64 * i), QuadPair(m + 64 * i + 4), _MM_SHUFFLE(0, 1, 1, 0));
      _mm256_storeu_ps(reinterpret_cast<float*>(to + 4 * i), v);
    }
  }
  return i;
}

// ConvertSub's widening of a chroma row with AVX2, 8 samples to 16 a step:
// each sample, then the mean of it and the next rounded up.  Returns the
// samples done (their next one read, never the row's last).
__attribute__((target("avx2"))) int WidenRowAvx2(const int32_t* half, int cw, int32_t* f) {
  const __m256i one = _mm256_set1_epi32(1);
  int x = 0;
  for (; x + 8 < cw; x += 8) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(half + x));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(half + x + 1));
    const __m256i m = _mm256_srai_epi32(_mm256_add_epi32(_mm256_add_epi32(a, b), one), 1);
    const __m256i lo = _mm256_unpacklo_epi32(a, m), hi = _mm256_unpackhi_epi32(a, m);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(f + 2 * x), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(f + 2 * x + 8), _mm256_permute2x128_si256(lo, hi, 0x31));
  }
  return x;
}

// The same for ChromaLine: a chroma macroblock's two blocks of a row,
// `right` elements apart, a step; the macroblocks `size` apart.
__attribute__((target("avx2"))) void ChromaLineAvx2(const int32_t* m, int mbw, int size, int right, bool odd,
                                                    int32_t* to) {
  if (odd) {
    for (int mx = 0; mx < mbw; ++mx, m += size) {
      const __m256 v = _mm256_shuffle_ps(QuadPair(m, right), QuadPair(m + 4, right), _MM_SHUFFLE(2, 3, 3, 2));
      _mm256_storeu_ps(reinterpret_cast<float*>(to + 8 * mx), v);
    }
  } else {
    for (int mx = 0; mx < mbw; ++mx, m += size) {
      const __m256 v = _mm256_shuffle_ps(QuadPair(m, right), QuadPair(m + 4, right), _MM_SHUFFLE(0, 1, 1, 0));
      _mm256_storeu_ps(reinterpret_cast<float*>(to + 8 * mx), v);
    }
  }
}

// Chroma row cy of channel c (padded, half width) into `to`.
void Decoder::ChromaLine(int c, int cy, int32_t* to) {
  const bool q = h_.format == k420;
  const int mbHigh = q ? 8 : 16, mbSize = q ? 64 : 128;
  const int yy = cy & (mbHigh - 1);
  const int32_t* row = ChromaPlane(c) + ptrdiff_t(cy / mbHigh) * ptrdiff_t(chromaRowLen_);
  // the row's left and right halves: one block row each, in two quads
  typedef int32_t V4 __attribute__((vector_size(16)));
  const int r = yy & 3;
  const int32_t* m = row + 16 * (yy >> 2) + (r >= 2 ? 8 : 0);
  const int right = q ? 32 : 64;
  auto at = [](const int32_t* p) {
    V4 v;
    std::memcpy(&v, p, sizeof(v));
    return v;
  };
  auto put = [](int32_t* p, V4 v) { std::memcpy(p, &v, sizeof(v)); };
  static const bool avx2 = __builtin_cpu_supports("avx2");
  if (avx2) {
    ChromaLineAvx2(m, mbw_, mbSize, right, r == 1 || r == 2, to);
  } else if (r == 1 || r == 2) {
    for (int mx = 0; mx < mbw_; ++mx, m += mbSize) {
      put(to + 8 * mx, __builtin_shufflevector(at(m), at(m + 4), 2, 3, 7, 6));
      put(to + 8 * mx + 4, __builtin_shufflevector(at(m + right), at(m + right + 4), 2, 3, 7, 6));
    }
  } else {
    for (int mx = 0; mx < mbw_; ++mx, m += mbSize) {
      put(to + 8 * mx, __builtin_shufflevector(at(m), at(m + 4), 0, 1, 5, 4));
      put(to + 8 * mx + 4, __builtin_shufflevector(at(m + right), at(m + right + 4), 0, 1, 5, 4));
    }
  }
}

// Pixel row yy of a macroblock row of luma layout into `to` (padded width):
// a block's row lies in two of its 2x2 quads, rows 0 and 1 in the first
// two, 2 and 3 in the last two (see kInBlock), one shuffle each.
void Decoder::LumaLine(const int32_t* row, int yy, int32_t* to) const { LumaSpan(row, yy, 0, 4 * mbw_, to); }

// The same for the n blocks (columns of four pixels) from block b0 on.
void Decoder::LumaSpan(const int32_t* row, int yy, int b0, int n, int32_t* to) const {
  typedef int32_t V4 __attribute__((vector_size(16)));
  const int r = yy & 3;
  const int32_t* m = row + 16 * (yy >> 2) + (r >= 2 ? 8 : 0) + 64 * ptrdiff_t(b0);
  auto at = [](const int32_t* p) {
    V4 v;
    std::memcpy(&v, p, sizeof(v));
    return v;
  };
  static const bool avx2 = __builtin_cpu_supports("avx2");
  const int done = avx2 ? BlockLineAvx2(m, n, r == 1 || r == 2, to) : 0;
  m += 64 * done;
  to += 4 * done;
  if (r == 1 || r == 2) {
    for (int i = 0; i < n - done; ++i) {
      const V4 v = __builtin_shufflevector(at(m + 64 * i), at(m + 64 * i + 4), 2, 3, 7, 6);
      std::memcpy(to + 4 * i, &v, sizeof(v));
    }
  } else {
    for (int i = 0; i < n - done; ++i) {
      const V4 v = __builtin_shufflevector(at(m + 64 * i), at(m + 64 * i + 4), 0, 1, 5, 4);
      std::memcpy(to + 4 * i, &v, sizeof(v));
    }
  }
}

// Sub-sampled chroma back to full resolution, as jxrlib does before its
// colour conversion: chroma samples land on the even columns (and rows),
// each sample between two is their mean rounded up, and the last column
// (row) repeats the one before it; 4:2:0 goes vertical first.  Row by row
// into the output, with the colour conversion.
void Decoder::ConvertSub(int my) {
  const bool q = h_.format == k420;
  const int cw = pw_ / 2;
  const int first = std::max(16 * my, int(h_.extraTop)), last = std::min(16 * my + 16, int(h_.extraTop) + out_->height);
  // chroma rows at half width (both channels, one after the other) in two
  // slots: each read from the layout once for the two or three rows using it
  int slotRow[2] = {-1, -1};
  auto rowOf = [&](int cy) {
    int32_t* p = chromaRows_.data() + size_t(cy & 1) * size_t(pw_);
    if (slotRow[cy & 1] != cy) {
      ChromaLine(1, cy, p);
      ChromaLine(2, cy, p + cw);
      slotRow[cy & 1] = cy;
    }
    return p;
  };
  for (int py = first; py < last; ++py) {
    const int cy = q ? py >> 1 : py;
    subA_ = rowOf(cy);
    subB_ = q && (py & 1) && py < ph_ - 1 ? rowOf(cy + 1) : nullptr;
    subPy_ = py;
    Emit(py);
  }
}

// A chroma row at half width to full width in f: each sample, then the
// mean of it and the next rounded up; the last column repeats the one
// before it.
void Decoder::WidenLine(const int32_t* half, int32_t* f) const {
  const int cw = pw_ / 2;
  static const bool avx2 = __builtin_cpu_supports("avx2");
  for (int x = avx2 ? WidenRowAvx2(half, cw, f) : 0; x < cw - 1; ++x) {
    f[2 * x] = half[x];
    f[2 * x + 1] = (half[x] + half[x + 1] + 1) >> 1;
  }
  f[pw_ - 2] = f[pw_ - 1] = half[cw - 1];
}

// Padded row subPy_ of 4:2:0 or 4:2:2 (its chroma at half width in subA_,
// one channel after the other, or the means of those and subB_'s) to
// output samples: 8-bit output with AVX2 straight from the luma layout and
// the half rows, without the full-width lines, but for a few columns at
// the ends.
template <class T>
void Decoder::SubRowAs(T* o) {
  const int py = subPy_, cw = pw_ / 2, x0 = int(h_.extraLeft), x1 = x0 + out_->width, yy = py & 15;
  const int32_t* luma = Row(0, py >> 4);
  const int32_t* hu = subA_;
  const int32_t* hv = hu + cw;
  int f0 = x0, f1 = x0;  // columns f0..f1 - 1 done straight
  if constexpr (std::is_same_v<T, uint8_t>) {
    static const bool avx2 = __builtin_cpu_supports("avx2");
    if (avx2 && h_.outDepth != 2) {
      f0 = (x0 + 3) & ~3;
      // a step's widening reads the half sample after it: never the last
      const int n16 = std::max(0, (std::min(x1, pw_ - 1) - f0) / 16);
      const int r = yy & 3;
      const int32_t* m = luma + 16 * (yy >> 2) + (r >= 2 ? 8 : 0) + 64 * ptrdiff_t(f0 >> 2);
      const int shift = h_.scaled ? 3 : 0;
      const int32_t bias = h_.scaled ? (128 << 3) + 3 : 128;
      const int h0 = f0 / 2;
      uint8_t* to = o + 3 * size_t(f0 - x0);
      const bool done = n16 > 0 && (subB_ ? SubColourAvx2<true>(m, r == 0 || r == 3, hu + h0, hv + h0, subB_ + h0,
                                                                subB_ + cw + h0, n16, bias, shift, to)
                                          : SubColourAvx2<false>(m, r == 0 || r == 3, hu + h0, hv + h0, hu, hv, n16,
                                                                 bias, shift, to));
      if (done) {
        f1 = f0 + 16 * n16;
      } else {
        f0 = f1 = x0;
      }
    }
  }
  if (f0 == x0 && f1 == x0) {  // the whole row through the lines
    if (subB_) {
      for (size_t i = 0; i < size_t(pw_); ++i) half_[i] = (subA_[i] + subB_[i] + 1) >> 1;
      hu = half_.data();
      hv = hu + cw;
    }
    LumaLine(luma, yy, lines_[0].data());
    WidenLine(hu, lines_[1].data());
    WidenLine(hv, lines_[2].data());
    EmitSpan(lines_[0].data() + x0, lines_[1].data() + x0, lines_[2].data() + x0, x1 - x0, o);
    return;
  }
  auto piece = [&](int a, int b) {
    if (a >= b) return;
    const int b0 = a >> 2, b1 = (b + 3) >> 2;
    LumaSpan(luma, yy, b0, b1 - b0, lines_[0].data() + 4 * b0);
    for (int c = 1; c < 3; ++c) {
      const int32_t* ha = subA_ + size_t(c - 1) * size_t(cw);
      const int32_t* hb = subB_ ? subB_ + size_t(c - 1) * size_t(cw) : ha;
      auto h = [&](int i) { return subB_ ? (ha[i] + hb[i] + 1) >> 1 : ha[i]; };
      int32_t* f = lines_[size_t(c)].data();
      for (int x = a; x < b; ++x) {
        const int i = x >> 1;
        f[x] = !(x & 1) ? h(i) : x == pw_ - 1 ? h(cw - 1) : (h(i) + h(i + 1) + 1) >> 1;
      }
    }
    EmitSpan(lines_[0].data() + a, lines_[1].data() + a, lines_[2].data() + a, b - a, o + 3 * size_t(a - x0));
  };
  piece(x0, f0);
  piece(f1, x1);
}

// Padded rows py0..py1 of grey and 4:4:4 (those inside the image) to
// output samples.
void Decoder::Convert(int py0, int py1) {
  const int first = std::max(py0, int(h_.extraTop)), last = std::min(py1, int(h_.extraTop) + out_->height);
  for (int py = first; py < last;) {
    if ((py & 3) == 0 && py + 4 <= last && ConvertGroup(py)) {
      py += 4;
      continue;
    }
    for (int c = 0; c < h_.channels; ++c) LumaLine(Row(c, py >> 4), py & 15, lines_[size_t(c)].data());
    Emit(py);
    ++py;
  }
}

// Padded rows py..py+3 (one block row, all inside the image) of grey and
// 4:4:4 to the output, a span of kGroupBlocks blocks at a time: each
// block's cache line is read once for its four rows, and the span's lines
// stay in L1 between their making and their conversion.  false (and
// nothing written) when the sink's strip has no room for all four.
bool Decoder::ConvertGroup(int py) {
  Picture* out = out_;
  const size_t rowLen = size_t(out->width) * size_t(h_.channels);
  const int row0 = py - int(h_.extraTop);
  if (!strip_.empty()) {
    ZeroRowsTo(row0, rowLen);
    if (stripRows_ + 4 > kStripRows) return false;
    GroupAs(py, strip_.data() + rowLen * size_t(stripRows_), rowLen);
    nextRow_ += 4;
    stripRows_ += 4;
    if (stripRows_ == kStripRows) Pass();
  } else if (!out->bytes.empty()) {
    GroupAs(py, out->bytes.data() + rowLen * size_t(row0), rowLen);
  } else {
    GroupAs(py, out->samples.data() + rowLen * size_t(row0), rowLen);
  }
  return true;
}

template <class T>
void Decoder::GroupAs(int py, T* o, size_t rowLen) {
  const int x0 = int(h_.extraLeft), x1 = x0 + out_->width, nc = h_.channels;
  constexpr int kSpan = 4 * kGroupBlocks;
  int32_t* g = group_.data();  // line of row k, channel c at g + kSpan * (3 k + c)
  const int32_t* rows[3] = {};
  for (int c = 0; c < nc; ++c) rows[c] = Row(c, py >> 4);
  const int end = (x1 + 3) >> 2;  // blocks holding image columns: x0 >> 2 .. end - 1
  for (int b0 = x0 >> 2; b0 < end; b0 += kGroupBlocks) {
    const int n = std::min(kGroupBlocks, end - b0);
    const int px0 = std::max(4 * b0, x0), px1 = std::min(4 * (b0 + n), x1);
    int f0 = px0, f1 = px0;  // columns f0..f1 - 1 done straight from the layout
    if constexpr (std::is_same_v<T, uint8_t>) {
      static const bool avx2 = __builtin_cpu_supports("avx2");
      if (avx2 && h_.outDepth != 2) {
        f0 = (px0 + 3) & ~3;
        const int n16 = (px1 - f0) / 16;
        const ptrdiff_t in = 16 * ((py & 15) >> 2) + 64 * ptrdiff_t(f0 >> 2);
        const int shift = h_.scaled ? 3 : 0;
        const int32_t bias = h_.scaled ? (128 << 3) + 3 : 128;
        const bool done = n16 > 0 && (nc == 3 ? ColourGroupAvx2(rows[0] + in, rows[1] + in, rows[2] + in, n16, bias,
                                                                shift, o + size_t(f0 - x0) * 3, rowLen)
                                              : GreyGroupAvx2(rows[0] + in, n16, bias, shift, o + size_t(f0 - x0), rowLen));
        if (done) {
          f1 = f0 + 16 * n16;
        } else {
          f0 = f1 = px0;
        }
      }
    }
    if (f0 == px0 && f1 == px1) continue;
    for (int k = 0; k < 4; ++k) {
      for (int c = 0; c < nc; ++c) LumaSpan(rows[c], (py & 15) + k, b0, n, g + kSpan * (3 * k + c));
    }
    for (int k = 0; k < 4; ++k) {
      const int32_t* l = g + kSpan * 3 * k;
      T* to = o + rowLen * size_t(k);
      auto emit = [&](int a, int b) {
        if (a < b) EmitSpan(l + (a - 4 * b0), l + kSpan + (a - 4 * b0), l + 2 * kSpan + (a - 4 * b0), b - a,
                            to + size_t(a - x0) * size_t(nc));
      };
      emit(px0, f0);
      emit(f1, px1);
    }
  }
}

// Colour-converts the lines (padded width) of padded row py into the
// output.  Samples are centred on zero; scaled arithmetic keeps three more
// bits, rounded off with 3 at 8 bits and 4 at 16, as jxrlib does.  Lines
// within +-2^28 (all but damaged streams) convert in 32 bits, the rest in
// 64, with the same results.
void Decoder::Emit(int py) {
  Picture* out = out_;
  const int w = out->width;
  const int nc = h_.format != kYOnly ? 3 : 1;
  const size_t at = size_t(py - int(h_.extraTop)) * w * nc;
  if (!strip_.empty()) {
    // rows come top to bottom
    const size_t rowBytes = size_t(w) * nc;
    ZeroRowsTo(py - int(h_.extraTop), rowBytes);
    EmitAs(strip_.data() + rowBytes * size_t(stripRows_));
    ++nextRow_;
    if (++stripRows_ == kStripRows) Pass();
  } else if (!out->bytes.empty()) {
    EmitAs(out->bytes.data() + at);
  } else {
    EmitAs(out->samples.data() + at);
  }
}

template <class T>
void Decoder::EmitAs(T* o) {
  if (sub_) {
    SubRowAs(o);
    return;
  }
  const int x0 = int(h_.extraLeft);
  EmitSpan(lines_[0].data() + x0, lines_[1].data() + x0, lines_[2].data() + x0, out_->width, o);
}

// w samples of each channel's line (ly, lu, lv) to output samples.
template <class T>
void Decoder::EmitSpan(const int32_t* ly, const int32_t* lu, const int32_t* lv, int w, T* o) {
  const bool wide = h_.outDepth == 2;
  const int shift = h_.scaled ? 3 : 0;
  const int32_t mid = wide ? 32768 : 128, top = wide ? 65535 : 255;
  const int32_t bias = h_.scaled ? (mid << 3) + (wide ? 4 : 3) : mid;
  const bool colour = h_.format != kYOnly;
  const int nc = colour ? 3 : 1;
  constexpr int32_t kSafe = int32_t(1) << 28;
  bool outside = false;
  const int32_t* const lines[3] = {ly, lu, lv};
  for (int c = 0; c < nc; ++c) outside |= AnyOutside(lines[c], w, uint32_t(kSafe));
  if (!colour) {
    if (outside) {
      for (int x = 0; x < w; ++x) {
        const int64_t v = (int64_t(ly[x]) + bias) >> shift;
        o[x] = T(v < 0 ? 0 : v > top ? top : v);
      }
      return;
    }
    GreyRow(ly, w, bias, shift, top, o);
    return;
  }
  if (outside) {
    auto clip = [top](int64_t v) { return T(v < 0 ? 0 : v > top ? top : v); };
    for (int x = 0; x < w; ++x) {
      int64_t g = int64_t(ly[x]) + bias, r = -int64_t(lu[x]), b = lv[x];
      g -= r >> 1;
      r -= ((b + 1) >> 1) - g;
      b += r;
      o[3 * x] = clip(r >> shift);
      o[3 * x + 1] = clip(g >> shift);
      o[3 * x + 2] = clip(b >> shift);
    }
    return;
  }
  ColourRow(ly, lu, lv, w, bias, shift, top, o);
}

}  // namespace

bool DecodeImage(const uint8_t* data, size_t size, Picture* out, std::string* error, size_t maxPixels) {
  Header h;
  Bits b{data, size};
  if (!ReadHeader(b, &h, error)) return false;
  if (h.alpha) {
    *error = "images with an alpha plane are not supported";
    return false;
  }
  if (h.format != kYOnly && h.format != k444 && h.format != k420 && h.format != k422) {
    *error = "only grey, 4:4:4, 4:2:2 and 4:2:0 images are supported";
    return false;
  }
  if (h.outDepth != 1 && !(h.outDepth == 2 && h.shift16 == 0)) {
    *error = "only 8- and 16-bit images are supported";
    return false;
  }
  if (h.outColor != 0 && h.outColor != 7) {
    *error = "only grey and RGB outputs are supported";
    return false;
  }
  if (h.format != kYOnly && h.outColor != 7) {
    *error = "colour planes are supported for RGB output only";
    return false;
  }
  const size_t mbs = size_t((h.width + h.extraLeft + h.extraRight) / 16) * ((h.height + h.extraTop + h.extraBottom) / 16);
  if (mbs * 256 > maxPixels || mbs > size * 8) {
    *error = "image too large for its data or for this decoder";
    return false;
  }
  Decoder d(h, data, size);
  d.Begin(out);
  if (!d.Run(b.pos / 8, error)) return false;
  if (!d.Finish()) {
    *error = "the rows could not be passed on";
    return false;
  }
  return true;
}

}  // namespace rvtjxr
