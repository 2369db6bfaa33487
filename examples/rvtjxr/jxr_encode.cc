// The rvtjxr encoder: image header, image plane header, index table, tile
// packets and macroblocks.  Channels are held in the layout of
// jxr_filters.h, a few macroblock rows each (two; three for 4:2:x, whose
// chroma runs a pixel row ahead): the pixels of row y come in, the forward
// transform (pre filters and first level) runs as far as they allow, which
// finishes row y - 1; then every macroblock of row y - 1 gets its second
// level, quantization, prediction and coefficient coding, in the decoder's
// order (jxr_decode.cc) so that both sides keep the same adaptive context.
// Tiles of a tile row are coded side by side, each with its own context.
#include "jxr_encode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "jxr_filters.h"
#include "jxr_prefilters.h"
#include "rvtjp.h"

namespace rvtjxr {
namespace {

enum ColorFormat { kYOnly = 0, k420 = 1, k422 = 2, k444 = 3 };

// The inverse of the decoder's 2x2 chroma butterfly (a, b the upper pair).
void ButterflyInv2x2(int32_t& a0, int32_t& b0, int32_t& c0, int32_t& d0) {
  int32_t a = a0 + d0, b = b0 - c0;
  const int32_t t = (a - b) >> 1;
  const int32_t d = t - c0, c = t - d0;
  a0 = a - d;
  b0 = b + c;
  c0 = c;
  d0 = d;
}


// Header fields, most significant bit first.
struct BitWriter {
  std::vector<uint8_t>* out;
  int fill = 0;  // bits used in the last byte; 0 when aligned
  void Put(uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i) {
      if (fill == 0) out->push_back(0);
      if ((v >> i) & 1u) out->back() = uint8_t(out->back() | (0x80u >> fill));
      fill = (fill + 1) & 7;
    }
  }
  void Align() { fill = 0; }
};

// Variable-length words of the index table.
void PutVlw(BitWriter& b, uint64_t v) {
  if (v < 0xFB00) {
    b.Put(uint32_t(v), 16);
  } else if (v <= 0xFFFFFFFFu) {
    b.Put(0xFB, 8);
    b.Put(uint32_t(v), 32);
  } else {
    b.Put(0xFC, 8);
    b.Put(uint32_t(v >> 32), 32);
    b.Put(uint32_t(v), 32);
  }
}

// Rounds magnitudes up from 5/8 of a step (a small dead zone: values
// near a boundary cost more bits than their error is worth); DCs, whose
// error spreads over the whole macroblock, to the nearest.  The division
// is a multiply by a 64-bit reciprocal, exact for 32-bit dividends.
struct Quantizer {
  uint32_t step = 1;
  uint32_t bias = 0;
  uint64_t inv = 0;  // floor((2^64 - 1) / step) + 1
  Quantizer() = default;
  Quantizer(int32_t s, bool nearest)
      : step(uint32_t(s)), bias(uint32_t(nearest ? s >> 1 : (s * 3 + 1) >> 3)), inv(~uint64_t(0) / uint32_t(s) + 1) {}
  // (step 1 leaves values as they are and never uses inv)
  // (the sign is taken off and put back without a branch: coefficient
  // signs are as good as random)
  int32_t operator()(int32_t v) const {
    if (step == 1) return v;
    const uint32_t sign = uint32_t(v >> 31);
    const uint64_t n = uint64_t((uint32_t(v) ^ sign) - sign) + bias;
    const uint32_t m = n >> 32 ? uint32_t(n / step) : uint32_t((static_cast<unsigned __int128>(inv) * n) >> 64);
    return int32_t((m ^ sign) - sign);
  }
};

// Quantizer's values for a run of coefficients at once: the magnitude plus
// the bias is below 2^33, so its double quotient by the step is never
// rounded up to the next integer and truncating it gives the exact
// integer quotient.  Steps of 2 and up only (the quotient then fits).
#if defined(__x86_64__) && defined(__GNUC__)
#define RVTJXR_CLONED __attribute__((target_clones("avx2", "default")))
#else
#define RVTJXR_CLONED
#endif
RVTJXR_CLONED void QuantizeSpan(const int32_t* __restrict in, int32_t* __restrict out, int n, double step,
                                double bias) {
  for (int i = 0; i < n; ++i) {
    const int32_t m = int32_t((std::fabs(double(in[i])) + bias) / step);
    out[i] = in[i] < 0 ? -m : m;
  }
}

// The OR of the magnitudes of 16 coefficients, four at a time.
uint32_t MagnitudeOr(const int32_t* c) {
  using V = uint32_t __attribute__((vector_size(16)));
  using VS = int32_t __attribute__((vector_size(16)));
  V o = {0, 0, 0, 0};
  for (int i = 0; i < 16; i += 4) {
    V v;
    std::memcpy(&v, c + i, 16);
    const V sign = (V)((VS)v >> 31);
    o |= (v ^ sign) - sign;
  }
  return o[0] | o[1] | o[2] | o[3];
}

// The colour lifting of one RGB pixel into line x.
template <class S>
inline void LiftRgb(const S* s, int x, int32_t* ly, int32_t* lu, int32_t* lv, int shift, int32_t mid) {
  const int32_t r1 = int32_t(s[0]) * (1 << shift), g1 = int32_t(s[1]) * (1 << shift),
                b1 = int32_t(s[2]) * (1 << shift);
  const int32_t b0 = b1 - r1;
  const int32_t r0 = r1 + ((b0 + 1) >> 1) - g1;
  const int32_t g0 = g1 + (r0 >> 1);
  ly[x] = g0 - mid * (1 << shift);
  lu[x] = -r0;
  lv[x] = b0;
}

// ConvertRow's colour lifting over a run of 8-bit RGB pixels.
RVTJXR_CLONED void ConvertRgbSpan(const uint8_t* __restrict s, int32_t* __restrict ly, int32_t* __restrict lu,
                                  int32_t* __restrict lv, int n, int shift, int32_t mid) {
  for (int x = 0; x < n; ++x) LiftRgb(s + 3 * x, x, ly, lu, lv, shift, mid);
}

// A macroblock of 8-bit grey pixels (16 pixels from x0 of each row, all in
// the picture) converted as ConvertRow does into its place in the slot row
// (`out` the macroblock's first value): four pixels a vector, stored as
// the pairs of a block row (a, a + 1 and a + 5, a + 4).
RVTJXR_CLONED void LoadGreyMacroblock(const uint8_t* const* rows, int x0, int32_t* out, int shift, int32_t mid) {
  using V = int32_t __attribute__((vector_size(16)));
  using B = uint8_t __attribute__((vector_size(16)));
  const B z = {};
  for (int r = 0; r < 16; ++r) {
    int32_t* d = out + (r >> 2) * 16 + kInBlock[r & 3][0];
    B b;
    std::memcpy(&b, rows[r] + x0, 16);
    // the pixels of block bx widened in the order they are stored
    auto pairs = [&](auto bx) {
      constexpr int i = 4 * decltype(bx)::value;
      const B w = __builtin_shufflevector(b, z, i, 16, 16, 16, i + 1, 16, 16, 16, i + 3, 16, 16, 16, i + 2, 16, 16, 16);
      const V v = (V(w) - mid) << shift;
      std::memcpy(d + 16 * i, &v, 8);
      std::memcpy(d + 16 * i + 4, reinterpret_cast<const char*>(&v) + 8, 8);
    };
    pairs(std::integral_constant<int, 0>{});
    pairs(std::integral_constant<int, 1>{});
    pairs(std::integral_constant<int, 2>{});
    pairs(std::integral_constant<int, 3>{});
  }
}

// An allocator leaving new elements uninitialized: every plane element is
// written before it is read, and zeroing them first costs a pass over the
// image.
template <class T>
struct DefaultInit : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = DefaultInit<U>;
  };
  DefaultInit() = default;
  template <class U>
  DefaultInit(const DefaultInit<U>&) {}
  template <class U>
  void construct(U* p) {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... A>
  void construct(U* p, A&&... a) {
    ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
  }
};
using Plane = std::vector<int32_t, DefaultInit<int32_t>>;

