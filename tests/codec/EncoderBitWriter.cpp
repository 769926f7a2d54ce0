// The block writer: table codes with their sign bit, ESCAPE wherever the table has no
// entry, the late writing of LAST, and words that split across the accumulator.
#include "EncoderTestSupport.h"

#include <gtest/gtest.h>

#include <utility>

using namespace codec_test;

namespace {

class BitWriter : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(encoder.Create(16, 16, STREAM_REVISION_20020114, 0)); }

    // The bits of one block written alone, as a string of '0' and '1'.
    std::string BlockBits(std::initializer_list<std::pair<int, int>> levels, BOOL bInter)
    {
        short sLevel[6 * 64] = {};
        for (const auto& [nPos, nLevel] : levels)
            sLevel[64 + nPos] = static_cast<short>(nLevel);   // block 1, to prove the block offset
        encoder.InitBitWriter();
        encoder.EncodeDCTCoeff(bInter, sLevel, 1, 64);
        return WrittenBits();
    }

    std::string WrittenBits()
    {
        const int nBits = encoder.m_nBitLen * 8 + encoder.m_nBitsHeld;
        encoder.AlignBits();
        std::string str;
        for (int i = 0; i < nBits; ++i)
            str += (encoder.m_pBitBuffer[i / 8] >> (7 - i % 8)) & 1 ? '1' : '0';
        return str;
    }

    CTestEncoder encoder;
};

const std::string kEscape = "0000011";

} // namespace

TEST_F(BitWriter, EventsOutsideTheTableTakeEscape)
{
    // Run 26 with |level| 4 has no code; the last event (run 36, level 1) has one.
    EXPECT_EQ(BlockBits({{26, 4}, {63, 1}}, TRUE),
              kEscape + "0" + Bits(26, 6) + Bits(4, 8) + "000001011011" + "0");
    // Run 0 with |level| 13 is beyond the table; |level| 12 is its last entry.
    EXPECT_EQ(BlockBits({{0, 13}, {1, 1}}, TRUE), kEscape + "0" + Bits(0, 6) + Bits(13, 8) + "0111" "0");
    EXPECT_EQ(BlockBits({{0, 12}, {1, -1}}, TRUE), "00000100000" "0" "0111" "1");
    // A level of -127 travels in two's complement.
    EXPECT_EQ(BlockBits({{0, -127}}, TRUE), kEscape + "1" + Bits(0, 6) + Bits(129, 8));
    // LAST 1 codes exist only up to |level| 3 at run 0.
    EXPECT_EQ(BlockBits({{5, 3}}, TRUE), kEscape + "1" + Bits(5, 6) + Bits(3, 8));
    EXPECT_EQ(BlockBits({{0, 3}}, TRUE), "00000000101" "0");
}

TEST_F(BitWriter, IntraBlockWritesDcThenEventsFromPositionOne)
{
    // DC 128 travels as 255; the held event at position 63 goes out with LAST 1.
    EXPECT_EQ(BlockBits({{0, 128}, {63, 2}}, FALSE), Bits(255, 8) + kEscape + "1" + Bits(62, 6) + Bits(2, 8));
    EXPECT_EQ(BlockBits({{0, 100}}, FALSE), Bits(100, 8));
    EXPECT_EQ(BlockBits({{0, 7}, {1, -1}, {3, 2}}, FALSE), Bits(7, 8) + "10" "1" + "00000000100" "0");
}

TEST_F(BitWriter, InterBlockStartsAtPositionZero)
{
    EXPECT_EQ(BlockBits({{0, 1}, {2, 1}, {5, -2}}, TRUE), "10" "0" "110" "0" + kEscape + "1" + Bits(2, 6) + Bits(254, 8));
}

TEST_F(BitWriter, WordsSplitAcrossTheAccumulator)
{
    encoder.InitBitWriter();
    encoder.PutBits(13, 0x1ABC);
    encoder.PutBits(16, 0xF00D);
    encoder.PutBits(1, 1);
    encoder.PutBits(7, 0x55);
    EXPECT_EQ(encoder.m_nBitLen, 4);
    EXPECT_EQ(WrittenBits(), Bits(0x1ABC, 13) + Bits(0xF00D, 16) + "1" + Bits(0x55, 7));
    EXPECT_EQ(encoder.m_nBitLen, 6);
}
