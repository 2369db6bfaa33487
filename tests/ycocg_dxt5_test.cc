// Scaled YCoCg in DXT5 blocks: decoded pixels worked by hand, the decoder
// against the layout's real-valued formula over any DXT5 decoder's
// pixels, the encoder's edge tiles and exact tiles, photos round trip per
// quality beside the DXT1 and DXT5 colour encoders, and every target of the
// decoder and of the encoder against the reference.
#include <algorithm>
#include <chrono>
#include <cmath>

#include "checkasm.h"
#include "photo.h"
#include "texture_encode_cases.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;

// A block of one colour part (c0 = c1 = `colour`, index word 0) and one
// luma (a0 = a1 = y).
Bytes FlatBlock(int r5, int g6, int b5, int y) {
  const uint16_t c = uint16_t(r5 << 11 | g6 << 5 | b5);
  return {uint8_t(y), uint8_t(y), 0, 0, 0, 0, 0, 0, uint8_t(c), uint8_t(c >> 8), uint8_t(c), uint8_t(c >> 8), 0, 0, 0, 0};
}

// Each known block, repeated to a 4n x 4 region (every target's vector
// loop and its tail), decodes to the same pixel everywhere.
TEST(YCoCgDxt5, DecodesWorkedBlocks) {
  struct Known {
    Bytes block;
    uint8_t rgb[3];
  } known[] = {
      // s = 2, co = 4 (red 132), cg = 2 (green 130): exact quotients 1, 1, -3.
      {FlatBlock(16, 32, 1, 100), {101, 101, 97}},
      // s = 4, co = 4, cg = 6 (green 134): halves -0.5, 1.5, -2.5 round up to 0, 2, -2.
      {FlatBlock(16, 33, 3, 200), {200, 202, 198}},
      // s = 1, co = 127, cg = -128: R clamps at 255.
      {FlatBlock(31, 0, 0, 250), {255, 122, 251}},
      // blue 31 (s = 263 / 8): co = cg = -128 give 0, -4, 8 (7.79 rounds up).
      {FlatBlock(0, 0, 31, 50), {50, 46, 58}},
  };
  for (const Known& k : known) {
    for (int n : {1, 17}) {
      Bytes blocks;
      for (int i = 0; i < n; ++i) blocks.insert(blocks.end(), k.block.begin(), k.block.end());
      for (const auto& t : test::AllTargets(impl_rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R)) {
        Bytes out(size_t(16) * n * 4, 0xEE);
        ASSERT_EQ(t.fn(blocks.data(), out.data(), 16 * n, {4 * n, 4}), rvtStatusOk);
        for (size_t p = 0; p < out.size() / 4; ++p) {
          ASSERT_EQ(out[4 * p], k.rgb[0]) << t.name << " pixel " << p;
          ASSERT_EQ(out[4 * p + 1], k.rgb[1]) << t.name << " pixel " << p;
          ASSERT_EQ(out[4 * p + 2], k.rgb[2]) << t.name << " pixel " << p;
          ASSERT_EQ(out[4 * p + 3], 255) << t.name << " pixel " << p;
        }
      }
    }
  }
}

// Random blocks through the DXT5 decoder, then the real-valued formula
// (Co = (r - 128) / (b / 8 + 1) and so on, rounded half up in double):
// the same pixels as the YCoCg decoder.
TEST(YCoCgDxt5, DecoderIsTheFormulaOverDxt5Pixels) {
  test::Rng rng(21);
  const int w = 64, h = 32;
  Bytes blocks(size_t(w / 4) * (h / 4) * 16);
  rng.Fill(blocks.data(), blocks.size(), uint8_t(0), uint8_t(255));
  Bytes dxt5(size_t(w) * h * 4), ours(dxt5.size());
  ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R(blocks.data(), dxt5.data(), 4 * w, {w, h}), rvtStatusOk);
  ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R(blocks.data(), ours.data(), 4 * w, {w, h}), rvtStatusOk);
  for (size_t p = 0; p < size_t(w) * h; ++p) {
    const double scale = dxt5[4 * p + 2] / 8.0 + 1, co = (dxt5[4 * p] - 128) / scale,
                 cg = (dxt5[4 * p + 1] - 128) / scale, y = dxt5[4 * p + 3];
    const double want[3] = {y + std::floor(co - cg + 0.5), y + std::floor(cg + 0.5), y + std::floor(-co - cg + 0.5)};
    for (int c = 0; c < 3; ++c) {
      ASSERT_EQ(ours[4 * p + c], uint8_t(std::clamp(want[c], 0.0, 255.0))) << "pixel " << p << " channel " << c;
    }
  }
}

using EncodeFn = decltype(&rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R);
Bytes Encode(const uint8_t* src, int32_t step, ImageSize roi, int q, EncodeFn fn = rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R) {
  Bytes blocks(size_t((roi.width + 3) / 4) * ((roi.height + 3) / 4) * 16, 0xEE);
  EXPECT_EQ(fn(src, step, blocks.data(), roi, q), rvtStatusOk);
  return blocks;
}

