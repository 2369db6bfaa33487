// rvttex: the texture tool.  Encodes PNG images to DDS block-compressed
// textures with the library's encoders and decodes DDS files with its
// decoders, printing PSNR and Mpix/s.
//
//   rvttex encode IN.png OUT.dds -f FORMAT [-q N] [-t THREADS] [-s SCALE]
//   rvttex decode IN.dds OUT.png|OUT.raw [-t THREADS] [-r REFERENCE.png]
//   rvttex compare A.png B.png
//
// FORMAT is bc1 bc2 bc3 bc3ycocg bc4 bc5 bc6h bc6hs bc7.  The 8-bit formats
// read the image as RGBA (bc4 takes red, bc5 red and green; grey images
// give grey in R, G and B); bc6h/bc6hs read 8- or 16-bit samples as linear
// values sample / max * SCALE (default 1).  Threads split the image into
// bands of whole block rows, one encoder or decoder call per band.
//
// Decoding writes RGBA PNGs (BC1-BC3, BC7, YCoCg), grey (BC4), RGB with
// blue 0 (BC5); BC6H gives a 16-bit RGB PNG of the values clamped to 0..1,
// or with .raw the decoded half-float bit patterns (three little-endian
// 16-bit values per pixel, rows packed).  PSNR: over the channels the
// format codes for 8-bit formats (R, G, B, with alpha apart where coded;
// R; R, G), and for BC6H in log space (of sign(x) * log2(1 + |x|), peak the largest
// magnitude of the source).  `compare` prints the RGB PSNR and largest
// difference of two PNGs of one size.
#include <png.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "dds.h"
#include "image_io.h"
#include "rvtjp.h"

