// Progressive Huffman coding: the fast AC kernels of one target.  No checks
// here: the drivers in huffman_progressive.h have checked the arguments.
//
// One vector pass finds the band's significant coefficients after the point
// transform (and, for refinement, the newly significant ones) as 64-bit
// masks in zig-zag order.  An empty band only lengthens the end-of-band
// run; otherwise the encoders walk the set bits, collecting bits in a 64-bit
// word whose whole bytes go to a staging area, stuffed on the way out, and
// the refinement decoder walks the significant coefficients of a block
// inside a run.  Anything unusual (a run reaching its cap, a symbol without
// a code, too little room, a state filled by hand) goes to the careful path
// from the untouched state, so both give the same bytes, states and
// statuses.
#if defined(RVT_JPEG_HUFFMAN_PROGRESSIVE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef RVT_JPEG_HUFFMAN_PROGRESSIVE_INL_H_
#undef RVT_JPEG_HUFFMAN_PROGRESSIVE_INL_H_
#else
#define RVT_JPEG_HUFFMAN_PROGRESSIVE_INL_H_
#endif

#include <hwy/highway.h>

#include <cstring>

#include "jpeg/huffman_decode-inl.h"
#include "jpeg/huffman_encode-inl.h"
#include "jpeg/huffman_progressive.h"

HWY_BEFORE_NAMESPACE();
namespace rvt::huffman_progressive::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace he = ::rvt::huffman_encode::HWY_NAMESPACE;
namespace hd = ::rvt::huffman_decode::HWY_NAMESPACE;

// Zig-zag masks of a block at point transform al: bit k of `nz` when
// |v| >> al is non-zero, of `one` when it is exactly 1.  The magnitudes
// (|v| >> al, 0..32768) go to mag[] in natural order.
struct BandMasks {
  uint64_t nz, one;
};

HWY_INLINE BandMasks Masks(const int16_t* block, int al, bool want_one, uint16_t* mag) {
  const hn::Full128<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  alignas(16) int16_t ones[64];
  const auto one = hn::Set(du, 1);
  for (int i = 0; i < 64; i += 8) {
    // |-32768| reads as 32768 unsigned.
    const auto a = hn::ShiftRightSame(hn::BitCast(du, hn::Abs(hn::LoadU(d, block + i))), al);
    hn::Store(a, du, mag + i);
    if (want_one) hn::Store(hn::BitCast(d, hn::VecFromMask(du, hn::Eq(a, one))), d, ones + i);
  }
  BandMasks m;
  m.nz = he::NonZeroMask(reinterpret_cast<const int16_t*>(mag));
  m.one = want_one ? he::NonZeroMask(ones) : 0;
  return m;
}

// Bits ss..se.
HWY_INLINE uint64_t BandBits(int ss, int se) {
  const uint64_t hi = se == 63 ? ~uint64_t(0) : (uint64_t(1) << (se + 1)) - 1;
  return hi & ~((uint64_t(1) << ss) - 1);
}

// A code of a spec entry: flags an entry outside lengths 1..16 in *bad.
HWY_INLINE void PutCode(he::StagingWriter& w, uint32_t e, uint32_t* bad) {
  uint32_t n = (e >> 16) & 0xFF;
  *bad |= n - 1;
  n &= 31;
  w.Put(he::CodeBits(e, n), n);
}

// A pending run r (1..32767) as the careful writer sends it.
HWY_INLINE void PutEobRun(he::StagingWriter& w, const EncodeHuffmanSpec* ac, uint32_t r,
                          uint32_t* bad) {
  const int n = EobCategory(r);
  PutCode(w, ac->entry[n * 16], bad);
  if (n) w.Put(r & ((1u << n) - 1), uint32_t(n));
}

