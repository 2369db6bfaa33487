/* rvtcore: the support library under rvtjp -- aligned memory, processor
 * features, cache size and the thread count of threaded primitives.
 * Compiles as C99 and as C++. */
#ifndef RVTCORE_H
#define RVTCORE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bits of the mask returned by rvtGetEnabledCpuFeatures().  A bit is set only
 * when the processor has the feature and, for AVX and AVX-512, the operating
 * system saves the wider vector state (XGETBV). */
#define RVT_CPU_SSE       0x00000001ULL
#define RVT_CPU_SSE2      0x00000002ULL
#define RVT_CPU_SSE3      0x00000004ULL
#define RVT_CPU_SSSE3     0x00000010ULL
#define RVT_CPU_MOVBE     0x00000020ULL
#define RVT_CPU_SSE41     0x00000040ULL
#define RVT_CPU_SSE42     0x00000080ULL
#define RVT_CPU_AVX       0x00000100ULL
#define RVT_CPU_AES       0x00000200ULL
#define RVT_CPU_CLMUL     0x00000400ULL
#define RVT_CPU_F16C      0x00000800ULL
#define RVT_CPU_FMA       0x00001000ULL
#define RVT_CPU_AVX2      0x00002000ULL
#define RVT_CPU_BMI1      0x00004000ULL
#define RVT_CPU_BMI2      0x00008000ULL
#define RVT_CPU_LZCNT     0x00010000ULL
#define RVT_CPU_POPCNT    0x00020000ULL
#define RVT_CPU_AVX512F   0x00040000ULL
#define RVT_CPU_AVX512CD  0x00080000ULL
#define RVT_CPU_AVX512DQ  0x00100000ULL
#define RVT_CPU_AVX512BW  0x00200000ULL
#define RVT_CPU_AVX512VL  0x00400000ULL
#define RVT_CPU_AVX512VNNI 0x00800000ULL

/* Mask of RVT_CPU_* bits present and enabled on this processor. */
uint64_t rvtGetEnabledCpuFeatures(void);

/* 64-byte aligned block of len bytes; null when len < 1 or out of memory. */
void* rvtMalloc(int32_t len);
/* Releases a block from rvtMalloc; null is accepted. */
void rvtFree(void* ptr);

/* Stores the size in bytes of the largest cache into *pSize.  Returns 0, or
 * -8 when pSize is null, or -1 when the processor reports no cache. */
int32_t rvtGetMaxCacheSizeB(int32_t* pSize);

/* Number of threads the threaded primitives use: the OpenMP maximum, capped
 * by rvtSetNumThreads(). */
int32_t ownGetNumThreads(void);
/* Caps the threads of threaded primitives at n (n = 1 runs them on the
 * calling thread); n < 1 removes the cap.  Returns the previous cap, 0 for
 * none.  Safe to call from any thread. */
int32_t rvtSetNumThreads(int32_t n);

#ifdef __cplusplus
}
#endif
#endif /* RVTCORE_H */
