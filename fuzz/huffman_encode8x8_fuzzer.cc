// Block encoder on hostile input: fuzzed blocks, tables (and built specs
// with bytes overwritten as a hand-filled copy may hold them), states and
// destination lengths; then a run of blocks made from the fuzzed one through
// the MCU-run encoder.  Every path this processor runs must agree with the
// careful path on status, bytes, position, state and predictor, never write
// past the length, and what it encodes (with tables the builders accept and
// values a baseline decoder carries) must decode to the same block.
#include <memory>

#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt::fuzz;
  Input in(data, size);
  const uint8_t mode = in.U8();
  const Table dc = ReadTable(in, mode & 1, true);
  const Table ac = ReadTable(in, mode & 2, false);
  EncodeHuffmanState st0{};
  if (mode & 4) {
    st0.acc = in.U64();
    st0.count = int32_t(in.U32());
  }
  const int flush = (mode & 0x80) ? 1 : 0;
  const int len = 1 + int(in.U32() % 700);
  const int16_t dc0 = int16_t(in.U32());
  int16_t block[64];
  // Sparse blocks are the common case: a mask of positions then values.
  const uint64_t keep = (mode & 0x10) ? ~uint64_t(0) : in.U64();
  for (int i = 0; i < 64; ++i) {
    const int16_t v = int16_t(in.U8() << 8 | in.U8());
    block[i] = ((keep >> i) & 1) ? int16_t((mode & 0x20) ? v : int16_t(v) >> 8) : int16_t(0);
  }
  EncodeHuffmanSpec espec[2];
  const bool dc_ok = RVT_REF(rvtiEncodeHuffmanSpecInit_JPEG_8u)(dc.bits, dc.vals, &espec[0]) == rvtStatusOk;
  const bool ac_ok = RVT_REF(rvtiEncodeHuffmanSpecInit_JPEG_8u)(ac.bits, ac.vals, &espec[1]) == rvtStatusOk;
  if (mode & 8) {
    StrayBits(in, &espec[0]);
    StrayBits(in, &espec[1]);
    Patch(in, &espec[0]);
    Patch(in, &espec[1]);
  }
  if (mode & 0x40) Patch(in, &st0);

  struct Out {
    RvtResult status;
    int pos;
    int16_t last_dc;
    EncodeHuffmanState state;
    std::vector<uint8_t> bytes;
  };
  std::vector<Out> outs;
  for (auto fn : Paths(rvt::impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1)) {
    std::unique_ptr<uint8_t[]> dst(new uint8_t[size_t(len)]);
    std::memset(dst.get(), 0xA5, size_t(len));
    Out o{rvtStatusOk, 0, dc0, st0, {}};
    o.status = fn(block, dst.get(), len, &o.pos, &o.last_dc, &espec[0], &espec[1], &o.state, flush);
    RVT_FUZZ_EXPECT(o.pos >= 0 && o.pos <= len && o.state.count >= 0 && o.state.count < 8);
    o.bytes.assign(dst.get(), dst.get() + len);
    if (!outs.empty()) {
      const Out& w = outs[0];
      RVT_FUZZ_EXPECT(o.status == w.status && o.pos == w.pos && o.last_dc == w.last_dc);
      RVT_FUZZ_EXPECT(std::memcmp(&o.state, &w.state, sizeof o.state) == 0 && o.bytes == w.bytes);
    }
    outs.push_back(std::move(o));
  }

  // A run of blocks derived from this one (its values shifted down, so most
  // fall in the run encoder's small-value tables) through every path of the
  // run encoder, against the block encoder block after block.
  {
    constexpr int kBlocks = 60;
    std::vector<int16_t> run(size_t(kBlocks) * 64);
    for (int b = 0; b < kBlocks; ++b)
      for (int i = 0; i < 64; ++i) run[size_t(b) * 64 + size_t(i)] = int16_t(block[i] >> (b % 9));
    const int comp[3] = {0, 0, 1};
    const EncodeHuffmanSpec* dcs[4] = {&espec[0], &espec[0], nullptr, nullptr};
    const EncodeHuffmanSpec* acs[4] = {&espec[1], &espec[1], nullptr, nullptr};
    const int rlen = len * 24;
    struct RunOut {
      RvtResult status;
      int pos, done;
      int16_t dc[4];
      EncodeHuffmanState state;
      std::vector<uint8_t> bytes;
    };
    RunOut want{rvtStatusOk, 0, 0, {dc0, dc0, 0, 0}, st0, std::vector<uint8_t>(size_t(rlen), 0xA5)};
    for (int i = 0; i < kBlocks; ++i) {
      const int c = comp[i % 3];
      want.status = RVT_REF(rvtiEncodeHuffman8x8_JPEG_16s1u_C1)(
          &run[size_t(i) * 64], want.bytes.data(), rlen, &want.pos, &want.dc[c], dcs[c], acs[c],
          &want.state, 0);
      if (want.status != rvtStatusOk) break;
      ++want.done;
    }
    for (auto fn : Paths(rvt::impl_rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1)) {
      RunOut o{rvtStatusOk, 0, -1, {dc0, dc0, 0, 0}, st0, std::vector<uint8_t>(size_t(rlen), 0xA5)};
      o.status = fn(run.data(), o.bytes.data(), rlen, &o.pos, kBlocks / 3, comp, 3, o.dc, dcs, acs,
                    &o.state, &o.done);
      RVT_FUZZ_EXPECT(o.status == want.status && o.pos == want.pos && o.done == want.done);
      RVT_FUZZ_EXPECT(std::memcmp(o.dc, want.dc, sizeof o.dc) == 0);
      RVT_FUZZ_EXPECT(std::memcmp(&o.state, &want.state, sizeof o.state) == 0 && o.bytes == want.bytes);
    }
  }

  // Round trip through the careful decoder.
  const Out& w = outs[0];
  bool carried = std::abs(int(block[0]) - int(dc0)) <= 32767;
  for (int i = 1; i < 64; ++i) carried = carried && block[i] != -32768;
  if (flush || !dc_ok || !ac_ok || !carried || w.status != rvtStatusOk || (mode & 0x4C)) return 0;
  std::vector<uint8_t> stream(w.bytes.begin(), w.bytes.begin() + w.pos);
  stream.resize(stream.size() + 4);
  int pos = w.pos;
  EncodeHuffmanState st = w.state;
  RVT_REF(rvtiEncodeHuffman8x8_JPEG_16s1u_C1)(nullptr, stream.data(), int(stream.size()), &pos, nullptr,
                                     nullptr, nullptr, &st, 1);
  stream.resize(size_t(pos));
  stream.push_back(0xFF);
  stream.push_back(0xD9);
  DecodeHuffmanSpec dspec[2];
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(dc.bits, dc.vals, &dspec[0]);
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(ac.bits, ac.vals, &dspec[1]);
  int16_t back[64];
  int rpos = 0, marker = 0;
  int16_t last_dc = dc0;
  DecodeHuffmanState ds{};
  const RvtResult r = RVT_REF(rvtiDecodeHuffman8x8_JPEG_1u16s_C1)(stream.data(), int(stream.size()), &rpos,
                                                         back, &last_dc, &marker, &dspec[0],
                                                         &dspec[1], &ds);
  RVT_FUZZ_EXPECT(r == rvtStatusOk && std::memcmp(back, block, sizeof back) == 0);
  return 0;
}
