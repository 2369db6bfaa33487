// Inverse DCT with dequantization: the registered differential checks
// (realistic and saturating blocks at odd addresses and padded steps); the
// forms against each other; known answers worked out from the fixed-point
// steps; accuracy against a double-precision IDCT (the IEEE 1180 procedure,
// 12-bit samples, the reduced outputs, photos beside libjpeg-turbo);
// argument checks.
#include <png.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "checkasm.h"

namespace rvt {
namespace {

using test::GuardedPlane;
using test::Rng;

using Ls8Fn = RvtResult (*)(const int16_t*, uint8_t*, int32_t, const uint16_t*);
struct Ls8Form {
  const char* name;
  const Impl<Ls8Fn>& impl;
  int size;  // output rows and columns
  int rows;  // coefficient rows read (0: the DC alone)
};
const Ls8Form kLs8Forms[] = {
    {"full", impl_rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R, 8, 8},
    {"1x1", impl_rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, 8, 0},
    {"2x2", impl_rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, 8, 2},
    {"4x4", impl_rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, 8, 4},
    {"To2x2", impl_rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, 2, 8},
    {"To4x4", impl_rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, 4, 8},
};
const auto& kFull = impl_rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R;
const auto& kLs16 = impl_rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R;
const auto& kPlain = impl_rvtiDCTQuantInv8x8_JPEG_16s_C1;
const auto& kInPlace = impl_rvtiDCTQuantInv8x8_JPEG_16s_C1I;
const uint16_t kOnes[64] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                            1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                            1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

// B[u][x] = c(u)/2 cos((2x+1) u pi/16); both transforms are separable in it.
struct Basis {
  double b[8][8];
  Basis() {
    for (int u = 0; u < 8; ++u)
      for (int x = 0; x < 8; ++x) b[u][x] = (u ? 0.5 : std::sqrt(0.125)) * std::cos((2 * x + 1) * u * M_PI / 16);
  }
};
const Basis kBasis;

// out = M in M^T (inverse) or M^T in M (forward), index row * 8 + column.
void Separable(const double* in, double* out, bool inverse) {
  double t[64] = {};
  auto m = [&](int a, int b) { return inverse ? kBasis.b[b][a] : kBasis.b[a][b]; };
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 8; ++c)
      for (int k = 0; k < 8; ++k) t[8 * r + c] += in[8 * r + k] * m(c, k);
  for (int r = 0; r < 8; ++r)
    for (int c = 0; c < 8; ++c) {
      out[8 * r + c] = 0;
      for (int k = 0; k < 8; ++k) out[8 * r + c] += t[8 * k + c] * m(r, k);
    }
}
void ExactIdct(const double* F, double* f) { Separable(F, f, true); }
void ExactFdct(const double* f, double* F) { Separable(f, F, false); }

struct Case {
  int16_t coef[64];
  uint16_t table[64];
};

// Quantized coefficients of level-shifted 8-bit samples (ramps plus noise).
Case Realistic(Rng& rng, int max_q) {
  double f[64], F[64];
  const double gx = rng.UniformReal(-30, 30), gy = rng.UniformReal(-30, 30);
  const double base = rng.UniformReal(-128, 127), noise = rng.UniformReal(0, 80);
  for (int i = 0; i < 64; ++i) {
    const double v = base + gx * (i % 8 - 3.5) + gy * (i / 8 - 3.5) + rng.UniformReal(-noise, noise);
    f[i] = std::floor(std::min(127.0, std::max(-128.0, v)));
  }
  ExactFdct(f, F);
  Case c;
  for (int i = 0; i < 64; ++i) {
    c.table[i] = uint16_t(rng.Uniform(1, max_q));
    c.coef[i] = int16_t(std::lround(F[i] / c.table[i]));
  }
  return c;
}

// Values anywhere in their types, or extreme patterns: the saturations and
// the 32-bit wrap of the row sums.
Case Extreme(Rng& rng) {
  Case c;
  const int kind = int(rng.Uniform(0, 3));
  for (int i = 0; i < 64; ++i) {
    const int64_t big = rng.Uniform(-32768, 32767), any_q = rng.Uniform(0, 65535);
    c.coef[i] = int16_t(kind == 0 ? big : kind == 1 ? (big < 0 ? -32768 : 32767) : big / 8);
    c.table[i] = uint16_t(kind == 0 ? any_q : kind == 1 ? 1 : 1 + any_q % (kind == 2 ? 16 : 255));
  }
  return c;
}

std::vector<int> Run8(Ls8Fn fn, const int16_t* coef, const uint16_t* q) {
  uint8_t out[64];
  EXPECT_EQ(fn(coef, out, 8, q), rvtStatusOk);
  return std::vector<int>(out, out + 64);
}

// ------------------------------------------------------------ differential checks

// Case n of every form: realistic blocks (fine and coarse steps) and
// extreme ones, coefficients and table at any even address.
void BlockInputs(Rng& rng, int n, test::Case& k) {
  const Case c = n % 3 == 2 ? Extreme(rng) : Realistic(rng, n % 2 ? 255 : 16);
  k.label = "case " + std::to_string(n);
  k.in.push_back(test::ArrayOf<int16_t>(64, 2 * (n % 8)));
  std::memcpy(k.in[0].as<int16_t>(), c.coef, sizeof(c.coef));
  k.in.push_back(test::ArrayOf<uint16_t>(64, 2 * (n / 8 % 8)));
  std::memcpy(k.in[1].as<uint16_t>(), c.table, sizeof(c.table));
}

// The LS forms write a size x size plane; padded steps keep guards between
// the rows.
template <class D>
auto LsCheck(int size) {
  return test::Cases{test::Trials(1200,
                                  [size](Rng& rng, int n) {
                                    test::Case k;
                                    BlockInputs(rng, n, k);
                                    const int32_t step = int32_t(sizeof(D)) * (size + (n % 3) * 7);
                                    k.out.push_back(test::PlaneOf<D>(size, size, step, int(sizeof(D)) * (n % 5)));
                                    return k;
                                  }),
                     [](auto fn, test::Case& k) {
                       return fn(k.in[0].as<int16_t>(), k.out[0].as<D>(), k.out[0].step(),
                                 k.in[1].as<uint16_t>());
                     }};
}
RVT_CHECKASM(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R, LsCheck<uint8_t>(8));
RVT_CHECKASM(rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, LsCheck<uint8_t>(8));
RVT_CHECKASM(rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, LsCheck<uint8_t>(8));
RVT_CHECKASM(rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, LsCheck<uint8_t>(8));
RVT_CHECKASM(rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, LsCheck<uint8_t>(2));
RVT_CHECKASM(rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, LsCheck<uint8_t>(4));

// Runs of 1 to 9 blocks (odd counts leave a single block after the pairs),
// each block realistic or extreme, the row plane padded and misaligned.
RVT_CHECKASM(rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R,
             test::Cases{test::Trials(600,
                                      [](Rng& rng, int n) {
                                        test::Case k;
                                        const int blocks = 1 + n % 9;
                                        k.label = "case " + std::to_string(n) + ", " + std::to_string(blocks) + " blocks";
                                        k.in.push_back(test::ArrayOf<int16_t>(64 * blocks, 2 * (n % 8)));
                                        k.in.push_back(test::ArrayOf<uint16_t>(64, 2 * (n / 8 % 8)));
                                        for (int b = 0; b < blocks; ++b) {
                                          const Case c = (n + b) % 3 == 2 ? Extreme(rng) : Realistic(rng, b % 2 ? 255 : 16);
                                          std::memcpy(k.in[0].as<int16_t>() + 64 * b, c.coef, sizeof(c.coef));
                                          if (b == 0) std::memcpy(k.in[1].as<uint16_t>(), c.table, sizeof(c.table));
                                        }
                                        k.out.push_back(test::PlaneOf<uint8_t>(8 * blocks, 8, 8 * blocks + (n % 3) * 5, n % 5));
                                        k.in.push_back(test::ArrayOf<int32_t>(1));
                                        *k.in[2].as<int32_t>() = blocks;
                                        return k;
                                      }),
                         [](auto fn, test::Case& k) {
                           return fn(k.in[0].as<int16_t>(), k.out[0].as<uint8_t>(), k.out[0].step(),
                                     k.in[1].as<uint16_t>(), *k.in[2].as<int32_t>());
                         }});

// The single-precision form also gets blocks whose outputs spread over the
// whole 12-bit range, so that any change in the order of the float
// operations moves some value across a rounding edge.
RVT_CHECKASM(rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R,
             test::Cases{test::Trials(6200,
                                      [](Rng& rng, int n) {
                                        test::Case k;
                                        if (n < 1200) {  // then 5000 spread blocks
                                          BlockInputs(rng, n, k);
                                        } else {
                                          k.label = "spread " + std::to_string(n);
                                          k.in.push_back(test::ArrayOf<int16_t>(64));
                                          k.in[0].Fill(rng, int16_t(-2048), int16_t(2047));
                                          k.in.push_back(test::ArrayOf<uint16_t>(64));
                                          k.in[1].Fill(rng, uint16_t(1), uint16_t(1));
                                        }
                                        k.out.push_back(test::PlaneOf<uint16_t>(8, 8, 16 + 2 * (n % 3), 2 * (n % 3)));
                                        return k;
                                      }),
                         [](auto fn, test::Case& k) {
                           return fn(k.in[0].as<int16_t>(), k.out[0].as<uint16_t>(), k.out[0].step(),
                                     k.in[1].as<uint16_t>());
                         }});

RVT_CHECKASM(rvtiDCTQuantInv8x8_JPEG_16s_C1,
             test::Cases{test::Trials(1200,
                                      [](Rng& rng, int n) {
                                        test::Case k;
                                        BlockInputs(rng, n, k);
                                        k.out.push_back(test::ArrayOf<int16_t>(64, 2 * (n % 4)));
                                        return k;
                                      }),
                         [](auto fn, test::Case& k) {
                           return fn(k.in[0].as<int16_t>(), k.out[0].as<int16_t>(), k.in[1].as<uint16_t>());
                         }});

RVT_CHECKASM(rvtiDCTQuantInv8x8_JPEG_16s_C1I,
             test::Cases{test::Trials(1200,
                                      [](Rng& rng, int n) {
                                        test::Case k;
                                        BlockInputs(rng, n, k);
                                        k.out.push_back(std::move(k.in[0]));  // the block, in place
                                        k.in.erase(k.in.begin());
                                        return k;
                                      }),
                         [](auto fn, test::Case& k) { return fn(k.out[0].as<int16_t>(), k.in[0].as<uint16_t>()); }});

// ------------------------------------------------------------ forms agree

TEST(IdctForms, UnshiftedOutputPlus128IsTheLsOutput) {
  Rng rng(11);
  for (int n = 0; n < 600; ++n) {
    const Case c = n % 3 == 2 ? Extreme(rng) : Realistic(rng, n % 2 ? 255 : 16);
    int16_t plain[64];
    ASSERT_EQ(test::Reference(kPlain)(c.coef, plain, c.table), rvtStatusOk);
    uint8_t a[64];
    ASSERT_EQ(rvtiAdd128_JPEG_16s8u_C1R(plain, 16, a, 8, {8, 8}), rvtStatusOk);
    ASSERT_EQ(std::vector<int>(a, a + 64), Run8(test::Reference(kFull), c.coef, c.table)) << n;
  }
}

TEST(IdctForms, CornersEqualFullFormAndReadOnlyTheirCoefficients) {
  Rng rng(12);
  for (int n = 0; n < 1000; ++n) {
    const Case c = n % 2 ? Extreme(rng) : Realistic(rng, 40);
    for (const Ls8Form& form : kLs8Forms) {
      if (form.size != 8 || form.rows == 8) continue;
      // Exactly-sized heap copies: reading past them trips the sanitizer build.
      const int len = std::max(1, 8 * form.rows);
      std::vector<int16_t> coef(c.coef, c.coef + len);
      std::vector<uint16_t> q(c.table, c.table + len);
      Case zeroed = c;
      for (int i = len; i < 64; ++i) zeroed.coef[i] = 0;
      for (const auto& t : test::AllTargets(form.impl)) {
        const std::vector<int> got = Run8(t.fn, coef.data(), q.data());
        if (form.rows) ASSERT_EQ(got, Run8(test::Reference(kFull), zeroed.coef, zeroed.table)) << form.name << t.name;
      }
    }
  }
}

// The run form through its export, every count up to 17, is the per-block
// export block for block, and writes nothing beyond its 8 rows of 8n bytes.
TEST(IdctForms, RunOfBlocksIsThePerBlockExportBlockForBlock) {
  Rng rng(13);
  for (int n = 1; n <= 17; ++n) {
    for (int rep = 0; rep < 20; ++rep) {
      std::vector<int16_t> coef(64 * size_t(n));
      uint16_t table[64];
      for (int b = 0; b < n; ++b) {
        const Case c = (b + rep) % 3 == 0 ? Extreme(rng) : Realistic(rng, rep % 2 ? 255 : 16);
        std::memcpy(coef.data() + 64 * b, c.coef, sizeof(c.coef));
        if (b == rep % n) std::memcpy(table, c.table, sizeof(table));
      }
      GuardedPlane<uint8_t> run(8 * n, 8, 8 * n + rep % 4, rep % 3);
      ASSERT_EQ(rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R(coef.data(), run.data(), run.step(), table, n),
                rvtStatusOk);
      ASSERT_TRUE(run.GuardsIntact()) << n;
      for (int b = 0; b < n; ++b) {
        uint8_t one[64];
        ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(coef.data() + 64 * b, one, 8, table), rvtStatusOk);
        for (int i = 0; i < 64; ++i) ASSERT_EQ(run.get(8 * b + i % 8, i / 8), one[i]) << n << " block " << b;
      }
    }
  }
}

