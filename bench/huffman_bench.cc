// Baseline Huffman coding of a 3840x2160 4:2:0 frame of real coefficients
// (the blocks of the test photos, tiled), every compiled path of the block
// encoder and decoder, next to libjpeg-turbo coding the same frame: reading
// the coefficients of its JPEG (jpeg_read_coefficients) and transcoding it
// as jpegtran does (read, then jpeg_write_coefficients with the same
// tables).  Throughput is counted in coefficient bytes (128 per block).
// The block coders run once per block; the run coders once per MCU row
// (HuffEncode4K_Rows, HuffDecode4K_Rows).  Before the timed runs, every decoder path is also
// timed per MCU row, the least of several repeats summed over the rows
// ("row-min"): on a busy machine that figure moves least between runs.
// The run decoder also decodes the same photos as a 4:4:4 frame
// (HuffDecode4K444_Rows, against libjpeg-turbo reading its 4:4:4 JPEG),
// and the run encoder encodes it (HuffEncode4K444_Rows); the encode
// comparison puts both samplings against libjpeg-turbo's
// jpeg_write_coefficients of the same coefficients, with the run encoder's
// per-row minimum beside its whole-frame time (RVT_HUFFBENCH_ONCE=cmp
// prints that comparison alone).
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <jpeglib.h>

#include "bench_util.h"
#include "huffman_util.h"
#include "jpeg_oracle.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160;
constexpr int kMcuX = kW / 16, kMcuY = kH / 16;

struct Frame {
  // Blocks in coding order: per MCU four luma blocks, then Cb, then Cr
  // (4:2:0), or one of each (4:4:4).
  int mcux = 0, mcuy = 0, bpm = 0;  // MCUs across and down, blocks per MCU
  std::vector<int16_t> blocks;
  std::vector<int> comp;  // component of each block
  std::vector<uint8_t> jpeg;  // the frame as libjpeg-turbo writes it
  size_t nblocks() const { return comp.size(); }
};

// A mosaic of the photos' blocks: 128x128-block tiles, each from one photo,
// repeated across the plane.
struct Mosaic {
  std::vector<const test::CoefPlane*> planes;
  const int16_t* at(int bx, int by) const {
    const test::CoefPlane& p = *planes[size_t((bx / 128 + by / 128) % int(planes.size()))];
    return p.block(bx % p.real_wb, by % p.real_hb);
  }
};

Frame MakeFrame(bool s444) {
  {
    static std::vector<test::Coefs> photos;
    if (photos.empty()) {
      for (const char* name : {"hubble_deep_field.jpg", "retina.jpg", "rocket.jpg"}) {
        photos.push_back(test::ReadCoefficients(test::ReadFile(test::TestFile(name))));
      }
    }
    Mosaic luma, chroma[2];
    for (const auto& p : photos) {
      luma.planes.push_back(&p.planes[0]);
      chroma[0].planes.push_back(&p.planes[1]);
      chroma[1].planes.push_back(&p.planes[2]);
    }
    Frame fr;
    fr.mcux = s444 ? kW / 8 : kMcuX;
    fr.mcuy = s444 ? kH / 8 : kMcuY;
    fr.bpm = s444 ? 3 : 6;
    auto add = [&](const int16_t* b, int c) {
      fr.blocks.insert(fr.blocks.end(), b, b + 64);
      fr.comp.push_back(c);
    };
    for (int my = 0; my < fr.mcuy; ++my) {
      for (int mx = 0; mx < fr.mcux; ++mx) {
        if (s444) {
          add(luma.at(mx, my), 0);
        } else {
          for (int i = 0; i < 4; ++i) add(luma.at(2 * mx + (i & 1), 2 * my + (i >> 1)), 0);
        }
        add(chroma[0].at(mx, my), 1);
        add(chroma[1].at(mx, my), 2);
      }
    }
    // The same frame written by libjpeg-turbo with its default tables.
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = kW;
    c.image_height = kH;
    c.input_components = 3;
    c.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&c);
    if (s444) c.comp_info[0].h_samp_factor = c.comp_info[0].v_samp_factor = 1;
    jvirt_barray_ptr arrays[3];
    for (int ci = 0; ci < 3; ++ci) {
      const int wb = ci == 0 || s444 ? kW / 8 : kW / 16, hb = ci == 0 || s444 ? kH / 8 : kH / 16;
      arrays[ci] = (*c.mem->request_virt_barray)(reinterpret_cast<j_common_ptr>(&c), JPOOL_IMAGE,
                                                 TRUE, JDIMENSION(wb), JDIMENSION(hb),
                                                 JDIMENSION(c.comp_info[ci].v_samp_factor));
    }
    jpeg_write_coefficients(&c, arrays);
    size_t k = 0;
    for (int my = 0; my < fr.mcuy; ++my) {
      JBLOCKARRAY rows[3];
      rows[0] = (*c.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&c), arrays[0],
                                             JDIMENSION(s444 ? my : 2 * my), s444 ? 1 : 2, TRUE);
      for (int ci = 1; ci < 3; ++ci) {
        rows[ci] = (*c.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&c), arrays[ci],
                                                JDIMENSION(my), 1, TRUE);
      }
      for (int mx = 0; mx < fr.mcux; ++mx) {
        for (int i = 0; i < fr.bpm; ++i, ++k) {
          JCOEF* dst = s444 ? rows[i][0][mx]
                            : i < 4 ? rows[0][i >> 1][2 * mx + (i & 1)] : rows[i - 3][0][mx];
          for (int j = 0; j < 64; ++j) dst[j] = fr.blocks[k * 64 + size_t(j)];
        }
      }
    }
    jpeg_finish_compress(&c);
    fr.jpeg.assign(out, out + size);
    jpeg_destroy_compress(&c);
    free(out);
    return fr;
  }
}

