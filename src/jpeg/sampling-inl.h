// Chroma sampling: the vector rows of one target.  No checks here: the
// drivers in sampling.h have checked the arguments before any row runs.
#if defined(RVT_JPEG_SAMPLING_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_SAMPLING_INL_H_
#undef RVT_JPEG_SAMPLING_INL_H_
#else
#define RVT_JPEG_SAMPLING_INL_H_
#endif

#include <hwy/highway.h>

#include "frame/raw_ops-inl.h"
#include "jpeg/sampling.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::sampling::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

// Runs step(d, x) over outputs [0, n) in blocks of Lanes(d) outputs, the last
// block moved back to end at n (it rewrites a few equal outputs).  Returns
// false, doing nothing, when n is shorter than one block.
template <class D, class Step>
HWY_INLINE bool Cover(D d, ptrdiff_t n, const Step& step) {
  const ptrdiff_t block = ptrdiff_t(hn::Lanes(d));
  if (n < block) return false;
  ptrdiff_t x = 0;
  for (; x + block <= n; x += block) step(d, x);
  if (x < n) step(d, n - block);
  return true;
}

// Full vectors, then 128-bit ones, then the scalar reference.
template <class T, class Step, class Tail>
HWY_INLINE void Cascade(ptrdiff_t n, const Step& step, const Tail& tail) {
  const hn::ScalableTag<T> full;
  const hn::CappedTag<T, 16 / sizeof(T)> quad;
  if (Cover(full, n, step)) return;
  if (Cover(quad, n, step)) return;
  tail();
}

// Byte weights w0, w1 repeated over the pairs of a vector.
template <class D8>
HWY_INLINE hn::Vec<hn::Repartition<int8_t, D8>> PairWeights(D8 d8, int w0, int w1) {
  const hn::Repartition<int8_t, D8> di8;
  const hn::Repartition<uint16_t, D8> d16;
  return hn::BitCast(di8, hn::Set(d16, uint16_t((w1 << 8) | w0)));
}

// Byte pairs times byte weights, each pair summed into an int16 lane.  The
// weights used here never reach the saturation.
template <class D8, class VW>
HWY_INLINE hn::Vec<hn::Repartition<int16_t, D8>> MulAddPairs(D8, hn::Vec<D8> a, VW w) {
  return ops::MulAddPairs(hn::Repartition<int16_t, D8>(), a, w);
}

// The output at lane k of a block starting at output x has index x + k;
// blocks have an even number of lanes, so only the parity of x matters.
// Returns lanes equal to `even` or `odd` by that index.
template <class D>
HWY_INLINE hn::Vec<D> ByParity(D d, ptrdiff_t x, int even, int odd) {
  const auto parity = hn::And(hn::Iota(d, int(x & 1)), hn::Set(d, 1));
  return hn::IfThenElse(hn::Eq(parity, hn::Zero(d)), hn::Set(d, hn::TFromD<D>(even)),
                        hn::Set(d, hn::TFromD<D>(odd)));
}

// ------------------------------------------------------------ down-sampling

inline void DownH2V1Row(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const size_t L = hn::Lanes(d8);
        const auto a = hn::LoadU(d8, s + 2 * x);
        const auto b = hn::LoadU(d8, s + 2 * x + L);
        hn::StoreU(hn::AverageRound(hn::ConcatEven(d8, b, a), hn::ConcatOdd(d8, b, a)), d8, d + x);
      },
      [&] { DownH2V1RowRef(s, d, n); });
}

// floor of the pair mean = rounded-up mean - (low bit of the sum).
inline void DownBoxH2V1Row(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const size_t L = hn::Lanes(d8);
        const auto a = hn::LoadU(d8, s + 2 * x);
        const auto b = hn::LoadU(d8, s + 2 * x + L);
        const auto even = hn::ConcatEven(d8, b, a), odd = hn::ConcatOdd(d8, b, a);
        const auto down = hn::And(hn::Xor(even, odd), ByParity(d8, x, 1, 0));
        hn::StoreU(hn::Sub(hn::AverageRound(even, odd), down), d8, d + x);
      },
      [&] { DownBoxH2V1RowRef(s, d, n); });
}

