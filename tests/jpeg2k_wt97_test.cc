// JPEG 2000 9/7 wavelet: the forward row against a double-precision
// convolution with the standard's analysis filters, forward then inverse
// restoring the signal (float closely, fixed point within units), the
// column lifts giving the column pass's bands exactly, and every target
// against the reference.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "checkasm.h"
#include "jpeg2k/wt97.h"
#include "photo.h"

namespace rvt {
namespace {

// Analysis filters (low-pass 9 taps, high-pass 7 taps), symmetric.
constexpr double kLow[5] = {0.6029490182363579, 0.2668641184428723, -0.07822326652898785,
                            -0.01686411844287495, 0.02674875741080976};
constexpr double kHigh[4] = {1.115087052456994, -0.5912717631142470, -0.05754352622849957,
                             0.09127176311424948};

// x[-8 .. 2n+8] around the row; outputs of a phase-p row by convolution.
void Convolve(const std::vector<double>& x, int off, int n, int p, std::vector<double>& lo,
              std::vector<double>& hi) {
  lo.assign(size_t(n), 0), hi.assign(size_t(n), 0);
  for (int i = 0; i < n; ++i) {
    const int cl = off + 2 * i + p, ch = off + 2 * i + 1 - p;
    double s = kLow[0] * x[size_t(cl)], d = kHigh[0] * x[size_t(ch)];
    for (int k = 1; k < 5; ++k) s += kLow[k] * (x[size_t(cl - k)] + x[size_t(cl + k)]);
    for (int k = 1; k < 4; ++k) d += kHigh[k] * (x[size_t(ch - k)] + x[size_t(ch + k)]);
    lo[size_t(i)] = s, hi[size_t(i)] = d;
  }
}

template <class T, class Fn>
void AgainstFilters(Fn fwd, double tol) {
  test::Rng rng(3);
  for (int n : {1, 2, 3, 7, 16, 33, 100}) {
    for (int p : {0, 1}) {
      const int off = 8;
      std::vector<double> xd(size_t(2 * n + 16));
      std::vector<T> x(xd.size());
      for (size_t i = 0; i < x.size(); ++i) x[i] = T(rng.Uniform(-2000, 2000)), xd[i] = double(x[i]);
      std::vector<double> lo, hi;
      Convolve(xd, off, n, p, lo, hi);
      std::vector<T> l(static_cast<size_t>(n)), h(static_cast<size_t>(n));
      ASSERT_EQ(fwd(x.data() + off, 4 * n + 64, l.data(), 4 * n, h.data(), 4 * n, ImageSize{n, 1}, p),
                rvtStatusOk);
      for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(double(l[size_t(i)]), lo[size_t(i)], tol) << "n " << n << " phase " << p << " low " << i;
        EXPECT_NEAR(double(h[size_t(i)]), hi[size_t(i)], tol) << "n " << n << " phase " << p << " high " << i;
      }
    }
  }
}

TEST(Wavelet97, ForwardRowsAreTheAnalysisFilters) {
  AgainstFilters<float>(rvtiWTFwdRow_D97_JPEG2K_32f_C1R, 2e-3);
  AgainstFilters<int32_t>(rvtiWTFwdRow_D97_JPEG2K_32s_C1R, 2.5);
  AgainstFilters<int16_t>(rvtiWTFwdRow_D97_JPEG2K_16s_C1R, 2.5);
}

// Bands over a wider span than the row (the inverse's extension
// coefficients are real ones), then the inverse of the middle pairs.
template <class T, class F, class I>
void RoundTrip(F fwd, I inv, double tol) {
  test::Rng rng(4);
  for (int n : {1, 2, 5, 16, 37, 200}) {
    for (int p : {0, 1}) {
      const int m = n + 16;  // pairs of the wide forward, 8 each side
      std::vector<T> x(size_t(2 * m + 16));
      for (auto& v : x) v = T(rng.Uniform(-3000, 3000));
      std::vector<T> l(static_cast<size_t>(m)), h(static_cast<size_t>(m)), back(static_cast<size_t>(2 * n));
      ASSERT_EQ(fwd(x.data() + 8, 4 * m + 64, l.data(), 4 * m, h.data(), 4 * m, ImageSize{m, 1}, p),
                rvtStatusOk);
      ASSERT_EQ(inv(l.data() + 8, 4 * m, h.data() + 8, 4 * m, ImageSize{n, 1}, back.data(), 8 * n, p),
                rvtStatusOk);
      for (int i = 0; i < 2 * n; ++i)
        ASSERT_NEAR(double(back[size_t(i)]), double(x[size_t(8 + 16 + i)]), tol) << "n " << n << " p " << p << " " << i;
    }
  }
}

TEST(Wavelet97, InverseRowsRestoreTheSignal) {
  RoundTrip<float>(rvtiWTFwdRow_D97_JPEG2K_32f_C1R, rvtiWTInvRow_D97_JPEG2K_32f_C1R, 2e-3);
  RoundTrip<int32_t>(rvtiWTFwdRow_D97_JPEG2K_32s_C1R, rvtiWTInvRow_D97_JPEG2K_32s_C1R, 3);
  RoundTrip<int16_t>(rvtiWTFwdRow_D97_JPEG2K_16s_C1R, rvtiWTInvRow_D97_JPEG2K_16s_C1R, 3);
}

TEST(Wavelet97, FixedPointRoundsAsDefined) {
  // 16s intermediates saturate instead of wrapping: a full-scale
  // alternating row keeps the sign of its high-pass band.
  std::vector<int16_t> x(40);
  for (size_t i = 0; i < x.size(); ++i) x[i] = (i & 1) ? 32767 : -32768;
  int16_t l[8], h[8];
  ASSERT_EQ(rvtiWTFwdRow_D97_JPEG2K_16s_C1R(x.data() + 8, 80, l, 16, h, 16, {8, 1}, 0), rvtStatusOk);
  std::vector<int32_t> x32(x.begin(), x.end());
  int32_t l32[8], h32[8];
  ASSERT_EQ(rvtiWTFwdRow_D97_JPEG2K_32s_C1R(x32.data() + 8, 160, l32, 32, h32, 32, {8, 1}, 0), rvtStatusOk);
  for (int i = 0; i < 8; ++i) EXPECT_NE(h[i], int16_t(h32[i]));  // not the wrapped 32s result
  // The last low-pass output rounds twice, the others once.
  std::vector<int32_t> y(24);
  test::Rng rng(8);
  for (auto& v : y) v = int32_t(rng.Uniform(-5000, 5000));
  int32_t lo[4], hi[4];
  ASSERT_EQ(rvtiWTFwdRow_D97_JPEG2K_32s_C1R(y.data() + 4, 96, lo, 16, hi, 16, {4, 1}, 0), rvtStatusOk);
  auto D1 = [&](int m) { return y[size_t(4 + 2 * m + 1)] + int32_t((int64_t(y[size_t(4 + 2 * m)]) + y[size_t(4 + 2 * m + 2)]) * -103949 + 32768 >> 16); };
  auto S1 = [&](int k) { return y[size_t(4 + 2 * k)] + int32_t((int64_t(D1(k - 1)) + D1(k)) * -3472 + 32768 >> 16); };
  auto D2 = [&](int m) { return D1(m) + int32_t((int64_t(S1(m)) + S1(m + 1)) * 57862 + 32768 >> 16); };
  EXPECT_EQ(lo[0], int32_t(((int64_t(D2(-1)) + D2(0)) * 23627 + int64_t(S1(0)) * 53274 + 32768) >> 16));
  const int32_t s3 = S1(3) + int32_t((int64_t(D2(2)) + D2(3)) * 29066 + 32768 >> 16);
  EXPECT_EQ(lo[3], int32_t((int64_t(s3) * 53274 + 32768) >> 16));
  EXPECT_EQ(hi[2], int32_t((int64_t(D2(2)) * 80621 + 32768) >> 16));
}

// The line-based pipeline: rows fed in pairs, the caller rotating p7 to
// p6, p6 to p5 and p4 to p3; call i finishes low row i - 1 and high row i -
// 2, equal to the column pass's.
TEST(Wavelet97, ColumnLiftsGiveTheColumnPassBands) {
  const int w = 37, hb = 12, rows = 2 * hb, ext = 12;
  test::Rng rng(6);
  std::vector<float> base(size_t(rows * w));
  for (auto& v : base) v = float(rng.Uniform(-255, 255));
  std::vector<float> all(size_t((rows + 2 * ext) * w));
  for (int n = -ext; n < rows + ext; ++n) {
    int m = n;
    while (m < 0 || m >= rows) m = m < 0 ? -m : 2 * (rows - 1) - m;
    std::copy(base.begin() + m * w, base.begin() + (m + 1) * w, all.begin() + (n + ext) * w);
  }
  auto row = [&](int n) { return all.data() + size_t(n + ext) * size_t(w); };
  std::vector<float> low(size_t(hb * w)), high(low.size());
  ASSERT_EQ(rvtiWTFwdCol_D97_JPEG2K_32f_C1R(row(0), 4 * w, low.data(), 4 * w, high.data(), 4 * w, {w, hb}, 0),
            rvtStatusOk);
  for (const auto& t : test::AllTargets(impl_rvtiWTFwdColLift_D97_JPEG2K_32f_C1)) {
    const size_t wn = static_cast<size_t>(w);
    std::vector<float> p3(wn), p4(wn), p5(wn), p6(wn), p7(wn);
    for (int i = -2; i <= hb + 1; ++i) {
      ASSERT_EQ(t.fn(row(2 * i), row(2 * i + 1), row(2 * i + 2), p3.data(), p4.data(), p5.data(),
                     p6.data(), p7.data(), w),
                rvtStatusOk);
      if (i >= 1 && i - 1 < hb)
        for (int x = 0; x < w; ++x) ASSERT_EQ(p3[size_t(x)], low[size_t((i - 1) * w + x)]) << t.name << " low " << i - 1;
      if (i >= 2 && i - 2 < hb)
        for (int x = 0; x < w; ++x) ASSERT_EQ(p5[size_t(x)], high[size_t((i - 2) * w + x)]) << t.name << " high " << i - 2;
      std::swap(p5, p6);  // p6 (high i-1 at gamma) becomes p5
      std::swap(p6, p7);  // p7 (high i at alpha) becomes p6
      std::swap(p3, p4);  // p4 (low i at beta) becomes p3
    }
  }
}

// ---------------------------------------------------------------- photos
// Five levels of float 9/7 after the float ICT, through the passes with
// the borders extended here (whole-sample symmetric), and back: the PSNR of
// the round trip is reported and must be far above visible loss.
int32_t MirrorPos(int32_t n, int32_t L) {
  while (n < 0 || n >= L) n = n < 0 ? -n : 2 * (L - 1) - n;
  return n;
}

// One level on the top-left w x h (both even) of a plane of stride `s`.
void Level97(float* p, int s, int w, int h, bool fwd) {
  const int hw = w / 2, hh = h / 2;
  auto at = [&](int x, int y) -> float& { return p[size_t(y) * size_t(s) + size_t(x)]; };
  auto columns = [&] {
    if (fwd) {
      std::vector<float> ext(size_t((h + 8) * w)), lo(size_t(hh * w)), hi(lo.size());
      for (int y = -4; y < h + 4; ++y)
        for (int x = 0; x < w; ++x) ext[size_t((y + 4) * w + x)] = at(x, MirrorPos(y, h));
      ASSERT_EQ(rvtiWTFwdCol_D97_JPEG2K_32f_C1R(ext.data() + 4 * w, 4 * w, lo.data(), 4 * w, hi.data(), 4 * w, {w, hh}, 0), rvtStatusOk);
      for (int y = 0; y < hh; ++y)
        for (int x = 0; x < w; ++x) at(x, y) = lo[size_t(y * w + x)], at(x, hh + y) = hi[size_t(y * w + x)];
    } else {
      std::vector<float> lo(size_t((hh + 4) * w)), hi(lo.size()), out(size_t(h * w));
      for (int k = -2; k < hh + 2; ++k)
        for (int x = 0; x < w; ++x) {
          lo[size_t((k + 2) * w + x)] = at(x, MirrorPos(2 * k, h) / 2);
          hi[size_t((k + 2) * w + x)] = at(x, hh + (MirrorPos(2 * k + 1, h) - 1) / 2);
        }
      ASSERT_EQ(rvtiWTInvCol_D97_JPEG2K_32f_C1R(lo.data() + 2 * w, 4 * w, hi.data() + 2 * w, 4 * w, {w, hh}, out.data(), 4 * w, 0), rvtStatusOk);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) at(x, y) = out[size_t(y * w + x)];
    }
  };
  auto rows = [&] {
    for (int y = 0; y < h; ++y) {
      if (fwd) {
        std::vector<float> ext(static_cast<size_t>(w + 8)), lo(static_cast<size_t>(hw)), hi(static_cast<size_t>(hw));
        for (int x = -4; x < w + 4; ++x) ext[size_t(x + 4)] = at(MirrorPos(x, w), y);
        ASSERT_EQ(rvtiWTFwdRow_D97_JPEG2K_32f_C1R(ext.data() + 4, 4 * (w + 8), lo.data(), 4 * hw, hi.data(), 4 * hw, {hw, 1}, 0), rvtStatusOk);
        for (int x = 0; x < hw; ++x) at(x, y) = lo[size_t(x)], at(hw + x, y) = hi[size_t(x)];
      } else {
        std::vector<float> lo(static_cast<size_t>(hw + 4)), hi(static_cast<size_t>(hw + 4)), out(static_cast<size_t>(w));
        for (int k = -2; k < hw + 2; ++k) {
          lo[size_t(k + 2)] = at(MirrorPos(2 * k, w) / 2, y);
          hi[size_t(k + 2)] = at(hw + (MirrorPos(2 * k + 1, w) - 1) / 2, y);
        }
        ASSERT_EQ(rvtiWTInvRow_D97_JPEG2K_32f_C1R(lo.data() + 2, 4 * (hw + 4), hi.data() + 2, 4 * (hw + 4), {hw, 1}, out.data(), 4 * w, 0), rvtStatusOk);
        for (int x = 0; x < w; ++x) at(x, y) = out[size_t(x)];
      }
    }
  };
  if (fwd) {
    columns();
    rows();
  } else {
    rows();
    columns();
  }
}

