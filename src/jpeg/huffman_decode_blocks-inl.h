// Baseline Huffman decoding of a run of MCUs: the fast kernel of one
// target.  No checks here: the driver in huffman_decode_blocks.h has
// checked the arguments.
//
// Once per call the kernel turns each table the run uses into a lookup (8
// bits for DC, 10 for AC) that gives, per code, everything the loop needs
// (bits taken, the careful reader's step, the zig-zag advance, and for an
// AC code whose value bits lie in the 10 bits the coefficient itself, and
// a second coefficient when the next symbol's bits follow within them),
// then decodes block after block with the bit buffer in registers, writing
// the caller's position and state back once, at the end.  Other value
// bits are read without a branch.
// Beside its 64-bit buffer it keeps the careful reader's valid-bit count,
// so the state it leaves is the careful one; at the start of a block
// (for the DC and the first AC symbol) and before every two AC symbols
// after them it refills to 56..63 bits without a branch while none of the
// next eight bytes is 0xFF, and byte by byte, unstuffing FF 00, otherwise.
// An end of block ends the loop through the same position test as a full
// block.  A block
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

#include <cstddef>
#include <cstring>

#include "jpeg/huffman_decode_blocks.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_decode_blocks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lookups of the next kBits bits (8 for DC tables, 10 for AC ones), one
// 64-bit entry per kBits-bit pattern.  A DC entry (BufferEntry):
//   bits 0..7    the bits the symbol takes in all, code and value bits (a
//                shift count as it stands; 0 for codes longer than 8 bits);
//   bits 24..31  the code length, and bits 40..47 63 - s, for reading the
//                value bits from the buffer;
//   bits 48..62  the symbol's column of kRunSteps.
// An AC entry (AcEntry) is laid out for the shortest chain from one
// lookup to the next (the entry is the shift count as it stands) and the
// fewest instructions besides (the value one rotate from a 16-bit store):
//   bits 0..7    the bits the symbol takes in all;
//   bits 8..15   the zig-zag advance (run + 1; 16 for ZRL; kEobAdvance for
//                an end of block);
//   bits 16..31  kSlow clear: the coefficient, extended (code and value
//                bits both lie in the kBits bits, which is so for 95% of a
//                q90 photo's AC coefficients, so one lookup resolves them);
//                kSlow set: the code length (bits 16..23, 0 for bits no
//                code of up to kBits bits covers) and 63 - s (bits 24..31);
//   bits 32..39  the zig-zag advance of a second symbol whose code and
//                value bits follow within the kBits bits (0 when none; its
//                value is then 0 and stored first, under the first's);
//   bits 40..47  that second coefficient (|v| < 128: s2 <= 7);
//   bits 48..62  the column of kRunSteps (of the pair, when two);
//   bit 63       kSlow: the value is not in the entry (a sign test).
// Bits 0..7 count the bits of both symbols of a pair.  A pair after the
// block's last coefficient runs into the next block: the position after it
// tells (see fast_block), and the careful decoder takes that block.
constexpr int kDcBits = 8, kAcBits = 10;
static_assert(kAcBits <= kMaxStepLength, "every looked-up code has its step column");
// The advance of an end of block: past every real position, so the one
// test per coefficient of the position ends the block too.
constexpr uint32_t kEobAdvance = 128;
constexpr uint64_t kSlow = uint64_t(1) << 63;
template <int kBits>
struct FastTable {
  static constexpr int kPeekBits = kBits;
  uint64_t e[1 << kBits];
};

// The entry of a symbol whose value bits are read from the buffer.
HWY_INLINE uint64_t BufferEntry(uint32_t len, uint32_t sym) {
  const uint32_t s = sym & 15, run = sym >> 4;
  const uint32_t advance = s != 0 ? run + 1 : (run == 15 ? 16 : kEobAdvance);
  return (len + s) | (advance << 8) | (uint64_t(len) << 24) | (uint64_t(63 - s) << 40) |
         (uint64_t(((len - 1) * 16 + s) * 64) << 48);
}

// The entry of the AC symbol sym with code length len for the kBits bits i
// that start with its code.
template <int kBits>
HWY_INLINE uint64_t AcEntry(uint32_t len, uint32_t sym, uint32_t i) {
  const uint32_t s = sym & 15, run = sym >> 4;
  const uint32_t advance = s != 0 ? run + 1 : (run == 15 ? 16 : kEobAdvance);
  const uint64_t e = (len + s) | (advance << 8) | (uint64_t(((len - 1) * 16 + s) * 64) << 48);
  if (len + s > uint32_t(kBits)) return e | kSlow | (len << 16) | ((63 - s) << 24);
  const int32_t v =
      s == 0 ? 0 : Extend((i >> (uint32_t(kBits) - len - s)) & ((1u << s) - 1), int(s));
  return e | (uint64_t(uint16_t(v)) << 16);
}

