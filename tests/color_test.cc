// Colour conversion: the registered differential check of every member
// (generated from the member table), reads fenced at the plane edges,
// argument checks in order with nothing written, and the reference itself
// against values worked out by hand from each arithmetic.
#include "jpeg/color.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "checkasm.h"

namespace rvt {
namespace {

using test::GuardedPlane;

// ------------------------------------------------------------ buffers

// Byte width and row count of each plane of a layout for a w x h region.
struct Dim {
  int bytes, rows;
};
template <int kBpp, int kR, int kB>
std::vector<Dim> Dims(color::Packed8<kBpp, kR, kB>, int w, int h) {
  return {{kBpp * w, h}};
}
template <bool kBgr, int kG>
std::vector<Dim> Dims(color::Packed16<kBgr, kG>, int w, int h) {
  return {{2 * w, h}};
}
template <int kN, int kCh, int kCv>
std::vector<Dim> Dims(color::Planes<kN, kCh, kCv>, int w, int h) {
  std::vector<Dim> d;
  for (int i = 0; i < kN; ++i) {
    const bool chroma = i == 1 || i == 2;
    d.push_back({chroma ? (w + kCh - 1) / kCh : w, chroma ? (h + kCv - 1) / kCv : h});
  }
  return d;
}
inline std::vector<Dim> Dims(color::Luma, int w, int h) { return {{w, h}}; }
template <bool kPacked>
std::vector<Dim> Dims(color::Cmyk<kPacked>, int w, int h) {
  if (kPacked) return {{4 * w, h}};
  return {{w, h}, {w, h}, {w, h}, {w, h}};
}
inline std::vector<Dim> Dims(color::YccC2, int w, int h) { return {{4 * ((w + 1) / 2), h}}; }

template <class L>
constexpr bool kWords = false;
template <bool kBgr, int kG>
constexpr bool kWords<color::Packed16<kBgr, kG>> = true;

// The planes of one argument; they share one step: the widest plane plus
// `pad` elements, or (aligned) the widest plane rounded up to 64 bytes.
struct Side {
  std::vector<GuardedPlane<uint8_t>> planes;
  int32_t step = 0;
  Side() = default;
  Side(const std::vector<Dim>& dims, int pad, int misalign, bool aligned = false) {
    int widest = 1;
    for (const Dim& d : dims) widest = std::max(widest, d.bytes);
    step = aligned ? (widest + 63) / 64 * 64 : widest + pad;
    for (const Dim& d : dims) planes.emplace_back(d.bytes, d.rows, step, misalign);
  }
  void Fill(test::Rng& rng) {
    for (auto& p : planes) p.FillRandom(rng, uint8_t(0), uint8_t(255));
  }
};
// A side of layout L; 16-bit words keep their elements 2-byte aligned.
template <class L>
Side SideOf(int w, int h, int pad, int misalign, bool aligned = false) {
  const int k = kWords<L> ? 2 : 1;
  return Side(Dims(L{}, w, h), k * pad, aligned ? 0 : k * misalign, aligned);
}

// The plane pointers of one argument and their step.
struct Ptrs {
  std::array<uint8_t*, 4> p{};
  int32_t step = 0;
};
inline Ptrs PtrsOf(Side& s) {
  Ptrs r;
  for (size_t i = 0; i < s.planes.size(); ++i) r.p[i] = s.planes[i].data();
  r.step = s.step;
  return r;
}
inline Ptrs PtrsOf(std::vector<test::Buf>& bufs) {
  Ptrs r;
  for (size_t i = 0; i < bufs.size(); ++i) r.p[i] = bufs[i].plane.data();
  r.step = bufs[0].step();
  return r;
}

// How a call is made: which pointers are null (0 = none, 1 = the argument,
// 2 + i = plane i of an array) and which steps are passed.
struct Call {
  int null_src = 0, null_dst = 0;
  bool src_step_set = false, dst_step_set = false;
  int32_t src_step = 0, dst_step = 0;
  uint8_t aval = 0;
};

template <class P>
P ArgOf(const Ptrs& s, int null_mode, std::array<uint8_t*, 4>& held) {
  if constexpr (std::is_pointer_v<std::remove_pointer_t<P>>) {
    if (null_mode == 1) return nullptr;
    for (int i = 0; i < 4; ++i) held[i] = i + 2 == null_mode ? nullptr : s.p[i];
    return reinterpret_cast<P>(held.data());
  } else {
    return null_mode ? nullptr : reinterpret_cast<P>(s.p[0]);
  }
}

// Calls any member's entry (with or without aval) on plane pointers.
template <class S, class D, class... Aval>
RvtResult Invoke(RvtResult (*fn)(S, int32_t, D, int32_t, ImageSize, Aval...), const Ptrs& s,
                 const Ptrs& d, ImageSize roi, const Call& c) {
  std::array<uint8_t*, 4> hs, hd;
  return fn(ArgOf<S>(s, c.null_src, hs), c.src_step_set ? c.src_step : s.step,
            ArgOf<D>(d, c.null_dst, hd), c.dst_step_set ? c.dst_step : d.step, roi,
            Aval(c.aval)...);
}

// ------------------------------------------------------------ the checks

// The region shapes of every member: widths 1..40 (every vector remainder
// of every target) at one to three rows, odd steps and misaligned starts,
// the wide-row sizes of the kernels (one 4096-column pass of the 411 rows
// and past it), the threading limit for the threaded members, a ragged
// wide region, a full-HD frame with 64-byte aligned rows as codecs
// allocate them (which the benchmark times) and a ragged one as large, the
// two written with streaming stores.
struct Shape {
  int w, h, pad, misalign;
  bool aligned = false;
};
std::vector<Shape> Shapes(bool threaded) {
  std::vector<Shape> s;
  for (int w = 1; w <= 40; ++w) s.push_back({w, 1 + w % 3, w % 4 == 0 ? 0 : w % 7, w % 5});
  for (int w : {63, 64, 65, 127, 129, 255, 333}) s.push_back({w, 3, 5, 3});
  s.push_back({97, 101, 31, 7});
  s.push_back({4096, 2, 0, 1});
  s.push_back({4133, 4, 3, 2});
  if (threaded) {
    s.push_back({8192, 1, 0, 1});  // serial limit
    s.push_back({8193, 1, 3, 2});  // first forked size
    s.push_back({128, 64, 0, 0});  // 8192 pixels in rows
    s.push_back({2731, 3, 9, 1});  // 8193 pixels
  }
  s.push_back({3833, 9, 0, 0, true});
  s.push_back({1920, 1080, 0, 0, true});
  s.push_back({1931, 1087, 7, 3});  // streamed, from a different column on each row
  return s;
}

// Source planes of random bytes, destination planes and a random aval.
template <class M>
std::vector<test::Case> MemberCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (const Shape& sh : Shapes(M::kThreaded)) {
    test::Case k;
    k.label = std::to_string(sh.w) + "x" + std::to_string(sh.h);
    k.roi = {sh.w, sh.h};
    Side src = SideOf<typename M::Src>(sh.w, sh.h, sh.pad, sh.misalign, sh.aligned);
    Side dst =
        SideOf<typename M::Dst>(sh.w, sh.h, 2 * sh.pad + 1, (sh.misalign + 1) % 4, sh.aligned);
    src.Fill(rng);
    for (auto& p : src.planes) k.in.push_back(test::Buf{std::move(p), 1});
    for (auto& p : dst.planes) k.out.push_back(test::Buf{std::move(p), 1});
    k.arg[0] = rng.Uniform(0, 255);
    out.push_back(std::move(k));
  }
  return out;
}

template <class M>
auto MemberCheck() {
  return test::Cases{MemberCases<M>,
                     [](auto fn, test::Case& k) {
                       Call c;
                       c.aval = uint8_t(k.arg[0]);
                       return Invoke(fn, PtrsOf(k.in), PtrsOf(k.out), k.roi, c);
                     },
                     M::kThreaded ? std::vector<int>{1, 2} : std::vector<int>{1}};
}

// One check per member, each under its export's name.
#define RVT_COLOR_CHECK(name, ...) RVT_CHECKASM(name, MemberCheck<color::name>());
RVT_COLOR_MEMBERS(RVT_COLOR_CHECK)
#undef RVT_COLOR_CHECK

// ------------------------------------------------------------ members by name

using Runner = std::function<RvtResult(const Ptrs&, const Ptrs&, ImageSize, const Call&)>;

// One member as the hand-written tests see it.
struct Subject {
  std::string name;
  std::function<Side(int w, int h, int pad, int misalign)> make_src, make_dst;
  std::vector<std::pair<const char*, Runner>> targets;  // SIMD targets and the reference
  Runner ref;
  RvtResult Ref(Side& s, Side& d, ImageSize roi, const Call& c = {}) const {
    return ref(PtrsOf(s), PtrsOf(d), roi, c);
  }
};

template <class M, class Fn>
Subject MakeSubject(const Impl<Fn>& impl, const char* name) {
  Subject s;
  s.name = name;
  s.make_src = [](int w, int h, int pad, int mis) {
    return SideOf<typename M::Src>(w, h, pad, mis);
  };
  s.make_dst = [](int w, int h, int pad, int mis) {
    return SideOf<typename M::Dst>(w, h, pad, mis);
  };
  auto runner = [](Fn fn) -> Runner {
    return [fn](const Ptrs& a, const Ptrs& b, ImageSize roi, const Call& c) {
      return Invoke(fn, a, b, roi, c);
    };
  };
  for (const auto& t : test::AllTargets(impl)) s.targets.push_back({t.name, runner(t.fn)});
  s.ref = runner(test::Reference(impl));
  return s;
}

std::vector<Subject> AllSubjects() {
  std::vector<Subject> v;
#define RVT_SUBJECT(name, ...) v.push_back(MakeSubject<color::name>(impl_##name, #name));
  RVT_COLOR_MEMBERS(RVT_SUBJECT)
#undef RVT_SUBJECT
  return v;
}
const std::vector<Subject>& Subjects() {
  static const std::vector<Subject> v = AllSubjects();
  return v;
}
const Subject& SubjectNamed(const std::string& name) {
  for (const Subject& s : Subjects()) {
    if (s.name == name) return s;
  }
  ADD_FAILURE() << "no member " << name;
  return Subjects()[0];
}

// ------------------------------------------------------------ reads

// Every source plane sits against a no-access page, its first byte right
// after one and then its last byte right before one, so any read outside
// the region faults.
TEST(Color, ReadsStayInsideTheRegion) {
  test::Rng rng(33);
  for (const Subject& m : Subjects()) {
    for (const int w : {2, 3, 7, 9, 15, 17, 31, 33, 47, 64, 65, 100}) {
      for (const bool high : {false, true}) {
        const int h = 3;
        Side shape = m.make_src(w, h, 0, 0);
        std::vector<std::unique_ptr<test::PageFence>> mem;
        Ptrs src;
        src.step = shape.step;
        for (size_t i = 0; i < shape.planes.size(); ++i) {
          const auto& p = shape.planes[i];
          const size_t bytes = size_t(shape.step) * (p.height() - 1) + p.width();
          mem.push_back(std::make_unique<test::PageFence>(bytes));
          ASSERT_TRUE(mem.back()->ok());
          uint8_t* first = high ? mem.back()->BeforeHigh(bytes) : mem.back()->AfterLow();
          for (size_t k = 0; k < bytes; ++k) first[k] = uint8_t(rng.Uniform(0, 255));
          src.p[i] = first;
        }
        for (const auto& t : m.targets) {
          Side dst = m.make_dst(w, h, 0, 0);
          t.second(src, PtrsOf(dst), {w, h}, Call{});
        }
      }
    }
  }
}

// ------------------------------------------------------------ worked values

// The table of members as the tests read it, written out independently of
// the library's own table: arithmetic, source and destination layouts.
enum Arith {
  kFwd15Groups8,
  kFwd15,  // the 8-pixel groups of kFwd15Groups8
  kFwd14,
  kFwdDiffChroma,
  kLuma15,
  kLumaFloat,
  kFwdHighHalf,
  kInvAdditiveSat,
  kInvSubtractive,
  kInvHighHalf16,
  kInv422Packed
};
enum Fmt {
  kRgb3,
  kBgr3,
  kRgb4,
  kBgr4,
  kRgbP3,
  kRgb555,
  kRgb565,
  kBgr555,
  kBgr565,
  kCmyk4,
  kCmykP4,
  kYcc,
  kYcck,
  kY,
  kYcc411,
  kYcc422,
  kYccC2
};
struct Listed {
  const char* name;
  Arith arith;
  Fmt src, dst;
};
const Listed kListing[] = {
    {"rvtiRGBToYCbCr_JPEG_8u_C3P3R", kFwd15Groups8, kRgb3, kYcc},
    {"rvtiBGRToYCbCr_JPEG_8u_C3P3R", kFwd15Groups8, kBgr3, kYcc},
    {"rvtiRGBToYCbCr_JPEG_8u_C4P3R", kFwdHighHalf, kRgb4, kYcc},
    {"rvtiBGRToYCbCr_JPEG_8u_C4P3R", kFwdHighHalf, kBgr4, kYcc},
    {"rvtiRGBToYCbCr_JPEG_8u_P3R", kFwdDiffChroma, kRgbP3, kYcc},
    {"rvtiRGB555ToYCbCr_JPEG_16u8u_C3P3R", kFwd14, kRgb555, kYcc},
    {"rvtiRGB565ToYCbCr_JPEG_16u8u_C3P3R", kFwd14, kRgb565, kYcc},
    {"rvtiBGR555ToYCbCr_JPEG_16u8u_C3P3R", kFwd14, kBgr555, kYcc},
    {"rvtiBGR565ToYCbCr_JPEG_16u8u_C3P3R", kFwd14, kBgr565, kYcc},
    {"rvtiRGBToY_JPEG_8u_C3C1R", kLuma15, kRgb3, kY},
    {"rvtiBGRToY_JPEG_8u_C3C1R", kLuma15, kBgr3, kY},
    {"rvtiRGBToY_JPEG_8u_P3C1R", kLumaFloat, kRgbP3, kY},
    {"rvtiCMYKToYCCK_JPEG_8u_C4P4R", kFwd14, kCmyk4, kYcck},
    {"rvtiCMYKToYCCK_JPEG_8u_P4R", kFwdDiffChroma, kCmykP4, kYcck},
    {"rvtiRGBToYCbCr411_JPEG_8u_C3P3R", kFwdHighHalf, kRgb3, kYcc411},
    {"rvtiRGBToYCbCr411_JPEG_8u_C4P3R", kFwdHighHalf, kRgb4, kYcc411},
    {"rvtiBGRToYCbCr411_JPEG_8u_C3P3R", kFwdHighHalf, kBgr3, kYcc411},
    {"rvtiBGRToYCbCr411_JPEG_8u_C4P3R", kFwdHighHalf, kBgr4, kYcc411},
    {"rvtiRGBToYCbCr422_JPEG_8u_C3P3R", kFwdHighHalf, kRgb3, kYcc422},
    {"rvtiRGBToYCbCr422_JPEG_8u_C4P3R", kFwdHighHalf, kRgb4, kYcc422},
    {"rvtiBGRToYCbCr422_JPEG_8u_C3P3R", kFwdHighHalf, kBgr3, kYcc422},
    {"rvtiBGRToYCbCr422_JPEG_8u_C4P3R", kFwdHighHalf, kBgr4, kYcc422},
    {"rvtiYCbCrToRGB_JPEG_8u_P3C3R", kInvAdditiveSat, kYcc, kRgb3},
    {"rvtiYCbCrToBGR_JPEG_8u_P3C3R", kInvAdditiveSat, kYcc, kBgr3},
    {"rvtiYCbCrToRGB_JPEG_8u_P3C4R", kInvHighHalf16, kYcc, kRgb4},
    {"rvtiYCbCrToBGR_JPEG_8u_P3C4R", kInvHighHalf16, kYcc, kBgr4},
    {"rvtiYCbCrToRGB_JPEG_8u_P3R", kInvSubtractive, kYcc, kRgbP3},
    {"rvtiYCbCrToRGB555_JPEG_8u16u_P3C3R", kInvSubtractive, kYcc, kRgb555},
    {"rvtiYCbCrToRGB565_JPEG_8u16u_P3C3R", kInvSubtractive, kYcc, kRgb565},
    {"rvtiYCbCrToBGR555_JPEG_8u16u_P3C3R", kInvSubtractive, kYcc, kBgr555},
    {"rvtiYCbCrToBGR565_JPEG_8u16u_P3C3R", kInvSubtractive, kYcc, kBgr565},
    {"rvtiYCCKToCMYK_JPEG_8u_P4C4R", kInvSubtractive, kYcck, kCmyk4},
    {"rvtiYCCKToCMYK_JPEG_8u_P4R", kInvSubtractive, kYcck, kCmykP4},
    {"rvtiYCbCr411ToRGB_JPEG_8u_P3C3R", kInvHighHalf16, kYcc411, kRgb3},
    {"rvtiYCbCr411ToRGB_JPEG_8u_P3C4R", kInvHighHalf16, kYcc411, kRgb4},
    {"rvtiYCbCr411ToBGR_JPEG_8u_P3C3R", kInvHighHalf16, kYcc411, kBgr3},
    {"rvtiYCbCr411ToBGR_JPEG_8u_P3C4R", kInvHighHalf16, kYcc411, kBgr4},
    {"rvtiYCbCr422ToRGB_JPEG_8u_P3C3R", kInvHighHalf16, kYcc422, kRgb3},
    {"rvtiYCbCr422ToRGB_JPEG_8u_P3C4R", kInvHighHalf16, kYcc422, kRgb4},
    {"rvtiYCbCr422ToBGR_JPEG_8u_P3C3R", kInvHighHalf16, kYcc422, kBgr3},
    {"rvtiYCbCr422ToBGR_JPEG_8u_P3C4R", kInvHighHalf16, kYcc422, kBgr4},
    {"rvtiYCbCr422ToRGB_JPEG_8u_C2C3R", kInv422Packed, kYccC2, kRgb3},
};

bool IsWords(Fmt f) { return f >= kRgb555 && f <= kBgr565; }
bool IsForward(const Listed& s) {
  return s.dst == kYcc || s.dst == kYcck || s.dst == kY || s.dst == kYcc411 || s.dst == kYcc422;
}
bool IsSubsampled(const Listed& s) {
  return s.src == kYcc411 || s.src == kYcc422 || s.src == kYccC2 || s.dst == kYcc411 ||
         s.dst == kYcc422;
}

using V4 = std::array<int, 4>;  // R G B A, C M Y K or Y Cb Cr K

// Writes or reads pixel (x, y) of a per-pixel layout in its own terms;
// 16-bit words hold v >> 3 (v >> 2 for a 6-bit green) and read back f << 3.
void Put(Fmt f, Side& s, int x, int y, V4 v) {
  auto at = [&](int plane, int byte) { return s.planes[plane].row(y) + byte; };
  switch (f) {
    case kRgb3:
    case kBgr3:
    case kRgb4:
    case kBgr4:
    case kCmyk4: {
      const int bpp = (f == kRgb3 || f == kBgr3) ? 3 : 4;
      const bool bgr = f == kBgr3 || f == kBgr4;
      uint8_t* p = at(0, bpp * x);
      p[0] = uint8_t(bgr ? v[2] : v[0]);
      p[1] = uint8_t(v[1]);
      p[2] = uint8_t(bgr ? v[0] : v[2]);
      if (bpp == 4) p[3] = uint8_t(v[3]);
      return;
    }
    case kRgb555:
    case kRgb565:
    case kBgr555:
    case kBgr565: {
      const bool bgr = f == kBgr555 || f == kBgr565;
      const int gb = (f == kRgb565 || f == kBgr565) ? 6 : 5;
      const int lo = (bgr ? v[2] : v[0]) >> 3, hi = (bgr ? v[0] : v[2]) >> 3;
      const uint16_t w = uint16_t(lo | (v[1] >> (8 - gb)) << 5 | hi << (5 + gb));
      std::memcpy(at(0, 2 * x), &w, 2);
      return;
    }
    default:
      for (size_t i = 0; i < s.planes.size(); ++i) *at(int(i), x) = uint8_t(v[i]);
  }
}
V4 Get(Fmt f, const Side& s, int x, int y) {
  auto at = [&](int plane, int byte) { return s.planes[plane].row(y)[byte]; };
  switch (f) {
    case kRgb3:
    case kBgr3:
    case kRgb4:
    case kBgr4:
    case kCmyk4: {
      const int bpp = (f == kRgb3 || f == kBgr3) ? 3 : 4;
      const bool bgr = f == kBgr3 || f == kBgr4;
      const int b0 = at(0, bpp * x), b1 = at(0, bpp * x + 1), b2 = at(0, bpp * x + 2);
      return {bgr ? b2 : b0, b1, bgr ? b0 : b2, bpp == 4 ? at(0, bpp * x + 3) : 0};
    }
    case kRgb555:
    case kRgb565:
    case kBgr555:
    case kBgr565: {
      const bool bgr = f == kBgr555 || f == kBgr565;
      const int gb = (f == kRgb565 || f == kBgr565) ? 6 : 5;
      const int w = at(0, 2 * x) | at(0, 2 * x + 1) << 8;
      if (gb == 5) EXPECT_EQ(w >> 15, 0) << "bit 15 of a 555 word";
      const int lo = (w & 31) << 3, g = ((w >> 5) & ((1 << gb) - 1)) << (8 - gb),
                hi = ((w >> (5 + gb)) & 31) << 3;
      return {bgr ? hi : lo, g, bgr ? lo : hi, 0};
    }
    default: {
      V4 v{};
      for (size_t i = 0; i < s.planes.size(); ++i) v[i] = at(int(i), x);
      return v;
    }
  }
}
// What a layout keeps of an 8-bit value: 16-bit words drop the low bits.
V4 Kept(Fmt f, V4 v) {
  if (!IsWords(f)) return v;
  const int gmask = (f == kRgb565 || f == kBgr565) ? ~3 : ~7;
  return {v[0] & ~7, v[1] & gmask, v[2] & ~7, 0};
}

// Worked by hand from the formulas.  Forward: P through Fwd15, Fwd14,
// FwdDiffChroma, FwdHighHalf, Luma15, LumaFloat; P with the low bits of
// 555 / 565 fields cleared through Fwd14.  Inverse: Q through
// InvAdditiveSat, InvSubtractive, InvHighHalf16.
using T3 = std::array<int, 3>;
const T3 kP[7] = {{6, 216, 137}, {169, 172, 74}, {116, 24, 115}, {8, 165, 11},
                  {21, 1, 181},  {12, 175, 75},  {18, 247, 1}};
const T3 kWantFwd15[7] = {{144, 124, 29}, {160, 80, 134}, {62, 158, 167}, {100, 77, 62},
                          {27, 215, 123}, {115, 106, 55}, {150, 44, 34}};
const T3 kWantFwd14[7] = {{144, 124, 29}, {160, 80, 134}, {62, 158, 167}, {100, 77, 62},
                          {28, 215, 123}, {115, 105, 55}, {150, 44, 33}};
const T3 kWantDiffChroma[7] = {{144, 124, 30}, {160, 79, 134}, {62, 158, 167}, {101, 77, 62},
                               {27, 215, 124}, {115, 105, 55}, {150, 44, 34}};
const T3 kWantHighHalf[7] = {{144, 124, 29}, {160, 80, 135}, {62, 158, 167}, {100, 78, 62},
                             {27, 215, 123}, {115, 106, 55}, {150, 44, 34}};
const int kWantLuma15[7] = {144, 160, 62, 100, 27, 115, 150};
const int kWantLumaFloat[7] = {144, 160, 62, 101, 28, 115, 150};
const T3 kWantFwd14From555[7] = {{142, 124, 27}, {157, 80, 136}, {60, 157, 165}, {97, 78, 64},
                                 {25, 213, 122}, {109, 107, 56}, {146, 46, 36}};
const T3 kWantFwd14From565[7] = {{142, 124, 27}, {159, 79, 134}, {60, 157, 165}, {100, 76, 63},
                                 {25, 213, 122}, {112, 106, 54}, {148, 44, 34}};
const T3 kQ[7] = {{42, 231, 179}, {135, 170, 82}, {42, 122, 175}, {191, 93, 161},
                  {1, 183, 77},   {0, 0, 255},    {255, 128, 128}};
const T3 kWantAdditiveSat[7] = {{113, 0, 225}, {71, 153, 209}, {108, 11, 31},  {237, 179, 129},
                                {0, 19, 98},   {178, 0, 0},    {255, 255, 255}};
const T3 kWantSubtractive[7] = {{113, 0, 224}, {71, 153, 209}, {108, 11, 31},  {237, 179, 129},
                                {0, 18, 98},   {178, 0, 0},    {255, 255, 255}};
const T3 kWantHighHalf16[7] = {{114, 0, 225}, {71, 154, 209}, {108, 11, 31},  {237, 180, 129},
                               {0, 19, 98},   {178, 0, 0},    {255, 255, 255}};

T3 Worked(Arith arith, int i, Fmt src) {
  switch (arith) {
    case kFwd15:
      return kWantFwd15[i];
    case kFwd14:
      return src == kRgb555 || src == kBgr555
                 ? kWantFwd14From555[i]
                 : (src == kRgb565 || src == kBgr565 ? kWantFwd14From565[i] : kWantFwd14[i]);
    case kFwdDiffChroma:
      return kWantDiffChroma[i];
    case kFwdHighHalf:
      return kWantHighHalf[i];
    case kLuma15:
      return {kWantLuma15[i], 0, 0};
    case kLumaFloat:
      return {kWantLumaFloat[i], 0, 0};
    case kInvAdditiveSat:
      return kWantAdditiveSat[i];
    case kInvSubtractive:
      return kWantSubtractive[i];
    default:
      return kWantHighHalf16[i];
  }
}

// Per-pixel members on the 7 worked pixels; Fwd15Groups8 members on a row of 15
// (the first 8 in one 15-bit group, the last 7 with 14-bit weights).
TEST(Color, PerPixelMembersGiveWorkedValues) {
  for (const Listed& sp : kListing) {
    if (IsSubsampled(sp)) continue;
    const Subject& m = SubjectNamed(sp.name);
    const bool groups = sp.arith == kFwd15Groups8;
    const int w = groups ? 15 : 7;
    auto pick = [&](int x) { return groups ? (x < 8 ? x % 7 : x - 8) : x; };
    Side src = m.make_src(w, 1, 3, 1), dst = m.make_dst(w, 1, 3, 1);
    for (int x = 0; x < w; ++x) {
      const int i = pick(x), k = 11 * i + 5;
      const T3 v = IsForward(sp) ? kP[i] : kQ[i];
      if (sp.src == kCmyk4 || sp.src == kCmykP4) {
        Put(sp.src, src, x, 0, {255 - v[0], 255 - v[1], 255 - v[2], k});
      } else {
        Put(sp.src, src, x, 0, {v[0], v[1], v[2], k});
      }
    }
    Call call;
    call.aval = 0x5C;
    ASSERT_EQ(m.Ref(src, dst, {w, 1}, call), rvtStatusOk) << sp.name;
    for (int x = 0; x < w; ++x) {
      const int i = pick(x), k = 11 * i + 5;
      const T3 e = Worked(groups ? (x < 8 ? kFwd15 : kFwd14) : sp.arith, i, sp.src);
      V4 want{e[0], e[1], e[2], 0};
      if (sp.dst == kY) want = {e[0], 0, 0, 0};
      if (sp.dst == kYcck) want[3] = k;
      if (sp.dst == kRgb4 || sp.dst == kBgr4) want[3] = call.aval;
      if (sp.dst == kCmyk4 || sp.dst == kCmykP4) want = {255 - e[0], 255 - e[1], 255 - e[2], k};
      EXPECT_EQ(Get(sp.dst, dst, x, 0), Kept(sp.dst, want)) << sp.name << " pixel " << x;
    }
  }
}

// 3x3 regions through the 411 and 422 members: luma per pixel, chroma from
// whole pairs / blocks and from the odd last column and row on their own.
TEST(Color, SubsampledMembersGiveWorkedValues) {
  const int img[3][3] = {{0, 1, 2}, {3, 4, 5}, {6, 0, 1}};  // indices into kP
  const int y411[3][3] = {{144, 160, 62}, {100, 27, 115}, {150, 144, 160}};
  const T3 c411[2][2] = {{{124, 87}, {132, 111}}, {{84, 32}, {80, 135}}};
  const T3 c422[3][2] = {{{102, 82}, {158, 167}}, {{146, 93}, {106, 55}}, {{84, 32}, {80, 135}}};
  const int yy[3][3] = {{10, 200, 90}, {30, 128, 255}, {0, 77, 160}};
  const int cb[3][2] = {{40, 200}, {128, 3}, {90, 91}},
            cr[3][2] = {{220, 60}, {128, 250}, {17, 18}};
  const T3 i411[3][3] = {{{139, 0, 0}, {255, 165, 44}, {0, 114, 218}},
                         {{159, 0, 0}, {255, 93, 0}, {160, 255, 255}},
                         {{0, 0, 0}, {77, 77, 77}, {255, 116, 0}}};
  const T3 i422[3][3] = {{{139, 0, 0}, {255, 165, 44}, {0, 114, 218}},
                         {{30, 30, 30}, {128, 128, 128}, {255, 211, 34}},
                         {{0, 92, 0}, {0, 169, 10}, {6, 251, 94}}};
  for (const Listed& sp : kListing) {
    if (!IsSubsampled(sp) || sp.src == kYccC2) continue;
    const Subject& m = SubjectNamed(sp.name);
    const bool b411 = sp.src == kYcc411 || sp.dst == kYcc411;
    Side src = m.make_src(3, 3, 2, 1), dst = m.make_dst(3, 3, 2, 3);
    Call call;
    call.aval = 0xA7;
    if (IsForward(sp)) {
      for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) {
          const T3 v = kP[img[y][x]];
          Put(sp.src, src, x, y, {v[0], v[1], v[2], 99});
        }
      ASSERT_EQ(m.Ref(src, dst, {3, 3}, call), rvtStatusOddSize) << sp.name;
      for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) EXPECT_EQ(dst.planes[0].get(x, y), y411[y][x]) << sp.name;
        if (b411 && y == 2) continue;
        for (int x = 0; x < 2; ++x) {
          const T3 c = b411 ? c411[y][x] : c422[y][x];
          EXPECT_EQ(dst.planes[1].get(x, y), c[0]) << sp.name << " Cb " << x << "," << y;
          EXPECT_EQ(dst.planes[2].get(x, y), c[1]) << sp.name << " Cr " << x << "," << y;
        }
      }
    } else {
      for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) src.planes[0].set(x, y, uint8_t(yy[y][x]));
        if (b411 && y == 2) continue;
        for (int x = 0; x < 2; ++x) {
          src.planes[1].set(x, y, uint8_t(cb[y][x]));
          src.planes[2].set(x, y, uint8_t(cr[y][x]));
        }
      }
      ASSERT_EQ(m.Ref(src, dst, {3, 3}, call), rvtStatusOddSize) << sp.name;
      for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) {
          const T3 e = b411 ? i411[y][x] : i422[y][x];
          const V4 want{e[0], e[1], e[2], sp.dst == kRgb4 || sp.dst == kBgr4 ? call.aval : 0};
          EXPECT_EQ(Get(sp.dst, dst, x, y), want) << sp.name << " " << x << "," << y;
        }
    }
  }
}

