// Baseline Huffman encoding of a run of MCUs: the fast kernel of one
// target.  No checks here: the driver in huffman_encode_blocks.h has
// checked the arguments.
//
// The kernel keeps a 64-bit bit buffer in registers from the first block
// to the last and writes the caller's position and state back once, at
// the end.  Each symbol (code and value bits together) is shifted into the
// buffer; when the buffer fills, its eight bytes go out with one store when
// none of them is 0xFF (tested a word at a time), else byte by byte with
// the 0x00 after each 0xFF.  One vector pass per block gives the mask of
// its non-zero coefficients in zig-zag order and, per position, the row
// offset and column of the coefficient in a table of small-value symbols,
// so the symbol loop walks the set bits of the mask and codes a small
// value after a short run with one subtraction, one look-up and one shift
// (two such symbols in a row share one test of the buffer's room); long
// runs first build that table per AC table, and every call resolves each
// pattern position's DC symbols and EOB once.  The blocks are coded by a
// function of their own, out of line, so that the symbol loop has the
// machine's registers to itself.  While
// the destination has room for a block's worst case the kernel stores
// without bound checks; nearer the end, and for a block holding a symbol
// without a code, it writes its pending whole bytes out and hands the
// block to the block kernel from the caller's state, which is where the
// careful writer takes over.
#if defined(RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_INL_H_
#undef RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_INL_H_
#else
#define RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "jpeg/huffman_encode-inl.h"
#include "jpeg/huffman_encode_blocks.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_encode_blocks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace he = ::rvt::huffman_encode::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

// The registers of the run: bits right-aligned in buf (the newest lowest;
// 64 - free of them valid, anything above them is shifted out before it
// is stored) and the next destination byte.  The run keeps them in locals
// whose address never leaves it, so they stay in registers.
struct Regs {
  uint64_t buf;
  int free;  // 1..64 between symbols
  uint8_t* out;
};

// True when one of the eight bytes of w is 0xFF.
HWY_INLINE bool HasFFByte(uint64_t w) {
  return (((w & 0x7F7F7F7F7F7F7F7Full) + 0x0101010101010101ull) & w & 0x8080808080808080ull) != 0;
}

HWY_NOINLINE uint8_t* StoreStuffed(uint8_t* out, uint64_t w) {
  for (int i = 56; i >= 0; i -= 8) {
    const uint8_t b = uint8_t(w >> i);
    *out++ = b;
    if (b == 0xFF) *out++ = 0;
  }
  return out;
}

// Appends n (0..47) bits; v holds them and zeros above.  A full buffer
// leaves as one word.  The test compares before subtracting, so the
// common path updates the registers in place.
HWY_INLINE void Put(Regs& r, uint64_t v, int n) {
  if (HWY_UNLIKELY(r.free < n)) {
    // The free count (0..n-1) brings the buffer's bits to the top; the
    // bits of v that do not fit stay in buf for the next word.
    const int over = n - r.free;
    const uint64_t w = (r.buf << r.free) | (v >> over);
    if (HWY_LIKELY(!HasFFByte(w))) {
      const uint64_t be = __builtin_bswap64(w);
      std::memcpy(r.out, &be, 8);
      r.out += 8;
    } else {
      r.out = StoreStuffed(r.out, w);
    }
    r.free = 64 - over;
    r.buf = v;
    return;
  }
  r.free -= n;
  r.buf = (r.buf << n) | v;
}

// The pending bits of a caller's state, as the careful writer reads them.
HWY_INLINE Regs Load(uint8_t* dst, int pos, const EncodeHuffmanState* st) {
  const int count = st->count & 7;
  const uint32_t pending = (uint32_t(st->acc) >> (24 - count)) & ((1u << count) - 1);
  return Regs{pending, 64 - count, dst + pos};
}

