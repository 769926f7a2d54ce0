// The picture generators of the virtual cameras. Every picture is drawn straight into
// the order's buffer; a source allocates only when the delivered size changes.
#include "driver/virtual/FrameSources.h"

#include "vocabulary/VideoSignal.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <vector>

namespace {

// A small, fast generator for sensor noise and scene layout: xorshift32.
class CNoise {
public:
    explicit CNoise(DWORD dwSeed) : m_dwState(dwSeed != 0 ? dwSeed : 0x9E3779B9u) {}

    DWORD Next()
    {
        m_dwState ^= m_dwState << 13;
        m_dwState ^= m_dwState >> 17;
        m_dwState ^= m_dwState << 5;
        return m_dwState;
    }

private:
    DWORD m_dwState;
};

DWORD MixSeed(DWORD dwSeed, DWORD dwValue)
{
    DWORD dwMixed = dwSeed * 0x9E3779B9u ^ (dwValue + 0x7F4A7C15u) * 0x85EBCA6Bu;
    dwMixed ^= dwMixed >> 15;
    return dwMixed * 0xC2B2AE35u;
}

BYTE ClampToByte(int nValue)
{
    return static_cast<BYTE>(std::clamp(nValue, 0, 255));
}

std::size_t FrameBytes(const tag_FRAMEFORMAT& format)
{
    return static_cast<std::size_t>(format.nWidth) * static_cast<std::size_t>(format.nHeight) * 2;
}

// Sensor noise: every luma sample moves by -2 to +2.
void AddLumaNoise(BYTE* pFrame, std::size_t nBytes, CNoise& noise)
{
    for (std::size_t i = 1; i < nBytes; i += 2) {
        int nOffset = static_cast<int>(noise.Next() % 5) - 2;
        pFrame[i] = ClampToByte(pFrame[i] + nOffset);
    }
}

void SetPixel(BYTE* pFrame, const tag_FRAMEFORMAT& format, int x, int y, BYTE byLuma)
{
    if (x < 0 || y < 0 || x >= format.nWidth || y >= format.nHeight)
        return;
    pFrame[(static_cast<std::size_t>(y) * format.nWidth + x) * 2 + 1] = byLuma;
}

void FillRect(BYTE* pFrame, const tag_FRAMEFORMAT& format, int nLeft, int nTop, int nRight, int nBottom,
              const BYTE (&byUyvy)[3])
{
    nLeft = std::max(nLeft, 0) & ~1;
    nTop = std::max(nTop, 0);
    nRight = std::min(nRight, format.nWidth);
    nBottom = std::min(nBottom, format.nHeight);
    for (int y = nTop; y < nBottom; ++y) {
        BYTE* pLine = pFrame + static_cast<std::size_t>(y) * format.nWidth * 2;
        for (int x = nLeft; x < nRight && x + 1 < format.nWidth; x += 2) {
            pLine[x * 2] = byUyvy[0];
            pLine[x * 2 + 1] = byUyvy[1];
            pLine[x * 2 + 2] = byUyvy[2];
            pLine[x * 2 + 3] = byUyvy[1];
        }
    }
}

// Digits, ':' and '.' in a 5 x 7 dot font, one row a byte, high bit on the left.
constexpr BYTE kFontRows = 7;
constexpr BYTE kFontColumns = 5;
constexpr BYTE kDigitFont[10][kFontRows] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
};
constexpr BYTE kColonFont[kFontRows] = {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00};
constexpr BYTE kPointFont[kFontRows] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C};

const BYTE* GlyphOf(char ch)
{
    if (ch >= '0' && ch <= '9')
        return kDigitFont[ch - '0'];
    return ch == ':' ? kColonFont : kPointFont;
}

// The running clock: the tick as hours, minutes, seconds and hundredths, white on a
// black box in the top left corner, larger on wide pictures.
void DrawClock(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime)
{
    char strClock[16];
    std::snprintf(strClock, sizeof(strClock), "%02u:%02u:%02u.%02u", dwTime / 3600000u % 100u,
                  dwTime / 60000u % 60u, dwTime / 1000u % 60u, dwTime / 10u % 100u);
    const int nScale = std::max(1, format.nWidth / 320);
    const int nMargin = 2 * nScale;
    const int nLeft = 8;
    const int nTop = 8;
    const int nLength = static_cast<int>(std::strlen(strClock));
    const int nAdvance = (kFontColumns + 1) * nScale;
    constexpr BYTE kBlack[3] = {128, 16, 128};
    FillRect(pFrame, format, nLeft - nMargin, nTop - nMargin, nLeft + nLength * nAdvance + nMargin,
             nTop + kFontRows * nScale + nMargin, kBlack);
    for (int c = 0; c < nLength; ++c) {
        const BYTE* pGlyph = GlyphOf(strClock[c]);
        for (int row = 0; row < kFontRows * nScale; ++row) {
            for (int column = 0; column < kFontColumns * nScale; ++column) {
                if (pGlyph[row / nScale] & (0x10 >> (column / nScale)))
                    SetPixel(pFrame, format, nLeft + c * nAdvance + column, nTop + row, 235);
            }
        }
    }
}

