// Baseline Huffman encoding of MCU runs: the per-target build and the
// descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_encode_blocks.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/huffman_encode_blocks-inl.h"
#include "jpeg/huffman_encode_blocks.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_encode_blocks::HWY_NAMESPACE {

RvtResult EncodeBlocksFast(const int16_t* src, uint8_t* dst, int len, int* pos, int nmcus,
                           const int* comp, int nblocks, int16_t* last_dc,
                           const EncodeHuffmanSpec* const dc[4],
                           const EncodeHuffmanSpec* const ac[4], EncodeHuffmanState* st,
                           int* nblocks_done) {
  return EncodeBlocks<EncodeRun>(src, dst, len, pos, nmcus, comp, nblocks, last_dc, dc, ac, st,
                                 nblocks_done);
}

}  // namespace rvt::huffman_encode_blocks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1, huffman_encode_blocks, EncodeBlocksFast,
             EncodeBlocksRef);
}  // namespace rvt
#endif  // HWY_ONCE
