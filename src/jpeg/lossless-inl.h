// Lossless JPEG: the vector kernels and fast row coders of one target.  No
// checks here: the drivers in lossless.h have checked the arguments.
//
// Differencing is parallel along the row.  Reconstruction is parallel for
// predictors 2 and 3 (no Ra); for 1, 4 and 5 the prediction is Ra plus a
// term of the row above, so the row is a running sum modulo 65536 of
// (difference + that term), computed eight lanes at a time with a log-step
// scan and a carry; for 6 and 7 Ra goes through a halving and each sample
// waits for the one before it, so those run as a scalar loop with the
// predictor fixed.  The 16-bit halvings keep bits 1..16 of a 17-bit sum or
// difference without widening: floor((u + v) / 2) = (u >> 1) + (v >> 1) +
// (u & v & 1) and floor((u - v) / 2) = (u >> 1) - (v >> 1) - (~u & v & 1),
// exact modulo 65536.
#if defined(RVT_JPEG_LOSSLESS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_LOSSLESS_INL_H_
#undef RVT_JPEG_LOSSLESS_INL_H_
#else
#define RVT_JPEG_LOSSLESS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "jpeg/huffman_decode-inl.h"
#include "jpeg/huffman_encode-inl.h"
#include "jpeg/lossless.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::lossless::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// floor((u + v) / 2) and floor((u - v) / 2) of signed 16-bit lanes, low 16
// bits.
template <class V>
HWY_INLINE V HalfSum(V u, V v) {
  const auto one = hn::Set(hn::DFromV<V>(), 1);
  return hn::Add(hn::Add(hn::ShiftRight<1>(u), hn::ShiftRight<1>(v)), hn::And(hn::And(u, v), one));
}
template <class V>
HWY_INLINE V HalfDiff(V u, V v) {
  const auto one = hn::Set(hn::DFromV<V>(), 1);
  return hn::Sub(hn::Sub(hn::ShiftRight<1>(u), hn::ShiftRight<1>(v)),
                 hn::And(hn::AndNot(u, v), one));
}

template <int kPred, class V>
HWY_INLINE V PredictV(V ra, V rb, V rc) {
  if constexpr (kPred == 1) return ra;
  if constexpr (kPred == 2) return rb;
  if constexpr (kPred == 3) return rc;
  if constexpr (kPred == 4) return hn::Sub(hn::Add(ra, rb), rc);
  if constexpr (kPred == 5) return hn::Add(ra, HalfDiff(rb, rc));
  if constexpr (kPred == 6) return hn::Add(rb, HalfDiff(ra, rc));
  if constexpr (kPred == 7) return HalfSum(ra, rb);
}

// ------------------------------------------------------------ differencing

inline void DiffFirstRowV(const int16_t* x, int16_t* d, int n, int16_t first) {
  const hn::ScalableTag<int16_t> dt;
  const int N = int(hn::Lanes(dt));
  d[0] = int16_t(x[0] - first);
  int i = 1;
  for (; i + N <= n; i += N) {
    hn::StoreU(hn::Sub(hn::LoadU(dt, x + i), hn::LoadU(dt, x + i - 1)), dt, d + i);
  }
  for (; i < n; ++i) d[i] = int16_t(x[i] - x[i - 1]);
}

template <int kPred>
void DiffRowP(const int16_t* x, const int16_t* prev, int16_t* d, int n) {
  const hn::ScalableTag<int16_t> dt;
  const int N = int(hn::Lanes(dt));
  d[0] = int16_t(x[0] - prev[0]);
  int i = 1;
  for (; i + N <= n; i += N) {
    const auto p = PredictV<kPred>(hn::LoadU(dt, x + i - 1), hn::LoadU(dt, prev + i),
                                   hn::LoadU(dt, prev + i - 1));
    hn::StoreU(hn::Sub(hn::LoadU(dt, x + i), p), dt, d + i);
  }
  DiffColumnsRef(x, prev, d, i, n, kPred);
}

inline void DiffRowV(const int16_t* x, const int16_t* prev, int16_t* d, int n, int pred) {
  switch (pred) {
    case 1: return DiffRowP<1>(x, prev, d, n);
    case 2: return DiffRowP<2>(x, prev, d, n);
    case 3: return DiffRowP<3>(x, prev, d, n);
    case 4: return DiffRowP<4>(x, prev, d, n);
    case 5: return DiffRowP<5>(x, prev, d, n);
    case 6: return DiffRowP<6>(x, prev, d, n);
    default: return DiffRowP<7>(x, prev, d, n);
  }
}

// ------------------------------------------------------------ reconstruction

// Running sum modulo 65536: x[i] = x[i - 1] + t(i) for i in [from, n), with
// t(i) the difference plus the above-row term of predictor kPred (0: the
// first row, no row above).
template <int kPred>
HWY_INLINE hn::Vec<hn::Full128<int16_t>> ScanTerm(const int16_t* d, const int16_t* prev, int i) {
  const hn::Full128<int16_t> dt;
  const auto v = hn::LoadU(dt, d + i);
  if constexpr (kPred == 4) {
    return hn::Add(v, hn::Sub(hn::LoadU(dt, prev + i), hn::LoadU(dt, prev + i - 1)));
  } else if constexpr (kPred == 5) {
    return hn::Add(v, HalfDiff(hn::LoadU(dt, prev + i), hn::LoadU(dt, prev + i - 1)));
  } else {
    return v;
  }
}

