// Colour conversion to YCbCr with 16-bit high-half products (form H): C4 sources and the 411 / 422 outputs.
#include "frame/dispatch.h"
#include "jpeg/color.h"

namespace rvt {
#define RVT_COLOR_FILE_fwd(name)
#define RVT_COLOR_FILE_inv(name)
#define RVT_COLOR_FILE_fwd16(name) RVT_IMPL_PLAIN(name, color::RefEntry<color::name>::Run);
#define RVT_COLOR_FILE_inv16(name)
#define RVT_COLOR_VISIT(name, src, form, dst, check, threaded, file) RVT_COLOR_FILE_##file(name)
RVT_COLOR_MEMBERS(RVT_COLOR_VISIT)
}  // namespace rvt