// Packed 4:2:2: an odd width takes the last pixel from its pair's Y0, Cb
// and Cr; Inv422Packed leaves a neutral green one low.
TEST(Color, PackedPairsGiveWorkedValues) {
  const Subject& m = SubjectNamed("rvtiYCbCr422ToRGB_JPEG_8u_C2C3R");
  Side src = m.make_src(3, 2, 0, 0), dst = m.make_dst(3, 2, 1, 1);
  const uint8_t row0[8] = {10, 40, 200, 220, 90, 200, 99, 60};
  const uint8_t row1[8] = {0, 128, 255, 128, 100, 128, 1, 128};
  std::memcpy(src.planes[0].row(0), row0, 8);
  std::memcpy(src.planes[0].row(1), row1, 8);
  ASSERT_EQ(m.Ref(src, dst, {3, 2}), rvtStatusOk);
  const V4 want[2][3] = {{{139, 0, 0, 0}, {255, 164, 44, 0}, {0, 113, 218, 0}},
                         {{0, 0, 0, 0}, {255, 254, 255, 0}, {100, 99, 100, 0}}};
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(Get(kRgb3, dst, x, y), want[y][x]) << x << "," << y;
}

// Uniform white and black (forward) and neutral grey (inverse) regions stay
// neutral through every member, whatever the layout; the 16-bit words see
// white as 248.
TEST(Color, NeutralsStayNeutral) {
  for (const Listed& sp : kListing) {
    const Subject& m = SubjectNamed(sp.name);
    for (const int level : {0, 77, 255}) {
      Side src = m.make_src(5, 4, 1, 0), dst = m.make_dst(5, 4, 1, 0);
      for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
          if (sp.src == kYccC2) {
            const uint8_t pair[4] = {uint8_t(level), 128, uint8_t(level), 128};
            std::memcpy(src.planes[0].row(y) + 4 * (x / 2), pair, 4);
          } else if (sp.src == kYcc411 || sp.src == kYcc422) {
            src.planes[0].set(x, y, uint8_t(level));
            if (sp.src == kYcc422 || y % 2 == 0) {
              src.planes[1].set(x / 2, y / (sp.src == kYcc411 ? 2 : 1), 128);
              src.planes[2].set(x / 2, y / (sp.src == kYcc411 ? 2 : 1), 128);
            }
          } else if (IsForward(sp)) {
            const int lv = IsWords(sp.src) ? level & ~7 : level;
            const int c = sp.src == kCmyk4 || sp.src == kCmykP4 ? 255 - lv : lv;
            Put(sp.src, src, x, y, {c, c, c, 9});
          } else {
            Put(sp.src, src, x, y, {level, 128, 128, 9});
          }
        }
      const RvtResult st = m.Ref(src, dst, {5, 4});
      ASSERT_GE(st, 0) << sp.name;
      const int lv = IsWords(sp.src) ? level & ~7 : level;
      for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
          if (IsForward(sp)) {
            EXPECT_EQ(dst.planes[0].get(x, y), lv) << sp.name << " level " << level;
            if (sp.dst == kY) continue;
            const int cy = sp.dst == kYcc411 ? y / 2 : y, cx = IsSubsampled(sp) ? x / 2 : x;
            EXPECT_EQ(dst.planes[1].get(cx, cy), 128) << sp.name << " level " << level;
            EXPECT_EQ(dst.planes[2].get(cx, cy), 128) << sp.name << " level " << level;
          } else {
            const int g = sp.arith == kInv422Packed ? std::max(level - 1, 0) : level;
            V4 want = Kept(sp.dst, {level, g, level, 0});
            if (sp.dst == kCmyk4 || sp.dst == kCmykP4)
              want = {255 - level, 255 - level, 255 - level, 9};
            V4 got = Get(sp.dst, dst, x, y);
            if (sp.dst == kRgb4 || sp.dst == kBgr4) got[3] = 0;
            EXPECT_EQ(got, want) << sp.name << " level " << level;
          }
        }
    }
  }
}

