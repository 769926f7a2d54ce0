// Macroblock loads, stores and arithmetic, and the colour conversions, on values worked
// out by hand or from the conversion formulas.
#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

// Value n of the 384 of a macroblock, in Y, U, V order.
short& At(YUV_Block& mb, int n)
{
    return n < MB_LUMA_SAMPLES ? mb.Y[n] : n < MB_LUMA_SAMPLES + MB_CHROMA_SAMPLES ? mb.U[n - MB_LUMA_SAMPLES]
                                                                                   : mb.V[n - MB_LUMA_SAMPLES - MB_CHROMA_SAMPLES];
}

// Planes of a picture, owned.
struct CPicture {
    CPicture(int nWidth, int nHeight, BYTE byFill = 0)
        : y(static_cast<std::size_t>(nWidth) * nHeight, byFill),
          u(static_cast<std::size_t>(nWidth / 2) * (nHeight / 2), byFill),
          v(static_cast<std::size_t>(nWidth / 2) * (nHeight / 2), byFill)
    {
    }

    IMAGE Image() { return {y.data(), u.data(), v.data()}; }

    std::vector<BYTE> y, u, v;
};

TEST(ColourConversion, MidGreyIsNotExactlyNeutral)
{
    CPicture picture(2, 2, 128);
    BYTE rgb[12];
    YUVToRGB24(rgb, picture.Image(), 2, 2);
    for (int n = 0; n < 4; ++n) {
        EXPECT_EQ(rgb[3 * n], 129);
        EXPECT_EQ(rgb[3 * n + 1], 128);
        EXPECT_EQ(rgb[3 * n + 2], 129);
    }
}

// All 65536 chroma pairs, each under four luma values, against the formulas: blue
// Y + round(1.772 (U - 127.5)), red Y + round(1.402 (V - 127.5)), green
// Y + (TG[U] + TG[V]) >> 16 with TG[i] = 22554 (128 - i) + 21491, all clipped.
TEST(ColourConversion, EveryChromaPairFollowsTheFormulas)
{
    constexpr int kWidth = 512, kHeight = 512;
    CPicture picture(kWidth, kHeight);
    const BYTE lumas[4] = {0, 30, 200, 255};
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            picture.y[y * kWidth + x] = lumas[2 * (y % 2) + x % 2];
    }
    for (int n = 0; n < 256 * 256; ++n) {
        picture.u[n] = static_cast<BYTE>(n / 256);
        picture.v[n] = static_cast<BYTE>(n % 256);
    }
    std::vector<BYTE> rgb(kWidth * kHeight * 3);
    YUVToRGB24(rgb.data(), picture.Image(), kWidth, kHeight);

    const auto clip = [](long v) { return static_cast<int>(std::clamp(v, 0L, 255L)); };
    const auto green = [](int i) { return 22554L * (128 - i) + 21491; };
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const int nU = y / 2, nV = x / 2, nY = lumas[2 * (y % 2) + x % 2];
            const BYTE* pby = &rgb[3 * (y * kWidth + x)];
            ASSERT_EQ(pby[0], clip(nY + std::lround(1.772 * (nU - 127.5)))) << nU;
            ASSERT_EQ(pby[1], clip(nY + ((green(nU) + green(nV)) >> 16))) << nU << " " << nV;
            ASSERT_EQ(pby[2], clip(nY + std::lround(1.402 * (nV - 127.5)))) << nV;
        }
    }
}

TEST(ColourConversion, PackedFrameAveragesChromaOfLinePairs)
{
    constexpr int kWidth = 4, kHeight = 4;
    // Rows of U Y V Y: U and V step by row so that the means are visible.
    const BYTE frame[kHeight][2 * kWidth] = {
        {10, 1, 20, 2, 11, 3, 21, 4},
        {13, 5, 24, 6, 14, 7, 25, 8},
        {100, 9, 200, 10, 255, 11, 0, 12},
        {101, 13, 201, 14, 255, 15, 1, 16},
    };
    CPicture picture(kWidth, kHeight, 0xEE);
    UYVYToYUV420(&frame[0][0], picture.Image(), kWidth, kHeight);
    std::vector<BYTE> luma(16);
    std::iota(luma.begin(), luma.end(), BYTE{1});
    EXPECT_EQ(picture.y, luma);
    EXPECT_EQ(picture.u, (std::vector<BYTE>{11, 12, 100, 255}));
    EXPECT_EQ(picture.v, (std::vector<BYTE>{22, 23, 200, 0}));
}

