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

#if defined(__x86_64__) && defined(__GNUC__)
#define RVTJXR_FILTER_CLONED __attribute__((target_clones("avx2", "default")))
#else
#define RVTJXR_FILTER_CLONED
#endif
// The walks built twice too, their steps inlined: the block batches'
// quad shuffles take one instruction each with AVX2.  (clang takes no
// flatten on a cloned function.)
#if defined(__x86_64__) && defined(__clang__)
#define RVTJXR_WALK_CLONED __attribute__((target_clones("avx2", "default")))
#elif defined(__x86_64__) && defined(__GNUC__)
#define RVTJXR_WALK_CLONED __attribute__((target_clones("avx2", "default"), flatten))
#else
#define RVTJXR_WALK_CLONED
#endif

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

typedef int32_t V4 __attribute__((vector_size(16)));

inline V4 Load4(const int32_t* p) {
  V4 v;
  std::memcpy(&v, p, sizeof(v));
  return v;
}
inline void Store4(int32_t* p, V4 v) { std::memcpy(p, &v, sizeof(v)); }

typedef int32_t V8 __attribute__((vector_size(32)));
typedef uint32_t U8 __attribute__((vector_size(32)));

// One block between the decoder's layout and raster order (element 4 r + c
// at r, c), one shuffle a half each way.
inline void LayoutBlockToRaster(const int32_t* from, int32_t* to) {
  V8 a, c;
  std::memcpy(&a, from, sizeof(a));
  std::memcpy(&c, from + 8, sizeof(c));
  a = __builtin_shufflevector(a, a, 0, 1, 5, 4, 2, 3, 7, 6);
  c = __builtin_shufflevector(c, c, 2, 3, 7, 6, 0, 1, 5, 4);
  std::memcpy(to, &a, sizeof(a));
  std::memcpy(to + 8, &c, sizeof(c));
}
inline void RasterBlockToLayout(const int32_t* from, int32_t* to) {
  V8 a, c;
  std::memcpy(&a, from, sizeof(a));
  std::memcpy(&c, from + 8, sizeof(c));
  a = __builtin_shufflevector(a, a, 0, 1, 4, 5, 3, 2, 7, 6);
  c = __builtin_shufflevector(c, c, 4, 5, 0, 1, 7, 6, 3, 2);
  std::memcpy(to, &a, sizeof(a));
  std::memcpy(to + 8, &c, sizeof(c));
}

// The photo core transform's inverse on one block, element (r, c) at
// d[4 r + c]: the same lifting steps, in the same order and with the same
// 32-bit wrapping (unsigned arithmetic), as rvtiPCTInv_JPEGXR_32s_C1IR, so
// its results are the library's (the tests hold it to that).  The decoder's
// second level has one such block a macroblock, too few to fill a vector.
inline int32_t Wrap(uint32_t v) { return int32_t(v); }
void HadInvStep(int32_t& A, int32_t& B, int32_t& C, int32_t& D, bool round) {
  const uint32_t t = uint32_t(C);
  const uint32_t a = uint32_t(A) + uint32_t(D), b = uint32_t(B) - t;
  const uint32_t dn = uint32_t((Wrap(a - b + (round ? 1u : 0u)) >> 1)) - t;
  const uint32_t c = dn + t - uint32_t(D);
  B = Wrap(b + c);
  A = Wrap(a - dn);
  C = Wrap(c);
  D = Wrap(dn);
}
inline uint32_t Lift(uint32_t x, uint32_t add, int shift) { return uint32_t(Wrap(3u * x + add) >> shift); }
void RotInvStep(int32_t& X, int32_t& Y, int32_t& Z, int32_t& W) {
  uint32_t x = uint32_t(X), y = uint32_t(Y), z = uint32_t(Z), w = uint32_t(W);
  y += w;
  x -= z;
  w -= uint32_t(Wrap(y) >> 1);
  z += uint32_t(Wrap(x + 1) >> 1);
  x -= Lift(y, 4, 3);
  y += Lift(x, 4, 3);
  z -= Lift(w, 4, 3);
  w += Lift(z, 4, 3);
  z -= uint32_t(Wrap(y + 1) >> 1);
  w = uint32_t(Wrap(x + 1) >> 1) - w;
  y += z;
  x -= w;
  X = Wrap(x), Y = Wrap(y), Z = Wrap(z), W = Wrap(w);
}
void OddOddInvStep(int32_t& P0, int32_t& Q, int32_t& R, int32_t& S) {
  uint32_t p = uint32_t(P0), q = uint32_t(Q), r = uint32_t(R), s = uint32_t(S);
  s += p;
  r -= q;
  const uint32_t t1 = uint32_t(Wrap(s) >> 1), t2 = uint32_t(Wrap(r) >> 1);
  p -= t1;
  q += t2;
  p -= Lift(q, 3, 3);
  q += Lift(p, 3, 2);
  p -= Lift(q, 4, 3);
  q -= t2;
  p += t1;
  r += q;
  s -= p;
  P0 = Wrap(p), Q = Wrap(0u - q), R = Wrap(0u - r), S = Wrap(s);
}