// ------------------------------------------------------------ known answers

TEST(IdctKnownAnswers, DcBlockThroughFullFormCarriesRowRounders) {
  // Row pass: row 0 is 8d + 32 everywhere; rows 1 and 2 are 1 (rounders
  // 2901 and 2260 exceed 2048), rows 3..7 are 0.  Column pass then gives
  // 8d+34 in output row 0, 8d+31 in rows 3 and 4, 8d+32 elsewhere.
  int16_t coef[64] = {};
  uint16_t q[64];
  for (auto& e : q) e = 1;
  for (int d = -1100; d <= 1100; ++d) {
    coef[0] = int16_t(d);
    for (const Ls8Form& form : kLs8Forms) {
      if (form.size != 8 || form.rows == 0) continue;
      for (const auto& t : test::AllTargets(form.impl)) {
        const std::vector<int> out = Run8(t.fn, coef, q);
        for (int i = 0; i < 64; ++i) {
          const int z = 8 * d + (i < 8 ? 34 : (i / 8 == 3 || i / 8 == 4) ? 31 : 32);
          ASSERT_EQ(out[i], std::min(255, std::max(0, (z >> 6) + 128))) << form.name << t.name << " d " << d;
        }
      }
    }
  }
}

TEST(IdctKnownAnswers, DcOnlyFormTruncates) {
  struct {
    int16_t dc;
    uint16_t q;
    int want;
  } const cases[] = {{0, 0, 128},  {100, 8, 228}, {-128, 8, 0}, {127, 8, 255}, {-1, 1, 127},
                     {7, 1, 128},  {8, 1, 129},   {-9, 1, 126}, {4096, 1, 255},
                     {32767, 8, 0},           // (262136 >> 3) + 128 = 32895 wraps to -32641
                     {-32768, 65535, 255}};  // -268431232 wraps to 4224
  for (const auto& c : cases) {
    const int16_t coef[1] = {c.dc};
    const uint16_t q[1] = {c.q};
    for (const auto& t : test::AllTargets(kLs8Forms[1].impl))
      ASSERT_EQ(Run8(t.fn, coef, q), std::vector<int>(64, c.want)) << t.name << " dc " << c.dc << " q " << c.q;
  }
}

