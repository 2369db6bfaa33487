// TIFF rows: PackBits packets worked by hand, libtiff reading our strips
// and our decoder reading libtiff's, resumption after a cut at every byte,
// every target against the reference; join and split of 16-bit samples.
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "checkasm.h"
#include "photo.h"

namespace rvt {
namespace {

using Bytes = std::vector<uint8_t>;
using PackFn = decltype(&rvtiPackBitsRow_TIFF_8u_C1);
const auto& kPack = impl_rvtiPackBitsRow_TIFF_8u_C1;

// Packets of one row; a buffer of the worst case (one header per 128 bytes
// plus one) always suffices.
Bytes Pack(PackFn fn, const Bytes& row) {
  Bytes out(row.size() + row.size() / 128 + 2);
  int pos = 0;
  EXPECT_EQ(fn(row.data(), int(row.size()), out.data(), &pos, int(out.size())), rvtStatusOk);
  out.resize(size_t(pos));
  return out;
}

// Rows that exercise every packet rule: runs of every length 1..300 between
// literals, alternating pairs, all equal, random bytes, few-valued bytes
// (pairs and triples everywhere), and rows of the test photos.
std::vector<Bytes> SyntheticRows(test::Rng& rng) {
  std::vector<Bytes> rows;
  Bytes runs;
  for (int len = 1; len <= 300; ++len) {
    runs.insert(runs.end(), size_t(len), uint8_t(len));
    runs.push_back(uint8_t(len + 100));
  }
  rows.push_back(runs);
  Bytes pairs;
  for (int i = 0; i < 700; ++i) pairs.push_back(uint8_t((i / 2) % 2 ? 0xAB : 0xAC));
  rows.push_back(pairs);
  rows.push_back(Bytes(1000, 0x55));
  for (int n : {1, 2, 3, 127, 128, 129, 130, 131, 257, 4000}) {
    Bytes r(static_cast<size_t>(n), 0);
    rng.Fill(r.data(), r.size(), uint8_t(0), uint8_t(255));
    rows.push_back(r);
    rng.Fill(r.data(), r.size(), uint8_t(0), uint8_t(2));
    rows.push_back(r);
  }
  return rows;
}

TEST(PackBits, PacketsWorkedByHand) {
  const std::vector<std::pair<Bytes, Bytes>> cases = {
      {{0xAA, 0xAA}, {0xFF, 0xAA}},
      {{0xAA, 0xAB, 0xAB}, {0x00, 0xAA, 0xFF, 0xAB}},
      {{0xAA, 0xAB, 0xAB, 0xAB}, {0x00, 0xAA, 0xFE, 0xAB}},
      {{0xAA, 0xAB, 0xAB, 0xAC}, {0x03, 0xAA, 0xAB, 0xAB, 0xAC}},
      {{0x7E}, {0x00, 0x7E}},
      {{1, 2, 3, 4, 4}, {0x02, 1, 2, 3, 0xFF, 4}},
  };
  Bytes run129(129, 0x42);
  Bytes lit200(200);
  for (int i = 0; i < 200; ++i) lit200[size_t(i)] = uint8_t(i);
  Bytes want_lit200 = {127};
  want_lit200.insert(want_lit200.end(), lit200.begin(), lit200.begin() + 128);
  want_lit200.push_back(71);
  want_lit200.insert(want_lit200.end(), lit200.begin() + 128, lit200.end());
  for (const auto& t : test::AllTargets(kPack)) {
    for (const auto& [in, want] : cases) EXPECT_EQ(Pack(t.fn, in), want) << t.name;
    EXPECT_EQ(Pack(t.fn, run129), (Bytes{0x81, 0x42, 0x00, 0x42})) << t.name;
    EXPECT_EQ(Pack(t.fn, lit200), want_lit200) << t.name;
  }
}

TEST(PackBits, RowEndKeepsWholePackets) {
  // AA AB AB AB needs 2 + 2 bytes: with 3 only the literal is written.
  const Bytes row = {0xAA, 0xAB, 0xAB, 0xAB};
  for (const auto& t : test::AllTargets(kPack)) {
    Bytes out(3, 0xEE);
    int pos = 0;
    EXPECT_EQ(t.fn(row.data(), 4, out.data(), &pos, 3), rvtStatusRowEnd) << t.name;
    EXPECT_EQ(pos, 2);
    EXPECT_EQ(out, (Bytes{0x00, 0xAA, 0xEE}));
    pos = 5;  // already past the end: nothing fits, nothing written
    EXPECT_EQ(t.fn(row.data(), 4, out.data(), &pos, 3), rvtStatusRowEnd);
    EXPECT_EQ(pos, 5);
  }
}

TEST(UnpackBits, PacketsWorkedByHand) {
  const Bytes src = {0x80, 0x00, 0x41};
  Bytes dst(1);
  int pos = 0;
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(src.data(), &pos, 3, dst.data(), 1), rvtStatusOk);
  EXPECT_EQ(dst[0], 0x41);
  EXPECT_EQ(pos, 3);

