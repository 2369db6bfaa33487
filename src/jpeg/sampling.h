// Chroma sampling by two: box averages on the encoder side, the 3:1
// triangle filter on the decoder side.  Whole-region forms walk the rows of
// a destination region; row forms do one output row for a codec that keeps
// its own row pointers.  The scalar rows here define every result; the
// argument checks and the drivers live here too, so every target shares
// them.
//
// Reads are exactly what the outputs need, nothing past it, so callers can
// size their margins tightly:
//   down, whole region  2*dstWidth samples of each source row used
//   down, row           2*ceil(width/2) samples (one padding sample when odd)
//   up,   whole region  samples -1 .. dstWidth/2 of each source row used;
//                       H2V2 also rows -1 .. dstHeight/2
//   up,   row           samples 0 .. width-1 (edges replicate)
#ifndef RVT_JPEG_SAMPLING_H_
#define RVT_JPEG_SAMPLING_H_

#include <cstddef>
#include <cstdint>

#include "frame/checks.h"
#include "frame/threading.h"
#include "rvtjp.h"

namespace rvt::sampling {

// Row kernels.  Counts are ptrdiff_t so 2*width never overflows.
//   Down*:  n outputs, output i from source samples 2i and 2i+1.
//   Up*Pairs: for i in 0..n-1, outputs 2i and 2i+1 from source samples
//           i-1, i, i+1 (column sums of near and far rows for H2V2).
//   UpRow*: a whole row of the row exports, edges included, from w samples.
using DownH2V1Fn = void (*)(const uint8_t* s, uint8_t* d, ptrdiff_t n);
using DownH2V2Fn = void (*)(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n);
using UpH2V1Fn = void (*)(const uint8_t* s, uint8_t* d, ptrdiff_t n);
using UpH2V2Fn = void (*)(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t n);
// Output rows 2p (far row above) and 2p+1 (far row below) of source row mid.
using UpH2V2TwoFn = void (*)(const uint8_t* above, const uint8_t* mid, const uint8_t* below,
                             uint8_t* d0, uint8_t* d1, ptrdiff_t n);
using UpRowH2V1Fn = void (*)(const uint8_t* s, uint8_t* d, ptrdiff_t w);
using UpRowH2V2Fn = void (*)(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t w);

// ------------------------------------------------------------ reference

// One output of the triangle filters.  Even outputs lean on the left
// neighbour, odd outputs on the right one; the biases (1/2 horizontally,
// 8/7 in two dimensions) alternate so rounding errors do not drift.
inline uint8_t UpEven(const uint8_t* s, ptrdiff_t i) {
  return uint8_t((3 * s[i] + s[i - 1] + 1) >> 2);
}
inline uint8_t UpOdd(const uint8_t* s, ptrdiff_t i) {
  return uint8_t((3 * s[i] + s[i + 1] + 2) >> 2);
}
// Column sum of the two-dimensional filter: the near row weighs 3, the far 1.
inline int Col(const uint8_t* n, const uint8_t* f, ptrdiff_t j) { return 3 * n[j] + f[j]; }
inline uint8_t Up2Even(int c, int left) { return uint8_t((3 * c + left + 8) >> 4); }
inline uint8_t Up2Odd(int c, int right) { return uint8_t((3 * c + right + 7) >> 4); }

inline void DownH2V1RowRef(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) d[i] = uint8_t((s[2 * i] + s[2 * i + 1] + 1) >> 1);
}
// The bias of 3 makes this the ceiling of the mean.
inline void DownH2V2RowRef(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) {
    d[i] = uint8_t((u[2 * i] + u[2 * i + 1] + l[2 * i] + l[2 * i + 1] + 3) >> 2);
  }
}
// Box filters of the row forms: the bias alternates with the output index
// (0/1 for pairs, 1/2 for quads, even index first) so the mean is unbiased.
inline void DownBoxH2V1RowRef(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) d[i] = uint8_t((s[2 * i] + s[2 * i + 1] + (i & 1)) >> 1);
}
inline void DownBoxH2V2RowRef(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) {
    d[i] = uint8_t((u[2 * i] + u[2 * i + 1] + l[2 * i] + l[2 * i + 1] + 1 + (i & 1)) >> 2);
  }
}
inline void UpH2V1PairsRef(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) {
    d[2 * i] = UpEven(s, i);
    d[2 * i + 1] = UpOdd(s, i);
  }
}
inline void UpH2V2PairsRef(const uint8_t* n, const uint8_t* f, uint8_t* d, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const int c = Col(n, f, i);
    d[2 * i] = Up2Even(c, Col(n, f, i - 1));
    d[2 * i + 1] = Up2Odd(c, Col(n, f, i + 1));
  }
}
// The rows of the row exports spell out the edge rules output by output.
inline void UpRowH2V1RowRef(const uint8_t* s, uint8_t* d, ptrdiff_t w) {
  for (ptrdiff_t i = 0; i < w; ++i) {
    d[2 * i] = i == 0 ? s[0] : UpEven(s, i);
    d[2 * i + 1] = i == w - 1 ? s[w - 1] : UpOdd(s, i);
  }
}
inline void UpRowH2V2RowRef(const uint8_t* n, const uint8_t* f, uint8_t* d, ptrdiff_t w) {
  for (ptrdiff_t i = 0; i < w; ++i) {
    const int c = Col(n, f, i);
    d[2 * i] = i == 0 ? uint8_t((4 * c + 8) >> 4) : Up2Even(c, Col(n, f, i - 1));
    d[2 * i + 1] = i == w - 1 ? uint8_t((4 * c + 7) >> 4) : Up2Odd(c, Col(n, f, i + 1));
  }
}