// A growing coefficient stream: a packet header, then what the coefficient
// encoders append.  The coders write every byte up to the position (of a
// byte they start inside, the bits before it they keep), so the room they
// have not reached needs no clearing.
struct Stream {
  std::vector<uint8_t, DefaultInit<uint8_t>> bytes;
  int32_t pos = 0;  // in bits
  // keeps ample room for one more macroblock so the encoders never need
  // their dry run; a new buffer takes only the bytes written (what lies
  // past them was never touched, and copying it would touch both pages)
  void Reserve() {
    const size_t need = size_t(pos / 8) + (size_t(1) << 16);
    if (bytes.size() >= need) return;
    std::vector<uint8_t, DefaultInit<uint8_t>> more(std::max({need, bytes.size() * 2, size_t(1) << 20}));
    std::copy_n(bytes.data(), size_t(pos + 7) / 8, more.data());
    bytes.swap(more);
  }
  uint8_t* p() { return bytes.data(); }
  int32_t len() const { return int32_t(std::min<size_t>(bytes.size(), (size_t(1) << 28) - 1)); }
  void Finish() { bytes.resize(size_t(pos + 7) / 8); }
};

// Room the coded image keeps for the container's header (134 bytes).
constexpr size_t kContainerRoom = 256;

class Encoder {
 public:
  Encoder(const Picture& pic, const uint8_t* bytes, const EncodeOptions& opt) : pic_(pic), bytes_(bytes), opt_(opt) {}
  bool Run(std::vector<uint8_t>* out, std::string* error);

 private:
  // The coder of one tile column in the current tile row.
  struct TileCoder {
    std::vector<uint8_t> state;
    std::vector<PredInfo> row, prev;
  };
  void ConvertRow(int y, int32_t* ly, int32_t* lu, int32_t* lv) const;
  template <class S>
  void ConvertRowOf(const S* s, int32_t* ly, int32_t* lu, int32_t* lv) const;
  void LoadRow(int my);
  template <int cn, class S>
  void LoadRowOf(const S* pixels, int my);
  void LoadSubsampled(int end);
  void SecondLevel(int my, int from, int to);
  void Quantize(int mx, int my, int32_t* out);
  bool CodeRow(int my, std::vector<std::vector<Stream>>& packets, std::string* error);
  bool Macroblock(VLCState_JPEGXR* st, int mx, int my, int x0, int y0, int tileWidth, std::vector<Stream>& bands,
                  std::vector<PredInfo>& row, std::vector<PredInfo>& prev, std::string* error);
  // Macroblock row my of channel c, in a ring of slots_ rows.
  int32_t* Row(int c, int my) {
    const int slot = slots_ == 2 ? my & 1 : my % 3;  // (no divide: two or three slots)
    return planes_[size_t(c)].data() + size_t(slot) * rowLen_[size_t(c)];
  }
  // Block (bx, by) of macroblock (mx, my); 4:2:0 chroma macroblocks hold
  // 2x2 blocks, 4:2:2 ones 2x4 (the layout of jxr_filters.h).
  int32_t* Block(int c, int mx, int my, int bx, int by) {
    if (c > 0 && sub_) {
      const bool q = format_ == k420;
      return Row(c, my) + size_t(mx) * (q ? 64 : 128) + 16 * ((q ? 2 : 4) * bx + by);
    }
    return Row(c, my) + size_t(mx) * 256 + 16 * (4 * bx + by);
  }
  int BlocksWide(int ch) const { return sub_ && ch > 0 ? 2 : 4; }
  int BlocksHigh(int ch) const { return sub_ && ch > 0 && format_ == k420 ? 2 : 4; }

  const Picture& pic_;
  const uint8_t* bytes_;  // 8-bit pixels lying elsewhere (pic_.samples then empty)
  const EncodeOptions& opt_;
  int format_ = kYOnly, nc_ = 1, index_ = 0;
  bool scaled_ = false;
  bool sub_ = false;  // 4:2:0 or 4:2:2
  int slots_ = 2;  // rows kept: 3 when 4:2:x chroma runs a pixel row ahead
  std::array<size_t, 3> rowLen_{};
  int loaded_ = 0;  // pixel rows converted so far (4:2:x)
  std::vector<int32_t> ring_, line_;  // 4:2:x chroma down-sampling
  int mbw_ = 0, mbh_ = 0;
  std::vector<int> tileX_, tileY_;
  std::vector<Plane> planes_;
  std::array<int32_t, 16> dcStep_{}, lpStep_{}, hpStep_{};
  std::array<Quantizer, 16> dcQ_{}, lpQ_{}, hpQ_{};
  int32_t stateSize_ = 0;
  std::vector<TileCoder> coders_;
  std::vector<int32_t> lin_;  // a converted pixel row per channel
  std::vector<int32_t> dcs_;  // a macroblock row's block DCs, 4 rows a channel
  int dcsFrom_ = 0, dcsTo_ = 0;  // the macroblocks of dcs_ done
};

