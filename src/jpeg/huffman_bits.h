// Huffman objects and the bit-level machinery every JPEG entropy coder of
// the library shares (baseline now; progressive and lossless coders build on
// the same pieces): the layouts of the four objects, the decoder's zig-zag
// guard table, magnitude categories, the careful bit writer (byte stuffing,
// bounded destination) with its flush, and the careful bit reader
// (unstuffing, fill bytes, markers) with its symbol decoder.
//
// The objects are flat and caller-owned; callers may hold states that were
// copied, saved or filled by hand, so everything read from a state is
// brought into range first (the pending-bit counts are clamped and the
// accumulators masked to their valid bits) and every table index derived
// from a spec is bounded.  Stored states are canonical: the accumulators hold
// their valid bits and zeros elsewhere.
#ifndef RVT_JPEG_HUFFMAN_BITS_H_
#define RVT_JPEG_HUFFMAN_BITS_H_

#include <cstddef>
#include <cstdint>

#include "frame/memory.h"
#include "jpeg/zigzag.h"
#include "rvtjp.h"

// The public header declares these as incomplete types; their layouts are
// part of the interface (callers size and copy them, other coders read their
// fields), so they are fixed here and checked below.
struct EncodeHuffmanSpec {
  uint32_t entry[256];  // (length << 16) | code, right-aligned; 0 = no code
};

struct DecodeHuffmanSpec {
  uint16_t values[256];   // symbols in code order
  uint32_t lookup[256];   // next 8 bits -> symbol | (length << 16), length <= 8
  uint16_t minCode[18];   // by length 1..16: first code
  uint16_t maxCode[18];   // by length 1..16: last code, 0xFFFF when none
  uint16_t valueIndex[18];  // by length 1..16: index of its first symbol
};

struct EncodeHuffmanState {
  uint64_t acc;       // pending bits, left-aligned under bit 24
  int32_t count;      // number of pending bits, 0..7 between calls
  uint32_t eobRun;    // progressive coders: end-of-band run
  uint32_t nCorr;     // progressive refinement: buffered correction bits
  uint8_t corr[1024];  // progressive refinement: one correction bit per byte
};

struct DecodeHuffmanState {
  uint64_t acc;        // valid bits in the low `count` bits, oldest highest
  int32_t count;       // 0..32
  uint32_t eobRun;     // progressive decoders: end-of-band run
  uint32_t coefsDone;  // baseline block decoder: zig-zag positions passed
};

static_assert(sizeof(EncodeHuffmanSpec) == 1024);
static_assert(sizeof(DecodeHuffmanSpec) == 1644);
static_assert(offsetof(DecodeHuffmanSpec, lookup) == 512);
static_assert(offsetof(DecodeHuffmanSpec, minCode) == 1536);
static_assert(offsetof(DecodeHuffmanSpec, maxCode) == 1572);
static_assert(offsetof(DecodeHuffmanSpec, valueIndex) == 1608);
static_assert(sizeof(EncodeHuffmanState) == 1048);
static_assert(offsetof(EncodeHuffmanState, count) == 8);
static_assert(offsetof(EncodeHuffmanState, eobRun) == 12);
static_assert(offsetof(EncodeHuffmanState, nCorr) == 16);
static_assert(offsetof(EncodeHuffmanState, corr) == 20);
static_assert(sizeof(DecodeHuffmanState) == 24);
static_assert(offsetof(DecodeHuffmanState, count) == 8);
static_assert(offsetof(DecodeHuffmanState, eobRun) == 12);
static_assert(offsetof(DecodeHuffmanState, coefsDone) == 16);

