// Baseline block coding: exact bits of hand-built cases, stuffing, flushes,
// markers, the guard positions past 63, bits of hand-filled specs outside
// their fields, argument checks; long round trips of real photo
// coefficients and extremes with restart intervals; destinations cut at
// every byte and sources cut at every length, with the fast and careful
// paths giving the same bytes, states and statuses; and the registered
// differential checks of both block coders, over built, hand-filled and
// damaged specs and any states.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "checkasm.h"
#include "huffman_util.h"
#include "jpeg_oracle.h"

namespace rvt {
namespace {

using test::HuffTable;

const auto& kEnc = impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1;
const auto& kDec = impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1;
using EncFn = decltype(&rvtiEncodeHuffman8x8_JPEG_16s1u_C1);
using DecFn = decltype(&rvtiDecodeHuffman8x8_JPEG_1u16s_C1);
using Block = std::vector<int16_t>;

// Expected streams are written bit by bit here, independently of the
// library's writer.
struct Bits {
  std::string s;
  Bits& Put(uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i) s += ((v >> i) & 1) ? '1' : '0';
    return *this;
  }
  Bits& Code(const EncodeHuffmanSpec& t, int sym) {
    return Put(t.entry[sym] & 0xFFFF, int(t.entry[sym] >> 16));
  }
  Bits& Value(int v, int size) { return Put(uint32_t(v < 0 ? v - 1 : v), size); }
  // Whole bytes with stuffing; the remaining bits are padded with 1s when
  // `pad` (a flush), dropped otherwise.
  std::vector<uint8_t> Bytes(bool pad) const {
    std::string b = s;
    if (pad) b.append((8 - b.size() % 8) % 8, '1');
    std::vector<uint8_t> out;
    for (size_t i = 0; i + 8 <= b.size(); i += 8) {
      out.push_back(uint8_t(std::stoi(b.substr(i, 8), nullptr, 2)));
      if (out.back() == 0xFF) out.push_back(0);
    }
    return out;
  }
};

struct Coder {
  test::EncSpec edc, eac;
  test::DecSpec ddc, dac;
  Coder(const HuffTable& dc, const HuffTable& ac) : edc(dc), eac(ac), ddc(dc), dac(ac) {}
};

Block Zeros() { return Block(64, 0); }

// One encoder call into a fresh buffer of `len` bytes followed by guards.
struct EncodeResult {
  RvtResult status;
  int pos;
  int16_t last_dc;
  EncodeHuffmanState state;
  std::vector<uint8_t> buf;  // len bytes + 32 guard bytes
};
EncodeResult EncodeInto(EncFn fn, const Block& b, int len, const EncodeHuffmanState& st,
                        int16_t last_dc, const Coder& c, int flush = 0) {
  EncodeResult r{rvtStatusOk, 0, last_dc, st, std::vector<uint8_t>(size_t(len) + 32, 0xA5)};
  r.status = fn(b.data(), r.buf.data(), len, &r.pos, &r.last_dc, &c.edc.spec, &c.eac.spec,
                &r.state, flush);
  return r;
}

bool GuardsAfter(const std::vector<uint8_t>& buf, size_t from) {
  return std::all_of(buf.begin() + long(from), buf.end(), [](uint8_t x) { return x == 0xA5; });
}

// ------------------------------------------------------------ exact bits

TEST(HuffmanBaseline, KnownBlocksGiveExactBits) {
  const Coder c(test::LumaDc(), test::LumaAc());
  const Coder w(test::WideDc(), test::WideAc());
  struct Case {
    const char* name;
    Block block;
    int16_t last_dc;
    const Coder* coder;
    Bits bits;
  };
  std::vector<Case> cases;
  {  // Unchanged DC, all AC zero: DC category 0 then EOB.
    Block b = Zeros();
    b[0] = 37;
    Bits e;
    e.Code(c.edc.spec, 0).Code(c.eac.spec, 0x00);
    cases.push_back({"flat", b, 37, &c, e});
  }
  {  // Only zig-zag 63 non-zero: three ZRL, run 14, no EOB.
    Block b = Zeros();
    b[63] = -3;
    Bits e;
    e.Code(c.edc.spec, 0).Code(c.eac.spec, 0xF0).Code(c.eac.spec, 0xF0).Code(c.eac.spec, 0xF0);
    e.Code(c.eac.spec, 0xE2).Value(-3, 2);
    cases.push_back({"last only", b, 0, &c, e});
  }
  {  // DC diff -1000 and runs of exactly 15, 16 and 17 zeros.
    Block b = Zeros();
    b[0] = -1000;
    b[kNaturalOfZigzag[1]] = 5;
    b[kNaturalOfZigzag[17]] = 1;   // run 15
    b[kNaturalOfZigzag[34]] = -1;  // run 16: ZRL then run 0
    b[kNaturalOfZigzag[52]] = 2;   // run 17: ZRL then run 1
    Bits e;
    e.Code(c.edc.spec, 10).Value(-1000, 10);
    e.Code(c.eac.spec, 0x03).Value(5, 3);
    e.Code(c.eac.spec, 0xF1).Value(1, 1);
    e.Code(c.eac.spec, 0xF0).Code(c.eac.spec, 0x01).Value(-1, 1);
    e.Code(c.eac.spec, 0xF0).Code(c.eac.spec, 0x12).Value(2, 2);
    e.Code(c.eac.spec, 0x00);
    cases.push_back({"runs", b, 0, &c, e});
  }
  {  // Categories 15 with 16-bit codes above 0x8000.
    Block b = Zeros();
    b[0] = 16383;
    for (int k = 1; k < 64; ++k) b[kNaturalOfZigzag[k]] = int16_t(k % 2 ? -32767 : 32767);
    Bits e;
    e.Code(w.edc.spec, 15).Value(16383 + 16384, 15);
    for (int k = 1; k < 64; ++k) e.Code(w.eac.spec, 0x0F).Value(k % 2 ? -32767 : 32767, 15);
    cases.push_back({"extremes", b, -16384, &w, e});
  }
  for (const auto& cs : cases) {
    const std::vector<uint8_t> want = cs.bits.Bytes(false);
    for (const auto& t : test::AllTargets(kEnc)) {
      const std::string label = std::string(cs.name) + " " + t.name;
      auto r = EncodeInto(t.fn, cs.block, 4096, test::FreshEncodeState(), cs.last_dc, *cs.coder);
      ASSERT_EQ(r.status, rvtStatusOk) << label;
      ASSERT_EQ(r.pos, int(want.size())) << label;
      ASSERT_TRUE(std::equal(want.begin(), want.end(), r.buf.begin())) << label;
      ASSERT_TRUE(GuardsAfter(r.buf, want.size())) << label;
      EXPECT_EQ(r.last_dc, cs.block[0]) << label;
      // The pending bits sit under bit 24.
      const int pending = int(cs.bits.s.size() % 8);
      EXPECT_EQ(r.state.count, pending) << label;
      Bits tail;
      tail.s = cs.bits.s.substr(cs.bits.s.size() - size_t(pending));
      EXPECT_EQ(r.state.acc, pending ? uint64_t(std::stoi(tail.s, nullptr, 2)) << (24 - pending) : 0)
          << label;
      // A flush completes the byte with 1-bits and clears the state.
      int pos = r.pos;
      ASSERT_EQ(t.fn(nullptr, r.buf.data(), 4096, &pos, nullptr, nullptr, nullptr, &r.state, 1),
                rvtStatusOk);
      const std::vector<uint8_t> flushed = cs.bits.Bytes(true);
      ASSERT_EQ(pos, int(flushed.size())) << label;
      ASSERT_TRUE(std::equal(flushed.begin(), flushed.end(), r.buf.begin())) << label;
      EXPECT_TRUE(test::SameState(r.state, test::FreshEncodeState())) << label;
    }
  }
}

TEST(HuffmanBaseline, SymbolsWithoutCodes) {
  const Coder c(test::LumaDc(), test::LumaAc());
  for (const auto& t : test::AllTargets(kEnc)) {
    // DC difference of category 16 (65535): no such DC symbol; the
    // predictor still moves on.
    Block b = Zeros();
    b[0] = 32767;
    auto r = EncodeInto(t.fn, b, 64, test::FreshEncodeState(), -32768, c);
    EXPECT_EQ(r.status, rvtStatusHuffTable) << t.name;
    EXPECT_EQ(r.last_dc, 32767);
    EXPECT_EQ(r.pos, 0);
    // -32768 after a run of 15 would be symbol 256; after run 0 it is 0x10.
    for (int k : {16, 1}) {
      b = Zeros();
      b[kNaturalOfZigzag[k]] = -32768;
      r = EncodeInto(t.fn, b, 64, test::FreshEncodeState(), 0, c);
      EXPECT_EQ(r.status, rvtStatusHuffTable) << t.name << " k " << k;
    }
    // A failure after whole bytes were written keeps them, and the state
    // holds the pending bits of the last symbol that fitted.
    b = Zeros();
    b[0] = 500;
    Bits e;
    e.Code(c.edc.spec, 9).Value(500, 9);
    for (int k = 1; k <= 30; ++k) {
      b[kNaturalOfZigzag[k]] = int16_t(k % 2 ? 3 : -2);
      e.Code(c.eac.spec, 0x02).Value(k % 2 ? 3 : -2, 2);
    }
    b[kNaturalOfZigzag[31]] = -32768;  // symbol 0x10: not in the table
    r = EncodeInto(t.fn, b, 4096, test::FreshEncodeState(), 0, c);
    EXPECT_EQ(r.status, rvtStatusHuffTable) << t.name;
    const auto want = e.Bytes(false);
    EXPECT_EQ(r.pos, int(want.size())) << t.name;
    EXPECT_TRUE(std::equal(want.begin(), want.end(), r.buf.begin())) << t.name;
    EXPECT_EQ(r.state.count, int(e.s.size() % 8)) << t.name;
  }
}

TEST(HuffmanBaseline, StuffingAndFullDestination) {
  const Coder c(test::LumaDc(), test::LumaAc());
  const auto& one = impl_rvtiEncodeHuffmanOne_JPEG_16s1u_C1;
  // 1024: DC code 111111110 and 10000000000: bytes FF 00 40, 4 bits left.
  const int16_t v = 1024;
  const std::vector<uint8_t> want = {0xFF, 0x00, 0x40};
  for (int len = 1; len <= 4; ++len) {
    std::vector<uint8_t> buf(size_t(len) + 16, 0xA5);
    EncodeHuffmanState st = test::FreshEncodeState();
    int pos = 0;
    const RvtResult r =
        test::Reference(one)(&v, buf.data(), len, &pos, &c.edc.spec, &st, 0);
    if (len < 3) {
      // The state holds what the last write that fitted left: nothing after
      // the code failed, its last bit after the extra bits failed.
      EXPECT_EQ(r, rvtStatusOutOfBuffer) << len;
      EXPECT_EQ(pos, len);
      EXPECT_EQ(st.count, len == 1 ? 0 : 1);
      EXPECT_EQ(st.acc, 0u);
    } else {
      EXPECT_EQ(r, rvtStatusOk);
      EXPECT_EQ(pos, 3);
      EXPECT_EQ(st.count, 4);
    }
    EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + std::min(len, 3), want.begin())) << len;
    EXPECT_TRUE(GuardsAfter(buf, size_t(std::min(len, 3)))) << len;
  }
  // A flush that completes an 0xFF: with no room for the 0x00 the state is
  // still reset.
  EncodeHuffmanState st = test::FreshEncodeState();
  st.acc = 0x1u << 23;
  st.count = 1;
  std::vector<uint8_t> buf(8, 0xA5);
  int pos = 7;
  EXPECT_EQ(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, buf.data(), 8, &pos, nullptr, &st, 1),
            rvtStatusOutOfBuffer);
  EXPECT_EQ(pos, 8);
  EXPECT_EQ(buf[7], 0xFF);
  EXPECT_TRUE(test::SameState(st, test::FreshEncodeState()));
  // Nothing pending: a flush writes nothing.
  pos = 3;
  EXPECT_EQ(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, buf.data(), 8, &pos, nullptr, &st, 1),
            rvtStatusOk);
  EXPECT_EQ(pos, 3);
  // Three pending bits 101: one byte 10111111.
  st.acc = 0x5u << 21;
  st.count = 3;
  EXPECT_EQ(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, buf.data(), 8, &pos, nullptr, nullptr,
                                               nullptr, &st, 1),
            rvtStatusOk);
  EXPECT_EQ(pos, 4);
  EXPECT_EQ(buf[3], 0xBF);
}