// Pixel rows y..y + 3 (y a multiple of 4 below 16), `pw` apart, of the
// padded width into a macroblock row, block line by block line.
void ScatterBand(const int32_t* rows, int32_t* plane, int y, int mbw) {
  const int pw = mbw * 16;
  for (int r = 0; r < 4; ++r) {
    const int32_t* row = rows + size_t(r) * pw;
    // the four pixels of a block row sit at a, a + 1, a + 5, a + 4
    int32_t* d = plane + (y >> 2) * 16 + kInBlock[r][0];
    for (int b = 0; b < mbw * 4; ++b, d += 64, row += 4) {
      d[0] = row[0];
      d[1] = row[1];
      d[5] = row[2];
      d[4] = row[3];
    }
  }
}

// Chroma row y (0..7 or 0..15) of half the padded width into a 4:2:0 or
// 4:2:2 macroblock row.
void ScatterChromaRow(const int32_t* row, int32_t* plane, int y, int mbw, bool q) {
  std::array<uint16_t, 8> o{};
  for (int x = 0; x < 8; ++x) o[size_t(x)] = uint16_t(ChromaAt(x, q ? (y & 7) : (y & 15), 1, q));
  const int mbSize = q ? 64 : 128;
  int32_t* mb = plane;
  for (int m = 0; m < mbw; ++m, mb += mbSize, row += 8) {
    for (int x = 0; x < 8; ++x) mb[o[size_t(x)]] = row[x];
  }
}

// The chroma down-sampling filter, 1 4 6 4 1 with rounding.
inline int32_t Taps5(int32_t d0, int32_t d1, int32_t d2, int32_t d3, int32_t d4) {
  return (((d1 + d2 + d3) << 2) + (d2 << 1) + d0 + d4 + 8) >> 4;
}

// The filter across a row (r[-2..2 n + 1] valid) at its even samples, and
// down five rows, each a loop the compiler runs a vector at a time.
RVTJXR_CLONED void TapsAcross(const int32_t* __restrict r, int32_t* __restrict h, int n) {
  for (int x = 0; x < n; ++x) h[x] = Taps5(r[2 * x - 2], r[2 * x - 1], r[2 * x], r[2 * x + 1], r[2 * x + 2]);
}
RVTJXR_CLONED void TapsDown(const int32_t* r0, const int32_t* r1, const int32_t* r2, const int32_t* r3,
                            const int32_t* r4, int32_t* __restrict out, int n) {
  for (int x = 0; x < n; ++x) out[x] = Taps5(r0[x], r1[x], r2[x], r3[x], r4[x]);
}

// Pixel row y (edges repeated into the padding), level shifted and, for
// colour, through the reversible RGB-to-YUV lifting the decoder undoes;
// lossy images carry three more bits.
void Encoder::ConvertRow(int y, int32_t* ly, int32_t* lu, int32_t* lv) const {
  const size_t at = size_t(std::min(y, pic_.height - 1)) * size_t(pic_.width) * size_t(pic_.channels);
  if (bytes_) ConvertRowOf(bytes_ + at, ly, lu, lv);
  else ConvertRowOf(pic_.samples.data() + at, ly, lu, lv);
}

template <class S>
void Encoder::ConvertRowOf(const S* s, int32_t* ly, int32_t* lu, int32_t* lv) const {
  const int shift = scaled_ ? 3 : 0;
  const int32_t mid = int32_t(1) << (pic_.bits - 1);
  const int cn = pic_.channels, w = pic_.width, pw = mbw_ * 16;
  if (cn == 1) {
    for (int x = 0; x < w; ++x) ly[x] = (int32_t(s[x]) - mid) * (1 << shift);
  } else if constexpr (std::is_same_v<S, uint8_t>) {
    ConvertRgbSpan(s, ly, lu, lv, w, shift, mid);
  } else {
    for (int x = 0; x < w; ++x) LiftRgb(s + 3 * x, x, ly, lu, lv, shift, mid);
  }
  for (int x = w; x < pw; ++x) {
    ly[x] = ly[w - 1];
    if (cn > 1) {
      lu[x] = lu[w - 1];
      lv[x] = lv[w - 1];
    }
  }
}

// The pixels of macroblock row my of a grey or 4:4:4 image into its
// slots, converted as ConvertRow does (which works pixel by pixel, so the
// padding is the converted last column and row), macroblock by
// macroblock so that each macroblock's lines are written while in cache.
void Encoder::LoadRow(int my) {
  if (bytes_) {
    if (pic_.channels == 1) LoadRowOf<1>(bytes_, my);
    else LoadRowOf<3>(bytes_, my);
  } else {
    if (pic_.channels == 1) LoadRowOf<1>(pic_.samples.data(), my);
    else LoadRowOf<3>(pic_.samples.data(), my);
  }
}

