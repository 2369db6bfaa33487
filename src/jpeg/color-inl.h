// Vector kernels of the colour conversions, compiled once per target by the
// color_*.cc files (each instantiates only its own members).  A kernel call
// converts N = Lanes(D16) pixels: channels are widened to int16 lanes, the
// arithmetic computes in 16 bits (high-half products) or in 32 bits
// (pairwise multiply-adds of interleaved channels, packed back in lane
// order), and the saturating narrowing to bytes is the final clamp.  No
// checks here: the driver in color.h has checked every argument before any
// row runs.  Rows run in whole
// vectors; the last vector is moved back to end at the row's end (so a few
// pixels are converted twice, to the same values), and rows shorter than
// one vector go to the scalar kernel.
#if defined(RVT_JPEG_COLOR_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_COLOR_INL_H_
#undef RVT_JPEG_COLOR_INL_H_
#else
#define RVT_JPEG_COLOR_INL_H_
#endif

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include <algorithm>

#include "frame/raw_ops-inl.h"
#include "jpeg/color.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::color::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

// Lambdas here are part of the kernels: inlined, they keep the constants in
// registers instead of rebuilding them on every call.
#define RVT_COLOR_INLINE __attribute__((always_inline))

using D16 = hn::ScalableTag<int16_t>;
using DU16 = hn::RebindToUnsigned<D16>;
using D32 = hn::Repartition<int32_t, D16>;
using D8 = hn::Rebind<uint8_t, D16>;  // one byte per pixel of a vector
using V16 = hn::Vec<D16>;
using VU16 = hn::Vec<DU16>;
using V32 = hn::Vec<D32>;
using V8 = hn::Vec<D8>;

// Channels of one vector of pixels, 0..255 in int16 lanes (or, for the
// output of an arithmetic, the 16-bit-saturated result before the final
// clamp).
struct Pix {
  V16 a, b, c, k;
};

HWY_INLINE V16 Widen(V8 v) { return hn::PromoteTo(D16(), v); }
// Saturating narrowing: the clamp to 0..255.
HWY_INLINE V8 Narrow(V16 v) { return hn::DemoteTo(D8(), v); }
HWY_INLINE V16 K16(int v) { return hn::Set(D16(), int16_t(v)); }

// The wide path: 2N pixels per step from full byte vectors.  Bytes widen
// within each 128-bit block (ZipLower / ZipUpper with zero) and pack back
// the same way (ops::PackU8Blockwise), so the lane order never has to cross
// blocks; the arithmetics are lane-wise and do not mind the order.
using DB = hn::Repartition<uint8_t, D16>;
using VB = hn::Vec<DB>;
struct Wide {
  V16 lo, hi;
};
HWY_INLINE Wide Unzip(VB v) {
  const DU16 du;
  const VB zero = hn::Zero(DB());
  return {hn::BitCast(D16(), hn::ZipLower(du, v, zero)),
          hn::BitCast(D16(), hn::ZipUpper(du, v, zero))};
}
// Bytes with unsigned saturation (the clamp to 0..255), block by block: the
// inverse of Unzip.
HWY_INLINE VB Rezip(V16 lo, V16 hi) { return ops::PackU8Blockwise(lo, hi); }

HWY_INLINE void Put(VB v, uint8_t* p) { hn::StoreU(v, DB(), p); }

// A value the compiler cannot see through: a constant so wrapped stays in
// its register (or, loop-invariant, leaves the loop) instead of being
// rebuilt from an immediate or a 16-byte table on every step, which the
// compiler otherwise does with vector constants in these loops.
template <class V>
HWY_INLINE V Opaque(V v) {
  __asm__("" : "+v"(v.raw));
  return v;
}

// ------------------------------------------------------------ 32-bit sums

// Two channels interleaved lane by lane (within each 128-bit block), so a
// pairwise multiply-add gives a*wa + b*wb per pixel in 32 bits.
struct Pair {
  V16 lo, hi;
};
HWY_INLINE Pair Zip(V16 a, V16 b) {
  const D16 d;
  return {hn::InterleaveLower(d, a, b), hn::InterleaveUpper(d, a, b)};
}
HWY_INLINE V16 Weights(int wa, int wb) {
  return hn::BitCast(
      D16(), hn::Set(D32(), int32_t(uint32_t(uint16_t(wa)) | uint32_t(uint16_t(wb)) << 16)));
}
HWY_INLINE V32 Madd(V16 pairs, V16 weights, V32 sum) {
  V32 unused;
  return hn::ReorderWidenMulAccumulate(D32(), pairs, weights, sum, unused);
}
// Packs 32-bit sums >> kShift to 16 bits; the block-interleaved halves of
// Zip come back in lane order.
template <int kShift>
HWY_INLINE V16 Pack(V32 lo, V32 hi) {
  return hn::ReorderDemote2To(D16(), hn::ShiftRight<kShift>(lo), hn::ShiftRight<kShift>(hi));
}
// A bias split as hi * 2^kShift + lo with 0 <= lo < 2^kShift: lo joins the
// sum as the weight of a lane that holds 1, hi is added after the shift
// (exact: floor((s + lo) / 2^k) + hi; no sum here comes near 16 bits).
template <int kShift>
struct Bias {
  static_assert(kShift <= 15, "lo must fit a 16-bit weight");
  int hi, lo;
  explicit Bias(int32_t b) : hi(b >> kShift), lo(b - (b >> kShift) * (1 << kShift)) {}
  V16 Add(V16 v) const { return hi ? hn::Add(v, K16(hi)) : v; }
};

// (a*wa + b*wb + c*wc + bias) >> kShift, with ab = Zip(a, b), c1 = Zip(c, 1).
template <int kShift>
HWY_INLINE V16 Dot3(const Pair& ab, int wa, int wb, const Pair& c1, int wc, int32_t bias) {
  const Bias<kShift> k(bias);
  const V16 w0 = Weights(wa, wb), w1 = Weights(wc, k.lo);
  const V32 zero = hn::Zero(D32());
  return k.Add(
      Pack<kShift>(Madd(c1.lo, w1, Madd(ab.lo, w0, zero)), Madd(c1.hi, w1, Madd(ab.hi, w0, zero))));
}
// (a*wa + bias) >> kShift, with a1 = Zip(a, 1).
template <int kShift>
HWY_INLINE V16 Dot1(const Pair& a1, int wa, int32_t bias) {
  const Bias<kShift> k(bias);
  const V16 w = Weights(wa, k.lo);
  const V32 zero = hn::Zero(D32());
  return k.Add(Pack<kShift>(Madd(a1.lo, w, zero), Madd(a1.hi, w, zero)));
}
// (a*wa + b*wb + bias) >> kShift, with ab = Zip(a, b); the bias adds in 32 bits.
template <int kShift>
HWY_INLINE V16 Dot2(const Pair& ab, int wa, int wb, int32_t bias) {
  const V16 w = Weights(wa, wb);
  const V32 b = hn::Set(D32(), bias);
  return Pack<kShift>(Madd(ab.lo, w, b), Madd(ab.hi, w, b));
}

// ------------------------------------------------------------ layouts

template <int kBpp, int kR, int kB>
HWY_INLINE void LoadBytes(Packed8<kBpp, kR, kB>, const uint8_t* row, int x, V8& r, V8& g, V8& b) {
  const D8 d8;
  V8 c0, c1, c2, c3;
  if constexpr (kBpp == 3) {
    hn::LoadInterleaved3(d8, row + 3 * ptrdiff_t(x), c0, c1, c2);
  } else {
    hn::LoadInterleaved4(d8, row + 4 * ptrdiff_t(x), c0, c1, c2, c3);
  }
  r = kR == 0 ? c0 : c2;
  g = c1;
  b = kR == 0 ? c2 : c0;
}
template <int kBpp, int kR, int kB>
HWY_INLINE Pix Load(Packed8<kBpp, kR, kB> l, const Rows& rows, int x) {
  V8 r, g, b;
  LoadBytes(l, rows.s[0], x, r, g, b);
  return {Widen(r), Widen(g), Widen(b), hn::Zero(D16())};
}
template <int kBpp, int kR, int kB>
HWY_INLINE void Store(Packed8<kBpp, kR, kB>, const Rows& rows, int x, const Pix& p) {
  const D8 d8;
  const V8 r = Narrow(p.a), g = Narrow(p.b), b = Narrow(p.c);
  if constexpr (kBpp == 3) {
    hn::StoreInterleaved3(kR == 0 ? r : b, g, kR == 0 ? b : r, d8, rows.d[0] + 3 * ptrdiff_t(x));
  } else {
    hn::StoreInterleaved4(kR == 0 ? r : b, g, kR == 0 ? b : r, hn::Set(d8, rows.aval), d8,
                          rows.d[0] + 4 * ptrdiff_t(x));
  }
}

