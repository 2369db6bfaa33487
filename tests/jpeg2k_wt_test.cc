// JPEG 2000 wavelets: a plain two-dimensional 5/3 written from the
// standard's description (periodic symmetric extension, 1D_SD and 1D_SR,
// canvas coordinates) judges the whole levels at every origin parity;
// passes read only their border samples; the column lifts give the column
// pass's bands; photos go through five levels and back exactly; every
// target against the reference.
#include <algorithm>
#include <cmath>
#include <limits>

#include "checkasm.h"
#include "jpeg2k/wt53.h"
#include "jpeg2k/wt97.h"
#include "photo.h"

namespace rvt {
namespace {

// ---------------------------------------------------------------- oracle
// 64-bit arithmetic, floor division, whole lines on canvas coordinates
// i0 .. i1 - 1.
int64_t FloorDiv(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// Periodic symmetric extension of canvas index i into [i0, i1).
int64_t Pse(int64_t i, int64_t i0, int64_t i1) {
  const int64_t p = 2 * (i1 - i0 - 1);
  const int64_t m = ((i - i0) % p + p) % p;
  return i0 + std::min(m, p - m);
}

// 1D_SD: x (canvas i0..i1-1) to the interleaved coefficients y.
std::vector<int64_t> Sd(const std::vector<int64_t>& x, int64_t i0) {
  const int64_t i1 = i0 + int64_t(x.size());
  if (x.size() == 1) return {i0 & 1 ? 2 * x[0] : x[0]};
  auto X = [&](int64_t i) { return x[size_t(Pse(i, i0, i1) - i0)]; };
  std::vector<int64_t> y(x.size());
  auto Yodd = [&](int64_t i) { return X(i) - FloorDiv(X(i - 1) + X(i + 1), 2); };
  for (int64_t i = i0; i < i1; ++i)
    y[size_t(i - i0)] = (i & 1) ? Yodd(i) : X(i) + FloorDiv(Yodd(i - 1) + Yodd(i + 1) + 2, 4);
  return y;
}
// 1D_SR: interleaved coefficients y to x.
std::vector<int64_t> Sr(const std::vector<int64_t>& y, int64_t i0) {
  const int64_t i1 = i0 + int64_t(y.size());
  if (y.size() == 1) return {i0 & 1 ? FloorDiv(y[0], 2) : y[0]};
  auto Y = [&](int64_t i) { return y[size_t(Pse(i, i0, i1) - i0)]; };
  auto Xeven = [&](int64_t i) { return Y(i) - FloorDiv(Y(i - 1) + Y(i + 1) + 2, 4); };
  std::vector<int64_t> x(y.size());
  for (int64_t i = i0; i < i1; ++i)
    x[size_t(i - i0)] = (i & 1) ? Y(i) + FloorDiv(Xeven(i - 1) + Xeven(i + 1), 2) : Xeven(i);
  return x;
}

// A plane of int64 samples, w x h, row-major.
struct Grid {
  int w = 0, h = 0;
  std::vector<int64_t> v;
  int64_t& at(int x, int y) { return v[size_t(y) * size_t(w) + size_t(x)]; }
};

// Interleaved order of a line to bands (even canvas coordinates first).
std::vector<int64_t> Split(const std::vector<int64_t>& y, int64_t i0) {
  std::vector<int64_t> out;
  for (int k = 0; k < 2; ++k)
    for (size_t i = 0; i < y.size(); ++i)
      if (((i0 + int64_t(i)) & 1) == k) out.push_back(y[i]);
  return out;
}
std::vector<int64_t> Join(const std::vector<int64_t>& b, int64_t i0) {
  std::vector<int64_t> y(b.size());
  size_t k = 0;
  for (int par = 0; par < 2; ++par)
    for (size_t i = 0; i < y.size(); ++i)
      if (((i0 + int64_t(i)) & 1) == par) y[i] = b[k++];
  return y;
}

// 2D_SD, columns first, then rows; the result in the quadrant layout.
Grid Fwd2D(Grid g, int x0, int y0) {
  for (int x = 0; x < g.w; ++x) {
    std::vector<int64_t> c(size_t(g.h));
    for (int y = 0; y < g.h; ++y) c[size_t(y)] = g.at(x, y);
    c = Split(Sd(c, y0), y0);
    for (int y = 0; y < g.h; ++y) g.at(x, y) = c[size_t(y)];
  }
  for (int y = 0; y < g.h; ++y) {
    std::vector<int64_t> r(&g.at(0, y), &g.at(0, y) + g.w);
    r = Split(Sd(r, x0), x0);
    std::copy(r.begin(), r.end(), &g.at(0, y));
  }
  return g;
}
Grid Inv2D(Grid g, int x0, int y0) {
  for (int y = 0; y < g.h; ++y) {
    std::vector<int64_t> r(&g.at(0, y), &g.at(0, y) + g.w);
    r = Sr(Join(r, x0), x0);
    std::copy(r.begin(), r.end(), &g.at(0, y));
  }
  for (int x = 0; x < g.w; ++x) {
    std::vector<int64_t> c(size_t(g.h));
    for (int y = 0; y < g.h; ++y) c[size_t(y)] = g.at(x, y);
    c = Sr(Join(c, y0), y0);
    for (int y = 0; y < g.h; ++y) g.at(x, y) = c[size_t(y)];
  }
  return g;
}

// ---------------------------------------------------------------- whole levels
template <class T>
struct LevelFns {
  using I = decltype(&rvtiWTFwd_B53_JPEG2K_16s_C1IR);
};

template <class T, class FI, class FS>
void CheckAgainstOracle(const Impl<FI>& fwd, const Impl<FI>& inv, FS size_fn, int lo, int hi) {
  test::Rng rng(11);
  std::vector<std::pair<int, int>> sizes = {{1, 1}, {1, 7},  {7, 1},  {2, 9},  {9, 2}, {2, 2},
                                            {3, 3}, {4, 5},  {5, 4},  {1, 2},  {2, 1}, {3, 1},
                                            {1, 3}, {17, 6}, {33, 31}, {64, 3}, {70, 41}};
  for (auto [w, h] : sizes) {
    for (int par = 0; par < 4; ++par) {
      const int x0 = 10 + (par & 1) + 2 * int(rng.Uniform(0, 5)), y0 = 20 + (par >> 1);
      Grid g{w, h, std::vector<int64_t>(size_t(w * h))};
      for (auto& s : g.v) s = rng.Uniform(lo, hi);
      const Grid want = Fwd2D(g, x0, y0);
      ASSERT_EQ(Inv2D(want, x0, y0).v, g.v) << "oracle round trip";
      const ImageRect rect{x0, y0, w, h};
      uint32_t bytes = 0;
      ASSERT_EQ(size_fn(&rect, &bytes), rvtStatusOk);
      for (const auto& t : test::AllTargets(fwd)) {
        std::vector<T> plane(size_t(w * h));
        for (size_t i = 0; i < plane.size(); ++i) plane[i] = T(g.v[i]);
        std::vector<uint8_t> buf(bytes + 1);
        ASSERT_EQ(t.fn(plane.data(), int32_t(w * sizeof(T)), &rect, buf.data()), rvtStatusOk);
        for (size_t i = 0; i < plane.size(); ++i)
          ASSERT_EQ(plane[i], want.v[i]) << t.name << " " << w << "x" << h << " at (" << x0 << ","
                                         << y0 << "), sample " << i;
      }
      for (const auto& t : test::AllTargets(inv)) {
        std::vector<T> plane(size_t(w * h));
        for (size_t i = 0; i < plane.size(); ++i) plane[i] = T(want.v[i]);
        std::vector<uint8_t> buf(bytes + 1);
        ASSERT_EQ(t.fn(plane.data(), int32_t(w * sizeof(T)), &rect, buf.data()), rvtStatusOk);
        for (size_t i = 0; i < plane.size(); ++i)
          ASSERT_EQ(plane[i], g.v[i]) << t.name << " inverse " << w << "x" << h << " at (" << x0
                                      << "," << y0 << "), sample " << i;
      }
    }
  }
}

TEST(Wavelet53, WholeLevelsAgreeWithThePlainTransform) {
  CheckAgainstOracle<int16_t>(impl_rvtiWTFwd_B53_JPEG2K_16s_C1IR, impl_rvtiWTInv_B53_JPEG2K_16s_C1IR,
                              rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR, -4096, 4095);
  CheckAgainstOracle<int32_t>(impl_rvtiWTFwd_B53_JPEG2K_32s_C1IR, impl_rvtiWTInv_B53_JPEG2K_32s_C1IR,
                              rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR, -(1 << 28), 1 << 28);
}

TEST(Wavelet53, ShortLinesAndBufferSizes) {
  uint32_t n = 99;
  const ImageRect r22{0, 0, 2, 2}, r31{0, 0, 3, 1}, r1x9{0, 0, 1, 9};
  EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR(&r22, &n), rvtStatusOk);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR(&r31, &n), rvtStatusOk);
  EXPECT_EQ(n, 14u);
  EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&r1x9, &n), rvtStatusOk);
  EXPECT_EQ(n, 52u);
  EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_16s_C1R(&r31, &n), rvtStatusOk);
  EXPECT_EQ(n, 14u + 32u);
  EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_16s_C1R(nullptr, &n), rvtStatusNullPtr);
  EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_16s_C1R(&r31, nullptr), rvtStatusNullPtr);
  // One row at odd y: every sample doubled; at even y unchanged.
  uint8_t buf[64];
  int16_t row[5] = {1, -2, 3, -4, 5};
  const ImageRect odd{0, 1, 1, 1};
  EXPECT_EQ(rvtiWTFwd_B53_JPEG2K_16s_C1IR(row, 10, &odd, buf), rvtStatusOk);
  EXPECT_EQ(row[0], 2);
  // Two rows at odd y: top r1 + ((r0 - r1 + 1) >> 1), bottom r0 - r1.
  int32_t two[2] = {10, 3};
  const ImageRect two_odd{4, 7, 1, 2};
  EXPECT_EQ(rvtiWTFwd_B53_JPEG2K_32s_C1IR(two, 4, &two_odd, buf), rvtStatusOk);
  EXPECT_EQ(two[0], 3 + ((10 - 3 + 1) >> 1));
  EXPECT_EQ(two[1], 10 - 3);
  EXPECT_EQ(rvtiWTInv_B53_JPEG2K_32s_C1IR(two, 4, &two_odd, buf), rvtStatusOk);
  EXPECT_EQ(two[0], 10);
  EXPECT_EQ(two[1], 3);
}

