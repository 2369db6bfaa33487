// The threaded region kernels under ThreadSanitizer (tests/tsan/run.sh).
//
// Every threaded export runs each compiled target this processor runs on
// a region far above the threading limit, with 2 and 4 threads, and must
// give the single-threaded result.  Then several caller threads at once
// run the threaded kernels on their own buffers and code blocks with one
// shared, read-only pair of Huffman specs, each with its own state.  Any
// race is TSan's to report (the script fails on its exit status); this
// program fails on a wrong result.
#include <hwy/targets.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "frame/dispatch.h"
#include "huffman_util.h"
#include "rvtcore.h"
#include "rvtjp.h"

namespace {

using rvt::Impl;

int g_failures = 0;

// The entries of a descriptor this processor runs, reference last.
template <class Fn>
std::vector<Fn> Runnable(const Impl<Fn>& impl) {
  const int64_t have = hwy::SupportedTargets();
  const int64_t bit[rvt::kRef] = {HWY_AVX3, HWY_AVX2, HWY_SSSE3};
  std::vector<Fn> out;
  for (int k = 0; k < rvt::kRef; ++k)
    if (impl.fn[k] && (have & bit[k])) out.push_back(impl.fn[k]);
  out.push_back(impl.fn[rvt::kRef]);
  return out;
}

constexpr int kW = 512, kH = 64;  // 32768 pixels: forks
constexpr int kStep = kW * 4 * 2;  // room for 4 channels of 16-bit samples

struct Planes {
  std::vector<std::vector<uint8_t>> p;
  explicit Planes(int n, uint32_t seed) : p(n, std::vector<uint8_t>(size_t(kStep) * kH)) {
    std::mt19937 rng(seed);
    for (auto& v : p)
      for (auto& b : v) b = uint8_t(rng());
  }
  uint8_t* operator[](int k) { return p[k].data(); }
};

// One threaded export: run(entry index, source planes, destination planes).
struct Kernel {
  const char* name;
  size_t entries;
  std::function<RvtResult(size_t, Planes&, Planes&)> run;
};

// Planar pointer arrays for the P3/P4 forms.
struct Ptrs {
  uint8_t* a[4];
  explicit Ptrs(Planes& p) {
    for (int k = 0; k < 4; ++k) a[k] = p[k];
  }
};

#define REGION(name, S, D)                                                                 \
  Kernel{#name, Runnable(rvt::impl_##name).size(), [](size_t e, Planes& s, Planes& d) {    \
           return Runnable(rvt::impl_##name)[e](reinterpret_cast<const S*>(s[0]), kStep,   \
                                                reinterpret_cast<D*>(d[0]), kStep,         \
                                                ImageSize{kW, kH});                        \
         }}
#define TO_PLANES(name)                                                                      \
  Kernel{#name, Runnable(rvt::impl_##name).size(), [](size_t e, Planes& s, Planes& d) {      \
           Ptrs dp(d);                                                                       \
           return Runnable(rvt::impl_##name)[e](s[0], kStep, dp.a, kStep, ImageSize{kW, kH}); \
         }}
#define FROM_PLANES(name)                                                                    \
  Kernel{#name, Runnable(rvt::impl_##name).size(), [](size_t e, Planes& s, Planes& d) {      \
           Ptrs sp(s);                                                                       \
           return Runnable(rvt::impl_##name)[e](sp.a, kStep, d[0], kStep, ImageSize{kW, kH}); \
         }}
#define PLANES(name)                                                                         \
  Kernel{#name, Runnable(rvt::impl_##name).size(), [](size_t e, Planes& s, Planes& d) {      \
           Ptrs sp(s), dp(d);                                                                \
           return Runnable(rvt::impl_##name)[e](sp.a, kStep, dp.a, kStep, ImageSize{kW, kH}); \
         }}
// The up-sampler reads a row and a column before its source region.
#define SAMPLE(name, sw, sh)                                                                 \
  Kernel{#name, Runnable(rvt::impl_##name).size(), [](size_t e, Planes& s, Planes& d) {      \
           return Runnable(rvt::impl_##name)[e](s[0] + kStep + 64, kStep, ImageSize{sw, sh},  \
                                                d[0], kStep, ImageSize{kW, kH});             \
         }}

std::vector<Kernel> ThreadedKernels() {
  return {
      REGION(rvtiAdd128_JPEG_16s8u_C1R, int16_t, uint8_t),
      REGION(rvtiSub128_JPEG_8u16s_C1R, uint8_t, int16_t),
      TO_PLANES(rvtiBGRToYCbCr_JPEG_8u_C3P3R),
      REGION(rvtiBGRToY_JPEG_8u_C3C1R, uint8_t, uint8_t),
      TO_PLANES(rvtiCMYKToYCCK_JPEG_8u_C4P4R),
      PLANES(rvtiCMYKToYCCK_JPEG_8u_P4R),
      TO_PLANES(rvtiRGBToYCbCr_JPEG_8u_C3P3R),
      PLANES(rvtiRGBToYCbCr_JPEG_8u_P3R),
      REGION(rvtiRGBToY_JPEG_8u_C3C1R, uint8_t, uint8_t),
      FROM_PLANES(rvtiRGBToY_JPEG_8u_P3C1R),
      FROM_PLANES(rvtiYCCKToCMYK_JPEG_8u_P4C4R),
      PLANES(rvtiYCCKToCMYK_JPEG_8u_P4R),
      REGION(rvtiYCbCr422ToRGB_JPEG_8u_C2C3R, uint8_t, uint8_t),
      FROM_PLANES(rvtiYCbCrToBGR_JPEG_8u_P3C3R),
      FROM_PLANES(rvtiYCbCrToRGB_JPEG_8u_P3C3R),
      PLANES(rvtiYCbCrToRGB_JPEG_8u_P3R),
      SAMPLE(rvtiSampleDownH2V1_JPEG_8u_C1R, kW * 2, kH),
      SAMPLE(rvtiSampleDownH2V2_JPEG_8u_C1R, kW * 2, kH * 2),
      SAMPLE(rvtiSampleUpH2V2_JPEG_8u_C1R, kW / 2, kH / 2),
  };
}

