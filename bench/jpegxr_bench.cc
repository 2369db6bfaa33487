// The photo core transform, forward and inverse, on every element type:
// the region form over a 4K plane (3840x2160, in place) with a memcpy of
// the plane's bytes measured in the same run as its peer, and the
// macroblock forms over a 256x256 plane of macroblocks (cache-resident),
// per target and the reference; jxrlib's forward block transform on the
// 4K plane's blocks as the peer of the 32s forward.  ns_per_block is per
// 4x4 block.
#include <xmmintrin.h>

#include "bench_util.h"

// jxrlib's forward 4x4 transform (libjpegxr): 16 ints in its block order.
extern "C" void strDCT4x4Stage1(int* p);

namespace rvt {
namespace {

template <class T>
struct Plane {
  int width, height;
  std::vector<T> px;
  Plane(int w, int h) : width(w), height(h), px(size_t(w) * size_t(h)) {
    test::Rng rng(11);
    rng.Fill(px.data(), px.size(), T(-300), T(300));
  }
  int32_t step() const { return int32_t(width * sizeof(T)); }
  double blocks() const { return double(width / 4) * double(height / 4); }
};

template <class T>
void RegisterRegion(const std::string& name, const Impl<RvtResult (*)(T*, int32_t, ImageSize)>& impl) {
  static Plane<T> plane(3840, 2160);
  const double memcpy_ns = bench::MemcpyNs(plane.px.size() * sizeof(T));
  bench::RegisterTargets(name + "/4K", impl, [memcpy_ns](benchmark::State& s, auto fn) {
    const bench::LoopTimer timer;
    for (auto _ : s) {
      fn(plane.px.data(), plane.step(), {plane.width, plane.height});
      benchmark::ClobberMemory();
    }
    s.counters["ns_per_block"] = timer.NsPerIteration(s) / plane.blocks();
    s.counters["x_memcpy"] = memcpy_ns / timer.NsPerIteration(s);
  });
}

template <class T, int kW, int kH>
void RegisterMacroblocks(const std::string& name, const Impl<RvtResult (*)(T*, int32_t)>& impl) {
  static Plane<T> plane(256, 256);
  bench::RegisterTargets(name, impl, [](benchmark::State& s, auto fn) {
    const bench::LoopTimer timer;
    for (auto _ : s) {
      for (int y = 0; y < plane.height; y += kH)
        for (int x = 0; x < plane.width; x += kW)
          fn(plane.px.data() + size_t(y) * size_t(plane.width) + size_t(x), plane.step());
      benchmark::ClobberMemory();
    }
    s.counters["ns_per_block"] = timer.NsPerIteration(s) / plane.blocks();
  });
}

// Block runs of `run` contiguous blocks (16 a 16x16 macroblock) over the
// same number of blocks as the macroblock forms, cache-resident.
void RegisterRuns(const std::string& name, const Impl<RvtResult (*)(int32_t*, int32_t)>& impl, int run) {
  static Plane<int32_t> plane(256, 256);
  bench::RegisterTargets(name + "/run" + std::to_string(run), impl, [run](benchmark::State& s, auto fn) {
    const bench::LoopTimer timer;
    for (auto _ : s) {
      for (size_t k = 0; k + 16 * size_t(run) <= plane.px.size(); k += 16 * size_t(run)) fn(plane.px.data() + k, run);
      benchmark::ClobberMemory();
    }
    s.counters["ns_per_block"] = timer.NsPerIteration(s) / plane.blocks();
  });
}

// jxrlib's forward transform over the same number of blocks, laid out in
// its own order (16 consecutive ints per block, no gathering timed).
void RegisterJxrlib() {
  static Plane<int32_t> plane(3840, 2160);
  benchmark::RegisterBenchmark("PCTFwd/32s/4K/jxrlib", [](benchmark::State& s) {
    const bench::LoopTimer timer;
    for (auto _ : s) {
      for (size_t k = 0; k < plane.px.size(); k += 16) strDCT4x4Stage1(plane.px.data() + k);
      benchmark::ClobberMemory();
    }
    s.counters["ns_per_block"] = timer.NsPerIteration(s) / plane.blocks();
  });
}

#define RVT_PCT_BENCH(T, tag)                                                                     \
  RegisterRegion<T>("PCTFwd/" #tag, impl_rvtiPCTFwd_JPEGXR_##tag##_C1IR);                         \
  RegisterRegion<T>("PCTInv/" #tag, impl_rvtiPCTInv_JPEGXR_##tag##_C1IR);                         \
  RegisterMacroblocks<T, 16, 16>("PCTFwd16x16/" #tag, impl_rvtiPCTFwd16x16_JPEGXR_##tag##_C1IR);  \
  RegisterMacroblocks<T, 16, 16>("PCTInv16x16/" #tag, impl_rvtiPCTInv16x16_JPEGXR_##tag##_C1IR);  \
  RegisterMacroblocks<T, 8, 16>("PCTFwd8x16/" #tag, impl_rvtiPCTFwd8x16_JPEGXR_##tag##_C1IR);     \
  RegisterMacroblocks<T, 8, 16>("PCTInv8x16/" #tag, impl_rvtiPCTInv8x16_JPEGXR_##tag##_C1IR);     \
  RegisterMacroblocks<T, 8, 8>("PCTFwd8x8/" #tag, impl_rvtiPCTFwd8x8_JPEGXR_##tag##_C1IR);        \
  RegisterMacroblocks<T, 8, 8>("PCTInv8x8/" #tag, impl_rvtiPCTInv8x8_JPEGXR_##tag##_C1IR)

int Register() {
  // Repeated in-place transforms drift floats towards denormals; flush them
  // so that the timing stays the arithmetic's.
  _mm_setcsr(_mm_getcsr() | 0x8040);
  RVT_PCT_BENCH(int16_t, 16s);
  RVT_PCT_BENCH(int32_t, 32s);
  RegisterJxrlib();
  for (const int run : {4, 16, 32}) {
    RegisterRuns("PCTInvBlocks/32s", impl_rvtiPCTInvBlocks_JPEGXR_32s_C1I, run);
    RegisterRuns("PCTFwdBlocks/32s", impl_rvtiPCTFwdBlocks_JPEGXR_32s_C1I, run);
  }
  RVT_PCT_BENCH(float, 32f);
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