// The whole pending bytes out (stuffed), the rest into the caller's state.
HWY_NOINLINE void Commit(Regs r, uint8_t* dst, int* pos, EncodeHuffmanState* st) {
  int n = 64 - r.free;
  uint64_t left = n ? r.buf << r.free : 0;  // oldest bit in bit 63, zeros below
  uint8_t* out = r.out;
  for (; n >= 8; n -= 8) {
    const uint8_t b = uint8_t(left >> 56);
    *out++ = b;
    if (b == 0xFF) *out++ = 0;
    left <<= 8;
  }
  *pos = int(out - dst);
  st->acc = left >> 40;  // the pending bits under bit 24
  st->count = n;
}

// Small AC values: |v| <= kSmallMax.  A block's coefficients are first
// turned, in zig-zag order, into columns of the small-symbol table: v + 64
// for a small v (1..127), 64 for zero and 0 for any other value; column 0
// (and 64) of every row is empty, so one look-up both codes a small value
// and sends every other one to the general path.  Values up to 63 rather
// than 31 send fewer coefficients of photos to the general path (fewer
// mispredicted branches) for a table twice the size (8 KB).
constexpr int kSmallBits = 6;
constexpr int kSmallMax = (1 << kSmallBits) - 1;
constexpr int kColumns = 2 * (kSmallMax + 1);  // 128
constexpr int kZeroColumn = kSmallMax + 1;     // 64

// Per zig-zag position k: k << 7 and (k + 1) << 7, the table row offsets
// the run arithmetic works in.
struct PositionRows {
  alignas(64) uint16_t at[64];
  alignas(64) uint16_t next[64];
  constexpr PositionRows() : at(), next() {
    for (int k = 0; k < 64; ++k) {
      at[k] = uint16_t(k * kColumns);
      next[k] = uint16_t((k + 1) * kColumns);
    }
  }
};
inline constexpr PositionRows kPositionRows{};

// Columns of zig-zag values saturated to bytes (-128, saturated or not,
// has magnitude 128).
template <class D8>
HWY_INLINE hn::Vec<hn::RebindToUnsigned<D8>> ByteColumns(D8 d8, hn::Vec<D8> z) {
  const hn::RebindToUnsigned<D8> du8;
  const auto large = hn::And(hn::BitCast(du8, hn::Abs(z)), hn::Set(du8, uint8_t(~kSmallMax)));
  return hn::IfThenElseZero(hn::Eq(large, hn::Zero(du8)),
                            hn::BitCast(du8, hn::Add(z, hn::Set(d8, int8_t(kZeroColumn)))));
}

// The block kernel's zig-zag byte shuffles paired for 32-byte vectors:
// idx[h][i] gathers zig-zag positions 32h..32h+15 (low half) and
// 32h+16..32h+31 (high half) from the bytes of rows 2i and 2i+1.
struct ZigzagShuffles2 {
  alignas(32) int8_t idx[2][4][32];
  constexpr ZigzagShuffles2() : idx() {
    const auto& zs = ::rvt::huffman_encode::kZigzagShuffles;
    for (int h = 0; h < 2; ++h) {
      for (int i = 0; i < 4; ++i) {
        for (int b = 0; b < 16; ++b) {
          idx[h][i][b] = int8_t(zs.idx[2 * h][i][b]);
          idx[h][i][16 + b] = int8_t(zs.idx[2 * h + 1][i][b]);
        }
      }
    }
  }
};
inline constexpr ZigzagShuffles2 kZigzagShuffles2{};

