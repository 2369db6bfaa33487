// Chroma sampling: known answers, every compiled target against the
// reference on random regions and rows whose sources sit in windows of
// exactly the samples they may read (under two different poisons of
// everything else), reads flush against inaccessible pages, and argument
// checks in order with nothing written.
#include <algorithm>
#include <functional>

#include "checkasm.h"

namespace rvt {
namespace {

using test::GuardedPlane;
using test::WindowPlane;

using RegionFn = RvtResult (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize);
using Row1Fn = RvtResult (*)(const uint8_t*, int32_t, uint8_t*);
using Row2Fn = RvtResult (*)(const uint8_t*, const uint8_t*, int32_t, uint8_t*);

const auto& kDownH2V1 = impl_rvtiSampleDownH2V1_JPEG_8u_C1R;
const auto& kDownH2V2 = impl_rvtiSampleDownH2V2_JPEG_8u_C1R;
const auto& kUpH2V1 = impl_rvtiSampleUpH2V1_JPEG_8u_C1R;
const auto& kUpH2V2 = impl_rvtiSampleUpH2V2_JPEG_8u_C1R;
const auto& kDownRowH2V1 = impl_rvtiSampleDownRowH2V1_Box_JPEG_8u_C1;
const auto& kDownRowH2V2 = impl_rvtiSampleDownRowH2V2_Box_JPEG_8u_C1;
const auto& kUpRowH2V1 = impl_rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1;
const auto& kUpRowH2V2 = impl_rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1;

// The source samples a region export may read for a w x h destination:
// a window of ww x wh bytes whose byte (ox, oy) is the region's origin.
struct Window {
  int ww, wh, ox, oy;
};
using WindowOf = Window (*)(int w, int h);
Window DownH2V1Window(int w, int h) { return {2 * w, h, 0, 0}; }
Window DownH2V2Window(int w, int h) { return {2 * w, 2 * h, 0, 0}; }
Window UpH2V1Window(int w, int h) { return {w / 2 + 2, h, 1, 0}; }
Window UpH2V2Window(int w, int h) { return {w / 2 + 2, h / 2 + 2, 1, 1}; }

struct RegionCase {
  const char* name;
  const Impl<RegionFn>& impl;
  WindowOf window;
};
const RegionCase kRegions[] = {{"DownH2V1", kDownH2V1, DownH2V1Window},
                               {"DownH2V2", kDownH2V2, DownH2V2Window},
                               {"UpH2V1", kUpH2V1, UpH2V1Window},
                               {"UpH2V2", kUpH2V2, UpH2V2Window}};

std::string Label(const char* what, const char* target, int w, int h, int threads) {
  return std::string(what) + " " + target + " " + std::to_string(w) + "x" + std::to_string(h) +
         " threads " + std::to_string(threads);
}

TEST(Sampling, KnownAnswers) {
  for (const auto& t : test::AllTargets(kDownH2V2)) {
    uint8_t src[4] = {0, 0, 0, 1}, d = 9;  // 2x2 block, step 2
    ASSERT_EQ(t.fn(src, 2, {2, 2}, &d, 1, {1, 1}), rvtStatusOk);
    EXPECT_EQ(d, 1) << t.name << ": the whole-region mean rounds up";
  }
  for (const auto& t : test::AllTargets(kDownH2V1)) {
    const uint8_t src[4] = {0, 1, 0, 1};
    uint8_t d[2] = {};
    ASSERT_EQ(t.fn(src, 4, {4, 1}, d, 2, {2, 1}), rvtStatusOk);
    EXPECT_EQ(d[0] + 10 * d[1], 11) << t.name;
  }
  for (const auto& t : test::AllTargets(kDownRowH2V1)) {
    const uint8_t src[4] = {0, 1, 0, 1};
    uint8_t d[2] = {};
    ASSERT_EQ(t.fn(src, 4, d), rvtStatusOk);
    EXPECT_EQ(d[0] + 10 * d[1], 10) << t.name << ": bias 0 then 1";
  }
  for (const auto& t : test::AllTargets(kDownRowH2V2)) {
    // Blocks (0,0 / 0,1) and (0,1 / 1,1) at even and odd output indices.
    const uint8_t u[8] = {0, 0, 0, 0, 0, 1, 0, 1}, l[8] = {0, 1, 0, 1, 1, 1, 1, 1};
    uint8_t d[4] = {};
    ASSERT_EQ(t.fn(u, l, 8, d), rvtStatusOk);
    EXPECT_EQ(d[0] + 10 * d[1] + 100 * d[2] + 1000 * d[3], 1100) << t.name;
  }
  for (const auto& t : test::AllTargets(kUpRowH2V1)) {
    const uint8_t src[2] = {0, 4};
    uint8_t d[4] = {};
    ASSERT_EQ(t.fn(src, 2, d), rvtStatusOk);
    EXPECT_EQ(std::vector<int>(d, d + 4), (std::vector<int>{0, 1, 3, 4})) << t.name;
  }
  for (const auto& t : test::AllTargets(kUpH2V1)) {
    // Same row inside margins 10 and 20: the margins are used, not replicated.
    const uint8_t src[4] = {10, 0, 4, 20};
    uint8_t d[4] = {};
    ASSERT_EQ(t.fn(src + 1, 4, {2, 1}, d, 4, {4, 1}), rvtStatusOk);
    EXPECT_EQ(std::vector<int>(d, d + 4), (std::vector<int>{2, 1, 3, 8})) << t.name;
  }
  for (const auto& t : test::AllTargets(kUpRowH2V2)) {
    const uint8_t n[2] = {0, 16}, f[2] = {16, 0};  // column sums 16, 48
    uint8_t d[4] = {};
    ASSERT_EQ(t.fn(n, f, 2, d), rvtStatusOk);
    EXPECT_EQ(std::vector<int>(d, d + 4), (std::vector<int>{4, 6, 10, 12})) << t.name;
    const uint8_t n1 = 0, f1 = 2;  // column sum 2: (8 + 8) >> 4, (8 + 7) >> 4
    ASSERT_EQ(t.fn(&n1, &f1, 1, d), rvtStatusOk);
    EXPECT_EQ(d[0] * 10 + d[1], 10) << t.name;
  }
  for (const auto& t : test::AllTargets(kUpH2V2)) {
    // A 16 in the top-left corner of the margin weighs 1/16 in output (0,0)
    // only: the far row of output row 0 is the row above the region.
    uint8_t src[9] = {16, 0, 0, 0, 0, 0, 0, 0, 0}, d[4] = {};
    ASSERT_EQ(t.fn(src + 4, 3, {1, 1}, d, 2, {2, 2}), rvtStatusOk);
    EXPECT_EQ(std::vector<int>(d, d + 4), (std::vector<int>{1, 0, 0, 0})) << t.name;
  }
}

TEST(Sampling, ConstantStaysConstantOnEveryTarget) {
  for (int v : {0, 1, 127, 254, 255}) {
    std::vector<uint8_t> src(4 * 70, uint8_t(v)), d(2 * 70);
    const auto all_v = [&](int n) {
      return std::all_of(d.begin(), d.begin() + n, [&](uint8_t x) { return x == v; });
    };
    for (const auto& c : kRegions) {
      for (const auto& t : test::AllTargets(c.impl)) {
        std::fill(d.begin(), d.end(), uint8_t(v ^ 0x5A));
        ASSERT_EQ(t.fn(src.data() + 71, 70, {1, 1}, d.data(), 67, {67, 1}), rvtStatusOk);
        EXPECT_TRUE(all_v(67)) << c.name << " " << t.name << " v=" << v;
      }
    }
    for (const auto& t : test::AllTargets(kDownRowH2V1)) {
      ASSERT_EQ(t.fn(src.data(), 67, d.data()), rvtStatusOk);
      EXPECT_TRUE(all_v(34)) << t.name;
    }
    for (const auto& t : test::AllTargets(kDownRowH2V2)) {
      ASSERT_EQ(t.fn(src.data(), src.data() + 70, 67, d.data()), rvtStatusOk);
      EXPECT_TRUE(all_v(34)) << t.name;
    }
    for (const auto& t : test::AllTargets(kUpRowH2V1)) {
      ASSERT_EQ(t.fn(src.data(), 67, d.data()), rvtStatusOk);
      EXPECT_TRUE(all_v(134)) << t.name;
    }
    for (const auto& t : test::AllTargets(kUpRowH2V2)) {
      ASSERT_EQ(t.fn(src.data(), src.data() + 70, 67, d.data()), rvtStatusOk);
      EXPECT_TRUE(all_v(134)) << t.name;
    }
  }
}

struct Shape {
  int w, h, pad, src_mis, dst_mis;
};

std::vector<Shape> RegionShapes() {
  std::vector<Shape> s;
  for (int w = 1; w <= 40; ++w) s.push_back({w, 1 + w % 4, (w * 7) % 5, w % 3, (w / 3) % 4});
  for (int w : {63, 64, 65, 127, 128, 129, 255, 257}) s.push_back({w, 3, w % 3, 1, 2});
  s.push_back({8192, 1, 0, 1, 0});  // serial limit
  s.push_back({8193, 1, 3, 0, 1});  // first forked size
  s.push_back({128, 64, 0, 0, 0});  // 8192 pixels
  s.push_back({2731, 3, 5, 3, 0});  // 8193 pixels
  s.push_back({97, 131, 16, 2, 1});
  return s;
}

// Every target (the reference too) under two poisons of the unreadable
// bytes equals the reference under a third, and writes only its region.
TEST(Sampling, RegionTargetsMatchReference) {
  test::Rng rng(11);
  for (const auto& c : kRegions) {
    for (const Shape& sh : RegionShapes()) {
      const Window win = c.window(sh.w, sh.h);
      WindowPlane src(win.ww, win.wh, win.ox, win.oy, win.ww + sh.pad, sh.src_mis);
      src.FillWindow(rng);
      const ImageSize src_roi{int32_t(rng.Uniform(1, 3)), int32_t(rng.Uniform(1, 3))};
      const ImageSize roi{sh.w, sh.h};
      const int32_t dst_step = sh.w + 2 * sh.pad;
      GuardedPlane<uint8_t> want(sh.w, sh.h, dst_step, sh.dst_mis);
      ASSERT_EQ(test::Reference(c.impl)(src.data(), src.step(), src_roi, want.data(), dst_step, roi),
                rvtStatusOk);
      test::WithThreads({1, 2}, [&](int threads) {
        for (const auto& t : test::AllTargets(c.impl)) {
          for (uint64_t poison : {1, 2}) {
            src.Poison(poison);
            GuardedPlane<uint8_t> got(sh.w, sh.h, dst_step, sh.dst_mis);
            ASSERT_EQ(t.fn(src.data(), src.step(), src_roi, got.data(), dst_step, roi), rvtStatusOk);
            ASSERT_TRUE(test::Matches(want, got, Label(c.name, t.name, sh.w, sh.h, threads)))
                << " poison " << poison;
          }
        }
      });
    }
  }
}

std::vector<int> RowWidths() {
  std::vector<int> w;
  for (int i = 1; i <= 70; ++i) w.push_back(i);
  for (int i : {127, 128, 129, 255, 256, 257, 1000, 1921}) w.push_back(i);
  return w;
}

// Row exports behind one signature (the second row is ignored by the H2V1
// forms); each case lists its targets, the reference last.
using RowCall = std::function<RvtResult(const uint8_t*, const uint8_t*, int32_t, uint8_t*)>;
using NamedCalls = std::vector<std::pair<std::string, RowCall>>;

template <class Fn>
NamedCalls Calls(const Impl<Fn>& impl) {
  NamedCalls out;
  for (const auto& t : test::AllTargets(impl)) {
    const Fn fn = t.fn;
    if constexpr (std::is_same_v<Fn, Row1Fn>) {
      out.push_back({t.name, [fn](const uint8_t* a, const uint8_t*, int32_t w, uint8_t* d) {
                       return fn(a, w, d);
                     }});
    } else {
      out.push_back({t.name, [fn](const uint8_t* a, const uint8_t* b, int32_t w, uint8_t* d) {
                       return fn(a, b, w, d);
                     }});
    }
  }
  return out;
}

// A row case reads `readable(w)` samples of `rows` rows and writes `out(w)`.
struct RowCase {
  const char* name;
  int rows;
  int (*readable)(int);
  int (*out)(int);
  NamedCalls targets;
};

std::vector<RowCase> RowCases() {
  int (*even_up)(int) = [](int w) { return 2 * ((w + 1) / 2); };
  int (*half_up)(int) = [](int w) { return (w + 1) / 2; };
  int (*same)(int) = [](int w) { return w; };
  int (*twice)(int) = [](int w) { return 2 * w; };
  return {{"DownRowH2V1", 1, even_up, half_up, Calls(kDownRowH2V1)},
          {"DownRowH2V2", 2, even_up, half_up, Calls(kDownRowH2V2)},
          {"UpRowH2V1", 1, same, twice, Calls(kUpRowH2V1)},
          {"UpRowH2V2", 2, same, twice, Calls(kUpRowH2V2)}};
}

TEST(Sampling, RowTargetsMatchReference) {
  test::Rng rng(12);
  for (const RowCase& c : RowCases()) {
    const NamedCalls& targets = c.targets;
    for (int w : RowWidths()) {
      const int readable = c.readable(w), out = c.out(w);
      WindowPlane src(readable, c.rows, 0, 0, readable + w % 7, w % 5);
      src.FillWindow(rng);
      const uint8_t* a = src.data();
      const uint8_t* b = c.rows == 2 ? src.data() + src.step() : nullptr;
      GuardedPlane<uint8_t> want(out, 1, 0, w % 3);
      ASSERT_EQ(targets.back().second(a, b, w, want.data()), rvtStatusOk);
      for (const auto& [name, fn] : targets) {
        for (uint64_t poison : {1, 2}) {
          src.Poison(poison);
          GuardedPlane<uint8_t> got(out, 1, 0, w % 3);
          ASSERT_EQ(fn(a, b, w, got.data()), rvtStatusOk);
          ASSERT_TRUE(test::Matches(want, got, Label(c.name, name.c_str(), w, 1, 1)));
          if (b) {  // rows in either order in memory
            GuardedPlane<uint8_t> swapped(out, 1, 0, 0), swapped_want(out, 1, 0, 0);
            ASSERT_EQ(targets.back().second(b, a, w, swapped_want.data()), rvtStatusOk);
            ASSERT_EQ(fn(b, a, w, swapped.data()), rvtStatusOk);
            ASSERT_TRUE(test::Matches(swapped_want, swapped, Label(c.name, name.c_str(), w, 1, 1)));
          }
        }
      }
    }
  }
}

// Sources laid flush against inaccessible pages, below and above: a read
// of even one byte beyond what the export may read faults.
void AtBothFences(const Window& win, test::Rng& rng,
                  const std::function<void(const uint8_t* origin, int32_t step)>& run) {
  const size_t bytes = size_t(win.ww) * win.wh;
  test::PageFence fence(bytes);
  ASSERT_TRUE(fence.ok());
  for (uint8_t* p : {fence.AfterLow(), fence.BeforeHigh(bytes)}) {
    for (size_t i = 0; i < bytes; ++i) p[i] = uint8_t(rng.Uniform(0, 255));
    run(p + size_t(win.oy) * win.ww + win.ox, win.ww);
  }
}

TEST(Sampling, ReadsStopAtTheirLimits) {
  test::Rng rng(13);
  std::vector<uint8_t> got(1 << 16), want(1 << 16);
  for (const auto& c : kRegions) {
    for (int w = 1; w <= 70; ++w) {
      for (int h : {1, 2, 3}) {
        AtBothFences(c.window(w, h), rng, [&](const uint8_t* s, int32_t step) {
          ASSERT_EQ(test::Reference(c.impl)(s, step, {1, 1}, want.data(), w, {w, h}), rvtStatusOk);
          for (const auto& t : test::SimdTargets(c.impl)) {
            ASSERT_EQ(t.fn(s, step, {1, 1}, got.data(), w, {w, h}), rvtStatusOk);
            ASSERT_TRUE(std::equal(want.begin(), want.begin() + w * h, got.begin()))
                << c.name << " " << t.name << " " << w << "x" << h;
          }
        });
      }
    }
  }
  for (const RowCase& c : RowCases()) {
    const NamedCalls& targets = c.targets;
    for (int w : RowWidths()) {
      const int readable = c.readable(w);
      AtBothFences({readable, c.rows, 0, 0}, rng, [&](const uint8_t* s, int32_t step) {
        const uint8_t* b = c.rows == 2 ? s + step : nullptr;
        for (const auto& [name, fn] : targets) {
          ASSERT_EQ(fn(s, b, w, got.data()), rvtStatusOk) << c.name << " " << name;
          if (b) ASSERT_EQ(fn(b, s, w, got.data()), rvtStatusOk) << c.name << " " << name;
        }
      });
    }
  }
}

TEST(Sampling, ExportsUseTheChosenTarget) {
  // Through the exported entries, one threaded region of each kind.
  const RegionFn exports[] = {rvtiSampleDownH2V1_JPEG_8u_C1R, rvtiSampleDownH2V2_JPEG_8u_C1R,
                              rvtiSampleUpH2V1_JPEG_8u_C1R, rvtiSampleUpH2V2_JPEG_8u_C1R};
  test::Rng rng(14);
  for (int k = 0; k < 4; ++k) {
    const Window win = kRegions[k].window(301, 61);
    WindowPlane src(win.ww, win.wh, win.ox, win.oy);
    src.FillWindow(rng);
    GuardedPlane<uint8_t> want(301, 61), got(301, 61);
    ASSERT_EQ(test::Reference(kRegions[k].impl)(src.data(), src.step(), {1, 1}, want.data(),
                                                want.step(), {301, 61}),
              rvtStatusOk);
    ASSERT_EQ(exports[k](src.data(), src.step(), {1, 1}, got.data(), got.step(), {301, 61}),
              rvtStatusOk);
    EXPECT_TRUE(test::Matches(want, got, kRegions[k].name));
  }
}

TEST(Sampling, RegionChecksInArgumentOrderWriteNothing) {
  std::vector<uint8_t> src(64, 7);
  GuardedPlane<uint8_t> dst(4, 2);
  const GuardedPlane<uint8_t> before = dst;
  struct Case {
    bool null_src;
    int32_t src_step;
    ImageSize src_roi;
    bool null_dst;
    int32_t dst_step;
    ImageSize dst_roi;
    RvtResult want;
  };
  const Case cases[] = {
      {true, 0, {0, 0}, true, 0, {0, 0}, rvtStatusNullPtr},
      {false, 0, {0, 0}, true, 0, {0, 0}, rvtStatusStep},
      {false, -8, {4, 4}, false, 4, {2, 2}, rvtStatusStep},
      {false, 8, {0, 4}, true, 0, {0, 0}, rvtStatusSize},
      {false, 8, {4, -1}, true, 4, {2, 2}, rvtStatusSize},
      {false, 8, {4, 4}, true, 0, {0, 0}, rvtStatusNullPtr},
      {false, 8, {4, 4}, false, 0, {0, 0}, rvtStatusStep},
      {false, 8, {4, 4}, false, 4, {0, 2}, rvtStatusSize},
      {false, 8, {4, 4}, false, 4, {2, 0}, rvtStatusSize},
      {false, 8, {4, 4}, false, 4, {-3, -3}, rvtStatusSize},
  };
  for (const auto& c : kRegions) {
    for (const auto& t : test::AllTargets(c.impl)) {
      for (const Case& k : cases) {
        EXPECT_EQ(t.fn(k.null_src ? nullptr : src.data() + 16, k.src_step, k.src_roi,
                       k.null_dst ? nullptr : dst.data(), k.dst_step, k.dst_roi),
                  k.want)
            << c.name << " " << t.name;
        ASSERT_TRUE(dst.Unchanged(before)) << c.name << " " << t.name;
      }
    }
  }
}

TEST(Sampling, RowChecksPointersThenWidthWriteNothing) {
  const uint8_t src[8] = {};
  uint8_t dst[16];
  std::memset(dst, 0xEE, sizeof dst);
  for (const RowCase& c : RowCases()) {
    for (const auto& [name, fn] : c.targets) {
      const uint8_t* b = c.rows == 2 ? src : nullptr;
      EXPECT_EQ(fn(nullptr, b, 0, dst), rvtStatusNullPtr) << c.name << " " << name;
      EXPECT_EQ(fn(src, b, 0, nullptr), rvtStatusNullPtr) << c.name << " " << name;
      if (c.rows == 2) EXPECT_EQ(fn(src, nullptr, -1, dst), rvtStatusNullPtr) << c.name;
      EXPECT_EQ(fn(src, b, 0, dst), rvtStatusSize) << c.name << " " << name;
      EXPECT_EQ(fn(src, b, -5, dst), rvtStatusSize) << c.name << " " << name;
      EXPECT_EQ(fn(src, b, INT32_MIN, dst), rvtStatusSize) << c.name << " " << name;
      for (uint8_t v : dst) ASSERT_EQ(v, 0xEE) << c.name << " " << name;
    }
  }
}

}  // namespace
}  // namespace rvt