// A textured background with a gradient of light and colour, the same for every frame
// of one seed and size. Cached, since it only changes with the delivered size.
class CBackground {
public:
    explicit CBackground(DWORD dwSeed) : m_dwSeed(dwSeed) {}

    void CopyTo(BYTE* pFrame, const tag_FRAMEFORMAT& format)
    {
        if (format.nWidth != m_nWidth || format.nHeight != m_nHeight)
            Draw(format);
        std::memcpy(pFrame, m_picture.data(), m_picture.size());
    }

private:
    void Draw(const tag_FRAMEFORMAT& format)
    {
        m_nWidth = format.nWidth;
        m_nHeight = format.nHeight;
        m_picture.assign(FrameBytes(format), 0);
        for (int y = 0; y < m_nHeight; ++y) {
            BYTE* pLine = m_picture.data() + static_cast<std::size_t>(y) * m_nWidth * 2;
            for (int x = 0; x + 1 < m_nWidth; x += 2) {
                pLine[x * 2] = ClampToByte(108 + 40 * x / m_nWidth);
                pLine[x * 2 + 1] = TextureLuma(x, y);
                pLine[x * 2 + 2] = ClampToByte(148 - 40 * y / m_nHeight);
                pLine[x * 2 + 3] = TextureLuma(x + 1, y);
            }
        }
    }

    BYTE TextureLuma(int x, int y) const
    {
        const int nGradient = 70 + 80 * y / m_nHeight;
        const DWORD dwTile = MixSeed(m_dwSeed, static_cast<DWORD>(x / 8) * 4099u + static_cast<DWORD>(y / 8));
        const int nTile = static_cast<int>(dwTile % 41) - 20;
        const int nStripe = ((x + y) & 4) != 0 ? 6 : 0;
        return ClampToByte(nGradient + nTile + nStripe);
    }

    DWORD m_dwSeed;
    int m_nWidth = 0;
    int m_nHeight = 0;
    std::vector<BYTE> m_picture;
};

// A rectangle that travels across the picture and bounces at its edges.
struct tag_MOVINGOBJECT {
    int nSizePercent;        // of the picture's height
    int nSpeedX;             // thousandths of the free width a second
    int nSpeedY;             // thousandths of the free height a second
    DWORD dwPhase;
    BYTE byUyvy[3];
};

constexpr int kMovingObjects = 3;

// Position along a free range of nRange pixels: a triangle wave of the travelled path.
int BouncePosition(DWORD dwTime, int nSpeed, DWORD dwPhase, int nRange)
{
    if (nRange <= 0)
        return 0;
    const unsigned long long nPath = static_cast<unsigned long long>(dwTime) * static_cast<unsigned>(nSpeed) / 1000u *
                                         static_cast<unsigned>(nRange) / 1000u + dwPhase;
    const unsigned long long nPeriod = 2ull * static_cast<unsigned>(nRange);
    const int nInPeriod = static_cast<int>(nPath % nPeriod);
    return nInPeriod <= nRange ? nInPeriod : static_cast<int>(nPeriod) - nInPeriod;
}

class CSceneSource : public CFrameSource {
public:
    CSceneSource(DWORD dwSeed, bool bMoving, bool bFaultPattern)
        : m_dwSeed(dwSeed), m_background(dwSeed), m_bMoving(bMoving), m_bFaultPattern(bFaultPattern)
    {
        CNoise layout(MixSeed(dwSeed, 0x5CE7Eu));
        for (tag_MOVINGOBJECT& object : m_objects) {
            object.nSizePercent = 10 + static_cast<int>(layout.Next() % 20);
            object.nSpeedX = 100 + static_cast<int>(layout.Next() % 300);
            object.nSpeedY = 60 + static_cast<int>(layout.Next() % 200);
            object.dwPhase = layout.Next() % 1000;
            object.byUyvy[0] = static_cast<BYTE>(layout.Next());
            object.byUyvy[1] = static_cast<BYTE>(60 + layout.Next() % 170);
            object.byUyvy[2] = static_cast<BYTE>(layout.Next());
        }
    }

