// The example JPEG XR decoder (examples/rvtjxr/) on hostile files: container,
// image and plane headers, index tables, tile packets and macroblocks.  It
// must return an image or a reason, never read outside the input or crash.
#include <cstddef>
#include <cstdint>
#include <string>

#include "../examples/rvtjxr/jxr_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  rvtjxr::Picture pic;
  std::string error;
  // a container, or the image stream on its own
  if (!rvtjxr::DecodeFile(data, size, &pic, &error, size_t(1) << 18)) {
    (void)rvtjxr::DecodeImage(data, size, &pic, &error, size_t(1) << 18);
  }
  return 0;
}
