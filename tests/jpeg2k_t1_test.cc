// JPEG 2000 code-block coding: round trips for every style and band,
// truncation at every reported rate, distortion figures against the
// measured error, the progressive decoder layer by layer, ROI shifts and
// extreme magnitudes, check order with nothing written.
#include "jpeg2k_t1_util.h"

namespace rvt {
namespace {

using t1test::Bytes;
using t1test::Encoded;

// Coefficients as a wavelet band holds them: mostly small, a few large,
// zeros in runs; or uniform over the planes; or sparse.
std::vector<int32_t> MakeBlock(test::Rng& rng, int w, int h, int magnBits, int kind) {
  std::vector<int32_t> c(size_t(w) * h);
  const int64_t top = (int64_t(1) << magnBits) - 1;
  for (auto& v : c) {
    int64_t m = 0;
    if (kind == 0) {
      const int bits = int(rng.Uniform(0, magnBits));
      m = bits ? rng.Uniform(0, (int64_t(1) << bits) - 1) : 0;
      if (rng.Uniform(0, 3) == 0) m = 0;
    } else if (kind == 1) {
      m = rng.Uniform(0, top);
    } else {
      m = rng.Uniform(0, 40) == 0 ? rng.Uniform(0, top) : 0;
    }
    v = int32_t(rng.Uniform(0, 1) ? -m : m);
  }
  return c;
}

struct Shape {
  int w, h;
};
const Shape kShapes[] = {{1, 1}, {4, 4}, {64, 64}, {4, 1024}, {1024, 4}, {17, 33}, {5, 7}, {32, 128}, {3, 9}};

TEST(J2kTier1, RoundTripEveryStyleBandAndShape) {
  test::Rng rng(1901);
  for (int style = 0; style < 64; ++style) {
    for (int band = 0; band < 4; ++band) {
      const Shape s = kShapes[(style * 4 + band) % std::size(kShapes)];
      const int mb = int(rng.Uniform(1, 31));
      const auto c = MakeBlock(rng, s.w, s.h, mb, (style + band) % 3);
      const Encoded e = t1test::Encode(c, s.w, s.h, band, mb, style);
      ASSERT_EQ(e.status, rvtStatusOk);
      EXPECT_EQ(t1test::Decode(e, s.w, s.h, band, mb, style, e.passes, 0), c)
          << "style " << style << " band " << band << " " << s.w << "x" << s.h << " planes " << mb;
    }
  }
}

// Truncation points, segment lengths, and the distortion after every pass.
TEST(J2kTier1, RatesTruncateAndDistortionIsMeasured) {
  test::Rng rng(1902);
  for (int style = 0; style < 64; ++style) {
    const int band = style & 3;
    const int w = 32, h = 16 + (style % 5);
    const int mb = 6 + style % 12;
    const auto c = MakeBlock(rng, w, h, mb, style % 2);
    const Encoded e = t1test::Encode(c, w, h, band, mb, style);
    ASSERT_EQ(e.status, rvtStatusOk);
    int32_t sum = 0;
    for (int len : e.segLen) {
      sum += len;
      if (len > 0) {
EXPECT_NE(e.data[size_t(sum - 1)], 0xFF) << "segment ends in 0xFF, style " << style;}
    }
    EXPECT_EQ(sum, int32_t(e.data.size()));
    double total = 0;
    for (int32_t v : c) total += double(v) * double(v);
    for (int k = 0; k < e.passes; ++k) {
      if (k > 0) {
EXPECT_LE(e.rate[size_t(k - 1)], e.rate[size_t(k)]);}
      const int32_t r = e.rate[size_t(k)];
      if (r > 0) {
EXPECT_NE(e.data[size_t(r - 1)], 0xFF);}
      const auto full = t1test::Decode(e, w, h, band, mb, style, k + 1, 0);
      const auto cut = t1test::Decode(t1test::Truncate(e, k + 1, style), w, h, band, mb, style, k + 1, 0);
      ASSERT_EQ(cut, full) << "style " << style << " pass " << k << " rate " << r;
      double err = 0;
      for (size_t i = 0; i < c.size(); ++i) {
        const double d = double(c[i]) - double(full[i]);
        err += d * d;
      }
      EXPECT_EQ(e.dist[size_t(k)], total - err) << "style " << style << " pass " << k;
    }
    EXPECT_EQ(e.rate.empty() ? 0 : e.rate.back(), int32_t(e.data.size()));
  }
}

// Layers of random pass counts: after each, the progressive state holds
// what a one-shot decode of the same bytes gives.
TEST(J2kTier1, ProgressiveDecoderFollowsLayers) {
  test::Rng rng(1903);
  ImageSize maxSize{64, 64};
  int32_t bytes = 0;
  ASSERT_EQ(rvtiDecodeCBProgrGetStateSize_JPEG2K(maxSize, &bytes), rvtStatusOk);
  std::vector<uint8_t> mem(size_t(bytes) + 3);
  auto* st = reinterpret_cast<DecodeCBProgrState_JPEG2K*>(mem.data() + 3);  // any address
  ASSERT_EQ(rvtiDecodeCBProgrInit_JPEG2K(st, maxSize), rvtStatusOk);
  for (int style = 0; style < 64; ++style) {
    const int w = 64, h = 64 - style % 7, band = (style / 3) & 3, mb = 12;
    const auto c = MakeBlock(rng, w, h, mb, style % 3);
    const Encoded e = t1test::Encode(c, w, h, band, mb, style);
    ASSERT_EQ(rvtiDecodeCBProgrAttach_JPEG2K(st, {w, h}, band, mb, e.sf, style, 0), rvtStatusOk);
    int n = 0;
    std::vector<int32_t> got(size_t(w) * h);
    while (n < e.passes) {
      n = std::min(e.passes, n + int(rng.Uniform(0, 5)));
      Encoded cut = t1test::Truncate(e, n, style);
      cut.data.push_back(0);  // never empty
      cut.segLen.push_back(0);
      ASSERT_EQ(rvtiDecodeCBProgrStep_JPEG2K(cut.data.data(), cut.segLen.data(), n, st), rvtStatusOk);
      int32_t done = -1, plane = -1;
      ASSERT_EQ(rvtiDecodeCBProgrGetPassCounters_JPEG2K(st, &done, &plane), rvtStatusOk);
      EXPECT_EQ(done, n);
      if (n > 0) {
EXPECT_EQ(plane, t1::PassPlane(n - 1, mb - e.sf));}
      ASSERT_EQ(rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R(st, got.data(), w * 4), rvtStatusOk);
      ASSERT_EQ(got, t1test::Decode(cut, w, h, band, mb, style, n, 0)) << "style " << style << " passes " << n;
    }
    EXPECT_EQ(got, c);
  }
}

// ROI up-shifts to 31 planes, the largest magnitudes, INT32_MIN refused.
TEST(J2kTier1, RoiShiftsAndExtremeMagnitudes) {
  test::Rng rng(1904);
  for (int s : {1, 5, 16, 24, 29, 30}) {
    const int base = 31 - s;  // planes of the background
    const int w = 16, h = 12;
    std::vector<int32_t> orig(size_t(w) * h), shifted(orig.size());
    for (size_t i = 0; i < orig.size(); ++i) {
      const bool roi = rng.Uniform(0, 2) == 0;
      const int bits = roi ? std::min(base, 31 - s) : std::min(base, s);
      int64_t m = rng.Uniform(0, (int64_t(1) << bits) - 1);
      if (roi && m == 0) m = 1;
      const int sign = rng.Uniform(0, 1) ? -1 : 1;
      orig[i] = int32_t(sign * m);
      shifted[i] = int32_t(sign * (roi ? m << s : m));
    }
    const Encoded e = t1test::Encode(shifted, w, h, 0, 31, 0);
    ASSERT_EQ(e.status, rvtStatusOk);
    EXPECT_EQ(t1test::Decode(e, w, h, 0, 31, 0, e.passes, s), orig) << "shift " << s;
  }
  // 31 planes: +-(2^31 - 1) codes and decodes; INT32_MIN and anything at
  // or above 2^magnBits is refused.
  std::vector<int32_t> c(64, 0);
  c[0] = INT32_MAX;
  c[9] = -INT32_MAX;
  c[33] = 1;
  Encoded e = t1test::Encode(c, 8, 8, 3, 31, 63);
  ASSERT_EQ(e.status, rvtStatusOk);
  EXPECT_EQ(e.passes, 91);
  EXPECT_EQ(t1test::Decode(e, 8, 8, 3, 31, 63, e.passes, 0), c);
  c[5] = INT32_MIN;
  EXPECT_EQ(t1test::Encode(c, 8, 8, 3, 31, 0).status, rvtStatusRange);
  c[5] = 16;
  EXPECT_EQ(t1test::Encode(c, 8, 8, 3, 31, 0).status, rvtStatusOk);
  std::vector<int32_t> small(64, 0);
  small[7] = -16;
  EXPECT_EQ(t1test::Encode(small, 8, 8, 0, 4, 0).status, rvtStatusRange);
  small[7] = -15;
  EXPECT_EQ(t1test::Encode(small, 8, 8, 0, 4, 0).status, rvtStatusOk);
}

TEST(J2kTier1, ZeroBlockHasNoPasses) {
  std::vector<int32_t> c(35, 0);
  const Encoded e = t1test::Encode(c, 5, 7, 1, 9, 0);
  ASSERT_EQ(e.status, rvtStatusOk);
  EXPECT_EQ(e.sf, 9);
  EXPECT_EQ(e.passes, 0);
  EXPECT_TRUE(e.data.empty());
  std::vector<int32_t> out(35, 7);
  uint8_t buf[1] = {0};
  std::vector<uint8_t> work(65536);
  const int32_t none = 0;
  EXPECT_EQ(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(buf, &none, out.data(), 20, {5, 7}, 1, 9, 9, 0, 0, 0,
                                                 work.data()),
            rvtStatusOk);
  EXPECT_EQ(out, c);
}

TEST(J2kTier1, StoreBitsResumes) {
  test::Rng rng(1905);
  const auto c = MakeBlock(rng, 64, 64, 14, 0);
  const Encoded e = t1test::Encode(c, 64, 64, 2, 14, 1);
  int32_t sf, np, nt;  // loading again starts the bytes over
  ASSERT_EQ(rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(c.data(), 64 * 4, {64, 64}, e.state.get(), 2, 14, 1, &sf, &np, &nt),
            rvtStatusOk);
  Bytes again;
  uint8_t chunk[7];
  int32_t more = 1;
  int step = 1;
  while (more) {
    int32_t len = step;
    ASSERT_EQ(rvtiEncodeStoreBits_JPEG2K_1u(chunk, &len, e.state.get(), &more), rvtStatusOk);
    again.insert(again.end(), chunk, chunk + len);
    step = step % 7 + 1;
  }
  EXPECT_EQ(again, e.data);
}

// Every failing check returns its status in argument order and writes
// nothing.
TEST(J2kTier1, ChecksInArgumentOrderWriteNothing) {
  const ImageSize max{64, 64};
  int32_t sz = 0;
  EXPECT_EQ(rvtiEncodeGetStateSize_JPEG2K({0, 4}, nullptr), rvtStatusSize);
  EXPECT_EQ(rvtiEncodeGetStateSize_JPEG2K({128, 64}, &sz), rvtStatusSize);  // area above 4096
  EXPECT_EQ(rvtiEncodeGetStateSize_JPEG2K({2048, 1}, &sz), rvtStatusSize);
  EXPECT_EQ(rvtiEncodeGetStateSize_JPEG2K(max, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeInitAlloc_JPEG2K(nullptr, {0, 0}), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeFree_JPEG2K(nullptr), rvtStatusNullPtr);
  ASSERT_EQ(rvtiEncodeGetStateSize_JPEG2K({32, 32}, &sz), rvtStatusOk);
  std::vector<uint8_t> mem(static_cast<size_t>(sz));
  auto* st = reinterpret_cast<EncodeCBState_JPEG2K*>(mem.data());
  ASSERT_EQ(rvtiEncodeInit_JPEG2K(st, {32, 32}), rvtStatusOk);
  std::vector<int32_t> c(1024, 3);
  int32_t sf = -1, np = -1, nt = -1;
  auto load = [&](const int32_t* p, int32_t step, ImageSize s, EncodeCBState_JPEG2K* state, int band, int mb,
                  int style, int32_t* a, int32_t* b, int32_t* d) {
    return rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(p, step, s, state, band, mb, style, a, b, d);
  };
  EXPECT_EQ(load(nullptr, 0, {0, 0}, nullptr, 9, 0, 99, nullptr, nullptr, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(load(c.data(), 0, {0, 0}, nullptr, 9, 0, 99, nullptr, nullptr, nullptr), rvtStatusStep);
  EXPECT_EQ(load(c.data(), 128, {0, 32}, nullptr, 9, 0, 99, nullptr, nullptr, nullptr), rvtStatusSize);
  EXPECT_EQ(load(c.data(), 128, {32, 32}, nullptr, 9, 0, 99, nullptr, nullptr, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(load(c.data(), 256, {64, 16}, st, 9, 0, 99, nullptr, nullptr, nullptr), rvtStatusSize);  // above max
  EXPECT_EQ(load(c.data(), 128, {32, 32}, st, 4, 0, 99, nullptr, nullptr, nullptr), rvtStatusBadArg);
  EXPECT_EQ(load(c.data(), 128, {32, 32}, st, 3, 0, 99, nullptr, nullptr, nullptr), rvtStatusBadArg);
  EXPECT_EQ(load(c.data(), 128, {32, 32}, st, 3, 32, 0, nullptr, nullptr, nullptr), rvtStatusBadArg);
  EXPECT_EQ(load(c.data(), 128, {32, 32}, st, 3, 8, 64, nullptr, nullptr, nullptr), rvtStatusBadArg);
  EXPECT_EQ(load(c.data(), 128, {32, 32}, st, 3, 8, 63, &sf, &np, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(load(c.data(), 128, {32, 32}, st, 3, 1, 63, &sf, &np, &nt), rvtStatusRange);
  EXPECT_EQ(sf, -1);
  EXPECT_EQ(np, -1);
  EXPECT_EQ(nt, -1);
  int32_t rate = -1, len = -1;
  double dist = -1;
  EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(st, 0, &rate), rvtStatusBadArg);  // nothing loaded
  ASSERT_EQ(load(c.data(), 128, {32, 32}, st, 3, 2, 0, &sf, &np, &nt), rvtStatusOk);
  EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(nullptr, 0, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(st, np, nullptr), rvtStatusBadArg);
  EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(st, -1, &rate), rvtStatusBadArg);
  EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(st, 0, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeGetDist_JPEG2K(st, np, &dist), rvtStatusBadArg);
  EXPECT_EQ(rvtiEncodeGetTermPassLen_JPEG2K(st, nt, &len), rvtStatusBadArg);
  EXPECT_EQ(rate, -1);
  EXPECT_EQ(dist, -1);
  EXPECT_EQ(len, -1);
  int32_t dlen = 0, more = -1;
  uint8_t byte = 0x5A;
  EXPECT_EQ(rvtiEncodeStoreBits_JPEG2K_1u(&byte, &dlen, st, &more), rvtStatusSize);
  dlen = 1;
  EXPECT_EQ(rvtiEncodeStoreBits_JPEG2K_1u(&byte, &dlen, st, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(byte, 0x5A);
  std::vector<uint8_t> junk(sz, 0xEE);
  EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(reinterpret_cast<EncodeCBState_JPEG2K*>(junk.data()), 0, &rate),
            rvtStatusBadArg);  // never initialised

  // One-shot decoder.
  std::vector<int32_t> out(1024, 77);
  const auto untouched = out;
  std::vector<uint8_t> work(200000);
  uint8_t data[4] = {0, 0, 0, 0};
  int32_t seg[3] = {4, 0, 0};
  auto dec = [&](const uint8_t* s, const int32_t* sl, int32_t* d, int32_t step, ImageSize size, int band, int mb,
                 int sfb, int passes, int style, int roi, uint8_t* buf) {
    return rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(s, sl, d, step, size, band, mb, sfb, passes, style, roi, buf);
  };
  EXPECT_EQ(dec(nullptr, nullptr, nullptr, 0, {0, 0}, 9, 0, 0, 0, 0, 0, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(dec(data, nullptr, nullptr, 0, {0, 0}, 9, 0, 0, 0, 0, 0, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(dec(data, seg, nullptr, 0, {0, 0}, 9, 0, 0, 0, 0, 0, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(dec(data, seg, out.data(), 0, {0, 0}, 9, 0, 0, 0, 0, 0, nullptr), rvtStatusStep);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {33, 200}, 9, 0, 0, 0, 0, 0, nullptr), rvtStatusSize);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 9, 0, 0, 0, 0, 0, nullptr), rvtStatusBadArg);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 0, 0, 0, 0, 0, nullptr), rvtStatusBadArg);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 6, 0, 0, 0, nullptr), rvtStatusBadArg);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 2, 8, 0, 0, nullptr), rvtStatusBadArg);  // 7 coded
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 2, 7, 64, 0, nullptr), rvtStatusBadArg);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 2, 7, 0, 32, nullptr), rvtStatusBadArg);
  seg[0] = -1;
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 2, 7, 0, 0, nullptr), rvtStatusBadArg);
  seg[0] = 4;
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 2, 7, 0, 0, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(out, untouched);
  EXPECT_EQ(dec(data, seg, out.data(), 128, {32, 32}, 0, 5, 2, 7, 0, 0, work.data()), rvtStatusOk);

  // Progressive decoder.
  EXPECT_EQ(rvtiDecodeCBProgrInitAlloc_JPEG2K(nullptr, max), rvtStatusNullPtr);
  DecodeCBProgrState_JPEG2K* ps = nullptr;
  EXPECT_EQ(rvtiDecodeCBProgrInitAlloc_JPEG2K(&ps, {0, 1}), rvtStatusSize);
  ASSERT_EQ(rvtiDecodeCBProgrInitAlloc_JPEG2K(&ps, {16, 16}), rvtStatusOk);
  EXPECT_EQ(rvtiDecodeCBProgrStep_JPEG2K(data, seg, 1, ps), rvtStatusBadArg);  // nothing attached
  EXPECT_EQ(rvtiDecodeCBProgrAttach_JPEG2K(ps, {32, 8}, 0, 5, 0, 0, 0), rvtStatusSize);
  EXPECT_EQ(rvtiDecodeCBProgrAttach_JPEG2K(ps, {16, 16}, 0, 5, 0, 0, 0), rvtStatusOk);
  EXPECT_EQ(rvtiDecodeCBProgrStep_JPEG2K(data, seg, 14, ps), rvtStatusBadArg);
  EXPECT_EQ(rvtiDecodeCBProgrStep_JPEG2K(data, seg, 3, ps), rvtStatusOk);
  EXPECT_EQ(rvtiDecodeCBProgrStep_JPEG2K(data, seg, 2, ps), rvtStatusBadArg);  // passes never go back
  EXPECT_EQ(rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R(ps, out.data(), 0), rvtStatusStep);
  EXPECT_EQ(rvtiDecodeCBProgrFree_JPEG2K(ps), rvtStatusOk);
}

}  // namespace
}  // namespace rvt