// Per zig-zag position of a block: (k << 7) | column, so that the entry of
// a coefficient after the one at position p is at[k] - ((p + 1) << 7) (the
// run times 128 plus the column); and the mask of its non-zero
// coefficients.  Targets whose vectors hold 32 lanes of 16 bits gather the
// block with two lane permutes; the others gather it packed to bytes
// (saturating, so large values stay large) with the block kernel's byte
// shuffles, 32 or 16 bytes at a time.
struct Columns {
  alignas(64) uint16_t at[64];

#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  HWY_INLINE uint64_t Load(const int16_t* block) {
    const hn::Full512<int16_t> d16;
    const hn::RebindToUnsigned<decltype(d16)> du16;
    const auto lo = hn::LoadU(d16, block);
    const auto hi = hn::LoadU(d16, block + 32);
    const auto bias = hn::Set(d16, kZeroColumn);
    const auto limit = hn::Set(d16, kSmallMax + 1);
    uint8_t nz[8];
    for (int h = 0; h < 2; ++h) {
      const auto z = ops::TwoTablesLookupLanes16(
          d16, lo, hi, hn::Load(du16, ::rvt::huffman_encode::kZigzagLanes.v + 32 * h));
      // |-32768| reads as -32768, which passes the limit; its column is
      // negative, and Max with 0 takes it back to 0 like every large value.
      const auto c = hn::IfThenElseZero(hn::Lt(hn::Abs(z), limit), hn::Add(z, bias));
      const auto row = hn::BitCast(d16, hn::Load(du16, kPositionRows.at + 32 * h));
      hn::Store(hn::BitCast(du16, hn::Or(hn::Max(c, hn::Zero(d16)), row)), du16, at + 32 * h);
      hn::StoreMaskBits(d16, hn::Ne(z, hn::Zero(d16)), nz + 4 * h);
    }
    uint64_t m;
    std::memcpy(&m, nz, 8);
    return m;
  }
#elif HWY_TARGET == HWY_AVX2
  // Two rows per 16-byte pack, each pack broadcast to both halves; the
  // shuffles then gather zig-zag positions 0..31 and 32..63 in one 32-byte
  // vector each.
  HWY_INLINE uint64_t Load(const int16_t* block) {
    const hn::Full256<int16_t> d16;
    const hn::Full256<int8_t> d8;
    const hn::RebindToUnsigned<decltype(d8)> du8;
    const hn::Full256<uint16_t> du16;
    const hn::Full128<int8_t> d8h;
    const hn::Full128<uint8_t> du8h;
    hn::Vec<decltype(d8)> pack[4];
    for (int i = 0; i < 4; ++i) {
      const auto p = hn::DemoteTo(d8h, hn::LoadU(d16, block + 16 * i));
      pack[i] = hn::Combine(d8, p, p);
    }
    const auto gather = [&](int h) {
      auto z = hn::TableLookupBytesOr0(pack[0], hn::Load(d8, kZigzagShuffles2.idx[h][0]));
      for (int i = 1; i < 4; ++i) {
        z = hn::Or(z, hn::TableLookupBytesOr0(pack[i], hn::Load(d8, kZigzagShuffles2.idx[h][i])));
      }
      return z;
    };
    uint8_t bits[8];
    for (int h = 0; h < 2; ++h) {
      const auto z = gather(h);
      hn::StoreMaskBits(d8, hn::Ne(z, hn::Zero(d8)), bits + 4 * h);
      const auto c = ByteColumns(d8, z);
      const auto lo = hn::PromoteTo(du16, hn::LowerHalf(du8h, c));
      const auto hi = hn::PromoteTo(du16, hn::UpperHalf(du8h, c));
      hn::Store(hn::Or(lo, hn::Load(du16, kPositionRows.at + 32 * h)), du16, at + 32 * h);
      hn::Store(hn::Or(hi, hn::Load(du16, kPositionRows.at + 32 * h + 16)), du16, at + 32 * h + 16);
    }
    uint64_t m;
    std::memcpy(&m, bits, 8);
    return m;
  }
