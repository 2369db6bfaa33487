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
#include "../examples/rvtjpeg/jpeg_tables.h"
#include "jpeg/huffman_bits.h"

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

// The example luminance tables of JPEG encoders (the example codec's copy),
// and fully fuzzed ones.
inline constexpr const uint8_t (&kDcBits)[16] = rvtjpeg::kDcLumaBits;
inline constexpr const uint8_t (&kDcVals)[12] = rvtjpeg::kDcLumaVals;
inline constexpr const uint8_t (&kAcBits)[16] = rvtjpeg::kAcLumaBits;
inline constexpr const uint8_t (&kAcVals)[162] = rvtjpeg::kAcLumaVals;

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

// Overwrites bytes of a built spec or a state with bytes of the input, as a
// caller's hand-filled or damaged copy may hold them: a count (0..63), then
// that many (offset high, offset low, byte) triples.
template <class T>
void Patch(Input& in, T* obj) {
  auto* p = reinterpret_cast<uint8_t*>(obj);
  for (int n = in.U8() % 64; n > 0; --n) {
    const size_t at = (size_t(in.U8()) << 8 | in.U8()) % sizeof(T);
    p[at] = in.U8();
  }
}

// Bits a hand-filled spec may carry outside the fields the coders read,
// drawn from a seed of the input: above each encoder code's length and above
// its length field; in a decoder lookup entry between the symbol and the
// length and (now and then) above the length; above each symbol in values.
inline uint32_t NextBits(uint32_t& x) {
  x ^= x << 13;
  x ^= x >> 17;
  x ^= x << 5;
  return x;
}
inline void StrayBits(Input& in, EncodeHuffmanSpec* s) {
  uint32_t x = in.U32() | 1;
  for (uint32_t& e : s->entry) {
    const uint32_t n = (e >> 16) & 0xFF;
    if (n >= 1 && n < 16) e |= NextBits(x) & 0xFFFFu & ~((1u << n) - 1);
    e |= NextBits(x) & 0xFF000000u;
  }
}
inline void StrayBits(Input& in, DecodeHuffmanSpec* s) {
  uint32_t x = in.U32() | 1;
  for (uint32_t& e : s->lookup) e |= NextBits(x) & ((x & 0xF00) ? 0x0000FF00u : 0xFF00FF00u);
  for (uint16_t& v : s->values) v |= uint16_t(NextBits(x) & 0xFF00u);
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
