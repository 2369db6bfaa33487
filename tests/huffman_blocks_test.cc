// The MCU-run block decoder against the block decoder it stands for: every
// path of rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1 must leave what calling
// rvtiDecodeHuffman8x8_JPEG_1u16s_C1 block after block leaves (blocks,
// position, marker, predictors, state, counts, status), on photo scans with
// restart markers, damaged bytes, stray markers and fill bytes, and cut
// short.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "checkasm.h"
#include "huffman_util.h"
#include "jpeg_oracle.h"

namespace rvt {
namespace {

using RunFn = decltype(&rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1);
constexpr auto& kRun = impl_rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1;

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

struct Tables {
  // Component 0 luma, 1 and 2 chroma; 3 the tables that code every size up
  // to 15 with codes up to 16 bits.
  test::EncSpec edc[4] = {test::EncSpec(test::LumaDc()), test::EncSpec(test::ChromaDc()),
                          test::EncSpec(test::ChromaDc()), test::EncSpec(test::WideDc())};
  test::EncSpec eac[4] = {test::EncSpec(test::LumaAc()), test::EncSpec(test::ChromaAc()),
                          test::EncSpec(test::ChromaAc()), test::EncSpec(test::WideAc())};
  test::DecSpec ddc[4] = {test::DecSpec(test::LumaDc()), test::DecSpec(test::ChromaDc()),
                          test::DecSpec(test::ChromaDc()), test::DecSpec(test::WideDc())};
  test::DecSpec dac[4] = {test::DecSpec(test::LumaAc()), test::DecSpec(test::ChromaAc()),
                          test::DecSpec(test::ChromaAc()), test::DecSpec(test::WideAc())};
};
const Tables& TheTables() {
  static const Tables t;
  return t;
}

// A scan: MCUs of one component pattern, photo blocks (random sparse ones
// for component 3), restart markers every `ri` MCUs, then damage.
struct Scan {
  std::vector<int> comp;
  int nmcus = 0;
  int ri = 0;  // restart interval in MCUs, 0 for none
  std::vector<uint8_t> bytes;
};

Scan MakeScan(test::Rng& rng) {
  static const std::vector<std::vector<int>> patterns = {
      {0, 0, 0, 0, 1, 2}, {0, 1, 2}, {0}, {0, 0, 1, 2}, {3, 0, 3}, {1, 0, 2, 0, 1, 2, 0, 3, 1, 0}};
  Scan s;
  s.comp = patterns[size_t(rng.Uniform(0, int64_t(patterns.size()) - 1))];
  s.nmcus = int(rng.Uniform(1, 400));
  const int ri = s.ri = rng.Uniform(0, 1) ? 0 : int(rng.Uniform(1, 30));
  const Tables& t = TheTables();
  const auto& photo = PhotoBlocks();
  size_t at = size_t(rng.Uniform(0, int64_t(photo.size() / 64) - 5000)) * 64;
  s.bytes.resize(size_t(s.nmcus) * s.comp.size() * 600 + 64);
  EncodeHuffmanState st = test::FreshEncodeState();
  int16_t dc[4] = {0, 0, 0, 0};
  int pos = 0;
  const int len = int(s.bytes.size());
  for (int m = 0; m < s.nmcus; ++m) {
    if (ri && m > 0 && m % ri == 0) {
      rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, s.bytes.data(), len, &pos, nullptr, nullptr,
                                         nullptr, &st, 1);
      s.bytes[size_t(pos)] = 0xFF;
      s.bytes[size_t(pos) + 1] = uint8_t(0xD0 + (m / ri - 1) % 8);
      pos += 2;
      std::memset(dc, 0, sizeof dc);
    }
    for (const int c : s.comp) {
      int16_t b[64];
      if (c == 3) {
        for (int k = 0; k < 64; ++k) {
          b[k] = rng.Uniform(0, 6) ? 0 : int16_t(rng.Uniform(-32767, 32767) >> rng.Uniform(0, 15));
        }
        b[0] = int16_t(rng.Uniform(-1000, 1000));
      } else {
        std::memcpy(b, &photo[at], sizeof b);
        at += 64;
      }
      EXPECT_EQ(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(b, s.bytes.data(), len, &pos, &dc[c],
                                                   &t.edc[c].spec, &t.eac[c].spec, &st, 0),
                rvtStatusOk);
    }
  }
  rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, s.bytes.data(), len, &pos, nullptr, nullptr, nullptr,
                                     &st, 1);
  s.bytes[size_t(pos)] = 0xFF;
  s.bytes[size_t(pos) + 1] = 0xD9;
  s.bytes.resize(size_t(pos) + 2);
  // Damage: flipped bytes, a stray marker, fill bytes, a cut.
  const int damage = int(rng.Uniform(0, 5));
  const auto some = [&] { return size_t(rng.Uniform(0, int64_t(s.bytes.size()) - 1)); };
  if (damage == 1) {
    for (int i = int(rng.Uniform(1, 4)); i > 0; --i) s.bytes[some()] ^= uint8_t(rng.Uniform(1, 255));
  } else if (damage == 2) {
    const size_t p = some();
    s.bytes.insert(s.bytes.begin() + long(p), {0xFF, uint8_t(rng.Uniform(0xC0, 0xFE))});
  } else if (damage == 3) {
    const size_t p = some();
    s.bytes.insert(s.bytes.begin() + long(p), {0xFF, 0xFF, 0xFF});
  } else if (damage == 4) {
    s.bytes.resize(std::max<size_t>(1, some()));
  }
  return s;
}

