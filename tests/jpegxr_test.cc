// JPEG XR photo core transform: flat blocks, exact round trips (full-range
// 16-bit input included), the check order with nothing written, 16-bit
// results against 32-bit ones, jxrlib's forward transform as an oracle,
// and every target against the reference.
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "checkasm.h"
#include "photo.h"

// jxrlib's first-stage 4x4 forward transform (libjpegxr; its installed
// headers do not declare it): 16 ints in the library's block order.
extern "C" void strDCT4x4Stage1(int* p);

namespace rvt {
namespace {

template <class T>
using RegionFn = RvtResult (*)(T*, int32_t, ImageSize);
template <class T>
using BlockFn = RvtResult (*)(T*, int32_t);

// The exports of one element type.
template <class T>
struct Family {
  const Impl<RegionFn<T>>& fwd;
  const Impl<RegionFn<T>>& inv;
  struct Mb {
    int w, h;
    const Impl<BlockFn<T>>& fwd;
    const Impl<BlockFn<T>>& inv;
  };
  std::vector<Mb> mbs;
};

#define RVT_PCT_FAMILY(T, tag)                                                                   \
  Family<T> {                                                                                    \
    impl_rvtiPCTFwd_JPEGXR_##tag##_C1IR, impl_rvtiPCTInv_JPEGXR_##tag##_C1IR, {                  \
      {16, 16, impl_rvtiPCTFwd16x16_JPEGXR_##tag##_C1IR, impl_rvtiPCTInv16x16_JPEGXR_##tag##_C1IR}, \
          {8, 16, impl_rvtiPCTFwd8x16_JPEGXR_##tag##_C1IR, impl_rvtiPCTInv8x16_JPEGXR_##tag##_C1IR}, \
          {8, 8, impl_rvtiPCTFwd8x8_JPEGXR_##tag##_C1IR, impl_rvtiPCTInv8x8_JPEGXR_##tag##_C1IR} \
    }                                                                                            \
  }
const Family<int16_t> k16s = RVT_PCT_FAMILY(int16_t, 16s);
const Family<int32_t> k32s = RVT_PCT_FAMILY(int32_t, 32s);
const Family<float> k32f = RVT_PCT_FAMILY(float, 32f);

template <class T>
const Family<T>& FamilyOf() {
  if constexpr (std::is_same_v<T, int16_t>) return k16s;
  else if constexpr (std::is_same_v<T, int32_t>) return k32s;
  else return k32f;
}

template <class T>
T Full(bool lo) {
  if constexpr (std::is_floating_point_v<T>) return lo ? T(-1000) : T(1000);
  else return lo ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
}

// ------------------------------------------------------------ known answers

template <class T>
void FlatBlocks() {
  const auto& fam = FamilyOf<T>();
  for (const T v : {T(0), T(1), T(-1), T(7), T(-100), T(2000), T(-2000)}) {
    for (const auto& t : test::AllTargets(fam.fwd)) {
      test::GuardedPlane<T> p(12, 8, 0, 2);
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 12; ++x) p.set(x, y, v);
      ASSERT_EQ(t.fn(p.data(), p.step(), {12, 8}), rvtStatusOk);
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 12; ++x)
          ASSERT_EQ(p.get(x, y), (x % 4 == 0 && y % 4 == 0) ? T(4 * v) : T(0))
              << t.name << " v=" << +v << " at " << x << "," << y;
      ASSERT_EQ(test::Reference(fam.inv)(p.data(), p.step(), {12, 8}), rvtStatusOk);
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 12; ++x) ASSERT_EQ(p.get(x, y), v) << t.name;
    }
    for (const auto& mb : fam.mbs) {
      for (const auto& t : test::AllTargets(mb.fwd)) {
        test::GuardedPlane<T> p(mb.w, mb.h, 0, 1);
        for (int y = 0; y < mb.h; ++y)
          for (int x = 0; x < mb.w; ++x) p.set(x, y, v);
        ASSERT_EQ(t.fn(p.data(), p.step()), rvtStatusOk);
        for (int y = 0; y < mb.h; ++y)
          for (int x = 0; x < mb.w; ++x)
            ASSERT_EQ(p.get(x, y), (x % 4 == 0 && y % 4 == 0) ? T(4 * v) : T(0))
                << t.name << " " << mb.w << "x" << mb.h << " v=" << +v;
        std::string where;
        ASSERT_TRUE(p.GuardsIntact(&where)) << where;
      }
    }
  }
}
TEST(PhotoCoreTransform, FlatBlocksBecome4vAtTheFirstPosition) {
  FlatBlocks<int16_t>();
  FlatBlocks<int32_t>();
  FlatBlocks<float>();
}

// Forward then inverse restores every sample.  With wrapping lanes every
// lifting step is a bijection, so even full-range 16-bit and 32-bit input
// comes back bit for bit; floats come back within rounding.
template <class T>
void RoundTrips(uint64_t seed) {
  const auto& fam = FamilyOf<T>();
  test::Rng rng(seed);
  for (const auto& t : test::AllTargets(fam.fwd)) {
    for (const auto& ti : test::AllTargets(fam.inv)) {
      test::GuardedPlane<T> p(76, 12, 76 * sizeof(T) + 3, 1);
      p.FillRandom(rng, Full<T>(true), Full<T>(false));
      test::GuardedPlane<T> orig(76, 12, 76 * sizeof(T) + 3, 1);
      orig.CopyFrom(p);
      ASSERT_EQ(t.fn(p.data(), p.step(), {76, 12}), rvtStatusOk);
      ASSERT_EQ(ti.fn(p.data(), p.step(), {76, 12}), rvtStatusOk);
      if constexpr (std::is_floating_point_v<T>) {
        for (int y = 0; y < 12; ++y)
          for (int x = 0; x < 76; ++x) ASSERT_NEAR(p.get(x, y), orig.get(x, y), 1e-3) << t.name;
      } else {
        ASSERT_TRUE(p.Unchanged(orig)) << t.name << " then " << ti.name;
      }
    }
    for (const auto& mb : fam.mbs) {
      test::GuardedPlane<T> p(mb.w, mb.h, 0, 3);
      p.FillRandom(rng, Full<T>(true), Full<T>(false));
      test::GuardedPlane<T> orig(mb.w, mb.h, 0, 3);
      orig.CopyFrom(p);
      for (const auto& tf : test::AllTargets(mb.fwd)) {
        ASSERT_EQ(tf.fn(p.data(), p.step()), rvtStatusOk);
        ASSERT_FALSE(p.Unchanged(orig));
        ASSERT_EQ(test::Reference(mb.inv)(p.data(), p.step()), rvtStatusOk);
        if constexpr (!std::is_floating_point_v<T>) {
          ASSERT_TRUE(p.Unchanged(orig)) << tf.name << " " << mb.w << "x" << mb.h;
        }
      }
    }
  }
}
TEST(PhotoCoreTransform, ForwardThenInverseRestoresFullRangeInput) {
  RoundTrips<int16_t>(1);
  RoundTrips<int32_t>(2);
  RoundTrips<float>(3);
}

// The 16-bit transform is the 32-bit one while no intermediate leaves 16
// bits (inputs of 10 bits), and departs from it on full-range input, where
// its intermediates wrap.
TEST(PhotoCoreTransform, SixteenBitsFollowThirtyTwoUntilTheyWrap) {
  test::Rng rng(4);
  for (const bool full : {false, true}) {
    test::GuardedPlane<int16_t> p16(64, 64);
    test::GuardedPlane<int32_t> p32(64, 64);
    const int16_t lim = full ? 32767 : 511;
    p16.FillRandom(rng, int16_t(-lim), lim);
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x) p32.set(x, y, p16.get(x, y));
    ASSERT_EQ(rvtiPCTFwd_JPEGXR_16s_C1IR(p16.data(), p16.step(), {64, 64}), rvtStatusOk);
    ASSERT_EQ(rvtiPCTFwd_JPEGXR_32s_C1IR(p32.data(), p32.step(), {64, 64}), rvtStatusOk);
    int differ = 0;
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x) differ += p16.get(x, y) != int16_t(p32.get(x, y));
    if (full) EXPECT_GT(differ, 0);
    else EXPECT_EQ(differ, 0);
  }
}

