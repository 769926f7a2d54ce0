// The records of a recording file: the frame record that travels from a camera channel
// through the host into a file and back to the player, the block table entry, the
// camera description, and the head and block record as they stand in a file.
#pragma once

#include "capture/CaptureTypes.h"
#include "platform/WinTypes.h"

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

// One entry of a file's block table, rebuilt from the chain of blocks at each opening.
struct tag_ZNBLOCKINFO {
    DWORD dwOffset;         // file offset of the block's record
    DWORD dwFrames;
    DWORD dwTimeStamp;      // stamp of the block's first frame
};

struct tag_CAMERAINFO {
    int nBoard;
    int nCamera;
    int nWidth;
    int nHeight;
    tag_VIDEOSTANDARD nStandard;
};

// The 36-byte head at offset 0 of a recording file, little-endian on disk.
struct tag_ZNFILEHEADER {
    BYTE byMagic[2];            // "ZN"
    WORD wVersion;
    BYTE byFrameSize;           // a tag_FRAMESIZE
    BYTE byBoard;
    BYTE byCamera;
    BYTE byKeyFrameInterval;
    DWORD dwBeginTime;          // seconds since 1970, UTC
    DWORD dwEndTime;
    DWORD dwBeginTimeStamp;     // millisecond stamp of the first frame
    WORD wBoardNameLen;
    WORD wCameraNameLen;
    BYTE bySoundFormat;         // a tag_SOUNDFMT
    BYTE byReserved[3];
    DWORD dwDataOffset;         // file offset of the record of block 0
    DWORD dwReserved;
};

// The 16-byte record in front of each block of frames, little-endian on disk.
struct tag_ZNBLOCKHEADER {
    DWORD dwPrevBlock;          // ZNBLOCK_NO_LINK for block 0
    DWORD dwNextBlock;          // ZNBLOCK_NO_LINK while no block follows
    WORD wFrames;
    WORD wPadding;
    DWORD dwTimeStamp;          // stamp of the block's first frame
};

inline constexpr DWORD ZNBLOCK_NO_LINK = 0xFFFFFFFF;

inline constexpr UINT ZNFILE_HEADER_SIZE = 36;
inline constexpr UINT ZNBLOCK_HEADER_SIZE = 16;
inline constexpr BYTE ZNFILE_MAGIC_0 = 0x5A;                // 'Z'
inline constexpr BYTE ZNFILE_MAGIC_1 = 0x4E;                // 'N'
inline constexpr BYTE ZNFILE_KEY_FRAME_INTERVAL = 160;

// Versions: the host name exists from 0x0100, the GMT offset from 0x0101; 0x0101 is
// written for stream revision 0x20020114 and 0x1000 for 0x20020219, the last version.
inline constexpr WORD ZNFILE_VERSION_HOST_NAME = 0x0100;
inline constexpr WORD ZNFILE_VERSION_GMT = 0x0101;
inline constexpr WORD ZNFILE_VERSION_R2 = 0x1000;