template <int cn, class S>
void Encoder::LoadRowOf(const S* pixels, int my) {
  const int shift = scaled_ ? 3 : 0;
  const int32_t mid = int32_t(1) << (pic_.bits - 1);
  const int w = pic_.width;
  const S* rows[16];
  for (int r = 0; r < 16; ++r) rows[r] = pixels + size_t(std::min(16 * my + r, pic_.height - 1)) * w * cn;
  int32_t* const out[3] = {Row(0, my), cn > 1 ? Row(1, my) : nullptr, cn > 1 ? Row(2, my) : nullptr};
  int xs[16];
  for (int mx = 0; mx < mbw_; ++mx) {
    const int x0 = 16 * mx;
    const bool inside = x0 + 16 <= w;
    if constexpr (cn == 1 && std::is_same_v<S, uint8_t>) {
      if (inside) {
        LoadGreyMacroblock(rows, x0, out[0] + size_t(mx) * 256, shift, mid);
        continue;
      }
    }
    for (int k = 0; k < 16; ++k) xs[k] = std::min(x0 + k, w - 1);
    for (int r = 0; r < 16; ++r) {
      const S* src = rows[r];
      // the four pixels of a block row sit at a, a + 1, a + 5, a + 4
      const size_t at = size_t(mx) * 256 + size_t(r >> 2) * 16 + kInBlock[r & 3][0];
      if constexpr (cn == 3 && std::is_same_v<S, uint8_t>) {
        if (inside) {  // 16 pixels converted a vector at a time
          int32_t conv[3][16];
          ConvertRgbSpan(src + 3 * x0, conv[0], conv[1], conv[2], 16, shift, mid);
          for (int c = 0; c < 3; ++c) {
            for (int bx = 0; bx < 4; ++bx) {
              int32_t* d = out[c] + at + 64 * bx;
              const int32_t* v = conv[c] + 4 * bx;
              d[0] = v[0];
              d[1] = v[1];
              d[5] = v[2];
              d[4] = v[3];
            }
          }
          continue;
        }
      }
      for (int bx = 0; bx < 4; ++bx) {
        int32_t v[3][4];
        for (int k = 0; k < 4; ++k) {
          const int x = inside ? x0 + 4 * bx + k : xs[4 * bx + k];
          if constexpr (cn == 1) {
            v[0][k] = (int32_t(src[x]) - mid) * (1 << shift);
            continue;
          }
          const S* s = src + 3 * x;
          const int32_t r1 = int32_t(s[0]) * (1 << shift), g1 = int32_t(s[1]) * (1 << shift),
                        b1 = int32_t(s[2]) * (1 << shift);
          const int32_t b0 = b1 - r1;
          const int32_t r0 = r1 + ((b0 + 1) >> 1) - g1;
          const int32_t g0 = g1 + (r0 >> 1);
          v[0][k] = g0 - mid * (1 << shift);
          v[1][k] = -r0;
          v[2][k] = b0;
        }
        for (int c = 0; c < cn; ++c) {
          int32_t* d = out[c] + at + 64 * bx;
          d[0] = v[c][0];
          d[1] = v[c][1];
          d[5] = v[c][2];
          d[4] = v[c][3];
        }
      }
    }
  }
}

// Pixel rows up to `end` of a 4:2:x image into the rows of the macroblock
// layout.  Chroma is down-sampled as jxrlib's encoder does it: a 1 4 6 4 1
// filter centred on the even samples, horizontally first (mirrored at the
// padded row's ends), then (4:2:0) down the half-width rows, mirrored at
// the padded image's top and bottom; the half-width rows live in a ring
// of 8, each output row made as soon as its lowest tap is (4:2:0 chroma
// rows so lag a pixel row behind).
void Encoder::LoadSubsampled(int end) {
  const int pw = mbw_ * 16, ph = mbh_ * 16, cw = pw / 2;
  const bool q = format_ == k420;
  auto half = [&](int c, int y) { return ring_.data() + size_t(c * 8 + (y & 7)) * cw; };
  auto mirror = [ph](int i) { return i < 0 ? -i : i >= ph ? 2 * (ph - 1) - i : i; };
  // half-width row y (4:2:2) or the filtered row y (4:2:0) of chroma c
  auto emit = [&](int c, int y) {
    const int32_t* v;
    if (q) {
      const int32_t* r[5];
      for (int k = 0; k < 5; ++k) r[k] = half(c, mirror(2 * y - 2 + k));
      TapsDown(r[0], r[1], r[2], r[3], r[4], line_.data(), cw);
      v = line_.data();
    } else {
      v = half(c, y);
    }
    ScatterChromaRow(v, Row(c + 1, q ? y >> 3 : y >> 4), y, mbw_, q);
  };
  int32_t* lu = lin_.data() + 2;
  int32_t* lv = lu + pw + 4;
  for (int y = loaded_; y < end; ++y) {
    // luma goes in bands of four rows, whole block lines at a time
    int32_t* ly = lv + pw + 4 + size_t(y & 3) * pw;
    ConvertRow(y, ly, lu, lv);
    if ((y & 3) == 3) ScatterBand(ly - 3 * pw, Row(0, y >> 4), y & 12, mbw_);
    int32_t* rows[2] = {lu, lv};
    for (int c = 0; c < 2; ++c) {
      int32_t* r = rows[c];
      r[-2] = r[2];
      r[-1] = r[1];
      r[pw] = r[pw - 2];
      r[pw + 1] = r[pw - 3];
      int32_t* h = half(c, y);
      TapsAcross(r, h, cw);
      if (!q) emit(c, y);
      else if ((y & 1) == 0 && y >= 2) emit(c, y / 2 - 1);  // taps down to row y
      else if (y == ph - 1) emit(c, ph / 2 - 1);              // the last one's mirror
    }
  }
  loaded_ = std::max(loaded_, end);
}

// The second level of macroblocks [from, to) of row my, grey and 4:4:4
// channels: their 4x4 block DCs side by side, one library call.
void Encoder::SecondLevel(int my, int from, int to) {
  const size_t w = size_t(mbw_) * 4;
  for (int ch = 0; ch < nc_; ++ch) {
    if (BlocksWide(ch) != 4) continue;
    int32_t* d = dcs_.data() + size_t(ch) * 4 * w;
    const bool half = scaled_ && ch > 0;
    const int32_t* row = Row(ch, my);  // (full 4x4 block grids: Block's layout, the slot found once)
    for (int mx = from; mx < to; ++mx) {
      for (int b = 0; b < 16; ++b) {
        const int32_t v = row[size_t(mx) * 256 + 16 * (4 * (b % 4) + b / 4)];
        d[size_t(b / 4) * w + size_t(mx) * 4 + size_t(b % 4)] = half ? (v + 1) >> 1 : v;
      }
    }
    rvtiPCTFwd_JPEGXR_32s_C1IR(d + size_t(from) * 4, int32_t(w * sizeof(int32_t)), {4 * (to - from), 4});
  }
  dcsFrom_ = from;
  dcsTo_ = to;
}

