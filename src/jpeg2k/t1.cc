// JPEG 2000 code-block coding: the exports over the pass engine of t1.h.
#include "jpeg2k/t1.h"
#include "jpeg2k/t1_fast.h"

#include <cstdlib>

#include "frame/dispatch.h"

namespace rvt::t1 {
namespace {

int32_t Load32(const uint8_t* p) {
  int32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
void Store32(uint8_t* p, int32_t v) { std::memcpy(p, &v, 4); }

bool FitsState(ImageSize s, int maxW, int maxH, int maxArea) {
  return s.width <= maxW && s.height <= maxH && s.width * s.height <= maxArea;
}

uint8_t* EncPlanesBase(EncHeader* h) {
  return reinterpret_cast<uint8_t*>(h) + Align8(int32_t(sizeof(EncHeader)));
}
uint8_t* EncBytes(EncHeader* h) { return EncPlanesBase(h) + PlanesBytes(h->maxW, h->maxH, h->maxArea); }

RvtResult CheckEncState(const EncodeCBState_JPEG2K* st) {
  RVT_CHECK(CheckPtr(st));
  return AlignUp<const EncHeader>(st)->magic == kEncMagic ? rvtStatusOk : rvtStatusBadArg;
}
RvtResult CheckDecState(const DecodeCBProgrState_JPEG2K* st) {
  RVT_CHECK(CheckPtr(st));
  return AlignUp<const DecHeader>(st)->magic == kDecMagic ? rvtStatusOk : rvtStatusBadArg;
}

void EncInitAt(EncHeader* h, ImageSize m) {
  ZeroFill(h, int32_t(sizeof(EncHeader)));
  h->magic = kEncMagic;
  h->maxW = m.width;
  h->maxH = m.height;
  h->maxArea = m.width * m.height;
  h->cap = EncCapacity(h->maxArea);
}

void DecInitAt(DecHeader* h, ImageSize m, bool snapshots) {
  ZeroFill(h, int32_t(sizeof(DecHeader)));
  h->magic = kDecMagic;
  h->maxW = m.width;
  h->maxH = m.height;
  h->maxArea = m.width * m.height;
  h->snapshots = snapshots ? 1 : 0;
}

Planes DecPlanes(DecHeader* h, int which) {
  uint8_t* base = reinterpret_cast<uint8_t*>(h) + Align8(int32_t(sizeof(DecHeader))) +
                  which * PlanesBytes(h->maxW, h->maxH, h->maxArea);
  return PlanesAt(base, h->maxW, h->maxH, h->maxArea, h->w, h->h);
}

void CopyPlanes(const Planes& from, const Planes& to) {
  std::memcpy(to.flags, from.flags, sizeof(FlagWord) * size_t(from.FlagWords()));
  std::memcpy(to.mag, from.mag, size_t(from.w) * size_t(from.h) * 4);
  std::memcpy(to.low, from.low, size_t(from.w) * size_t(from.h));
}

int CodedPasses(int magnBits, int sfBits) {
  const int planes = magnBits - sfBits;
  return planes > 0 ? 3 * planes - 2 : 0;
}

// The block parameters shared by the one-shot decoder and Attach.
RvtResult CheckBlockParams(int32_t band, int32_t magnBits, int32_t sfBits) {
  if (band < 0 || band > 3) return rvtStatusBadArg;
  if (magnBits < 1 || magnBits > kMaxPlanes) return rvtStatusBadArg;
  if (sfBits < 0 || sfBits > magnBits) return rvtStatusBadArg;
  return rvtStatusOk;
}
RvtResult CheckStyleRoi(int32_t codeStyle, int32_t roiShift) {
  if (codeStyle < 0 || codeStyle > 63) return rvtStatusBadArg;
  if (roiShift < 0 || roiShift > 31) return rvtStatusBadArg;
  return rvtStatusOk;
}
RvtResult CheckSegments(const int32_t* segLen, int nOfPasses, int style) {
  const int segs = SegmentsFor(nOfPasses, style);
  for (int s = 0; s < segs; ++s)
    if (segLen[s] < 0) return rvtStatusBadArg;
  return rvtStatusOk;
}

void Attach(DecHeader* h, ImageSize cb, int band, int magnBits, int sfBits, int style, int roi) {
  h->attached = 1;
  h->w = cb.width;
  h->h = cb.height;
  h->band = band;
  h->magnBits = magnBits;
  h->sfBits = sfBits;
  h->style = style;
  h->roi = roi;
  h->passes = 0;
  h->segStart = 0;
  h->snapValid = 0;
  ResetContexts(h->cx);
  const Planes b = DecPlanes(h, 0);
  std::memset(b.flags, 0, sizeof(FlagWord) * size_t(b.FlagWords()));
}

template <bool kFast, bool kEnc>
void Run(Planes& b, Coder<kEnc>& c, int k, int planes, int band, int style) {
  if constexpr (kFast) fast::RunFastPass(b, c, k, planes, band, style);
  else RunPass(b, c, k, planes, band, style);
}

// Decodes up to n passes in all from the block's data so far.
template <bool kFast>
void Step(DecHeader* h, const uint8_t* src, const int32_t* segLen, int n) {
  Planes cur = DecPlanes(h, 0);
  if (h->passes > h->segStart && h->snapValid) {
    CopyPlanes(DecPlanes(h, 1), cur);
    std::memcpy(h->cx, h->snapCx, sizeof(h->cx));
    h->passes = h->segStart;
  }
  const int planes = h->magnBits - h->sfBits;
  const int maxp = CodedPasses(h->magnBits, h->sfBits);
  int seg = 0;
  int64_t offset = 0;
  for (int k = 0; k < h->passes; ++k) {
    if (EndsSegment(k, h->style)) offset += segLen[seg++];
  }
  Coder<false> c;
  c.cx = h->cx;
  while (h->passes < n) {
    const int first = h->passes;
    int last = first;
    while (!EndsSegment(last, h->style) && last < maxp - 1) ++last;
    const int stop = last + 1 < n ? last + 1 : n;
    const bool open = stop < last + 1;
    if (open && h->snapshots) {
      CopyPlanes(cur, DecPlanes(h, 1));
      std::memcpy(h->snapCx, h->cx, sizeof(h->cx));
      h->snapValid = 1;
    }
    c.src = Source{src + offset, segLen[seg]};
    if (IsRaw(first, h->style)) c.raw.Init();
    else c.mq.Init(c.src);
    for (int k = first; k < stop; ++k) {
      if (k > 0 && (h->style & rvtJ2KStyleReset)) ResetContexts(h->cx);
      Run<kFast>(cur, c, k, planes, h->band, h->style);
    }
    offset += segLen[seg++];
    h->passes = stop;
    h->segStart = open ? first : stop;
  }
}

// A stripe column at a time, since its flags are one load: a column with
// no significant coefficient (most of them, at low rates) is four zeros;
// otherwise branch-free per coefficient: the magnitude and its half step
// are masked by significance (the planes of a coefficient never
// significant are left as they were), the sign applied as a
// two's-complement negation.
void Reconstruct(const DecHeader* h, uint8_t* dst, int32_t dstStep) {
  const Planes b = DecPlanes(const_cast<DecHeader*>(h), 0);
  const uint64_t roiLimit = h->roi > 0 ? uint64_t(1) << h->roi : ~uint64_t(0);
  constexpr uint64_t kSigLanes = uint64_t(kFSig) * 0x0001000100010001ull;
  for (int y0 = 0; y0 < b.h; y0 += 4) {
    const int rows = b.h - y0 < 4 ? b.h - y0 : 4;
    uint8_t* out = dst + int64_t(y0) * dstStep;
    const FlagWord* col = b.Column(0, y0);
    for (int x = 0; x < b.w; ++x, col += 4, out += 4) {
      uint64_t v;
      std::memcpy(&v, col, 8);
      if (!(v & kSigLanes)) {
        for (int r = 0; r < rows; ++r) Store32(out + int64_t(r) * dstStep, 0);
        continue;
      }
      const int i0 = y0 * b.w + x;
      auto one = [&](int r) {
        const int i = i0 + r * b.w;
        const uint32_t f = col[r];
        const uint32_t sig = (f & kFSig) ? ~0u : 0u;
        const uint32_t neg = (f & kFNeg) ? ~0u : 0u;
        uint32_t m = (b.mag[i] + ((uint32_t(1) << (b.low[i] & 31)) >> 1)) & sig;
        if (m >= roiLimit) m >>= h->roi;
        Store32(out + int64_t(r) * dstStep, int32_t((m ^ neg) - neg));
      };
      if (rows == 4) {
        one(0);
        one(1);
        one(2);
        one(3);
      } else {
        for (int r = 0; r < rows; ++r) one(r);
      }
    }
  }
}

}  // namespace

// ------------------------------------------------------------ encoder

RvtResult EncodeGetStateSize(ImageSize cbMaxSize, int32_t* pSize) {
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pSize));
  *pSize = EncStateBytes(cbMaxSize);
  return rvtStatusOk;
}

