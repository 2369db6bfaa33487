// BC6H encoding: the checks, the packing of every mode read back by our
// decoder, inputs the format cannot hold, edge tiles, log-space PSNR of HDR
// scenes and photos through our decoder per quality, and the vector index
// searches against the reference.  (Mesa's decoder reads our blocks in
// bptc_test.cc.)
#include <algorithm>
#include <cmath>

#include "checkasm.h"
#include "hdr_image.h"
#include "texture/bc6h_encode.h"

namespace rvt {
namespace {

namespace be = bc6h_encode;
namespace bp = bptc_decode;
using Halves = std::vector<uint16_t>;

RvtResult Encode(bool is_signed, const uint16_t* src, int32_t step, uint8_t* dst, ImageSize roi, int q) {
  return is_signed ? rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R(reinterpret_cast<const int16_t*>(src),
                                                                 step, dst, roi, q)
                   : rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R(src, step, dst, roi, q);
}
Halves Decode(bool is_signed, const std::vector<uint8_t>& blocks, ImageSize roi) {
  Halves out(size_t(roi.width) * roi.height * 3);
  const RvtResult st =
      is_signed ? rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(blocks.data(), reinterpret_cast<int16_t*>(out.data()),
                                                            6 * roi.width, roi)
                : rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(blocks.data(), out.data(), 6 * roi.width, roi);
  EXPECT_EQ(st, rvtStatusOk);
  return out;
}
Halves RoundTrip(bool is_signed, const Halves& px, ImageSize roi, int q) {
  std::vector<uint8_t> blocks(size_t((roi.width + 3) / 4) * ((roi.height + 3) / 4) * 16);
  EXPECT_EQ(Encode(is_signed, px.data(), 6 * roi.width, blocks.data(), roi, q), rvtStatusOk);
  return Decode(is_signed, blocks, roi);
}

TEST(Bc6hEncode, ChecksInOrderAndNothingWritten) {
  uint16_t src[48] = {};
  for (bool s : {false, true}) {
    uint8_t dst[32];
    std::memset(dst, 0xEE, sizeof dst);
    EXPECT_EQ(Encode(s, nullptr, 0, nullptr, {0, 0}, 9), rvtStatusNullPtr);
    EXPECT_EQ(Encode(s, src, 0, nullptr, {0, 0}, 9), rvtStatusStep);
    EXPECT_EQ(Encode(s, src, -24, nullptr, {0, 0}, 9), rvtStatusNullPtr);
    EXPECT_EQ(Encode(s, src, 24, dst, {4, 0}, 9), rvtStatusSize);
    EXPECT_EQ(Encode(s, src, 24, dst, {4, 4}, 3), rvtStatusBadArg);
    EXPECT_EQ(Encode(s, src, 24, dst, {4, 4}, -1), rvtStatusBadArg);
    for (uint8_t b : dst) ASSERT_EQ(b, 0xEE);
    EXPECT_EQ(Encode(s, src + 36, -24, dst, {4, 4}, 2), rvtStatusOk);
  }
}

// Random endpoints that fit each mode and random indices, packed and read
// back by our decoder: every pixel gets the palette entry the encoder
// evaluated (which also pins the anchors, the delta fields' signs and the
// reversed bit runs of every layout).
TEST(Bc6hEncode, EveryModePacksWhatItEvaluated) {
  test::Rng rng(61);
  for (bool is_signed : {false, true}) {
    for (int value = 0; value < 32; ++value) {
      const bp::Bc6Mode& m = bp::bc6::kModes[value];
      if (m.regions == 0 || (value > 1 && (value & 3) < 2)) continue;
      for (int trial = 0; trial < 200; ++trial) {
        be::Candidate c;
        c.value = value;
        c.partition = m.regions == 2 ? int(rng.Uniform(0, 31)) : 0;
        const int top = be::QMax(m.base_bits, is_signed), bottom = is_signed ? -top : 0;
        do {
          for (int ch = 0; ch < 3; ++ch) {
            c.q[0][ch] = int(rng.Uniform(bottom, top));
            for (int e = 1; e < 2 * m.regions; ++e) {
              const int half = m.transformed ? 1 << (m.delta_bits[ch] - 1) : 0;
              c.q[e][ch] = m.transformed ? c.q[0][ch] + int(rng.Uniform(-half, half - 1))
                                         : int(rng.Uniform(bottom, top));
            }
          }
        } while (!be::Fits(m, c.q, is_signed));
        be::Tile t{};
        t.is_signed = is_signed;
        for (int p = 0; p < 16; ++p) {
          for (int ch = 0; ch < 3; ++ch) t.s.t[ch][p] = float(rng.Uniform(is_signed ? -0x7BFF : 0, 0x7BFF));
        }
        be::Evaluate<be::SelectRef>(t, c);
        uint8_t blk[16];
        be::Pack(c, blk);
        uint16_t out[48];
        if (is_signed) {
          bp::Bc6Block<true>(blk, out);
        } else {
          bp::Bc6Block<false>(blk, out);
        }
        const uint32_t mask = be::RegionMask(m.regions, c.partition);
        for (int p = 0; p < 16; ++p) {
          for (int ch = 0; ch < 3; ++ch) {
            const int got = is_signed && (out[3 * p + ch] >> 15) ? -(out[3 * p + ch] & 0x7FFF) : out[3 * p + ch];
            ASSERT_EQ(float(got), t.s.pal[mask >> p & 1][ch][c.idx[p]])
                << (is_signed ? "signed" : "unsigned") << " mode value " << value << " trial " << trial
                << " pixel " << p << " channel " << ch;
          }
        }
      }
    }
  }
}

// The search reuses a tile's region masks and palettes from one candidate
// to the next: a stream of candidates of every mode, partition, sign and
// repeated or changed endpoints scores on one tile exactly as on fresh
// tiles.  Endpoint rounding takes halves away from zero.
TEST(Bc6hEncode, ReusedTileScoresAsFreshOneAndHalvesRoundOut) {
  test::Rng rng(63);
  be::Tile reused{};
  for (int trial = 0; trial < 3000; ++trial) {
    const bool is_signed = rng.Uniform(0, 7) == 0 ? !reused.is_signed : reused.is_signed;
    static constexpr uint8_t kValues[] = {0x00, 0x01, 0x02, 0x06, 0x0A, 0x0E, 0x12, 0x16,
                                          0x1A, 0x1E, 0x03, 0x07, 0x0B, 0x0F};
    const int value = kValues[rng.Uniform(0, 13)];
    const bp::Bc6Mode& m = bp::bc6::kModes[value];
    be::Candidate c;
    c.value = value;
    c.partition = m.regions == 2 ? int(rng.Uniform(0, 3)) : 0;  // few, so layouts repeat
    const int top = be::QMax(m.base_bits, is_signed), bottom = is_signed ? -top : 0;
    for (int e = 0; e < 2 * m.regions; ++e) {
      for (int ch = 0; ch < 3; ++ch) c.q[e][ch] = int(rng.Uniform(0, 1)) ? bottom : int(rng.Uniform(bottom, top));
    }
    reused.is_signed = is_signed;
    be::Tile fresh{};
    fresh.is_signed = is_signed;
    for (int p = 0; p < 16; ++p) {
      for (int ch = 0; ch < 3; ++ch) {
        fresh.s.t[ch][p] = reused.s.t[ch][p] = float(rng.Uniform(is_signed ? -0x7BFF : 0, 0x7BFF));
      }
    }
    be::Candidate a = c, b = c;
    be::Evaluate<be::SelectRef>(reused, a);
    be::Evaluate<be::SelectRef>(fresh, b);
    ASSERT_EQ(a.err, b.err) << "trial " << trial;
    ASSERT_EQ(std::memcmp(a.idx, b.idx, 16), 0) << "trial " << trial;
  }
  // The same endpoint fields read unsigned, then signed, on one tile.
  for (int value : {0x0F, 0x0B, 0x1E, 0x02}) {
    const bp::Bc6Mode& m = bp::bc6::kModes[value];
    be::Candidate c;
    c.value = value;
    c.partition = m.regions == 2 ? 5 : 0;
    for (int e = 0; e < 2 * m.regions; ++e) {
      for (int ch = 0; ch < 3; ++ch) c.q[e][ch] = e & 1 ? std::min(be::QMax(m.base_bits, true), 1000) : 0;
    }
    for (bool is_signed : {false, true}) {
      reused.is_signed = is_signed;
      be::Tile fresh{};
      fresh.is_signed = is_signed;
      for (int p = 0; p < 16; ++p) {
        for (int ch = 0; ch < 3; ++ch) fresh.s.t[ch][p] = reused.s.t[ch][p] = float(p * 40);
      }
      be::Candidate a = c, b = c;
      be::Evaluate<be::SelectRef>(reused, a);
      be::Evaluate<be::SelectRef>(fresh, b);
      ASSERT_EQ(a.err, b.err) << "mode value " << value << (is_signed ? " signed" : " unsigned");
    }
  }
  EXPECT_EQ(be::Quantize(2.5f, 16, false), 3);
  EXPECT_EQ(be::Quantize(2.4999998f, 16, false), 2);
  EXPECT_EQ(be::Quantize(-2.5f, 16, true), -3);
  EXPECT_EQ(be::Quantize(-2.4999998f, 16, true), -2);
  EXPECT_EQ(be::Quantize(65535.0f, 16, false), 65535);
}

// One value per tile comes back exactly at every quality (a 16-bit base
// holds every half), after the clamps: NaN to 0, infinities to the largest
// finite; unsigned, negatives to 0; signed, -0 to +0.
TEST(Bc6hEncode, ConstantTilesAndUnrepresentableInputs) {
  const uint16_t values[] = {0x0000, 0x0001, 0x03FF, 0x3C00, 0x5555, 0x7BFE, 0x7BFF,
                             0x7C00, 0x7E00, 0x7FFF, 0x8000, 0x8001, 0xBC00, 0xFBFF, 0xFC00, 0xFE00};
  for (bool is_signed : {false, true}) {
    for (uint16_t v : values) {
      for (int q = 0; q <= 2; ++q) {
        const Halves px(48, v);
        const Halves got = RoundTrip(is_signed, px, {4, 4}, q);
        const int t = be::Target(v, is_signed);
        const uint16_t pattern = uint16_t(t < 0 ? 0x8000 | -t : t);
        for (uint16_t g : got) {
          ASSERT_EQ(g, pattern) << (is_signed ? "signed" : "unsigned") << " 0x" << std::hex << v << " quality "
                                << q;
        }
      }
    }
  }
  // The clamps alone decide: a tile with NaN, infinities and negatives
  // encodes as its clamped twin.
  test::Rng rng(62);
  for (bool is_signed : {false, true}) {
    Halves raw(48), clean(48);
    for (int i = 0; i < 48; ++i) {
      const uint16_t specials[] = {0x7C00, 0xFC00, 0x7E01, 0xFFFF, 0x8000};
      raw[i] = i % 5 == 0 ? specials[i / 5 % 5] : uint16_t(rng.Uniform(0, 0xFFFF));
      const int t = be::Target(raw[i], is_signed);
      clean[i] = uint16_t(t < 0 ? 0x8000 | -t : t);
    }
    for (int q = 0; q <= 2; ++q) {
      uint8_t a[16], b[16];
      ASSERT_EQ(Encode(is_signed, raw.data(), 24, a, {4, 4}, q), rvtStatusOk);
      ASSERT_EQ(Encode(is_signed, clean.data(), 24, b, {4, 4}, q), rvtStatusOk);
      EXPECT_EQ(std::memcmp(a, b, 16), 0) << is_signed << " quality " << q;
    }
  }
}

// A 5x3 region: its tiles' missing pixels repeat the last column and row,
// so encoding the padded 8x4 image gives the same blocks; upwards too.
TEST(Bc6hEncode, EdgeTilesReplicateTheLastRowAndColumn) {
  const test::HalfImage im = test::SyntheticHdr(5, 3, true, 4);
  Halves padded(8 * 4 * 3);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 8; ++x) {
      for (int c = 0; c < 3; ++c) {
        padded[(y * 8 + x) * 3 + c] = im.px[(std::min(y, 2) * 5 + std::min(x, 4)) * 3 + c];
      }
    }
  }
  for (bool is_signed : {false, true}) {
    uint8_t a[32], b[32], up[32];
    ASSERT_EQ(Encode(is_signed, im.px.data(), 30, a, {5, 3}, 1), rvtStatusOk);
    ASSERT_EQ(Encode(is_signed, padded.data(), 48, b, {8, 4}, 1), rvtStatusOk);
    Halves flipped(im.px.size());
    for (int y = 0; y < 3; ++y) std::memcpy(&flipped[(2 - y) * 15], &im.px[y * 15], 30);
    ASSERT_EQ(Encode(is_signed, flipped.data() + 30, -30, up, {5, 3}, 1), rvtStatusOk);
    EXPECT_EQ(std::memcmp(a, b, 32), 0);
    EXPECT_EQ(std::memcmp(a, up, 32), 0);
  }
}