TEST(Wavelet53, ChecksInOrderWriteNothing) {
  int16_t p[8] = {1, 2, 3, 4, 5, 6, 7, 8}, q[8] = {}, lo[4] = {}, hi[4] = {};
  const ImageRect rect{0, 0, 2, 2}, bad{0, 0, 0, 2};
  uint8_t buf[16];
  int16_t* bands[4] = {lo, hi, q, q + 4};
  int16_t* nulband[4] = {lo, nullptr, q, q};
  const int32_t steps[4] = {4, 4, 4, 4}, badsteps[4] = {4, 4, 0, 4};
  const auto& f4 = impl_rvtiWTFwd_B53_JPEG2K_16s_C1R;
  for (const auto& t : test::AllTargets(f4)) {
    EXPECT_EQ(t.fn(p, 0, &rect, bands, steps, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p, 0, &rect, nulband, steps, buf), rvtStatusStep);
    EXPECT_EQ(t.fn(p, 4, &rect, nulband, badsteps, buf), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p, 4, &bad, bands, badsteps, buf), rvtStatusStep);
    EXPECT_EQ(t.fn(p, 4, &bad, bands, steps, buf), rvtStatusSize);
  }
  for (const auto& t : test::AllTargets(impl_rvtiWTInv_B53_JPEG2K_16s_C1R)) {
    const int16_t* cb[4] = {lo, hi, q, q};
    const int16_t* ncb[4] = {lo, hi, nullptr, q};
    EXPECT_EQ(t.fn(cb, steps, p, 0, nullptr, buf), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(ncb, badsteps, p, 0, &rect, buf), rvtStatusStep);
    EXPECT_EQ(t.fn(ncb, badsteps, p, 4, &rect, buf), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(cb, badsteps, p, 4, &bad, buf), rvtStatusStep);
    EXPECT_EQ(t.fn(cb, steps, p, 4, &bad, buf), rvtStatusSize);
  }
  for (const auto& t : test::AllTargets(impl_rvtiWTFwd_B53_JPEG2K_16s_C1IR)) {
    EXPECT_EQ(t.fn(nullptr, 0, &rect, buf), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p, 0, nullptr, buf), rvtStatusStep);
    EXPECT_EQ(t.fn(p, 4, &rect, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p, 4, &bad, buf), rvtStatusSize);
  }
  for (const auto& t : test::AllTargets(impl_rvtiWTFwdRow_B53_JPEG2K_16s_C1R)) {
    EXPECT_EQ(t.fn(p, 0, nullptr, 0, hi, 0, {0, 0}, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p, 4, lo, 0, hi, 4, {0, 0}, 0), rvtStatusStep);
    EXPECT_EQ(t.fn(p, 4, lo, 4, hi, 4, {1, 0}, 1), rvtStatusSize);
  }
  for (const auto& t : test::AllTargets(impl_rvtiWTInvColLift_B53_JPEG2K_16s_C1)) {
    EXPECT_EQ(t.fn(p, p, p, nullptr, q, q, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(p, p, p, p, q, q, 0), rvtStatusSize);
  }
  EXPECT_EQ(p[0], 1);
  EXPECT_EQ(p[7], 8);
  for (int16_t v : q) EXPECT_EQ(v, 0);
  for (int16_t v : lo) EXPECT_EQ(v, 0);
}

