// rvtjGetLibVersion: one constant record per variant.
#include "frame/dispatch.h"

namespace rvt {
namespace {

const LibraryVersion kVersionU8 = {7, 1, 0, 36264, "u8", "rvtJP SSSE3 (u8)",
                                   "7.1.0 (r36264)", "Jul 23 2012"};
const LibraryVersion kVersionN8 = {7, 1, 0, 36264, "n8", "rvtJP Tarn (n8)",
                                   "7.1.0 (r36264)", "Jul 23 2012"};

const LibraryVersion* VersionU8() { return &kVersionU8; }
const LibraryVersion* VersionN8() { return &kVersionN8; }

}  // namespace

RVT_IMPL_PLAIN(rvtjGetLibVersion, VersionU8);
RVT_IMPL1_PLAIN(rvtjGetLibVersion, VersionN8);

}  // namespace rvt
