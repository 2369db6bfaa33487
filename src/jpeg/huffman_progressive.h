// Progressive Huffman coding of one block's share of a scan: DC first and
// refinement scans, AC first and refinement scans of a band Ss..Se, each an
// encoder and a decoder.  They share the bit writer and reader, the tables
// and the states of the baseline coders; the end-of-band run and the AC
// refinement encoder's pending correction bits live in the state between
// blocks.
//
// The symbol walks are written once, templated on a sink that either writes
// the bits (the encoders) or only counts the symbols (the statistics of
// huffman_stats.h), so a two-pass encoder counts exactly the symbols that it
// then writes.  The careful walks here are the definition of every result.
#ifndef RVT_JPEG_HUFFMAN_PROGRESSIVE_H_
#define RVT_JPEG_HUFFMAN_PROGRESSIVE_H_

#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "frame/memory.h"
#include "jpeg/huffman_bits.h"
#include "jpeg/zigzag.h"

namespace rvt::huffman_progressive {

using namespace ::rvt::huff;  // NOLINT: the shared layouts, writer and reader

// An end-of-band run is emitted at once when it reaches this length.
constexpr uint32_t kMaxEobRun = 32767;
// Pending correction bits above this force the run out: the 1024-byte
// buffer then still has room for one more block's 63 bits (and the 1000
// bits a refinement scan ever holds stay below its size).
constexpr uint32_t kMaxPendingCorr = 937;
// A state filled by hand is read with at most this many pending bits, so
// one block more always fits the buffer.
constexpr uint32_t kCorrCapacity = 1024 - 63;

// floor(log2 r) for r >= 1: the EOBn category of a run.
inline int EobCategory(uint32_t r) { return 31 - __builtin_clz(r); }

// ------------------------------------------------------------ sinks

// Writes symbols through a spec and bits through the careful writer.
struct WriteSink {
  BitWriter w;
  const EncodeHuffmanSpec* table;
  static constexpr bool kKeepsBits = true;

  RvtResult Symbol(int sym) { return w.PutCode(table->entry[sym & 0xFF]); }
  RvtResult Bits(uint32_t v, int n) { return n > 0 ? w.Put(v, n) : rvtStatusOk; }
  RvtResult Corr(const uint8_t* b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) RVT_CHECK(w.Put(b[i] & 1u, 1));
    return rvtStatusOk;
  }
};

// Counts symbols; bits cost nothing.
struct CountSink {
  int32_t* counts;
  static constexpr bool kKeepsBits = false;

  RvtResult Symbol(int sym) {
    counts[sym & 0xFF] += 1;
    return rvtStatusOk;
  }
  RvtResult Bits(uint32_t, int) { return rvtStatusOk; }
  RvtResult Corr(const uint8_t*, uint32_t) { return rvtStatusOk; }
};

// ------------------------------------------------------------ walks

// Emits a pending end-of-band run r (> 0): symbol n * 16 with n bits of r.
// A run above 32767 (only a state filled by hand holds one) is cut once:
// 0xE0 with 14 bits of r & 0x3FFF, then the rest; a rest of category 15 or
// more is refused.  Then the correction bits pend0 (earlier blocks) and
// pend1 follow.
template <class Sink>
RvtResult EmitEobRun(Sink& sink, uint32_t r, const uint8_t* pend0, uint32_t n0,
                     const uint8_t* pend1, uint32_t n1) {
  if (r > kMaxEobRun) {
    RVT_CHECK(sink.Symbol(0xE0));
    RVT_CHECK(sink.Bits(r & 0x3FFF, 14));
    r -= kMaxEobRun;
  }
  const int n = EobCategory(r);
  if (n >= 15) return rvtStatusHuffData;
  RVT_CHECK(sink.Symbol(n * 16));
  RVT_CHECK(sink.Bits(r, n));
  RVT_CHECK(sink.Corr(pend0, n0));
  return sink.Corr(pend1, n1);
}

