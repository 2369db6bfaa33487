// The example JPEG 2000 decoder (examples/rvtj2k/j2k_decode.cc) on hostile files:
// main and tile-part headers, tile grids, precinct layouts, progression
// changes, packet headers and code-block data.  It must return an image or
// a reason, never read outside the input or crash.  The first byte picks
// the decoding options.
#include <cstddef>
#include <cstdint>
#include <string>

#include "../examples/rvtj2k/j2k_decode.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  rvtj2k::DecodeOptions opt;
  opt.layers = data[0] & 3;
  opt.reduce = (data[0] >> 2) & 3;
  opt.threads = 1 + ((data[0] >> 4) & 1);
  opt.packed = (data[0] >> 5) & 1;
  opt.maxSamples = size_t(1) << 18;
  rvtj2k::DecodedImage image;
  std::string error;
  (void)rvtj2k::Decode(data + 1, size - 1, opt, &image, &error);
  return 0;
}
