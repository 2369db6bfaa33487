// Level shift of a 3840x2160 plane, every target, 1 and 2 threads, against
// memcpy of the same traffic in the same run.
#include "bench_util.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160;

template <class S, class D, class Fn>
void Run(benchmark::State& s, Fn fn, int threads, double memcpy_ns) {
  static std::vector<S> src(size_t(kW) * kH);
  static std::vector<D> dst(size_t(kW) * kH);
  for (size_t i = 0; i < src.size(); ++i) src[i] = S(i * 37 % 255);
  const int32_t old = rvtSetNumThreads(threads);
  bench::LoopTimer timer;
  for (auto _ : s) {
    fn(src.data(), kW * int32_t(sizeof(S)), dst.data(), kW * int32_t(sizeof(D)), {kW, kH});
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, src.size() * sizeof(S), dst.size() * sizeof(D), memcpy_ns);
  rvtSetNumThreads(old);
}

// Single-threaded memcpy moving the same traffic: 1.5 bytes per pixel read
// and written, as the shift reads 2 and writes 1 (or the reverse).
constexpr size_t kMemcpyBytes = size_t(kW) * kH * 3 / 2;

int Register() {
  const double mc = bench::MemcpyNs(kMemcpyBytes);
  benchmark::RegisterBenchmark("memcpy_same_bytes", [mc](benchmark::State& s) {
    static std::vector<uint8_t> a(kMemcpyBytes, 1), b(kMemcpyBytes);
    bench::LoopTimer timer;
    for (auto _ : s) {
      std::memcpy(b.data(), a.data(), a.size());
      benchmark::ClobberMemory();
    }
    bench::ReportBytes(s, timer, a.size(), b.size(), mc);
  });
  for (int threads : {1, 2}) {
    const std::string suffix = "/threads:" + std::to_string(threads);
    bench::RegisterTargets("Add128_16s8u" + suffix, impl_rvtiAdd128_JPEG_16s8u_C1R,
                           [=](benchmark::State& s, auto fn) { Run<int16_t, uint8_t>(s, fn, threads, mc); });
    bench::RegisterTargets("Sub128_8u16s" + suffix, impl_rvtiSub128_JPEG_8u16s_C1R,
                           [=](benchmark::State& s, auto fn) { Run<uint8_t, int16_t>(s, fn, threads, mc); });
  }
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
