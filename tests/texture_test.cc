// BC1 to BC5 texture decoding: the palettes worked by hand, the region walk
// (partial edge tiles, negative steps, reads that stop at the last block),
// every target against the reference, and libsquish decoding the same DXT
// blocks and a compressed photo.
#include <squish.h>

#include <cmath>
#include <memory>

#include "checkasm.h"
#include "photo.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;
using DecodeFn = decltype(&rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R);

struct Format {
  const char* name;
  const Impl<DecodeFn>& impl;
  int block, pixel;
  int colour_at, channel_at[2];  // colour part offset, channel parts (-1: none)
};
const Format kDxt1{"DXT1", impl_rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 8, 4, 0, {-1, -1}};
const Format kDxt3{"DXT3", impl_rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, 16, 4, 8, {-1, -1}};
const Format kDxt5{"DXT5", impl_rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 16, 4, 8, {0, -1}};
const Format kBc4{"BC4", impl_rvtiTextureDecodeBlock_BC4_8u_C1R, 8, 1, -1, {0, -1}};
const Format kBc5{"BC5", impl_rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, 16, 2, -1, {0, 8}};
const Format* const kFormats[] = {&kDxt1, &kDxt3, &kDxt5, &kBc4, &kBc5};

int64_t BlockCount(int w, int h) { return int64_t((w + 3) / 4) * ((h + 3) / 4); }

// Random blocks whose endpoint pairs are drawn in every mode: ordered both
// ways, equal, and the extremes.
Bytes RandomBlocks(test::Rng& rng, const Format& f, int64_t n) {
  Bytes b(size_t(n * f.block));
  rng.Fill(b.data(), b.size(), uint8_t(0), uint8_t(255));
  auto order = [&](uint8_t* lo, uint8_t* hi, int size) {
    const int mode = int(rng.Uniform(0, 5));
    uint8_t* a = lo;
    uint8_t* c = hi;
    if (mode == 0) return;  // as drawn
    if (mode == 1 || mode == 2) {  // a > c, or a < c
      if ((std::memcmp(a + size - 1, c + size - 1, 1) < 0) == (mode == 1)) {
        for (int i = 0; i < size; ++i) std::swap(a[i], c[i]);
      }
    } else if (mode == 3) {
      std::memcpy(c, a, size_t(size));
    } else {
      std::memset(a, rng.Uniform(0, 1) ? 0xFF : 0, size_t(size));
      std::memset(c, rng.Uniform(0, 1) ? 0xFF : 0, size_t(size));
    }
  };
  for (int64_t k = 0; k < n; ++k) {
    uint8_t* blk = b.data() + k * f.block;
    if (f.colour_at >= 0) order(blk + f.colour_at, blk + f.colour_at + 2, 2);
    for (int at : f.channel_at) {
      if (at >= 0) order(blk + at, blk + at + 1, 1);
    }
  }
  return b;
}

// Decodes a region with `fn` into a tightly packed image.
Bytes Decode(DecodeFn fn, const Format& f, const Bytes& blocks, int w, int h) {
  Bytes out(size_t(w) * h * f.pixel, 0xEE);
  EXPECT_EQ(fn(blocks.data(), out.data(), w * f.pixel, {w, h}), rvtStatusOk);
  return out;
}

// ------------------------------------------------------------ known answers

// n copies of one block as a 4n x 4 region (wide enough for every target's
// vector loop), every pixel compared with `want` (pixel p of the tile).
void ExpectTile(const Format& f, const Bytes& block, const std::vector<Bytes>& want) {
  for (int n : {1, 64}) {
    Bytes blocks;
    for (int i = 0; i < n; ++i) blocks.insert(blocks.end(), block.begin(), block.end());
    for (const auto& t : test::AllTargets(f.impl)) {
      const Bytes out = Decode(t.fn, f, blocks, 4 * n, 4);
      for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4 * n; ++x) {
          const uint8_t* px = out.data() + (size_t(y) * 4 * n + x) * f.pixel;
          ASSERT_EQ(Bytes(px, px + f.pixel), want[size_t(4 * y + x % 4)])
              << f.name << " " << t.name << " pixel " << x << "," << y;
        }
      }
    }
  }
}
std::vector<Bytes> All(const Bytes& px) { return std::vector<Bytes>(16, px); }

