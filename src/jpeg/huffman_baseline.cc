// Baseline Huffman coding of 8x8 blocks and of single difference values.
//
// The careful coders are the definition: a bit writer that checks the
// destination at every byte and a bit reader that fills byte by byte.  The
// block coders also have fast paths, compiled per vector target, that must
// give the same bytes, states and statuses:
//  - the encoder finds the non-zero coefficients in zig-zag order with one
//    vector pass (byte shuffles of the packed block), then walks only those,
//    collecting bits in a 64-bit word whose whole bytes go to a staging area
//    with one store per symbol; one vector scan per block finds the 0xFF
//    bytes that need stuffing on the way out.  Blocks that do not fit (or
//    hold a symbol without a code) are coded again by the careful writer
//    from the untouched state.
//  - the decoder reads the source four bytes at a time while it is at least
//    four bytes from its end and the bytes hold no 0xFF, and fills exactly
//    as far as the careful reader would, so positions and states agree.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_baseline.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <climits>
#include <cstring>

#include "frame/checks.h"
#include "frame/dispatch.h"
#include "frame/memory.h"
#include "jpeg/huffman_coding.h"

#ifndef RVT_JPEG_HUFFMAN_BASELINE_ONCE
#define RVT_JPEG_HUFFMAN_BASELINE_ONCE
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

