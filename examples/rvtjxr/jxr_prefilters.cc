// The overlap pre filters.  Each lifting step of the post filters
// (jxr_filters.cc) has its inverse here; a pass lists the steps the
// decoder takes at one macroblock corner and runs their inverses
// backwards, visiting the corners in the opposite order, so that where
// windows of the two levels meet the values are exactly those the decoder
// will see.
#include "jxr_prefilters.h"

#include <cstddef>

#include "jxr_filters.h"
#include "rvtjp.h"

namespace rvtjxr {
namespace {

using P = int32_t*;

void Rotate1Inv(int32_t& a, int32_t& b) {
  b -= (a + 1) >> 1;
  a += (b + 1) >> 1;
}

void ButterflyInv(P pa, P pb, P pc, P pd) {
  int32_t a = *pa + *pd, b = *pb - *pc;
  const int32_t t = (a - b) >> 1;
  const int32_t d = t - *pc, c = t - *pd;
  *pa = a - d;
  *pb = b + c;
  *pc = c;
  *pd = d;
}

void RotateOddOddInv(P pa, P pb, P pc, P pd) {
  int32_t a = *pa, b = *pb;
  const int32_t c1 = *pc - b, d1 = *pd + a;
  const int32_t t1 = d1 >> 1, t2 = c1 >> 1;
  a -= t1;
  b += t2;
  a += (b * 3 + 4) >> 3;
  b -= (a * 3 + 2) >> 2;
  a += (b * 3 + 6) >> 3;
  a += t1;
  b -= t2;
  *pa = a;
  *pb = b;
  *pc = c1 + b;
  *pd = d1 - a;
}

void ScalePairInv(P pa, P pd) {
  int32_t a = *pa, d = *pd;
  d += a >> 10;
  d -= a >> 7;
  d -= (a * 3) >> 4;
  a -= (d * 3) >> 3;
  d = (a >> 1) - d;
  a -= d;
  *pa = a;
  *pd = d;
}

void ScaleQuadInv(P pa, P pb, P pc, P pd) {
  const int32_t d2 = *pc, c2 = *pd;
  const int32_t a2 = *pa + c2, b1 = *pb - d2;
  const int32_t c = ((a2 - b1) >> 1) - c2;
  const int32_t d = d2 + (b1 >> 1);
  *pa = a2 - ((d * 3 + 4) >> 3);
  *pb = b1 + c;
  *pc = c;
  *pd = d;
}

void ScaleEdgeInv(int32_t& a, int32_t& d) {
  d = -d;
  a -= d;
  d += a >> 1;
  a -= (d * 3 + 4) >> 3;
  d += a >> 10;
  d -= a >> 7;
  d -= (a * 3) >> 4;
  a -= (d * 3) >> 3;
  d = (a >> 1) - d;
  a -= d;
}

void Edge4Inv(P pa, P pb, P pc, P pd) {
  int32_t d = *pd, c = *pc;
  int32_t a = *pa + d, b = *pb + c;
  c -= (b + 1) >> 1;
  d -= (a + 1) >> 1;
  Rotate1Inv(c, d);
  ScaleEdgeInv(b, c);
  ScaleEdgeInv(a, d);
  c += (b + 1) >> 1;
  d += (a + 1) >> 1;
  *pa = a - d;
  *pb = b - c;
  *pc = c;
  *pd = d;
}

void WindowInv(P q0, P q1, P q2, P q3) {
  for (int e = 0; e < 4; ++e) ScaleQuadInv(q0 + e, q2 + e, q1 + e, q3 + e);
  for (int e = 0; e < 4; ++e) ScalePairInv(q0 + e, q3 + e);
  Rotate1Inv(q2[0], q2[2]);
  Rotate1Inv(q2[1], q2[3]);
  Rotate1Inv(q1[0], q1[1]);
  Rotate1Inv(q1[2], q1[3]);
  RotateOddOddInv(q3 + 0, q3 + 1, q3 + 2, q3 + 3);
  for (int e = 0; e < 4; ++e) ButterflyInv(q0 + e, q2 + e, q1 + e, q3 + e);
}

void CornerDCInv(P p0, P p1) {
  ScaleQuadInv(p0 - 16, p1 - 64, p0 + 48, p1 + 0);
  ScaleQuadInv(p0 - 80, p1 - 128, p0 + 112, p1 + 64);
  ScaleQuadInv(p0 - 32, p1 - 48, p0 + 32, p1 + 16);
  ScaleQuadInv(p0 - 96, p1 - 112, p0 + 96, p1 + 80);
  ScalePairInv(p0 - 16, p1 + 0);
  ScalePairInv(p0 - 80, p1 + 64);
  ScalePairInv(p0 - 32, p1 + 16);
  ScalePairInv(p0 - 96, p1 + 80);
  Rotate1Inv(p1[-48], p1[-112]);
  Rotate1Inv(p1[-64], p1[-128]);
  Rotate1Inv(p0[112], p0[96]);
  Rotate1Inv(p0[48], p0[32]);
  RotateOddOddInv(p1 + 0, p1 + 64, p1 + 16, p1 + 80);
  ButterflyInv(p0 - 16, p0 + 48, p1 - 64, p1 + 0);
  ButterflyInv(p0 - 80, p0 + 112, p1 - 128, p1 + 64);
  ButterflyInv(p0 - 32, p0 + 32, p1 - 48, p1 + 16);
  ButterflyInv(p0 - 96, p0 + 96, p1 - 112, p1 + 80);
}

void ForwardBlock(P p) {
  int32_t c[16];
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < 4; ++k) c[4 * r + k] = p[kInBlock[r][k]];
  }
  rvtiPCTFwd_JPEGXR_32s_C1IR(c, 16, {4, 4});
  for (int r = 0; r < 4; ++r) {
    for (int k = 0; k < 4; ++k) p[kInBlock[r][k]] = c[4 * r + k];
  }
}

