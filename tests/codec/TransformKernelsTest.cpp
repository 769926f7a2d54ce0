// The transforms and the quantiser: held against a floating-point DCT, scalar against
// SIMD form, and on the values that the picture format pins down.
#include "KernelCheckSupport.h"

#include "codec/BitstreamTables.h"
#include "codec/TransformKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

using namespace kernelcheck;

namespace {

using Block = std::array<short, BLOCK_SAMPLES>;
using RealBlock = std::array<double, BLOCK_SAMPLES>;

double Basis(int nFreq, int nPos)
{
    const double dScale = nFreq == 0 ? std::sqrt(1.0 / 8) : std::sqrt(2.0 / 8);
    return dScale * std::cos((2 * nPos + 1) * nFreq * std::numbers::pi / 16);
}

// Orthonormal 2-D DCT-II of a natural-order block, natural-order result.
RealBlock RealForward(const Block& samples)
{
    RealBlock coeff{};
    for (int u = 0; u < 8; ++u) {
        for (int v = 0; v < 8; ++v) {
            double dSum = 0;
            for (int r = 0; r < 8; ++r) {
                for (int c = 0; c < 8; ++c)
                    dSum += samples[8 * r + c] * Basis(u, r) * Basis(v, c);
            }
            coeff[8 * u + v] = dSum;
        }
    }
    return coeff;
}

RealBlock RealInverse(const Block& natural)
{
    RealBlock samples{};
    for (int r = 0; r < 8; ++r) {
        for (int c = 0; c < 8; ++c) {
            double dSum = 0;
            for (int u = 0; u < 8; ++u) {
                for (int v = 0; v < 8; ++v)
                    dSum += natural[8 * u + v] * Basis(u, r) * Basis(v, c);
            }
            samples[8 * r + c] = dSum;
        }
    }
    return samples;
}

Block ToNatural(const Block& scan)
{
    Block natural;
    for (int k = 0; k < BLOCK_SAMPLES; ++k)
        natural[k] = scan[g_byZigZag[k]];
    return natural;
}

using Forward = void (*)(short*, short*);
using Inverse = void (*)(const short*, short*);

Block RunForward(Forward pfn, Block samples)
{
    Block coeff;
    pfn(samples.data(), coeff.data());
    return coeff;
}

Block RunInverse(Inverse pfn, const Block& coeff)
{
    Block samples;
    pfn(coeff.data(), samples.data());
    return samples;
}

// Picture-like blocks: a gradient through the block plus noise, within 0..255.
Block OrdinaryBlock(CRandom& random)
{
    const int nBase = random.Between(0, 255);
    const int nSlopeX = random.Between(-12, 12), nSlopeY = random.Between(-12, 12);
    const int nNoise = random.Between(0, 20);
    Block block;
    for (int k = 0; k < BLOCK_SAMPLES; ++k) {
        const int v = nBase + nSlopeX * (k % 8 - 4) + nSlopeY * (k / 8 - 4) + random.Between(-nNoise, nNoise);
        block[k] = static_cast<short>(std::clamp(v, 0, 255));
    }
    return block;
}

// Coefficients as a decoder meets them: an ordinary block through transform, quantiser
// and inverse quantiser.
Block OrdinaryCoefficients(CRandom& random, int nQp, int nMode)
{
    const Block coeff = RunForward(FDCTBlock, OrdinaryBlock(random));
    Block levels, dequantised;
    QuantBlock(coeff.data(), levels.data(), nQp, nMode);
    DequantBlock(levels.data(), dequantised.data(), nQp, nMode);
    return dequantised;
}

class TransformAnchor : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { m_random = CRandom(CheckSeed()); }
    CRandom m_random{0};
};

Forward ForwardOf(bool bMMX)
{
    return bMMX ? FDCTBlockMMX : FDCTBlock;
}

Inverse InverseOf(bool bMMX)
{
    return bMMX ? IDCTBlockMMX : IDCTBlock;
}

