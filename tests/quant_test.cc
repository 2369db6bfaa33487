// Quantization tables and the 8x8 quantizer / dequantizer: quality scaling
// against libjpeg-turbo, table layouts, the quantizer's own rounding, every
// target against the reference on guarded blocks, argument checks.
#include <array>
#include <cstdio>  // jpeglib.h needs FILE and size_t first
#include <limits>

#include <jpeglib.h>

#include "checkasm.h"
#include "frame/widen.h"

namespace rvt {
namespace {

using test::GuardedPlane;
const auto& kFwd = impl_rvtiQuantFwd8x8_JPEG_16s_C1I;
const auto& kInv = impl_rvtiQuantInv8x8_JPEG_16s_C1I;

TEST(QuantTables, QualityScaling) {
  jpeg_compress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_compress(&cinfo);
  unsigned basic[64];
  for (int i = 0; i < 64; ++i) basic[i] = unsigned(i * 4 + (i & 3));  // 0..255
  for (int quality = 1; quality <= 100; ++quality) {
    uint8_t raw[64];
    std::copy(basic, basic + 64, raw);
    ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, quality), rvtStatusOk);
    jpeg_add_quant_table(&cinfo, 0, basic, jpeg_quality_scaling(quality), TRUE);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(raw[i], cinfo.quant_tbl_ptrs[0]->quantval[i]) << quality;
  }
  jpeg_destroy_compress(&cinfo);
  // Above 100 the scale is negative: every step becomes 1, for any quality.
  for (int quality : {101, 1000, std::numeric_limits<int32_t>::max()}) {
    uint8_t raw[64];
    std::copy(basic, basic + 64, raw);
    ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, quality), rvtStatusOk);
    for (uint8_t v : raw) ASSERT_EQ(v, 1) << quality;
  }
  uint8_t raw[64] = {7};
  EXPECT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, 0), rvtStatusBadArg);
  EXPECT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, std::numeric_limits<int32_t>::min()), rvtStatusBadArg);
  EXPECT_EQ(raw[0], 7);
  EXPECT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(nullptr, 0), rvtStatusNullPtr);
}

TEST(QuantTables, NaturalOrderReciprocalsAndZeroSteps) {
  // Natural position of each zig-zag index: the anti-diagonals, alternating.
  std::vector<int> nat;
  for (int s = 0; s < 15; ++s)
    for (int i = 0; i <= s; ++i) {
      const int r = (s % 2) ? i : s - i, c = s - r;
      if (r < 8 && c < 8) nat.push_back(r * 8 + c);
    }
  for (int base = 0; base < 256; base += 64) {
    uint8_t raw[64];
    for (int z = 0; z < 64; ++z) raw[z] = uint8_t(base + z);
    uint16_t fwd[64], inv[64];
    ASSERT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(raw, inv), rvtStatusOk);
    ASSERT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, fwd), base ? rvtStatusOk : rvtStatusDivByZero);
    for (int z = 0; z < 64; ++z) {
      const int q = raw[z];
      ASSERT_EQ(inv[nat[z]], q);
      if (q) ASSERT_LE(std::abs(fwd[nat[z]] * q - 32768), q / 2) << q;  // nearest reciprocal
    }
    if (!base) EXPECT_EQ(fwd[0], 65535);  // the zero step; the rest still built
    if (!base) EXPECT_EQ(fwd[1], 32768);
  }
  uint16_t t[64] = {1};
  const uint8_t raw[64] = {};
  EXPECT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(nullptr, t), rvtStatusNullPtr);
  EXPECT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(nullptr, t), rvtStatusNullPtr);
  EXPECT_EQ(t[0], 1);
}

