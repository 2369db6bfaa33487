// Chroma sampling over a 3840x2160 plane (down: full plane to 1920x1080;
// up: 1920x1080 with a one-sample margin to the full plane), every target,
// 1 and 2 threads, against memcpy of the same traffic in the same run.
#include <time.h>

#include "bench_util.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160, kCw = kW / 2, kCh = kH / 2;
// Bytes read plus bytes written, the same for every form here.
constexpr size_t kTraffic = size_t(kW) * kH + size_t(kCw) * kCh;

using RegionFn = RvtResult (*)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize);

struct Planes {
  std::vector<uint8_t> full, half;
  Planes() : full(size_t(kW) * kH), half(size_t(kCw + 2) * (kCh + 2)) {
    for (size_t i = 0; i < full.size(); ++i) full[i] = uint8_t(i * 37 % 251);
    for (size_t i = 0; i < half.size(); ++i) half[i] = uint8_t(i * 29 % 241);
  }
};
Planes& P() {
  static Planes p;
  return p;
}

// Each iteration times one call, then one memcpy of the same traffic (half
// of it read, half written) between two buffers of its own: x_memcpy_paired
// is the ratio of the two sums, so both sides meet the same moments of a
// shared, noisy machine.  Each timed run follows an untimed one of its own
// kind, so that neither pays for the other's written lines (as in
// color_bench).  x_memcpy keeps the old baseline: the best of 15 warm
// copies measured once at start-up, against the mean call.
template <class Run>
void Paired(benchmark::State& s, size_t read, size_t written, double memcpy_ns, Run run) {
  static std::vector<uint8_t> a(kTraffic, 1), b(kTraffic, 2);
  const size_t n = (read + written) / 2;
  double ours = 0, copy = 0;
  for (auto _ : s) {
    run();
    benchmark::ClobberMemory();
    const auto t0 = std::chrono::steady_clock::now();
    run();
    benchmark::ClobberMemory();
    const auto t1 = std::chrono::steady_clock::now();
    std::memcpy(b.data(), a.data(), n);
    benchmark::ClobberMemory();
    const auto t1b = std::chrono::steady_clock::now();
    std::memcpy(b.data(), a.data(), n);
    benchmark::ClobberMemory();
    const auto t2 = std::chrono::steady_clock::now();
    ours += std::chrono::duration<double>(t1 - t0).count();
    copy += std::chrono::duration<double>(t2 - t1b).count();
  }
  s.SetBytesProcessed(int64_t(s.iterations() * (read + written)));
  s.counters["x_memcpy"] = ours > 0 ? 1e-9 * memcpy_ns * double(s.iterations()) / ours : 0;
  s.counters["x_memcpy_paired"] = ours > 0 ? copy / ours : 0;
  s.counters["call_us"] = s.iterations() ? 1e6 * ours / double(s.iterations()) : 0;
  s.counters["memcpy_us"] = s.iterations() ? 1e6 * copy / double(s.iterations()) : 0;
}

void RunDown(benchmark::State& s, RegionFn fn, int threads, double memcpy_ns) {
  Planes& p = P();
  const int32_t old = rvtSetNumThreads(threads);
  Paired(s, size_t(kW) * kH, size_t(kCw) * kCh, memcpy_ns, [&] {
    fn(p.full.data(), kW, {kW, kH}, p.half.data(), kCw, {kCw, kCh});
  });
  rvtSetNumThreads(old);
}
// The half plane has a one-sample margin all round; the region starts at (1, 1).
void RunUp(benchmark::State& s, RegionFn fn, int threads, double memcpy_ns) {
  Planes& p = P();
  const int32_t step = kCw + 2;
  const int32_t old = rvtSetNumThreads(threads);
  Paired(s, size_t(kCw) * kCh, size_t(kW) * kH, memcpy_ns, [&] {
    fn(p.half.data() + step + 1, step, {kCw, kCh}, p.full.data(), kW, {kW, kH});
  });
  rvtSetNumThreads(old);
}

// The kernel alone, on a strip small enough to stay in L1/L2: 64 calls on a
// 1920x8 destination (up) or source (down), by this thread's CPU time, so a
// change to the arithmetic shows apart from the memory traffic the 4K rows
// are bound by.  ns_per_px counts full-size pixels.
void RunHot(benchmark::State& s, RegionFn fn, bool up) {
  Planes& p = P();
  constexpr int kHotW = 1920, kHotH = 8, kCalls = 64;
  const int32_t step = kCw + 2;
  const int32_t old = rvtSetNumThreads(1);
  for (auto _ : s) {
    timespec a, b;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
    for (int i = 0; i < kCalls; ++i) {
      if (up) {
        fn(p.half.data() + step + 1, step, {kHotW / 2, kHotH / 2}, p.full.data(), kW,
           {kHotW, kHotH});
      } else {
        fn(p.full.data(), kW, {kHotW, kHotH}, p.half.data(), kCw, {kHotW / 2, kHotH / 2});
      }
    }
    benchmark::ClobberMemory();
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
    s.SetIterationTime(double(b.tv_sec - a.tv_sec) + 1e-9 * double(b.tv_nsec - a.tv_nsec));
  }
  rvtSetNumThreads(old);
  s.counters["ns_per_px"] =
      benchmark::Counter(double(s.iterations()) * kCalls * kHotW * kHotH,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The row forms as a codec calls them, one output row per call.
template <class Fn>
void RunDownRows(benchmark::State& s, Fn fn, double memcpy_ns) {
  Planes& p = P();
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int y = 0; y < kCh; ++y) {
      fn(p.full.data() + size_t(2 * y) * kW, p.full.data() + size_t(2 * y + 1) * kW, kW,
         p.half.data() + size_t(y) * kCw);
    }
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, size_t(kW) * kH, size_t(kCw) * kCh, memcpy_ns);
}

