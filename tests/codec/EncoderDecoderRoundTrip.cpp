// Single pictures through encoder and decoder: the longest records, and the decoder's
// output as the encoder's reconstruction in blue, green, red. Whole sequences are in
// CodecGoldenDigests.cpp.
#include "EncoderTestSupport.h"

#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

using namespace codec_test;

namespace {

// An encoder and a decoder in the same transform form, for single I pictures.
class SinglePicture : public ::testing::Test {
protected:
    ENCODER_RETURN EncodeAndDecode(const CPlanes& planes, int nQi, int nType)
    {
        EXPECT_TRUE(encoder.Create(planes.nWidth, planes.nHeight, STREAM_REVISION_20020114, 0));
        EXPECT_TRUE(decoder.Create(STREAM_REVISION_20020114));
        decoder.m_bUseMMX = encoder.m_bUseMMX;
        encoder.SetQi(nQi);
        frame = MakeFrame(planes);
        const ENCODER_RETURN enc = encoder.Encode(frame.data(), FALSE, nType);
        output.assign(static_cast<std::size_t>(planes.nWidth) * planes.nHeight * 3, 0);
        dec = decoder.DecodeOneFrame(enc.pBuffer, enc.nLength, output.data(), FALSE);
        EXPECT_FALSE(dec.bError);
        return enc;
    }

    CTestEncoder encoder;
    CTestDecoder decoder;
    std::vector<BYTE> frame, output;
    DECODER_RETURN dec{};
};

} // namespace

TEST_F(SinglePicture, PureNoiseAtQuantiserOneNeedsMoreThanTwoBytesAPixelAndStillDecodes)
{
    CPlanes noise(176, 144);
    CRandom random(5);
    for (std::vector<BYTE>* pPlane : {&noise.Y, &noise.U, &noise.V}) {
        for (BYTE& b : *pPlane)
            b = static_cast<BYTE>(random.Next());
    }
    const ENCODER_RETURN enc = EncodeAndDecode(noise, 1, 0);
    EXPECT_GT(enc.nLength, 176 * 144 * 2);
    EXPECT_LE(static_cast<std::size_t>(enc.nLength), CEncoder::GetMaxRecordLength(176, 144));
    EXPECT_TRUE(SamePlanes(encoder.Reference(), decoder.Decoded(176, 144)));
}

TEST_F(SinglePicture, DecoderOutputIsTheReconstructionInBlueGreenRed)
{
    CScene scene(160, 112, 2, 3);
    EncodeAndDecode(scene.Next(), 4, 1);
    EXPECT_EQ(dec.nFrameType, 1);
    EXPECT_TRUE(dec.bSizeChanged);
    std::vector<BYTE> expected(output.size());
    YUVToRGB24(expected.data(), encoder.m_imgReference, 160, 112);
    EXPECT_EQ(output, expected);
}
