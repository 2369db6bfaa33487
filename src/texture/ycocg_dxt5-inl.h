// Scaled YCoCg in DXT5 blocks: the vector decoder row and the encoder's
// kernels of one target.  No checks here.  Decoding: the DXT5 palette and
// indices come from the DXT5 kernels (one block per 128-bit block); each
// pixel row is then transformed in 32-bit lanes, one pixel per lane.  The quotients are taken in single
// precision, where every numerator (below 2^13), divisor (at most 526) and
// product of a quotient and divisor is exact: one reciprocal per pixel, a
// floor of the product, and a correction by the remainder give the integer
// reference's floor.  Blocks past the last whole group take the reference.
#if defined(RVT_TEXTURE_YCOCG_DXT5_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_TEXTURE_YCOCG_DXT5_INL_H_
#undef RVT_TEXTURE_YCOCG_DXT5_INL_H_
#else
#define RVT_TEXTURE_YCOCG_DXT5_INL_H_
#endif

#include <hwy/highway.h>

#include "texture/bc_decode-inl.h"
#include "texture/bc_encode-inl.h"
#include "texture/ycocg_dxt5.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::ycocg_dxt5::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace bd = ::rvt::bc_decode::HWY_NAMESPACE;

using D8 = hn::ScalableTag<uint8_t>;
using DI32 = hn::ScalableTag<int32_t>;
using DF = hn::ScalableTag<float>;
using V8 = hn::Vec<D8>;
using VI = hn::Vec<DI32>;

// Pixels (r, g, b, Y) to (R, G, B, 255), as ToRgb.
HWY_INLINE V8 ToRgb(V8 px) {
  const DI32 di;
  const DF df;
  const VI p = hn::BitCast(di, px);
  const VI byte = hn::Set(di, 0xFF);
  const VI co = hn::Sub(hn::And(p, byte), hn::Set(di, 128));
  const VI cg = hn::Sub(hn::And(hn::ShiftRight<8>(p), byte), hn::Set(di, 128));
  const VI d = hn::Add(hn::And(hn::ShiftRight<16>(p), byte), hn::Set(di, 8));
  const VI y = hn::And(hn::ShiftRight<24>(p), byte);
  const auto den = hn::ConvertTo(df, hn::Add(d, d));
  const auto rcp = hn::Div(hn::Set(df, 1.0f), den);
  const VI lo = hn::Zero(di);
  auto channel = [&](VI n) {
    // The quotient from the reciprocal is within one of the floor; the
    // remainder, exact in single precision, corrects it.
    const auto num = hn::ConvertTo(df, hn::Add(hn::ShiftLeft<4>(n), d));
    auto q = hn::Floor(hn::Mul(num, rcp));
    const auto rem = hn::Sub(num, hn::Mul(q, den));
    q = hn::IfThenElse(hn::Lt(rem, hn::Zero(df)), hn::Sub(q, hn::Set(df, 1.0f)), q);
    q = hn::IfThenElse(hn::Ge(rem, den), hn::Add(q, hn::Set(df, 1.0f)), q);
    return hn::Min(hn::Max(hn::Add(y, hn::ConvertTo(di, q)), lo), byte);
  };
  const VI r = channel(hn::Sub(co, cg));
  const VI g = channel(cg);
  const VI b = channel(hn::Sub(hn::Neg(co), cg));
  const VI rgba = hn::Or(hn::Or(r, hn::ShiftLeft<8>(g)),
                         hn::Or(hn::ShiftLeft<16>(b), hn::Set(di, int32_t(0xFF000000u))));
  return hn::BitCast(D8(), rgba);
}

void Row(const uint8_t* src, uint8_t* dst, int32_t step, int32_t width, int rows) {
  const D8 d8;
  const int64_t n = int64_t(hn::Lanes(d8)) / 16;
  int64_t b = 0;
  for (; (b + n) * 4 <= width; b += n) {
    const V8 v = hn::LoadU(d8, src + 16 * b);
    V8 pal, idx;
    bd::ColourPart<8, false>(v, pal, idx);
    const V8 alpha = bd::ChannelPart<0>(v);
    uint8_t* out = dst + 16 * b;
    for (int r = 0; r < rows; ++r) {
      const V8 px = hn::Or(bd::ColourRow(r, pal, idx),
                           hn::TableLookupBytes(alpha, bd::Rep(d8, bd::kAlphaSel[r])));
      hn::StoreU(ToRgb(px), d8, out + ptrdiff_t(r) * step);
    }
  }
  bc_decode::BlocksRef<YCoCg>(src, dst, step, width, rows, b);
}