TEST(Wavelet97, PhotosThroughFiveLevelsAndBack) {
  for (const char* name : {"astronaut.png", "chelsea.png", "coffee.png"}) {
    const test::Photo ph = test::LoadPhoto(name, 3);
    ASSERT_GT(ph.width, 0);
    const int w = ph.width & ~31, h = ph.height & ~31;
    std::vector<float> c3(size_t(3 * w * h));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < 3 * w; ++x) c3[size_t(y * 3 * w + x)] = float(ph.px[size_t(y * 3 * ph.width + x)]) - 128.f;
    std::vector<float> pl[3];
    for (auto& v : pl) v.resize(size_t(w * h));
    float* p3[3] = {pl[0].data(), pl[1].data(), pl[2].data()};
    ASSERT_EQ(rvtiICTFwd_JPEG2K_32f_C3P3R(c3.data(), 12 * w, p3, 4 * w, {w, h}), rvtStatusOk);
    double energy_ll = 0;
    for (auto& v : pl) {
      for (int l = 0; l < 5; ++l) Level97(v.data(), w, w >> l, h >> l, true);
      energy_ll += std::abs(v[0]);
      for (int l = 4; l >= 0; --l) Level97(v.data(), w, w >> l, h >> l, false);
    }
    std::vector<float> back(c3.size());
    const float* cp[3] = {pl[0].data(), pl[1].data(), pl[2].data()};
    ASSERT_EQ(rvtiICTInv_JPEG2K_32f_P3C3R(cp, 4 * w, back.data(), 12 * w, {w, h}), rvtStatusOk);
    double se = 0, fse = 0;
    for (size_t i = 0; i < c3.size(); ++i) {
      fse += (double(back[i]) - c3[i]) * (double(back[i]) - c3[i]);
      const double v = std::clamp(std::round(back[i] + 128.0), 0.0, 255.0);
      se += (v - (c3[i] + 128.0)) * (v - (c3[i] + 128.0));
    }
    const double mse = se / double(c3.size());
    const double psnr = mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
    const double fpsnr = 10 * std::log10(255.0 * 255.0 * double(c3.size()) / std::max(fse, 1e-30));
    std::printf("9/7 + ICT, 5 levels, %s %dx%d: PSNR %.2f dB in float, %.2f dB rounded to 8 bits\n",
                name, w, h, fpsnr, psnr);
    EXPECT_GT(psnr, 50.0) << name;
    EXPECT_GT(energy_ll, 0.0);
  }
}

