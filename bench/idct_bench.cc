// Inverse DCT: ns per block of every export on every target, with the
// speed-up over the scalar reference measured in the same run (x_ref), and
// libjpeg-turbo's integer IDCT as a peer: the method its decoder picks on
// this processor (its SIMD code) and its exported C function.
#include <cstdio>

#define JPEG_INTERNALS
#include <jpeglib.h>  // with the internals: the decoder's IDCT method table

#include "bench_util.h"

namespace rvt {
namespace {

constexpr int kBlocks = 64;

struct Data {
  alignas(64) int16_t coef[kBlocks][64];
  alignas(64) uint16_t table[64];
  alignas(64) uint8_t out8[64 * 8];
  alignas(64) uint16_t out16[64 * 8];
  alignas(64) int16_t out16s[64];
};

Data& Blocks() {
  static Data d = [] {
    Data d{};
    test::Rng rng(7);
    for (auto& b : d.coef)
      for (int i = 0; i < 64; ++i) b[i] = int16_t(rng.Uniform(-40, 40) / (1 + i / 8 + i % 8));
    for (int i = 0; i < 64; ++i) d.table[i] = uint16_t(2 + i / 2);
    return d;
  }();
  return d;
}

template <class Body>
double BestNsPerBlock(Body body) {
  double best = 1e300;
  for (int rep = 0; rep < 200; ++rep) {
    const auto t0 = std::chrono::steady_clock::now();
    for (int b = 0; b < kBlocks; ++b) body(b);
    benchmark::ClobberMemory();
    const auto t1 = std::chrono::steady_clock::now();
    best = std::min(best, std::chrono::duration<double, std::nano>(t1 - t0).count() / kBlocks);
  }
  return best;
}

template <class Body>
void Run(benchmark::State& s, Body body, double ref_ns) {
  bench::LoopTimer timer;
  for (auto _ : s) {
    for (int b = 0; b < kBlocks; ++b) body(b);
    benchmark::ClobberMemory();
  }
  const double blocks = double(s.iterations()) * kBlocks;
  s.counters["ns_per_block"] = benchmark::Counter(blocks, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  s.counters["x_ref"] = benchmark::Counter(ref_ns * 1e-9 * blocks, benchmark::Counter::kIsRate);
}

// Registers name/<target> for every target of impl; call(fn, b) runs block b.
template <class Fn, class Call>
void Register(const std::string& name, const Impl<Fn>& impl, Call call) {
  const Fn ref = test::Reference(impl);
  const double ref_ns = BestNsPerBlock([&](int b) { call(ref, b); });
  bench::RegisterTargets(name, impl, [=](benchmark::State& s, Fn fn) {
    Run(s, [&](int b) { call(fn, b); }, ref_ns);
  });
}

// libjpeg-turbo's decoder set up on a tiny grey image, for its IDCT entry.
struct TurboPeer {
  jpeg_decompress_struct cinfo{};
  jpeg_error_mgr err{};
  std::vector<uint8_t> jpeg;
  JSAMPROW rows[8];

  TurboPeer() {
    jpeg_compress_struct c{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* mem = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &mem, &size);
    c.image_width = 8, c.image_height = 8, c.input_components = 1, c.in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(&c);
    jpeg_start_compress(&c, TRUE);
    uint8_t line[8] = {};
    JSAMPROW row = line;
    for (int y = 0; y < 8; ++y) jpeg_write_scanlines(&c, &row, 1);
    jpeg_finish_compress(&c);
    jpeg.assign(mem, mem + size);
    jpeg_destroy_compress(&c);
    free(mem);
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), jpeg.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&cinfo);
    auto* table = static_cast<MULTIPLIER*>(cinfo.comp_info[0].dct_table);
    for (int i = 0; i < 64; ++i) table[i] = MULTIPLIER(Blocks().table[i]);
    for (int y = 0; y < 8; ++y) rows[y] = Blocks().out8 + 8 * y;
  }
};
extern "C" void jpeg_idct_islow(j_decompress_ptr, jpeg_component_info*, JCOEFPTR, JSAMPARRAY, JDIMENSION);

int RegisterAll() {
  Data& d = Blocks();
  using Ls8 = RvtResult (*)(const int16_t*, uint8_t*, int32_t, const uint16_t*);
  auto ls8 = [&d](Ls8 fn, int b) { fn(d.coef[b], d.out8, 8, d.table); };
  Register("Inv8x8LS_16s8u", impl_rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R, ls8);
  Register("Inv8x8LS_1x1_16s8u", impl_rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, ls8);
  Register("Inv8x8LS_2x2_16s8u", impl_rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, ls8);
  Register("Inv8x8LS_4x4_16s8u", impl_rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, ls8);
  Register("Inv8x8To2x2LS_16s8u", impl_rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, ls8);
  Register("Inv8x8To4x4LS_16s8u", impl_rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, ls8);
  Register("Inv8x8LS_16s16u", impl_rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R,
           [&d](RvtResult (*fn)(const int16_t*, uint16_t*, int32_t, const uint16_t*), int b) {
             fn(d.coef[b], d.out16, 16, d.table);
           });
  Register("Inv8x8_16s", impl_rvtiDCTQuantInv8x8_JPEG_16s_C1,
           [&d](RvtResult (*fn)(const int16_t*, int16_t*, const uint16_t*), int b) {
             fn(d.coef[b], d.out16s, d.table);
           });
  Register("Inv8x8_16s_I", impl_rvtiDCTQuantInv8x8_JPEG_16s_C1I,
           [&d](RvtResult (*fn)(int16_t*, const uint16_t*), int b) {
             std::memcpy(d.out16s, d.coef[b], 128);  // the copy is part of every target's time
             fn(d.out16s, d.table);
           });

  // A run of blocks per call, reported per block: 8 blocks side by side,
  // as a component's blocks of an MCU row come to it.
  Register("Inv8x8LSBlocks8_16s8u", impl_rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R,
           [&d](RvtResult (*fn)(const int16_t*, uint8_t*, int32_t, const uint16_t*, int32_t), int b) {
             if (b % 8 == 0) fn(d.coef[b], d.out8, 64, d.table, 8);
           });

  static TurboPeer peer;
  const double ref_ns = BestNsPerBlock([&](int b) { ls8(test::Reference(impl_rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R), b); });
  auto method = peer.cinfo.idct->inverse_DCT[0];
  benchmark::RegisterBenchmark("libjpeg-turbo_islow/decoder_choice", [=, &d](benchmark::State& s) {
    Run(s, [&](int b) { method(&peer.cinfo, &peer.cinfo.comp_info[0], d.coef[b], peer.rows, 0); }, ref_ns);
  });
  benchmark::RegisterBenchmark("libjpeg-turbo_islow/exported_C", [=, &d](benchmark::State& s) {
    Run(s, [&](int b) { jpeg_idct_islow(&peer.cinfo, &peer.cinfo.comp_info[0], d.coef[b], peer.rows, 0); }, ref_ns);
  });
  return 0;
}
const int kRegistered = RegisterAll();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
