// Baseline Huffman decoding of MCU runs: the per-target build and the
// descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_decode_blocks.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/huffman_decode_blocks-inl.h"
#include "jpeg/huffman_decode_blocks.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_decode_blocks::HWY_NAMESPACE {

RvtResult DecodeBlocksFast(const uint8_t* src, int len, int* pos, int16_t* dst, int nmcus,
                           const int* comp, int nblocks, int16_t* last_dc, int* marker,
                           const DecodeHuffmanSpec* const dc[4],
                           const DecodeHuffmanSpec* const ac[4], DecodeHuffmanState* st,
                           int* done, int* nblocks_done) {
  return DecodeBlocks<DecodeRun>(src, len, pos, dst, nmcus, comp, nblocks, last_dc, marker, dc,
                                 ac, st, done, nblocks_done);
}

}  // namespace rvt::huffman_decode_blocks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1, huffman_decode_blocks, DecodeBlocksFast,
             DecodeBlocksRef);
}  // namespace rvt
#endif  // HWY_ONCE
