// Forward DCT with quantization: the row tables against the cosines, the
// accuracy of both transforms against a double-precision DCT, the
// half-to-even quantizer, every form on every target against the
// reference (realistic and saturating inputs, unaligned and overlapping
// buffers, in place), and the argument checks.
#include <cmath>

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
  for (int v = 0; v < 8; ++v) {
    for (int u = 0; u < 8; ++u) {
      double sum = 0;
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
          sum += f[y * 8 + x] * std::cos((2 * x + 1) * u * M_PI / 16) *
                 std::cos((2 * y + 1) * v * M_PI / 16);
      out[v * 8 + u] = 0.25 * (u ? 1 : M_SQRT1_2) * (v ? 1 : M_SQRT1_2) * sum;
    }
  }
  return out;
}

TEST(FdctTables, RowTablesFollowTheCosines) {
  const int scale[8] = {16384, 22725, 21407, 19266, 16384, 19266, 21407, 22725};
  int off_by_one = 0;
  for (int v = 0; v < 8; ++v) {
    for (int u = 0; u < 8; ++u) {
      for (int k = 0; k < 8; ++k) {
        const int w = dct::kRowTables.w[v][u][k];
        const double exact =
            u ? scale[v] * M_SQRT2 * std::cos((2 * k + 1) * u * M_PI / 16) : scale[v];
        ASSERT_LE(std::abs(w - exact), 1.0) << v << " " << u << " " << k;
        off_by_one += w != std::lround(exact);
      }
    }
  }
  EXPECT_GT(off_by_one, 0);  // the kept one-off magnitudes are in use
}

std::vector<uint16_t> FwdTable(const uint8_t* raw_zigzag) {
  std::vector<uint16_t> t(64);
  rvtiQuantFwdTableInit_JPEG_8u16u(raw_zigzag, t.data());
  return t;
}

TEST(FdctFixed, AccuracyAgainstExactDct) {
  // q = 1 everywhere: the coefficients themselves.
  const std::vector<uint16_t> unit(64, 32768);
  test::Rng rng(21);
  double sum_err = 0, max_err = 0;
  int count = 0;
  for (int trial = 0; trial < 400; ++trial) {
    uint8_t px[64];
    // Noise, smooth ramps and hard edges.
    for (int i = 0; i < 64; ++i) {
      const int x = i % 8, y = i / 8;
      switch (trial % 3) {
        case 0: px[i] = uint8_t(rng.Uniform(0, 255)); break;
        case 1: px[i] = uint8_t(std::clamp(int(trial % 97 + 13 * x - 9 * y + rng.Uniform(-3, 3)), 0, 255)); break;
        default: px[i] = (x + (trial % 5) > y + 3) ? 255 : 0; break;
      }
    }
    int16_t got[64];
    ASSERT_EQ(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, got, unit.data()), rvtStatusOk);
    std::vector<double> f(64);
    for (int i = 0; i < 64; ++i) f[i] = px[i] - 128.0;
    const auto exact = ExactDct(f);
    for (int i = 0; i < 64; ++i) {
      const double e = std::abs(got[i] - exact[i]);
      sum_err += e;
      max_err = std::max(max_err, e);
      ++count;
    }
  }
  RecordProperty("max_abs_error", std::to_string(max_err));
  RecordProperty("mean_abs_error", std::to_string(sum_err / count));
  EXPECT_LT(max_err, 1.5);
  EXPECT_LT(sum_err / count, 0.35);
}

TEST(FdctFixed, FlatBlocks) {
  GuardedPlane<uint8_t> px(8, 8);
  px.FillRegionBytes(128);
  uint8_t raw[64];
  std::memset(raw, 1, 64);
  const auto unit = FwdTable(raw);
  for (const auto& t : test::AllTargets(kLS8u)) {
    int16_t out[64];
    std::memset(out, 0x55, sizeof(out));
    ASSERT_EQ(t.fn(px.data(), px.step(), out, unit.data()), rvtStatusOk);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(out[i], 0) << t.name << " " << i;
  }
  for (const auto& t : test::AllTargets(k16s)) {
    std::vector<int16_t> in(64, 100), out(64, 7);
    ASSERT_EQ(t.fn(in.data(), out.data(), unit.data()), rvtStatusOk);
    EXPECT_EQ(out[0], 800) << t.name;
    for (int i = 1; i < 64; ++i) ASSERT_EQ(out[i], 0) << t.name << " " << i;
  }
}

