// PackBits: the fast coder of one target.  Where at least 130 source bytes
// and a whole packet's room remain, runs and literal ends are found a
// vector at a time; the rest of the row goes through the reference's packet
// loop, so both produce the same packets.  No checks here.
#if defined(RVT_TIFF_PACKBITS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TIFF_PACKBITS_INL_H_
#undef RVT_TIFF_PACKBITS_INL_H_
#else
#define RVT_TIFF_PACKBITS_INL_H_
#endif

#include <hwy/highway.h>

#include "tiff/packbits.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::packbits::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Capped at 256-bit vectors: packets are at most 128 bytes, wider vectors
// mostly compare bytes past the packet.
using D8 = hn::CappedTag<uint8_t, 32>;

// Bytes equal to s[i] from i on, at most kMaxRun; s[i + 1] == s[i] and
// 128 bytes from i are readable.
HWY_INLINE int RunLengthFast(const uint8_t* s) {
  const D8 d;
  const int N = int(hn::Lanes(d));
  const auto v = hn::Set(d, s[0]);
  for (int k = 2; k < kMaxRun; k += N) {
    const int at = k + N <= kMaxRun ? k : kMaxRun - N;  // last vector overlaps
    const intptr_t miss = hn::FindFirstTrue(d, hn::Ne(hn::LoadU(d, s + at), v));
    if (miss >= 0) return at + int(miss);
  }
  return kMaxRun;
}

// Length of the literal from s[0] (s[0] != s[1]): up to the first j in
// 1..127 where three equal bytes begin, else 128; bytes up to s[129] are
// readable, so no end-of-source rule applies.
HWY_INLINE int LiteralLengthFast(const uint8_t* s) {
  const D8 d;
  const int N = int(hn::Lanes(d));
  for (int j = 1; j < kMaxRun; j += N) {
    const int at = j + N <= kMaxRun ? j : kMaxRun - N;  // last vector overlaps
    const auto a = hn::LoadU(d, s + at);
    const auto b = hn::LoadU(d, s + at + 1);
    const auto c = hn::LoadU(d, s + at + 2);
    const intptr_t hit = hn::FindFirstTrue(d, hn::And(hn::Eq(a, b), hn::Eq(b, c)));
    if (hit >= 0) return at + int(hit);
  }
  return kMaxRun;
}

HWY_INLINE RvtResult PackBitsRow(const uint8_t* src, int32_t n, uint8_t* dst, int32_t* dstPos,
                                 int32_t dstLen) {
  int32_t i = 0, pos = *dstPos;
  // Every look-ahead stays below i + 130 <= n; every packet fits.
  while (n - i >= kMaxPacket + 1 && dstLen - pos >= kMaxPacket) {
    if (src[i] == src[i + 1]) {
      const int count = RunLengthFast(src + i);
      dst[pos] = uint8_t(1 - count);
      dst[pos + 1] = src[i];
      pos += 2;
      i += count;
    } else {
      const int count = LiteralLengthFast(src + i);
      dst[pos] = uint8_t(count - 1);
      std::memcpy(dst + pos + 1, src + i, size_t(count));
      pos += count + 1;
      i += count;
    }
  }
  *dstPos = pos;
  return PackFrom(src, i, n, dst, dstPos, dstLen);
}

}  // namespace rvt::packbits::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TIFF_PACKBITS_INL_H_
