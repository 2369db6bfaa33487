// BC1 to BC5 block decoding: the vector rows of one target.  No checks
// here.  Every 128-bit block of a vector decodes one texture block: the
// palette is built in 16-bit lanes and packed to bytes, and each pixel row
// is one byte shuffle of the palette, so a vector of N bytes decodes N / 16
// blocks (BC4: four vectors' worth, transposed to rows).  Blocks past the
// last whole group of a block row take the scalar reference; no vector
// reads a byte past the blocks it decodes.  The kStream rows, which the
// driver picks for large 64-byte aligned regions, store non-temporally.
#if defined(RVT_TEXTURE_BC_DECODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_BC_DECODE_INL_H_
#undef RVT_TEXTURE_BC_DECODE_INL_H_
#else
#define RVT_TEXTURE_BC_DECODE_INL_H_
#endif

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include <type_traits>

#include "frame/raw_ops-inl.h"
#include "texture/bc_decode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bc_decode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

using D8 = hn::ScalableTag<uint8_t>;
using D16 = hn::ScalableTag<uint16_t>;
using DI8 = hn::ScalableTag<int8_t>;
using DI16 = hn::ScalableTag<int16_t>;
using D32 = hn::ScalableTag<uint32_t>;
using D64 = hn::ScalableTag<uint64_t>;
using V8 = hn::Vec<D8>;
using V16 = hn::Vec<D16>;

constexpr uint8_t Z = 0x80;  // a shuffle index that gives zero

// Per-block constants: 16 bytes repeated in every 128-bit block.
struct Table {
  alignas(16) uint8_t b[16];
};
template <class D>
HWY_INLINE hn::Vec<D> Rep(D d, const Table& t) {
  return hn::BitCast(d, hn::LoadDup128(D8(), t.b));
}
constexpr Table Words(const uint16_t (&w)[8]) {
  Table t{};
  for (int i = 0; i < 8; ++i) t.b[2 * i] = uint8_t(w[i]), t.b[2 * i + 1] = uint8_t(w[i] >> 8);
  return t;
}

// ---- colour part (c0, c1, index word) at byte kOff of every 128-bit block

template <int kOff>
struct ColourTables {
  static constexpr Table kC = {{kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1,
                                kOff + 2, kOff + 3, kOff + 2, kOff + 3, kOff + 2, kOff + 3,
                                kOff + 2, kOff + 3}};
  // c0, then c1, in every 16-bit lane.
  static constexpr Table kC0 = {{kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1,
                                 kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1}};
  static constexpr Table kC1 = {{kOff + 2, kOff + 3, kOff + 2, kOff + 3, kOff + 2, kOff + 3,
                                 kOff + 2, kOff + 3, kOff + 2, kOff + 3, kOff + 2, kOff + 3,
                                 kOff + 2, kOff + 3, kOff + 2, kOff + 3}};
  static constexpr Table kIdx = {{kOff + 4, kOff + 5, kOff + 6, kOff + 7, kOff + 4, kOff + 5,
                                  kOff + 6, kOff + 7, kOff + 4, kOff + 5, kOff + 6, kOff + 7,
                                  kOff + 4, kOff + 5, kOff + 6, kOff + 7}};
};
// Each 5-6-5 field moved to the top of its lane, masked, then scaled by
// MulHigh to the bit-replicated 8-bit value: lanes R, G, B, A of c0 then c1.
constexpr Table kFieldUp = Words({1, 32, 2048, 0, 1, 32, 2048, 0});
constexpr Table kFieldMask = Words({0xF800, 0xFC00, 0xF800, 0, 0xF800, 0xFC00, 0xF800, 0});
constexpr Table kFieldScale = Words({264, 260, 264, 0, 264, 260, 264, 0});
constexpr Table kOpaque = Words({0, 0, 0, 255, 0, 0, 0, 255});
constexpr Table kWhiteHigh = Words({0, 0, 0, 0, 255, 255, 255, 255});
// Index field of column c (2c in every byte) moved to bits 6-7 of its byte.
constexpr Table kColumnUp = Words({64, 64, 16, 16, 4, 4, 1, 1});
// Row r: byte 4c + k of the pixel row reads 4 * index(r, c) and adds k.
constexpr Table kRowSel[4] = {
    {{0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12}},
    {{1, 1, 1, 1, 5, 5, 5, 5, 9, 9, 9, 9, 13, 13, 13, 13}},
    {{2, 2, 2, 2, 6, 6, 6, 6, 10, 10, 10, 10, 14, 14, 14, 14}},
    {{3, 3, 3, 3, 7, 7, 7, 7, 11, 11, 11, 11, 15, 15, 15, 15}}};
