#include "lossless.h"

#include <png.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "rvtjp.h"

namespace rvtjpeg {
namespace {

// ------------------------------------------------------------ tables

struct HuffTable {
  uint8_t bits[16] = {};
  std::vector<uint8_t> vals;
};

// Code lengths of at most 16 bits from symbol counts (JPEG Annex K.2, with
// one reserved code so that no code is all 1-bits).
HuffTable OptimalTable(const std::vector<long>& counts_in) {
  std::vector<long> freq(counts_in);
  freq.resize(257, 0);
  freq[256] = 1;  // the reserved code
  int codesize[257] = {};
  int others[257];
  for (int& o : others) o = -1;
  for (;;) {
    int c1 = -1, c2 = -1;
    long v = 1L << 62;
    for (int i = 0; i <= 256; ++i) {
      if (freq[size_t(i)] && freq[size_t(i)] <= v) v = freq[size_t(i)], c1 = i;
    }
    v = 1L << 62;
    for (int i = 0; i <= 256; ++i) {
      if (freq[size_t(i)] && freq[size_t(i)] <= v && i != c1) v = freq[size_t(i)], c2 = i;
    }
    if (c2 < 0) break;
    freq[size_t(c1)] += freq[size_t(c2)];
    freq[size_t(c2)] = 0;
    ++codesize[c1];
    while (others[c1] >= 0) {
      c1 = others[c1];
      ++codesize[c1];
    }
    others[c1] = c2;
    ++codesize[c2];
    while (others[c2] >= 0) {
      c2 = others[c2];
      ++codesize[c2];
    }
  }
  int bits[33] = {};
  for (int i = 0; i <= 256; ++i) {
    if (codesize[i]) ++bits[codesize[i]];
  }
  for (int i = 32; i > 16; --i) {
    while (bits[i] > 0) {
      int j = i - 2;
      while (bits[j] == 0) --j;
      bits[i] -= 2;
      ++bits[i - 1];
      bits[j + 1] += 2;
      --bits[j];
    }
  }
  int i = 16;
  while (bits[i] == 0) --i;
  --bits[i];  // drop the reserved code
  HuffTable t;
  for (int k = 0; k < 16; ++k) t.bits[k] = uint8_t(bits[k + 1]);
  for (int len = 1; len <= 32; ++len) {
    for (int s = 0; s < 256; ++s) {
      if (codesize[s] == len) t.vals.push_back(uint8_t(s));
    }
  }
  return t;
}

int Category(int16_t d) {
  unsigned a = unsigned(d < 0 ? -int(d) : int(d));
  int n = 0;
  while (a) ++n, a >>= 1;
  return n;
}

// ------------------------------------------------------------ writer

struct Out {
  std::vector<uint8_t>* v;
  void Byte(int b) { v->push_back(uint8_t(b)); }
  void Word(int w) {
    Byte(w >> 8);
    Byte(w & 0xFF);
  }
  void Marker(int m) {
    Byte(0xFF);
    Byte(m);
  }
};

// The shift of a component's samples into the library's rows, and back.
struct Mapping {
  int pt;        // point transform
  uint16_t bias;  // 0x8000 when P - Pt = 16 (see lossless.h)
  int first_pt;  // the point transform to ask the first-row functions for
  uint16_t mask;  // 2^(P - Pt) - 1
  Mapping(int p, int point_transform) : pt(point_transform) {
    const bool full = p - pt == 16;
    bias = full ? 0x8000 : 0;
    first_pt = full ? 31 : pt;
    mask = uint16_t((1u << (p - pt)) - 1);
  }
  int16_t In(uint16_t s) const { return int16_t(uint16_t((s >> pt) ^ bias)); }
  uint16_t Back(int16_t x) const { return uint16_t(((uint16_t(x) ^ bias) & mask) << pt); }
};

}  // namespace

bool EncodeLossless(const Image16& image, const LosslessOptions& o, std::vector<uint8_t>* out,
                    std::string* error) {
  const int p = o.precision ? o.precision : image.precision;
  const int w = image.width, h = image.height, nc = image.channels;
  if (p < 2 || p > 16) return *error = "precision must be 2..16", false;
  if (o.predictor < 1 || o.predictor > 7) return *error = "predictor must be 1..7", false;
  if (o.point_transform < 0 || o.point_transform >= p) {
    return *error = "point transform must be 0.." + std::to_string(p - 1), false;
  }
  if (nc != 1 && nc != 3) return *error = "only grey and RGB images", false;
  if (w < 1 || h < 1 || w > 65535 || h > 65535) return *error = "image size out of range", false;
  if (o.restart_rows < 0 || long(o.restart_rows) * w > 65535) {
    return *error = "restart interval out of range (at most 65535 samples)", false;
  }
  for (uint16_t s : image.samples) {
    if (s >> p) return *error = "sample above the precision (" + std::to_string(p) + " bits)", false;
  }
  const Mapping map(p, o.point_transform);
  const size_t plane = size_t(w) * size_t(h);
  // Differences of every row of every component, and their categories.
  std::vector<int16_t> diff(plane * size_t(nc));
  std::vector<int16_t> cur(static_cast<size_t>(w)), prev(size_t(w) * size_t(nc));
  std::vector<long> counts(256, 0);
  long long bits = 0;
  for (int c = 0; c < nc; ++c) {
    for (int y = 0; y < h; ++y) {
      const uint16_t* s = image.samples.data() + size_t(y) * size_t(w) * size_t(nc) + size_t(c);
      for (int x = 0; x < w; ++x) cur[size_t(x)] = map.In(s[size_t(x) * size_t(nc)]);
      int16_t* d = diff.data() + plane * size_t(c) + size_t(y) * size_t(w);
      int16_t* above = prev.data() + size_t(c) * size_t(w);
      const bool first = y == 0 || (o.restart_rows && y % o.restart_rows == 0);
      const RvtResult r =
          first ? rvtiDiffPredFirstRow_JPEG_16s_C1(cur.data(), d, w, p, map.first_pt)
                : rvtiDiffPredRow_JPEG_16s_C1(cur.data(), above, d, w, o.predictor);
      if (r != rvtStatusOk) return *error = "differencing failed: " + std::to_string(r), false;
      std::copy(cur.begin(), cur.end(), above);
      for (int x = 0; x < w; ++x) {
        const int s16 = Category(d[x]);
        ++counts[size_t(s16)];
        bits += s16 < 16 ? s16 : 0;
      }
    }
  }
  const HuffTable table = OptimalTable(counts);
  EncodeHuffmanSpec* spec = nullptr;
  EncodeHuffmanState* state = nullptr;
  if (rvtiEncodeHuffmanSpecInitAlloc_JPEG_8u(table.bits, table.vals.data(), &spec) != rvtStatusOk ||
      rvtiEncodeHuffmanStateInitAlloc_JPEG_8u(&state) != rvtStatusOk) {
    rvtiEncodeHuffmanSpecFree_JPEG_8u(spec);
    return *error = "Huffman table", false;
  }
  // Code lengths: the bits of the codes.
  {
    int code_len[256] = {};
    size_t k = 0;
    for (int len = 1; len <= 16; ++len) {
      for (int n = 0; n < table.bits[len - 1]; ++n) code_len[table.vals[k++]] = len;
    }
    for (int s = 0; s < 256; ++s) bits += (long long)counts[size_t(s)] * code_len[s];
  }

  out->clear();
  Out o8{out};
  o8.Marker(0xD8);
  o8.Marker(0xC4);  // DHT
  o8.Word(2 + 17 + int(table.vals.size()));
  o8.Byte(0x00);
  for (uint8_t b : table.bits) o8.Byte(b);
  for (uint8_t v : table.vals) o8.Byte(v);
  o8.Marker(0xC3);  // SOF3
  o8.Word(8 + 3 * nc);
  o8.Byte(p);
  o8.Word(h);
  o8.Word(w);
  o8.Byte(nc);
  for (int c = 0; c < nc; ++c) {
    o8.Byte(c + 1);
    o8.Byte(0x11);
    o8.Byte(0);
  }
  if (o.restart_rows) {
    o8.Marker(0xDD);
    o8.Word(4);
    o8.Word(o.restart_rows * w);
  }
  o8.Marker(0xDA);
  o8.Word(6 + 2 * nc);
  o8.Byte(nc);
  for (int c = 0; c < nc; ++c) {
    o8.Byte(c + 1);
    o8.Byte(0x00);
  }
  o8.Byte(o.predictor);
  o8.Byte(0);
  o8.Byte(o.point_transform);

  // Stuffing at most doubles the bytes; each restart adds a flush byte (and
  // its stuffing) and a marker.
  const size_t head = out->size();
  const long restarts = o.restart_rows ? h / o.restart_rows + 1 : 1;
  out->resize(head + size_t(2 * (bits / 8 + 1) + 4 * restarts + 16));
  uint8_t* dst = out->data() + head;
  const int len = int(out->size() - head);
  int pos = 0;
  const EncodeHuffmanSpec* tables[4] = {spec, spec, spec, spec};
  RvtResult r = rvtStatusOk;
  int rst = 0;
  for (int y = 0; y < h && r == rvtStatusOk; ++y) {
    if (o.restart_rows && y > 0 && y % o.restart_rows == 0) {
      r = rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, dst, len, &pos, nullptr, state, 1);
      dst[pos++] = 0xFF;
      dst[pos++] = uint8_t(0xD0 + (rst++ & 7));
    }
    const int16_t* rows[4] = {};
    for (int c = 0; c < nc; ++c) rows[c] = diff.data() + plane * size_t(c) + size_t(y) * size_t(w);
    if (r == rvtStatusOk) {
      r = rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, w, nc, dst, len, &pos, tables, state, 0);
    }
  }
  if (r == rvtStatusOk) {
    r = rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, dst, len, &pos, nullptr, state, 1);
  }
  rvtiEncodeHuffmanSpecFree_JPEG_8u(spec);
  rvtiEncodeHuffmanStateFree_JPEG_8u(state);
  if (r != rvtStatusOk) return *error = "Huffman coding failed: " + std::to_string(r), false;
  out->resize(head + size_t(pos));
  o8.Marker(0xD9);
  return true;
}