template <int kPred>
HWY_INLINE int ScanColumns(const int16_t* d, const int16_t* prev, int16_t* x, int from, int n) {
  const hn::Full128<int16_t> dt;
  auto carry = hn::Set(dt, x[from - 1]);
  int i = from;
  for (; i + 8 <= n; i += 8) {
    auto t = ScanTerm<kPred>(d, prev, i);
    t = hn::Add(t, hn::ShiftLeftLanes<1>(dt, t));
    t = hn::Add(t, hn::ShiftLeftLanes<2>(dt, t));
    t = hn::Add(t, hn::ShiftLeftLanes<4>(dt, t));
    const auto s = hn::Add(t, carry);
    hn::StoreU(s, dt, x + i);
    carry = hn::Broadcast<7>(s);
  }
  return i;
}

inline void ReconstructFirstRowV(const int16_t* d, int16_t* x, int n, int16_t first) {
  x[0] = int16_t(d[0] + first);
  int i = ScanColumns<0>(d, nullptr, x, 1, n);
  for (; i < n; ++i) x[i] = int16_t(d[i] + x[i - 1]);
}

// x[i] = d[i] + (above-row term) for predictors 2 (prev[i], the first
// column included) and 3 (prev[i - 1]).
template <int kPred>
void ReconstructParallel(const int16_t* d, const int16_t* prev, int16_t* x, int n) {
  const hn::ScalableTag<int16_t> dt;
  const int N = int(hn::Lanes(dt));
  x[0] = int16_t(d[0] + prev[0]);
  int i = 1;
  constexpr int kShift = kPred == 2 ? 0 : 1;
  for (; i + N <= n; i += N) {
    hn::StoreU(hn::Add(hn::LoadU(dt, d + i), hn::LoadU(dt, prev + i - kShift)), dt, x + i);
  }
  for (; i < n; ++i) x[i] = int16_t(d[i] + prev[i - kShift]);
}

template <int kPred>
void ReconstructScan(const int16_t* d, const int16_t* prev, int16_t* x, int n) {
  x[0] = int16_t(d[0] + prev[0]);
  const int i = ScanColumns<kPred>(d, prev, x, 1, n);
  ReconstructColumnsRef(d, prev, x, i, n, kPred);
}

// Predictors 6 and 7: one sample after the other.
template <int kPred>
void ReconstructSerial(const int16_t* d, const int16_t* prev, int16_t* x, int n) {
  int32_t ra = x[0] = int16_t(d[0] + prev[0]);
  for (int i = 1; i < n; ++i) {
    const int32_t rb = prev[i], rc = prev[i - 1];
    const int32_t p = kPred == 6 ? rb + ((ra - rc) >> 1) : (ra + rb) >> 1;
    ra = x[i] = int16_t(d[i] + p);
  }
}

inline void ReconstructRowV(const int16_t* d, const int16_t* prev, int16_t* x, int n, int pred) {
  switch (pred) {
    case 1: return ReconstructScan<1>(d, prev, x, n);
    case 2: return ReconstructParallel<2>(d, prev, x, n);
    case 3: return ReconstructParallel<3>(d, prev, x, n);
    case 4: return ReconstructScan<4>(d, prev, x, n);
    case 5: return ReconstructScan<5>(d, prev, x, n);
    case 6: return ReconstructSerial<6>(d, prev, x, n);
    default: return ReconstructSerial<7>(d, prev, x, n);
  }
}

// ------------------------------------------------------------ row coders

// Columns per chunk of the fast encoder: at most 64 symbols, whose worst
// case (31 bits each) the staging area covers.
HWY_INLINE int ChunkColumns(int nc) { return 64 / nc; }

namespace he = ::rvt::huffman_encode::HWY_NAMESPACE;
namespace hd = ::rvt::huffman_decode::HWY_NAMESPACE;
using ::rvt::huffman_decode::kCarefulSteps;

// Stages the symbols of columns [from, to); false when one has no code.
HWY_INLINE bool StageColumns(he::StagingWriter& w, const int16_t* const* rows, int from, int to,
                             int nc, const EncodeHuffmanSpec* const* tables) {
  uint32_t bad = 0;
  for (int i = from; i < to; ++i) {
    for (int j = 0; j < nc; ++j) {
      const int32_t v = rows[j][i];
      const uint32_t a = uint32_t(v < 0 ? -v : v);
      const uint32_t s = a ? uint32_t(he::BitLengthNZ(a)) : 0u;  // 0..16
      const uint32_t e = tables[j]->entry[s];
      uint32_t n = (e >> 16) & 0xFF;
      bad |= n - 1;
      n &= 31;
      const uint32_t xs = s & 15;  // category 16 has no extra bits
      const uint64_t extra = uint32_t(v + (v >> 31)) & ((1u << xs) - 1);
      w.Put((he::CodeBits(e, n) << xs) | extra, n + xs);
    }
  }
  return (bad & ~15u) == 0;
}