    void WriteFrame(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime) override
    {
        m_background.CopyTo(pFrame, format);
        if (m_bMoving) {
            DrawObjects(pFrame, format, dwTime);
            DrawClock(pFrame, format, dwTime);
        }
        CNoise noise(MixSeed(m_dwSeed, m_dwFrame++));
        AddLumaNoise(pFrame, FrameBytes(format), noise);
        if (m_bFaultPattern)
            StampFaultPattern(pFrame, format);
    }

private:
    void DrawObjects(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime) const
    {
        for (const tag_MOVINGOBJECT& object : m_objects) {
            const int nSize = std::max(2, format.nHeight * object.nSizePercent / 100);
            const int x = BouncePosition(dwTime, object.nSpeedX, object.dwPhase, format.nWidth - nSize);
            const int y = BouncePosition(dwTime, object.nSpeedY, object.dwPhase, format.nHeight - nSize);
            FillRect(pFrame, format, x, y, x + nSize, y + nSize, object.byUyvy);
        }
    }

    // What a faulty read of stream 1 leaves in lines 2 to 9: four fixed luma bytes whose
    // places depend on the standard.
    static void StampFaultPattern(BYTE* pFrame, const tag_FRAMEFORMAT& format)
    {
        const bool bPal = format.nStandard == DRIVER_STANDARD_PAL;
        const std::size_t nOffsets[4] = {197, 199, bPal ? 339u : 333u, bPal ? 341u : 335u};
        constexpr BYTE kValues[4] = {0x27, 0x28, 0x20, 0x20};
        const std::size_t nLineBytes = static_cast<std::size_t>(format.nWidth) * 2;
        for (int nLine = 2; nLine <= 9 && nLine < format.nHeight; ++nLine) {
            for (int i = 0; i < 4; ++i) {
                if (nOffsets[i] < nLineBytes)
                    pFrame[nLine * nLineBytes + nOffsets[i]] = kValues[i];
            }
        }
    }

    DWORD m_dwSeed;
    DWORD m_dwFrame = 0;
    CBackground m_background;
    bool m_bMoving;
    bool m_bFaultPattern;
    tag_MOVINGOBJECT m_objects[kMovingObjects];
};

// A camera without signal: black with a little noise, never above the threshold.
class CNoSignalSource : public CFrameSource {
public:
    explicit CNoSignalSource(DWORD dwSeed) : m_dwSeed(dwSeed) {}

    void WriteFrame(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD) override
    {
        CNoise noise(MixSeed(m_dwSeed, m_dwFrame++));
        const std::size_t nBytes = FrameBytes(format);
        for (std::size_t i = 0; i < nBytes; i += 2) {
            pFrame[i] = 128;
            pFrame[i + 1] = static_cast<BYTE>(VIDEO_SIGNAL_LUMA - 4 + noise.Next() % 5);
        }
    }

private:
    DWORD m_dwSeed;
    DWORD m_dwFrame = 0;
};

// The clock of file footage: frame k of a file of nRate / nRateBase frames a second is
// shown from k * nRateBase / nRate seconds after the first frame was asked for, and the
// file starts over at its end. So footage runs at its own speed whatever the stream's
// rate: frames are repeated or skipped, as a real camera's would be.
class CFootageClock {
public:
    void SetRate(unsigned nRate, unsigned nRateBase)
    {
        m_nRate = nRate;
        m_nRateBase = nRateBase;
    }

    // The frame, of nFrames, that shows at tick dwTime.
    std::size_t FrameAt(DWORD dwTime, std::size_t nFrames)
    {
        if (!m_bStarted) {
            m_bStarted = true;
            m_dwFirstTime = dwTime;
        }
        const unsigned long long nElapsedMs = static_cast<DWORD>(dwTime - m_dwFirstTime);
        return static_cast<std::size_t>(nElapsedMs * m_nRate / (1000ull * m_nRateBase) % nFrames);
    }

private:
    unsigned long long m_nRate = FOOTAGE_DEFAULT_RATE;
    unsigned long long m_nRateBase = 1;
    bool m_bStarted = false;
    DWORD m_dwFirstTime = 0;
};

