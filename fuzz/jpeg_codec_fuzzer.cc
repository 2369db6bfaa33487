// The example JPEG decoder (examples/rvtjpeg/) on hostile files: markers,
// tables, frame and scan headers, restart intervals, entropy-coded data of
// baseline and progressive scans, decoded on one thread and on two.  It must
// give an image or a reason, never read outside the input or crash, and a
// file that decodes cleanly must give the same pixels on two threads.
//
// The codec's sources are compiled into this target with every library call
// bound to its careful path (the fuzz build links the library's sources,
// not its exported entry points).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "frame/dispatch.h"
#include "rvtjp.h"

namespace rvt {
#define RVT_REF_DECL(name) extern const Impl<decltype(&::name)> impl_##name;
RVT_REF_DECL(rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R)
RVT_REF_DECL(rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R)
RVT_REF_DECL(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R)
RVT_REF_DECL(rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R)
RVT_REF_DECL(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1)
RVT_REF_DECL(rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1)
RVT_REF_DECL(rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1)
RVT_REF_DECL(rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1)
RVT_REF_DECL(rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1)
RVT_REF_DECL(rvtiDecodeHuffman8x8_JPEG_1u16s_C1)
RVT_REF_DECL(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u)
RVT_REF_DECL(rvtiDecodeHuffmanSpecInit_JPEG_8u)
RVT_REF_DECL(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u)
RVT_REF_DECL(rvtiDecodeHuffmanStateInit_JPEG_8u)
RVT_REF_DECL(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1)
RVT_REF_DECL(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1)
RVT_REF_DECL(rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1)
RVT_REF_DECL(rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1)
RVT_REF_DECL(rvtiEncodeHuffman8x8_JPEG_16s1u_C1)
RVT_REF_DECL(rvtiEncodeHuffmanRawTableInit_JPEG_8u)
RVT_REF_DECL(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u)
RVT_REF_DECL(rvtiEncodeHuffmanSpecInit_JPEG_8u)
RVT_REF_DECL(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u)
RVT_REF_DECL(rvtiEncodeHuffmanStateInit_JPEG_8u)
RVT_REF_DECL(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)
RVT_REF_DECL(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1)
RVT_REF_DECL(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1)
RVT_REF_DECL(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1)
RVT_REF_DECL(rvtiQuantInvTableInit_JPEG_8u16u)
RVT_REF_DECL(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1)
RVT_REF_DECL(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1)
RVT_REF_DECL(rvtiYCbCrToRGB_JPEG_8u_P3C3R)
RVT_REF_DECL(rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R)
RVT_REF_DECL(rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R)
#undef RVT_REF_DECL
}  // namespace rvt

#define RVT_CALL(name) (::rvt::impl_##name.fn[::rvt::kRef])
#define rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R RVT_CALL(rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R)
#define rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R RVT_CALL(rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R)
#define rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R RVT_CALL(rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R)
#define rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R RVT_CALL(rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R)
#define rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1 RVT_CALL(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1)
#define rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1 RVT_CALL(rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1)
#define rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1 RVT_CALL(rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1)
#define rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1 RVT_CALL(rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1)
#define rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1 RVT_CALL(rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1)
#define rvtiDecodeHuffman8x8_JPEG_1u16s_C1 RVT_CALL(rvtiDecodeHuffman8x8_JPEG_1u16s_C1)
#define rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u RVT_CALL(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u)
#define rvtiDecodeHuffmanSpecInit_JPEG_8u RVT_CALL(rvtiDecodeHuffmanSpecInit_JPEG_8u)
#define rvtiDecodeHuffmanStateGetBufSize_JPEG_8u RVT_CALL(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u)
#define rvtiDecodeHuffmanStateInit_JPEG_8u RVT_CALL(rvtiDecodeHuffmanStateInit_JPEG_8u)
#define rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1 RVT_CALL(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1)
#define rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1 RVT_CALL(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1)
#define rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1 RVT_CALL(rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1)
#define rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1 RVT_CALL(rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1)
#define rvtiEncodeHuffman8x8_JPEG_16s1u_C1 RVT_CALL(rvtiEncodeHuffman8x8_JPEG_16s1u_C1)
#define rvtiEncodeHuffmanRawTableInit_JPEG_8u RVT_CALL(rvtiEncodeHuffmanRawTableInit_JPEG_8u)
#define rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u RVT_CALL(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u)
#define rvtiEncodeHuffmanSpecInit_JPEG_8u RVT_CALL(rvtiEncodeHuffmanSpecInit_JPEG_8u)
#define rvtiEncodeHuffmanStateGetBufSize_JPEG_8u RVT_CALL(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u)
#define rvtiEncodeHuffmanStateInit_JPEG_8u RVT_CALL(rvtiEncodeHuffmanStateInit_JPEG_8u)
#define rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1 RVT_CALL(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)
#define rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1 RVT_CALL(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1)
#define rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1 RVT_CALL(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1)
#define rvtiGetHuffmanStatistics8x8_JPEG_16s_C1 RVT_CALL(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1)
#define rvtiQuantInvTableInit_JPEG_8u16u RVT_CALL(rvtiQuantInvTableInit_JPEG_8u16u)
#define rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1 RVT_CALL(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1)
#define rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1 RVT_CALL(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1)
#define rvtiYCbCrToRGB_JPEG_8u_P3C3R RVT_CALL(rvtiYCbCrToRGB_JPEG_8u_P3C3R)
#define rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R RVT_CALL(rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R)
#define rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R RVT_CALL(rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R)

#include "../examples/rvtjpeg/decoder.cc"
#include "../examples/rvtjpeg/progressive.cc"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Frames up to 2^20 pixels: large ones only take time.
  if (size < 11) return 0;
  rvtjpeg::Decoder decoder;
  rvtjpeg::Image one, two;
  std::string message;
  rvtjpeg::DecodeOptions options;
  for (size_t i = 0; i + 8 < size; ++i) {
    if (data[i] == 0xFF && data[i + 1] >= 0xC0 && data[i + 1] <= 0xC2) {
      const size_t h = size_t(data[i + 5]) << 8 | data[i + 6], w = size_t(data[i + 7]) << 8 | data[i + 8];
      if (w * h > (size_t(1) << 20)) return 0;
    }
  }
  const rvtjpeg::DecodeStatus a = decoder.Decode(data, size, options, &one, &message);
  options.threads = 2;
  const rvtjpeg::DecodeStatus b = decoder.Decode(data, size, options, &two, &message);
  if (a == rvtjpeg::DecodeStatus::kOk && (b != a || one.pixels != two.pixels)) std::abort();
  return 0;
}
