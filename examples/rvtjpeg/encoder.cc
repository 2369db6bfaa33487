// Baseline JFIF encoder: per MCU row, colour conversion, chroma down-sampling
// and level shift (one call per MCU for colour images; grey ones through a
// padded plane), DCT with quantization of every block, then Huffman
// coding of the row's MCUs.  Each stage runs over the whole MCU row before
// the next, so the working set stays in the cache and each stage can be
// timed on its own.
#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "codec.h"
#include "codec_util.h"
#include "jpeg_tables.h"
#include "progressive.h"
#include "rvtjp.h"

namespace rvtjpeg {

bool ParseSampling(const std::string& name, Sampling* sampling) {
  if (name == "grey" || name == "gray") *sampling = Sampling::kGrey;
  else if (name == "444") *sampling = Sampling::k444;
  else if (name == "422") *sampling = Sampling::k422;
  else if (name == "420") *sampling = Sampling::k420;
  else return false;
  return true;
}

const char* SamplingName(Sampling sampling) {
  switch (sampling) {
    case Sampling::kGrey: return "grey";
    case Sampling::k444: return "4:4:4";
    case Sampling::k422: return "4:2:2";
    case Sampling::k420: return "4:2:0";
  }
  return "?";
}

namespace {

// Worst case of one coded block: 64 codes and values of at most 27 bits,
// every byte stuffed.
constexpr size_t kMaxBlockBytes = 512;

void Put16(std::vector<uint8_t>* out, int v) {
  out->push_back(uint8_t(v >> 8));
  out->push_back(uint8_t(v));
}

void PutMarker(std::vector<uint8_t>* out, int code) {
  out->push_back(0xFF);
  out->push_back(uint8_t(code));
}

struct Layout {
  int ncomp = 1;
  int h = 1, v = 1;        // luma sampling factors (chroma is 1x1)
  int mcu_w = 8, mcu_h = 8;
  int mcux = 0, mcuy = 0;  // MCUs per row and column
  int pw = 0;              // padded width of the full-resolution planes
  int cw = 0;              // padded width of the chroma planes
  int blocks_per_mcu = 1;
  // Component of each block of an MCU, and its position in the MCU in pixels
  // of that component's plane.
  int block_comp[10], block_x[10], block_y[10];
};

Layout MakeLayout(int width, int height, Sampling s) {
  Layout l;
  l.ncomp = s == Sampling::kGrey ? 1 : 3;
  l.h = s == Sampling::k422 || s == Sampling::k420 ? 2 : 1;
  l.v = s == Sampling::k420 ? 2 : 1;
  l.mcu_w = 8 * l.h;
  l.mcu_h = 8 * l.v;
  l.mcux = CeilDiv(width, l.mcu_w);
  l.mcuy = CeilDiv(height, l.mcu_h);
  l.pw = l.mcux * l.mcu_w;
  l.cw = l.mcux * 8;
  int n = 0;
  for (int by = 0; by < l.v; ++by)
    for (int bx = 0; bx < l.h; ++bx) {
      l.block_comp[n] = 0;
      l.block_x[n] = bx * 8;
      l.block_y[n] = by * 8;
      ++n;
    }
  for (int c = 1; c < l.ncomp; ++c) {
    l.block_comp[n] = c;
    l.block_x[n] = 0;
    l.block_y[n] = 0;
    ++n;
  }
  l.blocks_per_mcu = n;
  return l;
}

// What one coding thread owns.
struct Worker {
  AlignedArray<uint8_t> planes;  // 3 full-resolution planes of one MCU row
  AlignedArray<uint8_t> chroma;  // 2 down-sampled chroma planes
  AlignedArray<int16_t> coefs;   // every block of one MCU row, MCU order
  AlignedArray<uint8_t> state;   // EncodeHuffmanState
  AlignedArray<uint8_t> out;     // coded bytes
  int pos = 0;
  RvtResult status = rvtStatusOk;
  const char* failed = nullptr;  // the stage that failed
  StageTimes times;
};

}  // namespace

struct Encoder::Impl {
  StageTimes* times = nullptr;
  Coefficients* coefficients = nullptr;
  std::vector<Worker> workers;
  AlignedArray<uint8_t> huff_specs;  // DC luma, AC luma, DC chroma, AC chroma
  int spec_size = 0;
  uint16_t fwd[2][64];               // forward tables, natural order
  uint8_t raw[2][64];                // scaled tables, zig-zag order
  std::vector<uint8_t> header;
  const uint8_t* result = nullptr;
  size_t result_size = 0;
  std::vector<uint8_t> recoded;      // progressive or optimized output

