// Chroma sampling: known answers; the registered differential checks, each
// source a window of exactly the samples the export may read; outputs that
// do not change under two poisons of everything else; reads flush against
// inaccessible pages; argument checks in order with nothing written.
#include <algorithm>
#include <functional>
#include <tuple>

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

// Binds an entry of any sampling export to the call shape above.
template <class Fn>
RvtResult Bind(Fn fn, const uint8_t* s, int32_t st, int w, int h, uint8_t* d, int32_t ds) {
  if constexpr (std::is_invocable_v<Fn, const uint8_t*, int32_t, uint8_t*>) {
    return fn(s, w, d);
  } else if constexpr (std::is_invocable_v<Fn, const uint8_t*, const uint8_t*, int32_t, uint8_t*>) {
    return fn(s, s + st, w, d);
  } else {
    return fn(s, st, {1, 1}, d, ds, {w, h});
  }
}

template <class Fn>
std::vector<std::pair<std::string, Call>> Calls(const Impl<Fn>& impl) {
  std::vector<std::pair<std::string, Call>> out;
  for (const auto& t : test::AllTargets(impl)) {
    const Fn fn = t.fn;
    out.push_back({t.name, [fn](const uint8_t* s, int32_t st, int w, int h, uint8_t* d,
                                int32_t ds) { return Bind(fn, s, st, w, h, d, ds); }});
  }
  return out;
}

int Same(int w) { return w; }
int HalfUp(int w) { return (w + 1) / 2; }
int Twice(int w) { return 2 * w; }

// The samples each export may read.  Odd widths of the down rows read the
// padding sample past the row.
Window DownH2V1Window(int w, int h) { return {2 * w, h, 0, 0}; }
Window DownH2V2Window(int w, int h) { return {2 * w, 2 * h, 0, 0}; }
Window UpH2V1Window(int w, int h) { return {w / 2 + 2, h, 1, 0}; }
Window UpH2V2Window(int w, int h) { return {w / 2 + 2, h / 2 + 2, 1, 1}; }
Window DownRowH2V1Window(int w, int) { return {2 * HalfUp(w), 1, 0, 0}; }
Window DownRowH2V2Window(int w, int) { return {2 * HalfUp(w), 2, 0, 0}; }
Window UpRowH2V1Window(int w, int) { return {w, 1, 0, 0}; }
Window UpRowH2V2Window(int w, int) { return {w, 2, 0, 0}; }

