// JPEG 2000 code-block coding, the fast passes: every coefficient's flag
// word also holds the significance of its eight neighbours and the signs
// of the four direct ones, kept up to date when a coefficient becomes
// significant, so a context is one table look-up instead of eight reads,
// and stripe columns with nothing to code are passed over at once.  The
// MQ and raw coders are the reference ones (inlined).  Same scan order and
// decisions as the reference passes of t1.h, which the harness checks.
#ifndef RVT_JPEG2K_T1_FAST_H_
#define RVT_JPEG2K_T1_FAST_H_

#include <array>

#include "jpeg2k/t1.h"

namespace rvt::t1::fast {

enum : uint32_t {
  kNW = 1, kN = 2, kNE = 4, kW = 8, kE = 16, kSW = 32, kS = 64, kSE = 128,
  kNeighbours = 0xFF,
  kNNeg = 256, kWNeg = 512, kENeg = 1024, kSNeg = 2048
};

struct Tables {
  uint8_t zc[3][256];  // LL and LH, HL, HH
  uint8_t sc[256];     // index: N, W, E, S significant, then their signs
  uint8_t scXor[256];
};

constexpr Tables BuildTables() {
  Tables t{};
  for (int i = 0; i < 256; ++i) {
    auto bit = [i](uint32_t m) { return (uint32_t(i) & m) ? 1 : 0; };
    const Neigh n{bit(kW) + bit(kE), bit(kN) + bit(kS), bit(kNW) + bit(kNE) + bit(kSW) + bit(kSE)};
    t.zc[0][i] = uint8_t(ZeroContext(n, rvtJ2KBandLL));
    t.zc[1][i] = uint8_t(ZeroContext(n, rvtJ2KBandHL));
    t.zc[2][i] = uint8_t(ZeroContext(n, rvtJ2KBandHH));
    auto contrib = [i](int sig, int neg) { return (i >> sig & 1) ? ((i >> neg & 1) ? -1 : 1) : 0; };
    auto clamp = [](int v) { return v > 1 ? 1 : v < -1 ? -1 : v; };
    int h = clamp(contrib(1, 5) + contrib(2, 6));
    int v = clamp(contrib(0, 4) + contrib(3, 7));
    int x = 0;
    if (h < 0 || (h == 0 && v < 0)) {
      x = 1;
      h = -h;
      v = -v;
    }
    t.sc[i] = uint8_t(h == 0 ? 9 + v : 12 + v);
    t.scXor[i] = uint8_t(x);
  }
  return t;
}
inline constexpr Tables kTables = BuildTables();

inline int ZcTable(int band) { return band == rvtJ2KBandHL ? 1 : band == rvtJ2KBandHH ? 2 : 0; }
inline unsigned SignIndex(uint32_t f) {
  return ((f >> 1) & 1) | ((f >> 2) & 2) | ((f >> 2) & 4) | ((f >> 3) & 8) | ((f >> 4) & 0xF0);
}

// Marks f (at row y) significant and tells its neighbours; with vertically
// causal stripes the stripe above does not learn of its first row.
inline void SetSignificant(uint32_t* f, int stride, int y, bool causal, int neg) {
  const uint32_t n = neg ? 1u : 0u;
  f[0] |= kFSig | (n ? uint32_t(kFNeg) : 0u);
  f[-1] |= kE | (n * kENeg);
  f[1] |= kW | (n * kWNeg);
  if (!(causal && (y & 3) == 0)) {
    f[-stride - 1] |= kSE;
    f[-stride] |= kS | (n * kSNeg);
    f[-stride + 1] |= kSW;
  }
  f[stride - 1] |= kNE;
  f[stride] |= kN | (n * kNNeg);
  f[stride + 1] |= kNW;
}

template <bool kEnc>
inline void Significant(Planes& b, Coder<kEnc>& c, uint32_t* f, int x, int y, int plane, int neg, bool causal) {
  SetSignificant(f, b.stride, y, causal, neg);
  const int i = y * b.w + x;
  if constexpr (kEnc) {
    const uint64_t m = b.mag[i];
    c.err -= m * m;
    c.err += Err2(b.mag[i], true, plane);
  } else {
    b.mag[i] = uint32_t(1) << plane;
  }
  b.low[i] = uint8_t(plane);
}

template <bool kEnc>
inline void Sign(Planes& b, Coder<kEnc>& c, uint32_t* f, int x, int y, int plane, bool raw, bool causal) {
  const int truth = kEnc ? ((*f & kFNeg) ? 1 : 0) : 0;
  int neg;
  if (raw) {
    neg = c.Raw(truth);
  } else {
    const unsigned idx = SignIndex(*f);
    const int xr = kTables.scXor[idx];
    neg = c.Mq(kTables.sc[idx], truth ^ xr) ^ xr;
  }
  Significant(b, c, f, x, y, plane, neg, causal);
}

template <bool kEnc>
inline int Truth(const Planes& b, int x, int y, int plane) {
  if constexpr (kEnc) return int(b.mag[y * b.w + x] >> plane) & 1;
  else return 0;
}

template <bool kEnc>
void FastSignificance(Planes& b, Coder<kEnc>& c, int plane, int band, bool raw, bool causal) {
  const uint8_t* zc = kTables.zc[ZcTable(band)];
  const int s = b.stride;
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int rows = b.h - y0 < 4 ? b.h - y0 : 4;
    uint32_t* col = &b.F(0, y0);
    for (int x = 0; x < b.w; ++x, ++col) {
      uint32_t* f = col;
      if (rows == 4) {  // nothing to code: no neighbour significant, or all four significant
        const uint32_t f0 = f[0], f1 = f[s], f2 = f[2 * s], f3 = f[3 * s];
        if (!((f0 | f1 | f2 | f3) & kNeighbours) || (f0 & f1 & f2 & f3 & kFSig)) continue;
      }
      for (int r = 0; r < rows; ++r, f += s) {
        const uint32_t fl = *f;
        if ((fl & kFSig) || !(fl & kNeighbours)) continue;
        const int t = Truth<kEnc>(b, x, y0 + r, plane);
        const int bit = raw ? c.Raw(t) : c.Mq(zc[fl & kNeighbours], t);
        *f |= kFVisit;
        if (bit) Sign(b, c, f, x, y0 + r, plane, raw, causal);
      }
    }
  }
}

