// Inverse 8x8 DCT fused with dequantization: the full 8-bit transform and
// its shortcuts (DC only, 2x2 and 4x4 corners), the 1/2 and 1/4 scale
// outputs, the unshifted 16-bit output and the 16-bit-sample transform;
// and the 8-bit transform of a run of blocks side by side in one call.
//
// The 8-bit transform: a row pass of 32-bit dot products with one table
// per coefficient row (each row pre-scaled for the column pass) and a
// rounder of its own per row, shifted right by 11 and saturated; then a column
// pass in saturating 16-bit arithmetic built on tangent butterflies; the
// result is 64 times the sample value.  All 32-bit sums wrap modulo 2^32,
// so every evaluation order gives the same bits.
//
// The scalar kernels here define every result; the argument checks and the
// drivers live here too, so every target shares them.
#ifndef RVT_JPEG_DCT_INV_H_
#define RVT_JPEG_DCT_INV_H_

#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "frame/threading.h"
#include "jpeg/dct_inv_tables.h"
#include "rvtjp.h"

namespace rvt::dct_inv {

// Column pass constants: tan(pi/16), tan(2pi/16), tan(3pi/16) - 1 in Q16,
// and cos(pi/4) - 1 in Q16.
inline constexpr int16_t kIdctT1 = dct::kT1;
inline constexpr int16_t kIdctT2 = dct::kT2;
inline constexpr int16_t kIdctT3m = dct::kT3m;
inline constexpr int16_t kIdctC4m = -19195;

// ------------------------------------------------------------ reference

inline int16_t Sat16(int32_t v) { return int16_t(v < -32768 ? -32768 : (v > 32767 ? 32767 : v)); }
inline int16_t AddS(int16_t a, int16_t b) { return Sat16(int32_t(a) + b); }
inline int16_t SubS(int16_t a, int16_t b) { return Sat16(int32_t(a) - b); }
inline int16_t MulHi(int16_t a, int16_t k) { return int16_t((int32_t(a) * k) >> 16); }
// Low 16 bits of the product.
inline int16_t DequantRef(int16_t c, uint16_t q) {
  return int16_t(uint16_t(uint32_t(uint16_t(c)) * uint32_t(q)));
}
inline uint8_t ClampByte(int32_t v) { return uint8_t(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// 64 times the samples of the 8-bit transform of a dequantized block.
inline void Idct8Core(const int16_t* x, int16_t z[64]) {
  int16_t y[64];
  for (int v = 0; v < 8; ++v) {
    const int16_t* in = x + 8 * v;
    const auto& w = dct::kRowTables.w[v];
    for (int k = 0; k < 4; ++k) {
      uint32_t e = uint32_t(kIdctRowRounder[v]), o = 0;
      for (int u = 0; u < 8; u += 2) e += uint32_t(int32_t(in[u]) * w[u][k]);
      for (int u = 1; u < 8; u += 2) o += uint32_t(int32_t(in[u]) * w[u][k]);
      y[8 * v + k] = Sat16(int32_t(e + o) >> 11);
      y[8 * v + 7 - k] = Sat16(int32_t(e - o) >> 11);
    }
  }
  for (int c = 0; c < 8; ++c) {
    const int16_t y0 = y[c], y1 = y[8 + c], y2 = y[16 + c], y3 = y[24 + c];
    const int16_t y4 = y[32 + c], y5 = y[40 + c], y6 = y[48 + c], y7 = y[56 + c];
    const int16_t a0 = AddS(y0, y4), a1 = SubS(y0, y4);
    const int16_t e2 = AddS(MulHi(y6, kIdctT2), y2), e6 = SubS(MulHi(y2, kIdctT2), y6);
    const int16_t o17 = AddS(MulHi(y7, kIdctT1), y1), o71 = SubS(MulHi(y1, kIdctT1), y7);
    const int16_t o53 = AddS(AddS(MulHi(y5, kIdctT3m), y5), y3);
    const int16_t o35 = SubS(y5, AddS(MulHi(y3, kIdctT3m), y3));
    const int16_t s1 = AddS(SubS(o17, o53), SubS(o71, o35));
    const int16_t s2 = SubS(SubS(o17, o53), SubS(o71, o35));
    const int16_t c1 = AddS(MulHi(s1, kIdctC4m), s1), c2 = AddS(MulHi(s2, kIdctC4m), s2);
    const int16_t ae = AddS(a0, e2), ad = SubS(a0, e2), be = AddS(a1, e6), bd = SubS(a1, e6);
    const int16_t oa = AddS(o17, o53), ob = AddS(o71, o35);
    z[c] = AddS(ae, oa);
    z[56 + c] = SubS(ae, oa);
    z[8 + c] = AddS(be, c1);
    z[48 + c] = SubS(be, c1);
    z[16 + c] = AddS(bd, c2);
    z[40 + c] = SubS(bd, c2);
    z[24 + c] = AddS(ad, ob);
    z[32 + c] = SubS(ad, ob);
  }
}

// The first `rows` coefficient rows, dequantized; the other rows zero.
inline void DequantRows(const int16_t* src, const uint16_t* q, int rows, int16_t x[64]) {
  for (int i = 0; i < 64; ++i) x[i] = i < 8 * rows ? DequantRef(src[i], q[i]) : 0;
}

inline void StoreLs8Ref(const int16_t z[64], uint8_t* dst, int32_t step) {
  for (int r = 0; r < 8; ++r) {
    uint8_t* out = RowPtr(dst, step, r);
    for (int c = 0; c < 8; ++c) out[c] = ClampByte(int16_t((z[8 * r + c] >> 6) + 128));
  }
}

template <int kRows>
void Ls8RowsRef(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  int16_t x[64], z[64];
  DequantRows(src, q, kRows, x);
  Idct8Core(x, z);
  StoreLs8Ref(z, dst, step);
}

inline void Plain16Ref(const int16_t* src, int16_t* dst, const uint16_t* q) {
  int16_t x[64], z[64];
  DequantRows(src, q, 8, x);
  Idct8Core(x, z);
  for (int i = 0; i < 64; ++i) dst[i] = int16_t(z[i] >> 6);
}

inline void DcOnlyRef(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  const int32_t p = int32_t(src[0]) * int32_t(q[0]);
  const int16_t v = int16_t(uint16_t(uint32_t((p >> 3) + 128)));
  const uint8_t b = ClampByte(v);
  for (int r = 0; r < 8; ++r) std::memset(RowPtr(dst, step, r), b, 8);
}

// Reduced transforms: K[j][v] weights of output j; vertical pass to 16
// bits with 5 fraction bits, then horizontal pass with rounding.
template <int J>
void ReducedRef(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q,
             const int16_t (&k)[J][8]) {
  int16_t x[64], t[J][8];
  DequantRows(src, q, 8, x);
  for (int j = 0; j < J; ++j) {
    for (int u = 0; u < 8; ++u) {
      uint32_t s = 1u << (kReducedShift1 - 1);
      for (int v = 0; v < 8; ++v) s += uint32_t(int32_t(x[8 * v + u]) * k[j][v]);
      t[j][u] = Sat16(int32_t(s) >> kReducedShift1);
    }
  }
  for (int j = 0; j < J; ++j) {
    uint8_t* out = RowPtr(dst, step, j);
    for (int i = 0; i < J; ++i) {
      uint32_t s = 1u << (kReducedShift2 - 1);
      for (int u = 0; u < 8; ++u) s += uint32_t(int32_t(t[j][u]) * k[i][u]);
      out[i] = ClampByte(AddS(Sat16(int32_t(s) >> kReducedShift2), 128));
    }
  }
}
inline void To4x4Ref(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  ReducedRef<4>(src, dst, step, q, kIdctTo4x4);
}
inline void To2x2Ref(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q) {
  ReducedRef<2>(src, dst, step, q, kIdctTo2x2);
}

// One 8-point pass in single precision; in[i * stride], out[i * stride].
// The vector kernels evaluate the very same expressions in the same order.
inline void Idct8FloatRef(const float* in, float* out, int stride) {
  const float i0 = in[0], i1 = in[stride], i2 = in[2 * stride], i3 = in[3 * stride];
  const float i4 = in[4 * stride], i5 = in[5 * stride], i6 = in[6 * stride], i7 = in[7 * stride];
  const float e0 = (i0 + i4) * kIdctF4, e1 = (i0 - i4) * kIdctF4;
  const float e2 = i2 * kIdctF2 + i6 * kIdctF6, e3 = i2 * kIdctF6 - i6 * kIdctF2;
  const float E0 = e0 + e2, E3 = e0 - e2, E1 = e1 + e3, E2 = e1 - e3;
  const float O0 = i1 * kIdctF1 + i3 * kIdctF3 + i5 * kIdctF5 + i7 * kIdctF7;
  const float O1 = i1 * kIdctF3 - i3 * kIdctF7 - i5 * kIdctF1 - i7 * kIdctF5;
  const float O2 = i1 * kIdctF5 - i3 * kIdctF1 + i5 * kIdctF7 + i7 * kIdctF3;
  const float O3 = i1 * kIdctF7 - i3 * kIdctF5 + i5 * kIdctF3 - i7 * kIdctF1;
  out[0] = E0 + O0;
  out[7 * stride] = E0 - O0;
  out[stride] = E1 + O1;
  out[6 * stride] = E1 - O1;
  out[2 * stride] = E2 + O2;
  out[5 * stride] = E2 - O2;
  out[3 * stride] = E3 + O3;
  out[4 * stride] = E3 - O3;
}

inline void Ls16uRef(const int16_t* src, uint16_t* dst, int32_t step, const uint16_t* q) {
  float f[64], g[64];
  for (int i = 0; i < 64; ++i) f[i] = float(DequantRef(src[i], q[i]));
  for (int u = 0; u < 8; ++u) Idct8FloatRef(f + u, g + u, 8);      // down the columns
  for (int y = 0; y < 8; ++y) Idct8FloatRef(g + 8 * y, f + 8 * y, 1);  // along the rows
  for (int y = 0; y < 8; ++y) {
    uint16_t* out = RowPtr(dst, step, y);
    for (int x = 0; x < 8; ++x) {
      const int32_t v = int32_t(std::nearbyint(f[8 * y + x])) + 2048;
      out[x] = uint16_t(v < 0 ? 0 : (v > 4095 ? 4095 : v));
    }
  }
}

// ------------------------------------------------------------ checks

// The LS forms: the coefficients, the destination and its step, then the
// table.
inline RvtResult CheckLs(const void* src, const void* dst, int32_t dstStep, const void* table) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPlane(dst, dstStep));
  return CheckPtr(table);
}

inline RvtResult CheckBlock(const void* src, const void* dst, const void* table) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(dst));
  return CheckPtr(table);
}

