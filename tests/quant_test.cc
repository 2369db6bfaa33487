// Quantization tables and the 8x8 quantizer / dequantizer: quality scaling
// against libjpeg-turbo, the table layouts, the quantizer's own rounding
// rule, every target against the reference on guarded blocks, and the
// argument checks.
#include <cstdio>
#include <limits>

#include <jpeglib.h>

#include "checkasm.h"
#include "frame/widen.h"

namespace rvt {
namespace {

using test::GuardedPlane;

const auto& kQuantFwd = impl_rvtiQuantFwd8x8_JPEG_16s_C1I;
const auto& kQuantInv = impl_rvtiQuantInv8x8_JPEG_16s_C1I;

// The standard zig-zag scan: natural position of each zig-zag index, built
// by walking the anti-diagonals.
std::vector<int> NaturalOfZigzag() {
  std::vector<int> out;
  for (int s = 0; s < 15; ++s) {
    for (int i = 0; i <= s; ++i) {
      const int r = (s % 2) ? i : s - i;  // odd diagonals run downward
      const int c = s - r;
      if (r < 8 && c < 8) out.push_back(r * 8 + c);
    }
  }
  return out;
}

TEST(QuantTables, QualityScalingMatchesLibjpeg) {
  jpeg_compress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_compress(&cinfo);
  unsigned basic[64];
  for (int i = 0; i < 64; ++i) basic[i] = unsigned(i * 4 + (i & 3));  // 0..255
  for (int quality = 1; quality <= 100; ++quality) {
    uint8_t raw[64];
    for (int i = 0; i < 64; ++i) raw[i] = uint8_t(basic[i]);
    ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, quality), rvtStatusOk);
    jpeg_add_quant_table(&cinfo, 0, basic, jpeg_quality_scaling(quality), TRUE);
    for (int i = 0; i < 64; ++i)
      ASSERT_EQ(raw[i], cinfo.quant_tbl_ptrs[0]->quantval[i]) << "quality " << quality << " entry " << basic[i];
  }
  jpeg_destroy_compress(&cinfo);
}

TEST(QuantTables, QualityEdges) {
  uint8_t raw[64], orig[64];
  for (int i = 0; i < 64; ++i) orig[i] = uint8_t(i * 37 + 1);
  for (int quality : {100, 101, 1000, std::numeric_limits<int32_t>::max()}) {
    std::memcpy(raw, orig, 64);
    ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, quality), rvtStatusOk);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(raw[i], 1) << quality;
  }
  std::memcpy(raw, orig, 64);
  raw[0] = 0;
  raw[1] = 5;
  raw[2] = 6;
  ASSERT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, 1), rvtStatusOk);  // S = 5000
  EXPECT_EQ(raw[0], 1);
  EXPECT_EQ(raw[1], 250);
  EXPECT_EQ(raw[2], 255);
  for (int quality : {0, -1, std::numeric_limits<int32_t>::min()}) {
    std::memcpy(raw, orig, 64);
    EXPECT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(raw, quality), rvtStatusBadArg);
    EXPECT_EQ(std::memcmp(raw, orig, 64), 0);
  }
  EXPECT_EQ(rvtiQuantFwdRawTableInit_JPEG_8u(nullptr, 0), rvtStatusNullPtr);
}

