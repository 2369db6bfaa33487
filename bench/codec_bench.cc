// The example codec against libjpeg-turbo (TurboJPEG API) on a 3840x2160
// frame tiled from the testdata photos at their native resolution: encode
// and decode at quality 90, 4:2:0 and 4:4:4, one thread each, then a table
// of Mpix/s side by side with the ratio, and where our time goes by stage.
// Both decoders read the same file (libjpeg-turbo's encoding of the frame).
// Single-threaded rates are per CPU second (the machines are shared: CPU time
// is what other processes cannot inflate); the threaded mode's, per second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"
#include "rvtcore.h"
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

const std::vector<uint8_t>& PeerFile(Sampling s) {
  static std::map<Sampling, std::vector<uint8_t>> files;
  auto& f = files[s];
  if (f.empty()) {
    TurboPeer peer;
    std::string error;
    if (!peer.Encode(Frame(), kQuality, s, &error)) std::fprintf(stderr, "%s\n", error.c_str());
    f.assign(peer.data(), peer.data() + peer.size());
  }
  return f;
}

// The same frame with a restart interval per MCU row (libjpeg's encoding),
// the layout the threaded modes split.
const std::vector<uint8_t>& RestartFile(Sampling s) {
  static std::map<Sampling, std::vector<uint8_t>> files;
  auto& f = files[s];
  if (f.empty()) {
    LibjpegOptions lo;
    lo.restart_interval = kW / (s == Sampling::k444 ? 8 : 16);
    std::string error;
    if (!LibjpegEncode(Frame(), kQuality, s, lo, &f, &error)) std::fprintf(stderr, "%s\n", error.c_str());
  }
  return f;
}

void Pixels(benchmark::State& st) {
  st.counters["Mpix/s"] = benchmark::Counter(double(kW) * kH * double(st.iterations()) / 1e6,
                                             benchmark::Counter::kIsRate);
}

void EncodeOurs(benchmark::State& st, Sampling s, int threads) {
  Encoder enc;
  EncodeOptions opt;
  opt.quality = kQuality;
  opt.sampling = s;
  opt.threads = threads;
  std::string error;
  for (auto _ : st)
    if (!enc.Encode(Frame(), opt, &error)) st.SkipWithError(error.c_str());
  st.counters["bytes"] = double(enc.size());
  Pixels(st);
}

void EncodePeer(benchmark::State& st, Sampling s) {
  TurboPeer peer;
  std::string error;
  for (auto _ : st)
    if (!peer.Encode(Frame(), kQuality, s, &error)) st.SkipWithError(error.c_str());
  st.counters["bytes"] = double(peer.size());
  Pixels(st);
}

void DecodeOurs(benchmark::State& st, Sampling s, int threads, bool restart = false) {
  const auto& file = restart ? RestartFile(s) : PeerFile(s);
  Decoder dec;
  DecodeOptions opt;
  opt.threads = threads;
  Image out;
  std::string error;
  for (auto _ : st)
    if (dec.Decode(file.data(), file.size(), opt, &out, &error) != DecodeStatus::kOk) st.SkipWithError(error.c_str());
  Pixels(st);
}

void DecodePeer(benchmark::State& st, Sampling s) {
  const auto& file = PeerFile(s);
  TurboPeer peer;
  Image out;
  std::string error;
  for (auto _ : st)
    if (!peer.Decode(file.data(), file.size(), &out, &error)) st.SkipWithError(error.c_str());
  Pixels(st);
}

// Keeps the Mpix/s of every run for the closing table.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  TableReporter() : ConsoleReporter(OO_None) {}
  std::map<std::string, double> mpix;
  std::map<std::string, std::pair<double, double>> ms;  // wall, CPU per iteration
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      auto it = r.counters.find("Mpix/s");
      if (it != r.counters.end() && !r.error_occurred) mpix[r.run_name.function_name] = it->second.value;
      if (!r.error_occurred && r.iterations > 0)
        ms[r.run_name.function_name] = {r.real_accumulated_time / double(r.iterations) * 1e3,
                                        r.cpu_accumulated_time / double(r.iterations) * 1e3};
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