TEST(HuffmanBaseline, OneValueCoding) {
  const Coder c(test::WideDc(), test::WideAc());
  HuffTable t17 = test::WideDc();  // add category 16
  t17.bits[10] = 1;
  t17.vals.push_back(16);
  const Coder c17(t17, test::WideAc());
  std::vector<int16_t> values = {0, 1, -1, 2, -2, 255, -256, 1023, 16384, -16384, 32767, -32767,
                                 -32768};
  std::vector<uint8_t> buf(1024, 0);
  EncodeHuffmanState es = test::FreshEncodeState();
  int pos = 0;
  Bits e;
  for (int16_t v : values) {
    ASSERT_EQ(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(&v, buf.data(), 1024, &pos, &c17.edc.spec, &es, 0),
              rvtStatusOk);
    const int s = test::CategoryOf(v);
    e.Code(c17.edc.spec, s);
    if (s > 0 && s < 16) e.Value(v, s);
  }
  ASSERT_EQ(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, buf.data(), 1024, &pos, nullptr, &es, 1),
            rvtStatusOk);
  const auto want = e.Bytes(true);
  ASSERT_EQ(pos, int(want.size()));
  ASSERT_TRUE(std::equal(want.begin(), want.end(), buf.begin()));
  // Without category 16 in the table, -32768 has no code.
  const int16_t low = -32768;
  EXPECT_EQ(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(&low, buf.data(), 1024, &pos, &c.edc.spec, &es, 0),
            rvtStatusHuffTable);

  DecodeHuffmanState ds = test::FreshDecodeState();
  int rpos = 0, marker = 0;
  for (int16_t v : values) {
    int16_t got = 123;
    ASSERT_EQ(rvtiDecodeHuffmanOne_JPEG_1u16s_C1(buf.data(), int(want.size()), &rpos, &got,
                                                 &marker, &c17.ddc.spec, &ds),
              rvtStatusOk);
    EXPECT_EQ(got, v);
  }
  EXPECT_EQ(marker, 0);
}

