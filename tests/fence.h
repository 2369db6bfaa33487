// Read fences for the differential harness: a plane whose bytes sit flush
// against an inaccessible page, so a kernel that reads even one byte before
// the region's first row or after its last row faults instead of passing
// unnoticed (guard bytes catch stray writes, not reads).
#ifndef RVT_TESTS_FENCE_H_
#define RVT_TESTS_FENCE_H_

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rvt::test {

class FencedBytes {
 public:
  enum Side { kFenceBefore, kFenceAfter };

  // `bytes` readable bytes, with a no-access page right before the first
  // (kFenceBefore) or right after the last (kFenceAfter).
  FencedBytes(size_t bytes, Side side) : bytes_(bytes) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    const size_t body = (bytes + page - 1) / page * page;
    len_ = body + 2 * page;
    void* m = mmap(nullptr, len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) return;
    base_ = static_cast<uint8_t*>(m);
    mprotect(base_, page, PROT_NONE);
    mprotect(base_ + page + body, page, PROT_NONE);
    data_ = side == kFenceBefore ? base_ + page : base_ + page + body - bytes;
  }
  ~FencedBytes() {
    if (base_) munmap(base_, len_);
  }
  FencedBytes(const FencedBytes&) = delete;
  FencedBytes& operator=(const FencedBytes&) = delete;

  bool ok() const { return data_ != nullptr; }
  uint8_t* data() { return data_; }
  size_t size() const { return bytes_; }

 private:
  size_t bytes_ = 0, len_ = 0;
  uint8_t* base_ = nullptr;
  uint8_t* data_ = nullptr;
};

}  // namespace rvt::test

#endif  // RVT_TESTS_FENCE_H_