void PrintStages(Sampling s) {
  StageTimes et, dt;
  Encoder enc;
  enc.set_stage_times(&et);
  EncodeOptions opt;
  opt.quality = kQuality;
  opt.sampling = s;
  std::string error;
  Decoder dec;
  dec.set_stage_times(&dt);
  Image out;
  const auto& file = PeerFile(s);
  constexpr int kRuns = 5;
  for (int i = 0; i < kRuns; ++i) {
    enc.Encode(Frame(), opt, &error);
    dec.Decode(file.data(), file.size(), DecodeOptions(), &out, &error);
  }
  auto row = [](const char* what, const StageTimes& t) {
    const double total = t.Total() / kRuns * 1e3;
    std::printf("  %-7s %-6s colour %6.2f ms  sampling %6.2f ms  DCT/IDCT %6.2f ms  Huffman %6.2f ms  (sum %6.2f ms)\n",
                what, "", t.colour / kRuns * 1e3, t.sampling / kRuns * 1e3, t.transform / kRuns * 1e3,
                t.entropy / kRuns * 1e3, total);
  };
  std::printf("rvtjp stages per %dx%d frame, %s:\n", kW, kH, SamplingName(s));
  row("encode", et);
  row("decode", dt);
}

}  // namespace

int main(int argc, char** argv) {
  rvtSetNumThreads(1);
  benchmark::Initialize(&argc, argv);
  struct Case {
    const char* tag;
    Sampling s;
  };
  const Case cases[] = {{"420", Sampling::k420}, {"444", Sampling::k444}};
  for (const Case& c : cases) {
    const Sampling s = c.s;
    const std::string t = c.tag;
    benchmark::RegisterBenchmark(("encode/" + t + "/rvtjp").c_str(), [s](benchmark::State& st) { EncodeOurs(st, s, 1); })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("encode/" + t + "/libjpeg-turbo").c_str(), [s](benchmark::State& st) { EncodePeer(st, s); })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("decode/" + t + "/rvtjp").c_str(), [s](benchmark::State& st) { DecodeOurs(st, s, 1); })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("decode/" + t + "/libjpeg-turbo").c_str(), [s](benchmark::State& st) { DecodePeer(st, s); })->Unit(benchmark::kMillisecond);
  }
  // The threaded modes, timed by the wall clock with the CPU time of every
  // thread beside it: the encoder codes a restart interval per MCU row on
  // each thread; the decoder splits a file with a restart interval per MCU
  // row between the threads, and runs one without restart markers as a
  // two-thread pipeline (Huffman decoding, then the pixel stages).  The
  // one-thread rows of the same work are the base of the speed-up.
  for (const Case& c : cases) {
    const Sampling s = c.s;
    const std::string t = c.tag;
    for (int n : {1, 2}) {
      const std::string sfx = "/rvtjp-" + std::to_string(n) + "-thread" + (n > 1 ? "s" : "");
      benchmark::RegisterBenchmark(("encode/" + t + sfx).c_str(), [s, n](benchmark::State& st) { EncodeOurs(st, s, n); })->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark(("decode-restart/" + t + sfx).c_str(), [s, n](benchmark::State& st) { DecodeOurs(st, s, n, true); })->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark(("decode/" + t + sfx).c_str(), [s, n](benchmark::State& st) { DecodeOurs(st, s, n); })->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
    }
  }
  Frame();
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\n%dx%d frame tiled from testdata, quality %d, one thread, Mpix/s\n", kW, kH, kQuality);
  std::printf("%-8s %-7s %10s %14s %8s\n", "", "", "rvtjp", "libjpeg-turbo", "ratio");
  for (const Case& c : cases)
    for (const char* dir : {"encode", "decode"}) {
      const std::string base = std::string(dir) + "/" + c.tag + "/";
      const double ours = reporter.mpix[base + "rvtjp"], theirs = reporter.mpix[base + "libjpeg-turbo"];
      if (ours > 0 && theirs > 0)
        std::printf("%-8s %-7s %10.1f %14.1f %7.2fx\n", dir, SamplingName(c.s), ours, theirs, ours / theirs);
    }
  std::printf("\n");
  for (const Case& c : cases) PrintStages(c.s);
  double load[3] = {0, 0, 0};
  if (getloadavg(load, 3) < 1) load[0] = -1;
  std::printf("\nthreads: wall ms (all threads' CPU ms), speed-up of 2 threads by the wall clock; load average %.1f\n",
              load[0]);
  std::printf("%-15s %-7s %20s %20s %8s\n", "", "", "1 thread", "2 threads", "speed-up");
  for (const Case& c : cases)
    for (const char* dir : {"encode", "decode-restart", "decode"}) {
      const std::string base = std::string(dir) + "/" + c.tag + "/rvtjp-";
      auto one = reporter.ms.find(base + "1-thread"), two = reporter.ms.find(base + "2-threads");
      if (one == reporter.ms.end() || two == reporter.ms.end()) continue;
      std::printf("%-15s %-7s %9.2f (%7.2f) %9.2f (%7.2f) %7.2fx\n", dir, SamplingName(c.s), one->second.first,
                  one->second.second, two->second.first, two->second.second, one->second.first / two->second.first);
    }
  benchmark::Shutdown();
  return 0;
}
