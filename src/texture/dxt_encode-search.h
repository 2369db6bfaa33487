// The colour endpoint search of DXT1, DXT3 and DXT5 tiles and the region
// walk, written once over the kernels K.  No include guard on purpose: it is
// included inside namespace rvt::dxt_encode for the scalar reference
// (dxt_encode.h) and again inside each target's namespace (dxt_encode-inl.h),
// so every target compiles the whole search with its kernels inlined.  The
// float steps are the same operations in the same order everywhere (no
// contraction), so every copy gives the reference's bytes.  Calls between
// these functions are parenthesised: the tile's type would otherwise bring
// the reference's copies into every target's overload set.

// The normal sums of the indices of `p` in the form its endpoints' order
// gives (three colours only where the form allows them); returns the
// weights' sum per pixel, 3 for the four-colour form and 2 for the
// three-colour one.
template <NormalFn kNormal>
int NormalOfPart(const Tile& t, const Part& p, bool three_form, Normal* m) {
  const uint16_t c0 = uint16_t(p.b[0] | p.b[1] << 8), c1 = uint16_t(p.b[2] | p.b[3] << 8);
  const bool three = three_form && c0 <= c1;
  const uint32_t idx = uint32_t(p.b[4] | p.b[5] << 8 | p.b[6] << 16 | uint32_t(p.b[7]) << 24);
  kNormal(t, idx, three, m);
  return three ? 2 : 3;
}

// Least squares endpoints for the indices of `p`: each opaque pixel is
// w0 * A + w1 * B with the weights of its entry.  The sums are taken in
// whole numbers (weights in thirds, or halves for three colours), so they
// are exact in any order.  False when the system is singular (every pixel
// on one entry).
template <NormalFn kNormal>
bool Refit(const Tile& t, const Part& p, bool three_form, float A[3], float B[3]) {
  Normal m;
  const int scale = (NormalOfPart<kNormal>)(t, p, three_form, &m);
  const int aa = m.aa, ab = m.ab, bb = m.bb;
  const int* ax = m.ax;
  const int* bx = m.bx;
  const int det = aa * bb - ab * ab;
  if (det == 0) return false;
  for (int c = 0; c < 3; ++c) {
    A[c] = float((bb * ax[c] - ab * bx[c]) * scale) / float(det);
    B[c] = float((aa * bx[c] - ab * ax[c]) * scale) / float(det);
  }
  return true;
}

// The 5:6:5 endpoints that best fit the indices of `p`: per channel, of
// the grid points around the least squares solution (each end rounded down
// and up), the pair of the lowest squared error for those weights, in whole
// numbers (the first on a tie).  False when the system is singular.
template <NormalFn kNormal>
bool GridFit(const Tile& t, const Part& p, bool three_form, uint16_t* ea, uint16_t* eb) {
  Normal m;
  const int scale = (NormalOfPart<kNormal>)(t, p, three_form, &m);
  const int det = m.aa * m.bb - m.ab * m.ab;
  if (det == 0) return false;
  int qa[3], qb[3];
  for (int c = 0; c < 3; ++c) {
    const int top = c == 1 ? 63 : 31;
    const float inv = float(scale) / float(det) * (float(top) / 255.0f);
    const float fa = float(m.bb * m.ax[c] - m.ab * m.bx[c]) * inv;
    const float fb = float(m.aa * m.bx[c] - m.ab * m.ax[c]) * inv;
    // Rounded down, kept inside [-1, top]: the pair's points are that and
    // the one above, those inside the grid tried.
    const int a0 = fa < 0 ? -1 : fa >= float(top) ? top : int(fa);
    const int b0 = fb < 0 ? -1 : fb >= float(top) ? top : int(fb);
    int best = INT32_MAX;
    qa[c] = a0 < 0 ? 0 : a0, qb[c] = b0 < 0 ? 0 : b0;
    for (int x = a0; x <= a0 + 1; ++x) {
      for (int y = b0; y <= b0 + 1; ++y) {
        if (x < 0 || x > top || y < 0 || y > top) continue;
        const int a = c == 1 ? (x << 2 | x >> 4) : (x << 3 | x >> 2);
        const int b = c == 1 ? (y << 2 | y >> 4) : (y << 3 | y >> 2);
        const int e = a * a * m.aa + 2 * a * b * m.ab + b * b * m.bb - 2 * scale * (a * m.ax[c] + b * m.bx[c]);
        if (e < best) best = e, qa[c] = x, qb[c] = y;
      }
    }
  }
  *ea = uint16_t(qa[0] << 11 | qa[1] << 5 | qa[2]);
  *eb = uint16_t(qb[0] << 11 | qb[1] << 5 | qb[2]);
  return true;
}