// What a caller holds between calls.
struct Session {
  int pos = 0, marker = 0;
  int16_t dc[4] = {0, 0, 0, 0};
  DecodeHuffmanState st = test::FreshDecodeState();
};

struct Outcome {
  RvtResult status;
  Session s;
  int nblocks_done;
  std::vector<int16_t> blocks;
  std::vector<int> done;
};

const DecodeHuffmanSpec* const* DcSpecs() {
  static const DecodeHuffmanSpec* const p[4] = {&TheTables().ddc[0].spec, &TheTables().ddc[1].spec,
                                                &TheTables().ddc[2].spec, &TheTables().ddc[3].spec};
  return p;
}
const DecodeHuffmanSpec* const* AcSpecs() {
  static const DecodeHuffmanSpec* const p[4] = {&TheTables().dac[0].spec, &TheTables().dac[1].spec,
                                                &TheTables().dac[2].spec, &TheTables().dac[3].spec};
  return p;
}

// The definition: the block decoder, block after block, until one fails.
Outcome ByBlocks(const Scan& scan, Session s, int nmcus,
                 const DecodeHuffmanSpec* const* acs = AcSpecs()) {
  const int nb = int(scan.comp.size());
  Outcome o{rvtStatusOk, s, 0, std::vector<int16_t>(size_t(nmcus) * nb * 64, 0x5555),
            std::vector<int>(size_t(nmcus) * nb, -7)};
  for (int i = 0; i < nmcus * nb; ++i) {
    const int c = scan.comp[size_t(i % nb)];
    o.status = rvtiDecodeHuffman8x8_JPEG_1u16s_C1(
        scan.bytes.data(), int(scan.bytes.size()), &o.s.pos, &o.blocks[size_t(i) * 64], &o.s.dc[c],
        &o.s.marker, DcSpecs()[c], acs[c], &o.s.st);
    if (o.status != rvtStatusOk) break;
    o.done[size_t(i)] = int(o.s.st.coefsDone);
    ++o.nblocks_done;
  }
  return o;
}

Outcome ByRun(RunFn fn, const Scan& scan, Session s, int nmcus,
              const DecodeHuffmanSpec* const* acs = AcSpecs()) {
  const int nb = int(scan.comp.size());
  Outcome o{rvtStatusOk, s, -1, std::vector<int16_t>(size_t(nmcus) * nb * 64, 0x5555),
            std::vector<int>(size_t(nmcus) * nb, -7)};
  o.status = fn(scan.bytes.data(), int(scan.bytes.size()), &o.s.pos, o.blocks.data(), nmcus,
                scan.comp.data(), nb, o.s.dc, &o.s.marker, DcSpecs(), acs, &o.s.st,
                o.done.data(), &o.nblocks_done);
  return o;
}