  // A replicate packet longer than the row is refused whole.
  const Bytes rep = {0xFD, 0x07};  // 4 x 07
  Bytes three(3, 0xEE);
  pos = 0;
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(rep.data(), &pos, 2, three.data(), 3), rvtStatusRowEnd);
  EXPECT_EQ(pos, 1);  // after the refused header
  EXPECT_EQ(three, Bytes(3, 0xEE));

  // A replicate header as the last source byte: refused, nothing read past.
  pos = 0;
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(rep.data(), &pos, 1, three.data(), 3), rvtStatusRowEnd);
  EXPECT_EQ(pos, 1);
  // A literal running past the source, and a source ending between packets.
  const Bytes lit = {0x02, 1, 2};
  pos = 0;
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(lit.data(), &pos, 3, three.data(), 3), rvtStatusRowEnd);
  EXPECT_EQ(pos, 1);
  const Bytes two = {0x01, 5, 6};
  pos = 0;
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(two.data(), &pos, 3, three.data(), 3), rvtStatusRowEnd);
  EXPECT_EQ(pos, 3);
  EXPECT_EQ(three, (Bytes{5, 6, 0xEE}));
}

TEST(TiffRows, ChecksInArgumentOrderWriteNothing) {
  uint8_t b[4] = {1, 2, 3, 4}, d[4] = {9, 9, 9, 9};
  int pos = 0, neg = -1;
  for (const auto& t : test::AllTargets(kPack)) {
    EXPECT_EQ(t.fn(nullptr, 0, nullptr, nullptr, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(b, 0, nullptr, &pos, 4), rvtStatusBadArg);  // length before pointer
    EXPECT_EQ(t.fn(b, 4, nullptr, &pos, 4), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(b, 4, d, nullptr, 4), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(b, 4, d, &pos, 0), rvtStatusBadArg);
    EXPECT_EQ(t.fn(b, 4, d, &neg, 4), rvtStatusBadArg);
  }
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(nullptr, &pos, 4, d, 4), rvtStatusNullPtr);
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(b, nullptr, 4, d, 4), rvtStatusNullPtr);
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(b, &pos, 0, nullptr, 4), rvtStatusBadArg);
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(b, &neg, 4, d, 4), rvtStatusBadArg);
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(b, &pos, 4, nullptr, 4), rvtStatusNullPtr);
  EXPECT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(b, &pos, 4, d, 0), rvtStatusBadArg);
  EXPECT_EQ(pos, 0);

  uint16_t w[2] = {7, 7};
  const uint8_t* planes[2] = {b, nullptr};
  uint8_t* out_planes[2] = {d, nullptr};
  for (const auto& t : test::AllTargets(impl_rvtiJoinRow_TIFF_8u16u_C1)) {
    EXPECT_EQ(t.fn(nullptr, w, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(planes, nullptr, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(planes, w, 0), rvtStatusStep);  // not rvtStatusSize
    EXPECT_EQ(t.fn(planes, w, 2), rvtStatusNullPtr);  // the null plane, after the length
  }
  for (const auto& t : test::AllTargets(impl_rvtiSplitRow_TIFF_16u8u_C1)) {
    EXPECT_EQ(t.fn(nullptr, out_planes, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(w, nullptr, 0), rvtStatusNullPtr);
    EXPECT_EQ(t.fn(w, out_planes, -3), rvtStatusStep);
    EXPECT_EQ(t.fn(w, out_planes, 2), rvtStatusNullPtr);
  }
  EXPECT_EQ(w[0], 7);
  EXPECT_EQ(d[0], 9);
  const uint8_t hi = 0x12, lo = 0x34;
  const uint8_t* one[2] = {&hi, &lo};
  uint16_t joined = 0;
  EXPECT_EQ(rvtiJoinRow_TIFF_8u16u_C1(one, &joined, 1), rvtStatusOk);
  EXPECT_EQ(joined, 0x1234);
}

// ------------------------------------------------------------ libtiff

// One strip of `rows` in a temporary TIFF file, then every row read back.
struct TempTiff {
  std::string path;
  TempTiff() {
    char name[] = "/tmp/rvtjp_tiff_XXXXXX";
    const int fd = mkstemp(name);
    if (fd >= 0) close(fd);
    path = name;
  }
  ~TempTiff() { std::remove(path.c_str()); }
};

void SetTags(TIFF* tif, int width, int height, int channels) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(width));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(height));
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, channels);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, channels == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t(height));
}

