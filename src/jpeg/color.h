// Colour conversion: what every member shares, independent of the vector
// target.  A member is described by its pixel layouts on both sides, its
// arithmetic, its argument checks and whether it threads; one driver checks
// the arguments and walks the rows, and one row kernel per (layout,
// arithmetic, layout) does the pixels.  The scalar kernels here are the
// definition of every result; color-inl.h holds the vector ones, which never
// check anything.
#ifndef RVT_JPEG_COLOR_H_
#define RVT_JPEG_COLOR_H_

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/checks.h"
#include "frame/threading.h"
#include "rvtjp.h"

namespace rvt::color {

// ------------------------------------------------------------ row pointers

// The rows one kernel call works on.  Packed layouts use s[0] / d[0];
// planar ones one entry per plane.  The 411 forward kernel takes two image
// rows: s[0], s[1] in, d[0] (Y of row 0), d[1] Cb, d[2] Cr, d[3] (Y of
// row 1); `rows` says whether the second row exists.  So does the 411
// inverse one: s[0] - s[2] and d[0] for row 0, s[3] (Y) and d[3] for row 1.
struct Rows {
  const uint8_t* s[4];
  uint8_t* d[4];
  int rows;
  uint8_t aval;
  // Set for regions too large to be read back from the caches: vector rows
  // then write whole aligned vectors with streaming stores.
  bool stream;
};
// Regions of at least this many pixels (a 1080p frame) are streamed.
inline constexpr int64_t kStreamPixels = int64_t(1920) * 1080;
using RowFn = void (*)(const Rows&, int width);

// ------------------------------------------------------------ arithmetic

inline int Sat16(int v) { return v < -32768 ? -32768 : (v > 32767 ? 32767 : v); }
inline int SatU16(int v) { return v > 65535 ? 65535 : v; }
// Saturate to 16 bits, then to a byte.
inline uint8_t Clamp8(int v) {
  v = Sat16(v);
  return uint8_t(v < 0 ? 0 : (v > 255 ? 255 : v));
}
// High halves of 16x16-bit products.
inline int HiU(int a, int k) { return int((uint32_t(a) * uint32_t(k)) >> 16); }
inline int HiS(int a, int k) { return (a * k) >> 16; }

struct Px {
  int a, b, c, k;  // R G B or Y Cb Cr, and K (CMYK / YCCK) where there is one
};

// ------------------------------------------------------------ arithmetics
// Each is named for what it computes; every member uses exactly one.

// 15 fraction bits (luma weights sum to 32769): the 8-pixel groups of
// Fwd15Groups8.
struct Fwd15 {
  static Px Fwd(Px p) {
    const int r = p.a, g = p.b, b = p.c;
    return {Clamp8((9798 * r + 19235 * g + 3736 * b + 16266) >> 15),
            Clamp8((-5529 * r - 10855 * g + 16384 * b + 4210688) >> 15),
            Clamp8((16384 * r - 13720 * g - 2664 * b + 4210704) >> 15), p.k};
  }
};
// 14 fraction bits (also the last w%8 pixels of Fwd15Groups8 rows).
struct Fwd14 {
  static Px Fwd(Px p) {
    const int r = p.a, g = p.b, b = p.c;
    return {Clamp8((4899 * r + 9617 * g + 1868 * b + 8192) >> 14),
            Clamp8((-2764 * r - 5428 * g + 8192 * b + 2105344) >> 14),
            Clamp8((8192 * r - 6860 * g - 1332 * b + 2105344) >> 14), p.k};
  }
};
// Fwd15 in groups of 8 from the row start, Fwd14 for the rest.
struct Fwd15Groups8 {};
// Exact 16-bit luma, chroma from the colour differences B - Y and R - Y.
struct FwdDiffChroma {
  static Px Fwd(Px p) {
    const int y = (19595 * p.a + 38470 * p.b + 7471 * p.c + 32768) >> 16;
    return {y, Clamp8(((p.c - y) * 18491 + 4210688) >> 15),
            Clamp8(((p.a - y) * 23373 + 4210688) >> 15), p.k};
  }
};
// Luma only, the 15-bit weights of Fwd15.
struct Luma15 {
  static Px Fwd(Px p) {
    return {Clamp8((9798 * p.a + 19235 * p.b + 3736 * p.c + 16266) >> 15), 0, 0, 0};
  }
};
// Luma only in single precision, rounded to nearest even.
struct LumaFloat {
  static constexpr float kR = std::bit_cast<float>(0x3E991687u);  // 0.299f
  static constexpr float kG = std::bit_cast<float>(0x3F1645A2u);  // 0.587f
  static constexpr float kB = std::bit_cast<float>(0x3DE978D5u);  // 0.114f
  static Px Fwd(Px p) {
    const float s0 = kR * float(p.a);
    const float s1 = kG * float(p.b);
    const float s2 = kB * float(p.c);
    const float y = (s0 + s1) + s2;
    return {Clamp8(int(std::nearbyint(y))), 0, 0, 0};
  }
};
// High halves of 16-bit products; luma at scale 64, chroma at 32.  Fwd is
// one pixel; the 411 / 422 members form chroma from group sums.
struct FwdHighHalf {
  static int Luma(int r, int g, int b) {
    const int s = SatU16(SatU16(HiU(r << 8, 4899) + HiU(g << 8, 9617)) + HiU(b << 8, 1868));
    return SatU16(s + 32) >> 6;
  }
  // Chroma of a group whose channel sums are sr, sg, sb over 2^log2n pixels.
  static int Cb(int sr, int sg, int sb, int log2n) {
    const int sh = 7 - log2n;
    const int v =
        Sat16(Sat16(Sat16(4112 + HiU(sb << sh, 8192)) - HiU(sr << sh, 2765)) - HiU(sg << sh, 5427));
    return Clamp8(v >> 5);
  }
  static int Cr(int sr, int sg, int sb, int log2n) {
    const int sh = 7 - log2n;
    const int v =
        Sat16(Sat16(Sat16(4112 + HiU(sr << sh, 8192)) - HiU(sg << sh, 6860)) - HiU(sb << sh, 1332));
    return Clamp8(v >> 5);
  }
  static Px Fwd(Px p) {
    return {Luma(p.a, p.b, p.c), Cb(p.a, p.b, p.c, 0), Cr(p.a, p.b, p.c, 0), p.k};
  }
};

// Additive inverse, each chroma term saturated to 16 bits.
struct InvAdditiveSat {
  static Px Inv(Px p) {
    const int y = p.a, cb = p.b, cr = p.c;
    return {Clamp8(y + Sat16((22970 * cr - 2932015) >> 14)),
            Clamp8(y + Sat16((-5638 * cb - 11700 * cr + 2227566) >> 14)),
            Clamp8(y + Sat16((29032 * cb - 3707961) >> 14)), p.k};
  }
};
// Subtractive inverse; green and blue constants differ from InvAdditiveSat.
struct InvSubtractive {
  static Px Inv(Px p) {
    const int y = p.a, cb = p.b, cr = p.c;
    return {Clamp8(y + ((22970 * cr - 2932015) >> 14)),
            Clamp8(y - ((5638 * cb + 11700 * cr - 2211182) >> 14)),
            Clamp8(y + ((29032 * cb - 3708561) >> 14)), p.k};
  }
};
// High-half inverse in 16 bits at scale 16, every addition saturating.
struct InvHighHalf16 {
  static Px Inv(Px p) {
    const int y16 = p.a * 16, cb7 = p.b * 128, cr7 = p.c * 128;
    const int r = Sat16(Sat16(Sat16(y16 + HiS(cr7, 11485)) - 2871) + 8);
    const int t = Sat16(HiS(cb7, 2819) + HiS(cr7, 5850));
    const int g = Sat16(Sat16(Sat16(y16 + 2167) - t) + 8);
    const int b = Sat16(Sat16(Sat16(y16 + HiS(cb7, 14516)) - 3629) + 8);
    return {Clamp8(r >> 4), Clamp8(g >> 4), Clamp8(b >> 4), p.k};
  }
};
// High-half inverse of packed 4:2:2 in 16 bits at scale 1.
struct Inv422Packed {
  static Px Inv(Px p) {
    const int y = p.a, cb7 = p.b * 128, cr7 = p.c * 128;
    return {Clamp8(y + (HiS(cr7, 22970) >> 5) - 179),
            Clamp8(y + (Sat16(HiS(cr7, -11700) + HiS(cb7, -5638)) >> 5) + 135),
            Clamp8(y + (HiS(cb7, 29032) >> 5) - 226), p.k};
  }
};

template <class F>
inline constexpr bool kForward =
    !std::is_same_v<F, InvAdditiveSat> && !std::is_same_v<F, InvSubtractive> &&
    !std::is_same_v<F, InvHighHalf16> && !std::is_same_v<F, Inv422Packed>;

// ------------------------------------------------------------ layouts

// Interleaved 8-bit pixels: kBpp bytes, R at byte kR, G at 1, B at kB.
template <int kBpp_, int kR, int kB>
struct Packed8 {
  static constexpr int kBpp = kBpp_, kRi = kR, kBi = kB, kPlanes = 1;
  static Px Read(const Rows& r, int x) {
    const uint8_t* p = r.s[0] + kBpp * ptrdiff_t(x);
    return {p[kR], p[1], p[kB], 0};
  }
  static void Write(const Rows& r, int x, Px v) {
    uint8_t* p = r.d[0] + kBpp * ptrdiff_t(x);
    p[kR] = uint8_t(v.a);
    p[1] = uint8_t(v.b);
    p[kB] = uint8_t(v.c);
    if constexpr (kBpp == 4) p[3] = r.aval;
  }
};
using Rgb3 = Packed8<3, 0, 2>;
using Bgr3 = Packed8<3, 2, 0>;
using Rgb4 = Packed8<4, 0, 2>;
using Bgr4 = Packed8<4, 2, 0>;

// 16-bit words: a 5-bit field at bit 0 (R, or B when kBgr), G at bit 5 with
// kGBits bits, the other 5-bit field above it.
template <bool kBgr_, int kGBits_>
struct Packed16 {
  static constexpr bool kBgr = kBgr_;
  static constexpr int kGBits = kGBits_, kPlanes = 1;
  static Px Read(const Rows& r, int x) {
    uint16_t w;
    std::memcpy(&w, r.s[0] + 2 * ptrdiff_t(x), 2);
    const int lo = (w & 31) << 3;
    const int g = ((w >> 5) & ((1 << kGBits) - 1)) << (8 - kGBits);
    const int hi = ((w >> (5 + kGBits)) & 31) << 3;
    return kBgr ? Px{hi, g, lo, 0} : Px{lo, g, hi, 0};
  }
  static void Write(const Rows& r, int x, Px v) {
    const int lo = (kBgr ? v.c : v.a) >> 3, hi = (kBgr ? v.a : v.c) >> 3;
    const uint16_t w = uint16_t(lo | ((v.b >> (8 - kGBits)) << 5) | (hi << (5 + kGBits)));
    std::memcpy(r.d[0] + 2 * ptrdiff_t(x), &w, 2);
  }
};
using Rgb555 = Packed16<false, 5>;
using Rgb565 = Packed16<false, 6>;
using Bgr555 = Packed16<true, 5>;
using Bgr565 = Packed16<true, 6>;

// Planes of 8-bit samples, kN of them; the YCbCr side of a conversion
// (Y, Cb, Cr, K) and planar RGB (R, G, B) alike.  Chroma planes 1 and 2 of
// kChromaH == 2 layouts hold one sample per horizontal pair, and of
// kChromaV == 2 layouts one row per row pair.
template <int kN, int kChromaH_ = 1, int kChromaV_ = 1>
struct Planes {
  static constexpr int kPlanes = kN, kChromaH = kChromaH_, kChromaV = kChromaV_;
  static constexpr int RowShift(int plane) {
    return (kChromaV == 2 && (plane == 1 || plane == 2)) ? 1 : 0;
  }
  static Px Read(const Rows& r, int x) {
    const int xc = kChromaH == 2 ? x >> 1 : x;
    return {r.s[0][x], r.s[1][xc], r.s[2][xc], kN == 4 ? r.s[3][x] : 0};
  }
  static void Write(const Rows& r, int x, Px v) {
    r.d[0][x] = uint8_t(v.a);
    r.d[1][x] = uint8_t(v.b);
    r.d[2][x] = uint8_t(v.c);
    if constexpr (kN == 4) r.d[3][x] = uint8_t(v.k);
  }
};
using P3 = Planes<3>;
using P4 = Planes<4>;
using Ycc422 = Planes<3, 2, 1>;
using Ycc411 = Planes<3, 2, 2>;

// One 8-bit plane of luma.
struct Luma {
  static constexpr int kPlanes = 1;
  static void Write(const Rows& r, int x, Px v) { r.d[0][x] = uint8_t(v.a); }
};

// CMYK: the colour conversion runs on (255 - C, 255 - M, 255 - Y); K rides
// along.  kPacked: C4 bytes C, M, Y, K; otherwise four planes.
template <bool kPacked>
struct Cmyk {
  static constexpr int kPlanes = kPacked ? 1 : 4;
  static Px Read(const Rows& r, int x) {
    if constexpr (kPacked) {
      const uint8_t* p = r.s[0] + 4 * ptrdiff_t(x);
      return {255 - p[0], 255 - p[1], 255 - p[2], p[3]};
    } else {
      return {255 - r.s[0][x], 255 - r.s[1][x], 255 - r.s[2][x], r.s[3][x]};
    }
  }
  static void Write(const Rows& r, int x, Px v) {
    if constexpr (kPacked) {
      uint8_t* p = r.d[0] + 4 * ptrdiff_t(x);
      p[0] = uint8_t(255 - v.a);
      p[1] = uint8_t(255 - v.b);
      p[2] = uint8_t(255 - v.c);
      p[3] = uint8_t(v.k);
    } else {
      r.d[0][x] = uint8_t(255 - v.a);
      r.d[1][x] = uint8_t(255 - v.b);
      r.d[2][x] = uint8_t(255 - v.c);
      r.d[3][x] = uint8_t(v.k);
    }
  }
};
using CmykC4 = Cmyk<true>;
using CmykP4 = Cmyk<false>;

// Packed 4:2:2, Y0 Cb Y1 Cr per pixel pair.
struct YccC2 {
  static constexpr int kPlanes = 1;
  static Px Read(const Rows& r, int x) {
    const uint8_t* p = r.s[0] + 4 * ptrdiff_t(x >> 1);
    return {p[2 * (x & 1)], p[1], p[3], 0};
  }
};

template <class L>
constexpr int RowShiftOf(int plane) {
  if constexpr (requires { L::RowShift(0); }) {
    return L::RowShift(plane);
  } else {
    return 0;
  }
}

// ------------------------------------------------------------ members

enum class CheckRule {
  kStd,     // pointers and steps in argument order, then the region
  kNoStep,  // pointers, then the region
  k411,     // pointers, then w >= 2 and h >= 2; +35 when w or h is odd
  k422,     // pointers, then w >= 2 and h >= 1; +35 when w is odd
  kC2,      // pointers, then w >= 1 and h != 0
};

// The description of one export: its signature, source layout, arithmetic,
// destination layout, checks and threading.
template <class Fn_, class Src_, class Arith_, class Dst_, CheckRule kCheck_, bool kThreaded_>
struct Member {
  using Fn = Fn_;
  using Src = Src_;
  using Arith = Arith_;
  using Dst = Dst_;
  static constexpr CheckRule kCheck = kCheck_;
  static constexpr bool kThreaded = kThreaded_;
  // 411 forward members convert two image rows per call.
  static constexpr bool kRowPairs = std::is_same_v<Dst_, Ycc411>;
  // So do the 411 inverse members, which form the chroma terms of a chroma
  // row once for the two image rows that share it: s[3] / d[3] point at the
  // second row's luma and pixels when `rows` is 2.
  static constexpr bool kInvRowPairs =
      std::is_same_v<Src_, Ycc411> && std::is_same_v<Arith_, InvHighHalf16>;
};

// Every member: export, source layout, arithmetic, destination layout,
// checks, threaded, and the source file that builds its kernels (fwd: the
// 32-bit forward arithmetics and luma, inv: InvAdditiveSat and
// InvSubtractive, fwd16: FwdHighHalf, inv16: InvHighHalf16 and
// Inv422Packed).
#define RVT_COLOR_MEMBERS(X)                                                          \
  X(rvtiRGBToYCbCr_JPEG_8u_C3P3R, Rgb3, Fwd15Groups8, P3, kStd, true, fwd)            \
  X(rvtiBGRToYCbCr_JPEG_8u_C3P3R, Bgr3, Fwd15Groups8, P3, kStd, true, fwd)            \
  X(rvtiRGBToYCbCr_JPEG_8u_C4P3R, Rgb4, FwdHighHalf, P3, kNoStep, false, fwd16)       \
  X(rvtiBGRToYCbCr_JPEG_8u_C4P3R, Bgr4, FwdHighHalf, P3, kNoStep, false, fwd16)       \
  X(rvtiRGBToYCbCr_JPEG_8u_P3R, P3, FwdDiffChroma, P3, kStd, true, fwd)               \
  X(rvtiRGB555ToYCbCr_JPEG_16u8u_C3P3R, Rgb555, Fwd14, P3, kStd, false, fwd)          \
  X(rvtiRGB565ToYCbCr_JPEG_16u8u_C3P3R, Rgb565, Fwd14, P3, kStd, false, fwd)          \
  X(rvtiBGR555ToYCbCr_JPEG_16u8u_C3P3R, Bgr555, Fwd14, P3, kStd, false, fwd)          \
  X(rvtiBGR565ToYCbCr_JPEG_16u8u_C3P3R, Bgr565, Fwd14, P3, kStd, false, fwd)          \
  X(rvtiRGBToY_JPEG_8u_C3C1R, Rgb3, Luma15, Luma, kStd, true, fwd)                    \
  X(rvtiBGRToY_JPEG_8u_C3C1R, Bgr3, Luma15, Luma, kStd, true, fwd)                    \
  X(rvtiRGBToY_JPEG_8u_P3C1R, P3, LumaFloat, Luma, kStd, true, fwd)                   \
  X(rvtiCMYKToYCCK_JPEG_8u_C4P4R, CmykC4, Fwd14, P4, kStd, true, fwd)                 \
  X(rvtiCMYKToYCCK_JPEG_8u_P4R, CmykP4, FwdDiffChroma, P4, kStd, true, fwd)           \
  X(rvtiRGBToYCbCr411_JPEG_8u_C3P3R, Rgb3, FwdHighHalf, Ycc411, k411, false, fwd16)   \
  X(rvtiRGBToYCbCr411_JPEG_8u_C4P3R, Rgb4, FwdHighHalf, Ycc411, k411, false, fwd16)   \
  X(rvtiBGRToYCbCr411_JPEG_8u_C3P3R, Bgr3, FwdHighHalf, Ycc411, k411, false, fwd16)   \
  X(rvtiBGRToYCbCr411_JPEG_8u_C4P3R, Bgr4, FwdHighHalf, Ycc411, k411, false, fwd16)   \
  X(rvtiRGBToYCbCr422_JPEG_8u_C3P3R, Rgb3, FwdHighHalf, Ycc422, k422, false, fwd16)   \
  X(rvtiRGBToYCbCr422_JPEG_8u_C4P3R, Rgb4, FwdHighHalf, Ycc422, k422, false, fwd16)   \
  X(rvtiBGRToYCbCr422_JPEG_8u_C3P3R, Bgr3, FwdHighHalf, Ycc422, k422, false, fwd16)   \
  X(rvtiBGRToYCbCr422_JPEG_8u_C4P3R, Bgr4, FwdHighHalf, Ycc422, k422, false, fwd16)   \
  X(rvtiYCbCrToRGB_JPEG_8u_P3C3R, P3, InvAdditiveSat, Rgb3, kStd, true, inv)          \
  X(rvtiYCbCrToBGR_JPEG_8u_P3C3R, P3, InvAdditiveSat, Bgr3, kStd, true, inv)          \
  X(rvtiYCbCrToRGB_JPEG_8u_P3C4R, P3, InvHighHalf16, Rgb4, kNoStep, false, inv16)     \
  X(rvtiYCbCrToBGR_JPEG_8u_P3C4R, P3, InvHighHalf16, Bgr4, kNoStep, false, inv16)     \
  X(rvtiYCbCrToRGB_JPEG_8u_P3R, P3, InvSubtractive, P3, kStd, true, inv)              \
  X(rvtiYCbCrToRGB555_JPEG_8u16u_P3C3R, P3, InvSubtractive, Rgb555, kStd, false, inv) \
  X(rvtiYCbCrToRGB565_JPEG_8u16u_P3C3R, P3, InvSubtractive, Rgb565, kStd, false, inv) \
  X(rvtiYCbCrToBGR555_JPEG_8u16u_P3C3R, P3, InvSubtractive, Bgr555, kStd, false, inv) \
  X(rvtiYCbCrToBGR565_JPEG_8u16u_P3C3R, P3, InvSubtractive, Bgr565, kStd, false, inv) \
  X(rvtiYCCKToCMYK_JPEG_8u_P4C4R, P4, InvSubtractive, CmykC4, kStd, true, inv)        \
  X(rvtiYCCKToCMYK_JPEG_8u_P4R, P4, InvSubtractive, CmykP4, kStd, true, inv)          \
  X(rvtiYCbCr411ToRGB_JPEG_8u_P3C3R, Ycc411, InvHighHalf16, Rgb3, k411, false, inv16) \
  X(rvtiYCbCr411ToRGB_JPEG_8u_P3C4R, Ycc411, InvHighHalf16, Rgb4, k411, false, inv16) \
  X(rvtiYCbCr411ToBGR_JPEG_8u_P3C3R, Ycc411, InvHighHalf16, Bgr3, k411, false, inv16) \
  X(rvtiYCbCr411ToBGR_JPEG_8u_P3C4R, Ycc411, InvHighHalf16, Bgr4, k411, false, inv16) \
  X(rvtiYCbCr422ToRGB_JPEG_8u_P3C3R, Ycc422, InvHighHalf16, Rgb3, k422, false, inv16) \
  X(rvtiYCbCr422ToRGB_JPEG_8u_P3C4R, Ycc422, InvHighHalf16, Rgb4, k422, false, inv16) \
  X(rvtiYCbCr422ToBGR_JPEG_8u_P3C3R, Ycc422, InvHighHalf16, Bgr3, k422, false, inv16) \
  X(rvtiYCbCr422ToBGR_JPEG_8u_P3C4R, Ycc422, InvHighHalf16, Bgr4, k422, false, inv16) \
  X(rvtiYCbCr422ToRGB_JPEG_8u_C2C3R, YccC2, Inv422Packed, Rgb3, kC2, true, inv16)

#define RVT_COLOR_MEMBER(name, src, arith, dst, check, threaded, file) \
  using name = Member<decltype(&::name), src, arith, dst, CheckRule::check, threaded>;
RVT_COLOR_MEMBERS(RVT_COLOR_MEMBER)
#undef RVT_COLOR_MEMBER

// The descriptors of the members built in one source file (`group`, the
// last column above): use inside namespace rvt, under HWY_ONCE, after
// color-inl.h.
#define RVT_COLOR_DESCRIPTORS(group) RVT_COLOR_MEMBERS(RVT_COLOR_IF_##group)
#define RVT_COLOR_DESCRIPTOR(name) \
  RVT_IMPL_HWY(name, color, Entry<color::name>::Run, RefEntry<color::name>::Run);
#define RVT_COLOR_IF_fwd(name, src, arith, dst, check, threaded, file) \
  RVT_COLOR_ONLY_##file##_fwd(name)
#define RVT_COLOR_IF_fwd16(name, src, arith, dst, check, threaded, file) \
  RVT_COLOR_ONLY_##file##_fwd16(name)
#define RVT_COLOR_IF_inv(name, src, arith, dst, check, threaded, file) \
  RVT_COLOR_ONLY_##file##_inv(name)
#define RVT_COLOR_IF_inv16(name, src, arith, dst, check, threaded, file) \
  RVT_COLOR_ONLY_##file##_inv16(name)
#define RVT_COLOR_ONLY_fwd_fwd(name) RVT_COLOR_DESCRIPTOR(name)
#define RVT_COLOR_ONLY_fwd_fwd16(name)
#define RVT_COLOR_ONLY_fwd_inv(name)
#define RVT_COLOR_ONLY_fwd_inv16(name)
#define RVT_COLOR_ONLY_fwd16_fwd(name)
#define RVT_COLOR_ONLY_fwd16_fwd16(name) RVT_COLOR_DESCRIPTOR(name)
#define RVT_COLOR_ONLY_fwd16_inv(name)
#define RVT_COLOR_ONLY_fwd16_inv16(name)
#define RVT_COLOR_ONLY_inv_fwd(name)
#define RVT_COLOR_ONLY_inv_fwd16(name)
#define RVT_COLOR_ONLY_inv_inv(name) RVT_COLOR_DESCRIPTOR(name)
#define RVT_COLOR_ONLY_inv_inv16(name)
#define RVT_COLOR_ONLY_inv16_fwd(name)
#define RVT_COLOR_ONLY_inv16_fwd16(name)
#define RVT_COLOR_ONLY_inv16_inv(name)
#define RVT_COLOR_ONLY_inv16_inv16(name) RVT_COLOR_DESCRIPTOR(name)

// 411 / 422 forward members: chroma from pixel pairs or 2x2 blocks.
template <class M>
inline constexpr bool kSubsampledFwd =
    std::is_same_v<typename M::Dst, Ycc422> || std::is_same_v<typename M::Dst, Ycc411>;

// ------------------------------------------------------------ scalar rows

template <class Src, class Arith, class Dst>
void PixelsRef(const Rows& r, int x0, int x1) {
  for (int x = x0; x < x1; ++x) {
    if constexpr (kForward<Arith>) {
      Dst::Write(r, x, Arith::Fwd(Src::Read(r, x)));
    } else {
      Dst::Write(r, x, Arith::Inv(Src::Read(r, x)));
    }
  }
}

// Columns of a Fwd15Groups8 row converted with Fwd15: whole groups of 8.
inline int Fwd15Columns(int width) { return width & ~7; }

// 411 / 422 forward, columns [x0, x1) of one or two rows (x0 even).  Luma
// per pixel; chroma per pair or 2x2 block from the channel sums of the
// pixels that exist (an odd last column is a group of its own).
template <class Src>
void SubsampledRef(const Rows& r, int x0, int x1) {
  for (int k = 0; k < r.rows; ++k) {
    const Rows one{{r.s[k]}, {}, 0, 0};
    uint8_t* y = k == 0 ? r.d[0] : r.d[3];
    for (int x = x0; x < x1; ++x) {
      const Px p = Src::Read(one, x);
      y[x] = uint8_t(FwdHighHalf::Luma(p.a, p.b, p.c));
    }
  }
  for (int x = x0; x < x1; x += 2) {
    int sr = 0, sg = 0, sb = 0, n = 0;
    for (int k = 0; k < r.rows; ++k) {
      const Rows one{{r.s[k]}, {}, 0, 0};
      for (int i = x; i < x + 2 && i < x1; ++i, ++n) {
        const Px p = Src::Read(one, i);
        sr += p.a, sg += p.b, sb += p.c;
      }
    }
    const int log2n = n == 4 ? 2 : (n == 2 ? 1 : 0);
    r.d[1][x >> 1] = uint8_t(FwdHighHalf::Cb(sr, sg, sb, log2n));
    r.d[2][x >> 1] = uint8_t(FwdHighHalf::Cr(sr, sg, sb, log2n));
  }
}

// The second image row of a row pair of a 411 inverse member, as a row
// of its own.
inline Rows SecondRow(const Rows& r) {
  Rows b = r;
  b.rows = 1;
  b.s[0] = r.s[3];
  b.d[0] = r.d[3];
  return b;
}

// The scalar row of a member.
template <class M>
void RowRef(const Rows& r, int w) {
  using Src = typename M::Src;
  using Dst = typename M::Dst;
  using Arith = typename M::Arith;
  if constexpr (std::is_same_v<Arith, Fwd15Groups8>) {
    PixelsRef<Src, Fwd15, Dst>(r, 0, Fwd15Columns(w));
    PixelsRef<Src, Fwd14, Dst>(r, Fwd15Columns(w), w);
  } else if constexpr (kSubsampledFwd<M>) {
    SubsampledRef<Src>(r, 0, w);
  } else {
    PixelsRef<Src, Arith, Dst>(r, 0, w);
    if constexpr (M::kInvRowPairs) {
      if (r.rows == 2) PixelsRef<Src, Arith, Dst>(SecondRow(r), 0, w);
    }
  }
}

// ------------------------------------------------------------ checks

inline RvtResult CheckArg(const void* p, int) { return p ? rvtStatusOk : rvtStatusNullPtr; }
template <class T>
RvtResult CheckArg(T* const* planes, int n) {
  if (!planes) return rvtStatusNullPtr;
  for (int i = 0; i < n; ++i) {
    if (!planes[i]) return rvtStatusNullPtr;
  }
  return rvtStatusOk;
}

inline RvtResult CheckStep(int32_t step) { return step < 1 ? rvtStatusStep : rvtStatusOk; }

template <CheckRule kRule>
RvtResult CheckSize(ImageSize roi) {
  switch (kRule) {
    case CheckRule::k411:
      return (roi.width < 2 || roi.height < 2) ? rvtStatusSize : rvtStatusOk;
    case CheckRule::k422:
      return (roi.width < 2 || roi.height < 1) ? rvtStatusSize : rvtStatusOk;
    case CheckRule::kC2:
      return (roi.width < 1 || roi.height == 0) ? rvtStatusSize : rvtStatusOk;
    default:
      return CheckRoi(roi);
  }
}

// The checks of member M in argument-list order: src (every plane), its
// step, dst (every plane), its step, then the region.  Members without step
// checks accept any step.
template <class M, class S, class D>
RvtResult Check(S src, int32_t srcStep, D dst, int32_t dstStep, ImageSize roi) {
  constexpr bool kSteps = M::kCheck == CheckRule::kStd;
  RVT_CHECK(CheckArg(src, M::Src::kPlanes));
  if constexpr (kSteps) RVT_CHECK(CheckStep(srcStep));
  RVT_CHECK(CheckArg(dst, M::Dst::kPlanes));
  if constexpr (kSteps) RVT_CHECK(CheckStep(dstStep));
  return CheckSize<M::kCheck>(roi);
}

// The status of a converted region: +35 for the odd sizes of 411 / 422.
template <CheckRule kRule>
RvtResult Done(ImageSize roi) {
  if (kRule == CheckRule::k411 && ((roi.width | roi.height) & 1)) return rvtStatusOddSize;
  if (kRule == CheckRule::k422 && (roi.width & 1)) return rvtStatusOddSize;
  return rvtStatusOk;
}

// ------------------------------------------------------------ driver

// Row y of a packed image, or the rows of a plane array (chroma planes of
// layouts with 2x vertical subsampling at row y / 2).
template <class L, class T>
void PointRows(T* p, int32_t step, int y, const uint8_t** out) {
  *out = reinterpret_cast<const uint8_t*>(RowPtr(p, step, y));
}
template <class L, class T>
void PointRows(T* p, int32_t step, int y, uint8_t** out) {
  *out = reinterpret_cast<uint8_t*>(RowPtr(p, step, y));
}
template <class L, class T>
void PointRows(T* const* planes, int32_t step, int y, const uint8_t** out) {
  for (int i = 0; i < L::kPlanes; ++i) out[i] = RowPtr(planes[i], step, y >> RowShiftOf<L>(i));
}
template <class L, class T>
void PointRows(T* const* planes, int32_t step, int y, uint8_t** out) {
  for (int i = 0; i < L::kPlanes; ++i) out[i] = RowPtr(planes[i], step, y >> RowShiftOf<L>(i));
}

// The chroma rows of 4:2:2 and 4:2:0 planes never follow each other in
// memory (the step is shared with the luma rows, twice as long), so the
// hardware prefetchers lose those streams at each row's end and take a few
// lines to find them again: the first lines of the next rows to convert
// are asked for before a row (or row pair) converts.
inline constexpr int kPrefetchBytes = 256;
template <class L>
inline constexpr bool kHalfWidthChroma = false;
template <int kN, int kCv>
inline constexpr bool kHalfWidthChroma<Planes<kN, 2, kCv>> = true;
// `luma` is the distance to the next luma row to convert.
inline void PrefetchNextChromaRow(const uint8_t* const* s, int32_t step, ptrdiff_t luma) {
  for (int k = 0; k < kPrefetchBytes; k += 64) {
    __builtin_prefetch(s[1] + step + k);
    __builtin_prefetch(s[2] + step + k);
    __builtin_prefetch(s[0] + luma + k);
  }
}

// Checks the arguments of member M, then converts the region row by row
// (two rows at a time for 411 members) with kRow, under the
// threading rule when M threads.
template <class M, RowFn kRow, class S, class D>
RvtResult Convert(S src, int32_t srcStep, D dst, int32_t dstStep, ImageSize roi, uint8_t aval) {
  RVT_CHECK(Check<M>(src, srcStep, dst, dstStep, roi));
  const int w = roi.width;
  const bool stream = int64_t(w) * roi.height >= kStreamPixels;
  if constexpr (M::kRowPairs) {
    for (int y = 0; y < roi.height; y += 2) {
      Rows r{};
      r.rows = roi.height - y >= 2 ? 2 : 1;
      r.stream = stream;
      PointRows<typename M::Src>(src, srcStep, y, &r.s[0]);
      r.d[0] = RowPtr(dst[0], dstStep, y);
      r.d[1] = RowPtr(dst[1], dstStep, y >> 1);
      r.d[2] = RowPtr(dst[2], dstStep, y >> 1);
      if (r.rows == 2) {
        PointRows<typename M::Src>(src, srcStep, y + 1, &r.s[1]);
        r.d[3] = RowPtr(dst[0], dstStep, y + 1);
      }
      kRow(r, w);
    }
  } else if constexpr (M::kInvRowPairs) {
    static_assert(!M::kThreaded);
    for (int y = 0; y < roi.height; y += 2) {
      Rows r{};
      r.rows = roi.height - y >= 2 ? 2 : 1;
      r.aval = aval;
      r.stream = stream;
      PointRows<typename M::Src>(src, srcStep, y, r.s);
      PointRows<typename M::Dst>(dst, dstStep, y, r.d);
      if (r.rows == 2) {
        r.s[3] = RowPtr(src[0], srcStep, y + 1);
        r.d[3] = RowPtr(dst, dstStep, y + 1);
        if (y + 2 < roi.height) PrefetchNextChromaRow(r.s, srcStep, 2 * ptrdiff_t(srcStep));
      }
      kRow(r, w);
    }
  } else {
    auto one_row = [&](int y) {
      Rows r{};
      r.rows = 1;
      r.aval = aval;
      r.stream = stream;
      PointRows<typename M::Src>(src, srcStep, y, r.s);
      PointRows<typename M::Dst>(dst, dstStep, y, r.d);
      if constexpr (kHalfWidthChroma<typename M::Src>) {
        if (y + 1 < roi.height) PrefetchNextChromaRow(r.s, srcStep, srcStep);
      }
      kRow(r, w);
    };
    if constexpr (M::kThreaded) {
      ForEachRow(roi, one_row);
    } else {
      for (int y = 0; y < roi.height; ++y) one_row(y);
    }
  }
  return Done<M::kCheck>(roi);
}

// The driver of member M in the export's own signature, running kRow.
template <class M, RowFn kRow, class Fn = typename M::Fn>
struct Driver;
template <class M, RowFn kRow, class S, class D>
struct Driver<M, kRow, RvtResult (*)(S, int32_t, D, int32_t, ImageSize)> {
  static RvtResult Run(S src, int32_t srcStep, D dst, int32_t dstStep, ImageSize roi) {
    return Convert<M, kRow>(src, srcStep, dst, dstStep, roi, 0);
  }
};
template <class M, RowFn kRow, class S, class D>
struct Driver<M, kRow, RvtResult (*)(S, int32_t, D, int32_t, ImageSize, uint8_t)> {
  static RvtResult Run(S src, int32_t srcStep, D dst, int32_t dstStep, ImageSize roi,
                       uint8_t aval) {
    return Convert<M, kRow>(src, srcStep, dst, dstStep, roi, aval);
  }
};

// The reference entries: the scalar rows behind the same checks and driver.
template <class M>
using RefEntry = Driver<M, &RowRef<M>>;

}  // namespace rvt::color

#endif  // RVT_JPEG_COLOR_H_