constexpr Table kChannel = {{0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3}};
// Row r of a 16-pixel channel vector into the alpha bytes of RGBA pixels.
constexpr Table kAlphaSel[4] = {
    {{Z, Z, Z, 0, Z, Z, Z, 1, Z, Z, Z, 2, Z, Z, Z, 3}},
    {{Z, Z, Z, 4, Z, Z, Z, 5, Z, Z, Z, 6, Z, Z, Z, 7}},
    {{Z, Z, Z, 8, Z, Z, Z, 9, Z, Z, Z, 10, Z, Z, Z, 11}},
    {{Z, Z, Z, 12, Z, Z, Z, 13, Z, Z, Z, 14, Z, Z, Z, 15}}};

// The palette (four RGBA entries, alpha kAlpha) and the index table (byte
// 4c + r holds 4 * index(r, c)) of the colour part in every 128-bit block.
// kThree: DXT1's three-colour mode when c0 <= c1.
template <int kOff, bool kThree>
HWY_INLINE void ColourPart(V8 v, V8& pal, V8& idx) {
  const D8 d8;
  const D16 d16;
  const DI16 di16;
  const D64 d64;
  const V16 c = hn::BitCast(d16, hn::TableLookupBytes(v, Rep(d8, ColourTables<kOff>::kC)));
  V16 e01 = hn::MulHigh(hn::And(hn::Mul(c, Rep(d16, kFieldUp)), Rep(d16, kFieldMask)),
                        Rep(d16, kFieldScale));
  if (kThree) e01 = hn::Or(e01, Rep(d16, kOpaque));
  const V16 swapped = hn::BitCast(d16, hn::Shuffle01(hn::BitCast(d64, e01)));
  // (2a + b) / 3 and (a + 2b) / 3, truncated: x * 21846 >> 16 for x <= 765.
  const V16 sum = hn::Add(e01, swapped);
  V16 e23 = hn::MulHigh(hn::Add(sum, e01), hn::Set(d16, uint16_t(21846)));
  if (kThree) {
    // The mean, and white (every mean is at most 255) for entry 3.
    const V16 three = hn::Or(hn::ShiftRight<1>(sum), Rep(d16, kWhiteHigh));
    // Three colours unless c0 > c1 (unsigned): c0 - c1 saturates to 0.
    const V16 c0 = hn::BitCast(d16, hn::TableLookupBytes(v, Rep(d8, ColourTables<kOff>::kC0)));
    const V16 c1 = hn::BitCast(d16, hn::TableLookupBytes(v, Rep(d8, ColourTables<kOff>::kC1)));
    e23 = hn::IfThenElse(hn::Eq(hn::SaturatedSub(c0, c1), hn::Zero(d16)), three, e23);
  }
  pal = ops::PackU8Blockwise(hn::BitCast(di16, e01), hn::BitCast(di16, e23));
  const V16 words = hn::BitCast(d16, hn::TableLookupBytes(v, Rep(d8, ColourTables<kOff>::kIdx)));
  idx = hn::BitCast(d8, hn::ShiftRight<4>(hn::And(hn::Mul(words, Rep(d16, kColumnUp)),
                                                  hn::Set(d16, uint16_t(0xC0C0)))));
}

// Pixel row r (four RGBA pixels per 128-bit block).
HWY_INLINE V8 ColourRow(int r, V8 pal, V8 idx) {
  const D8 d8;
  const V8 ctrl = hn::Add(hn::TableLookupBytes(idx, Rep(d8, kRowSel[r])), Rep(d8, kChannel));
  return hn::TableLookupBytes(pal, ctrl);
}

// ---- channel block (e0, e1, 48-bit indices) at byte kOff of every block

