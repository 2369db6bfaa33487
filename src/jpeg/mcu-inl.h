// MCU-level conversions: the vector kernels of one target.  No checks here:
// the drivers in mcu.h have checked the arguments.
//
// The colour arithmetic is the colour conversion's own (color-inl.h), run
// over the whole MCU as one contiguous run of pixels: the source rows are
// first copied to a small buffer (for the forward 420 forms even rows
// first, then odd rows, so the two rows of every 2x2 chroma block sit at
// the same lane of vectors 128 pixels apart), and luma moves between that
// row order and the blocks with 16-byte copies.  Chroma of the 422 / 420
// forms lands in block order directly.  The row helpers (packed 4:2:2, the
// triangle up-sampling inside the MCU) work on 128-bit vectors, one 8-sample
// block row each.
#if defined(RVT_JPEG_MCU_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_MCU_INL_H_
#undef RVT_JPEG_MCU_INL_H_
#else
#define RVT_JPEG_MCU_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg/color-inl.h"
#include "jpeg/mcu.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::mcu::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace cv = ::rvt::color::HWY_NAMESPACE;

using cv::D16;
using cv::D8;
using cv::DB;
using cv::DU16;
using cv::K16;
using cv::Pix;
using cv::V16;
using cv::VB;
using cv::VU16;

// 128-bit vectors: one block row of 8 samples.
using D128 = hn::Full128<int16_t>;
using V128 = hn::Vec<D128>;

#define RVT_MCU_INLINE __attribute__((always_inline))

// Clamp to 0..255 and minus 128: the level shift of a converted sample.
template <class V>
HWY_INLINE V Shift(V v) {
  const hn::DFromV<V> d;
  return hn::Sub(hn::Min(hn::Max(v, hn::Zero(d)), hn::Set(d, 255)), hn::Set(d, 128));
}
// Plus 128, saturated to 0..255.
template <class V>
HWY_INLINE V Unshift(V v) {
  const hn::DFromV<V> d;
  return hn::Min(hn::Max(hn::SaturatedAdd(v, hn::Set(d, 128)), hn::Zero(d)), hn::Set(d, 255));
}

// The image row held at staged row s: 420 forward forms stage even rows
// first.
template <int kL, bool kEvenFirst>
constexpr int ImageRow(int s) {
  if constexpr (kL == k420 && kEvenFirst) {
    return s < 8 ? 2 * s : 2 * (s - 8) + 1;
  } else {
    return s;
  }
}

// Luma (or K) between rows of the staging order and the blocks.
template <int kL, bool kEvenFirst>
HWY_INLINE void RowsToBlocks(const int16_t* rows, int16_t* blocks) {
  constexpr int kW = kWidth<kL>;
  for (int s = 0; s < kHeight<kL>; ++s) {
    const int y = ImageRow<kL, kEvenFirst>(s);
    for (int bx = 0; bx < kW / 8; ++bx) {
      std::memcpy(blocks + ((y / 8) * (kW / 8) + bx) * 64 + (y % 8) * 8, rows + s * kW + bx * 8, 16);
    }
  }
}
template <int kL>
HWY_INLINE void BlocksToRows(const int16_t* blocks, int16_t* rows) {
  constexpr int kW = kWidth<kL>;
  for (int y = 0; y < kHeight<kL>; ++y) {
    for (int bx = 0; bx < kW / 8; ++bx) {
      std::memcpy(rows + y * kW + bx * 8, blocks + ((y / 8) * (kW / 8) + bx) * 64 + (y % 8) * 8, 16);
    }
  }
}

HWY_INLINE V16 Lower(VB v) { return hn::PromoteTo(D16(), hn::LowerHalf(v)); }
HWY_INLINE V16 Upper(VB v) { return hn::PromoteTo(D16(), hn::UpperHalf(D8(), v)); }

// ------------------------------------------------------------ forward

