// The dispatch table is read-only once the load-time selection filled it:
// a write to it faults (in a child, so the suite goes on either way).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "frame/dispatch.h"
#include "frame/dispatch_table.h"
#include "rvtjp.h"

namespace rvt::test {
namespace {

extern "C" void ExitOnFault(int) { _exit(77); }

// Runs `write` in a child with its own fault handler (the sanitizers keep
// theirs otherwise); returns the child's exit code.
template <class F>
int InChild(F write) {
  const pid_t pid = fork();
  if (pid == 0) {
    struct sigaction sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sa_handler = ExitOnFault;
    sigaction(SIGSEGV, &sa, nullptr);
    sigaction(SIGBUS, &sa, nullptr);
    write();
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DispatchSeal, SlotsAndVariantIndexAreReadOnly) {
  const DispatchPages t = DispatchTable();
  ASSERT_TRUE(t.sealed);
  ASSERT_EQ(reinterpret_cast<uintptr_t>(t.begin) % 4096, 0u);
  ASSERT_EQ(t.bytes % 4096, 0u);
  auto* bytes = static_cast<volatile uint8_t*>(const_cast<void*>(t.begin));
  // The variant index (first word), a slot in the middle, the last byte.
  for (size_t at : {size_t(0), size_t(16) + t.bytes / 2 / 16 * 16, t.bytes - 1}) {
    EXPECT_EQ(InChild([&] { bytes[at] = uint8_t(bytes[at] ^ 0x5A); }), 77) << "offset " << at;
  }
  // The exports still run through it.
  EXPECT_NE(rvtjGetLibVersion(), nullptr);
  int size = 0;
  EXPECT_EQ(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u(&size), rvtStatusOk);
  EXPECT_GT(size, 0);
}

}  // namespace
}  // namespace rvt::test
