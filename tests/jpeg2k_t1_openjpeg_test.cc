// Code-block coding against OpenJPEG, both ways, for every code-block style
// byte 0..63: an image that is exactly one code-block (one tile, one
// component, no decomposition level, one layer, 5/3 reversible) is wrapped
// into a minimal code-stream around our coded block and must come back
// from opj_decompress exactly; and the block cut out of what opj_compress
// writes must decode with our decoder to the image.
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

constexpr int kGuard = 2, kExponent = 8;  // 8-bit samples, LL band: 9 planes

// A code-stream of one 8-bit component, one tile, no decomposition level,
// one layer, the image one code-block of w x h (powers of two).
Bytes WrapCodeStream(const t1test::Encoded& e, int w, int h, int style) {
  Bytes cs = {0xFF, 0x4F, 0xFF, 0x51};
  Put16(cs, 41);
  Put16(cs, 0);
  for (uint32_t v : {uint32_t(w), uint32_t(h), 0u, 0u, uint32_t(w), uint32_t(h), 0u, 0u}) Put32(cs, v);
  Put16(cs, 1);
  cs.insert(cs.end(), {7, 1, 1});
  cs.insert(cs.end(), {0xFF, 0x52});
  Put16(cs, 12);
  cs.insert(cs.end(), {0, 0, 0, 1, 0, 0, uint8_t(FloorLog2(w) - 2), uint8_t(FloorLog2(h) - 2), uint8_t(style), 1});
  cs.insert(cs.end(), {0xFF, 0x5C});
  Put16(cs, 4);
  cs.insert(cs.end(), {uint8_t(kGuard << 5), uint8_t(kExponent << 3)});

  HeaderWriter hw;
  if (e.passes == 0) {
    hw.Bit(0);
  } else {
    hw.Bit(1);  // not empty
    hw.Bit(1);  // included in layer 0 (a tag tree of one leaf, value 0)
    for (int i = 0; i < e.sf; ++i) hw.Bit(0);
    hw.Bit(1);
    const int n = e.passes;
    if (n == 1) hw.Bits(0, 1);
    else if (n == 2) hw.Bits(2, 2);
    else if (n <= 5) hw.Bits(0xC | uint32_t(n - 3), 4);
    else if (n <= 36) hw.Bits(0x1E0 | uint32_t(n - 6), 9);
    else hw.Bits((0x1FFu << 7) | uint32_t(n - 37), 16);
    const auto per = SegmentPasses(n, style);
    int lblock = 3;
    for (size_t s = 0; s < per.size(); ++s) {
      int need = 0;
      while ((int64_t(1) << (lblock + need + FloorLog2(per[s]))) <= e.segLen[s]) ++need;
      for (int i = 0; i < need; ++i) hw.Bit(1);
      lblock += need;
    }
    hw.Bit(0);
    for (size_t s = 0; s < per.size(); ++s) hw.Bits(uint32_t(e.segLen[s]), lblock + FloorLog2(per[s]));
  }
  hw.End();
  Bytes body = hw.out;
  body.insert(body.end(), e.data.begin(), e.data.end());
  cs.insert(cs.end(), {0xFF, 0x90});
  Put16(cs, 10);
  Put16(cs, 0);
  Put32(cs, uint32_t(12 + 2 + body.size()));
  cs.insert(cs.end(), {0, 1, 0xFF, 0x93});
  cs.insert(cs.end(), body.begin(), body.end());
  cs.insert(cs.end(), {0xFF, 0xD9});
  return cs;
}

