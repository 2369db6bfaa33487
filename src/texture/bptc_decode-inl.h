// BC7 and BC6H block decoding: the vector rows of one target.  No checks
// here.  Each block's header (mode, partition, endpoints, p-bits) is read
// by code specialised per mode, its indices are cut from one 64-bit field
// with the anchors' implied zero bits inserted, and the 16 pixels are
// interpolated together: BC7 by byte shuffles of the endpoint and weight
// tables and one multiply-add of (e0, e1) byte pairs by (64 - w, w) per
// 8 pixel channels; BC6H in 32-bit lanes, 16 pixels of one channel at a
// time.  Tiles are stored whole or, at the region's edges, cut.
#if defined(RVT_TEXTURE_BPTC_DECODE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_BPTC_DECODE_INL_H_
#undef RVT_TEXTURE_BPTC_DECODE_INL_H_
#else
#define RVT_TEXTURE_BPTC_DECODE_INL_H_
#endif

#include <hwy/highway.h>

#include <utility>

#include "frame/raw_ops-inl.h"
#include "texture/bptc_decode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::bptc_decode::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

// ---- index fields

// The 64 bits of a block from bit s on (s < 128; bits past 127 are 0).
HWY_INLINE uint64_t Field64(uint64_t lo, uint64_t hi, int s) {
  if (s >= 64) return hi >> (s - 64);
  if (s == 0) return lo;
  return lo >> s | hi << (64 - s);
}
// A zero bit inserted at `pos` (an anchor's implied top index bit).
HWY_INLINE uint64_t InsertZero(uint64_t v, int pos) {
  const uint64_t low = (uint64_t(1) << pos) - 1;
  return (v & low) | (v & ~low) << 1;
}
// Sixteen `bits`-bit indices of a field to bytes.
template <int kBits>
HWY_INLINE void Unpack(uint64_t v, uint8_t* out) {
  for (int p = 0; p < 16; ++p) out[p] = uint8_t(v >> (kBits * p) & ((1u << kBits) - 1));
}

// ---- BC7

// Per-block tables: endpoint e0 and e1 of subset s, channel c at byte
// 4s + c; colour and alpha weight of every pixel; 4 * subset of every pixel.
struct Bc7Tables {
  alignas(16) uint8_t e0[16], e1[16], wc[16], wa[16];
  const uint8_t* sub4;
  int rotation;
};

// 4 * subset of every pixel of every partition; one subset: all 0.
struct SubsetTables {
  alignas(16) uint8_t two[64][16], three[64][16], one[16];
};
constexpr SubsetTables MakeSubsetTables() {
  SubsetTables t{};
  for (int k = 0; k < 64; ++k) {
    for (int p = 0; p < 16; ++p) {
      t.two[k][p] = uint8_t(4 * (kPartition2[k] >> (2 * p) & 3));
      t.three[k][p] = uint8_t(4 * (kPartition3[k] >> (2 * p) & 3));
    }
  }
  return t;
}
inline constexpr SubsetTables kSubsets = MakeSubsetTables();

