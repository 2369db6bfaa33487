// The overlap filters' walk, written once for both directions: which
// windows (edges, block corners, macroblock-corner DC windows, chroma DC
// pairs and quads) and which first-level block transforms a
// macroblock-row decoder meets at macroblock corner (x, y), in its order.
// The decoder (jxr_filters.cc) runs each step as it comes, corner by
// corner; the encoder (jxr_prefilters.cc) lists a corner's steps and
// undoes them backwards, corners in the opposite order.  Sharing the walk
// keeps the two exact inverses of each other.
//
// Corners run 0 <= x <= mbw, 0 <= y <= mbh: the virtual macroblocks one
// past the right and bottom edges close the last windows.  p0 points at
// macroblock (x, y - 1), p1 at (x, y), in the layout of jxr_filters.h;
// only offsets that stay in the image are handed out.
//
// A visitor V provides, all on pointers into the channel:
//   Edge(a, b, c, d)        four samples across an edge (b, c nearest)
//   Window(q0, q1, q2, q3)  a 4x4 window from its four 2x2 quads
//   CornerDC(p0, p1)        the luma DC window between four macroblocks
//   Block(p)                a block's first-level transform
//   Post2(a, b), Post2x2(a, b, c, d)   chroma DC pair and 2x2 window
//   SubDC(a, b), AddDC(a, b)  *a -= *b before a corner's chroma DC
//                           filters, *a += *b after them
//   DropDC(p)               a chroma corner DC the newer filters cancel
#ifndef RVTJXR_JXR_WALK_H_
#define RVTJXR_JXR_WALK_H_

#include <cstddef>
#include <cstdint>

