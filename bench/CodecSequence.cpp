// Whole-process runs of the codec on a sequence, for bench/compare-ffmpeg.py, which
// times each run by the processor seconds of the process:
//   bench_CodecSequence scene busy|camera FRAMES OUT.uyvy
//       draws a scene of 352x288 frames as raw UYVY;
//   bench_CodecSequence encode IN.uyvy WIDTH HEIGHT LOOPS OUT.rec
//       codes every frame (LOOPS times over) as a camera channel does, with the forms the
//       library picks: a key frame every 160, quantiser 8, the default sensitivity; each
//       record goes to OUT behind its 4-byte length;
//   bench_CodecSequence decode IN.rec LOOPS OUT.bgr
//       decodes every record (LOOPS times over) to 24-bit pictures written to OUT.
#include "codec/CDecoder.h"
#include "codec/CEncoder.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kSceneWidth = 352;
constexpr int kSceneHeight = 288;
constexpr int kKeyInterval = 160;
constexpr int kQuantiser = 8;
// The camera channel's default sensitivity of 16 under revision 0x20020114.
constexpr int kIntraThreshold = 16 * 256;

class CNoise {
public:
    int Next(int nAmplitude)
    {
        m_dwState ^= m_dwState << 13;
        m_dwState ^= m_dwState >> 17;
        m_dwState ^= m_dwState << 5;
        return static_cast<int>(m_dwState % static_cast<std::uint32_t>(2 * nAmplitude + 1)) - nAmplitude;
    }

private:
    std::uint32_t m_dwState = 2463534242u;
};

BYTE Clip(int n)
{
    return static_cast<BYTE>(n < 0 ? 0 : n > 255 ? 255 : n);
}

struct tag_COLOUR {
    int nY;
    int nU;
    int nV;
};

// A test card: colour bars on top, a luma ramp in the middle, a zone plate below.
tag_COLOUR TestCard(int x, int y)
{
    static const tag_COLOUR bars[8] = {{235, 128, 128}, {210, 16, 146}, {170, 166, 16}, {145, 54, 34},
                                       {106, 202, 222}, {81, 90, 240},  {41, 240, 110}, {16, 128, 128}};
    if (y < 96)
        return bars[x * 8 / kSceneWidth];
    if (y < 144)
        return {16 + x * 219 / kSceneWidth, 128, 128};
    const double dX = x - kSceneWidth / 2.0;
    const double dY = y - 216.0;
    return {128 + static_cast<int>(100 * std::sin((dX * dX + dY * dY) / 180.0)), 128 + (x % 64) - 32, 128};
}

// A still street: sky, a building with windows, a road.
tag_COLOUR Street(int x, int y)
{
    if (y < 80)
        return {150 + y / 2, 150, 110};
    if (y < 220 && x > 40 && x < 300) {
        const bool bWindow = (x - 40) % 32 > 8 && (x - 40) % 32 < 24 && (y - 80) % 35 > 8 && (y - 80) % 35 < 26;
        return bWindow ? tag_COLOUR{60 + x % 7, 140, 120} : tag_COLOUR{120 + (x + y) % 9, 118, 140};
    }
    return {90 + (x * 3 + y) % 12, 126, 130};
}

// busy: the test card slides 3 pixels right and 1 down a frame, with sensor noise of
// +-5 on every sample. camera: the street stands still, one figure of 40x80 walks 2
// pixels a frame across it, and noise of +-2.
void DrawFrame(bool bBusy, int nFrame, CNoise& noise, BYTE* pbyFrame)
{
    const int nNoise = bBusy ? 5 : 2;
    const int nFigureX = (nFrame * 2) % (kSceneWidth + 40) - 40;
    for (int y = 0; y < kSceneHeight; ++y) {
        for (int x = 0; x < kSceneWidth; x += 2) {
            tag_COLOUR c[2];
            for (int k = 0; k < 2; ++k) {
                if (bBusy) {
                    c[k] = TestCard((x + k + kSceneWidth * 8 - 3 * nFrame) % kSceneWidth,
                                    (y + kSceneHeight * 8 - nFrame) % kSceneHeight);
                } else {
                    const bool bFigure = x + k >= nFigureX && x + k < nFigureX + 40 && y >= 150 && y < 230;
                    c[k] = bFigure ? tag_COLOUR{200 - (y - 150), 100, 170} : Street(x + k, y);
                }
            }
            BYTE* p = pbyFrame + (static_cast<std::size_t>(y) * kSceneWidth + x) * 2;
            p[0] = Clip((c[0].nU + c[1].nU) / 2 + noise.Next(nNoise / 2));
            p[1] = Clip(c[0].nY + noise.Next(nNoise));
            p[2] = Clip((c[0].nV + c[1].nV) / 2 + noise.Next(nNoise / 2));
            p[3] = Clip(c[1].nY + noise.Next(nNoise));
        }
    }
}

