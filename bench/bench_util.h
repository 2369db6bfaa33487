// Benchmark helpers: register one benchmark per compiled target of an
// export, and a memcpy baseline measured in the same run so every figure
// can be read as a ratio (the machines are shared and noisy).
#ifndef RVT_BENCH_BENCH_UTIL_H_
#define RVT_BENCH_BENCH_UTIL_H_

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "checkasm.h"

namespace rvt::bench {

// Best-of time in ns to memcpy `bytes` bytes between two warm buffers.
inline double MemcpyNs(size_t bytes) {
  static std::vector<uint8_t> a, b;
  a.assign(bytes, 1);
  b.assign(bytes, 2);
  double best = 1e300;
  for (int i = 0; i < 15; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    std::memcpy(b.data(), a.data(), bytes);
    benchmark::ClobberMemory();
    const auto t1 = std::chrono::steady_clock::now();
    best = std::min(best, std::chrono::duration<double, std::nano>(t1 - t0).count());
  }
  return best;
}

// Registers `name/<target>` for every compiled target of impl (and the
// reference); body(state, fn) runs the timed loop.
template <class Fn, class Body>
void RegisterTargets(const std::string& name, const Impl<Fn>& impl, Body body) {
  for (const auto& t : test::AllTargets(impl)) {
    Fn fn = t.fn;
    benchmark::RegisterBenchmark((name + "/" + t.name).c_str(),
                                 [fn, body](benchmark::State& s) { body(s, fn); });
  }
}

// Wall time of the timed loop, for ratios against a baseline of this run.
class LoopTimer {
 public:
  LoopTimer() : t0_(std::chrono::steady_clock::now()) {}
  double NsPerIteration(const benchmark::State& s) const {
    const auto t1 = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(t1 - t0_).count() /
           double(s.iterations() ? s.iterations() : 1);
  }

 private:
  std::chrono::steady_clock::time_point t0_;
};

// Throughput counters: bytes moved (read + written) per second, and the
// speed relative to a memcpy moving the same bytes, measured in this run
// (x_memcpy = memcpy time / this call's time; above 1 is faster).
inline void ReportBytes(benchmark::State& s, const LoopTimer& timer, size_t bytes_read,
                        size_t bytes_written, double memcpy_ns_same_bytes) {
  s.SetBytesProcessed(int64_t(s.iterations() * (bytes_read + bytes_written)));
  s.counters["x_memcpy"] = memcpy_ns_same_bytes / timer.NsPerIteration(s);
}

}  // namespace rvt::bench

#endif  // RVT_BENCH_BENCH_UTIL_H_