// The inverse of the newer chroma DC filters' rotation.
void Rotate2Inv(int32_t& a, int32_t& b) {
  b -= (a + 2) >> 2;
  a -= b >> 13;
  a -= b >> 9;
  a -= b >> 5;
  a -= (b + 1) >> 1;
  b -= (a + 2) >> 2;
}
void Post2Inv(P pa, P pb) { Rotate2Inv(*pa, *pb); }
// The 2x2 chroma DC window's outer butterflies are their own inverse
// around the rotation.
void Post2x2Inv(P pa, P pb, P pc, P pd) {
  int32_t a = *pa, b = *pb, c = *pc, d = *pd;
  a += d;
  b += c;
  d -= (a + 1) >> 1;
  c -= (b + 1) >> 1;
  Rotate2Inv(a, b);
  d += (a + 1) >> 1;
  c += (b + 1) >> 1;
  *pa = a - d;
  *pb = b - c;
  *pc = c;
  *pd = d;
}

// One step of the decoder's pass, to be undone.
struct Step {
  enum Kind : uint8_t { kEdge, kWindow, kCornerDC, kBlock, kPost2, kPost2x2, kSub, kAdd } kind;
  P p[4];
};

// The steps the decoder takes at corner (x, y), in its order (see
// InverseTransform: same windows, same pointers).
int ListSteps(int32_t* channel, int mbw, int mbh, int overlap, int x, int y, Step* out) {
  int n = 0;
  auto edge = [&](P a, P b, P c, P d) { out[n++] = {Step::kEdge, {a, b, c, d}}; };
  auto corner = [&](P p0, P p1) {
    P p2 = p0 + 72, p3 = p1 + 64;
    out[n++] = {Step::kWindow, {p0 + 12, p1 + 4, p2, p3}};
  };
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
  const bool left = x == 0, right = x == mbw, top = y == 0, bottom = y == mbh;
  P p0 = channel + (y - 1) * rowLen + ptrdiff_t(x) * 256;
  P p1 = channel + y * rowLen + ptrdiff_t(x) * 256;
  if (overlap == 2) {
    if (top && left) edge(p1 + 0, p1 + 64, p1 + 16, p1 + 80);
    if (top && right) edge(p1 - 128, p1 - 64, p1 - 112, p1 - 48);
    if (bottom && left) edge(p0 + 32, p0 + 96, p0 + 48, p0 + 112);
    if (bottom && right) edge(p0 - 96, p0 - 32, p0 - 80, p0 - 16);
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
        out[n++] = {Step::kCornerDC, {p0, p1, nullptr, nullptr}};
      }
    }
  }
  if (!top) {
    for (int j = left ? 32 : -96; j < (right ? 32 : 160); j += 64) {
      out[n++] = {Step::kBlock, {p0 + j}};
      out[n++] = {Step::kBlock, {p0 + j + 16}};
    }
  }
  if (!bottom) {
    for (int j = left ? 0 : -128; j < (right ? 0 : 128); j += 64) {
      out[n++] = {Step::kBlock, {p1 + j}};
      out[n++] = {Step::kBlock, {p1 + j + 16}};
    }
  }
  if (overlap == 0) return n;
  if (top && left) edge(p1 + 0, p1 + 1, p1 + 2, p1 + 3);
  if (top && right) edge(p1 - 59, p1 - 60, p1 - 57, p1 - 58);
  if (bottom && left) edge(p0 + 58, p0 + 59, p0 + 56, p0 + 57);
  if (bottom && right) edge(p0 - 1, p0 - 2, p0 - 3, p0 - 4);
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
  return n;
}

