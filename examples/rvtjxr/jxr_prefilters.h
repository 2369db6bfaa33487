// rvtjxr's forward transform stage: the exact inverse of InverseTransform
// (jxr_filters.h), over one channel in the same macroblock layout: the
// overlap pre filters of both levels around the first-level forward
// transform.  Every lifting step of the decoder's side is undone in the
// opposite order, so InverseTransform(ForwardTransform(x)) == x for the
// filters of codec subversion 1 and up.
#ifndef RVTJXR_JXR_PREFILTERS_H_
#define RVTJXR_JXR_PREFILTERS_H_

#include <cstdint>

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

}  // namespace rvtjxr

#endif  // RVTJXR_JXR_PREFILTERS_H_