// ------------------------------------------------------------ accuracy

struct ErrorStats {
  int64_t n = 0;
  double sum[64] = {}, sq[64] = {};
  int peak = 0;
  void Add(const int* got, const int* want) {
    ++n;
    for (int i = 0; i < 64; ++i) {
      const int e = got[i] - want[i];
      sum[i] += e, sq[i] += double(e) * e, peak = std::max(peak, std::abs(e));
    }
  }
  double Worst(const double* a, bool abs) const {
    double m = 0;
    for (int i = 0; i < 64; ++i) m = std::max(m, (abs ? std::abs(a[i]) : a[i]) / n);
    return m;
  }
  double Overall(const double* a) const { double m = 0; for (int i = 0; i < 64; ++i) m += a[i]; return m / (64.0 * n); }
  bool MeetsIeee1180() const {
    return peak <= 1 && Worst(sq, false) <= 0.06 && Overall(sq) <= 0.02 && Worst(sum, true) <= 0.015 &&
           std::abs(Overall(sum)) <= 0.0015;
  }
};

// An IDCT under test: coefficients with unit steps in, level-shifted samples out.
using IdctUnderTest = std::function<void(const int16_t*, int*)>;
void Full8(const int16_t* coef, int* out) {
  int16_t z[64];
  rvtiDCTQuantInv8x8_JPEG_16s_C1(coef, z, kOnes);
  std::copy(z, z + 64, out);
}
void Samples16(const int16_t* coef, int* out) {
  uint16_t s[64];
  rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R(coef, s, 16, kOnes);
  for (int i = 0; i < 64; ++i) out[i] = s[i] - 2048;
}

