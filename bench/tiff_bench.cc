// PackBits coding and decoding of whole strips, row by row, against
// libtiff's PackBits codec writing and reading the same strip through an
// in-memory TIFF, in the same run.  Two strips: the rows of a photo
// (coffee.png, RGB, mostly literals) and run-heavy rows (a few flat
// stretches per row, as in scanned documents and masks).
#include <tiffio.h>

#include <cstring>

#include "bench_util.h"
#include "photo.h"

namespace rvt {
namespace {

struct Strip {
  int width = 0, height = 0, channels = 1;
  std::vector<uint8_t> px;      // the rows
  std::vector<uint8_t> packed;  // the rows coded, one after the other
  size_t stride() const { return size_t(width) * size_t(channels); }
};

Strip PhotoStrip() {
  test::Photo p = test::LoadPhoto("coffee.png", 3);
  Strip s{p.width, p.height, 3, p.px, {}};
  return s;
}

Strip RunStrip() {
  Strip s{4096, 512, 1, {}, {}};
  test::Rng rng(3);
  s.px.resize(s.stride() * s.height);
  for (size_t i = 0; i < s.px.size();) {
    const size_t run = size_t(rng.Uniform(1, 400));
    const uint8_t v = uint8_t(rng.Uniform(0, 255));
    for (size_t k = 0; k < run && i < s.px.size(); ++k) s.px[i++] = v;
  }
  return s;
}

void PackAll(Strip& s) {
  s.packed.assign(s.px.size() + s.px.size() / 64 + 64 * size_t(s.height), 0);
  int pos = 0;
  for (int y = 0; y < s.height; ++y) {
    rvtiPackBitsRow_TIFF_8u_C1(s.px.data() + y * s.stride(), int(s.stride()), s.packed.data(), &pos,
                               int(s.packed.size()));
  }
  s.packed.resize(size_t(pos));
}

// ---- libtiff through memory
struct MemFile {
  std::vector<uint8_t> bytes;
  toff_t at = 0;
};
tsize_t MemRead(thandle_t h, tdata_t p, tsize_t n) {
  auto* f = static_cast<MemFile*>(h);
  const size_t k = std::min<size_t>(size_t(n), f->bytes.size() - std::min<size_t>(f->at, f->bytes.size()));
  std::memcpy(p, f->bytes.data() + f->at, k);
  f->at += k;
  return tsize_t(k);
}
tsize_t MemWrite(thandle_t h, tdata_t p, tsize_t n) {
  auto* f = static_cast<MemFile*>(h);
  if (f->bytes.size() < f->at + size_t(n)) f->bytes.resize(f->at + size_t(n));
  std::memcpy(f->bytes.data() + f->at, p, size_t(n));
  f->at += toff_t(n);
  return n;
}
toff_t MemSeek(thandle_t h, toff_t off, int whence) {
  auto* f = static_cast<MemFile*>(h);
  f->at = whence == SEEK_SET ? off : whence == SEEK_CUR ? f->at + off : f->bytes.size() + off;
  return f->at;
}
int MemClose(thandle_t) { return 0; }
toff_t MemSize(thandle_t h) { return static_cast<MemFile*>(h)->bytes.size(); }
int MemMap(thandle_t, tdata_t*, toff_t*) { return 0; }
void MemUnmap(thandle_t, tdata_t, toff_t) {}

TIFF* Open(MemFile& f, const char* mode) {
  return TIFFClientOpen("mem", mode, &f, MemRead, MemWrite, MemSeek, MemClose, MemSize, MemMap,
                        MemUnmap);
}

void WriteTiff(MemFile& f, const Strip& s) {
  f.bytes.clear();
  f.at = 0;
  TIFF* t = Open(f, "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(s.width));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(s.height));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, s.channels);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, s.channels == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(s.height));
  TIFFWriteEncodedStrip(t, 0, const_cast<uint8_t*>(s.px.data()), tmsize_t(s.px.size()));
  TIFFClose(t);
}

void Report(benchmark::State& st, const Strip& s) {
  st.SetBytesProcessed(int64_t(st.iterations()) * int64_t(s.px.size()));
}

template <class Fn>
void Pack(benchmark::State& st, const Strip& s, Fn fn) {
  std::vector<uint8_t> out(s.packed.size() + 64);
  for (auto _ : st) {
    int pos = 0;
    for (int y = 0; y < s.height; ++y) {
      fn(s.px.data() + y * s.stride(), int(s.stride()), out.data(), &pos, int(out.size()));
    }
    benchmark::DoNotOptimize(out.data());
  }
  Report(st, s);
}

void Unpack(benchmark::State& st, const Strip& s) {
  std::vector<uint8_t> out(s.px.size());
  for (auto _ : st) {
    int pos = 0;
    for (int y = 0; y < s.height; ++y) {
      rvtiUnpackBitsRow_TIFF_8u_C1(s.packed.data(), &pos, int(s.packed.size()),
                                   out.data() + y * s.stride(), int(s.stride()));
    }
    benchmark::DoNotOptimize(out.data());
  }
  Report(st, s);
}

// libtiff: the whole file written (tags and the coded strip) per iteration,
// and the strip decoded from an opened file.
void LibtiffPack(benchmark::State& st, const Strip& s) {
  MemFile f;
  for (auto _ : st) WriteTiff(f, s);
  Report(st, s);
}
void LibtiffUnpack(benchmark::State& st, const Strip& s) {
  MemFile f;
  WriteTiff(f, s);
  f.at = 0;
  TIFF* t = Open(f, "r");
  std::vector<uint8_t> out(s.px.size());
  for (auto _ : st) {
    TIFFReadEncodedStrip(t, 0, out.data(), tmsize_t(out.size()));
    benchmark::DoNotOptimize(out.data());
  }
  TIFFClose(t);
  Report(st, s);
}

int Register() {
  TIFFSetWarningHandler(nullptr);
  static Strip strips[2] = {PhotoStrip(), RunStrip()};
  const char* names[2] = {"photo", "runs"};
  for (int i = 0; i < 2; ++i) {
    Strip& s = strips[i];
    if (s.px.empty()) continue;
    PackAll(s);
    const std::string n = names[i];
    bench::RegisterTargets("PackBits/" + n, impl_rvtiPackBitsRow_TIFF_8u_C1,
                           [&s](benchmark::State& st, auto fn) { Pack(st, s, fn); });
    benchmark::RegisterBenchmark(("PackBits/" + n + "/libtiff").c_str(),
                                 [&s](benchmark::State& st) { LibtiffPack(st, s); });
    benchmark::RegisterBenchmark(("UnpackBits/" + n).c_str(),
                                 [&s](benchmark::State& st) { Unpack(st, s); });
    benchmark::RegisterBenchmark(("UnpackBits/" + n + "/libtiff").c_str(),
                                 [&s](benchmark::State& st) { LibtiffUnpack(st, s); });
  }
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
