// Lossless JPEG: predictions and category-16 coding worked by hand, check
// order with nothing written, round trips of every predictor through the
// row coders, and the registered differential checks of the six exports.
#include <array>
#include <cstring>

#include "checkasm.h"
#include "huffman_util.h"

namespace rvt {
namespace {

using Row = std::vector<int16_t>;

// Categories 0..16, lengths 2..15, in the order given.
test::HuffTable DiffTable(const std::array<uint8_t, 17>& order) {
  return {{0, 2, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}, {order.begin(), order.end()}};
}
test::HuffTable PlainDiffTable() {
  std::array<uint8_t, 17> o;
  for (int s = 0; s < 17; ++s) o[size_t(s)] = uint8_t(s);
  return DiffTable(o);
}
// Short codes for the small categories of a photo (and a 16-bit image).
test::HuffTable PhotoDiffTable() {
  return DiffTable({3, 4, 2, 5, 1, 6, 0, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
}

template <class Impl, class... A>
void ForEachTarget(const Impl& impl, A... args) {
  for (const auto& t : test::AllTargets(impl)) {
    SCOPED_TRACE(t.name);
    (void)t.fn(args...);
  }
}

TEST(Lossless, PredictionsWorkedByHand) {
  // First samples of a first row: x - 2^(P - Pt - 1).
  struct First { int p, pt; int16_t x, d; };
  for (const First& f : {First{8, 0, 200, 72}, First{16, 0, 0x1234, int16_t(0x1234 - 0x8000)},
                         First{12, 3, 300, 300 - 256}, First{8, 8, 5, 5} /* 2^31 -> 0 */,
                         First{2, 0, 1, -1}}) {
    for (const auto& t : test::AllTargets(impl_rvtiDiffPredFirstRow_JPEG_16s_C1)) {
      int16_t d = 0;
      ASSERT_EQ(t.fn(&f.x, &d, 1, f.p, f.pt), rvtStatusOk);
      EXPECT_EQ(d, f.d) << t.name << " P " << f.p << " Pt " << f.pt;
    }
    for (const auto& t : test::AllTargets(impl_rvtiReconstructPredFirstRow_JPEG_16s_C1)) {
      int16_t x = 0;
      ASSERT_EQ(t.fn(&f.d, &x, 1, f.p, f.pt), rvtStatusOk);
      EXPECT_EQ(x, f.x) << t.name;
    }
  }
  // Width 1: the sample above, whatever the predictor.
  for (int pred = 1; pred <= 7; ++pred) {
    const int16_t x = 1000, prev = -7;
    for (const auto& t : test::AllTargets(impl_rvtiDiffPredRow_JPEG_16s_C1)) {
      int16_t d = 0;
      ASSERT_EQ(t.fn(&x, &prev, &d, 1, pred), rvtStatusOk);
      EXPECT_EQ(d, 1007) << t.name;
    }
  }
  // Each predictor on Ra = 100, Rb = -32768, Rc = 32767 (and the row
  // reaching the vector body: the same column repeated 40 times).
  const int32_t ra = 100, rb = -32768, rc = 32767;
  const int32_t want[8] = {0, ra, rb, rc, ra + rb - rc, ra + 32768 /* (rb-rc)>>1 = -32768 */,
                           rb + ((ra - rc) >> 1), (ra + rb) >> 1};
  EXPECT_EQ(int16_t(want[5]), int16_t(ra - 32768));
  constexpr int kW = 41;
  for (int pred = 1; pred <= 7; ++pred) {
    Row x(kW), prev(kW), d(kW), back(kW);
    for (int i = 0; i < kW; ++i) {
      x[size_t(i)] = int16_t(i % 2 ? 1234 : ra);  // x[i-1] = Ra at odd i
      prev[size_t(i)] = int16_t(i % 2 ? rb : rc);  // Rb at odd i, Rc before it
    }
    for (const auto& t : test::AllTargets(impl_rvtiDiffPredRow_JPEG_16s_C1)) {
      ASSERT_EQ(t.fn(x.data(), prev.data(), d.data(), kW, pred), rvtStatusOk);
      for (int i = 1; i < kW; i += 2) {
        ASSERT_EQ(d[size_t(i)], int16_t(1234 - want[pred])) << t.name << " pred " << pred << " i " << i;
      }
    }
    for (const auto& t : test::AllTargets(impl_rvtiReconstructPredRow_JPEG_16s_C1)) {
      std::fill(back.begin(), back.end(), 0);
      ASSERT_EQ(t.fn(d.data(), prev.data(), back.data(), kW, pred), rvtStatusOk);
      EXPECT_EQ(back, x) << t.name << " pred " << pred;
    }
  }
  // Reconstruction truncates before the next column: 32767 + 1 wraps to
  // -32768, which then predicts the next sample (predictor 1).
  const Row d2 = {32767, 1, 0};
  const Row prev2 = {0, 0, 0};
  for (const auto& t : test::AllTargets(impl_rvtiReconstructPredRow_JPEG_16s_C1)) {
    Row out(3);
    ASSERT_EQ(t.fn(d2.data(), prev2.data(), out.data(), 3, 7), rvtStatusOk);
    // pred 7: x1 = 1 + ((32767 + 0) >> 1) = 16384; x2 = (16384 + 0) >> 1
    EXPECT_EQ(out, (Row{32767, 16384, 8192})) << t.name;
    ASSERT_EQ(t.fn(d2.data(), prev2.data(), out.data(), 3, 1), rvtStatusOk);
    EXPECT_EQ(out, (Row{32767, -32768, -32768})) << t.name;
  }
}

// Coding helpers on the dispatched exports.
struct Coder {
  test::EncSpec enc;
  test::DecSpec dec;
  explicit Coder(const test::HuffTable& t) : enc(t), dec(t) {}
};

// Codes rows with one state; a flush ends them unless `keep` is given.
std::vector<uint8_t> EncodeRows(const std::vector<const int16_t*>& rows, int n, int nc,
                                const Coder& c, RvtResult* status = nullptr,
                                EncodeHuffmanState* keep = nullptr) {
  std::vector<uint8_t> out(size_t(n) * size_t(nc) * 6 + 16);
  EncodeHuffmanState fresh = test::FreshEncodeState();
  EncodeHuffmanState* st = keep ? keep : &fresh;
  const EncodeHuffmanSpec* t[5] = {&c.enc.spec, &c.enc.spec, &c.enc.spec, &c.enc.spec, nullptr};
  int pos = 0;
  RvtResult r = rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows.data(), n, nc, out.data(),
                                                     int(out.size()), &pos, t, st, 0);
  if (status) *status = r;
  if (!keep) {
    EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, out.data(), int(out.size()),
                                                   &pos, nullptr, st, 1),
              rvtStatusOk);
  }
  out.resize(size_t(pos));
  return out;
}

TEST(Lossless, Category16HasNoExtraBits) {
  const Coder c(PlainDiffTable());  // category 16: 15 bits 111111111111110
  const Row v = {int16_t(-32768)};
  const std::vector<const int16_t*> rows = {v.data()};
  // The code 111111111111110 and a 1-bit pad: 0xFF (stuffed), 0xFD.
  const auto bytes = EncodeRows(rows, 1, 1, c);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{0xFF, 0x00, 0xFD}));
  for (const auto& t : test::AllTargets(impl_rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4)) {
    int16_t got = 0;
    int16_t* out[1] = {&got};
    const DecodeHuffmanSpec* tab[1] = {&c.dec.spec};
    DecodeHuffmanState st = test::FreshDecodeState();
    int pos = 0, marker = 0;
    ASSERT_EQ(t.fn(bytes.data(), int(bytes.size()), &pos, out, 1, 1, &marker, tab, &st),
              rvtStatusOk);
    EXPECT_EQ(uint16_t(got), 32768u) << t.name;
    EXPECT_EQ(st.count, 1) << t.name;  // only the pad bit is left
  }
  // A table without category 16: the difference cannot be coded.
  test::HuffTable small = PlainDiffTable();
  small.vals.pop_back();
  small.bits[14] = 0;
  const Coder c2(small);
  RvtResult r = rvtStatusOk;
  EncodeRows(rows, 1, 1, c2, &r);
  EXPECT_EQ(r, rvtStatusHuffTable);
}

