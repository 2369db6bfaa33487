// Chroma sampling by two: box averages on the encoder side, the 3:1
// triangle filter on the decoder side.  Whole-region forms walk the rows of
// a destination region; row forms do one output row for a codec that keeps
// its own row pointers.
//
// Reads are exactly what the outputs need, nothing past it, so callers can
// size their margins tightly:
//   down, whole region  2*dstWidth samples of each source row used
//   down, row           2*ceil(width/2) samples (one padding sample when odd)
//   up,   whole region  samples -1 .. dstWidth/2 of each source row used;
//                       H2V2 also rows -1 .. dstHeight/2
//   up,   row           samples 0 .. width-1 (edges replicate)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/sampling.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>

#include "frame/checks.h"
#include "frame/dispatch.h"
#include "frame/threading.h"

#ifndef RVT_JPEG_SAMPLING_ONCE
#define RVT_JPEG_SAMPLING_ONCE
namespace rvt {
namespace sampling {

// Row kernels.  Counts are ptrdiff_t so 2*width never overflows.
//   Down*:  n outputs, output i from source samples 2i and 2i+1.
//   Up*Pairs: for i in 0..n-1, outputs 2i and 2i+1 from source samples
//           i-1, i, i+1 (column sums of near and far rows for H2V2).
using DownH2V1Fn = void (*)(const uint8_t* s, uint8_t* d, ptrdiff_t n);
using DownH2V2Fn = void (*)(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n);
using UpH2V1Fn = void (*)(const uint8_t* s, uint8_t* d, ptrdiff_t n);
using UpH2V2Fn = void (*)(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t n);

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

// Region exports: checks in argument order, then one row kernel call per
// destination row.
inline RvtResult CheckRegions(const uint8_t* src, int32_t srcStep, ImageSize srcRoi,
                              const uint8_t* dst, int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckPlane(src, srcStep));
  RVT_CHECK(CheckRoi(srcRoi));
  RVT_CHECK(CheckPlane(dst, dstStep));
  if (dstRoi.width < 1) return rvtStatusSize;
  if (dstRoi.height < 1) return rvtStatusSize;
  return rvtStatusOk;
}

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
inline void UpH2V1RegionRow(UpH2V1Fn pairs, const uint8_t* s, uint8_t* d, ptrdiff_t width) {
  pairs(s, d, width / 2);
  if (width & 1) d[width - 1] = UpEven(s, width / 2);
}

template <UpH2V1Fn kPairs>
RvtResult UpH2V1Region(const uint8_t* src, int32_t srcStep, ImageSize srcRoi, uint8_t* dst,
                       int32_t dstStep, ImageSize dstRoi) {
  RVT_CHECK(CheckRegions(src, srcStep, srcRoi, dst, dstStep, dstRoi));
  for (int y = 0; y < dstRoi.height; ++y) {
    UpH2V1RegionRow(kPairs, RowPtr(src, srcStep, y), RowPtr(dst, dstStep, y), dstRoi.width);
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

// Row exports: every row pointer first, then the width.
template <DownH2V1Fn kRow>
RvtResult DownRowH2V1(const uint8_t* src, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  if (width < 1) return rvtStatusSize;
  kRow(src, dst, (ptrdiff_t(width) + 1) / 2);
  return rvtStatusOk;
}

template <DownH2V2Fn kRow>
RvtResult DownRowH2V2(const uint8_t* upper, const uint8_t* lower, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckPtr(upper));
  RVT_CHECK(CheckPtr(lower));
  RVT_CHECK(CheckPtr(dst));
  if (width < 1) return rvtStatusSize;
  kRow(upper, lower, dst, (ptrdiff_t(width) + 1) / 2);
  return rvtStatusOk;
}

// The row filters replicate the edge samples: the interior runs through the
// pair kernel, the two outer outputs at each end are done here.
template <UpH2V1Fn kPairs>
RvtResult UpRowH2V1(const uint8_t* src, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  if (width < 1) return rvtStatusSize;
  const ptrdiff_t w = width;
  if (w == 1) {
    dst[0] = dst[1] = src[0];
    return rvtStatusOk;
  }
  dst[0] = src[0];
  dst[1] = UpOdd(src, 0);
  kPairs(src + 1, dst + 2, w - 2);
  dst[2 * w - 2] = UpEven(src, w - 1);
  dst[2 * w - 1] = src[w - 1];
  return rvtStatusOk;
}

template <UpH2V2Fn kPairs>
RvtResult UpRowH2V2(const uint8_t* near, const uint8_t* far, int32_t width, uint8_t* dst) {
  RVT_CHECK(CheckPtr(near));
  RVT_CHECK(CheckPtr(far));
  RVT_CHECK(CheckPtr(dst));
  if (width < 1) return rvtStatusSize;
  const ptrdiff_t w = width;
  const int first = Col(near, far, 0), last = Col(near, far, w - 1);
  dst[0] = Up2Even(first, first);
  dst[2 * w - 1] = Up2Odd(last, last);
  if (w == 1) return rvtStatusOk;
  dst[1] = Up2Odd(first, Col(near, far, 1));
  kPairs(near + 1, far + 1, dst + 2, w - 2);
  dst[2 * w - 2] = Up2Even(last, Col(near, far, w - 2));
  return rvtStatusOk;
}

// ---------------------------------------------------------------- reference
// The definitions, one output at a time.

inline void DownH2V1Ref(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) d[i] = uint8_t((s[2 * i] + s[2 * i + 1] + 1) >> 1);
}
// The bias of 3 makes this the ceiling of the mean.
inline void DownH2V2Ref(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) {
    d[i] = uint8_t((u[2 * i] + u[2 * i + 1] + l[2 * i] + l[2 * i + 1] + 3) >> 2);
  }
}
// Box filters of the row forms: the bias alternates with the output index
// (0/1 for pairs, 1/2 for quads, even index first) so the mean is unbiased.
inline void DownBoxH2V1Ref(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < n; ++i) d[i] = uint8_t((s[2 * i] + s[2 * i + 1] + (i & 1)) >> 1);
}
inline void DownBoxH2V2Ref(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
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

// The reference row exports spell out the edge rules output by output.
inline RvtResult UpRowH2V1Ref(const uint8_t* s, int32_t width, uint8_t* d) {
  RVT_CHECK(CheckPtr(s));
  RVT_CHECK(CheckPtr(d));
  if (width < 1) return rvtStatusSize;
  const ptrdiff_t w = width;
  for (ptrdiff_t i = 0; i < w; ++i) {
    d[2 * i] = i == 0 ? s[0] : UpEven(s, i);
    d[2 * i + 1] = i == w - 1 ? s[w - 1] : UpOdd(s, i);
  }
  return rvtStatusOk;
}
inline RvtResult UpRowH2V2Ref(const uint8_t* n, const uint8_t* f, int32_t width, uint8_t* d) {
  RVT_CHECK(CheckPtr(n));
  RVT_CHECK(CheckPtr(f));
  RVT_CHECK(CheckPtr(d));
  if (width < 1) return rvtStatusSize;
  const ptrdiff_t w = width;
  for (ptrdiff_t i = 0; i < w; ++i) {
    const int c = Col(n, f, i);
    d[2 * i] = i == 0 ? uint8_t((4 * c + 8) >> 4) : Up2Even(c, Col(n, f, i - 1));
    d[2 * i + 1] = i == w - 1 ? uint8_t((4 * c + 7) >> 4) : Up2Odd(c, Col(n, f, i + 1));
  }
  return rvtStatusOk;
}

}  // namespace sampling