// ------------------------------------------------------------ decoder rules

// A stream of symbols written straight from the wide tables.
std::vector<uint8_t> Stream(const Bits& b, std::vector<uint8_t> tail = {}) {
  auto out = b.Bytes(true);
  out.insert(out.end(), tail.begin(), tail.end());
  return out;
}

struct DecodeResult {
  RvtResult status;
  int pos, marker;
  int16_t last_dc;
  Block block;
  DecodeHuffmanState state;
};
DecodeResult DecodeFrom(DecFn fn, const std::vector<uint8_t>& src, int len, int pos,
                        const Coder& c, DecodeHuffmanState st, int marker = 0,
                        int16_t last_dc = 0) {
  DecodeResult r{rvtStatusOk, 0, marker, last_dc, Block(64, 0x55), st};
  // An exact-size copy of src[pos, len): any read outside it is caught by
  // the sanitizer build.
  std::unique_ptr<uint8_t[]> exact(new uint8_t[size_t(len - pos)]);
  std::copy(src.begin() + pos, src.begin() + len, exact.get());
  r.status = fn(exact.get(), len - pos, &r.pos, r.block.data(), &r.last_dc, &r.marker,
                &c.ddc.spec, &c.dac.spec, &r.state);
  r.pos += pos;
  return r;
}

// Specs are plain memory a caller may fill by hand: bits of an entry above
// its code length, or above its length field, are not part of the code.
// All-zero block, DC 00, EOB 1010 given as 0x1A: 001010 and the flush's 11.
TEST(HuffmanBaseline, BitsAboveTheCodeLengthAreIgnored) {
  Coder c(test::LumaDc(), test::LumaAc());
  c.eac.spec.entry[0x00] = 0x0004001Au;
  c.edc.spec.entry[0x00] |= 0xA5000000u;
  for (const auto& t : test::AllTargets(kEnc)) {
    auto r = EncodeInto(t.fn, Zeros(), 16, test::FreshEncodeState(), 0, c);
    ASSERT_EQ(r.status, rvtStatusOk) << t.name;
    ASSERT_EQ(t.fn(nullptr, r.buf.data(), 16, &r.pos, nullptr, nullptr, nullptr, &r.state, 1),
              rvtStatusOk);
    EXPECT_EQ(r.pos, 1) << t.name;
    EXPECT_EQ(r.buf[0], 0x2B) << t.name;
  }
  // The decoder's lookup entries likewise: only the symbol (bits 0..7) and
  // the length (bits 16..23) count.
  Coder d(test::LumaDc(), test::LumaAc());
  for (uint32_t& e : d.dac.spec.lookup) e |= 0xA5005A00u;
  const auto src = Stream(Bits().Code(c.edc.spec, 2).Value(-3, 2).Code(d.eac.spec, 0x01).Value(1, 1)
                              .Code(d.eac.spec, 0x00),
                          std::vector<uint8_t>(300, 0));
  for (const auto& t : test::AllTargets(kDec)) {
    auto r = DecodeFrom(t.fn, src, int(src.size()), 0, d, test::FreshDecodeState());
    EXPECT_EQ(r.status, rvtStatusOk) << t.name;
    EXPECT_EQ(r.block[0], -3) << t.name;
    EXPECT_EQ(r.block[1], 1) << t.name;
  }
}

TEST(HuffmanBaseline, RunsPastTheLastPosition) {
  const Coder c(test::WideDc(), test::WideAc());
  const EncodeHuffmanSpec& ac = c.eac.spec;
  struct Case {
    const char* name;
    Bits bits;
    RvtResult status;
    uint32_t done;  // 0xDEAD: untouched
    int at63;
  };
  auto zrl3 = [&] { return Bits().Code(c.edc.spec, 0).Code(ac, 0xF0).Code(ac, 0xF0).Code(ac, 0xF0); };
  std::vector<Case> cases;
  cases.push_back({"run to 63", zrl3().Code(ac, 0xE1).Value(1, 1), rvtStatusOk, 64, 1});
  cases.push_back({"run to 64", zrl3().Code(ac, 0xF1).Value(-1, 1), rvtStatusOk, 65, -1});
  cases.push_back({"run to 71", zrl3().Code(ac, 0xD1).Value(1, 1).Code(ac, 0x81).Value(1, 1),
                   rvtStatusOk, 72, 1});
  cases.push_back({"run to 72", zrl3().Code(ac, 0xD1).Value(1, 1).Code(ac, 0x91).Value(1, 1),
                   rvtStatusErr, 0xDEAD, 0});
  cases.push_back({"ZRL past the end", zrl3().Code(ac, 0xD1).Value(1, 1).Code(ac, 0xF0),
                   rvtStatusOk, 79, 0});
  cases.push_back({"EOB", Bits().Code(c.edc.spec, 0).Code(ac, 0x01).Value(1, 1).Code(ac, 0),
                   rvtStatusOk, 2, 0});
  for (const auto& cs : cases) {
    const auto src = Stream(cs.bits, {0xFF, 0xD9});
    for (const auto& t : test::AllTargets(kDec)) {
      DecodeHuffmanState st = test::FreshDecodeState();
      st.coefsDone = 0xDEAD;
      auto r = DecodeFrom(t.fn, src, int(src.size()), 0, c, st);
      EXPECT_EQ(r.status, cs.status) << cs.name << " " << t.name;
      EXPECT_EQ(r.state.coefsDone, cs.done) << cs.name << " " << t.name;
      if (cs.status == rvtStatusOk) EXPECT_EQ(r.block[63], cs.at63) << cs.name << " " << t.name;
    }
  }
}

