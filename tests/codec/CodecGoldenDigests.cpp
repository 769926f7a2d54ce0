// Long sequences of varied scenes through encoder and decoder, each reduced to one
// digest of everything they give: records, flags, motion maps, reference planes and
// decoded pictures; after every frame the decoder's planes are the encoder's
// reconstruction. The digests of the first five were taken from the plain implementation
// that coded every P picture before it knew whether the picture stands; every faster path
// must give the same bits.
#include "EncoderTestSupport.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

using namespace codec_test;

namespace {

struct tag_GOLDENCASE {
    const char* strName;
    DWORD dwRevision;
    int nWidth;   // as the channel asks for it
    int nHeight;
    int nCaptureWidth;
    int nCaptureHeight;
    int nNoise;
    int nObjects;
    int nQ;
    int nIntraThreshold;
    int nFrames;
    // In the SIMD form, frames 100 to 139 detection only, then an I picture. The first
    // detection after coded frames compares with whatever the P pictures left in the
    // plane set of the previous frame, which the scalar form is free to leave otherwise.
    bool bDetectionStretch;
    std::uint64_t qwScalar;   // golden digest in the scalar transform form
    std::uint64_t qwSIMD;     // and in the SIMD form
};

constexpr int kKeyInterval = 160;
constexpr int kStretchFirst = 100;
constexpr int kStretchEnd = 140;

class CDigest {
public:
    // FNV-1a over 64-bit words, then the remaining bytes.
    void Add(const void* pData, std::size_t nBytes)
    {
        const BYTE* pby = static_cast<const BYTE*>(pData);
        std::size_t n = 0;
        for (; n + 8 <= nBytes; n += 8) {
            std::uint64_t qwWord;
            std::memcpy(&qwWord, pby + n, 8);
            Mix(qwWord);
        }
        for (; n < nBytes; ++n)
            Mix(pby[n]);
    }
    void Add(int n) { Add(&n, sizeof n); }
    std::uint64_t Value() const { return m_qwHash; }

private:
    void Mix(std::uint64_t qwValue)
    {
        m_qwHash ^= qwValue;
        m_qwHash *= 0x100000001B3ull;
    }

