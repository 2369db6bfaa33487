// Shared by the Huffman fuzz targets: a reader over the fuzz input, the
// tables it selects, and the compiled paths of an export this processor
// runs (the careful reference first).
#ifndef RVT_FUZZ_FUZZ_UTIL_H_
#define RVT_FUZZ_FUZZ_UTIL_H_

#include <hwy/targets.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "frame/dispatch.h"
#include "jpeg/huffman_coding.h"

namespace rvt::fuzz {

// Takes bytes from the front of the input; zeros once it is used up.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : p_(data), n_(size) {}
  uint8_t U8() {
    if (n_ == 0) return 0;
    --n_;
    return *p_++;
  }
  uint32_t U32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = v << 8 | U8();
    return v;
  }
  uint64_t U64() { return uint64_t(U32()) << 32 | U32(); }
  void Bytes(uint8_t* out, size_t n) {
    for (size_t i = 0; i < n; ++i) out[i] = U8();
  }
  // The rest of the input, as an exactly sized heap copy (so the sanitizer
  // sees any read past it).
  std::vector<uint8_t> Rest() {
    std::vector<uint8_t> r(p_, p_ + n_);
    p_ += n_;
    n_ = 0;
    return r;
  }
  size_t left() const { return n_; }

 private:
  const uint8_t* p_;
  size_t n_;
};

// The example luminance tables of JPEG encoders, and fully fuzzed ones.
inline const uint8_t kDcBits[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
inline const uint8_t kDcVals[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
inline const uint8_t kAcBits[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d};
inline const uint8_t kAcVals[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,
    0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52,
    0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25,
    0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45,
    0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64,
    0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,
    0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6,
    0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3,
    0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8,
    0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

struct Table {
  uint8_t bits[16];
  uint8_t vals[256];
};

// A table: the example one (when `example`) or bits and values from the
// input.  Over-full and over-long tables are welcome: the Huffman table builders
// decide what they accept.
inline Table ReadTable(Input& in, bool example, bool dc) {
  Table t{};
  if (example) {
    std::memcpy(t.bits, dc ? kDcBits : kAcBits, 16);
    if (dc) {
      std::memcpy(t.vals, kDcVals, sizeof kDcVals);
    } else {
      std::memcpy(t.vals, kAcVals, sizeof kAcVals);
    }
    return t;
  }
  in.Bytes(t.bits, 16);
  int total = 0;
  for (uint8_t b : t.bits) total += b;
  in.Bytes(t.vals, size_t(total < 256 ? total : 256));
  return t;
}

// The paths of an export this processor runs: careful reference first.
template <class Fn>
std::vector<Fn> Paths(const Impl<Fn>& impl) {
  std::vector<Fn> out = {impl.fn[kRef]};
  const int64_t have = hwy::SupportedTargets();
  const int64_t bits[3] = {HWY_AVX3, HWY_AVX2, HWY_SSSE3};
  for (int k = 0; k < kRef; ++k) {
    if (impl.fn[k] && (have & bits[k])) out.push_back(impl.fn[k]);
  }
  return out;
}

// A JPEG file as input (the seeds are real files): its first DC and AC
// tables of id 0 and the bytes after its first scan header.  Returns false
// when the input is not one.
inline bool FromJpeg(const uint8_t* d, size_t n, Table* dc, Table* ac, std::vector<uint8_t>* scan) {
  if (n < 4 || d[0] != 0xFF || d[1] != 0xD8) return false;
  bool have_dc = false, have_ac = false;
  size_t i = 2;
  while (i + 4 <= n && d[i] == 0xFF) {
    const int m = d[i + 1];
    const size_t len = size_t(d[i + 2]) << 8 | d[i + 3];
    if (len < 2 || i + 2 + len > n) return false;
    const size_t end = i + 2 + len;
    if (m == 0xC4) {
      for (size_t p = i + 4; p + 17 <= end;) {
        const int cls = d[p] >> 4, id = d[p] & 15;
        int total = 0;
        for (int k = 0; k < 16; ++k) total += d[p + 1 + size_t(k)];
        if (total > 256 || p + 17 + size_t(total) > end) break;
        Table* t = (cls == 0 && id == 0 && !have_dc) ? dc : (cls == 1 && id == 0 && !have_ac) ? ac : nullptr;
        if (t) {
          std::memcpy(t->bits, d + p + 1, 16);
          std::memcpy(t->vals, d + p + 17, size_t(total));
          (cls == 0 ? have_dc : have_ac) = true;
        }
        p += 17 + size_t(total);
      }
    } else if (m == 0xDA) {
      if (!have_dc || !have_ac) return false;
      scan->assign(d + end, d + n);
      return true;
    }
    i = end;
  }
  return false;
}

// The careful path of an export, called without the exported entry points
// (the fuzz build links only the sources these targets need).
#define RVT_REF(name) (rvt::impl_##name.fn[rvt::kRef])

// Paths that disagree are a bug as much as a crash is.
#define RVT_FUZZ_EXPECT(cond) \
  do {                        \
    if (!(cond)) abort();     \
  } while (0)

}  // namespace rvt::fuzz

#endif  // RVT_FUZZ_FUZZ_UTIL_H_