namespace {

using Bytes = std::vector<uint8_t>;
using rvttex::Format;

// Source and decoded pixel layouts.
enum class Layout { kRgba8, kR8, kRg8, kRgbHalf, kRgbHalfSigned };
int PixelBytes(Layout l) {
  switch (l) {
    case Layout::kRgba8: return 4;
    case Layout::kR8: return 1;
    case Layout::kRg8: return 2;
    default: return 6;
  }
}

using EncodeFn = RvtResult (*)(const void*, int32_t, uint8_t*, ImageSize, int);
using DecodeFn = RvtResult (*)(const uint8_t*, void*, int32_t, ImageSize);
template <class T, RvtResult (*F)(const T*, int32_t, uint8_t*, ImageSize, int)>
RvtResult EncodeAs(const void* s, int32_t step, uint8_t* d, ImageSize roi, int q) {
  return F(static_cast<const T*>(s), step, d, roi, q);
}
template <class T, RvtResult (*F)(const uint8_t*, T*, int32_t, ImageSize)>
RvtResult DecodeAs(const uint8_t* s, void* d, int32_t step, ImageSize roi) {
  return F(s, static_cast<T*>(d), step, roi);
}

// One line per format.  An encoder not yet in the library is nullptr
// (with its quality range): its row gets the export when it lands.
struct Codec {
  const char* name;
  Format format;
  Layout layout;
  EncodeFn encode;
  int max_quality, default_quality;
  DecodeFn decode;
};
const Codec kCodecs[] = {
    {"bc1", Format::kBc1, Layout::kRgba8, EncodeAs<uint8_t, rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R>},
    {"bc2", Format::kBc2, Layout::kRgba8, EncodeAs<uint8_t, rvtiTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R>},
    {"bc3", Format::kBc3, Layout::kRgba8, EncodeAs<uint8_t, rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R>},
    {"bc3ycocg", Format::kBc3YCoCg, Layout::kRgba8,
     EncodeAs<uint8_t, rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R>},
    {"bc4", Format::kBc4, Layout::kR8, EncodeAs<uint8_t, rvtiTextureEncodeBlock_BC4_8u_C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlock_BC4_8u_C1R>},
    {"bc5", Format::kBc5, Layout::kRg8, EncodeAs<uint8_t, rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R>},
    {"bc6h", Format::kBc6h, Layout::kRgbHalf,
     EncodeAs<uint16_t, rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R>, 2, 1,
     DecodeAs<uint16_t, rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R>},
    {"bc6hs", Format::kBc6hs, Layout::kRgbHalfSigned,
     EncodeAs<int16_t, rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R>, 2, 1,
     DecodeAs<int16_t, rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R>},
    {"bc7", Format::kBc7, Layout::kRgba8,
     EncodeAs<uint8_t, rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R>, 2, 1,
     DecodeAs<uint8_t, rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R>},
};

const Codec* ByName(const std::string& name) {
  for (const Codec& c : kCodecs) {
    if (name == c.name) return &c;
  }
  return nullptr;
}
const Codec& ByFormat(Format f) {
  for (const Codec& c : kCodecs) {
    if (c.format == f) return c;
  }
  return kCodecs[0];
}

// ------------------------------------------------------------ half floats

uint16_t ToHalf(float f) {
  uint32_t x;
  std::memcpy(&x, &f, 4);
  const uint16_t sign = uint16_t(x >> 16 & 0x8000);
  x &= 0x7FFFFFFF;
  if (x >= 0x47800000) return uint16_t(sign | (x > 0x7F800000 ? 0x7E00 : 0x7C00));  // overflow, NaN
  if (x < 0x38800000) {  // subnormal half (or zero): round to nearest even
    const float a = std::fabs(f) * 16777216.0f;  // in units of 2^-24
    return uint16_t(sign | uint16_t(std::nearbyint(a)));
  }
  const uint32_t m = x + 0xFFF + (x >> 13 & 1) - 0x38000000;
  return uint16_t(sign | (m >> 13));
}
float FromHalf(uint16_t h) {
  const int e = h >> 10 & 31, m = h & 1023;
  float v = e == 0 ? std::ldexp(float(m), -24) : e == 31 ? (m ? NAN : INFINITY) : std::ldexp(float(m | 1024), e - 25);
  return h & 0x8000 ? -v : v;
}

// ------------------------------------------------------------ PNG

bool ReadRgba(const std::string& path, int* w, int* h, Bytes* px, std::string* error) {
  png_image pi{};
  pi.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&pi, path.c_str())) {
    *error = path + ": " + pi.message;
    return false;
  }
  pi.format = PNG_FORMAT_RGBA;
  px->resize(PNG_IMAGE_SIZE(pi));
  if (!png_image_finish_read(&pi, nullptr, px->data(), 0, nullptr)) {
    *error = path + ": " + pi.message;
    return false;
  }
  *w = int(pi.width), *h = int(pi.height);
  return true;
}

bool WritePng8(const std::string& path, int w, int h, int channels, const Bytes& px, std::string* error) {
  png_image pi{};
  pi.version = PNG_IMAGE_VERSION;
  pi.width = png_uint_32(w), pi.height = png_uint_32(h);
  pi.format = channels == 1 ? PNG_FORMAT_GRAY : channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_RGBA;
  if (!png_image_write_to_file(&pi, path.c_str(), 0, px.data(), 0, nullptr)) {
    *error = path + ": " + pi.message;
    return false;
  }
  return true;
}

// ------------------------------------------------------------ work

struct Fail {
  std::string why;
};

double Seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Calls fn(first block row, block rows) over bands of whole block rows on
// `threads` threads; the first failing status, or rvtStatusOk.
template <class Fn>
RvtResult Bands(int height, int threads, Fn fn) {
  const int rows = (height + 3) / 4;
  threads = std::max(1, std::min(threads, rows));
  std::vector<RvtResult> status(size_t(threads), rvtStatusOk);
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    const int r0 = int(int64_t(rows) * t / threads), r1 = int(int64_t(rows) * (t + 1) / threads);
    pool.emplace_back([&, t, r0, r1] { status[size_t(t)] = fn(r0, r1 - r0); });
  }
  for (auto& th : pool) th.join();
  for (RvtResult s : status) {
    if (s != rvtStatusOk) return s;
  }
  return rvtStatusOk;
}

