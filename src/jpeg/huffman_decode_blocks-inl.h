// Baseline Huffman decoding of a run of MCUs: the fast kernel of one
// target.  No checks here: the driver in huffman_decode_blocks.h has
// checked the arguments.
//
// Once per call the kernel turns each table the run uses into a lookup (8
// bits for DC, 10 for AC) that gives, per code, everything the loop needs
// (bits taken, the careful reader's step, the zig-zag advance), then
// decodes block after block with the bit buffer in registers, writing the
// caller's position and state back once, at the end.  The value bits are
// read without a branch.
// Beside its 64-bit buffer it keeps the careful reader's valid-bit count,
// so the state it leaves is the careful one; before every two coefficients
// it refills to 56..63 bits without a branch while none of the next eight
// bytes is 0xFF, and byte by byte, unstuffing FF 00, otherwise.  A block
// near the end of the source, after a marker, over a marker or fill bytes,
// or with codes the fast walk does not take goes to the careful decoder
// from the state before it.
#if defined(RVT_JPEG_HUFFMAN_DECODE_BLOCKS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_HUFFMAN_DECODE_BLOCKS_INL_H_
#undef RVT_JPEG_HUFFMAN_DECODE_BLOCKS_INL_H_
#else
#define RVT_JPEG_HUFFMAN_DECODE_BLOCKS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "jpeg/huffman_decode_blocks.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_decode_blocks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lookup of the next kBits bits (8 for DC tables, 10 for AC ones), one
// entry per code of up to kBits bits.  Entry fields: bits 0..7 the bits the
// symbol takes in all (code and value bits), 24..31 the code length, 32..39
// the zig-zag advance of an AC symbol (run + 1; 16 for ZRL; kEobAdvance for
// an end of block), 40..47 63 - s, 48..63 its column of kRunSteps,
// ((code length - 1) * 16 + s) * 64.  Every field the loop reads is one
// shift away (shift counts use their low six bits).  An entry of 0 (no
// bits taken) marks bits no such code covers: longer codes and data no code
// covers go to the bit-by-bit search.  Codes of 9 and 10 bits are a few
// percent of a q90 photo's AC symbols, and each one the search took cost a
// mispredicted branch.  The value bits are
// always read from the buffer, without a branch: a lookup that resolved
// them too saved a load but cost a mispredicted branch on every other
// coefficient of a q90 photo.
constexpr int kDcBits = 8, kAcBits = 10;
// The advance of an end of block: past every real position.  (Letting it
// move the position and testing once per coefficient took 3% fewer
// instructions but more mispredicted branches.)
constexpr uint32_t kEobAdvance = 128;
template <int kBits>
struct FastTable {
  static constexpr int kPeekBits = kBits;
  uint64_t e[1 << kBits];
};

HWY_INLINE uint64_t FastEntry(uint32_t len, uint32_t sym) {
  const uint32_t s = sym & 15, run = sym >> 4;
  const uint32_t advance = s != 0 ? run + 1 : (run == 15 ? 16 : kEobAdvance);
  return (len + s) | (uint64_t(len) << 24) | (uint64_t(advance) << 32) |
         (uint64_t(63 - s) << 40) | (uint64_t(((len - 1) * 16 + s) * 64) << 48);
}

// The careful reader's symbol for the kBits bits i (kBits > 8) whose first
// 8 its lookup does not hold: the search from 9 bits, as far as kBits
// bits; 0 when it goes further or leaves the table.
template <int kBits>
HWY_INLINE uint64_t SearchedEntry(const DecodeHuffmanSpec* t, uint32_t i) {
  int len = 9;
  int32_t code = int32_t(i >> (kBits - 9));
  while (code > MaxCode(t, len)) {
    if (++len > kBits) return 0;
    code = int32_t(i >> (kBits - len));
  }
  const int32_t index = int32_t(t->valueIndex[len]) - int32_t(t->minCode[len]) + code;
  if (uint32_t(index) > 255u) return 0;
  return FastEntry(uint32_t(len), t->values[index] & 0xFFu);
}

template <int kBits>
HWY_NOINLINE void BuildFastTable(const DecodeHuffmanSpec* t, FastTable<kBits>* out) {
  constexpr int kSpread = 1 << (kBits - 8);
  for (uint32_t p = 0; p < 256; ++p) {
    const uint32_t le = t->lookup[p];
    const uint32_t len = (le >> 16) & 0xFF;  // as the careful reader reads it
    uint64_t* dst = out->e + p * kSpread;
    if (len - 1 < 8) {
      const uint64_t e = FastEntry(len, le & 0xFF);
      for (int j = 0; j < kSpread; ++j) dst[j] = e;
    } else {
      for (int j = 0; j < kSpread; ++j) {
        if constexpr (kBits > 8) {
          dst[j] = SearchedEntry<kBits>(t, p * kSpread + uint32_t(j));
        } else {
          dst[j] = 0;
        }
      }
    }
  }
}

