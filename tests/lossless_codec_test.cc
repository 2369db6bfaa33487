// The example codec's lossless JPEG: round trips of every predictor,
// precision, point transform and restart setting; refused and damaged
// files; and interop with two independent implementations, ffmpeg (its
// SOF3 decoder, and its ljpeg encoder for 8-bit files) and dcmtk (its
// lossless codec at 12 and 16 bits, both directions).  A missing tool
// fails the test.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "checkasm.h"
#include "lossless.h"

namespace rvt {
namespace {

using rvtjpeg::Image16;
using rvtjpeg::LosslessOptions;
using rvtjpeg::LosslessStatus;
using Bytes = std::vector<uint8_t>;

// A smooth image with noise over the precision's whole range (the first
// column and row climb from 0 to the top), or (`wild`) independent samples,
// whose differences reach every category, 16 included.
Image16 TestImage(test::Rng& rng, int w, int h, int nc, int p, bool wild) {
  Image16 im;
  im.width = w, im.height = h, im.channels = nc, im.precision = p;
  const int top = (1 << p) - 1;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < nc; ++c) {
        const long base = (long(top) * (x + y + 7 * c)) / (w + h + 14);
        const long v = wild ? long(rng.Uniform(0, top))
                            : std::clamp<long>(base + rng.Uniform(-top / 64 - 1, top / 64 + 1), 0, top);
        im.samples.push_back(uint16_t(v));
      }
    }
  }
  if (!wild) im.samples[0] = uint16_t(top);  // the extremes side by side
  return im;
}

// Samples after the point transform: the low Pt bits cleared.
std::vector<uint16_t> Shifted(const Image16& im, int pt) {
  std::vector<uint16_t> s = im.samples;
  for (auto& v : s) v = uint16_t(v >> pt << pt);
  return s;
}

Bytes Encode(const Image16& im, int pred, int pt, int restart_rows) {
  LosslessOptions o;
  o.predictor = pred, o.point_transform = pt, o.restart_rows = restart_rows;
  Bytes out;
  std::string err;
  EXPECT_TRUE(rvtjpeg::EncodeLossless(im, o, &out, &err)) << err;
  return out;
}

TEST(LosslessCodec, RoundTripsAreExact) {
  test::Rng rng(3);
  struct Size { int w, h; };
  for (int p : {8, 12, 16}) {
    for (int nc : {1, 3}) {
      for (int pred = 1; pred <= 7; ++pred) {
        for (int pt : {0, 3}) {
          const Size sz = Size{int(rng.Uniform(1, 70)) | 1, int(rng.Uniform(1, 30)) | 1};
          const bool wild = pred % 3 == 0;
          const Image16 im = TestImage(rng, sz.w, sz.h, nc, p, wild);
          const int restart = pred % 2 ? 0 : 1 + int(rng.Uniform(0, 4));
          const Bytes file = Encode(im, pred, pt, restart);
          ASSERT_TRUE(rvtjpeg::IsLosslessJpeg(file.data(), file.size()));
          Image16 back;
          std::string msg;
          ASSERT_EQ(rvtjpeg::DecodeLossless(file.data(), file.size(), &back, &msg),
                    LosslessStatus::kOk)
              << msg;
          ASSERT_EQ(back.precision, p);
          ASSERT_EQ(back.samples, Shifted(im, pt))
              << "P " << p << " components " << nc << " predictor " << pred << " Pt " << pt
              << " restart rows " << restart << " " << sz.w << "x" << sz.h;
        }
      }
    }
  }
}

TEST(LosslessCodec, RefusesWhatItDoesNotHandle) {
  test::Rng rng(5);
  const Image16 im = TestImage(rng, 9, 7, 1, 12, false);
  Bytes file = Encode(im, 4, 0, 0);
  Image16 out;
  std::string msg;
  // Every cut of the file: a clear status, never a crash.
  for (size_t n = 0; n + 2 < file.size(); ++n) {
    const auto s = rvtjpeg::DecodeLossless(file.data(), n, &out, &msg);
    EXPECT_EQ(s, LosslessStatus::kCorrupt) << "cut at " << n;
  }
  // Sixteen-bit samples past a smaller precision are an encoding error.
  Image16 big = im;
  big.samples[3] = 4096;
  LosslessOptions o;
  Bytes tmp;
  EXPECT_FALSE(rvtjpeg::EncodeLossless(big, o, &tmp, &msg));
  // A restart interval of part of a row.
  Bytes dri = Encode(im, 1, 0, 1);
  for (size_t i = 0; i + 5 < dri.size(); ++i) {
    if (dri[i] == 0xFF && dri[i + 1] == 0xDD) dri[i + 5] = 4;  // 4 of 9 samples
  }
  EXPECT_EQ(rvtjpeg::DecodeLossless(dri.data(), dri.size(), &out, &msg),
            LosslessStatus::kUnsupported);
  // Another frame type.
  for (size_t i = 0; i + 1 < file.size(); ++i) {
    if (file[i] == 0xFF && file[i + 1] == 0xC3) file[i + 1] = 0xC1;
  }
  EXPECT_FALSE(rvtjpeg::IsLosslessJpeg(file.data(), file.size()));
  EXPECT_EQ(rvtjpeg::DecodeLossless(file.data(), file.size(), &out, &msg),
            LosslessStatus::kNotLossless);
}