// ------------------------------------------------------------ encoding

// SpanOf and ChromaOf in 32-bit lanes, a pixel per lane; the stored
// values by the same conversion, division and sum, each exactly rounded.
using DC32 = hn::CappedTag<int32_t, 16>;

HWY_INLINE void LoadTile(DC32 d, const uint8_t v[3][16], const uint8_t luma[16], size_t i, hn::Vec<DC32>* co,
                         hn::Vec<DC32>* cg) {
  const hn::Rebind<uint8_t, DC32> d8;
  const auto r = hn::PromoteTo(d, hn::LoadU(d8, v[0] + i)), g = hn::PromoteTo(d, hn::LoadU(d8, v[1] + i));
  const auto b = hn::PromoteTo(d, hn::LoadU(d8, v[2] + i)), y = hn::PromoteTo(d, hn::LoadU(d8, luma + i));
  *co = hn::Sub(r, b);
  *cg = hn::Add(hn::Sub(g, hn::Add(r, b)), y);
}

inline int SpanOfTile(const uint8_t v[3][16], const uint8_t luma[16]) {
  const DC32 d;
  auto span = hn::Zero(d);
  for (size_t i = 0; i < 16; i += hn::Lanes(d)) {
    hn::Vec<DC32> co, cg;
    LoadTile(d, v, luma, i, &co, &cg);
    span = hn::Max(span, hn::Max(hn::Abs(hn::Mul(co, hn::Set(d, 6))), hn::Abs(hn::ShiftLeft<2>(cg))));
  }
  return hn::GetLane(hn::MaxOfLanes(d, span));
}

inline void ChromaOfTile(const uint8_t v[3][16], const uint8_t luma[16], int s, Chroma* t) {
  const DC32 d;
  const hn::Rebind<float, DC32> df;
  const hn::Repartition<int16_t, DC32> d16;
  const auto twelve = hn::Set(df, 12.0f), mid = hn::Set(df, 128.0f);
  for (size_t i = 0; i < 16; i += hn::Lanes(d)) {
    hn::Vec<DC32> co, cg;
    LoadTile(d, v, luma, i, &co, &cg);
    co = hn::Mul(co, hn::Set(d, 6 * s)), cg = hn::Mul(cg, hn::Set(d, 4 * s));
    hn::StoreU(co, d, t->co + i);
    hn::StoreU(cg, d, t->cg + i);
    const auto pair = hn::Or(hn::And(co, hn::Set(d, 0xFFFF)), hn::ShiftLeft<16>(cg));
    hn::StoreU(hn::BitCast(d16, pair), d16, t->pair + 2 * i);
    hn::Store(hn::Add(mid, hn::Div(hn::ConvertTo(df, co), twelve)), df, t->x[0] + i);
    hn::Store(hn::Add(mid, hn::Div(hn::ConvertTo(df, cg), twelve)), df, t->x[1] + i);
  }
}

