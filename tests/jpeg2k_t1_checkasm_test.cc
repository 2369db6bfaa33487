// Code-block coding: the fast passes against the reference, by the
// harness.  States and work buffers are the binder's own (their scratch
// planes differ by design); what is compared is everything a caller can
// observe: statuses, coded bytes, rates, distortions, segment lengths,
// decoded blocks.
#include "jpeg2k_t1_util.h"

namespace rvt {
namespace {

constexpr int kSizes[][2] = {{64, 64}, {32, 32}, {1, 1}, {4, 1024}, {1024, 4}, {13, 7}, {16, 64}, {3, 200}, {57, 71}};

void Pick(test::Rng& rng, int* w, int* h) {
  const auto& s = kSizes[rng.Uniform(0, int64_t(std::size(kSizes)) - 1)];
  *w = s[0];
  *h = s[1];
  if (*w * *h > 4096) *h = 4096 / *w;
}

// Blocks of coefficients, every style, band and plane count.
std::vector<test::Case> EncodeCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int i = 0; i < 160; ++i) {
    int w, h;
    Pick(rng, &w, &h);
    const int mb = int(rng.Uniform(1, 31));
    test::Case k;
    k.label = "block " + std::to_string(w) + "x" + std::to_string(h);
    k.roi = {w, h};
    k.in = {test::PlaneOf<int32_t>(w, h, 0, int(rng.Uniform(0, 3)))};
    const int64_t top = (int64_t(1) << mb) - 1;
    const int kind = int(rng.Uniform(0, 2));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        int64_t m = kind == 0 ? (rng.Uniform(0, 2) ? rng.Uniform(0, std::min<int64_t>(top, 255)) : 0)
                    : kind == 1 ? rng.Uniform(0, top)
                                : (rng.Uniform(0, 30) ? 0 : rng.Uniform(0, top));
        if (i == 7) m = top + 1;  // refused
        const int32_t v = int32_t(rng.Uniform(0, 1) ? -m : m);
        std::memcpy(k.in[0].row<uint8_t>(y) + 4 * x, &v, 4);
      }
    k.arg[0] = rng.Uniform(0, 3);
    k.arg[1] = mb;
    k.arg[2] = i % 64;
    // sf, passes, segs, bytes; then rates, distortions, segment lengths,
    // then the coded bytes.
    k.out = {test::ArrayOf<int32_t>(4), test::ArrayOf<int32_t>(t1::kMaxPasses * 2),
             test::ArrayOf<double>(t1::kMaxPasses), test::ArrayOf<uint8_t>(w * h * 8 + 512)};
    out.push_back(std::move(k));
  }
  return out;
}

template <class Fn>
RvtResult CallEncode(Fn fn, test::Case& k) {
  EncodeCBState_JPEG2K* st = nullptr;
  if (rvtiEncodeInitAlloc_JPEG2K(&st, k.roi) != rvtStatusOk) return rvtStatusNoMem;
  int32_t* head = k.out[0].as<int32_t>();
  const RvtResult r = fn(k.in[0].as<int32_t>(), k.in[0].step(), k.roi, st, int32_t(k.arg[0]), int32_t(k.arg[1]),
                         int32_t(k.arg[2]), &head[0], &head[1], &head[2]);
  if (r == rvtStatusOk) {
    for (int p = 0; p < head[1]; ++p) {
      rvtiEncodeGetRate_JPEG2K(st, p, &k.out[1].as<int32_t>()[p]);
      rvtiEncodeGetDist_JPEG2K(st, p, &k.out[2].as<double>()[p]);
    }
    for (int s = 0; s < head[2]; ++s) rvtiEncodeGetTermPassLen_JPEG2K(st, s, &k.out[1].as<int32_t>()[t1::kMaxPasses + s]);
    int32_t len = k.out[3].plane.width(), more = 0;
    rvtiEncodeStoreBits_JPEG2K_1u(k.out[3].as<uint8_t>(), &len, st, &more);
    head[3] = more ? -len : len;
  }
  rvtiEncodeFree_JPEG2K(st);
  return r;
}

RVT_CHECKASM(rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R,
             test::Cases{EncodeCases, [](auto fn, test::Case& k) { return CallEncode(fn, k); }});

