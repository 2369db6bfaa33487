// Differential test harness, after dav1d's checkasm.
//
// Every export that has vector targets registers one check under its own
// name; the check calls the scalar reference and every compiled SIMD target
// the processor runs on the same seeded inputs, in buffers with guard bytes
// around every row, and compares outputs, statuses and guards exactly:
//
//   RVT_CHECKASM(rvtiAdd128_JPEG_16s8u_C1R,
//                test::RegionC1<int16_t, uint8_t>{-32768, 32767, kThreaded});
//
// Each check runs as the gtest test Checkasm.<export>; `rvtjp_test --bench
// [SUBSTRING]` times the reference and every target of the matching checks
// instead.  Checkasm.EveryVectorExportIsChecked fails when an export of
// exports.inc with a compiled vector target has no check.
//
// Building blocks, for the hand-written tests beside the checks:
//   SimdTargets(impl) / AllTargets(impl) / Reference(impl): the entries of a
//     descriptor this processor runs;
//   Rng: seeded random numbers;
//   GuardedPlane<T>: a region with a position-dependent guard pattern in
//     every byte outside it (row padding, before, after); Matches() reports
//     the first differing pixel and the first changed guard byte;
//   WindowPlane and PageFence: read checks (poisoned margins, inaccessible
//     pages flush against a buffer).
#ifndef RVT_TESTS_CHECKASM_H_
#define RVT_TESTS_CHECKASM_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <new>
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

// 64-byte aligned storage for the harness buffers.
template <class T>
struct Aligned64 {
  using value_type = T;
  Aligned64() = default;
  template <class U>
  Aligned64(const Aligned64<U>&) {}
  T* allocate(size_t n) { return static_cast<T*>(::operator new(n * sizeof(T), std::align_val_t(64))); }
  void deallocate(T* p, size_t) { ::operator delete(p, std::align_val_t(64)); }
  template <class U>
  bool operator==(const Aligned64<U>&) const { return true; }
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
    // The storage is 64-byte aligned, so copies keep the region's alignment.
    offset_ = kGuard + size_t(misalign);
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
  std::vector<uint8_t, Aligned64<uint8_t>> storage_;
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


// ---------------------------------------------------------------- checks
namespace rvt::test {

// One argument's memory: a guarded plane of bytes (width = row bytes) and
// the element size, for messages.
struct Buf {
  GuardedPlane<uint8_t> plane;
  int elem = 1;

