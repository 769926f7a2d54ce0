// The variable-length code tables of the picture records' coefficient layer, in the form
// each direction needs: the writer looks a (LAST, RUN, |LEVEL|) triple up and gets a code;
// the reader looks at the next 12 bits (TCOEF) or 6 bits (CBPY) and gets the triple and
// the code length. Both forms are built from one list of codes. The tables are constant
// and may be read from any thread.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/WinTypes.h"

#include <array>

// A code as the writer emits it, most significant bit first: the low byLength bits of
// wCode. byLength 0 marks a cell without a code. TCOEF codes are given without their
// sign bit.
struct tag_VLCCODE {
    WORD wCode;
    BYTE byLength;
};

// ESCAPE of the TCOEF table, then LAST (1 bit), RUN (6 bits), LEVEL (8 bits, two's
// complement).
inline constexpr WORD TCOEF_ESCAPE_CODE = 3;
inline constexpr int TCOEF_ESCAPE_LENGTH = 7;
inline constexpr int TCOEF_ESCAPE_LAST_BITS = 1;
inline constexpr int TCOEF_ESCAPE_RUN_BITS = 6;
inline constexpr int TCOEF_ESCAPE_LEVEL_BITS = 8;
// The longest TCOEF code with its sign bit; the reader's lookahead.
inline constexpr int TCOEF_MAX_LENGTH_WITH_SIGN = 13;
inline constexpr int TCOEF_LOOKAHEAD_BITS = 12;

// Writer extent of the TCOEF table (ITU-T H.263 Table 16). Cells inside a table's extent
// that the standard gives no code have length 0.
inline constexpr int TCOEF_LAST0_SHORT_RUNS = 2;       // LAST 0, RUN 0 and 1
inline constexpr int TCOEF_LAST0_SHORT_LEVELS = 13;    // |LEVEL| 0..12, 0 never coded
inline constexpr int TCOEF_LAST0_LONG_FIRST_RUN = 2;   // LAST 0, RUN 2 to 26
inline constexpr int TCOEF_LAST0_LONG_RUNS = 25;
inline constexpr int TCOEF_LAST0_LONG_LEVELS = 5;      // |LEVEL| 0..4
inline constexpr int TCOEF_LAST1_SHORT_RUNS = 2;       // LAST 1, RUN 0 and 1
inline constexpr int TCOEF_LAST1_SHORT_LEVELS = 4;     // |LEVEL| 0..3
inline constexpr int TCOEF_LAST1_LONG_FIRST_RUN = 2;   // LAST 1, RUN 2 to 41, |LEVEL| 1
inline constexpr int TCOEF_LAST1_LONG_RUNS = 40;

extern const std::array<std::array<tag_VLCCODE, TCOEF_LAST0_SHORT_LEVELS>, TCOEF_LAST0_SHORT_RUNS>
    g_vlcTCoefLast0Short;
extern const std::array<std::array<tag_VLCCODE, TCOEF_LAST0_LONG_LEVELS>, TCOEF_LAST0_LONG_RUNS>
    g_vlcTCoefLast0Long;   // indexed by RUN - 2
extern const std::array<std::array<tag_VLCCODE, TCOEF_LAST1_SHORT_LEVELS>, TCOEF_LAST1_SHORT_RUNS>
    g_vlcTCoefLast1Short;
extern const std::array<tag_VLCCODE, TCOEF_LAST1_LONG_RUNS> g_vlcTCoefLast1Long;   // by RUN - 2

// The code of (nLast, nRun, nAbsLevel) without sign, or a code of length 0 when the
// triple has none and takes ESCAPE. Any arguments are safe.
tag_VLCCODE LookupTCoefCode(int nLast, int nRun, int nAbsLevel);

// One cell of the reader's TCOEF tables. byLength is the code length without the sign
// bit; 0 means no code starts with these bits. byLevel 0 with a length marks ESCAPE.
struct tag_TCOEFENTRY {
    BYTE byLast;
    BYTE byRun;
    BYTE byLevel;
    BYTE byLength;
};

// The reader's three direct-lookup tables over the next 12 bits c:
// c >= 512 indexes g_tcoefRead7 by its top 7 bits (c >> 5);
// 128 <= c < 512 indexes g_tcoefRead10 by its top 10 bits (c >> 2);
// 8 <= c < 128 indexes g_tcoefRead12 by all 12 bits. c < 8 is no code.
inline constexpr unsigned TCOEF_READ7_FIRST = 512;
inline constexpr unsigned TCOEF_READ10_FIRST = 128;
inline constexpr unsigned TCOEF_READ12_FIRST = 8;
inline constexpr int TCOEF_READ_TABLE_SIZE = 128;

extern const std::array<tag_TCOEFENTRY, TCOEF_READ_TABLE_SIZE> g_tcoefRead7;
extern const std::array<tag_TCOEFENTRY, TCOEF_READ_TABLE_SIZE> g_tcoefRead10;
extern const std::array<tag_TCOEFENTRY, TCOEF_READ_TABLE_SIZE> g_tcoefRead12;

// The entry for the next 12 bits (only the low 12 bits of the argument count), choosing
// the table by range; an entry of length 0 when c < 8.
const tag_TCOEFENTRY& LookupTCoefEntry(unsigned nNext12Bits);

inline constexpr bool IsTCoefEscape(const tag_TCOEFENTRY& entry)
{
    return entry.byLength != 0 && entry.byLevel == 0;
}

// CBPY (ITU-T H.263 Table 13), indexed by the intra column CBPY(I): the pattern of luma
// blocks 0 to 3, block 0 in the most significant bit. An inter macroblock with luma
// pattern p uses index 15 - p (column CBPY(P)).
inline constexpr int CBPY_VALUES = 16;
inline constexpr int CBPY_LOOKAHEAD_BITS = 6;
extern const std::array<tag_VLCCODE, CBPY_VALUES> g_vlcCBPY;

// The reader's CBPY table over the next 6 bits: the intra column value and the code
// length; length 0 for 000000 and 000001, which start no code.
struct tag_CBPYENTRY {
    BYTE byIntra;
    BYTE byLength;
};
extern const std::array<tag_CBPYENTRY, 1 << CBPY_LOOKAHEAD_BITS> g_cbpyRead;

// Zig-zag scan of ITU-T H.263: g_byZigZagInverse[s] is the natural position (row * 8 +
// column) of scan index s; g_byZigZag[k] is the scan index of natural position k.
// Constant expressions, so that transforms can reorder with fixed offsets.
inline constexpr std::array<BYTE, 64> g_byZigZagInverse = {
     0,  1,  8, 16,  9,  2,  3, 10,
    17, 24, 32, 25, 18, 11,  4,  5,
    12, 19, 26, 33, 40, 48, 41, 34,
    27, 20, 13,  6,  7, 14, 21, 28,
    35, 42, 49, 56, 57, 50, 43, 36,
    29, 22, 15, 23, 30, 37, 44, 51,
    58, 59, 52, 45, 38, 31, 39, 46,
    53, 60, 61, 54, 47, 55, 62, 63,
};

inline constexpr std::array<BYTE, 64> g_byZigZag = [] {
    std::array<BYTE, 64> zigzag{};
    for (int nScan = 0; nScan < 64; ++nScan)
        zigzag[g_byZigZagInverse[nScan]] = static_cast<BYTE>(nScan);
    return zigzag;
}();