// 2x2 sums: pair sums of each row (weights 1, 1), added, biased, >> 2; two
// vectors of results pack into one of bytes.
template <class D8, class V16>
HWY_INLINE void DownH2V2Block(D8 d8, const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t x,
                              V16 bias) {
  const size_t L = hn::Lanes(d8);
  const auto ones = PairWeights(d8, 1, 1);
  const auto sums = [&](ptrdiff_t at) {
    return hn::Add(MulAddPairs(d8, hn::LoadU(d8, u + at), ones),
                   MulAddPairs(d8, hn::LoadU(d8, l + at), ones));
  };
  const auto a = hn::ShiftRight<2>(hn::Add(sums(2 * x), bias));
  const auto b = hn::ShiftRight<2>(hn::Add(sums(2 * x + ptrdiff_t(L)), bias));
  hn::StoreU(ops::PackU8Ordered(a, b), d8, d + x);
}

inline void DownH2V2Row(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<int16_t, decltype(d8)> d16;
        DownH2V2Block(d8, u, l, d, x, hn::Set(d16, 3));
      },
      [&] { DownH2V2RowRef(u, l, d, n); });
}

inline void DownBoxH2V2Row(const uint8_t* u, const uint8_t* l, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<int16_t, decltype(d8)> d16;
        DownH2V2Block(d8, u, l, d, x, ByParity(d16, x, 1, 2));
      },
      [&] { DownBoxH2V2RowRef(u, l, d, n); });
}

// ------------------------------------------------------------ up-sampling
// A block covers Lanes(d8) source columns.  Byte pairs are formed with
// InterleaveLower/Upper, which work per 16-byte block, so the two halves
// of the results come out with alternating blocks; every lane holds one
// column's even output in its low byte and odd output in its high byte,
// which is their order in memory.

// Merges even outputs (low bytes of `even`) with odd outputs (high bytes of
// `odd_high`).
template <class D8, class V16>
HWY_INLINE hn::Vec<D8> MergeOutputs(D8 d8, V16 even, V16 odd_high) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto high = hn::MaskFromVec(hn::BitCast(d8, hn::Set(d16, uint16_t(0xFF00))));
  return hn::IfThenElse(high, hn::BitCast(d8, odd_high), hn::BitCast(d8, even));
}

// Horizontal: even = (3 s[i] + s[i-1] + 1) >> 2, odd = (3 s[i] + s[i+1] + 2) >> 2.
inline void UpH2V1Pairs(const uint8_t* s, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const hn::Repartition<uint16_t, decltype(d8)> d16;
        const auto w31 = PairWeights(d8, 3, 1);
        const auto mid = hn::LoadU(d8, s + x), left = hn::LoadU(d8, s + x - 1),
                   right = hn::LoadU(d8, s + x + 1);
        const auto half = [&](auto with_left, auto with_right) {
          const auto e = hn::BitCast(d16, MulAddPairs(d8, with_left, w31));
          const auto o = hn::BitCast(d16, MulAddPairs(d8, with_right, w31));
          return MergeOutputs(d8, hn::ShiftRight<2>(hn::Add(e, hn::Set(d16, 1))),
                              hn::ShiftLeft<6>(hn::Add(o, hn::Set(d16, 2))));
        };
        ops::StoreAlternatingBlocks(
            half(hn::InterleaveLower(d8, mid, left), hn::InterleaveLower(d8, mid, right)),
            half(hn::InterleaveUpper(d8, mid, left), hn::InterleaveUpper(d8, mid, right)),
            d + 2 * x);
      },
      [&] { UpH2V1PairsRef(s, d, n); });
}

// Two-dimensional, without interleaving the two rows: a byte pair read at
// an odd or even offset is (s[i-1], s[i]) or (s[i], s[i+1]) for every other
// column i, so pairwise multiply-adds give the filter's sums directly:
//   even output 2i: 9 n[i] + 3 n[i-1] + 3 f[i] + f[i-1] + 8  (weights 3,9 and 1,3)
//   odd output 2i+1: 9 n[i] + 3 n[i+1] + 3 f[i] + f[i+1] + 7  (weights 9,3 and 3,1)
// each >> 4.  A block of Lanes(d8) columns from x has four such vectors of
// sums, for even and odd outputs of the columns x + 2k and x + 2k + 1; the
// near row's share of them is computed once and serves both output rows of
// a source row.
template <class D8>
struct NearSums {
  using V16 = hn::Vec<hn::Repartition<uint16_t, D8>>;
  V16 even_at_even, odd_at_even, even_at_odd, odd_at_odd;
};

