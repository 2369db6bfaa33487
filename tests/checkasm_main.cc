// The test binary's entry: every registered differential check becomes the
// gtest test Checkasm.<export>, beside the hand-written tests of the
// families; `--bench [SUBSTRING]` times the checks whose export name holds
// SUBSTRING instead (reference and every target, one thread).
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "checkasm.h"

namespace rvt::test {

std::vector<std::string> UncheckedVectorExports(const std::vector<Check>& checks) {
  std::set<std::string> have;
  for (const Check& c : checks) have.insert(c.name);
  std::vector<std::string> missing;
  auto has_vector = [](const auto& impl) {
    return impl.fn[kAvx3] != nullptr || impl.fn[kAvx2] != nullptr || impl.fn[kSsse3] != nullptr;
  };
#define RVT_EXPORT(name, ret, params) \
  if (has_vector(impl_##name) && !have.count(#name)) missing.push_back(#name);
#include "frame/exports.inc"
#undef RVT_EXPORT
  return missing;
}

namespace {

TEST(Checkasm, EveryVectorExportIsChecked) {
  const auto missing = UncheckedVectorExports(Registry());
  std::string list;
  for (const auto& m : missing) list += " " + m;
  EXPECT_TRUE(missing.empty()) << "exports with vector targets and no RVT_CHECKASM:" << list;
  std::set<std::string> names;
  for (const Check& c : Registry()) EXPECT_TRUE(names.insert(c.name).second) << "twice: " << c.name;
}

TEST(Checkasm, GateNamesARemovedCheck) {
  // Dropping any one registration makes the gate name exactly that export.
  ASSERT_FALSE(Registry().empty());
  const auto before = UncheckedVectorExports(Registry());
  const auto vector_exports = UncheckedVectorExports({});
  for (size_t i = 0; i < Registry().size(); ++i) {
    std::vector<Check> fewer = Registry();
    const std::string gone = fewer[i].name;
    fewer.erase(fewer.begin() + ptrdiff_t(i));
    auto now = UncheckedVectorExports(fewer);
    // A check of an export that runs its reference on every processor is
    // allowed but not required.
    const bool gated = std::find(vector_exports.begin(), vector_exports.end(), gone) !=
                       vector_exports.end();
    EXPECT_EQ(now.size(), before.size() + (gated ? 1 : 0)) << gone;
    std::erase(now, gone);
    EXPECT_EQ(now, before) << "after dropping " << gone;
  }
}

class RegisteredCheck : public ::testing::Test {
 public:
  explicit RegisteredCheck(std::function<void()> verify) : verify_(std::move(verify)) {}
  void TestBody() override { verify_(); }

 private:
  std::function<void()> verify_;
};

int RunBench(const char* filter) {
  std::vector<BenchRow> rows;
  for (const Check& c : Registry()) {
    if (c.name.find(filter) != std::string::npos) c.bench(rows);
  }
  std::printf("%-48s %-6s %12s %9s\n", "export", "target", "ns/call", "x ref");
  for (const BenchRow& r : rows) {
    std::printf("%-48s %-6s %12.1f %9.2f\n", r.check.c_str(), r.target.c_str(), r.ns,
                r.ns > 0 ? r.ref_ns / r.ns : 0.0);
  }
  return 0;
}

}  // namespace
}  // namespace rvt::test

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--bench") == 0) {
      return rvt::test::RunBench(i + 1 < argc ? argv[i + 1] : "");
    }
  }
  ::testing::InitGoogleTest(&argc, argv);
  for (const auto& c : rvt::test::Registry()) {
    const auto verify = c.verify;
    ::testing::RegisterTest("Checkasm", c.name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                            [verify]() -> ::testing::Test* {
                              return new rvt::test::RegisteredCheck(verify);
                            });
  }
  return RUN_ALL_TESTS();
}