TEST_P(TransformAnchor, ForwardStaysCloseToRealDCT)
{
    for (int n = 0; n < 300; ++n) {
        const Block samples = n % 2 ? OrdinaryBlock(m_random) : [&] {
            Block b;
            for (short& v : b)
                v = static_cast<short>(m_random.Between(-255, 255));
            return b;
        }();
        const RealBlock expected = RealForward(samples);
        const Block actual = ToNatural(RunForward(ForwardOf(GetParam()), samples));
        for (int k = 0; k < BLOCK_SAMPLES; ++k)
            ASSERT_NEAR(actual[k], expected[k], 2.0) << "coefficient " << k;
    }
}

TEST_P(TransformAnchor, InverseStaysCloseToRealDCT)
{
    for (int n = 0; n < 300; ++n) {
        const Block coeff = OrdinaryCoefficients(m_random, m_random.Between(1, 31), n % 2);
        const RealBlock expected = RealInverse(ToNatural(coeff));
        const Block actual = RunInverse(InverseOf(GetParam()), coeff);
        for (int k = 0; k < BLOCK_SAMPLES; ++k)
            ASSERT_NEAR(actual[k], expected[k], 1.5) << "sample " << k;
    }
}

TEST_P(TransformAnchor, RoundTripReturnsTheSamples)
{
    for (int n = 0; n < 300; ++n) {
        const Block samples = OrdinaryBlock(m_random);
        const Block back = RunInverse(InverseOf(GetParam()), RunForward(ForwardOf(GetParam()), samples));
        for (int k = 0; k < BLOCK_SAMPLES; ++k)
            ASSERT_NEAR(back[k], samples[k], 2) << "sample " << k;
    }
}

TEST_P(TransformAnchor, ZeroBlockStaysZero)
{
    const Block zero{};
    EXPECT_EQ(RunForward(ForwardOf(GetParam()), zero), zero);
    EXPECT_EQ(RunInverse(InverseOf(GetParam()), zero), zero);
}

INSTANTIATE_TEST_SUITE_P(ScalarAndMMX, TransformAnchor, ::testing::Values(false, true),
                         [](const auto& param) { return param.param ? "MMX" : "Scalar"; });

// Scalar and SIMD forms differ by one on a few samples of ordinary data; a wrong step in either form shows as larger or more frequent differences.
// The inverse, which makes the pictures, stays within one. The forward SIMD form takes
// the DC without rounding, so a forward coefficient, nearly always the DC, differs by two
// about once in a million.
TEST(TransformForms, ScalarAndMMXStayCloseOnOrdinaryData)
{
    CRandom random(CheckSeed());
    int nSamples = 0, nDifferent = 0, nForwardByTwo = 0;
    for (int n = 0; n < 2000; ++n) {
        const Block samples = OrdinaryBlock(random);
        const Block forward[2] = {RunForward(FDCTBlock, samples), RunForward(FDCTBlockMMX, samples)};
        const Block coeff = OrdinaryCoefficients(random, random.Between(1, 31), n % 2);
        const Block inverse[2] = {RunInverse(IDCTBlock, coeff), RunInverse(IDCTBlockMMX, coeff)};
        for (int k = 0; k < BLOCK_SAMPLES; ++k) {
            ASSERT_LE(std::abs(forward[0][k] - forward[1][k]), 2);
            ASSERT_LE(std::abs(inverse[0][k] - inverse[1][k]), 1);
            nForwardByTwo += std::abs(forward[0][k] - forward[1][k]) == 2;
            nDifferent += (forward[0][k] != forward[1][k]) + (inverse[0][k] != inverse[1][k]);
            nSamples += 2;
        }
    }
    EXPECT_LE(nForwardByTwo, 2);
    EXPECT_LT(nDifferent * 50, nSamples) << nDifferent << " of " << nSamples << " samples differ";
}