TEST(TextureDecode, ColourPalettesWorkedByHand) {
  // Three-colour mode (c0 <= c1): entry 3 is opaque white, entry 2 the mean.
  ExpectTile(kDxt1, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, All({255, 255, 255, 255}));
  ExpectTile(kDxt1, {0, 0, 0xFF, 0xFF, 0xAA, 0xAA, 0xAA, 0xAA}, All({127, 127, 127, 255}));
  // Four-colour mode truncates: 510 / 3 = 170, 255 / 3 = 85.
  ExpectTile(kDxt1, {0xFF, 0xFF, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA}, All({170, 170, 170, 255}));
  ExpectTile(kDxt1, {0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, All({85, 85, 85, 255}));
  // Each index of each row: c0 = pure red 0xF800, c1 = 0x07FF (cyan);
  // indices 0, 1, 2, 3 along every row.
  std::vector<Bytes> want;
  for (int p = 0; p < 16; ++p) {
    const Bytes e[4] = {{255, 0, 0, 255}, {0, 255, 255, 255}, {170, 85, 85, 255}, {85, 170, 170, 255}};
    want.push_back(e[p % 4]);
  }
  ExpectTile(kDxt1, {0x00, 0xF8, 0xFF, 0x07, 0xE4, 0xE4, 0xE4, 0xE4}, want);
  // The same colour part in DXT3 and DXT5 always takes four colours, also
  // when c0 <= c1: c0 = 0, c1 = white, index 2 gives 255 / 3 = 85.
  Bytes dxt3(8, 0xFF);  // every nibble 15: alpha 240
  const Bytes colour = {0, 0, 0xFF, 0xFF, 0xAA, 0xAA, 0xAA, 0xAA};
  dxt3.insert(dxt3.end(), colour.begin(), colour.end());
  ExpectTile(kDxt3, dxt3, All({85, 85, 85, 240}));
  Bytes ones = dxt3;
  std::fill(ones.begin(), ones.begin() + 8, 0x11);  // nibble 1: alpha 16
  ExpectTile(kDxt3, ones, All({85, 85, 85, 16}));
  Bytes dxt5 = {255, 255, 0, 0, 0, 0, 0, 0};  // a0 = a1 = 255, every index 0
  dxt5.insert(dxt5.end(), colour.begin(), colour.end());
  ExpectTile(kDxt5, dxt5, All({85, 85, 85, 255}));
}

// Indices 0..7 along the tile (pixel p takes index p % 8), 48-bit field.
Bytes ChannelBlock(uint8_t e0, uint8_t e1) {
  uint64_t bits = 0;
  for (int p = 0; p < 16; ++p) bits |= uint64_t(p % 8) << (3 * p);
  Bytes b = {e0, e1};
  for (int i = 0; i < 6; ++i) b.push_back(uint8_t(bits >> (8 * i)));
  return b;
}

TEST(TextureDecode, ChannelPalettesWorkedByHand) {
  // e0 > e1: (6*200 + 100 + 3) / 7 = 186, ..., (200 + 600 + 3) / 7 = 114.
  const Bytes seven = {200, 100, 186, 171, 157, 143, 129, 114};
  // e0 <= e1: (4*100 + 200 + 2) / 5 = 120, ..., then 0 and 255.
  const Bytes five = {100, 200, 120, 140, 160, 180, 0, 255};
  const Bytes flat = {77, 77, 77, 77, 77, 77, 0, 255};
  auto tile = [](const Bytes& pal, const Bytes* second) {
    std::vector<Bytes> w;
    for (int p = 0; p < 16; ++p) {
      w.push_back({pal[size_t(p % 8)]});
      if (second) w.back().push_back((*second)[size_t(p % 8)]);
    }
    return w;
  };
  ExpectTile(kBc4, ChannelBlock(200, 100), tile(seven, nullptr));
  ExpectTile(kBc4, ChannelBlock(100, 200), tile(five, nullptr));
  Bytes bc5 = ChannelBlock(200, 100);
  const Bytes g = ChannelBlock(77, 77);
  bc5.insert(bc5.end(), g.begin(), g.end());
  ExpectTile(kBc5, bc5, tile(seven, &flat));
  // The extremes: 0/255 with every index 7 gives 255, every index 6 gives 0;
  // 255/0 gives (1530 + 3) / 7 = 219 at index 2; 0/255 gives 51 there.
  ExpectTile(kBc4, {0, 255, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, All({255}));
  ExpectTile(kBc4, {0, 255, 0xB6, 0x6D, 0xDB, 0xB6, 0x6D, 0xDB}, All({0}));
  ExpectTile(kBc4, {255, 0, 0x92, 0x24, 0x49, 0x92, 0x24, 0x49}, All({219}));
  ExpectTile(kBc4, {0, 255, 0x92, 0x24, 0x49, 0x92, 0x24, 0x49}, All({51}));
  // DXT5 alpha is the same channel block: alpha 219 over four colours.
  Bytes dxt5 = {255, 0, 0x92, 0x24, 0x49, 0x92, 0x24, 0x49, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0};
  ExpectTile(kDxt5, dxt5, All({255, 255, 255, 219}));
}

// ------------------------------------------------------------ region walk

TEST(TextureDecode, ChecksInOrderAndNothingWritten) {
  uint8_t src[64] = {}, dst[64];
  for (const Format* f : kFormats) {
    for (const auto& t : test::AllTargets(f->impl)) {
      std::memset(dst, 0xEE, sizeof dst);
      EXPECT_EQ(t.fn(nullptr, nullptr, 0, {0, 0}), rvtStatusNullPtr) << f->name;
      EXPECT_EQ(t.fn(src, nullptr, 0, {0, 0}), rvtStatusNullPtr);
      EXPECT_EQ(t.fn(src, dst, 0, {0, 0}), rvtStatusStep);
      EXPECT_EQ(t.fn(src, dst, 16, {0, 4}), rvtStatusSize);
      EXPECT_EQ(t.fn(src, dst, -16, {4, -1}), rvtStatusSize);
      for (uint8_t b : dst) ASSERT_EQ(b, 0xEE) << f->name << " " << t.name;
      // A negative step is accepted: row 3 first in memory.
      EXPECT_EQ(t.fn(src, dst + 3 * 16, -16, {16 / f->pixel, 4}), rvtStatusOk);
    }
  }
}

// A 5x5 region reads 2x2 blocks and writes exactly its 25 pixels; an upward
// walk writes the rows mirrored.
TEST(TextureDecode, PartialTilesAndNegativeSteps) {
  test::Rng rng(11);
  for (const Format* f : kFormats) {
    const Bytes blocks = RandomBlocks(rng, *f, 4);
    for (const auto& t : test::AllTargets(f->impl)) {
      test::GuardedPlane<uint8_t> plane(5 * f->pixel, 5);
      ASSERT_EQ(t.fn(blocks.data(), plane.data(), plane.step(), {5, 5}), rvtStatusOk);
      std::string where;
      EXPECT_TRUE(plane.GuardsIntact(&where)) << f->name << " " << t.name << ": " << where;
      test::GuardedPlane<uint8_t> flipped(5 * f->pixel, 5);
      ASSERT_EQ(t.fn(blocks.data(), flipped.row(4), -flipped.step(), {5, 5}), rvtStatusOk);
      EXPECT_TRUE(flipped.GuardsIntact(&where)) << f->name << " " << t.name << ": " << where;
      for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 5 * f->pixel; ++x) ASSERT_EQ(plane.get(x, y), flipped.get(x, 4 - y));
      }
      // The bottom-right pixel is pixel 0 of the fourth block.
      test::GuardedPlane<uint8_t> one(4 * f->pixel, 4);
      ASSERT_EQ(t.fn(blocks.data() + 3 * f->block, one.data(), one.step(), {4, 4}), rvtStatusOk);
      for (int k = 0; k < f->pixel; ++k) EXPECT_EQ(plane.get(4 * f->pixel + k, 4), one.get(k, 0));
    }
  }
}

