// The exported entry points.  Each export is a three-instruction trampoline
// that reads the variant index, indexes the export's two-slot table and
// tail-jumps with the caller's arguments untouched.  The slots are filled
// once at load with the best implementation the processor runs.
#include "frame/dispatch.h"
#include "frame/dispatch_table.h"

#include <sys/mman.h>

#include <cstddef>

#include "rvtcore.h"

// Every export's two slots and the variant index live in one table of whole
// pages.  The load-time selection fills it and then makes those pages
// read-only, so a stray or hostile write cannot redirect an export.
namespace rvt {
namespace {
enum SlotIndex : int {
#define RVT_EXPORT(name, ret, params) kSlot_##name,
#include "frame/exports.inc"
#undef RVT_EXPORT
  kNumSlots
};
}  // namespace
}  // namespace rvt

struct alignas(4096) RvtDispatchTable {
  int32_t variant;            // the variant index, 0 or 1
  int32_t pad[3];
  const void* slots[rvt::kNumSlots][2];
};
static_assert(offsetof(RvtDispatchTable, slots) == 16, "the trampolines index the slots at +16");
static_assert(sizeof(RvtDispatchTable) % 4096 == 0, "the table fills whole pages");

extern "C" {
__attribute__((visibility("hidden"))) RvtDispatchTable rvt_dispatch_table;
}

// The trampoline of export number N (the order of exports.inc, counted by
// __COUNTER__ from the base taken here) reads the variant index at +0 and
// jumps through slot [N][variant] at +16 + 16 * N.
#define RVT_STR2(x) #x
#define RVT_STR(x) RVT_STR2(x)
__asm__(".set rvt_slot_base, " RVT_STR(__COUNTER__) " + 1\n");
#define RVT_EXPORT(name, ret, params)                                                 \
  __asm__(".text\n\t.p2align 4\n\t.globl " #name "\n\t.type " #name                  \
          ",@function\n" #name ":\n\t"                                                \
          "movslq rvt_dispatch_table(%rip), %rax\n\t"                                 \
          "leaq rvt_dispatch_table+16+16*(" RVT_STR(__COUNTER__) "-rvt_slot_base)(%rip), %r11\n\t" \
          "jmp *(%r11,%rax,8)\n\t"                                                    \
          ".size " #name ", .-" #name "\n");
#include "frame/exports.inc"
#undef RVT_EXPORT

// The descriptors' three vector entries: every kernel is built for them.
static_assert((HWY_TARGETS & (HWY_SSSE3 | HWY_AVX2 | HWY_AVX3)) == (HWY_SSSE3 | HWY_AVX2 | HWY_AVX3),
              "Highway must build the SSSE3, AVX2 and AVX-512 targets");

namespace rvt {
namespace {

int g_level = kRef;
bool g_sealed = false;

// The level whose build serves an export (known by its slot) on a
// processor of `level`: on AVX-512 processors, the export's line in
// avx3_slots.inc, if it has one.
struct Avx3Line {
  int slot;
  int level;
};
#define RVT_AVX3_SLOT(name, lv) {kSlot_##name, lv},
constexpr Avx3Line kAvx3Lines[] = {
#include "frame/avx3_slots.inc"
};
#undef RVT_AVX3_SLOT

int ServingLevel(int slot, int level) {
  if (level != kAvx3) return level;
  for (const Avx3Line& l : kAvx3Lines) {
    if (l.slot == slot) return l.level;
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
  RvtDispatchTable& t = rvt_dispatch_table;
  t.variant = ((mask & RVT_CPU_SSSE3) && (mask & RVT_CPU_MOVBE)) ? 1 : 0;
  g_level = LevelForFeatures(mask);
#define RVT_EXPORT(name, ret, params) \
  t.slots[kSlot_##name][0] = t.slots[kSlot_##name][1] =                     \
      Pick(impl_##name, ServingLevel(kSlot_##name, g_level));
#define RVT_EXPORT_V2(name, ret, params)                                          \
  t.slots[kSlot_##name][0] = Pick(impl_##name, ServingLevel(kSlot_##name, g_level)); \
  t.slots[kSlot_##name][1] = Pick(impl1_##name, ServingLevel(kSlot_##name, g_level));
#include "frame/exports.inc"
#undef RVT_EXPORT
#undef RVT_EXPORT_V2
  // Sealed from here on.  Should the system refuse (it has no reason to),
  // the table stays writable and the library works as before.
  g_sealed = mprotect(&t, sizeof t, PROT_READ) == 0;
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

DispatchPages DispatchTable() {
  return {&rvt_dispatch_table, sizeof rvt_dispatch_table, g_sealed};
}

}  // namespace rvt
