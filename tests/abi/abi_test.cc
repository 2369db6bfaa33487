// Through the shared library only: every listed export is declared by the
// header with the listed signature, the load-time variant choice follows the
// processor's feature mask, and every export gives its defined results
// whatever was chosen (the reference path included).
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "rvtcore.h"
#include "rvtjp.h"

// The header declares each export of the list with exactly its signature.
#define RVT_EXPORT(name, ret, params) \
  static_assert(std::is_same_v<decltype(&name), ret(*) params>, #name " differs from the list");
#include "../../src/frame/exports.inc"
#undef RVT_EXPORT

namespace {

// Expected mask under a preloaded stand-in core, or the real one.
uint64_t ExpectedMask() {
  const char* e = std::getenv("RVT_TEST_EXPECT_MASK");
  if (!e) return rvtGetEnabledCpuFeatures();
  if (!std::strcmp(e, "n8")) return 0x30;
  if (!std::strcmp(e, "u8")) return 0x10;
  return 0;
}

TEST(Abi, VersionRecordFollowsFeatureMask) {
  const uint64_t mask = ExpectedMask();
  ASSERT_EQ(rvtGetEnabledCpuFeatures(), mask);
  const bool n8 = (mask & 0x10) && (mask & 0x20);
  const LibraryVersion* v = rvtjGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v, rvtjGetLibVersion());
  EXPECT_EQ(v->major, 7);
  EXPECT_EQ(v->minor, 1);
  EXPECT_EQ(v->majorBuild, 0);
  EXPECT_EQ(v->build, 36264);
  EXPECT_EQ(0, std::memcmp(v->targetCpu, n8 ? "n8\0\0" : "u8\0\0", 4));
  EXPECT_STREQ(v->Name, n8 ? "rvtJP Tarn (n8)" : "rvtJP SSSE3 (u8)");
  EXPECT_STREQ(v->Version, "7.1.0 (r36264)");
  EXPECT_STREQ(v->BuildDate, "Jul 23 2012");
  EXPECT_EQ(sizeof(LibraryVersion), 48u);  // 4 ints, char[4], padding, 3 pointers
  EXPECT_EQ(sizeof(ImageSize), 8u);
  EXPECT_EQ(sizeof(ImageRect), 16u);
  EXPECT_EQ(sizeof(RvtResult), 4u);
}

// Whatever implementation was chosen at load, a level shift round trip
// over a threaded region gives the defined values.
TEST(Abi, LevelShiftThroughChosenImplementation) {
  const int w = 333, h = 71;  // odd, above the serial limit
  std::vector<uint8_t> src(w * h), back(w * h);
  std::vector<int16_t> mid(w * h);
  for (int i = 0; i < w * h; ++i) src[i] = uint8_t(i * 7 + i / 13);
  ASSERT_EQ(rvtiSub128_JPEG_8u16s_C1R(src.data(), w, mid.data(), 2 * w, {w, h}), rvtStatusOk);
  for (int i = 0; i < w * h; ++i) ASSERT_EQ(mid[i], src[i] - 128) << i;
  ASSERT_EQ(rvtiAdd128_JPEG_16s8u_C1R(mid.data(), 2 * w, back.data(), w, {w, h}), rvtStatusOk);
  EXPECT_EQ(src, back);
}

// One digest of everything a family's exports wrote (and returned) on fixed
// inputs: every export of the list is called.  The digests below are the
// references' results; abi_variant_none (no SSSE3) runs the references
// themselves, the other runs the targets chosen for their processors.
class Digest {
 public:
  template <class T>
  void Add(const T* p, size_t n) {
    const auto* b = reinterpret_cast<const uint8_t*>(p);
    for (size_t i = 0; i < n * sizeof(T); ++i) h_ = (h_ ^ b[i]) * 0x100000001B3ull;
  }
  template <class T>
  void Add(const std::vector<T>& v) { Add(v.data(), v.size()); }
  void Status(RvtResult r) {
    EXPECT_GE(r, rvtStatusOk) << "call " << calls_;  // every call does its work
    ++calls_;
    Add(&r, 1);
  }
  uint64_t value() const { return h_; }

 private:
  uint64_t h_ = 0xCBF29CE484222325ull;
  int calls_ = 0;
};

template <class T>
std::vector<T> Random(size_t n, uint32_t seed, int lo, int hi) {
  std::vector<T> v(n);
  for (auto& x : v) {
    seed = seed * 1664525u + 1013904223u;
    x = T(lo + int((seed >> 8) % uint32_t(hi - lo + 1)));
  }
  return v;
}

// Regions above the serial limit, odd in both directions, with one step
// wide enough for four 16-bit channels.
constexpr int kW = 131, kH = 71, kStep = 8 * kW;
constexpr ImageSize kRoi = {kW, kH};

uint64_t QuantDigest() {
  Digest d;
  std::vector<uint8_t> raw = Random<uint8_t>(64, 1, 1, 120);
  std::vector<uint16_t> fwd(64), inv(64);
  d.Status(rvtiQuantFwdRawTableInit_JPEG_8u(raw.data(), 75));
  d.Status(rvtiQuantFwdTableInit_JPEG_8u16u(raw.data(), fwd.data()));
  d.Status(rvtiQuantInvTableInit_JPEG_8u16u(raw.data(), inv.data()));
  std::vector<int16_t> blk = Random<int16_t>(64, 2, -2000, 2000);
  d.Status(rvtiQuantFwd8x8_JPEG_16s_C1I(blk.data(), fwd.data()));
  d.Add(blk);
  d.Status(rvtiQuantInv8x8_JPEG_16s_C1I(blk.data(), inv.data()));
  d.Add(raw), d.Add(fwd), d.Add(inv), d.Add(blk);
  return d.value();
}

// Forward and inverse tables of a mid-quality table.
void Tables(std::vector<uint16_t>* fwd, std::vector<uint16_t>* inv) {
  std::vector<uint8_t> raw = Random<uint8_t>(64, 3, 2, 40);
  fwd->resize(64), inv->resize(64);
  rvtiQuantFwdTableInit_JPEG_8u16u(raw.data(), fwd->data());
  rvtiQuantInvTableInit_JPEG_8u16u(raw.data(), inv->data());
}

uint64_t DctFwdDigest() {
  Digest d;
  std::vector<uint16_t> fwd, inv;
  Tables(&fwd, &inv);
  std::vector<float> ffwd(64);
  for (int i = 0; i < 64; ++i) ffwd[size_t(i)] = 1.0f / float(3 + i % 11);
  std::vector<int16_t> s16 = Random<int16_t>(64, 4, -128, 127), out(64);
  d.Status(rvtiDCTQuantFwd8x8_JPEG_16s_C1(s16.data(), out.data(), fwd.data()));
  d.Add(out);
  d.Status(rvtiDCTQuantFwd8x8_JPEG_16s_C1I(s16.data(), fwd.data()));
  d.Add(s16);
  std::vector<uint8_t> s8 = Random<uint8_t>(8 * 20, 5, 0, 255);
  d.Status(rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(s8.data(), 20, out.data(), fwd.data()));
  d.Add(out);
  std::vector<uint16_t> s12 = Random<uint16_t>(8 * 10, 6, 0, 4095);
  d.Status(rvtiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(s12.data(), 20, out.data(), ffwd.data()));
  d.Add(out);
  return d.value();
}

uint64_t DctInvDigest() {
  Digest d;
  std::vector<uint16_t> fwd, inv;
  Tables(&fwd, &inv);
  const std::vector<int16_t> coef = Random<int16_t>(64, 7, -12, 12);
  std::vector<int16_t> s16(64), io = coef;
  d.Status(rvtiDCTQuantInv8x8_JPEG_16s_C1(coef.data(), s16.data(), inv.data()));
  d.Status(rvtiDCTQuantInv8x8_JPEG_16s_C1I(io.data(), inv.data()));
  d.Add(s16), d.Add(io);
  std::vector<uint16_t> u16(8 * 12, 0xA5A5);
  d.Status(rvtiDCTQuantInv8x8LS_JPEG_16s16u_C1R(coef.data(), u16.data(), 24, inv.data()));
  d.Add(u16);
  using Fn = RvtResult (*)(const int16_t*, uint8_t*, int32_t, const uint16_t*);
  for (Fn fn : {rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R, rvtiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R,
                rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R,
                rvtiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, rvtiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R}) {
    std::vector<uint8_t> u8(8 * 12, 0xA5);
    d.Status(fn(coef.data(), u8.data(), 12, inv.data()));
    d.Add(u8);
  }
  return d.value();
}

// Source and destination planes of a colour or sampling region.
struct Planes {
  explicit Planes(uint32_t seed) {
    for (int c = 0; c < 4; ++c) {
      buf[c] = Random<uint8_t>(size_t(kStep) * 2 * kH, seed + uint32_t(c), 0, 255);
      p[c] = buf[c].data();
    }
  }
  void AddTo(Digest* d) const {
    for (const auto& b : buf) d->Add(b);
  }
  std::vector<uint8_t> buf[4];
  uint8_t* p[4];
};

uint64_t ColorFwdDigest() {
  Digest d;
  const std::vector<uint8_t> src = Random<uint8_t>(size_t(kStep) * kH, 8, 0, 255);
  const Planes in(9);
  const uint8_t* const* ip = in.p;
  const auto* s16 = reinterpret_cast<const uint16_t*>(src.data());
  using C = RvtResult (*)(const uint8_t*, int32_t, uint8_t* const*, int32_t, ImageSize);
  for (C fn : {rvtiRGBToYCbCr_JPEG_8u_C3P3R, rvtiBGRToYCbCr_JPEG_8u_C3P3R,
               rvtiRGBToYCbCr_JPEG_8u_C4P3R, rvtiBGRToYCbCr_JPEG_8u_C4P3R,
               rvtiRGBToYCbCr411_JPEG_8u_C3P3R, rvtiRGBToYCbCr411_JPEG_8u_C4P3R,
               rvtiBGRToYCbCr411_JPEG_8u_C3P3R, rvtiBGRToYCbCr411_JPEG_8u_C4P3R,
               rvtiRGBToYCbCr422_JPEG_8u_C3P3R, rvtiRGBToYCbCr422_JPEG_8u_C4P3R,
               rvtiBGRToYCbCr422_JPEG_8u_C3P3R, rvtiBGRToYCbCr422_JPEG_8u_C4P3R,
               rvtiCMYKToYCCK_JPEG_8u_C4P4R}) {
    Planes out(10);
    d.Status(fn(src.data(), kStep, out.p, kStep, kRoi));
    out.AddTo(&d);
  }
  using C16 = RvtResult (*)(const uint16_t*, int32_t, uint8_t* const*, int32_t, ImageSize);
  for (C16 fn : {rvtiRGB555ToYCbCr_JPEG_16u8u_C3P3R, rvtiRGB565ToYCbCr_JPEG_16u8u_C3P3R,
                 rvtiBGR555ToYCbCr_JPEG_16u8u_C3P3R, rvtiBGR565ToYCbCr_JPEG_16u8u_C3P3R}) {
    Planes out(10);
    d.Status(fn(s16, kStep, out.p, kStep, kRoi));
    out.AddTo(&d);
  }
  for (auto fn : {rvtiRGBToYCbCr_JPEG_8u_P3R, rvtiCMYKToYCCK_JPEG_8u_P4R}) {
    Planes out(10);
    d.Status(fn(ip, kStep, out.p, kStep, kRoi));
    out.AddTo(&d);
  }
  using Y = RvtResult (*)(const uint8_t*, int32_t, uint8_t*, int32_t, ImageSize);
  for (Y fn : {rvtiRGBToY_JPEG_8u_C3C1R, rvtiBGRToY_JPEG_8u_C3C1R}) {
    Planes out(10);
    d.Status(fn(src.data(), kStep, out.p[0], kStep, kRoi));
    out.AddTo(&d);
  }
  Planes out(10);
  d.Status(rvtiRGBToY_JPEG_8u_P3C1R(ip, kStep, out.p[0], kStep, kRoi));
  out.AddTo(&d);
  return d.value();
}

uint64_t ColorInvDigest() {
  Digest d;
  const Planes in(11);
  const uint8_t* const* ip = in.p;
  auto fresh = [] { return Random<uint8_t>(size_t(kStep) * kH, 12, 0, 255); };
  using P = RvtResult (*)(const uint8_t* const*, int32_t, uint8_t*, int32_t, ImageSize);
  for (P fn : {rvtiYCbCrToRGB_JPEG_8u_P3C3R, rvtiYCbCrToBGR_JPEG_8u_P3C3R,
               rvtiYCbCr411ToRGB_JPEG_8u_P3C3R, rvtiYCbCr411ToBGR_JPEG_8u_P3C3R,
               rvtiYCbCr422ToRGB_JPEG_8u_P3C3R, rvtiYCbCr422ToBGR_JPEG_8u_P3C3R,
               rvtiYCCKToCMYK_JPEG_8u_P4C4R}) {
    std::vector<uint8_t> out = fresh();
    d.Status(fn(ip, kStep, out.data(), kStep, kRoi));
    d.Add(out);
  }
  using A = RvtResult (*)(const uint8_t* const*, int32_t, uint8_t*, int32_t, ImageSize, uint8_t);
  for (A fn : {rvtiYCbCrToRGB_JPEG_8u_P3C4R, rvtiYCbCrToBGR_JPEG_8u_P3C4R,
               rvtiYCbCr411ToRGB_JPEG_8u_P3C4R, rvtiYCbCr411ToBGR_JPEG_8u_P3C4R,
               rvtiYCbCr422ToRGB_JPEG_8u_P3C4R, rvtiYCbCr422ToBGR_JPEG_8u_P3C4R}) {
    std::vector<uint8_t> out = fresh();
    d.Status(fn(ip, kStep, out.data(), kStep, kRoi, 0xC3));
    d.Add(out);
  }
  using P16 = RvtResult (*)(const uint8_t* const*, int32_t, uint16_t*, int32_t, ImageSize);
  for (P16 fn : {rvtiYCbCrToRGB555_JPEG_8u16u_P3C3R, rvtiYCbCrToRGB565_JPEG_8u16u_P3C3R,
                 rvtiYCbCrToBGR555_JPEG_8u16u_P3C3R, rvtiYCbCrToBGR565_JPEG_8u16u_P3C3R}) {
    std::vector<uint8_t> out = fresh();
    d.Status(fn(ip, kStep, reinterpret_cast<uint16_t*>(out.data()), kStep, kRoi));
    d.Add(out);
  }
  for (auto fn : {rvtiYCbCrToRGB_JPEG_8u_P3R, rvtiYCCKToCMYK_JPEG_8u_P4R}) {
    Planes out(13);
    d.Status(fn(ip, kStep, out.p, kStep, kRoi));
    out.AddTo(&d);
  }
  std::vector<uint8_t> out = fresh();
  d.Status(rvtiYCbCr422ToRGB_JPEG_8u_C2C3R(in.p[0], kStep, out.data(), kStep, kRoi));
  d.Add(out);
  return d.value();
}

uint64_t SamplingDigest() {
  Digest d;
  const Planes in(14);
  const ImageSize half = {kW / 2 + 1, kH / 2 + 1}, halfH = {kW / 2 + 1, kH};
  const ImageSize twiceH = {2 * kW, kH};
  struct Region {
    RvtResult (*fn)(const uint8_t*, int32_t, ImageSize, uint8_t*, int32_t, ImageSize);
    ImageSize src, dst;
  };
  for (const Region& r : {Region{rvtiSampleDownH2V1_JPEG_8u_C1R, kRoi, halfH},
                          Region{rvtiSampleDownH2V2_JPEG_8u_C1R, kRoi, half},
                          Region{rvtiSampleUpH2V1_JPEG_8u_C1R, kRoi, twiceH},
                          Region{rvtiSampleUpH2V2_JPEG_8u_C1R, {kW, kH - 1}, {2 * kW, 2 * kH - 2}}}) {
    Planes out(15);
    // The up-samplers read one sample and one row around their source
    // region: the source starts one row and one sample into the buffer.
    d.Status(r.fn(in.p[0] + kStep + 1, kStep, r.src, out.p[0], kStep, r.dst));
    out.AddTo(&d);
  }
  for (auto fn : {rvtiSampleDownRowH2V1_Box_JPEG_8u_C1, rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1}) {
    Planes out(16);
    d.Status(fn(in.p[1], kW, out.p[0]));
    out.AddTo(&d);
  }
  for (auto fn : {rvtiSampleDownRowH2V2_Box_JPEG_8u_C1, rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1}) {
    Planes out(16);
    d.Status(fn(in.p[1], in.p[2], kW, out.p[0]));
    out.AddTo(&d);
  }
  return d.value();
}

// Tables with every symbol the blocks below need: DC categories 0..11 in 4
// bits, EOB, ZRL and every run/size pair up to size 10 in 8 bits.
uint64_t HuffmanDigest() {
  Digest d;
  uint8_t dcBits[16] = {0, 0, 0, 12}, acBits[16] = {0, 0, 0, 0, 0, 0, 0, 162};
  uint8_t dcVals[12], acVals[162];
  for (int i = 0; i < 12; ++i) dcVals[i] = uint8_t(11 - i);
  int n = 0;
  acVals[n++] = 0x00;
  acVals[n++] = 0xF0;
  for (int r = 15; r >= 0; --r) {
    for (int s = 1; s <= 10; ++s) acVals[n++] = uint8_t(r << 4 | s);
  }
  int sizes[4];
  d.Status(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u(&sizes[0]));
  d.Status(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u(&sizes[1]));
  d.Status(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u(&sizes[2]));
  d.Status(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u(&sizes[3]));
  d.Add(sizes, 4);
  EncodeHuffmanSpec *edc = nullptr, *eac = nullptr;
  DecodeHuffmanSpec *ddc = nullptr, *dac = nullptr;
  EncodeHuffmanState* es = nullptr;
  DecodeHuffmanState* ds = nullptr;
  d.Status(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(dcBits, dcVals, &edc));
  d.Status(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(acBits, acVals, &eac));
  d.Status(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(dcBits, dcVals, &ddc));
  d.Status(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(acBits, acVals, &dac));
  d.Status(rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(&es));
  d.Status(rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(&ds));
  d.Status(rvtiEncodeHuffmanSpecInit_JPEG_8u(dcBits, dcVals, edc));
  d.Status(rvtiDecodeHuffmanSpecInit_JPEG_8u(acBits, acVals, dac));
  d.Status(rvtiEncodeHuffmanStateInit_JPEG_8u(es));
  d.Status(rvtiDecodeHuffmanStateInit_JPEG_8u(ds));

  // Sparse blocks: a few non-zero coefficients of every size up to 10.
  std::vector<int16_t> blocks = Random<int16_t>(4 * 64, 17, -1023, 1023);
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (i % 64 && (i * 7) % 5) blocks[i] = 0;
  }
  std::vector<uint8_t> bits(4096, 0);
  int pos = 0;
  int16_t dc = 0;
  for (int b = 0; b < 4; ++b) {
    d.Status(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(&blocks[size_t(64 * b)], bits.data(), 4096, &pos,
                                                &dc, edc, eac, es, 0));
  }
  d.Status(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(blocks.data(), bits.data(), 4096, &pos, &dc, edc, eac,
                                              es, 1));
  const int16_t diff = -517;
  d.Status(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(&diff, bits.data(), 4096, &pos, edc, es, 0));
  d.Status(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(&diff, bits.data(), 4096, &pos, edc, es, 1));
  d.Add(bits), d.Add(&pos, 1);

  std::vector<int16_t> back(4 * 64, 7);
  int in = 0, marker = 0;
  int16_t last = 0, one = 0;
  for (int b = 0; b < 4; ++b) {
    d.Status(rvtiDecodeHuffman8x8_JPEG_1u16s_C1(bits.data(), pos, &in, &back[size_t(64 * b)],
                                                &last, &marker, ddc, dac, ds));
  }
  EXPECT_EQ(back, blocks);
  d.Status(rvtiDecodeHuffmanStateInit_JPEG_8u(ds));
  d.Status(rvtiDecodeHuffmanOne_JPEG_1u16s_C1(bits.data(), pos, &in, &one, &marker, ddc, ds));
  d.Add(back), d.Add(&one, 1), d.Add(&in, 1);

  // The direct forms, through a marker at the end.
  std::vector<uint8_t> direct(4096, 0);
  int dpos = 0;
  dc = 0;
  for (int b = 0; b < 4; ++b) {
    d.Status(rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(&blocks[size_t(64 * b)], direct.data(), &dpos,
                                                       &dc, edc, eac));
  }
  const int end = (dpos + 7) / 8;
  direct[size_t(end)] = 0xFF, direct[size_t(end) + 1] = 0xD9;
  int spos = 0, valid = 0;
  uint32_t acc = 0;
  last = 0, marker = 0;
  std::vector<int16_t> dback(4 * 64, 7);
  for (int b = 0; b < 4; ++b) {
    d.Status(rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(direct.data(), &spos, &dback[size_t(64 * b)],
                                                       &last, &marker, &acc, &valid, ddc, dac));
  }
  EXPECT_EQ(dback, blocks);
  d.Add(direct), d.Add(&dpos, 1);

  d.Status(rvtiEncodeHuffmanSpecFree_JPEG_8u(edc));
  d.Status(rvtiEncodeHuffmanSpecFree_JPEG_8u(eac));
  d.Status(rvtiDecodeHuffmanSpecFree_JPEG_8u(ddc));
  d.Status(rvtiDecodeHuffmanSpecFree_JPEG_8u(dac));
  d.Status(rvtiEncodeHuffmanStateFree_JPEG_8u(es));
  d.Status(rvtiDecodeHuffmanStateFree_JPEG_8u(ds));
  return d.value();
}

