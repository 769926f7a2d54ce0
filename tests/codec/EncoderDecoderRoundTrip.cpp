// The encoder's reconstruction is the decoder's picture, bit for bit, over long I/P
// sequences in each transform form; records have the lengths the format promises.
#include "EncoderTestSupport.h"

#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

using namespace codec_test;

namespace {

struct tag_SEQUENCE {
    int nWidth;
    int nHeight;
    int nNoise;
    int nQ;
    int nFrames;
    int nKeyInterval;
};

class RoundTrip : public ::testing::TestWithParam<BOOL> {};

// Codes a sequence and decodes every record; after each frame both sides hold the same
// planes. Returns the number of P records that were coded (not dropped).
int RunSequence(const tag_SEQUENCE& seq, BOOL bUseMMX, std::uint32_t dwSeed)
{
    CTestEncoder encoder;
    CTestDecoder decoder;
    EXPECT_TRUE(encoder.Create(seq.nWidth, seq.nHeight, STREAM_REVISION_20020114, 0));
    EXPECT_TRUE(decoder.Create(STREAM_REVISION_20020114));
    encoder.m_bUseMMX = bUseMMX;
    decoder.m_bUseMMX = bUseMMX;
    EXPECT_TRUE(encoder.SetQi(seq.nQ));
    EXPECT_TRUE(encoder.SetQp(seq.nQ));
    encoder.SetIntraThreshold(1500);
    CScene scene(seq.nWidth, seq.nHeight, seq.nNoise, dwSeed);
    std::vector<BYTE> output(static_cast<std::size_t>(seq.nWidth) * seq.nHeight * 3);
    int nCodedP = 0;
    for (int f = 0; f < seq.nFrames; ++f) {
        std::vector<BYTE> frame = MakeFrame(scene.Next());
        const int nType = f % seq.nKeyInterval == 0 ? 0 : 2;
        const ENCODER_RETURN enc = encoder.Encode(frame.data(), FALSE, nType);
        EXPECT_EQ(enc.nLength % 2, 0);
        const DECODER_RETURN dec = decoder.DecodeOneFrame(enc.pBuffer, enc.nLength, output.data(), FALSE);
        EXPECT_FALSE(dec.bError) << "frame " << f;
        EXPECT_EQ(dec.nWidth, seq.nWidth);
        EXPECT_EQ(dec.nHeight, seq.nHeight);
        if (nType == 2 && enc.nLength > 4)
            ++nCodedP;
        if (!SamePlanes(encoder.Reference(), decoder.Decoded(seq.nWidth, seq.nHeight))) {
            ADD_FAILURE() << "encoder and decoder differ after frame " << f;
            break;
        }
    }
    return nCodedP;
}

} // namespace

// Moving noisy scenes, quantisers 1 (escapes everywhere), 2 and 31, and the VGA width.
TEST_P(RoundTrip, ReconstructionEqualsDecodedPicture)
{
    const struct {
        tag_SEQUENCE seq;
        std::uint32_t dwSeed;
        int nMinCodedP;
    } rows[] = {{{176, 144, 6, 8, 40, 15}, 7, 21},   // the moving objects keep most P pictures alive
                {{96, 64, 20, 1, 8, 4}, 11, 0},
                {{96, 64, 3, 2, 8, 4}, 12, 0},
                {{160, 112, 10, 31, 12, 6}, 13, 0},
                {{640, 240, 4, 10, 6, 5}, 21, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.seq.nWidth << "x" << row.seq.nHeight << " Q " << row.seq.nQ);
        EXPECT_GE(RunSequence(row.seq, GetParam(), row.dwSeed), row.nMinCodedP);
    }
}

INSTANTIATE_TEST_SUITE_P(TransformForms, RoundTrip, ::testing::Values(FALSE, TRUE),
                         [](const ::testing::TestParamInfo<BOOL>& param) { return param.param ? "SIMD" : "Scalar"; });

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