// ------------------------------------------------------------ checks

template <class T>
void CheckOrder() {
  const auto& fam = FamilyOf<T>();
  const int32_t row = 8 * int32_t(sizeof(T));
  for (const auto& t : test::AllTargets(fam.fwd)) {
    test::GuardedPlane<T> p(8, 8);
    test::GuardedPlane<T> orig(8, 8);
    orig.CopyFrom(p);
    EXPECT_EQ(t.fn(nullptr, 0, {0, 0}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p.data(), 0, {0, 4}), rvtStatusSize);   // width before the step
    EXPECT_EQ(t.fn(p.data(), 0, {4, -1}), rvtStatusSize);  // height before the step
    EXPECT_EQ(t.fn(p.data(), row - 1, {8, 6}), rvtStatusStep);  // step before multiples of 4
    EXPECT_EQ(t.fn(p.data(), row, {4, 6}), rvtStatusSize);
    EXPECT_EQ(t.fn(p.data(), row, {6, 4}), rvtStatusSize);
    EXPECT_EQ(t.fn(p.data(), p.step(), {8, 9}), rvtStatusSize);
    EXPECT_TRUE(p.Unchanged(orig)) << t.name;
  }
  for (const auto& mb : fam.mbs) {
    for (const auto* impl : {&mb.fwd, &mb.inv}) {
      for (const auto& t : test::AllTargets(*impl)) {
        test::GuardedPlane<T> p(mb.w, mb.h);
        test::GuardedPlane<T> orig(mb.w, mb.h);
        orig.CopyFrom(p);
        EXPECT_EQ(t.fn(nullptr, -1), rvtStatusNullPtr);
        EXPECT_EQ(t.fn(p.data(), mb.w * int32_t(sizeof(T)) - 1), rvtStatusStep);
        EXPECT_EQ(t.fn(p.data(), 0), rvtStatusStep);
        EXPECT_TRUE(p.Unchanged(orig)) << t.name;
      }
    }
  }
}
TEST(PhotoCoreTransform, ChecksInOrderWriteNothing) {
  CheckOrder<int16_t>();
  CheckOrder<int32_t>();
  CheckOrder<float>();
  // The frame's own examples: a 4x6 region, an 8-wide 16-bit region with a
  // 14-byte step.
  int16_t buf[64] = {};
  EXPECT_EQ(rvtiPCTInv_JPEGXR_16s_C1IR(buf, 8, {4, 6}), rvtStatusSize);
  EXPECT_EQ(rvtiPCTInv_JPEGXR_16s_C1IR(buf, 14, {8, 4}), rvtStatusStep);
}

