// A small baseline JPEG encoder and decoder built on rvtjp.
//
// The codec writes and parses the file structure itself (markers, tables,
// restart intervals, MCU geometry, edge padding); every pixel and entropy
// step goes through the library: colour conversion, chroma down- and
// up-sampling, the level-shifting DCT with quantization and its inverse, and
// the Huffman coding of each block.
//
// Region primitives of the library may split rows over OpenMP threads; the
// codec calls them on strips of one MCU row.  A caller that wants one core
// only (the tool and the benchmark do) caps them with rvtSetNumThreads(1).
// The codec's own threaded mode (`threads` > 1) codes restart intervals on
// several threads.
#ifndef RVTJPEG_CODEC_H_
#define RVTJPEG_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "../common/image_io.h"

namespace rvtjpeg {

enum class Sampling { kGrey, k444, k422, k420 };

// "grey", "444", "422", "420"; false for anything else.
bool ParseSampling(const std::string& name, Sampling* sampling);
const char* SamplingName(Sampling sampling);

struct EncodeOptions {
  int quality = 90;                      // 1..100, scales the standard tables
  Sampling sampling = Sampling::k420;    // a grey image is always coded grey
  int restart_interval = 0;              // MCUs per restart interval, 0: none
  // Above 1, restart intervals are coded on that many threads; with no
  // restart interval given, one is set per MCU row.
  int threads = 1;
  // Progressive scans (libjpeg's default script), and two-pass optimized
  // Huffman tables (always for progressive files).
  bool progressive = false;
  bool optimize = false;
};

// Seconds spent per stage, added up over calls (for profiling).
struct StageTimes {
  double colour = 0;      // colour conversion (and edge padding)
  double sampling = 0;    // chroma down- or up-sampling
  double transform = 0;   // DCT + quantization, or dequantization + IDCT
  double entropy = 0;     // Huffman coding
  double Total() const { return colour + sampling + transform + entropy; }
};

// The quantized coefficients of a coded image, per component: blocks of 64
// values in natural order, block rows of the MCU-padded grid.
struct Coefficients {
  struct Component {
    int blocks_w = 0;
    int blocks_h = 0;
    std::vector<int16_t> values;
    const int16_t* block(int bx, int by) const {
      return values.data() + (size_t(by) * blocks_w + bx) * 64;
    }
  };
  std::vector<Component> components;
};

class Encoder {
 public:
  Encoder();
  ~Encoder();
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // Codes `image` as a baseline JFIF file.  On success the file is at
  // data()/size() until the next call.  On failure returns false and sets
  // *error to a one-line message.
  bool Encode(const Image& image, const EncodeOptions& options, std::string* error);
  const uint8_t* data() const;
  size_t size() const;

  // Optional: stage times are added to *times; the coded coefficients are
  // stored in *coefficients (single-threaded coding only).  Null to stop.
  void set_stage_times(StageTimes* times);
  void set_coefficients(Coefficients* coefficients);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Convenience: codes into a vector.
bool EncodeJpeg(const Image& image, const EncodeOptions& options, std::vector<uint8_t>* out,
                std::string* error);

enum class DecodeStatus {
  kOk,
  kDamaged,      // corrupt or truncated data: a best-effort image was made
  kUnsupported,  // a valid JPEG this decoder does not handle
  kError,        // not a JPEG, or too broken to give an image
};

struct DecodeOptions {
  // Above 1, restart intervals are decoded, and pixels converted, on that
  // many threads.
  int threads = 1;
};

class Decoder {
 public:
  Decoder();
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Decodes a baseline JPEG into *image (grey or RGB).  *message gets a
  // one-line reason unless the status is kOk.  Buffers are kept for the
  // next call.
  DecodeStatus Decode(const uint8_t* data, size_t size, const DecodeOptions& options, Image* image,
                      std::string* message);

  void set_stage_times(StageTimes* times);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

DecodeStatus DecodeJpeg(const uint8_t* data, size_t size, Image* image, std::string* message);

}  // namespace rvtjpeg

#endif  // RVTJPEG_CODEC_H_