// Copies the staged bytes out when even full stuffing fits; false leaves
// everything untouched.
HWY_INLINE bool CopyOut(uint8_t* dst, int len, int* pos, const uint8_t* stage,
                        const he::StagingWriter& w, EncodeHuffmanState* st) {
  const int staged = int(w.out - stage);
  if (2 * staged > len - *pos) return false;
  *pos += he::CopyStuffed(dst + *pos, stage, staged);
  st->acc = w.buf >> 40;  // the pending bits under bit 24
  st->count = int(w.nbits);
  return true;
}

// A block that writes no bits leaves the pending bits as the careful
// writer stores them.
HWY_INLINE void KeepPending(EncodeHuffmanState* st) {
  BitWriter w{nullptr, 0, 0, 0, 0};
  w.Load(st);
  w.Store(st);
}

HWY_INLINE he::StagingWriter StartWriter(uint8_t* stage, const EncodeHuffmanState* st) {
  const int count = st->count & 7;
  const uint32_t pending = (uint32_t(st->acc) >> (24 - count)) & ((1u << count) - 1);
  return he::StagingWriter{stage, count ? uint64_t(pending) << (64 - count) : 0, uint32_t(count)};
}

// AC first encoder block kernel.
inline RvtResult ACFirstBlock(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                              int se, int al, const EncodeHuffmanSpec* ac,
                              EncodeHuffmanState* st) {
  const uint32_t eob = st->eobRun;
  alignas(16) uint16_t mag[64];
  const uint64_t nz = Masks(block, al, false, mag).nz & BandBits(ss, se);
  if (nz == 0) {
    // No bits: the run grows, and leaves only at its cap.
    if (eob + 1 < kMaxEobRun) {
      KeepPending(st);
      st->eobRun = eob + 1;
      return rvtStatusOk;
    }
    return ACFirstBody(block, dst, len, pos, ss, se, al, ac, st);
  }
  if (eob > kMaxEobRun) return ACFirstBody(block, dst, len, pos, ss, se, al, ac, st);
  // Room for a block's worst case (about 1800 bits) and the 8-byte store
  // past it.
  alignas(16) uint8_t stage[272];
  he::StagingWriter w = StartWriter(stage, st);
  uint32_t bad = 0;
  if (eob != 0) PutEobRun(w, ac, eob, &bad);
  const uint32_t zrl = ac->entry[0xF0];
  uint64_t m = nz;
  int prev = ss - 1;
  while (m != 0) {
    const int k = int(__builtin_ctzll(m));
    m &= m - 1;
    int run = k - prev - 1;
    prev = k;
    for (; run > 15; run -= 16) PutCode(w, zrl, &bad);
    const int32_t v = block[kNaturalOfZigzag[k]];
    const uint32_t a = mag[kNaturalOfZigzag[k]];
    const uint32_t s = uint32_t(32 - __builtin_clz(a));
    bad |= (s > 11) << 16;
    const uint32_t e = ac->entry[(uint32_t(run) * 16 + s) & 0xFF];
    uint32_t n = (e >> 16) & 0xFF;
    bad |= n - 1;
    n &= 31;
    const uint32_t extra = (v < 0 ? ~a : a) & ((1u << (s & 15)) - 1);
    w.Put((he::CodeBits(e, n) << (s & 15)) | extra, n + (s & 15));
  }
  // Zeros after the last coefficient start a run of one block.
  const uint32_t next = prev < se ? 1 : 0;
  if ((bad & ~15u) != 0 || !CopyOut(dst, len, pos, stage, w, st)) {
    return ACFirstBody(block, dst, len, pos, ss, se, al, ac, st);
  }
  st->eobRun = next;
  return rvtStatusOk;
}