// The pending run r (if any) and the correction bits after it.  Bits pend
// only inside a run; a state filled by hand that holds bits without a run
// gets them written without a symbol.
template <class Sink>
RvtResult EmitPending(Sink& sink, uint32_t r, const uint8_t* pend0, uint32_t n0,
                      const uint8_t* pend1, uint32_t n1) {
  if (r != 0) return EmitEobRun(sink, r, pend0, n0, pend1, n1);
  RVT_CHECK(sink.Corr(pend0, n0));
  return sink.Corr(pend1, n1);
}

// The state's pending correction-bit count as it is read.
inline uint32_t PendingCorr(const EncodeHuffmanState* st) {
  return st->nCorr < kCorrCapacity ? st->nCorr : kCorrCapacity;
}

// The end of a scan or restart interval: the pending run and bits go out.
template <class Sink>
RvtResult FlushEobRun(Sink& sink, const EncodeHuffmanState* st) {
  return EmitPending(sink, st->eobRun, st->corr, PendingCorr(st), nullptr, 0);
}

// DC first scan: the difference of block[0] >> Al to the predictor.
// Categories above kMaxCat are refused (after the predictor moved on).
template <int kMaxCat, class Sink>
RvtResult DCFirstWalk(Sink& sink, const int16_t* block, int16_t* last_dc, int al) {
  const int32_t value = int32_t(block[0]) >> al;
  const int32_t diff = value - int32_t(*last_dc);
  *last_dc = int16_t(value);
  const int s = Category(diff);
  if (s > kMaxCat) return rvtStatusHuffData;
  RVT_CHECK(sink.Symbol(s));
  return sink.Bits(ExtraBits(diff, s), s);
}

// AC first scan of band ss..se at point transform al (JPEG G.1.2.2).  The
// state's run is updated only when the whole block succeeds.
template <int kMaxCat, class Sink>
RvtResult ACFirstWalk(Sink& sink, const int16_t* block, int ss, int se, int al,
                      EncodeHuffmanState* st) {
  uint32_t eob = st->eobRun;
  int run = 0;
  for (int k = ss; k <= se; ++k) {
    const int32_t v = block[kNaturalOfZigzag[k]];
    const uint32_t m = uint32_t(v < 0 ? -v : v) >> al;
    if (m == 0) {
      ++run;
      continue;
    }
    if (eob != 0) {
      RVT_CHECK(EmitEobRun(sink, eob, nullptr, 0, nullptr, 0));
      eob = 0;
    }
    for (; run > 15; run -= 16) RVT_CHECK(sink.Symbol(0xF0));
    const int s = 32 - __builtin_clz(m);
    if (s > kMaxCat) return rvtStatusHuffData;
    RVT_CHECK(sink.Symbol(run * 16 + s));
    RVT_CHECK(sink.Bits(v < 0 ? ~m : m, s));
    run = 0;
  }
  if (run > 0) {
    ++eob;
    if (eob >= kMaxEobRun) {
      RVT_CHECK(EmitEobRun(sink, eob, nullptr, 0, nullptr, 0));
      eob = 0;
    }
  }
  st->eobRun = eob;
  return rvtStatusOk;
}

