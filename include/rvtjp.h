/* rvtjp: image-coding primitives for JPEG, JPEG 2000, JPEG XR, BCn texture
 * and TIFF codecs.  Each call does one step on caller-owned memory and
 * returns a status; nothing is allocated, logged or kept between calls
 * except in the caller's own state objects.  Compiles as C99 and as C++.
 *
 * Conventions shared by every export:
 *  - Arguments are checked in the order they are listed: a null pointer gives
 *    rvtStatusNullPtr, a row step below 1 (checked right after its pointer)
 *    rvtStatusStep, a region with width or height below 1 rvtStatusSize.
 *    Nothing is written when a check fails.
 *  - Row steps are in bytes for every element type.  Multi-plane arguments
 *    are arrays of plane pointers sharing one step.
 *  - Coefficient blocks are 64 int16 values in natural (row-major) order.
 *  - Region primitives marked "threaded" split their rows over OpenMP
 *    threads when the region holds more than 8192 pixels (see rvtcore.h,
 *    rvtSetNumThreads, to cap the count); the split never changes results.
 *  - Each export's implementation is chosen once when the library loads
 *    (SSSE3 floor; AVX2 or AVX-512 where the processor has them); all paths
 *    give bit-identical results.
 */
#ifndef RVTJP_H
#define RVTJP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Status of every export but rvtjGetLibVersion: 0 success, < 0 error,
 * > 0 warning (the output is complete). */
typedef enum RvtResult {
  rvtStatusRowEnd = -124,      /* a PackBits packet overruns the row */
  rvtStatusHuffTable = -64,    /* invalid Huffman table, or symbol with no code */
  rvtStatusHuffData = -63,     /* data that no Huffman code covers */
  rvtStatusOutOfBuffer = -62,  /* destination full / source exhausted */
  rvtStatusStep = -14,         /* a row step below 1 */
  rvtStatusNoMem = -9,         /* allocation failed */
  rvtStatusNullPtr = -8,       /* a required pointer is null */
  rvtStatusRange = -7,         /* a computed value outside its table */
  rvtStatusSize = -6,          /* a size or length below 1 or out of range */
  rvtStatusBadArg = -5,        /* an argument value outside its range */
  rvtStatusErr = -2,           /* inconsistent decoded block data */
  rvtStatusOk = 0,             /* success */
  rvtStatusDivByZero = 6,      /* warning: a divisor was 0 (65535 written) */
  rvtStatusOddSize = 35        /* warning: size not a multiple of the chroma factor */
} RvtResult;

/* Region of interest in pixels, passed by value. */
typedef struct ImageSize {
  int32_t width;
  int32_t height;
} ImageSize;

/* Rectangle: origin and size in pixels. */
typedef struct ImageRect {
  int32_t x;
  int32_t y;
  int32_t width;
  int32_t height;
} ImageRect;

/* Version record; constant data owned by the library. */
typedef struct LibraryVersion {
  int32_t major;          /* 7 */
  int32_t minor;          /* 1 */
  int32_t majorBuild;     /* 0 */
  int32_t build;          /* 36264 */
  char targetCpu[4];      /* "u8", or "n8" on processors with SSSE3 and MOVBE */
  const char* Name;       /* "rvtJP SSSE3 (u8)" or "rvtJP Tarn (n8)" */
  const char* Version;    /* "7.1.0 (r36264)" */
  const char* BuildDate;  /* "Jul 23 2012" */
} LibraryVersion;

/* ------------------------------------------------------------- library */

/* Version record of the implementation chosen at load; never fails. */
const LibraryVersion* rvtjGetLibVersion(void);

/* ------------------------------------------------------------- level shift */

/* dst = clamp(src + 128, 0, 255) per pixel.  Threaded. */
RvtResult rvtiAdd128_JPEG_16s8u_C1R(const int16_t* pSrc, int32_t srcStep,
                                    uint8_t* pDst, int32_t dstStep,
                                    ImageSize roiSize);
/* dst = src - 128 per pixel (exact).  Threaded. */
RvtResult rvtiSub128_JPEG_8u16s_C1R(const uint8_t* pSrc, int32_t srcStep,
                                    int16_t* pDst, int32_t dstStep,
                                    ImageSize roiSize);

/* ------------------------------------------------------------- quantization */

/* ------------------------------------------------------------- forward DCT */

/* ------------------------------------------------------------- inverse DCT */

/* ------------------------------------------------------------- colour conversion */