template <int kMode>
HWY_INLINE void Bc7Parse(const uint8_t* blk, Bc7Tables& t) {
  constexpr Bc7Mode m = kBc7Modes[kMode];
  constexpr int kEnds = 2 * m.subsets;
  BitReader br(blk, kMode + 1);
  const int partition = int(br.Get(m.partition_bits));
  t.rotation = int(br.Get(m.rotation_bits));
  const int selection = int(br.Get(m.selection_bits));
  int ep[6][4];
  for (int c = 0; c < 3; ++c) {
    for (int e = 0; e < kEnds; ++e) ep[e][c] = int(br.Get(m.colour_bits));
  }
  for (int e = 0; e < kEnds; ++e) ep[e][3] = m.alpha_bits ? int(br.Get(m.alpha_bits)) : 255;
  int pbit[6] = {};
  if (m.endpoint_pbits) {
    for (int e = 0; e < kEnds; ++e) pbit[e] = int(br.Get(1));
  } else if (m.shared_pbits) {
    for (int s = 0; s < m.subsets; ++s) pbit[2 * s] = pbit[2 * s + 1] = int(br.Get(1));
  }
  constexpr bool kPbit = m.endpoint_pbits || m.shared_pbits;
  for (int e = 0; e < kEnds; ++e) {
    uint8_t* out = (e & 1 ? t.e1 : t.e0) + 4 * (e >> 1);
    for (int c = 0; c < 4; ++c) {
      const int bits0 = c < 3 ? m.colour_bits : m.alpha_bits;
      if (bits0 == 0) {
        out[c] = 255;
        continue;
      }
      const int bits = bits0 + kPbit;
      int v = kPbit ? ep[e][c] << 1 | pbit[e] : ep[e][c];
      v <<= 8 - bits;
      out[c] = uint8_t(v | v >> bits);
    }
  }
  uint64_t lo, hi;
  std::memcpy(&lo, blk, 8);
  std::memcpy(&hi, blk + 8, 8);
  constexpr int kIndexBits = 16 * m.index_bits - m.subsets;
  constexpr int kIndex2Bits = m.index2_bits ? 16 * m.index2_bits - 1 : 0;
  constexpr int kStart = 128 - kIndexBits - kIndex2Bits;
  uint64_t v = InsertZero(Field64(lo, hi, kStart), m.index_bits - 1);
  if (m.subsets == 2) {
    v = InsertZero(v, kAnchor2[partition] * m.index_bits + m.index_bits - 1);
  } else if (m.subsets == 3) {
    const int a = kAnchor3a[partition], b = kAnchor3b[partition];
    v = InsertZero(v, (a < b ? a : b) * m.index_bits + m.index_bits - 1);
    v = InsertZero(v, (a < b ? b : a) * m.index_bits + m.index_bits - 1);
  }
  alignas(16) uint8_t idx[16], idx2[16];
  Unpack<m.index_bits>(v, idx);
  const uint8_t* w1 = Weights(m.index_bits);
  if constexpr (m.index2_bits != 0) {
    Unpack<m.index2_bits>(InsertZero(Field64(lo, hi, kStart + kIndexBits), m.index2_bits - 1), idx2);
    const uint8_t* w2 = Weights(m.index2_bits);
    for (int p = 0; p < 16; ++p) {
      t.wc[p] = selection ? w2[idx2[p]] : w1[idx[p]];
      t.wa[p] = selection ? w1[idx[p]] : w2[idx2[p]];
    }
  } else {
    for (int p = 0; p < 16; ++p) t.wc[p] = t.wa[p] = w1[idx[p]];
  }
  t.sub4 = m.subsets == 1 ? kSubsets.one : m.subsets == 2 ? kSubsets.two[partition]
                                                          : kSubsets.three[partition];
}

constexpr uint8_t Z = 0x80;  // a shuffle index that gives zero
// Byte 16r + 4p + c of a tile: pixel 4r + p (all channels; colour only;
// alpha only), channel c.
struct TileSel {
  alignas(64) uint8_t pix[64], colour[64], alpha[64], chan[64];
};
constexpr TileSel MakeTileSel() {
  TileSel t{};
  for (int i = 0; i < 64; ++i) {
    const int pixel = i / 4, c = i % 4;
    t.pix[i] = uint8_t(pixel);
    t.colour[i] = c < 3 ? uint8_t(pixel) : Z;
    t.alpha[i] = c == 3 ? uint8_t(pixel) : Z;
    t.chan[i] = uint8_t(c);
  }
  return t;
}
inline constexpr TileSel kTileSel = MakeTileSel();
// Rotations 1..3: alpha swapped with red, green, blue.
alignas(16) inline constexpr uint8_t kRotate[4][16] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
    {3, 1, 2, 0, 7, 5, 6, 4, 11, 9, 10, 8, 15, 13, 14, 12},
    {0, 3, 2, 1, 4, 7, 6, 5, 8, 11, 10, 9, 12, 15, 14, 13},
    {0, 1, 3, 2, 4, 5, 7, 6, 8, 9, 11, 10, 12, 13, 15, 14}};