template <class C, int kL>
void FwdKernel(const uint8_t* src, int32_t step, int16_t* const* dst) {
  constexpr int kW = kWidth<kL>, kH = kHeight<kL>, kN = kW * kH, kBpp = C::kBpp;
  const int N = int(hn::Lanes(D16()));
  const D16 d;
  alignas(64) uint8_t px[kN * kBpp];
  for (int s = 0; s < kH; ++s) {
    std::memcpy(px + s * kW * kBpp, src + ptrdiff_t(step) * ImageRow<kL, true>(s), kW * kBpp);
  }
  // Luma (and K) in staging order; the 444 order is the block's own.
  alignas(64) int16_t luma_rows[kL == k444 ? 1 : kN];
  alignas(64) int16_t k_rows[kL == k444 || !C::kCmyk ? 1 : kN];
  int16_t* luma = kL == k444 ? dst[0] : luma_rows;
  int16_t* kplane = kL == k444 ? dst[C::kPlanes - 1] : k_rows;
  // 422 / 420: pair sums of R, G, B (RGB) or per-pixel chroma bytes (CMYK).
  alignas(64) uint16_t sums[3][kL == k444 || C::kCmyk ? 1 : kN / 2];
  alignas(64) uint8_t chroma8[2][kL == k444 || !C::kCmyk ? 1 : kN];
  for (int i = 0; i < kN; i += 2 * N) {
    VB a8, b8, c8, k8;
    if constexpr (C::kCmyk) {
      hn::LoadInterleaved4(DB(), px + 4 * i, a8, b8, c8, k8);
      const VB full = hn::Set(DB(), 255);
      a8 = hn::Sub(full, a8), b8 = hn::Sub(full, b8), c8 = hn::Sub(full, c8);
    } else {
      cv::LoadWideBytes(typename C::Packed{}, px, i, a8, b8, c8);
    }
    for (int h = 0; h < 2; ++h) {
      const int at = i + h * N;
      const V16 r = h ? Upper(a8) : Lower(a8), g = h ? Upper(b8) : Lower(b8),
                b = h ? Upper(c8) : Lower(c8);
      if constexpr (C::kCmyk) {
        const V16 k = h ? Upper(k8) : Lower(k8);
        const Pix o = cv::Apply(color::Fwd14{}, Pix{r, g, b, k});
        hn::StoreU(Shift(o.a), d, luma + at);
        hn::StoreU(hn::Sub(k, K16(128)), d, kplane + at);
        if constexpr (kL == k444) {
          hn::StoreU(Shift(o.b), d, dst[1] + at);
          hn::StoreU(Shift(o.c), d, dst[2] + at);
        } else {
          hn::StoreU(cv::Narrow(o.b), D8(), chroma8[0] + at);
          hn::StoreU(cv::Narrow(o.c), D8(), chroma8[1] + at);
        }
      } else if constexpr (kL == k444) {
        const Pix o = cv::Apply(color::Fwd15{}, Pix{r, g, b, hn::Zero(d)});
        hn::StoreU(Shift(o.a), d, luma + at);
        hn::StoreU(Shift(o.b), d, dst[1] + at);
        hn::StoreU(Shift(o.c), d, dst[2] + at);
      } else {
        const DU16 du;
        const VU16 y = cv::HighHalfLuma(du, hn::ShiftLeft<8>(hn::BitCast(du, r)),
                                        hn::ShiftLeft<8>(hn::BitCast(du, g)),
                                        hn::ShiftLeft<8>(hn::BitCast(du, b)));
        hn::StoreU(Shift(hn::BitCast(d, y)), d, luma + at);
      }
    }
    if constexpr (!C::kCmyk && kL != k444) {
      hn::StoreU(cv::PairSums(a8), DU16(), sums[0] + i / 2);
      hn::StoreU(cv::PairSums(b8), DU16(), sums[1] + i / 2);
      hn::StoreU(cv::PairSums(c8), DU16(), sums[2] + i / 2);
    }
  }
  if constexpr (kL != k444) {
    // Chroma j of the block: pair j of the staged rows (422), or pair j of
    // the even rows plus pair j of the odd rows (420).
    const DU16 du;
    for (int j = 0; j < 64; j += N) {
      if constexpr (C::kCmyk) {
        for (int c = 0; c < 2; ++c) {
          VU16 s = cv::PairSums(hn::LoadU(DB(), chroma8[c] + 2 * j));
          if constexpr (kL == k420) {
            s = hn::Add(s, cv::PairSums(hn::LoadU(DB(), chroma8[c] + 128 + 2 * j)));
            s = hn::ShiftRight<2>(hn::Add(s, hn::Set(du, 3)));
          } else {
            s = hn::ShiftRight<1>(hn::Add(s, hn::Set(du, 1)));
          }
          hn::StoreU(hn::Sub(hn::BitCast(d, s), K16(128)), d, dst[1 + c] + j);
        }
      } else {
        VU16 s[3];
        for (int c = 0; c < 3; ++c) {
          s[c] = hn::LoadU(du, sums[c] + j);
          if constexpr (kL == k420) s[c] = hn::Add(s[c], hn::LoadU(du, sums[c] + 64 + j));
        }
        constexpr int kUp = kL == k420 ? 5 : 6;  // sums of 4 or 2 samples to scale 128
        V16 cb, cr;
        cv::HighHalfChroma(du, hn::ShiftLeft<kUp>(s[0]), hn::ShiftLeft<kUp>(s[1]),
                           hn::ShiftLeft<kUp>(s[2]), cb, cr);
        hn::StoreU(Shift(cb), d, dst[1] + j);
        hn::StoreU(Shift(cr), d, dst[2] + j);
      }
    }
    RowsToBlocks<kL, true>(luma_rows, dst[0]);
    if constexpr (C::kCmyk) RowsToBlocks<kL, true>(k_rows, dst[3]);
  }
}

