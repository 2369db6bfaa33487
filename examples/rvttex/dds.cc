// DDS texture files: the legacy header (magic, 124-byte header with a
// 32-byte pixel format) and the 20-byte DX10 extension.
#include "dds.h"

#include <cstring>

namespace rvttex {
namespace {

constexpr uint32_t Code(const char (&s)[5]) {
  return uint32_t(uint8_t(s[0])) | uint32_t(uint8_t(s[1])) << 8 | uint32_t(uint8_t(s[2])) << 16 |
         uint32_t(uint8_t(s[3])) << 24;
}

constexpr size_t kHeader = 4 + 124, kDx10 = 20;
constexpr uint32_t kCaps = 0x1, kHeight = 0x2, kWidth = 0x4, kPixelFormat = 0x1000, kLinearSize = 0x80000,
                   kDepth = 0x800000, kFourCC = 0x4, kTexture = 0x1000, kVolume = 0x200000;
constexpr uint32_t kYCoCgTag = Code("YCG1");

uint32_t Get32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
void Put32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

// Header words: offsets from the start of the file.
constexpr size_t kFlagsAt = 8, kHeightAt = 12, kWidthAt = 16, kPitchAt = 20, kDepthAt = 24, kMipsAt = 28,
                 kReservedAt = 32, kPfFlagsAt = 80, kFourCCAt = 84, kCapsAt = 108, kCaps2At = 112;

bool FromDxgi(uint32_t dxgi, Format* f) {
  switch (dxgi) {
    case 70: case 71: case 72: *f = Format::kBc1; return true;
    case 73: case 74: case 75: *f = Format::kBc2; return true;
    case 76: case 77: case 78: *f = Format::kBc3; return true;
    case 79: case 80: *f = Format::kBc4; return true;
    case 82: case 83: *f = Format::kBc5; return true;
    case 95: *f = Format::kBc6h; return true;
    case 96: *f = Format::kBc6hs; return true;
    case 97: case 98: case 99: *f = Format::kBc7; return true;
    default: return false;
  }
}

}  // namespace

int BlockBytes(Format f) { return f == Format::kBc1 || f == Format::kBc4 ? 8 : 16; }

size_t BlocksSize(Format f, uint32_t width, uint32_t height) {
  const uint64_t n = (uint64_t(width) + 3) / 4 * ((uint64_t(height) + 3) / 4) * uint64_t(BlockBytes(f));
  return n > (uint64_t(1) << 31) ? 0 : size_t(n);
}

bool ReadDds(const uint8_t* data, size_t size, DdsImage* image, const char** error) {
  auto fail = [error](const char* why) {
    *error = why;
    return false;
  };
  if (size < kHeader || Get32(data) != Code("DDS ")) return fail("not a DDS file");
  if (Get32(data + 4) != 124 || Get32(data + 76) != 32) return fail("bad DDS header size");
  const uint32_t flags = Get32(data + kFlagsAt);
  if ((flags & (kHeight | kWidth)) != (kHeight | kWidth)) return fail("DDS header without width and height");
  if ((Get32(data + kCaps2At) & kVolume) || ((flags & kDepth) && Get32(data + kDepthAt) > 1)) {
    return fail("volume textures are not supported");
  }
  if (!(Get32(data + kPfFlagsAt) & kFourCC)) return fail("uncompressed DDS files are not supported");
  const uint32_t fourcc = Get32(data + kFourCCAt);
  size_t at = kHeader;
  Format f;
  if (fourcc == Code("DX10")) {
    if (size < kHeader + kDx10) return fail("truncated DX10 header");
    if (!FromDxgi(Get32(data + kHeader), &f)) return fail("unsupported DXGI format");
    if (Get32(data + kHeader + 4) != 3) return fail("not a 2D texture");
    at += kDx10;
  } else if (fourcc == Code("DXT1")) {
    f = Format::kBc1;
  } else if (fourcc == Code("DXT2") || fourcc == Code("DXT3")) {
    f = Format::kBc2;
  } else if (fourcc == Code("DXT4") || fourcc == Code("DXT5")) {
    f = Get32(data + kReservedAt) == kYCoCgTag ? Format::kBc3YCoCg : Format::kBc3;
  } else if (fourcc == Code("ATI1") || fourcc == Code("BC4U")) {
    f = Format::kBc4;
  } else if (fourcc == Code("ATI2") || fourcc == Code("BC5U")) {
    f = Format::kBc5;
  } else {
    return fail("unsupported DDS FourCC");
  }
  const uint32_t w = Get32(data + kWidthAt), h = Get32(data + kHeightAt);
  if (w < 1 || h < 1 || w > 65536 || h > 65536) return fail("DDS size out of range");
  const size_t n = BlocksSize(f, w, h);
  if (n == 0) return fail("DDS texture too large");
  if (size - at < n) return fail("truncated DDS data");
  image->format = f;
  image->width = w;
  image->height = h;
  image->blocks = data + at;
  image->size = n;
  return true;
}

std::vector<uint8_t> WriteDds(Format format, uint32_t width, uint32_t height, const uint8_t* blocks) {
  const size_t n = BlocksSize(format, width, height);
  const bool dx10 = format == Format::kBc6h || format == Format::kBc6hs || format == Format::kBc7;
  std::vector<uint8_t> out(kHeader + (dx10 ? kDx10 : 0) + n, 0);
  uint8_t* p = out.data();
  Put32(p, Code("DDS "));
  Put32(p + 4, 124);
  Put32(p + kFlagsAt, kCaps | kHeight | kWidth | kPixelFormat | kLinearSize);
  Put32(p + kHeightAt, height);
  Put32(p + kWidthAt, width);
  Put32(p + kPitchAt, uint32_t(n));
  Put32(p + kMipsAt, 1);
  Put32(p + 76, 32);
  Put32(p + kPfFlagsAt, kFourCC);
  Put32(p + kCapsAt, kTexture);
  uint32_t fourcc = 0, dxgi = 0;
  switch (format) {
    case Format::kBc1: fourcc = Code("DXT1"); break;
    case Format::kBc2: fourcc = Code("DXT3"); break;
    case Format::kBc3: fourcc = Code("DXT5"); break;
    case Format::kBc3YCoCg: fourcc = Code("DXT5"), Put32(p + kReservedAt, kYCoCgTag); break;
    case Format::kBc4: fourcc = Code("ATI1"); break;
    case Format::kBc5: fourcc = Code("ATI2"); break;
    case Format::kBc6h: dxgi = 95; break;
    case Format::kBc6hs: dxgi = 96; break;
    case Format::kBc7: dxgi = 98; break;
  }
  Put32(p + kFourCCAt, dx10 ? Code("DX10") : fourcc);
  if (dx10) {
    Put32(p + kHeader, dxgi);
    Put32(p + kHeader + 4, 3);  // 2D texture
    Put32(p + kHeader + 12, 1);  // array size
  }
  if (n) std::memcpy(p + kHeader + (dx10 ? kDx10 : 0), blocks, n);
  return out;
}

}  // namespace rvttex
