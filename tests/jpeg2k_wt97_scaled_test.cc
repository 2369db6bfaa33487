// JPEG 2000 9/7 inverse passes with caller scales: against a whole-line
// synthesis written the way float decoders lift (extended line, scale, then
// one stage at a time in place), bit for bit, rows and columns, both
// phases; argument checks leaving the output untouched; every target
// against the reference.
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "checkasm.h"

namespace rvt {
namespace {

int Mirror(int n, int L) {
  while (n < 0 || n >= L) n = n < 0 ? -n : 2 * (L - 1) - n;
  return n;
}

// Interleaved coefficients c[0..L) (low at even positions for phase 0, odd
// for phase 1), whole-sample symmetric extension, then the decoder's
// stages with its constants.
std::vector<float> Synthesis(const std::vector<float>& c, int p, float ls, float hs) {
  const int L = int(c.size()), E = 8;
  std::vector<float> y(size_t(L + 2 * E));
  auto high = [&](int n) { return ((n + p) & 1) != 0; };
  for (int n = -E; n < L + E; ++n) y[size_t(n + E)] = c[size_t(Mirror(n, L))] * (high(n) ? hs : ls);
  const float coef[4] = {-0.443506852f, -0.882911075f, 0.052980118f, 1.586134342f};
  for (int s = 0; s < 4; ++s) {
    const bool hi = s & 1;
    for (int n = -E + 1 + s; n < L + E - 1 - s; ++n)
      if (high(n) == hi) y[size_t(n + E)] += (y[size_t(n + E - 1)] + y[size_t(n + E + 1)]) * coef[s];
  }
  return {y.begin() + E, y.begin() + E + L};
}

constexpr float kK = 1.230174105f, kTwoOverK = 1.625732422f;

// Bands of n pairs with 4 coefficients of border each side, cut from the
// extended interleaved line, as a decoder hands them to the pass.
struct Bands {
  std::vector<float> lo, hi;
};
Bands Cut(const std::vector<float>& c, int p, int n) {
  const int L = int(c.size());
  Bands b{std::vector<float>(size_t(n + 8)), std::vector<float>(size_t(n + 8))};
  for (int k = -4; k < n + 4; ++k) {
    b.lo[size_t(k + 4)] = c[size_t(Mirror(2 * k + p, L))];
    b.hi[size_t(k + 4)] = c[size_t(Mirror(2 * k + 1 - p, L))];
  }
  return b;
}

TEST(Wavelet97Scaled, RowsAndColumnsAreTheDecoderSynthesis) {
  test::Rng rng(26);
  for (int L : {2, 3, 4, 5, 8, 9, 17, 32, 33, 64, 101}) {
    for (int p : {0, 1}) {
      for (auto [ls, hs] : {std::pair{kK, kTwoOverK}, std::pair{1.0f, 1.0f}, std::pair{0.75f, 3.5f}}) {
        // Rows: 3 lines; columns: the same 3 lines side by side (3 columns).
        const int n = (L + 1) / 2, rows = 3;
        std::vector<std::vector<float>> c(rows), want(rows);
        std::vector<float> lo(size_t(rows * (n + 8))), hi(lo.size()), lc(size_t((n + 8) * rows)), hc(lc.size());
        for (int r = 0; r < rows; ++r) {
          c[size_t(r)].resize(size_t(L));
          for (float& v : c[size_t(r)]) v = float(rng.Uniform(-3000, 3000)) / 8.0f;
          want[size_t(r)] = Synthesis(c[size_t(r)], p, ls, hs);
          const Bands b = Cut(c[size_t(r)], p, n);
          for (int k = 0; k < n + 8; ++k) {
            lo[size_t(r * (n + 8) + k)] = b.lo[size_t(k)], hi[size_t(r * (n + 8) + k)] = b.hi[size_t(k)];
            lc[size_t(k * rows + r)] = b.lo[size_t(k)], hc[size_t(k * rows + r)] = b.hi[size_t(k)];
          }
        }
        const int32_t bs = 4 * (n + 8);
        std::vector<float> out(size_t(rows * (2 * n + 2)), -1.f), outc(size_t((2 * n + 2) * rows), -1.f);
        ASSERT_EQ(rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R(lo.data() + 4, bs, hi.data() + 4, bs, {n, rows}, out.data(),
                                                        4 * (2 * n + 2), p, ls, hs),
                  rvtStatusOk);
        ASSERT_EQ(rvtiWTInvColScaled_D97_JPEG2K_32f_C1R(lc.data() + 4 * rows, 4 * rows, hc.data() + 4 * rows,
                                                        4 * rows, {rows, n}, outc.data(), 4 * rows, p, ls, hs),
                  rvtStatusOk);
        for (int r = 0; r < rows; ++r)
          for (int x = 0; x < L; ++x) {
            const float w = want[size_t(r)][size_t(x)];
            ASSERT_EQ(std::memcmp(&w, &out[size_t(r * (2 * n + 2) + x)], 4), 0)
                << "row pass, L " << L << " phase " << p << " scales " << ls << "," << hs << " line " << r
                << " sample " << x << ": " << w << " vs " << out[size_t(r * (2 * n + 2) + x)];
            ASSERT_EQ(std::memcmp(&w, &outc[size_t(x * rows + r)], 4), 0)
                << "column pass, L " << L << " phase " << p << " column " << r << " sample " << x;
          }
      }
    }
  }
}

TEST(Wavelet97Scaled, RefusedArgumentsWriteNothing) {
  std::vector<float> lo(64, 1.f), hi(64, 1.f), out(64, 7.f);
  using Fn = RvtResult (*)(const float*, int32_t, const float*, int32_t, ImageSize, float*, int32_t, int32_t,
                           float, float);
  for (Fn fn : {rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R, rvtiWTInvColScaled_D97_JPEG2K_32f_C1R}) {
    const float* l = lo.data() + 8;
    const float* h = hi.data() + 8;
    float* o = out.data();
    EXPECT_EQ(fn(nullptr, 64, h, 64, {4, 4}, o, 64, 0, kK, kTwoOverK), rvtStatusNullPtr);
    EXPECT_EQ(fn(l, 64, nullptr, 64, {4, 4}, o, 64, 0, kK, kTwoOverK), rvtStatusNullPtr);
    EXPECT_EQ(fn(l, 64, h, 64, {4, 4}, nullptr, 64, 0, kK, kTwoOverK), rvtStatusNullPtr);
    EXPECT_EQ(fn(l, 0, h, 64, {4, 4}, o, 64, 0, kK, kTwoOverK), rvtStatusStep);
    EXPECT_EQ(fn(l, 64, h, 64, {4, 4}, o, -4, 0, kK, kTwoOverK), rvtStatusStep);
    EXPECT_EQ(fn(l, 64, h, 64, {0, 4}, o, 64, 0, kK, kTwoOverK), rvtStatusSize);
    EXPECT_EQ(fn(l, 64, h, 64, {4, -1}, o, 64, 0, kK, kTwoOverK), rvtStatusSize);
    for (float v : out) ASSERT_EQ(v, 7.f);
  }
}

// Every target against the reference: rows and columns of every width up
// to 67 and a few long ones, random borders, misaligned planes, phases 0,
// 1 and 7 (odd), the decoder's scales and arbitrary ones.
auto ScaledCheck(bool rows) {
  return test::Cases{
      [rows](test::Rng& rng) {
        std::vector<test::Case> out;
        std::vector<int> widths;
        for (int k = 1; k <= 67; ++k) widths.push_back(k);
        for (int k : {128, 129, 300}) widths.push_back(k);
        for (int w : widths) {
          const int h = rows ? 1 + w % 3 : 1 + w % 5;
          const int phase = w % 3 == 2 ? 7 : w & 1;
          test::Case c;
          c.label = std::to_string(w) + "x" + std::to_string(h) + " phase " + std::to_string(phase);
          c.roi = {w, h};
          c.arg[0] = phase;
          const float ls = w % 2 ? kK : 0.5f + float(w % 7) / 4, hs = w % 2 ? kTwoOverK : 2.5f - float(w % 5) / 3;
          uint32_t bits;
          std::memcpy(&bits, &ls, 4), c.arg[2] = bits;
          std::memcpy(&bits, &hs, 4), c.arg[3] = bits;
          const int mis = 4 * (w % 4);
          for (int k = 0; k < 2; ++k) {
            if (rows) {
              c.in.push_back(test::PlaneOf<float>(w + 4, h, int32_t(4 * (w + 6)), mis));
            } else {
              c.in.push_back(test::PlaneOf<float>(w, h + 4, int32_t(4 * (w + 6)), mis));
            }
            c.in.back().template Fill<float>(rng, -1000.f, 1000.f);
          }
          c.arg[1] = rows ? 2 : 2 * c.in[0].step() / 4;
          if (rows) {
            c.out.push_back(test::PlaneOf<float>(2 * w, h, 0, mis));
          } else {
            c.out.push_back(test::PlaneOf<float>(w, 2 * h, 0, mis));
          }
          out.push_back(std::move(c));
        }
        return out;
      },
      [](auto fn, test::Case& c) {
        float ls, hs;
        const uint32_t lb = uint32_t(c.arg[2]), hb = uint32_t(c.arg[3]);
        std::memcpy(&ls, &lb, 4), std::memcpy(&hs, &hb, 4);
        return fn(c.in[0].as<float>() + c.arg[1], c.in[0].step(), c.in[1].as<float>() + c.arg[1], c.in[1].step(),
                  c.roi, c.out[0].as<float>(), c.out[0].step(), int32_t(c.arg[0]), ls, hs);
      }};
}
RVT_CHECKASM(rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R, ScaledCheck(true));
RVT_CHECKASM(rvtiWTInvColScaled_D97_JPEG2K_32f_C1R, ScaledCheck(false));

}  // namespace
}  // namespace rvt