// Random pixels through every per-pixel member land within one level of the
// exact conversion (Inv422Packed's green within 1.5: it sits half a level
// low).
TEST(Color, PerPixelMembersTrackTheExactConversion) {
  test::Rng rng(34);
  const int w = 61, h = 5;
  for (const Listed& sp : kListing) {
    if (IsSubsampled(sp) || IsWords(sp.src) || IsWords(sp.dst)) continue;
    const Subject& m = SubjectNamed(sp.name);
    Side src = m.make_src(w, h, 0, 0), dst = m.make_dst(w, h, 0, 0);
    src.Fill(rng);
    ASSERT_EQ(m.Ref(src, dst, {w, h}), rvtStatusOk);
    double worst = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        V4 in = Get(sp.src, src, x, y), out = Get(sp.dst, dst, x, y);
        if (sp.src == kCmyk4 || sp.src == kCmykP4) in = {255 - in[0], 255 - in[1], 255 - in[2], 0};
        if (sp.dst == kCmyk4 || sp.dst == kCmykP4)
          out = {255 - out[0], 255 - out[1], 255 - out[2], 0};
        double e[3];
        if (IsForward(sp)) {
          e[0] = 0.299 * in[0] + 0.587 * in[1] + 0.114 * in[2];
          e[1] = 128 - 0.168736 * in[0] - 0.331264 * in[1] + 0.5 * in[2];
          e[2] = 128 + 0.5 * in[0] - 0.418688 * in[1] - 0.081312 * in[2];
        } else {
          e[0] = in[0] + 1.402 * (in[2] - 128);
          e[1] = in[0] - 0.344136 * (in[1] - 128) - 0.714136 * (in[2] - 128);
          e[2] = in[0] + 1.772 * (in[1] - 128);
        }
        for (int c = 0; c < (sp.dst == kY ? 1 : 3); ++c) {
          const double err = std::abs(out[c] - std::clamp(e[c], 0.0, 255.0));
          worst = std::max(worst, err - (sp.arith == kInv422Packed && c == 1 ? 0.5 : 0.0));
        }
      }
    EXPECT_LT(worst, 1.0) << sp.name;
  }
}

