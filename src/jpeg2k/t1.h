// JPEG 2000 code-block coding (tier-1): the MQ coder, the raw (bypass)
// coder, the three coding passes, segments and terminations, the argument
// checks and the scalar reference of every export.
//
// The passes are written once, templated on the direction: the encoder
// knows each bit and codes it, the decoder learns it; everything else
// (scan order, contexts, state updates) is shared, so the two cannot drift.
//
// Coefficient state: a flag word per coefficient, stored by stripe columns
// with a border all round (so neighbours need no bounds tests), the
// magnitude (the encoder's true one, the decoder's bits known so far) and
// the lowest plane known.
#ifndef RVT_JPEG2K_T1_H_
#define RVT_JPEG2K_T1_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "frame/memory.h"
#include "rvtjp.h"

namespace rvt::t1 {

constexpr int kMaxSide = 1024;
constexpr int kMaxArea = 4096;
constexpr int kMaxPlanes = 31;
constexpr int kMaxPasses = 3 * kMaxPlanes - 2;
constexpr int kContexts = 19;
constexpr int kCtxRun = 17;
constexpr int kCtxUni = 18;

// ------------------------------------------------------------ style rules

enum Pass { kSig = 0, kRef = 1, kClean = 2 };
inline Pass PassType(int k) { return k == 0 ? kClean : Pass((k - 1) % 3); }
// Bit-plane of pass k when planes are coded (top plane planes - 1).
inline int PassPlane(int k, int planes) { return k == 0 ? planes - 1 : planes - 2 - (k - 1) / 3; }
inline bool IsRaw(int k, int style) {
  return (style & rvtJ2KStyleBypass) && k >= 10 && PassType(k) != kClean;
}
// Pass k ends a segment of a block coded to the end.
inline bool EndsSegment(int k, int style) {
  if (style & rvtJ2KStyleTermAll) return true;
  if (style & rvtJ2KStyleBypass) return k == 9 || (k >= 10 && PassType(k) != kSig);
  return false;
}
// Segments that hold passes 0..n-1 (the last may be open).
inline int SegmentsFor(int n, int style) {
  int segs = 0;
  for (int k = 0; k < n; ++k) segs += (EndsSegment(k, style) || k == n - 1) ? 1 : 0;
  return segs;
}

// ------------------------------------------------------------ MQ tables

struct QeEntry {
  uint16_t qe;
  uint8_t nmps, nlps, sw;
};
inline constexpr QeEntry kQe[47] = {
    {0x5601, 1, 1, 1},   {0x3401, 2, 6, 0},   {0x1801, 3, 9, 0},   {0x0AC1, 4, 12, 0},
    {0x0521, 5, 29, 0},  {0x0221, 38, 33, 0}, {0x5601, 7, 6, 1},   {0x5401, 8, 14, 0},
    {0x4801, 9, 14, 0},  {0x3801, 10, 14, 0}, {0x3001, 11, 17, 0}, {0x2401, 12, 18, 0},
    {0x1C01, 13, 20, 0}, {0x1601, 29, 21, 0}, {0x5601, 15, 14, 1}, {0x5401, 16, 14, 0},
    {0x5101, 17, 15, 0}, {0x4801, 18, 16, 0}, {0x3801, 19, 17, 0}, {0x3401, 20, 18, 0},
    {0x3001, 21, 19, 0}, {0x2801, 22, 19, 0}, {0x2401, 23, 20, 0}, {0x2201, 24, 21, 0},
    {0x1C01, 25, 22, 0}, {0x1801, 26, 23, 0}, {0x1601, 27, 24, 0}, {0x1401, 28, 25, 0},
    {0x1201, 29, 26, 0}, {0x1101, 30, 27, 0}, {0x0AC1, 31, 28, 0}, {0x09C1, 32, 29, 0},
    {0x08A1, 33, 30, 0}, {0x0521, 34, 31, 0}, {0x0441, 35, 32, 0}, {0x02A1, 36, 33, 0},
    {0x0221, 37, 34, 0}, {0x0141, 38, 35, 0}, {0x0111, 39, 36, 0}, {0x0085, 40, 37, 0},
    {0x0049, 41, 38, 0}, {0x0025, 42, 39, 0}, {0x0015, 43, 40, 0}, {0x0009, 44, 41, 0},
    {0x0005, 45, 42, 0}, {0x0001, 45, 43, 0}, {0x5601, 46, 46, 0}};

struct Ctx {
  uint8_t state, mps;
};
// Initial states: uniform 46, run-length 3, all-zero neighbourhood 4.
inline void ResetContexts(Ctx* cx) {
  for (int i = 0; i < kContexts; ++i) cx[i] = {0, 0};
  cx[0].state = 4;
  cx[kCtxRun].state = 3;
  cx[kCtxUni].state = 46;
}

// ------------------------------------------------------------ byte sinks

// Output bytes of the encoder; overflow (never with the state's bound)
// is remembered and reported once.
struct Sink {
  uint8_t* buf;
  int32_t cap;
  int32_t pos = 0;
  bool overflow = false;
  void Put(uint8_t b) {
    if (pos < cap) buf[pos++] = b;
    else overflow = true;
  }
};

struct MqEncoder {
  uint32_t a = 0x8000, c = 0;
  int ct = 12;
  int b = -1;  // pending byte; -1 while the byte before the segment is pending
  void Init() { a = 0x8000; c = 0; ct = 12; b = -1; }
  void Emit(Sink& s) {
    if (b >= 0) s.Put(uint8_t(b));
  }
  void ByteOut(Sink& s) {
    if (b == 0xFF) {
      Emit(s);
      b = int(c >> 20) & 0xFF;
      c &= 0xFFFFF;
      ct = 7;
      return;
    }
    if (c >= 0x8000000) {  // carry into the pending byte (never the one before the segment)
      ++b;
      c &= 0x7FFFFFF;
      if (b == 0xFF) {
        Emit(s);
        b = int(c >> 20) & 0xFF;
        c &= 0xFFFFF;
        ct = 7;
        return;
      }
    }
    Emit(s);
    b = int(c >> 19) & 0xFF;
    c &= 0x7FFFF;
    ct = 8;
  }
  void Renorm(Sink& s) {
    do {
      a <<= 1;
      c <<= 1;
      if (--ct == 0) ByteOut(s);
    } while ((a & 0x8000) == 0);
  }
  void Encode(Ctx& cx, int d, Sink& s) {
    const QeEntry& e = kQe[cx.state];
    const uint32_t qe = e.qe;
    if (d == cx.mps) {
      a -= qe;
      if ((a & 0x8000) == 0) {
        if (a < qe) a = qe;
        else c += qe;
        cx.state = e.nmps;
        Renorm(s);
      } else {
        c += qe;
      }
    } else {
      a -= qe;
      if (a < qe) c += qe;
      else a = qe;
      if (e.sw) cx.mps ^= 1;
      cx.state = e.nlps;
      Renorm(s);
    }
  }
  // Bytes of the segment so far that decode every symbol coded: the bytes
  // out, the pending one and those holding the rest of the register (7 bits
  // a byte, as after 0xFF).
  int32_t Needed(const Sink& s, int32_t segStart) const {
    return s.pos - segStart + (b >= 0 ? 1 : 0) + (27 - ct + 6) / 7;
  }
  // Standard flush: the register set to the value with the most trailing
  // ones inside the interval; a final 0xFF is dropped.
  void Flush(Sink& s) {
    const uint32_t top = c + a;
    c |= 0xFFFF;
    if (c >= top) c -= 0x8000;
    c <<= ct;
    ByteOut(s);
    c <<= ct;
    ByteOut(s);
    if (b != 0xFF) Emit(s);
    b = -1;
  }
  // Predictable termination.
  void FlushPredictable(Sink& s) {
    int k = 11 - ct + 1;
    while (k > 0) {
      c <<= ct;
      ct = 0;
      ByteOut(s);
      k -= ct;
    }
    if (b != 0xFF) Emit(s);
    b = -1;
  }
};

struct RawEncoder {
  int acc = 0, nbits = 0, cap = 8;
  bool lastFF = false;
  void Init() { acc = 0; nbits = 0; cap = 8; lastFF = false; }
  void Put(int bit, Sink& s) {
    acc = (acc << 1) | bit;
    if (++nbits == cap) {
      s.Put(uint8_t(acc));
      lastFF = acc == 0xFF;
      cap = lastFF ? 7 : 8;
      acc = 0;
      nbits = 0;
    }
  }
  int32_t Needed(const Sink& s, int32_t segStart) const { return s.pos - segStart + (nbits ? 1 : 0); }
  // Pads the last byte with 0, 1, 0, ...; a final 0xFF is dropped, or with
  // predictable termination followed by 0x2A.
  void Flush(Sink& s, int32_t segStart, bool predictable) {
    if (nbits > 0) {
      int bit = 0;
      while (nbits < cap) {
        acc = (acc << 1) | bit;
        bit ^= 1;
        ++nbits;
      }
      s.Put(uint8_t(acc));
    } else if (lastFF && s.pos > segStart) {
      if (predictable) s.Put(0x2A);
      else --s.pos;
    }
    Init();
  }
};

// Reads a segment; bytes past its end read as 0xFF.
struct Source {
  const uint8_t* p;
  int32_t len;
  uint32_t At(int32_t i) const { return i < len ? p[i] : 0xFFu; }
};

struct MqDecoder {
  uint32_t a, c;
  int ct;
  int32_t pos;
  void ByteIn(const Source& s) {
    if (s.At(pos) == 0xFF) {
      if (s.At(pos + 1) > 0x8F) {
        c += 0xFF00;
        ct = 8;
      } else {
        ++pos;
        c += s.At(pos) << 9;
        ct = 7;
      }
    } else {
      ++pos;
      c += s.At(pos) << 8;
      ct = 8;
    }
  }
  void Init(const Source& s) {
    pos = 0;
    c = s.At(0) << 16;
    ByteIn(s);
    c <<= 7;
    ct -= 7;
    a = 0x8000;
  }
  void Renorm(const Source& s) {
    do {
      if (ct == 0) ByteIn(s);
      a <<= 1;
      c <<= 1;
      --ct;
    } while ((a & 0x8000) == 0);
  }
  int Decode(Ctx& cx, const Source& s) {
    const QeEntry& e = kQe[cx.state];
    const uint32_t qe = e.qe;
    int d;
    a -= qe;
    if ((c >> 16) < qe) {
      if (a < qe) {
        d = cx.mps;
        cx.state = e.nmps;
      } else {
        d = cx.mps ^ 1;
        if (e.sw) cx.mps ^= 1;
        cx.state = e.nlps;
      }
      a = qe;
      Renorm(s);
    } else {
      c -= qe << 16;
      if ((a & 0x8000) == 0) {
        if (a < qe) {
          d = cx.mps ^ 1;
          if (e.sw) cx.mps ^= 1;
          cx.state = e.nlps;
        } else {
          d = cx.mps;
          cx.state = e.nmps;
        }
        Renorm(s);
      } else {
        d = cx.mps;
      }
    }
    return d;
  }
};

struct RawDecoder {
  uint32_t cur = 0;
  int ct = 0;
  int32_t pos = 0;
  void Init() { cur = 0; ct = 0; pos = 0; }
  int Bit(const Source& s) {
    if (ct == 0) {
      if (cur == 0xFF) {
        if (s.At(pos) > 0x8F) {
          cur = 0xFF;
          ct = 8;
        } else {
          cur = s.At(pos++);
          ct = 7;
        }
      } else {
        cur = s.At(pos++);
        ct = 8;
      }
    }
    --ct;
    return int(cur >> ct) & 1;
  }
};

// ------------------------------------------------------------ block state

// Bits 0..11 are the fast coder's neighbourhood (t1_fast.h); the reference
// leaves them 0 and looks at the neighbours themselves.
enum Flag : uint32_t { kFSig = 1u << 12, kFNeg = 1u << 13, kFVisit = 1u << 14, kFRefined = 1u << 15 };
static_assert(kFVisit == kFSig << 2, "the fast cleanup pass tests both with one shift");

// A coefficient's flags: 16 bits (the fast coder's neighbourhood and the
// four state bits), so a 64 x 64 block's flags, magnitudes and planes stay
// in the first-level cache.
using FlagWord = uint16_t;

// The coefficient planes of a block inside a state: flags, magnitudes,
// lowest known plane.  The flags are kept stripe by stripe in the order the
// passes visit them: the four rows of a stripe column are four consecutive
// words (one 64-bit load), columns one after the other, with a border
// column on each side and a border stripe above and below, so neighbours
// need no bounds tests.  Rows past the block's height inside its last
// stripe stay clear, as the border does.
struct Planes {
  FlagWord* flags;
  uint32_t* mag;
  uint8_t* low;
  int w, h, stride;  // stride: flag words from one stripe to the next
  FlagWord& F(int x, int y) const { return flags[((y >> 2) + 1) * stride + 4 * (x + 1) + (y & 3)]; }
  // First word of the column x of the stripe holding row y0 (a multiple of 4).
  FlagWord* Column(int x, int y0) const { return flags + ((y0 >> 2) + 1) * stride + 4 * (x + 1); }
  int FlagWords() const { return ((h + 3) / 4 + 2) * stride; }
};
inline int32_t Align8(int32_t n) { return (n + 7) & ~7; }
// Flag words for any block of a state (w <= maxW, h <= maxH): the stripes
// of the tallest times the columns of the widest bounds them.
inline int32_t FlagWords(int maxW, int maxH) { return ((maxH + 3) / 4 + 2) * 4 * (maxW + 2); }
inline int32_t PlanesBytes(int maxW, int maxH, int maxArea) {
  return Align8(int32_t(sizeof(FlagWord)) * FlagWords(maxW, maxH)) + 4 * maxArea + Align8(maxArea);
}
inline Planes PlanesAt(uint8_t* base, int maxW, int maxH, int maxArea, int w, int h) {
  Planes p;
  const int32_t flagBytes = Align8(int32_t(sizeof(FlagWord)) * FlagWords(maxW, maxH));
  p.flags = reinterpret_cast<FlagWord*>(base);
  p.mag = reinterpret_cast<uint32_t*>(base + flagBytes);
  p.low = base + flagBytes + 4 * maxArea;
  p.w = w;
  p.h = h;
  p.stride = 4 * (w + 2);
  return p;
}

// Significance, and sign contributions, of the neighbours of (x, y); with
// vertically causal stripes the row below a stripe's last row counts as
// insignificant.
struct Neigh {
  int h, v, d;
};
inline Neigh Neighbours(const Planes& b, int x, int y, bool causal) {
  const bool below = !(causal && (y & 3) == 3);
  auto s = [&](int xx, int yy) { return (b.F(xx, yy) & kFSig) ? 1 : 0; };
  Neigh n;
  n.h = s(x - 1, y) + s(x + 1, y);
  n.v = s(x, y - 1) + (below ? s(x, y + 1) : 0);
  n.d = s(x - 1, y - 1) + s(x + 1, y - 1) + (below ? s(x - 1, y + 1) + s(x + 1, y + 1) : 0);
  return n;
}
constexpr int ZeroContext(Neigh n, int band) {
  int h = n.h, v = n.v;
  const int d = n.d;
  if (band == rvtJ2KBandHH) {
    const int hv = h + v;
    if (d >= 3) return 8;
    if (d == 2) return hv >= 1 ? 7 : 6;
    if (d == 1) return hv >= 2 ? 5 : hv == 1 ? 4 : 3;
    return hv >= 2 ? 2 : hv;
  }
  if (band == rvtJ2KBandHL) {
    const int t = h;
    h = v;
    v = t;
  }
  if (h == 2) return 8;
  if (h == 1) return v >= 1 ? 7 : d >= 1 ? 6 : 5;
  if (v == 2) return 4;
  if (v == 1) return 3;
  return d >= 2 ? 2 : d;
}
// Sign context and the bit the sign is xor-ed with.
inline int SignContext(const Planes& b, int x, int y, bool causal, int* xorBit) {
  const bool below = !(causal && (y & 3) == 3);
  auto c = [&](int xx, int yy) {
    const uint32_t f = b.F(xx, yy);
    return (f & kFSig) ? ((f & kFNeg) ? -1 : 1) : 0;
  };
  auto clamp = [](int v) { return v > 1 ? 1 : v < -1 ? -1 : v; };
  int h = clamp(c(x - 1, y) + c(x + 1, y));
  int v = clamp(c(x, y - 1) + (below ? c(x, y + 1) : 0));
  *xorBit = 0;
  if (h < 0 || (h == 0 && v < 0)) {
    *xorBit = 1;
    h = -h;
    v = -v;
  }
  if (h == 0) return 9 + v;  // v is 0 or 1 here
  return 12 + v;             // h == 1: v -1, 0, 1 give 11, 12, 13
}

// ------------------------------------------------------------ the passes

// Square of the distance between a magnitude and the reconstruction of
// its bits down to plane low (nothing for an insignificant coefficient).
inline uint64_t Err2(uint32_t mag, bool sig, int low) {
  uint64_t r = 0;
  if (sig) {
    r = (uint64_t(mag) >> low) << low;
    if (low > 0) r += uint64_t(1) << (low - 1);
  }
  const int64_t e = int64_t(mag) - int64_t(r);
  return uint64_t(e * e);
}

// One direction of the coder: the encoder (kEnc) takes each bit from the
// magnitudes and codes it, the decoder reads it.
template <bool kEnc>
struct Coder;

template <>
struct Coder<true> {
  MqEncoder mq;
  RawEncoder raw;
  Sink sink;
  Ctx* cx;
  unsigned __int128 err = 0;  // squared error of the reconstruction so far
  int Mq(int ctx, int bit) {
    mq.Encode(cx[ctx], bit, sink);
    return bit;
  }
  int Raw(int bit) {
    raw.Put(bit, sink);
    return bit;
  }
};

template <>
struct Coder<false> {
  MqDecoder mq;
  RawDecoder raw;
  Source src;
  Ctx* cx;
  int Mq(int ctx, int) { return mq.Decode(cx[ctx], src); }
  int Raw(int) { return raw.Bit(src); }
};

template <bool kEnc>
inline void BecomeSignificant(Planes& b, Coder<kEnc>& c, int x, int y, int plane, int neg) {
  const int i = y * b.w + x;
  b.F(x, y) |= kFSig | (neg ? uint32_t(kFNeg) : 0u);
  if constexpr (kEnc) {
    c.err -= Err2(b.mag[i], false, 0);
    c.err += Err2(b.mag[i], true, plane);
  } else {
    b.mag[i] = uint32_t(1) << plane;
  }
  b.low[i] = uint8_t(plane);
}

template <bool kEnc>
inline int TrueBit(const Planes& b, int x, int y, int plane) {
  if constexpr (kEnc) return int(b.mag[y * b.w + x] >> plane) & 1;
  else return 0;
}
template <bool kEnc>
inline int TrueSign(const Planes& b, int x, int y) {
  if constexpr (kEnc) return (b.F(x, y) & kFNeg) ? 1 : 0;
  else return 0;
}

// The encoder keeps the signs of all coefficients in kFNeg from the start;
// BecomeSignificant ors the same bit again, so both directions share it.
template <bool kEnc>
inline void CodeSign(Planes& b, Coder<kEnc>& c, int x, int y, int plane, bool raw, bool causal) {
  int neg;
  if (raw) {
    neg = c.Raw(TrueSign<kEnc>(b, x, y));
  } else {
    int xr;
    const int ctx = SignContext(b, x, y, causal, &xr);
    neg = c.Mq(ctx, TrueSign<kEnc>(b, x, y) ^ xr) ^ xr;
  }
  BecomeSignificant(b, c, x, y, plane, neg);
}

template <bool kEnc>
void SignificancePass(Planes& b, Coder<kEnc>& c, int plane, int band, bool raw, bool causal) {
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int y1 = y0 + 4 < b.h ? y0 + 4 : b.h;
    for (int x = 0; x < b.w; ++x) {
      for (int y = y0; y < y1; ++y) {
        if (b.F(x, y) & kFSig) continue;
        const Neigh n = Neighbours(b, x, y, causal);
        if (n.h + n.v + n.d == 0) continue;
        const int t = TrueBit<kEnc>(b, x, y, plane);
        const int bit = raw ? c.Raw(t) : c.Mq(ZeroContext(n, band), t);
        b.F(x, y) |= kFVisit;
        if (bit) CodeSign(b, c, x, y, plane, raw, causal);
      }
    }
  }
}

