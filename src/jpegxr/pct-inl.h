// The photo core transform: the vector kernels of one target.  No checks
// here.  A group is four chunks of one vector's width, each N samples wide
// and 4 rows high; the 16 rows of the chunks are transposed (within each
// 128-bit block) so that every vector holds one position of N blocks, the
// lifting network runs lane-wise on the 16 vectors, and the inverse
// transposition stores them back.  Chunks may repeat (a group short of
// chunks): a repeated chunk loads the same samples and stores the same
// results.
#if defined(RVT_JPEGXR_PCT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEGXR_PCT_INL_H_
#undef RVT_JPEGXR_PCT_INL_H_
#else
#define RVT_JPEGXR_PCT_INL_H_
#endif

#include <hwy/highway.h>

#include "jpegxr/pct.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::pct::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// ------------------------------------------------------------ lifting

template <class D>
struct Net {
  using T = hn::TFromD<D>;
  using V = hn::Vec<D>;
  static constexpr bool kInt = !hwy::IsFloat<T>();

  static HWY_INLINE V Times3(V a) { return hn::Add(hn::Add(a, a), a); }
  static HWY_INLINE V Half(V a) {
    if constexpr (kInt) return hn::ShiftRight<1>(a);
    else return hn::Mul(hn::Set(D(), T(0.5f)), a);
  }
  static HWY_INLINE V HalfUp(V a) {
    if constexpr (kInt) return hn::ShiftRight<1>(hn::Add(a, hn::Set(D(), T(1))));
    else return hn::Mul(hn::Set(D(), T(0.5f)), a);
  }
  static HWY_INLINE V Lift38(V a) {
    if constexpr (kInt) return hn::ShiftRight<3>(hn::Add(Times3(a), hn::Set(D(), T(4))));
    else return hn::Mul(hn::Set(D(), T(0.375f)), a);
  }
  static HWY_INLINE V Lift34(V a) {
    if constexpr (kInt) return hn::ShiftRight<2>(hn::Add(Times3(a), hn::Set(D(), T(3))));
    else return hn::Mul(hn::Set(D(), T(0.75f)), a);
  }
  static HWY_INLINE V Lift38b(V a) {
    if constexpr (kInt) return hn::ShiftRight<3>(hn::Add(Times3(a), hn::Set(D(), T(3))));
    else return hn::Mul(hn::Set(D(), T(0.375f)), a);
  }

  template <bool kRound>
  static HWY_INLINE V HalfOf(V a) {
    if constexpr (kRound) return HalfUp(a);
    else return Half(a);
  }

  template <bool kRound>
  static HWY_INLINE void HadFwd(V& A, V& B, V& C, V& D_) {
    A = hn::Add(A, D_);
    B = hn::Sub(B, C);
    const V t = hn::Sub(HalfOf<kRound>(hn::Sub(A, B)), D_);
    B = hn::Add(B, t);
    D_ = hn::Sub(hn::Add(D_, t), C);
    A = hn::Sub(A, D_);
    C = t;
  }
  template <bool kRound>
  static HWY_INLINE void HadInv(V& A, V& B, V& C, V& D_) {
    const V t = C;
    A = hn::Add(A, D_);
    B = hn::Sub(B, t);
    const V dn = hn::Sub(HalfOf<kRound>(hn::Sub(A, B)), t);
    C = hn::Sub(hn::Add(dn, t), D_);
    B = hn::Add(B, C);
    A = hn::Sub(A, dn);
    D_ = dn;
  }

  static HWY_INLINE void RotFwd(V& x, V& y, V& z, V& w) {
    y = hn::Sub(y, z);
    x = hn::Add(x, w);
    z = hn::Add(z, HalfUp(y));
    w = hn::Sub(HalfUp(x), w);
    y = hn::Sub(y, Lift38(x));
    x = hn::Add(x, Lift38(y));
    w = hn::Sub(w, Lift38(z));
    z = hn::Add(z, Lift38(w));
    w = hn::Add(w, Half(y));
    z = hn::Sub(z, HalfUp(x));
    y = hn::Sub(y, w);
    x = hn::Add(x, z);
  }
  static HWY_INLINE void RotInv(V& x, V& y, V& z, V& w) {
    y = hn::Add(y, w);
    x = hn::Sub(x, z);
    w = hn::Sub(w, Half(y));
    z = hn::Add(z, HalfUp(x));
    x = hn::Sub(x, Lift38(y));
    y = hn::Add(y, Lift38(x));
    z = hn::Sub(z, Lift38(w));
    w = hn::Add(w, Lift38(z));
    z = hn::Sub(z, HalfUp(y));
    w = hn::Sub(HalfUp(x), w);
    y = hn::Add(y, z);
    x = hn::Sub(x, w);
  }

