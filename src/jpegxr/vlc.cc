// JPEG XR coefficient coding: the entries and descriptors.  The decoders'
// fast forms read through a 64-bit window and code tables indexed by the
// next 8 bits, built per target for its scalar instructions; the
// references read one bit at a time.
// The HP encoder's fast form is built per target: it gathers a block's
// parts in scan order with one byte shuffle.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpegxr/vlc.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpegxr/vlc.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::vlc::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// A block's VLC parts in scan order as bytes: the magnitude above the
// model bits, 18 for any from 18 on (the level escape's), in bits 0-6 and
// the coefficient's sign in bit 7; their flags in block order as bytes,
// then one shuffle by the order.  Returns the mask of the nonzero ones
// (bit p: the part at order[p], p 1..15).
inline uint32_t HpScanParts(const int32_t* blk, const uint8_t* order, int bits, uint8_t* parts) {
  const hn::Full128<int32_t> d32;
  const hn::Full128<uint32_t> du32;
  const hn::Full128<int16_t> d16;
  const hn::Full64<uint8_t> d8h;
  const hn::Full128<uint8_t> du8;
  auto part = [&](int i) {
    const auto v = hn::BitCast(du32, hn::LoadU(d32, blk + i));
    const auto m = hn::BitCast(du32, hn::Abs(hn::BitCast(d32, v)));
    const auto q = hn::Min(hn::ShiftRightSame(m, bits), hn::Set(du32, 18u));
    return hn::BitCast(d32, hn::Or(q, hn::ShiftLeft<7>(hn::ShiftRight<31>(v))));
  };
  const auto lo = hn::ReorderDemote2To(d16, part(0), part(4));
  const auto hi = hn::ReorderDemote2To(d16, part(8), part(12));
  const auto bytes = hn::Combine(du8, hn::DemoteTo(d8h, hi), hn::DemoteTo(d8h, lo));
  const auto scan = hn::TableLookupBytes(bytes, hn::LoadU(du8, order));
  hn::StoreU(scan, du8, parts);
  uint8_t out[8];
  hn::StoreMaskBits(du8, hn::Ne(hn::And(scan, hn::Set(du8, uint8_t{0x7F})), hn::Zero(du8)), out);
  return (uint32_t(out[0]) | uint32_t(out[1]) << 8) & 0xFFFEu;
}

// EncodeBlockRoomy of an HP block (first position 1) from its parts in
// scan order (HpScanParts): each coefficient's codes (run, index with
// sign, level) from tables for the call's code tables (`first`, `index`,
// `level`: the first index's, the index's and the level's, by whether a
// continuous start goes on), their discriminant steps summed per slot in
// `steps` (slot - kHpFirst),
// the scan's counts on the caller's order and totals.  A level from 18 on
// goes through EncodeLevel with its magnitude read at its turn (the
// counts so far moved only places before it).
__attribute__((always_inline)) inline void EncodeHpBlock(RoomyWriter& out, State& s, bool chroma,
                                                         const int32_t* blk, int bits, const uint8_t* parts,
                                                         uint32_t mask, const uint16_t* runs, int first,
                                                         const int* index, const int* level, int64_t* steps,
                                                         int32_t* total, uint8_t* order) {
  RoomyWriter w = out;  // (its fields stay in registers)
  const int idx = chroma ? kIndexChr : kIndexLum;
  const int fst = chroma ? kFirstChr : kFirstLum;
  auto levelOf = [&](uint32_t mg, int cont, int here) {
    if (mg < 18) {
      const PackedCode& e = kHpLevelCodes.e[level[cont]][mg];
      w.Append(e.code, int(e.len));
      steps[kLevel + cont] += e.steps;
    } else {
      w.Settle();
      RoomyWriter e = w;
      EncodeLevel(e, s, int(kHpFirst) + kLevel + cont, Mag(blk[order[here]]) >> bits);
      w = e;
    }
  };
  uint32_t rest = mask & (mask - 1);
  int here = __builtin_ctz(mask);
  int cont;
  {
    const uint32_t b = parts[here], mg = b & 0x7Fu, sign = b >> 7;
    const int srn = rest == 0 ? 0 : 2 - int((rest >> (here + 1)) & 1);
    const bool sr = here == 1;
    const PackedCode& e = kHpFirstCodes.e[first][int(sr) | (int(mg > 1) << 1) | (srn << 2)];
    w.Append(e.code | sign, int(e.len));
    steps[fst] += e.steps;
    cont = sr && srn == 1;
    levelOf(mg, cont, here);
    if (!sr) {
      const uint32_t e = runs[16 * 14 + here - 1];
      w.Append(e & 0xFF, int(e >> 8));
    }
    w.Settle();
    CountScanAt(total, order, here);
  }
  int loc = here + 1;
  while (rest) {
    here = __builtin_ctz(rest);
    rest &= rest - 1;
    const uint32_t b = parts[here], mg = b & 0x7Fu, sign = b >> 7;
    const int srn = rest == 0 ? 0 : 2 - int((rest >> (here + 1)) & 1);
    {  // (a run of 0 codes nothing: no branch on it)
      const uint32_t e = runs[16 * (15 - loc) + here - loc];
      w.Append(e & 0xFF, int(e >> 8));
    }
    const int kind = here >= 14 ? here - 10 : index[cont];
    const PackedCode& e = kHpIndexCodes.e[kind][srn][mg > 1];
    w.Append(e.code | sign, int(e.len));
    steps[idx + cont] += e.steps;
    cont &= int(srn == 1);
    levelOf(mg, cont, here);
    w.Settle();
    CountScanAt(total, order, here);
    loc = here + 1;
  }
  out = w;
}