inline RvtResult CheckInPlace(const void* srcDst, const void* table) {
  RVT_CHECK(CheckPtr(srcDst));
  return CheckPtr(table);
}

// ------------------------------------------------------------ drivers

// Checks in order, then the kernel.  Block kernels read all of src before
// they write dst, so the in-place form passes one block as both.
template <class D>
using LsKernel = void (*)(const int16_t*, D*, int32_t, const uint16_t*);
using BlockKernel = void (*)(const int16_t*, int16_t*, const uint16_t*);

template <class D, LsKernel<D> kKernel>
RvtResult Ls(const int16_t* src, D* dst, int32_t dstStep, const uint16_t* table) {
  RVT_CHECK(CheckLs(src, dst, dstStep, table));
  kKernel(src, dst, dstStep, table);
  return rvtStatusOk;
}
template <BlockKernel kKernel>
RvtResult Block(const int16_t* src, int16_t* dst, const uint16_t* table) {
  RVT_CHECK(CheckBlock(src, dst, table));
  kKernel(src, dst, table);
  return rvtStatusOk;
}
template <BlockKernel kKernel>
RvtResult InPlace(int16_t* srcDst, const uint16_t* table) {
  RVT_CHECK(CheckInPlace(srcDst, table));
  kKernel(srcDst, srcDst, table);
  return rvtStatusOk;
}

