// The coefficient layer of Huffman JPEG files: scans run over blocks with
// the library's baseline and progressive block coders and statistics.
#include "progressive.h"

#include <algorithm>
#include <cstring>

#include "jpeg_tables.h"
#include "rvtjp.h"

namespace rvtjpeg::coef {
namespace {

// Block coder states and specs, sized by the library and kept as bytes.
struct Bytes {
  std::vector<uint8_t> b;
  template <class T>
  T* as() {
    return reinterpret_cast<T*>(b.data());
  }
};
Bytes Sized(RvtResult (*get)(int*)) {
  int n = 0;
  get(&n);
  return Bytes{std::vector<uint8_t>(size_t(n))};
}

int Get16(const uint8_t* p) { return p[0] << 8 | p[1]; }

enum class Kind { kBaseline, kDCFirst, kDCRefine, kACFirst, kACRefine };

Kind KindOf(bool progressive, const Scan& s) {
  if (!progressive) return Kind::kBaseline;
  if (s.ss == 0) return s.ah == 0 ? Kind::kDCFirst : Kind::kDCRefine;
  return s.ah == 0 ? Kind::kACFirst : Kind::kACRefine;
}

// Calls f(component index, block) for every block of a scan in coding
// order, and restart(mcu) before every MCU that starts a restart interval
// (not the first).
template <class BlockFn, class RestartFn>
bool ForEachBlock(Frame& f, const Scan& s, int restart_interval, BlockFn block, RestartFn restart) {
  long mcu = 0;
  auto boundary = [&]() -> bool {
    if (restart_interval > 0 && mcu > 0 && mcu % restart_interval == 0) {
      if (!restart(mcu / restart_interval - 1)) return false;
    }
    ++mcu;
    return true;
  };
  if (s.comps.size() == 1) {
    Component& c = f.comps[size_t(s.comps[0])];
    for (int by = 0; by < c.rh; ++by) {
      for (int bx = 0; bx < c.rw; ++bx) {
        if (!boundary() || !block(s.comps[0], c.block(bx, by))) return false;
      }
    }
    return true;
  }
  for (int my = 0; my < f.mcuy; ++my) {
    for (int mx = 0; mx < f.mcux; ++mx) {
      if (!boundary()) return false;
      for (int ci : s.comps) {
        Component& c = f.comps[size_t(ci)];
        for (int v = 0; v < c.v; ++v) {
          for (int h = 0; h < c.h; ++h) {
            if (!block(ci, c.block(mx * c.h + h, my * c.v + v))) return false;
          }
        }
      }
    }
  }
  return true;
}

// ------------------------------------------------------------ reading

struct Reader {
  const uint8_t* data;
  size_t size;
  size_t pos = 0;
  Frame* f;
  std::string* error;
  bool* unsupported;
  bool have_frame = false;
  int restart_interval = 0;
  Bytes dc[4]{}, ac[4]{};
  bool dc_ok[4] = {}, ac_ok[4] = {};

  bool Fail(const std::string& m, bool unsup = false) {
    *error = m;
    if (unsup && unsupported) *unsupported = true;
    return false;
  }

  // The next marker at or after pos (fill bytes passed); pos goes past it.
  int NextMarker() {
    while (pos + 1 < size) {
      if (data[pos] == 0xFF && data[pos + 1] != 0 && data[pos + 1] != 0xFF) {
        const int m = data[pos + 1];
        pos += 2;
        return m;
      }
      ++pos;
    }
    pos = size;
    return -1;
  }

  bool Segment(size_t* body, size_t* len) {
    if (pos + 2 > size) return Fail("truncated segment");
    const size_t n = size_t(Get16(data + pos));
    if (n < 2 || pos + n > size) return Fail("bad segment length");
    *body = pos + 2;
    *len = n - 2;
    pos += n;
    return true;
  }

