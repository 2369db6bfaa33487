// Baseline Huffman decoding of 8x8 blocks and of single difference values.
// The careful reader of huffman_bits.h, which fills byte by byte, defines
// every result; the argument checks and the block driver live here too, so
// every target shares them.
#ifndef RVT_JPEG_HUFFMAN_DECODE_H_
#define RVT_JPEG_HUFFMAN_DECODE_H_

#include <climits>
#include <cstdint>

#include "frame/checks.h"
#include "frame/memory.h"
#include "jpeg/huffman_bits.h"

namespace rvt::huffman_decode {

using namespace ::rvt::huff;  // NOLINT: the shared layouts and bit reader

// ------------------------------------------------------------ reference

// Decodes one block into a zeroed `block`.  done receives the count of
// zig-zag positions passed (0 when the DC fails; untouched when a run
// leaves the block).
template <class Reader>
RvtResult DecodeBlock(Reader& r, int16_t* block, int16_t* last_dc, const DecodeHuffmanSpec* dc,
                      const DecodeHuffmanSpec* ac, uint32_t* done) {
  int sym = DecodeSymbol(r, dc);
  if (sym < 0) {
    *done = 0;
    return RvtResult(sym);
  }
  int s = sym & 15;
  if (s != 0) {
    const RvtResult st = r.Need(s);
    if (st != rvtStatusOk) {
      *done = 0;
      return st;
    }
    *last_dc = int16_t(*last_dc + Extend(r.Take(s), s));
  }
  block[0] = *last_dc;
  int remaining = 63;
  int k = 1;  // zig-zag position, always 64 - remaining
  for (;;) {
    sym = DecodeSymbol(r, ac);
    if (sym < 0) {
      *done = uint32_t(64 - remaining);
      return RvtResult(sym);
    }
    const int run = sym >> 4;
    s = sym & 15;
    if (s != 0) {
      remaining -= run + 1;
      const RvtResult st = r.Need(s);
      if (st != rvtStatusOk) {
        *done = uint32_t(64 - remaining);
        return st;
      }
      const int32_t v = Extend(r.Take(s), s);
      const int at = kZigzagDecode.v[k + run];
      k += run + 1;
      if (at > 63) return rvtStatusErr;
      block[at] = int16_t(v);
    } else if (run < 15) {
      break;  // EOB
    } else {
      remaining -= 16;  // ZRL
      k += 16;
    }
    if (remaining < 1) break;
  }
  *done = uint32_t(64 - remaining);
  return rvtStatusOk;
}

// A checked block through the careful reader: the reference block kernel,
// and what the vector kernels hand a block to when they do not decode it.
inline RvtResult Decode8x8Body(const uint8_t* src, int len, int* pos, int16_t* block,
                               int16_t* last_dc, int* marker, const DecodeHuffmanSpec* dc,
                               const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  ZeroFill(block, 64 * sizeof(int16_t));
  BitReader r{src, len, *pos, 0, 0, marker};
  r.Load(st);
  const RvtResult status = DecodeBlock(r, block, last_dc, dc, ac, &st->coefsDone);
  *pos = r.pos;
  r.Store(st);
  return status;
}

// ------------------------------------------------------------ checks

// rvtiDecodeHuffman8x8: in argument order, then the position's sign.  A
// length of 0 is accepted.
inline RvtResult Check8x8(const uint8_t* src, int len, const int* pos, const int16_t* block,
                          const int16_t* last_dc, const int* marker, const DecodeHuffmanSpec* dc,
                          const DecodeHuffmanSpec* ac, const DecodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(src));
  if (len < 0) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(marker));
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(ac));
  RVT_CHECK(CheckPtr(st));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// rvtiDecodeHuffmanOne: in argument order (a length below 1 is a size
// error), then the position's sign.
inline RvtResult CheckOne(const uint8_t* src, int len, const int* pos, const int16_t* value,
                          const int* marker, const DecodeHuffmanSpec* spec,
                          const DecodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(src));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(value));
  RVT_CHECK(CheckPtr(marker));
  RVT_CHECK(CheckPtr(spec));
  RVT_CHECK(CheckPtr(st));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// rvtiDecodeHuffman8x8_Direct: in argument order, each count's sign right
// after its pointer.
inline RvtResult CheckDirect(const uint8_t* src, const int* bitpos, const int16_t* block,
                             const int16_t* last_dc, const int* marker, const uint32_t* prefetched,
                             const int* nvalid, const DecodeHuffmanSpec* dc,
                             const DecodeHuffmanSpec* ac) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(bitpos));
  if (*bitpos < 0) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(marker));
  RVT_CHECK(CheckPtr(prefetched));
  RVT_CHECK(CheckPtr(nvalid));
  if (*nvalid < 0) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(ac));
  return rvtStatusOk;
}