// An image of `height` rows of `stride` bytes: the photo's, or synthetic.
struct Image {
  int width, height, channels;
  Bytes px;
  size_t stride() const { return size_t(width) * size_t(channels); }
};

std::vector<Image> Images() {
  std::vector<Image> out;
  for (const char* name : {"camera.png", "coffee.png"}) {
    const int ch = std::string(name) == "camera.png" ? 1 : 3;
    test::Photo p = test::LoadPhoto(name, ch);
    if (!p.px.empty()) out.push_back({p.width, p.height, ch, p.px});
  }
  test::Rng rng(7);
  const auto rows = SyntheticRows(rng);
  Image syn{4000, int(rows.size()), 1, {}};
  for (const Bytes& r : rows) {
    Bytes row(4000, 0);
    std::copy(r.begin(), r.begin() + std::min<size_t>(r.size(), 4000), row.begin());
    syn.px.insert(syn.px.end(), row.begin(), row.end());
  }
  out.push_back(syn);
  return out;
}

TEST(PackBits, LibtiffReadsOurStrips) {
  const auto images = Images();
  ASSERT_GE(images.size(), 3u) << "test photos missing";
  for (const Image& im : images) {
    Bytes strip;
    for (int y = 0; y < im.height; ++y) {
      const Bytes row(im.px.begin() + ptrdiff_t(y * im.stride()),
                      im.px.begin() + ptrdiff_t((y + 1) * im.stride()));
      const Bytes packed = Pack(rvtiPackBitsRow_TIFF_8u_C1, row);
      strip.insert(strip.end(), packed.begin(), packed.end());
    }
    TempTiff file;
    TIFF* w = TIFFOpen(file.path.c_str(), "w");
    ASSERT_NE(w, nullptr);
    SetTags(w, im.width, im.height, im.channels);
    ASSERT_EQ(TIFFWriteRawStrip(w, 0, strip.data(), tmsize_t(strip.size())), tmsize_t(strip.size()));
    TIFFClose(w);
    TIFF* r = TIFFOpen(file.path.c_str(), "r");
    ASSERT_NE(r, nullptr);
    Bytes row(im.stride());
    for (int y = 0; y < im.height; ++y) {
      ASSERT_EQ(TIFFReadScanline(r, row.data(), uint32_t(y), 0), 1);
      ASSERT_TRUE(std::equal(row.begin(), row.end(), im.px.begin() + ptrdiff_t(y * im.stride())))
          << "row " << y << " of " << im.width << "x" << im.height;
    }
    TIFFClose(r);
  }
}

// libtiff's strip of an image, as raw PackBits bytes.
Bytes LibtiffStrip(const Image& im) {
  TempTiff file;
  TIFF* w = TIFFOpen(file.path.c_str(), "w");
  if (!w) return {};
  SetTags(w, im.width, im.height, im.channels);
  Bytes row(im.stride());
  for (int y = 0; y < im.height; ++y) {
    std::copy(im.px.begin() + ptrdiff_t(y * im.stride()),
              im.px.begin() + ptrdiff_t((y + 1) * im.stride()), row.begin());
    TIFFWriteScanline(w, row.data(), uint32_t(y), 0);
  }
  TIFFClose(w);
  TIFF* r = TIFFOpen(file.path.c_str(), "r");
  if (!r) return {};
  Bytes strip(size_t(TIFFRawStripSize(r, 0)));
  TIFFReadRawStrip(r, 0, strip.data(), tmsize_t(strip.size()));
  TIFFClose(r);
  return strip;
}