// The chroma steps at corner (x, y), in the order InverseTransformChroma
// takes them (newer filters).  Its image-corner corrections subtract a
// neighbour's DC before the DC filters and add it back after; the ones at
// the right edge read the neighbour at the macroblock before, which the
// list expresses as a subtraction and addition around that macroblock's
// own DC filters (nothing else touches either value in between).
int ListChromaSteps(int32_t* channel, int mbw, int mbh, bool is420, int overlap, int x, int y, Step* out) {
  int n = 0;
  auto edge = [&](P a, P b, P c, P d) { out[n++] = {Step::kEdge, {a, b, c, d}}; };
  auto corner = [&](P p0, P p1, int offset) {
    out[n++] = {Step::kWindow, {p0 + 12, p1 + 4, p0 + 72 - offset, p1 + 64 - offset}};
  };
  auto post2 = [&](P a, P b) { out[n++] = {Step::kPost2, {a, b, nullptr, nullptr}}; };
  auto post2x2 = [&](P a, P b, P c, P d) { out[n++] = {Step::kPost2x2, {a, b, c, d}}; };
  auto sub = [&](P a, P b) { out[n++] = {Step::kSub, {a, b, nullptr, nullptr}}; };
  auto add = [&](P a, P b) { out[n++] = {Step::kAdd, {a, b, nullptr, nullptr}}; };
  auto block = [&](P a) { out[n++] = {Step::kBlock, {a}}; };
  const int mbSize = is420 ? 64 : 128;
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * mbSize;
  const bool left = x == 0, right = x == mbw, top = y == 0, bottom = y == mbh;
  const bool leftOrRight = left || right, topOrBottom = top || bottom;
  const bool leftAdj = x == 1, rightAdj = x == mbw - 1;
  P p0 = channel + (y - 1) * rowLen + ptrdiff_t(x) * mbSize;
  P p1 = channel + y * rowLen + ptrdiff_t(x) * mbSize;
  if (is420) {
    if (overlap == 2) {
      if (leftAdj && top) sub(p1 - 64, p1 - 64 + 32);
      if (rightAdj && top) sub(p1 + 32, p1);
      if (leftAdj && bottom) sub(p0 - 64 + 16, p0 - 64 + 48);
      if (rightAdj && bottom) sub(p0 + 48, p0 + 16);
      if (leftOrRight && !topOrBottom) {
        const int j = left ? 0 : -32;
        post2(p0 + j + 16, p1 + j);
      }
      if (!leftOrRight) {
        if (top) post2(p1 - 32, p1);
        else if (bottom) post2(p0 + 16 - 32, p0 + 16);
        else post2x2(p0 - 16, p0 + 16, p1 - 32, p1);
      }
      if (leftAdj && top) add(p1 - 64, p1 - 64 + 32);
      if (rightAdj && top) add(p1 + 32, p1);
      if (leftAdj && bottom) add(p0 - 64 + 16, p0 - 64 + 48);
      if (rightAdj && bottom) add(p0 + 48, p0 + 16);
    }
    if (!top) {
      for (int j = left ? 48 : leftAdj ? -48 : -16; j < (right ? 16 : 48); j += 32) block(p0 + j);
    }
    if (!bottom) {
      for (int j = left ? 32 : leftAdj ? -64 : -32; j < (right ? 0 : 32); j += 32) block(p1 + j);
    }
    if (overlap == 0) return n;
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
    return n;
  }
  if (overlap == 2) {
    if (leftAdj && top) sub(p1 - 128, p1 - 128 + 64);
    if (rightAdj && top) sub(p1 + 64, p1);
    if (leftAdj && bottom) sub(p0 - 128 + 48, p0 - 128 + 112);
    if (rightAdj && bottom) sub(p0 + 112, p0 + 48);
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
    if (leftAdj && top) add(p1 - 128, p1 - 128 + 64);
    if (rightAdj && top) add(p1 + 64, p1);
    if (leftAdj && bottom) add(p0 - 128 + 48, p0 - 128 + 112);
    if (rightAdj && bottom) add(p0 + 112, p0 + 48);
  }
  if (!top) {
    for (int j = left ? 112 : leftAdj ? -80 : -16; j < (right ? 48 : 112); j += 64) block(p0 + j);
  }
  if (!bottom) {
    for (int j = left ? 64 : leftAdj ? -128 : -64; j < (right ? 0 : 64); j += 64) {
      block(p1 + j);
      block(p1 + j + 16);
      block(p1 + j + 32);
    }
  }
  if (overlap == 0) return n;
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
  return n;
}