TEST(Lossless, ChecksInOrderWriteNothing) {
  int16_t a[4] = {1, 2, 3, 4}, b[4] = {5, 6, 7, 8}, out[4] = {9, 9, 9, 9};
  const int16_t keep[4] = {9, 9, 9, 9};
  auto same = [&] { return std::memcmp(out, keep, sizeof out) == 0; };
  EXPECT_EQ(rvtiDiffPredFirstRow_JPEG_16s_C1(nullptr, out, 0, 1, -1), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDiffPredFirstRow_JPEG_16s_C1(a, out, 0, 1, -1), rvtStatusSize);
  EXPECT_EQ(rvtiDiffPredFirstRow_JPEG_16s_C1(a, out, 4, 1, 0), rvtStatusBadArg);
  EXPECT_EQ(rvtiDiffPredFirstRow_JPEG_16s_C1(a, out, 4, 17, 0), rvtStatusBadArg);
  EXPECT_EQ(rvtiReconstructPredFirstRow_JPEG_16s_C1(a, out, 4, 16, -1), rvtStatusBadArg);
  EXPECT_EQ(rvtiReconstructPredFirstRow_JPEG_16s_C1(a, nullptr, 4, 16, 0), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDiffPredRow_JPEG_16s_C1(a, nullptr, out, 0, 0), rvtStatusNullPtr);
  EXPECT_EQ(rvtiDiffPredRow_JPEG_16s_C1(a, b, out, 0, 0), rvtStatusSize);
  EXPECT_EQ(rvtiDiffPredRow_JPEG_16s_C1(a, b, out, 4, 0), rvtStatusBadArg);
  EXPECT_EQ(rvtiReconstructPredRow_JPEG_16s_C1(a, b, out, 4, 8), rvtStatusBadArg);
  EXPECT_EQ(rvtiReconstructPredRow_JPEG_16s_C1(a, b, nullptr, 4, 1), rvtStatusNullPtr);
  EXPECT_TRUE(same());

  const Coder c(PlainDiffTable());
  uint8_t dst[16] = {};
  EncodeHuffmanState est = test::FreshEncodeState();
  est.count = 3;
  est.acc = 0xA00000;
  const EncodeHuffmanState est0 = est;
  int pos = 0;
  const int16_t* rows[5] = {a, b, a, b, nullptr};
  const int16_t* holes[2] = {a, nullptr};
  const EncodeHuffmanSpec* et[5] = {&c.enc.spec, &c.enc.spec, &c.enc.spec, &c.enc.spec, nullptr};
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 1, nullptr, 0, &pos, et, &est, 0),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 1, dst, 0, nullptr, et, &est, 0),
            rvtStatusSize);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 1, dst, 16, &pos, et, nullptr, 0),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, dst, 16, &pos, nullptr, &est, 0),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 0, 1, dst, 16, &pos, nullptr, &est, 0),
            rvtStatusSize);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 0, dst, 16, &pos, nullptr, &est, 0),
            rvtStatusSize);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 1, dst, 16, &pos, nullptr, &est, 0),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(holes, 4, 2, dst, 16, &pos, et, &est, 0),
            rvtStatusNullPtr);
  const EncodeHuffmanSpec* et_hole[2] = {&c.enc.spec, nullptr};
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 2, dst, 16, &pos, et_hole, &est, 0),
            rvtStatusNullPtr);
  EXPECT_EQ(pos, 0);
  EXPECT_TRUE(test::SameState(est, est0));
  for (uint8_t byte : dst) EXPECT_EQ(byte, 0);
  // Five components: the fifth (null row, null table) is not looked at.
  EXPECT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(rows, 4, 5, dst, 16, &pos, et, &est, 0),
            rvtStatusOk);
  EXPECT_GT(pos, 0);

  int16_t o1[4] = {9, 9, 9, 9};
  int16_t* outs[5] = {o1, o1, o1, o1, nullptr};
  const DecodeHuffmanSpec* dt[5] = {&c.dec.spec, &c.dec.spec, &c.dec.spec, &c.dec.spec, nullptr};
  DecodeHuffmanState dst_state = test::FreshDecodeState();
  int marker = 0;
  pos = 0;
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(nullptr, 0, &pos, outs, 4, 1, &marker, dt,
                                                 &dst_state),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(dst, 0, nullptr, outs, 4, 1, &marker, dt,
                                                 &dst_state),
            rvtStatusSize);
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(dst, 16, &pos, nullptr, 0, 1, &marker, dt,
                                                 &dst_state),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(dst, 16, &pos, outs, 0, 1, nullptr, dt,
                                                 &dst_state),
            rvtStatusSize);
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(dst, 16, &pos, outs, 4, 1, nullptr, dt,
                                                 &dst_state),
            rvtStatusNullPtr);
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(dst, 16, &pos, outs, 4, 1, &marker, dt, nullptr),
            rvtStatusNullPtr);
  int16_t* out_hole[2] = {o1, nullptr};
  EXPECT_EQ(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4(dst, 16, &pos, out_hole, 4, 2, &marker, dt,
                                                 &dst_state),
            rvtStatusNullPtr);
  for (int16_t v : o1) EXPECT_EQ(v, 9);
  EXPECT_EQ(pos, 0);
}