// Palette lane i = (w0[i] * e0 + w1[i] * e1 + add[i]) / 7 or / 5: the
// weights as byte pairs for a multiply-add of the pair (e0, e1) in every
// lane, the division as a MulHigh exact for these ranges (x <= 1788 and
// x <= 1279).  Weights 1, -1 give e0 - e1, whose sign picks the form.
constexpr Table Pairs(const int8_t (&w0)[8], const int8_t (&w1)[8]) {
  Table t{};
  for (int i = 0; i < 8; ++i) t.b[2 * i] = uint8_t(w0[i]), t.b[2 * i + 1] = uint8_t(w1[i]);
  return t;
}
constexpr Table kSeven = Pairs({7, 0, 6, 5, 4, 3, 2, 1}, {0, 7, 1, 2, 3, 4, 5, 6});
constexpr Table kFive = Pairs({5, 0, 4, 3, 2, 1, 0, 0}, {0, 5, 1, 2, 3, 4, 0, 0});
constexpr Table kDifference = Pairs({1, 1, 1, 1, 1, 1, 1, 1}, {-1, -1, -1, -1, -1, -1, -1, -1});
constexpr Table kAddFive = Words({2, 2, 2, 2, 2, 2, 0, 1275});
constexpr Table kPackEven = {{0, 2, 4, 6, 8, 10, 12, 14, Z, Z, Z, Z, Z, Z, Z, Z}};

// Pixel p's index sits at bits 3p..3p+2 of bytes kOff+2..kOff+7: lane j
// takes the byte holding bit 6j and the next, which hold pixels 2j and
// 2j + 1 both, and one multiply per pixel lifts its field to bits 13-15.
template <int kOff>
struct ChannelTables {
  static constexpr Table Bytes() {
    Table t{};
    for (int j = 0; j < 8; ++j) {
      const int q = 6 * j / 8;
      t.b[2 * j] = uint8_t(kOff + 2 + q);
      t.b[2 * j + 1] = q + 1 <= 5 ? uint8_t(kOff + 3 + q) : Z;
    }
    return t;
  }
  static constexpr Table Lift(int parity) {
    uint16_t w[8] = {};
    for (int j = 0; j < 8; ++j) w[j] = uint16_t(1u << (13 - (6 * j + 3 * parity - 6 * j / 8 * 8)));
    return Words(w);
  }
  static constexpr Table kEnds = {{kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1,
                                   kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1, kOff, kOff + 1}};
  static constexpr Table kPairBytes = Bytes();
  static constexpr Table kEvenLift = Lift(0), kOddLift = Lift(1);
};

// The 16 pixels of the channel block in every 128-bit block, row order.
template <int kOff>
HWY_INLINE V8 ChannelPart(V8 v) {
  const D8 d8;
  const D16 d16;
  const DI16 di16;
  using T = ChannelTables<kOff>;
  const V8 ends = hn::TableLookupBytes(v, Rep(d8, T::kEnds));  // e0, e1 in every lane
  const DI8 di8;
  // (x + 3) / 7 truncated is (x * 4681 + 2^14) >> 15 for x <= 1785.
  const V16 seven = hn::BitCast(
      d16, hn::MulFixedPoint15(ops::MulAddPairs(di16, ends, Rep(di8, kSeven)),
                               hn::Set(di16, int16_t(4681))));
  const V16 five = hn::MulHigh(
      hn::Add(hn::BitCast(d16, ops::MulAddPairs(di16, ends, Rep(di8, kFive))), Rep(d16, kAddFive)),
      hn::Set(d16, uint16_t(13108)));
  const auto gt = hn::RebindMask(
      d16, hn::Gt(ops::MulAddPairs(di16, ends, Rep(di8, kDifference)), hn::Zero(di16)));
  const V8 pal = hn::TableLookupBytes(hn::BitCast(d8, hn::IfThenElse(gt, seven, five)),
                                      Rep(d8, kPackEven));
  const V16 pairs = hn::BitCast(d16, hn::TableLookupBytes(v, Rep(d8, T::kPairBytes)));
  const V16 idx = hn::Or(hn::ShiftRight<13>(hn::Mul(pairs, Rep(d16, T::kEvenLift))),
                         hn::And(hn::ShiftRight<5>(hn::Mul(pairs, Rep(d16, T::kOddLift))),
                                 hn::Set(d16, uint16_t(0x0700))));
  return hn::TableLookupBytes(pal, hn::BitCast(d8, idx));
}

// ---- rows

HWY_INLINE uint8_t* Row(uint8_t* dst, int32_t step, int r) { return dst + ptrdiff_t(r) * step; }