// The 4:2:0 frame, or the same photos as a 4:4:4 frame.
const Frame& TheFrame(bool s444 = false) {
  static const Frame f420 = MakeFrame(false);
  if (!s444) return f420;
  static const Frame f444 = MakeFrame(true);
  return f444;
}

struct Tables {
  test::EncSpec edc[2] = {test::EncSpec(test::LumaDc()), test::EncSpec(test::ChromaDc())};
  test::EncSpec eac[2] = {test::EncSpec(test::LumaAc()), test::EncSpec(test::ChromaAc())};
  test::DecSpec ddc[2] = {test::DecSpec(test::LumaDc()), test::DecSpec(test::ChromaDc())};
  test::DecSpec dac[2] = {test::DecSpec(test::LumaAc()), test::DecSpec(test::ChromaAc())};
};
const Tables& TheTables() {
  static const Tables t;
  return t;
}

using EncFn = decltype(&rvtiEncodeHuffman8x8_JPEG_16s1u_C1);
using DecFn = decltype(&rvtiDecodeHuffman8x8_JPEG_1u16s_C1);

int EncodeFrame(EncFn fn, std::vector<uint8_t>& out, bool s444 = false) {
  const Frame& f = TheFrame(s444);
  const Tables& t = TheTables();
  EncodeHuffmanState st;
  rvtiEncodeHuffmanStateInit_JPEG_8u(&st);
  int16_t dc[3] = {0, 0, 0};
  int pos = 0;
  const int len = int(out.size());
  for (size_t i = 0; i < f.nblocks(); ++i) {
    const int c = f.comp[i], k = c ? 1 : 0;
    fn(&f.blocks[i * 64], out.data(), len, &pos, &dc[c], &t.edc[k].spec, &t.eac[k].spec, &st, 0);
  }
  fn(nullptr, out.data(), len, &pos, nullptr, nullptr, nullptr, &st, 1);
  return pos;
}

// Coefficient rows on 64-byte boundaries, as a codec keeps them (the run
// decoder zeroes each block with whole-line stores).
using Coefs = std::vector<int16_t, test::Aligned64<int16_t>>;
bool SameBlocks(const Coefs& a, const std::vector<int16_t>& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}

// Decodes the frame into `out`: all blocks, or (ring) a window of 6 blocks,
// one MCU, as a decoder that hands each MCU on to the inverse DCT does.
void DecodeFrame(DecFn fn, const std::vector<uint8_t>& in, int len, std::vector<int16_t>& out,
                 bool ring = false) {
  const Frame& f = TheFrame();
  const Tables& t = TheTables();
  DecodeHuffmanState st;
  rvtiDecodeHuffmanStateInit_JPEG_8u(&st);
  int16_t dc[3] = {0, 0, 0};
  int pos = 0, marker = 0;
  for (size_t i = 0; i < f.nblocks(); ++i) {
    const int c = f.comp[i], k = c ? 1 : 0;
    fn(in.data(), len, &pos, &out[(ring ? i % 6 : i) * 64], &dc[c], &marker, &t.ddc[k].spec,
       &t.dac[k].spec, &st);
  }
}

