// Forward DCT with quantization: row tables against the cosines, accuracy
// of both transforms against a double-precision DCT, the half-to-even
// quantizer, float saturation, the argument checks, and the registered
// differential checks (realistic and saturating inputs, any alignment,
// overlapping rows, in place).
#include <cmath>
#include <cstring>

#include "checkasm.h"
#include "jpeg/dct_tables.h"

namespace rvt {
namespace {

using test::GuardedPlane;
const auto& k16s = impl_rvtiDCTQuantFwd8x8_JPEG_16s_C1;
const auto& k16sI = impl_rvtiDCTQuantFwd8x8_JPEG_16s_C1I;
const auto& kLS8u = impl_rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R;
const auto& kLS16u = impl_rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R;

// F(u, v) = 1/4 c(u) c(v) sum f(x, y) cos((2x+1)u pi/16) cos((2y+1)v pi/16).
std::vector<double> ExactDct(const std::vector<double>& f) {
  std::vector<double> out(64);
  for (int i = 0; i < 64; ++i) {
    const int u = i % 8, v = i / 8;
    double sum = 0;
    for (int j = 0; j < 64; ++j)
      sum += f[j] * std::cos((2 * (j % 8) + 1) * u * M_PI / 16) * std::cos((2 * (j / 8) + 1) * v * M_PI / 16);
    out[i] = 0.25 * (u ? 1 : M_SQRT1_2) * (v ? 1 : M_SQRT1_2) * sum;
  }
  return out;
}

TEST(Fdct, RowTablesFollowTheCosines) {
  const int scale[8] = {16384, 22725, 21407, 19266, 16384, 19266, 21407, 22725};
  for (int v = 0; v < 8; ++v)
    for (int u = 0; u < 8; ++u)
      for (int k = 0; k < 8; ++k) {
        const double exact = u ? scale[v] * M_SQRT2 * std::cos((2 * k + 1) * u * M_PI / 16) : scale[v];
        ASSERT_LE(std::abs(dct::kRowTables.w[v][u][k] - exact), 1.0) << v << " " << u << " " << k;
      }
  EXPECT_EQ(dct::kRowTables.w[1][1][0], 31521);  // kept one off the rounded cosine
  EXPECT_EQ(dct::kRowTables.w[3][6][0], 10426);
  EXPECT_EQ(dct::kRowTables.w[3][6][1], -25172);
}

TEST(Fdct, AccuracyAgainstExactDct) {
  const std::vector<uint16_t> unit(64, 32768);  // q = 1: the coefficients themselves
  const std::vector<float> unit_f(64, 1.0f);
  test::Rng rng(21);
  double sum8 = 0, max8 = 0, max16 = 0;
  for (int trial = 0; trial < 300; ++trial) {
    uint8_t px[64];
    std::vector<uint16_t> px16(64);
    std::vector<double> f8(64), f16(64);
    for (int i = 0; i < 64; ++i) {  // noise, ramps, hard edges
      const int x = i % 8, y = i / 8;
      px[i] = uint8_t(trial % 3 == 0 ? rng.Uniform(0, 255)
                      : trial % 3 == 1 ? std::clamp(int(trial % 97 + 13 * x - 9 * y + rng.Uniform(-3, 3)), 0, 255)
                                       : (x + trial % 5 > y + 3) * 255);
      px16[i] = uint16_t(rng.Uniform(0, 4095));
      f8[i] = px[i] - 128.0;
      f16[i] = px16[i] - 2048.0;
    }
    int16_t got8[64], got16[64];
    ASSERT_EQ(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, got8, unit.data()), rvtStatusOk);
    ASSERT_EQ(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(px16.data(), 16, got16, unit_f.data()), rvtStatusOk);
    const auto e8 = ExactDct(f8), e16 = ExactDct(f16);
    for (int i = 0; i < 64; ++i) {
      sum8 += std::abs(got8[i] - e8[i]);
      max8 = std::max(max8, std::abs(got8[i] - e8[i]));
      max16 = std::max(max16, std::abs(got16[i] - e16[i]));
    }
  }
  RecordProperty("fixed_max_abs_error", std::to_string(max8));
  RecordProperty("fixed_mean_abs_error", std::to_string(sum8 / (300 * 64)));
  RecordProperty("float_max_abs_error", std::to_string(max16));
  EXPECT_LT(max8, 1.5);
  EXPECT_LT(sum8 / (300 * 64), 0.3);  // rounding alone gives 0.25
  EXPECT_LT(max16, 0.5 + 1e-3);
}

TEST(Fdct, FlatBlocksAndTies) {
  // A flat block of value c has DC 8c and nothing else.  With R = 16384
  // (q = 2) or 49152 every odd c is a tie of the quantizer: halves to even.
  for (const uint16_t r : {uint16_t(32768), uint16_t(16384), uint16_t(49152)}) {
    const std::vector<uint16_t> tab(64, r);
    for (int c : {100, 1, 3, 5, -1, -3, 127, -128}) {
      const double want = std::nearbyint(8.0 * c * r / 32768);
      for (const auto& t : test::AllTargets(k16s)) {
        std::vector<int16_t> in(64, int16_t(c)), out(64, 7);
        ASSERT_EQ(t.fn(in.data(), out.data(), tab.data()), rvtStatusOk);
        EXPECT_EQ(out[0], want) << t.name << " R " << r << " c " << c;
        for (int i = 1; i < 64; ++i) ASSERT_EQ(out[i], 0) << t.name;
      }
      for (const auto& t : test::AllTargets(kLS8u)) {
        std::vector<uint8_t> px(64, uint8_t(c + 128));
        std::vector<int16_t> out(64, 7);
        ASSERT_EQ(t.fn(px.data(), 8, out.data(), tab.data()), rvtStatusOk);
        EXPECT_EQ(out[0], want) << t.name;
      }
    }
  }
  // Float form: DC 8 (s - 2048); by 16 the odd halves go to even.
  const std::vector<float> sixteenth(64, 0.0625f);
  for (const int s : {2049, 2051, 2045, 0, 65535}) {
    const std::vector<uint16_t> px(64, uint16_t(s));
    for (const auto& t : test::AllTargets(kLS16u)) {
      int16_t got[64];
      ASSERT_EQ(t.fn(px.data(), 16, got, sixteenth.data()), rvtStatusOk);
      EXPECT_EQ(got[0], std::min(std::nearbyint(8.0 * (s - 2048) / 16), 32767.0)) << t.name << " " << s;
      for (int i = 1; i < 64; ++i) ASSERT_EQ(got[i], 0) << t.name;
    }
  }
}

TEST(Fdct, FloatFormSaturatesBothWaysAndNaNIsLowest) {
  const std::vector<uint16_t> px(64, 4095);  // DC 16376, AC 0
  for (const float q : {1e30f, -1e30f, std::nanf(""), 0.0f}) {
    const std::vector<float> tab(64, q);
    for (const auto& t : test::AllTargets(kLS16u)) {
      int16_t got[64];
      ASSERT_EQ(t.fn(px.data(), 16, got, tab.data()), rvtStatusOk);
      EXPECT_EQ(got[0], q > 0 ? 32767 : (q == 0 ? 0 : -32768)) << t.name << " " << q;  // NaN too
    }
  }
}

// ------------------------------------------------------------ differential checks

void Put(test::Buf& b, int i, uint16_t v) { std::memcpy(b.as<uint8_t>() + 2 * i, &v, 2); }

// Tables that stress the quantizer: built ones, any value, ties (multiples
// of 16384), R >= 32768 and 65535.
test::Buf StressTable(test::Rng& rng, int kind, int misalign) {
  test::Buf t = test::ArrayOf<uint16_t>(64, misalign);
  for (int i = 0; i < 64; ++i) {
    const int pick = kind % 4;
    Put(t, i, uint16_t(pick == 0 ? (32768 + 50) / rng.Uniform(1, 100)
                       : pick == 1 ? rng.Uniform(0, 65535)
                       : pick == 2 ? 16384 * rng.Uniform(0, 3)
                                   : (rng.Uniform(0, 1) ? 65535 : 32768)));
  }
  return t;
}

// A 16-bit block: samples, wider values, any value, or saturating extremes.
test::Buf Coefficients(test::Rng& rng, int k, int misalign) {
  test::Buf b = test::ArrayOf<int16_t>(64, misalign);
  const int lim[3] = {128, 2048, 32767};
  for (int i = 0; i < 64; ++i)
    Put(b, i, uint16_t(k % 4 < 3 ? rng.Uniform(-lim[k % 4], lim[k % 4] - 1)
                                 : (rng.Uniform(0, 3) ? (rng.Uniform(0, 1) ? 32767 : -32768) : 0)));
  return b;
}

RVT_CHECKASM(rvtiDCTQuantFwd8x8_JPEG_16s_C1,
             test::Cases{test::Trials(400, [](test::Rng& rng, int k) {
                           test::Case c;
                           c.label = "trial " + std::to_string(k);
                           c.in.push_back(Coefficients(rng, k, k % 16));
                           c.in.push_back(StressTable(rng, k / 4, (k * 5) % 16));
                           c.out.push_back(test::ArrayOf<int16_t>(64, (k / 16) % 16));
                           return c;
                         }),
                         [](auto fn, test::Case& c) {
                           return fn(c.in[0].as<int16_t>(), c.out[0].as<int16_t>(), c.in[1].as<uint16_t>());
                         }});

RVT_CHECKASM(rvtiDCTQuantFwd8x8_JPEG_16s_C1I,
             test::Cases{test::Trials(400, [](test::Rng& rng, int k) {
                           test::Case c;
                           c.label = "trial " + std::to_string(k);
                           c.out.push_back(Coefficients(rng, k, k % 16));
                           c.in.push_back(StressTable(rng, k / 4, (k * 5) % 16));
                           return c;
                         }),
                         [](auto fn, test::Case& c) {
                           return fn(c.out[0].as<int16_t>(), c.in[0].as<uint16_t>());
                         }});

// 8-bit samples at any step, overlapping rows included (step < 8).
RVT_CHECKASM(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R,
             test::Cases{test::Trials(400, [](test::Rng& rng, int k) {
                           test::Case c;
                           const int32_t step = int32_t(k % 5 ? rng.Uniform(8, 80) : rng.Uniform(1, 7));
                           c.label = "trial " + std::to_string(k) + ", step " + std::to_string(step);
                           c.in.push_back(test::PlaneOf<uint8_t>(8, 8, step, k % 16));
                           c.in[0].Fill(rng, uint8_t(0), uint8_t(255));
                           c.in.push_back(StressTable(rng, k / 4, (k * 5) % 16));
                           c.out.push_back(test::ArrayOf<int16_t>(64, (k * 3) % 16));
                           return c;
                         }),
                         [](auto fn, test::Case& c) {
                           return fn(c.in[0].as<uint8_t>(), c.in[0].step(), c.out[0].as<int16_t>(),
                                     c.in[1].as<uint16_t>());
                         }});

// 12-bit and any 16-bit samples, rows at odd addresses; tables of
// reciprocals, huge values of both signs, a NaN.
RVT_CHECKASM(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R,
             test::Cases{test::Trials(300, [](test::Rng& rng, int k) {
                           test::Case c;
                           c.label = "trial " + std::to_string(k);
                           const int32_t step = int32_t(2 * rng.Uniform(8, 40) + (k % 3 == 0));
                           c.in.push_back(test::PlaneOf<uint16_t>(8, 8, step, k % 16));
                           c.in[0].Fill(rng, uint16_t(0), uint16_t(k % 2 ? 4095 : 65535));
                           c.in.push_back(test::ArrayOf<float>(64, (k * 3) % 16));
                           for (int i = 0; i < 64; ++i) {
                             float q = float(k % 4 == 3 ? rng.UniformReal(-1e6, 1e6) : 1.0 / rng.Uniform(1, 255));
                             if (k % 8 == 7 && i == k % 64) q = std::nanf("");
                             std::memcpy(c.in[1].as<uint8_t>() + 4 * i, &q, 4);
                           }
                           c.out.push_back(test::ArrayOf<int16_t>(64, k % 8));
                           return c;
                         }),
                         [](auto fn, test::Case& c) {
                           return fn(c.in[0].as<uint16_t>(), c.in[0].step(), c.out[0].as<int16_t>(),
                                     c.in[1].as<float>());
                         }});

TEST(Fdct, ChecksInArgumentOrderWriteNothing) {
  GuardedPlane<int16_t> dst(64, 1);
  const GuardedPlane<int16_t> before = dst;
  int16_t* d = dst.data();
  const int16_t s16[64] = {};
  const uint8_t s8[64] = {};
  const uint16_t su[64] = {}, tab[64] = {};
  const float ftab[64] = {};
  for (const auto& t : test::AllTargets(k16s)) {
    EXPECT_EQ(t.fn(nullptr, d, tab), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(s16, nullptr, tab), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(s16, d, nullptr), rvtStatusNullPtr);
  }
  for (const auto& t : test::AllTargets(k16sI)) {
    EXPECT_EQ(t.fn(nullptr, tab), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(d, nullptr), rvtStatusNullPtr);
  }
  struct Case {
    bool src, dst;
    int32_t step;
    bool table;
    RvtResult want;
  };
  // Both block pointers, then the step, then the table.
  const Case cases[] = {{false, true, 0, true, rvtStatusNullPtr}, {true, false, 0, true, rvtStatusNullPtr},
                        {true, true, 0, false, rvtStatusStep},    {true, true, -8, true, rvtStatusStep},
                        {true, true, 8, false, rvtStatusNullPtr}};
  for (const Case& c : cases) {
    for (const auto& t : test::AllTargets(kLS8u))
      EXPECT_EQ(t.fn(c.src ? s8 : nullptr, c.step, c.dst ? d : nullptr, c.table ? tab : nullptr), c.want);
    for (const auto& t : test::AllTargets(kLS16u))
      EXPECT_EQ(t.fn(c.src ? su : nullptr, 2 * c.step, c.dst ? d : nullptr, c.table ? ftab : nullptr), c.want);
  }
  EXPECT_TRUE(dst.Unchanged(before));
}

}  // namespace
}  // namespace rvt
