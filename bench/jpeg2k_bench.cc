// JPEG 2000 transforms on a 4K plane (3840 x 2160), every compiled target
// and the reference in one run: one whole 5/3 level in place, ns per sample
// and the speed against a memcpy of the plane (x_memcpy); the 5/3 and float
// 9/7 passes and column lifts per 3840-sample row; the component
// transforms of the plane; the 9/7 whole levels (16s, 32s), passes and
// lifts alike, and the float column passes over 64 band rows.
#include <openjpeg.h>

#include <cstring>

#include "bench_util.h"
#include "jpeg2k/wt53.h"
#include "jpeg2k/wt97.h"

namespace rvt {
namespace {

constexpr int kW = 3840, kH = 2160;

template <class T>
std::vector<T> Random(size_t n, int lo, int hi) {
  test::Rng rng(5);
  std::vector<T> v(n);
  rng.Fill(v.data(), v.size(), T(lo), T(hi));
  return v;
}

void SamplesCounter(benchmark::State& s, const bench::LoopTimer& timer, double samples) {
  s.counters["ns_per_sample"] = timer.NsPerIteration(s) / samples;
}

template <class T, class Fn>
void Level(const std::string& name, const Impl<Fn>& impl, bool d97 = false) {
  bench::RegisterTargets(name, impl, [d97](benchmark::State& s, Fn fn) {
    std::vector<T> plane = Random<T>(size_t(kW) * kH, -255, 255);
    const ImageRect r{0, 0, kW, kH};
    std::vector<uint8_t> buf(d97 ? wt97::BufSizeI(r, sizeof(T)) : wt53::BufSizeI(r, sizeof(T)));
    const size_t bytes = plane.size() * sizeof(T);
    const double mc = bench::MemcpyNs(bytes);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(plane.data(), kW * int32_t(sizeof(T)), &r, buf.data());
      benchmark::ClobberMemory();
    }
    bench::ReportBytes(s, timer, bytes, bytes, mc);
    SamplesCounter(s, timer, double(kW) * kH);
  });
}

// The row permutation that ends every in-place level (interleaved rows to
// low rows first), alone: the floor both the reference and the targets
// pay on a whole level.
template <class T>
void Permute(const std::string& name) {
  benchmark::RegisterBenchmark(name.c_str(), [](benchmark::State& s) {
    std::vector<T> plane = Random<T>(size_t(kW) * kH, -255, 255), tmp(kW);
    const size_t bytes = plane.size() * sizeof(T);
    const double mc = bench::MemcpyNs(bytes);
    bench::LoopTimer timer;
    for (auto _ : s) {
      wt53::PermuteRows(plane.data(), kW * int32_t(sizeof(T)), kW, kH, 0, true, tmp.data());
      benchmark::ClobberMemory();
    }
    bench::ReportBytes(s, timer, bytes, bytes, mc);
    SamplesCounter(s, timer, double(kW) * kH);
  });
}

template <class T, class Fn>
void Pass(const std::string& name, const Impl<Fn>& impl, bool fwd) {
  bench::RegisterTargets(name, impl, [fwd](benchmark::State& s, Fn fn) {
    const int w = kW / 2;
    std::vector<T> a = Random<T>(size_t(kW + 8), -255, 255), b = Random<T>(size_t(kW + 8), -255, 255),
                   c(size_t(kW + 8));
    bench::LoopTimer timer;
    for (auto _ : s) {
      if constexpr (std::is_invocable_v<Fn, const T*, int32_t, T*, int32_t, T*, int32_t, ImageSize, int32_t>) {
        fn(a.data() + 2, 4 * kW, b.data(), 4 * kW, c.data(), 4 * kW, {w, 1}, 0);
      } else {
        fn(a.data() + 1, 4 * kW, b.data() + 1, 4 * kW, {w, 1}, c.data(), 4 * kW, 0);
      }
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, kW);
    (void)fwd;
  });
}

// Column passes: 64 band rows of 3840 columns (128 interleaved rows and
// 4 + 4 border rows).
template <class T, class Fn>
void ColPass(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    constexpr int kBand = 64;
    const int32_t step = kW * int32_t(sizeof(T));
    std::vector<T> src = Random<T>(size_t(kW) * (2 * kBand + 8), -255, 255);
    std::vector<T> a = Random<T>(size_t(kW) * (kBand + 4), -255, 255), b = a;
    std::vector<T> d(size_t(kW) * 2 * kBand);
    bench::LoopTimer timer;
    for (auto _ : s) {
      if constexpr (std::is_invocable_v<Fn, const T*, int32_t, T*, int32_t, T*, int32_t, ImageSize, int32_t>) {
        fn(src.data() + 4 * kW, step, a.data(), step, b.data(), step, {kW, kBand}, 0);
      } else {
        fn(a.data() + 2 * kW, step, b.data() + 2 * kW, step, {kW, kBand}, d.data(), step, 0);
      }
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, double(kW) * 2 * kBand);
  });
}