// The IEEE 1180-1990 procedure: its generator (32-bit state, reseeded per
// set), exact forward DCT rounded and clipped to 12 bits, outputs clipped
// to -256..255, compared with the rounded exact IDCT.
ErrorStats RunIeee1180(int L, int H, int sign, int blocks, const IdctUnderTest& idct) {
  uint32_t x = 1;
  ErrorStats st;
  for (int b = 0; b < blocks; ++b) {
    double f[64], F[64], g[64];
    for (int i = 0; i < 64; ++i) {
      x = x * 1103515245u + 12345u;
      f[i] = sign * (int(double(x & 0x7ffffffe) / double(0x7fffffff) * (L + H + 1)) - L);
    }
    ExactFdct(f, F);
    int16_t coef[64];
    for (int i = 0; i < 64; ++i) F[i] = coef[i] = int16_t(std::min(2047.0, std::max(-2048.0, std::floor(F[i] + 0.5))));
    ExactIdct(F, g);
    int want[64], got[64];
    idct(coef, got);
    for (int i = 0; i < 64; ++i) {
      want[i] = std::min(255, std::max(-256, int(std::floor(g[i] + 0.5))));
      got[i] = std::min(255, std::max(-256, got[i]));
    }
    st.Add(got, want);
  }
  return st;
}