// ---------------------------------------------------------------- whole levels
// The standard's 1D_SD for the 9/7 kernel in double precision (periodic
// symmetric extension, lifting, low x 1/K, high x K; one sample kept or
// doubled), columns first, the result in the quadrant layout.
std::vector<double> Sd97(const std::vector<double>& x, int64_t i0) {
  const int64_t L = int64_t(x.size());
  if (L == 1) return {(i0 & 1) ? 2 * x[0] : x[0]};
  const double a = -1.586134342059924, b = -0.052980118572961, g = 0.882911075530934,
               d = 0.443506852043971, K = 1.230174104914001;
  std::vector<double> y(size_t(L + 8));
  auto Y = [&](int64_t n) -> double& { return y[size_t(n + 4)]; };
  for (int64_t n = -4; n < L + 4; ++n) {
    int64_t m = n;
    while (m < 0 || m >= L) m = m < 0 ? -m : 2 * (L - 1) - m;
    Y(n) = x[size_t(m)];
  }
  auto odd = [&](int64_t n) { return ((i0 + n) & 1) != 0; };
  for (int64_t n = -3; n <= L + 2; ++n) if (odd(n)) Y(n) += a * (Y(n - 1) + Y(n + 1));
  for (int64_t n = -2; n <= L + 1; ++n) if (!odd(n)) Y(n) += b * (Y(n - 1) + Y(n + 1));
  for (int64_t n = -1; n <= L; ++n) if (odd(n)) Y(n) += g * (Y(n - 1) + Y(n + 1));
  for (int64_t n = 0; n < L; ++n) if (!odd(n)) Y(n) += d * (Y(n - 1) + Y(n + 1));
  std::vector<double> out;
  for (int par = 0; par < 2; ++par)
    for (int64_t n = 0; n < L; ++n)
      if (odd(n) == bool(par)) out.push_back(par ? Y(n) * K : Y(n) / K);
  return out;
}