// Log-space PSNR through our decoder, per quality: a floor at every level
// and better (or equal) with every level.  Signed scenes score lower: their
// tiles cross zero, where one line through the interpolation domain spends
// most of its entries on magnitudes below 1, which log2(1 + |x|) flattens.
TEST(Bc6hEncode, HdrScenesAndPhotosRoundTrip) {
  struct Scene {
    const char* name;
    test::HalfImage im[2];
    double floor[2];  // unsigned, signed
  };
  const test::Photo photo = test::LoadPhoto("astronaut.png", 3);
  ASSERT_GT(photo.width, 0);
  test::Photo crop{128, 128, 3, std::vector<uint8_t>(128 * 128 * 3)};
  for (int y = 0; y < 128; ++y) {
    std::memcpy(&crop.px[y * 128 * 3], &photo.px[(size_t(y + 100) * photo.width + 150) * 3], 128 * 3);
  }
  const Scene scenes[] = {
      {"synthetic", {test::SyntheticHdr(96, 64, false, 1), test::SyntheticHdr(96, 64, true, 2)}, {45, 27}},
      {"astronaut crop", {test::PhotoHdr(crop, false), test::PhotoHdr(crop, true)}, {39.5, 25}}};
  for (const Scene& s : scenes) {
    for (int is_signed = 0; is_signed < 2; ++is_signed) {
      const test::HalfImage& im = s.im[is_signed];
      double last = 0;
      for (int q = 0; q <= 2; ++q) {
        const double psnr = test::LogPsnr(im.px, RoundTrip(is_signed, im.px, {im.width, im.height}, q));
        std::printf("[ bc6h ] %s, %s, quality %d: %.2f dB\n", s.name, is_signed ? "signed" : "unsigned", q,
                    psnr);
        EXPECT_GT(psnr, s.floor[is_signed]) << s.name << " quality " << q;
        EXPECT_GE(psnr, last - 0.01) << s.name << " quality " << q;
        last = psnr;
      }
    }
  }
}

