// Decoding of BC7 (RGBA, 8-bit) and BC6H (RGB half-float, unsigned and
// signed) texture blocks over whole regions: the scalar reference of both
// formats, table-driven, and the entries that run it through the region
// walk and the checks of the BC1 to BC5 decoders.
#ifndef RVT_TEXTURE_BPTC_DECODE_H_
#define RVT_TEXTURE_BPTC_DECODE_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "texture/bc_decode.h"

namespace rvt::bptc_decode {

// ------------------------------------------------------------ shared tables

// Subset of every pixel (row order) of the 64 two-subset and the 64
// three-subset partitions; BC6H uses the first 32 two-subset ones.  Two
// bits per pixel, pixel p at bits 2p.
inline constexpr uint32_t Pack(const char (&s)[17]) {
  uint32_t v = 0;
  for (int p = 0; p < 16; ++p) v |= uint32_t(s[p] - '0') << (2 * p);
  return v;
}
inline constexpr uint32_t kPartition2[64] = {
    Pack("0011001100110011"), Pack("0001000100010001"), Pack("0111011101110111"),
    Pack("0001001100110111"), Pack("0000000100010011"), Pack("0011011101111111"),
    Pack("0001001101111111"), Pack("0000000100110111"), Pack("0000000000010011"),
    Pack("0011011111111111"), Pack("0000000101111111"), Pack("0000000000010111"),
    Pack("0001011111111111"), Pack("0000000011111111"), Pack("0000111111111111"),
    Pack("0000000000001111"), Pack("0000100011101111"), Pack("0111000100000000"),
    Pack("0000000010001110"), Pack("0111001100010000"), Pack("0011000100000000"),
    Pack("0000100011001110"), Pack("0000000010001100"), Pack("0111001100110001"),
    Pack("0011000100010000"), Pack("0000100010001100"), Pack("0110011001100110"),
    Pack("0011011001101100"), Pack("0001011111101000"), Pack("0000111111110000"),
    Pack("0111000110001110"), Pack("0011100110011100"), Pack("0101010101010101"),
    Pack("0000111100001111"), Pack("0101101001011010"), Pack("0011001111001100"),
    Pack("0011110000111100"), Pack("0101010110101010"), Pack("0110100101101001"),
    Pack("0101101010100101"), Pack("0111001111001110"), Pack("0001001111001000"),
    Pack("0011001001001100"), Pack("0011101111011100"), Pack("0110100110010110"),
    Pack("0011110011000011"), Pack("0110011010011001"), Pack("0000011001100000"),
    Pack("0100111001000000"), Pack("0010011100100000"), Pack("0000001001110010"),
    Pack("0000010011100100"), Pack("0110110010010011"), Pack("0011011011001001"),
    Pack("0110001110011100"), Pack("0011100111000110"), Pack("0110110011001001"),
    Pack("0110001100111001"), Pack("0111111010000001"), Pack("0001100011100111"),
    Pack("0000111100110011"), Pack("0011001111110000"), Pack("0010001011101110"),
    Pack("0100010001110111")};
inline constexpr uint32_t kPartition3[64] = {
    Pack("0011001102212222"), Pack("0001001122112221"), Pack("0000200122112211"),
    Pack("0222002200110111"), Pack("0000000011221122"), Pack("0011001100220022"),
    Pack("0022002211111111"), Pack("0011001122112211"), Pack("0000000011112222"),
    Pack("0000111111112222"), Pack("0000111122222222"), Pack("0012001200120012"),
    Pack("0112011201120112"), Pack("0122012201220122"), Pack("0011011211221222"),
    Pack("0011200122002220"), Pack("0001001101121122"), Pack("0111001120012200"),
    Pack("0000112211221122"), Pack("0022002200221111"), Pack("0111011102220222"),
    Pack("0001000122212221"), Pack("0000001101220122"), Pack("0000110022102210"),
    Pack("0122012200110000"), Pack("0012001211222222"), Pack("0110122112210110"),
    Pack("0000011012211221"), Pack("0022110211020022"), Pack("0110011020022222"),
    Pack("0011012201220011"), Pack("0000200022112221"), Pack("0000000211221222"),
    Pack("0222002200120011"), Pack("0011001200220222"), Pack("0120012001200120"),
    Pack("0000111122220000"), Pack("0120120120120120"), Pack("0120201212010120"),
    Pack("0011220011220011"), Pack("0011112222000011"), Pack("0101010122222222"),
    Pack("0000000021212121"), Pack("0022112200221122"), Pack("0022001100220011"),
    Pack("0220122102201221"), Pack("0101222222220101"), Pack("0000212121212121"),
    Pack("0101010101012222"), Pack("0222011102220111"), Pack("0002111200021112"),
    Pack("0000211221122112"), Pack("0222011101110222"), Pack("0002111211120002"),
    Pack("0110011001102222"), Pack("0000000021122112"), Pack("0110011022222222"),
    Pack("0022001100110022"), Pack("0022112211220022"), Pack("0000000000002112"),
    Pack("0002000100020001"), Pack("0222122202221222"), Pack("0101222222222222"),
    Pack("0111201122012220")};
// The anchor pixel of subset 1 (two subsets), and of subsets 1 and 2
// (three subsets); pixel 0 anchors subset 0.  An anchor's index has its top
// bit implied 0.
inline constexpr uint8_t kAnchor2[64] = {
    15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 2,  8,  2,  2, 8,
    8,  15, 2,  8,  2,  2,  8,  8,  2,  2,  15, 15, 6,  8,  2,  8,  15, 15, 2,  8,  2, 2,
    2,  15, 15, 6,  6,  2,  6,  8,  15, 15, 2,  2,  15, 15, 15, 15, 15, 2,  2,  15};
inline constexpr uint8_t kAnchor3a[64] = {
    3, 3,  15, 15, 8, 3,  15, 15, 8,  8, 6,  6,  6, 5,  3,  3, 3,  3,  8,  15, 3, 3,
    6, 10, 5,  8,  8, 6,  8,  5,  15, 15, 8, 15, 3, 5,  6,  10, 8, 15, 15, 3,  15, 5,
    15, 15, 15, 15, 3, 15, 5,  5,  5,  8, 5,  10, 5, 10, 8,  13, 15, 12, 3,  3};
inline constexpr uint8_t kAnchor3b[64] = {
    15, 8, 8,  3,  15, 15, 3,  8,  15, 15, 15, 15, 15, 15, 15, 8,  15, 8,  15, 3,  15, 8,
    15, 8, 3,  15, 6,  10, 15, 15, 10, 8,  15, 3,  15, 10, 10, 8,  9,  10, 6,  15, 8,  15,
    3,  6, 6,  8,  15, 3,  15, 15, 15, 15, 15, 15, 15, 15, 15, 15, 3,  15, 15, 8};

// Interpolation weights (of 64) for 2-, 3- and 4-bit indices:
// ((64 - w) * e0 + w * e1 + 32) >> 6.
inline constexpr uint8_t kWeights2[4] = {0, 21, 43, 64};
inline constexpr uint8_t kWeights3[8] = {0, 9, 18, 27, 37, 46, 55, 64};
inline constexpr uint8_t kWeights4[16] = {0, 4, 9, 13, 17, 21, 26, 30, 34, 38, 43, 47, 51, 55, 60, 64};
inline const uint8_t* Weights(int bits) {
  return bits == 2 ? kWeights2 : bits == 3 ? kWeights3 : kWeights4;
}

// The 128 bits of a block, read least significant first.  Fields may
// straddle bit 64.
struct BitReader {
  uint64_t lo, hi;
  int pos;
  explicit BitReader(const uint8_t* blk, int start = 0) : pos(start) {
    std::memcpy(&lo, blk, 8);
    std::memcpy(&hi, blk + 8, 8);
  }
  uint32_t Get(int n) {  // n <= 32
    uint64_t v;
    if (pos >= 64) {
      v = hi >> (pos - 64);
    } else if (pos + n <= 64) {
      v = lo >> pos;
    } else {
      v = lo >> pos | hi << (64 - pos);
    }
    pos += n;
    return uint32_t(v & ((uint64_t(1) << n) - 1));
  }
};

// ------------------------------------------------------------ BC7

struct Bc7Mode {
  uint8_t subsets, partition_bits, rotation_bits, selection_bits, colour_bits, alpha_bits,
      endpoint_pbits, shared_pbits, index_bits, index2_bits;
};
inline constexpr Bc7Mode kBc7Modes[8] = {
    {3, 4, 0, 0, 4, 0, 1, 0, 3, 0}, {2, 6, 0, 0, 6, 0, 0, 1, 3, 0},
    {3, 6, 0, 0, 5, 0, 0, 0, 2, 0}, {2, 6, 0, 0, 7, 0, 1, 0, 2, 0},
    {1, 0, 2, 1, 5, 6, 0, 0, 2, 3}, {1, 0, 2, 0, 7, 8, 0, 0, 2, 2},
    {1, 0, 0, 0, 7, 7, 1, 0, 4, 0}, {2, 6, 0, 0, 5, 5, 1, 0, 2, 0}};

// Subset of pixel p and whether p is an anchor (one index bit fewer).
inline int SubsetOf(int subsets, int partition, int p) {
  if (subsets == 1) return 0;
  const uint32_t t = subsets == 2 ? kPartition2[partition] : kPartition3[partition];
  return int(t >> (2 * p) & 3);
}
inline bool IsAnchor(int subsets, int partition, int p) {
  if (p == 0) return true;
  if (subsets == 2) return p == kAnchor2[partition];
  if (subsets == 3) return p == kAnchor3a[partition] || p == kAnchor3b[partition];
  return false;
}

// One BC7 block to 16 RGBA pixels, row order.  Byte 0 == 0 (no mode bit
// set) is the reserved mode: transparent black.
inline void Bc7Block(const uint8_t* blk, uint8_t* out) {
  if (blk[0] == 0) {
    std::memset(out, 0, 64);
    return;
  }
  const int mode = __builtin_ctz(blk[0]);
  const Bc7Mode& m = kBc7Modes[mode];
  BitReader br(blk, mode + 1);
  const int partition = int(br.Get(m.partition_bits));
  const int rotation = int(br.Get(m.rotation_bits));
  const int selection = int(br.Get(m.selection_bits));
  const int ends = 2 * m.subsets;
  int ep[6][4];
  for (int c = 0; c < 3; ++c) {
    for (int e = 0; e < ends; ++e) ep[e][c] = int(br.Get(m.colour_bits));
  }
  for (int e = 0; e < ends; ++e) ep[e][3] = m.alpha_bits ? int(br.Get(m.alpha_bits)) : 255;
  int pbit[6] = {};
  if (m.endpoint_pbits) {
    for (int e = 0; e < ends; ++e) pbit[e] = int(br.Get(1));
  } else if (m.shared_pbits) {
    for (int s = 0; s < m.subsets; ++s) pbit[2 * s] = pbit[2 * s + 1] = int(br.Get(1));
  }
  const bool has_pbit = m.endpoint_pbits || m.shared_pbits;
  for (int e = 0; e < ends; ++e) {
    for (int c = 0; c < 4; ++c) {
      int bits = c < 3 ? m.colour_bits : m.alpha_bits;
      if (bits == 0) continue;  // alpha 255
      int v = ep[e][c];
      if (has_pbit) v = v << 1 | pbit[e], ++bits;
      v <<= 8 - bits;
      ep[e][c] = v | v >> bits;
    }
  }
  int idx[16], idx2[16] = {};
  for (int p = 0; p < 16; ++p) {
    idx[p] = int(br.Get(m.index_bits - IsAnchor(m.subsets, partition, p)));
  }
  if (m.index2_bits) {
    for (int p = 0; p < 16; ++p) idx2[p] = int(br.Get(m.index2_bits - (p == 0)));
  }
  // Mode 4's selection bit swaps which index set serves colour and alpha.
  const int* ci = selection ? idx2 : idx;
  const int* ai = m.index2_bits && !selection ? idx2 : idx;
  const uint8_t* cw = Weights(selection ? m.index2_bits : m.index_bits);
  const uint8_t* aw = Weights(m.index2_bits && !selection ? m.index2_bits : m.index_bits);
  for (int p = 0; p < 16; ++p) {
    const int s = SubsetOf(m.subsets, partition, p);
    const int* e0 = ep[2 * s];
    const int* e1 = ep[2 * s + 1];
    uint8_t px[4];
    for (int c = 0; c < 4; ++c) {
      const int w = c < 3 ? cw[ci[p]] : aw[ai[p]];
      px[c] = uint8_t(((64 - w) * e0[c] + w * e1[c] + 32) >> 6);
    }
    if (rotation) std::swap(px[3], px[rotation - 1]);
    std::memcpy(out + 4 * p, px, 4);
  }
}

// ------------------------------------------------------------ BC6H

// One run of a mode's field layout: bits `from` to `to` of channel `c` of
// endpoint `e` (0 = w, the base; 1..3 = x, y, z), in stream order; from >
// to runs downwards (the reversed high bits of the 12- and 16-bit modes).
struct Run {
  uint8_t e, c, from, to;
};
struct Bc6Mode {
  uint8_t regions, transformed, base_bits, delta_bits[3], header_bits, runs;
  Run layout[30];
};
namespace bc6 {
enum : uint8_t { W = 0, X = 1, Y = 2, Z = 3, R = 0, G = 1, B = 2 };
// Modes in order of their 5-bit value (the 2-bit modes 0 and 1 repeat at
// every value with those low bits); regions 0 marks a reserved value.
constexpr Bc6Mode MakeMode(int regions, bool transformed, int base, int dr, int dg,
                                     int db, int header, std::initializer_list<Run> runs) {
  Bc6Mode m{uint8_t(regions), transformed, uint8_t(base), {uint8_t(dr), uint8_t(dg), uint8_t(db)},
            uint8_t(header), uint8_t(runs.size()), {}};
  int i = 0;
  for (const Run& r : runs) m.layout[i++] = r;
  return m;
}
inline constexpr Bc6Mode kMode0 = MakeMode(
    2, true, 10, 5, 5, 5, 2,
    {{Y, G, 4, 4}, {Y, B, 4, 4}, {Z, B, 4, 4}, {W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9},
     {X, R, 0, 4}, {Z, G, 4, 4}, {Y, G, 0, 3}, {X, G, 0, 4}, {Z, B, 0, 0}, {Z, G, 0, 3},
     {X, B, 0, 4}, {Z, B, 1, 1}, {Y, B, 0, 3}, {Y, R, 0, 4}, {Z, B, 2, 2}, {Z, R, 0, 4},
     {Z, B, 3, 3}});
inline constexpr Bc6Mode kMode1 = MakeMode(
    2, true, 7, 6, 6, 6, 2,
    {{Y, G, 5, 5}, {Z, G, 4, 4}, {Z, G, 5, 5}, {W, R, 0, 6}, {Z, B, 0, 0}, {Z, B, 1, 1},
     {Y, B, 4, 4}, {W, G, 0, 6}, {Y, B, 5, 5}, {Z, B, 2, 2}, {Y, G, 4, 4}, {W, B, 0, 6},
     {Z, B, 3, 3}, {Z, B, 5, 5}, {Z, B, 4, 4}, {X, R, 0, 5}, {Y, G, 0, 3}, {X, G, 0, 5},
     {Z, G, 0, 3}, {X, B, 0, 5}, {Y, B, 0, 3}, {Y, R, 0, 5}, {Z, R, 0, 5}});
inline constexpr Bc6Mode kModes[32] = {
    kMode0,
    kMode1,
    MakeMode(2, true, 11, 5, 4, 4, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 4}, {W, R, 10, 10},
                 {Y, G, 0, 3}, {X, G, 0, 3}, {W, G, 10, 10}, {Z, B, 0, 0}, {Z, G, 0, 3},
                 {X, B, 0, 3}, {W, B, 10, 10}, {Z, B, 1, 1}, {Y, B, 0, 3}, {Y, R, 0, 4},
                 {Z, B, 2, 2}, {Z, R, 0, 4}, {Z, B, 3, 3}}),
    MakeMode(1, false, 10, 10, 10, 10, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 9}, {X, G, 0, 9},
                 {X, B, 0, 9}}),
    kMode0,
    kMode1,
    MakeMode(2, true, 11, 4, 5, 4, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 3}, {W, R, 10, 10},
                 {Z, G, 4, 4}, {Y, G, 0, 3}, {X, G, 0, 4}, {W, G, 10, 10}, {Z, G, 0, 3},
                 {X, B, 0, 3}, {W, B, 10, 10}, {Z, B, 1, 1}, {Y, B, 0, 3}, {Y, R, 0, 3},
                 {Z, B, 0, 0}, {Z, B, 2, 2}, {Z, R, 0, 3}, {Y, G, 4, 4}, {Z, B, 3, 3}}),
    MakeMode(1, true, 11, 9, 9, 9, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 8}, {W, R, 10, 10},
                 {X, G, 0, 8}, {W, G, 10, 10}, {X, B, 0, 8}, {W, B, 10, 10}}),
    kMode0,
    kMode1,
    MakeMode(2, true, 11, 4, 4, 5, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 3}, {W, R, 10, 10},
                 {Y, B, 4, 4}, {Y, G, 0, 3}, {X, G, 0, 3}, {W, G, 10, 10}, {Z, B, 0, 0},
                 {Z, G, 0, 3}, {X, B, 0, 4}, {W, B, 10, 10}, {Y, B, 0, 3}, {Y, R, 0, 3},
                 {Z, B, 1, 1}, {Z, B, 2, 2}, {Z, R, 0, 3}, {Z, B, 4, 4}, {Z, B, 3, 3}}),
    MakeMode(1, true, 12, 8, 8, 8, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 7}, {W, R, 11, 10},
                 {X, G, 0, 7}, {W, G, 11, 10}, {X, B, 0, 7}, {W, B, 11, 10}}),
    kMode0,
    kMode1,
    MakeMode(2, true, 9, 5, 5, 5, 5,
                {{W, R, 0, 8}, {Y, B, 4, 4}, {W, G, 0, 8}, {Y, G, 4, 4}, {W, B, 0, 8},
                 {Z, B, 4, 4}, {X, R, 0, 4}, {Z, G, 4, 4}, {Y, G, 0, 3}, {X, G, 0, 4},
                 {Z, B, 0, 0}, {Z, G, 0, 3}, {X, B, 0, 4}, {Z, B, 1, 1}, {Y, B, 0, 3},
                 {Y, R, 0, 4}, {Z, B, 2, 2}, {Z, R, 0, 4}, {Z, B, 3, 3}}),
    MakeMode(1, true, 16, 4, 4, 4, 5,
                {{W, R, 0, 9}, {W, G, 0, 9}, {W, B, 0, 9}, {X, R, 0, 3}, {W, R, 15, 10},
                 {X, G, 0, 3}, {W, G, 15, 10}, {X, B, 0, 3}, {W, B, 15, 10}}),
    kMode0,
    kMode1,
    MakeMode(2, true, 8, 6, 5, 5, 5,
                {{W, R, 0, 7}, {Z, G, 4, 4}, {Y, B, 4, 4}, {W, G, 0, 7}, {Z, B, 2, 2},
                 {Y, G, 4, 4}, {W, B, 0, 7}, {Z, B, 3, 3}, {Z, B, 4, 4}, {X, R, 0, 5},
                 {Y, G, 0, 3}, {X, G, 0, 4}, {Z, B, 0, 0}, {Z, G, 0, 3}, {X, B, 0, 4},
                 {Z, B, 1, 1}, {Y, B, 0, 3}, {Y, R, 0, 5}, {Z, R, 0, 5}}),
    Bc6Mode{},  // 0x13 reserved
    kMode0,
    kMode1,
    MakeMode(2, true, 8, 5, 6, 5, 5,
                {{W, R, 0, 7}, {Z, B, 0, 0}, {Y, B, 4, 4}, {W, G, 0, 7}, {Y, G, 5, 5},
                 {Y, G, 4, 4}, {W, B, 0, 7}, {Z, G, 5, 5}, {Z, B, 4, 4}, {X, R, 0, 4},
                 {Z, G, 4, 4}, {Y, G, 0, 3}, {X, G, 0, 5}, {Z, G, 0, 3}, {X, B, 0, 4},
                 {Z, B, 1, 1}, {Y, B, 0, 3}, {Y, R, 0, 4}, {Z, B, 2, 2}, {Z, R, 0, 4},
                 {Z, B, 3, 3}}),
    Bc6Mode{},  // 0x17 reserved
    kMode0,
    kMode1,
    MakeMode(2, true, 8, 5, 5, 6, 5,
                {{W, R, 0, 7}, {Z, B, 1, 1}, {Y, B, 4, 4}, {W, G, 0, 7}, {Y, B, 5, 5},
                 {Y, G, 4, 4}, {W, B, 0, 7}, {Z, B, 5, 5}, {Z, B, 4, 4}, {X, R, 0, 4},
                 {Z, G, 4, 4}, {Y, G, 0, 3}, {X, G, 0, 4}, {Z, B, 0, 0}, {Z, G, 0, 3},
                 {X, B, 0, 5}, {Y, B, 0, 3}, {Y, R, 0, 4}, {Z, B, 2, 2}, {Z, R, 0, 4},
                 {Z, B, 3, 3}}),
    Bc6Mode{},  // 0x1b reserved
    kMode0,
    kMode1,
    MakeMode(2, false, 6, 6, 6, 6, 5,
                {{W, R, 0, 5}, {Z, G, 4, 4}, {Z, B, 0, 0}, {Z, B, 1, 1}, {Y, B, 4, 4},
                 {W, G, 0, 5}, {Y, G, 5, 5}, {Y, B, 5, 5}, {Z, B, 2, 2}, {Y, G, 4, 4},
                 {W, B, 0, 5}, {Z, G, 5, 5}, {Z, B, 3, 3}, {Z, B, 5, 5}, {Z, B, 4, 4},
                 {X, R, 0, 5}, {Y, G, 0, 3}, {X, G, 0, 5}, {Z, G, 0, 3}, {X, B, 0, 5},
                 {Y, B, 0, 3}, {Y, R, 0, 5}, {Z, R, 0, 5}}),
    Bc6Mode{},  // 0x1f reserved
};
}  // namespace bc6

