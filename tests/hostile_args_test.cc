// Hostile arguments for every export, generated from exports.inc.
//
// Each export's parameter list (its names and types, as listed) yields the
// checks the export must make, in argument-list order:
//   pointer                null                    -> rvtStatusNullPtr
//   pointer array  p[k]    null, then each entry   -> rvtStatusNullPtr
//   step array  s[k]       null, then each entry   -> NullPtr, then Step
//   int32 ...Step          0, -1, INT32_MIN        -> rvtStatusStep
//   ImageSize              width or height 0, -1, INT32_MIN -> rvtStatusSize
//   int length / width / row count: 0, -1, INT32_MIN -> rvtStatusSize
// Other scalars are held at a neutral value.  A family whose checks differ
// (another order, another status, content checks behind a pointer, a value
// it accepts) says so in ONE row of kFamilies below; nothing else in this
// file knows about families.
//
// For each check, with every earlier argument valid, the matrix calls the
// export with (a) only that argument bad and (b) that argument and every
// later checked argument bad; both must return the check's status (so a
// missing check, two checks swapped or a later check run first shows), and
// every buffer the call can reach - sentinel-filled - must be unchanged (a
// write before a check shows).  Every compiled target the processor runs is
// called, and the export itself through its trampoline.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "frame/dispatch.h"
#include "rvtcore.h"
#include "rvtjp.h"