// ------------------------------------------------------------ oracles

struct TempDir {
  std::string path;
  TempDir() {
    char name[] = "/tmp/rvtjp_lossless_XXXXXX";
    path = mkdtemp(name) ? name : "/tmp";
  }
  ~TempDir() { (void)std::system(("rm -rf " + path).c_str()); }
  std::string operator/(const std::string& f) const { return path + "/" + f; }
};

bool Have(const char* tool) {
  return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}
int Shell(const std::string& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

Bytes ReadAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), {});
}
void WriteAll(const std::string& path, const Bytes& b) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()),
                                              std::streamsize(b.size()));
}

// Little-endian 16-bit samples, or bytes at P = 8.
Bytes Raw(const std::vector<uint16_t>& s, int p, int shift = 0) {
  Bytes b;
  for (uint16_t v : s) {
    if (p <= 8) {
      b.push_back(uint8_t(v));
    } else {
      const uint16_t u = uint16_t(v << shift);
      b.push_back(uint8_t(u)), b.push_back(uint8_t(u >> 8));
    }
  }
  return b;
}

// Smooth images over the whole range, whose differences never reach 32768:
// ffmpeg 5.1 reads 16 extra bits after category 16, which the standard
// codes without any.
TEST(LosslessCodec, FfmpegDecodesOurFiles) {
  ASSERT_TRUE(Have("ffmpeg")) << "ffmpeg is needed (scripts/deps.sh)";
  TempDir dir;
  test::Rng rng(11);
  for (int p : {8, 12, 16}) {
    for (int nc : {1, 3}) {
      for (int pred = 1; pred <= 7; ++pred) {
        const int pt = pred == 5 ? 2 : 0;
        const Image16 im = TestImage(rng, 45, 21, nc, p, false);
        WriteAll(dir / "our.jpg", Encode(im, pred, pt, pred == 6 ? 4 : 0));
        const char* fmt = nc == 1 ? (p == 8 ? "gray" : "gray16le") : (p == 8 ? "rgb24" : "rgb48le");
        ASSERT_EQ(Shell("ffmpeg -v error -y -i " + (dir / "our.jpg") + " -f rawvideo -pix_fmt " + fmt +
                      " " + (dir / "their.raw")),
                  0);
        // ffmpeg scales 9- to 15-bit grey samples to 16 bits (not colour).
        EXPECT_EQ(ReadAll(dir / "their.raw"),
                  Raw(Shifted(im, pt), p, p > 8 && nc == 1 ? 16 - p : 0))
            << "P " << p << " components " << nc << " predictor " << pred << " Pt " << pt;
      }
    }
  }
}

TEST(LosslessCodec, WeDecodeFfmpegFiles) {
  ASSERT_TRUE(Have("ffmpeg")) << "ffmpeg is needed (scripts/deps.sh)";
  TempDir dir;
  test::Rng rng(13);
  const int w = 53, h = 27;
  Bytes planes(size_t(3 * w * h));
  for (size_t i = 0; i < planes.size(); ++i) {
    planes[i] = uint8_t((i % size_t(w)) * 3 + (i / size_t(w)) * 2 + size_t(rng.Uniform(0, 20)));
  }
  WriteAll(dir / "in.yuv", planes);
  for (const char* pred : {"left", "plane", "median"}) {
    ASSERT_EQ(Shell("ffmpeg -v error -y -f rawvideo -pix_fmt yuv444p -s " + std::to_string(w) + "x" +
                  std::to_string(h) + " -i " + (dir / "in.yuv") +
                  " -strict -1 -c:v ljpeg -pred " + pred + " " + (dir / "their.jpg")),
              0);
    const Bytes file = ReadAll(dir / "their.jpg");
    Image16 out;
    std::string msg;
    ASSERT_EQ(rvtjpeg::DecodeLossless(file.data(), file.size(), &out, &msg), LosslessStatus::kOk)
        << pred << ": " << msg;
    ASSERT_EQ(Shell("ffmpeg -v error -y -i " + (dir / "their.jpg") +
                  " -f rawvideo -pix_fmt yuv444p " + (dir / "their.yuv")),
              0);
    const Bytes theirs = ReadAll(dir / "their.yuv");
    ASSERT_EQ(theirs, planes) << pred;  // their own round trip
    Bytes ours;
    for (int c = 0; c < 3; ++c) {
      for (int i = 0; i < w * h; ++i) ours.push_back(uint8_t(out.samples[size_t(3 * i + c)]));
    }
    EXPECT_EQ(ours, theirs) << pred;
  }
}

