// BC7 encoding: every mode's candidates packed and decoded back to the
// error the search measured (anchors, p-bits, rotations, fields across
// bit 64), the alpha 255 p-bit pitfall, edge tiles of every size 1..13,
// the photos (opaque and with alpha) per quality, decoded by our decoder
// (equal to Mesa's softpipe, see bptc_test.cc), and the differential check
// of the vector kernels.
#include <chrono>
#include <cmath>
#include <cstdlib>

#include "checkasm.h"
#include "photo.h"
#include "texture/bc7_encode.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;
namespace be = bc7_encode;

using be::RefKernel;

// Squared error of a decoded 4x4 tile against the tile over its first
// `chans` channels.
uint32_t TileError(const be::Tile& t, const uint8_t* rgba, int chans = 4) {
  uint32_t e = 0;
  for (int p = 0; p < 16; ++p) {
    for (int c = 0; c < chans; ++c) {
      const int d = rgba[4 * p + c] - t.c[c][p];
      e += uint32_t(d * d);
    }
  }
  return e;
}

be::Tile RandomTile(test::Rng& rng, int kind) {
  be::Tile t;
  // 0: random RGBA; 1: opaque two-colour gradient with noise; 2: alpha
  // gradient over a flat colour.
  int a[4], b[4];
  for (int c = 0; c < 4; ++c) a[c] = rng.Uniform(0, 255), b[c] = rng.Uniform(0, 255);
  for (int p = 0; p < 16; ++p) {
    for (int c = 0; c < 4; ++c) {
      int v = kind == 0 ? rng.Uniform(0, 255) : a[c] + (b[c] - a[c]) * p / 15 + rng.Uniform(-6, 6);
      if (kind == 1 && c == 3) v = 255;
      if (kind == 2 && c < 3) v = a[c];
      t.c[c][p] = v < 0 ? 0 : v > 255 ? 255 : v;
    }
  }
  return t;
}

// Endpoint codes come from tables of the nearest code to each half step:
// every coding a mode uses (with and without p-bits) against a search of
// all its codes, and the opaque-alpha code of modes 6 and 7.
TEST(Bc7Encode, QuantTablesHoldTheNearestCode) {
  for (int bits = 4; bits <= 8; ++bits) {
    for (int k = 0; k < (bits < 8 ? 3 : 1); ++k) {
      const int p = k == 2;
      const bool pbit = k != 0;
      const be::QuantTable& qt = be::QuantOf(bits, p, pbit);
      for (int x = 0; x < 511; ++x) {
        ASSERT_EQ(be::Expand(qt.q[x], bits, p, pbit), qt.v[x]) << bits << " " << k << " " << x;
        for (int q = 0; q < 1 << bits; ++q) {
          const int d = std::abs(2 * be::Expand(q, bits, p, pbit) - x);
          ASSERT_GE(d, std::abs(2 * qt.v[x] - x)) << bits << " " << k << " " << x << " code " << q;
          if (q < qt.q[x]) ASSERT_GT(d, std::abs(2 * qt.v[x] - x)) << "the lower code on a tie";
        }
      }
    }
  }
  EXPECT_EQ(be::QuantOf(7, 1, true).v[510], 255);
  EXPECT_EQ(be::QuantOf(5, 1, true).v[510], 255);
  EXPECT_EQ(be::QuantOf(7, 0, true).v[510], 254);
}

