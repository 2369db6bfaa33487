// JPEG 2000 code-block coding, the fast passes: every coefficient's flag
// word also holds the significance of its eight neighbours and the signs
// of the four direct ones, kept up to date when a coefficient becomes
// significant, so a context is one table look-up instead of eight reads.
// The passes take a stripe column at a time as one 64-bit word: which of
// its rows a pass codes is a mask of lanes, scanned lowest first, so
// columns with nothing to code cost one load and a test.  The MQ coder
// runs on copies of its registers in locals, with branch-free decisions
// and renormalisation by leading-zero count; in the cleanup pass, whose
// symbols are mostly the likely one, that symbol without renormalisation
// is one subtract and one test (see Local).  Same scan order and
// decisions as the reference passes of t1.h, which the harness checks.
#ifndef RVT_JPEG2K_T1_FAST_H_
#define RVT_JPEG2K_T1_FAST_H_

#include <array>
#include <bit>

#include "jpeg2k/t1.h"

namespace rvt::t1::fast {

static_assert(std::endian::native == std::endian::little, "a stripe column's rows are the words of one load");

// The neighbourhood bits: the significance of the four direct neighbours
// first (with their signs above them, so the sign context is two masks
// away), then the diagonal ones.
enum : uint32_t {
  kN = 1, kW = 2, kE = 4, kS = 8, kNW = 16, kNE = 32, kSW = 64, kSE = 128,
  kNeighbours = 0xFF,
  kNNeg = 256, kWNeg = 512, kENeg = 1024, kSNeg = 2048
};

struct Tables {
  uint8_t zc[3][256];  // LL and LH, HL, HH
  uint8_t sc[256];     // index: N, W, E, S significant, then their signs; context * 2 + the xor bit
};

constexpr Tables BuildTables() {
  Tables t{};
  for (int i = 0; i < 256; ++i) {
    auto bit = [i](uint32_t m) { return (uint32_t(i) & m) ? 1 : 0; };
    const Neigh n{bit(kW) + bit(kE), bit(kN) + bit(kS), bit(kNW) + bit(kNE) + bit(kSW) + bit(kSE)};
    t.zc[0][i] = uint8_t(ZeroContext(n, rvtJ2KBandLL));
    t.zc[1][i] = uint8_t(ZeroContext(n, rvtJ2KBandHL));
    t.zc[2][i] = uint8_t(ZeroContext(n, rvtJ2KBandHH));
    auto contrib = [i](int sig, int neg) { return (i >> sig & 1) ? ((i >> neg & 1) ? -1 : 1) : 0; };
    auto clamp = [](int v) { return v > 1 ? 1 : v < -1 ? -1 : v; };
    int h = clamp(contrib(1, 5) + contrib(2, 6));
    int v = clamp(contrib(0, 4) + contrib(3, 7));
    int x = 0;
    if (h < 0 || (h == 0 && v < 0)) {
      x = 1;
      h = -h;
      v = -v;
    }
    t.sc[i] = uint8_t(2 * (h == 0 ? 9 + v : 12 + v) + x);
  }
  return t;
}
inline constexpr Tables kTables = BuildTables();

inline int ZcTable(int band) { return band == rvtJ2KBandHL ? 1 : band == rvtJ2KBandHH ? 2 : 0; }
inline unsigned SignIndex(uint32_t f) { return (f & 0xF) | ((f >> 4) & 0xF0); }

// ------------------------------------------------------------ stripe columns

// A stripe column's four flag words as one 64-bit word, row r in bits
// 16r..16r+15.
typedef uint64_t __attribute__((may_alias)) ColumnBits;
inline uint64_t LoadColumn(const FlagWord* p) { return *reinterpret_cast<const ColumnBits*>(p); }
inline void StoreColumn(FlagWord* p, uint64_t v) { *reinterpret_cast<ColumnBits*>(p) = v; }
constexpr uint64_t Lanes(uint32_t v) { return uint64_t(v) * 0x0001000100010001ull; }
// The rows of a stripe of `rows` rows (the last stripe may be short).
inline uint64_t RowLanes(int rows) { return rows >= 4 ? ~uint64_t(0) : (uint64_t(1) << (16 * rows)) - 1; }

// What a coefficient becoming significant in row r (with sign neg) ors
// into its own column, the columns left and right, and, from the first or
// last row, the three columns of the stripe above or below; with
// vertically causal stripes the stripe above does not learn of its first
// row.  Rows 1 and 2 or nothing into the other stripe.
struct Spread {
  uint64_t own, left, right, edgeLeft, edgeOwn, edgeRight;
};
struct SpreadTable {
  Spread at[2][4][2];  // causal, row, negative
};
constexpr SpreadTable BuildSpread() {
  SpreadTable t{};
  for (int causal = 0; causal < 2; ++causal)
    for (int r = 0; r < 4; ++r)
      for (int n = 0; n < 2; ++n) {
        auto lane = [](int row, uint32_t v) { return row >= 0 && row < 4 ? uint64_t(v) << (16 * row) : 0; };
        auto neg = [n](uint32_t m) { return n ? m : 0u; };
        Spread& s = t.at[causal][r][n];
        s.own = lane(r, kFSig | neg(kFNeg)) | lane(r - 1, kS | neg(kSNeg)) | lane(r + 1, kN | neg(kNNeg));
        s.left = lane(r, kE | neg(kENeg)) | lane(r - 1, kSE) | lane(r + 1, kNE);
        s.right = lane(r, kW | neg(kWNeg)) | lane(r - 1, kSW) | lane(r + 1, kNW);
        if (r == 0 && !causal) {
          s.edgeLeft = lane(3, kSE);
          s.edgeOwn = lane(3, kS | neg(kSNeg));
          s.edgeRight = lane(3, kSW);
        } else if (r == 3) {
          s.edgeLeft = lane(0, kNE);
          s.edgeOwn = lane(0, kN | neg(kNNeg));
          s.edgeRight = lane(0, kNW);
        }
      }
  return t;
}
inline constexpr SpreadTable kSpread = BuildSpread();

// Marks row r of the column at col significant and tells its neighbours:
// six ors of whole columns, whatever the row.
inline void SetSignificant(FlagWord* col, int stride, int r, int neg, const Spread (*spread)[2]) {
  const Spread& m = spread[r][neg];
  StoreColumn(col - 4, LoadColumn(col - 4) | m.left);
  StoreColumn(col, LoadColumn(col) | m.own);
  StoreColumn(col + 4, LoadColumn(col + 4) | m.right);
  FlagWord* e = col + (r == 0 ? -stride : stride);
  StoreColumn(e - 4, LoadColumn(e - 4) | m.edgeLeft);
  StoreColumn(e, LoadColumn(e) | m.edgeOwn);
  StoreColumn(e + 4, LoadColumn(e + 4) | m.edgeRight);
}

#define RVT_T1_INLINE [[gnu::always_inline]] inline
#define RVT_T1_LAMBDA_INLINE __attribute__((always_inline))

// ------------------------------------------------------------ MQ coding

// A context is one byte: its probability state times two plus its MPS, so
// a symbol needs one table row, and both successors carry the MPS.  The
// decoder keeps its interval in the top half of A, level with the code
// bits of C, so Qe comes shifted up 16 and neither register moves to meet
// it.
struct alignas(8) State {
  uint32_t qe;  // Qe << 16
  uint8_t mps, nmps, nlps, pad;
};
constexpr std::array<State, 94> BuildStates() {
  std::array<State, 94> t{};
  for (int s = 0; s < 47; ++s)
    for (int m = 0; m < 2; ++m)
      t[size_t(2 * s + m)] = {uint32_t(kQe[s].qe) << 16, uint8_t(m), uint8_t(2 * kQe[s].nmps + m),
                              uint8_t(2 * kQe[s].nlps + (kQe[s].sw ? 1 - m : m)), 0};
  return t;
}
inline constexpr std::array<State, 94> kStates = BuildStates();

// The lazy decoder's fast test needs Qe alone: its own row of Qe << 16
// by context byte.
constexpr std::array<uint32_t, 94> BuildDecQe() {
  std::array<uint32_t, 94> t{};
  for (size_t i = 0; i < 94; ++i) t[i] = kStates[i].qe;
  return t;
}
inline constexpr std::array<uint32_t, 94> kDecQe = BuildDecQe();

// The coding side knows the symbol before it looks: its rows are indexed
// by context byte and symbol, and say whether the symbol is the LPS and
// the context byte after a renormalisation.
struct alignas(8) EncState {
  uint32_t qe;
  uint8_t lps, next, pad[2];
};
constexpr std::array<EncState, 188> BuildEncStates() {
  std::array<EncState, 188> t{};
  for (int cx = 0; cx < 94; ++cx)
    for (int d = 0; d < 2; ++d) {
      const State& e = kStates[size_t(cx)];
      const bool lps = d != e.mps;
      t[size_t(2 * cx + d)] = {kQe[cx >> 1].qe, uint8_t(lps), lps ? e.nlps : e.nmps, {0, 0}};
    }
  return t;
}
inline constexpr std::array<EncState, 188> kEncStates = BuildEncStates();

// The decoder's byte-in; the common case (two bytes left in the segment)
// reads them directly, the segment's end reads 0xFF as the reference does.
// All of it inlines, so the coder's registers never go to memory.
RVT_T1_INLINE void ByteIn(MqDecoder& m, const Source& s) {
  uint32_t b, n;
  if (__builtin_expect(m.pos + 1 < s.len, 1)) {
    b = s.p[m.pos];
    n = s.p[m.pos + 1];
  } else {
    b = s.At(m.pos);
    n = s.At(m.pos + 1);
  }
  if (b == 0xFF) {
    if (n > 0x8F) {
      m.c += 0xFF00;
      m.ct = 8;
    } else {
      ++m.pos;
      m.c += n << 9;
      m.ct = 7;
    }
  } else {
    ++m.pos;
    m.c += n << 8;
    m.ct = 8;
  }
}

// Branch-free decision: which sub-interval the code register falls in
// (x), whether the exchange applies (the interval left below Qe), the
// successor state, all by selects; the interval is then renormalised by as
// many bits as it needs at once (counted from its leading zeros), stopping
// only where a byte comes in.  Coin-flip contexts (refinement, signs)
// would mispredict a branch every other symbol.  Qe and both successors
// come in one load of the state's row: a run of symbols in one context
// (the usual case) waits on each one's successor, and a second load,
// indexed by the LPS test, would put its latency on that chain.
RVT_T1_INLINE int DecodeSym(MqDecoder& m, const Source& s, uint8_t& cx) {
  const unsigned k = cx;
  const State st = kStates[k];
  const uint32_t qe = st.qe;
  const uint32_t a = m.a - qe;
  const uint32_t x = m.c < qe ? ~0u : 0u;  // lower sub-interval (the LPS one before exchange)
  const unsigned lps = (x & 1) ^ unsigned(a < qe);
  const int d = int((k & 1) ^ lps);
  const uint32_t an = (qe & x) | (a & ~x);
  m.c -= qe & ~x;
  const uint32_t renorm = an < 0x80000000u ? ~0u : 0u;
  const uint32_t next = lps ? st.nlps : st.nmps;
  cx = uint8_t((next & renorm) | (k & ~renorm));
  const int n = __builtin_clz(an);
  if (__builtin_expect(n <= m.ct, 1)) {
    m.a = an << n;
    m.c <<= n;
    m.ct -= n;
    return d;
  }
  m.a = an;
  int left = n;
  do {
    if (m.ct == 0) ByteIn(m, s);
    const int k = left < m.ct ? left : m.ct;
    m.a <<= k;
    m.c <<= k;
    m.ct -= k;
    left -= k;
  } while (left > 0);
  return d;
}

// The encoder's byte-out as the reference's, inlined for the same reason.
RVT_T1_INLINE void ByteOut(MqEncoder& m, Sink& s) {
  if (m.b == 0xFF || (m.c >= 0x8000000 && m.b + 1 == 0xFF)) {  // a 0xFF out: 7 bits follow
    if (m.b != 0xFF) {
      ++m.b;
      m.c &= 0x7FFFFFF;
    }
    s.Put(uint8_t(m.b));
    m.b = int(m.c >> 20) & 0xFF;
    m.c &= 0xFFFFF;
    m.ct = 7;
    return;
  }
  if (m.c >= 0x8000000) {  // carry into the pending byte (never the one before the segment)
    ++m.b;
    m.c &= 0x7FFFFFF;
  }
  if (m.b >= 0) s.Put(uint8_t(m.b));
  m.b = int(m.c >> 19) & 0xFF;
  m.c &= 0x7FFFF;
  m.ct = 8;
}

// The same selects on the coding side: with the symbol known, either the
// code register moves up by Qe or the interval becomes Qe.
RVT_T1_INLINE void EncodeSym(MqEncoder& m, Sink& s, uint8_t& cx, int d) {
  const EncState e = kEncStates[2 * unsigned(cx) + unsigned(d)];
  const uint32_t qe = e.qe;
  const uint32_t a = m.a - qe;
  const uint32_t add = (e.lps == uint32_t(a < qe)) ? ~0u : 0u;
  m.c += qe & add;
  uint32_t an = (a & add) | (qe & ~add);
  const uint32_t renorm = an < 0x8000 ? ~0u : 0u;
  cx = uint8_t((uint32_t(e.next) & renorm) | (cx & ~renorm));
  int n = __builtin_clz(an) - 16;
  m.a = an;
  while (__builtin_expect(n >= m.ct, 0)) {
    m.a <<= m.ct;
    m.c <<= m.ct;
    n -= m.ct;
    m.ct = 0;
    ByteOut(m, s);
  }
  m.a <<= n;
  m.c <<= n;
  m.ct -= n;
}

// A pass works on a copy of the coder in locals (so the registers stay in
// registers across the stores to the flag words) and puts it back at the
// end.
template <bool kEnc, bool kLazy = false>
struct Local;

// The decoder's common case, an MPS that needs no renormalisation, takes
// Qe off both A and C and nothing else: it happens exactly while Qe fits
// in both C and A - 2^31.  So the coder keeps the smaller of the two as
// the room left (room) and lets A and C lag behind: the fast symbol is one
// subtract and one sign test, and only a symbol that runs out of room
// brings A and C up to date (by what was taken since, base - room), is
// decoded in full and measures the room again.
template <bool kLazy>
struct Local<false, kLazy> {
  MqDecoder mq;
  RawDecoder raw;
  Source src;
  int32_t room, base;
  uint8_t cx[kContexts];
  Coder<false>* home;
  explicit Local(Coder<false>& c) : mq(c.mq), raw(c.raw), src(c.src), home(&c) {
    mq.a <<= 16;  // A level with C's code bits (see State)
    if (kLazy) Measure();
    for (int i = 0; i < kContexts; ++i) cx[i] = uint8_t(2 * c.cx[i].state + c.cx[i].mps);
  }
  // After a full decision A >= 2^31 and C < A, so the room fits in 31 bits.
  RVT_T1_INLINE void Measure() {
    const uint32_t r = mq.a - 0x80000000u;
    base = room = int32_t(mq.c < r ? mq.c : r);
  }
  RVT_T1_INLINE void CatchUp() {
    const uint32_t taken = uint32_t(base) - uint32_t(room);
    mq.a -= taken;
    mq.c -= taken;
  }
  void Save() {
    if (kLazy) CatchUp();
    home->mq = mq;
    home->mq.a = mq.a >> 16;
    home->raw = raw;
    for (int i = 0; i < kContexts; ++i) home->cx[i] = Ctx{uint8_t(cx[i] >> 1), uint8_t(cx[i] & 1)};
  }
  RVT_T1_INLINE int Full(uint8_t& c) {
    CatchUp();
    const int d = DecodeSym(mq, src, c);
    Measure();
    return d;
  }
  // Contexts whose symbols are near coin flips (signs) skip the fast test.
  RVT_T1_INLINE int MqFlip(int ctx, int) { return kLazy ? Full(cx[ctx]) : DecodeSym(mq, src, cx[ctx]); }
  RVT_T1_INLINE int Mq(int ctx, int) {
    uint8_t& c = cx[ctx];
    if (!kLazy) return DecodeSym(mq, src, c);
    const int32_t left = room - int32_t(kDecQe[c]);
    if (__builtin_expect(left >= 0, 1)) {
      room = left;
      return c & 1;
    }
    return Full(c);
  }
  RVT_T1_INLINE int Raw(int) { return raw.Bit(src); }
};

template <bool kLazy>
struct Local<true, kLazy> {
  MqEncoder mq;
  RawEncoder raw;
  Sink sink;
  unsigned __int128 err;
  // The pass's reduction of the squared error (a refinement may also raise
  // one), in 64 bits while it fits: a coefficient coded in plane p changes
  // its error by less than 4^(p+1), so 4096 of them in a pass below plane
  // 25 by less than 2^62; higher planes fold each change in at once.
  int64_t gain = 0;
  bool wide = false;
  int32_t room, base;  // as the decoder's, on A - 2^15 alone
  uint8_t cx[kContexts];
  Coder<true>* home;
  explicit Local(Coder<true>& c) : mq(c.mq), raw(c.raw), sink(c.sink), err(c.err), home(&c) {
    if (kLazy) Measure();
    for (int i = 0; i < kContexts; ++i) cx[i] = uint8_t(2 * c.cx[i].state + c.cx[i].mps);
  }
  RVT_T1_INLINE void Measure() { base = room = int32_t(mq.a) - 0x8000; }
  RVT_T1_INLINE void CatchUp() {
    const uint32_t taken = uint32_t(base) - uint32_t(room);
    mq.a -= taken;
    mq.c += taken;
  }
  void Save() {
    if (kLazy) CatchUp();
    home->mq = mq;
    home->raw = raw;
    home->sink = sink;
    home->err = err - static_cast<unsigned __int128>(static_cast<__int128>(gain));
    for (int i = 0; i < kContexts; ++i) home->cx[i] = Ctx{uint8_t(cx[i] >> 1), uint8_t(cx[i] & 1)};
  }
  RVT_T1_INLINE void Gain(int64_t d) {
    gain += d;
    if (__builtin_expect(wide, 0)) {
      err -= static_cast<unsigned __int128>(static_cast<__int128>(gain));
      gain = 0;
    }
  }
  RVT_T1_INLINE int Full(uint8_t& c, int bit) {
    CatchUp();
    EncodeSym(mq, sink, c, bit);
    Measure();
    return bit;
  }
  // The encoder's common symbol, the MPS without renormalisation, moves A
  // down and C up by Qe: while it fits in the room left, only the room
  // moves.
  RVT_T1_INLINE int Mq(int ctx, int bit) {
    uint8_t& c = cx[ctx];
    if (!kLazy) {
      EncodeSym(mq, sink, c, bit);
      return bit;
    }
    const int32_t left = room - int32_t(kEncStates[2 * unsigned(c)].qe);
    if (__builtin_expect((left >= 0) & (bit == (c & 1)), 1)) {
      room = left;
      return bit;
    }
    return Full(c, bit);
  }
  RVT_T1_INLINE int MqFlip(int ctx, int bit) {
    if (kLazy) return Full(cx[ctx], bit);
    EncodeSym(mq, sink, cx[ctx], bit);
    return bit;
  }
  RVT_T1_INLINE int Raw(int bit) {
    raw.Put(bit, sink);
    return bit;
  }
};

// ------------------------------------------------------------ the passes

// The encoder's changes of squared error, from the bits below the plane: a
// coefficient found significant in plane p goes from 0 to 2^p plus half a
// step (none in plane 0); a refined one from the middle of its interval of
// 2^(p+1) to the middle of the half that bit p picks.  Magnitudes stay
// below 2^31, so the squares fit.
RVT_T1_INLINE int64_t HalfStep(int p) { return (int64_t(1) << p) >> 1; }
RVT_T1_INLINE int64_t SignificantGain(uint32_t m, int p) {
  const int64_t e = int64_t(m & ((1u << p) - 1)) - HalfStep(p);
  return int64_t(m) * int64_t(m) - e * e;
}
RVT_T1_INLINE int64_t RefineGain(uint32_t m, int bit, int p) {
  const int64_t lo = int64_t(m & ((1u << p) - 1));
  const int64_t before = bit ? lo : lo - (int64_t(1) << p);
  const int64_t after = lo - HalfStep(p);
  return before * before - after * after;
}

// What a pass needs besides the coder: the planes, the plane coded and
// where significance spreads to.
struct PassArgs {
  Planes b;
  int plane;
  const Spread (*spread)[2];
};

// Codes the sign of the coefficient in row r of the column at col (flags
// fl, sample i) and makes it significant.  The encoder keeps no
// lowest-plane record: its passes know the plane.
template <bool kEnc, bool kLazy>
RVT_T1_INLINE void Sign(const PassArgs& a, Local<kEnc, kLazy>& c, FlagWord* col, int r, uint32_t fl, int i, bool raw) {
  const int truth = kEnc ? ((fl & kFNeg) ? 1 : 0) : 0;
  int neg;
  if (raw) {
    neg = c.Raw(truth);
  } else {
    const unsigned t = kTables.sc[SignIndex(fl)];
    const int xr = int(t & 1);
    neg = c.MqFlip(int(t >> 1), truth ^ xr) ^ xr;
  }
  SetSignificant(col, a.b.stride, r, neg, a.spread);
  if constexpr (kEnc) {
    c.Gain(SignificantGain(a.b.mag[i], a.plane));
  } else {
    a.b.mag[i] = uint32_t(1) << a.plane;
    a.b.low[i] = uint8_t(a.plane);
  }
}

template <bool kEnc>
RVT_T1_INLINE int Truth(const Planes& b, int i, int plane) {
  if constexpr (kEnc) return int(b.mag[i] >> plane) & 1;
  else return 0;
}

// Lowest set bit's row (bits 16r..16r+15).
RVT_T1_INLINE int RowOf(uint64_t m) { return __builtin_ctzll(m) >> 4; }
RVT_T1_INLINE uint32_t RowFlags(uint64_t v, int r) { return uint32_t(v >> (16 * r)) & 0xFFFF; }
// Rows below r (those after it in the scan).
RVT_T1_INLINE uint64_t After(int r) { return (~uint64_t(0) << (16 * r)) << 16; }

// Rows of a column the significance pass codes: not significant, with a
// significant neighbour (bit 8 of their lane).
RVT_T1_INLINE uint64_t SignificanceRows(uint64_t v) {
  const uint64_t some = ((v & Lanes(kNeighbours)) + Lanes(kNeighbours)) & Lanes(0x100);
  return some & ~(v >> 4);  // kFSig is bit 12
}

template <bool kEnc>
PassArgs Args(Planes& b, int plane, bool causal) {
  return PassArgs{b, plane, kSpread.at[causal ? 1 : 0]};
}

template <bool kEnc, bool raw>
void FastSignificance(Planes& home_b, Coder<kEnc>& home, int plane, int band, bool causal) {
  Local<kEnc> c(home);
  if constexpr (kEnc) c.wide = plane > 24;
  const PassArgs a = Args<kEnc>(home_b, plane, causal);
  const Planes& b = a.b;
  const uint8_t* zc = kTables.zc[ZcTable(band)];
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const uint64_t live = RowLanes(b.h - y0);
    FlagWord* col = b.Column(0, y0);
    for (int x = 0; x < b.w; ++x, col += 4) {
      uint64_t v = LoadColumn(col);
      uint64_t todo = SignificanceRows(v) & live;
      if (!todo) continue;
      uint64_t visited = 0;
      do {
        const int r = RowOf(todo);
        const int i = (y0 + r) * b.w + x;
        const uint32_t fl = RowFlags(v, r);
        const int t = Truth<kEnc>(b, i, plane);
        const int bit = raw ? c.Raw(t) : c.Mq(zc[fl & kNeighbours], t);
        visited |= uint64_t(kFVisit) << (16 * r);
        if (bit) {
          Sign(a, c, col, r, fl, i, raw);
          v = LoadColumn(col);
          todo = SignificanceRows(v) & live & After(r);
        } else {
          todo &= todo - 1;
        }
      } while (todo);
      StoreColumn(col, v | visited);
    }
  }
  c.Save();
}

