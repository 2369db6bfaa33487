// BC7 and BC6H decoding: the tables' own consistency, blocks written by
// hand for the known pitfalls (p-bits, fields across bit 64, the signed
// zero, reserved modes), the region walk, and Mesa's software renderer
// (softpipe) decoding random blocks of every mode to exactly our output.
#define GL_GLEXT_PROTOTYPES
#include <GL/osmesa.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdlib>

#include "checkasm.h"
#include "hdr_image.h"
#include "texture/bptc_decode.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;
namespace bp = bptc_decode;

// Writes fields least significant bit first, as the formats read them.
struct BitWriter {
  uint8_t b[16] = {};
  int pos = 0;
  BitWriter& Put(uint32_t v, int n) {
    for (int i = 0; i < n; ++i, ++pos) b[pos / 8] |= uint8_t((v >> i & 1) << (pos % 8));
    return *this;
  }
  Bytes bytes() const { return Bytes(b, b + 16); }
};

// ------------------------------------------------------------ tables

TEST(BptcTables, PartitionsAnchorsAndBc6LayoutsAreConsistent) {
  for (int k = 0; k < 64; ++k) {
    EXPECT_EQ(bp::SubsetOf(2, k, 0), 0) << k;
    EXPECT_EQ(bp::SubsetOf(3, k, 0), 0) << k;
    EXPECT_EQ(bp::SubsetOf(2, k, bp::kAnchor2[k]), 1) << "two-subset anchor " << k;
    EXPECT_EQ(bp::SubsetOf(3, k, bp::kAnchor3a[k]), 1) << "three-subset anchor a " << k;
    EXPECT_EQ(bp::SubsetOf(3, k, bp::kAnchor3b[k]), 2) << "three-subset anchor b " << k;
    for (int p = 0; p < 16; ++p) EXPECT_LT(bp::SubsetOf(2, k, p), 2);
    // Every three-subset partition uses all three.
    int seen = 0;
    for (int p = 0; p < 16; ++p) seen |= 1 << bp::SubsetOf(3, k, p);
    EXPECT_EQ(seen, 7) << k;
  }
  int reserved = 0;
  for (int v = 0; v < 32; ++v) {
    const bp::Bc6Mode& m = bp::bc6::kModes[v];
    if (m.regions == 0) {
      ++reserved;
      continue;
    }
    // Every bit of every endpoint field exactly once; the fields end where
    // the partition (two regions) or the indices (one region) start.
    int got[4][3] = {}, total = m.header_bits;
    for (int r = 0; r < m.runs; ++r) {
      const bp::Run& run = m.layout[r];
      const int lo = std::min(run.from, run.to), hi = std::max(run.from, run.to);
      for (int b = lo; b <= hi; ++b) {
        EXPECT_FALSE(got[run.e][run.c] >> b & 1) << "mode " << v << " bit twice";
        got[run.e][run.c] |= 1 << b;
      }
      total += hi - lo + 1;
    }
    EXPECT_EQ(total, m.regions == 2 ? 77 : 65) << "mode " << v;
    for (int e = 0; e < 2 * m.regions; ++e) {
      for (int c = 0; c < 3; ++c) {
        const int bits = e == 0 || !m.transformed ? m.base_bits : m.delta_bits[c];
        EXPECT_EQ(got[e][c], (1 << bits) - 1) << "mode " << v << " endpoint " << e << " channel " << c;
      }
    }
  }
  EXPECT_EQ(reserved, 4);
}

// ------------------------------------------------------------ known answers

Bytes DecodeBc7(const Bytes& blk) {
  Bytes out(64, 0xEE);
  EXPECT_EQ(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blk.data(), out.data(), 16, {4, 4}), rvtStatusOk);
  return out;
}
template <class T>
std::vector<T> DecodeBc6(const Bytes& blk) {
  std::vector<T> out(48, T(0x5555));
  RvtResult st;
  if constexpr (std::is_same_v<T, int16_t>) {
    st = rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(blk.data(), out.data(), 24, {4, 4});
  } else {
    st = rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(blk.data(), out.data(), 24, {4, 4});
  }
  EXPECT_EQ(st, rvtStatusOk);
  return out;
}

