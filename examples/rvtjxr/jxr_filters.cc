// The overlap post filters: lifting steps on 4-element lines across block
// edges (image edges), and on 4x4 windows centred on block corners, each
// the inverse of the encoder's pre filter.  Windows are visited in the
// order a macroblock-row decoder meets them (for macroblock (x, y), the
// corners and edges it completes, the virtual macroblocks one past the
// right and bottom edges closing the last ones), which fixes the results
// where windows of the two levels meet.
#include "jxr_filters.h"

#include <cstdlib>

#include "rvtjp.h"

namespace rvtjxr {
namespace {

using P = int32_t*;

void Rotate1(int32_t& a, int32_t& b) {
  a -= (b + 1) >> 1;
  b += (a + 1) >> 1;
}

// 2x2 Hadamard-like butterfly, rounding down.
void Butterfly(P pa, P pb, P pc, P pd) {
  int32_t a = *pa, b = *pb, c0 = *pc, d = *pd;
  a += d;
  b -= c0;
  const int32_t t = (a - b) >> 1;
  const int32_t c = t - d;
  d = t - c0;
  a -= d;
  b += c;
  *pa = a;
  *pb = b;
  *pc = c;
  *pd = d;
}

// The two-dimensional rotation of the odd-odd corner of a window.
void RotateOddOdd(P pa, P pb, P pc, P pd) {
  int32_t a = *pa, b = *pb, c = *pc, d = *pd;
  d += a;
  c -= b;
  const int32_t t1 = d >> 1, t2 = c >> 1;
  a -= t1;
  b += t2;
  a -= (b * 3 + 6) >> 3;
  b += (a * 3 + 2) >> 2;
  a -= (b * 3 + 4) >> 3;
  b -= t2;
  a += t1;
  c += b;
  d -= a;
  *pa = a;
  *pb = b;
  *pc = c;
  *pd = d;
}

// Scaling steps: a pair, then a quad.  Files of codec subversion 1 and up
// (`fine`) scale the pair by 7/1024 more.
void ScalePair(P pa, P pd, bool fine) {
  int32_t a = *pa, d = *pd;
  a += d;
  d = (a >> 1) - d;
  a += (d * 3) >> 3;
  d += (a * 3) >> 4;
  if (fine) {
    d += a >> 7;
    d -= a >> 10;
  }
  *pa = a;
  *pd = d;
}
void ScaleQuad(P pa, P pb, P pc, P pd) {
  int32_t a = *pa, b = *pb, c = *pc, d = *pd;
  b -= c;
  a += (d * 3 + 4) >> 3;
  d -= b >> 1;
  c = ((a - b) >> 1) - c;
  *pc = d;
  *pd = c;
  *pa = a - c;
  *pb = b + d;
}

// The one-dimensional scaling of the newer edge filter (it ends with the
// sign flip that keeps the 1-D gain right).
void ScaleEdge(int32_t& a, int32_t& d) {
  a += d;
  d = (a >> 1) - d;
  a += (d * 3) >> 3;
  d += (a * 3) >> 4;
  d += a >> 7;
  d -= a >> 10;
  a += (d * 3 + 4) >> 3;
  d -= a >> 1;
  a += d;
  d = -d;
}

// Four samples across an edge, b and c the nearest to it (a, b on one
// side), in both generations.
void Edge4(P pa, P pb, P pc, P pd, bool fine) {
  int32_t a = *pa, b = *pb, c = *pc, d = *pd;
  if (fine) {
    a += d;
    b += c;
    d -= (a + 1) >> 1;
    c -= (b + 1) >> 1;
    ScaleEdge(a, d);
    ScaleEdge(b, c);
    Rotate1(c, d);
    d += (a + 1) >> 1;
    c += (b + 1) >> 1;
    *pa = a - d;
    *pb = b - c;
    *pc = c;
    *pd = d;
    return;
  }
  a += d;
  b += c;
  d -= (a + 1) >> 1;
  c -= (b + 1) >> 1;
  Rotate1(c, d);
  d += (a + 1) >> 1;
  c += (b + 1) >> 1;
  a -= d - ((d * 3 + 16) >> 5);
  b -= c - ((c * 3 + 16) >> 5);
  d += (a * 3 + 8) >> 4;
  c += (b * 3 + 8) >> 4;
  a += (d * 3 + 16) >> 5;
  b += (c * 3 + 16) >> 5;
  *pa = a;
  *pb = b;
  *pc = c;
  *pd = d;
}

int32_t ClipTowards(int32_t v, int32_t alt) {
  if (v > 0) return alt > 0 ? (v < alt ? v : alt) : 0;
  if (v < 0) return alt < 0 ? (v > alt ? v : alt) : 0;
  return 0;
}

// A 4x4 window whose four 2x2 quads start at q0 (upper left quad's last
// element is the window centre's neighbour), q2, q1, q3.  jxrlib's decoder
// then pulls a small DC offset out of windows where the HP step is coarse
// (or HP is absent); matching its output needs the same.
void Window(P q0, P q1, P q2, P q3, int32_t hpStep, bool hpAbsent, bool fine) {
  for (int e = 0; e < 4; ++e) Butterfly(q0 + e, q2 + e, q1 + e, q3 + e);
  RotateOddOdd(q3 + 0, q3 + 1, q3 + 2, q3 + 3);
  Rotate1(q1[2], q1[3]);
  Rotate1(q1[0], q1[1]);
  Rotate1(q2[1], q2[3]);
  Rotate1(q2[0], q2[2]);
  for (int e = 0; e < 4; ++e) ScalePair(q0 + e, q3 + e, fine);
  for (int e = 0; e < 4; ++e) ScaleQuad(q0 + e, q2 + e, q1 + e, q3 + e);
  if (fine) return;
  for (int e = 0; e < 4; ++e) {
    const int32_t sum = (q0[e] + q1[e] + q2[e] + q3[e]) >> 1;
    int32_t dcl = int32_t(uint32_t(sum) * 595u + 65536u) >> 17;  // (wrapping, as 32-bit code does)
    if ((std::abs(dcl) < hpStep && hpStep > 20) || hpAbsent) {
      const int32_t alt = (q0[e] - q1[e] - q2[e] + q3[e]) >> 1;
      dcl = ClipTowards(dcl, alt) >> 1;
      q0[e] -= dcl;
      q3[e] -= dcl;
      q2[e] += dcl;
      q1[e] += dcl;
    }
  }
}

// The window on the corner shared by the block at p0 (upper left) and the
// one at p1 (lower left); `offset` 0 keeps the right-hand blocks 64
// elements on.
void Corner(P p0, P p1, int offset, int32_t hpStep, bool hpAbsent, bool fine) {
  P p2 = p0 + 72 - offset;
  P p3 = p1 + 64 - offset;
  Window(p0 + 12, p1 + 4, p2, p3, hpStep, hpAbsent, fine);
}

// The DC-level window on the corner between four macroblocks (p0 the
// upper row's macroblock right of the corner, p1 the lower row's).
void CornerDC(P p0, P p1, bool fine) {
  Butterfly(p0 - 96, p0 + 96, p1 - 112, p1 + 80);
  Butterfly(p0 - 32, p0 + 32, p1 - 48, p1 + 16);
  Butterfly(p0 - 80, p0 + 112, p1 - 128, p1 + 64);
  Butterfly(p0 - 16, p0 + 48, p1 - 64, p1 + 0);
  RotateOddOdd(p1 + 0, p1 + 64, p1 + 16, p1 + 80);
  Rotate1(p0[48], p0[32]);
  Rotate1(p0[112], p0[96]);
  Rotate1(p1[-64], p1[-128]);
  Rotate1(p1[-48], p1[-112]);
  ScalePair(p0 - 96, p1 + 80, fine);
  ScalePair(p0 - 32, p1 + 16, fine);
  ScalePair(p0 - 80, p1 + 64, fine);
  ScalePair(p0 - 16, p1 + 0, fine);
  ScaleQuad(p0 - 96, p1 - 112, p0 + 96, p1 + 80);
  ScaleQuad(p0 - 32, p1 - 48, p0 + 32, p1 + 16);
  ScaleQuad(p0 - 80, p1 - 128, p0 + 112, p1 + 64);
  ScaleQuad(p0 - 16, p1 - 64, p0 + 48, p1 + 0);
}

// The first-level inverse transform of one block, through the library.
void InverseBlock(P p) {
  int32_t c[16];
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < 4; ++k) c[4 * r + k] = p[kInBlock[r][k]];
  }
  rvtiPCTInv_JPEGXR_32s_C1IR(c, 16, {4, 4});
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < 4; ++k) p[kInBlock[r][k]] = c[4 * r + k];
  }
}

