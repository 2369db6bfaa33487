// Quantization tables and the 8x8 quantizer / dequantizer: quality scaling
// against libjpeg-turbo, table layouts, the quantizer's own rounding,
// argument checks, and the registered differential checks.
#include <cstring>
#include <cstdio>  // jpeglib.h needs FILE and size_t first
#include <limits>

#include <jpeglib.h>

#include "checkasm.h"

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

TEST(Quant8x8, ChecksInArgumentOrderWriteNothing) {
  for (const auto* impl : {&kFwd, &kInv}) {
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

// In-place blocks at any address: realistic coefficients, then any 16-bit
// value, and the values at the wrap of 8x; tables of small steps or any value, with 65535 and 32768 (read as
// negative by a signed multiply) always present.
auto QuantCases() {
  return test::Trials(48, [](test::Rng& rng, int k) {
    test::Case c;
    c.label = "trial " + std::to_string(k);
    c.out.push_back(test::ArrayOf<int16_t>(64, k % 16));
    c.out[0].Fill(rng, int16_t(k < 24 ? -4095 : -32768), int16_t(k < 24 ? 4095 : 32767));
    if (k % 4 == 3) {  // the values whose 8x wraps to or near the extremes
      const int16_t edge[] = {-32768, 32767, -4096, 4095, -4097, 4096, -1, 0};
      for (int i = 0; i < 64; ++i) std::memcpy(c.out[0].as<int16_t>() + i, &edge[rng.Uniform(0, 7)], 2);
    }
    c.in.push_back(test::ArrayOf<uint16_t>(64, (k * 7) % 16));
    c.in[0].Fill(rng, uint16_t(0), uint16_t(k % 3 ? 65535 : 2048));
    const uint16_t edge[2] = {65535, 32768};
    std::memcpy(c.in[0].as<uint16_t>(), edge, sizeof(edge));
    return c;
  });
}
const auto kQuantCall = [](auto fn, test::Case& c) {
  return fn(c.out[0].as<int16_t>(), c.in[0].as<uint16_t>());
};
RVT_CHECKASM(rvtiQuantFwd8x8_JPEG_16s_C1I, test::Cases{QuantCases(), kQuantCall});
RVT_CHECKASM(rvtiQuantInv8x8_JPEG_16s_C1I, test::Cases{QuantCases(), kQuantCall});

}  // namespace
}  // namespace rvt