RvtResult DecodeBands(const Codec& c, const uint8_t* blocks, int w, int h, uint8_t* out, int threads) {
  const size_t row_bytes = size_t((w + 3) / 4) * size_t(rvttex::BlockBytes(c.format));
  const int32_t step = w * PixelBytes(c.layout);
  return Bands(h, threads, [&](int r0, int n) {
    const int y0 = 4 * r0, rows = std::min(h, 4 * (r0 + n)) - y0;
    return c.decode(blocks + size_t(r0) * row_bytes, out + size_t(y0) * size_t(step), step, {w, rows});
  });
}

double Psnr8(const Bytes& a, const Bytes& b, int pixel, int channels) {
  double se = 0;
  size_t n = 0;
  for (size_t i = 0; i < a.size(); i += size_t(pixel)) {
    for (int k = 0; k < channels; ++k) se += (double(a[i + k]) - b[i + k]) * (double(a[i + k]) - b[i + k]);
    n += size_t(channels);
  }
  return se == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * double(n) / se);
}

double LogPsnr(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b) {
  auto f = [](uint16_t h) {
    const double x = FromHalf(h);
    return x < 0 ? -std::log2(1 - x) : std::log2(1 + x);
  };
  double se = 0, peak = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const double fa = f(a[i]), fb = f(b[i]);
    se += (fa - fb) * (fa - fb);
    peak = std::max(peak, std::fabs(fa));
  }
  if (se == 0) return 99.0;
  return 10 * std::log10(std::max(peak, 1e-6) * std::max(peak, 1e-6) * double(a.size()) / se);
}

int Encode(const std::string& in, const std::string& out, const Codec& c, int quality, int threads,
           float scale) {
  if (!c.encode) throw Fail{std::string("format ") + c.name + " is not supported for encoding yet"};
  std::string error;
  int w = 0, h = 0;
  Bytes src;  // the encoder's input, `PixelBytes(c.layout)` bytes per pixel
  if (c.layout == Layout::kRgbHalf || c.layout == Layout::kRgbHalfSigned) {
    rvtjpeg::Image16 im;
    if (!rvtjpeg::ReadImage16(in, &im, &error)) throw Fail{error};
    w = im.width, h = im.height;
    const float norm = scale / float((1 << im.precision) - 1);
    src.resize(size_t(w) * h * 6);
    for (size_t i = 0; i < size_t(w) * h; ++i) {
      for (int k = 0; k < 3; ++k) {
        const uint16_t v = ToHalf(float(im.samples[i * size_t(im.channels) + size_t(im.channels == 3 ? k : 0)]) * norm);
        std::memcpy(&src[6 * i + 2 * size_t(k)], &v, 2);
      }
    }
  } else {
    Bytes rgba;
    if (!ReadRgba(in, &w, &h, &rgba, &error)) throw Fail{error};
    const int px = PixelBytes(c.layout);
    src.resize(size_t(w) * h * size_t(px));
    for (size_t i = 0; i < size_t(w) * h; ++i) std::memcpy(&src[i * size_t(px)], &rgba[4 * i], size_t(px));
  }
  if (quality < 0) quality = c.default_quality;
  if (quality > c.max_quality) throw Fail{std::string(c.name) + ": quality 0.." + std::to_string(c.max_quality)};
  const size_t size = rvttex::BlocksSize(c.format, uint32_t(w), uint32_t(h));
  if (size == 0 || w > 65536 || h > 65536) throw Fail{"image too large"};
  Bytes blocks(size);
  const int32_t step = w * PixelBytes(c.layout);
  const size_t row_bytes = size_t((w + 3) / 4) * size_t(rvttex::BlockBytes(c.format));
  const auto t0 = std::chrono::steady_clock::now();
  const RvtResult st = Bands(h, threads, [&](int r0, int n) {
    const int y0 = 4 * r0, rows = std::min(h, 4 * (r0 + n)) - y0;
    return c.encode(src.data() + size_t(y0) * size_t(step), step, blocks.data() + size_t(r0) * row_bytes,
                    {w, rows}, quality);
  });
  const double secs = Seconds(t0);
  if (st != rvtStatusOk) throw Fail{"encoder status " + std::to_string(int(st))};
  Bytes back(src.size());
  if (DecodeBands(c, blocks.data(), w, h, back.data(), threads) != rvtStatusOk) throw Fail{"decoder failed"};
  double db;
  if (c.layout == Layout::kRgbHalf || c.layout == Layout::kRgbHalfSigned) {
    std::vector<uint16_t> a(src.size() / 2), b(a.size());
    std::memcpy(a.data(), src.data(), src.size());
    std::memcpy(b.data(), back.data(), back.size());
    db = LogPsnr(a, b);
  } else {
    const int px = PixelBytes(c.layout);
    db = Psnr8(src, back, px, c.layout == Layout::kRgba8 ? 3 : px);
  }
  std::string alpha;
  if (c.layout == Layout::kRgba8 && c.format != Format::kBc3YCoCg) {
    Bytes a(src.size() / 4), b(a.size());
    for (size_t i = 0; i < a.size(); ++i) a[i] = src[4 * i + 3], b[i] = back[4 * i + 3];
    char buf[48];
    std::snprintf(buf, sizeof buf, ", alpha %.2f dB", Psnr8(a, b, 1, 1));
    alpha = buf;
  }
  const Bytes file = rvttex::WriteDds(c.format, uint32_t(w), uint32_t(h), blocks.data());
  if (!rvtjpeg::WriteFile(out, file.data(), file.size(), &error)) throw Fail{error};
  std::printf("%s: %dx%d %s q%d, %d thread%s: PSNR %.2f dB%s%s, %.2f Mpix/s\n", out.c_str(), w, h, c.name, quality,
              threads, threads == 1 ? "" : "s", db,
              c.layout == Layout::kRgbHalf || c.layout == Layout::kRgbHalfSigned ? " (log)" : "", alpha.c_str(),
              double(w) * h / secs / 1e6);
  return 0;
}

