// JPEG XR coefficient coding: the code tables and the table adaptation
// against jxrlib's adaptive-Huffman routines, the model-bit adaptation
// against jxrlib's, round trips of whole tiles in spatial and frequency
// order (trimmed flexbits included) for every colour format, the known
// corner cases of the codes, the check order with nothing written, and
// the decoders' fast forms against the references.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "checkasm.h"
#include "jpegxr/vlc.h"

// jxrlib's adaptive-Huffman object and model (libjpegxr exports the
// routines; its installed headers do not declare them).
extern "C" {
struct JxrHuff {
  int symbols;
  const int* table;  // symbols, then (code, length) per symbol
  const int* delta;
  const int* delta1;
  int tableIndex;
  const short* dec;
  int initialized;
  int disc, disc1, upper, lower;
};
JxrHuff* Allocate(int symbols, int mode);
void Clean(JxrHuff* h);
void AdaptDiscriminant(JxrHuff* h);
struct JxrModel {
  int state[2];
  int bits[2];
  int band;  // 1 DC, 2 LP, 3 HP
};
void UpdateModelMB(int format, int channels, int* laplacianMean, JxrModel* m);
}

namespace rvt {
namespace {

using vlc::State;

constexpr int kDecoderMode = 1;

struct Jxr {
  JxrHuff* h;
  explicit Jxr(int n) : h(Allocate(n, kDecoderMode)) {}
  ~Jxr() { Clean(h); }
};

// A slot of our context for each adaptive alphabet.
struct SlotOf {
  int symbols, slot, format;
};
constexpr SlotOf kSlotsByAlphabet[] = {{5, vlc::kRun, 0},  {6, vlc::kLpFirst + 1, 0},
                                       {7, vlc::kDcLevelLum, 0}, {8, vlc::kDcYuv, 3},
                                       {9, vlc::kNumBlkCbp, 3}, {12, vlc::kHpFirst + 3, 0}};

TEST(JpegXrVlc, CodeTablesAreJxrlibs) {
  const int sizes[] = {4, 5, 6, 7, 8, 9, 12};
  for (int n : sizes) {
    const vlc::Alphabet& a = vlc::AlphabetOf(n);
    Jxr j(n);
    for (int t = 0; t < a.tables; ++t) {
      j.h->initialized = 1;
      j.h->tableIndex = t;
      j.h->disc = j.h->disc1 = 0;
      j.h->lower = -1000;
      j.h->upper = 1000;
      AdaptDiscriminant(j.h);
      ASSERT_EQ(j.h->tableIndex, t);
      ASSERT_EQ(j.h->table[0], n);
      for (int s = 0; s < n; ++s) {
        EXPECT_EQ(a.code[t][s].code, j.h->table[1 + 2 * s]) << n << " symbols, table " << t << ", symbol " << s;
        EXPECT_EQ(a.code[t][s].len, j.h->table[2 + 2 * s]) << n << " symbols, table " << t << ", symbol " << s;
      }
    }
  }
}

// Random symbols, drawn with a bias that drifts so the tables travel up
// and down, drive our context and jxrlib's object; after each adaptation
// point both hold the same table and discriminants.
TEST(JpegXrVlc, TableAdaptationFollowsJxrlib) {
  test::Rng rng(20);
  for (const SlotOf& so : kSlotsByAlphabet) {
    for (int trial = 0; trial < 40; ++trial) {
      Jxr j(so.symbols);
      j.h->initialized = 0;
      AdaptDiscriminant(j.h);
      State s;
      vlc::InitState(s, so.format, so.format == 3 ? 3 : 1);
      ASSERT_EQ(s.table[so.slot], j.h->tableIndex) << so.symbols;
      int favour = int(rng.Uniform(0, so.symbols - 1));
      for (int step = 0; step < 400; ++step) {
        if (rng.Uniform(0, 50) == 0) favour = int(rng.Uniform(0, so.symbols - 1));
        const int sym = rng.Uniform(0, 2) ? favour : int(rng.Uniform(0, so.symbols - 1));
        if (j.h->delta) j.h->disc += j.h->delta[sym];
        if (j.h->delta1 && (so.symbols == 6 || so.symbols == 12)) j.h->disc1 += j.h->delta1[sym];
        vlc::Account(s, so.slot, sym);
        if (rng.Uniform(0, 15) == 0) {
          AdaptDiscriminant(j.h);
          vlc::AdaptSlot(s, so.slot);
          ASSERT_EQ(s.table[so.slot], j.h->tableIndex) << so.symbols << " symbols, step " << step;
          ASSERT_EQ(s.disc[so.slot], j.h->disc) << so.symbols << " symbols, step " << step;
          if (so.symbols == 6 || so.symbols == 12) ASSERT_EQ(s.disc1[so.slot], j.h->disc1);
        }
      }
    }
  }
}

TEST(JpegXrVlc, ModelBitsFollowJxrlib) {
  test::Rng rng(21);
  const int formats[][2] = {{0, 1}, {1, 3}, {2, 3}, {3, 3}, {4, 4}, {6, 1}, {6, 2}, {6, 7}, {6, 16}};
  for (const auto& f : formats) {
    for (int band = 0; band < 3; ++band) {
      State s;
      vlc::InitState(s, f[0], f[1]);
      JxrModel m{{0, 0}, {vlc::kModelStart[band], vlc::kModelStart[band]}, band + 1};
      for (int mb = 0; mb < 300; ++mb) {
        const int hi = mb % 100 < 50 ? 4 : 300;
        int lm[2] = {int(rng.Uniform(0, hi)), int(rng.Uniform(0, hi))};
        vlc::UpdateModel(s, band, lm[0], lm[1]);
        UpdateModelMB(f[0], f[1], lm, &m);
        for (int c = 0; c < 2; ++c) {
          ASSERT_EQ(s.modelBits[band][c], m.bits[c]) << "format " << f[0] << " band " << band << " mb " << mb;
          ASSERT_EQ(s.modelState[band][c], m.state[c]) << "format " << f[0] << " band " << band;
          ASSERT_GE(s.modelBits[band][c], 0);
          ASSERT_LE(s.modelBits[band][c], 15);
        }
      }
    }
  }
}

// ------------------------------------------------------------ round trips

struct Format {
  int format, channels;
};
constexpr Format kFormats[] = {{0, 1}, {1, 3}, {2, 3}, {3, 3}, {4, 4}, {6, 2}, {6, 16}};

std::vector<uint8_t> NewState(int format, int channels) {
  int32_t size = 0;
  EXPECT_EQ(rvtiVLCGetStateSize_JPEGXR(format, channels, &size), rvtStatusOk);
  std::vector<uint8_t> st(size_t(size), 0);
  EXPECT_EQ(rvtiVLCInit_JPEGXR(format, channels, reinterpret_cast<VLCState_JPEGXR*>(st.data()), size),
            rvtStatusOk);
  return st;
}
VLCState_JPEGXR* S(std::vector<uint8_t>& st) { return reinterpret_cast<VLCState_JPEGXR*>(st.data()); }

// A value of a sparse, mostly small distribution with rare huge ones.
int32_t Coefficient(test::Rng& rng, int scale) {
  const int r = int(rng.Uniform(0, 99));
  int32_t v = 0;
  if (r < 55) v = 0;
  else if (r < 85) v = int32_t(rng.Uniform(1, 3));
  else if (r < 98) v = int32_t(rng.Uniform(1, 40 * scale));
  else v = int32_t(rng.Uniform(1, 1 << 26));
  return rng.Uniform(0, 1) ? -v : v;
}

struct Mb {
  std::vector<int32_t> dclp, hp;
};

Mb RandomMb(test::Rng& rng, int channels, int density) {
  Mb m{std::vector<int32_t>(16 * size_t(channels)), std::vector<int32_t>(256 * size_t(channels))};
  for (auto& v : m.dclp) v = Coefficient(rng, 8);
  for (auto& v : m.hp) v = rng.Uniform(0, 3) < density ? Coefficient(rng, 1) : 0;
  for (int c = 0; c < channels; ++c) {
    for (int b = 0; b < 16; ++b) m.hp[256 * c + 16 * b] = 0;
  }
  return m;
}

// What a decoder gives back of v coded with `bits` model bits of which the
// lowest `trim` were dropped.
int32_t Trimmed(int32_t v, int bits, int trim) {
  const int t = trim < bits ? trim : bits;
  const uint32_t m = vlc::Mag(v) & ~((1u << t) - 1u);
  return int32_t(v < 0 ? 0u - m : m);
}

// Codes a tile of w x h macroblocks, spatial (one stream) or frequency
// order (DC, LP, HP and flexbits streams), and decodes it back.
void RoundTrip(const Format& f, int w, int h, bool frequency, int trim, int density, test::Rng& rng) {
  const int nc = f.channels;
  std::vector<Mb> mbs;
  for (int i = 0; i < w * h; ++i) mbs.push_back(RandomMb(rng, nc, density));
  std::vector<int> scans;
  for (int i = 0; i < w * h; ++i) scans.push_back(int(rng.Uniform(0, 1)));
  const int32_t len = 1 << 22;
  std::vector<uint8_t> bufs[4];
  for (auto& b : bufs) b.assign(size_t(len), 0xA5);
  int32_t pos[4] = {0, 0, 0, 0};
  auto stream = [&](int band) { return frequency ? band : 0; };
  std::vector<uint8_t> enc = NewState(f.format, nc);
  std::vector<std::vector<int32_t>> cbps, bits;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const Mb& m = mbs[size_t(y * w + x)];
      if ((x & 15) == 0) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(enc), 24), rvtStatusOk);
      int32_t tables[22], disc[44], mbits[6];
      ASSERT_EQ(rvtiVLCGetTables_JPEGXR(S(enc), tables, disc, mbits), rvtStatusOk);
      bits.emplace_back(mbits, mbits + 6);
      const int a = stream(0), b = stream(1), c = stream(2);
      ASSERT_EQ(rvtiVLCEncodeDC_JPEGXR_32s1u(m.dclp.data(), S(enc), bufs[a].data(), len, &pos[a]), rvtStatusOk);
      ASSERT_EQ(rvtiVLCEncodeLP_JPEGXR_32s1u(m.dclp.data(), S(enc), bufs[b].data(), len, &pos[b]), rvtStatusOk);
      std::vector<int32_t> cbp(static_cast<size_t>(nc));
      ASSERT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), scans[size_t(y * w + x)], S(enc), cbp.data(),
                                             bufs[c].data(), len, &pos[c], frequency ? bufs[3].data() : nullptr,
                                             len, &pos[3], trim),
                rvtStatusOk);
      cbps.push_back(cbp);
      if ((x & 15) == 0 || x == w - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(enc), 7), rvtStatusOk);
    }
  }
  std::vector<uint8_t> dec = NewState(f.format, nc);
  int32_t rpos[4] = {0, 0, 0, 0};
  std::vector<int32_t> dclp(16 * size_t(nc)), hp(256 * size_t(nc));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const size_t i = size_t(y * w + x);
      const Mb& m = mbs[i];
      if ((x & 15) == 0) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(dec), 24), rvtStatusOk);
      const int a = stream(0), b = stream(1), c = stream(2);
      ASSERT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(bufs[a].data(), pos[a] / 8 + 1, &rpos[a], S(dec), dclp.data()),
                rvtStatusOk);
      ASSERT_EQ(rvtiVLCDecodeLP_JPEGXR_1u32s(bufs[b].data(), pos[b] / 8 + 1, &rpos[b], S(dec), dclp.data()),
                rvtStatusOk);
      ASSERT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(bufs[c].data(), pos[c] / 8 + 1, &rpos[c],
                                             frequency ? bufs[3].data() : nullptr, pos[3] / 8 + 1, &rpos[3], trim,
                                             scans[i], cbps[i].data(), S(dec), hp.data()),
                rvtStatusOk);
      for (int ch = 0; ch < nc; ++ch) {
        const int lp = vlc::LpCount(*reinterpret_cast<State*>(dec.data()), ch);
        for (int k = 0; k < lp; ++k) {
          ASSERT_EQ(dclp[size_t(16 * ch + k)], m.dclp[size_t(16 * ch + k)])
              << "format " << f.format << " mb " << i << " channel " << ch << " k " << k;
        }
        for (int bl = 0; bl < lp; ++bl) {
          for (int k = 1; k < 16; ++k) {
            const size_t at = size_t(256 * ch + 16 * bl + k);
            ASSERT_EQ(hp[at], Trimmed(m.hp[at], bits[i][4 + (ch > 0)], trim))
                << "format " << f.format << " mb " << i << " channel " << ch << " block " << bl << " k " << k;
          }
        }
      }
      if ((x & 15) == 0 || x == w - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(dec), 7), rvtStatusOk);
    }
  }
  for (int k = 0; k < 4; ++k) EXPECT_EQ(rpos[k], pos[k]) << "stream " << k;
  EXPECT_EQ(enc, dec);
}

TEST(JpegXrVlc, TilesRoundTripInEveryFormatAndOrder) {
  test::Rng rng(22);
  for (const Format& f : kFormats) {
    const int w = f.channels > 4 ? 5 : 35;
    RoundTrip(f, w, 2, false, 0, 1, rng);
    RoundTrip(f, w, 2, true, 0, 3, rng);
    RoundTrip(f, w, 1, true, 3, 2, rng);
    if (HasFatalFailure()) return;
  }
}

