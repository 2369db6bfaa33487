#include "image_io.h"

#include <png.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace rvtjpeg {
namespace {

struct FileCloser {
  void operator()(FILE* f) const {
    if (f) std::fclose(f);
  }
};
using File = std::unique_ptr<FILE, FileCloser>;

// Next header token of a PNM file, skipping white space and # comments.
bool PnmNumber(FILE* f, int* value) {
  int c = std::fgetc(f);
  for (;;) {
    while (c == ' ' || c == '\t' || c == '\r' || c == '\n') c = std::fgetc(f);
    if (c != '#') break;
    while (c != '\n' && c != EOF) c = std::fgetc(f);
  }
  if (c < '0' || c > '9') return false;
  long v = 0;
  while (c >= '0' && c <= '9') {
    v = v * 10 + (c - '0');
    if (v > 1 << 30) return false;
    c = std::fgetc(f);
  }
  // The single white-space byte after the last header number is consumed here.
  *value = int(v);
  return true;
}

bool HasPngSignature(const std::string& path) {
  File f(std::fopen(path.c_str(), "rb"));
  uint8_t sig[8];
  return f && std::fread(sig, 1, 8, f.get()) == 8 && png_sig_cmp(sig, 0, 8) == 0;
}

bool EndsWith(const std::string& s, const char* suffix) {
  const size_t n = std::strlen(suffix);
  if (s.size() < n) return false;
  for (size_t i = 0; i < n; ++i) {
    const char a = char(std::tolower(static_cast<unsigned char>(s[s.size() - n + i])));
    if (a != suffix[i]) return false;
  }
  return true;
}

}  // namespace

bool ReadPnm(const std::string& path, Image* image, std::string* error) {
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) {
    *error = "cannot open " + path;
    return false;
  }
  char magic[2];
  if (std::fread(magic, 1, 2, f.get()) != 2 || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6')) {
    *error = path + ": not a binary PPM/PGM (P6/P5) file";
    return false;
  }
  int w, h, maxval;
  if (!PnmNumber(f.get(), &w) || !PnmNumber(f.get(), &h) || !PnmNumber(f.get(), &maxval)) {
    *error = path + ": bad PNM header";
    return false;
  }
  if (w < 1 || h < 1 || w > 65535 || h > 65535) {
    *error = path + ": image size out of range";
    return false;
  }
  if (maxval != 255) {
    *error = path + ": only maxval 255 is supported";
    return false;
  }
  image->Resize(w, h, magic[1] == '6' ? 3 : 1);
  if (std::fread(image->pixels.data(), 1, image->pixels.size(), f.get()) != image->pixels.size()) {
    *error = path + ": truncated pixel data";
    return false;
  }
  return true;
}

bool WritePnm(const std::string& path, const Image& image, std::string* error) {
  File f(std::fopen(path.c_str(), "wb"));
  if (!f) {
    *error = "cannot create " + path;
    return false;
  }
  std::fprintf(f.get(), "P%c\n%d %d\n255\n", image.channels == 3 ? '6' : '5', image.width, image.height);
  if (std::fwrite(image.pixels.data(), 1, image.pixels.size(), f.get()) != image.pixels.size() ||
      std::fflush(f.get()) != 0) {
    *error = "write error on " + path;
    return false;
  }
  return true;
}

bool ReadPng(const std::string& path, Image* image, std::string* error) {
  png_image png;
  std::memset(&png, 0, sizeof(png));
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&png, path.c_str())) {
    *error = path + ": " + png.message;
    return false;
  }
  const bool colour = (png.format & PNG_FORMAT_FLAG_COLOR) != 0;
  png.format = colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  if (png.width < 1 || png.height < 1 || png.width > 65535 || png.height > 65535) {
    png_image_free(&png);
    *error = path + ": image size out of range";
    return false;
  }
  image->Resize(int(png.width), int(png.height), colour ? 3 : 1);
  // Alpha, if any, is composited onto white.
  png_color background = {255, 255, 255};
  if (!png_image_finish_read(&png, &background, image->pixels.data(), 0, nullptr)) {
    *error = path + ": " + png.message;
    png_image_free(&png);
    return false;
  }
  return true;
}

bool WritePng(const std::string& path, const Image& image, std::string* error) {
  png_image png;
  std::memset(&png, 0, sizeof(png));
  png.version = PNG_IMAGE_VERSION;
  png.width = png_uint_32(image.width);
  png.height = png_uint_32(image.height);
  png.format = image.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  if (!png_image_write_to_file(&png, path.c_str(), 0, image.pixels.data(), 0, nullptr)) {
    *error = path + ": " + png.message;
    return false;
  }
  return true;
}

bool ReadImage(const std::string& path, Image* image, std::string* error) {
  return HasPngSignature(path) ? ReadPng(path, image, error) : ReadPnm(path, image, error);
}

bool WriteImage(const std::string& path, const Image& image, std::string* error) {
  return EndsWith(path, ".png") ? WritePng(path, image, error) : WritePnm(path, image, error);
}

bool ReadFile(const std::string& path, std::vector<uint8_t>* data, std::string* error) {
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) {
    *error = "cannot open " + path;
    return false;
  }
  data->clear();
  uint8_t buf[1 << 16];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), f.get())) > 0) data->insert(data->end(), buf, buf + n);
  if (std::ferror(f.get())) {
    *error = "read error on " + path;
    return false;
  }
  return true;
}

bool WriteFile(const std::string& path, const uint8_t* data, size_t size, std::string* error) {
  File f(std::fopen(path.c_str(), "wb"));
  if (!f) {
    *error = "cannot create " + path;
    return false;
  }
  if (std::fwrite(data, 1, size, f.get()) != size || std::fflush(f.get()) != 0) {
    *error = "write error on " + path;
    return false;
  }
  return true;
}

double Psnr(const Image& a, const Image& b) {
  if (a.width != b.width || a.height != b.height || a.channels != b.channels) return -1;
  double se = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) {
    const int d = int(a.pixels[i]) - int(b.pixels[i]);
    se += d * d;
  }
  if (se == 0) return 99.0;
  const double mse = se / double(a.pixels.size());
  return 10.0 * std::log10(255.0 * 255.0 / mse);
}

double MeanAbsDiff(const Image& a, const Image& b) {
  if (a.width != b.width || a.height != b.height || a.channels != b.channels) return -1;
  double s = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) s += std::abs(int(a.pixels[i]) - int(b.pixels[i]));
  return a.pixels.empty() ? 0 : s / double(a.pixels.size());
}

}  // namespace rvtjpeg
