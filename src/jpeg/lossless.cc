// Lossless JPEG prediction and row coding: the per-target build and the
// descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/lossless.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/lossless-inl.h"
#include "jpeg/lossless.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::lossless::HWY_NAMESPACE {

RvtResult DiffFirstRowEntry(const int16_t* x, int16_t* d, int n, int p, int pt) {
  return DiffFirstRow<DiffFirstRowV>(x, d, n, p, pt);
}
RvtResult ReconstructFirstRowEntry(const int16_t* d, int16_t* x, int n, int p, int pt) {
  return ReconstructFirstRow<ReconstructFirstRowV>(d, x, n, p, pt);
}
RvtResult DiffRowEntry(const int16_t* x, const int16_t* prev, int16_t* d, int n, int pred) {
  return DiffRow<DiffRowV>(x, prev, d, n, pred);
}
RvtResult ReconstructRowEntry(const int16_t* d, const int16_t* prev, int16_t* x, int n,
                              int pred) {
  return ReconstructRow<ReconstructRowV>(d, prev, x, n, pred);
}
RvtResult EncodeRowEntry(const int16_t* const pSrc[4], int n, int nc, uint8_t* dst, int len,
                         int* pos, const EncodeHuffmanSpec* const tables[4],
                         EncodeHuffmanState* st, int flush) {
  return EncodeRow<EncodeRowFast>(pSrc, n, nc, dst, len, pos, tables, st, flush);
}
RvtResult DecodeRowEntry(const uint8_t* src, int len, int* pos, int16_t* const pDst[4], int n,
                         int nc, int* marker, const DecodeHuffmanSpec* const tables[4],
                         DecodeHuffmanState* st) {
  return DecodeRow<DecodeRowFast>(src, len, pos, pDst, n, nc, marker, tables, st);
}

}  // namespace rvt::lossless::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiDiffPredFirstRow_JPEG_16s_C1, lossless, DiffFirstRowEntry, DiffFirstRowEntryRef);
RVT_IMPL_HWY(rvtiDiffPredRow_JPEG_16s_C1, lossless, DiffRowEntry, DiffRowEntryRef);
RVT_IMPL_HWY(rvtiReconstructPredFirstRow_JPEG_16s_C1, lossless, ReconstructFirstRowEntry,
             ReconstructFirstRowEntryRef);
RVT_IMPL_HWY(rvtiReconstructPredRow_JPEG_16s_C1, lossless, ReconstructRowEntry,
             ReconstructRowEntryRef);
RVT_IMPL_HWY(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1, lossless, EncodeRowEntry, EncodeRowEntryRef);
RVT_IMPL_HWY(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4, lossless, DecodeRowEntry, DecodeRowEntryRef);
}  // namespace rvt
#endif  // HWY_ONCE
