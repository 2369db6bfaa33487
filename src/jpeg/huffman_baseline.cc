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
//  - the decoder reads eight bytes at a time into a 64-bit buffer and keeps
//    the careful reader's count and position beside it, so the state it
//    leaves is the careful one; blocks near the end of the source, after a
//    marker, with 0xFF bytes or with invalid codes go to the careful path.
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

// Zig-zag order as 16-bit lane indices into the block seen as 64 lanes.
alignas(64) inline constexpr uint16_t kZigzagLanes[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

inline bool HasFFByte64(uint64_t w) {
  return (((w & 0x7F7F7F7F7F7F7F7Full) + 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
}

// What the careful reader does over one symbol whose code (1..8 bits) came
// from the lookup, followed by its s (0..15) value bits, when the source
// has plenty of plain bytes: from count c it fills (below 8 bits, to 25..32)
// before the code and again (below s bits) before the value.  Entry
// c * 128 + (len - 1) * 16 + s holds the count after, times 128: the start
// of that count's row, so the next step is one add and one load.  (The bytes it read follow from
// the counts and the bits taken.)
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

// Bit length of a non-zero magnitude (bsr + 1).
HWY_INLINE int BitLengthNZ(uint32_t a) { return (__builtin_clz(a) ^ 31) + 1; }

// What the symbol loop needs of each zig-zag position.  Targets that
// permute 64 lanes in two instructions prepare it for the whole block; the
// others read the block through the index table as they go.
struct ZigzagBlock {
#if HWY_TARGET == HWY_AVX3
  // Per zig-zag position: the magnitude category and the value bits before
  // masking (v, or v - 1 when negative).
  alignas(64) uint8_t size[64];
  alignas(64) int16_t bits[64];
  uint64_t Load(const int16_t* block) {
    const __m512i lo = _mm512_loadu_si512(block);
    const __m512i hi = _mm512_loadu_si512(block + 32);
    const __m512i z[2] = {
        _mm512_permutex2var_epi16(lo, _mm512_load_si512(kZigzagLanes), hi),
        _mm512_permutex2var_epi16(lo, _mm512_load_si512(kZigzagLanes + 32), hi)};
    const __m512i zero = _mm512_setzero_si512();
    for (int h = 0; h < 2; ++h) {
      _mm512_store_si512(bits + 32 * h, _mm512_add_epi16(z[h], _mm512_srai_epi16(z[h], 15)));
      // Category from the float exponent of the magnitude (exact below 2^24).
      const __m512i a = _mm512_abs_epi16(z[h]);
      for (int q = 0; q < 2; ++q) {
        const __m512i a32 = _mm512_cvtepu16_epi32(
            q ? _mm512_extracti64x4_epi64(a, 1) : _mm512_castsi512_si256(a));
        const __m512i e = _mm512_srli_epi32(_mm512_castps_si512(_mm512_cvtepi32_ps(a32)), 23);
        const __m512i n = _mm512_max_epi32(_mm512_sub_epi32(e, _mm512_set1_epi32(126)), zero);
        _mm_store_si128(reinterpret_cast<__m128i*>(size + 32 * h + 16 * q),
                        _mm512_cvtepi32_epi8(n));
      }
    }
    return uint64_t(_mm512_test_epi16_mask(z[0], z[0])) |
           uint64_t(_mm512_test_epi16_mask(z[1], z[1])) << 32;
  }

  HWY_INLINE int Size(const int16_t*, int k) const { return size[k]; }
  HWY_INLINE uint32_t Bits(const int16_t*, int k) const { return uint16_t(bits[k]); }
#else
  uint64_t Load(const int16_t* block) { return NonZeroMask(block); }
  HWY_INLINE int Size(const int16_t* block, int k) const {
    const int32_t v = block[kZigzag[k]];
    const int32_t sign = v >> 31;
    return BitLengthNZ(uint32_t((v ^ sign) - sign));
  }
  HWY_INLINE uint32_t Bits(const int16_t* block, int k) const {
    const int32_t v = block[kZigzag[k]];
    return uint32_t(v + (v >> 31));
  }
#endif
};

// Bits collected left-aligned in a 64-bit word (zeros below them); after
// every symbol the whole bytes leave with one 8-byte store into a staging
// area on the stack (the bytes past them are rewritten by the next store),
// so the symbol loop has no data-dependent branch.  Stuffing is left to the
// copy-out.
struct StagingWriter {
  uint8_t* out;
  uint64_t buf;
  uint32_t nbits;  // < 8 after each Put

  // v holds n bits (0..47); shift counts stay within 0..63.
  HWY_INLINE void Put(uint64_t v, uint32_t n) {
    nbits += n;
    buf |= v << ((64 - nbits) & 63);
    const uint64_t be = __builtin_bswap64(buf);
    std::memcpy(out, &be, 8);
    out += nbits >> 3;
    buf <<= nbits & ~7u;
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

// The symbols of one block into the staging area; the DC predictor moves
// on.  Returns false when a symbol has no code (or category 16 meets a run
// of 15): the careful writer then codes the block to report exactly where.
HWY_INLINE bool StageBlock(StagingWriter& w, const int16_t* block, int16_t* last_dc,
                           const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac) {
  ZigzagBlock zz;
  const uint64_t nz = zz.Load(block);
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  *last_dc = block[0];
  // A length field outside 1..16 (no code, or not a built spec) leaves a
  // bit at 16 or above in (length - 1); lengths are only flagged here and
  // masked, so the shifts stay defined.
  uint32_t bad = 0;
  const uint32_t a = uint32_t(diff < 0 ? -diff : diff);
  int s = a ? BitLengthNZ(a) : 0;
  uint32_t e = dc->entry[s];
  uint32_t n = (e >> 16) & 0xFF;
  bad |= n - 1;
  w.Put((uint64_t(e & 0xFFFF) << s) | ExtraBits(diff, s), (n & 31) + uint32_t(s));
  const uint32_t zrl = ac->entry[0xF0];
  uint64_t m = nz & ~uint64_t(1);
  int prev = 0;
  while (m != 0) {
    const int k = int(__builtin_ctzll(m));
    m &= m - 1;
    int run = k - prev - 1;
    prev = k;
    if (HWY_UNLIKELY(run > 15)) {
      const uint32_t zn = (zrl >> 16) & 0xFF;
      bad |= zn - 1;
      for (; run > 15; run -= 16) w.Put(zrl & 0xFFFF, zn & 31);
    }
    s = zz.Size(block, k);
    const uint32_t sym = uint32_t(run * 16 + s);
    e = ac->entry[sym & 0xFF];
    n = (e >> 16) & 0xFF;
    bad |= (n - 1) | (sym & 0x100);
    const uint64_t extra = zz.Bits(block, k) & ((1u << s) - 1);
    w.Put((uint64_t(e & 0xFFFF) << s) | extra, (n & 31) + uint32_t(s));
  }
  if (prev != 63) {
    e = ac->entry[0x00];
    n = (e >> 16) & 0xFF;
    bad |= n - 1;
    w.Put(e & 0xFFFF, n & 31);
  }
  return (bad & ~15u) == 0;
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
  StagingWriter w{stage, count ? uint64_t(pending) << (64 - count) : 0, uint32_t(count)};
  const int16_t dc_before = *last_dc;
  const bool ok = StageBlock(w, block, last_dc, dc, ac);
  const int staged = int(w.out - stage);
  // Stuffing at most doubles the bytes: copy out when even that fits.
  if (HWY_UNLIKELY(!ok || 2 * staged > len - *pos)) {
    *last_dc = dc_before;
    return Encode8x8Body(block, dst, len, pos, last_dc, dc, ac, st);
  }
  *pos += CopyStuffed(dst + *pos, stage, staged);
  st->acc = w.buf >> 40;  // the pending bits under bit 24
  st->count = int(w.nbits);
  return rvtStatusOk;
}

// Fast block decoder.  It reads the source eight bytes at a time into a
// 64-bit buffer and, beside it, keeps the careful reader's count (which
// fills the same bytes at the same moments, only later); the careful
// position follows from that count at the end, so the state it leaves is
// the careful one.  It decodes a block only when
// nothing can make the two differ: no marker pending, the source far enough
// from its end, no 0xFF byte among the bytes it takes, and every code and
// run valid.  Otherwise it leaves everything untouched and says so; the
// careful decoder then takes the block from the start.
struct FastBits {
  const uint8_t* src;
  uint64_t buf;  // nb valid bits, left-aligned (oldest in bit 63), zeros below
  int nb;
  int rpos;      // next byte for buf
  int vc;        // the careful reader's valid-bit count (times 128 in FastCoefficient)

  // Tops buf up to 56..63 bits; false on an 0xFF byte.
  HWY_INLINE bool Refill() {
    uint64_t w;
    std::memcpy(&w, src + rpos, 8);
    w = __builtin_bswap64(w);
    const int k = (63 - nb) >> 3;  // 2..7 whole bytes
    const uint64_t taken = w >> (64 - 8 * k);
    if (HWY_UNLIKELY(HasFFByte64(taken))) return false;
    buf |= taken << (64 - nb - 8 * k);
    nb += 8 * k;
    rpos += k;
    return true;
  }
  // What the careful reader does when asked for `need` bits: below that it
  // fills to 25..32 bits, ceil((25 - vc) / 8) bytes.  Without a branch: it
  // depends on the data and is off the critical path.
  HWY_INLINE void CarefulNeed(int need) {
    const int below = (vc - need) >> 31;  // -1 when vc < need
    vc += 8 * (((32 - vc) >> 3) & below);
  }
  HWY_INLINE void Skip(int n) {
    buf <<= n;
    nb -= n;
    vc -= n;
  }
  // The next n (1..16) bits.
  HWY_INLINE uint32_t Peek(int n) const { return uint32_t(buf >> (64 - n)); }
};

// A code longer than 8 bits, one bit at a time as the careful search goes.
// Returns the symbol, or -1 for data no code covers.
HWY_INLINE int FastSearch(FastBits& f, const DecodeHuffmanSpec* t) {
  f.CarefulNeed(9);
  int32_t code = int32_t(f.Peek(9));
  f.Skip(9);
  int len = 9;
  while (code > MaxCode(t, len)) {
    f.CarefulNeed(1);
    code = (code << 1) | int32_t(f.Peek(1));
    f.Skip(1);
    if (++len > 16) return -1;
  }
  const int32_t index = int32_t(t->valueIndex[len]) - int32_t(t->minCode[len]) + code;
  if (uint32_t(index) > 255u) return -1;
  return t->values[index] & 0xFF;
}

// A block needs at most 31 + 63 * 31 bits; with the 8-byte loads past them
// this much source lets the fast decoder skip every bound check.
constexpr int kFastMargin = 256 + 16;

// One symbol and its value bits: the symbol (or -1 to leave the block to
// the careful decoder) and the extended value in *v when s > 0.  The
// careful reader's count and position follow from one table step for
// codes of up to 8 bits, one bit at a time for the longer ones.
HWY_INLINE int FastCoefficient(FastBits& f, const DecodeHuffmanSpec* t, int32_t* v) {
  const uint32_t e = t->lookup[f.buf >> 56];
  const uint32_t n = e >> 16;
  int sym, s;
  if (HWY_LIKELY(n - 1 < 8)) {
    sym = int(e & 0xFF);
    s = sym & 15;
    f.vc = kCarefulSteps.step[f.vc + int((n - 1) << 4) + s];
    f.buf <<= n;
    f.nb -= int(n);
  } else {
    // An entry with stray high bits reads as a hit to the careful decoder.
    if (((n & 0xFF) - 1) < 8) return -1;
    f.vc >>= 7;
    f.CarefulNeed(8);
    sym = FastSearch(f, t);
    if (sym < 0) return -1;
    s = sym & 15;
    if (s != 0) {
      f.CarefulNeed(s);
      f.vc -= s;
    }
    f.vc <<= 7;
  }
  if (s != 0) {
    const uint32_t r = f.Peek(s);
    f.buf <<= s;
    f.nb -= s;
    const int32_t negative = int32_t((r >> (s - 1)) & 1) - 1;  // -1 when the top bit is clear
    *v = int32_t(r) + (negative & (1 - (1 << s)));
  }
  return sym;
}

HWY_INLINE bool FastDecodeBlock(FastBits& f, int16_t* block, int16_t* last_dc,
                                const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac,
                                int* done) {
  if (f.nb < 48 && !f.Refill()) return false;
  int32_t v = 0;
  int sym = FastCoefficient(f, dc, &v);
  if (sym < 0) return false;
  const int16_t dc_value = (sym & 15) ? int16_t(*last_dc + v) : *last_dc;
  block[0] = dc_value;
  int k = 1;  // zig-zag position; 64 - k positions remain
  for (;;) {
    if (f.nb < 48 && !f.Refill()) return false;
    sym = FastCoefficient(f, ac, &v);
    if (HWY_UNLIKELY(sym < 0)) return false;
    const int run = sym >> 4;
    if (HWY_LIKELY((sym & 15) != 0)) {
      k += run + 1;
      if (HWY_UNLIKELY(k > 72)) return false;  // past the guard positions
      block[kZigzagDecode[k - 1]] = int16_t(v);
    } else if (run < 15) {
      break;  // EOB
    } else {
      k += 16;  // ZRL
    }
    if (k > 63) break;
  }
  *last_dc = dc_value;
  *done = k;
  return true;
}

RvtResult Decode8x8Fast(const uint8_t* src, int len, int* pos, int16_t* block, int16_t* last_dc,
                        int* marker, const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac,
                        DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecode8x8(src, len, pos, block, last_dc, marker, dc, ac, st));
  if (*marker == 0 && len - *pos >= kFastMargin) {
    BitReader careful{src, len, *pos, 0, 0, marker};
    careful.Load(st);
    FastBits f{src, careful.count ? uint64_t(careful.acc) << (64 - careful.count) : 0,
               careful.count, *pos, careful.count * 128};
    // At most 256-bit stores: the block need not be 64-byte aligned.
    const hn::CappedTag<int16_t, 16> d;
    for (size_t i = 0; i < 64; i += hn::Lanes(d)) hn::StoreU(hn::Zero(d), d, block + i);
    int done = 0;
    if (HWY_LIKELY(FastDecodeBlock(f, block, last_dc, dc, ac, &done))) {
      // Both readers took the same bits; the careful one read (nb - vc) / 8
      // fewer bytes.
      const int vc = f.vc >> 7;
      *pos = f.rpos - ((f.nb - vc) >> 3);
      st->acc = vc ? f.buf >> (64 - vc) : 0;
      st->count = vc;
      st->coefsDone = uint32_t(done);
      return rvtStatusOk;
    }
  }
  return Decode8x8Careful(src, len, pos, block, last_dc, marker, dc, ac, st);
}

}  // namespace HWY_NAMESPACE
}  // namespace huff
}  // namespace rvt
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
using namespace huff;  // NOLINT

RVT_IMPL_HWY_LEGACY(rvtiEncodeHuffman8x8_JPEG_16s1u_C1, Encode8x8Fast, Encode8x8Careful);
// The decoder's fast path is scalar code; its AVX-512 build keeps 16-bit
// values in mask registers and runs slower, so the AVX2 build serves both.
extern const Impl<decltype(&::rvtiDecodeHuffman8x8_JPEG_1u16s_C1)>
    impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1;
const Impl<decltype(&::rvtiDecodeHuffman8x8_JPEG_1u16s_C1)>
    impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1 = {
        {HWY_CHOOSE_AVX2(Decode8x8Fast), HWY_CHOOSE_AVX2(Decode8x8Fast),
         HWY_CHOOSE_SSSE3(Decode8x8Fast), &Decode8x8Careful}};
RVT_IMPL_PLAIN(rvtiEncodeHuffmanOne_JPEG_16s1u_C1, EncodeOne);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanOne_JPEG_1u16s_C1, DecodeOne);
RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1, EncodeDirect);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1, DecodeDirect);

}  // namespace rvt
#endif