template <class D8>
HWY_INLINE NearSums<D8> NearPart(D8 d8, const uint8_t* near, ptrdiff_t x) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto w39 = PairWeights(d8, 3, 9), w93 = PairWeights(d8, 9, 3);
  const auto before = hn::LoadU(d8, near + x - 1), at = hn::LoadU(d8, near + x),
             after = hn::LoadU(d8, near + x + 1);
  const auto b8 = hn::Set(d16, 8), b7 = hn::Set(d16, 7);
  NearSums<D8> s;
  s.even_at_even = hn::Add(hn::BitCast(d16, MulAddPairs(d8, before, w39)), b8);
  s.odd_at_even = hn::Add(hn::BitCast(d16, MulAddPairs(d8, at, w93)), b7);
  s.even_at_odd = hn::Add(hn::BitCast(d16, MulAddPairs(d8, at, w39)), b8);
  s.odd_at_odd = hn::Add(hn::BitCast(d16, MulAddPairs(d8, after, w93)), b7);
  return s;
}

// Adds the far row's share and stores the 2 * Lanes(d8) outputs of the
// block.  Each 16-bit lane of a merged vector holds a column's even output
// (low byte) and odd output (high byte); the lanes for columns x + 2k and
// x + 2k + 1 interleave into memory order, block by block.
template <class D8>
HWY_INLINE void FarPartAndStore(D8 d8, const NearSums<D8>& n, const uint8_t* far, uint8_t* d,
                                ptrdiff_t x) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto w13 = PairWeights(d8, 1, 3), w31 = PairWeights(d8, 3, 1);
  const auto before = hn::LoadU(d8, far + x - 1), at = hn::LoadU(d8, far + x),
             after = hn::LoadU(d8, far + x + 1);
  const auto sum = [&](auto near_sum, auto bytes, auto w) {
    return hn::Add(near_sum, hn::BitCast(d16, MulAddPairs(d8, bytes, w)));
  };
  const auto at_even = MergeOutputs(d8, hn::ShiftRight<4>(sum(n.even_at_even, before, w13)),
                                    hn::ShiftLeft<4>(sum(n.odd_at_even, at, w31)));
  const auto at_odd = MergeOutputs(d8, hn::ShiftRight<4>(sum(n.even_at_odd, at, w13)),
                                   hn::ShiftLeft<4>(sum(n.odd_at_odd, after, w31)));
  const auto e = hn::BitCast(d16, at_even), o = hn::BitCast(d16, at_odd);
  ops::StoreAlternatingBlocks(hn::BitCast(d8, hn::InterleaveLower(d16, e, o)),
                              hn::BitCast(d8, hn::InterleaveUpper(d16, e, o)), d + 2 * x);
}

inline void UpH2V2Pairs(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t n) {
  Cascade<uint8_t>(
      n, [&](auto d8, ptrdiff_t x) { FarPartAndStore(d8, NearPart(d8, near, x), far, d, x); },
      [&] { UpH2V2PairsRef(near, far, d, n); });
}

// Both output rows of source row `mid`: the upper with the row above as its
// far row, the lower with the row below.
inline void UpH2V2TwoRows(const uint8_t* above, const uint8_t* mid, const uint8_t* below,
                          uint8_t* d0, uint8_t* d1, ptrdiff_t n) {
  Cascade<uint8_t>(
      n,
      [&](auto d8, ptrdiff_t x) {
        const auto near = NearPart(d8, mid, x);
        FarPartAndStore(d8, near, above, d0, x);
        FarPartAndStore(d8, near, below, d1, x);
      },
      [&] {
        UpH2V2PairsRef(mid, above, d0, n);
        UpH2V2PairsRef(mid, below, d1, n);
      });
}

inline void UpRowH2V1Row(const uint8_t* s, uint8_t* d, ptrdiff_t w) {
  UpRowH2V1Edges<UpH2V1Pairs>(s, d, w);
}
inline void UpRowH2V2Row(const uint8_t* near, const uint8_t* far, uint8_t* d, ptrdiff_t w) {
  UpRowH2V2Edges<UpH2V2Pairs>(near, far, d, w);
}

}  // namespace rvt::sampling::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_SAMPLING_INL_H_