namespace rvt::test {
namespace {

// ------------------------------------------------------------ family table
//
// A row replaces the derived checks of every export whose name matches its
// pattern (the first matching row wins) by the list `order`: the checks in
// the order the family makes them, space-separated.  Tokens:
//   name          the parameter's derived check (by its kind, above)
//   name[]        the entries of a pointer or step array (each in turn;
//                 nothing for a plain pointer, so one row fits C3 and P3)
//   *name         the value behind a pointer: an int below 0 (pass the
//                 status), or an ImageRect's width/height below 1
//   name?         an argument the export does not check (a pointer it
//                 accepts as null, a step it takes as it comes)
//   ^name:R       not a check: the export reads up to R rows and 16
//                 samples before this pointer (a documented over-read:
//                 border samples the caller supplies; the region tests
//                 give it that margin)
//   &name=F(a,..) not a check: before each call the object behind this
//                 pointer is built by export F with the arguments a: `@`
//                 the object, WxH a size, a number (a state whose content
//                 is checked; 64 KiB of room)
// followed by optional modifiers:
//   /R            which values are bad: /<1 (default), /<0 (0 accepted),
//                 /==0 (only 0), /<2; for an ImageSize /W,H (e.g. /<2,<1)
//   /[lo,hi]      a scalar's valid range (bad: lo-1, hi+1, INT32_MIN/MAX)
//   =S            the status (default by kind)
// A row must name every pointer parameter (checked or `?`), so a new
// parameter cannot slip through unlisted.
struct Family {
  const char* pattern;
  const char* order;
  const char* why;
};

const Family kFamilies[] = {
    {"rvtiDCTQuantFwd8x8LS_JPEG_(8u|16u)16s_C1R", "pSrc pDst srcStep pQuantFwdTable",
     "the step follows both block pointers"},
    {"rvtiDCTQuantInv8x8LSBlocks_JPEG_16s8u_C1R", "pSrc pDst dstStep pQuantInvTable nBlocks/<1=-6",
     "the block count follows the checks of the one-block form"},
    {"rvtiQuantFwdRawTableInit_JPEG_8u", "pQuantRawTable qualityFactor/<1=-5",
     "quality below 1 is a bad argument"},
    {"rvti(RGB|BGR)ToYCbCr411_JPEG_8u_C[34]P3R|rvtiYCbCr411To(RGB|BGR)_JPEG_8u_P3C[34]R",
     "pSrc pSrc[] srcStep? pDst pDst[] dstStep? roiSize/<2,<2",
     "4:1:1 needs two columns and two rows and takes any step"},
    {"rvti(RGB|BGR)ToYCbCr422_JPEG_8u_C[34]P3R|rvtiYCbCr422To(RGB|BGR)_JPEG_8u_P3C[34]R",
     "pSrc pSrc[] srcStep? pDst pDst[] dstStep? roiSize/<2,<1",
     "4:2:2 needs two columns and takes any step"},
    {"rvtiYCbCr422ToRGB_JPEG_8u_C2C3R", "pSrc srcStep? pDst dstStep? roiSize/<1,==0",
     "packed 4:2:2 takes any step and refuses only a zero height"},
    {"rvti(RGB|BGR)ToYCbCr_JPEG_8u_C4P3R|rvtiYCbCrTo(RGB|BGR)_JPEG_8u_P3C4R",
     "pSrc pSrc[] srcStep? pDst pDst[] dstStep? roiSize", "the four-channel forms take any step"},
    {"rvtiSampleUpH2V2_JPEG_8u_C1R", "pSrc srcStep srcRoiSize pDst dstStep dstRoiSize ^pSrc:1",
     "reads source row -1 and column -1: edges are not replicated"},
    {"rvtiSample(Down|Up)RowH2V2_", "pSrc1 pSrc2 pDst srcWidth", "the width follows the rows"},
    {"rvtiSample(Down|Up)RowH2V1_", "pSrc pDst srcWidth", "the width follows the rows"},
    {"rvtiEncodeHuffman8x8_JPEG_16s1u_C1",
     "pDst dstLenBytes pDstCurrPos pEncHuffState *pDstCurrPos=-5 pSrc pLastDC pDcTable pAcTable",
     "the target is checked first: a flush looks at nothing else"},
    {"rvtiEncodeHuffmanOne_JPEG_16s1u_C1",
     "pDst dstLenBytes pDstCurrPos pEncHuffState *pDstCurrPos=-5 pSrc pEncHuffTable",
     "the target is checked first: a flush looks at nothing else"},
    {"rvtiDecodeHuffman8x8_JPEG_1u16s_C1",
     "pSrc srcLenBytes/<0=-5 pSrcCurrPos pDst pLastDC pMarker pDcTable pAcTable pDecHuffState "
     "*pSrcCurrPos=-5",
     "an empty source is accepted; the position is read after the pointers"},
    {"rvtiDecodeHuffmanOne_JPEG_1u16s_C1",
     "pSrc srcLenBytes pSrcCurrPos pDst pMarker pDecHuffTable pDecHuffState *pSrcCurrPos=-5",
     "the position is read after the pointers"},
    {"rvtiEncodeHuffman8x8_Direct_JPEG_16s1u_C1",
     "pSrc pDst pDstBitsLen pLastDC pDcTable pAcTable *pDstBitsLen=-5", ""},
    {"rvtiDecodeHuffman8x8_Direct_JPEG_1u16s_C1",
     "pSrc pSrcBitsLen *pSrcBitsLen=-5 pDst pLastDC pMarker pPrefetchedBits "
     "pNumValidPrefetchedBits *pNumValidPrefetchedBits=-5 pDcTable pAcTable",
     ""},
    {"rvtiPackBitsRow_TIFF_8u_C1",
     "pSrc srcLenBytes=-5 pDst pDstCurrPos dstLenBytes=-5 *pDstCurrPos=-5",
     "lengths are bad arguments; length and position are one check"},
    {"rvtiUnpackBitsRow_TIFF_8u_C1",
     "pSrc pSrcCurrPos srcLenBytes=-5 *pSrcCurrPos=-5 pDst dstLenBytes=-5",
     "lengths are bad arguments; length and position are one check"},
    {"rvtiJoinRow_TIFF_8u16u_C1", "pSrc pDst len=-14 pSrc[]",
     "the length is a step-like count; the planes are looked at last"},
    {"rvtiSplitRow_TIFF_16u8u_C1", "pDst pSrc len=-14 pDst[]",
     "the planes first, then the row, the count, the planes' entries"},
    {"rvtiPCT(Fwd|Inv)_JPEGXR_(16s|32s|32f)_C1IR",
     "pSrcDst roiSize srcDstStep", "the step must hold a row of the region, so it follows it"},
    {"rvtiPCT(Fwd|Inv)Blocks_JPEGXR_32s_C1I", "pSrcDst numBlocks",
     "a run of blocks: the pointer, then the count"},
    {"rvtiTextureDecodeBlock", "pSrc pDst dstStep/==0 roiSize",
     "a negative step walks the destination upwards"},
    {"rvtiDiffPredFirstRow|rvtiReconstructPredFirstRow", "pSrc pDst width P/[2,16]=-5 Pt/<0=-5",
     ""},
    {"rvtiDiffPredRow|rvtiReconstructPredRow", "pSrc pPrevRow pDst width predictor/[1,7]=-5", ""},
    {"rvtiEncodeHuffmanRow_JPEG_16s1u_P4C1",
     "pDst nDstLenBytes pDstCurrPos pEncHuffState *pDstCurrPos=-5 pSrc nSrcLen nSrcRows "
     "pEncHuffTable pSrc[] pEncHuffTable[]",
     "the target first (a flush looks at nothing else); the rows and tables of the coded "
     "components (at most four) last"},
    {"rvtiDecodeHuffmanRow_JPEG_1u16s_C1P4",
     "pSrc nSrcLenBytes pSrcCurrPos pDst nDstLen nDstRows pMarker pDecHuffTable pDecHuffState "
     "pDst[] pDecHuffTable[] *pSrcCurrPos=-5",
     "the rows and tables of the coded components after the state, the position last"},
    {"rvtiWTFwd(Row|Col)_", "@3ptr @3step @roi ^pSrc:4",
     "the three pointers, then the three steps; border samples before the source"},
    {"rvtiWTInv(Row|Col)_", "@3ptr @3step @roi ^pSrcLow:4 ^pSrcHigh:4",
     "the three pointers, then the three steps; border samples before the bands"},
    {"rvtiWT(Fwd|Inv)_(B53|D97)_JPEG2K_(16s|32s)_C1IR",
     "pSrcDst srcDstStep pTileRect pBuffer *pTileRect", ""},
    {"rvtiWTFwd_(B53|D97)_JPEG2K_(16s|32s)_C1R",
     "pSrc pDst dstStep pTileRect pBuffer srcStep pDst[] dstStep[] *pTileRect",
     "the pointers first, then the steps and the bands"},
    {"rvtiWTInv_(B53|D97)_JPEG2K_(16s|32s)_C1R",
     "pDst pSrc srcStep pTileRect pBuffer dstStep pSrc[] srcStep[] *pTileRect",
     "the pointers first, then the steps and the bands"},
    {"rvti(RCT|ICT)(Fwd|Inv)_JPEG2K_.*_C3P3R", "pSrc pDst pDst[] @steps roiSize",
     "the pointers, then both steps"},
    {"rvti(RCT|ICT)(Fwd|Inv)_JPEG2K_.*_P3C3R", "pSrc pSrc[] pDst @steps roiSize",
     "the pointers, then both steps"},
    {"rvtiGetHuffmanStatistics8x8_AC(First|Refine)_JPEG_16s_C1",
     "pSrc pAcStatistics Ss/[1,63] Se/[1,63] Al/[0,13] pEncHuffState",
     "the band before the state (bFlushState 0: a flush looks at the counts and the state only)"},
    {"rvtiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1",
     "pDst nDstLenBytes pDstCurrPos *pDstCurrPos=-5 pEncHuffState pSrc pLastDC Al/[0,13] pDcTable",
     "the target and the state first: a flush looks at nothing else"},
    {"rvtiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1",
     "pDst nDstLenBytes pDstCurrPos *pDstCurrPos=-5 pEncHuffState pSrc Al/[0,13]",
     "the target and the state first: a flush looks at nothing else"},
    {"rvtiEncodeHuffman8x8_AC(First|Refine)_JPEG_16s1u_C1",
     "pDst nDstLenBytes pDstCurrPos *pDstCurrPos=-5 pAcTable pEncHuffState pSrc Ss/[1,63] "
     "Se/[1,63] Al/[0,13]",
     "the target, spec and state first: a flush writes the pending run with the spec"},
    {"rvtiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1",
     "pSrc nSrcLenBytes pSrcCurrPos *pSrcCurrPos=-5 pDst pLastDC pMarker Al/[0,13] pDcTable "
     "pDecHuffState",
     "the position's sign right after it"},
    {"rvtiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1",
     "pSrc nSrcLenBytes pSrcCurrPos *pSrcCurrPos=-5 pDst pMarker Al/[0,13] pDecHuffState",
     "the position's sign right after it"},
    {"rvtiDecodeHuffman8x8_AC(First|Refine)_JPEG_1u16s_C1",
     "pSrc nSrcLenBytes pSrcCurrPos *pSrcCurrPos=-5 pDst pMarker Ss/[1,63] Se/[1,63] Al/[0,13] "
     "pAcTable pDecHuffState",
     "the position's sign right after it"},
    {"rvtiDecodeHuffman8x8Blocks_JPEG_1u16s_C1",
     "pSrc srcLenBytes/<0=-5 pSrcCurrPos pDst nMcus/<1=-6 pMcuComp nMcuBlocks/[1,10]=-6 "
     "*pMcuComp=-5 pLastDC pMarker pDcTable pAcTable pDecHuffState pCoefsDone? pBlocksDone "
     "*pSrcCurrPos=-5",
     "an empty source is accepted; the components once their count is known; table entries only "
     "for the components named (their own tests); the position's sign last"},
    {"rvtiEncodeHuffman8x8Blocks_JPEG_16s1u_C1",
     "pSrc pDst dstLenBytes pDstCurrPos nMcus/<1=-6 pMcuComp nMcuBlocks/[1,10]=-6 *pMcuComp=-5 "
     "pLastDC pDcTable pAcTable pEncHuffState pBlocksDone *pDstCurrPos=-5",
     "the components once their count is known; table entries only for the components named "
     "(their own tests); the position's sign last"},
    {"rvtiTextureEncodeBlock", "pSrc srcStep/==0 pDst roiSize quality/[0,2]",
     "a negative step walks the source upwards"},
    {"rvtiEncodeLoadCodeBlock_JPEG2K_32s_C1R",
     "pSrc srcStep cbSize pState &pState=rvtiEncodeInit_JPEG2K(@,16x16) *pState=-5 band/[0,3] "
     "magnBits/[1,31] codeStyle/[0,63] pSfBits pNOfPasses pNOfTermPasses",
     "the state is checked for an initialised one; the outputs after the block's parameters"},
    {"rvtiEncodeStoreBits_JPEG2K_1u",
     "pDst pDstLen *pDstLen/<1=-6 pState &pState=rvtiEncodeInit_JPEG2K(@,16x16) *pState=-5 "
     "pIsNotFinish",
     "the room behind pDstLen, then an initialised state"},
    {"rvtiEncodeGetRate_JPEG2K", "pState *pState=-5 pRate?",
     "the pass is checked against a coded block before pRate (its own tests)"},
    {"rvtiEncodeGetDist_JPEG2K", "pState *pState=-5 pDist?",
     "the pass is checked against a coded block before pDist (its own tests)"},
    {"rvtiEncodeGetTermPassLen_JPEG2K", "pState *pState=-5 pLen?",
     "the segment is checked against a coded block before pLen (its own tests)"},
    {"rvtiDecodeCodeBlock_JPEG2K_1u32s_C1R",
     "pSrc pSegLen pDst dstStep cbSize band/[0,3] magnBits/[1,31] sfBits/[0,1] nOfPasses/[0,1] "
     "codeStyle/[0,63] roiShift/[0,31] pBuffer",
     "sfBits up to magnBits (1), passes up to 3 x (magnBits - sfBits) - 2; no pass reads no "
     "segment length"},
    {"rvtiDecodeCBProgrAttach_JPEG2K",
     "pState &pState=rvtiDecodeCBProgrInit_JPEG2K(@,16x16) *pState=-5 cbSize band/[0,3] "
     "magnBits/[1,31] sfBits/[0,1] codeStyle/[0,63] roiShift/[0,31]",
     "an initialised state, then the one-shot decoder's checks"},
    {"rvtiDecodeCBProgrGetPassCounters_JPEG2K",
     "pState &pState=rvtiDecodeCBProgrInit_JPEG2K(@,16x16) *pState=-5 pNOfDecodedPasses "
     "pBitPlane",
     "an initialised state"},
    {"rvtiDecodeCBProgrGetCodeBlock_JPEG2K_32s_C1R",
     "pState &pState=rvtiDecodeCBProgrInit_JPEG2K(@,16x16) "
     "&pState=rvtiDecodeCBProgrAttach_JPEG2K(@,8x8,0,1,0,0,0) *pState=-5 pDst dstStep",
     "an initialised state; a block attached to it last (its own tests)"},
    {"rvtiVLCGetStateSize_JPEGXR", "colorFormat/[0,4] numChannels/[1,1] pSize",
     "the format with its channel count (Y only: one)"},
    {"rvtiVLCInit_JPEGXR", "colorFormat/[0,4] numChannels/[1,1] pState stateSize/<1=-6",
     "the format with its channel count (Y only: one)"},
    {"rvtiVLCAdapt_JPEGXR", "pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) *pState=-5 bands/[1,31]",
     "an initialised state"},
    {"rvtiVLCGetTables_JPEGXR",
     "pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) *pState=-5 pTableIndex pDiscriminant "
     "pModelBits",
     "an initialised state"},
    {"rvtiFLCRead_JPEGXR_1u32u", "pSrc srcLen pSrcBitPos *pSrcBitPos=-5 nBits/[0,32] pValue",
     "the cursor, its position, the width"},
    {"rvtiFLCWrite_JPEGXR_32u1u", "nBits/[0,32] pDst dstLen pDstBitPos *pDstBitPos=-5",
     "the width, then the cursor"},
    {"rvtiVLCDecode(DC|LP)_JPEGXR_1u32s",
     "pSrc srcLen pSrcBitPos *pSrcBitPos=-5 pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) "
     "*pState=-5 pCoef",
     "the cursor with its position, an initialised state"},
    {"rvtiVLCEncode(DC|LP)_JPEGXR_32s1u",
     "pCoef pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) *pState=-5 pDst dstLen pDstBitPos "
     "*pDstBitPos=-5",
     "an initialised state, the cursor with its position"},
    {"rvtiVLCDecodeHP_JPEGXR_1u32s",
     "pSrc srcLen pSrcBitPos *pSrcBitPos=-5 pFlex? flexLen pFlexBitPos *pFlexBitPos=-5 "
     "trimFlexBits/[0,15] scanOrder/[0,1] pCBP pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) "
     "*pState=-5 pCoef",
     "a null pFlex puts the flexbits in the main cursor; its cursor is checked when set"},
    {"rvtiVLCEncodeHP_JPEGXR_32s1u",
     "pCoef scanOrder/[0,1] pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) *pState=-5 pCBP pDst "
     "dstLen pDstBitPos *pDstBitPos=-5 pFlex? flexLen pFlexBitPos *pFlexBitPos=-5 "
     "trimFlexBits/[0,15]",
     "a null pFlex puts the flexbits in the main cursor; its cursor is checked when set"},
    {"rvtiVLCDecodeCBPHP_JPEGXR_1u32s",
     "pSrc srcLen pSrcBitPos *pSrcBitPos=-5 pLeftCBP? pTopCBP? pState "
     "&pState=rvtiVLCInit_JPEGXR(0,1,@,65536) *pState=-5 pCBP",
     "the neighbours' patterns are null at the tile's edges"},
    {"rvtiVLCEncodeCBPHP_JPEGXR_32s1u",
     "pCBP pLeftCBP? pTopCBP? pState &pState=rvtiVLCInit_JPEGXR(0,1,@,65536) *pState=-5 pDst dstLen "
     "pDstBitPos *pDstBitPos=-5",
     "the neighbours' patterns are null at the tile's edges; the pattern's bits are checked last"},
    {"rvtiWTInv(Row|Col)Scaled_", "@3ptr @3step @roi ^pSrcLow:4 ^pSrcHigh:4",
     "the unscaled passes' checks; any float is a scale"},
};

// ------------------------------------------------------------ parameters

enum class Kind { kPtr, kPtrArray, kStepArray, kPtrPtr, kStep, kRoi, kLen, kScalar, kNone };

struct Param {
  std::string type, name;
  int extent = 0;  // array entries
  Kind kind = Kind::kScalar;
  bool is_int_ptr = false, is_rect = false;
};

std::vector<Param> ParseParams(std::string s) {
  std::vector<Param> out;
  s = s.substr(1, s.size() - 2);  // the parentheses
  std::stringstream ss(s);
  std::string item;
  while (std::getline(ss, item, ',')) {
    Param p;
    std::smatch m;
    std::string t = std::regex_replace(item, std::regex("\\s+"), " ");
    if (!std::regex_match(t, m, std::regex(" ?(.*?) ?(\\w+)(\\[(\\d+)\\])? ?"))) continue;
    p.type = m[1];
    p.name = m[2];
    if (p.type.empty() && p.name == "void") continue;
    if (m[4].matched) p.extent = std::stoi(m[4]);
    const auto stars = std::count(p.type.begin(), p.type.end(), '*');
    const bool step_name = std::regex_search(p.name, std::regex("[Ss]tep$"));
    if (p.extent > 0) {
      p.kind = stars > 0 ? Kind::kPtrArray : step_name ? Kind::kStepArray : Kind::kPtr;
    } else if (stars == 2) {
      p.kind = Kind::kPtrPtr;
    } else if (stars == 1) {
      p.kind = Kind::kPtr;
      // In/out counters and positions (not image planes of int32_t).
      p.is_int_ptr = std::regex_search(p.type, std::regex("\\bu?int(32_t)?\\b")) &&
                     std::regex_search(p.name, std::regex("Pos|Len|Size|Marker|Valid|Prefetched"));
      p.is_rect = p.type.find("ImageRect") != std::string::npos;
    } else if (p.type == "ImageSize") {
      p.kind = Kind::kRoi;
    } else if (step_name) {
      p.kind = Kind::kStep;
    } else if (std::regex_search(p.name, std::regex("[Ll]en|[Ww]idth|Rows"))) {
      p.kind = Kind::kLen;
    }
    out.push_back(p);
  }
  return out;
}

// ------------------------------------------------------------ checks

enum class Site { kNull, kEntries, kStep, kRoiW, kRoiH, kLen, kContent, kRange };

struct Check {
  int param;
  Site site;
  std::vector<int64_t> bad;  // values that must fail (for kEntries: per entry)
  RvtResult status;
  int64_t good = 0;          // a value that passes (scalars)
};

std::vector<int64_t> BadValues(const std::string& rule) {
  if (rule == "<0") return {-1, INT32_MIN};
  if (rule == "==0") return {0};
  if (rule == "<2") return {1, 0, -1, INT32_MIN};
  return {0, -1, INT32_MIN};
}
int64_t GoodValue(const std::string& rule, int64_t fallback) {
  return rule == "==0" ? -3 : fallback;  // a value only /==0 accepts beyond the usual
}

struct Token {
  std::string name, rule;
  bool entries = false, content = false, optional = false;
  int status = 1;  // 1: by kind
};

Token ParseToken(std::string t) {
  Token k;
  const auto eq = t.rfind('=');
  if (eq != std::string::npos && eq + 1 < t.size() && (t[eq + 1] == '-' || isdigit(t[eq + 1])) &&
      (eq == 0 || t[eq - 1] != '=')) {
    k.status = std::stoi(t.substr(eq + 1));
    t = t.substr(0, eq);
  }
  const auto slash = t.find('/');
  if (slash != std::string::npos) {
    k.rule = t.substr(slash + 1);
    t = t.substr(0, slash);
  }
  if (!t.empty() && t.back() == '?') k.optional = true, t.pop_back();
  if (t.size() > 2 && t.substr(t.size() - 2) == "[]") k.entries = true, t.resize(t.size() - 2);
  if (!t.empty() && t[0] == '*') k.content = true, t = t.substr(1);
  k.name = t;
  return k;
}

// The checks a parameter makes by its kind (token modifiers applied).
void AddChecks(const std::vector<Param>& ps, int i, const Token& t, std::vector<Check>* out) {
  const Param& p = ps[i];
  auto st = [&](RvtResult d) { return t.status == 1 ? d : RvtResult(t.status); };
  if (t.content) {
    if (p.is_rect) {
      out->push_back({i, Site::kContent, {0, -1, INT32_MIN}, st(rvtStatusSize)});
    } else {
      const std::vector<int64_t> bad = BadValues(t.rule.empty() ? "<0" : t.rule);
      const bool zero_bad = std::find(bad.begin(), bad.end(), 0) != bad.end();
      out->push_back({i, Site::kContent, bad, st(rvtStatusBadArg), zero_bad ? 16 : 0});
    }
    return;
  }
  if (t.optional) return;
  if (t.entries) {
    if (p.extent == 0) return;
    out->push_back({i, Site::kEntries, BadValues(t.rule),
                    st(p.kind == Kind::kStepArray ? rvtStatusStep : rvtStatusNullPtr)});
    return;
  }
  switch (p.kind) {
    case Kind::kPtr:
    case Kind::kPtrPtr:
    case Kind::kPtrArray:
    case Kind::kStepArray:
      out->push_back({i, Site::kNull, {0}, st(rvtStatusNullPtr)});
      break;
    case Kind::kStep:
      out->push_back({i, Site::kStep, BadValues(t.rule), st(rvtStatusStep), GoodValue(t.rule, 256)});
      break;
    case Kind::kRoi: {
      std::string w = "<1", h = "<1";
      if (!t.rule.empty()) {
        const auto c = t.rule.find(',');
        w = t.rule.substr(0, c), h = t.rule.substr(c + 1);
      }
      out->push_back({i, Site::kRoiW, BadValues(w), st(rvtStatusSize)});
      out->push_back({i, Site::kRoiH, BadValues(h), st(rvtStatusSize)});
      break;
    }
    case Kind::kLen:
      out->push_back({i, Site::kLen, BadValues(t.rule), st(rvtStatusSize), 16});
      break;
    case Kind::kScalar:
      if (!t.rule.empty() && t.rule[0] == '[') {
        int64_t lo = 0, hi = 0;
        sscanf(t.rule.c_str(), "[%ld,%ld]", &lo, &hi);
        out->push_back({i, Site::kRange, {lo - 1, hi + 1, INT32_MIN, INT32_MAX}, st(rvtStatusBadArg), lo});
      } else if (!t.rule.empty()) {
        out->push_back({i, Site::kLen, BadValues(t.rule), st(rvtStatusBadArg), 16});
      }
      break;
    default:
      break;
  }
}

struct Plan {
  std::vector<Check> checks;
  std::string error;  // a table row that does not fit the signature
  std::vector<std::pair<int, int>> margin_before;  // pointer, rows read before it
  std::vector<std::pair<int, std::string>> inits;  // object, the call that builds it
};

bool IsExport(const std::string& name);

Plan MakePlan(const std::string& name, const std::vector<Param>& ps) {
  Plan plan;
  const Family* row = nullptr;
  for (const Family& f : kFamilies) {
    if (std::regex_search(name, std::regex(f.pattern))) {
      row = &f;
      break;
    }
  }
  auto find = [&](const std::string& n) {
    for (size_t i = 0; i < ps.size(); ++i)
      if (ps[i].name == n) return int(i);
    return -1;
  };
  if (!row) {
    for (size_t i = 0; i < ps.size(); ++i) {
      Token t;
      t.name = ps[i].name;
      AddChecks(ps, int(i), t, &plan.checks);
      if (ps[i].kind == Kind::kPtrArray || ps[i].kind == Kind::kStepArray) {
        t.entries = true;
        AddChecks(ps, int(i), t, &plan.checks);
      }
    }
    return plan;
  }
  // Group tokens: @3ptr, @3step, @steps, @roi expand over the parameters
  // by kind, in argument order.
  std::vector<std::string> words;
  std::stringstream ss(row->order);
  for (std::string w; ss >> w;) {
    if (w == "@3ptr" || w == "@3step" || w == "@steps" || w == "@roi") {
      for (const Param& p : ps) {
        if ((w == "@3ptr" && p.kind == Kind::kPtr) ||
            ((w == "@3step" || w == "@steps") && p.kind == Kind::kStep) ||
            (w == "@roi" && p.kind == Kind::kRoi))
          words.push_back(p.name);
      }
    } else {
      words.push_back(w);
    }
  }
  std::vector<bool> named(ps.size(), false);
  for (const std::string& w : words) {
    if (w[0] == '&') {
      const auto eq = w.find('=');
      const int i = eq == std::string::npos ? -1 : find(w.substr(1, eq - 1));
      const bool known = eq != std::string::npos && IsExport(w.substr(eq + 1, w.find('(') - eq - 1));
      if (i < 0 || !known || w.back() != ')' || w.find('(') == std::string::npos)
        plan.error = "row '" + std::string(row->pattern) + "' has a bad builder '" + w + "'";
      else
        plan.inits.emplace_back(i, w.substr(eq + 1));
      continue;
    }
    if (w[0] == '^') {
      const auto colon = w.find(':');
      const int i = find(w.substr(1, colon - 1));
      if (i < 0 || colon == std::string::npos)
        plan.error = "row '" + std::string(row->pattern) + "' has a bad margin '" + w + "'";
      else
        plan.margin_before.emplace_back(i, std::stoi(w.substr(colon + 1)));
      continue;
    }
    const Token t = ParseToken(w);
    const int i = find(t.name);
    if (i < 0) {
      plan.error = "row '" + std::string(row->pattern) + "' names no parameter '" + t.name + "'";
      return plan;
    }
    named[i] = true;
    AddChecks(ps, i, t, &plan.checks);
  }
  for (size_t i = 0; i < ps.size(); ++i) {
    if (!named[i] && ps[i].kind != Kind::kScalar && ps[i].kind != Kind::kNone) {
      plan.error = "row '" + std::string(row->pattern) + "' leaves out parameter '" + ps[i].name + "'";
    }
  }
  return plan;
}

// ------------------------------------------------------------ arguments

// One argument as the invoker passes it.
struct Arg {
  void* ptr = nullptr;
  int64_t value = 0;
  ImageSize roi{8, 8};
};

constexpr size_t kBuf = 8192;

// The buffers of one call: every pointer argument points into one of them;
// all are sentinel-filled, so a snapshot shows any write.
struct Arena {
  std::vector<std::pair<std::unique_ptr<uint8_t[]>, size_t>> bufs;
  uint8_t* New(uint8_t seed, size_t size = kBuf) {
    bufs.emplace_back(new uint8_t[size], size);
    uint8_t* b = bufs.back().first.get();
    for (size_t k = 0; k < size; ++k) b[k] = uint8_t(0xA5 ^ (k * 31 + seed));
    return b;
  }
  std::vector<uint8_t> Snapshot() const {
    std::vector<uint8_t> s;
    for (const auto& [b, size] : bufs) s.insert(s.end(), b.get(), b.get() + size);
    return s;
  }
};

// Valid arguments: buffers for pointers (arrays of buffers for arrays),
// steps and lengths that pass, an 8x8 region, a 0..8 x 0..8 rectangle,
// in/out ints at 0, other scalars at their range's low end or 0.
struct Call {
  Arena arena;
  std::vector<Arg> args;
};

void RunInits(const Plan& plan, Call* c);

void Fill(const std::vector<Param>& ps, const Plan& plan, Call* c) {
  const std::vector<Check>& checks = plan.checks;
  c->args.assign(ps.size(), Arg{});
  for (size_t i = 0; i < ps.size(); ++i) {
    const Param& p = ps[i];
    Arg& a = c->args[i];
    switch (p.kind) {
      case Kind::kPtr:
      case Kind::kPtrPtr: {
        bool built = false;
        for (const auto& [param, fn] : plan.inits) built |= param == int(i);
        uint8_t* b = c->arena.New(uint8_t(i), built ? size_t(1) << 16 : kBuf);
        // A counter or position the export checks starts valid (0, or 16
        // where 0 is refused); the others keep the sentinel, so that any
        // write to them shows.
        for (const Check& k : checks) {
          if (k.param == int(i) && k.site == Site::kContent && !p.is_rect) {
            std::memset(b, 0, 8);
            const int32_t v = int32_t(k.good);
            std::memcpy(b, &v, 4);
          }
        }
        if (p.is_rect) {
          const ImageRect r{0, 0, 8, 8};
          std::memcpy(b, &r, sizeof r);
        }
        a.ptr = b;
        break;
      }
      case Kind::kPtrArray: {
        uint8_t* arr = c->arena.New(uint8_t(i));
        for (int k = 0; k < p.extent; ++k) {
          void* e = c->arena.New(uint8_t(i * 8 + k));
          std::memcpy(arr + k * sizeof(void*), &e, sizeof e);
        }
        a.ptr = arr;
        break;
      }
      case Kind::kStepArray: {
        uint8_t* arr = c->arena.New(uint8_t(i));
        for (int k = 0; k < p.extent; ++k) {
          const int32_t s = 256;
          std::memcpy(arr + 4 * k, &s, 4);
        }
        a.ptr = arr;
        break;
      }
      case Kind::kStep:
        a.value = 256;
        break;
      case Kind::kLen:
        a.value = 16;
        break;
      case Kind::kRoi:
        a.roi = {8, 8};
        break;
      default:
        a.value = 0;
        break;
    }
    for (const Check& k : checks) {
      if (k.param == int(i) &&
          (k.site == Site::kRange || k.site == Site::kLen || k.site == Site::kStep))
        a.value = k.good;
    }
  }
  RunInits(plan, c);
}

// Makes check k fail with its j-th bad value (false when it cannot: the
// pointer behind a content or entry check is already null).
bool Spoil(const std::vector<Param>& ps, const Check& k, size_t j, Call* c) {
  Arg& a = c->args[k.param];
  const int64_t v = k.bad[std::min(j, k.bad.size() - 1)];
  switch (k.site) {
    case Site::kNull:
      a.ptr = nullptr;
      return true;
    case Site::kEntries: {
      if (!a.ptr) return false;
      const Param& p = ps[k.param];
      const int entry = int(j % p.extent);
      if (p.kind == Kind::kStepArray) {
        const int32_t s = int32_t(k.bad[(j / p.extent) % k.bad.size()]);
        std::memcpy(static_cast<uint8_t*>(a.ptr) + 4 * entry, &s, 4);
      } else {
        void* none = nullptr;
        std::memcpy(static_cast<uint8_t*>(a.ptr) + entry * sizeof(void*), &none, sizeof none);
      }
      return true;
    }
    case Site::kStep:
    case Site::kLen:
    case Site::kRange:
      a.value = v;
      return true;
    case Site::kRoiW:
      a.roi.width = int32_t(v);
      return true;
    case Site::kRoiH:
      a.roi.height = int32_t(v);
      return true;
    case Site::kContent:
      if (!a.ptr) return false;
      if (ps[k.param].is_rect) {
        ImageRect r;
        std::memcpy(&r, a.ptr, sizeof r);
        (j % 2 ? r.height : r.width) = int32_t(v);
        std::memcpy(a.ptr, &r, sizeof r);
      } else {
        const int32_t x = int32_t(v);
        std::memcpy(a.ptr, &x, 4);
      }
      return true;
  }
  return false;
}

size_t Variants(const std::vector<Param>& ps, const Check& k) {
  if (k.site == Site::kEntries) return size_t(ps[k.param].extent) * (ps[k.param].kind == Kind::kStepArray ? k.bad.size() : 1);
  if (k.site == Site::kContent && ps[k.param].is_rect) return 2 * k.bad.size();
  return k.bad.size();
}

// ------------------------------------------------------------ invoking

template <class T>
T Conv(const Arg& a) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<T>(a.ptr);
  } else if constexpr (std::is_same_v<T, ImageSize>) {
    return a.roi;
  } else {
    return static_cast<T>(a.value);
  }
}

