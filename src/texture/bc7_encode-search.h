// The mode search of BC7 tiles, the endpoint fitting it drives and the
// region walk, written once over the kernels K.  No include guard on
// purpose: it is included inside namespace rvt::bc7_encode for the scalar
// reference (bc7_encode.h) and again inside each target's namespace
// (bc7_encode-inl.h), so every target compiles the whole search for its
// own instruction set.  The float steps are the same operations in the
// same order everywhere (no contraction), so every copy gives the
// reference's bytes.  Calls between these functions are parenthesised:
// the tile's type would otherwise bring the reference's copies into every
// target's overload set.

template <class K>
void Measure(const Tile& t, const Format& f, uint32_t mask, const Ends& e, Fit* best) {
  int v[2][4];
  Decoded(f, e, v);
  uint8_t idx[16];
  const uint32_t err = K::Run(t, v, f.index_bits, f.chans, mask, idx);
  if (err < best->err) {
    best->err = err, best->e = e;
    std::memcpy(best->idx, idx, 16);
  }
}

// Float endpoints A, B to codes, for each p-bit choice tried, measured.
// Without `all`, the p-bits of least rounding error: chosen per endpoint
// where each has its own (0 on a tie), per pair where they share one.
template <class K>
void Quantize(const Tile& t, const Format& f, uint32_t mask, const float A[4], const float B[4], bool all,
              Fit* best) {
  const float* ab[2] = {A, B};
  const bool pb = f.pbits != 0;
  // Endpoint s with p-bit p: its codes (the nearest to the value rounded
  // to a half step), and the squared rounding error.
  auto code = [&](int s, int p, int q[4]) {
    float r = 0;
    for (int c = 0; c < 4; ++c) {
      if (!f.bits[c]) {
        q[c] = 0;
        continue;
      }
      const QuantTable& qt = QuantOf(f.bits[c], p, pb);
      const int x = int(ab[s][c] * 2.0f + 0.5f);
      q[c] = qt.q[x];
      const float d = ab[s][c] - float(qt.v[x]);
      r += d * d;
    }
    return r;
  };
  Ends e{};
  if (!pb) {
    code(0, 0, e.q[0]), code(1, 0, e.q[1]);
    (Measure<K>)(t, f, mask, e, best);
    return;
  }
  int q[2][2][4];  // endpoint, p-bit, channel
  float r[2][2];
  const int p_lo = f.pbits_one ? 1 : 0;
  for (int s = 0; s < 2; ++s) {
    for (int p = p_lo; p < 2; ++p) r[s][p] = code(s, p, q[s][p]);
  }
  auto take = [&](int p0, int p1) {
    e.p[0] = p0, e.p[1] = p1;
    std::memcpy(e.q[0], q[0][p0], sizeof e.q[0]);
    std::memcpy(e.q[1], q[1][p1], sizeof e.q[1]);
  };
  if (all) {
    for (int p1 = p_lo; p1 < 2; ++p1) {
      for (int p0 = p_lo; p0 < 2; ++p0) {
        if (f.pbits == 2 && p0 != p1) continue;
        take(p0, p1);
        (Measure<K>)(t, f, mask, e, best);
      }
    }
    return;
  }
  if (f.pbits == 1) {
    take(r[0][1] < r[0][p_lo] ? 1 : p_lo, r[1][1] < r[1][p_lo] ? 1 : p_lo);
  } else {
    const int p = r[0][1] + r[1][1] < r[0][p_lo] + r[1][p_lo] ? 1 : p_lo;
    take(p, p);
  }
  (Measure<K>)(t, f, mask, e, best);
}