template <bool kBgr, int kG>
HWY_INLINE Pix Load(Packed16<kBgr, kG>, const Rows& rows, int x) {
  const DU16 du;
  const VU16 w = hn::LoadU(du, reinterpret_cast<const uint16_t*>(rows.s[0]) + x);
  const VU16 lo = hn::ShiftLeft<3>(hn::And(w, hn::Set(du, 31)));
  const VU16 g = hn::ShiftLeft<8 - kG>(hn::And(hn::ShiftRight<5>(w), hn::Set(du, (1 << kG) - 1)));
  const VU16 hi = hn::ShiftLeft<3>(hn::And(hn::ShiftRight<5 + kG>(w), hn::Set(du, 31)));
  const D16 d;
  return {hn::BitCast(d, kBgr ? hi : lo), hn::BitCast(d, g), hn::BitCast(d, kBgr ? lo : hi),
          hn::Zero(d)};
}
template <bool kBgr, int kG>
HWY_INLINE void Store(Packed16<kBgr, kG>, const Rows& rows, int x, const Pix& p) {
  const DU16 du;
  auto clamp = [&](V16 v) RVT_COLOR_INLINE {
    return hn::BitCast(du, hn::Min(hn::Max(v, K16(0)), K16(255)));
  };
  const VU16 lo = hn::ShiftRight<3>(clamp(kBgr ? p.c : p.a));
  const VU16 g = hn::ShiftRight<8 - kG>(clamp(p.b));
  const VU16 hi = hn::ShiftRight<3>(clamp(kBgr ? p.a : p.c));
  const VU16 w = hn::Or(hn::Or(lo, hn::ShiftLeft<5>(g)), hn::ShiftLeft<5 + kG>(hi));
  hn::StoreU(w, du, reinterpret_cast<uint16_t*>(rows.d[0]) + x);
}

// N/2 chroma bytes, each repeated for the two pixels of its pair.
HWY_INLINE V16 LoadPairs(const uint8_t* p) {
  const hn::Half<DU16> dh;
  const hn::Rebind<uint8_t, decltype(dh)> dq;
  const auto c = hn::PromoteTo(dh, hn::LoadU(dq, p));
  return Widen(hn::BitCast(D8(), hn::Or(c, hn::ShiftLeft<8>(c))));
}

template <int kN, int kCh, int kCv>
HWY_INLINE Pix Load(Planes<kN, kCh, kCv>, const Rows& rows, int x) {
  const D8 d8;
  Pix p;
  p.a = Widen(hn::LoadU(d8, rows.s[0] + x));
  if constexpr (kCh == 2) {
    p.b = LoadPairs(rows.s[1] + x / 2);
    p.c = LoadPairs(rows.s[2] + x / 2);
  } else {
    p.b = Widen(hn::LoadU(d8, rows.s[1] + x));
    p.c = Widen(hn::LoadU(d8, rows.s[2] + x));
  }
  p.k = kN == 4 ? Widen(hn::LoadU(d8, rows.s[3] + x)) : hn::Zero(D16());
  return p;
}
template <int kN, int kCh, int kCv>
HWY_INLINE void Store(Planes<kN, kCh, kCv>, const Rows& rows, int x, const Pix& p) {
  const D8 d8;
  hn::StoreU(Narrow(p.a), d8, rows.d[0] + x);
  hn::StoreU(Narrow(p.b), d8, rows.d[1] + x);
  hn::StoreU(Narrow(p.c), d8, rows.d[2] + x);
  if constexpr (kN == 4) hn::StoreU(Narrow(p.k), d8, rows.d[3] + x);
}

HWY_INLINE void Store(Luma, const Rows& rows, int x, const Pix& p) {
  hn::StoreU(Narrow(p.a), D8(), rows.d[0] + x);
}

template <bool kPacked>
HWY_INLINE Pix Load(Cmyk<kPacked>, const Rows& rows, int x) {
  const D8 d8;
  V8 c, m, y, k;
  if constexpr (kPacked) {
    hn::LoadInterleaved4(d8, rows.s[0] + 4 * ptrdiff_t(x), c, m, y, k);
  } else {
    c = hn::LoadU(d8, rows.s[0] + x);
    m = hn::LoadU(d8, rows.s[1] + x);
    y = hn::LoadU(d8, rows.s[2] + x);
    k = hn::LoadU(d8, rows.s[3] + x);
  }
  const V16 full = K16(255);
  return {hn::Sub(full, Widen(c)), hn::Sub(full, Widen(m)), hn::Sub(full, Widen(y)), Widen(k)};
}
template <bool kPacked>
HWY_INLINE void Store(Cmyk<kPacked>, const Rows& rows, int x, const Pix& p) {
  const D8 d8;
  const V8 full = hn::Set(d8, 255);
  const V8 c = hn::Sub(full, Narrow(p.a)), m = hn::Sub(full, Narrow(p.b)),
           y = hn::Sub(full, Narrow(p.c)), k = Narrow(p.k);
  if constexpr (kPacked) {
    hn::StoreInterleaved4(c, m, y, k, d8, rows.d[0] + 4 * ptrdiff_t(x));
  } else {
    hn::StoreU(c, d8, rows.d[0] + x);
    hn::StoreU(m, d8, rows.d[1] + x);
    hn::StoreU(y, d8, rows.d[2] + x);
    hn::StoreU(k, d8, rows.d[3] + x);
  }
}

// Packed 4:2:2 (x even): as 16-bit lanes, pixel i holds Y_i in its low byte
// and Cb (even i) or Cr (odd i) in its high byte.
HWY_INLINE Pix Load(YccC2, const Rows& rows, int x) {
  const DU16 du;
  const hn::Repartition<uint32_t, DU16> du32;
  const VU16 w = hn::LoadU(du, reinterpret_cast<const uint16_t*>(rows.s[0] + 2 * ptrdiff_t(x)));
  const auto c = hn::BitCast(du32, hn::ShiftRight<8>(w));  // Cb | Cr << 16 per pair
  const auto cb = hn::Or(hn::And(c, hn::Set(du32, 0xFFFFu)), hn::ShiftLeft<16>(c));
  const auto cr = hn::Or(hn::ShiftRight<16>(c), hn::And(c, hn::Set(du32, 0xFFFF0000u)));
  const D16 d;
  return {hn::BitCast(d, hn::And(w, hn::Set(du, 255))), hn::BitCast(d, cb), hn::BitCast(d, cr),
          hn::Zero(d)};
}

// ------------------------------------------------------------ wide layouts

struct WPix {
  Pix lo, hi;
};
HWY_INLINE void Split(VB a, VB b, VB c, VB k, WPix& p) {
  const Wide wa = Unzip(a), wb = Unzip(b), wc = Unzip(c), wk = Unzip(k);
  p.lo = {wa.lo, wb.lo, wc.lo, wk.lo};
  p.hi = {wa.hi, wb.hi, wc.hi, wk.hi};
}