// A full vector of pixels; kStream: non-temporal (the caller aligned the
// rows to 64 bytes).
template <bool kStream>
HWY_INLINE void Put(V8 v, uint8_t* p) {
  if (kStream) {
    hn::Stream(v, D8(), p);
  } else {
    hn::StoreU(v, D8(), p);
  }
}

// DXT1: a vector load holds 2 * N / 16 blocks; each half is spread to one
// block per 128-bit block.
template <bool kStream>
void RowDxt1(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  const D8 d8;
  const D64 d64;
  const int64_t n64 = int64_t(hn::Lanes(d64));
  HWY_ALIGN uint64_t lo[hn::MaxLanes(d64)], hi[hn::MaxLanes(d64)];
  for (int64_t i = 0; i < n64; ++i) lo[i] = uint64_t(i / 2), hi[i] = uint64_t(n64 / 2 + i / 2);
  const auto ilo = hn::SetTableIndices(d64, lo), ihi = hn::SetTableIndices(d64, hi);
  const int64_t half_bytes = int64_t(hn::Lanes(d8));
  int64_t b = 0;
  for (; (b + n64) * 4 <= width; b += n64) {
    const auto both = hn::LoadU(d64, reinterpret_cast<const uint64_t*>(src + 8 * b));
    for (int h = 0; h < 2; ++h) {
      V8 pal, idx;
      ColourPart<0, true>(hn::BitCast(d8, hn::TableLookupLanes(both, h ? ihi : ilo)), pal, idx);
      uint8_t* out = dst + 16 * b + h * half_bytes;
      for (int r = 0; r < rows; ++r) Put<kStream>(ColourRow(r, pal, idx), Row(out, step, r));
    }
  }
  if (kStream) hwy::FlushStream();
  BlocksRef<Dxt1>(src, dst, step, width, rows, b);
}

// DXT3 and DXT5: one 16-byte block per 128-bit block; the alpha of the 16
// pixels (row order) joins the colour rows, whose palette alpha is 0.
template <class F, bool kStream>
void RowDxtAlpha(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  const D8 d8;
  const D16 d16;
  const int64_t n = int64_t(hn::Lanes(d8)) / 16;
  int64_t b = 0;
  for (; (b + n) * 4 <= width; b += n) {
    const V8 v = hn::LoadU(d8, src + 16 * b);
    V8 pal, idx, alpha;
    ColourPart<8, false>(v, pal, idx);
    if constexpr (std::is_same_v<F, Dxt3>) {
      // Nibble p of the 64-bit field, placed in the high half of the byte.
      const V8 low = hn::BitCast(d8, hn::ShiftLeft<4>(hn::BitCast(d16, v)));
      const V8 top = hn::Set(d8, uint8_t(0xF0));
      alpha = hn::InterleaveLower(d8, hn::And(low, top), hn::And(v, top));
    } else {
      alpha = ChannelPart<0>(v);
    }
    uint8_t* out = dst + 16 * b;
    for (int r = 0; r < rows; ++r) {
      const V8 px = hn::Or(ColourRow(r, pal, idx), hn::TableLookupBytes(alpha, Rep(d8, kAlphaSel[r])));
      Put<kStream>(px, Row(out, step, r));
    }
  }
  if (kStream) hwy::FlushStream();
  BlocksRef<F>(src, dst, step, width, rows, b);
}