template <class T, class F, class I, class S>
void Levels97(F fwd, I inv, S size, int lo, int hi, double tol, double back_tol) {
  test::Rng rng(12);
  const std::pair<int, int> sizes[] = {{1, 1}, {1, 9}, {9, 1}, {2, 7}, {7, 2}, {2, 2}, {3, 3},
                                       {4, 5}, {17, 6}, {33, 31}, {64, 3}};
  for (auto [w, h] : sizes) {
    for (int par = 0; par < 4; ++par) {
      const ImageRect r{20 + (par & 1), 30 + (par >> 1), w, h};
      std::vector<T> plane(size_t(w * h));
      for (auto& v : plane) v = T(rng.Uniform(lo, hi));
      std::vector<double> want(plane.begin(), plane.end());
      for (int x = 0; x < w; ++x) {
        std::vector<double> c(static_cast<size_t>(h));
        for (int y = 0; y < h; ++y) c[size_t(y)] = want[size_t(y * w + x)];
        c = Sd97(c, r.y);
        for (int y = 0; y < h; ++y) want[size_t(y * w + x)] = c[size_t(y)];
      }
      for (int y = 0; y < h; ++y) {
        std::vector<double> row(want.begin() + y * w, want.begin() + (y + 1) * w);
        row = Sd97(row, r.x);
        std::copy(row.begin(), row.end(), want.begin() + y * w);
      }
      uint32_t bytes = 0;
      ASSERT_EQ(size(&r, &bytes), rvtStatusOk);
      std::vector<uint8_t> buf(bytes + 1);
      std::vector<T> got = plane;
      ASSERT_EQ(fwd(got.data(), int32_t(w * sizeof(T)), &r, buf.data()), rvtStatusOk);
      for (size_t i = 0; i < got.size(); ++i)
        ASSERT_NEAR(double(got[i]), want[i], tol + 5e-4 * std::abs(want[i])) << w << "x" << h << " parity " << par << " sample " << i;
      ASSERT_EQ(inv(got.data(), int32_t(w * sizeof(T)), &r, buf.data()), rvtStatusOk);
      for (size_t i = 0; i < got.size(); ++i)
        ASSERT_NEAR(double(got[i]), double(plane[i]), back_tol + 2e-3 * std::abs(double(plane[i]))) << w << "x" << h << " parity " << par << " back " << i;
    }
  }
}

