// DXT1, DXT5, scaled YCoCg in DXT5, BC4 and BC5 encoding of the test
// photos and their 256x256 crops: PSNR (every result decoded by our
// decoders; RGB only for YCoCg, with DXT5's RGB PSNR at the same quality
// beside it) and Mpix/s per quality level, beside libsquish's range and cluster fits and, when it is
// installed, the npm BC1 encoder's fastest level, all in one run.  Ours and
// libsquish are timed in CPU seconds on one thread (best of a few runs);
// the npm tool reports the wall time of its own encoding loop, which runs
// on every CPU it is given: it is pinned to one CPU (taskset) when it can
// be, so its figure is per thread too.
//   dxt_encode_bench [path to the npm tool's bc7enc]
#include <png.h>
#include <squish.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "photo.h"
#include "rvtjp.h"

namespace {

using Bytes = std::vector<uint8_t>;

double CpuSeconds() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

// Best CPU time of runs of fn, until 0.6 s are spent (at least 3 runs, at
// most 400): fast coders get hundreds of runs, so a busy machine's stalls
// do not decide their figure.
double BestSeconds(const std::function<void()>& fn) {
  double best = 1e30, spent = 0;
  for (int i = 0; i < 400 && (i < 3 || spent < 0.6); ++i) {
    const double t0 = CpuSeconds();
    fn();
    const double t = CpuSeconds() - t0;
    best = t < best ? t : best;
    spent += t;
  }
  return best;
}

double Psnr(const Bytes& a, const Bytes& b, int pixel, int channels) {
  double se = 0;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); i += pixel) {
    for (int c = 0; c < channels; ++c, ++n) se += (double(a[i + c]) - b[i + c]) * (double(a[i + c]) - b[i + c]);
  }
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(n) / se);
}

void Row(const std::string& image, const char* format, const std::string& coder, double db, double mpix) {
  std::printf("%-16s %-5s %-22s %8.2f %9.2f\n", image.c_str(), format, coder.c_str(), db, mpix);
}

