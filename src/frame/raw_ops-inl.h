// Vector operations the kernels need that Highway 1.0.3 lacks, one place
// for all raw x86 intrinsics.  Each operation has its x86 form (SSSE3, AVX2,
// AVX-512) and a portable form in Highway operations with the same result,
// so the kernels also build for targets that are not x86.  Kernels never
// spell an intrinsic themselves; they call these:
//
//   namespace ops = ::rvt::ops::HWY_NAMESPACE;
//   const auto sums = ops::MulAddPairs(d16, bytes, weights);
#if defined(RVT_FRAME_RAW_OPS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_FRAME_RAW_OPS_INL_H_
#undef RVT_FRAME_RAW_OPS_INL_H_
#else
#define RVT_FRAME_RAW_OPS_INL_H_
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace rvt::ops::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SSSE3 || HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_AVX2 || \
    HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
#define RVT_RAW_X86 1
#else
#define RVT_RAW_X86 0
#endif

// ------------------------------------------------------------ MulAddPairs
// Unsigned bytes a times signed bytes w, each adjacent pair of products
// summed into an int16 lane with signed saturation (x86 pmaddubsw):
//   out[i] = sat16(a[2i] * w[2i] + a[2i+1] * w[2i+1]).
template <class D16, class VU8, class VI8>
HWY_INLINE hn::Vec<D16> MulAddPairsPortable(D16 d16, VU8 a, VI8 w) {
  const hn::RebindToUnsigned<D16> du16;
  const auto au = hn::BitCast(du16, a);
  const auto wi = hn::BitCast(d16, w);
  const auto a_even = hn::BitCast(d16, hn::And(au, hn::Set(du16, 0xFF)));
  const auto a_odd = hn::BitCast(d16, hn::ShiftRight<8>(au));
  const auto w_even = hn::ShiftRight<8>(hn::ShiftLeft<8>(wi));
  const auto w_odd = hn::ShiftRight<8>(wi);
  return hn::SaturatedAdd(hn::Mul(a_even, w_even), hn::Mul(a_odd, w_odd));
}

template <class D16, class VU8, class VI8>
HWY_INLINE hn::Vec<D16> MulAddPairs(D16 d16, VU8 a, VI8 w) {
#if RVT_RAW_X86
  (void)d16;
  if constexpr (sizeof(a.raw) == 64) {
    return hn::Vec<D16>{_mm512_maddubs_epi16(a.raw, w.raw)};
  } else if constexpr (sizeof(a.raw) == 32) {
    return hn::Vec<D16>{_mm256_maddubs_epi16(a.raw, w.raw)};
  } else {
    return hn::Vec<D16>{_mm_maddubs_epi16(a.raw, w.raw)};
  }
#else
  return MulAddPairsPortable(d16, a, w);
#endif
}

// ------------------------------------------------------------ packing
// int16 lanes to bytes with unsigned saturation (the clamp to 0..255).

// In lane order: the lanes of a, then the lanes of b.
template <class V16>
HWY_INLINE auto PackU8OrderedPortable(V16 a, V16 b) {
  const hn::Repartition<uint8_t, hn::DFromV<V16>> d8;
  const hn::Half<decltype(d8)> d8h;
  return hn::Combine(d8, hn::DemoteTo(d8h, b), hn::DemoteTo(d8h, a));
}

// Block by block, as x86 packs: each 16-byte block of the result holds the
// 8 lanes of a's block then the 8 lanes of b's block.  Kernels that widened
// with ZipLower/ZipUpper (also block by block) get their order back.
template <class V16>
HWY_INLINE auto PackU8Blockwise(V16 a, V16 b) {
  using D16 = hn::DFromV<V16>;
  const hn::Repartition<uint8_t, D16> d8;
#if RVT_RAW_X86
  if constexpr (sizeof(a.raw) == 64) {
    return hn::Vec<decltype(d8)>{_mm512_packus_epi16(a.raw, b.raw)};
  } else if constexpr (sizeof(a.raw) == 32) {
    return hn::Vec<decltype(d8)>{_mm256_packus_epi16(a.raw, b.raw)};
  } else if constexpr (hn::MaxLanes(D16()) == 8) {
    return hn::Vec<decltype(d8)>{_mm_packus_epi16(a.raw, b.raw)};
  } else {
    return PackU8OrderedPortable(a, b);  // under 128 bits: one block, in lane order
  }
#else
  static_assert(hn::MaxLanes(D16()) <= 8, "portable form: one block per vector");
  return PackU8OrderedPortable(a, b);
#endif
}