void Undo(const Step& s) {
  switch (s.kind) {
    case Step::kEdge: Edge4Inv(s.p[0], s.p[1], s.p[2], s.p[3]); break;
    case Step::kWindow: WindowInv(s.p[0], s.p[1], s.p[2], s.p[3]); break;
    case Step::kCornerDC: CornerDCInv(s.p[0], s.p[1]); break;
    case Step::kBlock: ForwardBlock(s.p[0]); break;
    case Step::kPost2: Post2Inv(s.p[0], s.p[1]); break;
    case Step::kPost2x2: Post2x2Inv(s.p[0], s.p[1], s.p[2], s.p[3]); break;
    case Step::kSub: *s.p[0] += *s.p[1]; break;
    case Step::kAdd: *s.p[0] -= *s.p[1]; break;
  }
}

}  // namespace

void ForwardTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap) {
  Step steps[64];
  for (int y = mbh; y >= 0; --y) {
    for (int x = mbw; x >= 0; --x) {
      for (int i = ListChromaSteps(channel, mbw, mbh, is420, overlap, x, y, steps) - 1; i >= 0; --i) Undo(steps[i]);
    }
  }
}

void ForwardTransform(int32_t* channel, int mbw, int mbh, int overlap) {
  Step steps[64];
  for (int y = mbh; y >= 0; --y) {
    for (int x = mbw; x >= 0; --x) {
      for (int i = ListSteps(channel, mbw, mbh, overlap, x, y, steps) - 1; i >= 0; --i) Undo(steps[i]);
    }
  }
}

}  // namespace rvtjxr