// ------------------------------------------------------------ checks

enum CheckKind { kStd, kNoStep, k411, k422, kC2 };
CheckKind KindOf(const Listed& sp) {
  if (sp.src == kYccC2) return kC2;
  if (sp.src == kYcc411 || sp.dst == kYcc411) return k411;
  if (sp.src == kYcc422 || sp.dst == kYcc422) return k422;
  if ((sp.src == kRgb4 || sp.src == kBgr4) && sp.dst == kYcc) return kNoStep;
  if (sp.src == kYcc && (sp.dst == kRgb4 || sp.dst == kBgr4)) return kNoStep;
  return kStd;
}

TEST(Color, ChecksInArgumentOrderWriteNothing) {
  for (const Listed& sp : kListing) {
    const Subject& m = SubjectNamed(sp.name);
    const CheckKind kind = KindOf(sp);
    const bool steps = kind == kStd;
    Side src = m.make_src(4, 4, 2, 1), dst = m.make_dst(4, 4, 2, 1);
    const Side before = dst;
    const int sp_planes = int(src.planes.size()), dp_planes = int(dst.planes.size());
    struct Case {
      Call call;
      ImageSize roi;
      RvtResult want;
    };
    std::vector<Case> cases;
    auto add = [&](auto edit, ImageSize roi, RvtResult want) {
      Case c{{}, roi, want};
      edit(c.call);
      cases.push_back(c);
    };
    const ImageSize bad{0, 0}, good{4, 4};
    add(
        [](Call& c) {
          c.null_src = 1;
          c.src_step_set = true;
          c.null_dst = 1;
        },
        bad, rvtStatusNullPtr);
    if (sp_planes > 1) {
      for (int i = 0; i < sp_planes; ++i)
        add(
            [&](Call& c) {
              c.null_src = 2 + i;
              c.src_step_set = true;
            },
            bad, rvtStatusNullPtr);
    }
    add(
        [](Call& c) {
          c.src_step_set = true;
          c.null_dst = 1;
        },
        good, steps ? rvtStatusStep : rvtStatusNullPtr);
    add(
        [](Call& c) {
          c.src_step_set = true;
          c.src_step = -4;
        },
        bad, steps ? rvtStatusStep : rvtStatusSize);
    add(
        [](Call& c) {
          c.null_dst = 1;
          c.dst_step_set = true;
        },
        bad, rvtStatusNullPtr);
    if (dp_planes > 1) {
      for (int i = 0; i < dp_planes; ++i)
        add(
            [&](Call& c) {
              c.null_dst = 2 + i;
              c.dst_step_set = true;
            },
            bad, rvtStatusNullPtr);
    }
    if (steps) add([](Call& c) { c.dst_step_set = true; }, bad, rvtStatusStep);
    add([](Call&) {}, {0, 4}, rvtStatusSize);
    add([](Call&) {}, {-1, 4}, rvtStatusSize);
    add([](Call&) {}, {4, 0}, rvtStatusSize);
    if (kind != kC2) add([](Call&) {}, {4, -2}, rvtStatusSize);
    if (kind == k411 || kind == k422) add([](Call&) {}, {1, 4}, rvtStatusSize);
    if (kind == k411) add([](Call&) {}, {4, 1}, rvtStatusSize);
    if (kind == kC2) add([](Call&) {}, {4, -2}, rvtStatusOk);  // nothing to convert
    for (const Case& c : cases) {
      for (const auto& t : m.targets) {
        EXPECT_EQ(t.second(PtrsOf(src), PtrsOf(dst), c.roi, c.call), c.want)
            << sp.name << " " << t.first << " null " << c.call.null_src << "/" << c.call.null_dst
            << " roi " << c.roi.width << "x" << c.roi.height;
        for (int i = 0; i < dp_planes; ++i)
          ASSERT_TRUE(dst.planes[i].Unchanged(before.planes[i])) << sp.name;
      }
    }
    // Success statuses: +35 for the odd sizes of the 411 / 422 members.
    for (const ImageSize roi :
         {ImageSize{4, 4}, ImageSize{3, 4}, ImageSize{4, 3}, ImageSize{2, 1}}) {
      if (kind == k411 && roi.height < 2) continue;
      const bool odd =
          (kind == k411 && ((roi.width | roi.height) & 1)) || (kind == k422 && (roi.width & 1));
      for (const auto& t : m.targets) {
        EXPECT_EQ(t.second(PtrsOf(src), PtrsOf(dst), roi, Call{}),
                  odd ? rvtStatusOddSize : rvtStatusOk)
            << sp.name << " " << roi.width << "x" << roi.height;
      }
    }
    // Members without step checks accept any step, 0 included.
    if (!steps) {
      Call c;
      c.src_step_set = c.dst_step_set = true;
      for (const auto& t : m.targets)
        EXPECT_GE(t.second(PtrsOf(src), PtrsOf(dst), {2, 2}, c), 0) << sp.name;
    }
  }
}

}  // namespace
}  // namespace rvt