TEST(FdctFixed, QuantizerRoundsHalvesToEven) {
  // R = 16384 (q = 2) and R = 49152: every odd coefficient is a tie.  A flat
  // block of value c has DC 8c and nothing else.
  for (const uint16_t r : {uint16_t(16384), uint16_t(49152)}) {
    std::vector<uint16_t> tab(64, r);
    for (int c : {1, 3, 5, -1, -3, -5, 127, -128}) {
      // 8c * r / 32768: for 16384 a quarter of 8c, for 49152 three quarters.
      const double q = 8.0 * c * r / 32768;
      const double want = std::nearbyint(q);
      for (const auto& t : test::AllTargets(k16s)) {
        std::vector<int16_t> in(64, int16_t(c)), out(64);
        t.fn(in.data(), out.data(), tab.data());
        EXPECT_EQ(out[0], want) << t.name << " R " << r << " c " << c;
      }
    }
  }
  // An odd DC of 1 with R = 16384 is 0.5 and goes to 0; 3 * 0.5 to 2.
  // Reached through a ramp whose DC is odd: checked on the reference and
  // against the targets by the differential test below.
}

// Tables that stress the quantizer: ties, R >= 32768, 65535, random.
std::vector<uint16_t> StressTable(test::Rng& rng, int kind) {
  std::vector<uint16_t> t(64);
  for (int i = 0; i < 64; ++i) {
    switch (kind % 5) {
      case 0: t[i] = uint16_t((32768 + 50) / rng.Uniform(1, 100)); break;   // built tables
      case 1: t[i] = uint16_t(rng.Uniform(0, 65535)); break;
      case 2: t[i] = uint16_t(16384 * rng.Uniform(0, 3) + (i == 5 ? 1 : 0)); break;
      case 3: t[i] = uint16_t(rng.Uniform(0, 1) ? 65535 : 32768); break;
      default: t[i] = uint16_t(rng.Uniform(1, 8) << rng.Uniform(9, 13)); break;
    }
  }
  return t;
}

// 16-bit inputs: level-shifted samples, wider values, and the extremes
// that saturate the column pass.
void FillInput(test::Rng& rng, GuardedPlane<int16_t>& b, int kind) {
  switch (kind % 4) {
    case 0: b.FillRandom(rng, int16_t(-128), int16_t(127)); break;
    case 1: b.FillRandom(rng, int16_t(-2048), int16_t(2047)); break;
    case 2: b.FillRandom(rng, int16_t(-32768), int16_t(32767)); break;
    default:
      for (int i = 0; i < 64; ++i)
        b.set(i, 0, int16_t(rng.Uniform(0, 3) ? (rng.Uniform(0, 1) ? 32767 : -32768) : rng.Uniform(-9, 9)));
  }
}

TEST(FdctFixed, BlockFormsMatchReference) {
  test::Rng rng(22);
  for (int trial = 0; trial < 400; ++trial) {
    const int mis_src = trial % 8 * 2, mis_dst = (trial / 8) % 8 * 2 + (trial % 16 == 15);
    GuardedPlane<int16_t> src(64, 1, 0, mis_src);
    FillInput(rng, src, trial);
    const auto tab = StressTable(rng, trial / 4);
    GuardedPlane<int16_t> want(64, 1, 0, mis_dst);
    ASSERT_EQ(test::Reference(k16s)(src.data(), want.data(), tab.data()), rvtStatusOk);
    // In place (reference included) equals out of place.
    for (const auto& t : test::AllTargets(k16sI)) {
      GuardedPlane<int16_t> io = src;
      ASSERT_EQ(t.fn(io.data(), tab.data()), rvtStatusOk);
      ASSERT_TRUE(test::Matches(want, io, std::string(t.name) + " in place, trial " + std::to_string(trial)));
    }
    for (const auto& t : test::SimdTargets(k16s)) {
      GuardedPlane<int16_t> got(64, 1, 0, mis_dst);
      const GuardedPlane<int16_t> src_before = src;
      ASSERT_EQ(t.fn(src.data(), got.data(), tab.data()), rvtStatusOk);
      ASSERT_TRUE(test::Matches(want, got, std::string(t.name) + " trial " + std::to_string(trial)));
      ASSERT_TRUE(src.Unchanged(src_before));
    }
  }
}