// Every mode, partition, rotation and index selection: the block packs to
// what the decoder gives back with exactly the error the search measured
// (modes 0 to 3 have no alpha and measure colour only).
TEST(Bc7Encode, EveryCandidatePacksToItsMeasuredError) {
  test::Rng rng(21);
  const be::Effort effs[] = {{1, false, false}, {2, true, true}};
  int blocks = 0;
  for (int trial = 0; trial < 12; ++trial) {
    const be::Tile t = RandomTile(rng, trial % 3);
    const be::Effort& eff = effs[trial % 2];
    auto check = [&](const be::Block& b, const char* what, int a, int k) {
      ASSERT_NE(b.err, UINT32_MAX);
      uint8_t blk[16], px[64];
      be::Pack(b, blk);
      ASSERT_EQ(__builtin_ctz(blk[0]), b.mode);
      bptc_decode::Bc7Block(blk, px);
      ASSERT_EQ(TileError(t, px, b.mode < 4 ? 3 : 4), b.err) << what << " mode " << b.mode << " " << a << " " << k << " trial " << trial;
      ++blocks;
    };
    for (int mode : {0, 1, 2, 3, 6, 7}) {
      const int parts = mode == 6 ? 1 : mode == 0 ? 16 : 64;
      for (int k = 0; k < parts; ++k) {
        be::Block b;
        be::TryPartitioned<RefKernel>(t, mode, k, trial % 3 == 1, eff, &b);
        check(b, "partition", k, 0);
      }
    }
    for (int r = 0; r < 4; ++r) {
      for (int s = 0; s < 2; ++s) {
        be::Block b;
        be::TryRotated<RefKernel>(t, s ? 4 : 5, r, 0, false, eff, &b);
        check(b, "rotation", r, 0);
        be::Block c;
        be::TryRotated<RefKernel>(t, 4, r, 1, false, eff, &c);
        check(c, "selection", r, 1);
      }
    }
  }
  EXPECT_GT(blocks, 12 * 200);
}

// Grey tiles are searched in one channel with palette errors read from a
// table of gaps: its error for endpoints in either order, 3- and 4-bit
// indices, equals the palette's over random pixel sets; and every grey
// candidate of modes 6, 1 and 0 packs to what the decoder gives back with
// exactly the error the search measured, alpha 255.
TEST(Bc7Encode, GreyTilesSearchedInOneChannel) {
  test::Rng rng(17);
  int blocks = 0;
  for (int trial = 0; trial < 60; ++trial) {
    be::Tile t = RandomTile(rng, trial % 2);
    for (int p = 0; p < 16; ++p) t.c[1][p] = t.c[2][p] = t.c[0][p], t.c[3][p] = 255;
    for (int i = 0; i < 40; ++i) {
      const uint32_t mask = uint32_t(rng.Uniform(1, 0xFFFF));
      int xs[16], n = 0;
      for (int p = 0; p < 16; ++p) {
        if (mask >> p & 1) xs[n++] = t.c[0][p];
      }
      const int bits = 3 + i % 2, va = rng.Uniform(0, 255), vb = i % 5 ? rng.Uniform(0, 255) : va;
      const int v[2][4] = {{va, 0, 0, 0}, {vb, 0, 0, 0}};
      uint8_t idx[16];
      ASSERT_EQ(be::GreyError(xs, n, bits, va, vb), be::PaletteRef(t, v, bits, 1, mask, idx)) << va << " " << vb;
    }
    for (int mode : {6, 1, 0}) {
      const int parts = mode == 6 ? 1 : mode == 0 ? 16 : 64;
      for (int k = 0; k < parts; ++k) {
        be::Block b;
        be::TryGrey<RefKernel>(t, mode, k, trial % 4, trial % 4 && trial % 2 ? 3 : 1, &b);
        ASSERT_NE(b.err, UINT32_MAX);
        uint8_t blk[16], px[64];
        be::Pack(b, blk);
        ASSERT_EQ(__builtin_ctz(blk[0]), mode);
        bptc_decode::Bc7Block(blk, px);
        ASSERT_EQ(TileError(t, px), b.err) << "mode " << mode << " partition " << k << " trial " << trial;
        ++blocks;
      }
    }
  }
  EXPECT_EQ(blocks, 60 * 81);
}

// The partition ranking works on subset sums taken from bit masks (subset
// 0 as the tile less the others): they must match sums over each pixel's
// subset as the decoder assigns it, for both estimates, every partition
// of two and three subsets, with and without alpha.
TEST(Bc7Encode, PartitionEstimatesUseTheDecodersSubsets) {
  test::Rng rng(7);
  for (int trial = 0; trial < 6; ++trial) {
    const be::Tile t = RandomTile(rng, trial % 3);
    const int chans = trial % 2 ? 4 : 3;
    be::Moments mo;
    be::MakeMoments(t, chans, &mo);
    be::Points pts;
    be::MakePoints(t, chans, &pts);
    const be::Spread all = be::SpreadOf(pts, 0xFFFF);
    for (int subsets = 2; subsets <= 3; ++subsets) {
      for (int k = 0; k < 64; ++k) {
        int32_t acc[3][14] = {};
        int n[3] = {};
        double spread = 0;
        for (int p = 0; p < 16; ++p) {
          const int s = bptc_decode::SubsetOf(subsets, k, p);
          ++n[s];
          for (int m = 0; m < mo.count; ++m) acc[s][m] += mo.s[p][m];
        }
        float line = 0;
        for (int s = 0; s < subsets; ++s) {
          line += be::LineSpread(mo, acc[s], n[s]);
          for (int c = 0; c < chans; ++c) {
            double mean = 0, sq = 0;
            for (int p = 0; p < 16; ++p) {
              if (bptc_decode::SubsetOf(subsets, k, p) != s) continue;
              mean += t.c[c][p], sq += double(t.c[c][p]) * t.c[c][p];
            }
            if (n[s]) spread += sq - mean * mean / n[s];
          }
        }
        ASSERT_EQ(be::PartitionEstimate(mo, subsets, k), line) << subsets << " " << k;
        ASSERT_NEAR(be::MeanSpread(pts, chans, all, subsets, k), spread, 1e-3 * (spread + 1)) << subsets << " " << k;
      }
    }
  }
}