  template <class T>
  T* as() { return reinterpret_cast<T*>(plane.data()); }
  template <class T>
  T* row(int y) { return reinterpret_cast<T*>(plane.row(y)); }
  int32_t step() const { return plane.step(); }
  // Random elements in [lo, hi] over the region.
  template <class T>
  void Fill(Rng& rng, T lo, T hi) {
    for (int y = 0; y < plane.height(); ++y) {
      for (int x = 0; x < plane.width() / int(sizeof(T)); ++x) {
        T v;
        rng.Fill(&v, 1, lo, hi);
        std::memcpy(plane.row(y) + x * sizeof(T), &v, sizeof(T));
      }
    }
  }
};

// width x height elements of T; step 0 is one row plus 24 bytes.
template <class T>
Buf PlaneOf(int width, int height, int32_t step = 0, int misalign = 0) {
  return Buf{GuardedPlane<uint8_t>(width * int(sizeof(T)), height,
                                   step > 0 ? step : int32_t(width * sizeof(T) + 24), misalign),
             int(sizeof(T))};
}
// n elements of T in one row.
template <class T>
Buf ArrayOf(int n, int misalign = 0) {
  return PlaneOf<T>(n, 1, 0, misalign);
}

// One call's arguments: what it reads (checked unchanged after the call),
// what it writes (with the contents it starts from: in-place blocks, coder
// states, positions), and scalars for the binder.
struct Case {
  std::string label;
  std::vector<Buf> in, out;
  ImageSize roi{0, 0};
  int64_t arg[4] = {0, 0, 0, 0};
};

// Output equal to the reference's, byte for byte, and no guard changed.
inline ::testing::AssertionResult SameBuf(const Buf& want, const Buf& got, const std::string& label) {
  const auto& w = want.plane;
  const auto& g = got.plane;
  for (int y = 0; y < w.height(); ++y) {
    for (int x = 0; x < w.width(); ++x) {
      if (w.get(x, y) == g.get(x, y)) continue;
      const int e = x / want.elem;
      std::ostringstream s;
      s << label << ": first mismatch at element " << e << " of row " << y << " (" << w.width() / want.elem
        << " elements x " << w.height() << " rows): expected 0x";
      auto hex = [&](const GuardedPlane<uint8_t>& p) {
        for (int b = want.elem - 1; b >= 0; --b) {
          s << "0123456789abcdef"[p.get(e * want.elem + b, y) >> 4]
            << "0123456789abcdef"[p.get(e * want.elem + b, y) & 15];
        }
      };
      hex(w);
      s << ", got 0x";
      hex(g);
      return ::testing::AssertionFailure() << s.str();
    }
  }
  std::string where;
  if (!g.GuardsIntact(&where)) return ::testing::AssertionFailure() << label << ": " << where;
  return ::testing::AssertionSuccess();
}

// A differential check: the cases (made once from a seeded Rng), how to
// call an entry on a case, and the thread caps to run the targets under.
template <class Fn>
struct CaseCheck {
  std::function<std::vector<Case>(Rng&)> cases;
  std::function<RvtResult(Fn, Case&)> call;
  std::vector<int> threads{1};
  // The case to time; the last of `cases` when empty.
  std::function<Case(Rng&)> bench_case;
};

template <class Fn>
void Verify(const Impl<Fn>& impl, const CaseCheck<Fn>& check, uint64_t seed) {
  Rng rng(seed);
  for (const Case& c : check.cases(rng)) {
    Case want = c;
    const RvtResult status = check.call(Reference(impl), want);
    for (size_t i = 0; i < want.out.size(); ++i) {
      std::string where;
      ASSERT_TRUE(want.out[i].plane.GuardsIntact(&where))
          << "reference, " << c.label << ", output " << i << ": " << where;
    }
    for (int n : check.threads) {
      const int32_t old = rvtSetNumThreads(n);
      for (const auto& t : SimdTargets(impl)) {
        Case got = c;
        const std::string label =
            std::string(t.name) + ", " + c.label + ", threads " + std::to_string(n);
        EXPECT_EQ(check.call(t.fn, got), status) << label;
        for (size_t i = 0; i < got.out.size(); ++i) {
          EXPECT_TRUE(SameBuf(want.out[i], got.out[i], label + ", output " + std::to_string(i)));
        }
        for (size_t i = 0; i < got.in.size(); ++i) {
          EXPECT_TRUE(got.in[i].plane.Unchanged(c.in[i].plane))
              << label << ": input " << i << " was written";
        }
      }
      rvtSetNumThreads(old);
      if (::testing::Test::HasFailure()) return;  // the first failing case says enough
    }
  }
}

struct BenchRow {
  std::string check, target;
  double ns;      // per call, best batch
  double ref_ns;  // the reference's, same run
};

// Best time per call over batches of calls on one case (single thread).
template <class Fn>
void Bench(const std::string& name, const Impl<Fn>& impl, const CaseCheck<Fn>& check,
           std::vector<BenchRow>& rows) {
  Rng rng(1);
  const Case c = check.bench_case ? check.bench_case(rng) : check.cases(rng).back();
  const int32_t old = rvtSetNumThreads(1);
  double ref_ns = 0;
  for (const auto& t : AllTargets(impl)) {
    Case work = c;
    int batch = 1;
    double best = 1e300;
    for (int round = 0; round < 40; ++round) {
      work = c;
      const auto t0 = std::chrono::steady_clock::now();
      for (int k = 0; k < batch; ++k) check.call(t.fn, work);
      const double ns =
          std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
      if (ns < 2e6 && batch < (1 << 20)) {
        batch *= 2;  // batches of at least 2 ms
        continue;
      }
      best = std::min(best, ns / batch);
    }
    if (best == 1e300) best = 0;
    if (t.level == kRef) ref_ns = best;
    rows.push_back({name, t.name, best, 0});
  }
  for (auto& r : rows) {
    if (r.check == name) r.ref_ns = ref_ns;
  }
  rvtSetNumThreads(old);
}

// The registry: one entry per export name.
struct Check {
  std::string name;
  std::function<void()> verify;
  std::function<void(std::vector<BenchRow>&)> bench;
};
inline std::vector<Check>& Registry() {
  static std::vector<Check> checks;
  return checks;
}
// Names of the exports that have a compiled vector target and no entry in
// `checks`.
std::vector<std::string> UncheckedVectorExports(const std::vector<Check>& checks);

inline uint64_t SeedOf(const std::string& name) {
  uint64_t h = 1469598103934665603ull;  // FNV-1a: a fixed seed per export
  for (unsigned char ch : name) h = (h ^ ch) * 1099511628211ull;
  return h;
}

template <class Fn>
bool Register(const char* name, const Impl<Fn>& impl, CaseCheck<Fn> check) {
  const std::string n = name;
  Registry().push_back({n, [n, &impl, check] { Verify(impl, check, SeedOf(n)); },
                        [n, &impl, check](std::vector<BenchRow>& rows) { Bench(n, impl, check, rows); }});
  return true;
}

// ------------------------------------------------------------ call shapes
// Each shape converts to the CaseCheck of the export it is registered for.

inline constexpr bool kThreaded = true;

// The region sizes every region shape runs: every width 1..67 (all vector
// remainders of every target) at odd and padded steps and misaligned
// starts, one pixel, both sides of the threading limit, and a full-HD
// plane (the last, which the benchmark times).
struct RegionShape {
  ImageSize roi;
  int pad, src_misalign, dst_misalign;
};
inline std::vector<RegionShape> RegionShapes(bool threaded) {
  std::vector<RegionShape> s;
  for (int w = 1; w <= 67; ++w) s.push_back({{w, 3}, w % 5, w % 3, (w / 3) % 4});
  s.push_back({{1, 1}, 0, 0, 0});
  s.push_back({{131, 2}, 64, 1, 3});
  if (threaded) {
    s.push_back({{8192, 1}, 0, 1, 0});  // serial limit
    s.push_back({{8193, 1}, 2, 0, 1});  // first forked size
    s.push_back({{2731, 3}, 6, 3, 0});  // 8193 pixels over rows
  }
  s.push_back({{1920, 1080}, 0, 0, 0});
  return s;
}

// A one-plane region to a one-plane region:
//   fn(const S* src, int32_t srcStep, D* dst, int32_t dstStep, ImageSize roi).
// Source values are drawn from [lo, hi].
template <class S, class D>
struct RegionC1 {
  S lo, hi;
  bool threaded = false;