// Streams of every density move the model bits of all bands through
// their whole range and the tables both ways.
TEST(JpegXrVlc, ModelBitsAndTablesMoveAndStayInRange) {
  test::Rng rng(23);
  RoundTrip({3, 3}, 48, 3, true, 0, 4, rng);
  RoundTrip({0, 1}, 64, 2, false, 2, 0, rng);
  std::vector<uint8_t> st = NewState(0, 1);
  int32_t tables[22], disc[44], bits[6];
  ASSERT_EQ(rvtiVLCGetTables_JPEGXR(S(st), tables, disc, bits), rvtStatusOk);
  // the 6- and 12-symbol alphabets start at their second table
  for (int k = 0; k < 22; ++k) {
    const int n = vlc::SlotSymbols(k, false);
    EXPECT_EQ(tables[k], (n == 6 || n == 12) ? 1 : 0) << k;
  }
  for (int k = 0; k < 22; ++k) {
    EXPECT_EQ(vlc::kSlotTables[k], vlc::AlphabetOf(vlc::SlotSymbols(k, false)).tables) << k;
    EXPECT_EQ(vlc::kSlotTables[k], vlc::AlphabetOf(vlc::SlotSymbols(k, true)).tables) << k;
  }
  EXPECT_EQ(bits[0], 8);
  EXPECT_EQ(bits[2], 4);
  EXPECT_EQ(bits[4], 0);
}

TEST(JpegXrVlc, DiscriminantsClampAndSwitch) {
  State s;
  vlc::InitState(s, 0, 1);
  // symbol 0 of the run alphabet is one bit shorter in table 0: every one
  // pushes towards table 0, where the discriminant stops at -64
  for (int i = 0; i < 200; ++i) vlc::Account(s, vlc::kRun, 1);
  EXPECT_EQ(s.disc[vlc::kRun], -200);
  vlc::AdaptSlot(s, vlc::kRun);
  EXPECT_EQ(s.table[vlc::kRun], 0);
  EXPECT_EQ(s.disc[vlc::kRun], -64);
  // up needs more than +8 after the clamp: 64 + 9 steps of +1
  for (int i = 0; i < 72; ++i) vlc::Account(s, vlc::kRun, 3);
  vlc::AdaptSlot(s, vlc::kRun);
  EXPECT_EQ(s.table[vlc::kRun], 0);
  vlc::Account(s, vlc::kRun, 3);
  vlc::AdaptSlot(s, vlc::kRun);
  EXPECT_EQ(s.table[vlc::kRun], 1);
  EXPECT_EQ(s.disc[vlc::kRun], 0);
  // the 8-symbol alphabet never moves
  for (int i = 0; i < 100; ++i) vlc::Account(s, vlc::kDcYuv, i & 7);
  vlc::Adapt(s, 7);
  EXPECT_EQ(s.table[vlc::kDcYuv], 0);
  EXPECT_EQ(s.disc[vlc::kDcYuv], 0);
}

// Escaped levels up to 2^30 + 1 (32-bit reads), coefficients at the last
// two positions (the fixed index codes), single coefficients anywhere.
TEST(JpegXrVlc, LevelEscapesAndLastPositions) {
  const int32_t levels[] = {1, 2, 17, 18, 33, 1 << 19, (1 << 22) + 5, (1 << 29) + 1, (1 << 30) + 1};
  for (int32_t lv : levels) {
    for (int p = 1; p < 16; ++p) {
      for (int second = 0; second < 3; ++second) {
        std::vector<uint8_t> enc = NewState(0, 1), dec = NewState(0, 1);
        std::vector<int32_t> hp(256, 0), out(256, 7);
        // scan position p (and p - 1, p - 2) of block 5, raster through the
        // initial horizontal scan
        hp[16 * 5 + vlc::kScanHoriz[p]] = -lv;
        if (second && p > second) hp[16 * 5 + vlc::kScanHoriz[p - second]] = 1;
        std::vector<uint8_t> buf(1024, 0);
        int32_t pos = 3, cbp = 0, rpos = 3;
        ASSERT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(hp.data(), 0, S(enc), &cbp, buf.data(), 1024, &pos, nullptr, 0,
                                               nullptr, 0),
                  rvtStatusOk);
        ASSERT_EQ(cbp, 1 << 5);
        ASSERT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(buf.data(), 1024, &rpos, nullptr, 0, nullptr, 0, 0, &cbp, S(dec),
                                               out.data()),
                  rvtStatusOk);
        EXPECT_EQ(rpos, pos);
        for (int k = 1; k < 256; ++k) {
          if (k % 16) ASSERT_EQ(out[size_t(k)], hp[size_t(k)]) << "level " << lv << " position " << p;
        }
      }
    }
  }
  std::vector<uint8_t> st = NewState(0, 1);
  std::vector<int32_t> hp(256, 0);
  hp[1] = (1 << 30) + 2;
  std::vector<uint8_t> buf(64, 0x5A);
  int32_t pos = 0, cbp = 9;
  EXPECT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(hp.data(), 0, S(st), &cbp, buf.data(), 64, &pos, nullptr, 0, nullptr, 0),
            rvtStatusRange);
  EXPECT_EQ(pos, 0);
  EXPECT_EQ(cbp, 9);
  EXPECT_EQ(buf, std::vector<uint8_t>(64, 0x5A));
}

TEST(JpegXrVlc, FixedLengthFields) {
  std::vector<uint8_t> buf(8, 0xFF);
  int32_t pos = 3;
  ASSERT_EQ(rvtiFLCWrite_JPEGXR_32u1u(0x5u, 3, buf.data(), 8, &pos), rvtStatusOk);
  EXPECT_EQ(buf[0], 0xF4);  // 111 101 00: the bits before kept, the tail cleared
  ASSERT_EQ(rvtiFLCWrite_JPEGXR_32u1u(0xDEADBEEFu, 32, buf.data(), 8, &pos), rvtStatusOk);
  EXPECT_EQ(pos, 38);
  uint32_t v = 0;
  int32_t rp = 6;
  ASSERT_EQ(rvtiFLCRead_JPEGXR_1u32u(buf.data(), 8, &rp, 32, &v), rvtStatusOk);
  EXPECT_EQ(v, 0xDEADBEEFu);
  rp = 3;
  ASSERT_EQ(rvtiFLCRead_JPEGXR_1u32u(buf.data(), 8, &rp, 0, &v), rvtStatusOk);
  EXPECT_EQ(v, 0u);
  EXPECT_EQ(rp, 3);
  rp = 40;
  v = 7;
  EXPECT_EQ(rvtiFLCRead_JPEGXR_1u32u(buf.data(), 5, &rp, 1, &v), rvtStatusOutOfBuffer);
  EXPECT_EQ(rp, 40);
  EXPECT_EQ(v, 7u);
  pos = 60;
  EXPECT_EQ(rvtiFLCWrite_JPEGXR_32u1u(1, 5, buf.data(), 8, &pos), rvtStatusOutOfBuffer);
  EXPECT_EQ(pos, 60);
}

// Checks in argument order; a failure (truncated data included) changes
// nothing: not the coefficients, the state or the positions.
TEST(JpegXrVlc, CheckOrderAndNothingWritten) {
  std::vector<uint8_t> st = NewState(3, 3);
  std::vector<int32_t> coef(256 * 3, 0), cbp(3, 0);
  std::vector<uint8_t> buf(16, 0);
  int32_t pos = 0, size = 0;
  EXPECT_EQ(rvtiVLCGetStateSize_JPEGXR(5, 3, nullptr), rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCGetStateSize_JPEGXR(3, 4, &size), rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCGetStateSize_JPEGXR(6, 17, &size), rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCGetStateSize_JPEGXR(0, 1, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiVLCInit_JPEGXR(0, 1, nullptr, 0), rvtStatusNullPtr);
  EXPECT_EQ(rvtiVLCInit_JPEGXR(0, 1, S(st), 10), rvtStatusSize);
  EXPECT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 0), rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 32), rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(nullptr, 0, nullptr, nullptr, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(buf.data(), 0, nullptr, nullptr, nullptr), rvtStatusSize);
  EXPECT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(buf.data(), 16, nullptr, nullptr, nullptr), rvtStatusNullPtr);
  pos = 129;
  EXPECT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(buf.data(), 16, &pos, nullptr, nullptr), rvtStatusBadArg);
  pos = 0;
  EXPECT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(buf.data(), 16, &pos, nullptr, nullptr), rvtStatusNullPtr);
  EXPECT_EQ(rvtiVLCDecodeLP_JPEGXR_1u32s(buf.data(), 16, &pos, S(st), nullptr), rvtStatusNullPtr);
  std::vector<uint8_t> bad = st;
  reinterpret_cast<State*>(bad.data())->table[vlc::kLpFirst] = 5;
  EXPECT_EQ(rvtiVLCDecodeLP_JPEGXR_1u32s(buf.data(), 16, &pos, S(bad), coef.data()), rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(buf.data(), 16, &pos, buf.data(), 0, &pos, 0, 0, cbp.data(), S(st),
                                         coef.data()),
            rvtStatusSize);
  EXPECT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(buf.data(), 16, &pos, nullptr, 0, nullptr, 16, 0, nullptr, nullptr,
                                         nullptr),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(buf.data(), 16, &pos, nullptr, 0, nullptr, 0, 2, nullptr, nullptr,
                                         nullptr),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(buf.data(), 16, &pos, nullptr, 0, nullptr, 0, 1, nullptr, S(st),
                                         coef.data()),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(coef.data(), 2, nullptr, nullptr, nullptr, 0, nullptr, nullptr, 0,
                                         nullptr, 0),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(coef.data(), 0, S(st), cbp.data(), buf.data(), 16, &pos, nullptr, 0,
                                         nullptr, 16),
            rvtStatusBadArg);
  EXPECT_EQ(rvtiFLCWrite_JPEGXR_32u1u(0, 33, nullptr, 0, nullptr), rvtStatusBadArg);

  // a whole macroblock coded, then decoded from every shorter buffer
  test::Rng rng(24);
  const Mb m = RandomMb(rng, 3, 3);
  std::vector<uint8_t> enc = NewState(3, 3);
  std::vector<uint8_t> data(8192, 0);
  int32_t end = 0;
  ASSERT_EQ(rvtiVLCEncodeDC_JPEGXR_32s1u(m.dclp.data(), S(enc), data.data(), 8192, &end), rvtStatusOk);
  ASSERT_EQ(rvtiVLCEncodeLP_JPEGXR_32s1u(m.dclp.data(), S(enc), data.data(), 8192, &end), rvtStatusOk);
  ASSERT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), 1, S(enc), cbp.data(), data.data(), 8192, &end, nullptr, 0,
                                         nullptr, 2),
            rvtStatusOk);
  const int32_t bytes = (end + 7) / 8;
  bool hpShort = false;
  for (int32_t n = 1; n < bytes; ++n) {
    std::vector<uint8_t> dec = NewState(3, 3);
    std::vector<int32_t> dclp(48, 11), hp(768, 11);
    int32_t p = 0;
    RvtResult r = rvtiVLCDecodeDC_JPEGXR_1u32s(data.data(), n, &p, S(dec), dclp.data());
    if (r == rvtStatusOk) r = rvtiVLCDecodeLP_JPEGXR_1u32s(data.data(), n, &p, S(dec), dclp.data());
    if (r == rvtStatusOk) {
      const std::vector<uint8_t> before = dec;
      const int32_t p0 = p;
      r = rvtiVLCDecodeHP_JPEGXR_1u32s(data.data(), n, &p, nullptr, 0, nullptr, 2, 1, cbp.data(), S(dec), hp.data());
      ASSERT_EQ(r, rvtStatusOutOfBuffer) << n;
      EXPECT_EQ(dec, before);
      EXPECT_EQ(p, p0);
      EXPECT_EQ(hp, std::vector<int32_t>(768, 11));
      hpShort = true;
    } else {
      ASSERT_EQ(r, rvtStatusOutOfBuffer) << n;
    }
  }
  EXPECT_TRUE(hpShort);
  // and encoded into every shorter buffer: nothing written
  for (int32_t n = 1; n < bytes; n += 7) {
    std::vector<uint8_t> st2 = NewState(3, 3), out(size_t(n), 0x33);
    int32_t p = 0, c[3] = {5, 5, 5};
    const RvtResult r = rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), 1, S(st2), c, out.data(), n, &p, nullptr, 0,
                                                     nullptr, 2);
    if (r == rvtStatusOk) continue;
    ASSERT_EQ(r, rvtStatusOutOfBuffer);
    EXPECT_EQ(out, std::vector<uint8_t>(size_t(n), 0x33));
    EXPECT_EQ(p, 0);
    EXPECT_EQ(c[0], 5);
    EXPECT_EQ(st2, NewState(3, 3));
  }
}

// ------------------------------------------------------------ jxrlib files