// In lane order: the lanes of a, then the lanes of b.
template <class V16>
HWY_INLINE auto PackU8Ordered(V16 a, V16 b) {
  using D16 = hn::DFromV<V16>;
  const hn::Repartition<uint8_t, D16> d8;
#if RVT_RAW_X86
  if constexpr (sizeof(a.raw) == 64) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    return hn::Vec<decltype(d8)>{_mm512_permutexvar_epi64(order, _mm512_packus_epi16(a.raw, b.raw))};
  } else if constexpr (sizeof(a.raw) == 32) {
    return hn::Vec<decltype(d8)>{
        _mm256_permute4x64_epi64(_mm256_packus_epi16(a.raw, b.raw), _MM_SHUFFLE(3, 1, 2, 0))};
  } else if constexpr (hn::MaxLanes(D16()) == 8) {
    return hn::Vec<decltype(d8)>{_mm_packus_epi16(a.raw, b.raw)};
  } else {
    // Under 128 bits the pack would put a's unused upper lanes before b.
    return PackU8OrderedPortable(a, b);
  }
#else
  return PackU8OrderedPortable(a, b);
#endif
}

// int32 lanes to int16 with signed saturation, block by block as x86 packs:
// each 16-byte block of the result holds the 4 lanes of a's block then the
// 4 lanes of b's block (with one block per vector: a, then b).
template <class D16, class V32>
HWY_INLINE hn::Vec<D16> PackS16Blockwise(D16 d16, V32 a, V32 b) {
#if RVT_RAW_X86
  (void)d16;
  if constexpr (sizeof(a.raw) == 64) {
    return hn::Vec<D16>{_mm512_packs_epi32(a.raw, b.raw)};
  } else if constexpr (sizeof(a.raw) == 32) {
    return hn::Vec<D16>{_mm256_packs_epi32(a.raw, b.raw)};
  } else {
    return hn::Vec<D16>{_mm_packs_epi32(a.raw, b.raw)};
  }
#else
  static_assert(hn::MaxLanes(D16()) <= 8, "portable form: one block per vector");
  const hn::Half<D16> dh;
  return hn::Combine(d16, hn::DemoteTo(dh, b), hn::DemoteTo(dh, a));
#endif
}

// int16 lanes to int8 with signed saturation, block by block as x86 packs:
// each 16-byte block of the result holds the 8 lanes of a's block then the
// 8 lanes of b's block (with one block per vector: a, then b).
template <class D8, class V16>
HWY_INLINE hn::Vec<D8> PackS8Blockwise(D8 d8, V16 a, V16 b) {
#if RVT_RAW_X86
  (void)d8;
  if constexpr (sizeof(a.raw) == 64) {
    return hn::Vec<D8>{_mm512_packs_epi16(a.raw, b.raw)};
  } else if constexpr (sizeof(a.raw) == 32) {
    return hn::Vec<D8>{_mm256_packs_epi16(a.raw, b.raw)};
  } else {
    return hn::Vec<D8>{_mm_packs_epi16(a.raw, b.raw)};
  }
#else
  static_assert(hn::MaxLanes(D8()) <= 16, "portable form: one block per vector");
  const hn::Half<D8> dh;
  return hn::Combine(d8, hn::DemoteTo(dh, b), hn::DemoteTo(dh, a));
#endif
}

// ------------------------------------------------------------ stores
// Stores lo, hi whose 16-byte blocks alternate in memory: lo.0 hi.0 lo.1
// hi.1 ..., the order InterleaveLower/Upper (block by block) leave results in.
template <class V8>
HWY_INLINE void StoreAlternatingBlocks(V8 lo, V8 hi, uint8_t* p) {
  const hn::DFromV<V8> d;
#if RVT_RAW_X86
  if constexpr (sizeof(lo.raw) == 64) {
    const __m512i first = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
    const __m512i second = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
    _mm512_storeu_si512(p, _mm512_permutex2var_epi64(lo.raw, first, hi.raw));
    _mm512_storeu_si512(p + 64, _mm512_permutex2var_epi64(lo.raw, second, hi.raw));
    return;
  } else if constexpr (sizeof(lo.raw) == 32) {
    hn::StoreU(hn::ConcatLowerLower(d, hi, lo), d, p);
    hn::StoreU(hn::ConcatUpperUpper(d, hi, lo), d, p + 32);
    return;
  }
#endif
  static_assert(RVT_RAW_X86 || hn::MaxLanes(d) <= 16, "portable form: one block per vector");
  hn::StoreU(lo, d, p);
  hn::StoreU(hi, d, p + hn::Lanes(d));
}

