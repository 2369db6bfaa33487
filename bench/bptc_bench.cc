// BC7 and BC6H decoding of a 1024x1024 texture (random blocks, every mode
// in equal shares): Mpix/s of the reference and every compiled target, and
// of Mesa's software renderer (softpipe, a plain scalar decoder) reading the
// same blocks back through glGetTexImage in the same run.  The Mesa row
// includes its per-call overhead (format checks, a texel store per pixel),
// which is what a caller of it pays.  Mpix/s is per CPU second.
#define GL_GLEXT_PROTOTYPES
#include <GL/osmesa.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdlib>

#include "bench_util.h"

namespace rvt {
namespace {

constexpr int kW = 1024, kH = 1024;

void SetPixels(benchmark::State& st) {
  st.counters["Mpix/s"] = benchmark::Counter(double(st.iterations()) * kW * kH / 1e6,
                                             benchmark::Counter::kIsRate);
}

std::vector<uint8_t> Blocks(bool bc7, uint32_t seed) {
  std::vector<uint8_t> b(size_t(kW / 4) * (kH / 4) * 16);
  test::Rng rng(seed);
  rng.Fill(b.data(), b.size(), uint8_t(0), uint8_t(255));
  const uint8_t bc6_values[14] = {0x00, 0x01, 0x02, 0x06, 0x0A, 0x0E, 0x12,
                                  0x16, 0x1A, 0x1E, 0x03, 0x07, 0x0B, 0x0F};
  for (size_t k = 0; k < b.size() / 16; ++k) {
    uint8_t& first = b[16 * k];
    if (bc7) {
      const int m = int(k % 8);
      first = uint8_t(first << (m + 1) | 1 << m);
    } else {
      first = uint8_t((first & ~31) | bc6_values[k % 14]);
    }
  }
  return b;
}

bool MesaReady() {
  static const bool ready = [] {
    setenv("GALLIUM_DRIVER", "softpipe", 1);
    const int attribs[] = {OSMESA_FORMAT, OSMESA_RGBA, OSMESA_PROFILE, OSMESA_COMPAT_PROFILE, 0};
    static uint8_t fb[64];
    OSMesaContext ctx = OSMesaCreateContextAttribs(attribs, nullptr);
    return ctx && OSMesaMakeCurrent(ctx, fb, GL_UNSIGNED_BYTE, 4, 4);
  }();
  return ready;
}

void MesaDecode(benchmark::State& st, GLenum format, const std::vector<uint8_t>& blocks, GLenum layout,
                GLenum type, size_t bytes) {
  if (!MesaReady()) {
    st.SkipWithError("no OSMesa context");
    return;
  }
  GLuint tex;
  glGenTextures(1, &tex);
  glBindTexture(GL_TEXTURE_2D, tex);
  glCompressedTexImage2D(GL_TEXTURE_2D, 0, format, kW, kH, 0, GLsizei(blocks.size()), blocks.data());
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  std::vector<uint8_t> out(bytes);
  for (auto _ : st) {
    glGetTexImage(GL_TEXTURE_2D, 0, layout, type, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  glDeleteTextures(1, &tex);
  SetPixels(st);
}

int Register() {
  static const std::vector<uint8_t> bc7 = Blocks(true, 7), bc6 = Blocks(false, 6);
  using Bc7Fn = decltype(&rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R);
  using Bc6uFn = decltype(&rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R);
  using Bc6sFn = decltype(&rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R);
  bench::RegisterTargets("Decode/BC7", impl_rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R,
                         [](benchmark::State& st, Bc7Fn fn) {
                           std::vector<uint8_t, test::Aligned64<uint8_t>> out(size_t(kW) * kH * 4);
                           for (auto _ : st) {
                             fn(bc7.data(), out.data(), kW * 4, {kW, kH});
                             benchmark::DoNotOptimize(out.data());
                           }
                           SetPixels(st);
                         });
  benchmark::RegisterBenchmark("Decode/BC7/mesa-softpipe", [](benchmark::State& st) {
    MesaDecode(st, GL_COMPRESSED_RGBA_BPTC_UNORM, bc7, GL_RGBA, GL_UNSIGNED_BYTE, size_t(kW) * kH * 4);
  });
  bench::RegisterTargets("Decode/BC6H-unsigned", impl_rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R,
                         [](benchmark::State& st, Bc6uFn fn) {
                           std::vector<uint16_t> out(size_t(kW) * kH * 3);
                           for (auto _ : st) {
                             fn(bc6.data(), out.data(), kW * 6, {kW, kH});
                             benchmark::DoNotOptimize(out.data());
                           }
                           SetPixels(st);
                         });
  benchmark::RegisterBenchmark("Decode/BC6H-unsigned/mesa-softpipe", [](benchmark::State& st) {
    MesaDecode(st, GL_COMPRESSED_RGB_BPTC_UNSIGNED_FLOAT, bc6, GL_RGB, GL_HALF_FLOAT, size_t(kW) * kH * 6);
  });
  bench::RegisterTargets("Decode/BC6H-signed", impl_rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R,
                         [](benchmark::State& st, Bc6sFn fn) {
                           std::vector<int16_t> out(size_t(kW) * kH * 3);
                           for (auto _ : st) {
                             fn(bc6.data(), out.data(), kW * 6, {kW, kH});
                             benchmark::DoNotOptimize(out.data());
                           }
                           SetPixels(st);
                         });
  benchmark::RegisterBenchmark("Decode/BC6H-signed/mesa-softpipe", [](benchmark::State& st) {
    MesaDecode(st, GL_COMPRESSED_RGB_BPTC_SIGNED_FLOAT, bc6, GL_RGB, GL_HALF_FLOAT, size_t(kW) * kH * 6);
  });
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