// AC refinement encoder block kernel.
inline RvtResult ACRefineBlock(const int16_t* block, uint8_t* dst, int len, int* pos, int ss,
                               int se, int al, const EncodeHuffmanSpec* ac,
                               EncodeHuffmanState* st) {
  const uint32_t eob = st->eobRun;
  const uint32_t npend = st->nCorr;
  alignas(16) uint16_t mag[64];
  const BandMasks bm = Masks(block, al, true, mag);
  const uint64_t band = BandBits(ss, se);
  const uint64_t nz = bm.nz & band, fresh = bm.one & band;
  if (npend > kMaxPendingCorr || eob >= kMaxEobRun || (eob == 0 && npend != 0)) {
    return ACRefineBody(block, dst, len, pos, ss, se, al, ac, st);
  }
  if (fresh == 0) {
    // No symbol: the block joins the run with its correction bits, unless
    // that forces the run out.
    const uint32_t nbits = uint32_t(__builtin_popcountll(nz));
    if (eob + 1 >= kMaxEobRun || npend + nbits > kMaxPendingCorr) {
      return ACRefineBody(block, dst, len, pos, ss, se, al, ac, st);
    }
    uint8_t* out = st->corr + npend;
    for (uint64_t m = nz; m != 0; m &= m - 1) {
      *out++ = uint8_t(mag[kNaturalOfZigzag[__builtin_ctzll(m)]] & 1);
    }
    KeepPending(st);
    st->nCorr = npend + nbits;
    st->eobRun = eob + 1;
    return rvtStatusOk;
  }
  // Pending bits (up to 937), symbols and this block's bits.
  alignas(16) uint8_t stage[512];
  he::StagingWriter w = StartWriter(stage, st);
  uint32_t bad = 0;
  uint32_t run_eob = eob;
  auto flush_run = [&]() {
    if (run_eob != 0) {
      PutEobRun(w, ac, run_eob, &bad);
      for (uint32_t i = 0; i < npend; ++i) w.Put(st->corr[i] & 1u, 1);
      run_eob = 0;
    }
  };
  const int last_new = 63 - __builtin_clzll(fresh);
  uint64_t mine = 0;  // this block's pending correction bits, oldest lowest
  uint32_t nmine = 0;
  auto put_mine = [&]() {
    // At most 63 bits: two writes of up to 32.
    const uint32_t lo = nmine < 32 ? nmine : 32;
    // The oldest bit goes first: reverse into MSB-first order.
    uint64_t r = 0;
    for (uint32_t i = 0; i < nmine; ++i) r = (r << 1) | ((mine >> i) & 1);
    if (nmine > lo) w.Put(r >> lo, nmine - lo);
    w.Put(r & ((uint64_t(1) << lo) - 1), lo);
    mine = 0;
    nmine = 0;
  };
  const uint32_t zrl = ac->entry[0xF0];
  int prev = ss - 1;
  int run = 0;
  for (uint64_t m = nz; m != 0; m &= m - 1) {
    const int k = int(__builtin_ctzll(m));
    run += k - prev - 1;
    prev = k;
    while (run > 15 && k <= last_new) {
      flush_run();
      PutCode(w, zrl, &bad);
      run -= 16;
      put_mine();
    }
    const uint32_t a = mag[kNaturalOfZigzag[k]];
    if (a > 1) {
      mine |= uint64_t(a & 1) << nmine;
      ++nmine;
      continue;
    }
    flush_run();
    const uint32_t e = ac->entry[(uint32_t(run) * 16 + 1) & 0xFF];
    uint32_t n = (e >> 16) & 0xFF;
    bad |= n - 1;
    n &= 31;
    w.Put((he::CodeBits(e, n) << 1) | (block[kNaturalOfZigzag[k]] < 0 ? 0u : 1u), n + 1);
    put_mine();
    run = 0;
  }
  run += se - prev;
  // The block ends in a run when zeros or bits remain; its bits then pend.
  const bool joins = run > 0 || nmine > 0;
  if ((bad & ~15u) != 0 || !CopyOut(dst, len, pos, stage, w, st)) {
    return ACRefineBody(block, dst, len, pos, ss, se, al, ac, st);
  }
  if (joins) {
    for (uint32_t i = 0; i < nmine; ++i) st->corr[i] = uint8_t((mine >> i) & 1);
  }
  st->eobRun = joins ? 1 : 0;
  st->nCorr = joins ? nmine : 0;
  return rvtStatusOk;
}