TEST(HuffmanBaseline, MarkersFillBytesAndSourceEnd) {
  const Coder c(test::LumaDc(), test::LumaAc());
  // One short block: DC +3, EOB; then 1-bit padding.
  Bits b;
  b.Code(c.edc.spec, 2).Value(3, 2).Code(c.eac.spec, 0);
  for (int m = 0xD0; m <= 0xD9; ++m) {
    const auto src = Stream(b, {0xFF, uint8_t(m), 0x12, 0x34});
    for (const auto& t : test::AllTargets(kDec)) {
      auto r = DecodeFrom(t.fn, src, int(src.size()), 0, c, test::FreshDecodeState());
      ASSERT_EQ(r.status, rvtStatusOk) << t.name;
      EXPECT_EQ(r.block[0], 3);
      EXPECT_EQ(r.marker, m) << t.name;
      EXPECT_EQ(r.pos, int(src.size()) - 2) << t.name;  // just past the marker
      // More bits after the marker: none to be had.
      auto r2 = DecodeFrom(t.fn, src, int(src.size()), r.pos, c, r.state, r.marker, r.last_dc);
      EXPECT_EQ(r2.status, rvtStatusHuffData) << t.name;
      EXPECT_EQ(r2.pos, r.pos) << t.name;
    }
  }
  // Fill bytes before the marker are passed over; FF 00 is data.
  Bits ff;
  ff.Code(c.edc.spec, 11).Value(2047, 11).Code(c.eac.spec, 0);  // FF 00 7F FA
  auto src = Stream(ff, {0xFF, 0xFF, 0xFF, 0xD9});
  ASSERT_EQ(src.size(), 8u);
  ASSERT_EQ(src[0], 0xFF);
  ASSERT_EQ(src[1], 0x00);
  for (const auto& t : test::AllTargets(kDec)) {
    auto r = DecodeFrom(t.fn, src, int(src.size()), 0, c, test::FreshDecodeState());
    EXPECT_EQ(r.status, rvtStatusOk) << t.name;
    EXPECT_EQ(r.block[0], 2047) << t.name;
    EXPECT_EQ(r.marker, 0xD9) << t.name;
    EXPECT_EQ(r.pos, int(src.size())) << t.name;
    // The source ending right after an 0xFF: that byte is consumed, and the
    // call fails even though the block's bits were all there.
    auto cut = DecodeFrom(t.fn, src, int(src.size()) - 3, 0, c, test::FreshDecodeState());
    EXPECT_EQ(cut.status, rvtStatusOutOfBuffer) << t.name;
    EXPECT_EQ(cut.pos, int(src.size()) - 3) << t.name;
  }
  // A zero-length source is accepted; bits already held are decoded.
  for (const auto& t : test::AllTargets(kDec)) {
    auto r = DecodeFrom(t.fn, src, 0, 0, c, test::FreshDecodeState());
    EXPECT_EQ(r.status, rvtStatusOutOfBuffer) << t.name;
    DecodeHuffmanState held = test::FreshDecodeState();
    held.acc = 0x0A;  // 00 (DC 0) 1010 (EOB)
    held.count = 6;
    r = DecodeFrom(t.fn, src, 0, 0, c, held);
    EXPECT_EQ(r.status, rvtStatusOk) << t.name;
    EXPECT_EQ(r.state.count, 0) << t.name;
    r = DecodeFrom(t.fn, src, 0, 0, c, held, 0xD0);  // same with a marker pending
    EXPECT_EQ(r.status, rvtStatusOk) << t.name;
  }
  int16_t v;
  int pos = 0, marker = 0;
  DecodeHuffmanState ds = test::FreshDecodeState();
  EXPECT_EQ(rvtiDecodeHuffmanOne_JPEG_1u16s_C1(src.data(), 0, &pos, &v, &marker, &c.ddc.spec, &ds),
            rvtStatusSize);
}

// The longest codes of the common luminance AC table lie above 0x8000 and
// must decode (1111111111111110 is run 15, size 10); all 16 1-bits match
// nothing.
TEST(HuffmanBaseline, SixteenBitCodes) {
  const Coder c(test::LumaDc(), test::LumaAc());
  Bits last;
  last.Code(c.edc.spec, 0).Code(c.eac.spec, 0xFA).Value(-1000, 10).Code(c.eac.spec, 0);
  ASSERT_EQ(c.eac.spec.entry[0xFA], 0x10FFFEu);
  const auto ok = Stream(last, {0xFF, 0xD9});
  for (const auto& t : test::AllTargets(kDec)) {
    auto r = DecodeFrom(t.fn, ok, int(ok.size()), 0, c, test::FreshDecodeState());
    EXPECT_EQ(r.status, rvtStatusOk) << t.name;
    EXPECT_EQ(r.block[kNaturalOfZigzag[16]], -1000) << t.name;
  }
  Bits b;
  b.Code(c.edc.spec, 0).Put(0xFFFF, 16).Put(0xFF, 8);
  const auto src = Stream(b, std::vector<uint8_t>(8, 0));
  for (const auto& t : test::AllTargets(kDec)) {
    auto r = DecodeFrom(t.fn, src, int(src.size()), 0, c, test::FreshDecodeState());
    EXPECT_EQ(r.status, rvtStatusHuffData) << t.name;
    EXPECT_EQ(r.state.coefsDone, 1u) << t.name;
  }
}

