/* rvtjp: image-coding primitives for JPEG, JPEG 2000, JPEG XR, BCn texture
 * and TIFF codecs.  Each call does one step on caller-owned memory and
 * returns a status; nothing is logged or kept between calls except in the
 * caller's own state objects, and nothing is allocated except by the
 * ...InitAlloc exports, which allocate the object they are asked for
 * through rvtMalloc (release it with the matching ...Free).  Compiles as
 * C99 and as C++.
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
 *    (SSSE3, AVX2 or AVX-512 where the processor has them, else the plain
 *    reference); all paths give bit-identical results.
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

/* Tables: a raw table is 64 step sizes (bytes) in zig-zag order, as a DQT
 * segment carries them; forward (reciprocal, round(32768 / q)) and inverse
 * (q itself) tables are 64 uint16 in natural order. */

/* Scales a raw table in place by a JPEG quality factor (>= 1; 50 keeps the
 * table, 100 and above make every step 1); entries end in 1..255.  Quality
 * below 1: rvtStatusBadArg. */
RvtResult rvtiQuantFwdRawTableInit_JPEG_8u(uint8_t* pQuantRawTable, int32_t qualityFactor);
/* Forward table round(32768 / q) in natural order.  A step of 0 gets 65535
 * and the call returns the warning rvtStatusDivByZero (table complete). */
RvtResult rvtiQuantFwdTableInit_JPEG_8u16u(const uint8_t* pQuantRawTable,
                                           uint16_t* pQuantFwdTable);
/* Inverse table: the step sizes widened to 16 bits, in natural order. */
RvtResult rvtiQuantInvTableInit_JPEG_8u16u(const uint8_t* pQuantRawTable,
                                           uint16_t* pQuantInvTable);
/* Quantizes 64 coefficients in place with a forward table: x becomes
 * ((8x * (R >> 1)) >> 16 + 1) >> 1 in 16-bit arithmetic, close to x / q
 * (8x wraps for |x| > 4095; 5 and -5 by 10 both give 0, 1 by 2 gives 1). */
RvtResult rvtiQuantFwd8x8_JPEG_16s_C1I(int16_t* pSrcDst, const uint16_t* pQuantFwdTable);
/* Dequantizes 64 values in place: x * q, low 16 bits of the product. */
RvtResult rvtiQuantInv8x8_JPEG_16s_C1I(int16_t* pSrcDst, const uint16_t* pQuantInvTable);

/* ------------------------------------------------------------- forward DCT */

/* Forward 8x8 DCT and quantization, 64 coefficients out in natural order.
 * The fixed-point forms quantize with a forward table from
 * rvtiQuantFwdTableInit_JPEG_8u16u: round(F * R / 32768), halves to even.
 * Blocks, sample rows and tables may sit at any address. */

/* 64 level-shifted samples to quantized coefficients. */
RvtResult rvtiDCTQuantFwd8x8_JPEG_16s_C1(const int16_t* pSrc, int16_t* pDst,
                                         const uint16_t* pQuantFwdTable);
/* Same, in place. */
RvtResult rvtiDCTQuantFwd8x8_JPEG_16s_C1I(int16_t* pSrcDst, const uint16_t* pQuantFwdTable);
/* 8x8 unsigned 8-bit samples (rows srcStep bytes apart), shifted by -128.
 * Checks src and pDst, then srcStep, then the table. */
RvtResult rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDst,
                                              const uint16_t* pQuantFwdTable);
/* 8x8 unsigned 16-bit samples (12-bit JPEG), shifted by -2048, through a
 * single-precision DCT (rows, then columns); each coefficient is multiplied
 * by the caller's pQuantFwdTable entry in natural order (typically 1/q for
 * step q; no export builds it), rounded to nearest with halves to even and
 * saturated to 16 bits (a NaN product gives -32768).  Checks as the 8-bit
 * form. */
RvtResult rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(const uint16_t* pSrc, int32_t srcStep, int16_t* pDst,
                                               const float* pQuantFwdTable);

/* ------------------------------------------------------------- inverse DCT */

/* Inverse 8x8 DCT fused with dequantization.  Every form multiplies each
 * coefficient it reads by the inverse-table entry at the same natural
 * position, keeping the low 16 bits of the product.  The 8-bit forms share
 * one fixed-point transform (row tables with per-row rounders, then a
 * saturating 16-bit column pass) whose result z is 64 times the sample; it
 * meets the IEEE 1180 accuracy bounds.  The LS forms check pSrc, pDst,
 * dstStep, then the table, and write only their output rows
 * (pDst + r * dstStep).  Results are identical on every processor path. */

/* 8x8 samples: (z >> 6) + 128, clamped to 0..255. */
RvtResult rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                              int32_t dstStep,
                                              const uint16_t* pQuantInvTable);
/* Unshifted form of the 8-bit transform: 64 values z >> 6, each exactly the
 * sample the LS form writes before it adds 128 and clamps (range -512..511;
 * rvtiAdd128 of this output equals the LS output).  pDst may equal pSrc. */
RvtResult rvtiDCTQuantInv8x8_JPEG_16s_C1(const int16_t* pSrc, int16_t* pDst,
                                         const uint16_t* pQuantInvTable);
/* The same in place. */
RvtResult rvtiDCTQuantInv8x8_JPEG_16s_C1I(int16_t* pSrcDst, const uint16_t* pQuantInvTable);
/* Samples of more than 8 bits (12-bit JPEG): the table holds the plain
 * 16-bit step sizes (an inverse table).  Separable single-precision
 * transform, rounded to nearest (ties to even, under the default rounding
 * mode), +2048, clamped to 0..4095; on 12-bit data it differs from the
 * rounded exact IDCT in about 1 sample in 20000, by 1. */
RvtResult rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R(const int16_t* pSrc, uint16_t* pDst,
                                               int32_t dstStep,
                                               const uint16_t* pQuantInvTable);
/* DC only: reads only pSrc[0] and pQuantInvTable[0]; all 64 samples are
 * ((DC * q) >> 3) + 128 taken modulo 2^16 as signed, clamped to 0..255 (no
 * rounding term: a product of 7 gives 128). */
RvtResult rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                                  int32_t dstStep,
                                                  const uint16_t* pQuantInvTable);
/* Corner forms: read coefficient rows 0-1 (2x2) or 0-3 (4x4) only, the
 * rest taken as zero; 8x8 output identical to the full LS form's for every
 * block whose other rows are zero (so for every 2x2 / 4x4 corner block). */
RvtResult rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                                  int32_t dstStep,
                                                  const uint16_t* pQuantInvTable);
RvtResult rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                                  int32_t dstStep,
                                                  const uint16_t* pQuantInvTable);
/* Reduced outputs from all 64 coefficients: sample (i, j) of the 2x2 (4x4)
 * result is the mean of the 4x4 (2x2) block of exact full-size samples it
 * covers, +128 (saturating), clamped to 0..255; within 1 of that mean
 * rounded.  Two separable fixed-point passes (15-bit weights, 5 fraction
 * bits kept between them).  Writes 2 (4) rows of 2 (4) bytes. */
RvtResult rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                                   int32_t dstStep,
                                                   const uint16_t* pQuantInvTable);
RvtResult rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                                   int32_t dstStep,
                                                   const uint16_t* pQuantInvTable);

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
 * Each member keeps its own fixed-point arithmetic, named below for what it
 * computes, so two members that compute the same conversion can differ by
 * one in some outputs:
 *  Fwd15Groups8  C3 to P3: the first 8*floor(w/8) pixels of every row use
 *     15-bit weights (Y rounding 16266, Cr bias 16 above Cb), the last w%8
 *     pixels those of Fwd14; a pixel's result depends on its column.
 *  Fwd14  14-bit weights, every pixel.
 *  FwdDiffChroma  luma to 16 bits, chroma from (B - Y) and (R - Y) with
 *     15-bit gains.
 *  Luma15  luma only, 15-bit weights.  LumaFloat  luma only in single
 *     precision, rounded to nearest even.
 *  InvAdditiveSat  additive inverse, 14 bits, each chroma term saturated;
 *     InvSubtractive  subtractive inverse, 14 bits (green and blue
 *     constants differ from InvAdditiveSat by design).
 *  FwdHighHalf  16-bit high-half products.  Luma per pixel: floor(s*w/256)
 *     for each of 4899, 9617, 1868, summed with unsigned saturation, +32,
 *     >> 6.  Chroma at scale 32: the sum S of the n samples of a group
 *     (n = 1 per pixel, 2 for a 422 pair, 4 for a 411 block) is placed as
 *     S*(128/n) in a 16-bit lane, so each weight gives floor(S*w/(512*n));
 *     the result is clamp((4112 + positive term - first - second negative
 *     term) >> 5) with saturating 16-bit adds in that order (no partial sum
 *     can leave 16 bits, so the order never shows).  Weights: Cb 2765,
 *     5427, 8192; Cr 8192, 6860, 1332.  Within 1 of the exact conversion.
 *  InvHighHalf16  16-bit inverse: Y*16 plus the high halves of Cb*128,
 *     Cr*128 times 11485, 2819, 5850, 14516, offsets 2871, 2167, 3629, +8,
 *     >> 4.
 *  Inv422Packed  16-bit inverse of packed 4:2:2: high halves of Cb*128,
 *     Cr*128 times 22970, -11700, -5638, 29032, >> 5, offsets -179, +135,
 *     -226; a neutral pixel (Y, 128, 128) gives G = Y - 1.
 * 411/422 members: Y planes hold the region, Cb/Cr planes ceil(w/2)
 * columns (411: and ceil(h/2) rows).  They require w >= 2 (and, 411,
 * h >= 2), have no step check, convert everything, and return
 * rvtStatusOddSize (+35) when w (411: w or h) is odd.  An odd last column
 * (or row) is a group of its own: its chroma is the average of the pixels
 * that exist (forward) and it uses the last chroma sample (inverse).
 * Source and destination must not overlap. */

/* C3 RGB / BGR to P3 YCbCr, Fwd15Groups8.  Threaded. */
RvtResult rvtiRGBToYCbCr_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
RvtResult rvtiBGRToYCbCr_JPEG_8u_C3P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
/* C4 RGB / BGR (byte 3 ignored) to P3 YCbCr, FwdHighHalf per pixel.  No step check. */
RvtResult rvtiRGBToYCbCr_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
RvtResult rvtiBGRToYCbCr_JPEG_8u_C4P3R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[3], int32_t dstStep,
                                       ImageSize roiSize);
/* P3 RGB to P3 YCbCr, FwdDiffChroma.  Threaded. */
RvtResult rvtiRGBToYCbCr_JPEG_8u_P3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                     uint8_t* const pDst[3], int32_t dstStep,
                                     ImageSize roiSize);
/* 16-bit 555 / 565 RGB or BGR words to P3 YCbCr, Fwd14. */
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
/* C3 RGB / BGR to luma, Luma15.  Threaded. */
RvtResult rvtiRGBToY_JPEG_8u_C3C1R(const uint8_t* pSrc, int32_t srcStep, uint8_t* pDst,
                                   int32_t dstStep, ImageSize roiSize);
RvtResult rvtiBGRToY_JPEG_8u_C3C1R(const uint8_t* pSrc, int32_t srcStep, uint8_t* pDst,
                                   int32_t dstStep, ImageSize roiSize);
/* P3 RGB to luma, LumaFloat (single precision).  Threaded. */
RvtResult rvtiRGBToY_JPEG_8u_P3C1R(const uint8_t* const pSrc[3], int32_t srcStep,
                                   uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
/* C4 CMYK to P4 YCCK: Fwd14 on (255-C, 255-M, 255-Y), K copied.  Threaded. */
RvtResult rvtiCMYKToYCCK_JPEG_8u_C4P4R(const uint8_t* pSrc, int32_t srcStep,
                                       uint8_t* const pDst[4], int32_t dstStep,
                                       ImageSize roiSize);
/* P4 CMYK to P4 YCCK: FwdDiffChroma on (255-C, 255-M, 255-Y), K copied.  Threaded. */
RvtResult rvtiCMYKToYCCK_JPEG_8u_P4R(const uint8_t* const pSrc[4], int32_t srcStep,
                                     uint8_t* const pDst[4], int32_t dstStep,
                                     ImageSize roiSize);
/* C3/C4 RGB/BGR to P3 YCbCr with chroma averaged over 2x2 blocks, FwdHighHalf. */
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
/* C3/C4 RGB/BGR to P3 YCbCr with chroma averaged over pixel pairs, FwdHighHalf. */
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

/* P3 YCbCr to C3 RGB / BGR, InvAdditiveSat.  Threaded. */
RvtResult rvtiYCbCrToRGB_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCbCrToBGR_JPEG_8u_P3C3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
/* P3 YCbCr to C4 RGB / BGR with byte 3 = aval, InvHighHalf16.  No step check. */
RvtResult rvtiYCbCrToRGB_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                       uint8_t aval);
RvtResult rvtiYCbCrToBGR_JPEG_8u_P3C4R(const uint8_t* const pSrc[3], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize,
                                       uint8_t aval);
/* P3 YCbCr to P3 RGB, InvSubtractive.  Threaded. */
RvtResult rvtiYCbCrToRGB_JPEG_8u_P3R(const uint8_t* const pSrc[3], int32_t srcStep,
                                     uint8_t* const pDst[3], int32_t dstStep,
                                     ImageSize roiSize);