// The endpoints of the pixels in `mask` in format `f`: the extremes of
// their projections on the principal axis (of the fitted channels), then
// the refinements `eff` asks for.
template <class K>
Fit FitSubset(const Tile& t, const Format& f, uint32_t mask, const Effort& eff) {
  Sums su;
  K::Sum(t, mask, &su);
  const int n = su.n;
  Fit best;
  if (n == 0) {
    best.e = Ends{};
    best.err = 0;
    std::memset(best.idx, 0, 16);
    return best;
  }
  float mean[4];
  for (int c = 0; c < 4; ++c) mean[c] = float(su.s[c]) / float(n);
  // n times the covariance of the fitted channels (exact in integers).
  float cov[4][4] = {};
  for (int i = 0, k = 0; i < 4; ++i) {
    for (int j = i; j < 4; ++j, ++k) {
      if (f.chans >> i & f.chans >> j & 1) {
        cov[i][j] = cov[j][i] = float(int64_t(n) * su.p[k] - int64_t(su.s[i]) * su.s[j]);
      }
    }
  }
  float axis[4];
  if (f.chans == 7) {
    PrincipalAxis<3>(cov, eff.axis_steps, axis);
  } else {
    PrincipalAxis<4>(cov, eff.axis_steps, axis);
  }
  float lo = 0, hi = 0, len = 0;
  for (int c = 0; c < 4; ++c) len += axis[c] * axis[c];
  if (len > 0) {
    K::Extent(t, mask, mean, axis, &lo, &hi);
    lo /= len, hi /= len;
  }
  float A[4], B[4];
  for (int c = 0; c < 4; ++c) {
    const float a = mean[c] + lo * axis[c], b = mean[c] + hi * axis[c];
    A[c] = a < 0 ? 0 : a > 255 ? 255 : a;
    B[c] = b < 0 ? 0 : b > 255 ? 255 : b;
  }
  (Quantize<K>)(t, f, mask, A, B, eff.all_pbits, &best);
  for (int r = 0; r < eff.refits && best.err > 0; ++r) {
    if (!Refit(t, f, mask, best, A, B)) break;
    const uint32_t before = best.err;
    (Quantize<K>)(t, f, mask, A, B, eff.all_pbits, &best);
    if (best.err >= before) break;
  }
  if (eff.local) {
    for (int pass = 0; pass < 8 && best.err > 0; ++pass) {
      const uint32_t before = best.err;
      const Ends start = best.e;
      for (int s = 0; s < 2; ++s) {
        for (int c = 0; c < 4; ++c) {
          if (!f.bits[c] || !(f.chans >> c & 1)) continue;
          for (int dir = -1; dir <= 1; dir += 2) {
            Ends e = start;
            e.q[s][c] += dir;
            if (e.q[s][c] < 0 || e.q[s][c] >= 1 << f.bits[c]) continue;
            (Measure<K>)(t, f, mask, e, &best);
          }
        }
        if (f.pbits && !f.pbits_one) {
          Ends e = start;
          e.p[s] ^= 1;
          if (f.pbits == 2) e.p[1 - s] = e.p[s];
          (Measure<K>)(t, f, mask, e, &best);
        }
      }
      if (best.err >= before) break;
    }
  }
  return best;
}

// A winner's indices from its subsets' fits (Fit or GreyFit), by whole
// 16-byte moves: byte merges into a block that is read whole stall the
// store forwarding.
template <class F>
void GatherIndices(const F* fit, int subsets, int partition, Block* best) {
  if (subsets == 1) {
    std::memcpy(best->idx, fit[0].idx, 16);
    return;
  }
  uint8_t idx[16];
  for (int p = 0; p < 16; ++p) idx[p] = fit[SubsetOf(subsets, partition, p)].idx[p];
  std::memcpy(best->idx, idx, 16);
}

