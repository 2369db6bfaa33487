// Fused chroma up-sampling + colour rows: every target against the two
// exports they fuse (the row up-sampler of each chroma plane, then the
// planar colour conversion), on photo rows and random rows of many widths;
// the registered differential checks; reads flush against inaccessible
// pages.
#include <algorithm>
#include <vector>

#include "checkasm.h"
#include "photo.h"

namespace rvt {

namespace {

using test::Rng;

// Widths: every one up to past two AVX-512 steps, the edges of whole steps
// of each target, and long rows.
std::vector<int> Widths() {
  std::vector<int> w;
  for (int i = 1; i <= 140; ++i) w.push_back(i);
  for (int v : {255, 256, 257, 1919, 1920, 1921, 3839, 3840, 4000, 4001}) w.push_back(v);
  return w;
}

// One row's inputs: Y (width), and chroma rows of (width + 1) / 2 samples
// (near and far for 4:2:0; 4:2:2 uses the near ones).
struct RowIn {
  std::vector<uint8_t> y, cbn, cbf, crn, crf;
};

RowIn RandomRow(Rng& rng, int width, int lo = 0, int hi = 255) {
  const int cw = (width + 1) / 2;
  RowIn r{std::vector<uint8_t>(width), std::vector<uint8_t>(cw), std::vector<uint8_t>(cw),
          std::vector<uint8_t>(cw), std::vector<uint8_t>(cw)};
  for (auto* v : {&r.y, &r.cbn, &r.cbf, &r.crn, &r.crf})
    rng.Fill(v->data(), v->size(), uint8_t(lo), uint8_t(hi));
  return r;
}

// The two-step path through the exports.
std::vector<uint8_t> TwoStep(const RowIn& r, int width, bool v2) {
  const int cw = (width + 1) / 2;
  std::vector<uint8_t> cb(2 * cw), cr(2 * cw), out(3 * size_t(width));
  if (v2) {
    EXPECT_EQ(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(r.cbn.data(), r.cbf.data(), cw, cb.data()),
              rvtStatusOk);
    EXPECT_EQ(rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(r.crn.data(), r.crf.data(), cw, cr.data()),
              rvtStatusOk);
  } else {
    EXPECT_EQ(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(r.cbn.data(), cw, cb.data()), rvtStatusOk);
    EXPECT_EQ(rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(r.crn.data(), cw, cr.data()), rvtStatusOk);
  }
  const uint8_t* planes[3] = {r.y.data(), cb.data(), cr.data()};
  // Chroma rows are as long as the luma row or one sample longer: the
  // conversion reads the first width samples of each.
  EXPECT_EQ(rvtiYCbCrToRGB_JPEG_8u_P3C3R(planes, 2 * cw, out.data(), 3 * width, {width, 1}),
            rvtStatusOk);
  return out;
}

// Every target's row against the two-step path; the destination has guard
// bytes on both sides.
void ExpectComposition(const RowIn& r, int width, const char* what) {
  std::vector<uint8_t> want = TwoStep(r, width, true);
  for (const auto& t : test::AllTargets(impl_rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R)) {
    std::vector<uint8_t> got(3 * size_t(width) + 64, 0xA5);
    ASSERT_EQ(t.fn(r.y.data(), r.cbn.data(), r.cbf.data(), r.crn.data(), r.crf.data(),
                   got.data() + 32, width),
              rvtStatusOk);
    ASSERT_TRUE(std::equal(want.begin(), want.end(), got.begin() + 32))
        << "420 " << t.name << " " << what << " width " << width;
    ASSERT_TRUE(std::all_of(got.begin(), got.begin() + 32, [](uint8_t v) { return v == 0xA5; }) &&
                std::all_of(got.end() - 32, got.end(), [](uint8_t v) { return v == 0xA5; }))
        << "420 " << t.name << " wrote outside its row, width " << width;
  }
  want = TwoStep(r, width, false);
  for (const auto& t : test::AllTargets(impl_rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R)) {
    std::vector<uint8_t> got(3 * size_t(width) + 64, 0x5A);
    ASSERT_EQ(t.fn(r.y.data(), r.cbn.data(), r.crn.data(), got.data() + 32, width), rvtStatusOk);
    ASSERT_TRUE(std::equal(want.begin(), want.end(), got.begin() + 32))
        << "422 " << t.name << " " << what << " width " << width;
    ASSERT_TRUE(std::all_of(got.begin(), got.begin() + 32, [](uint8_t v) { return v == 0x5A; }) &&
                std::all_of(got.end() - 32, got.end(), [](uint8_t v) { return v == 0x5A; }))
        << "422 " << t.name << " wrote outside its row, width " << width;
  }
}

// Random rows over the full byte range and near the ends of it, where the
// conversion saturates.
TEST(UpsampleColor, EqualsTheTwoStepsOnRandomRows) {
  Rng rng(1601);
  for (int width : Widths()) {
    ExpectComposition(RandomRow(rng, width), width, "random");
    ExpectComposition(RandomRow(rng, width, 0, 12), width, "dark");
    ExpectComposition(RandomRow(rng, width, 240, 255), width, "bright");
  }
}

// Photo rows: luma from one channel, chroma planes from the other two
// taken at every other column of two neighbouring rows, so that near and
// far rows are as alike as in a decoded frame.
TEST(UpsampleColor, EqualsTheTwoStepsOnPhotoRows) {
  const test::Photo p = test::LoadPhoto("astronaut.png", 3);
  ASSERT_GT(p.width, 0) << "astronaut.png";
  const auto at = [&](int x, int y, int c) {
    return p.px[(size_t(y) * p.width + x) * 3 + c];
  };
  for (int width : {1, 2, 3, 17, 64, 65, 255, p.width - 1, p.width}) {
    const int cw = (width + 1) / 2;
    for (int y = 0; y + 3 < p.height; y += 37) {
      RowIn r{std::vector<uint8_t>(width), std::vector<uint8_t>(cw), std::vector<uint8_t>(cw),
              std::vector<uint8_t>(cw), std::vector<uint8_t>(cw)};
      for (int x = 0; x < width; ++x) r.y[x] = at(x, y, 1);
      for (int i = 0; i < cw; ++i) {
        const int x = std::min(2 * i, p.width - 1);
        r.cbn[i] = at(x, y, 2), r.cbf[i] = at(x, y + 2, 2);
        r.crn[i] = at(x, y, 0), r.crf[i] = at(x, y + 2, 0);
      }
      ExpectComposition(r, width, "photo");
    }
  }
}

// Each input row in turn flush against an inaccessible page on either side:
// a read past the samples the row has faults.
TEST(UpsampleColor, ReadsOnlyTheirRows) {
  Rng rng(1602);
  for (int width : {1, 2, 3, 4, 17, 33, 64, 65, 66, 67, 131, 4000, 4001}) {
    const int cw = (width + 1) / 2;
    const RowIn r = RandomRow(rng, width);
    for (int which = 0; which < 5; ++which) {
      const std::vector<uint8_t>* rows[5] = {&r.y, &r.cbn, &r.cbf, &r.crn, &r.crf};
      const size_t n = which == 0 ? size_t(width) : size_t(cw);
      for (bool high : {false, true}) {
        test::PageFence fence(n);
        ASSERT_TRUE(fence.ok());
        uint8_t* at = high ? fence.BeforeHigh(n) : fence.AfterLow();
        std::copy(rows[which]->begin(), rows[which]->end(), at);
        const uint8_t* p[5];
        for (int k = 0; k < 5; ++k) p[k] = k == which ? at : rows[k]->data();
        std::vector<uint8_t> out(3 * size_t(width));
        for (const auto& t : test::AllTargets(impl_rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R))
          EXPECT_EQ(t.fn(p[0], p[1], p[2], p[3], p[4], out.data(), width), rvtStatusOk) << t.name;
        for (const auto& t : test::AllTargets(impl_rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R))
          EXPECT_EQ(t.fn(p[0], p[1], p[3], out.data(), width), rvtStatusOk) << t.name;
      }
    }
  }
}

// A fused row through the vector targets' steps and their edges: widths
// from 1 to past two steps of every target, and long rows.
auto RowCases(bool v2) {
  return test::Cases{
      test::Trials(400,
                   [v2](Rng& rng, int n) {
                     const std::vector<int> widths = Widths();
                     const int width = widths[size_t(n) % widths.size()];
                     const int cw = (width + 1) / 2;
                     test::Case k;
                     k.label = "width " + std::to_string(width);
                     k.in.push_back(test::ArrayOf<uint8_t>(width, n % 3));
                     k.in[0].Fill(rng, uint8_t(0), uint8_t(255));
                     for (int c = 0; c < (v2 ? 4 : 2); ++c) {
                       k.in.push_back(test::ArrayOf<uint8_t>(cw, (n + c) % 5));
                       // Every third case keeps chroma near the ends of the
                       // range, where the conversion saturates.
                       if (n % 3 == 2) {
                         k.in.back().Fill(rng, uint8_t(c & 1 ? 230 : 0), uint8_t(c & 1 ? 255 : 25));
                       } else {
                         k.in.back().Fill(rng, uint8_t(0), uint8_t(255));
                       }
                     }
                     k.out.push_back(test::ArrayOf<uint8_t>(3 * width, n % 7));
                     k.roi = {width, 1};
                     return k;
                   }),
      [v2](auto fn, test::Case& k) -> RvtResult {
        if constexpr (std::is_invocable_v<decltype(fn), const uint8_t*, const uint8_t*,
                                          const uint8_t*, const uint8_t*, const uint8_t*,
                                          uint8_t*, int32_t>) {
          return fn(k.in[0].as<uint8_t>(), k.in[1].as<uint8_t>(), k.in[2].as<uint8_t>(),
                    k.in[3].as<uint8_t>(), k.in[4].as<uint8_t>(), k.out[0].as<uint8_t>(),
                    k.roi.width);
        } else {
          return fn(k.in[0].as<uint8_t>(), k.in[1].as<uint8_t>(), k.in[2].as<uint8_t>(),
                    k.out[0].as<uint8_t>(), k.roi.width);
        }
      }};
}
RVT_CHECKASM(rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R, RowCases(true));
RVT_CHECKASM(rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R, RowCases(false));

}  // namespace
}  // namespace rvt