// The component of each block of an MCU.
const int* McuPattern(bool s444) {
  static const int c420[6] = {0, 0, 0, 0, 1, 2}, c444[3] = {0, 1, 2};
  return s444 ? c444 : c420;
}

// The same frame, one MCU row (240 MCUs of 6 blocks, or 480 of 3) per call
// of the run decoder, or `rows` MCU rows a call (the whole frame in one
// call when rows >= 135, as a decoder of a frame without restart markers
// may do).
using RunFn = decltype(&rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1);
void DecodeFrameRows(RunFn fn, const std::vector<uint8_t>& in, int len, Coefs& out,
                     bool s444 = false, int rows = 1) {
  const Frame& f = TheFrame(s444);
  const Tables& t = TheTables();
  DecodeHuffmanState st;
  rvtiDecodeHuffmanStateInit_JPEG_8u(&st);
  int16_t dc[4] = {0, 0, 0, 0};
  int pos = 0, marker = 0, ndone = 0;
  const DecodeHuffmanSpec* dcs[4] = {&t.ddc[0].spec, &t.ddc[1].spec, &t.ddc[1].spec, nullptr};
  const DecodeHuffmanSpec* acs[4] = {&t.dac[0].spec, &t.dac[1].spec, &t.dac[1].spec, nullptr};
  const size_t row = size_t(f.mcux) * size_t(f.bpm) * 64;
  for (int my = 0; my < f.mcuy; my += rows) {
    const int n = std::min(rows, f.mcuy - my);
    fn(in.data(), len, &pos, &out[size_t(my) * row], f.mcux * n, McuPattern(s444), f.bpm, dc,
       &marker, dcs, acs, &st, nullptr, &ndone);
  }
}

// The frame encoded one MCU row (240 MCUs of 6 blocks, or 480 of 3) per
// call of the run encoder, flushed at the end as the block encoder's frame
// is.
using EncRunFn = decltype(&rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1);
int EncodeFrameRows(EncRunFn fn, std::vector<uint8_t>& out, bool s444 = false) {
  const Frame& f = TheFrame(s444);
  const Tables& t = TheTables();
  EncodeHuffmanState st;
  rvtiEncodeHuffmanStateInit_JPEG_8u(&st);
  const EncodeHuffmanSpec* dcs[4] = {&t.edc[0].spec, &t.edc[1].spec, &t.edc[1].spec, nullptr};
  const EncodeHuffmanSpec* acs[4] = {&t.eac[0].spec, &t.eac[1].spec, &t.eac[1].spec, nullptr};
  int16_t dc[4] = {0, 0, 0, 0};
  int pos = 0, ndone = 0;
  const int len = int(out.size());
  const size_t row = size_t(f.mcux) * size_t(f.bpm) * 64;
  for (int my = 0; my < f.mcuy; ++my) {
    fn(&f.blocks[size_t(my) * row], out.data(), len, &pos, f.mcux, McuPattern(s444), f.bpm, dc,
       dcs, acs, &st, &ndone);
  }
  rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, out.data(), len, &pos, nullptr, nullptr, nullptr,
                                     &st, 1);
  return pos;
}

double CoefBytes() { return double(TheFrame().nblocks()) * 128.0; }

// Time per iteration is time per frame; throughput in coefficient bytes and
// in blocks.
void Report(benchmark::State& s) {
  s.SetBytesProcessed(int64_t(double(s.iterations()) * CoefBytes()));
  s.counters["blocks_per_s"] = benchmark::Counter(
      double(s.iterations()) * double(TheFrame().nblocks()), benchmark::Counter::kIsRate);
}

// Entropy-coded data of libjpeg-turbo's frame: our encoder must give the
// same bytes (same tables, same coefficients).
std::vector<uint8_t> LibjpegScanData(bool s444 = false) {
  const test::JpegScan scan = test::ParseJpeg(TheFrame(s444).jpeg);
  return std::vector<uint8_t>(scan.bytes.begin() + long(scan.data_start), scan.bytes.end() - 2);
}