/* P3 YCbCr to 16-bit 555 / 565 RGB or BGR words, InvSubtractive. */
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
/* P4 YCCK to C4 / P4 CMYK: InvSubtractive, then 255 - x; K copied.  Threaded. */
RvtResult rvtiYCCKToCMYK_JPEG_8u_P4C4R(const uint8_t* const pSrc[4], int32_t srcStep,
                                       uint8_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiYCCKToCMYK_JPEG_8u_P4R(const uint8_t* const pSrc[4], int32_t srcStep,
                                     uint8_t* const pDst[4], int32_t dstStep,
                                     ImageSize roiSize);
/* P3 YCbCr with 2x2 chroma to C3 / C4 (byte 3 = aval) RGB / BGR, InvHighHalf16,
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
/* P3 YCbCr with 2x1 chroma to C3 / C4 (byte 3 = aval) RGB / BGR, InvHighHalf16,
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
/* Packed 4:2:2 (Y0 Cb Y1 Cr per pixel pair) to C3 RGB, Inv422Packed.  Checks:
 * pSrc, pDst null; then width < 1 or height == 0 (rvtStatusSize).  Steps
 * are not checked (a negative step walks rows upwards) and a negative
 * height converts nothing.  An odd width converts its last pixel from the
 * Y0, Cb and Cr of its pair, so source rows hold whole pairs.  Threaded. */
RvtResult rvtiYCbCr422ToRGB_JPEG_8u_C2C3R(const uint8_t* pSrc, int32_t srcStep,
                                          uint8_t* pDst, int32_t dstStep, ImageSize roiSize);

/* ------------------------------------------------------------- chroma sampling */

/* Threading: the region forms DownH2V1, DownH2V2 and UpH2V2 are threaded,
 * counting the pixels of the destination region; UpH2V1 and the four row
 * forms run on the calling thread. */

/* Down-sampling of a whole region by 2 horizontally (threaded):
 *   dst(i, y) = (src(2i, y) + src(2i+1, y) + 1) >> 1.
 * The destination size sets the work: 2*dstRoiSize.width samples of each of
 * dstRoiSize.height source rows are read; srcRoiSize is only checked to be
 * positive.  Checks: pSrc, srcStep, srcRoiSize, pDst, dstStep, then
 * dstRoiSize width before height. */
RvtResult rvtiSampleDownH2V1_JPEG_8u_C1R(const uint8_t* pSrc, int32_t srcStep,
                                         ImageSize srcRoiSize, uint8_t* pDst,
                                         int32_t dstStep, ImageSize dstRoiSize);
/* Down-sampling of a whole region by 2 in both directions (threaded):
 *   dst(i, y) = (src(2i, 2y) + src(2i+1, 2y) + src(2i, 2y+1)
 *                + src(2i+1, 2y+1) + 3) >> 2,
 * the mean rounded up.  Reads 2*dstRoiSize.height source rows of
 * 2*dstRoiSize.width samples; sizes and checks as for H2V1. */
RvtResult rvtiSampleDownH2V2_JPEG_8u_C1R(const uint8_t* pSrc, int32_t srcStep,
                                         ImageSize srcRoiSize, uint8_t* pDst,
                                         int32_t dstStep, ImageSize dstRoiSize);
/* One row down by 2 with a box filter whose bias alternates 0, 1, 0, ...
 * from the first output: dst[i] = (src[2i] + src[2i+1] + (i & 1)) >> 1.
 * Writes ceil(srcWidth/2) samples; an odd srcWidth reads the padding sample
 * src[srcWidth].  Checks: both pointers (null: rvtStatusNullPtr), then
 * srcWidth < 1 (rvtStatusSize). */
RvtResult rvtiSampleDownRowH2V1_Box_JPEG_8u_C1(const uint8_t* pSrc, int32_t srcWidth,
                                               uint8_t* pDst);
/* One row down by 2 in both directions from an upper (pSrc1) and a lower
 * (pSrc2) row, bias alternating 1, 2, 1, ... from the first output:
 *   dst[i] = (u[2i] + u[2i+1] + l[2i] + l[2i+1] + 1 + (i & 1)) >> 2.
 * Writes ceil(srcWidth/2) samples; an odd srcWidth reads the padding sample
 * of each row.  Checks: the three pointers, then srcWidth. */
RvtResult rvtiSampleDownRowH2V2_Box_JPEG_8u_C1(const uint8_t* pSrc1, const uint8_t* pSrc2,
                                               int32_t srcWidth, uint8_t* pDst);
/* Up-sampling of a whole region by 2 horizontally with the 3:1 triangle
 * filter, edges not replicated:
 *   dst(2i, y) = (3 src(i, y) + src(i-1, y) + 1) >> 2,
 *   dst(2i+1, y) = (3 src(i, y) + src(i+1, y) + 2) >> 2
 * for every destination sample, so samples -1 .. dstRoiSize.width/2 of each
 * source row are read: the caller provides one readable sample left of the
 * region and, for an even destination width, one right of it (replicated
 * edges, say).  Runs on the calling thread; checks as for the down forms. */
RvtResult rvtiSampleUpH2V1_JPEG_8u_C1R(const uint8_t* pSrc, int32_t srcStep,
                                       ImageSize srcRoiSize, uint8_t* pDst,
                                       int32_t dstStep, ImageSize dstRoiSize);
/* Up-sampling of a whole region by 2 in both directions (threaded).  Output
 * row r uses near row n = r/2 and far row f = n-1 (r even) or n+1 (r odd),
 * column sums c[j] = 3 n[j] + f[j], and
 *   dst[2i] = (3 c[i] + c[i-1] + 8) >> 4, dst[2i+1] = (3 c[i] + c[i+1] + 7) >> 4
 * for every output, edges not replicated: source rows -1 .. dstHeight/2 and
 * columns -1 .. dstWidth/2 are read, so the region needs a one-sample margin
 * around it (the right and bottom ones only for even destination sizes). */
RvtResult rvtiSampleUpH2V2_JPEG_8u_C1R(const uint8_t* pSrc, int32_t srcStep,
                                       ImageSize srcRoiSize, uint8_t* pDst,
                                       int32_t dstStep, ImageSize dstRoiSize);
/* One row up by 2 with the triangle filter, edges replicated: writes
 * 2*srcWidth samples, reads srcWidth.  dst[0] = src[0], dst[2w-1] = src[w-1],
 * the others as in rvtiSampleUpH2V1_JPEG_8u_C1R.  Checks: both pointers,
 * then srcWidth. */
RvtResult rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(const uint8_t* pSrc, int32_t srcWidth,
                                                  uint8_t* pDst);
/* One row up by 2 in both directions from the near (pSrc1) and far (pSrc2)
 * source rows, edges replicated: with c[j] = 3 near[j] + far[j],
 * dst[0] = (4 c[0] + 8) >> 4, dst[2w-1] = (4 c[w-1] + 7) >> 4, the others
 * as in rvtiSampleUpH2V2_JPEG_8u_C1R.  Writes 2*srcWidth samples, reads
 * srcWidth of each row.  Checks: the three pointers, then srcWidth. */
RvtResult rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(const uint8_t* pSrc1, const uint8_t* pSrc2,
                                                  int32_t srcWidth, uint8_t* pDst);

/* ------------------------------------------------------------- Huffman tables and states */

/* Huffman tables as the entropy coders use them, and the bit positions that
 * span calls.  All four are flat byte blocks without pointers: size them
 * with ...GetBufSize, build them in place with ...Init (or let ...InitAlloc
 * allocate through rvtMalloc; release with the matching ...Free), copy them
 * freely.  A built spec is read-only and may be shared between threads; a
 * state belongs to one stream.
 *
 * Tables come as a DHT segment carries them: bits[16] (bits[i] = number of
 * codes of length i+1) and vals (sum of bits symbols, at most 256).  Codes
 * are assigned canonically.  Layouts (little-endian):
 *   EncodeHuffmanSpec   1024 bytes: uint32 entry[256] by symbol,
 *                       (length << 16) | code; 0 = symbol not coded.
 *   DecodeHuffmanSpec   1644 bytes: uint16 values[256]; uint32 lookup[256]
 *                       by the next 8 bits, symbol | (length << 16) for codes
 *                       up to 8 bits, 0 otherwise; uint16 minCode[18],
 *                       maxCode[18] (0xFFFF = no code of that length),
 *                       valueIndex[18], indexed by length 1..16.
 * Specs filled or altered by hand are read field by field, the same way on
 * every processor: an encoder entry's length is bits 16..23 (0 or above 16:
 * no code) and its code the low `length` bits, whatever the bits above
 * them hold; a lookup entry's symbol is bits 0..7 and its length bits
 * 16..23 (1..8, else the code is searched by length); symbols are the low 8
 * bits of values[].  Other bits are ignored.
 *   EncodeHuffmanState  1048 bytes: uint64 accumulator (pending bits
 *                       left-aligned under bit 24), int32 pending-bit count
 *                       (0..7), uint32 end-of-band run, uint32 correction-bit
 *                       count, uint8 correction bits[1024], 4 bytes padding.
 *   DecodeHuffmanState  24 bytes: uint64 accumulator (the count valid bits
 *                       in its low bits, oldest highest), int32 valid-bit
 *                       count (0..32), uint32 end-of-band run, uint32
 *                       coefficients done, 4 bytes padding. */
typedef struct EncodeHuffmanSpec EncodeHuffmanSpec;
typedef struct DecodeHuffmanSpec DecodeHuffmanSpec;
typedef struct EncodeHuffmanState EncodeHuffmanState;
typedef struct DecodeHuffmanState DecodeHuffmanState;

/* Byte sizes of the four objects: 1024, 1644, 1048 and 24. */
RvtResult rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u(int* pSize);
RvtResult rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u(int* pSize);
RvtResult rvtiEncodeHuffmanStateGetBufSize_JPEG_8u(int* pSize);
RvtResult rvtiDecodeHuffmanStateGetBufSize_JPEG_8u(int* pSize);

/* Builds an encoder spec.  rvtStatusHuffTable for more than 256 codes, or a
 * code that would be all 1-bits or overflow its length (the object is then
 * left partly built).  A repeated symbol keeps its later code. */
RvtResult rvtiEncodeHuffmanSpecInit_JPEG_8u(const uint8_t* pBits, const uint8_t* pVals,
                                            EncodeHuffmanSpec* pSpec);
/* Builds a decoder spec.  rvtStatusHuffTable for more than 256 codes; an
 * over-full table is accepted unless its 8-bit lookup would run past one
 * entry beyond its end (that one entry lands on minCode[0..1]). */
RvtResult rvtiDecodeHuffmanSpecInit_JPEG_8u(const uint8_t* pBits, const uint8_t* pVals,
                                            DecodeHuffmanSpec* pSpec);
/* Allocate and build.  A failed allocation gives rvtStatusNullPtr and stores
 * nothing; on rvtStatusHuffTable the (incomplete) object is still stored in
 * *ppSpec and must be released with the matching Free. */
RvtResult rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(const uint8_t* pBits, const uint8_t* pVals,
                                                 EncodeHuffmanSpec** ppSpec);
RvtResult rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(const uint8_t* pBits, const uint8_t* pVals,
                                                 DecodeHuffmanSpec** ppSpec);
/* Zero every field (the encoders also do this after a flush). */
RvtResult rvtiEncodeHuffmanStateInit_JPEG_8u(EncodeHuffmanState* pState);
RvtResult rvtiDecodeHuffmanStateInit_JPEG_8u(DecodeHuffmanState* pState);
/* Allocate and zero; a failed allocation gives rvtStatusNullPtr. */
RvtResult rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(EncodeHuffmanState** ppState);
RvtResult rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(DecodeHuffmanState** ppState);
/* Release an object from the matching InitAlloc (null gives rvtStatusNullPtr;
 * any other pointer goes to rvtFree unchecked). */
RvtResult rvtiEncodeHuffmanSpecFree_JPEG_8u(EncodeHuffmanSpec* pSpec);
RvtResult rvtiDecodeHuffmanSpecFree_JPEG_8u(DecodeHuffmanSpec* pSpec);
RvtResult rvtiEncodeHuffmanStateFree_JPEG_8u(EncodeHuffmanState* pState);
RvtResult rvtiDecodeHuffmanStateFree_JPEG_8u(DecodeHuffmanState* pState);


/* ------------------------------------------------------------- baseline Huffman coding */

/* One 8x8 block of quantized coefficients (natural order) to baseline
 * Huffman bits and back; the zig-zag order, the DC prediction, run lengths,
 * byte stuffing and the bit position between calls are handled here.
 *
 * Encoders append to pDst[0..dstLenBytes) at *pDstCurrPos and advance it.
 * A symbol without a code gives rvtStatusHuffTable (as does AC category 16
 * after a run of 15, which has no symbol); a full destination gives
 * rvtStatusOutOfBuffer with the bytes that fit stored and *pDstCurrPos
 * advanced, the state holding the last symbol that fitted (re-encode from a
 * copy of the state).  A call with bFlushState set writes nothing else: it
 * completes a pending byte with 1-bits and resets the state (end of a scan
 * or restart interval).  A negative *pDstCurrPos gives rvtStatusBadArg.
 *
 * Decoders read pSrc[0..srcLenBytes) from *pSrcCurrPos, remove stuffing,
 * pass over fill bytes (FF FF) and stop at a marker, which they store in
 * *pMarker and pass; with *pMarker non-zero they read nothing more (clear it
 * and the state after handling the marker).  rvtStatusOutOfBuffer: the
 * source ran out where bits were needed (the position stays at the end:
 * supply more data and retry from a saved state; the source ending right
 * after an 0xFF also gives it, that byte consumed); rvtStatusHuffData: no
 * code of up to 16 bits matches (a table that is not a prefix code may also
 * point outside its values), or bits are needed past a marker.  A negative
 * *pSrcCurrPos gives rvtStatusBadArg.
 *
 * States may be copied, saved and restored freely; only their valid bits are
 * read (counts are taken modulo 8 by the encoders and clamped to 0..32 by
 * the decoders), and the accumulators are stored with zeros beside them. */
RvtResult rvtiEncodeHuffman8x8_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst, int dstLenBytes,
                                             int* pDstCurrPos, int16_t* pLastDC,
                                             const EncodeHuffmanSpec* pDcTable,
                                             const EncodeHuffmanSpec* pAcTable,
                                             EncodeHuffmanState* pEncHuffState, int bFlushState);
/* Zeroes the block, then decodes it (the state's coefficients-done field
 * gets 64 minus the count of positions left, which exceeds 64 when a run
 * passes the end).  A coefficient whose run carries it to zig-zag 64..71 is
 * stored at 63; one beyond that gives rvtStatusErr.  srcLenBytes 0 is
 * accepted, < 0 gives rvtStatusBadArg. */
RvtResult rvtiDecodeHuffman8x8_JPEG_1u16s_C1(const uint8_t* pSrc, int srcLenBytes,
                                             int* pSrcCurrPos, int16_t* pDst, int16_t* pLastDC,
                                             int* pMarker, const DecodeHuffmanSpec* pDcTable,
                                             const DecodeHuffmanSpec* pAcTable,
                                             DecodeHuffmanState* pDecHuffState);
/* One difference value (no prediction): its category's code and extra bits
 * (category 16, -32768, has none). */
RvtResult rvtiEncodeHuffmanOne_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst, int dstLenBytes,
                                             int* pDstCurrPos,
                                             const EncodeHuffmanSpec* pEncHuffTable,
                                             EncodeHuffmanState* pEncHuffState, int bFlushState);
/* Symbols 16 and above decode to -32768 (32768 in 16 bits) with no extra
 * bits.  srcLenBytes < 1 gives rvtStatusSize. */
RvtResult rvtiDecodeHuffmanOne_JPEG_1u16s_C1(const uint8_t* pSrc, int srcLenBytes,
                                             int* pSrcCurrPos, int16_t* pDst, int* pMarker,
                                             const DecodeHuffmanSpec* pDecHuffTable,
                                             DecodeHuffmanState* pDecHuffState);
