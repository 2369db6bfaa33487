// Chroma sampling: known answers; every compiled target against the
// reference with each source in a window of exactly the samples it may
// read, under two poisons of everything else; reads flush against
// inaccessible pages; argument checks in order with nothing written.
#include <algorithm>
#include <functional>

#include "checkasm.h"

namespace rvt {
namespace {

using test::GuardedPlane;
using test::WindowPlane;

// Every export behind one call shape: the source origin and step (the
// second row of the H2V2 row forms is origin + step), w x h (destination
// size of the region forms, source width of the row forms, h = 1), and the
// destination.
using Call = std::function<RvtResult(const uint8_t*, int32_t, int, int, uint8_t*, int32_t)>;
struct Window {
  int ww, wh, ox, oy;  // readable bytes, and the origin inside them
};
struct Export {
  const char* name;
  Window (*window)(int w, int h);
  int (*out_w)(int w);
  std::vector<std::pair<std::string, Call>> targets;  // the reference last
  bool row;
};

template <class Fn>
std::vector<std::pair<std::string, Call>> Calls(const Impl<Fn>& impl) {
  std::vector<std::pair<std::string, Call>> out;
  for (const auto& t : test::AllTargets(impl)) {
    const Fn fn = t.fn;
    Call c;
    if constexpr (std::is_invocable_v<Fn, const uint8_t*, int32_t, uint8_t*>) {
      c = [fn](const uint8_t* s, int32_t, int w, int, uint8_t* d, int32_t) { return fn(s, w, d); };
    } else if constexpr (std::is_invocable_v<Fn, const uint8_t*, const uint8_t*, int32_t, uint8_t*>) {
      c = [fn](const uint8_t* s, int32_t st, int w, int, uint8_t* d, int32_t) {
        return fn(s, s + st, w, d);
      };
    } else {
      c = [fn](const uint8_t* s, int32_t st, int w, int h, uint8_t* d, int32_t ds) {
        return fn(s, st, {1, 1}, d, ds, {w, h});
      };
    }
    out.push_back({t.name, c});
  }
  return out;
}

int Same(int w) { return w; }
int HalfUp(int w) { return (w + 1) / 2; }
int Twice(int w) { return 2 * w; }

const std::vector<Export>& Exports() {
  static const std::vector<Export> e = {
      {"DownH2V1", [](int w, int h) { return Window{2 * w, h, 0, 0}; }, Same,
       Calls(impl_rvtiSampleDownH2V1_JPEG_8u_C1R), false},
      {"DownH2V2", [](int w, int h) { return Window{2 * w, 2 * h, 0, 0}; }, Same,
       Calls(impl_rvtiSampleDownH2V2_JPEG_8u_C1R), false},
      {"UpH2V1", [](int w, int h) { return Window{w / 2 + 2, h, 1, 0}; }, Same,
       Calls(impl_rvtiSampleUpH2V1_JPEG_8u_C1R), false},
      {"UpH2V2", [](int w, int h) { return Window{w / 2 + 2, h / 2 + 2, 1, 1}; }, Same,
       Calls(impl_rvtiSampleUpH2V2_JPEG_8u_C1R), false},
      // Odd widths read the padding sample past the row.
      {"DownRowH2V1", [](int w, int) { return Window{2 * HalfUp(w), 1, 0, 0}; }, HalfUp,
       Calls(impl_rvtiSampleDownRowH2V1_Box_JPEG_8u_C1), true},
      {"DownRowH2V2", [](int w, int) { return Window{2 * HalfUp(w), 2, 0, 0}; }, HalfUp,
       Calls(impl_rvtiSampleDownRowH2V2_Box_JPEG_8u_C1), true},
      {"UpRowH2V1", [](int w, int) { return Window{w, 1, 0, 0}; }, Twice,
       Calls(impl_rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1), true},
      {"UpRowH2V2", [](int w, int) { return Window{w, 2, 0, 0}; }, Twice,
       Calls(impl_rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1), true},
  };
  return e;
}

struct Known {
  int exp;
  std::vector<uint8_t> src;
  int origin, step, w, h;
  std::vector<int> want;
};

TEST(Sampling, KnownAnswers) {
  const Known cases[] = {
      {1, {0, 0, 0, 1}, 0, 2, 1, 1, {1}},           // region mean rounds up
      {5, {0, 0, 0, 0, 0, 1, 0, 1}, 0, 4, 4, 1, {0, 0}},  // row: bias 1 then 2
      {5, {0, 1, 0, 1, 1, 1, 1, 1}, 0, 4, 4, 1, {1, 1}},  // (3 + 1) >> 2, (3 + 2) >> 2
      {0, {0, 1, 0, 1}, 0, 4, 2, 1, {1, 1}},
      {4, {0, 1, 0, 1}, 0, 4, 4, 1, {0, 1}},        // row: bias 0 then 1
      {4, {0, 1, 0, 1, 0, 1, 0, 1}, 0, 8, 7, 1, {0, 1, 0, 1}},  // odd width: padding read
      {6, {0, 4}, 0, 2, 2, 1, {0, 1, 3, 4}},        // row edges replicate
      {2, {10, 0, 4, 20}, 1, 4, 4, 1, {2, 1, 3, 8}},  // region uses the margins
      {7, {0, 16, 16, 0}, 0, 2, 2, 1, {4, 6, 10, 12}},  // column sums 16, 48
      {7, {0, 2}, 0, 1, 1, 1, {1, 0}},              // (8 + 8) >> 4, (8 + 7) >> 4
      // The top-left margin sample weighs 1/16 in output (0, 0) only.
      {3, {16, 0, 0, 0, 0, 0, 0, 0, 0}, 4, 3, 2, 2, {1, 0, 0, 0}},
  };
  for (const Known& k : cases) {
    const Export& e = Exports()[k.exp];
    for (const auto& [name, fn] : e.targets) {
      std::vector<uint8_t> d(k.want.size(), 99);
      ASSERT_EQ(fn(k.src.data() + k.origin, k.step, k.w, k.h, d.data(), e.out_w(k.w)), rvtStatusOk);
      EXPECT_EQ(std::vector<int>(d.begin(), d.end()), k.want) << e.name << " " << name;
    }
  }
  // A constant plane stays constant through every filter, edges included.
  for (int v : {0, 1, 128, 254, 255}) {
    for (const Export& e : Exports()) {
      const Window win = e.window(37, e.row ? 1 : 3);
      std::vector<uint8_t> src(size_t(win.ww) * win.wh, uint8_t(v)), d(3 * 74, uint8_t(~v));
      const uint8_t* origin = src.data() + win.oy * win.ww + win.ox;
      for (const auto& [name, fn] : e.targets) {
        ASSERT_EQ(fn(origin, win.ww, 37, e.row ? 1 : 3, d.data(), e.out_w(37)), rvtStatusOk);
        const size_t n = size_t(e.out_w(37)) * (e.row ? 1 : 3);
        EXPECT_TRUE(std::all_of(d.begin(), d.begin() + n, [&](uint8_t x) { return x == v; }))
            << e.name << " " << name << " v=" << v;
      }
    }
  }
}

struct Shape {
  int w, h;
};
std::vector<Shape> Shapes(bool row) {
  std::vector<Shape> s;
  for (int w = 1; w <= 40; ++w) s.push_back({w, row ? 1 : 1 + w % 4});
  for (int w : {63, 64, 65, 127, 128, 129, 255, 257, 1921}) s.push_back({w, row ? 1 : 3});
  if (!row) {  // both sides of the threading limit, and a tall region
    for (Shape t : {Shape{8192, 1}, {8193, 1}, {128, 64}, {2731, 3}, {97, 131}}) s.push_back(t);
  }
  return s;
}

// All targets, the reference too, under two poisons of the unreadable bytes
// and with 1 and 2 threads, equal the reference and write only their region.
TEST(Sampling, TargetsMatchReference) {
  test::Rng rng(11);
  for (const Export& e : Exports()) {
    for (const Shape& sh : Shapes(e.row)) {
      const Window win = e.window(sh.w, sh.h);
      const int pad = int(rng.Uniform(0, 9)), ow = e.out_w(sh.w);
      WindowPlane src(win.ww, win.wh, win.ox, win.oy, win.ww + pad, int(rng.Uniform(0, 3)));
      src.FillWindow(rng);
      const int32_t dst_step = ow + int32_t(rng.Uniform(0, 9));
      const int dst_mis = int(rng.Uniform(0, 3));
      GuardedPlane<uint8_t> want(ow, sh.h, dst_step, dst_mis);
      ASSERT_EQ(e.targets.back().second(src.data(), src.step(), sh.w, sh.h, want.data(), dst_step),
                rvtStatusOk);
      test::WithThreads({1, 2}, [&](int threads) {
        for (const auto& [name, fn] : e.targets) {
          for (uint64_t poison : {1, 2}) {
            src.Poison(poison);
            GuardedPlane<uint8_t> got(ow, sh.h, dst_step, dst_mis);
            ASSERT_EQ(fn(src.data(), src.step(), sh.w, sh.h, got.data(), dst_step), rvtStatusOk);
            ASSERT_TRUE(test::Matches(want, got,
                                      std::string(e.name) + " " + name + " " +
                                          std::to_string(sh.w) + "x" + std::to_string(sh.h) +
                                          " threads " + std::to_string(threads)));
          }
        }
      });
    }
  }
}

// Sources laid flush against inaccessible pages, below and above: a read of
// one byte more than an export may read faults.
TEST(Sampling, ReadsStopAtTheirLimits) {
  test::Rng rng(13);
  std::vector<uint8_t> got(1 << 12), want(1 << 12);
  for (const Export& e : Exports()) {
    for (int w = 1; w <= 70; ++w) {
      for (int h = 1; h <= (e.row ? 1 : 3); ++h) {
        const Window win = e.window(w, h);
        const size_t bytes = size_t(win.ww) * win.wh;
        test::PageFence fence(bytes);
        ASSERT_TRUE(fence.ok());
        for (uint8_t* p : {fence.AfterLow(), fence.BeforeHigh(bytes)}) {
          for (size_t i = 0; i < bytes; ++i) p[i] = uint8_t(rng.Uniform(0, 255));
          const uint8_t* origin = p + win.oy * win.ww + win.ox;
          const int ow = e.out_w(w);
          ASSERT_EQ(e.targets.back().second(origin, win.ww, w, h, want.data(), ow), rvtStatusOk);
          for (const auto& [name, fn] : e.targets) {
            ASSERT_EQ(fn(origin, win.ww, w, h, got.data(), ow), rvtStatusOk);
            ASSERT_TRUE(std::equal(want.begin(), want.begin() + ow * h, got.begin()))
                << e.name << " " << name << " w=" << w << " h=" << h;
          }
        }
      }
    }
  }
}

TEST(Sampling, ExportsRunTheChosenTarget) {
  test::Rng rng(14);
  std::vector<uint8_t> src(302 * 64), want(600 * 62), got(600 * 62);
  rng.Fill(src.data(), src.size(), uint8_t(0), uint8_t(255));
  const auto& down = impl_rvtiSampleDownH2V2_JPEG_8u_C1R;
  ASSERT_EQ(test::Reference(down)(src.data(), 302, {1, 1}, want.data(), 150, {150, 31}), 0);
  ASSERT_EQ(rvtiSampleDownH2V2_JPEG_8u_C1R(src.data(), 302, {1, 1}, got.data(), 150, {150, 31}), 0);
  EXPECT_EQ(want, got);
  const auto& up = impl_rvtiSampleUpH2V2_JPEG_8u_C1R;
  ASSERT_EQ(test::Reference(up)(src.data() + 303, 302, {1, 1}, want.data(), 600, {600, 62}), 0);
  ASSERT_EQ(rvtiSampleUpH2V2_JPEG_8u_C1R(src.data() + 303, 302, {1, 1}, got.data(), 600, {600, 62}),
            0);
  EXPECT_EQ(want, got);
}

TEST(Sampling, ChecksInOrderWriteNothing) {
  const uint8_t src[64] = {};
  GuardedPlane<uint8_t> dst(4, 2);
  const GuardedPlane<uint8_t> before = dst;
  struct Case {
    bool src;
    int32_t src_step;
    ImageSize src_roi;
    bool dst;
    int32_t dst_step;
    ImageSize dst_roi;
    RvtResult want;
  };
  const Case region[] = {
      {false, 0, {0, 0}, false, 0, {0, 0}, rvtStatusNullPtr},
      {true, 0, {0, 0}, false, 0, {0, 0}, rvtStatusStep},
      {true, 8, {0, 4}, false, 0, {0, 0}, rvtStatusSize},
      {true, 8, {4, -1}, false, 4, {2, 2}, rvtStatusSize},
      {true, 8, {4, 4}, false, 0, {0, 0}, rvtStatusNullPtr},
      {true, 8, {4, 4}, true, 0, {0, 0}, rvtStatusStep},
      {true, 8, {4, 4}, true, 4, {0, 2}, rvtStatusSize},
      {true, 8, {4, 4}, true, 4, {2, 0}, rvtStatusSize},
  };
  using RegionFn = RvtResult (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize);
  for (const Impl<RegionFn>* impl :
       {&impl_rvtiSampleDownH2V1_JPEG_8u_C1R, &impl_rvtiSampleDownH2V2_JPEG_8u_C1R,
        &impl_rvtiSampleUpH2V1_JPEG_8u_C1R, &impl_rvtiSampleUpH2V2_JPEG_8u_C1R}) {
    for (const auto& t : test::AllTargets(*impl)) {
      for (const Case& k : region) {
        EXPECT_EQ(t.fn(k.src ? src + 16 : nullptr, k.src_step, k.src_roi,
                       k.dst ? dst.data() : nullptr, k.dst_step, k.dst_roi),
                  k.want)
            << t.name;
      }
    }
  }
  // Row forms: every row pointer first, then the width.
  for (const Export& e : Exports()) {
    if (!e.row) continue;
    for (const auto& [name, fn] : e.targets) {
      EXPECT_EQ(fn(nullptr, 8, 0, 1, dst.data(), 4), rvtStatusNullPtr) << e.name << name;
      EXPECT_EQ(fn(src, 8, 0, 1, nullptr, 4), rvtStatusNullPtr) << e.name << name;
      for (int w : {0, -1, INT32_MIN}) {
        EXPECT_EQ(fn(src, 8, w, 1, dst.data(), 4), rvtStatusSize) << e.name << name;
      }
    }
  }
  EXPECT_EQ(rvtiSampleDownRowH2V2_Box_JPEG_8u_C1(src, nullptr, -1, dst.data()), rvtStatusNullPtr);
  EXPECT_EQ(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(src, nullptr, 0, dst.data()), rvtStatusNullPtr);
  EXPECT_TRUE(dst.Unchanged(before));
}

}  // namespace
}  // namespace rvt