template <class Fn>
struct Invoke;
template <class R, class... A>
struct Invoke<R (*)(A...)> {
  template <size_t... I>
  static RvtResult Call(R (*fn)(A...), const std::vector<Arg>& v, std::index_sequence<I...>) {
    if constexpr (std::is_same_v<R, RvtResult>) {
      return fn(Conv<A>(v[I])...);
    } else {
      return rvtStatusOk;
    }
  }
  static RvtResult Run(R (*fn)(A...), const std::vector<Arg>& v) {
    return Call(fn, v, std::index_sequence_for<A...>{});
  }
};

using Caller = std::function<RvtResult(const std::vector<Arg>&)>;

struct Export {
  const char* name;
  const char* params;
  std::vector<std::pair<std::string, Caller>> entries;  // the export, then each target run here
};

template <class Fn>
std::vector<std::pair<std::string, Caller>> Entries(Fn exported, const Impl<Fn>& impl) {
  std::vector<std::pair<std::string, Caller>> out;
  out.emplace_back("export", [exported](const std::vector<Arg>& v) {
    return Invoke<Fn>::Run(exported, v);
  });
  const int host = LevelForFeatures(rvtGetEnabledCpuFeatures());
  for (int k = host; k < kNumLevels; ++k) {
    if (!impl.fn[k]) continue;
    Fn f = impl.fn[k];
    out.emplace_back(LevelName(k), [f](const std::vector<Arg>& v) { return Invoke<Fn>::Run(f, v); });
  }
  return out;
}

