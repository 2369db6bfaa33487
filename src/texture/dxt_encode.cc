// DXT1, DXT3 and DXT5 block encoding: the descriptors (the reference serves
// alone).
#include "texture/dxt_encode.h"

#include "frame/dispatch.h"

namespace rvt {
RVT_IMPL_PLAIN(rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, dxt_encode::Dxt1Ref);
RVT_IMPL_PLAIN(rvtiTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R, dxt_encode::Dxt3Ref);
RVT_IMPL_PLAIN(rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, dxt_encode::Dxt5Ref);
}  // namespace rvt