  bool Dqt(size_t p, size_t n) {
    const size_t end = p + n;
    while (p < end) {
      const int pq = data[p] >> 4, tq = data[p] & 15;
      if (tq > 3) return Fail("bad DQT");
      if (pq != 0) return Fail("16-bit quantization tables", true);
      if (p + 65 > end) return Fail("bad DQT");
      std::memcpy(f->qt[tq], data + p + 1, 64);
      f->qt_present[tq] = true;
      p += 65;
    }
    return true;
  }

  bool Dht(size_t p, size_t n) {
    const size_t end = p + n;
    while (p < end) {
      if (p + 17 > end) return Fail("bad DHT");
      const int tc = data[p] >> 4, th = data[p] & 15;
      if (tc > 1 || th > 3) return Fail("bad DHT");
      int count = 0;
      for (int i = 0; i < 16; ++i) count += data[p + 1 + i];
      if (count > 256 || p + 17 + size_t(count) > end) return Fail("bad DHT");
      uint8_t vals[256] = {};
      std::memcpy(vals, data + p + 17, size_t(count));
      Bytes& t = tc ? ac[th] : dc[th];
      t = Sized(rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u);
      if (rvtiDecodeHuffmanSpecInit_JPEG_8u(data + p + 1, vals, t.as<DecodeHuffmanSpec>()) !=
          rvtStatusOk) {
        return Fail("bad Huffman table");
      }
      (tc ? ac_ok : dc_ok)[th] = true;
      p += 17 + size_t(count);
    }
    return true;
  }

  bool Sof(int m, size_t p, size_t n) {
    if (have_frame) return Fail("second frame");
    if (m != 0xC0 && m != 0xC1 && m != 0xC2) return Fail("not a Huffman DCT frame", true);
    if (n < 6) return Fail("bad SOF");
    if (data[p] != 8) return Fail("not 8-bit samples", true);
    f->progressive = m == 0xC2;
    f->height = Get16(data + p + 1);
    f->width = Get16(data + p + 3);
    const int nc = data[p + 5];
    if (f->width < 1 || f->height < 1) return Fail("bad image size", f->height == 0);
    if (nc < 1 || nc > 4 || n < size_t(6 + 3 * nc)) return Fail("bad SOF");
    if (size_t(f->width) * size_t(f->height) > (size_t(1) << 28)) return Fail("image too large", true);
    f->comps.clear();
    for (int i = 0; i < nc; ++i) {
      Component c;
      c.id = data[p + 6 + 3 * i];
      c.h = data[p + 7 + 3 * i] >> 4;
      c.v = data[p + 7 + 3 * i] & 15;
      c.tq = data[p + 8 + 3 * i];
      if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4 || c.tq > 3) return Fail("bad SOF");
      f->comps.push_back(std::move(c));
    }
    f->Layout();
    have_frame = true;
    return true;
  }

  bool Sos(size_t p, size_t n) {
    if (!have_frame) return Fail("scan before frame");
    if (n < 1) return Fail("bad SOS");
    const int ns = data[p];
    if (ns < 1 || ns > 4 || n != size_t(4 + 2 * ns)) return Fail("bad SOS");
    Scan s;
    int td[4], ta[4];
    for (int i = 0; i < ns; ++i) {
      const int id = data[p + 1 + 2 * i];
      int ci = -1;
      for (size_t k = 0; k < f->comps.size(); ++k) {
        if (f->comps[k].id == id) ci = int(k);
      }
      if (ci < 0) return Fail("scan of an unknown component");
      s.comps.push_back(ci);
      td[i] = data[p + 2 + 2 * i] >> 4;
      ta[i] = data[p + 2 + 2 * i] & 15;
      if (td[i] > 3 || ta[i] > 3) return Fail("bad SOS");
    }
    s.ss = data[p + 1 + 2 * ns];
    s.se = data[p + 2 + 2 * ns];
    s.ah = data[p + 3 + 2 * ns] >> 4;
    s.al = data[p + 3 + 2 * ns] & 15;
    const Kind kind = KindOf(f->progressive, s);
    if (kind == Kind::kBaseline) {
      if (s.ss != 0 || s.se != 63 || s.ah != 0 || s.al != 0) return Fail("bad SOS");
    } else if (s.ss == 0) {
      if (s.se != 0) return Fail("bad progressive scan");
    } else if (ns != 1 || s.se < s.ss || s.se > 63) {
      return Fail("bad progressive scan");
    }
    if (s.al > 13 || (s.ah != 0 && s.ah != s.al + 1)) return Fail("bad successive approximation");
    for (int i = 0; i < ns; ++i) {
      const bool need_dc = kind == Kind::kBaseline || kind == Kind::kDCFirst;
      const bool need_ac = kind == Kind::kBaseline || kind == Kind::kACFirst ||
                           kind == Kind::kACRefine;
      if ((need_dc && !dc_ok[td[i]]) || (need_ac && !ac_ok[ta[i]])) {
        return Fail("scan uses an undefined Huffman table");
      }
    }
    return RunScan(s, kind, td, ta);
  }

