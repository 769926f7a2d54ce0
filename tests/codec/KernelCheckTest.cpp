// Every kernel with faster forms runs in each form, taken from a kernel table filled for
// that form, on the same random and extreme input: every form must give the plain form's
// bytes without writing outside its output. ZNDVR_CHECK_BENCH=1 also times the forms.
#include "KernelCheckSupport.h"

#include "codec/KernelTable.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

using namespace kernelcheck;

namespace {

class KernelCheck : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_forms = KernelForms();
        if (m_forms.size() < 2)
            GTEST_SKIP() << "this build has no SIMD forms to hold against the plain ones";
        m_nSeed = CheckSeed();
        std::printf("kernel check seed 0x%08X (set ZNDVR_CHECK_SEED to repeat)\n", m_nSeed);
    }

    // Runs run(table, output) for every form, each on a fresh output of nCount elements
    // between guard bytes: every output must equal the plain form's, and no form may
    // write outside its output.
    template <class T, class Run>
    void CheckForms(std::size_t nCount, Run run, const std::string& strCase)
    {
        std::vector<CGuarded<T>> outputs;
        for (const tag_KERNELFORM& form : m_forms) {
            outputs.emplace_back(nCount);
            run(form.table, outputs.back().Data());
        }
        for (std::size_t f = 0; f < m_forms.size(); ++f) {
            ASSERT_TRUE(outputs[f].GuardsIntact()) << m_forms[f].strName << " wrote outside its output, " << strCase;
            ASSERT_TRUE(outputs[f].SameAs(outputs[0])) << m_forms[f].strName << " differs from plain, " << strCase;
        }
    }

    std::vector<tag_KERNELFORM> m_forms;
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

std::string Describe(const Block& input)
{
    return "input starts " + std::to_string(input[0]) + ", " + std::to_string(input[1]);
}

// The work block that the forward transform leaves behind is compared as well.
TEST_F(KernelCheck, ForwardTransformFormsMatch)
{
    const std::vector<Block> blocks = CheckBlocks(m_nSeed);
    for (const Block& input : blocks) {
        CheckForms<short>(2 * BLOCK_SAMPLES, [&](const tag_KERNELTABLE& table, short* psOut) {
            std::memcpy(psOut, input.data(), sizeof input);
            table.pfnFDCTBlockMMX(psOut, psOut + BLOCK_SAMPLES);
        }, Describe(input));
        if (HasFatalFailure())
            return;
    }
    TimeForms("FDCTBlockMMX", m_forms, static_cast<long>(blocks.size()), [&](const tag_KERNELTABLE& table) {
        short work[BLOCK_SAMPLES], coeff[BLOCK_SAMPLES];
        for (const Block& input : blocks) {
            std::memcpy(work, input.data(), sizeof work);
            table.pfnFDCTBlockMMX(work, coeff);
        }
    });
}

