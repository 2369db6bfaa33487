// The raw x86 operations of src/frame/raw_ops-inl.h against their portable
// forms and their definitions, on every compiled target the processor runs
// and every vector width of that target (full, 256-, 128- and 64-bit):
// random inputs and the extremes (the saturation of the pair sums at
// 255*127*2, the clamp of packs to 0..255).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "raw_ops_test.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "checkasm.h"
#include "frame/raw_ops-inl.h"

#ifndef RVT_TESTS_RAW_OPS_TEST_ONCE
#define RVT_TESTS_RAW_OPS_TEST_ONCE
namespace rvt::raw_ops_test {
// One entry per compiled target, filled as each target's code is built.
struct TargetRun {
  int64_t target;
  void (*run)();
};
inline std::vector<TargetRun>& Targets() {
  static std::vector<TargetRun> t;
  return t;
}
inline uint8_t Clamp8(int v) { return uint8_t(std::min(std::max(v, 0), 255)); }
inline int16_t Sat16(int v) { return int16_t(std::min(std::max(v, -32768), 32767)); }
}  // namespace rvt::raw_ops_test
#endif

HWY_BEFORE_NAMESPACE();
namespace rvt::raw_ops_test::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace ops = ::rvt::ops::HWY_NAMESPACE;

template <class D16>
void CheckWidth(D16 d16, test::Rng& rng) {
  const hn::Repartition<uint8_t, D16> d8;
  const hn::Repartition<int8_t, D16> di8;
  const size_t N = hn::Lanes(d16), L = hn::Lanes(d8);
  const std::string width = std::to_string(N * 16) + "-bit";
  std::vector<uint8_t> a(L), got(2 * L + 64), want(2 * L + 64);
  std::vector<int8_t> w(L);
  std::vector<int16_t> sums(N), sums_portable(N), p(N), q(N);

  // Pair sums: random trials, then the extremes repeated over the vector.
  const int kBytes[][4] = {{255, 255, 127, 127},   {255, 255, -128, -128}, {255, 255, 127, -128},
                           {255, 0, -128, 127},    {0, 255, 0, 127},       {128, 128, 127, 127},
                           {1, 254, -1, -128},     {255, 255, -128, 127}};
  for (int trial = 0; trial < 64 + 8; ++trial) {
    for (size_t i = 0; i < L; ++i) {
      if (trial < 64) {
        a[i] = uint8_t(rng.Uniform(0, 255));
        w[i] = int8_t(rng.Uniform(-128, 127));
      } else {
        a[i] = uint8_t(kBytes[trial - 64][i & 1]);
        w[i] = int8_t(kBytes[trial - 64][2 + (i & 1)]);
      }
    }
    const auto va = hn::LoadU(d8, a.data());
    const auto vw = hn::LoadU(di8, w.data());
    hn::StoreU(ops::MulAddPairs(d16, va, vw), d16, sums.data());
    hn::StoreU(ops::MulAddPairsPortable(d16, va, vw), d16, sums_portable.data());
    for (size_t i = 0; i < N; ++i) {
      const int16_t def = Sat16(a[2 * i] * w[2 * i] + a[2 * i + 1] * w[2 * i + 1]);
      ASSERT_EQ(sums[i], def) << "MulAddPairs " << width << " lane " << i << " trial " << trial;
      ASSERT_EQ(sums_portable[i], def)
          << "MulAddPairsPortable " << width << " lane " << i << " trial " << trial;
    }
  }

  // Packs: the whole int16 range, values near the clamp edges, both orders.
  for (int trial = 0; trial < 64; ++trial) {
    for (size_t i = 0; i < N; ++i) {
      p[i] = int16_t(trial & 1 ? rng.Uniform(-32768, 32767) : rng.Uniform(-3, 258));
      q[i] = int16_t(trial & 2 ? rng.Uniform(-32768, 32767) : rng.Uniform(-3, 258));
    }
    const auto vp = hn::LoadU(d16, p.data()), vq = hn::LoadU(d16, q.data());
    std::vector<uint8_t> ordered(L), portable(L), blockwise(L);
    hn::StoreU(ops::PackU8Ordered(vp, vq), d8, ordered.data());
    hn::StoreU(ops::PackU8OrderedPortable(vp, vq), d8, portable.data());
    hn::StoreU(ops::PackU8Blockwise(vp, vq), d8, blockwise.data());
    // Blockwise: each block of up to 8 lanes of p, then the same of q.
    const size_t block = std::min<size_t>(N, 8);
    for (size_t i = 0; i < N; ++i) {
      ASSERT_EQ(ordered[i], Clamp8(p[i])) << "PackU8Ordered " << width << " lane " << i;
      ASSERT_EQ(ordered[N + i], Clamp8(q[i])) << "PackU8Ordered " << width << " lane " << N + i;
      const size_t k = i / block, j = i % block;
      ASSERT_EQ(blockwise[2 * block * k + j], Clamp8(p[i])) << "PackU8Blockwise " << width;
      ASSERT_EQ(blockwise[2 * block * k + block + j], Clamp8(q[i])) << "PackU8Blockwise " << width;
    }
    ASSERT_EQ(portable, ordered) << "PackU8OrderedPortable " << width;
  }

  // Alternating blocks of up to 16 bytes, nothing stored past 2 vectors.
  std::vector<uint8_t> lo(L), hi(L);
  rng.Fill(lo.data(), L, uint8_t(0), uint8_t(255));
  rng.Fill(hi.data(), L, uint8_t(0), uint8_t(255));
  std::fill(got.begin(), got.end(), uint8_t(0x5A));
  want = got;
  const size_t block = std::min<size_t>(L, 16);
  for (size_t i = 0; i < L; ++i) {
    want[2 * block * (i / block) + i % block] = lo[i];
    want[2 * block * (i / block) + block + i % block] = hi[i];
  }
  ops::StoreAlternatingBlocks(hn::LoadU(d8, lo.data()), hn::LoadU(d8, hi.data()), got.data());
  ASSERT_EQ(got, want) << "StoreAlternatingBlocks " << width;
}

void Run() {
  test::Rng rng(21);
  CheckWidth(hn::ScalableTag<int16_t>(), rng);
  if constexpr (hn::MaxLanes(hn::ScalableTag<int16_t>()) > 16) {
    CheckWidth(hn::CappedTag<int16_t, 16>(), rng);
  }
  if constexpr (hn::MaxLanes(hn::ScalableTag<int16_t>()) > 8) {
    CheckWidth(hn::CappedTag<int16_t, 8>(), rng);
  }
  CheckWidth(hn::CappedTag<int16_t, 4>(), rng);
}

[[maybe_unused]] const bool kListed = (Targets().push_back({HWY_TARGET, &Run}), true);

}  // namespace rvt::raw_ops_test::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace rvt::raw_ops_test {
namespace {

TEST(RawOps, MatchPortableFormsAndDefinitions) {
  int ran = 0;
  for (const TargetRun& t : Targets()) {
    if (!(hwy::SupportedTargets() & t.target)) continue;
    SCOPED_TRACE(hwy::TargetName(t.target));
    t.run();
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

}  // namespace
}  // namespace rvt::raw_ops_test
#endif  // HWY_ONCE
