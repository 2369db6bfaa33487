// Chroma up-sampling fused with the YCbCr to RGB conversion: one RGB row of
// a 4:2:0 or 4:2:2 frame from its luma row and the chroma rows that feed
// it, without full-resolution chroma rows in between.  The result is
// defined as the two row steps one after the other (the triangle row
// samplers of sampling.h, then the InvAdditiveSat conversion of color.h);
// the reference below runs exactly those scalar rows on short strips held
// on the stack, so the definition cannot drift from theirs.
#ifndef RVT_JPEG_UPSAMPLE_COLOR_H_
#define RVT_JPEG_UPSAMPLE_COLOR_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/checks.h"
#include "jpeg/color.h"
#include "jpeg/sampling.h"
#include "rvtjp.h"

namespace rvt::upsample_color {

// Row kernels: a whole row of `width` pixels; chroma rows hold
// (width + 1) / 2 samples.
using Row420Fn = void (*)(const uint8_t* y, const uint8_t* cb_near, const uint8_t* cb_far,
                          const uint8_t* cr_near, const uint8_t* cr_far, uint8_t* dst,
                          ptrdiff_t width);
using Row422Fn = void (*)(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst,
                          ptrdiff_t width);

// ------------------------------------------------------------ reference

// Chroma columns per strip.
inline constexpr ptrdiff_t kStrip = 64;

// Up-samples chroma columns [a, b) of a row of cw columns into `up` (its
// outputs 2a .. 2b-1 land at up + 2 (a - wa), returned as wa): the row
// sampler runs on the columns with one neighbour on each side where the
// row has one, so the outputs kept see the neighbours (or the replicated
// edge) they see in a whole-row call.
template <class Sample>
inline ptrdiff_t StripWindow(ptrdiff_t a, ptrdiff_t b, ptrdiff_t cw, const Sample& sample) {
  const ptrdiff_t wa = std::max<ptrdiff_t>(a - 1, 0), wb = std::min(b + 1, cw);
  sample(wa, wb - wa);
  return wa;
}

// Converts pixels [q0, q1) whose up-sampled chroma starts (pixel 2 wa) at
// cb / cr.
inline void ConvertStrip(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst,
                         ptrdiff_t wa, ptrdiff_t q0, ptrdiff_t q1) {
  color::Rows r{};
  r.s[0] = y + q0;
  r.s[1] = cb + (q0 - 2 * wa);
  r.s[2] = cr + (q0 - 2 * wa);
  r.d[0] = dst + 3 * q0;
  r.rows = 1;
  color::PixelsRef<color::P3, color::InvAdditiveSat, color::Rgb3>(r, 0, int(q1 - q0));
}

// Walks pixels [p0, p1) strip by strip; up(wa, n, cb, cr) fills the strip
// buffers from chroma column wa on.
template <class Up>
inline void StripsRef(const uint8_t* y, uint8_t* dst, ptrdiff_t width, ptrdiff_t p0, ptrdiff_t p1,
                      const Up& up) {
  const ptrdiff_t cw = (width + 1) / 2;
  uint8_t cb[2 * (kStrip + 2)], cr[2 * (kStrip + 2)];
  for (ptrdiff_t a = p0 / 2; 2 * a < p1; a += kStrip) {
    const ptrdiff_t b = std::min(a + kStrip, cw);
    const ptrdiff_t wa =
        StripWindow(a, b, cw, [&](ptrdiff_t at, ptrdiff_t n) { up(at, n, cb, cr); });
    ConvertStrip(y, cb, cr, dst, wa, std::max(p0, 2 * a), std::min(p1, 2 * b));
  }
}

// Pixels [p0, p1) of the rows; the vector kernels use them for the edges.
inline void Pixels420Ref(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf,
                         const uint8_t* crn, const uint8_t* crf, uint8_t* dst, ptrdiff_t width,
                         ptrdiff_t p0, ptrdiff_t p1) {
  StripsRef(y, dst, width, p0, p1, [&](ptrdiff_t at, ptrdiff_t n, uint8_t* cb, uint8_t* cr) {
    sampling::UpRowH2V2RowRef(cbn + at, cbf + at, cb, n);
    sampling::UpRowH2V2RowRef(crn + at, crf + at, cr, n);
  });
}

inline void Pixels422Ref(const uint8_t* y, const uint8_t* cbs, const uint8_t* crs, uint8_t* dst,
                         ptrdiff_t width, ptrdiff_t p0, ptrdiff_t p1) {
  StripsRef(y, dst, width, p0, p1, [&](ptrdiff_t at, ptrdiff_t n, uint8_t* cb, uint8_t* cr) {
    sampling::UpRowH2V1RowRef(cbs + at, cb, n);
    sampling::UpRowH2V1RowRef(crs + at, cr, n);
  });
}

inline void Row420Ref(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf,
                      const uint8_t* crn, const uint8_t* crf, uint8_t* dst, ptrdiff_t width) {
  Pixels420Ref(y, cbn, cbf, crn, crf, dst, width, 0, width);
}
inline void Row422Ref(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst,
                      ptrdiff_t width) {
  Pixels422Ref(y, cb, cr, dst, width, 0, width);
}

// ------------------------------------------------------------ checks

// Every row pointer in argument order, then the width.
inline RvtResult Check420(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf,
                          const uint8_t* crn, const uint8_t* crf, const uint8_t* dst,
                          int32_t width) {
  RVT_CHECK(CheckPtr(y));
  RVT_CHECK(CheckPtr(cbn));
  RVT_CHECK(CheckPtr(cbf));
  RVT_CHECK(CheckPtr(crn));
  RVT_CHECK(CheckPtr(crf));
  RVT_CHECK(CheckPtr(dst));
  return width < 1 ? rvtStatusSize : rvtStatusOk;
}
inline RvtResult Check422(const uint8_t* y, const uint8_t* cb, const uint8_t* cr,
                          const uint8_t* dst, int32_t width) {
  RVT_CHECK(CheckPtr(y));
  RVT_CHECK(CheckPtr(cb));
  RVT_CHECK(CheckPtr(cr));
  RVT_CHECK(CheckPtr(dst));
  return width < 1 ? rvtStatusSize : rvtStatusOk;
}

// ------------------------------------------------------------ drivers

template <Row420Fn kRow>
RvtResult Row420(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf, const uint8_t* crn,
                 const uint8_t* crf, uint8_t* dst, int32_t width) {
  RVT_CHECK(Check420(y, cbn, cbf, crn, crf, dst, width));
  kRow(y, cbn, cbf, crn, crf, dst, width);
  return rvtStatusOk;
}

template <Row422Fn kRow>
RvtResult Row422(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* dst,
                 int32_t width) {
  RVT_CHECK(Check422(y, cb, cr, dst, width));
  kRow(y, cb, cr, dst, width);
  return rvtStatusOk;
}

// ------------------------------------------------------------ reference entries

inline RvtResult Row420EntryRef(const uint8_t* y, const uint8_t* cbn, const uint8_t* cbf,
                                const uint8_t* crn, const uint8_t* crf, uint8_t* dst,
                                int32_t width) {
  return Row420<Row420Ref>(y, cbn, cbf, crn, crf, dst, width);
}
inline RvtResult Row422EntryRef(const uint8_t* y, const uint8_t* cb, const uint8_t* cr,
                                uint8_t* dst, int32_t width) {
  return Row422<Row422Ref>(y, cb, cr, dst, width);
}

}  // namespace rvt::upsample_color

#endif  // RVT_JPEG_UPSAMPLE_COLOR_H_