// EncodeHP with blocks whose VLC parts are all zero known from `ors`
// (HpBlockOr of block b of channel ch at 16 ch + b), the others' parts
// gathered in scan order once (HpScanParts) and coded by EncodeHpBlock on
// the scan's order and totals in locals (the writers' stores cannot reach
// them), the discriminants summed per slot and added once, refinements of
// blocks whose model bits are all trimmed skipped, and the roomy writers.
// The scan order is a permutation (the caller checks).
inline void EncodeHPRoomy(RoomyWriter& w, RoomyWriter& f, int trim, int scan, const int32_t* coef,
                          const uint32_t* ors, State& s, int32_t* cbp) {
  int32_t lm[2] = {0, 0};
  const int sc = 1 + scan;
  alignas(16) uint8_t order[16];
  int32_t total[16];
  std::memcpy(order, s.order[sc], sizeof order);
  std::memcpy(total, s.total[sc], sizeof total);
  const uint16_t* runs = &kRunCodes.e[s.table[kRun]][0][0];
  const int level[2] = {s.table[int(kHpFirst) + kLevel], s.table[int(kHpFirst) + kLevel + 1]};
  int64_t steps[8] = {};  // by slot - kHpFirst
  for (int ch = 0; ch < s.channels; ++ch) {
    const bool chroma = ch > 0;
    const int idx = int(kHpFirst) + (chroma ? kIndexChr : kIndexLum);
    const int index[2] = {s.table[idx], s.table[idx + 1]};
    const int first = s.table[int(kHpFirst) + (chroma ? kFirstChr : kFirstLum)];
    const int bits = s.modelBits[kHP][chroma];
    const int blocks = HpBlocks(s, ch);
    int32_t pattern = 0;
    for (int i = 0; i < blocks; ++i) {
      const int b = HpBlockAt(s, ch, i);
      const int32_t* blk = coef + 256 * ch + 16 * b;
      const uint32_t blockOr = ors[16 * ch + b];
      if ((blockOr >> bits) != 0) {
        alignas(16) uint8_t parts[16];
        const uint32_t mask = HpScanParts(blk, order, bits, parts);
        pattern |= 1 << b;
        EncodeHpBlock(w, s, chroma, blk, bits, parts, mask, runs, first, index, level, steps, total, order);
        lm[chroma] += Ones16(mask);
      }
      if (bits > trim) RefineRoomy(f, blk, blockOr, bits, trim);
    }
    cbp[ch] = pattern;
  }
  for (int k = 0; k < 8; ++k) AddSteps(s, kHpFirst + k, steps[k]);
  std::memcpy(s.order[sc], order, sizeof order);
  std::memcpy(s.total[sc], total, sizeof total);
  UpdateModel(s, kHP, lm[0], lm[1]);
}

