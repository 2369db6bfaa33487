// JPEG XR coefficient coding: the coding context, fixed-length fields and
// the adaptive variable-length coding of the DC, lowpass (LP) and highpass
// (HP) coefficients of one macroblock.  The scalar reference defines every
// result; the argument checks and the macroblock coders live here, written
// once over a bit reader, so the reference reader (one bit at a time, codes
// matched length by length) and the fast one (a 64-bit window and one
// table look-up per code) run the same steps.
//
// Bits are read and written most significant first.  A call works on a
// copy of the context and stores it, the coefficients and the positions
// only when the whole macroblock coded: a failure changes nothing.
#ifndef RVT_JPEGXR_VLC_H_
#define RVT_JPEGXR_VLC_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/checks.h"
#include "jpegxr/vlc_tables.h"
#include "rvtjp.h"

struct VLCState_JPEGXR {
  uint32_t magic;
  int32_t format, channels;
  int32_t table[rvt::vlc::kSlots];
  int32_t disc[rvt::vlc::kSlots], disc1[rvt::vlc::kSlots];
  int32_t modelState[3][2], modelBits[3][2];  // DC, LP, HP; lum, chroma
  int32_t cbpCountZero, cbpCountMax;          // LP coded-block pattern
  int32_t cbpModel[6];                        // HP coded-block pattern: counts 0, 1, modes
  uint8_t order[3][16];                       // LP, HP horizontal, HP vertical
  int32_t total[3][16];
};

namespace rvt::vlc {

using State = VLCState_JPEGXR;
constexpr uint32_t kMagic = 0x4A585256u;  // "VRXJ"
enum Format : int { kYOnly = 0, k420 = 1, k422 = 2, k444 = 3, kCmyk = 4, kNChannel = 6 };
enum Band : int { kDC = 0, kLP = 1, kHP = 2 };
// Bit positions are int32: buffers count up to 2^28 - 1 bytes.
constexpr int64_t kMaxBytes = (int64_t(1) << 28) - 1;

inline bool IsColour(int f) { return f == k420 || f == k422 || f == k444; }

// ------------------------------------------------------------ context

inline RvtResult CheckFormat(int32_t format, int32_t channels) {
  switch (format) {
    case kYOnly: return channels == 1 ? rvtStatusOk : rvtStatusBadArg;
    case k420: case k422: case k444: return channels == 3 ? rvtStatusOk : rvtStatusBadArg;
    case kCmyk: return channels == 4 ? rvtStatusOk : rvtStatusBadArg;
    case kNChannel: return (channels >= 1 && channels <= 16) ? rvtStatusOk : rvtStatusBadArg;
    default: return rvtStatusBadArg;
  }
}

// Scan totals start two apart, so an index passes its predecessor only
// after hitting three times more often than it.
inline void ResetTotals(State& s, int scan) {
  for (int i = 0; i < 16; ++i) s.total[scan][i] = kMaxTotal - 2 * i;
}

inline void InitState(State& s, int format, int channels) {
  std::memset(&s, 0, sizeof(s));
  s.magic = kMagic;
  s.format = format;
  s.channels = channels;
  const bool colour = IsColour(format);
  for (int k = 0; k < kSlots; ++k) s.table[k] = InitialTable(SlotSymbols(k, colour));
  for (int b = 0; b < 3; ++b) s.modelBits[b][0] = s.modelBits[b][1] = kModelStart[b];
  std::memcpy(s.order[0], kScanLowpass, 16);
  std::memcpy(s.order[1], kScanHoriz, 16);
  std::memcpy(s.order[2], kScanVert, 16);
  for (int i = 0; i < 3; ++i) ResetTotals(s, i);
  s.cbpCountZero = s.cbpCountMax = 1;  // LP patterns start coded directly
  s.cbpModel[0] = s.cbpModel[1] = -4;
  s.cbpModel[2] = s.cbpModel[3] = 4;
}

// A state Init built (and the coders kept): fields within their ranges, so
// no table look-up can leave its table.
// Tables of each slot's alphabet (both alphabets of the last slot have two).
inline constexpr int8_t kSlotTables[kSlots] = {2, 1, 2, 2, 5, 4, 4, 5, 4, 4, 2,
                                               2, 5, 4, 4, 5, 4, 4, 2, 2, 2, 2};
inline RvtResult CheckState(const State* s) {
  RVT_CHECK(CheckPtr(s));
  if (s->magic != kMagic || CheckFormat(s->format, s->channels) != rvtStatusOk) return rvtStatusBadArg;
  // a table index t is out of 0..last exactly when t or last - t is
  // negative: their sign bits ORed over the slots, a loop that runs as
  // vectors on every target
  static constexpr auto kLast = [] {
    std::array<int32_t, kSlots> l{};
    for (int k = 0; k < kSlots; ++k) l[size_t(k)] = kSlotTables[k] - 1;
    return l;
  }();
  uint32_t bad = 0;
  for (int k = 0; k < kSlots; ++k) {
    const int32_t t = s->table[k];
    bad |= uint32_t(t) | (uint32_t(kLast[size_t(k)]) - uint32_t(t));
  }
  if (bad >> 31) return rvtStatusBadArg;
  uint32_t bits = 0;
  for (int b = 0; b < 3; ++b) bits |= uint32_t(s->modelBits[b][0]) | uint32_t(s->modelBits[b][1]);
  if (bits > 15) return rvtStatusBadArg;
  // every order entry below 16: no high nibble in any of the 48 bytes
  uint64_t high = 0;
  for (int i = 0; i < 6; ++i) {
    uint64_t v;
    std::memcpy(&v, &s->order[0][0] + 8 * i, 8);
    high |= v;
  }
  return (high & 0xF0F0F0F0F0F0F0F0u) ? rvtStatusBadArg : rvtStatusOk;
}

// The discriminant steps of a symbol: code lengths of the table below
// minus those of the table above the boundary each discriminant watches
// (the lower one the boundary under the current table, the upper one the
// boundary over it; the end tables watch their one boundary twice).
inline void Account(State& s, int slot, int sym) {
  const Alphabet& a = AlphabetOf(SlotSymbols(slot, IsColour(s.format)));
  if (a.tables < 2 || a.symbols == 8) return;
  const int t = s.table[slot];
  const int lo = t > 0 ? t - 1 : 0;
  const int hi = t < a.tables - 1 ? t : a.tables - 2;
  // (wrapping: a caller that never adapts must not overflow)
  auto add = [](int32_t& d, int v) { d = int32_t(uint32_t(d) + uint32_t(v)); };
  add(s.disc[slot], a.code[lo][sym].len - a.code[lo + 1][sym].len);
  if (a.symbols == 6 || a.symbols == 12) add(s.disc1[slot], a.code[hi][sym].len - a.code[hi + 1][sym].len);
}

// Table switch at an adaptation point: down when the lower discriminant is
// below -8, else up when the upper one (the only one for 5, 7 and 9
// symbols) is above 8; a switch zeroes both; both are kept within +-64.
inline void AdaptSlot(State& s, int slot) {
  const Alphabet& a = AlphabetOf(SlotSymbols(slot, IsColour(s.format)));
  if (a.tables < 2) return;
  const bool two = a.symbols == 6 || a.symbols == 12;
  const int t = s.table[slot];
  const int dl = s.disc[slot], dh = two ? s.disc1[slot] : s.disc[slot];
  bool change = false;
  if (t > 0 && dl < -kSwitch) {
    s.table[slot] = t - 1;
    change = true;
  } else if (t < a.tables - 1 && dh > kSwitch) {
    s.table[slot] = t + 1;
    change = true;
  }
  if (change) s.disc[slot] = s.disc1[slot] = 0;
  auto clamp = [](int32_t& d) { d = d < -kClamp ? -kClamp : d > kClamp ? kClamp : d; };
  clamp(s.disc[slot]);
  clamp(s.disc1[slot]);
}

// Table switches (DC, LP with the run table, HP with the coded-block
// pattern tables) and scan total resets (LP, both HP scans) are separate:
// files switch tables after the first macroblock of every 16 in a row and
// after the row's last, and reset totals before the first of every 16.
constexpr int32_t kAdaptDC = 1, kAdaptLP = 2, kAdaptHP = 4, kResetLP = 8, kResetHP = 16;

inline void Adapt(State& s, int32_t bands) {
  if (bands & kAdaptDC) {
    for (int k = kDcYuv; k <= kDcLevelChr; ++k) AdaptSlot(s, k);
  }
  if (bands & kAdaptLP) {
    AdaptSlot(s, kRun);
    for (int k = 0; k < 8; ++k) AdaptSlot(s, kLpFirst + k);
  }
  if (bands & kAdaptHP) {
    for (int k = 0; k < 8; ++k) AdaptSlot(s, kHpFirst + k);
    AdaptSlot(s, kNumCbp);
    AdaptSlot(s, kNumBlkCbp);
  }
  if (bands & kResetLP) ResetTotals(s, 0);
  if (bands & kResetHP) {
    ResetTotals(s, 1);
    ResetTotals(s, 2);
  }
}

// Model bits of one band after a macroblock whose lum and chroma counts of
// nonzero coefficients are lm[0], lm[1]: the counts are weighted by band and
// colour format, and each model state walks towards more or fewer bits.
inline void UpdateModel(State& s, int band, int32_t lm0, int32_t lm1) {
  static constexpr int kWeight0[3] = {240, 12, 1};
  static constexpr int kWeight1[3][16] = {
      {0, 240, 120, 80, 60, 48, 40, 34, 30, 27, 24, 22, 20, 18, 17, 16},
      {0, 12, 6, 4, 3, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1},
      {0, 16, 8, 5, 4, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 1}};
  static constexpr int kWeight2[6] = {120, 37, 2, 120, 18, 1};
  int32_t lm[2] = {lm0 * kWeight0[band], lm1};
  if (s.format == k420) {
    lm[1] *= kWeight2[band];
  } else if (s.format == k422) {
    lm[1] *= kWeight2[3 + band];
  } else {
    lm[1] *= kWeight1[band][s.channels - 1];
    if (band == kHP) lm[1] >>= 4;
  }
  for (int j = 0; j < 2; ++j) {
    int32_t ms = s.modelState[band][j];
    int32_t delta = (lm[j] - 70) >> 2;
    int32_t& bits = s.modelBits[band][j];
    if (delta <= -8) {
      delta += 4;
      if (delta < -16) delta = -16;
      ms += delta;
      if (ms < -8) {
        if (bits == 0) {
          ms = -8;
        } else {
          ms = 0;
          --bits;
        }
      }
    } else if (delta >= 8) {
      delta -= 4;
      if (delta > 15) delta = 15;
      ms += delta;
      if (ms > 8) {
        if (bits >= 15) {
          bits = 15;
          ms = 8;
        } else {
          ms = 0;
          ++bits;
        }
      }
    }
    s.modelState[band][j] = ms;
    if (s.format == kYOnly) break;
  }
}

// ------------------------------------------------------------ bit I/O

// The reference reader: one bit at a time; bits past the end read as 0 and
// mark the read as short.
struct RefReader {
  const uint8_t* p;
  int64_t end;  // in bits
  int64_t pos;
  uint32_t Bit() {
    const int64_t i = pos++;
    if (i >= end) return 0;
    return (p[i >> 3] >> (7 - (i & 7))) & 1u;
  }
  uint32_t Bits(int n) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = (v << 1) | Bit();
    return v;
  }
  bool Short() const { return pos > end; }
  // Matches the code length by length against the current table.
  int Symbol(const Alphabet& a, int t) {
    uint32_t code = 0;
    for (int len = 1; len <= 8; ++len) {
      code = (code << 1) | Bit();
      for (int s = 0; s < a.symbols; ++s) {
        if (a.code[t][s].len == len && a.code[t][s].code == code) return s;
      }
    }
    return 0;  // every table is a complete prefix code; not reached
  }
};

// The fast reader: a 64-bit window at the position (zeros past the end)
// and one look-up per code in a table indexed by the next 8 bits.
struct Luts {
  uint16_t e[17][256];  // symbol | length << 8
};
constexpr int LutBase(int symbols) {
  return symbols == 4 ? 0 : symbols == 5 ? 1 : symbols == 6 ? 3 : symbols == 7 ? 7
       : symbols == 8 ? 9 : symbols == 9 ? 10 : 12;
}
constexpr Luts MakeLuts() {
  Luts l{};
  const Alphabet* all[7] = {&kAlpha4, &kAlpha5, &kAlpha6, &kAlpha7, &kAlpha8, &kAlpha9, &kAlpha12};
  for (const Alphabet* a : all) {
    for (int t = 0; t < a->tables; ++t) {
      for (int s = 0; s < a->symbols; ++s) {
        const Code c = a->code[t][s];
        const int lo = c.code << (8 - c.len), n = 1 << (8 - c.len);
        for (int i = 0; i < n; ++i) l.e[LutBase(a->symbols) + t][lo + i] = uint16_t(s | (c.len << 8));
      }
    }
  }
  return l;
}
inline constexpr Luts kLuts = MakeLuts();

// The bits a look-up entry takes, held alone in its second byte: read as a
// byte load of its own, the next position does not wait for the shifts
// that unpack the rest of the entry.
template <class T>
__attribute__((always_inline)) inline uint32_t TakenBits(const T& e) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return reinterpret_cast<const uint8_t*>(&e)[1];
#else
  return uint32_t(e >> 8) & 0xFFu;
#endif
}

struct FastReader {
  const uint8_t* p;
  int64_t end;
  int64_t pos;
  uint64_t word = 0;   // the 8 bytes from bit `base` (a byte start), most significant first
  int64_t base = -512;
  // At least 32 valid bits from the position, most significant first.
  __attribute__((always_inline)) uint64_t Window() {
    int64_t off = pos - base;
    if (off > 32) {
      const int64_t at = pos >> 3;
      const int64_t bytes = end >> 3;
      if (at + 8 <= bytes) {
        std::memcpy(&word, p + at, 8);
        word = __builtin_bswap64(word);
      } else {
        word = TailWord(p, at, bytes);
      }
      base = at * 8;
      off = pos & 7;
    }
    return word << off;
  }
  // The 8 bytes from `at` near the end, zeros past it (out of line: the
  // reader's fields stay in registers around it).
  __attribute__((noinline)) static uint64_t TailWord(const uint8_t* p, int64_t at, int64_t bytes) {
    uint64_t w = 0;
    for (int64_t i = at; i < at + 8; ++i) w = (w << 8) | (i < bytes ? p[i] : 0u);
    return w;
  }
  uint32_t Bit() {
    const uint32_t b = uint32_t(Window() >> 63);
    ++pos;
    return b;
  }
  uint32_t Bits(int n) {
    if (n == 0) return 0;
    const uint32_t v = uint32_t(Window() >> (64 - n));
    pos += n;
    return v;
  }
  bool Short() const { return pos > end; }
  int Symbol(const Alphabet& a, int t) {
    const uint16_t& e = kLuts.e[LutBase(a.symbols) + t][Window() >> 56];
    pos += TakenBits(e);
    return e & 0xFF;
  }
};

// The writer: bits before the start position are kept, the rest of the
// last byte written is cleared, bytes after it are not touched.  A dry
// writer only counts.  Bits gather in a 64-bit word and go out 32 at a
// time; Flush() writes what is pending and must end every writing run.
struct Writer {
  uint8_t* p;
  int64_t end;
  int64_t pos;
  bool dry;
  uint64_t acc = 0;  // pending bits, the last one lowest
  int nb = -1;       // how many; -1 before the first bit (or after Flush)
  int64_t at = 0;    // byte the pending bits start at
  __attribute__((always_inline)) void Put(uint32_t v, int n) {
    if (n <= 0) return;
    if (dry) {
      pos += n;
      return;
    }
    if (pos + n <= end) {
      if (nb < 0) {  // the bits of the first byte before the position are kept
        const int off = int(pos & 7);
        at = pos >> 3;
        acc = off ? uint64_t(p[at] >> (8 - off)) : 0u;
        nb = off;
      }
      const uint32_t m = n >= 32 ? ~0u : (1u << n) - 1u;
      acc = (acc << n) | (v & m);
      nb += n;
      pos += n;
      if (nb >= 32) {
        const uint32_t out = __builtin_bswap32(uint32_t(acc >> (nb - 32)));
        std::memcpy(p + at, &out, 4);
        at += 4;
        nb -= 32;
      }
      return;
    }
    PutToEnd(v, n);
  }
  // Bit by bit up to the end, the rest counted only.
  __attribute__((noinline)) void PutToEnd(uint32_t v, int n) {
    Flush();
    for (int i = n - 1; i >= 0; --i) {
      const int64_t b = pos++;
      if (b >= end) continue;
      const uint8_t m = uint8_t(0x80u >> (b & 7));
      uint8_t& byte = p[b >> 3];
      byte = uint8_t(((v >> i) & 1u) ? (byte | m) : (byte & ~m));
      if ((b & 7) != 7) byte = uint8_t(byte & ~(m - 1));  // clear the tail
    }
  }
  // The pending bits out: whole bytes, then a last partial one with its
  // tail cleared.
  void Flush() {
    if (dry || nb < 0) return;
    while (nb >= 8) {
      p[at++] = uint8_t(acc >> (nb - 8));
      nb -= 8;
    }
    if (nb > 0) p[at] = uint8_t(acc << (8 - nb));
    nb = -1;
  }
  void Symbol(const Alphabet& a, int t, int s) { Put(a.code[t][s].code, a.code[t][s].len); }
  bool Short() const { return pos > end; }
};