template <MomentsFn kMoments>
Start StartOf(const Tile& t) {
  Start s;
  alignas(64) int32_t on[16];  // 1 for the opaque pixels
  for (int i = 0; i < 16; ++i) {
    on[i] = ~t.transparent >> i & 1;
    if (on[i] && s.first < 0) s.first = i;
  }
  if (s.first < 0) return s;
  Moments m;
  kMoments(t, on, t.ch[0][s.first], t.ch[1][s.first], t.ch[2][s.first], &m);
  s.n = m.n;
  const int* sum = m.sum;
  const int* sq = m.sq;
  s.one_colour = m.same == s.n;
  if (s.n == 0 || s.one_colour) return s;
  float mean[3];
  for (int c = 0; c < 3; ++c) mean[c] = float(sum[c]) / float(s.n);
  const int pairs[6][2] = {{0, 0}, {0, 1}, {0, 2}, {1, 1}, {1, 2}, {2, 2}};
  float cov[6];
  for (int k = 0; k < 6; ++k) cov[k] = float(s.n * sq[k] - sum[pairs[k][0]] * sum[pairs[k][1]]);
  float axis[3] = {cov[0], cov[3], cov[5]};
  for (int it = 0; it < 6; ++it) {
    const float x = cov[0] * axis[0] + cov[1] * axis[1] + cov[2] * axis[2];
    const float y = cov[1] * axis[0] + cov[3] * axis[1] + cov[4] * axis[2];
    const float z = cov[2] * axis[0] + cov[4] * axis[1] + cov[5] * axis[2];
    float m = x > 0 ? x : -x;
    m = (y > m || -y > m) ? (y > 0 ? y : -y) : m;
    m = (z > m || -z > m) ? (z > 0 ? z : -z) : m;
    if (m <= 0) break;
    axis[0] = x / m, axis[1] = y / m, axis[2] = z / m;
  }
  float lo = 1e30f, hi = -1e30f;
  for (int i = 0; i < 16; ++i) {
    s.proj[i] = 0;
    if (t.transparent >> i & 1) continue;
    const float d = (float(t.ch[0][i]) - mean[0]) * axis[0] + (float(t.ch[1][i]) - mean[1]) * axis[1] +
                    (float(t.ch[2][i]) - mean[2]) * axis[2];
    s.proj[i] = d;
    lo = d < lo ? d : lo;
    hi = d > hi ? d : hi;
  }
  const float len = axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2];
  for (int c = 0; c < 3; ++c) {
    s.A[c] = mean[c] + (len > 0 ? hi / len : 0) * axis[c];
    s.B[c] = mean[c] + (len > 0 ? lo / len : 0) * axis[c];
  }
  return s;
}