// The blocks end flush against an inaccessible page: no target reads past
// the last block of the region, at any width (vector groups and tails) and
// height.
TEST(TextureDecode, ReadsStopAtTheLastBlock) {
  test::Rng rng(12);
  for (const Format* f : kFormats) {
    for (int w : {1, 3, 4, 8, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129}) {
      for (int h : {1, 4, 6}) {
        const int64_t n = BlockCount(w, h);
        const Bytes blocks = RandomBlocks(rng, *f, n);
        test::PageFence fence(size_t(n * f->block));
        ASSERT_TRUE(fence.ok());
        uint8_t* src = fence.BeforeHigh(size_t(n * f->block));
        std::memcpy(src, blocks.data(), blocks.size());
        const Bytes want = Decode(test::Reference(f->impl), *f, blocks, w, h);
        for (const auto& t : test::SimdTargets(f->impl)) {
          Bytes out(want.size());
          ASSERT_EQ(t.fn(src, out.data(), w * f->pixel, {w, h}), rvtStatusOk);
          ASSERT_EQ(out, want) << f->name << " " << t.name << " " << w << "x" << h;
        }
      }
    }
  }
}

// Outputs larger than the largest cache, rows on 64-byte boundaries: the
// vector rows store non-temporally, with the same bytes, and leave the row
// padding alone (a width that leaves a tail in every row).
TEST(TextureDecode, LargeAlignedRegionsMatchTheReference) {
  int32_t cache = 0;
  ASSERT_EQ(rvtGetMaxCacheSizeB(&cache), rvtStatusOk);
  test::Rng rng(14);
  for (const Format* f : kFormats) {
    const int w = 1029;
    const int32_t step = (w * f->pixel + 63) / 64 * 64;
    const int h = std::max(1 << 20, cache) / step + 7;
    const Bytes blocks = RandomBlocks(rng, *f, BlockCount(w, h));
    using Out = std::vector<uint8_t, test::Aligned64<uint8_t>>;
    auto run = [&](DecodeFn fn) {
      Out out(size_t(step) * h, 0xA5);
      EXPECT_EQ(fn(blocks.data(), out.data(), step, {w, h}), rvtStatusOk);
      return out;
    };
    const Out want = run(test::Reference(f->impl));
    for (const auto& t : test::SimdTargets(f->impl)) {
      EXPECT_TRUE(run(t.fn) == want) << f->name << " " << t.name << " " << w << "x" << h;
    }
  }
}

