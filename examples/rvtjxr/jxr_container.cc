// The JPEG XR container: a little-endian TIFF-like header ("II", 0xBC, a
// version byte) and one directory whose entries give the pixel format and
// where the coded image (and an alpha plane) sit.
#include <cstring>

#include "jxr_codec.h"

namespace rvtjxr {
namespace {

uint32_t Le16(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8; }
uint32_t Le32(const uint8_t* p) { return Le16(p) | Le16(p + 2) << 16; }

}  // namespace

bool ParseContainer(const uint8_t* data, size_t size, Container* out, std::string* error) {
  if (size < 8 || data[0] != 'I' || data[1] != 'I' || data[2] != 0xBC) {
    *error = "not a JPEG XR container";
    return false;
  }
  const size_t ifd = Le32(data + 4);
  if (ifd < 8 || ifd + 2 > size) {
    *error = "container directory outside the file";
    return false;
  }
  const size_t entries = Le16(data + ifd);
  if (ifd + 2 + entries * 12 > size) {
    *error = "container directory runs past the file";
    return false;
  }
  Container c;
  bool haveOffset = false, haveBytes = false;
  for (size_t i = 0; i < entries; ++i) {
    const uint8_t* e = data + ifd + 2 + i * 12;
    const uint32_t tag = Le16(e), type = Le16(e + 2), count = Le32(e + 4);
    // SHORT values sit in the low half of the value field, LONG ones fill it
    const uint32_t value = type == 3 ? Le16(e + 8) : Le32(e + 8);
    switch (tag) {
      case 0xBC01:  // pixel format: 16 bytes at an offset
        if (count == 16 && size_t(value) + 16 <= size) c.pixelFormat = data[value + 15];
        break;
      case 0xBCC0:
        c.imageOffset = value;
        haveOffset = true;
        break;
      case 0xBCC1:
        c.imageBytes = value;
        haveBytes = true;
        break;
      case 0xBCC2:
        c.hasAlpha = true;
        c.alphaOffset = value;
        break;
      case 0xBCC3:
        c.alphaBytes = value;
        break;
      default:
        break;
    }
  }
  if (!haveOffset || c.imageOffset >= size) {
    *error = "container has no image data";
    return false;
  }
  // A byte count running past the file is cut to it (writers overstate it).
  if (!haveBytes || c.imageBytes > size - c.imageOffset) c.imageBytes = size - c.imageOffset;
  if (c.hasAlpha) {
    if (c.alphaOffset >= size) {
      *error = "alpha plane outside the file";
      return false;
    }
    if (c.alphaBytes == 0 || c.alphaBytes > size - c.alphaOffset) c.alphaBytes = size - c.alphaOffset;
  }
  *out = c;
  return true;
}

bool DecodeFile(const uint8_t* data, size_t size, Picture* out, std::string* error, size_t maxPixels) {
  Container c;
  if (!ParseContainer(data, size, &c, error)) return false;
  if (c.hasAlpha) out->narrow = false;  // the planes join in samples
  if (!DecodeImage(data + c.imageOffset, c.imageBytes, out, error, maxPixels)) return false;
  if (!c.hasAlpha) return true;
  // the planar alpha plane: a grey image of the same size, appended to
  // every pixel as its last channel
  Picture alpha;
  if (!DecodeImage(data + c.alphaOffset, c.alphaBytes, &alpha, error, maxPixels)) {
    *error = "alpha plane: " + *error;
    return false;
  }
  if (alpha.channels != 1 || alpha.width != out->width || alpha.height != out->height || alpha.bits != out->bits ||
      out->channels != 3) {
    *error = "alpha plane does not match the colour image";
    return false;
  }
  const size_t n = size_t(out->width) * out->height;
  std::vector<uint16_t> rgba(n * 4);
  for (size_t i = 0; i < n; ++i) {
    for (int k = 0; k < 3; ++k) rgba[4 * i + size_t(k)] = out->samples[3 * i + size_t(k)];
    rgba[4 * i + 3] = alpha.samples[i];
  }
  out->samples.swap(rgba);
  out->channels = 4;
  return true;
}

}  // namespace rvtjxr