// The endpoints of the best split of the ordered pixels into consecutive
// runs on the form's entries from A to B, over the splits whose run ends
// (i, j, k below) lie in [lo[0], hi[0]], [lo[1], hi[1]], [lo[2], hi[2]].
// Each split's least squares endpoints are rounded to 5:6:5 and scored
// exactly, in whole numbers, by the squared error that assignment leaves
// (less the pixels' own squares, times 9 or 4); the first split of the
// lowest score wins.  False when every split is singular.
inline bool ClusterOf(const Order& o, bool three, const int lo[3], const int hi[3], uint16_t* ea, uint16_t* eb) {
  const int n = o.n;
  const auto& pre = o.pre;
  const int scale = three ? 2 : 3;
  int best = INT32_MAX;
  // Runs: [0, i) on A; [i, j) two parts A to one of B (three colours: the
  // mean); [j, k) one to two (three colours: none); [k, n) on B.  The
  // splits of one (i, j) are scored side by side, then taken in order.
  alignas(64) int score[17];
  alignas(64) uint16_t qa[17], qb[17];
  const int i_hi = hi[0] < n ? hi[0] : n, j_hi = hi[1] < n ? hi[1] : n, k_hi = hi[2] < n ? hi[2] : n;
  for (int i = lo[0] > 0 ? lo[0] : 0; i <= i_hi; ++i) {
    for (int j = lo[1] > i ? lo[1] : i; j <= j_hi; ++j) {
      const int* P[3] = {pre[0] + j, pre[1] + j, pre[2] + j};
      const int pi[3] = {pre[0][i], pre[1][i], pre[2][i]}, pj[3] = {pre[0][j], pre[1][j], pre[2][j]};
      const int pn[3] = {pre[0][n], pre[1][n], pre[2][n]};
      // k = j + kk: three colours have no run [j, k).
      const int k0 = three || lo[2] <= j ? 0 : lo[2] - j, width = three ? 1 : k_hi - j + 1;
      for (int kk = k0; kk < width; ++kk) {
        const int c0 = i, c1 = j - i, c2 = kk, c3 = n - j - kk;
        const int aa = three ? 4 * c0 + c1 : 9 * c0 + 4 * c1 + c2;
        const int ab = three ? c1 : 2 * (c1 + c2);
        const int bb = three ? c1 + 4 * c3 : c1 + 4 * c2 + 9 * c3;
        const int det = aa * bb - ab * ab;
        const float inv = float(scale) / float(det == 0 ? 1 : det);
        int e = 0, ra[3], rb[3];
        for (int c = 0; c < 3; ++c) {
          const int r0 = pi[c], r1 = pj[c] - pi[c], r2 = P[c][kk] - pj[c], r3 = pn[c] - P[c][kk];
          const int ax = three ? 2 * r0 + r1 : 3 * r0 + 2 * r1 + r2;
          const int bx = three ? r1 + 2 * r3 : r1 + 2 * r2 + 3 * r3;
          const float max = c == 1 ? 63.0f : 31.0f;
          int qa_c = int(float(bb * ax - ab * bx) * inv * (max / 255.0f) + 0.5f);
          int qb_c = int(float(aa * bx - ab * ax) * inv * (max / 255.0f) + 0.5f);
          const int top = c == 1 ? 63 : 31;
          qa_c = qa_c < 0 ? 0 : qa_c > top ? top : qa_c;
          qb_c = qb_c < 0 ? 0 : qb_c > top ? top : qb_c;
          ra[c] = qa_c, rb[c] = qb_c;
          const int a = c == 1 ? (qa_c << 2 | qa_c >> 4) : (qa_c << 3 | qa_c >> 2);
          const int b = c == 1 ? (qb_c << 2 | qb_c >> 4) : (qb_c << 3 | qb_c >> 2);
          e += a * a * aa + 2 * a * b * ab + b * b * bb - 2 * scale * (a * ax + b * bx);
        }
        score[kk] = det == 0 ? INT32_MAX : e;
        qa[kk] = uint16_t(ra[0] << 11 | ra[1] << 5 | ra[2]);
        qb[kk] = uint16_t(rb[0] << 11 | rb[1] << 5 | rb[2]);
      }
      for (int kk = k0; kk < width; ++kk) {
        if (score[kk] < best) best = score[kk], *ea = qa[kk], *eb = qb[kk];
      }
    }
  }
  return best != INT32_MAX;
}

// The colour part of a tile in one form.  Every quality: the start's
// endpoints.  From quality 1 a tile of one colour takes the best pair for
// it.  Quality 1 otherwise: up to two grid fits for the indices found, then
// up to two rounds of the best split along the axis among those whose run
// ends lie within kWindow of the current indices' (the splits near the
// answer are where cluster fitting gains; the whole set costs a hundred
// times more).  Quality 2: up to eight least squares refinements; the best
// of every split replaces them when it does better; then each of the six
// endpoint components moved by one while the error drops.