template <class T, class Fn>
void Lift(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> r[6];
    for (auto& v : r) v = Random<T>(size_t(kW), -255, 255);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(r[0].data(), r[1].data(), r[2].data(), r[3].data(), r[4].data(), r[5].data(), kW);
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, kW);
  });
}

template <class T, class Fn>
void Lift8(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> r[8];
    for (auto& v : r) v = Random<T>(size_t(kW), -255, 255);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(r[0].data(), r[1].data(), r[2].data(), r[3].data(), r[4].data(), r[5].data(), r[6].data(),
         r[7].data(), kW);
      benchmark::ClobberMemory();
    }
    SamplesCounter(s, timer, kW);
  });
}

template <class T, class Fn>
void ComponentsInPlace(const std::string& name, const Impl<Fn>& impl) {
  bench::RegisterTargets(name, impl, [](benchmark::State& s, Fn fn) {
    std::vector<T> p[3];
    for (auto& v : p) v = Random<T>(size_t(kW) * kH, -255, 255);
    T* planes[3] = {p[0].data(), p[1].data(), p[2].data()};
    const size_t bytes = 3 * p[0].size() * sizeof(T);
    const double mc = bench::MemcpyNs(bytes);
    bench::LoopTimer timer;
    for (auto _ : s) {
      fn(planes, kW * int32_t(sizeof(T)), {kW, kH});
      benchmark::ClobberMemory();
    }
    bench::ReportBytes(s, timer, bytes, bytes, mc);
    SamplesCounter(s, timer, double(kW) * kH);
  });
}

