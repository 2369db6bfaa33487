// PackBits rows (TIFF compression 32773): the packet rules, the argument
// checks and the scalar reference coder, which every target's fast path must
// reproduce packet for packet.
//
// Packets: a signed header n, then data.  n = 0..127: n + 1 literal bytes;
// n = -127..-1: one byte repeated 1 - n times; n = -128: nothing.
#ifndef RVT_TIFF_PACKBITS_H_
#define RVT_TIFF_PACKBITS_H_

#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "rvtjp.h"

namespace rvt::packbits {

constexpr int kMaxRun = 128;     // bytes one packet codes
constexpr int kMaxPacket = 129;  // header and 128 literal bytes

// ------------------------------------------------------------ checks

// Pointers, lengths below 1 (rvtStatusBadArg, as TIFF coders expect), and a
// negative position (rvtStatusBadArg: it would address memory before the
// buffer).  Positions at or past the end need no check: nothing fits there.
inline RvtResult CheckPack(const uint8_t* src, int32_t srcLen, const uint8_t* dst,
                           const int32_t* dstPos, int32_t dstLen) {
  RVT_CHECK(CheckPtr(src));
  if (srcLen < 1) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(dst));
  RVT_CHECK(CheckPtr(dstPos));
  if (dstLen < 1 || *dstPos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

inline RvtResult CheckUnpack(const uint8_t* src, const int32_t* srcPos, int32_t srcLen,
                             const uint8_t* dst, int32_t dstLen) {
  RVT_CHECK(CheckPtr(src));
  RVT_CHECK(CheckPtr(srcPos));
  if (srcLen < 1 || *srcPos < 0) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(dst));
  if (dstLen < 1) return rvtStatusBadArg;
  return rvtStatusOk;
}

// ------------------------------------------------------------ packet rules

// Bytes equal to s[i] from i on, at most kMaxRun (s[i] == s[i + 1]).
inline int RunLength(const uint8_t* s, int32_t i, int32_t n) {
  int count = 2;
  while (count < kMaxRun && i + count < n && s[i + count] == s[i]) ++count;
  return count;
}

// Length of the literal packet starting at i (s[i] != s[i + 1], or i is
// the last byte): it ends at the end of the source, after kMaxRun bytes,
// where three equal bytes begin, or before a pair of equal bytes that ends
// the source.  A pair followed by a different byte stays inside.
inline int LiteralLength(const uint8_t* s, int32_t i, int32_t n) {
  int count = 1;
  while (count < kMaxRun && i + count < n) {
    const int32_t j = i + count;
    if (j + 1 < n && s[j] == s[j + 1] && (j + 2 == n || s[j + 1] == s[j + 2])) break;
    ++count;
  }
  return count;
}

// Appends one packet; false (nothing written) when it does not fit.
inline bool PutRun(uint8_t* dst, int32_t& pos, int32_t dstLen, uint8_t v, int count) {
  if (dstLen - pos < 2) return false;
  dst[pos] = uint8_t(1 - count);
  dst[pos + 1] = v;
  pos += 2;
  return true;
}
inline bool PutLiteral(uint8_t* dst, int32_t& pos, int32_t dstLen, const uint8_t* s, int count) {
  if (dstLen - pos < count + 1) return false;
  dst[pos] = uint8_t(count - 1);
  std::memcpy(dst + pos + 1, s, size_t(count));
  pos += count + 1;
  return true;
}

// ------------------------------------------------------------ reference

// Codes source bytes [i, n) packet by packet.  Shared by the fast paths for
// the tail of a row.
inline RvtResult PackFrom(const uint8_t* src, int32_t i, int32_t n, uint8_t* dst, int32_t* dstPos,
                          int32_t dstLen) {
  int32_t pos = *dstPos;
  while (i < n) {
    bool fits;
    int count;
    if (i + 1 < n && src[i] == src[i + 1]) {
      count = RunLength(src, i, n);
      fits = PutRun(dst, pos, dstLen, src[i], count);
    } else {
      count = LiteralLength(src, i, n);
      fits = PutLiteral(dst, pos, dstLen, src + i, count);
    }
    if (!fits) {
      *dstPos = pos;
      return rvtStatusRowEnd;
    }
    i += count;
  }
  *dstPos = pos;
  return rvtStatusOk;
}

inline RvtResult PackBitsRowRef(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* dstPos,
                                int32_t dstLen) {
  RVT_CHECK(CheckPack(src, srcLen, dst, dstPos, dstLen));
  return PackFrom(src, 0, srcLen, dst, dstPos, dstLen);
}

// Decodes whole packets until the row is full, with Ops::Copy (literal
// data) and Ops::Fill (replicate packets), which write exactly the bytes
// given.  A packet that would run past the source or the row is refused,
// not cut: the position then stands after its header.  A replicate packet
// whose byte would lie past the source is refused too, so nothing outside
// the source is ever read.
template <class Ops>
RvtResult Unpack(const uint8_t* src, int32_t* srcPos, int32_t srcLen, uint8_t* dst,
                 int32_t dstLen) {
  RVT_CHECK(CheckUnpack(src, srcPos, srcLen, dst, dstLen));
  int32_t pos = *srcPos, written = 0;
  while (written < dstLen) {
    if (pos >= srcLen) {
      *srcPos = pos;
      return rvtStatusRowEnd;
    }
    const int n = int8_t(src[pos]);
    if (n == -128) {
      ++pos;
      continue;
    }
    const int count = n < 0 ? 1 - n : n + 1;
    const int32_t data_bytes = n < 0 ? 1 : count;
    if (srcLen - pos - 1 < data_bytes || dstLen - written < count) {
      *srcPos = pos + 1;
      return rvtStatusRowEnd;
    }
    if (n < 0) {
      Ops::Fill(dst + written, src[pos + 1], count);
    } else {
      Ops::Copy(dst + written, src + pos + 1, count);
    }
    pos += 1 + data_bytes;
    written += count;
  }
  *srcPos = pos;
  return rvtStatusOk;
}

struct LibcOps {
  static void Copy(uint8_t* d, const uint8_t* s, int n) { std::memcpy(d, s, size_t(n)); }
  static void Fill(uint8_t* d, uint8_t v, int n) { std::memset(d, v, size_t(n)); }
};

// Packet copies in 16-byte moves (plain x86-64 code), the last one
// overlapping the previous so nothing past the packet is read or written;
// shorter packets in two overlapping 8- or 4-byte moves.  Packets are at
// most 128 bytes, where a call into the C library costs more than the copy.
struct ChunkOps {
  template <int kBytes>
  static void Move(uint8_t* d, const uint8_t* s) {
    uint8_t t[kBytes];
    std::memcpy(t, s, kBytes);
    std::memcpy(d, t, kBytes);
  }
  static void Copy(uint8_t* d, const uint8_t* s, int n) {
    if (n >= 16) {
      for (int i = 0; i < n - 16; i += 16) Move<16>(d + i, s + i);
      Move<16>(d + n - 16, s + n - 16);
    } else if (n >= 8) {
      Move<8>(d, s);
      Move<8>(d + n - 8, s + n - 8);
    } else if (n >= 4) {
      Move<4>(d, s);
      Move<4>(d + n - 4, s + n - 4);
    } else {
      for (int i = 0; i < n; ++i) d[i] = s[i];
    }
  }
  static void Fill(uint8_t* d, uint8_t v, int n) {
    uint8_t s[16];
    std::memset(s, v, 16);
    if (n >= 16) {
      for (int i = 0; i < n - 16; i += 16) Move<16>(d + i, s);
      Move<16>(d + n - 16, s);
    } else if (n >= 4) {
      Copy(d, s, n);
    } else {
      for (int i = 0; i < n; ++i) d[i] = v;
    }
  }
};

// The fast decoder serves every target: its copies need nothing beyond
// the x86-64 baseline.
inline RvtResult UnpackBitsRowFast(const uint8_t* src, int32_t* srcPos, int32_t srcLen,
                                   uint8_t* dst, int32_t dstLen) {
  return Unpack<ChunkOps>(src, srcPos, srcLen, dst, dstLen);
}

inline RvtResult UnpackBitsRowRef(const uint8_t* src, int32_t* srcPos, int32_t srcLen, uint8_t* dst,
                                  int32_t dstLen) {
  return Unpack<LibcOps>(src, srcPos, srcLen, dst, dstLen);
}

}  // namespace rvt::packbits

#endif  // RVT_TIFF_PACKBITS_H_