TEST(BptcDecode, Bc7KnownBlocks) {
  // Reserved mode: transparent black.
  Bytes zero(16, 0);
  zero[5] = 0xFF;
  EXPECT_EQ(DecodeBc7(zero), Bytes(64, 0));
  // Mode 6, both endpoints all ones with p-bit 0: 7 bits + p-bit 0 = 254 in
  // every channel, alpha included; p-bit 1 gives 255.
  for (int pbit = 0; pbit < 2; ++pbit) {
    BitWriter w;
    w.Put(1 << 6, 7);
    for (int i = 0; i < 8; ++i) w.Put(127, 7);
    w.Put(uint32_t(pbit), 1).Put(uint32_t(pbit), 1);
    const uint8_t v = pbit ? 255 : 254;
    EXPECT_EQ(DecodeBc7(w.bytes()), Bytes(64, v)) << "p-bit " << pbit;
  }
  // Mode 5, rotation 1 (alpha and red swapped): colour endpoints 0 and
  // 127 (7 bits: 0 and 255), alpha 200 and 100, every index 1 (weight 21):
  // colour 84, alpha 167, then swapped.  The alpha endpoints straddle bit
  // 64; the index fields follow.
  BitWriter w;
  w.Put(1 << 5, 6).Put(1, 2);
  for (int c = 0; c < 3; ++c) w.Put(0, 7).Put(127, 7);
  w.Put(200, 8).Put(100, 8);
  for (int set = 0; set < 2; ++set) {
    w.Put(1, 1);  // pixel 0: the anchor, one bit fewer
    for (int p = 1; p < 16; ++p) w.Put(1, 2);
  }
  ASSERT_EQ(w.pos, 128);
  const uint8_t colour = (21 * 255 + 32) >> 6, alpha = (43 * 200 + 21 * 100 + 32) >> 6;
  Bytes want;
  for (int p = 0; p < 16; ++p) want.insert(want.end(), {alpha, colour, colour, colour});
  EXPECT_EQ(DecodeBc7(w.bytes()), want);
}

TEST(BptcDecode, Bc6KnownBlocks) {
  // Reserved mode values decode to black in both forms.
  for (uint8_t v : {0x13, 0x17, 0x1B, 0x1F}) {
    Bytes blk(16, 0xA5);
    blk[0] = uint8_t((blk[0] & ~31) | v);
    EXPECT_EQ(DecodeBc6<uint16_t>(blk), std::vector<uint16_t>(48, 0)) << int(v);
    EXPECT_EQ(DecodeBc6<int16_t>(blk), std::vector<int16_t>(48, 0)) << int(v);
  }
  // Mode 0x0F (16-bit endpoints, 4-bit deltas): w = -1 in every channel
  // (the high six bits stored reversed), deltas 0.  Signed: -1 interpolates
  // to -1, whose magnitude scales to 0: +0, not -0.  Unsigned: 0xFFFF
  // scales to 0x7BFF.
  BitWriter w;
  w.Put(0x0F, 5);
  for (int c = 0; c < 3; ++c) w.Put(0x3FF, 10);
  for (int c = 0; c < 3; ++c) w.Put(0, 4).Put(0x3F, 6);
  EXPECT_EQ(DecodeBc6<int16_t>(w.bytes()), std::vector<int16_t>(48, 0));
  EXPECT_EQ(DecodeBc6<uint16_t>(w.bytes()), std::vector<uint16_t>(48, 0x7BFF));
  // The same with only bit 15 of red's base set (the first of the reversed
  // bits): red -32768 gives -infinity (0xFC00) signed, and 0x8000 * 31 >> 6
  // = 0x3E00 unsigned.
  BitWriter r;
  r.Put(0x0F, 5).Put(0, 30).Put(0, 4).Put(1, 1).Put(0, 5).Put(0, 20);
  const auto s = DecodeBc6<int16_t>(r.bytes());
  const auto u = DecodeBc6<uint16_t>(r.bytes());
  for (int p = 0; p < 16; ++p) {
    EXPECT_EQ(uint16_t(s[3 * p]), 0xFC00);
    EXPECT_EQ(u[3 * p], 0x3E00);
    EXPECT_EQ(s[3 * p + 1], 0);
  }
}

