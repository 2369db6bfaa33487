// rvtj2k's decoder.  Reads the main and tile-part headers (SIZ, COD, COC,
// QCD, QCC, RGN, POC; TLM, PLM, PLT, CRG, COM skipped), any tile grid with
// image and tile offsets and tile-parts, precinct partitions, the five
// progression orders and their changes, SOP/EPH, layers; then decodes
// code-blocks (tier-1 export), dequantizes, runs the inverse wavelets (the
// 5/3 whole-level export, or the float 9/7 row and column passes with the
// borders extended here) and the inverse component transform.
//
// Reconstruction follows the usual decoders: coefficients are decoded with
// one extra plane of precision so that the last decoded plane is rounded to
// the middle of its interval; reversible values are then halved toward
// zero, irreversible ones scaled by half the step size.
#include "j2k_decode.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include <sys/mman.h>

#include "j2k_codestream.h"
#include "rvtjp.h"

namespace rvtj2k {
namespace {

struct Fail {
  std::string why;
};

int Get16(const uint8_t* p) { return p[0] << 8 | p[1]; }
uint32_t Get32(const uint8_t* p) { return uint32_t(Get16(p)) << 16 | uint32_t(Get16(p + 2)); }

int64_t CeilDiv(int64_t a, int64_t b) { return a >= 0 ? (a + b - 1) / b : -((-a) / b); }
int64_t FloorDiv(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }
int FloorLog2(int v) {
  int r = 0;
  while (v > 1) v >>= 1, ++r;
  return r;
}
int Reflect(int i, int n) {
  if (n == 1) return 0;
  const int period = 2 * (n - 1);
  i %= period;
  if (i < 0) i += period;
  return i < n ? i : period - i;
}

// Reads bounded marker-segment fields.
struct Reader {
  const uint8_t* p;
  size_t n, pos = 0;
  void Need(size_t k) const {
    if (pos + k > n) throw Fail{"marker segment too short"};
  }
  int U8() { Need(1); return p[pos++]; }
  int U16() { Need(2); pos += 2; return Get16(p + pos - 2); }
  uint32_t U32() { Need(4); pos += 4; return Get32(p + pos - 4); }
  size_t Left() const { return n - pos; }
};

// Packet-header bits: after a 0xFF byte the next holds 7.
struct Bits {
  const uint8_t* p;
  size_t len, pos = 0;
  int cur = 0, n = 0;
  bool over = false;
  int Bit() {
    if (n == 0) {
      const bool ff = cur == 0xFF;
      if (pos < len) cur = p[pos++];
      else cur = 0, over = true;
      n = ff ? 7 : 8;
    }
    --n;
    return (cur >> n) & 1;
  }
  uint32_t Get(int count) {
    uint32_t v = 0;
    while (count--) v = (v << 1) | uint32_t(Bit());
    return v;
  }
  size_t End() {
    if (cur == 0xFF && n == 0 && pos < len) ++pos;
    return pos;
  }
};

// A tag tree over w x h leaves, decoded lazily against thresholds.
struct TagTree {
  struct Node {
    int value = 0, low = 0, parent = -1;
    bool known = false;
  };
  std::vector<Node> nodes;
  void Init(int w, int h) {
    nodes.clear();
    if (w <= 0 || h <= 0) return;
    const std::vector<int> parent = TagTreeParents(w, h);
    nodes.resize(parent.size());
    for (size_t n = 0; n < parent.size(); ++n) nodes[n].parent = parent[n];
  }
  // True when the leaf's value is below threshold (reading what that needs).
  bool Below(int leaf, int threshold, Bits& b) {
    int path[40], depth = 0;
    for (int n = leaf; n >= 0 && depth < 40; n = nodes[size_t(n)].parent) path[depth++] = n;
    int low = 0;
    for (int k = depth - 1; k >= 0; --k) {
      Node& nd = nodes[size_t(path[k])];
      if (low > nd.low) nd.low = low;
      else low = nd.low;
      while (low < threshold && !nd.known) {
        if (b.Bit()) {
          nd.value = low;
          nd.known = true;
        } else {
          ++low;
        }
        if (b.over) return false;
      }
      nd.low = low;
      if (!nd.known || nd.value >= threshold) return false;
      low = nd.value;
    }
    return true;
  }
  int Value(int leaf) const { return nodes[size_t(leaf)].value; }
};

// ---------------------------------------------------------------- parameters

struct Coding {
  int levels = 5, xcb = 6, ycb = 6, style = 0, transform = 1;
  bool precincts = false;
  int ppx[33], ppy[33];
  Coding() { std::fill(ppx, ppx + 33, 15), std::fill(ppy, ppy + 33, 15); }
};
struct Quant {
  int style = 0, guard = 2;
  std::vector<int> exp, mant;
};
struct Poc {
  int rs, cs, lye, re, ce, order;
};
struct TileParams {
  int scod = 0, order = 0, layers = 1, mct = 0;
  std::vector<Coding> cod;
  std::vector<Quant> q;
  std::vector<int> roi;
  std::vector<Poc> poc;
};

// Segment boundaries: does pass k (from 0) end a terminated segment?
bool EndsSegment(int k, int style) {
  if (style & rvtJ2KStyleTermAll) return true;
  if (style & rvtJ2KStyleBypass) return k == 9 || (k >= 10 && (k - 1) % 3 != 0);
  return false;
}

// ---------------------------------------------------------------- structures

struct CodeBlock {
  int x0, y0, x1, y1;  // band coordinates
  bool included = false;
  int sf = 0, passes = 0, lblock = 3;
  int usedPasses = 0;
  std::vector<uint8_t> data;
  std::vector<int32_t> segLen;
};
struct PrecBand {
  int nx = 0, ny = 0;
  std::vector<int> blocks;  // indices into the band's blocks, raster order
  TagTree incl, zero;
};
struct Band {
  int type = 0, x0 = 0, y0 = 0, x1 = 0, y1 = 0;  // band coordinates
  int offX = 0, offY = 0;                          // where it lies in the plane
  int magnBits = 0, roi = 0;
  float step = 1;
  std::vector<CodeBlock> blocks;
};
struct Precinct {
  int index = 0;
  int64_t kx = 0, ky = 0;  // position on the reference grid (progressions)
  std::vector<PrecBand> bands;
  int nextLayer = 0;
};
struct Resolution {
  int x0, y0, x1, y1;
  int ppx, ppy, pw = 0, ph = 0;
  std::vector<Band> bands;
  std::vector<Precinct> prec;
};
// Sample storage left uninitialised: every code-block writes (or zeroes)
// its own area, so the tile is never cleared as a whole.  The slack past
// the end takes the odd sample a wavelet pass writes beyond its region.
// In 2 MiB pieces the kernel may back it with huge pages: one fault per
// 2 MiB instead of per 4 KiB on first touch.
struct Plane {
  struct Release {
    void operator()(int32_t* q) const { std::free(q); }
  };
  std::unique_ptr<int32_t[], Release> p;
  void Alloc(size_t n) {
    const size_t huge = size_t(2) << 20, bytes = ((n + kSlack) * sizeof(int32_t) + huge - 1) / huge * huge;
    p.reset(static_cast<int32_t*>(std::aligned_alloc(huge, bytes)));
    if (!p) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
    madvise(p.get(), bytes, MADV_HUGEPAGE);
#endif
  }
  void Free() { p.reset(); }
  int32_t* data() { return p.get(); }
  int32_t& operator[](size_t i) { return p[i]; }
  const int32_t& operator[](size_t i) const { return p[i]; }
  static constexpr size_t kSlack = 64;
};
struct TileComp {
  int x0, y0, x1, y1;
  std::vector<Resolution> res;
  Plane plane;  // int32, or float bits for the 9/7 path
};
struct Tile {
  int index = 0, x0, y0, x1, y1;
  TileParams params;
  bool seen = false, headerDone = false, ownPoc = false;
  std::vector<bool> cocSet, qccSet;
  std::vector<uint8_t> data;
  std::vector<TileComp> comps;
};

// ---------------------------------------------------------------- decoder

struct Decoder {
  DecodeOptions opt;
  int X1 = 0, Y1 = 0, X0 = 0, Y0 = 0, TW = 0, TH = 0, TX0 = 0, TY0 = 0, C = 0;
  std::vector<int> prec;
  std::vector<bool> sgn;
  int tilesX = 0, tilesY = 0;
  TileParams main;
  std::vector<bool> mainCoc, mainQcc;
  std::vector<Tile> tiles;