// Whole levels in place touch only the plane and the queried work buffer:
// both laid flush against an inaccessible page (the buffer's end, then the
// plane's end), every target equal to the reference.
template <class T, class F, class S>
void FencedLevels(const Impl<F>& impl, S size) {
  test::Rng rng(31);
  const std::pair<int, int> sizes[] = {{1, 9}, {9, 1}, {2, 2}, {2, 7}, {3, 5}, {17, 9}, {64, 33}, {35, 70}};
  for (auto [w, h] : sizes) {
    for (int par = 0; par < 4; ++par) {
      const ImageRect r{par & 1, par >> 1, w, h};
      uint32_t bytes = 0;
      ASSERT_EQ(size(&r, &bytes), rvtStatusOk);
      const size_t n = size_t(w) * size_t(h);
      std::vector<T> plane(n);
      for (auto& v : plane) v = T(rng.Uniform(-3000, 3000));
      std::vector<T> want = plane;
      std::vector<uint8_t> wbuf(bytes + 1);
      ASSERT_EQ(test::Reference(impl)(want.data(), int32_t(w * sizeof(T)), &r, wbuf.data()), rvtStatusOk);
      for (const auto& t : test::AllTargets(impl)) {
        test::PageFence pf(n * sizeof(T)), bf(bytes + 1);
        ASSERT_TRUE(pf.ok() && bf.ok());
        T* p = reinterpret_cast<T*>(pf.BeforeHigh(n * sizeof(T)));
        std::copy(plane.begin(), plane.end(), p);
        ASSERT_EQ(t.fn(p, int32_t(w * sizeof(T)), &r, bf.BeforeHigh(bytes ? bytes : 1)), rvtStatusOk);
        ASSERT_TRUE(std::equal(want.begin(), want.end(), p)) << t.name << " " << w << "x" << h << " parity " << par;
      }
    }
  }
}

