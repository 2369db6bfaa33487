// Colour conversion from YCbCr with high halves of 16-bit products
// (InvHighHalf16, Inv422Packed): C4 outputs, 411 / 422 sources and packed
// 4:2:2.
// The per-target build and the descriptors.  The family's kernels are built
// in four files by group (color_fwd.cc, color_fwd16.cc, color_inv.cc,
// color_inv16.cc: the last column of RVT_COLOR_MEMBERS) so that they compile
// in parallel; each file instantiates only its own members.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/color_inv16.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/color-inl.h"
#include "jpeg/color.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::color::HWY_NAMESPACE {

// The per-target entry of a member: its driver running the vector row.
template <class M>
using Entry = Driver<M, &Row<M>>;

}  // namespace rvt::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
#define RVT_COLOR_IN_fwd(name)
#define RVT_COLOR_IN_fwd16(name)
#define RVT_COLOR_IN_inv(name)
#define RVT_COLOR_IN_inv16(name) \
  RVT_IMPL_HWY(name, color, Entry<color::name>::Run, RefEntry<color::name>::Run);
#define RVT_COLOR_VISIT(name, src, arith, dst, check, threaded, file) RVT_COLOR_IN_##file(name)
RVT_COLOR_MEMBERS(RVT_COLOR_VISIT)
}  // namespace rvt
#endif  // HWY_ONCE