/* Block encoder at a bit position, no state and no bound: the byte at
 * *pDstBitsLen / 8 keeps its top (*pDstBitsLen % 8) bits, the block's bits
 * follow (stuffed), a last partial byte is stored with zero low bits, and
 * *pDstBitsLen becomes the new bit position.  513 bytes from the start byte
 * always suffice.  Symbols without a code add no bits and the call returns
 * rvtStatusOk; only a negative position gives rvtStatusBadArg. */
RvtResult rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst,
                                                    int* pDstBitsLen, int16_t* pLastDC,
                                                    const EncodeHuffmanSpec* pDcTable,
                                                    const EncodeHuffmanSpec* pAcTable);
/* Block decoder with the bit accumulator in the caller's variables
 * (*pPrefetchedBits holds *pNumValidPrefetchedBits valid bits, 0..32, in its
 * low bits) and no source bound: it reads from byte *pSrcBitsLen / 8 and
 * stops at a marker, so the data must end with one.  *pSrcBitsLen comes back
 * as 8 times the next byte to read (the pending bits live in the
 * accumulator), so positions it returns are whole bytes; a position inside
 * a byte reads from that byte's start. */
RvtResult rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(
    const uint8_t* pSrc, int* pSrcBitsLen, int16_t* pDst, int16_t* pLastDC, int* pMarker,
    uint32_t* pPrefetchedBits, int* pNumValidPrefetchedBits, const DecodeHuffmanSpec* pDcTable,
    const DecodeHuffmanSpec* pAcTable);

/* ------------------------------------------------------------- TIFF rows */
/* PackBits (TIFF compression 32773) coding of one row.  Packet header n:
 * 0..127 copies the next n + 1 bytes, -127..-1 repeats the next byte 1 - n
 * times, -128 does nothing.  Checks: pointers null (rvtStatusNullPtr), a
 * length below 1 or a negative position (rvtStatusBadArg). */

/* Codes all srcLenBytes bytes, appending packets at pDst[*pDstCurrPos].  Two
 * equal bytes start a replicate packet (at most 128 bytes); a literal ends
 * at the end of the row, after 128 bytes, where three equal bytes begin, or
 * before a pair of equal bytes that ends the row.  When the next packet does
 * not fit in dstLenBytes: rvtStatusRowEnd, *pDstCurrPos after the last whole
 * packet (the packets written are the row's first ones; to finish, give a
 * larger buffer and code the row again from the same position). */
RvtResult rvtiPackBitsRow_TIFF_8u_C1(const uint8_t* pSrc, int srcLenBytes, uint8_t* pDst,
                                     int* pDstCurrPos, int dstLenBytes);
/* Decodes whole packets from pSrc[*pSrcCurrPos] until dstLenBytes bytes are
 * written (rvtStatusOk, *pSrcCurrPos after the last packet used; -128
 * headers after it are left for the next row).  Packets are never cut:
 * rvtStatusRowEnd, nothing of that packet written, when the source ends
 * between packets (*pSrcCurrPos = srcLenBytes) or a packet would run past
 * the source or the row (*pSrcCurrPos after its header: the refused header
 * is the byte before it).  A replicate header that is the source's last
 * byte is refused: nothing outside pSrc[0..srcLenBytes-1] is ever read.  To
 * resume a row cut short by the source, call again with the position the
 * row started at, the same destination and the longer source: the row
 * decodes to the same bytes and position. */
RvtResult rvtiUnpackBitsRow_TIFF_8u_C1(const uint8_t* pSrc, int* pSrcCurrPos, int srcLenBytes,
                                       uint8_t* pDst, int dstLenBytes);
/* pDst[i] = pSrc[0][i] << 8 | pSrc[1][i].  Checks: pSrc, pDst null
 * (rvtStatusNullPtr); len below 1 (rvtStatusStep, as TIFF coders expect);
 * then a null plane inside pSrc (rvtStatusNullPtr).  Any alignment. */
RvtResult rvtiJoinRow_TIFF_8u16u_C1(const uint8_t* const pSrc[2], uint16_t* pDst, int len);
/* pDst[0][i] = pSrc[i] >> 8, pDst[1][i] = pSrc[i] & 0xFF; checks as JoinRow
 * (pSrc, pDst, len, then the planes inside pDst). */
RvtResult rvtiSplitRow_TIFF_16u8u_C1(const uint16_t* pSrc, uint8_t* const pDst[2], int len);

/* ------------------------------------------------ JPEG XR photo core transform */
/* The 4x4 photo core transform (the first-level block transform of JPEG XR:
 * no DC transform, no overlap filtering), in place on every 4x4 block of a
 * region, forward (Fwd) or inverse (Inv).  Forward then inverse restores
 * integer samples bit for bit when nothing overflows; a flat block of v
 * becomes 4v at position 0 and zeros.  16s: every intermediate, the
 * argument of every shift included (3x + 4, x + 1, A - B), wraps to 16
 * bits and each shift acts on that sign-extended 16-bit value; 32s: 32-bit
 * wrapping arithmetic; 32f: the network with exact rational lifting
 * factors and no rounding terms.  Elements may sit at any address.
 *
 * Region forms.  Checks, in order: pSrcDst null (rvtStatusNullPtr); width,
 * then height below 1 (rvtStatusSize); srcDstStep below one row of the
 * region in bytes (rvtStatusStep); width or height not a multiple of 4
 * (rvtStatusSize). */
RvtResult rvtiPCTFwd_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiPCTInv_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiPCTFwd_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiPCTInv_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiPCTFwd_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiPCTInv_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep, ImageSize roiSize);
/* Macroblock forms: 16x16 (16 blocks), 8 wide by 16 high (8 blocks) and 8x8
 * (4 blocks).  Checks: pSrcDst null (rvtStatusNullPtr), then srcDstStep
 * below one row of the macroblock in bytes, 16 or 8 elements
 * (rvtStatusStep). */
RvtResult rvtiPCTFwd16x16_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv16x16_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd8x16_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv8x16_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd8x8_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv8x8_JPEGXR_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd16x16_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv16x16_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd8x16_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv8x16_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd8x8_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv8x8_JPEGXR_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd16x16_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv16x16_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd8x16_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv8x16_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTFwd8x8_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep);
RvtResult rvtiPCTInv8x8_JPEGXR_32f_C1IR(float* pSrcDst, int32_t srcDstStep);

/* ------------------------------------------------- BC1 to BC5 textures */
/* Each decodes a whole region from its blocks: ceil(width / 4) blocks per
 * block row, ceil(height / 4) block rows, tightly packed in row-major order
 * (the whole blocks of the right and bottom edges must be present; their
 * pixels outside the region are decoded and not stored).  Pixel (x, y) goes
 * to pDst + y * dstStep.  Checks, in order: pSrc or pDst null
 * (rvtStatusNullPtr); dstStep 0 (rvtStatusStep: only 0 is refused, a
 * negative step walks the destination upwards); width or height below 1
 * (rvtStatusSize).  Nothing is written when a check fails.  Colour
 * interpolants truncate ((2a + b) / 3); alpha and channel interpolants
 * round ((6a + b + 3) / 7, (4a + b + 2) / 5).  A region whose blocks and
 * pixels together exceed the largest cache, with pDst and dstStep multiples
 * of 64, is written with non-temporal stores (same bytes, not left in
 * cache). */

/* BC1/DXT1, 8-byte blocks, to RGBA.  c0 <= c1 selects three colours: entry
 * 2 is (a + b) >> 1 and entry 3 opaque white (255, 255, 255, 255). */
RvtResult rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R(const uint8_t* pSrc, uint8_t* pDst,
                                                     int32_t dstStep, ImageSize roiSize);
/* BC2/DXT3, 16-byte blocks, to RGBA: four colours always; alpha is the
 * 4-bit value times 16 (0 to 240). */
RvtResult rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R(const uint8_t* pSrc, uint8_t* pDst,
                                                     int32_t dstStep, ImageSize roiSize);
/* BC3/DXT5, 16-byte blocks, to RGBA: four colours always; alpha from the
 * eight-entry palette of a0, a1 (six interpolants when a0 > a1, else four
 * and 0, 255). */
RvtResult rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R(const uint8_t* pSrc, uint8_t* pDst,
                                                     int32_t dstStep, ImageSize roiSize);
/* BC4, 8-byte blocks, to one channel, by the DXT5 alpha rule. */
RvtResult rvtiTextureDecodeBlock_BC4_8u_C1R(const uint8_t* pSrc, uint8_t* pDst, int32_t dstStep,
                                            ImageSize roiSize);
/* BC5, 16-byte blocks (a BC4 block for red, then one for green), to two
 * channels R, G. */
RvtResult rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R(const uint8_t* pSrc, uint8_t* pDst,
                                                  int32_t dstStep, ImageSize roiSize);
/* ------------------------------------------------------------ lossless JPEG */
/* Prediction of one row of one component (16-bit samples, already shifted
 * right by the point transform) and its undoing; all arithmetic is modulo
 * 65536.  Predictors 1..7 read Ra (left), Rb (above), Rc (above left) as
 * signed 16-bit values with sums in 32 bits: Ra, Rb, Rc, Ra + Rb - Rc,
 * Ra + ((Rb - Rc) >> 1), Rb + ((Ra - Rc) >> 1), (Ra + Rb) >> 1, each shift
 * keeping bits 1..16 of its operand (at P = 16 samples from 32768 on read as
 * negative, so those predictions differ from an unsigned reading; see the
 * lossless example codec for how a coder interoperates).  The first column
 * of a row with a row above always predicts from the sample above.  Rows
 * must not overlap one another.  Checks: null rows (rvtStatusNullPtr),
 * width below 1 (rvtStatusSize), then P outside 2..16 or Pt below 0 (first
 * rows; Pt is not compared with P) or a predictor outside 1..7
 * (rvtStatusBadArg). */

/* First row: pDst[0] = pSrc[0] - 2^(P - Pt - 1) (shift count modulo 32),
 * pDst[i] = pSrc[i] - pSrc[i - 1]. */
RvtResult rvtiDiffPredFirstRow_JPEG_16s_C1(const int16_t* pSrc, int16_t* pDst, int width, int P,
                                           int Pt);
/* pDst[0] = pSrc[0] - pPrevRow[0], pDst[i] = pSrc[i] - prediction. */
RvtResult rvtiDiffPredRow_JPEG_16s_C1(const int16_t* pSrc, const int16_t* pPrevRow,
                                      int16_t* pDst, int width, int predictor);
/* Inverse of DiffPredFirstRow. */
RvtResult rvtiReconstructPredFirstRow_JPEG_16s_C1(const int16_t* pSrc, int16_t* pDst, int width,
                                                  int P, int Pt);
/* Inverse of DiffPredRow, left to right, each sample truncated to 16 bits
 * before it serves as Ra of the next; pPrevRow is the reconstructed row
 * above. */
RvtResult rvtiReconstructPredRow_JPEG_16s_C1(const int16_t* pSrc, const int16_t* pPrevRow,
                                             int16_t* pDst, int width, int predictor);
/* Huffman coding of nSrcLen columns of nSrcRows interleaved difference rows
 * (component j with pEncHuffTable[j]; components past the fourth are
 * ignored): per difference its category's code, then 1..15 extra bits
 * (category 16, the difference -32768, has none).  Bit writer, stuffing,
 * buffer-full behaviour and the flush (bFlushState non-zero: pad with
 * 1-bits, reset the state; nothing else is looked at) are those of
 * rvtiEncodeHuffman8x8_JPEG_16s1u_C1.  Checks in order: pDst, nDstLenBytes
 * below 1 (rvtStatusSize), pDstCurrPos, pEncHuffState, a negative position
 * (rvtStatusBadArg); then pSrc, nSrcLen or nSrcRows below 1
 * (rvtStatusSize), pEncHuffTable, and each coded component's row and
 * table.  A category without a code: rvtStatusHuffTable. */
RvtResult rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(const int16_t* const pSrc[4], int nSrcLen,
                                               int nSrcRows, uint8_t* pDst, int nDstLenBytes,
                                               int* pDstCurrPos,
                                               const EncodeHuffmanSpec* const pEncHuffTable[4],
                                               EncodeHuffmanState* pEncHuffState,
                                               int bFlushState);
/* Decoding of the same: symbol 0 gives 0, 1..15 read that many bits,
 * 16 and above give 32768 (-32768 as int16) with no bits.  Reader, fill
 * bytes and markers as rvtiDecodeHuffman8x8_JPEG_1u16s_C1; the first failing
 * read ends the call with its status, values decoded before it stay.
 * Checks in order: pSrc, nSrcLenBytes below 1 (rvtStatusSize), pSrcCurrPos,
 * pDst, nDstLen or nDstRows below 1 (rvtStatusSize), pMarker,
 * pDecHuffTable, pDecHuffState, each coded component's row and table, then
 * a negative position (rvtStatusBadArg). */
RvtResult rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(const uint8_t* pSrc, int nSrcLenBytes,
                                               int* pSrcCurrPos, int16_t* const pDst[4],
                                               int nDstLen, int nDstRows, int* pMarker,
                                               const DecodeHuffmanSpec* const pDecHuffTable[4],
                                               DecodeHuffmanState* pDecHuffState);