void Ieee1180Report(int blocks) {
  std::printf("IEEE 1180, %d blocks per set: peak, worst pixel mse, overall mse, worst pixel mean, overall mean\n", blocks);
  for (const auto& [name, idct] : {std::make_pair("8-bit", IdctUnderTest(Full8)), std::make_pair("16s16u", IdctUnderTest(Samples16))}) {
    for (const auto [L, H] : {std::make_pair(256, 255), std::make_pair(5, 5), std::make_pair(300, 300)}) {
      for (int sign : {1, -1}) {
        const ErrorStats st = RunIeee1180(L, H, sign, blocks, idct);
        std::printf("  %-6s %s-%d..%d: %d %.5f %.5f %.5f %.6f\n", name, sign > 0 ? "  " : "-1*", L, H, st.peak,
                    st.Worst(st.sq, false), st.Overall(st.sq), st.Worst(st.sum, true), std::abs(st.Overall(st.sum)));
        EXPECT_TRUE(st.MeetsIeee1180()) << name << " " << L << " " << sign;
      }
    }
    int out[64];
    const int16_t zero[64] = {};
    idct(zero, out);
    EXPECT_EQ(std::vector<int>(out, out + 64), std::vector<int>(64, 0)) << name;
  }
}

TEST(IdctAccuracy, Ieee1180Short) { Ieee1180Report(1000); }
// The 10000-block run: --gtest_also_run_disabled_tests --gtest_filter=*Ieee1180Full
TEST(IdctAccuracy, DISABLED_Ieee1180Full) { Ieee1180Report(10000); }

