// The overlap post filters: lifting steps on 4-element lines across block
// edges (image edges), and on 4x4 windows centred on block corners, each
// the inverse of the encoder's pre filter.  Where the windows lie and the
// order a macroblock-row decoder meets them (which fixes the results where
// windows of the two levels meet) is the walk of jxr_walk.h.
#include "jxr_filters.h"

#include <cstdlib>
#include <cstring>

#include "jxr_walk.h"
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
  ScalePair(&a, &d, true);
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

// A 4x4 window whose four 2x2 quads start at q0 (upper left quad's last
// element is the window centre's neighbour), q2, q1, q3.  jxrlib's decoder
// then pulls a small DC offset out of windows where the HP step is coarse
// (or HP is absent); matching its output needs the same.
//
// The element-wise steps run on the four elements of each quad at once
// (vector types of the compiler, so any target gets them): the same
// operations, in the same order, lane by lane.
typedef int32_t V4 __attribute__((vector_size(16)));
typedef uint32_t U4 __attribute__((vector_size(16)));

V4 Load4(const int32_t* p) {
  V4 v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}
void Store4(int32_t* p, V4 v) { std::memcpy(p, &v, sizeof(v)); }
V4 Times3(V4 v) { return (v << 1) + v; }

void Window(P q0, P q1, P q2, P q3, int32_t hpStep, bool hpAbsent, bool fine) {
  V4 a = Load4(q0), b = Load4(q1), c = Load4(q2), d = Load4(q3);
  {  // Butterfly(q0, q2, q1, q3)
    a += d;
    c -= b;
    const V4 t = (a - c) >> 1;
    const V4 nb = t - d;
    d = t - b;
    a -= d;
    c += nb;
    b = nb;
  }
  int32_t e[4][4];
  Store4(e[0], a);
  Store4(e[1], b);
  Store4(e[2], c);
  Store4(e[3], d);
  RotateOddOdd(&e[3][0], &e[3][1], &e[3][2], &e[3][3]);
  Rotate1(e[1][2], e[1][3]);
  Rotate1(e[1][0], e[1][1]);
  Rotate1(e[2][1], e[2][3]);
  Rotate1(e[2][0], e[2][2]);
  a = Load4(e[0]);
  b = Load4(e[1]);
  c = Load4(e[2]);
  d = Load4(e[3]);
  {  // ScalePair(q0, q3)
    a += d;
    d = (a >> 1) - d;
    a += Times3(d) >> 3;
    d += Times3(a) >> 4;
    if (fine) {
      d += a >> 7;
      d -= a >> 10;
    }
  }
  {  // ScaleQuad(q0, q2, q1, q3)
    V4 qb = c, qc = b;
    qb -= qc;
    a += (Times3(d) + 4) >> 3;
    d -= qb >> 1;
    qc = ((a - qb) >> 1) - qc;
    b = d;
    d = qc;
    a -= qc;
    c = qb + b;
  }
  if (!fine && (hpAbsent || hpStep > 20)) {
    const V4 sum = (a + b + c + d) >> 1;
    const U4 u = U4(sum);
    // 595 sum + 65536, wrapping as 32-bit code does
    V4 dcl = V4((u << 9) + (u << 6) + (u << 4) + (u << 1) + u + 65536u) >> 17;
    V4 apply = {-1, -1, -1, -1};
    if (!hpAbsent) {
      const V4 sign = dcl >> 31;
      apply = ((dcl ^ sign) - sign) < hpStep;
    }
    // towards zero, no further than alt, nothing when their signs differ
    const V4 alt = (a - b - c + d) >> 1;
    const V4 lower = dcl < alt, zero = {0, 0, 0, 0};
    const V4 low = (dcl & lower) | (alt & ~lower), high = (alt & lower) | (dcl & ~lower);
    const V4 both = (dcl > zero) & (alt > zero), none = (dcl < zero) & (alt < zero);
    dcl = ((low & both) | (high & none)) >> 1;
    dcl &= apply;
    a -= dcl;
    d -= dcl;
    c += dcl;
    b += dcl;
  }
  Store4(q0, a);
  Store4(q1, b);
  Store4(q2, c);
  Store4(q3, d);
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

// First-level inverse transforms, batched: the walk's blocks are gathered
// into one row of blocks (raster order) and handed to the library in one
// call, which runs them a vector group at a time; a lone 4x4 block would
// fill a group with four copies of itself.  Block transforms are
// independent of each other, so deferring them until the next filter step
// (Flush) leaves every result as it was.
class BlockBatch {
 public:
  void Add(P p) {
    pending_[n_++] = p;
    if (n_ == kMax) Flush();
  }
  void Flush() {
    if (n_ == 0) return;
    const int w = 4 * n_;
    for (int i = 0; i < n_; ++i) {
      const P p = pending_[i];
      for (int r = 0; r < 4; ++r) {
        int32_t* row = buf_ + r * w + 4 * i;
        for (int k = 0; k < 4; ++k) row[k] = p[kInBlock[r][k]];
      }
    }
    rvtiPCTInv_JPEGXR_32s_C1IR(buf_, int32_t(sizeof(int32_t)) * w, {w, 4});
    for (int i = 0; i < n_; ++i) {
      const P p = pending_[i];
      for (int r = 0; r < 4; ++r) {
        const int32_t* row = buf_ + r * w + 4 * i;
        for (int k = 0; k < 4; ++k) p[kInBlock[r][k]] = row[k];
      }
    }
    n_ = 0;
  }

 private:
  static constexpr int kMax = 32;
  P pending_[kMax];
  int n_ = 0;
  int32_t buf_[16 * kMax];
};

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

// Runs the walk's steps as they come.  step: the HP step of the
// macroblock a row decoder would have decoded last at the corner.
struct PostFilter {
  bool fine;
  bool hpAbsent;
  int32_t step;
  BlockBatch blocks;
  void Edge(P a, P b, P c, P d) {
    blocks.Flush();
    Edge4(a, b, c, d, fine);
  }
  void Window(P q0, P q1, P q2, P q3) {
    blocks.Flush();
    rvtjxr::Window(q0, q1, q2, q3, step, hpAbsent, fine);
  }
  void CornerDC(P p0, P p1) {
    blocks.Flush();
    rvtjxr::CornerDC(p0, p1, fine);
  }
  void Block(P p) { blocks.Add(p); }
  void Post2(P a, P b) {
    blocks.Flush();
    rvtjxr::Post2(a, b, fine);
  }
  void Post2x2(P a, P b, P c, P d) {
    blocks.Flush();
    rvtjxr::Post2x2(a, b, c, d, fine);
  }
  void SubDC(P a, P b) {
    blocks.Flush();
    *a -= *b;
  }
  void AddDC(P a, P b) {
    blocks.Flush();
    *a += *b;
  }
  void DropDC(P p) {
    blocks.Flush();
    *p = 0;
  }
};

int32_t StepAt(int x, int y, int mbw, int mbh, const std::vector<int32_t>& hpStep, bool hpAbsent) {
  if (hpAbsent) return 255;
  const bool right = x == mbw, bottom = y == mbh;
  const int ly = bottom ? mbh - 1 : y, lx = (bottom || right) ? mbw - 1 : x;
  return hpStep[size_t(ly) * mbw + lx];
}

}  // namespace

