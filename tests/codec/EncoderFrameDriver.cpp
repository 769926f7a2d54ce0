// The encoder's frame driver: dropping of P pictures, the motion map and its
// thresholds, detection frames, sizes of both stream revisions, the quantiser setters.
#include "EncoderTestSupport.h"

#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>

using namespace codec_test;

namespace {

constexpr BYTE kFlatLuma = 100;
const std::vector<BYTE> kNotCodedRecord = {0x00, 0x00, 0x84, 0x00};

class FrameDriver : public ::testing::Test {
protected:
    static constexpr int kWidth = 176;
    static constexpr int kHeight = 144;

    void SetUp() override
    {
        ASSERT_TRUE(encoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 0));
        encoder.SetQi(10);
        encoder.SetQp(10);
    }

    ENCODER_RETURN Encode(const CPlanes& planes, BOOL bDetectOnly, int nType)
    {
        frame = MakeFrame(planes);
        return encoder.Encode(frame.data(), bDetectOnly, nType);
    }

    // The flat picture with the luma of the given macroblocks (column, row) raised.
    CPlanes Moved(std::initializer_list<std::pair<int, int>> macroblocks, int nDelta, int nSamples = 256) const
    {
        CPlanes moved = flat;
        for (const auto& [nCol, nRow] : macroblocks)
            moved.RaiseMacroblock(nCol, nRow, nDelta, nSamples);
        return moved;
    }

    static std::vector<BYTE> Record(const ENCODER_RETURN& result)
    {
        return std::vector<BYTE>(result.pBuffer, result.pBuffer + result.nLength);
    }

    CTestEncoder encoder;
    std::vector<BYTE> frame;
    CPlanes flat{kWidth, kHeight, kFlatLuma};
};

} // namespace

TEST_F(FrameDriver, StillSceneWithSensorNoiseGivesFourByteRecordsAndKeepsReference)
{
    CScene scene(kWidth, kHeight, 3, 9, 0);
    Encode(scene.Next(), FALSE, 0);
    const CPlanes reference = encoder.Reference();
    for (int f = 0; f < 6; ++f) {
        const ENCODER_RETURN result = Encode(scene.Next(), FALSE, 2);
        EXPECT_EQ(Record(result), kNotCodedRecord);
        EXPECT_FALSE(result.bMoved);
        EXPECT_EQ(result.nFrameType, 2);
        EXPECT_EQ(encoder.MoveMapCount(), 0);
        EXPECT_TRUE(SamePlanes(encoder.Reference(), reference));
    }
}

TEST_F(FrameDriver, DropsPictureWithThreeIntraMacroblocksAndKeepsOneWithFour)
{
    for (const BOOL bUseMMX : {FALSE, TRUE}) {
        encoder.m_bUseMMX = bUseMMX;
        Encode(flat, FALSE, 0);
        const CPlanes reference = encoder.Reference();
        CPlanes moved = Moved({{0, 0}, {5, 3}, {10, 8}}, 100);
        ENCODER_RETURN result = Encode(moved, FALSE, 2);
        EXPECT_EQ(Record(result), kNotCodedRecord);
        EXPECT_FALSE(result.bMoved);
        EXPECT_EQ(encoder.MoveMapCount(), 0);
        EXPECT_TRUE(SamePlanes(encoder.Reference(), reference));

        moved.RaiseMacroblock(2, 7, 100);
        result = Encode(moved, FALSE, 2);
        EXPECT_GT(result.nLength, 4);
        EXPECT_TRUE(result.bMoved);
        EXPECT_EQ(encoder.MoveMapCount(), 4);
        for (const int n : {0, 3 * 11 + 5, 8 * 11 + 10, 7 * 11 + 2})
            EXPECT_NE(encoder.m_pMoveMap[n], 0) << n;
        EXPECT_FALSE(SamePlanes(encoder.Reference(), reference));
    }
}

