// Lossless JPEG, one run: differencing and reconstruction of a 4K 16-bit
// plane (3840 x 2160) per predictor, best target against the reference and
// against memcpy of the plane; the row coders in MB of samples per second;
// and the example codec against ffmpeg on a 4K image (ffmpeg's ljpeg
// encoder writes 8-bit files only, so encoding is compared on an 8-bit
// RGB image, decoding on our 16-bit grey file, which ffmpeg's decoder
// reads; dcmtk's encoder is the 16-bit encoding peer, its time including
// DICOM file handling).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "checkasm.h"
#include "lossless.h"
#include "photo.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160;

double BestMs(const std::function<void()>& fn, int reps = 7) {
  double best = 1e300;
  for (int i = 0; i < reps; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    fn();
    best = std::min(best, std::chrono::duration<double, std::milli>(
                              std::chrono::steady_clock::now() - t0).count());
  }
  return best;
}
double WallMs(const std::string& cmd) {
  const auto t0 = std::chrono::steady_clock::now();
  if (std::system((cmd + " >/dev/null 2>&1").c_str()) != 0) return -1;
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

// A 16-bit 4K plane: a test photo's luma tiled, scaled, with low-bit noise
// (as a sensor gives).
std::vector<int16_t> Plane16(int scale, int noise) {
  const test::Photo p = test::LoadPhoto("astronaut.png", 1);
  std::vector<int16_t> v(size_t(kW) * kH);
  test::Rng rng(1);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const int s = p.px[size_t(y % p.height) * size_t(p.width) + size_t(x % p.width)];
      v[size_t(y) * kW + size_t(x)] = int16_t(uint16_t(s * scale + int(rng.Uniform(0, noise))));
    }
  }
  return v;
}

template <class Fn>
Fn Best(const Impl<Fn>& impl) {
  const auto t = test::SimdTargets(impl);
  return t.empty() ? impl.fn[kRef] : t.front().fn;
}
template <class Fn>
const char* BestName(const Impl<Fn>& impl) {
  const auto t = test::SimdTargets(impl);
  return t.empty() ? "ref" : t.front().name;
}

void Kernels(const std::vector<int16_t>& img) {
  std::vector<int16_t> diff(img.size()), back(img.size()), copy(img.size());
  const double memcpy_ms = BestMs([&] { std::memcpy(copy.data(), img.data(), img.size() * 2); });
  std::printf("4K 16-bit plane (%d x %d), ms per plane; memcpy of the plane %.3f ms\n", kW, kH,
              memcpy_ms);
  std::printf("%-22s %10s %10s %8s %9s\n", "", "best", "reference", "speedup", "x memcpy");
  const auto& dimpl = impl_rvtiDiffPredRow_JPEG_16s_C1;
  const auto& rimpl = impl_rvtiReconstructPredRow_JPEG_16s_C1;
  for (int pred = 1; pred <= 7; ++pred) {
    auto diff_all = [&](decltype(&rvtiDiffPredRow_JPEG_16s_C1) fn) {
      rvtiDiffPredFirstRow_JPEG_16s_C1(img.data(), diff.data(), kW, 16, 0);
      for (int y = 1; y < kH; ++y) {
        fn(img.data() + size_t(y) * kW, img.data() + size_t(y - 1) * kW, diff.data() + size_t(y) * kW,
           kW, pred);
      }
    };
    auto rec_all = [&](decltype(&rvtiReconstructPredRow_JPEG_16s_C1) fn) {
      rvtiReconstructPredFirstRow_JPEG_16s_C1(diff.data(), back.data(), kW, 16, 0);
      for (int y = 1; y < kH; ++y) {
        fn(diff.data() + size_t(y) * kW, back.data() + size_t(y - 1) * kW,
           back.data() + size_t(y) * kW, kW, pred);
      }
    };
    const double db = BestMs([&] { diff_all(Best(dimpl)); });
    const double dr = BestMs([&] { diff_all(dimpl.fn[kRef]); });
    const double rb = BestMs([&] { rec_all(Best(rimpl)); });
    const double rr = BestMs([&] { rec_all(rimpl.fn[kRef]); });
    if (back != img) std::printf("!! predictor %d does not round-trip\n", pred);
    std::printf("difference, pred %d   %10.3f %10.3f %7.2fx %8.2fx\n", pred, db, dr, dr / db,
                memcpy_ms / db);
    std::printf("reconstruct, pred %d  %10.3f %10.3f %7.2fx %8.2fx\n", pred, rb, rr, rr / rb,
                memcpy_ms / rb);
  }
  std::printf("(best target: %s)\n\n", BestName(dimpl));
}