template <bool kEnc, bool raw>
void FastRefinement(Planes& home_b, Coder<kEnc>& home, int plane) {
  Local<kEnc> c(home);
  if constexpr (kEnc) c.wide = plane > 24;
  const PassArgs a = Args<kEnc>(home_b, plane, false);
  const Planes& b = a.b;
  // Context 16 once refined, else 15 with a significant neighbour, else 14.
  auto refine = [&](uint64_t v, int i, int r) RVT_T1_LAMBDA_INLINE {
    const uint32_t fl = RowFlags(v, r);
    const uint32_t again = (fl >> 15) & 1;  // kFRefined
    const uint32_t near = (fl & kNeighbours) != 0;
    const int ctx = int(14 + ((again << 1) | (near & ~again)));
    const int t = Truth<kEnc>(b, i, plane);
    const int bit = raw ? c.Raw(t) : c.Mq(ctx, t);
    if constexpr (kEnc) {
      c.Gain(RefineGain(b.mag[i], bit, plane));
    } else {
      b.mag[i] |= uint32_t(bit) << plane;
      b.low[i] = uint8_t(plane);
    }
  };
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    FlagWord* col = b.Column(0, y0);
    for (int x = 0; x < b.w; ++x, col += 4) {
      const uint64_t v = LoadColumn(col);
      uint64_t todo = v & ~(v >> 2) & Lanes(kFSig);  // significant, not coded in this plane (kFVisit is bit 14)
      if (!todo) continue;
      const int i0 = y0 * b.w + x;
      if (todo == Lanes(kFSig)) {  // the usual column of the low planes: four in a row, no loop
        refine(v, i0, 0);
        refine(v, i0 + b.w, 1);
        refine(v, i0 + 2 * b.w, 2);
        refine(v, i0 + 3 * b.w, 3);
        StoreColumn(col, v | Lanes(kFRefined));
        continue;
      }
      const uint64_t refined = todo << 3;  // kFRefined is kFSig << 3
      do {
        const int r = RowOf(todo);
        refine(v, i0 + r * b.w, r);
        todo &= todo - 1;
      } while (todo);
      StoreColumn(col, v | refined);
    }
  }
  c.Save();
}

