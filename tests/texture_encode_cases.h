// Cases of the texture encoders' differential checks: regions of every
// small size and some wide ones at every quality, every third walking
// upwards, filled with what tiles of real images hold (gradients with
// noise, flat tiles, two-level tiles, values pinned at 0 and 255, alpha
// around the DXT1 cut-off) as well as plain noise.
#ifndef RVT_TESTS_TEXTURE_ENCODE_CASES_H_
#define RVT_TESTS_TEXTURE_ENCODE_CASES_H_

#include <string>
#include <vector>

#include "checkasm.h"

namespace rvt::test {

// One pixel byte at (x, y), channel c, of a picture of kind `kind`.
inline uint8_t EncodeSample(Rng& rng, int kind, int x, int y, int c) {
  int noise;
  rng.Fill(&noise, 1, -12, 12);
  switch (kind % 6) {
    case 0: {  // plain noise
      uint8_t v;
      rng.Fill(&v, 1, uint8_t(0), uint8_t(255));
      return v;
    }
    case 1:  // gradient with noise, clipped at both ends
      return uint8_t(std::clamp(x * 23 + y * 11 * (c + 1) - 40 + noise, 0, 255));
    case 2:  // flat 4x4 tiles
      return uint8_t((x / 4 * 73 + y / 4 * 41 + c * 90) & 255);
    case 3:  // two levels per tile
      return uint8_t(((x + y + c) & 1) ? 30 + 50 * c : 200 - 40 * c);
    case 4:  // 0, 255 and values between
      return uint8_t((x * 7 + y * 3 + c) % 5 == 0 ? 0 : (x + y * 2 + c) % 4 == 0 ? 255 : 90 + noise * 3);
    default:  // smooth, and alpha straddling 128
      return uint8_t(c == 3 ? 128 + ((x * 5 + y * 3) % 7) - 3 : 120 + x * 3 - y * 2 + noise / 4);
  }
}

// Cases for fn(src, step, dst, roi, quality) with `pixel`-byte pixels and
// `block`-byte blocks.
inline auto EncodeCases(int pixel, int block) {
  return Cases{
      [pixel, block](Rng& rng) {
        std::vector<ImageSize> sizes;
        for (int h = 1; h <= 9; ++h) {
          for (int w = 1; w <= 9; ++w) sizes.push_back({w, h});
        }
        for (int w = 10; w <= 40; w += 3) sizes.push_back({w, w % 5 + 4});
        sizes.push_back({64, 64});
        std::vector<Case> out;
        for (size_t i = 0; i < sizes.size() * 3; ++i) {
          const ImageSize roi = sizes[i / 3];
          Case c;
          c.roi = roi;
          c.arg[0] = int64_t(i % 3);   // quality
          c.arg[1] = (i / 3) % 3 == 2;  // upwards
          const int kind = int(i / 3 + i) % 6;
          c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height) + " q" +
                    std::to_string(c.arg[0]) + " kind " + std::to_string(kind) + (c.arg[1] ? ", negative step" : "");
          c.in.push_back(PlaneOf<uint8_t>(roi.width * pixel, roi.height, roi.width * pixel + int(i % 7), int(i % 5)));
          for (int y = 0; y < roi.height; ++y) {
            for (int x = 0; x < roi.width; ++x) {
              for (int ch = 0; ch < pixel; ++ch) c.in[0].row<uint8_t>(y)[x * pixel + ch] = EncodeSample(rng, kind, x, y, ch);
            }
          }
          const int blocks = (roi.width + 3) / 4 * ((roi.height + 3) / 4);
          c.out.push_back(ArrayOf<uint8_t>(blocks * block, int(i % 3)));
          out.push_back(std::move(c));
        }
        return out;
      },
      [](auto fn, Case& c) {
        Buf& s = c.in[0];
        const int q = int(c.arg[0]);
        if (c.arg[1]) return fn(s.row<uint8_t>(c.roi.height - 1), -s.step(), c.out[0].as<uint8_t>(), c.roi, q);
        return fn(s.as<uint8_t>(), s.step(), c.out[0].as<uint8_t>(), c.roi, q);
      }};
}

}  // namespace rvt::test

#endif  // RVT_TESTS_TEXTURE_ENCODE_CASES_H_