inline RvtResult SampleDownH2V1Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d,
                                   int32_t ds, ImageSize dr) {
  return sampling::DownH2V1Region<sampling::DownH2V1Ref>(s, ss, sr, d, ds, dr);
}
inline RvtResult SampleDownH2V2Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d,
                                   int32_t ds, ImageSize dr) {
  return sampling::DownH2V2Region<sampling::DownH2V2Ref>(s, ss, sr, d, ds, dr);
}
inline RvtResult SampleUpH2V1Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d,
                                 int32_t ds, ImageSize dr) {
  return sampling::UpH2V1Region<sampling::UpH2V1PairsRef>(s, ss, sr, d, ds, dr);
}
inline RvtResult SampleUpH2V2Ref(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d,
                                 int32_t ds, ImageSize dr) {
  return sampling::UpH2V2Region<sampling::UpH2V2PairsRef>(s, ss, sr, d, ds, dr);
}
inline RvtResult SampleDownRowH2V1Ref(const uint8_t* s, int32_t w, uint8_t* d) {
  return sampling::DownRowH2V1<sampling::DownBoxH2V1Ref>(s, w, d);
}
inline RvtResult SampleDownRowH2V2Ref(const uint8_t* u, const uint8_t* l, int32_t w, uint8_t* d) {
  return sampling::DownRowH2V2<sampling::DownBoxH2V2Ref>(u, l, w, d);
}

}  // namespace rvt
#endif  // RVT_JPEG_SAMPLING_ONCE

