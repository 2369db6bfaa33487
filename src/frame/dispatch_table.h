// The dispatch table's pages, for the test that they are read-only.
#ifndef RVT_FRAME_DISPATCH_TABLE_H_
#define RVT_FRAME_DISPATCH_TABLE_H_

#include <cstddef>

namespace rvt {

// The pages that hold the variant index and every export's slots, and
// whether the load-time selection made them read-only after filling them.
struct DispatchPages {
  const void* begin;
  size_t bytes;
  bool sealed;
};
DispatchPages DispatchTable();

}  // namespace rvt

#endif  // RVT_FRAME_DISPATCH_TABLE_H_