constexpr int kWindowRounds = 2;

template <class K>
Part FitForm(const Tile& t, const Start& s, bool dxt1, bool three, int quality) {
  if (s.n == 0) return K::kEval(t, 0, 0, dxt1, true);
  Part best;
  const int first = s.first;
  const float exact[3] = {float(t.ch[0][first]), float(t.ch[1][first]), float(t.ch[2][first])};
  if (s.one_colour) {
    const Part q = K::kEval(t, Pack565(exact), Pack565(exact), dxt1, three);
    if (quality == 0) return q;
    int a[3] = {}, b[3] = {};
    SingleChannel(t.ch[0][first], 5, three, &a[0], &b[0]);
    SingleChannel(t.ch[1][first], 6, three, &a[1], &b[1]);
    SingleChannel(t.ch[2][first], 5, three, &a[2], &b[2]);
    best = K::kEval(t, uint16_t(a[0] << 11 | a[1] << 5 | a[2]), uint16_t(b[0] << 11 | b[1] << 5 | b[2]), dxt1, three);
    return q.err < best.err ? q : best;
  }
  float A[3], B[3];
  for (int c = 0; c < 3; ++c) A[c] = s.A[c], B[c] = s.B[c];
  best = K::kEval(t, Pack565(A), Pack565(B), dxt1, three);
  if (quality == 1) {
    for (int r = 0; r < 2 && best.err > 0; ++r) {
      uint16_t ca, cb;
      if (!(GridFit<K::kNormal>)(t, best, dxt1, &ca, &cb)) break;
      const Part p = K::kEval(t, ca, cb, dxt1, three);
      if (p.err >= best.err) break;
      best = p;
    }
    if (best.err == 0) return best;
    Order o;
    K::kOrder(t, s, &o);
    for (int r = 0; r < kWindowRounds; ++r) {
      // The run ends of the current indices along the axis, entry by entry
      // from the end of the lower offsets.
      const uint16_t c0 = uint16_t(best.b[0] | best.b[1] << 8), c1 = uint16_t(best.b[2] | best.b[3] << 8);
      const uint32_t idx = uint32_t(best.b[4] | best.b[5] << 8 | best.b[6] << 16 | uint32_t(best.b[7]) << 24);
      // Each index's count over the opaque pixels, from the index bits:
      // low and high bit of every pixel's field, with the opaque mask
      // spread to the fields' low bits.
      uint32_t on = uint16_t(~t.transparent);
      on = (on | on << 8) & 0x00FF00FFu, on = (on | on << 4) & 0x0F0F0F0Fu;
      on = (on | on << 2) & 0x33333333u, on = (on | on << 1) & 0x55555555u;
      const uint32_t lo = idx & on, hi = idx >> 1 & on;
      int count[4];
      count[3] = std::popcount(lo & hi), count[2] = std::popcount(hi & ~lo), count[1] = std::popcount(lo & ~hi);
      count[0] = std::popcount(on) - count[1] - count[2] - count[3];
      float e0[3], e1[3];
      Expand(c0, e0);
      Expand(c1, e1);
      float dir = 0;
      for (int c = 0; c < 3; ++c) dir += (e0[c] - e1[c]) * (s.A[c] - s.B[c]);
      const bool low0 = dir < 0;  // entry 0 at the lower offsets
      int run[3];
      if (dxt1 && c0 <= c1) {
        run[0] = count[low0 ? 0 : 1], run[1] = run[0] + count[2], run[2] = run[1];
      } else {
        run[0] = count[low0 ? 0 : 1];
        run[1] = run[0] + count[low0 ? 2 : 3];
        run[2] = run[1] + count[low0 ? 3 : 2];
      }
      SplitList l;
      K::kList(o, three, run, &l);
      const int n = o.n;
      const int at = K::kSplit(o, three, l);
      if (at < 0) break;
      uint16_t ca, cb;
      int i, j, k;
      (SplitAt)(l, three, n, at, &i, &j, &k);
      SplitScore(o, three, i, j, k, &ca, &cb);
      const Part p = K::kEval(t, ca, cb, dxt1, three);
      if (p.err >= best.err) break;
      best = p;
      if (best.err == 0) break;
    }
    return best;
  }
  const int rounds = quality == 0 ? 0 : 8;
  for (int r = 0; r < rounds && best.err > 0; ++r) {
    if (!(Refit<K::kNormal>)(t, best, dxt1, A, B)) break;
    const Part p = K::kEval(t, Pack565(A), Pack565(B), dxt1, three);
    if (p.err >= best.err) break;
    best = p;
  }
  if (quality >= 2) {
    uint16_t ca, cb;
    Order o;
    K::kOrder(t, s, &o);
    const int lo[3] = {0, 0, 0}, hi[3] = {16, 16, 16};
    if ((ClusterOf)(o, three, lo, hi, &ca, &cb)) {
      const Part p = K::kEval(t, ca, cb, dxt1, three);
      if (p.err < best.err) best = p;
    }
    for (int pass = 0; pass < 16 && best.err > 0; ++pass) {
      bool moved = false;
      for (int e = 0; e < 2; ++e) {
        for (int f = 0; f < 3; ++f) {
          const int shift = f == 0 ? 11 : f == 1 ? 5 : 0, max = f == 1 ? 63 : 31;
          for (int dir = -1; dir <= 1; dir += 2) {
            uint16_t c[2] = {uint16_t(best.b[0] | best.b[1] << 8), uint16_t(best.b[2] | best.b[3] << 8)};
            const int v = (c[e] >> shift & max) + dir;
            if (v < 0 || v > max) continue;
            c[e] = uint16_t((c[e] & ~(max << shift)) | v << shift);
            const Part p = K::kEval(t, c[0], c[1], dxt1, three);
            if (p.err < best.err) best = p, moved = true;
          }
        }
      }
      if (!moved) break;
    }
  }
  return best;
}

