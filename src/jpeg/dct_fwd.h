// Forward 8x8 DCT fused with quantization.
//
// 8-bit sample paths: a 16-bit fixed-point column pass (saturating adds,
// Q16 tangent multipliers, a "| 1" rounding bias on some outputs), a row
// pass of 32-bit dot products against one table per coefficient row, and
// a quantizer that multiplies by the full reciprocal R = round(32768 / q)
// and rounds the quotient by 32768 half to even.
//
// 16-bit sample path (12-bit JPEG): single-precision separable DCT, rows
// then columns, each 1-D pass a butterfly graph whose outputs carry a
// per-frequency gain; a post-scale table removes it, then the caller's
// float multipliers quantize.
//
// The scalar kernels here define every result; the argument checks and the
// drivers live here too, so every target shares them.
#ifndef RVT_JPEG_DCT_FWD_H_
#define RVT_JPEG_DCT_FWD_H_

#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "frame/threading.h"
#include "jpeg/dct_tables.h"
#include "rvtjp.h"

namespace rvt::dct_fwd {

// ------------------------------------------------------------ tables

// Row-pass multipliers arranged for pairwise 16x16->32 multiply-adds: for
// output half h (frequencies 4h..4h+3) and input pair g (k = 2g, 2g+1),
// lane 2j+e of row v holds W_v[4h + j][2g + e].  Rows of one kind are
// contiguous so a vector of several rows loads their tables at once.
struct PairTables {
  alignas(64) int16_t t[2][2][8][8];  // [h][g][v][2j+e]
};
constexpr PairTables MakePairTables() {
  PairTables p{};
  for (int h = 0; h < 2; ++h)
    for (int g = 0; g < 2; ++g)
      for (int v = 0; v < 8; ++v)
        for (int j = 0; j < 4; ++j)
          for (int e = 0; e < 2; ++e)
            p.t[h][g][v][2 * j + e] = dct::kRowTables.w[v][4 * h + j][2 * g + e];
  return p;
}
alignas(64) inline constexpr PairTables kPairTables = MakePairTables();

// Gains of the float butterfly graph, undone by kPostScale[v * 8 + u] =
// g[v] * g[u]: 1/(4 cos(u pi/16)) for even u (1/(2 sqrt 2) for u = 0),
// cos(pi/8) / (4 cos(u pi/16)) for odd u.
constexpr double kFloatGain[8] = {
    0.35355339059327373, 0.23549485064953565, 0.27059805007309851, 0.27778511650980109,
    0.35355339059327373, 0.41573480615127256, 0.65328148243818818, 1.1839125628626885,
};
struct PostScale {
  alignas(64) float s[64];
};
constexpr PostScale MakePostScale() {
  PostScale p{};
  for (int i = 0; i < 64; ++i) p.s[i] = float(kFloatGain[i / 8] * kFloatGain[i % 8]);
  return p;
}
alignas(64) inline constexpr PostScale kPostScale = MakePostScale();

// ------------------------------------------------------------ reference

inline int16_t Sat16(int32_t v) { return int16_t(v < -32768 ? -32768 : (v > 32767 ? 32767 : v)); }
inline int16_t AddS(int16_t a, int16_t b) { return Sat16(int32_t(a) + b); }
inline int16_t SubS(int16_t a, int16_t b) { return Sat16(int32_t(a) - b); }
inline int16_t Shl(int16_t a, int n) { return int16_t(uint16_t(uint16_t(a) << n)); }
inline int16_t MulHi(int16_t a, int16_t k) { return int16_t((int32_t(a) * k) >> 16); }
inline int16_t Odd(int16_t a) { return int16_t(a | 1); }

// Column pass on one column (x[0..7] top to bottom), in place.
inline void ColumnRef(int16_t* x) {
  using namespace dct;
  const int16_t t0 = AddS(x[0], x[7]), t1 = AddS(x[1], x[6]);
  const int16_t t2 = AddS(x[2], x[5]), t3 = AddS(x[3], x[4]);
  const int16_t d0 = SubS(x[0], x[7]), d1 = SubS(x[1], x[6]);
  const int16_t d2 = SubS(x[2], x[5]), d3 = SubS(x[3], x[4]);

  const int16_t e = Shl(AddS(t0, t3), 3), c = Shl(SubS(t0, t3), 3);
  const int16_t b = AddS(Shl(t1, 3), Shl(t2, 3)), a = SubS(Shl(t1, 3), Shl(t2, 3));
  x[0] = AddS(e, b);
  x[4] = SubS(e, b);
  x[2] = Odd(AddS(c, MulHi(a, kT2)));
  x[6] = Odd(SubS(MulHi(c, kT2), a));

  const int16_t p = Odd(MulHi(AddS(Shl(d1, 4), Shl(d2, 4)), kC4));
  const int16_t q = MulHi(SubS(Shl(d1, 4), Shl(d2, 4)), kC4);
  const int16_t s = AddS(Shl(d3, 3), q), r = SubS(Shl(d3, 3), q);
  const int16_t w = AddS(Shl(d0, 3), p), u = SubS(Shl(d0, 3), p);
  x[1] = Odd(AddS(w, MulHi(s, kT1)));
  x[7] = SubS(MulHi(w, kT1), s);
  x[3] = SubS(u, AddS(r, MulHi(r, kT3m)));
  x[5] = AddS(r, AddS(u, MulHi(u, kT3m)));
}

// Row pass on coefficient row v, in place: 32-bit dot products (wrapping,
// as the multiply-add instructions do), rounded and scaled by 2^-20.
inline void RowRef(int16_t* y, int v) {
  int16_t sd[2][4];
  for (int k = 0; k < 4; ++k) {
    sd[0][k] = AddS(y[k], y[7 - k]);
    sd[1][k] = SubS(y[k], y[7 - k]);
  }
  for (int u = 0; u < 8; ++u) {
    uint32_t acc = 1u << 19;
    for (int k = 0; k < 4; ++k)
      acc += uint32_t(int32_t(sd[u & 1][k]) * dct::kRowTables.w[v][u][k]);
    y[u] = Sat16(int32_t(acc) >> 20);
  }
}

// round(F * R / 32768), halves to even, saturated.
inline int16_t QuantizeRef(int16_t f, uint16_t r) {
  const int32_t p = int32_t(f) * int32_t(r);
  int32_t k = p >> 15;
  const int32_t rem = p & 32767;
  if (rem > 16384 || (rem == 16384 && (k & 1))) ++k;
  return Sat16(k);
}

// Transform and quantize a level-shifted block (natural order) into dst.
// Blocks and tables may sit at any address, hence the copies.
inline void FdctQuantRef(int16_t* blk, int16_t* dst, const uint16_t* table) {
  for (int c = 0; c < 8; ++c) {
    int16_t col[8];
    for (int i = 0; i < 8; ++i) col[i] = blk[i * 8 + c];
    ColumnRef(col);
    for (int i = 0; i < 8; ++i) blk[i * 8 + c] = col[i];
  }
  for (int v = 0; v < 8; ++v) RowRef(blk + v * 8, v);
  uint16_t r[64];
  int16_t out[64];
  std::memcpy(r, table, sizeof(r));
  for (int i = 0; i < 64; ++i) out[i] = QuantizeRef(blk[i], r[i]);
  std::memcpy(dst, out, sizeof(out));
}

// The block kernels.  src and dst may be the same block: every kernel reads
// all of src before it writes dst.
inline void Block16sRef(const int16_t* src, int16_t* dst, const uint16_t* table) {
  int16_t blk[64];
  std::memcpy(blk, src, sizeof(blk));
  FdctQuantRef(blk, dst, table);
}

inline void Samples8uRef(const uint8_t* src, int32_t srcStep, int16_t* dst, const uint16_t* table) {
  int16_t blk[64];
  for (int r = 0; r < 8; ++r) {
    const uint8_t* row = RowPtr(src, srcStep, r);
    for (int c = 0; c < 8; ++c) blk[r * 8 + c] = int16_t(row[c] - 128);
  }
  FdctQuantRef(blk, dst, table);
}

// One 8-point float pass over x[0..7] (samples in, gained frequencies out).
// The vector kernels evaluate the very same expressions in the same order.
inline void FloatPassRef(float (&x)[8]) {
  const float t0 = x[0] + x[7], t7 = x[0] - x[7];
  const float t1 = x[1] + x[6], t6 = x[1] - x[6];
  const float t2 = x[2] + x[5], t5 = x[2] - x[5];
  const float t3 = x[3] + x[4], t4 = x[3] - x[4];
  // Even part.
  const float p0 = t0 + t3, c = t0 - t3, p1 = t1 + t2, a = t1 - t2;
  x[0] = p0 + p1;
  x[4] = p0 - p1;
  const float z = (c + a) * 0.70710677f;  // cos(pi/4)
  x[2] = c + z;
  x[6] = c - z;
  // Odd part.
  const float u10 = t4 + t5, u11 = t5 + t6, u12 = t6 + t7;
  const float z2 = u10 - u12 * 0.41421357f;  // tan(pi/8)
  const float z4 = u12 + u10 * 0.41421357f;
  const float z3 = u11 * 0.76536685f;
  const float s = t7 * 1.0823922f;
  const float z11 = s + z3, z13 = s - z3;
  x[5] = z13 + z2;
  x[3] = z13 - z2;
  x[1] = z11 + z4;
  x[7] = z11 - z4;
}

// Float result to a coefficient: x86 max/min semantics first (a NaN
// becomes -32768), then rounding to nearest, halves to even.
inline int16_t FloatToCoef(float x) {
  float v = x > -32768.0f ? x : -32768.0f;
  v = v < 32767.0f ? v : 32767.0f;
  return int16_t(std::nearbyint(v));
}

inline void Samples16uRef(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  float blk[8][8];
  for (int r = 0; r < 8; ++r) {
    uint16_t row[8];
    std::memcpy(row, RowPtr(src, srcStep, r), sizeof(row));  // any alignment
    for (int c = 0; c < 8; ++c) blk[r][c] = float(row[c]) - 2048.0f;
    FloatPassRef(blk[r]);
  }
  for (int c = 0; c < 8; ++c) {
    float col[8];
    for (int r = 0; r < 8; ++r) col[r] = blk[r][c];
    FloatPassRef(col);
    for (int r = 0; r < 8; ++r) blk[r][c] = col[r];
  }
  float q[64];
  int16_t out[64];
  std::memcpy(q, table, sizeof(q));
  for (int i = 0; i < 64; ++i) out[i] = FloatToCoef(blk[i / 8][i % 8] * kPostScale.s[i] * q[i]);
  std::memcpy(dst, out, sizeof(out));
}

// ------------------------------------------------------------ checks

// Block forms: every pointer in order.
inline RvtResult CheckBlock(const void* src, const void* dst, const void* table) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  return CheckPtr(table);
}

