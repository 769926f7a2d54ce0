#include "platform/WaveFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kChunkHeaderBytes = 8;
constexpr std::size_t kRiffHeaderBytes = 12;
constexpr std::size_t kFmtBytes = 16;
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

bool IsTag(const BYTE* p, const char* pszTag)
{
    return std::memcmp(p, pszTag, 4) == 0;
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

} // namespace

bool ParseWaveFile(const BYTE* pImage, std::size_t nSize, tag_WAVEFILEDATA& wave, std::string& strReason)
{
    if (pImage == nullptr || nSize < kRiffHeaderBytes || !IsTag(pImage, "RIFF") || !IsTag(pImage + 8, "WAVE")) {
        strReason = "not a RIFF WAVE file";
        return false;
    }
    bool bHasFormat = false;
    std::size_t nPos = kRiffHeaderBytes;
    // A pad byte may take the position past the end of the image.
    while (nPos <= nSize && nSize - nPos >= kChunkHeaderBytes) {
        const BYTE* pChunk = pImage + nPos;
        const std::size_t nBody = ReadDword(pChunk + 4);
        const std::size_t nAvailable = nSize - nPos - kChunkHeaderBytes;
        if (IsTag(pChunk, "fmt ")) {
            if (nBody < kFmtBytes || nAvailable < kFmtBytes) {
                strReason = "format chunk too short";
                return false;
            }
            if (!ReadFormat(pChunk + kChunkHeaderBytes, wave.format, strReason))
                return false;
            bHasFormat = true;
        } else if (IsTag(pChunk, "data")) {
            if (!bHasFormat) {
                strReason = "data chunk before the format chunk";
                return false;
            }
            std::size_t nBytes = nBody < nAvailable ? nBody : nAvailable;
            nBytes -= nBytes % wave.format.nBlockAlign;
            wave.data.assign(pChunk + kChunkHeaderBytes, pChunk + kChunkHeaderBytes + nBytes);
            return true;
        }
        if (nBody > nAvailable)
            break;
        // Chunks are padded to an even length.
        nPos += kChunkHeaderBytes + nBody + (nBody & 1);
    }
    strReason = bHasFormat ? "no data chunk" : "no format chunk";
    return false;
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