// Byte shuffles that gather the packed block (four vectors of 16 bytes, one
// per pair of rows) into zig-zag order: output vector j, source vector i.
// 0x80 yields a zero byte.
struct ZigzagShuffles {
  uint8_t idx[4][4][16];
  constexpr ZigzagShuffles() : idx() {
    for (int j = 0; j < 4; ++j) {
      for (int i = 0; i < 4; ++i) {
        for (int b = 0; b < 16; ++b) {
          const int nat = kZigzag[16 * j + b];
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
alignas(16) inline constexpr ZigzagShuffles kZigzagShuffles{};
// Zig-zag positions 0..15 take nothing from rows 6-7, 48..63 nothing from
// rows 0-1; the shuffles skip those pairs.
static_assert(kZigzagShuffles.Empty(0, 3) && kZigzagShuffles.Empty(3, 0));

inline bool HasFFByte(uint32_t w) {
  return (((w & 0x7F7F7F7Fu) + 0x01010101u) & w & 0x80808080u) != 0;
}
inline bool HasFFByte64(uint64_t w) {
  return (((w & 0x7F7F7F7F7F7F7F7Full) + 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
}

}  // namespace
}  // namespace huff
}  // namespace rvt
#endif  // RVT_JPEG_HUFFMAN_BASELINE_ONCE

HWY_BEFORE_NAMESPACE();
namespace rvt {
namespace huff {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Bit k set when the coefficient at zig-zag position k is non-zero.
HWY_INLINE uint64_t NonZeroMask(const int16_t* block) {
  const hn::Full128<int16_t> d16;
  const hn::Full128<int8_t> d8;
  const hn::Rebind<int8_t, decltype(d16)> d8h;
  // Saturating packs keep every non-zero value non-zero.
  const auto p0 = hn::Combine(d8, hn::DemoteTo(d8h, hn::LoadU(d16, block + 8)),
                              hn::DemoteTo(d8h, hn::LoadU(d16, block)));
  const auto p1 = hn::Combine(d8, hn::DemoteTo(d8h, hn::LoadU(d16, block + 24)),
                              hn::DemoteTo(d8h, hn::LoadU(d16, block + 16)));
  const auto p2 = hn::Combine(d8, hn::DemoteTo(d8h, hn::LoadU(d16, block + 40)),
                              hn::DemoteTo(d8h, hn::LoadU(d16, block + 32)));
  const auto p3 = hn::Combine(d8, hn::DemoteTo(d8h, hn::LoadU(d16, block + 56)),
                              hn::DemoteTo(d8h, hn::LoadU(d16, block + 48)));
  const auto idx = [&](int j, int i) {
    return hn::LoadU(d8, reinterpret_cast<const int8_t*>(kZigzagShuffles.idx[j][i]));
  };
  const auto z0 = hn::Or(hn::Or(hn::TableLookupBytesOr0(p0, idx(0, 0)),
                                hn::TableLookupBytesOr0(p1, idx(0, 1))),
                         hn::TableLookupBytesOr0(p2, idx(0, 2)));
  const auto z1 = hn::Or(hn::Or(hn::TableLookupBytesOr0(p0, idx(1, 0)),
                                hn::TableLookupBytesOr0(p1, idx(1, 1))),
                         hn::Or(hn::TableLookupBytesOr0(p2, idx(1, 2)),
                                hn::TableLookupBytesOr0(p3, idx(1, 3))));
  const auto z2 = hn::Or(hn::Or(hn::TableLookupBytesOr0(p0, idx(2, 0)),
                                hn::TableLookupBytesOr0(p1, idx(2, 1))),
                         hn::Or(hn::TableLookupBytesOr0(p2, idx(2, 2)),
                                hn::TableLookupBytesOr0(p3, idx(2, 3))));
  const auto z3 = hn::Or(hn::Or(hn::TableLookupBytesOr0(p1, idx(3, 1)),
                                hn::TableLookupBytesOr0(p2, idx(3, 2))),
                         hn::TableLookupBytesOr0(p3, idx(3, 3)));
  const auto zero = hn::Zero(d8);
  uint8_t bits[8];
  hn::StoreMaskBits(d8, hn::Not(hn::Eq(z0, zero)), bits);
  hn::StoreMaskBits(d8, hn::Not(hn::Eq(z1, zero)), bits + 2);
  hn::StoreMaskBits(d8, hn::Not(hn::Eq(z2, zero)), bits + 4);
  hn::StoreMaskBits(d8, hn::Not(hn::Eq(z3, zero)), bits + 6);
  uint64_t m;
  std::memcpy(&m, bits, 8);
  return m;
}

// Bits collected right-aligned in a 64-bit word; after every symbol the
// whole bytes leave with one 8-byte store into a staging area on the stack
// (the bytes past them are rewritten by the next store), so the symbol loop
// has no data-dependent branch.  Stuffing is left to the copy-out.
struct StagingWriter {
  uint8_t* out;
  uint64_t buf;
  int nbits;  // < 8 after each Put

  HWY_INLINE void Put(uint64_t v, int n) {
    buf = (buf << n) | v;
    nbits += n;
    const uint64_t be = __builtin_bswap64(buf << ((64 - nbits) & 63));
    std::memcpy(out, &be, 8);
    out += nbits >> 3;
    nbits &= 7;
  }
};

// Copies n staged bytes to dst with an 0x00 after every 0xFF; returns the
// count written.  The staging area holds at least 16 bytes past n.
HWY_INLINE int CopyStuffed(uint8_t* dst, const uint8_t* stage, int n) {
  const hn::Full128<uint8_t> d;
  const auto ff = hn::Set(d, 0xFF);
  bool any = false;
  for (int i = 0; i < n; i += 16) {
    const auto m = hn::Eq(hn::LoadU(d, stage + i), ff);
    if (!hn::AllFalse(d, m)) {
      // Only an 0xFF inside the n bytes counts.
      uint8_t bits[2];
      hn::StoreMaskBits(d, m, bits);
      const uint32_t mask = uint32_t(bits[0]) | uint32_t(bits[1]) << 8;
      const int left = n - i;
      if (left >= 16 || (mask & ((1u << left) - 1)) != 0) {
        any = true;
        break;
      }
    }
  }
  if (HWY_LIKELY(!any)) {
    std::memcpy(dst, stage, size_t(n));
    return n;
  }
  int o = 0;
  for (int i = 0; i < n; ++i) {
    dst[o++] = stage[i];
    if (stage[i] == 0xFF) dst[o++] = 0;
  }
  return o;
}

HWY_INLINE uint32_t Magnitude(int32_t v) { return uint32_t(v < 0 ? -v : v); }
// Bit length of a non-zero magnitude.
HWY_INLINE int BitLengthNZ(uint32_t a) { return 32 - __builtin_clz(a); }

// The symbols of one block into the staging area; the DC predictor moves
// on.  Returns false when a symbol has no code (or category 16 meets a run
// of 15): the careful writer then codes the block to report exactly where.
HWY_INLINE bool StageBlock(StagingWriter& w, const int16_t* block, int16_t* last_dc,
                           const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac) {
  const uint64_t nz = NonZeroMask(block);
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  *last_dc = block[0];
  // Entries are valid when their length is 1..16: (entry - 0x10000) below
  // 0x100000.  Invalid ones are only flagged here; lengths are masked so the
  // shifts stay defined.
  uint32_t bad = 0;
  const uint32_t a = Magnitude(diff);
  int s = a ? BitLengthNZ(a) : 0;
  uint32_t e = dc->entry[s];
  bad |= uint32_t(e - 0x10000u >= 0x100000u);
  int n = int(e >> 16) & 31;
  w.Put((uint64_t(e & 0xFFFF) << s) | ExtraBits(diff, s), n + s);
  const uint32_t zrl = ac->entry[0xF0];
  uint64_t m = nz & ~uint64_t(1);
  int prev = 0;
  while (m != 0) {
    const int k = int(__builtin_ctzll(m));
    m &= m - 1;
    int run = k - prev - 1;
    prev = k;
    const int32_t v = block[kZigzag[k]];
    if (HWY_UNLIKELY(run > 15)) {
      bad |= uint32_t(zrl - 0x10000u >= 0x100000u);
      const int zn = int(zrl >> 16) & 31;
      for (; run > 15; run -= 16) w.Put(zrl & 0xFFFF, zn);
    }
    s = BitLengthNZ(Magnitude(v));
    const uint32_t sym = uint32_t(run * 16 + s);
    e = ac->entry[sym & 0xFF];
    bad |= (sym >> 8) | uint32_t(e - 0x10000u >= 0x100000u);
    n = int(e >> 16) & 31;
    w.Put((uint64_t(e & 0xFFFF) << s) | (uint32_t(v + (v >> 31)) & ((1u << s) - 1)), n + s);
  }
  if (prev != 63) {
    e = ac->entry[0x00];
    bad |= uint32_t(e - 0x10000u >= 0x100000u);
    w.Put(e & 0xFFFF, int(e >> 16) & 31);
  }
  return bad == 0;
}

RvtResult Encode8x8Fast(const int16_t* block, uint8_t* dst, int len, int* pos, int16_t* last_dc,
                        const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac,
                        EncodeHuffmanState* st, int flush) {
  if (flush) return Encode8x8Careful(block, dst, len, pos, last_dc, dc, ac, st, flush);
  RVT_CHECK(CheckEncode8x8(block, dst, len, pos, last_dc, dc, ac, st));
  const int count = st->count & 7;
  const uint32_t pending = (uint32_t(st->acc) >> (24 - count)) & ((1u << count) - 1);
  // Room for a block's worst case (2055 bits) plus the 8-byte store past it.
  alignas(16) uint8_t stage[272];
  StagingWriter w{stage, pending, count};
  const int16_t dc_before = *last_dc;
  const bool ok = StageBlock(w, block, last_dc, dc, ac);
  const int staged = int(w.out - stage);
  // Stuffing at most doubles the bytes: copy out when even that fits.
  if (HWY_UNLIKELY(!ok || 2 * staged > len - *pos)) {
    *last_dc = dc_before;
    return Encode8x8Body(block, dst, len, pos, last_dc, dc, ac, st);
  }
  *pos += CopyStuffed(dst + *pos, stage, staged);
  st->acc = uint64_t(uint32_t(w.buf) & ((1u << w.nbits) - 1)) << (24 - w.nbits);
  st->count = w.nbits;
  return rvtStatusOk;
}

// The careful reader with a four-byte fill: it takes as many whole bytes as
// the byte loop would (up to 32 bits), when none of them can be a marker or
// stuffing and all lie inside the source; anything else goes byte by byte.
struct FastReader : BitReader {
  HWY_INLINE RvtResult Fill(int n) {
    if (count < 25 && pos <= len - 4 && *marker == 0) {
      uint32_t w;
      std::memcpy(&w, src + pos, 4);
      w = __builtin_bswap32(w);
      if (!HasFFByte(w)) {
        const int k = (32 - count) >> 3;
        acc = k == 4 ? w : (acc << (8 * k)) | (w >> (32 - 8 * k));
        count += 8 * k;
        pos += k;
        return rvtStatusOk;
      }
    }
    return BitReader::Fill(n);
  }
  HWY_INLINE RvtResult Need(int n) { return count < n ? Fill(n) : rvtStatusOk; }
};

// DecodeSymbol with the four-byte fill; codes longer than 8 bits (and
// codes read from fewer than 8 bits) take the careful search.
HWY_INLINE int FastSymbol(FastReader& r, const DecodeHuffmanSpec* t) {
  if (r.count < 8) {
    const RvtResult st = r.Fill(0);
    if (st != rvtStatusOk) return st;
  }
  int len = 1;
  if (r.count >= 8) {
    const uint32_t e = t->lookup[r.Peek8()];
    const uint32_t n = (e >> 16) & 0xFF;
    if (n - 1 < 8) {
      r.count -= int(n);
      return int(e & 0xFF);
    }
    len = 9;
  }
  if (r.count < len) {
    const RvtResult st = r.Fill(len);
    if (st != rvtStatusOk) return st;
  }
  BitReader& careful = r;
  return SearchCode(careful, t, len, int32_t(r.Take(len)));
}

// DecodeBlock over the fast reader, step for step.
HWY_INLINE RvtResult FastDecodeBlock(FastReader& r, int16_t* block, int16_t* last_dc,
                                     const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac,
                                     uint32_t* done) {
  int sym = FastSymbol(r, dc);
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
  int k = 1;  // zig-zag position; 64 - k positions remain
  for (;;) {
    sym = FastSymbol(r, ac);
    if (sym < 0) {
      *done = uint32_t(k);
      return RvtResult(sym);
    }
    const int run = sym >> 4;
    s = sym & 15;
    if (s != 0) {
      k += run + 1;
      const RvtResult st = r.Need(s);
      if (st != rvtStatusOk) {
        *done = uint32_t(k);
        return st;
      }
      const int32_t v = Extend(r.Take(s), s);
      const int at = kZigzagDecode[k - 1];
      if (at > 63) return rvtStatusErr;
      block[at] = int16_t(v);
    } else if (run < 15) {
      break;  // EOB
    } else {
      k += 16;  // ZRL
    }
    if (k > 63) break;
  }
  *done = uint32_t(k);
  return rvtStatusOk;
}

RvtResult Decode8x8Fast(const uint8_t* src, int len, int* pos, int16_t* block, int16_t* last_dc,
                        int* marker, const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac,
                        DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecode8x8(src, len, pos, block, last_dc, marker, dc, ac, st));
  std::memset(block, 0, 64 * sizeof(int16_t));
  FastReader r{{src, len, *pos, 0, 0, marker}};
  r.Load(st);
  const RvtResult status = FastDecodeBlock(r, block, last_dc, dc, ac, &st->coefsDone);
  *pos = r.pos;
  r.Store(st);
  return status;
}

}  // namespace HWY_NAMESPACE
}  // namespace huff
}  // namespace rvt
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
using namespace huff;  // NOLINT

RVT_IMPL_HWY(rvtiEncodeHuffman8x8_JPEG_16s1u_C1, Encode8x8Fast, Encode8x8Careful);
RVT_IMPL_HWY(rvtiDecodeHuffman8x8_JPEG_1u16s_C1, Decode8x8Fast, Decode8x8Careful);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanOne_JPEG_16s1u_C1, EncodeOne);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanOne_JPEG_1u16s_C1, DecodeOne);
RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1, EncodeDirect);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1, DecodeDirect);

}  // namespace rvt
#endif