// A grey photo-like tile of 20 x 4 macroblocks, coded by JxrEncApp
// losslessly, frequency order, one tile, no overlap, DC band only; its DC
// band decoded by our coder (adapting after the first of every 16 and the last
// macroblock of each row) must give the flat macroblocks JxrDecApp
// reconstructs: 8-bit samples are scaled by 8 and the DC gain of the two
// transform levels is 16, so a macroblock is 128 + DC / 128.  The DC of
// the first macroblock is coded as is, along the first row from the left,
// down the first column from above, elsewhere from the left, the top or
// their mean (the choice is the decoder's, from the neighbours; we accept
// the one that fits, the rest of the row still has to decode in step).
TEST(JpegXrVlc, DecodesTheDcBandOfJxrlibFiles) {
  if (std::system("command -v JxrEncApp >/dev/null 2>&1") != 0) GTEST_SKIP() << "JxrEncApp missing";
  constexpr int kW = 320, kH = 64, kMx = kW / 16, kMy = kH / 16;
  char name[] = "/tmp/rvtjxrdcXXXXXX";
  const std::string dir = mkdtemp(name) ? name : "/tmp";
  std::vector<uint8_t> px(size_t(kW * kH));
  test::Rng rng(25);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const int v = 40 + (x * 3) / 4 + ((y * 5) / 2) + ((x / 16 + y / 16) % 3) * 20 + int(rng.Uniform(0, 12));
      px[size_t(y * kW + x)] = uint8_t(v > 255 ? 255 : v);
    }
  }
  {
    FILE* f = std::fopen((dir + "/in.pgm").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "P5\n%d %d\n255\n", kW, kH);
    std::fwrite(px.data(), 1, px.size(), f);
    std::fclose(f);
  }
  const std::string enc = "JxrEncApp -i " + dir + "/in.pgm -o " + dir + "/a.jxr -c 2 -q 1 -l 0 -s 3 >/dev/null 2>&1";
  const std::string dec = "JxrDecApp -i " + dir + "/a.jxr -o " + dir + "/out.pgm -c 2 >/dev/null 2>&1";
  ASSERT_EQ(std::system(enc.c_str()), 0);
  ASSERT_EQ(std::system(dec.c_str()), 0);
  auto slurp = [](const std::string& path) {
    std::vector<uint8_t> d;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return d;
    int c;
    while ((c = std::fgetc(f)) != EOF) d.push_back(uint8_t(c));
    std::fclose(f);
    return d;
  };
  const std::vector<uint8_t> file = slurp(dir + "/a.jxr"), out = slurp(dir + "/out.pgm");
  (void)std::system(("rm -rf " + dir).c_str());
  ASSERT_GE(out.size(), size_t(kW * kH));
  const uint8_t* img = out.data() + out.size() - size_t(kW * kH);
  // the image stream, its header, then the DC packet's start code
  const uint8_t sig[8] = {'W', 'M', 'P', 'H', 'O', 'T', 'O', 0};
  size_t at = 0;
  while (at + 8 <= file.size() && std::memcmp(file.data() + at, sig, 8) != 0) ++at;
  ASSERT_LT(at + 8, file.size());
  ASSERT_EQ(file[at + 9] & 0x40, 0x40) << "frequency order";
  size_t start = at + 8 + 11;
  while (start + 3 < file.size() &&
         !(file[start] == 0 && file[start + 1] == 0 && file[start + 2] == 1 && file[start + 3] == 1)) {
    ++start;
  }
  ASSERT_LT(start + 4, file.size());
  const uint8_t* band = file.data() + start + 4;
  const int32_t len = int32_t(file.size() - start - 4);

  std::vector<uint8_t> st = NewState(0, 1);
  int32_t pos = 0;
  std::vector<int32_t> dc(size_t(kMx * kMy));
  int fits = 0;
  for (int my = 0; my < kMy; ++my) {
    for (int mx = 0; mx < kMx; ++mx) {
      int32_t c[16];
      ASSERT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(band, len, &pos, S(st), c), rvtStatusOk) << mx << "," << my;
      if ((mx & 15) == 0 || mx == kMx - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 1), rvtStatusOk);
      const int want = img[size_t((my * 16 + 8) * kW + mx * 16 + 8)];
      auto fit = [&](int32_t v) { return std::abs(128 + double(v) / 128 - want) <= 1.0; };
      std::vector<int32_t> preds;
      if (mx == 0 && my == 0) preds = {0};
      else if (my == 0) preds = {dc[size_t(mx - 1)]};
      else if (mx == 0) preds = {dc[size_t((my - 1) * kMx)]};
      else {
        const int32_t l = dc[size_t(my * kMx + mx - 1)], t = dc[size_t((my - 1) * kMx + mx)];
        preds = {l, t, (l + t) >> 1};
      }
      bool ok = false;
      for (int32_t p : preds) {
        if (fit(p + c[0])) {
          dc[size_t(my * kMx + mx)] = p + c[0];
          ok = true;
          break;
        }
      }
      ASSERT_TRUE(ok) << "macroblock " << mx << "," << my << ": residual " << c[0] << ", pixel " << want;
      ++fits;
    }
  }
  EXPECT_EQ(fits, kMx * kMy);
}

// The DC and LP bands of a lossless file against the source's transform
// (8-bit samples less 128, times 8; the 4x4 transform of every block, then
// of every macroblock's 16 block DCs): the DC band must end on a byte
// boundary right before the LP packet's start code and its DCs equal the
// source's once predicted (as above); the first macroblock of the LP band
// (predicted from nothing) gives the source's 15 values in their places,
// the others the same less their prediction.
TEST(JpegXrVlc, DecodesTheLowpassBandOfJxrlibFiles) {
  if (std::system("command -v JxrEncApp >/dev/null 2>&1") != 0) GTEST_SKIP() << "JxrEncApp missing";
  constexpr int kW = 384, kH = 48, kMx = kW / 16, kMy = kH / 16;
  char name[] = "/tmp/rvtjxrlpXXXXXX";
  const std::string dir = mkdtemp(name) ? name : "/tmp";
  std::vector<uint8_t> px(size_t(kW * kH));
  test::Rng rng(26);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const int v = 30 + (x % 97) + (y * 3) / 2 + ((x / 7 + y / 5) % 4) * 15 + int(rng.Uniform(0, 20));
      px[size_t(y * kW + x)] = uint8_t(v > 255 ? 255 : v);
    }
  }
  {
    FILE* f = std::fopen((dir + "/in.pgm").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "P5\n%d %d\n255\n", kW, kH);
    std::fwrite(px.data(), 1, px.size(), f);
    std::fclose(f);
  }
  const std::string enc = "JxrEncApp -i " + dir + "/in.pgm -o " + dir + "/a.jxr -c 2 -q 1 -l 0 -s 2 >/dev/null 2>&1";
  ASSERT_EQ(std::system(enc.c_str()), 0);
  std::vector<uint8_t> file;
  {
    FILE* f = std::fopen((dir + "/a.jxr").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    int c;
    while ((c = std::fgetc(f)) != EOF) file.push_back(uint8_t(c));
    std::fclose(f);
  }
  (void)std::system(("rm -rf " + dir).c_str());
  // the source's coefficients, per macroblock: [0] DC, [1..15] LP
  std::vector<int32_t> plane(size_t(kW * kH));
  for (size_t i = 0; i < plane.size(); ++i) plane[i] = (int32_t(px[i]) - 128) * 8;
  ASSERT_EQ(rvtiPCTFwd_JPEGXR_32s_C1IR(plane.data(), kW * 4, {kW, kH}), rvtStatusOk);
  std::vector<std::array<int32_t, 16>> want(size_t(kMx * kMy));
  for (int my = 0; my < kMy; ++my) {
    for (int mx = 0; mx < kMx; ++mx) {
      std::array<int32_t, 16>& b = want[size_t(my * kMx + mx)];
      for (int k = 0; k < 16; ++k) b[size_t(k)] = plane[size_t((my * 16 + (k / 4) * 4) * kW + mx * 16 + (k % 4) * 4)];
      ASSERT_EQ(rvtiPCTFwd_JPEGXR_32s_C1IR(b.data(), 16, {4, 4}), rvtStatusOk);
    }
  }
  const uint8_t sig[8] = {'W', 'M', 'P', 'H', 'O', 'T', 'O', 0};
  size_t at = 0;
  while (at + 8 <= file.size() && std::memcmp(file.data() + at, sig, 8) != 0) ++at;
  ASSERT_LT(at + 8, file.size());
  size_t start = at + 8 + 11;
  while (start + 3 < file.size() &&
         !(file[start] == 0 && file[start + 1] == 0 && file[start + 2] == 1 && file[start + 3] == 1)) {
    ++start;
  }
  ASSERT_LT(start + 4, file.size());
  ASSERT_EQ(file[start + 3], 1) << "the DC packet";
  const uint8_t* band = file.data() + start + 4;
  const int32_t len = int32_t(file.size() - start - 4);

  std::vector<uint8_t> st = NewState(0, 1);
  int32_t pos = 0;
  for (int my = 0; my < kMy; ++my) {
    for (int mx = 0; mx < kMx; ++mx) {
      int32_t c[16];
      ASSERT_EQ(rvtiVLCDecodeDC_JPEGXR_1u32s(band, len, &pos, S(st), c), rvtStatusOk);
      if ((mx & 15) == 0 || mx == kMx - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 1), rvtStatusOk);
      const int32_t w = want[size_t(my * kMx + mx)][0];
      const int32_t l = mx ? want[size_t(my * kMx + mx - 1)][0] : 0, t = my ? want[size_t((my - 1) * kMx + mx)][0] : 0;
      const bool fits = (!mx && !my) ? c[0] == w : !my ? c[0] + l == w : !mx ? c[0] + t == w
                        : (c[0] + l == w || c[0] + t == w || c[0] + ((l + t) >> 1) == w);
      ASSERT_TRUE(fits) << "DC of macroblock " << mx << "," << my << ": " << c[0] << " for " << w;
    }
  }
  // the DC band ends on the byte before the LP packet
  const int32_t lpStart = (pos + 7) / 8;
  ASSERT_LE(lpStart + 4, len);
  ASSERT_EQ(band[lpStart] | band[lpStart + 1] | (band[lpStart + 2] ^ 1) | (band[lpStart + 3] ^ 2), 0)
      << "no LP packet after the DC band";
  const uint8_t* lp = band + lpStart + 4;
  const int32_t lpLen = len - lpStart - 4;
  // every macroblock in step: the source's values in their places (the LP
  // scan, adapting, and the order of the model bits), less the neighbour's
  // where the decoder predicts (from the left: 1, 2, 7; from above: 4, 8,
  // 13 in the transform's positions; we accept the one that fits), and the
  // band ends with the file
  pos = 0;
  st = NewState(0, 1);
  int predicted = 0;
  for (int my = 0; my < kMy; ++my) {
    for (int mx = 0; mx < kMx; ++mx) {
      if ((mx & 15) == 0) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 8), rvtStatusOk);
      int32_t c[16] = {};
      ASSERT_EQ(rvtiVLCDecodeLP_JPEGXR_1u32s(lp, lpLen, &pos, S(st), c), rvtStatusOk) << mx << "," << my;
      if ((mx & 15) == 0 || mx == kMx - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 2), rvtStatusOk);
      const std::array<int32_t, 16>& w = want[size_t(my * kMx + mx)];
      auto fits = [&](const std::array<int32_t, 16>* from, std::initializer_list<int> at) {
        for (int k = 1; k < 16; ++k) {
          bool p = false;
          for (int a : at) p |= a == k;
          if (c[k] != w[size_t(k)] - (from && p ? (*from)[size_t(k)] : 0)) return false;
        }
        return true;
      };
      const bool none = fits(nullptr, {});
      const bool left = mx > 0 && fits(&want[size_t(my * kMx + mx - 1)], {1, 2, 7});
      const bool top = my > 0 && fits(&want[size_t((my - 1) * kMx + mx)], {4, 8, 13});
      ASSERT_TRUE(none || left || top) << "LP of macroblock " << mx << "," << my;
      predicted += !none;
    }
  }
  EXPECT_GT(predicted, kMx) << "the prediction should be seen along the first row and beyond";
  EXPECT_EQ((pos + 7) / 8, lpLen);
}

