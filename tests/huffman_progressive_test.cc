// Progressive coding and optimized tables: the optimal-table builder's
// known answers (ties, the reserved code, the length limit), the category
// limits of the statistics, the end-of-band run cap and the correction-bit
// rule driven to their limits with the statistics following the encoder
// block for block, a run that ends a restart interval decoding past the
// marker, and the registered differential checks of the vector forms.
// (libjpeg-turbo interop: progressive_codec_test.cc.)
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "checkasm.h"
#include "huffman_util.h"
#include "jpeg_oracle.h"
#include "rvtjp.h"

namespace rvt {
namespace {

struct RawTable {
  uint8_t bits[16] = {};
  uint8_t vals[256] = {};
  int n() const {
    int k = 0;
    for (uint8_t b : bits) k += b;
    return k;
  }
};

RawTable Build(const std::vector<int>& counts) {
  std::vector<int> c = counts;
  c.resize(257, 0);
  RawTable t;
  EXPECT_EQ(rvtiEncodeHuffmanRawTableInit_JPEG_8u(c.data(), t.bits, t.vals), rvtStatusOk);
  return t;
}

TEST(HuffmanOptimalTable, KnownAnswers) {
  // One symbol: the reserved code takes the other 1-bit code and leaves.
  std::vector<int> c(257, 0);
  c[0x42] = 7;
  RawTable t = Build(c);
  EXPECT_EQ(t.bits[0], 1);
  EXPECT_EQ(t.n(), 1);
  EXPECT_EQ(t.vals[0], 0x42);
  // Nothing counted: an empty table.
  EXPECT_EQ(Build(std::vector<int>(257, 0)).n(), 0);
  // Equal counts: the higher symbol merges first with the reserved one, so
  // the lower keeps the short code.
  c.assign(257, 0);
  c[3] = 5;
  c[7] = 5;
  t = Build(c);
  EXPECT_EQ(t.bits[0], 1);
  EXPECT_EQ(t.bits[1], 1);
  EXPECT_EQ(t.vals[0], 3);
  EXPECT_EQ(t.vals[1], 7);
  // The 257th counter is read and ignored; counts above 10^9 are never
  // merged (so they get no code).
  c[256] = 1000;
  c[9] = 1000000001;
  t = Build(c);
  EXPECT_EQ(t.n(), 2);
  // Check order: counts, bits, vals.
  uint8_t bits[16], vals[256];
  EXPECT_EQ(rvtiEncodeHuffmanRawTableInit_JPEG_8u(nullptr, nullptr, vals), rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanRawTableInit_JPEG_8u(c.data(), bits, nullptr), rvtStatusNullPtr);
}

TEST(HuffmanOptimalTable, LengthLimitKeepsAValidTable) {
  // Fibonacci counts make codes of up to 30 bits before the limit.
  std::vector<int> c(257, 0);
  int a = 1, b = 1;
  for (int s = 0; s < 30; ++s) {
    c[s] = a;
    const int next = a + b;
    a = b;
    b = next;
  }
  const RawTable t = Build(c);
  EXPECT_EQ(t.n(), 30);
  double kraft = 0;
  for (int i = 0; i < 16; ++i) kraft += t.bits[i] / double(1 << (i + 1));
  EXPECT_LT(kraft, 1.0);  // the reserved all-1 code stays free
  // vals ordered by the sizes from before the limit: the most frequent
  // symbols first, the rarest last.
  EXPECT_GE(t.vals[0], 28);
  EXPECT_LE(t.vals[29], 1);
  EncodeHuffmanSpec spec;
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &spec), rvtStatusOk);
}