void RowCoders(const std::vector<int16_t>& img, const char* what) {
  // Differences of predictor 1, one shared table built from them.
  std::vector<int16_t> diff(img.size());
  rvtiDiffPredFirstRow_JPEG_16s_C1(img.data(), diff.data(), kW, 16, 0);
  for (int y = 1; y < kH; ++y) {
    rvtiDiffPredRow_JPEG_16s_C1(img.data() + size_t(y) * kW, img.data() + size_t(y - 1) * kW,
                                diff.data() + size_t(y) * kW, kW, 1);
  }
  // Lengths 2, 2, 3, 3, 3, 4, 5, ... 15 given to the categories by falling
  // frequency, as a table built for the data would nearly do.
  const uint8_t bits[16] = {0, 2, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};
  uint8_t vals[17];
  {
    long count[17] = {};
    for (int16_t d : diff) {
      int s = 0;
      for (unsigned a = unsigned(d < 0 ? -int(d) : int(d)); a; a >>= 1) ++s;
      ++count[s];
    }
    for (int s = 0; s < 17; ++s) vals[s] = uint8_t(s);
    std::stable_sort(vals, vals + 17, [&](uint8_t a, uint8_t b) { return count[a] > count[b]; });
  }
  EncodeHuffmanSpec* es = nullptr;
  DecodeHuffmanSpec* ds = nullptr;
  EncodeHuffmanState* est = nullptr;
  DecodeHuffmanState* dst = nullptr;
  rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, &es);
  rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, &ds);
  rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(&est);
  rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(&dst);
  std::vector<uint8_t> bytes(img.size() * 5);
  int len = 0;
  auto enc = [&](decltype(&rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1) fn) {
    int pos = 0;
    rvtiEncodeHuffmanStateInit_JPEG_8u(est);
    const EncodeHuffmanSpec* t[1] = {es};
    for (int y = 0; y < kH; ++y) {
      const int16_t* r[1] = {diff.data() + size_t(y) * kW};
      fn(r, kW, 1, bytes.data(), int(bytes.size()), &pos, t, est, 0);
    }
    fn(nullptr, 0, 0, bytes.data(), int(bytes.size()), &pos, nullptr, est, 1);
    len = pos;
  };
  std::vector<int16_t> got(img.size());
  auto dec = [&](decltype(&rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4) fn) {
    int pos = 0, marker = 0;
    rvtiDecodeHuffmanStateInit_JPEG_8u(dst);
    const DecodeHuffmanSpec* t[1] = {ds};
    for (int y = 0; y < kH; ++y) {
      int16_t* r[1] = {got.data() + size_t(y) * kW};
      fn(bytes.data(), len, &pos, r, kW, 1, &marker, t, dst);
    }
  };
  const auto& ei = impl_rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1;
  const auto& di = impl_rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4;
  const double eb = BestMs([&] { enc(Best(ei)); }), er = BestMs([&] { enc(ei.fn[kRef]); });
  enc(Best(ei));
  const double db = BestMs([&] { dec(Best(di)); }), dr = BestMs([&] { dec(di.fn[kRef]); });
  if (got != diff) std::printf("!! row decoder does not give the differences back\n");
  const double mb = double(img.size()) * 2 / 1e6;
  std::printf("row coders, 4K plane of differences of %s (%.2f bits per sample), MB of samples/s\n",
              what, 8.0 * len / double(img.size()));
  std::printf("%-22s %10s %10s %8s\n", "", "best", "reference", "speedup");
  std::printf("%-22s %10.0f %10.0f %7.2fx\n", "encode rows", mb / eb * 1e3, mb / er * 1e3, er / eb);
  std::printf("%-22s %10.0f %10.0f %7.2fx\n", "decode rows", mb / db * 1e3, mb / dr * 1e3, dr / db);
  for (const auto& t : test::SimdTargets(di)) {
    const double ms = BestMs([&] { dec(t.fn); });
    std::printf("  decode rows, %-8s %10.0f\n", t.name, mb / ms * 1e3);
  }
  std::printf("\n");
  rvtiEncodeHuffmanSpecFree_JPEG_8u(es);
  rvtiDecodeHuffmanSpecFree_JPEG_8u(ds);
  rvtiEncodeHuffmanStateFree_JPEG_8u(est);
  rvtiDecodeHuffmanStateFree_JPEG_8u(dst);
}

void WriteAll(const std::string& path, const std::vector<uint8_t>& b) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()),
                                              std::streamsize(b.size()));
}