namespace rvt {
namespace {

// The fast decoder reads two bytes at a time inside a segment and falls
// back at its last byte; streams dense in 0xFF, bytes after 0xFF above and
// below the marker range, and segments of 0, 1 and 2 bytes must decode
// exactly as the reference reads them, in every style.
TEST(J2kTier1, FastDecoderReadsHostileBytesAsTheReference) {
  test::Rng rng(1917);
  const uint8_t kHot[] = {0xFF, 0xFF, 0x7F, 0x80, 0x8F, 0x90, 0xFF, 0x00, 0x01};
  int32_t need = 0;
  ASSERT_EQ(rvtiDecodeGetBufSize_JPEG2K({64, 64}, &need), rvtStatusOk);
  std::vector<uint8_t> workRef(static_cast<size_t>(need)), workFast(static_cast<size_t>(need));
  for (int i = 0; i < 600; ++i) {
    const int style = i % 64;
    const int w = int(rng.Uniform(1, 64)), h = int(rng.Uniform(1, 64));
    const int band = int(rng.Uniform(0, 3)), magnBits = int(rng.Uniform(1, 31));
    const int sf = int(rng.Uniform(0, magnBits - 1));
    const int passes = int(rng.Uniform(0, 3 * (magnBits - sf) - 2));
    const int segs = t1::SegmentsFor(passes, style);
    std::vector<int32_t> segLen(size_t(segs) + 1, 0);
    size_t total = 0;
    for (int s = 0; s < segs; ++s) {
      segLen[size_t(s)] = int32_t(rng.Uniform(0, 3) == 0 ? rng.Uniform(0, 2) : rng.Uniform(0, 40));
      total += size_t(segLen[size_t(s)]);
    }
    std::vector<uint8_t> data(total + 1);
    for (uint8_t& b : data) b = rng.Uniform(0, 1) ? kHot[rng.Uniform(0, 8)] : uint8_t(rng.Uniform(0, 255));
    std::vector<int32_t> ref(size_t(w) * h, 7), fast(size_t(w) * h, 7);
    const int roi = i % 7 == 3 ? int(rng.Uniform(0, 31)) : 0;
    ASSERT_EQ(t1::DecodeCodeBlockRef(data.data(), segLen.data(), ref.data(), w * 4, {w, h}, band, magnBits, sf, passes,
                                     style, roi, workRef.data()),
              rvtStatusOk);
    ASSERT_EQ(t1::DecodeCodeBlockFast(data.data(), segLen.data(), fast.data(), w * 4, {w, h}, band, magnBits, sf,
                                      passes, style, roi, workFast.data()),
              rvtStatusOk);
    ASSERT_EQ(ref, fast) << "case " << i << ": " << w << "x" << h << " style " << style << " passes " << passes;
  }
}

}  // namespace
}  // namespace rvt