// ------------------------------------------------------------ drivers

using BlockKernel = RvtResult (*)(const uint8_t*, int, int*, int16_t*, int16_t*, int*,
                                  const DecodeHuffmanSpec*, const DecodeHuffmanSpec*,
                                  DecodeHuffmanState*);

// Checks, then hands the block to kBlock.
template <BlockKernel kBlock>
RvtResult Decode8x8(const uint8_t* src, int len, int* pos, int16_t* block, int16_t* last_dc,
                    int* marker, const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac,
                    DecodeHuffmanState* st) {
  RVT_CHECK(Check8x8(src, len, pos, block, last_dc, marker, dc, ac, st));
  return kBlock(src, len, pos, block, last_dc, marker, dc, ac, st);
}

// The reference entries.
inline RvtResult Decode8x8Ref(const uint8_t* src, int len, int* pos, int16_t* block,
                              int16_t* last_dc, int* marker, const DecodeHuffmanSpec* dc,
                              const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  return Decode8x8<Decode8x8Body>(src, len, pos, block, last_dc, marker, dc, ac, st);
}

inline RvtResult DecodeOneRef(const uint8_t* src, int len, int* pos, int16_t* value, int* marker,
                              const DecodeHuffmanSpec* spec, DecodeHuffmanState* st) {
  RVT_CHECK(CheckOne(src, len, pos, value, marker, spec, st));
  BitReader r{src, len, *pos, 0, 0, marker};
  r.Load(st);
  RvtResult status = rvtStatusOk;
  const int s = DecodeSymbol(r, spec);
  if (s < 0) {
    status = RvtResult(s);
  } else if (s == 0) {
    *value = 0;
  } else if (s < 16) {
    status = r.Need(s);
    if (status == rvtStatusOk) *value = int16_t(Extend(r.Take(s), s));
  } else {
    *value = int16_t(-32768);
  }
  *pos = r.pos;
  r.Store(st);
  return status;
}

inline RvtResult DecodeDirectRef(const uint8_t* src, int* bitpos, int16_t* block,
                                 int16_t* last_dc, int* marker, uint32_t* prefetched,
                                 int* nvalid, const DecodeHuffmanSpec* dc,
                                 const DecodeHuffmanSpec* ac) {
  RVT_CHECK(CheckDirect(src, bitpos, block, last_dc, marker, prefetched, nvalid, dc, ac));
  ZeroFill(block, 64 * sizeof(int16_t));
  // No source bound: the data ends at a marker.
  BitReader r{src, INT_MAX, *bitpos >> 3, 0, 0, marker};
  r.Load(*prefetched, *nvalid);
  uint32_t done = 0;
  const RvtResult status = DecodeBlock(r, block, last_dc, dc, ac, &done);
  *bitpos = int(unsigned(r.pos) << 3);
  *prefetched = r.CanonicalAcc();
  *nvalid = r.count;
  return status;
}

// ------------------------------------------------------------ kernel tables

// What the careful reader does over one symbol whose code (1..8 bits) came
// from the lookup, followed by its s (0..15) value bits, when the source
// has plenty of plain bytes: from count c it fills (below 8 bits, to 25..32)
// before the code and again (below s bits) before the value.  Entry
// c * 128 + (len - 1) * 16 + s holds the count after, times 128: the start
// of that count's row, so the next step is one add and one load.  (The
// bytes it read follow from the counts and the bits taken.)
struct CarefulSteps {
  uint16_t step[33 * 8 * 16];
  constexpr CarefulSteps() : step() {
    for (int c = 0; c <= 32; ++c) {
      for (int len = 1; len <= 8; ++len) {
        for (int s = 0; s < 16; ++s) {
          int vc = c;
          if (vc < 8) vc += 8 * ((32 - vc) >> 3);
          vc -= len;
          if (s > 0) {
            if (vc < s) vc += 8 * ((32 - vc) >> 3);
            vc -= s;
          }
          step[c * 128 + (len - 1) * 16 + s] = uint16_t(vc * 128);
        }
      }
    }
  }
};
inline constexpr CarefulSteps kCarefulSteps{};

}  // namespace rvt::huffman_decode

#endif  // RVT_JPEG_HUFFMAN_DECODE_H_