  int CompIndex(Reader& r) const { return C < 257 ? r.U8() : r.U16(); }

  void ReadSpCod(Reader& r, Coding& c, bool precincts) {
    c.levels = r.U8();
    c.xcb = r.U8() + 2;
    c.ycb = r.U8() + 2;
    c.style = r.U8();
    c.transform = r.U8();
    if (c.levels > 32) throw Fail{"more than 32 decomposition levels"};
    if (c.xcb > 10 || c.ycb > 10 || c.xcb + c.ycb > 12) throw Fail{"code-block size"};
    if (c.style > 63) throw Fail{"unknown code-block style"};
    if (c.transform > 1) throw Fail{"unknown wavelet"};
    c.precincts = precincts;
    for (int k = 0; k <= c.levels; ++k) {
      const int v = precincts ? r.U8() : 0xFF;
      c.ppx[k] = v & 15;
      c.ppy[k] = v >> 4;
      if (k > 0 && (c.ppx[k] == 0 || c.ppy[k] == 0)) throw Fail{"precinct size"};
    }
  }
  void ReadQuant(Reader& r, Quant& q) {
    const int s = r.U8();
    q.style = s & 31;
    q.guard = s >> 5;
    q.exp.clear();
    q.mant.clear();
    if (q.style == 0) {
      while (r.Left()) q.exp.push_back(r.U8() >> 3), q.mant.push_back(0);
    } else if (q.style == 1 || q.style == 2) {
      while (r.Left() >= 2) {
        const int v = r.U16();
        q.exp.push_back(v >> 11);
        q.mant.push_back(v & 2047);
        if (q.style == 1) break;
      }
    } else {
      throw Fail{"unknown quantization style"};
    }
    if (q.exp.empty()) throw Fail{"quantization without step sizes"};
  }

  // COD, COC, QCD, QCC, RGN, POC into p; cocSet/qccSet track which
  // components have their own segments at this level.
  void Segment(int m, Reader r, TileParams& p, std::vector<bool>& cocSet, std::vector<bool>& qccSet) {
    switch (m) {
      case 0xFF52: {
        p.scod = r.U8();
        p.order = r.U8();
        p.layers = r.U16();
        p.mct = r.U8();
        if (p.order > 4) throw Fail{"unknown progression order"};
        if (p.layers == 0) throw Fail{"no quality layers"};
        Coding c;
        ReadSpCod(r, c, p.scod & 1);
        for (int k = 0; k < C; ++k)
          if (!cocSet[size_t(k)]) p.cod[size_t(k)] = c;
        break;
      }
      case 0xFF53: {
        const int k = CompIndex(r);
        if (k >= C) throw Fail{"COC for a missing component"};
        const int s = r.U8();
        ReadSpCod(r, p.cod[size_t(k)], s & 1);
        cocSet[size_t(k)] = true;
        break;
      }
      case 0xFF5C: {
        Quant q;
        ReadQuant(r, q);
        for (int k = 0; k < C; ++k)
          if (!qccSet[size_t(k)]) p.q[size_t(k)] = q;
        break;
      }
      case 0xFF5D: {
        const int k = CompIndex(r);
        if (k >= C) throw Fail{"QCC for a missing component"};
        ReadQuant(r, p.q[size_t(k)]);
        qccSet[size_t(k)] = true;
        break;
      }
      case 0xFF5E: {
        const int k = CompIndex(r);
        if (k >= C) throw Fail{"RGN for a missing component"};
        if (r.U8() != 0) throw Fail{"unknown ROI style"};
        p.roi[size_t(k)] = r.U8();
        break;
      }
      case 0xFF5F: {
        const int cw = C < 257 ? 1 : 2;
        while (r.Left() >= size_t(5 + 2 * cw)) {
          Poc e;
          e.rs = r.U8();
          e.cs = CompIndex(r);
          e.lye = r.U16();
          e.re = r.U8();
          e.ce = cw == 1 ? r.U8() : r.U16();
          if (e.ce == 0) e.ce = 256;
          e.order = r.U8();
          if (e.order > 4) throw Fail{"unknown progression order in POC"};
          p.poc.push_back(e);
        }
        break;
      }
      default: break;
    }
  }

