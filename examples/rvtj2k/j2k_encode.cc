// rvtj2k's encoder.  The library does the pixel and entropy work: the
// component transforms (RCT, ICT), the wavelets (whole 5/3 levels; the
// float 9/7 row and column passes, whose borders are extended here) and
// tier-1 code-block coding; this file quantizes, allocates the rate
// (PCRD-opt over the code-blocks' truncation points) and lays out the
// code-stream.
//
// What it writes: the image at the origin, one tile or tiles of -tiles WxH
// (one tile-part each), 1 or 3 components of equal size and precision
// (unsigned, 1..16 bits), one precinct per resolution (so at most 32768
// samples a side), any of the five progression orders, SOP/EPH on request.
// -levels beyond what the tile's smaller side allows are refused; without
// it, 5 levels or as many as that side allows.
//   lossless (default): 5/3, RCT for colour, no quantization; with several
//     layers the earlier ones take 1/2, 1/4, ... of the lossless size and
//     the last holds every pass.
//   -rate R: 9/7 in float, ICT for colour, step sizes 1/norm per band
//     (each band's quantization error weighs the same in the image); the
//     last layer hits raw/R bytes (the whole code-stream), earlier layers
//     1/2, 1/4, ... of it.  With every pass included a stream may stay
//     below raw/R; headers alone may pass it for tiny images.
// -threads N shares out the sample rows, the component transform's rows,
// each 9/7 level's column strips and row groups, the 5/3 components and
// the code-blocks of all components (dynamically); the bytes do not change.
#include "j2k_encode.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <sys/mman.h>

#include "image_io.h"
#include "j2k_codestream.h"
#include "rvtjp.h"