// Opaque tiles keep alpha 255 where mode 6 serves them (its p-bit of 0
// would cap it at 254), at every quality; exact two-colour tiles and flat
// tiles come back within a step of the codes.
TEST(Bc7Encode, OpaqueAlphaAndExactTiles) {
  test::Rng rng(3);
  for (int q = 0; q <= be::kMaxQuality; ++q) {
    for (int trial = 0; trial < 40; ++trial) {
      Bytes img(64), out(64);
      const int kind = trial % 4;
      for (int p = 0; p < 16; ++p) {
        for (int c = 0; c < 3; ++c) {
          img[4 * p + c] = kind == 0 ? uint8_t(rng.Uniform(0, 255))
                           : kind == 1 ? uint8_t((p * 7) % 3 ? 250 : 2)
                           : kind == 2 ? uint8_t(37 + 90 * c)
                                       : uint8_t(p * 17);
        }
        img[4 * p + 3] = 255;
      }
      uint8_t blk[16];
      ASSERT_EQ(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(img.data(), 16, blk, {4, 4}, q), rvtStatusOk);
      ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blk, out.data(), 16, {4, 4}), rvtStatusOk);
      int worst = 0;
      for (int i = 0; i < 64; ++i) worst = std::max(worst, std::abs(out[i] - img[i]));
      for (int p = 0; p < 16; ++p) EXPECT_EQ(out[4 * p + 3], 255) << "q" << q << " kind " << kind;
      if (kind == 1 || kind == 2) EXPECT_LE(worst, 1) << "q" << q << " kind " << kind;
    }
  }
}

// Opaque tiles whose red is noise across a green-blue gradient favour
// modes 4 and 5 with red rotated into the alpha slot at the best quality:
// some must take them, and all must still decode opaque.
TEST(Bc7Encode, RotatedModesKeepOpaqueTilesOpaque) {
  test::Rng rng(11);
  int rotated = 0;
  for (int trial = 0; trial < 60; ++trial) {
    Bytes img(64), out(64);
    for (int p = 0; p < 16; ++p) {
      img[4 * p] = uint8_t(rng.Uniform(0, 255));
      img[4 * p + 1] = uint8_t(40 + 9 * p + trial);
      img[4 * p + 2] = uint8_t(200 - 7 * p);
      img[4 * p + 3] = 255;
    }
    uint8_t blk[16];
    ASSERT_EQ(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(img.data(), 16, blk, {4, 4}, be::kMaxQuality), rvtStatusOk);
    ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blk, out.data(), 16, {4, 4}), rvtStatusOk);
    rotated += (blk[0] & 0x1F) == 0x10 || (blk[0] & 0x3F) == 0x20;
    for (int p = 0; p < 16; ++p) EXPECT_EQ(out[4 * p + 3], 255) << "trial " << trial;
  }
  EXPECT_GT(rotated, 0);
}

