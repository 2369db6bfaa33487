// rvtcore: aligned memory, processor features, cache size, thread count.
#include "rvtcore.h"

#include <algorithm>
#include <atomic>
#include <cpuid.h>
#include <cstdlib>
#include <omp.h>

#define RVT_API extern "C" __attribute__((visibility("default")))

namespace {

struct Regs {
  unsigned a = 0, b = 0, c = 0, d = 0;
};

Regs Cpuid(unsigned leaf, unsigned sub = 0) {
  Regs r;
  __cpuid_count(leaf, sub, r.a, r.b, r.c, r.d);
  return r;
}

uint64_t Xgetbv0() {
  unsigned lo, hi;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  return (uint64_t(hi) << 32) | lo;
}

uint64_t DetectFeatures() {
  const unsigned max_leaf = __get_cpuid_max(0, nullptr);
  if (max_leaf < 1) return 0;
  const Regs l1 = Cpuid(1);
  uint64_t m = 0;
  auto set = [&m](bool on, uint64_t bit) { if (on) m |= bit; };
  set(l1.d & (1u << 25), RVT_CPU_SSE);
  set(l1.d & (1u << 26), RVT_CPU_SSE2);
  set(l1.c & (1u << 0), RVT_CPU_SSE3);
  set(l1.c & (1u << 9), RVT_CPU_SSSE3);
  set(l1.c & (1u << 22), RVT_CPU_MOVBE);
  set(l1.c & (1u << 19), RVT_CPU_SSE41);
  set(l1.c & (1u << 20), RVT_CPU_SSE42);
  set(l1.c & (1u << 25), RVT_CPU_AES);
  set(l1.c & (1u << 1), RVT_CPU_CLMUL);
  set(l1.c & (1u << 23), RVT_CPU_POPCNT);

  // Wide vector state must be saved by the OS before AVX or AVX-512 count.
  const bool osxsave = l1.c & (1u << 27);
  const uint64_t xcr0 = osxsave ? Xgetbv0() : 0;
  const bool os_ymm = (xcr0 & 0x6) == 0x6;
  const bool os_zmm = os_ymm && (xcr0 & 0xE0) == 0xE0;
  if (os_ymm) {
    set(l1.c & (1u << 28), RVT_CPU_AVX);
    set(l1.c & (1u << 29), RVT_CPU_F16C);
    set(l1.c & (1u << 12), RVT_CPU_FMA);
  }
  if (max_leaf >= 7) {
    const Regs l7 = Cpuid(7, 0);
    set(l7.b & (1u << 3), RVT_CPU_BMI1);
    set(l7.b & (1u << 8), RVT_CPU_BMI2);
    if (os_ymm) set(l7.b & (1u << 5), RVT_CPU_AVX2);
    if (os_zmm) {
      set(l7.b & (1u << 16), RVT_CPU_AVX512F);
      set(l7.b & (1u << 28), RVT_CPU_AVX512CD);
      set(l7.b & (1u << 17), RVT_CPU_AVX512DQ);
      set(l7.b & (1u << 30), RVT_CPU_AVX512BW);
      set(l7.b & (1u << 31), RVT_CPU_AVX512VL);
      set(l7.c & (1u << 11), RVT_CPU_AVX512VNNI);
    }
  }
  if (__get_cpuid_max(0x80000000u, nullptr) >= 0x80000001u) {
    set(Cpuid(0x80000001u).c & (1u << 5), RVT_CPU_LZCNT);
  }
  return m;
}

// Largest cache from the deterministic cache parameters (leaf 4, else the
// extended leaf 0x8000001D), else the L2/L3 size fields of extended leaf
// 0x80000006.
int32_t DetectMaxCache() {
  uint64_t best = 0;
  auto scan = [&best](unsigned leaf) {
    for (unsigned i = 0; i < 16; ++i) {
      const Regs r = Cpuid(leaf, i);
      if ((r.a & 0x1F) == 0) break;
      const uint64_t ways = ((r.b >> 22) & 0x3FF) + 1;
      const uint64_t parts = ((r.b >> 12) & 0x3FF) + 1;
      const uint64_t line = (r.b & 0xFFF) + 1;
      const uint64_t sets = uint64_t(r.c) + 1;
      if (ways * parts * line * sets > best) best = ways * parts * line * sets;
    }
  };
  const unsigned max_leaf = __get_cpuid_max(0, nullptr);
  const unsigned max_ext = __get_cpuid_max(0x80000000u, nullptr);
  if (max_leaf >= 4) scan(4);
  if (best == 0 && max_ext >= 0x8000001Du) scan(0x8000001Du);
  if (best == 0 && max_ext >= 0x80000006u) {
    const Regs r = Cpuid(0x80000006u);
    best = std::max<uint64_t>(uint64_t(r.c >> 16) << 10, uint64_t(r.d >> 18) << 19);
  }
  return best > 0x7FFFFFFF ? 0x7FFFFFFF : int32_t(best);
}

std::atomic<int32_t> g_thread_cap{0};

// Detected once, on first use, into an atomic: a second thread racing the
// first only repeats the same cpuid reads and stores the same value.  (No
// guarded local static: that would tie the library to the C++ runtime's
// guard functions, and every program using it to loading that runtime.)
constexpr uint64_t kFeaturesKnown = uint64_t(1) << 63;  // above every RVT_CPU_ bit
std::atomic<uint64_t> g_features{0};
std::atomic<int32_t> g_max_cache{-1};

}  // namespace

RVT_API uint64_t rvtGetEnabledCpuFeatures(void) {
  uint64_t mask = g_features.load(std::memory_order_relaxed);
  if (mask == 0) {
    mask = DetectFeatures() | kFeaturesKnown;
    g_features.store(mask, std::memory_order_relaxed);
  }
  return mask & ~kFeaturesKnown;
}

RVT_API void* rvtMalloc(int32_t len) {
  if (len < 1) return nullptr;
  // aligned_alloc wants a multiple of the alignment.
  const size_t size = (size_t(len) + 63) & ~size_t(63);
  return std::aligned_alloc(64, size);
}

RVT_API void rvtFree(void* ptr) { std::free(ptr); }

RVT_API int32_t rvtGetMaxCacheSizeB(int32_t* pSize) {
  if (!pSize) return -8;
  int32_t size = g_max_cache.load(std::memory_order_relaxed);
  if (size < 0) {
    size = DetectMaxCache();
    g_max_cache.store(size, std::memory_order_relaxed);
  }
  if (size <= 0) return -1;
  *pSize = size;
  return 0;
}

RVT_API int32_t ownGetNumThreads(void) {
  const int32_t n = omp_get_max_threads();
  const int32_t cap = g_thread_cap.load(std::memory_order_relaxed);
  return (cap > 0 && cap < n) ? cap : (n > 0 ? n : 1);
}

RVT_API int32_t rvtSetNumThreads(int32_t n) {
  return g_thread_cap.exchange(n > 0 ? n : 0, std::memory_order_relaxed);
}