template <class Fn>
void RunUpRows(benchmark::State& s, Fn fn, double memcpy_ns) {
  Planes& p = P();
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int r = 0; r < kH; ++r) {
      const int n = r / 2, f = r & 1 ? std::min(n + 1, kCh - 1) : std::max(n - 1, 0);
      fn(p.half.data() + size_t(n) * kCw, p.half.data() + size_t(f) * kCw, kCw,
         p.full.data() + size_t(r) * kW);
    }
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, size_t(kCw) * kCh, size_t(kW) * kH, memcpy_ns);
}

int Register() {
  const double mc = bench::MemcpyNs(kTraffic / 2);
  for (const auto& t : test::AllTargets(impl_rvtiSampleUpH2V2_JPEG_8u_C1R)) {
    const RegionFn fn = t.fn;
    benchmark::RegisterBenchmark(("hot/UpH2V2/" + std::string(t.name)).c_str(),
                                 [fn](benchmark::State& s) { RunHot(s, fn, true); })
        ->UseManualTime();
  }
  for (const auto& t : test::AllTargets(impl_rvtiSampleDownH2V2_JPEG_8u_C1R)) {
    const RegionFn fn = t.fn;
    benchmark::RegisterBenchmark(("hot/DownH2V2/" + std::string(t.name)).c_str(),
                                 [fn](benchmark::State& s) { RunHot(s, fn, false); })
        ->UseManualTime();
  }
  for (int threads : {1, 2}) {
    const std::string suffix = "/threads:" + std::to_string(threads);
    bench::RegisterTargets("DownH2V2" + suffix, impl_rvtiSampleDownH2V2_JPEG_8u_C1R,
                           [=](benchmark::State& s, auto fn) { RunDown(s, fn, threads, mc); });
    bench::RegisterTargets("UpH2V2" + suffix, impl_rvtiSampleUpH2V2_JPEG_8u_C1R,
                           [=](benchmark::State& s, auto fn) { RunUp(s, fn, threads, mc); });
    benchmark::RegisterBenchmark(("memcpy_same_bytes" + suffix).c_str(), [mc](benchmark::State& s) {
      static std::vector<uint8_t> a(kTraffic / 2, 1), b(kTraffic / 2);
      bench::LoopTimer timer;
      for (auto _ : s) {
        std::memcpy(b.data(), a.data(), a.size());
        benchmark::ClobberMemory();
      }
      bench::ReportBytes(s, timer, a.size(), b.size(), mc);
    });
  }
  // The forms that run on the calling thread, and H2V1 down for completeness.
  const double mc_down1 = bench::MemcpyNs(size_t(kW) * kH * 3 / 16);
  const double mc_up1 = bench::MemcpyNs(size_t(kW) * kCh * 3 / 4);
  bench::RegisterTargets("DownH2V1", impl_rvtiSampleDownH2V1_JPEG_8u_C1R,
                         [=](benchmark::State& s, auto fn) {
                           Planes& p = P();
                           bench::LoopTimer timer;
                           for (auto _ : s) {
                             fn(p.full.data(), kW, {kW, kH}, p.half.data(), kCw, {kCw, kH / 4});
                             benchmark::ClobberMemory();
                           }
                           // Half the rows of the plane: the same traffic.
                           bench::ReportBytes(s, timer, size_t(kW) * kH / 4, size_t(kCw) * kH / 4,
                                              mc_down1);
                         });
  bench::RegisterTargets("UpH2V1", impl_rvtiSampleUpH2V1_JPEG_8u_C1R,
                         [=](benchmark::State& s, auto fn) {
                           Planes& p = P();
                           const int32_t step = kCw + 2;
                           bench::LoopTimer timer;
                           for (auto _ : s) {
                             fn(p.half.data() + 1, step, {kCw, kCh}, p.full.data(), kW, {kW, kCh});
                             benchmark::ClobberMemory();
                           }
                           bench::ReportBytes(s, timer, size_t(kCw) * kCh, size_t(kW) * kCh,
                                              mc_up1);
                         });
  bench::RegisterTargets("DownRowH2V2_Box", impl_rvtiSampleDownRowH2V2_Box_JPEG_8u_C1,
                         [=](benchmark::State& s, auto fn) { RunDownRows(s, fn, mc); });
  bench::RegisterTargets("UpRowH2V2_Triangle", impl_rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1,
                         [=](benchmark::State& s, auto fn) { RunUpRows(s, fn, mc); });
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
