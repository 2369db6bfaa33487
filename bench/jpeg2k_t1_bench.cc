// JPEG 2000 code-block coding of a 4K photo (3840 x 2160 grey, tiled from
// a test photo at its native resolution), after 5 levels of the library's
// 5/3 wavelet, in 64 x 64 code-blocks: Msamples/s of tier-1 encoding and
// decoding, lossless, and at about 1 bit per sample (encoding: the
// coefficients quantized by a power of two giving about 1 bpp; decoding:
// every block's bytes cut at the last pass inside a budget of 1 bpp).
// RVT_J2K_T1_FRAME=WxH sets a smaller frame (for instruction counts under
// valgrind).
#include "bench_util.h"
#include "photo.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace rvt {
namespace {

constexpr int kLevels = 5, kCb = 64, kMagnBits = 16;

int FrameSide(int which) {
  int w = 3840, h = 2160;
  if (const char* e = std::getenv("RVT_J2K_T1_FRAME")) std::sscanf(e, "%dx%d", &w, &h);
  return std::max(64, which ? h : w);
}
const int kW = FrameSide(0), kH = FrameSide(1);

struct Block {
  int w, h, band;
  std::vector<int32_t> c;
};

std::vector<Block> Blocks() {
  test::Photo p = test::LoadPhoto("camera.png", 1);
  std::vector<int32_t> plane(size_t(kW) * kH);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      plane[size_t(y) * kW + x] =
          p.px.empty() ? ((x ^ y) & 255) - 128 : int32_t(p.px[size_t(y % p.height) * p.width + x % p.width]) - 128;
  std::vector<Block> out;
  auto cut = [&](int x0, int y0, int w, int h, int band) {
    for (int y = y0; y < y0 + h; y += kCb)
      for (int x = x0; x < x0 + w; x += kCb) {
        Block b{std::min(kCb, x0 + w - x), std::min(kCb, y0 + h - y), band, {}};
        for (int yy = 0; yy < b.h; ++yy)
          for (int xx = 0; xx < b.w; ++xx) b.c.push_back(plane[size_t(y + yy) * kW + x + xx]);
        out.push_back(std::move(b));
      }
  };
  int w = kW, h = kH;
  for (int l = 0; l < kLevels; ++l) {
    const ImageRect r{0, 0, w, h};
    uint32_t bytes = 0;
    rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&r, &bytes);
    std::vector<uint8_t> buf(bytes + 64);
    rvtiWTFwd_B53_JPEG2K_32s_C1IR(plane.data(), kW * 4, &r, buf.data());
    const int lw = (w + 1) / 2, lh = (h + 1) / 2;
    cut(lw, 0, w - lw, lh, rvtJ2KBandHL);
    cut(0, lh, lw, h - lh, rvtJ2KBandLH);
    cut(lw, lh, w - lw, h - lh, rvtJ2KBandHH);
    w = lw;
    h = lh;
  }
  cut(0, 0, w, h, rvtJ2KBandLL);
  return out;
}

struct Coded {
  std::vector<std::vector<uint8_t>> data;
  std::vector<std::vector<int32_t>> segLen;
  std::vector<int> sf, passes;
  size_t bytes = 0;
};

Coded EncodeAll(const std::vector<Block>& blocks, EncodeCBState_JPEG2K* st, double bppCut) {
  Coded out;
  for (const Block& b : blocks) {
    int32_t sf, np, nt;
    rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(b.c.data(), b.w * 4, {b.w, b.h}, st, b.band, kMagnBits, 0, &sf, &np,
                                           &nt);
    std::vector<uint8_t> d(size_t(b.w) * b.h * 4 + 4096);
    int32_t len = int32_t(d.size()), more = 0;
    rvtiEncodeStoreBits_JPEG2K_1u(d.data(), &len, st, &more);
    int keep = np;
    int32_t rate = len;
    if (bppCut > 0) {
      const double budget = bppCut * b.w * b.h / 8;
      keep = 0;
      rate = 0;
      for (int k = 0; k < np; ++k) {
        int32_t r = 0;
        rvtiEncodeGetRate_JPEG2K(st, k, &r);
        if (r > budget) break;
        keep = k + 1;
        rate = r;
      }
    }
    d.resize(size_t(rate));
    out.data.push_back(d);
    out.segLen.push_back({rate});
    out.sf.push_back(sf);
    out.passes.push_back(keep);
    out.bytes += size_t(rate);
  }
  return out;
}