// ------------------------------------------------------------ inverse

// Neighbours of each sample inside its 8-sample row, the edge sample
// standing in for the one outside.
HWY_INLINE V128 LeftOf(V128 v) { return hn::CombineShiftRightBytes<14>(D128(), v, hn::Broadcast<0>(v)); }
HWY_INLINE V128 RightOf(V128 v) { return hn::CombineShiftRightBytes<2>(D128(), hn::Broadcast<7>(v), v); }
HWY_INLINE V128 Times3(V128 v) { return hn::Add(v, hn::Add(v, v)); }

// One 8-sample row up-sampled by the H2V1 triangle filter, edges
// replicated: 16 outputs.
HWY_INLINE void UpH2V1(V128 v, int16_t* out) {
  const D128 d;
  const V128 t = Times3(v);
  const V128 e = hn::ShiftRight<2>(hn::Add(hn::Add(t, LeftOf(v)), hn::Set(d, 1)));
  const V128 o = hn::ShiftRight<2>(hn::Add(hn::Add(t, RightOf(v)), hn::Set(d, 2)));
  hn::StoreU(hn::InterleaveLower(d, e, o), d, out);
  hn::StoreU(hn::InterleaveUpper(d, e, o), d, out + 8);
}
// H2V2 from the column sums c = 3 * near + far.
HWY_INLINE void UpH2V2(V128 c, int16_t* out) {
  const D128 d;
  const V128 t = Times3(c);
  const V128 e = hn::ShiftRight<4>(hn::Add(hn::Add(t, LeftOf(c)), hn::Set(d, 8)));
  const V128 o = hn::ShiftRight<4>(hn::Add(hn::Add(t, RightOf(c)), hn::Set(d, 7)));
  hn::StoreU(hn::InterleaveLower(d, e, o), d, out);
  hn::StoreU(hn::InterleaveUpper(d, e, o), d, out + 8);
}

// The chroma block (plus 128) at the MCU's size, rows of 16: the triangle
// filters inside the MCU.
template <int kL>
HWY_INLINE void UpsampleChroma(const int16_t* c, int16_t* out) {
  const D128 d;
  V128 rows[8];
  for (int y = 0; y < 8; ++y) rows[y] = Unshift(hn::LoadU(d, c + y * 8));
  if constexpr (kL == k422) {
    for (int y = 0; y < 8; ++y) UpH2V1(rows[y], out + y * 16);
  } else {
    for (int r = 0; r < 16; ++r) {
      const int near = r / 2;
      const int far = (r & 1) ? (near < 7 ? near + 1 : 7) : (near > 0 ? near - 1 : 0);
      UpH2V2(hn::Add(Times3(rows[near]), rows[far]), out + r * 16);
    }
  }
}

// N/2 samples, each repeated for the two pixels of its pair.
HWY_INLINE V16 Pairs(const int16_t* p) {
  const hn::Half<D16> dh;
  const hn::Repartition<int32_t, D16> d32;
  const auto w = hn::PromoteTo(d32, hn::LoadU(dh, p));
  return hn::BitCast(D16(), hn::Or(hn::And(w, hn::Set(d32, 0xFFFF)), hn::ShiftLeft<16>(w)));
}