#else
  HWY_INLINE uint64_t Load(const int16_t* block) {
    const hn::Full128<int16_t> d16;
    const hn::Full128<int8_t> d8;
    const hn::RebindToUnsigned<decltype(d8)> du8;
    const hn::Full128<uint16_t> du16;
    const hn::Rebind<int8_t, decltype(d16)> d8h;
    const auto pack = [&](int i) {
      return hn::Combine(d8, hn::DemoteTo(d8h, hn::LoadU(d16, block + 16 * i + 8)),
                         hn::DemoteTo(d8h, hn::LoadU(d16, block + 16 * i)));
    };
    const auto p0 = pack(0), p1 = pack(1), p2 = pack(2), p3 = pack(3);
    const auto& zs = ::rvt::huffman_encode::kZigzagShuffles;
    const auto idx = [&](int j, int i) {
      return hn::Load(d8, reinterpret_cast<const int8_t*>(zs.idx[j][i]));
    };
    const hn::Vec<decltype(d8)> z[4] = {
        hn::Or(hn::Or(hn::TableLookupBytesOr0(p0, idx(0, 0)),
                      hn::TableLookupBytesOr0(p1, idx(0, 1))),
               hn::TableLookupBytesOr0(p2, idx(0, 2))),
        hn::Or(hn::Or(hn::TableLookupBytesOr0(p0, idx(1, 0)),
                      hn::TableLookupBytesOr0(p1, idx(1, 1))),
               hn::Or(hn::TableLookupBytesOr0(p2, idx(1, 2)),
                      hn::TableLookupBytesOr0(p3, idx(1, 3)))),
        hn::Or(hn::Or(hn::TableLookupBytesOr0(p0, idx(2, 0)),
                      hn::TableLookupBytesOr0(p1, idx(2, 1))),
               hn::Or(hn::TableLookupBytesOr0(p2, idx(2, 2)),
                      hn::TableLookupBytesOr0(p3, idx(2, 3)))),
        hn::Or(hn::Or(hn::TableLookupBytesOr0(p1, idx(3, 1)),
                      hn::TableLookupBytesOr0(p2, idx(3, 2))),
               hn::TableLookupBytesOr0(p3, idx(3, 3)))};
    uint8_t bits[8];
    for (int j = 0; j < 4; ++j) {
      hn::StoreMaskBits(d8, hn::Ne(z[j], hn::Zero(d8)), bits + 2 * j);
      const auto c = ByteColumns(d8, z[j]);
      const auto lo = hn::BitCast(du16, hn::ZipLower(c, hn::Zero(du8)));
      const auto hi = hn::BitCast(du16, hn::ZipUpper(du8, c, hn::Zero(du8)));
      hn::Store(hn::Or(lo, hn::Load(du16, kPositionRows.at + 16 * j)), du16, at + 16 * j);
      hn::Store(hn::Or(hi, hn::Load(du16, kPositionRows.at + 16 * j + 8)), du16, at + 16 * j + 8);
    }
    uint64_t m;
    std::memcpy(&m, bits, 8);
    return m;
  }
#endif
};

// Symbols of small AC values with their value bits: entry (run << 7) +
// column for run 0..15 holds (code << s | value bits) << 8 | (code length
// + s), so one look-up puts the whole symbol; 0 in the empty columns and
// where the table has no usable code (the symbol then takes the general
// path, which judges it).
struct SmallSymbols {
  uint32_t e[16 * kColumns];
};

HWY_NOINLINE void BuildSmallSymbols(const EncodeHuffmanSpec* ac, SmallSymbols* t) {
  for (int run = 0; run < 16; ++run) {
    uint32_t* row = t->e + run * kColumns + kZeroColumn;
    row[0] = 0;
    row[-kZeroColumn] = 0;
    for (int s = 1; s <= kSmallBits; ++s) {
      const uint32_t e = ac->entry[run * 16 + s];
      const uint32_t n = (e >> 16) & 0xFF;
      const int lo = 1 << (s - 1), hi = (1 << s) - 1;
      if (n - 1 > 15) {
        for (int v = lo; v <= hi; ++v) row[v] = row[-v] = 0;
        continue;
      }
      const uint32_t code = uint32_t(he::CodeBits(e, n)) << s;
      const uint32_t len = n + uint32_t(s);
      for (int v = lo; v <= hi; ++v) {
        row[v] = (code | uint32_t(v)) << 8 | len;
        row[-v] = (code | ExtraBits(-v, s)) << 8 | len;
      }
    }
  }
}