// Macroblock (mx, my)'s second level over its block DCs (4:2:x chroma;
// the others' run for 4 macroblocks at a time) and the quantization of its
// DC and LP coefficients into o (16 per channel); the coder quantizes the
// HP ones as it gathers them.
void Encoder::Quantize(int mx, int my, int32_t* out) {
  for (int ch = 0; ch < nc_; ++ch) {
    const int bw = BlocksWide(ch), nb = bw * BlocksHigh(ch);
    int32_t d[16];
    if (nb == 16) {
      // done for 4 macroblocks at a time, while they are in cache
      if (ch == 0 && (mx < dcsFrom_ || mx >= dcsTo_)) SecondLevel(my, mx, std::min(mx + 4, mbw_));
      const size_t w = size_t(mbw_) * 4;
      const int32_t* from = dcs_.data() + size_t(ch) * 4 * w + size_t(mx) * 4;
      for (int r = 0; r < 4; ++r) std::memcpy(d + 4 * r, from + size_t(r) * w, 4 * sizeof(int32_t));
    } else {
      for (int b = 0; b < nb; ++b) {
        // chroma block DCs carry one bit less under scaled arithmetic
        const int32_t v = Block(ch, mx, my, b % bw, b / bw)[0];
        d[b] = scaled_ ? (v + 1) >> 1 : v;
      }
      // the chroma second level: the decoder's 2x2 butterflies undone,
      // then (4:2:2) the lifting pair between the halves' DCs
      ButterflyInv2x2(d[0], d[1], d[2], d[3]);
      if (nb == 8) {
        ButterflyInv2x2(d[4], d[5], d[6], d[7]);
        d[4] -= d[0];
        d[0] += (d[4] + 1) >> 1;
      }
    }
    int32_t* o = out + 16 * ch;
    std::fill(o, o + 16, 0);
    o[0] = dcQ_[size_t(ch)](d[0]);
    const Quantizer lp = lpQ_[size_t(ch)];
    for (int k = 1; k < nb; ++k) o[k] = lp(d[k]);
  }
}

bool Encoder::Macroblock(VLCState_JPEGXR* st, int mx, int my, int x0, int y0, int tileWidth,
                         std::vector<Stream>& bands, std::vector<PredInfo>& row, std::vector<PredInfo>& prev,
                         std::string* error) {
  const bool freq = !opt_.spatial;
  Stream& dcs = bands[0];
  Stream& lps = freq ? bands[1] : bands[0];
  Stream& hps = freq ? bands[2] : bands[0];
  Stream* fls = freq ? &bands[3] : nullptr;
  for (Stream& s : bands) s.Reserve();
  const int i = mx - x0;
  const bool left = mx == x0, top = my == y0;
  const bool adaptNow = (i & 15) == 0 || i + 1 == tileWidth;
  const bool resetScan = (i & 15) == 0;
  auto fail = [&](const char* what) {
    *error = std::string("coefficient coder refused the ") + what + " of macroblock " + std::to_string(mx) + "," +
             std::to_string(my);
    return false;
  };
  int32_t actual[48];
  Quantize(mx, my, actual);

  // DC and LP prediction, as the decoder will make it
  const PredInfo* l = left ? nullptr : &row[size_t(i - 1)];
  const PredInfo* t = top ? nullptr : &prev[size_t(i)];
  int dcMode;  // 0 left, 1 top, 2 mean, 3 none
  if (left && top) dcMode = 3;
  else if (left) dcMode = 1;
  else if (top) dcMode = 0;
  else {
    const PredInfo* tl = &prev[size_t(i - 1)];
    int64_t sh = std::abs(int64_t(tl->dc[0]) - l->dc[0]), sv = std::abs(int64_t(tl->dc[0]) - t->dc[0]);
    if (format_ != kYOnly) {
      const int scale = format_ == k420 ? 8 : format_ == k422 ? 4 : 2;
      sh = sh * scale + std::abs(int64_t(tl->dc[1]) - l->dc[1]) + std::abs(int64_t(tl->dc[2]) - l->dc[2]);
      sv = sv * scale + std::abs(int64_t(tl->dc[1]) - t->dc[1]) + std::abs(int64_t(tl->dc[2]) - t->dc[2]);
    }
    dcMode = sh * 4 < sv ? 1 : sv * 4 < sh ? 0 : 2;
  }
  // one LP quantizer for the whole image: the LP prediction follows the DC's
  const int adMode = dcMode == 1 ? 1 : dcMode == 0 ? 0 : 2;
  int32_t res[256];
  std::memcpy(res, actual, sizeof(int32_t) * 16 * size_t(nc_));
  for (int ch = 0; ch < nc_; ++ch) {
    int32_t* o = res + 16 * ch;
    const bool sub = sub_ && ch > 0;
    if (dcMode == 1) o[0] -= t->dc[ch];
    else if (dcMode == 0) o[0] -= l->dc[ch];
    else if (dcMode == 2) o[0] -= int32_t((int64_t(l->dc[ch]) + t->dc[ch] + (sub ? 1 : 0)) >> 1);
    if (sub) {
      // the decoder's chroma DC-block prediction (jxr_decode.cc), undone
      const int32_t* a = actual + 16 * ch;
      if (format_ == k420) {
        if (adMode == 1) o[2] -= t->ad[ch][1];
        else if (adMode == 0) o[1] -= l->ad[ch][0];
      } else if (adMode == 1) {
        o[4] -= t->ad[ch][4];
        o[2] -= t->ad[ch][3];
        o[6] -= a[2];
      } else if (adMode == 0) {
        o[4] -= l->ad[ch][4];
        o[1] -= l->ad[ch][0];
        o[5] -= l->ad[ch][2];
      } else if (dcMode == 1) {
        o[6] -= a[2];
      }
      continue;
    }
    if (adMode == 1) {
      for (int k = 0; k < 3; ++k) o[kColPos[k]] -= t->ad[ch][3 + k];
    } else if (adMode == 0) {
      for (int k = 0; k < 3; ++k) o[kRowPos[k]] -= l->ad[ch][k];
    }
  }
  if (rvtiVLCEncodeDC_JPEGXR_32s1u(res, st, dcs.p(), dcs.len(), &dcs.pos) != rvtStatusOk) return fail("DC");
  if (resetScan) rvtiVLCAdapt_JPEGXR(st, 8);
  if (rvtiVLCEncodeLP_JPEGXR_32s1u(res, st, lps.p(), lps.len(), &lps.pos) != rvtStatusOk) return fail("LP");
  if (adaptNow) rvtiVLCAdapt_JPEGXR(st, 1 | 2);

  // the HP orientation from the LP energies: 0 from the left, 1 from the
  // top, 2 none
  int acMode;
  {
    int64_t sh = 0, sv = 0;
    for (int k = 0; k < 3; ++k) {
      sh += std::abs(int64_t(actual[kRowPos[k]]));
      sv += std::abs(int64_t(actual[kColPos[k]]));
    }
    auto a = [actual](int at) { return std::abs(int64_t(actual[at])); };
    if (sub_) {
      sh += a(17) + a(33);
      sv += a(18) + a(34);
      if (format_ == k422) {
        sv += a(22) + a(38);
        sh += a(21) + a(37);
      }
    } else if (format_ != kYOnly) {
      sh += a(16 + kRowPos[0]) + a(32 + kRowPos[0]);
      sv += a(16 + kColPos[0]) + a(32 + kColPos[0]);
    }
    acMode = sh * 4 < sv ? 1 : sv * 4 < sh ? 0 : 2;
  }
  PredInfo& me = row[size_t(i)];
  KeepForPrediction(me, actual, nc_, sub_);

  // HP: the blocks' coefficients (block b row by row, k = 4 row + column),
  // quantized, less their prediction inside the macroblock
  int32_t hp[16 * 256];
  int32_t tables[22], disc[44], bits[6];
  rvtiVLCGetTables_JPEGXR(st, tables, disc, bits);
  for (int ch = 0; ch < nc_; ++ch) {
    int32_t* p = hp + 256 * ch;
    const int bw = BlocksWide(ch), bh = BlocksHigh(ch), nb = bw * bh;
    const Quantizer hq = hpQ_[size_t(ch)];
    // the macroblock's blocks lie one after another (DCs quantized too,
    // then dropped)
    int32_t quantized[256];
    const int32_t* all = Block(ch, mx, my, 0, 0);
    if (hq.step != 1) {
      QuantizeSpan(all, quantized, 16 * nb, double(hq.step), double(hq.bias));
      all = quantized;
    }
    for (int b = 0; b < nb; ++b) {
      const int32_t* blk = all + 16 * ((b % bw) * bh + b / bw);
      int32_t* q = p + 16 * b;
      BlockToRows(blk, q, 4);
      q[0] = 0;
    }
    if (acMode == 0) {
      for (int by = 0; by < bh; ++by) {
        for (int bx = bw - 1; bx >= 1; --bx) {
          for (int k : kRowPos) p[16 * (bw * by + bx) + k] -= p[16 * (bw * by + bx - 1) + k];
        }
      }
    } else if (acMode == 1) {
      for (int by = bh - 1; by >= 1; --by) {
        for (int bx = 0; bx < bw; ++bx) {
          for (int k : kColPos) p[16 * (bw * by + bx) + k] -= p[16 * (bw * by + bx - bw) + k];
        }
      }
    }
    // which blocks keep a coded part above the model bits
    const int mb = bits[4 + (ch > 0)];
    me.cbp[ch] = 0;
    for (int b = 0; b < nb; ++b) {
      // the largest magnitude passes the model bits exactly when their OR
      // does (the DC place holds 0)
      if ((MagnitudeOr(p + 16 * b) >> mb) != 0) me.cbp[ch] |= 1 << b;
    }
  }
  if (resetScan) rvtiVLCAdapt_JPEGXR(st, 16);
  if (rvtiVLCEncodeCBPHP_JPEGXR_32s1u(me.cbp, l ? l->cbp : nullptr, t ? t->cbp : nullptr, st, hps.p(), hps.len(),
                                      &hps.pos) != rvtStatusOk) {
    return fail("HP pattern");
  }
  int32_t cbp[16];
  const RvtResult r =
      fls ? rvtiVLCEncodeHP_JPEGXR_32s1u(hp, acMode == 1 ? 1 : 0, st, cbp, hps.p(), hps.len(), &hps.pos, fls->p(),
                                         fls->len(), &fls->pos, 0)
          : rvtiVLCEncodeHP_JPEGXR_32s1u(hp, acMode == 1 ? 1 : 0, st, cbp, hps.p(), hps.len(), &hps.pos, nullptr, 0,
                                         nullptr, 0);
  if (r != rvtStatusOk) return fail("HP");
  for (int ch = 0; ch < nc_; ++ch) {
    if (cbp[ch] != me.cbp[ch]) return fail("HP pattern (mismatch)");
  }
  if (adaptNow) rvtiVLCAdapt_JPEGXR(st, 4);
  return true;
}

