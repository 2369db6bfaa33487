// rvtjxr: an example JPEG XR codec over the library's photo core transform
// and coefficient coding exports.  The container, the image, tile and
// macroblock layers, prediction, quantization, the second-level transform
// and the overlap filters are this codec's; every first-level transform goes
// through rvtiPCTInv/Fwd and every coefficient through rvtiVLC/FLC.
//
// 4:2:0 and 4:2:2 images carry chroma at half width (and height); the
// decoded chroma samples are what the file fixes, but turning them into RGB
// needs an up-sampling filter the file does not code.  This decoder uses
// jxrlib's, so that its RGB equals JxrDecApp's: sub-sampled samples on the
// even positions, each sample between two their mean rounded up, the last
// column (row) a copy of the one before; 4:2:0 vertically first.  The
// encoder down-samples as jxrlib's does (a 1 4 6 4 1 filter on the even
// positions, mirrored at the edges, horizontally first).
#ifndef RVTJXR_JXR_CODEC_H_
#define RVTJXR_JXR_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rvtjxr {

// Quantizer step of an index, for the encoder and the decoder alike.
// Scaled arithmetic (the usual case) keeps one more bit for lum and all HP
// steps (shift 1) than for chroma DC/LP.
inline int32_t StepOf(int index, int shift, bool scaled) {
  if (index == 0) return 1;
  if (!scaled) {
    if (index < 32) return (index + 3) >> 2;
    if (index < 48) return ((16 + (index & 15) + 1) >> 1) << ((index >> 4) - 2);
    return (16 + (index & 15)) << ((index >> 4) - 3);
  }
  if (index < 16) return index << shift;
  return (16 + (index & 15)) << ((index >> 4) - 1 + shift);
}

// A decoded image: interleaved samples, `channels` 1 (grey), 3 (R, G, B)
// or 4 (R, G, B, A), `bits` 8 or 16.
// Takes 8-bit rows as a decoder finishes them, top to bottom: `count` rows
// of width * channels bytes each from `rows` (valid during the call).
// Returning false makes the decode fail, and no rows follow.
class RowSink {
 public:
  virtual bool Rows(const uint8_t* rows, int count) = 0;

 protected:
  ~RowSink() = default;
};

struct Picture {
  int width = 0;
  int height = 0;
  int channels = 0;
  int bits = 8;
  std::vector<uint16_t> samples;
  // Set by a decoder's caller: 8-bit images without alpha then come back
  // in `bytes` (samples left empty), which halves the memory a big image
  // touches.
  bool narrow = false;
  std::vector<uint8_t> bytes;
  // Set by the caller too (with `narrow`): such images go to the sink a few
  // rows at a time instead, and `bytes` stays empty.  A whole image in
  // memory is written (and its pages faulted in) once more than rows
  // passed on while in cache.  The size fields are set before the first
  // rows arrive.
  RowSink* sink = nullptr;
};

// Where the coded image sits in a container, and what the container says.
struct Container {
  size_t imageOffset = 0;
  size_t imageBytes = 0;
  bool hasAlpha = false;      // a planar alpha plane: its own coded image
  size_t alphaOffset = 0;
  size_t alphaBytes = 0;      // cut to the file (writers overstate it)
  uint8_t pixelFormat = 0;  // the last byte of the pixel format identifier
};

// Each returns false with a one-line reason when it cannot do the job; on
// damaged data they never read outside `data`.
bool ParseContainer(const uint8_t* data, size_t size, Container* out, std::string* error);
// Images of more than maxPixels (padded to whole macroblocks) are refused,
// as are those with more macroblocks than the data has bits.
bool DecodeImage(const uint8_t* data, size_t size, Picture* out, std::string* error,
                 size_t maxPixels = size_t(1) << 30);
// A whole file: the container, then its image.
bool DecodeFile(const uint8_t* data, size_t size, Picture* out, std::string* error,
                size_t maxPixels = size_t(1) << 30);


// What later macroblocks predict from: DC, the first row (left prediction)
// and first column (top) of the lowpass coefficients, block patterns and
// the quantizer index, per channel.
struct PredInfo {
  int32_t dc[16];
  int32_t ad[16][6];
  int32_t cbp[16];
  int qpIndex;
};

constexpr int kRowPos[3] = {2, 1, 7};   // first-row LP/HP coefficients
constexpr int kColPos[3] = {8, 4, 13};  // first-column ones

// Keeps a macroblock's prediction sources out of its DC/LP coefficients
// (16 a channel); subsampled chroma keeps its own five.
inline void KeepForPrediction(PredInfo& me, const int32_t* dclp, int nc, bool sub) {
  for (int ch = 0; ch < nc; ++ch) {
    const int32_t* o = dclp + 16 * ch;
    me.dc[ch] = o[0];
    if (sub && ch > 0) {
      me.ad[ch][0] = o[1];
      me.ad[ch][1] = o[2];
      me.ad[ch][2] = o[5];
      me.ad[ch][3] = o[6];
      me.ad[ch][4] = o[4];
      continue;
    }
    for (int k = 0; k < 3; ++k) {
      me.ad[ch][k] = o[kRowPos[k]];
      me.ad[ch][3 + k] = o[kColPos[k]];
    }
  }
}

}  // namespace rvtjxr

#endif  // RVTJXR_JXR_CODEC_H_