// ------------------------------------------------------------ region walk

struct Format {
  const char* name;
  int pixel;  // bytes
  RvtResult (*fn)(const uint8_t*, uint8_t*, int32_t, ImageSize);
};
RvtResult Bc6u(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(s, reinterpret_cast<uint16_t*>(d), step, roi);
}
RvtResult Bc6s(const uint8_t* s, uint8_t* d, int32_t step, ImageSize roi) {
  return rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(s, reinterpret_cast<int16_t*>(d), step, roi);
}
const Format kFormats[] = {{"BC7", 4, rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R},
                           {"BC6H unsigned", 6, Bc6u},
                           {"BC6H signed", 6, Bc6s}};

TEST(BptcDecode, ChecksInOrderAndPartialTiles) {
  alignas(8) uint8_t src[64] = {}, dst[256];
  for (const Format& f : kFormats) {
    std::memset(dst, 0xEE, sizeof dst);
    EXPECT_EQ(f.fn(nullptr, nullptr, 0, {0, 0}), rvtStatusNullPtr) << f.name;
    EXPECT_EQ(f.fn(src, nullptr, 0, {0, 0}), rvtStatusNullPtr);
    EXPECT_EQ(f.fn(src, dst, 0, {0, 0}), rvtStatusStep);
    EXPECT_EQ(f.fn(src, dst, -24, {0, 4}), rvtStatusSize);
    for (uint8_t b : dst) ASSERT_EQ(b, 0xEE) << f.name;
  }
  // 5x5 from 2x2 random blocks: exactly 25 pixels written; upwards the rows
  // mirror.
  test::Rng rng(7);
  Bytes blocks(64);
  rng.Fill(blocks.data(), blocks.size(), uint8_t(0), uint8_t(255));
  for (const Format& f : kFormats) {
    test::GuardedPlane<uint8_t> down(5 * f.pixel, 5), up(5 * f.pixel, 5);
    ASSERT_EQ(f.fn(blocks.data(), down.data(), down.step(), {5, 5}), rvtStatusOk);
    ASSERT_EQ(f.fn(blocks.data(), up.row(4), -up.step(), {5, 5}), rvtStatusOk);
    std::string where;
    EXPECT_TRUE(down.GuardsIntact(&where)) << f.name << ": " << where;
    EXPECT_TRUE(up.GuardsIntact(&where)) << f.name << ": " << where;
    for (int y = 0; y < 5; ++y) {
      for (int x = 0; x < 5 * f.pixel; ++x) ASSERT_EQ(down.get(x, y), up.get(x, 4 - y));
    }
  }
}

// ------------------------------------------------------------ Mesa softpipe

// Random blocks with their mode field forced: BC7 modes 0..7 and the
// reserved 8 (first byte 0); BC6H every 5-bit mode value (the 2-bit modes,
// the 12 others, the 4 reserved).
Bytes ModeBlocks(test::Rng& rng, bool bc7, int per_mode) {
  const int modes = bc7 ? 9 : 32;
  Bytes b(size_t(modes * per_mode) * 16);
  rng.Fill(b.data(), b.size(), uint8_t(0), uint8_t(255));
  for (size_t k = 0; k < b.size() / 16; ++k) {
    const int m = int(k % size_t(modes));
    uint8_t& first = b[16 * k];
    if (bc7) {
      first = m == 8 ? 0 : uint8_t((first << (m + 1)) | (1 << m));
    } else {
      first = uint8_t((first & ~31) | m);
    }
  }
  return b;
}

