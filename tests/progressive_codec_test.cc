// libjpeg-turbo interop of progressive coding and optimized tables, both
// ways and coefficient-exact, through the coefficient layer of the example
// codec: progressive files from jpegtran and cjpeg (default script, restart
// intervals, a script with every scan kind including DC and AC refinements
// at Al > 0 and long end-of-band runs) decode to libjpeg's coefficients;
// files written here read back in libjpeg as exactly the coefficients
// coded, with tables and scan data byte-identical to what jpegtran
// -optimize / -progressive write for the same coefficients; and the codec's
// -progressive / -optimize output matches libjpeg-turbo's re-coding of the
// same coefficients in size.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"
#include "jpeg_oracle.h"
#include "progressive.h"

namespace rvt {
namespace {

using rvtjpeg::coef::Frame;
using rvtjpeg::coef::Scan;
using rvtjpeg::coef::WriteOptions;

std::string TempPath(const std::string& name) {
  const char* dir = std::getenv("TMPDIR");
  return std::string(dir ? dir : "/tmp") + "/rvt_prog_" + std::to_string(getpid()) + "_" + name;
}

bool Shell(const std::string& cmd) { return std::system((cmd + " 2>/dev/null").c_str()) == 0; }

void WriteBytes(const std::string& path, const std::vector<uint8_t>& b) {
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(f);
  std::fwrite(b.data(), 1, b.size(), f);
  std::fclose(f);
}

// Our reader against libjpeg's coefficients, every component and block of
// the stored grid.
void ExpectSameCoefficients(const std::vector<uint8_t>& file, const std::string& what) {
  const test::Coefs lib = test::ReadCoefficients(file);
  ASSERT_TRUE(lib.error.empty()) << what << ": " << lib.error;
  Frame f;
  std::string err;
  ASSERT_TRUE(rvtjpeg::coef::ReadFile(file.data(), file.size(), &f, &err)) << what << ": " << err;
  ASSERT_EQ(f.comps.size(), lib.planes.size()) << what;
  for (size_t c = 0; c < f.comps.size(); ++c) {
    const auto& a = f.comps[c];
    const auto& b = lib.planes[c];
    ASSERT_EQ(a.bw, b.wb) << what;
    ASSERT_EQ(a.bh, b.hb) << what;
    for (size_t i = 0; i < a.values.size(); ++i) {
      ASSERT_EQ(a.values[i], b.blocks[i]) << what << " component " << c << " block " << i / 64
                                          << " coefficient " << i % 64;
    }
  }
}

const char* kPhotos[] = {"rocket.jpg", "retina.jpg", "hubble_deep_field.jpg"};

// A script with every scan kind: interleaved DC first and refinement with
// Al up to 2, spectral selection, AC refinements at Al 2, 1, 0.
const char* kScript =
    "0,1,2: 0-0, 0, 2;\n"
    "0: 1-2, 0, 3;\n"
    "0: 3-63, 0, 3;\n"
    "1: 1-63, 0, 2;\n"
    "2: 1-63, 0, 2;\n"
    "0,1,2: 0-0, 2, 1;\n"
    "0: 1-63, 3, 2;\n"
    "0: 1-63, 2, 1;\n"
    "1: 1-63, 2, 1;\n"
    "2: 1-63, 2, 1;\n"
    "0,1,2: 0-0, 1, 0;\n"
    "0: 1-63, 1, 0;\n"
    "1: 1-63, 1, 0;\n"
    "2: 1-63, 1, 0;\n";

std::vector<Scan> ParsedScript() {
  return {{{0, 1, 2}, 0, 0, 0, 2}, {{0}, 1, 2, 0, 3},    {{0}, 3, 63, 0, 3},
          {{1}, 1, 63, 0, 2},      {{2}, 1, 63, 0, 2},   {{0, 1, 2}, 0, 0, 2, 1},
          {{0}, 1, 63, 3, 2},      {{0}, 1, 63, 2, 1},   {{1}, 1, 63, 2, 1},
          {{2}, 1, 63, 2, 1},      {{0, 1, 2}, 0, 0, 1, 0}, {{0}, 1, 63, 1, 0},
          {{1}, 1, 63, 1, 0},      {{2}, 1, 63, 1, 0}};
}

TEST(ProgressiveInterop, LibjpegFilesDecodeToItsCoefficients) {
  const std::string script = TempPath("scans.txt");
  WriteBytes(script, std::vector<uint8_t>(kScript, kScript + std::strlen(kScript)));
  const std::string out = TempPath("out.jpg"), ppm = TempPath("in.ppm");
  for (const char* photo : kPhotos) {
    const std::string in = test::TestFile(photo);
    const std::string variants[] = {
        "jpegtran -progressive",        "jpegtran -progressive -restart 1",
        "jpegtran -progressive -restart 7B", "jpegtran -scans " + script,
        "jpegtran -scans " + script + " -restart 2", "jpegtran -progressive -grayscale"};
    for (const std::string& v : variants) {
      ASSERT_TRUE(Shell(v + " -outfile " + out + " " + in)) << v;
      ExpectSameCoefficients(test::ReadFile(out), std::string(photo) + ": " + v);
    }
    ASSERT_TRUE(Shell("djpeg -outfile " + ppm + " " + in));
    for (const char* opts : {"-progressive -quality 95 -sample 1x1",
                             "-progressive -quality 40 -sample 2x1", "-progressive -quality 75",
                             "-progressive -quality 90 -grayscale -restart 3"}) {
      ASSERT_TRUE(Shell(std::string("cjpeg ") + opts + " -outfile " + out + " " + ppm)) << opts;
      ExpectSameCoefficients(test::ReadFile(out), std::string(photo) + ": cjpeg " + opts);
    }
  }
  std::remove(script.c_str());
  std::remove(out.c_str());
  std::remove(ppm.c_str());
}

// Everything after SOF (DHT, DRI, SOS and scan data, to EOI).
std::vector<uint8_t> AfterFrameHeader(const std::vector<uint8_t>& b) {
  size_t i = 2;
  while (i + 4 <= b.size()) {
    const int m = b[i + 1];
    const size_t len = size_t(b[i + 2]) << 8 | b[i + 3];
    i += 2 + len;
    if (m == 0xC0 || m == 0xC1 || m == 0xC2) break;
  }
  return std::vector<uint8_t>(b.begin() + long(std::min(i, b.size())), b.end());
}

TEST(ProgressiveInterop, OurFilesAreLibjpegsCoefficientsAndTables) {
  const std::string script = TempPath("scans2.txt");
  WriteBytes(script, std::vector<uint8_t>(kScript, kScript + std::strlen(kScript)));
  const std::string ours = TempPath("ours.jpg"), theirs = TempPath("theirs.jpg");
  const std::string ppm = TempPath("in2.ppm"), base = TempPath("base.jpg");
  for (const char* photo : kPhotos) {
    ASSERT_TRUE(Shell("djpeg -outfile " + ppm + " " + test::TestFile(photo)));
    for (const char* opts : {"-quality 95 -sample 1x1", "-quality 50 -sample 2x1",
                             "-quality 80", "-quality 85 -grayscale"}) {
      ASSERT_TRUE(Shell(std::string("cjpeg -baseline ") + opts + " -outfile " + base + " " + ppm));
      const std::vector<uint8_t> src = test::ReadFile(base);
      Frame f;
      std::string err;
      ASSERT_TRUE(rvtjpeg::coef::ReadFile(src.data(), src.size(), &f, &err)) << err;
      struct Case {
        WriteOptions o;
        std::string tool;
      };
      std::vector<Case> cases;
      cases.push_back({{false, true, 0, {}}, "jpegtran -optimize"});
      cases.push_back({{false, true, 5, {}}, "jpegtran -optimize -restart 5B"});
      cases.push_back({{true, true, 0, {}}, "jpegtran -progressive"});
      cases.push_back({{true, true, 2, {}}, "jpegtran -progressive -restart 2B"});
      if (f.comps.size() == 3) {
        cases.push_back({{true, true, 0, ParsedScript()}, "jpegtran -scans " + script});
        cases.push_back({{true, true, 3, ParsedScript()}, "jpegtran -restart 3B -scans " + script});
      }
      for (const Case& c : cases) {
        const std::string what = std::string(photo) + " " + opts + ": " + c.tool;
        std::vector<uint8_t> mine;
        ASSERT_TRUE(rvtjpeg::coef::WriteFile(f, c.o, &mine, &err)) << what << ": " << err;
        // libjpeg reads back exactly the coefficients we coded.
        const test::Coefs back = test::ReadCoefficients(mine);
        ASSERT_TRUE(back.error.empty()) << what << ": " << back.error;
        ASSERT_EQ(back.planes.size(), f.comps.size());
        for (size_t k = 0; k < f.comps.size(); ++k) {
          ASSERT_EQ(back.planes[k].blocks, f.comps[k].values) << what << " component " << k;
        }
        // The same coefficients through jpegtran: the same tables and
        // scan data, byte for byte, and so the same size.
        ASSERT_TRUE(Shell(c.tool + " -outfile " + theirs + " " + base)) << what;
        const std::vector<uint8_t> lib = test::ReadFile(theirs);
        ASSERT_GT(AfterFrameHeader(lib).size(), 1000u) << what;
        EXPECT_TRUE(AfterFrameHeader(mine) == AfterFrameHeader(lib)) << what;
        EXPECT_EQ(mine.size(), lib.size()) << what;
      }
    }
  }
  for (const std::string& p : {script, ours, theirs, ppm, base}) std::remove(p.c_str());
}


// The codec: -progressive and -optimize output decodes to exactly the
// pixels of the baseline output (the same coefficients), and libjpeg-turbo
// re-coding the same coefficients (jpegtran) gives files of the same size.
TEST(ProgressiveCodec, ProgressiveAndOptimizedOutput) {
  rvtjpeg::Image image;
  std::string err;
  ASSERT_TRUE(rvtjpeg::ReadImage(std::string(RVT_TESTDATA_DIR) + "/chelsea.png", &image, &err))
      << err;
  const std::string base = TempPath("codec_base.jpg"), theirs = TempPath("codec_theirs.jpg");
  for (auto sampling : {rvtjpeg::Sampling::k420, rvtjpeg::Sampling::k422, rvtjpeg::Sampling::k444,
                        rvtjpeg::Sampling::kGrey}) {
    for (int restart : {0, 5}) {
      rvtjpeg::EncodeOptions o;
      o.quality = 80;
      o.sampling = sampling;
      o.restart_interval = restart;
      std::vector<uint8_t> baseline;
      ASSERT_TRUE(rvtjpeg::EncodeJpeg(image, o, &baseline, &err)) << err;
      rvtjpeg::Image want;
      ASSERT_EQ(rvtjpeg::DecodeJpeg(baseline.data(), baseline.size(), &want, &err),
                rvtjpeg::DecodeStatus::kOk)
          << err;
      WriteBytes(base, baseline);
      for (int progressive = 0; progressive < 2; ++progressive) {
        const std::string what = std::string(rvtjpeg::SamplingName(sampling)) + " restart " +
                                 std::to_string(restart) + (progressive ? " progressive" : " optimized");
        rvtjpeg::EncodeOptions p = o;
        p.progressive = progressive;
        p.optimize = !progressive;
        std::vector<uint8_t> coded;
        ASSERT_TRUE(rvtjpeg::EncodeJpeg(image, p, &coded, &err)) << what << ": " << err;
        rvtjpeg::Image got;
        ASSERT_EQ(rvtjpeg::DecodeJpeg(coded.data(), coded.size(), &got, &err),
                  rvtjpeg::DecodeStatus::kOk)
            << what << ": " << err;
        EXPECT_TRUE(got.pixels == want.pixels) << what;
        const std::string tool = std::string("jpegtran ") + (progressive ? "-progressive" : "-optimize") +
                                 (restart ? " -restart " + std::to_string(restart) + "B" : "");
        ASSERT_TRUE(Shell(tool + " -outfile " + theirs + " " + base)) << what;
        EXPECT_EQ(coded.size(), test::ReadFile(theirs).size()) << what;
        if (restart == 0) EXPECT_LT(coded.size(), baseline.size()) << what;
      }
    }
  }
  std::remove(base.c_str());
  std::remove(theirs.c_str());
}

}  // namespace
}  // namespace rvt
