// The loader fills every export's slots from its descriptor: the best entry
// the processor runs, except on AVX-512 processors for the exports that
// frame/avx3_slots.inc hands to another build.  Read back from the live
// table, so a list line the loader ignores (or a stray one) shows here.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "frame/dispatch.h"
#include "frame/dispatch_table.h"
#include "rvtjp.h"

namespace rvt::test {
namespace {

enum SlotOf : int {
#define RVT_EXPORT(name, ret, params) kSlotOf_##name,
#include "frame/exports.inc"
#undef RVT_EXPORT
  kSlotCount
};

struct Line {
  int slot;
  int level;
  const char* name;
  const void* entry[kNumLevels];
};
template <class Fn>
Line MakeLine(int slot, int level, const char* name, const Impl<Fn>& impl) {
  Line l{slot, level, name, {}};
  for (int k = 0; k < kNumLevels; ++k) l.entry[k] = reinterpret_cast<const void*>(impl.fn[k]);
  return l;
}
#define RVT_AVX3_SLOT(name, lv) MakeLine(kSlotOf_##name, lv, #name, impl_##name),
const Line kLines[] = {
#include "frame/avx3_slots.inc"
};
#undef RVT_AVX3_SLOT

const void* const* Slots(int slot) {
  const auto* base = static_cast<const uint8_t*>(DispatchTable().begin);
  return reinterpret_cast<const void* const*>(base + 16) + 2 * slot;
}

template <class Fn>
const void* Best(const Impl<Fn>& impl, int level) {
  for (int k = level; k < kRef; ++k) {
    if (impl.fn[k]) return reinterpret_cast<const void*>(impl.fn[k]);
  }
  return reinterpret_cast<const void*>(impl.fn[kRef]);
}

TEST(Avx3Slots, ListNamesCompiledBuildsOnce) {
  std::set<int> seen;
  for (const Line& l : kLines) {
    EXPECT_TRUE(seen.insert(l.slot).second) << l.name << " listed twice";
    EXPECT_TRUE(l.level == kAvx2 || l.level == kSsse3 || l.level == kRef) << l.name;
    EXPECT_NE(l.entry[l.level], nullptr) << l.name << " has no " << LevelName(l.level) << " build";
    EXPECT_NE(l.entry[kAvx3], nullptr) << l.name << " has no AVX-512 build to replace";
  }
}

TEST(Avx3Slots, LoaderInstallsTheListedBuild) {
  const int level = ActiveLevel();
  std::set<int> listed;
  if (level == kAvx3) {
    for (const Line& l : kLines) {
      listed.insert(l.slot);
      EXPECT_EQ(Slots(l.slot)[0], l.entry[l.level]) << l.name;
    }
  }
  // Every other single-variant export gets its own best build.
  int checked = 0;
#define RVT_EXPORT(name, ret, params)                                                   \
  if (!listed.count(kSlotOf_##name)) {                                                  \
    EXPECT_EQ(Slots(kSlotOf_##name)[0], Best(impl_##name, level)) << #name;             \
    EXPECT_EQ(Slots(kSlotOf_##name)[1], Best(impl_##name, level)) << #name;             \
    ++checked;                                                                           \
  }
#define RVT_EXPORT_V2(name, ret, params)
#include "frame/exports.inc"
#undef RVT_EXPORT
#undef RVT_EXPORT_V2
  EXPECT_GT(checked, 100);
  if (level != kAvx3) GTEST_SKIP() << "not an AVX-512 processor: the list is not in use";
}

}  // namespace
}  // namespace rvt::test
