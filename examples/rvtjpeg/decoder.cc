// Baseline JPEG decoder: parses the markers, decodes each scan MCU row by
// MCU row (Huffman decoding of the row's blocks, then dequantization and
// IDCT into the component planes), and turns finished rows into pixels
// (chroma up-sampling and colour conversion) one MCU row behind the
// decoding, while they are still in the cache.  A scan of every component
// keeps only two MCU rows of each plane (a ring that stays in the cache);
// the planes hold the whole frame for scans of some components, for
// restart intervals decoded on several threads (each turns the rows it owns
// into pixels, the seams between them come last) and for progressive files.
//
// Damage is contained: a decoding error ends the restart interval (the rest
// of its blocks decode as flat grey) and decoding resumes at the next
// restart marker; missing data leaves the rest of the image grey.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "codec.h"
#include "progressive.h"
#include "codec_util.h"
#include "jpeg_tables.h"
#include "rvtjp.h"

namespace rvtjpeg {
namespace {

constexpr int kStripRows = 16;                // rows converted per call
constexpr size_t kMaxPixels = size_t(1) << 28;  // refuse larger frames
// Byte offset of the "coefficients done" count in a DecodeHuffmanState.
constexpr size_t kCoefficientsDoneOffset = 16;

struct Component {
  int id = 0;
  int h = 1, v = 1;   // sampling factors
  int tq = 0;         // quantization table
  int td = 0, ta = 0; // Huffman tables of the current scan
  int hs = 1, vs = 1; // up-sampling factors to full resolution (1 or 2)
  int cw = 0, ch = 0; // size in samples
  int bw = 0, bh = 0; // blocks of the MCU-padded plane
  int stride = 0;
  // The plane: every row, or (ring > 0) a ring of that many rows, two MCU
  // rows, for a scan whose rows become pixels as soon as they are decoded.
  int ring = 0;
  AlignedArray<uint8_t> plane;
  bool coded = false;
  uint8_t* Row(int y) { return plane.data() + size_t(ring ? y % ring : y) * stride; }
  const uint8_t* Row(int y) const { return plane.data() + size_t(ring ? y % ring : y) * stride; }
};

// Where the inverse transform of one block goes.
struct BlockJob {
  uint8_t* dst;
  const uint16_t* table;
  int32_t stride;
};

// One block's transform: its coefficients and where it goes.
struct GroupedJob {
  const int16_t* blk;
  uint8_t* dst;
  const uint16_t* table;
  int32_t stride;
};

// Per-thread scratch of TransformRow, sized for one MCU row.
struct RowScratch {
  AlignedArray<GroupedJob> jobs;  // three groups of a row's blocks, by transform size
};

// One block of an MCU: component and block offset inside the MCU.
struct McuBlock {
  int comp, bx, by;
};

// The blocks of one scan: its components, the blocks of an MCU, the MCU grid.
struct ScanLayout {
  Component* comp[4];
  int ns = 0;
  McuBlock blocks[10];
  int nblocks = 0;
  int mcus_x = 0, mcus_y = 0;
  size_t row_blocks() const { return size_t(mcus_x) * nblocks; }
};

// The position of one entropy decoder in the data.
struct Reader {
  const uint8_t* data = nullptr;
  int size = 0;
  int pos = 0;
  int marker = 0;     // marker met by the decoder, 0 if none yet; -1: end of data
  bool broken = false;  // the current restart interval is lost
  int16_t pred[4] = {0, 0, 0, 0};
  DecodeHuffmanState* state = nullptr;
  std::string problem;  // first damage met

  void Damage(const char* why) {
    if (problem.empty()) problem = why;
  }

  void Reset() {
    rvtiDecodeHuffmanStateInit_JPEG_8u(state);
    marker = 0;
    broken = false;
    pred[0] = pred[1] = pred[2] = pred[3] = 0;
  }
  int CoefficientsDone() const {
    int32_t done;
    std::memcpy(&done, reinterpret_cast<const uint8_t*>(state) + kCoefficientsDoneOffset, 4);
    return done;
  }
  // Finds the next marker from pos on (when the decoder has not met one),
  // leaving pos after it.  Entropy-coded bytes are passed over.
  void SeekMarker() {
    if (marker != 0) return;
    int p = pos;
    while (p + 1 < size) {
      const uint8_t* ff = static_cast<const uint8_t*>(std::memchr(data + p, 0xFF, size_t(size - p)));
      if (!ff) break;
      p = int(ff - data);
      int q = p + 1;
      while (q < size && data[q] == 0xFF) ++q;
      if (q >= size) break;
      if (data[q] != 0) {
        marker = data[q];
        pos = q + 1;
        return;
      }
      p = q + 1;
    }
    marker = -1;
    pos = size;
  }
};

}  // namespace

struct Decoder::Impl {
  StageTimes* times = nullptr;
  // Tables.
  int spec_size = 0, state_size = 0;
  AlignedArray<uint8_t> specs;  // DC 0..3, AC 0..3
  // The counts and values each spec was last built from: a file (or the
  // next frame of a stream) that defines the same table again reuses it.
  std::vector<uint8_t> spec_source[8];
  bool dc_defined[4], ac_defined[4];
  alignas(64) uint16_t qt[4][64];
  bool q_defined[4];
  // Frame.
  bool have_frame = false;
  int width = 0, height = 0, ncomp = 0;
  int hmax = 1, vmax = 1, mcux = 0, mcuy = 0;
  int restart_interval = 0;
  int adobe_transform = -1;
  Component comp[3];
  // Output.
  Image* image = nullptr;
  int emitted = 0;  // rows of the image already converted
  AlignedArray<uint8_t> strip;  // up-sampled chroma rows of one strip
  AlignedArray<int16_t> coefs;  // blocks of one MCU row
  std::vector<int> done;        // coefficients done per block of that row
  std::vector<RowScratch> row_scratch;  // per thread
  AlignedArray<uint8_t> states; // DecodeHuffmanState per thread
  int threads = 1;
  // Rows of coefficients between the pipeline's two threads.  A photo's
  // Huffman time per row swings with its detail over tens of rows while the
  // pixel stages' stays put: 16 rows of slack (3 MB at 4K) let each side run
  // ahead through the other's slow stretch, where 4 kept it waiting.  Even,
  // for the pairs.
  static constexpr int kPipelineRows = 16;
  // Outcome.
  DecodeStatus status = DecodeStatus::kOk;
  std::string message;

