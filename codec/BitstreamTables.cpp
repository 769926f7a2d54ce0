// The coefficient-layer code tables, built at compile time from one list of codes each,
// so that the writer's and the reader's forms cannot disagree.
#include "codec/BitstreamTables.h"

#include <cstddef>
#include <iterator>
#include <stdexcept>

namespace {

struct tag_TCOEFSOURCE {
    int nLast;
    int nRun;
    int nLevel;
    const char* strCode;
};

// TCOEF codes without their sign bit, ITU-T H.263 Table 16, in the table's order.
constexpr tag_TCOEFSOURCE kTCoefCodes[] = {
    {0, 0, 1, "10"},
    {0, 0, 2, "1111"},
    {0, 0, 3, "010101"},
    {0, 0, 4, "0010111"},
    {0, 0, 5, "00011111"},
    {0, 0, 6, "000100101"},
    {0, 0, 7, "000100100"},
    {0, 0, 8, "0000100001"},
    {0, 0, 9, "0000100000"},
    {0, 0, 10, "00000000111"},
    {0, 0, 11, "00000000110"},
    {0, 0, 12, "00000100000"},
    {0, 1, 1, "110"},
    {0, 1, 2, "010100"},
    {0, 1, 3, "00011110"},
    {0, 1, 4, "0000001111"},
    {0, 1, 5, "00000100001"},
    {0, 1, 6, "000001010000"},
    {0, 2, 1, "1110"},
    {0, 2, 2, "00011101"},
    {0, 2, 3, "0000001110"},
    {0, 2, 4, "000001010001"},
    {0, 3, 1, "01101"},
    {0, 3, 2, "000100011"},
    {0, 3, 3, "0000001101"},
    {0, 4, 1, "01100"},
    {0, 4, 2, "000100010"},
    {0, 4, 3, "000001010010"},
    {0, 5, 1, "01011"},
    {0, 5, 2, "0000001100"},
    {0, 5, 3, "000001010011"},
    {0, 6, 1, "010011"},
    {0, 6, 2, "0000001011"},
    {0, 6, 3, "000001010100"},
    {0, 7, 1, "010010"},
    {0, 7, 2, "0000001010"},
    {0, 8, 1, "010001"},
    {0, 8, 2, "0000001001"},
    {0, 9, 1, "010000"},
    {0, 9, 2, "0000001000"},
    {0, 10, 1, "0010110"},
    {0, 10, 2, "000001010101"},
    {0, 11, 1, "0010101"},
    {0, 12, 1, "0010100"},
    {0, 13, 1, "00011100"},
    {0, 14, 1, "00011011"},
    {0, 15, 1, "000100001"},
    {0, 16, 1, "000100000"},
    {0, 17, 1, "000011111"},
    {0, 18, 1, "000011110"},
    {0, 19, 1, "000011101"},
    {0, 20, 1, "000011100"},
    {0, 21, 1, "000011011"},
    {0, 22, 1, "000011010"},
    {0, 23, 1, "00000100010"},
    {0, 24, 1, "00000100011"},
    {0, 25, 1, "000001010110"},
    {0, 26, 1, "000001010111"},
    {1, 0, 1, "0111"},
    {1, 0, 2, "000011001"},
    {1, 0, 3, "00000000101"},
    {1, 1, 1, "001111"},
    {1, 1, 2, "00000000100"},
    {1, 2, 1, "001110"},
    {1, 3, 1, "001101"},
    {1, 4, 1, "001100"},
    {1, 5, 1, "0010011"},
    {1, 6, 1, "0010010"},
    {1, 7, 1, "0010001"},
    {1, 8, 1, "0010000"},
    {1, 9, 1, "00011010"},
    {1, 10, 1, "00011001"},
    {1, 11, 1, "00011000"},
    {1, 12, 1, "00010111"},
    {1, 13, 1, "00010110"},
    {1, 14, 1, "00010101"},
    {1, 15, 1, "00010100"},
    {1, 16, 1, "00010011"},
    {1, 17, 1, "000011000"},
    {1, 18, 1, "000010111"},
    {1, 19, 1, "000010110"},
    {1, 20, 1, "000010101"},
    {1, 21, 1, "000010100"},
    {1, 22, 1, "000010011"},
    {1, 23, 1, "000010010"},
    {1, 24, 1, "000010001"},
    {1, 25, 1, "0000000111"},
    {1, 26, 1, "0000000110"},
    {1, 27, 1, "0000000101"},
    {1, 28, 1, "0000000100"},
    {1, 29, 1, "00000100100"},
    {1, 30, 1, "00000100101"},
    {1, 31, 1, "00000100110"},
    {1, 32, 1, "00000100111"},
    {1, 33, 1, "000001011000"},
    {1, 34, 1, "000001011001"},
    {1, 35, 1, "000001011010"},
    {1, 36, 1, "000001011011"},
    {1, 37, 1, "000001011100"},
    {1, 38, 1, "000001011101"},
    {1, 39, 1, "000001011110"},
    {1, 40, 1, "000001011111"},
};
static_assert(std::size(kTCoefCodes) == 102, "TCOEF has 102 codes besides ESCAPE");

// CBPY codes, ITU-T H.263 Table 13, indexed by the intra column CBPY(I).
constexpr const char* kCBPYCodes[CBPY_VALUES] = {
    "0011",    // 0
    "00101",   // 1
    "00100",   // 2
    "1001",    // 3
    "00011",   // 4
    "0111",    // 5
    "000010",  // 6
    "1011",    // 7
    "00010",   // 8
    "000011",  // 9
    "0101",    // 10
    "1010",    // 11
    "0100",    // 12
    "1000",    // 13
    "0110",    // 14
    "11",      // 15
};

constexpr tag_VLCCODE ParseCode(const char* strCode)
{
    tag_VLCCODE vlc{0, 0};
    for (; *strCode != '\0'; ++strCode) {
        vlc.wCode = static_cast<WORD>((vlc.wCode << 1) | (*strCode - '0'));
        ++vlc.byLength;
    }
    return vlc;
}

using TCoefReadTable = std::array<tag_TCOEFENTRY, 1 << TCOEF_LOOKAHEAD_BITS>;

// The writer's cells; a triple beyond the table's range stops the compilation.
constexpr TCoefWriteTable BuildWriterTable()
{
    TCoefWriteTable table{};
    for (const tag_TCOEFSOURCE& src : kTCoefCodes) {
        if (src.nLast < 0 || src.nLast > 1 || src.nRun < 0 || src.nRun >= TCOEF_WRITE_RUNS || src.nLevel < 1 ||
            src.nLevel >= TCOEF_WRITE_LEVELS)
            throw std::logic_error("TCOEF triple outside the writer table");
        table[src.nLast][src.nRun][src.nLevel] = ParseCode(src.strCode);
    }
    return table;
}

// Fills every cell of the reader table whose bits begin with the code; a code that
// overlaps another stops the compilation.
constexpr void PlaceReaderCode(TCoefReadTable& table, tag_VLCCODE vlc, const tag_TCOEFENTRY& entry)
{
    const unsigned nFirst = static_cast<unsigned>(vlc.wCode) << (TCOEF_LOOKAHEAD_BITS - vlc.byLength);
    const unsigned nCount = 1u << (TCOEF_LOOKAHEAD_BITS - vlc.byLength);
    if (nFirst < TCOEF_LOWEST_CODE)
        throw std::logic_error("TCOEF code below the lowest code");
    for (unsigned n = nFirst; n < nFirst + nCount; ++n) {
        if (table[n].byLength != 0)
            throw std::logic_error("TCOEF codes overlap");
        table[n] = entry;
    }
}

constexpr TCoefReadTable BuildReaderTable()
{
    TCoefReadTable table{};
    for (const tag_TCOEFSOURCE& src : kTCoefCodes) {
        const tag_VLCCODE vlc = ParseCode(src.strCode);
        PlaceReaderCode(table, vlc, {static_cast<BYTE>(src.nLast), static_cast<BYTE>(src.nRun),
                                     static_cast<BYTE>(src.nLevel), vlc.byLength});
    }
    const tag_VLCCODE escape{TCOEF_ESCAPE_CODE, TCOEF_ESCAPE_LENGTH};
    PlaceReaderCode(table, escape, {0, 0, 0, escape.byLength});
    return table;
}

constexpr std::array<tag_VLCCODE, CBPY_VALUES> BuildCBPYCodes()
{
    std::array<tag_VLCCODE, CBPY_VALUES> codes{};
    for (int n = 0; n < CBPY_VALUES; ++n)
        codes[n] = ParseCode(kCBPYCodes[n]);
    return codes;
}

constexpr std::array<tag_CBPYENTRY, 1 << CBPY_LOOKAHEAD_BITS> BuildCBPYReader()
{
    std::array<tag_CBPYENTRY, 1 << CBPY_LOOKAHEAD_BITS> table{};
    for (int nIntra = 0; nIntra < CBPY_VALUES; ++nIntra) {
        const tag_VLCCODE vlc = ParseCode(kCBPYCodes[nIntra]);
        const int nSpan = 1 << (CBPY_LOOKAHEAD_BITS - vlc.byLength);
        for (int n = vlc.wCode * nSpan; n < (vlc.wCode + 1) * nSpan; ++n) {
            if (table[n].byLength != 0)
                throw std::logic_error("CBPY codes overlap");
            table[n] = {static_cast<BYTE>(nIntra), vlc.byLength};
        }
    }
    return table;
}

constexpr tag_VLCCODE kNoCode{0, 0};

} // namespace

constexpr TCoefWriteTable g_vlcTCoefWrite = BuildWriterTable();
constexpr TCoefReadTable g_tcoefRead = BuildReaderTable();
constexpr std::array<tag_VLCCODE, CBPY_VALUES> g_vlcCBPY = BuildCBPYCodes();
constexpr std::array<tag_CBPYENTRY, 1 << CBPY_LOOKAHEAD_BITS> g_cbpyRead = BuildCBPYReader();

tag_VLCCODE LookupTCoefCode(int nLast, int nRun, int nAbsLevel)
{
    if (nLast < 0 || nLast > 1 || nRun < 0 || nRun >= TCOEF_WRITE_RUNS || nAbsLevel < 1 ||
        nAbsLevel >= TCOEF_WRITE_LEVELS)
        return kNoCode;
    return g_vlcTCoefWrite[nLast][nRun][nAbsLevel];
}

const tag_TCOEFENTRY& LookupTCoefEntry(unsigned nNext12Bits)
{
    return g_tcoefRead[nNext12Bits & ((1u << TCOEF_LOOKAHEAD_BITS) - 1)];
}