// The rules that are easy to get wrong: a flush looks at nothing but the
// destination, position and state; the decoder takes a length of 0 but not
// a negative one; positions must not be negative; nothing is written.
TEST(HuffmanBaseline, ArgumentChecks) {
  const Coder c(test::LumaDc(), test::LumaAc());
  Block b(64, 9);
  int16_t dc = 0;
  uint8_t buf[64] = {};
  int pos = 0, marker = 0, nbits = 0, bitpos = 0;
  uint32_t pre = 0;
  EncodeHuffmanState es = test::FreshEncodeState();
  DecodeHuffmanState ds = test::FreshDecodeState();
  const auto* e = &c.edc.spec;
  const auto* d = &c.ddc.spec;
  for (const auto& t : test::AllTargets(kEnc)) {
    EXPECT_EQ(t.fn(b.data(), nullptr, 0, nullptr, &dc, e, e, &es, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(b.data(), buf, 0, nullptr, &dc, e, e, &es, 0), rvtStatusSize);
    EXPECT_EQ(t.fn(nullptr, buf, 64, &pos, nullptr, nullptr, nullptr, &es, 1), rvtStatusOk);
    EXPECT_EQ(t.fn(b.data(), buf, 64, &pos, &dc, e, nullptr, &es, 0), rvtStatusNullPtr);
    pos = -1;
    EXPECT_EQ(t.fn(b.data(), buf, 64, &pos, &dc, e, e, &es, 0), rvtStatusBadArg);
    pos = 0;
  }
  for (const auto& t : test::AllTargets(kDec)) {
    EXPECT_EQ(t.fn(buf, -1, nullptr, b.data(), &dc, &marker, d, d, &ds), rvtStatusBadArg);
    EXPECT_EQ(t.fn(buf, 0, &pos, b.data(), &dc, &marker, d, nullptr, &ds), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(buf, 0, &pos, b.data(), &dc, &marker, d, d, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(b, Block(64, 9));  // nothing written on a failed check
  }
  bitpos = -8;
  EXPECT_EQ(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(b.data(), buf, &bitpos, &dc, e, e),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, &bitpos, nullptr, &dc, &marker, &pre,
                                                      &nbits, d, d),
            rvtStatusBadArg);
  bitpos = 0;
  nbits = -1;
  EXPECT_EQ(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf, &bitpos, b.data(), &dc, &marker, &pre,
                                                      &nbits, nullptr, d),
            rvtStatusBadArg);
  EXPECT_EQ(b, Block(64, 9));
}

// ------------------------------------------------------------ long runs

// Blocks of the test photos (one DC chain through all of them), from
// libjpeg-turbo, and blocks at the extremes of what the coders carry.
const std::vector<int16_t>& PhotoBlocks() {
  static const std::vector<int16_t> blocks = [] {
    std::vector<int16_t> all;
    for (const char* name : {"hubble_deep_field.jpg", "retina.jpg", "rocket.jpg"}) {
      const auto coefs = test::ReadCoefficients(test::ReadFile(test::TestFile(name)));
      for (const auto& p : coefs.planes) all.insert(all.end(), p.blocks.begin(), p.blocks.end());
    }
    return all;
  }();
  return blocks;
}

std::vector<int16_t> ExtremeBlocks(int n, uint64_t seed) {
  test::Rng rng(seed);
  std::vector<int16_t> all;
  for (int i = 0; i < n; ++i) {
    Block b = Zeros();
    const int kind = int(rng.Uniform(0, 5));
    b[0] = int16_t(rng.Uniform(-16384, 16383));  // DC differences stay within category 15
    for (int k = 1; k < 64; ++k) {
      int v = 0;
      switch (kind) {
        case 0: v = int(rng.Uniform(-32767, 32767)); break;           // dense, any size
        case 1: v = rng.Uniform(0, 20) == 0 ? int(rng.Uniform(-32767, 32767)) : 0; break;
        case 2: v = k == 63 ? 1 : 0; break;                           // last only
        case 3: v = (k % 17 == 0) ? -1 : 0; break;                    // runs of 16
        case 4: v = int(rng.Uniform(-3, 3)); break;
        default: v = (k < 3) ? 32767 : 0; break;
      }
      b[kNaturalOfZigzag[k]] = int16_t(v);
    }
    all.insert(all.end(), b.begin(), b.end());
  }
  return all;
}

struct Encoded {
  std::vector<uint8_t> bytes;
  std::vector<int> block_start;  // byte position before each block
  std::vector<EncodeHuffmanState> state_before;
  std::vector<int16_t> dc_before;
  int end = 0;  // position before the last flush
};

// Encodes the blocks with a flush and RSTn after every `interval` blocks (0:
// one interval), then a flush and EOI.
Encoded EncodeAll(EncFn fn, const std::vector<int16_t>& blocks, const Coder& c, int interval,
                  bool keep_states) {
  const int n = int(blocks.size() / 64);
  Encoded out;
  size_t room = 64;  // enough for any block with this many non-zero values
  for (int i = 0; i < n; ++i) {
    const auto* b = &blocks[size_t(i) * 64];
    room += 32 + 8 * size_t(std::count_if(b, b + 64, [](int16_t v) { return v != 0; }));
  }
  out.bytes.resize(room);
  EncodeHuffmanState st = test::FreshEncodeState();
  int pos = 0;
  int16_t dc = 0;
  const int len = int(out.bytes.size());
  for (int i = 0; i < n; ++i) {
    if (interval && i > 0 && i % interval == 0) {
      EXPECT_EQ(fn(nullptr, out.bytes.data(), len, &pos, nullptr, nullptr, nullptr, &st, 1),
                rvtStatusOk);
      out.bytes[size_t(pos)] = 0xFF;
      out.bytes[size_t(pos) + 1] = uint8_t(0xD0 + (i / interval - 1) % 8);
      pos += 2;
      dc = 0;
    }
    out.block_start.push_back(pos);
    if (keep_states) {
      out.state_before.push_back(st);
      out.dc_before.push_back(dc);
    }
    const RvtResult r = fn(&blocks[size_t(i) * 64], out.bytes.data(), len, &pos, &dc,
                           &c.edc.spec, &c.eac.spec, &st, 0);
    if (r != rvtStatusOk) {
      ADD_FAILURE() << "block " << i << " status " << r;
      break;
    }
  }
  out.end = pos;
  EXPECT_EQ(fn(nullptr, out.bytes.data(), len, &pos, nullptr, nullptr, nullptr, &st, 1),
            rvtStatusOk);
  out.bytes[size_t(pos)] = 0xFF;
  out.bytes[size_t(pos) + 1] = 0xD9;
  out.bytes.resize(size_t(pos) + 2);
  return out;
}

// Decodes n blocks as a codec does: at each restart boundary it finds the
// marker (the reader may already have met it), checks its number and
// resets the state and the predictor.
::testing::AssertionResult DecodeAll(DecFn fn, const std::vector<uint8_t>& bytes,
                                     const std::vector<int16_t>& want, const Coder& c,
                                     int interval) {
  const int n = int(want.size() / 64);
  DecodeHuffmanState st = test::FreshDecodeState();
  int pos = 0, marker = 0;
  int16_t dc = 0;
  Block b(64);
  for (int i = 0; i < n; ++i) {
    if (interval && i > 0 && i % interval == 0) {
      while (marker == 0 && pos + 1 < int(bytes.size())) {
        if (bytes[size_t(pos)] == 0xFF && bytes[size_t(pos) + 1] != 0 && bytes[size_t(pos) + 1] != 0xFF) {
          marker = bytes[size_t(pos) + 1];
          pos += 2;
        } else {
          ++pos;
        }
      }
      if (marker != 0xD0 + (i / interval - 1) % 8) {
        return ::testing::AssertionFailure() << "block " << i << ": marker " << marker;
      }
      marker = 0;
      st = test::FreshDecodeState();
      dc = 0;
    }
    const RvtResult r = fn(bytes.data(), int(bytes.size()), &pos, b.data(), &dc, &marker,
                           &c.ddc.spec, &c.dac.spec, &st);
    if (r != rvtStatusOk) return ::testing::AssertionFailure() << "block " << i << ": status " << r;
    if (!std::equal(b.begin(), b.end(), want.begin() + long(i) * 64)) {
      return ::testing::AssertionFailure() << "block " << i << " differs";
    }
  }
  return ::testing::AssertionSuccess();
}

// Real photo blocks with the common tables, and extremes with tables that
// code every category up to 15: every decoder path reads the stream back,
// with and without restart intervals (the encoder's paths are held to the
// reference by the registered check).
TEST(HuffmanBaseline, LongRoundTripsOnEveryPath) {
  const auto& photos = PhotoBlocks();
  ASSERT_GT(photos.size(), 64u * 50000);
  const Coder common(test::LumaDc(), test::LumaAc());
  const Coder wide(test::WideDc(), test::WideAc());
  const std::vector<int16_t> extremes = ExtremeBlocks(3000, 11);
  const struct {
    const std::vector<int16_t>& blocks;
    const Coder& coder;
    std::vector<int> intervals;
  } sets[] = {{photos, common, {0, 7, 256}}, {extremes, wide, {0, 1, 5}}};
  for (const auto& set : sets) {
    for (int interval : set.intervals) {
      const Encoded ref = EncodeAll(test::Reference(kEnc), set.blocks, set.coder, interval, false);
      for (const auto& t : test::AllTargets(kDec)) {
        ASSERT_TRUE(DecodeAll(t.fn, ref.bytes, set.blocks, set.coder, interval))
            << t.name << " interval " << interval;
      }
    }
  }
}

// Every destination length that stops a block: the bytes that fit equal the
// full output's, nothing lands at or after the length, and every path
// agrees on position, state and status.
TEST(HuffmanBaseline, DestinationCutAtEveryByte) {
  std::vector<int16_t> blocks(PhotoBlocks().begin(), PhotoBlocks().begin() + 64 * 400);
  const auto extremes = ExtremeBlocks(60, 5);
  blocks.insert(blocks.end(), extremes.begin(), extremes.end());
  const Coder c(test::WideDc(), test::WideAc());
  const Encoded full = EncodeAll(test::Reference(kEnc), blocks, c, 0, true);
  const int n = int(blocks.size() / 64);
  for (int i = 0; i < n; ++i) {
    const Block b(blocks.begin() + long(i) * 64, blocks.begin() + long(i + 1) * 64);
    const int start = full.block_start[size_t(i)];
    const int end = i + 1 < n ? full.block_start[size_t(i) + 1] : full.end;
    const int need = end - start;
    for (int len = 1; len <= need + 1; ++len) {
      const auto ref = EncodeInto(test::Reference(kEnc), b, len, full.state_before[size_t(i)],
                                  full.dc_before[size_t(i)], c);
      ASSERT_EQ(ref.status, len >= need ? rvtStatusOk : rvtStatusOutOfBuffer) << i << " " << len;
      ASSERT_LE(ref.pos, len);
      ASSERT_TRUE(std::equal(ref.buf.begin(), ref.buf.begin() + ref.pos,
                             full.bytes.begin() + start))
          << "block " << i << " len " << len;
      ASSERT_TRUE(GuardsAfter(ref.buf, size_t(ref.pos))) << "block " << i << " len " << len;
      for (const auto& t : test::SimdTargets(kEnc)) {
        const auto got = EncodeInto(t.fn, b, len, full.state_before[size_t(i)],
                                    full.dc_before[size_t(i)], c);
        ASSERT_EQ(got.status, ref.status) << t.name << " block " << i << " len " << len;
        ASSERT_EQ(got.pos, ref.pos) << t.name << " block " << i << " len " << len;
        ASSERT_EQ(got.buf, ref.buf) << t.name << " block " << i << " len " << len;
        ASSERT_TRUE(test::SameState(got.state, ref.state)) << t.name << " " << i << " " << len;
        ASSERT_EQ(got.last_dc, ref.last_dc);
      }
    }
  }
}

// Every source length from a block's start: -62 until the block's bits are
// there, then the block; the careful and fast paths agree at every length,
// and a retry from the saved state with the whole source succeeds.
TEST(HuffmanBaseline, SourceCutAtEveryLength) {
  std::vector<int16_t> blocks(PhotoBlocks().begin() + 64 * 1000, PhotoBlocks().begin() + 64 * 1300);
  const auto extremes = ExtremeBlocks(40, 9);
  blocks.insert(blocks.end(), extremes.begin(), extremes.end());
  const Coder c(test::WideDc(), test::WideAc());
  const Encoded enc = EncodeAll(test::Reference(kEnc), blocks, c, 0, false);
  const int total = int(enc.bytes.size());
  DecodeHuffmanState st = test::FreshDecodeState();
  int pos = 0;
  int16_t dc = 0;
  const int n = int(blocks.size() / 64);
  for (int i = 0; i < n; ++i) {
    const Block want(blocks.begin() + long(i) * 64, blocks.begin() + long(i + 1) * 64);
    bool decoded = false;
    for (int len = pos; len <= std::min(total, pos + 600) && !decoded; ++len) {
      const auto ref = DecodeFrom(test::Reference(kDec), enc.bytes, len, pos, c, st, 0, dc);
      for (const auto& t : test::SimdTargets(kDec)) {
        const auto got = DecodeFrom(t.fn, enc.bytes, len, pos, c, st, 0, dc);
        ASSERT_EQ(got.status, ref.status) << t.name << " block " << i << " len " << len;
        ASSERT_EQ(got.pos, ref.pos) << t.name << " block " << i << " len " << len;
        ASSERT_EQ(got.block, ref.block) << t.name << " block " << i << " len " << len;
        ASSERT_TRUE(test::SameState(got.state, ref.state)) << t.name << " " << i << " " << len;
      }
      if (ref.status == rvtStatusOutOfBuffer) {
        ASSERT_EQ(ref.pos, len);
        const auto retry = DecodeFrom(test::Reference(kDec), enc.bytes, total, pos, c, st, 0, dc);
        ASSERT_EQ(retry.status, rvtStatusOk);
        ASSERT_EQ(retry.block, want);
        continue;
      }
      ASSERT_EQ(ref.status, rvtStatusOk) << "block " << i << " len " << len;
      ASSERT_EQ(ref.block, want) << "block " << i;
      pos = ref.pos;
      st = ref.state;
      dc = ref.last_dc;
      decoded = true;
    }
    ASSERT_TRUE(decoded) << "block " << i;
  }
}

// The stateless pair: blocks written at arbitrary bit positions read back,
// and the stream equals the state-based encoder's.
TEST(HuffmanBaseline, DirectPairMatchesStatefulCoders) {
  std::vector<int16_t> blocks(PhotoBlocks().begin(), PhotoBlocks().begin() + 64 * 2000);
  const auto extremes = ExtremeBlocks(200, 3);
  blocks.insert(blocks.end(), extremes.begin(), extremes.end());
  const Coder c(test::WideDc(), test::WideAc());
  const int n = int(blocks.size() / 64);
  const Encoded ref = EncodeAll(test::Reference(kEnc), blocks, c, 0, false);
  std::vector<uint8_t> buf(size_t(n) * 600 + 600, 0);
  int bitpos = 0;
  int16_t dc = 0;
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(&blocks[size_t(i) * 64], buf.data(),
                                                        &bitpos, &dc, &c.edc.spec, &c.eac.spec),
              rvtStatusOk);
  }
  // Pad as a flush does, then compare with the stateful stream.
  const int pad = (8 - bitpos % 8) % 8;
  if (pad) buf[size_t(bitpos / 8)] |= uint8_t((1 << pad) - 1);
  size_t end = size_t((bitpos + 7) / 8);
  if (pad && buf[end - 1] == 0xFF) buf[end++] = 0;
  ASSERT_EQ(end, ref.bytes.size() - 2);
  ASSERT_TRUE(std::equal(buf.begin(), buf.begin() + long(end), ref.bytes.begin()));
  buf[end] = 0xFF;
  buf[end + 1] = 0xD9;

  int rbit = 0, marker = 0, nvalid = 0;
  uint32_t pre = 0;
  dc = 0;
  Block b(64);
  for (int i = 0; i < n; ++i) {
    ASSERT_EQ(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(buf.data(), &rbit, b.data(), &dc, &marker,
                                                        &pre, &nvalid, &c.ddc.spec, &c.dac.spec),
              rvtStatusOk)
        << i;
    ASSERT_TRUE(std::equal(b.begin(), b.end(), blocks.begin() + long(i) * 64)) << i;
    ASSERT_EQ(rbit % 8, 0);
  }
  EXPECT_EQ(marker, 0xD9);
  // Starting mid-byte keeps the byte's leading bits.
  std::vector<uint8_t> mid(600, 0xEE);
  bitpos = 13;
  dc = 0;
  ASSERT_EQ(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(&blocks[0], mid.data(), &bitpos, &dc,
                                                      &c.edc.spec, &c.eac.spec),
            rvtStatusOk);
  EXPECT_EQ(mid[0], 0xEE);
  EXPECT_EQ(mid[1] >> 3, 0xEE >> 3);
}


