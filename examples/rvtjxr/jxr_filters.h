// rvtjxr's inverse transform stage: the overlap post filters of both
// levels around the first-level inverse transform, over one channel held
// in macroblock order.
//
// Layout: macroblock (x, y) of a channel sits at 256 * (y * mbw + x); in
// it block (bx, by) at 16 * (4 bx + by), column by column; in a block, the
// element of row r, column c (a pixel, or the coefficient the photo core
// transform exports put at 4 r + c) at kInBlock[r][c].  Keeping blocks and
// 2x2 quads contiguous lets every filter window be a few fixed offsets.
#ifndef RVTJXR_JXR_FILTERS_H_
#define RVTJXR_JXR_FILTERS_H_

#include <cstddef>
#include <cstdint>
#include <vector>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace rvtjxr {

inline constexpr uint8_t kInBlock[4][4] = {{0, 1, 5, 4}, {2, 3, 7, 6}, {10, 11, 15, 14}, {8, 9, 13, 12}};

// Block p of the layout into rows r of raster order (row r at out + r
// stride), and back.  Each raster row takes two elements of each of two
// layout quarters, so a row is one two-source shuffle.
inline void BlockToRows(const int32_t* p, int32_t* out, ptrdiff_t stride) {
#if defined(__SSE2__)
  const __m128 a = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
  const __m128 b = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4)));
  const __m128 c = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8)));
  const __m128 d = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)));
  auto put = [](int32_t* o, __m128 v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_castps_si128(v)); };
  put(out, _mm_shuffle_ps(a, b, _MM_SHUFFLE(0, 1, 1, 0)));
  put(out + stride, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 3, 3, 2)));
  put(out + 2 * stride, _mm_shuffle_ps(c, d, _MM_SHUFFLE(2, 3, 3, 2)));
  put(out + 3 * stride, _mm_shuffle_ps(c, d, _MM_SHUFFLE(0, 1, 1, 0)));
#else
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < 4; ++k) out[r * stride + k] = p[kInBlock[r][k]];
  }
#endif
}
inline void RowsToBlock(const int32_t* in, ptrdiff_t stride, int32_t* p) {
#if defined(__SSE2__)
  auto get = [](const int32_t* i) { return _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(i))); };
  auto put = [](int32_t* o, __m128 v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_castps_si128(v)); };
  const __m128 r0 = get(in), r1 = get(in + stride), r2 = get(in + 2 * stride), r3 = get(in + 3 * stride);
  put(p, _mm_shuffle_ps(r0, r1, _MM_SHUFFLE(1, 0, 1, 0)));
  put(p + 4, _mm_shuffle_ps(r0, r1, _MM_SHUFFLE(2, 3, 2, 3)));
  put(p + 8, _mm_shuffle_ps(r3, r2, _MM_SHUFFLE(1, 0, 1, 0)));
  put(p + 12, _mm_shuffle_ps(r3, r2, _MM_SHUFFLE(2, 3, 2, 3)));
#else
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < 4; ++k) p[kInBlock[r][k]] = in[r * stride + k];
  }
#endif
}

// Four 8-lane vectors, one 4x4 window a half: 4x4 transposes within each
// 128-bit half, element k of row w to element w of row k (its own
// inverse).  The batched overlap filters of both directions (eight windows
// at a time, one a lane) load and store through it.
typedef int32_t V8i __attribute__((vector_size(32)));
inline void TransposeHalves(const V8i* in, V8i* out) {
  const V8i t0 = __builtin_shufflevector(in[0], in[1], 0, 8, 1, 9, 4, 12, 5, 13);
  const V8i t1 = __builtin_shufflevector(in[0], in[1], 2, 10, 3, 11, 6, 14, 7, 15);
  const V8i t2 = __builtin_shufflevector(in[2], in[3], 0, 8, 1, 9, 4, 12, 5, 13);
  const V8i t3 = __builtin_shufflevector(in[2], in[3], 2, 10, 3, 11, 6, 14, 7, 15);
  out[0] = __builtin_shufflevector(t0, t2, 0, 1, 8, 9, 4, 5, 12, 13);
  out[1] = __builtin_shufflevector(t0, t2, 2, 3, 10, 11, 6, 7, 14, 15);
  out[2] = __builtin_shufflevector(t1, t3, 0, 1, 8, 9, 4, 5, 12, 13);
  out[3] = __builtin_shufflevector(t1, t3, 2, 3, 10, 11, 6, 7, 14, 15);
}

