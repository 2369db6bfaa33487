// Joining two byte planes into 16-bit samples (the first plane gives the
// high byte) and the reverse split: the checks and the scalar reference.
#ifndef RVT_TIFF_ROWS16_H_
#define RVT_TIFF_ROWS16_H_

#include <cstdint>

#include "frame/checks.h"
#include "frame/unaligned.h"
#include "rvtjp.h"

namespace rvt::rows16 {

// The plane array, the other pointer, then the length, which gives
// rvtStatusStep (-14) when below 1, as TIFF row coders expect.  The plane
// pointers inside the array are checked last (rvtStatusNullPtr), so a call
// that would otherwise touch a null plane is refused instead.
template <class A, class P>
RvtResult Check(A* const* planes, const P* other, int32_t len) {
  RVT_CHECK(CheckPtr(planes));
  RVT_CHECK(CheckPtr(other));
  if (len < 1) return rvtStatusStep;
  RVT_CHECK(CheckPtr(planes[0]));
  return CheckPtr(planes[1]);
}

// 16-bit samples may sit at odd addresses.
inline void JoinRef(const uint8_t* hi, const uint8_t* lo, uint16_t* dst, int32_t n) {
  for (int32_t i = 0; i < n; ++i) StoreAt(dst + i, uint16_t(hi[i] << 8 | lo[i]));
}
inline void SplitRef(const uint16_t* src, uint8_t* hi, uint8_t* lo, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    const uint16_t v = LoadAt(src + i);
    hi[i] = uint8_t(v >> 8);
    lo[i] = uint8_t(v & 0xFF);
  }
}

template <void (*kRow)(const uint8_t*, const uint8_t*, uint16_t*, int32_t)>
RvtResult Join(const uint8_t* const pSrc[2], uint16_t* pDst, int32_t len) {
  RVT_CHECK(Check(pSrc, pDst, len));
  kRow(pSrc[0], pSrc[1], pDst, len);
  return rvtStatusOk;
}
template <void (*kRow)(const uint16_t*, uint8_t*, uint8_t*, int32_t)>
RvtResult Split(const uint16_t* pSrc, uint8_t* const pDst[2], int32_t len) {
  RVT_CHECK(Check(pDst, pSrc, len));
  kRow(pSrc, pDst[0], pDst[1], len);
  return rvtStatusOk;
}

inline RvtResult JoinRowRef(const uint8_t* const pSrc[2], uint16_t* pDst, int32_t len) {
  return Join<JoinRef>(pSrc, pDst, len);
}
inline RvtResult SplitRowRef(const uint16_t* pSrc, uint8_t* const pDst[2], int32_t len) {
  return Split<SplitRef>(pSrc, pDst, len);
}

}  // namespace rvt::rows16

#endif  // RVT_TIFF_ROWS16_H_