// Rows of a smooth 16-bit image with noise, and of the full range.
Row ImageRow(test::Rng& rng, int n, int y, int range) {
  Row r(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    const int base = (i * 37 + y * 91) % 60000;
    r[size_t(i)] = int16_t(range == 0 ? rng.Uniform(-32768, 32767)
                                      : base + int(rng.Uniform(-range, range)));
  }
  return r;
}

// An image of nc components through differencing, the row coders (with a
// restart marker half-way) and back, every predictor, for every target of
// each export.
TEST(Lossless, RoundTripsEveryPredictor) {
  test::Rng rng(7);
  const Coder c(PhotoDiffTable());
  for (int pred = 1; pred <= 7; ++pred) {
    for (int nc : {1, 3, 5}) {
      const int w = int(rng.Uniform(1, 90)), h = 6, p = pred % 2 ? 16 : 12;
      const int coded = std::min(nc, 4);
      std::vector<std::vector<Row>> img(static_cast<size_t>(coded)), diff(static_cast<size_t>(coded));
      std::vector<uint8_t> stream;
      for (int j = 0; j < coded; ++j) {
        for (int y = 0; y < h; ++y) {
          img[size_t(j)].push_back(ImageRow(rng, w, y, y == 3 ? 0 : 40));
          Row d(static_cast<size_t>(w));
          ASSERT_EQ(y == 0 ? rvtiDiffPredFirstRow_JPEG_16s_C1(img[size_t(j)][0].data(), d.data(),
                                                              w, p, 0)
                           : rvtiDiffPredRow_JPEG_16s_C1(img[size_t(j)][size_t(y)].data(),
                                                         img[size_t(j)][size_t(y) - 1].data(),
                                                         d.data(), w, pred),
                    rvtStatusOk);
          diff[size_t(j)].push_back(d);
        }
      }
      EncodeHuffmanState est = test::FreshEncodeState();
      for (int y = 0; y < h; ++y) {
        std::vector<const int16_t*> rows(5, nullptr);
        for (int j = 0; j < coded; ++j) rows[size_t(j)] = diff[size_t(j)][size_t(y)].data();
        auto bytes = EncodeRows(rows, w, nc, c, nullptr, &est);
        stream.insert(stream.end(), bytes.begin(), bytes.end());
        if (y == 2 || y == h - 1) {
          uint8_t tail[2];
          int pos = 0;
          ASSERT_EQ(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1(nullptr, 0, 0, tail, 2, &pos, nullptr,
                                                         &est, 1),
                    rvtStatusOk);
          stream.insert(stream.end(), tail, tail + pos);
        }
        if (y == 2) stream.insert(stream.end(), {0xFF, 0xD0});
      }
      stream.insert(stream.end(), {0xFF, 0xD9});
      for (const auto& t : test::AllTargets(impl_rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4)) {
        DecodeHuffmanState st = test::FreshDecodeState();
        int pos = 0, marker = 0;
        const DecodeHuffmanSpec* tab[4] = {&c.dec.spec, &c.dec.spec, &c.dec.spec, &c.dec.spec};
        std::vector<Row> prev(static_cast<size_t>(coded), Row(static_cast<size_t>(w)));
        for (int y = 0; y < h; ++y) {
          std::vector<Row> d(static_cast<size_t>(coded), Row(static_cast<size_t>(w)));
          int16_t* outs[5] = {};
          for (int j = 0; j < coded; ++j) outs[j] = d[size_t(j)].data();
          ASSERT_EQ(t.fn(stream.data(), int(stream.size()), &pos, outs, w, nc, &marker, tab, &st),
                    rvtStatusOk)
              << t.name << " row " << y;
          if (y == 2) {  // the restart marker: past it, the state starts over
            if (marker == 0) {
              while (stream[size_t(pos)] != 0xFF || stream[size_t(pos) + 1] != 0xD0) ++pos;
              pos += 2;
            }
            ASSERT_EQ(marker == 0 ? 0xD0 : marker, 0xD0);
            (void)rvtiDecodeHuffmanStateInit_JPEG_8u(&st);
            marker = 0;
          }
          for (int j = 0; j < coded; ++j) {
            Row x(static_cast<size_t>(w));
            ASSERT_EQ(y == 0 ? rvtiReconstructPredFirstRow_JPEG_16s_C1(d[size_t(j)].data(),
                                                                       x.data(), w, p, 0)
                             : rvtiReconstructPredRow_JPEG_16s_C1(
                                   d[size_t(j)].data(), prev[size_t(j)].data(), x.data(), w, pred),
                      rvtStatusOk);
            ASSERT_EQ(x, img[size_t(j)][size_t(y)]) << t.name << " pred " << pred << " row " << y;
            prev[size_t(j)] = x;
          }
        }
      }
    }
  }
}

