// Baseline Huffman decoding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_decode.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/huffman_decode-inl.h"
#include "jpeg/huffman_decode.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_decode::HWY_NAMESPACE {

RvtResult Decode8x8Fast(const uint8_t* src, int len, int* pos, int16_t* block, int16_t* last_dc,
                        int* marker, const DecodeHuffmanSpec* dc, const DecodeHuffmanSpec* ac,
                        DecodeHuffmanState* st) {
  return Decode8x8<Decode8x8Block>(src, len, pos, block, last_dc, marker, dc, ac, st);
}

}  // namespace rvt::huffman_decode::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
// The AVX-512 slot of the block decoder: frame/avx3_slots.inc.
RVT_IMPL_HWY(rvtiDecodeHuffman8x8_JPEG_1u16s_C1, huffman_decode, Decode8x8Fast, Decode8x8Ref);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanOne_JPEG_1u16s_C1, huffman_decode::DecodeOneRef);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1, huffman_decode::DecodeDirectRef);
}  // namespace rvt
#endif  // HWY_ONCE