TEST_F(KernelCheck, InverseTransformFormsMatch)
{
    const std::vector<Block> blocks = CheckBlocks(m_nSeed);
    for (const Block& input : blocks) {
        CheckForms<short>(BLOCK_SAMPLES, [&](const tag_KERNELTABLE& table, short* psOut) {
            table.pfnIDCTBlockMMX(input.data(), psOut);
        }, Describe(input));
        if (HasFatalFailure())
            return;
    }
    TimeForms("IDCTBlockMMX", m_forms, static_cast<long>(blocks.size()), [&](const tag_KERNELTABLE& table) {
        short block[BLOCK_SAMPLES];
        for (const Block& input : blocks)
            table.pfnIDCTBlockMMX(input.data(), block);
    });
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

class QuantiserCheck : public KernelCheck {
protected:
    // QuantBlock and DequantBlock on one block in every form.
    void CheckQuantiserForms(const short* psInput, int nQp, int nMode)
    {
        const std::string strCase = "Q " + std::to_string(nQp) + " mode " + std::to_string(nMode) +
                                    ", input starts " + std::to_string(psInput[0]) + ", " + std::to_string(psInput[1]);
        CheckForms<short>(BLOCK_SAMPLES, [&](const tag_KERNELTABLE& table, short* psOut) {
            table.pfnQuantBlock(psInput, psOut, nQp, nMode);
        }, "QuantBlock " + strCase);
        CheckForms<short>(BLOCK_SAMPLES, [&](const tag_KERNELTABLE& table, short* psOut) {
            table.pfnDequantBlock(psInput, psOut, nQp, nMode);
        }, "DequantBlock " + strCase);
    }
};

// Every 16-bit value once per Q and mode, 64 consecutive values to a block; the block's
// values are rotated by one more place each time so that they reach every lane.
TEST_F(QuantiserCheck, EveryValueMatches)
{
    std::vector<Block> blocks;
    for (int nBase = -32768; nBase <= 32767; nBase += BLOCK_SAMPLES) {
        const int nRotation = (nBase / BLOCK_SAMPLES) & (BLOCK_SAMPLES - 1);
        Block input;
        for (int k = 0; k < BLOCK_SAMPLES; ++k)
            input[k] = static_cast<short>(nBase + (k + nRotation) % BLOCK_SAMPLES);
        blocks.push_back(input);
    }
    for (int nQp = kFirstQp; nQp <= kLastQp; ++nQp) {
        for (int nMode : kModes) {
            for (const Block& input : blocks) {
                CheckQuantiserForms(input.data(), nQp, nMode);
                if (HasFatalFailure())
                    return;
            }
        }
    }
    TimeForms("QuantBlock", m_forms, static_cast<long>(blocks.size()), [&](const tag_KERNELTABLE& table) {
        short levels[BLOCK_SAMPLES];
        for (const Block& input : blocks)
            table.pfnQuantBlock(input.data(), levels, 8, QUANT_MODE_INTER);
    });
}

// The intra DC takes its own rule; every 16-bit value in that place, at both ends of Q.
TEST_F(QuantiserCheck, EveryIntraDCMatches)
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

TEST_F(QuantiserCheck, RandomAndExtremeBlocksMatch)
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
    TimeForms("DequantBlock", m_forms, static_cast<long>(blocks.size()), [&](const tag_KERNELTABLE& table) {
        short coeff[BLOCK_SAMPLES];
        for (const Block& input : blocks)
            table.pfnDequantBlock(input.data(), coeff, 8, QUANT_MODE_INTER);
    });
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

// Both transform forms of the macroblock quantiser: the levels, then the
// reconstruction from them.
TEST_F(KernelCheck, MacroblockQuantiserFormsMatch)
{
    CRandom random(m_nSeed);
    constexpr int kLevels = MB_BLOCKS * BLOCK_SAMPLES;
    std::vector<YUV_Block> macroblocks;
    for (int n = 0; n < 200; ++n)
        macroblocks.push_back(RandomMB(random, n % 2 ? -255 : 0, 255));
    for (std::size_t n = 0; n < macroblocks.size(); ++n) {
        const int nQp = random.Between(1, 31);
        const int nMode = n % 2 ? QUANT_MODE_INTER : QUANT_MODE_INTRA;
        CheckForms<short>(2 * kLevels, [&](const tag_KERNELTABLE& table, short* psOut) {
            table.pfnQuantMB(psOut, &macroblocks[n], nQp, nMode);
            table.pfnDequantMB(psOut, reinterpret_cast<YUV_Block*>(psOut + kLevels), nQp, nMode);
        }, "QuantMB, Q " + std::to_string(nQp));
        CheckForms<short>(2 * kLevels, [&](const tag_KERNELTABLE& table, short* psOut) {
            table.pfnQuantMBwithMMX(psOut, &macroblocks[n], nQp, nMode);
            table.pfnDequantMBwithMMX(psOut, reinterpret_cast<YUV_Block*>(psOut + kLevels), nQp, nMode);
        }, "QuantMBwithMMX, Q " + std::to_string(nQp));
        if (HasFatalFailure())
            return;
    }
    TimeForms("Quant+DequantMBwithMMX", m_forms, static_cast<long>(macroblocks.size()), [&](const tag_KERNELTABLE& table) {
        short levels[kLevels];
        YUV_Block recon;
        for (const YUV_Block& mb : macroblocks) {
            table.pfnQuantMBwithMMX(levels, &mb, 8, QUANT_MODE_INTRA);
            table.pfnDequantMBwithMMX(levels, &recon, 8, QUANT_MODE_INTRA);
        }
    });
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
        CheckForms<int>(1, [&](const tag_KERNELTABLE& table, int* pnOut) { *pnOut = table.pfnSADMB(&first, &second); },
                        "SADMB");
        if (HasFatalFailure())
            return;
    }
    EXPECT_EQ(m_forms.back().table.pfnSADMB(&low, &high), 65535 * MB_LUMA_SAMPLES);
    TimeForms("SADMB", m_forms, static_cast<long>(pairs.size()), [&](const tag_KERNELTABLE& table) {
        for (const auto& [first, second] : pairs)
            static_cast<void>(table.pfnSADMB(&first, &second));
    });
}

