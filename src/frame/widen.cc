#include "frame/widen.h"

#include <emmintrin.h>

#include "frame/threading.h"
#include "rvtcore.h"

namespace rvt {
namespace {

template <bool kStream>
void WidenRow(const uint8_t* src, uint16_t* dst, int64_t n) {
  int64_t x = 0;
  if (kStream) {
    // Non-temporal stores need 16-byte aligned destinations.
    while (x < n && (reinterpret_cast<uintptr_t>(dst + x) & 15) != 0) {
      dst[x] = src[x];
      ++x;
    }
  }
  const __m128i zero = _mm_setzero_si128();
  for (; x + 16 <= n; x += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + x));
    const __m128i lo = _mm_unpacklo_epi8(v, zero);
    const __m128i hi = _mm_unpackhi_epi8(v, zero);
    auto* out = reinterpret_cast<__m128i*>(dst + x);
    if (kStream) {
      _mm_stream_si128(out, lo);
      _mm_stream_si128(out + 1, hi);
    } else {
      _mm_storeu_si128(out, lo);
      _mm_storeu_si128(out + 1, hi);
    }
  }
  for (; x < n; ++x) dst[x] = src[x];
}

template <bool kStream>
void WidenRegion(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                 ImageSize roi) {
  if (srcStep == roi.width && int64_t(dstStep) == 2 * int64_t(srcStep)) {
    WidenRow<kStream>(src, dst, int64_t(roi.width) * roi.height);
  } else {
    for (int y = 0; y < roi.height; ++y)
      WidenRow<kStream>(RowPtr(src, srcStep, y), RowPtr(dst, dstStep, y), roi.width);
  }
  if (kStream) _mm_sfence();
}

}  // namespace

bool WidenStreams(int64_t pixels) {
  const int64_t traffic = 3 * pixels;
  if (traffic <= 524288) return false;
  int32_t cache = 0;
  return rvtGetMaxCacheSizeB(&cache) == 0 && traffic >= cache;
}

RvtResult Widen8u16u(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                     ImageSize roi) {
  if (!src || !dst) return rvtStatusNullPtr;
  if (roi.width < 1 || roi.height < 1) return rvtStatusSize;
  if (srcStep < 1 || dstStep < 1) return rvtStatusStep;
  if (WidenStreams(int64_t(roi.width) * roi.height)) {
    WidenRegion<true>(src, srcStep, dst, dstStep, roi);
  } else {
    WidenRegion<false>(src, srcStep, dst, dstStep, roi);
  }
  return rvtStatusOk;
}

}  // namespace rvt