// The colour part of a tile: DXT1 tiles with transparent pixels take the
// three-colour form; opaque DXT1 tiles at quality 2 also try it (indices 0
// to 2 only) and keep it when its error is lower.
template <class K>
void EncodeColour(const Tile& t, bool dxt1, int quality, uint8_t* out) {
  const Start s = (StartOf<K::kMoments>)(t);
  Part best = (FitForm<K>)(t, s, dxt1, dxt1 && t.transparent != 0, quality);
  if (dxt1 && t.transparent == 0 && quality >= 2 && best.err > 0) {
    const Part p = (FitForm<K>)(t, s, true, true, quality);
    if (p.err < best.err) best = p;
  }
  std::memcpy(out, best.b, 8);
}

template <int kFormat, class K>
RvtResult Encode(const uint8_t* src, int32_t step, uint8_t* dst, ImageSize roi, int quality) {
  RVT_CHECK(bc_encode::Check(src, step, dst, roi, quality));
  Tile t;
  uint8_t px[64], v[16];
  for (int64_t y = 0; y < roi.height; y += 4) {
    for (int64_t x = 0; x < roi.width; x += 4) {
      GatherRgba(src, step, roi, x, y, px);
      for (int i = 0; i < 16; ++i) {
        for (int c = 0; c < 3; ++c) t.ch[c][i] = px[4 * i + c];
        v[i] = px[4 * i + 3];
      }
      t.transparent = 0;
      if (kFormat == 1) {
        for (int i = 0; i < 16; ++i) t.transparent |= uint16_t((v[i] < kAlphaCutoff) << i);
      } else if (kFormat == 3) {
        uint64_t bits = 0;
        for (int i = 0; i < 16; ++i) bits |= uint64_t(v[i] >= 232 ? 15 : (v[i] + 8) >> 4) << (4 * i);
        for (int i = 0; i < 8; ++i) dst[i] = uint8_t(bits >> (8 * i));
        dst += 8;
      } else {
        K::kChannel(v, quality, dst);
        dst += 8;
      }
      (EncodeColour<K>)(t, kFormat == 1, quality, dst);
      dst += 8;
    }
  }
  return rvtStatusOk;
}
