// Progressive Huffman coding: the per-target build and the descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_progressive.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/huffman_progressive-inl.h"
#include "jpeg/huffman_progressive.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_progressive::HWY_NAMESPACE {

RvtResult EncodeACFirstFast(const int16_t* block, uint8_t* dst, int len, int* pos, int ss, int se,
                            int al, const EncodeHuffmanSpec* ac, EncodeHuffmanState* st,
                            int flush) {
  return EncodeAC(block, dst, len, pos, ss, se, al, ac, st, flush, ACFirstBlock);
}

RvtResult EncodeACRefineFast(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                             int se, int al, const EncodeHuffmanSpec* ac, EncodeHuffmanState* st,
                             int flush) {
  return EncodeAC(block, dst, len, pos, ss, se, al, ac, st, flush, ACRefineBlock);
}

RvtResult DecodeACFirstFast(const uint8_t* src, int len, int* pos, int16_t* block, int* marker,
                            int ss, int se, int al, const DecodeHuffmanSpec* ac,
                            DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecodeAC(src, len, pos, block, marker, ss, se, al, ac, st));
  return ACFirstDecodeFast(src, len, pos, block, marker, ss, se, al, ac, st);
}

RvtResult DecodeACRefineFast(const uint8_t* src, int len, int* pos, int16_t* block, int* marker,
                             int ss, int se, int al, const DecodeHuffmanSpec* ac,
                             DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecodeAC(src, len, pos, block, marker, ss, se, al, ac, st));
  return ReadBlock(src, len, pos, marker, st, [&](BitReader& r) {
    return ACRefineDecodeBlock(r, block, ss, se, al, ac, st);
  });
}

}  // namespace rvt::huffman_progressive::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1, huffman_progressive::EncodeDCFirstRef);
RVT_IMPL_PLAIN(rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1,
               huffman_progressive::EncodeDCRefineRef);
RVT_IMPL_HWY(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1, huffman_progressive, EncodeACFirstFast,
             EncodeACFirstRef);
RVT_IMPL_HWY(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1, huffman_progressive, EncodeACRefineFast,
             EncodeACRefineRef);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1, huffman_progressive::DecodeDCFirstRef);
RVT_IMPL_PLAIN(rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1,
               huffman_progressive::DecodeDCRefineRef);
RVT_IMPL_HWY(rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1, huffman_progressive, DecodeACFirstFast,
             DecodeACFirstRef);
RVT_IMPL_HWY(rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1, huffman_progressive, DecodeACRefineFast,
             DecodeACRefineRef);
}  // namespace rvt
#endif  // HWY_ONCE
