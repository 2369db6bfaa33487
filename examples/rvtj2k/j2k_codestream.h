// Writing JPEG 2000 code-streams: big-endian fields, packet-header bits,
// tag trees, the main-header marker segments, packets and the .jp2 boxes.
// The pixel and entropy work happens elsewhere (j2k_encode.cc); this part
// only lays out bits and bytes.
#ifndef RVTJ2K_CODESTREAM_H_
#define RVTJ2K_CODESTREAM_H_

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace rvtj2k {

// The nodes of a tag tree over w x h leaves, level by level from the leaves
// (row-major in each level): each node's parent index, -1 for the root.
inline std::vector<int> TagTreeParents(int w, int h) {
  std::vector<std::pair<int, int>> levels;
  int lw = w, lh = h;
  do {
    levels.push_back({lw, lh});
    lw = (lw + 1) / 2;
    lh = (lh + 1) / 2;
  } while (levels.back().first * levels.back().second > 1);
  size_t total = 0;
  for (auto& l : levels) total += size_t(l.first) * size_t(l.second);
  std::vector<int> parent(total, -1);
  int base = 0;
  for (size_t k = 0; k + 1 < levels.size(); ++k) {
    const int cw = levels[k].first, ch = levels[k].second;
    const int next = base + cw * ch;
    for (int y = 0; y < ch; ++y)
      for (int x = 0; x < cw; ++x) parent[size_t(base + y * cw + x)] = next + (y / 2) * levels[k + 1].first + x / 2;
    base = next;
  }
  return parent;
}

using Bytes = std::vector<uint8_t>;

void Put8(Bytes& b, int v);
void Put16(Bytes& b, int v);
void Put32(Bytes& b, uint32_t v);

// Packet-header bits: a byte after 0xFF carries 7 bits (its top bit 0).
class BitWriter {
 public:
  explicit BitWriter(Bytes& out) : out_(out) {}
  void Bit(int b);
  void Bits(uint32_t v, int n);  // the n low bits of v, most significant first
  // Pads the last byte with zeros; after a final 0xFF a zero byte follows,
  // so a reader never takes the next marker for header bits.
  void Flush();

 private:
  Bytes& out_;
  int cur_ = 0, free_ = 8;
  bool lastFF_ = false;
};

// A tag tree over w x h leaves (raster order) that codes leaf values
// against growing thresholds, each node's bits sent once.
class TagTree {
 public:
  TagTree() = default;
  TagTree(int w, int h);
  void Set(int leaf, int value);  // before any Encode: fills the parents' minima
  // Codes what a decoder needs to learn whether leaf < threshold (and the
  // value when it is).
  void Encode(BitWriter& bw, int leaf, int threshold);
  // Forgets what was sent (values kept).
  void ResetCoding();

 private:
  struct Node {
    int value = 1 << 30, low = 0, parent = -1;
    bool known = false;
  };
  std::vector<Node> nodes_;
};

// Number of passes, as the packet header codes it (1..164).
void PutPassCount(BitWriter& bw, int n);
int FloorLog2(uint32_t v);
// Bits of v (0 for 0).
int BitLength(uint32_t v);

enum Progression { kLRCP = 0, kRLCP = 1, kRPCL = 2, kPCRL = 3, kCPRL = 4 };

// Main header: what SIZ, COD and QCD say.
struct MainHeader {
  int width = 0, height = 0, tileW = 0, tileH = 0, comps = 1, precision = 8;
  int progression = kLRCP, layers = 1, mct = 0, levels = 5, xcb = 6, ycb = 6, style = 0;
  bool reversible = true, sop = false, eph = false;
  int guard = 2;
  // Per band (LL, then HL, LH, HH per level from the smallest): exponent,
  // and for irreversible coding the 11-bit mantissa.
  std::vector<int> exponent, mantissa;
};
// SOC, SIZ, COD, QCD.
void WriteMainHeader(Bytes& out, const MainHeader& h);
// SOT (with the tile-part's full length) and SOD around data, appended.
void WriteTilePart(Bytes& out, int tileIndex, const Bytes& data);
void WriteEnd(Bytes& out);
// The .jp2 wrapper around a code-stream: signature, ftyp 'jp2 ', jp2h
// (ihdr, enumerated colr: sRGB or greyscale), jp2c.
Bytes WrapJp2(const Bytes& codestream, const MainHeader& h);

}  // namespace rvtj2k

#endif  // RVTJ2K_CODESTREAM_H_