// Macroblock row my of every tile column, each into its tile's packets:
// a tile's coder starts (its packet headers, a fresh context) at the
// tile's first row and finishes its packets after its last.
bool Encoder::CodeRow(int my, std::vector<std::vector<Stream>>& packets, std::string* error) {
  const int cols = int(tileX_.size());
  const int ty = int(std::upper_bound(tileY_.begin(), tileY_.end(), my) - tileY_.begin()) - 1;
  const int y0 = tileY_[size_t(ty)];
  const int y1 = size_t(ty + 1) < tileY_.size() ? tileY_[size_t(ty + 1)] : mbh_;
  dcsFrom_ = dcsTo_ = 0;
  for (int tx = 0; tx < cols; ++tx) {
    TileCoder& tc = coders_[size_t(tx)];
    auto* st = reinterpret_cast<VLCState_JPEGXR*>(tc.state.data());
    std::vector<Stream>& bands = packets[size_t(ty * cols + tx)];
    const int x0 = tileX_[size_t(tx)];
    const int x1 = tx + 1 < cols ? tileX_[size_t(tx + 1)] : mbw_;
    if (my == y0) {
      if (rvtiVLCInit_JPEGXR(format_, nc_, st, stateSize_) != rvtStatusOk) {
        *error = "coefficient coder refused the colour format";
        return false;
      }
      // packet headers: a start code and the tile's number with the band
      const int tileIndex = ty * cols + tx;
      for (size_t k = 0; k < bands.size(); ++k) {
        Stream& s = bands[k];
        s.Reserve();
        const uint32_t id = uint32_t(tileIndex << 3) | (opt_.spatial ? 0u : uint32_t(k + 1));
        rvtiFLCWrite_JPEGXR_32u1u(1, 24, s.p(), s.len(), &s.pos);
        rvtiFLCWrite_JPEGXR_32u1u(id & 0xFF, 8, s.p(), s.len(), &s.pos);
      }
      tc.row.assign(size_t(x1 - x0), PredInfo{});
      tc.prev.assign(size_t(x1 - x0), PredInfo{});
    }
    for (int mx = x0; mx < x1; ++mx) {
      if (!Macroblock(st, mx, my, x0, y0, x1 - x0, bands, tc.row, tc.prev, error)) return false;
    }
    std::swap(tc.row, tc.prev);
    if (my == y1 - 1) {
      for (Stream& s : bands) s.Finish();
    }
  }
  return true;
}

// Start of each of n equal parts of m macroblocks (the first ones larger).
std::vector<int> Split(int m, int n) {
  std::vector<int> at;
  for (int k = 0, x = 0; k < n; ++k) {
    at.push_back(x);
    x += (m - x + (n - k) - 1) / (n - k);
  }
  return at;
}