TEST(FdctFixed, SampleFormMatchesReference) {
  test::Rng rng(23);
  for (int trial = 0; trial < 300; ++trial) {
    // Steps from overlapping rows (below 8) to wide, any alignment.
    const int32_t step = trial % 5 == 0 ? int32_t(rng.Uniform(1, 7)) : int32_t(rng.Uniform(8, 80));
    GuardedPlane<uint8_t> px(std::min(step, 8), 8, step, trial % 16);
    if (step < 8) {  // rows overlap: fill the bytes the block spans
      GuardedPlane<uint8_t> span(7 * step + 8, 1, 0, trial % 16);
      span.FillRandom(rng, uint8_t(0), uint8_t(255));
      px = GuardedPlane<uint8_t>(7 * step + 8, 1, 0, trial % 16);
      px.CopyFrom(span);
    } else if (trial % 7 == 1) {
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) px.set(x, y, uint8_t(((x ^ y) & 1) ? 255 : 0));
    } else {
      px.FillRandom(rng, uint8_t(0), uint8_t(255));
    }
    const auto tab = StressTable(rng, trial);
    GuardedPlane<int16_t> want(64, 1, 0, (trial * 3) % 16);
    ASSERT_EQ(test::Reference(kLS8u)(px.data(), step, want.data(), tab.data()), rvtStatusOk);
    // Same samples, level-shifted by hand, through the 16-bit form.
    std::vector<int16_t> shifted(64), via16(64);
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x)
        shifted[y * 8 + x] = int16_t(reinterpret_cast<const uint8_t*>(px.data())[y * step + x] - 128);
    test::Reference(k16s)(shifted.data(), via16.data(), tab.data());
    for (int i = 0; i < 64; ++i) ASSERT_EQ(via16[i], want.get(i, 0)) << i;
    for (const auto& t : test::SimdTargets(kLS8u)) {
      GuardedPlane<int16_t> got(64, 1, 0, (trial * 3) % 16);
      ASSERT_EQ(t.fn(px.data(), step, got.data(), tab.data()), rvtStatusOk);
      ASSERT_TRUE(test::Matches(want, got, std::string(t.name) + " trial " + std::to_string(trial)));
    }
  }
}

// ---- floating-point form

TEST(FdctFloat, AccuracyAndRounding) {
  const std::vector<float> unit(64, 1.0f);
  test::Rng rng(24);
  double max_err = 0;
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<uint16_t> px(64);
    for (auto& p : px) p = uint16_t(rng.Uniform(0, 4095));
    int16_t got[64];
    ASSERT_EQ(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(px.data(), 16, got, unit.data()), rvtStatusOk);
    std::vector<double> f(64);
    for (int i = 0; i < 64; ++i) f[i] = px[i] - 2048.0;
    const auto exact = ExactDct(f);
    for (int i = 0; i < 64; ++i) max_err = std::max(max_err, std::abs(got[i] - exact[i]));
  }
  RecordProperty("max_abs_error_12bit", std::to_string(max_err));
  EXPECT_LT(max_err, 0.5 + 1e-3);

  // Flat blocks: DC = 8 (s - 2048), nothing else; with 1/16 the halves of
  // odd values round to even.
  const std::vector<float> sixteenth(64, 0.0625f);
  for (const int s : {2049, 2051, 2047, 2045, 0, 65535}) {
    const std::vector<uint16_t> px(64, uint16_t(s));
    for (const auto& t : test::AllTargets(kLS16u)) {
      int16_t got[64];
      ASSERT_EQ(t.fn(px.data(), 16, got, sixteenth.data()), rvtStatusOk);
      const double dc = 8.0 * (s - 2048) / 16;
      EXPECT_EQ(got[0], std::min(std::nearbyint(dc), 32767.0)) << t.name << " " << s;
      for (int i = 1; i < 64; ++i) ASSERT_EQ(got[i], 0) << t.name << " " << s;
    }
  }
}

