// The exported entry points.  Each export is a three-instruction trampoline
// that reads the variant index, indexes the export's two-slot table and
// tail-jumps with the caller's arguments untouched.  The slots are filled
// once at load with the best implementation the processor runs.
#include "frame/dispatch.h"

#include "rvtcore.h"

extern "C" {
__attribute__((visibility("hidden"))) int32_t rvt_variant_index = 0;
}

#define RVT_EXPORT(name, ret, params)                                          \
  extern "C" __attribute__((visibility("hidden"))) const void* rvt_slots_##name[2]; \
  const void* rvt_slots_##name[2];                                            \
  __asm__(".text\n\t.p2align 4\n\t.globl " #name "\n\t.type " #name            \
          ",@function\n" #name ":\n\t"                                         \
          "movslq rvt_variant_index(%rip), %rax\n\t"                           \
          "leaq rvt_slots_" #name "(%rip), %r11\n\t"                           \
          "jmp *(%r11,%rax,8)\n\t"                                             \
          ".size " #name ", .-" #name "\n");
#include "frame/exports.inc"
#undef RVT_EXPORT

// The descriptors' three vector entries: every kernel is built for them.
static_assert((HWY_TARGETS & (HWY_SSSE3 | HWY_AVX2 | HWY_AVX3)) == (HWY_SSSE3 | HWY_AVX2 | HWY_AVX3),
              "Highway must build the SSSE3, AVX2 and AVX-512 targets");

namespace rvt {
namespace {

int g_level = kRef;

// The level whose build serves an export (known by its slots) on a
// processor of `level`: on AVX-512 processors, the export's line in
// avx3_slots.inc, if it has one.
struct Avx3Line {
  const void* const* slots;
  int level;
};
#define RVT_AVX3_SLOT(name, lv) {rvt_slots_##name, lv},
constexpr Avx3Line kAvx3Lines[] = {
#include "frame/avx3_slots.inc"
};
#undef RVT_AVX3_SLOT

int ServingLevel(const void* const* slots, int level) {
  if (level != kAvx3) return level;
  for (const Avx3Line& l : kAvx3Lines) {
    if (l.slots == slots) return l.level;
  }
  return level;
}

template <class Fn>
const void* Pick(const Impl<Fn>& impl, int level) {
  for (int k = level; k < kRef; ++k) {
    if (impl.fn[k]) return reinterpret_cast<const void*>(impl.fn[k]);
  }
  return reinterpret_cast<const void*>(impl.fn[kRef]);
}

// Runs before any export can be called: ELF constructors of a library run
// before those of the objects that depend on it.
__attribute__((constructor(101))) void InitDispatch() {
  const uint64_t mask = rvtGetEnabledCpuFeatures();
  rvt_variant_index = ((mask & RVT_CPU_SSSE3) && (mask & RVT_CPU_MOVBE)) ? 1 : 0;
  g_level = LevelForFeatures(mask);
#define RVT_EXPORT(name, ret, params) \
  rvt_slots_##name[0] = rvt_slots_##name[1] = Pick(impl_##name, ServingLevel(rvt_slots_##name, g_level));
#define RVT_EXPORT_V2(name, ret, params)                                                \
  rvt_slots_##name[0] = Pick(impl_##name, ServingLevel(rvt_slots_##name, g_level));     \
  rvt_slots_##name[1] = Pick(impl1_##name, ServingLevel(rvt_slots_##name, g_level));
#include "frame/exports.inc"
#undef RVT_EXPORT
#undef RVT_EXPORT_V2
}

}  // namespace

int LevelForFeatures(uint64_t m) {
  // What Highway's targets assume of the processor.
  const uint64_t avx2 = RVT_CPU_SSSE3 | RVT_CPU_SSE41 | RVT_CPU_SSE42 | RVT_CPU_CLMUL |
                        RVT_CPU_AES | RVT_CPU_AVX | RVT_CPU_AVX2 | RVT_CPU_BMI1 |
                        RVT_CPU_BMI2 | RVT_CPU_FMA | RVT_CPU_LZCNT | RVT_CPU_F16C;
  const uint64_t avx3 = avx2 | RVT_CPU_AVX512F | RVT_CPU_AVX512VL | RVT_CPU_AVX512DQ |
                        RVT_CPU_AVX512BW;
  if ((m & avx3) == avx3) return kAvx3;
  if ((m & avx2) == avx2) return kAvx2;
  if (m & RVT_CPU_SSSE3) return kSsse3;
  return kRef;
}

int ActiveLevel() { return g_level; }

}  // namespace rvt
