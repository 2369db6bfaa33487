// The MCU-run block encoder against the block encoder it stands for: every
// path of rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1 must leave what calling
// rvtiEncodeHuffman8x8_JPEG_16s1u_C1 block after block leaves (bytes,
// position, predictors, state, count, status), on photo blocks and extreme
// ones, with restarts, symbols without a code and destinations that run
// out mid-run; and libjpeg must read what it writes.
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

using RunFn = decltype(&rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1);
constexpr auto& kRun = impl_rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1;

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

// DC categories 0..16: differences up to 65535 have a code.
test::HuffTable FullDc() {
  test::HuffTable t = test::WideDc();
  t.bits[10] = 1;
  t.vals.push_back(16);
  return t;
}

struct Tables {
  // Component 0 luma, 1 and 2 chroma (sizes up to 10 AC and 11 DC; larger
  // ones have no code); 3 every DC category and AC sizes up to 15.
  test::EncSpec dc[4] = {test::EncSpec(test::LumaDc()), test::EncSpec(test::ChromaDc()),
                         test::EncSpec(test::ChromaDc()), test::EncSpec(FullDc())};
  test::EncSpec ac[4] = {test::EncSpec(test::LumaAc()), test::EncSpec(test::ChromaAc()),
                         test::EncSpec(test::ChromaAc()), test::EncSpec(test::WideAc())};
  const EncodeHuffmanSpec* pdc[4] = {&dc[0].spec, &dc[1].spec, &dc[2].spec, &dc[3].spec};
  const EncodeHuffmanSpec* pac[4] = {&ac[0].spec, &ac[1].spec, &ac[2].spec, &ac[3].spec};
};
const Tables& TheTables() {
  static const Tables t;
  return t;
}

// Blocks for a pattern: photo blocks, and for component 3 (sometimes for
// the others too) extreme ones: full-range, saturated, sparse with long
// runs, the last coefficient set.
std::vector<int16_t> MakeBlocks(test::Rng& rng, const std::vector<int>& comp, int nmcus,
                                bool extremes) {
  const auto& photo = PhotoBlocks();
  size_t at = size_t(rng.Uniform(0, int64_t(photo.size() / 64) - 4000)) * 64;
  std::vector<int16_t> out(size_t(nmcus) * comp.size() * 64);
  for (size_t i = 0; i < out.size() / 64; ++i) {
    int16_t* b = &out[i * 64];
    const int c = comp[i % comp.size()];
    if (c != 3 && !(extremes && rng.Uniform(0, 30) == 0)) {
      std::memcpy(b, &photo[at], 128);
      at += 64;
      continue;
    }
    const int kind = int(rng.Uniform(0, 3));
    for (int k = 0; k < 64; ++k) {
      if (kind == 0) {
        b[k] = int16_t(rng.Uniform(-32767, 32767) >> rng.Uniform(0, 15));
      } else if (kind == 1) {
        b[k] = rng.Uniform(0, 1) ? 32767 : -32767;
      } else {
        b[k] = rng.Uniform(0, 20) ? 0 : int16_t(rng.Uniform(-2000, 2000));
      }
    }
    if (rng.Uniform(0, 3) == 0) b[63] = int16_t(rng.Uniform(1, 9));
    if (extremes && rng.Uniform(0, 50) == 0) b[rng.Uniform(0, 63)] = -32768;
  }
  return out;
}

// What a caller holds between calls.
struct Session {
  int pos = 0;
  int16_t dc[4] = {0, 0, 0, 0};
  EncodeHuffmanState st = test::FreshEncodeState();
  std::vector<uint8_t> bytes;
  RvtResult status = rvtStatusOk;
  int done = -1;
};

// The definition: the block encoder, block after block, until one fails.
void ByBlocks(Session& s, const int16_t* blocks, int nmcus, const std::vector<int>& comp) {
  const auto fn = test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1);
  const int nb = int(comp.size());
  s.done = 0;
  s.status = rvtStatusOk;
  for (int i = 0; i < nmcus * nb; ++i) {
    const int c = comp[size_t(i % nb)];
    s.status = fn(blocks + 64 * i, s.bytes.data(), int(s.bytes.size()), &s.pos, &s.dc[c],
                  TheTables().pdc[c], TheTables().pac[c], &s.st, 0);
    if (s.status != rvtStatusOk) break;
    ++s.done;
  }
}