// An RGB photo-like tile coded losslessly by JxrEncApp without its HP
// band: every macroblock's LP of all three channels decodes, and the band
// ends with the file (the pattern counters' start and the model bits that
// follow each channel's block are what keep colour files in step).
TEST(JpegXrVlc, DecodesTheLowpassBandOfColourJxrlibFiles) {
  if (std::system("command -v JxrEncApp >/dev/null 2>&1") != 0) GTEST_SKIP() << "JxrEncApp missing";
  constexpr int kW = 256, kH = 48, kMx = kW / 16, kMy = kH / 16;
  char name[] = "/tmp/rvtjxrlcXXXXXX";
  const std::string dir = mkdtemp(name) ? name : "/tmp";
  test::Rng rng(27);
  {
    FILE* f = std::fopen((dir + "/in.ppm").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fprintf(f, "P6\n%d %d\n255\n", kW, kH);
    for (int y = 0; y < kH; ++y) {
      for (int x = 0; x < kW; ++x) {
        const int v[3] = {20 + (x % 83) * 2, 40 + y * 3 + int(rng.Uniform(0, 30)), 200 - (x + y) % 150};
        for (int c : v) std::fputc(c > 255 ? 255 : c, f);
      }
    }
    std::fclose(f);
  }
  const std::string enc = "JxrEncApp -i " + dir + "/in.ppm -o " + dir + "/a.jxr -c 9 -q 1 -l 0 -s 2 >/dev/null 2>&1";
  ASSERT_EQ(std::system(enc.c_str()), 0);
  std::vector<uint8_t> file;
  {
    FILE* f = std::fopen((dir + "/a.jxr").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    int c;
    while ((c = std::fgetc(f)) != EOF) file.push_back(uint8_t(c));
    std::fclose(f);
  }
  (void)std::system(("rm -rf " + dir).c_str());
  // the LP packet: the second start code after the image signature
  const uint8_t sig[8] = {'W', 'M', 'P', 'H', 'O', 'T', 'O', 0};
  size_t at = 0;
  while (at + 8 <= file.size() && std::memcmp(file.data() + at, sig, 8) != 0) ++at;
  size_t start = at + 8 + 11;
  while (start + 3 < file.size() &&
         !(file[start] == 0 && file[start + 1] == 0 && file[start + 2] == 1 && file[start + 3] == 2)) {
    ++start;
  }
  ASSERT_LT(start + 4, file.size());
  const uint8_t* lp = file.data() + start + 4;
  const int32_t lpLen = int32_t(file.size() - start - 4);
  std::vector<uint8_t> st = NewState(3, 3);
  int32_t pos = 0, chromaCoded = 0;
  for (int my = 0; my < kMy; ++my) {
    for (int mx = 0; mx < kMx; ++mx) {
      if ((mx & 15) == 0) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 8), rvtStatusOk);
      int32_t c[48] = {};
      ASSERT_EQ(rvtiVLCDecodeLP_JPEGXR_1u32s(lp, lpLen, &pos, S(st), c), rvtStatusOk) << mx << "," << my;
      if ((mx & 15) == 0 || mx == kMx - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(st), 2), rvtStatusOk);
      for (int k = 17; k < 48; ++k) chromaCoded += c[k] != 0 && k != 32;
    }
  }
  EXPECT_GT(chromaCoded, 0);
  EXPECT_EQ((pos + 7) / 8, lpLen);
}

// Model bits at or under the trimmed count still scale the coded part:
// nothing of the refinement is read, the magnitude keeps its high bits.
TEST(JpegXrVlc, HighpassTrimmedToNothingKeepsItsScale) {
  std::vector<int32_t> hp(256, 0), out(256, 7);
  hp[16 * 5 + 1] = 40;
  hp[16 * 5 + 4] = -17;
  hp[16 * 9 + 6] = 5;
  for (int trim : {3, 15}) {
    std::vector<uint8_t> enc = NewState(0, 1), dec = NewState(0, 1);
    reinterpret_cast<vlc::State*>(enc.data())->modelBits[vlc::kHP][0] = 3;
    reinterpret_cast<vlc::State*>(dec.data())->modelBits[vlc::kHP][0] = 3;
    std::vector<uint8_t> data(256, 0);
    int32_t pos = 0, rpos = 0, cbp = 0;
    ASSERT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(hp.data(), 0, S(enc), &cbp, data.data(), 256, &pos, nullptr, 0, nullptr,
                                           trim),
              rvtStatusOk);
    ASSERT_EQ(rvtiVLCDecodeHP_JPEGXR_1u32s(data.data(), 256, &rpos, nullptr, 0, nullptr, trim, 0, &cbp, S(dec),
                                           out.data()),
              rvtStatusOk);
    EXPECT_EQ(rpos, pos);
    EXPECT_EQ(out[16 * 5 + 1], 40);
    EXPECT_EQ(out[16 * 5 + 4], -16);
    EXPECT_EQ(out[16 * 9 + 6], 0);
  }
}

// The writer gathers bits in a word: from any start bit, into a roomy
// buffer or one of exactly the size needed (the path that checks room
// first), a macroblock's HP codes (flexbits interleaved, levels and
// escapes, signs after refinements) are the same bits, those before the
// start are kept, the tail of the last byte is cleared and the bytes
// after it are not touched.
TEST(JpegXrVlc, WriterKeepsItsBitsFromAnyStart) {
  test::Rng rng(91);
  for (int trial = 0; trial < 8; ++trial) {
    const Mb m = RandomMb(rng, 3, 2 + trial % 2);
    auto encode = [&](int32_t start, int32_t len, std::vector<uint8_t>& buf) {
      std::vector<uint8_t> st = NewState(3, 3);
      reinterpret_cast<vlc::State*>(st.data())->modelBits[vlc::kHP][0] = 2 + trial % 3;
      reinterpret_cast<vlc::State*>(st.data())->modelBits[vlc::kHP][1] = 1;
      int32_t pos = start, cbp[3];
      EXPECT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), trial & 1, S(st), cbp, buf.data(), len, &pos, nullptr, 0,
                                             nullptr, 0),
                rvtStatusOk);
      return pos;
    };
    auto bit = [](const std::vector<uint8_t>& b, int64_t i) { return (b[size_t(i >> 3)] >> (7 - (i & 7))) & 1; };
    std::vector<uint8_t> ref(1 << 14, 0);
    const int32_t bits = encode(0, 1 << 14, ref);
    for (int32_t start = 0; start < 16; ++start) {
      const int32_t end = start + bits, used = (end + 7) / 8;
      for (const int32_t len : {int32_t(1 << 14), used}) {
        std::vector<uint8_t> buf(1 << 14, 0xA5);
        ASSERT_EQ(encode(start, len, buf), end) << start;
        for (int32_t i = 0; i < start; ++i) ASSERT_EQ(bit(buf, i), (0xA5 >> (7 - (i & 7))) & 1) << start;
        for (int32_t i = 0; i < bits; ++i) ASSERT_EQ(bit(buf, start + i), bit(ref, i)) << start << " " << i;
        for (int32_t i = end; i < used * 8; ++i) ASSERT_EQ(bit(buf, i), 0) << start;
        for (size_t i = size_t(used); i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xA5) << start;
      }
    }
  }
}

// ------------------------------------------------------------ targets

// A band's stream: several macroblocks coded from a context that has
// already moved, or random bytes (errors and odd tables alike), decoded
// from a random macroblock boundary.
enum { kBandDC, kBandLP, kBandHP };

std::vector<test::Case> DecodeCases(test::Rng& rng, int band) {
  std::vector<test::Case> out;
  for (int t = 0; t < 60; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    std::vector<uint8_t> data(1 << 16, 0), flex(1 << 15, 0);
    int32_t pos = 0, fpos = 0;
    // HP cases start from model bits over and under the trim (refinement
    // read block-wise, bit-wise or not at all) with magnitudes around them
    int hpBits[2] = {0, 0};
    if (band == kBandHP) {
      for (int j = 0; j < 2; ++j) hpBits[j] = int(rng.Uniform(0, 10));
      auto& mb = reinterpret_cast<vlc::State*>(st.data())->modelBits[vlc::kHP];
      mb[0] = hpBits[0], mb[1] = hpBits[1];
    }
    const int scan = int(rng.Uniform(0, 1)), trim = int(rng.Uniform(0, band == kBandHP ? 5 : 2));
    const bool sep = rng.Uniform(0, 1);
    std::vector<int32_t> cbp(size_t(f.channels));
    const int mbs = int(rng.Uniform(1, 6));
    std::vector<uint8_t> start = st;
    int32_t spos = 0, sfpos = 0;
    for (int i = 0; i < mbs; ++i) {
      Mb m = RandomMb(rng, f.channels, int(rng.Uniform(0, 3)));
      if (band == kBandHP && rng.Uniform(0, 1)) {
        for (size_t k = 0; k < m.hp.size(); ++k) {
          const int b = hpBits[k >= 256] + 2;
          if (k % 16 && rng.Uniform(0, 2)) m.hp[k] = int32_t(rng.Uniform(0, 2u << b)) - int32_t(1 << b);
        }
      }
      if (i == mbs - 1) start = st, spos = pos, sfpos = fpos;
      if (band == kBandDC) rvtiVLCEncodeDC_JPEGXR_32s1u(m.dclp.data(), S(st), data.data(), 1 << 16, &pos);
      if (band == kBandLP) rvtiVLCEncodeLP_JPEGXR_32s1u(m.dclp.data(), S(st), data.data(), 1 << 16, &pos);
      if (band == kBandHP) {
        rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), scan, S(st), cbp.data(), data.data(), 1 << 16, &pos,
                                     sep ? flex.data() : nullptr, 1 << 15, &fpos, trim);
      }
      if (rng.Uniform(0, 3) == 0) rvtiVLCAdapt_JPEGXR(S(st), int32_t(rng.Uniform(1, 31)));
    }
    if (t % 4 == 3) rng.Fill(data.data(), data.size(), uint8_t(0), uint8_t(255));
    const int32_t len = t % 5 == 4 ? int32_t(rng.Uniform(1, (pos + 7) / 8)) : (pos + 7) / 8 + 1;
    test::Case k;
    k.label = "format " + std::to_string(f.format);
    test::Buf src = test::ArrayOf<uint8_t>(len);
    std::memcpy(src.as<uint8_t>(), data.data(), size_t(len));
    k.in.push_back(std::move(src));
    test::Buf fl = test::ArrayOf<uint8_t>(int32_t(fpos / 8 + 1));
    std::memcpy(fl.as<uint8_t>(), flex.data(), size_t(fpos / 8 + 1));
    k.in.push_back(std::move(fl));
    test::Buf cb = test::ArrayOf<int32_t>(f.channels);
    for (int c = 0; c < f.channels; ++c) cb.as<int32_t>()[c] = t % 4 == 3 ? int32_t(rng.Uniform(0, 0xFFFF)) : cbp[size_t(c)];
    k.in.push_back(std::move(cb));
    test::Buf sb = test::ArrayOf<uint8_t>(int(start.size()));
    std::memcpy(sb.as<uint8_t>(), start.data(), start.size());
    k.out.push_back(std::move(sb));
    test::Buf cf = test::ArrayOf<int32_t>(256 * f.channels);
    k.out.push_back(std::move(cf));
    test::Buf ps = test::ArrayOf<int32_t>(2);
    ps.as<int32_t>()[0] = spos < len * 8 ? spos : 0;
    ps.as<int32_t>()[1] = sfpos;
    k.out.push_back(std::move(ps));
    k.arg[0] = len;
    k.arg[1] = sep ? fpos / 8 + 1 : 0;
    k.arg[2] = trim;
    k.arg[3] = scan;
    out.push_back(std::move(k));
  }
  return out;
}

template <class Fn>
RvtResult CallBand(Fn fn, test::Case& k) {
  return fn(k.in[0].as<uint8_t>(), int32_t(k.arg[0]), k.out[2].as<int32_t>(),
            k.out[0].as<VLCState_JPEGXR>(), k.out[1].as<int32_t>());
}

RVT_CHECKASM(rvtiVLCDecodeDC_JPEGXR_1u32s,
             test::Cases{[](test::Rng& rng) { return DecodeCases(rng, kBandDC); },
                         [](auto fn, test::Case& k) { return CallBand(fn, k); }});
RVT_CHECKASM(rvtiVLCDecodeLP_JPEGXR_1u32s,
             test::Cases{[](test::Rng& rng) { return DecodeCases(rng, kBandLP); },
                         [](auto fn, test::Case& k) { return CallBand(fn, k); }});
RVT_CHECKASM(rvtiVLCDecodeHP_JPEGXR_1u32s,
             test::Cases{[](test::Rng& rng) { return DecodeCases(rng, kBandHP); },
                         [](auto fn, test::Case& k) {
                           return fn(k.in[0].as<uint8_t>(), int32_t(k.arg[0]), k.out[2].as<int32_t>(),
                                     k.arg[1] ? k.in[1].as<uint8_t>() : nullptr, int32_t(k.arg[1]),
                                     k.out[2].as<int32_t>() + 1, int32_t(k.arg[2]), int32_t(k.arg[3]),
                                     k.in[2].as<int32_t>(), k.out[0].as<VLCState_JPEGXR>(),
                                     k.out[1].as<int32_t>());
                         }});
