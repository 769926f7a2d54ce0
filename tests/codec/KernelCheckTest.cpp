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
        m_forms = GetKernelForms();
        if (m_forms.size() < 2)
            GTEST_SKIP() << "this build has no SIMD forms to hold against the plain ones";
        m_nSeed = CheckSeed();
        std::printf("kernel check seed 0x%08X (set ZNDVR_CHECK_SEED to repeat)\n", m_nSeed);
    }

    // Runs run(table, output) for every form, each on a fresh output of nCount elements
    // between guard bytes: every output must equal the plain form's, and no form may
    // write outside its output.
public:
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

protected:
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

// Both transforms on runs of one to six blocks, the counts that the encoder and decoder
// transform at once, taken in turn from the check blocks, so that every block reaches
// both halves of a wide form; timed six blocks at a time, as a macroblock.
TEST_F(KernelCheck, TransformFormsMatch)
{
    const std::vector<Block> blocks = CheckBlocks(m_nSeed);
    for (const bool bForward : {true, false}) {
        const auto transform = [bForward](const tag_KERNELTABLE& table, short* const* ppsBlocks, int nBlocks) {
            (bForward ? table.pfnFDCTMMX : table.pfnIDCTMMX)(ppsBlocks, nBlocks);
        };
        std::size_t nNext = 0;
        for (int nRun = 0; nNext < blocks.size(); ++nRun) {
            const int nBlocks = 1 + nRun % MB_BLOCKS;
            std::vector<short> input(static_cast<std::size_t>(nBlocks) * BLOCK_SAMPLES);
            for (int b = 0; b < nBlocks; ++b, ++nNext)
                std::memcpy(&input[BLOCK_SAMPLES * b], blocks[nNext % blocks.size()].data(), sizeof(Block));
            CheckForms<short>(input.size(), [&](const tag_KERNELTABLE& table, short* psOut) {
                std::memcpy(psOut, input.data(), input.size() * sizeof(short));
                short* apsBlocks[MB_BLOCKS];
                for (int b = 0; b < nBlocks; ++b)
                    apsBlocks[b] = psOut + BLOCK_SAMPLES * b;
                transform(table, apsBlocks, nBlocks);
            }, (bForward ? "FDCTMMX, " : "IDCTMMX, ") + std::to_string(nBlocks) + " blocks, " + Describe(blocks[nNext - nBlocks]));
            if (HasFatalFailure())
                return;
        }
        const long nMacroblocks = static_cast<long>(blocks.size() / MB_BLOCKS);
        std::vector<Block> work = blocks;   // transformed again and again, in place
        TimeForms(bForward ? "FDCTMMX" : "IDCTMMX", m_forms, nMacroblocks * MB_BLOCKS, [&](const tag_KERNELTABLE& table) {
            for (long n = 0; n < nMacroblocks; ++n) {
                short* apsBlocks[MB_BLOCKS];
                for (int b = 0; b < MB_BLOCKS; ++b)
                    apsBlocks[b] = work[static_cast<std::size_t>(n * MB_BLOCKS + b)].data();
                transform(table, apsBlocks, MB_BLOCKS);
            }
        });
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

// Sparse blocks, full ones, and values that a narrowing to bytes would saturate.
TEST_F(KernelCheck, NonZeroMasksMatch)
{
    std::vector<Block> blocks = CheckBlocks(m_nSeed);
    CRandom random(m_nSeed);
    for (int n = 0; n < 500; ++n) {
        Block block{};
        for (int k = random.Between(0, 8); k > 0; --k)
            block[random.Between(0, BLOCK_SAMPLES - 1)] = static_cast<short>(random.Between(-3, 3) * 256 + random.Between(-1, 1));
        blocks.push_back(block);
    }
    for (const Block& input : blocks) {
        CheckForms<std::uint64_t>(1, [&](const tag_KERNELTABLE& table, std::uint64_t* pqwOut) {
            *pqwOut = table.pfnNonZeroMask(input.data());
        }, Describe(input));
        if (HasFatalFailure())
            return;
    }
    std::uint64_t qwSum = 0;
    TimeForms("NonZeroMask", m_forms, static_cast<long>(blocks.size()), [&](const tag_KERNELTABLE& table) {
        for (const Block& input : blocks)
            qwSum += table.pfnNonZeroMask(input.data());
    });
}

// The three planes of a picture one after the other.
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

// Random bytes, with runs of 0 and 255 so that sums and differences reach their ends.
std::vector<BYTE> RandomBytes(CRandom& random, std::size_t nCount)
{
    std::vector<BYTE> bytes(nCount);
    for (std::size_t n = 0; n < nCount; ++n) {
        const int nKind = random.Between(0, 9);
        bytes[n] = static_cast<BYTE>(nKind == 0 ? 0 : nKind == 1 ? 255 : random.Between(0, 255));
    }
    return bytes;
}

class MacroblockCheck : public KernelCheck {
protected:
    static constexpr int kCols = 3;
    static constexpr int kRows = 2;
    static constexpr int kBlockValues = MB_BLOCKS * BLOCK_SAMPLES;

    void SetUp() override
    {
        KernelCheck::SetUp();
        CRandom random(m_nSeed);
        m_current = RandomBytes(random, m_picture.Bytes());
        m_reference = RandomBytes(random, m_picture.Bytes());
    }

    // Blocks of 16-bit values: differences, sums that wrap, and values beyond 0..255.
    std::vector<short> RandomBlocks(CRandom& random) const
    {
        std::vector<short> blocks(kBlockValues);
        const int nRange = random.Between(0, 2);
        for (short& n : blocks)
            n = static_cast<short>(nRange == 0 ? random.Between(-300, 300) : nRange == 1 ? random.Between(-32768, 32767)
                                                                                          : random.Between(-255, 255));
        return blocks;
    }

    const tag_PICTURE m_picture = PictureOf(kCols * MB_LUMA_SIZE, kRows * MB_LUMA_SIZE);
    std::vector<BYTE> m_current;
    std::vector<BYTE> m_reference;
};

TEST_F(MacroblockCheck, LoadsMatchAtEveryPlace)
{
    for (int nRow = 0; nRow < kRows; ++nRow) {
        for (int nCol = 0; nCol < kCols; ++nCol) {
            const std::string strPlace = " at " + std::to_string(nCol) + "," + std::to_string(nRow);
            CheckForms<short>(kBlockValues, [&](const tag_KERNELTABLE& table, short* psOut) {
                table.pfnLoadMB(m_picture.Image(m_current.data()), nCol, nRow, m_picture.nWidth, psOut);
            }, "LoadMB" + strPlace);
            CheckForms<short>(kBlockValues, [&](const tag_KERNELTABLE& table, short* psOut) {
                table.pfnLoadDifferenceMB(m_picture.Image(m_current.data()), m_picture.Image(m_reference.data()), nCol,
                                          nRow, m_picture.nWidth, psOut);
            }, "LoadDifferenceMB" + strPlace);
            if (HasFatalFailure())
                return;
        }
    }
    short blocks[kBlockValues];
    TimeForms("LoadDifferenceMB", m_forms, kCols * kRows, [&](const tag_KERNELTABLE& table) {
        for (int i = 0; i < kCols * kRows; ++i)
            table.pfnLoadDifferenceMB(m_picture.Image(m_current.data()), m_picture.Image(m_reference.data()), i % kCols,
                                      i / kCols, m_picture.nWidth, blocks);
    });
}

// Stores into a copy of the reference: with every pattern, into the reference itself
// and into other planes.
TEST_F(MacroblockCheck, StoresMatchAtEveryPlaceAndPattern)
{
    CRandom random(m_nSeed);
    for (int nPattern = 0; nPattern < 64; ++nPattern) {
        const std::vector<short> blocks = RandomBlocks(random);
        const int nCol = nPattern % kCols;
        const int nRow = nPattern / kCols % kRows;
        const std::string strCase = " at " + std::to_string(nCol) + "," + std::to_string(nRow) + ", pattern " +
                                    std::to_string(nPattern);
        CheckForms<BYTE>(m_picture.Bytes(), [&](const tag_KERNELTABLE& table, BYTE* pbyOut) {
            table.pfnStoreMB(blocks.data(), m_picture.Image(pbyOut), nCol, nRow, m_picture.nWidth);
        }, "StoreMB" + strCase);
        CheckForms<BYTE>(m_picture.Bytes(), [&](const tag_KERNELTABLE& table, BYTE* pbyOut) {
            std::memcpy(pbyOut, m_reference.data(), m_reference.size());
            table.pfnStoreSumMB(blocks.data(), nPattern, m_picture.Image(pbyOut), m_picture.Image(pbyOut), nCol, nRow,
                                m_picture.nWidth);
        }, "StoreSumMB in place" + strCase);
        CheckForms<BYTE>(m_picture.Bytes(), [&](const tag_KERNELTABLE& table, BYTE* pbyOut) {
            table.pfnStoreSumMB(blocks.data(), nPattern, m_picture.Image(m_reference.data()), m_picture.Image(pbyOut),
                                nCol, nRow, m_picture.nWidth);
        }, "StoreSumMB elsewhere" + strCase);
        if (HasFatalFailure())
            return;
    }
    const std::vector<short> blocks = RandomBlocks(random);
    std::vector<BYTE> target(m_picture.Bytes());
    TimeForms("StoreSumMB", m_forms, kCols * kRows, [&](const tag_KERNELTABLE& table) {
        for (int i = 0; i < kCols * kRows; ++i)
            table.pfnStoreSumMB(blocks.data(), 63, m_picture.Image(m_reference.data()), m_picture.Image(target.data()),
                                i % kCols, i / kCols, m_picture.nWidth);
    });
}

TEST_F(MacroblockCheck, SumsOfAbsoluteDifferencesMatch)
{
    const std::vector<BYTE> zeros(m_picture.Bytes(), 0);
    const std::vector<BYTE> full(m_picture.Bytes(), 255);
    const std::vector<BYTE>* pictures[][2] = {{&m_current, &m_reference}, {&zeros, &full}, {&full, &m_current}};
    for (const auto& pair : pictures) {
        for (int i = 0; i < kCols * kRows; ++i) {
            const std::ptrdiff_t nOffset = (i / kCols) * MB_LUMA_SIZE * m_picture.nWidth + (i % kCols) * MB_LUMA_SIZE;
            CheckForms<int>(1, [&](const tag_KERNELTABLE& table, int* pnOut) {
                *pnOut = table.pfnSADLuma(pair[0]->data() + nOffset, pair[1]->data() + nOffset, m_picture.nWidth);
            }, "SADLuma of macroblock " + std::to_string(i));
            if (HasFatalFailure())
                return;
        }
    }
    EXPECT_EQ(m_forms.back().table.pfnSADLuma(zeros.data(), full.data(), m_picture.nWidth), 255 * MB_LUMA_SAMPLES);
    int nSum = 0;
    TimeForms("SADLuma", m_forms, kCols * kRows, [&](const tag_KERNELTABLE& table) {
        for (int i = 0; i < kCols * kRows; ++i)
            nSum += table.pfnSADLuma(m_current.data() + i % kCols * MB_LUMA_SIZE,
                                     m_reference.data() + i % kCols * MB_LUMA_SIZE, m_picture.nWidth);
    });
}

// Every even width up to past two wide steps, so that every tail occurs.
TEST_F(KernelCheck, PackedFrameConversionMatchesOnEverySize)
{
    CRandom random(m_nSeed);
    for (int nWidth = 2; nWidth <= 132; nWidth += 2) {
        const int nHeight = 2 * random.Between(1, 4);
        const tag_PICTURE picture = PictureOf(nWidth, nHeight);
        const std::vector<BYTE> frame = RandomBytes(random, picture.nLuma * 2);
        CheckForms<BYTE>(picture.Bytes(), [&](const tag_KERNELTABLE& table, BYTE* pbyOut) {
            table.pfnUYVYToYUV420(frame.data(), picture.Image(pbyOut), nWidth, nHeight);
        }, "UYVYToYUV420 " + std::to_string(nWidth) + "x" + std::to_string(nHeight));
        if (HasFatalFailure())
            return;
    }
    const tag_PICTURE cif = PictureOf(352, 288);
    const std::vector<BYTE> frame = RandomBytes(random, cif.nLuma * 2);
    std::vector<BYTE> planes(cif.Bytes());
    TimeForms("UYVYToYUV420 352x288", m_forms, 1, [&](const tag_KERNELTABLE& table) {
        table.pfnUYVYToYUV420(frame.data(), cif.Image(planes.data()), cif.nWidth, cif.nHeight);
    });
}

TEST_F(KernelCheck, ColourConversionMatchesOnEverySize)
{
    CRandom random(m_nSeed);
    for (int nWidth = 2; nWidth <= 132; nWidth += 2) {
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
