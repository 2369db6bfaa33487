// PackBits decoding of hostile strips: random packets, start positions and
// lengths give a defined status, a position inside the source, and no
// access outside the source or the row (both exactly sized heap blocks, so
// the sanitizer sees any stray byte); every decoding path agrees with the
// reference.  What decodes is coded again by every path, which must agree
// packet for packet and decode back.
#include <hwy/targets.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/dispatch.h"

#define RVT_FUZZ_EXPECT(cond) \
  do {                        \
    if (!(cond)) std::abort(); \
  } while (0)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  const int dst_len = 1 + (data[0] | (data[1] & 0x3F) << 8);  // 1..16384
  int pos = data[2] & 0x80 ? -int(data[2] & 0x7F) : data[2];   // a few negative ones too
  data += 3;
  size -= 3;
  const int src_len = int(size);
  std::unique_ptr<uint8_t[]> src(new uint8_t[size]);
  std::memcpy(src.get(), data, size);
  std::unique_ptr<uint8_t[]> row(new uint8_t[size_t(dst_len)]);

  const int start = pos;
  const auto& unpack = rvt::impl_rvtiUnpackBitsRow_TIFF_8u_C1;
  const RvtResult r = unpack.fn[rvt::kRef](src.get(), &pos, src_len, row.get(), dst_len);
  const int64_t have = hwy::SupportedTargets();
  const int64_t bits[3] = {HWY_AVX3, HWY_AVX2, HWY_SSSE3};
  for (int k = 0; k < 3; ++k) {  // every decoding path: same status, position and bytes
    if (!unpack.fn[k] || !(have & bits[k])) continue;
    std::unique_ptr<uint8_t[]> other(new uint8_t[size_t(dst_len)]);
    std::memcpy(other.get(), row.get(), size_t(dst_len));  // bytes not written stay equal
    int other_pos = start;
    RVT_FUZZ_EXPECT(unpack.fn[k](src.get(), &other_pos, src_len, other.get(), dst_len) == r);
    RVT_FUZZ_EXPECT(other_pos == pos && std::memcmp(other.get(), row.get(), size_t(dst_len)) == 0);
  }
  if (start < 0) {
    RVT_FUZZ_EXPECT(r == rvtStatusBadArg && pos == start);
    return 0;
  }
  RVT_FUZZ_EXPECT(r == rvtStatusOk || r == rvtStatusRowEnd);
  RVT_FUZZ_EXPECT(pos >= start || start >= src_len);
  RVT_FUZZ_EXPECT(pos <= (start > src_len ? start : src_len));
  if (r != rvtStatusOk) return 0;

  // Code the decoded row on every path into an exactly sized buffer.
  const int need = dst_len + dst_len / 128 + 2;
  std::unique_ptr<uint8_t[]> want(new uint8_t[size_t(need)]);
  int want_pos = 0;
  const auto& impl = rvt::impl_rvtiPackBitsRow_TIFF_8u_C1;
  RVT_FUZZ_EXPECT(impl.fn[rvt::kRef](row.get(), dst_len, want.get(), &want_pos, need) == rvtStatusOk);
  for (int k = 0; k < 3; ++k) {
    if (!impl.fn[k] || !(have & bits[k])) continue;
    std::unique_ptr<uint8_t[]> got(new uint8_t[size_t(need)]);
    int got_pos = 0;
    RVT_FUZZ_EXPECT(impl.fn[k](row.get(), dst_len, got.get(), &got_pos, need) == rvtStatusOk);
    RVT_FUZZ_EXPECT(got_pos == want_pos && std::memcmp(got.get(), want.get(), size_t(want_pos)) == 0);
  }
  std::unique_ptr<uint8_t[]> back(new uint8_t[size_t(dst_len)]);
  int back_pos = 0;
  RVT_FUZZ_EXPECT(unpack.fn[rvt::kRef](want.get(), &back_pos, want_pos, back.get(), dst_len) ==
                  rvtStatusOk);
  RVT_FUZZ_EXPECT(back_pos == want_pos && std::memcmp(back.get(), row.get(), size_t(dst_len)) == 0);
  return 0;
}
