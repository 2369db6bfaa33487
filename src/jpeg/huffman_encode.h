// Baseline Huffman encoding of 8x8 blocks and of single difference values.
// The careful writer of huffman_bits.h, which checks the destination at
// every byte, defines every result; the argument checks and the block
// driver live here too, so every target shares them.
#ifndef RVT_JPEG_HUFFMAN_ENCODE_H_
#define RVT_JPEG_HUFFMAN_ENCODE_H_

#include <cstdint>

#include "frame/checks.h"
#include "jpeg/huffman_bits.h"
#include "jpeg/zigzag.h"

namespace rvt::huffman_encode {

using namespace ::rvt::huff;  // NOLINT: the shared layouts and bit writer

// ------------------------------------------------------------ reference

// Symbols of one block in coding order: DC category and extra bits, then
// for every non-zero AC coefficient its ZRLs, run/size code and extra bits,
// then EOB unless coefficient 63 is non-zero.  The first failing write ends
// the block; the DC predictor moves on regardless.  Each code goes out as
// its low `length` bits: bits of a spec entry above its length are ignored.
template <class Writer>
RvtResult EncodeBlock(Writer& w, const int16_t* block, int16_t* last_dc,
                      const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac) {
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  *last_dc = block[0];
  int s = Category(diff);
  RVT_CHECK(w.PutCode(dc->entry[s]));
  if (s != 0) RVT_CHECK(w.Put(ExtraBits(diff, s), s));
  int run = 0;
  for (int k = 1; k < 64; ++k) {
    const int32_t v = block[kNaturalOfZigzag[k]];
    if (v == 0) {
      ++run;
      continue;
    }
    for (; run > 15; run -= 16) RVT_CHECK(w.PutCode(ac->entry[0xF0]));
    s = Category(v);
    // Category 16 after a run of 15 would be symbol 256, which no table has.
    const int sym = run * 16 + s;
    RVT_CHECK(w.PutCode(sym < 256 ? ac->entry[sym] : 0u));
    RVT_CHECK(w.Put(ExtraBits(v, s), s));
    run = 0;
  }
  if (run > 0) RVT_CHECK(w.PutCode(ac->entry[0x00]));
  return rvtStatusOk;
}

// A checked block through the careful writer: the reference block kernel,
// and what the vector kernels hand a block to when they do not code it.
inline RvtResult Encode8x8Body(const int16_t* block, uint8_t* dst, int len, int* pos,
                               int16_t* last_dc, const EncodeHuffmanSpec* dc,
                               const EncodeHuffmanSpec* ac, EncodeHuffmanState* st) {
  BitWriter w{dst, len, *pos, 0, 0};
  w.Load(st);
  const RvtResult status = EncodeBlock(w, block, last_dc, dc, ac);
  *pos = w.pos;
  w.Store(st);
  return status;
}

// Writer at a bit position with no bound and no failure: the caller
// guarantees room; symbols without a code add no bits.
struct DirectWriter {
  uint8_t* dst;
  int pos;  // next byte to store
  uint32_t acc;
  int count;

  RvtResult Put(uint32_t v, int n) {
    if (n == 0) return rvtStatusOk;
    count += n;
    acc |= (v & ((1u << n) - 1)) << (24 - count);
    for (; count >= 8; count -= 8) {
      const uint8_t b = uint8_t(acc >> 16);
      dst[pos++] = b;
      if (b == 0xFF) dst[pos++] = 0;
      acc = (acc << 8) & 0xFFFFFF;
    }
    return rvtStatusOk;
  }
  RvtResult PutCode(uint32_t entry) { return Put(entry & 0xFFFF, CodeLength(entry)); }
};

// ------------------------------------------------------------ checks

// A flush looks at nothing but these: dst, its length, the position, the
// state.
inline RvtResult CheckTarget(const uint8_t* dst, int len, const int* pos,
                             const EncodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(dst));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(st));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// rvtiEncodeHuffman8x8: the target first, then block, predictor and tables.
inline RvtResult Check8x8(const int16_t* block, const uint8_t* dst, int len, const int* pos,
                          const int16_t* last_dc, const EncodeHuffmanSpec* dc,
                          const EncodeHuffmanSpec* ac, const EncodeHuffmanState* st) {
  RVT_CHECK(CheckTarget(dst, len, pos, st));
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(ac));
  return rvtStatusOk;
}

// rvtiEncodeHuffmanOne (after the target): value, table.
inline RvtResult CheckOne(const int16_t* value, const EncodeHuffmanSpec* spec) {
  RVT_CHECK(CheckPtr(value));
  return CheckPtr(spec);
}

