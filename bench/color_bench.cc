// Colour conversion of a 3840x2160 frame: the representative members on
// every target, 1 and 2 threads, each beside a single-threaded memcpy of the
// same traffic timed in alternation with it (x_memcpy = memcpy time / call
// time), and, when OpenCV is installed, beside its RGB to YCrCb conversion
// of the same frame (interleaved output; ours writes three planes).  The
// hot/ rows time the kernels alone on a cache-resident strip.
#include <time.h>

#include "bench_util.h"

#ifdef RVT_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160;
constexpr size_t kPixels = size_t(kW) * kH;

// Frame buffers shared by every benchmark, 64-byte aligned as rvtMalloc
// gives them: an interleaved image (up to 4 bytes a pixel) and three
// full-size planes, filled with a smooth picture so that nothing
// saturates unrealistically.
struct Buffer {
  uint8_t* p;
  explicit Buffer(size_t n) : p(static_cast<uint8_t*>(rvtMalloc(int32_t(n)))) {}
  ~Buffer() { rvtFree(p); }
  uint8_t* data() { return p; }
};
struct Frame {
  Buffer packed{4 * kPixels}, planes[3] = {Buffer(kPixels), Buffer(kPixels), Buffer(kPixels)};
  uint8_t* p[3];
  const uint8_t* c[3];
  Frame() {
    for (size_t i = 0; i < 4 * kPixels; ++i) packed.p[i] = uint8_t((i * 7 + i / 4096) % 251);
    for (int k = 0; k < 3; ++k) {
      for (size_t i = 0; i < kPixels; ++i) planes[k].p[i] = uint8_t((i * (k + 3) + i / 3840) % 253);
      p[k] = planes[k].data();
      c[k] = p[k];
    }
  }
};
Frame& TheFrame() {
  static Frame f;
  return f;
}

double ThreadCpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Each iteration times one call, then one memcpy moving the same bytes
// (half the traffic read, half written); x_memcpy is the ratio of the two
// sums, so both sides see the same moments of a shared, noisy machine.
// Each timed run follows an untimed run of the same kind: a run leaves its
// written lines in the caches for whatever comes next to write back, so
// without that each side would be charged the other's write-backs (a memcpy
// timed right after a memcpy took 1.5x as long as the first one), and a
// call that streams its stores past the caches would look slower than one
// that leaves its dirt to the memcpy.
template <class Run>
void Time(benchmark::State& s, int threads, size_t read, size_t written, Run run) {
  static Buffer a(3 * kPixels), b(3 * kPixels);
  const size_t n = (read + written) / 2;
  std::memset(a.data(), 1, n);
  const int32_t old = rvtSetNumThreads(threads);
  double ours = 0, copy = 0, ours_cpu = 0, copy_cpu = 0;
  for (auto _ : s) {
    run();
    benchmark::ClobberMemory();
    const double c0 = ThreadCpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    run();
    benchmark::ClobberMemory();
    const auto t1 = std::chrono::steady_clock::now();
    const double c1 = ThreadCpuSeconds();
    std::memcpy(b.data(), a.data(), n);
    benchmark::ClobberMemory();
    const auto t1b = std::chrono::steady_clock::now();
    const double c1b = ThreadCpuSeconds();
    std::memcpy(b.data(), a.data(), n);
    benchmark::ClobberMemory();
    const auto t2 = std::chrono::steady_clock::now();
    const double c2 = ThreadCpuSeconds();
    const double dt = std::chrono::duration<double>(t1 - t0).count();
    ours += dt;
    copy += std::chrono::duration<double>(t2 - t1b).count();
    ours_cpu += c1 - c0;
    copy_cpu += c2 - c1b;
    s.SetIterationTime(dt);
  }
  rvtSetNumThreads(old);
  s.SetBytesProcessed(int64_t(s.iterations() * (read + written)));
  s.counters["x_memcpy"] = ours > 0 ? copy / ours : 0;
  s.counters["memcpy_ms"] = s.iterations() ? 1e3 * copy / double(s.iterations()) : 0;
  // The same pairing in this thread's CPU time, which a loaded machine's
  // waits do not inflate (single-threaded runs only).
  if (threads == 1) {
    s.counters["x_memcpy_cpu"] = ours_cpu > 0 ? copy_cpu / ours_cpu : 0;
    s.counters["cpu_ms"] = s.iterations() ? 1e3 * ours_cpu / double(s.iterations()) : 0;
  }
}
template <class Fn, class Call>
void Time(benchmark::State& s, Fn fn, int threads, size_t read, size_t written, Call call) {
  Time(s, threads, read, written, [&] { call(fn); });
}

