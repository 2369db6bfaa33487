// Inverse DCT with dequantization: every target against the reference on
// realistic and saturating blocks at odd addresses and steps; known answers
// worked out from the fixed-point steps; the corner forms against the full
// form; accuracy against a double-precision IDCT (the IEEE 1180 procedure,
// 12-bit samples, the reduced outputs, photo blocks); argument checks.
#include <png.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <string>

#include "checkasm.h"
#include "jpeg/dct_inv_tables.h"

namespace rvt {
namespace {

using test::GuardedPlane;
using test::Rng;

using Ls8Fn = RvtResult (*)(const int16_t*, uint8_t*, int32_t, const uint16_t*);
struct Ls8Form {
  const char* name;
  const Impl<Ls8Fn>& impl;
  int size;  // output rows and columns
};
const Ls8Form kLs8Forms[] = {
    {"full", impl_rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R, 8},
    {"1x1", impl_rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, 8},
    {"2x2", impl_rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, 8},
    {"4x4", impl_rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, 8},
    {"To2x2", impl_rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, 2},
    {"To4x4", impl_rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, 4},
};
const auto& kFull = impl_rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R;
const auto& kLs16 = impl_rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R;
const auto& kPlain = impl_rvtiDCTQuantInv8x8_JPEG_16s_C1;
const auto& kInPlace = impl_rvtiDCTQuantInv8x8_JPEG_16s_C1I;

// ------------------------------------------------------------ exact transforms

// B[u][x] = c(u)/2 cos((2x+1) u pi/16): the 8-point orthonormal basis.
struct Basis {
  double b[8][8];
  Basis() {
    for (int u = 0; u < 8; ++u)
      for (int x = 0; x < 8; ++x) b[u][x] = (u ? 0.5 : std::sqrt(0.125)) * std::cos((2 * x + 1) * u * M_PI / 16);
  }
};
const Basis kBasis;

// f(x, y) = 1/4 sum c(u) c(v) F(u, v) cos cos (index y * 8 + x, v * 8 + u),
// in two separable passes.
void ExactIdct(const double* F, double* f) {
  double t[64] = {};
  for (int v = 0; v < 8; ++v)
    for (int x = 0; x < 8; ++x)
      for (int u = 0; u < 8; ++u) t[8 * v + x] += F[8 * v + u] * kBasis.b[u][x];
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      double s = 0;
      for (int v = 0; v < 8; ++v) s += t[8 * v + x] * kBasis.b[v][y];
      f[8 * y + x] = s;
    }
}
void ExactFdct(const double* f, double* F) {
  double t[64] = {};
  for (int y = 0; y < 8; ++y)
    for (int u = 0; u < 8; ++u)
      for (int x = 0; x < 8; ++x) t[8 * y + u] += f[8 * y + x] * kBasis.b[u][x];
  for (int v = 0; v < 8; ++v)
    for (int u = 0; u < 8; ++u) {
      double s = 0;
      for (int y = 0; y < 8; ++y) s += t[8 * y + u] * kBasis.b[v][y];
      F[8 * v + u] = s;
    }
}

// ------------------------------------------------------------ blocks

struct Case {
  int16_t coef[64];
  uint16_t table[64];
};

// Quantized coefficients of level-shifted 8-bit samples (smooth ramps plus
// noise), with a table of steps 1..max_q.
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

// Coefficients and steps anywhere in their types, or extreme patterns, to
// reach the saturations and the 32-bit wrap of the row sums.
Case Extreme(Rng& rng) {
  Case c;
  const int kind = int(rng.Uniform(0, 3));
  for (int i = 0; i < 64; ++i) {
    switch (kind) {
      case 0: c.coef[i] = int16_t(rng.Uniform(-32768, 32767)); c.table[i] = uint16_t(rng.Uniform(0, 65535)); break;
      case 1: c.coef[i] = rng.Uniform(0, 1) ? 32767 : -32768; c.table[i] = 1; break;
      case 2: c.coef[i] = int16_t(rng.Uniform(-4096, 4096)); c.table[i] = uint16_t(rng.Uniform(1, 16)); break;
      default: c.coef[i] = int16_t((i % 3 ? 1 : -1) * rng.Uniform(0, 2047)); c.table[i] = uint16_t(rng.Uniform(1, 255)); break;
    }
  }
  return c;
}

// A block placed `offset` elements past a 64-byte boundary.
template <class T>
struct Misplaced {
  explicit Misplaced(const T* v, int offset) : buf(64 + 80), p(Aligned() + offset) {
    std::memcpy(p, v, 64 * sizeof(T));
  }
  T* Aligned() {
    const uintptr_t a = reinterpret_cast<uintptr_t>(buf.data());
    return reinterpret_cast<T*>((a + 63) & ~uintptr_t(63));
  }
  std::vector<T> buf;
  T* p;
};

// ------------------------------------------------------------ targets agree

TEST(IdctTargets, EveryFormMatchesReferenceOnEveryTarget) {
  Rng rng(11);
  for (int n = 0; n < 1200; ++n) {
    const Case c = n % 3 == 2 ? Extreme(rng) : Realistic(rng, n % 2 ? 255 : 16);
    const int off = n % 8, toff = (n / 8) % 8, mis = n % 5;
    const Misplaced<int16_t> src(c.coef, off);
    const Misplaced<uint16_t> tab(c.table, toff);
    for (const Ls8Form& form : kLs8Forms) {
      const int32_t step = form.size + int32_t(n % 3) * 7;
      GuardedPlane<uint8_t> want(form.size, form.size, step, mis);
      ASSERT_EQ(test::Reference(form.impl)(src.p, want.data(), step, tab.p), rvtStatusOk);
      for (const auto& t : test::AllTargets(form.impl)) {
        GuardedPlane<uint8_t> got(form.size, form.size, step, mis);
        ASSERT_EQ(t.fn(src.p, got.data(), step, tab.p), rvtStatusOk);
        ASSERT_TRUE(test::Matches(want, got, std::string(form.name) + " " + t.name + " case " + std::to_string(n)));
      }
    }
    GuardedPlane<uint16_t> want16(8, 8, 16 + 2 * (n % 3), mis & ~1);
    ASSERT_EQ(test::Reference(kLs16)(src.p, want16.data(), want16.step(), tab.p), rvtStatusOk);
    GuardedPlane<int16_t> plain_want(64, 1, 128, 0);
    ASSERT_EQ(test::Reference(kPlain)(src.p, plain_want.data(), tab.p), rvtStatusOk);
    for (const auto& t : test::AllTargets(kLs16)) {
      GuardedPlane<uint16_t> got(8, 8, want16.step(), mis & ~1);
      ASSERT_EQ(t.fn(src.p, got.data(), got.step(), tab.p), rvtStatusOk);
      ASSERT_TRUE(test::Matches(want16, got, std::string("16s16u ") + t.name + " case " + std::to_string(n)));
    }
    for (const auto& t : test::AllTargets(kPlain)) {
      GuardedPlane<int16_t> got(64, 1, 128, 2 * (n % 4));
      ASSERT_EQ(t.fn(src.p, got.data(), tab.p), rvtStatusOk);
      ASSERT_TRUE(test::Matches(plain_want, got, std::string("16s ") + t.name));
    }
    for (const auto& t : test::AllTargets(kInPlace)) {
      Misplaced<int16_t> io(c.coef, (off + 3) % 8);
      ASSERT_EQ(t.fn(io.p, tab.p), rvtStatusOk);
      ASSERT_EQ(std::memcmp(io.p, plain_want.data(), 128), 0) << "in place " << t.name;
    }
  }
}

// ------------------------------------------------------------ known answers

// Level-shifted 8-bit outputs of the full form for one block.
std::vector<int> FullOutputs(Ls8Fn fn, const int16_t* coef, const uint16_t* q) {
  uint8_t out[64];
  EXPECT_EQ(fn(coef, out, 8, q), rvtStatusOk);
  return std::vector<int>(out, out + 64);
}

TEST(IdctKnownAnswers, DcBlockThroughFullFormCarriesRowRounders) {
  // Row pass: row 0 is 8d + 32 everywhere; rows 1 and 2 are 1 (rounders
  // 2901 and 2260 exceed 2048), rows 3..7 are 0.  Column pass then gives
  // 8d+34 in output row 0, 8d+31 in rows 3 and 4, 8d+32 elsewhere.
  for (int d = -1100; d <= 1100; ++d) {
    int16_t coef[64] = {};
    uint16_t q[64];
    for (auto& e : q) e = 1;
    coef[0] = int16_t(d);
    auto expect = [&](int r) {
      const int z = 8 * d + (r == 0 ? 34 : (r == 3 || r == 4) ? 31 : 32);
      return std::min(255, std::max(0, (z >> 6) + 128));
    };
    for (const Ls8Form& form : kLs8Forms) {
      if (form.size != 8 || std::string(form.name) == "1x1") continue;
      for (const auto& t : test::AllTargets(form.impl)) {
        const std::vector<int> out = FullOutputs(t.fn, coef, q);
        for (int i = 0; i < 64; ++i)
          ASSERT_EQ(out[i], expect(i / 8)) << form.name << " " << t.name << " d=" << d << " at " << i;
      }
    }
  }
}

TEST(IdctKnownAnswers, DcOnlyFormTruncates) {
  struct {
    int16_t dc;
    uint16_t q;
    int want;
  } const cases[] = {{0, 0, 128}, {100, 8, 228}, {-128, 8, 0}, {127, 8, 255}, {-1, 1, 127},
                     {7, 1, 128},  {8, 1, 129},  {-8, 1, 127},  {-9, 1, 126},
                     {32767, 8, 0},  // (262136 >> 3) + 128 = 32895 wraps to -32641
                     {-32768, 65535, 255}, {4096, 1, 255}};  // -268431232 wraps to 4224
  for (const auto& c : cases) {
    int16_t coef[64];
    uint16_t q[64];
    for (int i = 0; i < 64; ++i) coef[i] = 999, q[i] = 999;  // never read
    coef[0] = c.dc;
    q[0] = c.q;
    for (const auto& t : test::AllTargets(impl_rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R)) {
      for (int v : FullOutputs(t.fn, coef, q)) ASSERT_EQ(v, c.want) << t.name << " dc " << c.dc << " q " << c.q;
    }
  }
}

// ------------------------------------------------------------ corners, unshifted

TEST(IdctForms, CornersEqualFullFormAndReadOnlyTheirRows) {
  Rng rng(12);
  for (int n = 0; n < 2000; ++n) {
    Case c = n % 2 ? Extreme(rng) : Realistic(rng, 40);
    for (int rows : {2, 4}) {
      const auto& impl = rows == 2 ? kLs8Forms[2].impl : kLs8Forms[3].impl;
      // Exactly-sized heap copies: reading past them trips the sanitizer build.
      std::vector<int16_t> coef(c.coef, c.coef + 8 * rows);
      std::vector<uint16_t> q(c.table, c.table + 8 * rows);
      Case zeroed = c;
      for (int i = 8 * rows; i < 64; ++i) zeroed.coef[i] = 0;
      const std::vector<int> want = FullOutputs(test::Reference(kFull), zeroed.coef, zeroed.table);
      for (const auto& t : test::AllTargets(impl))
        ASSERT_EQ(FullOutputs(t.fn, coef.data(), q.data()), want) << rows << "x" << rows << " " << t.name;
    }
    std::vector<int16_t> dc(1, c.coef[0]);
    std::vector<uint16_t> dq(1, c.table[0]);
    for (const auto& t : test::AllTargets(impl_rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R))
      FullOutputs(t.fn, dc.data(), dq.data());
  }
}

TEST(IdctForms, UnshiftedOutputPlus128IsTheLsOutput) {
  Rng rng(13);
  for (int n = 0; n < 500; ++n) {
    const Case c = n % 2 ? Extreme(rng) : Realistic(rng, 30);
    int16_t z[64];
    ASSERT_EQ(rvtiDCTQuantInv8x8_JPEG_16s_C1(c.coef, z, c.table), rvtStatusOk);
    uint8_t a[64], b[64];
    ASSERT_EQ(rvtiAdd128_JPEG_16s8u_C1R(z, 16, a, 8, {8, 8}), rvtStatusOk);
    ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c.coef, b, 8, c.table), rvtStatusOk);
    ASSERT_EQ(std::memcmp(a, b, 64), 0) << n;
    for (int16_t v : z) ASSERT_TRUE(v >= -512 && v <= 511);
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
  double PeakMse() const { double m = 0; for (double s : sq) m = std::max(m, s / n); return m; }
  double Mse() const { double m = 0; for (double s : sq) m += s; return m / (64.0 * n); }
  double PeakMean() const { double m = 0; for (double s : sum) m = std::max(m, std::abs(s) / n); return m; }
  double Mean() const { double m = 0; for (double s : sum) m += s; return std::abs(m) / (64.0 * n); }
  bool MeetsIeee1180() const {
    return peak <= 1 && PeakMse() <= 0.06 && Mse() <= 0.02 && PeakMean() <= 0.015 && Mean() <= 0.0015;
  }
};