// HP patterns: a few macroblocks' patterns coded from a moving context, or
// random bytes; one decoded from the last boundary, with or without
// neighbours.
std::vector<test::Case> CbpCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int t = 0; t < 80; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    const vlc::State& es = *reinterpret_cast<const vlc::State*>(st.data());
    auto pattern = [&] {
      std::vector<int32_t> p(size_t(f.channels));
      for (int ch = 0; ch < f.channels; ++ch) {
        const int32_t all = int32_t((1u << vlc::HpBlocks(es, ch)) - 1u);
        p[size_t(ch)] = int32_t(rng.Uniform(0, all)) & (rng.Uniform(0, 1) ? all : int32_t(rng.Uniform(0, all)));
      }
      return p;
    };
    std::vector<uint8_t> data(1 << 14, 0);
    int32_t pos = 0, spos = 0;
    std::vector<uint8_t> start = st;
    const std::vector<int32_t> left = pattern(), top = pattern();
    const int mbs = int(rng.Uniform(1, 8));
    for (int i = 0; i < mbs; ++i) {
      if (i == mbs - 1) start = st, spos = pos;
      rvtiVLCEncodeCBPHP_JPEGXR_32s1u(pattern().data(), left.data(), top.data(), S(st), data.data(), 1 << 14, &pos);
      if (rng.Uniform(0, 2) == 0) rvtiVLCAdapt_JPEGXR(S(st), int32_t(rng.Uniform(1, 31)));
    }
    if (t % 4 == 3) rng.Fill(data.data(), data.size(), uint8_t(0), uint8_t(255));
    const int32_t len = t % 5 == 4 ? int32_t(rng.Uniform(1, (pos + 7) / 8)) : (pos + 7) / 8 + 1;
    test::Case k;
    k.label = "format " + std::to_string(f.format);
    test::Buf src = test::ArrayOf<uint8_t>(len);
    std::memcpy(src.as<uint8_t>(), data.data(), size_t(len));
    k.in.push_back(std::move(src));
    test::Buf lt = test::ArrayOf<int32_t>(2 * f.channels);
    std::memcpy(lt.as<int32_t>(), left.data(), 4 * left.size());
    std::memcpy(lt.as<int32_t>() + f.channels, top.data(), 4 * top.size());
    k.in.push_back(std::move(lt));
    test::Buf sb = test::ArrayOf<uint8_t>(int(start.size()));
    std::memcpy(sb.as<uint8_t>(), start.data(), start.size());
    k.out.push_back(std::move(sb));
    k.out.push_back(test::ArrayOf<int32_t>(f.channels));
    test::Buf ps = test::ArrayOf<int32_t>(1);
    ps.as<int32_t>()[0] = spos < len * 8 ? spos : 0;
    k.out.push_back(std::move(ps));
    k.arg[0] = len;
    k.arg[1] = f.channels;
    k.arg[2] = rng.Uniform(0, 3);  // neighbours: bit 0 left, bit 1 top
    out.push_back(std::move(k));
  }
  return out;
}

RVT_CHECKASM(rvtiVLCDecodeCBPHP_JPEGXR_1u32s,
             test::Cases{[](test::Rng& rng) { return CbpCases(rng); },
                         [](auto fn, test::Case& k) {
                           const int32_t* lt = k.in[1].as<int32_t>();
                           return fn(k.in[0].as<uint8_t>(), int32_t(k.arg[0]), k.out[2].as<int32_t>(),
                                     (k.arg[2] & 1) ? lt : nullptr, (k.arg[2] & 2) ? lt + k.arg[1] : nullptr,
                                     k.out[0].as<VLCState_JPEGXR>(), k.out[1].as<int32_t>());
                         }});
RVT_CHECKASM(rvtiFLCRead_JPEGXR_1u32u,
             test::Cases{[](test::Rng& rng) {
                           std::vector<test::Case> out;
                           for (int t = 0; t < 200; ++t) {
                             test::Case k;
                             const int len = int(rng.Uniform(1, 12));
                             k.in.push_back(test::ArrayOf<uint8_t>(len, int(rng.Uniform(0, 3))));
                             rng.Fill(k.in[0].as<uint8_t>(), size_t(len), uint8_t(0), uint8_t(255));
                             k.out.push_back(test::ArrayOf<int32_t>(1));
                             k.out[0].as<int32_t>()[0] = int32_t(rng.Uniform(0, 8 * len));
                             k.out.push_back(test::ArrayOf<uint32_t>(1));
                             k.arg[0] = len;
                             k.arg[1] = rng.Uniform(0, 32);
                             out.push_back(std::move(k));
                           }
                           return out;
                         },
                         [](auto fn, test::Case& k) {
                           return fn(k.in[0].as<uint8_t>(), int32_t(k.arg[0]), k.out[0].as<int32_t>(),
                                     int32_t(k.arg[1]), k.out[1].as<uint32_t>());
                         }});

// The fast pattern decoder resolves each code with the bits that follow it
// in one look-up: every format, both tables of both alphabets, each
// prediction mode, with and without neighbours, on bit strings that start
// with every 12-bit prefix (so every entry of every look-up is reached),
// whole or cut short, against the bit-at-a-time decoder: status, patterns,
// position and context.
TEST(JpegXrVlc, FastBlockPatternsMatchReference) {
  test::Rng rng(77);
  for (const Format& f : kFormats) {
    for (int tables = 0; tables < 4; ++tables) {
      std::vector<uint8_t> st = NewState(f.format, f.channels);
      State& s = *reinterpret_cast<State*>(st.data());
      s.table[vlc::kNumCbp] = tables & 1;
      s.table[vlc::kNumBlkCbp] = tables >> 1;
      s.disc[vlc::kNumCbp] = int32_t(rng.Uniform(0, 20)) - 10;
      std::vector<int32_t> left(16), top(16);
      for (int ch = 0; ch < 16; ++ch) {
        const int32_t all = int32_t((1u << vlc::HpBlocks(s, ch < f.channels ? ch : 0)) - 1u);
        left[size_t(ch)] = int32_t(rng.Uniform(0, all)), top[size_t(ch)] = int32_t(rng.Uniform(0, all));
      }
      for (uint32_t prefix = 0; prefix < 4096; ++prefix) {
        uint8_t buf[72];
        rng.Fill(buf, sizeof(buf), uint8_t(0), uint8_t(255));
        buf[0] = uint8_t(prefix >> 4);
        buf[1] = uint8_t((prefix & 15) << 4 | (buf[1] & 15));
        s.cbpModel[4] = int32_t(prefix % 3);
        s.cbpModel[5] = int32_t(prefix / 3 % 3);
        const int32_t len = prefix % 7 == 0 ? int32_t(1 + prefix % 3) : 72;
        const int32_t start = int32_t(prefix % 5);
        const int32_t* l = prefix & 8 ? left.data() : nullptr;
        const int32_t* t = prefix & 16 ? top.data() : nullptr;
        std::vector<uint8_t> sr = st, sf = st;
        int32_t pr = start, pf = start, cr[16], cf[16];
        std::fill(cr, cr + 16, -1);
        std::fill(cf, cf + 16, -1);
        const RvtResult a = vlc::DecodeCbpHPEntry<vlc::RefReader>(buf, len, &pr, l, t, S(sr), cr);
        const RvtResult b = vlc::DecodeCbpHPEntry<vlc::FastReader>(buf, len, &pf, l, t, S(sf), cf);
        ASSERT_EQ(a, b) << f.format << " " << prefix;
        ASSERT_EQ(pr, pf) << f.format << " " << prefix;
        ASSERT_EQ(0, std::memcmp(cr, cf, sizeof(cr))) << f.format << " " << prefix;
        ASSERT_EQ(sr, sf) << f.format << " " << prefix;
      }
    }
  }
}

// ------------------------------------------------------------ HP coded-block pattern encoder

// Patterns of a w x h tile in every format, in runs that are empty, full
// or scattered (so the prediction takes all three of its modes), coded
// against their neighbours and decoded back; then a stream too short for
// the next pattern, and patterns with bits past the channel's blocks.
TEST(JpegXrVlc, BlockPatternsRoundTrip) {
  test::Rng rng(41);
  for (const Format& f : kFormats) {
    const int nc = f.channels, w = 19, h = 4;
    std::vector<uint8_t> enc = NewState(f.format, nc), dec = NewState(f.format, nc);
    const State& es = *reinterpret_cast<const State*>(enc.data());
    std::vector<std::vector<int32_t>> pats;
    for (int i = 0; i < w * h; ++i) {
      const int kind = (i / 7) % 3;
      std::vector<int32_t> p(static_cast<size_t>(nc));
      for (int ch = 0; ch < nc; ++ch) {
        const int32_t all = int32_t((1u << vlc::HpBlocks(es, ch)) - 1u);
        const int32_t r = int32_t(rng.Uniform(0, all)) & int32_t(rng.Uniform(0, all));
        p[size_t(ch)] = kind == 0 ? r & int32_t(rng.Uniform(0, all)) : kind == 1 ? all & ~r : int32_t(rng.Uniform(0, all));
      }
      pats.push_back(p);
    }
    std::vector<uint8_t> buf(1 << 16, 0x5A);
    int32_t pos = 0;
    auto neighbours = [&](int i, const int32_t** l, const int32_t** t) {
      *l = i % w ? pats[size_t(i - 1)].data() : nullptr;
      *t = i >= w ? pats[size_t(i - w)].data() : nullptr;
    };
    for (int i = 0; i < w * h; ++i) {
      const int32_t *l, *t;
      neighbours(i, &l, &t);
      if (i % w == 0) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(enc), 16), rvtStatusOk);
      ASSERT_EQ(rvtiVLCEncodeCBPHP_JPEGXR_32s1u(pats[size_t(i)].data(), l, t, S(enc), buf.data(), 1 << 16, &pos),
                rvtStatusOk);
      if (i % w == 0 || i % w == w - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(enc), 4), rvtStatusOk);
    }
    int32_t rpos = 0;
    std::vector<int32_t> got(static_cast<size_t>(nc));
    for (int i = 0; i < w * h; ++i) {
      const int32_t *l, *t;
      neighbours(i, &l, &t);
      if (i % w == 0) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(dec), 16), rvtStatusOk);
      ASSERT_EQ(rvtiVLCDecodeCBPHP_JPEGXR_1u32s(buf.data(), pos / 8 + 1, &rpos, l, t, S(dec), got.data()),
                rvtStatusOk);
      ASSERT_EQ(got, pats[size_t(i)]) << "format " << f.format << " macroblock " << i;
      if (i % w == 0 || i % w == w - 1) ASSERT_EQ(rvtiVLCAdapt_JPEGXR(S(dec), 4), rvtStatusOk);
    }
    EXPECT_EQ(rpos, pos);
    EXPECT_EQ(enc, dec) << "format " << f.format;

    // no room: nothing written, nothing moved
    std::vector<int32_t> full(static_cast<size_t>(nc));
    for (int ch = 0; ch < nc; ++ch) full[size_t(ch)] = int32_t((1u << vlc::HpBlocks(es, ch)) - 1u) & 0x5A5A;
    std::vector<uint8_t> small(2, 0xC3), before = enc;
    int32_t spos = 16;  // at the end: no pattern codes in zero bits
    EXPECT_EQ(rvtiVLCEncodeCBPHP_JPEGXR_32s1u(full.data(), nullptr, nullptr, S(enc), small.data(), 2, &spos),
              rvtStatusOutOfBuffer);
    EXPECT_EQ(spos, 16);
    EXPECT_EQ(small, std::vector<uint8_t>(2, 0xC3));
    EXPECT_EQ(enc, before);
    full[size_t(nc - 1)] |= 1 << vlc::HpBlocks(es, nc - 1);
    EXPECT_EQ(rvtiVLCEncodeCBPHP_JPEGXR_32s1u(full.data(), nullptr, nullptr, S(enc), buf.data(), 1 << 16, &spos),
              rvtStatusBadArg);
    EXPECT_EQ(enc, before);
  }
}

// Patterns coded from a context that has moved (counts, modes, tables),
// against neighbours or tile edges, into buffers with bits before the
// start to keep, with room to spare (the fast run) or barely any (the
// careful one), now and then a pattern with a bit past its blocks.
std::vector<test::Case> EncodeCbpCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int t = 0; t < 160; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    const vlc::State& es = *reinterpret_cast<const vlc::State*>(st.data());
    auto pattern = [&] {
      std::vector<int32_t> p(size_t(2 * f.channels));
      for (int ch = 0; ch < f.channels; ++ch) {
        const int32_t all = int32_t((1u << vlc::HpBlocks(es, ch)) - 1u);
        const uint32_t kind = rng.Uniform(0, 2);
        const int32_t r = int32_t(rng.Uniform(0, all)) & int32_t(rng.Uniform(0, all));
        p[size_t(ch)] = kind == 0 ? r : kind == 1 ? all & ~r : int32_t(rng.Uniform(0, all));
        p[size_t(f.channels + ch)] = int32_t(rng.Uniform(0, 0xFFFFFF));  // (neighbours unchecked)
      }
      return p;
    };
    std::vector<uint8_t> scratch(1 << 12);
    for (int i = int(rng.Uniform(0, 12)); i > 0; --i) {
      int32_t pos = 0;
      const std::vector<int32_t> p = pattern();
      rvtiVLCEncodeCBPHP_JPEGXR_32s1u(p.data(), i & 1 ? p.data() + f.channels : nullptr,
                                      i & 2 ? p.data() + f.channels : nullptr, S(st), scratch.data(), 1 << 12, &pos);
      if (rng.Uniform(0, 2) == 0) rvtiVLCAdapt_JPEGXR(S(st), int32_t(rng.Uniform(1, 31)));
    }
    std::vector<int32_t> p = pattern(), n = pattern();
    if (t % 11 == 10) p[rng.Uniform(0, uint32_t(f.channels) - 1)] |= 1 << 16;
    const int32_t start = int32_t(rng.Uniform(0, 40));
    const int32_t roomy = (f.channels + 1) * 100 / 8 + 16;
    const int32_t len = t % 3 == 2 ? int32_t(rng.Uniform(6, 40)) : roomy;
    test::Case k;
    k.label = "format " + std::to_string(f.format) + " channels " + std::to_string(f.channels);
    test::Buf in = test::ArrayOf<int32_t>(3 * f.channels);
    std::memcpy(in.as<int32_t>(), p.data(), 4 * size_t(f.channels));
    std::memcpy(in.as<int32_t>() + f.channels, n.data(), 4 * size_t(2 * f.channels));
    k.in.push_back(std::move(in));
    test::Buf sb = test::ArrayOf<uint8_t>(int(st.size()));
    std::memcpy(sb.as<uint8_t>(), st.data(), st.size());
    k.out.push_back(std::move(sb));
    test::Buf dst = test::ArrayOf<uint8_t>(len);
    rng.Fill(dst.as<uint8_t>(), size_t(len), uint8_t(0), uint8_t(255));
    k.out.push_back(std::move(dst));
    test::Buf ps = test::ArrayOf<int32_t>(1);
    ps.as<int32_t>()[0] = start;
    k.out.push_back(std::move(ps));
    k.arg[0] = len;
    k.arg[1] = f.channels;
    k.arg[2] = rng.Uniform(0, 3);  // neighbours: bit 0 left, bit 1 top
    out.push_back(std::move(k));
  }
  return out;
}