inline int SignExtend(int v, int bits) { return int(uint32_t(v) << (32 - bits)) >> (32 - bits); }

// An endpoint of `bits` bits to the 16-bit range: unsigned to 0..0xFFFF,
// signed to -0x7FFF..0x7FFF, the extremes exact.
inline int Unquantize(int v, int bits, bool is_signed) {
  if (!is_signed) {
    if (bits >= 15 || v == 0) return v;
    if (v == (1 << bits) - 1) return 0xFFFF;
    return ((v << 16) + 0x8000) >> bits;
  }
  if (bits >= 16) return v;
  const bool neg = v < 0;
  const int a = neg ? -v : v;
  int u;
  if (a == 0) {
    u = 0;
  } else if (a >= (1 << (bits - 1)) - 1) {
    u = 0x7FFF;
  } else {
    u = ((a << 15) + 0x4000) >> (bits - 1);
  }
  return neg ? -u : u;
}

// An interpolated value to its half-float bit pattern: scaled by 31/64
// (unsigned, at most 0x7BFF) or 31/32 of the magnitude with the sign bit
// (signed).  A signed value whose magnitude scales to 0 gives +0 (0x0000):
// the sign of zero is never negative.
inline uint16_t Finish(int v, bool is_signed) {
  if (!is_signed) return uint16_t(v * 31 >> 6);
  if (v < 0) {
    const int m = (-v * 31) >> 5;
    return uint16_t(m ? 0x8000 | m : 0);
  }
  return uint16_t(v * 31 >> 5);
}