// Interleaved bpp-byte pixels to planes (luma plus chroma of `chroma`
// bytes per plane), and back.
template <class Fn>
void ToPlanes(benchmark::State& s, Fn fn, int threads, int bpp, size_t chroma) {
  Frame& f = TheFrame();
  Time(s, fn, threads, bpp * kPixels, kPixels + 2 * chroma, [&](Fn g) {
    g(f.packed.data(), bpp * kW, f.p, kW, ImageSize{kW, kH});
  });
}
template <class Fn>
void FromPlanes(benchmark::State& s, Fn fn, int threads, int bpp, size_t chroma) {
  Frame& f = TheFrame();
  Time(s, fn, threads, kPixels + 2 * chroma, bpp * kPixels, [&](Fn g) {
    g(f.c, kW, f.packed.data(), bpp * kW, ImageSize{kW, kH});
  });
}

// Every target of an export, timed by the wall clock (the threaded runs
// and the memcpy baseline alike).
template <class Fn, class Body>
void Targets(const std::string& name, const Impl<Fn>& impl, Body body) {
  for (const auto& t : test::AllTargets(impl)) {
    Fn fn = t.fn;
    benchmark::RegisterBenchmark((name + "/" + t.name).c_str(), [fn, body](benchmark::State& s) {
      body(s, fn);
    })->UseManualTime();
  }
}

