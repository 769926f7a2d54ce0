// The enumerations shared by the capture, file and playback sides: results of the
// capture facade, video standards, frame sizes and the states of a camera channel.
#pragma once

#include "platform/WinTypes.h"

enum tag_ZNRETURN : int {
    ZNRET_FAILED = -1,
    ZNRET_OK = 0,
    ZNRET_ALREADY_OPEN = 1,
    ZNRET_NOT_AVAILABLE = 2,
    ZNRET_NO_MEMORY = 3,
    ZNRET_BAD_ARGUMENT = 4,
};

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

enum tag_CAMERASTATUS : int {
    CAMSTATUS_NONE = 0,
    CAMSTATUS_READY = 1,
    CAMSTATUS_ENCODING = 2,
    CAMSTATUS_HOST = 3,
};

// The two stream revisions: two families of boards and two forms of the bit stream.
inline constexpr DWORD ZN_REVISION_20020114 = 0x20020114;
inline constexpr DWORD ZN_REVISION_20020219 = 0x20020219;