// A 5x3 region encodes as its 8x4 padding by replication; alpha is not
// read; a negative step walks upwards.
TEST(YCoCgDxt5, EdgeTilesAlphaAndSteps) {
  test::Rng rng(5);
  Bytes px(5 * 3 * 4), padded(8 * 4 * 4), flipped(px.size());
  rng.Fill(px.data(), px.size(), uint8_t(0), uint8_t(255));
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 8; ++x) {
      std::memcpy(&padded[(y * 8 + x) * 4], &px[((y < 3 ? y : 2) * 5 + (x < 5 ? x : 4)) * 4], 4);
      padded[(y * 8 + x) * 4 + 3] = uint8_t(rng.Uniform(0, 255));
    }
  }
  for (int y = 0; y < 3; ++y) std::memcpy(&flipped[(2 - y) * 20], &px[y * 20], 20);
  for (int q = 0; q <= 2; ++q) {
    const Bytes a = Encode(px.data(), 20, {5, 3}, q);
    EXPECT_EQ(a, Encode(padded.data(), 32, {8, 4}, q)) << q;
    EXPECT_EQ(a, Encode(flipped.data() + 40, -20, {5, 3}, q)) << q;
  }
}

// Greys (no chroma) of one value come back exactly from quality 1, and so
// does a grey ramp that the luma's six interpolants hold.
TEST(YCoCgDxt5, GreyTilesComeBackExactly) {
  for (int v : {0, 1, 77, 128, 200, 255}) {
    Bytes px(64);
    for (int i = 0; i < 16; ++i) px[4 * i] = px[4 * i + 1] = px[4 * i + 2] = uint8_t(v), px[4 * i + 3] = 255;
    for (int q = 1; q <= 2; ++q) {
      const Bytes blk = Encode(px.data(), 16, {4, 4}, q);
      Bytes out(64);
      ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R(blk.data(), out.data(), 16, {4, 4}), rvtStatusOk);
      EXPECT_EQ(out, px) << "grey " << v << " quality " << q;
    }
  }
}

double RgbPsnr(const Bytes& a, const Bytes& b) {
  double se = 0;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    if (i % 4 == 3) continue;
    se += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    ++n;
  }
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(n) / se);
}

// The photos at every quality, decoded here: RGB PSNR and Mpix/s beside
// the DXT1 and DXT5 colour encoders at the same quality, in one run.  At
// twice DXT1's bits the layout must buy a clear gain over its colour.
TEST(YCoCgDxt5, PhotosRoundTrip) {
  std::printf("[ ycocg    ] %-14s %-3s %12s %12s %12s\n", "photo", "q", "YCoCg dB", "DXT1 dB", "Mpix/s");
  for (const char* name : {"coffee.png", "chelsea.png", "astronaut.png"}) {
    const test::Photo p = test::LoadPhoto(name, 3);
    ASSERT_FALSE(p.px.empty()) << name;
    const int w = p.width, h = p.height;
    Bytes rgba(size_t(w) * h * 4, 255);
    for (size_t i = 0; i < size_t(w) * h; ++i) std::memcpy(&rgba[4 * i], &p.px[3 * i], 3);
    for (int q = 0; q <= 2; ++q) {
      const auto t0 = std::chrono::steady_clock::now();
      const Bytes blocks = Encode(rgba.data(), 4 * w, {w, h}, q);
      const double us = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
      Bytes out(rgba.size());
      ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R(blocks.data(), out.data(), 4 * w, {w, h}), rvtStatusOk);
      const Bytes dxt1 = Encode(rgba.data(), 4 * w, {w, h}, q, rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R);
      Bytes out1(rgba.size());
      ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R(dxt1.data(), out1.data(), 4 * w, {w, h}), rvtStatusOk);
      const double ours = RgbPsnr(out, rgba), theirs = RgbPsnr(out1, rgba);
      std::printf("[ ycocg    ] %-14s %-3d %12.2f %12.2f %12.2f\n", name, q, ours, theirs, double(w) * h / us);
      EXPECT_GT(ours, theirs + 1.0) << name << " quality " << q;
    }
  }
}