TEST(Quant8x8, RoundingAndWrapping) {
  struct Case {
    int q, x, want;
  };
  // R >> 1 drops a bit: halves do not always round up (15 / 10 gives 1).
  const Case cases[] = {{16, 100, 6}, {16, -100, -6}, {10, 5, 0}, {10, -5, 0}, {10, 15, 1},
                        {2, 1, 1},    {2, -1, 0},     {1, 4095, 4095}, {255, -4095, -16}};
  for (const auto& t : test::AllTargets(kFwd)) {
    for (const Case& c : cases) {
      std::vector<int16_t> b(64, int16_t(c.x));
      const std::vector<uint16_t> fwd(64, uint16_t((32768 + c.q / 2) / c.q));
      ASSERT_EQ(t.fn(b.data(), fwd.data()), rvtStatusOk);
      EXPECT_EQ(b[37], c.want) << t.name << " q " << c.q << " x " << c.x;
    }
  }
  for (const auto& t : test::AllTargets(kInv)) {
    std::vector<int16_t> b(64, 1000);
    std::vector<uint16_t> inv(64, 100);
    inv[5] = 0;
    ASSERT_EQ(t.fn(b.data(), inv.data()), rvtStatusOk);
    EXPECT_EQ(b[0], -31072) << t.name;  // low 16 bits of 100000
    EXPECT_EQ(b[5], 0) << t.name;
  }
}

TEST(Quant8x8, TargetsMatchReference) {
  test::Rng rng(11);
  for (const auto* impl : {&kFwd, &kInv}) {
    for (int trial = 0; trial < 48; ++trial) {
      // Realistic coefficients, then full 16-bit values; any alignment.
      GuardedPlane<int16_t> src(64, 1, 0, trial % 16);
      src.FillRandom(rng, int16_t(trial < 24 ? -4095 : -32768), int16_t(trial < 24 ? 4095 : 32767));
      GuardedPlane<uint16_t> tab(64, 1, 0, (trial * 7) % 16);
      tab.FillRandom(rng, uint16_t(0), uint16_t(trial % 3 ? 65535 : 2048));
      tab.set(0, 0, 65535);
      tab.set(1, 0, 32768);
      GuardedPlane<int16_t> want = src;
      ASSERT_EQ(test::Reference(*impl)(want.data(), tab.data()), rvtStatusOk);
      for (const auto& t : test::SimdTargets(*impl)) {
        GuardedPlane<int16_t> got = src;
        ASSERT_EQ(t.fn(got.data(), tab.data()), rvtStatusOk);
        ASSERT_TRUE(test::Matches(want, got, std::string(t.name) + " trial " + std::to_string(trial)));
      }
    }
    for (const auto& t : test::AllTargets(*impl)) {
      GuardedPlane<int16_t> b(64, 1);
      const GuardedPlane<int16_t> before = b;
      const uint16_t tab[64] = {};
      EXPECT_EQ(t.fn(nullptr, tab), rvtStatusNullPtr);
      EXPECT_EQ(t.fn(b.data(), nullptr), rvtStatusNullPtr);
      EXPECT_TRUE(b.Unchanged(before)) << t.name;
    }
  }
}

TEST(Widen8u16u, RegionsStepsAndChecks) {
  test::Rng rng(13);
  // One long row, padded rows, and regions large enough to stream.
  int32_t cache = 0;
  const int big = rvtGetMaxCacheSizeB(&cache) == 0 ? std::max(cache / 3 / 1024 + 1, 200) : 200;
  for (const auto [w, h, pad] : {std::array{64, 1, 0}, {37, 5, 0}, {37, 5, 3}, {1024, big, 0}, {1000, big / 2, 5}}) {
    GuardedPlane<uint8_t> src(w, h, w + pad, pad % 4);
    src.FillRandom(rng, uint8_t(0), uint8_t(255));
    GuardedPlane<uint16_t> dst(w, h, 2 * (w + pad), 2 * pad);
    ASSERT_EQ(Widen8u16u(src.data(), src.step(), dst.data(), dst.step(), {w, h}), rvtStatusOk);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) ASSERT_EQ(dst.get(x, y), src.get(x, y)) << x << "," << y;
    ASSERT_TRUE(dst.GuardsIntact()) << w << "x" << h;
  }
  EXPECT_FALSE(WidenStreams(174762));  // three bytes a pixel, at most 524288: never
  uint8_t a[4] = {};
  uint16_t b[4] = {};
  EXPECT_EQ(Widen8u16u(a, 0, nullptr, 0, {0, 0}), rvtStatusNullPtr);  // pointers, size, steps
  EXPECT_EQ(Widen8u16u(a, 0, b, 0, {0, 1}), rvtStatusSize);
  EXPECT_EQ(Widen8u16u(a, 4, b, 0, {4, 1}), rvtStatusStep);
}

}  // namespace
}  // namespace rvt