void InverseTransformRow(int32_t* above, int32_t* here, int mbw, int mbh, int overlap, bool fine,
                         const std::vector<int32_t>& hpStep, bool hpAbsent, int y) {
  PostFilter f{fine, hpAbsent, 0, {}};
  for (int x = 0; x <= mbw; ++x) {
    f.step = StepAt(x, y, mbw, mbh, hpStep, hpAbsent);
    WalkCornerRows(f, above, here, mbw, mbh, overlap, fine, x, y);
  }
  f.blocks.Flush();
}

void InverseTransform(int32_t* channel, int mbw, int mbh, int overlap, bool fine,
                      const std::vector<int32_t>& hpStep, bool hpAbsent) {
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
  for (int y = 0; y <= mbh; ++y) {
    InverseTransformRow(channel + (y - 1) * rowLen, channel + y * rowLen, mbw, mbh, overlap, fine, hpStep, hpAbsent,
                        y);
  }
}

void InverseTransformChromaRow(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                               const std::vector<int32_t>& hpStep, bool hpAbsent, int y) {
  PostFilter f{fine, hpAbsent, 0, {}};
  for (int x = 0; x <= mbw; ++x) {
    f.step = StepAt(x, y, mbw, mbh, hpStep, hpAbsent);
    WalkChromaCorner(f, channel, mbw, mbh, is420, overlap, fine, x, y);
  }
  f.blocks.Flush();
}

void InverseTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                            const std::vector<int32_t>& hpStep, bool hpAbsent) {
  for (int y = 0; y <= mbh; ++y) InverseTransformChromaRow(channel, mbw, mbh, is420, overlap, fine, hpStep, hpAbsent, y);
}

}  // namespace rvtjxr