/* ------------------------------------------------- JPEG 2000 wavelets */
/* One level of the wavelet transform.  Bands are ordered LL, LH, HL, HH
 * (0..3).  phase 0: the first sample of the interleaved signal has an even
 * canvas coordinate (low-pass); non-zero: odd (high-pass).  16s and 32s
 * elements sit at addresses aligned to their size.
 * Reversible 5/3: d = x_odd - ((x_left + x_right) >> 1), s = x_even +
 * ((d_left + d_right + 2) >> 2), `>>` arithmetic (floor); sums in 32 bits
 * (wrapping for 32s); every coefficient, the carried high-pass value
 * included, is the stored value, truncated to 16 bits for 16s (no
 * saturation).
 *
 * Passes (Row: along the rows; Col: down the columns, the interleaved
 * signal having 2 x height rows): the size is that of each band.  They
 * never extend borders; they read exactly these samples beside the signal,
 * which the caller supplies: forward, 2 before and 1 after (phase 0) or 1
 * before and 2 after (phase 1); inverse, high[-1], low[width] and
 * high[width] (phase 0) or low[-1], high[-1] and high[width] (phase 1).
 * Checks: the three pointers (rvtStatusNullPtr), the three steps
 * (rvtStatusStep), then the size (rvtStatusSize).
 *
 * Column lifts advance a line-based vertical transform by one row pair:
 * forward, pDstHigh = src1 - ((src0 + src2) >> 1), pDstLow = src0 +
 * ((highPrev + high + 2) >> 2); inverse, pDstEven = low - ((highPrev +
 * high + 2) >> 2), pDstOdd = highPrev + ((evenPrev + even) >> 1).  Checks:
 * the pointers, then width below 1 (rvtStatusSize).
 *
 * Whole levels take the tile-component rectangle (only the parities of x
 * and y matter) and extend borders themselves (whole-sample symmetric).
 * Forward: vertical pass first, then horizontal; the inverse undoes the
 * horizontal pass first.  Length 1: the sample is kept (even coordinate) or
 * doubled (odd); the inverse halves it (>> 1).  Length 2: high = x_odd -
 * x_even, low = x_even + ((high + 1) >> 1), low first; the inverse x_even =
 * low - ((high + 1) >> 1), x_odd = high + x_even.  In place (C1IR), the
 * bands lie in the quadrants: low-pass coefficients (the samples of even
 * coordinate) first in each row, low-pass rows first.  C1R: the region is
 * copied into pBuffer at a pitch of (bytes x width + 31) & ~31 bytes and
 * the bands are copied to or from the four planes with sizes from width and
 * height alone (LL ceil(w/2) x ceil(h/2), LH ceil(w/2) x floor(h/2), HL
 * floor(w/2) x ceil(h/2), HH floor(w/2) x floor(h/2)), whatever the
 * origin's parity.  pBuffer holds at least the bytes that the matching
 * rvtiWTGetBufSize_ export returns (any alignment) and may not be null;
 * its content afterwards is scratch (it differs between processors).
 * Checks, in place: pSrcDst (null), its step, pTileRect, pBuffer (null),
 * then width or height below 1 (rvtStatusSize).  C1R forward: pSrc, the
 * band arrays, pTileRect, pBuffer (null); srcStep; the four band pointers;
 * the four band steps; the size.  C1R inverse mirrors it: the arrays, pDst,
 * pTileRect, pBuffer (null); dstStep; the band pointers; the band steps;
 * the size.
 * rvtiWTGetBufSize_*: the work-buffer bytes; C1IR 5/3: 0 when width and
 * height are both below 3, else max(width, height) x bytes + 4 x bytes;
 * C1R: that plus the pitch times the height.  Checks: the two pointers;
 * a size outside 0..2^32-1 (sides near INT32_MAX, negative sides) gives
 * rvtStatusSize and stores nothing, and the whole-level functions refuse a
 * tile whose work buffer would be that large with rvtStatusSize, after
 * their other checks: every size is computed in 64 bits. */