bool Encoder::Run(std::vector<uint8_t>* out, std::string* error) {
  const Picture& p = pic_;
  if (p.width < 1 || p.height < 1 ||
      (bytes_ ? p.bits != 8 || !p.samples.empty()
              : p.samples.size() != size_t(p.width) * p.height * size_t(p.channels))) {
    *error = "empty or inconsistent picture";
    return false;
  }
  if (p.channels != 1 && p.channels != 3) {
    *error = "only grey and RGB pictures can be encoded";
    return false;
  }
  if (p.bits != 8 && p.bits != 16) {
    *error = "only 8- and 16-bit samples can be encoded";
    return false;
  }
  if (opt_.quality < 1 || opt_.quality > 255) {
    *error = "quality must be 1..255";
    return false;
  }
  if (opt_.overlap < 0 || opt_.overlap > 2) {
    *error = "overlap must be 0, 1 or 2";
    return false;
  }
  if (opt_.chroma != 444 && opt_.chroma != 422 && opt_.chroma != 420) {
    *error = "chroma must be 444, 422 or 420";
    return false;
  }
  if (p.width > (1 << 16) || p.height > (1 << 16)) {
    *error = "images larger than 65536 pixels a side are not supported";
    return false;
  }
  mbw_ = (p.width + 15) / 16;
  mbh_ = (p.height + 15) / 16;
  if (opt_.tileCols < 1 || opt_.tileRows < 1 || opt_.tileCols > mbw_ || opt_.tileRows > mbh_ ||
      opt_.tileCols > 4096 || opt_.tileRows > 4096) {
    *error = "tiles must hold at least one macroblock each";
    return false;
  }
  format_ = p.channels == 1 ? kYOnly : opt_.chroma == 420 ? k420 : opt_.chroma == 422 ? k422 : k444;
  sub_ = format_ == k420 || format_ == k422;
  if (sub_ && opt_.overlap == 2 && mbw_ < 2) {
    // the decoders' corner correction at the DC level loses a value there
    *error = "4:2:2 and 4:2:0 with overlap 2 need an image at least 17 pixels wide";
    return false;
  }
  nc_ = p.channels;
  index_ = opt_.quality == 1 ? 0 : opt_.quality;
  scaled_ = index_ != 0;
  for (int ch = 0; ch < nc_; ++ch) {
    dcStep_[size_t(ch)] = lpStep_[size_t(ch)] = StepOf(index_, ch > 0 ? 0 : 1, scaled_);
    hpStep_[size_t(ch)] = StepOf(index_, 1, scaled_);
    dcQ_[size_t(ch)] = Quantizer(dcStep_[size_t(ch)], true);
    lpQ_[size_t(ch)] = Quantizer(lpStep_[size_t(ch)], false);
    hpQ_[size_t(ch)] = Quantizer(hpStep_[size_t(ch)], false);
  }
  tileX_ = Split(mbw_, opt_.tileCols);
  tileY_ = Split(mbh_, opt_.tileRows);
  if (rvtiVLCGetStateSize_JPEGXR(format_, nc_, &stateSize_) != rvtStatusOk) {
    *error = "colour format not supported by the coefficient coder";
    return false;
  }
  const int nb = opt_.spatial ? 1 : 4;
  const int cols = int(tileX_.size()), rows = int(tileY_.size());
  coders_.resize(size_t(cols));
  for (TileCoder& tc : coders_) tc.state.assign(size_t(stateSize_), 0);
  // tiles' packets, by tile and band
  std::vector<std::vector<Stream>> packets(size_t(cols) * rows);
  for (auto& bands : packets) bands.resize(size_t(nb));

  const int pw = mbw_ * 16;
  // rows with two mirrored samples before and after, for the chroma
  // filter, and 4:2:x luma's band of four
  lin_.assign(size_t(pw + 4) * 3 + size_t(pw) * 4, 0);
  dcs_.assign(size_t(nc_) * 4 * size_t(pw / 4), 0);
  // Macroblock row by row: the pixels of row my in, the forward transform
  // as far as they allow, then row my - 1 coded.  4:2:0 chroma rows lag a
  // pixel row, so 4:2:x images load a row ahead into a third slot.
  slots_ = sub_ ? 3 : 2;
  planes_.assign(size_t(nc_), {});
  std::vector<ForwardRows> fwd;
  for (int c = 0; c < nc_; ++c) {
    const int chroma = c > 0 && sub_ ? opt_.chroma : 0;
    rowLen_[size_t(c)] = size_t(mbw_) * (chroma == 420 ? 64 : chroma == 422 ? 128 : 256);
    planes_[size_t(c)].resize(size_t(slots_) * rowLen_[size_t(c)]);
    fwd.emplace_back(mbw_, mbh_, opt_.overlap, chroma);
  }
  if (sub_) {
    ring_.assign(size_t(pw / 2) * 16, 0);
    line_.assign(size_t(pw / 2), 0);
  }
  for (int my = 0; my <= mbh_; ++my) {
    if (my < mbh_) {
      if (sub_) LoadSubsampled(std::min(16 * my + 17, 16 * mbh_));
      else LoadRow(my);
    }
    for (int c = 0; c < nc_; ++c) fwd[size_t(c)].Row(Row(c, my + slots_ - 1), Row(c, my), Row(c, my + 1), my);
    if (my > 0 && !CodeRow(my - 1, packets, error)) return false;
  }

  // image header
  out->clear();
  static const char kSig[8] = {'W', 'M', 'P', 'H', 'O', 'T', 'O', 0};
  out->insert(out->end(), kSig, kSig + 8);
  BitWriter b{out};
  const bool tiling = cols * rows > 1;
  const int maxTile = std::max(mbw_ - tileX_.back(), mbh_ - tileY_.back());
  const bool shortHeader = p.width <= (1 << 16) && p.height <= (1 << 16) && maxTile <= 255 &&
                           (cols < 2 || tileX_[1] <= 255) && (rows < 2 || tileY_[1] <= 255);
  b.Put(1, 4);  // version
  b.Put(1, 4);  // subversion: the finer overlap filters
  b.Put(tiling, 1);
  b.Put(!opt_.spatial, 1);
  b.Put(0, 3);  // orientation
  b.Put(1, 1);  // index table
  b.Put(uint32_t(opt_.overlap), 2);
  b.Put(shortHeader, 1);
  b.Put(1, 1);  // long words
  b.Put(0, 1);  // windowing
  b.Put(0, 1);  // trimmed flexbits
  b.Put(0, 1);  // tile stretching
  b.Put(0, 1);  // red and blue order
  b.Put(0, 1);  // reserved
  b.Put(0, 1);  // alpha
  b.Put(nc_ == 3 ? 7 : 0, 4);
  b.Put(p.bits == 8 ? 1 : 2, 4);
  const int wordBits = shortHeader ? 16 : 32;
  b.Put(uint32_t(p.width - 1), wordBits);
  b.Put(uint32_t(p.height - 1), wordBits);
  if (tiling) {
    b.Put(uint32_t(cols - 1), 12);
    b.Put(uint32_t(rows - 1), 12);
    for (int k = 1; k < cols; ++k) b.Put(uint32_t(tileX_[size_t(k)] - tileX_[size_t(k - 1)]), shortHeader ? 8 : 16);
    for (int k = 1; k < rows; ++k) b.Put(uint32_t(tileY_[size_t(k)] - tileY_[size_t(k - 1)]), shortHeader ? 8 : 16);
  }
  b.Align();
  // image plane header
  b.Put(uint32_t(format_), 3);
  b.Put(scaled_, 1);
  b.Put(0, 4);                  // every band coded
  if (format_ != kYOnly) b.Put(0, 8);  // chroma centred on the even samples
  if (p.bits == 16) b.Put(0, 8);  // no shift of the samples
  b.Put(1, 1);                  // DC: one quantizer for the image
  if (nc_ > 1) b.Put(0, 2);     // the same index for every channel
  b.Put(uint32_t(index_), 8);
  b.Put(1, 1);                  // LP as DC
  b.Put(0, 1);                  // HP its own (finer chroma steps)
  b.Put(1, 1);
  if (nc_ > 1) b.Put(0, 2);
  b.Put(uint32_t(index_), 8);
  b.Align();
  // index table: where each packet starts, from the end of the table
  b.Put(1, 16);
  uint64_t at = 0;
  // packets go band by band
  std::vector<uint64_t> offset(packets.size() * size_t(nb));
  for (int k = 0; k < nb; ++k) {
    for (size_t t = 0; t < packets.size(); ++t) {
      offset[t * size_t(nb) + size_t(k)] = at;
      at += packets[t][size_t(k)].bytes.size();
    }
  }
  for (uint64_t o : offset) PutVlw(b, o);
  PutVlw(b, 0);  // nothing between the table and the packets
  out->reserve(out->size() + at + kContainerRoom);
  for (int k = 0; k < nb; ++k) {
    for (auto& bands : packets) out->insert(out->end(), bands[size_t(k)].bytes.begin(), bands[size_t(k)].bytes.end());
  }
  return true;
}