// A partitioned mode (or mode 6, one subset) with the given partition.
// Opaque tiles stay opaque: their alpha endpoints keep p-bits of 1.
template <class K>
void TryPartitioned(const Tile& t, int mode, int partition, bool opaque, const Effort& eff, Block* best) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[mode];
  Format f = FormatOf(mode);
  if (opaque && m.alpha_bits) {
    // Alpha codes of all ones with p-bits of 1 decode to 255 exactly: the
    // search leaves alpha out.
    f.pbits_one = true;
    f.chans = 7;
  }
  // (the winner's indices gathered from its subsets' fits only when it wins)
  Fit fit[3];
  uint32_t err = 0;
  for (int s = 0; s < m.subsets; ++s) {
    fit[s] = (FitSubset<K>)(t, f, SubsetMask(m.subsets, partition, s), eff);
    err += fit[s].err;
    if (err >= best->err) return;
  }
  best->err = err, best->mode = mode, best->partition = partition, best->rotation = 0, best->selection = 0;
  for (int s = 0; s < m.subsets; ++s) best->e[s] = fit[s].e;
  (GatherIndices)(fit, m.subsets, partition, best);
}

// Mode 4 or 5 with a rotation (alpha swapped with channel rotation - 1
// before fitting, as the decoder swaps it back) and, mode 4, an index
// selection (1: the colour takes the 3-bit indices).
// Opaque tiles stay opaque: the slot that decodes to alpha (alpha itself
// without rotation, else the colour channel swapped into it) must hold the
// all-ones code in both endpoints, or the candidate is dropped.
template <class K>
void TryRotated(const Tile& t, int mode, int rotation, int selection, bool opaque, const Effort& eff, Block* best) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[mode];
  Tile r = t;
  if (rotation) std::memcpy(r.c[3], t.c[rotation - 1], 64), std::memcpy(r.c[rotation - 1], t.c[3], 64);
  const int cb = m.colour_bits, ab = m.alpha_bits;
  const Format fc{{cb, cb, cb, 0}, 0, selection ? m.index2_bits : m.index_bits, 7};
  const Format fa{{0, 0, 0, ab}, 0, selection ? m.index_bits : m.index2_bits, 8};
  const Fit colour = (FitSubset<K>)(r, fc, 0xFFFF, eff);
  if (colour.err >= best->err) return;
  if (opaque && rotation && (colour.e.q[0][rotation - 1] != (1 << cb) - 1 || colour.e.q[1][rotation - 1] != (1 << cb) - 1)) {
    return;
  }
  const Fit alpha = (FitSubset<K>)(r, fa, 0xFFFF, eff);
  if (colour.err + alpha.err >= best->err) return;
  if (opaque && !rotation && (alpha.e.q[0][3] != (1 << ab) - 1 || alpha.e.q[1][3] != (1 << ab) - 1)) return;
  Block b;
  b.err = colour.err + alpha.err;
  b.mode = mode, b.rotation = rotation, b.selection = selection;
  for (int s = 0; s < 2; ++s) {
    for (int c = 0; c < 3; ++c) b.e[0].q[s][c] = colour.e.q[s][c];
    b.e[0].q[s][3] = alpha.e.q[s][3];
    b.e[0].p[s] = 0;
  }
  std::memcpy(b.idx, colour.idx, 16);
  std::memcpy(b.idx2, alpha.idx, 16);
  *best = b;
}

// The `keep` partitions (of the first `count`) of least estimate, best
// first (the lower number on a tie); returns how many.  The partitions are
// first ranked by the spread about their subsets' means (integer sums),
// and only the best 2 * keep + 4 of that ranking get the line estimate.
template <class K>
int Preselect(const Tile& t, const Moments& mo, int subsets, int count, int keep, int* out) {
  Points pts;
  MakePoints(t, mo.chans, &pts);
  const Spread all = SpreadOf(pts, 0xFFFF);
  alignas(64) float rough[64];
  float est[64];
  int order[64], listed[64];
  K::Rough(pts, all, subsets, count, rough);
  for (int k = 0; k < count; ++k) order[k] = k;
  const int wide = Least(rough, order, count, 2 * keep + 4 < count ? 2 * keep + 4 : count, listed);
  std::sort(listed, listed + wide);
  K::Estimate(mo, subsets, listed, wide, est);
  return Least(est, listed, wide, keep, out);
}

