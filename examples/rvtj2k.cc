// rvtj2k: an example JPEG 2000 decoder built on the library's exports for
// all entropy and pixel work (code-block decoding, the 5/3 wavelet, the
// reversible component transform).  This first form reads lossless
// single-tile code-streams as OpenJPEG writes them by default: one tile at
// the origin, 1 or 3 components of equal size, 5/3 reversible, no
// quantization, LRCP, any number of layers and levels, no precinct
// partition, any code-block style, SOP and EPH markers; a .jp2 file is
// read from its jp2c box.  Anything else ends with a one-line reason.
//
//   rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm
#include <cstdint>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "j2k_encode.h"
#include "rvtjp.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Fail {
  std::string why;
};

int Get16(const uint8_t* p) { return p[0] << 8 | p[1]; }
uint32_t Get32(const uint8_t* p) { return uint32_t(Get16(p)) << 16 | uint32_t(Get16(p + 2)); }

// Packet header bits: after a 0xFF byte the next holds 7.
struct Bits {
  const uint8_t* p;
  size_t len, pos = 0;
  int cur = 0, n = 0;
  int Bit() {
    if (n == 0) {
      const bool ff = cur == 0xFF;
      cur = pos < len ? p[pos++] : 0;
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
    if (cur == 0xFF && n == 0) ++pos;
    return pos;
  }
};

// A tag tree over w x h leaves, decoded lazily against thresholds.
struct TagTree {
  struct Node {
    int value = 0, low = 0;
    bool known = false;
    int parent = -1;
  };
  std::vector<Node> nodes;
  int leaves = 0;
  TagTree(int w, int h) {
    std::vector<std::pair<int, int>> levels;
    int lw = w, lh = h;
    do {
      levels.push_back({lw, lh});
      lw = (lw + 1) / 2;
      lh = (lh + 1) / 2;
    } while (levels.back().first * levels.back().second > 1);
    int total = 0;
    for (auto& l : levels) total += l.first * l.second;
    nodes.resize(size_t(total));
    leaves = w * h;
    int base = 0;
    for (size_t k = 0; k + 1 < levels.size(); ++k) {
      const int cw = levels[k].first, ch = levels[k].second;
      const int next = base + cw * ch;
      for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x)
          nodes[size_t(base + y * cw + x)].parent = next + (y / 2) * levels[k + 1].first + x / 2;
      base = next;
    }
  }
  // True when leaf's value is below threshold (decoding what that needs).
  bool Below(int leaf, int threshold, Bits& b) {
    int path[32], depth = 0;
    for (int n = leaf; n >= 0; n = nodes[size_t(n)].parent) path[depth++] = n;
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
      }
      nd.low = low;
      if (!nd.known || nd.value >= threshold) return false;
      low = nd.value;
    }
    return true;
  }
  int Value(int leaf) const { return nodes[size_t(leaf)].value; }
};

struct CodeBlock {
  int x0, y0, w, h;
  bool included = false;
  int sf = 0, passes = 0, lblock = 3;
  Bytes data;
  std::vector<int32_t> segLen;  // per segment, summed over layers
};

struct Band {
  int type, x0, y0, w, h, cbw, cbh, nx, ny, magnBits;
  std::vector<CodeBlock> blocks;
  TagTree incl{1, 1}, zero{1, 1};
};

struct Component {
  std::vector<std::vector<Band>> res;  // per resolution: LL, or HL, LH, HH
  std::vector<int32_t> plane;
};

// Segment that pass k (of a block) belongs to, counted from 0.
bool EndsSegment(int k, int style) {
  if (style & rvtJ2KStyleTermAll) return true;
  if (style & rvtJ2KStyleBypass) return k == 9 || (k >= 10 && (k - 1) % 3 != 0);
  return false;
}
int FloorLog2(int v) {
  int r = 0;
  while (v > 1) v >>= 1, ++r;
  return r;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  if (!f) throw Fail{"cannot read " + path};
  return Bytes(std::istreambuf_iterator<char>(f), {});
}

// The code-stream of a .jp2 file (its jp2c box), or the file itself.
Bytes CodeStream(const Bytes& f) {
  if (f.size() >= 12 && Get32(&f[0]) == 12 && Get32(&f[4]) == 0x6A502020) {
    size_t pos = 0;
    while (pos + 8 <= f.size()) {
      uint64_t len = Get32(&f[pos]);
      const uint32_t type = Get32(&f[pos + 4]);
      size_t head = 8;
      if (len == 1 && pos + 16 <= f.size()) {
        len = uint64_t(Get32(&f[pos + 8])) << 32 | Get32(&f[pos + 12]);
        head = 16;
      }
      if (len == 0) len = f.size() - pos;
      if (type == 0x6A703263) return Bytes(f.begin() + long(pos + head), f.begin() + long(pos + len));
      if (len < head) break;
      pos += size_t(len);
    }
    throw Fail{"no code-stream box in the jp2 file"};
  }
  return f;
}

