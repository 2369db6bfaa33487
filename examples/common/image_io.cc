#include "image_io.h"

#include <png.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

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

// ---- up to 16-bit samples (lossless coding)

int BitsOf(int maxval) {
  int n = 0;
  while ((1 << n) - 1 < maxval) ++n;
  return n;
}

bool ReadPnm16(FILE* f, const std::string& path, Image16* image, std::string* error) {
  char magic[2];
  if (std::fread(magic, 1, 2, f) != 2 || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6')) {
    *error = path + ": not a binary PPM/PGM (P6/P5) file";
    return false;
  }
  int w, h, maxval;
  if (!PnmNumber(f, &w) || !PnmNumber(f, &h) || !PnmNumber(f, &maxval)) {
    *error = path + ": bad PNM header";
    return false;
  }
  if (w < 1 || h < 1 || w > 65535 || h > 65535 || maxval < 1 || maxval > 65535) {
    *error = path + ": image size or maxval out of range";
    return false;
  }
  image->width = w;
  image->height = h;
  image->channels = magic[1] == '6' ? 3 : 1;
  image->precision = std::max(2, BitsOf(maxval));
  const size_t n = size_t(w) * size_t(h) * size_t(image->channels);
  image->samples.resize(n);
  const size_t bytes = maxval > 255 ? 2 : 1;
  std::vector<uint8_t> raw(n * bytes);
  if (std::fread(raw.data(), 1, raw.size(), f) != raw.size()) {
    *error = path + ": truncated pixel data";
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    image->samples[i] = bytes == 2 ? uint16_t(raw[2 * i] << 8 | raw[2 * i + 1]) : raw[i];
  }
  return true;
}

bool ReadPng16(FILE* f, const std::string& path, Image16* image, std::string* error) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    *error = path + ": out of memory";
    return false;
  }
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = path + ": bad PNG";
    return false;
  }
  png_init_io(png, f);
  png_read_info(png, info);
  const int type = png_get_color_type(png, info);
  int depth = png_get_bit_depth(png, info);
  if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (type == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (type & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(png);
  png_set_strip_alpha(png);
  if (depth == 16) png_set_swap(png);  // host order (little-endian)
  png_read_update_info(png, info);
  depth = png_get_bit_depth(png, info);
  const int channels = png_get_channels(png, info);
  const int w = int(png_get_image_width(png, info)), h = int(png_get_image_height(png, info));
  if ((channels != 1 && channels != 3) || w < 1 || h < 1 || w > 65535 || h > 65535) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = path + ": unsupported PNG layout";
    return false;
  }
  image->width = w;
  image->height = h;
  image->channels = channels;
  image->precision = depth == 16 ? 16 : 8;
  const size_t row_bytes = png_get_rowbytes(png, info);
  std::vector<uint8_t> raw(row_bytes * size_t(h));
  rows.resize(size_t(h));
  for (int y = 0; y < h; ++y) rows[size_t(y)] = raw.data() + row_bytes * size_t(y);
  png_read_image(png, rows.data());
  png_destroy_read_struct(&png, &info, nullptr);
  const size_t n = size_t(w) * size_t(h) * size_t(channels);
  image->samples.resize(n);
  for (int y = 0; y < h; ++y) {
    const uint8_t* r = rows[size_t(y)];
    uint16_t* o = image->samples.data() + size_t(y) * size_t(w) * size_t(channels);
    for (size_t i = 0; i < size_t(w) * size_t(channels); ++i) {
      o[i] = depth == 16 ? uint16_t(r[2 * i] | r[2 * i + 1] << 8) : r[i];
    }
  }
  return true;
}