void Le16(std::vector<uint8_t>& o, uint32_t v) {
  o.push_back(uint8_t(v));
  o.push_back(uint8_t(v >> 8));
}
void Le32(std::vector<uint8_t>& o, uint32_t v) {
  Le16(o, v & 0xFFFF);
  Le16(o, v >> 16);
}

}  // namespace

bool EncodeImage(const Picture& pic, const EncodeOptions& opt, std::vector<uint8_t>* out, std::string* error) {
  Encoder e(pic, nullptr, opt);
  return e.Run(out, error);
}

namespace {

// The container around the coded image (which it takes, its header going
// in front of it: Run leaves room for that).
bool Contain(const Picture& pic, std::vector<uint8_t>&& image, std::vector<uint8_t>* out, std::string* error);

}  // namespace

bool EncodeFile(const Picture& pic, const EncodeOptions& opt, std::vector<uint8_t>* out, std::string* error) {
  std::vector<uint8_t> image;
  return EncodeImage(pic, opt, &image, error) && Contain(pic, std::move(image), out, error);
}

bool EncodeFile8(const Picture& shape, const uint8_t* pixels, const EncodeOptions& opt, std::vector<uint8_t>* out,
                 std::string* error) {
  std::vector<uint8_t> image;
  Encoder e(shape, pixels, opt);
  return e.Run(&image, error) && Contain(shape, std::move(image), out, error);
}

namespace {

// The container: header, the pixel format identifier, one directory with
// its entries in ascending tag order, then the coded image.
bool Contain(const Picture& pic, std::vector<uint8_t>&& image, std::vector<uint8_t>* out, std::string* error) {
  if (image.size() > 0xFFFFFF00u) {
    *error = "coded image too large for the container";
    return false;
  }
  // pixel formats: the identifiers share all but their last byte
  static const uint8_t kFormat[15] = {0x24, 0xc3, 0xdd, 0x6f, 0x03, 0x4e, 0xfe, 0x4b,
                                      0xb1, 0x85, 0x3d, 0x77, 0x76, 0x8d, 0xc9};
  const uint8_t last = pic.channels == 1 ? (pic.bits == 8 ? 0x08 : 0x0b) : (pic.bits == 8 ? 0x0d : 0x15);
  std::vector<uint8_t> o{'I', 'I', 0xBC, 0x01};
  Le32(o, 0x20);
  o.insert(o.end(), kFormat, kFormat + 15);
  o.push_back(last);
  o.resize(0x20, 0);
  const uint32_t entries = 8;
  const uint32_t imageAt = 0x20 + 2 + entries * 12 + 4;
  static_assert(imageAt <= kContainerRoom);
  Le16(o, entries);
  auto entry = [&](uint32_t tag, uint32_t type, uint32_t count, uint32_t value) {
    Le16(o, tag);
    Le16(o, type);
    Le32(o, count);
    Le32(o, value);
  };
  entry(0xBC01, 1, 16, 8);                  // pixel format
  entry(0xBC02, 4, 1, 0);                   // no rotation or flip
  entry(0xBC80, 4, 1, uint32_t(pic.width));
  entry(0xBC81, 4, 1, uint32_t(pic.height));
  entry(0xBC82, 11, 1, 0x42C00000u);        // 96 dpi, as a float
  entry(0xBC83, 11, 1, 0x42C00000u);
  entry(0xBCC0, 4, 1, imageAt);
  entry(0xBCC1, 4, 1, uint32_t(image.size()));
  Le32(o, 0);  // no further directory
  image.insert(image.begin(), o.begin(), o.end());
  *out = std::move(image);
  return true;
}

}  // namespace
}  // namespace rvtjxr
