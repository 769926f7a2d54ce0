// Fuzz target of the RIFF chunk reader, over a memory image of exactly the input's size:
// the way a sound file is opened (the WAVE form, its format and data chunks, the sound
// read in pieces), and a walk over every chunk and every LIST within the form. No read
// may give more than was asked or more than the image holds, and every chunk found must
// lie behind the one before.
#include "platform/WinMmio.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr LONG kPieceBytes = 4096;

void Check(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

HMMIO OpenImage(BYTE* pImage, std::size_t nSize)
{
    MMIOINFO info{};
    info.fccIOProc = FOURCC_MEM;
    info.pchBuffer = reinterpret_cast<char*>(pImage);
    info.cchBuffer = static_cast<LONG>(nSize);
    HMMIO hmmio = mmioOpen(nullptr, &info, MMIO_READ);
    Check(hmmio != nullptr);
    return hmmio;
}

// Reads the chunk's data to its end in pieces, as a sound file is played.
void ReadData(HMMIO hmmio, std::size_t nSize)
{
    static char piece[kPieceBytes];
    std::size_t nTotal = 0;
    for (;;) {
        const LONG nRead = mmioRead(hmmio, piece, kPieceBytes);
        Check(nRead >= 0 && nRead <= kPieceBytes);
        if (nRead == 0)
            break;
        nTotal += static_cast<std::size_t>(nRead);
        Check(nTotal <= nSize);
    }
}

void OpenAsSoundFile(BYTE* pImage, std::size_t nSize)
{
    HMMIO hmmio = OpenImage(pImage, nSize);
    MMCKINFO ckRiff{0, 0, mmioFOURCC('W', 'A', 'V', 'E'), 0, 0};
    MMCKINFO ck{mmioFOURCC('f', 'm', 't', ' '), 0, 0, 0, 0};
    if (mmioDescend(hmmio, &ckRiff, nullptr, MMIO_FINDRIFF) == MMSYSERR_NOERROR &&
        mmioDescend(hmmio, &ck, &ckRiff, MMIO_FINDCHUNK) == MMSYSERR_NOERROR) {
        Check(ck.dwDataOffset > ckRiff.dwDataOffset);
        char fmt[16];
        Check(mmioRead(hmmio, fmt, sizeof(fmt)) <= static_cast<LONG>(sizeof(fmt)));
        mmioAscend(hmmio, &ck, 0);
        ck.ckid = mmioFOURCC('d', 'a', 't', 'a');
        if (mmioDescend(hmmio, &ck, &ckRiff, MMIO_FINDCHUNK) == MMSYSERR_NOERROR)
            ReadData(hmmio, nSize);
    }
    Check(mmioClose(hmmio, 0) == MMSYSERR_NOERROR);
}

// Every chunk of the form in turn, and the chunks of each LIST within it.
void WalkChunks(HMMIO hmmio, const MMCKINFO& parent, int nDepth)
{
    MMCKINFO ck{};
    DWORD dwLastOffset = parent.dwDataOffset;
    while (mmioDescend(hmmio, &ck, &parent, 0) == MMSYSERR_NOERROR) {
        Check(ck.dwDataOffset > dwLastOffset);
        dwLastOffset = ck.dwDataOffset;
        if (ck.ckid == FOURCC_LIST && nDepth < 4)
            WalkChunks(hmmio, ck, nDepth + 1);
        Check(mmioAscend(hmmio, &ck, 0) == MMSYSERR_NOERROR);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    auto pImage = std::make_unique<BYTE[]>(nSize);
    if (nSize > 0)
        std::memcpy(pImage.get(), pData, nSize);
    OpenAsSoundFile(pImage.get(), nSize);
    HMMIO hmmio = OpenImage(pImage.get(), nSize);
    MMCKINFO ckRiff{};
    if (mmioDescend(hmmio, &ckRiff, nullptr, 0) == MMSYSERR_NOERROR && ckRiff.ckid == FOURCC_RIFF)
        WalkChunks(hmmio, ckRiff, 0);
    mmioClose(hmmio, 0);
    return 0;
}
