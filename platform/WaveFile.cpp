#include "platform/WaveFile.h"

#include "platform/WinMmio.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr LONG kFmtBytes = 16;
constexpr DWORD kMaxSampleRate = 192000;

DWORD ReadDword(const BYTE* p)
{
    return static_cast<DWORD>(p[0]) | static_cast<DWORD>(p[1]) << 8 | static_cast<DWORD>(p[2]) << 16 |
           static_cast<DWORD>(p[3]) << 24;
}

WORD ReadWord(const BYTE* p)
{
    return static_cast<WORD>(p[0] | p[1] << 8);
}

// The fmt chunk's fields, checked: PCM, 1 or 2 channels, 8 or 16 bits, a usable rate.
bool ReadFormat(const BYTE* pChunk, WAVEFORMATEX& format, std::string& strReason)
{
    format.wFormatTag = ReadWord(pChunk);
    format.nChannels = ReadWord(pChunk + 2);
    format.nSamplesPerSec = ReadDword(pChunk + 4);
    format.wBitsPerSample = ReadWord(pChunk + 14);
    format.cbSize = 0;
    if (format.wFormatTag != WAVE_FORMAT_PCM) {
        strReason = "not linear PCM (format tag " + std::to_string(format.wFormatTag) + ")";
        return false;
    }
    if (format.nChannels < 1 || format.nChannels > 2 || (format.wBitsPerSample != 8 && format.wBitsPerSample != 16)) {
        strReason = std::to_string(format.nChannels) + " channels of " + std::to_string(format.wBitsPerSample) +
                    " bits (1 or 2 channels of 8 or 16 bits are taken)";
        return false;
    }
    if (format.nSamplesPerSec < 1 || format.nSamplesPerSec > kMaxSampleRate) {
        strReason = "sample rate " + std::to_string(format.nSamplesPerSec) + " out of range";
        return false;
    }
    // Block size and byte rate follow from the rest; files that state them wrongly abound.
    format.nBlockAlign = static_cast<WORD>(format.nChannels * format.wBitsPerSample / 8);
    format.nAvgBytesPerSec = format.nSamplesPerSec * format.nBlockAlign;
    return true;
}

// The format and the samples of an open RIFF file.
bool ReadWave(HMMIO hmmio, std::size_t nSize, tag_WAVEFILEDATA& wave, std::string& strReason)
{
    MMCKINFO ckRiff{};
    ckRiff.fccType = mmioFOURCC('W', 'A', 'V', 'E');
    if (mmioDescend(hmmio, &ckRiff, nullptr, MMIO_FINDRIFF) != MMSYSERR_NOERROR) {
        strReason = "not a RIFF WAVE file";
        return false;
    }
    MMCKINFO ck{};
    ck.ckid = mmioFOURCC('f', 'm', 't', ' ');
    if (mmioDescend(hmmio, &ck, &ckRiff, MMIO_FINDCHUNK) != MMSYSERR_NOERROR) {
        strReason = "no format chunk";
        return false;
    }
    BYTE fmt[kFmtBytes];
    if (ck.cksize < kFmtBytes || mmioRead(hmmio, reinterpret_cast<char*>(fmt), kFmtBytes) != kFmtBytes) {
        strReason = "format chunk too short";
        return false;
    }
    if (!ReadFormat(fmt, wave.format, strReason))
        return false;
    mmioAscend(hmmio, &ck, 0);
    ck.ckid = mmioFOURCC('d', 'a', 't', 'a');
    if (mmioDescend(hmmio, &ck, &ckRiff, MMIO_FINDCHUNK) != MMSYSERR_NOERROR) {
        strReason = "no data chunk";
        return false;
    }
    // A data chunk that claims more than the image holds is cut to what is there.
    std::size_t nBytes = std::min<std::size_t>(ck.cksize, nSize - std::min<std::size_t>(nSize, ck.dwDataOffset));
    nBytes -= nBytes % wave.format.nBlockAlign;
    wave.data.resize(nBytes);
    if (nBytes > 0 && mmioRead(hmmio, reinterpret_cast<char*>(wave.data.data()), static_cast<LONG>(nBytes)) !=
                          static_cast<LONG>(nBytes)) {
        strReason = "the data chunk can't be read";
        return false;
    }
    return true;
}

} // namespace

bool ParseWaveFile(const BYTE* pImage, std::size_t nSize, tag_WAVEFILEDATA& wave, std::string& strReason)
{
    MMIOINFO info{};
    info.fccIOProc = FOURCC_MEM;
    info.pchBuffer = reinterpret_cast<char*>(const_cast<BYTE*>(pImage));
    info.cchBuffer = static_cast<LONG>(std::min<std::size_t>(nSize, WAVEFILE_MAX_BYTES));
    HMMIO hmmio = pImage != nullptr ? mmioOpen(nullptr, &info, MMIO_READ) : nullptr;
    if (hmmio == nullptr) {
        strReason = "not a RIFF WAVE file";
        return false;
    }
    const bool bRead = ReadWave(hmmio, static_cast<std::size_t>(info.cchBuffer), wave, strReason);
    mmioClose(hmmio, 0);
    return bRead;
}

bool ReadWaveFile(const char* pszPath, tag_WAVEFILEDATA& wave, std::string& strReason)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> pFile(std::fopen(pszPath, "rb"), &std::fclose);
    if (pFile == nullptr) {
        strReason = std::string(pszPath) + ": " + std::strerror(errno);
        return false;
    }
    std::vector<BYTE> image;
    BYTE buffer[65536];
    std::size_t nRead;
    while ((nRead = std::fread(buffer, 1, sizeof(buffer), pFile.get())) > 0) {
        if (image.size() + nRead > WAVEFILE_MAX_BYTES) {
            strReason = std::string(pszPath) + ": larger than " + std::to_string(WAVEFILE_MAX_BYTES >> 20) + " MB";
            return false;
        }
        image.insert(image.end(), buffer, buffer + nRead);
    }
    if (!ParseWaveFile(image.data(), image.size(), wave, strReason)) {
        strReason = std::string(pszPath) + ": " + strReason;
        return false;
    }
    return true;
}
