// Agreement with libjpeg-turbo, both ways: our block decoder over the
// entropy-coded data of real JPEG files gives exactly the coefficients
// libjpeg reads from them; blocks we encode, wrapped here in minimal JPEG
// headers with restart intervals, read back in libjpeg as the same
// coefficients.  Every compiled path of each coder takes part.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "checkasm.h"
#include "huffman_util.h"
#include "jpeg_oracle.h"

namespace rvt {
namespace {

using test::CoefPlane;
using test::HuffTable;
using EncFn = decltype(&rvtiEncodeHuffman8x8_JPEG_16s1u_C1);
using DecFn = decltype(&rvtiDecodeHuffman8x8_JPEG_1u16s_C1);

const char* const kPhotos[] = {"hubble_deep_field.jpg", "retina.jpg", "rocket.jpg"};

// Visits the blocks of a scan in coding order: interleaved MCUs of h x v
// blocks per component, or the plain block grid of a single component.
template <class Fn>
void ForEachBlock(const std::vector<CoefPlane>& planes, int width, int height, Fn fn) {
  if (planes.size() == 1) {
    const CoefPlane& p = planes[0];
    for (int by = 0; by < p.real_hb; ++by) {
      for (int bx = 0; bx < p.real_wb; ++bx) {
        if (!fn(by * p.real_wb + bx, 0, bx, by)) return;
      }
    }
    return;
  }
  int hmax = 1, vmax = 1;
  for (const auto& p : planes) {
    hmax = std::max(hmax, p.h);
    vmax = std::max(vmax, p.v);
  }
  const int mx = (width + 8 * hmax - 1) / (8 * hmax), my = (height + 8 * vmax - 1) / (8 * vmax);
  for (int y = 0; y < my; ++y) {
    for (int x = 0; x < mx; ++x) {
      for (size_t c = 0; c < planes.size(); ++c) {
        for (int by = 0; by < planes[c].v; ++by) {
          for (int bx = 0; bx < planes[c].h; ++bx) {
            if (!fn(y * mx + x, int(c), x * planes[c].h + bx, y * planes[c].v + by)) return;
          }
        }
      }
    }
  }
}

// Our decoder over a parsed scan; restart markers handled as a codec does.
std::vector<CoefPlane> DecodeScan(DecFn fn, const test::JpegScan& s,
                                  const std::vector<CoefPlane>& shape, std::string* error) {
  std::vector<CoefPlane> out = shape;
  for (auto& p : out) std::fill(p.blocks.begin(), p.blocks.end(), int16_t(0x7777));
  auto table = [](const test::JpegScan::Table& t) {
    HuffTable h;
    std::copy(t.bits, t.bits + 16, h.bits);
    h.vals = t.vals;
    return h;
  };
  std::vector<test::DecSpec> dc, ac;
  for (const auto& c : s.comps) {
    dc.emplace_back(table(s.dc[c.td]));
    ac.emplace_back(table(s.ac[c.ta]));
  }
  const std::vector<uint8_t>& b = s.bytes;
  const int len = int(b.size());
  int pos = int(s.data_start), marker = 0, next_rst = 0, last_mcu = 0;
  std::vector<int16_t> last_dc(s.comps.size(), 0);
  DecodeHuffmanState st = test::FreshDecodeState();
  ForEachBlock(shape, s.width, s.height, [&](int mcu, int c, int bx, int by) {
    if (s.restart_interval && mcu != last_mcu && mcu % s.restart_interval == 0) {
      while (marker == 0 && pos + 1 < len) {
        if (b[size_t(pos)] == 0xFF && b[size_t(pos) + 1] != 0 && b[size_t(pos) + 1] != 0xFF) {
          marker = b[size_t(pos) + 1];
          pos += 2;
        } else {
          ++pos;
        }
      }
      if (marker != 0xD0 + next_rst) {
        *error = "restart marker " + std::to_string(marker) + " at MCU " + std::to_string(mcu);
        return false;
      }
      next_rst = (next_rst + 1) & 7;
      marker = 0;
      st = test::FreshDecodeState();
      std::fill(last_dc.begin(), last_dc.end(), int16_t(0));
    }
    last_mcu = mcu;
    CoefPlane& p = out[size_t(c)];
    int16_t* blk = &p.blocks[(size_t(by) * p.wb + bx) * 64];
    const RvtResult r = fn(b.data(), len, &pos, blk, &last_dc[size_t(c)], &marker,
                           &dc[size_t(c)].spec, &ac[size_t(c)].spec, &st);
    if (r != rvtStatusOk) {
      *error = "status " + std::to_string(r) + " at MCU " + std::to_string(mcu);
      return false;
    }
    return true;
  });
  return out;
}

::testing::AssertionResult SamePlanes(const std::vector<CoefPlane>& want,
                                      const std::vector<CoefPlane>& got) {
  if (want.size() != got.size()) return ::testing::AssertionFailure() << "component count";
  for (size_t c = 0; c < want.size(); ++c) {
    const CoefPlane& w = want[c];
    const CoefPlane& g = got[c];
    for (int by = 0; by < w.real_hb; ++by) {
      for (int bx = 0; bx < w.real_wb; ++bx) {
        for (int i = 0; i < 64; ++i) {
          if (w.block(bx, by)[i] != g.block(bx, by)[i]) {
            return ::testing::AssertionFailure()
                   << "component " << c << " block (" << bx << "," << by << ") coefficient " << i
                   << ": libjpeg " << w.block(bx, by)[i] << ", ours " << g.block(bx, by)[i];
          }
        }
      }
    }
  }
  return ::testing::AssertionSuccess();
}

TEST(HuffmanInterop, DecodesRealFilesAsLibjpegDoes) {
  for (const char* name : kPhotos) {
    const auto bytes = test::ReadFile(test::TestFile(name));
    ASSERT_FALSE(bytes.empty()) << name;
    const auto want = test::ReadCoefficients(bytes);
    ASSERT_TRUE(want.error.empty()) << want.error;
    const test::JpegScan scan = test::ParseJpeg(bytes);
    ASSERT_TRUE(scan.error.empty()) << scan.error;
    for (const auto& t : test::AllTargets(impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1)) {
      std::string error;
      const auto got = DecodeScan(t.fn, scan, want.planes, &error);
      ASSERT_TRUE(error.empty()) << name << " " << t.name << ": " << error;
      EXPECT_TRUE(SamePlanes(want.planes, got)) << name << " " << t.name;
    }
  }
}

// ------------------------------------------------------------ our encoder

void Put16(std::vector<uint8_t>& o, int v) {
  o.push_back(uint8_t(v >> 8));
  o.push_back(uint8_t(v));
}

void PutTable(std::vector<uint8_t>& o, int cls_id, const HuffTable& t) {
  o.push_back(uint8_t(cls_id));
  o.insert(o.end(), t.bits, t.bits + 16);
  o.insert(o.end(), t.vals.begin(), t.vals.end());
}

// A baseline JPEG around blocks we encode: one DQT of ones, SOF0, DHT with
// table set 0 for the first component and set 1 for the others, DRI, one
// scan, EOI.
std::vector<uint8_t> WriteJpeg(EncFn fn, const std::vector<CoefPlane>& planes, int width,
                               int height, const HuffTable (&dc)[2], const HuffTable (&ac)[2],
                               int restart, std::string* error) {
  std::vector<uint8_t> o = {0xFF, 0xD8, 0xFF, 0xDB};
  Put16(o, 67);
  o.push_back(0);
  o.insert(o.end(), 64, 1);
  o.push_back(0xFF);
  o.push_back(0xC0);
  Put16(o, 8 + 3 * int(planes.size()));
  o.push_back(8);
  Put16(o, height);
  Put16(o, width);
  o.push_back(uint8_t(planes.size()));
  for (size_t c = 0; c < planes.size(); ++c) {
    o.push_back(uint8_t(c + 1));
    o.push_back(uint8_t(planes[c].h << 4 | planes[c].v));
    o.push_back(0);
  }
  const int nsets = planes.size() > 1 ? 2 : 1;
  for (int k = 0; k < nsets; ++k) {
    std::vector<uint8_t> seg;
    PutTable(seg, 0x00 | k, dc[k]);
    PutTable(seg, 0x10 | k, ac[k]);
    o.push_back(0xFF);
    o.push_back(0xC4);
    Put16(o, int(seg.size()) + 2);
    o.insert(o.end(), seg.begin(), seg.end());
  }
  if (restart) {
    o.insert(o.end(), {0xFF, 0xDD, 0, 4});
    Put16(o, restart);
  }
  o.push_back(0xFF);
  o.push_back(0xDA);
  Put16(o, 6 + 2 * int(planes.size()));
  o.push_back(uint8_t(planes.size()));
  for (size_t c = 0; c < planes.size(); ++c) {
    o.push_back(uint8_t(c + 1));
    o.push_back(c == 0 ? 0x00 : 0x11);
  }
  o.insert(o.end(), {0, 63, 0});

  test::EncSpec edc0(dc[0]), eac0(ac[0]), edc1(dc[nsets - 1]), eac1(ac[nsets - 1]);
  size_t room = 1024;
  for (const auto& p : planes) room += p.blocks.size() * 5;  // generous for these data
  std::vector<uint8_t> data(room);
  int pos = 0, last_mcu = 0, next_rst = 0;
  const int len = int(data.size());
  std::vector<int16_t> last_dc(planes.size(), 0);
  EncodeHuffmanState st = test::FreshEncodeState();
  ForEachBlock(planes, width, height, [&](int mcu, int c, int bx, int by) {
    if (restart && mcu != last_mcu && mcu % restart == 0) {
      if (fn(nullptr, data.data(), len, &pos, nullptr, nullptr, nullptr, &st, 1) != rvtStatusOk ||
          pos + 2 > len) {
        *error = "flush";
        return false;
      }
      data[size_t(pos++)] = 0xFF;
      data[size_t(pos++)] = uint8_t(0xD0 + next_rst);
      next_rst = (next_rst + 1) & 7;
      std::fill(last_dc.begin(), last_dc.end(), int16_t(0));
    }
    last_mcu = mcu;
    const CoefPlane& p = planes[size_t(c)];
    const RvtResult r = fn(p.block(bx, by), data.data(), len, &pos, &last_dc[size_t(c)],
                           c == 0 ? &edc0.spec : &edc1.spec, c == 0 ? &eac0.spec : &eac1.spec,
                           &st, 0);
    if (r != rvtStatusOk) {
      *error = "status " + std::to_string(r) + " at MCU " + std::to_string(mcu);
      return false;
    }
    return true;
  });
  if (fn(nullptr, data.data(), len, &pos, nullptr, nullptr, nullptr, &st, 1) != rvtStatusOk) {
    *error = "final flush";
  }
  o.insert(o.end(), data.begin(), data.begin() + pos);
  o.push_back(0xFF);
  o.push_back(0xD9);
  return o;
}

TEST(HuffmanInterop, LibjpegReadsWhatWeEncode) {
  const HuffTable dc[2] = {test::LumaDc(), test::ChromaDc()};
  const HuffTable ac[2] = {test::LumaAc(), test::ChromaAc()};
  for (const char* name : kPhotos) {
    const auto bytes = test::ReadFile(test::TestFile(name));
    const auto src = test::ReadCoefficients(bytes);
    ASSERT_TRUE(src.error.empty()) << src.error;
    const test::JpegScan scan = test::ParseJpeg(bytes);
    for (int restart : {0, 1, 13}) {
      for (const auto& t : test::AllTargets(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1)) {
        std::string error;
        const auto jpeg = WriteJpeg(t.fn, src.planes, scan.width, scan.height, dc, ac, restart,
                                    &error);
        ASSERT_TRUE(error.empty()) << name << " " << t.name << ": " << error;
        const auto back = test::ReadCoefficients(jpeg);
        ASSERT_TRUE(back.error.empty()) << name << " " << t.name << ": " << back.error;
        EXPECT_TRUE(SamePlanes(src.planes, back.planes)) << name << " " << t.name << " " << restart;
      }
    }
  }
}

// Values of every size up to category 15, codes of up to 16 bits (above
// 0x8000), runs around 16 and the last position: still what libjpeg reads.
TEST(HuffmanInterop, LibjpegReadsExtremeBlocks) {
  CoefPlane p;
  p.wb = p.real_wb = 40;
  p.hb = p.real_hb = 30;
  p.blocks.assign(size_t(p.wb) * p.hb * 64, 0);
  test::Rng rng(2024);
  for (int i = 0; i < p.wb * p.hb; ++i) {
    int16_t* b = &p.blocks[size_t(i) * 64];
    const int kind = i % 6;
    b[0] = int16_t(rng.Uniform(-16384, 16383));
    for (int k = 1; k < 64; ++k) {
      int v = 0;
      if (kind == 0) v = int(rng.Uniform(-32767, 32767));
      if (kind == 1) v = rng.Uniform(0, 16) == 0 ? int(rng.Uniform(-32767, 32767)) : 0;
      if (kind == 2) v = k == 63 ? -32767 : 0;
      if (kind == 3) v = k % 16 == 0 ? 1 << (k / 16 * 4) : 0;
      if (kind == 4) v = int(rng.Uniform(-1, 1));
      b[kNaturalOfZigzag[k]] = int16_t(v);
    }
  }
  const HuffTable dc[2] = {test::WideDc(), test::WideDc()};
  const HuffTable ac[2] = {test::WideAc(), test::WideAc()};
  for (int restart : {0, 3}) {
    for (const auto& t : test::AllTargets(impl_rvtiEncodeHuffman8x8_JPEG_16s1u_C1)) {
      std::string error;
      const auto jpeg = WriteJpeg(t.fn, {p}, p.wb * 8, p.hb * 8, dc, ac, restart, &error);
      ASSERT_TRUE(error.empty()) << t.name << ": " << error;
      const auto back = test::ReadCoefficients(jpeg);
      ASSERT_TRUE(back.error.empty()) << t.name << ": " << back.error;
      EXPECT_TRUE(SamePlanes({p}, back.planes)) << t.name;
      // And our decoder reads it the same way.
      const test::JpegScan scan = test::ParseJpeg(jpeg);
      for (const auto& d : test::AllTargets(impl_rvtiDecodeHuffman8x8_JPEG_1u16s_C1)) {
        const auto ours = DecodeScan(d.fn, scan, {p}, &error);
        ASSERT_TRUE(error.empty()) << d.name << ": " << error;
        EXPECT_TRUE(SamePlanes({p}, ours)) << d.name;
      }
    }
  }
}

}  // namespace
}  // namespace rvt