// The size of a file, or -1.
off_t FileSize(std::FILE* pFile)
{
    struct stat status {};
    return fstat(fileno(pFile), &status) == 0 ? status.st_size : -1;
}

std::string DescribeOpenFailure(const std::string& strFile)
{
    return strFile + ": " + std::strerror(errno);
}

// Footage from a Y4M file with 8-bit 4:2:0 frames, shown by its frame rate against the
// capture clock. Each delivered pixel takes the nearest sample.
class CY4mSource : public CFrameSource {
public:
    ~CY4mSource() override
    {
        if (m_pFile != nullptr)
            std::fclose(m_pFile);
    }

    bool Open(const std::string& strFile, int nDefaultRate, std::string& strError)
    {
        m_pFile = std::fopen(strFile.c_str(), "rb");
        if (m_pFile == nullptr) {
            strError = DescribeOpenFailure(strFile);
            return false;
        }
        m_clock.SetRate(nDefaultRate > 0 ? static_cast<unsigned>(nDefaultRate) : FOOTAGE_DEFAULT_RATE, 1);
        std::string strReason;
        if (!ReadStreamHeader(strReason) || !IndexFrames(strReason)) {
            strError = strFile + ": " + strReason;
            return false;
        }
        m_nChromaWidth = (m_nWidth + 1) / 2;
        m_pU = m_planes.data() + static_cast<std::size_t>(m_nWidth) * m_nHeight;
        m_pV = m_pU + static_cast<std::size_t>(m_nChromaWidth) * ((m_nHeight + 1) / 2);
        return true;
    }

    bool GetPictureSize(int& nWidth, int& nHeight) const override
    {
        nWidth = m_nWidth;
        nHeight = m_nHeight;
        return true;
    }

    void WriteFrame(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime) override
    {
        LoadFrame(m_clock.FrameAt(dwTime, m_frameOffsets.size()));
        for (int y = 0; y < format.nHeight; ++y) {
            const int nSourceY = static_cast<int>(static_cast<long long>(y) * m_nHeight / format.nHeight);
            const BYTE* pLuma = m_planes.data() + static_cast<std::size_t>(nSourceY) * m_nWidth;
            const std::size_t nChromaLine = static_cast<std::size_t>(nSourceY / 2) * m_nChromaWidth;
            BYTE* pLine = pFrame + static_cast<std::size_t>(y) * format.nWidth * 2;
            for (int x = 0; x + 1 < format.nWidth; x += 2) {
                const int nSourceX = SourceColumn(x, format.nWidth);
                pLine[x * 2] = m_pU[nChromaLine + nSourceX / 2];
                pLine[x * 2 + 1] = pLuma[nSourceX];
                pLine[x * 2 + 2] = m_pV[nChromaLine + nSourceX / 2];
                pLine[x * 2 + 3] = pLuma[SourceColumn(x + 1, format.nWidth)];
            }
        }
    }

private:
    static constexpr int kMaxDimension = 4096;
    static constexpr std::size_t kMaxHeaderLine = 4096;

    int SourceColumn(int x, int nWidth) const
    {
        return static_cast<int>(static_cast<long long>(x) * m_nWidth / nWidth);
    }

    bool ReadLine(std::string& strLine)
    {
        strLine.clear();
        for (int ch = std::fgetc(m_pFile); ch != '\n'; ch = std::fgetc(m_pFile)) {
            if (ch == EOF || strLine.size() >= kMaxHeaderLine)
                return false;
            strLine.push_back(static_cast<char>(ch));
        }
        return true;
    }

    // "YUV4MPEG2" followed by tagged fields; W, H, C and F matter here, the rest is
    // skipped.
    bool ReadStreamHeader(std::string& strReason)
    {
        std::string strLine;
        if (!ReadLine(strLine) || strLine.rfind("YUV4MPEG2", 0) != 0) {
            strReason = "not a Y4M file (no YUV4MPEG2 header line)";
            return false;
        }
        std::size_t nPos = 9;
        while (nPos < strLine.size()) {
            const std::size_t nEnd = std::min(strLine.find(' ', nPos), strLine.size());
            const std::string strField = strLine.substr(nPos, nEnd - nPos);
            nPos = nEnd + 1;
            if (strField.empty())
                continue;
            if ((strField[0] == 'W' && !ParseDimension(strField, m_nWidth)) ||
                (strField[0] == 'H' && !ParseDimension(strField, m_nHeight))) {
                strReason = "bad picture size '" + strField + "'";
                return false;
            }
            if (strField[0] == 'C' && !IsEightBit420(strField)) {
                strReason = "colour space '" + strField + "' is not 8-bit 4:2:0";
                return false;
            }
            if (strField[0] == 'F' && !ParseRate(strField)) {
                strReason = "bad frame rate '" + strField + "'";
                return false;
            }
        }
        if (m_nWidth <= 0 || m_nHeight <= 0) {
            strReason = "no picture size in the header";
            return false;
        }
        return true;
    }

