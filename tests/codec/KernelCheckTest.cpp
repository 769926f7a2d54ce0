// Every kernel with SIMD code runs in both forms on the same random and extreme input and
// must give the same bytes, without writing outside its output buffers.
#include "KernelCheckSupport.h"

#include "codec/KernelForms.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <vector>

using namespace kernelcheck;

namespace {

// Runs the kernel once with SIMD code disabled and once enabled, on fresh copies of the
// same input, and leaves the switch enabled.
template <class Run>
void RunBothForms(Run run)
{
    DisableSIMDKernels();
    run(false);
    EnableSIMDKernels();
    run(true);
}

class KernelCheck : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!HasSIMDKernels())
            GTEST_SKIP() << "this build has no SIMD kernels to hold against their plain forms";
        m_nSeed = CheckSeed();
        std::printf("kernel check seed 0x%08X (set ZNDVR_CHECK_SEED to repeat)\n", m_nSeed);
    }

    void TearDown() override { EnableSIMDKernels(); }

    std::uint32_t m_nSeed = 0;
};

using Block = std::array<short, BLOCK_SAMPLES>;

// Blocks a transform must survive: the extremes of 16 bits, alternating signs, DC only,
// and the largest coefficients a quantiser produces (Q 31, level 127).
std::vector<Block> ExtremeBlocks()
{
    std::vector<Block> blocks;
    const auto add = [&](auto fill) {
        Block block{};
        for (int k = 0; k < BLOCK_SAMPLES; ++k)
            block[k] = static_cast<short>(fill(k));
        blocks.push_back(block);
    };
    add([](int) { return 0; });
    add([](int) { return -32768; });
    add([](int) { return 32767; });
    add([](int k) { return (k + k / 8) % 2 ? 32767 : -32768; });
    add([](int k) { return k % 2 ? -32768 : 32767; });
    add([](int k) { return k == 0 ? 32767 : 0; });
    add([](int k) { return k == 0 ? -32768 : 0; });
    add([](int k) { return k == 0 ? 2032 : 0; });
    add([](int) { return 7905; });
    add([](int) { return -7905; });
    add([](int k) { return k % 2 ? -7905 : 7905; });
    add([](int k) { return (k + k / 8) % 2 ? 255 : 0; });
    add([](int) { return 255; });
    return blocks;
}

Block RandomBlock(CRandom& random, int nLow, int nHigh)
{
    Block block;
    for (short& n : block)
        n = static_cast<short>(random.Between(nLow, nHigh));
    return block;
}

// Random blocks over the ranges that occur (samples, differences, coefficients) and over
// all of 16 bits, then the extremes.
std::vector<Block> CheckBlocks(std::uint32_t nSeed)
{
    CRandom random(nSeed);
    std::vector<Block> blocks = ExtremeBlocks();
    const int ranges[][2] = {{0, 255}, {-255, 255}, {-7905, 7905}, {-32768, 32767}};
    for (const auto& range : ranges) {
        for (int n = 0; n < 500; ++n)
            blocks.push_back(RandomBlock(random, range[0], range[1]));
    }
    return blocks;
}

TEST_F(KernelCheck, ForwardTransformSSE2MatchesEmulation)
{
    for (const Block& input : CheckBlocks(m_nSeed)) {
        CGuarded<short> work[2] = {CGuarded<short>(BLOCK_SAMPLES), CGuarded<short>(BLOCK_SAMPLES)};
        CGuarded<short> coeff[2] = {CGuarded<short>(BLOCK_SAMPLES), CGuarded<short>(BLOCK_SAMPLES)};
        RunBothForms([&](bool bSimd) {
            std::memcpy(work[bSimd].Data(), input.data(), sizeof input);
            FDCTBlockMMX(work[bSimd].Data(), coeff[bSimd].Data());
        });
        ASSERT_TRUE(coeff[0].SameAs(coeff[1])) << "input starts " << input[0] << ", " << input[1];
        ASSERT_TRUE(coeff[1].GuardsIntact() && work[1].GuardsIntact());
    }
}