// AC refinement decoder: a block inside a run takes one correction bit per
// significant coefficient of the band, found a vector at a time; other
// blocks go to the careful walk.
inline RvtResult ACRefineDecodeBlock(BitReader& r, int16_t* block, int ss, int se, int al,
                                     const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  if (st->eobRun == 0) return ACRefineDecodeWalk(r, block, ss, se, al, ac, st);
  uint64_t nz = he::NonZeroMask(block) & BandBits(ss, se);
  const int n = __builtin_popcountll(nz);
  if (n == 0) {
    st->eobRun -= 1;
    return rvtStatusOk;
  }
  // All the bits first (the careful walk reads them one at a time, filling
  // the same way), then the refinements.
  int16_t out[64];
  std::memcpy(out, block, sizeof out);
  const int32_t p1 = 1 << al;
  for (; nz != 0; nz &= nz - 1) {
    const int nat = kNaturalOfZigzag[__builtin_ctzll(nz)];
    if (r.count < 1) RVT_CHECK(r.Fill(1));
    if (r.Take(1) && (out[nat] & p1) == 0) {
      out[nat] = int16_t(out[nat] >= 0 ? out[nat] + p1 : out[nat] - p1);
    }
  }
  std::memcpy(block, out, sizeof out);
  st->eobRun -= 1;
  return rvtStatusOk;
}

// AC first decoder: the baseline decoder's fast reader (eight bytes at a
// time, the careful reader's count kept beside it) over one band.  Blocks
// inside a run, near the end of the source, after a marker, with 0xFF bytes
// or with codes the fast walk does not take go to the careful walk from the
// untouched state.
inline RvtResult ACFirstDecodeFast(const uint8_t* src, int len, int* pos, int16_t* block,
                                   int* marker, int ss, int se, int al,
                                   const DecodeHuffmanSpec* ac, DecodeHuffmanState* st) {
  if (st->eobRun == 0 && *marker == 0 && len - *pos >= hd::kFastMargin) {
    BitReader careful{src, len, *pos, 0, 0, marker};
    careful.Load(st);
    hd::FastBits f{src, careful.count ? uint64_t(careful.acc) << (64 - careful.count) : 0,
                   careful.count, *pos, careful.count * 128};
    int16_t out[64];
    uint8_t at[64];
    int n = 0;
    uint32_t eob = 0;
    bool ok = true;
    for (int k = ss; k <= se; ++k) {
      if (f.nb < 48 && !f.Refill()) {
        ok = false;
        break;
      }
      int32_t v = 0;
      const int sym = hd::FastCoefficient(f, ac, &v);
      if (sym < 0) {
        ok = false;
        break;
      }
      const int run = sym >> 4;
      if ((sym & 15) != 0) {
        k += run;
        const int nat = huff::kZigzagDecode.v[k];
        if (nat > 63) {
          ok = false;
          break;
        }
        at[n] = uint8_t(nat);
        out[n++] = int16_t(uint32_t(v) << al);
      } else if (run == 15) {
        k += 15;
      } else {
        eob = 1u << run;
        if (run != 0) {
          if (f.nb < 48 && !f.Refill()) {
            ok = false;
            break;
          }
          f.vc >>= 7;
          f.CarefulNeed(run);
          f.vc -= run;
          f.vc <<= 7;
          eob += f.Peek(run);
          f.buf <<= run;
          f.nb -= run;
        }
        eob -= 1;
        break;
      }
    }
    if (ok) {
      for (int i = 0; i < n; ++i) block[at[i]] = out[i];
      const int vc = f.vc >> 7;
      *pos = f.rpos - ((f.nb - vc) >> 3);
      st->acc = vc ? f.buf >> (64 - vc) : 0;
      st->count = vc;
      st->eobRun = eob;
      return rvtStatusOk;
    }
  }
  return ReadBlock(src, len, pos, marker, st, [&](BitReader& r) {
    return ACFirstDecodeWalk(r, block, ss, se, al, ac, st);
  });
}

}  // namespace rvt::huffman_progressive::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // RVT_JPEG_HUFFMAN_PROGRESSIVE_INL_H_
