// Fused chroma up-sampling and colour conversion: the vector rows of one
// target.  No checks here: the drivers in upsample_color.h have checked the
// arguments before any row runs.
#if defined(RVT_JPEG_UPSAMPLE_COLOR_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_UPSAMPLE_COLOR_INL_H_
#undef RVT_JPEG_UPSAMPLE_COLOR_INL_H_
#else
#define RVT_JPEG_UPSAMPLE_COLOR_INL_H_
#endif

#include <hwy/highway.h>

#include "jpeg/color-inl.h"
#include "jpeg/upsample_color.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::upsample_color::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace cv = ::rvt::color::HWY_NAMESPACE;

// A step converts the 2N pixels of N chroma columns j .. j+N-1 (N = lanes
// of int16).  The chroma is up-sampled in int16 lanes, one column per lane,
// as even outputs (pixel 2i) and odd outputs (pixel 2i+1); interleaving the
// two within 128-bit blocks gives the pixels in the order cv::Unzip gives
// the luma bytes, so InvAdditiveSat runs lane by lane on matching pixels
// and the colour store puts them back in memory order.  Every up-sampled
// value is a byte before it enters the conversion, as in the two-step path.
using D16 = cv::D16;
using V16 = cv::V16;

HWY_INLINE V16 Bytes(const uint8_t* p) { return cv::Widen(hn::LoadU(cv::D8(), p)); }
HWY_INLINE V16 Times3(V16 v) { return hn::Add(hn::Add(v, v), v); }

struct Chroma {
  V16 lo, hi;  // pixels of the step in Unzip's order
};
HWY_INLINE Chroma Pixels(V16 even, V16 odd) {
  const D16 d;
  return {hn::InterleaveLower(d, even, odd), hn::InterleaveUpper(d, even, odd)};
}

// Two dimensions: c = 3 near + far per column, even = (3 c[i] + c[i-1] + 8)
// >> 4, odd = (3 c[i] + c[i+1] + 7) >> 4 (all below 2^12).
HWY_INLINE Chroma Up420(const uint8_t* near, const uint8_t* far, ptrdiff_t j) {
  const auto col = [&](ptrdiff_t k) HWY_ATTR {
    return hn::Add(Times3(Bytes(near + k)), Bytes(far + k));
  };
  const V16 left = col(j - 1), mid3 = Times3(col(j)), right = col(j + 1);
  const V16 even = hn::ShiftRight<4>(hn::Add(hn::Add(mid3, left), cv::K16(8)));
  const V16 odd = hn::ShiftRight<4>(hn::Add(hn::Add(mid3, right), cv::K16(7)));
  return Pixels(even, odd);
}

// One dimension: even = (3 s[i] + s[i-1] + 1) >> 2, odd = (3 s[i] + s[i+1]
// + 2) >> 2.
HWY_INLINE Chroma Up422(const uint8_t* s, ptrdiff_t j) {
  const V16 mid3 = Times3(Bytes(s + j));
  const V16 even = hn::ShiftRight<2>(hn::Add(hn::Add(mid3, Bytes(s + j - 1)), cv::K16(1)));
  const V16 odd = hn::ShiftRight<2>(hn::Add(hn::Add(mid3, Bytes(s + j + 1)), cv::K16(2)));
  return Pixels(even, odd);
}

// Converts the 2N pixels from pixel 2j with their up-sampled chroma.
HWY_INLINE void Convert(const uint8_t* y, const Chroma& cb, const Chroma& cr, uint8_t* dst,
                        ptrdiff_t j) {
  const cv::Wide luma = cv::Unzip(hn::LoadU(cv::DB(), y + 2 * j));
  const color::InvAdditiveSat arith;
  const cv::WPix out{cv::Apply(arith, cv::Pix{luma.lo, cb.lo, cr.lo, luma.lo}),
                     cv::Apply(arith, cv::Pix{luma.hi, cb.hi, cr.hi, luma.hi})};
  color::Rows rows{};
  rows.d[0] = dst;
  cv::StoreWide(color::Rgb3{}, rows, int(2 * j), out);
}

// Steps over the interior chroma columns 1 .. cw-2 (each has both
// neighbours), the last one moved back to end at cw-1 (it rewrites a few
// equal pixels); the edge pixels and rows too short for one step go to the
// reference.  Returns the first pixel after the steps, 0 when none ran.
template <class Step>
HWY_INLINE ptrdiff_t Interior(ptrdiff_t width, const Step& step) {
  const ptrdiff_t n = ptrdiff_t(hn::Lanes(D16())), cw = (width + 1) / 2;
  if (cw - 2 < n) return 0;
  ptrdiff_t j = 1;
  for (; j + n <= cw - 1; j += n) step(j);
  if (j < cw - 1) step(cw - 1 - n);
  return 2 * (cw - 1);
}

inline void Row420(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf, const uint8_t* crn,
                   const uint8_t* crf, uint8_t* dst, ptrdiff_t width) {
  const ptrdiff_t end = Interior(width, [&](ptrdiff_t j) HWY_ATTR {
    Convert(y, Up420(cbn, cbf, j), Up420(crn, crf, j), dst, j);
  });
  if (end == 0) return Pixels420Ref(y, cbn, cbf, crn, crf, dst, width, 0, width);
  Pixels420Ref(y, cbn, cbf, crn, crf, dst, width, 0, 2);
  Pixels420Ref(y, cbn, cbf, crn, crf, dst, width, end, width);
}

inline void Row422(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst,
                   ptrdiff_t width) {
  const ptrdiff_t end = Interior(
      width, [&](ptrdiff_t j) HWY_ATTR { Convert(y, Up422(cb, j), Up422(cr, j), dst, j); });
  if (end == 0) return Pixels422Ref(y, cb, cr, dst, width, 0, width);
  Pixels422Ref(y, cb, cr, dst, width, 0, 2);
  Pixels422Ref(y, cb, cr, dst, width, end, width);
}

}  // namespace rvt::upsample_color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_UPSAMPLE_COLOR_INL_H_
