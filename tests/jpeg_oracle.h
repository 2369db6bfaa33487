// Test-only: libjpeg-turbo as the oracle of quantized coefficients, and a
// small reader of baseline JPEG markers (frame, tables, scan) so the tests
// can run our own decoder over the entropy-coded data of real files.
#ifndef RVT_TESTS_JPEG_ORACLE_H_
#define RVT_TESTS_JPEG_ORACLE_H_

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <jpeglib.h>

namespace rvt::test {

inline std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

inline std::string TestFile(const char* name) { return std::string(RVT_TESTDATA_DIR) + "/" + name; }

// Quantized coefficients of one component, natural order, block rows of
// `wb` blocks (the array libjpeg keeps: padded to whole MCUs).
struct CoefPlane {
  int h = 1, v = 1;       // sampling factors
  int wb = 0, hb = 0;     // blocks stored (padded to the MCU grid)
  int real_wb = 0, real_hb = 0;  // blocks that cover the image
  std::vector<int16_t> blocks;   // wb * hb * 64
  const int16_t* block(int bx, int by) const { return &blocks[(size_t(by) * wb + bx) * 64]; }
};

struct Coefs {
  std::vector<CoefPlane> planes;
  std::string error;
};

namespace detail {
struct ErrorMgr {
  jpeg_error_mgr pub;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};
inline void ErrorExit(j_common_ptr cinfo) {
  auto* e = reinterpret_cast<ErrorMgr*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, e->message);
  longjmp(e->jump, 1);
}
inline void Silent(j_common_ptr, int) {}
}  // namespace detail

// Reads every component's coefficients with jpeg_read_coefficients.
inline Coefs ReadCoefficients(const std::vector<uint8_t>& jpeg) {
  Coefs out;
  jpeg_decompress_struct cinfo;
  detail::ErrorMgr err;
  cinfo.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = detail::ErrorExit;
  err.pub.emit_message = detail::Silent;
  if (setjmp(err.jump)) {
    out.error = err.message;
    out.planes.clear();
    jpeg_destroy_decompress(&cinfo);
    return out;
  }
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
  jpeg_read_header(&cinfo, TRUE);
  jvirt_barray_ptr* arrays = jpeg_read_coefficients(&cinfo);
  for (int c = 0; c < cinfo.num_components; ++c) {
    const jpeg_component_info& ci = cinfo.comp_info[c];
    CoefPlane p;
    p.h = ci.h_samp_factor;
    p.v = ci.v_samp_factor;
    p.real_wb = int(ci.width_in_blocks);
    p.real_hb = int(ci.height_in_blocks);
    if (cinfo.comps_in_scan > 1 || cinfo.num_components > 1) {
      p.wb = (p.real_wb + p.h - 1) / p.h * p.h;
      p.hb = (p.real_hb + p.v - 1) / p.v * p.v;
    } else {
      p.wb = p.real_wb;
      p.hb = p.real_hb;
    }
    p.blocks.resize(size_t(p.wb) * p.hb * 64);
    for (int by = 0; by < p.hb; ++by) {
      JBLOCKARRAY row = (*cinfo.mem->access_virt_barray)(
          reinterpret_cast<j_common_ptr>(&cinfo), arrays[c], JDIMENSION(by), 1, FALSE);
      for (int bx = 0; bx < p.wb; ++bx) {
        for (int i = 0; i < 64; ++i) p.blocks[(size_t(by) * p.wb + bx) * 64 + i] = row[0][bx][i];
      }
    }
    out.planes.push_back(std::move(p));
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  return out;
}

// The parts of a baseline JPEG our block decoder needs.
struct JpegScan {
  struct Table {
    uint8_t bits[16];
    std::vector<uint8_t> vals;
    bool present = false;
  };
  struct Component {
    int id, h, v, td, ta;
  };
  Table dc[4], ac[4];
  std::vector<Component> comps;  // in scan order
  int restart_interval = 0;
  int width = 0, height = 0;
  size_t data_start = 0;  // first byte of entropy-coded data
  std::vector<uint8_t> bytes;
  std::string error;
};

inline JpegScan ParseJpeg(std::vector<uint8_t> bytes) {
  JpegScan s;
  s.bytes = std::move(bytes);
  const std::vector<uint8_t>& b = s.bytes;
  struct Frame {
    int id, h, v;
  };
  std::vector<Frame> frame;
  size_t i = 2;
  if (b.size() < 4 || b[0] != 0xFF || b[1] != 0xD8) {
    s.error = "no SOI";
    return s;
  }
  while (i + 4 <= b.size()) {
    if (b[i] != 0xFF) {
      s.error = "marker expected";
      return s;
    }
    const int m = b[i + 1];
    const size_t len = size_t(b[i + 2]) << 8 | b[i + 3];
    const size_t body = i + 4, end = i + 2 + len;
    if (end > b.size()) break;
    if (m == 0xC0 || m == 0xC1) {
      s.height = b[body + 1] << 8 | b[body + 2];
      s.width = b[body + 3] << 8 | b[body + 4];
      const int n = b[body + 5];
      for (int c = 0; c < n; ++c) {
        const uint8_t* p = &b[body + 6 + 3 * c];
        frame.push_back({p[0], p[1] >> 4, p[1] & 15});
      }
    } else if (m == 0xC4) {
      for (size_t p = body; p < end;) {
        const int tc = b[p] >> 4, th = b[p] & 3;
        JpegScan::Table& t = tc ? s.ac[th] : s.dc[th];
        int total = 0;
        for (int k = 0; k < 16; ++k) total += t.bits[k] = b[p + 1 + k];
        t.vals.assign(b.begin() + long(p) + 17, b.begin() + long(p) + 17 + total);
        t.present = true;
        p += 17 + size_t(total);
      }
    } else if (m == 0xDD) {
      s.restart_interval = b[body] << 8 | b[body + 1];
    } else if (m == 0xDA) {
      const int n = b[body];
      for (int c = 0; c < n; ++c) {
        const int id = b[body + 1 + 2 * c], t = b[body + 2 + 2 * c];
        for (const Frame& f : frame) {
          if (f.id == id) s.comps.push_back({id, f.h, f.v, t >> 4, t & 15});
        }
      }
      s.data_start = end;
      return s;
    }
    i = end;
  }
  s.error = "no scan";
  return s;
}

}  // namespace rvt::test

#endif  // RVT_TESTS_JPEG_ORACLE_H_