// Block runs against the region form, block for block, on every target:
// each of n blocks laid out as 16 contiguous elements must come out as the
// region export makes the same block in an image row (a lane holding the
// wrong block, a row from the neighbouring block or a transposed block
// shows), both directions; then the checks in order, nothing written.
TEST(PhotoCoreTransform, BlockRunsMatchTheRegionFormBlockForBlock) {
  test::Rng rng(9);
  for (const int n : {1, 3, 4, 5, 8, 13, 16, 17, 31, 32, 33, 47}) {
    test::GuardedPlane<int32_t> row(4 * n, 4);
    row.FillRandom(rng, Full<int32_t>(true), Full<int32_t>(false));
    std::vector<int32_t> run(16 * size_t(n));
    for (int k = 0; k < n; ++k)
      for (int i = 0; i < 16; ++i) run[16 * size_t(k) + i] = row.get(4 * k + i % 4, i / 4);
    for (const bool fwd : {false, true}) {
      test::GuardedPlane<int32_t> want(4 * n, 4);
      for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4 * n; ++x) want.set(x, y, row.get(x, y));
      ASSERT_EQ((fwd ? rvtiPCTFwd_JPEGXR_32s_C1IR : rvtiPCTInv_JPEGXR_32s_C1IR)(want.data(), want.step(), {4 * n, 4}),
                rvtStatusOk);
      for (const auto& t : test::AllTargets(fwd ? impl_rvtiPCTFwdBlocks_JPEGXR_32s_C1I
                                                : impl_rvtiPCTInvBlocks_JPEGXR_32s_C1I)) {
        std::vector<int32_t> got = run;
        ASSERT_EQ(t.fn(got.data(), n), rvtStatusOk);
        int bad = 0;
        for (int k = 0; k < n; ++k)
          for (int i = 0; i < 16; ++i) bad += got[16 * size_t(k) + i] != want.get(4 * k + i % 4, i / 4);
        EXPECT_EQ(bad, 0) << t.name << (fwd ? " forward, " : " inverse, ") << n << " blocks";
      }
    }
  }
  int32_t buf[16] = {7};
  for (auto fn : {rvtiPCTFwdBlocks_JPEGXR_32s_C1I, rvtiPCTInvBlocks_JPEGXR_32s_C1I}) {
    EXPECT_EQ(fn(nullptr, 0), rvtStatusNullPtr);
    EXPECT_EQ(fn(buf, 0), rvtStatusSize);
    EXPECT_EQ(fn(buf, -1), rvtStatusSize);
    EXPECT_EQ(buf[0], 7);
    EXPECT_TRUE(std::all_of(buf + 1, buf + 16, [](int32_t v) { return v == 0; }));
  }
}

