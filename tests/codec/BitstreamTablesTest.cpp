// The writer's and the reader's code tables agree entry for entry, and hold the codes of
// the coefficient layer.
#include "codec/BitstreamTables.h"

#include <gtest/gtest.h>

#include <set>
#include <tuple>

namespace {

// Every triple the writer can look up.
struct tag_TRIPLE {
    int nLast;
    int nRun;
    int nLevel;
};

std::vector<tag_TRIPLE> WriterExtent()
{
    std::vector<tag_TRIPLE> triples;
    for (int nRun = 0; nRun <= 26; ++nRun) {
        for (int nLevel = 1; nLevel <= (nRun < 2 ? 12 : 4); ++nLevel)
            triples.push_back({0, nRun, nLevel});
    }
    for (int nRun = 0; nRun <= 41; ++nRun) {
        for (int nLevel = 1; nLevel <= (nRun < 2 ? 3 : 1); ++nLevel)
            triples.push_back({1, nRun, nLevel});
    }
    return triples;
}

// The reader's entry for a code placed at the top of the 12-bit lookahead, with the
// bits after it all zeros or all ones.
const tag_TCOEFENTRY& ReadBack(const tag_VLCCODE& vlc, bool bOnesAfter)
{
    const unsigned nFree = TCOEF_LOOKAHEAD_BITS - vlc.byLength;
    const unsigned nFill = bOnesAfter ? (1u << nFree) - 1 : 0;
    return LookupTCoefEntry((static_cast<unsigned>(vlc.wCode) << nFree) | nFill);
}

TEST(TCoefTables, EveryWriterCodeReadsBackAsItsTriple)
{
    int nCodes = 0;
    for (const tag_TRIPLE& triple : WriterExtent()) {
        const tag_VLCCODE vlc = LookupTCoefCode(triple.nLast, triple.nRun, triple.nLevel);
        if (vlc.byLength == 0)
            continue;
        ++nCodes;
        ASSERT_LE(vlc.byLength + 1, TCOEF_MAX_LENGTH_WITH_SIGN);
        for (bool bOnes : {false, true}) {
            const tag_TCOEFENTRY& entry = ReadBack(vlc, bOnes);
            EXPECT_EQ(entry.byLength, vlc.byLength);
            EXPECT_EQ(std::tie(entry.byLast, entry.byRun, entry.byLevel),
                      std::tie(triple.nLast, triple.nRun, triple.nLevel))
                << "code " << vlc.wCode << "/" << int{vlc.byLength};
        }
    }
    EXPECT_EQ(nCodes, 102);
}

// Walks all 4096 values of the lookahead: every reader entry names a triple whose writer
// code is exactly the leading bits, or ESCAPE; values below 8 have no code.
TEST(TCoefTables, EveryReaderEntryIsTheWritersCode)
{
    std::set<std::tuple<int, int, int>> seen;
    int nEscapes = 0;
    for (unsigned c = 0; c < (1u << TCOEF_LOOKAHEAD_BITS); ++c) {
        const tag_TCOEFENTRY& entry = LookupTCoefEntry(c);
        if (c < TCOEF_LOWEST_CODE) {
            EXPECT_EQ(entry.byLength, 0) << c;
            continue;
        }
        ASSERT_NE(entry.byLength, 0) << "no code for " << c;
        const unsigned nLeading = c >> (TCOEF_LOOKAHEAD_BITS - entry.byLength);
        if (IsTCoefEscape(entry)) {
            EXPECT_EQ(entry.byLength, TCOEF_ESCAPE_LENGTH);
            EXPECT_EQ(nLeading, TCOEF_ESCAPE_CODE);
            ++nEscapes;
            continue;
        }
        const tag_VLCCODE vlc = LookupTCoefCode(entry.byLast, entry.byRun, entry.byLevel);
        EXPECT_EQ(vlc.byLength, entry.byLength) << c;
        EXPECT_EQ(vlc.wCode, nLeading) << c;
        seen.insert({entry.byLast, entry.byRun, entry.byLevel});
    }
    EXPECT_EQ(seen.size(), 102u);
    EXPECT_EQ(nEscapes, 1 << (TCOEF_LOOKAHEAD_BITS - TCOEF_ESCAPE_LENGTH));
}

// The last entries of each run and level, the first ones beyond, and codes known by value.
TEST(TCoefTables, ExtentEndsAndKnownCodes)
{
    const struct {
        int nLast, nRun, nLevel, nCode, nLength;
    } rows[] = {{0, 0, 12, 0b00000100000, 11}, {0, 0, 13, 0, 0},  {0, 1, 6, -1, 12},  {0, 1, 7, 0, 0},
                {0, 26, 1, -1, 12},            {0, 26, 4, 0, 0},  {0, 27, 1, 0, 0},   {1, 1, 2, -1, 11},
                {1, 1, 3, 0, 0},               {1, 40, 1, 0b000001011111, 12},        {1, 41, 1, 0, 0},
                {1, 2, 2, 0, 0},               {0, 0, 0, 0, 0},   {0, -1, 1, 0, 0},   {2, 0, 1, 0, 0},
                {0, 64, 1, 0, 0},              {1, 0, -1, 0, 0},  {0, 0, 1, 0b10, 2}, {0, 1, 1, 0b110, 3},
                {1, 0, 1, 0b0111, 4}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.nLast << "/" << row.nRun << "/" << row.nLevel);
        const tag_VLCCODE vlc = LookupTCoefCode(row.nLast, row.nRun, row.nLevel);
        EXPECT_EQ(vlc.byLength, row.nLength);
        if (row.nCode >= 0 && row.nLength > 0) {
            EXPECT_EQ(vlc.wCode, row.nCode);
        }
    }
}