std::vector<Export> AllExports() {
  std::vector<Export> out;
#define RVT_EXPORT(name, ret, params) out.push_back({#name, #params, Entries(&::name, impl_##name)});
#define RVT_EXPORT_V2(name, ret, params)                                    \
  RVT_EXPORT(name, ret, params)                                             \
  for (auto& e : Entries(&::name, impl1_##name)) {                          \
    if (e.first != "export") out.back().entries.emplace_back("v1 " + e.first, e.second); \
  }
#include "frame/exports.inc"
#undef RVT_EXPORT
#undef RVT_EXPORT_V2
  return out;
}

const std::vector<Export>& Exports() {
  static const std::vector<Export> all = AllExports();
  return all;
}

bool IsExport(const std::string& name) {
  for (const Export& e : Exports())
    if (name == e.name) return true;
  return false;
}

// Builds the objects a row names with `&`: the builder's arguments are
// parsed from the row, `@` is the object's buffer.
void RunInits(const Plan& plan, Call* c) {
  for (const auto& [param, text] : plan.inits) {
    const auto open = text.find('(');
    const std::string fn = text.substr(0, open);
    std::vector<Arg> args;
    std::stringstream ss(text.substr(open + 1, text.size() - open - 2));
    for (std::string a; std::getline(ss, a, ',');) {
      Arg arg;
      if (a == "@") {
        arg.ptr = c->args[param].ptr;
      } else if (a.find('x') != std::string::npos) {
        arg.roi = {std::stoi(a), std::stoi(a.substr(a.find('x') + 1))};
      } else {
        arg.value = std::stoll(a);
      }
      args.push_back(arg);
    }
    for (const Export& e : Exports()) {
      if (fn == e.name) {
        const RvtResult st = e.entries.front().second(args);
        if (st != rvtStatusOk) std::fprintf(stderr, "builder %s: status %d\n", text.c_str(), st);
      }
    }
  }
}

// ------------------------------------------------------------ the matrix

std::string Describe(const std::vector<Param>& ps, const Check& k, size_t j) {
  static const char* const sites[] = {"null", "entry", "step", "roi.width", "roi.height",
                                      "length", "value behind", "range"};
  std::ostringstream o;
  o << ps[k.param].name << " " << sites[int(k.site)] << " (variant " << j << ")";
  return o.str();
}

// What a child process running one export's matrix leaves its parent: the
// case it is on (so a crash names it) and the first failure.
struct Report {
  char current[512];
  char failure[512];
};

void Put(char (&to)[512], const std::string& text) {
  std::snprintf(to, sizeof to, "%s", text.c_str());
}

// The matrix of one export; false at the first failure (reported).
bool RunMatrix(const Export& e, const std::vector<Param>& ps, const Plan& plan, Report* r) {
  for (size_t c = 0; c < plan.checks.size(); ++c) {
    const Check& k = plan.checks[c];
    for (size_t j = 0; j < Variants(ps, k); ++j) {
      for (int later = 0; later < 2; ++later) {
        Call call;
        Fill(ps, plan, &call);
        Spoil(ps, k, j, &call);
        if (later) {
          for (size_t d = c + 1; d < plan.checks.size(); ++d) Spoil(ps, plan.checks[d], 0, &call);
        }
        const std::vector<uint8_t> before = call.arena.Snapshot();
        for (const auto& [target, fn] : e.entries) {
          const std::string what = std::string(e.name) + " [" + target + "] " + Describe(ps, k, j) +
                                   (later ? ", every later check failing too" : "");
          Put(r->current, what);
          const RvtResult got = fn(call.args);
          const bool same = call.arena.Snapshot() == before;
          if (got != k.status || !same) {
            Put(r->failure, what + ": status " + std::to_string(got) + ", expected " +
                                std::to_string(k.status) + (same ? "" : "; it wrote to a buffer"));
            return false;
          }
        }
      }
    }
  }
  return true;
}

// Each export runs in a child process, so that a check that is missing
// (and lets a null pointer through) shows as that export's failure, named
// with its case, and every other export is still tried.
TEST(HostileArgs, EveryExportChecksInOrderAndWritesNothing) {
  auto* r = static_cast<Report*>(
      mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(r, MAP_FAILED);
  int exports = 0;
  for (const Export& e : AllExports()) {
    const std::vector<Param> ps = ParseParams(e.params);
    const Plan plan = MakePlan(e.name, ps);
    if (!plan.error.empty()) {
      ADD_FAILURE() << e.name << ": " << plan.error;
      continue;
    }
    if (plan.checks.empty()) continue;
    ++exports;
    std::memset(r, 0, sizeof *r);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) _exit(RunMatrix(e, ps, plan, r) ? 0 : 1);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status)) {
      ADD_FAILURE() << "crashed (signal " << WTERMSIG(status) << ") on " << r->current;
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      ADD_FAILURE() << (r->failure[0] ? r->failure : r->current);
    }
  }
  munmap(r, sizeof *r);
  EXPECT_GT(exports, 150);
}