template <bool kEnc>
void FastRefinement(Planes& b, Coder<kEnc>& c, int plane, bool raw) {
  const int s = b.stride;
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int rows = b.h - y0 < 4 ? b.h - y0 : 4;
    uint32_t* col = &b.F(0, y0);
    for (int x = 0; x < b.w; ++x, ++col) {
      uint32_t* f = col;
      if (rows == 4 && !((f[0] | f[s] | f[2 * s] | f[3 * s]) & kFSig)) continue;
      for (int r = 0; r < rows; ++r, f += s) {
        const uint32_t fl = *f;
        if ((fl & (kFSig | kFVisit)) != kFSig) continue;
        const int i = (y0 + r) * b.w + x;
        const int t = Truth<kEnc>(b, x, y0 + r, plane);
        const int ctx = (fl & kFRefined) ? 16 : (fl & kNeighbours) ? 15 : 14;
        const int bit = raw ? c.Raw(t) : c.Mq(ctx, t);
        *f |= kFRefined;
        if constexpr (kEnc) {
          c.err -= Err2(b.mag[i], true, b.low[i]);
          c.err += Err2(b.mag[i], true, plane);
        } else {
          b.mag[i] |= uint32_t(bit) << plane;
        }
        b.low[i] = uint8_t(plane);
      }
    }
  }
}

template <bool kEnc>
void FastCleanup(Planes& b, Coder<kEnc>& c, int plane, int band, bool causal, bool segsym) {
  const uint8_t* zc = kTables.zc[ZcTable(band)];
  const int s = b.stride;
  constexpr uint32_t kBusy = kFSig | kFVisit | kNeighbours;
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int rows = b.h - y0 < 4 ? b.h - y0 : 4;
    uint32_t* col = &b.F(0, y0);
    for (int x = 0; x < b.w; ++x, ++col) {
      uint32_t* f = col;
      int r = 0;
      if (rows == 4) {
        // Every coefficient significant or coded in this plane: only the
        // marks of the significance pass to clear.
        auto done = [](uint32_t v) { return (v | (v >> 2)) & kFSig; };  // kFVisit is kFSig << 2
        if (done(f[0]) & done(f[s]) & done(f[2 * s]) & done(f[3 * s])) {
          for (int k = 0; k < 4; ++k) f[k * s] &= ~uint32_t(kFVisit);
          continue;
        }
      }
      if (rows == 4 && !((f[0] | f[s] | f[2 * s] | f[3 * s]) & kBusy)) {
        int first = 4;
        if constexpr (kEnc) {
          for (int k = 0; k < 4 && first == 4; ++k)
            if (Truth<kEnc>(b, x, y0 + k, plane)) first = k;
        }
        if (!c.Mq(kCtxRun, first < 4 ? 1 : 0)) continue;
        int idx = c.Mq(kCtxUni, (first >> 1) & 1) << 1;
        idx |= c.Mq(kCtxUni, first & 1);
        r = idx;
        f += r * s;
        Sign(b, c, f, x, y0 + r, plane, false, causal);
        ++r;
        f += s;
      }
      for (; r < rows; ++r, f += s) {
        const uint32_t fl = *f;
        if (fl & (kFSig | kFVisit)) continue;
        if (c.Mq(zc[fl & kNeighbours], Truth<kEnc>(b, x, y0 + r, plane)))
          Sign(b, c, f, x, y0 + r, plane, false, causal);
      }
      // The marks of the significance pass go (a run's rows carry none).
      uint32_t* g = col;
      for (int k = 0; k < rows; ++k, g += s) *g &= ~uint32_t(kFVisit);
    }
  }
  if (segsym) {
    c.Mq(kCtxUni, 1);
    c.Mq(kCtxUni, 0);
    c.Mq(kCtxUni, 1);
    c.Mq(kCtxUni, 0);
  }
}

template <bool kEnc>
void RunFastPass(Planes& b, Coder<kEnc>& c, int k, int planes, int band, int style) {
  const int plane = PassPlane(k, planes);
  const bool causal = style & rvtJ2KStyleVCausal;
  const bool raw = IsRaw(k, style);
  switch (PassType(k)) {
    case kSig: FastSignificance(b, c, plane, band, raw, causal); break;
    case kRef: FastRefinement(b, c, plane, raw); break;
    case kClean: FastCleanup(b, c, plane, band, causal, style & rvtJ2KStyleSegSym); break;
  }
}

}  // namespace rvt::t1::fast

#endif  // RVT_JPEG2K_T1_FAST_H_