  void Siz(Reader r) {
    r.U16();
    X1 = int(r.U32()), Y1 = int(r.U32()), X0 = int(r.U32()), Y0 = int(r.U32());
    TW = int(r.U32()), TH = int(r.U32()), TX0 = int(r.U32()), TY0 = int(r.U32());
    C = r.U16();
    if (X1 <= 0 || Y1 <= 0 || X0 < 0 || Y0 < 0 || X0 >= X1 || Y0 >= Y1 || TW <= 0 || TH <= 0 || TX0 < 0 ||
        TY0 < 0 || TX0 > X0 || TY0 > Y0 || int64_t(TX0) + TW <= X0 || int64_t(TY0) + TH <= Y0)
      throw Fail{"image or tile geometry"};
    if (C < 1 || C > 16384) throw Fail{"component count"};
    if (uint64_t(X1 - X0) * uint64_t(Y1 - Y0) * uint64_t(C) > opt.maxSamples) throw Fail{"image too large"};
    for (int k = 0; k < C; ++k) {
      const int s = r.U8(), dx = r.U8(), dy = r.U8();
      prec.push_back((s & 0x7F) + 1);
      sgn.push_back(s & 0x80);
      if (prec.back() > 16) throw Fail{"more than 16 bits per sample"};
      if (dx != 1 || dy != 1) throw Fail{"subsampled components"};
    }
    tilesX = int(CeilDiv(int64_t(X1) - TX0, TW));
    tilesY = int(CeilDiv(int64_t(Y1) - TY0, TH));
    if (int64_t(tilesX) * tilesY > 65535) throw Fail{"more than 65535 tiles"};
    main.cod.assign(size_t(C), Coding());
    main.q.assign(size_t(C), Quant());
    main.roi.assign(size_t(C), 0);
    mainCoc.assign(size_t(C), false);
    mainQcc.assign(size_t(C), false);
  }

  void Parse(const uint8_t* cs, size_t size) {
    if (size < 4 || Get16(cs) != 0xFF4F || Get16(cs + 2) != 0xFF51) throw Fail{"not a JPEG 2000 code-stream"};
    size_t pos = 2;
    bool haveCod = false, haveQcd = false;
    while (true) {
      if (pos + 4 > size) throw Fail{"truncated main header"};
      const int m = Get16(cs + pos);
      const size_t len = size_t(Get16(cs + pos + 2));
      if (m == 0xFF90) break;
      if (len < 2 || pos + 2 + len > size) throw Fail{"truncated marker segment"};
      Reader r{cs + pos + 4, len - 2};
      if (m == 0xFF51) {
        if (C) throw Fail{"second SIZ"};
        Siz(r);
      }
      else if (m == 0xFF60) throw Fail{"packed packet headers (PPM)"};
      else if (m >> 8 != 0xFF) throw Fail{"marker expected"};
      else if (C == 0) throw Fail{"SIZ must come first"};
      else {
        haveCod |= m == 0xFF52;
        haveQcd |= m == 0xFF5C;
        Segment(m, r, main, mainCoc, mainQcc);
      }
      pos += 2 + len;
    }
    if (!haveCod || !haveQcd) throw Fail{"missing COD or QCD"};
    tiles.resize(size_t(tilesX) * size_t(tilesY));
    for (int t = 0; t < int(tiles.size()); ++t) {
      Tile& tl = tiles[size_t(t)];
      const int p = t % tilesX, q = t / tilesX;
      tl.index = t;
      tl.x0 = int(std::max<int64_t>(TX0 + int64_t(p) * TW, X0));
      tl.y0 = int(std::max<int64_t>(TY0 + int64_t(q) * TH, Y0));
      tl.x1 = int(std::min<int64_t>(TX0 + int64_t(p + 1) * TW, X1));
      tl.y1 = int(std::min<int64_t>(TY0 + int64_t(q + 1) * TH, Y1));
    }
    // Tile-parts.
    while (pos + 2 <= size) {
      const int m = Get16(cs + pos);
      if (m == 0xFFD9) break;
      if (m != 0xFF90 || pos + 12 > size) break;  // damaged: keep what arrived
      Reader sot{cs + pos + 4, 8};
      if (Get16(cs + pos + 2) != 10) throw Fail{"SOT length"};
      const int t = sot.U16();
      const uint32_t psot = sot.U32();
      if (t >= int(tiles.size())) throw Fail{"tile index out of range"};
      Tile& tl = tiles[size_t(t)];
      const size_t end = psot == 0 ? size : std::min(size, pos + size_t(psot));
      if (psot != 0 && psot < 14) throw Fail{"tile-part length"};
      if (!tl.seen) {
        tl.seen = true;
        tl.params = main;
        tl.cocSet.assign(size_t(C), false);
        tl.qccSet.assign(size_t(C), false);
      }
      size_t q = pos + 12;
      while (true) {
        if (q + 2 > end) throw Fail{"truncated tile-part header"};
        const int mm = Get16(cs + q);
        if (mm == 0xFF93) {
          q += 2;
          break;
        }
        if (q + 4 > end) throw Fail{"truncated tile-part header"};
        const size_t len = size_t(Get16(cs + q + 2));
        if (len < 2 || q + 2 + len > end) throw Fail{"truncated marker segment"};
        if (mm == 0xFF61) throw Fail{"packed packet headers (PPT)"};
        if (mm == 0xFF52 || mm == 0xFF53 || mm == 0xFF5C || mm == 0xFF5D || mm == 0xFF5E) {
          if (tl.headerDone) throw Fail{"coding segments after the first tile-part"};
          Segment(mm, Reader{cs + q + 4, len - 2}, tl.params, tl.cocSet, tl.qccSet);
        } else if (mm == 0xFF5F) {
          if (!tl.ownPoc) tl.params.poc.clear();  // the tile's changes replace the main header's
          tl.ownPoc = true;
          Segment(mm, Reader{cs + q + 4, len - 2}, tl.params, tl.cocSet, tl.qccSet);
        }
        q += 2 + len;
      }
      tl.headerDone = true;
      tl.data.insert(tl.data.end(), cs + q, cs + end);
      if (psot == 0) break;
      pos = end;
    }
  }

  // ------------------------------------------------------------ layout