HWY_BEFORE_NAMESPACE();
namespace rvt {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Runs step(d, x) over outputs [0, n) in blocks of Lanes(d) outputs, the last
// block moved back to end at n (it rewrites a few equal outputs).  Returns
// false, doing nothing, when n is shorter than one block.
template <class D, class Step>
HWY_INLINE bool Cover(D d, ptrdiff_t n, const Step& step) {
  const ptrdiff_t block = ptrdiff_t(hn::Lanes(d));
  if (n < block) return false;
  ptrdiff_t x = 0;
  for (; x + block <= n; x += block) step(d, x);
  if (x < n) step(d, n - block);
  return true;
}

// Full vectors, then 128-bit ones, then one output at a time.
template <class T, class Step, class Tail>
HWY_INLINE void Cascade(ptrdiff_t n, const Step& step, const Tail& tail) {
  const hn::ScalableTag<T> full;
  const hn::CappedTag<T, 16 / sizeof(T)> quad;
  if (Cover(full, n, step)) return;
  if (Cover(quad, n, step)) return;
  tail();
}

// ---- target-specific building blocks
// Byte pairs times signed byte weights, each pair summed into an i16 lane
// (pmaddubsw).  The weights used here never reach its saturation.
template <size_t N>
HWY_INLINE hn::Vec128<int16_t, N / 2> MulAddPairs(hn::Vec128<uint8_t, N> a,
                                                  hn::Vec128<int8_t, N> w) {
  return hn::Vec128<int16_t, N / 2>{_mm_maddubs_epi16(a.raw, w.raw)};
}
// Two vectors of i16 lanes holding 0..255 packed into one of bytes, in order.
HWY_INLINE hn::Vec128<uint8_t> PackBytes(hn::Vec128<int16_t> a, hn::Vec128<int16_t> b) {
  return hn::Vec128<uint8_t>{_mm_packus_epi16(a.raw, b.raw)};
}
// Stores lo, hi whose 16-byte blocks alternate in memory (lo.0 hi.0 lo.1 hi.1
// ...), the order InterleaveLower/Upper leave results in.
HWY_INLINE void StoreAlternatingBlocks(hn::Vec128<uint8_t> lo, hn::Vec128<uint8_t> hi,
                                       uint8_t* p) {
  const hn::Full128<uint8_t> d;
  hn::StoreU(lo, d, p);
  hn::StoreU(hi, d, p + 16);
}
#if HWY_TARGET <= HWY_AVX2
HWY_INLINE hn::Vec256<int16_t> MulAddPairs(hn::Vec256<uint8_t> a, hn::Vec256<int8_t> w) {
  return hn::Vec256<int16_t>{_mm256_maddubs_epi16(a.raw, w.raw)};
}
HWY_INLINE hn::Vec256<uint8_t> PackBytes(hn::Vec256<int16_t> a, hn::Vec256<int16_t> b) {
  return hn::Vec256<uint8_t>{
      _mm256_permute4x64_epi64(_mm256_packus_epi16(a.raw, b.raw), _MM_SHUFFLE(3, 1, 2, 0))};
}
HWY_INLINE void StoreAlternatingBlocks(hn::Vec256<uint8_t> lo, hn::Vec256<uint8_t> hi,
                                       uint8_t* p) {
  const hn::Full256<uint8_t> d;
  hn::StoreU(hn::ConcatLowerLower(d, hi, lo), d, p);
  hn::StoreU(hn::ConcatUpperUpper(d, hi, lo), d, p + 32);
}
#endif
#if HWY_TARGET <= HWY_AVX3
HWY_INLINE hn::Vec512<int16_t> MulAddPairs(hn::Vec512<uint8_t> a, hn::Vec512<int8_t> w) {
  return hn::Vec512<int16_t>{_mm512_maddubs_epi16(a.raw, w.raw)};
}
HWY_INLINE hn::Vec512<uint8_t> PackBytes(hn::Vec512<int16_t> a, hn::Vec512<int16_t> b) {
  const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
  return hn::Vec512<uint8_t>{
      _mm512_permutexvar_epi64(order, _mm512_packus_epi16(a.raw, b.raw))};
}
HWY_INLINE void StoreAlternatingBlocks(hn::Vec512<uint8_t> lo, hn::Vec512<uint8_t> hi,
                                       uint8_t* p) {
  const __m512i first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
  const __m512i second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
  _mm512_storeu_si512(p, _mm512_permutex2var_epi64(lo.raw, first, hi.raw));
  _mm512_storeu_si512(p + 64, _mm512_permutex2var_epi64(lo.raw, second, hi.raw));
}
#endif

// Byte weights w0, w1 repeated over the pairs of a vector.
template <class D8>
HWY_INLINE hn::Vec<hn::Repartition<int8_t, D8>> PairWeights(D8 d8, int w0, int w1) {
  const hn::Repartition<int8_t, D8> di8;
  const hn::Repartition<uint16_t, D8> d16;
  return hn::BitCast(di8, hn::Set(d16, uint16_t((w1 << 8) | w0)));
}

// The output at lane k of a block starting at output x has index x + k;
// blocks have an even number of lanes, so only the parity of x matters.
// Returns lanes equal to `even` or `odd` by that index.
template <class D>
HWY_INLINE hn::Vec<D> ByParity(D d, ptrdiff_t x, int even, int odd) {
  const auto parity = hn::And(hn::Iota(d, int(x & 1)), hn::Set(d, 1));
  return hn::IfThenElse(hn::Eq(parity, hn::Zero(d)), hn::Set(d, hn::TFromD<D>(even)),
                        hn::Set(d, hn::TFromD<D>(odd)));
}

// ---- down-sampling

void DownH2V1Row(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const size_t L = hn::Lanes(d8);
        const auto a = hn::LoadU(d8, s + 2 * x);
        const auto b = hn::LoadU(d8, s + 2 * x + L);
        hn::StoreU(hn::AverageRound(hn::ConcatEven(d8, b, a), hn::ConcatOdd(d8, b, a)), d8, d + x);
      },
      [&] { sampling::DownH2V1Ref(s, d, n); });
}

