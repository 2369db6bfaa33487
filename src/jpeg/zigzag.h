// The zig-zag order of an 8x8 block, the one copy the library, its tests
// and the example codec share.  Coefficient blocks are kept in natural
// (row-major) order; entropy coders and DQT segments walk them in zig-zag
// order.
#ifndef RVT_JPEG_ZIGZAG_H_
#define RVT_JPEG_ZIGZAG_H_

#include <cstdint>

namespace rvt {

// Natural index of each zig-zag position.
inline constexpr uint8_t kNaturalOfZigzag[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// Zig-zag position of each natural index (the inverse permutation).
struct ZigzagOfNaturalTable {
  uint8_t v[64];
  constexpr ZigzagOfNaturalTable() : v() {
    for (int k = 0; k < 64; ++k) v[kNaturalOfZigzag[k]] = uint8_t(k);
  }
};
inline constexpr ZigzagOfNaturalTable kZigzagOfNatural{};

}  // namespace rvt

#endif  // RVT_JPEG_ZIGZAG_H_