// A constant block of 255: DC 2039, quantised 254, reconstructed from 2032 to 254.
TEST(TransformForms, ConstantBlockOf255ReconstructsTo254)
{
    Block samples;
    samples.fill(255);
    const Block coeff = RunForward(FDCTBlock, samples);
    EXPECT_EQ(coeff[0], 2039);
    EXPECT_TRUE(std::all_of(coeff.begin() + 1, coeff.end(), [](short v) { return v == 0; }));
    Block levels, dequantised;
    QuantBlock(coeff.data(), levels.data(), 10, QUANT_MODE_INTRA);
    EXPECT_EQ(levels[0], 254);
    DequantBlock(levels.data(), dequantised.data(), 10, QUANT_MODE_INTRA);
    EXPECT_EQ(dequantised[0], 2032);
    for (bool bMMX : {false, true}) {
        const Block back = RunInverse(InverseOf(bMMX), dequantised);
        EXPECT_TRUE(std::all_of(back.begin(), back.end(), [](short v) { return v == 254; })) << bMMX;
    }
}

TEST(TransformForms, ConstantBlockTransformsToDCOnly)
{
    for (int v : {-255, -1, 1, 100, 128}) {
        Block samples;
        samples.fill(static_cast<short>(v));
        for (bool bMMX : {false, true}) {
            const Block coeff = RunForward(ForwardOf(bMMX), samples);
            EXPECT_NEAR(coeff[0], 8 * v, 1) << v;
            EXPECT_TRUE(std::all_of(coeff.begin() + 1, coeff.end(), [](short c) { return c == 0; })) << v;
        }
    }
}

// The intra DC is clamped to 1..254 whatever the Q; the extremes of a short clip to
// +-127 (the exhaustive test below leaves -32768 to the intra DC only).
TEST(Quantiser, IntraDCAndExtremeLevels)
{
    const struct {
        int nPos, nCoeff, nQp, nMode, nLevel;
    } rows[] = {{0, 0, 5, QUANT_MODE_INTRA, 1},      {0, 7, 5, QUANT_MODE_INTRA, 1},
                {0, -100, 5, QUANT_MODE_INTRA, 1},   {0, 8, 5, QUANT_MODE_INTRA, 1},
                {0, 16, 5, QUANT_MODE_INTRA, 2},     {0, 2039, 5, QUANT_MODE_INTRA, 254},
                {0, 2047, 5, QUANT_MODE_INTRA, 254}, {0, 32767, 5, QUANT_MODE_INTRA, 254},
                {5, -32768, 5, QUANT_MODE_INTRA, -127}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "position " << row.nPos << " value " << row.nCoeff);
        Block coeff{}, levels;
        coeff[static_cast<std::size_t>(row.nPos)] = static_cast<short>(row.nCoeff);
        QuantBlock(coeff.data(), levels.data(), row.nQp, row.nMode);
        EXPECT_EQ(levels[static_cast<std::size_t>(row.nPos)], row.nLevel);
    }
}

// Every coefficient value under every Q a picture can carry, and some beyond, against
// plain truncating division.
TEST(Quantiser, MatchesPlainDivisionForEveryCoefficient)
{
    const auto expectedLevel = [](int c, int q, int nMode) {
        const long nMagnitude = nMode == QUANT_MODE_INTRA ? std::abs(c) / (2L * q) : (std::abs(c) - q / 2) / (2L * q);
        return static_cast<int>(std::clamp(c < 0 ? -nMagnitude : nMagnitude, -127L, 127L));
    };
    std::vector<int> qps;
    for (int q = 1; q <= 255; q += q < 40 ? 1 : 17)
        qps.push_back(q);
    for (int q : {256, 32767, 32768, 1 << 20, -1, -31})
        qps.push_back(q);
    for (int q : qps) {
        for (int nMode : {QUANT_MODE_INTRA, QUANT_MODE_INTER}) {
            Block coeff, levels;
            for (int nBase = -32768; nBase <= 32767; nBase += BLOCK_SAMPLES) {
                for (int k = 0; k < BLOCK_SAMPLES; ++k)
                    coeff[k] = static_cast<short>(nBase + k);
                QuantBlock(coeff.data(), levels.data(), q, nMode);
                for (int k = nMode == QUANT_MODE_INTRA ? 1 : 0; k < BLOCK_SAMPLES; ++k)
                    ASSERT_EQ(levels[k], expectedLevel(coeff[k], q, nMode)) << "c " << coeff[k] << " Q " << q;
            }
        }
    }
}

