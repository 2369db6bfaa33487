// Lossless row decoder on hostile input: 1 to 5 components (the fifth
// ignored) of random widths, fuzzed tables, built specs with bytes
// overwritten, fuzzed states, markers, fill bytes, truncated data.  Every
// path this processor runs must return a defined status, read nothing
// outside the source, write nothing outside the rows, and agree with the
// careful path on every row, position, marker and state.
#include <memory>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Input in(data, size);
  const uint8_t mode = in.U8();
  const int nc = 1 + in.U8() % 5;
  const int coded = nc < 4 ? nc : 4;
  const int width = 1 + int(in.U8() << 8 | in.U8()) % 700;
  Table t[2] = {ReadTable(in, mode & 1, true), ReadTable(in, mode & 2, true)};
  DecodeHuffmanState st0{};
  if (mode & 4) {
    st0.acc = in.U64();
    st0.count = int32_t(in.U32());
  }
  const int marker0 = (mode & 8) ? in.U8() : 0;
  DecodeHuffmanSpec spec[2];
  for (int k = 0; k < 2; ++k) RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(t[k].bits, t[k].vals, &spec[k]);
  if (mode & 0x80) StrayBits(in, &spec[1]);
  if (mode & 0x10) Patch(in, &spec[0]);
  if (mode & 0x20) Patch(in, &st0);
  const uint8_t which = in.U8();  // table of each component
  const std::vector<uint8_t> src = in.Rest();
  const int len = int(src.size());
  std::unique_ptr<uint8_t[]> exact(new uint8_t[src.size() + (src.empty() ? 1 : 0)]);
  if (!src.empty()) std::memcpy(exact.get(), src.data(), src.size());
  const DecodeHuffmanSpec* tables[5] = {&spec[which & 1], &spec[(which >> 1) & 1],
                                        &spec[(which >> 2) & 1], &spec[(which >> 3) & 1], nullptr};

  std::vector<int16_t> want;
  int want_pos = 0, want_marker = 0, want_rows = 0;
  RvtResult want_status = rvtStatusOk;
  DecodeHuffmanState want_st{};
  bool first = true;
  for (auto fn : Paths(rvt::impl_rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4)) {
    // Exactly sized rows, one allocation each, so a write past one is seen.
    std::vector<std::unique_ptr<int16_t[]>> rows;
    std::vector<int16_t> got;
    int16_t* ptrs[5] = {};
    for (int j = 0; j < coded; ++j) {
      rows.emplace_back(new int16_t[size_t(width)]());
      ptrs[j] = rows.back().get();
    }
    int pos = 0, marker = marker0, n = 0;
    DecodeHuffmanState st = st0;
    RvtResult r = rvtStatusOk;
    for (; n < 16; ++n) {
      r = fn(exact.get(), len, &pos, ptrs, width, nc, &marker, tables, &st);
      RVT_FUZZ_EXPECT(r == rvtStatusOk || r == rvtStatusOutOfBuffer || r == rvtStatusHuffData ||
                      (len < 1 && r == rvtStatusSize));
      RVT_FUZZ_EXPECT(len < 1 || (pos >= 0 && pos <= len && st.count >= 0 && st.count <= 32));
      for (int j = 0; j < coded; ++j) got.insert(got.end(), ptrs[j], ptrs[j] + width);
      if (r != rvtStatusOk) break;
    }
    if (first) {
      want = got;
      want_pos = pos;
      want_marker = marker;
      want_rows = n;
      want_status = r;
      want_st = st;
      first = false;
      continue;
    }
    RVT_FUZZ_EXPECT(got == want && pos == want_pos && marker == want_marker && n == want_rows &&
                    r == want_status && std::memcmp(&st, &want_st, sizeof st) == 0);
  }
  return 0;
}