namespace rvtjxr {

// Luma (and every channel of 4:4:4).  `fine`: the filters of codec
// subversion 1 and up, which also filter the 2x2 DCs and pixels at the
// image corners.
// `above` and `here`: macroblock rows y - 1 and y (only what is in the
// image is touched, so either may be a row buffer of its own).
template <class V>
void WalkCornerRows(V& v, int32_t* above, int32_t* here, int mbw, int mbh, int overlap, bool fine, int x, int y) {
  using P = int32_t*;
  auto edge = [&v](P a, P b, P c, P d) { v.Edge(a, b, c, d); };
  // the window on the corner of the block at a (upper left) and at b
  // (lower left), the right-hand blocks 64 elements on
  auto corner = [&v](P a, P b) { v.Window(a + 12, b + 4, a + 72, b + 64); };
  // two rows across a horizontal block edge, p the lower left one's
  auto across = [&edge](P p) {
    edge(p + 0, p - 2, p + 6, p + 8);
    edge(p + 1, p - 1, p + 7, p + 9);
  };
  const bool left = x == 0, right = x == mbw, top = y == 0, bottom = y == mbh;
  P p0 = above + ptrdiff_t(x) * 256;
  P p1 = here + ptrdiff_t(x) * 256;

  if (overlap == 2) {
    if (fine) {  // the 2x2 DCs at the image corners
      if (top && left) edge(p1 + 0, p1 + 64, p1 + 16, p1 + 80);
      if (top && right) edge(p1 - 128, p1 - 64, p1 - 112, p1 - 48);
      if (bottom && left) edge(p0 + 32, p0 + 96, p0 + 48, p0 + 112);
      if (bottom && right) edge(p0 - 96, p0 - 32, p0 - 80, p0 - 16);
    }
    if ((left || right) && !(top || bottom)) {
      const int j = left ? 0 : -128;
      edge(p0 + j + 32, p0 + j + 48, p1 + j + 0, p1 + j + 16);
      edge(p0 + j + 96, p0 + j + 112, p1 + j + 64, p1 + j + 80);
    }
    if (!(left || right)) {
      if (top || bottom) {
        P p = top ? p1 : p0 + 32;
        edge(p - 128, p - 64, p + 0, p + 64);
        edge(p - 112, p - 48, p + 16, p + 80);
      } else {
        v.CornerDC(p0, p1);
      }
    }
  }

  if (!top) {
    for (int j = left ? 32 : -96; j < (right ? 32 : 160); j += 64) {
      v.Block(p0 + j);
      v.Block(p0 + j + 16);
    }
  }
  if (!bottom) {
    for (int j = left ? 0 : -128; j < (right ? 0 : 128); j += 64) {
      v.Block(p1 + j);
      v.Block(p1 + j + 16);
    }
  }

  if (overlap == 0) return;
  if (fine) {  // the 2x2 pixels at the image corners
    if (top && left) edge(p1 + 0, p1 + 1, p1 + 2, p1 + 3);
    if (top && right) edge(p1 - 59, p1 - 60, p1 - 57, p1 - 58);
    if (bottom && left) edge(p0 + 58, p0 + 59, p0 + 56, p0 + 57);
    if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
  }
  if (left || right) {
    const int j = left ? 10 : -64 + 14;
    if (!top) {
      across(p0 + 16 + j);
      across(p0 + 32 + j);
    }
    if (!bottom) across(p1 + j);
    if (!(top || bottom)) {
      edge(p0 + 48 + j + 0, p0 + 48 + j - 2, p1 - 10 + j, p1 - 8 + j);
      edge(p0 + 48 + j + 1, p0 + 48 + j - 1, p1 - 9 + j, p1 - 7 + j);
    }
  }
  for (int j = left ? 0 : -192; j < (right ? -64 : 64); j += 64) {
    if (top) {
      P p = p1 + j;
      edge(p + 5, p + 4, p + 64, p + 65);
      edge(p + 7, p + 6, p + 66, p + 67);
      corner(p1 + j, p1 + j + 16);
    } else if (bottom) {
      corner(p0 + 16 + j, p0 + 32 + j);
      corner(p0 + 32 + j, p0 + 48 + j);
      P p = p0 + 48 + j;
      edge(p + 15, p + 14, p + 74, p + 75);
      edge(p + 13, p + 12, p + 72, p + 73);
    } else {
      corner(p0 + 16 + j, p0 + 32 + j);
      corner(p0 + 32 + j, p0 + 48 + j);
      corner(p0 + 48 + j, p1 + j);
      corner(p1 + j, p1 + j + 16);
    }
  }
}

// The same on a whole channel.
template <class V>
void WalkCorner(V& v, int32_t* channel, int mbw, int mbh, int overlap, bool fine, int x, int y) {
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
  WalkCornerRows(v, channel + (y - 1) * rowLen, channel + y * rowLen, mbw, mbh, overlap, fine, x, y);
}

// Chroma of 4:2:0 (8x8 macroblocks of 2x2 blocks) and 4:2:2 (8x16, 2x4
// blocks).  The newer filters (`fine`) hold back the leftmost macroblock
// column by one corner so that the image corners can be filtered relative
// to their neighbours: the corner DC is taken relative to the one beside
// it around the DC filters.  One macroblock wide, that correction cancels
// the corner DC instead (DropDC), which no encoder can undo.
template <class V>
void WalkChromaCorner(V& v, int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine, int x, int y) {
  using P = int32_t*;
  auto edge = [&v](P a, P b, P c, P d) { v.Edge(a, b, c, d); };
  auto corner = [&v](P a, P b, int offset) { v.Window(a + 12, b + 4, a + 72 - offset, b + 64 - offset); };
  auto across = [&edge](P p) {
    edge(p + 0, p - 2, p + 6, p + 8);
    edge(p + 1, p - 1, p + 7, p + 9);
  };
  const int mbSize = is420 ? 64 : 128;
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * mbSize;
  const bool left = x == 0, right = x == mbw, top = y == 0, bottom = y == mbh;
  const bool leftOrRight = left || right, topOrBottom = top || bottom;
  const bool leftAdj = x == 1, rightAdj = x == mbw - 1;
  P p0 = channel + (y - 1) * rowLen + ptrdiff_t(x) * mbSize;
  P p1 = channel + y * rowLen + ptrdiff_t(x) * mbSize;

  // The image-corner DCs of the newer filters: the top ones at 0 and
  // `half` of the first macroblock row, the bottom ones at `low` and
  // `low + half` of the last.
  const int half = mbSize / 2, low = is420 ? 16 : 48;
  auto cornerDCs = [&](bool after) {
    if (!fine || overlap != 2) return;
    if (mbw == 1) {
      if (after) return;
      if (leftAdj && top) v.DropDC(p1 - mbSize);
      if (leftAdj && bottom) v.DropDC(p0 - mbSize + low);
      return;
    }
    auto op = [&v, after](P a, P b) {
      if (after) v.AddDC(a, b);
      else v.SubDC(a, b);
    };
    if (leftAdj && top) op(p1 - mbSize, p1 - mbSize + half);
    if (rightAdj && top) op(p1 + half, p1);
    if (leftAdj && bottom) op(p0 - mbSize + low, p0 - mbSize + low + half);
    if (rightAdj && bottom) op(p0 + low + half, p0 + low);
  };

  // The newer filters hold back the leftmost column: the corner at x = 1
  // finishes it (its blocks and left image edge, `le` elements back).
  const bool held = fine && left, catchUp = fine && leftAdj;
  const bool leftEdge = fine ? leftAdj : left;
  const int le = fine ? -mbSize : 0;

  if (is420) {
    if (overlap == 2) {
      cornerDCs(false);
      if (leftOrRight && !topOrBottom) {
        const int j = left ? 0 : -32;
        v.Post2(p0 + j + 16, p1 + j);
      }
      if (!leftOrRight) {
        if (top) v.Post2(p1 - 32, p1);
        else if (bottom) v.Post2(p0 + 16 - 32, p0 + 16);
        else v.Post2x2(p0 - 16, p0 + 16, p1 - 32, p1);
      }
      cornerDCs(true);
    }
    if (!top) {
      for (int j = held ? 48 : catchUp ? -48 : left ? 16 : -16; j < (right ? 16 : 48); j += 32) v.Block(p0 + j);
    }
    if (!bottom) {
      for (int j = held ? 32 : catchUp ? -64 : left ? 0 : -32; j < (right ? 0 : 32); j += 32) v.Block(p1 + j);
    }
    if (overlap == 0) return;
    if (fine) {
      if (top && leftAdj) edge(p1 - 64 + 0, p1 - 64 + 1, p1 - 64 + 2, p1 - 64 + 3);
      if (top && right) edge(p1 - 27, p1 - 28, p1 - 25, p1 - 26);
      if (bottom && leftAdj) edge(p0 - 64 + 26, p0 - 64 + 27, p0 - 64 + 24, p0 - 64 + 25);
      if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
    }
    if (!top && leftEdge) {
      if (!bottom) {
        edge(p0 + le + 26, p0 + le + 24, p1 + le + 0, p1 + le + 2);
        edge(p0 + le + 27, p0 + le + 25, p1 + le + 1, p1 + le + 3);
      }
      across(p0 + le + 10);
    }
    if (!left && !top) {
      if (bottom) {
        for (int j = -48; j < (right ? -16 : 16); j += 32) {
          P p = p0 + j;
          edge(p + 15, p + 14, p + 42, p + 43);
          edge(p + 13, p + 12, p + 40, p + 41);
        }
      } else {
        corner(p0 - 48, p1 - 64, 32);
        if (!right) corner(p0 - 16, p1 - 32, 32);
      }
      if (right) {
        if (!bottom) {
          edge(p0 - 2, p0 - 4, p1 - 28, p1 - 26);
          edge(p0 - 1, p0 - 3, p1 - 27, p1 - 25);
        }
        across(p0 - 18);
      } else {
        corner(p0 - 32, p0 - 16, 32);
      }
      corner(p0 - 64, p0 - 48, 32);
    }
    if (top && !left) {
      for (int j = -64; j < (right ? -32 : 0); j += 32) {
        P p = p1 + j + 4;
        edge(p + 1, p + 0, p + 28, p + 29);
        edge(p + 3, p + 2, p + 30, p + 31);
      }
    }
    return;
  }

  // 4:2:2
  if (overlap == 2) {
    cornerDCs(false);
    if (!bottom) {
      if (leftOrRight) {
        if (!top) {
          const int j = left ? 0 : -64;
          v.Post2(p0 + 48 + j, p1 + j);
        }
        const int j = left ? 16 : -48;
        v.Post2(p1 + j, p1 + j + 16);
      } else {
        if (top) v.Post2(p1 - 64, p1);
        else v.Post2x2(p0 - 16, p0 + 48, p1 - 64, p1);
        v.Post2x2(p1 - 48, p1 + 16, p1 - 32, p1 + 32);
      }
    } else if (!leftOrRight) {
      v.Post2(p0 - 16, p0 + 48);
    }
    cornerDCs(true);
  }
  if (!top) {
    for (int j = held ? 112 : catchUp ? -80 : left ? 48 : -16; j < (right ? 48 : 112); j += 64) v.Block(p0 + j);
  }
  if (!bottom) {
    for (int j = held ? 64 : catchUp ? -128 : left ? 0 : -64; j < (right ? 0 : 64); j += 64) {
      v.Block(p1 + j);
      v.Block(p1 + j + 16);
      v.Block(p1 + j + 32);
    }
  }
  if (overlap == 0) return;
  if (fine) {
    if (top && leftAdj) edge(p1 - 128 + 0, p1 - 128 + 1, p1 - 128 + 2, p1 - 128 + 3);
    if (top && right) edge(p1 - 59, p1 - 60, p1 - 57, p1 - 58);
    if (bottom && leftAdj) edge(p0 - 128 + 58, p0 - 128 + 59, p0 - 128 + 56, p0 - 128 + 57);
    if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
  }
  if (!top) {
    if (leftEdge) across(p0 + le + 32 + 10);
    if (right) across(p0 - 32 + 14);
    for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) corner(p0 + j + 32, p0 + j + 48, 0);
  }
  if (!bottom) {
    if (leftEdge) {
      across(p1 + le + 10);
      across(p1 + le + 26);
    }
    if (right) {
      across(p1 - 64 + 14);
      across(p1 - 64 + 30);
    }
    for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) {
      corner(p1 + j, p1 + j + 16, 0);
      corner(p1 + j + 16, p1 + j + 32, 0);
    }
  }
  if (topOrBottom) {
    P p = top ? p1 + 5 : p0 + 48 + 13;
    for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) {
      edge(p + j + 0, p + j - 1, p + j + 59, p + j + 60);
      edge(p + j + 2, p + j + 1, p + j + 61, p + j + 62);
    }
  } else {
    if (leftEdge) {
      edge(p0 + le + 58, p0 + le + 56, p1 + le + 0, p1 + le + 2);
      edge(p0 + le + 59, p0 + le + 57, p1 + le + 1, p1 + le + 3);
    }
    if (right) {
      edge(p0 - 60 + 58, p0 - 60 + 56, p1 - 60 + 0, p1 - 60 + 2);
      edge(p0 - 60 + 59, p0 - 60 + 57, p1 - 60 + 1, p1 - 60 + 3);
    }
    for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) corner(p0 + j + 48, p1 + j, 0);
  }
}

}  // namespace rvtjxr

#endif  // RVTJXR_JXR_WALK_H_
