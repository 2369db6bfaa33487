// Through the shared library only: every listed export is declared by the
// header with the listed signature, the load-time variant choice follows the
// processor's feature mask, and exports behave the same whatever was chosen.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "rvtcore.h"
#include "rvtjp.h"

// The header declares each export of the list with exactly its signature.
#define RVT_EXPORT(name, ret, params) \
  static_assert(std::is_same_v<decltype(&name), ret(*) params>, #name " differs from the list");
#include "../../src/frame/exports.inc"
#undef RVT_EXPORT

namespace {

// Expected mask under a preloaded stand-in core, or the real one.
uint64_t ExpectedMask() {
  const char* e = std::getenv("RVT_TEST_EXPECT_MASK");
  if (!e) return rvtGetEnabledCpuFeatures();
  if (!std::strcmp(e, "n8")) return 0x30;
  if (!std::strcmp(e, "u8")) return 0x10;
  return 0;
}

TEST(Abi, VersionRecordFollowsFeatureMask) {
  const uint64_t mask = ExpectedMask();
  ASSERT_EQ(rvtGetEnabledCpuFeatures(), mask);
  const bool n8 = (mask & 0x10) && (mask & 0x20);
  const LibraryVersion* v = rvtjGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v, rvtjGetLibVersion());
  EXPECT_EQ(v->major, 7);
  EXPECT_EQ(v->minor, 1);
  EXPECT_EQ(v->majorBuild, 0);
  EXPECT_EQ(v->build, 36264);
  EXPECT_EQ(0, std::memcmp(v->targetCpu, n8 ? "n8\0\0" : "u8\0\0", 4));
  EXPECT_STREQ(v->Name, n8 ? "rvtJP Tarn (n8)" : "rvtJP SSSE3 (u8)");
  EXPECT_STREQ(v->Version, "7.1.0 (r36264)");
  EXPECT_STREQ(v->BuildDate, "Jul 23 2012");
  EXPECT_EQ(sizeof(LibraryVersion), 48u);  // 4 ints, char[4], padding, 3 pointers
  EXPECT_EQ(sizeof(ImageSize), 8u);
  EXPECT_EQ(sizeof(ImageRect), 16u);
  EXPECT_EQ(sizeof(RvtResult), 4u);
}

// Whatever implementation was chosen at load, a level shift round trip
// over a threaded region gives the defined values.
TEST(Abi, LevelShiftThroughChosenImplementation) {
  const int w = 333, h = 71;  // odd, above the serial limit
  std::vector<uint8_t> src(w * h), back(w * h);
  std::vector<int16_t> mid(w * h);
  for (int i = 0; i < w * h; ++i) src[i] = uint8_t(i * 7 + i / 13);
  ASSERT_EQ(rvtiSub128_JPEG_8u16s_C1R(src.data(), w, mid.data(), 2 * w, {w, h}), rvtStatusOk);
  for (int i = 0; i < w * h; ++i) ASSERT_EQ(mid[i], src[i] - 128) << i;
  ASSERT_EQ(rvtiAdd128_JPEG_16s8u_C1R(mid.data(), 2 * w, back.data(), w, {w, h}), rvtStatusOk);
  EXPECT_EQ(src, back);
}

TEST(Abi, CoreHelpers) {
  void* p = rvtMalloc(1000);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
  rvtFree(p);
  rvtFree(nullptr);
  EXPECT_EQ(rvtMalloc(0), nullptr);
  EXPECT_EQ(rvtMalloc(-5), nullptr);
  int32_t cache = 0;
  EXPECT_EQ(rvtGetMaxCacheSizeB(nullptr), -8);
  if (rvtGetMaxCacheSizeB(&cache) == 0) EXPECT_GT(cache, 0);
  const int32_t before = rvtSetNumThreads(1);
  EXPECT_EQ(ownGetNumThreads(), 1);
  rvtSetNumThreads(before);
  EXPECT_GE(ownGetNumThreads(), 1);
}

}  // namespace
