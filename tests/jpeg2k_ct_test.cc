// JPEG 2000 component transforms: known answers (grey input, saturation,
// the two 16s/32s ICT forms), exact RCT round trips, the checks with
// nothing written, and every target against the reference.
#include <cmath>

#include "checkasm.h"
#include "jpeg2k/ct.h"

namespace rvt {
namespace {

enum class Form { kC3P3, kP3, kP3C3 };

// Widths over every vector remainder, a long row, 1 to 3 rows, steps with
// padding, starts off alignment (odd bytes too).
template <class T>
std::vector<test::Case> CtCases(test::Rng& rng, Form form, T lo, T hi) {
  std::vector<test::Case> out;
  std::vector<int> widths;
  for (int w = 1; w <= 67; ++w) widths.push_back(w);
  for (int w : {127, 128, 129, 1000}) widths.push_back(w);
  for (int w : widths) {
    test::Case c;
    const int h = 1 + w % 3, pad = int(sizeof(T)) * (w % 4), mis = (w % 5 == 4) ? 1 : int(sizeof(T)) * (w % 3);
    c.label = std::to_string(w) + "x" + std::to_string(h);
    c.roi = {w, h};
    const int32_t plane_step = int32_t(w * sizeof(T)) + pad;
    const int32_t c3_step = int32_t(3 * w * sizeof(T)) + 2 * pad;
    auto planes = [&](std::vector<test::Buf>& v) {
      for (int k = 0; k < 3; ++k) {
        v.push_back(test::PlaneOf<T>(w, h, plane_step, (mis + k) % 8));
        v.back().template Fill<T>(rng, lo, hi);
      }
    };
    if (form == Form::kC3P3) {
      c.in.push_back(test::PlaneOf<T>(3 * w, h, c3_step, mis));
      c.in[0].template Fill<T>(rng, lo, hi);
      planes(c.out);
    } else if (form == Form::kP3) {
      planes(c.out);
    } else {
      planes(c.in);
      c.out.push_back(test::PlaneOf<T>(3 * w, h, c3_step, mis));
    }
    out.push_back(std::move(c));
  }
  return out;
}

template <class T>
auto CtCheck(Form form, T lo, T hi) {
  return test::Cases{[form, lo, hi](test::Rng& rng) { return CtCases<T>(rng, form, lo, hi); },
                     [form](auto fn, test::Case& c) {
                       using Fn = decltype(fn);
                       if constexpr (std::is_invocable_v<Fn, const T*, int32_t, T* const*, int32_t,
                                                         ImageSize>) {
                         T* d[3] = {c.out[0].as<T>(), c.out[1].as<T>(), c.out[2].as<T>()};
                         return fn(c.in[0].as<T>(), c.in[0].step(), d, c.out[0].step(), c.roi);
                       } else if constexpr (std::is_invocable_v<Fn, T* const*, int32_t, ImageSize>) {
                         T* p[3] = {c.out[0].as<T>(), c.out[1].as<T>(), c.out[2].as<T>()};
                         return fn(p, c.out[0].step(), c.roi);
                       } else {
                         const T* s[3] = {c.in[0].as<T>(), c.in[1].as<T>(), c.in[2].as<T>()};
                         return fn(s, c.in[0].step(), c.out[0].as<T>(), c.out[0].step(), c.roi);
                       }
                       (void)form;
                     }};
}

constexpr int16_t kMin16 = -32768, kMax16 = 32767;
constexpr int32_t kMin32 = INT32_MIN, kMax32 = INT32_MAX;

// Full ranges: 16s and 32s RCT wrap, 16s ICT saturates, 32s ICT wraps.
RVT_CHECKASM(rvtiRCTFwd_JPEG2K_16s_C3P3R, CtCheck<int16_t>(Form::kC3P3, kMin16, kMax16));
RVT_CHECKASM(rvtiRCTFwd_JPEG2K_32s_C3P3R, CtCheck<int32_t>(Form::kC3P3, kMin32, kMax32));
RVT_CHECKASM(rvtiRCTFwd_JPEG2K_16s_P3IR, CtCheck<int16_t>(Form::kP3, kMin16, kMax16));
RVT_CHECKASM(rvtiRCTFwd_JPEG2K_32s_P3IR, CtCheck<int32_t>(Form::kP3, kMin32, kMax32));
RVT_CHECKASM(rvtiRCTInv_JPEG2K_16s_P3C3R, CtCheck<int16_t>(Form::kP3C3, kMin16, kMax16));
RVT_CHECKASM(rvtiRCTInv_JPEG2K_32s_P3C3R, CtCheck<int32_t>(Form::kP3C3, kMin32, kMax32));
RVT_CHECKASM(rvtiRCTInv_JPEG2K_16s_P3IR, CtCheck<int16_t>(Form::kP3, kMin16, kMax16));
RVT_CHECKASM(rvtiRCTInv_JPEG2K_32s_P3IR, CtCheck<int32_t>(Form::kP3, kMin32, kMax32));
RVT_CHECKASM(rvtiICTFwd_JPEG2K_32f_C3P3R, CtCheck<float>(Form::kC3P3, -300.f, 300.f));
RVT_CHECKASM(rvtiICTFwd_JPEG2K_16s_P3IR, CtCheck<int16_t>(Form::kP3, kMin16, kMax16));
RVT_CHECKASM(rvtiICTFwd_JPEG2K_32s_P3IR, CtCheck<int32_t>(Form::kP3, kMin32, kMax32));
RVT_CHECKASM(rvtiICTFwd_JPEG2K_32f_P3IR, CtCheck<float>(Form::kP3, -300.f, 300.f));
RVT_CHECKASM(rvtiICTInv_JPEG2K_32f_P3C3R, CtCheck<float>(Form::kP3C3, -300.f, 300.f));
RVT_CHECKASM(rvtiICTInv_JPEG2K_16s_P3IR, CtCheck<int16_t>(Form::kP3, kMin16, kMax16));
RVT_CHECKASM(rvtiICTInv_JPEG2K_32s_P3IR, CtCheck<int32_t>(Form::kP3, kMin32, kMax32));
RVT_CHECKASM(rvtiICTInv_JPEG2K_32f_P3IR, CtCheck<float>(Form::kP3, -300.f, 300.f));

// Planes of n samples, interleaved and planar copies.
template <class T>
struct Px {
  std::vector<T> c3, p[3];
  explicit Px(int n) : c3(size_t(3 * n)) {
    for (auto& v : p) v.resize(size_t(n));
  }
  T* const* planes() { return planes_ = {p[0].data(), p[1].data(), p[2].data()}, planes_.data(); }
  std::array<T*, 3> planes_;
};

TEST(Rct, ForwardThenInverseRestoresEveryInput) {
  const int n = 777;
  test::Rng rng(5);
  for (int range : {255, 16383}) {  // 16s: differences within 16 bits
    Px<int16_t> a(n);
    rng.Fill(a.c3.data(), a.c3.size(), int16_t(-range - 1), int16_t(range));
    const auto src = a.c3;
    ASSERT_EQ(rvtiRCTFwd_JPEG2K_16s_C3P3R(a.c3.data(), 6 * n, a.planes(), 2 * n, {n, 1}), rvtStatusOk);
    Px<int16_t> b(n);
    const int16_t* in[3] = {a.p[0].data(), a.p[1].data(), a.p[2].data()};
    ASSERT_EQ(rvtiRCTInv_JPEG2K_16s_P3C3R(in, 2 * n, b.c3.data(), 6 * n, {n, 1}), rvtStatusOk);
    EXPECT_EQ(b.c3, src);
    ASSERT_EQ(rvtiRCTInv_JPEG2K_16s_P3IR(a.planes(), 2 * n, {n, 1}), rvtStatusOk);
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < 3; ++k) ASSERT_EQ(a.p[k][size_t(i)], src[size_t(3 * i + k)]) << i;
  }
  Px<int32_t> c(n);  // 32s: any samples whose sums stay in 32 bits
  rng.Fill(c.c3.data(), c.c3.size(), -(1 << 29), (1 << 29) - 1);
  const auto src = c.c3;
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < 3; ++k) c.p[k][size_t(i)] = src[size_t(3 * i + k)];
  ASSERT_EQ(rvtiRCTFwd_JPEG2K_32s_P3IR(c.planes(), 4 * n, {n, 1}), rvtStatusOk);
  ASSERT_EQ(rvtiRCTInv_JPEG2K_32s_P3IR(c.planes(), 4 * n, {n, 1}), rvtStatusOk);
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < 3; ++k) ASSERT_EQ(c.p[k][size_t(i)], src[size_t(3 * i + k)]) << i;
}

