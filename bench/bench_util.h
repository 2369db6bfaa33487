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

// Sets the throughput counters: bytes moved per second, and the ratio to a
// memcpy moving the same bytes measured in this run.
inline void ReportBytes(benchmark::State& s, size_t bytes_read, size_t bytes_written,
                        double memcpy_ns_same_bytes) {
  const size_t moved = bytes_read + bytes_written;
  s.SetBytesProcessed(int64_t(s.iterations() * moved));
  s.counters["ns_per_call"] = benchmark::Counter(double(s.iterations()),
                                                 benchmark::Counter::kIsRate |
                                                     benchmark::Counter::kInvert);
  // ratio = memcpy time for the same traffic / this call's time.
  s.counters["x_memcpy"] = benchmark::Counter(memcpy_ns_same_bytes * 1e-9 * double(s.iterations()),
                                              benchmark::Counter::kIsRate);
}

}  // namespace rvt::bench

#endif  // RVT_BENCH_BENCH_UTIL_H_