// The careful reader's code length and symbol for the kBits bits i (kBits
// > 8) whose first 8 its lookup does not hold: the search from 9 bits, as
// far as kBits bits; false when it goes further or leaves the table.
template <int kBits>
HWY_INLINE bool SearchedCode(const DecodeHuffmanSpec* t, uint32_t i, uint32_t* len,
                             uint32_t* sym) {
  int n = 9;
  int32_t code = int32_t(i >> (kBits - 9));
  while (code > MaxCode(t, n)) {
    if (++n > kBits) return false;
    code = int32_t(i >> (kBits - n));
  }
  const int32_t index = int32_t(t->valueIndex[n]) - int32_t(t->minCode[n]) + code;
  if (uint32_t(index) > 255u) return false;
  *len = uint32_t(n);
  *sym = t->values[index] & 0xFFu;
  return true;
}

// The DC lookup: the careful reader's 8-bit one, value bits from the
// buffer; 0 for longer codes.
HWY_NOINLINE void BuildDcTable(const DecodeHuffmanSpec* t, FastTable<kDcBits>* out) {
  for (uint32_t p = 0; p < 256; ++p) {
    const uint32_t le = t->lookup[p];
    const uint32_t len = (le >> 16) & 0xFF;  // as the careful reader reads it
    out->e[p] = len - 1 < 8 ? BufferEntry(len, le & 0xFF) : 0;
  }
}

// True when every code of up to 8 bits the careful lookup holds covers the
// aligned run of 2^(8 - len) prefixes that start with it, with the same
// symbol and length throughout (as the reader reads them), as a built spec
// does; then every AC entry depends only on the bits its symbol takes.
HWY_INLINE bool WholeRuns(const DecodeHuffmanSpec* t) {
  for (uint32_t p = 0; p < 256;) {
    const uint32_t le = t->lookup[p] & 0x00FF00FFu;
    const uint32_t len = le >> 16;
    if (len - 1 >= 8) {
      ++p;
      continue;
    }
    const uint32_t run = 1u << (8 - len);
    if ((p & (run - 1)) != 0) return false;
    for (uint32_t q = 1; q < run; ++q) {
      if ((t->lookup[p + q] & 0x00FF00FFu) != le) return false;
    }
    p += run;
  }
  return true;
}

