// The records of a recording file: the block table entry, and the head and block record
// as they stand in a file. The frame record and the camera description that a file
// holds are shared with capture and playback.
#pragma once

#include "platform/WinTypes.h"
#include "vocabulary/FrameRecords.h"

// One entry of a file's block table, rebuilt from the chain of blocks at each opening.
struct tag_ZNBLOCKINFO {
    DWORD dwOffset;         // file offset of the block's record
    DWORD dwFrames;
    DWORD dwTimeStamp;      // stamp of the block's first frame
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
