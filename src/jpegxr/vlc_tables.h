// The adaptive variable-length codes of JPEG XR coefficient coding: the
// code tables of each alphabet, the context's table slots and the
// initial scan orders.  Shared by the coders, their tests and examples.
#ifndef RVT_JPEGXR_VLC_TABLES_H_
#define RVT_JPEGXR_VLC_TABLES_H_

#include <array>
#include <cstdint>

namespace rvt::vlc {

// One code word: its value in the low `len` bits.
struct Code {
  uint8_t code, len;
};

// The tables of one alphabet: `tables` of them (the 8-symbol alphabet
// lists two equal tables and only ever uses the first).
struct Alphabet {
  int symbols;
  int tables;
  Code code[5][12];
};

// Alphabets by size: 4, 5, 6, 7, 8, 9, 12 symbols.
inline constexpr Alphabet kAlpha4 = {4, 1, {{{1, 1}, {1, 2}, {0, 3}, {1, 3}}}};
inline constexpr Alphabet kAlpha5 = {
    5, 2, {{{1, 1}, {1, 2}, {1, 3}, {0, 4}, {1, 4}}, {{1, 1}, {0, 3}, {1, 3}, {2, 3}, {3, 3}}}};
inline constexpr Alphabet kAlpha6 = {6,
                                     4,
                                     {{{1, 1}, {0, 5}, {1, 3}, {1, 5}, {1, 2}, {1, 4}},
                                      {{1, 2}, {0, 4}, {2, 2}, {1, 4}, {3, 2}, {1, 3}},
                                      {{0, 4}, {1, 4}, {1, 2}, {2, 2}, {3, 2}, {1, 3}},
                                      {{0, 5}, {1, 5}, {1, 2}, {1, 1}, {1, 4}, {1, 3}}}};
inline constexpr Alphabet kAlpha7 = {
    7,
    2,
    {{{1, 2}, {2, 2}, {3, 2}, {1, 3}, {1, 4}, {0, 5}, {1, 5}},
     {{1, 1}, {1, 2}, {1, 3}, {1, 4}, {1, 5}, {0, 6}, {1, 6}}}};
inline constexpr Alphabet kAlpha8 = {
    8, 1, {{{2, 2}, {1, 3}, {1, 5}, {1, 4}, {3, 2}, {2, 3}, {0, 5}, {3, 3}}}};
inline constexpr Alphabet kAlpha9 = {
    9,
    2,
    {{{2, 3}, {0, 5}, {2, 4}, {1, 5}, {2, 5}, {1, 1}, {3, 3}, {3, 5}, {3, 4}},
     {{1, 1}, {1, 3}, {2, 3}, {1, 4}, {1, 6}, {3, 3}, {1, 5}, {0, 7}, {1, 7}}}};
inline constexpr Alphabet kAlpha12 = {
    12,
    5,
    {{{1, 5}, {1, 6}, {0, 7}, {1, 7}, {4, 5}, {2, 3}, {5, 5}, {1, 1}, {6, 5}, {1, 4}, {7, 5}, {3, 3}},
     {{2, 4}, {2, 5}, {0, 6}, {1, 6}, {3, 4}, {2, 3}, {3, 5}, {3, 2}, {3, 3}, {4, 3}, {1, 5}, {5, 3}},
     {{3, 2}, {1, 3}, {0, 7}, {1, 7}, {1, 5}, {2, 3}, {2, 7}, {3, 3}, {4, 3}, {5, 3}, {3, 7}, {1, 4}},
     {{1, 3}, {3, 2}, {0, 7}, {1, 5}, {2, 5}, {2, 3}, {1, 7}, {3, 3}, {3, 5}, {4, 3}, {1, 6}, {5, 3}},
     {{2, 3}, {1, 1}, {1, 7}, {1, 4}, {2, 7}, {3, 3}, {0, 8}, {2, 4}, {3, 7}, {3, 4}, {1, 8}, {1, 5}}}};

// The context's adaptive tables, in the order the state and the table
// query list them.
enum Slot : int {
  kRun = 0,          // significant run, 5 symbols
  kDcYuv,            // which of Y, U, V have a nonzero DC, 8 symbols
  kDcLevelLum,       // DC absolute level, 7 symbols
  kDcLevelChr,
  kLpFirst = 4,      // LP: first index lum, index lum, index lum after a
                     // continuous start, first index chr, index chr x2,
                     // level, level after a continuous start
  kHpFirst = 12,     // HP: the same eight
  kNumCbp = 20,      // HP coded-block-pattern tables (5 symbols; 9 for
  kNumBlkCbp = 21,   // colour, 5 otherwise)
  kSlots = 22
};
// Offsets inside the LP and HP groups.
enum BandSlot : int { kFirstLum = 0, kIndexLum = 1, kFirstChr = 3, kIndexChr = 4, kLevel = 6 };

inline const Alphabet& AlphabetOf(int symbols) {
  switch (symbols) {
    case 4: return kAlpha4;
    case 5: return kAlpha5;
    case 6: return kAlpha6;
    case 7: return kAlpha7;
    case 8: return kAlpha8;
    case 9: return kAlpha9;
    default: return kAlpha12;
  }
}

// Alphabet size of each slot; the last depends on the colour format.
inline int SlotSymbols(int slot, bool colour) {
  static constexpr int8_t kSizes[kSlots] = {5, 8, 7, 7, 12, 6, 6, 12, 6, 6, 7, 7,
                                            12, 6, 6, 12, 6, 6, 7, 7, 5, 9};
  if (slot == kNumBlkCbp && !colour) return 5;
  return kSizes[slot];
}

// Table index each slot starts from: the 6- and 12-symbol alphabets at 1.
inline int InitialTable(int symbols) { return (symbols == 6 || symbols == 12) ? 1 : 0; }

// Discriminants switch tables beyond +-8 and are kept within +-64.
constexpr int kSwitch = 8;
constexpr int kClamp = 64;

// Initial scan orders, positions of a 4x4 block as the photo core transform
// leaves its coefficients.
inline constexpr uint8_t kScanLowpass[16] = {0, 2, 8, 15, 1, 4, 12, 3, 7, 13, 5, 11, 14, 6, 9, 10};
inline constexpr uint8_t kScanHoriz[16] = {0, 2, 8, 15, 1, 4, 12, 3, 7, 13, 5, 11, 14, 6, 9, 10};
inline constexpr uint8_t kScanVert[16] = {0, 8, 4, 15, 2, 13, 3, 12, 1, 14, 7, 10, 11, 5, 9, 6};
// The order HP blocks of a 4x4 grid are coded in (2x2 quads); bit i of a
// coded pattern belongs to block kHpBlockOrder[i].
inline constexpr uint8_t kHpBlockOrder[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};
constexpr int kMaxTotal = 32;
// The order in which a block's model bits follow (LP and HP alike).
inline constexpr uint8_t kLowpassRefine[16] = {0, 2, 1, 7, 8, 15, 12, 11, 4, 3, 5, 6, 13, 14, 9, 10};

// Significant runs: the run's bin by the longest run possible (5..14),
// then per bin the run each symbol stands for and its extra bits.
inline int RunBin(int maxRun) { return maxRun >= 11 ? 0 : maxRun >= 7 ? 1 : 2; }
inline constexpr int8_t kRunBase[3][5] = {{1, 2, 3, 5, 7}, {1, 2, 3, 5, 7}, {1, 2, 3, 4, 5}};
inline constexpr int8_t kRunBits[3][5] = {{0, 0, 1, 1, 3}, {0, 0, 1, 1, 2}, {0, 0, 0, 0, 1}};

// Absolute levels (2 and up): symbols 0..5 give a base and extra bits,
// symbol 6 an escape.
inline constexpr int8_t kLevelBase[6] = {2, 3, 4, 6, 10, 14};
inline constexpr int8_t kLevelBits[6] = {0, 0, 1, 2, 2, 2};

// Model bits each band starts from.
inline constexpr int kModelStart[3] = {8, 4, 0};

}  // namespace rvt::vlc

#endif  // RVT_JPEGXR_VLC_TABLES_H_
