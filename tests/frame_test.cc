// The frame's internal helpers: feature-mask to target level, zero-fill,
// allocation, and the threading rule.
#include <omp.h>

#include <atomic>
#include <vector>

#include "checkasm.h"
#include "frame/memory.h"
#include "frame/threading.h"

namespace rvt {
namespace {

TEST(Frame, LevelFromFeatureMask) {
  EXPECT_EQ(LevelForFeatures(0), kRef);
  EXPECT_EQ(LevelForFeatures(RVT_CPU_SSSE3 | RVT_CPU_MOVBE), kSsse3);
  const uint64_t avx2 = RVT_CPU_SSSE3 | RVT_CPU_SSE41 | RVT_CPU_SSE42 | RVT_CPU_CLMUL |
                        RVT_CPU_AES | RVT_CPU_AVX | RVT_CPU_AVX2 | RVT_CPU_BMI1 |
                        RVT_CPU_BMI2 | RVT_CPU_FMA | RVT_CPU_LZCNT | RVT_CPU_F16C;
  EXPECT_EQ(LevelForFeatures(avx2), kAvx2);
  EXPECT_EQ(LevelForFeatures(avx2 & ~RVT_CPU_FMA), kSsse3);  // AVX2 without FMA: not enough
  const uint64_t avx3 =
      avx2 | RVT_CPU_AVX512F | RVT_CPU_AVX512VL | RVT_CPU_AVX512DQ | RVT_CPU_AVX512BW;
  EXPECT_EQ(LevelForFeatures(avx3), kAvx3);
  EXPECT_EQ(LevelForFeatures(avx3 & ~RVT_CPU_AVX512BW), kAvx2);
  EXPECT_EQ(ActiveLevel(), LevelForFeatures(rvtGetEnabledCpuFeatures()));
}

TEST(Frame, ZeroFillWritesExactlyItsBytes) {
  // Every head misalignment and every tail length around the 16/64-byte runs.
  for (int mis = 0; mis < 16; ++mis) {
    for (int len : {1, 2, 3, 7, 8, 15, 16, 17, 63, 64, 65, 127, 128, 129, 1000}) {
      test::GuardedPlane<uint8_t> buf(len, 1, 0, mis);
      buf.FillRegionBytes(0x77);
      ZeroFill(buf.data(), len);
      for (int i = 0; i < len; ++i) ASSERT_EQ(buf.get(i, 0), 0) << mis << " " << len << " " << i;
      std::string where;
      ASSERT_TRUE(buf.GuardsIntact(&where)) << mis << " " << len << ": " << where;
    }
  }
}

TEST(Frame, Allocation) {
  EXPECT_EQ(Allocate(0), nullptr);
  EXPECT_EQ(Allocate(-1), nullptr);
  void* p = Allocate(1);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
  Release(p);
  Release(nullptr);
}

// Threads seen by the rows of a region: 1 up to 8192 pixels, the cap above.
int ThreadsSeen(ImageSize roi) {
  std::atomic<int> most{0};
  std::vector<int> rows(size_t(roi.height), 0);
  ForEachRow(roi, [&](int y) {
    rows[size_t(y)]++;
    int n = omp_get_num_threads();
    int m = most.load();
    while (n > m && !most.compare_exchange_weak(m, n)) {
    }
  });
  for (int c : rows) EXPECT_EQ(c, 1);
  return most.load();
}

TEST(Frame, ThreadingRule) {
  const int32_t old = rvtSetNumThreads(2);
  EXPECT_EQ(ThreadsSeen({8192, 1}), 1);
  EXPECT_EQ(ThreadsSeen({128, 64}), 1);
  EXPECT_EQ(ThreadsSeen({8193, 1}), 2);  // a fork even when one thread gets no row
  EXPECT_EQ(ThreadsSeen({2731, 3}), 2);
  rvtSetNumThreads(1);
  EXPECT_EQ(ThreadsSeen({4000, 4000}), 1);
  rvtSetNumThreads(2);
  // Inside an active parallel region the fork is refused: serial rows.
  int inner = 0;
#pragma omp parallel num_threads(2)
  {
#pragma omp single
    inner = ThreadsSeen({200, 200});
  }
  EXPECT_EQ(inner, 1);
  rvtSetNumThreads(old);
}

}  // namespace
}  // namespace rvt