TEST(Wavelet97, WholeLevelsStayInsideThePlaneAndTheBuffer) {
  FencedLevels<int16_t>(impl_rvtiWTFwd_D97_JPEG2K_16s_C1IR, rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR);
  FencedLevels<int16_t>(impl_rvtiWTInv_D97_JPEG2K_16s_C1IR, rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR);
  FencedLevels<int32_t>(impl_rvtiWTFwd_D97_JPEG2K_32s_C1IR, rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR);
  FencedLevels<int32_t>(impl_rvtiWTInv_D97_JPEG2K_32s_C1IR, rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR);
  FencedLevels<int16_t>(impl_rvtiWTFwd_B53_JPEG2K_16s_C1IR, rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR);
  FencedLevels<int32_t>(impl_rvtiWTInv_B53_JPEG2K_32s_C1IR, rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR);
}

TEST(Wavelet97, WholeLevelsAgreeWithThePlainTransform) {
  Levels97<int32_t>(rvtiWTFwd_D97_JPEG2K_32s_C1IR, rvtiWTInv_D97_JPEG2K_32s_C1IR,
                    rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR, -5000, 5000, 4.0, 8.0);
  Levels97<int16_t>(rvtiWTFwd_D97_JPEG2K_16s_C1IR, rvtiWTInv_D97_JPEG2K_16s_C1IR,
                    rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR, -5000, 5000, 4.0, 8.0);
  uint32_t n = 1;
  const ImageRect r11{1, 1, 1, 1}, r21{0, 0, 2, 1};
  EXPECT_EQ(rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR(&r11, &n), rvtStatusOk);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR(&r21, &n), rvtStatusOk);
  EXPECT_EQ(n, 4u * 2 + 32);
  EXPECT_EQ(rvtiWTGetBufSize_D97_JPEG2K_16s_C1R(&r21, &n), rvtStatusOk);
  EXPECT_EQ(n, 2u * 2 + 16 + 32);
}

// ---------------------------------------------------------------- checks
std::vector<int> Widths97() {
  std::vector<int> w;
  for (int k = 1; k <= 67; ++k) w.push_back(k);
  for (int k : {128, 129, 300}) w.push_back(k);
  return w;
}