TEST(QuantTables, NaturalOrderAndReciprocals) {
  const std::vector<int> nat = NaturalOfZigzag();
  ASSERT_EQ(nat.size(), 64u);
  uint8_t raw[64];
  for (int z = 0; z < 64; ++z) raw[z] = uint8_t(z + 1);  // zig-zag index + 1
  uint16_t inv[64], fwd[64];
  ASSERT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(raw, inv), rvtStatusOk);
  for (int z = 0; z < 64; ++z) ASSERT_EQ(inv[nat[z]], z + 1) << z;
  const int first_row[8] = {0, 1, 5, 6, 14, 15, 27, 28};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(inv[i], first_row[i] + 1);
  EXPECT_EQ(inv[8], 3);

  // Every step size: the nearest reciprocal, at its natural position.
  for (int base = 0; base < 256; base += 64) {
    for (int z = 0; z < 64; ++z) raw[z] = uint8_t(std::max(base + z, 1));
    ASSERT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, fwd), rvtStatusOk);
    for (int z = 0; z < 64; ++z) {
      const int q = raw[z], r = fwd[nat[z]];
      ASSERT_LE(std::abs(r * q - 32768), q / 2) << "q " << q;
    }
  }
  std::memset(raw, 16, 64);
  raw[0] = 1;
  raw[1] = 3;
  raw[2] = 255;
  ASSERT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, fwd), rvtStatusOk);
  EXPECT_EQ(fwd[0], 32768);
  EXPECT_EQ(fwd[1], 10923);
  EXPECT_EQ(fwd[8], 129);
  EXPECT_EQ(fwd[63], 2048);

  // A zero step: 65535 there, the rest still built, and a warning.
  raw[9] = 0;  // zig-zag 9 is natural 24 (row 3, column 0)
  std::memset(fwd, 0, sizeof(fwd));
  ASSERT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, fwd), rvtStatusDivByZero);
  EXPECT_EQ(fwd[24], 65535);
  EXPECT_EQ(fwd[63], 2048);
  ASSERT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(raw, inv), rvtStatusOk);
  EXPECT_EQ(inv[24], 0);

  uint16_t before[64];
  std::memcpy(before, fwd, sizeof(fwd));
  EXPECT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(nullptr, fwd), rvtStatusNullPtr);
  EXPECT_EQ(rvtiQuantFwdTableInit_JPEG_8u16u(raw, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(nullptr, inv), rvtStatusNullPtr);
  EXPECT_EQ(rvtiQuantInvTableInit_JPEG_8u16u(raw, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(std::memcmp(before, fwd, sizeof(fwd)), 0);
}

// Forward table with every entry built from step size q.
std::vector<uint16_t> FlatFwd(int q) {
  std::vector<uint8_t> raw(64, uint8_t(q));
  std::vector<uint16_t> fwd(64);
  rvtiQuantFwdTableInit_JPEG_8u16u(raw.data(), fwd.data());
  return fwd;
}

TEST(Quant8x8, RoundingRule) {
  struct Case {
    int q, x, want;
  };
  const Case cases[] = {
      {16, 100, 6}, {16, -100, -6}, {10, 5, 0},   {10, -5, 0},     {10, 15, 1},  // 1.5: R >> 1 drops a bit, so not every half rounds up
      {2, 1, 1},    {2, -1, 0},     {1, 4095, 4095}, {1, -4095, -4095}, {255, 4095, 16},
  };
  for (const Case& c : cases) {
    const auto fwd = FlatFwd(c.q);
    for (const auto& t : test::AllTargets(kQuantFwd)) {
      std::vector<int16_t> b(64, int16_t(c.x));
      ASSERT_EQ(t.fn(b.data(), fwd.data()), rvtStatusOk);
      EXPECT_EQ(b[37], c.want) << t.name << " q " << c.q << " x " << c.x;
    }
  }
  // Within one step of the true quotient over the whole 8-bit range, and
  // every value kept for q = 1.
  for (int q = 1; q < 256; ++q) {
    const auto fwd = FlatFwd(q);
    for (int x = -4095; x <= 4095; x += 64) {
      std::vector<int16_t> b(64);
      for (int i = 0; i < 64; ++i) b[i] = int16_t(std::min(x + i, 4095));
      test::Reference(kQuantFwd)(b.data(), fwd.data());
      for (int i = 0; i < 64; ++i) {
        const int xi = std::min(x + i, 4095);
        if (q == 1) ASSERT_EQ(b[i], xi);
        ASSERT_LE(std::abs(b[i] * q - xi), q) << "q " << q << " x " << xi;
      }
    }
  }
}

TEST(Quant8x8, DequantWrapsTo16Bits) {
  std::vector<uint16_t> inv(64, 100);
  inv[5] = 0;
  for (const auto& t : test::AllTargets(kQuantInv)) {
    std::vector<int16_t> b(64, 1000);
    b[1] = -7;
    ASSERT_EQ(t.fn(b.data(), inv.data()), rvtStatusOk);
    EXPECT_EQ(b[0], -31072) << t.name;
    EXPECT_EQ(b[1], -700) << t.name;
    EXPECT_EQ(b[5], 0) << t.name;
  }
}

// Every target against the reference on random blocks and tables, at
// every byte misalignment of both pointers, with guards.
template <class Fn>
void CompareBlocks(const Impl<Fn>& impl, uint64_t seed) {
  test::Rng rng(seed);
  for (int trial = 0; trial < 48; ++trial) {
    // Realistic coefficients, then full 16-bit values that wrap.
    const int16_t lo = trial < 24 ? -4095 : -32768, hi = trial < 24 ? 4095 : 32767;
    const int mb = trial % 16, mt = (trial * 7) % 16;
    GuardedPlane<int16_t> src(64, 1, 0, mb);
    src.FillRandom(rng, lo, hi);
    GuardedPlane<uint16_t> tab(64, 1, 0, mt);
    tab.FillRandom(rng, uint16_t(0), uint16_t(trial % 3 ? 65535 : 2048));
    tab.set(0, 0, 65535);
    tab.set(1, 0, 32768);
    GuardedPlane<int16_t> want = src;
    ASSERT_EQ(test::Reference(impl)(want.data(), tab.data()), rvtStatusOk);
    for (const auto& t : test::SimdTargets(impl)) {
      GuardedPlane<int16_t> got = src;
      const GuardedPlane<uint16_t> tab_before = tab;
      ASSERT_EQ(t.fn(got.data(), tab.data()), rvtStatusOk);
      ASSERT_TRUE(test::Matches(want, got, std::string(t.name) + " trial " + std::to_string(trial)));
      ASSERT_TRUE(tab.Unchanged(tab_before));
    }
  }
}

TEST(Quant8x8, TargetsMatchReference) {
  CompareBlocks(kQuantFwd, 11);
  CompareBlocks(kQuantInv, 12);
}

TEST(Quant8x8, NullPointersWriteNothing) {
  GuardedPlane<int16_t> b(64, 1);
  const GuardedPlane<int16_t> before = b;
  const uint16_t tab[64] = {};
  for (const auto* impl : {&kQuantFwd, &kQuantInv}) {
    for (const auto& t : test::AllTargets(*impl)) {
      EXPECT_EQ(t.fn(nullptr, tab), rvtStatusNullPtr) << t.name;
      EXPECT_EQ(t.fn(b.data(), nullptr), rvtStatusNullPtr) << t.name;
      EXPECT_TRUE(b.Unchanged(before)) << t.name;
    }
  }
}

TEST(Widen8u16u, RegionsStepsAndChecks) {
  test::Rng rng(13);
  struct Shape {
    int w, h, src_pad, dst_pad;
  };
  // Contiguous (one long row), padded rows, and a region large enough for
  // non-temporal stores.
  int32_t cache = 0;
  const int big = rvtGetMaxCacheSizeB(&cache) == 0 ? std::max(cache / 3 / 1024 + 1, 200) : 200;
  for (const Shape& s : {Shape{64, 1, 0, 0}, Shape{37, 5, 0, 0}, Shape{37, 5, 3, 10},
                         Shape{1, 9, 1, 2}, Shape{1024, big, 0, 0}, Shape{1000, big / 2, 5, 7}}) {
    GuardedPlane<uint8_t> src(s.w, s.h, s.w + s.src_pad, s.src_pad % 4);
    src.FillRandom(rng, uint8_t(0), uint8_t(255));
    GuardedPlane<uint16_t> dst(s.w, s.h, 2 * s.w + 2 * s.dst_pad, 2 * (s.dst_pad % 4));
    ASSERT_EQ(Widen8u16u(src.data(), src.step(), dst.data(), dst.step(), {s.w, s.h}), rvtStatusOk);
    for (int y = 0; y < s.h; ++y)
      for (int x = 0; x < s.w; ++x) ASSERT_EQ(dst.get(x, y), src.get(x, y)) << x << "," << y;
    ASSERT_TRUE(dst.GuardsIntact()) << s.w << "x" << s.h;
  }
  EXPECT_FALSE(WidenStreams(174762));  // 3 * pixels <= 524288 never streams
  // Internal order: pointers, then size, then steps.
  uint8_t a[4] = {};
  uint16_t b[4] = {};
  EXPECT_EQ(Widen8u16u(nullptr, 0, b, 0, {0, 0}), rvtStatusNullPtr);
  EXPECT_EQ(Widen8u16u(a, 0, nullptr, 0, {0, 0}), rvtStatusNullPtr);
  EXPECT_EQ(Widen8u16u(a, 0, b, 0, {0, 1}), rvtStatusSize);
  EXPECT_EQ(Widen8u16u(a, 0, b, 8, {4, 1}), rvtStatusStep);
  EXPECT_EQ(Widen8u16u(a, 4, b, 0, {4, 1}), rvtStatusStep);
}

}  // namespace
}  // namespace rvt
