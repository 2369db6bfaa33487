// JPEG 2000 transforms on a 4K plane (3840 x 2160), every compiled target
// and the reference in one run: one whole 5/3 level in place, ns per sample
// and the speed against a memcpy of the plane (x_memcpy); the 5/3 and float
// 9/7 passes and column lifts per 3840-sample row; the component
// transforms of the plane.
#include "bench_util.h"
#include "jpeg2k/wt53.h"
#include "jpeg2k/wt97.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160;

template <class T>
std::vector<T> Random(size_t n, int lo, int hi) {
  test::Rng rng(5);
  std::vector<T> v(n);
  rng.Fill(v.data(), v.size(), T(lo), T(hi));
  return v;
}

void SamplesCounter(benchmark::State& s, const bench::LoopTimer& timer, double samples) {
  s.counters["ns_per_sample"] = timer.NsPerIteration(s) / samples;
}

template <class T, class Fn>
void Level(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> plane = Random<T>(size_t(kW) * kH, -255, 255);
    const ImageRect r{0, 0, kW, kH};
    std::vector<uint8_t> buf(wt53::BufSizeI(r, sizeof(T)));
    const size_t bytes = plane.size() * sizeof(T);
    const double mc = bench::MemcpyNs(bytes);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(plane.data(), kW * int32_t(sizeof(T)), &r, buf.data());
      benchmark::ClobberMemory();
    }
    bench::ReportBytes(s, timer, bytes, bytes, mc);
    SamplesCounter(s, timer, double(kW) * kH);
  });
}

template <class T, class Fn>
void Pass(const std::string& name, const Impl<Fn>& impl, bool fwd) {
  bench::RegisterTargets(name, impl, [fwd](benchmark::State& s, Fn fn) {
    const int w = kW / 2;
    std::vector<T> a = Random<T>(size_t(kW + 8), -255, 255), b = Random<T>(size_t(kW + 8), -255, 255),
                   c(size_t(kW + 8));
    bench::LoopTimer timer;
    for (auto _ : s) {
      if constexpr (std::is_invocable_v<Fn, const T*, int32_t, T*, int32_t, T*, int32_t, ImageSize, int32_t>) {
        fn(a.data() + 2, 4 * kW, b.data(), 4 * kW, c.data(), 4 * kW, {w, 1}, 0);
      } else {
        fn(a.data() + 1, 4 * kW, b.data() + 1, 4 * kW, {w, 1}, c.data(), 4 * kW, 0);
      }
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, kW);
    (void)fwd;
  });
}

template <class T, class Fn>
void Lift(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> r[6];
    for (auto& v : r) v = Random<T>(size_t(kW), -255, 255);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(r[0].data(), r[1].data(), r[2].data(), r[3].data(), r[4].data(), r[5].data(), kW);
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, kW);
  });
}

template <class T, class Fn>
void Lift8(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> r[8];
    for (auto& v : r) v = Random<T>(size_t(kW), -255, 255);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(r[0].data(), r[1].data(), r[2].data(), r[3].data(), r[4].data(), r[5].data(), r[6].data(),
         r[7].data(), kW);
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, kW);
  });
}

template <class T, class Fn>
void ComponentsInPlace(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> p[3];
    for (auto& v : p) v = Random<T>(size_t(kW) * kH, -255, 255);
    T* planes[3] = {p[0].data(), p[1].data(), p[2].data()};
    const size_t bytes = 3 * p[0].size() * sizeof(T);
    const double mc = bench::MemcpyNs(bytes);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(planes, kW * int32_t(sizeof(T)), {kW, kH});
      benchmark::ClobberMemory();
    }
    bench::ReportBytes(s, timer, bytes, bytes, mc);
    SamplesCounter(s, timer, double(kW) * kH);
  });
}

[[maybe_unused]] const bool kRegistered = [] {
  Level<int16_t>("WTFwd_B53_16s_C1IR_4K", impl_rvtiWTFwd_B53_JPEG2K_16s_C1IR);
  Level<int16_t>("WTInv_B53_16s_C1IR_4K", impl_rvtiWTInv_B53_JPEG2K_16s_C1IR);
  Level<int32_t>("WTFwd_B53_32s_C1IR_4K", impl_rvtiWTFwd_B53_JPEG2K_32s_C1IR);
  Level<int32_t>("WTInv_B53_32s_C1IR_4K", impl_rvtiWTInv_B53_JPEG2K_32s_C1IR);
  Pass<int16_t>("WTFwdRow_B53_16s_row", impl_rvtiWTFwdRow_B53_JPEG2K_16s_C1R, true);
  Pass<int16_t>("WTInvRow_B53_16s_row", impl_rvtiWTInvRow_B53_JPEG2K_16s_C1R, false);
  Pass<int32_t>("WTFwdRow_B53_32s_row", impl_rvtiWTFwdRow_B53_JPEG2K_32s_C1R, true);
  Pass<int32_t>("WTInvRow_B53_32s_row", impl_rvtiWTInvRow_B53_JPEG2K_32s_C1R, false);
  Lift<int16_t>("WTFwdColLift_B53_16s_row", impl_rvtiWTFwdColLift_B53_JPEG2K_16s_C1);
  Lift<int16_t>("WTInvColLift_B53_16s_row", impl_rvtiWTInvColLift_B53_JPEG2K_16s_C1);
  Lift<int32_t>("WTFwdColLift_B53_32s_row", impl_rvtiWTFwdColLift_B53_JPEG2K_32s_C1);
  Lift<int32_t>("WTInvColLift_B53_32s_row", impl_rvtiWTInvColLift_B53_JPEG2K_32s_C1);
  Pass<float>("WTFwdRow_D97_32f_row", impl_rvtiWTFwdRow_D97_JPEG2K_32f_C1R, true);
  Pass<float>("WTInvRow_D97_32f_row", impl_rvtiWTInvRow_D97_JPEG2K_32f_C1R, false);
  Lift8<float>("WTFwdColLift_D97_32f_row", impl_rvtiWTFwdColLift_D97_JPEG2K_32f_C1);
  Lift8<float>("WTInvColLift_D97_32f_row", impl_rvtiWTInvColLift_D97_JPEG2K_32f_C1);
  ComponentsInPlace<int16_t>("RCTFwd_16s_P3IR_4K", impl_rvtiRCTFwd_JPEG2K_16s_P3IR);
  ComponentsInPlace<int16_t>("ICTFwd_16s_P3IR_4K", impl_rvtiICTFwd_JPEG2K_16s_P3IR);
  ComponentsInPlace<int32_t>("ICTFwd_32s_P3IR_4K", impl_rvtiICTFwd_JPEG2K_32s_P3IR);
  ComponentsInPlace<float>("ICTFwd_32f_P3IR_4K", impl_rvtiICTFwd_JPEG2K_32f_P3IR);
  return true;
}();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