class Softpipe {
 public:
  static Softpipe& Get() {
    static Softpipe s;
    return s;
  }
  std::string error;
  // Uploads `blocks` as a w x h texture of `format` and reads it back as
  // `type` pixels of `channels`.
  template <class T>
  std::vector<T> Decode(GLenum format, const Bytes& blocks, int w, int h, GLenum layout, GLenum type,
                        int channels) {
    glBindTexture(GL_TEXTURE_2D, tex_);
    glCompressedTexImage2D(GL_TEXTURE_2D, 0, format, w, h, 0, GLsizei(blocks.size()), blocks.data());
    std::vector<T> out(size_t(w) * h * channels);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GL_TEXTURE_2D, 0, layout, type, out.data());
    if (const GLenum e = glGetError()) error = "GL error " + std::to_string(e);
    return out;
  }

 private:
  Softpipe() {
    setenv("GALLIUM_DRIVER", "softpipe", 1);
    const int attribs[] = {OSMESA_FORMAT, OSMESA_RGBA, OSMESA_PROFILE, OSMESA_COMPAT_PROFILE, 0};
    ctx_ = OSMesaCreateContextAttribs(attribs, nullptr);
    if (!ctx_ || !OSMesaMakeCurrent(ctx_, fb_, GL_UNSIGNED_BYTE, 4, 4)) {
      error = "OSMesa context not created";
      return;
    }
    const char* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    const char* ext = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (!renderer || std::string(renderer) != "softpipe") error = "renderer is not softpipe";
    if (!ext || !std::strstr(ext, "GL_ARB_texture_compression_bptc")) error = "no BPTC extension";
    glGenTextures(1, &tex_);
  }
  OSMesaContext ctx_ = nullptr;
  GLuint tex_ = 0;
  uint8_t fb_[64] = {};
};

TEST(BptcDecode, Bc7EqualsSoftpipeInEveryMode) {
  Softpipe& gl = Softpipe::Get();
  ASSERT_EQ(gl.error, "");
  test::Rng rng(21);
  const int w = 4 * 9 * 32, h = 4 * 16;  // 9 modes x 512 blocks
  const Bytes blocks = ModeBlocks(rng, true, 512);
  const auto theirs = gl.Decode<uint8_t>(GL_COMPRESSED_RGBA_BPTC_UNORM, blocks, w, h, GL_RGBA,
                                         GL_UNSIGNED_BYTE, 4);
  ASSERT_EQ(gl.error, "");
  for (const auto& t : test::AllTargets(impl_rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R)) {
    Bytes mine(theirs.size());
    ASSERT_EQ(t.fn(blocks.data(), mine.data(), 4 * w, {w, h}), rvtStatusOk);
    for (size_t i = 0; i < mine.size(); ++i) {
      const size_t px = i / 4, x = px % size_t(w), y = px / size_t(w);
      const size_t blk = y / 4 * (w / 4) + x / 4;
      ASSERT_EQ(mine[i], theirs[i]) << t.name << " block " << blk << " mode " << blk % 9
                                    << " pixel " << (y % 4) * 4 + x % 4 << " channel " << i % 4;
    }
  }
}

