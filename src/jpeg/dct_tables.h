// Fixed-point constants of the 8x8 DCT, shared by the forward and the
// inverse transform so that both use the very same numbers.
//
// The column pass works in saturating 16-bit arithmetic with Q16 tangent
// multipliers.  The row pass is a set of 32-bit dot products against one
// coefficient table per coefficient row v:
//
//   W_v[u][k] ~ C_v * sqrt(2) * cos((2k + 1) u pi / 16)   (u = 1..7)
//   W_v[0][k] = C_v
//
// where the scale C_v of row v also undoes the gain the column pass leaves
// on that row.  The magnitudes below are the ones the transforms are built
// on; four of them (31521, 27969, 26722 of the 19266 class, 10426) are one
// off the plain rounding of the cosine and must not be "corrected".
#ifndef RVT_JPEG_DCT_TABLES_H_
#define RVT_JPEG_DCT_TABLES_H_

#include <cstdint>

namespace rvt::dct {

// Column-pass multipliers.
constexpr int16_t kT1 = 13036;    // tan(pi/16) in Q16
constexpr int16_t kT2 = 27146;    // tan(2pi/16) in Q16
constexpr int16_t kT3m = -21746;  // (tan(3pi/16) - 1) in Q16
constexpr int16_t kC4 = 23170;    // cos(pi/4) in Q15

// Distinct magnitudes of each scale class: C (the u = 0 and u = 4 value),
// then the values at cos(pi/16), cos(2pi/16), cos(3pi/16), cos(5pi/16),
// cos(6pi/16), cos(7pi/16).
constexpr int16_t kRowMagnitude[4][7] = {
    {16384, 22725, 21407, 19266, 12873, 8867, 4520},
    {22725, 31521, 29692, 26722, 17855, 12299, 6270},
    {21407, 29692, 27969, 25172, 16819, 11585, 5906},
    {19266, 26722, 25172, 22654, 15137, 10426, 5315},
};

// Scale class of coefficient row v: C_v = 16384 for rows 0 and 4, 22725
// for 1 and 7, 21407 for 2 and 6, 19266 for 3 and 5.
constexpr int kRowClass[8] = {0, 1, 2, 3, 0, 3, 2, 1};

// W_v[u][k] for k = 0..7: the magnitude of cos((2k+1) u pi / 16) looked up
// in the class list, with the sign of the cosine.
constexpr int16_t RowCoef(int v, int u, int k) {
  const int16_t* m = kRowMagnitude[kRowClass[v]];
  if (u == 0) return m[0];
  int a = ((2 * k + 1) * u) % 32;  // angle in units of pi/16
  int sign = 1;
  if (a > 16) a = 32 - a;  // cos(2pi - t) = cos(t)
  if (a > 8) {             // cos(pi - t) = -cos(t)
    a = 16 - a;
    sign = -1;
  }
  // a is 1..7 here (never 0 or 8 for u = 1..7).
  const int16_t mag = a == 4 ? m[0] : (a < 4 ? m[a] : m[a - 1]);
  return int16_t(sign * mag);
}

struct RowTables {
  int16_t w[8][8][8];  // [v][u][k]
};

constexpr RowTables MakeRowTables() {
  RowTables t{};
  for (int v = 0; v < 8; ++v)
    for (int u = 0; u < 8; ++u)
      for (int k = 0; k < 8; ++k) t.w[v][u][k] = RowCoef(v, u, k);
  return t;
}

inline constexpr RowTables kRowTables = MakeRowTables();

}  // namespace rvt::dct

#endif  // RVT_JPEG_DCT_TABLES_H_