TEST_F(FrameDriver, SadEqualToIntraThresholdStaysInter)
{
    Encode(flat, FALSE, 0);   // a flat picture of luma 100 reconstructs exactly
    const CPlanes moved = Moved({{0, 2}, {1, 2}, {2, 2}, {3, 2}}, 10, 50);   // SAD 500 in each of four
    encoder.SetIntraThreshold(500);
    EXPECT_EQ(Record(Encode(moved, FALSE, 2)), kNotCodedRecord);
    encoder.SetIntraThreshold(499);
    const ENCODER_RETURN result = Encode(moved, FALSE, 2);
    EXPECT_TRUE(result.bMoved);
    EXPECT_EQ(encoder.MoveMapCount(), 4);
}

TEST_F(FrameDriver, DetectionCountsMacroblocksAboveMoveThreshold)
{
    // The planes are black after Create: a dark first frame counts as still.
    CPlanes dark(kWidth, kHeight, 5);
    EXPECT_FALSE(Encode(dark, TRUE, 1).bMoved);
    EXPECT_TRUE(Encode(flat, TRUE, 1).bMoved);

    encoder.SetMoveThreshold(499);
    ENCODER_RETURN result = Encode(Moved({{1, 1}}, 10, 50), TRUE, 1);   // one macroblock moved
    EXPECT_TRUE(result.bDetectOnly);
    EXPECT_FALSE(result.bMoved);
    EXPECT_EQ(encoder.MoveMapCount(), 0);

    const CPlanes twice = Moved({{1, 1}, {2, 1}}, 10, 50);
    Encode(flat, TRUE, 1);
    result = Encode(twice, TRUE, 1);
    EXPECT_TRUE(result.bMoved);
    EXPECT_EQ(encoder.MoveMapCount(), 2);
    EXPECT_FALSE(encoder.IsAreaMove(0, 0, kWidth, kHeight));   // an area needs three

    Encode(flat, TRUE, 1);
    encoder.SetMoveThreshold(500);   // equal to the SAD: not above it
    EXPECT_FALSE(Encode(twice, TRUE, 1).bMoved);

    encoder.SetMoveThreshold(0);
    EXPECT_FALSE(Encode(flat, TRUE, 0).bMoved);   // frame type 0 skips detection
}

TEST_F(FrameDriver, DetectionFramesLeaveTheCodedReferenceAlone)
{
    Encode(flat, FALSE, 0);
    CScene scene(kWidth, kHeight, 4, 2);
    for (int f = 0; f < 3; ++f)
        Encode(scene.Next(), TRUE, 1);
    EXPECT_EQ(Record(Encode(flat, FALSE, 2)), kNotCodedRecord);
}

TEST_F(FrameDriver, IPictureNeverReportsMovement)
{
    Encode(flat, FALSE, 0);
    const ENCODER_RETURN result = Encode(Moved({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}}, 90), FALSE, 1);
    EXPECT_FALSE(result.bMoved);
    EXPECT_EQ(result.nFrameType, 1);
    EXPECT_EQ(encoder.MoveMapCount(), 0);
}

TEST_F(FrameDriver, AreaRowsRunOppositeToMapRows)
{
    Encode(flat, FALSE, 0);
    // The top macroblock row of the planes.
    ASSERT_TRUE(Encode(Moved({{0, 0}, {1, 0}, {2, 0}, {3, 0}}, 90), FALSE, 2).bMoved);
    // Map row 0 answers to rectangles at the largest y, not at the top.
    EXPECT_TRUE(encoder.IsAreaMove(0, 128, 63, 159));
    EXPECT_TRUE(encoder.IsAreaMove(16, 128, 63, 159));   // columns 1 to 3
    EXPECT_FALSE(encoder.IsAreaMove(32, 128, 63, 159));  // columns 2 and 3
    EXPECT_FALSE(encoder.IsAreaMove(0, 0, 63, 15));
    EXPECT_TRUE(encoder.IsAreaMove(0, 0, kWidth, kHeight));
    EXPECT_FALSE(encoder.IsAreaMove(96, 0, kWidth, kHeight));   // columns run the same way
    EXPECT_FALSE(encoder.IsAreaMove(0, 100, 63, 20));            // first row above last row
    // Rectangles far outside the picture stop at the map's edges.
    EXPECT_TRUE(encoder.IsAreaMove(-1000, -1000, 100000, 100000));
    EXPECT_FALSE(encoder.IsAreaMove(100000, 100000, -1000, -1000));
}

