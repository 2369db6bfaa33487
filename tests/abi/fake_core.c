/* Test stand-in for rvtcore's feature query, preloaded in front of the real
 * rvtcore so the library sees a chosen processor. */
#include <stdint.h>

#if defined(FAKE_MASK_n8)
#define FAKE_MASK 0x30ULL /* SSSE3 and MOVBE */
#elif defined(FAKE_MASK_u8)
#define FAKE_MASK 0x10ULL /* SSSE3 alone */
#else
#define FAKE_MASK 0ULL
#endif

__attribute__((visibility("default"))) uint64_t rvtGetEnabledCpuFeatures(void) { return FAKE_MASK; }