RVT_CHECKASM(rvtiVLCEncodeCBPHP_JPEGXR_32s1u,
             test::Cases{[](test::Rng& rng) { return EncodeCbpCases(rng); },
                         [](auto fn, test::Case& k) {
                           const int32_t* in = k.in[0].as<int32_t>();
                           const int32_t nc = int32_t(k.arg[1]);
                           return fn(in, (k.arg[2] & 1) ? in + nc : nullptr, (k.arg[2] & 2) ? in + 2 * nc : nullptr,
                                     k.out[0].as<VLCState_JPEGXR>(), k.out[1].as<uint8_t>(), int32_t(k.arg[0]),
                                     k.out[2].as<int32_t>());
                         }});

// ------------------------------------------------------------ 4:2:0 and 4:2:2 chroma

// Bits written most significant first, from a string of '0' and '1'.
std::vector<uint8_t> BitsOf(const std::string& s) {
  std::vector<uint8_t> out((s.size() + 7) / 8 + 8, 0);
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '1') out[i / 8] = uint8_t(out[i / 8] | (0x80u >> (i % 8)));
  }
  return out;
}

// A fresh context codes the LP pattern directly (2 bits: lum, then the two
// chroma channels together); with both empty only the model bits follow
// (4 at first): 15 lum coefficients, then the chroma ones with U and V
// alternating coefficient by coefficient, each with a sign when nonzero.
TEST(JpegXrVlc, SubsampledChromaLpModelBitsAlternateUAndV) {
  for (const int format : {1, 2}) {
    const int n = format == 1 ? 4 : 8;
    std::string bits = "00";
    for (int k = 1; k < 16; ++k) bits += "0000";
    std::vector<int32_t> want(48, 0);
    for (int k = 1; k < n; ++k) {
      for (int ch = 1; ch <= 2; ++ch) {
        const int v = (k * 3 + ch) % 5 - 2;  // -2..2
        want[size_t(16 * ch + k)] = v;
        const int m = v < 0 ? -v : v;
        for (int b = 3; b >= 0; --b) bits += ((m >> b) & 1) ? '1' : '0';
        if (v) bits += v < 0 ? '1' : '0';
      }
    }
    std::vector<uint8_t> data = BitsOf(bits), st = NewState(format, 3);
    std::vector<int32_t> got(48, 0);
    int32_t pos = 0;
    ASSERT_EQ(rvtiVLCDecodeLP_JPEGXR_1u32s(data.data(), int32_t(data.size()), &pos, S(st), got.data()), rvtStatusOk);
    EXPECT_EQ(pos, int32_t(bits.size())) << "format " << format;
    EXPECT_EQ(got, want) << "format " << format;
    // and written back to the same bits
    std::vector<uint8_t> enc = NewState(format, 3), out(data.size(), 0);
    int32_t end = 0;
    ASSERT_EQ(rvtiVLCEncodeLP_JPEGXR_32s1u(want.data(), S(enc), out.data(), int32_t(out.size()), &end), rvtStatusOk);
    EXPECT_EQ(end, pos);
    EXPECT_EQ(out, data) << "format " << format;
  }
}

// The shared chroma LP block starts with U, V of 4:2:0's first coefficient
// but of 4:2:2's lower-half DC difference (coefficient 4): a block holding
// only that value codes the same run/level part in both formats.
TEST(JpegXrVlc, Chroma422LpBlockStartsWithTheLowerHalfDc) {
  auto coded = [](int format, int k) {
    std::vector<int32_t> c(48, 0);
    c[size_t(16 + k)] = 5 << 4;  // above the 4 model bits
    std::vector<uint8_t> st = NewState(format, 3), out(256, 0);
    int32_t end = 0;
    EXPECT_EQ(rvtiVLCEncodeLP_JPEGXR_32s1u(c.data(), S(st), out.data(), 256, &end), rvtStatusOk);
    // the pattern (2 bits) and lum's model bits (60) come first, the
    // chroma model bits (4 for each of U and V per coefficient) last
    const int32_t chromaModel = (format == 1 ? 3 : 7) * 2 * 4;
    std::string bits;
    for (int32_t i = 0; i < end; ++i) bits += ((out[size_t(i / 8)] >> (7 - i % 8)) & 1) ? '1' : '0';
    return bits.substr(62, size_t(end - 62 - chromaModel));
  };
  EXPECT_EQ(coded(2, 4), coded(1, 1));
  EXPECT_NE(coded(2, 1), coded(1, 1));
}

// The HP pattern of a tile's first macroblock is predicted as full: a
// coded difference of nothing (one bit, the first 5-symbol code) is every
// block of every channel, and the encoder writes that pattern as that bit.
TEST(JpegXrVlc, SubsampledHpPatternOfTheFirstMacroblock) {
  for (const int format : {1, 2}) {
    const int32_t full[3] = {0xFFFF, format == 1 ? 0xF : 0xFF, format == 1 ? 0xF : 0xFF};
    std::vector<uint8_t> data = BitsOf("1"), st = NewState(format, 3);
    int32_t cbp[3] = {}, pos = 0;
    ASSERT_EQ(rvtiVLCDecodeCBPHP_JPEGXR_1u32s(data.data(), int32_t(data.size()), &pos, nullptr, nullptr, S(st), cbp),
              rvtStatusOk);
    EXPECT_EQ(pos, 1);
    for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(cbp[ch], full[ch]) << "format " << format << " channel " << ch;
    std::vector<uint8_t> enc = NewState(format, 3), out(8, 0);
    int32_t end = 0;
    ASSERT_EQ(rvtiVLCEncodeCBPHP_JPEGXR_32s1u(full, nullptr, nullptr, S(enc), out.data(), 8, &end), rvtStatusOk);
    EXPECT_EQ(end, 1);
    EXPECT_EQ(out[0], 0x80);
    EXPECT_EQ(enc, st);
  }
}


// The fast readers resolve whole codes (index with its sign, level with its
// extra bits, run with its extra bits) from per-table look-ups: every
// table of every slot (the run table's second one too, which adaptation
// never reaches), any model bits, near-empty or random streams cut short
// anywhere, each band decoded by both readers from the same context.
TEST(JpegXrVlc, FastReadersMatchTheReferenceInEveryTable) {
  test::Rng rng(29);
  for (int t = 0; t < 3000; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    State& s0 = *reinterpret_cast<State*>(st.data());
    for (int k = 0; k < vlc::kSlots; ++k) {
      s0.table[k] = int32_t(rng.Uniform(0, uint32_t(vlc::kSlotTables[k] - 1)));
      s0.disc[k] = int32_t(rng.Uniform(0, 128)) - 64;
      s0.disc1[k] = int32_t(rng.Uniform(0, 128)) - 64;
    }
    for (auto& b : s0.modelBits) b[0] = int32_t(rng.Uniform(0, 15)), b[1] = int32_t(rng.Uniform(0, 15));
    const int32_t len = int32_t(rng.Uniform(1, 64));
    std::vector<uint8_t> data(size_t(len) + 8);
    rng.Fill(data.data(), data.size(), uint8_t(0), uint8_t(255));
    if (t % 3 == 0) {  // mostly zeros: long runs and last positions
      for (auto& b : data) b = rng.Uniform(0, 7) ? uint8_t(0) : b;
    }
    const int32_t at = int32_t(rng.Uniform(0, uint32_t(8 * len)));
    std::vector<int32_t> cbp(16);
    for (auto& c : cbp) c = int32_t(rng.Uniform(0, 0xFFFF));
    const int32_t trim = int32_t(rng.Uniform(0, 15)), scan = int32_t(rng.Uniform(0, 1));
    const int band = t % 3;
    auto run = [&](auto reader, std::vector<int32_t>& coef, State& s, int32_t& pos) {
      using R = decltype(reader);
      pos = at;
      if (band == 0) return vlc::DecodeDCEntry<R>(data.data(), len, &pos, &s, coef.data());
      if (band == 1) return vlc::DecodeLPEntry<R>(data.data(), len, &pos, &s, coef.data());
      int32_t fpos = 0;
      return vlc::DecodeHPEntry<R>(data.data(), len, &pos, nullptr, 0, &fpos, trim, scan, cbp.data(), &s,
                                   coef.data());
    };
    std::vector<int32_t> cr(4096, 7), cf(4096, 7);
    State sr = s0, sf = s0;
    int32_t pr = 0, pf = 0;
    const RvtResult rr = run(vlc::RefReader{}, cr, sr, pr);
    const RvtResult rf = run(vlc::FastReader{}, cf, sf, pf);
    ASSERT_EQ(rr, rf) << "case " << t << " band " << band;
    ASSERT_EQ(pr, pf) << "case " << t;
    ASSERT_EQ(cr, cf) << "case " << t;
    ASSERT_EQ(std::memcmp(&sr, &sf, sizeof(State)), 0) << "case " << t;
  }
}

// HP refinement fields of every width (model bits less trim, 1..15), in
// long streams where whole blocks' fields come from fresh loads and in
// streams cut so a block's fields run into the end; coded and uncoded
// blocks, flexbits on their own stream or inline.  Both readers agree on
// status, positions, coefficients and context.
TEST(JpegXrVlc, RefinementFieldsOfEveryWidthMatchTheReference) {
  test::Rng rng(53);
  for (int t = 0; t < 1200; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    State& s0 = *reinterpret_cast<State*>(st.data());
    const int32_t bits = int32_t(1 + t % 15), trim = int32_t(rng.Uniform(0, uint32_t(bits - 1)));
    s0.modelBits[vlc::kHP][0] = s0.modelBits[vlc::kHP][1] = bits;
    const bool cut = t % 4 == 3, sep = rng.Uniform(0, 1);
    const int32_t len = cut ? int32_t(rng.Uniform(1, 40)) : 4096, flen = cut ? int32_t(rng.Uniform(1, 40)) : 4096;
    std::vector<uint8_t> data(static_cast<size_t>(len)), flex(static_cast<size_t>(flen));
    rng.Fill(data.data(), data.size(), uint8_t(0), uint8_t(255));
    rng.Fill(flex.data(), flex.size(), uint8_t(0), uint8_t(255));
    if (t % 3 == 0) {  // sparse: mostly zero fields, few signs
      for (auto& b : flex) b = rng.Uniform(0, 3) ? uint8_t(0) : b;
    }
    std::vector<int32_t> cbp(16);
    for (auto& c : cbp) c = rng.Uniform(0, 1) ? 0 : int32_t(rng.Uniform(0, 0xFFFF));
    const int32_t at = int32_t(rng.Uniform(0, 7)), fat = int32_t(rng.Uniform(0, 7));
    auto run = [&](auto reader, std::vector<int32_t>& coef, State& s, int32_t& pos, int32_t& fpos) {
      using R = decltype(reader);
      pos = at, fpos = fat;
      return vlc::DecodeHPEntry<R>(data.data(), len, &pos, sep ? flex.data() : nullptr, sep ? flen : 0, &fpos, trim,
                                   int32_t(t & 1), cbp.data(), &s, coef.data());
    };
    std::vector<int32_t> cr(4096, 7), cf(4096, 7);
    State sr = s0, sf = s0;
    int32_t pr = 0, pf = 0, fr = 0, ff = 0;
    const RvtResult rr = run(vlc::RefReader{}, cr, sr, pr, fr);
    const RvtResult rf = run(vlc::FastReader{}, cf, sf, pf, ff);
    ASSERT_EQ(rr, rf) << "case " << t;
    ASSERT_EQ(pr, pf) << "case " << t;
    ASSERT_EQ(fr, ff) << "case " << t;
    ASSERT_EQ(cr, cf) << "case " << t;
    ASSERT_EQ(std::memcmp(&sr, &sf, sizeof(State)), 0) << "case " << t;
  }
}