// The IEEE 1180-1990 generator (32-bit state, reseeded for each set).
struct Ieee1180Random {
  uint32_t x = 1;
  int Next(int L, int H) {
    x = x * 1103515245u + 12345u;
    const double v = double(x & 0x7ffffffe) / double(0x7fffffff) * (L + H + 1);
    return int(v) - L;
  }
};

// An IDCT under test: coefficients with unit steps in, level-shifted
// samples out (before any clipping).
using IdctUnderTest = std::function<void(const int16_t*, int*)>;

ErrorStats RunIeee1180(int L, int H, int sign, int blocks, const IdctUnderTest& idct) {
  Ieee1180Random rng;
  ErrorStats st;
  for (int b = 0; b < blocks; ++b) {
    double f[64], F[64], g[64];
    for (int i = 0; i < 64; ++i) f[i] = sign * rng.Next(L, H);
    ExactFdct(f, F);
    int16_t coef[64];
    for (int i = 0; i < 64; ++i) {
      coef[i] = int16_t(std::min(2047.0, std::max(-2048.0, std::floor(F[i] + 0.5))));
      F[i] = coef[i];
    }
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

const uint16_t* UnitTable() {
  static const std::vector<uint16_t> ones(64, 1);
  return ones.data();
}
void Full8(const int16_t* coef, int* out) {
  int16_t z[64];
  rvtiDCTQuantInv8x8_JPEG_16s_C1(coef, z, UnitTable());
  for (int i = 0; i < 64; ++i) out[i] = z[i];
}
void Samples16(const int16_t* coef, int* out) {
  uint16_t s[64];
  rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R(coef, s, 16, UnitTable());
  for (int i = 0; i < 64; ++i) out[i] = s[i] - 2048;
}

// Runs the six sets; both transforms meet the bounds.
void Ieee1180Report(int blocks) {
  const struct { int L, H; } ranges[] = {{256, 255}, {5, 5}, {300, 300}};
  std::printf("IEEE 1180, %d blocks per set: peak, worst pixel mse, overall mse, worst pixel mean, overall mean\n", blocks);
  for (const auto& form : {std::make_pair("8-bit", IdctUnderTest(Full8)), std::make_pair("16s16u", IdctUnderTest(Samples16))}) {
    for (const auto& r : ranges) {
      for (int sign : {1, -1}) {
        const ErrorStats st = RunIeee1180(r.L, r.H, sign, blocks, form.second);
        std::printf("  %-6s -%d..%d %s: %d %.5f %.5f %.5f %.6f%s\n", form.first, r.L, r.H, sign > 0 ? "  " : "-1",
                    st.peak, st.PeakMse(), st.Mse(), st.PeakMean(), st.Mean(), st.MeetsIeee1180() ? "" : "  (outside)");
        EXPECT_TRUE(st.MeetsIeee1180()) << form.first << " " << r.L << " " << sign;
      }
    }
  }
  int zero_out[64];
  const int16_t zero[64] = {};
  for (auto* fn : {Full8, Samples16}) {
    fn(zero, zero_out);
    for (int v : zero_out) EXPECT_EQ(v, 0);
  }
}

TEST(IdctAccuracy, Ieee1180Short) { Ieee1180Report(1000); }
// The full 10000-block run: --gtest_also_run_disabled_tests --gtest_filter=*Ieee1180Full
TEST(IdctAccuracy, DISABLED_Ieee1180Full) { Ieee1180Report(10000); }

TEST(IdctAccuracy, TwelveBitSamples) {
  Rng rng(14);
  ErrorStats st;
  for (int n = 0; n < 3000; ++n) {
    double f[64], F[64], g[64];
    const int amp = n % 3 == 0 ? 2048 : int(rng.Uniform(1, 2048));
    const double base = rng.UniformReal(-2048 + amp / 2, 2047 - amp / 2);
    for (int i = 0; i < 64; ++i) f[i] = std::floor(std::min(2047.0, std::max(-2048.0, base + rng.UniformReal(-amp / 2, amp / 2))));
    ExactFdct(f, F);
    int16_t coef[64];
    for (int i = 0; i < 64; ++i) F[i] = coef[i] = int16_t(std::floor(F[i] + 0.5));
    ExactIdct(F, g);
    int want[64], got[64];
    Samples16(coef, got);
    for (int i = 0; i < 64; ++i) want[i] = std::min(2047, std::max(-2048, int(std::floor(g[i] + 0.5))));
    st.Add(got, want);
  }
  std::printf("12-bit samples: peak %d, mse %.5f, mean %.5f\n", st.peak, st.Mse(), st.Mean());
  EXPECT_LE(st.peak, 1);
  EXPECT_LE(st.Mse(), 0.001);
}

TEST(IdctAccuracy, ReducedOutputsAreBlockMeans) {
  Rng rng(15);
  for (int size : {2, 4}) {
    const auto& impl = size == 2 ? kLs8Forms[4].impl : kLs8Forms[5].impl;
    int64_t exact = 0, total = 0;
    for (int n = 0; n < 3000; ++n) {
      const Case c = Realistic(rng, n % 2 ? 60 : 4);
      double F[64], g[64];
      for (int i = 0; i < 64; ++i) F[i] = int16_t(c.coef[i] * c.table[i]);
      ExactIdct(F, g);
      uint8_t out[16];
      ASSERT_EQ(impl.fn[kRef](c.coef, out, size, c.table), rvtStatusOk);
      const int span = 8 / size;
      for (int j = 0; j < size; ++j)
        for (int i = 0; i < size; ++i) {
          double m = 0;
          for (int y = 0; y < span; ++y)
            for (int x = 0; x < span; ++x) m += g[8 * (span * j + y) + span * i + x];
          const int want = std::min(255, std::max(0, int(std::floor(m / (span * span) + 0.5)) + 128));
          ASSERT_LE(std::abs(out[size * j + i] - want), 1) << size << " case " << n;
          exact += out[size * j + i] == want, ++total;
        }
    }
    std::printf("To%dx%d: %.3f%% of samples equal the rounded exact mean\n", size, size, 100.0 * exact / total);
    EXPECT_GT(exact, total * 99 / 100);
  }
}

// ------------------------------------------------------------ photos

// 8-bit grey (luma for RGB) of a PNG from the test data.
bool ReadGrey(const std::string& name, std::vector<uint8_t>* grey, int* w, int* h) {
  png_image img{};
  img.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&img, (std::string(RVT_TESTDATA_DIR) + "/" + name).c_str())) return false;
  img.format = PNG_FORMAT_GRAY;
  grey->resize(PNG_IMAGE_SIZE(img));
  *w = int(img.width), *h = int(img.height);
  return png_image_finish_read(&img, nullptr, grey->data(), 0, nullptr) != 0;
}