TEST(UnpackBits, ReadsLibtiffStripsAndResumesAfterEveryCut) {
  for (const Image& im : Images()) {
    const Bytes strip = LibtiffStrip(im);
    ASSERT_FALSE(strip.empty());
    Bytes out(im.px.size(), 0);
    int pos = 0;
    for (int y = 0; y < im.height; ++y) {
      ASSERT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(strip.data(), &pos, int(strip.size()),
                                             out.data() + y * im.stride(), int(im.stride())),
                rvtStatusOk)
          << "row " << y;
    }
    EXPECT_EQ(pos, int(strip.size()));
    EXPECT_EQ(out, im.px);
  }
  // Cut the synthetic strip's source at every byte: a row refused for want
  // of source decodes, resumed from its starting position with the whole
  // strip, to the same bytes, and the strip ends where it should.
  test::Rng rng(8);
  Image small{300, 0, 1, {}};
  for (const Bytes& r : SyntheticRows(rng)) {
    Bytes row(300, 0);
    std::copy(r.begin(), r.begin() + std::min<size_t>(r.size(), 300), row.begin());
    small.px.insert(small.px.end(), row.begin(), row.end());
    ++small.height;
  }
  const Bytes strip = LibtiffStrip(small);
  ASSERT_FALSE(strip.empty());
  for (int cut = 1; cut <= int(strip.size()); ++cut) {
    Bytes out(small.px.size(), 0);
    int pos = 0, len = cut;
    for (int y = 0; y < small.height; ++y) {
      uint8_t* row = out.data() + y * small.stride();
      const int start = pos;
      RvtResult st = rvtiUnpackBitsRow_TIFF_8u_C1(strip.data(), &pos, len, row, 300);
      if (st == rvtStatusRowEnd) {
        ASSERT_LE(pos, len);
        pos = start;  // the rest of the strip arrives
        len = int(strip.size());
        st = rvtiUnpackBitsRow_TIFF_8u_C1(strip.data(), &pos, len, row, 300);
      }
      ASSERT_EQ(st, rvtStatusOk) << "cut " << cut << " row " << y;
    }
    ASSERT_EQ(out, small.px) << "cut " << cut;
    ASSERT_EQ(pos, int(strip.size())) << "cut " << cut;
  }
}

TEST(PackBits, RoundTripsEveryRowOnEveryTarget) {
  test::Rng rng(9);
  for (const Bytes& row : SyntheticRows(rng)) {
    for (const auto& t : test::AllTargets(kPack)) {
      const Bytes packed = Pack(t.fn, row);
      Bytes out(row.size());
      int pos = 0;
      ASSERT_EQ(rvtiUnpackBitsRow_TIFF_8u_C1(packed.data(), &pos, int(packed.size()), out.data(),
                                             int(out.size())),
                rvtStatusOk);
      ASSERT_EQ(out, row) << t.name;
      ASSERT_EQ(pos, int(packed.size()));
    }
  }
}

// ------------------------------------------------------------ differential

// Rows of every kind at several start positions, in destinations from ample
// down to a few bytes (the coder stops at RowEnd); the destination's guards
// catch a packet written past dstLen.
RVT_CHECKASM(rvtiPackBitsRow_TIFF_8u_C1,
             test::Cases{[](test::Rng& rng) {
                           std::vector<test::Case> out;
                           for (const Bytes& row : SyntheticRows(rng)) {
                             const int need = int(row.size() + row.size() / 128 + 2);
                             for (int len : {need + 3, need / 2 + 1, 130, 3}) {
                               test::Case c;
                               c.label = std::to_string(row.size()) + " bytes into " +
                                         std::to_string(len);
                               c.in.push_back(test::ArrayOf<uint8_t>(int(row.size()), len & 3));
                               std::memcpy(c.in[0].as<uint8_t>(), row.data(), row.size());
                               c.out.push_back(test::ArrayOf<uint8_t>(len));
                               c.out.push_back(test::ArrayOf<int>(1));
                               *c.out[1].as<int>() = int(rng.Uniform(0, 2));
                               c.arg[0] = int64_t(row.size());
                               c.arg[1] = len;
                               out.push_back(std::move(c));
                             }
                           }
                           return out;
                         },
                         [](auto fn, test::Case& c) {
                           return fn(c.in[0].as<uint8_t>(), int(c.arg[0]), c.out[0].as<uint8_t>(),
                                     c.out[1].as<int>(), int(c.arg[1]));
                         }});