// ------------------------------------------------------------ libsquish

int SquishFlag(const Format& f) {
  return &f == &kDxt1 ? squish::kDxt1 : &f == &kDxt3 ? squish::kDxt3 : squish::kDxt5;
}

// libsquish decodes every DXT block as we do except where this library
// chose otherwise, and each such pixel is checked for exactly the choice:
//  - DXT1 three-colour mode, index 3: opaque white here, transparent black
//    there;
//  - DXT3 alpha: nibble * 16 here (at most 240), nibble * 17 there;
//  - DXT5 interpolated alpha: rounded here, truncated there, so ours is the
//    same or one more.
TEST(TextureDecode, AgreesWithLibsquishOutsideTheChosenDifferences) {
  test::Rng rng(13);
  for (const Format* f : {&kDxt1, &kDxt3, &kDxt5}) {
    const int n = 4096;
    const Bytes blocks = RandomBlocks(rng, *f, n);
    const Bytes ours = Decode(test::AllTargets(f->impl).front().fn, *f, blocks, 4 * n, 4);
    int white = 0, sixteenths = 0, rounded = 0, same = 0;
    for (int k = 0; k < n; ++k) {
      const uint8_t* blk = blocks.data() + size_t(k) * f->block;
      uint8_t theirs[64];
      squish::Decompress(theirs, blk, SquishFlag(*f));
      const uint8_t* colour = blk + f->colour_at;
      const bool three = f == &kDxt1 && (colour[0] | colour[1] << 8) <= (colour[2] | colour[3] << 8);
      uint64_t alpha_bits = 0;
      for (int i = 0; i < 6; ++i) alpha_bits |= uint64_t(blk[2 + i]) << (8 * i);
      for (int p = 0; p < 16; ++p) {
        const uint8_t* o = ours.data() + (size_t(p / 4) * 4 * n + 4 * k + p % 4) * 4;
        const uint8_t* t = theirs + 4 * p;
        const std::string at = std::string(f->name) + " block " + std::to_string(k) + " pixel " +
                               std::to_string(p);
        const int ci = (colour[4 + p / 4] >> (2 * (p % 4))) & 3;
        if (three && ci == 3) {
          ASSERT_EQ(Bytes(o, o + 4), Bytes(4, 255)) << at;
          ASSERT_EQ(Bytes(t, t + 4), Bytes(4, 0)) << at;
          ++white;
          continue;
        }
        ASSERT_EQ(Bytes(o, o + 3), Bytes(t, t + 3)) << at;
        if (f == &kDxt3) {
          ASSERT_EQ(o[3], t[3] / 17 * 16) << at;
          sixteenths += o[3] != t[3];
        } else if (f == &kDxt5) {
          const int ai = int(alpha_bits >> (3 * p)) & 7;
          const bool interpolated = blk[0] > blk[1] ? ai >= 2 : (ai >= 2 && ai <= 5);
          ASSERT_TRUE(o[3] == t[3] || (interpolated && o[3] == t[3] + 1))
              << at << ": " << int(o[3]) << " vs " << int(t[3]);
          rounded += o[3] != t[3];
        } else {
          ASSERT_EQ(o[3], t[3]) << at;
        }
        ++same;
      }
    }
    EXPECT_GT(same, 16 * n / 2) << f->name;
    if (f == &kDxt1) EXPECT_GT(white, 0);
    if (f == &kDxt3) EXPECT_GT(sixteenths, 0);
    if (f == &kDxt5) EXPECT_GT(rounded, 0);
  }
}