TEST(IdctAccuracy, PhotoRoundTripAtQuality90) {
  // The standard luminance table, zig-zag order, at quality 90.
  uint8_t raw[64] = {16, 11, 12, 14, 12, 10, 16, 14, 13, 14, 18, 17, 16, 19, 24, 40,
                     26, 24, 22, 22, 24, 49, 35, 37, 29, 40, 58, 51, 61, 60, 57, 51,
                     56, 55, 64, 72, 92, 78, 64, 68, 87, 69, 55, 56, 80, 109, 81, 87,
                     95, 98, 103, 104, 103, 62, 77, 113, 121, 112, 100, 120, 92, 101, 103, 99};
  ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, 90), rvtStatusOk);
  uint16_t inv[64];
  ASSERT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(raw, inv), rvtStatusOk);
  for (const char* name : {"camera.png", "astronaut.png", "coffee.png", "chelsea.png"}) {
    std::vector<uint8_t> img;
    int w = 0, h = 0;
    ASSERT_TRUE(ReadGrey(name, &img, &w, &h)) << name;
    double sq8 = 0, sq16 = 0;
    int64_t n = 0;
    for (int by = 0; by + 8 <= h; by += 8)
      for (int bx = 0; bx + 8 <= w; bx += 8) {
        double f[64], F[64];
        for (int i = 0; i < 64; ++i) f[i] = img[size_t(by + i / 8) * w + bx + i % 8] - 128.0;
        ExactFdct(f, F);
        int16_t coef[64];
        for (int i = 0; i < 64; ++i) coef[i] = int16_t(std::lround(F[i] / inv[i]));
        uint8_t out[64];
        uint16_t out16[64];
        ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(coef, out, 8, inv), rvtStatusOk);
        ASSERT_EQ(rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R(coef, out16, 16, inv), rvtStatusOk);
        for (int i = 0; i < 64; ++i) {
          const double e8 = out[i] - (f[i] + 128), e16 = out16[i] - 2048 - f[i];
          sq8 += e8 * e8, sq16 += e16 * e16, ++n;
        }
      }
    const double psnr8 = 10 * std::log10(255.0 * 255.0 * n / sq8);
    const double psnr16 = 10 * std::log10(255.0 * 255.0 * n / sq16);
    std::printf("%s q90 round trip: PSNR %.2f dB (8-bit LS), %.2f dB (16s16u)\n", name, psnr8, psnr16);
    EXPECT_GT(psnr8, 36.0) << name;
    EXPECT_NEAR(psnr8, psnr16, 0.3) << name;
  }
}

