// Memory helpers shared by the families: zero-fill, allocate and release
// over rvtcore.
#ifndef RVT_FRAME_MEMORY_H_
#define RVT_FRAME_MEMORY_H_

#include <cstdint>

#include "rvtjp.h"

namespace rvt {

// Fills len bytes at p with 0 (len < 1 does nothing).
void ZeroFill(void* p, int32_t len);

// Null for size < 1 (rvtMalloc is not called); else rvtMalloc(size).
void* Allocate(int32_t size);

// Gives a block from Allocate back to rvtcore; null is accepted.
void Release(void* p);

}  // namespace rvt

#endif  // RVT_FRAME_MEMORY_H_