TEST(IdctAccuracy, TwelveBitSamples) {
  Rng rng(14);
  ErrorStats st;
  for (int n = 0; n < 3000; ++n) {
    double f[64], F[64], g[64];
    const int amp = n % 3 == 0 ? 4096 : int(rng.Uniform(2, 4096));
    const double base = rng.UniformReal(-2048 + amp / 2, 2048 - amp / 2);
    for (int i = 0; i < 64; ++i) f[i] = std::floor(std::min(2047.0, base + rng.UniformReal(-amp / 2, amp / 2)));
    ExactFdct(f, F);
    int16_t coef[64];
    for (int i = 0; i < 64; ++i) F[i] = coef[i] = int16_t(std::floor(F[i] + 0.5));
    ExactIdct(F, g);
    int want[64], got[64];
    Samples16(coef, got);
    for (int i = 0; i < 64; ++i) want[i] = std::min(2047, std::max(-2048, int(std::floor(g[i] + 0.5))));
    st.Add(got, want);
  }
  std::printf("12-bit samples: peak %d, mse %.6f, mean %.6f\n", st.peak, st.Overall(st.sq), st.Overall(st.sum));
  EXPECT_LE(st.peak, 1);
  EXPECT_LE(st.Overall(st.sq), 0.001);
}

TEST(IdctAccuracy, ReducedOutputsAreBlockMeans) {
  Rng rng(15);
  for (const Ls8Form& form : {kLs8Forms[4], kLs8Forms[5]}) {
    const int size = form.size, span = 8 / size;
    int64_t exact = 0, total = 0;
    for (int n = 0; n < 3000; ++n) {
      const Case c = Realistic(rng, n % 2 ? 60 : 4);
      double F[64], g[64];
      for (int i = 0; i < 64; ++i) F[i] = c.coef[i] * c.table[i];
      ExactIdct(F, g);
      uint8_t out[16];
      ASSERT_EQ(test::Reference(form.impl)(c.coef, out, size, c.table), rvtStatusOk);
      for (int j = 0; j < size; ++j)
        for (int i = 0; i < size; ++i, ++total) {
          double m = 0;
          for (int k = 0; k < span * span; ++k) m += g[8 * (span * j + k / span) + span * i + k % span];
          const int want = std::min(255, std::max(0, int(std::floor(m / (span * span) + 0.5)) + 128));
          ASSERT_LE(std::abs(out[size * j + i] - want), 1) << form.name << " case " << n;
          exact += out[size * j + i] == want;
        }
    }
    std::printf("%s: %.3f%% of samples equal the rounded exact mean\n", form.name, 100.0 * exact / total);
    EXPECT_GT(exact, total * 99 / 100);
  }
}