  bool RunScan(const Scan& s, Kind kind, const int* td, const int* ta) {
    Bytes st = Sized(rvtiDecodeHuffmanStateGetBufSize_JPEG_8u);
    auto* state = st.as<DecodeHuffmanState>();
    rvtiDecodeHuffmanStateInit_JPEG_8u(state);
    int16_t last_dc[4] = {};
    int marker = 0;
    int table_of[4] = {};
    for (size_t i = 0; i < s.comps.size(); ++i) table_of[s.comps[i]] = int(i);
    const int len = int(std::min<size_t>(size, 0x7FFFFFFF));
    int p = int(pos);
    int16_t scratch[64];
    bool ok = ForEachBlock(
        *f, s, restart_interval,
        [&](int ci, int16_t* block) {
          const int i = table_of[ci];
          const auto* dct = dc[td[i]].as<DecodeHuffmanSpec>();
          const auto* act = ac[ta[i]].as<DecodeHuffmanSpec>();
          RvtResult r = rvtStatusOk;
          switch (kind) {
            case Kind::kBaseline:
              r = rvtiDecodeHuffman8x8_JPEG_1u16s_C1(data, len, &p, scratch, &last_dc[i], &marker,
                                                      dct, act, state);
              if (r == rvtStatusOk) std::memcpy(block, scratch, sizeof scratch);
              break;
            case Kind::kDCFirst:
              r = rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(data, len, &p, block, &last_dc[i],
                                                             &marker, s.al, dct, state);
              break;
            case Kind::kDCRefine:
              r = rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(data, len, &p, block, &marker, s.al,
                                                              state);
              break;
            case Kind::kACFirst:
              r = rvtiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(data, len, &p, block, &marker, s.ss,
                                                             s.se, s.al, act, state);
              break;
            case Kind::kACRefine:
              r = rvtiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(data, len, &p, block, &marker, s.ss,
                                                              s.se, s.al, act, state);
              break;
          }
          if (r != rvtStatusOk) {
            *error = r == rvtStatusOutOfBuffer ? "truncated scan" : "corrupt scan data";
            return false;
          }
          return true;
        },
        [&](long n) {
          // The marker may already have been read ahead; otherwise it is
          // the next one in the data.
          pos = size_t(p);
          const int m = marker != 0 ? marker : NextMarker();
          if (m != 0xD0 + int(n & 7)) {
            *error = "restart marker expected";
            return false;
          }
          p = int(pos);
          marker = 0;
          rvtiDecodeHuffmanStateInit_JPEG_8u(state);
          std::fill(last_dc, last_dc + 4, int16_t(0));
          return true;
        });
    pos = size_t(p);
    if (!ok) return false;
    // The marker after the scan: already read, or the next one.
    if (marker != 0) pos -= 2;
    return true;
  }

