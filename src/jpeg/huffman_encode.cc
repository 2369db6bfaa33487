// Baseline Huffman encoding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_encode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/huffman_encode-inl.h"
#include "jpeg/huffman_encode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_encode::HWY_NAMESPACE {

RvtResult Encode8x8Fast(const int16_t* block, uint8_t* dst, int len, int* pos, int16_t* last_dc,
                        const EncodeHuffmanSpec* dc, const EncodeHuffmanSpec* ac,
                        EncodeHuffmanState* st, int flush) {
  return Encode8x8<Encode8x8Block>(block, dst, len, pos, last_dc, dc, ac, st, flush);
}

}  // namespace rvt::huffman_encode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiEncodeHuffman8x8_JPEG_16s1u_C1, huffman_encode, Encode8x8Fast, Encode8x8Ref);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanOne_JPEG_16s1u_C1, huffman_encode::EncodeOneRef);
RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1, huffman_encode::EncodeDirectRef);
}  // namespace rvt
#endif  // HWY_ONCE