// AC refinement scan of band ss..se at bit al (JPEG G.1.2.3).  Coefficients
// already significant (|v| >> al above 1) give correction bits; newly
// significant ones (exactly 1) a run/size symbol with size 1 and a sign bit.
// ZRLs go out only up to the last newly significant coefficient; an
// end-of-band run emitted before a symbol carries the earlier blocks'
// correction bits, and this block's follow its own ZRL or symbol, or stay
// pending when the block ends inside the run.  The state (run, pending bits)
// is updated only when the whole block succeeds.
template <class Sink>
RvtResult ACRefineWalk(Sink& sink, const int16_t* block, int ss, int se, int al,
                       EncodeHuffmanState* st) {
  uint8_t m[64];
  int last_new = 0;
  for (int k = ss; k <= se; ++k) {
    const int32_t v = block[kNaturalOfZigzag[k]];
    const uint32_t a = uint32_t(v < 0 ? -v : v) >> al;
    // Only 0, 1 and the low bit above 1 matter.
    m[k] = uint8_t(a > 1 ? 2 + (a & 1) : a);
    if (a == 1) last_new = k;
  }
  uint32_t eob = st->eobRun;
  uint32_t npend = PendingCorr(st);
  uint8_t mine[64];
  uint32_t nmine = 0;
  int run = 0;
  for (int k = ss; k <= se; ++k) {
    const int a = m[k];
    if (a == 0) {
      ++run;
      continue;
    }
    while (run > 15 && k <= last_new) {
      RVT_CHECK(EmitPending(sink, eob, st->corr, npend, nullptr, 0));
      eob = 0;
      npend = 0;
      RVT_CHECK(sink.Symbol(0xF0));
      run -= 16;
      RVT_CHECK(sink.Corr(mine, nmine));
      nmine = 0;
    }
    if (a > 1) {
      mine[nmine++] = uint8_t(a & 1);
      continue;
    }
    RVT_CHECK(EmitPending(sink, eob, st->corr, npend, nullptr, 0));
    eob = 0;
    npend = 0;
    RVT_CHECK(sink.Symbol(run * 16 + 1));
    RVT_CHECK(sink.Bits(block[kNaturalOfZigzag[k]] < 0 ? 0u : 1u, 1));
    RVT_CHECK(sink.Corr(mine, nmine));
    nmine = 0;
    run = 0;
  }
  bool keep_mine = false;
  if (run > 0 || nmine > 0) {
    ++eob;
    if (eob >= kMaxEobRun || npend + nmine > kMaxPendingCorr) {
      RVT_CHECK(EmitPending(sink, eob, st->corr, npend, mine, nmine));
      eob = 0;
      npend = 0;
    } else {
      keep_mine = true;
    }
  }
  if (keep_mine) {
    if constexpr (Sink::kKeepsBits) std::memcpy(st->corr + npend, mine, nmine);
    npend += nmine;
  }
  st->eobRun = eob;
  st->nCorr = npend;
  return rvtStatusOk;
}

// ------------------------------------------------------------ encoders

// A pending run (and correction bits), a partial byte completed with
// 1-bits, then a clear state; the state is cleared whatever the writes
// returned.
inline RvtResult FlushAC(uint8_t* dst, int len, int* pos, const EncodeHuffmanSpec* ac,
                         EncodeHuffmanState* st) {
  WriteSink sink{BitWriter{dst, len, *pos, 0, 0}, ac};
  sink.w.Load(st);
  RvtResult status = FlushEobRun(sink, st);
  if (status == rvtStatusOk) status = sink.w.Put(0x7F, 7);
  *pos = sink.w.pos;
  ResetEncodeState(st);
  return status;
}

// Runs a walk through a writer loaded from the state; the writer's bits
// (and the walk's fields) reach the state only on success, the bytes
// already stored stay in the destination with the position past them.
template <class Walk>
RvtResult WriteBlock(uint8_t* dst, int len, int* pos, const EncodeHuffmanSpec* table,
                     EncodeHuffmanState* st, Walk walk) {
  WriteSink sink{BitWriter{dst, len, *pos, 0, 0}, table};
  sink.w.Load(st);
  const RvtResult status = walk(sink);
  *pos = sink.w.pos;
  if (status == rvtStatusOk) sink.w.Store(st);
  return status;
}