// Statistics, optimal tables and the progressive coders: blocks counted,
// tables built from the counts, every scan kind coded with them (DC first
// and refinement, AC first and refinement with a successive-approximation
// step) and decoded back.
uint64_t ProgressiveDigest() {
  Digest d;
  std::vector<int16_t> blocks = Random<int16_t>(24 * 64, 31, -300, 300);
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (i % 64 && (i * 11) % 7 > 1) blocks[i] = 0;
  }
  for (size_t i = 64 * 8; i < 64 * 14; ++i) {
    if (i % 64) blocks[i] = 0;  // empty bands: end-of-band runs
  }
  std::vector<int> dcc(257, 0), acc(257, 0), one(257, 0), dcf(257, 0), acf(257, 0), acr(257, 0);
  int16_t last = 0;
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(&blocks[size_t(64 * b)], dcc.data(),
                                                     acc.data(), &last));
    d.Status(rvtiGetHuffmanStatisticsOne_JPEG_16s_C1(&blocks[size_t(64 * b)], one.data()));
  }
  EncodeHuffmanState* es = nullptr;
  d.Status(rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(&es));
  last = 0;
  for (int b = 0; b < 24; ++b) {
    const int16_t* blk = &blocks[size_t(64 * b)];
    d.Status(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(blk, dcf.data(), &last, 1));
  }
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(&blocks[size_t(64 * b)], acf.data(),
                                                             1, 63, 1, es, 0));
  }
  d.Status(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(nullptr, acf.data(), 0, 0, 0, es, 1));
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(&blocks[size_t(64 * b)], acr.data(),
                                                              1, 63, 0, es, 0));
  }
  d.Status(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(nullptr, acr.data(), 0, 0, 0, es, 1));
  d.Add(dcc), d.Add(acc), d.Add(one), d.Add(dcf), d.Add(acf), d.Add(acr);
  uint8_t bits[4][16], vals[4][256] = {};
  const std::vector<int>* counts[4] = {&dcc, &dcf, &acf, &acr};
  EncodeHuffmanSpec* enc[4];
  DecodeHuffmanSpec* dec[4];
  for (int t = 0; t < 4; ++t) {
    d.Status(rvtiEncodeHuffmanRawTableInit_JPEG_8u(counts[t]->data(), bits[t], vals[t]));
    d.Add(bits[t], 16), d.Add(vals[t], 256);
    d.Status(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(bits[t], vals[t], &enc[t]));
    d.Status(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(bits[t], vals[t], &dec[t]));
  }
  // Four scans: DC first (Al 1), AC first (1..63, Al 1), DC refinement,
  // AC refinement; each flushed.
  std::vector<uint8_t> out(16384, 0);
  int pos = 0, starts[5];
  last = 0;
  starts[0] = pos;
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(&blocks[size_t(64 * b)], out.data(), 16384,
                                                        &pos, &last, 1, enc[1], es, 0));
  }
  d.Status(rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, out.data(), 16384, &pos, nullptr, 1,
                                                      nullptr, es, 1));
  starts[1] = pos;
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(&blocks[size_t(64 * b)], out.data(), 16384,
                                                        &pos, 1, 63, 1, enc[2], es, 0));
  }
  d.Status(rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(nullptr, out.data(), 16384, &pos, 0, 0, 0,
                                                      enc[2], es, 1));
  starts[2] = pos;
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(&blocks[size_t(64 * b)], out.data(), 16384,
                                                         &pos, 0, es, 0));
  }
  d.Status(rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, out.data(), 16384, &pos, 0, es, 1));
  starts[3] = pos;
  for (int b = 0; b < 24; ++b) {
    d.Status(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(&blocks[size_t(64 * b)], out.data(), 16384,
                                                         &pos, 1, 63, 0, enc[3], es, 0));
  }
  d.Status(rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(nullptr, out.data(), 16384, &pos, 0, 0, 0,
                                                       enc[3], es, 1));
  starts[4] = pos;
  d.Add(out), d.Add(starts, 5);

  std::vector<int16_t> back(24 * 64, 0);
  DecodeHuffmanState* ds = nullptr;
  d.Status(rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(&ds));
  for (int scan = 0; scan < 4; ++scan) {
    int in = starts[scan], marker = 0;
    last = 0;
    d.Status(rvtiDecodeHuffmanStateInit_JPEG_8u(ds));
    for (int b = 0; b < 24; ++b) {
      int16_t* blk = &back[size_t(64 * b)];
      if (scan == 0) {
        d.Status(rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(out.data(), starts[1], &in, blk, &last,
                                                            &marker, 1, dec[1], ds));
      } else if (scan == 1) {
        d.Status(rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(out.data(), starts[2], &in, blk,
                                                            &marker, 1, 63, 1, dec[2], ds));
      } else if (scan == 2) {
        d.Status(rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(out.data(), starts[3], &in, blk,
                                                             &marker, 0, ds));
      } else {
        d.Status(rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(out.data(), starts[4], &in, blk,
                                                             &marker, 1, 63, 0, dec[3], ds));
      }
    }
  }
  EXPECT_EQ(back, blocks);
  d.Add(back);
  for (int t = 0; t < 4; ++t) {
    d.Status(rvtiEncodeHuffmanSpecFree_JPEG_8u(enc[t]));
    d.Status(rvtiDecodeHuffmanSpecFree_JPEG_8u(dec[t]));
  }
  d.Status(rvtiEncodeHuffmanStateFree_JPEG_8u(es));
  d.Status(rvtiDecodeHuffmanStateFree_JPEG_8u(ds));
  return d.value();
}

