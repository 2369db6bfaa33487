// The example JPEG XR decoder's row sink (examples/rvtjxr): rows passed on
// a strip at a time must be exactly the whole image the decoder otherwise
// keeps, top to bottom, whatever the chroma, tiling and height.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "jxr_codec.h"
#include "jxr_encode.h"

namespace {

struct Collect : rvtjxr::RowSink {
  const rvtjxr::Picture* pic = nullptr;
  std::vector<uint8_t> got;
  int calls = 0, refuseAt = -1, callsAfterRefusal = 0;
  bool sizeKnown = true;
  bool Rows(const uint8_t* rows, int count) override {
    if (refuseAt >= 0 && calls > refuseAt) ++callsAfterRefusal;
    sizeKnown &= pic->width > 0 && pic->height > 0 && pic->channels > 0;
    got.insert(got.end(), rows, rows + size_t(pic->width) * size_t(pic->channels) * size_t(count));
    return calls++ != refuseAt;
  }
};

// A smooth picture with noise, so every band has coefficients.
rvtjxr::Picture Photo(int w, int h, int channels, int bits, uint32_t seed) {
  rvtjxr::Picture p;
  p.width = w;
  p.height = h;
  p.channels = channels;
  p.bits = bits;
  std::mt19937 rng(seed);
  const int top = (1 << bits) - 1;
  p.samples.resize(size_t(w) * h * channels);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < channels; ++c) {
        const int v = (x * (3 + c) + y * (5 - c)) * top / (8 * (w + h)) + int(rng() % 24);
        p.samples[(size_t(y) * w + x) * channels + c] = uint16_t(v > top ? top : v);
      }
    }
  }
  return p;
}

std::vector<uint8_t> Encode(const rvtjxr::Picture& pic, const rvtjxr::EncodeOptions& opt) {
  std::vector<uint8_t> file;
  std::string error;
  EXPECT_TRUE(rvtjxr::EncodeFile(pic, opt, &file, &error)) << error;
  return file;
}

TEST(RvtjxrRows, SinkGetsTheWholeImageTopToBottom) {
  struct Case {
    int w, h, channels, chroma, overlap, tiles;
    bool spatial;
  };
  const Case cases[] = {
      {77, 53, 1, 444, 1, 1, false},    // partial macroblocks, fewer rows than a strip pair
      {64, 16, 3, 444, 0, 1, true},     // a single macroblock row
      {130, 97, 3, 420, 2, 1, false},   // 4:2:0 rows lag a macroblock row
      {96, 70, 3, 422, 1, 2, false},    // tiles: rows wait for every tile column
      {50, 161, 3, 444, 2, 3, true},
  };
  uint32_t seed = 1;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h) + " chroma " + std::to_string(c.chroma));
    rvtjxr::EncodeOptions opt;
    opt.quality = 6;
    opt.overlap = c.overlap;
    opt.spatial = c.spatial;
    opt.tileCols = c.tiles;
    opt.tileRows = c.tiles;
    opt.chroma = c.chroma;
    const std::vector<uint8_t> file = Encode(Photo(c.w, c.h, c.channels, 8, seed++), opt);
    std::string error;
    rvtjxr::Picture whole;
    whole.narrow = true;
    ASSERT_TRUE(rvtjxr::DecodeFile(file.data(), file.size(), &whole, &error)) << error;
    ASSERT_EQ(whole.bytes.size(), size_t(c.w) * c.h * c.channels);

    rvtjxr::Picture streamed;
    streamed.narrow = true;
    Collect sink;
    sink.pic = &streamed;
    streamed.sink = &sink;
    ASSERT_TRUE(rvtjxr::DecodeFile(file.data(), file.size(), &streamed, &error)) << error;
    EXPECT_TRUE(streamed.bytes.empty());
    EXPECT_TRUE(sink.sizeKnown);
    EXPECT_EQ(sink.calls, (c.h + 15) / 16);  // full strips, the last one short
    EXPECT_TRUE(sink.got == whole.bytes);
  }
}

TEST(RvtjxrRows, RefusedRowsStopTheDecodeAndWideImagesKeepTheirSamples) {
  rvtjxr::EncodeOptions opt;
  opt.quality = 4;
  const std::vector<uint8_t> file = Encode(Photo(40, 70, 3, 8, 9), opt);
  rvtjxr::Picture pic;
  pic.narrow = true;
  Collect sink;
  sink.pic = &pic;
  sink.refuseAt = 1;
  pic.sink = &sink;
  std::string error;
  EXPECT_FALSE(rvtjxr::DecodeFile(file.data(), file.size(), &pic, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(sink.callsAfterRefusal, 0);

  // 16-bit samples never go to the byte sink
  const std::vector<uint8_t> wide = Encode(Photo(40, 30, 1, 16, 10), opt);
  rvtjxr::Picture deep;
  deep.narrow = true;
  Collect unused;
  unused.pic = &deep;
  deep.sink = &unused;
  ASSERT_TRUE(rvtjxr::DecodeFile(wide.data(), wide.size(), &deep, &error)) << error;
  EXPECT_EQ(unused.calls, 0);
  EXPECT_EQ(deep.samples.size(), size_t(40) * 30);
}

}  // namespace
