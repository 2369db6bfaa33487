// Symbol statistics: the fast kernels of one target.  No checks here: the
// entries in huffman_stats.h have checked the arguments.
//
// The significant coefficients come as zig-zag masks from one vector pass
// (the progressive coders' masks), so a block costs its non-zero
// coefficients rather than its 63 positions, and an empty band costs a
// counter increment.  A block that could fail (a category past its limit)
// or meets a state filled by hand goes to the reference before anything is
// counted, so both give the same counts, states and statuses.
#if defined(RVT_JPEG_HUFFMAN_STATS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_HUFFMAN_STATS_INL_H_
#undef RVT_JPEG_HUFFMAN_STATS_INL_H_
#else
#define RVT_JPEG_HUFFMAN_STATS_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg/huffman_progressive-inl.h"
#include "jpeg/huffman_stats.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_stats::HWY_NAMESPACE {
namespace hp = ::rvt::huffman_progressive::HWY_NAMESPACE;

inline RvtResult Stats8x8Fast(const int16_t* block, int32_t* dc_counts, int32_t* ac_counts,
                              int16_t* last_dc) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(dc_counts));
  RVT_CHECK(CheckPtr(ac_counts));
  RVT_CHECK(CheckPtr(last_dc));
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  const int s_dc = Category(diff);
  alignas(16) uint16_t mag[64];
  const uint64_t nz = hp::Masks(block, 0, false, mag).nz & ~uint64_t(1);
  // Categories past their limits: the reference fails at the same place.
  uint32_t top = 0;
  for (uint64_t m = nz; m != 0; m &= m - 1) {
    top |= mag[kNaturalOfZigzag[__builtin_ctzll(m)]];
  }
  if (s_dc > 15 || top > 16383) return Stats8x8Ref(block, dc_counts, ac_counts, last_dc);
  *last_dc = block[0];
  dc_counts[s_dc] += 1;
  int prev = 0;
  for (uint64_t m = nz; m != 0; m &= m - 1) {
    const int k = int(__builtin_ctzll(m));
    const int run = k - prev - 1;
    prev = k;
    ac_counts[0xF0] += run >> 4;
    const int s = 32 - __builtin_clz(mag[kNaturalOfZigzag[k]]);
    ac_counts[(run & 15) * 16 + s] += 1;
  }
  if (prev != 63) ac_counts[0x00] += 1;
  return rvtStatusOk;
}

// A pending run r (1..32766) counted.
HWY_INLINE void CountEobRun(int32_t* counts, uint32_t r) {
  counts[prog::EobCategory(r) * 16] += 1;
}

inline RvtResult StatsACFirstFast(const int16_t* block, int32_t* counts, int ss, int se, int al,
                                  EncodeHuffmanState* st, int flush) {
  if (flush) return StatsACFirstRef(block, counts, ss, se, al, st, flush);
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(counts));
  if (prog::BadBand(ss, se, al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(st));
  const uint32_t eob = st->eobRun;
  alignas(16) uint16_t mag[64];
  const uint64_t nz = hp::Masks(block, al, false, mag).nz & hp::BandBits(ss, se);
  if (nz == 0) {
    if (eob + 1 < prog::kMaxEobRun) {
      st->eobRun = eob + 1;
      return rvtStatusOk;
    }
    return StatsACFirstRef(block, counts, ss, se, al, st, flush);
  }
  uint32_t top = 0;
  for (uint64_t m = nz; m != 0; m &= m - 1) top |= mag[kNaturalOfZigzag[__builtin_ctzll(m)]];
  if (eob >= prog::kMaxEobRun || top > 1023) {
    return StatsACFirstRef(block, counts, ss, se, al, st, flush);
  }
  if (eob != 0) CountEobRun(counts, eob);
  int prev = ss - 1;
  for (uint64_t m = nz; m != 0; m &= m - 1) {
    const int k = int(__builtin_ctzll(m));
    const int run = k - prev - 1;
    prev = k;
    counts[0xF0] += run >> 4;
    const int s = 32 - __builtin_clz(mag[kNaturalOfZigzag[k]]);
    counts[(run & 15) * 16 + s] += 1;
  }
  st->eobRun = prev < se ? 1 : 0;
  return rvtStatusOk;
}

inline RvtResult StatsACRefineFast(const int16_t* block, int32_t* counts, int ss, int se, int al,
                                   EncodeHuffmanState* st, int flush) {
  if (flush) return StatsACRefineRef(block, counts, ss, se, al, st, flush);
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(counts));
  if (prog::BadBand(ss, se, al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(st));
  const uint32_t eob = st->eobRun, npend = st->nCorr;
  if (npend > prog::kMaxPendingCorr || eob >= prog::kMaxEobRun || (eob == 0 && npend != 0)) {
    return StatsACRefineRef(block, counts, ss, se, al, st, flush);
  }
  alignas(16) uint16_t mag[64];
  const hp::BandMasks bm = hp::Masks(block, al, true, mag);
  const uint64_t band = hp::BandBits(ss, se);
  const uint64_t nz = bm.nz & band, fresh = bm.one & band;
  if (fresh == 0) {
    const uint32_t nbits = uint32_t(__builtin_popcountll(nz));
    if (eob + 1 >= prog::kMaxEobRun || npend + nbits > prog::kMaxPendingCorr) {
      return StatsACRefineRef(block, counts, ss, se, al, st, flush);
    }
    st->nCorr = npend + nbits;
    st->eobRun = eob + 1;
    return rvtStatusOk;
  }
  uint32_t run_eob = eob;
  const int last_new = 63 - __builtin_clzll(fresh);
  uint32_t nmine = 0;
  int prev = ss - 1;
  int run = 0;
  for (uint64_t m = nz; m != 0; m &= m - 1) {
    const int k = int(__builtin_ctzll(m));
    run += k - prev - 1;
    prev = k;
    while (run > 15 && k <= last_new) {
      if (run_eob != 0) CountEobRun(counts, run_eob);
      run_eob = 0;
      counts[0xF0] += 1;
      run -= 16;
      nmine = 0;
    }
    if (mag[kNaturalOfZigzag[k]] > 1) {
      ++nmine;
      continue;
    }
    if (run_eob != 0) CountEobRun(counts, run_eob);
    run_eob = 0;
    counts[run * 16 + 1] += 1;
    nmine = 0;
    run = 0;
  }
  run += se - prev;
  const bool joins = run > 0 || nmine > 0;
  st->eobRun = joins ? 1 : 0;
  st->nCorr = joins ? nmine : 0;
  return rvtStatusOk;
}

}  // namespace rvt::huffman_stats::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_STATS_INL_H_
