// The frame record that travels from a camera channel through the host into a file and
// back to the player, with its type and flag values, and the camera description that
// a channel fills and a file keeps. Plain values; the record points into memory that
// its maker owns.
#pragma once

#include "platform/WinTypes.h"
#include "vocabulary/FrameSizes.h"

// Which way a recording file is opened; also the direction of a wave device.
enum tag_ZNFILEMODE : int {
    ZNFILE_WRITE = 0,
    ZNFILE_READ = 1,
};

// wFrameType of a frame record.
inline constexpr WORD ZNFRAME_I = 0;
inline constexpr WORD ZNFRAME_P = 2;

// Bits of wFlags. A reader tests ZNFRAME_SOUND alone and keeps the others as they are.
inline constexpr WORD ZNFRAME_LOST = 0x0001;
inline constexpr WORD ZNFRAME_ALARM = 0x0002;
inline constexpr WORD ZNFRAME_SOUND = 0x8000;

// The sound area of one frame, wherever a frame's sound is held.
inline constexpr DWORD ZNFRAME_SOUND_BUFFER_SIZE = 65536;

// One frame. The record does not own its buffers: a camera channel's hold width x
// height x 2 video bytes and ZNFRAME_SOUND_BUFFER_SIZE sound bytes, and a reader of a
// file provides the same capacities for the frame size of that file.
struct tag_ZNFRAMEDATA {
    WORD wFrameType;
    WORD wFlags;
    DWORD dwTimeStamp;
    DWORD dwVideoLen;
    BYTE* pVideo;
    DWORD dwSoundLen;       // meaningful only with ZNFRAME_SOUND
    BYTE* pSound;
};

struct tag_CAMERAINFO {
    int nBoard;
    int nCamera;
    int nWidth;
    int nHeight;
    tag_VIDEOSTANDARD nStandard;
};