template <class K>
void TryShape(const Tile& t, const Shape& sh, bool opaque, const Effort& eff, Block* best) {
  if (sh.mode == 4 || sh.mode == 5) {
    (TryRotated<K>)(t, sh.mode, sh.part, sh.sel, opaque, eff, best);
  } else {
    (TryPartitioned<K>)(t, sh.mode, sh.part, opaque, eff, best);
  }
}

// Codes of the pixels in `mask` for set `s` and `bits`-bit indices: from
// the codes nearest the least and greatest pixel, every pair within
// `reach` codes of the centre measured, then the least-squares endpoints
// of the best pair's indices as the next centre, while the error drops
// (`rounds` windows at most).  Reach 0 (one round): the two codes either
// side of the least pixel against the two either side of the greatest.
template <class K>
GreyFit FitGrey(const Tile& t, uint32_t mask, const GreySet& s, int bits, int reach, int rounds) {
  GreyFit best;
  int lo, hi, xs[16];
  const int n = K::GreyValues(t, mask, xs, &lo, &hi);
  float A = float(lo), B = float(hi);
  const Format f{{8, 8, 8, 0}, 0, bits, 1};
  int seen[3][2];  // centres of the windows measured before
  for (int round = 0; round < rounds && best.err > 0; ++round) {
    const uint32_t before = best.err;
    const int ca = GreyNearest(s, A), cb = GreyNearest(s, B);
    seen[round][0] = ca, seen[round][1] = cb;
    int pa[49], pb[49], va[49], vb[49], np = 0;
    int a0 = ca - reach, a1 = ca + reach, b0 = cb - reach, b1 = cb + reach;
    if (reach == 0) {
      a0 = float(GreyValue(s, ca)) > A ? ca - 1 : ca, a1 = a0 + 1;
      b1 = float(GreyValue(s, cb)) < B ? cb + 1 : cb, b0 = b1 - 1;
    }
    for (int a = a0; a <= a1; ++a) {
      if (a < 0 || a >= s.count) continue;
      for (int b = b0; b <= b1; ++b) {
        if (b < 0 || b >= s.count || (s.shared && ((a ^ b) & 1))) continue;
        bool again = false;
        for (int r = 0; r < round; ++r) {
          again |= std::abs(a - seen[r][0]) <= reach && std::abs(b - seen[r][1]) <= reach;
        }
        if (again) continue;
        pa[np] = a, pb[np] = b, va[np] = GreyValue(s, a), vb[np] = GreyValue(s, b), ++np;
      }
    }
    uint32_t errs[49];
    K::Grey(xs, n, bits, va, vb, np, errs);
    for (int i = 0; i < np; ++i) {
      if (errs[i] < best.err) best.err = errs[i], best.code[0] = pa[i], best.code[1] = pb[i];
    }
    if (best.err >= before) break;
    // The indices of the best pair (the error is the table's).
    const int v[2][4] = {{GreyValue(s, best.code[0]), 0, 0, 0}, {GreyValue(s, best.code[1]), 0, 0, 0}};
    K::Run(t, v, bits, 1, mask, best.idx);
    if (best.err == 0 || round + 1 == rounds) break;
    Fit fit;
    std::memcpy(fit.idx, best.idx, 16);
    float a4[4], b4[4];
    if (!Refit(t, f, mask, fit, a4, b4)) break;
    A = a4[0], B = b4[0];
  }
  return best;
}

