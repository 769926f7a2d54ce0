#include "platform/WinMmio.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>

// An open RIFF file: a descriptor, or a memory image that is read only.
struct HMMIO__ {
    int nFd = -1;
    const BYTE* pImage = nullptr;
    std::int64_t nImageSize = 0;
    std::int64_t nPos = 0;
};

namespace {

constexpr std::int64_t kChunkHeadBytes = 8;
constexpr std::int64_t kFormBytes = 4;
// Positions and chunk offsets are 32-bit values in this interface.
constexpr std::int64_t kMaxPosition = 0x7FFFFFFF;

MMRESULT OpenError(int nErrno)
{
    switch (nErrno) {
    case ENOENT:
        return MMIOERR_FILENOTFOUND;
    case EACCES:
    case EPERM:
    case EROFS:
        return MMIOERR_ACCESSDENIED;
    default:
        return MMIOERR_CANNOTOPEN;
    }
}

int OpenMode(DWORD dwOpenFlags)
{
    int nMode = O_RDONLY;
    if ((dwOpenFlags & MMIO_WRITE) != 0)
        nMode = O_WRONLY;
    else if ((dwOpenFlags & MMIO_READWRITE) != 0)
        nMode = O_RDWR;
    if ((dwOpenFlags & MMIO_CREATE) != 0)
        nMode |= O_CREAT | O_TRUNC;
    return nMode | O_CLOEXEC;
}

// Reads at the position and moves past what was read; the count, or -1.
LONG ReadAt(HMMIO__& file, void* pData, LONG cch)
{
    if (file.pImage != nullptr) {
        const std::int64_t nLeft = file.nPos < file.nImageSize ? file.nImageSize - file.nPos : 0;
        const LONG nRead = static_cast<LONG>(cch < nLeft ? cch : nLeft);
        if (nRead > 0)
            std::memcpy(pData, file.pImage + file.nPos, static_cast<std::size_t>(nRead));
        file.nPos += nRead;
        return nRead;
    }
    std::int64_t nDone = 0;
    while (nDone < cch) {
        const ssize_t n = pread(file.nFd, static_cast<BYTE*>(pData) + nDone, static_cast<std::size_t>(cch - nDone),
                                static_cast<off_t>(file.nPos + nDone));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        nDone += n;
    }
    file.nPos += nDone;
    return static_cast<LONG>(nDone);
}

LONG WriteAt(HMMIO__& file, const void* pData, LONG cch)
{
    if (file.pImage != nullptr || file.nPos + cch > kMaxPosition)
        return -1;
    std::int64_t nDone = 0;
    while (nDone < cch) {
        const ssize_t n = pwrite(file.nFd, static_cast<const BYTE*>(pData) + nDone, static_cast<std::size_t>(cch - nDone),
                                 static_cast<off_t>(file.nPos + nDone));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        nDone += n;
    }
    file.nPos += nDone;
    return static_cast<LONG>(nDone);
}

bool ReadDword(HMMIO__& file, DWORD& dwValue)
{
    BYTE bytes[4];
    if (ReadAt(file, bytes, sizeof(bytes)) != static_cast<LONG>(sizeof(bytes)))
        return false;
    dwValue = static_cast<DWORD>(bytes[0]) | static_cast<DWORD>(bytes[1]) << 8 | static_cast<DWORD>(bytes[2]) << 16 |
              static_cast<DWORD>(bytes[3]) << 24;
    return true;
}

bool WriteDword(HMMIO__& file, DWORD dwValue)
{
    const BYTE bytes[4] = {static_cast<BYTE>(dwValue), static_cast<BYTE>(dwValue >> 8), static_cast<BYTE>(dwValue >> 16),
                           static_cast<BYTE>(dwValue >> 24)};
    return WriteAt(file, bytes, sizeof(bytes)) == static_cast<LONG>(sizeof(bytes));
}

// Where a chunk ends, its pad byte included: chunks keep an even length.
std::int64_t ChunkEnd(const MMCKINFO& ck)
{
    return static_cast<std::int64_t>(ck.dwDataOffset) + ck.cksize + (ck.cksize & 1);
}

bool IsWanted(const MMCKINFO& found, FOURCC ckidWanted, FOURCC fccWanted, UINT fuDescend)
{
    if ((fuDescend & MMIO_FINDCHUNK) != 0)
        return found.ckid == ckidWanted;
    if ((fuDescend & MMIO_FINDRIFF) != 0)
        return found.ckid == FOURCC_RIFF && found.fccType == fccWanted;
    if ((fuDescend & MMIO_FINDLIST) != 0)
        return found.ckid == FOURCC_LIST && found.fccType == fccWanted;
    return true;
}

// The chunk head at the position, and the form of a RIFF or LIST chunk.
bool ReadChunkHead(HMMIO__& file, MMCKINFO& ck)
{
    const std::int64_t nHead = file.nPos;
    if (nHead + kChunkHeadBytes > kMaxPosition || !ReadDword(file, ck.ckid) || !ReadDword(file, ck.cksize))
        return false;
    ck.dwDataOffset = static_cast<DWORD>(nHead + kChunkHeadBytes);
    ck.fccType = 0;
    // A form chunk too small for its form is passed over like any other chunk.
    if ((ck.ckid == FOURCC_RIFF || ck.ckid == FOURCC_LIST) && ck.cksize >= kFormBytes)
        return ReadDword(file, ck.fccType);
    return true;
}

} // namespace