  static HWY_INLINE void OddOddFwd(V& p, V& q, V& r, V& s) {
    q = hn::Neg(q);
    r = hn::Neg(r);
    s = hn::Add(s, p);
    r = hn::Sub(r, q);
    const V t1 = Half(s), t2 = Half(r);
    p = hn::Sub(p, t1);
    q = hn::Add(q, t2);
    p = hn::Add(p, Lift38(q));
    q = hn::Sub(q, Lift34(p));
    p = hn::Add(p, Lift38b(q));
    q = hn::Sub(q, t2);
    p = hn::Add(p, t1);
    r = hn::Add(r, q);
    s = hn::Sub(s, p);
  }
  static HWY_INLINE void OddOddInv(V& p, V& q, V& r, V& s) {
    s = hn::Add(s, p);
    r = hn::Sub(r, q);
    const V t1 = Half(s), t2 = Half(r);
    p = hn::Sub(p, t1);
    q = hn::Add(q, t2);
    p = hn::Sub(p, Lift38b(q));
    q = hn::Add(q, Lift34(p));
    p = hn::Sub(p, Lift38(q));
    q = hn::Sub(q, t2);
    p = hn::Add(p, t1);
    r = hn::Add(r, q);
    s = hn::Sub(s, p);
    q = hn::Neg(q);
    r = hn::Neg(r);
  }

  static HWY_INLINE void Fwd(V* v) {
    HadFwd<false>(v[a0], v[a3], v[d0], v[d3]);
    HadFwd<false>(v[a1], v[a2], v[d1], v[d2]);
    HadFwd<false>(v[b0], v[b3], v[c0], v[c3]);
    HadFwd<false>(v[b1], v[b2], v[c1], v[c2]);
    HadFwd<true>(v[a0], v[a1], v[b0], v[b1]);
    RotFwd(v[a2], v[a3], v[b2], v[b3]);
    RotFwd(v[c0], v[d0], v[c1], v[d1]);
    OddOddFwd(v[c2], v[c3], v[d2], v[d3]);
  }
  static HWY_INLINE void Inv(V* v) {
    OddOddInv(v[c2], v[c3], v[d2], v[d3]);
    RotInv(v[c0], v[d0], v[c1], v[d1]);
    RotInv(v[a2], v[a3], v[b2], v[b3]);
    HadInv<true>(v[a0], v[a1], v[b0], v[b1]);
    HadInv<false>(v[b1], v[b2], v[c1], v[c2]);
    HadInv<false>(v[b0], v[b3], v[c0], v[c3]);
    HadInv<false>(v[a1], v[a2], v[d1], v[d2]);
    HadInv<false>(v[a0], v[a3], v[d0], v[d3]);
  }
};

// ------------------------------------------------------------ transposes

