#include "turbo_peer.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>

// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>
#include <turbojpeg.h>

namespace rvtjpeg {
namespace {

int TurboSampling(Sampling s) {
  switch (s) {
    case Sampling::kGrey: return TJSAMP_GRAY;
    case Sampling::k444: return TJSAMP_444;
    case Sampling::k422: return TJSAMP_422;
    case Sampling::k420: return TJSAMP_420;
  }
  return TJSAMP_420;
}

// libjpeg reports fatal errors through error_exit, which must not return:
// jump back to the caller's setjmp with the message kept.
struct ErrorManager {
  jpeg_error_mgr pub;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

void ErrorExit(j_common_ptr cinfo) {
  ErrorManager* e = reinterpret_cast<ErrorManager*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, e->message);
  std::longjmp(e->jump, 1);
}

void Quiet(j_common_ptr, int) {}

}  // namespace

TurboPeer::TurboPeer() : enc_(tjInitCompress()), dec_(tjInitDecompress()) {}

TurboPeer::~TurboPeer() {
  if (enc_) tjDestroy(enc_);
  if (dec_) tjDestroy(dec_);
  if (buf_) tjFree(buf_);
}

bool TurboPeer::Encode(const Image& image, int quality, Sampling sampling, std::string* error) {
  if (image.channels == 1) sampling = Sampling::kGrey;
  const int subsamp = TurboSampling(sampling);
  const unsigned long need = tjBufSize(image.width, image.height, subsamp);
  if (need > capacity_) {
    if (buf_) tjFree(buf_);
    buf_ = tjAlloc(int(need));
    capacity_ = buf_ ? need : 0;
    if (!buf_) {
      *error = "out of memory";
      return false;
    }
  }
  unsigned long size = capacity_;
  if (tjCompress2(enc_, image.pixels.data(), image.width, 0, image.height,
                  image.channels == 1 ? TJPF_GRAY : TJPF_RGB, &buf_, &size, subsamp, quality,
                  TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT) != 0) {
    *error = tjGetErrorStr2(enc_);
    return false;
  }
  size_ = size;
  return true;
}

bool TurboPeer::Decode(const uint8_t* data, size_t size, Image* image, std::string* error) {
  int w, h, subsamp, colorspace;
  if (tjDecompressHeader3(dec_, data, static_cast<unsigned long>(size), &w, &h, &subsamp, &colorspace) != 0) {
    *error = tjGetErrorStr2(dec_);
    return false;
  }
  const bool grey = colorspace == TJCS_GRAY;
  image->Resize(w, h, grey ? 1 : 3);
  if (tjDecompress2(dec_, data, static_cast<unsigned long>(size), image->pixels.data(), w, 0, h,
                    grey ? TJPF_GRAY : TJPF_RGB, TJFLAG_ACCURATEDCT) != 0) {
    *error = tjGetErrorStr2(dec_);
    return false;
  }
  return true;
}

bool LibjpegEncode(const Image& image, int quality, Sampling sampling, const LibjpegOptions& options,
                   std::vector<uint8_t>* out, std::string* error) {
  jpeg_compress_struct cinfo;
  ErrorManager err;
  unsigned char* mem = nullptr;
  unsigned long mem_size = 0;
  cinfo.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = ErrorExit;
  err.pub.emit_message = Quiet;
  if (setjmp(err.jump)) {
    jpeg_destroy_compress(&cinfo);
    std::free(mem);
    *error = err.message;
    return false;
  }
  jpeg_create_compress(&cinfo);
  jpeg_mem_dest(&cinfo, &mem, &mem_size);
  cinfo.image_width = JDIMENSION(image.width);
  cinfo.image_height = JDIMENSION(image.height);
  cinfo.input_components = image.channels;
  cinfo.in_color_space = image.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&cinfo);
  if (image.channels == 3 && sampling == Sampling::kGrey) jpeg_set_colorspace(&cinfo, JCS_GRAYSCALE);
  if (image.channels == 3 && options.rgb) jpeg_set_colorspace(&cinfo, JCS_RGB);
  jpeg_set_quality(&cinfo, quality, TRUE);
  cinfo.dct_method = JDCT_ISLOW;
  cinfo.optimize_coding = FALSE;
  if (cinfo.num_components == 3) {
    cinfo.comp_info[0].h_samp_factor = sampling == Sampling::k444 ? 1 : 2;
    cinfo.comp_info[0].v_samp_factor = sampling == Sampling::k420 ? 2 : 1;
    for (int c = 1; c < 3; ++c) cinfo.comp_info[c].h_samp_factor = cinfo.comp_info[c].v_samp_factor = 1;
  }
  cinfo.restart_interval = static_cast<unsigned int>(options.restart_interval);
  jpeg_scan_info scans[3];
  if (options.one_scan_per_component && cinfo.num_components == 3) {
    for (int c = 0; c < 3; ++c) {
      scans[c].comps_in_scan = 1;
      scans[c].component_index[0] = c;
      scans[c].Ss = 0;
      scans[c].Se = 63;
      scans[c].Ah = scans[c].Al = 0;
    }
    cinfo.scan_info = scans;
    cinfo.num_scans = 3;
  }
  jpeg_start_compress(&cinfo, TRUE);
  while (cinfo.next_scanline < cinfo.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(image.row(int(cinfo.next_scanline)));
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  out->assign(mem, mem + mem_size);
  std::free(mem);
  return true;
}

bool LibjpegReadCoefficients(const uint8_t* data, size_t size, Coefficients* coefficients,
                             std::string* error) {
  jpeg_decompress_struct cinfo;
  ErrorManager err;
  cinfo.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = ErrorExit;
  err.pub.emit_message = Quiet;
  if (setjmp(err.jump)) {
    jpeg_destroy_decompress(&cinfo);
    *error = err.message;
    return false;
  }
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, data, static_cast<unsigned long>(size));
  jpeg_read_header(&cinfo, TRUE);
  jvirt_barray_ptr* arrays = jpeg_read_coefficients(&cinfo);
  coefficients->components.assign(size_t(cinfo.num_components), {});
  for (int c = 0; c < cinfo.num_components; ++c) {
    const jpeg_component_info& ci = cinfo.comp_info[c];
    Coefficients::Component& k = coefficients->components[size_t(c)];
    // The grid padded to whole MCUs, as the arrays hold it.
    const int mcu_w = cinfo.comps_in_scan > 1 || cinfo.num_components > 1 ? ci.h_samp_factor : 1;
    const int mcu_h = cinfo.comps_in_scan > 1 || cinfo.num_components > 1 ? ci.v_samp_factor : 1;
    k.blocks_w = int((ci.width_in_blocks + mcu_w - 1) / mcu_w * mcu_w);
    k.blocks_h = int((ci.height_in_blocks + mcu_h - 1) / mcu_h * mcu_h);
    k.values.assign(size_t(k.blocks_w) * k.blocks_h * 64, 0);
    for (int by = 0; by < k.blocks_h; ++by) {
      JBLOCKARRAY row = (*cinfo.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&cinfo),
                                                          arrays[c], JDIMENSION(by), 1, FALSE);
      for (int bx = 0; bx < k.blocks_w; ++bx)
        std::memcpy(const_cast<int16_t*>(k.block(bx, by)), row[0][bx], 128);
    }
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  return true;
}

}  // namespace rvtjpeg