// The writer of the encoders' fast forms, for runs the caller has made sure
// fit: no dry run and no end to watch.  The bits of the first byte before
// the position are kept, as Writer keeps them.
struct RoomyWriter {
  uint8_t* p;
  uint64_t acc;
  int nb;  // bits in acc not written yet: the position is 8 at + nb
  int64_t at;
  int64_t start;
  RoomyWriter(uint8_t* dst, int64_t from) : p(dst), at(from >> 3), start(from) {
    nb = int(from & 7);
    acc = nb ? uint64_t(p[at] >> (8 - nb)) : 0u;
  }
  __attribute__((always_inline)) void Put(uint32_t v, int n) {
    const uint32_t m = n >= 32 ? ~0u : (1u << n) - 1u;
    PutFit(v & m, n);
  }
  // Put of a value known to fit its n bits (1..32).
  __attribute__((always_inline)) void PutFit(uint32_t v, int n) {
    Append(v, n);
    Settle();
  }
  // Put without the word check, for runs of puts whose bits add up to 32
  // or fewer after a Settle (or construction): Settle ends the run.
  __attribute__((always_inline)) void Append(uint32_t v, int n) {
    acc = (acc << n) | v;
    nb += n;
  }
  __attribute__((always_inline)) void Settle() {
    if (nb >= 32) {
      const uint32_t out = __builtin_bswap32(uint32_t(acc >> (nb - 32)));
      std::memcpy(p + at, &out, 4);
      at += 4;
      nb -= 32;
    }
  }
  int64_t Pos() const { return 8 * at + nb; }
  // (a run that wrote nothing leaves its first byte as it was)
  void Flush() {
    if (Pos() == start) return;
    while (nb >= 8) {
      p[at++] = uint8_t(acc >> (nb - 8));
      nb -= 8;
    }
    if (nb > 0) p[at] = uint8_t(acc << (8 - nb));
  }
};

// A RoomyWriter whose puts are Appends (its owner settles).
struct RoomyAppender {
  RoomyWriter& w;
  __attribute__((always_inline)) void PutFit(uint32_t v, int n) { w.Append(v, n); }
};

// An encoder's symbol of a slot whose alphabet it names (`a`, the one
// SlotSymbols gives): its code, then the discriminants as Account keeps
// them, folded for the alphabet at compile time.
// `tail`: tailBits bits written right after the code, in the same put.
template <class W>
inline void PutCounted(W& w, State& s, const Alphabet& a, int slot, int sym, uint32_t tail = 0,
                       int tailBits = 0) {
  const int t = s.table[slot];
  w.Put((uint32_t(a.code[t][sym].code) << tailBits) | tail, a.code[t][sym].len + tailBits);
  if (a.tables < 2 || a.symbols == 8) return;
  const int lo = t > 0 ? t - 1 : 0;
  const int hi = t < a.tables - 1 ? t : a.tables - 2;
  auto add = [](int32_t& d, int v) { d = int32_t(uint32_t(d) + uint32_t(v)); };
  add(s.disc[slot], a.code[lo][sym].len - a.code[lo + 1][sym].len);
  if (a.symbols == 6 || a.symbols == 12) add(s.disc1[slot], a.code[hi][sym].len - a.code[hi + 1][sym].len);
}

// ------------------------------------------------------------ symbols

// Account's steps tabled per alphabet for the fast decoders, whose symbols
// come from a known alphabet: [table][symbol] the lower discriminant's
// step and the upper one's (the 7-symbol alphabet has only the lower).
struct StepTable {
  int8_t lo[5][12], hi[5][12];
};
constexpr StepTable MakeStepTable(const Alphabet& a) {
  StepTable st{};
  for (int t = 0; t < a.tables; ++t) {
    const int lo = t > 0 ? t - 1 : 0, hi = t < a.tables - 1 ? t : a.tables - 2;
    for (int k = 0; k < a.symbols; ++k) {
      st.lo[t][k] = int8_t(a.code[lo][k].len - a.code[lo + 1][k].len);
      st.hi[t][k] = int8_t(a.code[hi][k].len - a.code[hi + 1][k].len);
    }
  }
  return st;
}
inline constexpr StepTable kSteps6 = MakeStepTable(kAlpha6);
inline constexpr StepTable kSteps7 = MakeStepTable(kAlpha7);
inline constexpr StepTable kSteps12 = MakeStepTable(kAlpha12);

// A coefficient's index symbol (6 or 12 symbols) resolved with the sign
// that follows it and the discriminant steps it makes in one look-up of
// the next B bits (the longest code and its sign): per entry the symbol
// (bits 0-3), the sign (bit 4), the bits taken (8-11), the lower and upper
// discriminant steps (signed bytes 2 and 3).
template <int B>
struct IndexLut {
  uint32_t e[5][1 << B];
};
template <int B>
constexpr IndexLut<B> MakeIndexLut(const Alphabet& a, const StepTable& st) {
  IndexLut<B> l{};
  for (int t = 0; t < a.tables; ++t) {
    for (int k = 0; k < a.symbols; ++k) {
      const Code c = a.code[t][k];
      const int lo = c.code << (B - c.len), n = 1 << (B - c.len);
      for (int i = 0; i < n; ++i) {
        const uint32_t neg = uint32_t(i >> (B - c.len - 1)) & 1u;
        l.e[t][lo + i] = uint32_t(k) | neg << 4 | uint32_t(c.len + 1) << 8 | uint32_t(uint8_t(st.lo[t][k])) << 16 |
                         uint32_t(uint8_t(st.hi[t][k])) << 24;
      }
    }
  }
  return l;
}
inline constexpr IndexLut<6> kIndex6 = MakeIndexLut<6>(kAlpha6, kSteps6);
inline constexpr IndexLut<9> kIndex12 = MakeIndexLut<9>(kAlpha12, kSteps12);

// The 6-symbol index of a coefficient, and when it is a lone 1 whose
// successor comes right after it (symbol 2: no level, no run), that
// successor's index too, from one look-up of the next 10 bits (the longest
// lone-1 code and its sign, then the longest code and its sign).  Per entry
// the last symbol (bits 0-3) and its sign (bit 4), whether a lone 1 came
// first (bit 5) and its sign (bit 6), the bits taken (8-11), the lower and
// upper discriminant steps of both symbols (signed bytes 2 and 3): both
// codes come from one table, so their steps add.
constexpr int kPairBits = 10;
constexpr int kLoneOne = 2;
struct PairLut {
  uint32_t e[4][1 << kPairBits];
};
// The symbol of the code the top bits of v (`bits` wide) start with.
constexpr int PrefixSymbol(const Alphabet& a, int t, uint32_t v, int bits) {
  for (int k = 0; k < a.symbols; ++k) {
    const Code c = a.code[t][k];
    if ((v >> (bits - c.len)) == c.code) return k;
  }
  return -1;
}
constexpr PairLut MakePairLut() {
  PairLut l{};
  constexpr int B = kPairBits;
  for (int t = 0; t < 4; ++t) {
    for (uint32_t v = 0; v < (1u << B); ++v) {
      const int k = PrefixSymbol(kAlpha6, t, v, B);
      const int len = kAlpha6.code[t][k].len + 1;
      uint32_t neg = (v >> (B - len)) & 1u;
      int lo = kSteps6.lo[t][k], hi = kSteps6.hi[t][k];
      uint32_t e;
      if (k != kLoneOne) {
        e = uint32_t(k) | neg << 4 | uint32_t(len) << 8;
      } else {  // the rest holds the successor's code and sign whole
        const uint32_t rest = v & ((1u << (B - len)) - 1u);
        const int k2 = PrefixSymbol(kAlpha6, t, rest, B - len);
        const int len2 = kAlpha6.code[t][k2].len + 1;
        const uint32_t neg2 = (rest >> (B - len - len2)) & 1u;
        lo += kSteps6.lo[t][k2];
        hi += kSteps6.hi[t][k2];
        e = uint32_t(k2) | neg2 << 4 | 1u << 5 | neg << 6 | uint32_t(len + len2) << 8;
      }
      l.e[t][v] = e | uint32_t(uint8_t(int8_t(lo))) << 16 | uint32_t(uint8_t(int8_t(hi))) << 24;
    }
  }
  return l;
}
inline constexpr PairLut kPair6 = MakePairLut();
static_assert(kAlpha6.tables == 4);

// `t` the slot's table; the steps add to `lo` and `hi` (the slot's
// discriminants, wrapping).
template <int N>
inline int IndexAndSign(FastReader& r, int t, uint32_t& lo, uint32_t& hi, uint32_t* neg) {
  static_assert(N == 6 || N == 12);
  constexpr int B = N == 6 ? 6 : 9;
  const IndexLut<B>& lut = [] () -> const IndexLut<B>& {
    if constexpr (N == 6) return kIndex6;
    else return kIndex12;
  }();
  const uint32_t& e = lut.e[t][r.Window() >> (64 - B)];
  r.pos += TakenBits(e);
  lo += uint32_t(int32_t(int8_t(e >> 16)));
  hi += uint32_t(int32_t(int8_t(e >> 24)));
  *neg = (e >> 4) & 1u;
  return int(e & 15u);
}
template <int N>
inline int IndexAndSign(FastReader& r, State& s, int slot, uint32_t* neg) {
  uint32_t lo = uint32_t(s.disc[slot]), hi = uint32_t(s.disc1[slot]);
  const int sym = IndexAndSign<N>(r, s.table[slot], lo, hi, neg);
  s.disc[slot] = int32_t(lo);
  s.disc1[slot] = int32_t(hi);
  return sym;
}

// Account for a symbol of the N-symbol alphabet: the reference looks the
// alphabet up, the fast reader's decoders use the tables above.
template <int N, class R>
inline void AccountOf(State& s, int slot, int sym) {
  static_assert(N == 6 || N == 7 || N == 12);
  if constexpr (std::is_same_v<R, FastReader>) {
    const StepTable& st = N == 6 ? kSteps6 : N == 7 ? kSteps7 : kSteps12;
    const int t = s.table[slot];
    s.disc[slot] = int32_t(uint32_t(s.disc[slot]) + uint32_t(int32_t(st.lo[t][sym])));
    if constexpr (N != 7) s.disc1[slot] = int32_t(uint32_t(s.disc1[slot]) + uint32_t(int32_t(st.hi[t][sym])));
  } else {
    Account(s, slot, sym);
  }
}

// Levels below the escape with their extra bits, from one look-up of the
// next 8 bits (the longest code and its bits): per entry the level (bits
// 0-7, 0 for the escape), the bits taken (8-11) and the discriminant step
// (signed byte 2).
struct LevelLut {
  uint32_t e[2][256];
};
constexpr LevelLut MakeLevelLut() {
  LevelLut l{};
  for (int t = 0; t < 2; ++t) {
    for (int k = 0; k < 7; ++k) {
      const Code c = kAlpha7.code[t][k];
      const int extra = k < 6 ? kLevelBits[k] : 0;
      const int lo = c.code << (8 - c.len), n = 1 << (8 - c.len);
      for (int i = 0; i < n; ++i) {
        const uint32_t level = k < 6 ? uint32_t(kLevelBase[k] + (i >> (8 - c.len - extra))) : 0u;
        l.e[t][lo + i] = level | uint32_t(c.len + extra) << 8 | uint32_t(uint8_t(kSteps7.lo[t][k])) << 16;
      }
    }
  }
  return l;
}
inline constexpr LevelLut kLevels = MakeLevelLut();

// The level after the escape code.
template <class R>
inline uint32_t LevelEscape(R& r);

// A level from the fast reader: table `t`, the step added to `disc`.
inline uint32_t LevelOf(FastReader& r, int t, uint32_t& disc) {
  const uint32_t& e = kLevels.e[t][r.Window() >> 56];
  r.pos += TakenBits(e);
  disc += uint32_t(int32_t(int8_t(e >> 16)));
  if (e & 0xFF) return e & 0xFF;
  return LevelEscape(r);
}

// Absolute level 2 and up, from the level table of `slot`.
template <class R>
inline uint32_t DecodeLevel(R& r, State& s, int slot) {
  if constexpr (std::is_same_v<R, FastReader>) {
    uint32_t d = uint32_t(s.disc[slot]);
    const uint32_t level = LevelOf(r, s.table[slot], d);
    s.disc[slot] = int32_t(d);
    return level;
  } else {
    const int sym = r.Symbol(AlphabetOf(7), s.table[slot]);
    AccountOf<7, R>(s, slot, sym);
    if (sym < 6) return uint32_t(kLevelBase[sym]) + r.Bits(kLevelBits[sym]);
    return LevelEscape(r);
  }
}

template <class R>
inline uint32_t LevelEscape(R& r) {
  int fixed = int(r.Bits(4)) + 4;
  if (fixed == 19) {
    fixed += int(r.Bits(2));
    if (fixed == 22) fixed += int(r.Bits(3));
  }
  return 2u + (1u << fixed) + r.Bits(fixed);
}

// PutCounted of the N-symbol alphabet: the reference writer's way, or for
// the roomy one, its code and both discriminant steps from the step tables.
template <int N, class W>
__attribute__((always_inline)) inline void PutCountedOf(W& w, State& s, int slot, int sym, uint32_t tail = 0,
                                                        int tailBits = 0) {
  static_assert(N == 6 || N == 7 || N == 12);
  if constexpr (std::is_same_v<W, RoomyWriter> || std::is_same_v<W, RoomyAppender>) {
    constexpr const Alphabet& a = N == 6 ? kAlpha6 : N == 7 ? kAlpha7 : kAlpha12;
    static_assert(a.tables >= 2 && a.symbols == N);
    const StepTable& st = N == 6 ? kSteps6 : N == 7 ? kSteps7 : kSteps12;
    const int t = s.table[slot];
    const Code c = a.code[t][sym];
    w.PutFit((uint32_t(c.code) << tailBits) | tail, c.len + tailBits);
    s.disc[slot] = int32_t(uint32_t(s.disc[slot]) + uint32_t(int32_t(st.lo[t][sym])));
    if constexpr (N != 7) s.disc1[slot] = int32_t(uint32_t(s.disc1[slot]) + uint32_t(int32_t(st.hi[t][sym])));
  } else {
    PutCounted(w, s, AlphabetOf(N), slot, sym, tail, tailBits);
  }
}

