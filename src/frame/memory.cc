#include "frame/memory.h"

#include <cpuid.h>
#include <emmintrin.h>

#include <cstring>

#include "rvtcore.h"

namespace rvt {
namespace {

// CPUID leaf-2 cache descriptors of second and third level caches, as
// (descriptor, code) with size = (code >> 4) << ((code & 15) + 18) bytes.
constexpr uint8_t kCacheDescriptors[][2] = {
    {0x21, 0x10}, {0x22, 0x11}, {0x23, 0x12}, {0x25, 0x13}, {0x29, 0x14},
    {0x3C, 0x10}, {0x3D, 0x31}, {0x3E, 0x11}, {0x42, 0x10}, {0x43, 0x11},
    {0x44, 0x12}, {0x45, 0x13}, {0x46, 0x14}, {0x47, 0x15}, {0x48, 0x32},
    {0x49, 0x14}, {0x4A, 0x33}, {0x4B, 0x15}, {0x4C, 0x34}, {0x4D, 0x16},
    {0x4E, 0x33}, {0x78, 0x12}, {0x7A, 0x10}, {0x7B, 0x11}, {0x7C, 0x12},
    {0x7D, 0x13}, {0x7F, 0x11}, {0x80, 0x11}, {0x82, 0x10}, {0x83, 0x11},
    {0x84, 0x12}, {0x85, 0x13}, {0x86, 0x11}, {0x87, 0x12}, {0xD0, 0x11},
    {0xD1, 0x12}, {0xD2, 0x13}, {0xD6, 0x12}, {0xD7, 0x13}, {0xD8, 0x14},
    {0xDC, 0x31}, {0xDD, 0x32}, {0xDE, 0x33}, {0xE2, 0x13}, {0xE3, 0x14},
    {0xE4, 0x15}, {0xEA, 0x34}, {0xEB, 0x93}, {0xEC, 0x35},
};

int64_t DescriptorSize(uint8_t desc) {
  for (const auto& d : kCacheDescriptors) {
    if (d[0] == desc) return int64_t(d[1] >> 4) << ((d[1] & 15) + 18);
  }
  return 0;
}

int64_t Leaf2CacheSize() {
  if (__get_cpuid_max(0, nullptr) < 2) return 0;
  unsigned r[4];
  __cpuid(2, r[0], r[1], r[2], r[3]);
  int64_t best = 0;
  for (int i = 0; i < 4; ++i) {
    if (r[i] & 0x80000000u) continue;  // register holds no descriptors
    for (int b = (i == 0 ? 1 : 0); b < 4; ++b) {
      const int64_t size = DescriptorSize(uint8_t(r[i] >> (8 * b)));
      if (size > best) best = size;
    }
  }
  return best;
}

int64_t DetectThreshold() {
  if (const int64_t s = Leaf2CacheSize()) return s;
  int32_t size = 0;
  if (rvtGetMaxCacheSizeB(&size) == 0 && size > 0) return size;
  return 0;
}

}  // namespace

int64_t NonTemporalThreshold() {
  static const int64_t threshold = DetectThreshold();
  return threshold;
}

void ZeroFill(void* p, int32_t len) {
  if (len < 1) return;
  auto* d = static_cast<uint8_t*>(p);
  int64_t n = len;
  // Align the start to 16 bytes with narrow stores.
  const uintptr_t mis = reinterpret_cast<uintptr_t>(d) & 15;
  if (mis) {
    int64_t head = 16 - int64_t(mis);
    if (head > n) head = n;
    std::memset(d, 0, size_t(head));
    d += head;
    n -= head;
  }
  const __m128i z = _mm_setzero_si128();
  const int64_t nt = NonTemporalThreshold();
  if (len > 524288 && nt > 0 && len >= nt) {
    for (; n >= 64; n -= 64, d += 64) {
      _mm_stream_si128(reinterpret_cast<__m128i*>(d), z);
      _mm_stream_si128(reinterpret_cast<__m128i*>(d + 16), z);
      _mm_stream_si128(reinterpret_cast<__m128i*>(d + 32), z);
      _mm_stream_si128(reinterpret_cast<__m128i*>(d + 48), z);
    }
    _mm_sfence();
  } else {
    for (; n >= 64; n -= 64, d += 64) {
      _mm_store_si128(reinterpret_cast<__m128i*>(d), z);
      _mm_store_si128(reinterpret_cast<__m128i*>(d + 16), z);
      _mm_store_si128(reinterpret_cast<__m128i*>(d + 32), z);
      _mm_store_si128(reinterpret_cast<__m128i*>(d + 48), z);
    }
  }
  for (; n >= 16; n -= 16, d += 16) _mm_store_si128(reinterpret_cast<__m128i*>(d), z);
  if (n) std::memset(d, 0, size_t(n));
}

RvtResult ZeroFillChecked(void* p, int32_t len) {
  if (!p) return rvtStatusNullPtr;
  if (len < 1) return rvtStatusSize;
  ZeroFill(p, len);
  return rvtStatusOk;
}

void* Allocate(int32_t size) { return size < 1 ? nullptr : rvtMalloc(size); }

void Release(void* p) { rvtFree(p); }

}  // namespace rvt