// The fast form: when the room left takes the worst case and the scan
// order is one the coders keep, one run with the roomy writers; else the
// reference's way.
RvtResult EncodeHPFast(const int32_t* coef, int32_t scan, State* st, int32_t* cbp, uint8_t* dst, int32_t len,
                       int32_t* pos, uint8_t* flex, int32_t flexLen, int32_t* flexPos, int32_t trim) {
  RVT_CHECK(CheckHPArgs(coef, scan, st, cbp, dst, len, pos, flex, flexLen, flexPos, trim));
  uint32_t ors[16 * 16];
  if (HpBlockOrs(*st, coef, ors) >= (1u << 30)) RVT_CHECK(CheckRange(*st, coef, kHP));
  const int64_t bound = 256 * st->channels * kBitsPerCoef + 64;
  if (EndBits(len) - *pos < bound || (flex && EndBits(flexLen) - *flexPos < bound) ||
      !ScanIsPermutation(*st, 1 + scan)) {
    return EncodeHPChecked(coef, scan, st, cbp, dst, len, pos, flex, flexLen, flexPos, trim);
  }
  const bool apart = Apart(st, dst, size_t(len)) && Apart(st, coef, 1024 * size_t(st->channels)) &&
                     (!flex || (Apart(st, flex, size_t(flexLen)) && Apart(st, flexPos, sizeof(int32_t))));
  State copy;
  if (!apart) copy = *st;
  State& s = apart ? *st : copy;
  int32_t out[16];
  RoomyWriter w(dst, *pos);
  if (flex) {
    RoomyWriter f(flex, *flexPos);
    EncodeHPRoomy(w, f, trim, scan, coef, ors, s, out);
    f.Flush();
    *flexPos = int32_t(f.Pos());
  } else {
    EncodeHPRoomy(w, w, trim, scan, coef, ors, s, out);
  }
  w.Flush();
  if (!apart) *st = s;
  *pos = int32_t(w.Pos());
  for (int ch = 0; ch < st->channels; ++ch) cbp[ch] = out[ch];
  return rvtStatusOk;
}

// The decoders' fast forms built for each target, the whole call tree
// inlined here: the readers shift their windows by a count in a register
// for every code, one instruction with the AVX2 targets' BMI2.
__attribute__((flatten)) RvtResult DecodeDCTarget(const uint8_t* src, int32_t len, int32_t* pos, State* st,
                                                  int32_t* coef) {
  return DecodeDCEntry<FastReader>(src, len, pos, st, coef);
}
__attribute__((flatten)) RvtResult DecodeCbpHPTarget(const uint8_t* src, int32_t len, int32_t* pos,
                                                     const int32_t* left, const int32_t* top, State* st,
                                                     int32_t* cbp) {
  return DecodeCbpHPEntry<FastReader>(src, len, pos, left, top, st, cbp);
}
// The LP coder once for each common format, its layout constants folded:
// three in the entry, the rest on their own (one function holding them all
// spilled more).
template <int F>
__attribute__((noinline, flatten)) RvtResult DecodeLPFormat(FastReader& __restrict r, State& __restrict s,
                                                           int32_t* __restrict coef) {
  return DecodeLP<FastReader, F>(r, s, coef);
}
__attribute__((flatten)) RvtResult DecodeLPTarget(const uint8_t* src, int32_t len, int32_t* pos, State* st,
                                                  int32_t* coef) {
  return DecodeLPEntry<FastReader>(src, len, pos, st, coef, [](FastReader& r, State& s, int32_t* c) {
    switch (s.format) {
      case kYOnly: return DecodeLP<FastReader, kYOnly>(r, s, c);
      case k422: return DecodeLP<FastReader, k422>(r, s, c);
      case k444: return DecodeLP<FastReader, k444>(r, s, c);
      case k420: return DecodeLPFormat<k420>(r, s, c);
      default: return DecodeLPFormat<-1>(r, s, c);
    }
  });
}
__attribute__((flatten)) RvtResult DecodeHPTarget(const uint8_t* src, int32_t len, int32_t* pos,
                                                  const uint8_t* flex, int32_t flexLen, int32_t* flexPos,
                                                  int32_t trim, int32_t scan, const int32_t* cbp, State* st,
                                                  int32_t* coef) {
  return DecodeHPEntry<FastReader>(src, len, pos, flex, flexLen, flexPos, trim, scan, cbp, st, coef);
}

}  // namespace rvt::vlc::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt::vlc {
namespace {

RvtResult GetStateSize(int32_t format, int32_t channels, int32_t* size) {
  RVT_CHECK(CheckFormat(format, channels));
  RVT_CHECK(CheckPtr(size));
  *size = int32_t(sizeof(State));
  return rvtStatusOk;
}

RvtResult Init(int32_t format, int32_t channels, State* st, int32_t size) {
  RVT_CHECK(CheckFormat(format, channels));
  RVT_CHECK(CheckPtr(st));
  if (size < int32_t(sizeof(State))) return rvtStatusSize;
  InitState(*st, format, channels);
  return rvtStatusOk;
}

RvtResult AdaptEntry(State* st, int32_t bands) {
  RVT_CHECK(CheckState(st));
  if (bands < 1 || bands > 31) return rvtStatusBadArg;
  Adapt(*st, bands);
  return rvtStatusOk;
}

RvtResult GetTables(const State* st, int32_t* table, int32_t* disc, int32_t* bits) {
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckPtr(table));
  RVT_CHECK(CheckPtr(disc));
  RVT_CHECK(CheckPtr(bits));
  for (int k = 0; k < kSlots; ++k) {
    table[k] = st->table[k];
    disc[2 * k] = st->disc[k];
    disc[2 * k + 1] = st->disc1[k];
  }
  for (int b = 0; b < 3; ++b) {
    bits[2 * b] = st->modelBits[b][0];
    bits[2 * b + 1] = st->modelBits[b][1];
  }
  return rvtStatusOk;
}