// floor of the pair mean = rounded-up mean - (low bit of the sum).
void DownBoxH2V1Row(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const size_t L = hn::Lanes(d8);
        const auto a = hn::LoadU(d8, s + 2 * x);
        const auto b = hn::LoadU(d8, s + 2 * x + L);
        const auto even = hn::ConcatEven(d8, b, a), odd = hn::ConcatOdd(d8, b, a);
        const auto down = hn::And(hn::Xor(even, odd), ByParity(d8, x, 1, 0));
        hn::StoreU(hn::Sub(hn::AverageRound(even, odd), down), d8, d + x);
      },
      [&] { sampling::DownBoxH2V1Ref(s, d, n); });
}

// 2x2 sums: pair sums of each row (weights 1, 1), added, biased, >> 2; two
// vectors of results pack into one of bytes.
template <class D8, class V16>
HWY_INLINE void DownH2V2Block(D8 d8, const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t x,
                              V16 bias) {
  const size_t L = hn::Lanes(d8);
  const auto ones = PairWeights(d8, 1, 1);
  const auto sums = [&](ptrdiff_t at) {
    return hn::Add(MulAddPairs(hn::LoadU(d8, u + at), ones),
                   MulAddPairs(hn::LoadU(d8, l + at), ones));
  };
  const auto a = hn::ShiftRight<2>(hn::Add(sums(2 * x), bias));
  const auto b = hn::ShiftRight<2>(hn::Add(sums(2 * x + ptrdiff_t(L)), bias));
  hn::StoreU(PackBytes(a, b), d8, d + x);
}