// ------------------------------------------------------------ checks

// Region exports: src, srcStep, srcRoi (only checked to be positive: the
// destination size sets the work), dst, dstStep, then dstRoi width before
// height.
inline RvtResult CheckRegions(const uint8_t* src, int32_t srcStep, ImageSize srcRoi,
                              const uint8_t* dst, int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckPlane(src, srcStep));
  RVT_CHECK(CheckRoi(srcRoi));
  RVT_CHECK(CheckPlane(dst, dstStep));
  if (dstRoi.width < 1) return rvtStatusSize;
  if (dstRoi.height < 1) return rvtStatusSize;
  return rvtStatusOk;
}

// Row exports: every row pointer in argument order, then the width.
inline RvtResult CheckRow(const uint8_t* src, int32_t width, const uint8_t* dst) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  return width < 1 ? rvtStatusSize : rvtStatusOk;
}
inline RvtResult CheckRows(const uint8_t* src1, const uint8_t* src2, int32_t width,
                           const uint8_t* dst) {
  RVT_CHECK(CheckPtr(src1));
  return CheckRow(src2, width, dst);
}

// ------------------------------------------------------------ drivers
// Each checks, then runs its row kernel once per destination row.  The
// region forms DownH2V1, DownH2V2 and UpH2V2 follow the threading rule;
// UpH2V1 runs on the calling thread.

template <DownH2V1Fn kRow>
RvtResult DownH2V1Region(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                         int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckRegions(src, srcStep, srcRoi, dst, dstStep, dstRoi));
  ForEachRow(dstRoi, [&](int y) {
    kRow(RowPtr(src, srcStep, y), RowPtr(dst, dstStep, y), dstRoi.width);
  });
  return rvtStatusOk;
}

template <DownH2V2Fn kRow>
RvtResult DownH2V2Region(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                         int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckRegions(src, srcStep, srcRoi, dst, dstStep, dstRoi));
  ForEachRow(dstRoi, [&](int y) {
    const uint8_t* u = RowPtr(RowPtr(src, srcStep, y), srcStep, y);  // row 2y, no int overflow
    kRow(u, RowPtr(u, srcStep, 1), RowPtr(dst, dstStep, y), dstRoi.width);
  });
  return rvtStatusOk;
}

// A destination row of odd width ends on an even output, which needs no
// sample to its right.
template <UpH2V1Fn kPairs>
RvtResult UpH2V1Region(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                       int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckRegions(src, srcStep, srcRoi, dst, dstStep, dstRoi));
  const ptrdiff_t width = dstRoi.width;
  for (int y = 0; y < dstRoi.height; ++y) {
    const uint8_t* s = RowPtr(src, srcStep, y);
    uint8_t* d = RowPtr(dst, dstStep, y);
    kPairs(s, d, width / 2);
    if (width & 1) d[width - 1] = UpEven(s, width / 2);
  }
  return rvtStatusOk;
}

// Output row r lies nearest source row r/2; its far row is the one above
// for even r and below for odd r, with no clamping at the region's edges.
template <UpH2V2Fn kPairs>
RvtResult UpH2V2Region(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                       int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckRegions(src, srcStep, srcRoi, dst, dstStep, dstRoi));
  const ptrdiff_t width = dstRoi.width;
  ForEachRow(dstRoi, [&](int r) {
    const uint8_t* n = RowPtr(src, srcStep, r / 2);
    const uint8_t* f = RowPtr(n, srcStep, (r & 1) ? 1 : -1);
    uint8_t* d = RowPtr(dst, dstStep, r);
    kPairs(n, f, d, width / 2);
    if (width & 1) {
      const ptrdiff_t i = width / 2;
      d[width - 1] = Up2Even(Col(n, f, i), Col(n, f, i - 1));
    }
  });
  return rvtStatusOk;
}