template <bool kEnc>
void FastCleanup(Planes& home_b, Coder<kEnc>& home, int plane, int band, bool causal, bool segsym) {
  Local<kEnc, true> c(home);
  if constexpr (kEnc) c.wide = plane > 24;
  const PassArgs a = Args<kEnc>(home_b, plane, causal);
  const Planes& b = a.b;
  const uint8_t* zc = kTables.zc[ZcTable(band)];
  constexpr uint64_t kBusy = Lanes(kFSig | kFVisit | kNeighbours);
  constexpr uint64_t kVisits = Lanes(kFVisit);
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int rows = b.h - y0 < 4 ? b.h - y0 : 4;
    const uint64_t live = RowLanes(rows) & Lanes(kFSig);
    FlagWord* col = b.Column(0, y0);
    for (int x = 0; x < b.w; ++x, col += 4) {
      uint64_t v = LoadColumn(col);
      // Rows neither significant nor coded in this plane (kFVisit is kFSig << 2).
      uint64_t todo = ~(v | (v >> 2)) & live;
      if (!todo) {
        if (v & kVisits) StoreColumn(col, v & ~kVisits);
        continue;
      }
      const int i0 = y0 * b.w + x;
      if (rows == 4 && !(v & kBusy)) {
        int first = 4;
        if constexpr (kEnc) {
          const int w = b.w;
          first = Truth<kEnc>(b, i0, plane)             ? 0
                  : Truth<kEnc>(b, i0 + w, plane)     ? 1
                  : Truth<kEnc>(b, i0 + 2 * w, plane) ? 2
                  : Truth<kEnc>(b, i0 + 3 * w, plane) ? 3
                                                      : 4;
        }
        if (!c.Mq(kCtxRun, first < 4 ? 1 : 0)) continue;
        int r = c.Mq(kCtxUni, (first >> 1) & 1) << 1;
        r |= c.Mq(kCtxUni, first & 1);
        Sign(a, c, col, r, RowFlags(v, r), i0 + r * b.w, false);
        v = LoadColumn(col);
        todo &= After(r);
        if (!todo) continue;
      }
      do {
        const int r = RowOf(todo);
        const uint32_t fl = RowFlags(v, r);
        const int i = i0 + r * b.w;
        if (c.Mq(zc[fl & kNeighbours], Truth<kEnc>(b, i, plane))) {
          Sign(a, c, col, r, fl, i, false);
          v = LoadColumn(col);
        }
        todo &= todo - 1;
      } while (todo);
      if (v & kVisits) StoreColumn(col, v & ~kVisits);
    }
  }
  if (segsym) {
    c.Mq(kCtxUni, 1);
    c.Mq(kCtxUni, 0);
    c.Mq(kCtxUni, 1);
    c.Mq(kCtxUni, 0);
  }
  c.Save();
}

template <bool kEnc>
void RunFastPass(Planes& b, Coder<kEnc>& c, int k, int planes, int band, int style) {
  const int plane = PassPlane(k, planes);
  const bool causal = style & rvtJ2KStyleVCausal;
  const bool raw = IsRaw(k, style);
  switch (PassType(k)) {
    case kSig:
      if (raw) FastSignificance<kEnc, true>(b, c, plane, band, causal);
      else FastSignificance<kEnc, false>(b, c, plane, band, causal);
      break;
    case kRef:
      if (raw) FastRefinement<kEnc, true>(b, c, plane);
      else FastRefinement<kEnc, false>(b, c, plane);
      break;
    case kClean: FastCleanup(b, c, plane, band, causal, style & rvtJ2KStyleSegSym); break;
  }
}

#undef RVT_T1_INLINE
#undef RVT_T1_LAMBDA_INLINE

}  // namespace rvt::t1::fast

#endif  // RVT_JPEG2K_T1_FAST_H_