TEST(HuffmanStatistics, CategoryLimitsDiffer) {
  int dc[257] = {}, ac[257] = {};
  int16_t block[64] = {};
  int16_t last = 0;
  // Baseline: DC up to 15, AC up to 14.
  block[0] = -16384;  // category 15
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(block, dc, ac, &last), rvtStatusOk);
  EXPECT_EQ(dc[15], 1);
  EXPECT_EQ(ac[0x00], 1);
  block[0] = 32767;  // difference 65535, category 16
  last = -32768;
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(block, dc, ac, &last), rvtStatusHuffData);
  EXPECT_EQ(last, 32767);  // the predictor moved on
  block[0] = 0;
  last = 0;
  block[1] = 16384;  // category 15
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(block, dc, ac, &last), rvtStatusHuffData);
  block[1] = 16383;
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(block, dc, ac, &last), rvtStatusOk);
  // DC first: 11; AC first statistics 10 while the encoder takes 11.
  block[1] = 0;
  block[0] = 2048;
  last = 0;
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(block, dc, &last, 0),
            rvtStatusHuffData);
  last = 0;
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(block, dc, &last, 1), rvtStatusOk);
  EXPECT_EQ(last, 1024);
  block[1] = 1024;  // category 11
  EncodeHuffmanState st = test::FreshEncodeState();
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(block, ac, 1, 63, 0, &st, 0),
            rvtStatusHuffData);
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(block, ac, 1, 63, 1, &st, 0),
            rvtStatusOk);
  std::vector<int> all(257, 1);
  const RawTable t = Build(all);
  EncodeHuffmanSpec spec;
  ASSERT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &spec), rvtStatusOk);
  std::vector<uint8_t> dst(256);
  int pos = 0;
  st = test::FreshEncodeState();
  EXPECT_EQ(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(block, dst.data(), 256, &pos, 1, 63, 0,
                                                       &spec, &st, 0),
            rvtStatusOk);
  block[1] = 2048;  // category 12
  EXPECT_EQ(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(block, dst.data(), 256, &pos, 1, 63, 0,
                                                       &spec, &st, 0),
            rvtStatusHuffData);
  // Band and point transform checks.
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(block, ac, 0, 63, 0, &st, 0),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(block, ac, 5, 4, 0, &st, 0),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(block, ac, 1, 63, 14, &st, 0),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(nullptr, ac, 0, 0, 99, &st, 1),
            rvtStatusOk);
}

// An AC table that codes every symbol.
EncodeHuffmanSpec FullAcSpec() {
  const RawTable t = Build(std::vector<int>(257, 1));
  EncodeHuffmanSpec spec;
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &spec), rvtStatusOk);
  return spec;
}

using AcEncFn = decltype(&rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1);
using AcStatFn = decltype(&rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1);

// Runs blocks through an AC encoder and its statistics side by side: the
// states' run and pending-bit count agree after every block, and the
// symbols counted are exactly those written (a table that drops any one
// counted symbol makes the encoder fail).  Returns the counts.
std::vector<int> EncodeAndCount(AcEncFn enc, AcStatFn stat, const std::vector<int16_t>& blocks,
                                int ss, int se, int al, std::vector<uint8_t>* out,
                                std::vector<uint32_t>* runs = nullptr) {
  const EncodeHuffmanSpec full = FullAcSpec();
  std::vector<int> counts(257, 0);
  EncodeHuffmanState es = test::FreshEncodeState(), ss_state = test::FreshEncodeState();
  out->assign(blocks.size() * 2 + 4096, 0);
  int pos = 0;
  const int n = int(blocks.size() / 64);
  for (int i = 0; i < n; ++i) {
    EXPECT_EQ(enc(&blocks[64 * i], out->data(), int(out->size()), &pos, ss, se, al, &full, &es, 0),
              rvtStatusOk);
    EXPECT_EQ(stat(&blocks[64 * i], counts.data(), ss, se, al, &ss_state, 0), rvtStatusOk);
    EXPECT_EQ(es.eobRun, ss_state.eobRun) << "block " << i;
    EXPECT_EQ(es.nCorr, ss_state.nCorr) << "block " << i;
    if (runs) runs->push_back(es.eobRun);
  }
  EXPECT_EQ(enc(nullptr, out->data(), int(out->size()), &pos, 0, 0, 0, &full, &es, 1), rvtStatusOk);
  EXPECT_EQ(stat(nullptr, counts.data(), 0, 0, 0, &ss_state, 1), rvtStatusOk);
  out->resize(size_t(pos));
  // The optimal table codes exactly the counted symbols; each is needed.
  const RawTable t = Build(counts);
  EncodeHuffmanSpec spec;
  EXPECT_EQ(rvtiEncodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &spec), rvtStatusOk);
  auto run_all = [&](const EncodeHuffmanSpec& sp) {
    EncodeHuffmanState s = test::FreshEncodeState();
    std::vector<uint8_t> o(out->size() + 4096);
    int p = 0;
    for (int i = 0; i < n; ++i) {
      const RvtResult r = enc(&blocks[64 * i], o.data(), int(o.size()), &p, ss, se, al, &sp, &s, 0);
      if (r != rvtStatusOk) return r;
    }
    return enc(nullptr, o.data(), int(o.size()), &p, 0, 0, 0, &sp, &s, 1);
  };
  EXPECT_EQ(run_all(spec), rvtStatusOk);
  for (int sym = 0; sym < 256; ++sym) {
    if (counts[size_t(sym)] == 0) continue;
    EncodeHuffmanSpec less = spec;
    less.entry[sym] = 0;
    EXPECT_EQ(run_all(less), rvtStatusHuffTable) << "symbol " << sym << " counted, not written";
  }
  return counts;
}