// The AC lookup, codes of up to 8 bits from the careful reader's lookup and
// longer ones from its search.  Per 8-bit prefix only the value bits of
// the kBits bits differ, and only when code and value end past the
// prefix: the short codes that cover most prefixes take one entry each.
template <int kBits>
HWY_NOINLINE void BuildAcTable(const DecodeHuffmanSpec* t, FastTable<kBits>* out) {
  constexpr uint32_t kSpread = 1u << (kBits - 8);
  uint64_t single[1 << kBits];
  // With whole runs (below) an entry of a code whose value is not past the
  // prefix stands for every prefix that starts with its bits.
  const bool whole = WholeRuns(t);
  for (uint32_t p = 0; p < 256;) {
    const uint32_t le = t->lookup[p];
    const uint32_t len = (le >> 16) & 0xFF;
    uint64_t* dst = single + p * kSpread;
    if (len - 1 < 8) {
      const uint32_t sym = le & 0xFF, s = sym & 15;
      if (s == 0 || len + s <= 8 || len + s > uint32_t(kBits)) {
        const uint64_t e = AcEntry<kBits>(len, sym, p * kSpread);
        const uint32_t bits = s == 0 || len + s > uint32_t(kBits) ? len : len + s;
        const uint32_t run = whole ? 1u << (8 - bits) : 1u;
        for (uint32_t j = 0; j < run * kSpread; ++j) dst[j] = e;
        p += run;
      } else {
        for (uint32_t j = 0; j < kSpread; ++j) dst[j] = AcEntry<kBits>(len, sym, p * kSpread + j);
        ++p;
      }
      continue;
    }
    for (uint32_t j = 0; j < kSpread; ++j) {
      const uint32_t i = p * kSpread + j;
      uint32_t n = 0, sym = 0;
      dst[j] = SearchedCode<kBits>(t, i, &n, &sym) ? AcEntry<kBits>(n, sym, i) : kSlow;
    }
    ++p;
  }
  // Pairs: a symbol other than an end of block whose bits leave room for
  // the next one's.
  constexpr uint32_t kMask = (1u << kBits) - 1;
  const auto pair = [](uint64_t e, uint64_t e2) -> uint64_t {
    // The columns of single symbols are their (len - 1) * 16 + s from bit 54.
    const uint64_t col =
        kPairColumns.at[kPairColumns.short_of[e >> 54]][kPairColumns.short_of[e2 >> 54]];
    return (e & 0xFFFFFF00) | ((e & 63) + (e2 & 63)) | ((e2 & 0xFF00) << 24) |
           (uint64_t(uint8_t(e2 >> 16)) << 40) | (col << 48);
  };
  // A lookup with broken runs gives a symbol by the bits past the 8 it
  // looks at, which the second symbol of a pair does not see: no pairs.
  if (!whole) {
    std::memcpy(out->e, single, sizeof(single));
    return;
  }
  // With whole runs, an entry that holds its value depends only on its
  // used bits: it covers an aligned run of 2^(kBits - used) entries, and a
  // pair one of 2^(kBits - used - used2), each made once and filled (an
  // entry without its value goes alone).  Walking from 0 by whole runs
  // lands on the start of every run.
  const auto fill = [out](uint32_t i, uint32_t n, uint64_t e) {
    for (uint32_t j = 0; j < n; ++j) out->e[i + j] = e;
  };
  for (uint32_t i = 0; i <= kMask;) {
    const uint64_t e = single[i];
    const uint32_t used = uint32_t(e & 63);
    if (int64_t(e) < 0) {
      out->e[i++] = e;
      continue;
    }
    const uint32_t run = 1u << (uint32_t(kBits) - used);
    if (uint32_t(e >> 8 & 0xFF) == kEobAdvance || used >= uint32_t(kBits)) {
      fill(i, run, e);
      i += run;
      continue;
    }
    // The next symbol from the kBits - used bits j that follow.
    for (uint32_t j = 0; j < run;) {
      const uint64_t e2 = single[j << used];
      const uint32_t used2 = uint32_t(e2 & 63);
      if (int64_t(e2) < 0 || used + used2 > uint32_t(kBits)) {
        out->e[i + j++] = e;
        continue;
      }
      const uint32_t run2 = 1u << (uint32_t(kBits) - used - used2);
      fill(i + j, run2, pair(e, e2));
      j += run2;
    }
    i += run;
  }
}