  const DecodeHuffmanSpec* dc_spec(int i) const {
    return reinterpret_cast<const DecodeHuffmanSpec*>(specs.data() + size_t(i) * spec_size);
  }
  const DecodeHuffmanSpec* ac_spec(int i) const {
    return reinterpret_cast<const DecodeHuffmanSpec*>(specs.data() + size_t(4 + i) * spec_size);
  }
  DecodeHuffmanState* state(int t) {
    return reinterpret_cast<DecodeHuffmanState*>(states.data() + size_t(t) * ((state_size + 63) & ~63));
  }

  // Records the first problem; a worse status replaces a milder one.
  void Problem(DecodeStatus s, const std::string& why) {
    if (int(s) > int(status)) {
      status = s;
      message = why;
    } else if (status == s && message.empty()) {
      message = why;
    }
  }
  void Damage(const std::string& why) { Problem(DecodeStatus::kDamaged, why); }
  bool Fatal() const { return status == DecodeStatus::kError || status == DecodeStatus::kUnsupported; }

  bool Setup();
  void ReadDht(const uint8_t* p, int len);
  void ReadDqt(const uint8_t* p, int len);
  void ReadSof(int code, const uint8_t* p, int len);
  void ReadSos(const uint8_t* p, int len, const uint8_t* data, size_t size, size_t* pos, int* next);
  void DecodeScan(Component** sc, int ns, Reader* rd, bool threaded);
  bool ReservePlanes(bool ring);
  void DecodeRows(const ScanLayout& sl, int row_begin, int row_end, Reader* rd, int interval_begin,
                  int interval_end, int16_t* coef, int* done_list, RowScratch* scratch, StageTimes* st);
  void EntropyRow(const ScanLayout& sl, int my, Reader* rd, int interval_begin, int interval_end,
                  int16_t* coef, int* done_list, int rows = 1);
  void TransformRow(const ScanLayout& sl, int my, int interval_begin, int interval_end,
                    const int16_t* coef, const int* done_list, RowScratch* scratch);
  int ReadyRows(const ScanLayout& sl, int my) const;
  void PipelinedScan(const ScanLayout& sl, Reader* rd, StageTimes* st);
  void Idct(const int16_t* blk, int done, uint8_t* dst, int stride, const uint16_t* table);
  void Emit(int y_end, uint8_t* scratch, StageTimes* st);
  void ConvertRows(int y0, int y1, uint8_t* scratch, StageTimes* st);
  void Finish();
  void DecodeProgressive(const uint8_t* seg, int seg_len, const uint8_t* data, size_t size);
};

bool Decoder::Impl::Setup() {
  if (spec_size == 0) {
    for (auto& source : spec_source) source.clear();
    if (rvtiDecodeHuffmanSpecGetBufSize_JPEG_8u(&spec_size) != rvtStatusOk ||
        rvtiDecodeHuffmanStateGetBufSize_JPEG_8u(&state_size) != rvtStatusOk || spec_size < 1 ||
        state_size < int(kCoefficientsDoneOffset + 4) || !specs.Reserve(size_t(spec_size) * 8)) {
      spec_size = 0;
      return false;
    }
  }
  for (int i = 0; i < 4; ++i) dc_defined[i] = ac_defined[i] = q_defined[i] = false;
  have_frame = false;
  restart_interval = 0;
  adobe_transform = -1;
  emitted = 0;
  status = DecodeStatus::kOk;
  message.clear();
  return true;
}

void Decoder::Impl::ReadDht(const uint8_t* p, int len) {
  while (len > 0) {
    if (len < 17) return Problem(DecodeStatus::kError, "bad DHT segment");
    const int cls = p[0] >> 4, id = p[0] & 15;
    int n = 0;
    for (int i = 0; i < 16; ++i) n += p[1 + i];
    if (cls > 1 || id > 3 || n > 256 || len < 17 + n)
      return Problem(DecodeStatus::kError, "bad DHT segment");
    std::vector<uint8_t>& source = spec_source[cls * 4 + id];
    if (source.size() != size_t(16 + n) || std::memcmp(source.data(), p + 1, size_t(16 + n)) != 0) {
      uint8_t bits[16], vals[256] = {};
      std::memcpy(bits, p + 1, 16);
      std::memcpy(vals, p + 17, size_t(n));
      auto* spec = reinterpret_cast<DecodeHuffmanSpec*>(specs.data() + size_t(cls * 4 + id) * spec_size);
      source.clear();
      if (rvtiDecodeHuffmanSpecInit_JPEG_8u(bits, vals, spec) != rvtStatusOk)
        return Problem(DecodeStatus::kError, "invalid Huffman table");
      source.assign(p + 1, p + 17 + n);
    }
    (cls ? ac_defined : dc_defined)[id] = true;
    p += 17 + n;
    len -= 17 + n;
  }
}

void Decoder::Impl::ReadDqt(const uint8_t* p, int len) {
  while (len > 0) {
    const int pq = p[0] >> 4, tq = p[0] & 15;
    const int n = pq ? 128 : 64;
    if (pq > 1 || tq > 3 || len < 1 + n) return Problem(DecodeStatus::kError, "bad DQT segment");
    if (pq == 0) {
      rvtiQuantInvTableInit_JPEG_8u16u(p + 1, qt[tq]);
    } else {
      // 16-bit entries: placed in natural order here, as the table builder
      // takes 8-bit entries only.
      for (int i = 0; i < 64; ++i) qt[tq][kZigzag[i]] = uint16_t(p[1 + 2 * i] << 8 | p[2 + 2 * i]);
    }
    q_defined[tq] = true;
    p += 1 + n;
    len -= 1 + n;
  }
}

void Decoder::Impl::ReadSof(int code, const uint8_t* p, int len) {
  if (have_frame) return Problem(DecodeStatus::kError, "more than one frame header");
  if (len < 6) return Problem(DecodeStatus::kError, "bad SOF segment");
  const int precision = p[0];
  height = p[1] << 8 | p[2];
  width = p[3] << 8 | p[4];
  ncomp = p[5];
  if (precision != 8)
    return Problem(DecodeStatus::kUnsupported,
                   std::to_string(precision) + "-bit samples are not supported (8-bit baseline only)");
  if (height == 0) return Problem(DecodeStatus::kUnsupported, "height defined by DNL is not supported");
  if (width == 0) return Problem(DecodeStatus::kError, "image width 0");
  if (ncomp != 1 && ncomp != 3)
    return Problem(DecodeStatus::kUnsupported,
                   std::to_string(ncomp) + "-component images are not supported (grey or 3 only)");
  if (len < 6 + 3 * ncomp) return Problem(DecodeStatus::kError, "bad SOF segment");
  if (size_t(width) * height > kMaxPixels) return Problem(DecodeStatus::kUnsupported, "image too large");
  hmax = vmax = 1;
  for (int c = 0; c < ncomp; ++c) {
    Component& k = comp[c];
    k.id = p[6 + 3 * c];
    k.h = p[7 + 3 * c] >> 4;
    k.v = p[7 + 3 * c] & 15;
    k.tq = p[8 + 3 * c];
    if (k.h < 1 || k.h > 4 || k.v < 1 || k.v > 4 || k.tq > 3)
      return Problem(DecodeStatus::kError, "bad component in SOF");
    for (int d = 0; d < c; ++d)
      if (comp[d].id == k.id) return Problem(DecodeStatus::kError, "duplicate component id");
    hmax = std::max(hmax, k.h);
    vmax = std::max(vmax, k.v);
  }
  if (ncomp == 1) hmax = comp[0].h, vmax = comp[0].v;
  mcux = CeilDiv(width, 8 * hmax);
  mcuy = CeilDiv(height, 8 * vmax);
  for (int c = 0; c < ncomp; ++c) {
    Component& k = comp[c];
    if (hmax % k.h || vmax % k.v)
      return Problem(DecodeStatus::kUnsupported, "fractional sampling factors are not supported");
    k.hs = hmax / k.h;
    k.vs = vmax / k.v;
    const bool ok = (k.hs == 1 && k.vs == 1) || (c > 0 && k.hs == 2 && (k.vs == 1 || k.vs == 2));
    if (!ok) return Problem(DecodeStatus::kUnsupported, "sampling factors not supported (luma 1x1, 2x1 or 2x2)");
    k.cw = CeilDiv(width * k.h, hmax);
    k.ch = CeilDiv(height * k.v, vmax);
    k.bw = mcux * k.h;
    k.bh = mcuy * k.v;
    k.stride = k.bw * 8;
    k.coded = false;
    k.ring = 0;
  }
  (void)code;
  have_frame = true;
}

void Decoder::Impl::Idct(const int16_t* blk, int n, uint8_t* dst, int stride, const uint16_t* table) {
  // Blocks whose coefficients stop early take the shorter transforms: the
  // first 3 zig-zag positions lie in rows 0-1, the first 10 in rows 0-3.
  if (n <= 3)
    rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(blk, dst, stride, table);
  else if (n <= 10)
    rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(blk, dst, stride, table);
  else
    rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(blk, dst, stride, table);
}

// Sizes every component's plane: whole, or a ring of two MCU rows of a scan
// of every component (a grey scan's MCU is one block).
bool Decoder::Impl::ReservePlanes(bool ring) {
  for (int c = 0; c < ncomp; ++c) {
    Component& k = comp[c];
    k.ring = ring ? 16 * (ncomp == 1 ? 1 : k.v) : 0;
    if (!k.plane.Reserve(size_t(k.stride) * size_t(k.ring ? k.ring : k.bh * 8))) return false;
  }
  return true;
}

// MCUs [mx0, mx1) of MCU row my that belong to restart intervals
// [interval_begin, interval_end).
static void RowRange(int ri, int mcus_x, int my, int interval_begin, int interval_end, int* mx0, int* mx1) {
  *mx0 = 0;
  *mx1 = mcus_x;
  if (ri > 0) {
    *mx0 = std::max(0, interval_begin * ri - my * mcus_x);
    *mx1 = std::min(mcus_x, interval_end * ri - my * mcus_x);
  }
}

// Huffman-decodes the blocks of MCU row my (those of the reader's restart
// intervals) into coef, with each block's count of coded positions.  A scan
// without restart markers can take several rows in one call (rows > 1): they
// follow one another in coef.
void Decoder::Impl::EntropyRow(const ScanLayout& sl, int my, Reader* rd, int interval_begin,
                               int interval_end, int16_t* coef, int* done_list, int rows) {
  const int ri = restart_interval;
  int mx0, mx1;
  RowRange(ri, sl.mcus_x, my, interval_begin, interval_end, &mx0, &mx1);
  if (ri == 0) mx1 = sl.mcus_x * rows;
  int16_t* blk = coef;
  int* dn = done_list;
  // The blocks' components and the scan's tables, for the run decoder.
  int pattern[10];
  for (int b = 0; b < sl.nblocks; ++b) pattern[b] = sl.blocks[b].comp;
  const DecodeHuffmanSpec* dcs[4] = {nullptr, nullptr, nullptr, nullptr};
  const DecodeHuffmanSpec* acs[4] = {nullptr, nullptr, nullptr, nullptr};
  for (int c = 0; c < sl.ns; ++c) {
    dcs[c] = dc_spec(sl.comp[c]->td);
    acs[c] = ac_spec(sl.comp[c]->ta);
  }
  for (int mx = mx0; mx < mx1;) {
    const int m = my * sl.mcus_x + mx;
    if (ri > 0 && m % ri == 0 && m / ri != interval_begin) {
      rd->SeekMarker();
      if (rd->marker >= 0xD0 && rd->marker <= 0xD7) {
        if (rd->marker != 0xD0 + ((m / ri - 1) & 7)) rd->Damage("restart marker out of sequence");
        rd->Reset();
      } else if (!rd->broken) {
        rd->broken = true;
        rd->Damage("restart marker missing");
      }
    }
    // One call per stretch of the row inside one restart interval.
    const int end = ri > 0 ? std::min(mx1, mx + (ri - m % ri)) : mx1;
    const int nblocks = (end - mx) * sl.nblocks;
    int decoded = 0;
    if (!rd->broken) {
      const RvtResult r = rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1(
          rd->data, rd->size, &rd->pos, blk, end - mx, pattern, sl.nblocks, rd->pred, &rd->marker,
          dcs, acs, rd->state, dn, &decoded);
      if (r < 0) {
        rd->broken = true;
        rd->Damage(r == rvtStatusOutOfBuffer ? "data ends early" : "corrupt entropy-coded data");
      }
    }
    // The blocks of a lost interval stay grey.
    for (int i = decoded; i < nblocks; ++i) {
      std::memset(blk + 64 * i, 0, 128);
      dn[i] = 1;
    }
    blk += 64 * nblocks;
    dn += nblocks;
    mx = end;
  }
}

// Dequantizes and transforms the blocks EntropyRow left in coef into the
// component planes.
void Decoder::Impl::TransformRow(const ScanLayout& sl, int my, int interval_begin, int interval_end,
                                 const int16_t* coef, const int* done_list, RowScratch* scratch) {
  int mx0, mx1;
  RowRange(restart_interval, sl.mcus_x, my, interval_begin, interval_end, &mx0, &mx1);
  const int16_t* blk = coef;
  const int* dn = done_list;
  // Block b of MCU mx goes to first[b].dst + mx * step[b].
  BlockJob first[10];
  int step[10];
  for (int b = 0; b < sl.nblocks; ++b) {
    Component& k = *sl.comp[sl.blocks[b].comp];
    const int rows = sl.ns == 1 ? 8 : 8 * k.v;
    step[b] = sl.ns == 1 ? 8 : 8 * k.h;
    first[b] = {k.Row(my * rows) + size_t(sl.blocks[b].by) * 8 * k.stride + size_t(sl.blocks[b].bx) * 8,
                qt[k.tq], k.stride};
  }
  // The blocks are grouped by the transform their coefficients need (the
  // first 3 zig-zag positions lie in rows 0-1, the first 10 in rows 0-3)
  // and each group runs in a loop of its own: a choice per block would be
  // a branch the processor mispredicts for about every other block.
  const int n = (mx1 - mx0) * sl.nblocks;
  GroupedJob* jobs = scratch->jobs.data();
  int count[3] = {0, 0, 0};
  for (int mx = mx0, i = 0; mx < mx1; ++mx)
    for (int b = 0; b < sl.nblocks; ++b, ++i) {
      const int size = (dn[i] > 3) + (dn[i] > 10);
      jobs[size * n + count[size]++] = {blk + 64 * i, first[b].dst + size_t(mx) * step[b], first[b].table,
                                        first[b].stride};
    }
  for (const GroupedJob* j = jobs; j < jobs + count[0]; ++j)
    rvtiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(j->blk, j->dst, j->stride, j->table);
  for (const GroupedJob* j = jobs + n; j < jobs + n + count[1]; ++j)
    rvtiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(j->blk, j->dst, j->stride, j->table);
  // Full blocks whose coefficients follow each other and whose samples lie
  // side by side (a single-component row, a subsampled luma MCU's pairs) go
  // to the library as one run.
  for (const GroupedJob *j = jobs + 2 * n, *end = j + count[2]; j < end;) {
    int run = 1;
    while (j + run < end && j[run].blk == j->blk + 64 * run && j[run].dst == j->dst + 8 * run &&
           j[run].table == j->table && j[run].stride == j->stride)
      ++run;
    if (run == 1)
      rvtiDCTQuantInv8x8LS_JPEG_16s8u_C1R(j->blk, j->dst, j->stride, j->table);
    else
      rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R(j->blk, j->dst, j->stride, j->table, run);
    j += run;
  }
}

void Decoder::Impl::DecodeRows(const ScanLayout& sl, int row_begin, int row_end, Reader* rd,
                               int interval_begin, int interval_end, int16_t* coef, int* done_list,
                               RowScratch* scratch, StageTimes* st) {
  for (int my = row_begin; my < row_end; ++my) {
    StageClock clock(times != nullptr);
    EntropyRow(sl, my, rd, interval_begin, interval_end, coef, done_list);
    clock.Lap(&st->entropy);
    TransformRow(sl, my, interval_begin, interval_end, coef, done_list, scratch);
    clock.Lap(&st->transform);
  }
}

// Image rows that can become pixels once MCU row my of a scan that codes
// every component is decoded: those whose chroma rows below are there too.
int Decoder::Impl::ReadyRows(const ScanLayout& sl, int my) const {
  if (my + 1 >= sl.mcus_y) return height;
  int ready = height;
  for (int c = 0; c < ncomp; ++c) {
    const Component& k = comp[c];
    const int avail = std::min(k.ch, (my + 1) * 8 * (sl.ns == 1 ? 1 : k.v));
    ready = std::min(ready, k.vs == 2 ? 2 * avail - 2 : avail);
  }
  return ready;
}

// Two threads in a pipeline: this one Huffman-decodes MCU rows into a ring
// of row buffers, the other transforms them and makes pixels.  Without
// restart markers the rows go in pairs, one call a pair: each call builds
// its lookups, a tenth of a row's decoding, and the pixel side, the faster
// one, has time for the wait.  The first two rows and the last go alone, so
// that neither side waits for a pair at the ends.  The rows pass by two
// counters; a side finding nothing to do waits on the other's (a short
// spin, then the kernel), and waking it costs a system call only then.
void Decoder::Impl::PipelinedScan(const ScanLayout& sl, Reader* rd, StageTimes* st) {
  constexpr int kRing = kPipelineRows;
  const size_t rb = sl.row_blocks();
  std::atomic<int> produced{0}, consumed{0};
  StageTimes worker_times;
  const int intervals = restart_interval > 0 ? CeilDiv(sl.mcus_x * sl.mcus_y, restart_interval) : 1;
  std::thread worker([&] {
    for (int my = 0; my < sl.mcus_y; ++my) {
      for (int p; (p = produced.load(std::memory_order_acquire)) <= my;) produced.wait(p, std::memory_order_acquire);
      StageClock clock(times != nullptr);
      const size_t slot = size_t(my % kRing);
      TransformRow(sl, my, 0, intervals, coefs.data() + slot * rb * 64, done.data() + slot * rb,
                   &row_scratch[0]);
      clock.Lap(&worker_times.transform);
      Emit(ReadyRows(sl, my), strip.data(), &worker_times);
      consumed.store(my + 1, std::memory_order_release);
      consumed.notify_one();
    }
  });
  for (int my = 0, n; my < sl.mcus_y; my += n) {
    // A pair starts at an even row: it never wraps round the ring.
    n = restart_interval == 0 && my >= 2 && my % 2 == 0 && my + 2 < sl.mcus_y ? 2 : 1;
    for (int c; my + n - (c = consumed.load(std::memory_order_acquire)) > kRing;)
      consumed.wait(c, std::memory_order_acquire);
    StageClock clock(times != nullptr);
    const size_t slot = size_t(my % kRing);
    EntropyRow(sl, my, rd, 0, intervals, coefs.data() + slot * rb * 64, done.data() + slot * rb, n);
    clock.Lap(&st->entropy);
    produced.store(my + n, std::memory_order_release);
    produced.notify_one();
  }
  worker.join();
  st->transform += worker_times.transform;
  st->sampling += worker_times.sampling;
  st->colour += worker_times.colour;
}

void Decoder::Impl::DecodeScan(Component** sc, int ns, Reader* rd, bool threaded) {
  ScanLayout sl;
  sl.ns = ns;
  for (int c = 0; c < ns; ++c) sl.comp[c] = sc[c];
  if (ns == 1) {
    sl.blocks[sl.nblocks++] = {0, 0, 0};
    sl.mcus_x = CeilDiv(sc[0]->cw, 8);
    sl.mcus_y = CeilDiv(sc[0]->ch, 8);
  } else {
    for (int c = 0; c < ns; ++c)
      for (int by = 0; by < sc[c]->v; ++by)
        for (int bx = 0; bx < sc[c]->h; ++bx) sl.blocks[sl.nblocks++] = {c, bx, by};
    sl.mcus_x = mcux;
    sl.mcus_y = mcuy;
  }
  const size_t row_blocks = sl.row_blocks();
  const bool all = ns == ncomp;  // rows become pixels as soon as they are decoded
  StageTimes local;
  StageTimes* st = times ? times : &local;
  const int ri = restart_interval;
  const int total = sl.mcus_x * sl.mcus_y;
  const int intervals = ri > 0 ? CeilDiv(total, ri) : 1;
  if (!strip.Reserve(size_t(comp[0].stride) * kStripRows * 2))
    return Problem(DecodeStatus::kError, "out of memory");

  // With restart markers and several threads, the intervals are found first
  // and decoded in contiguous runs, one per thread.
  std::vector<int> starts;
  if (threaded && ri > 0 && intervals > 1) {
    starts.push_back(rd->pos);
    int p = rd->pos;
    const uint8_t* d = rd->data;
    while (p + 1 < rd->size) {
      const uint8_t* ff = static_cast<const uint8_t*>(std::memchr(d + p, 0xFF, size_t(rd->size - p)));
      if (!ff) break;
      p = int(ff - d) + 1;
      while (p < rd->size && d[p] == 0xFF) ++p;
      if (p >= rd->size) break;
      if (d[p] == 0) continue;
      if (d[p] < 0xD0 || d[p] > 0xD7) break;
      starts.push_back(++p);
    }
    if (int(starts.size()) != intervals) starts.clear();  // damaged: decode serially
  }
  // A scan of every component turned into pixels as it goes keeps two MCU
  // rows of each plane, in the cache; otherwise the planes hold the frame.
  const bool ring = all && starts.empty() && emitted == 0;
  if (!ReservePlanes(ring)) return Problem(DecodeStatus::kError, "out of memory");
  if (row_scratch.size() < size_t(threads)) row_scratch.resize(size_t(threads));
  for (RowScratch& r : row_scratch)
    if (!r.jobs.Reserve(row_blocks * 3))
      return Problem(DecodeStatus::kError, "out of memory");
  if (!starts.empty()) {
    const int nt = std::min(threads, intervals);
    if (!coefs.Reserve(row_blocks * 64 * size_t(nt)) ||
        !strip.Reserve(size_t(comp[0].stride) * kStripRows * 2 * size_t(nt)))
      return Problem(DecodeStatus::kError, "out of memory");
    done.resize(row_blocks * size_t(nt));
    std::vector<StageTimes> thread_times(static_cast<size_t>(nt));
    std::vector<std::string> problems(static_cast<size_t>(nt));
    std::vector<std::pair<int, int>> spans(static_cast<size_t>(nt));  // rows converted per thread
    const int rows_per_mcu_row = ns == 1 ? 8 : 8 * vmax;
    // Rows an earlier scan of every component already turned into pixels
    // stay as they are, as on one thread.
    const int shown = emitted;
    bool seam_rows = false;  // a row's chroma comes from the MCU row above too
    for (int c = 0; c < ncomp; ++c) seam_rows = seam_rows || comp[c].vs == 2;
    auto run = [&](int t) {
      const int k0 = int(int64_t(intervals) * t / nt), k1 = int(int64_t(intervals) * (t + 1) / nt);
      Reader r = *rd;
      r.state = state(t);
      r.pos = starts[size_t(k0)];
      r.Reset();
      const int row_begin = k0 * ri / sl.mcus_x, row_end = std::min(sl.mcus_y, CeilDiv(k1 * ri, sl.mcus_x));
      // The MCU rows this thread decodes whole, and the image rows that
      // need no others: those can become pixels while they are in the
      // cache; the rows on the seams between threads are left for later.
      const int own_begin = CeilDiv(k0 * ri, sl.mcus_x);
      const int own_end = k1 == intervals ? sl.mcus_y : k1 * ri / sl.mcus_x;
      int next = std::max(shown, own_begin * rows_per_mcu_row + (own_begin > 0 && seam_rows ? 1 : 0));
      spans[size_t(t)] = {next, next};
      uint8_t* scratch = strip.data() + size_t(comp[0].stride) * kStripRows * 2 * size_t(t);
      for (int my = row_begin; my < row_end; ++my) {
        DecodeRows(sl, my, my + 1, &r, k0, k1, coefs.data() + row_blocks * 64 * size_t(t),
                   done.data() + row_blocks * size_t(t), &row_scratch[size_t(t)], &thread_times[size_t(t)]);
        if (!all || my < own_begin || my >= own_end) continue;
        const int ready = std::min(ReadyRows(sl, my), height);
        if (ready > next) ConvertRows(next, ready, scratch, &thread_times[size_t(t)]);
        next = std::max(next, ready);
        spans[size_t(t)].second = next;
      }
      problems[size_t(t)] = r.problem;
    };
    std::vector<std::thread> pool;
    for (int t = 1; t < nt; ++t) pool.emplace_back(run, t);
    run(0);
    for (auto& th : pool) th.join();
    for (const std::string& why : problems)
      if (!why.empty()) Damage(why);
    for (const StageTimes& s : thread_times) {
      st->entropy += s.entropy;
      st->transform += s.transform;
      st->sampling += s.sampling;
      st->colour += s.colour;
    }
    // The seams, and rows of MCU rows that two threads shared.
    if (all) {
      int y = shown;
      for (const auto& span : spans) {
        if (span.second <= span.first) continue;
        if (span.first > y) ConvertRows(y, span.first, strip.data(), st);
        y = std::max(y, span.second);
      }
      if (y < height) ConvertRows(y, height, strip.data(), st);
      emitted = height;
    }
    // The marker after the scan: past the last interval's data.
    rd->pos = starts.back();
    rd->marker = 0;
    rd->SeekMarker();
  } else {
    const bool pipelined = threaded && all;
    const size_t slots = pipelined ? kPipelineRows : 1;
    if (!coefs.Reserve(row_blocks * 64 * slots)) return Problem(DecodeStatus::kError, "out of memory");
    done.resize(row_blocks * slots);
    rd->Reset();
    if (pipelined) {
      PipelinedScan(sl, rd, st);
    } else {
      for (int my = 0; my < sl.mcus_y; ++my) {
        DecodeRows(sl, my, my + 1, rd, 0, intervals, coefs.data(), done.data(), &row_scratch[0], st);
        if (all) Emit(ReadyRows(sl, my), strip.data(), st);
      }
    }
    rd->SeekMarker();
    if (!rd->problem.empty()) Damage(rd->problem);
  }
  for (int c = 0; c < ns; ++c) sc[c]->coded = true;
}

// Up-samples and converts rows [y0, y1) of the image.
void Decoder::Impl::ConvertRows(int y0, int y1, uint8_t* scratch, StageTimes* st) {
  Image& img = *image;
  StageClock clock(times != nullptr);
  const Component& Y = comp[0];
  if (ncomp == 1) {
    for (int y = y0; y < y1; ++y) std::memcpy(img.row(y), Y.Row(y), size_t(width));
    clock.Lap(&st->colour);
    return;
  }
  const Component& cb = comp[1];
  const Component& cr = comp[2];
  if (adobe_transform != 0 && cb.hs == 2 && cr.hs == 2 && cb.vs == 2 && cr.vs == 2) {
    // 4:2:0: the chroma is up-sampled inside the conversion, row by row,
    // without full-width chroma rows in between.  (4:2:2 keeps the two
    // steps: its byte-wise row up-sampler and the conversion measure faster
    // than the fused row.)
    for (int y = y0; y < y1; ++y) {
      const int near = y >> 1;
      const int far = (y & 1) ? std::min(near + 1, cb.ch - 1) : std::max(near - 1, 0);
      rvtiYCbCr420ToRGBRow_Triangle_JPEG_8u_P3C3R(Y.Row(y), cb.Row(near), cb.Row(far), cr.Row(near),
                                                   cr.Row(far), img.row(y), width);
    }
    clock.Lap(&st->colour);
    return;
  }
  const int s = Y.stride;
  for (int r0 = y0, r1; r0 < y1; r0 = r1) {
    r1 = std::min(y1, r0 + kStripRows);
    // Full-size planes are read in place: a strip ends where their ring does.
    for (int c = 0; c < 3; ++c)
      if (comp[c].ring && comp[c].hs == 1 && comp[c].vs == 1)
        r1 = std::min(r1, r0 - r0 % comp[c].ring + comp[c].ring);
    const uint8_t* src[3] = {Y.Row(r0), nullptr, nullptr};
    for (int c = 1; c < 3; ++c) {
      const Component& k = comp[c];
      if (k.hs == 1 && k.vs == 1) {
        src[c] = k.Row(r0);
        continue;
      }
      uint8_t* dst = scratch + size_t(c - 1) * kStripRows * s;
      src[c] = dst;
      for (int y = r0; y < r1; ++y, dst += s) {
        if (k.vs == 1) {
          rvtiSampleUpRowH2V1_Triangle_JPEG_8u_C1(k.Row(y), k.cw, dst);
        } else {
          const int near = y >> 1;
          const int far = (y & 1) ? std::min(near + 1, k.ch - 1) : std::max(near - 1, 0);
          rvtiSampleUpRowH2V2_Triangle_JPEG_8u_C1(k.Row(near), k.Row(far), k.cw, dst);
        }
      }
    }
    clock.Lap(&st->sampling);
    if (adobe_transform == 0) {
      // Stored as RGB: interleave.
      for (int y = r0; y < r1; ++y) {
        uint8_t* o = img.row(y);
        const size_t off = size_t(y - r0) * s;
        for (int x = 0; x < width; ++x) {
          o[3 * x] = src[0][off + x];
          o[3 * x + 1] = src[1][off + x];
          o[3 * x + 2] = src[2][off + x];
        }
      }
    } else {
      rvtiYCbCrToRGB_JPEG_8u_P3C3R(src, s, img.row(r0), width * 3, ImageSize{width, r1 - r0});
    }
    clock.Lap(&st->colour);
  }
}

void Decoder::Impl::Emit(int y_end, uint8_t* scratch, StageTimes* st) {
  y_end = std::min(y_end, height);
  if (y_end <= emitted) return;
  ConvertRows(emitted, y_end, scratch, st);
  emitted = y_end;
}

// Converts what is left once the data is over; components that no scan
// coded are flat grey.
void Decoder::Impl::Finish() {
  for (int c = 0; c < ncomp; ++c)
    if (!comp[c].coded) {
      std::memset(comp[c].plane.data(), 128, comp[c].plane.size());
      comp[c].coded = true;
      Damage("a component has no scan");
    }
  if (emitted >= height) return;
  StageTimes local;
  StageTimes* st = times ? times : &local;
  const int nt = std::max(1, std::min(threads, (height - emitted) / kStripRows));
  if (!strip.Reserve(size_t(comp[0].stride) * kStripRows * 2 * size_t(nt)))
    return Problem(DecodeStatus::kError, "out of memory");
  if (nt == 1) return Emit(height, strip.data(), st);
  std::vector<std::thread> pool;
  std::vector<StageTimes> tt(static_cast<size_t>(nt));
  const int y0 = emitted;
  for (int t = 0; t < nt; ++t) {
    const int a = y0 + (height - y0) * t / nt, b = y0 + (height - y0) * (t + 1) / nt;
    uint8_t* scratch = strip.data() + size_t(comp[0].stride) * kStripRows * 2 * size_t(t);
    StageTimes* ts = &tt[size_t(t)];
    if (t == 0) continue;
    pool.emplace_back([this, a, b, scratch, ts] { ConvertRows(a, b, scratch, ts); });
  }
  ConvertRows(y0, y0 + (height - y0) / nt, strip.data(), &tt[0]);
  for (auto& th : pool) th.join();
  for (const StageTimes& s : tt) {
    st->sampling += s.sampling;
    st->colour += s.colour;
  }
  emitted = height;
}

void Decoder::Impl::ReadSos(const uint8_t* p, int len, const uint8_t* data, size_t size, size_t* pos,
                            int* next) {
  *next = -1;
  if (!have_frame) return Problem(DecodeStatus::kError, "scan before frame header");
  if (len < 1) return Problem(DecodeStatus::kError, "bad SOS segment");
  const int ns = p[0];
  if (ns < 1 || ns > ncomp || len < 4 + 2 * ns) return Problem(DecodeStatus::kError, "bad SOS segment");
  Component* sc[4];
  for (int i = 0; i < ns; ++i) {
    const int id = p[1 + 2 * i], tables = p[2 + 2 * i];
    Component* k = nullptr;
    for (int c = 0; c < ncomp; ++c)
      if (comp[c].id == id) k = &comp[c];
    if (!k) return Problem(DecodeStatus::kError, "scan names an unknown component");
    for (int j = 0; j < i; ++j)
      if (sc[j] == k) return Problem(DecodeStatus::kError, "component twice in a scan");
    k->td = tables >> 4;
    k->ta = tables & 15;
    if (k->td > 3 || k->ta > 3 || !dc_defined[k->td] || !ac_defined[k->ta])
      return Problem(DecodeStatus::kError, "scan uses an undefined Huffman table");
    if (!q_defined[k->tq]) return Problem(DecodeStatus::kError, "component uses an undefined quantization table");
    sc[i] = k;
  }
  const uint8_t* q = p + 1 + 2 * ns;
  if (q[0] != 0 || q[1] != 63 || q[2] != 0)
    return Problem(DecodeStatus::kError, "scan is not sequential (spectral selection or approximation set)");
  if (ns > 1) {
    int blocks = 0;
    for (int i = 0; i < ns; ++i) blocks += sc[i]->h * sc[i]->v;
    if (blocks > 10) return Problem(DecodeStatus::kError, "more than 10 blocks in an MCU");
  }
  if (size > size_t(INT32_MAX)) return Problem(DecodeStatus::kUnsupported, "file larger than 2 GB");
  Reader rd;
  rd.data = data;
  rd.size = int(size);
  rd.pos = int(*pos);
  rd.state = state(0);
  DecodeScan(sc, ns, &rd, threads > 1);
  *pos = size_t(rd.pos);
  *next = rd.marker;
}

// A progressive frame: the coefficient layer (progressive.h) runs every
// scan of the file, then each block goes through the inverse DCT.
void Decoder::Impl::DecodeProgressive(const uint8_t* seg, int seg_len, const uint8_t* data,
                                      size_t size) {
  ReadSof(0xC2, seg, seg_len);
  if (Fatal()) return;
  coef::Frame f;
  std::string why;
  bool unsupported = false;
  StageClock clock(times != nullptr);
  if (!coef::ReadFile(data, size, &f, &why, &unsupported)) {
    return Problem(unsupported ? DecodeStatus::kUnsupported : DecodeStatus::kError, why);
  }
  StageTimes local;
  StageTimes* st = times ? times : &local;
  clock.Lap(&st->entropy);
  for (int t = 0; t < 4; ++t) {
    if (!f.qt_present[t]) continue;
    rvtiQuantInvTableInit_JPEG_8u16u(f.qt[t], qt[t]);
    q_defined[t] = true;
  }
  if (!ReservePlanes(false)) return Problem(DecodeStatus::kError, "out of memory");
  for (int c = 0; c < ncomp; ++c) {
    Component& k = comp[c];
    const coef::Component& fc = f.comps[size_t(c)];
    if (!q_defined[k.tq]) return Problem(DecodeStatus::kError, "component uses an undefined quantization table");
    const int bw = std::min(k.bw, fc.bw), bh = std::min(k.bh, fc.bh);
    for (int by = 0; by < bh; ++by) {
      for (int bx = 0; bx < bw; ++bx) {
        const int16_t* blk = fc.block(bx, by);
        int n = 64;
        while (n > 1 && blk[kZigzag[n - 1]] == 0) --n;
        Idct(blk, n, k.plane.data() + size_t(by) * 8 * k.stride + size_t(bx) * 8, k.stride, qt[k.tq]);
      }
    }
    k.coded = true;
  }
  clock.Lap(&st->transform);
}

Decoder::Decoder() : impl_(new Impl) {}
Decoder::~Decoder() = default;
void Decoder::set_stage_times(StageTimes* times) { impl_->times = times; }

DecodeStatus Decoder::Decode(const uint8_t* data, size_t size, const DecodeOptions& options, Image* image,
                             std::string* message) {
  Impl& m = *impl_;
  message->clear();
  if (!m.Setup()) {
    *message = "Huffman decoder setup failed";
    return DecodeStatus::kError;
  }
  m.threads = std::max(1, std::min(options.threads, 64));
  if (!m.states.Reserve(size_t(m.threads) * size_t((m.state_size + 63) & ~63))) {
    *message = "out of memory";
    return DecodeStatus::kError;
  }
  m.image = image;
  if (size < 4 || data[0] != 0xFF || data[1] != 0xD8) {
    *message = "not a JPEG file (no SOI marker)";
    return DecodeStatus::kError;
  }
  size_t pos = 2;
  int code = -1;  // a marker already read by the scan decoder
  bool scanned = false, ended = false;
  while (!m.Fatal() && !ended) {
    if (code < 0) {
      // Next marker; stray bytes before it are passed over.
      size_t p = pos;
      while (p < size && data[p] != 0xFF) ++p;
      if (p > pos && scanned) m.Damage("stray bytes between segments");
      while (p < size && data[p] == 0xFF) ++p;
      if (p >= size) break;
      code = data[p];
      pos = p + 1;
      if (code == 0) {
        code = -1;
        continue;
      }
    }
    const int marker = code;
    code = -1;
    if (marker == 0xD9) {
      ended = true;
      break;
    }
    if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) continue;  // no length
    if (marker == 0xD8) {
      m.Problem(DecodeStatus::kError, "SOI inside the image");
      break;
    }
    if (pos + 2 > size) break;
    const int len = data[pos] << 8 | data[pos + 1];
    if (len < 2 || pos + size_t(len) > size) {
      if (marker == 0xDA || !m.have_frame) m.Problem(DecodeStatus::kError, "truncated segment");
      break;
    }
    const uint8_t* seg = data + pos + 2;
    const int seg_len = len - 2;
    pos += size_t(len);
    switch (marker) {
      case 0xC0:
      case 0xC1:
        m.ReadSof(marker, seg, seg_len);
        if (m.have_frame) image->Resize(m.width, m.height, m.ncomp == 1 ? 1 : 3);
        break;
      case 0xC2:
        // Every scan at once, then the pixels from the coefficients.
        m.DecodeProgressive(seg, seg_len, data, size);
        if (m.have_frame) image->Resize(m.width, m.height, m.ncomp == 1 ? 1 : 3);
        scanned = ended = !m.Fatal();
        break;
      case 0xC3:
      case 0xC7:
      case 0xCB:
      case 0xCF:
        m.Problem(DecodeStatus::kUnsupported, "lossless JPEG is not supported (baseline only)");
        break;
      case 0xC5:
      case 0xC6:
        m.Problem(DecodeStatus::kUnsupported, "hierarchical JPEG is not supported");
        break;
      case 0xC9:
      case 0xCA:
      case 0xCC:
      case 0xCD:
      case 0xCE:
        m.Problem(DecodeStatus::kUnsupported, "arithmetic-coded JPEG is not supported (Huffman only)");
        break;
      case 0xC4:
        m.ReadDht(seg, seg_len);
        break;
      case 0xDB:
        m.ReadDqt(seg, seg_len);
        break;
      case 0xDD:
        if (seg_len < 2) m.Problem(DecodeStatus::kError, "bad DRI segment");
        else m.restart_interval = seg[0] << 8 | seg[1];
        break;
      case 0xDC:
        m.Problem(DecodeStatus::kUnsupported, "DNL marker is not supported");
        break;
      case 0xEE:
        if (seg_len >= 12 && std::memcmp(seg, "Adobe", 5) == 0) m.adobe_transform = seg[11];
        break;
      case 0xDA:
        m.ReadSos(seg, seg_len, data, size, &pos, &code);
        scanned = true;
        break;
      default:
        break;  // APPn, COM and the rest are passed over
    }
  }
  if (m.Fatal()) {
    *message = m.message;
    return m.status;
  }
  if (!m.have_frame || !scanned) {
    *message = m.have_frame ? "no scan in the file" : "no frame header in the file";
    return DecodeStatus::kError;
  }
  if (!ended) m.Damage("data ends before EOI");
  m.Finish();
  if (m.Fatal()) {
    *message = m.message;
    return m.status;
  }
  *message = m.message;
  return m.status;
}

DecodeStatus DecodeJpeg(const uint8_t* data, size_t size, Image* image, std::string* message) {
  Decoder decoder;
  return decoder.Decode(data, size, DecodeOptions(), image, message);
}

}  // namespace rvtjpeg