// Two DCs across a chroma macroblock edge, and the 2x2 window on a chroma
// macroblock corner; the newer forms rotate by a finer angle.
void Post2(P pa, P pb, bool fine) {
  int32_t a = *pa, b = *pb;
  if (fine) {
    b += (a + 2) >> 2;
    a += (b + 1) >> 1;
    a += b >> 5;
    a += b >> 9;
    a += b >> 13;
    b += (a + 2) >> 2;
  } else {
    b += (a + 4) >> 3;
    a += (b + 2) >> 2;
    b += (a + 4) >> 3;
  }
  *pa = a;
  *pb = b;
}
void Post2x2(P pa, P pb, P pc, P pd, bool fine) {
  int32_t a = *pa, b = *pb, c = *pc, d = *pd;
  a += d;
  b += c;
  d -= (a + 1) >> 1;
  c -= (b + 1) >> 1;
  b += (a + 2) >> 2;
  a += (b + 1) >> 1;
  if (fine) {
    a += b >> 5;
    a += b >> 9;
    a += b >> 13;
  }
  b += (a + 2) >> 2;
  d += (a + 1) >> 1;
  c += (b + 1) >> 1;
  *pa = a - d;
  *pb = b - c;
  *pc = c;
  *pd = d;
}

}  // namespace

