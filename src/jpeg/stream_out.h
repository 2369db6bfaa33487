// Rows that leave the cache.  A whole-frame conversion writes a region far
// larger than the caches; ordinary stores read every destination line in
// before they overwrite it, a third of the memory traffic of a conversion
// that reads as many bytes as it writes.  Drivers of such regions let the
// row kernel write into a small scratch area that stays in L1 and copy it
// out with non-temporal stores, which skip that read; the bytes are the
// same.  Strips a codec converts per MCU row stay under the threshold and
// keep ordinary stores, so the next stage finds them in the cache.
#ifndef RVT_JPEG_STREAM_OUT_H_
#define RVT_JPEG_STREAM_OUT_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace rvt::stream_out {

// Regions writing at least this many bytes stream out: about the share of
// a shared last-level cache one core can count on.  A 4K plane (8.3 MB)
// does, a 4:2:0 chroma plane of it (2 MB) does not.
constexpr int64_t kMinRegionBytes = int64_t(4) << 20;

// Scratch of one row call (every plane of it); rows that need more use
// ordinary stores.
constexpr size_t kScratchBytes = size_t(24) << 10;

inline bool Worth(int64_t region_bytes, size_t row_bytes) {
  return region_bytes >= kMinRegionBytes && row_bytes <= kScratchBytes;
}

// n bytes from the scratch to dst: ordinary stores up to dst's first
// 16-byte boundary and after its last one, non-temporal ones between.
inline void CopyOut(uint8_t* dst, const uint8_t* src, size_t n) {
#if defined(__SSE2__)
  size_t head = (16 - (reinterpret_cast<uintptr_t>(dst) & 15)) & 15;
  if (head > n) head = n;
  std::memcpy(dst, src, head);
  dst += head;
  src += head;
  n -= head;
  for (; n >= 64; n -= 64, dst += 64, src += 64) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 32));
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 48));
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst), a);
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + 16), b);
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + 32), c);
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst + 48), d);
  }
  for (; n >= 16; n -= 16, dst += 16, src += 16) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(dst),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
  }
#endif
  std::memcpy(dst, src, n);
}

// Orders the non-temporal stores of this thread before whatever it does
// next (other threads, and the caller, read the rows after it).
inline void Fence() {
#if defined(__SSE2__)
  _mm_sfence();
#endif
}

}  // namespace rvt::stream_out

#endif  // RVT_JPEG_STREAM_OUT_H_