// A DICOM header for a grey image (dump2dcm's text form); the pixel data
// follows as a raw file or as one encapsulated lossless JPEG.
std::string DicomHeader(int w, int h, int p, bool encapsulated) {
  std::string s;
  if (encapsulated) s += "(0002,0010) UI 1.2.840.10008.1.2.4.57\n";
  s += "(0008,0016) UI 1.2.840.10008.5.1.4.1.1.7\n(0008,0018) UI 1.2.3.4.5.6.7.8.1\n"
       "(0010,0010) PN Test\n(0020,000d) UI 1.2.3.4.5.6.7.8.2\n(0020,000e) UI 1.2.3.4.5.6.7.8.3\n"
       "(0028,0002) US 1\n(0028,0004) CS MONOCHROME2\n";
  s += "(0028,0010) US " + std::to_string(h) + "\n(0028,0011) US " + std::to_string(w) + "\n";
  s += "(0028,0100) US 16\n(0028,0101) US " + std::to_string(p) + "\n(0028,0102) US " +
       std::to_string(p - 1) + "\n(0028,0103) US 0\n";
  return s;
}

TEST(LosslessCodec, DcmtkReadsOursAndWeReadTheirs) {
  ASSERT_TRUE(Have("dcmcjpeg") && Have("dcmdjpeg") && Have("dump2dcm"))
      << "dcmtk is needed (scripts/deps.sh)";
  TempDir dir;
  test::Rng rng(17);
  const int w = 37, h = 23;
  for (int p : {12, 16}) {
    for (int pred = 1; pred <= 7; ++pred) {
      for (int pt : {0, 2}) {
        // Wild samples: every category, 16 included.
        const Image16 im = TestImage(rng, w, h, 1, p, pred % 2 == 1);
        const Bytes want = Raw(Shifted(im, pt), 16);
        const std::string what = "P " + std::to_string(p) + " predictor " + std::to_string(pred) +
                                 " Pt " + std::to_string(pt);
        // Ours, decoded there.
        WriteAll(dir / "our.jpg", Encode(im, pred, pt, 0));
        std::ofstream(dir / "enc.txt")
            << DicomHeader(w, h, p, true)
            << "(7fe0,0010) OB (PixelSequence)\n(fffe,e000) pi (no value)\n(fffe,e000) pi ="
            << (dir / "our.jpg") << "\n(fffe,e0dd) na (SequenceDelimitationItem)\n";
        ASSERT_EQ(Shell("dump2dcm +E " + (dir / "enc.txt") + " " + (dir / "our.dcm")), 0) << what;
        ASSERT_EQ(Shell("dcmdjpeg " + (dir / "our.dcm") + " " + (dir / "plain.dcm")), 0) << what;
        const Bytes plain = ReadAll(dir / "plain.dcm");
        ASSERT_GE(plain.size(), want.size());
        EXPECT_TRUE(std::equal(want.begin(), want.end(), plain.end() - long(want.size()))) << what;
        // Theirs, decoded here.
        WriteAll(dir / "raw.le", Raw(im.samples, 16));
        std::ofstream(dir / "raw.txt") << DicomHeader(w, h, p, false) << "(7fe0,0010) OW ="
                                       << (dir / "raw.le") << "\n";
        ASSERT_EQ(Shell("dump2dcm " + (dir / "raw.txt") + " " + (dir / "raw.dcm")), 0) << what;
        ASSERT_EQ(Shell("dcmcjpeg +el +sv " + std::to_string(pred) + " +pt " + std::to_string(pt) +
                      " " + (dir / "raw.dcm") + " " + (dir / "their.dcm")),
                  0)
            << what;
        const Bytes dcm = ReadAll(dir / "their.dcm");
        const uint8_t soi[3] = {0xFF, 0xD8, 0xFF};
        const auto at = std::search(dcm.begin(), dcm.end(), soi, soi + 3);
        ASSERT_NE(at, dcm.end()) << what;
        const Bytes file(at, dcm.end());
        Image16 out;
        std::string msg;
        ASSERT_EQ(rvtjpeg::DecodeLossless(file.data(), file.size(), &out, &msg),
                  LosslessStatus::kOk)
            << what << ": " << msg;
        EXPECT_EQ(Raw(out.samples, 16), want) << what;
      }
    }
  }
}

}  // namespace
}  // namespace rvt
