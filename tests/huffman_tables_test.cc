// Huffman specs and states: sizes, canonical codes of the common tables,
// the fullness and count limits, the lookup's one-entry overrun, and the
// allocate/free conventions.
#include <gtest/gtest.h>

#include <cstring>

#include "huffman_util.h"

namespace rvt {
namespace {

using test::HuffTable;

TEST(HuffmanTables, SizesAreConstantAndNullChecked) {
  int n = -1;
  ASSERT_EQ(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u(&n), rvtStatusOk);
  EXPECT_EQ(n, 1024);
  ASSERT_EQ(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u(&n), rvtStatusOk);
  EXPECT_EQ(n, 1644);
  ASSERT_EQ(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u(&n), rvtStatusOk);
  EXPECT_EQ(n, 1048);
  ASSERT_EQ(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u(&n), rvtStatusOk);
  EXPECT_EQ(n, 24);
  EXPECT_EQ(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u(nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u(nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u(nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u(nullptr), rvtStatusNullPtr);
}

// Codes of the common luminance tables, as any JPEG reader knows them.
TEST(HuffmanTables, EncoderSpecHoldsCanonicalCodes) {
  const test::EncSpec dc(test::LumaDc());
  ASSERT_TRUE(dc.ok);
  EXPECT_EQ(dc.spec.entry[0], 0x20000u);         // 00
  EXPECT_EQ(dc.spec.entry[1], 0x30002u);         // 010
  EXPECT_EQ(dc.spec.entry[5], 0x30006u);         // 110
  EXPECT_EQ(dc.spec.entry[6], 0x4000Eu);         // 1110
  EXPECT_EQ(dc.spec.entry[11], 0x901FEu);        // 111111110
  EXPECT_EQ(dc.spec.entry[12], 0u);              // not in the table
  const test::EncSpec ac(test::LumaAc());
  ASSERT_TRUE(ac.ok);
  EXPECT_EQ(ac.spec.entry[0x01], 0x20000u);      // 00
  EXPECT_EQ(ac.spec.entry[0x00], 0x4000Au);      // EOB 1010
  EXPECT_EQ(ac.spec.entry[0xF0], 0xB07F9u);      // ZRL 11111111001
  EXPECT_EQ(ac.spec.entry[0x82], 0xF7FC0u);      // the 15-bit code
  EXPECT_EQ(ac.spec.entry[0xFA], 0x10FFFEu);     // last 16-bit code
  EXPECT_EQ(ac.spec.entry[0x10], 0u);
  int coded = 0;
  for (uint32_t e : ac.spec.entry) coded += e != 0;
  EXPECT_EQ(coded, 162);
}

TEST(HuffmanTables, DecoderSpecLayout) {
  const test::DecSpec ac(test::LumaAc());
  ASSERT_TRUE(ac.ok);
  const DecodeHuffmanSpec& s = ac.spec;
  EXPECT_EQ(s.values[0], 0x01);
  EXPECT_EQ(s.values[161], 0xFA);
  EXPECT_EQ(s.values[162], 0);
  // 00 covers lookup 0x00..0x3F; EOB (1010) covers 0xA0..0xAF.
  EXPECT_EQ(s.lookup[0x00], 0x01u | (2u << 16));
  EXPECT_EQ(s.lookup[0x3F], 0x01u | (2u << 16));
  EXPECT_EQ(s.lookup[0xA7], 0x00u | (4u << 16));
  EXPECT_EQ(s.lookup[0xFF], 0u);  // longer codes go to the search
  EXPECT_EQ(s.maxCode[1], 0xFFFF);
  EXPECT_EQ(s.minCode[2], 0);
  EXPECT_EQ(s.maxCode[2], 1);
  EXPECT_EQ(s.valueIndex[3], 2);
  EXPECT_EQ(s.maxCode[13], 0xFFFF);  // no 13-bit codes
  EXPECT_EQ(s.minCode[16], 0xFF82);
  EXPECT_EQ(s.maxCode[16], 0xFFFE);
  EXPECT_EQ(s.valueIndex[16], 162 - 125);
  EXPECT_EQ(s.maxCode[17], 0xFFFF);
  EXPECT_EQ(s.minCode[0], 0);
  EXPECT_EQ(s.valueIndex[17], 0);
}

TEST(HuffmanTables, CountLimitAndFullness) {
  // 256 codes of 8 bits: the count passes, but the last code is all 1-bits.
  HuffTable t{{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}, std::vector<uint8_t>(256)};
  t.bits[7] = 255;
  for (int i = 0; i < 256; ++i) t.vals[i] = uint8_t(i);
  EXPECT_TRUE(test::EncSpec(t).ok);   // 255 of 8 bits + 1 of 9 bits
  EXPECT_TRUE(test::DecSpec(t).ok);
  t.bits[7] = 0;
  t.bits[8] = 1;
  t.bits[9] = 255;  // 256 codes, fine
  EXPECT_TRUE(test::EncSpec(t).ok);
  t.bits[15] = 1;   // 257: fails before any code is built
  EncodeHuffmanSpec es;
  std::memset(&es, 0x5A, sizeof es);
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals.data(), &es), rvtStatusHuffTable);
  for (uint32_t e : es.entry) ASSERT_EQ(e, 0u);
  DecodeHuffmanSpec ds;
  EXPECT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals.data(), &ds), rvtStatusHuffTable);