    static bool IsEightBit420(const std::string& strField)
    {
        return strField == "C420" || strField == "C420jpeg" || strField == "C420paldv" || strField == "C420mpeg2";
    }

    static bool ParseDimension(const std::string& strField, int& nValue)
    {
        char* pEnd = nullptr;
        const long nParsed = std::strtol(strField.c_str() + 1, &pEnd, 10);
        if (pEnd == strField.c_str() + 1 || *pEnd != '\0' || nParsed <= 0 || nParsed > kMaxDimension)
            return false;
        nValue = static_cast<int>(nParsed);
        return true;
    }

    // "F" + rate + ":" + base, both positive.
    bool ParseRate(const std::string& strField)
    {
        unsigned nRate = 0;
        unsigned nRateBase = 0;
        char chEnd = 0;
        if (std::sscanf(strField.c_str() + 1, "%9u:%9u%c", &nRate, &nRateBase, &chEnd) != 2 || nRate == 0 ||
            nRateBase == 0)
            return false;
        m_clock.SetRate(nRate, nRateBase);
        return true;
    }

    // Finds where each whole frame's planes start; a cut last frame is left out.
    bool IndexFrames(std::string& strReason)
    {
        const off_t nFileSize = FileSize(m_pFile);
        const std::size_t nLuma = static_cast<std::size_t>(m_nWidth) * m_nHeight;
        const std::size_t nChroma = static_cast<std::size_t>((m_nWidth + 1) / 2) * ((m_nHeight + 1) / 2);
        m_planes.assign(nLuma + 2 * nChroma, 0);
        const auto nPlaneBytes = static_cast<off_t>(m_planes.size());
        std::string strLine;
        while (ReadLine(strLine) && strLine.rfind("FRAME", 0) == 0) {
            const off_t nPlanes = ftello(m_pFile);
            if (nPlanes < 0 || nFileSize - nPlanes < nPlaneBytes || fseeko(m_pFile, nPlaneBytes, SEEK_CUR) != 0)
                break;
            m_frameOffsets.push_back(nPlanes);
        }
        if (m_frameOffsets.empty()) {
            strReason = "holds no whole frame";
            return false;
        }
        return true;
    }

    // Reads frame nFrame into the planes unless it is there; a frame that can't be read
    // leaves the last picture.
    void LoadFrame(std::size_t nFrame)
    {
        if (nFrame == m_nLoadedFrame)
            return;
        if (fseeko(m_pFile, m_frameOffsets[nFrame], SEEK_SET) == 0 &&
            std::fread(m_planes.data(), 1, m_planes.size(), m_pFile) == m_planes.size())
            m_nLoadedFrame = nFrame;
    }

    std::FILE* m_pFile = nullptr;
    int m_nWidth = 0;
    int m_nHeight = 0;
    int m_nChromaWidth = 0;
    CFootageClock m_clock;
    std::vector<off_t> m_frameOffsets;
    std::size_t m_nLoadedFrame = SIZE_MAX;
    std::vector<BYTE> m_planes;
    BYTE* m_pU = nullptr;
    BYTE* m_pV = nullptr;
};

// Raw UYVY footage: frames of a size and rate the file doesn't state, back to back,
// shown by that rate against the capture clock. Each delivered pixel takes the nearest
// sample, and its chroma that of the sample's pair.
class CUyvyFileSource : public CFrameSource {
public:
    ~CUyvyFileSource() override
    {
        if (m_pFile != nullptr)
            std::fclose(m_pFile);
    }