TEST(HuffmanProgressive, EobRunCapAt32767) {
  std::vector<int16_t> blocks(64 * 32768, 0);
  blocks[64 * 32767 + 1] = 5;  // the block after the cap has a coefficient
  std::vector<uint8_t> out;
  std::vector<uint32_t> runs;
  const auto c = EncodeAndCount(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1,
                                rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, blocks, 1, 63, 0,
                                &out, &runs);
  EXPECT_EQ(runs[32765], 32766u);
  EXPECT_EQ(runs[32766], 0u);  // emitted with the 32767th block
  EXPECT_EQ(c[0xE0], 1);
  EXPECT_EQ(c[0x03], 1);
  EXPECT_EQ(c[0x00], 1);  // the last block's own run, at the flush
  // The refinement coder caps the same way.
  const auto r = EncodeAndCount(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1,
                                rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, blocks, 1, 63, 2,
                                &out, &runs);
  EXPECT_EQ(r[0xE0], 1);
  EXPECT_EQ(r[0x01], 1);
}

TEST(HuffmanProgressive, CorrectionBitsForceTheRunOut) {
  // Every coefficient already significant: 63 correction bits per block,
  // no symbol, so the run grows until more than 937 bits pend (the 15th
  // block: 15 * 63 = 945).
  std::vector<int16_t> blocks(64 * 40);
  for (size_t i = 0; i < blocks.size(); ++i) blocks[i] = int16_t((i % 3 == 0 ? -1 : 1) * (6 + int(i % 5)));
  std::vector<uint8_t> out;
  std::vector<uint32_t> runs;
  const auto c = EncodeAndCount(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1,
                                rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, blocks, 1, 63, 1,
                                &out, &runs);
  EXPECT_EQ(runs[13], 14u);
  EXPECT_EQ(runs[14], 0u);
  EXPECT_EQ(runs[28], 14u);
  EXPECT_EQ(runs[29], 0u);
  EXPECT_EQ(runs[39], 10u);
  EXPECT_EQ(c[0x30], 3);  // two runs of 15, then one of 10 at the flush
  EXPECT_EQ(c[0x20] + c[0x10] + c[0x00], 0);
  // The decoder refines the same blocks back (bit 1 of every magnitude).
  DecodeHuffmanState ds = test::FreshDecodeState();
  const RawTable t = Build(std::vector<int>(257, 1));
  DecodeHuffmanSpec dspec;
  ASSERT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &dspec), rvtStatusOk);
  int pos = 0, marker = 0;
  for (int b = 0; b < 40; ++b) {
    int16_t blk[64];
    for (int k = 0; k < 64; ++k) {
      const int v = blocks[size_t(64 * b + k)];
      blk[k] = int16_t(v < 0 ? -((-v) >> 2 << 2) : v >> 2 << 2);
    }
    ASSERT_EQ(rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(out.data(), int(out.size()), &pos, blk,
                                                          &marker, 1, 63, 1, &dspec, &ds),
              rvtStatusOk);
    for (int k = 1; k < 64; ++k) {
      const int v = blocks[size_t(64 * b + k)];
      const int want = v < 0 ? -((-v) >> 1 << 1) : v >> 1 << 1;
      ASSERT_EQ(blk[k], want) << "block " << b << " k " << k;
    }
  }
}