template <bool kEnc>
void RefinementPass(Planes& b, Coder<kEnc>& c, int plane, bool raw, bool causal) {
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int y1 = y0 + 4 < b.h ? y0 + 4 : b.h;
    for (int x = 0; x < b.w; ++x) {
      for (int y = y0; y < y1; ++y) {
        const uint32_t f = b.F(x, y);
        if ((f & (kFSig | kFVisit)) != kFSig) continue;
        const int t = TrueBit<kEnc>(b, x, y, plane);
        int bit;
        if (raw) {
          bit = c.Raw(t);
        } else {
          int ctx = 16;
          if (!(f & kFRefined)) {
            const Neigh n = Neighbours(b, x, y, causal);
            ctx = (n.h + n.v + n.d) ? 15 : 14;
          }
          bit = c.Mq(ctx, t);
        }
        b.F(x, y) |= kFRefined;
        const int i = y * b.w + x;
        if constexpr (kEnc) {
          c.err -= Err2(b.mag[i], true, b.low[i]);
          c.err += Err2(b.mag[i], true, plane);
        } else {
          b.mag[i] |= uint32_t(bit) << plane;
        }
        b.low[i] = uint8_t(plane);
      }
    }
  }
}

template <bool kEnc>
void CleanupPass(Planes& b, Coder<kEnc>& c, int plane, int band, bool causal, bool segsym) {
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int y1 = y0 + 4 < b.h ? y0 + 4 : b.h;
    for (int x = 0; x < b.w; ++x) {
      int y = y0;
      if (y1 - y0 == 4) {
        bool run = true;
        for (int k = y0; k < y1 && run; ++k) {
          if (b.F(x, k) & (kFSig | kFVisit)) run = false;
          else {
            const Neigh n = Neighbours(b, x, k, causal);
            run = n.h + n.v + n.d == 0;
          }
        }
        if (run) {
          int first = 4;
          if constexpr (kEnc) {
            for (int k = 0; k < 4 && first == 4; ++k)
              if (TrueBit<kEnc>(b, x, y0 + k, plane)) first = k;
          }
          if (!c.Mq(kCtxRun, first < 4 ? 1 : 0)) continue;
          int idx = c.Mq(kCtxUni, (first >> 1) & 1) << 1;
          idx |= c.Mq(kCtxUni, first & 1);
          y = y0 + idx;
          CodeSign(b, c, x, y, plane, false, causal);
          ++y;
        }
      }
      for (; y < y1; ++y) {
        if (b.F(x, y) & (kFSig | kFVisit)) continue;
        const Neigh n = Neighbours(b, x, y, causal);
        if (c.Mq(ZeroContext(n, band), TrueBit<kEnc>(b, x, y, plane)))
          CodeSign(b, c, x, y, plane, false, causal);
      }
    }
  }
  for (int y = 0; y < b.h; ++y)
    for (int x = 0; x < b.w; ++x) b.F(x, y) &= ~uint32_t(kFVisit);
  if (segsym) {
    c.Mq(kCtxUni, 1);
    c.Mq(kCtxUni, 0);
    c.Mq(kCtxUni, 1);
    c.Mq(kCtxUni, 0);
  }
}

