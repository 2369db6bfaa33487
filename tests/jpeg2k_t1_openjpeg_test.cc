// Code-block coding against OpenJPEG, both ways, for every code-block style
// byte 0..63 and every band: an image whose bands are one code-block each
// (one tile, one component, no or one decomposition level, one layer, 5/3
// reversible) is wrapped into a minimal code-stream around our coded
// blocks and must come back from opj_decompress exactly; and the blocks cut
// out of what opj_compress writes must decode with our decoder to the
// bands of the image.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "jpeg2k_t1_util.h"

namespace rvt {
namespace {

using t1test::Bytes;

bool HaveTool(const char* tool) {
  return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}
struct TempDir {
  std::string path;
  TempDir() {
    char name[] = "/tmp/rvt_t1_XXXXXX";
    path = mkdtemp(name) ? name : "/tmp";
  }
  ~TempDir() { (void)std::system(("rm -rf " + path).c_str()); }
};
int Shell(const std::string& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

Bytes ReadFile(const std::string& p) {
  std::ifstream f(p, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), {});
}
void WritePgm(const std::string& p, const std::vector<uint8_t>& px, int w, int h) {
  std::ofstream f(p, std::ios::binary);
  f << "P5\n" << w << " " << h << "\n255\n";
  f.write(reinterpret_cast<const char*>(px.data()), std::streamsize(px.size()));
}
// The pixels of an 8-bit PGM: its last w x h bytes.
std::vector<uint8_t> ReadPgm(const std::string& p, int w, int h) {
  const Bytes b = ReadFile(p);
  const size_t n = size_t(w) * size_t(h);
  if (b.size() < n + 8 || b[0] != 'P' || b[1] != '5') return {};
  return std::vector<uint8_t>(b.end() - long(n), b.end());
}

// Packet header bits, with a 0 bit stuffed after every 0xFF byte.
struct HeaderWriter {
  Bytes out;
  int acc = 0, n = 0, cap = 8;
  void Bit(int b) {
    acc = (acc << 1) | b;
    if (++n == cap) {
      out.push_back(uint8_t(acc));
      cap = acc == 0xFF ? 7 : 8;
      acc = 0;
      n = 0;
    }
  }
  void Bits(uint32_t v, int count) {
    for (int i = count - 1; i >= 0; --i) Bit(int(v >> i) & 1);
  }
  void End() {
    while (n) Bit(0);
    if (!out.empty() && out.back() == 0xFF) out.push_back(0);
  }
};
struct HeaderReader {
  const uint8_t* p;
  size_t len, pos = 0;
  int cur = 0, n = 0;
  bool lastFF = false;
  int Bit() {
    if (n == 0) {
      lastFF = cur == 0xFF;
      cur = pos < len ? p[pos++] : 0;
      n = lastFF ? 7 : 8;
    }
    --n;
    return (cur >> n) & 1;
  }
  uint32_t Bits(int count) {
    uint32_t v = 0;
    while (count--) v = (v << 1) | uint32_t(Bit());
    return v;
  }
  size_t End() {  // bytes of the header
    if (cur == 0xFF && n == 0) ++pos;  // the stuffed byte
    return pos;
  }
};

int FloorLog2(int v) {
  int r = 0;
  while (v > 1) v >>= 1, ++r;
  return r;
}
// Passes in each segment of a block coded with n passes.
std::vector<int> SegmentPasses(int n, int style) {
  std::vector<int> out;
  int count = 0;
  for (int k = 0; k < n; ++k) {
    ++count;
    if (t1::EndsSegment(k, style) || k == n - 1) {
      out.push_back(count);
      count = 0;
    }
  }
  return out;
}

void Put16(Bytes& b, int v) {
  b.push_back(uint8_t(v >> 8));
  b.push_back(uint8_t(v));
}
void Put32(Bytes& b, uint32_t v) {
  Put16(b, int(v >> 16));
  Put16(b, int(v & 0xFFFF));
}

constexpr int kGuard = 2;
// 8-bit samples, reversible: exponents (gains) of LL, HL, LH, HH.
constexpr int kExponent[4] = {8, 9, 9, 10};
int MagnBits(int b) { return kGuard + kExponent[b] - 1; }
// Our band numbers of the packet order LL; HL, LH, HH.
constexpr int kBandOf[4] = {rvtJ2KBandLL, rvtJ2KBandHL, rvtJ2KBandLH, rvtJ2KBandHH};

// One packet (one layer, one precinct) of the given code-blocks, each
// included in this layer with all its passes.
Bytes Packet(const std::vector<const t1test::Encoded*>& blocks, int style) {
  HeaderWriter hw;
  hw.Bit(1);  // not empty
  for (const t1test::Encoded* e : blocks) {
    if (e->passes == 0) {
      hw.Bit(0);  // not included (tag tree of one leaf)
      continue;
    }
    hw.Bit(1);
    for (int i = 0; i < e->sf; ++i) hw.Bit(0);
    hw.Bit(1);
    const int n = e->passes;
    if (n == 1) hw.Bits(0, 1);
    else if (n == 2) hw.Bits(2, 2);
    else if (n <= 5) hw.Bits(0xC | uint32_t(n - 3), 4);
    else if (n <= 36) hw.Bits(0x1E0 | uint32_t(n - 6), 9);
    else hw.Bits((0x1FFu << 7) | uint32_t(n - 37), 16);
    const auto per = SegmentPasses(n, style);
    int lblock = 3;
    for (size_t s = 0; s < per.size(); ++s) {
      int need = 0;
      while ((int64_t(1) << (lblock + need + FloorLog2(per[s]))) <= e->segLen[s]) ++need;
      for (int i = 0; i < need; ++i) hw.Bit(1);
      lblock += need;
    }
    hw.Bit(0);
    for (size_t s = 0; s < per.size(); ++s) hw.Bits(uint32_t(e->segLen[s]), lblock + FloorLog2(per[s]));
  }
  hw.End();
  Bytes p = hw.out;
  for (const t1test::Encoded* e : blocks) p.insert(p.end(), e->data.begin(), e->data.end());
  return p;
}

// A code-stream of one 8-bit component, one tile, `levels` (0 or 1)
// decomposition levels, one layer, 5/3; code-blocks of w x h, the image
// (w x h) << levels, so every band is one code-block: blocks in packet
// order (LL, then HL, LH, HH).
Bytes WrapCodeStream(const std::vector<t1test::Encoded>& blocks, int w, int h, int levels, int style) {
  Bytes cs = {0xFF, 0x4F, 0xFF, 0x51};
  Put16(cs, 41);
  Put16(cs, 0);
  const uint32_t iw = uint32_t(w << levels), ih = uint32_t(h << levels);
  for (uint32_t v : {iw, ih, 0u, 0u, iw, ih, 0u, 0u}) Put32(cs, v);
  Put16(cs, 1);
  cs.insert(cs.end(), {7, 1, 1});
  cs.insert(cs.end(), {0xFF, 0x52});
  Put16(cs, 12);
  cs.insert(cs.end(), {0, 0, 0, 1, 0, uint8_t(levels), uint8_t(FloorLog2(w) - 2), uint8_t(FloorLog2(h) - 2),
                       uint8_t(style), 1});
  const int bands = 1 + 3 * levels;
  cs.insert(cs.end(), {0xFF, 0x5C});
  Put16(cs, 3 + bands);
  cs.push_back(uint8_t(kGuard << 5));
  for (int b = 0; b < bands; ++b) cs.push_back(uint8_t(kExponent[b] << 3));
  Bytes body = Packet({&blocks[0]}, style);
  if (levels) {
    const Bytes p = Packet({&blocks[1], &blocks[2], &blocks[3]}, style);
    body.insert(body.end(), p.begin(), p.end());
  }
  cs.insert(cs.end(), {0xFF, 0x90});
  Put16(cs, 10);
  Put16(cs, 0);
  Put32(cs, uint32_t(12 + 2 + body.size()));
  cs.insert(cs.end(), {0, 1, 0xFF, 0x93});
  cs.insert(cs.end(), body.begin(), body.end());
  cs.insert(cs.end(), {0xFF, 0xD9});
  return cs;
}

// The code-blocks of such a code-stream from another writer: planes (from
// QCD), zero planes, passes and segment lengths, in packet order.
struct Block {
  int magnBits = 0, sf = 0, passes = 0;
  Bytes data;
  std::vector<int32_t> segLen;
};
struct Stream {
  bool ok = false;
  int style = -1, levels = 0;
  std::vector<Block> blocks;
};

// Reads the packet of `n` code-blocks at pos; false when it does not fit.
bool ReadPacket(const Bytes& cs, size_t* pos, int n, int style, std::vector<Block>* out) {
  HeaderReader hr{&cs[*pos], cs.size() - *pos};
  std::vector<Block> got(static_cast<size_t>(n));
  if (hr.Bit()) {
    for (Block& b : got) {
      if (!hr.Bit()) continue;  // not included: all zero
      while (!hr.Bit()) ++b.sf;
      int passes = 1;
      if (hr.Bit()) {
        passes = 2;
        if (hr.Bit()) {
          const uint32_t two = hr.Bits(2);
          passes = 3 + int(two);
          if (two == 3) {
            const uint32_t five = hr.Bits(5);
            passes = 6 + int(five);
            if (five == 31) passes = 37 + int(hr.Bits(7));
          }
        }
      }
      b.passes = passes;
      int lblock = 3;
      while (hr.Bit()) ++lblock;
      for (int per : SegmentPasses(passes, style)) b.segLen.push_back(int32_t(hr.Bits(lblock + FloorLog2(per))));
    }
  }
  size_t at = *pos + hr.End();
  for (Block& b : got) {
    size_t total = 0;
    for (int32_t l : b.segLen) total += size_t(l);
    if (at + total > cs.size()) return false;
    b.data.assign(cs.begin() + long(at), cs.begin() + long(at + total));
    at += total;
  }
  *pos = at;
  out->insert(out->end(), got.begin(), got.end());
  return true;
}

Stream CutCodeBlocks(const Bytes& cs) {
  Stream st;
  size_t i = 2, sod = 0;
  std::vector<int> exps;
  int guard = 0;
  while (i + 4 <= cs.size()) {
    if (cs[i] != 0xFF) return st;
    const int m = cs[i + 1];
    if (m == 0x93) {
      sod = i + 2;
      break;
    }
    const size_t len = size_t(cs[i + 2]) << 8 | cs[i + 3];
    const uint8_t* seg = &cs[i + 4];
    if (m == 0x52) {
      st.style = seg[8];
      st.levels = seg[5];
    }
    if (m == 0x5C) {
      guard = seg[0] >> 5;
      for (size_t k = 1; k + 2 < len; ++k) exps.push_back(seg[k] >> 3);
    }
    i += 2 + len;
  }
  if (!sod || st.style < 0 || st.levels > 1 || int(exps.size()) != 1 + 3 * st.levels) return st;
  size_t pos = sod;
  if (!ReadPacket(cs, &pos, 1, st.style, &st.blocks)) return st;
  if (st.levels && !ReadPacket(cs, &pos, 3, st.style, &st.blocks)) return st;
  for (size_t b = 0; b < st.blocks.size(); ++b) st.blocks[b].magnBits = guard + exps[b] - 1;
  st.ok = true;
  return st;
}

// A test picture: smooth gradients, an edge, noise, flat patches, so
// every pass and context appears.
std::vector<uint8_t> Picture(test::Rng& rng, int w, int h, int kind) {
  std::vector<uint8_t> px(size_t(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      int v = (x * 3 + y * 5) % 256;
      if (kind % 3 == 1) v = (x > w / 2) ? 200 : 30;
      if (kind % 3 == 2) v = int(rng.Uniform(0, 255));
      if ((x / 8 + y / 8) % 5 == 0 && kind % 5 != 4) v = 128;
      if (kind % 4 == 3 && x < 9 && y < 9) v = int(rng.Uniform(0, 255));
      px[size_t(y) * w + x] = uint8_t(v);
    }
  return px;
}

const int kSides[][2] = {{64, 64}, {32, 32}, {16, 64}, {64, 16}, {4, 4}, {8, 32}};

// The coefficients of each band (packet order) of the level-shifted
// picture after `levels` 5/3 levels (the library's, checked elsewhere).
std::vector<std::vector<int32_t>> Bands(const std::vector<uint8_t>& px, int w, int h, int levels) {
  const int iw = w << levels, ih = h << levels;
  std::vector<int32_t> plane(px.size());
  for (size_t i = 0; i < px.size(); ++i) plane[i] = int32_t(px[i]) - 128;
  if (levels) {
    const ImageRect r{0, 0, iw, ih};
    uint32_t bytes = 0;
    EXPECT_EQ(rvtiWTGetBufSize_B53_JPEG2K_32s_C1IR(&r, &bytes), rvtStatusOk);
    std::vector<uint8_t> buf(bytes + 16);
    EXPECT_EQ(rvtiWTFwd_B53_JPEG2K_32s_C1IR(plane.data(), iw * 4, &r, buf.data()), rvtStatusOk);
  }
  std::vector<std::vector<int32_t>> out;
  const int origin[4][2] = {{0, 0}, {w, 0}, {0, h}, {w, h}};  // LL, HL, LH, HH quadrants
  for (int b = 0; b < 1 + 3 * levels; ++b) {
    std::vector<int32_t> c;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) c.push_back(plane[size_t(origin[b][1] + y) * iw + origin[b][0] + x]);
    out.push_back(c);
  }
  return out;
}

TEST(J2kTier1OpenJpeg, OpenJpegDecodesOurBlocksForEveryStyle) {
  if (!HaveTool("opj_decompress")) GTEST_SKIP() << "opj_decompress not installed";
  TempDir dir;
  test::Rng rng(1911);
  for (int levels = 0; levels < 2; ++levels) {
    for (int style = 0; style < 64; ++style) {
      const int w = kSides[style % 6][0], h = kSides[style % 6][1];
      const auto px = Picture(rng, w << levels, h << levels, style);
      const auto bands = Bands(px, w, h, levels);
      std::vector<t1test::Encoded> blocks;
      for (size_t b = 0; b < bands.size(); ++b) {
        blocks.push_back(t1test::Encode(bands[b], w, h, kBandOf[b], MagnBits(int(b)), style));
        ASSERT_EQ(blocks.back().status, rvtStatusOk);
      }
      const Bytes cs = WrapCodeStream(blocks, w, h, levels, style);
      const std::string in = dir.path + "/ours.j2k", out = dir.path + "/ours.pgm";
      std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(cs.data()), std::streamsize(cs.size()));
      std::remove(out.c_str());
      ASSERT_EQ(Shell("opj_decompress -i " + in + " -o " + out), 0) << "style " << style;
      EXPECT_EQ(ReadPgm(out, w << levels, h << levels), px)
          << "style " << style << " levels " << levels << " blocks " << w << "x" << h;
    }
  }
}

TEST(J2kTier1OpenJpeg, WeDecodeOpenJpegBlocksForEveryStyle) {
  if (!HaveTool("opj_compress")) GTEST_SKIP() << "opj_compress not installed";
  TempDir dir;
  test::Rng rng(1912);
  for (int levels = 0; levels < 2; ++levels) {
    for (int style = 0; style < 64; ++style) {
      const int w = kSides[(style + 1) % 6][0], h = kSides[(style + 1) % 6][1];
      const auto px = Picture(rng, w << levels, h << levels, style + 1);
      const std::string in = dir.path + "/in.pgm", out = dir.path + "/opj.j2k";
      WritePgm(in, px, w << levels, h << levels);
      std::remove(out.c_str());
      ASSERT_EQ(Shell("opj_compress -i " + in + " -o " + out + " -n " + std::to_string(levels + 1) + " -b " +
                      std::to_string(w) + "," + std::to_string(h) + " -M " + std::to_string(style)),
                0)
          << "style " << style;
      const Stream st = CutCodeBlocks(ReadFile(out));
      ASSERT_TRUE(st.ok) << "style " << style;
      ASSERT_EQ(st.style, style);
      const auto bands = Bands(px, w, h, levels);
      ASSERT_EQ(st.blocks.size(), bands.size());
      int32_t bytes = 0;
      ASSERT_EQ(rvtiDecodeGetBufSize_JPEG2K({w, h}, &bytes), rvtStatusOk);
      std::vector<uint8_t> work(static_cast<size_t>(bytes));
      for (size_t b = 0; b < bands.size(); ++b) {
        const Block& k = st.blocks[b];
        std::vector<int32_t> got(bands[b].size(), 0x55);
        const uint8_t none = 0;
        const int32_t zero = 0;
        ASSERT_EQ(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(k.data.empty() ? &none : k.data.data(),
                                                       k.segLen.empty() ? &zero : k.segLen.data(), got.data(), w * 4,
                                                       {w, h}, kBandOf[b], k.magnBits, k.sf, k.passes, style, 0,
                                                       work.data()),
                  rvtStatusOk);
        EXPECT_EQ(got, bands[b]) << "style " << style << " levels " << levels << " band " << b;
      }
    }
  }
}

}  // namespace
}  // namespace rvt