namespace rvt::huff {

constexpr int kEncodeSpecBytes = 1024;
constexpr int kDecodeSpecBytes = 1644;
constexpr int kEncodeStateBytes = 1048;
constexpr int kDecodeStateBytes = 24;

// The decoder's zig-zag order runs past position 63: a run that ends on
// positions 64..71 lands on coefficient 63, and positions 72..79 lie outside
// the block (the decoder reports those as an error).  Runs cannot reach
// beyond 78.
struct ZigzagDecodeTable {
  uint8_t v[80];
  constexpr ZigzagDecodeTable() : v() {
    for (int k = 0; k < 80; ++k) v[k] = k < 64 ? kNaturalOfZigzag[k] : (k < 72 ? 63 : 64);
  }
};
inline constexpr ZigzagDecodeTable kZigzagDecode{};

// Bit lengths of 0..255.
struct BitLengthTable {
  uint8_t v[256];
  constexpr BitLengthTable() : v() {
    for (int i = 1; i < 256; ++i) v[i] = uint8_t(v[i >> 1] + 1);
  }
};
inline constexpr BitLengthTable kBitLength{};

// Magnitude category of a value: the bit length of |v| (0 for 0, up to 16
// for |v| = 32768..65535).
inline int Category(int32_t v) {
  const uint32_t a = uint32_t(v < 0 ? -v : v);
  return a < 256 ? kBitLength.v[a] : kBitLength.v[(a >> 8) & 0xFF] + 8;
}

// Extra bits of v in category s: v, or v - 1 when negative, low s bits.
inline uint32_t ExtraBits(int32_t v, int s) {
  return uint32_t(v < 0 ? v - 1 : v) & ((1u << s) - 1);
}

// Inverse of ExtraBits: r read in s bits (1..15) back to the value.
inline int32_t Extend(uint32_t r, int s) {
  const int32_t negative = int32_t((r >> (s - 1)) & 1) - 1;  // -1 when the top bit is clear
  return int32_t(r) + (negative & (1 - (1 << s)));
}

// Code length of a spec entry (0 = no code); lengths above 16 cannot be
// built and are read as "no code".
inline int CodeLength(uint32_t entry) {
  const int n = int(entry >> 16) & 0xFF;
  return n <= 16 ? n : 0;
}

// ---------------------------------------------------------------- writer

// Careful bit writer over a bounded destination.  Pending bits sit in acc
// left-aligned under bit 24 (the next byte to leave is bits 23..16); every
// complete byte leaves at once, an 0xFF followed by a stuffed 0x00.
struct BitWriter {
  uint8_t* dst;
  int len;
  int pos;
  uint32_t acc;
  int count;

  // Loads the pending bits of a state in canonical form.
  void Load(const EncodeHuffmanState* st) {
    count = st->count & 7;
    acc = uint32_t(st->acc) & (0xFFFFFFu << (24 - count)) & 0xFFFFFFu;
  }
  void Store(EncodeHuffmanState* st) const {
    st->acc = acc;
    st->count = count;
  }

  // Appends the low n bits of v (n = 0 reports a symbol without a code).  On
  // failure the bytes already stored stay, pos counts them, and acc/count
  // keep their values from before this call.
  RvtResult Put(uint32_t v, int n) {
    if (n == 0) return rvtStatusHuffTable;
    int c = count + n;
    uint32_t a = acc | ((v & ((1u << n) - 1)) << (24 - c));
    while (c >= 8) {
      if (pos >= len) return rvtStatusOutOfBuffer;
      const uint8_t b = uint8_t(a >> 16);
      dst[pos++] = b;
      if (b == 0xFF) {
        if (pos >= len) return rvtStatusOutOfBuffer;
        dst[pos++] = 0;
      }
      a = (a << 8) & 0xFFFFFF;
      c -= 8;
    }
    acc = a;
    count = c;
    return rvtStatusOk;
  }

  RvtResult PutCode(uint32_t entry) { return Put(entry & 0xFFFF, CodeLength(entry)); }
};

// Zeroes every field of an encoder state (the state Init).
inline void ResetEncodeState(EncodeHuffmanState* st) { ZeroFill(st, kEncodeStateBytes); }

// Completes a pending partial byte with 1-bits and clears the whole state
// (whatever the write returned).  Nothing is written when no bits are
// pending.
inline RvtResult FlushState(uint8_t* dst, int len, int* pos, EncodeHuffmanState* st) {
  BitWriter w{dst, len, *pos, 0, 0};
  w.Load(st);
  const RvtResult status = w.Put(0x7F, 7);
  *pos = w.pos;
  ResetEncodeState(st);
  return status;
}

// ---------------------------------------------------------------- reader

// Careful bit reader.  Stream bytes are shifted into acc from the right; the
// valid bits are the low `count`, the oldest first.  Fill(n) tops the count
// up to at least 25 bits while bytes remain, unstuffs FF 00, passes over fill
// bytes (FF FF) and stops at a marker, which it reports through *marker and
// passes; once a marker is known it reads nothing.  It fails only when the
// n bits asked for cannot be had: rvtStatusOutOfBuffer at the end of the
// source (and, whatever n is, when the source ends right after an 0xFF),
// rvtStatusHuffData after a marker.
struct BitReader {
  const uint8_t* src;
  int len;  // bytes from src; reading stops at len
  int pos;
  uint32_t acc;
  int count;
  int* marker;