TEST_F(FrameDriver, QuantiserOfZeroIsRefusedAndTheOldOneStays)
{
    CTestEncoder fresh;
    ASSERT_TRUE(fresh.Create(kWidth, kHeight, STREAM_REVISION_20020114, 0));
    EXPECT_FALSE(fresh.SetQi(0));
    EXPECT_EQ(fresh.m_nQi, 10);   // never 0, even before the first setter call
    EXPECT_EQ(fresh.m_nQp, 10);
    for (const int nQ : {0, 32, -3}) {
        EXPECT_FALSE(encoder.SetQi(nQ)) << nQ;
        EXPECT_FALSE(encoder.SetQp(nQ)) << nQ;
    }
    EXPECT_EQ(encoder.m_nQi, 10);
    EXPECT_EQ(encoder.m_nQp, 10);
    EXPECT_TRUE(encoder.SetQi(31));
    EXPECT_TRUE(encoder.SetQp(1));
    EXPECT_EQ(encoder.m_nQi, 31);
    EXPECT_EQ(encoder.m_nQp, 1);
}

TEST(FrameDriverSizes, Revision20020219CodesTheTableSizes)
{
    const struct {
        int nWidth, nHeight, nCodedWidth, nCodedHeight;
    } sizes[] = {{320, 240, 160, 128}, {640, 240, 320, 240}, {352, 288, 176, 144}, {704, 288, 352, 288}};
    for (const auto& size : sizes) {
        CEncoder encoder;
        ASSERT_TRUE(encoder.Create(size.nWidth, size.nHeight, STREAM_REVISION_20020219, 0));
        EXPECT_EQ(encoder.GetWidth(), size.nCodedWidth);
        EXPECT_EQ(encoder.GetHeight(), size.nCodedHeight);
    }
    CEncoder encoder;
    EXPECT_FALSE(encoder.Create(320, 200, STREAM_REVISION_20020219, 0));
    EXPECT_FALSE(encoder.Create(160, 112, STREAM_REVISION_20020219, 0));
    EXPECT_TRUE(encoder.Create(320, 200, STREAM_REVISION_20020114, 0));   // rows below 192 not coded
    EXPECT_EQ(encoder.GetHeight(), 192);
    EXPECT_FALSE(encoder.Create(8, 240, STREAM_REVISION_20020114, 0));
    EXPECT_FALSE(encoder.Create(720, 576, STREAM_REVISION_20020114, 0));
    EXPECT_TRUE(encoder.Create(160, 120, STREAM_REVISION_20020114, 0));
    EXPECT_EQ(encoder.GetHeight(), 112);
}

