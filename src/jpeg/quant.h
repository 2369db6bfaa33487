// Quantization: the tables (8-bit raw tables scaled by a quality factor,
// 16-bit forward reciprocal and inverse tables in natural order) and the
// 8x8 quantizer and dequantizer that apply them in place.  The scalar
// kernels here define every result; the argument checks and the block
// driver live here too, so every target shares them.
#ifndef RVT_JPEG_QUANT_H_
#define RVT_JPEG_QUANT_H_

#include <cstdint>
#include <cstring>

#include "frame/checks.h"
#include "jpeg/zigzag.h"
#include "rvtjp.h"

namespace rvt::quant {

// ------------------------------------------------------------ reference

// x / q from the reciprocal R = round(32768 / q): ((8x * (R >> 1)) >> 16 + 1)
// >> 1, all in 16 bits.  The product keeps one extra bit so the final shift
// rounds halves upward.  Blocks and tables may sit at any address.
inline void FwdBlockRef(int16_t* block, const uint16_t* fwd) {
  int16_t b[64];
  uint16_t r[64];
  std::memcpy(b, block, sizeof(b));
  std::memcpy(r, fwd, sizeof(r));
  for (int i = 0; i < 64; ++i) {
    const int16_t a = int16_t(b[i] * 8);
    const int32_t h = r[i] >> 1;
    const int16_t p = int16_t((a * h) >> 16);
    b[i] = int16_t((p + 1) >> 1);
  }
  std::memcpy(block, b, sizeof(b));
}

// value * q, keeping the low 16 bits.
inline void InvBlockRef(int16_t* block, const uint16_t* inv) {
  int16_t b[64];
  uint16_t q[64];
  std::memcpy(b, block, sizeof(b));
  std::memcpy(q, inv, sizeof(q));
  for (int i = 0; i < 64; ++i) b[i] = int16_t(b[i] * q[i]);
  std::memcpy(block, b, sizeof(b));
}

// round(32768 / q) for every step size; no quotient by 1..255 is a tie.
// Step 0 has no reciprocal and gets 65535.
struct Reciprocals {
  uint16_t r[256];
  constexpr Reciprocals() : r() {
    r[0] = 65535;
    for (int q = 1; q < 256; ++q) r[q] = uint16_t((32768 + q / 2) / q);
  }
};
inline constexpr Reciprocals kReciprocals{};

// The raw table (in the zig-zag order a DQT segment carries) widened to 16
// bits in natural order.
inline void NaturalWide(const uint8_t* raw, uint16_t* out) {
  for (int i = 0; i < 64; ++i) out[i] = raw[kZigzagOfNatural.v[i]];
}

// ------------------------------------------------------------ checks

// The block, then the table.
inline RvtResult CheckBlock(const void* block, const void* table) {
  RVT_CHECK(CheckPtr(block));
  return CheckPtr(table);
}

// ------------------------------------------------------------ driver

// Checks, then the block kernel.
template <void (*kBlock)(int16_t*, const uint16_t*)>
RvtResult Block(int16_t* block, const uint16_t* table) {
  RVT_CHECK(CheckBlock(block, table));
  kBlock(block, table);
  return rvtStatusOk;
}

// The reference entries.
inline RvtResult FwdRef(int16_t* block, const uint16_t* fwd) { return Block<FwdBlockRef>(block, fwd); }
inline RvtResult InvRef(int16_t* block, const uint16_t* inv) { return Block<InvBlockRef>(block, inv); }

// ------------------------------------------------------------ tables (scalar only)

inline RvtResult RawTableInit(uint8_t* raw, int32_t quality) {
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

// A zero step gets 65535 and the status rvtStatusDivByZero; the rest of the
// table is still built.
inline RvtResult FwdTableInit(const uint8_t* raw, uint16_t* fwd) {
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

inline RvtResult InvTableInit(const uint8_t* raw, uint16_t* inv) {
  RVT_CHECK(CheckPtr(raw));
  RVT_CHECK(CheckPtr(inv));
  uint16_t q[64];
  NaturalWide(raw, q);
  std::memcpy(inv, q, sizeof(q));
  return rvtStatusOk;
}

}  // namespace rvt::quant

#endif  // RVT_JPEG_QUANT_H_
