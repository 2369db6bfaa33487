#include "frame/memory.h"

#include <emmintrin.h>

#include <cstring>

#include "rvtcore.h"

namespace rvt {

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
  for (; n >= 64; n -= 64, d += 64) {
    _mm_store_si128(reinterpret_cast<__m128i*>(d), z);
    _mm_store_si128(reinterpret_cast<__m128i*>(d + 16), z);
    _mm_store_si128(reinterpret_cast<__m128i*>(d + 32), z);
    _mm_store_si128(reinterpret_cast<__m128i*>(d + 48), z);
  }
  for (; n >= 16; n -= 16, d += 16) _mm_store_si128(reinterpret_cast<__m128i*>(d), z);
  if (n) std::memset(d, 0, size_t(n));
}

void* Allocate(int32_t size) { return size < 1 ? nullptr : rvtMalloc(size); }

void Release(void* p) { rvtFree(p); }

}  // namespace rvt
