// Differential test harness: calls an export's scalar reference and every
// compiled SIMD target the processor runs on the same seeded inputs, in
// buffers with guard bytes around every row, and compares exactly.
//
//   const auto& impl = rvt::impl_rvtiAdd128_JPEG_16s8u_C1R;
//   for (const auto& t : SimdTargets(impl)) { ... t.fn(...) ... t.name ... }
//   Reference(impl)(...)
//
// GuardedPlane<T> keeps a position-dependent guard pattern in every byte
// that is not part of the region (row padding, before and after the plane);
// GuardsIntact() finds any write outside the region, PlanesEqual() reports
// the first differing pixel.
#ifndef RVT_TESTS_CHECKASM_H_
#define RVT_TESTS_CHECKASM_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "frame/dispatch.h"
#include "rvtcore.h"

namespace rvt::test {

// Level of the processor running the tests (what the library chose at load).
inline int HostLevel() { return LevelForFeatures(rvtGetEnabledCpuFeatures()); }

template <class Fn>
struct Target {
  int level;
  const char* name;
  Fn fn;
};

// The compiled SIMD entries of a descriptor that this processor can run.
template <class Fn>
std::vector<Target<Fn>> SimdTargets(const Impl<Fn>& impl) {
  std::vector<Target<Fn>> out;
  for (int k = HostLevel(); k < kRef; ++k) {
    if (impl.fn[k]) out.push_back({k, LevelName(k), impl.fn[k]});
  }
  return out;
}

// SIMD targets followed by the reference itself.
template <class Fn>
std::vector<Target<Fn>> AllTargets(const Impl<Fn>& impl) {
  auto out = SimdTargets(impl);
  out.push_back({kRef, LevelName(kRef), impl.fn[kRef]});
  return out;
}

template <class Fn>
Fn Reference(const Impl<Fn>& impl) {
  return impl.fn[kRef];
}

// Seeded random numbers; every test names its seed so failures replay.
class Rng {
 public:
  explicit Rng(uint64_t seed) : gen_(seed) {}
  int64_t Uniform(int64_t lo, int64_t hi) {  // inclusive
    return std::uniform_int_distribution<int64_t>(lo, hi)(gen_);
  }
  double UniformReal(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(gen_);
  }
  template <class T>
  void Fill(T* p, size_t n, T lo, T hi) {
    for (size_t i = 0; i < n; ++i) {
      if constexpr (std::is_floating_point_v<T>) {
        p[i] = T(UniformReal(double(lo), double(hi)));
      } else {
        p[i] = T(Uniform(int64_t(lo), int64_t(hi)));
      }
    }
  }
  std::mt19937_64& engine() { return gen_; }

 private:
  std::mt19937_64 gen_;
};

inline uint8_t GuardByte(size_t i) { return uint8_t(0xA5 + i * 0x3B + (i >> 8)); }

// A plane of width x height elements of T with a row step in bytes (at
// least one row; by default one row plus 24 bytes of padding) whose first
// pixel sits `misalign` bytes after a 64-byte boundary.
template <class T>
class GuardedPlane {
 public:
  static constexpr size_t kGuard = 128;

  GuardedPlane(int width, int height, int32_t step_bytes = 0, int misalign = 0)
      : width_(width), height_(height),
        step_(step_bytes > 0 ? step_bytes : int32_t(width * sizeof(T) + 24)) {
    const size_t bytes = size_t(step_) * size_t(height > 0 ? height - 1 : 0) +
                         size_t(width > 0 ? width : 0) * sizeof(T);
    storage_.resize(kGuard + 64 + bytes + kGuard);
    const uintptr_t base = reinterpret_cast<uintptr_t>(storage_.data()) + kGuard;
    offset_ = kGuard + ((64 - base % 64) % 64) + size_t(misalign);
    storage_.resize(offset_ + bytes + kGuard);
    for (size_t i = 0; i < storage_.size(); ++i) storage_[i] = GuardByte(i);
  }

  int width() const { return width_; }
  int height() const { return height_; }
  int32_t step() const { return step_; }
  T* data() { return reinterpret_cast<T*>(storage_.data() + offset_); }
  const T* data() const { return reinterpret_cast<const T*>(storage_.data() + offset_); }
  T* row(int y) { return reinterpret_cast<T*>(storage_.data() + offset_ + size_t(step_) * y); }
  const T* row(int y) const {
    return reinterpret_cast<const T*>(storage_.data() + offset_ + size_t(step_) * y);
  }
  T get(int x, int y) const {
    T v;
    std::memcpy(&v, reinterpret_cast<const uint8_t*>(row(y)) + x * sizeof(T), sizeof(T));
    return v;
  }
  void set(int x, int y, T v) {
    std::memcpy(reinterpret_cast<uint8_t*>(row(y)) + x * sizeof(T), &v, sizeof(T));
  }

