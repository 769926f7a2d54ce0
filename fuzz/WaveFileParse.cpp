// Fuzz target of the WAVE file reader that feeds virtual wave-in devices. The input is
// copied to a buffer of exactly its size, so that a read past its end is caught. A
// file that is taken must describe whole frames of a format a device can play.
#include "platform/WaveFile.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    auto pImage = std::make_unique<BYTE[]>(nSize);
    if (nSize > 0)
        std::memcpy(pImage.get(), pData, nSize);
    tag_WAVEFILEDATA wave;
    std::string strReason;
    if (!ParseWaveFile(pImage.get(), nSize, wave, strReason)) {
        if (strReason.empty())
            std::abort();
        return 0;
    }
    const WAVEFORMATEX& format = wave.format;
    const bool bPlayable = format.wFormatTag == WAVE_FORMAT_PCM && format.nChannels >= 1 && format.nChannels <= 2 &&
                           (format.wBitsPerSample == 8 || format.wBitsPerSample == 16) &&
                           format.nBlockAlign == format.nChannels * format.wBitsPerSample / 8;
    if (!bPlayable || wave.data.size() % format.nBlockAlign != 0 || wave.data.size() > nSize)
        std::abort();
    return 0;
}