// Sources twice the region for the down-samplers.
struct Buffers {
  Planes src{4, 1}, dst{4, 2};
  Buffers(uint32_t seed) : src(4, seed), dst(4, seed + 1) {
    for (auto& v : src.p) v.resize(size_t(kStep) * (kH * 2 + 2) + 64);
  }
};

bool Expect(bool ok, const std::string& what) {
  if (!ok) {
    std::fprintf(stderr, "race_check: %s\n", what.c_str());
    ++g_failures;
  }
  return ok;
}

// Every kernel and entry with `threads` threads against the same with one.
void ThreadedPass(int threads) {
  rvtSetNumThreads(threads);
  Expect(ownGetNumThreads() == threads,
         "the runtime gives " + std::to_string(ownGetNumThreads()) + " threads, not " +
             std::to_string(threads) + " (OMP_NUM_THREADS)");
  for (const Kernel& k : ThreadedKernels()) {
    for (size_t e = 0; e < k.entries; ++e) {
      Buffers one(7), many(7);
      rvtSetNumThreads(1);
      const RvtResult s1 = k.run(e, one.src, one.dst);
      rvtSetNumThreads(threads);
      const RvtResult sn = k.run(e, many.src, many.dst);
      Expect(s1 == sn && one.dst.p == many.dst.p,
             std::string(k.name) + " entry " + std::to_string(e) + " with " +
                 std::to_string(threads) + " threads differs from one");
    }
  }
}

// Encodes and decodes a few blocks with shared specs and its own states.
void HuffmanRoundTrip(const EncodeHuffmanSpec* edc, const EncodeHuffmanSpec* eac,
                      const DecodeHuffmanSpec* ddc, const DecodeHuffmanSpec* dac, uint32_t seed) {
  auto enc = Runnable(rvt::impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1);
  auto dec = Runnable(rvt::impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1);
  std::mt19937 rng(seed);
  for (int round = 0; round < 20; ++round) {
    int16_t blocks[4][64] = {};
    for (auto& b : blocks)
      for (int i = 0; i < 64; i += 1 + int(rng() % 6)) b[i] = int16_t(int(rng() % 255) - 127);
    uint8_t buf[4096];
    int pos = 0;
    int16_t last_dc = 0;
    EncodeHuffmanState es;
    rvt::impl_rvtiEncodeHuffmanStateInit_JPEG_8u.fn[rvt::kRef](&es);
    auto e = enc[round % enc.size()];
    for (auto& b : blocks) e(b, buf, sizeof buf, &pos, &last_dc, edc, eac, &es, 0);
    e(nullptr, buf, sizeof buf, &pos, nullptr, nullptr, nullptr, &es, 1);
    DecodeHuffmanState ds;
    rvt::impl_rvtiDecodeHuffmanStateInit_JPEG_8u.fn[rvt::kRef](&ds);
    int rpos = 0, marker = 0;
    int16_t dc = 0;
    auto d = dec[round % dec.size()];
    for (auto& b : blocks) {
      int16_t out[64];
      const RvtResult s = d(buf, pos, &rpos, out, &dc, &marker, ddc, dac, &ds);
      Expect(s == rvtStatusOk && std::memcmp(out, b, sizeof out) == 0, "Huffman round trip");
    }
  }
}

}  // namespace

int main() {
  ThreadedPass(2);
  ThreadedPass(4);

  // Shared, read-only specs.
  const auto dcT = rvt::test::LumaDc(), acT = rvt::test::LumaAc();
  static EncodeHuffmanSpec edc, eac;
  static DecodeHuffmanSpec ddc, dac;
  rvt::impl_rvtiEncodeHuffmanSpecInit_JPEG_8u.fn[rvt::kRef](dcT.bits, dcT.vals.data(), &edc);
  rvt::impl_rvtiEncodeHuffmanSpecInit_JPEG_8u.fn[rvt::kRef](acT.bits, acT.vals.data(), &eac);
  rvt::impl_rvtiDecodeHuffmanSpecInit_JPEG_8u.fn[rvt::kRef](dcT.bits, dcT.vals.data(), &ddc);
  rvt::impl_rvtiDecodeHuffmanSpecInit_JPEG_8u.fn[rvt::kRef](acT.bits, acT.vals.data(), &dac);

  // Several callers at once, each with its own buffers, 2 threads a call.
  rvtSetNumThreads(2);
  std::vector<std::thread> callers;
  for (int t = 0; t < 4; ++t) {
    callers.emplace_back([t] {
      Buffers b(100 + t);
      const auto kernels = ThreadedKernels();
      for (size_t i = 0; i < kernels.size(); ++i) {
        const Kernel& k = kernels[(i + t * 5) % kernels.size()];
        Expect(k.run(k.entries - 1 - size_t(t) % k.entries, b.src, b.dst) >= 0, k.name);
      }
      HuffmanRoundTrip(&edc, &eac, &ddc, &dac, 200 + t);
    });
  }
  for (auto& c : callers) c.join();
  rvtSetNumThreads(0);
  std::printf("race_check: %d threaded exports, 2 and 4 threads, 4 callers: %s\n",
              int(ThreadedKernels().size()), g_failures ? "FAILED" : "ok");
  return g_failures ? 1 : 0;
}