// The 4x4 RGBA tile (64 bytes) of the parsed block; a vector holds
// Lanes / 16 of its rows.
HWY_INLINE void Bc7Interpolate(const Bc7Tables& t, uint8_t* tile) {
  const hn::CappedTag<uint8_t, 64> d8;
  const hn::Repartition<int8_t, decltype(d8)> di8;
  const hn::Repartition<int16_t, decltype(d8)> d16;
  using V8 = hn::Vec<decltype(d8)>;
  const V8 e0 = hn::LoadDup128(d8, t.e0), e1 = hn::LoadDup128(d8, t.e1);
  const V8 wc = hn::LoadDup128(d8, t.wc), wa = hn::LoadDup128(d8, t.wa);
  const V8 sub4 = hn::LoadDup128(d8, t.sub4);
  const V8 rot = hn::LoadDup128(d8, kRotate[t.rotation]);
  const V8 k64 = hn::Set(d8, uint8_t(64));
  const auto k32 = hn::Set(d16, int16_t(32));
  for (size_t i = 0; i < 64; i += hn::Lanes(d8)) {
    const V8 sel = hn::Add(hn::TableLookupBytes(sub4, hn::Load(d8, kTileSel.pix + i)),
                           hn::Load(d8, kTileSel.chan + i));
    const V8 a = hn::TableLookupBytes(e0, sel), b = hn::TableLookupBytes(e1, sel);
    const V8 w = hn::Or(hn::TableLookupBytesOr0(wc, hn::Load(d8, kTileSel.colour + i)),
                        hn::TableLookupBytesOr0(wa, hn::Load(d8, kTileSel.alpha + i)));
    const V8 w0 = hn::Sub(k64, w);
    const auto lo = ops::MulAddPairs(d16, hn::InterleaveLower(d8, a, b),
                                     hn::BitCast(di8, hn::InterleaveLower(d8, w0, w)));
    const auto hi = ops::MulAddPairs(d16, hn::InterleaveUpper(d8, a, b),
                                     hn::BitCast(di8, hn::InterleaveUpper(d8, w0, w)));
    V8 px = ops::PackU8Blockwise(hn::ShiftRight<6>(hn::Add(lo, k32)),
                                 hn::ShiftRight<6>(hn::Add(hi, k32)));
    px = hn::TableLookupBytes(px, rot);
    hn::Store(px, d8, tile + i);
  }
}

HWY_INLINE void Bc7Tile(const uint8_t* blk, uint8_t* tile) {
  Bc7Tables t;
  switch (blk[0] & -blk[0]) {  // the lowest set bit: the mode
    case 1: Bc7Parse<0>(blk, t); break;
    case 2: Bc7Parse<1>(blk, t); break;
    case 4: Bc7Parse<2>(blk, t); break;
    case 8: Bc7Parse<3>(blk, t); break;
    case 16: Bc7Parse<4>(blk, t); break;
    case 32: Bc7Parse<5>(blk, t); break;
    case 64: Bc7Parse<6>(blk, t); break;
    case 128: Bc7Parse<7>(blk, t); break;
    default: std::memset(tile, 0, 64); return;
  }
  Bc7Interpolate(t, tile);
}

// ---- BC6H

// The endpoints of a block (unquantized; two per region), the weight and
// 4 * region of every pixel.
struct Bc6Tables {
  int32_t ep[4][3];
  alignas(16) uint8_t w[16];
  const uint8_t* sub4;
};

