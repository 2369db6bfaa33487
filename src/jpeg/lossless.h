// Lossless JPEG: differences of one row against the seven predictors and
// their reconstruction, and the Huffman coding of rows of up to four
// interleaved components.  The scalar references define every result; the
// argument checks and the drivers live here too, so every target shares
// them.
//
// Samples are 16-bit and all arithmetic is modulo 65536.  The predictors
// read Ra (left), Rb (above) and Rc (above left) as signed 16-bit values and
// form their sums in 32 bits; a halving keeps bits 1..16 of its 32-bit
// operand, so only the low 16 bits of a prediction matter.
#ifndef RVT_JPEG_LOSSLESS_H_
#define RVT_JPEG_LOSSLESS_H_

#include <cstdint>

#include "frame/checks.h"
#include "jpeg/huffman_bits.h"

namespace rvt::lossless {

using namespace ::rvt::huff;  // NOLINT: the shared layouts, bit writer and reader

// At most this many components are coded; more are ignored.
constexpr int kMaxComponents = 4;

// ------------------------------------------------------------ reference

// Prediction 1..7 from Ra, Rb, Rc (signed 16-bit), low 16 bits.
inline int32_t Predict(int pred, int32_t ra, int32_t rb, int32_t rc) {
  switch (pred) {
    case 1: return ra;
    case 2: return rb;
    case 3: return rc;
    case 4: return ra + rb - rc;
    case 5: return ra + ((rb - rc) >> 1);
    case 6: return rb + ((ra - rc) >> 1);
    default: return (ra + rb) >> 1;
  }
}

// The first sample's prediction on a row with none above: 2^(P - Pt - 1),
// the shift count taken modulo 32, low 16 bits.
inline int16_t FirstPrediction(int p, int pt) {
  return int16_t(uint16_t(1u << (unsigned(p - pt - 1) & 31)));
}

inline void DiffFirstRowRef(const int16_t* x, int16_t* d, int n, int16_t first) {
  d[0] = int16_t(x[0] - first);
  for (int i = 1; i < n; ++i) d[i] = int16_t(x[i] - x[i - 1]);
}

inline void ReconstructFirstRowRef(const int16_t* d, int16_t* x, int n, int16_t first) {
  int16_t ra = x[0] = int16_t(d[0] + first);
  for (int i = 1; i < n; ++i) ra = x[i] = int16_t(d[i] + ra);
}

// Columns from `from` on (from >= 1); the first column is the caller's.
inline void DiffColumnsRef(const int16_t* x, const int16_t* prev, int16_t* d, int from, int n,
                           int pred) {
  for (int i = from; i < n; ++i) d[i] = int16_t(x[i] - Predict(pred, x[i - 1], prev[i], prev[i - 1]));
}
inline void ReconstructColumnsRef(const int16_t* d, const int16_t* prev, int16_t* x, int from,
                                  int n, int pred) {
  int16_t ra = x[from - 1];
  for (int i = from; i < n; ++i) ra = x[i] = int16_t(d[i] + Predict(pred, ra, prev[i], prev[i - 1]));
}

inline void DiffRowRef(const int16_t* x, const int16_t* prev, int16_t* d, int n, int pred) {
  d[0] = int16_t(x[0] - prev[0]);
  DiffColumnsRef(x, prev, d, 1, n, pred);
}
inline void ReconstructRowRef(const int16_t* d, const int16_t* prev, int16_t* x, int n, int pred) {
  x[0] = int16_t(d[0] + prev[0]);
  ReconstructColumnsRef(d, prev, x, 1, n, pred);
}

// Huffman symbols of one difference: its category, then (categories 1..15)
// its extra bits; category 16 (the difference 32768) has none.
template <class Writer>
inline RvtResult EncodeDifference(Writer& w, int32_t v, const EncodeHuffmanSpec* t) {
  const int s = Category(v);
  RVT_CHECK(w.PutCode(t->entry[s]));
  if (s != 0 && s < 16) RVT_CHECK(w.Put(ExtraBits(v, s), s));
  return rvtStatusOk;
}

// Symbols of columns [from, to) of nc components, column by column.
template <class Writer>
inline RvtResult EncodeColumns(Writer& w, const int16_t* const* rows, int from, int to, int nc,
                               const EncodeHuffmanSpec* const* tables) {
  for (int i = from; i < to; ++i) {
    for (int j = 0; j < nc; ++j) RVT_CHECK(EncodeDifference(w, rows[j][i], tables[j]));
  }
  return rvtStatusOk;
}

// Careful encoding of columns [from, to) from the state, which it updates.
inline RvtResult EncodeColumnsCareful(const int16_t* const* rows, int from, int to, int nc,
                                      const EncodeHuffmanSpec* const* tables, uint8_t* dst,
                                      int len, int* pos, EncodeHuffmanState* st) {
  BitWriter w{dst, len, *pos, 0, 0};
  w.Load(st);
  const RvtResult status = EncodeColumns(w, rows, from, to, nc, tables);
  *pos = w.pos;
  w.Store(st);
  return status;
}

// One difference: 0, the extended bits of categories 1..15, or 32768 for
// any larger symbol (no bits).  Returns the status; *v is set on success.
template <class Reader>
inline RvtResult DecodeDifference(Reader& r, const DecodeHuffmanSpec* t, int16_t* v) {
  const int s = DecodeSymbol(r, t);
  if (s < 0) return RvtResult(s);
  if (s == 0) {
    *v = 0;
  } else if (s < 16) {
    RVT_CHECK(r.Need(s));
    *v = int16_t(Extend(r.Take(s), s));
  } else {
    *v = int16_t(-32768);
  }
  return rvtStatusOk;
}

// Careful decoding of symbols [from, to) of the row, symbol k being
// component k % nc of column k / nc; values before a failure stay.
inline RvtResult DecodeSymbolsCareful(const uint8_t* src, int len, int* pos, int16_t* const* rows,
                                      int from, int to, int nc, int* marker,
                                      const DecodeHuffmanSpec* const* tables,
                                      DecodeHuffmanState* st) {
  BitReader r{src, len, *pos, 0, 0, marker};
  r.Load(st);
  RvtResult status = rvtStatusOk;
  int i = from / nc, j = from % nc;
  for (int k = from; k < to; ++k) {
    status = DecodeDifference(r, tables[j], rows[j] + i);
    if (status != rvtStatusOk) break;
    if (++j == nc) j = 0, ++i;
  }
  *pos = r.pos;
  r.Store(st);
  return status;
}

// ------------------------------------------------------------ checks

inline RvtResult CheckFirstRow(const int16_t* a, const int16_t* b, int n, int p, int pt) {
  RVT_CHECK(CheckPtr(a));
  RVT_CHECK(CheckPtr(b));
  if (n < 1) return rvtStatusSize;
  if (p < 2 || p > 16 || pt < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

inline RvtResult CheckRow(const int16_t* a, const int16_t* prev, const int16_t* b, int n,
                          int pred) {
  RVT_CHECK(CheckPtr(a));
  RVT_CHECK(CheckPtr(prev));
  RVT_CHECK(CheckPtr(b));
  if (n < 1) return rvtStatusSize;
  if (pred < 1 || pred > 7) return rvtStatusBadArg;
  return rvtStatusOk;
}

inline int CodedComponents(int nc) { return nc < kMaxComponents ? nc : kMaxComponents; }

// EncodeHuffmanRow after the target (which a flush alone looks at): rows,
// sizes, tables, then each coded component's row and table.
inline RvtResult CheckEncodeRow(const int16_t* const* rows, int n, int nc,
                                const EncodeHuffmanSpec* const* tables) {
  RVT_CHECK(CheckPtr(rows));
  if (n < 1 || nc < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(tables));
  for (int j = 0; j < CodedComponents(nc); ++j) {
    RVT_CHECK(CheckPtr(rows[j]));
    RVT_CHECK(CheckPtr(tables[j]));
  }
  return rvtStatusOk;
}

// The target of an encoder call: destination, its length, the position,
// the state, then the position's sign.
inline RvtResult CheckEncodeTarget(const uint8_t* dst, int len, const int* pos,
                                   const EncodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(dst));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(st));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

inline RvtResult CheckDecodeRow(const uint8_t* src, int len, const int* pos,
                                int16_t* const* rows, int n, int nc, const int* marker,
                                const DecodeHuffmanSpec* const* tables,
                                const DecodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(src));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(rows));
  if (n < 1 || nc < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(marker));
  RVT_CHECK(CheckPtr(tables));
  RVT_CHECK(CheckPtr(st));
  for (int j = 0; j < CodedComponents(nc); ++j) {
    RVT_CHECK(CheckPtr(rows[j]));
    RVT_CHECK(CheckPtr(tables[j]));
  }
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// ------------------------------------------------------------ drivers

using FirstRowKernel = void (*)(const int16_t*, int16_t*, int, int16_t);
using RowKernel = void (*)(const int16_t*, const int16_t*, int16_t*, int, int);

template <FirstRowKernel kRow>
RvtResult DiffFirstRow(const int16_t* x, int16_t* d, int n, int p, int pt) {
  RVT_CHECK(CheckFirstRow(x, d, n, p, pt));
  kRow(x, d, n, FirstPrediction(p, pt));
  return rvtStatusOk;
}
template <FirstRowKernel kRow>
RvtResult ReconstructFirstRow(const int16_t* d, int16_t* x, int n, int p, int pt) {
  RVT_CHECK(CheckFirstRow(d, x, n, p, pt));
  kRow(d, x, n, FirstPrediction(p, pt));
  return rvtStatusOk;
}
template <RowKernel kRow>
RvtResult DiffRow(const int16_t* x, const int16_t* prev, int16_t* d, int n, int pred) {
  RVT_CHECK(CheckRow(x, prev, d, n, pred));
  kRow(x, prev, d, n, pred);
  return rvtStatusOk;
}
template <RowKernel kRow>
RvtResult ReconstructRow(const int16_t* d, const int16_t* prev, int16_t* x, int n, int pred) {
  RVT_CHECK(CheckRow(d, prev, x, n, pred));
  kRow(d, prev, x, n, pred);
  return rvtStatusOk;
}

using EncodeKernel = RvtResult (*)(const int16_t* const*, int, int, uint8_t*, int, int*,
                                   const EncodeHuffmanSpec* const*, EncodeHuffmanState*);
using DecodeKernel = RvtResult (*)(const uint8_t*, int, int*, int16_t* const*, int, int, int*,
                                   const DecodeHuffmanSpec* const*, DecodeHuffmanState*);

template <EncodeKernel kRow>
RvtResult EncodeRow(const int16_t* const* rows, int n, int nc, uint8_t* dst, int len, int* pos,
                    const EncodeHuffmanSpec* const* tables, EncodeHuffmanState* st, int flush) {
  RVT_CHECK(CheckEncodeTarget(dst, len, pos, st));
  if (flush) return FlushState(dst, len, pos, st);
  RVT_CHECK(CheckEncodeRow(rows, n, nc, tables));
  return kRow(rows, n, CodedComponents(nc), dst, len, pos, tables, st);
}

template <DecodeKernel kRow>
RvtResult DecodeRow(const uint8_t* src, int len, int* pos, int16_t* const* rows, int n, int nc,
                    int* marker, const DecodeHuffmanSpec* const* tables, DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecodeRow(src, len, pos, rows, n, nc, marker, tables, st));
  return kRow(src, len, pos, rows, n, CodedComponents(nc), marker, tables, st);
}

