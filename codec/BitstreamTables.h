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
inline constexpr int TCOEF_ESCAPE_EVENT_BITS =
    TCOEF_ESCAPE_LENGTH + TCOEF_ESCAPE_LAST_BITS + TCOEF_ESCAPE_RUN_BITS + TCOEF_ESCAPE_LEVEL_BITS;
// The longest TCOEF code with its sign bit; the reader's lookahead.
inline constexpr int TCOEF_MAX_LENGTH_WITH_SIGN = 13;
inline constexpr int TCOEF_LOOKAHEAD_BITS = 12;

// The writer's table over (LAST, RUN, |LEVEL|), ITU-T H.263 Table 16: every triple with
// RUN below 64 and |LEVEL| below 13, the only ones that can have a code. The table's
// extent within that: LAST 0 with RUN 0 or 1 and |LEVEL| up to 12, RUN 2 to 26 and
// |LEVEL| up to 4; LAST 1 with RUN 0 or 1 and |LEVEL| up to 3, RUN 2 to 40 and |LEVEL| 1.
// A cell without a code has length 0, and the triple takes ESCAPE.
inline constexpr int TCOEF_WRITE_RUNS = 64;
inline constexpr int TCOEF_WRITE_LEVELS = 13;
using TCoefWriteTable = std::array<std::array<std::array<tag_VLCCODE, TCOEF_WRITE_LEVELS>, TCOEF_WRITE_RUNS>, 2>;
extern const TCoefWriteTable g_vlcTCoefWrite;

// The code of (nLast, nRun, nAbsLevel) without sign, or a code of length 0 when the
// triple has none and takes ESCAPE. Any arguments are safe.
tag_VLCCODE LookupTCoefCode(int nLast, int nRun, int nAbsLevel);

// One cell of the reader's TCOEF table. byLength is the code length without the sign
// bit; 0 means no code starts with these bits. byLevel 0 with a length marks ESCAPE.
struct tag_TCOEFENTRY {
    BYTE byLast;
    BYTE byRun;
    BYTE byLevel;
    BYTE byLength;
};

// The reader's table over the next 12 bits: every code, ESCAPE included, has at most 12
// bits, so one look-up finds it. Values below 8 (nine leading zeros) start no code.
inline constexpr unsigned TCOEF_LOWEST_CODE = 8;
extern const std::array<tag_TCOEFENTRY, 1 << TCOEF_LOOKAHEAD_BITS> g_tcoefRead;

// The entry for the next 12 bits (only the low 12 bits of the argument count).
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