template <class C, int kL>
void InvKernel(const int16_t* const* src, uint8_t* dst, int32_t step) {
  constexpr int kW = kWidth<kL>, kH = kHeight<kL>, kN = kW * kH, kBpp = C::kBpp;
  const int N = int(hn::Lanes(D16()));
  const D16 d;
  alignas(64) int16_t luma_rows[kL == k444 ? 1 : kN];
  alignas(64) int16_t k_rows[kL == k444 || !C::kCmyk ? 1 : kN];
  const int16_t* luma = src[0];
  const int16_t* kplane = src[C::kPlanes - 1];
  if constexpr (kL != k444) {
    BlocksToRows<kL>(src[0], luma_rows);
    luma = luma_rows;
    if constexpr (C::kCmyk) {
      BlocksToRows<kL>(src[3], k_rows);
      kplane = k_rows;
    }
  }
  // Chroma: YCCK up-sampled to every pixel; 420 rows repeated for the two
  // image rows they serve; otherwise read in place.
  alignas(64) int16_t chroma[2][kL == k444 || (!C::kCmyk && kL == k422) ? 1 : (C::kCmyk ? kN : 128)];
  const int16_t* cb = src[1];
  const int16_t* cr = src[2];
  if constexpr (kL != k444 && C::kCmyk) {
    UpsampleChroma<kL>(src[1], chroma[0]);
    UpsampleChroma<kL>(src[2], chroma[1]);
    cb = chroma[0], cr = chroma[1];
  } else if constexpr (kL == k420) {
    for (int y = 0; y < 16; ++y) {
      std::memcpy(chroma[0] + y * 8, src[1] + y / 2 * 8, 16);
      std::memcpy(chroma[1] + y * 8, src[2] + y / 2 * 8, 16);
    }
    cb = chroma[0], cr = chroma[1];
  }
  alignas(64) uint8_t px[kN * kBpp];
  color::Rows out{};
  out.d[0] = px;
  for (int i = 0; i < kN; i += N) {
    Pix p;
    p.a = Unshift(hn::LoadU(d, luma + i));
    if constexpr (kL == k444) {
      p.b = Unshift(hn::LoadU(d, cb + i));
      p.c = Unshift(hn::LoadU(d, cr + i));
    } else if constexpr (C::kCmyk) {
      p.b = hn::LoadU(d, cb + i);  // already plus 128
      p.c = hn::LoadU(d, cr + i);
    } else {
      p.b = Unshift(Pairs(cb + i / 2));
      p.c = Unshift(Pairs(cr + i / 2));
    }
    if constexpr (C::kCmyk) {
      p.k = Unshift(hn::LoadU(d, kplane + i));
      cv::Store(color::CmykC4{}, out, i, cv::Apply(color::InvSubtractive{}, p));
    } else {
      p.k = hn::Zero(d);
      if constexpr (kL == k444) {
        cv::Store(typename C::Packed{}, out, i, cv::Apply(color::InvAdditiveSat{}, p));
      } else {
        cv::Store(typename C::Packed{}, out, i, cv::Apply(color::InvHighHalf16{}, p));
      }
    }
  }
  for (int y = 0; y < kH; ++y) std::memcpy(dst + ptrdiff_t(step) * y, px + y * kW * kBpp, kW * kBpp);
}

// ------------------------------------------------------------ packed 4:2:2

void SplitKernel(const uint8_t* src, int32_t step, int16_t* const* dst) {
  const D128 d;
  const hn::Full128<uint16_t> du;
  const hn::Full128<uint8_t> d8;
  const V128 bias = hn::Set(d, 128);
  for (int y = 0; y < 8; ++y) {
    const uint8_t* s = src + ptrdiff_t(step) * y;
    const auto w0 = hn::BitCast(du, hn::LoadU(d8, s));
    const auto w1 = hn::BitCast(du, hn::LoadU(d8, s + 16));
    const auto mask = hn::Set(du, 0xFF);
    hn::StoreU(hn::Sub(hn::BitCast(d, hn::And(w0, mask)), bias), d, dst[0] + y * 8);
    hn::StoreU(hn::Sub(hn::BitCast(d, hn::And(w1, mask)), bias), d, dst[0] + 64 + y * 8);
    // Cb, Cr alternate in the high bytes.
    const auto c0 = hn::ShiftRight<8>(w0), c1 = hn::ShiftRight<8>(w1);
    hn::StoreU(hn::Sub(hn::BitCast(d, hn::ConcatEven(du, c1, c0)), bias), d, dst[1] + y * 8);
    hn::StoreU(hn::Sub(hn::BitCast(d, hn::ConcatOdd(du, c1, c0)), bias), d, dst[2] + y * 8);
  }
}