// Every region size 1..13 square: the blocks equal those of the image that
// repeats its last column and row out to whole tiles, at every quality,
// and a negative step walks upwards.
TEST(Bc7Encode, EdgeTilesReplicateTheLastRowAndColumn) {
  test::Rng rng(5);
  for (int h = 1; h <= 13; ++h) {
    for (int w = 1; w <= 13; ++w) {
      const int pw = (w + 3) / 4 * 4, ph = (h + 3) / 4 * 4;
      Bytes img(size_t(w) * h * 4), padded(size_t(pw) * ph * 4);
      rng.Fill(img.data(), img.size(), uint8_t(0), uint8_t(255));
      for (int y = 0; y < ph; ++y) {
        for (int x = 0; x < pw; ++x) {
          for (int c = 0; c < 4; ++c) {
            padded[(size_t(y) * pw + x) * 4 + c] = img[(size_t(std::min(y, h - 1)) * w + std::min(x, w - 1)) * 4 + c];
          }
        }
      }
      const size_t n = size_t(pw / 4) * (ph / 4) * 16;
      const int q = (w + h) % 3;
      Bytes a(n + 16, 0xEE), b(n + 16, 0xEE), c(n + 16, 0xEE);
      ASSERT_EQ(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(img.data(), 4 * w, a.data(), {w, h}, q), rvtStatusOk);
      ASSERT_EQ(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(padded.data(), 4 * pw, b.data(), {pw, ph}, q), rvtStatusOk);
      EXPECT_EQ(a, b) << w << "x" << h << " q" << q;
      EXPECT_EQ(a[n], 0xEE);
      // Upside down, read upwards: the same blocks.
      Bytes flip(img.size());
      for (int y = 0; y < h; ++y) std::memcpy(&flip[size_t(h - 1 - y) * w * 4], &img[size_t(y) * w * 4], size_t(w) * 4);
      ASSERT_EQ(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(&flip[size_t(h - 1) * w * 4], -4 * w, c.data(), {w, h}, q),
                rvtStatusOk);
      EXPECT_EQ(a, c) << w << "x" << h;
    }
  }
}

TEST(Bc7Encode, ChecksInOrderAndNothingWritten) {
  uint8_t src[64] = {}, dst[32];
  std::memset(dst, 0xEE, sizeof dst);
  const auto enc = rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R;
  EXPECT_EQ(enc(nullptr, 0, nullptr, {0, 0}, 9), rvtStatusNullPtr);
  EXPECT_EQ(enc(src, 0, nullptr, {0, 0}, 9), rvtStatusStep);
  EXPECT_EQ(enc(src, 16, nullptr, {0, 0}, 9), rvtStatusNullPtr);
  EXPECT_EQ(enc(src, 16, dst, {4, 0}, 9), rvtStatusSize);
  EXPECT_EQ(enc(src, 16, dst, {4, 4}, 3), rvtStatusBadArg);
  EXPECT_EQ(enc(src, 16, dst, {4, 4}, -1), rvtStatusBadArg);
  for (uint8_t b : dst) ASSERT_EQ(b, 0xEE);
}

double Psnr(const Bytes& a, const Bytes& b, int c0, int c1) {
  double se = 0;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); i += 4) {
    for (int c = c0; c < c1; ++c, ++n) se += (double(a[i + c]) - b[i + c]) * (double(a[i + c]) - b[i + c]);
  }
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(n) / se);
}

// The photos, opaque and with an alpha gradient, and their 256x256 crops:
// RGBA PSNR per quality as our decoder gives the blocks back, and Mpix/s.
// Each level gains on the one below it; the floors sit under the values
// measured (bench/texture_encode_bench.cc sets them beside the peer's).
TEST(Bc7Encode, PhotosPerQuality) {
  std::printf("[ bc7 enc  ] %-20s %-6s %-4s %9s %9s %9s\n", "photo", "alpha", "q", "RGBA dB", "A dB", "Mpix/s");
  for (const char* name : {"coffee.png", "chelsea.png", "astronaut.png", "camera.png"}) {
    const test::Photo p = test::LoadPhoto(name, 3);
    ASSERT_FALSE(p.px.empty()) << name;
    for (int crop = 0; crop < 2; ++crop) {
      const int w = crop ? 256 : p.width, h = crop ? 256 : p.height;
      for (int alpha = 0; alpha < 2; ++alpha) {
        const size_t n = size_t(w) * h;
        Bytes rgba(n * 4), out(n * 4), blocks(size_t((w + 3) / 4) * ((h + 3) / 4) * 16);
        for (int y = 0; y < h; ++y) {
          for (int x = 0; x < w; ++x) {
            const uint8_t* s = &p.px[(size_t(y) * p.width + x) * 3];
            uint8_t* d = &rgba[(size_t(y) * w + x) * 4];
            d[0] = s[0], d[1] = s[1], d[2] = s[2], d[3] = alpha ? uint8_t((x * 255 / w + s[1]) / 2) : 255;
          }
        }
        double db[be::kMaxQuality + 1];
        for (int q = 0; q <= be::kMaxQuality; ++q) {
          const auto t0 = std::chrono::steady_clock::now();
          ASSERT_EQ(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(rgba.data(), 4 * w, blocks.data(), {w, h}, q),
                    rvtStatusOk);
          const double us = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
          ASSERT_EQ(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blocks.data(), out.data(), 4 * w, {w, h}), rvtStatusOk);
          db[q] = Psnr(out, rgba, 0, 4);
          std::printf("[ bc7 enc  ] %-20s %-6s q%-3d %9.2f %9.2f %9.2f\n",
                      (std::string(name) + (crop ? " 256" : "")).c_str(), alpha ? "grad" : "opaque", q, db[q],
                      Psnr(out, rgba, 3, 4), double(n) / us);
          if (!alpha) {
            for (size_t i = 3; i < out.size(); i += 4) ASSERT_EQ(out[i], 255) << name << " q" << q;
          }
        }
        EXPECT_GT(db[0], 38.0) << name;
        EXPECT_GT(db[1], db[0] + 0.3) << name;
        EXPECT_GE(db[2], db[1]) << name;
      }
    }
  }
}

