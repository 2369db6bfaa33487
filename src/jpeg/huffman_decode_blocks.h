// Baseline Huffman decoding of a run of MCUs per call: the blocks of
// nMcus MCUs whose blocks follow one component pattern, with the state
// objects and bytes of the block decoder.  The definition is the block
// decoder called once per block, in order, stopping at the first block that
// fails; the argument checks and the driver live here, so every target
// shares them.
#ifndef RVT_JPEG_HUFFMAN_DECODE_BLOCKS_H_
#define RVT_JPEG_HUFFMAN_DECODE_BLOCKS_H_

#include <climits>
#include <cstdint>

#include "frame/checks.h"
#include "jpeg/huffman_decode.h"

namespace rvt::huffman_decode_blocks {

using namespace ::rvt::huff;  // NOLINT: the shared layouts and bit reader
using huffman_decode::Decode8x8Body;

// Blocks per MCU: up to 10 in a JPEG scan; a single-component scan codes
// one block per MCU.
constexpr int kMaxMcuBlocks = 10;
constexpr int kComponents = 4;

struct Args {
  const uint8_t* src;
  int len;
  int* pos;
  int16_t* dst;
  int nmcus;
  const int* comp;
  int nblocks;
  int16_t* last_dc;
  int* marker;
  const DecodeHuffmanSpec* const* dc;
  const DecodeHuffmanSpec* const* ac;
  DecodeHuffmanState* st;
  int* done;      // per block, may be null
  int* nblocks_done;
};

// ------------------------------------------------------------ checks

// In argument order; the tables of every component the pattern names
// right after their array; the position's sign last.  pCoefsDone may be
// null.
inline RvtResult Check(const Args& a) {
  RVT_CHECK(CheckPtr(a.src));
  if (a.len < 0) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(a.pos));
  RVT_CHECK(CheckPtr(a.dst));
  if (a.nmcus < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(a.comp));
  if (a.nblocks < 1 || a.nblocks > kMaxMcuBlocks) return rvtStatusSize;
  // Every coefficient of the run must be addressable with an int.
  if (int64_t(a.nmcus) * a.nblocks > INT32_MAX / 64) return rvtStatusSize;
  for (int b = 0; b < a.nblocks; ++b) {
    if (a.comp[b] < 0 || a.comp[b] >= kComponents) return rvtStatusBadArg;
  }
  RVT_CHECK(CheckPtr(a.last_dc));
  RVT_CHECK(CheckPtr(a.marker));
  RVT_CHECK(CheckPtr(a.dc));
  for (int b = 0; b < a.nblocks; ++b) RVT_CHECK(CheckPtr(a.dc[a.comp[b]]));
  RVT_CHECK(CheckPtr(a.ac));
  for (int b = 0; b < a.nblocks; ++b) RVT_CHECK(CheckPtr(a.ac[a.comp[b]]));
  RVT_CHECK(CheckPtr(a.st));
  RVT_CHECK(CheckPtr(a.nblocks_done));
  if (*a.pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// What the careful reader does over one symbol and its s (0..15) value bits
// when the source has plenty of plain bytes: from count c it fills (to
// 25..32) below 8 bits before the code; a code of up to 8 bits comes from
// its lookup, a longer one takes 9 bits (filling below 9) and then one bit
// at a time (filling at 0); below s bits it fills again before the value.
// Returns the count after.
constexpr int CarefulStep(int len, int s, int c) {
  int vc = c;
  const auto need = [&vc](int n) {
    if (vc < n) vc += 8 * ((32 - vc) >> 3);
  };
  const auto take = [&](int n) {
    need(n);
    vc -= n;
  };
  need(8);
  if (len <= 8) {
    vc -= len;
  } else {
    take(9);
    for (int b = 9; b < len; ++b) take(1);
  }
  if (s > 0) take(s);
  return vc;
}

// The careful counts after a symbol, or after two in a row, by the count
// before: entry column + c holds the count after.  The fast lookups hold
// codes of up to 10 bits, so the columns stop there: symbol (len, s) has
// column ((len - 1) * 16 + s) * 64 (one cache line); kKeepColumn leaves the
// count as it is, for symbols whose steps were taken elsewhere; then one
// column of kPairStride bytes per pair (len1, s1, len2, s2) whose bits, all
// four, fit in 10 (kPairColumns).  (The bytes read follow from the counts
// and the bits taken.)
constexpr int kMaxStepLength = 10;
constexpr int kKeepColumn = kMaxStepLength * 16 * 64;
constexpr int kPairStride = 33;  // counts 0..32
// Symbols (len, s) with len + s <= kMaxStepLength.
constexpr int kShortSymbols = kMaxStepLength * (kMaxStepLength + 1) / 2;
constexpr int kPairs = 495;  // (len1 - 1) + s1 + (len2 - 1) + s2 <= kMaxStepLength - 2
struct PairColumns {
  // short_of[(len - 1) * 16 + s]: the symbol's index among the short ones,
  // kShortSymbols for a longer one; at[u1][u2]: the column of the pair,
  // 0 when its bits do not fit.
  uint8_t short_of[kMaxStepLength * 16];
  uint16_t at[kShortSymbols][kShortSymbols];
  int n = 0;
  constexpr PairColumns() : short_of(), at() {
    int u = 0;
    for (int c = 0; c < kMaxStepLength * 16; ++c) {
      short_of[c] = uint8_t((c >> 4) + 1 + (c & 15) <= kMaxStepLength ? u++ : kShortSymbols);
    }
    for (int l1 = 1; l1 <= 10; ++l1) {
      for (int s1 = 0; l1 + s1 <= 9; ++s1) {
        for (int l2 = 1; l1 + s1 + l2 <= 10; ++l2) {
          for (int s2 = 0; l1 + s1 + l2 + s2 <= 10; ++s2) {
            at[short_of[(l1 - 1) * 16 + s1]][short_of[(l2 - 1) * 16 + s2]] =
                uint16_t(kKeepColumn + 64 + n++ * kPairStride);
          }
        }
      }
    }
  }
};
inline constexpr PairColumns kPairColumns{};
static_assert(kPairColumns.n == kPairs);
constexpr int kStepBytes = kKeepColumn + 64 + kPairs * kPairStride;
static_assert(kStepBytes <= 32768, "a step column fits 15 bits of a lookup entry");
struct RunSteps {
  uint8_t step[kStepBytes];
  constexpr RunSteps() : step() {
    for (int c = 0; c <= 32; ++c) step[kKeepColumn + c] = uint8_t(c);
    for (int len = 1; len <= kMaxStepLength; ++len) {
      for (int s = 0; s < 16; ++s) {
        for (int c = 0; c <= 32; ++c) {
          step[((len - 1) * 16 + s) * 64 + c] = uint8_t(CarefulStep(len, s, c));
        }
      }
    }
    for (int l1 = 1; l1 <= 10; ++l1) {
      for (int s1 = 0; l1 + s1 <= 9; ++s1) {
        for (int l2 = 1; l1 + s1 + l2 <= 10; ++l2) {
          for (int s2 = 0; l1 + s1 + l2 + s2 <= 10; ++s2) {
            const int col = kPairColumns.at[kPairColumns.short_of[(l1 - 1) * 16 + s1]]
                                           [kPairColumns.short_of[(l2 - 1) * 16 + s2]];
            for (int c = 0; c <= 32; ++c) {
              step[col + c] = uint8_t(CarefulStep(l2, s2, CarefulStep(l1, s1, c)));
            }
          }
        }
      }
    }
  }
};
inline constexpr RunSteps kRunSteps{};

// ------------------------------------------------------------ reference

// Block i through the careful decoder; its coefficients-done count on
// success.
inline RvtResult CarefulBlock(const Args& a, int i) {
  const int c = a.comp[i % a.nblocks];
  const RvtResult r = Decode8x8Body(a.src, a.len, a.pos, a.dst + 64 * i, &a.last_dc[c], a.marker,
                                    a.dc[c], a.ac[c], a.st);
  if (r == rvtStatusOk && a.done) a.done[i] = int(a.st->coefsDone);
  return r;
}

inline RvtResult DecodeRef(const Args& a) {
  const int n = a.nmcus * a.nblocks;
  int i = 0;
  RvtResult r = rvtStatusOk;
  for (; i < n; ++i) {
    r = CarefulBlock(a, i);
    if (r != rvtStatusOk) break;
  }
  *a.nblocks_done = i;
  return r;
}

// ------------------------------------------------------------ drivers

using Kernel = RvtResult (*)(const Args&);

template <Kernel kRun>
RvtResult DecodeBlocks(const uint8_t* src, int len, int* pos, int16_t* dst, int nmcus,
                       const int* comp, int nblocks, int16_t* last_dc, int* marker,
                       const DecodeHuffmanSpec* const* dc, const DecodeHuffmanSpec* const* ac,
                       DecodeHuffmanState* st, int* done, int* nblocks_done) {
  const Args a{src, len, pos, dst, nmcus, comp, nblocks, last_dc, marker, dc, ac, st, done,
               nblocks_done};
  RVT_CHECK(Check(a));
  return kRun(a);
}

inline RvtResult DecodeBlocksRef(const uint8_t* src, int len, int* pos, int16_t* dst, int nmcus,
                                 const int* comp, int nblocks, int16_t* last_dc, int* marker,
                                 const DecodeHuffmanSpec* const dc[4],
                                 const DecodeHuffmanSpec* const ac[4], DecodeHuffmanState* st,
                                 int* done, int* nblocks_done) {
  return DecodeBlocks<DecodeRef>(src, len, pos, dst, nmcus, comp, nblocks, last_dc, marker, dc,
                                 ac, st, done, nblocks_done);
}

}  // namespace rvt::huffman_decode_blocks

#endif  // RVT_JPEG_HUFFMAN_DECODE_BLOCKS_H_