  void Layout(Tile& tl) {
    tl.comps.resize(size_t(C));
    for (int c = 0; c < C; ++c) {
      TileComp& tc = tl.comps[size_t(c)];
      const Coding& cod = tl.params.cod[size_t(c)];
      const Quant& qt = tl.params.q[size_t(c)];
      tc.x0 = tl.x0, tc.y0 = tl.y0, tc.x1 = tl.x1, tc.y1 = tl.y1;
      const int L = cod.levels;
      if (opt.reduce > L) throw Fail{"-reduce above the decomposition levels"};
      const size_t area = size_t(tc.x1 - tc.x0) * size_t(tc.y1 - tc.y0);
      tc.plane.Alloc(area);
      tc.res.resize(size_t(L) + 1);
      const int roi = tl.params.roi[size_t(c)];
      const size_t nq = qt.style == 1 ? 1 : size_t(1 + 3 * L);
      if (qt.exp.size() < nq) throw Fail{"too few step sizes"};
      for (int r = 0; r <= L; ++r) {
        Resolution& rs = tc.res[size_t(r)];
        const int d = L - r;
        rs.x0 = int(CeilDiv(tc.x0, int64_t(1) << d)), rs.y0 = int(CeilDiv(tc.y0, int64_t(1) << d));
        rs.x1 = int(CeilDiv(tc.x1, int64_t(1) << d)), rs.y1 = int(CeilDiv(tc.y1, int64_t(1) << d));
        rs.ppx = cod.ppx[r], rs.ppy = cod.ppy[r];
        if (rs.x1 > rs.x0 && rs.y1 > rs.y0) {
          rs.pw = int(CeilDiv(rs.x1, int64_t(1) << rs.ppx) - FloorDiv(rs.x0, int64_t(1) << rs.ppx));
          rs.ph = int(CeilDiv(rs.y1, int64_t(1) << rs.ppy) - FloorDiv(rs.y0, int64_t(1) << rs.ppy));
        }
        const int nbTypes = r == 0 ? 1 : 3;
        const int lowW = r == 0 ? 0 : tc.res[size_t(r) - 1].x1 - tc.res[size_t(r) - 1].x0;
        const int lowH = r == 0 ? 0 : tc.res[size_t(r) - 1].y1 - tc.res[size_t(r) - 1].y0;
        for (int b = 0; b < nbTypes; ++b) {
          Band bd;
          int xob = 0, yob = 0;
          if (r == 0) {
            bd.type = rvtJ2KBandLL;
            bd.x0 = rs.x0, bd.y0 = rs.y0, bd.x1 = rs.x1, bd.y1 = rs.y1;
          } else {
            static const int kTypes[3] = {rvtJ2KBandHL, rvtJ2KBandLH, rvtJ2KBandHH};
            bd.type = kTypes[b];
            xob = b != 1, yob = b != 0;
            const int nb = L - r + 1;
            const int64_t sh = int64_t(1) << (nb - 1);
            bd.x0 = int(CeilDiv(tc.x0 - xob * sh, 2 * sh)), bd.x1 = int(CeilDiv(tc.x1 - xob * sh, 2 * sh));
            bd.y0 = int(CeilDiv(tc.y0 - yob * sh, 2 * sh)), bd.y1 = int(CeilDiv(tc.y1 - yob * sh, 2 * sh));
            bd.offX = xob ? lowW : 0;
            bd.offY = yob ? lowH : 0;
          }
          const int qi = r == 0 ? 0 : 1 + 3 * (r - 1) + b;
          int e, mant;
          if (qt.style == 1) {
            const int nbLevel = r == 0 ? L : L - r + 1;
            e = std::max(0, qt.exp[0] - L + nbLevel);
            mant = qt.mant[0];
          } else {
            e = qt.exp[size_t(qi)];
            mant = qt.mant[size_t(qi)];
          }
          bd.magnBits = qt.guard + e - 1;
          bd.roi = roi;
          // The 9/7 synthesis below carries the high bands' gain of 2 in
          // its scaling (2/K rounded), so their step sizes leave it out.
          bd.step = float((1.0 + mant / 2048.0) * std::ldexp(1.0, prec[size_t(c)] - e)) * 0.5f;
          rs.bands.push_back(std::move(bd));
        }
        // Precincts and their code-blocks.
        if (int64_t(rs.pw) * rs.ph > int64_t(opt.maxSamples)) throw Fail{"too many precincts"};
        rs.prec.resize(size_t(rs.pw) * size_t(rs.ph));
        const int pxb = r == 0 ? rs.ppx : rs.ppx - 1, pyb = r == 0 ? rs.ppy : rs.ppy - 1;
        const int xcb = std::min(cod.xcb, pxb), ycb = std::min(cod.ycb, pyb);
        const int64_t prx0 = FloorDiv(rs.x0, int64_t(1) << rs.ppx), pry0 = FloorDiv(rs.y0, int64_t(1) << rs.ppy);
        for (int py = 0; py < rs.ph; ++py)
          for (int px = 0; px < rs.pw; ++px) {
            Precinct& pc = rs.prec[size_t(py) * rs.pw + px];
            pc.index = py * rs.pw + px;
            // Where the precinct starts on the reference grid (clipped to the tile).
            pc.kx = std::max<int64_t>((prx0 + px) << (rs.ppx + d), tc.x0);
            pc.ky = std::max<int64_t>((pry0 + py) << (rs.ppy + d), tc.y0);
            pc.bands.resize(rs.bands.size());
            for (size_t b = 0; b < rs.bands.size(); ++b) {
              Band& bd = rs.bands[b];
              PrecBand& pb = pc.bands[b];
              const int64_t bx0 = std::max<int64_t>((prx0 + px) << pxb, bd.x0);
              const int64_t bx1 = std::min<int64_t>((prx0 + px + 1) << pxb, bd.x1);
              const int64_t by0 = std::max<int64_t>((pry0 + py) << pyb, bd.y0);
              const int64_t by1 = std::min<int64_t>((pry0 + py + 1) << pyb, bd.y1);
              if (bx1 <= bx0 || by1 <= by0) continue;
              const int64_t cx0 = FloorDiv(bx0, int64_t(1) << xcb), cx1 = CeilDiv(bx1, int64_t(1) << xcb);
              const int64_t cy0 = FloorDiv(by0, int64_t(1) << ycb), cy1 = CeilDiv(by1, int64_t(1) << ycb);
              pb.nx = int(cx1 - cx0), pb.ny = int(cy1 - cy0);
              for (int64_t y = cy0; y < cy1; ++y)
                for (int64_t x = cx0; x < cx1; ++x) {
                  CodeBlock cb;
                  cb.x0 = int(std::max<int64_t>(x << xcb, bx0)), cb.x1 = int(std::min<int64_t>((x + 1) << xcb, bx1));
                  cb.y0 = int(std::max<int64_t>(y << ycb, by0)), cb.y1 = int(std::min<int64_t>((y + 1) << ycb, by1));
                  pb.blocks.push_back(int(bd.blocks.size()));
                  bd.blocks.push_back(std::move(cb));
                }
              pb.incl.Init(pb.nx, pb.ny);
              pb.zero.Init(pb.nx, pb.ny);
            }
          }
      }
    }
  }

  // ------------------------------------------------------------ packets

  struct PacketReader {
    Decoder& dec;
    Tile& tl;
    size_t pos = 0;
    bool stop = false;
    int maxLayer, maxRes;

