// BC7 encoding of the test photos (testdata/*.png, opaque) and their
// 256x256 crops: PSNR (RGB and RGBA, as our decoder gives the blocks back;
// our decoder equals Mesa's softpipe), the pixels that come back with
// alpha below 255 (ours never do: the peer's do) and Mpix/s per quality
// level, the
// reference kernel beside the dispatched one, and, when it is installed,
// the npm peer's BC7 encoder (@gpu-tex-enc/bc, its bc7enc binary) at its
// fastest (-u0) and best (-u6) levels in the same run: its blocks are read
// from the DDS it writes and decoded by our decoder.  Mpix/s cpu is per CPU
// second (the peer's: of its whole process, reading the PNG included, over
// the threads it runs, printed beside it); Mpix/s is per wall second (the
// peer's: of the encoding time it prints).  The peer runs pinned to one CPU
// (taskset) when it can, so its printed time is per thread like ours.  Set RVT_BC7_PEER to the
// binary's path (default:
// /opt/npm-peer/node_modules/@gpu-tex-enc/bc/bin/linux/bc7enc).  The
// machine is shared: read the ratios within one run.
#include <png.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "photo.h"
#include "texture/bc7_encode.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;

struct Image {
  std::string name;
  int w, h;
  Bytes rgba;
};

double Psnr(const Bytes& a, const Bytes& b, int chans) {
  double se = 0;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); i += 4) {
    for (int c = 0; c < chans; ++c, ++n) se += (double(a[i + c]) - b[i + c]) * (double(a[i + c]) - b[i + c]);
  }
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(n) / se);
}

// PSNR over RGB and over RGBA, and how many pixels of the (opaque) image
// decode with alpha below 255.
struct Quality {
  double rgb = 0, rgba = 0;
  size_t translucent = 0;
};
Quality Decoded(const Image& im, const Bytes& blocks) {
  Bytes out(im.rgba.size());
  Quality q;
  if (rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blocks.data(), out.data(), 4 * im.w, {im.w, im.h}) != rvtStatusOk) {
    return q;
  }
  for (size_t i = 3; i < out.size(); i += 4) q.translucent += out[i] != 255;
  q.rgb = Psnr(out, im.rgba, 3), q.rgba = Psnr(out, im.rgba, 4);
  return q;
}

double CpuNow() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}
double ChildCpu() {
  rusage ru;
  getrusage(RUSAGE_CHILDREN, &ru);
  return double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) + double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) * 1e-6;
}

