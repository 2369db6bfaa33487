// Scaled YCoCg in DXT5 blocks: the vector decoder row of one target.  No
// checks here.  The DXT5 palette and indices come from the DXT5 kernels
// (one block per 128-bit block); each pixel row is then transformed in
// 32-bit lanes, one pixel per lane.  The quotients are taken in single
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

}  // namespace rvt::ycocg_dxt5::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_TEXTURE_YCOCG_DXT5_INL_H_