// One AC coefficient by the spec itself: its ZRLs, then run/size code and
// value bits.  False, before anything is stored, when a code is missing.
HWY_INLINE bool GeneralSymbol(Regs& r, int run, int32_t v, const EncodeHuffmanSpec* ac) {
  if (HWY_UNLIKELY(run > 15)) {
    const uint32_t zrl = ac->entry[0xF0];
    const uint32_t zn = (zrl >> 16) & 0xFF;
    if (zn - 1 > 15) return false;
    const uint64_t zcode = he::CodeBits(zrl, zn);
    for (; run > 15; run -= 16) Put(r, zcode, int(zn));
  }
  const int32_t sign = v >> 31;
  const int s = he::BitLengthNZ(uint32_t((v ^ sign) - sign));
  const uint32_t sym = uint32_t(run * 16 + s);
  const uint32_t e = ac->entry[sym & 0xFF];
  const uint32_t n = (e >> 16) & 0xFF;
  if (HWY_UNLIKELY(((n - 1) | (sym & 0x100)) > 15)) return false;
  const uint64_t extra = uint32_t(v + sign) & ((1u << s) - 1);
  Put(r, (he::CodeBits(e, n) << s) | extra, int(n) + s);
  return true;
}

// What one block position of the MCU pattern codes with: its predictor,
// AC spec and small-symbol table, and its DC symbols by category and EOB
// as code << 8 | length (0 where the spec has no usable code).
struct Position {
  int16_t* last_dc;
  const EncodeHuffmanSpec* dc_spec;
  const EncodeHuffmanSpec* ac;
  const SmallSymbols* small;
  uint32_t dc[17];
  uint32_t eob;
};

HWY_INLINE uint32_t PackedCode(uint32_t e) {
  const uint32_t n = (e >> 16) & 0xFF;
  return n - 1 > 15 ? 0 : uint32_t(he::CodeBits(e, n)) << 8 | n;
}

HWY_NOINLINE void SetPosition(Position* q, int16_t* last_dc, const EncodeHuffmanSpec* dc,
                              const EncodeHuffmanSpec* ac) {
  q->last_dc = last_dc;
  q->dc_spec = dc;
  q->ac = ac;
  q->small = nullptr;
  for (int s = 0; s <= 16; ++s) q->dc[s] = PackedCode(dc->entry[s]);
  q->eob = PackedCode(ac->entry[0x00]);
}

// One block from io; on success the registers and the predictor move on.
// Returns false, leaving both as they were, at a symbol without a code (or
// category 16 after a run of 15): the caller then restarts the block on
// the careful path, whose bytes up to that symbol are the ones already
// stored.  small (when kSmall) resolves the common AC symbols in one
// look-up.
template <bool kSmall>
HWY_INLINE bool FastBlock(Regs& io, const int16_t* block, const Position& q) {
  int16_t* const last_dc = q.last_dc;
  const EncodeHuffmanSpec* const ac = q.ac;
  const SmallSymbols* const small = q.small;
  Regs r = io;
  Columns cols;
  const uint64_t nz = cols.Load(block);
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  // Category without a branch: the bit length of a | 1, less one for 0.
  const uint32_t a = uint32_t(diff < 0 ? -diff : diff);
  const int s = he::BitLengthNZ(a | 1) - int(a == 0);
  const uint32_t dcs = q.dc[s];
  if (HWY_UNLIKELY(dcs == 0)) return false;
  Put(r, (uint64_t(dcs >> 8) << s) | ExtraBits(diff, s), int(dcs & 0xFF) + s);
  uint64_t m = nz & ~uint64_t(1);
  // (p + 1) << 7 for the last coded position p.
  uint32_t next = kColumns;
  while (m != 0) {
    const uint32_t k = uint32_t(__builtin_ctzll(m));
    m &= m - 1;
    const uint32_t at = uint32_t(cols.at[k]) - next;
    next = kPositionRows.next[k];
    if constexpr (kSmall) {
      if (HWY_LIKELY(at < 16 * kColumns)) {
        const uint32_t se = small->e[at];
        if (HWY_LIKELY(se != 0)) {
          // A second small symbol joins the first in one append.
          if (m != 0) {
            const uint32_t k2 = uint32_t(__builtin_ctzll(m));
            const uint32_t at2 = uint32_t(cols.at[k2]) - next;
            if (HWY_LIKELY(at2 < 16 * kColumns)) {
              const uint32_t se2 = small->e[at2];
              if (HWY_LIKELY(se2 != 0)) {
                m &= m - 1;
                next = kPositionRows.next[k2];
                const uint32_t n2 = se2 & 0xFF;
                Put(r, (uint64_t(se >> 8) << n2) | (se2 >> 8), int((se & 0xFF) + n2));
                continue;
              }
            }
          }
          Put(r, se >> 8, int(se & 0xFF));
          continue;
        }
      }
    }
    if (!GeneralSymbol(r, int(at / kColumns), block[kNaturalOfZigzag[k]], ac)) return false;
  }
  if (next != 64 * kColumns) {
    if (HWY_UNLIKELY(q.eob == 0)) return false;
    Put(r, q.eob >> 8, int(q.eob & 0xFF));
  }
  io = r;
  *last_dc = block[0];
  return true;
}