// Coded blocks (by the reference), decoded whole, cut after any pass, cut
// anywhere, or with bytes flipped; with ROI shifts.
std::vector<test::Case> DecodeCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int i = 0; i < 160; ++i) {
    int w, h;
    Pick(rng, &w, &h);
    const int mb = int(rng.Uniform(1, 20));
    const int style = i % 64, band = int(rng.Uniform(0, 3));
    std::vector<int32_t> c(size_t(w) * h);
    const int64_t top = (int64_t(1) << mb) - 1;
    for (auto& v : c) {
      const int64_t m = rng.Uniform(0, 2) ? rng.Uniform(0, top) >> rng.Uniform(0, mb) : 0;
      v = int32_t(rng.Uniform(0, 1) ? -m : m);
    }
    t1test::Encoded e = t1test::Encode(c, w, h, band, mb, style);
    int passes = e.passes ? int(rng.Uniform(0, e.passes)) : 0;
    t1test::Encoded cut = t1test::Truncate(e, passes, style);
    if (passes && i % 3 == 1) {  // cut the last segment anywhere, or flip bytes
      auto& last = cut.segLen.back();
      last = int32_t(rng.Uniform(0, last));
    }
    if (!cut.data.empty() && i % 3 == 2)
      for (int f = 0; f < 4; ++f) cut.data[size_t(rng.Uniform(0, int64_t(cut.data.size()) - 1))] ^= uint8_t(rng.Uniform(1, 255));
    test::Case k;
    k.label = "style " + std::to_string(style) + " " + std::to_string(w) + "x" + std::to_string(h);
    k.roi = {w, h};
    k.in = {test::ArrayOf<uint8_t>(int(cut.data.size()) + 1), test::ArrayOf<int32_t>(int(cut.segLen.size()) + 1)};
    if (!cut.data.empty()) std::memcpy(k.in[0].as<uint8_t>(), cut.data.data(), cut.data.size());
    if (!cut.segLen.empty()) std::memcpy(k.in[1].as<int32_t>(), cut.segLen.data(), 4 * cut.segLen.size());
    k.arg[0] = band | style << 2 | int64_t(mb) << 8 | int64_t(i % 5 == 4 ? rng.Uniform(0, mb) : 0) << 16;
    k.arg[1] = e.sf;
    k.arg[2] = passes;
    k.arg[3] = int64_t(rng.Uniform(1, 4));  // layers for the progressive decoder
    k.out = {test::PlaneOf<int32_t>(w, h, 0, int(rng.Uniform(0, 3)))};
    out.push_back(std::move(k));
  }
  return out;
}

struct DecArgs {
  int band, style, mb, roi, sf, passes;
};
DecArgs ArgsOf(const test::Case& k) {
  return {int(k.arg[0] & 3), int(k.arg[0] >> 2 & 63), int(k.arg[0] >> 8 & 255), int(k.arg[0] >> 16 & 255),
          int(k.arg[1]), int(k.arg[2])};
}

RVT_CHECKASM(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R,
             test::Cases{DecodeCases, [](auto fn, test::Case& k) {
                           const DecArgs a = ArgsOf(k);
                           int32_t need = 0;
                           rvtiDecodeGetBufSize_JPEG2K(k.roi, &need);
                           std::vector<uint8_t> work(static_cast<size_t>(need));
                           return fn(k.in[0].as<uint8_t>(), k.in[1].as<int32_t>(), k.out[0].as<int32_t>(),
                                     k.out[0].step(), k.roi, a.band, a.mb, a.sf, a.passes, a.style, a.roi,
                                     work.data());
                         }});

// The progressive decoder fed the same bytes in k.arg[3] layers (earlier
// layers see the open segment cut short).
RVT_CHECKASM(rvtiDecodeCBProgrStep_JPEG2K,
             test::Cases{DecodeCases, [](auto fn, test::Case& k) {
                           const DecArgs a = ArgsOf(k);
                           DecodeCBProgrState_JPEG2K* st = nullptr;
                           if (rvtiDecodeCBProgrInitAlloc_JPEG2K(&st, k.roi) != rvtStatusOk) return rvtStatusNoMem;
                           RvtResult r = rvtiDecodeCBProgrAttach_JPEG2K(st, k.roi, a.band, a.mb, a.sf, a.style, a.roi);
                           const int layers = int(k.arg[3]);
                           const int32_t* lens = k.in[1].as<int32_t>();
                           for (int l = 1; l <= layers && r == rvtStatusOk; ++l) {
                             const int n = a.passes * l / layers;
                             const int segs = t1::SegmentsFor(n, a.style);
                             std::vector<int32_t> part(lens, lens + segs + 1);
                             if (n < a.passes && segs && !t1::EndsSegment(n - 1, a.style)) part[size_t(segs - 1)] /= 2;
                             r = fn(k.in[0].as<uint8_t>(), part.data(), n, st);
                           }
                           if (r == rvtStatusOk)
                             r = rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R(st, k.out[0].as<int32_t>(), k.out[0].step());
                           rvtiDecodeCBProgrFree_JPEG2K(st);
                           return r;
                         }});

}  // namespace
}  // namespace rvt