// The photo core transform: every export forward on random samples (full
// 16-bit range, 20-bit 32-bit values, floats), then the inverse, digested
// after each; the region forms on a 132x72 plane with a padded step.
template <class T>
void PctDigest(Digest& d, RvtResult (*fwd)(T*, int32_t, ImageSize),
               RvtResult (*inv)(T*, int32_t, ImageSize),
               std::initializer_list<RvtResult (*)(T*, int32_t)> mbs, int lo, int hi) {
  constexpr int w = 132, h = 72, stride = w + 4;
  std::vector<T> px = Random<T>(size_t(stride) * h, 21 + sizeof(T), lo, hi);
  if constexpr (std::is_floating_point_v<T>) {
    for (auto& v : px) v = T(v / 7.0);
  }
  d.Status(fwd(px.data(), stride * int32_t(sizeof(T)), {w, h}));
  d.Add(px);
  d.Status(inv(px.data(), stride * int32_t(sizeof(T)), {w, h}));
  d.Add(px);
  for (auto fn : mbs) {  // a macroblock at an odd column
    d.Status(fn(px.data() + 3, stride * int32_t(sizeof(T))));
    d.Add(px);
  }
}

uint64_t PctDigestAll() {
  Digest d;
  PctDigest<int16_t>(d, rvtiPCTFwd_JPEGXR_16s_C1IR, rvtiPCTInv_JPEGXR_16s_C1IR,
                     {rvtiPCTFwd16x16_JPEGXR_16s_C1IR, rvtiPCTInv16x16_JPEGXR_16s_C1IR,
                      rvtiPCTFwd8x16_JPEGXR_16s_C1IR, rvtiPCTInv8x16_JPEGXR_16s_C1IR,
                      rvtiPCTFwd8x8_JPEGXR_16s_C1IR, rvtiPCTInv8x8_JPEGXR_16s_C1IR},
                     -32768, 32767);
  PctDigest<int32_t>(d, rvtiPCTFwd_JPEGXR_32s_C1IR, rvtiPCTInv_JPEGXR_32s_C1IR,
                     {rvtiPCTFwd16x16_JPEGXR_32s_C1IR, rvtiPCTInv16x16_JPEGXR_32s_C1IR,
                      rvtiPCTFwd8x16_JPEGXR_32s_C1IR, rvtiPCTInv8x16_JPEGXR_32s_C1IR,
                      rvtiPCTFwd8x8_JPEGXR_32s_C1IR, rvtiPCTInv8x8_JPEGXR_32s_C1IR},
                     -(1 << 20), 1 << 20);
  PctDigest<float>(d, rvtiPCTFwd_JPEGXR_32f_C1IR, rvtiPCTInv_JPEGXR_32f_C1IR,
                   {rvtiPCTFwd16x16_JPEGXR_32f_C1IR, rvtiPCTInv16x16_JPEGXR_32f_C1IR,
                    rvtiPCTFwd8x16_JPEGXR_32f_C1IR, rvtiPCTInv8x16_JPEGXR_32f_C1IR,
                    rvtiPCTFwd8x8_JPEGXR_32f_C1IR, rvtiPCTInv8x8_JPEGXR_32f_C1IR},
                   -4000, 4000);
  return d.value();
}

// Every BC1 to BC5 decoder over an odd region (partial edge tiles) from
// random blocks, downwards and upwards.
uint64_t TextureDigest() {
  Digest d;
  using Fn = RvtResult (*)(const uint8_t*, uint8_t*, int32_t, ImageSize);
  const struct {
    Fn fn;
    int block, pixel;
  } decoders[] = {{rvtiTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 8, 4},
                  {rvtiTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, 16, 4},
                  {rvtiTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 16, 4},
                  {rvtiTextureDecodeBlock_BC4_8u_C1R, 8, 1},
                  {rvtiTextureDecodeBlockToRG_BC5_8u_C1C2R, 16, 2}};
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  uint32_t seed = 20;
  for (const auto& dec : decoders) {
    const std::vector<uint8_t> src = Random<uint8_t>(blocks * size_t(dec.block), ++seed, 0, 255);
    std::vector<uint8_t> out(size_t(kStep) * kH, 0x5A);
    d.Status(dec.fn(src.data(), out.data(), kStep, kRoi));
    d.Add(out);
    d.Status(dec.fn(src.data(), out.data() + size_t(kStep) * (kH - 1), -kW * dec.pixel, kRoi));
    d.Add(out);
  }
  return d.value();
}

