// The example JPEG XR decoder's row sink (examples/rvtjxr): rows passed on
// a strip at a time must be exactly the whole image the decoder otherwise
// keeps, top to bottom, whatever the chroma, tiling and height.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "jxr_codec.h"
#include "jxr_encode.h"

namespace {

struct Collect : rvtjxr::RowSink {
  const rvtjxr::Picture* pic = nullptr;
  std::vector<uint8_t> got;
  int calls = 0, refuseAt = -1;
  bool Rows(const uint8_t* rows, int count) override {
    EXPECT_GT(pic->width * pic->height * pic->channels, 0);  // sized before the first rows
    EXPECT_LE(calls, refuseAt < 0 ? calls : refuseAt);       // nothing after a refusal
    got.insert(got.end(), rows, rows + size_t(pic->width) * size_t(pic->channels) * size_t(count));
    return calls++ != refuseAt;
  }
};

std::vector<uint8_t> Encode(int w, int h, int channels, int bits, const rvtjxr::EncodeOptions& opt) {
  rvtjxr::Picture p;
  p.width = w;
  p.height = h;
  p.channels = channels;
  p.bits = bits;
  const int top = (1 << bits) - 1;
  for (int i = 0; i < w * h * channels; ++i) {
    p.samples.push_back(uint16_t((i * 37 % 101 + i / (w * channels) % 100) * top / 200));
  }
  std::vector<uint8_t> file;
  std::string error;
  EXPECT_TRUE(rvtjxr::EncodeFile(p, opt, &file, &error)) << error;
  return file;
}

bool Decode(const std::vector<uint8_t>& file, rvtjxr::Picture* pic, Collect* sink) {
  pic->narrow = true;
  if (sink) {
    sink->pic = pic;
    pic->sink = sink;
  }
  std::string error;
  return rvtjxr::DecodeFile(file.data(), file.size(), pic, &error);
}

TEST(RvtjxrRows, SinkGetsTheWholeImageTopToBottom) {
  struct Case {
    int w, h, channels, chroma, overlap, tiles;
    bool spatial;
  } const cases[] = {
      {77, 53, 1, 444, 1, 1, false},   // partial macroblocks
      {64, 16, 3, 444, 0, 1, true},    // a single macroblock row
      {130, 97, 3, 420, 2, 1, false},  // 4:2:0 rows lag a macroblock row
      {96, 70, 3, 422, 1, 2, false},   // tiles: rows wait for every tile column
      {50, 161, 3, 444, 2, 3, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h) + " chroma " + std::to_string(c.chroma));
    rvtjxr::EncodeOptions opt;
    opt.quality = 6;
    opt.overlap = c.overlap;
    opt.spatial = c.spatial;
    opt.tileCols = opt.tileRows = c.tiles;
    opt.chroma = c.chroma;
    const std::vector<uint8_t> file = Encode(c.w, c.h, c.channels, 8, opt);
    rvtjxr::Picture whole, streamed;
    Collect sink;
    ASSERT_TRUE(Decode(file, &whole, nullptr));
    ASSERT_TRUE(Decode(file, &streamed, &sink));
    EXPECT_TRUE(streamed.bytes.empty());
    EXPECT_EQ(sink.calls, (c.h + 15) / 16);  // full strips, the last one short
    EXPECT_TRUE(sink.got == whole.bytes);
  }
}

TEST(RvtjxrRows, RefusedRowsFailTheDecodeAndWideImagesKeepTheirSamples) {
  rvtjxr::EncodeOptions opt;
  opt.quality = 4;
  rvtjxr::Picture pic, deep;
  Collect refusing, unused;
  refusing.refuseAt = 1;
  EXPECT_FALSE(Decode(Encode(40, 70, 3, 8, opt), &pic, &refusing));
  ASSERT_TRUE(Decode(Encode(40, 30, 1, 16, opt), &deep, &unused));  // 16-bit samples skip the byte sink
  EXPECT_EQ(unused.calls, 0);
  EXPECT_EQ(deep.samples.size(), size_t(40) * 30);
}

// Lossless files must come back sample for sample, through the byte
// output and the sink (16-bit ones through the samples): widths that end
// mid-block and run past the converter's 256-pixel spans, heights that end
// mid-block.  Sub-sampled chroma is exact for pixels a fixed offset from
// grey (constant chroma).
TEST(RvtjxrRows, LosslessRoundTripsThroughBothOutputs) {
  const struct {
    int channels, chroma, bits;
  } kinds[] = {{1, 444, 8}, {3, 444, 8}, {3, 420, 8}, {3, 422, 8}, {1, 444, 16}, {3, 444, 16}, {3, 420, 16}};
  for (const auto& kind : kinds) {
    for (const int w : {5, 18, 301}) {
      const int h = 37;
      SCOPED_TRACE(std::to_string(kind.chroma) + ", " + std::to_string(kind.channels) + " channels, " +
                   std::to_string(kind.bits) + " bits, " + std::to_string(w) + " wide");
      rvtjxr::Picture src;
      src.width = w;
      src.height = h;
      src.channels = kind.channels;
      src.bits = kind.bits;
      const int scale = kind.bits == 16 ? 257 : 1;
      uint32_t seed = 12345;
      auto next = [&seed] { return int((seed = seed * 1664525u + 1013904223u) >> 24); };
      static const int kOffset[3] = {17, 0, -9};
      for (int i = 0; i < w * h; ++i) {
        const int grey = 20 + next() * 200 / 256;
        for (int c = 0; c < kind.channels; ++c) {
          src.samples.push_back(uint16_t(kind.chroma == 444 ? next() * scale : (grey + kOffset[c]) * scale));
        }
      }
      rvtjxr::EncodeOptions opt;
      opt.quality = 1;
      opt.overlap = 0;
      opt.chroma = kind.chroma;
      std::vector<uint8_t> file;
      std::string error;
      ASSERT_TRUE(rvtjxr::EncodeFile(src, opt, &file, &error)) << error;
      rvtjxr::Picture whole, streamed;
      ASSERT_TRUE(Decode(file, &whole, nullptr));
      if (kind.bits == 16) {
        EXPECT_TRUE(whole.samples == src.samples);
        continue;
      }
      const std::vector<uint8_t> want(src.samples.begin(), src.samples.end());
      Collect sink;
      ASSERT_TRUE(Decode(file, &streamed, &sink));
      EXPECT_TRUE(whole.bytes == want);
      EXPECT_TRUE(sink.got == want);
    }
  }
}
}  // namespace
