// MCU-level conversions with level shift: every target against the
// composition of the library's other exports (random MCUs and MCUs cut
// from the test photos), the argument checks, the differential checks, and
// TurboJPEG's own YUV conversions on the same pixels.
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "checkasm.h"
#include "frame/dispatch.h"
#include "mcu_compose.h"
#include "photo.h"

namespace rvt {
namespace {

using test::McuFamily;
using test::Rng;
using test::McuShape;
using FwdFn = RvtResult (*)(const uint8_t*, int32_t, int16_t**);
using InvFn = RvtResult (*)(const int16_t**, uint8_t*, int32_t);

template <class Fn>
struct Export {
  const char* name;
  const Impl<Fn>* impl;
  McuShape shape;
};
#define RVT_MCU_EXPORT(name, family, layout) \
  { #name, &impl_##name, {McuFamily::family, layout} }
const Export<FwdFn> kFwd[] = {
    RVT_MCU_EXPORT(rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R, kRgb, 0),
    RVT_MCU_EXPORT(rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R, kRgb, 1),
    RVT_MCU_EXPORT(rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R, kRgb, 2),
    RVT_MCU_EXPORT(rvtiBGRToYCbCr444LS_MCU_8u16s_C3P3R, kBgr, 0),
    RVT_MCU_EXPORT(rvtiBGRToYCbCr422LS_MCU_8u16s_C3P3R, kBgr, 1),
    RVT_MCU_EXPORT(rvtiBGRToYCbCr420LS_MCU_8u16s_C3P3R, kBgr, 2),
    RVT_MCU_EXPORT(rvtiCMYKToYCCK444LS_MCU_8u16s_C4P4R, kCmyk, 0),
    RVT_MCU_EXPORT(rvtiCMYKToYCCK422LS_MCU_8u16s_C4P4R, kCmyk, 1),
    RVT_MCU_EXPORT(rvtiCMYKToYCCK420LS_MCU_8u16s_C4P4R, kCmyk, 2),
    RVT_MCU_EXPORT(rvtiSplit422LS_MCU_8u16s_C2P3R, kSplit, 1),
};
const Export<InvFn> kInv[] = {
    RVT_MCU_EXPORT(rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, kRgb, 0),
    RVT_MCU_EXPORT(rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, kRgb, 1),
    RVT_MCU_EXPORT(rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, kRgb, 2),
    RVT_MCU_EXPORT(rvtiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, kBgr, 0),
    RVT_MCU_EXPORT(rvtiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, kBgr, 1),
    RVT_MCU_EXPORT(rvtiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, kBgr, 2),
    RVT_MCU_EXPORT(rvtiYCCK444ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 0),
    RVT_MCU_EXPORT(rvtiYCCK422ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 1),
    RVT_MCU_EXPORT(rvtiYCCK420ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 2),
    RVT_MCU_EXPORT(rvtiJoin422LS_MCU_16s8u_P3C2R, kJoin, 1),
    RVT_MCU_EXPORT(rvtiSampleUp422LS_MCU_16s8u_P3C3R, kSampleUp, 1),
};
#undef RVT_MCU_EXPORT

// ------------------------------------------------------------ inputs

// Pixel values of trial k: uniform, only the extremes, or a smooth ramp
// (runs of near-equal samples, as photos have).
void FillPixels(test::Buf& b, Rng& rng, int k) {
  for (int y = 0; y < b.plane.height(); ++y) {
    for (int x = 0; x < b.plane.width(); ++x) {
      int v;
      switch (k % 3) {
        case 0: v = int(rng.Uniform(0, 255)); break;
        case 1: v = rng.Uniform(0, 1) ? 255 : 0; break;
        default: v = (x * 7 + y * 11 + int(rng.Uniform(0, 3))) & 255; break;
      }
      b.plane.set(x, y, uint8_t(v));
    }
  }
}
// Block values: the range a decoder's inverse DCT gives, beyond 8 bits
// now and then, or the whole 16-bit range (saturation).
void FillBlocks(test::Buf& b, Rng& rng, int k) {
  const int lo = k % 3 == 2 ? -32768 : -200, hi = k % 3 == 2 ? 32767 : 200;
  b.Fill<int16_t>(rng, int16_t(lo), int16_t(hi));
}

std::vector<test::Buf> BlockBufs(McuShape m, int k) {
  std::vector<test::Buf> out;
  for (int p = 0; p < m.Planes(); ++p) out.push_back(test::ArrayOf<int16_t>(64 * m.Blocks(p), (k + p) % 3));
  return out;
}

// arg[0]: 0 a good call, 1 a step one byte short of a row, 2 a null block
// pointer (arg[1] says which); neither of the last two may write anything.
std::vector<test::Case> FwdCases(McuShape m, Rng& rng) {
  std::vector<test::Case> out;
  for (int k = 0; k < 24; ++k) {
    test::Case c;
    c.label = "trial " + std::to_string(k);
    c.in.push_back(test::PlaneOf<uint8_t>(m.RowBytes(), m.Height(), m.RowBytes() + (k % 4) * 7, k % 5));
    FillPixels(c.in[0], rng, k);
    c.out = BlockBufs(m, k);
    c.arg[0] = k == 20 ? 1 : (k == 21 ? 2 : 0);
    c.arg[1] = m.Planes() - 1;
    out.push_back(std::move(c));
  }
  return out;
}
std::vector<test::Case> InvCases(McuShape m, Rng& rng) {
  std::vector<test::Case> out;
  for (int k = 0; k < 24; ++k) {
    test::Case c;
    c.label = "trial " + std::to_string(k);
    c.in = BlockBufs(m, k);
    for (auto& b : c.in) FillBlocks(b, rng, k);
    c.out.push_back(test::PlaneOf<uint8_t>(m.RowBytes(), m.Height(), m.RowBytes() + (k % 4) * 5, k % 7));
    c.arg[0] = k == 20 ? 1 : (k == 21 ? 2 : 0);
    c.arg[1] = k % m.Planes();
    out.push_back(std::move(c));
  }
  return out;
}

auto FwdCheck(McuShape m) {
  return test::Cases{[m](Rng& rng) { return FwdCases(m, rng); },
                     [m](auto fn, test::Case& k) {
                       int16_t* planes[4] = {};
                       for (size_t p = 0; p < k.out.size(); ++p) planes[p] = k.out[p].as<int16_t>();
                       if (k.arg[0] == 2) planes[k.arg[1]] = nullptr;
                       const int32_t step = k.arg[0] == 1 ? m.RowBytes() - 1 : k.in[0].step();
                       return fn(k.in[0].as<uint8_t>(), step, planes);
                     }};
}
auto InvCheck(McuShape m) {
  return test::Cases{[m](Rng& rng) { return InvCases(m, rng); },
                     [m](auto fn, test::Case& k) {
                       const int16_t* planes[4] = {};
                       for (size_t p = 0; p < k.in.size(); ++p) planes[p] = k.in[p].as<int16_t>();
                       if (k.arg[0] == 2) planes[k.arg[1]] = nullptr;
                       const int32_t step = k.arg[0] == 1 ? m.RowBytes() - 1 : k.out[0].step();
                       return fn(planes, k.out[0].as<uint8_t>(), step);
                     }};
}

#define RVT_MCU_FWD_CHECK(name, family, layout) \
  RVT_CHECKASM(name, FwdCheck({McuFamily::family, layout}))
#define RVT_MCU_INV_CHECK(name, family, layout) \
  RVT_CHECKASM(name, InvCheck({McuFamily::family, layout}))
RVT_MCU_FWD_CHECK(rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R, kRgb, 0);
RVT_MCU_FWD_CHECK(rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R, kRgb, 1);
RVT_MCU_FWD_CHECK(rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R, kRgb, 2);
RVT_MCU_FWD_CHECK(rvtiBGRToYCbCr444LS_MCU_8u16s_C3P3R, kBgr, 0);
RVT_MCU_FWD_CHECK(rvtiBGRToYCbCr422LS_MCU_8u16s_C3P3R, kBgr, 1);
RVT_MCU_FWD_CHECK(rvtiBGRToYCbCr420LS_MCU_8u16s_C3P3R, kBgr, 2);
RVT_MCU_FWD_CHECK(rvtiCMYKToYCCK444LS_MCU_8u16s_C4P4R, kCmyk, 0);
RVT_MCU_FWD_CHECK(rvtiCMYKToYCCK422LS_MCU_8u16s_C4P4R, kCmyk, 1);
RVT_MCU_FWD_CHECK(rvtiCMYKToYCCK420LS_MCU_8u16s_C4P4R, kCmyk, 2);
RVT_MCU_FWD_CHECK(rvtiSplit422LS_MCU_8u16s_C2P3R, kSplit, 1);
RVT_MCU_INV_CHECK(rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, kRgb, 0);
RVT_MCU_INV_CHECK(rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, kRgb, 1);
RVT_MCU_INV_CHECK(rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, kRgb, 2);
RVT_MCU_INV_CHECK(rvtiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, kBgr, 0);
RVT_MCU_INV_CHECK(rvtiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, kBgr, 1);
RVT_MCU_INV_CHECK(rvtiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, kBgr, 2);
RVT_MCU_INV_CHECK(rvtiYCCK444ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 0);
RVT_MCU_INV_CHECK(rvtiYCCK422ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 1);
RVT_MCU_INV_CHECK(rvtiYCCK420ToCMYKLS_MCU_16s8u_P4C4R, kCmyk, 2);
RVT_MCU_INV_CHECK(rvtiJoin422LS_MCU_16s8u_P3C2R, kJoin, 1);
RVT_MCU_INV_CHECK(rvtiSampleUp422LS_MCU_16s8u_P3C3R, kSampleUp, 1);

// Processors of variant 1 run their own implementation of SampleUp422: on
// every target it gives variant 0's reference bytes.
TEST(McuConversions, SampleUp422Variant1MatchesVariant0) {
  const test::CaseCheck<decltype(&::rvtiSampleUp422LS_MCU_16s8u_P3C3R)> check =
      InvCheck({McuFamily::kSampleUp, 1});
  ASSERT_EQ(test::Reference(impl1_rvtiSampleUp422LS_MCU_16s8u_P3C3R),
            test::Reference(impl_rvtiSampleUp422LS_MCU_16s8u_P3C3R));
  ASSERT_FALSE(test::SimdTargets(impl1_rvtiSampleUp422LS_MCU_16s8u_P3C3R).empty());
  test::Verify(impl1_rvtiSampleUp422LS_MCU_16s8u_P3C3R, check, 422);
}

// ------------------------------------------------------------ composition

// MCUs cut from the test photos: RGB pixels, and for CMYK, C4 bytes made
// from them (the inverted colours and a K of their minimum).
struct PhotoMcus {
  std::vector<std::vector<uint8_t>> rgb48;  // 16x16 RGB each, 48 bytes a row
};
const PhotoMcus& Photos() {
  static const PhotoMcus p = [] {
    PhotoMcus out;
    for (const char* name : {"astronaut.png", "chelsea.png", "coffee.png"}) {
      const test::Photo ph = test::LoadPhoto(name, 3);
      if (ph.width < 16) continue;
      for (int y = 0; y + 16 <= ph.height; y += 16 * 7) {
        for (int x = 0; x + 16 <= ph.width; x += 16 * 5) {
          std::vector<uint8_t> m(16 * 48);
          for (int r = 0; r < 16; ++r) {
            std::memcpy(m.data() + 48 * r, ph.px.data() + (size_t(y + r) * ph.width + x) * 3, 48);
          }
          out.rgb48.push_back(std::move(m));
        }
      }
    }
    return out;
  }();
  return p;
}

// The pixel rows of an MCU of shape m from photo MCU i, or random: 16 rows
// kStep bytes apart (an odd step), from the second byte of the buffer.
constexpr int kStep = 67;
std::vector<uint8_t> McuPixels(McuShape m, Rng& rng, int i, bool photo) {
  std::vector<uint8_t> px(16 * kStep + 1, 0x5A);
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      uint8_t rgb[3];
      if (photo) {
        std::memcpy(rgb, Photos().rgb48[i].data() + 48 * y + 3 * x, 3);
      } else {
        for (auto& v : rgb) v = uint8_t(rng.Uniform(0, 255));
      }
      uint8_t* p = px.data() + 1 + kStep * y + m.Bpp() * x;
      if (m.family == McuFamily::kCmyk) {
        p[0] = uint8_t(255 - rgb[0]), p[1] = uint8_t(255 - rgb[1]), p[2] = uint8_t(255 - rgb[2]);
        p[3] = std::min({rgb[0], rgb[1], rgb[2]});
      } else if (m.Bpp() == 2) {
        p[0] = rgb[x & 1], p[1] = rgb[2];  // luma-like, then chroma-like bytes
      } else {
        std::memcpy(p, rgb, 3);
      }
    }
  }
  return px;
}

// Blocks of shape m: all planes in one array, 64 * 10 values of room.
struct Blocks {
  std::vector<int16_t> v = std::vector<int16_t>(64 * 10);
  int16_t* planes[4];
  explicit Blocks(McuShape m) {
    int at = 0;
    for (int p = 0; p < 4; ++p) {
      planes[p] = v.data() + at;
      at += 64 * (p < m.Planes() ? m.Blocks(p) : 0);
    }
  }
  const int16_t** In() { return const_cast<const int16_t**>(planes); }
};

TEST(Mcu, ForwardFormsEqualTheCompositionOfExports) {
  Rng rng(18);
  const int photos = int(Photos().rgb48.size());
  ASSERT_GT(photos, 20);
  for (const auto& e : kFwd) {
    for (const auto& t : test::AllTargets(*e.impl)) {
      for (int i = 0; i < photos + 20; ++i) {
        const bool photo = i < photos;
        const auto px = McuPixels(e.shape, rng, photo ? i : 0, photo);
        Blocks want(e.shape), got(e.shape);
        test::ComposeFwd(e.shape, px.data() + 1, kStep, want.planes);
        ASSERT_EQ(t.fn(px.data() + 1, kStep, got.planes), rvtStatusOk);
        ASSERT_EQ(want.v, got.v) << e.name << " " << t.name << (photo ? " photo MCU " : " random MCU ") << i;
      }
    }
  }
}

TEST(Mcu, InverseFormsEqualTheCompositionOfExports) {
  Rng rng(81);
  const int photos = int(Photos().rgb48.size());
  for (const auto& e : kInv) {
    // Photo MCUs through the forward composition, then perturbed as
    // quantisation would; random blocks across and beyond the 8-bit range.
    McuShape fwd = e.shape;
    if (fwd.family == McuFamily::kJoin || fwd.family == McuFamily::kSampleUp) fwd.family = McuFamily::kSplit;
    for (const auto& t : test::AllTargets(*e.impl)) {
      for (int i = 0; i < photos + 20; ++i) {
        Blocks in(e.shape);
        if (i < photos) {
          const auto px = McuPixels(fwd, rng, i, true);
          test::ComposeFwd(fwd, px.data() + 1, kStep, in.planes);
          for (auto& v : in.v) v = int16_t(v + rng.Uniform(-6, 6));
        } else {
          const int r = i % 2 ? 200 : 32767;
          for (auto& v : in.v) v = int16_t(rng.Uniform(-r - 1, r));
        }
        // Odd step, odd start, guard bytes around and between the rows.
        std::vector<uint8_t> want(16 * kStep + 2, 0xA5), got(16 * kStep + 2, 0xA5);
        test::ComposeInv(e.shape, in.In(), want.data() + 1, kStep);
        ASSERT_EQ(t.fn(in.In(), got.data() + 1, kStep), rvtStatusOk);
        ASSERT_EQ(want, got) << e.name << " " << t.name << " MCU " << i;
      }
    }
  }
}

// ------------------------------------------------------------ checks

// Through the exported entry: each check in argument order, nothing
// written when one fails.
TEST(Mcu, ChecksRunInArgumentOrderAndWriteNothing) {
  for (const auto& e : kFwd) {
    const McuShape m = e.shape;
    for (const auto& t : test::AllTargets(*e.impl)) {
      const FwdFn fn = t.fn;
      std::vector<uint8_t> px(16 * 64, 7);
      Blocks b(m);
      const int rb = m.RowBytes();
      EXPECT_EQ(fn(nullptr, 0, nullptr), rvtStatusNullPtr) << e.name;
      EXPECT_EQ(fn(px.data(), rb - 1, nullptr), rvtStatusStep) << e.name;
      EXPECT_EQ(fn(px.data(), 0, b.planes), rvtStatusStep) << e.name;
      EXPECT_EQ(fn(px.data(), rb, nullptr), rvtStatusNullPtr) << e.name;
      for (int p = 0; p < m.Planes(); ++p) {
        int16_t* planes[4] = {b.planes[0], b.planes[1], b.planes[2], b.planes[3]};
        planes[p] = nullptr;
        EXPECT_EQ(fn(px.data(), rb, planes), rvtStatusNullPtr) << e.name << " plane " << p;
      }
      for (int16_t v : b.v) ASSERT_EQ(v, 0) << e.name << " " << t.name << " wrote on failure";
      EXPECT_EQ(fn(px.data(), rb, b.planes), rvtStatusOk) << e.name;
    }
  }
  for (const auto& e : kInv) {
    const McuShape m = e.shape;
    for (const auto& t : test::AllTargets(*e.impl)) {
      Blocks b(m);
      std::vector<uint8_t> px(16 * 64, 0);
      const int rb = m.RowBytes();
      EXPECT_EQ(t.fn(nullptr, nullptr, 0), rvtStatusNullPtr) << e.name;
      for (int p = 0; p < m.Planes(); ++p) {
        const int16_t* planes[4] = {b.planes[0], b.planes[1], b.planes[2], b.planes[3]};
        planes[p] = nullptr;
        EXPECT_EQ(t.fn(planes, px.data(), 0), rvtStatusNullPtr) << e.name << " plane " << p;
      }
      EXPECT_EQ(t.fn(b.In(), nullptr, 0), rvtStatusNullPtr) << e.name;
      EXPECT_EQ(t.fn(b.In(), px.data(), rb - 1), rvtStatusStep) << e.name;
      EXPECT_EQ(t.fn(b.In(), px.data(), -rb), rvtStatusStep) << e.name;
      for (uint8_t v : px) ASSERT_EQ(v, 0) << e.name << " " << t.name << " wrote on failure";
      EXPECT_EQ(t.fn(b.In(), px.data(), rb), rvtStatusOk) << e.name;
    }
  }
}

// Known answers that pin the level shift: white and black MCUs give the
// extreme blocks and neutral chroma, and back.
TEST(Mcu, GreyLevelsMapToTheirShiftedValues) {
  for (const auto& e : kFwd) {
    if (e.shape.family == McuFamily::kSplit || e.shape.family == McuFamily::kCmyk) continue;
    for (int level : {0, 255}) {
      std::vector<uint8_t> px(16 * 64, uint8_t(level));
      Blocks b(e.shape);
      ASSERT_EQ(e.impl->fn[kRef](px.data(), 64, b.planes), rvtStatusOk);
      for (int i = 0; i < 64 * e.shape.Blocks(0); ++i) ASSERT_EQ(b.planes[0][i], level - 128) << e.name;
      for (int i = 0; i < 64; ++i) ASSERT_EQ(b.planes[1][i], 0) << e.name;
    }
  }
}

// ------------------------------------------------------------ TurboJPEG

// The same pixels through TurboJPEG's YUV plane conversions: the forward
// forms against tjEncodeYUVPlanes, the inverse forms on those planes
// against tjDecodeYUVPlanes.  They use their own fixed-point tables and
// down-sampling (and, decoding, their own up-sampling), so samples differ
// by small amounts; the bounds are what this comparison measures, kept as
// a tolerance.
struct Agreement {
  int max_diff = 0;
  long equal = 0, total = 0;
  void Add(int a, int b) {
    max_diff = std::max(max_diff, std::abs(a - b));
    equal += a == b;
    ++total;
  }
  double Share() const { return total ? double(equal) / double(total) : 0; }
};

TEST(Mcu, AgreesWithTurboJpegYuvPlanes) {
  struct Layout {
    int sub;
    FwdFn fwd;
    InvFn inv;
    McuShape shape;
    int fwd_max, inv_max;      // the largest difference measured
    double fwd_share, inv_share;  // and the share of equal samples, rounded down
  };
  const Layout layouts[] = {
      {TJSAMP_444, rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R, rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R,
       {McuFamily::kRgb, 0}, 1, 1, 0.99, 0.99},
      {TJSAMP_422, rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R, rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R,
       {McuFamily::kRgb, 1}, 1, 1, 0.88, 0.97},
      {TJSAMP_420, rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R, rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R,
       {McuFamily::kRgb, 2}, 1, 1, 0.94, 0.97},
  };
  tjhandle tj = tjInitCompress();
  tjhandle tjd = tjInitDecompress();
  ASSERT_TRUE(tj && tjd);
  for (const Layout& l : layouts) {
    Agreement fwd, inv;
    const McuShape m = l.shape;
    const int w = m.Width(), h = m.Height(), cw = w / (m.layout ? 2 : 1), ch = h / (m.layout == 2 ? 2 : 1);
    for (const auto& mcu : Photos().rgb48) {
      std::vector<uint8_t> y(256), cb(64), cr(64);
      unsigned char* planes[3] = {y.data(), cb.data(), cr.data()};
      int strides[3] = {w, cw, cw};
      ASSERT_EQ(tjEncodeYUVPlanes(tj, mcu.data(), w, 48, h, TJPF_RGB, planes, strides, l.sub, 0), 0)
          << tjGetErrorStr2(tj);
      Blocks b(m);
      ASSERT_EQ(l.fwd(mcu.data(), 48, b.planes), rvtStatusOk);
      for (int r = 0; r < h; ++r) {
        for (int x = 0; x < w; ++x) {
          const int blk = (r / 8) * (w / 8) + x / 8;
          fwd.Add(b.planes[0][blk * 64 + (r % 8) * 8 + x % 8] + 128, y[r * w + x]);
        }
      }
      for (int i = 0; i < 64; ++i) {
        const int r = i / 8, x = i % 8;
        if (r >= ch || x >= cw) continue;
        fwd.Add(b.planes[1][i] + 128, cb[r * cw + x]);
        fwd.Add(b.planes[2][i] + 128, cr[r * cw + x]);
      }
      // Back from TurboJPEG's planes, both ways.
      std::vector<uint8_t> theirs(16 * 48), ours(16 * 48);
      const unsigned char* in[3] = {y.data(), cb.data(), cr.data()};
      ASSERT_EQ(tjDecodeYUVPlanes(tjd, in, strides, l.sub, theirs.data(), w, 48, h, TJPF_RGB, 0), 0)
          << tjGetErrorStr2(tjd);
      Blocks back(m);
      for (int r = 0; r < h; ++r) {
        for (int x = 0; x < w; ++x) {
          back.planes[0][((r / 8) * (w / 8) + x / 8) * 64 + (r % 8) * 8 + x % 8] = int16_t(y[r * w + x] - 128);
        }
      }
      for (int i = 0; i < 64; ++i) {
        const int r = i / 8, x = i % 8;
        back.planes[1][i] = int16_t(cb[std::min(r, ch - 1) * cw + std::min(x, cw - 1)] - 128);
        back.planes[2][i] = int16_t(cr[std::min(r, ch - 1) * cw + std::min(x, cw - 1)] - 128);
      }
      ASSERT_EQ(l.inv(back.In(), ours.data(), 48), rvtStatusOk);
      for (int r = 0; r < h; ++r) {
        for (int x = 0; x < 3 * w; ++x) inv.Add(ours[r * 48 + x], theirs[r * 48 + x]);
      }
    }
    std::printf("TurboJPEG %s: forward max diff %d, %.2f%% equal (%ld samples); inverse max diff %d, "
                "%.2f%% equal (%ld samples)\n",
                m.layout == 0 ? "444" : (m.layout == 1 ? "422" : "420"), fwd.max_diff, 100 * fwd.Share(),
                fwd.total, inv.max_diff, 100 * inv.Share(), inv.total);
    EXPECT_LE(fwd.max_diff, l.fwd_max);
    EXPECT_GE(fwd.Share(), l.fwd_share);
    EXPECT_LE(inv.max_diff, l.inv_max);
    EXPECT_GE(inv.Share(), l.inv_share);
  }
  tjDestroy(tj);
  tjDestroy(tjd);
}

}  // namespace
}  // namespace rvt
