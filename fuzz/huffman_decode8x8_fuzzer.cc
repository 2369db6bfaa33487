// Block decoder on hostile input: fuzzed tables (over-full ones included)
// and built specs with bytes overwritten as a hand-filled copy may hold
// them, fuzzed states, markers and fill bytes anywhere, truncated data.  Every
// path this processor runs must return a defined status, read nothing
// outside the source, write nothing outside the block, and agree with the
// careful path on every output, position and state.
#include <memory>

#include "fuzz_util.h"

namespace {

struct Step {
  RvtResult status;
  int pos, marker;
  int16_t last_dc;
  int16_t block[64];
  DecodeHuffmanState state;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Table dc, ac;
  std::vector<uint8_t> src;
  DecodeHuffmanState st0{};
  int marker0 = 0;
  int16_t dc0 = 0;
  Input in(data, size);
  const bool jpeg = FromJpeg(data, size, &dc, &ac, &src);
  const uint8_t mode = jpeg ? 0 : in.U8();
  if (!jpeg) {
    dc = ReadTable(in, mode & 1, true);
    ac = ReadTable(in, mode & 2, false);
    if (mode & 4) {
      st0.acc = in.U64();
      st0.count = int32_t(in.U32());
    }
    if (mode & 8) marker0 = in.U8();
    dc0 = int16_t(in.U32());
  }
  DecodeHuffmanSpec dspec, aspec;
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(dc.bits, dc.vals, &dspec);  // partly built on error: fine
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(ac.bits, ac.vals, &aspec);
  if (!jpeg) {
    if (mode & 0x80) {
      StrayBits(in, &dspec);
      StrayBits(in, &aspec);
    }
    if (mode & 0x10) Patch(in, &dspec);
    if (mode & 0x20) Patch(in, &aspec);
    if (mode & 0x40) Patch(in, &st0);
    src = in.Rest();
  }

  const int len = int(src.size());
  std::unique_ptr<uint8_t[]> exact(new uint8_t[src.size()]);
  if (!src.empty()) std::memcpy(exact.get(), src.data(), src.size());
  std::vector<Step> want;
  bool first = true;
  for (auto fn : Paths(rvt::impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1)) {
    std::vector<Step> got;
    int pos = 0, marker = marker0;
    int16_t last_dc = dc0;
    DecodeHuffmanState st = st0;
    std::unique_ptr<int16_t[]> block(new int16_t[64]);
    for (int i = 0; i < 128; ++i) {
      Step s;
      s.status = fn(exact.get(), len, &pos, block.get(), &last_dc, &marker, &dspec, &aspec, &st);
      RVT_FUZZ_EXPECT(s.status == rvtStatusOk || s.status == rvtStatusOutOfBuffer ||
                      s.status == rvtStatusHuffData || s.status == rvtStatusErr);
      RVT_FUZZ_EXPECT(pos >= 0 && pos <= len);
      RVT_FUZZ_EXPECT(st.count >= 0 && st.count <= 32);
      s.pos = pos;
      s.marker = marker;
      s.last_dc = last_dc;
      std::memcpy(s.block, block.get(), sizeof s.block);
      s.state = st;
      got.push_back(s);
      if (s.status != rvtStatusOk) break;
    }
    if (first) {
      want = got;
      first = false;
      continue;
    }
    RVT_FUZZ_EXPECT(got.size() == want.size());
    for (size_t i = 0; i < got.size(); ++i) {
      RVT_FUZZ_EXPECT(std::memcmp(&got[i], &want[i], sizeof(Step)) == 0);
    }
  }
  return 0;
}