// CPU seconds and wall seconds of the fastest of `repeats` runs.
template <class Fn>
void Seconds(Fn fn, int repeats, double* cpu, double* wall) {
  *cpu = *wall = 1e30;
  for (int r = 0; r < repeats; ++r) {
    const auto t0 = std::chrono::steady_clock::now();
    const double c0 = CpuNow();
    fn();
    *cpu = std::min(*cpu, CpuNow() - c0);
    *wall = std::min(*wall, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
  }
}

// The peer on `png`: its PSNR through our decoder, its Mpix/s per CPU
// second of the whole process (reading the PNG included) and per second of
// the encoding time it prints; false when it cannot run.
bool Peer(const std::string& bin, const Image& im, const std::string& png, int level, bool pinned, Quality* db,
          double* cpu_mps, double* mps, int* threads) {
  const std::string dds = png + ".u" + std::to_string(level) + ".dds";
  const std::string cmd = std::string(pinned ? "taskset -c 0 " : "") + "'" + bin + "' -g -u" + std::to_string(level) + " '" + png + "' '" + dds + "' 2>&1";
  const double c0 = ChildCpu();
  FILE* f = popen(cmd.c_str(), "r");
  if (!f) return false;
  char line[512];
  double secs = 0;
  while (std::fgets(line, sizeof line, f)) {
    std::sscanf(line, "Total encoding time: %lf", &secs);
    std::sscanf(line, "Max threads: %d", threads);
  }
  if (pclose(f) != 0 || secs <= 0) return false;
  *cpu_mps = double(im.w) * im.h / (ChildCpu() - c0) / 1e6;
  std::ifstream in(dds, std::ios::binary);
  Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t n = size_t((im.w + 3) / 4) * ((im.h + 3) / 4) * 16;
  if (file.size() != n + 148) return false;  // magic, header, DX10 header
  *db = Decoded(im, Bytes(file.begin() + 148, file.end()));
  *mps = double(im.w) * im.h / secs / 1e6;
  std::remove(dds.c_str());
  return true;
}

bool WritePng(const Image& im, const std::string& path) {
  png_image pi{};
  pi.version = PNG_IMAGE_VERSION;
  pi.width = uint32_t(im.w);
  pi.height = uint32_t(im.h);
  pi.format = PNG_FORMAT_RGB;
  Bytes rgb(size_t(im.w) * im.h * 3);
  for (size_t i = 0; i < size_t(im.w) * im.h; ++i) std::memcpy(&rgb[3 * i], &im.rgba[4 * i], 3);
  return png_image_write_to_file(&pi, path.c_str(), 0, rgb.data(), 0, nullptr) != 0;
}

int Run(const char* only) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const char* env = std::getenv("RVT_BC7_PEER");
  const std::string peer = env ? env : "/opt/npm-peer/node_modules/@gpu-tex-enc/bc/bin/linux/bc7enc";
  const bool have_peer = access(peer.c_str(), X_OK) == 0;
  const bool pinned = have_peer && std::system("taskset -c 0 true >/dev/null 2>&1") == 0;
  std::vector<Image> images;
  for (const char* name : {"coffee.png", "chelsea.png", "astronaut.png", "camera.png"}) {
    if (only && !std::strstr(name, only)) continue;
    const test::Photo p = test::LoadPhoto(name, 3);
    if (p.px.empty()) continue;
    for (int crop = 0; crop < 2; ++crop) {
      Image im{std::string(name) + (crop ? " 256" : ""), crop ? 256 : p.width, crop ? 256 : p.height, {}};
      im.rgba.resize(size_t(im.w) * im.h * 4);
      for (int y = 0; y < im.h; ++y) {
        for (int x = 0; x < im.w; ++x) {
          std::memcpy(&im.rgba[(size_t(y) * im.w + x) * 4], &p.px[(size_t(y) * p.width + x) * 3], 3);
          im.rgba[(size_t(y) * im.w + x) * 4 + 3] = 255;
        }
      }
      images.push_back(std::move(im));
    }
  }
  char dir[] = "/tmp/rvt_bc7_benchXXXXXX";
  if (!mkdtemp(dir)) return 1;
  std::printf("%-18s %-12s %8s %8s %8s %10s %10s %8s\n", "image", "coder", "RGB dB", "RGBA dB", "A<255", "Mpix/s cpu",
              "Mpix/s", "threads");
  for (const Image& im : images) {
    const size_t nb = size_t((im.w + 3) / 4) * ((im.h + 3) / 4) * 16;
    Bytes blocks(nb);
    const double mpix = double(im.w) * im.h / 1e6;
    for (int q = 0; q <= bc7_encode::kMaxQuality; ++q) {
      const int repeats = q == 0 ? 3 : 1;
      for (int ref = 0; ref < 2; ++ref) {
        auto fn = ref ? &bc7_encode::Bc7Ref : &rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R;
        if (ref && q == 2) continue;  // the same blocks, the same search: the kernel's share shows at 0 and 1
        double cpu, wall;
        Seconds([&] { fn(im.rgba.data(), 4 * im.w, blocks.data(), {im.w, im.h}, q); }, repeats, &cpu, &wall);
        const Quality db = Decoded(im, blocks);
        std::printf("%-18s q%d%-10s %8.2f %8.2f %8zu %10.3f %10.3f %8d\n", im.name.c_str(), q, ref ? " reference" : "",
                    db.rgb, db.rgba, db.translucent, mpix / cpu, mpix / wall, 1);
      }
    }
    if (!have_peer) continue;
    const std::string png = std::string(dir) + "/image.png";
    if (!WritePng(im, png)) continue;
    for (int level : {0, 6}) {
      Quality db;
      double cpu_mps = 0, mps = 0;
      int threads = 0;
      if (Peer(peer, im, png, level, pinned, &db, &cpu_mps, &mps, &threads)) {
        std::printf("%-18s peer -u%-5d %8.2f %8.2f %8zu %10.3f %10.3f %8d\n", im.name.c_str(), level, db.rgb, db.rgba,
                    db.translucent, cpu_mps, mps, threads);
      }
    }
    std::remove(png.c_str());
  }
  rmdir(dir);
  return 0;
}

}  // namespace
}  // namespace rvt

// An argument keeps the photos whose name holds it.
int main(int argc, char** argv) { return rvt::Run(argc > 1 ? argv[1] : nullptr); }
