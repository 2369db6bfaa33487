// Baseline Huffman encoding of a run of MCUs: the fast kernel of one
// target.  No checks here: the driver in huffman_encode_blocks.h has
// checked the arguments.
//
// The kernel keeps a 64-bit bit buffer in registers from the first block
// to the last and writes the caller's position and state back once, at
// the end.  Each symbol (code and value bits together) is shifted into the
// buffer; when the buffer fills, its eight bytes go out with one store when
// none of them is 0xFF (tested a word at a time), else byte by byte with
// the 0x00 after each 0xFF.  Each block's non-zero coefficients come from
// one vector pass, as in the block kernel; long runs first build, per AC
// table, the symbols of every small value after every short run with their
// value bits, so most coefficients cost one look-up.  While the destination has room
// for a block's worst case the kernel stores without bound checks; nearer
// the end, and for a block holding a symbol without a code, it writes its
// pending whole bytes out and hands the block to the block kernel from the
// caller's state, which is where the careful writer takes over.
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
// is stored) and the next destination byte.
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
// leaves as one word.
HWY_INLINE void Put(Regs& r, uint64_t v, int n) {
  r.free -= n;
  if (r.free < 0) {
    // The old free count (0..n-1) brings the buffer's bits to the top; the
    // bits of v that do not fit stay in buf for the next word.
    const uint64_t w = (r.buf << (n + r.free)) | (v >> -r.free);
    if (HWY_LIKELY(!HasFFByte(w))) {
      const uint64_t be = __builtin_bswap64(w);
      std::memcpy(r.out, &be, 8);
      r.out += 8;
    } else {
      r.out = StoreStuffed(r.out, w);
    }
    r.free += 64;
    r.buf = v;
  } else {
    r.buf = (r.buf << n) | v;
  }
}

// The pending bits of a caller's state, as the careful writer reads them.
HWY_INLINE Regs Load(uint8_t* dst, int pos, const EncodeHuffmanState* st) {
  const int count = st->count & 7;
  const uint32_t pending = (uint32_t(st->acc) >> (24 - count)) & ((1u << count) - 1);
  return Regs{pending, 64 - count, dst + pos};
}

// The whole pending bytes out (stuffed), the rest into the caller's state.
HWY_NOINLINE void Commit(const Regs& r, uint8_t* dst, int* pos, EncodeHuffmanState* st) {
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

// The zig-zag values of a block and the mask of its non-zero ones.  Targets
// whose vectors hold 32 lanes of 16 bits gather the block with two lane
// permutes; the others read it through the zig-zag order as they go.
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
struct Zigzag {
  alignas(64) int16_t value[64];
  HWY_INLINE uint64_t Load(const int16_t* block) {
    const hn::Full512<int16_t> d16;
    const hn::RebindToUnsigned<decltype(d16)> du16;
    const auto lo = hn::LoadU(d16, block);
    const auto hi = hn::LoadU(d16, block + 32);
    uint8_t nz[8];
    for (int h = 0; h < 2; ++h) {
      const auto z = ops::TwoTablesLookupLanes16(d16, lo, hi,
                                                 hn::Load(du16, ::rvt::huffman_encode::kZigzagLanes.v + 32 * h));
      hn::Store(z, d16, value + 32 * h);
      hn::StoreMaskBits(d16, hn::Ne(z, hn::Zero(d16)), nz + 4 * h);
    }
    uint64_t m;
    std::memcpy(&m, nz, 8);
    return m;
  }
  HWY_INLINE int32_t At(const int16_t*, int k) const { return value[k]; }
};
#else
struct Zigzag {
  HWY_INLINE uint64_t Load(const int16_t* block) { return he::NonZeroMask(block); }
  HWY_INLINE int32_t At(const int16_t* block, int k) const { return block[kNaturalOfZigzag[k]]; }
};
#endif

// Symbols of small AC values with their value bits: entry
// [run * kSmallStride + kSmallMax + 1 + v] for run 0..15 and 0 < |v| <=
// kSmallMax holds (code << s | value bits) << 5 | (code length + s), so
// one look-up and one shift put the whole symbol; 0 where the table has no
// usable code (the symbol then takes the general path, which judges it).
constexpr int kSmallBits = 5;
constexpr int kSmallMax = (1 << kSmallBits) - 1;
constexpr int kSmallStride = 2 * (kSmallMax + 1);
struct SmallSymbols {
  uint32_t e[16 * kSmallStride];
};

HWY_NOINLINE void BuildSmallSymbols(const EncodeHuffmanSpec* ac, SmallSymbols* t) {
  for (int run = 0; run < 16; ++run) {
    uint32_t* row = t->e + run * kSmallStride + kSmallMax + 1;
    row[0] = 0;
    row[-kSmallMax - 1] = 0;
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
        row[v] = (code | uint32_t(v)) << 5 | len;
        row[-v] = (code | ExtraBits(-v, s)) << 5 | len;
      }
    }
  }
}

