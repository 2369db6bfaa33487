// libjpeg-turbo as the peer the example codec is measured against: its
// TurboJPEG API for plain coding and timing, and the libjpeg API where
// TurboJPEG has no knob (restart intervals, reading back coefficients).
#ifndef RVTJPEG_TURBO_PEER_H_
#define RVTJPEG_TURBO_PEER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"

namespace rvtjpeg {

// A reusable TurboJPEG compressor and decompressor pair.
class TurboPeer {
 public:
  TurboPeer();
  ~TurboPeer();
  TurboPeer(const TurboPeer&) = delete;
  TurboPeer& operator=(const TurboPeer&) = delete;

  // Baseline, standard tables, accurate integer DCT, no optimisation.  The
  // result stays at data()/size() until the next call.
  bool Encode(const Image& image, int quality, Sampling sampling, std::string* error);
  const uint8_t* data() const { return buf_; }
  size_t size() const { return size_; }
  // Accurate integer IDCT, smooth up-sampling (the library's defaults).
  bool Decode(const uint8_t* data, size_t size, Image* image, std::string* error);

 private:
  void* enc_ = nullptr;
  void* dec_ = nullptr;
  uint8_t* buf_ = nullptr;
  unsigned long capacity_ = 0;
  size_t size_ = 0;
};

// What libjpeg can write beyond TurboPeer::Encode's plain files.
struct LibjpegOptions {
  int restart_interval = 0;  // in MCUs, 0: none
  bool one_scan_per_component = false;  // non-interleaved sequential scans
  bool rgb = false;  // store R, G, B without colour conversion (Adobe marker)
};

// Baseline encoding through the libjpeg API, with the same settings as
// TurboPeer::Encode otherwise.
bool LibjpegEncode(const Image& image, int quality, Sampling sampling, const LibjpegOptions& options,
                   std::vector<uint8_t>* out, std::string* error);

// The quantized coefficients of a file as libjpeg reads them
// (jpeg_read_coefficients), per component over the MCU-padded block grid.
bool LibjpegReadCoefficients(const uint8_t* data, size_t size, Coefficients* coefficients,
                             std::string* error);

}  // namespace rvtjpeg

#endif  // RVTJPEG_TURBO_PEER_H_
