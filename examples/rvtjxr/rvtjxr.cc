// rvtjxr: the example JPEG XR codec's command line.
//
//   rvtjxr decode IN.jxr OUT    grey to PGM, colour to PPM (R, G, B), by
//                               OUT's extension PNG; 16-bit PNM big-endian;
//                               with a planar alpha plane RGBA PNG (8-bit)
//   rvtjxr encode IN OUT.jxr [-q QP] [-overlap 0|1|2] [-spatial]
//                [-tiles CxR] [-chroma 444|422|420]
//                               grey or RGB PNM/PNG, 8 or 16 bits; QP 1
//                               (the default) lossless, 2..255 the quantizer
//                               index of every channel and band; overlap 1
//                               and frequency order by default
//   rvtjxr crop IN OUT W H [16] (test helper) the top-left W x H as PNM
//                               (16: widened to 16 bits)
//   rvtjxr compare A B          (test helper) exit 0 when the samples match
//   rvtjxr compare-le A B       (test helper) the same, B a little-endian
//                               16-bit PNM as JxrDecApp writes them
//   rvtjxr tile IN OUT W H      (bench helper) IN mirrored to fill W x H, PNM
//
// Anything it cannot do ends with a non-zero status and a one-line reason.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include "image_io.h"
#include "jxr_codec.h"
#include "jxr_encode.h"

namespace {

int Fail(const std::string& why) {
  std::fprintf(stderr, "rvtjxr: %s\n", why.c_str());
  return 1;
}

// Images with alpha go to PNG (8 bits a sample), the one format here
// that holds it.
int WriteRgbaPng(const std::string& path, const rvtjxr::Picture& pic) {
  if (path.size() < 4 || path.compare(path.size() - 4, 4, ".png") != 0) return Fail("images with alpha go to PNG");
  if (pic.bits != 8) return Fail("16-bit images with alpha are not supported");
  std::vector<uint8_t> px(pic.samples.size());
  for (size_t i = 0; i < px.size(); ++i) px[i] = uint8_t(pic.samples[i]);
  png_image img;
  std::memset(&img, 0, sizeof(img));
  img.version = PNG_IMAGE_VERSION;
  img.width = uint32_t(pic.width);
  img.height = uint32_t(pic.height);
  img.format = PNG_FORMAT_RGBA;
  if (!png_image_write_to_file(&img, path.c_str(), 0, px.data(), 0, nullptr)) {
    return Fail(path + ": cannot write the PNG");
  }
  return 0;
}

// 8-bit PNM written as the decoder passes its rows on, the bytes
// rvtjpeg::WritePnm writes.  A regular file (or a new one) is written under
// a temporary name beside it and renamed over the path once every row is
// out, so a decode that fails half-way leaves whatever was there before;
// anything else (a pipe, a device) is written in place and never removed.
class PnmSink : public rvtjxr::RowSink {
 public:
  PnmSink(const std::string& path, const rvtjxr::Picture& pic) : path_(path), pic_(pic) {}
  ~PnmSink() { Discard(); }
  bool Rows(const uint8_t* rows, int count) override {
    if (!f_) {
      struct stat st;
      const bool regular = stat(path_.c_str(), &st) != 0 ? errno == ENOENT : S_ISREG(st.st_mode);
      if (regular) temp_ = path_ + ".part" + std::to_string(getpid());
      f_ = std::fopen((regular ? temp_ : path_).c_str(), "wb");
      if (!f_) {
        temp_.clear();
        return false;
      }
      std::fprintf(f_, "P%c\n%d %d\n255\n", pic_.channels == 3 ? '6' : '5', pic_.width, pic_.height);
    }
    const size_t n = size_t(pic_.width) * size_t(pic_.channels) * size_t(count);
    return std::fwrite(rows, 1, n, f_) == n;
  }
  // Closes the file and puts it in place; true when every byte went out.
  bool Close() {
    bool ok = f_ && std::fclose(f_) == 0;
    f_ = nullptr;
    if (!temp_.empty()) {
      ok = ok && std::rename(temp_.c_str(), path_.c_str()) == 0;
      if (!ok) std::remove(temp_.c_str());
      temp_.clear();
    }
    return ok;
  }
  // A decode that failed half-way: drop what was written.
  void Discard() {
    if (f_) std::fclose(f_);
    f_ = nullptr;
    if (!temp_.empty()) std::remove(temp_.c_str());
    temp_.clear();
  }