// The low 8 bytes of a 16-byte vector to lo, the high 8 bytes to hi (x86:
// movq and movhps, no shuffle for the high half; the movhps intrinsic, as
// the pointer may sit at any address: the double-typed one stores through
// a double lvalue, which needs 8-byte alignment).
template <class V8>
HWY_INLINE void StoreHalves(V8 v, uint8_t* lo, uint8_t* hi) {
#if RVT_RAW_X86
  static_assert(sizeof(v.raw) == 16, "one block");
  _mm_storel_epi64(reinterpret_cast<__m128i*>(lo), v.raw);
  _mm_storeh_pi(reinterpret_cast<__m64*>(hi), _mm_castsi128_ps(v.raw));
#else
  const hn::DFromV<V8> d;
  const hn::Half<decltype(d)> dh;
  hn::StoreU(hn::LowerHalf(dh, v), dh, lo);
  hn::StoreU(hn::UpperHalf(dh, v), dh, hi);
#endif
}

// Two 16-byte blocks a0 a1 | b0 b1 (8-byte halves): a0 b0 to row0 and a1 b1
// to row1 - two 8-byte rows of two side-by-side items per pack.
template <class V8>
HWY_INLINE void StoreBlockHalves(V8 v, uint8_t* row0, uint8_t* row1) {
#if RVT_RAW_X86
  static_assert(sizeof(v.raw) == 32, "two blocks");
  const __m256i t = _mm256_permute4x64_epi64(v.raw, 0xD8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(row0), _mm256_castsi256_si128(t));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(row1), _mm256_extracti128_si256(t, 1));
#else
  const hn::DFromV<V8> d;
  const hn::Half<decltype(d)> dh;
  const hn::Half<decltype(dh)> dq;
  const auto a = hn::LowerHalf(dh, v), b = hn::UpperHalf(dh, v);
  hn::StoreU(hn::LowerHalf(dq, a), dq, row0);
  hn::StoreU(hn::LowerHalf(dq, b), dq, row0 + 8);
  hn::StoreU(hn::UpperHalf(dq, a), dq, row1);
  hn::StoreU(hn::UpperHalf(dq, b), dq, row1 + 8);
#endif
}

// A load the compiler may not replace by rebuilding the constant it holds:
// vector constants then stay single loads (or memory operands) where the
// compiler would otherwise materialize them from immediates.
template <class D>
HWY_INLINE hn::Vec<D> LoadKept(D d, const hn::TFromD<D>* p) {
#if defined(__GNUC__) || defined(__clang__)
  asm("" : "+r"(p));
#endif
  return hn::Load(d, p);
}

#undef RVT_RAW_X86

}  // namespace rvt::ops::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_FRAME_RAW_OPS_INL_H_

// ================================================================ Huffman
// Operations of the Huffman block coders (src/jpeg/huffman_*-inl.h).
#if defined(RVT_FRAME_RAW_OPS_HUFFMAN_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_FRAME_RAW_OPS_HUFFMAN_INL_H_
#undef RVT_FRAME_RAW_OPS_HUFFMAN_INL_H_
#else
#define RVT_FRAME_RAW_OPS_HUFFMAN_INL_H_
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace rvt::ops::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// ------------------------------------------------------------ TwoTablesLookupLanes16
// 16-bit lanes picked from the concatenation of two vectors:
//   out[i] = (idx[i] < N ? lo[idx[i]] : hi[idx[i] - N]), idx[i] < 2N,
// with N = Lanes(d) (x86 vpermt2w on AVX-512; Highway 1.0.3 looks up 32- and
// 64-bit lanes only).
template <class D16>
HWY_INLINE hn::Vec<D16> TwoTablesLookupLanes16Portable(D16 d, hn::Vec<D16> lo, hn::Vec<D16> hi,
                                                       hn::Vec<hn::RebindToUnsigned<D16>> idx) {
  using T = hn::TFromD<D16>;
  constexpr size_t kMax = hn::MaxLanes(D16());
  const size_t n = hn::Lanes(d);
  const hn::RebindToUnsigned<D16> du;
  HWY_ALIGN T table[2 * kMax];
  HWY_ALIGN uint16_t at[kMax];
  HWY_ALIGN T out[kMax];
  hn::Store(lo, d, table);
  hn::Store(hi, d, table + n);
  hn::Store(idx, du, at);
  for (size_t i = 0; i < n; ++i) out[i] = table[at[i] % (2 * n)];
  return hn::Load(d, out);
}

template <class D16>
HWY_INLINE hn::Vec<D16> TwoTablesLookupLanes16(D16 d, hn::Vec<D16> lo, hn::Vec<D16> hi,
                                               hn::Vec<hn::RebindToUnsigned<D16>> idx) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX3_DL
  if constexpr (sizeof(lo.raw) == 64) {
    (void)d;
    return hn::Vec<D16>{_mm512_permutex2var_epi16(lo.raw, idx.raw, hi.raw)};
  }
#endif
  return TwoTablesLookupLanes16Portable(d, lo, hi, idx);
}

}  // namespace rvt::ops::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_FRAME_RAW_OPS_HUFFMAN_INL_H_
