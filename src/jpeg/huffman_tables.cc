// Huffman specs and coder states: the descriptors (all plain code).
#include "frame/dispatch.h"
#include "jpeg/huffman_tables.h"

namespace rvt {

using namespace huffman_tables;  // NOLINT

RVT_IMPL_PLAIN(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u, EncodeSpecGetBufSize);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u, DecodeSpecGetBufSize);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u, EncodeStateGetBufSize);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u, DecodeStateGetBufSize);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanSpecInit_JPEG_8u,
               (SpecInit<EncodeHuffmanSpec, BuildEncodeSpec>));
RVT_IMPL_PLAIN(rvtiDecodeHuffmanSpecInit_JPEG_8u,
               (SpecInit<DecodeHuffmanSpec, BuildDecodeSpec>));
RVT_IMPL_PLAIN(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u,
               (SpecInitAlloc<EncodeHuffmanSpec, kEncodeSpecBytes, BuildEncodeSpec>));
RVT_IMPL_PLAIN(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u,
               (SpecInitAlloc<DecodeHuffmanSpec, kDecodeSpecBytes, BuildDecodeSpec>));
RVT_IMPL_PLAIN(rvtiEncodeHuffmanStateInit_JPEG_8u,
               (StateInit<EncodeHuffmanState, kEncodeStateBytes>));
RVT_IMPL_PLAIN(rvtiDecodeHuffmanStateInit_JPEG_8u,
               (StateInit<DecodeHuffmanState, kDecodeStateBytes>));
RVT_IMPL_PLAIN(rvtiEncodeHuffmanStateInitAlloc_JPEG_8u,
               (StateInitAlloc<EncodeHuffmanState, kEncodeStateBytes>));
RVT_IMPL_PLAIN(rvtiDecodeHuffmanStateInitAlloc_JPEG_8u,
               (StateInitAlloc<DecodeHuffmanState, kDecodeStateBytes>));
RVT_IMPL_PLAIN(rvtiEncodeHuffmanSpecFree_JPEG_8u, Free<EncodeHuffmanSpec>);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanSpecFree_JPEG_8u, Free<DecodeHuffmanSpec>);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanStateFree_JPEG_8u, Free<EncodeHuffmanState>);
RVT_IMPL_PLAIN(rvtiDecodeHuffmanStateFree_JPEG_8u, Free<DecodeHuffmanState>);

}  // namespace rvt