// ------------------------------------------------------------ differential

// HDR scenes (with NaN, infinities and negatives sprinkled in) of sizes
// across the tile edges, every quality, every third upwards.
template <class T>
auto EncodeCases(bool is_signed) {
  return test::Cases{
      [is_signed](test::Rng& rng) {
        std::vector<test::Case> out;
        const ImageSize sizes[] = {{1, 1}, {3, 5}, {4, 4}, {7, 2}, {9, 9}, {16, 8}, {21, 6}, {64, 16}};
        int i = 0;
        for (const ImageSize roi : sizes) {
          for (int q = 0; q <= 2; ++q, ++i) {
            test::HalfImage im = test::SyntheticHdr(roi.width, roi.height, is_signed, uint32_t(rng.Uniform(0, 1 << 30)));
            for (uint16_t& h : im.px) {
              if (rng.Uniform(0, 40) == 0) h = uint16_t(rng.Uniform(0, 0xFFFF));
            }
            test::Case c;
            c.roi = roi;
            c.arg[0] = q;
            c.arg[1] = i % 3 == 2;
            c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height) + " quality " +
                      std::to_string(q) + (c.arg[1] ? ", upwards" : "");
            c.in.push_back(test::PlaneOf<uint16_t>(roi.width * 3, roi.height, 6 * roi.width + 2 * (i % 3), i % 4));
            for (int y = 0; y < roi.height; ++y) {
              std::memcpy(c.in[0].row<uint16_t>(y), &im.px[size_t(y) * roi.width * 3], size_t(6 * roi.width));
            }
            c.out.push_back(test::ArrayOf<uint8_t>((roi.width + 3) / 4 * ((roi.height + 3) / 4) * 16, i % 5));
            out.push_back(std::move(c));
          }
        }
        return out;
      },
      [](auto fn, test::Case& c) {
        test::Buf& s = c.in[0];
        const int q = int(c.arg[0]);
        if (c.arg[1]) {
          return fn(s.row<T>(c.roi.height - 1), -s.step(), c.out[0].as<uint8_t>(), c.roi, q);
        }
        return fn(s.as<T>(), s.step(), c.out[0].as<uint8_t>(), c.roi, q);
      }};
}
RVT_CHECKASM(rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R, EncodeCases<uint16_t>(false));
RVT_CHECKASM(rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R, EncodeCases<int16_t>(true));

}  // namespace
}  // namespace rvt
