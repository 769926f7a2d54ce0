// The bytes of a recording file: the file head with the names and fields behind it, the
// block record, the fixed fields of a frame record, their little-endian forms, and the
// test that a head belongs to a recording. CZnFile writes and reads files through these;
// readers of file heads elsewhere in the library use the same. Pure functions on plain
// records (the CFile forms move the file's position); reentrant.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/CFile.h"
#include "platform/CString.h"
#include "platform/WinTypes.h"
#include "recording/FileRecords.h"

#include <span>

// A reader takes each string of the head into a buffer of this size, so a longer one is
// damage; a writer cuts its names to it.
inline constexpr DWORD ZNFILE_MAX_NAME_LENGTH = 1000;

// A frame record begins with type, flags, stamp and video length, followed by the sound
// length when ZNFRAME_SOUND is set.
inline constexpr UINT ZNFRAME_FIELDS_SIZE = 12;
inline constexpr UINT ZNFRAME_SOUND_LENGTH_SIZE = 4;
inline constexpr UINT ZNFRAME_MAX_FIELDS_SIZE = ZNFRAME_FIELDS_SIZE + ZNFRAME_SOUND_LENGTH_SIZE;

// Little-endian numbers as every field of the file holds them.
WORD GetLe16(const BYTE* pBytes);
DWORD GetLe32(const BYTE* pBytes);
void PutLe16(BYTE* pBytes, WORD wValue);
void PutLe32(BYTE* pBytes, DWORD dwValue);

// The head with what follows it up to the data: the board and camera names, and the host
// name and GMT offset when the version has them (empty and 0 when it hasn't).
struct tag_ZNHEADWITHNAMES {
    tag_ZNFILEHEADER Header;
    CString strBoardName;
    CString strCameraName;
    CString strHostName;
    int nGmt;
};

// ZNFILE_HEADER_SIZE bytes.
void StoreFileHeader(const tag_ZNFILEHEADER& header, BYTE* pBytes);
void LoadFileHeader(const BYTE* pBytes, tag_ZNFILEHEADER& header);

// The test of a recording's head: magic, version up to 0x1000, key-frame interval up to
// 160, frame size index up to 5, names of at most ZNFILE_MAX_NAME_LENGTH bytes.
BOOL IsRecordingHeader(const tag_ZNFILEHEADER& header);

enum tag_ZNHEADRESULT : int {
    ZNHEAD_WHOLE = 0,       // head and every field its version gives are read
    ZNHEAD_SHORT = 1,       // the bytes end first; more of the file may make it whole
    ZNHEAD_FOREIGN = 2,     // not a recording's head (magic, version), or a name too long
};

// Reads the head and the fields behind it from the first bytes of a file. Checks only
// what the layout itself needs: the magic, a known version, and names of at most
// dwMaxNameLength bytes (the host name's length is 32 bits in the file). A reader that
// wants a whole recording adds IsRecordingHeader.
tag_ZNHEADRESULT ParseFileHead(std::span<const BYTE> bytes, tag_ZNHEADWITHNAMES& head,
                               DWORD dwMaxNameLength = ZNFILE_MAX_NAME_LENGTH);
// The same from the start of an open file; a file that ends early is ZNHEAD_SHORT. Leaves
// the file's position behind the fields read. File failures are thrown as CFileException.
tag_ZNHEADRESULT ReadFileHead(CFile& file, tag_ZNHEADWITHNAMES& head,
                              DWORD dwMaxNameLength = ZNFILE_MAX_NAME_LENGTH);

// The offset of the data in a file that this system writes with these names: the head,
// both names, the host name behind its length, and the GMT offset.
DWORD GetDataOffset(const tag_ZNHEADWITHNAMES& head);
// Writes GetDataOffset(head) bytes from the file's start, the head as it stands.
void WriteFileHead(CFile& file, const tag_ZNHEADWITHNAMES& head);

// ZNBLOCK_HEADER_SIZE bytes.
void StoreBlockRecord(const tag_ZNBLOCKHEADER& block, BYTE* pBytes);
void LoadBlockRecord(const BYTE* pBytes, tag_ZNBLOCKHEADER& block);
void WriteBlockRecord(CFile& file, const tag_ZNBLOCKHEADER& block);
// FALSE when the file ends before the whole record.
BOOL ReadBlockRecord(CFile& file, tag_ZNBLOCKHEADER& block);

// The fixed fields of one frame record as they stand in a file.
struct tag_ZNFRAMEFIELDS {
    WORD wFrameType;
    WORD wFlags;
    DWORD dwTimeStamp;
    DWORD dwVideoLen;
    DWORD dwSoundLen;       // 0 without ZNFRAME_SOUND
    UINT nFieldsSize;       // ZNFRAME_FIELDS_SIZE, or ZNFRAME_MAX_FIELDS_SIZE with ZNFRAME_SOUND
};

// The fixed fields of a frame, at most ZNFRAME_MAX_FIELDS_SIZE bytes; returns their size.
UINT StoreFrameFields(const tag_ZNFRAMEDATA& frame, BYTE* pBytes);
// Reads the fixed fields at the file's position into fields, and their bytes into pBytes
// (ZNFRAME_MAX_FIELDS_SIZE); FALSE when the file ends inside them.
BOOL ReadFrameFields(CFile& file, tag_ZNFRAMEFIELDS& fields, BYTE* pBytes);

// Moves the file to a 32-bit offset of the format, also beyond the signed range of Seek.
void SeekTo(CFile& file, DWORD dwPos);