// Lossless: a 16-bit image of three components through the seven
// predictors' differences, the row coders (the third component on its own
// table, a fifth component ignored) and back.
uint64_t LosslessDigest() {
  Digest d;
  const uint8_t bits[16] = {0, 2, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};
  uint8_t vals[17], vals2[17];
  for (int s = 0; s < 17; ++s) vals[s] = uint8_t(s), vals2[s] = uint8_t(16 - s);
  EncodeHuffmanSpec* e[2] = {};
  DecodeHuffmanSpec* dsp[2] = {};
  EncodeHuffmanState* es = nullptr;
  DecodeHuffmanState* ds = nullptr;
  d.Status(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, &e[0]));
  d.Status(rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals2, &e[1]));
  d.Status(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals, &dsp[0]));
  d.Status(rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(bits, vals2, &dsp[1]));
  d.Status(rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(&es));
  d.Status(rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(&ds));
  constexpr int kW = 131, kH = 9;
  std::vector<std::vector<int16_t>> img, diff;
  for (int r = 0; r < 3 * kH; ++r) {
    img.push_back(Random<int16_t>(kW, uint32_t(r + 11), r % 3 == 2 ? -32768 : 0,
                                  r % 3 == 2 ? 32767 : 4095));
    diff.emplace_back(size_t(kW));
  }
  for (int y = 0; y < kH; ++y) {
    for (int c = 0; c < 3; ++c) {
      const int r = 3 * y + c;
      d.Status(y == 0 ? rvtiDiffPredFirstRow_JPEG_16s_C1(img[size_t(r)].data(), diff[size_t(r)].data(),
                                                         kW, 12 + c, c)
                      : rvtiDiffPredRow_JPEG_16s_C1(img[size_t(r)].data(), img[size_t(r - 3)].data(),
                                                    diff[size_t(r)].data(), kW, 1 + (y + c) % 7));
    }
  }
  std::vector<uint8_t> bytes(size_t(kW) * kH * 3 * 4);
  int pos = 0;
  const EncodeHuffmanSpec* et[5] = {e[0], e[0], e[1], e[1], nullptr};
  for (int y = 0; y < kH; ++y) {
    const int16_t* rows[5] = {diff[size_t(3 * y)].data(), diff[size_t(3 * y + 1)].data(),
                              diff[size_t(3 * y + 2)].data(), diff[size_t(3 * y + 2)].data(), nullptr};
    d.Status(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, kW, y % 2 ? 3 : 5, bytes.data(),
                                                  int(bytes.size()), &pos, et, es, 0));
  }
  d.Status(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, bytes.data(), int(bytes.size()),
                                                &pos, nullptr, es, 1));
  bytes.resize(size_t(pos));
  d.Add(bytes);
  const DecodeHuffmanSpec* dt[5] = {dsp[0], dsp[0], dsp[1], dsp[1], nullptr};
  int in = 0, marker = 0;
  std::vector<int16_t> spare(static_cast<size_t>(kW));
  for (int y = 0; y < kH; ++y) {
    std::vector<std::vector<int16_t>> got(3, std::vector<int16_t>(size_t(kW)));
    int16_t* rows[5] = {got[0].data(), got[1].data(), got[2].data(), spare.data(), nullptr};
    d.Status(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(bytes.data(), int(bytes.size()), &in, rows, kW,
                                                  y % 2 ? 3 : 5, &marker, dt, ds));
    for (int c = 0; c < 3; ++c) {
      const int r = 3 * y + c;
      EXPECT_EQ(got[size_t(c)], diff[size_t(r)]) << "row " << r;
      std::vector<int16_t> x(static_cast<size_t>(kW));
      d.Status(y == 0 ? rvtiReconstructPredFirstRow_JPEG_16s_C1(got[size_t(c)].data(), x.data(), kW,
                                                                12 + c, c)
                      : rvtiReconstructPredRow_JPEG_16s_C1(got[size_t(c)].data(),
                                                           img[size_t(r - 3)].data(), x.data(), kW,
                                                           1 + (y + c) % 7));
      EXPECT_EQ(x, img[size_t(r)]) << "row " << r;
      d.Add(x);
    }
  }
  d.Add(&in, 1);
  for (int k = 0; k < 2; ++k) {
    d.Status(rvtiEncodeHuffmanSpecFree_JPEG_8u(e[k]));
    d.Status(rvtiDecodeHuffmanSpecFree_JPEG_8u(dsp[k]));
  }
  d.Status(rvtiEncodeHuffmanStateFree_JPEG_8u(es));
  d.Status(rvtiDecodeHuffmanStateFree_JPEG_8u(ds));
  return d.value();
}

// JPEG 2000: the component transforms and the 5/3 wavelet, every form,
// at an odd origin and even one.
template <class T>
void Jpeg2kTyped(Digest& d, RvtResult (*rctF)(const T*, int32_t, T* const[3], int32_t, ImageSize),
                 RvtResult (*rctFI)(T* const[3], int32_t, ImageSize),
                 RvtResult (*rctI)(const T* const[3], int32_t, T*, int32_t, ImageSize),
                 RvtResult (*rctII)(T* const[3], int32_t, ImageSize),
                 RvtResult (*ictFI)(T* const[3], int32_t, ImageSize),
                 RvtResult (*ictII)(T* const[3], int32_t, ImageSize)) {
  const int32_t step = kW * int32_t(sizeof(T));
  std::vector<T> c3 = Random<T>(size_t(3 * kW * kH), 3, -2000, 2000), back(c3.size());
  std::vector<T> p[3];
  for (auto& v : p) v.assign(size_t(kW * kH), 0);
  T* pp[3] = {p[0].data(), p[1].data(), p[2].data()};
  const T* cp[3] = {p[0].data(), p[1].data(), p[2].data()};
  d.Status(rctF(c3.data(), 3 * step, pp, step, kRoi));
  for (auto& v : p) d.Add(v);
  d.Status(rctI(cp, step, back.data(), 3 * step, kRoi));
  EXPECT_EQ(back, c3);
  d.Status(rctII(pp, step, kRoi));
  d.Status(rctFI(pp, step, kRoi));
  d.Status(ictFI(pp, step, kRoi));
  for (auto& v : p) d.Add(v);
  d.Status(ictII(pp, step, kRoi));
  for (auto& v : p) d.Add(v);
}

template <class T, class W>
void Jpeg2kWavelet(Digest& d, const W& f) {
  const int32_t step = kW * int32_t(sizeof(T));
  std::vector<T> src = Random<T>(size_t(kW * kH), 4, -2000, 2000);
  std::vector<T> lo(src.size()), hi(src.size()), out(src.size());
  const ImageSize half = {kW / 2 - 2, kH / 2 - 2};
  for (int32_t phase : {0, 1}) {
    d.Status(f.fwdRow(src.data() + 2 * kW + 2, step, lo.data(), step, hi.data(), step, half, phase));
    d.Add(lo), d.Add(hi);
    d.Status(f.invRow(lo.data() + kW + 2, step, hi.data() + kW + 2, step, half, out.data(), step, phase));
    d.Add(out);
    d.Status(f.fwdCol(src.data() + 2 * kW + 2, step, lo.data(), step, hi.data(), step, half, phase));
    d.Add(lo), d.Add(hi);
    d.Status(f.invCol(lo.data() + kW + 2, step, hi.data() + kW + 2, step, half, out.data(), step, phase));
    d.Add(out);
  }
  d.Status(f.fwdLift(&src[0], &src[kW], &src[2 * kW], lo.data(), &src[3 * kW], hi.data(), kW));
  d.Status(f.invLift(&src[0], &src[kW], &src[2 * kW], &src[3 * kW], lo.data() + kW, hi.data() + kW, kW));
  d.Add(lo), d.Add(hi);
  for (const ImageRect r : {ImageRect{0, 0, kW, kH}, ImageRect{3, 5, kW, kH}, ImageRect{1, 0, 2, kH}}) {
    uint32_t bi = 0, b4 = 0;
    d.Status(f.sizeI(&r, &bi));
    d.Status(f.size4(&r, &b4));
    d.Add(&bi, 1), d.Add(&b4, 1);
    std::vector<uint8_t> buf(size_t(b4) + 1);
    std::vector<T> plane = src;
    d.Status(f.fwdI(plane.data(), step, &r, buf.data()));
    d.Add(plane);
    d.Status(f.invI(plane.data(), step, &r, buf.data()));
    EXPECT_EQ(plane, src);
    std::vector<T> bands[4];
    T* bp[4];
    const T* cbp[4];
    int32_t bs[4];
    for (int k = 0; k < 4; ++k) bands[k].assign(src.size(), 0), cbp[k] = bp[k] = bands[k].data(), bs[k] = step;
    d.Status(f.fwd4(src.data(), step, &r, bp, bs, buf.data()));
    for (auto& b : bands) d.Add(b);
    d.Status(f.inv4(cbp, bs, out.data(), step, &r, buf.data()));
    d.Add(out);
  }
}

template <class T>
struct WaveletFns {
  RvtResult (*fwdRow)(const T*, int32_t, T*, int32_t, T*, int32_t, ImageSize, int32_t);
  RvtResult (*fwdCol)(const T*, int32_t, T*, int32_t, T*, int32_t, ImageSize, int32_t);
  RvtResult (*invRow)(const T*, int32_t, const T*, int32_t, ImageSize, T*, int32_t, int32_t);
  RvtResult (*invCol)(const T*, int32_t, const T*, int32_t, ImageSize, T*, int32_t, int32_t);
  RvtResult (*fwdLift)(const T*, const T*, const T*, T*, const T*, T*, int32_t);
  RvtResult (*invLift)(const T*, const T*, const T*, const T*, T*, T*, int32_t);
  RvtResult (*fwdI)(T*, int32_t, const ImageRect*, uint8_t*);
  RvtResult (*invI)(T*, int32_t, const ImageRect*, uint8_t*);
  RvtResult (*fwd4)(const T*, int32_t, const ImageRect*, T* const[4], const int32_t[4], uint8_t*);
  RvtResult (*inv4)(const T* const[4], const int32_t[4], T*, int32_t, const ImageRect*, uint8_t*);
  RvtResult (*sizeI)(const ImageRect*, uint32_t*);
  RvtResult (*size4)(const ImageRect*, uint32_t*);
};