template <class W>
inline void EncodeLevel(W& w, State& s, int slot, uint32_t level) {
  // the symbol of levels 2..17; the escape above
  static constexpr int8_t kSymOf[18] = {0, 0, 0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
  if (level < 18) {
    const int sym = kSymOf[level];
    PutCountedOf<7>(w, s, slot, sym, level - uint32_t(kLevelBase[sym]), kLevelBits[sym]);
    return;
  }
  PutCountedOf<7>(w, s, slot, 6);
  const uint32_t v = level - 2;
  int fixed = 31 - __builtin_clz(v);
  const uint32_t rest = v - (1u << fixed);
  if (fixed < 19) {
    w.Put(uint32_t(fixed - 4), 4);
  } else if (fixed < 22) {
    w.Put(15, 4);
    w.Put(uint32_t(fixed - 19), 2);
  } else {
    w.Put(15, 4);
    w.Put(3, 2);
    w.Put(uint32_t(fixed - 22), 3);
  }
  w.Put(rest, fixed);
}

// Largest absolute level the escape codes: 2 + 2^29 + 2^29 - 1.
constexpr uint32_t kMaxLevel = 2u + (1u << 30) - 1u;

// Runs with their extra bits, by run table and bin, from one look-up of
// the next 8 bits: the run (bits 0-7) and the bits taken (8-11).
struct RunLut {
  uint16_t e[2][3][256];
};
constexpr RunLut MakeRunLut() {
  RunLut l{};
  for (int t = 0; t < 2; ++t) {
    for (int bin = 0; bin < 3; ++bin) {
      for (int k = 0; k < 5; ++k) {
        const Code c = kAlpha5.code[t][k];
        const int extra = kRunBits[bin][k];
        const int lo = c.code << (8 - c.len), n = 1 << (8 - c.len);
        for (int i = 0; i < n; ++i) {
          l.e[t][bin][lo + i] = uint16_t((kRunBase[bin][k] + (i >> (8 - c.len - extra))) | (c.len + extra) << 8);
        }
      }
    }
  }
  return l;
}
inline constexpr RunLut kRuns = MakeRunLut();

// A run of 1..maxRun zeros before a coefficient known to follow one.
template <class R>
inline int DecodeRun(R& r, State& s, int maxRun) {
  if constexpr (std::is_same_v<R, FastReader>) {
    const uint64_t w = r.Window();
    if (maxRun < 5) {  // up to maxRun - 1 zeros ended by a one
      const int z = int(__builtin_clzll(w | (uint64_t(1) << 59)));
      if (z < maxRun - 1) {
        r.pos += z + 1;
        return z + 1;
      }
      r.pos += maxRun - 1;
      return maxRun;
    }
    const uint16_t& e = kRuns.e[s.table[kRun]][RunBin(maxRun)][w >> 56];
    r.pos += TakenBits(e);
    return e & 0xFF;
  }
  if (maxRun < 5) {
    if (maxRun == 1 || r.Bit()) return 1;
    if (maxRun == 2 || r.Bit()) return 2;
    if (maxRun == 3 || r.Bit()) return 3;
    return 4;
  }
  // the run table keeps its first code: files never move its discriminant
  const int sym = r.Symbol(AlphabetOf(5), s.table[kRun]);
  const int bin = RunBin(maxRun);
  return kRunBase[bin][sym] + int(r.Bits(kRunBits[bin][sym]));
}

template <class W>
inline void EncodeRun(W& w, State& s, int maxRun, int run) {
  if (maxRun < 5) {  // run - 1 zeros and a one; the longest run drops the one
    if (run < maxRun) w.Put(1, run);
    else w.Put(0, maxRun - 1);
    return;
  }
  const int bin = RunBin(maxRun);
  int sym = 4;
  for (int k = 0; k < 5; ++k) {
    if (run < kRunBase[bin][k] + (1 << kRunBits[bin][k])) {
      sym = k;
      break;
    }
  }
  const Code c = AlphabetOf(5).code[s.table[kRun]][sym];
  const int b = kRunBits[bin][sym];
  w.Put((uint32_t(c.code) << b) | uint32_t(run - kRunBase[bin][sym]), c.len + b);
}

// ------------------------------------------------------------ blocks

// Run/level coding of the VLC parts of one block at positions first..15
// (positions of the block's scan).  Each coefficient has an index symbol:
// whether the run before it is empty (first coefficient only; later ones
// know it from the previous index), whether its level exceeds 1, and what
// follows it (nothing, a coefficient right after it, one after a run).
// Then its sign, its level above 1 and, for a nonempty run, the run.  The
// index after position 14 has a fixed 1..3-bit code, after position 15
// one bit.  Coefficients that follow a continuous start (first at
// `first`, each next right after it) take the second index and level
// tables.  `val` gets the signed levels by position; returns the count of
// nonzero ones, or rvtStatusErr for a block running past position 15.
template <class R>
inline int DecodeBlock(R& r, State& s, int group, bool chroma, int first, int32_t* val) {
  const int idx = group + (chroma ? kIndexChr : kIndexLum);
  const int fst = group + (chroma ? kFirstChr : kFirstLum);
  int sym = r.Symbol(AlphabetOf(12), s.table[fst]);
  AccountOf<12, R>(s, fst, sym);
  bool sr = sym & 1;
  bool sl = sym & 2;
  int srn = sym >> 2;
  int cont = sr && srn == 1;
  int loc = first, count = 0;
  for (;;) {
    const uint32_t neg = r.Bit();
    const uint32_t mag = sl ? DecodeLevel(r, s, group + kLevel + cont) : 1u;
    int run = 0;
    if (!sr) {
      if (loc > 14) return rvtStatusErr;
      run = DecodeRun(r, s, 15 - loc);
    }
    const int at = loc + run;
    if (at > 15) return rvtStatusErr;  // a run longer than the block allows
    val[at] = int32_t(neg ? 0u - mag : mag);
    ++count;
    loc = at + 1;
    if (srn == 0) return count;
    sr = srn == 1;
    if (!sr) {
      if (loc > 14) return rvtStatusErr;
      loc += DecodeRun(r, s, 15 - loc);
      if (loc > 15) return rvtStatusErr;
    } else if (loc > 15) {
      return rvtStatusErr;
    }
    // `loc` is now the next coefficient's position; its index follows.
    const int after = loc + 1;
    if (after < 15) {
      sym = r.Symbol(AlphabetOf(6), s.table[idx + cont]);
      AccountOf<6, R>(s, idx + cont, sym);
    } else if (after == 15) {
      if (!r.Bit()) sym = 0;
      else if (!r.Bit()) sym = 2;
      else sym = 1 + 2 * int(r.Bit());
    } else {
      sym = int(r.Bit());
    }
    srn = sym >> 1;
    cont &= int(srn == 1);
    sl = sym & 1;
    sr = true;  // its run is already read
  }
}

// DecodeBlock for the fast reader, handing each coefficient to put(position,
// level) as it is decoded instead of through a zeroed array: no array to
// clear and no second pass over the 15 positions.
template <class Put>
__attribute__((always_inline)) inline int DecodeBlockOn(FastReader& r, State& s, int group, bool chroma, int first,
                                                        Put put) {
  const int idx = group + (chroma ? kIndexChr : kIndexLum);
  const int fst = group + (chroma ? kFirstChr : kFirstLum);
  // each index comes with the sign of its coefficient
  uint32_t neg;
  int sym = IndexAndSign<12>(r, s, fst, &neg);
  bool sr = sym & 1;
  bool sl = sym & 2;
  int srn = sym >> 2;
  int cont = sr && srn == 1;
  int loc = first, count = 0;
  for (;;) {
    const uint32_t mag = sl ? DecodeLevel(r, s, group + kLevel + cont) : 1u;
    int run = 0;
    if (!sr) {
      if (loc > 14) return rvtStatusErr;
      run = DecodeRun(r, s, 15 - loc);
    }
    const int at = loc + run;
    if (at > 15) return rvtStatusErr;  // a run longer than the block allows
    put(at, int32_t(neg ? 0u - mag : mag));
    ++count;
    loc = at + 1;
    if (srn == 0) return count;
    sr = srn == 1;
    if (!sr) {
      if (loc > 14) return rvtStatusErr;
      loc += DecodeRun(r, s, 15 - loc);
      if (loc > 15) return rvtStatusErr;
    } else if (loc > 15) {
      return rvtStatusErr;
    }
    // `loc` is now the next coefficient's position; its index follows.
    const int after = loc + 1;
    if (after < 14) {
      // a lone 1 right before its successor comes with the successor's
      // index, which is then still a table one (its position below 14)
      const int slot = idx + cont;
      const uint32_t& e = kPair6.e[s.table[slot]][r.Window() >> (64 - kPairBits)];
      r.pos += TakenBits(e);
      s.disc[slot] = int32_t(uint32_t(s.disc[slot]) + uint32_t(int32_t(int8_t(e >> 16))));
      s.disc1[slot] = int32_t(uint32_t(s.disc1[slot]) + uint32_t(int32_t(int8_t(e >> 24))));
      sym = int(e & 15u);
      neg = (e >> 4) & 1u;
      if (e & 32u) {
        put(loc, (e & 64u) ? -1 : 1);
        ++count;
        ++loc;
      }
    } else if (after == 14) {
      sym = IndexAndSign<6>(r, s, idx + cont, &neg);
    } else {
      if (after == 15) {
        if (!r.Bit()) sym = 0;
        else if (!r.Bit()) sym = 2;
        else sym = 1 + 2 * int(r.Bit());
      } else {
        sym = int(r.Bit());
      }
      neg = r.Bit();
    }
    srn = sym >> 1;
    cont &= int(srn == 1);
    sl = sym & 1;
    sr = true;  // its run is already read
  }
}

// (`at`: the n positions of nonzero values, ascending)
template <class W>
inline void EncodeBlockAt(W& w, State& s, int group, bool chroma, int first, const int32_t* val, const int* at,
                          int n) {
  const int idx = group + (chroma ? kIndexChr : kIndexLum);
  const int fst = group + (chroma ? kFirstChr : kFirstLum);
  auto next = [&](int i) { return i + 1 >= n ? 0 : at[i + 1] == at[i] + 1 ? 1 : 2; };
  auto mag = [&](int i) { return val[at[i]] < 0 ? 0u - uint32_t(val[at[i]]) : uint32_t(val[at[i]]); };
  int cont = 0, loc = first;
  for (int i = 0; i < n; ++i) {
    const int srn = next(i);
    const bool sl = mag(i) > 1;
    const uint32_t sign = val[at[i]] < 0 ? 1u : 0u;  // goes right after the index
    if (i == 0) {
      const bool sr = at[0] == first;
      const int sym = int(sr) | (int(sl) << 1) | (srn << 2);
      PutCountedOf<12>(w, s, fst, sym, sign, 1);
      cont = sr && srn == 1;
    } else {
      if (at[i] != loc) EncodeRun(w, s, 15 - loc, at[i] - loc);
      const int after = at[i] + 1;
      const int sym = int(sl) | (srn << 1);
      if (after < 15) {
        PutCountedOf<6>(w, s, idx + cont, sym, sign, 1);
      } else if (after == 15) {
        if (sym == 0) w.Put(0 | sign, 2);
        else if (sym == 2) w.Put(4 | sign, 3);
        else w.Put((sym == 1 ? 12u : 14u) | sign, 4);
      } else {
        w.Put(uint32_t(sym) << 1 | sign, 2);
      }
      cont &= int(srn == 1);
    }
    if (sl) EncodeLevel(w, s, group + kLevel + cont, mag(i));
    if (i == 0 && at[0] != first) EncodeRun(w, s, 15 - first, at[0] - first);
    loc = at[i] + 1;
  }
}

template <class W>
inline void EncodeBlock(W& w, State& s, int group, bool chroma, int first, const int32_t* val) {
  int at[16], n = 0;
  for (int p = first; p < 16; ++p) {
    if (val[p] != 0) at[n++] = p;
  }
  EncodeBlockAt(w, s, group, chroma, first, val, at, n);
}

// The adaptive scan: a coefficient found at scan index p counts there, and
// an index whose count passes its predecessor's moves one place forward
// (index 1 stays, the DC's place is never taken).
// (t, o: the scan's totals and order)
inline void CountScanAt(int32_t* t, uint8_t* o, int p) {
  ++t[p];
  if (p > 1 && t[p] > t[p - 1]) {
    const int32_t tt = t[p];
    t[p] = t[p - 1];
    t[p - 1] = tt;
    const uint8_t oo = o[p];
    o[p] = o[p - 1];
    o[p - 1] = oo;
  }
}
inline void CountScan(State& s, int scan, int p) { CountScanAt(s.total[scan], s.order[scan], p); }

// ------------------------------------------------------------ macroblock layout

// Channels whose DC/LP block is 2x2 (4:2:0 chroma) or 2 wide and 4 high
// (4:2:2 chroma): their LP coefficient count and HP block count.
inline int LpCount(const State& s, int ch) {
  if (ch == 0) return 16;
  return s.format == k420 ? 4 : s.format == k422 ? 8 : 16;
}
inline int HpBlocks(const State& s, int ch) { return LpCount(s, ch); }
// Groups the LP coded-block pattern has a bit for: the two chroma channels
// of 4:2:0 and 4:2:2 share one.
inline bool Shared(const State& s) { return s.format == k420 || s.format == k422; }
inline int LpGroups(const State& s) { return Shared(s) ? 2 : s.channels; }

// A coefficient from its VLC part q and its refinement: `bits` model bits,
// of which the lowest `trim` are not coded.
template <class R>
inline int32_t Refine(R& r, int32_t q, int bits, int trim) {
  if (bits == 0) return q;
  const uint32_t ref = bits > trim ? r.Bits(bits - trim) << trim : 0u;
  if (q != 0) {
    const uint32_t m = ((q < 0 ? 0u - uint32_t(q) : uint32_t(q)) << bits) | ref;
    return int32_t(q < 0 ? 0u - m : m);
  }
  if (ref == 0) return 0;
  return int32_t(r.Bit() ? 0u - ref : ref);
}

inline uint32_t Mag(int32_t v) { return v < 0 ? 0u - uint32_t(v) : uint32_t(v); }
// The VLC part of a coefficient: its magnitude above the model bits, signed.
inline int32_t VlcPart(int32_t v, int bits) {
  const uint32_t q = Mag(v) >> bits;
  return int32_t(v < 0 ? 0u - q : q);
}
template <class W>
inline void EncodeRefine(W& w, int32_t v, int bits, int trim) {
  if (bits == 0) return;
  const uint32_t m = Mag(v);
  const uint32_t ref = (m & ((1u << bits) - 1u)) >> trim;
  // a value wholly in the refinement carries its sign right after it
  if ((m >> bits) == 0 && ref != 0) w.Put((ref << 1) | (v < 0 ? 1u : 0u), bits - trim + 1);
  else if (bits > trim) w.Put(ref, bits - trim);
}

// ------------------------------------------------------------ DC

// DC of every channel (coef[16 ch]).  Y only, CMYK and N channels: per
// channel a nonzero flag, the level less one when set, the model bits,
// the sign of a nonzero value.  Colour: one 8-symbol pattern of the
// nonzero channels (Y 4, U 2, V 1), then per channel level, model bits,
// sign.  Lum levels use the lum table and model, chroma ones the chroma.
template <class R>
inline RvtResult DecodeDC(R& r, State& s, int32_t* coef) {
  int32_t lm[2] = {0, 0};
  int pattern = 0;
  if (IsColour(s.format)) {
    pattern = r.Symbol(kAlpha8, 0);
  }
  for (int ch = 0; ch < s.channels; ++ch) {
    const int c = ch > 0;
    bool nz;
    if (IsColour(s.format)) nz = (pattern >> (2 - ch)) & 1;
    else nz = r.Bit();
    uint32_t q = 0;
    if (nz) {
      q = DecodeLevel(r, s, c ? kDcLevelChr : kDcLevelLum) - 1;
      ++lm[c];
    }
    const int bits = s.modelBits[kDC][c];
    const uint32_t m = bits ? (q << bits) | r.Bits(bits) : q;
    coef[16 * ch] = int32_t((m != 0 && r.Bit()) ? 0u - m : m);
  }
  UpdateModel(s, kDC, lm[0], lm[1]);
  return r.Short() ? rvtStatusOutOfBuffer : rvtStatusOk;
}

template <class W>
inline RvtResult EncodeDC(W& w, State& s, const int32_t* coef) {
  int32_t lm[2] = {0, 0};
  if (IsColour(s.format)) {
    int pattern = 0;
    for (int ch = 0; ch < 3; ++ch) {
      if ((Mag(coef[16 * ch]) >> s.modelBits[kDC][ch > 0]) != 0) pattern |= 4 >> ch;
    }
    w.Put(kAlpha8.code[0][pattern].code, kAlpha8.code[0][pattern].len);
  }
  for (int ch = 0; ch < s.channels; ++ch) {
    const int c = ch > 0;
    const int bits = s.modelBits[kDC][c];
    const uint32_t m = Mag(coef[16 * ch]);
    const uint32_t q = m >> bits;
    if (q + 1 > kMaxLevel || q + 1 == 0) return rvtStatusRange;
    if (!IsColour(s.format)) w.Put(q != 0, 1);
    if (q != 0) {
      EncodeLevel(w, s, c ? kDcLevelChr : kDcLevelLum, q + 1);
      ++lm[c];
    }
    if (bits) w.Put(m & ((1u << bits) - 1u), bits);
    if (m != 0) w.Put(coef[16 * ch] < 0, 1);
  }
  UpdateModel(s, kDC, lm[0], lm[1]);
  return rvtStatusOk;
}

// ------------------------------------------------------------ LP

// The LP coded-block pattern, one bit per group (bit i = group i): coded
// directly while both counters are positive, else as zero / one / the rest
// (n - 1 bits, then one more), complemented when full patterns have been
// rarer than empty ones.  Counters step by +1, or -3 on an empty (full)
// pattern, within -8..7.
template <class R>
inline int DecodeLpCbp(R& r, State& s, int n) {
  const int full = n * 4 - 5;
  int cbp;
  if (s.cbpCountZero <= 0 || s.cbpCountMax < 0) {
    cbp = 0;
    if (r.Bit()) {
      cbp = 1;
      const int k = int(r.Bits(n - 1));
      if (k) cbp = k * 2 + int(r.Bit());
    }
    if (s.cbpCountMax < s.cbpCountZero) cbp = full - cbp;
  } else {
    cbp = int(r.Bits(n));
  }
  return cbp;
}

template <class W>
inline void EncodeLpCbp(W& w, const State& s, int n, int cbp) {
  const int full = n * 4 - 5;
  if (s.cbpCountZero <= 0 || s.cbpCountMax < 0) {
    const int p = s.cbpCountMax < s.cbpCountZero ? full - cbp : cbp;
    if (p == 0) {
      w.Put(0, 1);
    } else {
      w.Put(1, 1);
      if (p == 1) {
        w.Put(0, n - 1);
      } else {
        w.Put(uint32_t(p >> 1), n - 1);
        w.Put(uint32_t(p & 1), 1);
      }
    }
  } else {
    w.Put(uint32_t(cbp), n);
  }
}

inline void CountLpCbp(State& s, int n, int cbp) {
  const int full = n * 4 - 5;
  auto step = [](int32_t& c, bool hit) {
    c += hit ? -3 : 1;
    c = c < -8 ? -8 : c > 7 ? 7 : c;
  };
  step(s.cbpCountMax, cbp == full);
  step(s.cbpCountZero, cbp == 0);
}

// The k-th LP coefficient whose model bits follow: a full block's in a
// fixed order, 4:2:0 / 4:2:2 chroma in coefficient order.
inline int LpRefinePos(const State& s, int ch, int k) {
  return (ch > 0 && Shared(s)) ? k : kLowpassRefine[k];
}

// 4:2:0 / 4:2:2 chroma LP: U and V interleaved in one block from position
// 10 (3 + 3 coefficients) or 2 (7 + 7); 4:2:0 in coefficient order, 4:2:2
// the lower half's DC difference (4) first, then 1, 2, 3, 5, 6, 7.
inline int ChromaFirst(const State& s) { return s.format == k420 ? 10 : 2; }
inline int ChromaLpPos(const State& s, int i) {
  static constexpr int k422[7] = {4, 1, 2, 3, 5, 6, 7};
  return s.format == k420 ? 1 + i : k422[i];
}

// Channels of LP group g: lum alone, each chroma channel alone, or (4:2:0,
// 4:2:2) both chroma channels in group 1.
inline int GroupFirstChannel(const State&, int g) { return g; }
inline int GroupLastChannel(const State& s, int g) { return Shared(s) && g == 1 ? 2 : g; }

// One field of RefineBlock: the k-th coefficient's n bits (and sign) at
// `used` bits into w; `kCoded` false: the block has no coded part (every
// coefficient's is 0) and the coefficient is written whatever its value.
template <bool kCoded>
__attribute__((always_inline)) inline void RefineField(uint64_t w, int& used, int32_t* blk, int k, int n, int bits,
                                                       int trim) {
  int32_t& c = blk[kLowpassRefine[k]];
  const int32_t q = kCoded ? c : 0;
  const uint32_t ref = uint32_t((w << used) >> (64 - n)) << trim;
  used += n;
  if constexpr (!kCoded) {  // no test to mispredict: the sign bit read, kept when the field is not 0
    const uint32_t some = ref != 0;
    const uint32_t minus = 0u - (uint32_t((w << used) >> 63) & some);
    used += int(some);
    c = int32_t((ref ^ minus) - minus);
    return;
  }
  // a coded part (then m its magnitude scaled, the field below) or, when
  // it is 0, the field alone with the sign that follows it unless the field
  // is 0 too: selected, not branched on (whether a part is 0 is the data's
  // coin toss)
  const uint32_t sign = uint32_t(q == 0) & uint32_t(ref != 0);
  const uint32_t neg = uint32_t((w << used) >> 63) & sign;
  used += int(sign);
  const uint32_t m = (Mag(q) << bits) | ref;
  const uint32_t minus = uint32_t(q >> 31) | (0u - neg);  // (all ones: negate)
  c = int32_t((m ^ minus) - minus);
}
// The 57 bits or more from bit `pos`, most significant first (8 bytes there).
__attribute__((always_inline)) inline uint64_t RefineLoad(const uint8_t* p, int64_t pos) {
  uint64_t v;
  std::memcpy(&v, p + (pos >> 3), 8);
  return __builtin_bswap64(v) << (pos & 7);
}

// Refine over a block's 15 HP (or a full LP block's) coefficients for the
// fast reader, with at least one bit coded a coefficient: fields are cut
// from one window while it holds the next field and its sign (at most 16
// bits) within its 32 valid bits, instead of a window per field.
template <bool kCoded = true>
__attribute__((always_inline)) inline void RefineBlock(FastReader& f, int32_t* blk, int bits, int trim) {
  const int n = bits - trim;
  // Fields of up to 6 bits and their signs, 7 bits each at most, from
  // fresh loads of the 57 bits or more at the position without a check per
  // field: 8 fields, then 7 from a second load (a single load holds the
  // 45 bits of 15 fields of up to 2 bits).
  const int64_t bytes = f.end >> 3;
  if (n <= 6 && (f.pos >> 3) + 16 <= bytes) {
    uint64_t w = RefineLoad(f.p, f.pos);
    int used = 0;
    if (n <= 2) {
#pragma GCC unroll 15
      for (int k = 1; k < 16; ++k) RefineField<kCoded>(w, used, blk, k, n, bits, trim);
    } else {
#pragma GCC unroll 8
      for (int k = 1; k < 9; ++k) RefineField<kCoded>(w, used, blk, k, n, bits, trim);
      f.pos += used;
      w = RefineLoad(f.p, f.pos);
      used = 0;
#pragma GCC unroll 7
      for (int k = 9; k < 16; ++k) RefineField<kCoded>(w, used, blk, k, n, bits, trim);
    }
    f.pos += used;
    return;
  }
  uint64_t w = f.Window();
  int used = 0;
#pragma GCC unroll 15
  for (int k = 1; k < 16; ++k) {
    if (used + n + 1 > 32) {
      f.pos += used;
      w = f.Window();
      used = 0;
    }
    RefineField<kCoded>(w, used, blk, k, n, bits, trim);
  }
  f.pos += used;
}

// Group by group: the block's run/level code when its pattern bit is set,
// then the model bits of the group's channels.
// (F: the context's format when the caller knows it, else -1)
template <class R, int F = -1>
__attribute__((always_inline)) inline RvtResult DecodeLPOn(R& r, State& s, int32_t* coef) {
  if constexpr (F >= 0) {
    if (s.format != F || s.channels != (F == kYOnly ? 1 : 3)) __builtin_unreachable();
  }
  int32_t lm[2] = {0, 0};
  const int n = LpGroups(s);
  const int cbp = DecodeLpCbp(r, s, n);
  CountLpCbp(s, n, cbp);
  int32_t val[16];
  for (int ch = 0; ch < s.channels; ++ch) {
    if constexpr (std::is_same_v<R, FastReader>) {
      // (the fast form's coef is the entry's scratch: the whole block
      // cleared in two vector stores, not a string store of 15 elements)
      std::memset(coef + 16 * ch, 0, 16 * sizeof(int32_t));
      continue;
    }
    const int m = LpCount(s, ch);
    for (int k = 1; k < m; ++k) coef[16 * ch + k] = 0;
  }
  for (int g = 0; g < n; ++g) {
    const bool shared = Shared(s) && g == 1;
    if constexpr (std::is_same_v<R, FastReader>) {
      // coefficients straight to their places (see DecodeHP), model bits
      // of a full block cut from shared windows
      if ((cbp >> g) & 1) {
        const int first = shared ? ChromaFirst(s) : 1;
        const uint8_t* order = s.order[0];
        const int cnt = DecodeBlockOn(r, s, kLpFirst, g > 0, first, [&](int p, int32_t v) {
          if (shared) {
            coef[16 * (1 + ((p - first) & 1)) + ChromaLpPos(s, (p - first) / 2)] = v;
          } else {
            coef[16 * g + order[p]] = v;
            CountScan(s, 0, p);
          }
        });
        if (cnt < 0) return RvtResult(cnt);
        lm[g > 0] += cnt;
      }
      if (!shared) {
        for (int ch = GroupFirstChannel(s, g); ch <= GroupLastChannel(s, g); ++ch) {
          const int bits = s.modelBits[kLP][ch > 0];
          const int m = LpCount(s, ch);
          if (bits > 0 && m == 16) {
            RefineBlock(r, coef + 16 * ch, bits, 0);
          } else if (bits > 0) {
            for (int k = 1; k < m; ++k) {
              const int at = 16 * ch + LpRefinePos(s, ch, k);
              coef[at] = Refine(r, coef[at], bits, 0);
            }
          }
        }
        continue;
      }
    } else if ((cbp >> g) & 1) {
      const int first = shared ? ChromaFirst(s) : 1;
      std::memset(val, 0, sizeof(val));
      const int cnt = DecodeBlock(r, s, kLpFirst, g > 0, first, val);
      if (cnt < 0) return RvtResult(cnt);
      lm[g > 0] += cnt;
      if (shared) {
        for (int p = first; p < 16; ++p) coef[16 * (1 + ((p - first) & 1)) + ChromaLpPos(s, (p - first) / 2)] = val[p];
      } else {
        for (int p = 1; p < 16; ++p) {
          if (val[p] == 0) continue;
          coef[16 * g + s.order[0][p]] = val[p];
          CountScan(s, 0, p);
        }
      }
    }
    if (shared) {  // U and V alternate, coefficient by coefficient
      const int bits = s.modelBits[kLP][1];
      for (int k = 1; k < LpCount(s, 1); ++k) {
        for (int ch = 1; ch <= 2; ++ch) coef[16 * ch + k] = Refine(r, coef[16 * ch + k], bits, 0);
      }
      continue;
    }
    for (int ch = GroupFirstChannel(s, g); ch <= GroupLastChannel(s, g); ++ch) {
      const int bits = s.modelBits[kLP][ch > 0];
      for (int k = 1; k < LpCount(s, ch); ++k) {
        const int at = 16 * ch + LpRefinePos(s, ch, k);
        coef[at] = Refine(r, coef[at], bits, 0);
      }
    }
  }
  UpdateModel(s, kLP, lm[0], lm[1]);
  return r.Short() ? rvtStatusOutOfBuffer : rvtStatusOk;
}

// The fast reader on a copy for the whole macroblock, as in DecodeHP
// (F: the context's format when the caller knows it, else -1).
template <class R, int F = -1>
inline RvtResult DecodeLP(R& r, State& s, int32_t* coef) {
  if constexpr (std::is_same_v<R, FastReader>) {
    FastReader l = r;
    const RvtResult status = DecodeLPOn<R, F>(l, s, coef);
    r = l;
    return status;
  } else {
    return DecodeLPOn(r, s, coef);
  }
}

template <class W>
inline RvtResult EncodeLP(W& w, State& s, const int32_t* coef) {
  int32_t lm[2] = {0, 0};
  const int n = LpGroups(s);
  int32_t q[16][16] = {};
  int cbp = 0;
  for (int ch = 0; ch < s.channels; ++ch) {
    const int bits = s.modelBits[kLP][ch > 0];
    for (int k = 1; k < LpCount(s, ch); ++k) {
      q[ch][k] = VlcPart(coef[16 * ch + k], bits);
      if (Mag(q[ch][k]) > kMaxLevel) return rvtStatusRange;
      if (q[ch][k]) cbp |= 1 << (Shared(s) && ch > 1 ? 1 : ch);
    }
  }
  EncodeLpCbp(w, s, n, cbp);
  CountLpCbp(s, n, cbp);
  int32_t val[16];
  for (int g = 0; g < n; ++g) {
    const bool shared = Shared(s) && g == 1;
    if ((cbp >> g) & 1) {
      const int first = shared ? ChromaFirst(s) : 1;
      std::memset(val, 0, sizeof(val));
      if (shared) {
        for (int p = first; p < 16; ++p) val[p] = q[1 + ((p - first) & 1)][ChromaLpPos(s, (p - first) / 2)];
      } else {
        for (int p = 1; p < 16; ++p) val[p] = q[g][s.order[0][p]];
      }
      EncodeBlock(w, s, kLpFirst, g > 0, first, val);
      for (int p = first; p < 16; ++p) {
        if (val[p] == 0) continue;
        ++lm[g > 0];
        if (!shared) CountScan(s, 0, p);
      }
    }
    if (shared) {
      const int bits = s.modelBits[kLP][1];
      for (int k = 1; k < LpCount(s, 1); ++k) {
        for (int ch = 1; ch <= 2; ++ch) EncodeRefine(w, coef[16 * ch + k], bits, 0);
      }
      continue;
    }
    for (int ch = GroupFirstChannel(s, g); ch <= GroupLastChannel(s, g); ++ch) {
      const int bits = s.modelBits[kLP][ch > 0];
      for (int k = 1; k < LpCount(s, ch); ++k) EncodeRefine(w, coef[16 * ch + LpRefinePos(s, ch, k)], bits, 0);
    }
  }
  UpdateModel(s, kLP, lm[0], lm[1]);
  return rvtStatusOk;
}

// ------------------------------------------------------------ HP

// HP of every channel (coef[256 ch + 16 block + k]), block by block:
// channel by channel, the blocks of a 4x4 grid in 2x2 quads (0, 1, 4, 5,
// 2, 3, 6, 7, ...: kHpBlockOrder), smaller grids row by row.  Each block's
// VLC part when its cbp bit is set, through the horizontal (scan 0) or
// vertical (scan 1) adaptive scan, then its flexbits (model bits less
// `trim`) from the flexbits reader `f`, which may be `r` itself: spatial
// files interleave them with the coded parts.
inline int HpBlockAt(const State& s, int ch, int i) { return HpBlocks(s, ch) == 16 ? kHpBlockOrder[i] : i; }

template <class R, class F>
inline RvtResult DecodeHPOn(R& r, F& f, int trim, int scan, const int32_t* cbp, State& s, int32_t* coef) {
  int32_t lm[2] = {0, 0};
  int32_t val[16];
  const int sc = 1 + scan;
  for (int ch = 0; ch < s.channels; ++ch) {
    const int bits = s.modelBits[kHP][ch > 0];
    const int nb = HpBlocks(s, ch);
    const int32_t pattern = cbp[ch];
    for (int i = 0; i < nb; ++i) {
      const int b = nb == 16 ? kHpBlockOrder[i] : i;
      int32_t* blk = coef + 256 * ch + 16 * b;
      for (int k = 1; k < 16; ++k) blk[k] = 0;
      if ((pattern >> b) & 1) {
        std::memset(val, 0, sizeof(val));
        const int cnt = DecodeBlock(r, s, kHpFirst, ch > 0, 1, val);
        if (cnt < 0) return RvtResult(cnt);
        lm[ch > 0] += cnt;
        for (int p = 1; p < 16; ++p) {
          if (val[p] == 0) continue;
          blk[s.order[sc][p]] = val[p];
          CountScan(s, sc, p);
        }
      }
      if (bits > 0) {  // trimmed bits still scale the coded part
        for (int k = 1; k < 16; ++k) blk[kLowpassRefine[k]] = Refine(f, blk[kLowpassRefine[k]], bits, trim);
      }
    }
  }
  UpdateModel(s, kHP, lm[0], lm[1]);
  return (r.Short() || f.Short()) ? rvtStatusOutOfBuffer : rvtStatusOk;
}

// Runs of a block with fewer than 5 places left (the longest run 1..4: up
// to that less one zeros ended by a one, the longest run without its one)
// as entries of the run table, so that every run is one look-up in a row
// picked by the places left.
struct ShortRunLut {
  uint16_t e[5][256];
};
constexpr ShortRunLut MakeShortRunLut() {
  ShortRunLut l{};
  for (int m = 1; m < 5; ++m) {
    for (int v = 0; v < 256; ++v) {
      int z = 0;
      while (z < 8 && !((v << z) & 0x80)) ++z;
      const int run = z < m - 1 ? z + 1 : m, taken = z < m - 1 ? z + 1 : m - 1;
      l.e[m][v] = uint16_t(run | taken << 8);
    }
  }
  return l;
}
inline constexpr ShortRunLut kShortRuns = MakeShortRunLut();

// The HP slots as the fast decoder holds them for a macroblock: the tables
// never change within it, so each code's look-up row is picked once; the
// discriminant steps are summed apart and added once; the scan's order and
// totals are copies (the coefficient stores cannot reach them).  Slots by
// their place after kHpFirst: first index (0 lum, 3 chroma), index (1, 4,
// plus the continuation), level (6 plus the continuation).
struct HpRows {
  const uint32_t* first[2];  // kIndex12 rows by chroma
  const uint32_t* pair[4];   // kPair6 rows by 2 chroma + continuation
  const uint32_t* index[4];  // kIndex6 rows, the same way
  const uint32_t* level[2];  // kLevels rows by continuation
  const uint16_t* run[16];   // run rows by the longest run 1..14
  uint32_t lo[8], hi[8];     // the steps of the lower and upper discriminants
  int32_t total[16];
  uint8_t order[16];
};

inline void LoadHpRows(HpRows& h, const State& s, int sc) {
  for (int c = 0; c < 2; ++c) {
    const int base = kHpFirst + 3 * c;
    h.first[c] = kIndex12.e[s.table[base]];
    for (int k = 0; k < 2; ++k) {
      h.pair[2 * c + k] = kPair6.e[s.table[base + 1 + k]];
      h.index[2 * c + k] = kIndex6.e[s.table[base + 1 + k]];
    }
  }
  for (int k = 0; k < 2; ++k) h.level[k] = kLevels.e[s.table[int(kHpFirst) + kLevel + k]];
  h.run[0] = h.run[15] = kShortRuns.e[0];  // (never looked up)
  for (int m = 1; m < 5; ++m) h.run[m] = kShortRuns.e[m];
  for (int m = 5; m < 15; ++m) h.run[m] = kRuns.e[s.table[kRun]][RunBin(m)];
  for (int k = 0; k < 8; ++k) h.lo[k] = h.hi[k] = 0;
  std::memcpy(h.total, s.total[sc], sizeof h.total);
  std::memcpy(h.order, s.order[sc], sizeof h.order);
  // The DC's total (never counted nor compared: the scans start at 1) is
  // held at its largest, so a count at position 1 never passes it.
  h.total[0] = INT32_MAX;
}

inline void StoreHpRows(const HpRows& h, State& s, int sc) {
  for (int k = 0; k < 8; ++k) {
    s.disc[kHpFirst + k] = int32_t(uint32_t(s.disc[kHpFirst + k]) + h.lo[k]);
    s.disc1[kHpFirst + k] = int32_t(uint32_t(s.disc1[kHpFirst + k]) + h.hi[k]);
  }
  std::memcpy(&s.total[sc][1], &h.total[1], 15 * sizeof(int32_t));
  std::memcpy(s.order[sc], h.order, sizeof h.order);
}

// DecodeBlock of an HP block (first position 1) for the fast reader on the
// rows above, each coefficient put in the block through the scan as it
// comes (a count moves only entries at or before its own position, so each
// position still maps through the order the block started with).  A
// coefficient's codes (the run before it, its index and sign, its level)
// take at most 26 bits: one window serves them all, each code taken by a
// shift of the window in a register.  Whether a level or a run comes
// is the data's coin toss: both are looked up always and taken or not by
// masks, no branch to mispredict (nor for a lone 1 the pair look-up brings).
__attribute__((always_inline)) inline int DecodeHpBlock(FastReader& r, HpRows& h, int c, int32_t* blk) {
  int count = 0;
  uint64_t w;
  auto take = [&](uint32_t n) {
    w <<= n;
    r.pos += n;
  };
  // A coefficient's window, loaded afresh (57 bits or more) rather than
  // when the last one runs short: whether it does is the data's coin toss.
  const int64_t bytes = r.end >> 3;
  auto fresh = [&] {
    const int64_t at = r.pos >> 3;
    if (at + 8 <= bytes) {
      w = RefineLoad(r.p, r.pos);
    } else {
      w = r.Window();
    }
  };
  // The level when `some` (all ones) or 1 (zero): an escaped level reads on
  // through the reader, then a new window.
  auto level = [&](int cont, uint32_t some) -> uint32_t {
    const uint32_t& e = h.level[cont][w >> 56];
    take(TakenBits(e) & some);
    h.lo[kLevel + cont] += uint32_t(int32_t(int8_t(e >> 16))) & some;
    const uint32_t mag = (e & 0xFF & some) | (1u & ~some);
    if (mag != 0) return mag;
    const uint32_t big = LevelEscape(r);
    w = r.Window();
    return big;
  };
  // The run (0 when not `some`) of at most maxRun (0..14).
  auto run = [&](int maxRun, uint32_t some) -> int {
    const uint16_t& e = h.run[maxRun][w >> 56];
    take(TakenBits(e) & some);
    return int(e & 0xFF & some);
  };
  // (the total's test comes last: mostly false, and never true without `one`)
  auto count1 = [&](int p, uint32_t one) {
    count += int(one);
    const int32_t t = h.total[p] + int32_t(one);
    h.total[p] = t;
    if (one & uint32_t(t > h.total[p - 1])) {
      h.total[p] = h.total[p - 1];
      h.total[p - 1] = t;
      const uint8_t o = h.order[p];
      h.order[p] = h.order[p - 1];
      h.order[p - 1] = o;
    }
  };
  const int idx = 1 + 3 * c, fst = 3 * c;
  int cont, loc = 1;
  uint32_t more;  // whether a run comes before the next coefficient's index
  {
    fresh();
    const uint32_t& e = h.first[c][w >> (64 - 9)];
    take(TakenBits(e));
    h.lo[fst] += uint32_t(int32_t(int8_t(e >> 16)));
    h.hi[fst] += uint32_t(int32_t(int8_t(e >> 24)));
    const uint32_t neg = (e >> 4) & 1u;
    const int sym = int(e & 15u);
    const int srn = sym >> 2;
    cont = (sym & 1) && srn == 1;
    const uint32_t mag = level(cont, 0u - ((e >> 1) & 1u));
    loc += run(14, (e & 1u) - 1u);  // (a run of at most 14: within the block)
    blk[h.order[loc]] = int32_t(neg ? 0u - mag : mag);
    count1(loc, 1);
    ++loc;
    if (srn == 0) return count;
    more = srn == 2;
    if (loc + int(more) > 15) return rvtStatusErr;
  }
  for (;;) {
    fresh();
    loc += run(15 - loc, 0u - more);
    if (loc > 15) return rvtStatusErr;  // a run longer than the block allows
    // `loc` is now the next coefficient's position; its index follows.
    const int after = loc + 1;
    const int slot = idx + cont;
    int sym;
    uint32_t neg;
    if (after < 14) {
      // a lone 1 right before its successor comes with the successor's
      // index, which is then still a table one (its position below 14); the
      // lone 1's store, when there is none, is the successor's to overwrite
      const uint32_t& e = h.pair[2 * c + cont][w >> (64 - kPairBits)];
      take(TakenBits(e));
      h.lo[slot] += uint32_t(int32_t(int8_t(e >> 16)));
      h.hi[slot] += uint32_t(int32_t(int8_t(e >> 24)));
      sym = int(e & 15u);
      neg = (e >> 4) & 1u;
      const uint32_t lone = (e >> 5) & 1u;
      blk[h.order[loc]] = (e & 64u) ? -1 : 1;
      count1(loc, lone);
      loc += int(lone);
    } else if (after == 14) {
      const uint32_t& e = h.index[2 * c + cont][w >> (64 - 6)];
      take(TakenBits(e));
      h.lo[slot] += uint32_t(int32_t(int8_t(e >> 16)));
      h.hi[slot] += uint32_t(int32_t(int8_t(e >> 24)));
      sym = int(e & 15u);
      neg = (e >> 4) & 1u;
    } else {
      // fixed codes: after 15 positions 0, 10, 110, 111 (symbols 0, 2, 1,
      // 3), after 16 one bit; then the sign
      const uint32_t top = uint32_t(w >> 61);
      uint32_t n;
      if (after == 15) {
        sym = top < 4 ? 0 : top < 6 ? 2 : top == 6 ? 1 : 3;
        n = top < 4 ? 1 : top < 6 ? 2 : 3;
      } else {
        sym = int(top >> 2);
        n = 1;
      }
      take(n);
      neg = uint32_t(w >> 63);
      take(1);
    }
    const int srn = sym >> 1;
    cont &= int(srn == 1);
    const uint32_t mag = level(cont, 0u - uint32_t(sym & 1));
    blk[h.order[loc]] = int32_t(neg ? 0u - mag : mag);
    count1(loc, 1);
    ++loc;
    if (srn == 0) return count;
    more = srn == 2;
    if (loc + int(more) > 15) return rvtStatusErr;
  }
}

// DecodeHPOn for the fast readers (`f` may be `r`): the rows above, blocks
// without a coded part left to the refinement, which then writes every
// coefficient.
template <class F>
__attribute__((always_inline)) inline RvtResult DecodeHPFast(FastReader& r, F& f, int trim, int scan,
                                                            const int32_t* cbp, State& s, int32_t* coef) {
  int32_t lm[2] = {0, 0};
  const int sc = 1 + scan;
  HpRows h;
  LoadHpRows(h, s, sc);
  for (int ch = 0; ch < s.channels; ++ch) {
    const int c = ch > 0;
    const int bits = s.modelBits[kHP][c];
    const int nb = HpBlocks(s, ch);
    const int32_t pattern = cbp[ch];
    for (int i = 0; i < nb; ++i) {
      const int b = nb == 16 ? kHpBlockOrder[i] : i;
      int32_t* blk = coef + 256 * ch + 16 * b;
      if (!((pattern >> b) & 1) && bits > trim) {
        RefineBlock<false>(f, blk, bits, trim);
        continue;
      }
      for (int k = 1; k < 16; ++k) blk[k] = 0;
      if ((pattern >> b) & 1) {
        const int cnt = DecodeHpBlock(r, h, c, blk);
        if (cnt < 0) return RvtResult(cnt);
        lm[c] += cnt;
      }
      if (bits > 0) {  // trimmed bits still scale the coded part
        if (bits > trim) {
          RefineBlock(f, blk, bits, trim);
          continue;
        }
        for (int k = 1; k < 16; ++k) blk[kLowpassRefine[k]] = Refine(f, blk[kLowpassRefine[k]], bits, trim);
      }
    }
  }
  StoreHpRows(h, s, sc);
  UpdateModel(s, kHP, lm[0], lm[1]);
  return (r.Short() || f.Short()) ? rvtStatusOutOfBuffer : rvtStatusOk;
}

// The fast readers work on copies for the whole macroblock, their fields
// in registers rather than behind the caller's references (one copy when
// the flexbits share the coded parts' reader).
template <class R, class F>
inline RvtResult DecodeHP(R& r, F& f, int trim, int scan, const int32_t* cbp, State& s, int32_t* coef) {
  if constexpr (std::is_same_v<R, FastReader> && std::is_same_v<F, FastReader>) {
    FastReader lr = r;
    RvtResult status;
    if (&f == &r) {
      status = DecodeHPFast(lr, lr, trim, scan, cbp, s, coef);
      r = lr;
    } else {
      FastReader lf = f;
      status = DecodeHPFast(lr, lf, trim, scan, cbp, s, coef);
      r = lr;
      f = lf;
    }
    return status;
  } else {
    return DecodeHPOn(r, f, trim, scan, cbp, s, coef);
  }
}

inline RvtResult EncodeHP(Writer& w, Writer& f, int trim, int scan, const int32_t* coef, State& s,
                          int32_t* cbp) {
  int32_t lm[2] = {0, 0};
  int32_t val[16];
  const int sc = 1 + scan;
  for (int ch = 0; ch < s.channels; ++ch) {
    const int bits = s.modelBits[kHP][ch > 0];
    cbp[ch] = 0;
    for (int i = 0; i < HpBlocks(s, ch); ++i) {
      const int b = HpBlockAt(s, ch, i);
      const int32_t* blk = coef + 256 * ch + 16 * b;
      val[0] = 0;
      bool any = false;
      // (magnitudes were checked against the level escape by the entry)
      for (int p = 1; p < 16; ++p) {
        val[p] = VlcPart(blk[s.order[sc][p]], bits);
        any |= val[p] != 0;
      }
      if (any) {
        cbp[ch] |= 1 << b;
        EncodeBlock(w, s, kHpFirst, ch > 0, 1, val);
        for (int p = 1; p < 16; ++p) {
          if (val[p] == 0) continue;
          ++lm[ch > 0];
          CountScan(s, sc, p);
        }
      }
      if (bits > trim) {
        for (int k = 1; k < 16; ++k) EncodeRefine(f, blk[kLowpassRefine[k]], bits, trim);
      }
    }
  }
  UpdateModel(s, kHP, lm[0], lm[1]);
  return rvtStatusOk;
}

// The OR of the magnitudes of a block's HP coefficients (positions 1..15):
// its VLC parts are all zero exactly when this shifted by the model bits
// is, and its refinements when its low model bits are.
inline uint32_t HpBlockOr(const int32_t* blk) {
  using V = uint32_t __attribute__((vector_size(16)));
  using VS = int32_t __attribute__((vector_size(16)));
  V a, b, c, d;
  std::memcpy(&a, blk, 16);
  std::memcpy(&b, blk + 4, 16);
  std::memcpy(&c, blk + 8, 16);
  std::memcpy(&d, blk + 12, 16);
  auto mag = [](V v) {
    const V sign = (V)((VS)v >> 31);
    return (v ^ sign) - sign;
  };
  const V keep = {0u, ~0u, ~0u, ~0u};  // (not the DC)
  const V o = (mag(a) & keep) | mag(b) | mag(c) | mag(d);
  return o[0] | o[1] | o[2] | o[3];
}

// Whether a scan order takes every position 1..15 once (as every state the
// coders keep does; a state handed in may hold any order entries below 16,
// which the fast forms leave to the references).
inline bool ScanIsPermutation(const State& s, int scan) {
  uint32_t seen = 0;
  for (int p = 1; p < 16; ++p) seen |= 1u << s.order[scan][p];
  return seen == 0xFFFEu;
}

// The set bits of a 16-bit mask in a few register steps (the baseline
// target has no bit-count instruction, and the library call costs more).
inline int Ones16(uint32_t x) {
  x -= (x >> 1) & 0x5555u;
  x = (x & 0x3333u) + ((x >> 2) & 0x3333u);
  x = (x + (x >> 4)) & 0x0F0Fu;
  return int((x + (x >> 8)) & 0x1Fu);
}

// VlcPart of a block's 16 coefficients in block order, a vector at a time.
inline void HpVlcParts(const int32_t* blk, int bits, int32_t* part) {
  using V = uint32_t __attribute__((vector_size(16)));
  using VS = int32_t __attribute__((vector_size(16)));
  for (int i = 0; i < 16; i += 4) {
    V v;
    std::memcpy(&v, blk + i, 16);
    const V sign = (V)((VS)v >> 31);
    const V q = ((v ^ sign) - sign) >> bits;
    const V r = (q ^ sign) - sign;
    std::memcpy(part + i, &r, 16);
  }
}

// EncodeRun's puts by run table, longest run and run: the bits (0-7) and
// their count (8-15).
struct RunCodes {
  uint16_t e[2][16][16];
};
constexpr RunCodes MakeRunCodes() {
  RunCodes rc{};
  for (int t = 0; t < 2; ++t) {
    for (int maxRun = 1; maxRun < 16; ++maxRun) {
      for (int run = 1; run <= maxRun; ++run) {
        uint32_t v = 0;
        int n = 0;
        if (maxRun < 5) {
          v = run < maxRun ? 1u : 0u;
          n = run < maxRun ? run : maxRun - 1;
        } else {
          const int bin = maxRun >= 11 ? 0 : maxRun >= 7 ? 1 : 2;
          int sym = 4;
          for (int k = 0; k < 5; ++k) {
            if (run < kRunBase[bin][k] + (1 << kRunBits[bin][k])) {
              sym = k;
              break;
            }
          }
          const Code c = kAlpha5.code[t][sym];
          const int b = kRunBits[bin][sym];
          v = (uint32_t(c.code) << b) | uint32_t(run - kRunBase[bin][sym]);
          n = c.len + b;
        }
        rc.e[t][maxRun][run] = uint16_t(v | uint32_t(n) << 8);
      }
    }
  }
  return rc;
}
inline constexpr RunCodes kRunCodes = MakeRunCodes();

// The most bits one coefficient of EncodeBlockRoomy puts below the level
// escape: a run, its index with the sign, its level; at most 32, so that
// one Settle a coefficient keeps the writer's 64 bits from overflowing.
constexpr int MaxCodeLen(const Alphabet& a, int symbols) {
  int m = 0;
  for (int t = 0; t < a.tables; ++t) {
    for (int k = 0; k < symbols; ++k) m = a.code[t][k].len > m ? a.code[t][k].len : m;
  }
  return m;
}
constexpr int MaxCoefBits() {
  int run = 0;
  for (const auto& table : kRunCodes.e) {
    for (const auto& row : table) {
      for (uint16_t e : row) run = (e >> 8) > run ? (e >> 8) : run;
    }
  }
  int level = 0;
  for (int t = 0; t < kAlpha7.tables; ++t) {
    for (int k = 0; k < 6; ++k) {
      const int n = kAlpha7.code[t][k].len + int(kLevelBits[k]);
      level = n > level ? n : level;
    }
  }
  const int a = MaxCodeLen(kAlpha12, 12), b = MaxCodeLen(kAlpha6, 6);
  const int index = (a > b ? a : b) > 3 ? (a > b ? a : b) + 1 : 4;
  return run + index + level;
}
static_assert(MaxCoefBits() <= 32);

// A nonzero value's magnitude and sign (1 when negative).
struct MagSign {
  uint32_t mag, sign;
};

// EncodeBlockAt for the roomy writer over `mask`, the positions of the
// nonzero values (bits first..15), value(p) the value at position p as
// MagSign: each coefficient's magnitude, sign and successor taken once, runs
// from one table, levels below the escape in line; count(p) after each
// coefficient (the coder reads neither the counts nor the order).
template <class Value, class Count>
__attribute__((always_inline)) inline void EncodeBlockRoomy(RoomyWriter& out, State& s, int group, bool chroma,
                                                            int first, Value value, uint32_t mask, Count count) {
  RoomyWriter w = out;  // (its fields stay in registers)
  RoomyAppender a{w};  // a coefficient's puts, settled once (kMaxCoefBits)
  static constexpr int8_t kSymOf[18] = {0, 0, 0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
  const int idx = group + (chroma ? kIndexChr : kIndexLum);
  const int fst = group + (chroma ? kFirstChr : kFirstLum);
  int cont = 0, loc = first;
  for (uint32_t m = mask; m; m &= m - 1) {
    const int here = __builtin_ctz(m);
    const MagSign ms = value(here);
    const uint32_t mg = ms.mag;
    // what follows: nothing, the next position, or a run first
    const uint32_t rest = (m & (m - 1)) >> (here + 1);
    const int srn = rest == 0 ? 0 : 2 - int(rest & 1);
    const bool sl = mg > 1;
    const uint32_t sign = ms.sign;
    if (m == mask) {
      const bool sr = here == first;
      PutCountedOf<12>(a, s, fst, int(sr) | (int(sl) << 1) | (srn << 2), sign, 1);
      cont = sr && srn == 1;
    } else {
      if (here != loc) {
        const uint32_t e = kRunCodes.e[s.table[kRun]][15 - loc][here - loc];
        a.PutFit(e & 0xFF, int(e >> 8));
      }
      const int after = here + 1;
      const int sym = int(sl) | (srn << 1);
      if (after < 15) {
        PutCountedOf<6>(a, s, idx + cont, sym, sign, 1);
      } else if (after == 15) {
        if (sym == 0) a.PutFit(0 | sign, 2);
        else if (sym == 2) a.PutFit(4 | sign, 3);
        else a.PutFit((sym == 1 ? 12u : 14u) | sign, 4);
      } else {
        a.PutFit(uint32_t(sym) << 1 | sign, 2);
      }
      cont &= int(srn == 1);
    }
    if (sl) {
      const int slot = group + kLevel + cont;
      if (mg < 18) {
        const int sym = kSymOf[mg];
        PutCountedOf<7>(a, s, slot, sym, mg - uint32_t(kLevelBase[sym]), kLevelBits[sym]);
      } else {
        w.Settle();
        RoomyWriter e = w;
        EncodeLevel(e, s, slot, mg);
        w = e;
      }
    }
    if (m == mask && here != first) {
      const uint32_t e = kRunCodes.e[s.table[kRun]][15 - first][here - first];
      a.PutFit(e & 0xFF, int(e >> 8));
    }
    w.Settle();
    count(here);
    loc = here + 1;
  }
  out = w;
}

// The value and count arguments of EncodeBlockRoomy for LP blocks: the
// values gathered in scan order, no counts taken.
struct ValueAt {
  const int32_t* val;
  __attribute__((always_inline)) MagSign operator()(int p) const { return {Mag(val[p]), uint32_t(val[p]) >> 31}; }
};
struct NoCount {
  void operator()(int) const {}
};
// The refinements of a block (EncodeRefine of each coefficient in the
// refinement order) four or two coefficients a put when their codes fit
// together.
__attribute__((always_inline)) inline void RefineRoomy(RoomyWriter& out, const int32_t* blk, uint32_t blockOr,
                                                       int bits, int trim) {
  RoomyWriter f = out;  // (its fields stay in registers)
  const int n0 = bits - trim;
  const uint32_t low = (1u << bits) - 1u;
  if (((blockOr & low) >> trim) == 0) {  // every refinement zero, none signed
    for (int left = 15 * n0; left > 0; left -= 32) f.PutFit(0, left < 32 ? left : 32);
    out = f;
    return;
  }
  // every coefficient's code and length in block order, a vector at a
  // time: a value wholly in the refinement carries its sign right after it
  using V = uint32_t __attribute__((vector_size(16)));
  using VS = int32_t __attribute__((vector_size(16)));
  uint32_t codes[16], lens[16];
  for (int i = 0; i < 16; i += 4) {
    V v;
    std::memcpy(&v, blk + i, 16);
    const V sign = (V)((VS)v >> 31);
    const V m = (v ^ sign) - sign;
    const V ref = (m & low) >> trim;
    const V solo = (V)(m <= low) & (V)(ref != 0);  // all ones or zero
    const V c = ref + (ref & solo) + (sign & solo & 1u);
    const V n = uint32_t(n0) - solo;
    std::memcpy(codes + i, &c, 16);
    std::memcpy(lens + i, &n, 16);
  }
  int k = 1;
  if (n0 <= 7) {  // four codes of at most 8 bits a put, then three
    auto join = [&](uint32_t v, int i) { return (v << lens[kLowpassRefine[i]]) | codes[kLowpassRefine[i]]; };
    auto bitsOf = [&](int i) { return int(lens[kLowpassRefine[i]]); };
    for (; k < 13; k += 4) {
      f.PutFit(join(join(join(codes[kLowpassRefine[k]], k + 1), k + 2), k + 3),
               bitsOf(k) + bitsOf(k + 1) + bitsOf(k + 2) + bitsOf(k + 3));
    }
    f.PutFit(join(join(codes[kLowpassRefine[13]], 14), 15), bitsOf(13) + bitsOf(14) + bitsOf(15));
    out = f;
    return;
  }
  if (n0 <= 15) {
    for (; k < 15; k += 2) {
      const int a = kLowpassRefine[k], b = kLowpassRefine[k + 1];
      f.PutFit((codes[a] << lens[b]) | codes[b], int(lens[a] + lens[b]));
    }
  }
  for (; k < 16; ++k) f.PutFit(codes[kLowpassRefine[k]], int(lens[kLowpassRefine[k]]));
  out = f;
}

// The HP coder's codes of a coefficient after a block's first, by the
// index's table (0..3; 4 and 5 the fixed codes after positions 14 and 15),
// what follows (0 nothing, 1 the next position, 2 a run) and whether the
// level exceeds 1: the code with a 0 for its sign, its length with the
// sign, and the discriminant steps packed as lower + upper * 2^32 (the
// fixed codes step nothing).  A macroblock's sums of steps stay far below
// 2^31, so they unpack exactly.
struct PackedCode {
  int64_t steps;
  uint32_t code, len;
};
struct HpIndexCodes {
  PackedCode e[6][3][2];
};
constexpr HpIndexCodes MakeHpIndexCodes() {
  HpIndexCodes ic{};
  for (int t = 0; t < 6; ++t) {
    for (int srn = 0; srn < 3; ++srn) {
      for (int sl = 0; sl < 2; ++sl) {
        const int sym = sl | (srn << 1);
        PackedCode& e = ic.e[t][srn][sl];
        if (t < 4) {
          const Code c = kAlpha6.code[t][sym];
          e = {int64_t(kSteps6.lo[t][sym]) + int64_t(kSteps6.hi[t][sym]) * (int64_t(1) << 32),
               uint32_t(c.code) << 1, uint32_t(c.len) + 1};
        } else if (t == 4) {
          constexpr uint32_t kCode[4] = {0, 12, 4, 14}, kLen[4] = {2, 4, 3, 4};
          e = {0, sym < 4 ? kCode[sym] : 0u, sym < 4 ? kLen[sym] : 0u};
        } else {
          e = {0, uint32_t(sym) << 1, 2};
        }
      }
    }
  }
  return ic;
}
inline constexpr HpIndexCodes kHpIndexCodes = MakeHpIndexCodes();

// A block's first index (12 symbols) by table and symbol, packed as above.
struct HpFirstCodes {
  PackedCode e[5][12];
};
constexpr HpFirstCodes MakeHpFirstCodes() {
  HpFirstCodes fc{};
  for (int t = 0; t < 5; ++t) {
    for (int sym = 0; sym < 12; ++sym) {
      const Code c = kAlpha12.code[t][sym];
      fc.e[t][sym] = {int64_t(kSteps12.lo[t][sym]) + int64_t(kSteps12.hi[t][sym]) * (int64_t(1) << 32),
                      uint32_t(c.code) << 1, uint32_t(c.len) + 1};
    }
  }
  return fc;
}
inline constexpr HpFirstCodes kHpFirstCodes = MakeHpFirstCodes();

// Levels 2..17 by level table (the code and its extra bits, the lower
// discriminant's step); levels 0 and 1 code nothing.
struct HpLevelCodes {
  PackedCode e[2][18];
};
constexpr HpLevelCodes MakeHpLevelCodes() {
  HpLevelCodes lc{};
  constexpr int8_t kSymOf[18] = {0, 0, 0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
  for (int t = 0; t < 2; ++t) {
    for (int mg = 2; mg < 18; ++mg) {
      const int sym = kSymOf[mg];
      const Code c = kAlpha7.code[t][sym];
      lc.e[t][mg] = {int64_t(kSteps7.lo[t][sym]),
                     (uint32_t(c.code) << kLevelBits[sym]) | uint32_t(mg - kLevelBase[sym]),
                     uint32_t(c.len + kLevelBits[sym])};
    }
  }
  return lc;
}
inline constexpr HpLevelCodes kHpLevelCodes = MakeHpLevelCodes();

// Adds packed steps to a slot's discriminants (wrapping, as Account does).
inline void AddSteps(State& s, int slot, int64_t steps) {
  const int32_t lo = int32_t(uint32_t(uint64_t(steps)));
  const int32_t hi = int32_t((steps - lo) >> 32);
  s.disc[slot] = int32_t(uint32_t(s.disc[slot]) + uint32_t(lo));
  s.disc1[slot] = int32_t(uint32_t(s.disc1[slot]) + uint32_t(hi));
}

// EncodeLP for the roomy writer and coefficients whose range has been
// checked: the layout's counts taken once, the blocks through
// EncodeBlockRoomy, the refinements of unshared channels through
// RefineRoomy.
inline void EncodeLPRoomy(RoomyWriter& w, State& s, const int32_t* coef) {
  int32_t lm[2] = {0, 0};
  const int channels = s.channels;
  const bool sharing = Shared(s);
  const int n = sharing ? 2 : channels;
  const int chromaCount = LpCount(s, 1);
  int32_t q[16][16];
  uint32_t ors[16];
  int cbp = 0;
  for (int ch = 0; ch < channels; ++ch) {
    const int bits = s.modelBits[kLP][ch > 0];
    const int count = ch == 0 ? 16 : chromaCount;
    if (count == 16) {
      HpVlcParts(coef + 16 * ch, bits, q[ch]);
      ors[ch] = HpBlockOr(coef + 16 * ch);
      if ((ors[ch] >> bits) != 0) cbp |= 1 << (sharing && ch > 1 ? 1 : ch);
      continue;
    }
    for (int k = 1; k < count; ++k) {
      q[ch][k] = VlcPart(coef[16 * ch + k], bits);
      if (q[ch][k]) cbp |= 1 << (sharing && ch > 1 ? 1 : ch);
    }
  }
  EncodeLpCbp(w, s, n, cbp);
  CountLpCbp(s, n, cbp);
  int32_t val[16];
  for (int g = 0; g < n; ++g) {
    const bool shared = sharing && g == 1;
    if ((cbp >> g) & 1) {
      const int first = shared ? ChromaFirst(s) : 1;
      uint32_t mask = 0;
      if (shared) {
        for (int p = first; p < 16; ++p) {
          val[p] = q[1 + ((p - first) & 1)][ChromaLpPos(s, (p - first) / 2)];
          mask |= uint32_t(val[p] != 0) << p;
        }
      } else {
        for (int p = 1; p < 16; ++p) {
          val[p] = q[g][s.order[0][p]];
          mask |= uint32_t(val[p] != 0) << p;
        }
      }
      EncodeBlockRoomy(w, s, kLpFirst, g > 0, first, ValueAt{val}, mask, NoCount{});
      lm[g > 0] += Ones16(mask);
      if (!shared) {
        for (uint32_t m = mask; m; m &= m - 1) CountScan(s, 0, __builtin_ctz(m));
      }
    }
    if (shared) {
      const int bits = s.modelBits[kLP][1];
      for (int k = 1; k < chromaCount; ++k) {
        for (int ch = 1; ch <= 2; ++ch) EncodeRefine(w, coef[16 * ch + k], bits, 0);
      }
      continue;
    }
    const int bits = s.modelBits[kLP][g > 0];
    if (bits > 0) RefineRoomy(w, coef + 16 * g, ors[g], bits, 0);
  }
  UpdateModel(s, kLP, lm[0], lm[1]);
}

// ------------------------------------------------------------ HP coded-block pattern

// Bit i of a coded 16-block pattern is block kHpBlockOrder[i] (an
// involution); 4:2:0 / 4:2:2 chroma patterns are in raster order already.
inline int32_t QuadToRaster(int32_t v) {
  // the second and third blocks of each quad row trade places (bits 2, 3
  // with 4, 5 and 10, 11 with 12, 13); the order is its own inverse
  return (v & 0xC3C3) | ((v & 0x0C0C) << 2) | ((v >> 2) & 0x0C0C);
}

// The pattern of 1..4 set bits of a nibble: a 5-symbol code (none, one,
// two, three, four set) with 2 or 3 more bits telling which.
template <class R>
inline int DecodeNibble(R& r, int sym) {
  switch (sym) {
    case 1: return 1 << r.Bits(2);
    case 2: {
      const int v = int(r.Bits(2));
      if (v == 0) return 3;
      if (v == 1) return 5;
      static constexpr int kTwo[4] = {6, 9, 10, 12};
      return kTwo[v * 2 + int(r.Bit()) - 4];
    }
    case 3: return 0xF ^ (1 << r.Bits(2));
    case 4: return 0xF;
    default: return 0;
  }
}

inline int CountOnes(int v) { return __builtin_popcount(uint32_t(v) & 0xFFFFu); }

// The prediction model of a channel class (0 lum, 1 chroma): counts of how
// full and how empty recent patterns were pick one of three predictions:
// from the neighbours (0), as coded (1), inverted (2).
inline void CountCbp(State& s, int c, int ones, int full) {
  int32_t* cnt0 = s.cbpModel;
  int32_t* cnt1 = s.cbpModel + 2;
  int32_t* st = s.cbpModel + 4;
  constexpr int kDiff = 3;
  auto sat = [](int32_t& x) {
    if (uint32_t(x + 16) >= 32u) x = x < 0 ? -16 : 15;
  };
  cnt0[c] += ones - kDiff;
  sat(cnt0[c]);
  cnt1[c] += full - ones - kDiff;
  sat(cnt1[c]);
  st[c] = cnt0[c] < 0 ? (cnt0[c] < cnt1[c] ? 1 : 2) : cnt1[c] < 0 ? 2 : 0;
}

// The pattern from its coded difference, in coded bit order; left/top are
// the neighbours' patterns (coded order) or null at the tile's edges.
inline int32_t PredictCbp(State& s, int32_t v, int ch, const int32_t* left, const int32_t* top) {
  const int c = ch > 0;
  const int mode = s.cbpModel[4 + c];
  if (s.format == k420 && ch > 0) {
    if (mode == 0) {
      if (!left) v ^= top ? (top[ch] >> 2) & 1 : 1;
      else v ^= (left[ch] >> 1) & 1;
      v ^= 0x2 & (v << 1);
      v ^= (v & 0x3) << 2;
    } else if (mode == 2) {
      v ^= 0xF;
    }
    CountCbp(s, 1, CountOnes(v) * 4, 16);
  } else if (s.format == k422 && ch > 0) {
    if (mode == 0) {
      if (!left) v ^= top ? (top[ch] >> 6) & 1 : 1;
      else v ^= (left[ch] >> 1) & 1;
      v ^= (v & 0x1) << 1;
      v ^= (v & 0x3) << 2;
      v ^= (v & 0xC) << 2;
      v ^= (v & 0x30) << 2;
    } else if (mode == 2) {
      v ^= 0xFF;
    }
    CountCbp(s, 1, CountOnes(v) * 2, 16);
  } else {
    if (mode == 0) {
      if (!left) v ^= top ? (top[ch] >> 10) & 1 : 1;
      else v ^= (left[ch] >> 5) & 1;
      v ^= 0x02 & (v << 1);
      v ^= 0x10 & (v << 3);
      v ^= 0x20 & (v << 1);
      v ^= (v & 0x33) << 2;
      v ^= (v & 0xCC) << 6;
      v ^= (v & 0x3300) << 2;
    } else if (mode == 2) {
      v ^= 0xFFFF;
    }
    CountCbp(s, c, CountOnes(v), 16);
  }
  return v;
}

// The coded differences of every channel (YUV: one code for all three),
// then the prediction.  Patterns in and out are in coded bit order.
template <class R>
inline RvtResult DecodeCbpHP(R& r, State& s, const int32_t* left, const int32_t* top, int32_t* cbp) {
  const bool many = s.format == kCmyk || s.format == kNChannel;
  const int groups = many ? s.channels : 1;
  const Alphabet& a5 = AlphabetOf(5);
  const Alphabet& aBlk = AlphabetOf(SlotSymbols(kNumBlkCbp, IsColour(s.format)));
  int32_t diff[16] = {};
  for (int g = 0; g < groups; ++g) {
    int32_t y = 0, u = 0, v = 0;
    const int sym = r.Symbol(a5, s.table[kNumCbp]);
    Account(s, kNumCbp, sym);
    const int quads = DecodeNibble(r, sym);
    for (int q = 0; q < 4; ++q) {
      if (!((quads >> q) & 1)) continue;
      static constexpr int kFlc[6] = {0, 2, 1, 2, 2, 0};
      static constexpr int kOff[6] = {0, 4, 2, 8, 12, 1};
      static constexpr int kOut[16] = {0, 15, 3, 12, 1, 2, 4, 8, 5, 6, 9, 10, 7, 11, 13, 14};
      const int bsym = r.Symbol(aBlk, s.table[kNumBlkCbp]);
      Account(s, kNumBlkCbp, bsym);
      int val = bsym + 1, blk = 0;
      if (val >= 6) {  // chroma present
        blk = r.Bit() ? 0x10 : r.Bit() ? 0x20 : 0x30;
        if (val == 9) val = r.Bit() ? 9 : r.Bit() ? 10 : 11;
        val -= 6;
      }
      int code = kOff[val];
      if (kFlc[val]) code += int(r.Bits(kFlc[val]));
      blk += kOut[code & 15];
      y |= (blk & 0xF) << (4 * q);
      if (s.format == k444) {
        for (int k = 0; k < 2; ++k) {
          if (!((blk >> (k + 4)) & 1)) continue;
          const int csym = r.Symbol(AlphabetOf(4), 0);
          const int n = DecodeNibble(r, csym + 1);
          (k == 0 ? u : v) |= n << (4 * q);
        }
      } else if (s.format == k420) {
        u |= ((blk >> 4) & 1) << q;
        v |= ((blk >> 5) & 1) << q;
      } else if (s.format == k422) {
        static constexpr int kShift[4] = {0, 1, 4, 5};
        for (int k = 0; k < 2; ++k) {
          if (!((blk >> (k + 4)) & 1)) continue;
          const int n = (r.Bit() ? 1 : r.Bit() ? 4 : 5) << kShift[q];
          (k == 0 ? u : v) |= n;
        }
      }
    }
    diff[g] = y;
    if (IsColour(s.format)) {
      diff[1] = u;
      diff[2] = v;
    }
  }
  for (int ch = 0; ch < s.channels; ++ch) cbp[ch] = PredictCbp(s, diff[ch], ch, left, top);
  return r.Short() ? rvtStatusOutOfBuffer : rvtStatusOk;
}

// The fast reader's pattern decoding: each code with the bits after it
// that tell which blocks it sets resolved in one look-up.  Everything is
// read before the context changes, so a short read leaves it untouched.

// A constexpr bit source over the low `width` bits of v, most significant
// first, for building the look-ups.
struct TableBits {
  uint32_t v;
  int width, pos = 0;
  constexpr uint32_t Bit() { return pos < width ? (v >> (width - 1 - pos++)) & 1u : (++pos, 0u); }
  constexpr uint32_t Bits(int n) {
    uint32_t x = 0;
    for (int i = 0; i < n; ++i) x = x << 1 | Bit();
    return x;
  }
};
constexpr int TableNibble(TableBits& b, int sym) {
  constexpr int kTwo[4] = {6, 9, 10, 12};
  switch (sym) {
    case 1: return 1 << b.Bits(2);
    case 2: {
      const int v = int(b.Bits(2));
      return v == 0 ? 3 : v == 1 ? 5 : kTwo[v * 2 + int(b.Bit()) - 4];
    }
    case 3: return 0xF ^ (1 << b.Bits(2));
    case 4: return 0xF;
    default: return 0;
  }
}

// Look-ups of the next bits, each entry the value (byte 0), the bits taken
// (byte 1) and, for adaptive codes, the discriminant step (signed byte 2):
// `quads` the set quads of a group (5-symbol code of table t and its
// nibble bits, 7 bits); `blk9` a quad's luma nibble and chroma flags
// (0x10, 0x20) after its 9-symbol code of table t, from the 6 bits that
// follow the code; `blk5` a quad's nibble of a format without chroma
// (5-symbol code of table t and its bits, 7 bits); `nib4` a 4:4:4 chroma
// nibble (4-symbol code and its nibble bits, 6 bits).
struct CbpLuts {
  uint32_t quads[2][128], blk5[2][128];
  uint16_t blk9[9][64];
  uint16_t nib4[64];
};
constexpr CbpLuts MakeCbpLuts() {
  CbpLuts l{};
  for (int t = 0; t < 2; ++t) {
    for (uint32_t v = 0; v < 128; ++v) {
      const int sym = PrefixSymbol(kAlpha5, t, v, 7);
      const int len = kAlpha5.code[t][sym].len;
      TableBits b{v, 7, len};
      const int n = TableNibble(b, sym);
      const int step = kAlpha5.code[0][sym].len - kAlpha5.code[1][sym].len;
      l.quads[t][v] = uint32_t(n) | uint32_t(b.pos) << 8 | uint32_t(uint8_t(int8_t(step))) << 16;
    }
  }
  constexpr int kFlc[6] = {0, 2, 1, 2, 2, 0};
  constexpr int kOff[6] = {0, 4, 2, 8, 12, 1};
  constexpr int kOut[16] = {0, 15, 3, 12, 1, 2, 4, 8, 5, 6, 9, 10, 7, 11, 13, 14};
  for (int sym = 0; sym < 9; ++sym) {
    for (uint32_t v = 0; v < 64; ++v) {
      TableBits b{v, 6};
      int val = sym + 1, blk = 0;
      if (val >= 6) {
        blk = b.Bit() ? 0x10 : b.Bit() ? 0x20 : 0x30;
        if (val == 9) val = b.Bit() ? 9 : b.Bit() ? 10 : 11;
        val -= 6;
      }
      const int code = kOff[val] + int(b.Bits(kFlc[val]));
      blk += kOut[code & 15];
      l.blk9[sym][v] = uint16_t(blk | b.pos << 8);
    }
  }
  for (int t = 0; t < 2; ++t) {
    for (uint32_t v = 0; v < 128; ++v) {
      const int sym = PrefixSymbol(kAlpha5, t, v, 7);
      TableBits b{v, 7, kAlpha5.code[t][sym].len};
      const int val = sym + 1;
      const int code = kOff[val] + int(b.Bits(kFlc[val]));
      const int step = kAlpha5.code[0][sym].len - kAlpha5.code[1][sym].len;
      l.blk5[t][v] = uint32_t(kOut[code & 15]) | uint32_t(b.pos) << 8 | uint32_t(uint8_t(int8_t(step))) << 16;
    }
  }
  for (uint32_t v = 0; v < 64; ++v) {
    const int sym = PrefixSymbol(kAlpha4, 0, v, 6);
    TableBits b{v, 6, kAlpha4.code[0][sym].len};
    const int n = TableNibble(b, sym + 1);
    l.nib4[v] = uint16_t(n | b.pos << 8);
  }
  return l;
}
inline constexpr CbpLuts kCbpLuts = MakeCbpLuts();
static_assert(kAlpha9.tables == 2 && kAlpha4.tables == 1);

// The 9-symbol code steps (one discriminant, both tables watching the one
// boundary).
constexpr std::array<int8_t, 9> MakeBlkSteps() {
  std::array<int8_t, 9> st{};
  for (int k = 0; k < 9; ++k) st[size_t(k)] = int8_t(kAlpha9.code[0][k].len - kAlpha9.code[1][k].len);
  return st;
}
inline constexpr std::array<int8_t, 9> kBlkSteps = MakeBlkSteps();

// `F` the format class: 0 no chroma, else k420, k422, k444.
template <int F>
__attribute__((always_inline)) inline bool DecodeCbpGroups(FastReader& r, const State& s, int32_t* diff,
                                                           uint32_t& dq, uint32_t& db) {
  const int groups = F == 0 && (s.format == kCmyk || s.format == kNChannel) ? s.channels : 1;
  const int tq = s.table[kNumCbp], tb = s.table[kNumBlkCbp];
  for (int g = 0; g < groups; ++g) {
    uint32_t y = 0, u = 0, v = 0;
    const uint32_t eq = kCbpLuts.quads[tq][r.Window() >> 57];
    r.pos += TakenBits(eq);
    dq += uint32_t(int32_t(int8_t(eq >> 16)));
    for (uint32_t m = eq & 0xFu; m; m &= m - 1) {
      const int q = __builtin_ctz(m);
      uint32_t blk;
      if constexpr (F == 0) {
        const uint32_t e = kCbpLuts.blk5[tb][r.Window() >> 57];
        r.pos += TakenBits(e);
        db += uint32_t(int32_t(int8_t(e >> 16)));
        blk = e & 0xFu;
      } else {
        const uint64_t w = r.Window();
        const uint16_t& es = kLuts.e[LutBase(9) + tb][w >> 56];
        const uint32_t len = TakenBits(es), sym = es & 0xFFu;
        db += uint32_t(int32_t(kBlkSteps[sym]));
        const uint16_t& e = kCbpLuts.blk9[sym][(w << len) >> 58];
        r.pos += len + TakenBits(e);
        blk = e & 0xFFu;
      }
      y |= (blk & 0xFu) << (4 * q);
      if constexpr (F == k444) {
        for (int k = 0; k < 2; ++k) {
          if (!((blk >> (k + 4)) & 1u)) continue;
          const uint16_t& e = kCbpLuts.nib4[r.Window() >> 58];
          r.pos += TakenBits(e);
          (k == 0 ? u : v) |= uint32_t(e & 0xFu) << (4 * q);
        }
      } else if constexpr (F == k420) {
        u |= ((blk >> 4) & 1u) << q;
        v |= ((blk >> 5) & 1u) << q;
      } else if constexpr (F == k422) {
        constexpr int kShift[4] = {0, 1, 4, 5};
        for (int k = 0; k < 2; ++k) {
          if (!((blk >> (k + 4)) & 1u)) continue;
          const uint32_t b2 = uint32_t(r.Window() >> 62);
          r.pos += b2 >= 2 ? 1 : 2;
          const uint32_t n = b2 >= 2 ? 1u : b2 == 1 ? 4u : 5u;
          (k == 0 ? u : v) |= n << kShift[q];
        }
      }
    }
    diff[g] = int32_t(y);
    if constexpr (F != 0) {
      diff[1] = int32_t(u);
      diff[2] = int32_t(v);
    }
  }
  return !r.Short();
}

// DecodeCbpHP for the fast reader; the context changes only when the
// pattern decoded.
inline RvtResult DecodeCbpHPFast(FastReader& r, State& s, const int32_t* left, const int32_t* top,
                                 int32_t* cbp) {
  int32_t diff[16];
  uint32_t dq = uint32_t(s.disc[kNumCbp]), db = uint32_t(s.disc[kNumBlkCbp]);
  bool ok;
  switch (s.format) {
    case k444: ok = DecodeCbpGroups<k444>(r, s, diff, dq, db); break;
    case k420: ok = DecodeCbpGroups<k420>(r, s, diff, dq, db); break;
    case k422: ok = DecodeCbpGroups<k422>(r, s, diff, dq, db); break;
    default: ok = DecodeCbpGroups<0>(r, s, diff, dq, db); break;
  }
  if (!ok) return rvtStatusOutOfBuffer;
  s.disc[kNumCbp] = int32_t(dq);
  s.disc[kNumBlkCbp] = int32_t(db);
  for (int ch = 0; ch < s.channels; ++ch) cbp[ch] = PredictCbp(s, diff[ch], ch, left, top);
  return rvtStatusOk;
}

// ------------------------------------------------------------ checks and entries

// A cursor: buffer, length, position pointer, then the position's range.
inline RvtResult CheckCursor(const uint8_t* p, int32_t len, const int32_t* pos) {
  RVT_CHECK(CheckPtr(p));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  const int64_t bytes = len < kMaxBytes ? len : kMaxBytes;
  if (*pos < 0 || *pos > bytes * 8) return rvtStatusBadArg;
  return rvtStatusOk;
}
inline int64_t EndBits(int32_t len) { return (len < kMaxBytes ? len : kMaxBytes) * int64_t(8); }

// Whether the context lies apart from n bytes at p: the fast forms then
// code on it in place rather than on a copy (a context inside a buffer the
// call reads or writes gives the reference's result either way).
inline bool Apart(const State* st, const void* p, size_t n) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(st), b = reinterpret_cast<uintptr_t>(p);
  return a + sizeof(State) <= b || b + n <= a;
}

// The context of one band's decoding.  The reference works on a copy and
// stores it when the band decoded; the fast form, when the context lies
// apart from what the band reads, works on the caller's context and puts a
// copy back when the band fails: one copy, not two.
template <class R, class Body>
inline RvtResult OnContext(State* st, bool apart, Body body) {
  if (std::is_same_v<R, FastReader> && apart) {
    const State keep = *st;
    const RvtResult status = body(*st);
    if (status != rvtStatusOk) *st = keep;
    return status;
  }
  State s = *st;
  const RvtResult status = body(s);
  if (status == rvtStatusOk) *st = s;
  return status;
}

// What the fast form's LP decoding can change of a context: the
// discriminants of the LP tables (the run table keeps its first code), the
// LP model, the pattern counters and the LP scan's order and totals.
struct LowBandKeep {
  static constexpr int kN = kHpFirst - kLpFirst;
  static_assert(offsetof(State, cbpCountMax) == offsetof(State, cbpCountZero) + sizeof(int32_t));
  int32_t disc[kN], disc1[kN], state[2], bits[2], counts[2];
  uint8_t order[16];
  int32_t total[16];
  explicit LowBandKeep(const State& s) {
    std::memcpy(disc, s.disc + kLpFirst, sizeof(disc));
    std::memcpy(disc1, s.disc1 + kLpFirst, sizeof(disc1));
    std::memcpy(state, s.modelState[kLP], sizeof(state));
    std::memcpy(bits, s.modelBits[kLP], sizeof(bits));
    std::memcpy(counts, &s.cbpCountZero, sizeof(counts));
    std::memcpy(order, s.order[0], sizeof(order));
    std::memcpy(total, s.total[0], sizeof(total));
  }
  void Put(State& s) const {
    std::memcpy(s.disc + kLpFirst, disc, sizeof(disc));
    std::memcpy(s.disc1 + kLpFirst, disc1, sizeof(disc1));
    std::memcpy(s.modelState[kLP], state, sizeof(state));
    std::memcpy(s.modelBits[kLP], bits, sizeof(bits));
    std::memcpy(&s.cbpCountZero, counts, sizeof(counts));
    std::memcpy(s.order[0], order, sizeof(order));
    std::memcpy(s.total[0], total, sizeof(total));
  }
};

// What the fast form's DC decoding can change: the discriminants of the
// two level tables and the DC model (the pattern of colour DCs is coded
// with a fixed table).
struct DcBandKeep {
  static_assert(kDcLevelChr == kDcLevelLum + 1);
  int32_t disc[2], state[2], bits[2];
  explicit DcBandKeep(const State& s) {
    std::memcpy(disc, s.disc + kDcLevelLum, sizeof(disc));
    std::memcpy(state, s.modelState[kDC], sizeof(state));
    std::memcpy(bits, s.modelBits[kDC], sizeof(bits));
  }
  void Put(State& s) const {
    std::memcpy(s.disc + kDcLevelLum, disc, sizeof(disc));
    std::memcpy(s.modelState[kDC], state, sizeof(state));
    std::memcpy(s.modelBits[kDC], bits, sizeof(bits));
  }
};

// Decoding of one DC or LP band into scratch coefficients, the caller
// copying what the band writes; the fast form on a context apart from the
// band keeps only what the band can change (Keep).
template <class R, class Keep = LowBandKeep, class Body>
inline RvtResult DecodeBand(const uint8_t* src, int32_t len, int32_t* pos, State* st, Body body) {
  R r{src, EndBits(len), *pos};
  RvtResult status;
  if (std::is_same_v<R, FastReader> && Apart(st, src, size_t(len))) {
    const Keep keep(*st);
    status = body(r, *st);
    if (status != rvtStatusOk) keep.Put(*st);
  } else {
    status = OnContext<R>(st, false, [&](State& s) { return body(r, s); });
  }
  if (status == rvtStatusOk) *pos = int32_t(r.pos);
  return status;
}

template <class R>
inline RvtResult DecodeDCEntry(const uint8_t* src, int32_t len, int32_t* pos, State* st, int32_t* coef) {
  RVT_CHECK(CheckCursor(src, len, pos));
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckPtr(coef));
  int32_t tmp[256];
  const RvtResult status =
      DecodeBand<R, DcBandKeep>(src, len, pos, st, [&](R& r, State& s) { return DecodeDC(r, s, tmp); });
  if (status == rvtStatusOk) {
    for (int ch = 0; ch < st->channels; ++ch) coef[16 * ch] = tmp[16 * ch];
  }
  return status;
}

// (decode: the band's coder, (R&, State&, int32_t*) -> RvtResult)
template <class R, class Decode>
inline RvtResult DecodeLPEntry(const uint8_t* src, int32_t len, int32_t* pos, State* st, int32_t* coef,
                               Decode decode) {
  RVT_CHECK(CheckCursor(src, len, pos));
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckPtr(coef));
  int32_t tmp[256];
  const RvtResult status = DecodeBand<R>(src, len, pos, st, [&](R& r, State& s) { return decode(r, s, tmp); });
  if (status == rvtStatusOk) {
    // (the layout read once: the stores to coef may reach the context)
    const int channels = st->channels, chromaCount = LpCount(*st, 1);
    for (int ch = 0; ch < channels; ++ch) {
      const int n = ch == 0 ? 16 : chromaCount;
      for (int k = 1; k < n; ++k) coef[16 * ch + k] = tmp[16 * ch + k];
    }
  }
  return status;
}