// ------------------------------------------------------------ differential checks
// Cases: runs of blocks (photo, extreme, sparse random) from a position in
// a destination or source of any length, with tables built by Init and
// with the damage a hand-filled or corrupted copy may carry, and with
// states holding anything.

// What a caller's own copy of a spec may hold besides what Init builds.
enum Damage { kIntact, kStrayBits, kRandomEntries, kRandomBytes, kNumDamages };

template <class T>
T RandomBits(test::Rng& rng) {
  return T(rng.engine()());
}

void Damage(EncodeHuffmanSpec& s, int how, test::Rng& rng) {
  if (how == kStrayBits) {  // bits above each code's length and above the length field
    for (uint32_t& e : s.entry) {
      const uint32_t n = (e >> 16) & 0xFF;
      if (n >= 1 && n < 16) e |= RandomBits<uint32_t>(rng) & 0xFFFFu & ~((1u << n) - 1);
      if (rng.Uniform(0, 3) == 0) e |= RandomBits<uint32_t>(rng) & 0xFF000000u;
    }
  } else if (how == kRandomEntries) {  // some codes replaced, lengths 0..20
    for (int i = int(rng.Uniform(1, 24)); i > 0; --i) {
      s.entry[rng.Uniform(0, 255)] =
          uint32_t(rng.Uniform(0, 20)) << 16 | (RandomBits<uint32_t>(rng) & 0xFF00FFFFu);
    }
  } else if (how == kRandomBytes) {
    rng.Fill(reinterpret_cast<uint8_t*>(&s), sizeof s, uint8_t(0), uint8_t(255));
  }
}