// Passes read exactly their border samples: everything else around the
// signal is poisoned twice and the outputs must not change.
template <class T, class Fn>
void ReadsOnlyBorders(const Impl<Fn>& impl, bool fwd, bool rows) {
  test::Rng rng(21);
  for (int w : {1, 2, 3, 5, 8, 16, 17, 31, 32, 33, 64, 65, 100}) {
    for (int phase : {0, 1}) {
      const int h = 2;
      const int before = fwd ? 2 - phase : 1, after = fwd ? 1 + phase : 1;
      for (const auto& t : test::AllTargets(impl)) {
        std::vector<T> outs[2];
        for (int poison = 0; poison < 2; ++poison) {
          test::Rng data(7 + w), junk(100 + poison);
          // Interleaved signal of 2w (2h) plus borders; bands of w (h) plus one each side.
          const int n = rows ? 2 * w : 2 * h, lanes = rows ? h : w;
          const int pad = 40;
          std::vector<T> sig(size_t((n + 2 * pad) * (lanes + 2 * pad)));
          std::vector<T> lowb(sig.size()), highb(sig.size());
          for (auto* v : {&sig, &lowb, &highb}) junk.Fill(v->data(), v->size(), T(-999), T(999));
          const int stride = rows ? n + 2 * pad : lanes + 2 * pad;  // elements per row
          auto idx = [&](int along, int across) {
            return rows ? size_t((across + pad) * stride + along + pad)
                        : size_t((along + pad) * stride + across + pad);
          };
          const int count = rows ? w : h;
          if (fwd) {
            for (int k = 0; k < lanes; ++k)
              for (int a = -before; a < n + after; ++a) sig[idx(a, k)] = T(data.Uniform(-999, 999));
          } else {
            for (int k = 0; k < lanes; ++k) {
              for (int a = -1; a <= count; ++a) {
                const bool low_border = (a == -1 && phase) || (a == count && !phase);
                if (a >= 0 && a < count) lowb[idx(a, k)] = T(data.Uniform(-999, 999));
                if (low_border) lowb[idx(a, k)] = T(data.Uniform(-999, 999));
                highb[idx(a, k)] = T(data.Uniform(-999, 999));
              }
            }
          }
          std::vector<T> o1(sig.size(), 0), o2(sig.size(), 0);
          const int32_t step = int32_t(stride * sizeof(T));
          const ImageSize roi{w, h};
          if constexpr (std::is_invocable_v<Fn, const T*, int32_t, T*, int32_t, T*, int32_t, ImageSize, int32_t>) {
            ASSERT_EQ(t.fn(&sig[idx(0, 0)], step, &o1[idx(0, 0)], step, &o2[idx(0, 0)], step, roi, phase ? 3 : 0), rvtStatusOk);
          } else {
            ASSERT_EQ(t.fn(&lowb[idx(0, 0)], step, &highb[idx(0, 0)], step, roi, &o1[idx(0, 0)], step, phase ? 3 : 0), rvtStatusOk);
          }
          std::vector<T> got;
          for (int k = 0; k < lanes; ++k)
            for (int a = 0; a < (fwd ? count : n); ++a) {
              got.push_back(o1[idx(a, k)]);
              if (fwd) got.push_back(o2[idx(a, k)]);
            }
          outs[poison] = got;
        }
        ASSERT_EQ(outs[0], outs[1]) << t.name << " w=" << w << " phase " << phase;
      }
    }
  }
}