template <class R>
RvtResult FlcRead(const uint8_t* src, int32_t len, int32_t* pos, int32_t n, uint32_t* value) {
  RVT_CHECK(CheckCursor(src, len, pos));
  if (n < 0 || n > 32) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(value));
  R r{src, EndBits(len), *pos};
  const uint32_t hi = n > 16 ? r.Bits(n - 16) : 0u;
  const uint32_t lo = r.Bits(n > 16 ? 16 : n);
  if (r.Short()) return rvtStatusOutOfBuffer;
  *value = n > 16 ? (hi << 16) | lo : lo;
  *pos = int32_t(r.pos);
  return rvtStatusOk;
}

RvtResult FlcWrite(uint32_t value, int32_t n, uint8_t* dst, int32_t len, int32_t* pos) {
  if (n < 0 || n > 32) return rvtStatusBadArg;
  RVT_CHECK(CheckCursor(dst, len, pos));
  if (EndBits(len) - *pos < n) return rvtStatusOutOfBuffer;
  Writer w{dst, EndBits(len), *pos, false};
  w.Put(value, n);
  w.Flush();
  *pos = int32_t(w.pos);
  return rvtStatusOk;
}

// The DC and LP encoders' argument checks, in argument order, with the
// coefficient range.
RvtResult CheckLowArgs(const int32_t* coef, State* st, uint8_t* dst, int32_t len, int32_t* pos, int band) {
  RVT_CHECK(CheckPtr(coef));
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckCursor(dst, len, pos));
  return CheckRange(*st, coef, band);
}

RvtResult EncodeDCEntry(const int32_t* coef, State* st, uint8_t* dst, int32_t len, int32_t* pos) {
  RVT_CHECK(CheckLowArgs(coef, st, dst, len, pos, kDC));
  return EncodeBand(dst, len, pos, nullptr, 0, nullptr, st, st->channels,
                    [&](Writer& w, Writer&, State& s) { return EncodeDC(w, s, coef); });
}

RvtResult EncodeLPEntry(const int32_t* coef, State* st, uint8_t* dst, int32_t len, int32_t* pos) {
  RVT_CHECK(CheckLowArgs(coef, st, dst, len, pos, kLP));
  return EncodeBand(dst, len, pos, nullptr, 0, nullptr, st, 16 * st->channels + 1,
                    [&](Writer& w, Writer&, State& s) { return EncodeLP(w, s, coef); });
}

// The DC and LP fast forms: when the room left takes the worst case (the
// reference's bound) and the LP scan order is one the coders keep, one run
// with the roomy writer; else the reference's way.  Checked coefficients never make the body fail.
template <int band, class Body>
RvtResult EncodeLowFast(const int32_t* coef, State* st, uint8_t* dst, int32_t len, int32_t* pos, Body body) {
  RVT_CHECK(CheckLowArgs(coef, st, dst, len, pos, band));
  const int64_t coefs = band == kDC ? st->channels : 16 * st->channels + 1;
  if (EndBits(len) - *pos < coefs * kBitsPerCoef + 64 || (band == kLP && !ScanIsPermutation(*st, 0))) {
    return EncodeBand(dst, len, pos, nullptr, 0, nullptr, st, coefs,
                      [&](Writer& w, Writer&, State& s) { return body(w, s); });
  }
  RoomyWriter w(dst, *pos);
  if (Apart(st, dst, size_t(len)) && Apart(st, coef, 64 * size_t(st->channels))) {
    body(w, *st);
    w.Flush();
  } else {  // (the context last, over what the writer left)
    State s = *st;
    body(w, s);
    w.Flush();
    *st = s;
  }
  *pos = int32_t(w.Pos());
  return rvtStatusOk;
}