TEST(ComponentTransforms, GreyInputHasNoColour) {
  for (int v : {-32768, -1000, -1, 0, 1, 77, 32767}) {
    int16_t r16[3] = {int16_t(v), int16_t(v), int16_t(v)}, y16, u16, v16;
    ct::Rct<int16_t>::Fwd(r16[0], r16[1], r16[2], y16, u16, v16);
    EXPECT_EQ(y16, v); EXPECT_EQ(u16, 0); EXPECT_EQ(v16, 0);
    ct::Ict16::Fwd(r16[0], r16[1], r16[2], y16, u16, v16);
    EXPECT_EQ(y16, v); EXPECT_EQ(u16, 0); EXPECT_EQ(v16, 0);
    int32_t y32, u32, v32;
    ct::Ict32::Fwd(v, v, v, y32, u32, v32);
    EXPECT_EQ(y32, v); EXPECT_EQ(u32, 0); EXPECT_EQ(v32, 0);
  }
  float y, u, v;
  ct::IctF::Fwd(100.f, 100.f, 100.f, y, u, v);
  EXPECT_NEAR(y, 100.f, 1e-4f);
  EXPECT_NE(u, 0.f);  // the Cb row sums to -0.00001
  EXPECT_NEAR(u, -0.001f, 1e-5f);
  EXPECT_NEAR(v, 0.f, 1e-4f);
}