template <bool kEnc>
void RunPass(Planes& b, Coder<kEnc>& c, int k, int planes, int band, int style) {
  const int plane = PassPlane(k, planes);
  const bool causal = style & rvtJ2KStyleVCausal;
  const bool raw = IsRaw(k, style);
  switch (PassType(k)) {
    case kSig: SignificancePass(b, c, plane, band, raw, causal); break;
    case kRef: RefinementPass(b, c, plane, raw, causal); break;
    case kClean: CleanupPass(b, c, plane, band, causal, style & rvtJ2KStyleSegSym); break;
  }
}

// ------------------------------------------------------------ checks

inline bool SizeOk(ImageSize s) {
  return s.width >= 1 && s.height >= 1 && s.width <= kMaxSide && s.height <= kMaxSide &&
         s.width * s.height <= kMaxArea;
}
// States and buffers may sit at any address: their contents start at the
// next multiple of 8 (the sizes include the slack).
template <class T>
inline T* AlignUp(const void* p) {
  return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(p) + 7) & ~uintptr_t(7));
}

// ------------------------------------------------------------ encoder

constexpr uint32_t kEncMagic = 0x314B3245;  // "E2K1"
constexpr uint32_t kDecMagic = 0x314B3244;  // "D2K1"

struct EncHeader {
  uint32_t magic;
  int32_t maxW, maxH, maxArea, cap;
  int32_t loaded, passes, segs, total, storePos;
  int32_t rate[kMaxPasses];
  int32_t segLen[kMaxPasses];
  double dist[kMaxPasses];
};
inline int32_t EncCapacity(int maxArea) { return 6 * maxArea * kMaxPlanes + 1024; }
inline int32_t EncStateBytes(ImageSize m) {
  const int area = m.width * m.height;
  return 8 + Align8(int32_t(sizeof(EncHeader))) + PlanesBytes(m.width, m.height, area) + EncCapacity(area);
}