inline RvtResult CheckTarget(const uint8_t* dst, int len, const int* pos) {
  RVT_CHECK(CheckPtr(dst));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

inline bool BadAl(int al) { return al < 0 || al > 13; }
inline bool BadBand(int ss, int se, int al) {
  return ss < 1 || ss > 63 || se < ss || se > 63 || BadAl(al);
}

inline RvtResult EncodeDCFirstRef(const int16_t* block, uint8_t* dst, int len, int* pos,
                                  int16_t* last_dc, int al, const EncodeHuffmanSpec* dc,
                                  EncodeHuffmanState* st, int flush) {
  RVT_CHECK(CheckTarget(dst, len, pos));
  RVT_CHECK(CheckPtr(st));
  if (flush) return FlushState(dst, len, pos, st);
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(last_dc));
  if (BadAl(al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(dc));
  int16_t pred = *last_dc;
  const RvtResult status = WriteBlock(dst, len, pos, dc, st, [&](WriteSink& s) {
    return DCFirstWalk<11>(s, block, &pred, al);
  });
  *last_dc = pred;
  return status;
}

inline RvtResult EncodeDCRefineRef(const int16_t* block, uint8_t* dst, int len, int* pos, int al,
                                   EncodeHuffmanState* st, int flush) {
  RVT_CHECK(CheckTarget(dst, len, pos));
  RVT_CHECK(CheckPtr(st));
  if (flush) return FlushState(dst, len, pos, st);
  RVT_CHECK(CheckPtr(block));
  if (BadAl(al)) return rvtStatusBadArg;
  return WriteBlock(dst, len, pos, nullptr, st, [&](WriteSink& s) {
    return s.w.Put(uint32_t(int32_t(block[0]) >> al) & 1u, 1);
  });
}

// The AC encoders: target, spec and state first (a flush needs them), then
// the block and the band.
template <class BlockFn>
RvtResult EncodeAC(const int16_t* block, uint8_t* dst, int len, int* pos, int ss, int se, int al,
                   const EncodeHuffmanSpec* ac, EncodeHuffmanState* st, int flush,
                   BlockFn block_fn) {
  RVT_CHECK(CheckTarget(dst, len, pos));
  RVT_CHECK(CheckPtr(ac));
  RVT_CHECK(CheckPtr(st));
  if (flush) return FlushAC(dst, len, pos, ac, st);
  RVT_CHECK(CheckPtr(block));
  if (BadBand(ss, se, al)) return rvtStatusBadArg;
  return block_fn(block, dst, len, pos, ss, se, al, ac, st);
}

inline RvtResult ACFirstBody(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                             int se, int al, const EncodeHuffmanSpec* ac,
                             EncodeHuffmanState* st) {
  // The walk moves the run only when the whole block succeeds.
  return WriteBlock(dst, len, pos, ac, st, [&](WriteSink& s) {
    return ACFirstWalk<11>(s, block, ss, se, al, st);
  });
}

inline RvtResult ACRefineBody(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                              int se, int al, const EncodeHuffmanSpec* ac,
                              EncodeHuffmanState* st) {
  // The walk touches the run, the count and the buffer past the pending
  // bits only when the whole block succeeds.
  return WriteBlock(dst, len, pos, ac, st, [&](WriteSink& s) {
    return ACRefineWalk(s, block, ss, se, al, st);
  });
}

inline RvtResult EncodeACFirstRef(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                                  int se, int al, const EncodeHuffmanSpec* ac,
                                  EncodeHuffmanState* st, int flush) {
  return EncodeAC(block, dst, len, pos, ss, se, al, ac, st, flush, ACFirstBody);
}

inline RvtResult EncodeACRefineRef(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                                   int se, int al, const EncodeHuffmanSpec* ac,
                                   EncodeHuffmanState* st, int flush) {
  return EncodeAC(block, dst, len, pos, ss, se, al, ac, st, flush, ACRefineBody);
}

// ------------------------------------------------------------ decoders

// Decoders check the source, its length (below 1: rvtStatusSize), the
// position, then the rest in argument order.
inline RvtResult CheckSource(const uint8_t* src, int len, const int* pos) {
  RVT_CHECK(CheckPtr(src));
  if (len < 1) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pos));
  if (*pos < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

// Runs a decode walk through a reader loaded from the state.  The position
// and the reader's bits are stored whatever happens (as the baseline
// decoder does); the walk commits the block and the run only on success.
template <class Walk>
RvtResult ReadBlock(const uint8_t* src, int len, int* pos, int* marker, DecodeHuffmanState* st,
                    Walk walk) {
  BitReader r{src, len, *pos, 0, 0, marker};
  r.Load(st);
  const RvtResult status = walk(r);
  *pos = r.pos;
  r.Store(st);
  return status;
}

// Reads n (1..16) bits.
inline RvtResult ReadBits(BitReader& r, int n, uint32_t* v) {
  RVT_CHECK(r.Need(n));
  *v = r.Take(n);
  return rvtStatusOk;
}

inline RvtResult DecodeDCFirstRef(const uint8_t* src, int len, int* pos, int16_t* block,
                                  int16_t* last_dc, int* marker, int al,
                                  const DecodeHuffmanSpec* dc, DecodeHuffmanState* st) {
  RVT_CHECK(CheckSource(src, len, pos));
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(last_dc));
  RVT_CHECK(CheckPtr(marker));
  if (BadAl(al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(dc));
  RVT_CHECK(CheckPtr(st));
  return ReadBlock(src, len, pos, marker, st, [&](BitReader& r) {
    const int sym = DecodeSymbol(r, dc);
    if (sym < 0) return RvtResult(sym);
    const int s = sym & 15;
    int32_t diff = 0;
    if (s != 0) {
      uint32_t v;
      RVT_CHECK(ReadBits(r, s, &v));
      diff = Extend(v, s);
    }
    *last_dc = int16_t(*last_dc + diff);
    block[0] = int16_t(uint32_t(int32_t(*last_dc)) << al);
    return rvtStatusOk;
  });
}

inline RvtResult DecodeDCRefineRef(const uint8_t* src, int len, int* pos, int16_t* block,
                                   int* marker, int al, DecodeHuffmanState* st) {
  RVT_CHECK(CheckSource(src, len, pos));
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(marker));
  if (BadAl(al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(st));
  return ReadBlock(src, len, pos, marker, st, [&](BitReader& r) {
    uint32_t bit;
    RVT_CHECK(ReadBits(r, 1, &bit));
    if (bit) block[0] = int16_t(block[0] | (1 << al));
    return rvtStatusOk;
  });
}

inline RvtResult CheckDecodeAC(const uint8_t* src, int len, const int* pos, const int16_t* block,
                               const int* marker, int ss, int se, int al,
                               const DecodeHuffmanSpec* ac, const DecodeHuffmanState* st) {
  RVT_CHECK(CheckSource(src, len, pos));
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(marker));
  if (BadBand(ss, se, al)) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(ac));
  return CheckPtr(st);
}