// Three channels of 2N interleaved bytes: the blocks transposed, then one
// byte shuffle per channel and block set.  The AVX-512 targets hold the nine
// tables in registers (Opaque; they have 32).  The 16 of AVX2 do not: there
// the tables are whole-vector constants that the shuffles read from memory
// as operands, where 16-byte tables broadcast into registers were reloaded
// from the stack every step.
inline constexpr bool kOwnDeinterleave3 = HWY_TARGET <= HWY_AVX2;
struct Deinterleave3Tables {
  static constexpr uint8_t Z = 0x80;
  alignas(64) uint8_t idx[9][64];
  constexpr Deinterleave3Tables() : idx{} {
    constexpr uint8_t kBlock[9][16] = {
        {0, 3, 6, 9, 12, 15, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z},
        {Z, Z, Z, Z, Z, Z, 2, 5, 8, 11, 14, Z, Z, Z, Z, Z},
        {Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, 1, 4, 7, 10, 13},
        {1, 4, 7, 10, 13, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z},
        {Z, Z, Z, Z, Z, 0, 3, 6, 9, 12, 15, Z, Z, Z, Z, Z},
        {Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, 2, 5, 8, 11, 14},
        {2, 5, 8, 11, 14, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, Z},
        {Z, Z, Z, Z, Z, 1, 4, 7, 10, 13, Z, Z, Z, Z, Z, Z},
        {Z, Z, Z, Z, Z, Z, Z, Z, Z, Z, 0, 3, 6, 9, 12, 15}};
    for (int t = 0; t < 9; ++t) {
      for (int i = 0; i < 64; ++i) idx[t][i] = kBlock[t][i % 16];
    }
  }
};
inline constexpr Deinterleave3Tables kDeinterleave3Tables{};
HWY_INLINE void Deinterleave3(const uint8_t* p, VB& v0, VB& v1, VB& v2) {
  const DB d;
  VB a, b, c;
  hn::detail::LoadTransposedBlocks3(d, p, a, b, c);
  auto pick = [&](int i, VB v) RVT_COLOR_INLINE {
    const VB table = hn::Load(d, kDeinterleave3Tables.idx[i]);
    if constexpr (HWY_TARGET <= HWY_AVX3) {
      return hn::TableLookupBytesOr0(v, Opaque(table));
    } else {
      return hn::TableLookupBytesOr0(v, table);
    }
  };
  v0 = hn::Or(hn::Or(pick(0, a), pick(1, b)), pick(2, c));
  v1 = hn::Or(hn::Or(pick(3, a), pick(4, b)), pick(5, c));
  v2 = hn::Or(hn::Or(pick(6, a), pick(7, b)), pick(8, c));
}

template <int kBpp, int kR, int kB>
HWY_INLINE void LoadWideBytes(Packed8<kBpp, kR, kB>, const uint8_t* row, int x, VB& r, VB& g,
                              VB& b) {
  const DB db;
  VB c0, c1, c2, c3;
  if constexpr (kBpp == 3 && kOwnDeinterleave3) {
    Deinterleave3(row + 3 * ptrdiff_t(x), c0, c1, c2);
  } else if constexpr (kBpp == 3) {
    hn::LoadInterleaved3(db, row + 3 * ptrdiff_t(x), c0, c1, c2);
  } else {
    hn::LoadInterleaved4(db, row + 4 * ptrdiff_t(x), c0, c1, c2, c3);
  }
  r = kR == 0 ? c0 : c2;
  g = c1;
  b = kR == 0 ? c2 : c0;
}
template <int kBpp, int kR, int kB>
HWY_INLINE WPix LoadWide(Packed8<kBpp, kR, kB> l, const Rows& rows, int x) {
  VB r, g, b;
  LoadWideBytes(l, rows.s[0], x, r, g, b);
  WPix p;
  Split(r, g, b, r, p);
  return p;
}
// 2N pixels of bytes in pixel order.
template <int kBpp, int kR, int kB>
HWY_INLINE void StoreBytes(Packed8<kBpp, kR, kB>, const Rows& rows, int x, VB r, VB g, VB b) {
  const DB db;
  if constexpr (kBpp == 3) {
    hn::StoreInterleaved3(kR == 0 ? r : b, g, kR == 0 ? b : r, db, rows.d[0] + 3 * ptrdiff_t(x));
  } else {
    hn::StoreInterleaved4(kR == 0 ? r : b, g, kR == 0 ? b : r, hn::Set(db, rows.aval), db,
                          rows.d[0] + 4 * ptrdiff_t(x));
  }
}
template <int kBpp, int kR, int kB>
HWY_INLINE void StoreWide(Packed8<kBpp, kR, kB>, const Rows& rows, int x, const WPix& p) {
  const DB db;
  const VB r = Rezip(p.lo.a, p.hi.a), g = Rezip(p.lo.b, p.hi.b), b = Rezip(p.lo.c, p.hi.c);
  if constexpr (kBpp == 3) {
    hn::StoreInterleaved3(kR == 0 ? r : b, g, kR == 0 ? b : r, db, rows.d[0] + 3 * ptrdiff_t(x));
  } else {
    hn::StoreInterleaved4(kR == 0 ? r : b, g, kR == 0 ? b : r, hn::Set(db, rows.aval), db,
                          rows.d[0] + 4 * ptrdiff_t(x));
  }
}

// N chroma bytes, each repeated for the two pixels of its pair: 2N bytes.
HWY_INLINE VB LoadPairsWide(const uint8_t* p) {
  const DU16 du;
  const auto c = hn::PromoteTo(du, hn::LoadU(D8(), p));
  return hn::BitCast(DB(), hn::Or(c, hn::ShiftLeft<8>(c)));
}
template <int kN, int kCh, int kCv>
HWY_INLINE WPix LoadWide(Planes<kN, kCh, kCv>, const Rows& rows, int x) {
  const DB db;
  const VB y = hn::LoadU(db, rows.s[0] + x);
  const VB cb = kCh == 2 ? LoadPairsWide(rows.s[1] + x / 2) : hn::LoadU(db, rows.s[1] + x);
  const VB cr = kCh == 2 ? LoadPairsWide(rows.s[2] + x / 2) : hn::LoadU(db, rows.s[2] + x);
  WPix p;
  Split(y, cb, cr, kN == 4 ? hn::LoadU(db, rows.s[3] + x) : y, p);
  return p;
}
template <int kN, int kCh, int kCv>
HWY_INLINE void StoreWide(Planes<kN, kCh, kCv>, const Rows& rows, int x, const WPix& p) {
  Put(Rezip(p.lo.a, p.hi.a), rows.d[0] + x);
  Put(Rezip(p.lo.b, p.hi.b), rows.d[1] + x);
  Put(Rezip(p.lo.c, p.hi.c), rows.d[2] + x);
  if constexpr (kN == 4) Put(Rezip(p.lo.k, p.hi.k), rows.d[3] + x);
}

HWY_INLINE void StoreWide(Luma, const Rows& rows, int x, const WPix& p) {
  Put(Rezip(p.lo.a, p.hi.a), rows.d[0] + x);
}

template <bool kPacked>
HWY_INLINE WPix LoadWide(Cmyk<kPacked>, const Rows& rows, int x) {
  const DB db;
  VB c, m, y, k;
  if constexpr (kPacked) {
    hn::LoadInterleaved4(db, rows.s[0] + 4 * ptrdiff_t(x), c, m, y, k);
  } else {
    c = hn::LoadU(db, rows.s[0] + x);
    m = hn::LoadU(db, rows.s[1] + x);
    y = hn::LoadU(db, rows.s[2] + x);
    k = hn::LoadU(db, rows.s[3] + x);
  }
  const VB full = hn::Set(db, 255);
  WPix p;
  Split(hn::Sub(full, c), hn::Sub(full, m), hn::Sub(full, y), k, p);
  return p;
}
template <bool kPacked>
HWY_INLINE void StoreWide(Cmyk<kPacked>, const Rows& rows, int x, const WPix& p) {
  const DB db;
  const VB full = hn::Set(db, 255);
  const VB c = hn::Sub(full, Rezip(p.lo.a, p.hi.a)), m = hn::Sub(full, Rezip(p.lo.b, p.hi.b)),
           y = hn::Sub(full, Rezip(p.lo.c, p.hi.c)), k = Rezip(p.lo.k, p.hi.k);
  if constexpr (kPacked) {
    hn::StoreInterleaved4(c, m, y, k, db, rows.d[0] + 4 * ptrdiff_t(x));
  } else {
    Put(c, rows.d[0] + x);
    Put(m, rows.d[1] + x);
    Put(y, rows.d[2] + x);
    Put(k, rows.d[3] + x);
  }
}

// ------------------------------------------------------------ streaming

// Streaming stores (straight to memory, past the caches) pay where every
// store fills a whole 64-byte line or half of one, and the line's other
// half follows at once: the 64-byte vectors of the AVX-512 targets.  With
// 32- and 16-byte vectors (several partial lines open at a time, one per
// plane) they measured slower than cached stores.
inline constexpr bool kCanStream = HWY_TARGET <= HWY_AVX3;