// Index of pixel (x, y) of a channel `mbw` macroblocks wide.
inline size_t PixelAt(int x, int y, int mbw) {
  return (size_t(y >> 4) * mbw + size_t(x >> 4)) * 256 + size_t(16 * (4 * ((x & 15) >> 2) + ((y & 15) >> 2))) +
         kInBlock[y & 3][x & 3];
}

// The photo core transform's inverse of one 4x4 block in raster order
// (d[4 r + c]): rvtiPCTInv_JPEGXR_32s_C1IR's result, without the vector
// set-up a lone block costs the library.  The decoder's second level.
void InverseBlock(int32_t* d);

// The first-level inverse transform (the library's of block runs) of n
// blocks one after another from p, each in raster order (p[16 i + 4 r +
// c]), leaving them in the layout (kInBlock's order).
void InverseRasterBlocks(int32_t* p, int n);
// n blocks in raster order from `from` into the layout's order at `to`
// (the same place or apart), one shuffle a half: kInBlock keeps rows 0-1
// in the first eight places and rows 2-3 in the last eight.
void RasterToLayout(const int32_t* from, int n, int32_t* to);

// Runs the first-level inverse transform of every block (through the
// library's photo core transform of block runs) and, for overlap 1 and 2, the post
// filters; overlap 2 also filters the block DCs first.  The blocks' DCs
// must already hold the second-level inverse transform's output.  `fine`:
// the filters of codec subversion 1 and up (finer scaling, image corners
// filtered); else those of subversion 0, where hpStep[m], the HP step of
// macroblock m in raster order, decides (as jxrlib's decoder does) whether
// a window gets a DC compensation, always made when hpAbsent.
void InverseTransform(int32_t* channel, int mbw, int mbh, int overlap, bool fine,
                      const std::vector<int32_t>& hpStep, bool hpAbsent);

// One corner row of InverseTransform: row y (0..mbh) finishes macroblock
// row y - 1 (at `above`) and reads row y (at `here`), which must be
// decoded; only rows inside the image are touched.  Rows run 0, 1, ...,
// mbh give InverseTransform's result, so a decoder can keep just the two
// rows, and work on them while they are in cache.
void InverseTransformRow(int32_t* above, int32_t* here, int mbw, int mbh, int overlap, bool fine,
                         const std::vector<int32_t>& hpStep, bool hpAbsent, int y);

// Corners x0..x1 - 1 of row y of InverseTransformRow: a row's corners
// run in spans, in order, give its result.  Corner x reads macroblocks
// x - 1 and x of both rows only, so a decoder can run it as soon as
// macroblock x is decoded, while that is still in cache.
// `transformed`: the blocks hold their first-level inverse transforms
// already (a decoder without DC filters, overlap 0 or 1, may run them as
// each macroblock is placed, InverseRasterBlocks); only the filters run.
void InverseTransformRowSpan(int32_t* above, int32_t* here, int mbw, int mbh, int overlap, bool fine,
                             const std::vector<int32_t>& hpStep, bool hpAbsent, int y, int x0, int x1,
                             bool transformed = false);

// The same for a 4:2:0 (8x8 macroblocks, 2x2 blocks: block (bx, by) at
// 16 * (2 bx + by), macroblock (x, y) at 64 * (y * mbw + x)) or 4:2:2 (8
// wide by 16 high, 2x4 blocks: 16 * (4 bx + by), 128 elements a
// macroblock) chroma channel.  Its block DCs hold the second-level inverse
// transform's output.  hpStep: the HP steps the DC compensation of
// subversion 0 reads (jxrlib takes those of the channel before: luma's for
// the first chroma channel, the first chroma channel's for the second).
void InverseTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                            const std::vector<int32_t>& hpStep, bool hpAbsent);

// One corner row of InverseTransformChroma (rows 0..mbh in turn give its
// result): row y finishes macroblock row y - 1; only rows y - 1 and y of
// `channel` are touched, so they may sit in a window of a few rows.
void InverseTransformChromaRow(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                               const std::vector<int32_t>& hpStep, bool hpAbsent, int y, bool transformed = false);

// Index of pixel (x, y) of a chroma channel laid out as above.
inline size_t ChromaAt(int x, int y, int mbw, bool is420) {
  if (is420) {
    return (size_t(y >> 3) * mbw + size_t(x >> 3)) * 64 + size_t(16 * (2 * ((x & 7) >> 2) + ((y & 7) >> 2))) +
           kInBlock[y & 3][x & 3];
  }
  return (size_t(y >> 4) * mbw + size_t(x >> 3)) * 128 + size_t(16 * (4 * ((x & 7) >> 2) + ((y & 15) >> 2))) +
         kInBlock[y & 3][x & 3];
}

}  // namespace rvtjxr

#endif  // RVTJXR_JXR_FILTERS_H_