// Signed BC6H: ours never gives -0; softpipe gives -0 where a negative
// value's magnitude scales to 0, and equals ours everywhere else.
TEST(BptcDecode, Bc6EqualsSoftpipeInEveryMode) {
  Softpipe& gl = Softpipe::Get();
  ASSERT_EQ(gl.error, "");
  // -1 everywhere (see Bc6KnownBlocks): -0 there, +0 here.
  BitWriter minus;
  minus.Put(0x0F, 5);
  for (int c = 0; c < 3; ++c) minus.Put(0x3FF, 10);
  for (int c = 0; c < 3; ++c) minus.Put(0, 4).Put(0x3F, 6);
  EXPECT_EQ(gl.Decode<uint16_t>(GL_COMPRESSED_RGB_BPTC_SIGNED_FLOAT, minus.bytes(), 4, 4, GL_RGB,
                                GL_HALF_FLOAT, 3),
            std::vector<uint16_t>(48, 0x8000));
  const int w = 4 * 32 * 16, h = 4 * 16;  // 32 mode values x 256 blocks
  for (bool is_signed : {false, true}) {
    test::Rng rng(is_signed ? 23 : 22);
    const Bytes blocks = ModeBlocks(rng, false, 256);
    const auto theirs = gl.Decode<uint16_t>(
        is_signed ? GL_COMPRESSED_RGB_BPTC_SIGNED_FLOAT : GL_COMPRESSED_RGB_BPTC_UNSIGNED_FLOAT,
        blocks, w, h, GL_RGB, GL_HALF_FLOAT, 3);
    ASSERT_EQ(gl.error, "");
    std::vector<std::pair<const char*, std::vector<uint16_t>>> ours;
    if (is_signed) {
      for (const auto& t : test::AllTargets(impl_rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R)) {
        std::vector<uint16_t> mine(theirs.size());
        EXPECT_EQ(t.fn(blocks.data(), reinterpret_cast<int16_t*>(mine.data()), 6 * w, {w, h}), rvtStatusOk);
        ours.emplace_back(t.name, std::move(mine));
      }
    } else {
      for (const auto& t : test::AllTargets(impl_rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R)) {
        std::vector<uint16_t> mine(theirs.size());
        EXPECT_EQ(t.fn(blocks.data(), mine.data(), 6 * w, {w, h}), rvtStatusOk);
        ours.emplace_back(t.name, std::move(mine));
      }
    }
    for (const auto& [name, mine] : ours) {
      int negative_zero = 0;
      for (size_t i = 0; i < mine.size(); ++i) {
        const size_t px = i / 3, x = px % size_t(w), y = px / size_t(w);
        const size_t blk = y / 4 * (w / 4) + x / 4;
        if (is_signed && theirs[i] == 0x8000 && mine[i] == 0) {
          ++negative_zero;
          continue;
        }
        ASSERT_EQ(mine[i], theirs[i]) << name << (is_signed ? " signed" : " unsigned") << " block "
                                      << blk << " mode value " << blk % 32 << " pixel "
                                      << (y % 4) * 4 + x % 4 << " channel " << i % 3;
      }
      if (is_signed) {
        std::printf("[ softpipe ] signed BC6H, %s: %d values -0 there, +0 here\n", name, negative_zero);
      }
    }
  }
}

// ------------------------------------------------------------ differential

// Regions of every size 1..9 in each direction, widths to 40, a wide one;
// blocks of every mode; every third walks upwards.
template <class T>
auto RegionCases(bool bc7) {
  const int channels = bc7 ? 4 : 3;
  return test::Cases{
      [bc7, channels](test::Rng& rng) {
        std::vector<ImageSize> sizes;
        for (int h = 1; h <= 9; ++h) {
          for (int w = 1; w <= 9; ++w) sizes.push_back({w, h});
        }
        for (int w = 10; w <= 40; ++w) sizes.push_back({w, int(w % 7 + 1)});
        sizes.push_back({512, 128});  // the one the benchmark times
        std::vector<test::Case> out;
        for (size_t i = 0; i < sizes.size(); ++i) {
          const ImageSize roi = sizes[i];
          test::Case c;
          c.roi = roi;
          c.arg[0] = i % 3 == 2;
          c.label = std::to_string(roi.width) + "x" + std::to_string(roi.height) +
                    (c.arg[0] ? ", negative step" : "");
          const int n = (roi.width + 3) / 4 * ((roi.height + 3) / 4);
          Bytes blocks = ModeBlocks(rng, bc7, (n + 31) / (bc7 ? 9 : 32) + 1);
          blocks.resize(size_t(n) * 16);
          c.in.push_back(test::ArrayOf<uint8_t>(int(blocks.size()), int(i % 5)));
          std::memcpy(c.in[0].as<uint8_t>(), blocks.data(), blocks.size());
          c.out.push_back(test::PlaneOf<T>(roi.width * channels, roi.height,
                                           int32_t(roi.width * channels * sizeof(T)) + int(i % 9),
                                           int(i % 7)));
          out.push_back(std::move(c));
        }
        return out;
      },
      [](auto fn, test::Case& c) {
        test::Buf& d = c.out[0];
        if (c.arg[0]) return fn(c.in[0].as<uint8_t>(), d.row<T>(c.roi.height - 1), -d.step(), c.roi);
        return fn(c.in[0].as<uint8_t>(), d.as<T>(), d.step(), c.roi);
      }};
}
RVT_CHECKASM(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R, RegionCases<uint8_t>(true));
RVT_CHECKASM(rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R, RegionCases<uint16_t>(false));
RVT_CHECKASM(rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R, RegionCases<int16_t>(false));