void Damage(DecodeHuffmanSpec& s, int how, test::Rng& rng) {
  if (how == kStrayBits) {  // bits outside the symbol and length fields
    for (uint32_t& e : s.lookup) {
      e |= RandomBits<uint32_t>(rng) & (rng.Uniform(0, 15) ? 0x0000FF00u : 0xFF00FF00u);
    }
    for (uint16_t& v : s.values) v |= RandomBits<uint16_t>(rng) & 0xFF00u;
  } else if (how == kRandomEntries) {  // lookup entries, limits and indexes anywhere
    for (int i = int(rng.Uniform(1, 40)); i > 0; --i) {
      s.lookup[rng.Uniform(0, 255)] =
          uint32_t(rng.Uniform(0, 9)) << 16 | uint32_t(rng.Uniform(0, 255));
    }
    for (int i = int(rng.Uniform(0, 6)); i > 0; --i) {
      uint16_t* f[3] = {s.minCode, s.maxCode, s.valueIndex};
      f[rng.Uniform(0, 2)][rng.Uniform(0, 17)] = RandomBits<uint16_t>(rng);
    }
  } else if (how == kRandomBytes) {
    rng.Fill(reinterpret_cast<uint8_t*>(&s), sizeof s, uint8_t(0), uint8_t(255));
  }
}

// A state holding anything (the unused fields too), or a fresh one.
template <class State>
State AnyState(test::Rng& rng, bool fresh) {
  State st{};
  if (!fresh) rng.Fill(reinterpret_cast<uint8_t*>(&st), sizeof st, uint8_t(0), uint8_t(255));
  if (!fresh && rng.Uniform(0, 1)) st.count = int32_t(rng.Uniform(-3, 40));
  return st;
}

// n blocks: a run of photo blocks, sparse random ones, or (for the wide
// tables) extremes.
std::vector<int16_t> SomeBlocks(test::Rng& rng, int n, bool wide) {
  const int kind = int(rng.Uniform(0, wide ? 2 : 1));  // photo, sparse, extreme
  if (kind == 0) {
    const auto& p = PhotoBlocks();
    const size_t at = size_t(rng.Uniform(0, int64_t(p.size() / 64) - n)) * 64;
    return std::vector<int16_t>(p.begin() + long(at), p.begin() + long(at) + 64 * n);
  }
  if (kind == 2) return ExtremeBlocks(n, uint64_t(rng.Uniform(0, 1 << 30)));
  std::vector<int16_t> b(size_t(n) * 64, 0);
  for (auto& v : b) {
    if (rng.Uniform(0, 7) == 0) v = int16_t(rng.Uniform(-1023, 1023));
  }
  return b;
}

template <class T>
test::Buf BufOf(const T* p, size_t n) {
  test::Buf b = test::ArrayOf<T>(int(n));
  std::memcpy(b.plane.data(), p, n * sizeof(T));
  return b;
}

// Encoder case: in = blocks, DC spec, AC spec; out = destination, position,
// predictor, state; arg[0] = flush after the blocks.
test::Case EncodeCase(std::string label, const std::vector<int16_t>& blocks,
                      const EncodeHuffmanSpec& dc, const EncodeHuffmanSpec& ac, int len, int pos,
                      int16_t last_dc, const EncodeHuffmanState& st, bool flush) {
  test::Case k;
  k.label = std::move(label);
  k.in = {BufOf(blocks.data(), blocks.size()), BufOf(&dc, 1), BufOf(&ac, 1)};
  k.out = {test::ArrayOf<uint8_t>(len), BufOf(&pos, 1), BufOf(&last_dc, 1), BufOf(&st, 1)};
  k.arg[0] = flush;
  return k;
}