bool WritePng16(FILE* f, const std::string& path, const Image16& image, std::string* error) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    *error = path + ": out of memory";
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    *error = "write error on " + path;
    return false;
  }
  const int depth = image.precision <= 8 ? 8 : 16;
  png_init_io(png, f);
  png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), depth,
               image.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  const size_t n = size_t(image.width) * size_t(image.channels);
  std::vector<uint8_t> row(n * size_t(depth / 8));
  for (int y = 0; y < image.height; ++y) {
    const uint16_t* s = image.samples.data() + size_t(y) * n;
    for (size_t i = 0; i < n; ++i) {
      if (depth == 8) {
        row[i] = uint8_t(s[i]);
      } else {
        row[2 * i] = uint8_t(s[i] >> 8);
        row[2 * i + 1] = uint8_t(s[i]);
      }
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return std::fflush(f) == 0;
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
  // room for the whole file at once: growing by doubling copies it again
  // and faults in fresh pages at every step
  if (std::fseek(f.get(), 0, SEEK_END) == 0) {
    const long size = std::ftell(f.get());
    if (size > 0) data->reserve(size_t(size));
    if (std::fseek(f.get(), 0, SEEK_SET) != 0) {
      *error = "read error on " + path;
      return false;
    }
  }
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

bool ReadImage16(const std::string& path, Image16* image, std::string* error) {
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) {
    *error = "cannot open " + path;
    return false;
  }
  uint8_t sig[8] = {};
  const bool png = std::fread(sig, 1, 8, f.get()) == 8 && png_sig_cmp(sig, 0, 8) == 0;
  std::rewind(f.get());
  return png ? ReadPng16(f.get(), path, image, error) : ReadPnm16(f.get(), path, image, error);
}

bool WriteImage16(const std::string& path, const Image16& image, std::string* error) {
  File f(std::fopen(path.c_str(), "wb"));
  if (!f) {
    *error = "cannot create " + path;
    return false;
  }
  if (EndsWith(path, ".png")) return WritePng16(f.get(), path, image, error);
  const int maxval = (1 << image.precision) - 1;
  std::fprintf(f.get(), "P%c\n%d %d\n%d\n", image.channels == 3 ? '6' : '5', image.width,
               image.height, maxval);
  std::vector<uint8_t> raw;
  raw.reserve(image.samples.size() * 2);
  for (uint16_t s : image.samples) {
    if (maxval > 255) raw.push_back(uint8_t(s >> 8));
    raw.push_back(uint8_t(s));
  }
  if (std::fwrite(raw.data(), 1, raw.size(), f.get()) != raw.size() || std::fflush(f.get()) != 0) {
    *error = "write error on " + path;
    return false;
  }
  return true;
}

bool MappedPnm8::Open(const std::string& path) {
  Close();
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return false;
  struct stat sb;
  if (fstat(fd, &sb) == 0 && S_ISREG(sb.st_mode) && sb.st_size > 16) {
    size_ = size_t(sb.st_size);
    void* m = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    base_ = m == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(m);
  }
  close(fd);
  if (base_ && Parse()) return true;
  Close();
  return false;
}

bool MappedFile::Open(const std::string& path) {
  Close();
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return false;
  struct stat sb;
  if (fstat(fd, &sb) == 0 && S_ISREG(sb.st_mode) && sb.st_size > 0) {
    void* m = mmap(nullptr, size_t(sb.st_size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    if (m != MAP_FAILED) {
      data = static_cast<const uint8_t*>(m);
      size = size_t(sb.st_size);
    }
  }
  close(fd);
  return data != nullptr;
}

void MappedFile::Close() {
  if (data) munmap(const_cast<uint8_t*>(data), size);
  data = nullptr;
  size = 0;
}

void MappedPnm8::Close() {
  if (base_) munmap(const_cast<uint8_t*>(base_), size_);
  base_ = nullptr;
  size_ = 0;
  samples = nullptr;
  width = height = channels = 0;
}

// The header as ReadPnm takes it: numbers between white space and
// comments, one white-space byte after the last.
bool MappedPnm8::Parse() {
  if (base_[0] != 'P' || (base_[1] != '5' && base_[1] != '6')) return false;
  size_t i = 2;
  int v[3];
  for (int k = 0; k < 3; ++k) {
    for (;;) {
      if (i >= size_) return false;
      if (base_[i] == '#') {
        while (i < size_ && base_[i] != '\n') ++i;
      } else if (base_[i] == ' ' || base_[i] == '\t' || base_[i] == '\r' || base_[i] == '\n') {
        ++i;
      } else {
        break;
      }
    }
    if (base_[i] < '0' || base_[i] > '9') return false;
    long n = 0;
    while (i < size_ && base_[i] >= '0' && base_[i] <= '9') {
      n = n * 10 + (base_[i++] - '0');
      if (n > 65535) return false;
    }
    if (i >= size_) return false;
    v[k] = int(n);
    ++i;  // the white-space byte after the number
  }
  if (v[0] < 1 || v[1] < 1 || v[2] != 255) return false;
  if (size_ - i < size_t(v[0]) * size_t(v[1]) * (base_[1] == '6' ? 3u : 1u)) return false;
  width = v[0], height = v[1], channels = base_[1] == '6' ? 3 : 1;
  samples = base_ + i;
  return true;
}

}  // namespace rvtjpeg