// 8-bit grey (luma of RGB) of a PNG of the test data.
bool ReadGrey(const std::string& name, std::vector<uint8_t>* grey, int* w, int* h) {
  png_image img{};
  img.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&img, (std::string(RVT_TESTDATA_DIR) + "/" + name).c_str())) return false;
  img.format = PNG_FORMAT_GRAY;
  grey->resize(PNG_IMAGE_SIZE(img));
  *w = int(img.width), *h = int(img.height);
  return png_image_finish_read(&img, nullptr, grey->data(), 0, nullptr) != 0;
}

double Psnr(double sq, int64_t n) { return 10 * std::log10(255.0 * 255.0 * double(n) / sq); }

// libjpeg-turbo's own grey round trip (accurate integer DCT), over whole blocks.
double TurboPsnr(const std::vector<uint8_t>& img, int w, int h, int quality) {
  tjhandle c = tjInitCompress(), d = tjInitDecompress();
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  std::vector<uint8_t> back(img.size());
  EXPECT_EQ(tjCompress2(c, img.data(), w, w, h, TJPF_GRAY, &jpeg, &size, TJSAMP_GRAY, quality, TJFLAG_ACCURATEDCT), 0);
  EXPECT_EQ(tjDecompress2(d, jpeg, size, back.data(), w, w, h, TJPF_GRAY, TJFLAG_ACCURATEDCT), 0);
  tjFree(jpeg), tjDestroy(c), tjDestroy(d);
  double sq = 0;
  for (int y = 0; y < h / 8 * 8; ++y)
    for (int x = 0; x < w / 8 * 8; ++x) sq += std::pow(back[size_t(y) * w + x] - img[size_t(y) * w + x], 2);
  return Psnr(sq, int64_t(h / 8 * 8) * (w / 8 * 8));
}

TEST(IdctAccuracy, PhotoRoundTripAtQuality90) {
  // The standard luminance table, zig-zag order, at quality 90.
  uint8_t raw[64] = {16, 11, 12, 14, 12, 10, 16, 14, 13, 14, 18, 17, 16, 19, 24, 40,
                     26, 24, 22, 22, 24, 49, 35, 37, 29, 40, 58, 51, 61, 60, 57, 51,
                     56, 55, 64, 72, 92, 78, 64, 68, 87, 69, 55, 56, 80, 109, 81, 87,
                     95, 98, 103, 104, 103, 62, 77, 113, 121, 112, 100, 120, 92, 101, 103, 99};
  ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, 90), rvtStatusOk);
  uint16_t fwd[64], inv[64];
  ASSERT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, fwd), rvtStatusOk);
  ASSERT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(raw, inv), rvtStatusOk);
  for (const char* name : {"camera.png", "astronaut.png", "coffee.png", "chelsea.png"}) {
    std::vector<uint8_t> img;
    int w = 0, h = 0;
    ASSERT_TRUE(ReadGrey(name, &img, &w, &h)) << name;
    // Library forward, then the 8-bit and the 16-bit-sample inverse; exact
    // forward (rounded quotients), then the 8-bit inverse.
    double sq[3] = {};
    int64_t n = 0;
    for (int by = 0; by + 8 <= h; by += 8)
      for (int bx = 0; bx + 8 <= w; bx += 8) {
        const uint8_t* block = img.data() + size_t(by) * w + bx;
        double f[64], F[64];
        for (int i = 0; i < 64; ++i) f[i] = block[size_t(i / 8) * w + i % 8] - 128.0;
        ExactFdct(f, F);
        int16_t coef[64], exact[64];
        for (int i = 0; i < 64; ++i) exact[i] = int16_t(std::lround(F[i] / inv[i]));
        ASSERT_EQ(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(block, w, coef, fwd), rvtStatusOk);
        uint8_t out[64], out_exact[64];
        uint16_t out16[64];
        ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(coef, out, 8, inv), rvtStatusOk);
        ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R(coef, out16, 16, inv), rvtStatusOk);
        ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(exact, out_exact, 8, inv), rvtStatusOk);
        for (int i = 0; i < 64; ++i, ++n) {
          sq[0] += std::pow(out[i] - 128 - f[i], 2);
          sq[1] += std::pow(out16[i] - 2048 - f[i], 2);
          sq[2] += std::pow(out_exact[i] - 128 - f[i], 2);
        }
      }
    const double peer = TurboPsnr(img, w, h, 90);
    std::printf("%s q90: PSNR %.2f dB (8-bit), %.2f dB (16s16u), %.2f dB (exact forward, 8-bit); libjpeg-turbo %.2f dB\n",
                name, Psnr(sq[0], n), Psnr(sq[1], n), Psnr(sq[2], n), peer);
    EXPECT_GT(Psnr(sq[0], n), peer - 0.1) << name;
    EXPECT_GT(Psnr(sq[2], n), peer - 0.02) << name;
    EXPECT_NEAR(Psnr(sq[0], n), Psnr(sq[1], n), 0.3) << name;
  }
}