// Strips of every kind of row, and random bytes (hostile packets), from
// several start positions into rows that are exact, short and long, with
// the source cut short too.
RVT_CHECKASM(rvtiUnpackBitsRow_TIFF_8u_C1,
             test::Cases{[](test::Rng& rng) {
                           std::vector<test::Case> out;
                           std::vector<Bytes> strips;
                           for (const Bytes& row : SyntheticRows(rng)) {
                             strips.push_back(Pack(rvtiPackBitsRow_TIFF_8u_C1, row));
                             Bytes noise(row.size());
                             rng.Fill(noise.data(), noise.size(), uint8_t(0), uint8_t(255));
                             strips.push_back(noise);
                           }
                           for (const Bytes& strip : strips) {
                             const int n = int(strip.size());
                             for (int k = 0; k < 4; ++k) {
                               test::Case c;
                               const int len = k == 3 ? int(rng.Uniform(1, n)) : n;
                               const int row = int(rng.Uniform(1, 3 * n + 8));
                               c.label = std::to_string(n) + "-byte strip, case " + std::to_string(k);
                               c.in.push_back(test::ArrayOf<uint8_t>(n, k));
                               std::memcpy(c.in[0].as<uint8_t>(), strip.data(), strip.size());
                               c.out.push_back(test::ArrayOf<int>(1));
                               *c.out[0].as<int>() = k == 1 ? int(rng.Uniform(0, n - 1)) : 0;
                               c.out.push_back(test::ArrayOf<uint8_t>(row, k));
                               c.arg[0] = len;
                               c.arg[1] = row;
                               out.push_back(std::move(c));
                             }
                           }
                           return out;
                         },
                         [](auto fn, test::Case& c) {
                           return fn(c.in[0].as<uint8_t>(), c.out[0].as<int>(), int(c.arg[0]),
                                     c.out[1].as<uint8_t>(), int(c.arg[1]));
                         }});

// Join and split over every length 1..67 and longer rows, 16-bit data at
// odd addresses.
std::vector<int> RowLengths() {
  std::vector<int> n;
  for (int i = 1; i <= 67; ++i) n.push_back(i);
  for (int i : {255, 1001, 8192}) n.push_back(i);
  return n;
}

RVT_CHECKASM(rvtiJoinRow_TIFF_8u16u_C1,
             test::Cases{[](test::Rng& rng) {
                           std::vector<test::Case> out;
                           for (int n : RowLengths()) {
                             test::Case c;
                             c.label = std::to_string(n) + " samples";
                             c.in.push_back(test::ArrayOf<uint8_t>(n, n % 3));
                             c.in.push_back(test::ArrayOf<uint8_t>(n));
                             c.in[0].Fill<uint8_t>(rng, 0, 255);
                             c.in[1].Fill<uint8_t>(rng, 0, 255);
                             c.out.push_back(test::ArrayOf<uint16_t>(n, n % 2));
                             c.arg[0] = n;
                             out.push_back(std::move(c));
                           }
                           return out;
                         },
                         [](auto fn, test::Case& c) {
                           const uint8_t* planes[2] = {c.in[0].as<uint8_t>(), c.in[1].as<uint8_t>()};
                           return fn(planes, c.out[0].as<uint16_t>(), int(c.arg[0]));
                         }});

RVT_CHECKASM(rvtiSplitRow_TIFF_16u8u_C1,
             test::Cases{[](test::Rng& rng) {
                           std::vector<test::Case> out;
                           for (int n : RowLengths()) {
                             test::Case c;
                             c.label = std::to_string(n) + " samples";
                             c.in.push_back(test::ArrayOf<uint16_t>(n, n % 2));
                             c.in[0].Fill<uint16_t>(rng, 0, 65535);
                             c.out.push_back(test::ArrayOf<uint8_t>(n, n % 3));
                             c.out.push_back(test::ArrayOf<uint8_t>(n));
                             c.arg[0] = n;
                             out.push_back(std::move(c));
                           }
                           return out;
                         },
                         [](auto fn, test::Case& c) {
                           uint8_t* planes[2] = {c.out[0].as<uint8_t>(), c.out[1].as<uint8_t>()};
                           return fn(c.in[0].as<uint16_t>(), planes, int(c.arg[0]));
                         }});

}  // namespace
}  // namespace rvt