TEST(Wavelet53, PassesReadOnlyTheirBorders) {
  ReadsOnlyBorders<int16_t>(impl_rvtiWTFwdRow_B53_JPEG2K_16s_C1R, true, true);
  ReadsOnlyBorders<int32_t>(impl_rvtiWTFwdRow_B53_JPEG2K_32s_C1R, true, true);
  ReadsOnlyBorders<int16_t>(impl_rvtiWTFwdCol_B53_JPEG2K_16s_C1R, true, false);
  ReadsOnlyBorders<int32_t>(impl_rvtiWTFwdCol_B53_JPEG2K_32s_C1R, true, false);
  ReadsOnlyBorders<int16_t>(impl_rvtiWTInvRow_B53_JPEG2K_16s_C1R, false, true);
  ReadsOnlyBorders<int32_t>(impl_rvtiWTInvRow_B53_JPEG2K_32s_C1R, false, true);
  ReadsOnlyBorders<int16_t>(impl_rvtiWTInvCol_B53_JPEG2K_16s_C1R, false, false);
  ReadsOnlyBorders<int32_t>(impl_rvtiWTInvCol_B53_JPEG2K_32s_C1R, false, false);
}

// ---------------------------------------------------------------- photos
// Five levels of each component after the RCT, at an odd origin, each
// level on the previous level's LL quadrant, then back: every sample
// restored, for 16s and 32s planes.
template <class T>
void PhotoRoundTrip(const test::Photo& ph) {
  const int w = ph.width, h = ph.height;
  std::vector<T> planes[3];
  for (auto& p : planes) p.resize(size_t(w) * size_t(h));
  for (size_t i = 0; i < planes[0].size(); ++i)
    for (int k = 0; k < 3; ++k) planes[k][i] = T(ph.px[3 * i + size_t(k)] - 128);
  const std::vector<T> orig[3] = {planes[0], planes[1], planes[2]};
  T* p3[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
  const int32_t step = int32_t(w * sizeof(T));
  constexpr bool k16 = sizeof(T) == 2;
  if constexpr (k16) {
    ASSERT_EQ(rvtiRCTFwd_JPEG2K_16s_P3IR(p3, step, {w, h}), rvtStatusOk);
  } else {
    ASSERT_EQ(rvtiRCTFwd_JPEG2K_32s_P3IR(p3, step, {w, h}), rvtStatusOk);
  }
  std::vector<ImageRect> rects;
  ImageRect r{3, 5, w, h};
  for (int level = 0; level < 5; ++level) {
    rects.push_back(r);
    const int32_t x1 = r.x + r.width, y1 = r.y + r.height;
    r = {(r.x + 1) / 2, (r.y + 1) / 2, (x1 + 1) / 2 - (r.x + 1) / 2, (y1 + 1) / 2 - (r.y + 1) / 2};
  }
  for (int k = 0; k < 3; ++k) {
    for (const ImageRect& lr : rects) {
      uint32_t bytes = 0;
      std::vector<uint8_t> buf;
      if constexpr (k16) {
        rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR(&lr, &bytes);
        buf.resize(bytes + 1);
        ASSERT_EQ(rvtiWTFwd_B53_JPEG2K_16s_C1IR(p3[k], step, &lr, buf.data()), rvtStatusOk);
      } else {
        rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&lr, &bytes);
        buf.resize(bytes + 1);
        ASSERT_EQ(rvtiWTFwd_B53_JPEG2K_32s_C1IR(p3[k], step, &lr, buf.data()), rvtStatusOk);
      }
    }
    EXPECT_NE(planes[k], orig[k]);
    for (auto it = rects.rbegin(); it != rects.rend(); ++it) {
      uint32_t bytes = 0;
      std::vector<uint8_t> buf;
      if constexpr (k16) {
        rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR(&*it, &bytes);
        buf.resize(bytes + 1);
        ASSERT_EQ(rvtiWTInv_B53_JPEG2K_16s_C1IR(p3[k], step, &*it, buf.data()), rvtStatusOk);
      } else {
        rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&*it, &bytes);
        buf.resize(bytes + 1);
        ASSERT_EQ(rvtiWTInv_B53_JPEG2K_32s_C1IR(p3[k], step, &*it, buf.data()), rvtStatusOk);
      }
    }
  }
  if constexpr (k16) {
    ASSERT_EQ(rvtiRCTInv_JPEG2K_16s_P3IR(p3, step, {w, h}), rvtStatusOk);
  } else {
    ASSERT_EQ(rvtiRCTInv_JPEG2K_32s_P3IR(p3, step, {w, h}), rvtStatusOk);
  }
  for (int k = 0; k < 3; ++k) EXPECT_EQ(planes[k], orig[k]) << "component " << k;
}