// One BC6H block to 16 RGB pixels (half-float bit patterns), row order.
// Reserved mode values give black (all zero).
template <bool kSigned>
void Bc6Block(const uint8_t* blk, uint16_t* out) {
  const int low = blk[0] & 3;
  const int value = low < 2 ? low : blk[0] & 31;
  const Bc6Mode& m = bc6::kModes[value];
  if (m.regions == 0) {
    std::memset(out, 0, 96);
    return;
  }
  BitReader br(blk, m.header_bits);
  int ep[4][3] = {};
  for (int r = 0; r < m.runs; ++r) {
    const Run& run = m.layout[r];
    if (run.from <= run.to) {
      ep[run.e][run.c] |= int(br.Get(run.to - run.from + 1)) << run.from;
    } else {
      for (int b = run.from; b >= run.to; --b) ep[run.e][run.c] |= int(br.Get(1)) << b;
    }
  }
  const int ends = 2 * m.regions;
  const int partition = m.regions == 2 ? int(br.Get(5)) : 0;
  const int base = m.base_bits;
  for (int c = 0; c < 3; ++c) {
    if (kSigned) ep[0][c] = SignExtend(ep[0][c], base);
    for (int e = 1; e < ends; ++e) {
      int v = ep[e][c];
      if (m.transformed) {
        v = (ep[0][c] + SignExtend(v, m.delta_bits[c])) & ((1 << base) - 1);
        if (kSigned) v = SignExtend(v, base);
      } else if (kSigned) {
        v = SignExtend(v, base);
      }
      ep[e][c] = v;
    }
    for (int e = 0; e < ends; ++e) ep[e][c] = Unquantize(ep[e][c], base, kSigned);
  }
  const int index_bits = m.regions == 2 ? 3 : 4;
  const uint8_t* w = Weights(index_bits);
  for (int p = 0; p < 16; ++p) {
    const bool anchor = p == 0 || (m.regions == 2 && p == kAnchor2[partition]);
    const int wt = w[br.Get(index_bits - anchor)];
    const int s = m.regions == 2 ? SubsetOf(2, partition, p) : 0;
    for (int c = 0; c < 3; ++c) {
      const int v = ((64 - wt) * ep[2 * s][c] + wt * ep[2 * s + 1][c] + 32) >> 6;
      out[3 * p + c] = Finish(v, kSigned);
    }
  }
}