TEST(CBPYTables, ReaderAndWriterAgree)
{
    for (int nIntra = 0; nIntra < CBPY_VALUES; ++nIntra) {
        const tag_VLCCODE vlc = g_vlcCBPY[nIntra];
        ASSERT_GE(vlc.byLength, 2);
        ASSERT_LE(vlc.byLength, CBPY_LOOKAHEAD_BITS);
        const int nFree = CBPY_LOOKAHEAD_BITS - vlc.byLength;
        for (int nTail = 0; nTail < (1 << nFree); ++nTail) {
            const tag_CBPYENTRY& entry = g_cbpyRead[(vlc.wCode << nFree) | nTail];
            EXPECT_EQ(entry.byIntra, nIntra);
            EXPECT_EQ(entry.byLength, vlc.byLength);
        }
    }
    int nEmpty = 0;
    for (const tag_CBPYENTRY& entry : g_cbpyRead)
        nEmpty += entry.byLength == 0;
    EXPECT_EQ(nEmpty, 2);
    EXPECT_EQ(g_cbpyRead[0].byLength, 0);
    EXPECT_EQ(g_cbpyRead[1].byLength, 0);
}

TEST(CBPYTables, KnownCodes)
{
    for (const auto& [nIntra, nCode, nLength] : {std::tuple{0, 0b0011, 4}, {15, 0b11, 2}, {6, 0b000010, 6}}) {
        EXPECT_EQ(g_vlcCBPY[nIntra].wCode, nCode) << nIntra;
        EXPECT_EQ(g_vlcCBPY[nIntra].byLength, nLength) << nIntra;
    }
    // Inter pattern 0 (all luma blocks empty) is intra index 15.
    EXPECT_EQ(g_cbpyRead[0b110000].byIntra, 15);
}

TEST(ZigZag, OrderAndInverse)
{
    const int begin[] = {0, 1, 5, 6, 14, 15, 27, 28, 2, 4, 7, 13, 16, 26, 29, 42};
    const int end[] = {35, 36, 48, 49, 57, 58, 62, 63};
    for (int k = 0; k < 16; ++k)
        EXPECT_EQ(g_byZigZag[k], begin[k]) << k;
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(g_byZigZag[56 + k], end[k]) << k;
    for (int k = 0; k < 64; ++k)
        EXPECT_EQ(g_byZigZagInverse[g_byZigZag[k]], k);
}

} // namespace