// A destination layout written with streaming stores; the row driver only
// uses it on steps whose every store is aligned.
template <class L>
struct Streamed : L {};

// Three interleaved vectors of bytes, streamed: interleaved on the stack
// (whole vectors, so the loads forward from the stores), then out.
template <class D>
HWY_INLINE void StreamInterleaved3(hn::Vec<D> a, hn::Vec<D> b, hn::Vec<D> c, D d, uint8_t* p) {
  constexpr size_t kMax = hn::MaxLanes(D());
  alignas(64) uint8_t t[3 * kMax];
  hn::StoreInterleaved3(a, b, c, d, t);
  const size_t n = hn::Lanes(d);
  for (size_t i = 0; i < 3; ++i) hn::Stream(hn::Load(d, t + i * n), d, p + i * n);
}
template <class D>
HWY_INLINE void StreamInterleaved4(hn::Vec<D> a, hn::Vec<D> b, hn::Vec<D> c, hn::Vec<D> k, D d,
                                   uint8_t* p) {
  constexpr size_t kMax = hn::MaxLanes(D());
  alignas(64) uint8_t t[4 * kMax];
  hn::StoreInterleaved4(a, b, c, k, d, t);
  const size_t n = hn::Lanes(d);
  for (size_t i = 0; i < 4; ++i) hn::Stream(hn::Load(d, t + i * n), d, p + i * n);
}

template <int kBpp, int kR, int kB>
HWY_INLINE void Store(Streamed<Packed8<kBpp, kR, kB>>, const Rows& rows, int x, const Pix& p) {
  const D8 d8;
  const V8 r = Narrow(p.a), g = Narrow(p.b), b = Narrow(p.c);
  if constexpr (kBpp == 3) {
    StreamInterleaved3(kR == 0 ? r : b, g, kR == 0 ? b : r, d8, rows.d[0] + 3 * ptrdiff_t(x));
  } else {
    StreamInterleaved4(kR == 0 ? r : b, g, kR == 0 ? b : r, hn::Set(d8, rows.aval), d8,
                       rows.d[0] + 4 * ptrdiff_t(x));
  }
}
template <int kBpp, int kR, int kB>
HWY_INLINE void StoreBytes(Streamed<Packed8<kBpp, kR, kB>>, const Rows& rows, int x, VB r, VB g,
                           VB b) {
  const DB db;
  if constexpr (kBpp == 3) {
    StreamInterleaved3(kR == 0 ? r : b, g, kR == 0 ? b : r, db, rows.d[0] + 3 * ptrdiff_t(x));
  } else {
    StreamInterleaved4(kR == 0 ? r : b, g, kR == 0 ? b : r, hn::Set(db, rows.aval), db,
                       rows.d[0] + 4 * ptrdiff_t(x));
  }
}
template <int kBpp, int kR, int kB>
HWY_INLINE void StoreWide(Streamed<Packed8<kBpp, kR, kB>>, const Rows& rows, int x,
                          const WPix& p) {
  const DB db;
  const VB r = Rezip(p.lo.a, p.hi.a), g = Rezip(p.lo.b, p.hi.b), b = Rezip(p.lo.c, p.hi.c);
  if constexpr (kBpp == 3) {
    StreamInterleaved3(kR == 0 ? r : b, g, kR == 0 ? b : r, db, rows.d[0] + 3 * ptrdiff_t(x));
  } else {
    StreamInterleaved4(kR == 0 ? r : b, g, kR == 0 ? b : r, hn::Set(db, rows.aval), db,
                       rows.d[0] + 4 * ptrdiff_t(x));
  }
}
template <int kN>
HWY_INLINE void StoreWide(Streamed<Planes<kN, 1, 1>>, const Rows& rows, int x, const WPix& p) {
  const DB db;
  hn::Stream(Rezip(p.lo.a, p.hi.a), db, rows.d[0] + x);
  hn::Stream(Rezip(p.lo.b, p.hi.b), db, rows.d[1] + x);
  hn::Stream(Rezip(p.lo.c, p.hi.c), db, rows.d[2] + x);
  if constexpr (kN == 4) hn::Stream(Rezip(p.lo.k, p.hi.k), db, rows.d[3] + x);
}

// Destinations with a streamed form, and their bytes per pixel.
template <class L>
inline constexpr int kStreamBpp = 0;
template <int kBpp, int kR, int kB>
inline constexpr int kStreamBpp<Packed8<kBpp, kR, kB>> = kBpp;
template <int kN>
inline constexpr int kStreamBpp<Planes<kN, 1, 1>> = 1;
// A packed destination is a single stream of consecutive vectors, so with
// the 32-byte vectors of AVX2 each line fills by two stores in a row.  That
// measured faster for the row pairs from 4:2:0 planes (4K frame, thread CPU
// 0.81x -> 0.95x memcpy), no better for the single rows of the other
// members, which keep cached stores there.
template <class Dst>
inline constexpr bool kCanStreamTo =
    kCanStream || (HWY_TARGET == HWY_AVX2 && kStreamBpp<Dst> >= 3);

// The first column x in [x0, x0 + unit) (even when kEven) at which every
// destination plane of L starts on a multiple of `unit` bytes, or -1.
template <class L>
HWY_INLINE int StreamStart(const Rows& r, int x0, int unit, bool even) {
  for (int x = x0; x < x0 + unit; ++x) {
    if (even && (x & 1)) continue;
    bool ok = true;
    for (int i = 0; i < L::kPlanes; ++i) {
      ok = ok && (reinterpret_cast<uintptr_t>(r.d[i] + kStreamBpp<L> * ptrdiff_t(x)) &
                  uintptr_t(unit - 1)) == 0;
    }
    if (ok) return x;
  }
  return -1;
}

// Layouts with a wide path (16-bit words and packed 4:2:2 keep N pixels
// per step: their lanes arrive in pixel order).
template <class L>
inline constexpr bool kWideIn = requires(const Rows& r) {
  LoadWide(L{}, r, 0);
};
template <class L>
inline constexpr bool kWideOut = requires(const Rows& r, const WPix& p) {
  StoreWide(L{}, r, 0, p);
};

// ------------------------------------------------------------ arithmetics

HWY_INLINE Pix Apply(Fwd15, const Pix& p) {
  const Pair rg = Zip(p.a, p.b), b1 = Zip(p.c, K16(1));
  return {Dot3<15>(rg, 9798, 19235, b1, 3736, 16266),
          Dot3<15>(rg, -5529, -10855, b1, 16384, 4210688),
          Dot3<15>(rg, 16384, -13720, b1, -2664, 4210704), p.k};
}
HWY_INLINE Pix Apply(Fwd14, const Pix& p) {
  const Pair rg = Zip(p.a, p.b), b1 = Zip(p.c, K16(1));
  return {Dot3<14>(rg, 4899, 9617, b1, 1868, 8192), Dot3<14>(rg, -2764, -5428, b1, 8192, 2105344),
          Dot3<14>(rg, 8192, -6860, b1, -1332, 2105344), p.k};
}
HWY_INLINE Pix Apply(FwdDiffChroma, const Pix& p) {
  // 38470 does not fit a signed 16-bit weight, nor 32768 the rounding one:
  // G and the constant lane are doubled instead.
  const Pair rg2 = Zip(p.a, hn::Add(p.b, p.b)), b2 = Zip(p.c, K16(2));
  const V32 zero = hn::Zero(D32());
  const V16 w0 = Weights(19595, 19235), w1 = Weights(7471, 16384);
  const V16 y =
      Pack<16>(Madd(b2.lo, w1, Madd(rg2.lo, w0, zero)), Madd(b2.hi, w1, Madd(rg2.hi, w0, zero)));
  return {y, Dot1<15>(Zip(hn::Sub(p.c, y), K16(1)), 18491, 4210688),
          Dot1<15>(Zip(hn::Sub(p.a, y), K16(1)), 23373, 4210688), p.k};
}
HWY_INLINE Pix Apply(Luma15, const Pix& p) {
  const V16 y = Dot3<15>(Zip(p.a, p.b), 9798, 19235, Zip(p.c, K16(1)), 3736, 16266);
  return {y, y, y, y};
}
HWY_INLINE Pix Apply(LumaFloat, const Pix& p) {
  const D16 d;
  const D32 d32;
  const hn::Repartition<float, D16> df;
  const hn::Half<D16> dh;
  using VH = hn::Vec<decltype(dh)>;
  auto luma = [&](VH r, VH g, VH b) RVT_COLOR_INLINE {
    const auto s0 = hn::Mul(hn::Set(df, LumaFloat::kR), hn::ConvertTo(df, hn::PromoteTo(d32, r)));
    const auto s1 = hn::Mul(hn::Set(df, LumaFloat::kG), hn::ConvertTo(df, hn::PromoteTo(d32, g)));
    const auto s2 = hn::Mul(hn::Set(df, LumaFloat::kB), hn::ConvertTo(df, hn::PromoteTo(d32, b)));
    return hn::DemoteTo(dh, hn::NearestInt(hn::Add(hn::Add(s0, s1), s2)));
  };
  const auto lo = luma(hn::LowerHalf(dh, p.a), hn::LowerHalf(dh, p.b), hn::LowerHalf(dh, p.c));
  const auto hi = luma(hn::UpperHalf(dh, p.a), hn::UpperHalf(dh, p.b), hn::UpperHalf(dh, p.c));
  const V16 y = hn::Combine(d, hi, lo);
  return {y, y, y, y};
}