std::vector<Block> Quantized(const std::vector<Block>& blocks, int shift) {
  std::vector<Block> q = blocks;
  for (Block& b : q)
    for (int32_t& v : b.c) v = v < 0 ? -((-v) >> shift) : v >> shift;
  return q;
}

void Report(benchmark::State& s, const bench::LoopTimer& t, size_t bytes) {
  s.counters["Msamples_per_s"] = double(kW) * kH / t.NsPerIteration(s) * 1e3;
  s.counters["bpp"] = double(bytes) * 8 / (double(kW) * kH);
}

int Register() {
  static std::vector<Block> blocks = Blocks();
  static EncodeCBState_JPEG2K* st = nullptr;
  rvtiEncodeInitAlloc_JPEG2K(&st, {kCb, kCb});
  static Coded lossless = EncodeAll(blocks, st, 0);
  static Coded cut = EncodeAll(blocks, st, 1.0);
  static int shift = 0;
  static std::vector<Block> quant;
  double best = 1e9;  // the power of two whose coding comes nearest 1 bpp
  for (int q = 0; q < 12; ++q) {
    const double bpp = double(EncodeAll(Quantized(blocks, q), st, 0).bytes) * 8 / (double(kW) * kH);
    if (std::abs(bpp - 1) < best) best = std::abs(bpp - 1), shift = q;
  }
  quant = Quantized(blocks, shift);
  auto encode = [](benchmark::State& s, const std::vector<Block>* bl) {
    size_t bytes = 0;
    bench::LoopTimer t;
    for (auto _ : s) {
      bytes = 0;
      for (const Block& b : *bl) {
        int32_t sf, np, nt;
        rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(b.c.data(), b.w * 4, {b.w, b.h}, st, b.band, kMagnBits, 0, &sf,
                                               &np, &nt);
        int32_t r = 0;
        if (np) rvtiEncodeGetRate_JPEG2K(st, np - 1, &r);
        bytes += size_t(r);
      }
    }
    Report(s, t, bytes);
  };
  auto decode = [](benchmark::State& s, const Coded* c) {
    static std::vector<int32_t> out(kCb * kCb);
    int32_t need = 0;
    rvtiDecodeGetBufSize_JPEG2K({kCb, kCb}, &need);
    std::vector<uint8_t> work(static_cast<size_t>(need));
    const uint8_t none = 0;
    bench::LoopTimer t;
    for (auto _ : s) {
      for (size_t i = 0; i < blocks.size(); ++i) {
        const Block& b = blocks[i];
        rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(c->data[i].empty() ? &none : c->data[i].data(), c->segLen[i].data(),
                                             out.data(), b.w * 4, {b.w, b.h}, b.band, kMagnBits, c->sf[i],
                                             c->passes[i], 0, 0, work.data());
        benchmark::DoNotOptimize(out.data());
      }
    }
    Report(s, t, c->bytes);
  };
  benchmark::RegisterBenchmark("T1Encode/lossless", [encode](benchmark::State& s) { encode(s, &blocks); })
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark(("T1Encode/1bpp_q" + std::to_string(shift)).c_str(),
                               [encode](benchmark::State& s) { encode(s, &quant); })
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("T1Decode/lossless", [decode](benchmark::State& s) { decode(s, &lossless); })
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("T1Decode/1bpp_cut", [decode](benchmark::State& s) { decode(s, &cut); })
      ->Unit(benchmark::kMillisecond);
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
