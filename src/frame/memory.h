// Memory helpers shared by the families: zero-fill, checked zero-fill,
// allocate and release over rvtcore.
#ifndef RVT_FRAME_MEMORY_H_
#define RVT_FRAME_MEMORY_H_

#include <cstdint>

#include "rvtjp.h"

namespace rvt {

// Fills len bytes at p with 0 (len < 1 does nothing).  Fills larger than the
// largest cache use non-temporal stores so they do not evict the caller's
// working set.
void ZeroFill(void* p, int32_t len);

// Null p: rvtStatusNullPtr; len < 1: rvtStatusSize; else ZeroFill and Ok.
RvtResult ZeroFillChecked(void* p, int32_t len);

// Null for size < 1 (rvtMalloc is not called); else rvtMalloc(size).
void* Allocate(int32_t size);

// Gives a block from Allocate back to rvtcore; null is accepted.
void Release(void* p);

// Cache size used to pick non-temporal stores for large fills: the largest
// CPUID leaf-2 cache descriptor, else rvtcore's figure, else 0 (never).
int64_t NonTemporalThreshold();

}  // namespace rvt

#endif  // RVT_FRAME_MEMORY_H_
