// The video standards and the twelve frame sizes, with the table that gives each size
// its picture and the stream revision whose boards deliver it. Capture, the recording
// files and the player all speak of pictures by these values. Pure functions.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

// 240-line and 288-line pictures.
enum tag_VIDEOSTANDARD : int {
    STANDARD_NTSC = 0,
    STANDARD_PAL = 1,
};

// Bit 7 set marks a 288-line standard; the low bits are at most 5.
enum tag_FRAMESIZE : int {
    FRAMESIZE_160X112 = 0,
    FRAMESIZE_240X176 = 1,
    FRAMESIZE_320X240 = 2,
    FRAMESIZE_640X240 = 3,
    FRAMESIZE_320X240_R2 = 4,
    FRAMESIZE_640X240_R2 = 5,
    FRAMESIZE_176X144 = 128,
    FRAMESIZE_256X192 = 129,
    FRAMESIZE_352X288 = 130,
    FRAMESIZE_640X240_PAL = 131,
    FRAMESIZE_352X288_R2 = 132,
    FRAMESIZE_704X288_R2 = 133,
    FRAMESIZE_INVALID = 255,
};

inline constexpr int FRAMESIZE_PAL_BIT = 0x80;
inline constexpr int FRAMESIZE_MAX_INDEX = 5;

// Width, height and standard of a frame size; false for a value that is not in the
// table, leaving the outputs untouched.
ZNDVR_API bool GetFrameSizePicture(tag_FRAMESIZE nSize, tag_VIDEOSTANDARD& nStandard, int& nWidth, int& nHeight);

// The frame size of that picture among the sizes of that revision and standard;
// FRAMESIZE_INVALID when there is none.
tag_FRAMESIZE GetFrameSizeOfPicture(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, DWORD dwRevision);