// A run of blocks: block i's 64 coefficients at src + 64 i, its 8x8
// samples at dst + 8 i, one table for all.
using BlocksKernel = void (*)(const int16_t*, uint8_t*, int32_t, const uint16_t*, int32_t);

inline void BlocksRef(const int16_t* src, uint8_t* dst, int32_t step, const uint16_t* q, int32_t n) {
  for (int32_t i = 0; i < n; ++i) Ls8RowsRef<8>(src + 64 * size_t(i), dst + 8 * size_t(i), step, q);
}

// The checks of the LS forms, then the count.
template <BlocksKernel kKernel>
RvtResult Blocks(const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table,
                 int32_t nBlocks) {
  RVT_CHECK(CheckLs(src, dst, dstStep, table));
  if (nBlocks < 1) return rvtStatusSize;
  kKernel(src, dst, dstStep, table, nBlocks);
  return rvtStatusOk;
}

// The reference entries.
inline RvtResult InvLs8Ref(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, Ls8RowsRef<8>>(s, d, st, q);
}
inline RvtResult InvLs8DcRef(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, DcOnlyRef>(s, d, st, q);
}
inline RvtResult InvLs8Corner2Ref(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, Ls8RowsRef<2>>(s, d, st, q);
}
inline RvtResult InvLs8Corner4Ref(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, Ls8RowsRef<4>>(s, d, st, q);
}
inline RvtResult InvLs8To2x2Ref(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, To2x2Ref>(s, d, st, q);
}
inline RvtResult InvLs8To4x4Ref(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint8_t, To4x4Ref>(s, d, st, q);
}
inline RvtResult InvLs16Ref(const int16_t* s, uint16_t* d, int32_t st, const uint16_t* q) {
  return Ls<uint16_t, Ls16uRef>(s, d, st, q);
}
inline RvtResult InvPlainRef(const int16_t* s, int16_t* d, const uint16_t* q) {
  return Block<Plain16Ref>(s, d, q);
}
inline RvtResult InvInPlaceRef(int16_t* sd, const uint16_t* q) { return InPlace<Plain16Ref>(sd, q); }
inline RvtResult InvBlocksRef(const int16_t* s, uint8_t* d, int32_t st, const uint16_t* q, int32_t n) {
  return Blocks<BlocksRef>(s, d, st, q, n);
}

}  // namespace rvt::dct_inv

#endif  // RVT_JPEG_DCT_INV_H_