// Where run I of a mode's layout starts in the block.
template <int kValue>
constexpr int RunStart(size_t i) {
  int pos = bc6::kModes[kValue].header_bits;
  for (size_t r = 0; r < i; ++r) {
    const Run run = bc6::kModes[kValue].layout[r];
    pos += (run.from <= run.to ? run.to - run.from : run.from - run.to) + 1;
  }
  return pos;
}
// Run I read with its position and width known at compile time; a reversed
// run has its bits turned round.
template <int kValue, size_t I>
HWY_INLINE void ReadRun(uint64_t lo, uint64_t hi, int (&ep)[4][3]) {
  constexpr Run run = bc6::kModes[kValue].layout[I];
  constexpr bool kUp = run.from <= run.to;
  constexpr int kWidth = (kUp ? run.to - run.from : run.from - run.to) + 1;
  constexpr int kStart = RunStart<kValue>(I);
  uint32_t v = uint32_t(Field64(lo, hi, kStart)) & ((1u << kWidth) - 1);
  if constexpr (!kUp) {
    uint32_t r = 0;
    for (int b = 0; b < kWidth; ++b) r |= (v >> b & 1) << (kWidth - 1 - b);
    v = r;
  }
  ep[run.e][run.c] |= int(v) << (kUp ? run.from : run.to);
}
template <int kValue, size_t... I>
HWY_INLINE void ReadRuns(uint64_t lo, uint64_t hi, int (&ep)[4][3], std::index_sequence<I...>) {
  (ReadRun<kValue, I>(lo, hi, ep), ...);
}

template <int kValue, bool kSigned>
HWY_INLINE void Bc6Parse(const uint8_t* blk, Bc6Tables& t) {
  constexpr Bc6Mode m = bc6::kModes[kValue];
  constexpr int kEnds = 2 * m.regions, kBase = m.base_bits;
  uint64_t lo, hi;
  std::memcpy(&lo, blk, 8);
  std::memcpy(&hi, blk + 8, 8);
  int ep[4][3] = {};
  ReadRuns<kValue>(lo, hi, ep, std::make_index_sequence<m.runs>());
  const int partition = m.regions == 2 ? int(Field64(lo, hi, 77) & 31) : 0;
  for (int c = 0; c < 3; ++c) {
    if (kSigned) ep[0][c] = SignExtend(ep[0][c], kBase);
    for (int e = 1; e < kEnds; ++e) {
      int v = ep[e][c];
      if (m.transformed) {
        v = (ep[0][c] + SignExtend(v, m.delta_bits[c])) & ((1 << kBase) - 1);
        if (kSigned) v = SignExtend(v, kBase);
      } else if (kSigned) {
        v = SignExtend(v, kBase);
      }
      ep[e][c] = v;
    }
    for (int e = 0; e < kEnds; ++e) t.ep[e][c] = Unquantize(ep[e][c], kBase, kSigned);
  }
  alignas(16) uint8_t idx[16];
  if constexpr (m.regions == 2) {
    uint64_t v = InsertZero(Field64(lo, hi, 82), 2);
    v = InsertZero(v, 3 * kAnchor2[partition] + 2);
    Unpack<3>(v, idx);
    for (int p = 0; p < 16; ++p) t.w[p] = kWeights3[idx[p]];
    t.sub4 = kSubsets.two[partition];
  } else {
    Unpack<4>(InsertZero(Field64(lo, hi, 65), 3), idx);
    for (int p = 0; p < 16; ++p) t.w[p] = kWeights4[idx[p]];
    t.sub4 = kSubsets.one;
    for (int c = 0; c < 3; ++c) t.ep[2][c] = t.ep[0][c], t.ep[3][c] = t.ep[1][c];
  }
}

