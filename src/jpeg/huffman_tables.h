// Huffman specs and coder states: sizes, building from DHT-style tables,
// allocation and release.  Every export here is plain code (no vector
// form); the checks of each come first in its entry, in argument order.
#ifndef RVT_JPEG_HUFFMAN_TABLES_H_
#define RVT_JPEG_HUFFMAN_TABLES_H_

#include "frame/checks.h"
#include "frame/memory.h"
#include "jpeg/huffman_bits.h"

namespace rvt::huffman_tables {

using namespace ::rvt::huff;  // NOLINT: the shared layouts and constants


// Canonical code assignment: lengths in increasing order, each next code of
// a length one more than the last, doubled once per length step.  Fills
// sizes/codes for the `total` codes.  With check_full, a length whose last
// code is all 1-bits (or whose codes overflow it) fails the table.
inline RvtResult AssignCodes(const uint8_t* bits, bool check_full, int* total, uint8_t* sizes,
                      uint32_t* codes) {
  int n = 0;
  for (int i = 0; i < 16; ++i) {
    if (n + bits[i] > 256) return rvtStatusHuffTable;
    n += bits[i];
  }
  uint32_t code = 0;
  int k = 0;
  for (int len = 1; len <= 16; ++len) {
    for (int j = 0; j < bits[len - 1]; ++j) {
      sizes[k] = uint8_t(len);
      codes[k] = code++;
      ++k;
    }
    if (check_full && code >= (1u << len)) return rvtStatusHuffTable;
    code <<= 1;
  }
  *total = n;
  return rvtStatusOk;
}

inline RvtResult BuildEncodeSpec(const uint8_t* bits, const uint8_t* vals, EncodeHuffmanSpec* spec) {
  ZeroFill(spec, kEncodeSpecBytes);
  int total = 0;
  uint8_t sizes[256];
  uint32_t codes[256];
  RVT_CHECK(AssignCodes(bits, true, &total, sizes, codes));
  for (int k = 0; k < total; ++k) {
    spec->entry[vals[k]] = (uint32_t(sizes[k]) << 16) | codes[k];
  }
  return rvtStatusOk;
}

inline RvtResult BuildDecodeSpec(const uint8_t* bits, const uint8_t* vals, DecodeHuffmanSpec* spec) {
  ZeroFill(spec, kDecodeSpecBytes);
  int total = 0;
  uint8_t sizes[256];
  uint32_t codes[256];
  // No fullness check here: over-full tables decode as far as they can.
  RVT_CHECK(AssignCodes(bits, false, &total, sizes, codes));
  int k = 0;
  for (int len = 1; len <= 16; ++len) {
    const int n = bits[len - 1];
    if (n == 0) {
      spec->maxCode[len] = 0xFFFF;
      continue;
    }
    spec->valueIndex[len] = uint16_t(k);
    spec->minCode[len] = uint16_t(codes[k]);
    k += n;
    spec->maxCode[len] = uint16_t(codes[k - 1]);
  }
  spec->maxCode[17] = 0xFFFF;
  for (int i = 0; i < total; ++i) spec->values[i] = vals[i];
  // Lookup of the codes of up to 8 bits.  An over-full table may run one
  // entry past the end of the lookup, onto minCode[0..1]; that entry is
  // still written and the build succeeds; any further entry fails it.
  for (k = 0; k < total && sizes[k] <= 8; ++k) {
    const int len = sizes[k];
    const uint32_t entry = vals[k] | (uint32_t(len) << 16);
    const uint64_t first = uint64_t(codes[k]) << (8 - len);
    for (uint64_t idx = first; idx < first + (1u << (8 - len)); ++idx) {
      if (idx > 256) return rvtStatusHuffTable;
      if (idx == 256) {
        spec->minCode[0] = uint16_t(entry);
        spec->minCode[1] = uint16_t(entry >> 16);
      } else {
        spec->lookup[idx] = entry;
      }
    }
  }
  return rvtStatusOk;
}

inline RvtResult SizeOut(int* p, int size) {
  RVT_CHECK(CheckPtr(p));
  *p = size;
  return rvtStatusOk;
}

inline RvtResult EncodeSpecGetBufSize(int* p) { return SizeOut(p, kEncodeSpecBytes); }
inline RvtResult DecodeSpecGetBufSize(int* p) { return SizeOut(p, kDecodeSpecBytes); }
inline RvtResult EncodeStateGetBufSize(int* p) { return SizeOut(p, kEncodeStateBytes); }
inline RvtResult DecodeStateGetBufSize(int* p) { return SizeOut(p, kDecodeStateBytes); }

template <class Spec, RvtResult (*kBuild)(const uint8_t*, const uint8_t*, Spec*)>
RvtResult SpecInit(const uint8_t* bits, const uint8_t* vals, Spec* spec) {
  RVT_CHECK(CheckPtr(bits));
  RVT_CHECK(CheckPtr(vals));
  RVT_CHECK(CheckPtr(spec));
  return kBuild(bits, vals, spec);
}

// The object is handed to the caller before the build's status is known:
// a table error still leaves the caller owning it.
template <class Spec, int kBytes, RvtResult (*kBuild)(const uint8_t*, const uint8_t*, Spec*)>
RvtResult SpecInitAlloc(const uint8_t* bits, const uint8_t* vals, Spec** out) {
  RVT_CHECK(CheckPtr(bits));
  RVT_CHECK(CheckPtr(vals));
  RVT_CHECK(CheckPtr(out));
  Spec* spec = static_cast<Spec*>(Allocate(kBytes));
  if (!spec) return rvtStatusNullPtr;
  const RvtResult st = kBuild(bits, vals, spec);
  *out = spec;
  return st;
}

template <class State, int kBytes>
RvtResult StateInit(State* st) {
  RVT_CHECK(CheckPtr(st));
  ZeroFill(st, kBytes);
  return rvtStatusOk;
}

template <class State, int kBytes>
RvtResult StateInitAlloc(State** out) {
  RVT_CHECK(CheckPtr(out));
  State* st = static_cast<State*>(Allocate(kBytes));
  if (!st) return rvtStatusNullPtr;
  ZeroFill(st, kBytes);
  *out = st;
  return rvtStatusOk;
}

// The one release of all four objects.
inline RvtResult FreeObject(void* p) {
  RVT_CHECK(CheckPtr(p));
  Release(p);
  return rvtStatusOk;
}
template <class T>
RvtResult Free(T* p) {
  return FreeObject(p);
}

}  // namespace rvt::huffman_tables

#endif  // RVT_JPEG_HUFFMAN_TABLES_H_