// Room the unchecked path needs: the buffer's 64 bits and a block's worst
// case (2055 bits), every byte stuffed.
constexpr int kRoom = 2 * (8 + 258);

// Runs this long amortize building the small-symbol tables (about two
// thousand stores per AC table).
constexpr int kSmallMinBlocks = 48;

// Blocks i.. of the run (block i at position b of the pattern) from *io,
// while the destination has room and each block codes on the fast path;
// returns the first block not coded (n when all were).  Not inlined: the
// symbol loop gets the machine's registers to itself, and the run's
// registers are copied in and out once per call.
template <bool kSmall>
HWY_NOINLINE int FastBlocks(Regs* io, const int16_t* src, int i, int n, int b, int nblocks,
                            const Position* p, const uint8_t* end) {
  Regs r = *io;
  for (; i < n; ++i) {
    if (HWY_UNLIKELY(end - r.out < kRoom)) break;
    if (HWY_UNLIKELY(!FastBlock<kSmall>(r, src + 64 * size_t(i), p[b]))) break;
    if (++b == nblocks) b = 0;
  }
  *io = r;
  return i;
}

template <bool kSmall>
HWY_INLINE RvtResult EncodeRun(const Args& a, const Position* p) {
  const int n = a.nmcus * a.nblocks;
  uint8_t* const end = a.dst + a.len;
  Regs r = Load(a.dst, *a.pos, a.st);
  RvtResult status = rvtStatusOk;
  int i = 0;
  for (;;) {
    i = FastBlocks<kSmall>(&r, a.src, i, n, i % a.nblocks, a.nblocks, p, end);
    if (i == n) break;
    // Block i on the careful path, from the caller's state.
    const int b = i % a.nblocks;
    Commit(r, a.dst, a.pos, a.st);
    status = he::Encode8x8Block(a.src + 64 * size_t(i), a.dst, a.len, a.pos, p[b].last_dc,
                                p[b].dc_spec, p[b].ac, a.st);
    if (status != rvtStatusOk) break;
    r = Load(a.dst, *a.pos, a.st);
    ++i;
  }
  if (status == rvtStatusOk) Commit(r, a.dst, a.pos, a.st);
  *a.nblocks_done = i;
  return status;
}

inline RvtResult EncodeRun(const Args& a) {
  Position p[kMaxMcuBlocks];
  for (int b = 0; b < a.nblocks; ++b) {
    const int c = a.comp[b];
    SetPosition(&p[b], &a.last_dc[c], a.dc[c], a.ac[c]);
  }
  if (a.nmcus * a.nblocks < kSmallMinBlocks) return EncodeRun<false>(a, p);
  // One table per distinct AC spec of the pattern.
  SmallSymbols tables[kComponents];
  const EncodeHuffmanSpec* built[kComponents];
  int nbuilt = 0;
  for (int b = 0; b < a.nblocks; ++b) {
    int t = 0;
    while (t < nbuilt && built[t] != p[b].ac) ++t;
    if (t == nbuilt) {
      BuildSmallSymbols(p[b].ac, &tables[t]);
      built[nbuilt++] = p[b].ac;
    }
    p[b].small = &tables[t];
  }
  return EncodeRun<true>(a, p);
}

}  // namespace rvt::huffman_encode_blocks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_INL_H_
