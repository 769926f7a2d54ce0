// The files that zndvr export writes: Y4M video, numbered PNG pictures, WAV sound and
// any container ffmpeg makes. Pictures come as 3 bytes a pixel (blue, green, red),
// sound as 16-bit PCM at 8000 samples a second. Each writer reports a failure as false
// and keeps a message that names the file and the reason.
#pragma once

#include "ChildProcess.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// YUV4MPEG2, 4:2:0, full range: the decoder's colours converted back with ITU-R BT.601.
class CY4mWriter {
public:
    ~CY4mWriter();
    bool Open(const std::string& strPath, int nWidth, int nHeight, int nFramesPerSecond);
    bool Write(const std::uint8_t* pPicture);
    bool Close();
    const std::string& GetError() const { return m_strError; }

private:
    bool Fail(const char* pReason);

    std::FILE* m_pFile = nullptr;
    std::string m_strPath;
    std::string m_strError;
    int m_nWidth = 0;
    int m_nHeight = 0;
    std::vector<std::uint8_t> m_planes;
};

// One PNG file a picture, named by a pattern with one %d or %0Nd for the picture number.
class CPngWriter {
public:
    static bool IsAvailable();
    // False for a pattern without exactly one number conversion.
    bool SetPattern(const std::string& strPattern);
    bool Write(int nIndex, const std::uint8_t* pPicture, int nWidth, int nHeight);
    std::string GetFileName(int nIndex) const;
    const std::string& GetError() const { return m_strError; }

private:
    std::string m_strPrefix;
    std::string m_strSuffix;
    int m_nDigits = 0;
    std::string m_strError;
};

// RIFF WAVE, PCM, 8000 Hz, 16 bits, mono. The lengths in the head are set by Close.
class CWavWriter {
public:
    static constexpr int SAMPLES_PER_SECOND = 8000;

    ~CWavWriter();
    bool Open(const std::string& strPath);
    bool Write(const std::int16_t* pSamples, std::size_t nSamples);
    bool WriteSilence(std::size_t nSamples);
    bool Close();
    std::uint64_t GetSamples() const { return m_nSamples; }
    const std::string& GetError() const { return m_strError; }

private:
    bool Fail(const char* pReason);

    std::FILE* m_pFile = nullptr;
    std::string m_strPath;
    std::string m_strError;
    std::uint64_t m_nSamples = 0;
};

// ffmpeg, fed raw pictures through a pipe, with an optional WAV file as the sound; the
// container follows the name of the output.
class CFFmpegWriter {
public:
    static bool IsAvailable();
    bool Open(const std::string& strPath, int nWidth, int nHeight, int nFramesPerSecond, const std::string& strSound);
    bool Write(const std::uint8_t* pPicture);
    bool Close();
    const std::string& GetError() const { return m_strError; }

private:
    CChildProcess m_ffmpeg;
    std::string m_strPath;
    std::string m_strError;
    std::size_t m_nPictureBytes = 0;
    bool m_bOpen = false;
};