::testing::AssertionResult Same(const Outcome& want, const Outcome& got) {
  if (got.status != want.status) return ::testing::AssertionFailure() << "status " << got.status << " want " << want.status;
  if (got.nblocks_done != want.nblocks_done) {
    return ::testing::AssertionFailure() << "blocks done " << got.nblocks_done << " want " << want.nblocks_done;
  }
  if (got.s.pos != want.s.pos) return ::testing::AssertionFailure() << "pos " << got.s.pos << " want " << want.s.pos;
  if (got.s.marker != want.s.marker) return ::testing::AssertionFailure() << "marker";
  if (std::memcmp(got.s.dc, want.s.dc, sizeof got.s.dc) != 0) return ::testing::AssertionFailure() << "predictors";
  if (std::memcmp(&got.s.st, &want.s.st, sizeof got.s.st) != 0) return ::testing::AssertionFailure() << "state";
  for (size_t i = 0; i < want.blocks.size(); ++i) {
    if (got.blocks[i] != want.blocks[i]) {
      return ::testing::AssertionFailure() << "block " << i / 64 << " coefficient " << i % 64;
    }
  }
  if (got.done != want.done) return ::testing::AssertionFailure() << "coefficient counts";
  return ::testing::AssertionSuccess();
}

// Scans decoded in runs of random length as a codec does (after a marker it
// resets the state, the marker and the predictors), every path against the
// block decoder from the same point; a failed run ends the scan.
TEST(HuffmanBlocks, EveryPathDecodesAsTheBlockDecoder) {
  test::Rng rng(1601);
  int failures_seen = 0, markers_seen = 0;
  for (int trial = 0; trial < 120; ++trial) {
    const Scan scan = MakeScan(rng);
    Session s;
    if (trial % 7 == 3) {  // a state as a caller may have filled it
      s.st.acc = rng.Uniform(0, 1 << 30);
      s.st.count = int(rng.Uniform(-2, 40));
    }
    for (int m = 0; m < scan.nmcus;) {
      if (scan.ri && m > 0 && m % scan.ri == 0) {
        // A restart: find the marker (the decoder may have met it), reset.
        const int size = int(scan.bytes.size());
        while (s.marker == 0 && s.pos + 1 < size) {
          const uint8_t next = scan.bytes[size_t(s.pos) + 1];
          if (scan.bytes[size_t(s.pos)] == 0xFF && next != 0 && next != 0xFF) {
            s.marker = next;
            s.pos += 2;
          } else {
            ++s.pos;
          }
        }
        if (s.marker != 0) ++markers_seen;
        s = Session{s.pos};
      }
      int n = int(rng.Uniform(1, 60));
      if (scan.ri) n = std::min(n, scan.ri - m % scan.ri);
      n = std::min(n, scan.nmcus - m);
      const Outcome want = ByBlocks(scan, s, n);
      for (const auto& t : test::AllTargets(kRun)) {
        ASSERT_TRUE(Same(want, ByRun(t.fn, scan, s, n))) << t.name << ", trial " << trial << ", MCU " << m;
      }
      if (want.status != rvtStatusOk) {
        ++failures_seen;
        break;
      }
      s = want.s;
      m += n;
    }
  }
  // The damage reached both outcomes.
  EXPECT_GT(failures_seen, 20);
  EXPECT_GT(markers_seen, 20);
}

