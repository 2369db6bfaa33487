// rvtjpeg: baseline JPEG encoder and decoder on the rvtjp primitives.
//
//   rvtjpeg encode IN.(png|ppm|pgm) OUT.jpg [-q 1..100] [-s grey|444|422|420]
//                  [-r restart_interval_in_MCUs] [-t threads] [-progressive] [-optimize]
//   rvtjpeg encode IN.(png|ppm|pgm) OUT.jpg -lossless PSV[,Pt] [-p 2..16] [-r rows]
//       lossless JPEG (SOF3) of an 8- to 16-bit grey or RGB image.
//   rvtjpeg decode IN.jpg OUT.(png|ppm|pgm) [-t threads]
//       baseline, extended sequential, progressive (Huffman) and lossless JPEG.
//   rvtjpeg compare IN.(png|ppm|pgm) [-q N] [-s S] [-o DIR]
//       codes the image with rvtjp and with libjpeg-turbo, decodes both, and
//       prints sizes, PSNR and single-threaded speed side by side.
//
// Exit codes: 0 success, 1 usage, 2 I/O error, 3 unsupported JPEG,
// 4 corrupt JPEG (an image is still written when one could be made).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "codec.h"
#include "image_io.h"
#include "lossless.h"
#include "rvtcore.h"
#include "turbo_peer.h"