template <class R>
inline RvtResult DecodeLPEntry(const uint8_t* src, int32_t len, int32_t* pos, State* st, int32_t* coef) {
  return DecodeLPEntry<R>(src, len, pos, st, coef, [](R& r, State& s, int32_t* c) { return DecodeLP(r, s, c); });
}

template <class R>
inline RvtResult DecodeHPEntry(const uint8_t* src, int32_t len, int32_t* pos, const uint8_t* flex,
                               int32_t flexLen, int32_t* flexPos, int32_t trim, int32_t scan,
                               const int32_t* cbp, State* st, int32_t* coef) {
  RVT_CHECK(CheckCursor(src, len, pos));
  if (flex) RVT_CHECK(CheckCursor(flex, flexLen, flexPos));
  if (trim < 0 || trim > 15 || scan < 0 || scan > 1) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(cbp));
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckPtr(coef));
  int32_t tmp[16 * 256];
  R r{src, EndBits(len), *pos};
  R f{flex, flex ? EndBits(flexLen) : 0, flex ? *flexPos : 0};
  const bool apart = Apart(st, src, size_t(len)) && (!flex || Apart(st, flex, size_t(flexLen))) &&
                     Apart(st, cbp, sizeof(int32_t) * size_t(st->channels));
  const RvtResult status = OnContext<R>(st, apart, [&](State& s) {
    return flex ? DecodeHP(r, f, trim, scan, cbp, s, tmp) : DecodeHP(r, r, trim, scan, cbp, s, tmp);
  });
  if (status != rvtStatusOk) return status;
  // (the layout read once: the stores to coef may reach the context)
  const int channels = st->channels, chromaBlocks = HpBlocks(*st, 1);
  for (int ch = 0; ch < channels; ++ch) {
    const int nb = ch == 0 ? 16 : chromaBlocks;
    for (int b = 0; b < nb; ++b) {
      std::memcpy(coef + 256 * ch + 16 * b + 1, tmp + 256 * ch + 16 * b + 1, 15 * sizeof(int32_t));
    }
  }
  *pos = int32_t(r.pos);
  if (flex) *flexPos = int32_t(f.pos);
  return rvtStatusOk;
}