// Runs that end on the guard positions: ZRLs past coefficient 63 end the
// block, a run landing on positions 64..71 sets coefficient 63, one past 71
// is an error; with enough data after them for every fast walk.
TEST(HuffmanBlocks, RunsIntoTheGuardPositionsAsTheBlockDecoder) {
  // DC: '0' is size 0.  AC, 3-bit codes: EOB, ZRL, 0/1, 14/1, 10/1.
  const test::DecSpec dc(test::HuffTable{{1}, {0x00}});
  const test::DecSpec ac(test::HuffTable{{0, 0, 5}, {0x00, 0xF0, 0x01, 0xE1, 0xA1}});
  ASSERT_TRUE(dc.ok && ac.ok);
  // Four ZRLs; three ZRLs, 10/1 +1, 10/1 +1 (onto 71); three ZRLs, 10/1 +1,
  // 14/1 +1 (onto 75); then DC-and-EOB blocks.
  std::vector<uint8_t> bytes = {0x12, 0x48, 0x93, 0x32, 0x24, 0xCB, 0x80};
  bytes.resize(1200, 0);
  const DecodeHuffmanSpec* dcs[4] = {&dc.spec, &dc.spec, &dc.spec, &dc.spec};
  const DecodeHuffmanSpec* acs[4] = {&ac.spec, &ac.spec, &ac.spec, &ac.spec};
  const int comp[1] = {0};
  std::vector<int16_t> want(4 * 64, 0);
  int pos = 0, marker = 0, nwant = 0;
  int16_t last = 0;
  DecodeHuffmanState st = test::FreshDecodeState();
  RvtResult status = rvtStatusOk;
  for (; nwant < 4 && status == rvtStatusOk; ++nwant) {
    status = rvtiDecodeHuffman8x8_JPEG_1u16s_C1(bytes.data(), int(bytes.size()), &pos,
                                                &want[size_t(nwant) * 64], &last, &marker, &dc.spec,
                                                &ac.spec, &st);
  }
  ASSERT_EQ(status, rvtStatusErr);
  ASSERT_EQ(nwant, 3);
  EXPECT_EQ(want[64 + 63], 1);
  for (const auto& t : test::AllTargets(kRun)) {
    std::vector<int16_t> got(4 * 64, 0);
    int gpos = 0, gmarker = 0, nd = -1, done[4];
    int16_t gdc[4] = {0, 0, 0, 0};
    DecodeHuffmanState gst = test::FreshDecodeState();
    EXPECT_EQ(t.fn(bytes.data(), int(bytes.size()), &gpos, got.data(), 4, comp, 1, gdc, &gmarker,
                   dcs, acs, &gst, done, &nd),
              rvtStatusErr)
        << t.name;
    EXPECT_EQ(nd, 2) << t.name;
    EXPECT_EQ(done[0], 65) << t.name;
    EXPECT_EQ(done[1], 71) << t.name;
    EXPECT_EQ(gpos, pos) << t.name;
    EXPECT_EQ(std::memcmp(&gst, &st, sizeof st), 0) << t.name;
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + 128, want.begin())) << t.name;
  }
}

