// MCU-level conversions with level shift: one MCU of interleaved pixels to
// the level-shifted 16-bit blocks the fused DCT takes, and back.  The scalar
// forms here are the definition: each is the composition of the scalar rows
// of the library's own colour conversion, chroma sampling and level shift,
// so an MCU converted here equals the same pixels sent through those
// exports one after another.  The checks and the drivers live here too, so
// every target shares them.
//
// Layouts: 444 is 8x8 pixels, 422 16x8 (two luma blocks side by side), 420
// 16x16 (four luma blocks in raster order).  Chroma is one 8x8 block per
// component; K (CMYK) is kept at full size like luma.
#ifndef RVT_JPEG_MCU_H_
#define RVT_JPEG_MCU_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "jpeg/color.h"
#include "jpeg/level_shift.h"
#include "jpeg/sampling.h"
#include "rvtjp.h"

namespace rvt::mcu {

enum Layout : int { k444 = 0, k422 = 1, k420 = 2 };

template <int kL>
inline constexpr int kWidth = kL == k444 ? 8 : 16;
template <int kL>
inline constexpr int kHeight = kL == k420 ? 16 : 8;
template <int kL>
inline constexpr int kLumaBlocks = (kWidth<kL> / 8) * (kHeight<kL> / 8);

// The colour families and the whole-region members that define them.
// CMYK has no subsampled member: its chroma goes through the samplers.
struct Rgb {
  using Fwd444 = color::rvtiRGBToYCbCr_JPEG_8u_C3P3R;
  using Fwd422 = color::rvtiRGBToYCbCr422_JPEG_8u_C3P3R;
  using Fwd420 = color::rvtiRGBToYCbCr411_JPEG_8u_C3P3R;
  using Inv444 = color::rvtiYCbCrToRGB_JPEG_8u_P3C3R;
  using Inv422 = color::rvtiYCbCr422ToRGB_JPEG_8u_P3C3R;
  using Inv420 = color::rvtiYCbCr411ToRGB_JPEG_8u_P3C3R;
  using Packed = color::Rgb3;
  static constexpr int kBpp = 3, kPlanes = 3;
  static constexpr bool kCmyk = false;
};
struct Bgr {
  using Fwd444 = color::rvtiBGRToYCbCr_JPEG_8u_C3P3R;
  using Fwd422 = color::rvtiBGRToYCbCr422_JPEG_8u_C3P3R;
  using Fwd420 = color::rvtiBGRToYCbCr411_JPEG_8u_C3P3R;
  using Inv444 = color::rvtiYCbCrToBGR_JPEG_8u_P3C3R;
  using Inv422 = color::rvtiYCbCr422ToBGR_JPEG_8u_P3C3R;
  using Inv420 = color::rvtiYCbCr411ToBGR_JPEG_8u_P3C3R;
  using Packed = color::Bgr3;
  static constexpr int kBpp = 3, kPlanes = 3;
  static constexpr bool kCmyk = false;
};
struct Cmyk {
  using Fwd444 = color::rvtiCMYKToYCCK_JPEG_8u_C4P4R;
  using Inv444 = color::rvtiYCCKToCMYK_JPEG_8u_P4C4R;
  using Packed = color::CmykC4;
  static constexpr int kBpp = 4, kPlanes = 4;
  static constexpr bool kCmyk = true;
};

// ------------------------------------------------------------ block order

// Full-size plane (kWidth wide, rows packed) <-> its 8x8 blocks, raster
// order, each in natural order.
template <int kL, class RowFn>
inline void EachBlockRow(RowFn fn) {
  constexpr int kW = kWidth<kL>, kBw = kW / 8;
  for (int b = 0; b < kLumaBlocks<kL>; ++b) {
    for (int r = 0; r < 8; ++r) fn(((b / kBw) * 8 + r) * kW + (b % kBw) * 8, b * 64 + r * 8);
  }
}

// ------------------------------------------------------------ reference

// Forward: colour conversion of the MCU into 8-bit planes (the layout's
// whole-region member, row by row), CMYK chroma box down-sampled, then
// minus 128 into the blocks.
template <class C, int kL>
void FwdRef(const uint8_t* src, int32_t step, int16_t* const* dst) {
  constexpr int kW = kWidth<kL>, kH = kHeight<kL>;
  uint8_t full[4][256];  // full-size planes, kW wide
  uint8_t chroma[2][64];
  auto row = [&](int y) { return src + ptrdiff_t(step) * y; };
  if constexpr (C::kCmyk) {
    for (int y = 0; y < kH; ++y) {
      color::Rows r{{row(y)}, {full[0] + y * kW, full[1] + y * kW, full[2] + y * kW, full[3] + y * kW}, 1, 0};
      color::RowRef<typename C::Fwd444>(r, kW);
    }
    for (int c = 0; c < 2; ++c) {
      const uint8_t* f = full[1 + c];
      for (int y = 0; y < 8; ++y) {
        if constexpr (kL == k444) {
          std::memcpy(chroma[c] + y * 8, f + y * 8, 8);
        } else if constexpr (kL == k422) {
          sampling::DownH2V1RowRef(f + y * 16, chroma[c] + y * 8, 8);
        } else {
          sampling::DownH2V2RowRef(f + 2 * y * 16, f + (2 * y + 1) * 16, chroma[c] + y * 8, 8);
        }
      }
    }
  } else if constexpr (kL == k420) {
    for (int y = 0; y < kH; y += 2) {
      color::Rows r{{row(y), row(y + 1)},
                    {full[0] + y * kW, chroma[0] + y / 2 * 8, chroma[1] + y / 2 * 8, full[0] + (y + 1) * kW},
                    2, 0};
      color::RowRef<typename C::Fwd420>(r, kW);
    }
  } else {
    constexpr int kCw = kW / (kL == k422 ? 2 : 1);
    for (int y = 0; y < kH; ++y) {
      color::Rows r{{row(y)}, {full[0] + y * kW, chroma[0] + y * kCw, chroma[1] + y * kCw}, 1, 0};
      if constexpr (kL == k422) {
        color::RowRef<typename C::Fwd422>(r, kW);
      } else {
        color::RowRef<typename C::Fwd444>(r, kW);
      }
    }
  }
  EachBlockRow<kL>([&](int p, int b) {
    level_shift::Sub128RowRef(full[0] + p, dst[0] + b, 8);
    if constexpr (C::kCmyk) level_shift::Sub128RowRef(full[3] + p, dst[3] + b, 8);
  });
  level_shift::Sub128RowRef(chroma[0], dst[1], 64);
  level_shift::Sub128RowRef(chroma[1], dst[2], 64);
}

// The 8x8 chroma of a YCCK MCU up-sampled to the MCU's size with the
// triangle row filters, edges replicated inside the MCU.
template <int kL>
void UpsampleRef(const uint8_t* c, uint8_t* out) {
  if constexpr (kL == k422) {
    for (int y = 0; y < 8; ++y) sampling::UpRowH2V1RowRef(c + y * 8, out + y * 16, 8);
  } else {
    for (int r = 0; r < 16; ++r) {
      const int near = r / 2;
      int far = (r & 1) ? near + 1 : near - 1;
      far = far < 0 ? 0 : (far > 7 ? 7 : far);
      sampling::UpRowH2V2RowRef(c + near * 8, c + far * 8, out + r * 16, 8);
    }
  }
}

// Inverse: plus 128 (saturated) into 8-bit planes, then the layout's
// whole-region member row by row (YCCK chroma up-sampled first).
template <class C, int kL>
void InvRef(const int16_t* const* src, uint8_t* dst, int32_t step) {
  constexpr int kW = kWidth<kL>, kH = kHeight<kL>;
  uint8_t full[4][256];
  uint8_t chroma[2][64];
  EachBlockRow<kL>([&](int p, int b) {
    level_shift::Add128RowRef(src[0] + b, full[0] + p, 8);
    if constexpr (C::kCmyk) level_shift::Add128RowRef(src[3] + b, full[3] + p, 8);
  });
  level_shift::Add128RowRef(src[1], chroma[0], 64);
  level_shift::Add128RowRef(src[2], chroma[1], 64);
  auto row = [&](int y) { return dst + ptrdiff_t(step) * y; };
  if constexpr (C::kCmyk) {
    for (int c = 0; c < 2; ++c) {
      if constexpr (kL == k444) {
        std::memcpy(full[1 + c], chroma[c], 64);
      } else {
        UpsampleRef<kL>(chroma[c], full[1 + c]);
      }
    }
    for (int y = 0; y < kH; ++y) {
      color::Rows r{{full[0] + y * kW, full[1] + y * kW, full[2] + y * kW, full[3] + y * kW}, {row(y)}, 1, 0};
      color::RowRef<typename C::Inv444>(r, kW);
    }
  } else {
    for (int y = 0; y < kH; ++y) {
      const int cy = kL == k420 ? y / 2 : y;
      // Chroma rows hold 8 samples in every layout.
      color::Rows r{{full[0] + y * kW, chroma[0] + cy * 8, chroma[1] + cy * 8}, {row(y)}, 1, 0};
      if constexpr (kL == k444) {
        color::RowRef<typename C::Inv444>(r, kW);
      } else if constexpr (kL == k422) {
        color::RowRef<typename C::Inv422>(r, kW);
      } else {
        color::RowRef<typename C::Inv420>(r, kW);
      }
    }
  }
}

// Packed 4:2:2 (Y0 Cb Y1 Cr per pixel pair), 16x8, to blocks: minus 128.
inline void SplitRef(const uint8_t* src, int32_t step, int16_t* const* dst) {
  for (int y = 0; y < 8; ++y) {
    const uint8_t* s = src + ptrdiff_t(step) * y;
    uint8_t luma[16], cb[8], cr[8];
    for (int i = 0; i < 8; ++i) {
      luma[2 * i] = s[4 * i];
      cb[i] = s[4 * i + 1];
      luma[2 * i + 1] = s[4 * i + 2];
      cr[i] = s[4 * i + 3];
    }
    level_shift::Sub128RowRef(luma, dst[0] + y * 8, 8);
    level_shift::Sub128RowRef(luma + 8, dst[0] + 64 + y * 8, 8);
    level_shift::Sub128RowRef(cb, dst[1] + y * 8, 8);
    level_shift::Sub128RowRef(cr, dst[2] + y * 8, 8);
  }
}

// The rows of a 422 MCU plus 128: luma 16 wide, chroma 8.
inline void Rows422(const int16_t* const* src, int y, uint8_t* luma, uint8_t* cb, uint8_t* cr) {
  level_shift::Add128RowRef(src[0] + y * 8, luma, 8);
  level_shift::Add128RowRef(src[0] + 64 + y * 8, luma + 8, 8);
  level_shift::Add128RowRef(src[1] + y * 8, cb, 8);
  level_shift::Add128RowRef(src[2] + y * 8, cr, 8);
}

inline void JoinRef(const int16_t* const* src, uint8_t* dst, int32_t step) {
  for (int y = 0; y < 8; ++y) {
    uint8_t luma[16], cb[8], cr[8];
    Rows422(src, y, luma, cb, cr);
    uint8_t* d = dst + ptrdiff_t(step) * y;
    for (int i = 0; i < 8; ++i) {
      d[4 * i] = luma[2 * i];
      d[4 * i + 1] = cb[i];
      d[4 * i + 2] = luma[2 * i + 1];
      d[4 * i + 3] = cr[i];
    }
  }
}

inline void SampleUpRef(const int16_t* const* src, uint8_t* dst, int32_t step) {
  for (int y = 0; y < 8; ++y) {
    uint8_t luma[16], cb[8], cr[8], cb2[16], cr2[16];
    Rows422(src, y, luma, cb, cr);
    sampling::UpRowH2V1RowRef(cb, cb2, 8);
    sampling::UpRowH2V1RowRef(cr, cr2, 8);
    uint8_t* d = dst + ptrdiff_t(step) * y;
    for (int i = 0; i < 16; ++i) {
      d[3 * i] = luma[i];
      d[3 * i + 1] = cb2[i];
      d[3 * i + 2] = cr2[i];
    }
  }
}

// ------------------------------------------------------------ checks

// Pixels, their step (at least the MCU's row bytes), then the block array
// and each block pointer in it.
inline RvtResult CheckFwd(const uint8_t* src, int32_t step, int row_bytes, int16_t* const* dst,
                          int planes) {
  RVT_CHECK(CheckPtr(src));
  if (step < row_bytes) return rvtStatusStep;
  RVT_CHECK(CheckPtr(dst));
  for (int i = 0; i < planes; ++i) RVT_CHECK(CheckPtr(dst[i]));
  return rvtStatusOk;
}
// The block array and each block pointer, then the pixels and their step.
inline RvtResult CheckInv(const int16_t* const* src, int planes, const uint8_t* dst, int32_t step,
                          int row_bytes) {
  RVT_CHECK(CheckPtr(src));
  for (int i = 0; i < planes; ++i) RVT_CHECK(CheckPtr(src[i]));
  RVT_CHECK(CheckPtr(dst));
  return step < row_bytes ? rvtStatusStep : rvtStatusOk;
}

// ------------------------------------------------------------ drivers

using FwdKernel = void (*)(const uint8_t*, int32_t, int16_t* const*);
using InvKernel = void (*)(const int16_t* const*, uint8_t*, int32_t);

template <class C, int kL, FwdKernel kKernel>
RvtResult Fwd(const uint8_t* src, int32_t step, int16_t** dst) {
  RVT_CHECK(CheckFwd(src, step, kWidth<kL> * C::kBpp, dst, C::kPlanes));
  kKernel(src, step, dst);
  return rvtStatusOk;
}
template <class C, int kL, InvKernel kKernel>
RvtResult Inv(const int16_t** src, uint8_t* dst, int32_t step) {
  RVT_CHECK(CheckInv(src, C::kPlanes, dst, step, kWidth<kL> * C::kBpp));
  kKernel(src, dst, step);
  return rvtStatusOk;
}
// Split: 32 row bytes; Join: 32; SampleUp: 48.
template <FwdKernel kKernel>
RvtResult Split(const uint8_t* src, int32_t step, int16_t** dst) {
  RVT_CHECK(CheckFwd(src, step, 32, dst, 3));
  kKernel(src, step, dst);
  return rvtStatusOk;
}
template <InvKernel kKernel, int kRowBytes>
RvtResult Join(const int16_t** src, uint8_t* dst, int32_t step) {
  RVT_CHECK(CheckInv(src, 3, dst, step, kRowBytes));
  kKernel(src, dst, step);
  return rvtStatusOk;
}

// Every export: name, family, layout, direction.  The per-target entries
// and the reference entries are spelled out from this list.
#define RVT_MCU_CONVERSIONS(X)                             \
  X(rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R, Rgb, k444, Fwd)   \
  X(rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R, Rgb, k422, Fwd)   \
  X(rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R, Rgb, k420, Fwd)   \
  X(rvtiBGRToYCbCr444LS_MCU_8u16s_C3P3R, Bgr, k444, Fwd)   \
  X(rvtiBGRToYCbCr422LS_MCU_8u16s_C3P3R, Bgr, k422, Fwd)   \
  X(rvtiBGRToYCbCr420LS_MCU_8u16s_C3P3R, Bgr, k420, Fwd)   \
  X(rvtiCMYKToYCCK444LS_MCU_8u16s_C4P4R, Cmyk, k444, Fwd)  \
  X(rvtiCMYKToYCCK422LS_MCU_8u16s_C4P4R, Cmyk, k422, Fwd)  \
  X(rvtiCMYKToYCCK420LS_MCU_8u16s_C4P4R, Cmyk, k420, Fwd)  \
  X(rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, Rgb, k444, Inv)   \
  X(rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, Rgb, k422, Inv)   \
  X(rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, Rgb, k420, Inv)   \
  X(rvtiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, Bgr, k444, Inv)   \
  X(rvtiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, Bgr, k422, Inv)   \
  X(rvtiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, Bgr, k420, Inv)   \
  X(rvtiYCCK444ToCMYKLS_MCU_16s8u_P4C4R, Cmyk, k444, Inv)  \
  X(rvtiYCCK422ToCMYKLS_MCU_16s8u_P4C4R, Cmyk, k422, Inv)  \
  X(rvtiYCCK420ToCMYKLS_MCU_16s8u_P4C4R, Cmyk, k420, Inv)

// The reference entries: the scalar forms behind the same checks.
#define RVT_MCU_REF_Fwd(name, C, L) \
  inline RvtResult name##Ref(const uint8_t* s, int32_t st, int16_t** d) { return Fwd<C, L, &FwdRef<C, L>>(s, st, d); }
#define RVT_MCU_REF_Inv(name, C, L) \
  inline RvtResult name##Ref(const int16_t** s, uint8_t* d, int32_t st) { return Inv<C, L, &InvRef<C, L>>(s, d, st); }
#define RVT_MCU_REF(name, C, L, dir) RVT_MCU_REF_##dir(name, C, L)
RVT_MCU_CONVERSIONS(RVT_MCU_REF)
#undef RVT_MCU_REF

inline RvtResult SplitEntryRef(const uint8_t* s, int32_t st, int16_t** d) { return Split<&SplitRef>(s, st, d); }
inline RvtResult JoinEntryRef(const int16_t** s, uint8_t* d, int32_t st) { return Join<&JoinRef, 32>(s, d, st); }
inline RvtResult SampleUpEntryRef(const int16_t** s, uint8_t* d, int32_t st) {
  return Join<&SampleUpRef, 48>(s, d, st);
}

}  // namespace rvt::mcu

#endif  // RVT_JPEG_MCU_H_