  // Random region values in [lo, hi]; guards untouched.
  void FillRandom(Rng& rng, T lo, T hi) {
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        T v;
        rng.Fill(&v, 1, lo, hi);
        set(x, y, v);
      }
    }
  }
  // Region filled with a byte that marks "not written yet".
  void FillRegionBytes(uint8_t b) {
    for (int y = 0; y < height_; ++y) std::memset(row(y), b, size_t(width_) * sizeof(T));
  }
  // Region and guards copied from a plane of the same shape.
  void CopyFrom(const GuardedPlane& o) { storage_ = o.storage_; }

  // True when every byte outside the region still holds the guard pattern;
  // otherwise *where says which byte changed.
  bool GuardsIntact(std::string* where = nullptr) const {
    std::vector<bool> region(storage_.size(), false);
    for (int y = 0; y < height_; ++y) {
      const size_t start = offset_ + size_t(step_) * y;
      for (size_t i = 0; i < size_t(width_) * sizeof(T); ++i) region[start + i] = true;
    }
    for (size_t i = 0; i < storage_.size(); ++i) {
      if (!region[i] && storage_[i] != GuardByte(i)) {
        if (where) {
          const int64_t rel = int64_t(i) - int64_t(offset_);
          std::ostringstream s;
          s << "guard byte changed at offset " << rel << " from the first pixel (row "
            << (rel >= 0 ? rel / step_ : -1) << ", byte " << (rel >= 0 ? rel % step_ : rel)
            << " of the row; region rows are " << width_ * sizeof(T) << " bytes)";
          *where = s.str();
        }
        return false;
      }
    }
    return true;
  }

  // The whole buffer, region and guards, is unchanged from `o`.
  bool Unchanged(const GuardedPlane& o) const { return storage_ == o.storage_; }

 private:
  int width_, height_;
  int32_t step_;
  size_t offset_ = 0;
  std::vector<uint8_t> storage_;
};

template <class T>
std::string ValueString(T v) {
  std::ostringstream s;
  if constexpr (sizeof(T) == 1) {
    s << int(v);
  } else {
    s << v;
  }
  return s.str();
}

// Region equality with the first differing pixel in the message.
template <class T>
::testing::AssertionResult PlanesEqual(const GuardedPlane<T>& expected, const GuardedPlane<T>& got,
                                       const std::string& label) {
  for (int y = 0; y < expected.height(); ++y) {
    for (int x = 0; x < expected.width(); ++x) {
      const T e = expected.get(x, y), g = got.get(x, y);
      if (std::memcmp(&e, &g, sizeof(T)) != 0) {
        return ::testing::AssertionFailure()
               << label << ": first mismatch at x=" << x << " y=" << y << " (of "
               << expected.width() << "x" << expected.height() << "): expected "
               << ValueString(e) << ", got " << ValueString(g);
      }
    }
  }
  return ::testing::AssertionSuccess();
}

// Region equal to the reference and no byte outside the region written.
template <class T>
::testing::AssertionResult Matches(const GuardedPlane<T>& expected, const GuardedPlane<T>& got,
                                   const std::string& label) {
  auto eq = PlanesEqual(expected, got, label);
  if (!eq) return eq;
  std::string where;
  if (!got.GuardsIntact(&where)) return ::testing::AssertionFailure() << label << ": " << where;
  return ::testing::AssertionSuccess();
}

// Runs body once with the thread cap at each count, restoring it after.
template <class Body>
void WithThreads(std::initializer_list<int> counts, Body&& body) {
  for (int n : counts) {
    const int32_t old = rvtSetNumThreads(n);
    body(n);
    rvtSetNumThreads(old);
  }
}

}  // namespace rvt::test

// ---------------------------------------------------------------- read windows
// For kernels that may read a set margin around their region and nothing
// else.  WindowPlane: a byte plane whose readable window (origin at data())
// is kept, while every other byte -- row padding, rows outside, the bytes
// before and after -- is refilled by Poison(seed); a kernel run under two
// poisons must give the same output.  PageFence: memory between two
// inaccessible pages, to lay a window flush against either so that even a
// read whose value is thrown away faults.
#include <sys/mman.h>
#include <unistd.h>

namespace rvt::test {

class WindowPlane {
 public:
  WindowPlane(int window_w, int window_h, int origin_x, int origin_y, int32_t step, int misalign)
      : step_(step), origin_(kPad + size_t(misalign) + size_t(step) * origin_y + origin_x) {
    const size_t bytes = kPad + size_t(misalign) + size_t(step) * (window_h - 1) + window_w + kPad;
    storage_.resize(bytes);
    window_.assign(bytes, false);
    for (int y = 0; y < window_h; ++y)
      for (int x = 0; x < window_w; ++x) window_[kPad + misalign + size_t(step) * y + x] = true;
  }
  uint8_t* data() { return storage_.data() + origin_; }
  int32_t step() const { return step_; }
  void FillWindow(Rng& rng) { Refill(rng, true); }
  void Poison(uint64_t seed) {
    Rng rng(seed);
    Refill(rng, false);
  }

 private:
  void Refill(Rng& rng, bool inside) {
    for (size_t i = 0; i < storage_.size(); ++i)
      if (window_[i] == inside) storage_[i] = uint8_t(rng.Uniform(0, 255));
  }
  static constexpr size_t kPad = 128;
  int32_t step_;
  size_t origin_;
  std::vector<uint8_t> storage_;
  std::vector<bool> window_;
};

class PageFence {
 public:
  explicit PageFence(size_t bytes)
      : page_(size_t(sysconf(_SC_PAGESIZE))), inner_((bytes + page_ - 1) / page_ * page_) {
    void* p = mmap(nullptr, inner_ + 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                   -1, 0);
    base_ = p == MAP_FAILED ? nullptr : static_cast<uint8_t*>(p);
    if (base_) mprotect(base_, page_, PROT_NONE), mprotect(base_ + page_ + inner_, page_, PROT_NONE);
  }
  ~PageFence() {
    if (base_) munmap(base_, inner_ + 2 * page_);
  }
  PageFence(const PageFence&) = delete;
  PageFence& operator=(const PageFence&) = delete;
  bool ok() const { return base_ != nullptr; }
  uint8_t* AfterLow() { return base_ + page_; }                        // flush with the low fence
  uint8_t* BeforeHigh(size_t n) { return base_ + page_ + inner_ - n; }  // n bytes to the high one

 private:
  size_t page_, inner_;
  uint8_t* base_ = nullptr;
};

}  // namespace rvt::test

#endif  // RVT_TESTS_CHECKASM_H_