// ------------------------------------------------------------ registered

// Rows: in = x (or d), prev; out = result; arg = width, predictor or P, Pt.
std::vector<test::Case> RowCases(test::Rng& rng, bool first) {
  std::vector<test::Case> out;
  auto add = [&](int w, int misalign, int a, int b, int kind) {
    test::Case k;
    k.label = "width " + std::to_string(w) + " args " + std::to_string(a) + "," + std::to_string(b);
    // 16-bit rows at even addresses: the scalar rows index int16_t directly.
    k.in = {test::ArrayOf<int16_t>(w, 2 * (misalign % 2)),
            test::ArrayOf<int16_t>(w, 2 * ((misalign + 1) % 2))};
    for (auto& buf : k.in) {
      if (kind == 0) buf.Fill<int16_t>(rng, -32768, 32767);
      else buf.Fill<int16_t>(rng, int16_t(0), int16_t(kind));  // a precision's range
    }
    k.out = {test::ArrayOf<int16_t>(w, 2 * ((misalign + 3) % 2))};
    k.arg[0] = w;
    k.arg[1] = a;
    k.arg[2] = b;
    out.push_back(std::move(k));
  };
  for (int w = 1; w <= 67; ++w) {
    const int kind = w % 3 == 0 ? 0 : (w % 3 == 1 ? 255 : 4095);
    if (first) {
      add(w, w % 4, int(rng.Uniform(2, 16)), int(rng.Uniform(0, 20)), kind);
    } else {
      add(w, w % 4, 1 + w % 7, 0, kind);
    }
  }
  // Bad arguments.
  add(9, 0, first ? 1 : 0, first ? 0 : 0, 0);
  add(9, 0, first ? 17 : 8, 0, 0);
  if (first) add(9, 0, 8, -1, 0);
  for (int v = 1; v <= 7; ++v) add(3840, 0, first ? 16 : v, 0, 0);
  // The benchmark's case: a 4K row of a 16-bit image, predictor 1 (or the
  // first row); the binder runs it for 2160 rows.
  add(3840, 0, first ? 16 : 1, first ? 0 : 2160, 65535 / 2);
  return out;
}