// Inter levels dequantise to (2|L| + 1) Q, less one for an even Q; the intra DC to 8L.
TEST(Quantiser, DequantisesByTheRuleOfOddAndEvenQ)
{
    const struct {
        int nPos, nLevel, nQp, nMode, nCoeff;
    } rows[] = {{1, 127, 31, QUANT_MODE_INTER, 7905},    {2, -127, 31, QUANT_MODE_INTER, -7905},
                {3, 1, 31, QUANT_MODE_INTER, 93},        {0, 0, 31, QUANT_MODE_INTER, 0},
                {3, 1, 10, QUANT_MODE_INTER, 29},        {1, 127, 10, QUANT_MODE_INTER, 10 * 255 - 1},
                {0, 128, 7, QUANT_MODE_INTRA, 1024},     {1, 2, 7, QUANT_MODE_INTRA, 35}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "position " << row.nPos << " level " << row.nLevel << " Q " << row.nQp);
        Block levels{}, coeff;
        levels[static_cast<std::size_t>(row.nPos)] = static_cast<short>(row.nLevel);
        DequantBlock(levels.data(), coeff.data(), row.nQp, row.nMode);
        EXPECT_EQ(coeff[static_cast<std::size_t>(row.nPos)], row.nCoeff);
    }
}

TEST(Quantiser, QZeroCopiesTheBlock)
{
    Block input, output;
    for (int k = 0; k < BLOCK_SAMPLES; ++k)
        input[k] = static_cast<short>(k * 517 - 16000);
    for (int nMode : {QUANT_MODE_INTRA, QUANT_MODE_INTER}) {
        QuantBlock(input.data(), output.data(), 0, nMode);
        EXPECT_EQ(output, input);
        DequantBlock(input.data(), output.data(), 0, nMode);
        EXPECT_EQ(output, input);
    }
}

// Each block of a macroblock quantises from, and reconstructs into, its own place:
// luma upper left, upper right, lower left, lower right, then U and V.
TEST(MacroblockQuantiser, BlocksKeepTheirPlaces)
{
    const short values[MB_BLOCKS] = {16, 48, 80, 112, 144, 176};
    YUV_Block mb;
    for (int r = 0; r < 16; ++r) {
        for (int c = 0; c < 16; ++c)
            mb.Y[16 * r + c] = values[2 * (r / 8) + c / 8];
    }
    std::fill(std::begin(mb.U), std::end(mb.U), values[4]);
    std::fill(std::begin(mb.V), std::end(mb.V), values[5]);
    constexpr int kQp = 4;
    for (bool bMMX : {false, true}) {
        short levels[MB_BLOCKS * BLOCK_SAMPLES];
        (bMMX ? QuantMBwithMMX : QuantMB)(levels, &mb, kQp, QUANT_MODE_INTRA);
        YUV_Block back;
        (bMMX ? DequantMBwithMMX : DequantMB)(levels, &back, kQp, QUANT_MODE_INTRA);
        for (int b = 0; b < MB_BLOCKS; ++b) {
            Block constant, level, coeff;
            constant.fill(values[b]);
            QuantBlock(RunForward(ForwardOf(bMMX), constant).data(), level.data(), kQp, QUANT_MODE_INTRA);
            ASSERT_TRUE(std::equal(level.begin(), level.end(), levels + BLOCK_SAMPLES * b)) << "block " << b;
            DequantBlock(level.data(), coeff.data(), kQp, QUANT_MODE_INTRA);
            const short nSample = RunInverse(InverseOf(bMMX), coeff)[0];
            const short* psPlace = b < 4 ? back.Y + 128 * (b / 2) + 8 * (b % 2) : b == 4 ? back.U : back.V;
            const int nStride = b < 4 ? 16 : 8;
            for (int k = 0; k < BLOCK_SAMPLES; ++k)
                ASSERT_EQ(psPlace[nStride * (k / 8) + k % 8], nSample) << "block " << b << " sample " << k;
        }
    }
}

} // namespace