inline RvtResult CheckInPlace(const void* srcDst, const void* table) {
  RVT_CHECK(CheckPtr(srcDst));
  return CheckPtr(table);
}

// Sample forms: both block pointers before the source step, then the table.
inline RvtResult CheckSamples(const void* src, int32_t srcStep, const void* dst, const void* table) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  if (srcStep < 1) return rvtStatusStep;
  return CheckPtr(table);
}

// ------------------------------------------------------------ drivers

using BlockKernel = void (*)(const int16_t*, int16_t*, const uint16_t*);
template <class S, class T>
using SamplesKernel = void (*)(const S*, int32_t, int16_t*, const T*);

template <BlockKernel kBlock>
RvtResult Block(const int16_t* src, int16_t* dst, const uint16_t* table) {
  RVT_CHECK(CheckBlock(src, dst, table));
  kBlock(src, dst, table);
  return rvtStatusOk;
}

template <BlockKernel kBlock>
RvtResult InPlace(int16_t* srcDst, const uint16_t* table) {
  RVT_CHECK(CheckInPlace(srcDst, table));
  kBlock(srcDst, srcDst, table);
  return rvtStatusOk;
}

template <class S, class T, SamplesKernel<S, T> kBlock>
RvtResult Samples(const S* src, int32_t srcStep, int16_t* dst, const T* table) {
  RVT_CHECK(CheckSamples(src, srcStep, dst, table));
  kBlock(src, srcStep, dst, table);
  return rvtStatusOk;
}

// The reference entries.
inline RvtResult Fwd16sRef(const int16_t* src, int16_t* dst, const uint16_t* table) {
  return Block<Block16sRef>(src, dst, table);
}
inline RvtResult Fwd16sInPlaceRef(int16_t* srcDst, const uint16_t* table) {
  return InPlace<Block16sRef>(srcDst, table);
}
inline RvtResult FwdLs8uRef(const uint8_t* src, int32_t srcStep, int16_t* dst, const uint16_t* table) {
  return Samples<uint8_t, uint16_t, Samples8uRef>(src, srcStep, dst, table);
}
inline RvtResult FwdLs16uRef(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  return Samples<uint16_t, float, Samples16uRef>(src, srcStep, dst, table);
}

}  // namespace rvt::dct_fwd

#endif  // RVT_JPEG_DCT_FWD_H_
