// Baseline Huffman decoding: the fast block kernel of one target.  No
// checks here: the driver in huffman_decode.h has checked the arguments.
//
// The kernel reads eight bytes at a time into a 64-bit buffer and keeps the
// careful reader's count and position beside it, so the state it leaves is
// the careful one; blocks near the end of the source, after a marker, with
// 0xFF bytes or with codes the fast walk does not take (invalid ones, and
// table entries the careful reader reads differently) go to the careful
// reader from the untouched state.
#if defined(RVT_JPEG_HUFFMAN_DECODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_HUFFMAN_DECODE_INL_H_
#undef RVT_JPEG_HUFFMAN_DECODE_INL_H_
#else
#define RVT_JPEG_HUFFMAN_DECODE_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "jpeg/huffman_decode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_decode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// True when one of the eight bytes of w is 0xFF.
inline bool HasFFByte64(uint64_t w) {
  return (((w & 0x7F7F7F7F7F7F7F7Full) + 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
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
      block[kZigzagDecode.v[k - 1]] = int16_t(v);
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

// The block kernel: a checked block.
inline RvtResult Decode8x8Block(const uint8_t* src, int len, int* pos, int16_t* block,
                                int16_t* last_dc, int* marker, const DecodeHuffmanSpec* dc,
                                const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
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
  return Decode8x8Body(src, len, pos, block, last_dc, marker, dc, ac, st);
}

}  // namespace rvt::huffman_decode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_DECODE_INL_H_
