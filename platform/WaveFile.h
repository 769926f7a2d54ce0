// Reading RIFF WAVE files with linear PCM, for the virtual wave-in devices that play a
// file as their input. A plain function group; thread-safe, no state.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "platform/WinWave.h"

#include <cstddef>
#include <string>
#include <vector>

// The sound of a file: its format and its whole sample frames.
struct tag_WAVEFILEDATA {
    WAVEFORMATEX format{};
    std::vector<BYTE> data;
};

// Files larger than this are refused: the whole sound is held in memory.
inline constexpr std::size_t WAVEFILE_MAX_BYTES = 64u << 20;

// Takes a RIFF WAVE image: the "fmt " chunk (16 bytes or more) and the "data" chunk,
// anywhere among other chunks. Only PCM (format tag 1) with 1 or 2 channels of 8 or 16
// bits is taken. A data chunk that claims more than the image holds is cut to what is
// there, and to whole frames. false, with strReason set, for anything else.
ZNDVR_API bool ParseWaveFile(const BYTE* pImage, std::size_t nSize, tag_WAVEFILEDATA& wave,
                             std::string& strReason);
// The same for a file on disk; strReason names the file's problem.
ZNDVR_API bool ReadWaveFile(const char* pszPath, tag_WAVEFILEDATA& wave, std::string& strReason);