// ------------------------------------------------------------ jxrlib

// Our row-major position of each of jxrlib's 16 block slots (its Hadamard
// groups are slots k, k+4, k+8, k+12; its second stage reads slots 0-3,
// 4-7, 8-11 and 12-15).
constexpr int kJxrSlot[16] = {0, 1, 4, 5, 3, 2, 7, 6, 12, 13, 8, 9, 15, 14, 11, 10};

// Blocks of a plane through our region transform (every target) and
// through jxrlib, one block at a time; returns the number of differing
// blocks.
int JxrDisagreements(const test::GuardedPlane<int32_t>& in) {
  int bad = 0;
  for (const auto& t : test::AllTargets(k32s.fwd)) {
  test::GuardedPlane<int32_t> ours(in.width(), in.height());
  for (int y = 0; y < in.height(); ++y)
    for (int x = 0; x < in.width(); ++x) ours.set(x, y, in.get(x, y));
  EXPECT_EQ(t.fn(ours.data(), ours.step(), {in.width(), in.height()}), rvtStatusOk);
  for (int by = 0; by < in.height(); by += 4) {
    for (int bx = 0; bx < in.width(); bx += 4) {
      int blk[16];
      for (int k = 0; k < 16; ++k) blk[k] = in.get(bx + kJxrSlot[k] % 4, by + kJxrSlot[k] / 4);
      strDCT4x4Stage1(blk);
      bool same = true;
      for (int k = 0; k < 16; ++k) same &= blk[k] == ours.get(bx + kJxrSlot[k] % 4, by + kJxrSlot[k] / 4);
      bad += !same;
    }
  }
  }
  return bad;
}

TEST(PhotoCoreTransform, AgreesWithJxrlibOnRandomBlocksAndPhotos) {
  test::Rng rng(5);
  // Random blocks of growing magnitude up to the full 32-bit range, where
  // intermediates wrap in both (jxrlib's build wraps its int arithmetic).
  for (const int32_t lim : {255, 4095, 1 << 20, 1 << 26, 1 << 29, 2147483647}) {
    test::GuardedPlane<int32_t> p(256, 64);
    p.FillRandom(rng, -lim, lim);
    EXPECT_EQ(JxrDisagreements(p), 0) << "limit " << lim;
  }
  // Every 4x4 block of the test photos, as samples and level-shifted.
  int photos = 0;
  for (const char* name : {"camera.png", "coffee.png", "astronaut.png", "chelsea.png"}) {
    const test::Photo ph = test::LoadPhoto(name, 3);
    if (ph.px.empty()) continue;
    ++photos;
    const int w = ph.width / 4 * 4, h = ph.height / 4 * 4;
    for (int ch = 0; ch < 3; ++ch) {
      for (const int shift : {0, 128}) {
        test::GuardedPlane<int32_t> p(w, h);
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x) p.set(x, y, ph.px[size_t(3 * (y * ph.width + x) + ch)] - shift);
        EXPECT_EQ(JxrDisagreements(p), 0) << name << " channel " << ch << " shift " << shift;
      }
    }
  }
  EXPECT_EQ(photos, 4) << "test photos missing";
}

// ------------------------------------------------------------ differential

// Regions of every width 4..264 (every chunk remainder of every target),
// 4 or 8 rows, padded and odd steps, misaligned starts, full-range and
// small samples; a full-HD plane last.
template <class T>
auto RegionCases() {
  return test::Cases{[](test::Rng& rng) {
                       std::vector<test::Case> out;
                       auto add = [&](int w, int h, int pad, int mis, bool full) {
                         test::Case c;
                         c.label = std::to_string(w) + "x" + std::to_string(h) + (full ? " full" : "");
                         c.roi = {w, h};
                         c.out.push_back(test::PlaneOf<T>(w, h, int32_t(w * sizeof(T)) + pad, mis));
                         if (full) c.out[0].Fill<T>(rng, Full<T>(true), Full<T>(false));
                         else c.out[0].Fill<T>(rng, T(-300), T(300));
                         out.push_back(std::move(c));
                       };
                       for (int w = 4; w <= 264; w += 4) add(w, 4 + 4 * (w % 8 == 0), (w / 4) % 7, (w / 4) % 4, w % 12 != 0);
                       add(1920, 1080, 0, 0, false);
                       return out;
                     },
                     [](auto fn, test::Case& c) { return fn(c.out[0].as<T>(), c.out[0].step(), c.roi); }};
}