// libjpeg-turbo writes the coefficients it read to memory with the same
// tables and sampling, and frees the result.
void WriteCoefsOnce(jpeg_decompress_struct& d, jvirt_barray_ptr* arrays) {
  jpeg_compress_struct c;
  jpeg_error_mgr cerr;
  c.err = jpeg_std_error(&cerr);
  jpeg_create_compress(&c);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &out, &size);
  jpeg_copy_critical_parameters(&d, &c);
  jpeg_write_coefficients(&c, arrays);
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  benchmark::DoNotOptimize(out);
  free(out);
}

void ReadCoefsOnce(const std::vector<uint8_t>& jpeg, bool transcode = false) {
  jpeg_decompress_struct d;
  jpeg_error_mgr err;
  d.err = jpeg_std_error(&err);
  jpeg_create_decompress(&d);
  jpeg_mem_src(&d, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
  jpeg_read_header(&d, TRUE);
  jvirt_barray_ptr* arrays = jpeg_read_coefficients(&d);
  if (transcode) WriteCoefsOnce(d, arrays);
  jpeg_finish_decompress(&d);
  jpeg_destroy_decompress(&d);
}

// Least time of libjpeg-turbo's jpeg_write_coefficients (to memory, the
// tables and sampling of the JPEG) of the coefficients read once from it.
double LibjpegWriteMs(const std::vector<uint8_t>& jpeg);

// Least time per MCU row over repeats, summed over the rows: on a shared
// machine the least of many short runs is the one nothing interrupted.
template <class Body>
double RowMinMs(Body body, int repeats = 9) {
  double total = 0;
  for (int my = 0; my < kMcuY; ++my) {
    double best = 1e30;
    for (int r = 0; r < repeats; ++r) {
      const auto t0 = std::chrono::steady_clock::now();
      body(my);
      const auto t1 = std::chrono::steady_clock::now();
      best = std::min(best, std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    total += best;
  }
  return total;
}

// This thread's processor time in ms: on a machine shared with other jobs
// a whole frame is rarely left alone for its wall time.
double ThreadMs() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) * 1e-6;
}

// Least of several whole-frame runs, in ms of this thread's processor time.
template <class Body>
double MinMs(Body body, int repeats = 7) {
  double best = 1e30;
  for (int r = 0; r < repeats; ++r) {
    const double t0 = ThreadMs();
    body();
    best = std::min(best, ThreadMs() - t0);
  }
  return best;
}

double LibjpegWriteMs(const std::vector<uint8_t>& jpeg) {
  jpeg_decompress_struct d;
  jpeg_error_mgr err;
  d.err = jpeg_std_error(&err);
  jpeg_create_decompress(&d);
  jpeg_mem_src(&d, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
  jpeg_read_header(&d, TRUE);
  jvirt_barray_ptr* arrays = jpeg_read_coefficients(&d);
  const double ms = MinMs([&] { WriteCoefsOnce(d, arrays); });
  jpeg_finish_decompress(&d);
  jpeg_destroy_decompress(&d);
  return ms;
}

// Encoding in one run, per sampling: the block encoder (4:2:0 only), the
// run encoder (one call per MCU row) and libjpeg-turbo writing the
// coefficients it read from its own JPEG (jpeg_write_coefficients to
// memory, as jpegtran does), each the least of several frames.
void PrintEncodeComparison() {
  for (const bool s444 : {false, true}) {
    const Frame& f = TheFrame(s444);
    std::vector<uint8_t> out(f.nblocks() * 200);
    const auto lj = LibjpegScanData(s444);
    const int n = EncodeFrameRows(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1, out, s444);
    const bool same = size_t(n) == lj.size() && std::equal(lj.begin(), lj.end(), out.begin());
    const double run =
        MinMs([&] { EncodeFrameRows(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1, out, s444); });
    const double write = LibjpegWriteMs(f.jpeg);
    // Per MCU row the least of several calls from the row's starting
    // state, summed over the rows.
    double rowmin = 0;
    {
      const Tables& t = TheTables();
      EncodeHuffmanState st;
      rvtiEncodeHuffmanStateInit_JPEG_8u(&st);
      const EncodeHuffmanSpec* dcs[4] = {&t.edc[0].spec, &t.edc[1].spec, &t.edc[1].spec, nullptr};
      const EncodeHuffmanSpec* acs[4] = {&t.eac[0].spec, &t.eac[1].spec, &t.eac[1].spec, nullptr};
      int16_t dc[4] = {0, 0, 0, 0};
      int pos = 0, ndone = 0;
      const size_t row = size_t(f.mcux) * size_t(f.bpm) * 64;
      for (int my = 0; my < f.mcuy; ++my) {
        const EncodeHuffmanState st0 = st;
        const int pos0 = pos;
        int16_t dc0[4];
        std::memcpy(dc0, dc, sizeof dc);
        double best = 1e30;
        for (int r = 0; r < 9; ++r) {
          st = st0;
          pos = pos0;
          std::memcpy(dc, dc0, sizeof dc);
          const auto t0 = std::chrono::steady_clock::now();
          rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1(&f.blocks[size_t(my) * row], out.data(),
                                                   int(out.size()), &pos, f.mcux,
                                                   McuPattern(s444), f.bpm, dc, dcs, acs, &st,
                                                   &ndone);
          const auto t1 = std::chrono::steady_clock::now();
          best = std::min(best, std::chrono::duration<double, std::milli>(t1 - t0).count());
        }
        rowmin += best;
      }
    }
    const char* name = s444 ? "4:4:4" : "4:2:0";
    std::printf("encode 4K %s: run encoder row-min %.2f ms\n", name, rowmin);
    std::printf("encode %s run scan %s libjpeg-turbo's\n", name,
                same ? "identical to" : "DIFFERENT from");
    if (!s444) {
      const double block = MinMs([&] { EncodeFrame(rvtiEncodeHuffman8x8_JPEG_16s1u_C1, out); });
      std::printf("encode 4K 4:2:0: block encoder %.2f ms, run/block %.2fx, "
                  "libjpeg-turbo/block %.2fx\n", block, block / run, write / block);
    }
    std::printf("encode 4K %s: run encoder %.2f ms, libjpeg-turbo jpeg_write_coefficients "
                "%.2f ms, libjpeg-turbo/run %.2fx\n", name, run, write, write / run);
  }
}

void PrintRowMins() {
  std::vector<uint8_t> in(TheFrame().nblocks() * 200);
  const int len = EncodeFrame(test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in);
  const Tables& t = TheTables();
  // The decoder's state at the start of each MCU row, from one careful pass.
  struct RowStart {
    int pos;
    DecodeHuffmanState st;
    int16_t dc[4];
  };
  std::vector<RowStart> starts;
  {
    RowStart r{0, {}, {0, 0, 0, 0}};
    rvtiDecodeHuffmanStateInit_JPEG_8u(&r.st);
    int marker = 0;
    int16_t blk[64];
    size_t i = 0;
    for (int my = 0; my < kMcuY; ++my) {
      starts.push_back(r);
      for (int b = 0; b < kMcuX * 6; ++b, ++i) {
        const int c = TheFrame().comp[i], k = c ? 1 : 0;
        rvtiDecodeHuffman8x8_JPEG_1u16s_C1(in.data(), len, &r.pos, blk, &r.dc[c], &marker,
                                           &t.ddc[k].spec, &t.dac[k].spec, &r.st);
      }
    }
  }
  Coefs out(size_t(kMcuX) * 6 * 64);
  for (const auto& tg : test::AllTargets(impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1)) {
    const double ms = RowMinMs([&](int my) {
      RowStart r = starts[size_t(my)];
      int marker = 0;
      size_t i = size_t(my) * kMcuX * 6;
      for (int b = 0; b < kMcuX * 6; ++b, ++i) {
        const int c = TheFrame().comp[i], k = c ? 1 : 0;
        tg.fn(in.data(), len, &r.pos, &out[size_t(b) * 64], &r.dc[c], &marker, &t.ddc[k].spec,
              &t.dac[k].spec, &r.st);
      }
    });
    std::printf("row-min HuffDecode4K/%s %.2f ms\n", tg.name, ms);
  }
  for (const auto& tg : test::AllTargets(impl_rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1)) {
    static const int comp[6] = {0, 0, 0, 0, 1, 2};
    const DecodeHuffmanSpec* dcs[4] = {&t.ddc[0].spec, &t.ddc[1].spec, &t.ddc[1].spec, nullptr};
    const DecodeHuffmanSpec* acs[4] = {&t.dac[0].spec, &t.dac[1].spec, &t.dac[1].spec, nullptr};
    const double ms = RowMinMs([&](int my) {
      RowStart r = starts[size_t(my)];
      int marker = 0, n = 0;
      tg.fn(in.data(), len, &r.pos, out.data(), kMcuX, comp, 6, r.dc, &marker, dcs, acs, &r.st,
            nullptr, &n);
    });
    std::printf("row-min HuffDecode4K_Rows/%s %.2f ms\n", tg.name, ms);
  }
}

// Decoding in one run, per sampling: the run decoder (one call per MCU row,
// the dispatched target) against libjpeg-turbo's jpeg_read_coefficients,
// each the least of several frames.
void PrintDecodeComparison() {
  for (const bool s444 : {false, true}) {
    const Frame& f = TheFrame(s444);
    std::vector<uint8_t> in(f.nblocks() * 200);
    const int len = EncodeFrame(test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in, s444);
    Coefs out(f.blocks.size());
    const double ours = MinMs([&] {
      DecodeFrameRows(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1, in, len, out, s444);
    });
    bool same = SameBlocks(out, f.blocks);
    const double whole = MinMs([&] {
      DecodeFrameRows(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1, in, len, out, s444, f.mcuy);
    });
    same = same && SameBlocks(out, f.blocks);
    const double lj = MinMs([&] { ReadCoefsOnce(f.jpeg); });
    std::printf("decode 4K %s: run decoder %.2f ms%s (whole frame in one call %.2f ms), "
                "libjpeg-turbo read %.2f ms, libjpeg-turbo/run %.2fx\n",
                s444 ? "4:4:4" : "4:2:0", ours, same ? "" : " (DIFFERENT blocks)", whole, lj,
                lj / ours);
  }
}

// RVT_HUFFBENCH_ONCE=420 (or 444, or both): decode the frame once with the
// run decoder and stop (for instruction counts under cachegrind); with
// "enc" in the value, encode it once with the run encoder instead;
// RVT_HUFFBENCH_ONCE=cmp prints the encode comparison alone.
void DecodeOnceAndExit(const char* which) {
  if (std::strcmp(which, "cmp") == 0) {
    PrintEncodeComparison();
    std::exit(0);
  }
  const bool enc = std::strstr(which, "enc") != nullptr;
  for (const bool s444 : {false, true}) {
    if (!std::strstr(which, s444 ? "444" : "420")) continue;
    const Frame& f = TheFrame(s444);
    std::vector<uint8_t> in(f.nblocks() * 200);
    if (enc) {
      const int n = EncodeFrameRows(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1, in, s444);
      const auto lj = LibjpegScanData(s444);
      std::printf("%s encoded %s\n", s444 ? "4:4:4" : "4:2:0",
                  size_t(n) == lj.size() && std::equal(lj.begin(), lj.end(), in.begin())
                      ? "identical"
                      : "DIFFERENT");
      continue;
    }
    const int len = EncodeFrame(test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in, s444);
    Coefs out(f.blocks.size());
    DecodeFrameRows(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1, in, len, out, s444);
    std::printf("%s decoded %s\n", s444 ? "4:4:4" : "4:2:0",
                SameBlocks(out, f.blocks) ? "identical" : "DIFFERENT");
  }
  std::exit(0);
}

int Register() {
  if (const char* e = std::getenv("RVT_HUFFBENCH_ONCE")) DecodeOnceAndExit(e);
  const double mb = CoefBytes() / 1e6;
  std::printf("frame: %dx%d 4:2:0, %zu blocks, %.1f MB of coefficients; libjpeg-turbo JPEG %zu bytes\n",
              kW, kH, TheFrame().nblocks(), mb, TheFrame().jpeg.size());
  {
    std::vector<uint8_t> out(TheFrame().nblocks() * 200);
    const int n = EncodeFrame(test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), out);
    const auto lj = LibjpegScanData();
    std::printf("our scan %d bytes, libjpeg-turbo's %zu bytes, %s\n", n, lj.size(),
                (size_t(n) == lj.size() && std::equal(lj.begin(), lj.end(), out.begin()))
                    ? "identical"
                    : "DIFFERENT");
  }
  PrintRowMins();
  PrintDecodeComparison();
  PrintEncodeComparison();
  bench::RegisterTargets("HuffEncode4K", impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1,
                         [](benchmark::State& s, EncFn fn) {
                           std::vector<uint8_t> out(TheFrame().nblocks() * 200);
                           bench::LoopTimer timer;
                           for (auto _ : s) {
                             benchmark::DoNotOptimize(EncodeFrame(fn, out));
                             benchmark::ClobberMemory();
                           }
                           Report(s);
                         });
  bench::RegisterTargets("HuffEncode4K_Rows", impl_rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1,
                         [](benchmark::State& s, EncRunFn fn) {
                           std::vector<uint8_t> out(TheFrame().nblocks() * 200);
                           for (auto _ : s) {
                             benchmark::DoNotOptimize(EncodeFrameRows(fn, out));
                             benchmark::ClobberMemory();
                           }
                           Report(s);
                         });
  bench::RegisterTargets("HuffEncode4K444_Rows", impl_rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1,
                         [](benchmark::State& s, EncRunFn fn) {
                           const Frame& f = TheFrame(true);
                           std::vector<uint8_t> out(f.nblocks() * 200);
                           for (auto _ : s) {
                             benchmark::DoNotOptimize(EncodeFrameRows(fn, out, true));
                             benchmark::ClobberMemory();
                           }
                           s.SetBytesProcessed(int64_t(double(s.iterations()) *
                                                       double(f.nblocks()) * 128.0));
                         });
  bench::RegisterTargets("HuffDecode4K", impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1,
                         [](benchmark::State& s, DecFn fn) {
                           std::vector<uint8_t> in(TheFrame().nblocks() * 200);
                           const int len = EncodeFrame(
                               test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in);
                           std::vector<int16_t> out(TheFrame().blocks.size());
                           bench::LoopTimer timer;
                           for (auto _ : s) {
                             DecodeFrame(fn, in, len, out);
                             benchmark::ClobberMemory();
                           }
                           if (out != TheFrame().blocks) s.SkipWithError("decoded frame differs");
                           Report(s);
                         });
  bench::RegisterTargets("HuffDecode4K_MCU", impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1,
                         [](benchmark::State& s, DecFn fn) {
                           std::vector<uint8_t> in(TheFrame().nblocks() * 200);
                           const int len = EncodeFrame(
                               test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in);
                           std::vector<int16_t> out(6 * 64);
                           for (auto _ : s) {
                             DecodeFrame(fn, in, len, out, true);
                             benchmark::ClobberMemory();
                           }
                           Report(s);
                         });
  bench::RegisterTargets("HuffDecode4K_Rows", impl_rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1,
                         [](benchmark::State& s, RunFn fn) {
                           std::vector<uint8_t> in(TheFrame().nblocks() * 200);
                           const int len = EncodeFrame(
                               test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in);
                           Coefs out(TheFrame().blocks.size());
                           for (auto _ : s) {
                             DecodeFrameRows(fn, in, len, out);
                             benchmark::ClobberMemory();
                           }
                           if (!SameBlocks(out, TheFrame().blocks)) s.SkipWithError("decoded frame differs");
                           Report(s);
                         });
  bench::RegisterTargets("HuffDecode4K444_Rows", impl_rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1,
                         [](benchmark::State& s, RunFn fn) {
                           const Frame& f = TheFrame(true);
                           std::vector<uint8_t> in(f.nblocks() * 200);
                           const int len = EncodeFrame(
                               test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1), in, true);
                           Coefs out(f.blocks.size());
                           for (auto _ : s) {
                             DecodeFrameRows(fn, in, len, out, true);
                             benchmark::ClobberMemory();
                           }
                           if (!SameBlocks(out, f.blocks)) s.SkipWithError("decoded frame differs");
                           s.SetBytesProcessed(int64_t(double(s.iterations()) *
                                                       double(f.nblocks()) * 128.0));
                         });
  benchmark::RegisterBenchmark("libjpeg_read_coefficients4K444", [](benchmark::State& s) {
    for (auto _ : s) ReadCoefsOnce(TheFrame(true).jpeg);
    s.SetBytesProcessed(int64_t(double(s.iterations()) * double(TheFrame(true).nblocks()) * 128.0));
  });
  benchmark::RegisterBenchmark("libjpeg_read_coefficients4K", [](benchmark::State& s) {
    for (auto _ : s) ReadCoefsOnce(TheFrame().jpeg, false);
    Report(s);
  });
  benchmark::RegisterBenchmark("libjpeg_transcode4K", [](benchmark::State& s) {
    for (auto _ : s) ReadCoefsOnce(TheFrame().jpeg, true);
    Report(s);
  });
  return 0;
}
const int kRegistered = Register();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