template <class Fn>
RvtResult CallRows(Fn fn, test::Case& k) {
  const int w = int(k.arg[0]);
  const int reps = k.arg[2] > 0 && k.arg[0] == 3840 ? int(k.arg[2]) : 1;
  RvtResult r = rvtStatusOk;
  for (int i = 0; i < reps; ++i) {
    r = fn(k.in[0].as<int16_t>(), k.in[1].as<int16_t>(), k.out[0].as<int16_t>(), w,
           int(k.arg[1]));
  }
  return r;
}
template <class Fn>
RvtResult CallFirstRows(Fn fn, test::Case& k) {
  return fn(k.in[0].as<int16_t>(), k.out[0].as<int16_t>(), int(k.arg[0]), int(k.arg[1]),
            int(k.arg[2]));
}

RVT_CHECKASM(rvtiDiffPredFirstRow_JPEG_16s_C1,
             test::Cases{[](test::Rng& rng) { return RowCases(rng, true); },
                         [](auto fn, test::Case& k) { return CallFirstRows(fn, k); }});
RVT_CHECKASM(rvtiReconstructPredFirstRow_JPEG_16s_C1,
             test::Cases{[](test::Rng& rng) { return RowCases(rng, true); },
                         [](auto fn, test::Case& k) { return CallFirstRows(fn, k); }});