TEST(HuffmanProgressive, RunEndingAnIntervalDecodesPastTheMarker) {
  // Three coded blocks then empty ones, flushed, and a restart marker: the
  // reader reads the marker ahead while the run's blocks still decode (the
  // run is not cleared by the marker).
  const EncodeHuffmanSpec full = FullAcSpec();
  const RawTable t = Build(std::vector<int>(257, 1));
  DecodeHuffmanSpec dspec;
  ASSERT_EQ(rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &dspec), rvtStatusOk);
  for (int refine = 0; refine < 2; ++refine) {
    std::vector<int16_t> blocks(64 * 8, 0);
    blocks[64 + 2] = -7;
    if (!refine) blocks[1] = 3;
    // Significant before the refinement: correction bits only.
    for (int i = 2; i < 8 && refine; ++i) blocks[size_t(64 * i + 1)] = 8;
    auto enc = refine ? rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1
                      : rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1;
    auto dec = refine ? rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1
                      : rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1;
    const int al = refine ? 2 : 0;
    std::vector<uint8_t> out(256);
    EncodeHuffmanState es = test::FreshEncodeState();
    int pos = 0;
    for (int i = 0; i < 8; ++i) {
      ASSERT_EQ(enc(&blocks[size_t(64 * i)], out.data(), 256, &pos, 1, 63, al, &full, &es, 0),
                rvtStatusOk);
    }
    ASSERT_EQ(enc(nullptr, out.data(), 256, &pos, 0, 0, 0, &full, &es, 1), rvtStatusOk);
    out[size_t(pos)] = 0xFF;
    out[size_t(pos) + 1] = 0xD0;
    out.resize(size_t(pos) + 2);
    DecodeHuffmanState ds = test::FreshDecodeState();
    int p = 0, marker = 0;
    for (int i = 0; i < 8; ++i) {
      int16_t blk[64] = {};
      if (refine && i >= 2) blk[1] = 8;
      ASSERT_EQ(dec(out.data(), int(out.size()), &p, blk, &marker, 1, 63, al, &dspec, &ds),
                rvtStatusOk)
          << "block " << i << " refine " << refine;
    }
    EXPECT_EQ(marker, 0xD0);
    EXPECT_EQ(ds.eobRun, 0u);
  }
}

// ------------------------------------------------------------ differential checks

template <class T>
test::Buf BufOf(const T* p, size_t n) {
  test::Buf b = test::ArrayOf<T>(int(n));
  std::memcpy(b.plane.data(), p, n * sizeof(T));
  return b;
}

// n blocks: sparse small values with runs of empty blocks, dense ones, or
// extremes.
std::vector<int16_t> SomeBlocks(test::Rng& rng, int n) {
  std::vector<int16_t> b(size_t(n) * 64, 0);
  const int kind = int(rng.Uniform(0, 3));
  for (int i = 0; i < n; ++i) {
    if (kind == 0 && rng.Uniform(0, 2) == 0) continue;  // empty band
    const int density = kind == 1 ? 1 : int(rng.Uniform(2, 12));
    for (int k = 0; k < 64; ++k) {
      if (rng.Uniform(0, density - 1) != 0) continue;
      int v = int(rng.Uniform(-40, 40));
      if (kind == 3 && rng.Uniform(0, 3) == 0) v = int(rng.Uniform(-32768, 32767));
      b[size_t(64 * i + k)] = int16_t(v);
    }
  }
  return b;
}

// 2000 luma blocks of a photo: the benchmark's case, last in each list.
const std::vector<int16_t>& PhotoRun() {
  static const std::vector<int16_t> run = [] {
    const test::Coefs c = test::ReadCoefficients(test::ReadFile(test::TestFile("rocket.jpg")));
    const auto& b = c.planes.at(0).blocks;
    return std::vector<int16_t>(b.begin(), b.begin() + 64 * 2000);
  }();
  return run;
}

EncodeHuffmanSpec SomeAcSpec(test::Rng& rng) {
  EncodeHuffmanSpec spec = FullAcSpec();
  const int how = int(rng.Uniform(0, 5));
  if (how == 1) {  // symbols without a code
    for (int i = int(rng.Uniform(1, 20)); i > 0; --i) spec.entry[rng.Uniform(0, 255)] = 0;
  } else if (how == 2) {  // bits outside the fields, lengths out of range
    for (int i = int(rng.Uniform(1, 30)); i > 0; --i) {
      spec.entry[rng.Uniform(0, 255)] ^= uint32_t(rng.Uniform(0, 0x7FFFFFFF));
    }
  }
  return spec;
}

