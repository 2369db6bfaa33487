// MCU-level conversions: ns per MCU of every export on every target, and of
// the same work done by calling the library's other exports one after
// another (colour conversion, sampling, level shift; mcu_compose.h), in
// one run.  Each call converts the MCUs of a 512-pixel strip of a test
// photo; x_compose = composition time / this time (above 1 is faster).
#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "bench_util.h"
#include "frame/dispatch.h"
#include "mcu_compose.h"
#include "photo.h"

namespace rvt {
namespace {

using test::McuFamily;
using test::McuShape;
using FwdFn = RvtResult (*)(const uint8_t*, int32_t, int16_t**);
using InvFn = RvtResult (*)(const int16_t**, uint8_t*, int32_t);

constexpr int kStripW = 512, kStep = 4 * kStripW;

// A 512x16 strip of pixels in every layout's bytes (from the astronaut
// photo, or a ramp without it) and the blocks of all its MCUs.
struct Strip {
  std::vector<uint8_t> px = std::vector<uint8_t>(size_t(kStep) * 16);
  std::vector<int16_t> blocks = std::vector<int16_t>(64 * 10 * (kStripW / 8));
  std::vector<uint8_t> out = std::vector<uint8_t>(size_t(kStep) * 16);
  explicit Strip(McuShape m) {
    const test::Photo ph = test::LoadPhoto("astronaut.png", 3);
    for (int y = 0; y < 16; ++y) {
      for (int x = 0; x < kStripW * 4; ++x) {
        const int sx = x % (kStripW * 3);
        px[size_t(y) * kStep + x] =
            ph.width >= kStripW ? ph.px[size_t(y + 200) * ph.width * 3 + sx] : uint8_t(x * 3 + y);
      }
    }
    // Blocks: the composition's forward result, so the inverse forms see
    // real data.
    McuShape fwd = m;
    if (m.family == McuFamily::kJoin || m.family == McuFamily::kSampleUp) fwd.family = McuFamily::kSplit;
    for (int i = 0; i < Mcus(m); ++i) {
      int16_t* p[4];
      Planes(m, i, p);
      test::ComposeFwd(fwd, px.data() + i * fwd.RowBytes(), kStep, p);
    }
  }
  static int Mcus(McuShape m) { return kStripW / m.Width(); }
  void Planes(McuShape m, int i, int16_t** p) {
    int16_t* at = blocks.data() + size_t(i) * 640;
    for (int c = 0; c < 4; ++c) {
      p[c] = at;
      at += 64 * (c < m.Planes() ? m.Blocks(c) : 0);
    }
  }
};

template <class Body>
double BestNsPerMcu(int mcus, Body body) {
  double best = 1e300;
  for (int round = 0; round < 2000; ++round) {
    const auto t0 = std::chrono::steady_clock::now();
    body();
    benchmark::ClobberMemory();
    best = std::min(best, std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count());
  }
  return best / mcus;
}

// The machine is shared: every figure is the best strip of the run (the
// composition's too), so ratios compare like with like.
template <class Body>
void TimeStrips(benchmark::State& s, int mcus, double compose_ns, Body body) {
  double best = 1e300;
  for (auto _ : s) {
    const auto t0 = std::chrono::steady_clock::now();
    body();
    benchmark::ClobberMemory();
    best = std::min(best, std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count());
  }
  const double ns = best / mcus;
  s.counters["ns_per_MCU"] = ns;
  s.counters["x_compose"] = compose_ns / ns;
}

void RegisterFwd(const char* name, const Impl<FwdFn>& impl, McuShape m) {
  auto strip = std::make_shared<Strip>(m);
  const int n = Strip::Mcus(m);
  auto compose = [strip, m, n] {
    for (int i = 0; i < n; ++i) {
      int16_t* p[4];
      strip->Planes(m, i, p);
      test::ComposeFwd(m, strip->px.data() + i * m.RowBytes(), kStep, p);
    }
  };
  const double cns = BestNsPerMcu(n, compose);
  benchmark::RegisterBenchmark((std::string(name) + "/compose").c_str(), [=](benchmark::State& s) {
    TimeStrips(s, n, cns, compose);
  });
  bench::RegisterTargets(name, impl, [=](benchmark::State& s, FwdFn fn) {
    TimeStrips(s, n, cns, [&] {
      for (int i = 0; i < n; ++i) {
        int16_t* p[4];
        strip->Planes(m, i, p);
        fn(strip->px.data() + i * m.RowBytes(), kStep, p);
      }
    });
  });
}

void RegisterInv(const char* name, const Impl<InvFn>& impl, McuShape m) {
  auto strip = std::make_shared<Strip>(m);
  const int n = Strip::Mcus(m);
  auto compose = [strip, m, n] {
    for (int i = 0; i < n; ++i) {
      int16_t* p[4];
      strip->Planes(m, i, p);
      test::ComposeInv(m, const_cast<const int16_t**>(p), strip->out.data() + i * m.RowBytes(), kStep);
    }
  };
  const double cns = BestNsPerMcu(n, compose);
  benchmark::RegisterBenchmark((std::string(name) + "/compose").c_str(), [=](benchmark::State& s) {
    TimeStrips(s, n, cns, compose);
  });
  bench::RegisterTargets(name, impl, [=](benchmark::State& s, InvFn fn) {
    TimeStrips(s, n, cns, [&] {
      for (int i = 0; i < n; ++i) {
        int16_t* p[4];
        strip->Planes(m, i, p);
        fn(const_cast<const int16_t**>(p), strip->out.data() + i * m.RowBytes(), kStep);
      }
    });
  });
}

int Register() {
  rvtSetNumThreads(1);
#define RVT_FWD(name, family, layout) RegisterFwd(#name, impl_##name, {McuFamily::family, layout})
#define RVT_INV(name, family, layout) RegisterInv(#name, impl_##name, {McuFamily::family, layout})
  RVT_FWD(rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R, kRgb, 0);
  RVT_FWD(rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R, kRgb, 1);
  RVT_FWD(rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R, kRgb, 2);
  RVT_FWD(rvtiBGRToYCbCr444LS_MCU_8u16s_C3P3R, kBgr, 0);
  RVT_FWD(rvtiBGRToYCbCr422LS_MCU_8u16s_C3P3R, kBgr, 1);
  RVT_FWD(rvtiBGRToYCbCr420LS_MCU_8u16s_C3P3R, kBgr, 2);
  RVT_FWD(rvtiCMYKToYCCK444LS_MCU_8u16s_C4P4R, kCmyk, 0);
  RVT_FWD(rvtiCMYKToYCCK422LS_MCU_8u16s_C4P4R, kCmyk, 1);
  RVT_FWD(rvtiCMYKToYCCK420LS_MCU_8u16s_C4P4R, kCmyk, 2);
  RVT_FWD(rvtiSplit422LS_MCU_8u16s_C2P3R, kSplit, 1);
  RVT_INV(rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, kRgb, 0);
  RVT_INV(rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, kRgb, 1);
  RVT_INV(rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, kRgb, 2);
  RVT_INV(rvtiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, kBgr, 0);
  RVT_INV(rvtiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, kBgr, 1);
  RVT_INV(rvtiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, kBgr, 2);
  RVT_INV(rvtiYCCK444ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 0);
  RVT_INV(rvtiYCCK422ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 1);
  RVT_INV(rvtiYCCK420ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 2);
  RVT_INV(rvtiJoin422LS_MCU_16s8u_P3C2R, kJoin, 1);
  RVT_INV(rvtiSampleUp422LS_MCU_16s8u_P3C3R, kSampleUp, 1);
#undef RVT_FWD
#undef RVT_INV
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