TEST_F(KernelCheck, InverseTransformSSE2MatchesEmulation)
{
    for (const Block& input : CheckBlocks(m_nSeed)) {
        CGuarded<short> output[2] = {CGuarded<short>(BLOCK_SAMPLES), CGuarded<short>(BLOCK_SAMPLES)};
        RunBothForms([&](bool bSimd) { IDCTBlockMMX(input.data(), output[bSimd].Data()); });
        ASSERT_TRUE(output[0].SameAs(output[1])) << "input starts " << input[0] << ", " << input[1];
        ASSERT_TRUE(output[1].GuardsIntact());
    }
}

Block RunForward(void (*pfnForward)(short*, short*), Block samples)
{
    Block coeff;
    pfnForward(samples.data(), coeff.data());
    return coeff;
}

Block RunInverse(void (*pfnInverse)(const short*, short*), const Block& coeff)
{
    Block samples;
    pfnInverse(coeff.data(), samples.data());
    return samples;
}

// Golden digests of every transform form over the extremes and a fixed set of random
// blocks: the SIMD forms must give these bits in the SSE2 build and in the portable
// build alike, on any processor, so the emulation is checked where no SSE2 exists.
std::uint64_t Digest(std::uint64_t nHash, const Block& block)
{
    for (short v : block) {
        nHash ^= static_cast<std::uint16_t>(v);
        nHash *= 0x100000001B3ull;
    }
    return nHash;
}

TEST(TransformDigests, EveryFormMatchesItsGoldenDigest)
{
    CRandom random(0xD1C0DE);
    std::uint64_t nHashes[4] = {0xCBF29CE484222325ull, 0xCBF29CE484222325ull, 0xCBF29CE484222325ull,
                                0xCBF29CE484222325ull};
    std::vector<Block> inputs = ExtremeBlocks();
    for (int n = 0; n < 1000; ++n) {
        const int nRange = n % 3 == 0 ? 32767 : n % 3 == 1 ? 7905 : 255;
        inputs.push_back(RandomBlock(random, -nRange - (nRange == 32767), nRange));
    }
    for (const Block& input : inputs) {
        nHashes[0] = Digest(nHashes[0], RunForward(FDCTBlock, input));
        nHashes[1] = Digest(nHashes[1], RunForward(FDCTBlockMMX, input));
        nHashes[2] = Digest(nHashes[2], RunInverse(IDCTBlock, input));
        nHashes[3] = Digest(nHashes[3], RunInverse(IDCTBlockMMX, input));
    }
    EXPECT_EQ(nHashes[0], 0x79BE22F68F7F1D5Eull) << "FDCTBlock";
    EXPECT_EQ(nHashes[1], 0xB7CC186CCEC7A15Dull) << "FDCTBlockMMX";
    EXPECT_EQ(nHashes[2], 0xA5B11BFE4EC8BF4Full) << "IDCTBlock";
    EXPECT_EQ(nHashes[3], 0x0A9095B8BC88A9C3ull) << "IDCTBlockMMX";
}

// The quantisers under test: every Q the twins serve, and the first beyond each end of
// their range, where the plain loop must take over.
constexpr int kFirstQp = 0;
constexpr int kLastQp = 32;
constexpr int kModes[] = {QUANT_MODE_INTRA, QUANT_MODE_INTER};

// Runs QuantBlock and DequantBlock on one block in both forms and compares the bytes.
void CheckQuantiserForms(const short* psInput, int nQp, int nMode)
{
    for (auto pfnKernel : {QuantBlock, DequantBlock}) {
        CGuarded<short> output[2] = {CGuarded<short>(BLOCK_SAMPLES), CGuarded<short>(BLOCK_SAMPLES)};
        RunBothForms([&](bool bSimd) { pfnKernel(psInput, output[bSimd].Data(), nQp, nMode); });
        ASSERT_TRUE(output[0].SameAs(output[1]))
            << (pfnKernel == QuantBlock ? "QuantBlock" : "DequantBlock") << " Q " << nQp << " mode " << nMode
            << ", input starts " << psInput[0] << ", " << psInput[1];
        ASSERT_TRUE(output[1].GuardsIntact());
    }
}