// A grey tile in mode 6, 1 or 0 with the given partition.
template <class K>
void TryGrey(const Tile& t, int mode, int partition, int reach, int rounds, Block* best) {
  const bptc_decode::Bc7Mode& m = kBc7Modes[mode];
  const GreySet s{mode == 6 ? 128 : mode == 1 ? 128 : 32, mode == 1, mode};
  GreyFit fit[3];
  uint32_t err = 0;
  for (int k = 0; k < m.subsets; ++k) {
    fit[k] = (FitGrey<K>)(t, SubsetMask(m.subsets, partition, k), s, m.index_bits, reach, rounds);
    if (fit[k].err >= best->err) return;
    err += 3 * fit[k].err;
    if (err >= best->err) return;
  }
  best->err = err, best->mode = mode, best->partition = partition, best->rotation = 0, best->selection = 0;
  for (int k = 0; k < m.subsets; ++k) {
    for (int e = 0; e < 2; ++e) {
      const int i = fit[k].code[e];
      const int q = mode == 6 ? i : i >> 1;
      for (int c = 0; c < 3; ++c) best->e[k].q[e][c] = q;
      best->e[k].q[e][3] = mode == 6 ? 127 : 0;
      best->e[k].p[e] = mode == 6 ? 1 : i & 1;
    }
  }
  (GatherIndices)(fit, m.subsets, partition, best);
}

// A grey tile's block: mode 6, then at quality 0 (a squared error above
// 256 left) mode 1 over the partition nearest to the split of the pixels
// at the middle of mode 6's palette; above it mode 1 over the 4 or 8
// partitions of least spread about their subsets' means and mode 0 over
// the 2 or 4 (quality 1, 2).  The codes are searched within 2 or 3 of
// each centre in up to 3 windows (quality 1, 2); quality 0 measures the
// codes either side of each end, one window.
template <class K>
void EncodeGrey(const Tile& t, int quality, uint8_t out[16]) {
  static constexpr int kReach[3] = {0, 2, 3}, kMode1[3] = {0, 4, 8}, kMode0[3] = {0, 2, 4};
  const int reach = kReach[quality], rounds = quality == 0 ? 1 : 3;
  Block best;
  (TryGrey<K>)(t, 6, 0, reach, rounds, &best);
  if (quality == 0) {
    if (best.err > 256) {
      uint32_t split = 0;
      for (int p = 0; p < 16; ++p) split |= uint32_t(best.idx[p] >= 8) << p;
      (TryGrey<K>)(t, 1, K::NearestSplit(split), reach, rounds, &best);
    }
  } else if (best.err > 0) {
    Points pts;
    MakePoints(t, 1, &pts);
    const Spread all = SpreadOf(pts, 0xFFFF);
    alignas(64) float rough[64];
    int order[64], parts[8];
    for (int k = 0; k < 64; ++k) order[k] = k;
    K::Rough(pts, all, 2, 64, rough);
    const int n1 = Least(rough, order, 64, kMode1[quality], parts);
    for (int i = 0; i < n1 && best.err > 0; ++i) (TryGrey<K>)(t, 1, parts[i], reach, rounds, &best);
    K::Rough(pts, all, 3, 16, rough);
    const int n0 = Least(rough, order, 16, kMode0[quality], parts);
    for (int i = 0; i < n0 && best.err > 0; ++i) (TryGrey<K>)(t, 0, parts[i], reach, rounds, &best);
  }
  Pack(best, out);
}

