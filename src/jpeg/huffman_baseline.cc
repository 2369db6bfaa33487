// Baseline Huffman coding of 8x8 blocks and of single difference values.
//
// The careful coders below are the definition: a bit writer that checks the
// destination at every byte and a bit reader that fills byte by byte.
#include <climits>
#include <cstring>

#include "frame/checks.h"
#include "frame/dispatch.h"
#include "frame/memory.h"
#include "jpeg/huffman_coding.h"

namespace rvt {
namespace huff {

RvtResult FlushState(uint8_t* dst, int len, int* pos, EncodeHuffmanState* st) {
  BitWriter w{dst, len, *pos, 0, 0};
  w.Load(st);
  const RvtResult status = w.Put(0x7F, 7);
  *pos = w.pos;
  ResetEncodeState(st);
  return status;
}

namespace {

// ---------------------------------------------------------------- encoders

// Symbols of one block in coding order: DC category and extra bits, then
// for every non-zero AC coefficient its ZRLs, run/size code and extra bits,
// then EOB unless coefficient 63 is non-zero.  The first failing write ends
// the block; the DC predictor moves on regardless.
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
    const int32_t v = block[kZigzag[k]];
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

RvtResult CheckEncodeTarget(const uint8_t* dst, int len, const int* pos,
                            const EncodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(dst));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(st));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

RvtResult CheckEncode8x8(const int16_t* block, const uint8_t* dst, int len, const int* pos,
                         const int16_t* last_dc, const EncodeHuffmanSpec* dc,
                         const EncodeHuffmanSpec* ac, const EncodeHuffmanState* st) {
  RVT_CHECK(CheckEncodeTarget(dst, len, pos, st));
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(ac));
  return rvtStatusOk;
}

// Encodes a checked block with the careful writer.
RvtResult Encode8x8Body(const int16_t* block, uint8_t* dst, int len, int* pos, int16_t* last_dc,
                        const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac,
                        EncodeHuffmanState* st) {
  BitWriter w{dst, len, *pos, 0, 0};
  w.Load(st);
  const RvtResult status = EncodeBlock(w, block, last_dc, dc, ac);
  *pos = w.pos;
  w.Store(st);
  return status;
}

RvtResult Encode8x8Careful(const int16_t* block, uint8_t* dst, int len, int* pos,
                           int16_t* last_dc, const EncodeHuffmanSpec* dc,
                           const EncodeHuffmanSpec* ac, EncodeHuffmanState* st, int flush) {
  if (flush) {
    RVT_CHECK(CheckEncodeTarget(dst, len, pos, st));
    return FlushState(dst, len, pos, st);
  }
  RVT_CHECK(CheckEncode8x8(block, dst, len, pos, last_dc, dc, ac, st));
  return Encode8x8Body(block, dst, len, pos, last_dc, dc, ac, st);
}

RvtResult EncodeOne(const int16_t* value, uint8_t* dst, int len, int* pos,
                    const EncodeHuffmanSpec* spec, EncodeHuffmanState* st, int flush) {
  RVT_CHECK(CheckEncodeTarget(dst, len, pos, st));
  if (flush) return FlushState(dst, len, pos, st);
  RVT_CHECK(CheckPtr(value));
  RVT_CHECK(CheckPtr(spec));
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

RvtResult EncodeDirect(const int16_t* block, uint8_t* dst, int* bitpos, int16_t* last_dc,
                       const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(dst));
  RVT_CHECK(CheckPtr(bitpos));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(ac));
  if (*bitpos < 0) return rvtStatusBadArg;
  DirectWriter w{dst, *bitpos >> 3, 0, *bitpos & 7};
  if (w.count != 0) w.acc = (uint32_t(dst[w.pos]) << 16) & (0xFFFFFFu << (24 - w.count)) & 0xFFFFFF;
  EncodeBlock(w, block, last_dc, dc, ac);
  if (w.count != 0) dst[w.pos] = uint8_t(w.acc >> 16);
  *bitpos = int(unsigned(w.pos) * 8u + unsigned(w.count));
  return rvtStatusOk;
}

// ---------------------------------------------------------------- decoders

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
      const int at = kZigzagDecode[k + run];
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

RvtResult CheckDecode8x8(const uint8_t* src, int len, const int* pos, const int16_t* block,
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

RvtResult Decode8x8Careful(const uint8_t* src, int len, int* pos, int16_t* block,
                           int16_t* last_dc, int* marker, const DecodeHuffmanSpec* dc,
                           const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecode8x8(src, len, pos, block, last_dc, marker, dc, ac, st));
  ZeroFill(block, 64 * sizeof(int16_t));
  BitReader r{src, len, *pos, 0, 0, marker};
  r.Load(st);
  const RvtResult status = DecodeBlock(r, block, last_dc, dc, ac, &st->coefsDone);
  *pos = r.pos;
  r.Store(st);
  return status;
}

RvtResult DecodeOne(const uint8_t* src, int len, int* pos, int16_t* value, int* marker,
                    const DecodeHuffmanSpec* spec, DecodeHuffmanState* st) {
  RVT_CHECK(CheckPtr(src));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  RVT_CHECK(CheckPtr(value));
  RVT_CHECK(CheckPtr(marker));
  RVT_CHECK(CheckPtr(spec));
  RVT_CHECK(CheckPtr(st));
  if (*pos < 0) return rvtStatusBadArg;
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

RvtResult DecodeDirect(const uint8_t* src, int* bitpos, int16_t* block, int16_t* last_dc,
                       int* marker, uint32_t* prefetched, int* nvalid,
                       const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac) {
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

}  // namespace
}  // namespace huff

using namespace huff;  // NOLINT

RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_JPEG_16s1u_C1, Encode8x8Careful);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_JPEG_1u16s_C1, Decode8x8Careful);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanOne_JPEG_16s1u_C1, EncodeOne);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanOne_JPEG_1u16s_C1, DecodeOne);
RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1, EncodeDirect);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1, DecodeDirect);

}  // namespace rvt