TEST(ColourConversion, ReductionAveragesSquaresAndLeavesLowerRowsAlone)
{
    constexpr int kSrcWidth = 8, kSrcHeight = 4, kDstWidth = 4, kDstHeight = 4;
    CPicture source(kSrcWidth, kSrcHeight);
    for (int n = 0; n < kSrcWidth * kSrcHeight; ++n)
        source.y[n] = static_cast<BYTE>(n * 7 % 256);
    source.u = {1, 2, 3, 4, 5, 6, 7, 9};
    source.v = {255, 255, 255, 254, 0, 0, 0, 3};
    CPicture target(kDstWidth, kDstHeight, 0xEE);
    ReduceYUV420(source.Image(), target.Image(), kSrcWidth, kSrcHeight, kDstWidth);

    for (int r = 0; r < kSrcHeight / 2; ++r) {
        for (int c = 0; c < kSrcWidth / 2; ++c) {
            const int nSum = source.y[2 * r * kSrcWidth + 2 * c] + source.y[2 * r * kSrcWidth + 2 * c + 1]
                             + source.y[(2 * r + 1) * kSrcWidth + 2 * c] + source.y[(2 * r + 1) * kSrcWidth + 2 * c + 1];
            EXPECT_EQ(target.y[r * kDstWidth + c], nSum >> 2);
        }
    }
    for (int n = (kSrcHeight / 2) * kDstWidth; n < kDstWidth * kDstHeight; ++n)
        EXPECT_EQ(target.y[n], 0xEE) << "luma " << n;
    EXPECT_EQ(target.u, (std::vector<BYTE>{3, 5, 0xEE, 0xEE}));
    EXPECT_EQ(target.v, (std::vector<BYTE>{127, 128, 0xEE, 0xEE}));
}

TEST(Macroblocks, GetTakesTheMacroblockAtItsPlace)
{
    constexpr int kWidth = 48, kHeight = 32;
    CPicture picture(kWidth, kHeight);
    for (int n = 0; n < kWidth * kHeight; ++n)
        picture.y[n] = static_cast<BYTE>(n % 251);
    for (std::size_t n = 0; n < picture.u.size(); ++n) {
        picture.u[n] = static_cast<BYTE>(n % 239);
        picture.v[n] = static_cast<BYTE>(255 - n % 233);
    }
    YUV_Block mb;
    BYTE bytes[MB_SAMPLES];
    GetMB(2, 1, picture.Image(), kWidth, &mb);
    GetMBBytes(2, 1, picture.Image(), kWidth, bytes);
    // Value n of the macroblock (2, 1): luma rows 16.., columns 32..; chroma rows 8..,
    // columns 16...
    for (int n = 0; n < MB_SAMPLES; ++n) {
        const int k = n < 256 ? n : (n - 256) % 64;
        const BYTE byExpected = n < 256 ? picture.y[(16 + k / 16) * kWidth + 32 + k % 16]
                                        : (n < 320 ? picture.u : picture.v)[(8 + k / 8) * (kWidth / 2) + 16 + k % 8];
        ASSERT_EQ(At(mb, n), byExpected) << n;
        ASSERT_EQ(bytes[n], byExpected) << n;
    }
}

TEST(Macroblocks, PutWritesLowBytesOnlyInsideTheMacroblock)
{
    constexpr int kWidth = 32, kHeight = 32;
    CPicture picture(kWidth, kHeight, 0xEE);
    YUV_Block mb;
    for (int n = 0; n < MB_SAMPLES; ++n)
        At(mb, n) = static_cast<short>(n % 3 == 0 ? 300 : n % 3 == 1 ? -1 : n % 256);
    PutMB(1, 0, picture.Image(), kWidth, &mb);
    for (int r = 0; r < kHeight; ++r) {
        for (int c = 0; c < kWidth; ++c) {
            const bool bInside = r < 16 && c >= 16;
            const BYTE byExpected = bInside ? static_cast<BYTE>(mb.Y[16 * r + c - 16] & 0xFF) : 0xEE;
            ASSERT_EQ(picture.y[r * kWidth + c], byExpected) << r << "," << c;
        }
    }
    EXPECT_EQ(picture.y[16], 44);   // 300
    EXPECT_EQ(picture.y[17], 255);  // -1

    CPicture fromBytes(kWidth, kHeight, 0xEE);
    BYTE bytes[MB_SAMPLES];
    for (int n = 0; n < MB_SAMPLES; ++n)
        bytes[n] = static_cast<BYTE>(At(mb, n));
    PutMBBytes(1, 0, fromBytes.Image(), kWidth, bytes);
    EXPECT_EQ(fromBytes.y, picture.y);
    EXPECT_EQ(fromBytes.u, picture.u);
    EXPECT_EQ(fromBytes.v, picture.v);
}

TEST(Macroblocks, ArithmeticCoversAll384Values)
{
    YUV_Block a, b;
    for (int n = 0; n < MB_SAMPLES; ++n) {
        At(a, n) = static_cast<short>(n - 100);
        At(b, n) = static_cast<short>(2 * n);
    }
    YUV_Block diff = a;
    SubMB(&diff, &b);
    for (int n = 0; n < MB_SAMPLES; ++n)
        ASSERT_EQ(At(diff, n), -n - 100);
    AddMB(&diff, &b);
    EXPECT_EQ(0, std::memcmp(&diff, &a, sizeof a));

    ClipMB(&a);
    for (int n = 0; n < MB_SAMPLES; ++n)
        ASSERT_EQ(At(a, n), std::clamp(n - 100, 0, 255));
}

TEST(Macroblocks, SumOfAbsoluteDifferencesIgnoresChroma)
{
    YUV_Block a{}, b{};
    a.Y[0] = 10;
    b.Y[0] = -5;
    a.Y[255] = 3;
    b.Y[255] = 9;
    a.U[0] = 100;
    b.V[63] = -100;
    EXPECT_EQ(SADMB(&a, &b), 21);

    BYTE x[MB_SAMPLES] = {}, y[MB_SAMPLES] = {};
    x[0] = 200;
    y[255] = 55;
    x[256] = 99;
    y[383] = 99;
    EXPECT_EQ(SADMBBytes(x, y), 255);
}

} // namespace