// Four vectors of one sample row to the four columns, block by block in
// the lanes, and back.  Each 128-bit block of a row vector holds one
// block's row of 32-bit samples or two blocks' of 16-bit ones; everything
// stays within 128-bit blocks, so any vector width works the same.
template <class D, class V = hn::Vec<D>>
HWY_INLINE void Interleave64(D d, V a, V b, V c, V e, V& v0, V& v1, V& v2, V& v3) {
  const hn::Repartition<uint64_t, D> d64;
  const auto a64 = hn::BitCast(d64, a), b64 = hn::BitCast(d64, b);
  const auto c64 = hn::BitCast(d64, c), e64 = hn::BitCast(d64, e);
  v0 = hn::BitCast(d, hn::InterleaveLower(d64, a64, c64));
  v1 = hn::BitCast(d, hn::InterleaveUpper(d64, a64, c64));
  v2 = hn::BitCast(d, hn::InterleaveLower(d64, b64, e64));
  v3 = hn::BitCast(d, hn::InterleaveUpper(d64, b64, e64));
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE void RowsToColumns(D d, V& v0, V& v1, V& v2, V& v3) {
  V t0 = hn::InterleaveLower(d, v0, v1), t1 = hn::InterleaveUpper(d, v0, v1);
  V t2 = hn::InterleaveLower(d, v2, v3), t3 = hn::InterleaveUpper(d, v2, v3);
  if constexpr (sizeof(hn::TFromD<D>) == 2) {
    // Blocks A..H, rows AB CD EF GH: t0 = A0 C0 A1 C1.., t1 = B0 D0 B1 D1..
    const V u0 = hn::InterleaveLower(d, t0, t1), u1 = hn::InterleaveUpper(d, t0, t1);
    const V u2 = hn::InterleaveLower(d, t2, t3), u3 = hn::InterleaveUpper(d, t2, t3);
    t0 = u0, t1 = u1, t2 = u2, t3 = u3;  // u0 = A0 B0 C0 D0 A1 B1 C1 D1
  }
  Interleave64(d, t0, t1, t2, t3, v0, v1, v2, v3);
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE void ColumnsToRows(D d, V& v0, V& v1, V& v2, V& v3) {
  if constexpr (sizeof(hn::TFromD<D>) == 4) {
    RowsToColumns(d, v0, v1, v2, v3);  // the 4x4 transpose is its own inverse
  } else {
    V u0, u2, u1, u3;
    Interleave64(d, v0, v2, v1, v3, u0, u2, u1, u3);
    const V s0 = hn::InterleaveLower(d, u0, u1), s1 = hn::InterleaveUpper(d, u0, u1);
    const V s2 = hn::InterleaveLower(d, u2, u3), s3 = hn::InterleaveUpper(d, u2, u3);
    v0 = hn::InterleaveLower(d, s0, s1);
    v1 = hn::InterleaveUpper(d, s0, s1);
    v2 = hn::InterleaveLower(d, s2, s3);
    v3 = hn::InterleaveUpper(d, s2, s3);
  }
}

// ------------------------------------------------------------ groups

// The blocks of four chunks (Lanes(d) samples wide, 4 rows, rows `step`
// bytes apart), transformed in place.
template <bool kFwd, class D, class T = hn::TFromD<D>>
HWY_INLINE void Group(D d, T* p0, T* p1, T* p2, T* p3, int32_t step) {
  hn::Vec<D> v[16];
  for (int r = 0; r < 4; ++r) {
    v[4 * r + 0] = hn::LoadU(d, RowPtr(p0, step, r));
    v[4 * r + 1] = hn::LoadU(d, RowPtr(p1, step, r));
    v[4 * r + 2] = hn::LoadU(d, RowPtr(p2, step, r));
    v[4 * r + 3] = hn::LoadU(d, RowPtr(p3, step, r));
    RowsToColumns(d, v[4 * r], v[4 * r + 1], v[4 * r + 2], v[4 * r + 3]);
  }
  if constexpr (kFwd) Net<D>::Fwd(v);
  else Net<D>::Inv(v);
  for (int r = 0; r < 4; ++r) {
    ColumnsToRows(d, v[4 * r], v[4 * r + 1], v[4 * r + 2], v[4 * r + 3]);
    hn::StoreU(v[4 * r + 0], d, RowPtr(p0, step, r));
    hn::StoreU(v[4 * r + 1], d, RowPtr(p1, step, r));
    hn::StoreU(v[4 * r + 2], d, RowPtr(p2, step, r));
    hn::StoreU(v[4 * r + 3], d, RowPtr(p3, step, r));
  }
}

// The first `cols` columns of a row of blocks, in groups of four chunks and
// a last group of the chunks left (repeating the last); returns how many
// columns were done (a multiple of Lanes(d)).
template <bool kFwd, class D, class T = hn::TFromD<D>>
HWY_INLINE int Columns(D d, T* p, int32_t step, int cols) {
  const int n = int(hn::Lanes(d));
  int x = 0;
  for (; x + 4 * n <= cols; x += 4 * n) Group<kFwd>(d, p + x, p + x + n, p + x + 2 * n, p + x + 3 * n, step);
  const int k = (cols - x) / n;
  if (k > 0) {
    T* q[4];
    for (int i = 0; i < 4; ++i) q[i] = p + x + (i < k ? i : k - 1) * n;
    Group<kFwd>(d, q[0], q[1], q[2], q[3], step);
    x += k * n;
  }
  return x;
}

// A row of blocks: full vectors, then 128-bit ones, then (16-bit samples,
// an odd block) the scalar reference.
template <class T, bool kFwd>
void Strip(T* p, int32_t step, int blocks) {
  const int cols = 4 * blocks;
  int x = Columns<kFwd>(hn::ScalableTag<T>(), p, step, cols);
  if (x < cols) x += Columns<kFwd>(hn::CappedTag<T, 16 / sizeof(T)>(), p + x, step, cols - x);
  for (; x < cols; x += 4) BlockRef<T, kFwd>(p + x, step);
}

// A macroblock of kWidth x kHeight samples, unrolled: chunks of kCap lanes
// at most (no wider than the macroblock), four to a group, the last group
// repeating its last chunk when the chunks do not fill it.
template <class T, int kWidth, int kHeight, size_t kCap, bool kFwd>
void Blocks(T* p, int32_t step) {
  const hn::CappedTag<T, kCap> d;
  constexpr int n = int(hn::MaxLanes(d));
  constexpr int per_strip = kWidth / n;
  constexpr int chunks = per_strip * (kHeight / 4);
  auto chunk = [&](int i) {
    if (i >= chunks) i = chunks - 1;
    return RowPtr(p, step, 4 * (i / per_strip)) + (i % per_strip) * n;
  };
#pragma GCC unroll 4
  for (int g = 0; g < chunks; g += 4) Group<kFwd>(d, chunk(g), chunk(g + 1), chunk(g + 2), chunk(g + 3), step);
}

// ------------------------------------------------------------ block runs

// Blocks stored one after another, 16 samples each, row by row (32-bit
// samples: one block row a 128-bit block).  A group's chunk i takes, in the
// 128-bit block j of its row vector r, row r of block at(first + i + 4 j),
// so after RowsToColumns lane L holds block first + L.  at() may repeat a
// block (the last group of a run): its lanes load the same samples and
// store the same results, all stores after all loads.
template <class D, class At>
HWY_INLINE hn::Vec<D> LoadBlockRows(D d, At at, int first, int r) {
  if constexpr (hn::MaxLanes(d) <= 4) {
    return hn::LoadU(d, at(first) + 4 * r);
  } else {
    const hn::Half<D> dh;
    constexpr int kHalfBlocks = int(hn::MaxLanes(dh)) / 4;
    return hn::Combine(d, LoadBlockRows(dh, at, first + 4 * kHalfBlocks, r), LoadBlockRows(dh, at, first, r));
  }
}
template <class D, class At>
HWY_INLINE void StoreBlockRows(D d, hn::Vec<D> v, At at, int first, int r) {
  if constexpr (hn::MaxLanes(d) <= 4) {
    hn::StoreU(v, d, at(first) + 4 * r);
  } else {
    const hn::Half<D> dh;
    constexpr int kHalfBlocks = int(hn::MaxLanes(dh)) / 4;
    StoreBlockRows(dh, hn::LowerHalf(dh, v), at, first, r);
    StoreBlockRows(dh, hn::UpperHalf(dh, v), at, first + 4 * kHalfBlocks, r);
  }
}

// Lanes(d) blocks, at(first) .. at(first + Lanes(d) - 1), in place.
template <bool kFwd, class D, class At>
HWY_INLINE void RunGroup(D d, At at, int first) {
  hn::Vec<D> v[16];
  for (int r = 0; r < 4; ++r) {
    for (int i = 0; i < 4; ++i) v[4 * r + i] = LoadBlockRows(d, at, first + i, r);
    RowsToColumns(d, v[4 * r], v[4 * r + 1], v[4 * r + 2], v[4 * r + 3]);
  }
  if constexpr (kFwd) Net<D>::Fwd(v);
  else Net<D>::Inv(v);
  for (int r = 0; r < 4; ++r) {
    ColumnsToRows(d, v[4 * r], v[4 * r + 1], v[4 * r + 2], v[4 * r + 3]);
    for (int i = 0; i < 4; ++i) StoreBlockRows(d, v[4 * r + i], at, first + i, r);
  }
}

// A run of `count` 32-bit blocks: groups of eight blocks (256-bit vectors
// at most: building 512-bit rows from four 128-bit pieces costs more than
// the wider arithmetic saves), then groups of four in 128-bit vectors, the
// last repeating the run's last block.
template <class T, bool kFwd>
void Run(T* p, int count) {
  static_assert(sizeof(T) == 4, "one block row a 128-bit block");
  const hn::CappedTag<T, 8> d;
  const int per = int(hn::Lanes(d));
  auto at = [p](int k) { return p + 16 * k; };
  int b = 0;
  for (; b + per <= count; b += per) RunGroup<kFwd>(d, at, b);
  const int last = count - 1;
  auto clamped = [p, last](int k) { return p + 16 * (k < last ? k : last); };
  for (; b < count; b += 4) RunGroup<kFwd>(hn::CappedTag<T, 4>(), clamped, b);
}

}  // namespace rvt::pct::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEGXR_PCT_INL_H_