void Codec(const std::vector<int16_t>& img) {
  const std::string dir = "/tmp/rvtjp_lossless_bench";
  (void)std::system(("mkdir -p " + dir).c_str());
  rvtjpeg::Image16 grey{kW, kH, 1, 16, {}};
  for (int16_t v : img) grey.samples.push_back(uint16_t(v));
  rvtjpeg::LosslessOptions o;
  std::vector<uint8_t> file;
  std::string err;
  const double enc16 = BestMs([&] { rvtjpeg::EncodeLossless(grey, o, &file, &err); }, 1);
  WriteAll(dir + "/our16.jpg", file);
  rvtjpeg::Image16 back;
  const double dec16 = BestMs([&] { rvtjpeg::DecodeLossless(file.data(), file.size(), &back, &err); }, 1);
  if (back.samples != grey.samples) std::printf("!! codec round trip differs\n");
  const double ff_dec16 =
      WallMs("ffmpeg -v error -y -i " + dir + "/our16.jpg -f rawvideo -pix_fmt gray16le " + dir + "/ff16.raw");
  // dcmtk encodes the same samples from a DICOM file.
  {
    std::vector<uint8_t> raw;
    for (uint16_t v : grey.samples) raw.push_back(uint8_t(v)), raw.push_back(uint8_t(v >> 8));
    WriteAll(dir + "/raw.le", raw);
    std::ofstream(dir + "/raw.txt")
        << "(0008,0016) UI 1.2.840.10008.5.1.4.1.1.7\n(0008,0018) UI 1.2.3.4.1\n(0010,0010) PN B\n"
           "(0020,000d) UI 1.2.3.4.2\n(0020,000e) UI 1.2.3.4.3\n(0028,0002) US 1\n"
           "(0028,0004) CS MONOCHROME2\n(0028,0010) US 2160\n(0028,0011) US 3840\n"
           "(0028,0100) US 16\n(0028,0101) US 16\n(0028,0102) US 15\n(0028,0103) US 0\n"
           "(7fe0,0010) OW ="
        << dir << "/raw.le\n";
    (void)std::system(("dump2dcm " + dir + "/raw.txt " + dir + "/raw.dcm >/dev/null 2>&1").c_str());
  }
  const double dcm_enc16 = WallMs("dcmcjpeg +el +sv 1 " + dir + "/raw.dcm " + dir + "/dcm.dcm");
  std::ifstream dcmf(dir + "/dcm.dcm", std::ios::binary | std::ios::ate);
  const long dcm_size = long(dcmf.tellg());

  // 8-bit RGB: the photo tiled, through ours and ffmpeg's ljpeg encoder.
  const test::Photo p = test::LoadPhoto("astronaut.png", 3);
  rvtjpeg::Image16 rgb{kW, kH, 3, 8, {}};
  rgb.samples.resize(size_t(kW) * kH * 3);
  std::vector<uint8_t> ppm = {};
  const std::string head = "P6\n3840 2160\n255\n";
  ppm.assign(head.begin(), head.end());
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      for (int c = 0; c < 3; ++c) {
        const uint8_t s = p.px[(size_t(y % p.height) * size_t(p.width) + size_t(x % p.width)) * 3 + size_t(c)];
        rgb.samples[(size_t(y) * kW + size_t(x)) * 3 + size_t(c)] = s;
        ppm.push_back(s);
      }
    }
  }
  WriteAll(dir + "/rgb.ppm", ppm);
  std::vector<uint8_t> file8;
  const double enc8 = BestMs([&] { rvtjpeg::EncodeLossless(rgb, o, &file8, &err); }, 1);
  const double ff_enc8 =
      WallMs("ffmpeg -v error -y -i " + dir + "/rgb.ppm -c:v ljpeg -pred left " + dir + "/ff8.jpg");
  const double ff_enc8_io =
      WallMs("ffmpeg -v error -y -i " + dir + "/rgb.ppm -f rawvideo -pix_fmt rgb24 " + dir + "/ff8.raw");
  std::ifstream ff8(dir + "/ff8.jpg", std::ios::binary | std::ios::ate);
  const long ff8_size = long(ff8.tellg());

  std::printf("example codec on a 4K image, one run each (ms); peers are processes, timed wall\n");
  std::printf("16-bit grey, predictor 1: ours encode %.1f ms (%zu bytes), decode %.1f ms\n", enc16,
              file.size(), dec16);
  std::printf("  ffmpeg decoding our file: %.1f ms  -> ours/ffmpeg decode time %.2f\n", ff_dec16,
              dec16 / ff_dec16);
  std::printf("  dcmcjpeg encoding the same samples (SV 1): %.1f ms, %ld bytes (DICOM)  -> ours/dcmtk %.2f\n",
              dcm_enc16, dcm_size, enc16 / dcm_enc16);
  std::printf("8-bit RGB, predictor 1: ours encode %.1f ms (%zu bytes)\n", enc8, file8.size());
  std::printf("  ffmpeg -c:v ljpeg -pred left: %.1f ms (%ld bytes; reading the PPM and writing raw "
              "alone: %.1f ms)  -> ours/ffmpeg %.2f\n",
              ff_enc8, ff8_size, ff_enc8_io, enc8 / ff_enc8);
  (void)std::system(("rm -rf " + dir).c_str());
}

}  // namespace
}  // namespace rvt

int main() {
  rvtSetNumThreads(1);
  const auto img = rvt::Plane16(257, 63);
  rvt::Kernels(img);
  rvt::RowCoders(img, "16-bit samples (photo x 257 + 6 bits of noise)");
  rvt::RowCoders(rvt::Plane16(16, 3), "12-bit samples (photo x 16 + 2 bits of noise)");
  rvt::Codec(img);
  return 0;
}