// The same region two output rows at a time, both from one source row, so
// its samples are loaded once.  Split over threads by pairs under the rule
// of the whole region.
template <UpH2V2TwoFn kTwo>
RvtResult UpH2V2RegionByPairs(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                              int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckRegions(src, srcStep, srcRoi, dst, dstStep, dstRoi));
  const ptrdiff_t width = dstRoi.width;
  const int height = dstRoi.height, pairs = (height + 1) / 2;
  const auto pair = [&](int p) {
    const uint8_t* m = RowPtr(src, srcStep, p);
    const uint8_t* a = RowPtr(m, srcStep, -1);
    const uint8_t* b = RowPtr(m, srcStep, 1);
    uint8_t* d0 = RowPtr(dst, dstStep, 2 * p);
    const bool both = 2 * p + 1 < height;
    uint8_t* d1 = both ? RowPtr(d0, dstStep, 1) : nullptr;
    if (both) {
      kTwo(a, m, b, d0, d1, width / 2);
    } else {
      UpH2V2PairsRef(m, a, d0, width / 2);
    }
    if (width & 1) {
      const ptrdiff_t i = width / 2;
      d0[width - 1] = Up2Even(Col(m, a, i), Col(m, a, i - 1));
      if (both) d1[width - 1] = Up2Even(Col(m, b, i), Col(m, b, i - 1));
    }
  };
  if (int64_t(dstRoi.width) * height <= kSerialPixels) {
    for (int p = 0; p < pairs; ++p) pair(p);
    return rvtStatusOk;
  }
  const int threads = ownGetNumThreads();
#pragma omp parallel num_threads(threads)
  {
#pragma omp for schedule(static)
    for (int p = 0; p < pairs; ++p) pair(p);
  }
  return rvtStatusOk;
}

template <DownH2V1Fn kRow>
RvtResult DownRowH2V1(const uint8_t* src, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckRow(src, width, dst));
  kRow(src, dst, (ptrdiff_t(width) + 1) / 2);
  return rvtStatusOk;
}

template <DownH2V2Fn kRow>
RvtResult DownRowH2V2(const uint8_t* upper, const uint8_t* lower, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckRows(upper, lower, width, dst));
  kRow(upper, lower, dst, (ptrdiff_t(width) + 1) / 2);
  return rvtStatusOk;
}

template <UpRowH2V1Fn kRow>
RvtResult UpRowH2V1(const uint8_t* src, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckRow(src, width, dst));
  kRow(src, dst, width);
  return rvtStatusOk;
}

template <UpRowH2V2Fn kRow>
RvtResult UpRowH2V2(const uint8_t* near, const uint8_t* far, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckRows(near, far, width, dst));
  kRow(near, far, dst, width);
  return rvtStatusOk;
}

// The up rows of the vector targets replicate the edge samples: the
// interior runs through the pair kernel, the two outer outputs at each end
// are done here.
template <UpH2V1Fn kPairs>
void UpRowH2V1Edges(const uint8_t* src, uint8_t* dst, ptrdiff_t w) {
  if (w == 1) {
    dst[0] = dst[1] = src[0];
    return;
  }
  dst[0] = src[0];
  dst[1] = UpOdd(src, 0);
  kPairs(src + 1, dst + 2, w - 2);
  dst[2 * w - 2] = UpEven(src, w - 1);
  dst[2 * w - 1] = src[w - 1];
}

template <UpH2V2Fn kPairs>
void UpRowH2V2Edges(const uint8_t* near, const uint8_t* far, uint8_t* dst, ptrdiff_t w) {
  const int first = Col(near, far, 0), last = Col(near, far, w - 1);
  dst[0] = Up2Even(first, first);
  dst[2 * w - 1] = Up2Odd(last, last);
  if (w == 1) return;
  dst[1] = Up2Odd(first, Col(near, far, 1));
  kPairs(near + 1, far + 1, dst + 2, w - 2);
  dst[2 * w - 2] = Up2Even(last, Col(near, far, w - 2));
}

// ------------------------------------------------------------ reference entries

inline RvtResult DownH2V1Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                             ImageSize dr) {
  return DownH2V1Region<DownH2V1RowRef>(s, ss, sr, d, ds, dr);
}
inline RvtResult DownH2V2Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                             ImageSize dr) {
  return DownH2V2Region<DownH2V2RowRef>(s, ss, sr, d, ds, dr);
}
inline RvtResult UpH2V1Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                           ImageSize dr) {
  return UpH2V1Region<UpH2V1PairsRef>(s, ss, sr, d, ds, dr);
}
inline RvtResult UpH2V2Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                           ImageSize dr) {
  return UpH2V2Region<UpH2V2PairsRef>(s, ss, sr, d, ds, dr);
}
inline RvtResult DownRowH2V1Ref(const uint8_t* s, int32_t w, uint8_t* d) {
  return DownRowH2V1<DownBoxH2V1RowRef>(s, w, d);
}
inline RvtResult DownRowH2V2Ref(const uint8_t* u, const uint8_t* l, int32_t w, uint8_t* d) {
  return DownRowH2V2<DownBoxH2V2RowRef>(u, l, w, d);
}
inline RvtResult UpRowH2V1Ref(const uint8_t* s, int32_t w, uint8_t* d) {
  return UpRowH2V1<UpRowH2V1RowRef>(s, w, d);
}
inline RvtResult UpRowH2V2Ref(const uint8_t* n, const uint8_t* f, int32_t w, uint8_t* d) {
  return UpRowH2V2<UpRowH2V2RowRef>(n, f, w, d);
}

}  // namespace rvt::sampling

#endif  // RVT_JPEG_SAMPLING_H_