  bool Run() {
    if (size < 4 || data[0] != 0xFF || data[1] != 0xD8) return Fail("not a JPEG file");
    pos = 2;
    bool scanned = false;
    for (;;) {
      const int m = NextMarker();
      if (m < 0) return scanned ? Fail("no EOI") : Fail("no scan");
      if (m == 0xD9) break;
      if (m >= 0xD0 && m <= 0xD7) continue;  // stray restart marker
      size_t body, n;
      if (!Segment(&body, &n)) return false;
      if (m == 0xDB) {
        if (!Dqt(body, n)) return false;
      } else if (m == 0xC4) {
        if (!Dht(body, n)) return false;
      } else if (m == 0xDD) {
        if (n != 2) return Fail("bad DRI");
        restart_interval = Get16(data + body);
      } else if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC) {
        if (!Sof(m, body, n)) return false;
      } else if (m == 0xCC) {
        return Fail("arithmetic coding", true);
      } else if (m == 0xDA) {
        if (!Sos(body, n)) return false;
        scanned = true;
      }
    }
    if (!scanned) return Fail("no scan");
    return true;
  }
};

// ------------------------------------------------------------ writing

void Put16(std::vector<uint8_t>* o, int v) {
  o->push_back(uint8_t(v >> 8));
  o->push_back(uint8_t(v));
}
void PutMarker(std::vector<uint8_t>* o, int m) {
  o->push_back(0xFF);
  o->push_back(uint8_t(m));
}

struct Table {
  uint8_t bits[16] = {};
  uint8_t vals[256] = {};
  int count() const {
    int n = 0;
    for (uint8_t b : bits) n += b;
    return n;
  }
};

void PutDht(std::vector<uint8_t>* o, int tc, int th, const Table& t) {
  PutMarker(o, 0xC4);
  Put16(o, 2 + 17 + t.count());
  o->push_back(uint8_t(tc << 4 | th));
  o->insert(o->end(), t.bits, t.bits + 16);
  o->insert(o->end(), t.vals, t.vals + t.count());
}

Table StandardTable(bool ac, int id) {
  Table t;
  const uint8_t* bits = ac ? (id ? kAcChromaBits : kAcLumaBits) : (id ? kDcChromaBits : kDcLumaBits);
  const uint8_t* vals = ac ? (id ? kAcChromaVals : kAcLumaVals) : (id ? kDcChromaVals : kDcLumaVals);
  std::memcpy(t.bits, bits, 16);
  std::memcpy(t.vals, vals, size_t(t.count()));
  return t;
}

struct Writer {
  Frame& f;
  const WriteOptions& opt;
  std::vector<uint8_t>* out;
  std::string* error;
  int last_restart = 0;

  bool Fail(const std::string& m) {
    *error = m;
    return false;
  }

  // Counts the symbols of a scan into per-table arrays.
  bool Gather(const Scan& s, Kind kind, std::vector<int> (&dcc)[4], std::vector<int> (&acc)[4]) {
    Bytes st = Sized(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u);
    auto* state = st.as<EncodeHuffmanState>();
    rvtiEncodeHuffmanStateInit_JPEG_8u(state);
    int16_t last_dc[4] = {};
    const int ac_table = f.comps[size_t(s.comps[0])].ac_table;
    auto flush = [&]() -> bool {
      if (kind != Kind::kACFirst && kind != Kind::kACRefine) return true;
      auto fn = kind == Kind::kACFirst ? rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1
                                       : rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1;
      return fn(nullptr, acc[ac_table].data(), 0, 0, 0, state, 1) == rvtStatusOk;
    };
    bool ok = ForEachBlock(
        f, s, opt.restart_interval,
        [&](int ci, int16_t* block) {
          const Component& c = f.comps[size_t(ci)];
          RvtResult r = rvtStatusOk;
          switch (kind) {
            case Kind::kBaseline:
              r = rvtiGetHuffmanStatistics8x8_JPEG_16s_C1(block, dcc[c.dc_table].data(),
                                                          acc[c.ac_table].data(), &last_dc[ci]);
              break;
            case Kind::kDCFirst:
              r = rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(block, dcc[c.dc_table].data(),
                                                                  &last_dc[ci], s.al);
              break;
            case Kind::kDCRefine:
              break;
            case Kind::kACFirst:
              r = rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(
                  block, acc[c.ac_table].data(), s.ss, s.se, s.al, state, 0);
              break;
            case Kind::kACRefine:
              r = rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(
                  block, acc[c.ac_table].data(), s.ss, s.se, s.al, state, 0);
              break;
          }
          return r == rvtStatusOk;
        },
        [&](long) {
          std::fill(last_dc, last_dc + 4, int16_t(0));
          return flush();
        });
    return (ok && flush()) || Fail("coefficient out of range");
  }

