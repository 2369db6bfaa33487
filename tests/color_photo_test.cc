// A real photo to YCbCr and back through each inverse arithmetic, on the
// exported entries (the implementation chosen at load), with the PSNR of
// every round trip reported and held to a floor.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "rvtjp.h"
#ifdef RVT_HAVE_PNG
#include <png.h>
#endif

namespace {

struct Rgb {
  int w = 0, h = 0;
  std::vector<uint8_t> px;  // C3, tightly packed
};

Rgb LoadPhoto() {
  Rgb img;
#ifdef RVT_HAVE_PNG
  png_image pi{};
  pi.version = PNG_IMAGE_VERSION;
  const std::string path = std::string(RVT_TESTDATA_DIR) + "/coffee.png";
  if (!png_image_begin_read_from_file(&pi, path.c_str())) return img;
  pi.format = PNG_FORMAT_RGB;
  img.px.resize(PNG_IMAGE_SIZE(pi));
  if (!png_image_finish_read(&pi, nullptr, img.px.data(), 0, nullptr)) return {};
  img.w = int(pi.width);
  img.h = int(pi.height);
#endif
  return img;
}

double Psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double se = 0;
  for (size_t i = 0; i < a.size(); ++i) se += double(a[i] - b[i]) * double(a[i] - b[i]);
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(a.size()) / se);
}

struct Planes {
  std::vector<uint8_t> y, cb, cr;
  uint8_t* p[3];
  const uint8_t* c[3];
  Planes(size_t luma, size_t chroma) : y(luma), cb(chroma), cr(chroma) {
    p[0] = y.data(), p[1] = cb.data(), p[2] = cr.data();
    c[0] = p[0], c[1] = p[1], c[2] = p[2];
  }
};

class Photo : public ::testing::Test {
 protected:
  void SetUp() override {
    img_ = LoadPhoto();
    if (img_.w == 0) GTEST_SKIP() << "coffee.png not readable (built without libpng?)";
  }
  void Report(const char* what, double psnr, double floor) {
    std::printf("  PSNR %-46s %6.2f dB\n", what, psnr);
    RecordProperty(what, std::to_string(psnr));
    EXPECT_GT(psnr, floor) << what;
  }
  Rgb img_;
};