struct Decoder {
  int W = 0, H = 0, comps = 0, prec = 0;
  bool isSigned = false;
  int scod = 0, layers = 0, mct = 0, levels = 0, xcb = 0, ycb = 0, style = 0, transform = 0;
  int guard = 0;
  std::vector<int> exps;
  std::vector<Component> comp;

  void Parse(const Bytes& cs) {
    if (cs.size() < 4 || Get16(&cs[0]) != 0xFF4F) throw Fail{"not a JPEG 2000 code-stream"};
    size_t pos = 2;
    bool tile = false;
    Bytes data;
    while (pos + 2 <= cs.size()) {
      const int m = Get16(&cs[pos]);
      if (m == 0xFFD9) break;
      if (pos + 4 > cs.size()) throw Fail{"truncated marker segment"};
      const size_t len = size_t(Get16(&cs[pos + 2]));
      const uint8_t* s = &cs[pos + 4];
      if (pos + 2 + len > cs.size()) throw Fail{"truncated marker segment"};
      switch (m) {
        case 0xFF51: {
          W = int(Get32(s + 2));
          H = int(Get32(s + 6));
          if (Get32(s + 10) || Get32(s + 14) || Get32(s + 26) || Get32(s + 30)) throw Fail{"image or tile offsets"};
          if (int(Get32(s + 18)) < W || int(Get32(s + 22)) < H) throw Fail{"more than one tile"};
          comps = Get16(s + 34);
          if (comps != 1 && comps != 3) throw Fail{"only 1 or 3 components"};
          for (int c = 0; c < comps; ++c) {
            const uint8_t* q = s + 36 + 3 * c;
            if (c == 0) prec = (q[0] & 0x7F) + 1, isSigned = q[0] & 0x80;
            if ((q[0] & 0x7F) + 1 != prec || q[1] != 1 || q[2] != 1) throw Fail{"components differ or subsampled"};
          }
          if (prec > 16) throw Fail{"more than 16 bits"};
          break;
        }
        case 0xFF52:
          scod = s[0];
          if (scod & 1) throw Fail{"precinct partitions"};
          if (s[1] != 0) throw Fail{"progression other than LRCP"};
          layers = Get16(s + 2);
          mct = s[4];
          levels = s[5];
          xcb = s[6] + 2;
          ycb = s[7] + 2;
          style = s[8];
          transform = s[9];
          if (transform != 1) throw Fail{"irreversible 9/7 not supported yet"};
          if (style > 63) throw Fail{"unknown code-block style"};
          break;
        case 0xFF5C:
          guard = s[0] >> 5;
          if ((s[0] & 0x1F) != 0) throw Fail{"quantized code-stream"};
          for (size_t k = 1; k < len - 2; ++k) exps.push_back(s[k] >> 3);
          break;
        case 0xFF53: case 0xFF5D: case 0xFF5E: case 0xFF5F: throw Fail{"COC, QCC, RGN or POC segments"};
        case 0xFF90: {
          if (tile) throw Fail{"more than one tile-part"};
          tile = true;
          const uint32_t psot = Get32(s + 2);
          const size_t start = pos + 2 + len;  // after SOT, at SOD
          if (start + 2 > cs.size() || Get16(&cs[start]) != 0xFF93) throw Fail{"tile-part header segments"};
          const size_t end = psot ? pos + psot : cs.size() - 2;
          if (end > cs.size() || end < start + 2) throw Fail{"tile-part length"};
          data.assign(cs.begin() + long(start + 2), cs.begin() + long(end));
          pos = end;
          continue;
        }
        default: break;
      }
      pos += 2 + len;
    }
    if (!tile || !W || !comps || !layers) throw Fail{"missing main header segments or tile"};
    if (int(exps.size()) != 1 + 3 * levels) throw Fail{"QCD band count"};
    Layout();
    Packets(data);
  }