// Macroblocks at steps from the minimum to a few elements more (odd ones
// too), misaligned, full-range and small samples.
template <class T, int kW, int kH>
auto BlockCases() {
  return test::Cases{test::Trials(64,
                                  [](test::Rng& rng, int k) {
                                    test::Case c;
                                    c.label = "trial " + std::to_string(k);
                                    const int32_t step = kW * int32_t(sizeof(T)) + int32_t(rng.Uniform(0, 3)) *
                                                                                       int32_t(k % 3) + (k % 5 == 0);
                                    c.out.push_back(test::PlaneOf<T>(kW, kH, step, k % 4));
                                    if (k % 2) c.out[0].Fill<T>(rng, Full<T>(true), Full<T>(false));
                                    else c.out[0].Fill<T>(rng, T(-300), T(300));
                                    return c;
                                  }),
                     [](auto fn, test::Case& c) { return fn(c.out[0].as<T>(), c.out[0].step()); }};
}

#define RVT_PCT_CHECKS(T, tag)                                                              \
  RVT_CHECKASM(rvtiPCTFwd_JPEGXR_##tag##_C1IR, RegionCases<T>());                           \
  RVT_CHECKASM(rvtiPCTInv_JPEGXR_##tag##_C1IR, RegionCases<T>());                           \
  RVT_CHECKASM(rvtiPCTFwd16x16_JPEGXR_##tag##_C1IR, BlockCases<T, 16, 16>());               \
  RVT_CHECKASM(rvtiPCTInv16x16_JPEGXR_##tag##_C1IR, BlockCases<T, 16, 16>());               \
  RVT_CHECKASM(rvtiPCTFwd8x16_JPEGXR_##tag##_C1IR, BlockCases<T, 8, 16>());                 \
  RVT_CHECKASM(rvtiPCTInv8x16_JPEGXR_##tag##_C1IR, BlockCases<T, 8, 16>());                 \
  RVT_CHECKASM(rvtiPCTFwd8x8_JPEGXR_##tag##_C1IR, BlockCases<T, 8, 8>());                   \
  RVT_CHECKASM(rvtiPCTInv8x8_JPEGXR_##tag##_C1IR, BlockCases<T, 8, 8>())
RVT_PCT_CHECKS(int16_t, 16s);
RVT_PCT_CHECKS(int32_t, 32s);
RVT_PCT_CHECKS(float, 32f);

// Block runs of every length 1..70 (every remainder of every group width,
// the 128-bit tail and its repeated last block), misaligned starts,
// full-range and small samples, and a full-HD plane's worth of blocks.
auto RunCases() {
  return test::Cases{[](test::Rng& rng) {
                       std::vector<test::Case> out;
                       auto add = [&](int n, int mis, bool full) {
                         test::Case c;
                         c.label = std::to_string(n) + " blocks" + (full ? " full" : "");
                         c.arg[0] = n;
                         c.out.push_back(test::ArrayOf<int32_t>(16 * n, mis));
                         if (full) c.out[0].Fill<int32_t>(rng, Full<int32_t>(true), Full<int32_t>(false));
                         else c.out[0].Fill<int32_t>(rng, -300, 300);
                         out.push_back(std::move(c));
                       };
                       for (int n = 1; n <= 70; ++n) add(n, n % 4, n % 3 != 0);
                       add(1920 * 1080 / 16, 0, false);
                       return out;
                     },
                     [](auto fn, test::Case& c) { return fn(c.out[0].as<int32_t>(), int32_t(c.arg[0])); }};
}
RVT_CHECKASM(rvtiPCTFwdBlocks_JPEGXR_32s_C1I, RunCases());
RVT_CHECKASM(rvtiPCTInvBlocks_JPEGXR_32s_C1I, RunCases());

}  // namespace
}  // namespace rvt
