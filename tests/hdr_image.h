// Half-float images for the BC6H tests and benchmark: conversion to and
// from half-float bit patterns, synthetic HDR scenes, photos lifted into
// HDR, and the log-space PSNR that scores them.
#ifndef RVT_TESTS_HDR_IMAGE_H_
#define RVT_TESTS_HDR_IMAGE_H_

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "checkasm.h"
#include "photo.h"

namespace rvt::test {

// Nearest half (ties to even); beyond the largest finite, infinity.
inline uint16_t ToHalf(float f) {
  uint32_t x;
  std::memcpy(&x, &f, 4);
  const uint16_t sign = uint16_t(x >> 16 & 0x8000);
  const float a = std::fabs(f);
  if (std::isnan(f)) return uint16_t(sign | 0x7E00);
  if (a >= 65520.0f) return uint16_t(sign | 0x7C00);
  if (a < 6.103515625e-05f) {  // subnormal: multiples of 2^-24
    return uint16_t(sign | int(std::nearbyint(a * 16777216.0f)));
  }
  int e;
  const float m = std::frexp(a, &e);  // a = m * 2^e, m in [0.5, 1)
  int mant = int(std::nearbyint((m * 2.0f - 1.0f) * 1024.0f));
  int exp = e - 1 + 15;
  if (mant == 1024) mant = 0, ++exp;
  return uint16_t(sign | exp << 10 | mant);
}
inline float FromHalf(uint16_t h) {
  const int exp = h >> 10 & 31, mant = h & 1023;
  float v = exp == 0 ? std::ldexp(float(mant), -24)
            : exp == 31 ? (mant ? NAN : INFINITY)
                        : std::ldexp(float(mant + 1024), exp - 25);
  return h >> 15 ? -v : v;
}

// An RGB half image, three values per pixel, rows packed.
struct HalfImage {
  int width = 0, height = 0;
  std::vector<uint16_t> px;
};

// A synthetic scene: a sky gradient spanning 2^-6 to 2^12, coloured
// stripes, a dark corner down to 2^-14, sharp highlights up to 2^15, and
// noise.  Signed: the stripes swing through zero.
inline HalfImage SyntheticHdr(int w, int h, bool is_signed, uint32_t seed) {
  HalfImage im{w, h, std::vector<uint16_t>(size_t(w) * h * 3)};
  Rng rng(seed);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const float u = float(x) / float(w), v = float(y) / float(h);
      for (int c = 0; c < 3; ++c) {
        float val = std::exp2(-6.0f + 18.0f * (1.0f - v) * (0.6f + 0.4f * u) + 0.5f * float(c));
        val *= 1.0f + 0.5f * std::sin(float(x) * (0.11f + 0.05f * float(c)) + float(y) * 0.07f);
        if (x < w / 4 && y > 3 * h / 4) val *= 1.0f / 16384.0f;
        if ((x / 7 + y / 5) % 23 == 0) val = 32768.0f * (0.5f + 0.5f * float(c) / 2.0f);
        val *= 1.0f + 0.05f * (float(rng.Uniform(0, 1000)) / 1000.0f - 0.5f);
        if (is_signed) val *= std::sin(float(x + 3 * c) * 0.05f + float(y) * 0.03f) > -0.3f ? 1.0f : -1.0f;
        im.px[(size_t(y) * w + x) * 3 + c] = ToHalf(val);
      }
    }
  }
  return im;
}

// A test photo lifted into HDR: each 8-bit value p to 2^(15 p / 255) - 1,
// so its 256 levels spread over 15 stops; signed, the values below 128
// become negative: -(2^(15 (128 - p) / 128) - 1).
inline HalfImage PhotoHdr(const Photo& p, bool is_signed) {
  HalfImage im{p.width, p.height, std::vector<uint16_t>(p.px.size())};
  for (size_t i = 0; i < p.px.size(); ++i) {
    const float v = float(p.px[i]);
    float val;
    if (!is_signed) {
      val = std::exp2(15.0f * v / 255.0f) - 1.0f;
    } else {
      const float m = std::exp2(15.0f * std::fabs(v - 128.0f) / 128.0f) - 1.0f;
      val = v < 128.0f ? -m : m;
    }
    im.px[i] = ToHalf(val);
  }
  return im;
}

// PSNR of sign(x) log2(1 + |x|) against the source, the peak being the
// largest |sign(x) log2(1 + |x|)| of the source.
inline double LogPsnr(const std::vector<uint16_t>& src, const std::vector<uint16_t>& got) {
  double se = 0, peak = 0;
  for (size_t i = 0; i < src.size(); ++i) {
    auto lg = [](uint16_t h) {
      const double x = FromHalf(h);
      return x < 0 ? -std::log2(1 - x) : std::log2(1 + x);
    };
    const double a = lg(src[i]), b = lg(got[i]);
    se += (a - b) * (a - b);
    peak = std::fabs(a) > peak ? std::fabs(a) : peak;
  }
  return se == 0 ? 99.0 : 10 * std::log10(peak * peak * double(src.size()) / se);
}

}  // namespace rvt::test

#endif  // RVT_TESTS_HDR_IMAGE_H_