// The three planes of a picture one after the other, filled from a seed.
struct tag_PICTURE {
    int nWidth;
    int nHeight;
    std::size_t nLuma;

    std::size_t Bytes() const { return nLuma + nLuma / 2; }
    IMAGE Image(BYTE* pby) const { return {pby, pby + nLuma, pby + nLuma + nLuma / 4}; }
};

tag_PICTURE PictureOf(int nWidth, int nHeight)
{
    return {nWidth, nHeight, static_cast<std::size_t>(nWidth) * nHeight};
}

std::vector<BYTE> RandomBytes(CRandom& random, std::size_t nCount)
{
    std::vector<BYTE> bytes(nCount);
    for (BYTE& b : bytes)
        b = static_cast<BYTE>(random.Between(0, 255));
    return bytes;
}

TEST_F(KernelCheck, MacroblockStoresMatch)
{
    CRandom random(m_nSeed);
    constexpr int kCols = 4, kRows = 3;
    const tag_PICTURE picture = PictureOf(kCols * MB_LUMA_SIZE, kRows * MB_LUMA_SIZE);
    for (int nRow = 0; nRow < kRows; ++nRow) {
        for (int nCol = 0; nCol < kCols; ++nCol) {
            const YUV_Block values = RandomMB(random, -32768, 32767);
            CheckForms<BYTE>(picture.Bytes(), [&](const tag_KERNELTABLE& table, BYTE* pbyOut) {
                table.pfnPutMB(nCol, nRow, picture.Image(pbyOut), picture.nWidth, &values);
            }, "PutMB at " + std::to_string(nCol) + "," + std::to_string(nRow));
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_F(KernelCheck, ColourConversionMatchesOnEverySize)
{
    CRandom random(m_nSeed);
    for (int nWidth = 2; nWidth <= 66; nWidth += 2) {
        const int nHeight = 2 * random.Between(1, 4);
        const tag_PICTURE picture = PictureOf(nWidth, nHeight);
        std::vector<BYTE> planes = RandomBytes(random, picture.Bytes());
        CheckForms<BYTE>(picture.nLuma * 3, [&](const tag_KERNELTABLE& table, BYTE* pbyOut) {
            table.pfnYUVToRGB24(pbyOut, picture.Image(planes.data()), nWidth, nHeight);
        }, "YUVToRGB24 " + std::to_string(nWidth) + "x" + std::to_string(nHeight));
        if (HasFatalFailure())
            return;
    }
    const tag_PICTURE cif = PictureOf(352, 288);
    std::vector<BYTE> planes = RandomBytes(random, cif.Bytes());
    std::vector<BYTE> rgb(cif.nLuma * 3);
    TimeForms("YUVToRGB24 352x288", m_forms, 1, [&](const tag_KERNELTABLE& table) {
        table.pfnYUVToRGB24(rgb.data(), cif.Image(planes.data()), cif.nWidth, cif.nHeight);
    });
}

} // namespace