    // One packet; false when the data ran out.
    bool Read(int l, int r, int c, Precinct& pc) {
      const std::vector<uint8_t>& d = tl.data;
      if (pos >= d.size()) return false;
      const int scod = tl.params.scod;
      const int style = tl.params.cod[size_t(c)].style;
      Resolution& rs = tl.comps[size_t(c)].res[size_t(r)];
      if ((scod & 2) && pos + 6 <= d.size() && Get16(&d[pos]) == 0xFF91) pos += 6;
      if (pos >= d.size()) return false;
      Bits b{&d[pos], d.size() - pos};
      struct Add {
        CodeBlock* cb;
        int n;
        std::vector<int32_t> lens;
      };
      std::vector<Add> adds;
      if (b.Bit()) {
        for (size_t bi = 0; bi < pc.bands.size(); ++bi) {
          PrecBand& pb = pc.bands[bi];
          Band& bd = rs.bands[bi];
          for (int i = 0; i < int(pb.blocks.size()); ++i) {
            CodeBlock& cb = bd.blocks[size_t(pb.blocks[size_t(i)])];
            bool in;
            if (!cb.included) {
              in = pb.incl.Below(i, l + 1, b);
              if (in) {
                int t = 1;
                while (!pb.zero.Below(i, t, b)) {
                  if (b.over || ++t > 64) return false;
                }
                cb.sf = pb.zero.Value(i);
              }
            } else {
              in = b.Bit();
            }
            if (b.over) return false;
            if (!in) continue;
            int n = 1;
            if (b.Bit()) {
              n = 2;
              if (b.Bit()) {
                const uint32_t two = b.Get(2);
                n = 3 + int(two);
                if (two == 3) {
                  const uint32_t five = b.Get(5);
                  n = 6 + int(five);
                  if (five == 31) n = 37 + int(b.Get(7));
                }
              }
            }
            while (b.Bit()) {
              if (++cb.lblock > 32 || b.over) return false;
            }
            Add a{&cb, n, {}};
            int k = cb.passes, left = n;
            while (left > 0) {  // one length per segment the new passes touch
              int take = 0;
              while (take < left && !(take > 0 && EndsSegment(k + take - 1, style))) ++take;
              const int bits = cb.lblock + FloorLog2(take);
              if (bits > 31) return false;
              a.lens.push_back(int32_t(b.Get(bits)));
              k += take;
              left -= take;
            }
            if (b.over) return false;
            cb.included = true;
            adds.push_back(std::move(a));
          }
        }
      }
      if (b.over) return false;
      pos += b.End();
      if ((scod & 4) && pos + 2 <= d.size() && Get16(&d[pos]) == 0xFF92) pos += 2;
      const bool use = l < maxLayer && r <= maxRes;
      for (Add& a : adds) {
        CodeBlock& cb = *a.cb;
        // Lengths count only the bytes present: a truncated stream ends here.
        for (int32_t& len : a.lens) {
          const size_t have = d.size() - std::min(pos, d.size());
          const size_t n = std::min(size_t(len), have);
          if (use && n) cb.data.insert(cb.data.end(), d.begin() + long(pos), d.begin() + long(pos + n));
          pos += size_t(len);
          len = int32_t(n);
        }
        if (use) {
          // The first length continues the segment left open, if any.
          const bool open = cb.usedPasses > 0 && !EndsSegment(cb.usedPasses - 1, style);
          for (size_t s = 0; s < a.lens.size(); ++s) {
            if (s == 0 && open) cb.segLen.back() += a.lens[s];
            else cb.segLen.push_back(a.lens[s]);
          }
          cb.usedPasses += a.n;
        }
        cb.passes += a.n;
      }
      return pos < d.size();
    }
  };

  void Packets(Tile& tl) {
    const TileParams& p = tl.params;
    int maxLevels = 0;
    for (const Coding& cd : p.cod) maxLevels = std::max(maxLevels, cd.levels);
    PacketReader rd{*this, tl, 0, false, opt.layers > 0 ? std::min(opt.layers, p.layers) : p.layers, 0};
    std::vector<Poc> pocs = p.poc;
    if (pocs.empty()) pocs.push_back(Poc{0, 0, p.layers, maxLevels + 1, C, p.order});
    // Every precinct, with its (layer-free) progression keys.
    struct Entry {
      int r, c;
      Precinct* pc;
    };
    std::vector<Entry> all;
    for (int c = 0; c < C; ++c)
      for (int r = 0; r < int(tl.comps[size_t(c)].res.size()); ++r)
        for (Precinct& pc : tl.comps[size_t(c)].res[size_t(r)].prec) all.push_back(Entry{r, c, &pc});
    // An upper bound on the loop's steps: hostile POCs cannot spin it.
    int64_t budget = int64_t(tl.data.size()) * 64 + int64_t(all.size()) * 4 + (1 << 20);
    for (const Poc& e : pocs) {
      std::vector<Entry> sel;
      for (const Entry& en : all)
        if (en.r >= e.rs && en.r < e.re && en.c >= e.cs && en.c < e.ce) sel.push_back(en);
      const int lye = std::min(e.lye, p.layers);
      budget -= int64_t(sel.size()) + 1;
      if (budget < 0) return;
      auto key = [&](const Entry& a, const Entry& b) {
        auto t = [&](const Entry& x) {
          switch (e.order) {
            case 0: case 1: return std::make_tuple(int64_t(x.r), int64_t(x.c), int64_t(0), int64_t(0), int64_t(x.pc->index));
            case 2: return std::make_tuple(int64_t(x.r), x.pc->ky, x.pc->kx, int64_t(x.c), int64_t(0));
            case 3: return std::make_tuple(x.pc->ky, x.pc->kx, int64_t(x.c), int64_t(x.r), int64_t(0));
            default: return std::make_tuple(int64_t(x.c), x.pc->ky, x.pc->kx, int64_t(x.r), int64_t(0));
          }
        };
        return t(a) < t(b);
      };
      std::stable_sort(sel.begin(), sel.end(), key);
      auto visit = [&](int l, const Entry& en) {
        if (--budget < 0) return false;
        Precinct& pc = *en.pc;
        if (l != pc.nextLayer) return true;
        pc.nextLayer++;
        rd.maxRes = tl.comps[size_t(en.c)].res.size() - 1 - size_t(opt.reduce);
        return rd.Read(l, en.r, en.c, pc);
      };
      if (e.order == 0) {  // LRCP
        for (int l = 0; l < lye; ++l)
          for (const Entry& en : sel)
            if (!visit(l, en)) return;
      } else if (e.order == 1) {  // RLCP: resolution groups, layers inside
        for (size_t s = 0; s < sel.size();) {
          size_t t = s;
          while (t < sel.size() && sel[t].r == sel[s].r) ++t;
          for (int l = 0; l < lye; ++l)
            for (size_t k = s; k < t; ++k)
              if (!visit(l, sel[k])) return;
          s = t;
        }
      } else {  // RPCL, PCRL, CPRL: layers innermost
        for (const Entry& en : sel)
          for (int l = 0; l < lye; ++l)
            if (!visit(l, en)) return;
      }
    }
  }

  // ------------------------------------------------------------ pixels