RvtResult EncodeInit(EncodeCBState_JPEG2K* pState, ImageSize cbMaxSize) {
  RVT_CHECK(CheckPtr(pState));
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  EncInitAt(AlignUp<EncHeader>(pState), cbMaxSize);
  return rvtStatusOk;
}

RvtResult EncodeInitAlloc(EncodeCBState_JPEG2K** ppState, ImageSize cbMaxSize) {
  RVT_CHECK(CheckPtr(ppState));
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  void* p = Allocate(EncStateBytes(cbMaxSize));
  if (!p) {
    *ppState = nullptr;
    return rvtStatusNoMem;
  }
  EncInitAt(AlignUp<EncHeader>(p), cbMaxSize);
  *ppState = static_cast<EncodeCBState_JPEG2K*>(p);
  return rvtStatusOk;
}

RvtResult EncodeFree(EncodeCBState_JPEG2K* pState) {
  RVT_CHECK(CheckPtr(pState));
  Release(pState);
  return rvtStatusOk;
}

namespace {
template <bool kFast>
RvtResult EncodeLoad(const int32_t* pSrc, int32_t srcStep, ImageSize cbSize, EncodeCBState_JPEG2K* pState,
                     int32_t band, int32_t magnBits, int32_t codeStyle, int32_t* pSfBits, int32_t* pNOfPasses,
                     int32_t* pNOfTermPasses) {
  RVT_CHECK(CheckPlane(pSrc, srcStep));
  if (!SizeOk(cbSize)) return rvtStatusSize;
  RVT_CHECK(CheckEncState(pState));
  EncHeader* h = AlignUp<EncHeader>(pState);
  if (!FitsState(cbSize, h->maxW, h->maxH, h->maxArea)) return rvtStatusSize;
  if (band < 0 || band > 3) return rvtStatusBadArg;
  if (magnBits < 1 || magnBits > kMaxPlanes) return rvtStatusBadArg;
  if (codeStyle < 0 || codeStyle > 63) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(pSfBits));
  RVT_CHECK(CheckPtr(pNOfPasses));
  RVT_CHECK(CheckPtr(pNOfTermPasses));
  const int w = cbSize.width, hgt = cbSize.height;
  const auto* src = reinterpret_cast<const uint8_t*>(pSrc);
  // The or of the magnitudes has a bit at magnBits or above exactly when
  // one of them reaches 2^magnBits (INT32_MIN gives 2^31, never below);
  // without a test per sample the loop vectorizes.
  uint32_t any = 0;
  for (int y = 0; y < hgt; ++y) {
    const uint8_t* row = src + int64_t(y) * srcStep;
    uint32_t o = 0;
    for (int x = 0; x < w; ++x) {
      const int32_t v = Load32(row + 4 * x);
      o |= v < 0 ? 0u - uint32_t(v) : uint32_t(v);
    }
    any |= o;
  }
  if (any >> magnBits) return rvtStatusRange;  // magnBits <= 31

