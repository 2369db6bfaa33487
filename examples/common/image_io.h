// Reading and writing the example codec's raw images: 8-bit images as
// binary PPM/PGM (P6/P5, maxval 255) and 8-bit PNG (grey or RGB; palette,
// alpha and 16-bit PNGs are reduced to 8-bit grey or RGB on reading), and
// images of up to 16-bit samples (Image16) for lossless coding.
#ifndef RVTJPEG_IMAGE_IO_H_
#define RVTJPEG_IMAGE_IO_H_

#include <cstdint>
#include <string>
#include <vector>

namespace rvtjpeg {

// Interleaved 8-bit image: `channels` is 1 (grey) or 3 (R, G, B); rows are
// width * channels bytes, packed.
struct Image {
  int width = 0;
  int height = 0;
  int channels = 0;
  std::vector<uint8_t> pixels;

  size_t stride() const { return size_t(width) * channels; }
  uint8_t* row(int y) { return pixels.data() + size_t(y) * stride(); }
  const uint8_t* row(int y) const { return pixels.data() + size_t(y) * stride(); }
  // Sets the size; keeps the buffer when it is already large enough.
  void Resize(int w, int h, int c) {
    width = w;
    height = h;
    channels = c;
    const size_t n = size_t(w) * h * c;
    if (pixels.size() != n) pixels.resize(n);
  }
};

// Each returns false and sets *error to a one-line message on failure.
bool ReadPnm(const std::string& path, Image* image, std::string* error);
bool WritePnm(const std::string& path, const Image& image, std::string* error);
bool ReadPng(const std::string& path, Image* image, std::string* error);
bool WritePng(const std::string& path, const Image& image, std::string* error);

// By content (PNG signature, "P5"/"P6") for reading; by extension (.png,
// anything else PNM) for writing.
bool ReadImage(const std::string& path, Image* image, std::string* error);
bool WriteImage(const std::string& path, const Image& image, std::string* error);

bool ReadFile(const std::string& path, std::vector<uint8_t>* data, std::string* error);
bool WriteFile(const std::string& path, const uint8_t* data, size_t size, std::string* error);

// Peak signal-to-noise ratio in dB over all samples of two images of the
// same shape (99 for identical images); -1 if the shapes differ.
double Psnr(const Image& a, const Image& b);
// Mean absolute difference per sample; -1 if the shapes differ.
double MeanAbsDiff(const Image& a, const Image& b);

// Interleaved image of up to 16-bit samples: `channels` 1 or 3, samples in
// 0..2^precision - 1.
struct Image16 {
  int width = 0;
  int height = 0;
  int channels = 0;
  int precision = 8;  // 2..16
  std::vector<uint16_t> samples;
};

// PNG (8- or 16-bit, grey or RGB; palette expanded, alpha dropped) or
// binary PGM/PPM with any maxval up to 65535.  The precision is the PNG's
// bit depth, or the bits of the PNM's maxval.
bool ReadImage16(const std::string& path, Image16* image, std::string* error);
// PNG (8-bit up to precision 8, else 16-bit) by the .png extension, else
// PGM/PPM with maxval 2^precision - 1.  Samples are written as they are.
bool WriteImage16(const std::string& path, const Image16& image, std::string* error);

// An 8-bit binary PGM/PPM (maxval 255) mapped read-only, so that a coder
// can read the samples where the file's pages lie, with no copy and no
// 16-bit image.  Open returns false (leaving nothing open) for anything
// else, which is the general readers' job.
class MappedPnm8 {
 public:
  MappedPnm8() = default;
  MappedPnm8(const MappedPnm8&) = delete;
  MappedPnm8& operator=(const MappedPnm8&) = delete;
  ~MappedPnm8() { Close(); }
  bool Open(const std::string& path);
  void Close();
  int width = 0, height = 0, channels = 0;
  const uint8_t* samples = nullptr;  // rows of width * channels bytes

 private:
  bool Parse();
  const uint8_t* base_ = nullptr;
  size_t size_ = 0;
};

// A whole regular file mapped read-only (its pages read ahead): no copy
// into memory of the process's own.  Open returns false (leaving nothing
// open) for an empty file or anything that cannot be mapped; ReadFile then
// does.
class MappedFile {
 public:
  MappedFile() = default;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile() { Close(); }
  bool Open(const std::string& path);
  void Close();
  const uint8_t* data = nullptr;
  size_t size = 0;
};

}  // namespace rvtjpeg

#endif  // RVTJPEG_IMAGE_IO_H_