// Tiles too large for any buffer the size query can describe: every export
// that takes an ImageRect refuses them (a wrapped 32-bit size would have
// the caller allocate too little) and writes nothing.
TEST(HostileArgs, HugeRectanglesAreRefused) {
  // (A side of 2^31 - 1 needs more than 2^32 bytes of line buffer even at
  // two bytes a sample; larger planes alone the in-place forms cannot know.)
  const ImageRect huge[] = {{0, 0, INT32_MAX, INT32_MAX}, {1, 1, INT32_MAX, 1},
                            {0, 0, 1, INT32_MAX}, {INT32_MAX, INT32_MAX, INT32_MAX, 2}};
  int exports = 0;
  for (const Export& e : AllExports()) {
    const std::vector<Param> ps = ParseParams(e.params);
    int rect = -1;
    for (size_t i = 0; i < ps.size(); ++i)
      if (ps[i].is_rect) rect = int(i);
    if (rect < 0) continue;
    ++exports;
    const Plan plan = MakePlan(e.name, ps);
    for (const ImageRect& r : huge) {
      Call call;
      Fill(ps, plan, &call);
      std::memcpy(call.args[rect].ptr, &r, sizeof r);
      const std::vector<uint8_t> before = call.arena.Snapshot();
      for (const auto& [target, fn] : e.entries) {
        EXPECT_EQ(fn(call.args), rvtStatusSize) << e.name << " [" << target << "] " << r.width << "x"
                                                << r.height;
        EXPECT_TRUE(call.arena.Snapshot() == before) << e.name << " wrote";
      }
    }
  }
  EXPECT_GT(exports, 0);
}