EncodeHuffmanState SomeEncodeState(test::Rng& rng) {
  EncodeHuffmanState st = test::FreshEncodeState();
  const int how = int(rng.Uniform(0, 6));
  if (how == 1) st.eobRun = uint32_t(rng.Uniform(0, 40000));
  if (how == 2) {
    st.eobRun = uint32_t(rng.Uniform(1, 50));
    st.nCorr = uint32_t(rng.Uniform(0, 937));
    rng.Fill(st.corr, sizeof st.corr, uint8_t(0), uint8_t(1));
  }
  if (how == 3) rng.Fill(reinterpret_cast<uint8_t*>(&st), sizeof st, uint8_t(0), uint8_t(255));
  if (how == 4) st.eobRun = uint32_t(rng.Uniform(32700, 32766));
  st.count = int32_t(rng.Uniform(0, 7));
  st.acc = uint64_t(rng.Uniform(0, 0xFFFFFF));
  return st;
}

std::vector<test::Case> EncodeACCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int trial = 0; trial < 400; ++trial) {
    const int n = int(rng.Uniform(1, 40));
    const auto blocks = SomeBlocks(rng, n);
    const EncodeHuffmanSpec spec = SomeAcSpec(rng);
    const EncodeHuffmanState st = SomeEncodeState(rng);
    int ss = int(rng.Uniform(1, 63));
    int se = int(rng.Uniform(ss, 63));
    if (rng.Uniform(0, 2) == 0) ss = 1, se = 63;
    int al = int(rng.Uniform(0, 4));
    if (trial % 50 == 7) al = 14;  // refused
    const int room = 300 * n + 2048;
    const int len = rng.Uniform(0, 3) ? room : int(rng.Uniform(1, room / 8 + 2));
    test::Case k;
    k.label = "trial " + std::to_string(trial);
    k.in = {BufOf(blocks.data(), blocks.size()), BufOf(&spec, 1)};
    const int pos = 0;
    k.out = {test::ArrayOf<uint8_t>(len), BufOf(&pos, 1), BufOf(&st, 1)};
    k.arg[0] = ss, k.arg[1] = se, k.arg[2] = al, k.arg[3] = rng.Uniform(0, 3) != 0;
    out.push_back(std::move(k));
  }
  const EncodeHuffmanSpec full = FullAcSpec();
  const EncodeHuffmanState fresh = test::FreshEncodeState();
  const int pos = 0;
  test::Case k;
  k.label = "2000 photo blocks, band 1..63, Al 1";
  k.in = {BufOf(PhotoRun().data(), PhotoRun().size()), BufOf(&full, 1)};
  k.out = {test::ArrayOf<uint8_t>(300 * 2000), BufOf(&pos, 1), BufOf(&fresh, 1)};
  k.arg[0] = 1, k.arg[1] = 63, k.arg[2] = 1, k.arg[3] = 1;
  out.push_back(std::move(k));
  return out;
}

auto EncodeACCall = [](auto fn, test::Case& k) {
  const auto* b = k.in[0].as<int16_t>();
  const int n = k.in[0].plane.width() / 128;
  const auto* spec = k.in[1].as<EncodeHuffmanSpec>();
  uint8_t* dst = k.out[0].as<uint8_t>();
  const int len = k.out[0].plane.width();
  int* pos = k.out[1].as<int>();
  auto* st = k.out[2].as<EncodeHuffmanState>();
  const int ss = int(k.arg[0]), se = int(k.arg[1]), al = int(k.arg[2]);
  for (int i = 0; i < n; ++i) {
    const RvtResult r = fn(b + 64 * i, dst, len, pos, ss, se, al, spec, st, 0);
    if (r != rvtStatusOk) return r;
  }
  return k.arg[3] ? fn(nullptr, dst, len, pos, 0, 0, 0, spec, st, 1) : rvtStatusOk;
};

RVT_CHECKASM(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1, test::Cases{EncodeACCases, EncodeACCall});
RVT_CHECKASM(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1, test::Cases{EncodeACCases, EncodeACCall});

