// rvtj2k: an example JPEG 2000 codec built on the library's exports for all
// entropy and pixel work (tier-1 code-block coding, the wavelets, the
// component transforms).  The decoder (j2k_decode.cc) reads any tile grid,
// precincts, progression, layers, 5/3 or 9/7, 1..16 bits; a .jp2 file is
// read from its jp2c box.  Anything it cannot read ends with a one-line
// reason and a non-zero exit.
//
//   rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm|OUT.png [-layers K] [-reduce R] [-threads N]
//   rvtj2k encode IN OUT.j2k|OUT.jp2 [options]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "image_io.h"
#include "j2k_decode.h"
#include "j2k_encode.h"

namespace {


int DecodeMain(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm|OUT.png [-layers K] [-reduce R] [-threads N]\n");
    return 2;
  }
  rvtj2k::DecodeOptions opt;
  for (int i = 2; i < argc; ++i) {
    const std::string a = argv[i];
    if (i + 1 >= argc) {
      std::fprintf(stderr, "rvtj2k: option %s needs a value\n", a.c_str());
      return 2;
    }
    const int v = std::atoi(argv[++i]);
    if (a == "-layers") opt.layers = v;
    else if (a == "-reduce") opt.reduce = v;
    else if (a == "-threads") opt.threads = v;
    else {
      std::fprintf(stderr, "rvtj2k: unknown option %s\n", a.c_str());
      return 2;
    }
    if (v < (a == "-threads" ? 1 : 0) || v > 256) {
      std::fprintf(stderr, "rvtj2k: bad value for %s\n", a.c_str());
      return 2;
    }
  }
  std::vector<uint8_t> file;
  std::string error;
  if (!rvtjpeg::ReadFile(argv[0], &file, &error)) {
    std::fprintf(stderr, "rvtj2k: %s\n", error.c_str());
    return 1;
  }
  const std::string out = argv[1];
  const bool png = out.size() > 4 && out.compare(out.size() - 4, 4, ".png") == 0;
  opt.packed = !png;  // PNM samples straight from the decoder
  rvtj2k::DecodedImage img;
  if (!rvtj2k::Decode(file.data(), file.size(), opt, &img, &error)) {
    std::fprintf(stderr, "rvtj2k: %s\n", error.c_str());
    return 1;
  }
  if (img.comps != 1 && img.comps != 3) error = "only 1 or 3 components can be written";
  if (!img.uniform) error = "components of different precisions cannot be written";
  if (img.isSigned) error = "signed samples cannot be written";
  if (!error.empty()) {
    std::fprintf(stderr, "rvtj2k: %s\n", error.c_str());
    return 1;
  }
  if (png) {
    rvtjpeg::Image16 im;
    im.width = img.width, im.height = img.height, im.channels = img.comps;
    im.precision = std::max(2, img.precision);
    im.samples.resize(size_t(img.width) * img.height * img.comps);
    for (size_t i = 0, k = 0; i < size_t(img.width) * img.height; ++i)
      for (int c = 0; c < img.comps; ++c) im.samples[k++] = uint16_t(img.planes[size_t(c)][i]);
    if (!rvtjpeg::WriteImage16(out, im, &error)) {
      std::fprintf(stderr, "rvtj2k: %s\n", error.c_str());
      return 1;
    }
    return 0;
  }
  char head[64];
  const int hl = std::snprintf(head, sizeof head, "P%d\n%d %d\n%d\n", img.comps == 1 ? 5 : 6, img.width, img.height,
                               (1 << img.precision) - 1);
  // Header and samples written one after the other (no copy of the image).
  std::FILE* f = std::fopen(out.c_str(), "wb");
  if (!f) {
    std::fprintf(stderr, "rvtj2k: cannot create %s\n", out.c_str());
    return 1;
  }
  const bool ok = std::fwrite(head, 1, size_t(hl), f) == size_t(hl) &&
                  std::fwrite(img.packed.data(), 1, img.packed.size(), f) == img.packed.size();
  if (std::fclose(f) != 0 || !ok) {
    std::fprintf(stderr, "rvtj2k: write error on %s\n", out.c_str());
    return 1;
  }
  return 0;
}


}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::string(argv[1]) == "encode") return rvtj2k::EncodeMain(argc - 2, argv + 2);
  if (argc < 4 || std::string(argv[1]) != "decode") {
    std::fprintf(stderr,
                 "usage: rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm|OUT.png [-layers K] [-reduce R] [-threads N],"
                 " or encode IN OUT.j2k|OUT.jp2 [options]\n");
    return 2;
  }
  return DecodeMain(argc - 2, argv + 2);
}