// Passes: random signals with random borders (4 + 4 samples or rows
// around the interleaved signal; 2 coefficients each side of the bands).
// Fixed point alternates full-range samples (16s saturating, 32s wrapping
// and needing the full 64-bit products) with moderate ones.
template <class T>
std::pair<T, T> Range97(int w) {
  if constexpr (std::is_same_v<T, float>) {
    return {-1000.f, 1000.f};
  } else {
    if (w % 2) return {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()};
    return {T(-3000), T(3000)};
  }
}
template <class T>
auto PassCheck97(bool fwd, bool rows) {
  constexpr int kB = int(sizeof(T));
  return test::Cases{
      [fwd, rows](test::Rng& rng) {
        std::vector<test::Case> out;
        for (int w : Widths97()) {
          const int h = rows ? 1 + w % 3 : 1 + w % 5;
          const int phase = w % 3 == 2 ? 7 : w & 1;
          const auto [lo, hi] = Range97<T>(w);
          test::Case c;
          c.label = std::to_string(w) + "x" + std::to_string(h) + " phase " + std::to_string(phase);
          c.roi = {w, h};
          c.arg[0] = phase;
          const int mis = kB * (w % 4);
          if (fwd) {
            if (rows) {
              c.in.push_back(test::PlaneOf<T>(2 * w + 8, h, 0, mis));
            } else {
              c.in.push_back(test::PlaneOf<T>(w, 2 * h + 8, 0, mis));
            }
            c.arg[1] = rows ? 4 : 4 * c.in[0].step() / kB;
            c.in[0].template Fill<T>(rng, lo, hi);
            for (int k = 0; k < 2; ++k) c.out.push_back(test::PlaneOf<T>(w, h, 0, (mis + 2 * kB * k) % 32));
          } else {
            for (int k = 0; k < 2; ++k) {
              if (rows) {
                c.in.push_back(test::PlaneOf<T>(w + 4, h, int32_t(kB * (w + 6)), mis));
              } else {
                c.in.push_back(test::PlaneOf<T>(w, h + 4, int32_t(kB * (w + 6)), mis));
              }
              c.in.back().template Fill<T>(rng, lo, hi);
            }
            c.arg[1] = rows ? 2 : 2 * c.in[0].step() / kB;
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
      [](auto fn, test::Case& c) {
        const int32_t ph = int32_t(c.arg[0]);
        if constexpr (std::is_invocable_v<decltype(fn), const T*, int32_t, T*, int32_t, T*, int32_t,
                                          ImageSize, int32_t>) {
          return fn(c.in[0].as<T>() + c.arg[1], c.in[0].step(), c.out[0].as<T>(), c.out[0].step(),
                    c.out[1].as<T>(), c.out[1].step(), c.roi, ph);
        } else {
          return fn(c.in[0].as<T>() + c.arg[1], c.in[0].step(), c.in[1].as<T>() + c.arg[1],
                    c.in[1].step(), c.roi, c.out[0].as<T>(), c.out[0].step(), ph);
        }
      }};
}
RVT_CHECKASM(rvtiWTFwdRow_D97_JPEG2K_32f_C1R, PassCheck97<float>(true, true));
RVT_CHECKASM(rvtiWTInvRow_D97_JPEG2K_32f_C1R, PassCheck97<float>(false, true));
RVT_CHECKASM(rvtiWTFwdCol_D97_JPEG2K_32f_C1R, PassCheck97<float>(true, false));
RVT_CHECKASM(rvtiWTInvCol_D97_JPEG2K_32f_C1R, PassCheck97<float>(false, false));
RVT_CHECKASM(rvtiWTFwdRow_D97_JPEG2K_16s_C1R, PassCheck97<int16_t>(true, true));
RVT_CHECKASM(rvtiWTInvRow_D97_JPEG2K_16s_C1R, PassCheck97<int16_t>(false, true));
RVT_CHECKASM(rvtiWTFwdRow_D97_JPEG2K_32s_C1R, PassCheck97<int32_t>(true, true));
RVT_CHECKASM(rvtiWTInvRow_D97_JPEG2K_32s_C1R, PassCheck97<int32_t>(false, true));

// Column lifts: eight rows; three read, five updated (forward) or the
// mirror (inverse).
template <class T>
auto LiftCheck97() {
  return test::Cases{[](test::Rng& rng) {
                       std::vector<test::Case> out;
                       for (int w : Widths97()) {
                         const auto [lo, hi] = Range97<T>(w);
                         test::Case c;
                         c.label = "width " + std::to_string(w);
                         c.arg[0] = w;
                         for (int k = 0; k < 8; ++k) {
                           c.out.push_back(test::ArrayOf<T>(w, int(sizeof(T)) * ((w + k) % 5)));
                           c.out.back().template Fill<T>(rng, lo, hi);
                         }
                         out.push_back(std::move(c));
                       }
                       return out;
                     },
                     [](auto fn, test::Case& c) {
                       T* p[8];
                       for (int k = 0; k < 8; ++k) p[k] = c.out[size_t(k)].as<T>();
                       return fn(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], int32_t(c.arg[0]));
                     }};
}
RVT_CHECKASM(rvtiWTFwdColLift_D97_JPEG2K_32f_C1, LiftCheck97<float>());
RVT_CHECKASM(rvtiWTInvColLift_D97_JPEG2K_32f_C1, LiftCheck97<float>());
RVT_CHECKASM(rvtiWTFwdColLift_D97_JPEG2K_16s_C1, LiftCheck97<int16_t>());
RVT_CHECKASM(rvtiWTInvColLift_D97_JPEG2K_16s_C1, LiftCheck97<int16_t>());
RVT_CHECKASM(rvtiWTFwdColLift_D97_JPEG2K_32s_C1, LiftCheck97<int32_t>());
RVT_CHECKASM(rvtiWTInvColLift_D97_JPEG2K_32s_C1, LiftCheck97<int32_t>());

// The forward passes read exactly their borders: the source (4 + 4 or 3 +
// 4 samples or rows around the signal, by phase) laid flush against an
// inaccessible page on either side, every target equal to the reference.
template <class T, class Fn>
void FencedForward(const Impl<Fn>& impl, bool rows) {
  test::Rng rng(21);
  for (int w : {1, 2, 3, 7, 8, 9, 16, 17, 33, 64}) {
    for (int h : {1, 2, 3, 5}) {
      for (int p : {0, 1}) {
        const int before = 4 - p, after = 3 + p;
        // Rows: h rows of 2w + 7 samples; columns: 2h + 7 rows of w.
        const int sw = rows ? 2 * w + before + after : w, sh = rows ? h : 2 * h + before + after;
        const size_t n = size_t(sw) * size_t(sh);
        std::vector<T> src(n), want_l(size_t(w * h)), want_h(want_l.size());
        for (auto& v : src) v = T(rng.Uniform(-2000, 2000));
        const int32_t step = int32_t(sw * sizeof(T));
        const ptrdiff_t origin = rows ? before : ptrdiff_t(before) * sw;
        ASSERT_EQ(test::Reference(impl)(src.data() + origin, step, want_l.data(), int32_t(w * sizeof(T)),
                                        want_h.data(), int32_t(w * sizeof(T)), {w, h}, p),
                  rvtStatusOk);
        for (const auto& t : test::AllTargets(impl)) {
          for (bool high_side : {false, true}) {
            test::PageFence fence(n * sizeof(T));
            ASSERT_TRUE(fence.ok());
            T* s = reinterpret_cast<T*>(high_side ? fence.BeforeHigh(n * sizeof(T)) : fence.AfterLow());
            std::copy(src.begin(), src.end(), s);
            std::vector<T> l(want_l.size()), hh(want_h.size());
            ASSERT_EQ(t.fn(s + origin, step, l.data(), int32_t(w * sizeof(T)), hh.data(), int32_t(w * sizeof(T)),
                           {w, h}, p),
                      rvtStatusOk);
            ASSERT_EQ(l, want_l) << t.name << " " << w << "x" << h << " phase " << p;
            ASSERT_EQ(hh, want_h) << t.name << " " << w << "x" << h << " phase " << p;
          }
        }
      }
    }
  }
}

TEST(Wavelet97, ForwardPassesReadOnlyTheirBorders) {
  FencedForward<float>(impl_rvtiWTFwdCol_D97_JPEG2K_32f_C1R, false);
  FencedForward<float>(impl_rvtiWTFwdRow_D97_JPEG2K_32f_C1R, true);
  FencedForward<int16_t>(impl_rvtiWTFwdRow_D97_JPEG2K_16s_C1R, true);
  FencedForward<int32_t>(impl_rvtiWTFwdRow_D97_JPEG2K_32s_C1R, true);
}

}  // namespace
}  // namespace rvt