RvtResult rvtiWTFwdRow_B53_JPEG2K_16s_C1R(const int16_t* pSrc, int32_t srcStep, int16_t* pDstLow, int32_t dstLowStep, int16_t* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvRow_B53_JPEG2K_16s_C1R(const int16_t* pSrcLow, int32_t srcLowStep, const int16_t* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, int16_t* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdCol_B53_JPEG2K_16s_C1R(const int16_t* pSrc, int32_t srcStep, int16_t* pDstLow, int32_t dstLowStep, int16_t* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvCol_B53_JPEG2K_16s_C1R(const int16_t* pSrcLow, int32_t srcLowStep, const int16_t* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, int16_t* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdColLift_B53_JPEG2K_16s_C1(const int16_t* pSrc0, const int16_t* pSrc1, const int16_t* pSrc2, int16_t* pDstLow, const int16_t* pSrcHighPrev, int16_t* pDstHigh, int32_t width);
RvtResult rvtiWTInvColLift_B53_JPEG2K_16s_C1(const int16_t* pSrcLow, const int16_t* pSrcHighPrev, const int16_t* pSrcHigh, const int16_t* pSrcEvenPrev, int16_t* pDstOdd, int16_t* pDstEven, int32_t width);
RvtResult rvtiWTFwd_B53_JPEG2K_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTFwd_B53_JPEG2K_16s_C1R(const int16_t* pSrc, int32_t srcStep, const ImageRect* pTileRect, int16_t* const pDst[4], const int32_t dstStep[4], uint8_t* pBuffer);
RvtResult rvtiWTInv_B53_JPEG2K_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTInv_B53_JPEG2K_16s_C1R(const int16_t* const pSrc[4], const int32_t srcStep[4], int16_t* pDst, int32_t dstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR(const ImageRect* pTileRect, uint32_t* pSize);
RvtResult rvtiWTGetBufSize_B53_JPEG2K_16s_C1R(const ImageRect* pTileRect, uint32_t* pSize);
RvtResult rvtiWTFwdRow_B53_JPEG2K_32s_C1R(const int32_t* pSrc, int32_t srcStep, int32_t* pDstLow, int32_t dstLowStep, int32_t* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvRow_B53_JPEG2K_32s_C1R(const int32_t* pSrcLow, int32_t srcLowStep, const int32_t* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, int32_t* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdCol_B53_JPEG2K_32s_C1R(const int32_t* pSrc, int32_t srcStep, int32_t* pDstLow, int32_t dstLowStep, int32_t* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvCol_B53_JPEG2K_32s_C1R(const int32_t* pSrcLow, int32_t srcLowStep, const int32_t* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, int32_t* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdColLift_B53_JPEG2K_32s_C1(const int32_t* pSrc0, const int32_t* pSrc1, const int32_t* pSrc2, int32_t* pDstLow, const int32_t* pSrcHighPrev, int32_t* pDstHigh, int32_t width);
RvtResult rvtiWTInvColLift_B53_JPEG2K_32s_C1(const int32_t* pSrcLow, const int32_t* pSrcHighPrev, const int32_t* pSrcHigh, const int32_t* pSrcEvenPrev, int32_t* pDstOdd, int32_t* pDstEven, int32_t width);
RvtResult rvtiWTFwd_B53_JPEG2K_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTFwd_B53_JPEG2K_32s_C1R(const int32_t* pSrc, int32_t srcStep, const ImageRect* pTileRect, int32_t* const pDst[4], const int32_t dstStep[4], uint8_t* pBuffer);
RvtResult rvtiWTInv_B53_JPEG2K_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTInv_B53_JPEG2K_32s_C1R(const int32_t* const pSrc[4], const int32_t srcStep[4], int32_t* pDst, int32_t dstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(const ImageRect* pTileRect, uint32_t* pSize);
RvtResult rvtiWTGetBufSize_B53_JPEG2K_32s_C1R(const ImageRect* pTileRect, uint32_t* pSize);

/* Irreversible 9/7, passes and column lifts.  Lifting steps alpha, beta,
 * gamma, delta, then low-pass x 1/K and high-pass x K.  Float: the
 * single-precision constants 0xBFCB0673, 0xBD5901AE, 0x3F620676,
 * 0x3EE31355, K 0x3F9D7658, 1/K 0x3F5019C3, each step (a + b) x c + v, sum
 * first, no fused multiply-add.  Fixed point (Q16): v + (((a + b) x C +
 * 32768) >> 16) with exact sums and products, C = -103949, -3472, 57862,
 * 29066, K 80621, 1/K 53274; every intermediate and result saturated to 16
 * bits (16s) or stored as its low 32 bits (32s).  The low-pass outputs of
 * a fixed-point row fuse delta and 1/K, ((d0 + d1) x 23627 + s x 53274 +
 * 32768) >> 16, except the row's last, which rounds twice (delta step,
 * then x 53274).  A forward row of one pair (width 1; a column pass of
 * height 1) applies the analysis filters directly (float taps 0.026748758,
 * -0.01686412, -0.078223266, 0.26686412, 0.602949 and 0.091271766,
 * -0.057543527, -0.59127176, 1.115087; Q16 taps 1753, -1105, -5126, 17489,
 * 39515 and 5982, -3771, -38749, 73078), summed outer taps first.
 * Forward passes read 4 samples before and 3 after (phase 0) or 3 and 4
 * (phase 1).  Inverse passes: the first step fused with the scaling, s = K
 * low - (delta/K)(high + high) (float 0x3EB8968E, Q16 23627), then high x
 * 1/K, gamma, beta and alpha steps with negated coefficients; a row of one
 * pair runs the same steps.  They read low[-1..width+1] and
 * high[-2..width+1] (phase 0) or low[-2..width] and high[-2..width+1]
 * (phase 1).
 * Forward column lift: p7 = lift(p0, p2; p1, alpha) (new high row at the
 * alpha stage), p4 = lift(p6, p7; p0, beta), p6 = lift(p3, p4; p6, gamma),
 * p3 = lift(p5, p6; p3, delta) x 1/K (low row final), p5 = p5 x K (high
 * row final); fixed point rounds the last two steps separately.  The
 * inverse undoes one forward call in the mirror order: p5 x 1/K, p3 x K,
 * p3 -= delta (p5 + p6), p6 -= gamma (p3 + p4), p0 = p4 - beta (p6 + p7),
 * p1 = p7 - alpha (p0 + p2), each as a lift with the negated coefficient.
 * Checks as for the 5/3 forms. */
RvtResult rvtiWTFwdRow_D97_JPEG2K_16s_C1R(const int16_t* pSrc, int32_t srcStep, int16_t* pDstLow, int32_t dstLowStep, int16_t* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvRow_D97_JPEG2K_16s_C1R(const int16_t* pSrcLow, int32_t srcLowStep, const int16_t* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, int16_t* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdColLift_D97_JPEG2K_16s_C1(const int16_t* p0, const int16_t* p1, const int16_t* p2, int16_t* p3, int16_t* p4, int16_t* p5, int16_t* p6, int16_t* p7, int32_t width);
RvtResult rvtiWTInvColLift_D97_JPEG2K_16s_C1(int16_t* p0, int16_t* p1, const int16_t* p2, int16_t* p3, const int16_t* p4, int16_t* p5, int16_t* p6, const int16_t* p7, int32_t width);
RvtResult rvtiWTFwdRow_D97_JPEG2K_32s_C1R(const int32_t* pSrc, int32_t srcStep, int32_t* pDstLow, int32_t dstLowStep, int32_t* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvRow_D97_JPEG2K_32s_C1R(const int32_t* pSrcLow, int32_t srcLowStep, const int32_t* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, int32_t* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdColLift_D97_JPEG2K_32s_C1(const int32_t* p0, const int32_t* p1, const int32_t* p2, int32_t* p3, int32_t* p4, int32_t* p5, int32_t* p6, int32_t* p7, int32_t width);
RvtResult rvtiWTInvColLift_D97_JPEG2K_32s_C1(int32_t* p0, int32_t* p1, const int32_t* p2, int32_t* p3, const int32_t* p4, int32_t* p5, int32_t* p6, const int32_t* p7, int32_t width);
RvtResult rvtiWTFwdRow_D97_JPEG2K_32f_C1R(const float* pSrc, int32_t srcStep, float* pDstLow, int32_t dstLowStep, float* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvRow_D97_JPEG2K_32f_C1R(const float* pSrcLow, int32_t srcLowStep, const float* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, float* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdCol_D97_JPEG2K_32f_C1R(const float* pSrc, int32_t srcStep, float* pDstLow, int32_t dstLowStep, float* pDstHigh, int32_t dstHighStep, ImageSize dstRoiSize, int32_t phase);
RvtResult rvtiWTInvCol_D97_JPEG2K_32f_C1R(const float* pSrcLow, int32_t srcLowStep, const float* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, float* pDst, int32_t dstStep, int32_t phase);
RvtResult rvtiWTFwdColLift_D97_JPEG2K_32f_C1(const float* p0, const float* p1, const float* p2, float* p3, float* p4, float* p5, float* p6, float* p7, int32_t width);
RvtResult rvtiWTInvColLift_D97_JPEG2K_32f_C1(float* p0, float* p1, const float* p2, float* p3, const float* p4, float* p5, float* p6, const float* p7, int32_t width);

/* Irreversible 9/7 whole levels (16s, 32s): as the 5/3 ones (rectangle, parities, quadrants, four-plane
 * copies, checks), with the fixed-point 9/7 steps along every line of two
 * or more samples (4 samples of whole-sample symmetric extension; each
 * line's last low-pass output rounds twice, the others fuse delta and
 * 1/K); a line of one sample is kept or doubled (odd coordinate), halved
 * by the inverse.  Work buffer: 0 when width and height are both below 2,
 * else max(width, height) x bytes + 8 x bytes (C1IR), plus the pitch
 * times the height (C1R). */
RvtResult rvtiWTFwd_D97_JPEG2K_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTFwd_D97_JPEG2K_16s_C1R(const int16_t* pSrc, int32_t srcStep, const ImageRect* pTileRect, int16_t* const pDst[4], const int32_t dstStep[4], uint8_t* pBuffer);
RvtResult rvtiWTInv_D97_JPEG2K_16s_C1IR(int16_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTInv_D97_JPEG2K_16s_C1R(const int16_t* const pSrc[4], const int32_t srcStep[4], int16_t* pDst, int32_t dstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR(const ImageRect* pTileRect, uint32_t* pSize);
RvtResult rvtiWTGetBufSize_D97_JPEG2K_16s_C1R(const ImageRect* pTileRect, uint32_t* pSize);
RvtResult rvtiWTFwd_D97_JPEG2K_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTFwd_D97_JPEG2K_32s_C1R(const int32_t* pSrc, int32_t srcStep, const ImageRect* pTileRect, int32_t* const pDst[4], const int32_t dstStep[4], uint8_t* pBuffer);
RvtResult rvtiWTInv_D97_JPEG2K_32s_C1IR(int32_t* pSrcDst, int32_t srcDstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTInv_D97_JPEG2K_32s_C1R(const int32_t* const pSrc[4], const int32_t srcStep[4], int32_t* pDst, int32_t dstStep, const ImageRect* pTileRect, uint8_t* pBuffer);
RvtResult rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR(const ImageRect* pTileRect, uint32_t* pSize);
RvtResult rvtiWTGetBufSize_D97_JPEG2K_32s_C1R(const ImageRect* pTileRect, uint32_t* pSize);

/* ------------------------------------------- JPEG 2000 component transforms */
/* Three components: R, G, B interleaved or planes 0, 1, 2; Y, U/Cb, V/Cr in
 * planes 0, 1, 2.  Planar images share one row step.  Checks: every pointer
 * first (the interleaved pointer and the plane array with the planes inside
 * it, in argument order; rvtStatusNullPtr), then the steps
 * (rvtStatusStep), then the size (rvtStatusSize).  Elements may sit at any
 * address.
 * RCT: Y = (R + 2G + B) >> 2, U = B - G, V = R - G; inverse G = Y - ((U + V)
 * >> 2), R = V + G, B = U + G; sums in 32 bits (wrapping for 32s), 16s
 * results truncated, so forward then inverse restores every input.
 * ICT, float: the YCbCr matrix in single precision, each row summed left to
 * right ((c0 R + c1 G) + c2 B), no fused multiply-add.
 * ICT, 32s: Q14 with +8192 before the shift; 32-bit products and sums,
 * results stored as computed (not saturated).
 * ICT, 16s: Y = (S + 8192) >> 14 with S = 4899R + 9617G + 1868B, Cb and Cr
 * from the rounded differences B - Y, R - Y scaled by 9246 and 11686 (Q14),
 * 32-bit intermediates, each result saturated; the inverse uses the 32s
 * constants and saturates. */
RvtResult rvtiRCTFwd_JPEG2K_16s_C3P3R(const int16_t* pSrc, int32_t srcStep, int16_t* const pDst[3], int32_t dstStep, ImageSize roiSize);
RvtResult rvtiRCTFwd_JPEG2K_32s_C3P3R(const int32_t* pSrc, int32_t srcStep, int32_t* const pDst[3], int32_t dstStep, ImageSize roiSize);
RvtResult rvtiRCTFwd_JPEG2K_16s_P3IR(int16_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiRCTFwd_JPEG2K_32s_P3IR(int32_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiRCTInv_JPEG2K_16s_P3C3R(const int16_t* const pSrc[3], int32_t srcStep, int16_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiRCTInv_JPEG2K_32s_P3C3R(const int32_t* const pSrc[3], int32_t srcStep, int32_t* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiRCTInv_JPEG2K_16s_P3IR(int16_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiRCTInv_JPEG2K_32s_P3IR(int32_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiICTFwd_JPEG2K_32f_C3P3R(const float* pSrc, int32_t srcStep, float* const pDst[3], int32_t dstStep, ImageSize roiSize);
RvtResult rvtiICTFwd_JPEG2K_16s_P3IR(int16_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiICTFwd_JPEG2K_32s_P3IR(int32_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiICTFwd_JPEG2K_32f_P3IR(float* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiICTInv_JPEG2K_32f_P3C3R(const float* const pSrc[3], int32_t srcStep, float* pDst, int32_t dstStep, ImageSize roiSize);
RvtResult rvtiICTInv_JPEG2K_16s_P3IR(int16_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiICTInv_JPEG2K_32s_P3IR(int32_t* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);
RvtResult rvtiICTInv_JPEG2K_32f_P3IR(float* const pSrcDst[3], int32_t srcDstStep, ImageSize roiSize);

/* ---- MCU-level conversions with level shift
 * Additions designed by this library: one call turns one MCU of interleaved
 * pixels into the level-shifted 16-bit 8x8 blocks that the fused DCT
 * exports take, and back.  An MCU is 8x8 pixels (444), 16x8 (422: two luma
 * blocks side by side) or 16x16 (420: four luma blocks in raster order).
 * pDstMCU[c] / pSrcMCU[c] point to component c's blocks: consecutive
 * 64-element blocks in natural order, 1, 2 or 4 for luma (and for K, which
 * stays at full size), one for each chroma component.  Block pointers may
 * be at any address.
 * Every result equals the composition of this library's own exports on the
 * MCU, so every path agrees:
 * - forward: the whole-region conversion of the layout (444: the C3P3R /
 *   C4P4R conversion; 422 / 420: the 422 / 411 C3P3R conversions; CMYK: the
 *   C4P4R conversion, then for 422 / 420 the whole-region box down-sampler
 *   H2V1 / H2V2 on Cb and Cr), then minus 128 into 16 bits;
 * - inverse: plus 128 saturated to 0..255 (as rvtiAdd128_JPEG_16s8u_C1R),
 *   then the inverse conversion of the layout (444: P3C3R; 422 / 420: the
 *   422 / 411 P3C3R conversions, chroma replicated; YCCK: P4C4R, its chroma
 *   for 422 / 420 first up-sampled inside the MCU with replicated edges, by
 *   the triangle row up-samplers: 422 row by row with H2V1; 420 output row
 *   r from near row r/2 and far row r/2 - 1 (r even) or r/2 + 1 (r odd),
 *   clamped to rows 0..7, with H2V2).
 * Checks, in argument order: a null pixel pointer, a null block array or a
 * null block pointer in it gives rvtStatusNullPtr; a step below the MCU's
 * row bytes (width times bytes per pixel) gives rvtStatusStep.  Nothing is
 * written on failure.  Single-threaded; no state. */
/* 8x8 RGB (C3, 24 row bytes) to Y, Cb, Cr blocks. */
RvtResult rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* 16x8 RGB (48 row bytes) to 2 Y blocks, Cb, Cr (pair box filter). */
RvtResult rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* 16x16 RGB (48 row bytes) to 4 Y blocks, Cb, Cr (2x2 box filter). */
RvtResult rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* as the RGB form, pixels in B, G, R order. */
RvtResult rvtiBGRToYCbCr444LS_MCU_8u16s_C3P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* as the RGB form, pixels in B, G, R order. */
RvtResult rvtiBGRToYCbCr422LS_MCU_8u16s_C3P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* as the RGB form, pixels in B, G, R order. */
RvtResult rvtiBGRToYCbCr420LS_MCU_8u16s_C3P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* 8x8 CMYK (C4, 32 row bytes) to Y, Cb, Cr, K blocks. */
RvtResult rvtiCMYKToYCCK444LS_MCU_8u16s_C4P4R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[4]);
/* 16x8 CMYK (64 row bytes) to 2 Y blocks, Cb, Cr, 2 K blocks. */
RvtResult rvtiCMYKToYCCK422LS_MCU_8u16s_C4P4R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[4]);
/* 16x16 CMYK (64 row bytes) to 4 Y blocks, Cb, Cr, 4 K blocks. */
RvtResult rvtiCMYKToYCCK420LS_MCU_8u16s_C4P4R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[4]);
/* Y, Cb, Cr blocks to 8x8 RGB (24 row bytes). */
RvtResult rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* 2 Y blocks, Cb, Cr to 16x8 RGB (48 row bytes), chroma per pixel pair. */
RvtResult rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* 4 Y blocks, Cb, Cr to 16x16 RGB (48 row bytes), chroma per 2x2 pixels. */
RvtResult rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* as the RGB form, pixels in B, G, R order. */
RvtResult rvtiYCbCr444ToBGRLS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* as the RGB form, pixels in B, G, R order. */
RvtResult rvtiYCbCr422ToBGRLS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* as the RGB form, pixels in B, G, R order. */
RvtResult rvtiYCbCr420ToBGRLS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* Y, Cb, Cr, K blocks to 8x8 CMYK (32 row bytes). */
RvtResult rvtiYCCK444ToCMYKLS_MCU_16s8u_P4C4R(const int16_t* pSrcMCU[4], uint8_t* pDst, int32_t dstStep);
/* 2 Y blocks, Cb, Cr, 2 K blocks to 16x8 CMYK (64 row bytes). */
RvtResult rvtiYCCK422ToCMYKLS_MCU_16s8u_P4C4R(const int16_t* pSrcMCU[4], uint8_t* pDst, int32_t dstStep);
/* 4 Y blocks, Cb, Cr, 4 K blocks to 16x16 CMYK (64 row bytes). */
RvtResult rvtiYCCK420ToCMYKLS_MCU_16s8u_P4C4R(const int16_t* pSrcMCU[4], uint8_t* pDst, int32_t dstStep);
/* 16x8 packed Y0 Cb Y1 Cr (32 row bytes) to 2 Y blocks, Cb, Cr; minus 128 only. */
RvtResult rvtiSplit422LS_MCU_8u16s_C2P3R(const uint8_t* pSrc, int32_t srcStep, int16_t* pDstMCU[3]);
/* the inverse of the split: plus 128 saturated, packed Y0 Cb Y1 Cr (32 row bytes). */
RvtResult rvtiJoin422LS_MCU_16s8u_P3C2R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* a 422 MCU to 16x8 interleaved Y, Cb, Cr (48 row bytes): plus 128 saturated, each chroma row up-sampled by the triangle H2V1 row filter (edges replicate). Variant-1 processors run an implementation of their own (the chroma of the whole MCU first, then the rows); both give the same bytes. */
RvtResult rvtiSampleUp422LS_MCU_16s8u_P3C3R(const int16_t* pSrcMCU[3], uint8_t* pDst, int32_t dstStep);
/* ------------------------------------------------------------- Huffman statistics and optimal tables */

/* Two-pass encoding: the statistics add to caller-zeroed arrays of int
 * counters indexed by symbol (DC by category, AC by run * 16 + size) the
 * symbols the matching encoder writes for the same block; the progressive
 * AC ones keep the end-of-band run (and, for refinement, the count of
 * pending correction bits) in an EncodeHuffmanState exactly as the encoder
 * does, and a call with bFlushState counts the pending run and clears the
 * state (only the counts and the state are looked at then).  Category
 * limits, beyond which rvtStatusHuffData is returned with the counts so far
 * kept: baseline DC 15 and AC 14, DCFirst 11, ACFirst 10, EOB runs 14.  Ss
 * outside 1..63, Se outside Ss..63, or Al outside 0..13 give
 * rvtStatusBadArg. */
RvtResult rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(const int16_t* pSrc, int* pDcStatistics,
                                                  int* pAcStatistics, int16_t* pLastDC);
RvtResult rvtiGetHuffmanStatisticsOne_JPEG_16s_C1(const int16_t* pSrc, int* pStatistics);
RvtResult rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(const int16_t* pSrc,
                                                          int* pDcStatistics, int16_t* pLastDC,
                                                          int Al);
RvtResult rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const int16_t* pSrc,
                                                          int* pAcStatistics, int Ss, int Se,
                                                          int Al,
                                                          EncodeHuffmanState* pEncHuffState,
                                                          int bFlushState);
RvtResult rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const int16_t* pSrc,
                                                           int* pAcStatistics, int Ss, int Se,
                                                           int Al,
                                                           EncodeHuffmanState* pEncHuffState,
                                                           int bFlushState);
/* The optimal table of 257 counters (the 257th is read and ignored) as a
 * DHT segment carries it: 16 bytes of bits, then vals (at most 256 bytes).
 * JPEG Annex K.2/K.3: ties go to the higher symbol, a reserved symbol keeps
 * every real code from being all 1-bits, lengths are limited to 16 and vals
 * are ordered by the code sizes before the limit.  rvtStatusHuffTable when
 * a code would be longer than 32 bits (counts filled by hand). */
RvtResult rvtiEncodeHuffmanRawTableInit_JPEG_8u(const int* pStatistics, uint8_t* pListBits,
                                                uint8_t* pListVals);

/* ------------------------------------------------------------- progressive Huffman coding */

/* One block's share of a progressive scan (JPEG G.1.2 and G.2): DC first
 * (difference of pSrc[0] >> Al), DC refinement (bit Al of pSrc[0]), AC
 * first (band Ss..Se in zig-zag order, values >> Al) and AC refinement (bit
 * Al of the band).  Bits, stuffing, positions and flushes are those of the
 * baseline coders; the end-of-band run and the AC refinement encoder's
 * correction bits (one per byte in the state's buffer, forced out with the
 * run once more than 937 pend) stay in the state between blocks, so a state
 * belongs to one scan of one component.  A run is emitted when it reaches
 * 32767 blocks.  Encoders check the destination, its length (below 1:
 * rvtStatusSize), the position, the AC spec and the state, then flush (the
 * pending run and bits, a partial byte completed with 1-bits, the state
 * cleared) or check the block, the predictor, then Al (0..13) and the band
 * (Ss 1..63, Se Ss..63) together, and the DC spec.  Category limits: DCFirst 11, ACFirst
 * 11, EOB-run 14 (rvtStatusHuffData).  On a failure the destination keeps
 * the bytes written with the position past them, and the state keeps its
 * values from before the call.
 * Decoders check the source, its length (below 1: rvtStatusSize), the
 * position and the other arguments in order.  They store the position and
 * the reader's bits whatever happens, but change the block, the predictor
 * and the end-of-band run only when the block's whole share decodes.  A
 * block inside a run decodes without reading a symbol (and the refinement
 * decoder reads its correction bits); seeing a marker does not clear the
 * run: the run belongs to the scan, and the caller's state reset at a
 * restart ends it, while the blocks of a run that end an interval still
 * decode from the bits held before the marker.  A newly significant
 * coefficient whose run leaves the band lands on the position after it
 * (coefficient 63 past the block's end), as decoders commonly do. */
RvtResult rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst,
                                                     int nDstLenBytes, int* pDstCurrPos,
                                                     int16_t* pLastDC, int Al,
                                                     const EncodeHuffmanSpec* pDcTable,
                                                     EncodeHuffmanState* pEncHuffState,
                                                     int bFlushState);
RvtResult rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst,
                                                      int nDstLenBytes, int* pDstCurrPos, int Al,
                                                      EncodeHuffmanState* pEncHuffState,
                                                      int bFlushState);
RvtResult rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst,
                                                     int nDstLenBytes, int* pDstCurrPos, int Ss,
                                                     int Se, int Al,
                                                     const EncodeHuffmanSpec* pAcTable,
                                                     EncodeHuffmanState* pEncHuffState,
                                                     int bFlushState);
RvtResult rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const int16_t* pSrc, uint8_t* pDst,
                                                      int nDstLenBytes, int* pDstCurrPos, int Ss,
                                                      int Se, int Al,
                                                      const EncodeHuffmanSpec* pAcTable,
                                                      EncodeHuffmanState* pEncHuffState,
                                                      int bFlushState);
RvtResult rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const uint8_t* pSrc, int nSrcLenBytes,
                                                     int* pSrcCurrPos, int16_t* pDst,
                                                     int16_t* pLastDC, int* pMarker, int Al,
                                                     const DecodeHuffmanSpec* pDcTable,
                                                     DecodeHuffmanState* pDecHuffState);
RvtResult rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const uint8_t* pSrc, int nSrcLenBytes,
                                                      int* pSrcCurrPos, int16_t* pDst,
                                                      int* pMarker, int Al,
                                                      DecodeHuffmanState* pDecHuffState);
RvtResult rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(const uint8_t* pSrc, int nSrcLenBytes,
                                                     int* pSrcCurrPos, int16_t* pDst,
                                                     int* pMarker, int Ss, int Se, int Al,
                                                     const DecodeHuffmanSpec* pAcTable,
                                                     DecodeHuffmanState* pDecHuffState);
RvtResult rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const uint8_t* pSrc, int nSrcLenBytes,
                                                      int* pSrcCurrPos, int16_t* pDst,
                                                      int* pMarker, int Ss, int Se, int Al,
                                                      const DecodeHuffmanSpec* pAcTable,
                                                      DecodeHuffmanState* pDecHuffState);
/* ------------------------------------------------------------- baseline Huffman coding: runs */

/* Additions to the block coders above, for codecs whose per-block call
 * costs more than the block: one call decodes nMcus MCUs (an MCU row, a
 * restart interval) of baseline Huffman blocks with the state objects and
 * the bytes of rvtiDecodeHuffman8x8_JPEG_1u16s_C1.
 *
 * Each MCU holds nMcuBlocks (1..10) blocks; block b of every MCU belongs to
 * component pMcuComp[b] (0..3), is decoded with pDcTable[c], pAcTable[c]
 * and predicted from pLastDC[c] (c = pMcuComp[b]).  The blocks go to pDst
 * one after another, 64 coefficients each (nMcus * nMcuBlocks blocks).  The
 * result is exactly that of calling rvtiDecodeHuffman8x8_JPEG_1u16s_C1 for
 * each block in order, stopping after the first one that fails: the
 * position, marker, predictors, state and every block written are the same,
 * and the call returns that block's status (rvtStatusOk when all passed).
 * *pBlocksDone receives the number of blocks decoded successfully (the
 * index of the failing block); pCoefsDone, when not null, receives each of
 * those blocks' coefficients-done count (the state's field after it).  A
 * marker met inside the run does not stop it, just as the block decoder
 * goes on with the bits it holds; the caller that handles restart markers
 * calls once per restart interval.
 *
 * Checks in argument order: a null pointer gives rvtStatusNullPtr (a table
 * entry only for the components pMcuComp names; pCoefsDone may be null),
 * srcLenBytes < 0 and a component outside 0..3 give rvtStatusBadArg, nMcus
 * < 1, nMcuBlocks outside 1..10 or more coefficients than an int counts
 * give rvtStatusSize; the sign of *pSrcCurrPos is checked last (negative:
 * rvtStatusBadArg), after every pointer.
 * The fast path builds its lookups from the tables once per call: runs of a
 * few blocks are better served by the block decoder. */
RvtResult rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1(
    const uint8_t* pSrc, int srcLenBytes, int* pSrcCurrPos, int16_t* pDst, int nMcus,
    const int* pMcuComp, int nMcuBlocks, int16_t* pLastDC, int* pMarker,
    const DecodeHuffmanSpec* const pDcTable[4], const DecodeHuffmanSpec* const pAcTable[4],
    DecodeHuffmanState* pDecHuffState, int* pCoefsDone, int* pBlocksDone);
/* ------------------------------------------- JPEG 2000 code-block coding */
/* Tier-1 coding of one code-block: the MQ arithmetic coder and the three
 * coding passes per bit-plane (significance propagation, magnitude
 * refinement, cleanup) of JPEG 2000 Part 1.
 *
 * Code-block: 1..1024 samples a side, at most 4096 samples.  Band (for the
 * significance contexts): rvtJ2KBandLL, LH (low horizontally, high
 * vertically), HL, HH, as numbered by the wavelet functions.  magnBits:
 * the number of magnitude bit-planes of the band, 1..31, including any ROI
 * shift.  Code-block style: the byte of the COD/COC segment, any
 * combination of the rvtJ2KStyle... flags (0..63).  Passes: pass 0 is the
 * cleanup pass of the most significant coded plane, then significance,
 * refinement and cleanup per plane: 3 x planes - 2 passes.
 * Segments (the units of termination): with TermAll one per pass;
 * otherwise with Bypass passes 0..9 form one, then each pair of raw
 * significance and refinement passes one, each cleanup pass one; else one
 * segment holds all passes.
 *
 * Reconstruction (decoders and the distortion figures): a coefficient
 * whose bits are known down to plane q (q = 0: all) is reconstructed as
 * those bits plus 2^(q-1) when q > 0, i.e. the mid-point of the interval
 * the decoded bits leave; insignificant coefficients are 0.  With an ROI
 * shift s, a reconstructed magnitude of 2^s or more belongs to the region
 * and is shifted down by s (bits below plane s dropped); smaller ones are
 * kept.  Results are sign and magnitude turned into two's complement.
 *
 * States live in caller memory (GetStateSize then Init; any address), or
 * InitAlloc allocates them through rvtMalloc (rvtStatusNoMem, null stored,
 * when it fails) and Free releases them.  A state holds one code-block at
 * a time and belongs to one thread at a time; one never initialised gives
 * rvtStatusBadArg.  Checks run in argument order; nothing is written when
 * one fails.  Sizes above the state's maximum, sides outside 1..1024 or
 * areas above 4096 give rvtStatusSize. */
enum {
  rvtJ2KBandLL = 0,
  rvtJ2KBandLH = 1,
  rvtJ2KBandHL = 2,
  rvtJ2KBandHH = 3
};
enum {
  rvtJ2KStyleBypass = 1,   /* raw significance/refinement passes after plane 4 */
  rvtJ2KStyleReset = 2,    /* contexts reset at the end of every pass */
  rvtJ2KStyleTermAll = 4,  /* every pass terminated */
  rvtJ2KStyleVCausal = 8,  /* stripes ignore the stripe below */
  rvtJ2KStylePTerm = 16,   /* predictable termination */
  rvtJ2KStyleSegSym = 32   /* 1010 coded at the end of every cleanup pass */
};
typedef struct EncodeCBState_JPEG2K EncodeCBState_JPEG2K;
typedef struct DecodeCBProgrState_JPEG2K DecodeCBProgrState_JPEG2K;

/* Encoder.  The state holds the coded bytes of the last loaded block; its
 * size grows with the maximum area: room for 6 bytes per sample and plane
 * (what 31 planes of the most expensive decisions can cost), about 760 KB
 * for 64 x 64. */
RvtResult rvtiEncodeGetStateSize_JPEG2K(ImageSize cbMaxSize, int32_t* pSize);
RvtResult rvtiEncodeInit_JPEG2K(EncodeCBState_JPEG2K* pState, ImageSize cbMaxSize);
RvtResult rvtiEncodeInitAlloc_JPEG2K(EncodeCBState_JPEG2K** ppState, ImageSize cbMaxSize);
RvtResult rvtiEncodeFree_JPEG2K(EncodeCBState_JPEG2K* pState);
/* Codes a block of signed coefficients (two's complement; magnitudes below
 * 2^magnBits, so INT32_MIN never fits: rvtStatusRange, as for any larger
 * magnitude).  Checks: pSrc (null), srcStep (below 1), cbSize, pState
 * (null; its maximum), band, magnBits (1..31), codeStyle (0..63)
 * (rvtStatusBadArg), then the three outputs (null), then the magnitudes.
 * Reports the leading zero planes (magnBits - coded planes; magnBits for an
 * all-zero block, which has no passes and no segments), the number of
 * passes and the number of segments.  Terminations: MQ segments end with
 * the standard flush (a final 0xFF dropped), or with PTerm the predictable
 * one; raw segments pad with 0, 1, 0, ... and drop a final 0xFF (PTerm
 * writes 0x2A after it instead). */
RvtResult rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(const int32_t* pSrc, int32_t srcStep, ImageSize cbSize,
                                                 EncodeCBState_JPEG2K* pState, int32_t band, int32_t magnBits,
                                                 int32_t codeStyle, int32_t* pSfBits, int32_t* pNOfPasses,
                                                 int32_t* pNOfTermPasses);
/* Copies the next coded bytes (all segments, in order) to pDst: at most
 * *pDstLen (at least 1, else rvtStatusSize), which receives the count
 * copied; *pIsNotFinish becomes 1 while bytes remain, else 0.  Resumable:
 * each call continues where the last stopped; a new LoadCodeBlock starts
 * over. */
RvtResult rvtiEncodeStoreBits_JPEG2K_1u(uint8_t* pDst, int32_t* pDstLen, EncodeCBState_JPEG2K* pState,
                                        int32_t* pIsNotFinish);
/* Bytes (from the start of the block's data) that decode passes 0..passNo
 * exactly: the segment's end for a terminated pass, otherwise the bytes out
 * plus those the coder's register still holds, never ending in 0xFF, never
 * past the segment, monotone in passNo.  passNo outside the coded passes:
 * rvtStatusBadArg. */
RvtResult rvtiEncodeGetRate_JPEG2K(const EncodeCBState_JPEG2K* pState, int32_t passNo, int32_t* pRate);
/* Decrease of the block's squared error (in coefficient units, ROI shift 0)
 * when passes 0..passNo are decoded with the library's reconstruction,
 * against all zeros: exact up to the precision of a double. */
RvtResult rvtiEncodeGetDist_JPEG2K(const EncodeCBState_JPEG2K* pState, int32_t passNo, double* pDist);
/* Length in bytes of segment segNo (0 .. segments - 1). */
RvtResult rvtiEncodeGetTermPassLen_JPEG2K(const EncodeCBState_JPEG2K* pState, int32_t segNo, int32_t* pLen);

/* One-shot decoder.  pSrc holds the segments back to back, pSegLen their
 * lengths (as many as nOfPasses spans with codeStyle; each 0 or more).
 * nOfPasses 0..3 x (magnBits - sfBits) - 2 passes are decoded; a segment
 * shorter than coded decodes as if 0xFF bytes followed it (nothing past it
 * is read).  The segmentation symbol is not verified.  Checks: pSrc,
 * pSegLen, pDst (null), dstStep (below 1), cbSize (rvtStatusSize), band,
 * magnBits 1..31, sfBits 0..magnBits, nOfPasses, codeStyle 0..63, roiShift
 * 0..31, the segment lengths (rvtStatusBadArg), pBuffer (null).  pBuffer
 * holds rvtiDecodeGetBufSize_JPEG2K bytes for the block's size or more. */
RvtResult rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(const uint8_t* pSrc, const int32_t* pSegLen, int32_t* pDst,
                                               int32_t dstStep, ImageSize cbSize, int32_t band,
                                               int32_t magnBits, int32_t sfBits, int32_t nOfPasses,
                                               int32_t codeStyle, int32_t roiShift, uint8_t* pBuffer);
RvtResult rvtiDecodeGetBufSize_JPEG2K(ImageSize cbMaxSize, int32_t* pSize);

/* Progressive decoder: a block decoded pass by pass as quality layers
 * arrive.  Attach starts a block (same arguments and checks as the
 * one-shot decoder).  Step decodes up to nOfPasses passes in all: pSrc and
 * pSegLen describe all the block's data received so far (earlier bytes
 * unchanged, new ones appended, so the open segment's length grows);
 * passes already decoded in closed segments are kept, the open segment is
 * decoded again from its start.  nOfPasses below the passes decoded or
 * above the coded ones: rvtStatusBadArg.  GetPassCounters gives the passes
 * decoded and the bit-plane of the last one (magnBits - sfBits before the
 * first); GetCodeBlock writes the reconstruction so far. */
RvtResult rvtiDecodeCBProgrGetStateSize_JPEG2K(ImageSize cbMaxSize, int32_t* pSize);
RvtResult rvtiDecodeCBProgrInit_JPEG2K(DecodeCBProgrState_JPEG2K* pState, ImageSize cbMaxSize);
RvtResult rvtiDecodeCBProgrInitAlloc_JPEG2K(DecodeCBProgrState_JPEG2K** ppState, ImageSize cbMaxSize);
RvtResult rvtiDecodeCBProgrFree_JPEG2K(DecodeCBProgrState_JPEG2K* pState);
RvtResult rvtiDecodeCBProgrAttach_JPEG2K(DecodeCBProgrState_JPEG2K* pState, ImageSize cbSize, int32_t band,
                                        int32_t magnBits, int32_t sfBits, int32_t codeStyle, int32_t roiShift);
RvtResult rvtiDecodeCBProgrStep_JPEG2K(const uint8_t* pSrc, const int32_t* pSegLen, int32_t nOfPasses,
                                      DecodeCBProgrState_JPEG2K* pState);
RvtResult rvtiDecodeCBProgrGetPassCounters_JPEG2K(const DecodeCBProgrState_JPEG2K* pState,
                                                 int32_t* pNOfDecodedPasses, int32_t* pBitPlane);
RvtResult rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R(const DecodeCBProgrState_JPEG2K* pState, int32_t* pDst,
                                                      int32_t dstStep);
/* ------------------------------------------------ BC7 and BC6H textures */
/* Region decoders with the arguments, checks and region walk of the BC1 to
 * BC5 decoders above: 16-byte blocks, ceil(width / 4) * ceil(height / 4) of
 * them; pSrc or pDst null (rvtStatusNullPtr), dstStep 0 (rvtStatusStep; a
 * negative step walks upwards), width or height below 1 (rvtStatusSize);
 * nothing written on failure.  dstStep is in bytes.  Every mode,
 * partition, anchor index, p-bit, rotation and index selection of the
 * formats is decoded; interpolation is ((64 - w) * e0 + w * e1 + 32) >> 6
 * with the formats' weights. */

/* BC7 to RGBA 8-bit.  A block whose first byte is 0 (the reserved mode 8)
 * decodes to transparent black (0, 0, 0, 0). */
RvtResult rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(const uint8_t* pSrc, uint8_t* pDst,
                                                    int32_t dstStep, ImageSize roiSize);
/* BC6H (unsigned) to RGB half-float bit patterns (three 16-bit values per
 * pixel): endpoints unquantized to 0..0xFFFF, interpolated, scaled by
 * 31/64 (at most 0x7BFF, never negative, never infinite).  The reserved
 * mode values 0x13, 0x17, 0x1B, 0x1F decode to black (all zero). */
RvtResult rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(const uint8_t* pSrc, uint16_t* pDst,
                                                    int32_t dstStep, ImageSize roiSize);
/* BC6H (signed) to RGB half-float bit patterns: endpoints sign-extended
 * (after the delta transform), unquantized to -0x7FFF..0x7FFF, interpolated,
 * the magnitude scaled by 31/32 and the sign bit set for negative values.
 * Sign of zero: a negative value whose magnitude scales to 0 gives +0
 * (0x0000), so -0 (0x8000) is never produced, as the format's reference
 * decoder does (decoders that keep the sign give 0x8000 there; no other
 * value differs).  The 16-bit mode's endpoint -32768 gives 0xFC00.  Reserved
 * modes decode to black (all zero). */
RvtResult rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(const uint8_t* pSrc, int16_t* pDst,
                                                    int32_t dstStep, ImageSize roiSize);

/* ------------------------------------------------ BC4 and BC5 encoding */
/* Encoders of whole regions into the tightly packed blocks that the
 * decoders above read (block rows top to bottom, blocks left to right; BC5:
 * the red block, then the green one).  Tiles that cross the region's right
 * or bottom edge are padded by replicating its last column and row.
 * Checks, in order: pSrc null (rvtStatusNullPtr), srcStep 0 (rvtStatusStep;
 * a negative step walks upwards), pDst null (rvtStatusNullPtr), width or
 * height below 1 (rvtStatusSize), quality outside 0..2 (rvtStatusBadArg);
 * nothing is written on failure.  No threads.  Indices pick the nearest
 * entry of the palette as this library decodes it (interpolants rounded).
 * Quality 0 (fast): the six-interpolant form over the tile's range and the
 * four-interpolant form (exact 0 and 255) over the range of the others.
 * Quality 1 (the default to use, about a third of 0's speed): also both
 * forms' endpoints moved by up to 1.  Quality 2 (a twentieth): by up to 4.
 * The pair of least squared error wins, the first tried on a tie. */
RvtResult rvtiTextureEncodeBlock_BC4_8u_C1R(const uint8_t* pSrc, int32_t srcStep, uint8_t* pDst,
                                            ImageSize roiSize, int quality);
/* Two-channel pixels (R, G), each channel as a BC4 block. */
RvtResult rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R(const uint8_t* pSrc, int32_t srcStep,
                                                    uint8_t* pDst, ImageSize roiSize, int quality);
/* ------------------------------------------------ JPEG XR coefficient coding */
/* The fixed-length (FLC) and adaptive variable-length (VLC) coding of JPEG XR
 * coefficients, one macroblock and one band at a time.  The container,
 * image and tile headers, quantization and the DC/LP/HP coefficient
 * prediction are the caller's; these calls hold the adaptive parts: the
 * Huffman tables each alphabet switches between, their discriminants, the
 * adaptive scan orders, the model (refinement) bits of each band and the
 * LP and HP coded-block-pattern counters and models.  This interface is
 * the library's own design.
 *
 * Bit cursors: a buffer, its length in bytes (used up to 2^28 - 1 bytes)
 * and an in/out bit position counted from the buffer's first byte, bits
 * most significant first.  Decoders read no byte at or past the length;
 * encoders keep the bits before the position, write on from it and clear
 * the rest of the last byte they touch.  Positions, the state and the
 * outputs change only when a call succeeds: a failure writes nothing
 * (the bytes of an encoder's buffer included).
 *
 * Colour formats (colorFormat, numChannels): 0 Y only (1), 1 YUV 4:2:0
 * (3), 2 YUV 4:2:2 (3), 3 YUV 4:4:4 (3), 4 CMYK (4), 6 N channels (1..16);
 * channel 0 is the luma channel, the others use the chroma tables and
 * models.  Anything else gives rvtStatusBadArg.
 *
 * Coefficient layouts.  DC and LP: 16 int32 per channel, coef[16 c + k],
 * k the position in the channel's DC block (4x4; 2x2 for 4:2:0 chroma, 2
 * wide by 4 high for 4:2:2 chroma; row by row): k = 0 is the DC, 1.. the LP
 * coefficients.  HP: 256 int32 per channel, coef[256 c + 16 b + k], b the
 * 4x4 block in the macroblock row by row (4x4 blocks; 2x2 for 4:2:0
 * chroma, 2 by 4 for 4:2:2 chroma), k = 4 row + column inside it; k = 0
 * (the block's DC) is never read or written.  Values are the quantized
 * coefficients; magnitudes wrap to 32 bits when model bits are added.
 *
 * The context: a flat, pointer-free object of rvtiVLCGetStateSize_JPEGXR
 * bytes, built by rvtiVLCInit_JPEGXR at the start of every tile (all
 * tables at their first index, the 6- and 12-symbol alphabets at their
 * second; discriminants 0; scans at their initial orders and totals
 * 32 - 2i; model bits DC 8, LP 4, HP 0).  Each coded symbol moves its
 * table's discriminants by the code-length differences to the neighbouring
 * tables; each coded scan index adds one to its total and, when that
 * passes its predecessor's, swaps places with it.  As files are written,
 * the caller resets the scan totals (rvtiVLCAdapt_JPEGXR with 8 | 16)
 * before each macroblock whose column in the tile is a multiple of 16, and
 * switches tables (1 | 2 | 4, for the bands the image codes) after that
 * macroblock and after the row's last one: a table goes down when its
 * lower discriminant is below -8, else up when its upper one is above 8
 * (zeroing both), and discriminants are clamped to +-64.  Model bits
 * adapt inside every macroblock call and stay within 0..15.  A state that
 * Init did not build, or whose fields are out of range, gives
 * rvtStatusBadArg. */
typedef struct VLCState_JPEGXR VLCState_JPEGXR;

/* Bytes of the context for a colour format.  Checks: format (BadArg),
 * pSize (NullPtr). */
RvtResult rvtiVLCGetStateSize_JPEGXR(int32_t colorFormat, int32_t numChannels, int32_t* pSize);
/* Builds the context (the reset at every tile).  Checks: format (BadArg),
 * pState (NullPtr), stateSize below 1 or below the size needed (Size). */
RvtResult rvtiVLCInit_JPEGXR(int32_t colorFormat, int32_t numChannels, VLCState_JPEGXR* pState,
                             int32_t stateSize);
/* The adaptation points.  bands, any of: 1 DC tables, 2 LP tables (with
 * the run table), 4 HP tables (with the coded-block-pattern ones), 8 reset
 * the LP scan totals, 16 reset both HP scans' totals; any other bit, or
 * none, gives BadArg. */
RvtResult rvtiVLCAdapt_JPEGXR(VLCState_JPEGXR* pState, int32_t bands);
/* The context's current choices, for tests and tools: pTableIndex[22] the
 * table index of each slot, pDiscriminant[44] its lower and upper
 * discriminants, pModelBits[6] the model bits of DC, LP, HP (lum, chroma).
 * Slots: 0 significant run (5 symbols); 1 DC pattern of Y, U, V (8); 2, 3
 * DC level lum, chroma (7); LP 4..11 and HP 12..19: first index lum (12),
 * index lum, index lum after a continuous start (6), the same three for
 * chroma, level, level after a continuous start (7); 20, 21 HP
 * coded-block-pattern tables (5; 9 for YUV, else 5).  Checks in argument
 * order (NullPtr, BadArg for a bad state). */
RvtResult rvtiVLCGetTables_JPEGXR(const VLCState_JPEGXR* pState, int32_t* pTableIndex,
                                  int32_t* pDiscriminant, int32_t* pModelBits);
/* An nBits-wide (0..32) field, most significant bit first.  Checks: pSrc
 * (NullPtr), srcLen below 1 (Size), pSrcBitPos (NullPtr), position below 0
 * or past the buffer (BadArg), nBits (BadArg), pValue (NullPtr); a field
 * running past the buffer gives rvtStatusOutOfBuffer. */
RvtResult rvtiFLCRead_JPEGXR_1u32u(const uint8_t* pSrc, int32_t srcLen, int32_t* pSrcBitPos,
                                   int32_t nBits, uint32_t* pValue);
/* Writes the low nBits (0..32) of value.  Checks: nBits (BadArg), then the
 * cursor as above; no room gives rvtStatusOutOfBuffer. */
RvtResult rvtiFLCWrite_JPEGXR_32u1u(uint32_t value, int32_t nBits, uint8_t* pDst, int32_t dstLen,
                                    int32_t* pDstBitPos);
/* DC of every channel of one macroblock (coef[16 c]).  Y only, CMYK, N
 * channels: per channel a nonzero bit, then the level less one (lum or
 * chroma level table); YUV: one 8-symbol code of which channels are
 * nonzero (Y 4, U 2, V 1), then the levels.  Each channel then has its
 * model bits (the low bits of the magnitude) and, when nonzero, a sign bit
 * (1 = negative).  Decoders check: the cursor, pState, pCoef; they give
 * rvtStatusOutOfBuffer when the data ends inside the macroblock.  Encoders
 * check pCoef, pState, the cursor; rvtStatusRange for a magnitude above
 * the model bits beyond 2^30; rvtStatusOutOfBuffer when it does not fit. */
RvtResult rvtiVLCDecodeDC_JPEGXR_1u32s(const uint8_t* pSrc, int32_t srcLen, int32_t* pSrcBitPos,
                                       VLCState_JPEGXR* pState, int32_t* pCoef);
RvtResult rvtiVLCEncodeDC_JPEGXR_32s1u(const int32_t* pCoef, VLCState_JPEGXR* pState, uint8_t* pDst,
                                       int32_t dstLen, int32_t* pDstBitPos);
/* LP of every channel (coef[16 c + 1..]; 4:2:0 / 4:2:2 chroma 1..3 / 1..7).
 * A coded-block pattern of one bit per group (lum, each chroma channel; 4:2:0 and 4:2:2: lum and
 * both chroma channels together) coded by two counters in the context, both 1 at Init (one counts
 * empty patterns, the other patterns equal to 4n - 5 for n bits, as the files in use are written:
 * the full pattern for 2 and 3 bits, none for 1); then group by group: the block's run/level code
 * when flagged, through the adaptive LP scan (initially positions 2, 8, 15, 1, 4, 12, 3, 7, 13, 5,
 * 11, 14, 6, 9, 10 of the 4x4 block as the photo core transform exports leave it; 4:2:0 / 4:2:2
 * chroma: U and V interleaved, coefficient order), then the model bits of each of the group's
 * channels' coefficients (a 4x4 block's in the order 2, 1, 7, 8, 15, 12, 11, 4, 3, 5, 6, 13, 14,
 * 9, 10), with a sign bit for those whose coded part is 0.  Checks and statuses as for DC;
 * rvtStatusErr for a block whose runs lead past its last position.
 *
 * */
RvtResult rvtiVLCDecodeLP_JPEGXR_1u32s(const uint8_t* pSrc, int32_t srcLen, int32_t* pSrcBitPos,
                                       VLCState_JPEGXR* pState, int32_t* pCoef);
RvtResult rvtiVLCEncodeLP_JPEGXR_32s1u(const int32_t* pCoef, VLCState_JPEGXR* pState, uint8_t* pDst,
                                       int32_t dstLen, int32_t* pDstBitPos);
/* HP of every channel.  pCBP[c] bit b: block b of channel c has a coded part (the decoder's
 * input, from rvtiVLCDecodeCBPHP_JPEGXR_1u32s; the encoder's output).  Blocks come channel by
 * channel; a 4x4 grid in 2x2 quads (0, 1, 4, 5, then 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15),
 * smaller grids row by row.  Each block: its coded part when flagged, through the horizontal
 * (scanOrder 0; initially the LP scan's positions) or vertical (1; initially positions 8, 4, 15,
 * 2, 13, 3, 12, 1, 14, 7, 10, 11, 5, 9, 6) adaptive scan; then its flexbits, the model bits less
 * the lowest trimFlexBits (0..15) of each coefficient in the LP model-bit order, with a sign bit
 * where the coded part is 0, into the flexbits cursor (pFlex, flexLen, pFlexBitPos: the
 * frequency-order FLEXBITS band) or, when pFlex is null, right after the block's coded part
 * (spatial order; flexLen and pFlexBitPos are then not read).  A decoder puts the trimmed bits
 * back as zeros.  Checks in argument order: the decoder checks the main cursor, the flex cursor
 * (when pFlex is set), trimFlexBits, scanOrder (BadArg), pCBP, pState, pCoef; the encoder pCoef,
 * scanOrder, pState, pCBP, the main cursor, the flex cursor, trimFlexBits; statuses as for
 * LP. */
RvtResult rvtiVLCDecodeHP_JPEGXR_1u32s(const uint8_t* pSrc, int32_t srcLen, int32_t* pSrcBitPos,
                                       const uint8_t* pFlex, int32_t flexLen, int32_t* pFlexBitPos,
                                       int32_t trimFlexBits, int32_t scanOrder, const int32_t* pCBP,
                                       VLCState_JPEGXR* pState, int32_t* pCoef);
RvtResult rvtiVLCEncodeHP_JPEGXR_32s1u(const int32_t* pCoef, int32_t scanOrder, VLCState_JPEGXR* pState,
                                       int32_t* pCBP, uint8_t* pDst, int32_t dstLen, int32_t* pDstBitPos,
                                       uint8_t* pFlex, int32_t flexLen, int32_t* pFlexBitPos,
                                       int32_t trimFlexBits);

/* ----------------------------------- baseline Huffman coding: encoder runs */

/* Addition to the block encoder, the counterpart of
 * rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1: one call encodes nMcus MCUs of
 * baseline Huffman blocks with the state object and the bytes of
 * rvtiEncodeHuffman8x8_JPEG_16s1u_C1.
 *
 * Each MCU holds nMcuBlocks (1..10) blocks; block b of every MCU belongs to
 * component pMcuComp[b] (0..3), is coded with pDcTable[c], pAcTable[c] and
 * predicted from pLastDC[c] (c = pMcuComp[b]).  The blocks are read from
 * pSrc one after another, 64 coefficients each (nMcus * nMcuBlocks
 * blocks).  The result is exactly that of calling
 * rvtiEncodeHuffman8x8_JPEG_16s1u_C1 (bFlushState 0) for each block in
 * order, stopping after the first one that fails: the bytes, position,
 * predictors and state are the same, and the call returns that block's
 * status (rvtStatusOk when all passed).  *pBlocksDone receives the number
 * of blocks encoded successfully (the index of the failing block).  The
 * call never flushes: at the end of a restart interval or scan the caller
 * flushes through the block encoder (bFlushState 1), then writes its
 * marker.
 *
 * Checks in argument order: a null pointer gives rvtStatusNullPtr (a table
 * entry only for the components pMcuComp names), dstLenBytes < 1, nMcus <
 * 1, nMcuBlocks outside 1..10 or more coefficients than an int counts give
 * rvtStatusSize, a component outside 0..3 gives rvtStatusBadArg; the sign
 * of *pDstCurrPos is checked last (negative: rvtStatusBadArg), after every
 * pointer. */
RvtResult rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1(
    const int16_t* pSrc, uint8_t* pDst, int dstLenBytes, int* pDstCurrPos, int nMcus,
    const int* pMcuComp, int nMcuBlocks, int16_t* pLastDC,
    const EncodeHuffmanSpec* const pDcTable[4], const EncodeHuffmanSpec* const pAcTable[4],
    EncodeHuffmanState* pEncHuffState, int* pBlocksDone);
/* ------------------------------------------------ DXT1, DXT3 and DXT5 encoding */
/* Encoders of RGBA regions (R, G, B, A bytes) into the tightly packed
 * blocks the DXT decoders above read, with the argument order, checks,
 * edge-tile replication and block order of the BC4 encoder (quality 0..2,
 * rvtStatusBadArg outside; nothing written on failure; no threads).
 * Colour endpoints are fitted to the squared RGB error of the palette as
 * this library decodes it (interpolants truncated), each pixel taking its
 * nearest entry.  Quality 0: endpoints at the extremes of the pixels'
 * projections on their principal axis.  Quality 1 (the default to use):
 * also the best pair for a tile of one colour; otherwise up to two fits of
 * the endpoints on the 5:6:5 grid for the indices found (per channel, of
 * the grid points around the least-squares solution, the pair of least
 * error), then up to two rounds of the best split of the pixels, in the
 * order of their projections, into runs on the palette's entries, among the
 * splits whose run ends lie within two places of the current indices'
 * (each split's least-squares endpoints rounded to 5:6:5 and scored exactly
 * by the error of that assignment).  Quality 2: up to eight least-squares
 * refinements; then every such split, the best replacing the refined pair
 * when it does better; then each endpoint component moved by one step while
 * the error drops; and (DXT1) the three-colour form tried beside the
 * four-colour one. */
/* DXT1: pixels whose alpha is below 128 are transparent; a tile holding any
 * takes the three-colour form with index 3 on them (transparent black to
 * the usual decoders; rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R reads that
 * entry as opaque white).  Opaque tiles use the three-colour form's mean
 * entry but never its index 3. */
RvtResult rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R(const uint8_t* pSrc, int32_t srcStep,
                                                       uint8_t* pDst, ImageSize roiSize, int quality);
/* DXT3: each alpha becomes the nibble whose decoded value (nibble * 16, at
 * most 240) is nearest. */
RvtResult rvtiTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R(const uint8_t* pSrc, int32_t srcStep,
                                                       uint8_t* pDst, ImageSize roiSize, int quality);
/* DXT5: the alpha part is encoded as rvtiTextureEncodeBlock_BC4_8u_C1R
 * encodes a channel at the same quality. */
RvtResult rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(const uint8_t* pSrc, int32_t srcStep,
                                                       uint8_t* pDst, ImageSize roiSize, int quality);
/* ------------------------------------------- scaled YCoCg in DXT5 blocks */
/* The layout real-time pipelines use to carry colour at better quality than
 * DXT1/DXT5 colour parts: ordinary DXT5 blocks (any DXT5 decoder reads them
 * into r, g, b, a) holding luma and two chroma differences.
 *   alpha part (bytes 0-7): Y = (R + 2G + B + 2) >> 2, as a BC4 channel;
 *   colour part (bytes 8-15): red = 128 + s * Co, green = 128 + s * Cg with
 *   Co = (R - B) / 2 and Cg = (2G - R - B) / 4, blue = the scale s stored as
 *   (s - 1) in both endpoints' 5-bit blue field (8-bit blue 0, 8, 24 for
 *   s = 1, 2, 4), so every pixel of a block reads the same scale.
 * The decoder rebuilds RGB from the DXT5 pixel (r, g, b, a) as
 *   s = (b + 8) / 8, co = r - 128, cg = g - 128, Y = a,
 *   R = Y + (co - cg) / s, G = Y + cg / s, B = Y - (co + cg) / s,
 * each quotient rounded half up (floor((16n + b + 8) / (2b + 16))), clamped
 * to 0..255, alpha 255; blocks of other encoders (any blue) read the same
 * way.  The DXT5 palette is this library's (colour interpolants truncated,
 * alpha interpolants rounded). */
/* Encoder of RGBA pixels (R, G, B, A bytes; A is not read) with the
 * argument order, checks, edge-tile replication and block order of the
 * other texture encoders (quality 0..2, rvtStatusBadArg outside; nothing
 * written on failure; no threads).  Y is encoded as
 * rvtiTextureEncodeBlock_BC4_8u_C1R encodes a channel at the same quality.
 * The scale of a tile is the largest of 4, 2, 1 at which all of its Co and
 * Cg fit the stored range (quality 2: all three are fitted and the one of
 * least RGB error kept).  The chroma targets are taken for the luma as
 * decoded, Cg = (G - R - B + Y') / 3 (the least-squares value, which takes
 * up part of the luma's error), and the endpoints fitted to the error
 * 2 dCo^2 + 3 dCg^2 (the squared RGB error it gives) with the blue field
 * held: quality 0, the chroma's bounding box inset by 1/16; 1 (the default
 * to use), also the box itself, the best pair for a tile of one chroma and
 * up to two least-squares refinements; 2, eight refinements and each
 * endpoint component moved by one step while the error drops. */
RvtResult rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R(const uint8_t* pSrc, int32_t srcStep,
                                                        uint8_t* pDst, ImageSize roiSize, int quality);
/* Addition: the decoder of these blocks into RGBA, with the arguments,
 * checks and region walk of rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R. */
RvtResult rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R(const uint8_t* pSrc, uint8_t* pDst,
                                                          int32_t dstStep, ImageSize roiSize);

/* ---- BC6H texture encoding
 * RGB half-float bit patterns (three 16-bit values per pixel, srcStep in
 * bytes) to 16-byte BC6H blocks, unsigned (rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R
 * decodes them) and signed (..._16s_...).  Argument order, checks, block
 * order and edge-tile replication as rvtiTextureEncodeBlock_BC4_8u_C1R
 * (quality 0..2, rvtStatusBadArg outside; nothing written on failure; no
 * threads).  Inputs the format cannot hold are clamped first: NaN becomes
 * 0, an infinity the largest finite half (65504, 0x7BFF) of its sign;
 * unsigned, every negative value (-0 too) becomes 0; signed, -0 becomes +0,
 * as the decoder never gives -0.  The error minimised is the squared
 * difference of the decoded half-float bit patterns read as integers (the
 * sign applied), about the error of log2 of the values, so dark and bright
 * tiles are fitted alike.  Quality 0: the one-region modes (10-bit
 * endpoints; 11-, 12- and 16-bit bases with deltas), endpoints at the
 * extremes of the pixels' projections on their principal axis, the mode of
 * least error kept.  Quality 1 (the default to use): also the two
 * partitions whose regions lie nearest to two lines, in every two-region
 * mode, and a least-squares refinement of the winner's endpoints for its
 * indices, deltas clamped into each mode's range.  Quality 2: six
 * partitions, up to three refinements, then each quantized endpoint
 * component moved by one step while the error drops. */
RvtResult rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R(const uint16_t* pSrc, int32_t srcStep,
                                                      uint8_t* pDst, ImageSize roiSize, int quality);
RvtResult rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R(const int16_t* pSrc, int32_t srcStep,
                                                      uint8_t* pDst, ImageSize roiSize, int quality);
/* ------------------------------ JPEG XR coefficient coding: HP block pattern */
/* The coded-block pattern of one macroblock's HP band, decoded and
 * predicted: pCBP[c] gets, bit b for block b (row by row, as
 * rvtiVLCDecodeHP_JPEGXR_1u32s takes it), which blocks of channel c have a
 * coded part.  Files code, per macroblock before its HP coefficients, which
 * 2x2 quads of blocks hold coded parts (per channel for CMYK and N
 * channels, one code with the chroma flags for YUV), then each quad's
 * blocks; the result is the XOR of that difference with a prediction from
 * the left macroblock's pattern (pLeftCBP, null at the tile's left edge),
 * else the top one's (pTopCBP, null at its top edge), unless the context's
 * running counts of full and empty patterns choose to take it as coded or
 * inverted.  Those counts and the two pattern tables (adapted with the HP
 * tables by rvtiVLCAdapt_JPEGXR) live in the context.  Checks: the cursor
 * as for the other decoders, pState, pCBP; rvtStatusOutOfBuffer when the
 * data ends inside the pattern.  Nothing is written on failure. */
RvtResult rvtiVLCDecodeCBPHP_JPEGXR_1u32s(const uint8_t* pSrc, int32_t srcLen, int32_t* pSrcBitPos,
                                          const int32_t* pLeftCBP, const int32_t* pTopCBP,
                                          VLCState_JPEGXR* pState, int32_t* pCBP);

/* ------------------------------------------------ BC7 encoding */
/* Encoder of RGBA regions (R, G, B, A bytes) into the tightly packed 16-byte
 * blocks rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R reads, with the argument
 * order, checks, edge-tile replication and block order of the BC4 encoder
 * (quality 0..2, rvtStatusBadArg outside; nothing written on failure; no
 * threads).  Each tile takes the candidate of least squared RGBA error as
 * the decoder gives it back; endpoints are fitted on the principal axis,
 * quantized with their p-bits and refined by least squares for the indices
 * found.  Opaque tiles (every alpha 255) always decode to alpha 255: there
 * modes 6 and 7 keep their p-bits at 1.  Quality 0 (fastest): mode 6, and
 * for opaque tiles it leaves a squared error above 256 mode 1 over the
 * partition nearest to the split of the pixels along mode 6's line, both
 * with the endpoints of one power step toward the principal axis (no
 * least-squares round).  Quality 1
 * (the default to use): the partitions are ranked by the spread of the
 * pixels about their subsets' means, and the best of that ranking by how
 * close their subsets lie to lines; opaque tiles try modes 6, 1 and 3 over
 * the 4 best, 0 and 2 over 2; tiles with alpha modes 6, 7 (4 partitions),
 * 5 and 4 (every rotation and index selection); the winner is fitted again
 * with every p-bit choice measured.  Quality 2 (best): that search over 8 two-subset
 * partitions, opaque tiles also modes 5 and 4 over every rotation and index selection
 * (alpha kept at 255), then each endpoint code and p-bit moved by one while the error drops.
 * Grey opaque tiles (R = G = B) take a one-channel search instead: mode 6, then mode 1 as quality
 * 0 picks it, or (quality 1, 2) over the 4 or 8 partitions of least spread about their subsets'
 * means and mode 0 over the 2 or 4, each subset's codes and p-bits searched around its fit (quality
 * 0: the codes either side of each end; 1 and 2: windows re-centred on the least-squares fit while the
 * error drops). */
RvtResult rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(const uint8_t* pSrc, int32_t srcStep,
                                                      uint8_t* pDst, ImageSize roiSize, int quality);
/* ---------------------------- JPEG XR coefficient coding: HP block pattern encoder */
/* The encoder of rvtiVLCDecodeCBPHP_JPEGXR_1u32s: writes the coded-block
 * pattern pCBP[c] (bit b for block b, row by row; the pattern
 * rvtiVLCEncodeHP_JPEGXR_32s1u reports, which a caller knows beforehand
 * from the context's HP model bits) as the difference from the same
 * prediction, with the same neighbours (pLeftCBP, pTopCBP; null at the
 * tile's edges) and the same context updates, so that the decoder given
 * these bits returns pCBP.  Called before the macroblock's HP coefficients.
 * Checks: pCBP (NullPtr), pState (BadArg for a bad state), the cursor as
 * for the other encoders, then bits set beyond a channel's block count
 * (BadArg); rvtStatusOutOfBuffer when it does not fit, and then nothing is
 * written. */
RvtResult rvtiVLCEncodeCBPHP_JPEGXR_32s1u(const int32_t* pCBP, const int32_t* pLeftCBP,
                                          const int32_t* pTopCBP, VLCState_JPEGXR* pState,
                                          uint8_t* pDst, int32_t dstLen, int32_t* pDstBitPos);
/* ---------------------------- JPEG 2000 9/7 inverse passes with caller scales (additions) */
/* As rvtiWTInvRow_D97_JPEG2K_32f_C1R and rvtiWTInvCol_D97_JPEG2K_32f_C1R
 * (arguments, checks, borders, phases), but the band scaling is the
 * caller's: every low-pass sample is first multiplied by lowScale and every
 * high-pass sample by highScale, then the four lifts run sum first, each
 * x += (a + b) x c in float with c = -delta, -gamma, -beta, -alpha in that
 * order.  The border samples are scaled like the others.  With lowScale = K
 * and highScale = 1.625732422 (2/K rounded, the high bands' step sizes then
 * left without their gain of 2) a decoder reproduces other float 9/7
 * decoders sample for sample; the unscaled passes fold K into the first
 * lift instead.  Any float is accepted as a scale. */
RvtResult rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R(const float* pSrcLow, int32_t srcLowStep, const float* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, float* pDst, int32_t dstStep, int32_t phase, float lowScale, float highScale);
RvtResult rvtiWTInvColScaled_D97_JPEG2K_32f_C1R(const float* pSrcLow, int32_t srcLowStep, const float* pSrcHigh, int32_t srcHighStep, ImageSize srcRoiSize, float* pDst, int32_t dstStep, int32_t phase, float lowScale, float highScale);
/* ---------------------------- JPEG fused chroma up-sampling + colour rows (additions) */
/* One RGB output row of a 4:2:0 frame in one pass: exactly
 * rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1 of the Cb rows (pCbNear, pCbFar)
 * and of the Cr rows (pCrNear, pCrFar), with srcWidth = (width + 1) / 2,
 * followed by rvtiYCbCrToRGB_JPEG_8u_P3C3R of the Y row pY and the first
 * width up-sampled samples, so its bytes are those of the two steps.
 * Reads width Y samples and (width + 1) / 2 of each chroma row, writes
 * 3 * width bytes; no intermediate rows.  Checks: the six pointers in
 * argument order (rvtStatusNullPtr), then width < 1 (rvtStatusSize). */
RvtResult rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R(const uint8_t* pY, const uint8_t* pCbNear,
                                                      const uint8_t* pCbFar, const uint8_t* pCrNear,
                                                      const uint8_t* pCrFar, uint8_t* pDst,
                                                      int32_t width);
/* The 4:2:2 twin: rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1 of pCb and pCr
 * (srcWidth = (width + 1) / 2), then the colour conversion of the row.
 * Checks: the four pointers in argument order (rvtStatusNullPtr), then
 * width < 1 (rvtStatusSize). */
RvtResult rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R(const uint8_t* pY, const uint8_t* pCb,
                                                      const uint8_t* pCr, uint8_t* pDst,
                                                      int32_t width);
/* ---------------------------- inverse DCT of a run of blocks (addition) */
/* nBlocks blocks side by side, as a decoder holds a component's blocks of
 * one MCU row: block i's 64 coefficients at pSrc + 64 * i (natural order),
 * its 8x8 samples at pDst + 8 * i, row r at + r * dstStep; one inverse table
 * for all.  Each block's samples are exactly those of
 * rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R; one call saves the per-block calls
 * and lets blocks share the work of the vector path.  Writes 8 rows of
 * 8 * nBlocks bytes.  Checks: pSrc, pDst (rvtStatusNullPtr), dstStep < 1
 * (rvtStatusStep), pQuantInvTable (rvtStatusNullPtr), then nBlocks < 1
 * (rvtStatusSize). */
RvtResult rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R(const int16_t* pSrc, uint8_t* pDst,
                                                    int32_t dstStep,
                                                    const uint16_t* pQuantInvTable,
                                                    int32_t nBlocks);
/* ---------------------------- JPEG XR photo core transform of block runs (additions) */
/* The photo core transform of rvtiPCTFwd_JPEGXR_32s_C1IR and
 * rvtiPCTInv_JPEGXR_32s_C1IR (same network, 32-bit wrapping arithmetic),
 * in place on numBlocks 4x4 blocks stored one after another: block k is the
 * 16 elements from pSrcDst + 16 k, row by row (element 4 r + c is row r,
 * column c).  Each block's result is that of the region form on the same
 * block; a codec that keeps its blocks contiguous transforms them without
 * moving them to image rows.  Elements may sit at any address.  Checks, in
 * order: pSrcDst null (rvtStatusNullPtr), then numBlocks below 1
 * (rvtStatusSize); nothing is written on a failed check. */
RvtResult rvtiPCTFwdBlocks_JPEGXR_32s_C1I(int32_t* pSrcDst, int32_t numBlocks);
RvtResult rvtiPCTInvBlocks_JPEGXR_32s_C1I(int32_t* pSrcDst, int32_t numBlocks);
#ifdef __cplusplus
}
#endif
#endif /* RVTJP_H */