RvtResult EncodeGetStateSize(ImageSize cbMaxSize, int32_t* pSize);
RvtResult EncodeInit(EncodeCBState_JPEG2K* pState, ImageSize cbMaxSize);
RvtResult EncodeInitAlloc(EncodeCBState_JPEG2K** ppState, ImageSize cbMaxSize);
RvtResult EncodeFree(EncodeCBState_JPEG2K* pState);
RvtResult EncodeLoadCodeBlockRef(const int32_t* pSrc, int32_t srcStep, ImageSize cbSize,
                                 EncodeCBState_JPEG2K* pState, int32_t band, int32_t magnBits,
                                 int32_t codeStyle, int32_t* pSfBits, int32_t* pNOfPasses,
                                 int32_t* pNOfTermPasses);
RvtResult EncodeLoadCodeBlockFast(const int32_t* pSrc, int32_t srcStep, ImageSize cbSize,
                                  EncodeCBState_JPEG2K* pState, int32_t band, int32_t magnBits,
                                  int32_t codeStyle, int32_t* pSfBits, int32_t* pNOfPasses,
                                  int32_t* pNOfTermPasses);
RvtResult EncodeStoreBits(uint8_t* pDst, int32_t* pDstLen, EncodeCBState_JPEG2K* pState,
                          int32_t* pIsNotFinish);