TEST(ComponentTransforms, IntegerIctKnownAnswers) {
  // Pure red at full range: the difference R - Y (65536 - 19588 units)
  // rounded first, then scaled; the 32s form scales in one rounding.
  int16_t y16, u16, v16;
  ct::Ict16::Fwd(32767, -32768, -32768, y16, u16, v16);
  const int32_t s = 4899 * 32767 - (9617 + 1868) * 32768;
  EXPECT_EQ(y16, (s + 8192) >> 14);
  EXPECT_EQ(v16, ((((32767 << 14) - s + 8192) >> 14) * 11686 + 8192) >> 14);
  int32_t y32, u32, v32;
  ct::Ict32::Fwd(32767, -32768, -32768, y32, u32, v32);
  EXPECT_EQ(v32, (8192 * 32767 + (6860 + 1332) * 32768 + 8192) >> 14);
  // 16s inverse saturates instead of wrapping.
  int16_t r, g, b;
  ct::Ict16::Inv(32000, 0, 20000, r, g, b);
  EXPECT_EQ(r, 32767);
  EXPECT_EQ(g, 32000 + ((-11700 * 20000 + 8192) >> 14));
  EXPECT_EQ(b, 32000);
  // The 16s forward rounds twice: within one unit of the 32s form.
  test::Rng rng(9);
  int differ = 0;
  for (int i = 0; i < 20000; ++i) {
    const int16_t R = int16_t(rng.Uniform(-2048, 2047)), G = int16_t(rng.Uniform(-2048, 2047)),
                  B = int16_t(rng.Uniform(-2048, 2047));
    ct::Ict16::Fwd(R, G, B, y16, u16, v16);
    ct::Ict32::Fwd(R, G, B, y32, u32, v32);
    ASSERT_EQ(y16, y32);
    ASSERT_LE(std::abs(u16 - u32), 1);
    ASSERT_LE(std::abs(v16 - v32), 1);
    differ += u16 != u32 || v16 != v32;
  }
  EXPECT_GT(differ, 0);
  // The float matrix, from the textbook values.
  float fy, fu, fv;
  ct::IctF::Fwd(10.f, 20.f, 30.f, fy, fu, fv);
  EXPECT_NEAR(fy, 0.299 * 10 + 0.587 * 20 + 0.114 * 30, 1e-4);
  EXPECT_NEAR(fu, -0.16875 * 10 - 0.33126 * 20 + 0.5 * 30, 1e-4);
  EXPECT_NEAR(fv, 0.5 * 10 - 0.41869 * 20 - 0.08131 * 30, 1e-4);
  float rr, gg, bb;
  ct::IctF::Inv(fy, fu, fv, rr, gg, bb);
  EXPECT_NEAR(rr, 10.f, 1e-2f); EXPECT_NEAR(gg, 20.f, 1e-2f); EXPECT_NEAR(bb, 30.f, 1e-2f);
}