int Decode(const std::string& in, const std::string& out, int threads, const std::string& reference) {
  std::string error;
  Bytes file;
  if (!rvtjpeg::ReadFile(in, &file, &error)) throw Fail{error};
  rvttex::DdsImage dds;
  const char* why = nullptr;
  if (!rvttex::ReadDds(file.data(), file.size(), &dds, &why)) throw Fail{in + ": " + why};
  const Codec& c = ByFormat(dds.format);
  const int w = int(dds.width), h = int(dds.height);
  Bytes px(size_t(w) * h * size_t(PixelBytes(c.layout)));
  const auto t0 = std::chrono::steady_clock::now();
  if (DecodeBands(c, dds.blocks, w, h, px.data(), threads) != rvtStatusOk) throw Fail{"decoder failed"};
  const double secs = Seconds(t0);
  const bool half = c.layout == Layout::kRgbHalf || c.layout == Layout::kRgbHalfSigned;
  Bytes image;  // what the PNG holds
  int channels = 4;
  if (half && out.size() > 4 && out.compare(out.size() - 4, 4, ".raw") == 0) {
    if (!rvtjpeg::WriteFile(out, px.data(), px.size(), &error)) throw Fail{error};
  } else if (half) {
    rvtjpeg::Image16 im;
    im.width = w, im.height = h, im.channels = 3, im.precision = 16;
    im.samples.resize(size_t(w) * h * 3);
    for (size_t i = 0; i < im.samples.size(); ++i) {
      uint16_t v;
      std::memcpy(&v, &px[2 * i], 2);
      const float f = std::clamp(FromHalf(v), 0.0f, 1.0f);
      im.samples[i] = uint16_t(std::lround(f * 65535.0f));
    }
    if (!rvtjpeg::WriteImage16(out, im, &error)) throw Fail{error};
  } else {
    channels = c.layout == Layout::kR8 ? 1 : c.layout == Layout::kRg8 ? 3 : 4;
    if (c.layout == Layout::kRg8) {
      image.assign(size_t(w) * h * 3, 0);
      for (size_t i = 0; i < size_t(w) * h; ++i) image[3 * i] = px[2 * i], image[3 * i + 1] = px[2 * i + 1];
    } else {
      image = px;
    }
    if (!WritePng8(out, w, h, channels, image, &error)) throw Fail{error};
  }
  std::printf("%s: %dx%d %s, %d thread%s: %.2f Mpix/s", in.c_str(), w, h, c.name, threads, threads == 1 ? "" : "s",
              double(w) * h / secs / 1e6);
  if (!reference.empty() && !half) {
    int rw = 0, rh = 0;
    Bytes ref;
    if (!ReadRgba(reference, &rw, &rh, &ref, &error)) throw Fail{error};
    if (rw != w || rh != h) throw Fail{"reference size differs"};
    const int pb = PixelBytes(c.layout);
    Bytes mine(size_t(w) * h * 4, 255);
    for (size_t i = 0; i < size_t(w) * h; ++i) std::memcpy(&mine[4 * i], &px[i * size_t(pb)], size_t(pb));
    std::printf(", PSNR %.2f dB", Psnr8(ref, mine, 4, c.layout == Layout::kRgba8 ? 3 : pb));
  }
  std::printf("\n");
  return 0;
}

