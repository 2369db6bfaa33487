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

/* ------------------------------------------------------------- chroma sampling */

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


#ifdef __cplusplus
}
#endif
#endif /* RVTJP_H */