  int planes = 0;
  while (planes < 32 && (any >> planes)) ++planes;
  const int passes = planes ? 3 * planes - 2 : 0;
  Planes b = PlanesAt(EncPlanesBase(h), h->maxW, h->maxH, h->maxArea, w, hgt);
  std::memset(b.flags, 0, sizeof(FlagWord) * size_t(b.FlagWords()));
  // The squares sum in 64 bits while 4096 of them fit (magnitudes below
  // 2^26), in 128 otherwise.
  auto load = [&](auto total) {
    for (int y = 0; y < hgt; ++y) {
      const uint8_t* row = src + int64_t(y) * srcStep;
      uint32_t* mag = b.mag + y * w;
      FlagWord* f = &b.F(0, y);
      for (int x = 0; x < w; ++x) {
        const int32_t v = Load32(row + 4 * x);
        const uint32_t m = v < 0 ? 0u - uint32_t(v) : uint32_t(v);
        mag[x] = m;
        f[4 * x] = v < 0 ? FlagWord(kFNeg) : FlagWord(0);
        total += decltype(total)(uint64_t(m) * m);
      }
    }
    return static_cast<unsigned __int128>(total);
  };
  const unsigned __int128 total = any < (1u << 26) ? load(uint64_t(0)) : load(static_cast<unsigned __int128>(0));