inline RvtResult EncodeRowFast(const int16_t* const* rows, int n, int nc, uint8_t* dst, int len,
                               int* pos, const EncodeHuffmanSpec* const* tables,
                               EncodeHuffmanState* st) {
  const int step = ChunkColumns(nc);
  alignas(16) uint8_t stage[272];  // 64 x 31 bits, the pending ones, the 8-byte store
  for (int from = 0; from < n; from += step) {
    const int to = n - from > step ? from + step : n;
    const int count = st->count & 7;
    const uint32_t pending = (uint32_t(st->acc) >> (24 - count)) & ((1u << count) - 1);
    he::StagingWriter w{stage, count ? uint64_t(pending) << (64 - count) : 0, uint32_t(count)};
    const bool ok = StageColumns(w, rows, from, to, nc, tables);
    const int staged = int(w.out - stage);
    if (HWY_UNLIKELY(!ok || 2 * staged > len - *pos)) {
      RVT_CHECK(EncodeColumnsCareful(rows, from, to, nc, tables, dst, len, pos, st));
      continue;
    }
    *pos += he::CopyStuffed(dst + *pos, stage, staged);
    st->acc = w.buf >> 40;
    st->count = int(w.nbits);
  }
  return rvtStatusOk;
}

// One difference as the careful reader takes it; -1, with the reader as it
// was, leaves the rest of the chunk to the careful decoder (a code no table
// covers, a lookup entry the careful reader reads differently).
HWY_INLINE int FastDifference(hd::FastBits& f, const DecodeHuffmanSpec* t, int16_t* out) {
  const uint32_t e = t->lookup[f.buf >> 56];
  const uint32_t n = e >> 16;
  int sym, xs;
  if (HWY_LIKELY(n - 1 < 8)) {
    sym = int(e & 0xFF);
    xs = sym < 16 ? sym : 0;
    f.vc = kCarefulSteps.step[f.vc + int((n - 1) << 4) + xs];
    f.buf <<= n;
    f.nb -= int(n);
  } else {
    if (((n & 0xFF) - 1) < 8) return -1;
    const hd::FastBits before = f;  // left as it was when the code is bad
    f.vc >>= 7;
    f.CarefulNeed(8);
    sym = hd::FastSearch(f, t);
    if (sym < 0) {
      f = before;
      return -1;
    }
    xs = sym < 16 ? sym : 0;
    if (xs != 0) {
      f.CarefulNeed(xs);
      f.vc -= xs;
    }
    f.vc <<= 7;
  }
  if (xs != 0) {
    const uint32_t r = f.Peek(xs);
    f.buf <<= xs;
    f.nb -= xs;
    const int32_t negative = int32_t((r >> (xs - 1)) & 1) - 1;
    *out = int16_t(int32_t(r) + (negative & (1 - (1 << xs))));
  } else {
    *out = sym == 0 ? int16_t(0) : int16_t(-32768);
  }
  return sym;
}

// 64 symbols of at most 31 bits, and the 8-byte loads past them.
constexpr int kFastMargin = 256 + 16;

// Chunks of 64 symbols: the fast reader takes symbols while it can (no
// marker, enough source left, no 0xFF byte, codes it follows); what it
// decoded stands, with the careful reader's position and state at that
// symbol, and the careful reader finishes the chunk.
inline RvtResult DecodeRowFast(const uint8_t* src, int len, int* pos, int16_t* const* rows, int n,
                               int nc, int* marker, const DecodeHuffmanSpec* const* tables,
                               DecodeHuffmanState* st) {
  const int total = n * nc;
  for (int from = 0; from < total; from += 64) {
    const int to = total - from > 64 ? from + 64 : total;
    int k = from;
    if (*marker == 0 && len - *pos >= kFastMargin) {
      BitReader careful{src, len, *pos, 0, 0, marker};
      careful.Load(st);
      hd::FastBits f{src, careful.count ? uint64_t(careful.acc) << (64 - careful.count) : 0,
                     careful.count, *pos, careful.count * 128};
      int i = from / nc, j = from % nc;
      for (; k < to; ++k) {
        // Neither a refused refill nor a refused symbol changes f.
        if ((f.nb < 48 && !f.Refill()) || FastDifference(f, tables[j], rows[j] + i) < 0) break;
        if (++j == nc) j = 0, ++i;
      }
      const int vc = f.vc >> 7;
      *pos = f.rpos - ((f.nb - vc) >> 3);
      st->acc = vc ? f.buf >> (64 - vc) : 0;
      st->count = vc;
      if (HWY_LIKELY(k == to)) continue;
    }
    RVT_CHECK(DecodeSymbolsCareful(src, len, pos, rows, k, to, nc, marker, tables, st));
  }
  return rvtStatusOk;
}

}  // namespace rvt::lossless::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_LOSSLESS_INL_H_
