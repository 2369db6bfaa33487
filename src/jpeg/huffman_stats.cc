// Symbol statistics and optimal tables: the per-target build and the
// descriptors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "jpeg/huffman_stats.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "frame/dispatch.h"
#include "jpeg/huffman_stats-inl.h"
#include "jpeg/huffman_stats.h"

#if HWY_ONCE
namespace rvt {
RVT_IMPL_HWY(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1, huffman_stats, Stats8x8Fast, Stats8x8Ref);
RVT_IMPL_PLAIN(rvtiGetHuffmanStatisticsOne_JPEG_16s_C1, huffman_stats::StatsOneRef);
RVT_IMPL_PLAIN(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1, huffman_stats::StatsDCFirstRef);
RVT_IMPL_HWY(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, huffman_stats, StatsACFirstFast,
             StatsACFirstRef);
RVT_IMPL_HWY(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, huffman_stats, StatsACRefineFast,
             StatsACRefineRef);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanRawTableInit_JPEG_8u, huffman_stats::RawTableInitRef);
}  // namespace rvt
#endif  // HWY_ONCE