template <class T, class FR, class IR, class FL, class IL>
void Jpeg2k97(Digest& d, FR fwdRow, IR invRow, FL fwdLift, IL invLift, int lo, int hi,
              bool cols = false) {
  const int32_t step = kW * int32_t(sizeof(T));
  std::vector<T> src = Random<T>(size_t(kW * kH), 6, lo, hi), a(src.size()), b(src.size()), out(src.size());
  const ImageSize half = cols ? ImageSize{kW - 4, kH / 2 - 6} : ImageSize{kW / 2 - 4, kH - 4};
  const size_t at = cols ? 4 * kW + 2 : 2 * kW + 4, band = cols ? 2 * kW + 2 : kW + 2;
  for (int32_t phase : {0, 1}) {
    d.Status(fwdRow(src.data() + at, step, a.data(), step, b.data(), step, half, phase));
    d.Add(a), d.Add(b);
    d.Status(invRow(a.data() + band, step, b.data() + band, step, half, out.data(), step, phase));
    d.Add(out);
  }
  std::vector<T> r = src;
  d.Status(fwdLift(&src[0], &src[kW], &src[2 * kW], &r[3 * kW], &r[4 * kW], &r[5 * kW], &r[6 * kW], &r[7 * kW], kW));
  d.Status(invLift(&r[0], &r[kW], &src[2 * kW], &r[3 * kW], &r[4 * kW], &r[5 * kW], &r[6 * kW], &r[7 * kW], kW));
  d.Add(r);
}

template <class T, class W>
void Jpeg2kLevels97(Digest& d, const W& f) {
  const int32_t step = kW * int32_t(sizeof(T));
  std::vector<T> src = Random<T>(size_t(kW * kH), 9, -2000, 2000), out(src.size());
  for (const ImageRect r : {ImageRect{0, 0, kW, kH}, ImageRect{3, 5, kW, kH}, ImageRect{1, 0, 2, kH}}) {
    uint32_t bi = 0, b4 = 0;
    d.Status(f.sizeI(&r, &bi));
    d.Status(f.size4(&r, &b4));
    d.Add(&bi, 1), d.Add(&b4, 1);
    std::vector<uint8_t> buf(size_t(b4) + 1);
    std::vector<T> plane = src;
    d.Status(f.fwdI(plane.data(), step, &r, buf.data()));
    d.Add(plane);
    d.Status(f.invI(plane.data(), step, &r, buf.data()));
    d.Add(plane);
    std::vector<T> bands[4];
    T* bp[4];
    const T* cbp[4];
    int32_t bs[4];
    for (int k = 0; k < 4; ++k) bands[k].assign(src.size(), 0), cbp[k] = bp[k] = bands[k].data(), bs[k] = step;
    d.Status(f.fwd4(src.data(), step, &r, bp, bs, buf.data()));
    for (auto& b : bands) d.Add(b);
    d.Status(f.inv4(cbp, bs, out.data(), step, &r, buf.data()));
    d.Add(out);
  }
}

uint64_t Jpeg2kDigest() {
  Digest d;
  Jpeg2kTyped<int16_t>(d, rvtiRCTFwd_JPEG2K_16s_C3P3R, rvtiRCTFwd_JPEG2K_16s_P3IR,
                       rvtiRCTInv_JPEG2K_16s_P3C3R, rvtiRCTInv_JPEG2K_16s_P3IR,
                       rvtiICTFwd_JPEG2K_16s_P3IR, rvtiICTInv_JPEG2K_16s_P3IR);
  Jpeg2kTyped<int32_t>(d, rvtiRCTFwd_JPEG2K_32s_C3P3R, rvtiRCTFwd_JPEG2K_32s_P3IR,
                       rvtiRCTInv_JPEG2K_32s_P3C3R, rvtiRCTInv_JPEG2K_32s_P3IR,
                       rvtiICTFwd_JPEG2K_32s_P3IR, rvtiICTInv_JPEG2K_32s_P3IR);
  {  // float ICT
    const int32_t step = kW * 4;
    std::vector<float> c3(size_t(3 * kW * kH)), back(c3.size());
    for (size_t i = 0; i < c3.size(); ++i) c3[i] = float(int(i * 37 % 511) - 255) * 0.5f;
    std::vector<float> p[3];
    for (auto& v : p) v.assign(size_t(kW * kH), 0.f);
    float* pp[3] = {p[0].data(), p[1].data(), p[2].data()};
    const float* cp[3] = {p[0].data(), p[1].data(), p[2].data()};
    d.Status(rvtiICTFwd_JPEG2K_32f_C3P3R(c3.data(), 3 * step, pp, step, kRoi));
    for (auto& v : p) d.Add(v);
    d.Status(rvtiICTInv_JPEG2K_32f_P3C3R(cp, step, back.data(), 3 * step, kRoi));
    d.Add(back);
    d.Status(rvtiICTFwd_JPEG2K_32f_P3IR(pp, step, kRoi));
    d.Status(rvtiICTInv_JPEG2K_32f_P3IR(pp, step, kRoi));
    for (auto& v : p) d.Add(v);
  }
  Jpeg2kWavelet<int16_t>(d, WaveletFns<int16_t>{
      rvtiWTFwdRow_B53_JPEG2K_16s_C1R, rvtiWTFwdCol_B53_JPEG2K_16s_C1R,
      rvtiWTInvRow_B53_JPEG2K_16s_C1R, rvtiWTInvCol_B53_JPEG2K_16s_C1R,
      rvtiWTFwdColLift_B53_JPEG2K_16s_C1, rvtiWTInvColLift_B53_JPEG2K_16s_C1,
      rvtiWTFwd_B53_JPEG2K_16s_C1IR, rvtiWTInv_B53_JPEG2K_16s_C1IR, rvtiWTFwd_B53_JPEG2K_16s_C1R,
      rvtiWTInv_B53_JPEG2K_16s_C1R, rvtiWTGetBufSize_B53_JPEG2K_16s_C1IR,
      rvtiWTGetBufSize_B53_JPEG2K_16s_C1R});
  Jpeg2kWavelet<int32_t>(d, WaveletFns<int32_t>{
      rvtiWTFwdRow_B53_JPEG2K_32s_C1R, rvtiWTFwdCol_B53_JPEG2K_32s_C1R,
      rvtiWTInvRow_B53_JPEG2K_32s_C1R, rvtiWTInvCol_B53_JPEG2K_32s_C1R,
      rvtiWTFwdColLift_B53_JPEG2K_32s_C1, rvtiWTInvColLift_B53_JPEG2K_32s_C1,
      rvtiWTFwd_B53_JPEG2K_32s_C1IR, rvtiWTInv_B53_JPEG2K_32s_C1IR, rvtiWTFwd_B53_JPEG2K_32s_C1R,
      rvtiWTInv_B53_JPEG2K_32s_C1R, rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR,
      rvtiWTGetBufSize_B53_JPEG2K_32s_C1R});
  Jpeg2k97<int16_t>(d, rvtiWTFwdRow_D97_JPEG2K_16s_C1R, rvtiWTInvRow_D97_JPEG2K_16s_C1R,
                    rvtiWTFwdColLift_D97_JPEG2K_16s_C1, rvtiWTInvColLift_D97_JPEG2K_16s_C1, -20000, 20000);
  Jpeg2k97<int32_t>(d, rvtiWTFwdRow_D97_JPEG2K_32s_C1R, rvtiWTInvRow_D97_JPEG2K_32s_C1R,
                    rvtiWTFwdColLift_D97_JPEG2K_32s_C1, rvtiWTInvColLift_D97_JPEG2K_32s_C1, -20000, 20000);
  Jpeg2k97<float>(d, rvtiWTFwdRow_D97_JPEG2K_32f_C1R, rvtiWTInvRow_D97_JPEG2K_32f_C1R,
                  rvtiWTFwdColLift_D97_JPEG2K_32f_C1, rvtiWTInvColLift_D97_JPEG2K_32f_C1, -255, 255);
  Jpeg2k97<float>(d, rvtiWTFwdCol_D97_JPEG2K_32f_C1R, rvtiWTInvCol_D97_JPEG2K_32f_C1R,
                  rvtiWTFwdColLift_D97_JPEG2K_32f_C1, rvtiWTInvColLift_D97_JPEG2K_32f_C1, -255, 255, true);
  Jpeg2kLevels97<int16_t>(d, WaveletFns<int16_t>{
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
      rvtiWTFwd_D97_JPEG2K_16s_C1IR, rvtiWTInv_D97_JPEG2K_16s_C1IR, rvtiWTFwd_D97_JPEG2K_16s_C1R,
      rvtiWTInv_D97_JPEG2K_16s_C1R, rvtiWTGetBufSize_D97_JPEG2K_16s_C1IR,
      rvtiWTGetBufSize_D97_JPEG2K_16s_C1R});
  Jpeg2kLevels97<int32_t>(d, WaveletFns<int32_t>{
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
      rvtiWTFwd_D97_JPEG2K_32s_C1IR, rvtiWTInv_D97_JPEG2K_32s_C1IR, rvtiWTFwd_D97_JPEG2K_32s_C1R,
      rvtiWTInv_D97_JPEG2K_32s_C1R, rvtiWTGetBufSize_D97_JPEG2K_32s_C1IR,
      rvtiWTGetBufSize_D97_JPEG2K_32s_C1R});
  return d.value();
}

// MCU-level conversions: random pixels and blocks (whole 16-bit range
// for the inverse forms), every export once, at steps above the row bytes.
uint64_t McuDigest() {
  Digest d;
  const std::vector<uint8_t> px = Random<uint8_t>(16 * 80, 18, 0, 255);
  const std::vector<int16_t> in = Random<int16_t>(640, 19, -32768, 32767);
  using F = RvtResult (*)(const uint8_t*, int32_t, int16_t**);
  for (F fn : {rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R, rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R,
               rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R, rvtiBGRToYCbCr444LS_MCU_8u16s_C3P3R,
               rvtiBGRToYCbCr422LS_MCU_8u16s_C3P3R, rvtiBGRToYCbCr420LS_MCU_8u16s_C3P3R,
               rvtiCMYKToYCCK444LS_MCU_8u16s_C4P4R, rvtiCMYKToYCCK422LS_MCU_8u16s_C4P4R,
               rvtiCMYKToYCCK420LS_MCU_8u16s_C4P4R, rvtiSplit422LS_MCU_8u16s_C2P3R}) {
    std::vector<int16_t> out(640);
    int16_t* op[4] = {out.data(), out.data() + 256, out.data() + 320, out.data() + 384};
    d.Status(fn(px.data() + 1, 80, op));
    d.Add(out);
  }
  using I = RvtResult (*)(const int16_t**, uint8_t*, int32_t);
  for (I fn : {rvtiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, rvtiYCbCr422ToRGBLS_MCU_16s8u_P3C3R,
               rvtiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, rvtiYCbCr444ToBGRLS_MCU_16s8u_P3C3R,
               rvtiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, rvtiYCbCr420ToBGRLS_MCU_16s8u_P3C3R,
               rvtiYCCK444ToCMYKLS_MCU_16s8u_P4C4R, rvtiYCCK422ToCMYKLS_MCU_16s8u_P4C4R,
               rvtiYCCK420ToCMYKLS_MCU_16s8u_P4C4R, rvtiJoin422LS_MCU_16s8u_P3C2R,
               rvtiSampleUp422LS_MCU_16s8u_P3C3R}) {
    // Blocks of small values as well as saturating ones: the first half of
    // each plane within -200..200.
    std::vector<int16_t> blocks(in);
    for (size_t i = 0; i < blocks.size(); i += 2) blocks[i] = int16_t(blocks[i] % 200);
    const int16_t* bp[4] = {blocks.data(), blocks.data() + 256, blocks.data() + 320, blocks.data() + 384};
    std::vector<uint8_t> out(16 * 70);
    d.Status(fn(bp, out.data(), 70));
    d.Add(out);
  }
  return d.value();
}

