#include "ExportWriters.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#if ZNDVR_HAVE_PNG
#include <png.h>
#endif

namespace {

constexpr int kBytesPerPixel = 3;

// ITU-R BT.601 luma weights, and the scales of the colour differences, full range.
constexpr double kRedWeight = 0.299;
constexpr double kGreenWeight = 0.587;
constexpr double kBlueWeight = 0.114;
constexpr double kBlueDifferenceScale = 1.772;
constexpr double kRedDifferenceScale = 1.402;
constexpr double kChromaZero = 128.0;

std::uint8_t ClipSample(double dValue)
{
    return static_cast<std::uint8_t>(std::clamp(dValue + 0.5, 0.0, 255.0));
}

// 4:2:0 planes of a picture: luma of each pixel, chroma of each 2 x 2 square.
void ConvertToPlanes(const std::uint8_t* pPicture, int nWidth, int nHeight, std::uint8_t* pPlanes)
{
    std::uint8_t* pY = pPlanes;
    std::uint8_t* pU = pY + static_cast<std::size_t>(nWidth) * nHeight;
    std::uint8_t* pV = pU + static_cast<std::size_t>(nWidth) * nHeight / 4;
    for (int y = 0; y < nHeight; y += 2) {
        for (int x = 0; x < nWidth; x += 2) {
            double dU = 0;
            double dV = 0;
            for (int k = 0; k < 4; ++k) {
                const std::size_t nPixel = static_cast<std::size_t>(y + k / 2) * nWidth + x + k % 2;
                const std::uint8_t* p = pPicture + nPixel * kBytesPerPixel;
                const double dLuma = kBlueWeight * p[0] + kGreenWeight * p[1] + kRedWeight * p[2];
                pY[nPixel] = ClipSample(dLuma);
                dU += (p[0] - dLuma) / kBlueDifferenceScale;
                dV += (p[2] - dLuma) / kRedDifferenceScale;
            }
            const std::size_t nChroma = static_cast<std::size_t>(y / 2) * (nWidth / 2) + x / 2;
            pU[nChroma] = ClipSample(kChromaZero + dU / 4);
            pV[nChroma] = ClipSample(kChromaZero + dV / 4);
        }
    }
}

void PutLe16(std::uint8_t* p, std::uint32_t nValue)
{
    p[0] = static_cast<std::uint8_t>(nValue);
    p[1] = static_cast<std::uint8_t>(nValue >> 8);
}

void PutLe32(std::uint8_t* p, std::uint32_t nValue)
{
    PutLe16(p, nValue);
    PutLe16(p + 2, nValue >> 16);
}

// The 44-byte head of a RIFF WAVE file of 16-bit mono PCM at 8000 Hz with nDataBytes
// of samples.
constexpr int kWavHeadBytes = 44;
constexpr std::uint64_t kMaxWavDataBytes = 0xFFFFFFFFu - kWavHeadBytes;

void MakeWavHead(std::uint8_t* pHead, std::uint32_t nDataBytes)
{
    constexpr std::uint32_t kFormatChunkBytes = 16;
    constexpr std::uint32_t kPcmFormat = 1;
    constexpr std::uint32_t kChannels = 1;
    constexpr std::uint32_t kBytesPerSample = 2;
    std::memcpy(pHead, "RIFF", 4);
    PutLe32(pHead + 4, kWavHeadBytes - 8 + nDataBytes);
    std::memcpy(pHead + 8, "WAVEfmt ", 8);
    PutLe32(pHead + 16, kFormatChunkBytes);
    PutLe16(pHead + 20, kPcmFormat);
    PutLe16(pHead + 22, kChannels);
    PutLe32(pHead + 24, CWavWriter::SAMPLES_PER_SECOND);
    PutLe32(pHead + 28, CWavWriter::SAMPLES_PER_SECOND * kBytesPerSample);
    PutLe16(pHead + 32, kBytesPerSample);
    PutLe16(pHead + 34, kBytesPerSample * 8);
    std::memcpy(pHead + 36, "data", 4);
    PutLe32(pHead + 40, nDataBytes);
}

} // namespace

// ---------------------------------------------------------------------------
// Y4M

CY4mWriter::~CY4mWriter()
{
    Close();
}

bool CY4mWriter::Fail(const char* pReason)
{
    m_strError = m_strPath + ": " + pReason;
    return false;
}