  template <class Fn>
  operator CaseCheck<Fn>() const {
    CaseCheck<Fn> c;
    const S l = lo, h = hi;
    const bool thr = threaded;
    c.cases = [l, h, thr](Rng& rng) {
      std::vector<Case> out;
      for (const RegionShape& sh : RegionShapes(thr)) {
        const int w = sh.roi.width, ht = sh.roi.height;
        Case k;
        k.label = std::to_string(w) + "x" + std::to_string(ht);
        k.roi = sh.roi;
        k.in.push_back(PlaneOf<S>(w, ht, int32_t(w * sizeof(S) + sh.pad), sh.src_misalign));
        k.in[0].Fill(rng, l, h);
        k.out.push_back(PlaneOf<D>(w, ht, int32_t(w * sizeof(D) + 2 * sh.pad), sh.dst_misalign));
        out.push_back(std::move(k));
      }
      return out;
    };
    c.call = [](Fn fn, Case& k) {
      return fn(k.in[0].as<S>(), k.in[0].step(), k.out[0].as<D>(), k.out[0].step(), k.roi);
    };
    if (threaded) c.threads = {1, 2};
    return c;
  }
};

// Any other shape (8x8 blocks and their tables, rows, bitstream coders,
// multi-plane regions): `make` builds the cases from the seeded Rng and
// `call` binds a case to an entry's arguments (a generic lambda).
template <class Make, class Call>
struct Cases {
  Make make;
  Call call;
  std::vector<int> threads{1};

  template <class Fn>
  operator CaseCheck<Fn>() const {
    CaseCheck<Fn> c;
    c.cases = make;
    const Call bind = call;
    c.call = [bind](Fn fn, Case& k) { return RvtResult(bind(fn, k)); };
    c.threads = threads;
    return c;
  }
};
template <class Make, class Call>
Cases(Make, Call) -> Cases<Make, Call>;
template <class Make, class Call>
Cases(Make, Call, std::vector<int>) -> Cases<Make, Call>;

// `n` independent trials of a fixed-size call (an 8x8 block and its
// tables, one row): make(rng, k) builds trial k.
template <class Make>
auto Trials(int n, Make make) {
  return [n, make](Rng& rng) {
    std::vector<Case> out;
    for (int k = 0; k < n; ++k) out.push_back(make(rng, k));
    return out;
  };
}

}  // namespace rvt::test

#define RVT_CHECKASM_CAT2(a, b) a##b
#define RVT_CHECKASM_CAT(a, b) RVT_CHECKASM_CAT2(a, b)
// Registers the differential check of export `name` (one per export).
#define RVT_CHECKASM(name, ...)                                                  \
  [[maybe_unused]] static const bool RVT_CHECKASM_CAT(rvt_checkasm_, name) =    \
      ::rvt::test::Register(#name, ::rvt::impl_##name,                           \
                            ::rvt::test::CaseCheck<decltype(&::name)>(__VA_ARGS__))

#endif  // RVT_TESTS_CHECKASM_H_