// The MCU-run decoder: two MCUs of a luma and a chroma block coded with
// the Huffman family's tables, decoded in one call, through the marker at
// the end, with the per-block counts.
uint64_t HuffmanRunDigest() {
  Digest d;
  uint8_t dcBits[16] = {0, 0, 0, 12}, acBits[16] = {0, 0, 0, 0, 0, 0, 0, 162};
  uint8_t dcVals[12], acVals[162];
  for (int i = 0; i < 12; ++i) dcVals[i] = uint8_t(11 - i);
  int n = 0;
  acVals[n++] = 0x00;
  acVals[n++] = 0xF0;
  for (int r = 15; r >= 0; --r) {
    for (int s = 1; s <= 10; ++s) acVals[n++] = uint8_t(r << 4 | s);
  }
  std::vector<uint8_t> espec(1024), dspec(2 * 1644), state(1048), dstate(24);
  auto* edc = reinterpret_cast<EncodeHuffmanSpec*>(espec.data());
  auto* ddc = reinterpret_cast<DecodeHuffmanSpec*>(dspec.data());
  auto* dac = reinterpret_cast<DecodeHuffmanSpec*>(dspec.data() + 1644);
  auto* es = reinterpret_cast<EncodeHuffmanState*>(state.data());
  auto* ds = reinterpret_cast<DecodeHuffmanState*>(dstate.data());
  std::vector<uint8_t> eac_mem(1024);
  auto* eac = reinterpret_cast<EncodeHuffmanSpec*>(eac_mem.data());
  d.Status(rvtiEncodeHuffmanSpecInit_JPEG_8u(dcBits, dcVals, edc));
  d.Status(rvtiEncodeHuffmanSpecInit_JPEG_8u(acBits, acVals, eac));
  d.Status(rvtiDecodeHuffmanSpecInit_JPEG_8u(dcBits, dcVals, ddc));
  d.Status(rvtiDecodeHuffmanSpecInit_JPEG_8u(acBits, acVals, dac));
  d.Status(rvtiEncodeHuffmanStateInit_JPEG_8u(es));
  d.Status(rvtiDecodeHuffmanStateInit_JPEG_8u(ds));
  std::vector<int16_t> blocks = Random<int16_t>(4 * 64, 29, -1023, 1023);
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (i % 64 && (i * 5) % 7) blocks[i] = 0;
  }
  std::vector<uint8_t> bits(4096, 0);
  int pos = 0;
  int16_t dc[2] = {0, 0};
  for (int b = 0; b < 4; ++b) {
    d.Status(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(&blocks[size_t(64 * b)], bits.data(), 4096, &pos,
                                                &dc[b & 1], edc, eac, es, 0));
  }
  d.Status(rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, bits.data(), 4096, &pos, nullptr, nullptr,
                                              nullptr, es, 1));
  bits[size_t(pos)] = 0xFF, bits[size_t(pos) + 1] = 0xD9;
  const int comp[2] = {0, 1};
  const DecodeHuffmanSpec* const dcs[4] = {ddc, ddc, nullptr, nullptr};
  const DecodeHuffmanSpec* const acs[4] = {dac, dac, nullptr, nullptr};
  std::vector<int16_t> back(4 * 64, 7);
  int in = 0, marker = 0, done[4] = {}, nblocks = 0;
  int16_t last[4] = {0, 0, 0, 0};
  d.Status(rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1(bits.data(), pos + 2, &in, back.data(), 2, comp,
                                                    2, last, &marker, dcs, acs, ds, done, &nblocks));
  EXPECT_EQ(back, blocks);
  d.Add(back), d.Add(&in, 1), d.Add(&marker, 1), d.Add(done, 4), d.Add(&nblocks, 1);
  d.Add(last, 4), d.Add(dstate);
  return d.value();
}

// Code-block coding: every style on one block of each band, all passes
// decoded one-shot and in two layers; sizes, rates, distortions, segment
// lengths and the bytes.
uint64_t Tier1Digest() {
  Digest d;
  constexpr int w = 24, h = 19;
  const auto c = Random<int32_t>(size_t(w * h), 19, -700, 700);
  int32_t sz = 0;
  d.Status(rvtiEncodeGetStateSize_JPEG2K({w, h}, &sz));
  std::vector<uint8_t> mem(static_cast<size_t>(sz));
  auto* st = reinterpret_cast<EncodeCBState_JPEG2K*>(mem.data());
  d.Status(rvtiEncodeInit_JPEG2K(st, {w, h}));
  EncodeCBState_JPEG2K* st2 = nullptr;
  d.Status(rvtiEncodeInitAlloc_JPEG2K(&st2, {w, h}));
  d.Status(rvtiEncodeFree_JPEG2K(st2));
  int32_t need = 0, pstate = 0;
  d.Status(rvtiDecodeGetBufSize_JPEG2K({w, h}, &need));
  d.Status(rvtiDecodeCBProgrGetStateSize_JPEG2K({w, h}, &pstate));
  std::vector<uint8_t> work(static_cast<size_t>(need)), pmem(static_cast<size_t>(pstate));
  auto* ps = reinterpret_cast<DecodeCBProgrState_JPEG2K*>(pmem.data());
  d.Status(rvtiDecodeCBProgrInit_JPEG2K(ps, {w, h}));
  DecodeCBProgrState_JPEG2K* ps2 = nullptr;
  d.Status(rvtiDecodeCBProgrInitAlloc_JPEG2K(&ps2, {w, h}));
  d.Status(rvtiDecodeCBProgrFree_JPEG2K(ps2));
  for (int style = 0; style < 64; ++style) {
    const int band = style & 3;
    int32_t sf = 0, np = 0, nt = 0;
    d.Status(rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(c.data(), w * 4, {w, h}, st, band, 11, style, &sf, &np, &nt));
    std::vector<int32_t> rate(static_cast<size_t>(np)), len(static_cast<size_t>(nt) + 1);
    std::vector<double> dist(static_cast<size_t>(np));
    for (int k = 0; k < np; ++k) {
      d.Status(rvtiEncodeGetRate_JPEG2K(st, k, &rate[size_t(k)]));
      d.Status(rvtiEncodeGetDist_JPEG2K(st, k, &dist[size_t(k)]));
    }
    for (int s = 0; s < nt; ++s) d.Status(rvtiEncodeGetTermPassLen_JPEG2K(st, s, &len[size_t(s)]));
    std::vector<uint8_t> bytes(8192);
    int32_t n = int32_t(bytes.size()), more = 0;
    d.Status(rvtiEncodeStoreBits_JPEG2K_1u(bytes.data(), &n, st, &more));
    bytes.resize(size_t(n));
    d.Add(rate);
    d.Add(dist);
    d.Add(len);
    d.Add(bytes);
    std::vector<int32_t> out(static_cast<size_t>(w * h));
    d.Status(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(bytes.data(), len.data(), out.data(), w * 4, {w, h}, band, 11, sf,
                                                  np, style, style % 3, work.data()));
    d.Add(out);
    d.Status(rvtiDecodeCBProgrAttach_JPEG2K(ps, {w, h}, band, 11, sf, style, 0));
    d.Status(rvtiDecodeCBProgrStep_JPEG2K(bytes.data(), len.data(), np / 2, ps));
    int32_t done = 0, plane = 0;
    d.Status(rvtiDecodeCBProgrGetPassCounters_JPEG2K(ps, &done, &plane));
    d.Add(&done, 1);
    d.Add(&plane, 1);
    d.Status(rvtiDecodeCBProgrStep_JPEG2K(bytes.data(), len.data(), np, ps));
    d.Status(rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R(ps, out.data(), w * 4));
    d.Add(out);
  }
  return d.value();
}

// BC7 and BC6H (unsigned and signed) over an odd region from random
// blocks, every mode among them, downwards and upwards.
uint64_t BptcDigest() {
  Digest d;
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  for (int format = 0; format < 3; ++format) {
    std::vector<uint8_t> src = Random<uint8_t>(blocks * 16, uint32_t(40 + format), 0, 255);
    for (size_t k = 0; k < blocks; ++k) {
      uint8_t& first = src[16 * k];
      const int m = int(k % (format == 0 ? 9 : 32));
      first = format == 0 ? (m == 8 ? 0 : uint8_t(first << (m + 1) | 1 << m)) : uint8_t((first & ~31) | m);
    }
    const int pixel = format == 0 ? 4 : 6;
    std::vector<uint8_t> out(size_t(kStep) * kH, 0x5A);
    for (int up = 0; up < 2; ++up) {
      uint8_t* dst = up ? out.data() + size_t(kStep) * (kH - 1) : out.data();
      const int32_t step = up ? -kW * pixel : kStep;
      if (format == 0) {
        d.Status(rvtiTextureDecodeBlockToRGBA_BC7_8u_C1C4R(src.data(), dst, step, kRoi));
      } else if (format == 1) {
        d.Status(rvtiTextureDecodeBlockToRGB_BC6_16u_C1C3R(src.data(), reinterpret_cast<uint16_t*>(dst), step, kRoi));
      } else {
        d.Status(rvtiTextureDecodeBlockToRGB_BC6_16s_C1C3R(src.data(), reinterpret_cast<int16_t*>(dst), step, kRoi));
      }
      d.Add(out);
    }
  }
  return d.value();
}