// The paired index look-up against the reference reader: every 10-bit
// window of every 6-symbol table gives the code and sign the reference
// reads, and after a lone 1 (no level, successor right after it) also the
// successor's code and sign; the bits taken and the discriminant steps of
// both as the reference counts them.
TEST(JpegXrVlc, PairedIndexLookUpMatchesTwoReferenceCodes) {
  const vlc::Alphabet& a = vlc::AlphabetOf(6);
  const int slot = int(vlc::kHpFirst) + int(vlc::kIndexLum);
  for (int t = 0; t < a.tables; ++t) {
    for (uint32_t v = 0; v < (1u << vlc::kPairBits); ++v) {
      const uint32_t word = v << (32 - vlc::kPairBits);
      const uint8_t bytes[4] = {uint8_t(word >> 24), uint8_t(word >> 16), uint8_t(word >> 8), uint8_t(word)};
      vlc::RefReader r{bytes, 32, 0};
      State s{};
      vlc::InitState(s, 0, 1);
      s.table[slot] = t;
      int sym = r.Symbol(a, t);
      vlc::Account(s, slot, sym);
      uint32_t neg = r.Bit();
      const bool pair = sym == 2;
      const uint32_t lone = neg;
      if (pair) {
        sym = r.Symbol(a, t);
        vlc::Account(s, slot, sym);
        neg = r.Bit();
      }
      const uint32_t e = vlc::kPair6.e[t][v];
      ASSERT_LE(r.pos, vlc::kPairBits) << "table " << t << " bits " << v;
      EXPECT_EQ(int(e & 15), sym) << "table " << t << " bits " << v;
      EXPECT_EQ((e >> 4) & 1, neg) << "table " << t << " bits " << v;
      EXPECT_EQ(((e >> 5) & 1) != 0, pair) << "table " << t << " bits " << v;
      if (pair) EXPECT_EQ((e >> 6) & 1, lone) << "table " << t << " bits " << v;
      EXPECT_EQ(int64_t((e >> 8) & 15), r.pos) << "table " << t << " bits " << v;
      EXPECT_EQ(int(int8_t(e >> 16)), s.disc[slot]) << "table " << t << " bits " << v;
      EXPECT_EQ(int(int8_t(e >> 24)), s.disc1[slot]) << "table " << t << " bits " << v;
    }
  }
}

// Stretches of +-1 in consecutive scan positions (the paired look-ups),
// starting and ending anywhere, the end at the fixed codes of positions 14
// and 15 too, with levels and runs around them, from every index table:
// both readers decode what was coded, to the same positions and context.
TEST(JpegXrVlc, StretchesOfOnesDecodeAnywhereInTheBlock) {
  test::Rng rng(41);
  for (int t = 0; t < 400; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> enc = NewState(f.format, f.channels);
    State& s = *reinterpret_cast<State*>(enc.data());
    for (int k = vlc::kHpFirst; k < vlc::kHpFirst + 8; ++k) {
      s.table[k] = int32_t(rng.Uniform(0, uint32_t(vlc::kSlotTables[k] - 1)));
    }
    for (auto& b : s.modelBits[vlc::kHP]) b = rng.Uniform(0, 2) == 2 ? 1 : 0;
    const State start = s;
    std::vector<uint8_t> buf(1 << 14, 0);
    int32_t pos = 0;
    std::vector<std::vector<int32_t>> mbs, cbps;
    std::vector<int> scans;
    for (int m = 0; m < 6; ++m) {
      // one block a macroblock, placed through the scan order as it stands
      const int scan = int(rng.Uniform(0, 1)), ch = int(rng.Uniform(0, uint32_t(f.channels - 1)));
      const int bits = s.modelBits[vlc::kHP][ch > 0];
      const uint8_t* order = s.order[1 + scan];
      std::vector<int32_t> hp(256 * size_t(f.channels), 0);
      int32_t* blk = hp.data() + 256 * ch + 16 * rng.Uniform(0, uint32_t(vlc::HpBlocks(s, ch) - 1));
      const int from = int(rng.Uniform(1, 15)), to = int(rng.Uniform(uint32_t(from), 15));
      for (int p = from; p <= to; ++p) {
        const int32_t v = int32_t((1u << bits) + rng.Uniform(0, (1u << bits) - 1));
        blk[order[p]] = rng.Uniform(0, 1) ? -v : v;
      }
      if (rng.Uniform(0, 1)) blk[order[rng.Uniform(1, 15)]] = int32_t(rng.Uniform(2, 40) << bits);  // a level
      std::vector<int32_t> cbp(16, 0);
      ASSERT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(hp.data(), scan, S(enc), cbp.data(), buf.data(), 1 << 14, &pos,
                                             nullptr, 0, nullptr, 0),
                rvtStatusOk);
      mbs.push_back(hp);
      cbps.push_back(cbp);
      scans.push_back(scan);
    }
    auto decode = [&](auto reader, State& st) {
      using R = decltype(reader);
      int32_t at = 0, fpos = 0;
      for (size_t m = 0; m < mbs.size(); ++m) {
        std::vector<int32_t> out(mbs[m].size(), 0);
        EXPECT_EQ(vlc::DecodeHPEntry<R>(buf.data(), 1 << 14, &at, nullptr, 0, &fpos, 0, scans[m], cbps[m].data(),
                                        &st, out.data()),
                  rvtStatusOk);
        EXPECT_EQ(out, mbs[m]) << "case " << t << " macroblock " << m;
      }
      EXPECT_EQ(at, pos) << "case " << t;
      EXPECT_EQ(std::memcmp(&st, &s, sizeof(State)), 0) << "case " << t;
    };
    State sr = start, sf = start;
    decode(vlc::RefReader{}, sr);
    decode(vlc::FastReader{}, sf);
    if (HasFailure()) return;
  }
}

// HP macroblocks of every kind of block (sparse to full, levels up to the
// escapes, refinement bits) that end at the end of their buffer, and the
// same cut short by one byte: the fast reader takes a coefficient's codes
// from a fresh load while 8 bytes remain and from the careful window after
// that, so the last codes of a stream come through both; both readers
// agree on status, positions, coefficients and context, and a whole
// stream gives back what was coded.
TEST(JpegXrVlc, HpMacroblocksEndingAtTheBufferEnd) {
  test::Rng rng(67);
  for (int t = 0; t < 300; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> enc = NewState(f.format, f.channels);
    State& s = *reinterpret_cast<State*>(enc.data());
    for (auto& b : s.modelBits[vlc::kHP]) b = int32_t(rng.Uniform(0, 3));
    const State start = s;
    const int scan = int(rng.Uniform(0, 1)), density = int(rng.Uniform(1, 16));
    std::vector<int32_t> hp(256 * size_t(f.channels), 0);
    for (int ch = 0; ch < f.channels; ++ch) {
      for (int b = 0; b < vlc::HpBlocks(s, ch); ++b) {
        for (int k = 1; k < 16; ++k) {
          if (int(rng.Uniform(1, 16)) > density) continue;
          const uint32_t pick = rng.Uniform(0, 15);
          const int32_t v = int32_t(pick < 9 ? 1 : pick < 14 ? rng.Uniform(2, 40) : rng.Uniform(18, 1 << 20));
          hp[256 * size_t(ch) + 16 * size_t(b) + size_t(k)] = rng.Uniform(0, 1) ? -v : v;
        }
      }
    }
    std::vector<uint8_t> buf(1 << 16, 0);
    int32_t end = int32_t(rng.Uniform(0, 7));
    const int32_t from = end;
    std::vector<int32_t> cbp(16, 0);
    ASSERT_EQ(rvtiVLCEncodeHP_JPEGXR_32s1u(hp.data(), scan, S(enc), cbp.data(), buf.data(), 1 << 16, &end, nullptr,
                                           0, nullptr, 0),
              rvtStatusOk);
    const int32_t whole = (end + 7) / 8;
    for (int32_t len : {whole, whole - 1}) {
      if (len < 1) continue;
      const std::vector<uint8_t> data(buf.begin(), buf.begin() + len);
      auto decode = [&](auto reader, std::vector<int32_t>& out, State& st, int32_t& pos) {
        using R = decltype(reader);
        int32_t fpos = 0;
        pos = from;
        return vlc::DecodeHPEntry<R>(data.data(), len, &pos, nullptr, 0, &fpos, 0, scan, cbp.data(), &st,
                                     out.data());
      };
      std::vector<int32_t> cr(hp.size(), 7), cf(hp.size(), 7);
      State sr = start, sf = start;
      int32_t pr = 0, pf = 0;
      const RvtResult rr = decode(vlc::RefReader{}, cr, sr, pr);
      ASSERT_EQ(decode(vlc::FastReader{}, cf, sf, pf), rr) << "case " << t << " length " << len;
      ASSERT_EQ(pf, pr) << "case " << t;
      ASSERT_EQ(cf, cr) << "case " << t;
      ASSERT_EQ(std::memcmp(&sf, &sr, sizeof(State)), 0) << "case " << t;
      if (len == whole) {
        ASSERT_EQ(rr, rvtStatusOk) << "case " << t;
        ASSERT_EQ(pr, end) << "case " << t;
        for (size_t k = 0; k < hp.size(); ++k) {
          const bool held = k % 16 && int(k % 256 / 16) < vlc::HpBlocks(start, int(k / 256));
          if (held) ASSERT_EQ(cr[k], hp[k]) << "case " << t << " coefficient " << k;
        }
      }
    }
  }
}

// HP macroblocks coded from a context that has moved (model bits over and
// under the trim), into buffers with bits before the start to keep, with
// room to spare (the fast run) or barely any (the careful one), flexbits
// in the stream or apart.
std::vector<test::Case> EncodeHpCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int t = 0; t < 120; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    auto& bits = reinterpret_cast<vlc::State*>(st.data())->modelBits[vlc::kHP];
    bits[0] = int(rng.Uniform(0, 10)), bits[1] = int(rng.Uniform(0, 10));
    std::vector<uint8_t> scratch(1 << 17), flexScratch(1 << 16);
    std::vector<int32_t> cbp(size_t(f.channels));
    auto macroblock = [&] {
      Mb m = RandomMb(rng, f.channels, int(rng.Uniform(0, 3)));
      if (rng.Uniform(0, 1)) {  // magnitudes around the model bits
        for (size_t k = 0; k < m.hp.size(); ++k) {
          const int b = bits[k >= 256] + 2;
          if (k % 16 && rng.Uniform(0, 2)) m.hp[k] = int32_t(rng.Uniform(0, 2u << b)) - int32_t(1 << b);
        }
      }
      return m;
    };
    for (int i = int(rng.Uniform(0, 4)); i > 0; --i) {
      int32_t pos = 0, fpos = 0;
      const Mb m = macroblock();
      rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), int32_t(rng.Uniform(0, 1)), S(st), cbp.data(), scratch.data(),
                                   1 << 17, &pos, flexScratch.data(), 1 << 16, &fpos, 0);
      if (rng.Uniform(0, 1)) rvtiVLCAdapt_JPEGXR(S(st), int32_t(rng.Uniform(1, 31)));
    }
    Mb m = macroblock();
    if (t % 4 == 3) {  // no model bits: the escape's largest level, or past it (refused)
      bits[0] = bits[1] = 0;
      const int32_t big[4] = {int32_t(vlc::kMaxLevel), -int32_t(vlc::kMaxLevel), int32_t(vlc::kMaxLevel + 1),
                              INT32_MIN};
      m.hp[16 * rng.Uniform(0, 15) + rng.Uniform(1, 15)] = big[rng.Uniform(0, 3)];
    }
    if (t % 9 == 8) {  // discriminants anywhere (a caller that never adapts): their sums wrap
      auto* vs = reinterpret_cast<vlc::State*>(st.data());
      for (int k = vlc::kHpFirst; k < vlc::kHpFirst + 8; ++k) {
        vs->disc[k] = int32_t(rng.Uniform(0, 1) ? INT32_MAX - rng.Uniform(0, 40) : INT32_MIN + rng.Uniform(0, 40));
        vs->disc1[k] = int32_t(rng.Uniform(0, 1) ? INT32_MAX - rng.Uniform(0, 40) : INT32_MIN + rng.Uniform(0, 40));
      }
    }
    if (t % 7 == 6) {  // scan orders no coder keeps, which a state may still hold
      auto* vs = reinterpret_cast<vlc::State*>(st.data());
      vs->order[1][rng.Uniform(1, 15)] = 0;  // the DC's place
      vs->order[2][rng.Uniform(1, 15)] = uint8_t(rng.Uniform(0, 15));
    }
    const bool sep = rng.Uniform(0, 1);
    const int32_t start = int32_t(rng.Uniform(0, 40)), fstart = int32_t(rng.Uniform(0, 40));
    const int32_t roomy = 256 * f.channels * 100 / 8 + 64;
    const int32_t len = t % 3 == 2 ? int32_t(rng.Uniform(6, 600)) : roomy;
    const int32_t flexLen = !sep ? 0 : t % 5 == 4 ? int32_t(rng.Uniform(6, 300)) : roomy;
    test::Case k;
    k.label = "format " + std::to_string(f.format) + " channels " + std::to_string(f.channels);
    test::Buf coef = test::ArrayOf<int32_t>(256 * f.channels);
    std::memcpy(coef.as<int32_t>(), m.hp.data(), 4 * m.hp.size());
    k.in.push_back(std::move(coef));
    test::Buf sb = test::ArrayOf<uint8_t>(int(st.size()));
    std::memcpy(sb.as<uint8_t>(), st.data(), st.size());
    k.out.push_back(std::move(sb));
    k.out.push_back(test::ArrayOf<int32_t>(f.channels));
    test::Buf dst = test::ArrayOf<uint8_t>(len);
    rng.Fill(dst.as<uint8_t>(), size_t(len), uint8_t(0), uint8_t(255));
    k.out.push_back(std::move(dst));
    test::Buf flex = test::ArrayOf<uint8_t>(sep ? flexLen : 1);
    rng.Fill(flex.as<uint8_t>(), size_t(sep ? flexLen : 1), uint8_t(0), uint8_t(255));
    k.out.push_back(std::move(flex));
    test::Buf ps = test::ArrayOf<int32_t>(2);
    ps.as<int32_t>()[0] = start, ps.as<int32_t>()[1] = fstart;
    k.out.push_back(std::move(ps));
    k.arg[0] = len;
    k.arg[1] = flexLen;
    k.arg[2] = int32_t(rng.Uniform(0, 5));  // trim
    k.arg[3] = int32_t(rng.Uniform(0, 1));  // scan
    out.push_back(std::move(k));
  }
  return out;
}