  bool WriteScan(const Scan& s) {
    const Kind kind = KindOf(opt.progressive, s);
    const bool uses_dc = kind == Kind::kBaseline || kind == Kind::kDCFirst;
    const bool uses_ac = kind == Kind::kBaseline || kind == Kind::kACFirst || kind == Kind::kACRefine;
    Table dct[4], act[4];
    if (opt.optimize || opt.progressive) {
      std::vector<int> dcc[4], acc[4];
      for (int i = 0; i < 4; ++i) {
        dcc[i].assign(257, 0);
        acc[i].assign(257, 0);
      }
      if (!Gather(s, kind, dcc, acc)) return false;
      for (int i = 0; i < 4; ++i) {
        rvtiEncodeHuffmanRawTableInit_JPEG_8u(dcc[i].data(), dct[i].bits, dct[i].vals);
        rvtiEncodeHuffmanRawTableInit_JPEG_8u(acc[i].data(), act[i].bits, act[i].vals);
      }
    } else {
      for (int i = 0; i < 2; ++i) {
        dct[i] = StandardTable(false, i);
        act[i] = StandardTable(true, i);
      }
    }
    // Tables in the order libjpeg writes them: per component, DC then AC,
    // each once.
    bool sent_dc[4] = {}, sent_ac[4] = {};
    for (int ci : s.comps) {
      const Component& c = f.comps[size_t(ci)];
      if (uses_dc && !sent_dc[c.dc_table]) {
        PutDht(out, 0, c.dc_table, dct[c.dc_table]);
        sent_dc[c.dc_table] = true;
      }
      if (uses_ac && !sent_ac[c.ac_table]) {
        PutDht(out, 1, c.ac_table, act[c.ac_table]);
        sent_ac[c.ac_table] = true;
      }
    }
    if (opt.restart_interval != last_restart) {
      PutMarker(out, 0xDD);
      Put16(out, 4);
      Put16(out, opt.restart_interval);
      last_restart = opt.restart_interval;
    }
    PutMarker(out, 0xDA);
    Put16(out, 6 + 2 * int(s.comps.size()));
    out->push_back(uint8_t(s.comps.size()));
    for (int ci : s.comps) {
      const Component& c = f.comps[size_t(ci)];
      out->push_back(uint8_t(c.id));
      out->push_back(uint8_t((uses_dc ? c.dc_table : 0) << 4 | (uses_ac ? c.ac_table : 0)));
    }
    out->push_back(uint8_t(s.ss));
    out->push_back(uint8_t(s.se));
    out->push_back(uint8_t(s.ah << 4 | s.al));

    Bytes es[4], ea[4];
    for (int i = 0; i < 4; ++i) {
      es[i] = Sized(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u);
      ea[i] = Sized(rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u);
      rvtiEncodeHuffmanSpecInit_JPEG_8u(dct[i].bits, dct[i].vals, es[i].as<EncodeHuffmanSpec>());
      rvtiEncodeHuffmanSpecInit_JPEG_8u(act[i].bits, act[i].vals, ea[i].as<EncodeHuffmanSpec>());
    }
    Bytes st = Sized(rvtiEncodeHuffmanStateGetBufSize_JPEG_8u);
    auto* state = st.as<EncodeHuffmanState>();
    rvtiEncodeHuffmanStateInit_JPEG_8u(state);
    int16_t last_dc[4] = {};
    std::vector<uint8_t>& o = *out;
    int p = int(o.size());
    auto room = [&]() {
      if (o.size() < size_t(p) + 4096) o.resize(size_t(p) + 65536);
    };
    const Component& c0 = f.comps[size_t(s.comps[0])];
    auto flush = [&]() -> bool {
      room();
      const int len = int(o.size());
      RvtResult r = rvtStatusOk;
      switch (kind) {
        case Kind::kBaseline:
          r = rvtiEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, o.data(), len, &p, nullptr, nullptr,
                                                 nullptr, state, 1);
          break;
        case Kind::kDCFirst:
        case Kind::kDCRefine:
          r = rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, o.data(), len, &p, 0, state, 1);
          break;
        case Kind::kACFirst:
          r = rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(
              nullptr, o.data(), len, &p, 0, 0, 0, ea[c0.ac_table].as<EncodeHuffmanSpec>(), state, 1);
          break;
        case Kind::kACRefine:
          r = rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(
              nullptr, o.data(), len, &p, 0, 0, 0, ea[c0.ac_table].as<EncodeHuffmanSpec>(), state, 1);
          break;
      }
      return r == rvtStatusOk;
    };
    bool ok = ForEachBlock(
        f, s, opt.restart_interval,
        [&](int ci, int16_t* block) {
          const Component& c = f.comps[size_t(ci)];
          room();
          const int len = int(o.size());
          const auto* dspec = es[c.dc_table].as<EncodeHuffmanSpec>();
          const auto* aspec = ea[c.ac_table].as<EncodeHuffmanSpec>();
          RvtResult r = rvtStatusOk;
          switch (kind) {
            case Kind::kBaseline:
              r = rvtiEncodeHuffman8x8_JPEG_16s1u_C1(block, o.data(), len, &p, &last_dc[ci], dspec,
                                                     aspec, state, 0);
              break;
            case Kind::kDCFirst:
              r = rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(block, o.data(), len, &p,
                                                             &last_dc[ci], s.al, dspec, state, 0);
              break;
            case Kind::kDCRefine:
              r = rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(block, o.data(), len, &p, s.al,
                                                              state, 0);
              break;
            case Kind::kACFirst:
              r = rvtiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(block, o.data(), len, &p, s.ss, s.se,
                                                             s.al, aspec, state, 0);
              break;
            case Kind::kACRefine:
              r = rvtiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(block, o.data(), len, &p, s.ss,
                                                              s.se, s.al, aspec, state, 0);
              break;
          }
          return r == rvtStatusOk;
        },
        [&](long n) {
          if (!flush()) return false;
          o[size_t(p)] = 0xFF;
          o[size_t(p) + 1] = uint8_t(0xD0 + (n & 7));
          p += 2;
          std::fill(last_dc, last_dc + 4, int16_t(0));
          return true;
        });
    ok = ok && flush();
    o.resize(size_t(p));
    return ok || Fail("coefficient out of range for its table");
  }

  bool Run() {
    out->clear();
    PutMarker(out, 0xD8);
    // JFIF 1.01, no density unit, 1:1 aspect, no thumbnail.
    PutMarker(out, 0xE0);
    Put16(out, 16);
    const uint8_t app0[] = {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0};
    out->insert(out->end(), app0, app0 + sizeof app0);
    for (int t = 0; t < 4; ++t) {
      bool used = false;
      for (const Component& c : f.comps) used |= c.tq == t;
      if (!used) continue;
      PutMarker(out, 0xDB);
      Put16(out, 67);
      out->push_back(uint8_t(t));
      out->insert(out->end(), f.qt[t], f.qt[t] + 64);
    }
    PutMarker(out, opt.progressive ? 0xC2 : 0xC0);
    Put16(out, 8 + 3 * int(f.comps.size()));
    out->push_back(8);
    Put16(out, f.height);
    Put16(out, f.width);
    out->push_back(uint8_t(f.comps.size()));
    for (const Component& c : f.comps) {
      out->push_back(uint8_t(c.id));
      out->push_back(uint8_t(c.h << 4 | c.v));
      out->push_back(uint8_t(c.tq));
    }
    std::vector<Scan> script;
    if (!opt.progressive) {
      Scan s;
      for (size_t i = 0; i < f.comps.size(); ++i) s.comps.push_back(int(i));
      script.push_back(s);
    } else {
      script = opt.script.empty() ? DefaultScript(int(f.comps.size())) : opt.script;
    }
    for (const Scan& s : script) {
      if (!WriteScan(s)) return false;
    }
    PutMarker(out, 0xD9);
    return true;
  }
};

}  // namespace

