// The overlap pre filters.  Each lifting step of the post filters
// (jxr_filters.cc) has its inverse here; a pass lists the steps the
// decoder takes at one macroblock corner (the shared walk, jxr_walk.h) and
// runs their inverses backwards, visiting the corners in the opposite
// order, so that where windows of the two levels meet the values are
// exactly those the decoder will see.
#include "jxr_prefilters.h"

#include <cstddef>

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
    rvtiPCTFwd_JPEGXR_32s_C1IR(buf_, int32_t(sizeof(int32_t)) * w, {w, 4});
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
      stepsPerRow_(ptrdiff_t(mbw + 1) * 64),
      steps_(size_t(2 * stepsPerRow_)),
      at_(size_t(2 * (mbw + 2))),
      rows_(chroma ? new int32_t[size_t(2 * rowLen_)] : nullptr) {}

// The steps of corner (x, y), rows y - 1 and y at `above` and `here`.
template <class List>
void ForwardRows::Walk(List& list, int32_t* above, int32_t* here, int x, int y) {
  list.late = false;
  if (!chroma_) {
    WalkCornerRows(list, above, here, mbw_, mbh_, overlap_, true, x, y);
    return;
  }
  // the walk's channel has row y - 1 at rows_ and row y right after it
  int32_t* const base = rows_.get();
  const int first = list.n;
  int32_t* channel = reinterpret_cast<int32_t*>(reinterpret_cast<uintptr_t>(base) -
                                                uintptr_t((ptrdiff_t(y) - 1) * rowLen_ * ptrdiff_t(sizeof(int32_t))));
  WalkChromaCorner(list, channel, mbw_, mbh_, chroma_ == 420, overlap_, true, x, y);
  for (int i = first; i < list.n; ++i) {
    for (P& p : list.out[i].p) {
      if (!p) continue;
      const ptrdiff_t at = p - base;
      p = at < rowLen_ ? above + at : here + (at - rowLen_);
    }
  }
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
// and the DC steps of corner x - 2 (whose blocks are all transformed).
void ForwardRows::Row(int32_t* above, int32_t* here, int32_t* next, int y) {
  Step* const cur = steps_.data() + (y & 1) * stepsPerRow_;
  Step* const nxt = steps_.data() + ((y + 1) & 1) * stepsPerRow_;
  int* const curAt = at_.data() + (y & 1) * (mbw_ + 2);
  int* const nxtAt = at_.data() + ((y + 1) & 1) * (mbw_ + 2);
  // corner row y was listed by the previous call, where its rows were
  // `here` and `next`
  if (y == 0) {
    StepList first{cur};
    for (int x = 0; x <= mbw_; ++x) {
      curAt[x] = first.n;
      Walk(first, above, here, x, 0);
    }
    curAt[mbw_ + 1] = first.n;
  }
  const ptrdiff_t rowLen = rowLen_;
  auto within = [rowLen](const Step& s, const int32_t* row) {
    for (P p : s.p) {
      if (p && !(p >= row && p < row + rowLen)) return false;
    }
    return true;
  };
  StepList list{nxt};
  BlockBatch blocks;
  for (int x = 0; x <= mbw_ + 2; ++x) {
    if (x <= mbw_) {
      // filters wholly in row y - 1 were undone by the previous call
      for (int i = curAt[x + 1] - 1; i >= curAt[x]; --i) {
        if (cur[i].late && (y == 0 || !within(cur[i], above))) Undo(cur[i]);
      }
      if (y < mbh_) {
        nxtAt[x] = list.n;
        Walk(list, here, next, x, y + 1);
        for (int i = list.n - 1; i >= nxtAt[x]; --i) {
          if (nxt[i].late && within(nxt[i], here)) Undo(nxt[i]);
        }
      }
    }
    if (x >= 1 && x <= mbw_ + 1) {
      for (int i = curAt[x - 1]; i < curAt[x]; ++i) {
        if (cur[i].kind == Step::kBlock) blocks.Add(cur[i].p[0]);
      }
      blocks.Flush();
    }
    if (x >= 2) {
      for (int i = curAt[x - 1] - 1; i >= curAt[x - 2]; --i) {
        if (!cur[i].late && cur[i].kind != Step::kBlock) Undo(cur[i]);
      }
    }
  }
  nxtAt[mbw_ + 1] = list.n;
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