TEST(Wavelet53, PhotosRoundTripExactlyThroughFiveLevels) {
  for (const char* name : {"astronaut.png", "chelsea.png", "coffee.png"}) {
    const test::Photo ph = test::LoadPhoto(name, 3);
    ASSERT_GT(ph.width, 0) << name;
    PhotoRoundTrip<int16_t>(ph);
    PhotoRoundTrip<int32_t>(ph);
  }
}

// Line-based vertical transform with the column lifts (rows rotated by the
// caller, borders from symmetrically extended rows) gives the column
// pass's bands, on a photo's rows.
TEST(Wavelet53, ColumnLiftsGiveTheColumnPassBands) {
  const test::Photo ph = test::LoadPhoto("camera.png", 1);
  ASSERT_GT(ph.width, 0);
  const int w = ph.width, rows = ph.height & ~1, hb = rows / 2;
  // Rows -2 .. rows (phase 0: 2 before, 1 after), whole-sample symmetric.
  std::vector<int16_t> ext(size_t(rows + 3) * size_t(w));
  auto src = [&](int n) {
    const int m = n < 0 ? -n : n >= rows ? 2 * (rows - 1) - n : n;
    return ph.px.data() + size_t(m) * size_t(w);
  };
  for (int n = -2; n <= rows; ++n)
    for (int x = 0; x < w; ++x) ext[size_t(n + 2) * size_t(w) + size_t(x)] = int16_t(src(n)[x]);
  std::vector<int16_t> low(size_t(hb) * size_t(w)), high(low.size());
  const int32_t step = int32_t(2 * w);
  ASSERT_EQ(rvtiWTFwdCol_B53_JPEG2K_16s_C1R(ext.data() + 2 * size_t(w), step, low.data(), step,
                                            high.data(), step, {w, hb}, 0),
            rvtStatusOk);
  for (const auto& t : test::AllTargets(impl_rvtiWTFwdColLift_B53_JPEG2K_16s_C1)) {
    std::vector<int16_t> l2(low.size()), h2(high.size()), hminus(static_cast<size_t>(w));
    auto row = [&](int n) { return ext.data() + size_t(n + 2) * size_t(w); };
    // High row -1 from rows -2, -1, 0 (the first call's previous high row).
    for (int x = 0; x < w; ++x) hminus[size_t(x)] = int16_t(row(-1)[x] - ((row(-2)[x] + row(0)[x]) >> 1));
    const int16_t* hp = hminus.data();
    for (int i = 0; i < hb; ++i) {
      int16_t* hi = h2.data() + size_t(i) * size_t(w);
      ASSERT_EQ(t.fn(row(2 * i), row(2 * i + 1), row(2 * i + 2), l2.data() + size_t(i) * size_t(w), hp, hi, w),
                rvtStatusOk);
      hp = hi;
    }
    EXPECT_EQ(l2, low) << t.name;
    EXPECT_EQ(h2, high) << t.name;
  }
}

