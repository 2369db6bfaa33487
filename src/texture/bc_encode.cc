// BC4 and BC5 block encoding: the descriptors (the reference serves alone).
#include "texture/bc_encode.h"

#include "frame/dispatch.h"

namespace rvt {
RVT_IMPL_PLAIN(rvtiTextureEncodeBlock_BC4_8u_C1R, bc_encode::Bc4Ref);
RVT_IMPL_PLAIN(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R, bc_encode::Bc5Ref);
}  // namespace rvt