namespace rvtj2k {
namespace {

struct Fail {
  std::string why;
};

struct Options {
  std::string in, out;
  bool lossy = false;
  double rate = 0;
  int levels = -1;  // -1: 5, fewer for small images
  int cbw = 64, cbh = 64;
  int layers = 1;
  int mode = 0;
  int order = kLRCP;
  bool sop = false, eph = false;
  int tw = 0, th = 0;  // 0: one tile
  int threads = 1;
};

int ParseInt(const char* s, int lo, int hi, const char* what) {
  char* end = nullptr;
  const long v = std::strtol(s, &end, 10);
  if (!*s || *end || v < lo || v > hi) throw Fail{std::string("bad ") + what + ": " + s};
  return int(v);
}

void ParseSize(const char* s, int* w, int* h, const char* what) {
  const char* x = std::strchr(s, 'x');
  if (!x) throw Fail{std::string("bad ") + what + " (WxH): " + s};
  *w = ParseInt(std::string(s, x).c_str(), 1, 1 << 30, what);
  *h = ParseInt(x + 1, 1, 1 << 30, what);
}

Options ParseOptions(int argc, char** argv) {
  if (argc < 2) throw Fail{"usage: rvtj2k encode IN OUT.j2k|OUT.jp2 [options]"};
  Options o;
  o.in = argv[0];
  o.out = argv[1];
  for (int i = 2; i < argc; ++i) {
    const std::string a = argv[i];
    auto next = [&]() -> const char* {
      if (i + 1 >= argc) throw Fail{a + " needs a value"};
      return argv[++i];
    };
    if (a == "-lossless") {
      o.lossy = false;
    } else if (a == "-rate") {
      char* end = nullptr;
      const char* s = next();
      o.rate = std::strtod(s, &end);
      if (!*s || *end || !(o.rate >= 1) || o.rate > 1e6) throw Fail{std::string("bad rate: ") + s};
      o.lossy = true;
    } else if (a == "-levels") {
      o.levels = ParseInt(next(), 0, 32, "levels");
    } else if (a == "-cblk") {
      ParseSize(next(), &o.cbw, &o.cbh, "code-block size");
      auto pow2 = [](int v) { return v >= 4 && v <= 1024 && (v & (v - 1)) == 0; };
      if (!pow2(o.cbw) || !pow2(o.cbh) || o.cbw * o.cbh > 4096)
        throw Fail{"code-block sides are powers of two from 4 to 1024, area at most 4096"};
    } else if (a == "-layers") {
      o.layers = ParseInt(next(), 1, 65535, "layers");
    } else if (a == "-mode") {
      o.mode = ParseInt(next(), 0, 63, "mode");
    } else if (a == "-order") {
      const std::string s = next();
      const char* names[] = {"LRCP", "RLCP", "RPCL", "PCRL", "CPRL"};
      o.order = -1;
      for (int k = 0; k < 5; ++k)
        if (s == names[k]) o.order = k;
      if (o.order < 0) throw Fail{"bad order: " + s};
    } else if (a == "-threads") {
      o.threads = ParseInt(next(), 1, 64, "threads");
    } else if (a == "-SOP") {
      o.sop = true;
    } else if (a == "-EPH") {
      o.eph = true;
    } else if (a == "-tiles") {
      ParseSize(next(), &o.tw, &o.th, "tile size");
    } else {
      throw Fail{"unknown option " + a};
    }
  }
  return o;
}

// ------------------------------------------------------------- wavelets

// Index into a whole-sample symmetric extension of a signal of length n.
int Reflect(int i, int n) {
  if (n == 1) return 0;
  const int period = 2 * (n - 1);
  i %= period;
  if (i < 0) i += period;
  return i < n ? i : period - i;
}

void Check(RvtResult r, const char* what) {
  if (r != rvtStatusOk) throw Fail{std::string(what) + " refused its arguments"};
}

// Runs f(0), ..., f(n - 1) on up to `threads` threads (this one among
// them); the first failure is thrown again here once all have stopped.
template <class F>
void Parallel(int n, int threads, F f) {
  std::atomic<int> next{0};
  std::exception_ptr err;
  std::mutex lock;
  auto work = [&] {
    for (int i; (i = next++) < n;) {
      try {
        f(i);
      } catch (...) {
        std::lock_guard<std::mutex> g(lock);
        if (!err) err = std::current_exception();
        next = n;
      }
    }
  };
  std::vector<std::thread> pool;
  for (int k = 1; k < std::min(threads, n); ++k) pool.emplace_back(work);
  work();
  for (std::thread& th : pool) th.join();
  if (err) std::rethrow_exception(err);
}

// One forward 9/7 level on the w x h region at the top left of plane, whose
// first sample has the parities px, py on its level's grid (odd: a
// high-pass sample): columns first, then rows; low-pass halves first.  A
// line of one sample is kept, or doubled when odd.  The plane has a border
// of kBorder samples on every side: the passes read their symmetric
// extension there and, past the region's right and bottom edges, in
// samples of the previous level's bands, which are put back afterwards.
//
// Both passes go in cache-sized pieces, columns in strips of kCols, rows
// in groups of kRows: their low and high halves stay in small buffers on
// their way back into the plane.
// Dead-zone quantizer of one row: the magnitude's floor in steps, the
// sign put back; non-zero when a value does not fit (or is not a number).
// Restrict pointers and a branch-free body let the compiler vectorize it.
// *maxMag rises to the largest magnitude written.  Cloned for AVX2, picked
// when the program loads.
#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
int QuantizeRow(const float* __restrict src, int32_t* __restrict dst, int n, float inv, int32_t* maxMag) {
  int tooLarge = 0;
  int32_t mx = *maxMag;
  for (int x = 0; x < n; ++x) {
    const float v = src[x];
    const float q = std::fabs(v) * inv;
    const int fits = q < 2147483520.f;
    tooLarge |= fits ^ 1;
    const int32_t m = int32_t(fits ? q : 0.f);
    mx = m > mx ? m : mx;
    dst[x] = v < 0 ? -m : m;
  }
  *maxMag = mx;
  return tooLarge;
}

// Level-shifted samples of one interleaved RGB row into three planes
// (float for the 9/7 path, int for the 5/3 one); cloned like QuantizeRow.
template <class S, class T>
inline void SplitRow3Body(const S* __restrict src, T* __restrict r0, T* __restrict r1, T* __restrict r2, int n,
                          int shift) {
  for (int x = 0; x < n; ++x) {
    r0[x] = T(int32_t(src[3 * x]) - shift);
    r1[x] = T(int32_t(src[3 * x + 1]) - shift);
    r2[x] = T(int32_t(src[3 * x + 2]) - shift);
  }
}
#if defined(__x86_64__) && defined(__GNUC__)
#define RVTJ2K_CLONED __attribute__((target_clones("avx2", "default")))
#else
#define RVTJ2K_CLONED
#endif
#define RVTJ2K_SPLIT(name, S, T)                                                \
  RVTJ2K_CLONED void name(const S* src, T* r0, T* r1, T* r2, int n, int shift) { \
    SplitRow3Body(src, r0, r1, r2, n, shift);                                   \
  }                                                                             \
  inline void SplitRow3(const S* src, T* r0, T* r1, T* r2, int n, int shift) { name(src, r0, r1, r2, n, shift); }
RVTJ2K_SPLIT(SplitRow3WF, uint16_t, float)
RVTJ2K_SPLIT(SplitRow3WI, uint16_t, int32_t)
RVTJ2K_SPLIT(SplitRow3BF, uint8_t, float)
RVTJ2K_SPLIT(SplitRow3BI, uint8_t, int32_t)
#undef RVTJ2K_SPLIT

// Where one level's high-pass bands go when the row pass quantizes them
// on their way out: rows above lowRows hold LL and HL, the others LH and
// HH; the int plane has the float plane's layout (own stride).
struct BandQuant {
  int32_t* plane = nullptr;
  size_t stride = 0;
  int lowRows = 0;
  float invHL = 1, invLH = 1, invHH = 1;
  int tooLarge = 0;
  int32_t maxHL = 0, maxLH = 0, maxHH = 0;  // largest magnitudes written
  bool done = false;
};

constexpr int kBorder = 8;
int CeilDivPos(int a, int d) { return (a + d - 1) / d; }
struct Wavelet97 {
  static constexpr int kCols = 64, kRows = 16;
  std::vector<float> keep;
  // With threads > 1 the column strips, then the row groups, are shared
  // out in contiguous runs, each with its own buffers (and maxima, merged
  // afterwards): the coefficients do not depend on the split.
  void Level(float* p, int stride, int w, int h, int px, int py, BandQuant* bq, int threads) {
    const size_t s = size_t(stride);
    if (h == 1 && py) {
      for (int x = 0; x < w; ++x) p[x] *= 2;
    } else if (h > 1) {
      const int n = (h + 1) / 2, nl = py ? h / 2 : n, nh = h - nl, after = 2 * n + 4 - h;
      keep.resize(size_t(after) * w);
      for (int i = 0; i < after; ++i) std::memcpy(&keep[size_t(i) * w], p + (h + i) * s, sizeof(float) * w);
      for (int i = -4; i < 0; ++i) std::memcpy(p + i * ptrdiff_t(s), p + size_t(Reflect(i, h)) * s, sizeof(float) * w);
      for (int i = h; i < 2 * n + 4; ++i) std::memcpy(p + i * s, p + size_t(Reflect(i, h)) * s, sizeof(float) * w);
      const int strips = CeilDivPos(w, kCols), runs = std::min(strips, 4 * threads);
      Parallel(runs, threads, [&](int k) {
        std::vector<float> lo(size_t(n) * kCols), hi(size_t(n) * kCols);
        for (int x0 = strips * k / runs * kCols; x0 < std::min(w, strips * (k + 1) / runs * kCols); x0 += kCols) {
          const int cols = std::min(kCols, w - x0);
          Check(rvtiWTFwdCol_D97_JPEG2K_32f_C1R(p + x0, stride * 4, lo.data(), kCols * 4, hi.data(), kCols * 4,
                                                {cols, n}, py),
                "the 9/7 column pass");
          // Rows below h still feed the next strips: only rows above it are written.
          auto put = [&](float* d, const float* src) {
            if (cols == kCols) std::memcpy(d, src, sizeof(float) * kCols);
            else std::memcpy(d, src, sizeof(float) * size_t(cols));
          };
          for (int y = 0; y < nl; ++y) put(p + y * s + x0, &lo[size_t(y) * kCols]);
          for (int y = 0; y < nh; ++y) put(p + (nl + y) * s + x0, &hi[size_t(y) * kCols]);
        }
      });
      for (int i = 0; i < after; ++i) std::memcpy(p + (h + i) * s, &keep[size_t(i) * w], sizeof(float) * w);
    }
    if (w == 1 && px) {
      for (int y = 0; y < h; ++y) p[y * s] *= 2;
    } else if (w > 1) {
      const int n = (w + 1) / 2, nl = px ? w / 2 : n, nh = w - nl, after = 2 * n + 4 - w;
      const int groups = CeilDivPos(h, kRows), runs = std::max(1, std::min(groups, 4 * threads));
      std::vector<BandQuant> part(size_t(runs), bq ? *bq : BandQuant{});
      Parallel(runs, threads, [&](int k) {
        std::vector<float> kp(size_t(after) * kRows), lo(size_t(n) * kRows), hi(size_t(n) * kRows);
        BandQuant& q = part[size_t(k)];
        for (int y0 = groups * k / runs * kRows; y0 < std::min(h, groups * (k + 1) / runs * kRows); y0 += kRows) {
          const int rows = std::min(kRows, h - y0);
          for (int y = 0; y < rows; ++y) {
            float* row = p + (y0 + y) * s;
            std::memcpy(&kp[size_t(y) * after], row + w, sizeof(float) * after);
            for (int i = -4; i < 0; ++i) row[i] = row[Reflect(i, w)];
            for (int i = w; i < 2 * n + 4; ++i) row[i] = row[Reflect(i, w)];
          }
          Check(rvtiWTFwdRow_D97_JPEG2K_32f_C1R(p + y0 * s, stride * 4, lo.data(), n * 4, hi.data(), n * 4,
                                                {n, rows}, px),
                "the 9/7 row pass");
          for (int y = 0; y < rows; ++y) {
            float* row = p + (y0 + y) * s;
            std::memcpy(row + w, &kp[size_t(y) * after], sizeof(float) * after);
            if (!bq) {
              std::memcpy(row, &lo[size_t(y) * n], sizeof(float) * nl);
              std::memcpy(row + nl, &hi[size_t(y) * n], sizeof(float) * nh);
              continue;
            }
            int32_t* qrow = q.plane + size_t(y0 + y) * q.stride;
            if (y0 + y < q.lowRows) {
              std::memcpy(row, &lo[size_t(y) * n], sizeof(float) * nl);
              q.tooLarge |= QuantizeRow(&hi[size_t(y) * n], qrow + nl, nh, q.invHL, &q.maxHL);
            } else {
              q.tooLarge |= QuantizeRow(&lo[size_t(y) * n], qrow, nl, q.invLH, &q.maxLH);
              q.tooLarge |= QuantizeRow(&hi[size_t(y) * n], qrow + nl, nh, q.invHH, &q.maxHH);
            }
          }
        }
      });
      if (bq) {
        for (const BandQuant& q : part) {
          bq->tooLarge |= q.tooLarge;
          bq->maxHL = std::max(bq->maxHL, q.maxHL);
          bq->maxLH = std::max(bq->maxLH, q.maxLH);
          bq->maxHH = std::max(bq->maxHH, q.maxHH);
        }
        bq->done = true;
      }
    }
  }
};

// L2 norm of the synthesis basis function of a one-dimensional band: the
// low- or high-pass band of level j (1 = finest), or the low-pass residue
// after j levels with high = false.  Computed by running the inverse
// lifting (linear, in double) on an impulse.
double Norm1D(bool irreversible, int j, bool high) {
  if (j == 0) return 1.0;
  if (j > 12)  // each further level scales the norm by the low-pass growth
    return Norm1D(irreversible, 12, high) *
           std::pow(Norm1D(irreversible, 12, false) / Norm1D(irreversible, 11, false), j - 12);
  const int n = 64 << j;
  std::vector<int> len(size_t(j) + 1);
  len[0] = n;
  for (int k = 1; k <= j; ++k) len[size_t(k)] = (len[size_t(k) - 1] + 1) / 2;
  // Level j's interleaved signal: low at even, high at odd positions.
  std::vector<double> x(size_t(len[size_t(j) - 1]), 0.0);
  const int m = len[size_t(j) - 1] / 2;
  x[size_t(high ? (m | 1) : (m & ~1))] = 1.0;
  for (int k = j - 1; k >= 0; --k) {
    const int L = len[size_t(k)];
    if (k != j - 1) {  // interleave: low from the coarser level, zero highs
      std::vector<double> y(size_t(L), 0.0);
      for (int i = 0; 2 * i < L; ++i) y[size_t(2 * i)] = x[size_t(i)];
      x.swap(y);
    }
    auto lift = [&](int parity, double c) {
      for (int i = parity; i < L; i += 2) x[size_t(i)] += c * (x[size_t(Reflect(i - 1, L))] + x[size_t(Reflect(i + 1, L))]);
    };
    if (irreversible) {
      const double K = 1.230174104914001;
      for (int i = 0; i < L; ++i) x[size_t(i)] *= (i & 1) ? 1 / K : K;
      lift(0, -0.443506852043971);
      lift(1, -0.882911075530934);
      lift(0, 0.052980118572961);
      lift(1, 1.586134342059924);
    } else {
      lift(0, -0.25);
      lift(1, 0.5);
    }
  }
  double s = 0;
  for (double v : x) s += v * v;
  return std::sqrt(s);
}

// --------------------------------------------------------------- layout

struct Block {
  int x0, y0, w, h;  // in the tile's coefficient plane
  int sf = 0, passes = 0;
  Bytes data;
  std::vector<int32_t> rate;  // bytes through pass k
  std::vector<double> dist;   // weighted distortion decrease through pass k
  std::vector<int> hullN;     // truncation points on the convex hull (passes)
  std::vector<double> hullSlope;
  std::vector<int> upto;  // passes included through each layer
};

struct Band {
  int type = 0, index = 0;  // index: the band's QCD entry
  int px = 0, py = 0, w = 0, h = 0;  // where it lies in the tile's plane
  int nx = 0, ny = 0, magnBits = 0;
  double delta = 1, weight = 1;
  int32_t maxMag = -1;  // largest quantized magnitude, when the quantizer measured it
  std::vector<Block> blocks;  // raster order over the band's code-block grid
};

struct Component {
  std::vector<std::vector<Band>> res;
};

// A coefficient plane left uninitialized (every sample the coder reads is
// written first): a fresh allocation of this size comes straight from the
// kernel, so zeroing it would only add a pass and a page fault per 4 KiB;
// in 2 MiB pieces the kernel may back it with huge pages.
class Plane {
 public:
  void Reset(size_t n) {
    Free();
    const size_t huge = size_t(2) << 20, bytes = (n * sizeof(int32_t) + huge - 1) / huge * huge;
    p_ = static_cast<int32_t*>(std::aligned_alloc(huge, bytes));
    if (!p_) throw Fail{"out of memory"};
#ifdef MADV_HUGEPAGE
    madvise(p_, bytes, MADV_HUGEPAGE);
#endif
  }
  int32_t* data() { return p_; }
  Plane() = default;
  Plane(Plane&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  Plane& operator=(Plane&& o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  ~Plane() { Free(); }

 private:
  void Free() {
    std::free(p_);
    p_ = nullptr;
  }
  int32_t* p_ = nullptr;
};

struct Tile {
  int x0, y0, x1, y1;
  // Per component: the coefficients, row y at base[c] + y * stride.  The
  // 9/7 path keeps them where its float samples were (the plane with the
  // wavelet's border), so the indices need no second plane.
  std::vector<Plane> plane;
  std::vector<int32_t*> base;
  size_t stride = 0;
  int32_t* At(int c, int x, int y) { return base[size_t(c)] + size_t(y) * stride + size_t(x); }
  std::vector<Component> comp;
  int w() const { return x1 - x0; }
  int h() const { return y1 - y0; }
};

constexpr int kMaxPassesPerBlock = 3 * 31 - 2;

int CeilDiv(int a, int d) { return int((int64_t(a) + d - 1) / d); }
int FloorDiv(int a, int d) { return a / d; }

struct Encoder {
  Options opt;
  rvtjpeg::Image16 img;
  MainHeader mh;
  int W = 0, H = 0, C = 0, TW = 0, TH = 0, levels = 0;
  std::vector<Tile> tiles;
  std::vector<double> bandDelta, bandNorm;  // per QCD entry
  rvtjpeg::MappedPnm8 pnm8;  // the samples, when an 8-bit PNM (img.samples stays empty)

  void Load() {
    std::string err;
    if (pnm8.Open(opt.in)) {
      img.width = pnm8.width, img.height = pnm8.height, img.channels = pnm8.channels, img.precision = 8;
    } else if (!rvtjpeg::ReadImage16(opt.in, &img, &err)) {
      throw Fail{err};
    }
    W = img.width;
    H = img.height;
    C = img.channels;
    if (C != 1 && C != 3) throw Fail{"only grey and RGB images"};
    if (img.precision < 1 || img.precision > 16) throw Fail{"precision above 16 bits"};
    // One precinct per resolution covers at most 2^15 coefficients a side.
    if (W > 32768 || H > 32768) throw Fail{"images larger than 32768 a side"};
    TW = opt.tw ? std::min(opt.tw, W) : W;
    TH = opt.th ? std::min(opt.th, H) : H;
    int maxLevels = 0;
    while (maxLevels < 32 && ((std::min(TW, TH) >> (maxLevels + 1)) > 0)) ++maxLevels;
    if (opt.levels < 0) levels = std::min(5, maxLevels);
    else if (opt.levels > maxLevels) throw Fail{"too many levels for the image (or tile) size"};
    else levels = opt.levels;
    for (int ty = 0; ty < CeilDiv(H, TH); ++ty)
      for (int tx = 0; tx < CeilDiv(W, TW); ++tx) {
        Tile tl{};
        tl.x0 = tx * TW, tl.y0 = ty * TH, tl.x1 = std::min(W, (tx + 1) * TW), tl.y1 = std::min(H, (ty + 1) * TH);
        tiles.push_back(std::move(tl));
      }
    if (tiles.size() > 65535) throw Fail{"more than 65535 tiles"};
  }

  // Step sizes, QCD exponents and synthesis norms per band (LL, then HL,
  // LH, HH per level from the smallest).
  void Quantizers() {
    const int prec = img.precision;
    for (int r = 0; r <= levels; ++r) {
      const int j = r == 0 ? levels : levels - r + 1;
      for (int type : r == 0 ? std::vector<int>{rvtJ2KBandLL}
                             : std::vector<int>{rvtJ2KBandHL, rvtJ2KBandLH, rvtJ2KBandHH}) {
        const bool hx = type == rvtJ2KBandHL || type == rvtJ2KBandHH;
        const bool hy = type == rvtJ2KBandLH || type == rvtJ2KBandHH;
        const double norm = Norm1D(opt.lossy, j, hx) * Norm1D(opt.lossy, j, hy);
        const int gain = (hx ? 1 : 0) + (hy ? 1 : 0);
        int expn = prec + gain, mant = 0;
        double delta = 1;
        if (opt.lossy) {
          // Step 1/norm, written as 2^(R - expn) (1 + mant / 2048), R = prec + gain.
          const double want = 1.0 / norm;
          const int p = int(std::floor(std::log2(want)));
          mant = int(std::lround((want / std::ldexp(1.0, p) - 1) * 2048));
          expn = prec + gain - p;
          if (mant >= 2048) mant = 0, --expn;
          if (expn < 0 || expn > 31) throw Fail{"step size out of range"};
          delta = std::ldexp(1.0 + mant / 2048.0, prec + gain - expn);
        }
        mh.exponent.push_back(expn);
        mh.mantissa.push_back(mant);
        bandDelta.push_back(delta);
        bandNorm.push_back(norm);
      }
    }
  }

  // Band geometry of a tile: resolution r's rectangle is the tile's scaled
  // by 2^-(levels - r), rounded up; the in-place wavelet leaves each
  // level's low-pass coefficients first.  Code-blocks follow the band's
  // own grid, anchored at its coordinate 0.
  void Layout(Tile& t) {
    const double rctNorm[3] = {std::sqrt(3.0), std::sqrt(11.0 / 16), std::sqrt(11.0 / 16)};
    const double ictNorm[3] = {std::sqrt(3.0), std::hypot(0.34413, 1.772), std::hypot(1.402, 0.71414)};
    t.comp.resize(size_t(C));
    for (int c = 0; c < C; ++c) {
      Component& cp = t.comp[size_t(c)];
      cp.res.resize(size_t(levels) + 1);
      int index = 0;
      for (int r = 0; r <= levels; ++r) {
        const int d = levels - r;
        const int rx0 = CeilDiv(t.x0, 1 << d), ry0 = CeilDiv(t.y0, 1 << d);
        const int rx1 = CeilDiv(t.x1, 1 << d), ry1 = CeilDiv(t.y1, 1 << d);
        // Low-pass counts of the resolution's lines.
        const int nlx = CeilDiv(rx1, 2) - CeilDiv(rx0, 2), nly = CeilDiv(ry1, 2) - CeilDiv(ry0, 2);
        const int rw = rx1 - rx0, rh = ry1 - ry0;
        std::vector<Band>& bands = cp.res[size_t(r)];
        for (int type : r == 0 ? std::vector<int>{rvtJ2KBandLL}
                               : std::vector<int>{rvtJ2KBandHL, rvtJ2KBandLH, rvtJ2KBandHH}) {
          Band bd;
          bd.type = type;
          bd.index = index++;
          const bool hx = type == rvtJ2KBandHL || type == rvtJ2KBandHH;
          const bool hy = type == rvtJ2KBandLH || type == rvtJ2KBandHH;
          int bx0, by0;  // band coordinates of the first coefficient
          if (r == 0) {
            bx0 = rx0, by0 = ry0;
            bd.w = rw, bd.h = rh;
          } else {
            bx0 = hx ? FloorDiv(rx0, 2) : CeilDiv(rx0, 2);
            by0 = hy ? FloorDiv(ry0, 2) : CeilDiv(ry0, 2);
            bd.px = hx ? nlx : 0;
            bd.py = hy ? nly : 0;
            bd.w = hx ? rw - nlx : nlx;
            bd.h = hy ? rh - nly : nly;
          }
          bd.delta = bandDelta[size_t(bd.index)];
          const double mct = C == 3 ? (opt.lossy ? ictNorm[c] : rctNorm[c]) : 1.0;
          bd.weight = std::pow(bd.delta * bandNorm[size_t(bd.index)] * mct, 2);
          if (bd.w > 0 && bd.h > 0) {
            const int gx0 = bx0 / opt.cbw, gy0 = by0 / opt.cbh;
            bd.nx = CeilDiv(bx0 + bd.w, opt.cbw) - gx0;
            bd.ny = CeilDiv(by0 + bd.h, opt.cbh) - gy0;
            for (int y = 0; y < bd.ny; ++y)
              for (int x = 0; x < bd.nx; ++x) {
                const int ax = std::max(bx0, (gx0 + x) * opt.cbw), ay = std::max(by0, (gy0 + y) * opt.cbh);
                const int ex = std::min(bx0 + bd.w, (gx0 + x + 1) * opt.cbw);
                const int ey = std::min(by0 + bd.h, (gy0 + y + 1) * opt.cbh);
                Block b;
                b.x0 = bd.px + ax - bx0;
                b.y0 = bd.py + ay - by0;
                b.w = ex - ax;
                b.h = ey - ay;
                bd.blocks.push_back(std::move(b));
              }
          }
          bands.push_back(std::move(bd));
        }
      }
    }
  }

  // f(y0, rows) over runs of rows covering 0..h-1, shared out between the
  // threads.
  template <class F>
  void RowRuns(int h, F f) {
    const int runs = std::max(1, std::min(h, 4 * opt.threads));
    Parallel(runs, opt.threads, [&](int k) {
      const int y0 = int(int64_t(h) * k / runs), y1 = int(int64_t(h) * (k + 1) / runs);
      if (y1 > y0) f(y0, y1 - y0);
    });
  }

  // Level-shifted samples, component transform, wavelet, quantization.
  void Transform(Tile& t) {
    const int prec = img.precision, shift = 1 << (prec - 1);
    const int tw = t.w(), th = t.h();
    const size_t n = size_t(tw) * th;
    // All components in one pass over the interleaved samples (rows shared
    // out between threads): dst[c] + y * stride is row y of component c.
    auto allSamples = [&](auto* const* dst, size_t stride) {
      auto row = [&](const auto* src, int y) {
        if (C == 3) {
          SplitRow3(src, dst[0] + size_t(y) * stride, dst[1] + size_t(y) * stride, dst[2] + size_t(y) * stride, tw,
                    shift);
        } else {
          auto* r0 = dst[0] + size_t(y) * stride;
          using T = std::remove_reference_t<decltype(r0[0])>;
          for (int x = 0; x < tw; ++x) r0[x] = T(int32_t(src[x]) - shift);
        }
      };
      const int parts = std::max(1, std::min(opt.threads, th));
      Parallel(parts, opt.threads, [&](int k) {
        for (int y = th * k / parts; y < th * (k + 1) / parts; ++y) {
          const size_t at = (size_t(t.y0 + y) * size_t(W) + size_t(t.x0)) * size_t(C);
          if (pnm8.samples) row(pnm8.samples + at, y);
          else row(&img.samples[at], y);
        }
      });
    };
    // With -threads N the components' wavelets (and quantizers) run side
    // by side; the component transform before them takes all three.
    t.plane.clear();
    t.plane.resize(size_t(C));
    t.base.assign(size_t(C), nullptr);
    if (!opt.lossy) {
      for (int c = 0; c < C; ++c) t.plane[size_t(c)].Reset(n);
      for (int c = 0; c < C; ++c) t.base[size_t(c)] = t.plane[size_t(c)].data();
      t.stride = size_t(tw);
      int32_t* ip[3] = {};
      for (int c = 0; c < C; ++c) ip[c] = t.plane[size_t(c)].data();
      allSamples(ip, size_t(tw));
      if (C == 3) {
        RowRuns(th, [&](int y0, int rows) {
          int32_t* p[3] = {t.base[0] + size_t(y0) * tw, t.base[1] + size_t(y0) * tw, t.base[2] + size_t(y0) * tw};
          Check(rvtiRCTFwd_JPEG2K_32s_P3IR(p, tw * 4, {tw, rows}), "the RCT");
        });
      }
      Parallel(C, opt.threads, [&](int c) {
        std::vector<uint8_t> buf;
        for (int d = 0; d < levels; ++d) {
          const int rx0 = CeilDiv(t.x0, 1 << d), ry0 = CeilDiv(t.y0, 1 << d);
          const ImageRect rect{rx0, ry0, CeilDiv(t.x1, 1 << d) - rx0, CeilDiv(t.y1, 1 << d) - ry0};
          if (rect.width == 0 || rect.height == 0) break;
          uint32_t bytes = 0;
          Check(rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &bytes), "the 5/3 buffer size");
          buf.resize(bytes + 1);
          Check(rvtiWTFwd_B53_JPEG2K_32s_C1IR(t.plane[size_t(c)].data(), tw * 4, &rect, buf.data()),
                "the 5/3 wavelet");
        }
      });
      return;
    }
    // Float planes with the wavelet's border around them.
    const int fs = tw + 2 * kBorder;
    float* fp[3] = {};
    for (int c = 0; c < C; ++c) {
      // The border is zeroed (the passes extend into it, but read whole
      // vectors), the samples are written below.
      Plane& pl = t.plane[size_t(c)];
      pl.Reset(size_t(fs) * (th + 2 * kBorder));
      std::memset(pl.data(), 0, sizeof(int32_t) * size_t(fs) * kBorder);
      std::memset(pl.data() + size_t(fs) * (kBorder + th), 0, sizeof(int32_t) * size_t(fs) * kBorder);
      for (int y = 0; y < th; ++y) {
        int32_t* row = pl.data() + size_t(fs) * (kBorder + y);
        std::memset(row, 0, sizeof(int32_t) * kBorder);
        std::memset(row + kBorder + tw, 0, sizeof(int32_t) * kBorder);
      }
      int32_t* origin = pl.data() + size_t(kBorder) * fs + kBorder;
      t.base[size_t(c)] = origin;
      fp[c] = reinterpret_cast<float*>(origin);
    }
    t.stride = size_t(fs);
    allSamples(fp, size_t(fs));
    if (C == 3)
      RowRuns(th, [&](int y0, int rows) {
        float* p[3] = {fp[0] + size_t(y0) * fs, fp[1] + size_t(y0) * fs, fp[2] + size_t(y0) * fs};
        Check(rvtiICTFwd_JPEG2K_32f_P3IR(p, fs * 4, {tw, rows}), "the ICT");
      });
    for (int c = 0; c < C; ++c) {
      Wavelet97 wt;
      auto& res = t.comp[size_t(c)].res;
      std::vector<bool> quantized(res.size(), false);
      for (int d = 0; d < levels; ++d) {
        const int rx0 = CeilDiv(t.x0, 1 << d), ry0 = CeilDiv(t.y0, 1 << d);
        if (CeilDiv(t.x1, 1 << d) == rx0 || CeilDiv(t.y1, 1 << d) == ry0) break;
        // The level's HL, LH and HH bands are quantized by its row pass.
        const std::vector<Band>& bands = res[size_t(levels - d)];
        BandQuant bq{t.base[size_t(c)], size_t(fs), bands[0].h, float(1.0 / bands[0].delta),
                     float(1.0 / bands[1].delta), float(1.0 / bands[2].delta)};
        wt.Level(fp[c], fs, CeilDiv(t.x1, 1 << d) - rx0, CeilDiv(t.y1, 1 << d) - ry0, rx0 & 1, ry0 & 1, &bq,
                 opt.threads);
        if (bq.tooLarge) throw Fail{"coefficient out of range"};
        quantized[size_t(levels - d)] = bq.done;
        if (bq.done) {
          std::vector<Band>& bs = res[size_t(levels - d)];
          bs[0].maxMag = bq.maxHL, bs[1].maxMag = bq.maxLH, bs[2].maxMag = bq.maxHH;
        }
      }
      for (size_t r = 0; r < res.size(); ++r)
        for (Band& bd : res[r]) {
          if (quantized[r]) continue;
          // Dead-zone quantizer: the magnitude's floor in steps.
          // In place, through a row buffer.
          const float inv = float(1.0 / bd.delta);
          int tooLarge = 0;
          std::vector<int32_t> q(size_t(std::max(bd.w, 0)));
          bd.maxMag = 0;
          for (int y = 0; y < bd.h; ++y) {
            tooLarge |= QuantizeRow(fp[c] + size_t(bd.py + y) * size_t(fs) + size_t(bd.px), q.data(), bd.w, inv,
                                    &bd.maxMag);
            std::memcpy(t.At(c, bd.px, bd.py + y), q.data(), sizeof(int32_t) * size_t(bd.w));
          }
          if (tooLarge) throw Fail{"coefficient out of range"};
        }
    }
  }

  template <class F>
  void ForBands(F f) {
    for (Tile& t : tiles)
      for (int c = 0; c < C; ++c)
        for (auto& res : t.comp[size_t(c)].res)
          for (Band& bd : res) f(t, c, bd);
  }
  template <class F>
  void ForBlocks(F f) {
    ForBands([&](Tile&, int, Band& bd) {
      for (Block& b : bd.blocks) f(b);
    });
  }

  // Guard bits: enough for the largest index of every band.
  void ChooseGuardBits() {
    int guard = 2;
    ForBands([&](Tile& t, int c, Band& bd) {
      int32_t mx = std::max(bd.maxMag, 0);  // measured by the 9/7 quantizer, else scanned
      for (int y = 0; bd.maxMag < 0 && y < bd.h; ++y) {
        const int32_t* row = t.At(c, bd.px, bd.py + y);
        for (int x = 0; x < bd.w; ++x) mx = std::max(mx, row[x] < 0 ? -row[x] : row[x]);
      }
      guard = std::max(guard, BitLength(uint32_t(mx)) - mh.exponent[size_t(bd.index)] + 1);
    });
    if (guard > 7) throw Fail{"coefficients too large for the guard bits"};
    for (int e : mh.exponent)
      if (guard + e - 1 > 31) throw Fail{"more than 31 magnitude bit-planes"};
    mh.guard = guard;
    ForBands([&](Tile&, int, Band& bd) { bd.magnBits = guard + mh.exponent[size_t(bd.index)] - 1; });
  }

  // Tier-1 over every code-block; blocks are independent, so -threads N
  // shares them out, each thread with its own coder state.
  void CodeBlocks() {
    struct Job {
      Tile* t;
      int c;
      Band* bd;
      Block* b;
    };
    std::vector<Job> jobs;
    ForBands([&](Tile& t, int c, Band& bd) {
      for (Block& b : bd.blocks) jobs.push_back({&t, c, &bd, &b});
    });
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::string why;
    std::mutex whyLock;
    auto work = [&] {
      EncodeCBState_JPEG2K* st = nullptr;
      if (rvtiEncodeInitAlloc_JPEG2K(&st, {opt.cbw, opt.cbh}) != rvtStatusOk) {
        std::lock_guard<std::mutex> g(whyLock);
        failed = true;
        why = "out of memory";
        return;
      }
      try {
        for (size_t j; !failed && (j = next++) < jobs.size();) Code(*jobs[j].t, jobs[j].c, *jobs[j].bd, *jobs[j].b, st);
      } catch (const Fail& f) {
        std::lock_guard<std::mutex> g(whyLock);
        failed = true;
        why = f.why;
      }
      rvtiEncodeFree_JPEG2K(st);
    };
    std::vector<std::thread> pool;
    for (int k = 1; k < opt.threads; ++k) pool.emplace_back(work);
    work();
    for (std::thread& th : pool) th.join();
    if (failed) throw Fail{why};
    for (Tile& t : tiles) t.plane.clear();
  }

  void Code(Tile& t, int c, Band& bd, Block& b, EncodeCBState_JPEG2K* st) {
    int32_t sf = 0, passes = 0, segs = 0;
    const int32_t* src = t.At(c, b.x0, b.y0);
    Check(rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R(src, int32_t(t.stride) * 4, {b.w, b.h}, st, bd.type, bd.magnBits, opt.mode, &sf,
                                                 &passes, &segs),
          "code-block coding");
    b.sf = sf;
    b.passes = passes;
    // Lossless in one layer takes every pass: no distortions, no hull.
    const bool allocate = opt.lossy || opt.layers > 1;
    b.rate.resize(size_t(passes));
    b.dist.resize(allocate ? size_t(passes) : 0);
    for (int k = 0; k < passes; ++k) {
      Check(rvtiEncodeGetRate_JPEG2K(st, k, &b.rate[size_t(k)]), "the pass rates");
      if (!allocate) continue;
      Check(rvtiEncodeGetDist_JPEG2K(st, k, &b.dist[size_t(k)]), "the pass distortions");
      b.dist[size_t(k)] *= bd.weight;
    }
    b.data.resize(passes ? size_t(b.rate.back()) : 0);
    if (!b.data.empty()) {
      int32_t len = int32_t(b.data.size()), more = 0;
      Check(rvtiEncodeStoreBits_JPEG2K_1u(b.data.data(), &len, st, &more), "storing the coded bytes");
      if (more || len != int32_t(b.data.size())) throw Fail{"code-block rate and data disagree"};
    }
    if (allocate) Hull(b);
  }

  // Truncation points on the upper convex hull of (rate, distortion
  // decrease): slopes strictly falling, points that save nothing dropped.
  static void Hull(Block& b) {
    std::vector<int> n{0};
    std::vector<double> s{INFINITY};
    auto rate = [&](int k) { return k ? double(b.rate[size_t(k) - 1]) : 0.0; };
    auto dist = [&](int k) { return k ? b.dist[size_t(k) - 1] : 0.0; };
    for (int k = 1; k <= b.passes; ++k) {
      if (dist(k) <= dist(n.back())) continue;
      double slope;
      for (;;) {
        const int last = n.back();
        slope = rate(k) > rate(last) ? (dist(k) - dist(last)) / (rate(k) - rate(last)) : INFINITY;
        if (n.size() == 1 || slope < s.back()) break;
        n.pop_back();
        s.pop_back();
      }
      n.push_back(k);
      s.push_back(slope);
    }
    b.hullN.assign(n.begin() + 1, n.end());
    b.hullSlope.assign(s.begin() + 1, s.end());
  }

  // ------------------------------------------------------------- packets

  // What a decoder has learnt of a tile's code-blocks so far: per
  // component, resolution and band the two tag trees, and per block its
  // Lblock and the passes sent.  Packets of different precincts do not
  // share state, so a layer's size does not depend on the order.
  struct BandState {
    TagTree incl, zero;
    std::vector<int> lblock, sent;
  };
  using TileState = std::vector<std::vector<std::vector<BandState>>>;  // [c][r][band]

  TileState NewState(Tile& t) {
    TileState s(static_cast<size_t>(C));
    for (int c = 0; c < C; ++c) {
      s[size_t(c)].resize(size_t(levels) + 1);
      for (int r = 0; r <= levels; ++r)
        for (Band& bd : t.comp[size_t(c)].res[size_t(r)]) {
          BandState bs;
          if (bd.nx && bd.ny) {
            bs.incl = TagTree(bd.nx, bd.ny);
            bs.zero = TagTree(bd.nx, bd.ny);
            for (int i = 0; i < int(bd.blocks.size()); ++i) bs.zero.Set(i, bd.blocks[size_t(i)].sf);
          }
          bs.lblock.assign(bd.blocks.size(), 3);
          bs.sent.assign(bd.blocks.size(), 0);
          s[size_t(c)][size_t(r)].push_back(std::move(bs));
        }
    }
    return s;
  }

  // The packet of layer l, resolution r, component c: its bytes appended to
  // out (when given) and their count.  Blocks first included in layer l
  // enter the inclusion tree here: what earlier packets sent only said
  // "not before layer l", which stays true.
  size_t Packet(Tile& t, TileState& ts, int l, int r, int c, Bytes* out, int seq) {
    // An empty resolution has no precinct, hence no packet.
    const int d = levels - r;
    if (CeilDiv(t.x1, 1 << d) == CeilDiv(t.x0, 1 << d) || CeilDiv(t.y1, 1 << d) == CeilDiv(t.y0, 1 << d)) return 0;
    std::vector<Band>& bands = t.comp[size_t(c)].res[size_t(r)];
    Bytes local;
    Bytes& head = out ? *out : local;
    const size_t start = head.size();
    if (opt.sop) {
      Put16(head, 0xFF91);
      Put16(head, 4);
      Put16(head, seq & 0xFFFF);
    }
    bool any = false;
    for (size_t bi = 0; bi < bands.size(); ++bi)
      for (size_t i = 0; i < bands[bi].blocks.size(); ++i) {
        const int to = bands[bi].blocks[i].upto[size_t(l)];
        BandState& bs = ts[size_t(c)][size_t(r)][bi];
        if (bs.sent[i] == 0 && to > 0) bs.incl.Set(int(i), l);
        any |= to > bs.sent[i];
      }
    size_t body = 0;
    std::vector<std::pair<const Block*, std::pair<int, int>>> parts;  // bytes [from, to)
    {
      BitWriter bw(head);
      bw.Bit(any ? 1 : 0);
      for (size_t bi = 0; any && bi < bands.size(); ++bi) {
        Band& bd = bands[bi];
        BandState& bs = ts[size_t(c)][size_t(r)][bi];
        for (int i = 0; i < int(bd.blocks.size()); ++i) {
          const Block& b = bd.blocks[size_t(i)];
          int& lblock = bs.lblock[size_t(i)];
          int& sent = bs.sent[size_t(i)];
          const int to = b.upto[size_t(l)];
          const bool in = to > sent;
          if (sent == 0) {
            bs.incl.Encode(bw, i, l + 1);
            if (in) bs.zero.Encode(bw, i, b.sf + 1);
          } else {
            bw.Bit(in ? 1 : 0);
          }
          if (!in) continue;
          PutPassCount(bw, to - sent);
          // Segments the new passes touch: lengths and bits for each.
          struct Seg {
            int passes;
            uint32_t len;
          };
          Seg segs[kMaxPassesPerBlock];
          int nsegs = 0;
          for (int k = sent; k < to;) {
            int take = 0;
            while (k + take < to && !(take > 0 && EndsSeg(k + take - 1))) ++take;
            const int32_t from = k ? b.rate[size_t(k) - 1] : 0;
            segs[nsegs++] = {take, uint32_t(b.rate[size_t(k + take) - 1] - from)};
            k += take;
          }
          int inc = 0;
          for (int k = 0; k < nsegs; ++k)
            inc = std::max(inc, BitLength(segs[k].len) - FloorLog2(uint32_t(segs[k].passes)) - lblock);
          for (int k = 0; k < inc; ++k) bw.Bit(1);
          bw.Bit(0);
          lblock += inc;
          for (int k = 0; k < nsegs; ++k) bw.Bits(segs[k].len, lblock + FloorLog2(uint32_t(segs[k].passes)));
          const int from = sent ? b.rate[size_t(sent) - 1] : 0, end = b.rate[size_t(to) - 1];
          if (out) parts.push_back({&b, {from, end}});
          body += size_t(end - from);
          sent = to;
        }
      }
      bw.Flush();
    }
    if (opt.eph) Put16(head, 0xFF92);
    const size_t headBytes = head.size() - start;
    if (out)
      for (auto& p : parts)
        out->insert(out->end(), p.first->data.begin() + p.second.first, p.first->data.begin() + p.second.second);
    return headBytes + body;
  }

  // Bytes of layer l's packets over all tiles, from the states given
  // (which advance past the layer).
  size_t LayerBytes(std::vector<TileState>& st, int l) {
    size_t n = 0;
    for (size_t i = 0; i < tiles.size(); ++i)
      for (int r = 0; r <= levels; ++r)
        for (int c = 0; c < C; ++c) n += Packet(tiles[i], st[i], l, r, c, nullptr, 0);
    return n;
  }

  // The tile's packets of every layer in the chosen order.
  void WritePackets(Tile& t, Bytes& out) {
    TileState ts = NewState(t);
    const int R = levels + 1, nl = opt.layers;
    int seq = 0;
    auto packet = [&](int l, int r, int c) { Packet(t, ts, l, r, c, &out, seq++); };
    switch (opt.order) {
      case kLRCP:
        for (int l = 0; l < nl; ++l)
          for (int r = 0; r < R; ++r)
            for (int c = 0; c < C; ++c) packet(l, r, c);
        break;
      case kRLCP:
        for (int r = 0; r < R; ++r)
          for (int l = 0; l < nl; ++l)
            for (int c = 0; c < C; ++c) packet(l, r, c);
        break;
      case kRPCL:  // one precinct per resolution, all at the tile's origin
        for (int r = 0; r < R; ++r)
          for (int c = 0; c < C; ++c)
            for (int l = 0; l < nl; ++l) packet(l, r, c);
        break;
      default:  // PCRL, CPRL
        for (int c = 0; c < C; ++c)
          for (int r = 0; r < R; ++r)
            for (int l = 0; l < nl; ++l) packet(l, r, c);
        break;
    }
  }

  bool EndsSeg(int k) const {
    if (opt.mode & rvtJ2KStyleTermAll) return true;
    if (opt.mode & rvtJ2KStyleBypass) return k == 9 || (k >= 10 && (k - 1) % 3 != 0);
    return false;
  }

  // ------------------------------------------------------ rate allocation

  // Header bits a packet spends on a block that goes from `sent` to `to`
  // passes, roughly: inclusion and zero bit-planes when it first appears,
  // the pass count, and per segment its length field (Lblock grown to fit,
  // the growth itself ignored).  Only the allocator's first guess uses it;
  // exact packet sizes correct it.
  int HeaderBits(const Block& b, int sent, int to) const {
    if (to == sent) return 1;
    const int passes = to - sent;
    int bits = (sent == 0 ? 5 : 1) + (passes == 1 ? 1 : passes == 2 ? 2 : passes <= 5 ? 4 : passes <= 36 ? 9 : 16) + 1;
    for (int k = sent; k < to;) {
      int take = 0;
      while (k + take < to && !(take > 0 && EndsSeg(k + take - 1))) ++take;
      const int32_t from = k ? b.rate[size_t(k) - 1] : 0;
      const int lg = FloorLog2(uint32_t(take));
      bits += std::max(3, BitLength(uint32_t(b.rate[size_t(k + take) - 1] - from)) - lg) + lg;
      k += take;
    }
    return bits;
  }

  // PCRD-opt.  Every block's hull steps, steepest first, form one list;
  // since a block's slopes fall strictly, each prefix of it is the
  // truncation at some slope threshold, and a layer is the longest prefix
  // that fits its budget.  Estimated sizes (pass bytes plus HeaderBits) of
  // every prefix come from one sweep; exact packet sizes, simulated from
  // the packet coder's own state, correct the estimate in a few rounds and
  // have the last word.  The bytes then left over go to the next steps of
  // single blocks that still fit.
  void Allocate() {
    const int L = opt.layers;
    std::vector<Block*> blocks;
    ForBlocks([&](Block& b) {
      b.upto.assign(size_t(L), 0);
      blocks.push_back(&b);
    });
    std::vector<TileState> committed;
    for (Tile& t : tiles) committed.push_back(NewState(t));
    // Main header, EOC, and SOT + SOD per tile.
    Bytes h;
    WriteMainHeader(h, mh);
    size_t total = h.size() + 2 + 14 * tiles.size();
    auto exact = [&](int l) {
      std::vector<TileState> st = committed;
      return double(total + LayerBytes(st, l));
    };
    double full = 0;  // the last layer's target
    if (opt.lossy) {
      full = std::floor(double(W) * H * C * img.precision / 8 / opt.rate);
    } else {  // every pass in one layer
      for (Block* b : blocks) b->upto[0] = b->passes;
      full = exact(0);
      for (Block* b : blocks) b->upto[0] = 0;
    }
    struct Step {
      double slope;
      Block* b;
      int n;
    };
    std::vector<Step> steps;
    for (Block* b : blocks)
      for (size_t i = 0; i < b->hullN.size(); ++i) steps.push_back({b->hullSlope[i], b, b->hullN[i]});
    std::stable_sort(steps.begin(), steps.end(), [](const Step& x, const Step& y) { return x.slope > y.slope; });
    size_t done = 0;  // steps in the layers so far
    std::vector<double> est;
    for (int l = 0; l < L; ++l) {
      auto base = [&](const Block* b) { return l ? b->upto[size_t(l) - 1] : 0; };
      if (!opt.lossy && l == L - 1) {
        for (Block* b : blocks) b->upto[size_t(l)] = b->passes;
        break;
      }
      const double target = std::floor(full / std::ldexp(1.0, L - 1 - l));
      // The layer with the first m steps.
      auto take = [&](size_t m) {
        for (Block* b : blocks) b->upto[size_t(l)] = base(b);
        for (size_t i = done; i < m; ++i) steps[i].b->upto[size_t(l)] = std::max(steps[i].b->upto[size_t(l)], steps[i].n);
      };
      // est[i]: estimated bytes of the layer with the first done + i steps.
      take(done);
      est.assign(1, 0);
      double bits = 0;
      for (Block* b : blocks) bits += HeaderBits(*b, base(b), base(b));
      double body = 0;
      for (size_t i = done; i < steps.size(); ++i) {
        Block& b = *steps[i].b;
        int& cur = b.upto[size_t(l)];
        const int from = base(&b), n = std::max(cur, steps[i].n);
        body += double((n ? b.rate[size_t(n) - 1] : 0) - (cur ? b.rate[size_t(cur) - 1] : 0));
        bits += HeaderBits(b, from, n) - HeaderBits(b, from, cur);
        cur = n;
        est.push_back(body + bits / 8);
      }
      const size_t most = steps.size() - done;
      // Longest prefix whose estimate, corrected by `corr`, fits.
      auto longest = [&](double corr) {
        size_t m = 0;
        while (m < most && total + est[m + 1] + corr <= target) ++m;
        return m;
      };
      size_t m = most;
      take(done + m);
      double size = exact(l);
      if (size > target) {
        // A few rounds of guess and measure, then bisection between the
        // longest prefix known to fit and the shortest known not to.
        size_t good = SIZE_MAX, bad = m;
        double corr = size - (total + est[m]);
        for (int round = 0; round < 4; ++round) {
          const size_t g = longest(corr);
          if (g == m) break;
          m = g;
          take(done + m);
          size = exact(l);
          if (size <= target) {
            if (good == SIZE_MAX || m > good) good = m;
          } else {
            bad = std::min(bad, m);
          }
          corr = size - (total + est[m]);
        }
        if (good == SIZE_MAX) {
          take(done);
          if (exact(l) > target) bad = 0;  // headers alone overflow: keep the layer empty
          good = 0;
        }
        while (bad > good + 1) {
          const size_t mid = good + (bad - good) / 2;
          take(done + mid);
          (exact(l) <= target ? good : bad) = mid;
        }
        m = good;
        take(done + m);
        size = exact(l);
        // Leftover bytes: the next steps of single blocks, steepest first,
        // as far as their estimated cost fits; kept when the exact size
        // agrees.
        double slack = target - size;
        std::vector<std::pair<Block*, int>> extra;
        for (size_t i = done + m; i < steps.size() && slack > 0; ++i) {
          Block& b = *steps[i].b;
          const int cur = b.upto[size_t(l)], from = base(&b);
          if (steps[i].n <= cur) continue;
          const double cost = double(b.rate[size_t(steps[i].n) - 1] - (cur ? b.rate[size_t(cur) - 1] : 0)) +
                              (HeaderBits(b, from, steps[i].n) - HeaderBits(b, from, cur) + 7) / 8.0 + 1;
          if (cost > slack) continue;
          extra.push_back({&b, cur});
          b.upto[size_t(l)] = steps[i].n;
          slack -= cost;
        }
        if (!extra.empty() && exact(l) > target) {
          // The longest run of them that fits, by bisection.
          std::vector<int> all(extra.size());
          for (size_t i = 0; i < extra.size(); ++i) all[i] = extra[i].first->upto[size_t(l)];
          auto keep = [&](size_t j) {
            for (size_t i = extra.size(); i-- > 0;) extra[i].first->upto[size_t(l)] = i < j ? all[i] : extra[i].second;
          };
          size_t in = 0, out = extra.size();
          while (out > in + 1) {
            const size_t mid = in + (out - in) / 2;
            keep(mid);
            (exact(l) <= target ? in : out) = mid;
          }
          keep(in);
        }
      }
      done += m;
      total += LayerBytes(committed, l);
    }
  }

  Bytes Write() {
    mh.width = W;
    mh.height = H;
    mh.tileW = TW;
    mh.tileH = TH;
    mh.comps = C;
    mh.precision = img.precision;
    mh.progression = opt.order;
    mh.layers = opt.layers;
    mh.mct = C == 3 ? 1 : 0;
    mh.levels = levels;
    mh.xcb = FloorLog2(uint32_t(opt.cbw));
    mh.ycb = FloorLog2(uint32_t(opt.cbh));
    mh.style = opt.mode;
    mh.reversible = !opt.lossy;
    mh.sop = opt.sop;
    mh.eph = opt.eph;
    Allocate();
    Bytes cs;
    WriteMainHeader(cs, mh);
    for (size_t i = 0; i < tiles.size(); ++i) {
      Bytes data;
      WritePackets(tiles[i], data);
      WriteTilePart(cs, int(i), data);
    }
    WriteEnd(cs);
    return cs;
  }
};

bool EndsWith(const std::string& s, const char* t) {
  const size_t n = std::strlen(t);
  return s.size() >= n && s.compare(s.size() - n, n, t) == 0;
}

}  // namespace

int EncodeMain(int argc, char** argv) {
  try {
    Encoder e;
    e.opt = ParseOptions(argc, argv);
    const bool jp2 = EndsWith(e.opt.out, ".jp2");
    if (!jp2 && !EndsWith(e.opt.out, ".j2k") && !EndsWith(e.opt.out, ".j2c"))
      throw Fail{"output name must end in .j2k, .j2c or .jp2"};
    e.Load();
    e.Quantizers();
    for (Tile& t : e.tiles) {
      e.Layout(t);
      e.Transform(t);
    }
    e.ChooseGuardBits();
    e.CodeBlocks();
    Bytes cs = e.Write();
    if (jp2) cs = WrapJp2(cs, e.mh);
    std::string err;
    if (!rvtjpeg::WriteFile(e.opt.out, cs.data(), cs.size(), &err)) throw Fail{err};
  } catch (const Fail& f) {
    std::fprintf(stderr, "rvtj2k: %s\n", f.why.c_str());
    return 1;
  } catch (const std::exception& x) {
    std::fprintf(stderr, "rvtj2k: %s\n", x.what());
    return 1;
  }
  return 0;
}

}  // namespace rvtj2k