 private:
  std::string path_, temp_;
  const rvtjxr::Picture& pic_;
  FILE* f_ = nullptr;
};

bool EndsWithPng(const std::string& path) {
  return path.size() >= 4 && path.compare(path.size() - 4, 4, ".png") == 0;
}

int Decode(const std::string& in, const std::string& out) {
  // the file's pages where they lie, else a copy
  rvtjpeg::MappedFile mapped;
  std::vector<uint8_t> data;
  std::string error;
  if (!mapped.Open(in) && !rvtjpeg::ReadFile(in, &data, &error)) return Fail(error);
  const uint8_t* bytes = mapped.data ? mapped.data : data.data();
  const size_t size = mapped.data ? mapped.size : data.size();
  rvtjxr::Picture pic;
  pic.narrow = true;
  PnmSink sink(out, pic);
  if (!EndsWithPng(out)) pic.sink = &sink;
  if (!rvtjxr::DecodeFile(bytes, size, &pic, &error)) {
    sink.Discard();
    return Fail(in + ": " + error);
  }
  if (pic.channels == 4) return WriteRgbaPng(out, pic);
  if (pic.sink && pic.bits == 8) {
    if (!sink.Close()) return Fail("write error on " + out);
    return 0;
  }
  if (pic.bits == 8) {
    rvtjpeg::Image img;
    img.width = pic.width;
    img.height = pic.height;
    img.channels = pic.channels;
    img.pixels.swap(pic.bytes);
    if (!rvtjpeg::WriteImage(out, img, &error)) return Fail(error);
    return 0;
  }
  rvtjpeg::Image16 img;
  img.width = pic.width;
  img.height = pic.height;
  img.channels = pic.channels;
  img.precision = pic.bits;
  img.samples = pic.samples;
  if (!rvtjpeg::WriteImage16(out, img, &error)) return Fail(error);
  return 0;
}

bool ParseInt(const std::string& s, int lo, int hi, int* v) {
  char* end = nullptr;
  const long x = std::strtol(s.c_str(), &end, 10);
  if (s.empty() || *end != 0 || x < lo || x > hi) return false;
  *v = int(x);
  return true;
}

int Encode(const std::vector<std::string>& args) {
  rvtjxr::EncodeOptions opt;
  for (size_t i = 3; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool more = i + 1 < args.size();
    if (a == "-spatial") {
      opt.spatial = true;
    } else if (a == "-q" && more) {
      if (!ParseInt(args[++i], 1, 255, &opt.quality)) return Fail("-q takes 1..255");
    } else if (a == "-overlap" && more) {
      if (!ParseInt(args[++i], 0, 2, &opt.overlap)) return Fail("-overlap takes 0, 1 or 2");
    } else if (a == "-chroma" && more) {
      const std::string& c = args[++i];
      if (c != "444" && c != "422" && c != "420") return Fail("-chroma takes 444, 422 or 420");
      opt.chroma = std::atoi(c.c_str());
    } else if (a == "-tiles" && more) {
      const std::string& t = args[++i];
      const size_t x = t.find('x');
      if (x == std::string::npos || !ParseInt(t.substr(0, x), 1, 4096, &opt.tileCols) ||
          !ParseInt(t.substr(x + 1), 1, 4096, &opt.tileRows)) {
        return Fail("-tiles takes CxR");
      }
    } else {
      return Fail("unknown encode option " + a);
    }
  }
  std::string error;
  std::vector<uint8_t> out;
  rvtjpeg::MappedPnm8 pnm8;  // 8-bit PNM: the encoder reads the file's rows in place
  if (pnm8.Open(args[1])) {
    rvtjxr::Picture shape;
    shape.width = pnm8.width;
    shape.height = pnm8.height;
    shape.channels = pnm8.channels;
    if (!rvtjxr::EncodeFile8(shape, pnm8.samples, opt, &out, &error)) return Fail(args[1] + ": " + error);
    pnm8.Close();
    if (!rvtjpeg::WriteFile(args[2], out.data(), out.size(), &error)) return Fail(error);
    return 0;
  }
  rvtjpeg::Image16 img;
  if (!rvtjpeg::ReadImage16(args[1], &img, &error)) return Fail(error);
  if (img.precision != 8 && img.precision != 16) return Fail("only 8- and 16-bit images can be encoded");
  if (img.channels != 1 && img.channels != 3) return Fail("only grey and RGB images can be encoded");
  rvtjxr::Picture pic;
  pic.width = img.width;
  pic.height = img.height;
  pic.channels = img.channels;
  pic.bits = img.precision;
  pic.samples = std::move(img.samples);
  if (!rvtjxr::EncodeFile(pic, opt, &out, &error)) return Fail(args[1] + ": " + error);
  if (!rvtjpeg::WriteFile(args[2], out.data(), out.size(), &error)) return Fail(error);
  return 0;
}

// Test helpers: the top-left W x H of an image as PNM; whether two images
// hold the same samples (the first difference on stderr).
int Crop(const std::string& in, const std::string& out, int w, int h, bool wide) {
  rvtjpeg::Image src, dst;
  std::string error;
  if (!rvtjpeg::ReadImage(in, &src, &error)) return Fail(error);
  if (w < 1 || h < 1 || w > src.width || h > src.height) return Fail("crop larger than the image");
  if (wide) {  // 16 bits: each sample times 257, low bits stirred
    rvtjpeg::Image16 d;
    d.width = w;
    d.height = h;
    d.channels = src.channels;
    d.precision = 16;
    for (int y = 0; y < h; ++y) {
      for (int i = 0; i < w * src.channels; ++i) {
        d.samples.push_back(uint16_t(std::min(65535, src.row(y)[i] * 257 + (i * 7 + y * 13) % 200)));
      }
    }
    if (!rvtjpeg::WriteImage16(out, d, &error)) return Fail(error);
    return 0;
  }
  dst.Resize(w, h, src.channels);
  for (int y = 0; y < h; ++y) {
    for (size_t i = 0; i < size_t(w) * src.channels; ++i) dst.row(y)[i] = src.row(y)[i];
  }
  if (!rvtjpeg::WritePnm(out, dst, &error)) return Fail(error);
  return 0;
}

// Bench helper: a W x H image filled with the source mirrored back and
// forth, so a small photo stands in for a large one without seams.
int Tile(const std::string& in, const std::string& out, int w, int h) {
  rvtjpeg::Image src, dst;
  std::string error;
  if (!rvtjpeg::ReadImage(in, &src, &error)) return Fail(error);
  if (w < 1 || h < 1 || w > 1 << 15 || h > 1 << 15) return Fail("tile size out of range");
  auto mirror = [](int v, int n) {
    v %= 2 * n;
    return v < n ? v : 2 * n - 1 - v;
  };
  dst.Resize(w, h, src.channels);
  for (int y = 0; y < h; ++y) {
    const uint8_t* s = src.row(mirror(y, src.height));
    for (int x = 0; x < w; ++x) {
      const int sx = mirror(x, src.width);
      for (int c = 0; c < src.channels; ++c) dst.row(y)[size_t(x) * src.channels + c] = s[size_t(sx) * src.channels + c];
    }
  }
  if (!rvtjpeg::WritePnm(out, dst, &error)) return Fail(error);
  return 0;
}

// JxrDecApp writes 16-bit PNM samples little-endian (and grey ones under a
// "P6" header): B's samples are taken as they lie after its header.
int CompareLe(const std::string& a, const std::string& b) {
  rvtjpeg::Image16 x;
  std::vector<uint8_t> raw;
  std::string error;
  if (!rvtjpeg::ReadImage16(a, &x, &error) || !rvtjpeg::ReadFile(b, &raw, &error)) return Fail(error);
  size_t at = 0;
  for (int fields = 0; fields < 4 && at < raw.size(); ++fields) {  // magic, width, height, maxval
    while (at < raw.size() && !std::isspace(raw[at])) ++at;
    while (fields < 3 && at < raw.size() && std::isspace(raw[at])) ++at;
  }
  ++at;
  if (raw.size() < at || raw.size() - at != x.samples.size() * 2) return Fail("shapes differ");
  for (size_t i = 0; i < x.samples.size(); ++i) {
    const unsigned v = raw[at + 2 * i] | raw[at + 2 * i + 1] << 8;
    if (x.samples[i] != v) {
      std::fprintf(stderr, "first difference at sample %zu: %u vs %u\n", i, x.samples[i], v);
      return 1;
    }
  }
  return 0;
}

int Compare(const std::string& a, const std::string& b) {
  rvtjpeg::Image16 x, y;
  std::string error;
  if (!rvtjpeg::ReadImage16(a, &x, &error) || !rvtjpeg::ReadImage16(b, &y, &error)) return Fail(error);
  if (x.width != y.width || x.height != y.height || x.channels != y.channels) return Fail("shapes differ");
  for (size_t i = 0; i < x.samples.size(); ++i) {
    if (x.samples[i] != y.samples[i]) {
      const size_t px = i / size_t(x.channels);
      std::fprintf(stderr, "first difference at x %zu y %zu channel %zu: %u vs %u\n", px % size_t(x.width),
                   px / size_t(x.width), i % size_t(x.channels), x.samples[i], y.samples[i]);
      return 1;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 3 && args[0] == "decode") return Decode(args[1], args[2]);
  if ((args.size() == 5 || (args.size() == 6 && args[5] == "16")) && args[0] == "crop") {
    return Crop(args[1], args[2], std::atoi(args[3].c_str()), std::atoi(args[4].c_str()), args.size() == 6);
  }
  if (args.size() == 3 && args[0] == "compare-le") return CompareLe(args[1], args[2]);
  if (args.size() == 5 && args[0] == "tile") return Tile(args[1], args[2], std::atoi(args[3].c_str()), std::atoi(args[4].c_str()));
  if (args.size() == 3 && args[0] == "compare") return Compare(args[1], args[2]);
  if (args.size() >= 3 && args[0] == "encode") return Encode(args);
  std::fprintf(stderr, "usage: rvtjxr decode IN.jxr OUT | rvtjxr encode IN OUT.jxr [options]\n");
  return 2;
}