RVT_CHECKASM(rvtiVLCEncodeHP_JPEGXR_32s1u,
             test::Cases{[](test::Rng& rng) { return EncodeHpCases(rng); },
                         [](auto fn, test::Case& k) {
                           int32_t* ps = k.out[4].as<int32_t>();
                           return fn(k.in[0].as<int32_t>(), int32_t(k.arg[3]), k.out[0].as<VLCState_JPEGXR>(),
                                     k.out[1].as<int32_t>(), k.out[2].as<uint8_t>(), int32_t(k.arg[0]), ps,
                                     k.arg[1] ? k.out[3].as<uint8_t>() : nullptr, int32_t(k.arg[1]), ps + 1,
                                     int32_t(k.arg[2]));
                         }});

// DC or LP macroblocks coded from a context that has moved (model bits,
// tables, the LP scan order and pattern counters), magnitudes around the
// model bits, now and then one at or past the escape's reach (refused);
// into buffers with bits before the start to keep, with room to spare (the
// fast run) or barely any (the careful one).
std::vector<test::Case> EncodeLowCases(test::Rng& rng, int band) {
  auto encode = [band](const int32_t* c, VLCState_JPEGXR* st, uint8_t* d, int32_t n, int32_t* p) {
    return band == vlc::kDC ? rvtiVLCEncodeDC_JPEGXR_32s1u(c, st, d, n, p)
                            : rvtiVLCEncodeLP_JPEGXR_32s1u(c, st, d, n, p);
  };
  std::vector<test::Case> out;
  for (int t = 0; t < 160; ++t) {
    const Format f = kFormats[rng.Uniform(0, 6)];
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    auto& bits = reinterpret_cast<vlc::State*>(st.data())->modelBits[band];
    std::vector<uint8_t> scratch(1 << 14);
    auto macroblock = [&] {
      Mb m = RandomMb(rng, f.channels, 0);
      for (size_t k = 0; k < m.dclp.size(); ++k) {
        const int b = bits[k >= 16] + 2;
        const uint32_t r = rng.Uniform(0, 3);
        if (r == 0) m.dclp[k] = 0;
        else if (r == 1) m.dclp[k] = int32_t(rng.Uniform(0, 2u << b)) - int32_t(1 << b);
      }
      return m;
    };
    for (int i = int(rng.Uniform(0, 6)); i > 0; --i) {
      bits[0] = int(rng.Uniform(0, 10)), bits[1] = int(rng.Uniform(0, 10));
      int32_t pos = 0;
      const Mb m = macroblock();
      encode(m.dclp.data(), S(st), scratch.data(), 1 << 14, &pos);
      if (rng.Uniform(0, 1)) rvtiVLCAdapt_JPEGXR(S(st), int32_t(rng.Uniform(1, 31)));
    }
    Mb m = macroblock();
    if (t % 4 == 3) {  // no model bits: the escape's largest level, or past it
      bits[0] = bits[1] = 0;
      const int32_t big[4] = {int32_t(vlc::kMaxLevel) - (band == vlc::kDC), -int32_t(vlc::kMaxLevel),
                              int32_t(vlc::kMaxLevel + 1), INT32_MIN};
      m.dclp[16 * rng.Uniform(0, uint32_t(f.channels) - 1) + (band == vlc::kDC ? 0 : rng.Uniform(1, 3))] =
          big[rng.Uniform(0, 3)];
    }
    if (t % 7 == 6) {  // an LP scan order no coder keeps
      reinterpret_cast<vlc::State*>(st.data())->order[0][rng.Uniform(1, 15)] = 0;  // the DC's place
    }
    const int32_t start = int32_t(rng.Uniform(0, 40));
    const int32_t roomy = (16 * f.channels + 1) * 100 / 8 + 64;
    const int32_t len = t % 3 == 2 ? int32_t(rng.Uniform(6, 200)) : roomy;
    test::Case k;
    k.label = "band " + std::to_string(band) + " format " + std::to_string(f.format) + " channels " +
              std::to_string(f.channels);
    test::Buf coef = test::ArrayOf<int32_t>(16 * f.channels);
    std::memcpy(coef.as<int32_t>(), m.dclp.data(), 4 * m.dclp.size());
    k.in.push_back(std::move(coef));
    test::Buf sb = test::ArrayOf<uint8_t>(int(st.size()));
    std::memcpy(sb.as<uint8_t>(), st.data(), st.size());
    k.out.push_back(std::move(sb));
    test::Buf dst = test::ArrayOf<uint8_t>(len);
    rng.Fill(dst.as<uint8_t>(), size_t(len), uint8_t(0), uint8_t(255));
    k.out.push_back(std::move(dst));
    test::Buf ps = test::ArrayOf<int32_t>(1);
    ps.as<int32_t>()[0] = start;
    k.out.push_back(std::move(ps));
    k.arg[0] = len;
    out.push_back(std::move(k));
  }
  return out;
}

template <class Fn>
RvtResult EncodeLowCase(Fn fn, test::Case& k) {
  return fn(k.in[0].as<int32_t>(), k.out[0].as<VLCState_JPEGXR>(), k.out[1].as<uint8_t>(), int32_t(k.arg[0]),
            k.out[2].as<int32_t>());
}

RVT_CHECKASM(rvtiVLCEncodeDC_JPEGXR_32s1u,
             test::Cases{[](test::Rng& rng) { return EncodeLowCases(rng, vlc::kDC); },
                         [](auto fn, test::Case& k) { return EncodeLowCase(fn, k); }});
RVT_CHECKASM(rvtiVLCEncodeLP_JPEGXR_32s1u,
             test::Cases{[](test::Rng& rng) { return EncodeLowCases(rng, vlc::kLP); },
                         [](auto fn, test::Case& k) { return EncodeLowCase(fn, k); }});

// A context lying inside the output buffer (the coders' writes reach it
// while they run): every form gives the reference's bytes, position and
// status, so no fast form may code on such a context in place.
TEST(JpegXrVlcEncode, ContextInsideTheOutputGivesTheReferenceResult) {
  test::Rng rng(33);
  for (const Format& f : kFormats) {
    std::vector<uint8_t> st = NewState(f.format, f.channels);
    std::vector<uint8_t> scratch(1 << 16);
    std::vector<int32_t> cbp(size_t(f.channels));
    for (int i = 0; i < 3; ++i) {  // a context that has moved
      int32_t a = 0, b = 0, c = 0;
      const Mb m = RandomMb(rng, f.channels, 2);
      rvtiVLCEncodeDC_JPEGXR_32s1u(m.dclp.data(), S(st), scratch.data(), 1 << 16, &a);
      rvtiVLCEncodeLP_JPEGXR_32s1u(m.dclp.data(), S(st), scratch.data(), 1 << 16, &b);
      rvtiVLCEncodeHP_JPEGXR_32s1u(m.hp.data(), 0, S(st), cbp.data(), scratch.data(), 1 << 16, &c, nullptr, 0,
                                   nullptr, 0);
    }
    const Mb m = RandomMb(rng, f.channels, 2);
    const size_t at = 0;  // (the coders write over it from their first word)
    std::vector<uint8_t> pristine(at + st.size() + (1 << 14), 0x5A);
    std::memcpy(pristine.data() + at, st.data(), st.size());
    const int32_t len = int32_t(pristine.size());
    std::vector<int32_t> pattern(size_t(f.channels));
    for (int ch = 0; ch < f.channels; ++ch) {
      pattern[size_t(ch)] = int32_t(rng.Uniform(0, 0xFFFF)) & int32_t((1u << vlc::HpBlocks(
                                *reinterpret_cast<const State*>(st.data()), ch)) - 1u);
    }
    for (int band = 0; band < 4; ++band) {
      auto run = [&](auto fn, std::vector<uint8_t>& buf, int32_t& pos) {
        auto* inside = reinterpret_cast<VLCState_JPEGXR*>(buf.data() + at);
        if constexpr (std::is_same_v<decltype(fn), decltype(&rvtiVLCEncodeHP_JPEGXR_32s1u)>) {
          return fn(m.hp.data(), 1, inside, cbp.data(), buf.data(), len, &pos, nullptr, 0, nullptr, 0);
        } else if constexpr (std::is_same_v<decltype(fn), decltype(&rvtiVLCEncodeCBPHP_JPEGXR_32s1u)>) {
          return fn(pattern.data(), pattern.data(), nullptr, inside, buf.data(), len, &pos);
        } else {
          return fn(m.dclp.data(), inside, buf.data(), len, &pos);
        }
      };
      auto check = [&](const auto& impl) {
        std::vector<uint8_t> want = pristine;
        int32_t wantPos = 0;
        const RvtResult r = run(test::Reference(impl), want, wantPos);
        for (const auto& t : test::AllTargets(impl)) {
          std::vector<uint8_t> got = pristine;
          int32_t pos = 0;
          EXPECT_EQ(run(t.fn, got, pos), r) << t.name << " band " << band << " format " << f.format;
          EXPECT_EQ(pos, wantPos) << t.name << " band " << band << " format " << f.format;
          EXPECT_TRUE(got == want) << t.name << " band " << band << " format " << f.format;
        }
      };
      if (band == 0) check(impl_rvtiVLCEncodeDC_JPEGXR_32s1u);
      else if (band == 1) check(impl_rvtiVLCEncodeLP_JPEGXR_32s1u);
      else if (band == 2) check(impl_rvtiVLCEncodeHP_JPEGXR_32s1u);
      else check(impl_rvtiVLCEncodeCBPHP_JPEGXR_32s1u);
    }
  }
}


// A context lying inside the source (the bands read its bytes as coded
// bits while decoding moves it): every form gives the reference's status,
// position, context and coefficients, so no fast form may decode on such a
// context in place.
TEST(JpegXrVlcDecode, ContextInsideTheSourceGivesTheReferenceResult) {
  test::Rng rng(34);
  for (const Format& f : kFormats) {
    const std::vector<uint8_t> st = NewState(f.format, f.channels);
    for (int i = 0; i < 40; ++i) {
      std::vector<uint8_t> pristine(st.size() + 512);
      std::memcpy(pristine.data(), st.data(), st.size());
      rng.Fill(pristine.data() + st.size(), 512, uint8_t(0), uint8_t(255));
      const int32_t len = int32_t(pristine.size());
      const int32_t start = int32_t(rng.Uniform(0, 8 * int64_t(st.size()) - 1));
      const int32_t trim = int32_t(rng.Uniform(0, 3));
      std::vector<int32_t> cbp(size_t(f.channels), 0xFFFF);
      for (int band = 0; band < 3; ++band) {
        auto run = [&](auto fn, std::vector<uint8_t>& buf, int32_t& pos, std::vector<int32_t>& coef) {
          auto* inside = reinterpret_cast<VLCState_JPEGXR*>(buf.data());
          if constexpr (std::is_same_v<decltype(fn), decltype(&rvtiVLCDecodeHP_JPEGXR_1u32s)>) {
            return fn(buf.data(), len, &pos, nullptr, 0, nullptr, trim, 0, cbp.data(), inside, coef.data());
          } else {
            return fn(buf.data(), len, &pos, inside, coef.data());
          }
        };
        auto check = [&](const auto& impl) {
          std::vector<uint8_t> want = pristine;
          std::vector<int32_t> wantCoef(256 * size_t(f.channels), 7);
          int32_t wantPos = start;
          const RvtResult r = run(test::Reference(impl), want, wantPos, wantCoef);
          for (const auto& t : test::AllTargets(impl)) {
            std::vector<uint8_t> got = pristine;
            std::vector<int32_t> coef(256 * size_t(f.channels), 7);
            int32_t pos = start;
            const std::string where = std::string(t.name) + " band " + std::to_string(band) + " format " +
                                      std::to_string(f.format) + " case " + std::to_string(i);
            EXPECT_EQ(run(t.fn, got, pos, coef), r) << where;
            EXPECT_EQ(pos, wantPos) << where;
            EXPECT_TRUE(got == want) << where;
            EXPECT_TRUE(coef == wantCoef) << where;
          }
        };
        if (band == 0) check(impl_rvtiVLCDecodeDC_JPEGXR_1u32s);
        else if (band == 1) check(impl_rvtiVLCDecodeLP_JPEGXR_1u32s);
        else check(impl_rvtiVLCDecodeHP_JPEGXR_1u32s);
      }
    }
  }
}

}  // namespace
}  // namespace rvt