double Psnr(const Bytes& a, const Bytes& b, int channels, int stride_a, int stride_b, size_t n) {
  double se = 0;
  for (size_t i = 0; i < n; ++i) {
    for (int k = 0; k < channels; ++k) {
      const double d = double(a[i * size_t(stride_a) + size_t(k)]) - b[i * size_t(stride_b) + size_t(k)];
      se += d * d;
    }
  }
  return 10 * std::log10(255.0 * 255.0 / (se / double(n * size_t(channels))));
}

// A photo compressed by libsquish (DXT1, and DXT5 with its luma as alpha) and
// decoded here: equal to libsquish's own decoding except DXT5's rounded
// alpha, and close to the photo.
TEST(TextureDecode, DecodesAPhotoCompressedByLibsquish) {
  const test::Photo p = test::LoadPhoto("coffee.png", 3);
  ASSERT_FALSE(p.px.empty()) << "test photo missing";
  const int w = p.width - 3, h = p.height - 1;  // partial edge tiles too
  Bytes rgba(size_t(w) * h * 4);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      uint8_t* q = &rgba[(size_t(y) * w + x) * 4];
      std::memcpy(q, &p.px[(size_t(y) * p.width + x) * 3], 3);
      q[3] = uint8_t((q[0] + 2 * q[1] + q[2]) / 4);  // alpha with edges
    }
  }
  for (const Format* f : {&kDxt5, &kDxt1}) {
    if (f == &kDxt1) {  // opaque: libsquish codes transparent pixels as its black
      for (size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
    }
    Bytes blocks(size_t(squish::GetStorageRequirements(w, h, SquishFlag(*f))));
    squish::CompressImage(rgba.data(), w, h, blocks.data(), SquishFlag(*f) | squish::kColourRangeFit);
    const Bytes mine = Decode(f == &kDxt1 ? rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R
                                          : rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R,
                              *f, blocks, w, h);
    Bytes theirs(rgba.size());
    squish::DecompressImage(theirs.data(), w, h, blocks.data(), SquishFlag(*f));
    const size_t n = size_t(w) * h;
    int alpha_off = 0;
    for (size_t i = 0; i < n; ++i) {
      ASSERT_EQ(Bytes(&mine[4 * i], &mine[4 * i + 3]), Bytes(&theirs[4 * i], &theirs[4 * i + 3]))
          << f->name << " pixel " << i;
      if (f == &kDxt5) {
        ASSERT_LE(mine[4 * i + 3] - theirs[4 * i + 3], 1);
        ASSERT_GE(mine[4 * i + 3] - theirs[4 * i + 3], 0);
        alpha_off += mine[4 * i + 3] != theirs[4 * i + 3];
      }
    }
    const double rgb = Psnr(mine, rgba, 3, 4, 4, n);
    std::printf("[ photo    ] %s coffee.png %dx%d: RGB PSNR %.2f dB", f->name, w, h, rgb);
    if (f == &kDxt5) {
      Bytes so(n), sr(n);
      for (size_t i = 0; i < n; ++i) so[i] = mine[4 * i + 3], sr[i] = rgba[4 * i + 3];
      std::printf(", alpha PSNR %.2f dB (%d pixels one above libsquish's truncation)",
                  Psnr(so, sr, 1, 1, 1, n), alpha_off);
    }
    std::printf("\n");
    EXPECT_GT(rgb, 28.0) << f->name;
  }
}

