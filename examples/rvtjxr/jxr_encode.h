// The rvtjxr encoder: pictures (grey or RGB, 8 or 16 bits) to a JPEG XR
// codestream and container.  Colour conversion, the overlap pre filters,
// the second-level transform, quantization and prediction are this
// codec's; the first-level transform goes through rvtiPCTFwd and every
// coefficient through the rvtiVLC/FLC encoders.
#ifndef RVTJXR_JXR_ENCODE_H_
#define RVTJXR_JXR_ENCODE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "jxr_codec.h"

namespace rvtjxr {

struct EncodeOptions {
  // Quantizer of every channel and band: 1 lossless, 2..255 the index of
  // the step (as `JxrEncApp -q N` takes it).
  int quality = 1;
  int overlap = 1;        // 0 none, 1 the first level, 2 both levels
  bool spatial = false;   // macroblock order rather than frequency order
  int tileCols = 1;       // uniform tiling, macroblock columns split as evenly
  int tileRows = 1;       // as whole macroblocks allow, the first tiles larger
  int chroma = 444;       // RGB: 444, 422 or 420
};

// The coded image (the bytes starting "WMPHOTO") of `pic`; false with a
// one-line reason for what it cannot encode.
bool EncodeImage(const Picture& pic, const EncodeOptions& opt, std::vector<uint8_t>* out, std::string* error);
// The whole file: the container around EncodeImage's output.
bool EncodeFile(const Picture& pic, const EncodeOptions& opt, std::vector<uint8_t>* out, std::string* error);
// The same for 8-bit pixels that lie elsewhere (a mapped file, say): rows
// of width * channels bytes at `pixels`, `shape` their size, channels and
// bits (8) with no samples.  Each row is read as the encoder reaches it.
bool EncodeFile8(const Picture& shape, const uint8_t* pixels, const EncodeOptions& opt, std::vector<uint8_t>* out,
                 std::string* error);

}  // namespace rvtjxr

#endif  // RVTJXR_JXR_ENCODE_H_