  struct Job {
    TileComp* tc;
    Band* bd;
    CodeBlock* cb;
    int style;
    bool reversible;
    int32_t limit;  // reversible magnitudes kept below this (damaged files)
  };

  static void DecodeBlock(const Job& j, std::vector<uint8_t>& work) {
    CodeBlock& cb = *j.cb;
    const Band& bd = *j.bd;
    TileComp& tc = *j.tc;
    const int w = cb.x1 - cb.x0, h = cb.y1 - cb.y0;
    const int stride = tc.x1 - tc.x0;
    int32_t* dst = &tc.plane[size_t(bd.offY + cb.y0 - bd.y0) * size_t(stride) + size_t(bd.offX + cb.x0 - bd.x0)];
    // One plane more than coded: the last decoded plane is rounded to its middle.
    const int magn = bd.magnBits + bd.roi + 1;
    bool decoded = false;
    if (cb.usedPasses > 0 && magn <= 31 && cb.sf < magn && bd.magnBits >= 0) {
      int64_t total = 0;
      for (int32_t l : cb.segLen) total += l;
      if (int64_t(cb.data.size()) < total) {  // truncated: segments shortened to what arrived
        int64_t have = int64_t(cb.data.size());
        for (int32_t& l : cb.segLen) {
          l = int32_t(std::min<int64_t>(l, have));
          have -= l;
        }
      }
      const int passes = std::min(cb.usedPasses, 3 * (magn - cb.sf) - 2);
      int32_t sz = 0;
      if (rvtiDecodeGetBufSize_JPEG2K({w, h}, &sz) == rvtStatusOk) {
        if (work.size() < size_t(sz)) work.resize(size_t(sz));
        const uint8_t none = 0;
        decoded = rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(cb.data.empty() ? &none : cb.data.data(), cb.segLen.data(),
                                                       dst, stride * 4, {w, h}, bd.type, magn, cb.sf, passes,
                                                       j.style, bd.roi, work.data()) == rvtStatusOk;
      }
    }
    // The plane is not cleared beforehand: blocks without data write zeros.
    if (!decoded) {
      for (int y = 0; y < h; ++y) std::fill(dst + size_t(y) * size_t(stride), dst + size_t(y) * size_t(stride) + w, 0);
      return;
    }
    for (int y = 0; y < h; ++y) {
      int32_t* row = dst + size_t(y) * size_t(stride);
      if (j.reversible) {
        const int32_t lim = j.limit;
        for (int x = 0; x < w; ++x) {
          const int32_t v = row[x] / 2;
          row[x] = v < -lim ? -lim : v > lim ? lim : v;
        }
      } else {
        // Float bits in place of the integers (the plane's 9/7 form).
        const float step = bd.step;
        for (int x = 0; x < w; ++x) {
          const float f = float(row[x]) * step;
          std::memcpy(&row[x], &f, 4);
        }
      }
    }
  }

  // One inverse 9/7 level, horizontal then vertical, on the w x h region at
  // the plane's top left whose origin has the parities px, py.  The bands
  // are copied out with four mirrored samples on each side (rows in strips
  // of kRows, columns in strips of kCols, both cache-sized) and the passes
  // write straight back into the plane.  With an odd length the last pair
  // would write one sample past the region (into a neighbouring band), so
  // it goes through a scratch pair instead.  The passes scale lows by K
  // and highs by 2/K rounded to 1.625732422 before lifting, as float
  // decoders do, so that the samples come out as theirs; a line of one
  // sample is left as it is.
  struct Inverse97 {
    static constexpr float kLowScale = 1.230174105f, kHighScale = 1.625732422f;
    std::vector<float> lo, hi, tail;
    static constexpr int kExt = 4, kRows = 16, kCols = 64;
    void Level(float* plane, int stride, int w, int h, int px, int py) {
      if (w > 1) {
        const int nl = px ? w / 2 : (w + 1) / 2, nh = w - nl, pairs = (w + 1) / 2;
        const int full = w / 2;  // pairs written in place
        const int rowL = pairs + 2 * kExt;
        lo.resize(size_t(rowL) * kRows);
        hi.resize(size_t(rowL) * kRows);
        tail.resize(2 * kRows);
        for (int y0 = 0; y0 < h; y0 += kRows) {
          const int rows = std::min(kRows, h - y0);
          for (int y = 0; y < rows; ++y) {
            const float* src = plane + size_t(y0 + y) * size_t(stride);
            float* L = &lo[size_t(y) * rowL + kExt];
            float* H = &hi[size_t(y) * rowL + kExt];
            std::memcpy(L, src, sizeof(float) * size_t(nl));
            std::memcpy(H, src + nl, sizeof(float) * size_t(nh));
            for (int i = -kExt; i < 0; ++i) {
              L[i] = src[(Reflect(2 * i + px, w) - px) / 2];
              H[i] = src[nl + (Reflect(2 * i + 1 - px, w) - 1 + px) / 2];
            }
            for (int i = nl; i < pairs + kExt; ++i) L[i] = src[(Reflect(2 * i + px, w) - px) / 2];
            for (int i = nh; i < pairs + kExt; ++i) H[i] = src[nl + (Reflect(2 * i + 1 - px, w) - 1 + px) / 2];
          }
          float* dst = plane + size_t(y0) * size_t(stride);
          if (full > 0)
            rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R(&lo[kExt], rowL * 4, &hi[kExt], rowL * 4, {full, rows}, dst,
                                                  stride * 4, px, kLowScale, kHighScale);
          if (full < pairs) {
            rvtiWTInvRowScaled_D97_JPEG2K_32f_C1R(&lo[size_t(kExt + full)], rowL * 4, &hi[size_t(kExt + full)],
                                                  rowL * 4, {1, rows}, tail.data(), 8, px, kLowScale, kHighScale);
            for (int y = 0; y < rows; ++y) dst[size_t(y) * size_t(stride) + size_t(w - 1)] = tail[size_t(2 * y)];
          }
        }
      }
      if (h > 1) {
        const int nl = py ? h / 2 : (h + 1) / 2, nh = h - nl, pairs = (h + 1) / 2;
        const int full = h / 2;
        const int rowsL = pairs + 2 * kExt;
        lo.resize(size_t(rowsL) * kCols);
        hi.resize(size_t(rowsL) * kCols);
        tail.resize(2 * kCols);
        for (int x0 = 0; x0 < w; x0 += kCols) {
          const int cols = std::min(kCols, w - x0);
          const size_t bytes = sizeof(float) * size_t(cols);
          const float* src = plane + x0;
          float* L = &lo[size_t(kExt) * kCols];
          float* H = &hi[size_t(kExt) * kCols];
          // A full strip's rows copy at a constant size (vector moves).
          auto copy = [&](float* d, const float* s) {
            if (cols == kCols) std::memcpy(d, s, sizeof(float) * kCols);
            else std::memcpy(d, s, bytes);
          };
          for (int i = 0; i < nl; ++i) copy(L + size_t(i) * kCols, src + size_t(i) * size_t(stride));
          for (int i = 0; i < nh; ++i) copy(H + ptrdiff_t(i) * kCols, src + size_t(nl + i) * size_t(stride));
          for (int i = -kExt; i < pairs + kExt; ++i) {
            if (i < 0 || i >= nl)
              copy(L + ptrdiff_t(i) * kCols, src + size_t((Reflect(2 * i + py, h) - py) / 2) * size_t(stride));
            if (i < 0 || i >= nh)
              copy(H + ptrdiff_t(i) * kCols, src + size_t(nl + (Reflect(2 * i + 1 - py, h) - 1 + py) / 2) * size_t(stride));
          }
          float* dst = plane + x0;
          if (full > 0)
            rvtiWTInvColScaled_D97_JPEG2K_32f_C1R(L, kCols * 4, H, kCols * 4, {cols, full}, dst, stride * 4, py,
                                                  kLowScale, kHighScale);
          if (full < pairs) {
            rvtiWTInvColScaled_D97_JPEG2K_32f_C1R(L + ptrdiff_t(full) * kCols, kCols * 4, H + ptrdiff_t(full) * kCols,
                                                  kCols * 4, {cols, 1}, tail.data(), kCols * 4, py, kLowScale,
                                                  kHighScale);
            std::memcpy(dst + size_t(h - 1) * size_t(stride), tail.data(), bytes);
          }
        }
      }
    }
  };

