// Argument checks shared by the exports.  Exports check in argument-list
// order and return the first failing status before touching memory.
#ifndef RVT_FRAME_CHECKS_H_
#define RVT_FRAME_CHECKS_H_

#include <cstdint>

#include "rvtjp.h"

namespace rvt {

// A plane pointer and the row step beside it.
inline RvtResult CheckPlane(const void* p, int32_t step) {
  if (!p) return rvtStatusNullPtr;
  if (step < 1) return rvtStatusStep;
  return rvtStatusOk;
}

inline RvtResult CheckPtr(const void* p) { return p ? rvtStatusOk : rvtStatusNullPtr; }

inline RvtResult CheckRoi(ImageSize roi) {
  return (roi.width < 1 || roi.height < 1) ? rvtStatusSize : rvtStatusOk;
}

}  // namespace rvt

// Returns the status of the first failing check of a list, in order.
#define RVT_CHECK(expr)                                 \
  do {                                                  \
    const RvtResult rvt_status_ = (expr);               \
    if (rvt_status_ != rvtStatusOk) return rvt_status_; \
  } while (0)

#endif  // RVT_FRAME_CHECKS_H_
