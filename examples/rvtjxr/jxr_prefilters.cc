// The overlap pre filters.  Each lifting step of the post filters
// (jxr_filters.cc) has its inverse here; a pass lists the steps the
// decoder takes at one macroblock corner (the shared walk, jxr_walk.h) and
// runs their inverses backwards, visiting the corners in the opposite
// order, so that where windows of the two levels meet the values are
// exactly those the decoder will see.
#include "jxr_prefilters.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "jxr_filters.h"
#include "jxr_walk.h"
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
  ScalePairInv(&a, &d);
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

// The four lanes of each stage at once (the quads never overlap): lane e
// of a, b, c, d is element e of q0, q1, q2, q3.
using V4 = int32_t __attribute__((vector_size(16)));
#if defined(__clang__)
#define RVTJXR_SHUFFLE(x, y, i0, i1, i2, i3) __builtin_shufflevector(x, y, i0, i1, i2, i3)
#else
#define RVTJXR_SHUFFLE(x, y, i0, i1, i2, i3) __builtin_shuffle(x, y, V4{i0, i1, i2, i3})
#endif

void WindowInv(P q0, P q1, P q2, P q3) {
  V4 a, b, c, d;
  std::memcpy(&a, q0, sizeof a);
  std::memcpy(&b, q1, sizeof b);
  std::memcpy(&c, q2, sizeof c);
  std::memcpy(&d, q3, sizeof d);
  {  // ScaleQuadInv(a, c, b, d) in every lane
    const V4 a2 = a + d, b1 = c - b;
    const V4 cc = ((a2 - b1) >> 1) - d;
    const V4 dd = b + (b1 >> 1);
    a = a2 - ((dd + (dd << 1) + 4) >> 3);
    c = b1 + cc;
    b = cc;
    d = dd;
  }
  {  // ScalePairInv(a, d)
    d += a >> 10;
    d -= a >> 7;
    d -= (a + (a << 1)) >> 4;
    a -= (d + (d << 1)) >> 3;
    d = (a >> 1) - d;
    a -= d;
  }
  {  // Rotate1Inv of (c0, c2), (c1, c3), (b0, b1), (b2, b3): the first of
     // each pair in x, the second in y
    V4 x = RVTJXR_SHUFFLE(c, b, 0, 1, 4, 6), y = RVTJXR_SHUFFLE(c, b, 2, 3, 5, 7);
    y -= (x + 1) >> 1;
    x += (y + 1) >> 1;
    c = RVTJXR_SHUFFLE(x, y, 0, 1, 4, 5);
    b = RVTJXR_SHUFFLE(x, y, 2, 6, 3, 7);
  }
  int32_t dl[4];
  std::memcpy(dl, &d, sizeof dl);
  RotateOddOddInv(dl + 0, dl + 1, dl + 2, dl + 3);
  std::memcpy(&d, dl, sizeof dl);
  {  // ButterflyInv(a, c, b, d)
    const V4 s = a + d, t0 = c - b;
    const V4 t = (s - t0) >> 1;
    const V4 dd = t - b, cc = t - d;
    a = s - dd;
    c = t0 + cc;
    b = cc;
    d = dd;
  }
  std::memcpy(q0, &a, sizeof a);
  std::memcpy(q1, &b, sizeof b);
  std::memcpy(q2, &c, sizeof c);
  std::memcpy(q3, &d, sizeof d);
}

#if defined(__x86_64__) && defined(__GNUC__)
#define RVTJXR_PREFILTER_CLONED __attribute__((target_clones("avx2", "default")))
#else
#define RVTJXR_PREFILTER_CLONED
#endif

using V8 = int32_t __attribute__((vector_size(32)));