// The constants of FwdHighHalf.  The row loops build them once, Opaque,
// outside their loops (GCC otherwise rebuilds each from an immediate on
// every step); Apply builds them plain.
struct HalfK {
  VU16 wr, wg, wb, round, cbr, cbg, crg, crb;
  V16 offset;
  hn::Vec<hn::RebindToSigned<DB>> ones;
  template <class Wrap>
  explicit HalfK(Wrap wrap)
      : wr(wrap(hn::Set(DU16(), 4899))), wg(wrap(hn::Set(DU16(), 9617))),
        wb(wrap(hn::Set(DU16(), 1868))), round(wrap(hn::Set(DU16(), 32))),
        cbr(wrap(hn::Set(DU16(), 2765))), cbg(wrap(hn::Set(DU16(), 5427))),
        crg(wrap(hn::Set(DU16(), 6860))), crb(wrap(hn::Set(DU16(), 1332))),
        offset(wrap(K16(4112))), ones(wrap(hn::Set(hn::RebindToSigned<DB>(), 1))) {}
};
struct Plain {
  template <class V>
  V operator()(V v) const {
    return v;
  }
};
struct Hidden {
  template <class V>
  V operator()(V v) const {
    return Opaque(v);
  }
};

// FwdHighHalf luma at scale 64 from samples placed as s*256: floor(s*w/256) per
// weight, unsigned saturating.
HWY_INLINE VU16 HighHalfLuma(const HalfK& k, VU16 r, VU16 g, VU16 b) {
  const VU16 sum = hn::SaturatedAdd(hn::SaturatedAdd(hn::MulHigh(r, k.wr), hn::MulHigh(g, k.wg)),
                                    hn::MulHigh(b, k.wb));
  return hn::ShiftRight<6>(hn::SaturatedAdd(sum, k.round));
}
// FwdHighHalf chroma at scale 32 from group sums already placed as S*(128/n).
HWY_INLINE void HighHalfChroma(const HalfK& k, VU16 r, VU16 g, VU16 b, V16& cb, V16& cr) {
  const D16 di;
  auto term = [&](VU16 s, VU16 w) RVT_COLOR_INLINE { return hn::BitCast(di, hn::MulHigh(s, w)); };
  // hi(s * 8192) is s >> 3.
  auto eighth = [&](VU16 s) RVT_COLOR_INLINE { return hn::BitCast(di, hn::ShiftRight<3>(s)); };
  cb = hn::ShiftRight<5>(hn::SaturatedSub(
      hn::SaturatedSub(hn::SaturatedAdd(k.offset, eighth(b)), term(r, k.cbr)), term(g, k.cbg)));
  cr = hn::ShiftRight<5>(hn::SaturatedSub(
      hn::SaturatedSub(hn::SaturatedAdd(k.offset, eighth(r)), term(g, k.crg)), term(b, k.crb)));
}
// The generic forms, for any vector size (the MCU kernels use them).
template <class D>
HWY_INLINE hn::Vec<D> HighHalfLuma(D du, hn::Vec<D> r, hn::Vec<D> g, hn::Vec<D> b) {
  auto term = [&](hn::Vec<D> s, int w)
                  RVT_COLOR_INLINE { return hn::MulHigh(s, hn::Set(du, uint16_t(w))); };
  const auto sum = hn::SaturatedAdd(hn::SaturatedAdd(term(r, 4899), term(g, 9617)), term(b, 1868));
  return hn::ShiftRight<6>(hn::SaturatedAdd(sum, hn::Set(du, 32)));
}
template <class D>
HWY_INLINE void HighHalfChroma(D du, hn::Vec<D> r, hn::Vec<D> g, hn::Vec<D> b,
                               hn::Vec<hn::RebindToSigned<D>>& cb,
                               hn::Vec<hn::RebindToSigned<D>>& cr) {
  const hn::RebindToSigned<D> di;
  auto term = [&](hn::Vec<D> s, int w) RVT_COLOR_INLINE {
    return hn::BitCast(di, hn::MulHigh(s, hn::Set(du, uint16_t(w))));
  };
  auto eighth = [&](hn::Vec<D> s)
                    RVT_COLOR_INLINE { return hn::BitCast(di, hn::ShiftRight<3>(s)); };
  const auto offset = hn::Set(di, int16_t(4112));
  cb = hn::ShiftRight<5>(hn::SaturatedSub(
      hn::SaturatedSub(hn::SaturatedAdd(offset, eighth(b)), term(r, 2765)), term(g, 5427)));
  cr = hn::ShiftRight<5>(hn::SaturatedSub(
      hn::SaturatedSub(hn::SaturatedAdd(offset, eighth(r)), term(g, 6860)), term(b, 1332)));
}
HWY_INLINE Pix Apply(FwdHighHalf, const Pix& p) {
  const DU16 du;
  const VU16 r = hn::BitCast(du, p.a), g = hn::BitCast(du, p.b), b = hn::BitCast(du, p.c);
  const HalfK k{Plain()};
  Pix o;
  o.a = hn::BitCast(
      D16(), HighHalfLuma(k, hn::ShiftLeft<8>(r), hn::ShiftLeft<8>(g), hn::ShiftLeft<8>(b)));
  HighHalfChroma(k, hn::ShiftLeft<7>(r), hn::ShiftLeft<7>(g), hn::ShiftLeft<7>(b), o.b, o.c);
  o.k = p.k;
  return o;
}