// BC4 and BC5 encoding of an odd region (edge tiles padded) at every
// quality, downwards and upwards.
uint64_t BcEncodeDigest() {
  Digest d;
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  const std::vector<uint8_t> src = Random<uint8_t>(size_t(kStep) * kH, 50, 0, 255);
  for (int q = 0; q <= 2; ++q) {
    std::vector<uint8_t> out(blocks * 16, 0x5A);
    d.Status(rvtiTextureEncodeBlock_BC4_8u_C1R(src.data(), kStep, out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromRG_BC5_8u_C2C1R(src.data() + size_t(kStep) * (kH - 1), -kStep,
                                                       out.data(), kRoi, q));
    d.Add(out);
  }
  return d.value();
}

// JPEG XR coefficient coding: a 20-macroblock tile row of every colour
// format, every band encoded and decoded back, adapting on the cadence.
uint64_t JpegXrVlcDigest() {
  Digest d;
  const int formats[][2] = {{0, 1}, {1, 3}, {2, 3}, {3, 3}, {4, 4}, {6, 7}};
  for (const auto& f : formats) {
    const int nc = f[1];
    int32_t size = 0;
    d.Status(rvtiVLCGetStateSize_JPEGXR(f[0], nc, &size));
    std::vector<uint8_t> enc(static_cast<size_t>(size)), dec(static_cast<size_t>(size));
    auto* es = reinterpret_cast<VLCState_JPEGXR*>(enc.data());
    auto* ds = reinterpret_cast<VLCState_JPEGXR*>(dec.data());
    d.Status(rvtiVLCInit_JPEGXR(f[0], nc, es, size));
    d.Status(rvtiVLCInit_JPEGXR(f[0], nc, ds, size));
    std::vector<uint8_t> buf(1 << 18), flex(1 << 16);
    int32_t pos = 0, fpos = 0, rpos = 0, rfpos = 0;
    std::vector<int32_t> cbp(static_cast<size_t>(nc)), out(256 * static_cast<size_t>(nc)), outlp(16 * static_cast<size_t>(nc));
    for (int x = 0; x < 20; ++x) {
      std::vector<int32_t> lp = Random<int32_t>(16 * size_t(nc), uint32_t(x + 3), -300, 300);
      std::vector<int32_t> hp = Random<int32_t>(256 * size_t(nc), uint32_t(x + 5), -6, 6);
      for (auto& v : hp) v = (v & 3) == 1 ? v * 37 : v / 3;
      const int scan = x & 1, trim = x % 3;
      if ((x & 15) == 0) {
        d.Status(rvtiVLCAdapt_JPEGXR(es, 24));
        d.Status(rvtiVLCAdapt_JPEGXR(ds, 24));
      }
      d.Status(rvtiVLCEncodeDC_JPEGXR_32s1u(lp.data(), es, buf.data(), 1 << 18, &pos));
      d.Status(rvtiVLCEncodeLP_JPEGXR_32s1u(lp.data(), es, buf.data(), 1 << 18, &pos));
      d.Status(rvtiVLCEncodeHP_JPEGXR_32s1u(hp.data(), scan, es, cbp.data(), buf.data(), 1 << 18, &pos,
                                            (x & 2) ? flex.data() : nullptr, 1 << 16, &fpos, trim));
      d.Status(rvtiVLCDecodeDC_JPEGXR_1u32s(buf.data(), 1 << 18, &rpos, ds, outlp.data()));
      d.Status(rvtiVLCDecodeLP_JPEGXR_1u32s(buf.data(), 1 << 18, &rpos, ds, outlp.data()));
      d.Status(rvtiVLCDecodeHP_JPEGXR_1u32s(buf.data(), 1 << 18, &rpos, (x & 2) ? flex.data() : nullptr, 1 << 16,
                                            &rfpos, trim, scan, cbp.data(), ds, out.data()));
      d.Add(cbp);
      d.Add(outlp);
      d.Add(out);
      if ((x & 15) == 0 || x == 19) {
        d.Status(rvtiVLCAdapt_JPEGXR(es, 7));
        d.Status(rvtiVLCAdapt_JPEGXR(ds, 7));
      }
      int32_t tables[22], disc[44], bits[6];
      d.Status(rvtiVLCGetTables_JPEGXR(ds, tables, disc, bits));
      d.Add(tables, 22);
      d.Add(disc, 44);
      d.Add(bits, 6);
    }
    d.Add(buf.data(), size_t(pos + 7) / 8);
    d.Add(flex.data(), size_t(fpos + 7) / 8);
    const int32_t p[4] = {pos, fpos, rpos, rfpos};
    d.Add(p, 4);
    // HP coded-block patterns decoded from the same bytes, with neighbours
    std::vector<uint8_t> cst(static_cast<size_t>(size));
    auto* cs = reinterpret_cast<VLCState_JPEGXR*>(cst.data());
    d.Status(rvtiVLCInit_JPEGXR(f[0], nc, cs, size));
    std::vector<int32_t> pat(static_cast<size_t>(nc)), prev(static_cast<size_t>(nc));
    int32_t cpos = 0;
    for (int k = 0; k < 12; ++k) {
      d.Status(rvtiVLCDecodeCBPHP_JPEGXR_1u32s(buf.data(), 1 << 18, &cpos, k % 3 ? prev.data() : nullptr,
                                               k > 5 ? prev.data() : nullptr, cs, pat.data()));
      d.Add(pat);
      prev = pat;
    }
    d.Add(&cpos, 1);
    uint32_t v = 0;
    int32_t at = 5;
    d.Status(rvtiFLCRead_JPEGXR_1u32u(buf.data(), 64, &at, 29, &v));
    d.Status(rvtiFLCWrite_JPEGXR_32u1u(v, 29, buf.data(), 64, &at));
    d.Add(&v, 1);
    d.Add(buf.data(), 64);
  }
  return d.value();
}

// The MCU-run encoder: three MCUs of a luma and a chroma block (values up
// to 1023, and one saturated block whose sizes have no code) coded in one
// call after a state with pending bits, then the failing run; the bytes,
// position, predictors, state and counts.
uint64_t HuffmanEncodeRunDigest() {
  Digest d;
  uint8_t dcBits[16] = {0, 0, 0, 12}, acBits[16] = {0, 0, 0, 0, 0, 0, 0, 162};
  uint8_t dcVals[12], acVals[162];
  for (int i = 0; i < 12; ++i) dcVals[i] = uint8_t(11 - i);
  int n = 0;
  acVals[n++] = 0x00;
  acVals[n++] = 0xF0;
  for (int r = 15; r >= 0; --r) {
    for (int s = 1; s <= 10; ++s) acVals[n++] = uint8_t(r << 4 | s);
  }
  std::vector<uint8_t> dc_mem(1024), ac_mem(1024), state(1048);
  auto* edc = reinterpret_cast<EncodeHuffmanSpec*>(dc_mem.data());
  auto* eac = reinterpret_cast<EncodeHuffmanSpec*>(ac_mem.data());
  auto* es = reinterpret_cast<EncodeHuffmanState*>(state.data());
  d.Status(rvtiEncodeHuffmanSpecInit_JPEG_8u(dcBits, dcVals, edc));
  d.Status(rvtiEncodeHuffmanSpecInit_JPEG_8u(acBits, acVals, eac));
  d.Status(rvtiEncodeHuffmanStateInit_JPEG_8u(es));
  std::vector<int16_t> blocks = Random<int16_t>(6 * 64, 31, -1023, 1023);
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (i % 64 && (i * 3) % 5) blocks[i] = 0;
  }
  std::vector<int16_t> bad = blocks;
  for (int k = 0; k < 64; ++k) bad[size_t(64 + k)] = int16_t(k & 1 ? 32767 : -32767);
  std::vector<uint8_t> bits(4096, 0);
  int pos = 0, nblocks = 0;
  int16_t last[4] = {0, 0, 0, 0};
  const int comp[2] = {0, 1};
  const EncodeHuffmanSpec* const dcs[4] = {edc, edc, nullptr, nullptr};
  const EncodeHuffmanSpec* const acs[4] = {eac, eac, nullptr, nullptr};
  int16_t one = 5;
  d.Status(rvtiEncodeHuffmanOne_JPEG_16s1u_C1(&one, bits.data(), 4096, &pos, edc, es, 0));
  d.Status(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1(blocks.data(), bits.data(), 4096, &pos, 3,
                                                    comp, 2, last, dcs, acs, es, &nblocks));
  d.Add(&nblocks, 1);
  // Sizes above 10 have no code here: the second block fails.
  const int failed = int(rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1(
      bad.data(), bits.data(), 4096, &pos, 3, comp, 2, last, dcs, acs, es, &nblocks));
  EXPECT_EQ(failed, int(rvtStatusHuffTable));
  d.Add(&failed, 1);
  d.Add(bits), d.Add(&pos, 1), d.Add(&nblocks, 1), d.Add(last, 4), d.Add(state);
  return d.value();
}