int WriteScene(const std::string& strScene, int nFrames, const char* strOut)
{
    if (strScene != "busy" && strScene != "camera") {
        std::fprintf(stderr, "scene must be busy or camera, not %s\n", strScene.c_str());
        return 2;
    }
    std::FILE* pFile = std::fopen(strOut, "wb");
    if (pFile == nullptr) {
        std::fprintf(stderr, "%s: cannot create\n", strOut);
        return 1;
    }
    CNoise noise;
    std::vector<BYTE> frame(static_cast<std::size_t>(kSceneWidth) * kSceneHeight * 2);
    for (int f = 0; f < nFrames; ++f) {
        DrawFrame(strScene == "busy", f, noise, frame.data());
        std::fwrite(frame.data(), 1, frame.size(), pFile);
    }
    return std::fclose(pFile) == 0 ? 0 : 1;
}

std::vector<BYTE> ReadFile(const char* strPath)
{
    std::vector<BYTE> bytes;
    std::FILE* pFile = std::fopen(strPath, "rb");
    if (pFile == nullptr)
        return bytes;
    BYTE buffer[1 << 16];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pFile)) > 0;)
        bytes.insert(bytes.end(), buffer, buffer + n);
    std::fclose(pFile);
    return bytes;
}

// Each frame is read into the frame buffer, as the capture stream's buffer would hold
// it; the preview overwrites it.
int Encode(const char* strIn, int nWidth, int nHeight, int nLoops, const char* strOut)
{
    const std::size_t nFrameBytes = static_cast<std::size_t>(nWidth) * nHeight * 2;
    CEncoder encoder;
    std::FILE* pIn = std::fopen(strIn, "rb");
    std::FILE* pOut = std::fopen(strOut, "wb");
    if (pIn == nullptr || pOut == nullptr || !encoder.Create(nWidth, nHeight, STREAM_REVISION_20020114, 0)) {
        std::fprintf(stderr, "cannot read %s, create %s or code %dx%d\n", strIn, strOut, nWidth, nHeight);
        return 1;
    }
    encoder.SetQi(kQuantiser);
    encoder.SetQp(kQuantiser);
    encoder.SetIntraThreshold(kIntraThreshold);
    std::vector<BYTE> buffer(nFrameBytes / 2 * 3);
    long nCoded = 0;
    for (int l = 0; l < nLoops; ++l) {
        std::rewind(pIn);
        while (std::fread(buffer.data(), 1, nFrameBytes, pIn) == nFrameBytes) {
            const ENCODER_RETURN result = encoder.Encode(buffer.data(), FALSE, nCoded++ % kKeyInterval == 0 ? 0 : 2);
            const std::uint32_t dwLength = static_cast<std::uint32_t>(result.nLength);
            std::fwrite(&dwLength, sizeof dwLength, 1, pOut);
            std::fwrite(result.pBuffer, 1, dwLength, pOut);
        }
    }
    std::fclose(pIn);
    return std::fclose(pOut) == 0 && nCoded > 0 ? 0 : 1;
}

int Decode(const char* strIn, int nLoops, const char* strOut)
{
    const std::vector<BYTE> records = ReadFile(strIn);
    CDecoder decoder;
    std::FILE* pOut = std::fopen(strOut, "wb");
    if (records.empty() || pOut == nullptr || !decoder.Create(STREAM_REVISION_20020114)) {
        std::fprintf(stderr, "cannot read %s or create %s\n", strIn, strOut);
        return 1;
    }
    std::vector<BYTE> picture(static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3);
    for (int l = 0; l < nLoops; ++l) {
        for (std::size_t nPos = 0; nPos + 4 <= records.size();) {
            std::uint32_t dwLength;
            std::memcpy(&dwLength, records.data() + nPos, sizeof dwLength);
            nPos += sizeof dwLength;
            if (dwLength > records.size() - nPos) {
                std::fprintf(stderr, "%s: record cut short\n", strIn);
                return 1;
            }
            const DECODER_RETURN result =
                decoder.DecodeOneFrame(records.data() + nPos, static_cast<int>(dwLength), picture.data(), FALSE);
            nPos += dwLength;
            if (result.bError) {
                std::fprintf(stderr, "%s: a record does not decode\n", strIn);
                return 1;
            }
            std::fwrite(picture.data(), 1, static_cast<std::size_t>(result.nWidth) * result.nHeight * 3, pOut);
        }
    }
    return std::fclose(pOut) == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string strMode = argc > 1 ? argv[1] : "";
    if (strMode == "scene" && argc == 5)
        return WriteScene(argv[2], std::atoi(argv[3]), argv[4]);
    if (strMode == "encode" && argc == 7)
        return Encode(argv[2], std::atoi(argv[3]), std::atoi(argv[4]), std::atoi(argv[5]), argv[6]);
    if (strMode == "decode" && argc == 5)
        return Decode(argv[2], std::atoi(argv[3]), argv[4]);
    std::fprintf(stderr, "usage: %s scene busy|camera FRAMES OUT.uyvy\n"
                         "       %s encode IN.uyvy WIDTH HEIGHT LOOPS OUT.rec\n"
                         "       %s decode IN.rec LOOPS OUT.bgr\n",
                 argv[0], argv[0], argv[0]);
    return 2;
}