// ------------------------------------------------------------ argument checks

TEST(IdctChecks, InArgumentOrderAndNothingWritten) {
  int16_t coef[64] = {100};
  uint16_t q[64];
  for (auto& e : q) e = 1;
  for (const Ls8Form& form : kLs8Forms) {
    for (const auto& t : test::AllTargets(form.impl)) {
      GuardedPlane<uint8_t> dst(form.size, form.size);
      const GuardedPlane<uint8_t> before = dst;
      EXPECT_EQ(t.fn(nullptr, dst.data(), 0, nullptr), rvtStatusNullPtr);
      EXPECT_EQ(t.fn(coef, nullptr, 0, q), rvtStatusNullPtr);
      EXPECT_EQ(t.fn(coef, dst.data(), 0, nullptr), rvtStatusStep);  // step before table
      EXPECT_EQ(t.fn(coef, dst.data(), -8, q), rvtStatusStep);
      EXPECT_EQ(t.fn(coef, dst.data(), dst.step(), nullptr), rvtStatusNullPtr);
      EXPECT_TRUE(dst.Unchanged(before)) << form.name << " " << t.name;
    }
  }
  for (const auto& t : test::AllTargets(kLs16)) {
    uint16_t out[64] = {};
    EXPECT_EQ(t.fn(nullptr, out, 0, q), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(coef, out, 0, nullptr), rvtStatusStep);
    EXPECT_EQ(t.fn(coef, out, 16, nullptr), rvtStatusNullPtr);
    for (uint16_t v : out) EXPECT_EQ(v, 0);
  }
  for (const auto& t : test::AllTargets(kPlain)) {
    int16_t out[64] = {};
    EXPECT_EQ(t.fn(nullptr, out, q), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(coef, nullptr, q), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(coef, out, nullptr), rvtStatusNullPtr);
    for (int16_t v : out) EXPECT_EQ(v, 0);
  }
  for (const auto& t : test::AllTargets(kInPlace)) {
    int16_t io[64] = {5};
    EXPECT_EQ(t.fn(nullptr, q), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(io, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(io[0], 5);
  }
}

}  // namespace
}  // namespace rvt
