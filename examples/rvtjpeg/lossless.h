// Lossless JPEG (SOF3, Huffman) in the example codec, for 8- to 16-bit
// grey and RGB images.  The codec writes and parses the file structure and
// moves samples between interleaved images and component rows (the point
// transform); the prediction, its undoing and the Huffman coding of every
// row go through the library.
//
// 16-bit samples: the library's predictors read their neighbours as signed
// 16-bit values, while the standard reads P-bit samples as unsigned.  The
// two agree whenever the shifted samples stay below 32768 (P - Pt <= 15).
// At P - Pt = 16 the codec hands the library every sample with its top bit
// flipped (s - 32768, read as signed): each prediction then comes out as
// the unsigned one minus 32768, exactly, so every difference is the
// standard's; the first sample's prediction, 32768 - 32768 = 0, is asked
// for with a point transform of 31 (a shift of 16 modulo 32, which leaves 0
// in 16 bits).  Files are thus the standard's, and other decoders and
// encoders interoperate at every precision.
#ifndef RVTJPEG_LOSSLESS_H_
#define RVTJPEG_LOSSLESS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "image_io.h"

namespace rvtjpeg {

struct LosslessOptions {
  int predictor = 1;         // 1..7
  int point_transform = 0;   // 0..precision - 1
  int precision = 0;         // 2..16; 0: the image's
  int restart_rows = 0;      // rows per restart interval, 0: none
};

// Codes `image` as a lossless JPEG file into *out (one interleaved scan,
// one optimal Huffman table).  Samples above the precision are an error.
bool EncodeLossless(const Image16& image, const LosslessOptions& options,
                    std::vector<uint8_t>* out, std::string* error);

enum class LosslessStatus { kOk, kNotLossless, kUnsupported, kCorrupt };

// True when the data is a JPEG file whose frame is SOF3.
bool IsLosslessJpeg(const uint8_t* data, size_t size);

// Decodes a lossless Huffman JPEG file: 1 or 3 components sampled 1x1 in
// one interleaved scan, precision 2..16, any predictor and point transform,
// restart intervals of whole rows.  *message says why on failure; the
// samples are shifted back left by the point transform.
LosslessStatus DecodeLossless(const uint8_t* data, size_t size, Image16* image,
                              std::string* message);

}  // namespace rvtjpeg

#endif  // RVTJPEG_LOSSLESS_H_
