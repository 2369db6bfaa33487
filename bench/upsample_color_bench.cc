// Fused chroma up-sampling + colour rows over a 3840x2160 frame, row by row
// as a decoder calls them: every target of the fused exports against the
// two steps they replace (both chroma rows up-sampled into full-width rows,
// then the planar conversion of the row; the processor's chosen targets),
// and memcpy of the fused form's traffic, in the same run.
#include "bench_util.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160, kCw = kW / 2, kCh = kH / 2;
// Luma and both chroma planes read, RGB written.
constexpr size_t kRead420 = size_t(kW) * kH + 2 * size_t(kCw) * kCh;
constexpr size_t kRead422 = size_t(kW) * kH + 2 * size_t(kCw) * kH;
constexpr size_t kWritten = 3 * size_t(kW) * kH;

struct Frame {
  std::vector<uint8_t> y, cb, cr, rgb, up_cb, up_cr;
  Frame()
      : y(size_t(kW) * kH), cb(size_t(kCw) * kH), cr(size_t(kCw) * kH), rgb(3 * size_t(kW) * kH),
        up_cb(kW), up_cr(kW) {
    for (size_t i = 0; i < y.size(); ++i) y[i] = uint8_t(i * 37 % 251);
    for (size_t i = 0; i < cb.size(); ++i) cb[i] = uint8_t(96 + i * 29 % 61);
    for (size_t i = 0; i < cr.size(); ++i) cr[i] = uint8_t(100 + i * 13 % 53);
  }
  const uint8_t* Y(int r) const { return y.data() + size_t(r) * kW; }
  const uint8_t* Cb(int r) const { return cb.data() + size_t(r) * kCw; }
  const uint8_t* Cr(int r) const { return cr.data() + size_t(r) * kCw; }
  uint8_t* Out(int r) { return rgb.data() + 3 * size_t(r) * kW; }
};
Frame& F() {
  static Frame f;
  return f;
}

// Near and far chroma rows of output row r, clamped at the frame's edges
// as a decoder does.
int Near(int r) { return r >> 1; }
int Far(int r) { return (r & 1) ? std::min(Near(r) + 1, kCh - 1) : std::max(Near(r) - 1, 0); }

void Fused420(benchmark::State& s, decltype(&rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R) fn,
              double mc) {
  Frame& f = F();
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int r = 0; r < kH; ++r) {
      fn(f.Y(r), f.Cb(Near(r)), f.Cb(Far(r)), f.Cr(Near(r)), f.Cr(Far(r)), f.Out(r), kW);
    }
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, kRead420, kWritten, mc);
}

void TwoStep420(benchmark::State& s, double mc) {
  Frame& f = F();
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int r = 0; r < kH; ++r) {
      rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(f.Cb(Near(r)), f.Cb(Far(r)), kCw, f.up_cb.data());
      rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(f.Cr(Near(r)), f.Cr(Far(r)), kCw, f.up_cr.data());
      const uint8_t* planes[3] = {f.Y(r), f.up_cb.data(), f.up_cr.data()};
      rvtiYCbCrToRGB_JPEG_8u_P3C3R(planes, kW, f.Out(r), 3 * kW, {kW, 1});
    }
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, kRead420, kWritten, mc);
}

void Fused422(benchmark::State& s, decltype(&rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R) fn,
              double mc) {
  Frame& f = F();
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int r = 0; r < kH; ++r) fn(f.Y(r), f.Cb(r), f.Cr(r), f.Out(r), kW);
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, kRead422, kWritten, mc);
}

void TwoStep422(benchmark::State& s, double mc) {
  Frame& f = F();
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int r = 0; r < kH; ++r) {
      rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(f.Cb(r), kCw, f.up_cb.data());
      rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(f.Cr(r), kCw, f.up_cr.data());
      const uint8_t* planes[3] = {f.Y(r), f.up_cb.data(), f.up_cr.data()};
      rvtiYCbCrToRGB_JPEG_8u_P3C3R(planes, kW, f.Out(r), 3 * kW, {kW, 1});
    }
    benchmark::ClobberMemory();
  }
  bench::ReportBytes(s, timer, kRead422, kWritten, mc);
}

int Register() {
  const double mc420 = bench::MemcpyNs(kRead420 + kWritten);
  const double mc422 = bench::MemcpyNs(kRead422 + kWritten);
  bench::RegisterTargets("Fused420", impl_rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R,
                         [=](benchmark::State& s, auto fn) { Fused420(s, fn, mc420); });
  benchmark::RegisterBenchmark("TwoStep420/chosen",
                               [=](benchmark::State& s) { TwoStep420(s, mc420); });
  bench::RegisterTargets("Fused422", impl_rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R,
                         [=](benchmark::State& s, auto fn) { Fused422(s, fn, mc422); });
  benchmark::RegisterBenchmark("TwoStep422/chosen",
                               [=](benchmark::State& s) { TwoStep422(s, mc422); });
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