// First-level inverse transforms, batched: the walk's blocks are gathered
// into one run of blocks (raster order inside each, one shuffle a half, as
// RasterToLayout) and handed to the library in one call, which runs them a
// vector of blocks at a time.  Block transforms are independent of each
// other, so deferring them until the next filter step (Flush) leaves every
// result as it was.
class BlockBatch {
 public:
  void Add(P p) {
    pending_[n_++] = p;
    if (n_ == kMax) Flush();
  }
  void Flush() {
    if (n_ == 0) return;
    for (int i = 0; i < n_; ++i) LayoutBlockToRaster(pending_[i], buf_ + 16 * i);
    rvtiPCTInvBlocks_JPEGXR_32s_C1I(buf_, n_);
    for (int i = 0; i < n_; ++i) RasterBlockToLayout(buf_ + 16 * i, pending_[i]);
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

// A 4x4 window is given by its four 2x2 quads q0 (the upper left one,
// its last element the window centre's neighbour), q2, q1, q3.  jxrlib's
// decoder then pulls a small DC offset out of windows where the HP step is
// coarse (or HP is absent); matching its output needs the same.
//
// The windows of a corner row are batched.  A row's windows never
// overlap each other, nor the DC windows and block transforms of the
// corners after theirs, so the walk's windows can wait until a batch is
// full or a step that might share samples with them comes; then they run
// eight at a time, one window a lane (16 vectors: element k of quad q in
// vector 4 q + k), with the blocks they read transformed first.

// quads and steps run on to a multiple of eight windows (the idle lanes
// of the last group: any window, only read).
RVTJXR_FILTER_CLONED void Windows8(P const* quads, const int32_t* steps, int n, bool hpAbsent, bool fine) {
  alignas(32) int32_t st[8];
  for (int g = 0; g < n; g += 8) {
    const int m = n - g < 8 ? n - g : 8;
    V8 e[16];
    // lanes 0..3 and 4..7 hold windows w and w + 4
    std::memcpy(st, steps + g, sizeof(st));
    for (int q = 0; q < 4; ++q) {
      V8 r[4];
      for (int w = 0; w < 4; ++w) {
        r[w] = __builtin_shufflevector(Load4(quads[4 * (g + w) + q]), Load4(quads[4 * (g + w + 4) + q]), 0, 1, 2, 3, 4,
                                       5, 6, 7);
      }
      TransposeHalves(r, e + 4 * q);
    }
    V8* a = e;
    V8* b = e + 4;
    V8* c = e + 8;
    V8* d = e + 12;
    for (int k = 0; k < 4; ++k) {  // Butterfly(q0, q2, q1, q3)
      a[k] += d[k];
      c[k] -= b[k];
      const V8 t = (a[k] - c[k]) >> 1;
      const V8 nb = t - d[k];
      d[k] = t - b[k];
      a[k] -= d[k];
      c[k] += nb;
      b[k] = nb;
    }
    {  // RotateOddOdd on q3
      V8 ra = d[0], rb = d[1], rc = d[2], rd = d[3];
      rd += ra;
      rc -= rb;
      const V8 t1 = rd >> 1, t2 = rc >> 1;
      ra -= t1;
      rb += t2;
      ra -= (((rb << 1) + rb) + 6) >> 3;
      rb += (((ra << 1) + ra) + 2) >> 2;
      ra -= (((rb << 1) + rb) + 4) >> 3;
      rb -= t2;
      ra += t1;
      rc += rb;
      rd -= ra;
      d[0] = ra;
      d[1] = rb;
      d[2] = rc;
      d[3] = rd;
    }
    auto rotate = [](V8& x, V8& y) {
      x -= (y + 1) >> 1;
      y += (x + 1) >> 1;
    };
    rotate(b[2], b[3]);
    rotate(b[0], b[1]);
    rotate(c[1], c[3]);
    rotate(c[0], c[2]);
    for (int k = 0; k < 4; ++k) {
      V8 va = a[k], vb = b[k], vc = c[k], vd = d[k];
      // ScalePair(q0, q3)
      va += vd;
      vd = (va >> 1) - vd;
      va += ((vd << 1) + vd) >> 3;
      vd += ((va << 1) + va) >> 4;
      if (fine) {
        vd += va >> 7;
        vd -= va >> 10;
      }
      // ScaleQuad(q0, q2, q1, q3)
      V8 qb = vc, qc = vb;
      qb -= qc;
      va += (((vd << 1) + vd) + 4) >> 3;
      vd -= qb >> 1;
      qc = ((va - qb) >> 1) - qc;
      vb = vd;
      vd = qc;
      va -= qc;
      vc = qb + vb;
      a[k] = va;
      b[k] = vb;
      c[k] = vc;
      d[k] = vd;
    }
    if (!fine) {
      V8 step;
      std::memcpy(&step, st, sizeof(step));
      const V8 twenty = V8{} + 20, zero = V8{};
      const V8 active = hpAbsent ? V8{} - 1 : step > twenty;
      for (int k = 0; k < 4; ++k) {
        const V8 sum = (a[k] + b[k] + c[k] + d[k]) >> 1;
        const U8 u = U8(sum);
        // 595 sum + 65536, wrapping as 32-bit code does
        V8 dcl = V8((u << 9) + (u << 6) + (u << 4) + (u << 1) + u + 65536u) >> 17;
        V8 apply = active;
        if (!hpAbsent) {
          const V8 sign = dcl >> 31;
          apply &= ((dcl ^ sign) - sign) < step;
        }
        const V8 alt = (a[k] - b[k] - c[k] + d[k]) >> 1;
        const V8 lower = dcl < alt;
        const V8 low = (dcl & lower) | (alt & ~lower), high = (alt & lower) | (dcl & ~lower);
        const V8 both = (dcl > zero) & (alt > zero), none = (dcl < zero) & (alt < zero);
        dcl = ((low & both) | (high & none)) >> 1;
        dcl &= apply;
        a[k] -= dcl;
        d[k] -= dcl;
        c[k] += dcl;
        b[k] += dcl;
      }
    }
    for (int q = 0; q < 4; ++q) {
      V8 r[4];
      TransposeHalves(e + 4 * q, r);
      if (m == 8) {
        for (int w = 0; w < 4; ++w) {
          Store4(quads[4 * (g + w) + q], __builtin_shufflevector(r[w], r[w], 0, 1, 2, 3));
          Store4(quads[4 * (g + w + 4) + q], __builtin_shufflevector(r[w], r[w], 4, 5, 6, 7));
        }
        continue;
      }
      for (int w = 0; w < 4; ++w) {
        if (w < m) Store4(quads[4 * (g + w) + q], __builtin_shufflevector(r[w], r[w], 0, 1, 2, 3));
        if (w + 4 < m) Store4(quads[4 * (g + w + 4) + q], __builtin_shufflevector(r[w], r[w], 4, 5, 6, 7));
      }
    }
  }
}

// Runs the walk's steps: block transforms and windows batched, the rest
// as they come (after what is pending).  step: the HP step of the
// macroblock a row decoder would have decoded last at the corner.
struct PostFilter {
  bool fine;
  bool hpAbsent;
  int32_t step = 0;
  BlockBatch blocks;
  static constexpr int kMaxWindows = 64;
  int windows = 0;
  P quads[4 * kMaxWindows];
  int32_t steps[kMaxWindows];

  bool transformed = false;  // the blocks are the decoder's, done already

  PostFilter(bool f, bool absent) : fine(f), hpAbsent(absent) {}
  void Flush() {
    blocks.Flush();
    if (windows == 0) return;
    for (int i = windows; i & 7; ++i) {  // idle lanes: copies of the first window
      for (int q = 0; q < 4; ++q) quads[4 * i + q] = quads[q];
      steps[i] = steps[0];
    }
    Windows8(quads, steps, windows, hpAbsent, fine);
    windows = 0;
  }
  void Edge(P a, P b, P c, P d) {
    Flush();
    Edge4(a, b, c, d, fine);
  }
  void Window(P q0, P q1, P q2, P q3) {
    P* q = quads + 4 * windows;
    q[0] = q0;
    q[1] = q1;
    q[2] = q2;
    q[3] = q3;
    steps[windows] = step;
    if (++windows == kMaxWindows) Flush();
  }
  // Between macroblocks x - 1 and x, on DCs of blocks not transformed yet
  // and no pending window's: nothing to wait for.
  void CornerDC(P p0, P p1) { rvtjxr::CornerDC(p0, p1, fine); }
  void Block(P p) {
    if (!transformed) blocks.Add(p);
  }
  void Post2(P a, P b) {
    Flush();
    rvtjxr::Post2(a, b, fine);
  }
  void Post2x2(P a, P b, P c, P d) {
    Flush();
    rvtjxr::Post2x2(a, b, c, d, fine);
  }
  void SubDC(P a, P b) {
    Flush();
    *a -= *b;
  }
  void AddDC(P a, P b) {
    Flush();
    *a += *b;
  }
  void DropDC(P p) {
    Flush();
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

void InverseRasterBlocks(int32_t* p, int n) {
  rvtiPCTInvBlocks_JPEGXR_32s_C1I(p, n);
  RasterToLayout(p, n, p);
}

RVTJXR_FILTER_CLONED void RasterToLayout(const int32_t* from, int n, int32_t* to) {
  static_assert(kInBlock[0][2] == 5 && kInBlock[1][0] == 2 && kInBlock[2][0] == 10 && kInBlock[3][1] == 9);
  for (int i = 0; i < n; ++i) RasterBlockToLayout(from + 16 * i, to + 16 * i);
}

void InverseBlock(int32_t* d) {
  OddOddInvStep(d[10], d[11], d[14], d[15]);
  RotInvStep(d[8], d[12], d[9], d[13]);
  RotInvStep(d[2], d[3], d[6], d[7]);
  HadInvStep(d[0], d[1], d[4], d[5], true);
  HadInvStep(d[5], d[6], d[9], d[10], false);
  HadInvStep(d[4], d[7], d[8], d[11], false);
  HadInvStep(d[1], d[2], d[13], d[14], false);
  HadInvStep(d[0], d[3], d[12], d[15], false);
}

RVTJXR_WALK_CLONED void InverseTransformRowSpan(int32_t* above, int32_t* here, int mbw, int mbh, int overlap, bool fine,
                             const std::vector<int32_t>& hpStep, bool hpAbsent, int y, int x0, int x1,
                             bool transformed) {
  PostFilter f(fine, hpAbsent);
  f.transformed = transformed;
  for (int x = x0; x < x1; ++x) {
    f.step = StepAt(x, y, mbw, mbh, hpStep, hpAbsent);
    WalkCornerRows(f, above, here, mbw, mbh, overlap, fine, x, y);
  }
  f.Flush();
}

void InverseTransformRow(int32_t* above, int32_t* here, int mbw, int mbh, int overlap, bool fine,
                         const std::vector<int32_t>& hpStep, bool hpAbsent, int y) {
  InverseTransformRowSpan(above, here, mbw, mbh, overlap, fine, hpStep, hpAbsent, y, 0, mbw + 1);
}

void InverseTransform(int32_t* channel, int mbw, int mbh, int overlap, bool fine,
                      const std::vector<int32_t>& hpStep, bool hpAbsent) {
  const ptrdiff_t rowLen = ptrdiff_t(mbw) * 256;
  for (int y = 0; y <= mbh; ++y) {
    InverseTransformRow(channel + (y - 1) * rowLen, channel + y * rowLen, mbw, mbh, overlap, fine, hpStep, hpAbsent,
                        y);
  }
}

RVTJXR_WALK_CLONED void InverseTransformChromaRow(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                               const std::vector<int32_t>& hpStep, bool hpAbsent, int y, bool transformed) {
  PostFilter f(fine, hpAbsent);
  f.transformed = transformed;
  for (int x = 0; x <= mbw; ++x) {
    f.step = StepAt(x, y, mbw, mbh, hpStep, hpAbsent);
    WalkChromaCorner(f, channel, mbw, mbh, is420, overlap, fine, x, y);
  }
  f.Flush();
}

void InverseTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap, bool fine,
                            const std::vector<int32_t>& hpStep, bool hpAbsent) {
  for (int y = 0; y <= mbh; ++y) InverseTransformChromaRow(channel, mbw, mbh, is420, overlap, fine, hpStep, hpAbsent, y);
}

}  // namespace rvtjxr