bool CY4mWriter::Open(const std::string& strPath, int nWidth, int nHeight, int nFramesPerSecond)
{
    m_strPath = strPath;
    m_nWidth = nWidth;
    m_nHeight = nHeight;
    m_planes.resize(static_cast<std::size_t>(nWidth) * nHeight * 3 / 2);
    m_pFile = std::fopen(strPath.c_str(), "wb");
    if (m_pFile == nullptr)
        return Fail(std::strerror(errno));
    if (std::fprintf(m_pFile, "YUV4MPEG2 W%d H%d F%d:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n", nWidth, nHeight,
                     nFramesPerSecond) < 0)
        return Fail(std::strerror(errno));
    return true;
}

bool CY4mWriter::Write(const std::uint8_t* pPicture)
{
    ConvertToPlanes(pPicture, m_nWidth, m_nHeight, m_planes.data());
    if (std::fputs("FRAME\n", m_pFile) < 0 || std::fwrite(m_planes.data(), 1, m_planes.size(), m_pFile) != m_planes.size())
        return Fail(std::strerror(errno));
    return true;
}

bool CY4mWriter::Close()
{
    if (m_pFile == nullptr)
        return true;
    const bool bClosed = std::fclose(m_pFile) == 0;
    m_pFile = nullptr;
    return bClosed || Fail(std::strerror(errno));
}

// ---------------------------------------------------------------------------
// PNG

bool CPngWriter::IsAvailable()
{
    return ZNDVR_HAVE_PNG != 0;
}

bool CPngWriter::SetPattern(const std::string& strPattern)
{
    const std::size_t nPercent = strPattern.find('%');
    if (nPercent == std::string::npos)
        return false;
    std::size_t nPos = nPercent + 1;
    int nDigits = 0;
    while (nPos < strPattern.size() && strPattern[nPos] >= '0' && strPattern[nPos] <= '9')
        nDigits = std::min(nDigits * 10 + (strPattern[nPos++] - '0'), 9);
    if (nPos >= strPattern.size() || strPattern[nPos] != 'd' || strPattern.find('%', nPos) != std::string::npos)
        return false;
    m_strPrefix = strPattern.substr(0, nPercent);
    m_strSuffix = strPattern.substr(nPos + 1);
    m_nDigits = nDigits;
    return true;
}

std::string CPngWriter::GetFileName(int nIndex) const
{
    std::string strNumber = std::to_string(nIndex);
    if (static_cast<int>(strNumber.size()) < m_nDigits)
        strNumber.insert(0, static_cast<std::size_t>(m_nDigits) - strNumber.size(), '0');
    return m_strPrefix + strNumber + m_strSuffix;
}

#if ZNDVR_HAVE_PNG

