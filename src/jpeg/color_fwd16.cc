// Colour conversion to YCbCr with 16-bit high-half products (form H): C4 sources and the 411 / 422
// outputs.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/color_fwd16.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "jpeg/color-inl.h"

#if HWY_ONCE
#include "frame/dispatch.h"

namespace rvt {
#define RVT_COLOR_FILE_fwd(name)
#define RVT_COLOR_FILE_inv(name)
#define RVT_COLOR_FILE_fwd16(name) \
  RVT_IMPL_HWY_LEGACY(name, color_simd::Entry<color::name>::Run, color::RefEntry<color::name>::Run);
#define RVT_COLOR_FILE_inv16(name)
#define RVT_COLOR_VISIT(name, src, form, dst, check, threaded, file) RVT_COLOR_FILE_##file(name)
RVT_COLOR_MEMBERS(RVT_COLOR_VISIT)
}  // namespace rvt
#endif  // HWY_ONCE