// Regions of every size 1..9 each way, every width to 70, a wide one;
// every third walks upwards.  Blocks are random, a third of them with the
// blue fields an encoder writes.
auto DecodeCases() {
  return test::Cases{
      [](test::Rng& rng) {
        std::vector<ImageSize> sizes;
        for (int h = 1; h <= 9; ++h) {
          for (int w = 1; w <= 9; ++w) sizes.push_back({w, h});
        }
        for (int w = 10; w <= 70; ++w) sizes.push_back({w, int(w % 7 + 1)});
        sizes.push_back({1024, 256});
        std::vector<test::Case> out;
        for (size_t i = 0; i < sizes.size(); ++i) {
          const ImageSize roi = sizes[i];
          test::Case c;
          c.roi = roi;
          c.arg[0] = i % 3 == 2;
          c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height);
          const size_t n = size_t((roi.width + 3) / 4) * ((roi.height + 3) / 4) * 16;
          c.in.push_back(test::ArrayOf<uint8_t>(int(n), int(i % 5)));
          uint8_t* b = c.in[0].as<uint8_t>();
          rng.Fill(b, n, uint8_t(0), uint8_t(255));
          for (size_t k = 0; k < n; k += 16) {
            if (rng.Uniform(0, 2) != 0) continue;
            const uint8_t blue = uint8_t(rng.Uniform(0, 2) == 2 ? 3 : rng.Uniform(0, 1));
            b[k + 8] = uint8_t((b[k + 8] & 0xE0) | blue), b[k + 10] = uint8_t((b[k + 10] & 0xE0) | blue);
          }
          c.out.push_back(test::PlaneOf<uint8_t>(roi.width * 4, roi.height, roi.width * 4 + int(i % 9), int(i % 7)));
          out.push_back(std::move(c));
        }
        return out;
      },
      [](auto fn, test::Case& c) {
        test::Buf& d = c.out[0];
        if (c.arg[0]) return fn(c.in[0].as<uint8_t>(), d.row<uint8_t>(c.roi.height - 1), -d.step(), c.roi);
        return fn(c.in[0].as<uint8_t>(), d.as<uint8_t>(), d.step(), c.roi);
      }};
}
RVT_CHECKASM(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R, DecodeCases());

// The texture encoders' cases, then tiles the chroma search meets at its
// ends, every quality, sizes with partial edge tiles and rows of more than
// sixteen tiles, every third walking upwards: saturated colours per pixel
// (the widest chroma, scale 1; at quality 2 the larger scales clip), one
// colour per tile (saturated or near grey: the one-chroma pair), two
// colours per tile of small chroma (scale 4), and near greys with a little
// noise.
auto EncodeCases() {
  auto base = test::EncodeCases(4, 16);
  const auto make = base.make;
  return test::Cases{
      [make](test::Rng& rng) {
        std::vector<test::Case> out = make(rng);
        const ImageSize sizes[] = {{4, 4}, {1, 1}, {13, 7}, {8, 8}, {30, 9}, {6, 3}, {64, 16}, {17, 5}, {70, 5}, {131, 8}};
        for (int kind = 0; kind < 4; ++kind) {
          for (size_t n = 0; n < std::size(sizes); ++n) {
            for (int q = 0; q <= 2; ++q) {
              const ImageSize roi = sizes[n];
              test::Case c;
              c.roi = roi;
              c.arg[0] = q;
              c.arg[1] = (n + q) % 3 == 2;
              c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height) + " q" + std::to_string(q) +
                        " chroma kind " + std::to_string(kind) + (c.arg[1] ? ", negative step" : "");
              c.in.push_back(test::PlaneOf<uint8_t>(roi.width * 4, roi.height, roi.width * 4 + int(n % 7), int(n % 5)));
              uint8_t tile[64][3];  // per tile: two colours
              for (auto& t : tile) {
                for (int ch = 0; ch < 3; ++ch) t[ch] = uint8_t(rng.Uniform(0, 255));
                if (kind == 1 && rng.Uniform(0, 1)) {
                  for (int ch = 0; ch < 3; ++ch) t[ch] = uint8_t(rng.Uniform(0, 1) * 255);
                }
              }
              for (int y = 0; y < roi.height; ++y) {
                for (int x = 0; x < roi.width; ++x) {
                  uint8_t* px = c.in[0].row<uint8_t>(y) + 4 * x;
                  const uint8_t* t = tile[(y / 4 * 16 + x / 4) % 64];
                  const int grey = int(rng.Uniform(0, 255));
                  for (int ch = 0; ch < 3; ++ch) {
                    switch (kind) {
                      case 0: px[ch] = uint8_t(rng.Uniform(0, 1) * 255); break;
                      case 1: px[ch] = t[ch]; break;
                      case 2: px[ch] = uint8_t(std::clamp(t[0] + ((x + y) & 1 ? 9 : -7) * (ch - 1), 0, 255)); break;
                      default: px[ch] = uint8_t(std::clamp(grey + int(rng.Uniform(-3, 3)), 0, 255)); break;
                    }
                  }
                  px[3] = uint8_t(rng.Uniform(0, 255));
                }
              }
              const int blocks = (roi.width + 3) / 4 * ((roi.height + 3) / 4);
              c.out.push_back(test::ArrayOf<uint8_t>(blocks * 16, int(n % 3)));
              out.push_back(std::move(c));
            }
          }
        }
        return out;
      },
      base.call};
}
RVT_CHECKASM(rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R, EncodeCases());

}  // namespace
}  // namespace rvt