namespace {

using namespace rvtjpeg;

int Usage() {
  std::fprintf(stderr,
               "usage:\n"
               "  rvtjpeg encode IN.(png|ppm|pgm) OUT.jpg [-q 1..100] [-s grey|444|422|420] [-r MCUs] [-t threads]\n"
               "         [-progressive] [-optimize]\n"
               "  rvtjpeg encode IN.(png|ppm|pgm) OUT.jpg -lossless 1..7[,Pt] [-p 2..16] [-r rows]\n"
               "  rvtjpeg decode IN.jpg OUT.(png|ppm|pgm) [-t threads]\n"
               "  rvtjpeg compare IN.(png|ppm|pgm) [-q 1..100] [-s grey|444|422|420] [-o DIR]\n");
  return 1;
}

struct Args {
  std::vector<std::string> files;
  EncodeOptions enc;
  bool lossless = false;
  LosslessOptions ll;
  int threads = 1;
  std::string outdir = ".";
};

bool ParseArgs(int argc, char** argv, Args* a) {
  for (int i = 2; i < argc; ++i) {
    const std::string s = argv[i];
    auto value = [&](int* v) {
      if (i + 1 >= argc) return false;
      char* end;
      const long x = std::strtol(argv[++i], &end, 10);
      if (*end != 0 || x < INT32_MIN || x > INT32_MAX) return false;
      *v = int(x);
      return true;
    };
    if (s == "-q") {
      if (!value(&a->enc.quality) || a->enc.quality < 1 || a->enc.quality > 100) return false;
    } else if (s == "-r") {
      if (!value(&a->enc.restart_interval) || a->enc.restart_interval < 0 || a->enc.restart_interval > 65535)
        return false;
    } else if (s == "-lossless") {
      if (i + 1 >= argc) return false;
      char* end;
      a->lossless = true;
      a->ll.predictor = int(std::strtol(argv[++i], &end, 10));
      if (*end == ',') a->ll.point_transform = int(std::strtol(end + 1, &end, 10));
      if (*end != 0 || a->ll.predictor < 1 || a->ll.predictor > 7 || a->ll.point_transform < 0 ||
          a->ll.point_transform > 15)
        return false;
    } else if (s == "-progressive") {
      a->enc.progressive = true;
    } else if (s == "-optimize") {
      a->enc.optimize = true;
    } else if (s == "-p") {
      if (!value(&a->ll.precision) || a->ll.precision < 2 || a->ll.precision > 16) return false;
    } else if (s == "-t") {
      if (!value(&a->threads) || a->threads < 1 || a->threads > 64) return false;
    } else if (s == "-s") {
      if (i + 1 >= argc || !ParseSampling(argv[++i], &a->enc.sampling)) return false;
    } else if (s == "-o") {
      if (i + 1 >= argc) return false;
      a->outdir = argv[++i];
    } else if (!s.empty() && s[0] == '-') {
      return false;
    } else {
      a->files.push_back(s);
    }
  }
  a->enc.threads = a->threads;
  a->ll.restart_rows = a->enc.restart_interval;
  return true;
}

int Fail(const std::string& message, int code) {
  std::fprintf(stderr, "rvtjpeg: %s\n", message.c_str());
  return code;
}

int EncodeLosslessFile(const Args& a) {
  Image16 image;
  std::string error;
  if (!ReadImage16(a.files[0], &image, &error)) return Fail(error, 2);
  std::vector<uint8_t> out;
  if (!EncodeLossless(image, a.ll, &out, &error)) return Fail(error, 2);
  if (!WriteFile(a.files[1], out.data(), out.size(), &error)) return Fail(error, 2);
  return 0;
}

int DecodeLosslessFile(const Args& a, const std::vector<uint8_t>& data) {
  Image16 image;
  std::string error;
  const LosslessStatus s = DecodeLossless(data.data(), data.size(), &image, &error);
  if (s == LosslessStatus::kUnsupported || s == LosslessStatus::kNotLossless)
    return Fail(a.files[0] + ": unsupported lossless JPEG: " + error, 3);
  if (s == LosslessStatus::kCorrupt) return Fail(a.files[0] + ": corrupt lossless JPEG: " + error, 4);
  if (!WriteImage16(a.files[1], image, &error)) return Fail(error, 2);
  return 0;
}

int Encode(const Args& a) {
  if (a.files.size() != 2) return Usage();
  if (a.lossless) return EncodeLosslessFile(a);
  Image image;
  std::string error;
  if (!ReadImage(a.files[0], &image, &error)) return Fail(error, 2);
  Encoder encoder;
  if (!encoder.Encode(image, a.enc, &error)) return Fail(error, 2);
  if (!WriteFile(a.files[1], encoder.data(), encoder.size(), &error)) return Fail(error, 2);
  return 0;
}

int Decode(const Args& a) {
  if (a.files.size() != 2) return Usage();
  std::vector<uint8_t> data;
  std::string error;
  if (!ReadFile(a.files[0], &data, &error)) return Fail(error, 2);
  if (IsLosslessJpeg(data.data(), data.size())) return DecodeLosslessFile(a, data);
  Image image;
  DecodeOptions options;
  options.threads = a.threads;
  Decoder decoder;
  const DecodeStatus s = decoder.Decode(data.data(), data.size(), options, &image, &error);
  if (s == DecodeStatus::kUnsupported) return Fail(a.files[0] + ": unsupported JPEG: " + error, 3);
  if (s == DecodeStatus::kError) return Fail(a.files[0] + ": " + error, 4);
  std::string werr;
  if (!WriteImage(a.files[1], image, &werr)) return Fail(werr, 2);
  if (s == DecodeStatus::kDamaged)
    return Fail(a.files[0] + ": damaged JPEG (" + error + "), best-effort image written", 4);
  return 0;
}

// Best time of repeated runs over about a quarter of a second.
double BestSeconds(const std::function<bool()>& fn) {
  double best = 1e30, spent = 0;
  for (int i = 0; i < 200 && (i < 3 || spent < 0.25); ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    if (!fn()) return -1;
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    best = std::min(best, s);
    spent += s;
  }
  return best;
}

std::string BaseName(const std::string& path) {
  std::string b = path.substr(path.find_last_of('/') + 1);
  const size_t dot = b.find_last_of('.');
  return dot == std::string::npos ? b : b.substr(0, dot);
}

int Compare(const Args& a) {
  if (a.files.size() != 1) return Usage();
  Image src;
  std::string error;
  if (!ReadImage(a.files[0], &src, &error)) return Fail(error, 2);
  EncodeOptions opt = a.enc;
  opt.threads = 1;
  if (src.channels == 1) opt.sampling = Sampling::kGrey;
  const double mpix = double(src.width) * src.height / 1e6;

  Encoder ours;
  TurboPeer peer;
  Decoder decoder;
  Image our_dec, peer_dec, cross_ours, cross_peer;
  const double our_enc_s = BestSeconds([&] { return ours.Encode(src, opt, &error); });
  if (our_enc_s < 0) return Fail(error, 2);
  const double peer_enc_s = BestSeconds([&] { return peer.Encode(src, opt.quality, opt.sampling, &error); });
  if (peer_enc_s < 0) return Fail("libjpeg-turbo: " + error, 2);
  const std::vector<uint8_t> our_file(ours.data(), ours.data() + ours.size());
  const std::vector<uint8_t> peer_file(peer.data(), peer.data() + peer.size());

  std::string msg;
  const double our_dec_s = BestSeconds([&] {
    return decoder.Decode(our_file.data(), our_file.size(), DecodeOptions(), &our_dec, &msg) == DecodeStatus::kOk;
  });
  if (our_dec_s < 0) return Fail("decoding our file: " + msg, 4);
  const double peer_dec_s =
      BestSeconds([&] { return peer.Decode(peer_file.data(), peer_file.size(), &peer_dec, &error); });
  if (peer_dec_s < 0) return Fail("libjpeg-turbo: " + error, 4);
  // Each decoder on the other's file.
  if (decoder.Decode(peer_file.data(), peer_file.size(), DecodeOptions(), &cross_ours, &msg) != DecodeStatus::kOk)
    return Fail("decoding libjpeg-turbo's file: " + msg, 4);
  if (!peer.Decode(our_file.data(), our_file.size(), &cross_peer, &error))
    return Fail("libjpeg-turbo decoding our file: " + error, 4);

  const std::string base = a.outdir + "/" + BaseName(a.files[0]);
  const std::string jpg = base + ".rvtjp.jpg", png = base + ".rvtjp.png";
  if (!WriteFile(jpg, our_file.data(), our_file.size(), &error) || !WriteImage(png, our_dec, &error))
    return Fail(error, 2);

  const double pixels = double(src.width) * src.height;
  std::printf("%s: %dx%d %s, quality %d, %s, one thread\n", a.files[0].c_str(), src.width, src.height,
              src.channels == 3 ? "RGB" : "grey", opt.quality, SamplingName(opt.sampling));
  std::printf("%-34s %14s %14s %8s\n", "", "rvtjp", "libjpeg-turbo", "ratio");
  std::printf("%-34s %14zu %14zu %8.3f\n", "file size (bytes)", our_file.size(), peer_file.size(),
              double(our_file.size()) / double(peer_file.size()));
  std::printf("%-34s %14.3f %14.3f\n", "bits per pixel", our_file.size() * 8 / pixels,
              peer_file.size() * 8 / pixels);
  std::printf("%-34s %14.2f %14.2f %8s\n", "PSNR own round trip (dB)", Psnr(src, our_dec), Psnr(src, peer_dec),
              "");
  std::printf("%-34s %14.1f %14.1f %8.2f\n", "encode (Mpix/s)", mpix / our_enc_s, mpix / peer_enc_s,
              peer_enc_s / our_enc_s);
  std::printf("%-34s %14.1f %14.1f %8.2f\n", "decode (Mpix/s)", mpix / our_dec_s, mpix / peer_dec_s,
              peer_dec_s / our_dec_s);
  std::printf("cross-decoding: libjpeg-turbo reads our file (PSNR vs source %.2f dB);\n", Psnr(src, cross_peer));
  std::printf("                we read its file: %.2f dB against its own decode, mean |diff| %.3f levels\n",
              Psnr(cross_ours, peer_dec), MeanAbsDiff(cross_ours, peer_dec));
  std::printf("wrote %s (%zu bytes) and its decode %s\n", jpg.c_str(), our_file.size(), png.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage();
  Args args;
  if (!ParseArgs(argc, argv, &args)) return Usage();
  // The codec's own threads (-t) are the only ones: the library's region
  // primitives run on the calling thread.
  rvtSetNumThreads(1);
  const std::string cmd = argv[1];
  if (cmd == "encode") return Encode(args);
  if (cmd == "decode") return Decode(args);
  if (cmd == "compare") return Compare(args);
  return Usage();
}