  void Layout() {
    comp.resize(size_t(comps));
    for (Component& c : comp) {
      c.plane.assign(size_t(W) * H, 0);
      c.res.resize(size_t(levels) + 1);
      for (int r = 0; r <= levels; ++r) {
        const int d = levels - r;  // the resolution's size: the image >> d, rounded up
        const int rw = (W + (1 << d) - 1) >> d, rh = (H + (1 << d) - 1) >> d;
        const int lw = (rw + 1) / 2, lh = (rh + 1) / 2;
        std::vector<Band>& bands = c.res[size_t(r)];
        if (r == 0) bands.push_back(Band{rvtJ2KBandLL, 0, 0, rw, rh, 0, 0, 0, 0, 0, {}});
        else {
          bands.push_back(Band{rvtJ2KBandHL, lw, 0, rw - lw, lh, 0, 0, 0, 0, 0, {}});
          bands.push_back(Band{rvtJ2KBandLH, 0, lh, lw, rh - lh, 0, 0, 0, 0, 0, {}});
          bands.push_back(Band{rvtJ2KBandHH, lw, lh, rw - lw, rh - lh, 0, 0, 0, 0, 0, {}});
        }
        for (size_t b = 0; b < bands.size(); ++b) {
          Band& bd = bands[b];
          const int qi = r == 0 ? 0 : 1 + 3 * (r - 1) + int(b);
          bd.magnBits = guard + exps[size_t(qi)] - 1;
          bd.cbw = 1 << xcb;
          bd.cbh = 1 << ycb;
          bd.nx = bd.w > 0 ? (bd.w + bd.cbw - 1) / bd.cbw : 0;
          bd.ny = bd.h > 0 ? (bd.h + bd.cbh - 1) / bd.cbh : 0;
          for (int y = 0; y < bd.ny; ++y)
            for (int x = 0; x < bd.nx; ++x) {
              CodeBlock cb;
              cb.x0 = x * bd.cbw;
              cb.y0 = y * bd.cbh;
              cb.w = std::min(bd.cbw, bd.w - cb.x0);
              cb.h = std::min(bd.cbh, bd.h - cb.y0);
              bd.blocks.push_back(cb);
            }
          if (bd.nx && bd.ny) {
            bd.incl = TagTree(bd.nx, bd.ny);
            bd.zero = TagTree(bd.nx, bd.ny);
          }
        }
      }
    }
  }

  void Packets(const Bytes& d) {
    size_t pos = 0;
    for (int l = 0; l < layers; ++l)
      for (int r = 0; r <= levels; ++r)
        for (Component& c : comp) {
          if ((scod & 2) && pos + 6 <= d.size() && Get16(&d[pos]) == 0xFF91) pos += 6;
          if (pos >= d.size()) return;  // truncated: decode what arrived
          Bits b{&d[pos], d.size() - pos};
          struct Add {
            CodeBlock* cb;
            std::vector<int32_t> lens;
          };
          std::vector<Add> adds;
          if (b.Bit()) {
            for (Band& bd : c.res[size_t(r)]) {
              for (int i = 0; i < int(bd.blocks.size()); ++i) {
                CodeBlock& cb = bd.blocks[size_t(i)];
                bool in;
                if (!cb.included) {
                  in = bd.incl.Below(i, l + 1, b);
                  if (in) {
                    int t = 1;
                    while (!bd.zero.Below(i, t, b)) ++t;
                    cb.sf = bd.zero.Value(i);
                  }
                } else {
                  in = b.Bit();
                }
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
                while (b.Bit()) ++cb.lblock;
                Add a{&cb, {}};
                int k = cb.passes, left = n;
                while (left > 0) {  // one length per segment the new passes touch
                  int take = 0;
                  while (take < left && !(take > 0 && EndsSegment(k + take - 1, style))) ++take;
                  a.lens.push_back(int32_t(b.Get(cb.lblock + FloorLog2(take))));
                  k += take;
                  left -= take;
                }
                // Segment lengths: the first continues the open segment.
                const bool open = cb.passes > 0 && !EndsSegment(cb.passes - 1, style);
                for (size_t s = 0; s < a.lens.size(); ++s) {
                  if (s == 0 && open) cb.segLen.back() += a.lens[s];
                  else cb.segLen.push_back(a.lens[s]);
                }
                cb.passes += n;
                cb.included = true;
                adds.push_back(a);
              }
            }
          }
          pos += b.End();
          if ((scod & 4) && pos + 2 <= d.size() && Get16(&d[pos]) == 0xFF92) pos += 2;
          for (Add& a : adds)
            for (int32_t len : a.lens) {
              const size_t n = std::min(size_t(len), d.size() - std::min(pos, d.size()));
              if (n) a.cb->data.insert(a.cb->data.end(), d.begin() + long(pos), d.begin() + long(pos + n));
              pos += size_t(len);
            }
        }
  }

