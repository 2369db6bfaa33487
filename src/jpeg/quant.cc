// Quantization tables (8-bit raw tables scaled by a quality factor, 16-bit
// forward reciprocal and inverse tables) and the 8x8 quantizer and
// dequantizer that apply them in place.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/quant.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstring>

#include "frame/checks.h"
#include "frame/dispatch.h"
#include "frame/widen.h"

#ifndef RVT_JPEG_QUANT_ONCE
#define RVT_JPEG_QUANT_ONCE
namespace rvt {
namespace {

// Zig-zag index of each natural (row-major) position: raw tables arrive in
// the order a DQT segment carries them.
constexpr int32_t kZigzagOfNatural[64] = {
    0,  1,  5,  6,  14, 15, 27, 28,  //
    2,  4,  7,  13, 16, 26, 29, 42,  //
    3,  8,  12, 17, 25, 30, 41, 43,  //
    9,  11, 18, 24, 31, 40, 44, 53,  //
    10, 19, 23, 32, 39, 45, 52, 54,  //
    20, 22, 33, 38, 46, 51, 55, 60,  //
    21, 34, 37, 47, 50, 56, 59, 61,  //
    35, 36, 48, 49, 57, 58, 62, 63,
};

// round(32768 / q) for every step size; no quotient by 1..255 is a tie.
// Step 0 has no reciprocal and gets 65535.
struct Reciprocals {
  uint16_t r[256];
};
constexpr Reciprocals MakeReciprocals() {
  Reciprocals t{};
  t.r[0] = 65535;
  for (int q = 1; q < 256; ++q) t.r[q] = uint16_t((32768 + q / 2) / q);
  return t;
}
constexpr Reciprocals kReciprocals = MakeReciprocals();

// The raw table widened to 16 bits and put in natural order.
void NaturalWide(const uint8_t* raw, uint16_t* out) {
  uint16_t wide[64];
  // Contiguous 64-element region: cannot fail.
  Widen8u16u(raw, 64, wide, 128, ImageSize{64, 1});
  for (int i = 0; i < 64; ++i) out[i] = wide[kZigzagOfNatural[i]];
}

RvtResult QuantFwdRawTableInit(uint8_t* raw, int32_t quality) {
  RVT_CHECK(CheckPtr(raw));
  if (quality < 1) return rvtStatusBadArg;
  // 64-bit so that any quality is well defined: above 100 the scale is
  // negative and every entry becomes 1.
  const int64_t scale = quality < 50 ? 5000 / quality : 200 - 2 * int64_t(quality);
  for (int i = 0; i < 64; ++i) {
    int64_t v = (int64_t(raw[i]) * scale + 50) / 100;
    if (v >= 255) v = 255;
    if (v <= 0) v = 1;
    raw[i] = uint8_t(v);
  }
  return rvtStatusOk;
}

RvtResult QuantFwdTableInit(const uint8_t* raw, uint16_t* fwd) {
  RVT_CHECK(CheckPtr(raw));
  RVT_CHECK(CheckPtr(fwd));
  uint16_t q[64], out[64];
  NaturalWide(raw, q);
  RvtResult status = rvtStatusOk;
  for (int i = 0; i < 64; ++i) {
    out[i] = kReciprocals.r[q[i]];
    if (q[i] == 0) status = rvtStatusDivByZero;
  }
  std::memcpy(fwd, out, sizeof(out));  // any alignment
  return status;
}

RvtResult QuantInvTableInit(const uint8_t* raw, uint16_t* inv) {
  RVT_CHECK(CheckPtr(raw));
  RVT_CHECK(CheckPtr(inv));
  uint16_t q[64];
  NaturalWide(raw, q);
  std::memcpy(inv, q, sizeof(q));
  return rvtStatusOk;
}

}  // namespace

// x / q from the reciprocal R = round(32768 / q): ((8x * (R >> 1)) >> 16 + 1)
// >> 1, all in 16 bits.  The product keeps one extra bit so the final shift
// rounds halves upward.
RvtResult QuantFwd8x8Ref(int16_t* block, const uint16_t* fwd) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(fwd));
  int16_t b[64];
  uint16_t r[64];
  std::memcpy(b, block, sizeof(b));  // blocks and tables may sit at any address
  std::memcpy(r, fwd, sizeof(r));
  for (int i = 0; i < 64; ++i) {
    const int16_t a = int16_t(b[i] * 8);
    const int32_t h = r[i] >> 1;
    const int16_t p = int16_t((a * h) >> 16);
    b[i] = int16_t((p + 1) >> 1);
  }
  std::memcpy(block, b, sizeof(b));
  return rvtStatusOk;
}

// value * q, keeping the low 16 bits.
RvtResult QuantInv8x8Ref(int16_t* block, const uint16_t* inv) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(inv));
  int16_t b[64];
  uint16_t q[64];
  std::memcpy(b, block, sizeof(b));
  std::memcpy(q, inv, sizeof(q));
  for (int i = 0; i < 64; ++i) b[i] = int16_t(b[i] * q[i]);
  std::memcpy(block, b, sizeof(b));
  return rvtStatusOk;
}

RVT_IMPL_PLAIN(rvtiQuantFwdRawTableInit_JPEG_8u, QuantFwdRawTableInit);
RVT_IMPL_PLAIN(rvtiQuantFwdTableInit_JPEG_8u16u, QuantFwdTableInit);
RVT_IMPL_PLAIN(rvtiQuantInvTableInit_JPEG_8u16u, QuantInvTableInit);

}  // namespace rvt
#endif  // RVT_JPEG_QUANT_ONCE

HWY_BEFORE_NAMESPACE();
namespace rvt {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

RvtResult QuantFwd8x8(int16_t* block, const uint16_t* fwd) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(fwd));
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  constexpr size_t N = hn::MaxLanes(d);
  static_assert(64 % N == 0, "whole vectors per block");
  const auto one = hn::Set(d, 1);
  for (size_t i = 0; i < 64; i += N) {
    const auto a = hn::ShiftLeft<3>(hn::LoadU(d, block + i));
    const auto h = hn::BitCast(d, hn::ShiftRight<1>(hn::LoadU(du, fwd + i)));
    hn::StoreU(hn::ShiftRight<1>(hn::Add(hn::MulHigh(a, h), one)), d, block + i);
  }
  return rvtStatusOk;
}

RvtResult QuantInv8x8(int16_t* block, const uint16_t* inv) {
  RVT_CHECK(CheckPtr(block));
  RVT_CHECK(CheckPtr(inv));
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  constexpr size_t N = hn::MaxLanes(d);
  for (size_t i = 0; i < 64; i += N) {
    const auto q = hn::BitCast(d, hn::LoadU(du, inv + i));
    hn::StoreU(hn::Mul(hn::LoadU(d, block + i), q), d, block + i);
  }
  return rvtStatusOk;
}

}  // namespace HWY_NAMESPACE
}  // namespace rvt
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY_LEGACY(rvtiQuantFwd8x8_JPEG_16s_C1I, QuantFwd8x8, QuantFwd8x8Ref);
RVT_IMPL_HWY_LEGACY(rvtiQuantInv8x8_JPEG_16s_C1I, QuantInv8x8, QuantInv8x8Ref);
}  // namespace rvt
#endif