/* Whole-region conversions between RGB/BGR (8-bit C3/C4/P3, or 5-5-5 and
 * 5-6-5 words), CMYK and YCbCr/YCCK (full range, chroma centred on 128),
 * luma extraction, and 411 (chroma 2x2) / 422 (chroma 2x1) planar forms.
 * Planar arguments are arrays of plane pointers that share one step:
 * Y, Cb, Cr (, K); R, G, B; C, M, Y, K.  C4 sources ignore byte 3; C4
 * outputs set it to aval (CMYK: byte 3 is K).  Packed 16-bit fields widen
 * as f << 3 (5 bits) and f << 2 (6 bits) and narrow by truncation; bit 15
 * of a 555 word is written 0.  "clamp" below saturates to 16 bits, then to
 * 0..255.  Unless noted, checks are pointers (each plane too) and their
 * steps in argument order, then the region; "no step check" members check
 * only pointers, then the region.
 *
 * Each member keeps its own fixed-point arithmetic, so two members that
 * compute the same conversion can differ by one in some outputs:
 *  A  C3 to P3: the first 8*floor(w/8) pixels of every row use 15-bit
 *     weights (Y rounding 16266, Cr bias 16 above Cb), the last w%8 pixels
 *     14-bit ones; a pixel's result depends on its column.
 *  B  14-bit weights, every pixel.
 *  C  luma to 16 bits, chroma from (B - Y) and (R - Y) with 15-bit gains.
 *  D  luma only, 15-bit weights.  E  luma only in single precision,
 *     rounded to nearest even.
 *  F  additive inverse, 14 bits; G  subtractive inverse, 14 bits (green and
 *     blue constants differ from F by design).
 *  H  16-bit high-half products.  Luma per pixel: floor(s*w/256) for each of
 *     4899, 9617, 1868, summed with unsigned saturation, +32, >> 6.  Chroma
 *     at scale 32: the sum S of the n samples of a group (n = 1 per pixel,
 *     2 for a 422 pair, 4 for a 411 block) is placed as S*(128/n) in a
 *     16-bit lane, so each weight gives floor(S*w/(512*n)); the result is
 *     clamp((4112 + positive term - first - second negative term) >> 5)
 *     with saturating 16-bit adds in that order (no partial sum can leave
 *     16 bits, so the order never shows).  Weights: Cb 2765, 5427, 8192;
 *     Cr 8192, 6860, 1332.  Within 1 of the exact conversion.
 *  I  16-bit inverse: Y*16 plus the high halves of Cb*128, Cr*128 times
 *     11485, 2819, 5850, 14516, offsets 2871, 2167, 3629, +8, >> 4.
 *  J  16-bit inverse of packed 4:2:2: high halves of Cb*128, Cr*128 times
 *     22970, -11700, -5638, 29032, >> 5, offsets -179, +135, -226; a
 *     neutral pixel (Y, 128, 128) gives G = Y - 1.
 * 411/422 members: Y planes hold the region, Cb/Cr planes ceil(w/2)
 * columns (411: and ceil(h/2) rows).  They require w >= 2 (and, 411,
 * h >= 2), have no step check, convert everything, and return
 * rvtStatusOddSize (+35) when w (411: w or h) is odd.  An odd last column
 * (or row) is a group of its own: its chroma is the average of the pixels
 * that exist (forward) and it uses the last chroma sample (inverse).
 * Source and destination must not overlap. */

/* C3 RGB / BGR to P3 YCbCr, form A.  Threaded. */
RvtResult rvtiRGBToYCbCr_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
RvtResult rvtiBGRToYCbCr_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
/* C4 RGB / BGR (byte 3 ignored) to P3 YCbCr, form H per pixel.  No step check. */
RvtResult rvtiRGBToYCbCr_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
RvtResult rvtiBGRToYCbCr_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
/* P3 RGB to P3 YCbCr, form C.  Threaded. */
RvtResult rvtiRGBToYCbCr_JPEG_8u_P3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                     uint8_t* const pDst[3], int32_t dstStep,
                                     ImageSize roiSize);
/* 16-bit 555 / 565 RGB or BGR words to P3 YCbCr, form B. */
RvtResult rvtiRGB555ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* pSrc, int32_t srcStep,
                                             uint8_t* const pDst[3], int32_t dstStep,
                                             ImageSize roiSize);
RvtResult rvtiRGB565ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* pSrc, int32_t srcStep,
                                             uint8_t* const pDst[3], int32_t dstStep,
                                             ImageSize roiSize);
RvtResult rvtiBGR555ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* pSrc, int32_t srcStep,
                                             uint8_t* const pDst[3], int32_t dstStep,
                                             ImageSize roiSize);
RvtResult rvtiBGR565ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* pSrc, int32_t srcStep,
                                             uint8_t* const pDst[3], int32_t dstStep,
                                             ImageSize roiSize);
/* C3 RGB / BGR to luma, form D.  Threaded. */
RvtResult rvtiRGBToY_JPEG_8u_C3C1R(const uint8_t* pSrc, int32_t srcStep, uint8_t* pDst,
                                   int32_t dstStep, ImageSize roiSize);
RvtResult rvtiBGRToY_JPEG_8u_C3C1R(const uint8_t* pSrc, int32_t srcStep, uint8_t* pDst,
                                   int32_t dstStep, ImageSize roiSize);