// The 4x4 RGB tile (48 half-float patterns) of the parsed block.
template <bool kSigned>
HWY_INLINE void Bc6Interpolate(const Bc6Tables& t, uint16_t* tile) {
  const hn::CappedTag<int32_t, 16> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const hn::Rebind<uint16_t, decltype(d32)> dh;
  const hn::CappedTag<uint16_t, 16> d16;
  const size_t n = hn::Lanes(d32);
  alignas(64) uint16_t planes[3][16];
  const auto k64 = hn::Set(d32, 64), k32 = hn::Set(d32, 32), k31 = hn::Set(d32, 31);
  for (size_t i = 0; i < 16; i += n) {
    const auto w = hn::PromoteTo(d32, hn::LoadU(d8, t.w + i));
    const auto second = hn::RebindMask(d32, hn::Ne(hn::PromoteTo(d32, hn::LoadU(d8, t.sub4 + i)),
                                                   hn::Zero(d32)));
    for (int c = 0; c < 3; ++c) {
      const auto a = hn::IfThenElse(second, hn::Set(d32, t.ep[2][c]), hn::Set(d32, t.ep[0][c]));
      const auto b = hn::IfThenElse(second, hn::Set(d32, t.ep[3][c]), hn::Set(d32, t.ep[1][c]));
      const auto v = hn::ShiftRight<6>(hn::Add(hn::Add(hn::Mul(hn::Sub(k64, w), a), hn::Mul(w, b)), k32));
      hn::Vec<decltype(d32)> out;
      if (kSigned) {
        // Magnitude * 31 / 32, the sign bit only on a nonzero magnitude.
        const auto mag = hn::ShiftRight<5>(hn::Mul(hn::Abs(v), k31));
        const auto neg = hn::And(hn::Lt(v, hn::Zero(d32)), hn::Ne(mag, hn::Zero(d32)));
        out = hn::IfThenElse(neg, hn::Or(mag, hn::Set(d32, 0x8000)), mag);
      } else {
        out = hn::ShiftRight<6>(hn::Mul(v, k31));
      }
      hn::StoreU(hn::DemoteTo(dh, out), dh, planes[c] + i);
    }
  }
  for (size_t i = 0; i < 16; i += hn::Lanes(d16)) {
    hn::StoreInterleaved3(hn::Load(d16, planes[0] + i), hn::Load(d16, planes[1] + i),
                          hn::Load(d16, planes[2] + i), d16, tile + 3 * i);
  }
}

template <bool kSigned>
HWY_INLINE void Bc6Tile(const uint8_t* blk, uint8_t* tile_bytes) {
  Bc6Tables t;
  const int low = blk[0] & 3;
  switch (low < 2 ? low : blk[0] & 31) {
    case 0x00: Bc6Parse<0x00, kSigned>(blk, t); break;
    case 0x01: Bc6Parse<0x01, kSigned>(blk, t); break;
    case 0x02: Bc6Parse<0x02, kSigned>(blk, t); break;
    case 0x06: Bc6Parse<0x06, kSigned>(blk, t); break;
    case 0x0A: Bc6Parse<0x0A, kSigned>(blk, t); break;
    case 0x0E: Bc6Parse<0x0E, kSigned>(blk, t); break;
    case 0x12: Bc6Parse<0x12, kSigned>(blk, t); break;
    case 0x16: Bc6Parse<0x16, kSigned>(blk, t); break;
    case 0x1A: Bc6Parse<0x1A, kSigned>(blk, t); break;
    case 0x1E: Bc6Parse<0x1E, kSigned>(blk, t); break;
    case 0x03: Bc6Parse<0x03, kSigned>(blk, t); break;
    case 0x07: Bc6Parse<0x07, kSigned>(blk, t); break;
    case 0x0B: Bc6Parse<0x0B, kSigned>(blk, t); break;
    case 0x0F: Bc6Parse<0x0F, kSigned>(blk, t); break;
    default: std::memset(tile_bytes, 0, 96); return;  // reserved
  }
  Bc6Interpolate<kSigned>(t, reinterpret_cast<uint16_t*>(tile_bytes));
}

// ---- rows

// Every block of one block row decoded to a tile and its inside part
// stored.
template <class F, void (*kTile)(const uint8_t*, uint8_t*)>
void TileRow(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  alignas(64) uint8_t tile[16 * F::kPixel];
  constexpr size_t kRowBytes = 4 * F::kPixel;
  for (int64_t x = 0; x < width; x += 4) {
    kTile(src + x / 4 * F::kBlock, tile);
    uint8_t* out = dst + x * F::kPixel;
    if (width - x >= 4) {
      for (int r = 0; r < rows; ++r) std::memcpy(out + ptrdiff_t(r) * step, tile + kRowBytes * r, kRowBytes);
    } else {
      const size_t n = size_t(width - x) * F::kPixel;
      for (int r = 0; r < rows; ++r) std::memcpy(out + ptrdiff_t(r) * step, tile + kRowBytes * r, n);
    }
  }
}

}  // namespace rvt::bptc_decode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_BPTC_DECODE_INL_H_