// WindowInv of eight windows that share no sample (quads[4 w + q] is
// quad q of window w), one window a lane: element k of quad q in e[4 q + k].
RVTJXR_PREFILTER_CLONED void Windows8Inv(P const* quads) {
  V8 e[16];
  for (int q = 0; q < 4; ++q) {
    V8 r[4];
    for (int w = 0; w < 4; ++w) {
      V4 lo, hi;  // (joined in registers: no store of halves read back whole)
      std::memcpy(&lo, quads[4 * w + q], sizeof lo);
      std::memcpy(&hi, quads[4 * (w + 4) + q], sizeof hi);
      r[w] = __builtin_shufflevector(lo, hi, 0, 1, 2, 3, 4, 5, 6, 7);
    }
    TransposeHalves(r, e + 4 * q);
  }
  V8* a = e;
  V8* b = e + 4;
  V8* c = e + 8;
  V8* d = e + 12;
  for (int k = 0; k < 4; ++k) {
    {  // ScaleQuadInv(a, c, b, d)
      const V8 a2 = a[k] + d[k], b1 = c[k] - b[k];
      const V8 cc = ((a2 - b1) >> 1) - d[k];
      const V8 dd = b[k] + (b1 >> 1);
      a[k] = a2 - ((dd + (dd << 1) + 4) >> 3);
      c[k] = b1 + cc;
      b[k] = cc;
      d[k] = dd;
    }
    {  // ScalePairInv(a, d)
      V8 va = a[k], vd = d[k];
      vd += va >> 10;
      vd -= va >> 7;
      vd -= (va + (va << 1)) >> 4;
      va -= (vd + (vd << 1)) >> 3;
      vd = (va >> 1) - vd;
      va -= vd;
      a[k] = va;
      d[k] = vd;
    }
  }
  auto rotate = [](V8& x, V8& y) {  // Rotate1Inv
    y -= (x + 1) >> 1;
    x += (y + 1) >> 1;
  };
  rotate(c[0], c[2]);
  rotate(c[1], c[3]);
  rotate(b[0], b[1]);
  rotate(b[2], b[3]);
  {  // RotateOddOddInv(d0, d1, d2, d3)
    V8 ra = d[0], rb = d[1];
    const V8 c1 = d[2] - rb, d1 = d[3] + ra;
    const V8 t1 = d1 >> 1, t2 = c1 >> 1;
    ra -= t1;
    rb += t2;
    ra += (rb + (rb << 1) + 4) >> 3;
    rb -= (ra + (ra << 1) + 2) >> 2;
    ra += (rb + (rb << 1) + 6) >> 3;
    ra += t1;
    rb -= t2;
    d[0] = ra;
    d[1] = rb;
    d[2] = c1 + rb;
    d[3] = d1 - ra;
  }
  for (int k = 0; k < 4; ++k) {  // ButterflyInv(a, c, b, d)
    const V8 s = a[k] + d[k], t0 = c[k] - b[k];
    const V8 t = (s - t0) >> 1;
    const V8 dd = t - b[k], cc = t - d[k];
    a[k] = s - dd;
    c[k] = t0 + cc;
    b[k] = cc;
    d[k] = dd;
  }
  for (int q = 0; q < 4; ++q) {
    V8 r[4];
    TransposeHalves(e + 4 * q, r);
    for (int w = 0; w < 4; ++w) {
      const V4 lo = __builtin_shufflevector(r[w], r[w], 0, 1, 2, 3);
      const V4 hi = __builtin_shufflevector(r[w], r[w], 4, 5, 6, 7);
      std::memcpy(quads[4 * w + q], &lo, sizeof lo);
      std::memcpy(quads[4 * (w + 4) + q], &hi, sizeof hi);
    }
  }
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

// First-level forward transforms, batched: the blocks are gathered into
// one row of blocks and handed to the library in one call, which runs them
// a vector group at a time (a lone block fills a group with copies of
// itself).
class BlockBatch {
 public:
  ~BlockBatch() { Flush(); }
  void Add(P p) {
    pending_[n_++] = p;
    if (n_ == kMax) Flush();
  }
  int Size() const { return n_; }
  void Flush() {
    if (n_ == 0) return;
    const int w = 4 * n_;
    for (int i = 0; i < n_; ++i) BlockToRows(pending_[i], buf_ + 4 * i, w);
    rvtiPCTFwd_JPEGXR_32s_C1IR(buf_, int32_t(sizeof(int32_t)) * w, {w, 4});
    for (int i = 0; i < n_; ++i) RowsToBlock(buf_ + 4 * i, w, pending_[i]);
    n_ = 0;
  }

 private:
  static constexpr int kMax = 32;
  P pending_[kMax];
  int n_ = 0;
  int32_t buf_[16 * kMax];
};

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

using Step = PrefilterStep;

// Lists the steps of the walk at one corner, to be undone backwards.
struct StepList {
  Step* out;
  int n = 0;
  bool late = false;  // past the corner's block transforms
  void Edge(P a, P b, P c, P d) { out[n++] = {Step::kEdge, {a, b, c, d}, late}; }
  void Window(P q0, P q1, P q2, P q3) { out[n++] = {Step::kWindow, {q0, q1, q2, q3}, late}; }
  void CornerDC(P p0, P p1) { out[n++] = {Step::kCornerDC, {p0, p1, nullptr, nullptr}, false}; }
  void Block(P p) {
    late = true;
    out[n++] = {Step::kBlock, {p, nullptr, nullptr, nullptr}, false};
  }
  void Post2(P a, P b) { out[n++] = {Step::kPost2, {a, b, nullptr, nullptr}, false}; }
  void Post2x2(P a, P b, P c, P d) { out[n++] = {Step::kPost2x2, {a, b, c, d}, false}; }
  void SubDC(P a, P b) { out[n++] = {Step::kSub, {a, b, nullptr, nullptr}, false}; }
  void AddDC(P a, P b) { out[n++] = {Step::kAdd, {a, b, nullptr, nullptr}, false}; }
  // what the decoder cancels is lost (the encoder refuses such images)
  static void DropDC(P) {}
};

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

ForwardRows::ForwardRows(int mbw, int mbh, int overlap, int chroma)
    : mbw_(mbw),
      mbh_(mbh),
      overlap_(overlap),
      chroma_(chroma),
      rowLen_(ptrdiff_t(mbw) * (chroma == 420 ? 64 : chroma == 422 ? 128 : 256)),
      rows_(chroma ? new int32_t[size_t(2 * rowLen_)] : nullptr) {
  for (Pending& p : pending_) {
    p.filters.reserve(size_t(mbw + 1) * 16);
    p.dc.reserve(size_t(mbw + 1) * 12);
    p.blocks.reserve(size_t(mbw + 1) * 16);
    p.filtersAt.resize(size_t(mbw + 2));
    p.dcAt.resize(size_t(mbw + 2));
    p.blocksAt.resize(size_t(mbw + 2));
  }
}

void ForwardRows::Pending::Clear() {
  filters.clear();
  dc.clear();
  blocks.clear();
}

void ForwardRows::Pending::Mark(int x) {
  filtersAt[size_t(x)] = int(filters.size());
  dcAt[size_t(x)] = int(dc.size());
  blocksAt[size_t(x)] = int(blocks.size());
}

// Windows of the first level to undo, gathered so that eight go at once:
// those filters share no sample with each other or with any edge filter,
// so only the block transforms must wait for them (Flush first).
struct ForwardRows::WindowBatch {
  static constexpr int kMax = 64;
  P quads[4 * kMax];
  int n = 0;
  void Add(P q0, P q1, P q2, P q3) {
    P* at = quads + 4 * n;
    at[0] = q0;
    at[1] = q1;
    at[2] = q2;
    at[3] = q3;
    if (++n == kMax) Flush();
  }
  void Flush() {
    int w = 0;
    for (; w + 8 <= n; w += 8) Windows8Inv(quads + 4 * w);
    for (; w < n; ++w) WindowInv(quads[4 * w], quads[4 * w + 1], quads[4 * w + 2], quads[4 * w + 3]);
    n = 0;
  }
  // a first-level filter: a window joins the batch, the rest is undone now
  void Take(const PrefilterStep& s) {
    if (s.kind == PrefilterStep::kWindow) Add(s.p[0], s.p[1], s.p[2], s.p[3]);
    else Undo(s);
  }
};

namespace {

// Takes the steps of one corner as the walk hands them out: first-level
// filters lying wholly in `upper` are undone at once, the others kept for
// the next call; block transforms and second-level steps kept.  Chroma
// walks address a stand-in pair of rows at `base`, moved onto the rows in
// use.
template <class Pending>
struct RowSteps {
  Pending& to;
  ForwardRows::WindowBatch& windows;
  const int32_t* upper;
  ptrdiff_t rowLen;
  const int32_t* base;  // null: the walk's pointers are the rows'
  P above;
  P here;
  bool late = false;  // past the corner's block transforms

  P M(P p) const {
    if (!base) return p;
    const ptrdiff_t at = p - base;
    return at < rowLen ? above + at : here + (at - rowLen);
  }
  bool Upper(const int32_t* p) const {
    return uintptr_t(p) - uintptr_t(upper) < uintptr_t(rowLen) * sizeof(int32_t);
  }
  void Filter(Step s) {
    if (!late) {
      to.dc.push_back(s);
    } else if (Upper(s.p[0]) && Upper(s.p[1]) && Upper(s.p[2]) && Upper(s.p[3])) {
      windows.Take(s);
    } else {
      to.filters.push_back(s);
    }
  }
  void Edge(P a, P b, P c, P d) { Filter({Step::kEdge, {M(a), M(b), M(c), M(d)}, late}); }
  void Window(P q0, P q1, P q2, P q3) {
    q0 = M(q0), q1 = M(q1), q2 = M(q2), q3 = M(q3);
    if (late && Upper(q0) && Upper(q1) && Upper(q2) && Upper(q3)) windows.Add(q0, q1, q2, q3);
    else Filter({Step::kWindow, {q0, q1, q2, q3}, late});
  }
  void CornerDC(P p0, P p1) { to.dc.push_back({Step::kCornerDC, {p0, p1, nullptr, nullptr}, false}); }
  void Block(P p) {
    late = true;
    to.blocks.push_back(M(p));
  }
  void Post2(P a, P b) { to.dc.push_back({Step::kPost2, {M(a), M(b), nullptr, nullptr}, false}); }
  void Post2x2(P a, P b, P c, P d) { to.dc.push_back({Step::kPost2x2, {M(a), M(b), M(c), M(d)}, false}); }
  void SubDC(P a, P b) { to.dc.push_back({Step::kSub, {M(a), M(b), nullptr, nullptr}, false}); }
  void AddDC(P a, P b) { to.dc.push_back({Step::kAdd, {M(a), M(b), nullptr, nullptr}, false}); }
  static void DropDC(P) {}
};

}  // namespace

// The steps of corner (x, y), rows y - 1 and y at `above` and `here`,
// into `to` (the filters wholly in row y - 1 undone).
void ForwardRows::Walk(Pending& to, WindowBatch& windows, int32_t* above, int32_t* here, int x, int y) {
  to.Mark(x);
  if (!chroma_) {
    RowSteps<Pending> v{to, windows, above, rowLen_, nullptr, above, here};
    WalkCornerRows(v, above, here, mbw_, mbh_, overlap_, true, x, y);
    return;
  }
  // the walk's channel has row y - 1 at rows_ and row y right after it
  int32_t* const base = rows_.get();
  int32_t* channel = reinterpret_cast<int32_t*>(reinterpret_cast<uintptr_t>(base) -
                                                uintptr_t((ptrdiff_t(y) - 1) * rowLen_ * ptrdiff_t(sizeof(int32_t))));
  RowSteps<Pending> v{to, windows, above, rowLen_, base, above, here};
  WalkChromaCorner(v, channel, mbw_, mbh_, chroma_ == 420, overlap_, true, x, y);
}

// Every overlap filter of the first level covers samples no other one
// covers, and precedes the block transforms of those samples; the second
// level's steps cover block DCs of their own corner and the next one, and
// those of different corners never meet.  So the steps may be undone in
// any order that keeps, per sample, filter before block transform before
// DC steps.  Corner by corner along the row, so that the samples stay in
// cache: corner x's filters that reach into row y, those of corner
// (x, y + 1) lying wholly in row y (they cover row y's upper blocks), the
// block transforms of corner x - 1 (whose filters are all undone by then)
// and the DC steps of corner x - 2 (whose blocks are all transformed), or
// later ones.
void ForwardRows::Row(int32_t* above, int32_t* here, int32_t* next, int y) {
  Pending& cur = pending_[y & 1];
  Pending& nxt = pending_[(y + 1) & 1];
  // corner row y was listed by the previous call, where its rows were
  // `here` and `next`; the first one's filters all lie in row 0
  WindowBatch windows;
  if (y == 0) {
    cur.Clear();
    for (int x = 0; x <= mbw_; ++x) Walk(cur, windows, here, here, x, 0);
    cur.Mark(mbw_ + 1);
  }
  nxt.Clear();
  BlockBatch blocks;
  // the DC steps of corners before dcFrom are done; a batch is run once
  // it holds 16 blocks (a vector group or two), the small chroma corners
  // gathered over a few corners
  int dcFrom = 0;
  for (int x = 0; x <= mbw_ + 1; ++x) {
    if (x <= mbw_) {
      for (int i = cur.filtersAt[size_t(x)]; i < cur.filtersAt[size_t(x + 1)]; ++i) windows.Take(cur.filters[size_t(i)]);
      if (y < mbh_) Walk(nxt, windows, here, next, x, y + 1);
    }
    if (x >= 1) {
      for (int i = cur.blocksAt[size_t(x - 1)]; i < cur.blocksAt[size_t(x)]; ++i) blocks.Add(cur.blocks[size_t(i)]);
      if (blocks.Size() < 16 && x <= mbw_) continue;
      windows.Flush();
      blocks.Flush();
      // blocks of corners up to x - 1 transformed: DC steps up to x - 2
      for (; dcFrom <= x - 2 || (x > mbw_ && dcFrom <= mbw_); ++dcFrom) {
        for (int i = cur.dcAt[size_t(dcFrom + 1)] - 1; i >= cur.dcAt[size_t(dcFrom)]; --i) Undo(cur.dc[size_t(i)]);
      }
    }
  }
  windows.Flush();
  blocks.Flush();
  if (y < mbh_) nxt.Mark(mbw_ + 1);
}

void ForwardTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap) {
  Step steps[64];
  for (int y = mbh; y >= 0; --y) {
    for (int x = mbw; x >= 0; --x) {
      StepList list{steps};
      WalkChromaCorner(list, channel, mbw, mbh, is420, overlap, true, x, y);
      for (int i = list.n - 1; i >= 0; --i) Undo(steps[i]);
    }
  }
}

void ForwardTransform(int32_t* channel, int mbw, int mbh, int overlap) {
  Step steps[64];
  for (int y = mbh; y >= 0; --y) {
    for (int x = mbw; x >= 0; --x) {
      StepList list{steps};
      WalkCorner(list, channel, mbw, mbh, overlap, true, x, y);
      for (int i = list.n - 1; i >= 0; --i) Undo(steps[i]);
    }
  }
}

}  // namespace rvtjxr