void InverseTransform(int32_t* channel, int mbw, int mbh, int overlap, bool fine,
                      const std::vector<int32_t>& hpStep, bool hpAbsent) {
  auto edge = [fine](P a, P b, P c, P d) { Edge4(a, b, c, d, fine); };
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
  for (int y = 0; y <= mbh; ++y) {
    for (int x = 0; x <= mbw; ++x) {
      const bool left = x == 0, right = x == mbw, top = y == 0, bottom = y == mbh;
      // pointers into the rows above and at y; only offsets that stay in
      // the image are dereferenced
      P p0 = channel + (y - 1) * rowLen + ptrdiff_t(x) * 256;
      P p1 = channel + y * rowLen + ptrdiff_t(x) * 256;
      // the step of the macroblock a row decoder would have last decoded
      const int ly = bottom ? mbh - 1 : y, lx = (bottom || right) ? mbw - 1 : x;
      const int32_t step = hpAbsent ? 255 : hpStep[size_t(ly) * mbw + lx];

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
            CornerDC(p0, p1, fine);
          }
        }
      }

      if (!top) {
        for (int j = left ? 32 : -96; j < (right ? 32 : 160); j += 64) {
          InverseBlock(p0 + j);
          InverseBlock(p0 + j + 16);
        }
      }
      if (!bottom) {
        for (int j = left ? 0 : -128; j < (right ? 0 : 128); j += 64) {
          InverseBlock(p1 + j);
          InverseBlock(p1 + j + 16);
        }
      }

      if (overlap == 0) continue;
      if (fine) {  // the 2x2 pixels at the image corners
        if (top && left) edge(p1 + 0, p1 + 1, p1 + 2, p1 + 3);
        if (top && right) edge(p1 - 59, p1 - 60, p1 - 57, p1 - 58);
        if (bottom && left) edge(p0 + 58, p0 + 59, p0 + 56, p0 + 57);
        if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
      }
      if (left || right) {
        const int j = left ? 10 : -64 + 14;
        if (!top) {
          P p = p0 + 16 + j;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
          edge(p + 16, p + 14, p + 22, p + 24);
          edge(p + 17, p + 15, p + 23, p + 25);
        }
        if (!bottom) {
          P p = p1 + j;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
        }
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
          Corner(p1 + j, p1 + j + 16, 0, step, hpAbsent, fine);
        } else if (bottom) {
          Corner(p0 + 16 + j, p0 + 32 + j, 0, step, hpAbsent, fine);
          Corner(p0 + 32 + j, p0 + 48 + j, 0, step, hpAbsent, fine);
          P p = p0 + 48 + j;
          edge(p + 15, p + 14, p + 74, p + 75);
          edge(p + 13, p + 12, p + 72, p + 73);
        } else {
          Corner(p0 + 16 + j, p0 + 32 + j, 0, step, hpAbsent, fine);
          Corner(p0 + 32 + j, p0 + 48 + j, 0, step, hpAbsent, fine);
          Corner(p0 + 48 + j, p1 + j, 0, step, hpAbsent, fine);
          Corner(p1 + j, p1 + j + 16, 0, step, hpAbsent, fine);
        }
      }
    }
  }
}

