// Single-value decoder on hostile input: fuzzed tables (built, or with bytes
// overwritten as a hand-filled copy may hold them) and states, markers,
// fill bytes and truncation give defined statuses and no access outside
// the source or the value.
#include <memory>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Input in(data, size);
  const uint8_t mode = in.U8();
  const Table t = ReadTable(in, mode & 1, true);
  DecodeHuffmanState st{};
  if (mode & 4) {
    st.acc = in.U64();
    st.count = int32_t(in.U32());
  }
  int marker = (mode & 8) ? in.U8() : 0;
  DecodeHuffmanSpec spec;
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(t.bits, t.vals, &spec);
  if (mode & 0x10) Patch(in, &spec);
  const std::vector<uint8_t> src = in.Rest();
  const int len = int(src.size());
  std::unique_ptr<uint8_t[]> exact(new uint8_t[src.size()]);
  if (!src.empty()) std::memcpy(exact.get(), src.data(), src.size());
  int pos = 0;
  for (int i = 0; i < 4096; ++i) {
    std::unique_ptr<int16_t> value(new int16_t(0));
    const RvtResult r = RVT_REF(rvtiDecodeHuffmanOne_JPEG_1u16s_C1)(exact.get(), len, &pos, value.get(),
                                                           &marker, &spec, &st);
    if (len < 1) {
      RVT_FUZZ_EXPECT(r == rvtStatusSize);
      break;
    }
    RVT_FUZZ_EXPECT(r == rvtStatusOk || r == rvtStatusOutOfBuffer || r == rvtStatusHuffData);
    RVT_FUZZ_EXPECT(pos >= 0 && pos <= len && st.count >= 0 && st.count <= 32);
    if (r != rvtStatusOk) break;
  }
  return 0;
}