void ByRun(RunFn fn, Session& s, const int16_t* blocks, int nmcus, const std::vector<int>& comp) {
  s.status = fn(blocks, s.bytes.data(), int(s.bytes.size()), &s.pos, nmcus, comp.data(),
                int(comp.size()), s.dc, TheTables().pdc, TheTables().pac, &s.st, &s.done);
}

::testing::AssertionResult Same(const Session& want, const Session& got) {
  if (got.status != want.status) return ::testing::AssertionFailure() << "status " << got.status << " want " << want.status;
  if (got.done != want.done) return ::testing::AssertionFailure() << "blocks done " << got.done << " want " << want.done;
  if (got.pos != want.pos) return ::testing::AssertionFailure() << "pos " << got.pos << " want " << want.pos;
  if (std::memcmp(got.dc, want.dc, sizeof got.dc) != 0) return ::testing::AssertionFailure() << "predictors";
  if (std::memcmp(&got.st, &want.st, sizeof got.st) != 0) return ::testing::AssertionFailure() << "state";
  for (size_t i = 0; i < want.bytes.size(); ++i) {
    if (got.bytes[i] != want.bytes[i]) return ::testing::AssertionFailure() << "byte " << i;
  }
  return ::testing::AssertionSuccess();
}

// Scans encoded in runs of random length as a codec does, flushing and
// writing a marker at each restart; destinations of every size, so some
// run out mid-run; states as a caller may have left them.  Every byte of
// the destination (also those past the position) must match.
TEST(HuffmanEncodeBlocks, EveryPathEncodesAsTheBlockEncoder) {
  static const std::vector<std::vector<int>> patterns = {
      {0, 0, 0, 0, 1, 2}, {0, 1, 2}, {0}, {3}, {0, 0, 1, 2}, {3, 0, 3}, {1, 0, 2, 0, 1, 2, 0, 3, 1, 0}};
  test::Rng rng(1602);
  int failures = 0, out_of_room = 0;
  for (int trial = 0; trial < 150; ++trial) {
    const auto& comp = patterns[size_t(rng.Uniform(0, int64_t(patterns.size()) - 1))];
    const int nb = int(comp.size());
    const int nmcus = int(rng.Uniform(1, 300));
    const int ri = rng.Uniform(0, 1) ? 0 : int(rng.Uniform(1, 40));
    const std::vector<int16_t> blocks = MakeBlocks(rng, comp, nmcus, trial % 3 == 0);
    Session s;
    // Room for everything, or a cut somewhere in the scan.
    const int ample = nmcus * nb * 600 + 64;
    s.bytes.resize(size_t(trial % 4 == 1 ? rng.Uniform(1, std::min(ample, nmcus * nb * 40 + 600))
                                         : ample));
    for (auto& b : s.bytes) b = uint8_t(rng.Uniform(0, 255));
    s.pos = int(rng.Uniform(0, std::min<int64_t>(5, int64_t(s.bytes.size()) - 1)));
    if (trial % 5 == 2) {
      s.st.acc = uint64_t(rng.Uniform(0, int64_t(1) << 40));
      s.st.count = int(rng.Uniform(-3, 40));
    }
    for (int m = 0; m < nmcus;) {
      if (ri && m > 0 && m % ri == 0) {
        rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, s.bytes.data(), int(s.bytes.size()), &s.pos,
                                           nullptr, nullptr, nullptr, &s.st, 1);
        if (s.pos + 2 > int(s.bytes.size())) break;
        s.bytes[size_t(s.pos++)] = 0xFF;
        s.bytes[size_t(s.pos++)] = uint8_t(0xD0 + (m / ri - 1) % 8);
        std::memset(s.dc, 0, sizeof s.dc);
      }
      int n = int(rng.Uniform(1, 80));
      if (ri) n = std::min(n, ri - m % ri);
      n = std::min(n, nmcus - m);
      const int16_t* from = &blocks[size_t(m) * nb * 64];
      Session want = s;
      ByBlocks(want, from, n, comp);
      for (const auto& t : test::AllTargets(kRun)) {
        Session got = s;
        ByRun(t.fn, got, from, n, comp);
        ASSERT_TRUE(Same(want, got)) << t.name << ", trial " << trial << ", MCU " << m;
      }
      s = want;
      if (s.status != rvtStatusOk) {
        ++(s.status == rvtStatusOutOfBuffer ? out_of_room : failures);
        break;
      }
      m += n;
    }
  }
  // Both ways of failing were reached.
  EXPECT_GT(failures, 10);
  EXPECT_GT(out_of_room, 10);
}