// ---------------------------------------------------------------- OpenJPEG
// OpenJPEG's wavelet is internal; it is timed through its public API as
// the difference between encoding (or decoding) one 4K grey tile with 0
// and with 1 decomposition level.  The image is flat (128 at 8 bits, so 0
// after the level shift): code-block coding then finds only zero blocks
// and costs next to nothing, while the wavelet does its full work.
struct MemStream {
  std::vector<uint8_t> data;
  size_t pos = 0;
};
OPJ_SIZE_T MemWrite(void* buf, OPJ_SIZE_T n, void* user) {
  auto* m = static_cast<MemStream*>(user);
  if (m->pos + n > m->data.size()) m->data.resize(m->pos + n);
  std::memcpy(m->data.data() + m->pos, buf, n);
  m->pos += n;
  return n;
}
OPJ_SIZE_T MemRead(void* buf, OPJ_SIZE_T n, void* user) {
  auto* m = static_cast<MemStream*>(user);
  if (m->pos >= m->data.size()) return OPJ_SIZE_T(-1);
  n = std::min(n, m->data.size() - m->pos);
  std::memcpy(buf, m->data.data() + m->pos, n);
  m->pos += n;
  return n;
}
OPJ_OFF_T MemSkip(OPJ_OFF_T n, void* user) {
  auto* m = static_cast<MemStream*>(user);
  m->pos = size_t(OPJ_OFF_T(m->pos) + n);
  if (m->pos > m->data.size()) m->data.resize(m->pos);
  return n;
}
OPJ_BOOL MemSeek(OPJ_OFF_T n, void* user) {
  static_cast<MemStream*>(user)->pos = size_t(n);
  return OPJ_TRUE;
}
opj_stream_t* OpenStream(MemStream* m, bool input) {
  opj_stream_t* st = opj_stream_create(1 << 20, input ? OPJ_TRUE : OPJ_FALSE);
  opj_stream_set_user_data(st, m, nullptr);
  opj_stream_set_user_data_length(st, m->data.size());
  if (input) {
    opj_stream_set_read_function(st, MemRead);
  } else {
    opj_stream_set_write_function(st, MemWrite);
  }
  opj_stream_set_skip_function(st, MemSkip);
  opj_stream_set_seek_function(st, MemSeek);
  return st;
}
bool OpjEncode(bool irreversible, int levels, MemStream* out) {
  opj_image_cmptparm_t cp{};
  cp.dx = cp.dy = 1, cp.w = kW, cp.h = kH, cp.prec = 8, cp.sgnd = 0;
  opj_image_t* img = opj_image_create(1, &cp, OPJ_CLRSPC_GRAY);
  img->x1 = kW, img->y1 = kH;
  for (size_t i = 0; i < size_t(kW) * kH; ++i) img->comps[0].data[i] = 128;
  opj_cparameters_t par;
  opj_set_default_encoder_parameters(&par);
  par.numresolution = levels + 1;
  par.irreversible = irreversible ? 1 : 0;
  par.tcp_numlayers = 1, par.tcp_rates[0] = 0, par.cp_disto_alloc = 1;
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  out->data.clear(), out->pos = 0;
  opj_stream_t* st = OpenStream(out, false);
  const bool ok = opj_setup_encoder(codec, &par, img) && opj_start_compress(codec, img, st) &&
                  opj_encode(codec, st) && opj_end_compress(codec, st);
  opj_stream_destroy(st);
  opj_destroy_codec(codec);
  opj_image_destroy(img);
  out->data.resize(out->pos);
  return ok;
}
bool OpjDecode(MemStream* in) {
  in->pos = 0;
  opj_dparameters_t par;
  opj_set_default_decoder_parameters(&par);
  opj_codec_t* codec = opj_create_decompress(OPJ_CODEC_J2K);
  opj_stream_t* st = OpenStream(in, true);
  opj_image_t* img = nullptr;
  const bool ok = opj_setup_decoder(codec, &par) && opj_read_header(st, codec, &img) &&
                  opj_decode(codec, st, img) && opj_end_decompress(codec, st);
  opj_stream_destroy(st);
  opj_destroy_codec(codec);
  if (img) opj_image_destroy(img);
  return ok;
}
void OpenJpeg(const std::string& name, bool irreversible, int levels, bool decode) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& s) {
    MemStream m;
    if (!OpjEncode(irreversible, levels, &m)) return s.SkipWithError("OpenJPEG encode failed");
    bench::LoopTimer timer;
    for (auto _ : s) {
      if (!(decode ? OpjDecode(&m) : OpjEncode(irreversible, levels, &m)))
        return s.SkipWithError("OpenJPEG failed");
    }
    SamplesCounter(s, timer, double(kW) * kH);
  })->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
}