// The npm tool's fastest BC1 on an RGB image: PSNR through our decoder and
// its own encoding time (best of three).  False when it cannot run.
bool Peer(const std::string& tool, bool pinned, const Bytes& rgba, int w, int h, double* db, double* mpix) {
  const std::string dir = "/tmp/rvt_texenc_" + std::to_string(getpid());
  if (std::system(("mkdir -p " + dir).c_str()) != 0) return false;
  const std::string png = dir + "/in.png", dds = dir + "/out.dds";
  png_image pi{};
  pi.version = PNG_IMAGE_VERSION;
  pi.width = uint32_t(w), pi.height = uint32_t(h), pi.format = PNG_FORMAT_RGBA;
  if (!png_image_write_to_file(&pi, png.c_str(), 0, rgba.data(), 0, nullptr)) return false;
  double best = 1e30;
  for (int run = 0; run < 3; ++run) {
    // Pinned to one CPU when taskset is there: its time is then per thread.
    const std::string cmd = "cd " + dir + " && " + (pinned ? "taskset -c 0 " : "") + tool + " -1 -L0 -g " + png + " " + dds + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return false;
    char line[512];
    while (std::fgets(line, sizeof line, p)) {
      double s;
      if (std::sscanf(line, "Total encoding time: %lf", &s) == 1 && s < best) best = s;
    }
    if (pclose(p) != 0) return false;
  }
  std::ifstream f(dds, std::ios::binary);
  Bytes file((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  const size_t blocks = size_t(w / 4) * (h / 4) * 8;
  if (best >= 1e30 || file.size() < 128 + blocks) return false;
  Bytes out(rgba.size());
  rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R(file.data() + file.size() - blocks, out.data(), 4 * w, {w, h});
  *db = Psnr(out, rgba, 4, 3);
  *mpix = double(w) * h / best / 1e6;
  std::system(("rm -rf " + dir).c_str());
  return true;
}

using EncodeFn = RvtResult (*)(const uint8_t*, int32_t, uint8_t*, ImageSize, int);
using DecodeFn = RvtResult (*)(const uint8_t*, uint8_t*, int32_t, ImageSize);

struct Format {
  const char* name;
  EncodeFn encode;
  DecodeFn decode;
  int pixel, block, channels, squish;  // squish < 0: no peer
};

}  // namespace

int main(int argc, char** argv) {
  std::string tool = argc > 1 ? argv[1] : "/opt/npm-peer/node_modules/@gpu-tex-enc/bc/bin/linux/bc7enc";
  if (access(tool.c_str(), X_OK) != 0) tool.clear();
  const bool pinned = std::system("taskset -c 0 true >/dev/null 2>&1") == 0;
  const Format formats[] = {
      {"DXT1", rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 4, 8, 3,
       squish::kDxt1},
      {"DXT5", rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 4, 16, 4,
       squish::kDxt5},
      {"YCoCg", rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R, rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R, 4, 16,
       3, -1},
      {"BC4", rvtiTextureEncodeBlock_BC4_8u_C1R, rvtiTextureDecodeBlock_BC4_8u_C1R, 1, 8, 1, squish::kBc4},
      {"BC5", rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R, rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, 2, 16, 2,
       squish::kBc5}};
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::printf("%-16s %-5s %-22s %8s %9s\n", "image", "fmt", "coder", "PSNR dB", "Mpix/s");
  for (const char* name : {"coffee.png", "chelsea.png", "astronaut.png"}) {
    const rvt::test::Photo p = rvt::test::LoadPhoto(name, 3);
    if (p.px.empty()) return std::fprintf(stderr, "cannot read %s\n", name), 1;
    for (int crop = 0; crop < 2; ++crop) {
      const int w = crop ? 256 : p.width / 4 * 4, h = crop ? 256 : p.height / 4 * 4;
      const size_t n = size_t(w) * h;
      const std::string image = std::string(name, std::strlen(name) - 4) + (crop ? " 256" : "");
      // RGBA with alpha from a gradient and the green channel, as the tests.
      Bytes rgba(n * 4);
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          const uint8_t* s = &p.px[(size_t(y) * p.width + x) * 3];
          uint8_t* d = &rgba[(size_t(y) * w + x) * 4];
          d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = uint8_t((x * 255 / w + s[1]) / 2);
        }
      }
      double dxt5_rgb[3] = {};
      for (const Format& f : formats) {
        // Our input: RGBA (DXT1 opaque), the green channel (BC4), red and
        // green (BC5); libsquish's: RGBA with those channels first.
        Bytes in(n * f.pixel), sq(n * 4, 255);
        for (size_t i = 0; i < n; ++i) {
          const uint8_t* s = &rgba[4 * i];
          if (f.pixel == 4) {
            std::memcpy(&in[4 * i], s, 4);
            if (f.block == 8) in[4 * i + 3] = 255;
            std::memcpy(&sq[4 * i], &in[4 * i], 4);
          } else if (f.pixel == 1) {
            in[i] = s[1], sq[4 * i] = s[1];
          } else {
            in[2 * i] = s[0], in[2 * i + 1] = s[1], sq[4 * i] = s[0], sq[4 * i + 1] = s[1];
          }
        }
        Bytes blocks(n / 16 * f.block), out(n * f.pixel);
        for (int q = 0; q <= 2; ++q) {
          const double s = BestSeconds([&] { f.encode(in.data(), w * f.pixel, blocks.data(), {w, h}, q); });
          f.decode(blocks.data(), out.data(), w * f.pixel, {w, h});
          if (f.encode == rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R) dxt5_rgb[q] = Psnr(out, in, 4, 3);
          Row(image, f.name, "rvtjp q" + std::to_string(q), Psnr(out, in, f.pixel, f.channels), double(n) / s / 1e6);
          if (f.squish < 0) std::printf("%-16s %-5s %-22s %8.2f\n", "", "", "  DXT5 rvtjp, RGB only", dxt5_rgb[q]);
        }
        if (f.squish < 0) continue;
        for (int fit = 0; fit < (f.pixel == 4 ? 2 : 1); ++fit) {
          const int flags = f.squish | (f.pixel == 4 ? (fit ? squish::kColourClusterFit : squish::kColourRangeFit) : 0);
          const double s = BestSeconds([&] { squish::CompressImage(sq.data(), w, h, blocks.data(), flags); });
          f.decode(blocks.data(), out.data(), w * f.pixel, {w, h});
          Row(image, f.name, f.pixel == 4 ? (fit ? "libsquish cluster" : "libsquish range") : "libsquish",
              Psnr(out, in, f.pixel, f.channels), double(n) / s / 1e6);
        }
        double db, mpix;
        if (f.block == 8 && f.pixel == 4 && !tool.empty() && Peer(tool, pinned, in, w, h, &db, &mpix)) {
          Row(image, f.name, pinned ? "npm bc7enc -L0 (1 cpu)" : "npm bc7enc -L0 (wall)", db, mpix);
        }
      }
    }
  }
  return 0;
}