void Frame::Layout() {
  hmax = vmax = 1;
  for (const Component& c : comps) {
    hmax = std::max(hmax, c.h);
    vmax = std::max(vmax, c.v);
  }
  mcux = (width + 8 * hmax - 1) / (8 * hmax);
  mcuy = (height + 8 * vmax - 1) / (8 * vmax);
  for (Component& c : comps) {
    c.rw = int((long(width) * c.h + hmax - 1) / hmax + 7) / 8;
    c.rh = int((long(height) * c.v + vmax - 1) / vmax + 7) / 8;
    if (comps.size() == 1) {
      c.bw = c.rw;
      c.bh = c.rh;
    } else {
      c.bw = mcux * c.h;
      c.bh = mcuy * c.v;
    }
    c.values.assign(size_t(c.bw) * size_t(c.bh) * 64, 0);
  }
}

void FlattenPadding(Frame* f) {
  if (f->comps.size() < 2) return;
  for (Component& c : f->comps) {
    for (int my = 0; my < f->mcuy; ++my) {
      for (int mx = 0; mx < f->mcux; ++mx) {
        int16_t* prev = nullptr;
        for (int v = 0; v < c.v; ++v) {
          for (int h = 0; h < c.h; ++h) {
            const int bx = mx * c.h + h, by = my * c.v + v;
            int16_t* b = c.block(bx, by);
            if ((bx >= c.rw || by >= c.rh) && prev) {
              const int16_t dc = prev[0];
              std::memset(b, 0, 64 * sizeof(int16_t));
              b[0] = dc;
            }
            prev = b;
          }
        }
      }
    }
  }
}