HMMIO mmioOpen(LPCSTR pszFileName, LPMMIOINFO pmmioinfo, DWORD dwOpenFlags)
{
    const bool bMemory = pmmioinfo != nullptr && pmmioinfo->fccIOProc == FOURCC_MEM;
    MMRESULT nError = MMSYSERR_NOERROR;
    auto* pFile = new (std::nothrow) HMMIO__;
    if (pFile == nullptr) {
        nError = MMSYSERR_NOMEM;
    } else if (bMemory) {
        // A memory image is only read here.
        if (pmmioinfo->pchBuffer == nullptr || pmmioinfo->cchBuffer < 0 || (dwOpenFlags & (MMIO_WRITE | MMIO_READWRITE | MMIO_CREATE)) != 0)
            nError = MMSYSERR_INVALPARAM;
        pFile->pImage = reinterpret_cast<const BYTE*>(pmmioinfo->pchBuffer);
        pFile->nImageSize = pmmioinfo->cchBuffer;
    } else if (pszFileName == nullptr) {
        nError = MMSYSERR_INVALPARAM;
    } else {
        pFile->nFd = open(pszFileName, OpenMode(dwOpenFlags), 0666);
        if (pFile->nFd < 0)
            nError = OpenError(errno);
    }
    if (pmmioinfo != nullptr)
        pmmioinfo->wErrorRet = nError;
    if (nError != MMSYSERR_NOERROR) {
        delete pFile;
        return nullptr;
    }
    return pFile;
}

MMRESULT mmioClose(HMMIO hmmio, UINT)
{
    if (hmmio == nullptr)
        return MMSYSERR_INVALHANDLE;
    const bool bClosed = hmmio->nFd < 0 || close(hmmio->nFd) == 0;
    delete hmmio;
    return bClosed ? MMSYSERR_NOERROR : MMIOERR_CANNOTCLOSE;
}

LONG mmioRead(HMMIO hmmio, char* pch, LONG cch)
{
    if (hmmio == nullptr || pch == nullptr || cch < 0)
        return -1;
    return ReadAt(*hmmio, pch, cch);
}

LONG mmioWrite(HMMIO hmmio, const char* pch, LONG cch)
{
    if (hmmio == nullptr || pch == nullptr || cch < 0)
        return -1;
    return WriteAt(*hmmio, pch, cch);
}

LONG mmioSeek(HMMIO hmmio, LONG lOffset, int iOrigin)
{
    if (hmmio == nullptr)
        return -1;
    std::int64_t nBase = 0;
    if (iOrigin == SEEK_CUR) {
        nBase = hmmio->nPos;
    } else if (iOrigin == SEEK_END) {
        if (hmmio->pImage != nullptr) {
            nBase = hmmio->nImageSize;
        } else {
            const off_t nEnd = lseek(hmmio->nFd, 0, SEEK_END);
            if (nEnd < 0)
                return -1;
            nBase = nEnd;
        }
    } else if (iOrigin != SEEK_SET) {
        return -1;
    }
    const std::int64_t nPos = nBase + lOffset;
    if (nPos < 0 || nPos > kMaxPosition)
        return -1;
    hmmio->nPos = nPos;
    return static_cast<LONG>(nPos);
}