// ------------------------------------------------------------ differential

// Regions 1..13 square and a few wide ones, each quality, images of noise,
// gradients with and without alpha, grey gradients and, on the wide ones,
// tiles of every kind side by side (quality 0 fits a row's opaque colour
// tiles together, the others apart); every third upwards.
auto EncodeCases() {
  return test::Cases{
      [](test::Rng& rng) {
        std::vector<test::Case> out;
        std::vector<ImageSize> sizes;
        for (int s = 1; s <= 13; ++s) sizes.push_back({s, s});
        sizes.push_back({64, 8});
        sizes.push_back({37, 5});
        sizes.push_back({100, 12});
        sizes.push_back({69, 9});
        for (size_t i = 0; i < sizes.size(); ++i) {
          for (int q = 0; q <= be::kMaxQuality; ++q) {
            const ImageSize roi = sizes[i];
            test::Case c;
            c.roi = roi;
            c.arg[0] = (i + q) % 3 == 2;
            c.arg[1] = q;
            c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height) + " q" + std::to_string(q) +
                      (c.arg[0] ? ", negative step" : "");
            c.in.push_back(test::PlaneOf<uint8_t>(roi.width * 4, roi.height, roi.width * 4 + int(i % 5), int(i % 3)));
            test::Buf& b = c.in[0];
            const bool mixed = roi.width > 64;
            for (int y = 0; y < roi.height; ++y) {
              uint8_t* row = b.row<uint8_t>(y);
              for (int x = 0; x < roi.width; ++x) {
                // 3: grey and opaque.
                const int kind = mixed ? (x / 4 * 5 + y / 4 * 3 + int(i)) % 7 % 4 : int(i + q) % 4;
                for (int ch = 0; ch < 4; ++ch) {
                  const int g = (x * 13 + y * 7 + ch * 50) & 255;
                  row[4 * x + ch] = kind == 0   ? uint8_t(rng.Uniform(0, 255))
                                    : ch == 3   ? uint8_t(kind == 2 ? g : 255)
                                    : kind == 3 && ch ? row[4 * x]
                                                : uint8_t(std::clamp(int(g + rng.Uniform(-9, 9)), 0, 255));
                }
              }
            }
            const int blocks = (roi.width + 3) / 4 * ((roi.height + 3) / 4);
            c.out.push_back(test::ArrayOf<uint8_t>(blocks * 16, int(i % 4)));
            out.push_back(std::move(c));
          }
        }
        return out;
      },
      [](auto fn, test::Case& c) {
        test::Buf& s = c.in[0];
        const int q = int(c.arg[1]);
        if (c.arg[0]) return fn(s.row<uint8_t>(c.roi.height - 1), -s.step(), c.out[0].as<uint8_t>(), c.roi, q);
        return fn(s.as<uint8_t>(), s.step(), c.out[0].as<uint8_t>(), c.roi, q);
      }};
}
RVT_CHECKASM(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R, EncodeCases());

}  // namespace
}  // namespace rvt
