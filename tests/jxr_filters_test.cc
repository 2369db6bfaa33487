// The example JPEG XR decoder's post filters (examples/rvtjxr): corner
// rows run in spans of any length, as the decoder runs them behind its
// macroblocks, give the whole-channel result.  Windows are batched eight
// to a vector and flushed at span ends and other filter steps, so a
// window in the wrong lane, with another window's HP step, or an idle lane
// written back shows as a difference between splits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "jxr_filters.h"
#include "rvtjp.h"

namespace {

struct Case {
  int mbw, mbh, overlap;
  bool fine, hpAbsent;
};

std::string Name(const Case& c) {
  return std::to_string(c.mbw) + "x" + std::to_string(c.mbh) + " overlap " + std::to_string(c.overlap) +
         (c.fine ? " fine" : " older") + (c.hpAbsent ? " no HP" : "");
}

TEST(RvtjxrPostFilters, SpansGiveTheWholeChannelResult) {
  std::mt19937 rng(7);
  int checked = 0;
  for (int overlap = 0; overlap <= 2; ++overlap) {
    for (int mode = 0; mode < 3; ++mode) {
      for (int mbw : {1, 2, 3, 5, 9}) {
        for (int mbh : {1, 3}) {
          const Case c{mbw, mbh, overlap, mode == 0, mode == 2};
          const size_t n = size_t(mbw) * mbh * 256;
          std::vector<int32_t> in(n);
          // small values leave the older filters' DC compensation in reach
          for (int32_t& v : in) v = int32_t(rng() % 512) - 256;
          // HP steps on both sides of the compensation's threshold (20)
          // and of the offsets it compares against
          std::vector<int32_t> steps(size_t(mbw) * mbh);
          for (int32_t& s : steps) s = int32_t(rng() % 48) + 1;

          std::vector<int32_t> want = in;
          rvtjxr::InverseTransform(want.data(), mbw, mbh, overlap, c.fine, steps, c.hpAbsent);

          for (int trial = 0; trial < 3; ++trial) {
            std::vector<int32_t> got = in;
            const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
            for (int y = 0; y <= mbh; ++y) {
              for (int x0 = 0; x0 <= mbw;) {
                const int x1 = trial == 0 ? x0 + 1 : std::min(mbw + 1, x0 + 1 + int(rng() % 5));
                rvtjxr::InverseTransformRowSpan(got.data() + (y - 1) * rowLen, got.data() + y * rowLen, mbw, mbh,
                                                overlap, c.fine, steps, c.hpAbsent, y, x0, x1);
                x0 = x1;
              }
            }
            size_t i = 0;
            while (i < n && got[i] == want[i]) ++i;
            EXPECT_EQ(i, n) << Name(c) << ", split " << trial << ": first difference at " << i;
            ++checked;
          }
          // the filters changed something (no silent no-op)
          if (overlap > 0) EXPECT_NE(want, in) << Name(c);
        }
      }
    }
  }
  EXPECT_EQ(checked, 3 * 3 * 5 * 2 * 3);
}

// A block between the layout and raster rows: every element lands where
// kInBlock says, at any row stride, and nothing between the rows is
// touched; the way back restores the block.
TEST(RvtjxrLayout, BlocksToRasterRowsAndBack) {
  int32_t block[16];
  for (int i = 0; i < 16; ++i) block[i] = 100 + i;
  for (ptrdiff_t stride : {4, 7, 36}) {
    std::vector<int32_t> rows(size_t(3 * stride + 4), -1);
    rvtjxr::BlockToRows(block, rows.data(), stride);
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(rows[size_t(r * stride + c)], block[rvtjxr::kInBlock[r][c]]) << r << "," << c;
      }
      for (ptrdiff_t c = 4; r < 3 && c < stride; ++c) EXPECT_EQ(rows[size_t(r * stride + c)], -1);
    }
    int32_t back[16];
    std::fill(back, back + 16, 0);
    rvtjxr::RowsToBlock(rows.data(), stride, back);
    EXPECT_TRUE(std::equal(back, back + 16, block)) << "stride " << stride;
  }
}

