// DDS texture files for rvttex: the block formats the tool knows, and the
// reading and writing of the top mip level of a 2D texture.
//
// Written: BC1-BC5 with the legacy header and its FourCC (DXT1, DXT3, DXT5,
// ATI1 for BC4, ATI2 for BC5: the codes every DDS reader knows); BC6H and
// BC7 with the DX10 extension header (DXGI formats 95 BC6H_UF16, 96
// BC6H_SF16, 98 BC7_UNORM).  Scaled YCoCg in DXT5 blocks is a DXT5 file
// whose first reserved header word holds the tag 'YCG1', so other readers
// see an ordinary DXT5 texture.
// Read: those, and also the FourCCs BC4U, BC5U, DXT2 (as DXT3) and DXT4 (as
// DXT5), and the DX10 header for every format above (the UNORM, SRGB and
// TYPELESS variants of BC1-BC5 and BC7; the SRGB ones read as their plain
// bytes).  Signed BC4/BC5, volume textures and anything else are refused.
// Of mip chains, arrays and cube maps the first level of the first image
// is read.
#ifndef RVTTEX_DDS_H_
#define RVTTEX_DDS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rvttex {

enum class Format { kBc1, kBc2, kBc3, kBc3YCoCg, kBc4, kBc5, kBc6h, kBc6hs, kBc7 };

// Bytes per 4x4 block.
int BlockBytes(Format f);

// The blocks of a width x height texture: ceil(width / 4) * ceil(height /
// 4) * BlockBytes, or 0 when that is above 2^31 bytes.
size_t BlocksSize(Format f, uint32_t width, uint32_t height);

struct DdsImage {
  Format format = Format::kBc1;
  uint32_t width = 0, height = 0;
  const uint8_t* blocks = nullptr;  // inside the data given to ReadDds
  size_t size = 0;                  // BlocksSize(format, width, height)
};

// Reads a DDS file held in data[0..size).  On failure returns false and
// points *error at a one-line reason (a static string).  Width and height
// are 1..65536; the blocks of the first level must be present in full.
bool ReadDds(const uint8_t* data, size_t size, DdsImage* image, const char** error);

// The DDS file of one level of blocks (BlocksSize bytes at `blocks`).
std::vector<uint8_t> WriteDds(Format format, uint32_t width, uint32_t height, const uint8_t* blocks);

}  // namespace rvttex

#endif  // RVTTEX_DDS_H_