  void Load(uint64_t state_acc, int state_count) {
    count = state_count < 0 ? 0 : (state_count > 32 ? 32 : state_count);
    acc = count == 0 ? 0u : uint32_t(state_acc) & (0xFFFFFFFFu >> (32 - count));
  }
  uint32_t CanonicalAcc() const {
    return count == 0 ? 0u : acc & (0xFFFFFFFFu >> (32 - count));
  }
  void Load(const DecodeHuffmanState* st) { Load(st->acc, st->count); }
  void Store(DecodeHuffmanState* st) const {
    st->acc = CanonicalAcc();
    st->count = count;
  }

  RvtResult Fill(int n) {
    if (*marker != 0) return n > count ? rvtStatusHuffData : rvtStatusOk;
    while (count < 25) {
      if (pos >= len) return n > count ? rvtStatusOutOfBuffer : rvtStatusOk;
      uint32_t b = src[pos++];
      if (b == 0xFF) {
        for (;;) {
          if (pos >= len) return rvtStatusOutOfBuffer;
          const uint32_t next = src[pos++];
          if (next == 0) break;
          if (next == 0xFF) continue;
          *marker = int(next);
          return n > count ? rvtStatusHuffData : rvtStatusOk;
        }
      }
      acc = (acc << 8) | b;
      count += 8;
    }
    return rvtStatusOk;
  }

  // Makes n bits available (fills only when fewer are held).
  RvtResult Need(int n) { return count < n ? Fill(n) : rvtStatusOk; }

  // Takes n (1..16) valid bits.
  uint32_t Take(int n) {
    count -= n;
    return (acc >> count) & ((1u << n) - 1);
  }
  uint32_t Peek8() const { return (acc >> (count - 8)) & 0xFF; }
};

// Maximum code of a length as the decoder compares it: 0xFFFF means "no code
// of this length" and is below every code; any other value is a code.
inline int32_t MaxCode(const DecodeHuffmanSpec* t, int len) {
  const uint32_t m = t->maxCode[len];
  return m == 0xFFFF ? -1 : int32_t(m);
}

// Code-by-code search from length `len` with `code` already taken (the
// decoder's path for codes longer than 8 bits, and for every code when fewer
// than 8 bits are left).  Returns the symbol (0..255) or a negative status.
template <class Reader>
inline int SearchCode(Reader& r, const DecodeHuffmanSpec* t, int len, int32_t code) {
  while (code > MaxCode(t, len)) {
    if (r.count < 1) {
      const RvtResult st = r.Fill(1);
      if (st != rvtStatusOk) return st;
    }
    code = (code << 1) | int32_t(r.Take(1));
    if (++len > 16) return rvtStatusHuffData;
  }
  // Only a table that is not a prefix code can point outside its values.
  const int32_t index = int32_t(t->valueIndex[len]) - int32_t(t->minCode[len]) + code;
  if (uint32_t(index) > 255u) return rvtStatusHuffData;
  return t->values[index] & 0xFF;
}

// Decodes one symbol: an 8-bit lookup when 8 bits can be had, else (or for
// longer codes) the search.  Returns the symbol (0..255) or a negative
// status.
template <class Reader>
inline __attribute__((always_inline)) int DecodeSymbol(Reader& r, const DecodeHuffmanSpec* t) {
  if (r.count < 8) {
    const RvtResult st = r.Fill(0);
    if (st != rvtStatusOk) return st;
  }
  int len;
  if (r.count >= 8) {
    const uint32_t e = t->lookup[r.Peek8()];
    const uint32_t n = (e >> 16) & 0xFF;
    if (n - 1 < 8) {
      r.count -= int(n);
      return int(e & 0xFF);
    }
    len = 9;
  } else {
    len = 1;
  }
  if (r.count < len) {
    const RvtResult st = r.Fill(len);
    if (st != rvtStatusOk) return st;
  }
  return SearchCode(r, t, len, int32_t(r.Take(len)));
}

}  // namespace rvt::huff

#endif  // RVT_JPEG_HUFFMAN_BITS_H_
