// BC4 and BC5 encoding: the checks, edge tiles padded by replication, exact
// blocks for what the formats hold exactly, and the photos' channels
// against libsquish in one run (PSNR through our decoder and Mpix/s).
#include <squish.h>

#include <chrono>
#include <cmath>

#include "checkasm.h"
#include "photo.h"
#include "texture_encode_cases.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;

double Psnr(const Bytes& a, const Bytes& b) {
  double se = 0;
  for (size_t i = 0; i < a.size(); ++i) se += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(a.size()) / se);
}

TEST(TextureEncode, ChecksInOrderAndNothingWritten) {
  uint8_t src[64] = {}, dst[64];
  std::memset(dst, 0xEE, sizeof dst);
  EXPECT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(nullptr, 0, nullptr, {0, 0}, 9), rvtStatusNullPtr);
  EXPECT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(src, 0, nullptr, {0, 0}, 9), rvtStatusStep);
  EXPECT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(src, 4, nullptr, {0, 0}, 9), rvtStatusNullPtr);
  EXPECT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(src, 4, dst, {0, 4}, 9), rvtStatusSize);
  EXPECT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(src, 4, dst, {4, 4}, 3), rvtStatusBadArg);
  EXPECT_EQ(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R(src, 8, dst, {4, 4}, -1), rvtStatusBadArg);
  for (uint8_t b : dst) ASSERT_EQ(b, 0xEE);
  EXPECT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(src + 12, -4, dst, {4, 4}, 0), rvtStatusOk);
}

// What the format holds exactly comes back exactly at every quality: one
// value, two, and 0 and 255 beside two others (the four-interpolant form).
TEST(TextureEncode, ExactBlocksComeBackExactly) {
  const Bytes cases[] = {
      Bytes(16, 77),
      {10, 200, 10, 200, 10, 200, 10, 200, 10, 200, 10, 200, 10, 200, 10, 200},
      {0, 255, 100, 150, 0, 255, 100, 150, 0, 255, 100, 150, 0, 255, 100, 150}};
  for (const Bytes& v : cases) {
    for (int q = 0; q <= 2; ++q) {
      uint8_t blk[8];
      Bytes out(16);
      ASSERT_EQ(rvtiTextureEncodeBlock_BC4_8u_C1R(v.data(), 4, blk, {4, 4}, q), rvtStatusOk);
      ASSERT_EQ(rvtiTextureDecodeBlock_BC4_8u_C1R(blk, out.data(), 4, {4, 4}), rvtStatusOk);
      EXPECT_EQ(out, v) << "quality " << q;
    }
  }
}

// A 5x3 region: its tiles' missing pixels repeat the last column and row,
// so encoding the padded 8x4 image gives the same blocks.
TEST(TextureEncode, EdgeTilesReplicateTheLastRowAndColumn) {
  test::Rng rng(3);
  Bytes rg(5 * 3 * 2), padded(8 * 4 * 2);
  rng.Fill(rg.data(), rg.size(), uint8_t(0), uint8_t(255));
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 8; ++x) {
      for (int c = 0; c < 2; ++c) padded[(y * 8 + x) * 2 + c] = rg[((y < 3 ? y : 2) * 5 + (x < 5 ? x : 4)) * 2 + c];
    }
  }
  for (int q = 0; q <= 2; ++q) {
    uint8_t a[32], b[32];
    ASSERT_EQ(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R(rg.data(), 10, a, {5, 3}, q), rvtStatusOk);
    ASSERT_EQ(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R(padded.data(), 16, b, {8, 4}, q), rvtStatusOk);
    EXPECT_EQ(Bytes(a, a + 32), Bytes(b, b + 32)) << q;
  }
}

// The photos' red and green channels as BC5: PSNR of ours per quality and
// of libsquish, both decoded here, and Mpix/s, in one run.  Quality 0
// already reaches libsquish's PSNR.
TEST(TextureEncode, Bc4Bc5AgainstLibsquish) {
  std::printf("[ encode   ] %-12s %-8s %9s %9s\n", "photo", "coder", "PSNR dB", "Mpix/s");
  for (const char* name : {"coffee.png", "chelsea.png", "astronaut.png"}) {
    const test::Photo p = test::LoadPhoto(name, 3);
    ASSERT_FALSE(p.px.empty()) << name;
    const int w = p.width / 4 * 4, h = p.height / 4 * 4;
    const size_t n = size_t(w) * h;
    Bytes rg(n * 2), rgba(n * 4, 255);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const uint8_t* s = &p.px[(size_t(y) * p.width + x) * 3];
        const size_t i = size_t(y) * w + x;
        rg[2 * i] = s[0], rg[2 * i + 1] = s[1];
        rgba[4 * i] = s[0], rgba[4 * i + 1] = s[1];
      }
    }
    Bytes blocks(n), out(n * 2);
    auto timed = [&](auto fn) {
      const auto t0 = std::chrono::steady_clock::now();
      fn();
      return double(n) / std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
    };
    double ours[3];
    for (int q = 0; q <= 2; ++q) {
      const double mps = timed([&] {
        ASSERT_EQ(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R(rg.data(), 2 * w, blocks.data(), {w, h}, q), rvtStatusOk);
      });
      ASSERT_EQ(rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R(blocks.data(), out.data(), 2 * w, {w, h}), rvtStatusOk);
      const double db = Psnr(out, rg);
      ours[q] = db;
      std::printf("[ encode   ] %-12s BC5 q%d   %9.2f %9.2f\n", name, q, db, mps);
    }
    const double mps = timed([&] { squish::CompressImage(rgba.data(), w, h, blocks.data(), squish::kBc5); });
    ASSERT_EQ(rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R(blocks.data(), out.data(), 2 * w, {w, h}), rvtStatusOk);
    const double theirs = Psnr(out, rg);
    std::printf("[ encode   ] %-12s libsquish %9.2f %9.2f\n", name, theirs, mps);
    // Measured: quality 0 0.09-0.23 dB above, every level above the last.
    EXPECT_GE(ours[0], theirs) << name;
    EXPECT_GT(ours[1], ours[0]) << name;
    EXPECT_GT(ours[2], ours[1]) << name;
  }
}

RVT_CHECKASM(rvtiTextureEncodeBlock_BC4_8u_C1R, test::EncodeCases(1, 8));
RVT_CHECKASM(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R, test::EncodeCases(2, 16));

}  // namespace
}  // namespace rvt