TEST(FrameDriverSizes, ReducedRevisionLeavesFullSizePreviewAndCodesHalfSize)
{
    CTestEncoder encoder;
    ASSERT_TRUE(encoder.Create(320, 240, STREAM_REVISION_20020219, 0));
    encoder.SetQi(6);
    CScene scene(320, 240, 2, 4);
    const CPlanes source = scene.Next();
    std::vector<BYTE> frame = MakeFrame(source);
    const ENCODER_RETURN result = encoder.Encode(frame.data(), FALSE, 0);
    // The header carries 160x128.
    const std::vector<BYTE> header = PackBits(IHeader(160, 128, 6));
    ASSERT_GE(result.nLength, 10);
    EXPECT_EQ(std::vector<BYTE>(result.pBuffer, result.pBuffer + 10), header);
    // The preview is the whole capture frame in blue, green, red.
    std::vector<BYTE> expected(frame.size());
    IMAGE img = {const_cast<BYTE*>(source.Y.data()), const_cast<BYTE*>(source.U.data()),
                 const_cast<BYTE*>(source.V.data())};
    YUVToRGB24(expected.data(), img, 320, 240);
    EXPECT_EQ(frame, expected);
    // The coded picture is the source reduced 2:1; rows 120 to 127 stay black.
    CTestDecoder decoder;
    ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020219));
    std::vector<BYTE> output(320 * 240 * 3);
    const DECODER_RETURN dec = decoder.DecodeOneFrame(result.pBuffer, result.nLength, output.data(), FALSE);
    EXPECT_EQ(dec.nWidth, 320);
    EXPECT_EQ(dec.nHeight, 240);
    const CPlanes reference = encoder.Reference();
    EXPECT_NEAR(reference.Y[10 * 160 + 20], (source.Y[20 * 320 + 40] + source.Y[20 * 320 + 41] +
                                             source.Y[21 * 320 + 40] + source.Y[21 * 320 + 41]) / 4, 12);
    EXPECT_LE(reference.Y[125 * 160 + 80], 8);
}

TEST(FrameDriverRecords, HeaderBytesOfIAndPPictures)
{
    CTestEncoder encoder;
    ASSERT_TRUE(encoder.Create(320, 240, STREAM_REVISION_20020114, 0));
    encoder.SetQi(10);
    encoder.SetQp(10);
    CPlanes flatPicture(320, 240, kFlatLuma);
    std::vector<BYTE> frame = MakeFrame(flatPicture);
    ENCODER_RETURN result = encoder.Encode(frame.data(), FALSE, 0);
    const std::vector<BYTE> iHeader = {0x00, 0x00, 0x80, 0xA0, 0x1E, 0x01, 0x50, 0x00, 0x00, 0x00};
    EXPECT_EQ(std::vector<BYTE>(result.pBuffer, result.pBuffer + 10), iHeader);
    CPlanes moved = flatPicture;
    for (int m = 0; m < 5; ++m)
        moved.RaiseMacroblock(m, 4, 80);
    frame = MakeFrame(moved);
    result = encoder.Encode(frame.data(), FALSE, 2);
    const std::vector<BYTE> pHeader = {0x00, 0x00, 0x85, 0x0A, 0x00, 0x00};
    EXPECT_EQ(std::vector<BYTE>(result.pBuffer, result.pBuffer + 6), pHeader);
}

TEST(FrameDriverRecords, FlatMacroblockIsFiftyFourBitsAndReconstructsExactly)
{
    CTestEncoder encoder;
    ASSERT_TRUE(encoder.Create(16, 16, STREAM_REVISION_20020114, 0));
    CTestDecoder decoder;
    ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020114));
    for (const int nQ : {1, 10, 31}) {
        encoder.SetQi(nQ);
        CPlanes flatPicture(16, 16, kFlatLuma);
        std::vector<BYTE> frame = MakeFrame(flatPicture);
        const ENCODER_RETURN result = encoder.Encode(frame.data(), FALSE, 0);
        const std::string strMacroblock = FlatMacroblock(100);
        ASSERT_EQ(strMacroblock.size(), 54u);
        EXPECT_EQ(std::vector<BYTE>(result.pBuffer, result.pBuffer + result.nLength),
                  PackBits(IHeader(16, 16, nQ) + strMacroblock))
            << "Q " << nQ;
        EXPECT_TRUE(SamePlanes(encoder.Reference(), flatPicture));
        std::vector<BYTE> output(16 * 16 * 3);
        EXPECT_FALSE(decoder.DecodeOneFrame(result.pBuffer, result.nLength, output.data(), FALSE).bError);
        EXPECT_TRUE(SamePlanes(decoder.Decoded(16, 16), flatPicture));
    }
}
