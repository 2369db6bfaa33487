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

// One step of the decoder's pass, to be undone.
struct Step {
  enum Kind : uint8_t { kEdge, kWindow, kCornerDC, kBlock } kind;
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

}  // namespace

void ForwardTransform(int32_t* channel, int mbw, int mbh, int overlap) {
  Step steps[64];
  for (int y = mbh; y >= 0; --y) {
    for (int x = mbw; x >= 0; --x) {
      for (int i = ListSteps(channel, mbw, mbh, overlap, x, y, steps) - 1; i >= 0; --i) {
        const Step& s = steps[i];
        switch (s.kind) {
          case Step::kEdge: Edge4Inv(s.p[0], s.p[1], s.p[2], s.p[3]); break;
          case Step::kWindow: WindowInv(s.p[0], s.p[1], s.p[2], s.p[3]); break;
          case Step::kCornerDC: CornerDCInv(s.p[0], s.p[1]); break;
          case Step::kBlock: ForwardBlock(s.p[0]); break;
        }
      }
    }
  }
}

}  // namespace rvtjxr