// Eval: the 16 pixels' (co, cg) in 16-bit pairs, every entry's distance
// 2 dco^2 + 3 dcg^2 by one multiply-add of pairs into 32 bits (the
// differences stay within +-9696, three times that within 16 bits, and
// the sum below 2^29).  A lane's running minimum moves only on a strictly
// smaller distance, so the lowest index wins a tie as in the reference.
// The distances of the pixels of one lane (at most four) add up in 32
// unsigned bits, the lanes in 64.
inline Part EvalPart(const Chroma& t, int r0, int g0, int r1, int g1, int blue) {
  const hn::CappedTag<int16_t, 32> d16;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Repartition<uint32_t, decltype(d16)> du;
  constexpr size_t kMaxPixels = 16;
  const size_t n16 = hn::Lanes(d16), n32 = n16 / 2;
  Part p;
  p.c0 = uint16_t(r0 << 11 | g0 << 5 | blue);
  p.c1 = uint16_t(r1 << 11 | g1 << 5 | blue);
  const int er0 = Expand5(r0), er1 = Expand5(r1), eg0 = Expand6(g0), eg1 = Expand6(g1);
  const int pr[4] = {er0, er1, (2 * er0 + er1) / 3, (er0 + 2 * er1) / 3};
  const int pg[4] = {eg0, eg1, (2 * eg0 + eg1) / 3, (eg0 + 2 * eg1) / 3};
  hn::Vec<decltype(d16)> entry[4];
  for (int e = 0; e < 4; ++e) {
    const uint32_t w = uint32_t(uint16_t(12 * (pr[e] - 128))) | uint32_t(12 * (pg[e] - 128)) << 16;
    entry[e] = hn::BitCast(d16, hn::Set(du, w));
  }
  const auto weight = hn::BitCast(d16, hn::Set(du, 2u | 3u << 16));
  auto total = hn::Zero(du), bits = hn::Zero(du);
  auto shift = hn::ShiftLeft<1>(hn::Iota(du, 0));
  const auto step = hn::Set(du, uint32_t(2 * n32));
  for (size_t at = 0; at < 2 * kMaxPixels; at += n16) {
    const auto x = hn::LoadU(d16, t.pair + at);
    auto dist = [&](int e) {
      const auto dx = hn::Sub(entry[e], x);
      auto unused = hn::Zero(d32);
      return hn::ReorderWidenMulAccumulate(d32, dx, hn::Mul(dx, weight), hn::Zero(d32), unused);
    };
    auto best = dist(0);
    auto k = hn::Zero(d32);
    for (int e = 1; e < 4; ++e) {
      const auto d = dist(e);
      const auto less = hn::Lt(d, best);
      best = hn::IfThenElse(less, d, best);
      k = hn::IfThenElse(less, hn::Set(d32, e), k);
    }
    total = hn::Add(total, hn::BitCast(du, best));
    bits = hn::Or(bits, hn::BitCast(du, k) << shift);
    shift = hn::Add(shift, step);
  }
  alignas(64) uint32_t sums[kMaxPixels], words[kMaxPixels];
  hn::Store(total, du, sums);
  hn::Store(bits, du, words);
  int64_t err = 0;
  uint32_t idx = 0;
  for (size_t i = 0; i < n32; ++i) err += sums[i], idx |= words[i];
  p.idx = idx;
  p.err = err;
  return p;
}

// OneValue: the two-thirds entries of every endpoint pair in a table, in
// the reference's order (first endpoint outer); each lane keeps its first
// least square distance to v (the same single-precision difference and
// square), then the least distance over the lanes and, of the lanes at it,
// the earliest pair.
template <int kBits>
struct TwoThirds {
  static constexpr int kMax = (1 << kBits) - 1, kCount = (kMax + 1) * (kMax + 1);
  alignas(64) float v[kCount];
  constexpr TwoThirds() : v() {
    for (int a = 0; a <= kMax; ++a) {
      for (int b = 0; b <= kMax; ++b) {
        const int ea = kBits == 5 ? (a << 3 | a >> 2) : (a << 2 | a >> 4);
        const int eb = kBits == 5 ? (b << 3 | b >> 2) : (b << 2 | b >> 4);
        v[a * (kMax + 1) + b] = float((2 * ea + eb) / 3);
      }
    }
  }
};
inline constexpr TwoThirds<5> kTwoThirds5{};
inline constexpr TwoThirds<6> kTwoThirds6{};

template <int kBits>
HWY_INLINE int NearestPair(float v) {
  const hn::CappedTag<float, 16> df;
  const hn::RebindToSigned<decltype(df)> di;
  const size_t n = hn::Lanes(df);
  const auto& tab = kBits == 5 ? kTwoThirds5.v : kTwoThirds6.v;
  constexpr int kCount = TwoThirds<kBits>::kCount;
  const auto target = hn::Set(df, v);
  auto best = hn::Set(df, 1e30f);
  auto at = hn::Zero(di), i = hn::Iota(di, 0);
  const auto step = hn::Set(di, int32_t(n));
  for (int k = 0; k < kCount; k += int(n)) {
    const auto d = hn::Sub(hn::Load(df, tab + k), target);
    const auto sq = hn::Mul(d, d);
    const auto less = hn::Lt(sq, best);
    best = hn::IfThenElse(less, sq, best);
    at = hn::IfThenElse(hn::RebindMask(di, less), i, at);
    i = hn::Add(i, step);
  }
  const auto least = hn::MinOfLanes(df, best);
  const auto first = hn::IfThenElse(hn::RebindMask(di, hn::Eq(best, least)), at, hn::Set(di, kCount));
  return hn::GetLane(hn::MinOfLanes(di, first));
}

