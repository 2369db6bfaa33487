// The example JPEG XR encoder's forward transform stage (examples/rvtjxr):
// the row-streamed form must give exactly the whole-channel transform, and
// the decoder's inverse must undo it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "jxr_filters.h"
#include "jxr_prefilters.h"

namespace {

using rvtjxr::ForwardRows;

struct Shape {
  int chroma;  // 0 (luma, 4:4:4), 420 or 422
  int mbw, mbh, overlap;
};

size_t MbSize(int chroma) { return chroma == 420 ? 64 : chroma == 422 ? 128 : 256; }

std::vector<int32_t> Noise(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<int32_t> v(n);
  for (int32_t& x : v) x = int32_t(rng() % 4096) - 2048;
  return v;
}

void Whole(std::vector<int32_t>& c, const Shape& s) {
  if (s.chroma) rvtjxr::ForwardTransformChroma(c.data(), s.mbw, s.mbh, s.chroma == 420, s.overlap);
  else rvtjxr::ForwardTransform(c.data(), s.mbw, s.mbh, s.overlap);
}

// Streams `in` through a ring of `slots` macroblock rows, as the encoder
// does, collecting each row as it is finished.
std::vector<int32_t> Streamed(const std::vector<int32_t>& in, const Shape& s, int slots) {
  const size_t row = size_t(s.mbw) * MbSize(s.chroma);
  std::vector<int32_t> ring(row * size_t(slots)), out(in.size());
  auto at = [&](int y) { return ring.data() + size_t(y % slots) * row; };
  ForwardRows f(s.mbw, s.mbh, s.overlap, s.chroma);
  for (int y = 0; y <= s.mbh; ++y) {
    if (y < s.mbh) std::memcpy(at(y), in.data() + size_t(y) * row, row * sizeof(int32_t));
    f.Row(at(y + slots - 1), at(y), at(y + 1), y);
    if (y > 0) std::memcpy(out.data() + size_t(y - 1) * row, at(y - 1), row * sizeof(int32_t));
  }
  return out;
}

std::vector<Shape> Shapes() {
  std::vector<Shape> v;
  for (int chroma : {0, 420, 422}) {
    for (int overlap = 0; overlap <= 2; ++overlap) {
      for (int mbw : {1, 2, 3, 6}) {
        for (int mbh : {1, 2, 5}) v.push_back({chroma, mbw, mbh, overlap});
      }
      // wide enough that the windows gathered along a row overflow a batch
      v.push_back({chroma, 21, 3, overlap});
    }
  }
  return v;
}

std::string Name(const Shape& s) {
  return "chroma " + std::to_string(s.chroma) + " overlap " + std::to_string(s.overlap) + " " +
         std::to_string(s.mbw) + "x" + std::to_string(s.mbh) + " macroblocks";
}

// Rows finished out of order, filters split between calls or a row
// overwritten too early all show as a difference somewhere; two- and
// three-row rings (the next row in the slot of the row above, or apart).
TEST(RvtjxrPrefilters, RowsGiveTheWholeChannelTransform) {
  uint32_t seed = 1;
  for (const Shape& s : Shapes()) {
    const std::vector<int32_t> in = Noise(size_t(s.mbw) * s.mbh * MbSize(s.chroma), seed++);
    std::vector<int32_t> want = in;
    Whole(want, s);
    for (int slots : {2, 3}) {
      const std::vector<int32_t> got = Streamed(in, s, slots);
      size_t i = 0;
      while (i < got.size() && got[i] == want[i]) ++i;
      EXPECT_EQ(i, got.size()) << Name(s) << ", " << slots << " slots: first difference at " << i;
    }
  }
}

// The decoder's post filters take the streamed coefficients back to the
// pixels (except where one macroblock wide 4:2:x chroma loses its corner
// DC under overlap 2, which the encoder refuses).
TEST(RvtjxrPrefilters, DecoderInverseRestoresThePixels) {
  uint32_t seed = 100;
  for (const Shape& s : Shapes()) {
    if (s.chroma && s.overlap == 2 && s.mbw == 1) continue;
    const std::vector<int32_t> in = Noise(size_t(s.mbw) * s.mbh * MbSize(s.chroma), seed++);
    std::vector<int32_t> back = Streamed(in, s, 3);
    const std::vector<int32_t> steps(size_t(s.mbw) * s.mbh, 1);
    if (s.chroma) rvtjxr::InverseTransformChroma(back.data(), s.mbw, s.mbh, s.chroma == 420, s.overlap, true, steps, false);
    else rvtjxr::InverseTransform(back.data(), s.mbw, s.mbh, s.overlap, true, steps, false);
    EXPECT_EQ(back, in) << Name(s);
  }
}

}  // namespace
