// BC6H encoding: first a table of log-space PSNR (of sign(x) log2(1 + |x|),
// decoded by our decoder) and Mpix/s per quality level, for a synthetic HDR
// scene and the test photos lifted into HDR, unsigned and signed, the
// reference and the dispatched build timed in the same run (processor time
// of the thread); then Google Benchmark timings of every compiled target on
// the synthetic scene.
// `--no_table` skips the table.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <time.h>

#include "bench_util.h"
#include "hdr_image.h"

namespace rvt {
namespace {

using EncodeU = decltype(&rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R);
using EncodeS = decltype(&rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R);

// Seconds of this thread's processor time: on a machine shared with other
// work, wall time mostly measures the others.
double CpuSeconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// Processor seconds of one encode of `im` (the best of `reps`) and its blocks.
double TimeEncode(const test::HalfImage& im, bool is_signed, int q, bool reference, int reps,
                  std::vector<uint8_t>* blocks) {
  const ImageSize roi{im.width, im.height};
  blocks->assign(size_t((im.width + 3) / 4) * ((im.height + 3) / 4) * 16, 0);
  double best = 1e300;
  for (int r = 0; r < reps; ++r) {
    const double t0 = CpuSeconds();
    if (is_signed) {
      EncodeS fn = reference ? test::Reference(impl_rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R)
                             : rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R;
      fn(reinterpret_cast<const int16_t*>(im.px.data()), 6 * im.width, blocks->data(), roi, q);
    } else {
      EncodeU fn = reference ? test::Reference(impl_rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R)
                             : rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R;
      fn(im.px.data(), 6 * im.width, blocks->data(), roi, q);
    }
    best = std::min(best, CpuSeconds() - t0);
  }
  return best;
}

void PrintTable() {
  struct Scene {
    std::string name;
    test::HalfImage im[2];
  };
  std::vector<Scene> scenes;
  scenes.push_back({"synthetic 256x256", {test::SyntheticHdr(256, 256, false, 1), test::SyntheticHdr(256, 256, true, 2)}});
  for (const char* name : {"astronaut.png", "chelsea.png", "coffee.png", "camera.png"}) {
    const test::Photo p = test::LoadPhoto(name, 3);
    if (p.width == 0) continue;
    scenes.push_back({std::string(name) + " " + std::to_string(p.width) + "x" + std::to_string(p.height),
                      {test::PhotoHdr(p, false), test::PhotoHdr(p, true)}});
  }
  std::printf("%-26s %-8s %2s %9s %12s %12s %6s\n", "image", "form", "q", "logPSNR", "ref Mpix/s",
              "best Mpix/s", "ratio");
  for (const Scene& s : scenes) {
    for (int is_signed = 0; is_signed < 2; ++is_signed) {
      const test::HalfImage& im = s.im[is_signed];
      const double mpix = double(im.width) * im.height / 1e6;
      for (int q = 0; q <= 2; ++q) {
        std::vector<uint8_t> blocks, ref_blocks;
        const int reps = q == 2 ? 1 : 3;
        const double t_best = TimeEncode(im, is_signed, q, false, reps, &blocks);
        const double t_ref = TimeEncode(im, is_signed, q, true, reps, &ref_blocks);
        std::vector<uint16_t> out(im.px.size());
        const ImageSize roi{im.width, im.height};
        if (is_signed) {
          rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(blocks.data(), reinterpret_cast<int16_t*>(out.data()),
                                                    6 * im.width, roi);
        } else {
          rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(blocks.data(), out.data(), 6 * im.width, roi);
        }
        std::printf("%-26s %-8s %2d %9.2f %12.3f %12.3f %6.2f%s\n", s.name.c_str(),
                    is_signed ? "signed" : "unsigned", q, test::LogPsnr(im.px, out), mpix / t_ref,
                    mpix / t_best, t_ref / t_best, blocks == ref_blocks ? "" : "  (blocks differ!)");
        std::fflush(stdout);
      }
    }
  }
}

int Register() {
  static const test::HalfImage u = test::SyntheticHdr(256, 256, false, 1), s = test::SyntheticHdr(256, 256, true, 2);
  static std::vector<uint8_t> out(size_t(64) * 64 * 16);
  for (int q = 0; q <= 2; ++q) {
    const std::string qs = "/q" + std::to_string(q);
    bench::RegisterTargets("Encode/BC6H-unsigned" + qs, impl_rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R,
                           [q](benchmark::State& st, EncodeU fn) {
                             for (auto _ : st) {
                               fn(u.px.data(), 6 * 256, out.data(), {256, 256}, q);
                               benchmark::DoNotOptimize(out.data());
                             }
                             st.counters["Mpix/s"] = benchmark::Counter(double(st.iterations()) * 256 * 256 / 1e6,
                                                                        benchmark::Counter::kIsRate);
                           });
    bench::RegisterTargets("Encode/BC6H-signed" + qs, impl_rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R,
                           [q](benchmark::State& st, EncodeS fn) {
                             for (auto _ : st) {
                               fn(reinterpret_cast<const int16_t*>(s.px.data()), 6 * 256, out.data(), {256, 256}, q);
                               benchmark::DoNotOptimize(out.data());
                             }
                             st.counters["Mpix/s"] = benchmark::Counter(double(st.iterations()) * 256 * 256 / 1e6,
                                                                        benchmark::Counter::kIsRate);
                           });
  }
  return 0;
}

}  // namespace
}  // namespace rvt

int main(int argc, char** argv) {
  bool table = true;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--no_table") == 0) {
      table = false;
      for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
      --argc;
      break;
    }
  }
  if (table) rvt::PrintTable();
  rvt::Register();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