// Long runs resolve small AC values through per-call symbol tables built
// from the AC specs: hand-edited specs (symbols of small values without a
// code, lengths outside 1..16, bits above the length) must still code as
// the block encoder does, failing at the same block with the same bytes.
TEST(HuffmanEncodeBlocks, LongRunsWithHandEditedTablesCodeAsTheBlockEncoder) {
  const std::vector<int> comp = {0, 0, 1, 2};
  test::Rng rng(1604);
  for (int trial = 0; trial < 40; ++trial) {
    EncodeHuffmanSpec ac[4] = {*TheTables().pac[0], *TheTables().pac[1], *TheTables().pac[1],
                               *TheTables().pac[3]};
    const EncodeHuffmanSpec* pac[4] = {&ac[0], &ac[1], &ac[2], &ac[3]};
    for (int t = 0; t < 3; ++t) {
      for (int e = 0; e < 6; ++e) {
        const int sym = int(rng.Uniform(0, 15)) * 16 + int(rng.Uniform(1, 6));
        uint32_t& entry = ac[t].entry[sym];
        switch (trial % 4) {
          case 0: entry = 0; break;                                             // no code
          case 1: entry |= uint32_t(rng.Uniform(1, 0xFFFF)) & 0xFFFF; break;    // stray code bits
          case 2: entry = (entry & 0xFFFF) | uint32_t(rng.Uniform(17, 255)) << 16; break;
          default: break;  // as built
        }
      }
    }
    const int nmcus = int(rng.Uniform(12, 200));
    const std::vector<int16_t> blocks = MakeBlocks(rng, comp, nmcus, false);
    Session want;
    want.bytes.resize(size_t(nmcus) * comp.size() * 600 + 64);
    const auto ref = test::Reference(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1);
    want.done = 0;
    for (int i = 0; i < nmcus * int(comp.size()); ++i) {
      const int c = comp[size_t(i) % comp.size()];
      want.status = ref(&blocks[size_t(i) * 64], want.bytes.data(), int(want.bytes.size()),
                        &want.pos, &want.dc[c], TheTables().pdc[c], pac[c], &want.st, 0);
      if (want.status != rvtStatusOk) break;
      ++want.done;
    }
    if (trial % 4 == 0 || trial % 4 == 2) EXPECT_NE(want.status, rvtStatusOk) << trial;
    for (const auto& t : test::AllTargets(kRun)) {
      Session got;
      got.bytes.resize(want.bytes.size());
      got.status = t.fn(blocks.data(), got.bytes.data(), int(got.bytes.size()), &got.pos, nmcus,
                        comp.data(), int(comp.size()), got.dc, TheTables().pdc, pac, &got.st,
                        &got.done);
      ASSERT_TRUE(Same(want, got)) << t.name << ", trial " << trial;
    }
  }
}