// One tile to its block.  Every candidate is first fitted with p-bits by
// least rounding error and, above quality 0, one least squares round.
// Quality 0: mode 6; opaque tiles whose squared error there exceeds 256
// also try mode 1 over the partition nearest to the split of their pixels
// at the middle of mode 6's line.  Quality 1: opaque tiles: modes 6, 1 and
// 3 over the 4 partitions of least estimate, 0 and 2 over 2; tiles with
// alpha: modes 6, 7 (4 partitions), 5 and 4 over their rotations and index
// selections; then the winner's shape again with every p-bit choice
// measured and two rounds.  Quality 2: that search over 8 two-subset
// partitions, opaque tiles also modes 5 and 4 over their rotations and
// index selections (a channel with its own indices wins on tiles where one
// channel's detail does not follow the others'), then the winner's shape again with four rounds and each code
// and p-bit moved by one while the error drops.  The least squared RGBA
// error wins (the first tried on a tie).  Opaque grey tiles take the
// one-channel search of EncodeGrey at every level instead.
template <class K>
void EncodeTile(const Tile& t, int quality, uint8_t out[16]) {
  const int kind = K::Kind(t);
  const bool opaque = kind & 1, grey = kind >> 1 & 1;
  if (opaque && grey) return (EncodeGrey<K>)(t, quality, out);
  // Quality 0: one power step (the axis it gives fits about as well) and no
  // least squares round.
  const Effort eff{quality == 0 ? 0 : 1, false, false, quality == 0 ? 1 : 4};
  Block best;
  (TryPartitioned<K>)(t, 6, 0, opaque, eff, &best);
  if (best.err == 0) return Pack(best, out);
  if (quality == 0) {
    // Opaque tiles: mode 1 over the partition nearest to the split of the
    // pixels at the middle of mode 6's line.
    if (opaque && best.err > 256) {
      uint32_t split = 0;
      for (int p = 0; p < 16; ++p) split |= uint32_t(best.idx[p] >= 8) << p;
      (TryPartitioned<K>)(t, 1, K::NearestSplit(split), opaque, eff, &best);
    }
    return Pack(best, out);
  }
  auto trial = [&](int mode, int part, int sel) { (TryShape<K>)(t, Shape{0, mode, part, sel}, opaque, eff, &best); };
  Moments mo;
  MakeMoments(t, opaque ? 3 : 4, &mo);
  int parts[16], p3[16];
  const int keep2 = quality == 1 ? 4 : 8, keep3 = 2;
  const int n2 = (Preselect<K>)(t, mo, 2, 64, keep2, parts);
  if (opaque) {
    for (int i = 0; i < n2; ++i) trial(1, parts[i], 0);
    for (int i = 0; i < n2; ++i) trial(3, parts[i], 0);
    const int n0 = (Preselect<K>)(t, mo, 3, 16, keep3, p3);
    for (int i = 0; i < n0; ++i) trial(0, p3[i], 0);
    const int n3 = (Preselect<K>)(t, mo, 3, 64, keep3, p3);
    for (int i = 0; i < n3; ++i) trial(2, p3[i], 0);
  } else {
    for (int i = 0; i < n2; ++i) trial(7, parts[i], 0);
  }
  if (!opaque || quality >= 2) {
    for (int r = 0; r < 4; ++r) {
      trial(5, r, 0);
      trial(4, r, 0);
      trial(4, r, 1);
    }
  }
  if (best.err > 0) {
    const bool rotated = best.mode == 4 || best.mode == 5;
    const Shape sh{0, best.mode, rotated ? best.rotation : best.partition, best.selection};
    (TryShape<K>)(t, sh, opaque, quality == 1 ? Effort{2, true, false} : Effort{4, true, true}, &best);
  }
  Pack(best, out);
}

// A tile at x, y of the region, its last row and column repeated where
// the region ends inside it.
template <class T>
void GatherTile(const uint8_t* src, int32_t step, ImageSize roi, int64_t x, int64_t y, T* t) {
  uint8_t v[16];
  for (int c = 0; c < 4; ++c) {
    bc_encode::Gather(src, step, roi, x, y, 4, c, v);
    for (int p = 0; p < 16; ++p) t->c[c][p] = v[p];
  }
}

template <class K>
RvtResult Encode(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  Tile t;
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4, dst += 16) {
      if (x + 4 <= roi.width && y + 4 <= roi.height) {
        K::Load(src + ptrdiff_t(y) * step + 4 * x, step, &t);
      } else {
        (GatherTile)(src, step, roi, x, y, &t);
      }
      (EncodeTile<K>)(t, quality, dst);
    }
  }
  return rvtStatusOk;
}
