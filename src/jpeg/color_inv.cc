// Colour conversion from YCbCr and YCCK with 32-bit sums (InvAdditiveSat,
// InvSubtractive).
// The per-target build and the descriptors.  The family's kernels are built
// in four files by group (color_fwd.cc, color_fwd16.cc, color_inv.cc,
// color_inv16.cc: the last column of RVT_COLOR_MEMBERS) so that they compile
// in parallel; each file instantiates only its own members.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/color_inv.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/color-inl.h"
#include "jpeg/color.h"

#if HWY_ONCE
namespace rvt {
RVT_COLOR_DESCRIPTORS(inv)
}  // namespace rvt
#endif  // HWY_ONCE