// ------------------------------------------------------------ BC6H encoder

// Our BC6H encoder's blocks of HDR scenes and photos, at every quality:
// softpipe decodes them to our decoder's output (signed: but for -0 there
// where we give +0).
TEST(BptcDecode, SoftpipeReadsOurBc6Blocks) {
  Softpipe& gl = Softpipe::Get();
  ASSERT_EQ(gl.error, "");
  const test::Photo photo = test::LoadPhoto("coffee.png", 3);
  ASSERT_GT(photo.width, 0);
  test::Photo crop{64, 64, 3, std::vector<uint8_t>(64 * 64 * 3)};
  for (int y = 0; y < 64; ++y) {
    std::memcpy(&crop.px[size_t(y) * 64 * 3], &photo.px[(size_t(y + 120) * photo.width + 200) * 3], 64 * 3);
  }
  for (bool is_signed : {false, true}) {
    for (const test::HalfImage& im : {test::SyntheticHdr(64, 64, is_signed, 5), test::PhotoHdr(crop, is_signed)}) {
      for (int q = 0; q <= 2; ++q) {
        const ImageSize roi{im.width, im.height};
        Bytes blocks(size_t(im.width / 4) * (im.height / 4) * 16);
        std::vector<uint16_t> mine(im.px.size());
        if (is_signed) {
          ASSERT_EQ(rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R(reinterpret_cast<const int16_t*>(im.px.data()),
                                                                6 * im.width, blocks.data(), roi, q),
                    rvtStatusOk);
          ASSERT_EQ(rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(
                        blocks.data(), reinterpret_cast<int16_t*>(mine.data()), 6 * im.width, roi),
                    rvtStatusOk);
        } else {
          ASSERT_EQ(rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R(im.px.data(), 6 * im.width, blocks.data(), roi, q),
                    rvtStatusOk);
          ASSERT_EQ(rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(blocks.data(), mine.data(), 6 * im.width, roi),
                    rvtStatusOk);
        }
        const auto theirs = gl.Decode<uint16_t>(
            is_signed ? GL_COMPRESSED_RGB_BPTC_SIGNED_FLOAT : GL_COMPRESSED_RGB_BPTC_UNSIGNED_FLOAT, blocks,
            im.width, im.height, GL_RGB, GL_HALF_FLOAT, 3);
        ASSERT_EQ(gl.error, "");
        int modes = 0;
        for (size_t k = 0; k < blocks.size(); k += 16) {
          const int low = blocks[k] & 3;
          modes |= 1 << (low < 2 ? low : blocks[k] & 31);
        }
        for (size_t i = 0; i < mine.size(); ++i) {
          if (is_signed && theirs[i] == 0x8000 && mine[i] == 0) continue;
          ASSERT_EQ(mine[i], theirs[i]) << (is_signed ? "signed" : "unsigned") << " quality " << q << " value " << i
                                        << " (mode values used: 0x" << std::hex << modes << ")";
        }
      }
    }
  }
}

}  // namespace
}  // namespace rvt
