// rvtj2k's code-stream writer (examples/rvtj2k/j2k_codestream.*): packet-header
// bits, tag trees and pass counts read back by a reader written here from
// the code-stream rules, on random input.  The end-to-end checks against
// OpenJPEG rarely produce a header ending in 0xFF or a tag tree revealed
// over many layers; these do.
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "j2k_codestream.h"

namespace {

using rvtj2k::BitWriter;
using rvtj2k::Bytes;

// Header bits as a decoder reads them: 7 bits in a byte after 0xFF.
struct Reader {
  const Bytes& b;
  size_t pos = 0;
  int cur = 0, n = 0;
  int Bit() {
    if (n == 0) {
      const bool ff = cur == 0xFF;
      cur = pos < b.size() ? b[pos++] : 0;
      n = ff ? 7 : 8;
      if (ff) EXPECT_LT(cur, 0x80) << "byte after 0xFF at " << pos - 1;
    }
    return (cur >> --n) & 1;
  }
  // Bytes taken: a final 0xFF takes the byte after it too.
  size_t End() const { return pos + (cur == 0xFF && n == 0 ? 1 : 0); }
};

TEST(J2kCodestream, HeaderBitsStuffAfterFFAndEndClear) {
  auto bytes = [](std::vector<int> bits) {
    Bytes out;
    BitWriter w(out);
    for (int b : bits) w.Bit(b);
    w.Flush();
    return out;
  };
  EXPECT_EQ(bytes(std::vector<int>(16, 1)), (Bytes{0xFF, 0x7F, 0x80}));
  EXPECT_EQ(bytes(std::vector<int>(8, 1)), (Bytes{0xFF, 0x00}));  // never ends in 0xFF
  EXPECT_EQ(bytes({1, 0, 1}), (Bytes{0xA0}));
  EXPECT_EQ(bytes({}), Bytes{});

  std::mt19937 rng(7);
  for (int trial = 0; trial < 500; ++trial) {
    // Runs of ones make 0xFF bytes common.
    std::vector<int> bits(rng() % 200);
    for (int& b : bits) b = (rng() % 8) != 0;
    const Bytes out = bytes(bits);
    ASSERT_TRUE(out.empty() || out.back() != 0xFF);
    Reader r{out};
    for (size_t i = 0; i < bits.size(); ++i) ASSERT_EQ(r.Bit(), bits[i]) << "trial " << trial << " bit " << i;
    EXPECT_EQ(r.End(), out.size()) << "trial " << trial;
  }
}

// A tag-tree decoder from the coding rules: a node's value is learnt by
// one bit per step of its threshold, starting from its parent's value.
struct TreeReader {
  struct Node {
    int value = 0, low = 0, parent = -1;
    bool known = false;
  };
  std::vector<Node> nodes;
  TreeReader(int w, int h) {
    std::vector<std::pair<int, int>> lv;
    for (int lw = w, lh = h;; lw = (lw + 1) / 2, lh = (lh + 1) / 2) {
      lv.push_back({lw, lh});
      if (lw * lh == 1) break;
    }
    int total = 0;
    for (auto& l : lv) total += l.first * l.second;
    nodes.resize(size_t(total));
    for (size_t k = 0, base = 0; k + 1 < lv.size(); base += size_t(lv[k].first * lv[k].second), ++k)
      for (int y = 0; y < lv[k].second; ++y)
        for (int x = 0; x < lv[k].first; ++x)
          nodes[base + size_t(y * lv[k].first + x)].parent =
              int(base) + lv[k].first * lv[k].second + (y / 2) * lv[k + 1].first + x / 2;
  }
  bool Below(int leaf, int threshold, Reader& r) {
    std::vector<int> path;
    for (int n = leaf; n >= 0; n = nodes[size_t(n)].parent) path.push_back(n);
    int low = 0;
    for (size_t k = path.size(); k-- > 0;) {
      Node& nd = nodes[size_t(path[k])];
      low = std::max(low, nd.low);
      while (low < threshold && !nd.known) {
        if (r.Bit()) nd.value = low, nd.known = true;
        else ++low;
      }
      nd.low = low;
      if (!nd.known || nd.value >= threshold) return false;
      low = nd.value;
    }
    return true;
  }
};

// Inclusion as packets send it: a leaf's value (its first layer) enters the
// tree only in the layer it is reached, thresholds grow by one per layer;
// once a leaf is in, its second tree value is sent whole.
TEST(J2kCodestream, TagTreesDecodeAcrossLayers) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 300; ++trial) {
    const int w = 1 + int(rng() % 9), h = 1 + int(rng() % 9), n = w * h, layers = 1 + int(rng() % 6);
    std::vector<int> first(static_cast<size_t>(n)), zero(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
      first[size_t(i)] = int(rng() % (layers + 2));  // layers or more: never included
      zero[size_t(i)] = int(rng() % 12);
    }
    rvtj2k::TagTree incl(w, h), zt(w, h);
    for (int i = 0; i < n; ++i) zt.Set(i, zero[size_t(i)]);
    Bytes out;
    {
      BitWriter bw(out);
      std::vector<bool> in(static_cast<size_t>(n), false);
      for (int l = 0; l < layers; ++l) {
        for (int i = 0; i < n; ++i)
          if (first[size_t(i)] == l) incl.Set(i, l);
        for (int i = 0; i < n; ++i) {
          if (in[size_t(i)]) continue;
          incl.Encode(bw, i, l + 1);
          if (first[size_t(i)] == l) {
            in[size_t(i)] = true;
            zt.Encode(bw, i, zero[size_t(i)] + 1);
          }
        }
      }
      bw.Flush();
    }
    Reader r{out};
    TreeReader ri(w, h), rz(w, h);
    std::vector<bool> in(static_cast<size_t>(n), false);
    for (int l = 0; l < layers; ++l)
      for (int i = 0; i < n; ++i) {
        if (in[size_t(i)]) continue;
        const bool now = ri.Below(i, l + 1, r);
        ASSERT_EQ(now, first[size_t(i)] == l) << "trial " << trial << " layer " << l << " leaf " << i;
        if (!now) continue;
        in[size_t(i)] = true;
        int t = 1;
        while (!rz.Below(i, t, r)) ++t;
        ASSERT_EQ(rz.nodes[size_t(i)].value, zero[size_t(i)]) << "trial " << trial << " leaf " << i;
      }
    EXPECT_EQ(r.End(), out.size()) << "trial " << trial;
  }
}

TEST(J2kCodestream, PassCountCodewords) {
  for (int count = 1; count <= 164; ++count) {
    Bytes out;
    {
      BitWriter bw(out);
      rvtj2k::PutPassCount(bw, count);
      bw.Flush();
    }
    // "0" for 1, "10" for 2, "11xx" for 3..5, "1111 xxxxx" for 6..36,
    // "1111 11111 xxxxxxx" for 37..164.
    Reader r{out};
    int bits = 0;
    auto bit = [&] { return ++bits, r.Bit(); };
    auto get = [&](int k) {
      int v = 0;
      while (k--) v = v << 1 | bit();
      return v;
    };
    int n = 1;
    if (bit()) {
      n = 2;
      if (bit()) {
        const int two = get(2);
        n = 3 + two;
        if (two == 3) {
          const int five = get(5);
          n = 6 + five;
          if (five == 31) n = 37 + get(7);
        }
      }
    }
    EXPECT_EQ(n, count);
    const int want = count == 1 ? 1 : count == 2 ? 2 : count <= 5 ? 4 : count <= 36 ? 9 : 16;
    EXPECT_EQ(bits, want) << count;
  }
}

}  // namespace
