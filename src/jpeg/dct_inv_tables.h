// Constant tables of the inverse 8x8 DCT: the rounders and the vector
// layout of the 8-bit row tables (the tables themselves are shared with the
// forward transform), the tables of the reduced-size transforms and the
// constants of the single-precision transform.  Shared by the scalar
// reference, the vector kernels and the tests.
#ifndef RVT_JPEG_DCT_INV_TABLES_H_
#define RVT_JPEG_DCT_INV_TABLES_H_

#include <cstdint>

#include "jpeg/dct_tables.h"

namespace rvt {

// Rounder added to the even part of each row before the shift by 11.  Row
// 0's 65536 becomes +32 in every value, the rounding term of the final
// shift by 6; rows 1 and 2 exceed 2048, so an all-zero row 1 or 2 still
// yields 1 in every value.
inline constexpr int32_t kIdctRowRounder[8] = {65536, 2901, 2260, 1704, 1024, 455, 512, 373};

// Vector form of the row tables: for each row, four tables of (u_a, u_b)
// pairs over the outputs k = 0..3, in the order the row kernel multiplies
// them: (0, 2) and (4, 6) give the even part, (1, 3) and (5, 7) the odd part.
struct IdctRowPairTables {
  alignas(64) int16_t pair[4][8][8];  // [pair][row v][2k + (0 for u_a, 1 for u_b)]
  alignas(64) int32_t rounder[8][4];  // each row's rounder in four lanes
};

constexpr IdctRowPairTables MakeIdctRowPairTables() {
  IdctRowPairTables t{};
  constexpr int kPairs[4][2] = {{0, 2}, {4, 6}, {1, 3}, {5, 7}};
  for (int p = 0; p < 4; ++p) {
    for (int v = 0; v < 8; ++v) {
      for (int k = 0; k < 4; ++k) {
        t.pair[p][v][2 * k] = dct::kRowTables.w[v][kPairs[p][0]][k];
        t.pair[p][v][2 * k + 1] = dct::kRowTables.w[v][kPairs[p][1]][k];
      }
    }
  }
  for (int v = 0; v < 8; ++v) {
    for (int i = 0; i < 4; ++i) t.rounder[v][i] = kIdctRowRounder[v];
  }
  return t;
}
inline constexpr IdctRowPairTables kIdctRowPairs = MakeIdctRowPairTables();

// Reduced transforms.  Entry [j][v] is round(32768 * c(v)/2 * mean of
// cos((2y+1) v pi/16) over the samples y that output j covers): 2 samples
// per output for the 4x4 result, 4 for the 2x2 result.  The same table
// serves the vertical and the horizontal pass.
inline constexpr int16_t kIdctTo4x4[4][8] = {
    {11585, 14846, 10703, 5213, 0, -3483, -4433, -2953},
    {11585, 6149, -10703, -12586, 0, 8410, 4433, -1223},
    {11585, -6149, -10703, 12586, 0, -8410, 4433, 1223},
    {11585, -14846, 10703, -5213, 0, 3483, -4433, 2953},
};
inline constexpr int16_t kIdctTo2x2[2][8] = {
    {11585, 10498, 0, -3686, 0, 2463, 0, -2088},
    {11585, -10498, 0, 3686, 0, -2463, 0, 2088},
};

// Fixed point of the reduced transforms: the vertical pass keeps 5
// fraction bits in 16 bits (headroom for intermediate values up to 1023,
// almost three times what 8-bit data produces), the horizontal pass
// removes the rest with rounding.
inline constexpr int kReducedShift1 = 10;  // 15 - 5
inline constexpr int kReducedShift2 = 20;  // 15 + 5

// Single-precision constants of the 16-bit-sample transform: c(u)/2 *
// cos(u pi/16), so two passes give the 1/4 c(u) c(v) of the definition.
inline constexpr float kIdctF1 = 0.49039264020161522f;  // cos(pi/16)/2
inline constexpr float kIdctF2 = 0.46193976625564337f;  // cos(2pi/16)/2
inline constexpr float kIdctF3 = 0.41573480615127262f;  // cos(3pi/16)/2
inline constexpr float kIdctF4 = 0.35355339059327376f;  // cos(4pi/16)/2 = c(0)/2
inline constexpr float kIdctF5 = 0.27778511650980111f;  // cos(5pi/16)/2
inline constexpr float kIdctF6 = 0.19134171618254489f;  // cos(6pi/16)/2
inline constexpr float kIdctF7 = 0.09754516100806413f;  // cos(7pi/16)/2

}  // namespace rvt

#endif  // RVT_JPEG_DCT_INV_TABLES_H_
