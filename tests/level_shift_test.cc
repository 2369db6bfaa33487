// Level shift: every input value on every target, the registered
// differential checks, argument checks in order with nothing written.
#include <limits>

#include "checkasm.h"

namespace rvt {
namespace {

using test::GuardedPlane;

const auto& kAdd = impl_rvtiAdd128_JPEG_16s8u_C1R;
const auto& kSub = impl_rvtiSub128_JPEG_8u16s_C1R;

TEST(LevelShift, Add128EveryInt16OnEveryTarget) {
  // All 65536 inputs in one row, plus the defined corner values.
  GuardedPlane<int16_t> src(65536, 1);
  for (int i = 0; i < 65536; ++i) src.set(i, 0, int16_t(i - 32768));
  for (const auto& t : test::AllTargets(kAdd)) {
    GuardedPlane<uint8_t> dst(65536, 1);
    ASSERT_EQ(t.fn(src.data(), src.step(), dst.data(), dst.step(), {65536, 1}), rvtStatusOk);
    for (int i = 0; i < 65536; ++i) {
      const int want = std::min(std::max(i - 32768 + 128, 0), 255);
      ASSERT_EQ(dst.get(i, 0), want) << t.name << " input " << i - 32768;
    }
    ASSERT_TRUE(dst.GuardsIntact()) << t.name;
    EXPECT_EQ(dst.get(32768 - 129, 0), 0);
    EXPECT_EQ(dst.get(32768 - 1, 0), 127);
    EXPECT_EQ(dst.get(32768 + 127, 0), 255);
  }
}

TEST(LevelShift, Sub128EveryByteOnEveryTarget) {
  GuardedPlane<uint8_t> src(256, 1);
  for (int i = 0; i < 256; ++i) src.set(i, 0, uint8_t(i));
  for (const auto& t : test::AllTargets(kSub)) {
    GuardedPlane<int16_t> dst(256, 1);
    ASSERT_EQ(t.fn(src.data(), src.step(), dst.data(), dst.step(), {256, 1}), rvtStatusOk);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(dst.get(i, 0), i - 128) << t.name;
    ASSERT_TRUE(dst.GuardsIntact()) << t.name;
  }
}

// Every target against the reference over the harness's region shapes,
// with 1 and 2 threads.
RVT_CHECKASM(rvtiAdd128_JPEG_16s8u_C1R,
             test::RegionC1<int16_t, uint8_t>{-32768, 32767, test::kThreaded});
RVT_CHECKASM(rvtiSub128_JPEG_8u16s_C1R, test::RegionC1<uint8_t, int16_t>{0, 255, test::kThreaded});

TEST(LevelShift, ExportsUseTheChosenTarget) {
  // The exported entry runs what the frame picked for this processor.
  GuardedPlane<int16_t> src(100, 100);
  test::Rng rng(4);
  src.FillRandom(rng, int16_t(-400), int16_t(400));
  GuardedPlane<uint8_t> a(100, 100), b(100, 100);
  ASSERT_EQ(rvtiAdd128_JPEG_16s8u_C1R(src.data(), src.step(), a.data(), a.step(), {100, 100}),
            rvtStatusOk);
  ASSERT_EQ(test::Reference(kAdd)(src.data(), src.step(), b.data(), b.step(), {100, 100}),
            rvtStatusOk);
  EXPECT_TRUE(test::Matches(b, a, "export"));
}

TEST(LevelShift, ChecksInArgumentOrderWriteNothing) {
  GuardedPlane<int16_t> s16(8, 2);
  GuardedPlane<uint8_t> d8(8, 2);
  GuardedPlane<uint8_t> s8(8, 2);
  GuardedPlane<int16_t> d16(8, 2);
  const GuardedPlane<uint8_t> d8_before = d8;
  const GuardedPlane<int16_t> d16_before = d16;
  struct Case {
    bool null_src;
    int32_t src_step;
    bool null_dst;
    int32_t dst_step;
    ImageSize roi;
    RvtResult want;
  };
  const Case cases[] = {
      {true, 0, true, 0, {0, 0}, rvtStatusNullPtr},     // src first
      {true, 16, false, 16, {0, 5}, rvtStatusNullPtr},  // null beats size
      {false, 0, true, 16, {8, 2}, rvtStatusStep},      // src step before dst
      {false, -3, false, 16, {8, 2}, rvtStatusStep},
      {false, 16, true, 0, {8, 2}, rvtStatusNullPtr},
      {false, 16, false, 0, {8, 2}, rvtStatusStep},
      {false, 16, false, 16, {0, 5}, rvtStatusSize},
      {false, 16, false, 16, {5, 0}, rvtStatusSize},
      {false, 16, false, 16, {-1, 2}, rvtStatusSize},
  };
  for (const auto& c : cases) {
    for (const auto& t : test::AllTargets(kAdd)) {
      EXPECT_EQ(t.fn(c.null_src ? nullptr : s16.data(), c.src_step, c.null_dst ? nullptr : d8.data(),
                     c.dst_step, c.roi),
                c.want)
          << t.name;
      EXPECT_TRUE(d8.Unchanged(d8_before)) << t.name;
    }
    for (const auto& t : test::AllTargets(kSub)) {
      EXPECT_EQ(t.fn(c.null_src ? nullptr : s8.data(), c.src_step, c.null_dst ? nullptr : d16.data(),
                     c.dst_step, c.roi),
                c.want)
          << t.name;
      EXPECT_TRUE(d16.Unchanged(d16_before)) << t.name;
    }
  }
}

TEST(LevelShift, StepShorterThanRowIsAccepted) {
  // Source rows may overlap: row y starts y*4 bytes in.
  GuardedPlane<uint8_t> src(40, 1);
  for (int i = 0; i < 40; ++i) src.set(i, 0, uint8_t(i));
  GuardedPlane<int16_t> dst(8, 5);
  ASSERT_EQ(rvtiSub128_JPEG_8u16s_C1R(src.data(), 4, dst.data(), dst.step(), {8, 5}), rvtStatusOk);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 8; ++x) ASSERT_EQ(dst.get(x, y), 4 * y + x - 128);
}

}  // namespace
}  // namespace rvt
