// BC1 to BC5 decoding of a 4K texture (3840x2160, random blocks: the
// decoders' work does not depend on the data): Mpix/s of the reference and
// every compiled target, and libsquish's DecompressImage on the same blocks
// in the same run, each row beside the others.  Mpix/s is per CPU second
// (the machines are shared: wall time counts the waits); read the ratios
// between rows.  The output (up to 33 MB) does not fit in cache: the
// memcpy row copies as many bytes as the decoder writes.
#include <squish.h>

#include "bench_util.h"

namespace rvt {
namespace {

using DecodeFn = decltype(&rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R);
constexpr int kW = 3840, kH = 2160;

struct Texture {
  const char* name;
  const Impl<DecodeFn>& impl;
  int block, pixel, squish_flag;
  std::vector<uint8_t> blocks;
};

void SetPixels(benchmark::State& st) {
  st.counters["Mpix/s"] = benchmark::Counter(double(st.iterations()) * kW * kH / 1e6,
                                             benchmark::Counter::kIsRate);
}

int Register() {
  static Texture textures[] = {
      {"DXT1", impl_rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 8, 4, squish::kDxt1, {}},
      {"DXT3", impl_rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, 16, 4, squish::kDxt3, {}},
      {"DXT5", impl_rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 16, 4, squish::kDxt5, {}},
      {"BC4", impl_rvtiTextureDecodeBlock_BC4_8u_C1R, 8, 1, squish::kBc4, {}},
      {"BC5", impl_rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, 16, 2, squish::kBc5, {}}};
  static std::vector<uint8_t> rgba(size_t(kW) * kH * 4);
  test::Rng rng(5);
  for (Texture& t : textures) {
    t.blocks.resize(size_t(kW / 4) * (kH / 4) * size_t(t.block));
    rng.Fill(t.blocks.data(), t.blocks.size(), uint8_t(0), uint8_t(255));
    bench::RegisterTargets(std::string("Decode/") + t.name, t.impl,
                           [&t](benchmark::State& st, DecodeFn fn) {
                             // 64-byte aligned rows, as a texture loader allocates them.
                             std::vector<uint8_t, test::Aligned64<uint8_t>> out(
                                 size_t(kW) * kH * size_t(t.pixel));
                             for (auto _ : st) {
                               fn(t.blocks.data(), out.data(), kW * t.pixel, {kW, kH});
                               benchmark::DoNotOptimize(out.data());
                             }
                             SetPixels(st);
                           });
    benchmark::RegisterBenchmark((std::string("Decode/") + t.name + "/libsquish").c_str(),
                                 [&t](benchmark::State& st) {
                                   for (auto _ : st) {
                                     squish::DecompressImage(rgba.data(), kW, kH, t.blocks.data(),
                                                             t.squish_flag);
                                     benchmark::DoNotOptimize(rgba.data());
                                   }
                                   SetPixels(st);
                                 });
    benchmark::RegisterBenchmark((std::string("Decode/") + t.name + "/memcpy").c_str(),
                                 [&t](benchmark::State& st) {
                                   const size_t n = size_t(kW) * kH * size_t(t.pixel);
                                   std::vector<uint8_t> from(n, 1), to(n, 2);
                                   for (auto _ : st) {
                                     std::memcpy(to.data(), from.data(), n);
                                     benchmark::DoNotOptimize(to.data());
                                   }
                                   SetPixels(st);
                                 });
  }
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
