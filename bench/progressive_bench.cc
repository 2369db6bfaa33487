// Progressive JPEG and optimized tables on a 3840x2160 frame tiled from the
// testdata photos (the codec benchmark's frame): the example codec's
// progressive decode against libjpeg-turbo's (TurboJPEG), both reading
// libjpeg-turbo's progressive file (its baseline encoding at quality 90,
// 4:2:0, made progressive by tjTransform), one thread each, with the ratio;
// and the time the statistics and the optimal-table builds take per frame,
// for a baseline scan and for libjpeg's default progression script.
#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"
#include "progressive.h"
#include "rvtcore.h"
#include "rvtjp.h"
#include "turbo_peer.h"

namespace {

using namespace rvtjpeg;

constexpr int kW = 3840, kH = 2160, kQuality = 90;

// Shelf-packs the photos, cycling through them, until the frame is full.
Image TiledFrame() {
  std::vector<Image> tiles;
  TurboPeer peer;
  for (const char* name : {"astronaut.png", "hubble_deep_field.jpg", "coffee.png", "retina.jpg", "chelsea.png",
                           "rocket.jpg", "camera.png"}) {
    const std::string path = std::string(RVT_TESTDATA_DIR) + "/" + name;
    Image img;
    std::string error;
    bool ok;
    if (std::string(name).find(".jpg") != std::string::npos) {
      std::vector<uint8_t> data;
      ok = ReadFile(path, &data, &error) && peer.Decode(data.data(), data.size(), &img, &error);
    } else {
      ok = ReadImage(path, &img, &error);
    }
    if (!ok) {
      std::fprintf(stderr, "codec_bench: %s\n", error.c_str());
      std::exit(2);
    }
    tiles.push_back(std::move(img));
  }
  Image frame;
  frame.Resize(kW, kH, 3);
  int x = 0, y = 0, shelf = 0;
  size_t i = 0;
  while (y < kH) {
    const Image& t = tiles[i++ % tiles.size()];
    if (x >= kW) {
      x = 0;
      y += shelf;
      shelf = 0;
      continue;
    }
    const int w = std::min(t.width, kW - x), h = std::min(t.height, kH - y);
    for (int r = 0; r < h; ++r)
      for (int c = 0; c < w; ++c)
        for (int k = 0; k < 3; ++k) frame.row(y + r)[(x + c) * 3 + k] = t.row(r)[c * t.channels + (t.channels == 3 ? k : 0)];
    x += t.width;
    shelf = std::max(shelf, h);
  }
  return frame;
}

const Image& Frame() {
  static const Image frame = TiledFrame();
  return frame;
}

// libjpeg-turbo's progressive file of the frame.
const std::vector<uint8_t>& ProgressiveFile() {
  static std::vector<uint8_t> file;
  if (file.empty()) {
    TurboPeer peer;
    std::string error;
    if (!peer.Encode(Frame(), kQuality, Sampling::k420, &error)) {
      std::fprintf(stderr, "progressive_bench: %s\n", error.c_str());
      std::exit(2);
    }
    tjhandle t = tjInitTransform();
    tjtransform xf = {};
    xf.op = TJXOP_NONE;
    xf.options = TJXOPT_PROGRESSIVE;
    unsigned char* out = nullptr;
    unsigned long size = 0;
    if (tjTransform(t, peer.data(), peer.size(), 1, &out, &size, &xf, 0) != 0) {
      std::fprintf(stderr, "progressive_bench: %s\n", tjGetErrorStr2(t));
      std::exit(2);
    }
    file.assign(out, out + size);
    tjFree(out);
    tjDestroy(t);
  }
  return file;
}

void Pixels(benchmark::State& st) {
  st.counters["Mpix/s"] = benchmark::Counter(double(kW) * kH * double(st.iterations()) / 1e6,
                                             benchmark::Counter::kIsRate);
}

void DecodeOurs(benchmark::State& st) {
  const auto& file = ProgressiveFile();
  Decoder dec;
  Image out;
  std::string error;
  for (auto _ : st) {
    if (dec.Decode(file.data(), file.size(), DecodeOptions(), &out, &error) != DecodeStatus::kOk) {
      st.SkipWithError(error.c_str());
    }
  }
  Pixels(st);
}

void DecodePeer(benchmark::State& st) {
  const auto& file = ProgressiveFile();
  TurboPeer peer;
  Image out;
  std::string error;
  for (auto _ : st) {
    if (!peer.Decode(file.data(), file.size(), &out, &error)) st.SkipWithError(error.c_str());
  }
  Pixels(st);
}

// The coefficients of the frame.
const coef::Frame& Coefficients() {
  static coef::Frame f;
  if (f.comps.empty()) {
    std::string error;
    const auto& file = ProgressiveFile();
    if (!coef::ReadFile(file.data(), file.size(), &f, &error)) {
      std::fprintf(stderr, "progressive_bench: %s\n", error.c_str());
      std::exit(2);
    }
  }
  return f;
}

// Baseline: every block of the interleaved scan counted, then the four
// tables built.
void StatsBaseline(benchmark::State& st) {
  const coef::Frame& f = Coefficients();
  std::vector<int> counts[4];
  uint8_t bits[16], vals[256];
  for (auto _ : st) {
    for (auto& c : counts) c.assign(257, 0);
    int16_t last[3] = {};
    for (int my = 0; my < f.mcuy; ++my) {
      for (int mx = 0; mx < f.mcux; ++mx) {
        for (size_t ci = 0; ci < f.comps.size(); ++ci) {
          const coef::Component& c = f.comps[ci];
          const int t = ci ? 1 : 0;
          for (int v = 0; v < c.v; ++v) {
            for (int h = 0; h < c.h; ++h) {
              rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(c.block(mx * c.h + h, my * c.v + v),
                                                      counts[2 * t].data(), counts[2 * t + 1].data(),
                                                      &last[ci]);
            }
          }
        }
      }
    }
    for (auto& c : counts) rvtiEncodeHuffmanRawTableInit_JPEG_8u(c.data(), bits, vals);
    benchmark::DoNotOptimize(vals);
  }
  Pixels(st);
}

// Progressive: the statistics of every scan of libjpeg's default script
// (DC scans over the MCUs, AC scans over each component's blocks) and a
// table per table-coded scan.
void StatsProgressive(benchmark::State& st) {
  const coef::Frame& f = Coefficients();
  const auto script = coef::DefaultScript(3);
  int state_size = 0;
  rvtiEncodeHuffmanStateGetBufSize_JPEG_8u(&state_size);
  std::vector<uint8_t> state_bytes(static_cast<size_t>(state_size));
  auto* state = reinterpret_cast<EncodeHuffmanState*>(state_bytes.data());
  std::vector<int> counts[2];
  uint8_t bits[16], vals[256];
  for (auto _ : st) {
    for (const coef::Scan& s : script) {
      for (auto& c : counts) c.assign(257, 0);
      rvtiEncodeHuffmanStateInit_JPEG_8u(state);
      if (s.ss == 0) {
        if (s.ah != 0) continue;  // DC refinement: no table
        int16_t last[3] = {};
        for (int my = 0; my < f.mcuy; ++my) {
          for (int mx = 0; mx < f.mcux; ++mx) {
            for (int ci : s.comps) {
              const coef::Component& c = f.comps[size_t(ci)];
              for (int v = 0; v < c.v; ++v) {
                for (int h = 0; h < c.h; ++h) {
                  rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(
                      c.block(mx * c.h + h, my * c.v + v), counts[ci ? 1 : 0].data(), &last[ci], s.al);
                }
              }
            }
          }
        }
        for (auto& c : counts) rvtiEncodeHuffmanRawTableInit_JPEG_8u(c.data(), bits, vals);
        continue;
      }
      const coef::Component& c = f.comps[size_t(s.comps[0])];
      auto fn = s.ah == 0 ? rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1
                          : rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1;
      for (int by = 0; by < c.rh; ++by) {
        for (int bx = 0; bx < c.rw; ++bx) fn(c.block(bx, by), counts[0].data(), s.ss, s.se, s.al, state, 0);
      }
      fn(nullptr, counts[0].data(), 0, 0, 0, state, 1);
      rvtiEncodeHuffmanRawTableInit_JPEG_8u(counts[0].data(), bits, vals);
    }
    benchmark::DoNotOptimize(vals);
  }
  Pixels(st);
}

class TableReporter : public benchmark::ConsoleReporter {
 public:
  TableReporter() : ConsoleReporter(OO_None) {}
  std::map<std::string, double> ms;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (!r.error_occurred) ms[r.run_name.function_name] = r.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  rvtSetNumThreads(1);
  benchmark::Initialize(&argc, argv);
  benchmark::RegisterBenchmark("progressive-decode/420/rvtjp", DecodeOurs)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("progressive-decode/420/libjpeg-turbo", DecodePeer)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("statistics+tables/baseline", StatsBaseline)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("statistics+tables/progressive", StatsProgressive)->Unit(benchmark::kMillisecond);
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const auto& t = reporter.ms;
  auto at = [&](const char* k) {
    auto it = t.find(k);
    return it == t.end() ? 0.0 : it->second;
  };
  const double ours = at("progressive-decode/420/rvtjp"), peer = at("progressive-decode/420/libjpeg-turbo");
  std::printf("\nprogressive decode of a %dx%d frame (%zu bytes), one thread, CPU time:\n", kW, kH,
              ProgressiveFile().size());
  std::printf("  rvtjp %.1f ms, libjpeg-turbo %.1f ms: rvtjp takes %.2fx libjpeg-turbo's time\n", ours, peer,
              peer > 0 ? ours / peer : 0.0);
  std::printf("statistics + optimal tables per frame: baseline scan %.2f ms, progressive script %.2f ms\n",
              at("statistics+tables/baseline"), at("statistics+tables/progressive"));
  benchmark::Shutdown();
  return 0;
}