// True when one of the eight bytes of w is 0xFF: a zero byte of ~w.  (A
// borrow can mark the byte above a zero byte too, but only when there is
// one.)
HWY_INLINE bool HasFFByte(uint64_t w) {
  return ((~w - 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
}

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
  int nb;
  const uint8_t* rp;
  bool ok;
};
HWY_NOINLINE Refilled RefillBytes(uint64_t buf, int nb, const uint8_t* rp) {
  while (nb < 56) {
    const uint32_t b = rp[0];
    if (b == 0xFF) {
      if (rp[1] != 0) return {buf, nb, rp, false};
      rp += 2;
    } else {
      rp += 1;
    }
    buf |= uint64_t(b) << (56 - nb);
    nb += 8;
  }
  return {buf, nb, rp, true};
}

// The decoder's zig-zag order by the position after a coefficient (entry k
// for zig-zag position k - 1), with every position past 63 on coefficient
// 63: the fast walk stores first and checks the guard positions once per
// block.  An end of block moves the position by kEobAdvance and stores its
// 0 on the DC coefficient, which is written after the AC ones.
struct ZigzagFastTable {
  uint8_t v[256];  // a pair past the block's end reaches 63 + 16 + kEobAdvance
  constexpr ZigzagFastTable() : v() {
    for (int k = 1; k < 256; ++k) {
      v[k] = k <= 64 ? kNaturalOfZigzag[k - 1] : (k < int(kEobAdvance) ? 63 : 0);
    }
  }
};
inline constexpr ZigzagFastTable kZigzagFast{};

// A block needs at most 31 + 63 * 31 bits, 248 bytes, with the buffer 8
// ahead; stuffing doubles them, and the refill reads 8 bytes past its
// position: this much source lets the kernel skip every bound check.
constexpr int kFastMargin = 2 * (248 + 8) + 16;

// The value bits after the code of an entry e that holds the code length
// at bit kLenAt and 63 - s at bit kSAt, extended; 0 when s = 0.
// (t >> 1) >> (63 - s) keeps the shift below 64 for s = 0; a negative
// value takes 2^s - 1 off its bits.
template <int kLenAt, int kSAt>
HWY_INLINE int32_t BufferValue(uint64_t buf, uint64_t e) {
  const uint64_t t = buf << ((e >> kLenAt) & 63);
  const int32_t r = int32_t((t >> 1) >> ((e >> kSAt) & 63));
  const int32_t m = int32_t((~uint64_t(0) >> 1) >> ((e >> kSAt) & 63));
  const int32_t negative = ~int32_t(int64_t(t) >> 63);  // top bit clear
  return r - (negative & m);
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
  for (int b = 0; b < a.nblocks; ++b) {
    const int c = a.comp[b];
    if (!dct[c]) {
      for (int j = 0; j < ndbuilt && !dct[c]; ++j) {
        if (dbuilt[j] == a.dc[c]) dct[c] = &dtabs[j];
      }
      if (!dct[c]) {
        BuildDcTable(a.dc[c], &dtabs[ndbuilt]);
        dbuilt[ndbuilt] = a.dc[c];
        dct[c] = &dtabs[ndbuilt++];
      }
    }
    if (!act[c]) {
      for (int j = 0; j < nabuilt && !act[c]; ++j) {
        if (abuilt[j] == a.ac[c]) act[c] = &atabs[j];
      }
      if (!act[c]) {
        BuildAcTable(a.ac[c], &atabs[nabuilt]);
        abuilt[nabuilt] = a.ac[c];
        act[c] = &atabs[nabuilt++];
      }
    }
  }

  // Per block of the pattern, what its component uses; the caller's
  // arguments in locals, since stores through the int pointers could
  // otherwise reach them.
  struct Slot {
    const FastTable<kDcBits>* dct;
    const FastTable<kDcBits>* next_dct;  // of the block after it
    const FastTable<kAcBits>* act;
    const DecodeHuffmanSpec* dcs;
    const DecodeHuffmanSpec* acs;
    int16_t* last_dc;
  } slots[kMaxMcuBlocks];
  const int nblocks = a.nblocks, nmcus = a.nmcus, len = a.len;
  for (int b = 0; b < nblocks; ++b) {
    const int c = a.comp[b];
    slots[b] = {dct[c], nullptr, act[c], a.dc[c], a.ac[c], &a.last_dc[c]};
  }
  for (int b = 0; b < nblocks; ++b) slots[b].next_dct = slots[b + 1 < nblocks ? b + 1 : 0].dct;
  // The zig-zag table copied into the frame: the loop reaches it from the
  // stack pointer and keeps no register for its address.  The step table
  // (26 KB with its pair columns) is read where it is: its base is in a
  // register either way.
  const uint8_t* const steps = kRunSteps.step;
  alignas(64) uint8_t zigzag[sizeof(kZigzagFast.v)];
  std::memcpy(zigzag, kZigzagFast.v, sizeof(zigzag));
  int* const done_out = a.done;
  int16_t* block = a.dst;
  const uint8_t* const src = a.src;

  // The bit buffer: nb & 63 valid bits, left-aligned (oldest in bit 63),
  // below them zeros or bits of the next bytes; rp the next source byte
  // for it.  (The AC steps subtract whole entries from nb: only its low 6
  // bits count.)
  // Beside it the careful reader's valid-bit count vc (kept as vcp =
  // steps + vc: the step chain is one load and one add), which fills the same
  // bytes at the same moments, only later; base the source position at the
  // last load, stuffed whether an FF 00 pair went into the buffer since.
  uint64_t buf = 0;
  uint32_t nb = 0;
  const uint8_t* rp = src;
  int base = 0;
  const uint8_t* vcp = steps;
  bool stuffed = false;
  const auto load = [&](int pos) {
    BitReader r{src, 0, pos, 0, 0, nullptr};
    r.Load(a.st);
    buf = r.count ? uint64_t(r.acc) << (64 - r.count) : 0;
    nb = uint32_t(r.count);
    rp = src + pos;
    vcp = steps + r.count;
    base = pos;
    stuffed = false;
  };
  // The careful reader's position and state: it has read (nb - vc) / 8
  // fewer data bytes, each of which is an FF 00 pair or a single byte.
  const auto store = [&]() {
    const int c = int(vcp - steps);
    int u = (int(nb & 63) - c) >> 3;
    int p = int(rp - src);
    if (!stuffed) {
      p -= u;
    } else {
      for (; u > 0; --u) p -= (p - 2 >= base && src[p - 1] == 0 && src[p - 2] == 0xFF) ? 2 : 1;
    }
    *a.pos = p;
    a.st->acc = c ? buf >> (64 - c) : 0;
    a.st->count = c;
  };
  // Tops buf up to 56..63 bits without a branch while none of the next
  // eight bytes is 0xFF: their bits go in below the valid ones (the bits of
  // the partly taken byte too, which the next refill writes again, the
  // same), and whole bytes are counted.  Byte by byte, unstuffing, near an
  // 0xFF; false at a marker or fill byte.
  const auto refill = [&]() HWY_ATTR -> bool {
    uint64_t w;
    std::memcpy(&w, rp, 8);
    w = __builtin_bswap64(w);
    if (HWY_LIKELY(!HasFFByte(w))) {
      const uint32_t n = nb & 63;
      buf |= w >> n;
      rp += size_t((n ^ 63) >> 3);  // the whole bytes that went in
      nb = n | 56;
      return true;
    }
    const int n = int(nb & 63);
    const uint64_t valid = n ? buf & (~uint64_t(0) << (64 - n)) : 0;
    const Refilled r = RefillBytes(valid, n, rp);
    buf = r.buf;
    nb = uint32_t(r.nb);
    rp = r.rp;
    stuffed = true;
    return r.ok;
  };

  // One block into a zeroed block; false (with the registers moved on) when
  // the careful decoder must take it.  A looked-up code takes at most 25
  // bits with its value; the search, up to 31, refills after itself, so the
  // 56 bits of a refill always suffice for the next two symbols.
  // The next block's DC entry, looked up as the block before it ends (its
  // code's first 8 bits are there unless fewer are left, which `ahead`
  // tells): the lookup then waits neither for the bookkeeping between the
  // blocks nor for the refill.
  uint64_t dc_ahead = 0;
  bool ahead = false;
  const auto fast_block = [&](const Slot& sl, int* done) HWY_ATTR -> bool {
    const bool use_ahead = ahead;
    if (!refill()) return false;
    uint64_t e;
    if (HWY_LIKELY(use_ahead)) {
      e = dc_ahead;
    } else {
      e = sl.dct->e[buf >> (64 - kDcBits)];
    }
    int32_t v;
    if (HWY_UNLIKELY(uint8_t(e) == 0)) {
      const Searched r = SearchCoefficient(Regs{buf, int(nb & 63), int(vcp - steps)}, sl.dcs);
      if (r.sym < 0) return false;
      buf = r.r.buf;
      nb = uint32_t(r.r.nb);
      vcp = steps + r.r.vc;
      v = r.v;
    } else {
      vcp = steps + vcp[e >> 48];
      v = BufferValue<24, 40>(buf, e);
      buf <<= (e & 63);
      nb -= uint32_t(e & 63);
    }
    const int16_t dc_value = int16_t(*sl.last_dc + v);  // v is 0 when s = 0
    const FastTable<kAcBits>& act = *sl.act;
    // One AC coefficient into the block; false at its end (k is then above
    // kEobAdvance after an end of block).  A run past the
    // guard positions (k above 72) lands on coefficient 63 like the guards
    // and is turned down after the loop: the careful decoder that takes the
    // block over starts from a zeroed block.  A code that is not there ends
    // the block with ok false.
    bool ok = true;
    size_t k = 1;  // zig-zag position; 64 - k positions remain
    const auto ac = [&]() HWY_ATTR -> bool {
      uint64_t e = act.e[buf >> (64 - kAcBits)];
      if (HWY_UNLIKELY(int64_t(e) < 0)) {
        if (HWY_UNLIKELY(uint8_t(e >> 16) == 0)) {
          const Searched r = SearchCoefficient(Regs{buf, int(nb & 63), int(vcp - steps)}, sl.acs);
          if (r.sym < 0 || !(buf = r.r.buf, nb = uint32_t(r.r.nb), vcp = steps + r.r.vc, refill())) {
            ok = false;
            return false;
          }
          // Its steps are taken: only the advance is read below.  (An end
          // of block here has the same advance.)
          e = (AcEntry<kAcBits>(1, uint32_t(r.sym), 0) & 0xFF00) |
              (uint64_t(kKeepColumn) << 48) | (uint64_t(uint16_t(r.v)) << 16);
        } else {
          e = (e & ~(kSlow | 0xFFFF0000)) | (uint64_t(uint16_t(BufferValue<16, 24>(buf, e))) << 16);
        }
      }
      // The count subtracts the whole entry: only its low 6 bits count, and
      // every use masks them.
      vcp = steps + vcp[e >> 48];
      buf <<= (e & 63);
      nb -= uint32_t(e);
      k += uint8_t(e >> 8);
      const size_t k2 = k + uint8_t(e >> 32);
      // The second coefficient first: without one it is a 0 on the first's
      // position.  A ZRL stores its 0 on a position no coefficient has
      // reached yet.
      block[zigzag[k2]] = int16_t(int8_t(e >> 40));
      block[zigzag[k]] = int16_t((e >> 16) | (e << 48));  // a rotate brings the value down
      k = k2;
      return k <= 63;
    };
    // The DC symbol took at most 31 bits of the block's refill, which
    // leaves enough for one AC symbol.
    if (ac()) {
      for (;;) {
        if (HWY_UNLIKELY(!refill())) return false;
        if (!ac() || !ac()) break;
      }
    }
    dc_ahead = sl.next_dct->e[buf >> (64 - kDcBits)];
    ahead = (nb & 63) >= 8;
    // The block ends on position 64 or after an end of block; past 64
    // it ran into the guard positions or a pair took a symbol of the next
    // block: the careful decoder takes those.
    if (!ok) return false;
    if (k >= kEobAdvance) {
      k -= kEobAdvance;
      if (k > 63) return false;
    } else if (k != 64) {
      return false;
    }
    block[0] = dc_value;
    *sl.last_dc = dc_value;
    *done = int(k);
    return true;
  };

  load(*a.pos);
  int last_done = -1;  // coefficients done of the last fast block since the load
  // Fast blocks while rp is at most `limit` (none after a marker); the
  // counts go to the caller's list or, without one, to `unused` (one
  // unconditional store per block); one loop over the blocks, the slot
  // wrapping at the end of the pattern.
  const uintptr_t fast_end = len >= kFastMargin ? uintptr_t(src) + uintptr_t(len - kFastMargin) : 0;
  uintptr_t limit = *a.marker == 0 ? fast_end : 0;
  int unused;
  int* dp = done_out ? done_out : &unused;
  const ptrdiff_t dstep = done_out ? 1 : 0;
  // Each block is zeroed with the widest stores, two a block with 512-bit
  // vectors (unaligned: a block need not start a cache line, though a
  // caller's row buffer usually does).
  const hn::ScalableTag<int16_t> d;
  const Slot* sl = slots;
  const Slot* const slots_end = slots + nblocks;
  int16_t* const blocks_end = block + size_t(64) * size_t(nmcus) * size_t(nblocks);
  for (; block != blocks_end; block += 64, dp += dstep) {
    if (HWY_LIKELY(uintptr_t(rp) <= limit)) {
      for (size_t j = 0; j < 64; j += hn::Lanes(d)) hn::StoreU(hn::Zero(d), d, block + j);
      const uint64_t buf0 = buf;
      const uint32_t nb0 = nb;
      const uint8_t* const rp0 = rp;
      const uint8_t* const vcp0 = vcp;
      const bool stuffed0 = stuffed;
      const bool ahead0 = ahead;
      int done;
      if (HWY_LIKELY(fast_block(*sl, &done))) {
        *dp = done;
        last_done = done;
        sl = sl + 1 == slots_end ? slots : sl + 1;
        continue;
      }
      buf = buf0;
      nb = nb0;
      rp = rp0;
      vcp = vcp0;
      stuffed = stuffed0;
      ahead = ahead0;
    }
    const int i = int((block - a.dst) / 64);
    store();
    if (last_done >= 0) a.st->coefsDone = uint32_t(last_done);
    const RvtResult r = CarefulBlock(a, i);
    if (r != rvtStatusOk) {
      *a.nblocks_done = i;
      return r;
    }
    load(*a.pos);
    ahead = false;
    limit = *a.marker == 0 ? fast_end : 0;
    last_done = -1;
    sl = sl + 1 == slots_end ? slots : sl + 1;
  }
  const int i = int((block - a.dst) / 64);
  store();
  if (last_done >= 0) a.st->coefsDone = uint32_t(last_done);
  *a.nblocks_done = i;
  return rvtStatusOk;
}

}  // namespace rvt::huffman_decode_blocks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_DECODE_BLOCKS_INL_H_