RvtResult EncodeDCFast(const int32_t* coef, State* st, uint8_t* dst, int32_t len, int32_t* pos) {
  return EncodeLowFast<kDC>(coef, st, dst, len, pos, [&](auto& w, State& s) { return EncodeDC(w, s, coef); });
}

RvtResult EncodeLPFast(const int32_t* coef, State* st, uint8_t* dst, int32_t len, int32_t* pos) {
  return EncodeLowFast<kLP>(coef, st, dst, len, pos, [&](auto& w, State& s) {
    if constexpr (std::is_same_v<std::decay_t<decltype(w)>, RoomyWriter>) {
      EncodeLPRoomy(w, s, coef);
      return rvtStatusOk;
    } else {
      return EncodeLP(w, s, coef);
    }
  });
}

RvtResult EncodeHPEntry(const int32_t* coef, int32_t scan, State* st, int32_t* cbp, uint8_t* dst,
                        int32_t len, int32_t* pos, uint8_t* flex, int32_t flexLen, int32_t* flexPos,
                        int32_t trim) {
  RVT_CHECK(CheckHPArgs(coef, scan, st, cbp, dst, len, pos, flex, flexLen, flexPos, trim));
  RVT_CHECK(CheckRange(*st, coef, kHP));
  return EncodeHPChecked(coef, scan, st, cbp, dst, len, pos, flex, flexLen, flexPos, trim);
}

// The pattern encoder's argument checks, in argument order.
RvtResult CheckCbpHPArgs(const int32_t* cbp, State* st, uint8_t* dst, int32_t len, int32_t* pos) {
  RVT_CHECK(CheckPtr(cbp));
  RVT_CHECK(CheckState(st));
  RVT_CHECK(CheckCursor(dst, len, pos));
  for (int ch = 0; ch < st->channels; ++ch) {
    if (uint32_t(cbp[ch]) >> HpBlocks(*st, ch)) return rvtStatusBadArg;
  }
  return rvtStatusOk;
}

RvtResult EncodeCbpHPEntry(const int32_t* cbp, const int32_t* left, const int32_t* top, State* st, uint8_t* dst,
                           int32_t len, int32_t* pos) {
  RVT_CHECK(CheckCbpHPArgs(cbp, st, dst, len, pos));
  int32_t c[16], l[16], t[16];
  for (int ch = 0; ch < st->channels; ++ch) {
    const bool quads = HpBlocks(*st, ch) == 16;
    c[ch] = quads ? QuadToRaster(cbp[ch]) : cbp[ch];
    if (left) l[ch] = quads ? QuadToRaster(left[ch]) : left[ch];
    if (top) t[ch] = quads ? QuadToRaster(top[ch]) : top[ch];
  }
  return EncodeBand(dst, len, pos, nullptr, 0, nullptr, st, st->channels + 1, [&](Writer& w, Writer&, State& s) {
    EncodeCbpHP(w, s, left ? l : nullptr, top ? t : nullptr, c);
    return rvtStatusOk;
  });
}