template <class R>
inline RvtResult DecodeCbpHPEntry(const uint8_t* src, int32_t len, int32_t* pos, const int32_t* left,
                                  const int32_t* top, State* st, int32_t* cbp) {
  RVT_CHECK(CheckCursor(src, len, pos));
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckPtr(cbp));
  const State& s = *st;  // (its format)
  int32_t l[16], t[16], out[16];
  for (int ch = 0; ch < s.channels; ++ch) {
    const bool quads = HpBlocks(s, ch) == 16;
    if (left) l[ch] = quads ? QuadToRaster(left[ch]) : left[ch];
    if (top) t[ch] = quads ? QuadToRaster(top[ch]) : top[ch];
  }
  if constexpr (std::is_same_v<R, FastReader>) {
    // (no copy of the context: it changes only once every bit is read)
    FastReader r{src, EndBits(len), *pos};
    RVT_CHECK(DecodeCbpHPFast(r, *st, left ? l : nullptr, top ? t : nullptr, out));
    *pos = int32_t(r.pos);
  } else {
  const RvtResult status = DecodeBand<R>(src, len, pos, st, [&](R& r, State& c) {
    return DecodeCbpHP(r, c, left ? l : nullptr, top ? t : nullptr, out);
  });
  if (status != rvtStatusOk) return status;
  }
  for (int ch = 0; ch < s.channels; ++ch) cbp[ch] = HpBlocks(s, ch) == 16 ? QuadToRaster(out[ch]) : out[ch];
  return rvtStatusOk;
}