// Refinement decoder cases: streams the reference encoder wrote (cut now
// and then, a marker after them) or noise; blocks holding the earlier
// scans' values.
template <bool kRefine>
std::vector<test::Case> DecodeACCases(test::Rng& rng) {
  const auto& enc = kRefine ? impl_rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1
                            : impl_rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1;
  const EncodeHuffmanSpec full = FullAcSpec();
  const RawTable t = Build(std::vector<int>(257, 1));
  DecodeHuffmanSpec dspec;
  rvtiDecodeHuffmanSpecInit_JPEG_8u(t.bits, t.vals, &dspec);
  std::vector<test::Case> out;
  for (int trial = 0; trial < 400; ++trial) {
    const int n = int(rng.Uniform(1, 40));
    // More blocks coded than decoded, so that most blocks start far enough
    // from the end for the vector forms to take them.
    const int coded = n + int(rng.Uniform(0, 1) ? rng.Uniform(0, 60) : 0);
    const auto all = SomeBlocks(rng, coded);
    const std::vector<int16_t> blocks(all.begin(), all.begin() + 64 * n);
    int ss = int(rng.Uniform(1, 63));
    int se = int(rng.Uniform(ss, 63));
    if (rng.Uniform(0, 2) == 0) ss = 1, se = 63;
    const int al = int(rng.Uniform(0, 3));
    std::vector<uint8_t> src;
    if (rng.Uniform(0, 4)) {
      src.assign(size_t(400 * coded + 1024), 0);
      EncodeHuffmanState st = test::FreshEncodeState();
      int pos = 0;
      for (int i = 0; i < coded; ++i) {
        test::Reference(enc)(&all[size_t(64 * i)], src.data(), int(src.size()), &pos, ss, se, al,
                             &full, &st, 0);
      }
      test::Reference(enc)(nullptr, src.data(), int(src.size()), &pos, 0, 0, 0, &full, &st, 1);
      src.resize(size_t(pos));
      src.push_back(0xFF);
      src.push_back(0xD0);
      if (rng.Uniform(0, 4) == 0) src.resize(size_t(rng.Uniform(1, int64_t(src.size()))));
    } else {
      src.resize(size_t(rng.Uniform(1, 2000)));
      rng.Fill(src.data(), src.size(), uint8_t(0), uint8_t(255));
    }
    // The coefficients before this scan: bits below al + 1 cleared (a
    // first scan finds zeros, or anything).
    std::vector<int16_t> prior(blocks.size(), 0);
    for (size_t i = 0; i < blocks.size(); ++i) {
      const int v = blocks[i], m = (v < 0 ? -v : v) >> (al + 1) << (al + 1);
      if (kRefine) prior[i] = int16_t(v < 0 ? -m : m);
    }
    if (!kRefine && rng.Uniform(0, 3) == 0) {
      rng.Fill(prior.data(), prior.size(), int16_t(-100), int16_t(100));
    }
    DecodeHuffmanState st = test::FreshDecodeState();
    if (rng.Uniform(0, 5) == 0) st.eobRun = uint32_t(rng.Uniform(0, 100));
    const int pos = 0, marker = rng.Uniform(0, 9) ? 0 : 0xD1;
    test::Case k;
    k.label = "trial " + std::to_string(trial);
    k.in = {BufOf(src.data(), src.size()), BufOf(&dspec, 1)};
    k.out = {BufOf(prior.data(), prior.size()), BufOf(&pos, 1), BufOf(&marker, 1), BufOf(&st, 1)};
    k.arg[0] = ss, k.arg[1] = se, k.arg[2] = al;
    out.push_back(std::move(k));
  }
  // The benchmark's case: a photo's band 1..63 at Al 1 (the refinement
  // restores bit 0 of what a first scan at Al 1 left).
  const auto& photo = PhotoRun();
  const int al = kRefine ? 0 : 1;
  std::vector<uint8_t> src(300 * 2000, 0);
  EncodeHuffmanState est = test::FreshEncodeState();
  int epos = 0;
  for (int i = 0; i < 2000; ++i) {
    test::Reference(enc)(&photo[size_t(64 * i)], src.data(), int(src.size()), &epos, 1, 63, al,
                         &full, &est, 0);
  }
  test::Reference(enc)(nullptr, src.data(), int(src.size()), &epos, 0, 0, 0, &full, &est, 1);
  src.resize(size_t(epos));
  std::vector<int16_t> prior(photo.size(), 0);
  for (size_t i = 0; i < photo.size() && kRefine; ++i) {
    const int v = photo[i], m = (v < 0 ? -v : v) >> 1 << 1;
    prior[i] = int16_t(v < 0 ? -m : m);
  }
  const DecodeHuffmanState st = test::FreshDecodeState();
  const int pos = 0, marker = 0;
  test::Case k;
  k.label = "2000 photo blocks";
  k.in = {BufOf(src.data(), src.size()), BufOf(&dspec, 1)};
  k.out = {BufOf(prior.data(), prior.size()), BufOf(&pos, 1), BufOf(&marker, 1), BufOf(&st, 1)};
  k.arg[0] = 1, k.arg[1] = 63, k.arg[2] = al;
  out.push_back(std::move(k));
  return out;
}

