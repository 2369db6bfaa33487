// JPEG XR coefficient decoders on hostile input: every colour format, the
// three bands, flexbits inline or apart, trimmed, random coded-block
// patterns or ones decoded from the data against neighbours, contexts built and then patched or moved by earlier
// macroblocks of the same data, truncated buffers.  Every path must return
// a defined status, read nothing outside the buffers, write nothing on
// failure and agree with the reference on statuses, coefficients, positions
// and context.
#include <memory>

#include "fuzz_util.h"
#include "jpegxr/vlc.h"

namespace {

struct Result {
  RvtResult status;
  std::vector<int32_t> coef, patterns;
  VLCState_JPEGXR st;
  int32_t pos, fpos;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Input in(data, size);
  static const int kFormats[][2] = {{0, 1}, {1, 3}, {2, 3}, {3, 3}, {4, 4}, {6, 1}, {6, 5}, {6, 16}};
  const uint8_t mode = in.U8();
  const int* f = kFormats[in.U8() % 8];
  const int band = mode % 3;
  const int mbs = 1 + (mode >> 2) % 4;
  const int trim = in.U8() % 16, scan = in.U8() & 1;
  const bool sep = mode & 0x40;
  const bool coded = band == 2 && (mode & 0x10);  // HP patterns from the data
  VLCState_JPEGXR st0;
  rvt::vlc::InitState(st0, f[0], f[1]);
  if (mode & 0x80) Patch(in, &st0);
  int32_t cbp[16];
  for (int c = 0; c < 16; ++c) cbp[c] = int32_t(in.U32() & 0xFFFF);
  const int32_t pos0 = in.U8() % 8;
  const size_t split = in.U8();
  std::vector<uint8_t> rest = in.Rest();
  const size_t cut = sep ? (split < rest.size() ? split : rest.size()) : 0;
  std::vector<uint8_t> flex(rest.begin(), rest.begin() + long(cut));
  std::vector<uint8_t> src(rest.begin() + long(cut), rest.end());
  // exactly sized copies, so a read past either end is seen
  const int32_t len = int32_t(src.size()), flen = int32_t(flex.size());
  std::unique_ptr<uint8_t[]> s(new uint8_t[src.size() + 1]), fl(new uint8_t[flex.size() + 1]);
  if (len) std::memcpy(s.get(), src.data(), src.size());
  if (flen) std::memcpy(fl.get(), flex.data(), flex.size());

  std::vector<Result> results;
  auto run = [&](auto dc, auto lp, auto hp, auto cb) {
    Result r{rvtStatusOk, std::vector<int32_t>(256 * 16, 7), {}, st0, pos0, 0};
    for (int m = 0; m < mbs && r.status == rvtStatusOk; ++m) {
      std::unique_ptr<int32_t[]> coef(new int32_t[size_t(256 * f[1])]);
      std::memcpy(coef.get(), r.coef.data(), size_t(256 * f[1]) * 4);
      VLCState_JPEGXR before = r.st;
      int32_t p = r.pos;
      const int32_t fp = r.fpos;
      if (band == 0) r.status = dc(s.get(), len, &r.pos, &r.st, coef.get());
      if (band == 1) r.status = lp(s.get(), len, &r.pos, &r.st, coef.get());
      int32_t pat[16];
      std::memcpy(pat, cbp, sizeof pat);
      if (coded) {
        int32_t got[16];
        for (int32_t& g : got) g = -7;
        r.status = cb(s.get(), len, &r.pos, cbp, scan ? cbp : nullptr, &r.st, got);
        for (int c = f[1]; c < 16; ++c) RVT_FUZZ_EXPECT(got[c] == -7);
        if (r.status == rvtStatusOk) {
          std::memcpy(pat, got, sizeof(int32_t) * size_t(f[1]));
          r.patterns.insert(r.patterns.end(), got, got + f[1]);
          before = r.st;  // (what a failing HP band must leave)
          p = r.pos;
        } else {
          RVT_FUZZ_EXPECT(got[0] == -7);
        }
      }
      if (band == 2 && r.status == rvtStatusOk) {
        r.status = hp(s.get(), len, &r.pos, sep ? fl.get() : nullptr, flen, &r.fpos, trim, scan, pat, &r.st,
                      coef.get());
      }
      if (r.status != rvtStatusOk) {
        RVT_FUZZ_EXPECT(std::memcmp(&before, &r.st, sizeof before) == 0);
        RVT_FUZZ_EXPECT(p == r.pos && fp == r.fpos);
        RVT_FUZZ_EXPECT(std::memcmp(coef.get(), r.coef.data(), size_t(256 * f[1]) * 4) == 0);
      }
      std::memcpy(r.coef.data(), coef.get(), size_t(256 * f[1]) * 4);
      if (r.status == rvtStatusOk && (mode & 0x20)) RVT_REF(rvtiVLCAdapt_JPEGXR)(&r.st, 31);
    }
    results.push_back(std::move(r));
  };
  const auto dcs = Paths(rvt::impl_rvtiVLCDecodeDC_JPEGXR_1u32s);
  const auto lps = Paths(rvt::impl_rvtiVLCDecodeLP_JPEGXR_1u32s);
  const auto hps = Paths(rvt::impl_rvtiVLCDecodeHP_JPEGXR_1u32s);
  const auto cbs = Paths(rvt::impl_rvtiVLCDecodeCBPHP_JPEGXR_1u32s);
  for (size_t k = 0; k < dcs.size() && k < lps.size() && k < hps.size() && k < cbs.size(); ++k) {
    run(dcs[k], lps[k], hps[k], cbs[k]);
  }
  for (const Result& r : results) {
    const Result& w = results[0];
    RVT_FUZZ_EXPECT(r.status == w.status && r.pos == w.pos && r.fpos == w.fpos);
    RVT_FUZZ_EXPECT(r.coef == w.coef && r.patterns == w.patterns);
    RVT_FUZZ_EXPECT(std::memcmp(&r.st, &w.st, sizeof r.st) == 0);
    RVT_FUZZ_EXPECT(r.status == rvtStatusOk || r.status == rvtStatusOutOfBuffer || r.status == rvtStatusErr ||
                    r.status == rvtStatusBadArg || r.status == rvtStatusSize);
  }
  return 0;
}