// AC first scan: the band of a block outside a run.  The block and the run
// change only when the whole band decodes.  A run that carries a
// coefficient past position 63 lands on coefficient 63 up to position 71,
// as in the baseline decoder, and fails beyond.
inline RvtResult ACFirstDecodeWalk(BitReader& r, int16_t* block, int ss, int se, int al,
                                   const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  if (st->eobRun > 0) {
    st->eobRun -= 1;
    return rvtStatusOk;
  }
  int16_t out[80];
  int at[64];
  int n = 0;
  uint32_t eob = 0;
  for (int k = ss; k <= se; ++k) {
    const int sym = DecodeSymbol(r, ac);
    if (sym < 0) return RvtResult(sym);
    const int run = sym >> 4, s = sym & 15;
    if (s != 0) {
      k += run;
      uint32_t v;
      RVT_CHECK(ReadBits(r, s, &v));
      const int nat = kZigzagDecode.v[k];
      if (nat > 63) return rvtStatusErr;
      at[n] = nat;
      out[n++] = int16_t(uint32_t(Extend(v, s)) << al);
    } else if (run == 15) {
      k += 15;
    } else {
      eob = 1u << run;
      if (run != 0) {
        uint32_t v;
        RVT_CHECK(ReadBits(r, run, &v));
        eob += v;
      }
      eob -= 1;
      break;
    }
  }
  for (int i = 0; i < n; ++i) block[at[i]] = out[i];
  st->eobRun = eob;
  return rvtStatusOk;
}