[[maybe_unused]] const bool kRegistered = [] {
  Level<int16_t>("WTFwd_B53_16s_C1IR_4K", impl_rvtiWTFwd_B53_JPEG2K_16s_C1IR);
  Level<int16_t>("WTInv_B53_16s_C1IR_4K", impl_rvtiWTInv_B53_JPEG2K_16s_C1IR);
  Level<int32_t>("WTFwd_B53_32s_C1IR_4K", impl_rvtiWTFwd_B53_JPEG2K_32s_C1IR);
  Level<int32_t>("WTInv_B53_32s_C1IR_4K", impl_rvtiWTInv_B53_JPEG2K_32s_C1IR);
  Permute<int16_t>("WTPermuteRows_16s_4K");
  Permute<int32_t>("WTPermuteRows_32s_4K");
  Level<int16_t>("WTFwd_D97_16s_C1IR_4K", impl_rvtiWTFwd_D97_JPEG2K_16s_C1IR, true);
  Level<int16_t>("WTInv_D97_16s_C1IR_4K", impl_rvtiWTInv_D97_JPEG2K_16s_C1IR, true);
  Level<int32_t>("WTFwd_D97_32s_C1IR_4K", impl_rvtiWTFwd_D97_JPEG2K_32s_C1IR, true);
  Level<int32_t>("WTInv_D97_32s_C1IR_4K", impl_rvtiWTInv_D97_JPEG2K_32s_C1IR, true);
  Pass<int16_t>("WTFwdRow_B53_16s_row", impl_rvtiWTFwdRow_B53_JPEG2K_16s_C1R, true);
  Pass<int16_t>("WTInvRow_B53_16s_row", impl_rvtiWTInvRow_B53_JPEG2K_16s_C1R, false);
  Pass<int32_t>("WTFwdRow_B53_32s_row", impl_rvtiWTFwdRow_B53_JPEG2K_32s_C1R, true);
  Pass<int32_t>("WTInvRow_B53_32s_row", impl_rvtiWTInvRow_B53_JPEG2K_32s_C1R, false);
  Lift<int16_t>("WTFwdColLift_B53_16s_row", impl_rvtiWTFwdColLift_B53_JPEG2K_16s_C1);
  Lift<int16_t>("WTInvColLift_B53_16s_row", impl_rvtiWTInvColLift_B53_JPEG2K_16s_C1);
  Lift<int32_t>("WTFwdColLift_B53_32s_row", impl_rvtiWTFwdColLift_B53_JPEG2K_32s_C1);
  Lift<int32_t>("WTInvColLift_B53_32s_row", impl_rvtiWTInvColLift_B53_JPEG2K_32s_C1);
  Pass<float>("WTFwdRow_D97_32f_row", impl_rvtiWTFwdRow_D97_JPEG2K_32f_C1R, true);
  Pass<float>("WTInvRow_D97_32f_row", impl_rvtiWTInvRow_D97_JPEG2K_32f_C1R, false);
  ColPass<float>("WTFwdCol_D97_32f_64rows", impl_rvtiWTFwdCol_D97_JPEG2K_32f_C1R);
  ColPass<float>("WTInvCol_D97_32f_64rows", impl_rvtiWTInvCol_D97_JPEG2K_32f_C1R);
  Pass<int16_t>("WTFwdRow_D97_16s_row", impl_rvtiWTFwdRow_D97_JPEG2K_16s_C1R, true);
  Pass<int16_t>("WTInvRow_D97_16s_row", impl_rvtiWTInvRow_D97_JPEG2K_16s_C1R, false);
  Pass<int32_t>("WTFwdRow_D97_32s_row", impl_rvtiWTFwdRow_D97_JPEG2K_32s_C1R, true);
  Pass<int32_t>("WTInvRow_D97_32s_row", impl_rvtiWTInvRow_D97_JPEG2K_32s_C1R, false);
  Lift8<int16_t>("WTFwdColLift_D97_16s_row", impl_rvtiWTFwdColLift_D97_JPEG2K_16s_C1);
  Lift8<int16_t>("WTInvColLift_D97_16s_row", impl_rvtiWTInvColLift_D97_JPEG2K_16s_C1);
  Lift8<int32_t>("WTFwdColLift_D97_32s_row", impl_rvtiWTFwdColLift_D97_JPEG2K_32s_C1);
  Lift8<int32_t>("WTInvColLift_D97_32s_row", impl_rvtiWTInvColLift_D97_JPEG2K_32s_C1);
  Lift8<float>("WTFwdColLift_D97_32f_row", impl_rvtiWTFwdColLift_D97_JPEG2K_32f_C1);
  Lift8<float>("WTInvColLift_D97_32f_row", impl_rvtiWTInvColLift_D97_JPEG2K_32f_C1);
  ComponentsInPlace<int16_t>("RCTFwd_16s_P3IR_4K", impl_rvtiRCTFwd_JPEG2K_16s_P3IR);
  ComponentsInPlace<int16_t>("ICTFwd_16s_P3IR_4K", impl_rvtiICTFwd_JPEG2K_16s_P3IR);
  ComponentsInPlace<int32_t>("ICTFwd_32s_P3IR_4K", impl_rvtiICTFwd_JPEG2K_32s_P3IR);
  ComponentsInPlace<float>("ICTFwd_32f_P3IR_4K", impl_rvtiICTFwd_JPEG2K_32f_P3IR);
  for (int lv : {0, 1}) {
    const std::string l = std::to_string(lv);
    OpenJpeg("OpenJPEG_encode_flat4K_5x3_levels" + l, false, lv, false);
    OpenJpeg("OpenJPEG_decode_flat4K_5x3_levels" + l, false, lv, true);
    OpenJpeg("OpenJPEG_encode_flat4K_9x7_levels" + l, true, lv, false);
    OpenJpeg("OpenJPEG_decode_flat4K_9x7_levels" + l, true, lv, true);
  }
  return true;
}();

}  // namespace
}  // namespace rvt

BENCHMARK_MAIN();