TEST_F(Photo, RoundTripsThroughEveryInverseArithmetic) {
  const int w = img_.w, h = img_.h, s3 = 3 * w, s4 = 4 * w;
  const ImageSize roi{w, h};
  const size_t n = size_t(w) * h;
  std::vector<uint8_t> back(3 * n), back4(4 * n);
  auto drop_alpha = [&] {
    for (size_t i = 0; i < n; ++i)
      for (int c = 0; c < 3; ++c) back[3 * i + c] = back4[4 * i + c];
  };

  // Full resolution: Fwd15Groups8 forward, then InvAdditiveSat (C3),
  // InvSubtractive (P3); FwdHighHalf forward, then InvHighHalf16 (C4).
  Planes ycc(n, n);
  ASSERT_EQ(rvtiRGBToYCbCr_JPEG_8u_C3P3R(img_.px.data(), s3, ycc.p, w, roi), rvtStatusOk);
  ASSERT_EQ(rvtiYCbCrToRGB_JPEG_8u_P3C3R(ycc.c, w, back.data(), s3, roi), rvtStatusOk);
  Report("Fwd15Groups8 -> InvAdditiveSat (P3C3R)", Psnr(img_.px, back), 50);

  Planes rgb(n, n);
  ASSERT_EQ(rvtiYCbCrToRGB_JPEG_8u_P3R(ycc.c, w, rgb.p, w, roi), rvtStatusOk);
  for (size_t i = 0; i < n; ++i)
    back[3 * i] = rgb.y[i], back[3 * i + 1] = rgb.cb[i], back[3 * i + 2] = rgb.cr[i];
  Report("Fwd15Groups8 -> InvSubtractive (P3R)", Psnr(img_.px, back), 50);

  std::vector<uint8_t> rgba(4 * n);
  for (size_t i = 0; i < n; ++i)
    for (int c = 0; c < 3; ++c) rgba[4 * i + c] = img_.px[3 * i + c];
  ASSERT_EQ(rvtiRGBToYCbCr_JPEG_8u_C4P3R(rgba.data(), s4, ycc.p, w, roi), rvtStatusOk);
  ASSERT_EQ(rvtiYCbCrToRGB_JPEG_8u_P3C4R(ycc.c, w, back4.data(), s4, roi, 255), rvtStatusOk);
  drop_alpha();
  Report("FwdHighHalf -> InvHighHalf16 (P3C4R)", Psnr(img_.px, back), 50);

  // 16-bit words: 5-6-5 keeps less, so the floor is lower.
  std::vector<uint16_t> words(n);
  ASSERT_EQ(rvtiRGBToYCbCr_JPEG_8u_C3P3R(img_.px.data(), s3, ycc.p, w, roi), rvtStatusOk);
  ASSERT_EQ(rvtiYCbCrToRGB565_JPEG_8u16u_P3C3R(ycc.c, w, words.data(), 2 * w, roi), rvtStatusOk);
  for (size_t i = 0; i < n; ++i) {
    back[3 * i] = uint8_t((words[i] & 31) << 3 | 4);
    back[3 * i + 1] = uint8_t(((words[i] >> 5) & 63) << 2 | 2);
    back[3 * i + 2] = uint8_t((words[i] >> 11) << 3 | 4);
  }
  Report("Fwd15Groups8 -> InvSubtractive (565, mid-bin)", Psnr(img_.px, back), 40);

  // Subsampled: chroma detail is lost, so the floors are those of 4:2:x.
  const int cw = (w + 1) / 2, ch = (h + 1) / 2;
  Planes s422(n, size_t(w) * h), s411(n, size_t(w) * ch);
  const RvtResult odd_w = (w & 1) ? rvtStatusOddSize : rvtStatusOk;
  const RvtResult odd_wh = ((w | h) & 1) ? rvtStatusOddSize : rvtStatusOk;
  ASSERT_EQ(rvtiRGBToYCbCr422_JPEG_8u_C3P3R(img_.px.data(), s3, s422.p, w, roi), odd_w);
  ASSERT_EQ(rvtiYCbCr422ToRGB_JPEG_8u_P3C3R(s422.c, w, back.data(), s3, roi), odd_w);
  Report("FwdHighHalf 422 -> InvHighHalf16 422 (P3C3R)", Psnr(img_.px, back), 40);

  ASSERT_EQ(rvtiRGBToYCbCr411_JPEG_8u_C3P3R(img_.px.data(), s3, s411.p, w, roi), odd_wh);
  ASSERT_EQ(rvtiYCbCr411ToRGB_JPEG_8u_P3C3R(s411.c, w, back.data(), s3, roi), odd_wh);
  Report("FwdHighHalf 411 -> InvHighHalf16 411 (P3C3R)", Psnr(img_.px, back), 37);

  // Packed 4:2:2 from the 422 planes, then Inv422Packed.
  std::vector<uint8_t> c2(size_t(4) * cw * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < cw; ++x) {
      uint8_t* q = &c2[size_t(4) * (y * cw + x)];
      q[0] = s422.y[size_t(y) * w + 2 * x];
      q[1] = s422.cb[size_t(y) * w + x];
      q[2] = 2 * x + 1 < w ? s422.y[size_t(y) * w + 2 * x + 1] : 0;
      q[3] = s422.cr[size_t(y) * w + x];
    }
  ASSERT_EQ(rvtiYCbCr422ToRGB_JPEG_8u_C2C3R(c2.data(), 4 * cw, back.data(), s3, roi), rvtStatusOk);
  Report("FwdHighHalf 422 -> Inv422Packed (C2C3R)", Psnr(img_.px, back), 40);
}

}  // namespace