// True when one of the eight bytes of w is 0xFF: a zero byte of ~w.  (A
// borrow can mark the byte above a zero byte too, but only when there is
// one.)
HWY_INLINE bool HasFFByte(uint64_t w) {
  return ((~w - 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
}

// The bit buffer and, beside it, the careful reader's valid-bit count,
// which fills the same bytes at the same moments, only later.
struct Fast {
  const uint8_t* src;
  uint64_t buf;  // nb valid bits, left-aligned (oldest in bit 63); below them
                 // zeros or bits of the next bytes
  int nb;
  int rpos;      // next source byte for buf
  int vc;        // careful count
  int base;      // source position at the last load
  bool stuffed;  // an FF 00 pair went into buf since the load

  void Load(int pos, const DecodeHuffmanState* st) {
    BitReader r{src, 0, pos, 0, 0, nullptr};
    r.Load(st);
    buf = r.count ? uint64_t(r.acc) << (64 - r.count) : 0;
    nb = r.count;
    rpos = pos;
    vc = r.count;
    base = pos;
    stuffed = false;
  }
  // The careful reader's position and state: it has read (nb - vc) / 8
  // fewer data bytes, each of which is an FF 00 pair or a single byte.
  void Store(int* pos, DecodeHuffmanState* st) const {
    const int c = vc;
    int u = (nb - c) >> 3;
    int p = rpos;
    if (!stuffed) {
      p -= u;
    } else {
      for (; u > 0; --u) p -= (p - 2 >= base && src[p - 1] == 0 && src[p - 2] == 0xFF) ? 2 : 1;
    }
    *pos = p;
    st->acc = c ? buf >> (64 - c) : 0;
    st->count = c;
  }
};


// The registers of the block loop: the buffer, its count and the careful
// count.  Slow paths take and return them by value, so the
// loop keeps them in registers.
struct Regs {
  uint64_t buf;
  int nb;
  int vc;
};

// A symbol whose code the 8-bit lookup does not hold, bit by bit as the
// careful search goes, then its value bits.  sym is the symbol or -1.
struct Searched {
  Regs r;
  int sym;
  int32_t v;
};
HWY_NOINLINE Searched SearchCoefficient(Regs r, const DecodeHuffmanSpec* t) {
  Searched out{r, -1, 0};
  int vc = r.vc;
  const auto need = [&](int n) {
    const int below = (vc - n) >> 31;
    vc += 8 * (((32 - vc) >> 3) & below);
  };
  const auto take = [&](int n) {
    const uint32_t bits = uint32_t(r.buf >> (64 - n));
    r.buf <<= n;
    r.nb -= n;
    vc -= n;
    return bits;
  };
  need(8);
  need(9);
  int32_t code = int32_t(take(9));
  int len = 9;
  while (code > MaxCode(t, len)) {
    need(1);
    code = (code << 1) | int32_t(take(1));
    if (++len > 16) return out;
  }
  const int32_t index = int32_t(t->valueIndex[len]) - int32_t(t->minCode[len]) + code;
  if (uint32_t(index) > 255u) return out;
  const int sym = t->values[index] & 0xFF;
  const int s = sym & 15;
  if (s != 0) {
    need(s);
    out.v = Extend(take(s), s);
  }
  r.vc = vc;
  out.r = r;
  out.sym = sym;
  return out;
}

// The byte-wise refill over FF 00 pairs, to 56..63 bits; ok false at a
// marker or fill byte.
struct Refilled {
  uint64_t buf;
  int nb, rpos;
  bool ok;
};
HWY_NOINLINE Refilled RefillBytes(const uint8_t* src, uint64_t buf, int nb, int rpos) {
  while (nb < 56) {
    const uint32_t b = src[rpos];
    if (b == 0xFF) {
      if (src[rpos + 1] != 0) return {buf, nb, rpos, false};
      rpos += 2;
    } else {
      rpos += 1;
    }
    buf |= uint64_t(b) << (56 - nb);
    nb += 8;
  }
  return {buf, nb, rpos, true};
}

// The decoder's zig-zag order by the position after a coefficient (entry k
// for zig-zag position k - 1), with every position past 63 on coefficient
// 63: the fast walk stores first and checks the guard positions once per
// block.
struct ZigzagFastTable {
  uint8_t v[80];
  constexpr ZigzagFastTable() : v() {
    for (int k = 1; k < 80; ++k) v[k] = k <= 64 ? kNaturalOfZigzag[k - 1] : 63;
  }
};
inline constexpr ZigzagFastTable kZigzagFast{};

// A block needs at most 31 + 63 * 31 bits, 248 bytes, with the buffer 8
// ahead; stuffing doubles them, and the refill reads 8 bytes past its
// position: this much source lets the kernel skip every bound check.
constexpr int kFastMargin = 2 * (248 + 8) + 16;

// One block from f into a zeroed block; f and the predictor move on only
// when it succeeds.
HWY_INLINE bool FastBlock(Fast& f, int16_t* block, int16_t* last_dc,
                          const FastTable<kDcBits>& dct, const FastTable<kAcBits>& act,
                          const DecodeHuffmanSpec* dcs,
                          const DecodeHuffmanSpec* acs, int* done) {
  const uint8_t* src = f.src;
  uint64_t buf = f.buf;
  int nb = f.nb, rpos = f.rpos;
  // Unsigned and pointer-wide: the step chain is one load and one add.
  size_t vc = size_t(f.vc);
  bool stuffed = f.stuffed;
  // Tops buf up to 56..63 bits without a branch while none of the next
  // eight bytes is 0xFF: their bits go in below the valid ones (the bits of
  // the partly taken byte too, which the next refill writes again, the
  // same), and whole bytes are counted.  Byte by byte, unstuffing, near an
  // 0xFF; false at a marker or fill byte.
  const auto refill = [&]() HWY_ATTR -> bool {
    uint64_t w;
    std::memcpy(&w, src + rpos, 8);
    w = __builtin_bswap64(w);
    if (HWY_LIKELY(!HasFFByte(w))) {
      buf |= w >> nb;
      rpos += (63 - nb) >> 3;
      nb |= 56;
      return true;
    }
    const uint64_t valid = nb ? buf & (~uint64_t(0) << (64 - nb)) : 0;
    const Refilled r = RefillBytes(src, valid, nb, rpos);
    buf = r.buf;
    nb = r.nb;
    rpos = r.rpos;
    stuffed = true;
    return r.ok;
  };
  // The value bits after the code, extended; 0 when s = 0.  (t >> 1) >> (63
  // - s) keeps the shift below 64 for s = 0; a negative value takes 2^s - 1
  // off its bits.
  const auto value = [&](uint64_t e) HWY_ATTR -> int32_t {
    const uint64_t t = buf << ((e >> 24) & 63);
    const int32_t r = int32_t((t >> 1) >> ((e >> 40) & 63));
    const int32_t m = int32_t((~uint64_t(0) >> 1) >> ((e >> 40) & 63));
    const int32_t negative = ~int32_t(int64_t(t) >> 63);  // top bit clear
    return r - (negative & m);
  };
  // One symbol and its value bits: the lookup entry (the search makes the
  // fields the loop reads: the symbol and the advance).  A code that is not
  // there clears ok and ends the block.  A looked-up code takes at most 25
  // bits with its value; the search, up to 31, refills after itself, so the
  // 56 bits of a refill always suffice for the next two.
  bool ok = true;
  const auto coefficient = [&](const auto& t, const DecodeHuffmanSpec* spec,
                               int32_t& v) HWY_ATTR -> uint64_t {
    const uint64_t e = t.e[buf >> (64 - t.kPeekBits)];
    if (HWY_UNLIKELY(uint8_t(e) == 0)) {
      const Searched r = SearchCoefficient(Regs{buf, nb, int(vc)}, spec);
      if (r.sym < 0 || !(buf = r.r.buf, nb = r.r.nb, vc = size_t(r.r.vc), refill())) {
        ok = false;
        v = 0;
        return uint64_t(kEobAdvance) << 32;
      }
      v = r.v;
      return FastEntry(1, uint32_t(r.sym));  // only its advance is read
    }
    vc = kRunSteps.step[vc + (e >> 48)];
    v = value(e);
    buf <<= (e & 63);
    nb -= int(e & 0xFF);
    return e;
  };
  // One AC coefficient into the block; false at its end.  A run past the
  // guard positions (k above 72) lands on coefficient 63 like the guards
  // and is turned down after the loop: the careful decoder that takes the
  // block over starts from a zeroed block.
  size_t k = 1;  // zig-zag position; 64 - k positions remain
  const auto ac = [&]() HWY_ATTR -> bool {
    int32_t v = 0;
    const size_t advance = uint8_t(coefficient(act, acs, v) >> 32);
    if (advance == kEobAdvance) return false;  // EOB, or no code
    k += advance;
    // A ZRL stores its 0 on a position no coefficient has reached yet.
    block[kZigzagFast.v[k]] = int16_t(v);
    return k <= 63;
  };

  if (!refill()) return false;
  int32_t v = 0;
  coefficient(dct, dcs, v);
  if (!ok) return false;
  const int16_t dc_value = int16_t(*last_dc + v);  // v is 0 when s = 0
  block[0] = dc_value;
  for (;;) {
    if (HWY_UNLIKELY(!refill())) return false;
    if (!ac() || !ac()) break;
  }
  if (!ok) return false;
  if (k > 72) return false;
  *last_dc = dc_value;
  *done = int(k);
  f.buf = buf;
  f.nb = nb;
  f.rpos = rpos;
  f.vc = int(vc);
  f.stuffed = stuffed;
  return true;
}

inline RvtResult DecodeRun(const Args& a) {
  // The tables of the run, each distinct spec once per kind.
  FastTable<kDcBits> dtabs[kComponents];
  FastTable<kAcBits> atabs[kComponents];
  const DecodeHuffmanSpec* dbuilt[kComponents];
  const DecodeHuffmanSpec* abuilt[kComponents];
  int ndbuilt = 0, nabuilt = 0;
  const FastTable<kDcBits>* dct[kComponents] = {};
  const FastTable<kAcBits>* act[kComponents] = {};
  const auto get = [](const DecodeHuffmanSpec* s, auto* tabs, const DecodeHuffmanSpec** built,
                      int& nbuilt) {
    for (int j = 0; j < nbuilt; ++j) {
      if (built[j] == s) return &tabs[j];
    }
    BuildFastTable(s, &tabs[nbuilt]);
    built[nbuilt] = s;
    return &tabs[nbuilt++];
  };
  for (int b = 0; b < a.nblocks; ++b) {
    const int c = a.comp[b];
    if (!dct[c]) dct[c] = get(a.dc[c], dtabs, dbuilt, ndbuilt);
    if (!act[c]) act[c] = get(a.ac[c], atabs, abuilt, nabuilt);
  }

  // Per block of the pattern, what its component uses; the caller's
  // arguments in locals, since stores through the int pointers could
  // otherwise reach them.
  struct Slot {
    const FastTable<kDcBits>* dct;
    const FastTable<kAcBits>* act;
    const DecodeHuffmanSpec* dcs;
    const DecodeHuffmanSpec* acs;
    int16_t* last_dc;
  } slots[kMaxMcuBlocks];
  const int nblocks = a.nblocks, nmcus = a.nmcus, len = a.len;
  for (int b = 0; b < nblocks; ++b) {
    const int c = a.comp[b];
    slots[b] = {dct[c], act[c], a.dc[c], a.ac[c], &a.last_dc[c]};
  }
  int* const done_out = a.done;
  int16_t* block = a.dst;

  Fast f{a.src, 0, 0, 0, 0, 0, false};
  f.Load(*a.pos, a.st);
  int last_done = -1;  // coefficients done of the last fast block since the load
  bool fast = *a.marker == 0;
  const hn::CappedTag<int16_t, 16> d;  // the blocks need not be 64-byte aligned
  int i = 0;
  for (int m = 0; m < nmcus; ++m) {
    for (int b = 0; b < nblocks; ++b, ++i, block += 64) {
      const Slot& sl = slots[b];
      if (HWY_LIKELY(fast && len - f.rpos >= kFastMargin)) {
        for (size_t j = 0; j < 64; j += hn::Lanes(d)) hn::StoreU(hn::Zero(d), d, block + j);
        int done;
        if (HWY_LIKELY(FastBlock(f, block, sl.last_dc, *sl.dct, *sl.act, sl.dcs, sl.acs,
                                 &done))) {
          if (done_out) done_out[i] = done;
          last_done = done;
          continue;
        }
      }
      f.Store(a.pos, a.st);
      if (last_done >= 0) a.st->coefsDone = uint32_t(last_done);
      const RvtResult r = CarefulBlock(a, i);
      if (r != rvtStatusOk) {
        *a.nblocks_done = i;
        return r;
      }
      f.Load(*a.pos, a.st);
      fast = *a.marker == 0;
      last_done = -1;
    }
  }
  f.Store(a.pos, a.st);
  if (last_done >= 0) a.st->coefsDone = uint32_t(last_done);
  *a.nblocks_done = i;
  return rvtStatusOk;
}

}  // namespace rvt::huffman_decode_blocks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_DECODE_BLOCKS_INL_H_