// AC refinement scan (JPEG G.2.2): newly significant coefficients get
// +-(1 << al); every non-zero coefficient passed over takes a correction
// bit, and a 1 moves it away from zero by 1 << al unless that bit is set.
// Blocks inside a run take correction bits only.  The band is refined in a
// copy and committed, with the run, only when it all decodes.
inline RvtResult ACRefineDecodeWalk(BitReader& r, int16_t* block, int ss, int se, int al,
                                    const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  int16_t b[65];
  std::memcpy(b, block, 64 * sizeof(int16_t));
  b[64] = 0;
  const int32_t p1 = 1 << al;
  uint32_t eob = st->eobRun;
  auto correct = [&](int nat) -> RvtResult {
    uint32_t bit;
    RVT_CHECK(ReadBits(r, 1, &bit));
    if (bit && (b[nat] & p1) == 0) b[nat] = int16_t(b[nat] >= 0 ? b[nat] + p1 : b[nat] - p1);
    return rvtStatusOk;
  };
  int k = ss;
  if (eob == 0) {
    for (; k <= se; ++k) {
      const int sym = DecodeSymbol(r, ac);
      if (sym < 0) return RvtResult(sym);
      int run = sym >> 4;
      const int s = sym & 15;
      int32_t value = 0;
      if (s != 0) {
        // Sizes other than 1 are read as 1, as decoders commonly do.
        uint32_t bit;
        RVT_CHECK(ReadBits(r, 1, &bit));
        value = bit ? p1 : -p1;
      } else if (run != 15) {
        eob = 1u << run;
        if (run != 0) {
          uint32_t v;
          RVT_CHECK(ReadBits(r, run, &v));
          eob += v;
        }
        break;
      }
      // Pass `run` zero coefficients (correcting the non-zero ones on the
      // way); a new coefficient lands on the next zero one.
      do {
        const int nat = kNaturalOfZigzag[k];
        if (b[nat] != 0) {
          RVT_CHECK(correct(nat));
        } else {
          if (--run < 0) break;
        }
        ++k;
      } while (k <= se);
      if (value != 0) {
        // Past the band (a corrupt run) it lands on coefficient 63.
        const int nat = kZigzagDecode.v[k];
        b[nat] = int16_t(value);
      }
    }
  }
  if (eob > 0) {
    for (; k <= se; ++k) {
      const int nat = kNaturalOfZigzag[k];
      if (b[nat] != 0) RVT_CHECK(correct(nat));
    }
    eob -= 1;
  }
  std::memcpy(block, b, 64 * sizeof(int16_t));
  st->eobRun = eob;
  return rvtStatusOk;
}

inline RvtResult DecodeACFirstRef(const uint8_t* src, int len, int* pos, int16_t* block,
                                  int* marker, int ss, int se, int al,
                                  const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecodeAC(src, len, pos, block, marker, ss, se, al, ac, st));
  return ReadBlock(src, len, pos, marker, st, [&](BitReader& r) {
    return ACFirstDecodeWalk(r, block, ss, se, al, ac, st);
  });
}

inline RvtResult DecodeACRefineRef(const uint8_t* src, int len, int* pos, int16_t* block,
                                   int* marker, int ss, int se, int al,
                                   const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  RVT_CHECK(CheckDecodeAC(src, len, pos, block, marker, ss, se, al, ac, st));
  return ReadBlock(src, len, pos, marker, st, [&](BitReader& r) {
    return ACRefineDecodeWalk(r, block, ss, se, al, ac, st);
  });
}

}  // namespace rvt::huffman_progressive

#endif  // RVT_JPEG_HUFFMAN_PROGRESSIVE_H_