/* P3 RGB to luma, form E (single precision).  Threaded. */
RvtResult rvtiRGBToY_JPEG_8u_P3C1R(const uint8_t* const pSrc[3], int32_t srcStep,
                                   uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
/* C4 CMYK to P4 YCCK: form B on (255-C, 255-M, 255-Y), K copied.  Threaded. */
RvtResult rvtiCMYKToYCCK_JPEG_8u_C4P4R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[4], int32_t dstStep,
                                       ImageSize roiSize);
/* P4 CMYK to P4 YCCK: form C on (255-C, 255-M, 255-Y), K copied.  Threaded. */
RvtResult rvtiCMYKToYCCK_JPEG_8u_P4R(const uint8_t* const pSrc[4], int32_t srcStep,
                                     uint8_t* const pDst[4], int32_t dstStep,
                                     ImageSize roiSize);
/* C3/C4 RGB/BGR to P3 YCbCr with chroma averaged over 2x2 blocks, form H. */
RvtResult rvtiRGBToYCbCr411_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
RvtResult rvtiRGBToYCbCr411_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
RvtResult rvtiBGRToYCbCr411_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
RvtResult rvtiBGRToYCbCr411_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
/* C3/C4 RGB/BGR to P3 YCbCr with chroma averaged over pixel pairs, form H. */
RvtResult rvtiRGBToYCbCr422_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
RvtResult rvtiRGBToYCbCr422_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
RvtResult rvtiBGRToYCbCr422_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);
RvtResult rvtiBGRToYCbCr422_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* const pDst[3], int32_t dstStep,
                                          ImageSize roiSize);

/* P3 YCbCr to C3 RGB / BGR, form F.  Threaded. */
RvtResult rvtiYCbCrToRGB_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCbCrToBGR_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
/* P3 YCbCr to C4 RGB / BGR with byte 3 = aval, form I.  No step check. */
RvtResult rvtiYCbCrToRGB_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                       uint8_t aval);
RvtResult rvtiYCbCrToBGR_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                       uint8_t aval);
/* P3 YCbCr to P3 RGB, form G.  Threaded. */
RvtResult rvtiYCbCrToRGB_JPEG_8u_P3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                     uint8_t* const pDst[3], int32_t dstStep,
                                     ImageSize roiSize);
/* P3 YCbCr to 16-bit 555 / 565 RGB or BGR words, form G. */
RvtResult rvtiYCbCrToRGB555_JPEG_8u16u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                             uint16_t* pDst, int32_t dstStep,
                                             ImageSize roiSize);
RvtResult rvtiYCbCrToRGB565_JPEG_8u16u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                             uint16_t* pDst, int32_t dstStep,
                                             ImageSize roiSize);
RvtResult rvtiYCbCrToBGR555_JPEG_8u16u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                             uint16_t* pDst, int32_t dstStep,
                                             ImageSize roiSize);
RvtResult rvtiYCbCrToBGR565_JPEG_8u16u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                             uint16_t* pDst, int32_t dstStep,
                                             ImageSize roiSize);
/* P4 YCCK to C4 / P4 CMYK: form G, then 255 - x; K copied.  Threaded. */
RvtResult rvtiYCCKToCMYK_JPEG_8u_P4C4R(const uint8_t* const pSrc[4], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCCKToCMYK_JPEG_8u_P4R(const uint8_t* const pSrc[4], int32_t srcStep,
                                     uint8_t* const pDst[4], int32_t dstStep,
                                     ImageSize roiSize);
/* P3 YCbCr with 2x2 chroma to C3 / C4 (byte 3 = aval) RGB / BGR, form I,
 * each chroma sample used for its whole block. */
RvtResult rvtiYCbCr411ToRGB_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCbCr411ToRGB_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                          uint8_t aval);
RvtResult rvtiYCbCr411ToBGR_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCbCr411ToBGR_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                          uint8_t aval);
/* P3 YCbCr with 2x1 chroma to C3 / C4 (byte 3 = aval) RGB / BGR, form I,
 * each chroma sample used for its pixel pair. */
RvtResult rvtiYCbCr422ToRGB_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCbCr422ToRGB_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                          uint8_t aval);
RvtResult rvtiYCbCr422ToBGR_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCbCr422ToBGR_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                          uint8_t aval);
/* Packed 4:2:2 (Y0 Cb Y1 Cr per pixel pair) to C3 RGB, form J.  Checks:
 * pSrc, pDst null; then width < 1 or height == 0 (rvtStatusSize).  Steps
 * are not checked (a negative step walks rows upwards) and a negative
 * height converts nothing.  An odd width converts its last pixel from the
 * Y0, Cb and Cr of its pair, so source rows hold whole pairs.  Threaded. */
RvtResult rvtiYCbCr422ToRGB_JPEG_8u_C2C3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize);

/* ------------------------------------------------------------- chroma sampling */

/* ------------------------------------------------------------- Huffman tables and states */

/* ------------------------------------------------------------- baseline Huffman coding */

#ifdef __cplusplus
}
#endif
#endif /* RVTJP_H */
