// The test photos of testdata/, read with libpng (test-only).
#ifndef RVT_TESTS_PHOTO_H_
#define RVT_TESTS_PHOTO_H_

#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

namespace rvt::test {

struct Photo {
  int width = 0, height = 0, channels = 0;
  std::vector<uint8_t> px;  // tightly packed rows
};

// Reads testdata/<name> as grey (channels 1) or RGB (channels 3); empty on
// failure.
inline Photo LoadPhoto(const std::string& name, int channels) {
  Photo p;
  png_image pi{};
  pi.version = PNG_IMAGE_VERSION;
  const std::string path = std::string(RVT_TESTDATA_DIR) + "/" + name;
  if (!png_image_begin_read_from_file(&pi, path.c_str())) return p;
  pi.format = channels == 1 ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  p.px.resize(PNG_IMAGE_SIZE(pi));
  if (!png_image_finish_read(&pi, nullptr, p.px.data(), 0, nullptr)) return {};
  p.width = int(pi.width);
  p.height = int(pi.height);
  p.channels = channels;
  return p;
}

}  // namespace rvt::test

#endif  // RVT_TESTS_PHOTO_H_