// ------------------------------------------------------------ entries

// The block formats for the region walk of the BC1 to BC5 decoders.
struct Bc7 {
  static constexpr int kBlock = 16, kPixel = 4;
  static void Tile(const uint8_t* blk, uint8_t* tile) { Bc7Block(blk, tile); }
};
template <bool kSigned>
struct Bc6 {
  static constexpr int kBlock = 16, kPixel = 6;
  static void Tile(const uint8_t* blk, uint8_t* tile) {
    uint16_t px[48];
    Bc6Block<kSigned>(blk, px);
    std::memcpy(tile, px, sizeof px);
  }
};

inline RvtResult Bc7Ref(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<Bc7, bc_decode::RowRef<Bc7>>(s, d, step, roi);
}
inline RvtResult Bc6uRef(const uint8_t* s, uint16_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<Bc6<false>, bc_decode::RowRef<Bc6<false>>>(
      s, reinterpret_cast<uint8_t*>(d), step, roi);
}
inline RvtResult Bc6sRef(const uint8_t* s, int16_t* d, int32_t step, ImageSize roi) {
  return bc_decode::Region<Bc6<true>, bc_decode::RowRef<Bc6<true>>>(
      s, reinterpret_cast<uint8_t*>(d), step, roi);
}

}  // namespace rvt::bptc_decode

#endif  // RVT_TEXTURE_BPTC_DECODE_H_