// One block into r; the predictor moves on.  Returns false, before the
// symbol is stored, at a symbol without a code (or category 16 after a run
// of 15): the caller then restarts the block on the careful path, whose
// bytes up to that symbol are the ones already stored.  small (when not
// null) resolves the common AC symbols in one look-up.
template <bool kSmall>
HWY_INLINE bool FastBlock(Regs& r, const int16_t* block, int16_t* last_dc,
                          const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac,
                          const SmallSymbols* small) {
  Zigzag zz;
  const uint64_t nz = zz.Load(block);
  const int32_t diff = int32_t(block[0]) - int32_t(*last_dc);
  *last_dc = block[0];
  const uint32_t a = uint32_t(diff < 0 ? -diff : diff);
  int s = a ? he::BitLengthNZ(a) : 0;
  uint32_t e = dc->entry[s];
  uint32_t n = (e >> 16) & 0xFF;
  if (HWY_UNLIKELY(n - 1 > 15)) return false;
  Put(r, (he::CodeBits(e, n) << s) | ExtraBits(diff, s), int(n) + s);
  const uint32_t zrl = ac->entry[0xF0];
  uint64_t m = nz & ~uint64_t(1);
  int prev = 0;
  while (m != 0) {
    const int k = int(__builtin_ctzll(m));
    m &= m - 1;
    int run = k - prev - 1;
    prev = k;
    const int32_t v = zz.At(block, k);
    if constexpr (kSmall) {
      if (HWY_LIKELY(run <= 15 && uint32_t(v + kSmallMax) <= uint32_t(2 * kSmallMax))) {
        const uint32_t se = small->e[run * kSmallStride + kSmallMax + 1 + v];
        if (HWY_LIKELY(se != 0)) {
          Put(r, se >> 5, int(se & 31));
          continue;
        }
      }
    }
    if (HWY_UNLIKELY(run > 15)) {
      const uint32_t zn = (zrl >> 16) & 0xFF;
      if (zn - 1 > 15) return false;
      const uint64_t zcode = he::CodeBits(zrl, zn);
      for (; run > 15; run -= 16) Put(r, zcode, int(zn));
    }
    const int32_t sign = v >> 31;
    s = he::BitLengthNZ(uint32_t((v ^ sign) - sign));
    const uint32_t sym = uint32_t(run * 16 + s);
    e = ac->entry[sym & 0xFF];
    n = (e >> 16) & 0xFF;
    if (HWY_UNLIKELY(((n - 1) | (sym & 0x100)) > 15)) return false;
    const uint64_t extra = uint32_t(v + sign) & ((1u << s) - 1);
    Put(r, (he::CodeBits(e, n) << s) | extra, int(n) + s);
  }
  if (prev != 63) {
    e = ac->entry[0x00];
    n = (e >> 16) & 0xFF;
    if (HWY_UNLIKELY(n - 1 > 15)) return false;
    Put(r, he::CodeBits(e, n), int(n));
  }
  return true;
}

// Room the unchecked path needs: the buffer's 64 bits and a block's worst
// case (2055 bits), every byte stuffed.
constexpr int kRoom = 2 * (8 + 258);

// Runs this long amortize building the small-symbol tables (about a
// thousand stores per AC table).
constexpr int kSmallMinBlocks = 48;

template <bool kSmall>
HWY_INLINE RvtResult EncodeRunWith(const Args& a, const SmallSymbols* const* small) {
  const int n = a.nmcus * a.nblocks;
  uint8_t* const end = a.dst + a.len;
  Regs r = Load(a.dst, *a.pos, a.st);
  RvtResult status = rvtStatusOk;
  int i = 0;
  int b = 0;
  for (; i < n; ++i) {
    const int c = a.comp[b];
    const SmallSymbols* sm = kSmall ? small[b] : nullptr;
    if (++b == a.nblocks) b = 0;
    const int16_t* block = a.src + 64 * size_t(i);
    int16_t* last_dc = &a.last_dc[c];
    if (HWY_LIKELY(end - r.out >= kRoom)) {
      const Regs before = r;
      const int16_t dc_before = *last_dc;
      if (HWY_LIKELY(FastBlock<kSmall>(r, block, last_dc, a.dc[c], a.ac[c], sm))) continue;
      r = before;
      *last_dc = dc_before;
    }
    Commit(r, a.dst, a.pos, a.st);
    status = he::Encode8x8Block(block, a.dst, a.len, a.pos, last_dc, a.dc[c], a.ac[c], a.st);
    if (status != rvtStatusOk) break;
    r = Load(a.dst, *a.pos, a.st);
  }
  if (status == rvtStatusOk) Commit(r, a.dst, a.pos, a.st);
  *a.nblocks_done = i;
  return status;
}

inline RvtResult EncodeRun(const Args& a) {
  if (a.nmcus * a.nblocks < kSmallMinBlocks) return EncodeRunWith<false>(a, nullptr);
  // One table per distinct AC spec of the pattern.
  SmallSymbols tables[kComponents];
  const EncodeHuffmanSpec* built[kComponents];
  int nbuilt = 0;
  const SmallSymbols* small[kMaxMcuBlocks];
  for (int b = 0; b < a.nblocks; ++b) {
    const EncodeHuffmanSpec* ac = a.ac[a.comp[b]];
    int t = 0;
    while (t < nbuilt && built[t] != ac) ++t;
    if (t == nbuilt) {
      BuildSmallSymbols(ac, &tables[t]);
      built[nbuilt++] = ac;
    }
    small[b] = &tables[t];
  }
  return EncodeRunWith<true>(a, small);
}

}  // namespace rvt::huffman_encode_blocks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_ENCODE_BLOCKS_INL_H_
