// The progressive ACRefine block decoder on hostile input (progressive_fuzz.h).
#include "progressive_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  return FuzzProgressive<ProgKind::kACRefine>(rvt::impl_rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1, data,
                                          size);
}