// The one code-block of such a code-stream from another writer: its
// planes (from QCD), zero planes, passes and segment lengths.
struct Block {
  bool ok = false;
  int magnBits = 0, sf = 0, passes = 0, style = -1;
  Bytes data;
  std::vector<int32_t> segLen;
};
Block CutCodeBlock(const Bytes& cs) {
  Block b;
  size_t i = 2;
  size_t sod = 0;
  while (i + 4 <= cs.size()) {
    if (cs[i] != 0xFF) return b;
    const int m = cs[i + 1];
    if (m == 0x93) {
      sod = i + 2;
      break;
    }
    const size_t len = size_t(cs[i + 2]) << 8 | cs[i + 3];
    const uint8_t* seg = &cs[i + 4];
    if (m == 0x52) b.style = seg[8];
    if (m == 0x5C) b.magnBits = (seg[0] >> 5) + (seg[1] >> 3) - 1;
    if (m == 0x90) {
      i += 2 + len;
      continue;
    }
    i += 2 + len;
  }
  if (!sod || b.style < 0) return b;
  HeaderReader hr{&cs[sod], cs.size() - sod};
  if (!hr.Bit()) {
    b.ok = true;
    return b;
  }
  if (!hr.Bit()) {  // not included: an all-zero block
    b.ok = true;
    return b;
  }
  while (!hr.Bit()) ++b.sf;
  int n = 1;
  if (hr.Bit()) {
    n = 2;
    if (hr.Bit()) {
      const uint32_t two = hr.Bits(2);
      n = 3 + int(two);
      if (two == 3) {
        const uint32_t five = hr.Bits(5);
        n = 6 + int(five);
        if (five == 31) n = 37 + int(hr.Bits(7));
      }
    }
  }
  b.passes = n;
  int lblock = 3;
  while (hr.Bit()) ++lblock;
  size_t total = 0;
  for (int per : SegmentPasses(n, b.style)) {
    b.segLen.push_back(int32_t(hr.Bits(lblock + FloorLog2(per))));
    total += size_t(b.segLen.back());
  }
  const size_t start = sod + hr.End();
  if (start + total > cs.size()) return b;
  b.data.assign(cs.begin() + long(start), cs.begin() + long(start + total));
  b.ok = true;
  return b;
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

TEST(J2kTier1OpenJpeg, OpenJpegDecodesOurBlocksForEveryStyle) {
  if (!HaveTool("opj_decompress")) GTEST_SKIP() << "opj_decompress not installed";
  TempDir dir;
  test::Rng rng(1911);
  for (int style = 0; style < 64; ++style) {
    const int w = kSides[style % 6][0], h = kSides[style % 6][1];
    const auto px = Picture(rng, w, h, style);
    std::vector<int32_t> c(px.size());
    for (size_t i = 0; i < px.size(); ++i) c[i] = int32_t(px[i]) - 128;
    const t1test::Encoded e = t1test::Encode(c, w, h, 0, kGuard + kExponent - 1, style);
    ASSERT_EQ(e.status, rvtStatusOk);
    const Bytes cs = WrapCodeStream(e, w, h, style);
    const std::string in = dir.path + "/ours.j2k", out = dir.path + "/ours.pgm";
    std::ofstream(in, std::ios::binary).write(reinterpret_cast<const char*>(cs.data()), std::streamsize(cs.size()));
    std::remove(out.c_str());
    ASSERT_EQ(Shell("opj_decompress -i " + in + " -o " + out), 0) << "style " << style;
    EXPECT_EQ(ReadPgm(out, w, h), px) << "style " << style << " " << w << "x" << h;
  }
}

TEST(J2kTier1OpenJpeg, WeDecodeOpenJpegBlocksForEveryStyle) {
  if (!HaveTool("opj_compress")) GTEST_SKIP() << "opj_compress not installed";
  TempDir dir;
  test::Rng rng(1912);
  for (int style = 0; style < 64; ++style) {
    const int w = kSides[(style + 1) % 6][0], h = kSides[(style + 1) % 6][1];
    const auto px = Picture(rng, w, h, style + 1);
    const std::string in = dir.path + "/in.pgm", out = dir.path + "/opj.j2k";
    WritePgm(in, px, w, h);
    std::remove(out.c_str());
    ASSERT_EQ(Shell("opj_compress -i " + in + " -o " + out + " -n 1 -b " + std::to_string(w) + "," +
                    std::to_string(h) + " -M " + std::to_string(style)),
              0)
        << "style " << style;
    const Block b = CutCodeBlock(ReadFile(out));
    ASSERT_TRUE(b.ok) << "style " << style;
    ASSERT_EQ(b.style, style);
    std::vector<int32_t> got(px.size(), 0);
    int32_t bytes = 0;
    ASSERT_EQ(rvtiDecodeGetBufSize_JPEG2K({w, h}, &bytes), rvtStatusOk);
    std::vector<uint8_t> work(static_cast<size_t>(bytes));
    const uint8_t none = 0;
    const int32_t zero = 0;
    ASSERT_EQ(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R(b.data.empty() ? &none : b.data.data(),
                                                   b.segLen.empty() ? &zero : b.segLen.data(), got.data(), w * 4,
                                                   {w, h}, 0, b.magnBits, b.sf, b.passes, style, 0, work.data()),
              rvtStatusOk);
    std::vector<uint8_t> back(px.size());
    for (size_t i = 0; i < px.size(); ++i) back[i] = uint8_t(got[i] + 128);
    EXPECT_EQ(back, px) << "style " << style << " " << w << "x" << h;
  }
}

}  // namespace
}  // namespace rvt