// Row offsets are 64-bit: steps near INT32_MAX over four rows put rows
// 2 GiB apart.  Every buffer is a lazily backed mapping large enough for
// twenty such rows (only the touched pages are ever backed), so
// an offset computed in 32 bits lands outside it and faults, and the
// sanitizers report the overflow itself.
TEST(HostileArgs, StepsNearInt32MaxReachTheirRows) {
  constexpr int64_t kHugeStep = 0x7FFFFF00;
  constexpr size_t kMap = size_t(kHugeStep) * 20 + (1u << 20);
  std::vector<void*> maps;
  auto map = [&] {
    void* p = mmap(nullptr, kMap, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                   -1, 0);
    if (p == MAP_FAILED) return static_cast<void*>(nullptr);
    maps.push_back(p);
    return p;
  };
  int exports = 0;
  for (const Export& e : AllExports()) {
    const std::vector<Param> ps = ParseParams(e.params);
    bool region = false;
    for (const Param& p : ps) region |= p.kind == Kind::kRoi;
    // The allocating exports have no rows to reach (and would leak here).
    if (!region || std::string(e.name).find("InitAlloc") != std::string::npos) continue;
    const Plan plan = MakePlan(e.name, ps);
    Call call;
    Fill(ps, plan, &call);
    bool mapped = true;
    for (size_t i = 0; i < ps.size() && mapped; ++i) {
      Arg& a = call.args[i];
      switch (ps[i].kind) {
        case Kind::kPtr:
          if (!ps[i].is_int_ptr && !ps[i].is_rect) mapped = (a.ptr = map()) != nullptr;
          for (const auto& [param, rows] : plan.margin_before)
            if (mapped && param == int(i)) a.ptr = static_cast<uint8_t*>(a.ptr) + kHugeStep * rows + 64;
          break;
        case Kind::kPtrArray:
          for (int k = 0; k < ps[i].extent && mapped; ++k) {
            void* m = map();
            mapped = m != nullptr;
            std::memcpy(static_cast<uint8_t*>(a.ptr) + k * sizeof(void*), &m, sizeof m);
          }
          break;
        case Kind::kStep:
          a.value = kHugeStep;
          break;
        case Kind::kRoi:
          a.roi = {16, 4};
          break;
        default:
          break;
      }
    }
    ASSERT_TRUE(mapped) << "no room for the mappings";
    RunInits(plan, &call);  // into the mapped objects
    ++exports;
    for (const auto& [target, fn] : e.entries) {
      const RvtResult st = fn(call.args);
      EXPECT_GE(st, 0) << e.name << " [" << target << "]";
    }
    for (void* m : maps) munmap(m, kMap);
    maps.clear();
  }
  EXPECT_GT(exports, 50);
}

// Every pointer of every export with an outright pointer check: the table
// cannot grow rows that silently drop them.
TEST(HostileArgs, TableRowsNameEveryPointer) {
  for (const Export& e : AllExports()) {
    const std::vector<Param> ps = ParseParams(e.params);
    EXPECT_EQ(MakePlan(e.name, ps).error, "") << e.name;
  }
  for (const Family& f : kFamilies) {
    bool used = false;
    for (const Export& e : AllExports()) used |= std::regex_search(e.name, std::regex(f.pattern));
    EXPECT_TRUE(used) << "row '" << f.pattern << "' matches no export";
  }
}

}  // namespace
}  // namespace rvt::test