HWY_INLINE Pix Apply(InvAdditiveSat, const Pix& p) {
  const V16 one = K16(1);
  const V16 r = Dot1<14>(Zip(p.c, one), 22970, -2932015);
  const V16 g = Dot2<14>(Zip(p.b, p.c), -5638, -11700, 2227566);
  const V16 b = Dot1<14>(Zip(p.b, one), 29032, -3707961);
  return {hn::SaturatedAdd(p.a, r), hn::SaturatedAdd(p.a, g), hn::SaturatedAdd(p.a, b), p.k};
}
HWY_INLINE Pix Apply(InvSubtractive, const Pix& p) {
  const V16 one = K16(1);
  const V16 r = Dot1<14>(Zip(p.c, one), 22970, -2932015);
  const V16 g = Dot2<14>(Zip(p.b, p.c), 5638, 11700, -2211182);
  const V16 b = Dot1<14>(Zip(p.b, one), 29032, -3708561);
  return {hn::SaturatedAdd(p.a, r), hn::SaturatedSub(p.a, g), hn::SaturatedAdd(p.a, b), p.k};
}
HWY_INLINE Pix Apply(InvHighHalf16, const Pix& p) {
  const V16 y16 = hn::ShiftLeft<4>(p.a), cb7 = hn::ShiftLeft<7>(p.b), cr7 = hn::ShiftLeft<7>(p.c);
  const V16 r = hn::SaturatedAdd(
      hn::SaturatedSub(hn::SaturatedAdd(y16, hn::MulHigh(cr7, K16(11485))), K16(2871)), K16(8));
  const V16 t = hn::SaturatedAdd(hn::MulHigh(cb7, K16(2819)), hn::MulHigh(cr7, K16(5850)));
  const V16 g = hn::SaturatedAdd(hn::SaturatedSub(hn::SaturatedAdd(y16, K16(2167)), t), K16(8));
  const V16 b = hn::SaturatedAdd(
      hn::SaturatedSub(hn::SaturatedAdd(y16, hn::MulHigh(cb7, K16(14516))), K16(3629)), K16(8));
  return {hn::ShiftRight<4>(r), hn::ShiftRight<4>(g), hn::ShiftRight<4>(b), p.k};
}
HWY_INLINE Pix Apply(Inv422Packed, const Pix& p) {
  // Every sum here stays far inside 16 bits, so plain adds are exact.
  const V16 cb7 = hn::ShiftLeft<7>(p.b), cr7 = hn::ShiftLeft<7>(p.c);
  const V16 r = hn::ShiftRight<5>(hn::MulHigh(cr7, K16(22970)));
  const V16 g = hn::ShiftRight<5>(
      hn::SaturatedAdd(hn::MulHigh(cr7, K16(-11700)), hn::MulHigh(cb7, K16(-5638))));
  const V16 b = hn::ShiftRight<5>(hn::MulHigh(cb7, K16(29032)));
  return {hn::Add(p.a, hn::Sub(r, K16(179))), hn::Add(p.a, hn::Add(g, K16(135))),
          hn::Add(p.a, hn::Sub(b, K16(226))), p.k};
}

// ------------------------------------------------------------ rows

HWY_INLINE int Lanes() { return int(hn::Lanes(D16())); }

// body(x) on steps of n pixels covering [x0, x1) when it holds at least
// one step; returns the first column left over.
template <class Body>
HWY_INLINE int Steps(int n, int x0, int x1, Body body) {
  if (x1 - x0 < n) return x0;
  int x = x0;
  for (; x + n <= x1; x += n) body(x);
  if (x < x1) body(x1 - n);
  return x1;
}

template <class Src, class Arith, class Dst>
HWY_INLINE void Pixels(const Rows& r, int x) {
  Store(Dst{}, r, x, Apply(Arith{}, Load(Src{}, r, x)));
}
template <class Src, class Arith, class Dst>
HWY_INLINE void PixelsWide(const Rows& r, int x) {
  const WPix in = LoadWide(Src{}, r, x);
  StoreWide(Dst{}, r, x, WPix{Apply(Arith{}, in.lo), Apply(Arith{}, in.hi)});
}

// InvHighHalf16 from 4:2:2 / 4:2:0 planes, 2N pixels from x (even).  The
// chroma terms depend on the pair only, so they are formed once per pair.
// With byte inputs no partial sum of InvHighHalf16 comes near 16 bits
// (|sum| < 12000), so its constants fold and the luma term leaves the
// shift: R = clamp(Y + ((hi(Cr*128*11485) - 2863) >> 4)), G = clamp(Y +
// ((2175 - t) >> 4)), B = clamp(Y + ((hi(Cb*128*14516) - 3621) >> 4)).  Each
// chroma term d (|d| < 256) splits into max(d, 0) and max(-d, 0), whose low
// bytes one byte shuffle doubles for the two pixels of the pair (the 16-bit
// lane of pair i is bytes 2i, 2i + 1: pixel order), so the luma never leaves
// its bytes: clamp(Y + d) = (Y +sat max(d, 0)) -sat max(-d, 0).  The
// constants live in a PairsK built once per span, outside the loops, and
// Opaque.
struct PairsK {
  V16 kr, kgb, kgr, kb, cr, cg, cb;
  VB dup;
  PairsK()
      : kr(Opaque(K16(11485))), kgb(Opaque(K16(2819))), kgr(Opaque(K16(5850))),
        kb(Opaque(K16(14516))), cr(Opaque(K16(2863))), cg(Opaque(K16(2175))),
        cb(Opaque(K16(3621))) {
    alignas(16) static constexpr uint8_t kDup[16] = {0, 0, 2, 2, 4, 4, 6, 6,
                                                     8, 8, 10, 10, 12, 12, 14, 14};
    dup = Opaque(hn::LoadDup128(DB(), kDup));
  }
};
// The doubled terms of N pairs from column x (even): what each channel
// adds to and subtracts from the luma bytes.
struct PairTerms {
  VB add[3], sub[3];
};
HWY_INLINE PairTerms PairTermsAt(const Rows& r, int x, const PairsK& k) {
  const DB db;
  const V16 cb7 = hn::ShiftLeft<7>(Widen(hn::LoadU(D8(), r.s[1] + x / 2)));
  const V16 cr7 = hn::ShiftLeft<7>(Widen(hn::LoadU(D8(), r.s[2] + x / 2)));
  const V16 d[3] = {
      hn::ShiftRight<4>(hn::Sub(hn::MulHigh(cr7, k.kr), k.cr)),
      hn::ShiftRight<4>(hn::Sub(k.cg, hn::Add(hn::MulHigh(cb7, k.kgb), hn::MulHigh(cr7, k.kgr)))),
      hn::ShiftRight<4>(hn::Sub(hn::MulHigh(cb7, k.kb), k.cb))};
  PairTerms t;
  for (int c = 0; c < 3; ++c) {
    const V16 up = hn::Max(d[c], hn::Zero(D16()));
    t.add[c] = hn::TableLookupBytes(hn::BitCast(db, up), k.dup);
    t.sub[c] = hn::TableLookupBytes(hn::BitCast(db, hn::Sub(up, d[c])), k.dup);
  }
  return t;
}
// 2N pixels of row r (luma s[0], pixels d[0]) from x with the terms t.
template <class Dst>
HWY_INLINE void ApplyPairTerms(const Rows& r, int x, const PairTerms& t) {
  const VB y = hn::LoadU(DB(), r.s[0] + x);
  auto at = [&](int c)
                RVT_COLOR_INLINE { return hn::SaturatedSub(hn::SaturatedAdd(y, t.add[c]), t.sub[c]); };
  StoreBytes(Dst{}, r, x, at(0), at(1), at(2));
}
template <class Dst>
HWY_INLINE void InvHighHalf16PairsWide(const Rows& r, int x, const PairsK& k) {
  ApplyPairTerms<Dst>(r, x, PairTermsAt(r, x, k));
}

// Inv422Packed from packed 4:2:2 (Y0 Cb Y1 Cr per pair), 2N pixels from x
// (even): the luma bytes gathered in pixel order, the chroma terms formed
// once per pair and applied to the luma bytes as in PairTermsAt (here
// |d| < 256 as well: R -179..178, G -135..135, B -226..225), so the pixels
// never leave their bytes.
struct C2K {
  V16 kr, kgr, kgb, kb, cr, cg, cb;
  VB dup;
  C2K()
      : kr(Opaque(K16(22970))), kgr(Opaque(K16(-11700))), kgb(Opaque(K16(-5638))),
        kb(Opaque(K16(29032))), cr(Opaque(K16(179))), cg(Opaque(K16(135))),
        cb(Opaque(K16(226))) {
    alignas(16) static constexpr uint8_t kDup[16] = {0, 0, 2, 2, 4, 4, 6, 6,
                                                     8, 8, 10, 10, 12, 12, 14, 14};
    dup = Opaque(hn::LoadDup128(DB(), kDup));
  }
};
template <class Dst>
HWY_INLINE void C2PairsWide(const Rows& r, int x, const C2K& k) {
  const DB db;
  const DU16 du;
  const uint8_t* p = r.s[0] + 2 * ptrdiff_t(x);
  const VB b0 = hn::LoadU(db, p), b1 = hn::LoadU(db, p + hn::Lanes(db));
  const VB y = hn::ConcatEven(db, b1, b0);
  const VU16 c0 = hn::ShiftRight<8>(hn::BitCast(du, b0)), c1 = hn::ShiftRight<8>(hn::BitCast(du, b1));
  const V16 cb7 = hn::ShiftLeft<7>(hn::BitCast(D16(), hn::ConcatEven(du, c1, c0)));
  const V16 cr7 = hn::ShiftLeft<7>(hn::BitCast(D16(), hn::ConcatOdd(du, c1, c0)));
  const V16 d[3] = {
      hn::Sub(hn::ShiftRight<5>(hn::MulHigh(cr7, k.kr)), k.cr),
      hn::Add(hn::ShiftRight<5>(
                  hn::SaturatedAdd(hn::MulHigh(cr7, k.kgr), hn::MulHigh(cb7, k.kgb))),
              k.cg),
      hn::Sub(hn::ShiftRight<5>(hn::MulHigh(cb7, k.kb)), k.cb)};
  VB at[3];
  for (int c = 0; c < 3; ++c) {
    const V16 up = hn::Max(d[c], hn::Zero(D16()));
    const VB add = hn::TableLookupBytes(hn::BitCast(db, up), k.dup);
    const VB sub = hn::TableLookupBytes(hn::BitCast(db, hn::Sub(up, d[c])), k.dup);
    at[c] = hn::SaturatedSub(hn::SaturatedAdd(y, add), sub);
  }
  StoreBytes(Dst{}, r, x, at[0], at[1], at[2]);
}
template <class Src, class Arith, class Dst>
inline constexpr bool kC2Span = std::is_same_v<Src, YccC2> && std::is_same_v<Arith, Inv422Packed> &&
                                kStreamBpp<Dst> == 3;

