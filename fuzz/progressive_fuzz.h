// Shared by the progressive decoder fuzz targets.  Input: a header (band
// Ss, Se, point transform Al, flags), a table as a DHT segment carries it,
// then the scan data; the seeds are scans cut from real progressive files
// (fuzz/seeds/<target>/).  Blocks start from fuzzed coefficients (so that
// refinements meet significant ones) and are decoded one after another; the
// state may be patched and a marker may be pending.  Every compiled path
// must return a defined status, stay inside the source and the block, and
// agree with the careful path on every output, position and state.
#ifndef RVT_FUZZ_PROGRESSIVE_FUZZ_H_
#define RVT_FUZZ_PROGRESSIVE_FUZZ_H_

#include <memory>

#include "fuzz_util.h"

namespace rvt::fuzz {

enum class ProgKind { kDCFirst, kDCRefine, kACFirst, kACRefine };

struct ProgStep {
  RvtResult status;
  int pos, marker;
  int16_t last_dc;
  int16_t block[64];
  DecodeHuffmanState state;
};

template <ProgKind kKind, class Fn>
int FuzzProgressive(const Impl<Fn>& impl, const uint8_t* data, size_t size) {
  Input in(data, size);
  const int ss = in.U8() % 66, se = in.U8() % 66, al = in.U8() % 16;
  const uint8_t flags = in.U8();
  Table t{};
  in.Bytes(t.bits, 16);
  int total = 0;
  for (uint8_t b : t.bits) total += b;
  in.Bytes(t.vals, size_t(total < 256 ? total : 256));
  DecodeHuffmanSpec spec;
  RVT_REF(rvtiDecodeHuffmanSpecInit_JPEG_8u)(t.bits, t.vals, &spec);
  DecodeHuffmanState st0{};
  int marker0 = 0;
  if (flags & 1) Patch(in, &st0);
  if (flags & 2) marker0 = in.U8();
  if (flags & 4) Patch(in, &spec);
  int16_t start[64] = {};
  if (flags & 8) {
    for (int16_t& v : start) v = int16_t(int8_t(in.U8()) * (1 << (al & 7)));
  }
  const std::vector<uint8_t> src = in.Rest();
  const int len = int(src.size());
  std::unique_ptr<uint8_t[]> exact(new uint8_t[src.size() + 1]);
  if (!src.empty()) std::memcpy(exact.get(), src.data(), src.size());

  std::vector<ProgStep> want;
  bool first = true;
  for (auto fn : Paths(impl)) {
    std::vector<ProgStep> got;
    int pos = 0, marker = marker0;
    int16_t last_dc = 0;
    DecodeHuffmanState st = st0;
    std::unique_ptr<int16_t[]> block(new int16_t[64]);
    for (int i = 0; i < 256; ++i) {
      std::memcpy(block.get(), start, sizeof start);
      ProgStep s;
      if constexpr (kKind == ProgKind::kDCFirst) {
        s.status = fn(exact.get(), len, &pos, block.get(), &last_dc, &marker, al, &spec, &st);
      } else if constexpr (kKind == ProgKind::kDCRefine) {
        s.status = fn(exact.get(), len, &pos, block.get(), &marker, al, &st);
      } else {
        s.status = fn(exact.get(), len, &pos, block.get(), &marker, ss, se, al, &spec, &st);
      }
      RVT_FUZZ_EXPECT(s.status == rvtStatusOk || s.status == rvtStatusOutOfBuffer ||
                      s.status == rvtStatusHuffData || s.status == rvtStatusErr ||
                      s.status == rvtStatusBadArg || s.status == rvtStatusSize);
      // A refused call (band or point transform out of range) touches
      // nothing, so the state may still hold what the input patched in.
      const bool refused = s.status == rvtStatusBadArg || s.status == rvtStatusSize;
      RVT_FUZZ_EXPECT(pos >= 0 && pos <= len);
      RVT_FUZZ_EXPECT(refused || (st.count >= 0 && st.count <= 32));
      RVT_FUZZ_EXPECT(!refused || std::memcmp(&st, &st0, sizeof st) == 0);
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
      RVT_FUZZ_EXPECT(std::memcmp(&got[i], &want[i], sizeof(ProgStep)) == 0);
    }
  }
  return 0;
}

}  // namespace rvt::fuzz

#endif  // RVT_FUZZ_PROGRESSIVE_FUZZ_H_
