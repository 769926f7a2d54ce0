#include "vocabulary/FrameSizes.h"

#include "vocabulary/StreamRevision.h"

namespace {

struct tag_FRAMESIZEROW {
    tag_FRAMESIZE nSize;
    int nWidth;
    int nHeight;
    tag_VIDEOSTANDARD nStandard;
    DWORD dwRevision;
};

// Every frame size with its picture and the stream revision whose boards deliver it.
constexpr tag_FRAMESIZEROW kFrameSizeTable[] = {
    {FRAMESIZE_160X112, 160, 112, STANDARD_NTSC, STREAM_REVISION_20020114},
    {FRAMESIZE_240X176, 240, 176, STANDARD_NTSC, STREAM_REVISION_20020114},
    {FRAMESIZE_320X240, 320, 240, STANDARD_NTSC, STREAM_REVISION_20020114},
    {FRAMESIZE_640X240, 640, 240, STANDARD_NTSC, STREAM_REVISION_20020114},
    {FRAMESIZE_320X240_R2, 320, 240, STANDARD_NTSC, STREAM_REVISION_20020219},
    {FRAMESIZE_640X240_R2, 640, 240, STANDARD_NTSC, STREAM_REVISION_20020219},
    {FRAMESIZE_176X144, 176, 144, STANDARD_PAL, STREAM_REVISION_20020114},
    {FRAMESIZE_256X192, 256, 192, STANDARD_PAL, STREAM_REVISION_20020114},
    {FRAMESIZE_352X288, 352, 288, STANDARD_PAL, STREAM_REVISION_20020114},
    {FRAMESIZE_640X240_PAL, 640, 240, STANDARD_PAL, STREAM_REVISION_20020114},
    {FRAMESIZE_352X288_R2, 352, 288, STANDARD_PAL, STREAM_REVISION_20020219},
    {FRAMESIZE_704X288_R2, 704, 288, STANDARD_PAL, STREAM_REVISION_20020219},
};

} // namespace

bool GetFrameSizePicture(tag_FRAMESIZE nSize, tag_VIDEOSTANDARD& nStandard, int& nWidth, int& nHeight)
{
    for (const tag_FRAMESIZEROW& row : kFrameSizeTable) {
        if (row.nSize == nSize) {
            nStandard = row.nStandard;
            nWidth = row.nWidth;
            nHeight = row.nHeight;
            return true;
        }
    }
    return false;
}

tag_FRAMESIZE GetFrameSizeOfPicture(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, DWORD dwRevision)
{
    // Every revision other than the second family's reads as the first one's.
    const DWORD dwRowRevision =
        dwRevision == STREAM_REVISION_20020219 ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114;
    for (const tag_FRAMESIZEROW& row : kFrameSizeTable) {
        if (row.dwRevision == dwRowRevision && row.nStandard == nStandard && row.nWidth == nWidth &&
            row.nHeight == nHeight)
            return row.nSize;
    }
    return FRAMESIZE_INVALID;
}