// Encoders refuse magnitudes the level escape cannot carry before they
// write anything: DC levels are coded less one.
inline RvtResult CheckRange(const State& s, const int32_t* coef, int band) {
  for (int ch = 0; ch < s.channels; ++ch) {
    const int bits = s.modelBits[band][ch > 0];
    if (band == kDC) {
      if ((Mag(coef[16 * ch]) >> bits) + 1 > kMaxLevel) return rvtStatusRange;
    } else if (band == kLP) {
      for (int k = 1; k < LpCount(s, ch); ++k) {
        if ((Mag(coef[16 * ch + k]) >> bits) > kMaxLevel) return rvtStatusRange;
      }
    } else {
      for (int b = 0; b < HpBlocks(s, ch); ++b) {
        for (int k = 1; k < 16; ++k) {
          if ((Mag(coef[256 * ch + 16 * b + k]) >> bits) > kMaxLevel) return rvtStatusRange;
        }
      }
    }
  }
  return rvtStatusOk;
}

// Encoding: when the room left could be too small, a dry run on a copy of
// the context first, so that nothing is written unless all fits.
constexpr int64_t kBitsPerCoef = 100;

template <class Body>
inline RvtResult EncodeBand(uint8_t* dst, int32_t len, int32_t* pos, uint8_t* flex, int32_t flexLen,
                            int32_t* flexPos, State* st, int64_t coefs, Body body) {
  const int64_t bound = coefs * kBitsPerCoef + 64;
  const bool tight = EndBits(len) - *pos < bound || (flex && EndBits(flexLen) - *flexPos < bound);
  if (tight) {
    State s = *st;
    Writer w{dst, EndBits(len), *pos, true};
    Writer f{flex, flex ? EndBits(flexLen) : 0, flex ? *flexPos : 0, true};
    const RvtResult status = body(w, flex ? f : w, s);
    if (status != rvtStatusOk) return status;
    if (w.Short() || f.Short()) return rvtStatusOutOfBuffer;
  }
  State s = *st;
  Writer w{dst, EndBits(len), *pos, false};
  Writer f{flex, flex ? EndBits(flexLen) : 0, flex ? *flexPos : 0, false};
  const RvtResult status = body(w, flex ? f : w, s);
  w.Flush();
  f.Flush();
  if (status != rvtStatusOk) return status;
  *st = s;
  *pos = int32_t(w.pos);
  if (flex) *flexPos = int32_t(f.pos);
  return rvtStatusOk;
}