std::vector<Scan> DefaultScript(int ncomps) {
  std::vector<Scan> s;
  auto add = [&](std::vector<int> c, int ss, int se, int ah, int al) {
    s.push_back(Scan{std::move(c), ss, se, ah, al});
  };
  if (ncomps == 3) {
    add({0, 1, 2}, 0, 0, 0, 1);
    add({0}, 1, 5, 0, 2);
    add({2}, 1, 63, 0, 1);
    add({1}, 1, 63, 0, 1);
    add({0}, 6, 63, 0, 2);
    add({0}, 1, 63, 2, 1);
    add({0, 1, 2}, 0, 0, 1, 0);
    add({2}, 1, 63, 1, 0);
    add({1}, 1, 63, 1, 0);
    add({0}, 1, 63, 1, 0);
  } else if (ncomps == 1) {
    add({0}, 0, 0, 0, 1);
    add({0}, 1, 5, 0, 2);
    add({0}, 6, 63, 0, 2);
    add({0}, 1, 63, 2, 1);
    add({0}, 0, 0, 1, 0);
    add({0}, 1, 63, 1, 0);
  } else {
    std::vector<int> all;
    for (int i = 0; i < ncomps; ++i) all.push_back(i);
    add(all, 0, 0, 0, 1);
    for (int i = 0; i < ncomps; ++i) add({i}, 1, 63, 0, 0);
    add(all, 0, 0, 1, 0);
  }
  return s;
}

bool ReadFile(const uint8_t* data, size_t size, Frame* frame, std::string* error,
              bool* unsupported) {
  if (unsupported) *unsupported = false;
  *frame = Frame();
  Reader r{data, size, 0, frame, error, unsupported};
  return r.Run();
}

bool WriteFile(const Frame& frame, const WriteOptions& options, std::vector<uint8_t>* out,
               std::string* error) {
  // The scans run over a copy: the block walks take mutable blocks.
  Frame f = frame;
  for (size_t i = 0; i < f.comps.size(); ++i) {
    f.comps[i].dc_table = f.comps[i].ac_table = i == 0 ? 0 : 1;
  }
  Writer w{f, options, out, error};
  return w.Run();
}

}  // namespace rvtjpeg::coef