// BC4: two vector loads hold 4 * N / 16 blocks; regrouped so that 128-bit
// block k of `a` holds blocks 4k, 4k + 1 and of `c` blocks 4k + 2, 4k + 3,
// their 4x4 tiles transpose to rows of 16 pixels per 128-bit block.
template <bool kStream>
void RowBc4(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  const D8 d8;
  const D32 d32;
  const D64 d64;
  const int64_t n = 4 * int64_t(hn::Lanes(d8)) / 16;
  int64_t b = 0;
  for (; (b + n) * 4 <= width; b += n) {
    const auto l0 = hn::LoadU(d64, reinterpret_cast<const uint64_t*>(src + 8 * b));
    const auto l1 = hn::LoadU(d64, reinterpret_cast<const uint64_t*>(src + 8 * b) + hn::Lanes(d64));
    const auto even = hn::ConcatEven(d64, l1, l0), odd = hn::ConcatOdd(d64, l1, l0);
    const V8 a = hn::BitCast(d8, hn::InterleaveLower(d64, even, odd));
    const V8 c = hn::BitCast(d8, hn::InterleaveUpper(d64, even, odd));
    const auto t0 = hn::BitCast(d32, ChannelPart<0>(a)), t1 = hn::BitCast(d32, ChannelPart<8>(a));
    const auto t2 = hn::BitCast(d32, ChannelPart<0>(c)), t3 = hn::BitCast(d32, ChannelPart<8>(c));
    const auto p01l = hn::BitCast(d64, hn::InterleaveLower(d32, t0, t1));
    const auto p01h = hn::BitCast(d64, hn::InterleaveUpper(d32, t0, t1));
    const auto p23l = hn::BitCast(d64, hn::InterleaveLower(d32, t2, t3));
    const auto p23h = hn::BitCast(d64, hn::InterleaveUpper(d32, t2, t3));
    const V8 out[4] = {hn::BitCast(d8, hn::InterleaveLower(d64, p01l, p23l)),
                       hn::BitCast(d8, hn::InterleaveUpper(d64, p01l, p23l)),
                       hn::BitCast(d8, hn::InterleaveLower(d64, p01h, p23h)),
                       hn::BitCast(d8, hn::InterleaveUpper(d64, p01h, p23h))};
    for (int r = 0; r < rows; ++r) Put<kStream>(out[r], Row(dst + 4 * b, step, r));
  }
  if (kStream) hwy::FlushStream();
  BlocksRef<Bc4>(src, dst, step, width, rows, b);
}

// BC5: one block per 128-bit block; red and green interleave to rows 0-1
// and 2-3 of every block.  Two vector loads make whole vector rows (their
// 8-byte rows gathered), so kStream stores them non-temporally; a last
// single vector gathers to half vectors (plain stores: a non-temporal half
// vector would write a whole one).
HWY_INLINE void Bc5Rows(V8 v, hn::Vec<D64>& r01, hn::Vec<D64>& r23) {
  const D8 d8;
  const D64 d64;
  const V8 red = ChannelPart<0>(v), green = ChannelPart<8>(v);
  r01 = hn::BitCast(d64, hn::InterleaveLower(d8, red, green));
  r23 = hn::BitCast(d64, hn::InterleaveUpper(d8, red, green));
}

template <bool kStream>
void RowBc5(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  const D8 d8;
  const D64 d64;
  const hn::Half<D8> dh;
  const int64_t n = int64_t(hn::Lanes(d8)) / 16;
  int64_t b = 0;
  for (; (b + 2 * n) * 4 <= width; b += 2 * n) {
    hn::Vec<D64> a01, a23, b01, b23;
    Bc5Rows(hn::LoadU(d8, src + 16 * b), a01, a23);
    Bc5Rows(hn::LoadU(d8, src + 16 * (b + n)), b01, b23);
    const V8 out[4] = {hn::BitCast(d8, hn::ConcatEven(d64, b01, a01)),
                       hn::BitCast(d8, hn::ConcatOdd(d64, b01, a01)),
                       hn::BitCast(d8, hn::ConcatEven(d64, b23, a23)),
                       hn::BitCast(d8, hn::ConcatOdd(d64, b23, a23))};
    for (int r = 0; r < rows; ++r) Put<kStream>(out[r], Row(dst + 8 * b, step, r));
  }
  if (kStream) hwy::FlushStream();
  if ((b + n) * 4 <= width) {
    hn::Vec<D64> r01, r23;
    Bc5Rows(hn::LoadU(d8, src + 16 * b), r01, r23);
    const V8 r02 = hn::BitCast(d8, hn::ConcatEven(d64, r23, r01));
    const V8 r13 = hn::BitCast(d8, hn::ConcatOdd(d64, r23, r01));
    const hn::Vec<hn::Half<D8>> half[4] = {hn::LowerHalf(dh, r02), hn::LowerHalf(dh, r13),
                                           hn::UpperHalf(dh, r02), hn::UpperHalf(dh, r13)};
    for (int r = 0; r < rows; ++r) hn::StoreU(half[r], dh, Row(dst + 8 * b, step, r));
    b += n;
  }
  BlocksRef<Bc5>(src, dst, step, width, rows, b);
}

}  // namespace rvt::bc_decode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_BC_DECODE_INL_H_