// The decoder's inverse transforms against the library's per-region
// export: its own second-level block (raster order), and every block of a
// channel (overlap 0 leaves just the first-level transforms, gathered into
// runs for the block-run export and put back in the block layout), with
// batches part full.  Values over the whole 32-bit range make the lifting
// steps wrap, so a step done in wider arithmetic, reordered or rounded
// differently shows; so does a block put back shuffled or into another
// block's place.
TEST(RvtjxrInverseTransform, MatchesTheLibraryExport) {
  std::mt19937 rng(11);
  auto value = [&rng](int kind) {
    switch (kind) {
      case 0: return int32_t(rng() % 2048) - 1024;
      case 1: return int32_t(rng());
      default: return int32_t(rng() % 2 ? INT32_MAX - int32_t(rng() % 8) : INT32_MIN + int32_t(rng() % 8));
    }
  };
  for (int kind = 0; kind < 3; ++kind) {
    for (int trial = 0; trial < 200; ++trial) {
      int32_t want[16], got[16];
      for (int i = 0; i < 16; ++i) want[i] = got[i] = value(kind);
      ASSERT_EQ(rvtiPCTInv_JPEGXR_32s_C1IR(want, 16, {4, 4}), rvtStatusOk);
      rvtjxr::InverseBlock(got);
      ASSERT_TRUE(std::equal(got, got + 16, want)) << "values " << kind << ", trial " << trial;
    }
    // luma (16 blocks a macroblock) and 4:2:0 / 4:2:2 chroma (4 and 8)
    for (int layout = 0; layout < 3; ++layout) {
      for (int mbw : {1, 3, 5}) {
        const int mbSize = layout == 0 ? 256 : layout == 1 ? 64 : 128, mbh = 2;
        const size_t n = size_t(mbw) * mbh * size_t(mbSize);
        std::vector<int32_t> in(n);
        for (int32_t& v : in) v = value(kind);
        std::vector<int32_t> want = in, got = in;
        for (size_t b = 0; b < n; b += 16) {
          int32_t rows[16];
          rvtjxr::BlockToRows(want.data() + b, rows, 4);
          ASSERT_EQ(rvtiPCTInv_JPEGXR_32s_C1IR(rows, 16, {4, 4}), rvtStatusOk);
          rvtjxr::RowsToBlock(rows, 4, want.data() + b);
        }
        const std::vector<int32_t> steps(size_t(mbw) * mbh, 8);
        if (layout == 0) rvtjxr::InverseTransform(got.data(), mbw, mbh, 0, true, steps, false);
        else rvtjxr::InverseTransformChroma(got.data(), mbw, mbh, layout == 1, 0, true, steps, false);
        size_t i = 0;
        while (i < n && got[i] == want[i]) ++i;
        EXPECT_EQ(i, n) << "values " << kind << ", layout " << layout << ", " << mbw << " wide: first difference at "
                        << i;
        // the decoder's own order without DC filters: blocks placed in
        // raster order, transformed at once into the layout, then only
        // the filters (here overlap 1) over the corner rows
        std::vector<int32_t> raster(n);
        for (size_t b = 0; b < n; b += 16) rvtjxr::BlockToRows(in.data() + b, raster.data() + b, 4);
        rvtjxr::InverseRasterBlocks(raster.data(), int(n / 16));
        EXPECT_TRUE(raster == want) << "raster blocks, values " << kind << ", layout " << layout;
        if (layout != 0) continue;
        std::vector<int32_t> whole = in;
        rvtjxr::InverseTransform(whole.data(), mbw, mbh, 1, kind != 1, steps, false);
        const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
        for (int y = 0; y <= mbh; ++y) {
          rvtjxr::InverseTransformRowSpan(raster.data() + (y - 1) * rowLen, raster.data() + y * rowLen, mbw, mbh, 1,
                                          kind != 1, steps, false, y, 0, mbw + 1, true);
        }
        EXPECT_TRUE(raster == whole) << "filters after the transforms, values " << kind << ", " << mbw << " wide";
      }
    }
  }
}

}  // namespace