void DownH2V2Row(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<int16_t, decltype(d8)> d16;
        DownH2V2Block(d8, u, l, d, x, hn::Set(d16, 3));
      },
      [&] { sampling::DownH2V2Ref(u, l, d, n); });
}

void DownBoxH2V2Row(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<int16_t, decltype(d8)> d16;
        DownH2V2Block(d8, u, l, d, x, ByParity(d16, x, 1, 2));
      },
      [&] { sampling::DownBoxH2V2Ref(u, l, d, n); });
}

// ---- up-sampling
// A block covers Lanes(d8) source columns.  Byte pairs are formed with
// InterleaveLower/Upper, which work per 16-byte block, so the two halves
// of the results come out with alternating blocks; every lane holds one
// column's even output in its low byte and odd output in its high byte,
// which is their order in memory.

// Merges even outputs (low bytes of `even`) with odd outputs (high bytes of
// `odd_high`).
template <class D8, class V16>
HWY_INLINE hn::Vec<D8> MergeOutputs(D8 d8, V16 even, V16 odd_high) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto high = hn::MaskFromVec(hn::BitCast(d8, hn::Set(d16, uint16_t(0xFF00))));
  return hn::IfThenElse(high, hn::BitCast(d8, odd_high), hn::BitCast(d8, even));
}

// Horizontal: even = (3 s[i] + s[i-1] + 1) >> 2, odd = (3 s[i] + s[i+1] + 2) >> 2.
void UpH2V1Pairs(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<uint16_t, decltype(d8)> d16;
        const auto w31 = PairWeights(d8, 3, 1);
        const auto mid = hn::LoadU(d8, s + x), left = hn::LoadU(d8, s + x - 1),
                   right = hn::LoadU(d8, s + x + 1);
        const auto half = [&](auto with_left, auto with_right) {
          const auto e = hn::BitCast(d16, MulAddPairs(with_left, w31));
          const auto o = hn::BitCast(d16, MulAddPairs(with_right, w31));
          return MergeOutputs(d8, hn::ShiftRight<2>(hn::Add(e, hn::Set(d16, 1))),
                              hn::ShiftLeft<6>(hn::Add(o, hn::Set(d16, 2))));
        };
        StoreAlternatingBlocks(
            half(hn::InterleaveLower(d8, mid, left), hn::InterleaveLower(d8, mid, right)),
            half(hn::InterleaveUpper(d8, mid, left), hn::InterleaveUpper(d8, mid, right)),
            d + 2 * x);
      },
      [&] { sampling::UpH2V1PairsRef(s, d, n); });
}