  Ctx cx[kContexts];
  ResetContexts(cx);
  Coder<true> c;
  c.cx = cx;
  c.sink = Sink{EncBytes(h), h->cap};
  c.err = total;
  const bool pterm = codeStyle & rvtJ2KStylePTerm;
  int segs = 0;
  int32_t segStart = 0;
  int segOf[kMaxPasses];
  bool terminated[kMaxPasses];
  int32_t segEnd[kMaxPasses];
  for (int k = 0; k < passes; ++k) {
    const bool raw = IsRaw(k, codeStyle);
    if (k == 0 || terminated[k - 1]) {
      segStart = c.sink.pos;
      if (raw) c.raw.Init();
      else c.mq.Init();
    }
    if (k > 0 && (codeStyle & rvtJ2KStyleReset)) ResetContexts(cx);
    Run<kFast>(b, c, k, planes, band, codeStyle);
    terminated[k] = EndsSegment(k, codeStyle) || k == passes - 1;
    segOf[k] = segs;
    if (terminated[k]) {
      if (raw) c.raw.Flush(c.sink, segStart, pterm);
      else if (pterm) c.mq.FlushPredictable(c.sink);
      else c.mq.Flush(c.sink);
      segEnd[segs] = c.sink.pos;
      h->segLen[segs++] = c.sink.pos - segStart;
      h->rate[k] = c.sink.pos;
    } else {
      h->rate[k] = segStart + (raw ? c.raw.Needed(c.sink, segStart) : c.mq.Needed(c.sink, segStart));
    }
    h->dist[k] = double(total - c.err);
  }
  if (c.sink.overflow) {
    h->loaded = 0;
    return rvtStatusErr;
  }
  const uint8_t* bytes = EncBytes(h);
  for (int k = 0; k < passes; ++k) {
    if (terminated[k]) continue;
    const int32_t end = segEnd[segOf[k]];
    const int32_t start = end - h->segLen[segOf[k]];
    int32_t r = h->rate[k] < end ? h->rate[k] : end;
    if (r > start && bytes[r - 1] == 0xFF) --r;  // ones either way
    h->rate[k] = r;
  }
  for (int k = passes - 2; k >= 0; --k)
    if (h->rate[k] > h->rate[k + 1]) h->rate[k] = h->rate[k + 1];
  h->loaded = 1;
  h->passes = passes;
  h->segs = segs;
  h->total = c.sink.pos;
  h->storePos = 0;
  *pSfBits = magnBits - planes;
  *pNOfPasses = passes;
  *pNOfTermPasses = segs;
  return rvtStatusOk;
}
}  // namespace

RvtResult EncodeLoadCodeBlockRef(const int32_t* pSrc, int32_t srcStep, ImageSize cbSize,
                                 EncodeCBState_JPEG2K* pState, int32_t band, int32_t magnBits,
                                 int32_t codeStyle, int32_t* pSfBits, int32_t* pNOfPasses,
                                 int32_t* pNOfTermPasses) {
  return EncodeLoad<false>(pSrc, srcStep, cbSize, pState, band, magnBits, codeStyle, pSfBits, pNOfPasses,
                           pNOfTermPasses);
}
RvtResult EncodeLoadCodeBlockFast(const int32_t* pSrc, int32_t srcStep, ImageSize cbSize,
                                  EncodeCBState_JPEG2K* pState, int32_t band, int32_t magnBits,
                                  int32_t codeStyle, int32_t* pSfBits, int32_t* pNOfPasses,
                                  int32_t* pNOfTermPasses) {
  return EncodeLoad<true>(pSrc, srcStep, cbSize, pState, band, magnBits, codeStyle, pSfBits, pNOfPasses,
                          pNOfTermPasses);
}

