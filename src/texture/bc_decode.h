// Decoding of BC1 to BC5 (DXT1, DXT3, DXT5, BC4, BC5) texture blocks over
// whole regions: the scalar reference of every block format, the argument
// checks and the region walk, shared by every target.
#ifndef RVT_TEXTURE_BC_DECODE_H_
#define RVT_TEXTURE_BC_DECODE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "rvtcore.h"
#include "rvtjp.h"

namespace rvt::bc_decode {

// ------------------------------------------------------------ reference

// A 5-6-5 colour expanded to 8 bits per channel by replicating top bits.
inline void Expand565(uint16_t c, uint8_t rgb[3]) {
  const int r = c >> 11, g = (c >> 5) & 63, b = c & 31;
  rgb[0] = uint8_t(r << 3 | r >> 2);
  rgb[1] = uint8_t(g << 2 | g >> 4);
  rgb[2] = uint8_t(b << 3 | b >> 2);
}

// The four RGBA entries of a colour part (c0, c1, index word).  Entries 2
// and 3 truncate.  With `three_colour` and c0 <= c1, entry 2 is the mean and
// entry 3 opaque white (DXT1 only); DXT3 and DXT5 always take four colours.
// `alpha` goes in every entry but the three-colour white.
inline void ColourPalette(const uint8_t* part, bool three_colour, uint8_t alpha,
                          uint8_t pal[4][4]) {
  const uint16_t c0 = uint16_t(part[0] | part[1] << 8), c1 = uint16_t(part[2] | part[3] << 8);
  Expand565(c0, pal[0]);
  Expand565(c1, pal[1]);
  const bool four = !three_colour || c0 > c1;
  for (int k = 0; k < 3; ++k) {
    const int a = pal[0][k], b = pal[1][k];
    pal[2][k] = uint8_t(four ? (2 * a + b) / 3 : (a + b) >> 1);
    pal[3][k] = uint8_t(four ? (a + 2 * b) / 3 : 255);
  }
  pal[0][3] = pal[1][3] = pal[2][3] = alpha;
  pal[3][3] = four ? alpha : 255;
}

// The eight entries of a DXT5 alpha part or a BC4 channel block: six
// rounded interpolants when e0 > e1, else four and the fixed 0 and 255.
inline void ChannelPalette(uint8_t e0, uint8_t e1, uint8_t pal[8]) {
  pal[0] = e0;
  pal[1] = e1;
  if (e0 > e1) {
    for (int i = 1; i <= 6; ++i) pal[i + 1] = uint8_t(((7 - i) * e0 + i * e1 + 3) / 7);
  } else {
    for (int i = 1; i <= 4; ++i) pal[i + 1] = uint8_t(((5 - i) * e0 + i * e1 + 2) / 5);
    pal[6] = 0;
    pal[7] = 255;
  }
}

// The 16 pixels of a channel block (8 bytes), in row order, `stride` bytes
// apart in `out`.
inline void ChannelBlock(const uint8_t* blk, uint8_t* out, int stride) {
  uint8_t pal[8];
  ChannelPalette(blk[0], blk[1], pal);
  uint64_t bits = 0;
  for (int i = 0; i < 6; ++i) bits |= uint64_t(blk[2 + i]) << (8 * i);
  for (int p = 0; p < 16; ++p) out[p * stride] = pal[(bits >> (3 * p)) & 7];
}

// The 16 RGBA pixels of a colour part, row order.
inline void ColourBlock(const uint8_t* part, bool three_colour, uint8_t alpha, uint8_t* out) {
  uint8_t pal[4][4];
  ColourPalette(part, three_colour, alpha, pal);
  const uint32_t idx = uint32_t(part[4] | part[5] << 8 | part[6] << 16 | uint32_t(part[7]) << 24);
  for (int p = 0; p < 16; ++p) std::memcpy(out + 4 * p, pal[(idx >> (2 * p)) & 3], 4);
}

// The block formats: bytes per block, bytes per pixel, and the reference
// decoding of one block into a 4x4 tile (rows of 4 * kPixel bytes).
struct Dxt1 {
  static constexpr int kBlock = 8, kPixel = 4;
  static void Tile(const uint8_t* blk, uint8_t* tile) { ColourBlock(blk, true, 255, tile); }
};
struct Dxt3 {
  static constexpr int kBlock = 16, kPixel = 4;
  static void Tile(const uint8_t* blk, uint8_t* tile) {
    ColourBlock(blk + 8, false, 0, tile);
    for (int p = 0; p < 16; ++p) tile[4 * p + 3] = uint8_t((blk[p / 2] >> (4 * (p & 1))) << 4);
  }
};
struct Dxt5 {
  static constexpr int kBlock = 16, kPixel = 4;
  static void Tile(const uint8_t* blk, uint8_t* tile) {
    ColourBlock(blk + 8, false, 0, tile);
    ChannelBlock(blk, tile + 3, 4);
  }
};
struct Bc4 {
  static constexpr int kBlock = 8, kPixel = 1;
  static void Tile(const uint8_t* blk, uint8_t* tile) { ChannelBlock(blk, tile, 1); }
};
struct Bc5 {
  static constexpr int kBlock = 16, kPixel = 2;
  static void Tile(const uint8_t* blk, uint8_t* tile) {
    ChannelBlock(blk, tile, 2);
    ChannelBlock(blk + 8, tile + 1, 2);
  }
};

// Blocks `first` onwards of one block row: each decoded whole, its inside
// part (the region is `width` pixels wide, `rows` of the tile's rows are
// inside) stored.  The reference row, and the tail of the vector rows.
template <class F>
void BlocksRef(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows,
               int64_t first) {
  uint8_t tile[16 * F::kPixel];
  for (int64_t x = 4 * first; x < width; x += 4) {
    F::Tile(src + x / 4 * F::kBlock, tile);
    const size_t n = size_t(width - x < 4 ? width - x : 4) * F::kPixel;
    for (int r = 0; r < rows; ++r) {
      std::memcpy(dst + ptrdiff_t(r) * step + x * F::kPixel, tile + 4 * F::kPixel * r, n);
    }
  }
}
template <class F>
void RowRef(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  BlocksRef<F>(src, dst, step, width, rows, 0);
}

// ------------------------------------------------------------ checks

// Source, destination, the step (only 0 is refused: negative steps walk
// the destination upwards), then the region.
inline RvtResult Check(const uint8_t* src, const uint8_t* dst, int32_t step, ImageSize roi) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  if (step == 0) return rvtStatusStep;
  return CheckRoi(roi);
}