// Pixels [x0, x1): 2N at a time where the layouts allow, else N at a time,
// and what is left by the scalar kernel.
template <class Src, class Arith, class Dst>
HWY_INLINE void Span(const Rows& r, int x0, int x1) {
  int done = x0;
  if constexpr (std::is_same_v<Arith, InvHighHalf16> &&
                (std::is_same_v<Src, Ycc422> || std::is_same_v<Src, Ycc411>)) {
    const PairsK k;
    done = Steps(2 * Lanes(), x0, x1,
                 [&](int x) RVT_COLOR_INLINE { InvHighHalf16PairsWide<Dst>(r, x, k); });
  } else if constexpr (kC2Span<Src, Arith, Dst>) {
    const C2K k;
    done = Steps(2 * Lanes(), x0, x1, [&](int x) RVT_COLOR_INLINE { C2PairsWide<Dst>(r, x, k); });
  } else if constexpr (kWideIn<Src> && kWideOut<Dst>) {
    done = Steps(2 * Lanes(), x0, x1,
                 [&](int x) RVT_COLOR_INLINE { PixelsWide<Src, Arith, Dst>(r, x); });
  }
  if (done == x0)
    done = Steps(Lanes(), x0, x1, [&](int x) RVT_COLOR_INLINE { Pixels<Src, Arith, Dst>(r, x); });
  PixelsRef<Src, Arith, Dst>(r, done, x1);
}

// Span with streaming stores: one cached step at x0 up to the first column
// where every store of a step is aligned, streamed steps from there, and a
// cached last step moved back to end at x1.  Falls back to Span when the
// destination planes cannot all be aligned at once or the span is short.
template <class Src, class Arith, class Dst>
inline constexpr bool kPairsSpan = std::is_same_v<Arith, InvHighHalf16> &&
                                   (std::is_same_v<Src, Ycc422> || std::is_same_v<Src, Ycc411>);
template <class Src, class Arith, class Dst>
inline constexpr bool kWideSpan = kPairsSpan<Src, Arith, Dst> || kC2Span<Src, Arith, Dst> ||
                                  (kWideIn<Src> && kWideOut<Dst>);

template <class Src, class Arith, class Dst>
HWY_INLINE void StreamSpan(const Rows& r, int x0, int x1) {
  constexpr bool kPairs = kPairsSpan<Src, Arith, Dst>;
  constexpr bool kWide = kWideSpan<Src, Arith, Dst>;
  constexpr bool kEven =
      std::is_same_v<Src, Ycc422> || std::is_same_v<Src, Ycc411> || std::is_same_v<Src, YccC2>;
  const int n = kWide ? 2 * Lanes() : Lanes();
  const int unit = int(kWide ? hn::Lanes(DB()) : hn::Lanes(D8()));
  const PairsK k;
  const C2K k2;
  auto step = [&](auto dst, int x) RVT_COLOR_INLINE {
    using L = decltype(dst);
    if constexpr (kPairs) {
      InvHighHalf16PairsWide<L>(r, x, k);
    } else if constexpr (kC2Span<Src, Arith, Dst>) {
      C2PairsWide<L>(r, x, k2);
    } else if constexpr (kWide) {
      PixelsWide<Src, Arith, L>(r, x);
    } else {
      Pixels<Src, Arith, L>(r, x);
    }
  };
  const int xa = StreamStart<Dst>(r, x0, unit, kEven);
  if (xa < 0 || xa + n > x1) return Span<Src, Arith, Dst>(r, x0, x1);
  if (xa > x0) step(Dst{}, x0);
  int x = xa;
  for (; x + n <= x1; x += n) step(Streamed<Dst>{}, x);
  if (x < x1) step(Dst{}, x1 - n);
  hwy::FlushStream();
}

// 4:2:0 to pixels, both rows of a row pair (r0 and r1 = SecondRow(r0))
// over the even columns [0, we), we >= 2N: the terms of each chroma step
// serve both rows.  Streamed from an aligned column when the region asks
// for it and both rows' pixels share their alignment; false (nothing
// written) when they do not, for the rows to go one by one.
template <class Dst>
HWY_INLINE bool PairRows(const Rows& r0, const Rows& r1, int we) {
  const int n = 2 * Lanes();
  const PairsK k;
  auto step = [&](auto dst, int x) RVT_COLOR_INLINE {
    using L = decltype(dst);
    const PairTerms t = PairTermsAt(r0, x, k);
    ApplyPairTerms<L>(r0, x, t);
    ApplyPairTerms<L>(r1, x, t);
  };
  if constexpr (kCanStreamTo<Dst> && kStreamBpp<Dst> != 0) {
    if (r0.stream) {
      const int unit = int(hn::Lanes(DB()));
      const int xa = StreamStart<Dst>(r0, 0, unit, true);
      if (xa < 0 || xa + n > we) return false;
      const auto second = reinterpret_cast<uintptr_t>(r1.d[0] + kStreamBpp<Dst> * ptrdiff_t(xa));
      if (second & uintptr_t(unit - 1)) return false;
      if (xa > 0) step(Dst{}, 0);
      int x = xa;
      for (; x + n <= we; x += n) step(Streamed<Dst>{}, x);
      if (x < we) step(Dst{}, we - n);
      hwy::FlushStream();
      return true;
    }
  }
  Steps(n, 0, we, [&](int x) RVT_COLOR_INLINE { step(Dst{}, x); });
  return true;
}

// Sums of horizontal pixel pairs of a byte vector, as 16-bit lanes in
// pair order (one multiply-add of the bytes by 1).
HWY_INLINE VU16 PairSums(VB v, const HalfK& k) {
  return hn::BitCast(DU16(), ops::MulAddPairs(D16(), v, k.ones));
}

template <class V>
HWY_INLINE auto PairSums(V v) {
  const hn::DFromV<V> d8;
  const hn::Repartition<int16_t, decltype(d8)> d16;
  const hn::RebindToUnsigned<decltype(d16)> du16;
  const auto ones = hn::BitCast(hn::RebindToSigned<decltype(d8)>(), hn::Set(d8, 1));
  return hn::BitCast(du16, ops::MulAddPairs(d16, v, ones));
}