// The fast form: formats without chroma, when the room left takes the
// reference's bound, in one run with the roomy writer, on the caller's
// context when the output lies apart from it; else the reference's way.
// The patterns in are read before anything is written.
RvtResult EncodeCbpHPFast(const int32_t* cbp, const int32_t* left, const int32_t* top, State* st, uint8_t* dst,
                          int32_t len, int32_t* pos) {
  RVT_CHECK(CheckCbpHPArgs(cbp, st, dst, len, pos));
  const int channels = st->channels;
  if (IsColour(st->format) || EndBits(len) - *pos < (channels + 1) * kBitsPerCoef + 64) {
    return EncodeCbpHPEntry(cbp, left, top, st, dst, len, pos);
  }
  int32_t c[16], l[16], t[16];
  for (int ch = 0; ch < channels; ++ch) {
    c[ch] = QuadToRaster(cbp[ch]);
    if (left) l[ch] = QuadToRaster(left[ch]);
    if (top) t[ch] = QuadToRaster(top[ch]);
  }
  const bool apart = Apart(st, dst, size_t(len));
  State copy;
  if (!apart) copy = *st;
  State& s = apart ? *st : copy;
  RoomyWriter w(dst, *pos);
  EncodeCbpHPRoomy(w, s, left ? l : nullptr, top ? t : nullptr, c);
  w.Flush();
  if (!apart) *st = s;  // (the context last, over what the writer left)
  *pos = int32_t(w.Pos());
  return rvtStatusOk;
}

}  // namespace

RvtResult DecodeDCRef(const uint8_t* a, int32_t b, int32_t* c, State* d, int32_t* e) {
  return DecodeDCEntry<RefReader>(a, b, c, d, e);
}
RvtResult DecodeLPRef(const uint8_t* a, int32_t b, int32_t* c, State* d, int32_t* e) {
  return DecodeLPEntry<RefReader>(a, b, c, d, e);
}
RvtResult DecodeCbpHPRef(const uint8_t* a, int32_t b, int32_t* c, const int32_t* d, const int32_t* e,
                         State* f, int32_t* g) {
  return DecodeCbpHPEntry<RefReader>(a, b, c, d, e, f, g);
}
RvtResult DecodeHPRef(const uint8_t* a, int32_t b, int32_t* c, const uint8_t* d, int32_t e, int32_t* f,
                      int32_t g, int32_t h, const int32_t* i, State* j, int32_t* k) {
  return DecodeHPEntry<RefReader>(a, b, c, d, e, f, g, h, i, j, k);
}
RvtResult FlcReadRef(const uint8_t* a, int32_t b, int32_t* c, int32_t d, uint32_t* e) {
  return FlcRead<RefReader>(a, b, c, d, e);
}
RvtResult FlcReadFast(const uint8_t* a, int32_t b, int32_t* c, int32_t d, uint32_t* e) {
  return FlcRead<FastReader>(a, b, c, d, e);
}

}  // namespace rvt::vlc

namespace rvt {
RVT_IMPL_PLAIN(rvtiVLCGetStateSize_JPEGXR, vlc::GetStateSize);
RVT_IMPL_PLAIN(rvtiVLCInit_JPEGXR, vlc::Init);
RVT_IMPL_PLAIN(rvtiVLCAdapt_JPEGXR, vlc::AdaptEntry);
RVT_IMPL_PLAIN(rvtiVLCGetTables_JPEGXR, vlc::GetTables);
RVT_IMPL_FAST(rvtiFLCRead_JPEGXR_1u32u, vlc::FlcReadFast, vlc::FlcReadRef);
RVT_IMPL_PLAIN(rvtiFLCWrite_JPEGXR_32u1u, vlc::FlcWrite);
RVT_IMPL_HWY(rvtiVLCDecodeDC_JPEGXR_1u32s, vlc, DecodeDCTarget, DecodeDCRef);
RVT_IMPL_FAST(rvtiVLCEncodeDC_JPEGXR_32s1u, vlc::EncodeDCFast, vlc::EncodeDCEntry);
RVT_IMPL_HWY(rvtiVLCDecodeLP_JPEGXR_1u32s, vlc, DecodeLPTarget, DecodeLPRef);
RVT_IMPL_FAST(rvtiVLCEncodeLP_JPEGXR_32s1u, vlc::EncodeLPFast, vlc::EncodeLPEntry);
RVT_IMPL_HWY(rvtiVLCDecodeHP_JPEGXR_1u32s, vlc, DecodeHPTarget, DecodeHPRef);
RVT_IMPL_HWY(rvtiVLCEncodeHP_JPEGXR_32s1u, vlc, EncodeHPFast, EncodeHPEntry);
RVT_IMPL_HWY(rvtiVLCDecodeCBPHP_JPEGXR_1u32s, vlc, DecodeCbpHPTarget, DecodeCbpHPRef);
RVT_IMPL_FAST(rvtiVLCEncodeCBPHP_JPEGXR_32s1u, vlc::EncodeCbpHPFast, vlc::EncodeCbpHPEntry);
}  // namespace rvt
#endif  // HWY_ONCE