TEST(HuffmanEncodeBlocks, ChecksInArgumentOrderAndWritesNothing) {
  const int comp[2] = {0, 1};
  const int bad_comp[2] = {0, 4};
  const auto* dcs = TheTables().pdc;
  const auto* acs = TheTables().pac;
  const EncodeHuffmanSpec* const partial[4] = {dcs[0], nullptr, nullptr, nullptr};
  const std::vector<int16_t> blk(128, 3);
  for (const auto& t : test::AllTargets(kRun)) {
    std::vector<uint8_t> dst(64, 0x5A);
    int pos = 0, nd = 7;
    int16_t dc[4] = {1, 2, 3, 4};
    EncodeHuffmanState st = test::FreshEncodeState();
    const auto call = [&](const int16_t* s, uint8_t* d, int len, int* p, int nm, const int* cp,
                          int nb, const EncodeHuffmanSpec* const* dt,
                          const EncodeHuffmanSpec* const* at, int* n) {
      return t.fn(s, d, len, p, nm, cp, nb, dc, dt, at, &st, n);
    };
    EXPECT_EQ(call(nullptr, nullptr, 0, &pos, 1, comp, 2, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), nullptr, 0, &pos, 1, comp, 2, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), dst.data(), 0, nullptr, 1, comp, 2, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, nullptr, 0, comp, 2, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 0, nullptr, 2, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, nullptr, 0, dcs, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, comp, 11, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1 << 25, comp, 2, dcs, acs, &nd), rvtStatusSize);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, bad_comp, 2, nullptr, acs, &nd), rvtStatusBadArg);
    EXPECT_EQ(t.fn(blk.data(), dst.data(), 64, &pos, 1, comp, 2, nullptr, dcs, acs, &st, &nd),
              rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, comp, 2, partial, acs, &nd), rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, comp, 1, partial, nullptr, &nd), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(blk.data(), dst.data(), 64, &pos, 1, comp, 1, dc, partial, acs, nullptr, &nd),
              rvtStatusNullPtr);
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, comp, 1, partial, acs, nullptr), rvtStatusNullPtr);
    pos = -1;
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 1, comp, 2, dcs, acs, &nd), rvtStatusBadArg);
    EXPECT_EQ(dst, std::vector<uint8_t>(64, 0x5A)) << t.name;
    EXPECT_EQ(nd, 7);
    EXPECT_EQ(dc[0], 1);
    EXPECT_EQ(st.count, 0);
    // Tables only for the components named.
    pos = 0;
    EXPECT_EQ(call(blk.data(), dst.data(), 64, &pos, 2, comp, 1, partial, acs, &nd), rvtStatusOk);
    EXPECT_EQ(nd, 2);
    EXPECT_GT(pos, 0);
  }
}

void Put16(std::vector<uint8_t>& o, int v) {
  o.push_back(uint8_t(v >> 8));
  o.push_back(uint8_t(v));
}

// A 4:4:4 baseline JPEG around photo blocks, its scan written by run calls
// of random length (one restart interval at a time when `ri`), read back by
// libjpeg.
TEST(HuffmanEncodeBlocks, LibjpegReadsWhatRunsEncode) {
  const int wb = 40, hb = 12, nmcus = wb * hb;
  const std::vector<int> comp = {0, 1, 2};
  test::Rng rng(1603);
  const std::vector<int16_t> blocks = MakeBlocks(rng, comp, nmcus, false);
  const test::HuffTable dc[2] = {test::LumaDc(), test::ChromaDc()};
  const test::HuffTable ac[2] = {test::LumaAc(), test::ChromaAc()};
  for (const int ri : {0, 7}) {
    for (const auto& t : test::AllTargets(kRun)) {
      std::vector<uint8_t> o = {0xFF, 0xD8, 0xFF, 0xDB};
      Put16(o, 67);
      o.push_back(0);
      o.insert(o.end(), 64, 1);
      o.insert(o.end(), {0xFF, 0xC0});
      Put16(o, 17);
      o.push_back(8);
      Put16(o, hb * 8);
      Put16(o, wb * 8);
      o.insert(o.end(), {3, 1, 0x11, 0, 2, 0x11, 0, 3, 0x11, 0});
      for (int k = 0; k < 2; ++k) {
        std::vector<uint8_t> seg;
        for (const auto* tab : {&dc[k], &ac[k]}) {
          seg.push_back(uint8_t((tab == &ac[k] ? 0x10 : 0) | k));
          seg.insert(seg.end(), tab->bits, tab->bits + 16);
          seg.insert(seg.end(), tab->vals.begin(), tab->vals.end());
        }
        o.insert(o.end(), {0xFF, 0xC4});
        Put16(o, int(seg.size()) + 2);
        o.insert(o.end(), seg.begin(), seg.end());
      }
      if (ri) {
        o.insert(o.end(), {0xFF, 0xDD, 0, 4});
        Put16(o, ri);
      }
      o.insert(o.end(), {0xFF, 0xDA, 0, 12, 3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});
      Session s;
      s.bytes.resize(size_t(nmcus) * 3 * 300);
      for (int m = 0; m < nmcus;) {
        if (ri && m > 0 && m % ri == 0) {
          ASSERT_EQ(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, s.bytes.data(), int(s.bytes.size()),
                                                       &s.pos, nullptr, nullptr, nullptr, &s.st, 1),
                    rvtStatusOk);
          s.bytes[size_t(s.pos++)] = 0xFF;
          s.bytes[size_t(s.pos++)] = uint8_t(0xD0 + (m / ri - 1) % 8);
          std::memset(s.dc, 0, sizeof s.dc);
        }
        int n = int(rng.Uniform(1, 100));
        if (ri) n = std::min(n, ri - m % ri);
        n = std::min(n, nmcus - m);
        ByRun(t.fn, s, &blocks[size_t(m) * 3 * 64], n, comp);
        ASSERT_EQ(s.status, rvtStatusOk) << t.name;
        m += n;
      }
      ASSERT_EQ(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, s.bytes.data(), int(s.bytes.size()),
                                                   &s.pos, nullptr, nullptr, nullptr, &s.st, 1),
                rvtStatusOk);
      o.insert(o.end(), s.bytes.begin(), s.bytes.begin() + s.pos);
      o.insert(o.end(), {0xFF, 0xD9});
      const auto back = test::ReadCoefficients(o);
      ASSERT_TRUE(back.error.empty()) << t.name << ": " << back.error;
      ASSERT_EQ(back.planes.size(), 3u);
      for (int i = 0; i < nmcus * 3; ++i) {
        const auto& p = back.planes[size_t(i % 3)];
        const int mcu = i / 3;
        ASSERT_EQ(0, std::memcmp(p.block(mcu % wb, mcu / wb), &blocks[size_t(i) * 64], 128))
            << t.name << " restart " << ri << " block " << i;
      }
    }
  }
}

