// Baseline Huffman encoding: the fast block kernel of one target.  No
// checks here: the driver in huffman_encode.h has checked the arguments.
//
// The kernel finds the non-zero coefficients in zig-zag order with one
// vector pass (byte shuffles of the packed block), then walks only those,
// collecting bits in a 64-bit word whose whole bytes go to a staging area
// with one store per symbol; one vector scan per block finds the 0xFF bytes
// that need stuffing on the way out.  Blocks that do not fit (or hold a
// symbol without a code) go to the careful writer from the untouched state.
#if defined(RVT_JPEG_HUFFMAN_ENCODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_HUFFMAN_ENCODE_INL_H_
#undef RVT_JPEG_HUFFMAN_ENCODE_INL_H_
#else
#define RVT_JPEG_HUFFMAN_ENCODE_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "frame/raw_ops-inl.h"
#include "jpeg/huffman_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_encode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

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
    return hn::Load(d8, reinterpret_cast<const int8_t*>(kZigzagShuffles.idx[j][i]));
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

// What the symbol loop needs of each zig-zag position.  Targets whose
// vectors hold 32 lanes of 16 bits prepare it for the whole block with two
// lane permutes; the others read the block through the zig-zag order as
// they go.
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
struct ZigzagBlock {
  // Per zig-zag position: the magnitude category and the value bits before
  // masking (v, or v - 1 when negative).
  alignas(64) int32_t size[64];
  alignas(64) int16_t bits[64];
  uint64_t Load(const int16_t* block) {
    const hn::Full512<int16_t> d16;
    const hn::RebindToUnsigned<decltype(d16)> du16;
    const hn::Full512<uint32_t> du32;
    const hn::Full512<int32_t> d32;
    const hn::Full512<float> df;
    const auto lo = hn::LoadU(d16, block);
    const auto hi = hn::LoadU(d16, block + 32);
    const hn::Vec<decltype(d16)> z[2] = {
        ops::TwoTablesLookupLanes16(d16, lo, hi, hn::Load(du16, kZigzagLanes.v)),
        ops::TwoTablesLookupLanes16(d16, lo, hi, hn::Load(du16, kZigzagLanes.v + 32))};
    uint8_t nz[8];
    for (int h = 0; h < 2; ++h) {
      hn::Store(hn::Add(z[h], hn::ShiftRight<15>(z[h])), d16, bits + 32 * h);
      hn::StoreMaskBits(d16, hn::Ne(z[h], hn::Zero(d16)), nz + 4 * h);
      // Category from the float exponent of the magnitude (exact below 2^24;
      // |-32768| reads as 32768).
      const auto a = hn::BitCast(du16, hn::Abs(z[h]));
      for (int q = 0; q < 2; ++q) {
        const auto a32 = hn::BitCast(
            d32, hn::PromoteTo(du32, q ? hn::UpperHalf(hn::Half<decltype(du16)>(), a)
                                       : hn::LowerHalf(a)));
        const auto e = hn::ShiftRight<23>(hn::BitCast(d32, hn::ConvertTo(df, a32)));
        const auto n = hn::Max(hn::Sub(e, hn::Set(d32, 126)), hn::Zero(d32));
        hn::Store(n, d32, size + 32 * h + 16 * q);
      }
    }
    uint64_t m;
    std::memcpy(&m, nz, 8);
    return m;
  }

  HWY_INLINE int Size(const int16_t*, int k) const { return size[k]; }
  HWY_INLINE uint32_t Bits(const int16_t*, int k) const { return uint16_t(bits[k]); }
};
#else
struct ZigzagBlock {
  uint64_t Load(const int16_t* block) { return NonZeroMask(block); }
  HWY_INLINE int Size(const int16_t* block, int k) const {
    const int32_t v = block[kNaturalOfZigzag[k]];
    const int32_t sign = v >> 31;
    return BitLengthNZ(uint32_t((v ^ sign) - sign));
  }
  HWY_INLINE uint32_t Bits(const int16_t* block, int k) const {
    const int32_t v = block[kNaturalOfZigzag[k]];
    return uint32_t(v + (v >> 31));
  }
};
#endif

// Bits collected left-aligned in a 64-bit word (zeros below them); after
// every symbol the whole bytes leave with one 8-byte store into a staging
// area on the stack (the bytes past them are rewritten by the next store),
// so the symbol loop has no data-dependent branch.  Stuffing is left to the
// copy-out.
struct StagingWriter {
  uint8_t* out;
  uint64_t buf;
  uint32_t nbits;  // < 8 after each Put

  // v holds n bits (0..47) and zeros above them; shift counts stay within
  // 0..63.
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

// The code of a spec entry as the careful writer sends it: its low n bits,
// n being the entry's length field masked to 0..31 (only lengths 1..16
// reach the output; the others send the block to the careful writer).
// Specs filled by hand may hold bits above the length.  One load and one
// AND: a mask computed from n costs the symbol loop several instructions
// on targets without BMI2.
HWY_INLINE uint64_t CodeBits(uint32_t e, uint32_t n) { return e & kCodeMask.v[n]; }

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
  n &= 31;
  w.Put((CodeBits(e, n) << s) | ExtraBits(diff, s), n + uint32_t(s));
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
      const uint64_t zcode = CodeBits(zrl, zn & 31);
      for (; run > 15; run -= 16) w.Put(zcode, zn & 31);
    }
    s = zz.Size(block, k);
    const uint32_t sym = uint32_t(run * 16 + s);
    e = ac->entry[sym & 0xFF];
    n = (e >> 16) & 0xFF;
    bad |= (n - 1) | (sym & 0x100);
    n &= 31;
    const uint64_t extra = zz.Bits(block, k) & ((1u << s) - 1);
    w.Put((CodeBits(e, n) << s) | extra, n + uint32_t(s));
  }
  if (prev != 63) {
    e = ac->entry[0x00];
    n = (e >> 16) & 0xFF;
    bad |= n - 1;
    n &= 31;
    w.Put(CodeBits(e, n), n);
  }
  return (bad & ~15u) == 0;
}

// The block kernel: a checked block (never a flush).
inline RvtResult Encode8x8Block(const int16_t* block, uint8_t* dst, int len, int* pos,
                                int16_t* last_dc, const EncodeHuffmanSpec* dc,
                                const EncodeHuffmanSpec* ac, EncodeHuffmanState* st) {
  const int count = st->count & 7;
  const uint32_t pending = (uint32_t(st->acc) >> (24 - count)) & ((1u << count) - 1);
  // Room for a block's worst case plus the 8-byte store past it and the
  // 16-byte reads of the copy-out.  Codes are staged before a spec's length
  // fields are judged, and the mask lets lengths up to 31 through: 63
  // coefficients of 31 + 16 bits, the DC's 47, three ZRLs and an EOB of 31
  // come to 3132 bits (392 bytes); built specs stay within 2055.
  alignas(16) uint8_t stage[448];
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

}  // namespace rvt::huffman_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_ENCODE_INL_H_