// ---------------------------------------------------------------- checks
// Widths over every vector remainder and long rows; both phases (and a
// non-zero phase other than 1); random border samples; steps with padding;
// starts off vector alignment.
std::vector<int> PassWidths() {
  std::vector<int> w;
  for (int k = 1; k <= 67; ++k) w.push_back(k);
  for (int k : {128, 129, 255, 1000}) w.push_back(k);
  return w;
}

// Row and column passes.  Forward: the interleaved source with its
// borders; inverse: the bands with one coefficient each side.
template <class T>
auto PassCheck(bool fwd, bool rows) {
  return test::Cases{
      [fwd, rows](test::Rng& rng) {
        std::vector<test::Case> out;
        for (int w : PassWidths()) {
          const int h = rows ? 1 + w % 3 : 1 + w % 4;
          const int phase = w % 3 == 2 ? 5 : w & 1;
          const int ph = phase ? 1 : 0;
          const int mis = int(sizeof(T)) * (w % 4);
          test::Case c;
          c.label = std::to_string(w) + "x" + std::to_string(h) + " phase " + std::to_string(phase);
          c.roi = {w, h};
          c.arg[0] = phase;
          const T lo = sizeof(T) == 2 ? T(-16384) : T(-(1 << 29)), hi = T(-lo - 1);
          if (fwd) {  // 2 - ph before, 1 + ph after, 3 in all
            if (rows) {
              c.in.push_back(test::PlaneOf<T>(2 * w + 3, h, 0, mis));
            } else {
              c.in.push_back(test::PlaneOf<T>(w, 2 * h + 3, 0, mis));
            }
            c.arg[1] = rows ? 2 - ph : (2 - ph) * c.in[0].step() / int(sizeof(T));
            c.in[0].template Fill<T>(rng, lo, hi);
            for (int k = 0; k < 2; ++k) c.out.push_back(test::PlaneOf<T>(w, h, 0, (mis + 2 * k) % 16));
          } else {
            for (int k = 0; k < 2; ++k) {
              if (rows) {
                c.in.push_back(test::PlaneOf<T>(w + 2, h, int32_t(sizeof(T) * (w + 5)), mis));
              } else {
                c.in.push_back(test::PlaneOf<T>(w, h + 2, int32_t(sizeof(T) * (w + 5)), mis));
              }
              c.in[size_t(k)].template Fill<T>(rng, lo, hi);
            }
            c.arg[1] = rows ? 1 : c.in[0].step() / int(sizeof(T));
            if (rows) {
              c.out.push_back(test::PlaneOf<T>(2 * w, h, 0, mis));
            } else {
              c.out.push_back(test::PlaneOf<T>(w, 2 * h, 0, mis));
            }
          }
          out.push_back(std::move(c));
        }
        return out;
      },
      [fwd](auto fn, test::Case& c) {
        const int32_t ph = int32_t(c.arg[0]);
        if constexpr (std::is_invocable_v<decltype(fn), const T*, int32_t, T*, int32_t, T*, int32_t,
                                          ImageSize, int32_t>) {
          return fn(c.in[0].as<T>() + c.arg[1], c.in[0].step(), c.out[0].as<T>(), c.out[0].step(),
                    c.out[1].as<T>(), c.out[1].step(), c.roi, ph);
        } else {
          return fn(c.in[0].as<T>() + c.arg[1], c.in[0].step(), c.in[1].as<T>() + c.arg[1],
                    c.in[1].step(), c.roi, c.out[0].as<T>(), c.out[0].step(), ph);
        }
        (void)fwd;
      }};
}

constexpr bool kFwd = true, kInv = false, kRows = true, kCols = false;
RVT_CHECKASM(rvtiWTFwdRow_B53_JPEG2K_16s_C1R, PassCheck<int16_t>(kFwd, kRows));
RVT_CHECKASM(rvtiWTFwdRow_B53_JPEG2K_32s_C1R, PassCheck<int32_t>(kFwd, kRows));
RVT_CHECKASM(rvtiWTFwdCol_B53_JPEG2K_16s_C1R, PassCheck<int16_t>(kFwd, kCols));
RVT_CHECKASM(rvtiWTFwdCol_B53_JPEG2K_32s_C1R, PassCheck<int32_t>(kFwd, kCols));
RVT_CHECKASM(rvtiWTInvRow_B53_JPEG2K_16s_C1R, PassCheck<int16_t>(kInv, kRows));
RVT_CHECKASM(rvtiWTInvRow_B53_JPEG2K_32s_C1R, PassCheck<int32_t>(kInv, kRows));
RVT_CHECKASM(rvtiWTInvCol_B53_JPEG2K_16s_C1R, PassCheck<int16_t>(kInv, kCols));
RVT_CHECKASM(rvtiWTInvCol_B53_JPEG2K_32s_C1R, PassCheck<int32_t>(kInv, kCols));