  // Two 1-bit codes: the second is all 1-bits.  The decoder accepts them.
  const HuffTable two{{2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {7, 9}};
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(two.bits, two.vals.data(), &es),
            rvtStatusHuffTable);
  ASSERT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(two.bits, two.vals.data(), &ds), rvtStatusOk);
  EXPECT_EQ(ds.lookup[0x00], 7u | (1u << 16));
  EXPECT_EQ(ds.lookup[0xFF], 9u | (1u << 16));
  // An overflowing length: three 2-bit codes after one 1-bit code.
  const HuffTable over{{1, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 3, 4}};
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(over.bits, over.vals.data(), &es),
            rvtStatusHuffTable);
}

TEST(HuffmanTables, EmptyAndRepeatedSymbols) {
  const HuffTable empty{{0}, {}};
  const uint8_t none = 0;
  EncodeHuffmanSpec es;
  std::memset(&es, 1, sizeof es);
  ASSERT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(empty.bits, &none, &es), rvtStatusOk);
  for (uint32_t e : es.entry) ASSERT_EQ(e, 0u);
  DecodeHuffmanSpec ds;
  ASSERT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(empty.bits, &none, &ds), rvtStatusOk);
  for (int len = 1; len <= 17; ++len) EXPECT_EQ(ds.maxCode[len], 0xFFFF);
  for (uint32_t e : ds.lookup) ASSERT_EQ(e, 0u);

  const HuffTable rep{{0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {5, 6, 5}};
  ASSERT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(rep.bits, rep.vals.data(), &es), rvtStatusOk);
  EXPECT_EQ(es.entry[5], 0x20002u);  // the later code, 10
  EXPECT_EQ(es.entry[6], 0x20001u);
}

// An over-full table whose 8-bit lookup reaches one entry past its end
// writes that entry over minCode[0..1] and still builds; one more fails.
TEST(HuffmanTables, LookupRunsOneEntryPastItsEnd) {
  HuffTable t{{2, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, {0x11, 0x22, 0x33}};
  DecodeHuffmanSpec ds;
  ASSERT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals.data(), &ds), rvtStatusOk);
  EXPECT_EQ(ds.minCode[0], 0x33);
  EXPECT_EQ(ds.minCode[1], 8);
  EXPECT_EQ(ds.lookup[255], 0x22u | (1u << 16));
  t.bits[7] = 2;
  t.vals.push_back(0x44);
  EXPECT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals.data(), &ds), rvtStatusHuffTable);
}

TEST(HuffmanTables, NullPointers) {
  const HuffTable t = test::LumaDc();
  EncodeHuffmanSpec es;
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(t.bits, nullptr, &es), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals.data(), nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(t.bits, t.vals.data(), nullptr),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanStateInit_JPEG_8u(nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanSpecFree_JPEG_8u(nullptr), rvtStatusNullPtr);
}

TEST(HuffmanTables, AllocatedObjectsMatchInPlaceOnesAndAreOwnedOnError) {
  const HuffTable t = test::LumaAc();
  EncodeHuffmanSpec* e = nullptr;
  DecodeHuffmanSpec* d = nullptr;
  ASSERT_EQ(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(t.bits, t.vals.data(), &e), rvtStatusOk);
  ASSERT_EQ(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(t.bits, t.vals.data(), &d), rvtStatusOk);
  const test::EncSpec e2(t);
  const test::DecSpec d2(t);
  EXPECT_EQ(std::memcmp(e, &e2.spec, 1024), 0);
  EXPECT_EQ(std::memcmp(d, &d2.spec, 1644), 0);
  EXPECT_EQ(rvtiEncodeHuffmanSpecFree_JPEG_8u(e), rvtStatusOk);
  EXPECT_EQ(rvtiDecodeHuffmanSpecFree_JPEG_8u(d), rvtStatusOk);

  // A table error still hands over the object (leak-checked under ASan).
  const HuffTable bad{{2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 2}};
  e = nullptr;
  ASSERT_EQ(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(bad.bits, bad.vals.data(), &e),
            rvtStatusHuffTable);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(rvtiEncodeHuffmanSpecFree_JPEG_8u(e), rvtStatusOk);
  HuffTable many = test::LumaAc();
  many.bits[15] = 238;  // 275 codes
  many.vals.resize(275);
  d = nullptr;
  ASSERT_EQ(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(many.bits, many.vals.data(), &d),
            rvtStatusHuffTable);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(rvtiDecodeHuffmanSpecFree_JPEG_8u(d), rvtStatusOk);

  EncodeHuffmanState* es = nullptr;
  DecodeHuffmanState* ds = nullptr;
  ASSERT_EQ(rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(&es), rvtStatusOk);
  ASSERT_EQ(rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(&ds), rvtStatusOk);
  const std::vector<uint8_t> zeros(1048, 0);
  EXPECT_EQ(std::memcmp(es, zeros.data(), 1048), 0);
  EXPECT_EQ(std::memcmp(ds, zeros.data(), 24), 0);
  EXPECT_EQ(rvtiEncodeHuffmanStateFree_JPEG_8u(es), rvtStatusOk);
  EXPECT_EQ(rvtiDecodeHuffmanStateFree_JPEG_8u(ds), rvtStatusOk);
}

TEST(HuffmanTables, StateInitZeroesEveryField) {
  EncodeHuffmanState es;
  DecodeHuffmanState ds;
  std::memset(&es, 0xA5, sizeof es);
  std::memset(&ds, 0xA5, sizeof ds);
  ASSERT_EQ(rvtiEncodeHuffmanStateInit_JPEG_8u(&es), rvtStatusOk);
  ASSERT_EQ(rvtiDecodeHuffmanStateInit_JPEG_8u(&ds), rvtStatusOk);
  const std::vector<uint8_t> zeros(1048, 0);
  EXPECT_EQ(std::memcmp(&es, zeros.data(), sizeof es), 0);
  EXPECT_EQ(std::memcmp(&ds, zeros.data(), sizeof ds), 0);
}

}  // namespace
}  // namespace rvt