  // Legitimate reversible coefficients stay within a few bits of the
  // samples; clamping damaged ones there keeps the 32-bit inverse exact.
  int32_t Limit(int c) const { return int32_t(1) << (prec[size_t(c)] + 5); }

  void Wavelet(Tile& tl, int c) {
    TileComp& tc = tl.comps[size_t(c)];
    const Coding& cod = tl.params.cod[size_t(c)];
    const int stride = tc.x1 - tc.x0;
    const int top = cod.levels - opt.reduce;
    std::vector<uint8_t> buf;
    Inverse97 inv;
    for (int r = 1; r <= top; ++r) {
      const Resolution& rs = tc.res[size_t(r)];
      const int w = rs.x1 - rs.x0, h = rs.y1 - rs.y0;
      if (w <= 0 || h <= 0) continue;
      if (cod.transform == 1) {
        const ImageRect rect{rs.x0, rs.y0, w, h};
        uint32_t bytes = 0;
        rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &bytes);
        if (buf.size() < bytes + 16) buf.resize(bytes + 16);
        // No clamp between levels: from inputs within +-lim a level adds at
        // most about 5.25 lim, so even 32 levels of 16-bit data stay below
        // 2^29 and the 32-bit inverse (and the RCT after it) cannot wrap.
        rvtiWTInv_B53_JPEG2K_32s_C1IR(tc.plane.data(), stride * 4, &rect, buf.data());
      } else {
        inv.Level(reinterpret_cast<float*>(tc.plane.data()), stride, w, h, rs.x0 & 1, rs.y0 & 1);
      }
    }
  }

  template <class F>
  void Parallel(int n, F&& f) {
    const int nt = std::max(1, std::min(opt.threads, n));
    if (nt == 1) {
      for (int i = 0; i < n; ++i) f(i, 0);
      return;
    }
    std::atomic<int> next{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < nt; ++t)
      pool.emplace_back([&, t] {
        for (int i; (i = next.fetch_add(1)) < n;) f(i, t);
      });
    for (std::thread& th : pool) th.join();
  }

  void DecodeTile(Tile& tl, DecodedImage& img) {
    if (uint64_t(tl.x1 - tl.x0) * uint64_t(tl.y1 - tl.y0) * uint64_t(C) > opt.maxSamples)
      throw Fail{"tile too large"};
    Layout(tl);
    Packets(tl);
    std::vector<Job> jobs;
    for (int c = 0; c < C; ++c) {
      TileComp& tc = tl.comps[size_t(c)];
      const Coding& cod = tl.params.cod[size_t(c)];
      for (int r = 0; r <= cod.levels - opt.reduce; ++r)
        for (Band& bd : tc.res[size_t(r)].bands)
          for (CodeBlock& cb : bd.blocks)
            jobs.push_back(Job{&tc, &bd, &cb, cod.style, cod.transform == 1, Limit(c)});
    }
    std::vector<std::vector<uint8_t>> work(size_t(std::max(1, opt.threads)));
    Parallel(int(jobs.size()), [&](int i, int t) { DecodeBlock(jobs[size_t(i)], work[size_t(t)]); });
    Parallel(C, [&](int c, int) { Wavelet(tl, c); });
    // Component transform on the first three components.
    const Coding& c0 = tl.params.cod[0];
    const int R = opt.reduce;
    auto regionW = [&](int c) {
      const Resolution& rs = tl.comps[size_t(c)].res[size_t(tl.params.cod[size_t(c)].levels - R)];
      return std::make_pair(rs.x1 - rs.x0, rs.y1 - rs.y0);
    };
    const auto sz0 = regionW(0);
    if (tl.params.mct && C >= 3 && sz0.first > 0 && sz0.second > 0) {
      bool same = true;
      for (int c = 1; c < 3; ++c)
        same &= regionW(c) == sz0 && tl.params.cod[size_t(c)].transform == c0.transform;
      if (!same) throw Fail{"component transform over unlike components"};
      const int stride = tl.x1 - tl.x0;
      if (c0.transform == 1) {
        int32_t* p[3] = {tl.comps[0].plane.data(), tl.comps[1].plane.data(), tl.comps[2].plane.data()};
        rvtiRCTInv_JPEG2K_32s_P3IR(p, stride * 4, {sz0.first, sz0.second});
      } else {
        float* p[3];
        for (int c = 0; c < 3; ++c) p[c] = reinterpret_cast<float*>(tl.comps[size_t(c)].plane.data());
        rvtiICTInv_JPEG2K_32f_P3IR(p, stride * 4, {sz0.first, sz0.second});
      }
    }
    // Level shift, rounding, clamping into the image.
    const Resolution& top0 = tl.comps[0].res[size_t(tl.params.cod[0].levels - R)];
    const int ox = top0.x0 - int(CeilDiv(X0, int64_t(1) << R)), oy = top0.y0 - int(CeilDiv(Y0, int64_t(1) << R));
    const int rw = top0.x1 - top0.x0, rh = top0.y1 - top0.y0;
    if (img.packed.empty()) {
      for (int c = 0; c < C; ++c) {
        const Output o = OutputOf(tl, c);
        for (int y = 0; y < rh; ++y) {
          int32_t* dst = &img.planes[size_t(c)][size_t(oy + y) * size_t(img.width) + size_t(ox)];
          o.Row(y, rw, [&](int x, int v) { dst[x] = v; });
        }
      }
    } else {
      // Interleaved 8-bit or big-endian 16-bit samples, one pass per row.
      const bool wide = prec[0] > 8;
      const size_t pix = size_t(C) * (wide ? 2 : 1);
      std::vector<Output> outs;
      for (int c = 0; c < C; ++c) outs.push_back(OutputOf(tl, c));
      for (int y = 0; y < rh; ++y) {
        uint8_t* row = &img.packed[(size_t(oy + y) * size_t(img.width) + size_t(ox)) * pix];
        for (int c = 0; c < C; ++c) {
          uint8_t* d = row + (wide ? 2 * c : c);
          if (wide) outs[size_t(c)].Row(y, rw, [&](int x, int v) { d[size_t(x) * pix] = uint8_t(v >> 8), d[size_t(x) * pix + 1] = uint8_t(v); });
          else outs[size_t(c)].Row(y, rw, [&](int x, int v) { d[size_t(x) * pix] = uint8_t(v); });
        }
      }
    }
    for (int c = 0; c < C; ++c) tl.comps[size_t(c)].plane.Free();
    tl.comps.clear();
    tl.data.clear();
  }