// ------------------------------------------------------------ differential

// Regions of every size 1..13 in each direction, every width to 70 (all
// vector groups and tails), a wide one; every third walks upwards.
auto RegionCases(const Format& format) {
  const Format f = format;
  return test::Cases{
      [f](test::Rng& rng) {
        std::vector<ImageSize> sizes;
        for (int h = 1; h <= 13; ++h) {
          for (int w = 1; w <= 13; ++w) sizes.push_back({w, h});
        }
        for (int w = 14; w <= 70; ++w) sizes.push_back({w, int(w % 7 + 1)});
        sizes.push_back({1024, 256});  // the one the benchmark times
        std::vector<test::Case> out;
        for (size_t i = 0; i < sizes.size(); ++i) {
          const ImageSize roi = sizes[i];
          test::Case c;
          c.roi = roi;
          c.arg[0] = i % 3 == 2;  // upwards
          c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height) +
                    (c.arg[0] ? ", negative step" : "");
          const Bytes blocks = RandomBlocks(rng, f, BlockCount(roi.width, roi.height));
          c.in.push_back(test::ArrayOf<uint8_t>(int(blocks.size()), int(i % 5)));
          std::memcpy(c.in[0].as<uint8_t>(), blocks.data(), blocks.size());
          c.out.push_back(test::PlaneOf<uint8_t>(roi.width * f.pixel, roi.height,
                                                 roi.width * f.pixel + int(i % 9), int(i % 7)));
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
RVT_CHECKASM(rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, RegionCases(kDxt1));
RVT_CHECKASM(rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, RegionCases(kDxt3));
RVT_CHECKASM(rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, RegionCases(kDxt5));
RVT_CHECKASM(rvtiTextureDecodeBlock_BC4_8u_C1R, RegionCases(kBc4));
RVT_CHECKASM(rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, RegionCases(kBc5));

}  // namespace
}  // namespace rvt