RvtResult EncodeStoreBits(uint8_t* pDst, int32_t* pDstLen, EncodeCBState_JPEG2K* pState,
                          int32_t* pIsNotFinish) {
  RVT_CHECK(CheckPtr(pDst));
  RVT_CHECK(CheckPtr(pDstLen));
  if (*pDstLen < 1) return rvtStatusSize;
  RVT_CHECK(CheckEncState(pState));
  RVT_CHECK(CheckPtr(pIsNotFinish));
  EncHeader* h = AlignUp<EncHeader>(pState);
  const int32_t left = h->loaded ? h->total - h->storePos : 0;
  const int32_t n = left < *pDstLen ? left : *pDstLen;
  if (n > 0) std::memcpy(pDst, EncBytes(h) + h->storePos, size_t(n));
  h->storePos += n;
  *pDstLen = n;
  *pIsNotFinish = left > n ? 1 : 0;
  return rvtStatusOk;
}

RvtResult EncodeGetRate(const EncodeCBState_JPEG2K* pState, int32_t passNo, int32_t* pRate) {
  RVT_CHECK(CheckEncState(pState));
  const EncHeader* h = AlignUp<const EncHeader>(pState);
  if (!h->loaded || passNo < 0 || passNo >= h->passes) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(pRate));
  *pRate = h->rate[passNo];
  return rvtStatusOk;
}

RvtResult EncodeGetDist(const EncodeCBState_JPEG2K* pState, int32_t passNo, double* pDist) {
  RVT_CHECK(CheckEncState(pState));
  const EncHeader* h = AlignUp<const EncHeader>(pState);
  if (!h->loaded || passNo < 0 || passNo >= h->passes) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(pDist));
  *pDist = h->dist[passNo];
  return rvtStatusOk;
}

RvtResult EncodeGetTermPassLen(const EncodeCBState_JPEG2K* pState, int32_t segNo, int32_t* pLen) {
  RVT_CHECK(CheckEncState(pState));
  const EncHeader* h = AlignUp<const EncHeader>(pState);
  if (!h->loaded || segNo < 0 || segNo >= h->segs) return rvtStatusBadArg;
  RVT_CHECK(CheckPtr(pLen));
  *pLen = h->segLen[segNo];
  return rvtStatusOk;
}

// ------------------------------------------------------------ decoders

RvtResult DecodeGetBufSize(ImageSize cbMaxSize, int32_t* pSize) {
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pSize));
  *pSize = DecBytes(cbMaxSize, false);
  return rvtStatusOk;
}

namespace {
template <bool kFast>
RvtResult DecodeOneShot(const uint8_t* pSrc, const int32_t* pSegLen, int32_t* pDst, int32_t dstStep,
                        ImageSize cbSize, int32_t band, int32_t magnBits, int32_t sfBits, int32_t nOfPasses,
                        int32_t codeStyle, int32_t roiShift, uint8_t* pBuffer) {
  RVT_CHECK(CheckPtr(pSrc));
  RVT_CHECK(CheckPtr(pSegLen));
  RVT_CHECK(CheckPlane(pDst, dstStep));
  if (!SizeOk(cbSize)) return rvtStatusSize;
  RVT_CHECK(CheckBlockParams(band, magnBits, sfBits));
  if (nOfPasses < 0 || nOfPasses > CodedPasses(magnBits, sfBits)) return rvtStatusBadArg;
  RVT_CHECK(CheckStyleRoi(codeStyle, roiShift));
  RVT_CHECK(CheckSegments(pSegLen, nOfPasses, codeStyle));
  RVT_CHECK(CheckPtr(pBuffer));
  DecHeader* h = AlignUp<DecHeader>(pBuffer);
  DecInitAt(h, cbSize, false);
  Attach(h, cbSize, band, magnBits, sfBits, codeStyle, roiShift);
  Step<kFast>(h, pSrc, pSegLen, nOfPasses);
  Reconstruct(h, reinterpret_cast<uint8_t*>(pDst), dstStep);
  return rvtStatusOk;
}

template <bool kFast>
RvtResult ProgrStep(const uint8_t* pSrc, const int32_t* pSegLen, int32_t nOfPasses,
                    DecodeCBProgrState_JPEG2K* pState) {
  RVT_CHECK(CheckPtr(pSrc));
  RVT_CHECK(CheckPtr(pSegLen));
  RVT_CHECK(CheckDecState(pState));
  DecHeader* h = AlignUp<DecHeader>(pState);
  if (!h->attached) return rvtStatusBadArg;
  if (nOfPasses < h->passes || nOfPasses > CodedPasses(h->magnBits, h->sfBits)) return rvtStatusBadArg;
  RVT_CHECK(CheckSegments(pSegLen, nOfPasses, h->style));
  Step<kFast>(h, pSrc, pSegLen, nOfPasses);
  return rvtStatusOk;
}
}  // namespace