// Every 16-bit value once per Q and mode, 64 consecutive values to a block; the block's
// values are rotated by one more place each time so that they reach every lane.
TEST_F(KernelCheck, QuantiserTwinsMatchOnEveryValue)
{
    for (int nQp = kFirstQp; nQp <= kLastQp; ++nQp) {
        for (int nMode : kModes) {
            for (int nBase = -32768; nBase <= 32767; nBase += BLOCK_SAMPLES) {
                const int nRotation = (nBase / BLOCK_SAMPLES) & (BLOCK_SAMPLES - 1);
                Block input;
                for (int k = 0; k < BLOCK_SAMPLES; ++k)
                    input[k] = static_cast<short>(nBase + (k + nRotation) % BLOCK_SAMPLES);
                CheckQuantiserForms(input.data(), nQp, nMode);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

// The intra DC takes its own rule; every 16-bit value in that place, at both ends of Q.
TEST_F(KernelCheck, QuantiserTwinsMatchOnEveryIntraDC)
{
    for (int nQp : {1, 31}) {
        for (int nDC = -32768; nDC <= 32767; ++nDC) {
            Block input{};
            input[0] = static_cast<short>(nDC);
            CheckQuantiserForms(input.data(), nQp, QUANT_MODE_INTRA);
            if (HasFatalFailure())
                return;
        }
    }
}

// The largest levels a quantiser produces, which DequantBlock reconstructs.
std::vector<Block> LevelExtremes()
{
    std::vector<Block> blocks;
    const auto add = [&](auto fill) {
        Block block{};
        for (int k = 0; k < BLOCK_SAMPLES; ++k)
            block[k] = static_cast<short>(fill(k));
        blocks.push_back(block);
    };
    add([](int) { return QUANT_MAX_LEVEL; });
    add([](int) { return -QUANT_MAX_LEVEL; });
    add([](int k) { return k % 2 ? -QUANT_MAX_LEVEL : QUANT_MAX_LEVEL; });
    add([](int k) { return k == 0 ? INTRA_DC_MAX : QUANT_MAX_LEVEL; });
    add([](int k) { return k == 0 ? 255 : 0; });
    return blocks;
}

TEST_F(KernelCheck, QuantiserTwinsMatchOnRandomAndExtremeBlocks)
{
    std::vector<Block> blocks = CheckBlocks(m_nSeed);
    const std::vector<Block> levels = LevelExtremes();
    blocks.insert(blocks.end(), levels.begin(), levels.end());
    CRandom random(m_nSeed);
    for (int n = 0; n < 500; ++n)
        blocks.push_back(RandomBlock(random, -QUANT_MAX_LEVEL, QUANT_MAX_LEVEL));
    for (const Block& input : blocks) {
        for (int nQp = kFirstQp; nQp <= kLastQp; ++nQp) {
            for (int nMode : kModes) {
                CheckQuantiserForms(input.data(), nQp, nMode);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

YUV_Block RandomMB(CRandom& random, int nLow, int nHigh)
{
    YUV_Block mb;
    for (short& n : mb.Y)
        n = static_cast<short>(random.Between(nLow, nHigh));
    for (short& n : mb.U)
        n = static_cast<short>(random.Between(nLow, nHigh));
    for (short& n : mb.V)
        n = static_cast<short>(random.Between(nLow, nHigh));
    return mb;
}

TEST_F(KernelCheck, MacroblockQuantiserFormsMatch)
{
    CRandom random(m_nSeed);
    constexpr int kLevels = MB_BLOCKS * BLOCK_SAMPLES;
    for (int n = 0; n < 200; ++n) {
        const YUV_Block mb = RandomMB(random, n % 2 ? -255 : 0, 255);
        const int nQp = random.Between(1, 31);
        const int nMode = n % 2 ? QUANT_MODE_INTER : QUANT_MODE_INTRA;
        CGuarded<short> levels[2] = {CGuarded<short>(kLevels), CGuarded<short>(kLevels)};
        CGuarded<YUV_Block> recon[2] = {CGuarded<YUV_Block>(1), CGuarded<YUV_Block>(1)};
        RunBothForms([&](bool bSimd) {
            QuantMBwithMMX(levels[bSimd].Data(), &mb, nQp, nMode);
            DequantMBwithMMX(levels[bSimd].Data(), recon[bSimd].Data(), nQp, nMode);
        });
        ASSERT_TRUE(levels[0].SameAs(levels[1]));
        ASSERT_TRUE(recon[0].SameAs(recon[1]));
        ASSERT_TRUE(levels[1].GuardsIntact() && recon[1].GuardsIntact());
    }
}

TEST_F(KernelCheck, SumOfAbsoluteDifferencesMatches)
{
    CRandom random(m_nSeed);
    std::vector<std::pair<YUV_Block, YUV_Block>> pairs;
    for (int n = 0; n < 100; ++n)
        pairs.emplace_back(RandomMB(random, -32768, 32767), RandomMB(random, -32768, 32767));
    YUV_Block low, high;
    for (short* ps : {low.Y, low.U, low.V})
        std::fill(ps, ps + (ps == low.Y ? MB_LUMA_SAMPLES : MB_CHROMA_SAMPLES), short{-32768});
    for (short* ps : {high.Y, high.U, high.V})
        std::fill(ps, ps + (ps == high.Y ? MB_LUMA_SAMPLES : MB_CHROMA_SAMPLES), short{32767});
    pairs.emplace_back(low, high);
    pairs.emplace_back(high, low);
    for (const auto& [first, second] : pairs) {
        int nSum[2] = {};
        RunBothForms([&](bool bSimd) { nSum[bSimd] = SADMB(&first, &second); });
        ASSERT_EQ(nSum[0], nSum[1]);
    }
    EXPECT_EQ(SADMB(&low, &high), 65535 * MB_LUMA_SAMPLES);

}

// A picture whose three planes each sit between guard bytes.
struct CGuardedPicture {
    CGuardedPicture(int nWidth, int nHeight)
        : y(static_cast<std::size_t>(nWidth) * nHeight),
          u(static_cast<std::size_t>(nWidth / 2) * (nHeight / 2)),
          v(static_cast<std::size_t>(nWidth / 2) * (nHeight / 2))
    {
    }

    IMAGE Image() { return {y.Data(), u.Data(), v.Data()}; }
    bool GuardsIntact() const { return y.GuardsIntact() && u.GuardsIntact() && v.GuardsIntact(); }
    bool SameAs(CGuardedPicture& other) { return y.SameAs(other.y) && u.SameAs(other.u) && v.SameAs(other.v); }

    void Fill(CRandom& random)
    {
        for (auto* plane : {&y, &u, &v}) {
            for (std::size_t n = 0; n < plane->Count(); ++n)
                plane->Data()[n] = static_cast<BYTE>(random.Between(0, 255));
        }
    }

    CGuarded<BYTE> y, u, v;
};

TEST_F(KernelCheck, MacroblockStoresMatch)
{
    CRandom random(m_nSeed);
    constexpr int kCols = 4, kRows = 3;
    for (int nRow = 0; nRow < kRows; ++nRow) {
        for (int nCol = 0; nCol < kCols; ++nCol) {
            const YUV_Block values = RandomMB(random, -32768, 32767);
            CGuardedPicture target[2] = {CGuardedPicture(kCols * MB_LUMA_SIZE, kRows * MB_LUMA_SIZE),
                                         CGuardedPicture(kCols * MB_LUMA_SIZE, kRows * MB_LUMA_SIZE)};
            RunBothForms([&](bool bSimd) {
                PutMB(nCol, nRow, target[bSimd].Image(), kCols * MB_LUMA_SIZE, &values);
            });
            ASSERT_TRUE(target[0].SameAs(target[1]));
            ASSERT_TRUE(target[1].GuardsIntact());
        }
    }
}

TEST_F(KernelCheck, ColourConversionMatchesOnEverySize)
{
    CRandom random(m_nSeed);
    for (int nWidth = 2; nWidth <= 66; nWidth += 2) {
        const int nHeight = 2 * random.Between(1, 4);
        CGuardedPicture picture(nWidth, nHeight);
        picture.Fill(random);
        const std::size_t nBytes = static_cast<std::size_t>(nWidth) * nHeight * 3;
        CGuarded<BYTE> rgb[2] = {CGuarded<BYTE>(nBytes), CGuarded<BYTE>(nBytes)};
        RunBothForms([&](bool bSimd) { YUVToRGB24(rgb[bSimd].Data(), picture.Image(), nWidth, nHeight); });
        ASSERT_TRUE(rgb[0].SameAs(rgb[1])) << nWidth << "x" << nHeight;
        ASSERT_TRUE(rgb[1].GuardsIntact()) << nWidth << "x" << nHeight;
    }
}

} // namespace
