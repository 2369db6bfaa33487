// Symbol statistics and optimal tables: the descriptors (all plain code).
#include "frame/dispatch.h"
#include "jpeg/huffman_stats.h"

namespace rvt {

RVT_IMPL_PLAIN(rvtiGetHuffmanStatistics8x8_JPEG_16s_C1, huffman_stats::Stats8x8Ref);
RVT_IMPL_PLAIN(rvtiGetHuffmanStatisticsOne_JPEG_16s_C1, huffman_stats::StatsOneRef);
RVT_IMPL_PLAIN(rvtiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1, huffman_stats::StatsDCFirstRef);
RVT_IMPL_PLAIN(rvtiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, huffman_stats::StatsACFirstRef);
RVT_IMPL_PLAIN(rvtiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1,
               huffman_stats::StatsACRefineRef);
RVT_IMPL_PLAIN(rvtiEncodeHuffmanRawTableInit_JPEG_8u, huffman_stats::RawTableInitRef);

}  // namespace rvt