namespace {

// libpng reports its errors by longjmp to here; nothing changes after the setjmp.
bool WritePng(png_structp pPng, png_infop pInfo, std::FILE* pFile, const std::uint8_t* pPicture, int nWidth, int nHeight)
{
    if (setjmp(png_jmpbuf(pPng)) != 0)
        return false;
    // Quick compression: an export writes thousands of pictures.
    constexpr int kCompressionLevel = 3;
    png_init_io(pPng, pFile);
    png_set_compression_level(pPng, kCompressionLevel);
    png_set_IHDR(pPng, pInfo, static_cast<png_uint_32>(nWidth), static_cast<png_uint_32>(nHeight), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(pPng, pInfo);
    png_set_bgr(pPng);
    for (int y = 0; y < nHeight; ++y)
        png_write_row(pPng, pPicture + static_cast<std::size_t>(y) * nWidth * kBytesPerPixel);
    png_write_end(pPng, pInfo);
    return true;
}

} // namespace

bool CPngWriter::Write(int nIndex, const std::uint8_t* pPicture, int nWidth, int nHeight)
{
    const std::string strPath = GetFileName(nIndex);
    std::FILE* pFile = std::fopen(strPath.c_str(), "wb");
    if (pFile == nullptr) {
        m_strError = strPath + ": " + std::strerror(errno);
        return false;
    }
    png_structp pPng = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop pInfo = pPng != nullptr ? png_create_info_struct(pPng) : nullptr;
    bool bWritten = pInfo != nullptr && WritePng(pPng, pInfo, pFile, pPicture, nWidth, nHeight);
    png_destroy_write_struct(&pPng, &pInfo);
    bWritten = std::fclose(pFile) == 0 && bWritten;
    if (!bWritten)
        m_strError = strPath + ": can't be written";
    return bWritten;
}

#else

bool CPngWriter::Write(int nIndex, const std::uint8_t*, int, int)
{
    m_strError = GetFileName(nIndex) + ": this zndvr was built without libpng";
    return false;
}

#endif

// ---------------------------------------------------------------------------
// WAV

CWavWriter::~CWavWriter()
{
    Close();
}

bool CWavWriter::Fail(const char* pReason)
{
    m_strError = m_strPath + ": " + pReason;
    return false;
}

bool CWavWriter::Open(const std::string& strPath)
{
    m_strPath = strPath;
    m_nSamples = 0;
    m_pFile = std::fopen(strPath.c_str(), "wb");
    if (m_pFile == nullptr)
        return Fail(std::strerror(errno));
    std::uint8_t head[kWavHeadBytes];
    MakeWavHead(head, 0);
    if (std::fwrite(head, 1, sizeof head, m_pFile) != sizeof head)
        return Fail(std::strerror(errno));
    return true;
}

bool CWavWriter::Write(const std::int16_t* pSamples, std::size_t nSamples)
{
    constexpr std::size_t kPieceSamples = 4096;
    std::uint8_t bytes[kPieceSamples * 2];
    for (std::size_t nDone = 0; nDone < nSamples;) {
        const std::size_t nPiece = std::min(nSamples - nDone, kPieceSamples);
        for (std::size_t i = 0; i < nPiece; ++i)
            PutLe16(bytes + 2 * i, static_cast<std::uint16_t>(pSamples[nDone + i]));
        if (std::fwrite(bytes, 2, nPiece, m_pFile) != nPiece)
            return Fail(std::strerror(errno));
        nDone += nPiece;
    }
    m_nSamples += nSamples;
    return true;
}

bool CWavWriter::WriteSilence(std::size_t nSamples)
{
    const std::int16_t silence[256] = {};
    for (std::size_t nDone = 0; nDone < nSamples;) {
        const std::size_t nPiece = std::min<std::size_t>(nSamples - nDone, 256);
        if (!Write(silence, nPiece))
            return false;
        nDone += nPiece;
    }
    return true;
}

bool CWavWriter::Close()
{
    if (m_pFile == nullptr)
        return true;
    std::uint8_t head[kWavHeadBytes];
    MakeWavHead(head, static_cast<std::uint32_t>(std::min(m_nSamples * 2, kMaxWavDataBytes)));
    const bool bWritten = std::fseek(m_pFile, 0, SEEK_SET) == 0 && std::fwrite(head, 1, sizeof head, m_pFile) == sizeof head;
    const bool bClosed = std::fclose(m_pFile) == 0;
    m_pFile = nullptr;
    return (bWritten && bClosed) || Fail(std::strerror(errno));
}

// ---------------------------------------------------------------------------
// ffmpeg

bool CFFmpegWriter::IsAvailable()
{
    return CChildProcess::IsInstalled("ffmpeg");
}

bool CFFmpegWriter::Open(const std::string& strPath, int nWidth, int nHeight, int nFramesPerSecond,
                         const std::string& strSound)
{
    m_strPath = strPath;
    m_nPictureBytes = static_cast<std::size_t>(nWidth) * nHeight * kBytesPerPixel;
    std::vector<std::string> arguments = {"ffmpeg", "-hide_banner", "-loglevel", "error", "-y", "-f", "rawvideo",
                                          "-pix_fmt", "bgr24", "-video_size",
                                          std::to_string(nWidth) + "x" + std::to_string(nHeight), "-framerate",
                                          std::to_string(nFramesPerSecond), "-i", "pipe:0"};
    if (!strSound.empty())
        arguments.insert(arguments.end(), {"-i", strSound});
    arguments.insert(arguments.end(), {"-pix_fmt", "yuv420p", strPath});
    m_bOpen = m_ffmpeg.Start(arguments);
    if (!m_bOpen)
        m_strError = strPath + ": ffmpeg doesn't start";
    return m_bOpen;
}

bool CFFmpegWriter::Write(const std::uint8_t* pPicture)
{
    if (m_ffmpeg.Write(pPicture, m_nPictureBytes))
        return true;
    m_strError = m_strPath + ": ffmpeg stopped taking pictures";
    return false;
}

bool CFFmpegWriter::Close()
{
    if (!m_bOpen)
        return true;
    m_bOpen = false;
    const int nStatus = m_ffmpeg.Finish();
    if (nStatus == 0)
        return true;
    m_strError = m_strPath + ": ffmpeg failed (exit status " + std::to_string(nStatus) + ")";
    return false;
}