  void Reconstruct() {
    std::vector<uint8_t> work;  // the code-block decoder's buffer, grown to the largest block
    for (Component& c : comp) {
      for (int r = 0; r <= levels; ++r)
        for (Band& bd : c.res[size_t(r)])
          for (CodeBlock& cb : bd.blocks) {
            if (cb.passes == 0) continue;
            if (int(cb.data.size()) < [&] { int64_t t = 0; for (int32_t l : cb.segLen) t += l; return int(t); }()) {
              // Truncated data: shorten the segments to what arrived.
              int64_t have = int64_t(cb.data.size());
              for (int32_t& l : cb.segLen) {
                l = int32_t(std::min<int64_t>(l, have));
                have -= l;
              }
            }
            const int maxPasses = 3 * (bd.magnBits - cb.sf) - 2;
            if (cb.sf > bd.magnBits || cb.passes > maxPasses) throw Fail{"code-block with too many passes"};
            int32_t sz = 0;
            if (rvtiDecodeGetBufSize_JPEG2K({cb.w, cb.h}, &sz) != rvtStatusOk) throw Fail{"code-block size"};
            if (work.size() < size_t(sz)) work.resize(size_t(sz));
            const uint8_t none = 0;
            int32_t* dst = &c.plane[size_t(bd.y0 + cb.y0) * W + bd.x0 + cb.x0];
            if (rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(cb.data.empty() ? &none : cb.data.data(), cb.segLen.data(), dst,
                                                     W * 4, {cb.w, cb.h}, bd.type, bd.magnBits, cb.sf, cb.passes,
                                                     style, 0, work.data()) != rvtStatusOk)
              throw Fail{"code-block decoding refused its parameters"};
          }
      for (int r = 1; r <= levels; ++r) {
        const int d = levels - r;
        const ImageRect rect{0, 0, (W + (1 << d) - 1) >> d, (H + (1 << d) - 1) >> d};
        uint32_t bytes = 0;
        rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &bytes);
        std::vector<uint8_t> buf(bytes + 16);
        if (rvtiWTInv_B53_JPEG2K_32s_C1IR(c.plane.data(), W * 4, &rect, buf.data()) != rvtStatusOk)
          throw Fail{"inverse wavelet refused"};
      }
    }
    if (mct && comps == 3) {
      int32_t* p[3] = {comp[0].plane.data(), comp[1].plane.data(), comp[2].plane.data()};
      rvtiRCTInv_JPEG2K_32s_P3IR(p, W * 4, {W, H});
    }
  }

  void Write(const std::string& path) {
    const bool wide = prec > 8;
    const int maxv = (1 << prec) - 1;
    const int shift = isSigned ? 0 : 1 << (prec - 1);
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) throw Fail{"cannot write " + path};
    std::fprintf(f, "P%d\n%d %d\n%d\n", comps == 1 ? 5 : 6, W, H, maxv);
    std::vector<uint8_t> row(size_t(W) * size_t(comps) * (wide ? 2 : 1));
    for (int y = 0; y < H; ++y) {
      uint8_t* o = row.data();
      for (int x = 0; x < W; ++x)
        for (Component& c : comp) {
          int v = c.plane[size_t(y) * W + x] + shift;
          v = v < 0 ? 0 : v > maxv ? maxv : v;
          if (wide) *o++ = uint8_t(v >> 8);
          *o++ = uint8_t(v);
        }
      std::fwrite(row.data(), 1, row.size(), f);
    }
    std::fclose(f);
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::string(argv[1]) == "encode") return rvtj2k::EncodeMain(argc - 2, argv + 2);
  if (argc != 4 || std::string(argv[1]) != "decode") {
    std::fprintf(stderr, "usage: rvtj2k decode IN.j2k|IN.jp2 OUT.pgm|OUT.ppm, or encode IN OUT.j2k|OUT.jp2 [options]\n");
    return 2;
  }
  try {
    Decoder d;
    d.Parse(CodeStream(ReadFile(argv[2])));
    if (d.isSigned) throw Fail{"signed samples"};
    d.Reconstruct();
    d.Write(argv[3]);
  } catch (const Fail& f) {
    std::fprintf(stderr, "rvtj2k: %s\n", f.why.c_str());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "rvtj2k: %s\n", e.what());
    return 1;
  }
  return 0;
}