// The differential check: photo and extreme runs, some cut short.
std::vector<test::Case> RunCases(test::Rng& rng) {
  static const std::vector<std::vector<int>> patterns = {{0, 0, 0, 0, 1, 2}, {0, 1, 2}, {3}, {3, 0, 3}};
  std::vector<test::Case> out;
  for (int trial = 0; trial < 40; ++trial) {
    const auto& comp = patterns[size_t(trial) % patterns.size()];
    const int n = int(rng.Uniform(1, 150));
    const int nb = int(comp.size());
    const std::vector<int16_t> blocks = MakeBlocks(rng, comp, n, trial % 2 == 1);
    test::Case k;
    k.label = "trial " + std::to_string(trial);
    test::Buf src = test::ArrayOf<int16_t>(64 * n * nb);
    std::memcpy(src.as<int16_t>(), blocks.data(), blocks.size() * 2);
    test::Buf cp = test::ArrayOf<int>(nb);
    std::memcpy(cp.as<int>(), comp.data(), comp.size() * sizeof(int));
    k.in = {src, cp};
    const int len = trial % 5 == 4 ? int(rng.Uniform(1, 40 * n * nb)) : 600 * n * nb;
    test::Buf dst = test::ArrayOf<uint8_t>(len);
    std::memset(dst.as<uint8_t>(), 0xA5, size_t(len));
    test::Buf state = test::ArrayOf<EncodeHuffmanState>(1);
    *state.as<EncodeHuffmanState>() = test::FreshEncodeState();
    k.out = {dst, test::ArrayOf<int>(2), test::ArrayOf<int16_t>(4), state};
    std::memset(k.out[1].as<int>(), 0, 2 * sizeof(int));
    std::memset(k.out[2].as<int16_t>(), 0, 4 * sizeof(int16_t));
    k.arg[0] = n;
    out.push_back(std::move(k));
  }
  return out;
}

RVT_CHECKASM(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1,
             test::Cases{RunCases, [](auto fn, test::Case& k) {
                           int* misc = k.out[1].as<int>();  // position, blocks done
                           return fn(k.in[0].as<int16_t>(), k.out[0].as<uint8_t>(),
                                     k.out[0].plane.width(), &misc[0], int(k.arg[0]),
                                     k.in[1].as<int>(), k.in[1].plane.width() / int(sizeof(int)),
                                     k.out[2].as<int16_t>(), TheTables().pdc, TheTables().pac,
                                     k.out[3].as<EncodeHuffmanState>(), &misc[1]);
                         }});

}  // namespace
}  // namespace rvt
