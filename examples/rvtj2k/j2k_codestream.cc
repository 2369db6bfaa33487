#include "j2k_codestream.h"

#include <algorithm>
#include <utility>

namespace rvtj2k {

void Put8(Bytes& b, int v) { b.push_back(uint8_t(v)); }
void Put16(Bytes& b, int v) {
  b.push_back(uint8_t(v >> 8));
  b.push_back(uint8_t(v));
}
void Put32(Bytes& b, uint32_t v) {
  Put16(b, int(v >> 16));
  Put16(b, int(v & 0xFFFF));
}

void BitWriter::Bit(int b) {
  cur_ = (cur_ << 1) | (b & 1);
  if (--free_ == 0) {
    out_.push_back(uint8_t(cur_));
    lastFF_ = cur_ == 0xFF;
    cur_ = 0;
    free_ = lastFF_ ? 7 : 8;
  }
}

void BitWriter::Bits(uint32_t v, int n) {
  while (n-- > 0) Bit(int(v >> n) & 1);
}

void BitWriter::Flush() {
  const int full = lastFF_ ? 7 : 8;
  if (free_ != full) {
    while (free_ != full) Bit(0);
  }
  if (lastFF_) {  // a byte of 7 zero bits after the final 0xFF
    out_.push_back(0);
    lastFF_ = false;
    free_ = 8;
  }
}

TagTree::TagTree(int w, int h) {
  const std::vector<int> parent = TagTreeParents(w, h);
  nodes_.resize(parent.size());
  for (size_t n = 0; n < parent.size(); ++n) nodes_[n].parent = parent[n];
}

void TagTree::Set(int leaf, int value) {
  for (int n = leaf; n >= 0; n = nodes_[size_t(n)].parent) {
    Node& nd = nodes_[size_t(n)];
    if (n != leaf && nd.value <= value) break;
    nd.value = n == leaf ? value : std::min(nd.value, value);
  }
}

void TagTree::Encode(BitWriter& bw, int leaf, int threshold) {
  int path[40], depth = 0;
  for (int n = leaf; n >= 0; n = nodes_[size_t(n)].parent) path[depth++] = n;
  int low = 0;
  for (int k = depth - 1; k >= 0; --k) {
    Node& nd = nodes_[size_t(path[k])];
    if (low > nd.low) nd.low = low;
    else low = nd.low;
    while (low < threshold) {
      if (low >= nd.value) {
        if (!nd.known) {
          bw.Bit(1);
          nd.known = true;
        }
        break;
      }
      bw.Bit(0);
      ++low;
    }
    nd.low = low;
  }
}

void TagTree::ResetCoding() {
  for (Node& n : nodes_) {
    n.low = 0;
    n.known = false;
  }
}

int FloorLog2(uint32_t v) {
  int r = 0;
  while (v > 1) v >>= 1, ++r;
  return r;
}
int BitLength(uint32_t v) {
  int r = 0;
  while (v) v >>= 1, ++r;
  return r;
}

void PutPassCount(BitWriter& bw, int n) {
  if (n == 1) bw.Bit(0);
  else if (n == 2) bw.Bits(2, 2);
  else if (n <= 5) bw.Bits(0xC | uint32_t(n - 3), 4);
  else if (n <= 36) bw.Bits(0x1E0 | uint32_t(n - 6), 9);
  else bw.Bits(0xFF80 | uint32_t(n - 37), 16);
}

void WriteMainHeader(Bytes& out, const MainHeader& h) {
  Put16(out, 0xFF4F);
  Put16(out, 0xFF51);  // SIZ
  Put16(out, 38 + 3 * h.comps);
  Put16(out, 0);  // capabilities: none beyond the base
  Put32(out, uint32_t(h.width));
  Put32(out, uint32_t(h.height));
  Put32(out, 0);
  Put32(out, 0);
  Put32(out, uint32_t(h.tileW));
  Put32(out, uint32_t(h.tileH));
  Put32(out, 0);
  Put32(out, 0);
  Put16(out, h.comps);
  for (int c = 0; c < h.comps; ++c) {
    Put8(out, h.precision - 1);  // unsigned samples
    Put8(out, 1);
    Put8(out, 1);
  }
  Put16(out, 0xFF52);  // COD: one precinct per resolution
  Put16(out, 12);
  Put8(out, (h.sop ? 2 : 0) | (h.eph ? 4 : 0));
  Put8(out, h.progression);
  Put16(out, h.layers);
  Put8(out, h.mct);
  Put8(out, h.levels);
  Put8(out, h.xcb - 2);
  Put8(out, h.ycb - 2);
  Put8(out, h.style);
  Put8(out, h.reversible ? 1 : 0);
  Put16(out, 0xFF5C);  // QCD
  const int bands = int(h.exponent.size());
  Put16(out, 3 + bands * (h.reversible ? 1 : 2));
  Put8(out, h.guard << 5 | (h.reversible ? 0 : 2));
  for (int b = 0; b < bands; ++b) {
    if (h.reversible) Put8(out, h.exponent[size_t(b)] << 3);
    else Put16(out, h.exponent[size_t(b)] << 11 | h.mantissa[size_t(b)]);
  }
}

void WriteTilePart(Bytes& out, int tileIndex, const Bytes& data) {
  Put16(out, 0xFF90);
  Put16(out, 10);
  Put16(out, tileIndex);
  Put32(out, uint32_t(12 + 2 + data.size()));
  Put8(out, 0);
  Put8(out, 1);
  Put16(out, 0xFF93);
  out.insert(out.end(), data.begin(), data.end());
}

void WriteEnd(Bytes& out) { Put16(out, 0xFFD9); }

namespace {
void Box(Bytes& out, uint32_t type, const Bytes& body) {
  Put32(out, uint32_t(8 + body.size()));
  Put32(out, type);
  out.insert(out.end(), body.begin(), body.end());
}
}  // namespace

Bytes WrapJp2(const Bytes& codestream, const MainHeader& h) {
  Bytes out;
  Box(out, 0x6A502020, {0x0D, 0x0A, 0x87, 0x0A});
  Bytes ftyp;
  Put32(ftyp, 0x6A703220);  // brand 'jp2 '
  Put32(ftyp, 0);
  Put32(ftyp, 0x6A703220);
  Box(out, 0x66747970, ftyp);
  Bytes ihdr;
  Put32(ihdr, uint32_t(h.height));
  Put32(ihdr, uint32_t(h.width));
  Put16(ihdr, h.comps);
  Put8(ihdr, h.precision - 1);
  Put8(ihdr, 7);  // compression type: JPEG 2000
  Put8(ihdr, 0);  // colour space known
  Put8(ihdr, 0);  // no intellectual property box
  Bytes colr;
  Put8(colr, 1);  // enumerated
  Put8(colr, 0);
  Put8(colr, 0);
  Put32(colr, h.comps == 3 ? 16 : 17);  // sRGB, greyscale
  Bytes jp2h;
  Box(jp2h, 0x69686472, ihdr);
  Box(jp2h, 0x636F6C72, colr);
  Box(out, 0x6A703268, jp2h);
  Box(out, 0x6A703263, codestream);
  return out;
}

}  // namespace rvtj2k
