// What a user gets: encoder and decoder take the SIMD transform form and the process's
// kernels, a recording decodes to the same pictures in SIMD code and in the portable
// emulation, and a P picture that will be dropped costs its SADs and nothing else.
#include "EncoderTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace codec_test;

namespace {

constexpr int kWidth = 176;
constexpr int kHeight = 144;

TEST(CodecKernelChoice, EncoderAndDecoderTakeTheSIMDFormAndTheProcessKernels)
{
    CTestEncoder encoder;
    CTestDecoder decoder;
    ASSERT_TRUE(encoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 0));
    ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020114));
    EXPECT_TRUE(encoder.m_bUseMMX);
    EXPECT_TRUE(decoder.m_bUseMMX);
    EXPECT_EQ(encoder.m_pKernels, &GetKernelTable());
    EXPECT_EQ(decoder.m_pKernels, &GetKernelTable());
}

// A recording of a moving scene decoded with the process's kernels and with the plain
// table, whose SIMD transform form is the portable emulation: every picture agrees.
TEST(CodecKernelChoice, RecordingDecodesAlikeInSIMDCodeAndPortableEmulation)
{
    if (GetKernelFeatures() == 0)
        GTEST_SKIP() << "this build runs the portable emulation only";
    tag_KERNELTABLE plain{};
    FillKernelTable(plain, 0);
    CTestEncoder encoder;
    CTestDecoder decoders[2];
    ASSERT_TRUE(encoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 0));
    encoder.SetQi(6);
    encoder.SetQp(6);
    encoder.SetIntraThreshold(1200);
    for (CTestDecoder& decoder : decoders)
        ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020114));
    decoders[1].m_pKernels = &plain;
    CScene scene(kWidth, kHeight, 7, 99, 4);
    std::vector<BYTE> pictures[2];
    int nCodedP = 0;
    for (int n = 0; n < 60; ++n) {
        std::vector<BYTE> frame = MakeFrame(scene.Next());
        const ENCODER_RETURN enc = encoder.Encode(frame.data(), FALSE, n % 30 == 0 ? 0 : 2);
        nCodedP += n % 30 != 0 && enc.nLength > 4;
        for (int f = 0; f < 2; ++f) {
            pictures[f].assign(static_cast<std::size_t>(kWidth) * kHeight * 3, 0);
            ASSERT_FALSE(decoders[f].DecodeOneFrame(enc.pBuffer, enc.nLength, pictures[f].data(), FALSE).bError);
        }
        ASSERT_EQ(pictures[0], pictures[1]) << "frame " << n;
    }
    EXPECT_GT(nCodedP, 40);
}

// Kernels that count their calls and then run the process's forms.
std::atomic<int> g_nSADs{0};
std::atomic<int> g_nCodingCalls{0};

const tag_KERNELTABLE& Process()
{
    return GetKernelTable();
}

tag_KERNELTABLE CountingKernels()
{
    tag_KERNELTABLE table = Process();
    table.pfnSADLuma = [](const BYTE* pbyFirst, const BYTE* pbySecond, int nStride) {
        ++g_nSADs;
        return Process().pfnSADLuma(pbyFirst, pbySecond, nStride);
    };
    table.pfnLoadMB = [](const IMAGE& img, int nCol, int nRow, int nWidth, short* psBlocks) {
        ++g_nCodingCalls;
        Process().pfnLoadMB(img, nCol, nRow, nWidth, psBlocks);
    };
    table.pfnLoadDifferenceMB = [](const IMAGE& img, const IMAGE& imgReference, int nCol, int nRow, int nWidth,
                                   short* psBlocks) {
        ++g_nCodingCalls;
        Process().pfnLoadDifferenceMB(img, imgReference, nCol, nRow, nWidth, psBlocks);
    };
    table.pfnFDCTMMX = [](short* const* ppsBlocks, int nBlocks) {
        ++g_nCodingCalls;
        Process().pfnFDCTMMX(ppsBlocks, nBlocks);
    };
    return table;
}

TEST(CodecKernelChoice, DroppedPictureCostsOnlyItsSADs)
{
    const tag_KERNELTABLE counting = CountingKernels();
    CTestEncoder encoder;
    ASSERT_TRUE(encoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 0));
    encoder.m_pKernels = &counting;
    const CPlanes still(kWidth, kHeight, 90);
    std::vector<BYTE> frame = MakeFrame(still);
    encoder.Encode(frame.data(), FALSE, 0);
    const CPlanes reference = encoder.Reference();

    CPlanes moved = still;
    for (int nCol = 0; nCol < 3; ++nCol)
        moved.RaiseMacroblock(nCol, 1, 120);
    g_nSADs = g_nCodingCalls = 0;
    frame = MakeFrame(moved);
    EXPECT_EQ(encoder.Encode(frame.data(), FALSE, 2).nLength, 4);
    EXPECT_EQ(g_nSADs, kWidth * kHeight / 256);
    EXPECT_EQ(g_nCodingCalls, 0);
    EXPECT_TRUE(SamePlanes(encoder.Reference(), reference));

    moved.RaiseMacroblock(5, 5, 120);   // a fourth intra macroblock: the picture stands
    frame = MakeFrame(moved);
    EXPECT_TRUE(encoder.Encode(frame.data(), FALSE, 2).bMoved);
    EXPECT_GT(g_nCodingCalls, 0);
}

} // namespace