RvtResult DecodeCodeBlockRef(const uint8_t* pSrc, const int32_t* pSegLen, int32_t* pDst, int32_t dstStep,
                             ImageSize cbSize, int32_t band, int32_t magnBits, int32_t sfBits,
                             int32_t nOfPasses, int32_t codeStyle, int32_t roiShift, uint8_t* pBuffer) {
  return DecodeOneShot<false>(pSrc, pSegLen, pDst, dstStep, cbSize, band, magnBits, sfBits, nOfPasses, codeStyle,
                              roiShift, pBuffer);
}
RvtResult DecodeCodeBlockFast(const uint8_t* pSrc, const int32_t* pSegLen, int32_t* pDst, int32_t dstStep,
                              ImageSize cbSize, int32_t band, int32_t magnBits, int32_t sfBits,
                              int32_t nOfPasses, int32_t codeStyle, int32_t roiShift, uint8_t* pBuffer) {
  return DecodeOneShot<true>(pSrc, pSegLen, pDst, dstStep, cbSize, band, magnBits, sfBits, nOfPasses, codeStyle,
                             roiShift, pBuffer);
}
RvtResult ProgrStepRef(const uint8_t* pSrc, const int32_t* pSegLen, int32_t nOfPasses,
                       DecodeCBProgrState_JPEG2K* pState) {
  return ProgrStep<false>(pSrc, pSegLen, nOfPasses, pState);
}
RvtResult ProgrStepFast(const uint8_t* pSrc, const int32_t* pSegLen, int32_t nOfPasses,
                        DecodeCBProgrState_JPEG2K* pState) {
  return ProgrStep<true>(pSrc, pSegLen, nOfPasses, pState);
}

RvtResult ProgrGetStateSize(ImageSize cbMaxSize, int32_t* pSize) {
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  RVT_CHECK(CheckPtr(pSize));
  *pSize = DecBytes(cbMaxSize, true);
  return rvtStatusOk;
}

RvtResult ProgrInit(DecodeCBProgrState_JPEG2K* pState, ImageSize cbMaxSize) {
  RVT_CHECK(CheckPtr(pState));
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  DecInitAt(AlignUp<DecHeader>(pState), cbMaxSize, true);
  return rvtStatusOk;
}

RvtResult ProgrInitAlloc(DecodeCBProgrState_JPEG2K** ppState, ImageSize cbMaxSize) {
  RVT_CHECK(CheckPtr(ppState));
  if (!SizeOk(cbMaxSize)) return rvtStatusSize;
  void* p = Allocate(DecBytes(cbMaxSize, true));
  if (!p) {
    *ppState = nullptr;
    return rvtStatusNoMem;
  }
  DecInitAt(AlignUp<DecHeader>(p), cbMaxSize, true);
  *ppState = static_cast<DecodeCBProgrState_JPEG2K*>(p);
  return rvtStatusOk;
}

RvtResult ProgrFree(DecodeCBProgrState_JPEG2K* pState) {
  RVT_CHECK(CheckPtr(pState));
  Release(pState);
  return rvtStatusOk;
}