// ------------------------------------------------------------ driver

// One block row per call of kRow: its blocks (tightly packed, ceil(width / 4)
// of them), the destination of its first pixel row, and how many of its
// four pixel rows lie inside the region.
using RowFn = void (*)(const uint8_t*, uint8_t*, int32_t, int32_t, int);

template <class F, RowFn kRow>
RvtResult Region(const uint8_t* src, uint8_t* dst, int32_t step, ImageSize roi) {
  RVT_CHECK(Check(src, dst, step, roi));
  const size_t row_bytes = (size_t(roi.width) + 3) / 4 * F::kBlock;
  for (int32_t y = 0; y < roi.height; y += 4) {
    kRow(src + size_t(y / 4) * row_bytes, dst + ptrdiff_t(y) * step, step, roi.width,
         roi.height - y < 4 ? int(roi.height - y) : 4);
  }
  return rvtStatusOk;
}

// Regions whose traffic (blocks read and pixels written) is larger than
// the largest cache, with rows that start on 64-byte boundaries, take
// kStreamRow (non-temporal stores: the texture would only evict the
// caller's data on its way to memory).  Any arguments: a refused call is
// refused by either.
template <class F>
bool Streams(const uint8_t* dst, int32_t step, ImageSize roi) {
  if (roi.width < 1 || roi.height < 1) return false;
  const int64_t blocks = (int64_t(roi.width) + 3) / 4 * ((int64_t(roi.height) + 3) / 4);
  const int64_t bytes = int64_t(roi.width) * roi.height * F::kPixel + blocks * F::kBlock;
  if (bytes < (int64_t(1) << 20) || ((reinterpret_cast<uintptr_t>(dst) | uint32_t(step)) & 63)) {
    return false;
  }
  int32_t cache = 0;
  return rvtGetMaxCacheSizeB(&cache) == rvtStatusOk && bytes >= cache;
}
template <class F, RowFn kRow, RowFn kStreamRow>
RvtResult RegionLarge(const uint8_t* src, uint8_t* dst, int32_t step, ImageSize roi) {
  return Streams<F>(dst, step, roi) ? Region<F, kStreamRow>(src, dst, step, roi)
                                    : Region<F, kRow>(src, dst, step, roi);
}

// The reference entries.
inline RvtResult Dxt1Ref(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return Region<Dxt1, RowRef<Dxt1>>(s, d, step, roi);
}
inline RvtResult Dxt3Ref(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return Region<Dxt3, RowRef<Dxt3>>(s, d, step, roi);
}
inline RvtResult Dxt5Ref(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return Region<Dxt5, RowRef<Dxt5>>(s, d, step, roi);
}
inline RvtResult Bc4Ref(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return Region<Bc4, RowRef<Bc4>>(s, d, step, roi);
}
inline RvtResult Bc5Ref(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return Region<Bc5, RowRef<Bc5>>(s, d, step, roi);
}

}  // namespace rvt::bc_decode

#endif  // RVT_TEXTURE_BC_DECODE_H_