// The kernel alone: 64 calls on a 960x4 region, small enough to stay in
// L1/L2, by this thread's CPU time, so that a change to the arithmetic or
// the shuffles shows apart from the memory traffic that the full-frame rows
// above are bound by (ns_per_px).
template <class Call>
void Hot(benchmark::State& s, Call call) {
  constexpr int kHotW = 960, kHotH = 4, kCalls = 64;
  const int32_t old = rvtSetNumThreads(1);
  for (auto _ : s) {
    const double t0 = ThreadCpuSeconds();
    for (int i = 0; i < kCalls; ++i) call(ImageSize{kHotW, kHotH});
    benchmark::ClobberMemory();
    s.SetIterationTime(ThreadCpuSeconds() - t0);
  }
  rvtSetNumThreads(old);
  s.counters["ns_per_px"] =
      benchmark::Counter(double(s.iterations()) * kCalls * kHotW * kHotH,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
template <class Fn>
void HotToPlanes(benchmark::State& s, Fn fn, int bpp) {
  Frame& f = TheFrame();
  Hot(s, [&](ImageSize roi) { fn(f.packed.data(), bpp * kW, f.p, kW, roi); });
}
template <class Fn>
void HotFromPlanes(benchmark::State& s, Fn fn, int bpp) {
  Frame& f = TheFrame();
  Hot(s, [&](ImageSize roi) { fn(f.c, kW, f.packed.data(), bpp * kW, roi); });
}

int Register() {
  Targets("hot/RGBToYCbCr_C3P3R", impl_rvtiRGBToYCbCr_JPEG_8u_C3P3R,
          [](benchmark::State& s, auto fn) { HotToPlanes(s, fn, 3); });
  Targets("hot/YCbCrToRGB_P3C3R", impl_rvtiYCbCrToRGB_JPEG_8u_P3C3R,
          [](benchmark::State& s, auto fn) { HotFromPlanes(s, fn, 3); });
  Targets("hot/RGBToYCbCr422_C3P3R", impl_rvtiRGBToYCbCr422_JPEG_8u_C3P3R,
          [](benchmark::State& s, auto fn) { HotToPlanes(s, fn, 3); });
  Targets("hot/YCbCr422ToRGB_P3C3R", impl_rvtiYCbCr422ToRGB_JPEG_8u_P3C3R,
          [](benchmark::State& s, auto fn) { HotFromPlanes(s, fn, 3); });
  Targets("hot/RGBToYCbCr411_C3P3R", impl_rvtiRGBToYCbCr411_JPEG_8u_C3P3R,
          [](benchmark::State& s, auto fn) { HotToPlanes(s, fn, 3); });
  Targets("hot/YCbCr411ToRGB_P3C3R", impl_rvtiYCbCr411ToRGB_JPEG_8u_P3C3R,
          [](benchmark::State& s, auto fn) { HotFromPlanes(s, fn, 3); });
  Targets("hot/YCbCr422ToRGB_C2C3R", impl_rvtiYCbCr422ToRGB_JPEG_8u_C2C3R,
          [](benchmark::State& s, auto fn) {
            Frame& f = TheFrame();
            Hot(s, [&](ImageSize roi) {
              fn(f.planes[0].data(), 2 * kW, f.packed.data(), 3 * kW, roi);
            });
          });
  for (int threads : {1, 2}) {
    const std::string t = "/threads:" + std::to_string(threads);
    const size_t full = kPixels, half = kPixels / 2, quarter = kPixels / 4;
    Targets("RGBToYCbCr_C3P3R" + t, impl_rvtiRGBToYCbCr_JPEG_8u_C3P3R,
            [=](benchmark::State& s, auto fn) { ToPlanes(s, fn, threads, 3, full); });
    Targets("YCbCrToRGB_P3C3R" + t, impl_rvtiYCbCrToRGB_JPEG_8u_P3C3R,
            [=](benchmark::State& s, auto fn) { FromPlanes(s, fn, threads, 3, full); });
    Targets("RGBToYCbCr422_C3P3R" + t, impl_rvtiRGBToYCbCr422_JPEG_8u_C3P3R,
            [=](benchmark::State& s, auto fn) { ToPlanes(s, fn, threads, 3, half); });
    Targets("YCbCr422ToRGB_P3C3R" + t, impl_rvtiYCbCr422ToRGB_JPEG_8u_P3C3R,
            [=](benchmark::State& s, auto fn) { FromPlanes(s, fn, threads, 3, half); });
    Targets("RGBToYCbCr411_C3P3R" + t, impl_rvtiRGBToYCbCr411_JPEG_8u_C3P3R,
            [=](benchmark::State& s, auto fn) { ToPlanes(s, fn, threads, 3, quarter); });
    Targets("YCbCr411ToRGB_P3C3R" + t, impl_rvtiYCbCr411ToRGB_JPEG_8u_P3C3R,
            [=](benchmark::State& s, auto fn) { FromPlanes(s, fn, threads, 3, quarter); });
    Targets("YCbCr422ToRGB_C2C3R" + t, impl_rvtiYCbCr422ToRGB_JPEG_8u_C2C3R,
            [=](benchmark::State& s, auto fn) {
              Frame& f = TheFrame();
              Time(s, fn, threads, 2 * kPixels, 3 * kPixels, [&](auto g) {
                g(f.planes[0].data(), 2 * kW, f.packed.data(), 3 * kW, ImageSize{kW, kH});
              });
            });
#ifdef RVT_HAVE_OPENCV
    benchmark::RegisterBenchmark(("OpenCV_cvtColor_RGB2YCrCb" + t).c_str(),
                                 [=](benchmark::State& s) {
                                   Frame& f = TheFrame();
                                   const cv::Mat src(kH, kW, CV_8UC3, f.packed.data());
                                   cv::Mat dst(kH, kW, CV_8UC3);
                                   const int old = cv::getNumThreads();
                                   cv::setNumThreads(threads);
                                   Time(s, threads, 3 * kPixels, 3 * kPixels,
                                        [&] { cv::cvtColor(src, dst, cv::COLOR_RGB2YCrCb); });
                                   cv::setNumThreads(old);
                                 })
        ->UseManualTime();
#endif
  }
  // The baseline against itself: x_memcpy near 1 says the pairing is fair.
  benchmark::RegisterBenchmark("memcpy_3_bytes_per_pixel", [](benchmark::State& s) {
    // Both sources written first: a never-written source reads the shared
    // zero page from the caches and copied 1.3-1.5x as fast.
    static Buffer a(3 * kPixels), b(3 * kPixels);
    std::memset(a.data(), 2, 3 * kPixels);
    Time(s, 1, 3 * kPixels, 3 * kPixels, [&] { std::memcpy(b.data(), a.data(), 3 * kPixels); });
  })->UseManualTime();
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