// ------------------------------------------------------------ HP encoder: checks

// The HP encoder's argument checks, in argument order (the coefficient
// range is checked after them, by each form its own way).
inline RvtResult CheckHPArgs(const int32_t* coef, int32_t scan, State* st, int32_t* cbp, uint8_t* dst,
                             int32_t len, int32_t* pos, uint8_t* flex, int32_t flexLen, int32_t* flexPos,
                             int32_t trim) {
  RVT_CHECK(CheckPtr(coef));
  if (scan < 0 || scan > 1) return rvtStatusBadArg;
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckPtr(cbp));
  RVT_CHECK(CheckCursor(dst, len, pos));
  if (flex) RVT_CHECK(CheckCursor(flex, flexLen, flexPos));
  if (trim < 0 || trim > 15) return rvtStatusBadArg;
  return rvtStatusOk;
}

// The reference encoding of checked arguments.
inline RvtResult EncodeHPChecked(const int32_t* coef, int32_t scan, State* st, int32_t* cbp, uint8_t* dst,
                                 int32_t len, int32_t* pos, uint8_t* flex, int32_t flexLen, int32_t* flexPos,
                                 int32_t trim) {
  int32_t out[16];
  const RvtResult status =
      EncodeBand(dst, len, pos, flex, flexLen, flexPos, st, 256 * st->channels,
                 [&](Writer& w, Writer& f, State& s) { return EncodeHP(w, f, trim, scan, coef, s, out); });
  if (status == rvtStatusOk) {
    for (int ch = 0; ch < st->channels; ++ch) cbp[ch] = out[ch];
  }
  return status;
}

