// JPEG 2000 code-block decoding of hostile segments: random block shapes,
// bands, planes, pass counts, styles, ROI shifts and segment lengths over
// exactly sized heap copies (so the sanitizer sees any read past a
// segment).  Invalid parameters give a status and write nothing; valid ones
// decode, and the progressive decoder fed the same bytes in random layers
// ends where the one-shot decoder does.  What decodes is coded again and
// must decode back to itself.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "jpeg2k/t1.h"

#define RVT_FUZZ_EXPECT(cond) \
  do {                        \
    if (!(cond)) std::abort(); \
  } while (0)

namespace {

struct Reader {
  const uint8_t* p;
  size_t n;
  uint8_t U8() {
    if (!n) return 0;
    --n;
    return *p++;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rvt;
  Reader in{data, size};
  const int w = 1 + in.U8() % 64, h = 1 + in.U8() % 64;
  const int band = in.U8() % 5;  // 4: invalid
  const int magnBits = in.U8() % 33;
  const int sfBits = in.U8() % 33;
  const int style = in.U8() % 66;
  const int roi = in.U8() % 33;
  const int wantPasses = in.U8();
  const int planes = magnBits - sfBits;
  const int coded = planes > 0 ? 3 * planes - 2 : 0;
  const int passes = coded > 0 ? wantPasses % (coded + 2) : wantPasses % 2;
  const int segs = t1::SegmentsFor(passes, style & 63);
  std::vector<int32_t> segLen(size_t(segs) + 1, 0);
  for (int s = 0; s < segs; ++s) segLen[size_t(s)] = in.U8() % 2 == 0 ? int32_t(in.U8()) : int32_t(in.U8()) * 7;
  if (in.U8() == 0xA5 && segs) segLen[0] = -1;
  int64_t total = 0;
  for (int s = 0; s < segs; ++s) total += segLen[size_t(s)] > 0 ? segLen[size_t(s)] : 0;
  // The data: what the input still holds, cycled, in an exact heap block.
  std::vector<uint8_t> bytes(size_t(total) + 1);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = in.n ? in.p[i % in.n] : uint8_t(i);
  uint8_t* src = static_cast<uint8_t*>(std::malloc(size_t(total) + 1));
  std::memcpy(src, bytes.data(), size_t(total) + 1);

  int32_t bufBytes = 0;
  RVT_FUZZ_EXPECT(t1::DecodeGetBufSize({w, h}, &bufBytes) == rvtStatusOk);
  std::vector<uint8_t> work(static_cast<size_t>(bufBytes));
  std::vector<int32_t> out(size_t(w) * h, 0x5A5A5A5A);
  const RvtResult r = t1::DecodeCodeBlockRef(src, segLen.data(), out.data(), w * 4, {w, h}, band, magnBits, sfBits, passes,
                                   style, roi, work.data());
  // The fast passes read the same bytes to the same block and status.
  std::vector<uint8_t> fastWork(static_cast<size_t>(bufBytes));
  std::vector<int32_t> fast(out.size(), 0x5A5A5A5A);
  RVT_FUZZ_EXPECT(t1::DecodeCodeBlockFast(src, segLen.data(), fast.data(), w * 4, {w, h}, band, magnBits, sfBits,
                                          passes, style, roi, fastWork.data()) == r);
  RVT_FUZZ_EXPECT(fast == out);
  if (r != rvtStatusOk) {
    RVT_FUZZ_EXPECT(r == rvtStatusBadArg);
    for (int32_t v : out) RVT_FUZZ_EXPECT(v == 0x5A5A5A5A);
    std::free(src);
    return 0;
  }

  // The same bytes in layers: passes in random groups, each layer seeing
  // the segments cut where the bytes so far end.
  DecodeCBProgrState_JPEG2K* st = nullptr;
  RVT_FUZZ_EXPECT(t1::ProgrInitAlloc(&st, {w, h}) == rvtStatusOk);
  RVT_FUZZ_EXPECT(t1::ProgrAttach(st, {w, h}, band, magnBits, sfBits, style, roi) == rvtStatusOk);
  // The reference or the fast passes (a state is stepped by one of them).
  auto step = in.U8() & 1 ? t1::ProgrStepFast : t1::ProgrStepRef;
  int done = 0;
  while (done < passes) {
    const int more = 1 + in.U8() % 4;
    const int n = done + more > passes ? passes : done + more;
    // Segments of the first n passes: whole ones before, the last cut to a
    // random share of its bytes unless it is complete.
    const int cutSegs = t1::SegmentsFor(n, style);
    std::vector<int32_t> lens(segLen.begin(), segLen.begin() + cutSegs);
    if (n < passes && !t1::EndsSegment(n - 1, style)) lens.back() = lens.back() * (in.U8() % 5) / 4;
    RVT_FUZZ_EXPECT(step(src, lens.data(), n, st) == rvtStatusOk);
    done = n;
  }
  std::vector<int32_t> prog(out.size());
  RVT_FUZZ_EXPECT(t1::ProgrGetCodeBlock(st, prog.data(), w * 4) == rvtStatusOk);
  RVT_FUZZ_EXPECT(prog == out);
  t1::ProgrFree(st);
  std::free(src);

  // Code what decoded (with no ROI shift it fits the planes) and decode it.
  if (roi == 0 && magnBits >= 1) {
    EncodeCBState_JPEG2K* enc = nullptr;
    RVT_FUZZ_EXPECT(t1::EncodeInitAlloc(&enc, {w, h}) == rvtStatusOk);
    int32_t sf = 0, np = 0, nt = 0;
    RVT_FUZZ_EXPECT(t1::EncodeLoadCodeBlockRef(out.data(), w * 4, {w, h}, enc, band, magnBits,
                                                           style & 63, &sf, &np, &nt) == rvtStatusOk);
    std::vector<int32_t> lens(size_t(nt) + 1, 0);
    int64_t sum = 0;
    for (int s = 0; s < nt; ++s) {
      RVT_FUZZ_EXPECT(t1::EncodeGetTermPassLen(enc, s, &lens[size_t(s)]) == rvtStatusOk);
      sum += lens[size_t(s)];
    }
    std::vector<uint8_t> coded(size_t(sum) + 1);
    int32_t len = int32_t(sum) + 1, more = 0;
    RVT_FUZZ_EXPECT(t1::EncodeStoreBits(coded.data(), &len, enc, &more) == rvtStatusOk);
    RVT_FUZZ_EXPECT(len == sum && more == 0);
    std::vector<int32_t> back(out.size(), 1);
    RVT_FUZZ_EXPECT(t1::DecodeCodeBlockRef(coded.data(), lens.data(), back.data(), w * 4, {w, h}, band, magnBits, sf, np,
                                 style & 63, 0, work.data()) == rvtStatusOk);
    RVT_FUZZ_EXPECT(back == out);
    t1::EncodeFree(enc);
  }
  return 0;
}