// ------------------------------------------------------------ argument checks

TEST(IdctChecks, InArgumentOrderAndNothingWritten) {
  const int16_t coef[64] = {100};
  for (const Ls8Form& form : kLs8Forms) {
    for (const auto& t : test::AllTargets(form.impl)) {
      GuardedPlane<uint8_t> dst(form.size, form.size);
      const GuardedPlane<uint8_t> before = dst;
      EXPECT_EQ(t.fn(nullptr, dst.data(), 0, nullptr), rvtStatusNullPtr);
      EXPECT_EQ(t.fn(coef, nullptr, 0, kOnes), rvtStatusNullPtr);
      EXPECT_EQ(t.fn(coef, dst.data(), 0, nullptr), rvtStatusStep);  // step before table
      EXPECT_EQ(t.fn(coef, dst.data(), -8, kOnes), rvtStatusStep);
      EXPECT_EQ(t.fn(coef, dst.data(), dst.step(), nullptr), rvtStatusNullPtr);
      EXPECT_TRUE(dst.Unchanged(before)) << form.name << " " << t.name;
    }
  }
  const auto ls16 = test::AllTargets(kLs16);
  const auto plain = test::AllTargets(kPlain);
  const auto in_place = test::AllTargets(kInPlace);
  for (size_t k = 0; k < ls16.size(); ++k) {
    uint16_t out16[64] = {};
    int16_t out[64] = {}, io[64] = {5};
    EXPECT_EQ(ls16[k].fn(nullptr, out16, 0, kOnes), rvtStatusNullPtr);
    EXPECT_EQ(ls16[k].fn(coef, out16, 0, nullptr), rvtStatusStep);
    EXPECT_EQ(ls16[k].fn(coef, out16, 16, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(plain[k].fn(nullptr, out, kOnes), rvtStatusNullPtr);
    EXPECT_EQ(plain[k].fn(coef, nullptr, kOnes), rvtStatusNullPtr);
    EXPECT_EQ(plain[k].fn(coef, out, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(in_place[k].fn(nullptr, kOnes), rvtStatusNullPtr);
    EXPECT_EQ(in_place[k].fn(io, nullptr), rvtStatusNullPtr);
    for (int i = 0; i < 64; ++i) ASSERT_TRUE(out16[i] == 0 && out[i] == 0 && io[i] == (i ? 0 : 5)) << ls16[k].name;
  }
}

}  // namespace
}  // namespace rvt