// rvtiEncodeHuffman8x8_Direct: in argument order, then the position's sign.
inline RvtResult CheckDirect(const int16_t* block, const uint8_t* dst, const int* bitpos,
                             const int16_t* last_dc, const EncodeHuffmanSpec* dc,
                             const EncodeHuffmanSpec* ac) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(dst));
  RVT_CHECK(CheckPtr(bitpos));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(ac));
  if (*bitpos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// ------------------------------------------------------------ drivers

using BlockKernel = RvtResult (*)(const int16_t*, uint8_t*, int, int*, int16_t*,
                                  const EncodeHuffmanSpec*, const EncodeHuffmanSpec*,
                                  EncodeHuffmanState*);

// A flush, or a checked block handed to kBlock.
template <BlockKernel kBlock>
RvtResult Encode8x8(const int16_t* block, uint8_t* dst, int len, int* pos, int16_t* last_dc,
                    const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac,
                    EncodeHuffmanState* st, int flush) {
  if (flush) {
    RVT_CHECK(CheckTarget(dst, len, pos, st));
    return FlushState(dst, len, pos, st);
  }
  RVT_CHECK(Check8x8(block, dst, len, pos, last_dc, dc, ac, st));
  return kBlock(block, dst, len, pos, last_dc, dc, ac, st);
}

// The reference entries.
inline RvtResult Encode8x8Ref(const int16_t* block, uint8_t* dst, int len, int* pos,
                              int16_t* last_dc, const EncodeHuffmanSpec* dc,
                              const EncodeHuffmanSpec* ac, EncodeHuffmanState* st, int flush) {
  return Encode8x8<Encode8x8Body>(block, dst, len, pos, last_dc, dc, ac, st, flush);
}

inline RvtResult EncodeOneRef(const int16_t* value, uint8_t* dst, int len, int* pos,
                              const EncodeHuffmanSpec* spec, EncodeHuffmanState* st, int flush) {
  RVT_CHECK(CheckTarget(dst, len, pos, st));
  if (flush) return FlushState(dst, len, pos, st);
  RVT_CHECK(CheckOne(value, spec));
  BitWriter w{dst, len, *pos, 0, 0};
  w.Load(st);
  const int32_t v = *value;
  const int s = Category(v);
  RvtResult status = w.PutCode(spec->entry[s]);
  // -32768 (category 16) is the one value with no extra bits.
  if (status == rvtStatusOk && s != 0 && s < 16) status = w.Put(ExtraBits(v, s), s);
  *pos = w.pos;
  w.Store(st);
  return status;
}

inline RvtResult EncodeDirectRef(const int16_t* block, uint8_t* dst, int* bitpos,
                                 int16_t* last_dc, const EncodeHuffmanSpec* dc,
                                 const EncodeHuffmanSpec* ac) {
  RVT_CHECK(CheckDirect(block, dst, bitpos, last_dc, dc, ac));
  DirectWriter w{dst, *bitpos >> 3, 0, *bitpos & 7};
  if (w.count != 0) w.acc = (uint32_t(dst[w.pos]) << 16) & (0xFFFFFFu << (24 - w.count)) & 0xFFFFFF;
  EncodeBlock(w, block, last_dc, dc, ac);
  if (w.count != 0) dst[w.pos] = uint8_t(w.acc >> 16);
  *bitpos = int(unsigned(w.pos) * 8u + unsigned(w.count));
  return rvtStatusOk;
}

// ------------------------------------------------------------ kernel tables

// The low n bits of a code, by n = 0..31 (lengths above 16 code nothing).
struct CodeMaskTable {
  uint32_t v[32];
  constexpr CodeMaskTable() : v() {
    for (int n = 0; n <= 16; ++n) v[n] = (1u << n) - 1;
  }
};
inline constexpr CodeMaskTable kCodeMask{};

// Zig-zag order as 16-bit lane indices into the block seen as 64 lanes.
struct ZigzagLanesTable {
  alignas(64) uint16_t v[64];
  constexpr ZigzagLanesTable() : v() {
    for (int k = 0; k < 64; ++k) v[k] = kNaturalOfZigzag[k];
  }
};
inline constexpr ZigzagLanesTable kZigzagLanes{};

// Byte shuffles that gather the packed block (four vectors of 16 bytes, one
// per pair of rows) into zig-zag order: output vector j, source vector i.
// 0x80 yields a zero byte.
struct ZigzagShuffles {
  alignas(16) uint8_t idx[4][4][16];
  constexpr ZigzagShuffles() : idx() {
    for (int j = 0; j < 4; ++j) {
      for (int i = 0; i < 4; ++i) {
        for (int b = 0; b < 16; ++b) {
          const int nat = kNaturalOfZigzag[16 * j + b];
          idx[j][i][b] = uint8_t(nat / 16 == i ? nat % 16 : 0x80);
        }
      }
    }
  }
  constexpr bool Empty(int j, int i) const {
    for (int b = 0; b < 16; ++b) {
      if (idx[j][i][b] != 0x80) return false;
    }
    return true;
  }
};
inline constexpr ZigzagShuffles kZigzagShuffles{};
// Zig-zag positions 0..15 take nothing from rows 6-7, 48..63 nothing from
// rows 0-1; the shuffles skip those pairs.
static_assert(kZigzagShuffles.Empty(0, 3) && kZigzagShuffles.Empty(3, 0));

}  // namespace rvt::huffman_encode

#endif  // RVT_JPEG_HUFFMAN_ENCODE_H_
