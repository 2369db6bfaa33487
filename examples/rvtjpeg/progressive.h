// The coefficient layer of a Huffman JPEG file, baseline or progressive:
// a reader that runs every scan of a file (SOF0/1/2, any scan script,
// interleaved DC scans, restart intervals) into quantized coefficients,
// and a writer that codes coefficients with a scan script, with the
// library's standard or optimized tables.  Entropy coding goes through the
// library's block coders and statistics; the markers are written and parsed
// here.  The codec and the tests share it.
#ifndef RVTJPEG_PROGRESSIVE_H_
#define RVTJPEG_PROGRESSIVE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rvtjpeg::coef {

struct Component {
  int id = 0, h = 1, v = 1, tq = 0;
  int dc_table = 0, ac_table = 0;  // Huffman table numbers when writing
  int bw = 0, bh = 0;              // blocks stored (the MCU-padded grid)
  int rw = 0, rh = 0;              // blocks that cover the image
  std::vector<int16_t> values;     // bw * bh blocks of 64, natural order
  int16_t* block(int bx, int by) { return values.data() + (size_t(by) * bw + bx) * 64; }
  const int16_t* block(int bx, int by) const {
    return values.data() + (size_t(by) * bw + bx) * 64;
  }
};

struct Frame {
  int width = 0, height = 0;
  bool progressive = false;
  std::vector<Component> comps;
  uint8_t qt[4][64] = {};  // zig-zag order, as DQT carries them
  bool qt_present[4] = {};
  int hmax = 1, vmax = 1, mcux = 0, mcuy = 0;
  // Sets the block grids from the size and the sampling factors, and
  // allocates zeroed coefficients.
  void Layout();
};

struct Scan {
  std::vector<int> comps;  // indices into Frame::comps
  int ss = 0, se = 63, ah = 0, al = 0;
};

// The progression libjpeg uses by default for 3-component (YCbCr) and
// single-component images; other component counts get one interleaved DC
// scan and full-band AC scans per component.
std::vector<Scan> DefaultScript(int ncomps);

// Reads every scan of a Huffman-coded baseline, extended or progressive
// file into *frame.  False with a one-line *error for damaged data;
// *unsupported is set for valid files of another kind (lossless,
// arithmetic coding, 12-bit samples, hierarchical).
bool ReadFile(const uint8_t* data, size_t size, Frame* frame, std::string* error,
              bool* unsupported = nullptr);

struct WriteOptions {
  bool progressive = false;
  bool optimize = false;  // progressive files are always optimized
  int restart_interval = 0;
  std::vector<Scan> script;  // progressive only; empty: DefaultScript
};

// Makes the blocks outside the image (those that only complete the last
// MCUs of an interleaved frame) what libjpeg's encoders make them: no AC
// coefficients, and the DC value of the block before them in the MCU.
// They are never seen; coded this way they cost the fewest bits, and a
// file re-coded by libjpeg-turbo keeps its coefficients.
void FlattenPadding(Frame* frame);

// Codes the coefficients of `frame` as a JFIF file (SOI, APP0, DQT, SOF,
// then per scan DHT/DRI/SOS and the data, EOI).  Standard tables are the
// ones of JPEG Annex K; optimized ones are built per scan from the
// library's statistics, and written as libjpeg writes them.
bool WriteFile(const Frame& frame, const WriteOptions& options, std::vector<uint8_t>* out,
               std::string* error);

}  // namespace rvtjpeg::coef

#endif  // RVTJPEG_PROGRESSIVE_H_