RVT_CHECKASM(rvtiDiffPredRow_JPEG_16s_C1,
             test::Cases{[](test::Rng& rng) { return RowCases(rng, false); },
                         [](auto fn, test::Case& k) { return CallRows(fn, k); }});
RVT_CHECKASM(rvtiReconstructPredRow_JPEG_16s_C1,
             test::Cases{[](test::Rng& rng) { return RowCases(rng, false); },
                         [](auto fn, test::Case& k) { return CallRows(fn, k); }});

template <class State>
State AnyState(test::Rng& rng, bool fresh) {
  State st{};
  if (!fresh) rng.Fill(reinterpret_cast<uint8_t*>(&st), sizeof st, uint8_t(0), uint8_t(255));
  if (!fresh && rng.Uniform(0, 1)) st.count = int32_t(rng.Uniform(-3, 40));
  return st;
}

template <class T>
test::Buf BufOf(const T* p, size_t n) {
  test::Buf b = test::ArrayOf<T>(int(n));
  std::memcpy(b.plane.data(), p, n * sizeof(T));
  return b;
}

// Differences of nc rows: small ones (a smooth image), any value, or the
// extremes (categories 15 and 16).
test::Buf DiffRows(test::Rng& rng, int w, int nc, int rows) {
  test::Buf b = test::PlaneOf<int16_t>(w, nc * rows);
  const int kind = int(rng.Uniform(0, 2));
  for (int y = 0; y < nc * rows; ++y) {
    for (int i = 0; i < w; ++i) {
      int v = kind == 0 ? int(rng.Uniform(-40, 40)) * int(rng.Uniform(0, 1) ? 1 : rng.Uniform(1, 9))
              : kind == 1 ? int(rng.Uniform(-32768, 32767))
                          : (rng.Uniform(0, 1) ? -32768 : int(rng.Uniform(-32767, -16384)));
      b.row<int16_t>(y)[i] = int16_t(v);
    }
  }
  return b;
}

// Photo codes, codes by category, and short codes for the extremes (so
// that categories 15 and 16 come without 0xFF bytes).
const std::array<test::HuffTable, 3>& Tables() {
  static const std::array<test::HuffTable, 3> t = {
      PhotoDiffTable(), PlainDiffTable(),
      DiffTable({16, 15, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14})};
  return t;
}

// Encoder: in = rows (nc * reps rows), spec; out = dst, pos, state;
// arg = width, nc, reps, flush.
std::vector<test::Case> EncodeCases(test::Rng& rng) {
  std::vector<test::Case> out;
  for (int trial = 0; trial < 300; ++trial) {
    const int w = int(rng.Uniform(1, trial % 4 ? 70 : 400));
    const int nc = int(rng.Uniform(1, 5));
    const int coded = std::min(nc, 4);
    const int reps = int(rng.Uniform(1, 3));
    test::Case k;
    k.label = "trial " + std::to_string(trial);
    const test::EncSpec e(Tables()[size_t(trial % 3)]);
    EncodeHuffmanSpec spec = e.spec;
    if (trial % 7 == 3) spec.entry[rng.Uniform(0, 16)] = 0;  // a category without a code
    if (trial % 11 == 5) spec.entry[rng.Uniform(0, 16)] |= 0xFF000000u;  // stray bits
    k.in = {DiffRows(rng, w, coded, reps), BufOf(&spec, 1)};
    const int room = w * coded * reps * 5 + 8;
    const int len = rng.Uniform(0, 3) ? room : int(rng.Uniform(1, room));
    const int pos = rng.Uniform(0, 2) ? 0 : int(rng.Uniform(0, len));
    const auto st = AnyState<EncodeHuffmanState>(rng, trial % 3 != 0);
    k.out = {test::ArrayOf<uint8_t>(len), BufOf(&pos, 1), BufOf(&st, 1)};
    k.arg[0] = w;
    k.arg[1] = nc;
    k.arg[2] = reps;
    k.arg[3] = trial % 4 == 0;
    out.push_back(std::move(k));
  }
  // The benchmark's case: 64 rows of a 4K 16-bit image's differences.
  test::Case k;
  k.label = "3840 x 64 rows";
  const test::EncSpec photo(PhotoDiffTable());
  k.in = {test::PlaneOf<int16_t>(3840, 64), BufOf(&photo.spec, 1)};
  for (int y = 0; y < 64; ++y) {
    for (int i = 0; i < 3840; ++i) k.in[0].row<int16_t>(y)[i] = int16_t(rng.Uniform(-60, 60));
  }
  const int pos = 0;
  const auto st = test::FreshEncodeState();
  k.out = {test::ArrayOf<uint8_t>(3840 * 64 * 4), BufOf(&pos, 1), BufOf(&st, 1)};
  k.arg[0] = 3840;
  k.arg[1] = 1;
  k.arg[2] = 64;
  k.arg[3] = 1;
  out.push_back(std::move(k));
  return out;
}

