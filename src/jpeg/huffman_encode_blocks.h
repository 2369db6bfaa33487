// Baseline Huffman encoding of a run of MCUs per call: the blocks of nmcus
// MCUs whose blocks follow one component pattern, with the state object
// and bytes of the block encoder.  The definition is the block encoder
// called once per block, in order, stopping at the first block that fails;
// the argument checks and the driver live here, so every target shares
// them.
#ifndef RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_H_
#define RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_H_

#include <climits>
#include <cstdint>

#include "frame/checks.h"
#include "jpeg/huffman_encode.h"

namespace rvt::huffman_encode_blocks {

using namespace ::rvt::huff;  // NOLINT: the shared layouts and bit writer
using huffman_encode::Encode8x8Body;

// Blocks per MCU: up to 10 in a JPEG scan; a single-component scan codes
// one block per MCU.
constexpr int kMaxMcuBlocks = 10;
constexpr int kComponents = 4;

struct Args {
  const int16_t* src;
  uint8_t* dst;
  int len;
  int* pos;
  int nmcus;
  const int* comp;
  int nblocks;
  int16_t* last_dc;
  const EncodeHuffmanSpec* const* dc;
  const EncodeHuffmanSpec* const* ac;
  EncodeHuffmanState* st;
  int* nblocks_done;
};

// ------------------------------------------------------------ checks

// In argument order; the tables of every component the pattern names right
// after their array; the position's sign last.
inline RvtResult Check(const Args& a) {
  RVT_CHECK(CheckPtr(a.src));
  RVT_CHECK(CheckPtr(a.dst));
  if (a.len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(a.pos));
  if (a.nmcus < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(a.comp));
  if (a.nblocks < 1 || a.nblocks > kMaxMcuBlocks) return rvtStatusSize;
  // Every coefficient of the run must be addressable with an int.
  if (int64_t(a.nmcus) * a.nblocks > INT32_MAX / 64) return rvtStatusSize;
  for (int b = 0; b < a.nblocks; ++b) {
    if (a.comp[b] < 0 || a.comp[b] >= kComponents) return rvtStatusBadArg;
  }
  RVT_CHECK(CheckPtr(a.last_dc));
  RVT_CHECK(CheckPtr(a.dc));
  for (int b = 0; b < a.nblocks; ++b) RVT_CHECK(CheckPtr(a.dc[a.comp[b]]));
  RVT_CHECK(CheckPtr(a.ac));
  for (int b = 0; b < a.nblocks; ++b) RVT_CHECK(CheckPtr(a.ac[a.comp[b]]));
  RVT_CHECK(CheckPtr(a.st));
  RVT_CHECK(CheckPtr(a.nblocks_done));
  if (*a.pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// ------------------------------------------------------------ reference

inline RvtResult EncodeRef(const Args& a) {
  const int n = a.nmcus * a.nblocks;
  int i = 0;
  RvtResult r = rvtStatusOk;
  for (; i < n; ++i) {
    const int c = a.comp[i % a.nblocks];
    r = Encode8x8Body(a.src + 64 * i, a.dst, a.len, a.pos, &a.last_dc[c], a.dc[c], a.ac[c], a.st);
    if (r != rvtStatusOk) break;
  }
  *a.nblocks_done = i;
  return r;
}

// ------------------------------------------------------------ drivers

using Kernel = RvtResult (*)(const Args&);

template <Kernel kRun>
RvtResult EncodeBlocks(const int16_t* src, uint8_t* dst, int len, int* pos, int nmcus,
                       const int* comp, int nblocks, int16_t* last_dc,
                       const EncodeHuffmanSpec* const* dc, const EncodeHuffmanSpec* const* ac,
                       EncodeHuffmanState* st, int* nblocks_done) {
  const Args a{src, dst, len, pos, nmcus, comp, nblocks, last_dc, dc, ac, st, nblocks_done};
  RVT_CHECK(Check(a));
  return kRun(a);
}

inline RvtResult EncodeBlocksRef(const int16_t* src, uint8_t* dst, int len, int* pos, int nmcus,
                                 const int* comp, int nblocks, int16_t* last_dc,
                                 const EncodeHuffmanSpec* const dc[4],
                                 const EncodeHuffmanSpec* const ac[4], EncodeHuffmanState* st,
                                 int* nblocks_done) {
  return EncodeBlocks<EncodeRef>(src, dst, len, pos, nmcus, comp, nblocks, last_dc, dc, ac, st,
                                 nblocks_done);
}

}  // namespace rvt::huffman_encode_blocks

#endif  // RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_H_