MMRESULT mmioFlush(HMMIO hmmio, UINT)
{
    if (hmmio == nullptr)
        return MMSYSERR_INVALHANDLE;
    if (hmmio->nFd >= 0 && fdatasync(hmmio->nFd) != 0 && errno != EINVAL)
        return MMIOERR_CANNOTWRITE;
    return MMSYSERR_NOERROR;
}

MMRESULT mmioDescend(HMMIO hmmio, LPMMCKINFO pmmcki, const MMCKINFO* pmmckiParent, UINT fuDescend)
{
    if (hmmio == nullptr || pmmcki == nullptr)
        return MMSYSERR_INVALPARAM;
    const FOURCC ckidWanted = pmmcki->ckid;
    const FOURCC fccWanted = pmmcki->fccType;
    const std::int64_t nLimit = pmmckiParent != nullptr ? static_cast<std::int64_t>(pmmckiParent->dwDataOffset) + pmmckiParent->cksize
                                                        : kMaxPosition;
    MMCKINFO found{};
    for (;;) {
        if (hmmio->nPos + kChunkHeadBytes > nLimit || !ReadChunkHead(*hmmio, found))
            return MMIOERR_CHUNKNOTFOUND;
        if (IsWanted(found, ckidWanted, fccWanted, fuDescend))
            break;
        hmmio->nPos = ChunkEnd(found);
    }
    *pmmcki = found;
    return MMSYSERR_NOERROR;
}

MMRESULT mmioAscend(HMMIO hmmio, LPMMCKINFO pmmcki, UINT)
{
    if (hmmio == nullptr || pmmcki == nullptr)
        return MMSYSERR_INVALPARAM;
    if ((pmmcki->dwFlags & MMIO_DIRTY) != 0) {
        const std::int64_t nWritten = hmmio->nPos - pmmcki->dwDataOffset;
        if (nWritten < 0)
            return MMIOERR_CANNOTSEEK;
        if (nWritten != pmmcki->cksize) {
            hmmio->nPos = static_cast<std::int64_t>(pmmcki->dwDataOffset) - 4;
            if (!WriteDword(*hmmio, static_cast<DWORD>(nWritten)))
                return MMIOERR_CANNOTWRITE;
            pmmcki->cksize = static_cast<DWORD>(nWritten);
        }
        hmmio->nPos = static_cast<std::int64_t>(pmmcki->dwDataOffset) + pmmcki->cksize;
        const BYTE byPad = 0;
        if ((pmmcki->cksize & 1) != 0 && WriteAt(*hmmio, &byPad, 1) != 1)
            return MMIOERR_CANNOTWRITE;
        pmmcki->dwFlags &= ~MMIO_DIRTY;
    }
    hmmio->nPos = ChunkEnd(*pmmcki);
    return MMSYSERR_NOERROR;
}

MMRESULT mmioCreateChunk(HMMIO hmmio, LPMMCKINFO pmmcki, UINT fuCreate)
{
    if (hmmio == nullptr || pmmcki == nullptr)
        return MMSYSERR_INVALPARAM;
    if ((fuCreate & MMIO_CREATERIFF) != 0)
        pmmcki->ckid = FOURCC_RIFF;
    else if ((fuCreate & MMIO_CREATELIST) != 0)
        pmmcki->ckid = FOURCC_LIST;
    const bool bForm = pmmcki->ckid == FOURCC_RIFF || pmmcki->ckid == FOURCC_LIST;
    const std::int64_t nHead = hmmio->nPos;
    if (!WriteDword(*hmmio, pmmcki->ckid) || !WriteDword(*hmmio, pmmcki->cksize) ||
        (bForm && !WriteDword(*hmmio, pmmcki->fccType)))
        return MMIOERR_CANNOTWRITE;
    pmmcki->dwDataOffset = static_cast<DWORD>(nHead + kChunkHeadBytes);
    pmmcki->dwFlags = MMIO_DIRTY;
    return MMSYSERR_NOERROR;
}