// Luma of 2N pixels of one row from x, stored (streamed when kStream);
// returns the pair sums of the three channels.
template <class Src, bool kStream>
HWY_INLINE void LumaAndPairs(const uint8_t* src, uint8_t* y, int x, VU16 sums[3],
                              const HalfK& k) {
  const DU16 du;
  VB r8, g8, b8;
  LoadWideBytes(Src{}, src, x, r8, g8, b8);
  // Bytes widened into the high half of each lane: s*256, in Unzip's order.
  const VB zero = hn::Zero(DB());
  auto luma = [&](auto zip) RVT_COLOR_INLINE {
    return hn::BitCast(D16(),
                       HighHalfLuma(k, zip(du, zero, r8), zip(du, zero, g8), zip(du, zero, b8)));
  };
  const V16 lo = luma([](auto d, VB a, VB b) RVT_COLOR_INLINE { return hn::ZipLower(d, a, b); });
  const V16 hi = luma([](auto d, VB a, VB b) RVT_COLOR_INLINE { return hn::ZipUpper(d, a, b); });
  if constexpr (kStream) {
    hn::Stream(Rezip(lo, hi), DB(), y + x);
  } else {
    Put(Rezip(lo, hi), y + x);
  }
  sums[0] = PairSums(r8, k), sums[1] = PairSums(g8, k), sums[2] = PairSums(b8, k);
}
// Chroma of N pairs (kLog2n = 1) or 2x2 blocks (kLog2n = 2) from their
// channel sums, stored at column x / 2.
template <int kLog2n, bool kStream>
HWY_INLINE void ChromaOfSums(const Rows& r, int x, const VU16 s[3], const HalfK& k) {
  V16 cb, cr;
  HighHalfChroma(k, hn::ShiftLeft<7 - kLog2n>(s[0]), hn::ShiftLeft<7 - kLog2n>(s[1]),
                 hn::ShiftLeft<7 - kLog2n>(s[2]), cb, cr);
  if constexpr (kStream) {
    hn::Stream(Narrow(cb), D8(), r.d[1] + x / 2);
    hn::Stream(Narrow(cr), D8(), r.d[2] + x / 2);
  } else {
    hn::StoreU(Narrow(cb), D8(), r.d[1] + x / 2);
    hn::StoreU(Narrow(cr), D8(), r.d[2] + x / 2);
  }
}

// 411 / 422 forward over the even columns [x0, x1), x1 - x0 >= 2N, in
// steps of 2N from x0, the last one moved back to end at x1 (streamed steps
// get whole steps only).  With two rows the columns go in chunks, first
// through row 0 (pair sums parked on the stack), then through row 1: the
// two source rows then alternate every few kilobytes rather than every
// vector, which the memory system handles much better.
template <class Src, bool kStream>
HWY_INLINE void Subsampled(const Rows& r, int x0, int x1) {
  const int n2 = 2 * Lanes();
  const HalfK k{Hidden()};
  if (r.rows == 1) {
    for (int x = x0; x < x1; x += n2) {
      const int at = std::min(x, x1 - n2);
      VU16 s[3];
      LumaAndPairs<Src, kStream>(r.s[0], r.d[0], at, s, k);
      ChromaOfSums<1, kStream && kCanStream>(r, at, s, k);
    }
    return;
  }
  constexpr int kChunk = 4096;  // 12 KB of parked sums on every target
  constexpr int kMaxSteps = kChunk / (2 * int(hn::MaxLanes(D16()))) + 1;
  VU16 parked[kMaxSteps][3];
  for (int c0 = x0; c0 < x1; c0 += kChunk) {
    const int c1 = std::min(c0 + kChunk, x1);
    for (int x = c0, i = 0; x < c1; x += n2, ++i) {
      LumaAndPairs<Src, kStream>(r.s[0], r.d[0], std::min(x, c1 - n2), parked[i], k);
    }
    for (int x = c0, i = 0; x < c1; x += n2, ++i) {
      const int at = std::min(x, c1 - n2);
      VU16 s[3];
      LumaAndPairs<Src, kStream>(r.s[1], r.d[3], at, s, k);
      for (int c = 0; c < 3; ++c) s[c] = hn::Add(s[c], parked[i][c]);
      ChromaOfSums<2, kStream && kCanStream>(r, at, s, k);
    }
  }
}

// The first even column in [0, 2N) where the luma rows start on whole
// vectors and the chroma rows on half vectors, or -1.
HWY_INLINE int SubsampledStreamStart(const Rows& r) {
  const uintptr_t full = hn::Lanes(DB()) - 1, half = hn::Lanes(D8()) - 1;
  for (int x = 0; x < 2 * Lanes(); x += 2) {
    auto at = [&](const uint8_t* p, ptrdiff_t o) { return reinterpret_cast<uintptr_t>(p + o); };
    if ((at(r.d[0], x) & full) || (at(r.d[1], x / 2) & half) || (at(r.d[2], x / 2) & half))
      continue;
    if (r.rows == 2 && (at(r.d[3], x) & full)) continue;
    return x;
  }
  return -1;
}

// The forward 411 / 422 row over [0, we): streamed in whole steps from an
// aligned column when the region asks for it, cached at both ends.  AVX2
// streams the luma of 4:2:0 row pairs only (two 32-byte stores fill each
// line; the half-vector chroma stores stay cached): on the 4K frame that
// measured 0.64x -> 0.70x memcpy for row pairs, and slower (0.77x -> 0.67x)
// for the single rows of 4:2:2, which stay cached.
template <class Src>
HWY_INLINE void SubsampledRow(const Rows& r, int we) {
  const int n2 = 2 * Lanes();
  if constexpr (kCanStream || HWY_TARGET == HWY_AVX2) {
    const bool pairs_only = !kCanStream;
    const int s = r.stream && (r.rows == 2 || !pairs_only) ? SubsampledStreamStart(r) : -1;
    if (s >= 0 && s + n2 <= we) {
      if (s > 0) Subsampled<Src, false>(r, 0, n2);
      const int e = s + (we - s) / n2 * n2;
      Subsampled<Src, true>(r, s, e);
      if (e < we) Subsampled<Src, false>(r, we - n2, we);
      hwy::FlushStream();
      return;
    }
  }
  Subsampled<Src, false>(r, 0, we);
}

// Span, streamed when the region asks for it and the destination can be.
template <class Src, class Arith, class Dst>
HWY_INLINE void RowSpan(const Rows& r, int x0, int x1) {
  // Whole vectors per plane only (the N-pixel steps store half vectors).
  if constexpr (kCanStream && kStreamBpp<Dst> != 0 && kWideSpan<Src, Arith, Dst>) {
    if (r.stream) return StreamSpan<Src, Arith, Dst>(r, x0, x1);
  }
  Span<Src, Arith, Dst>(r, x0, x1);
}

// The vector row of a member.
template <class M>
void Row(const Rows& r, int w) {
  using Src = typename M::Src;
  using Arith = typename M::Arith;
  using Dst = typename M::Dst;
  if constexpr (std::is_same_v<Arith, Fwd15Groups8>) {
    const int groups = Fwd15Columns(w);
    RowSpan<Src, Fwd15, Dst>(r, 0, groups);
    PixelsRef<Src, Fwd14, Dst>(r, groups, w);
  } else if constexpr (kSubsampledFwd<M>) {
    const int we = w & ~1;
    if (we >= 2 * Lanes()) {
      SubsampledRow<Src>(r, we);
      SubsampledRef<Src>(r, we, w);
    } else {
      SubsampledRef<Src>(r, 0, w);
    }
  } else if constexpr (M::kInvRowPairs) {
    const int we = w & ~1;
    const Rows r1 = SecondRow(r);
    if (r.rows == 2 && we >= 2 * Lanes() && PairRows<Dst>(r, r1, we)) {
      PixelsRef<Src, Arith, Dst>(r, we, w);
      PixelsRef<Src, Arith, Dst>(r1, we, w);
      return;
    }
    RowSpan<Src, Arith, Dst>(r, 0, we);
    PixelsRef<Src, Arith, Dst>(r, we, w);
    if (r.rows == 2) {
      RowSpan<Src, Arith, Dst>(r1, 0, we);
      PixelsRef<Src, Arith, Dst>(r1, we, w);
    }
  } else if constexpr (std::is_same_v<Src, Ycc422> || std::is_same_v<Src, Ycc411> ||
                       std::is_same_v<Src, YccC2>) {
    // Steps start on even columns so that each meets whole chroma pairs.
    RowSpan<Src, Arith, Dst>(r, 0, w & ~1);
    PixelsRef<Src, Arith, Dst>(r, w & ~1, w);
  } else {
    RowSpan<Src, Arith, Dst>(r, 0, w);
  }
}

// The per-target entry of a member: its driver running the vector row.
template <class M>
using Entry = Driver<M, &Row<M>>;

}  // namespace rvt::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_COLOR_INL_H_
