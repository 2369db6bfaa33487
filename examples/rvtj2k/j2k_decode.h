// rvtj2k's decoder: JPEG 2000 code-streams (or .jp2 files) to sample planes.
// It parses the markers, packet headers and progressions itself; every
// code-block, wavelet level and component transform goes through the
// library's exports.
#ifndef RVTJ2K_DECODE_H_
#define RVTJ2K_DECODE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rvtj2k {

struct DecodeOptions {
  int layers = 0;       // quality layers to use, 0 = all
  int reduce = 0;       // resolution levels to drop
  int threads = 1;      // code-blocks and components decoded on this many threads
  size_t maxSamples = size_t(1) << 28;  // refuse larger images (and tiles)
  bool packed = false;  // unsigned images of one precision come interleaved in DecodedImage::packed
};

// The image area, one plane per component, samples as the code-stream
// gives them (unsigned: 0..2^precision - 1, signed: centred on 0).
struct DecodedImage {
  int width = 0, height = 0, comps = 0, precision = 0;
  bool isSigned = false;
  bool uniform = true;  // all components share precision and signedness (else those are component 0's)
  std::vector<std::vector<int32_t>> planes;
  // With DecodeOptions::packed (and all components unsigned, of one
  // precision): the samples interleaved, one byte each up to 8 bits, else
  // two, big-endian; planes is then empty.
  std::vector<uint8_t> packed;
};

// False with a one-line reason in *error when the file cannot be decoded.
// Truncated or damaged packet data decodes what it holds (best effort).
bool Decode(const uint8_t* data, size_t size, const DecodeOptions& options, DecodedImage* image,
            std::string* error);

}  // namespace rvtj2k

#endif  // RVTJ2K_DECODE_H_