RVT_CHECKASM(rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1,
             test::Cases{EncodeCases, [](auto fn, test::Case& k) {
                           const int w = int(k.arg[0]), nc = int(k.arg[1]), reps = int(k.arg[2]);
                           const int coded = std::min(nc, 4);
                           const auto* spec = k.in[1].as<EncodeHuffmanSpec>();
                           const EncodeHuffmanSpec* t[5] = {spec, spec, spec, spec, nullptr};
                           uint8_t* dst = k.out[0].as<uint8_t>();
                           const int len = k.out[0].plane.width();
                           int* pos = k.out[1].as<int>();
                           auto* st = k.out[2].as<EncodeHuffmanState>();
                           for (int r = 0; r < reps; ++r) {
                             const int16_t* rows[5] = {};
                             for (int j = 0; j < coded; ++j) {
                               rows[j] = k.in[0].row<int16_t>(r * coded + j);
                             }
                             const RvtResult s = fn(rows, w, nc, dst, len, pos, t, st, 0);
                             if (s != rvtStatusOk) return s;
                           }
                           return k.arg[3] ? fn(nullptr, 0, 0, dst, len, pos, nullptr, st, 1)
                                           : rvtStatusOk;
                         }});

// Decoder: in = source, spec; out = rows, pos, marker, state; arg = width,
// nc, reps.  Sources are streams the reference encoder wrote (with restart
// markers and cuts) or noise.
std::vector<test::Case> DecodeCases(test::Rng& rng) {
  std::vector<test::Case> out;
  const auto& enc = impl_rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1;
  for (int trial = 0; trial < 400; ++trial) {
    const int w = int(rng.Uniform(1, trial % 4 ? 70 : 400));
    const int nc = int(rng.Uniform(1, 5));
    const int coded = std::min(nc, 4);
    const int reps = int(rng.Uniform(1, 3));
    const test::HuffTable& table = Tables()[size_t(trial % 3)];
    std::vector<uint8_t> src;
    if (rng.Uniform(0, 3)) {
      const int more = int(rng.Uniform(0, 3));
      const test::EncSpec e(table);
      const EncodeHuffmanSpec* t[4] = {&e.spec, &e.spec, &e.spec, &e.spec};
      EncodeHuffmanState st = test::FreshEncodeState();
      for (int r = 0; r < reps + more; ++r) {
        test::Buf rows = DiffRows(rng, w, coded, 1);
        const int16_t* rp[4] = {};
        for (int j = 0; j < coded; ++j) rp[j] = rows.row<int16_t>(j);
        std::vector<uint8_t> buf(size_t(w * coded * 5 + 8));
        int pos = 0;
        (void)test::Reference(enc)(rp, w, nc, buf.data(), int(buf.size()), &pos, t, &st, 0);
        if (rng.Uniform(0, 3) == 0) {
          (void)test::Reference(enc)(nullptr, 0, 0, buf.data(), int(buf.size()), &pos, nullptr,
                                     &st, 1);
          buf.resize(size_t(pos));
          buf.push_back(0xFF);
          buf.push_back(uint8_t(0xD0 + r % 8));
        } else {
          buf.resize(size_t(pos));
        }
        src.insert(src.end(), buf.begin(), buf.end());
      }
      if (rng.Uniform(0, 4) == 0 && src.size() > 1) src.resize(size_t(rng.Uniform(1, int64_t(src.size()))));
      if (src.empty()) src.push_back(0);
    } else {
      src.resize(size_t(rng.Uniform(1, 3000)));
      rng.Fill(src.data(), src.size(), uint8_t(0), uint8_t(rng.Uniform(0, 1) ? 254 : 255));
    }
    test::DecSpec d(table);
    DecodeHuffmanSpec spec = d.spec;
    if (trial % 9 == 4) spec.lookup[rng.Uniform(0, 255)] |= 0x01000000u;  // stray bits
    test::Case k;
    k.label = "trial " + std::to_string(trial);
    k.in = {BufOf(src.data(), src.size()), BufOf(&spec, 1)};
    const int pos = rng.Uniform(0, 3) ? 0 : int(rng.Uniform(0, int64_t(src.size()) - 1));
    const int marker = rng.Uniform(0, 9) ? 0 : 0xD3;
    const auto st = AnyState<DecodeHuffmanState>(rng, trial % 3 != 0);
    k.out = {test::PlaneOf<int16_t>(w, coded * reps), BufOf(&pos, 1), BufOf(&marker, 1),
             BufOf(&st, 1)};
    k.arg[0] = w;
    k.arg[1] = nc;
    k.arg[2] = reps;
    out.push_back(std::move(k));
  }
  // The benchmark's case: 64 rows of a 4K 16-bit image's differences.
  const test::EncSpec e(PhotoDiffTable());
  const test::DecSpec d(PhotoDiffTable());
  const EncodeHuffmanSpec* t[1] = {&e.spec};
  std::vector<uint8_t> src(3840 * 64 * 4);
  EncodeHuffmanState st = test::FreshEncodeState();
  int pos = 0;
  Row row(3840);
  for (int y = 0; y < 64; ++y) {
    for (auto& v : row) v = int16_t(rng.Uniform(-60, 60));
    const int16_t* rp[1] = {row.data()};
    (void)test::Reference(enc)(rp, 3840, 1, src.data(), int(src.size()), &pos, t, &st, 0);
  }
  (void)test::Reference(enc)(nullptr, 0, 0, src.data(), int(src.size()), &pos, nullptr, &st, 1);
  src.resize(size_t(pos));
  src.insert(src.end(), {0xFF, 0xD9});
  test::Case k;
  k.label = "3840 x 64 rows";
  k.in = {BufOf(src.data(), src.size()), BufOf(&d.spec, 1)};
  const int zero = 0;
  const auto dst = test::FreshDecodeState();
  k.out = {test::PlaneOf<int16_t>(3840, 64), BufOf(&zero, 1), BufOf(&zero, 1), BufOf(&dst, 1)};
  k.arg[0] = 3840;
  k.arg[1] = 1;
  k.arg[2] = 64;
  out.push_back(std::move(k));
  return out;
}

RVT_CHECKASM(rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4,
             test::Cases{DecodeCases, [](auto fn, test::Case& k) {
                           const int w = int(k.arg[0]), nc = int(k.arg[1]), reps = int(k.arg[2]);
                           const int coded = std::min(nc, 4);
                           const auto* spec = k.in[1].as<DecodeHuffmanSpec>();
                           const DecodeHuffmanSpec* t[5] = {spec, spec, spec, spec, nullptr};
                           const uint8_t* src = k.in[0].as<uint8_t>();
                           const int len = k.in[0].plane.width();
                           int* pos = k.out[1].as<int>();
                           int* marker = k.out[2].as<int>();
                           auto* st = k.out[3].as<DecodeHuffmanState>();
                           for (int r = 0; r < reps; ++r) {
                             int16_t* rows[5] = {};
                             for (int j = 0; j < coded; ++j) {
                               rows[j] = k.out[0].row<int16_t>(r * coded + j);
                             }
                             const RvtResult s = fn(src, len, pos, rows, w, nc, marker, t, st);
                             if (s != rvtStatusOk) return s;
                           }
                           return rvtStatusOk;
                         }});

}  // namespace
}  // namespace rvt