// Column lifts: six rows of the width, full-range samples (the 16s sums
// wrap as the reference's truncation does).
template <class T>
auto LiftCheck() {
  return test::Cases{[](test::Rng& rng) {
                       std::vector<test::Case> out;
                       for (int w : PassWidths()) {
                         test::Case c;
                         c.label = "width " + std::to_string(w);
                         c.arg[0] = w;
                         for (int k = 0; k < 4; ++k) {
                           c.in.push_back(test::ArrayOf<T>(w, int(sizeof(T)) * ((w + k) % 5)));
                           c.in.back().template Fill<T>(rng, std::numeric_limits<T>::min(),
                                                        std::numeric_limits<T>::max());
                         }
                         for (int k = 0; k < 2; ++k) c.out.push_back(test::ArrayOf<T>(w, int(sizeof(T)) * k));
                         out.push_back(std::move(c));
                       }
                       return out;
                     },
                     [](auto fn, test::Case& c) {
                       const T* a = c.in[0].as<T>();
                       const T* b = c.in[1].as<T>();
                       const T* d = c.in[2].as<T>();
                       const T* e = c.in[3].as<T>();
                       if constexpr (std::is_invocable_v<decltype(fn), const T*, const T*, const T*,
                                                         T*, const T*, T*, int32_t>) {
                         return fn(a, b, d, c.out[0].as<T>(), e, c.out[1].as<T>(), int32_t(c.arg[0]));
                       } else {
                         return fn(a, b, d, e, c.out[0].as<T>(), c.out[1].as<T>(), int32_t(c.arg[0]));
                       }
                     }};
}
RVT_CHECKASM(rvtiWTFwdColLift_B53_JPEG2K_16s_C1, LiftCheck<int16_t>());
RVT_CHECKASM(rvtiWTFwdColLift_B53_JPEG2K_32s_C1, LiftCheck<int32_t>());
RVT_CHECKASM(rvtiWTInvColLift_B53_JPEG2K_16s_C1, LiftCheck<int16_t>());
RVT_CHECKASM(rvtiWTInvColLift_B53_JPEG2K_32s_C1, LiftCheck<int32_t>());

