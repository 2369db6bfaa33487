// Code-block coding helpers for the tests: encode through the exports into
// bytes, rates, distortions and segment lengths; cut a stream at a pass;
// decode with the one-shot decoder.
#ifndef RVT_TESTS_JPEG2K_T1_UTIL_H_
#define RVT_TESTS_JPEG2K_T1_UTIL_H_

#include <cstdlib>
#include <memory>
#include <vector>

#include "checkasm.h"
#include "jpeg2k/t1.h"
#include "rvtjp.h"

namespace rvt::t1test {

using Bytes = std::vector<uint8_t>;

struct StateFree {
  void operator()(EncodeCBState_JPEG2K* p) const { rvtiEncodeFree_JPEG2K(p); }
};

struct Encoded {
  RvtResult status = rvtStatusOk;
  int sf = 0, passes = 0, segs = 0;
  Bytes data;
  std::vector<int32_t> rate, segLen;
  std::vector<double> dist;
  std::unique_ptr<EncodeCBState_JPEG2K, StateFree> state;
};

inline Encoded Encode(const std::vector<int32_t>& c, int w, int h, int band, int magnBits, int style) {
  Encoded e;
  EncodeCBState_JPEG2K* st = nullptr;
  EXPECT_EQ(rvtiEncodeInitAlloc_JPEG2K(&st, {w, h}), rvtStatusOk);
  e.state.reset(st);
  e.status = rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(c.data(), w * 4, {w, h}, st, band, magnBits, style, &e.sf,
                                                    &e.passes, &e.segs);
  if (e.status != rvtStatusOk) return e;
  for (int k = 0; k < e.passes; ++k) {
    int32_t r = 0;
    double d = 0;
    EXPECT_EQ(rvtiEncodeGetRate_JPEG2K(st, k, &r), rvtStatusOk);
    EXPECT_EQ(rvtiEncodeGetDist_JPEG2K(st, k, &d), rvtStatusOk);
    e.rate.push_back(r);
    e.dist.push_back(d);
  }
  for (int s = 0; s < e.segs; ++s) {
    int32_t len = 0;
    EXPECT_EQ(rvtiEncodeGetTermPassLen_JPEG2K(st, s, &len), rvtStatusOk);
    e.segLen.push_back(len);
  }
  int32_t more = 1;
  while (more) {
    uint8_t buf[4096];
    int32_t len = int32_t(sizeof(buf));
    EXPECT_EQ(rvtiEncodeStoreBits_JPEG2K_1u(buf, &len, st, &more), rvtStatusOk);
    e.data.insert(e.data.end(), buf, buf + len);
  }
  return e;
}

// The bytes GetRate reports for passes 0..n-1, split into the segments
// those passes span (complete ones whole, the last cut).
inline Encoded Truncate(const Encoded& e, int n, int style) {
  Encoded t;
  t.sf = e.sf;
  t.passes = n;
  const int32_t r = n > 0 ? e.rate[size_t(n - 1)] : 0;
  t.data.assign(e.data.begin(), e.data.begin() + r);
  const int segs = t1::SegmentsFor(n, style);
  int32_t pos = 0;
  for (int s = 0; s < segs; ++s) {
    const int32_t len = s + 1 < segs ? e.segLen[size_t(s)] : r - pos;
    t.segLen.push_back(len);
    pos += len;
  }
  t.segs = segs;
  return t;
}

inline std::vector<int32_t> Decode(const Encoded& e, int w, int h, int band, int magnBits, int style, int passes,
                                   int roi) {
  std::vector<int32_t> out(size_t(w) * h, 0x7EEEEEEE);
  int32_t bytes = 0;
  EXPECT_EQ(rvtiDecodeGetBufSize_JPEG2K({w, h}, &bytes), rvtStatusOk);
  std::vector<uint8_t> work(static_cast<size_t>(bytes));
  const uint8_t none = 0;
  const int32_t zero = 0;
  EXPECT_EQ(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(e.data.empty() ? &none : e.data.data(),
                                                 e.segLen.empty() ? &zero : e.segLen.data(), out.data(), w * 4,
                                                 {w, h}, band, magnBits, e.sf, passes, style, roi, work.data()),
            rvtStatusOk);
  return out;
}

}  // namespace rvt::t1test

#endif  // RVT_TESTS_JPEG2K_T1_UTIL_H_
