// Stateless block decoder on hostile input: fuzzed tables, built or with
// bytes overwritten as a hand-filled copy may hold them.  It has no source bound, so
// (as its callers must) the data handed to it ends with a marker; it must
// stop there, never read past it, and never write outside the block.
#include <memory>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Input in(data, size);
  const uint8_t mode = in.U8();
  const Table dc = ReadTable(in, mode & 1, true);
  const Table ac = ReadTable(in, mode & 2, false);
  uint32_t prefetched = in.U32();
  int nvalid = in.U8() % 40;  // counts above 32 are taken as 32
  int marker = (mode & 8) ? in.U8() : 0;
  const int start = in.U8();
  DecodeHuffmanSpec dspec, aspec;
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(dc.bits, dc.vals, &dspec);
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(ac.bits, ac.vals, &aspec);
  if (mode & 0x10) Patch(in, &dspec);
  if (mode & 0x20) Patch(in, &aspec);
  std::vector<uint8_t> src = in.Rest();
  const int n = int(src.size());
  src.push_back(0xFF);
  src.push_back(0xD9);
  std::unique_ptr<uint8_t[]> exact(new uint8_t[src.size()]);
  if (!src.empty()) std::memcpy(exact.get(), src.data(), src.size());
  int bitpos = 8 * (start % (n + 1));
  int16_t last_dc = 0;
  for (int i = 0; i < 256; ++i) {
    std::unique_ptr<int16_t[]> block(new int16_t[64]);
    const RvtResult r = RVT_REF(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1)(
        exact.get(), &bitpos, block.get(), &last_dc, &marker, &prefetched, &nvalid, &dspec, &aspec);
    RVT_FUZZ_EXPECT(r == rvtStatusOk || r == rvtStatusHuffData || r == rvtStatusErr);
    RVT_FUZZ_EXPECT(bitpos >= 0 && bitpos <= 8 * (n + 2) && nvalid >= 0 && nvalid <= 32);
    if (r != rvtStatusOk) break;
  }
  return 0;
}