TEST(FdctFloat, SaturationAndOddTables) {
  std::vector<uint16_t> px(64);
  std::vector<double> f(64);
  for (int i = 0; i < 64; ++i) {
    px[i] = uint16_t(i % 2 ? 4095 : 0);
    f[i] = px[i] - 2048.0;
  }
  const auto exact = ExactDct(f);  // DC -4, AC (0, 1) large, column 0 zero
  ASSERT_LT(exact[0], 0);
  ASSERT_GT(std::abs(exact[1]), 1000);
  std::vector<float> tab(64, 1e30f);
  tab[1] = -1e30f;
  tab[2] = std::nanf("");
  tab[3] = 0.0f;
  tab[4] = std::numeric_limits<float>::infinity();
  for (const auto& t : test::AllTargets(kLS16u)) {
    int16_t got[64];
    ASSERT_EQ(t.fn(px.data(), 16, got, tab.data()), rvtStatusOk);
    EXPECT_EQ(got[0], -32768) << t.name;  // DC is negative
    EXPECT_EQ(got[1], exact[1] > 0 ? -32768 : 32767) << t.name;  // times -1e30
    EXPECT_EQ(got[2], -32768) << t.name;  // NaN
    EXPECT_EQ(got[3], 0) << t.name;
    EXPECT_EQ(got[9], 0) << t.name;       // zero coefficient: 0 * 1e30
  }
}

TEST(FdctFloat, TargetsMatchReference) {
  test::Rng rng(25);
  for (int trial = 0; trial < 300; ++trial) {
    const int32_t step = int32_t(2 * rng.Uniform(8, 40));
    GuardedPlane<uint16_t> px(8, 8, step + (trial % 3 == 0 ? 1 : 0), trial % 16);
    px.FillRandom(rng, uint16_t(0), uint16_t(trial % 2 ? 4095 : 65535));
    std::vector<float> tab(64);
    for (int i = 0; i < 64; ++i) {
      const double q = rng.Uniform(1, 255);
      tab[i] = float(trial % 4 == 3 ? rng.UniformReal(-1e6, 1e6) : 1.0 / q);
    }
    GuardedPlane<int16_t> want(64, 1, 0, trial % 8);
    ASSERT_EQ(test::Reference(kLS16u)(px.data(), px.step(), want.data(), tab.data()), rvtStatusOk);
    for (const auto& t : test::SimdTargets(kLS16u)) {
      GuardedPlane<int16_t> got(64, 1, 0, trial % 8);
      ASSERT_EQ(t.fn(px.data(), px.step(), got.data(), tab.data()), rvtStatusOk);
      ASSERT_TRUE(test::Matches(want, got, std::string(t.name) + " trial " + std::to_string(trial)));
    }
  }
}

// ---- argument checks

TEST(Fdct, ChecksInArgumentOrderWriteNothing) {
  GuardedPlane<int16_t> dst(64, 1);
  const GuardedPlane<int16_t> before = dst;
  const int16_t src16[64] = {};
  const uint8_t src8[64] = {};
  const uint16_t srcu[64] = {};
  const uint16_t tab[64] = {};
  const float ftab[64] = {};
  int16_t* d = dst.data();
  for (const auto& t : test::AllTargets(k16s)) {
    EXPECT_EQ(t.fn(nullptr, nullptr, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(src16, nullptr, tab), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(src16, d, nullptr), rvtStatusNullPtr);
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
  const Case cases[] = {
      {false, true, 0, true, rvtStatusNullPtr},   // pointers before the step
      {true, false, 0, true, rvtStatusNullPtr},
      {true, true, 0, false, rvtStatusStep},      // the step before the table
      {true, true, -8, true, rvtStatusStep},
      {true, true, 8, false, rvtStatusNullPtr},
  };
  for (const Case& c : cases) {
    int16_t* out = c.dst ? d : nullptr;
    for (const auto& t : test::AllTargets(kLS8u))
      EXPECT_EQ(t.fn(c.src ? src8 : nullptr, c.step, out, c.table ? tab : nullptr), c.want) << t.name;
    for (const auto& t : test::AllTargets(kLS16u))
      EXPECT_EQ(t.fn(c.src ? srcu : nullptr, 2 * c.step, out, c.table ? ftab : nullptr), c.want) << t.name;
  }
  EXPECT_TRUE(dst.Unchanged(before));
}

TEST(Fdct, ExportsRunTheChosenTarget) {
  test::Rng rng(26);
  uint8_t px[64];
  rng.Fill(px, 64, uint8_t(0), uint8_t(255));
  const auto tab = StressTable(rng, 1);
  int16_t a[64], b[64];
  ASSERT_EQ(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(px, 8, a, tab.data()), rvtStatusOk);
  ASSERT_EQ(test::Reference(kLS8u)(px, 8, b, tab.data()), rvtStatusOk);
  EXPECT_EQ(std::memcmp(a, b, sizeof(a)), 0);
}

}  // namespace
}  // namespace rvt