// Chroma planes of 4:2:0 and 4:2:2 images.  The walk is the luma one
// (macroblock corners (x, y), 0 <= x <= mbw, 0 <= y <= mbh, p0 in the row
// above, p1 in the row at y); the newer filters hold back the leftmost
// macroblock column by one step so that the image corners can be filtered
// relative to their neighbours, and so must this walk to give the same
// results.
void InverseTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                            const std::vector<int32_t>& hpStep, bool hpAbsent) {
  auto edge = [fine](P a, P b, P c, P d) { Edge4(a, b, c, d, fine); };
  auto post2 = [fine](P a, P b) { Post2(a, b, fine); };
  auto post2x2 = [fine](P a, P b, P c, P d) { Post2x2(a, b, c, d, fine); };
  const int mbSize = is420 ? 64 : 128;
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * mbSize;
  int32_t before[2] = {0, 0}, after[2] = {0, 0};
  for (int y = 0; y <= mbh; ++y) {
    for (int x = 0; x <= mbw; ++x) {
      const bool left = x == 0, right = x == mbw, top = y == 0, bottom = y == mbh;
      const bool leftOrRight = left || right, topOrBottom = top || bottom;
      const bool leftAdj = x == 1, rightAdj = x == mbw - 1;
      P p0 = channel + (y - 1) * rowLen + ptrdiff_t(x) * mbSize;
      P p1 = channel + y * rowLen + ptrdiff_t(x) * mbSize;
      const int ly = bottom ? mbh - 1 : y, lx = (bottom || right) ? mbw - 1 : x;
      const int32_t step = hpAbsent ? 255 : hpStep[size_t(ly) * mbw + lx];
      auto corner = [&](P a, P b, int offset) { Corner(a, b, offset, step, hpAbsent, fine); };
      if (is420) {
        if (overlap == 2) {
          if (fine) {
            if (leftAdj && top) p1[-64] -= p1[-64 + 32];
            if (rightAdj && top) before[0] = p1[0];
            if (right && top) p1[-64 + 32] -= before[0];
            if (leftAdj && bottom) p0[-64 + 16] -= p0[-64 + 48];
            if (rightAdj && bottom) before[1] = p0[16];
            if (right && bottom) p0[-64 + 48] -= before[1];
          }
          if (leftOrRight && !topOrBottom) {
            const int j = left ? 0 : -32;
            post2(p0 + j + 16, p1 + j);
          }
          if (!leftOrRight) {
            if (top) post2(p1 - 32, p1);
            else if (bottom) post2(p0 + 16 - 32, p0 + 16);
            else post2x2(p0 - 16, p0 + 16, p1 - 32, p1);
          }
          if (fine) {
            if (leftAdj && top) p1[-64] += p1[-64 + 32];
            if (rightAdj && top) after[0] = p1[0];
            if (right && top) p1[-64 + 32] += after[0];
            if (leftAdj && bottom) p0[-64 + 16] += p0[-64 + 48];
            if (rightAdj && bottom) after[1] = p0[16];
            if (right && bottom) p0[-64 + 48] += after[1];
          }
        }
        if (!fine) {
          if (!top) {
            for (int j = left ? 16 : -16; j < (right ? 16 : 48); j += 32) InverseBlock(p0 + j);
          }
          if (!bottom) {
            for (int j = left ? 0 : -32; j < (right ? 0 : 32); j += 32) InverseBlock(p1 + j);
          }
          if (overlap == 0) continue;
          if (!left && !top) {
            if (bottom) {
              for (int j = -48; j < (right ? -16 : 16); j += 32) {
                P p = p0 + j;
                edge(p + 15, p + 14, p + 42, p + 43);
                edge(p + 13, p + 12, p + 40, p + 41);
              }
            } else {
              for (int j = -48; j < (right ? -16 : 16); j += 32) corner(p0 + j, p1 - 16 + j, 32);
            }
            if (right) {
              if (!bottom) {
                edge(p0 - 2, p0 - 4, p1 - 28, p1 - 26);
                edge(p0 - 1, p0 - 3, p1 - 27, p1 - 25);
              }
              edge(p0 - 18, p0 - 20, p0 - 12, p0 - 10);
              edge(p0 - 17, p0 - 19, p0 - 11, p0 - 9);
            } else {
              corner(p0 - 32, p0 - 16, 32);
            }
            corner(p0 - 64, p0 - 48, 32);
          } else if (top) {
            for (int j = left ? 0 : -64; j < (right ? -32 : 0); j += 32) {
              P p = p1 + j + 4;
              edge(p + 1, p + 0, p + 28, p + 29);
              edge(p + 3, p + 2, p + 30, p + 31);
            }
          } else if (left) {
            if (!bottom) {
              edge(p0 + 26, p0 + 24, p1 + 0, p1 + 2);
              edge(p0 + 27, p0 + 25, p1 + 1, p1 + 3);
            }
            edge(p0 + 10, p0 + 8, p0 + 16, p0 + 18);
            edge(p0 + 11, p0 + 9, p0 + 17, p0 + 19);
          }
          continue;
        }
        if (!top) {
          for (int j = left ? 48 : leftAdj ? -48 : -16; j < (right ? 16 : 48); j += 32) InverseBlock(p0 + j);
        }
        if (!bottom) {
          for (int j = left ? 32 : leftAdj ? -64 : -32; j < (right ? 0 : 32); j += 32) InverseBlock(p1 + j);
        }
        if (overlap == 0) continue;
        if (top && leftAdj) edge(p1 - 64 + 0, p1 - 64 + 1, p1 - 64 + 2, p1 - 64 + 3);
        if (top && right) edge(p1 - 27, p1 - 28, p1 - 25, p1 - 26);
        if (bottom && leftAdj) edge(p0 - 64 + 26, p0 - 64 + 27, p0 - 64 + 24, p0 - 64 + 25);
        if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
        if (!left && !top) {
          if (leftAdj) {
            if (!bottom) {
              edge(p0 - 64 + 26, p0 - 64 + 24, p1 - 64 + 0, p1 - 64 + 2);
              edge(p0 - 64 + 27, p0 - 64 + 25, p1 - 64 + 1, p1 - 64 + 3);
            }
            edge(p0 - 64 + 10, p0 - 64 + 8, p0 - 64 + 16, p0 - 64 + 18);
            edge(p0 - 64 + 11, p0 - 64 + 9, p0 - 64 + 17, p0 - 64 + 19);
          }
          if (bottom) {
            for (int j = -48; j < (right ? -16 : 16); j += 32) {
              P p = p0 + j;
              edge(p + 15, p + 14, p + 42, p + 43);
              edge(p + 13, p + 12, p + 40, p + 41);
            }
          } else {
            corner(p0 - 48, p1 - 16 - 48, 32);
            if (!right) corner(p0 - 16, p1 - 16 - 16, 32);
          }
          if (right) {
            if (!bottom) {
              edge(p0 - 2, p0 - 4, p1 - 28, p1 - 26);
              edge(p0 - 1, p0 - 3, p1 - 27, p1 - 25);
            }
            edge(p0 - 18, p0 - 20, p0 - 12, p0 - 10);
            edge(p0 - 17, p0 - 19, p0 - 11, p0 - 9);
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
        continue;
      }

      // 4:2:2
      if (overlap == 2) {
        if (fine) {
          if (leftAdj && top) p1[-128] -= p1[-128 + 64];
          if (rightAdj && top) before[0] = p1[0];
          if (right && top) p1[-128 + 64] -= before[0];
          if (leftAdj && bottom) p0[-128 + 48] -= p0[-128 + 112];
          if (rightAdj && bottom) before[1] = p0[48];
          if (right && bottom) p0[-128 + 112] -= before[1];
        }
        if (!bottom) {
          if (leftOrRight) {
            if (!top) {
              const int j = left ? 0 : -64;
              post2(p0 + 48 + j, p1 + j);
            }
            const int j = left ? 16 : -48;
            post2(p1 + j, p1 + j + 16);
          } else {
            if (top) post2(p1 - 64, p1);
            else post2x2(p0 - 16, p0 + 48, p1 - 64, p1);
            post2x2(p1 - 48, p1 + 16, p1 - 32, p1 + 32);
          }
        } else if (!leftOrRight) {
          post2(p0 - 16, p0 + 48);
        }
        if (fine) {
          if (leftAdj && top) p1[-128] += p1[-128 + 64];
          if (rightAdj && top) after[0] = p1[0];
          if (right && top) p1[-128 + 64] += after[0];
          if (leftAdj && bottom) p0[-128 + 48] += p0[-128 + 112];
          if (rightAdj && bottom) after[1] = p0[48];
          if (right && bottom) p0[-128 + 112] += after[1];
        }
      }
      if (!fine) {
        if (!top) {
          for (int j = left ? 48 : -16; j < (right ? 48 : 112); j += 64) InverseBlock(p0 + j);
        }
        if (!bottom) {
          for (int j = left ? 0 : -64; j < (right ? 0 : 64); j += 64) {
            InverseBlock(p1 + j);
            InverseBlock(p1 + j + 16);
            InverseBlock(p1 + j + 32);
          }
        }
        if (overlap == 0) continue;
        if (!top) {
          if (leftOrRight) {
            P p = p0 + (left ? 32 + 10 : -32 + 14);
            edge(p + 0, p - 2, p + 6, p + 8);
            edge(p + 1, p - 1, p + 7, p + 9);
          }
          for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) corner(p0 + j + 32, p0 + j + 48, 0);
        }
        if (!bottom) {
          if (leftOrRight) {
            P p = p1 + (left ? 10 : -64 + 14);
            edge(p + 0, p - 2, p + 6, p + 8);
            edge(p + 1, p - 1, p + 7, p + 9);
            p += 16;
            edge(p + 0, p - 2, p + 6, p + 8);
            edge(p + 1, p - 1, p + 7, p + 9);
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
          if (leftOrRight) {
            const int j = left ? 0 : -64 + 4;
            edge(p0 + j + 58, p0 + j + 56, p1 + j + 0, p1 + j + 2);
            edge(p0 + j + 59, p0 + j + 57, p1 + j + 1, p1 + j + 3);
          }
          for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) corner(p0 + j + 48, p1 + j, 0);
        }
        continue;
      }
      if (!top) {
        for (int j = left ? 112 : leftAdj ? -80 : -16; j < (right ? 48 : 112); j += 64) InverseBlock(p0 + j);
      }
      if (!bottom) {
        for (int j = left ? 64 : leftAdj ? -128 : -64; j < (right ? 0 : 64); j += 64) {
          InverseBlock(p1 + j);
          InverseBlock(p1 + j + 16);
          InverseBlock(p1 + j + 32);
        }
      }
      if (overlap == 0) continue;
      if (top && leftAdj) edge(p1 - 128 + 0, p1 - 128 + 1, p1 - 128 + 2, p1 - 128 + 3);
      if (top && right) edge(p1 - 59, p1 - 60, p1 - 57, p1 - 58);
      if (bottom && leftAdj) edge(p0 - 128 + 58, p0 - 128 + 59, p0 - 128 + 56, p0 - 128 + 57);
      if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
      if (!top) {
        if (leftAdj) {
          P p = p0 + 32 + 10 - 128;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
        }
        if (right) {
          P p = p0 - 32 + 14;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
        }
        for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) corner(p0 + j + 32, p0 + j + 48, 0);
      }
      if (!bottom) {
        if (leftAdj) {
          P p = p1 + 10 - 128;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
          p += 16;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
        }
        if (right) {
          P p = p1 - 64 + 14;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
          p += 16;
          edge(p + 0, p - 2, p + 6, p + 8);
          edge(p + 1, p - 1, p + 7, p + 9);
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
        if (leftAdj) {
          edge(p0 - 128 + 58, p0 - 128 + 56, p1 - 128 + 0, p1 - 128 + 2);
          edge(p0 - 128 + 59, p0 - 128 + 57, p1 - 128 + 1, p1 - 128 + 3);
        }
        if (right) {
          edge(p0 - 60 + 58, p0 - 60 + 56, p1 - 60 + 0, p1 - 60 + 2);
          edge(p0 - 60 + 59, p0 - 60 + 57, p1 - 60 + 1, p1 - 60 + 3);
        }
        for (int j = left ? 0 : -128; j < (right ? -64 : 0); j += 64) corner(p0 + j + 48, p1 + j, 0);
      }
    }
  }
}

}  // namespace rvtjxr