    std::uint64_t m_qwHash = 0xCBF29CE484222325ull;
};

std::uint64_t RunCase(const tag_GOLDENCASE& c, BOOL bUseMMX)
{
    CTestEncoder encoder;
    CTestDecoder decoder;
    EXPECT_TRUE(encoder.Create(c.nWidth, c.nHeight, c.dwRevision, 0));
    EXPECT_TRUE(decoder.Create(c.dwRevision));
    encoder.m_bUseMMX = decoder.m_bUseMMX = bUseMMX;
    encoder.SetQi(c.nQ);
    encoder.SetQp(c.nQ);
    encoder.SetIntraThreshold(c.nIntraThreshold);
    encoder.SetMoveThreshold(c.nIntraThreshold / 2);
    CScene scene(c.nCaptureWidth, c.nCaptureHeight, c.nNoise, 0xC0DEC + static_cast<std::uint32_t>(c.nQ), c.nObjects);
    std::vector<BYTE> picture(static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3);
    const int nWidth = encoder.GetWidth();
    const int nHeight = encoder.GetHeight();
    CDigest digest;
    for (int f = 0; f < c.nFrames; ++f) {
        std::vector<BYTE> frame = MakeFrame(scene.Next());
        const bool bStretch = c.bDetectionStretch && bUseMMX;
        const bool bDetect = bStretch && f >= kStretchFirst && f < kStretchEnd;
        const int nType = bDetect ? 1 : f % kKeyInterval == 0 || (bStretch && f == kStretchEnd) ? 0 : 2;
        const ENCODER_RETURN enc = encoder.Encode(frame.data(), bDetect, nType);
        digest.Add(enc.bMoved);
        digest.Add(&encoder.m_pMoveMap[0], static_cast<std::size_t>(nWidth / 16 * (nHeight / 16)) * sizeof(int));
        digest.Add(frame.data(), static_cast<std::size_t>(c.nCaptureWidth) * c.nCaptureHeight * 3);
        if (bDetect)
            continue;
        digest.Add(enc.nFrameType);
        digest.Add(enc.pBuffer, static_cast<std::size_t>(enc.nLength));
        const CPlanes reference = encoder.Reference();
        digest.Add(reference.Y.data(), reference.Y.size());
        digest.Add(reference.U.data(), reference.U.size());
        digest.Add(reference.V.data(), reference.V.size());
        const DECODER_RETURN dec = decoder.DecodeOneFrame(enc.pBuffer, enc.nLength, picture.data(), FALSE);
        EXPECT_FALSE(dec.bError) << c.strName << " frame " << f;
        if (!SamePlanes(reference, decoder.Decoded(nWidth, nHeight))) {
            ADD_FAILURE() << c.strName << ": encoder and decoder differ after frame " << f;
            break;
        }
        digest.Add(&dec, sizeof dec);
        digest.Add(picture.data(), static_cast<std::size_t>(dec.nWidth) * dec.nHeight * 3);
    }
    return digest.Value();
}

// Camera-like scenes (still background, one object, light noise) drop most P pictures;
// busy ones keep them; thresholds and quantisers vary the count of intra macroblocks
// around the dropping limit.
const tag_GOLDENCASE kCases[] = {
    {"camera_176x144", STREAM_REVISION_20020114, 176, 144, 176, 144, 2, 1, 8, 2048, 260, false,
     0xD83C0201236B4BC0ull, 0xD763059C688CE108ull},
    {"busy_176x144", STREAM_REVISION_20020114, 176, 144, 176, 144, 8, 6, 4, 1500, 200, true,
     0xCE57B8AF7157E7E5ull, 0xF30C3BC57B3EECE3ull},
    {"moderate_352x288", STREAM_REVISION_20020114, 352, 288, 352, 288, 4, 3, 16, 3840, 120, false,
     0xF636B6907E1F4BA9ull, 0x4AF174284853B711ull},
    {"wide_704x288", STREAM_REVISION_20020219, 704, 288, 352, 288, 3, 2, 6, 2048, 145, true,
     0xEA166349D20EAB5Full, 0x8D9BBFDB2CB35672ull},
    {"reduced_320x240", STREAM_REVISION_20020219, 320, 240, 320, 240, 5, 4, 10, 1024, 120, false,
     0xA830DB605AA23A2Eull, 0x5BB0110D7C8D956Cull},
    // Escapes everywhere at Q 1, the largest levels at Q 31, and the widest picture.
    {"noise_q1_96x64", STREAM_REVISION_20020114, 96, 64, 96, 64, 20, 3, 1, 1500, 10, false,
     0x37BBEE0C56CD80E6ull, 0xBDB14A1B329110C9ull},
    {"noise_q31_160x112", STREAM_REVISION_20020114, 160, 112, 160, 112, 10, 3, 31, 1500, 14, false,
     0x3E2BD81C68FE0149ull, 0x4F580AA88B7487B6ull},
    {"wide_640x240", STREAM_REVISION_20020114, 640, 240, 640, 240, 4, 3, 10, 1500, 8, false,
     0xAA1EAC4051E25BA2ull, 0xB1A0CF1732EEEDA0ull},
};

class GoldenDigests : public ::testing::TestWithParam<BOOL> {};

TEST_P(GoldenDigests, LongSequencesGiveTheirDigests)
{
    for (const tag_GOLDENCASE& c : kCases) {
        const std::uint64_t qwDigest = RunCase(c, GetParam());
        const std::uint64_t qwGolden = GetParam() ? c.qwSIMD : c.qwScalar;
        EXPECT_EQ(qwDigest, qwGolden) << c.strName;
        if (qwDigest != qwGolden)
            std::printf("%s: 0x%016" PRIX64 "ull\n", c.strName, qwDigest);
    }
}

INSTANTIATE_TEST_SUITE_P(TransformForms, GoldenDigests, ::testing::Values(FALSE, TRUE),
                         [](const ::testing::TestParamInfo<BOOL>& param) { return param.param ? "SIMD" : "Scalar"; });

} // namespace
