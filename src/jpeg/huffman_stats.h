// Symbol statistics for two-pass encoding with optimized tables, and the
// optimal table built from them.  The statistics count the symbols that the
// baseline and progressive encoders write for the same input (the
// progressive ones run the encoders' own walks through a counting sink),
// with their own category limits: DC 15 and AC 14 for baseline blocks, 11
// for DC first scans, 10 for AC first scans (the AC first encoder itself
// accepts 11), and EOB-run categories up to 14.  Every export here is
// plain code; the checks come first, in argument order.
#ifndef RVT_JPEG_HUFFMAN_STATS_H_
#define RVT_JPEG_HUFFMAN_STATS_H_

#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "jpeg/huffman_bits.h"
#include "jpeg/huffman_progressive.h"
#include "jpeg/zigzag.h"

namespace rvt::huffman_stats {

using namespace ::rvt::huff;  // NOLINT: the shared layouts and categories
namespace prog = ::rvt::huffman_progressive;

// ------------------------------------------------------------ statistics

inline RvtResult Stats8x8Ref(const int16_t* block, int32_t* dc_counts, int32_t* ac_counts,
                             int16_t* last_dc) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(dc_counts));
  RVT_CHECK(CheckPtr(ac_counts));
  RVT_CHECK(CheckPtr(last_dc));
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  *last_dc = block[0];
  int s = Category(diff);
  if (s > 15) return rvtStatusHuffData;
  dc_counts[s] += 1;
  int run = 0;
  for (int k = 1; k < 64; ++k) {
    const int32_t v = block[kNaturalOfZigzag[k]];
    if (v == 0) {
      ++run;
      continue;
    }
    ac_counts[0xF0] += run >> 4;
    run &= 15;
    s = Category(v);
    if (s > 14) return rvtStatusHuffData;
    ac_counts[run * 16 + s] += 1;
    run = 0;
  }
  if (run > 0) ac_counts[0x00] += 1;
  return rvtStatusOk;
}

inline RvtResult StatsOneRef(const int16_t* value, int32_t* counts) {
  RVT_CHECK(CheckPtr(value));
  RVT_CHECK(CheckPtr(counts));
  const int s = Category(*value);
  if (s > 16) return rvtStatusRange;  // cannot happen for 16-bit values
  counts[s] += 1;
  return rvtStatusOk;
}

inline RvtResult StatsDCFirstRef(const int16_t* block, int32_t* dc_counts, int16_t* last_dc,
                                 int al) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(dc_counts));
  RVT_CHECK(CheckPtr(last_dc));
  if (prog::BadAl(al)) return rvtStatusBadArg;
  prog::CountSink sink{dc_counts};
  return prog::DCFirstWalk<11>(sink, block, last_dc, al);
}

// The AC statistics: with the flush flag only the counts and the state are
// looked at; the pending run is counted and the state cleared.
template <class Walk>
RvtResult StatsAC(const int16_t* block, int32_t* counts, int ss, int se, int al,
                  EncodeHuffmanState* st, int flush, Walk walk) {
  if (flush) {
    RVT_CHECK(CheckPtr(counts));
    RVT_CHECK(CheckPtr(st));
    prog::CountSink sink{counts};
    const RvtResult status = prog::FlushEobRun(sink, st);
    ResetEncodeState(st);
    return status;
  }
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(counts));
  if (prog::BadBand(ss, se, al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(st));
  prog::CountSink sink{counts};
  return walk(sink);
}

inline RvtResult StatsACFirstRef(const int16_t* block, int32_t* counts, int ss, int se, int al,
                                 EncodeHuffmanState* st, int flush) {
  return StatsAC(block, counts, ss, se, al, st, flush, [&](prog::CountSink& sink) {
    return prog::ACFirstWalk<10>(sink, block, ss, se, al, st);
  });
}

inline RvtResult StatsACRefineRef(const int16_t* block, int32_t* counts, int ss, int se, int al,
                                  EncodeHuffmanState* st, int flush) {
  return StatsAC(block, counts, ss, se, al, st, flush, [&](prog::CountSink& sink) {
    return prog::ACRefineWalk(sink, block, ss, se, al, st);
  });
}

// ------------------------------------------------------------ optimal table

// JPEG Annex K.2/K.3: Huffman code sizes by repeated merging of the two
// least frequent trees (ties to the higher symbol, frequencies above 10^9
// never taken), with a reserved symbol 256 of frequency 1 so that no real
// code is all 1-bits; lengths then limited from 32 to 16 and the reserved
// code removed; vals ordered by the sizes from before the limit.
inline RvtResult RawTableInitRef(const int32_t* counts, uint8_t* bits, uint8_t* vals) {
  RVT_CHECK(CheckPtr(counts));
  RVT_CHECK(CheckPtr(bits));
  RVT_CHECK(CheckPtr(vals));
  // 64-bit sums: counts filled by hand cannot overflow them.
  int64_t freq[257];
  int size[257];
  int others[257];
  int lens[33] = {};
  for (int i = 0; i < 257; ++i) {
    freq[i] = counts[i];
    size[i] = 0;
    others[i] = -1;
  }
  freq[256] = 1;
  constexpr int64_t kBound = 1000000000;
  for (;;) {
    int c1 = -1, c2 = -1;
    int64_t v = kBound;
    for (int i = 0; i <= 256; ++i) {
      if (freq[i] != 0 && freq[i] <= v) {
        v = freq[i];
        c1 = i;
      }
    }
    v = kBound;
    for (int i = 0; i <= 256; ++i) {
      if (freq[i] != 0 && freq[i] <= v && i != c1) {
        v = freq[i];
        c2 = i;
      }
    }
    if (c2 < 0) break;
    freq[c1] += freq[c2];
    freq[c2] = 0;
    ++size[c1];
    while (others[c1] >= 0) {
      c1 = others[c1];
      ++size[c1];
    }
    others[c1] = c2;
    ++size[c2];
    while (others[c2] >= 0) {
      c2 = others[c2];
      ++size[c2];
    }
  }
  for (int i = 0; i <= 256; ++i) {
    if (size[i] == 0) continue;
    if (size[i] > 32) return rvtStatusHuffTable;
    ++lens[size[i]];
  }
  for (int i = 32; i > 16; --i) {
    while (lens[i] > 0) {
      int j = i - 2;
      while (j > 0 && lens[j] == 0) --j;
      if (j == 0) return rvtStatusHuffTable;  // not a code tree
      lens[i] -= 2;
      lens[i - 1] += 1;
      lens[j + 1] += 2;
      lens[j] -= 1;
    }
  }
  int top = 16;
  while (top > 0 && lens[top] == 0) --top;
  if (top > 0) lens[top] -= 1;
  for (int i = 0; i < 16; ++i) bits[i] = uint8_t(lens[i + 1]);
  int n = 0;
  for (int len = 1; len <= 32; ++len) {
    for (int sym = 0; sym < 256; ++sym) {
      if (size[sym] == len) vals[n++] = uint8_t(sym);
    }
  }
  return rvtStatusOk;
}

}  // namespace rvt::huffman_stats

#endif  // RVT_JPEG_HUFFMAN_STATS_H_
