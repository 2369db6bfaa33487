// The threading rule of the region primitives: at most 8192 pixels run on
// the calling thread, top to bottom; larger regions split their rows over
// ownGetNumThreads() OpenMP threads by the static schedule (one contiguous
// block of rows per thread).  Inside an active parallel region the runtime
// refuses the fork and the same body runs serially.  Rows must be
// independent; the split never changes results.
#ifndef RVT_FRAME_THREADING_H_
#define RVT_FRAME_THREADING_H_

#include <cstdint>
#include <type_traits>

#include "rvtcore.h"
#include "rvtjp.h"

namespace rvt {

constexpr int64_t kSerialPixels = 8192;

// Calls row(y) for y in 0..roi.height-1 under the threading rule.
template <class RowFn>
inline void ForEachRow(ImageSize roi, const RowFn& row) {
  const bool fork = int64_t(roi.width) * roi.height > kSerialPixels;
  const int height = roi.height;
  if (!fork) {
    for (int y = 0; y < height; ++y) row(y);
    return;
  }
  const int threads = ownGetNumThreads();
#pragma omp parallel num_threads(threads)
  {
#pragma omp for schedule(static)
    for (int y = 0; y < height; ++y) row(y);
  }
}

// Byte-offset helper for rows of any element type.
template <class T>
inline T* RowPtr(T* base, int32_t step, int y) {
  using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + int64_t(step) * y);
}

}  // namespace rvt

#endif  // RVT_FRAME_THREADING_H_