const std::vector<Export>& Exports() {
  static const std::vector<Export> e = {
      {"DownH2V1", DownH2V1Window, Same, Calls(impl_rvtiSampleDownH2V1_JPEG_8u_C1R), false},
      {"DownH2V2", DownH2V2Window, Same, Calls(impl_rvtiSampleDownH2V2_JPEG_8u_C1R), false},
      {"UpH2V1", UpH2V1Window, Same, Calls(impl_rvtiSampleUpH2V1_JPEG_8u_C1R), false},
      {"UpH2V2", UpH2V2Window, Same, Calls(impl_rvtiSampleUpH2V2_JPEG_8u_C1R), false},
      {"DownRowH2V1", DownRowH2V1Window, HalfUp, Calls(impl_rvtiSampleDownRowH2V1_Box_JPEG_8u_C1),
       true},
      {"DownRowH2V2", DownRowH2V2Window, HalfUp, Calls(impl_rvtiSampleDownRowH2V2_Box_JPEG_8u_C1),
       true},
      {"UpRowH2V1", UpRowH2V1Window, Twice, Calls(impl_rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1),
       true},
      {"UpRowH2V2", UpRowH2V2Window, Twice, Calls(impl_rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1),
       true},
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

// ------------------------------------------------------------ differential checks
// Each source buffer is the window of samples the export may read and
// nothing else: the harness's guard bytes around it stand for everything
// the export must not read, so a target that reads past its window gives
// other outputs than the reference on the same bytes.  Case k.arg[0] is the
// origin inside the window; the region forms get the source size in
// arg[1], arg[2] (only checked to be positive).

struct Shape {
  int w, h;
};

// Widths 1..67 (every vector remainder of every target) at odd heights,
// padded steps and misaligned starts; odd sizes past the vector widths;
// both sides of the threading limit for the threaded forms; last, the
// region of a full-HD plane's chroma, or one of its rows.
std::vector<Shape> CheckShapes(bool row, bool threaded, int hd_row) {
  std::vector<Shape> s;
  for (int w = 1; w <= 67; ++w) s.push_back({w, row ? 1 : 1 + w % 4});
  for (int w : {127, 129, 255, 257, 1921}) s.push_back({w, row ? 1 : 3});
  if (threaded) {
    for (Shape t : {Shape{8192, 1}, {8193, 1}, {2731, 3}, {97, 131}}) s.push_back(t);
  }
  s.push_back(row ? Shape{hd_row, 1} : Shape{1920, 1080});
  return s;
}

template <class Fn>
test::CaseCheck<Fn> WindowCheck(Window (*window)(int, int), int (*out_w)(int), bool row,
                                bool threaded, int hd_row = 0) {
  auto make = [=](test::Rng& rng) {
    std::vector<test::Case> cases;
    for (const Shape& sh : CheckShapes(row, threaded, hd_row)) {
      const Window win = window(sh.w, sh.h);
      const int pad = sh.w % 5, ow = out_w(sh.w);
      test::Case k;
      k.label = std::to_string(sh.w) + "x" + std::to_string(sh.h);
      k.roi = {sh.w, sh.h};
      k.in.push_back(test::PlaneOf<uint8_t>(win.ww, win.wh, win.ww + pad, sh.w % 3));
      k.in[0].Fill(rng, uint8_t(0), uint8_t(255));
      k.arg[0] = int64_t(win.oy) * k.in[0].step() + win.ox;
      k.arg[1] = std::max(win.ww - 2 * win.ox, 1);
      k.arg[2] = std::max(win.wh - 2 * win.oy, 1);
      k.out.push_back(test::PlaneOf<uint8_t>(ow, sh.h, ow + 2 * pad, (sh.w / 3) % 4));
      cases.push_back(std::move(k));
    }
    return cases;
  };
  auto call = [](auto fn, test::Case& k) -> RvtResult {
    const uint8_t* s = k.in[0].as<uint8_t>() + k.arg[0];
    uint8_t* d = k.out[0].as<uint8_t>();
    using F = decltype(fn);
    if constexpr (std::is_invocable_v<F, const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t,
                                      ImageSize>) {
      return fn(s, k.in[0].step(), ImageSize{int(k.arg[1]), int(k.arg[2])}, d, k.out[0].step(),
                k.roi);
    } else {
      return Bind(fn, s, k.in[0].step(), k.roi.width, 1, d, 0);
    }
  };
  return test::Cases{make, call, threaded ? std::vector<int>{1, 2} : std::vector<int>{1}};
}

using RegionFn = decltype(&rvtiSampleDownH2V1_JPEG_8u_C1R);
using Row1Fn = decltype(&rvtiSampleDownRowH2V1_Box_JPEG_8u_C1);
using Row2Fn = decltype(&rvtiSampleDownRowH2V2_Box_JPEG_8u_C1);

// DownH2V1, DownH2V2 and UpH2V2 follow the threading rule; UpH2V1 and the
// row forms run on the calling thread.
RVT_CHECKASM(rvtiSampleDownH2V1_JPEG_8u_C1R,
             WindowCheck<RegionFn>(DownH2V1Window, Same, false, test::kThreaded));
RVT_CHECKASM(rvtiSampleDownH2V2_JPEG_8u_C1R,
             WindowCheck<RegionFn>(DownH2V2Window, Same, false, test::kThreaded));
RVT_CHECKASM(rvtiSampleUpH2V1_JPEG_8u_C1R, WindowCheck<RegionFn>(UpH2V1Window, Same, false, false));
RVT_CHECKASM(rvtiSampleUpH2V2_JPEG_8u_C1R,
             WindowCheck<RegionFn>(UpH2V2Window, Same, false, test::kThreaded));
RVT_CHECKASM(rvtiSampleDownRowH2V1_Box_JPEG_8u_C1,
             WindowCheck<Row1Fn>(DownRowH2V1Window, HalfUp, true, false, 1920));
RVT_CHECKASM(rvtiSampleDownRowH2V2_Box_JPEG_8u_C1,
             WindowCheck<Row2Fn>(DownRowH2V2Window, HalfUp, true, false, 1920));
RVT_CHECKASM(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1,
             WindowCheck<Row1Fn>(UpRowH2V1Window, Twice, true, false, 960));
RVT_CHECKASM(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1,
             WindowCheck<Row2Fn>(UpRowH2V2Window, Twice, true, false, 960));

// ------------------------------------------------------------ read tests

// Every entry, the reference too, gives the same output under two poisons
// of every byte outside its window, and writes only its region (the shapes
// of the checks but the full-HD one).
TEST(Sampling, UnreadBytesDoNotChangeOutputs) {
  test::Rng rng(11);
  for (const Export& e : Exports()) {
    std::vector<Shape> shapes = CheckShapes(e.row, !e.row, 0);
    shapes.pop_back();
    for (const Shape& sh : shapes) {
      const Window win = e.window(sh.w, sh.h);
      const int pad = int(rng.Uniform(0, 9)), ow = e.out_w(sh.w);
      WindowPlane src(win.ww, win.wh, win.ox, win.oy, win.ww + pad, int(rng.Uniform(0, 3)));
      src.FillWindow(rng);
      const int32_t dst_step = ow + int32_t(rng.Uniform(0, 9));
      const int dst_mis = int(rng.Uniform(0, 3));
      for (const auto& [name, fn] : e.targets) {
        const std::string label = std::string(e.name) + " " + name + " " +
                                  std::to_string(sh.w) + "x" + std::to_string(sh.h);
        src.Poison(1);
        GuardedPlane<uint8_t> first(ow, sh.h, dst_step, dst_mis);
        ASSERT_EQ(fn(src.data(), src.step(), sh.w, sh.h, first.data(), dst_step), rvtStatusOk);
        src.Poison(2);
        GuardedPlane<uint8_t> second(ow, sh.h, dst_step, dst_mis);
        ASSERT_EQ(fn(src.data(), src.step(), sh.w, sh.h, second.data(), dst_step), rvtStatusOk);
        ASSERT_TRUE(test::Matches(first, second, label));
        ASSERT_TRUE(first.GuardsIntact()) << label;
      }
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
  const uint8_t src[64] = {}, *s = src + 16;
  GuardedPlane<uint8_t> dst(4, 2);
  const GuardedPlane<uint8_t> before = dst;
  uint8_t* d = dst.data();
  using RegionArgs = std::tuple<const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize>;
  const std::pair<RegionArgs, RvtResult> region[] = {
      {{nullptr, 0, {0, 0}, nullptr, 0, {0, 0}}, rvtStatusNullPtr},
      {{s, 0, {0, 0}, nullptr, 0, {0, 0}}, rvtStatusStep},
      {{s, 8, {0, 4}, nullptr, 0, {0, 0}}, rvtStatusSize},
      {{s, 8, {4, -1}, nullptr, 4, {2, 2}}, rvtStatusSize},
      {{s, 8, {4, 4}, nullptr, 0, {0, 0}}, rvtStatusNullPtr},
      {{s, 8, {4, 4}, d, 0, {0, 0}}, rvtStatusStep},
      {{s, 8, {4, 4}, d, 4, {0, 2}}, rvtStatusSize},
      {{s, 8, {4, 4}, d, 4, {2, 0}}, rvtStatusSize},
  };
  using RegionFn = RvtResult (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize);
  for (const Impl<RegionFn>* impl :
       {&impl_rvtiSampleDownH2V1_JPEG_8u_C1R, &impl_rvtiSampleDownH2V2_JPEG_8u_C1R,
        &impl_rvtiSampleUpH2V1_JPEG_8u_C1R, &impl_rvtiSampleUpH2V2_JPEG_8u_C1R}) {
    for (const auto& t : test::AllTargets(*impl)) {
      for (const auto& [args, want] : region) EXPECT_EQ(std::apply(t.fn, args), want) << t.name;
    }
  }
  // Row forms: every row pointer first, then the width.
  for (const Export& e : Exports()) {
    for (const auto& [name, fn] : e.targets) {
      if (!e.row) continue;
      EXPECT_EQ(fn(nullptr, 8, 0, 1, d, 4), rvtStatusNullPtr) << e.name << name;
      EXPECT_EQ(fn(src, 8, 0, 1, nullptr, 4), rvtStatusNullPtr) << e.name << name;
      for (int w : {0, -1, INT32_MIN}) EXPECT_EQ(fn(src, 8, w, 1, d, 4), rvtStatusSize) << e.name;
    }
  }
  EXPECT_EQ(rvtiSampleDownRowH2V2_Box_JPEG_8u_C1(src, nullptr, -1, d), rvtStatusNullPtr);
  EXPECT_EQ(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(src, nullptr, 0, d), rvtStatusNullPtr);
  EXPECT_TRUE(dst.Unchanged(before));
}

}  // namespace
}  // namespace rvt