inline void OneValuePair(float v, int bits, int* e0, int* e1) {
  if (bits == 5) {
    const int k = NearestPair<5>(v);
    *e0 = k >> 5, *e1 = k & 31;
  } else {
    const int k = NearestPair<6>(v);
    *e0 = k >> 6, *e1 = k & 63;
  }
}

// PlanesOf: each row's bytes grouped by channel, the four rows' groups
// transposed in 32-bit words; the luma in 16-bit lanes.
inline void PlanesOfTile(const uint8_t* at, int32_t step, uint8_t v[3][16], uint8_t y[16]) {
  const hn::Full128<uint8_t> d8;
  const hn::Full128<uint32_t> d32;
  const hn::Full128<uint64_t> d64;
  const hn::Full128<uint16_t> d16;
  const hn::Full64<uint8_t> dh;
  alignas(16) static constexpr uint8_t kGroup[16] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
  const auto group = hn::Load(d8, kGroup);
  hn::Vec128<uint32_t> row[4];
  for (int r = 0; r < 4; ++r) row[r] = hn::BitCast(d32, hn::TableLookupBytes(hn::LoadU(d8, at + ptrdiff_t(r) * step), group));
  const auto rg01 = hn::BitCast(d64, hn::InterleaveLower(d32, row[0], row[1]));  // R0 R1 G0 G1
  const auto rg23 = hn::BitCast(d64, hn::InterleaveLower(d32, row[2], row[3]));
  const auto ba01 = hn::BitCast(d64, hn::InterleaveUpper(d32, row[0], row[1]));  // B0 B1 A0 A1
  const auto ba23 = hn::BitCast(d64, hn::InterleaveUpper(d32, row[2], row[3]));
  const auto r = hn::BitCast(d8, hn::InterleaveLower(d64, rg01, rg23));
  const auto g = hn::BitCast(d8, hn::InterleaveUpper(d64, rg01, rg23));
  const auto b = hn::BitCast(d8, hn::InterleaveLower(d64, ba01, ba23));
  hn::StoreU(r, d8, v[0]);
  hn::StoreU(g, d8, v[1]);
  hn::StoreU(b, d8, v[2]);
  auto luma = [&](auto rr, auto gg, auto bb) {
    const auto sum = hn::Add(hn::Add(hn::PromoteTo(d16, rr), hn::ShiftLeft<1>(hn::PromoteTo(d16, gg))),
                             hn::Add(hn::PromoteTo(d16, bb), hn::Set(d16, 2)));
    return hn::DemoteTo(dh, hn::BitCast(hn::Full128<int16_t>(), hn::ShiftRight<2>(sum)));
  };
  hn::StoreU(luma(hn::LowerHalf(dh, r), hn::LowerHalf(dh, g), hn::LowerHalf(dh, b)), dh, y);
  hn::StoreU(luma(hn::UpperHalf(dh, r), hn::UpperHalf(dh, g), hn::UpperHalf(dh, b)), dh, y + 8);
}

// LumaBlocks: quality 0 on as many tiles at once as the vector has 128-bit
// blocks, the others tile by tile.
inline void LumaOfTiles(const uint8_t* y, int count, int quality, uint8_t* out, size_t stride) {
  if (quality == 0) return bc_encode::HWY_NAMESPACE::EncodeChannelsQ0(y, count, out, stride);
  for (int g = 0; g < count; ++g) bc_encode::HWY_NAMESPACE::EncodeChannel(y + 16 * g, quality, out + size_t(g) * stride);
}

struct Kernels {
  static constexpr SpanFn kSpan = SpanOfTile;
  static constexpr ChromaFn kChroma = ChromaOfTile;
  static constexpr EvalFn kEval = EvalPart;
  static constexpr OneValueFn kOneValue = OneValuePair;
  static constexpr LumaFn kLuma = LumaOfTiles;
  static constexpr PlanesFn kPlanes = PlanesOfTile;
};

}  // namespace rvt::ycocg_dxt5::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_YCOCG_DXT5_INL_H_