std::vector<test::Case> EncodeCases(test::Rng& rng) {
  const Coder coders[2] = {Coder(test::LumaDc(), test::LumaAc()),
                           Coder(test::WideDc(), test::WideAc())};
  std::vector<test::Case> out;
  for (int trial = 0; trial < 240; ++trial) {
    const int n = int(rng.Uniform(1, 24));
    const int wide = int(rng.Uniform(0, 1));
    const auto blocks = SomeBlocks(rng, n, wide);
    const Coder& c = coders[wide];
    EncodeHuffmanSpec dc = c.edc.spec, ac = c.eac.spec;
    const int dmg = trial % kNumDamages;
    Damage(dc, rng.Uniform(0, 3) ? kIntact : dmg, rng);
    Damage(ac, dmg, rng);
    const int room = 600 * n + 64;
    const int len = rng.Uniform(0, 3) ? room : int(rng.Uniform(1, room));
    const int pos = rng.Uniform(0, 1) ? 0 : int(rng.Uniform(0, len));
    out.push_back(EncodeCase("trial " + std::to_string(trial) + " damage " + std::to_string(dmg),
                             blocks, dc, ac, len, pos, int16_t(rng.Uniform(-2048, 2047)),
                             AnyState<EncodeHuffmanState>(rng, trial % 3 == 0), trial % 5 == 0));
  }
  // The benchmark's case: a run of photo blocks with the common tables.
  const auto& p = PhotoBlocks();
  const std::vector<int16_t> run(p.begin(), p.begin() + 64 * 2000);
  out.push_back(EncodeCase("2000 photo blocks", run, coders[0].edc.spec, coders[0].eac.spec,
                           600 * 2000, 0, 0, test::FreshEncodeState(), true));
  return out;
}

RVT_CHECKASM(rvtiEncodeHuffman8x8_JPEG_16s1u_C1,
             test::Cases{EncodeCases, [](auto fn, test::Case& k) {
                           const auto* b = k.in[0].as<int16_t>();
                           const int n = k.in[0].plane.width() / 128;
                           const auto* dc = k.in[1].as<EncodeHuffmanSpec>();
                           const auto* ac = k.in[2].as<EncodeHuffmanSpec>();
                           uint8_t* dst = k.out[0].as<uint8_t>();
                           const int len = k.out[0].plane.width();
                           int* pos = k.out[1].as<int>();
                           int16_t* last_dc = k.out[2].as<int16_t>();
                           auto* st = k.out[3].as<EncodeHuffmanState>();
                           for (int i = 0; i < n; ++i) {
                             const RvtResult r =
                                 fn(b + 64 * i, dst, len, pos, last_dc, dc, ac, st, 0);
                             if (r != rvtStatusOk) return r;
                           }
                           return k.arg[0] ? fn(nullptr, dst, len, pos, nullptr, nullptr, nullptr,
                                                st, 1)
                                           : rvtStatusOk;
                         }});

// Decoder case: in = source, DC spec, AC spec; out = blocks, position,
// predictor, marker, state.  The source is a stream the reference encoder
// wrote (with restart markers, cut anywhere) or noise, with or without
// 0xFF bytes.
test::Case DecodeCase(std::string label, const std::vector<uint8_t>& src, int nblocks,
                      const DecodeHuffmanSpec& dc, const DecodeHuffmanSpec& ac, int pos,
                      int16_t last_dc, int marker, const DecodeHuffmanState& st) {
  test::Case k;
  k.label = std::move(label);
  k.in = {BufOf(src.data(), src.size()), BufOf(&dc, 1), BufOf(&ac, 1)};
  k.out = {test::ArrayOf<int16_t>(64 * nblocks), BufOf(&pos, 1), BufOf(&last_dc, 1),
           BufOf(&marker, 1), BufOf(&st, 1)};
  return k;
}

std::vector<test::Case> DecodeCases(test::Rng& rng) {
  const Coder coders[2] = {Coder(test::LumaDc(), test::LumaAc()),
                           Coder(test::WideDc(), test::WideAc())};
  std::vector<test::Case> out;
  for (int trial = 0; trial < 600; ++trial) {
    const int n = int(rng.Uniform(1, 32));
    const int wide = int(rng.Uniform(0, 1));
    const Coder& c = coders[wide];
    std::vector<uint8_t> src;
    if (rng.Uniform(0, 3)) {
      // More blocks than the case decodes, so that most start far enough
      // from the end for the vector kernels to take them.
      src = EncodeAll(test::Reference(kEnc), SomeBlocks(rng, n + int(rng.Uniform(0, 60)), wide), c,
                      rng.Uniform(0, 1) ? 0 : int(rng.Uniform(1, 8)), false)
                .bytes;
      if (rng.Uniform(0, 3) == 0) src.resize(size_t(rng.Uniform(1, int64_t(src.size()))));
    } else {
      src.resize(size_t(rng.Uniform(1, 3000)));
      rng.Fill(src.data(), src.size(), uint8_t(0), uint8_t(rng.Uniform(0, 1) ? 254 : 255));
    }
    DecodeHuffmanSpec dc = c.ddc.spec, ac = c.dac.spec;
    const int dmg = trial % kNumDamages;
    Damage(dc, rng.Uniform(0, 3) ? kIntact : dmg, rng);
    Damage(ac, dmg, rng);
    const int pos = rng.Uniform(0, 3) ? 0 : int(rng.Uniform(0, int64_t(src.size())));
    const int marker = rng.Uniform(0, 7) ? 0 : int(rng.Uniform(1, 255));
    out.push_back(DecodeCase("trial " + std::to_string(trial) + " damage " + std::to_string(dmg),
                             src, n, dc, ac, pos, int16_t(rng.Uniform(-2048, 2047)), marker,
                             AnyState<DecodeHuffmanState>(rng, trial % 3 == 0)));
  }
  const auto& p = PhotoBlocks();
  const std::vector<int16_t> run(p.begin(), p.begin() + 64 * 2000);
  out.push_back(DecodeCase("2000 photo blocks",
                           EncodeAll(test::Reference(kEnc), run, coders[0], 0, false).bytes, 2000,
                           coders[0].ddc.spec, coders[0].dac.spec, 0, 0, 0,
                           test::FreshDecodeState()));
  return out;
}

RVT_CHECKASM(rvtiDecodeHuffman8x8_JPEG_1u16s_C1,
             test::Cases{DecodeCases, [](auto fn, test::Case& k) {
                           const uint8_t* src = k.in[0].as<uint8_t>();
                           const int len = k.in[0].plane.width();
                           const auto* dc = k.in[1].as<DecodeHuffmanSpec>();
                           const auto* ac = k.in[2].as<DecodeHuffmanSpec>();
                           int16_t* blocks = k.out[0].as<int16_t>();
                           const int n = k.out[0].plane.width() / 128;
                           int* pos = k.out[1].as<int>();
                           int16_t* last_dc = k.out[2].as<int16_t>();
                           int* marker = k.out[3].as<int>();
                           auto* st = k.out[4].as<DecodeHuffmanState>();
                           for (int i = 0; i < n; ++i) {
                             const RvtResult r =
                                 fn(src, len, pos, blocks + 64 * i, last_dc, marker, dc, ac, st);
                             if (r != rvtStatusOk) return r;
                           }
                           return rvtStatusOk;
                         }});

}  // namespace
}  // namespace rvt