RvtResult ProgrAttach(DecodeCBProgrState_JPEG2K* pState, ImageSize cbSize, int32_t band, int32_t magnBits,
                      int32_t sfBits, int32_t codeStyle, int32_t roiShift) {
  RVT_CHECK(CheckDecState(pState));
  DecHeader* h = AlignUp<DecHeader>(pState);
  if (!SizeOk(cbSize) || !FitsState(cbSize, h->maxW, h->maxH, h->maxArea)) return rvtStatusSize;
  RVT_CHECK(CheckBlockParams(band, magnBits, sfBits));
  RVT_CHECK(CheckStyleRoi(codeStyle, roiShift));
  Attach(h, cbSize, band, magnBits, sfBits, codeStyle, roiShift);
  return rvtStatusOk;
}

RvtResult ProgrGetPassCounters(const DecodeCBProgrState_JPEG2K* pState, int32_t* pNOfDecodedPasses,
                               int32_t* pBitPlane) {
  RVT_CHECK(CheckDecState(pState));
  RVT_CHECK(CheckPtr(pNOfDecodedPasses));
  RVT_CHECK(CheckPtr(pBitPlane));
  const DecHeader* h = AlignUp<const DecHeader>(pState);
  const int planes = h->attached ? h->magnBits - h->sfBits : 0;
  *pNOfDecodedPasses = h->attached ? h->passes : 0;
  *pBitPlane = (h->attached && h->passes > 0) ? PassPlane(h->passes - 1, planes) : planes;
  return rvtStatusOk;
}

RvtResult ProgrGetCodeBlock(const DecodeCBProgrState_JPEG2K* pState, int32_t* pDst, int32_t dstStep) {
  RVT_CHECK(CheckDecState(pState));
  RVT_CHECK(CheckPlane(pDst, dstStep));
  const DecHeader* h = AlignUp<const DecHeader>(pState);
  if (!h->attached) return rvtStatusBadArg;
  Reconstruct(h, reinterpret_cast<uint8_t*>(pDst), dstStep);
  return rvtStatusOk;
}

}  // namespace rvt::t1

namespace rvt {
RVT_IMPL_PLAIN(rvtiEncodeGetStateSize_JPEG2K, t1::EncodeGetStateSize);
RVT_IMPL_PLAIN(rvtiEncodeInit_JPEG2K, t1::EncodeInit);
RVT_IMPL_PLAIN(rvtiEncodeInitAlloc_JPEG2K, t1::EncodeInitAlloc);
RVT_IMPL_PLAIN(rvtiEncodeFree_JPEG2K, t1::EncodeFree);
RVT_IMPL_FAST(rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R, t1::EncodeLoadCodeBlockFast, t1::EncodeLoadCodeBlockRef);
RVT_IMPL_PLAIN(rvtiEncodeStoreBits_JPEG2K_1u, t1::EncodeStoreBits);
RVT_IMPL_PLAIN(rvtiEncodeGetRate_JPEG2K, t1::EncodeGetRate);
RVT_IMPL_PLAIN(rvtiEncodeGetDist_JPEG2K, t1::EncodeGetDist);
RVT_IMPL_PLAIN(rvtiEncodeGetTermPassLen_JPEG2K, t1::EncodeGetTermPassLen);
RVT_IMPL_FAST(rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R, t1::DecodeCodeBlockFast, t1::DecodeCodeBlockRef);
RVT_IMPL_PLAIN(rvtiDecodeGetBufSize_JPEG2K, t1::DecodeGetBufSize);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrGetStateSize_JPEG2K, t1::ProgrGetStateSize);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrInit_JPEG2K, t1::ProgrInit);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrInitAlloc_JPEG2K, t1::ProgrInitAlloc);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrFree_JPEG2K, t1::ProgrFree);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrAttach_JPEG2K, t1::ProgrAttach);
RVT_IMPL_FAST(rvtiDecodeCBProgrStep_JPEG2K, t1::ProgrStepFast, t1::ProgrStepRef);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrGetPassCounters_JPEG2K, t1::ProgrGetPassCounters);
RVT_IMPL_PLAIN(rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R, t1::ProgrGetCodeBlock);
}  // namespace rvt
