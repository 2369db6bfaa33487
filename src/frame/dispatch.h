// Implementation descriptors: what each export can run on each target.
//
// Every export <name> in exports.inc has a descriptor rvt::impl_<name> with
// one entry per code path, best first:
//   [kAvx3]  Highway AVX-512 target      (null if not compiled)
//   [kAvx2]  Highway AVX2 target         (null if not compiled)
//   [kSsse3] Highway SSSE3 target        (the floor; null for plain exports)
//   [kRef]   the plain scalar reference  (the definition of the result)
// At load, each export's two slots are filled with the best entry the
// processor can run (dispatch.cc); the tests call every entry directly.
#ifndef RVT_FRAME_DISPATCH_H_
#define RVT_FRAME_DISPATCH_H_

#include <cstdint>
#include <hwy/detect_targets.h>

#include <type_traits>

#include "rvtjp.h"

namespace rvt {

enum Level : int { kAvx3 = 0, kAvx2 = 1, kSsse3 = 2, kRef = 3, kNumLevels = 4 };

inline const char* LevelName(int level) {
  static const char* const names[kNumLevels] = {"AVX3", "AVX2", "SSSE3", "ref"};
  return names[level];
}

template <class Fn>
struct Impl {
  Fn fn[kNumLevels];
};

// Best level the feature mask (rvtcore bits) can run; kRef without SSSE3.
int LevelForFeatures(uint64_t mask);
// Level chosen at load for this process.
int ActiveLevel();

}  // namespace rvt

// Descriptor of a Highway export: use inside namespace rvt, under HWY_ONCE,
// in the file that builds ns::HWY_NAMESPACE::hwy_fn for every target; the
// reference ns::ref_fn serves the last entry.
#define RVT_IMPL_HWY(name, ns, hwy_fn, ref_fn)                                      \
  extern const Impl<decltype(&::name)> impl_##name;                                  \
  const Impl<decltype(&::name)> impl_##name = {                                      \
      {RVT_CHOOSE_AVX3(ns, hwy_fn), RVT_CHOOSE_AVX2(ns, hwy_fn), RVT_CHOOSE_SSSE3(ns, hwy_fn), \
       &ns::ref_fn}}
#if HWY_TARGETS & HWY_AVX3
#define RVT_CHOOSE_AVX3(ns, fn) &ns::N_AVX3::fn
#else
#define RVT_CHOOSE_AVX3(ns, fn) nullptr
#endif
#if HWY_TARGETS & HWY_AVX2
#define RVT_CHOOSE_AVX2(ns, fn) &ns::N_AVX2::fn
#else
#define RVT_CHOOSE_AVX2(ns, fn) nullptr
#endif
#if HWY_TARGETS & HWY_SSSE3
#define RVT_CHOOSE_SSSE3(ns, fn) &ns::N_SSSE3::fn
#else
#define RVT_CHOOSE_SSSE3(ns, fn) nullptr
#endif

// Descriptor of an export whose fast form needs no target features (plain
// x86-64 code): it fills every target entry, the reference the last, so
// the harness still compares the two.
#define RVT_IMPL_FAST(name, fast_fn, ref_fn)                              \
  extern const Impl<decltype(&::name)> impl_##name;                        \
  const Impl<decltype(&::name)> impl_##name = {{&fast_fn, &fast_fn, &fast_fn, &ref_fn}}

// Descriptor of an export with no vector form: the reference serves alone.
#define RVT_IMPL_PLAIN(name, fn)                                          \
  extern const Impl<decltype(&::name)> impl_##name;                        \
  const Impl<decltype(&::name)> impl_##name = {{nullptr, nullptr, nullptr, &fn}}

// Descriptor of the variant-1 implementation of an RVT_EXPORT_V2 export.
#define RVT_IMPL1_PLAIN(name, fn)                                         \
  extern const Impl<decltype(&::name)> impl1_##name;                       \
  const Impl<decltype(&::name)> impl1_##name = {{nullptr, nullptr, nullptr, &fn}}

// Declarations of every descriptor, for the frame and the tests.
namespace rvt {
#define RVT_EXPORT(name, ret, params) extern const Impl<decltype(&::name)> impl_##name;
#define RVT_EXPORT_V2(name, ret, params) \
  RVT_EXPORT(name, ret, params) extern const Impl<decltype(&::name)> impl1_##name;
#include "frame/exports.inc"
#undef RVT_EXPORT
#undef RVT_EXPORT_V2
}  // namespace rvt

#endif  // RVT_FRAME_DISPATCH_H_