bool IsLosslessJpeg(const uint8_t* d, size_t n) {
  if (n < 4 || d[0] != 0xFF || d[1] != 0xD8) return false;
  size_t i = 2;
  while (i + 4 <= n) {
    if (d[i] != 0xFF) return false;
    const int m = d[i + 1];
    if (m == 0xFF) {
      ++i;
      continue;
    }
    if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) return m == 0xC3;
    if (m == 0xDA || m == 0xD9) return false;
    i += 2 + (size_t(d[i + 2]) << 8 | d[i + 3]);
  }
  return false;
}

LosslessStatus DecodeLossless(const uint8_t* d, size_t n, Image16* image, std::string* message) {
  auto fail = [&](LosslessStatus s, const std::string& why) {
    *message = why;
    return s;
  };
  if (n < 4 || d[0] != 0xFF || d[1] != 0xD8) return fail(LosslessStatus::kCorrupt, "not a JPEG file");
  HuffTable dht[4];
  bool have[4] = {};
  int p = 0, w = 0, h = 0, nc = 0, restart = 0;
  int ids[4] = {};
  int sampling = 0x11;  // shared by every component
  size_t i = 2;
  for (;;) {
    if (i + 4 > n) return fail(LosslessStatus::kCorrupt, "no scan");
    if (d[i] != 0xFF) return fail(LosslessStatus::kCorrupt, "marker expected");
    const int m = d[i + 1];
    if (m == 0xFF) {
      ++i;
      continue;
    }
    const size_t len = size_t(d[i + 2]) << 8 | d[i + 3];
    if (len < 2 || i + 2 + len > n) return fail(LosslessStatus::kCorrupt, "truncated segment");
    const uint8_t* s = d + i + 4;
    const size_t sl = len - 2;
    if (m == 0xC4) {
      for (size_t k = 0; k + 17 <= sl;) {
        const int tc = s[k] >> 4, th = s[k] & 15;
        int total = 0;
        for (int b = 0; b < 16; ++b) total += s[k + 1 + size_t(b)];
        if (total > 256 || k + 17 + size_t(total) > sl || th > 3) {
          return fail(LosslessStatus::kCorrupt, "bad DHT");
        }
        if (tc == 0) {
          std::memcpy(dht[th].bits, s + k + 1, 16);
          dht[th].vals.assign(s + k + 17, s + k + 17 + total);
          have[th] = true;
        }
        k += 17 + size_t(total);
      }
    } else if (m == 0xC3) {
      if (sl < 6) return fail(LosslessStatus::kCorrupt, "bad SOF3");
      p = s[0];
      h = s[1] << 8 | s[2];
      w = s[3] << 8 | s[4];
      nc = s[5];
      if (sl < 6 + 3 * size_t(nc)) return fail(LosslessStatus::kCorrupt, "bad SOF3");
      if (p < 2 || p > 16) return fail(LosslessStatus::kUnsupported, "precision " + std::to_string(p));
      if (nc != 1 && nc != 3) {
        return fail(LosslessStatus::kUnsupported, std::to_string(nc) + " components (1 or 3 are)");
      }
      if (h == 0) return fail(LosslessStatus::kUnsupported, "DNL (height 0)");
      if (w == 0) return fail(LosslessStatus::kCorrupt, "width 0");
      for (int c = 0; c < nc; ++c) {
        ids[c] = s[6 + 3 * c];
        if (c == 0) sampling = s[7];
        if (s[7 + 3 * c] != sampling || (sampling >> 4) < 1 || (sampling & 15) < 1) {
          return fail(LosslessStatus::kUnsupported, "subsampled components");
        }
      }
    } else if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) {
      return fail(m == 0xC7 || m == 0xCB || m == 0xCF ? LosslessStatus::kUnsupported
                                                       : LosslessStatus::kNotLossless,
                  m == 0xCB || m == 0xCF || m == 0xC7 ? "hierarchical or arithmetic lossless"
                                                      : "not a lossless JPEG");
    } else if (m == 0xDD) {
      if (sl < 2) return fail(LosslessStatus::kCorrupt, "bad DRI");
      restart = s[0] << 8 | s[1];
    } else if (m == 0xDA) {
      if (!nc) return fail(LosslessStatus::kCorrupt, "scan before frame");
      const int ns = s[0];
      if (ns != nc) return fail(LosslessStatus::kUnsupported, "one scan per component");
      if (sl < 1 + 2 * size_t(ns) + 3) return fail(LosslessStatus::kCorrupt, "bad SOS");
      const DecodeHuffmanSpec* tables[4] = {};
      std::vector<std::unique_ptr<DecodeHuffmanSpec, RvtResult (*)(DecodeHuffmanSpec*)>> specs;
      int order[4];
      for (int c = 0; c < ns; ++c) {
        const int id = s[1 + 2 * c], td = s[2 + 2 * c] >> 4;
        order[c] = -1;
        for (int k = 0; k < nc; ++k) {
          if (ids[k] == id) order[c] = k;
        }
        if (order[c] < 0) return fail(LosslessStatus::kCorrupt, "scan component not in frame");
        if (td > 3 || !have[td]) return fail(LosslessStatus::kCorrupt, "missing Huffman table");
        DecodeHuffmanSpec* spec = nullptr;
        if (rvtiDecodeHuffmanSpecInitAlloc_JPEG_8u(dht[td].bits, dht[td].vals.data(), &spec) !=
            rvtStatusOk) {
          rvtiDecodeHuffmanSpecFree_JPEG_8u(spec);
          return fail(LosslessStatus::kCorrupt, "bad Huffman table");
        }
        specs.emplace_back(spec, rvtiDecodeHuffmanSpecFree_JPEG_8u);
        tables[c] = spec;
      }
      const int psv = s[1 + 2 * ns], pt = s[3 + 2 * ns] & 15;
      if (psv < 1 || psv > 7) return fail(LosslessStatus::kCorrupt, "predictor " + std::to_string(psv));
      if (pt >= p) return fail(LosslessStatus::kCorrupt, "point transform above precision");
      // MCUs of hs x vs samples of each component (1 x 1: whole rows
      // interleaved); the last MCU column and row may hold padding.
      const int hs = sampling >> 4, vs = sampling & 15;
      const int mcus = (w + hs - 1) / hs, wp = mcus * hs;
      if (restart % mcus != 0) {
        return fail(LosslessStatus::kUnsupported, "restart interval not a whole number of rows");
      }
      const int restart_rows = restart / mcus;  // in MCU rows
      const Mapping map(p, pt);
      const uint8_t* src = d + i + 2 + len;
      const int src_len = int(std::min<size_t>(n - (i + 2 + len), size_t(1) << 30));
      DecodeHuffmanState* state = nullptr;
      if (rvtiDecodeHuffmanStateInitAlloc_JPEG_8u(&state) != rvtStatusOk) {
        return fail(LosslessStatus::kCorrupt, "out of memory");
      }
      std::unique_ptr<DecodeHuffmanState, RvtResult (*)(DecodeHuffmanState*)> hold(
          state, rvtiDecodeHuffmanStateFree_JPEG_8u);
      image->width = w;
      image->height = h;
      image->channels = nc;
      image->precision = p;
      image->samples.assign(size_t(w) * size_t(h) * size_t(nc), 0);
      // Per scan component: vs difference lines, and the previous and
      // current reconstructed lines.
      std::vector<int16_t> diff(size_t(wp) * size_t(vs) * 4), rows(size_t(wp) * 4 * 2);
      auto diff_line = [&](int c, int v) { return diff.data() + (size_t(c) * size_t(vs) + size_t(v)) * size_t(wp); };
      int pos = 0, marker = 0;
      const int mcu_rows = (h + vs - 1) / vs;
      for (int my = 0; my < mcu_rows; ++my) {
        const bool first_mcu_row = my == 0 || (restart_rows && my % restart_rows == 0);
        if (my > 0 && first_mcu_row) {
          // Past the restart marker; the bits before it are padding.
          if (marker == 0) {
            while (pos + 1 < src_len && !(src[pos] == 0xFF && src[pos + 1] >= 0xD0 &&
                                          src[pos + 1] <= 0xD7)) {
              ++pos;
            }
            if (pos + 1 >= src_len) return fail(LosslessStatus::kCorrupt, "restart marker missing");
            marker = src[pos + 1];
            pos += 2;
          }
          if (marker < 0xD0 || marker > 0xD7) {
            return fail(LosslessStatus::kCorrupt, "restart marker expected");
          }
          marker = 0;
          rvtiDecodeHuffmanStateInit_JPEG_8u(state);
        }
        RvtResult r = rvtStatusOk;
        if (hs == 1 && vs == 1) {
          int16_t* out[4] = {};
          for (int c = 0; c < ns; ++c) out[c] = diff_line(c, 0);
          r = rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(src, src_len, &pos, out, w, ns, &marker, tables,
                                                   state);
        } else {
          for (int x = 0; x < mcus && r == rvtStatusOk; ++x) {
            for (int c = 0; c < ns && r == rvtStatusOk; ++c) {
              for (int v = 0; v < vs && r == rvtStatusOk; ++v) {
                int16_t* out[1] = {diff_line(c, v) + size_t(x) * size_t(hs)};
                const DecodeHuffmanSpec* t[1] = {tables[c]};
                r = rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(src, src_len, &pos, out, hs, 1, &marker,
                                                         t, state);
              }
            }
          }
        }
        if (r != rvtStatusOk) {
          return fail(LosslessStatus::kCorrupt,
                      "bad or truncated data in line " + std::to_string(my * vs));
        }
        for (int v = 0; v < vs && my * vs + v < h; ++v) {
          const int y = my * vs + v;
          const bool first = v == 0 && first_mcu_row;
          for (int c = 0; c < ns; ++c) {
            const int k = order[c];
            int16_t* x = rows.data() + size_t(k) * size_t(wp) * 2 + size_t(y & 1) * size_t(wp);
            const int16_t* above = rows.data() + size_t(k) * size_t(wp) * 2 + size_t(~y & 1) * size_t(wp);
            const int16_t* dl = diff_line(c, v);
            const RvtResult rr =
                first ? rvtiReconstructPredFirstRow_JPEG_16s_C1(dl, x, w, p, map.first_pt)
                      : rvtiReconstructPredRow_JPEG_16s_C1(dl, above, x, w, psv);
            if (rr != rvtStatusOk) return fail(LosslessStatus::kCorrupt, "reconstruction failed");
            uint16_t* dst = image->samples.data() + size_t(y) * size_t(w) * size_t(nc) + size_t(k);
            for (int xx = 0; xx < w; ++xx) dst[size_t(xx) * size_t(nc)] = map.Back(x[xx]);
          }
        }
      }
      return LosslessStatus::kOk;
    } else if (m == 0xD9) {
      return fail(LosslessStatus::kCorrupt, "no scan");
    }
    i += 2 + len;
  }
}

}  // namespace rvtjpeg
