// RIFF files in the form of the Win32 multimedia file calls: open a file (or a memory
// image, for reading), read, write and seek, find a chunk by its name, create one, and
// ascend out of it with its size corrected. Unbuffered: every call goes to the file.
// A handle is used by one thread at a time; different handles are independent.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "platform/WinWave.h"

using FOURCC = DWORD;

struct HMMIO__;
using HMMIO = HMMIO__*;

// The four characters of a chunk name as the file holds them, first character lowest.
constexpr FOURCC mmioFOURCC(char ch0, char ch1, char ch2, char ch3)
{
    return static_cast<FOURCC>(static_cast<BYTE>(ch0)) | static_cast<FOURCC>(static_cast<BYTE>(ch1)) << 8 |
           static_cast<FOURCC>(static_cast<BYTE>(ch2)) << 16 | static_cast<FOURCC>(static_cast<BYTE>(ch3)) << 24;
}

inline constexpr FOURCC FOURCC_RIFF = mmioFOURCC('R', 'I', 'F', 'F');
inline constexpr FOURCC FOURCC_LIST = mmioFOURCC('L', 'I', 'S', 'T');
// fccIOProc of MMIOINFO for a file that is an image in memory.
inline constexpr FOURCC FOURCC_MEM = mmioFOURCC('M', 'E', 'M', ' ');

// mmioOpen.
inline constexpr DWORD MMIO_READ = 0x00000000;
inline constexpr DWORD MMIO_WRITE = 0x00000001;
inline constexpr DWORD MMIO_READWRITE = 0x00000002;
inline constexpr DWORD MMIO_CREATE = 0x00001000;
// mmioDescend.
inline constexpr UINT MMIO_FINDCHUNK = 0x0010;
inline constexpr UINT MMIO_FINDRIFF = 0x0020;
inline constexpr UINT MMIO_FINDLIST = 0x0040;
// mmioCreateChunk.
inline constexpr UINT MMIO_CREATERIFF = 0x0020;
inline constexpr UINT MMIO_CREATELIST = 0x0040;
// dwFlags of MMCKINFO: the chunk has been written to, and mmioAscend corrects its size.
inline constexpr DWORD MMIO_DIRTY = 0x10000000;

inline constexpr MMRESULT MMIOERR_FILENOTFOUND = 257;
inline constexpr MMRESULT MMIOERR_CANNOTOPEN = 259;
inline constexpr MMRESULT MMIOERR_CANNOTCLOSE = 260;
inline constexpr MMRESULT MMIOERR_CANNOTREAD = 261;
inline constexpr MMRESULT MMIOERR_CANNOTWRITE = 262;
inline constexpr MMRESULT MMIOERR_CANNOTSEEK = 263;
inline constexpr MMRESULT MMIOERR_CHUNKNOTFOUND = 265;
inline constexpr MMRESULT MMIOERR_ACCESSDENIED = 268;

// What mmioOpen reads from it (a memory image: fccIOProc FOURCC_MEM with the bytes in
// pchBuffer and cchBuffer), and where it tells why an open failed.
struct MMIOINFO {
    DWORD dwFlags;
    FOURCC fccIOProc;
    UINT wErrorRet;
    LONG cchBuffer;
    char* pchBuffer;
};
using LPMMIOINFO = MMIOINFO*;

// One chunk: its name, the size of its data, the form of a RIFF or LIST chunk, and the
// file offset of its data (behind the 8-byte chunk head).
struct MMCKINFO {
    FOURCC ckid;
    DWORD cksize;
    FOURCC fccType;
    DWORD dwDataOffset;
    DWORD dwFlags;
};
using LPMMCKINFO = MMCKINFO*;

// Opens a file to read (MMIO_READ), write or both; MMIO_CREATE makes it anew, empty.
// With pmmioinfo naming a memory image the file is that image, for reading only.
// NULL on failure, with the reason in pmmioinfo->wErrorRet when given.
ZNDVR_API HMMIO mmioOpen(LPCSTR pszFileName, LPMMIOINFO pmmioinfo, DWORD dwOpenFlags);
ZNDVR_API MMRESULT mmioClose(HMMIO hmmio, UINT fuClose);
// The bytes read (0 at the end) or written, or -1 on failure.
ZNDVR_API LONG mmioRead(HMMIO hmmio, char* pch, LONG cch);
ZNDVR_API LONG mmioWrite(HMMIO hmmio, const char* pch, LONG cch);
// iOrigin SEEK_SET, SEEK_CUR or SEEK_END; the new position, or -1.
ZNDVR_API LONG mmioSeek(HMMIO hmmio, LONG lOffset, int iOrigin);
// What has been written reaches the disk before this returns.
ZNDVR_API MMRESULT mmioFlush(HMMIO hmmio, UINT fuFlush);

// Reads the chunk head at the position (and the form of a RIFF or LIST chunk) and
// stands at its data. With MMIO_FINDCHUNK, MMIO_FINDRIFF or MMIO_FINDLIST it passes over
// other chunks until one of pmmcki's ckid (or RIFF or LIST of pmmcki's fccType) comes,
// within pmmckiParent's data when given. MMIOERR_CHUNKNOTFOUND at the end.
ZNDVR_API MMRESULT mmioDescend(HMMIO hmmio, LPMMCKINFO pmmcki, const MMCKINFO* pmmckiParent, UINT fuDescend);
// Stands behind the chunk (and its pad byte). For a chunk flagged MMIO_DIRTY the size
// becomes what has been written into it, in the file too, and an odd size gets its pad.
ZNDVR_API MMRESULT mmioAscend(HMMIO hmmio, LPMMCKINFO pmmcki, UINT fuAscend);
// Writes the head of a chunk at the position (ckid and cksize; "RIFF" or "LIST" with
// fccType for MMIO_CREATERIFF or MMIO_CREATELIST) and flags it MMIO_DIRTY.
ZNDVR_API MMRESULT mmioCreateChunk(HMMIO hmmio, LPMMCKINFO pmmcki, UINT fuCreate);
