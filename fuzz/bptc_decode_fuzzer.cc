// BC7 and BC6H decoding of hostile blocks: random block bytes (every mode
// and reserved value among them), region sizes and steps (negative ones
// too).  The blocks sit in an exactly sized heap block and the destination
// is exactly the rows of the region, so the sanitizer sees any byte read
// past the last block or written outside the region; every decoding path
// agrees with the reference byte for byte, row padding included.
#include <hwy/targets.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/dispatch.h"

#define RVT_FUZZ_EXPECT(cond) \
  do {                        \
    if (!(cond)) std::abort(); \
  } while (0)

namespace {

using Bc7Fn = decltype(&rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R);
using Bc6uFn = decltype(&rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R);
using Bc6sFn = decltype(&rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R);

// Entry k of a format's descriptor (kRef: the reference), as one shape.
RvtResult Call(int format, int k, const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  switch (format) {
    case 0: return rvt::impl_rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R.fn[k](s, d, step, roi);
    case 1:
      return rvt::impl_rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R.fn[k](s, reinterpret_cast<uint16_t*>(d), step, roi);
    default:
      return rvt::impl_rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R.fn[k](s, reinterpret_cast<int16_t*>(d), step, roi);
  }
}
bool Has(int format, int k) {
  switch (format) {
    case 0: return rvt::impl_rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R.fn[k] != nullptr;
    case 1: return rvt::impl_rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R.fn[k] != nullptr;
    default: return rvt::impl_rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R.fn[k] != nullptr;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const int format = data[0] % 3;
  const int pixel = format == 0 ? 4 : 6;
  const int w = 1 + (data[1] & 0x3F), h = 1 + (data[2] & 0x1F);  // up to 64 x 32
  const int pad = data[3] & 0x1F;
  const bool up = data[3] & 0x80;
  data += 4;
  size -= 4;
  const size_t need = size_t((w + 3) / 4) * size_t((h + 3) / 4) * 16;
  if (size < need) return 0;  // the blocks of the region are the caller's duty
  std::unique_ptr<uint8_t[]> src(new uint8_t[need]);
  std::memcpy(src.get(), data, need);

  const int32_t row = w * pixel, step = row + pad;
  const size_t bytes = size_t(step) * size_t(h - 1) + size_t(row);
  auto run = [&](int k, uint8_t* out) {
    uint8_t* first = up ? out + size_t(step) * size_t(h - 1) : out;
    return Call(format, k, src.get(), first, up ? -step : step, {w, h});
  };
  std::unique_ptr<uint8_t[]> want(new uint8_t[bytes]);
  std::memset(want.get(), 0xA5, bytes);
  RVT_FUZZ_EXPECT(run(rvt::kRef, want.get()) == rvtStatusOk);
  const int64_t have = hwy::SupportedTargets();
  const int64_t bits[3] = {HWY_AVX3, HWY_AVX2, HWY_SSSE3};
  for (int k = 0; k < 3; ++k) {
    if (!Has(format, k) || !(have & bits[k])) continue;
    std::unique_ptr<uint8_t[]> got(new uint8_t[bytes]);
    std::memset(got.get(), 0xA5, bytes);
    RVT_FUZZ_EXPECT(run(k, got.get()) == rvtStatusOk);
    RVT_FUZZ_EXPECT(std::memcmp(got.get(), want.get(), bytes) == 0);
  }
  return 0;
}
