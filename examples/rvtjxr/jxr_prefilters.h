// rvtjxr's forward transform stage: the exact inverse of InverseTransform
// (jxr_filters.h), over one channel in the same macroblock layout: the
// overlap pre filters of both levels around the first-level forward
// transform.  Every lifting step of the decoder's side is undone in the
// opposite order, so InverseTransform(ForwardTransform(x)) == x for the
// filters of codec subversion 1 and up.
#ifndef RVTJXR_JXR_PREFILTERS_H_
#define RVTJXR_JXR_PREFILTERS_H_

#include <cstdint>
#include <memory>
#include <vector>

namespace rvtjxr {

// Leaves every block's first-level coefficients in place (the DC at the
// block's first element) for overlap 0, 1 or 2; the block DCs still need
// the second-level forward transform.
void ForwardTransform(int32_t* channel, int mbw, int mbh, int overlap);
// The same for a 4:2:0 or 4:2:2 chroma channel in the layout of
// InverseTransformChroma, undoing its newer filters exactly when the image
// is at least two macroblocks wide (one macroblock wide, the decoder's
// corner correction loses the top-left DC under overlap 2).
void ForwardTransformChroma(int32_t* channel, int mbw, int mbh, bool is420, int overlap);

// One step of the decoder's walk, to be undone.
struct PrefilterStep {
  enum Kind : uint8_t { kEdge, kWindow, kCornerDC, kBlock, kPost2, kPost2x2, kSub, kAdd } kind;
  int32_t* p[4];
  bool late;  // after the corner's block transforms (a first-level filter)
};

// ForwardTransform (chroma: 420 or 422, ForwardTransformChroma; else 0)
// for an encoder that holds a few macroblock rows of a channel: call
// Row(above, here, next, y) for y = 0, 1, ..., mbh with `here` holding the
// pixels of macroblock row y (unused when y == mbh), `above` row y - 1 as
// the previous call left it (unused when y == 0) and `next` where row
// y + 1 will be (not read yet; it may be `above`).  Rows stay where they
// are from call to call; `above` and `here` must not overlap.  Afterwards
// row y - 1 holds its first-level coefficients, exactly those of the
// whole-channel transform, while row y has been filtered as far as its
// own pixels allow.
class ForwardRows {
 public:
  ForwardRows(int mbw, int mbh, int overlap, int chroma = 0);
  void Row(int32_t* above, int32_t* here, int32_t* next, int y);
  struct WindowBatch;  // (the row's windows, undone eight at a time)

 private:
  // What is left to undo of a corner row, corner by corner (the steps of
  // corner x from at[x] to at[x + 1]): first-level filters reaching into
  // its lower macroblock row, block transforms, second-level steps.
  struct Pending {
    std::vector<PrefilterStep> filters, dc;
    std::vector<int32_t*> blocks;
    std::vector<int> filtersAt, dcAt, blocksAt;
    void Clear();
    void Mark(int x);
  };
  void Walk(Pending& to, WindowBatch& windows, int32_t* above, int32_t* here, int x, int y);
  int mbw_, mbh_, overlap_, chroma_;
  ptrdiff_t rowLen_;
  Pending pending_[2];  // this call's corner row and the next one
  // chroma: two rows the shared walk addresses as a whole channel; the
  // steps it lists there are moved onto the rows in use
  std::unique_ptr<int32_t[]> rows_;
};

}  // namespace rvtjxr

#endif  // RVTJXR_JXR_PREFILTERS_H_