auto DecodeACCall = [](auto fn, test::Case& k) {
  const uint8_t* src = k.in[0].as<uint8_t>();
  const int len = k.in[0].plane.width();
  const auto* spec = k.in[1].as<DecodeHuffmanSpec>();
  int16_t* b = k.out[0].as<int16_t>();
  const int n = k.out[0].plane.width() / 128;
  int* pos = k.out[1].as<int>();
  int* marker = k.out[2].as<int>();
  auto* st = k.out[3].as<DecodeHuffmanState>();
  const int ss = int(k.arg[0]), se = int(k.arg[1]), al = int(k.arg[2]);
  for (int i = 0; i < n; ++i) {
    const RvtResult r = fn(src, len, pos, b + 64 * i, marker, ss, se, al, spec, st);
    if (r != rvtStatusOk) return r;
  }
  return rvtStatusOk;
};

RVT_CHECKASM(rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1, test::Cases{DecodeACCases<false>, DecodeACCall});
RVT_CHECKASM(rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1, test::Cases{DecodeACCases<true>, DecodeACCall});


// Statistics: the same blocks, bands and states as the encoders'.
std::vector<test::Case> StatsACCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (test::Case& e : EncodeACCases(rng)) {
    test::Case k;
    k.label = e.label;
    std::vector<int> counts(257, 0);
    k.in = {e.in[0]};
    k.out = {BufOf(counts.data(), counts.size()), e.out[2]};
    for (int i = 0; i < 4; ++i) k.arg[i] = e.arg[i];
    out.push_back(std::move(k));
  }
  return out;
}

auto StatsACCall = [](auto fn, test::Case& k) {
  const auto* b = k.in[0].as<int16_t>();
  const int n = k.in[0].plane.width() / 128;
  int* counts = k.out[0].as<int>();
  auto* st = k.out[1].as<EncodeHuffmanState>();
  const int ss = int(k.arg[0]), se = int(k.arg[1]), al = int(k.arg[2]);
  for (int i = 0; i < n; ++i) {
    const RvtResult r = fn(b + 64 * i, counts, ss, se, al, st, 0);
    if (r != rvtStatusOk) return r;
  }
  return k.arg[3] ? fn(nullptr, counts, 0, 0, 0, st, 1) : rvtStatusOk;
};

RVT_CHECKASM(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, test::Cases{StatsACCases, StatsACCall});
RVT_CHECKASM(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, test::Cases{StatsACCases, StatsACCall});

RVT_CHECKASM(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1,
             test::Cases{[](test::Rng& rng) {
                           std::vector<test::Case> out;
                           for (int trial = 0; trial < 300; ++trial) {
                             const auto blocks = SomeBlocks(rng, int(rng.Uniform(1, 40)));
                             std::vector<int> counts(257, 0);
                             const int16_t last = int16_t(rng.Uniform(-32768, 32767));
                             test::Case k;
                             k.label = "trial " + std::to_string(trial);
                             k.in = {BufOf(blocks.data(), blocks.size())};
                             k.out = {BufOf(counts.data(), counts.size()),
                                      BufOf(counts.data(), counts.size()), BufOf(&last, 1)};
                             out.push_back(std::move(k));
                           }
                           return out;
                         },
                         [](auto fn, test::Case& k) {
                           const auto* b = k.in[0].as<int16_t>();
                           const int n = k.in[0].plane.width() / 128;
                           for (int i = 0; i < n; ++i) {
                             const RvtResult r = fn(b + 64 * i, k.out[0].as<int>(),
                                                    k.out[1].as<int>(), k.out[2].as<int16_t>());
                             if (r != rvtStatusOk) return r;
                           }
                           return rvtStatusOk;
                         }});

}  // namespace
}  // namespace rvt