TEST(HuffmanBlocks, ChecksInArgumentOrderAndWritesNothing) {
  const uint8_t src[4] = {0, 0, 0, 0};
  const int comp[2] = {0, 1};
  const int bad_comp[2] = {0, 4};
  const DecodeHuffmanSpec* const* dcs = DcSpecs();
  const DecodeHuffmanSpec* const* acs = AcSpecs();
  const DecodeHuffmanSpec* const partial[4] = {dcs[0], nullptr, nullptr, nullptr};
  for (const auto& t : test::AllTargets(kRun)) {
    std::vector<int16_t> blk(128, 9);
    int pos = 0, marker = 0, done[2] = {7, 7}, nd = 7;
    int16_t dc[4] = {1, 2, 3, 4};
    DecodeHuffmanState st = test::FreshDecodeState();
    const auto call = [&](const uint8_t* s, int len, int* p, int nm, const int* cp, int nb,
                          const DecodeHuffmanSpec* const* d, const DecodeHuffmanSpec* const* a,
                          int* n) {
      return t.fn(s, len, p, blk.data(), nm, cp, nb, dc, &marker, d, a, &st, done, n);
    };
    EXPECT_EQ(call(nullptr, -1, &pos, 1, comp, 2, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(src, -1, nullptr, 1, comp, 2, dcs, acs, &nd), rvtStatusBadArg);
    EXPECT_EQ(call(src, 4, nullptr, 0, comp, 2, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(src, 4, &pos, 0, nullptr, 2, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(src, 4, &pos, 1, nullptr, 0, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(src, 4, &pos, 1, comp, 11, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(src, 4, &pos, 1 << 25, comp, 2, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(src, 4, &pos, 1, bad_comp, 2, nullptr, acs, &nd), rvtStatusBadArg);
    EXPECT_EQ(call(src, 4, &pos, 1, comp, 2, partial, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(src, 4, &pos, 1, comp, 1, partial, nullptr, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(src, 4, &pos, 1, comp, 1, partial, acs, nullptr), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(src, 4, &pos, blk.data(), 1, comp, 1, dc, &marker, dcs, acs, nullptr, done, &nd),
              rvtStatusNullPtr);
    pos = -1;
    EXPECT_EQ(call(src, 4, &pos, 1, comp, 2, dcs, acs, &nd), rvtStatusBadArg);
    EXPECT_EQ(blk, std::vector<int16_t>(128, 9)) << t.name;
    EXPECT_EQ(nd, 7);
    EXPECT_EQ(done[0], 7);
    EXPECT_EQ(dc[0], 1);
    // pCoefsDone may be null; a table only for the components named.
    // Two blocks of DC 0 and EOB, then EOI.
    const uint8_t two[4] = {0x28, 0xAF, 0xFF, 0xD9};
    pos = 0;
    EXPECT_EQ(t.fn(two, 4, &pos, blk.data(), 2, comp, 1, dc, &marker, partial, acs, &st, nullptr, &nd),
              rvtStatusOk);
    EXPECT_EQ(nd, 2);
  }
}

// Coefficients of every size at the ends of their range (+-1, +-2^(s-1),
// +-(2^s - 1)) after every run, with the photo tables (codes of 2..16 bits)
// and the wide ones: codes and value bits that end on either side of the
// decoders' lookups, values whose sign bit lies in the code's prefix or
// after it, blocks that end on coefficient 63 without an end of block.
// Every path gives the blocks back and leaves what the block decoder does.
TEST(HuffmanBlocks, ValuesOfEverySizeAtTheirEndsAfterEveryRun) {
  const Tables& t = TheTables();
  for (const std::vector<int>& pattern : {std::vector<int>{0, 1}, std::vector<int>{3}}) {
    std::vector<int16_t> src;
    for (int run = 0; run < 16; ++run) {
      for (int s = 1; s <= (pattern[0] == 3 ? 15 : 10); ++s) {
        const int top = (1 << s) - 1, half = 1 << (s - 1);
        for (const int v : {1, -1, half, -half, top, -top}) {
          int16_t b[64] = {};
          b[0] = int16_t(v * 3 % 1000);
          // The value after `run` zeros, then again up to coefficient 63.
          for (int k = 1 + run; k < 64; k += run + 1) b[kNaturalOfZigzag[k]] = int16_t(v);
          src.insert(src.end(), b, b + 64);
        }
      }
    }
    const int nb = int(pattern.size()), nmcus = int(src.size() / 64) / nb;
    Scan scan;
    scan.comp = pattern;
    scan.nmcus = nmcus;
    scan.bytes.resize(src.size() * 8 + 64);
    EncodeHuffmanState st = test::FreshEncodeState();
    int16_t dc[4] = {0, 0, 0, 0};
    int pos = 0;
    for (int i = 0; i < nmcus * nb; ++i) {
      const int c = pattern[size_t(i % nb)];
      ASSERT_EQ(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(&src[size_t(i) * 64], scan.bytes.data(),
                                                   int(scan.bytes.size()), &pos, &dc[c],
                                                   &t.edc[c].spec, &t.eac[c].spec, &st, 0),
                rvtStatusOk);
    }
    rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, scan.bytes.data(), int(scan.bytes.size()), &pos,
                                       nullptr, nullptr, nullptr, &st, 1);
    scan.bytes.resize(size_t(pos));
    scan.bytes.insert(scan.bytes.end(), {0xFF, 0xD9});
    const Outcome want = ByBlocks(scan, Session{}, nmcus);
    ASSERT_EQ(want.status, rvtStatusOk);
    ASSERT_EQ(want.blocks, src);
    for (const auto& tg : test::AllTargets(kRun)) {
      EXPECT_TRUE(Same(want, ByRun(tg.fn, scan, Session{}, nmcus))) << tg.name << ", component "
                                                                    << pattern[0];
    }
  }
}

// Short codes, so that most look-ups hold two symbols: every pairing of
// coefficient, zero run (ZRL), end of block and codes of 9, 10 and 12 bits,
// blocks that end on coefficient 63 (the bits after them are the next
// block's DC code), decoded in runs of random length so that the state is
// compared after every stretch of pairs.
TEST(HuffmanBlocks, ShortCodesInPairsAsTheBlockDecoder) {
  // DC: sizes 0..2 in 2 bits, 3 in 3.  AC: 0/1 and EOB in 2 bits, 0/2 in 3,
  // ZRL and 1/1 in 4, 2/1 and 0/3 in 5, 4/1 and 1/2 in 9, 0/4 and 3/1 in
  // 10, 14/1 in 12.
  const test::HuffTable dct{{0, 3, 1}, {0, 1, 2, 3}};
  const test::HuffTable act{{0, 2, 1, 2, 2, 0, 0, 0, 2, 2, 0, 1},
                            {0x01, 0x00, 0x02, 0xF0, 0x11, 0x21, 0x03, 0x41, 0x12, 0x04, 0x31, 0xE1}};
  const test::EncSpec edc(dct), eac(act);
  const test::DecSpec ddc(dct), dac(act);
  ASSERT_TRUE(edc.ok && eac.ok && ddc.ok && dac.ok);
  test::Rng rng(7321);
  // Runs the table codes, each with the largest size it has.
  static const int kRuns[][2] = {{0, 4}, {0, 1}, {0, 2}, {1, 2}, {2, 1}, {3, 1}, {4, 1}, {14, 1},
                                 {16, 4}, {17, 1}, {18, 1}, {30, 1}};
  constexpr int kBlocks = 3000;
  std::vector<int16_t> src(size_t(kBlocks) * 64, 0);
  int16_t dc = 0;
  for (int n = 0; n < kBlocks; ++n) {
    int16_t* b = &src[size_t(n) * 64];
    dc = int16_t(dc + rng.Uniform(-7, 7));
    b[0] = dc;
    const bool full = rng.Uniform(0, 2) == 0;  // to coefficient 63, no end of block
    for (int k = 1; k <= 63;) {
      if (!full && rng.Uniform(0, 7) == 0) break;
      const auto& rs = kRuns[size_t(rng.Uniform(0, 11))];
      int run = rs[0], smax = rs[1];
      if (k + run > 63) run = 0, smax = 4;
      const int sz = int(rng.Uniform(1, smax));
      const int v = int(rng.Uniform(1 << (sz - 1), (1 << sz) - 1));
      k += run;
      b[kNaturalOfZigzag[k]] = int16_t(rng.Uniform(0, 1) ? v : -v);
      ++k;
    }
  }
  std::vector<uint8_t> bytes(src.size() * 4 + 64);
  EncodeHuffmanState est = test::FreshEncodeState();
  int16_t edcp = 0;
  int pos = 0;
  for (int n = 0; n < kBlocks; ++n) {
    ASSERT_EQ(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(&src[size_t(n) * 64], bytes.data(),
                                                 int(bytes.size()), &pos, &edcp, &edc.spec,
                                                 &eac.spec, &est, 0),
              rvtStatusOk);
  }
  rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, bytes.data(), int(bytes.size()), &pos, nullptr,
                                     nullptr, nullptr, &est, 1);
  bytes.resize(size_t(pos));
  bytes.insert(bytes.end(), {0xFF, 0xD9});
  const DecodeHuffmanSpec* dcs[4] = {&ddc.spec, &ddc.spec, &ddc.spec, &ddc.spec};
  const DecodeHuffmanSpec* acs[4] = {&dac.spec, &dac.spec, &dac.spec, &dac.spec};
  const int comp[1] = {0};
  for (const auto& t : test::AllTargets(kRun)) {
    Session want, got;
    std::vector<int16_t> blk(64), out(size_t(kBlocks) * 64);
    std::vector<int> done(kBlocks);
    for (int at = 0; at < kBlocks;) {
      const int n = std::min(kBlocks - at, int(rng.Uniform(1, 300)));
      int nd = -1;
      ASSERT_EQ(t.fn(bytes.data(), int(bytes.size()), &got.pos, &out[size_t(at) * 64], n, comp, 1,
                     got.dc, &got.marker, dcs, acs, &got.st, &done[size_t(at)], &nd),
                rvtStatusOk)
          << t.name;
      ASSERT_EQ(nd, n) << t.name;
      for (int i = at; i < at + n; ++i) {
        ASSERT_EQ(rvtiDecodeHuffman8x8_JPEG_1u16s_C1(bytes.data(), int(bytes.size()), &want.pos,
                                                     blk.data(), &want.dc[0], &want.marker,
                                                     &ddc.spec, &dac.spec, &want.st),
                  rvtStatusOk);
        ASSERT_TRUE(std::equal(blk.begin(), blk.end(), &src[size_t(i) * 64])) << "block " << i;
        ASSERT_EQ(done[size_t(i)], int(want.st.coefsDone)) << t.name << ", block " << i;
      }
      at += n;
      ASSERT_EQ(got.pos, want.pos) << t.name << " after block " << at;
      ASSERT_EQ(std::memcmp(&got.st, &want.st, sizeof want.st), 0) << t.name << " after block " << at;
      ASSERT_EQ(got.dc[0], want.dc[0]) << t.name;
    }
    EXPECT_EQ(out, src) << t.name;
  }
}

// A hand-filled spec may hold a lookup whose entries differ inside a short
// code's run of prefixes: the block decoder then goes by bits past a code
// that the second symbol of a pair does not see, and the run decoder must
// follow it all the same.
TEST(HuffmanBlocks, LookupsWithBrokenRunsAsTheBlockDecoder) {
  test::Rng rng(2718);
  int changed = 0;
  for (int trial = 0; trial < 80; ++trial) {
    const Scan scan = MakeScan(rng);
    DecodeHuffmanSpec ac[4];
    const DecodeHuffmanSpec* acs[4];
    for (int c = 0; c < 4; ++c) {
      ac[c] = *AcSpecs()[c];
      acs[c] = &ac[c];
      // Entries late in a run take the entry of another short code.
      for (int k = int(rng.Uniform(1, 6)); k > 0; --k) {
        const size_t p = size_t(rng.Uniform(0, 255)), q = size_t(rng.Uniform(0, 255));
        const uint32_t len = (ac[c].lookup[p] >> 16) & 0xFF, lq = (ac[c].lookup[q] >> 16) & 0xFF;
        if (len < 1 || len > 7 || lq < 1 || lq > 8 || (p & ((1u << (8 - len)) - 1)) == 0) continue;
        if (ac[c].lookup[p] == ac[c].lookup[q]) continue;
        ac[c].lookup[p] = ac[c].lookup[q];
        ++changed;
      }
    }
    Session s;
    const int n = std::min(scan.ri ? scan.ri : scan.nmcus, int(rng.Uniform(1, 200)));
    const Outcome want = ByBlocks(scan, s, std::min(n, scan.nmcus), acs);
    for (const auto& t : test::AllTargets(kRun)) {
      ASSERT_TRUE(Same(want, ByRun(t.fn, scan, s, std::min(n, scan.nmcus), acs)))
          << t.name << ", trial " << trial;
    }
  }
  EXPECT_GT(changed, 100);
}

// The differential check: runs over photo scans and damaged ones.
std::vector<test::Case> RunCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int trial = 0; trial < 60; ++trial) {
    const Scan scan = MakeScan(rng);
    test::Case k;
    k.label = "trial " + std::to_string(trial);
    test::Buf src = test::ArrayOf<uint8_t>(int(scan.bytes.size()));
    if (!scan.bytes.empty()) std::memcpy(src.as<uint8_t>(), scan.bytes.data(), scan.bytes.size());
    test::Buf comp = test::ArrayOf<int>(int(scan.comp.size()));
    std::memcpy(comp.as<int>(), scan.comp.data(), scan.comp.size() * sizeof(int));
    const int n = std::min(scan.nmcus, int(rng.Uniform(1, 200)));
    const int nb = int(scan.comp.size());
    k.in = {src, comp};
    test::Buf state = test::ArrayOf<DecodeHuffmanState>(1);
    *state.as<DecodeHuffmanState>() = test::FreshDecodeState();
    k.out = {test::ArrayOf<int16_t>(64 * n * nb), test::ArrayOf<int>(4), test::ArrayOf<int16_t>(4),
             state, test::ArrayOf<int>(n * nb)};
    std::memset(k.out[1].as<int>(), 0, 4 * sizeof(int));
    std::memset(k.out[2].as<int16_t>(), 0, 4 * sizeof(int16_t));
    k.arg[0] = n;
    out.push_back(std::move(k));
  }
  return out;
}

RVT_CHECKASM(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1,
             test::Cases{RunCases, [](auto fn, test::Case& k) {
                           int* misc = k.out[1].as<int>();  // position, marker, blocks done
                           return fn(k.in[0].as<uint8_t>(), k.in[0].plane.width(), &misc[0],
                                     k.out[0].as<int16_t>(), int(k.arg[0]), k.in[1].as<int>(),
                                     k.in[1].plane.width() / int(sizeof(int)),
                                     k.out[2].as<int16_t>(), &misc[1], DcSpecs(), AcSpecs(),
                                     k.out[3].as<DecodeHuffmanState>(), k.out[4].as<int>(),
                                     &misc[2]);
                         }});

}  // namespace
}  // namespace rvt
