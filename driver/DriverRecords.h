// The records that the capture code and the driver exchange: the firmware word of a
// board, the description of a stream's input and output, one read order, and the
// picture settings of a camera. Plain values, copied freely.
#pragma once

#include "platform/WinTypes.h"
#include "vocabulary/BoardLayout.h"

// The video standard as the driver takes it: the same values as the capture code's.
enum tag_VIDEOSTANDARD1 : int {
    DRIVER_STANDARD_NTSC = 0,
    DRIVER_STANDARD_PAL = 1,
};

// The part of the analogue input that a stream captures: which input, and the
// window in the full picture (left, top, width, height).
struct tag_VideoPort {
    DWORD dwInput;
    DWORD dwFlags;
    DWORD dwLeft;
    DWORD dwTop;
    DWORD dwWidth;
    DWORD dwHeight;
};

// What a stream delivers into memory: the frame size in pixels, UYVY, lines of
// dwWidth * 2 bytes. The first three values are passed through.
struct tag_PciPort {
    DWORD dwBase;
    DWORD dwLeft;
    DWORD dwTop;
    DWORD dwWidth;
    DWORD dwHeight;
};

// One read order: the camera to read now (within the stream), the two that follow,
// and the buffer with its size in bytes.
struct tag_VIDEOREAD {
    int nSpeed;
    int nCamera;
    int nNextCamera;
    int nSecondNextCamera;
    BYTE* pBuffer;
    DWORD dwSize;
};

// The picture settings of one camera: four values that the board keeps per camera.
inline constexpr int ZNCOLOR_VALUES = 4;

struct tag_ZNCOLOR {
    LONG lValue[ZNCOLOR_VALUES];
};
