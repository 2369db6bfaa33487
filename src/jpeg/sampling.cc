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
    const uint8_t* u = RowPtr(src, srcStep, 2 * y);
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

// Pair sums of a row of bytes seen as u16 lanes: lane k = s[2k] + s[2k+1].
template <class D16, class V8>
HWY_INLINE hn::Vec<D16> PairSums(D16 d16, V8 bytes) {
  const auto v = hn::BitCast(d16, bytes);
  return hn::Add(hn::And(v, hn::Set(d16, 0x00FF)), hn::ShiftRight<8>(v));
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

// Sums of 2x2 blocks in u16 lanes, plus bias, >> 2; two vectors of results
// pack back into one of bytes.
template <class D8, class V16>
HWY_INLINE void DownH2V2Block(D8 d8, const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t x,
                              V16 bias) {
  const hn::Repartition<uint16_t, D8> d16;
  const size_t L = hn::Lanes(d8);
  const auto lo = hn::Add(PairSums(d16, hn::LoadU(d8, u + 2 * x)),
                          PairSums(d16, hn::LoadU(d8, l + 2 * x)));
  const auto hi = hn::Add(PairSums(d16, hn::LoadU(d8, u + 2 * x + L)),
                          PairSums(d16, hn::LoadU(d8, l + 2 * x + L)));
  const auto a = hn::ShiftRight<2>(hn::Add(lo, bias));
  const auto b = hn::ShiftRight<2>(hn::Add(hi, bias));
  hn::StoreU(hn::ConcatEven(d8, hn::BitCast(d8, b), hn::BitCast(d8, a)), d8, d + x);
}

void DownH2V2Row(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<uint16_t, decltype(d8)> d16;
        DownH2V2Block(d8, u, l, d, x, hn::Set(d16, 3));
      },
      [&] { sampling::DownH2V2Ref(u, l, d, n); });
}

void DownBoxH2V2Row(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<uint16_t, decltype(d8)> d16;
        DownH2V2Block(d8, u, l, d, x, ByParity(d16, x, 1, 2));
      },
      [&] { sampling::DownBoxH2V2Ref(u, l, d, n); });
}

// Up-sampling works on u16 lanes, one lane per source sample, and stores
// the even output in the low byte and the odd one in the high byte of each
// lane, which is their order in memory.
template <class D16>
HWY_INLINE hn::Vec<D16> Widen(D16 d16, const uint8_t* p) {
  return hn::PromoteTo(d16, hn::LoadU(hn::Rebind<uint8_t, D16>(), p));
}

template <class D16, class V>
HWY_INLINE void StorePairs(D16 d16, V even, V odd, uint8_t* d) {
  const hn::Repartition<uint8_t, D16> d8;
  hn::StoreU(hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd))), d8, d);
}

void UpH2V1Pairs(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint16_t>(
      n,
      [&](auto d16, ptrdiff_t x) {
        const auto mid = Widen(d16, s + x);
        const auto m3 = hn::Add(hn::Add(mid, mid), mid);
        const auto even = hn::ShiftRight<2>(hn::Add(hn::Add(m3, Widen(d16, s + x - 1)),
                                                    hn::Set(d16, 1)));
        const auto odd = hn::ShiftRight<2>(hn::Add(hn::Add(m3, Widen(d16, s + x + 1)),
                                                   hn::Set(d16, 2)));
        StorePairs(d16, even, odd, d + 2 * x);
      },
      [&] { sampling::UpH2V1PairsRef(s, d, n); });
}

void UpH2V2Pairs(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t n) {
  Cascade<uint16_t>(
      n,
      [&](auto d16, ptrdiff_t x) {
        const auto col = [&](ptrdiff_t at) {
          const auto v = Widen(d16, near + at);
          return hn::Add(hn::Add(hn::Add(v, v), v), Widen(d16, far + at));
        };
        const auto c = col(x);
        const auto c3 = hn::Add(hn::Add(c, c), c);
        const auto even = hn::ShiftRight<4>(hn::Add(hn::Add(c3, col(x - 1)), hn::Set(d16, 8)));
        const auto odd = hn::ShiftRight<4>(hn::Add(hn::Add(c3, col(x + 1)), hn::Set(d16, 7)));
        StorePairs(d16, even, odd, d + 2 * x);
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
RVT_IMPL_HWY(rvtiSampleDownH2V1_JPEG_8u_C1R, SampleDownH2V1, SampleDownH2V1Ref);
RVT_IMPL_HWY(rvtiSampleDownH2V2_JPEG_8u_C1R, SampleDownH2V2, SampleDownH2V2Ref);
RVT_IMPL_HWY(rvtiSampleUpH2V1_JPEG_8u_C1R, SampleUpH2V1, SampleUpH2V1Ref);
RVT_IMPL_HWY(rvtiSampleUpH2V2_JPEG_8u_C1R, SampleUpH2V2, SampleUpH2V2Ref);
RVT_IMPL_HWY(rvtiSampleDownRowH2V1_Box_JPEG_8u_C1, SampleDownRowH2V1, SampleDownRowH2V1Ref);
RVT_IMPL_HWY(rvtiSampleDownRowH2V2_Box_JPEG_8u_C1, SampleDownRowH2V2, SampleDownRowH2V2Ref);
RVT_IMPL_HWY(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1, SampleUpRowH2V1, sampling::UpRowH2V1Ref);
RVT_IMPL_HWY(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1, SampleUpRowH2V2, sampling::UpRowH2V2Ref);
}  // namespace rvt
#endif
