// The texture tool's DDS reader on hostile files, then the library's
// decoder of the format it names over the blocks it found: every decoding
// path against the reference (DXT5 payloads also through the YCoCg
// decoder).  The file sits in an exactly sized heap block and the
// destination is exactly the image, so the sanitizer sees any read past
// the file or write past the pixels.
#include <hwy/targets.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "frame/dispatch.h"
#include "../examples/rvttex/dds.h"

#define RVT_FUZZ_EXPECT(cond) \
  do {                        \
    if (!(cond)) std::abort(); \
  } while (0)

namespace {

// Every compiled path of `impl` the processor runs against the reference.
template <class T, class Fn>
void Decode(const rvt::Impl<Fn>& impl, const rvttex::DdsImage& im, int channels) {
  const int32_t w = int32_t(im.width), h = int32_t(im.height);
  const size_t n = size_t(w) * size_t(h) * size_t(channels);
  std::vector<T> want(n), got(n);
  const int32_t step = int32_t(sizeof(T)) * channels * w;
  RVT_FUZZ_EXPECT(impl.fn[rvt::kRef](im.blocks, want.data(), step, {w, h}) == rvtStatusOk);
  const int64_t have = hwy::SupportedTargets();
  const int64_t bits[3] = {HWY_AVX3, HWY_AVX2, HWY_SSSE3};
  for (int k = 0; k < 3; ++k) {
    if (!impl.fn[k] || !(have & bits[k])) continue;
    std::memset(got.data(), 0xA5, n * sizeof(T));
    RVT_FUZZ_EXPECT(impl.fn[k](im.blocks, got.data(), step, {w, h}) == rvtStatusOk);
    RVT_FUZZ_EXPECT(std::memcmp(got.data(), want.data(), n * sizeof(T)) == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<uint8_t> file(data, data + size);
  rvttex::DdsImage im;
  const char* why = nullptr;
  if (!rvttex::ReadDds(file.data(), file.size(), &im, &why)) {
    RVT_FUZZ_EXPECT(why != nullptr);
    return 0;
  }
  RVT_FUZZ_EXPECT(im.blocks >= file.data() && im.size <= file.size() &&
                  size_t(im.blocks - file.data()) <= file.size() - im.size);
  RVT_FUZZ_EXPECT(im.size == rvttex::BlocksSize(im.format, im.width, im.height));
  // Written back, the file reads as the same texture.
  const std::vector<uint8_t> again = rvttex::WriteDds(im.format, im.width, im.height, im.blocks);
  rvttex::DdsImage im2;
  RVT_FUZZ_EXPECT(rvttex::ReadDds(again.data(), again.size(), &im2, &why));
  RVT_FUZZ_EXPECT(im2.format == im.format && im2.width == im.width && im2.height == im.height &&
                  std::memcmp(im2.blocks, im.blocks, im.size) == 0);
  if (uint64_t(im.width) * im.height > (1u << 16)) return 0;  // the reader's part is done
  using rvttex::Format;
  switch (im.format) {
    case Format::kBc1: Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, im, 4); break;
    case Format::kBc2: Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, im, 4); break;
    case Format::kBc3:
    case Format::kBc3YCoCg:
      Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, im, 4);
      Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R, im, 4);
      break;
    case Format::kBc4: Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlock_BC4_8u_C1R, im, 1); break;
    case Format::kBc5: Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, im, 2); break;
    case Format::kBc6h: Decode<uint16_t>(rvt::impl_rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R, im, 3); break;
    case Format::kBc6hs: Decode<int16_t>(rvt::impl_rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R, im, 3); break;
    case Format::kBc7: Decode<uint8_t>(rvt::impl_rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R, im, 4); break;
  }
  return 0;
}