// The reference kernels and entries.
inline RvtResult EncodeRowBody(const int16_t* const* rows, int n, int nc, uint8_t* dst, int len,
                               int* pos, const EncodeHuffmanSpec* const* tables,
                               EncodeHuffmanState* st) {
  return EncodeColumnsCareful(rows, 0, n, nc, tables, dst, len, pos, st);
}
inline RvtResult DecodeRowBody(const uint8_t* src, int len, int* pos, int16_t* const* rows, int n,
                               int nc, int* marker, const DecodeHuffmanSpec* const* tables,
                               DecodeHuffmanState* st) {
  return DecodeSymbolsCareful(src, len, pos, rows, 0, n * nc, nc, marker, tables, st);
}

inline RvtResult DiffFirstRowEntryRef(const int16_t* x, int16_t* d, int n, int p, int pt) {
  return DiffFirstRow<DiffFirstRowRef>(x, d, n, p, pt);
}
inline RvtResult ReconstructFirstRowEntryRef(const int16_t* d, int16_t* x, int n, int p, int pt) {
  return ReconstructFirstRow<ReconstructFirstRowRef>(d, x, n, p, pt);
}
inline RvtResult DiffRowEntryRef(const int16_t* x, const int16_t* prev, int16_t* d, int n,
                                 int pred) {
  return DiffRow<DiffRowRef>(x, prev, d, n, pred);
}
inline RvtResult ReconstructRowEntryRef(const int16_t* d, const int16_t* prev, int16_t* x, int n,
                                        int pred) {
  return ReconstructRow<ReconstructRowRef>(d, prev, x, n, pred);
}
inline RvtResult EncodeRowEntryRef(const int16_t* const* rows, int n, int nc, uint8_t* dst,
                                   int len, int* pos, const EncodeHuffmanSpec* const* tables,
                                   EncodeHuffmanState* st, int flush) {
  return EncodeRow<EncodeRowBody>(rows, n, nc, dst, len, pos, tables, st, flush);
}
inline RvtResult DecodeRowEntryRef(const uint8_t* src, int len, int* pos, int16_t* const* rows,
                                   int n, int nc, int* marker,
                                   const DecodeHuffmanSpec* const* tables,
                                   DecodeHuffmanState* st) {
  return DecodeRow<DecodeRowBody>(src, len, pos, rows, n, nc, marker, tables, st);
}

}  // namespace rvt::lossless

#endif  // RVT_JPEG_LOSSLESS_H_
