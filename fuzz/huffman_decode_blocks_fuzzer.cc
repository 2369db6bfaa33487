// MCU-run decoder on hostile input: fuzzed tables (over-full ones included)
// and built specs with bytes overwritten, fuzzed states, markers and fill
// bytes anywhere, truncated data, any component pattern.  Every path this
// processor runs must return a defined status, read nothing outside the
// source, write nothing outside the blocks, and leave exactly what the
// careful block decoder leaves when called block after block.
#include <memory>

#include "fuzz_util.h"

namespace {

constexpr int kMaxBlocks = 160;

struct Outcome {
  RvtResult status;
  int pos, marker, nblocks_done;
  int16_t last_dc[4];
  DecodeHuffmanState state;
  int done[kMaxBlocks];
  int16_t blocks[kMaxBlocks * 64];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Table dc, ac;
  std::vector<uint8_t> src;
  DecodeHuffmanState st0{};
  int marker0 = 0;
  int16_t dc0[4] = {0, 0, 0, 0};
  Input in(data, size);
  const bool jpeg = FromJpeg(data, size, &dc, &ac, &src);
  const uint8_t mode = jpeg ? 0 : in.U8();
  // The pattern: 1..10 blocks of components 0..3 (tables 0 and 1 stand for
  // all four), and the MCU count.
  int comp[10] = {0};
  int nblocks = 1, nmcus = 40;
  if (!jpeg) {
    nblocks = 1 + in.U8() % 10;
    for (int b = 0; b < nblocks; ++b) comp[b] = in.U8() & 3;
    nmcus = 1 + in.U8() % (kMaxBlocks / nblocks);
    dc = ReadTable(in, mode & 1, true);
    ac = ReadTable(in, mode & 2, false);
    if (mode & 4) {
      st0.acc = in.U64();
      st0.count = int32_t(in.U32());
    }
    if (mode & 8) marker0 = in.U8();
    for (auto& v : dc0) v = int16_t(in.U32());
  }
  DecodeHuffmanSpec spec[2][2];  // [dc/ac][table]
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(dc.bits, dc.vals, &spec[0][0]);
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(ac.bits, ac.vals, &spec[1][0]);
  spec[0][1] = spec[0][0];
  spec[1][1] = spec[1][0];
  if (!jpeg) {
    if (mode & 0x80) {
      StrayBits(in, &spec[0][1]);
      StrayBits(in, &spec[1][1]);
    }
    if (mode & 0x10) Patch(in, &spec[0][1]);
    if (mode & 0x20) Patch(in, &spec[1][1]);
    if (mode & 0x40) Patch(in, &st0);
    // The rest, repeated up to 64 times: sources long enough for the fast
    // path from short inputs.
    const int copies = 1 + in.U8() % 64;
    const std::vector<uint8_t> rest = in.Rest();
    for (int i = 0; i < copies; ++i) src.insert(src.end(), rest.begin(), rest.end());
  }
  const DecodeHuffmanSpec* dcs[4] = {&spec[0][0], &spec[0][1], &spec[0][0], &spec[0][1]};
  const DecodeHuffmanSpec* acs[4] = {&spec[1][0], &spec[1][1], &spec[1][1], &spec[1][0]};

  const int len = int(src.size());
  std::unique_ptr<uint8_t[]> exact(new uint8_t[src.size() + 1]);
  if (!src.empty()) std::memcpy(exact.get(), src.data(), src.size());
  const int n = nmcus * nblocks;

  // The definition: the careful block decoder, block after block.
  std::unique_ptr<Outcome> want(new Outcome{});
  {
    Outcome& o = *want;
    std::memset(&o, 0, sizeof o);
    o.pos = 0, o.marker = marker0, o.state = st0;
    std::memcpy(o.last_dc, dc0, sizeof dc0);
    for (int i = 0; i < kMaxBlocks; ++i) o.done[i] = -1;
    o.status = rvtStatusOk;
    for (int i = 0; i < n; ++i) {
      const int c = comp[i % nblocks];
      o.status = RVT_REF(rvtiDecodeHuffman8x8_JPEG_1u16s_C1)(exact.get(), len, &o.pos,
                                                             o.blocks + 64 * i, &o.last_dc[c],
                                                             &o.marker, dcs[c], acs[c], &o.state);
      if (o.status != rvtStatusOk) break;
      o.done[i] = int(o.state.coefsDone);
      ++o.nblocks_done;
    }
  }
  for (auto fn : Paths(rvt::impl_rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1)) {
    std::unique_ptr<Outcome> got(new Outcome{});
    Outcome& o = *got;
    std::memset(&o, 0, sizeof o);
    o.pos = 0, o.marker = marker0, o.state = st0;
    std::memcpy(o.last_dc, dc0, sizeof dc0);
    for (int i = 0; i < kMaxBlocks; ++i) o.done[i] = -1;
    // Exactly the blocks of the run, so the sanitizer sees a write past them.
    std::unique_ptr<int16_t[]> blocks(new int16_t[size_t(n) * 64]());
    o.status = fn(exact.get(), len, &o.pos, blocks.get(), nmcus, comp, nblocks, o.last_dc,
                  &o.marker, dcs, acs, &o.state, o.done, &o.nblocks_done);
    std::memcpy(o.blocks, blocks.get(), size_t(n) * 64 * sizeof(int16_t));
    RVT_FUZZ_EXPECT(o.status == rvtStatusOk || o.status == rvtStatusOutOfBuffer ||
                    o.status == rvtStatusHuffData || o.status == rvtStatusErr);
    RVT_FUZZ_EXPECT(std::memcmp(&o, want.get(), sizeof o) == 0);
  }
  return 0;
}
