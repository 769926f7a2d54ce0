// Display scaling of revision 0x20020219: widened, doubled and copied pictures, and the
// sizes that the decoder reports for them.
#include "EncoderTestSupport.h"

#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

using namespace codec_test;

namespace {

// The rules written out sample by sample, for one plane.
std::vector<BYTE> Widened(const BYTE* pSrc, int nWidth, int nRows)
{
    std::vector<BYTE> out(static_cast<std::size_t>(nWidth) * 2 * nRows);
    for (int y = 0; y < nRows; ++y) {
        for (int x = 0; x < nWidth; ++x) {
            const int a = pSrc[y * nWidth + x];
            const int b = x + 1 < nWidth ? pSrc[y * nWidth + x + 1] : a;
            out[static_cast<std::size_t>(y) * 2 * nWidth + 2 * x] = static_cast<BYTE>(a);
            out[static_cast<std::size_t>(y) * 2 * nWidth + 2 * x + 1] = static_cast<BYTE>((a + b) >> 1);
        }
    }
    return out;
}

std::vector<BYTE> Doubled(const BYTE* pSrc, int nWidth, int nRows, int nPlaneRows)
{
    std::vector<BYTE> out(static_cast<std::size_t>(nWidth) * 4 * nRows);
    const auto at = [&](int x, int y) { return int{pSrc[y * nWidth + x]}; };
    for (int y = 0; y < nRows; ++y) {
        const int yBelow = y + 1 < nPlaneRows ? y + 1 : y;
        for (int x = 0; x < nWidth; ++x) {
            const bool bLast = x == nWidth - 1;
            const int a = at(x, y);
            const int b = bLast ? a : at(x + 1, y);
            const int c = at(x, yBelow);
            const int d = bLast ? c : at(x + 1, yBelow);
            const int o01 = (a + b) >> 1;
            const int o10 = bLast ? c : (a + c) >> 1;   // the last column repeats a and c
            const int o11 = bLast ? c : (((o01 + o10) >> 1) + d) >> 1;
            BYTE* p = &out[static_cast<std::size_t>(2 * y) * 2 * nWidth + 2 * x];
            p[0] = static_cast<BYTE>(a);
            p[1] = static_cast<BYTE>(o01);
            p[2 * nWidth] = static_cast<BYTE>(o10);
            p[2 * nWidth + 1] = static_cast<BYTE>(o11);
        }
    }
    return out;
}

struct tag_DISPLAYCASE {
    int nAskedWidth, nAskedHeight;   // what the channel asked the encoder for
    int nCodedWidth, nCodedHeight;
    BOOL bKeepSize;
    int nShownWidth, nShownHeight;
};

class DisplayScaling : public ::testing::TestWithParam<tag_DISPLAYCASE> {};

} // namespace

TEST_P(DisplayScaling, ShowsTheCodedPictureScaledByTheRule)
{
    const tag_DISPLAYCASE c = GetParam();
    CEncoder encoder;
    ASSERT_TRUE(encoder.Create(c.nAskedWidth, c.nAskedHeight, STREAM_REVISION_20020219, 0));
    ASSERT_EQ(encoder.GetWidth(), c.nCodedWidth);
    encoder.SetQi(4);
    CScene scene(c.nAskedWidth == 640 || c.nAskedWidth == 704 ? c.nAskedWidth / 2 : c.nAskedWidth, c.nAskedHeight, 8, 77);
    std::vector<BYTE> frame = MakeFrame(scene.Next());
    frame.resize(static_cast<std::size_t>(c.nAskedWidth) * c.nAskedHeight * 3);
    const ENCODER_RETURN enc = encoder.Encode(frame.data(), FALSE, 0);

    CTestDecoder decoder;
    ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020219));
    std::vector<BYTE> output(static_cast<std::size_t>(c.nShownWidth) * c.nShownHeight * 3 + 16, 0xCD);
    const DECODER_RETURN dec = decoder.DecodeOneFrame(enc.pBuffer, enc.nLength, output.data(), c.bKeepSize);
    ASSERT_FALSE(dec.bError);
    EXPECT_EQ(dec.nWidth, c.nShownWidth);
    EXPECT_EQ(dec.nHeight, c.nShownHeight);

    const CPlanes coded = decoder.Decoded(c.nCodedWidth, c.nCodedHeight);
    const int w = c.nCodedWidth;
    const int h = c.nCodedHeight;
    CPlanes shown(c.nShownWidth, c.nShownHeight);
    if (c.nShownWidth == w) {
        shown = coded;
    } else if (c.nShownHeight == h) {
        shown.Y = Widened(coded.Y.data(), w, h);
        shown.U = Widened(coded.U.data(), w / 2, h / 2);
        shown.V = Widened(coded.V.data(), w / 2, h / 2);
    } else {
        const int nRows = c.nShownHeight / 2;
        shown.Y = Doubled(coded.Y.data(), w, nRows, h);
        shown.U = Doubled(coded.U.data(), w / 2, nRows / 2, h / 2);
        shown.V = Doubled(coded.V.data(), w / 2, nRows / 2, h / 2);
    }
    std::vector<BYTE> expected(static_cast<std::size_t>(c.nShownWidth) * c.nShownHeight * 3);
    IMAGE img = {shown.Y.data(), shown.U.data(), shown.V.data()};
    YUVToRGB24(expected.data(), img, c.nShownWidth, c.nShownHeight);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), output.begin()));
    EXPECT_TRUE(std::all_of(output.end() - 16, output.end(), [](BYTE b) { return b == 0xCD; }));
}

INSTANTIATE_TEST_SUITE_P(Revision20020219, DisplayScaling,
                         ::testing::Values(tag_DISPLAYCASE{640, 240, 320, 240, FALSE, 640, 240},
                                           tag_DISPLAYCASE{640, 240, 320, 240, TRUE, 320, 240},
                                           tag_DISPLAYCASE{704, 288, 352, 288, FALSE, 704, 288},
                                           tag_DISPLAYCASE{704, 288, 352, 288, TRUE, 352, 288},
                                           tag_DISPLAYCASE{320, 240, 160, 128, FALSE, 320, 240},
                                           tag_DISPLAYCASE{320, 240, 160, 128, TRUE, 320, 240},
                                           tag_DISPLAYCASE{352, 288, 176, 144, FALSE, 352, 288},
                                           tag_DISPLAYCASE{352, 288, 176, 144, TRUE, 352, 288}));

TEST(DisplayScalingOther, SizesOutsideTheTableAreShownAsCoded)
{
    CEncoder encoder;
    ASSERT_TRUE(encoder.Create(96, 64, STREAM_REVISION_20020114, 0));
    encoder.SetQi(4);
    CScene scene(96, 64, 3, 1);
    std::vector<BYTE> frame = MakeFrame(scene.Next());
    const ENCODER_RETURN enc = encoder.Encode(frame.data(), FALSE, 0);
    CDecoder wide;
    CDecoder plain;
    ASSERT_TRUE(wide.Create(STREAM_REVISION_20020219));
    ASSERT_TRUE(plain.Create(STREAM_REVISION_20020114));
    std::vector<BYTE> a(96 * 64 * 3);
    std::vector<BYTE> b(96 * 64 * 3);
    const DECODER_RETURN ra = wide.DecodeOneFrame(enc.pBuffer, enc.nLength, a.data(), FALSE);
    const DECODER_RETURN rb = plain.DecodeOneFrame(enc.pBuffer, enc.nLength, b.data(), FALSE);
    EXPECT_EQ(ra.nWidth, 96);
    EXPECT_EQ(rb.nWidth, 96);
    EXPECT_EQ(a, b);
}
