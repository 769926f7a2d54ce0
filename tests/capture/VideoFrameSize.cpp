// The frame-size table read forwards and backwards, per revision and standard.
#include "capture/CVideo.h"

#include <gtest/gtest.h>

namespace {

struct SizeRow {
    int nSize;
    int nWidth;
    int nHeight;
    tag_VIDEOSTANDARD nStandard;
    DWORD dwRevision;
};

const SizeRow kRows[] = {
    {0, 160, 112, STANDARD_NTSC, 0x20020114}, {1, 240, 176, STANDARD_NTSC, 0x20020114},
    {2, 320, 240, STANDARD_NTSC, 0x20020114}, {3, 640, 240, STANDARD_NTSC, 0x20020114},
    {4, 320, 240, STANDARD_NTSC, 0x20020219}, {5, 640, 240, STANDARD_NTSC, 0x20020219},
    {128, 176, 144, STANDARD_PAL, 0x20020114}, {129, 256, 192, STANDARD_PAL, 0x20020114},
    {130, 352, 288, STANDARD_PAL, 0x20020114}, {131, 640, 240, STANDARD_PAL, 0x20020114},
    {132, 352, 288, STANDARD_PAL, 0x20020219}, {133, 704, 288, STANDARD_PAL, 0x20020219},
};

TEST(VideoFrameSize, EverySizeReadsForwardsAndBackInItsRevision)
{
    for (const SizeRow& row : kRows) {
        tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
        int nWidth = 0;
        int nHeight = 0;
        ASSERT_EQ(CVideo::GetVideoSize(static_cast<tag_FRAMESIZE>(row.nSize), nStandard, nWidth, nHeight),
                  ZNRET_OK);
        EXPECT_EQ(nWidth, row.nWidth);
        EXPECT_EQ(nHeight, row.nHeight);
        EXPECT_EQ(nStandard, row.nStandard);
        EXPECT_EQ(nStandard == STANDARD_PAL, (row.nSize & 0x80) != 0);
        EXPECT_EQ(CVideo::GetVideoSize(row.nWidth, row.nHeight, row.nStandard, row.dwRevision), row.nSize);
    }
}

TEST(VideoFrameSize, SizesOutsideTheTableOrTheRevisionGiveInvalid)
{
    tag_VIDEOSTANDARD nStandard = STANDARD_PAL;
    int nWidth = -1;
    int nHeight = -1;
    for (int nSize : {6, 127, 134, 255, -1}) {
        EXPECT_EQ(CVideo::GetVideoSize(static_cast<tag_FRAMESIZE>(nSize), nStandard, nWidth, nHeight),
                  ZNRET_FAILED);
    }
    EXPECT_EQ(nWidth, -1);
    EXPECT_EQ(CVideo::GetVideoSize(160, 112, STANDARD_NTSC, 0x20020219), FRAMESIZE_INVALID);
    EXPECT_EQ(CVideo::GetVideoSize(640, 240, STANDARD_PAL, 0x20020219), FRAMESIZE_INVALID);
    EXPECT_EQ(CVideo::GetVideoSize(640, 240, STANDARD_PAL, 0x20020114), FRAMESIZE_640X240_PAL);
    EXPECT_EQ(CVideo::GetVideoSize(320, 240, STANDARD_PAL, 0x20020114), FRAMESIZE_INVALID);
    EXPECT_EQ(CVideo::GetVideoSize(352, 288, STANDARD_NTSC, 0x20020219), FRAMESIZE_INVALID);
    // Any revision but the second family's reads as the first.
    EXPECT_EQ(CVideo::GetVideoSize(320, 240, STANDARD_NTSC, 0), FRAMESIZE_320X240);
    EXPECT_EQ(CVideo::GetVideoSize(704, 288, STANDARD_PAL, 0), FRAMESIZE_INVALID);
}

} // namespace
