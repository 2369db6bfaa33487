// BC1 to BC5 decoding of hostile blocks: random block bytes, region sizes
// and steps (negative ones too).  The blocks sit in an exactly sized heap
// block and the destination is exactly the rows of the region, so the
// sanitizer sees any byte read past the last block or written outside the
// region; every decoding path agrees with the reference.
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

using DecodeFn = decltype(&rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R);
struct Format {
  const rvt::Impl<DecodeFn>* impl;
  int block, pixel;
};
const Format kFormats[5] = {{&rvt::impl_rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 8, 4},
                            {&rvt::impl_rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, 16, 4},
                            {&rvt::impl_rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 16, 4},
                            {&rvt::impl_rvtiTextureDecodeBlock_BC4_8u_C1R, 8, 1},
                            {&rvt::impl_rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, 16, 2}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const Format& f = kFormats[data[0] % 5];
  const int w = 1 + (data[1] & 0x7F), h = 1 + (data[2] & 0x3F);  // up to 128 x 64
  const int pad = data[3] & 0x1F;
  const bool up = data[3] & 0x80;
  data += 4;
  size -= 4;
  const size_t need = size_t((w + 3) / 4) * size_t((h + 3) / 4) * size_t(f.block);
  if (size < need) return 0;  // the blocks of the region are the caller's duty
  std::unique_ptr<uint8_t[]> src(new uint8_t[need]);
  std::memcpy(src.get(), data, need);

  const int32_t row = w * f.pixel, step = row + pad;
  const size_t bytes = size_t(step) * size_t(h - 1) + size_t(row);
  auto run = [&](DecodeFn fn, uint8_t* out) {
    uint8_t* first = up ? out + size_t(step) * size_t(h - 1) : out;
    return fn(src.get(), first, up ? -step : step, {w, h});
  };
  std::unique_ptr<uint8_t[]> want(new uint8_t[bytes]);
  std::memset(want.get(), 0xA5, bytes);
  RVT_FUZZ_EXPECT(run(f.impl->fn[rvt::kRef], want.get()) == rvtStatusOk);
  const int64_t have = hwy::SupportedTargets();
  const int64_t bits[3] = {HWY_AVX3, HWY_AVX2, HWY_SSSE3};
  for (int k = 0; k < 3; ++k) {
    if (!f.impl->fn[k] || !(have & bits[k])) continue;
    std::unique_ptr<uint8_t[]> got(new uint8_t[bytes]);
    std::memset(got.get(), 0xA5, bytes);  // row padding must stay as it was
    RVT_FUZZ_EXPECT(run(f.impl->fn[k], got.get()) == rvtStatusOk);
    RVT_FUZZ_EXPECT(std::memcmp(got.get(), want.get(), bytes) == 0);
  }
  return 0;
}
