// Colour conversion to YCbCr, YCCK and luma: forms A to E.
#include "frame/dispatch.h"
#include "jpeg/color.h"

namespace rvt {
#define RVT_COLOR_FILE_fwd(name) RVT_IMPL_PLAIN(name, color::RefEntry<color::name>::Run);
#define RVT_COLOR_FILE_inv(name)
#define RVT_COLOR_FILE_fwd16(name)
#define RVT_COLOR_FILE_inv16(name)
#define RVT_COLOR_VISIT(name, src, form, dst, check, threaded, file) RVT_COLOR_FILE_##file(name)
RVT_COLOR_MEMBERS(RVT_COLOR_VISIT)
}  // namespace rvt