// Pointers, then steps, then the size; nothing written on any failure.
TEST(ComponentTransforms, ChecksInOrderWriteNothing) {
  std::vector<int16_t> src(12, 7), p0(4, 5), p1(4, 5), p2(4, 5);
  int16_t* dst[3] = {p0.data(), p1.data(), p2.data()};
  int16_t* nul1[3] = {p0.data(), nullptr, p2.data()};
  const int16_t* in[3] = {p0.data(), p1.data(), p2.data()};
  for (const auto& t : test::AllTargets(impl_rvtiRCTFwd_JPEG2K_16s_C3P3R)) {
    EXPECT_EQ(t.fn(nullptr, 0, dst, 8, {0, 1}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(src.data(), 0, nullptr, 8, {4, 1}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(src.data(), 0, nul1, 8, {4, 1}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(src.data(), 0, dst, 8, {0, 1}), rvtStatusStep);
    EXPECT_EQ(t.fn(src.data(), 24, dst, 0, {4, 1}), rvtStatusStep);
    EXPECT_EQ(t.fn(src.data(), 24, dst, 8, {4, 0}), rvtStatusSize);
    EXPECT_EQ(t.fn(src.data(), 24, dst, 8, {0, 1}), rvtStatusSize);
  }
  for (const auto& t : test::AllTargets(impl_rvtiRCTInv_JPEG2K_16s_P3C3R)) {
    const int16_t* nin[3] = {p0.data(), p1.data(), nullptr};
    EXPECT_EQ(t.fn(nin, 0, src.data(), 0, {0, 1}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(in, 0, nullptr, 0, {4, 1}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(in, 8, src.data(), 0, {4, 1}), rvtStatusStep);
    EXPECT_EQ(t.fn(in, 8, src.data(), 24, {4, -1}), rvtStatusSize);
  }
  for (const auto& t : test::AllTargets(impl_rvtiICTFwd_JPEG2K_16s_P3IR)) {
    EXPECT_EQ(t.fn(nullptr, 0, {0, 0}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(nul1, 0, {0, 0}), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(dst, 0, {0, 0}), rvtStatusStep);
    EXPECT_EQ(t.fn(dst, 8, {4, 0}), rvtStatusSize);
  }
  EXPECT_EQ(src, std::vector<int16_t>(12, 7));
  EXPECT_EQ(p0, std::vector<int16_t>(4, 5));
  EXPECT_EQ(p2, std::vector<int16_t>(4, 5));
}

}  // namespace
}  // namespace rvt
