// The MCU-level conversions spelled out as calls of the library's other
// exports (colour conversion, chroma sampling, level shift), one after
// another on one MCU: what every MCU export must equal, and the baseline
// its benchmark is measured against.
#ifndef RVT_TESTS_MCU_COMPOSE_H_
#define RVT_TESTS_MCU_COMPOSE_H_

#include <cstdint>
#include <cstring>

#include "rvtjp.h"

namespace rvt::test {

enum class McuFamily { kRgb, kBgr, kCmyk, kSplit, kJoin, kSampleUp };

// Shape of one export: layout (0 = 444, 1 = 422, 2 = 420), pixel bytes,
// block planes and the blocks of each.
struct McuShape {
  McuFamily family;
  int layout;
  int Width() const { return layout == 0 ? 8 : 16; }
  int Height() const { return layout == 2 ? 16 : 8; }
  int Bpp() const {
    switch (family) {
      case McuFamily::kCmyk: return 4;
      case McuFamily::kSplit: case McuFamily::kJoin: return 2;
      default: return 3;
    }
  }
  int RowBytes() const { return Width() * Bpp(); }
  int Planes() const { return family == McuFamily::kCmyk ? 4 : 3; }
  int Blocks(int plane) const {
    return (plane == 1 || plane == 2) ? 1 : (Width() / 8) * (Height() / 8);
  }
};

// A full-size plane (width w, rows packed) to or from its 8x8 blocks.
inline void PlaneToBlocks(const uint8_t* plane, int w, int h, int16_t* blocks) {
  for (int b = 0; b < (w / 8) * (h / 8); ++b) {
    const uint8_t* p = plane + (b / (w / 8)) * 8 * w + (b % (w / 8)) * 8;
    rvtiSub128_JPEG_8u16s_C1R(p, w, blocks + 64 * b, 16, {8, 8});
  }
}
inline void BlocksToPlane(const int16_t* blocks, int w, int h, uint8_t* plane) {
  for (int b = 0; b < (w / 8) * (h / 8); ++b) {
    uint8_t* p = plane + (b / (w / 8)) * 8 * w + (b % (w / 8)) * 8;
    rvtiAdd128_JPEG_16s8u_C1R(blocks + 64 * b, 16, p, w, {8, 8});
  }
}

// Pixels to blocks through the exports.
inline void ComposeFwd(McuShape m, const uint8_t* src, int32_t step, int16_t* const* dst) {
  const int w = m.Width(), h = m.Height();
  alignas(64) uint8_t full[4][256], chroma[2][64];
  if (m.family == McuFamily::kSplit) {
    for (int y = 0; y < 8; ++y) {
      const uint8_t* s = src + ptrdiff_t(step) * y;
      for (int i = 0; i < 8; ++i) {
        full[0][y * 16 + 2 * i] = s[4 * i];
        chroma[0][y * 8 + i] = s[4 * i + 1];
        full[0][y * 16 + 2 * i + 1] = s[4 * i + 2];
        chroma[1][y * 8 + i] = s[4 * i + 3];
      }
    }
  } else if (m.family == McuFamily::kCmyk) {
    uint8_t* const planes[4] = {full[0], full[1], full[2], full[3]};
    rvtiCMYKToYCCK_JPEG_8u_C4P4R(src, step, planes, w, {w, h});
    for (int c = 0; c < 2; ++c) {
      if (m.layout == 0) {
        std::memcpy(chroma[c], full[1 + c], 64);
      } else if (m.layout == 1) {
        rvtiSampleDownH2V1_JPEG_8u_C1R(full[1 + c], 16, {16, 8}, chroma[c], 8, {8, 8});
      } else {
        rvtiSampleDownH2V2_JPEG_8u_C1R(full[1 + c], 16, {16, 16}, chroma[c], 8, {8, 8});
      }
    }
  } else {
    // One step for all three planes: chroma rows are kept w wide.
    alignas(64) uint8_t cw[2][256];
    uint8_t* const planes[3] = {full[0], cw[0], cw[1]};
    const bool bgr = m.family == McuFamily::kBgr;
    if (m.layout == 0) {
      (bgr ? rvtiBGRToYCbCr_JPEG_8u_C3P3R : rvtiRGBToYCbCr_JPEG_8u_C3P3R)(src, step, planes, w, {w, h});
    } else if (m.layout == 1) {
      (bgr ? rvtiBGRToYCbCr422_JPEG_8u_C3P3R : rvtiRGBToYCbCr422_JPEG_8u_C3P3R)(src, step, planes, w, {w, h});
    } else {
      (bgr ? rvtiBGRToYCbCr411_JPEG_8u_C3P3R : rvtiRGBToYCbCr411_JPEG_8u_C3P3R)(src, step, planes, w, {w, h});
    }
    for (int c = 0; c < 2; ++c) {
      for (int y = 0; y < 8; ++y) std::memcpy(chroma[c] + 8 * y, cw[c] + w * y, 8);
    }
  }
  PlaneToBlocks(full[0], w, h, dst[0]);
  if (m.family == McuFamily::kCmyk) PlaneToBlocks(full[3], w, h, dst[3]);
  rvtiSub128_JPEG_8u16s_C1R(chroma[0], 8, dst[1], 16, {8, 8});
  rvtiSub128_JPEG_8u16s_C1R(chroma[1], 8, dst[2], 16, {8, 8});
}

// Blocks to pixels through the exports.
inline void ComposeInv(McuShape m, const int16_t* const* src, uint8_t* dst, int32_t step) {
  const int w = m.Width(), h = m.Height();
  alignas(64) uint8_t full[4][256], chroma[2][64];
  BlocksToPlane(src[0], w, h, full[0]);
  if (m.family == McuFamily::kCmyk) BlocksToPlane(src[3], w, h, full[3]);
  rvtiAdd128_JPEG_16s8u_C1R(src[1], 16, chroma[0], 8, {8, 8});
  rvtiAdd128_JPEG_16s8u_C1R(src[2], 16, chroma[1], 8, {8, 8});
  if (m.family == McuFamily::kJoin || m.family == McuFamily::kSampleUp) {
    alignas(64) uint8_t up[2][128];
    for (int c = 0; c < 2; ++c) {
      for (int y = 0; y < 8; ++y) rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(chroma[c] + 8 * y, 8, up[c] + 16 * y);
    }
    for (int y = 0; y < 8; ++y) {
      uint8_t* d = dst + ptrdiff_t(step) * y;
      for (int i = 0; i < 16; ++i) {
        if (m.family == McuFamily::kJoin) {
          d[2 * i] = full[0][16 * y + i];
          d[2 * i + 1] = chroma[i & 1][8 * y + i / 2];
        } else {
          d[3 * i] = full[0][16 * y + i];
          d[3 * i + 1] = up[0][16 * y + i];
          d[3 * i + 2] = up[1][16 * y + i];
        }
      }
    }
  } else if (m.family == McuFamily::kCmyk) {
    for (int c = 0; c < 2; ++c) {
      for (int r = 0; r < h; ++r) {
        if (m.layout == 0) {
          std::memcpy(full[1 + c] + 8 * r, chroma[c] + 8 * r, 8);
        } else if (m.layout == 1) {
          rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(chroma[c] + 8 * r, 8, full[1 + c] + 16 * r);
        } else {
          const int near = r / 2;
          int far = (r & 1) ? near + 1 : near - 1;
          far = far < 0 ? 0 : (far > 7 ? 7 : far);
          rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(chroma[c] + 8 * near, chroma[c] + 8 * far, 8,
                                                  full[1 + c] + 16 * r);
        }
      }
    }
    const uint8_t* const planes[4] = {full[0], full[1], full[2], full[3]};
    rvtiYCCKToCMYK_JPEG_8u_P4C4R(planes, w, dst, step, {w, h});
  } else {
    alignas(64) uint8_t cw[2][256];
    for (int c = 0; c < 2; ++c) {
      for (int y = 0; y < 8; ++y) std::memcpy(cw[c] + w * y, chroma[c] + 8 * y, 8);
    }
    const uint8_t* const planes[3] = {full[0], cw[0], cw[1]};
    const bool bgr = m.family == McuFamily::kBgr;
    if (m.layout == 0) {
      (bgr ? rvtiYCbCrToBGR_JPEG_8u_P3C3R : rvtiYCbCrToRGB_JPEG_8u_P3C3R)(planes, w, dst, step, {w, h});
    } else if (m.layout == 1) {
      (bgr ? rvtiYCbCr422ToBGR_JPEG_8u_P3C3R : rvtiYCbCr422ToRGB_JPEG_8u_P3C3R)(planes, w, dst, step, {w, h});
    } else {
      (bgr ? rvtiYCbCr411ToBGR_JPEG_8u_P3C3R : rvtiYCbCr411ToRGB_JPEG_8u_P3C3R)(planes, w, dst, step, {w, h});
    }
  }
}

}  // namespace rvt::test

#endif  // RVT_TESTS_MCU_COMPOSE_H_