  // A component's final samples: level shift, rounding of 9/7 values (to
  // nearest, ties to even, as lrint), clamping to the sample range.
  struct Output {
    const int32_t* plane;
    int stride, lo, hi, shift;
    bool rev;
    template <class Put>
    void Row(int y, int n, Put&& put) const {
      const int32_t* src = plane + size_t(y) * size_t(stride);
      if (rev) {
        for (int x = 0; x < n; ++x) {
          const int v = src[x] + shift;
          put(x, v < lo ? lo : v > hi ? hi : v);
        }
        return;
      }
      // Clamped in float first (a damaged NaN counts as 0), then rounded
      // by the 1.5 x 2^23 trick, exact below 2^22.
      const float flo = float(lo - shift - 1), fhi = float(hi - shift + 1);
      for (int x = 0; x < n; ++x) {
        float f;
        std::memcpy(&f, &src[x], 4);
        f = f == f ? f : 0.f;
        f = f < flo ? flo : f > fhi ? fhi : f;
        const int v = int((f + 12582912.f) - 12582912.f) + shift;
        put(x, v < lo ? lo : v > hi ? hi : v);
      }
    }
  };
  Output OutputOf(Tile& tl, int c) {
    TileComp& tc = tl.comps[size_t(c)];
    const int pr = prec[size_t(c)];
    Output o;
    o.plane = tc.plane.data();
    o.stride = tc.x1 - tc.x0;
    o.rev = tl.params.cod[size_t(c)].transform == 1;
    o.lo = sgn[size_t(c)] ? -(1 << (pr - 1)) : 0;
    o.hi = sgn[size_t(c)] ? (1 << (pr - 1)) - 1 : (1 << pr) - 1;
    o.shift = sgn[size_t(c)] ? 0 : 1 << (pr - 1);
    return o;
  }

  void Run(const uint8_t* cs, size_t size, DecodedImage& img) {
    Parse(cs, size);
    const int R = opt.reduce;
    img.width = int(CeilDiv(X1, int64_t(1) << R) - CeilDiv(X0, int64_t(1) << R));
    img.height = int(CeilDiv(Y1, int64_t(1) << R) - CeilDiv(Y0, int64_t(1) << R));
    img.comps = C;
    img.precision = prec[0];
    img.isSigned = sgn[0];
    for (int c = 1; c < C; ++c) img.uniform &= prec[size_t(c)] == prec[0] && sgn[size_t(c)] == sgn[0];
    // Tiles that never arrived are left mid-grey; the image is filled
    // only when there are such tiles.
    bool missing = false;
    for (const Tile& tl : tiles) missing |= !tl.seen;
    const size_t area = size_t(img.width) * size_t(img.height);
    if (opt.packed && img.uniform && !img.isSigned) {
      const bool wide = prec[0] > 8;
      img.packed.resize(area * size_t(C) * (wide ? 2 : 1));
      if (missing) {
        const int fill = 1 << (prec[0] - 1);
        for (size_t i = 0; i < area * size_t(C); ++i) {
          if (wide) img.packed[2 * i] = uint8_t(fill >> 8), img.packed[2 * i + 1] = uint8_t(fill);
          else img.packed[i] = uint8_t(fill);
        }
      }
    } else {
      img.planes.assign(size_t(C), {});
      for (int c = 0; c < C; ++c) {
        const int fill = sgn[size_t(c)] ? 0 : 1 << (prec[size_t(c)] - 1);
        if (missing) img.planes[size_t(c)].assign(area, fill);
        else img.planes[size_t(c)].resize(area);
      }
    }
    for (Tile& tl : tiles)
      if (tl.seen) DecodeTile(tl, img);
  }
};

// The code-stream of a .jp2 file (its jp2c box), or the data itself.
std::pair<const uint8_t*, size_t> CodeStream(const uint8_t* f, size_t size) {
  if (size >= 12 && Get32(f) == 12 && Get32(f + 4) == 0x6A502020) {
    size_t pos = 0;
    while (pos + 8 <= size) {
      uint64_t len = Get32(f + pos);
      const uint32_t type = Get32(f + pos + 4);
      size_t head = 8;
      if (len == 1) {
        if (pos + 16 > size) break;
        len = uint64_t(Get32(f + pos + 8)) << 32 | Get32(f + pos + 12);
        head = 16;
      }
      if (len == 0) len = size - pos;
      if (len < head || len > size - pos) break;
      if (type == 0x6A703263) return {f + pos + head, size_t(len) - head};
      pos += size_t(len);
    }
    throw Fail{"no code-stream box in the jp2 file"};
  }
  return {f, size};
}

}  // namespace

bool Decode(const uint8_t* data, size_t size, const DecodeOptions& options, DecodedImage* image,
            std::string* error) {
  try {
    if (options.layers < 0 || options.reduce < 0 || options.threads < 1) throw Fail{"bad decoding options"};
    Decoder d;
    d.opt = options;
    const auto cs = CodeStream(data, size);
    DecodedImage img;
    d.Run(cs.first, cs.second, img);
    *image = std::move(img);
    return true;
  } catch (const Fail& f) {
    *error = f.why;
  } catch (const std::bad_alloc&) {
    *error = "out of memory";
  }
  return false;
}

}  // namespace rvtj2k