// HpBlockOr of every HP block into ors (16 ch + b); returns the OR of
// them shifted by their model bits.  Below 2^30 no VLC part is out of the
// escape's reach; else CheckRange settles it.
inline uint32_t HpBlockOrs(const State& s, const int32_t* coef, uint32_t* ors) {
  uint32_t any = 0;
  for (int ch = 0; ch < s.channels; ++ch) {
    const int bits = s.modelBits[kHP][ch > 0];
    uint32_t acc = 0;
    for (int b = 0; b < HpBlocks(s, ch); ++b) {
      ors[16 * ch + b] = HpBlockOr(coef + 256 * ch + 16 * b);
      acc |= ors[16 * ch + b];
    }
    any |= acc >> bits;
  }
  static_assert((1u << 30) <= kMaxLevel);
  return any;
}

// ------------------------------------------------------------ HP coded-block pattern: encoder

// The coded difference that PredictCbp turns into `cbp` (coded bit order).
// Each step of the prediction flips bits from bits it leaves alone, so
// running the steps backwards undoes it; the counts see the same pattern.
inline int32_t UnpredictCbp(State& s, int32_t cbp, int ch, const int32_t* left, const int32_t* top) {
  const int c = ch > 0;
  const int mode = s.cbpModel[4 + c];
  int32_t v = cbp;
  if (s.format == k420 && ch > 0) {
    if (mode == 0) {
      v ^= (v & 0x3) << 2;
      v ^= 0x2 & (v << 1);
      if (!left) v ^= top ? (top[ch] >> 2) & 1 : 1;
      else v ^= (left[ch] >> 1) & 1;
    } else if (mode == 2) {
      v ^= 0xF;
    }
    CountCbp(s, 1, CountOnes(cbp) * 4, 16);
  } else if (s.format == k422 && ch > 0) {
    if (mode == 0) {
      v ^= (v & 0x30) << 2;
      v ^= (v & 0xC) << 2;
      v ^= (v & 0x3) << 2;
      v ^= (v & 0x1) << 1;
      if (!left) v ^= top ? (top[ch] >> 6) & 1 : 1;
      else v ^= (left[ch] >> 1) & 1;
    } else if (mode == 2) {
      v ^= 0xFF;
    }
    CountCbp(s, 1, CountOnes(cbp) * 2, 16);
  } else {
    if (mode == 0) {
      v ^= (v & 0x3300) << 2;
      v ^= (v & 0xCC) << 6;
      v ^= (v & 0x33) << 2;
      v ^= 0x20 & (v << 1);
      v ^= 0x10 & (v << 3);
      v ^= 0x02 & (v << 1);
      if (!left) v ^= top ? (top[ch] >> 10) & 1 : 1;
      else v ^= (left[ch] >> 5) & 1;
    } else if (mode == 2) {
      v ^= 0xFFFF;
    }
    CountCbp(s, c, CountOnes(cbp), 16);
  }
  return v;
}

// The bits after a nibble's 5-symbol code (its count of set bits).
inline void EncodeNibble(Writer& w, int n) {
  switch (CountOnes(n & 0xF)) {
    case 1: w.Put(uint32_t(__builtin_ctz(uint32_t(n))), 2); break;
    case 2:
      if (n == 3) w.Put(0, 2);
      else if (n == 5) w.Put(1, 2);
      else w.Put(n == 6 ? 4 : n == 9 ? 5 : n == 10 ? 6 : 7, 3);
      break;
    case 3: w.Put(uint32_t(__builtin_ctz(uint32_t(~n & 0xF))), 2); break;
    default: break;
  }
}

inline void EncodeCbpHP(Writer& w, State& s, const int32_t* left, const int32_t* top, const int32_t* cbp) {
  int32_t diff[16] = {};
  for (int ch = 0; ch < s.channels; ++ch) diff[ch] = UnpredictCbp(s, cbp[ch], ch, left, top);
  const bool many = s.format == kCmyk || s.format == kNChannel;
  const int groups = many ? s.channels : 1;
  const Alphabet& a5 = AlphabetOf(5);
  const Alphabet& aBlk = AlphabetOf(SlotSymbols(kNumBlkCbp, IsColour(s.format)));
  // luma nibble -> its code (position in the decoder's output table)
  static constexpr int kCode[16] = {0, 4, 5, 2, 6, 8, 9, 12, 7, 10, 11, 13, 3, 14, 15, 1};
  static constexpr int kOff[6] = {0, 4, 2, 8, 12, 1};
  static constexpr int kFlc[6] = {0, 2, 1, 2, 2, 0};
  for (int g = 0; g < groups; ++g) {
    const int32_t y = diff[g];
    const int32_t u = IsColour(s.format) ? diff[1] : 0, v = IsColour(s.format) ? diff[2] : 0;
    int cu[4] = {}, cv[4] = {}, quads = 0;
    static constexpr int kShift[4] = {0, 1, 4, 5};
    for (int q = 0; q < 4; ++q) {
      if (s.format == k444) {
        cu[q] = (u >> (4 * q)) & 0xF;
        cv[q] = (v >> (4 * q)) & 0xF;
      } else if (s.format == k420) {
        cu[q] = (u >> q) & 1;
        cv[q] = (v >> q) & 1;
      } else if (s.format == k422) {
        cu[q] = (u >> kShift[q]) & 5;
        cv[q] = (v >> kShift[q]) & 5;
      }
      if (((y >> (4 * q)) & 0xF) || cu[q] || cv[q]) quads |= 1 << q;
    }
    const int sym = CountOnes(quads);
    w.Symbol(a5, s.table[kNumCbp], sym);
    Account(s, kNumCbp, sym);
    EncodeNibble(w, quads);
    for (int q = 0; q < 4; ++q) {
      if (!((quads >> q) & 1)) continue;
      const int code = kCode[(y >> (4 * q)) & 0xF];
      int val = 0;
      for (int k = 5; k >= 0; --k) {
        if (code >= kOff[k] && code < kOff[k] + (1 << kFlc[k])) val = k;
      }
      const bool chroma = cu[q] || cv[q];
      const int full = chroma ? val + 6 : val;
      const int bsym = (full >= 9 ? 9 : full) - 1;
      w.Symbol(aBlk, s.table[kNumBlkCbp], bsym);
      Account(s, kNumBlkCbp, bsym);
      if (chroma) {
        if (cu[q] && !cv[q]) w.Put(1, 1);
        else w.Put(cu[q] ? 0 : 1, 2);
        if (full >= 9) {
          if (full == 9) w.Put(1, 1);
          else w.Put(full == 10 ? 1 : 0, 2);
        }
      }
      if (kFlc[val]) w.Put(uint32_t(code - kOff[val]), kFlc[val]);
      if (s.format == k444) {
        for (int n : {cu[q], cv[q]}) {
          if (!n) continue;
          w.Symbol(AlphabetOf(4), 0, CountOnes(n) - 1);
          EncodeNibble(w, n);
        }
      } else if (s.format == k422) {
        for (int n : {cu[q], cv[q]}) {
          if (!n) continue;
          if (n == 1) w.Put(1, 1);
          else w.Put(n == 4 ? 1 : 0, 2);
        }
      }
    }
  }
}

// The pattern codes of a group without chroma (Y only, CMYK, N channels)
// by table: a pattern of set quads (its count's 5-symbol code, then which
// ones) and a quad's nibble (its class's 5-symbol code, then which one),
// each as one put: the bits (0-15) and their count (16-23); and each
// symbol's discriminant step (the 5-symbol alphabet's lower boundary is
// the one both tables watch).
struct CbpCodes {
  uint32_t quads[2][16], nibble[2][16];
  int8_t quadStep[16], nibbleStep[16];
};
constexpr CbpCodes MakeCbpCodes() {
  constexpr int kCode[16] = {0, 4, 5, 2, 6, 8, 9, 12, 7, 10, 11, 13, 3, 14, 15, 1};
  constexpr int kOff[6] = {0, 4, 2, 8, 12, 1};
  constexpr int kFlc[6] = {0, 2, 1, 2, 2, 0};
  CbpCodes cc{};
  auto ones = [](int n) { return (n & 1) + ((n >> 1) & 1) + ((n >> 2) & 1) + ((n >> 3) & 1); };
  auto step = [](int sym) { return int8_t(kAlpha5.code[0][sym].len - kAlpha5.code[1][sym].len); };
  for (int n = 0; n < 16; ++n) {
    const int k = ones(n);
    uint32_t tail = 0;
    int tailBits = 0;
    if (k == 1 || k == 3) {
      const int which = k == 1 ? n : ~n & 0xF;
      tail = uint32_t(which == 1 ? 0 : which == 2 ? 1 : which == 4 ? 2 : 3), tailBits = 2;
    } else if (k == 2) {
      tail = n == 3 ? 0u : n == 5 ? 1u : n == 6 ? 4u : n == 9 ? 5u : n == 10 ? 6u : 7u;
      tailBits = n == 3 || n == 5 ? 2 : 3;
    }
    cc.quadStep[n] = step(k);
    int val = 0;
    for (int v = 5; v >= 0; --v) {
      if (kCode[n] >= kOff[v] && kCode[n] < kOff[v] + (1 << kFlc[v])) val = v;
    }
    const int bsym = val > 0 ? val - 1 : 0;  // (an empty quad is not coded)
    cc.nibbleStep[n] = step(bsym);
    for (int t = 0; t < 2; ++t) {
      const Code q = kAlpha5.code[t][k], b = kAlpha5.code[t][bsym];
      cc.quads[t][n] = (uint32_t(q.code) << tailBits | tail) | uint32_t(q.len + tailBits) << 16;
      cc.nibble[t][n] = (uint32_t(b.code) << kFlc[val] | uint32_t(kCode[n] - kOff[val])) |
                        uint32_t(b.len + kFlc[val]) << 16;
    }
  }
  return cc;
}
inline constexpr CbpCodes kCbpCodes = MakeCbpCodes();
static_assert(kAlpha5.tables == 2 && kAlpha5.symbols == 5);

// EncodeCbpHP of a format without chroma for the roomy writer: each
// channel's pattern a group, the quads' code and their nibbles' codes
// appended and settled once (at most 7 + 4 * 6 bits).
inline void EncodeCbpHPRoomy(RoomyWriter& out, State& s, const int32_t* left, const int32_t* top,
                             const int32_t* cbp) {
  RoomyWriter w = out;  // (its fields stay in registers)
  const int tq = s.table[kNumCbp], tb = s.table[kNumBlkCbp];
  uint32_t dq = uint32_t(s.disc[kNumCbp]), db = uint32_t(s.disc[kNumBlkCbp]);
  for (int ch = 0; ch < s.channels; ++ch) {
    const uint32_t y = uint32_t(UnpredictCbp(s, cbp[ch], ch, left, top));
    const uint32_t quads = uint32_t((y & 0x000Fu) != 0) | uint32_t((y & 0x00F0u) != 0) << 1 |
                           uint32_t((y & 0x0F00u) != 0) << 2 | uint32_t((y & 0xF000u) != 0) << 3;
    const uint32_t e = kCbpCodes.quads[tq][quads];
    w.Append(e & 0xFFFFu, int(e >> 16));
    dq += uint32_t(int32_t(kCbpCodes.quadStep[quads]));
    for (uint32_t m = quads; m; m &= m - 1) {
      const uint32_t n = (y >> (4 * __builtin_ctz(m))) & 0xFu;
      const uint32_t b = kCbpCodes.nibble[tb][n];
      w.Append(b & 0xFFFFu, int(b >> 16));
      db += uint32_t(int32_t(kCbpCodes.nibbleStep[n]));
    }
    w.Settle();
  }
  s.disc[kNumCbp] = int32_t(dq);
  s.disc[kNumBlkCbp] = int32_t(db);
  out = w;
}

}  // namespace rvt::vlc

#endif  // RVT_JPEGXR_VLC_H_