// Whole levels: every origin parity, odd and short sizes (1xN, Nx1, 2xN),
// the buffer of exactly the queried size, full-range samples.
std::vector<ImageRect> LevelRects(test::Rng& rng) {
  std::vector<ImageRect> r;
  const std::pair<int, int> sizes[] = {{1, 1},  {1, 9},   {9, 1},  {2, 7},   {7, 2},  {2, 2},
                                       {3, 3},  {4, 4},   {5, 6},  {17, 5},  {33, 3}, {31, 40},
                                       {64, 9}, {65, 11}, {130, 7}, {3, 70}, {257, 4}};
  for (auto [w, h] : sizes)
    for (int par = 0; par < 4; ++par)
      r.push_back({int32_t(2 * rng.Uniform(0, 50) + (par & 1)), int32_t(2 * rng.Uniform(0, 50) + (par >> 1)), w, h});
  return r;
}
template <class T>
auto LevelCheck(bool fwd, bool inPlace, bool d97 = false) {
  return test::Cases{
      [fwd, inPlace, d97](test::Rng& rng) {
        std::vector<test::Case> out;
        for (const ImageRect& r : LevelRects(rng)) {
          test::Case c;
          c.label = std::to_string(r.width) + "x" + std::to_string(r.height) + " at (" +
                    std::to_string(r.x) + "," + std::to_string(r.y) + ")";
          const int mis = int(sizeof(T)) * (r.width % 3);
          c.in.push_back(test::ArrayOf<int32_t>(4));
          std::memcpy(c.in[0].as<int32_t>(), &r, sizeof r);
          const uint32_t bytes = uint32_t(d97 ? (inPlace ? wt97::BufSizeI(r, sizeof(T)) : wt97::BufSize4(r, sizeof(T)))
                                     : (inPlace ? wt53::BufSizeI(r, sizeof(T)) : wt53::BufSize4(r, sizeof(T))));
          const T lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
          c.out.push_back(test::ArrayOf<uint8_t>(int(std::max<uint32_t>(bytes, 1)), r.height % 4));
          auto bands = [&](std::vector<test::Buf>& v, bool fill) {
            for (int k = 0; k < 4; ++k) {
              const wt53::Band b = wt53::BandOf(k, r.width, r.height);
              v.push_back(test::PlaneOf<T>(std::max(b.w, 1), std::max(b.h, 1), 0, mis));
              if (fill) v.back().template Fill<T>(rng, lo, hi);
            }
          };
          if (inPlace) {
            c.out.push_back(test::PlaneOf<T>(r.width, r.height, 0, mis));
            c.out.back().template Fill<T>(rng, lo, hi);
          } else if (fwd) {
            c.in.push_back(test::PlaneOf<T>(r.width, r.height, 0, mis));
            c.in.back().template Fill<T>(rng, lo, hi);
            bands(c.out, false);
          } else {
            bands(c.in, true);
            c.out.push_back(test::PlaneOf<T>(r.width, r.height, 0, mis));
          }
          out.push_back(std::move(c));
        }
        return out;
      },
      [fwd, inPlace](auto fn, test::Case& c) {
        // The work buffer is scratch: its bytes are cleared after the call,
        // its guards still compared.
        auto scratch = [&c](RvtResult st) {
          std::memset(c.out[0].as<uint8_t>(), 0, size_t(c.out[0].plane.width()));
          return st;
        };
        return scratch([&] {
        const ImageRect* r = c.in[0].as<ImageRect>();
        uint8_t* buf = c.out[0].as<uint8_t>();
        if constexpr (std::is_invocable_v<decltype(fn), T*, int32_t, const ImageRect*, uint8_t*>) {
          return fn(c.out[1].as<T>(), c.out[1].step(), r, buf);
        } else if constexpr (std::is_invocable_v<decltype(fn), const T*, int32_t, const ImageRect*,
                                                 T* const*, const int32_t*, uint8_t*>) {
          T* d[4];
          int32_t s[4];
          for (int k = 0; k < 4; ++k) d[k] = c.out[size_t(k + 1)].as<T>(), s[k] = c.out[size_t(k + 1)].step();
          return fn(c.in[1].as<T>(), c.in[1].step(), r, d, s, buf);
        } else {
          const T* p[4];
          int32_t s[4];
          for (int k = 0; k < 4; ++k) p[k] = c.in[size_t(k + 1)].as<T>(), s[k] = c.in[size_t(k + 1)].step();
          return fn(p, s, c.out[1].as<T>(), c.out[1].step(), r, buf);
        }
        }());
        (void)fwd, (void)inPlace;
      }};
}
RVT_CHECKASM(rvtiWTFwd_B53_JPEG2K_16s_C1IR, LevelCheck<int16_t>(kFwd, true));
RVT_CHECKASM(rvtiWTFwd_B53_JPEG2K_32s_C1IR, LevelCheck<int32_t>(kFwd, true));
RVT_CHECKASM(rvtiWTInv_B53_JPEG2K_16s_C1IR, LevelCheck<int16_t>(kInv, true));
RVT_CHECKASM(rvtiWTInv_B53_JPEG2K_32s_C1IR, LevelCheck<int32_t>(kInv, true));
RVT_CHECKASM(rvtiWTFwd_B53_JPEG2K_16s_C1R, LevelCheck<int16_t>(kFwd, false));
RVT_CHECKASM(rvtiWTFwd_B53_JPEG2K_32s_C1R, LevelCheck<int32_t>(kFwd, false));
RVT_CHECKASM(rvtiWTInv_B53_JPEG2K_16s_C1R, LevelCheck<int16_t>(kInv, false));
RVT_CHECKASM(rvtiWTInv_B53_JPEG2K_32s_C1R, LevelCheck<int32_t>(kInv, false));
constexpr bool kD97 = true;
RVT_CHECKASM(rvtiWTFwd_D97_JPEG2K_16s_C1IR, LevelCheck<int16_t>(kFwd, true, kD97));
RVT_CHECKASM(rvtiWTFwd_D97_JPEG2K_32s_C1IR, LevelCheck<int32_t>(kFwd, true, kD97));
RVT_CHECKASM(rvtiWTInv_D97_JPEG2K_16s_C1IR, LevelCheck<int16_t>(kInv, true, kD97));
RVT_CHECKASM(rvtiWTInv_D97_JPEG2K_32s_C1IR, LevelCheck<int32_t>(kInv, true, kD97));
RVT_CHECKASM(rvtiWTFwd_D97_JPEG2K_16s_C1R, LevelCheck<int16_t>(kFwd, false, kD97));
RVT_CHECKASM(rvtiWTFwd_D97_JPEG2K_32s_C1R, LevelCheck<int32_t>(kFwd, false, kD97));
RVT_CHECKASM(rvtiWTInv_D97_JPEG2K_16s_C1R, LevelCheck<int16_t>(kInv, false, kD97));
RVT_CHECKASM(rvtiWTInv_D97_JPEG2K_32s_C1R, LevelCheck<int32_t>(kInv, false, kD97));

}  // namespace
}  // namespace rvt