// Two-dimensional: with byte pairs (near, far) of each column, weights 9, 3
// give 3 c[i] and weights 3, 1 give the neighbours' c; then
//   even = ((3c + 7) + c[i-1] + 1) >> 1 >> 3 (a rounding average),
//   odd  = ((3c + 7) + c[i+1]) >> 4, placed in the high byte by << 4.
void UpH2V2Pairs(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<uint16_t, decltype(d8)> d16;
        const auto w93 = PairWeights(d8, 9, 3), w31 = PairWeights(d8, 3, 1);
        const auto n0 = hn::LoadU(d8, near + x), f0 = hn::LoadU(d8, far + x);
        const auto nl = hn::LoadU(d8, near + x - 1), fl = hn::LoadU(d8, far + x - 1);
        const auto nr = hn::LoadU(d8, near + x + 1), fr = hn::LoadU(d8, far + x + 1);
        const auto half = [&](auto mid, auto left, auto right) {
          const auto c3 = hn::Add(hn::BitCast(d16, MulAddPairs(mid, w93)), hn::Set(d16, 7));
          const auto e = hn::AverageRound(c3, hn::BitCast(d16, MulAddPairs(left, w31)));
          const auto o = hn::Add(c3, hn::BitCast(d16, MulAddPairs(right, w31)));
          return MergeOutputs(d8, hn::ShiftRight<3>(e), hn::ShiftLeft<4>(o));
        };
        StoreAlternatingBlocks(half(hn::InterleaveLower(d8, n0, f0), hn::InterleaveLower(d8, nl, fl),
                                    hn::InterleaveLower(d8, nr, fr)),
                               half(hn::InterleaveUpper(d8, n0, f0), hn::InterleaveUpper(d8, nl, fl),
                                    hn::InterleaveUpper(d8, nr, fr)),
                               d + 2 * x);
      },
      [&] { sampling::UpH2V2PairsRef(near, far, d, n); });
}

RvtResult SampleDownH2V1(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                         ImageSize dr) {
  return sampling::DownH2V1Region<DownH2V1Row>(s, ss, sr, d, ds, dr);
}
RvtResult SampleDownH2V2(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                         ImageSize dr) {
  return sampling::DownH2V2Region<DownH2V2Row>(s, ss, sr, d, ds, dr);
}
RvtResult SampleUpH2V1(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                       ImageSize dr) {
  return sampling::UpH2V1Region<UpH2V1Pairs>(s, ss, sr, d, ds, dr);
}
RvtResult SampleUpH2V2(const uint8_t* s, int32_t ss, ImageSize sr, uint8_t* d, int32_t ds,
                       ImageSize dr) {
  return sampling::UpH2V2Region<UpH2V2Pairs>(s, ss, sr, d, ds, dr);
}
RvtResult SampleDownRowH2V1(const uint8_t* s, int32_t w, uint8_t* d) {
  return sampling::DownRowH2V1<DownBoxH2V1Row>(s, w, d);
}
RvtResult SampleDownRowH2V2(const uint8_t* u, const uint8_t* l, int32_t w, uint8_t* d) {
  return sampling::DownRowH2V2<DownBoxH2V2Row>(u, l, w, d);
}
RvtResult SampleUpRowH2V1(const uint8_t* s, int32_t w, uint8_t* d) {
  return sampling::UpRowH2V1<UpH2V1Pairs>(s, w, d);
}
RvtResult SampleUpRowH2V2(const uint8_t* n, const uint8_t* f, int32_t w, uint8_t* d) {
  return sampling::UpRowH2V2<UpH2V2Pairs>(n, f, w, d);
}

}  // namespace HWY_NAMESPACE
}  // namespace rvt
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY_LEGACY(rvtiSampleDownH2V1_JPEG_8u_C1R, SampleDownH2V1, SampleDownH2V1Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleDownH2V2_JPEG_8u_C1R, SampleDownH2V2, SampleDownH2V2Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleUpH2V1_JPEG_8u_C1R, SampleUpH2V1, SampleUpH2V1Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleUpH2V2_JPEG_8u_C1R, SampleUpH2V2, SampleUpH2V2Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleDownRowH2V1_Box_JPEG_8u_C1, SampleDownRowH2V1, SampleDownRowH2V1Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleDownRowH2V2_Box_JPEG_8u_C1, SampleDownRowH2V2, SampleDownRowH2V2Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1, SampleUpRowH2V1, sampling::UpRowH2V1Ref);
RVT_IMPL_HWY_LEGACY(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1, SampleUpRowH2V2, sampling::UpRowH2V2Ref);
}  // namespace rvt
#endif