// DXT1, DXT3 and DXT5 encoding of an odd region (edge tiles padded, alpha
// across the DXT1 cut-off) at every quality, downwards and upwards.
uint64_t DxtEncodeDigest() {
  Digest d;
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  const std::vector<uint8_t> src = Random<uint8_t>(size_t(kStep) * kH * 4, 51, 0, 255);
  const int32_t step = 4 * kStep;
  for (int q = 0; q <= 2; ++q) {
    std::vector<uint8_t> out(blocks * 16, 0x5A);
    d.Status(rvtiTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R(src.data(), step, out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R(src.data() + size_t(step) * (kH - 1), -step,
                                                          out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(src.data(), step, out.data(), kRoi, q));
    d.Add(out);
  }
  return d.value();
}

// Scaled YCoCg in DXT5 blocks: an odd region encoded at every quality,
// downwards and upwards, and random blocks decoded both ways.
uint64_t YCoCgDigest() {
  Digest d;
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  const std::vector<uint8_t> src = Random<uint8_t>(size_t(kStep) * kH * 4, 61, 0, 255);
  const int32_t step = 4 * kStep;
  for (int q = 0; q <= 2; ++q) {
    std::vector<uint8_t> out(blocks * 16, 0x5A);
    d.Status(rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R(src.data(), step, out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromYCoCg_DXT5_8u_C4C1R(src.data() + size_t(step) * (kH - 1), -step,
                                                           out.data(), kRoi, q));
    d.Add(out);
  }
  const std::vector<uint8_t> blk = Random<uint8_t>(blocks * 16, 62, 0, 255);
  std::vector<uint8_t> px(size_t(kStep) * kH, 0x5A);
  d.Status(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R(blk.data(), px.data(), kStep, kRoi));
  d.Add(px);
  d.Status(rvtiTextureDecodeBlockToRGBA_YCoCgDXT5_8u_C1C4R(blk.data(), px.data() + size_t(kStep) * (kH - 1),
                                                           -kW * 4, kRoi));
  d.Add(px);
  return d.value();
}

// BC6H encoding of an odd region (edge tiles padded) of random half
// patterns (NaN, infinities and negatives among them) at every quality,
// unsigned downwards and signed upwards.
uint64_t Bc6hEncodeDigest() {
  Digest d;
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  const std::vector<uint16_t> src = Random<uint16_t>(size_t(kW) * 3 * kH, 52, 0, 0xFFFF);
  const int32_t step = 6 * kW;
  for (int q = 0; q <= 2; ++q) {
    std::vector<uint8_t> out(blocks * 16, 0x5A);
    d.Status(rvtiTextureEncodeBlockFromRGB_BC6_16u_C3C1R(src.data(), step, out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromRGB_BC6_16s_C3C1R(
        reinterpret_cast<const int16_t*>(src.data()) + size_t(3) * kW * (kH - 1), -step, out.data(), kRoi, q));
    d.Add(out);
  }
  return d.value();
}

// BC7 encoding of an odd region of noise, of an opaque gradient and of a
// grey one at every quality, downwards and upwards.
uint64_t Bc7EncodeDigest() {
  Digest d;
  const size_t blocks = size_t((kW + 3) / 4) * ((kH + 3) / 4);
  std::vector<uint8_t> src = Random<uint8_t>(size_t(kStep) * kH * 4, 53, 0, 255);
  const int32_t step = 4 * kStep;
  std::vector<uint8_t> flat(src.size());
  for (size_t i = 0; i < flat.size(); ++i) flat[i] = i % 4 == 3 ? 255 : uint8_t((i / 4 % 97) * 2 + src[i] % 5);
  std::vector<uint8_t> grey(src.size());
  for (size_t i = 0; i < grey.size(); ++i) grey[i] = i % 4 == 3 ? 255 : uint8_t((i / 4 % 89) * 2 + src[i - i % 4] % 7);
  for (int q = 0; q <= 2; ++q) {
    std::vector<uint8_t> out(blocks * 16, 0x5A);
    d.Status(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(src.data(), step, out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(flat.data() + size_t(step) * (kH - 1), -step,
                                                         out.data(), kRoi, q));
    d.Add(out);
    d.Status(rvtiTextureEncodeBlockFromRGBA_BC7_8u_C4C1R(grey.data(), step, out.data(), kRoi, q));
    d.Add(out);
  }
  return d.value();
}

// The HP coded-block pattern encoder: patterns of a 5 x 3 tile (Y only,
// 4:2:0 and 4:4:4) against their neighbours, with the HP adaptation at the
// row ends; the bytes, positions and tables, then a refused call.
uint64_t JpegXrCbpEncodeDigest() {
  Digest d;
  static constexpr int kFormats[3][2] = {{0, 1}, {1, 3}, {3, 3}};
  for (const auto& f : kFormats) {
    int32_t size = 0;
    d.Status(rvtiVLCGetStateSize_JPEGXR(f[0], f[1], &size));
    std::vector<uint8_t> st(static_cast<size_t>(size));
    auto* s = reinterpret_cast<VLCState_JPEGXR*>(st.data());
    d.Status(rvtiVLCInit_JPEGXR(f[0], f[1], s, size));
    std::vector<int32_t> pats = Random<int32_t>(15 * 3, uint32_t(61 + f[0]), 0, 0xFFFF);
    for (int i = 0; i < 15; ++i) {
      for (int c = 0; c < f[1]; ++c) {
        int32_t& v = pats[size_t(3 * i + c)];
        if (f[0] == 1 && c > 0) v &= 0xF;
        if (i % 4 == 1) v &= v >> 3;
      }
    }
    std::vector<uint8_t> buf(512, 0x5A);
    int32_t pos = 3;
    for (int i = 0; i < 15; ++i) {
      const int32_t* left = i % 5 ? &pats[size_t(3 * (i - 1))] : nullptr;
      const int32_t* top = i >= 5 ? &pats[size_t(3 * (i - 5))] : nullptr;
      d.Status(rvtiVLCEncodeCBPHP_JPEGXR_32s1u(&pats[size_t(3 * i)], left, top, s, buf.data(), 512, &pos));
      if (i % 5 == 4) d.Status(rvtiVLCAdapt_JPEGXR(s, 4 | 16));
    }
    d.Add(buf);
    d.Add(&pos, 1);
    int32_t tables[22], disc[44], bits[6];
    d.Status(rvtiVLCGetTables_JPEGXR(s, tables, disc, bits));
    d.Add(tables, 22);
    d.Add(disc, 44);
    pats[0] = 0x10000;  // a block past the 16: refused
    const RvtResult refused = rvtiVLCEncodeCBPHP_JPEGXR_32s1u(pats.data(), nullptr, nullptr, s, buf.data(), 512, &pos);
    d.Add(&refused, 1);
  }
  return d.value();
}

// The scaled 9/7 inverse passes: the forward passes' bands of random
// samples back through rows and columns, both phases, the decoder's
// scales and plain ones.
uint64_t Jpeg2kScaled97Digest() {
  Digest d;
  const int32_t step = kW * 4;
  std::vector<float> src = Random<float>(size_t(kW * kH), 62, -255, 255), a(src.size()), b(src.size()),
                     out(src.size());
  for (const bool cols : {false, true}) {
    const ImageSize half = cols ? ImageSize{kW - 4, kH / 2 - 6} : ImageSize{kW / 2 - 4, kH - 4};
    const size_t at = cols ? 4 * kW + 2 : 2 * kW + 4, band = cols ? 2 * kW + 2 : kW + 2;
    for (int32_t phase : {0, 1}) {
      if (cols) {
        d.Status(rvtiWTFwdCol_D97_JPEG2K_32f_C1R(src.data() + at, step, a.data(), step, b.data(), step, half, phase));
      } else {
        d.Status(rvtiWTFwdRow_D97_JPEG2K_32f_C1R(src.data() + at, step, a.data(), step, b.data(), step, half, phase));
      }
      for (const float hs : {1.625732422f, 0.8128662f}) {
        auto fn = cols ? rvtiWTInvColScaled_D97_JPEG2K_32f_C1R : rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R;
        d.Status(fn(a.data() + band, step, b.data() + band, step, half, out.data(), step, phase, 1.230174105f, hs));
        d.Add(out);
      }
    }
  }
  return d.value();
}

// The fused up-sampling + colour rows: random rows of several widths
// (short ones for the scalar edges, long ones through the vector steps),
// chroma near the ends of the range included.
uint64_t UpsampleColorDigest() {
  Digest d;
  for (const int width : {1, 2, 3, 17, 64, 131, 1000, 4001}) {
    const size_t cw = size_t(width + 1) / 2;
    const std::vector<uint8_t> y = Random<uint8_t>(size_t(width), 71, 0, 255),
                               cbn = Random<uint8_t>(cw, 72, 0, 255), cbf = Random<uint8_t>(cw, 73, 0, 40),
                               crn = Random<uint8_t>(cw, 74, 200, 255), crf = Random<uint8_t>(cw, 75, 0, 255);
    std::vector<uint8_t> out(3 * size_t(width));
    d.Status(rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R(y.data(), cbn.data(), cbf.data(), crn.data(),
                                                         crf.data(), out.data(), width));
    d.Add(out);
    d.Status(rvtiYCbCr422ToRGBRow_Triangle_JPEG_8u_P3C3R(y.data(), cbf.data(), crn.data(), out.data(), width));
    d.Add(out);
  }
  return d.value();
}

TEST(Abi, FamiliesGiveTheirDefinedResults) {
  struct Family {
    const char* name;
    uint64_t (*digest)();
    uint64_t want;
  };
  for (const Family& f : {Family{"quantization", QuantDigest, 0xa96d6043e044ceb2ull},
                          Family{"forward DCT", DctFwdDigest, 0x1ff4ff016483aa81ull},
                          Family{"inverse DCT", DctInvDigest, 0x1eb93bf41c458061ull},
                          Family{"colour, forward", ColorFwdDigest, 0xcc8763973dbd75aaull},
                          Family{"colour, inverse", ColorInvDigest, 0x9b67bd0763eca78aull},
                          Family{"chroma sampling", SamplingDigest, 0xda27302199a7c455ull},
                          Family{"Huffman", HuffmanDigest, 0xcce45a81ea2fb0f6ull},
                          Family{"photo core transform", PctDigestAll, 0x1197b165cc207e02ull},
                          Family{"BC1 to BC5 textures", TextureDigest, 0xf0f1d397514ef635ull},
                          Family{"lossless", LosslessDigest, 0x97ddec0a60e20a4aull},
                          Family{"JPEG 2000", Jpeg2kDigest, 0x179f306254d03b0dull},
                          Family{"MCU conversions", McuDigest, 0xe6159909f6d7ea64ull},
                          Family{"progressive Huffman", ProgressiveDigest, 0x7ed2257896f4aa39ull},
                          Family{"Huffman MCU runs", HuffmanRunDigest, 0xaf5f03ee92775d3eull},
                          Family{"JPEG 2000 code-blocks", Tier1Digest, 0x7e337e5eecc58e6aull},
                          Family{"BC7 and BC6H textures", BptcDigest, 0x3e0fa340dca19ec5ull},
                          Family{"BC4 and BC5 encoding", BcEncodeDigest, 0xf21af0dc805dd514ull},
                          Family{"JPEG XR coefficient coding", JpegXrVlcDigest, 0x45769201a4041506ull},
                          Family{"Huffman encoder MCU runs", HuffmanEncodeRunDigest, 0xabde081bbdb1b264ull},
                          Family{"DXT1, DXT3 and DXT5 encoding", DxtEncodeDigest, 0xdbf05dad42fa38a5ull},
                          Family{"YCoCg in DXT5", YCoCgDigest, 0x09b7cc6377aab36bull},
                          Family{"BC6H encoding", Bc6hEncodeDigest, 0x1b90ef71bca9530eull},
                          Family{"BC7 encoding", Bc7EncodeDigest, 0xd9bd425195fbcd27ull},
                          Family{"JPEG XR HP pattern encoder", JpegXrCbpEncodeDigest, 0xdc4ad661d913438full},
                          Family{"JPEG 2000 scaled 9/7 inverse", Jpeg2kScaled97Digest, 0xf997f3d7a3bbf761ull},
                          Family{"fused up-sampling and colour rows", UpsampleColorDigest, 0xe5bac7792e35d920ull}}) {
    EXPECT_EQ(f.digest(), f.want) << f.name << ": 0x" << std::hex << f.digest();
  }
}

TEST(Abi, CoreHelpers) {
  void* p = rvtMalloc(1000);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
  rvtFree(p);
  rvtFree(nullptr);
  EXPECT_EQ(rvtMalloc(0), nullptr);
  EXPECT_EQ(rvtMalloc(-5), nullptr);
  int32_t cache = 0;
  EXPECT_EQ(rvtGetMaxCacheSizeB(nullptr), -8);
  if (rvtGetMaxCacheSizeB(&cache) == 0) EXPECT_GT(cache, 0);
  const int32_t before = rvtSetNumThreads(1);
  EXPECT_EQ(ownGetNumThreads(), 1);
  rvtSetNumThreads(before);
  EXPECT_GE(ownGetNumThreads(), 1);
}

}  // namespace