    bool Open(const tag_CAMERASOURCE& source, std::string& strError)
    {
        const int nWidth = source.nFileWidth;
        const int nHeight = source.nFileHeight;
        if (nWidth <= 0 || nWidth % 2 != 0 || nWidth > kMaxDimension || nHeight <= 0 || nHeight > kMaxDimension) {
            strError = source.strFile + ": frame size " + std::to_string(nWidth) + "x" + std::to_string(nHeight) +
                       " isn't an even width and a height of 1 to " + std::to_string(kMaxDimension);
            return false;
        }
        m_nWidth = nWidth;
        m_nHeight = nHeight;
        m_picture.assign(static_cast<std::size_t>(nWidth) * nHeight * 2, 0);
        m_clock.SetRate(source.nFileRate > 0 ? static_cast<unsigned>(source.nFileRate) : FOOTAGE_DEFAULT_RATE, 1);
        m_pFile = std::fopen(source.strFile.c_str(), "rb");
        if (m_pFile == nullptr) {
            strError = DescribeOpenFailure(source.strFile);
            return false;
        }
        m_nFrames = static_cast<std::size_t>(std::max<off_t>(FileSize(m_pFile), 0)) / m_picture.size();
        if (m_nFrames == 0) {
            strError = source.strFile + ": holds no whole frame of " + std::to_string(nWidth) + "x" +
                       std::to_string(nHeight);
            return false;
        }
        return true;
    }

    bool GetPictureSize(int& nWidth, int& nHeight) const override
    {
        nWidth = m_nWidth;
        nHeight = m_nHeight;
        return true;
    }

    void WriteFrame(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime) override
    {
        LoadFrame(m_clock.FrameAt(dwTime, m_nFrames));
        for (int y = 0; y < format.nHeight; ++y) {
            const int nSourceY = static_cast<int>(static_cast<long long>(y) * m_nHeight / format.nHeight);
            const BYTE* pSource = m_picture.data() + static_cast<std::size_t>(nSourceY) * m_nWidth * 2;
            BYTE* pLine = pFrame + static_cast<std::size_t>(y) * format.nWidth * 2;
            for (int x = 0; x + 1 < format.nWidth; x += 2) {
                const int nSourceX = static_cast<int>(static_cast<long long>(x) * m_nWidth / format.nWidth);
                const int nNextX = static_cast<int>(static_cast<long long>(x + 1) * m_nWidth / format.nWidth);
                const BYTE* pPair = pSource + (nSourceX & ~1) * 2;
                pLine[x * 2] = pPair[0];
                pLine[x * 2 + 1] = pSource[nSourceX * 2 + 1];
                pLine[x * 2 + 2] = pPair[2];
                pLine[x * 2 + 3] = pSource[nNextX * 2 + 1];
            }
        }
    }

private:
    static constexpr int kMaxDimension = 4096;

    void LoadFrame(std::size_t nFrame)
    {
        if (nFrame == m_nLoadedFrame)
            return;
        if (fseeko(m_pFile, static_cast<off_t>(nFrame * m_picture.size()), SEEK_SET) == 0 &&
            std::fread(m_picture.data(), 1, m_picture.size(), m_pFile) == m_picture.size())
            m_nLoadedFrame = nFrame;
    }

    std::FILE* m_pFile = nullptr;
    int m_nWidth = 0;
    int m_nHeight = 0;
    CFootageClock m_clock;
    std::size_t m_nFrames = 0;
    std::size_t m_nLoadedFrame = SIZE_MAX;
    std::vector<BYTE> m_picture;
};

} // namespace

std::unique_ptr<CFrameSource> CreateFrameSource(const tag_CAMERASOURCE& source, std::string* pstrError)
{
    std::string strError;
    std::unique_ptr<CFrameSource> pSource;
    switch (source.nKind) {
    case SOURCE_SYNTHETIC:
        return std::make_unique<CSceneSource>(source.dwSeed, true, false);
    case SOURCE_STILL:
        return std::make_unique<CSceneSource>(source.dwSeed, false, false);
    case SOURCE_NOSIGNAL:
        return std::make_unique<CNoSignalSource>(source.dwSeed);
    case SOURCE_FAULTPATTERN:
        return std::make_unique<CSceneSource>(source.dwSeed, false, true);
    case SOURCE_Y4MFILE: {
        auto pY4m = std::make_unique<CY4mSource>();
        if (pY4m->Open(source.strFile, source.nFileRate, strError))
            pSource = std::move(pY4m);
        break;
    }
    case SOURCE_UYVYFILE: {
        auto pUyvy = std::make_unique<CUyvyFileSource>();
        if (pUyvy->Open(source, strError))
            pSource = std::move(pUyvy);
        break;
    }
    default:
        strError = "unknown source kind " + std::to_string(static_cast<int>(source.nKind));
        break;
    }
    if (pSource == nullptr && pstrError != nullptr)
        *pstrError = strError;
    return pSource;
}