RvtResult EncodeGetRate(const EncodeCBState_JPEG2K* pState, int32_t passNo, int32_t* pRate);
RvtResult EncodeGetDist(const EncodeCBState_JPEG2K* pState, int32_t passNo, double* pDist);
RvtResult EncodeGetTermPassLen(const EncodeCBState_JPEG2K* pState, int32_t segNo, int32_t* pLen);

// ------------------------------------------------------------ decoder

struct DecHeader {
  uint32_t magic;
  int32_t maxW, maxH, maxArea;
  int32_t snapshots;  // room for the open segment's starting state
  int32_t attached;
  int32_t w, h, band, magnBits, sfBits, style, roi;
  int32_t passes;    // passes decoded
  int32_t segStart;  // first pass of the open segment (its state is in the snapshot)
  int32_t snapValid;
  Ctx cx[kContexts];
  Ctx snapCx[kContexts];
};
inline int32_t DecBytes(ImageSize m, bool snapshots) {
  const int area = m.width * m.height;
  return 8 + Align8(int32_t(sizeof(DecHeader))) + PlanesBytes(m.width, m.height, area) * (snapshots ? 2 : 1);
}

RvtResult DecodeGetBufSize(ImageSize cbMaxSize, int32_t* pSize);
RvtResult DecodeCodeBlockRef(const uint8_t* pSrc, const int32_t* pSegLen, int32_t* pDst, int32_t dstStep,
                             ImageSize cbSize, int32_t band, int32_t magnBits, int32_t sfBits,
                             int32_t nOfPasses, int32_t codeStyle, int32_t roiShift, uint8_t* pBuffer);