  const EncodeHuffmanSpec* spec(int i) const {
    return reinterpret_cast<const EncodeHuffmanSpec*>(huff_specs.data() + size_t(i) * spec_size);
  }

  bool Prepare(int quality, std::string* error);
  void WriteHeader(const Image& image, const Layout& l, int restart_interval);
  void CodeRange(const Image& image, const Layout& l, int restart_interval, int mcu_begin,
                 int mcu_end, Worker* w);
};

bool Encoder::Impl::Prepare(int quality, std::string* error) {
  for (int t = 0; t < 2; ++t) {
    const uint8_t* base = t == 0 ? kLumaQuant : kChromaQuant;
    for (int i = 0; i < 64; ++i) raw[t][i] = base[kZigzag[i]];
    RvtResult r = rvtiQuantFwdRawTableInit_JPEG_8u(raw[t], quality);
    if (r == rvtStatusOk) r = rvtiQuantFwdTableInit_JPEG_8u16u(raw[t], fwd[t]);
    if (r != rvtStatusOk) {
      *error = "quantization table setup failed (status " + std::to_string(r) + ")";
      return false;
    }
  }
  if (spec_size == 0) {
    int size = 0;
    if (rvtiEncodeHuffmanSpecGetBufSize_JPEG_8u(&size) != rvtStatusOk || size <= 0 ||
        !huff_specs.Reserve(size_t(size) * 4)) {
      *error = "Huffman table setup failed";
      return false;
    }
    const uint8_t* bits[4] = {kDcLumaBits, kAcLumaBits, kDcChromaBits, kAcChromaBits};
    const uint8_t* vals[4] = {kDcLumaVals, kAcLumaVals, kDcChromaVals, kAcChromaVals};
    for (int i = 0; i < 4; ++i) {
      if (rvtiEncodeHuffmanSpecInit_JPEG_8u(
              bits[i], vals[i],
              reinterpret_cast<EncodeHuffmanSpec*>(huff_specs.data() + size_t(i) * size)) !=
          rvtStatusOk) {
        *error = "Huffman table setup failed";
        return false;
      }
    }
    spec_size = size;
  }
  return true;
}

void Encoder::Impl::WriteHeader(const Image& image, const Layout& l, int restart_interval) {
  std::vector<uint8_t>& o = header;
  o.clear();
  PutMarker(&o, 0xD8);
  // JFIF 1.01, no density unit, 1:1 aspect, no thumbnail.
  PutMarker(&o, 0xE0);
  Put16(&o, 16);
  for (uint8_t b : {'J', 'F', 'I', 'F', '\0'}) o.push_back(b);
  for (uint8_t b : {1, 1, 0}) o.push_back(b);
  Put16(&o, 1);
  Put16(&o, 1);
  o.push_back(0);
  o.push_back(0);
  const int ntables = l.ncomp == 1 ? 1 : 2;
  PutMarker(&o, 0xDB);
  Put16(&o, 2 + 65 * ntables);
  for (int t = 0; t < ntables; ++t) {
    o.push_back(uint8_t(t));
    o.insert(o.end(), raw[t], raw[t] + 64);
  }
  PutMarker(&o, 0xC0);
  Put16(&o, 8 + 3 * l.ncomp);
  o.push_back(8);
  Put16(&o, image.height);
  Put16(&o, image.width);
  o.push_back(uint8_t(l.ncomp));
  for (int c = 0; c < l.ncomp; ++c) {
    o.push_back(uint8_t(c + 1));
    o.push_back(c == 0 ? uint8_t(l.h << 4 | l.v) : uint8_t(0x11));
    o.push_back(c == 0 ? 0 : 1);
  }
  struct Table {
    int cls_id;
    const uint8_t* bits;
    const uint8_t* vals;
  };
  const Table tables[4] = {{0x00, kDcLumaBits, kDcLumaVals},
                           {0x10, kAcLumaBits, kAcLumaVals},
                           {0x01, kDcChromaBits, kDcChromaVals},
                           {0x11, kAcChromaBits, kAcChromaVals}};
  const int nhuff = l.ncomp == 1 ? 2 : 4;
  int len = 2;
  for (int i = 0; i < nhuff; ++i) {
    int n = 0;
    for (int k = 0; k < 16; ++k) n += tables[i].bits[k];
    len += 17 + n;
  }
  PutMarker(&o, 0xC4);
  Put16(&o, len);
  for (int i = 0; i < nhuff; ++i) {
    int n = 0;
    for (int k = 0; k < 16; ++k) n += tables[i].bits[k];
    o.push_back(uint8_t(tables[i].cls_id));
    o.insert(o.end(), tables[i].bits, tables[i].bits + 16);
    o.insert(o.end(), tables[i].vals, tables[i].vals + n);
  }
  if (restart_interval > 0) {
    PutMarker(&o, 0xDD);
    Put16(&o, 4);
    Put16(&o, restart_interval);
  }
  PutMarker(&o, 0xDA);
  Put16(&o, 6 + 2 * l.ncomp);
  o.push_back(uint8_t(l.ncomp));
  for (int c = 0; c < l.ncomp; ++c) {
    o.push_back(uint8_t(c + 1));
    o.push_back(c == 0 ? 0x00 : 0x11);
  }
  o.push_back(0);
  o.push_back(63);
  o.push_back(0);
}

// Codes MCUs [mcu_begin, mcu_end) into w->out from w->pos on.  mcu_begin is
// the start of a restart interval (or 0); the range ends with a flush and,
// unless it ends the image, the restart marker that follows it.
void Encoder::Impl::CodeRange(const Image& image, const Layout& l, int restart_interval,
                              int mcu_begin, int mcu_end, Worker* w) {
  const int width = image.width, height = image.height;
  const bool timing = times != nullptr;
  const size_t plane_size = size_t(l.pw) * l.mcu_h;
  const size_t chroma_size = size_t(l.cw) * 8;
  const size_t row_blocks = size_t(l.mcux) * l.blocks_per_mcu;
  int state_size = 0;
  rvtiEncodeHuffmanStateGetBufSize_JPEG_8u(&state_size);
  if (!w->planes.Reserve(plane_size * 3) || !w->chroma.Reserve(chroma_size * 2) ||
      !w->coefs.Reserve(row_blocks * 64) || !w->state.Reserve(size_t(state_size))) {
    w->status = rvtStatusNoMem;
    w->failed = "allocation";
    return;
  }
  auto* state = reinterpret_cast<EncodeHuffmanState*>(w->state.data());
  rvtiEncodeHuffmanStateInit_JPEG_8u(state);
  uint8_t* plane[3] = {w->planes.data(), w->planes.data() + plane_size,
                       w->planes.data() + 2 * plane_size};
  // The planes each component's blocks are read from, and their steps.
  const uint8_t* src[3] = {plane[0], plane[1], plane[2]};
  int step[3] = {l.pw, l.pw, l.pw};
  if (l.h == 2) {
    src[1] = w->chroma.data();
    src[2] = w->chroma.data() + chroma_size;
    step[1] = step[2] = l.cw;
  }
  const uint16_t* table[3] = {fwd[0], fwd[1], fwd[1]};
  const EncodeHuffmanSpec* dc[4] = {spec(0), spec(2), spec(2), nullptr};
  const EncodeHuffmanSpec* ac[4] = {spec(1), spec(3), spec(3), nullptr};
  int16_t last_dc[4] = {0, 0, 0, 0};
  alignas(64) int16_t zero_block[64] = {};

  auto fail = [&](RvtResult r, const char* stage) {
    w->status = r;
    w->failed = stage;
  };

  const int row_begin = mcu_begin / l.mcux, row_end = (mcu_end - 1) / l.mcux;
  // Colour images go from pixels to level-shifted blocks one MCU at a time
  // (conversion, down-sampling and level shift in one call), then through
  // the plain DCT; grey ones through a plane and the level-shifting DCT.
  const bool mcu_path = l.ncomp == 3 && image.channels == 3;
  const auto to_blocks = l.h == 1   ? rvtiRGBToYCbCr444LS_MCU_8u16s_C3P3R
                         : l.v == 1 ? rvtiRGBToYCbCr422LS_MCU_8u16s_C3P3R
                                    : rvtiRGBToYCbCr420LS_MCU_8u16s_C3P3R;
  constexpr int kPrefetchMcus = 4;
  alignas(64) uint8_t edge[16 * 48];  // an MCU cut by the image's edge, edges replicated
  for (int my = row_begin; my <= row_end; ++my) {
    StageClock clock(timing);
    const int y0 = my * l.mcu_h;
    const int rows = std::min(l.mcu_h, height - y0);
    const int mx_begin = my == row_begin ? mcu_begin - my * l.mcux : 0;
    const int mx_end = my == row_end ? mcu_end - my * l.mcux : l.mcux;
    RvtResult r;
    if (mcu_path) {
      int16_t* coef = w->coefs.data();
      for (int mx = mx_begin; mx < mx_end; ++mx, coef += 64 * l.blocks_per_mcu) {
        const int x0 = mx * l.mcu_w;
        const uint8_t* px = image.row(y0) + size_t(x0) * 3;
        int32_t px_step = int32_t(width) * 3;
        // The pixels of an MCU lie on mcu_h rows far apart: ask for those a
        // few MCUs ahead, so the conversion finds them in the cache.
        if (x0 + (kPrefetchMcus + 1) * l.mcu_w <= width) {
          const uint8_t* ahead = px + size_t(kPrefetchMcus) * l.mcu_w * 3;
          for (int y = 0; y < rows; ++y) {
            __builtin_prefetch(ahead + size_t(y) * px_step);
            __builtin_prefetch(ahead + size_t(y) * px_step + size_t(l.mcu_w) * 3 - 1);
          }
        }
        if (x0 + l.mcu_w > width || rows < l.mcu_h) {
          const int cols = std::min(l.mcu_w, width - x0);
          for (int y = 0; y < l.mcu_h; ++y) {
            uint8_t* e = edge + y * l.mcu_w * 3;
            std::memcpy(e, image.row(y0 + std::min(y, rows - 1)) + size_t(x0) * 3, size_t(cols) * 3);
            for (int x = cols; x < l.mcu_w; ++x) std::memcpy(e + 3 * x, e + 3 * (cols - 1), 3);
          }
          px = edge;
          px_step = l.mcu_w * 3;
        }
        int16_t* blocks[3] = {coef, coef + 64 * (l.h * l.v), coef + 64 * (l.h * l.v + 1)};
        r = to_blocks(px, px_step, blocks);
        if (r < 0) return fail(r, "colour conversion");
      }
      clock.Lap(&w->times.colour);
    } else {
      const ImageSize roi = {width, rows};
      if (image.channels == 1) {
        for (int y = 0; y < rows; ++y) std::memcpy(plane[0] + size_t(y) * l.pw, image.row(y0 + y), width);
        r = rvtStatusOk;
      } else if (l.ncomp == 1) {
        r = rvtiRGBToY_JPEG_8u_C3C1R(image.row(y0), width * 3, plane[0], l.pw, roi);
      } else {
        r = rvtiRGBToYCbCr_JPEG_8u_C3P3R(image.row(y0), width * 3, plane, l.pw, roi);
      }
      if (r < 0) return fail(r, "colour conversion");
      for (int c = 0; c < l.ncomp; ++c) {
        uint8_t* p = plane[c];
        if (width < l.pw)
          for (int y = 0; y < rows; ++y) {
            uint8_t* row = p + size_t(y) * l.pw;
            std::memset(row + width, row[width - 1], size_t(l.pw - width));
          }
        for (int y = rows; y < l.mcu_h; ++y)
          std::memcpy(p + size_t(y) * l.pw, p + size_t(rows - 1) * l.pw, size_t(l.pw));
      }
      clock.Lap(&w->times.colour);

      if (l.ncomp == 3 && l.h == 2) {
        for (int c = 1; c < 3; ++c) {
          uint8_t* dst = const_cast<uint8_t*>(src[c]);
          for (int y = 0; y < 8; ++y) {
            if (l.v == 2)
              r = rvtiSampleDownRowH2V2_Box_JPEG_8u_C1(plane[c] + size_t(2 * y) * l.pw,
                                                       plane[c] + size_t(2 * y + 1) * l.pw, l.pw,
                                                       dst + size_t(y) * l.cw);
            else
              r = rvtiSampleDownRowH2V1_Box_JPEG_8u_C1(plane[c] + size_t(y) * l.pw, l.pw,
                                                       dst + size_t(y) * l.cw);
            if (r < 0) return fail(r, "down-sampling");
          }
        }
      }
    }
    clock.Lap(&w->times.sampling);

    // DCT of the MCUs of this row that belong to the range.
    int16_t* coef = w->coefs.data();
    for (int mx = mx_begin; mx < mx_end; ++mx) {
      for (int b = 0; b < l.blocks_per_mcu; ++b) {
        const int c = l.block_comp[b];
        const int x = mx * (c == 0 ? l.mcu_w : 8) + l.block_x[b];
        r = mcu_path ? rvtiDCTQuantFwd8x8_JPEG_16s_C1I(coef, table[c])
                     : rvtiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(src[c] + size_t(l.block_y[b]) * step[c] + x,
                                                           step[c], coef, table[c]);
        if (r < 0) return fail(r, "DCT");
        coef += 64;
      }
    }
    clock.Lap(&w->times.transform);

    if (coefficients) {
      const int16_t* k = w->coefs.data();
      for (int mx = mx_begin; mx < mx_end; ++mx)
        for (int b = 0; b < l.blocks_per_mcu; ++b, k += 64) {
          Coefficients::Component& comp = coefficients->components[size_t(l.block_comp[b])];
          const int bx = l.block_comp[b] == 0 ? mx * l.h + l.block_x[b] / 8 : mx;
          const int by = l.block_comp[b] == 0 ? my * l.v + l.block_y[b] / 8 : my;
          std::memcpy(const_cast<int16_t*>(comp.block(bx, by)), k, 128);
        }
    }

    // Huffman coding; the buffer grows ahead of each row.
    const size_t need = size_t(mx_end - mx_begin) * l.blocks_per_mcu * kMaxBlockBytes + 64;
    if (w->out.size() - size_t(w->pos) < need) {
      const size_t want = std::max(w->out.size() * 2, size_t(w->pos) + need);
      if (want > size_t(INT32_MAX) || !w->out.Reserve(want, size_t(w->pos)))
        return fail(rvtStatusNoMem, "output buffer");
    }
    uint8_t* out = w->out.data();
    const int out_len = int(w->out.size());
    const int16_t* blk = w->coefs.data();
    // One call per run of MCUs up to the next restart or the row's end.
    for (int mx = mx_begin; mx < mx_end;) {
      const int m = my * l.mcux + mx;
      if (restart_interval > 0 && m != mcu_begin && m % restart_interval == 0) {
        r = rvtiEncodeHuffman8x8_JPEG_16s1u_C1(zero_block, out, out_len, &w->pos, &last_dc[0], dc[0],
                                               ac[0], state, 1);
        if (r < 0) return fail(r, "Huffman coding");
        out[w->pos++] = 0xFF;
        out[w->pos++] = uint8_t(0xD0 + ((m / restart_interval - 1) & 7));
        last_dc[0] = last_dc[1] = last_dc[2] = 0;
      }
      int n = mx_end - mx;
      if (restart_interval > 0) n = std::min(n, restart_interval - m % restart_interval);
      int done = 0;
      r = rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1(blk, out, out_len, &w->pos, n, l.block_comp,
                                                   l.blocks_per_mcu, last_dc, dc, ac, state, &done);
      if (r < 0) return fail(r, "Huffman coding");
      blk += size_t(n) * size_t(l.blocks_per_mcu) * 64;
      mx += n;
    }
    clock.Lap(&w->times.entropy);
  }
  uint8_t* out = w->out.data();
  RvtResult r = rvtiEncodeHuffman8x8_JPEG_16s1u_C1(zero_block, out, int(w->out.size()), &w->pos,
                                                   &last_dc[0], dc[0], ac[0], state, 1);
  if (r < 0) return fail(r, "Huffman coding");
  const int total = l.mcux * l.mcuy;
  if (restart_interval > 0 && mcu_end < total) {
    out[w->pos++] = 0xFF;
    out[w->pos++] = uint8_t(0xD0 + ((mcu_end / restart_interval - 1) & 7));
  }
}

Encoder::Encoder() : impl_(new Impl) {}
Encoder::~Encoder() = default;
const uint8_t* Encoder::data() const { return impl_->result; }
size_t Encoder::size() const { return impl_->result_size; }
void Encoder::set_stage_times(StageTimes* times) { impl_->times = times; }
void Encoder::set_coefficients(Coefficients* coefficients) { impl_->coefficients = coefficients; }

bool Encoder::Encode(const Image& image, const EncodeOptions& options, std::string* error) {
  Impl& m = *impl_;
  m.result = nullptr;
  m.result_size = 0;
  if (image.width < 1 || image.height < 1 || image.width > 65535 || image.height > 65535 ||
      (image.channels != 1 && image.channels != 3) ||
      image.pixels.size() < size_t(image.width) * image.height * image.channels) {
    *error = "image size or channel count out of range for JPEG";
    return false;
  }
  if (options.quality < 1 || options.quality > 100) {
    *error = "quality must be 1..100";
    return false;
  }
  if (options.restart_interval < 0 || options.restart_interval > 65535) {
    *error = "restart interval must be 0..65535";
    return false;
  }
  const Sampling sampling = image.channels == 1 ? Sampling::kGrey : options.sampling;
  const Layout l = MakeLayout(image.width, image.height, sampling);
  const int total = l.mcux * l.mcuy;
  int threads = std::max(1, std::min(options.threads, 64));
  int ri = options.restart_interval;
  if (threads > 1 && ri == 0) ri = std::min(l.mcux, 65535);
  const int intervals = ri > 0 ? CeilDiv(total, ri) : 1;
  threads = std::min(threads, intervals);
  if (m.coefficients) threads = 1;
  if (!m.Prepare(options.quality, error)) return false;
  m.WriteHeader(image, l, ri);

  if (m.coefficients) {
    m.coefficients->components.assign(size_t(l.ncomp), {});
    for (int c = 0; c < l.ncomp; ++c) {
      Coefficients::Component& comp = m.coefficients->components[size_t(c)];
      comp.blocks_w = c == 0 ? l.mcux * l.h : l.mcux;
      comp.blocks_h = c == 0 ? l.mcuy * l.v : l.mcuy;
      comp.values.assign(size_t(comp.blocks_w) * comp.blocks_h * 64, 0);
    }
  }

  if (m.workers.size() < size_t(threads)) m.workers.resize(size_t(threads));
  // Worker 0 writes the header and the first range; the others' ranges are
  // appended to it.
  const int guess = int(std::min<size_t>(size_t(image.width) * image.height * image.channels / 4 + 4096,
                                         size_t(1) << 28));
  for (int t = 0; t < threads; ++t) {
    Worker& w = m.workers[size_t(t)];
    w.pos = 0;
    w.status = rvtStatusOk;
    w.failed = nullptr;
    w.times = StageTimes();
    if (w.out.size() < size_t(guess) && !w.out.Reserve(size_t(guess))) {
      *error = "out of memory";
      return false;
    }
  }
  Worker& first = m.workers[0];
  if (first.out.size() < m.header.size() + 64 && !first.out.Reserve(m.header.size() + 4096)) {
    *error = "out of memory";
    return false;
  }
  std::memcpy(first.out.data(), m.header.data(), m.header.size());
  first.pos = int(m.header.size());

  if (threads == 1) {
    m.CodeRange(image, l, ri, 0, total, &first);
  } else {
    // Contiguous runs of whole restart intervals, one per thread.
    std::vector<std::thread> pool;
    auto range_start = [&](int t) { return std::min(total, int(int64_t(intervals) * t / threads) * ri); };
    for (int t = 1; t < threads; ++t) {
      Worker* w = &m.workers[size_t(t)];
      const int begin = range_start(t), end = range_start(t + 1);
      pool.emplace_back([&m, &image, &l, ri, begin, end, w] { m.CodeRange(image, l, ri, begin, end, w); });
    }
    m.CodeRange(image, l, ri, 0, range_start(1), &first);
    for (auto& th : pool) th.join();
  }
  size_t total_size = 0;
  for (int t = 0; t < threads; ++t) {
    const Worker& w = m.workers[size_t(t)];
    if (w.status < 0) {
      *error = std::string(w.failed) + " failed (status " + std::to_string(w.status) + ")";
      return false;
    }
    total_size += size_t(w.pos);
  }
  if (!first.out.Reserve(total_size + 2, size_t(first.pos))) {
    *error = "out of memory";
    return false;
  }
  size_t pos = size_t(first.pos);
  for (int t = 1; t < threads; ++t) {
    const Worker& w = m.workers[size_t(t)];
    std::memcpy(first.out.data() + pos, w.out.data(), size_t(w.pos));
    pos += size_t(w.pos);
  }
  first.out[pos++] = 0xFF;
  first.out[pos++] = 0xD9;
  if (m.times)
    for (int t = 0; t < threads; ++t) {
      const StageTimes& s = m.workers[size_t(t)].times;
      m.times->colour += s.colour;
      m.times->sampling += s.sampling;
      m.times->transform += s.transform;
      m.times->entropy += s.entropy;
    }
  m.result = first.out.data();
  m.result_size = pos;
  if (options.progressive || options.optimize) {
    // The coefficients coded once more: optimized tables, progressive scans.
    StageClock clock(m.times != nullptr);
    coef::Frame f;
    coef::WriteOptions wo;
    wo.progressive = options.progressive;
    wo.optimize = options.optimize;
    wo.restart_interval = ri;
    if (!coef::ReadFile(m.result, m.result_size, &f, error)) return false;
    coef::FlattenPadding(&f);
    if (!coef::WriteFile(f, wo, &m.recoded, error)) return false;
    m.result = m.recoded.data();
    m.result_size = m.recoded.size();
    if (m.times) clock.Lap(&m.times->entropy);
  }
  return true;
}

bool EncodeJpeg(const Image& image, const EncodeOptions& options, std::vector<uint8_t>* out,
                std::string* error) {
  Encoder encoder;
  if (!encoder.Encode(image, options, error)) return false;
  out->assign(encoder.data(), encoder.data() + encoder.size());
  return true;
}

}  // namespace rvtjpeg