void JoinKernel(const int16_t* const* src, uint8_t* dst, int32_t step) {
  const D128 d;
  const hn::Full128<uint8_t> d8;
  for (int y = 0; y < 8; ++y) {
    const V128 y0 = Unshift(hn::LoadU(d, src[0] + y * 8));
    const V128 y1 = Unshift(hn::LoadU(d, src[0] + 64 + y * 8));
    const V128 cb = Unshift(hn::LoadU(d, src[1] + y * 8));
    const V128 cr = Unshift(hn::LoadU(d, src[2] + y * 8));
    uint8_t* o = dst + ptrdiff_t(step) * y;
    const V128 w0 = hn::Or(y0, hn::ShiftLeft<8>(hn::InterleaveLower(d, cb, cr)));
    const V128 w1 = hn::Or(y1, hn::ShiftLeft<8>(hn::InterleaveUpper(d, cb, cr)));
    hn::StoreU(hn::BitCast(d8, w0), d8, o);
    hn::StoreU(hn::BitCast(d8, w1), d8, o + 16);
  }
}

void SampleUpKernel(const int16_t* const* src, uint8_t* dst, int32_t step) {
  const D128 d;
  const hn::Full128<uint8_t> d8;
  const hn::Full64<uint8_t> dh;
  auto bytes = [&](V128 lo, V128 hi) RVT_MCU_INLINE {
    return hn::Combine(d8, hn::DemoteTo(dh, hi), hn::DemoteTo(dh, lo));
  };
  for (int y = 0; y < 8; ++y) {
    alignas(16) int16_t cb[16], cr[16];
    UpH2V1(Unshift(hn::LoadU(d, src[1] + y * 8)), cb);
    UpH2V1(Unshift(hn::LoadU(d, src[2] + y * 8)), cr);
    const auto luma =
        bytes(Unshift(hn::LoadU(d, src[0] + y * 8)), Unshift(hn::LoadU(d, src[0] + 64 + y * 8)));
    hn::StoreInterleaved3(luma, bytes(hn::Load(d, cb), hn::Load(d, cb + 8)),
                          bytes(hn::Load(d, cr), hn::Load(d, cr + 8)), d8, dst + ptrdiff_t(step) * y);
  }
}

// The same result organised in two passes, the form variant-1 processors
// run: every chroma row of the MCU up-sampled into a 16x8 staging block
// first, then the luma rows interleaved with it.
void SampleUpTwoPassKernel(const int16_t* const* src, uint8_t* dst, int32_t step) {
  const D128 d;
  const hn::Full128<uint8_t> d8;
  const hn::Full64<uint8_t> dh;
  auto bytes = [&](V128 lo, V128 hi) RVT_MCU_INLINE {
    return hn::Combine(d8, hn::DemoteTo(dh, hi), hn::DemoteTo(dh, lo));
  };
  alignas(16) int16_t cb[128], cr[128];
  for (int y = 0; y < 8; ++y) {
    UpH2V1(Unshift(hn::LoadU(d, src[1] + y * 8)), cb + 16 * y);
    UpH2V1(Unshift(hn::LoadU(d, src[2] + y * 8)), cr + 16 * y);
  }
  for (int y = 0; y < 8; ++y) {
    const auto luma =
        bytes(Unshift(hn::LoadU(d, src[0] + y * 8)), Unshift(hn::LoadU(d, src[0] + 64 + y * 8)));
    hn::StoreInterleaved3(luma, bytes(hn::Load(d, cb + 16 * y), hn::Load(d, cb + 16 * y + 8)),
                          bytes(hn::Load(d, cr + 16 * y), hn::Load(d, cr + 16 * y + 8)), d8,
                          dst + ptrdiff_t(step) * y);
  }
}

}  // namespace rvt::mcu::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_MCU_INL_H_