RvtResult DecodeCodeBlockFast(const uint8_t* pSrc, const int32_t* pSegLen, int32_t* pDst, int32_t dstStep,
                              ImageSize cbSize, int32_t band, int32_t magnBits, int32_t sfBits,
                              int32_t nOfPasses, int32_t codeStyle, int32_t roiShift, uint8_t* pBuffer);
RvtResult ProgrGetStateSize(ImageSize cbMaxSize, int32_t* pSize);
RvtResult ProgrInit(DecodeCBProgrState_JPEG2K* pState, ImageSize cbMaxSize);
RvtResult ProgrInitAlloc(DecodeCBProgrState_JPEG2K** ppState, ImageSize cbMaxSize);
RvtResult ProgrFree(DecodeCBProgrState_JPEG2K* pState);
RvtResult ProgrAttach(DecodeCBProgrState_JPEG2K* pState, ImageSize cbSize, int32_t band, int32_t magnBits,
                      int32_t sfBits, int32_t codeStyle, int32_t roiShift);
RvtResult ProgrStepRef(const uint8_t* pSrc, const int32_t* pSegLen, int32_t nOfPasses,
                       DecodeCBProgrState_JPEG2K* pState);
RvtResult ProgrStepFast(const uint8_t* pSrc, const int32_t* pSegLen, int32_t nOfPasses,
                        DecodeCBProgrState_JPEG2K* pState);
RvtResult ProgrGetPassCounters(const DecodeCBProgrState_JPEG2K* pState, int32_t* pNOfDecodedPasses,
                               int32_t* pBitPlane);
RvtResult ProgrGetCodeBlock(const DecodeCBProgrState_JPEG2K* pState, int32_t* pDst, int32_t dstStep);

}  // namespace rvt::t1

#endif  // RVT_JPEG2K_T1_H_