int Compare(const std::string& a, const std::string& b) {
  std::string error;
  int aw = 0, ah = 0, bw = 0, bh = 0;
  Bytes pa, pb;
  if (!ReadRgba(a, &aw, &ah, &pa, &error) || !ReadRgba(b, &bw, &bh, &pb, &error)) throw Fail{error};
  if (aw != bw || ah != bh) throw Fail{"sizes differ"};
  int worst = 0;
  for (size_t i = 0; i < pa.size(); ++i) {
    if (i % 4 != 3) worst = std::max(worst, std::abs(int(pa[i]) - int(pb[i])));
  }
  std::printf("RGB PSNR %.2f dB, largest difference %d\n", Psnr8(pa, pb, 4, 3), worst);
  return 0;
}

int Usage() {
  std::fprintf(stderr,
               "usage: rvttex encode IN.png OUT.dds -f bc1|bc2|bc3|bc3ycocg|bc4|bc5|bc6h|bc6hs|bc7 [-q N] [-t THREADS] "
               "[-s SCALE]\n"
               "       rvttex decode IN.dds OUT.png|OUT.raw [-t THREADS] [-r REFERENCE.png]\n"
               "       rvttex compare A.png B.png\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return Usage();
  const std::string cmd = argv[1], in = argv[2], out = argv[3];
  const Codec* codec = nullptr;
  int quality = -1, threads = 1;
  float scale = 1.0f;
  std::string reference;
  for (int i = 4; i < argc; ++i) {
    const std::string a = argv[i];
    if (i + 1 >= argc) return Usage();
    const char* v = argv[++i];
    if (a == "-f") {
      codec = ByName(v);
      if (!codec) {
        std::fprintf(stderr, "rvttex: unknown format %s\n", v);
        return 2;
      }
    } else if (a == "-q") {
      quality = std::atoi(v);
    } else if (a == "-t") {
      threads = std::max(1, std::atoi(v));
    } else if (a == "-s") {
      scale = float(std::atof(v));
    } else if (a == "-r") {
      reference = v;
    } else {
      return Usage();
    }
  }
  try {
    if (cmd == "encode" && codec) return Encode(in, out, *codec, quality, threads, scale);
    if (cmd == "decode") return Decode(in, out, threads, reference);
    if (cmd == "compare") return Compare(in, out);
  } catch (const Fail& f) {
    std::fprintf(stderr, "rvttex: %s\n", f.why.c_str());
    return 1;
  }
  return Usage();
}
