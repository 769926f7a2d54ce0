// Encoder and decoder speed, and bytes per frame, for every coded size of both stream
// revisions, on a still scene with sensor noise and on a busy scene, in each transform
// form. The frames come from a fixed generator.
#include "codec/CDecoder.h"
#include "codec/CEncoder.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kPoolFrames = 64;
constexpr int kKeyInterval = 160;   // as the camera channel codes: one I picture in 160
constexpr int kQuantiser = 8;
constexpr int kIntraThreshold = 8 * 256;   // sensitivity 8 under revision 0x20020114

struct tag_BENCHSIZE {
    DWORD dwRevision;
    int nWidth;   // as asked for by the channel
    int nHeight;
    int nCaptureWidth;
    int nCaptureHeight;
};

const tag_BENCHSIZE kSizes[] = {
    {0x20020114, 160, 112, 160, 112}, {0x20020114, 240, 176, 240, 176}, {0x20020114, 320, 240, 320, 240},
    {0x20020114, 640, 240, 640, 240}, {0x20020114, 176, 144, 176, 144}, {0x20020114, 256, 192, 256, 192},
    {0x20020114, 352, 288, 352, 288}, {0x20020219, 320, 240, 320, 240}, {0x20020219, 640, 240, 320, 240},
    {0x20020219, 352, 288, 352, 288}, {0x20020219, 704, 288, 352, 288},
};

enum tag_SCENE { SCENE_STILL = 0, SCENE_BUSY = 1 };
const char* const kSceneNames[] = {"still", "busy"};

class CFormEncoder : public CEncoder {
public:
    void SetSIMDForm(BOOL bUseMMX) { m_bUseMMX = bUseMMX; }
};

class CFormDecoder : public CDecoder {
public:
    void SetSIMDForm(BOOL bUseMMX) { m_bUseMMX = bUseMMX; }
};

std::uint32_t NextRandom(std::uint32_t& dwState)
{
    dwState ^= dwState << 13;
    dwState ^= dwState >> 17;
    dwState ^= dwState << 5;
    return dwState;
}

BYTE Clip(int n)
{
    return static_cast<BYTE>(n < 0 ? 0 : n > 255 ? 255 : n);
}

// A still scene: a fixed picture with sensor noise of +-3. A busy scene: textured
// objects crossing the whole picture, a panning background and noise of +-6.
std::vector<std::vector<BYTE>> MakePool(tag_SCENE scene, int nWidth, int nHeight)
{
    std::uint32_t dwState = 12345;
    std::vector<std::vector<BYTE>> pool;
    for (int f = 0; f < kPoolFrames; ++f) {
        std::vector<BYTE> frame(static_cast<std::size_t>(nWidth) * nHeight * 2);
        const int nPan = scene == SCENE_BUSY ? f * 3 : 0;
        for (int y = 0; y < nHeight; ++y) {
            for (int x = 0; x < nWidth; ++x) {
                int nLuma = 60 + ((x + nPan) * 7 / 5 + y / 2) % 90 + (((x + nPan) / 24 + y / 24) % 2) * 40;
                if (scene == SCENE_BUSY) {
                    for (int o = 0; o < 6; ++o) {
                        const int nX = (f * (4 + 3 * o) + 71 * o) % (nWidth + 64) - 64;
                        const int nY = (f * (2 + o) + 37 * o) % (nHeight + 48) - 48;
                        if (x >= nX && x < nX + 64 && y >= nY && y < nY + 48)
                            nLuma = 30 + ((x - nX) * (y - nY + o)) % 200;
                    }
                }
                const int nNoise = scene == SCENE_BUSY ? 6 : 3;
                const int nJitter = static_cast<int>(NextRandom(dwState) % (2 * nNoise + 1)) - nNoise;
                BYTE* p = frame.data() + (static_cast<std::size_t>(y) * nWidth + x) * 2;
                p[1] = Clip(nLuma + nJitter);
                p[0] = Clip((x % 2 == 0 ? 110 + (x + nPan) % 30 : 140 - y % 20) + nJitter / 2);
            }
        }
        pool.push_back(std::move(frame));
    }
    return pool;
}

void Encode(benchmark::State& state, const tag_BENCHSIZE& size, tag_SCENE scene, BOOL bUseMMX)
{
    const std::vector<std::vector<BYTE>> pool = MakePool(scene, size.nCaptureWidth, size.nCaptureHeight);
    CFormEncoder encoder;
    if (!encoder.Create(size.nWidth, size.nHeight, size.dwRevision, 0)) {
        state.SkipWithError("Create failed");
        return;
    }
    encoder.SetSIMDForm(bUseMMX);
    encoder.SetQi(kQuantiser);
    encoder.SetQp(kQuantiser);
    encoder.SetIntraThreshold(kIntraThreshold);
    std::vector<BYTE> buffer(static_cast<std::size_t>(size.nCaptureWidth) * size.nCaptureHeight * 3);
    std::int64_t nFrames = 0;
    std::int64_t nBytes = 0;
    for (auto _ : state) {
        const std::vector<BYTE>& frame = pool[static_cast<std::size_t>(nFrames % kPoolFrames)];
        std::memcpy(buffer.data(), frame.data(), frame.size());
        const ENCODER_RETURN result = encoder.Encode(buffer.data(), FALSE, nFrames % kKeyInterval == 0 ? 0 : 2);
        nBytes += result.nLength;
        ++nFrames;
    }
    state.counters["fps"] = benchmark::Counter(static_cast<double>(nFrames), benchmark::Counter::kIsRate);
    state.counters["bytes_per_frame"] = static_cast<double>(nBytes) / static_cast<double>(nFrames);
}

void Decode(benchmark::State& state, const tag_BENCHSIZE& size, tag_SCENE scene, BOOL bUseMMX)
{
    const std::vector<std::vector<BYTE>> pool = MakePool(scene, size.nCaptureWidth, size.nCaptureHeight);
    CFormEncoder encoder;
    CFormDecoder decoder;
    if (!encoder.Create(size.nWidth, size.nHeight, size.dwRevision, 0) || !decoder.Create(size.dwRevision)) {
        state.SkipWithError("Create failed");
        return;
    }
    encoder.SetSIMDForm(bUseMMX);
    decoder.SetSIMDForm(bUseMMX);
    encoder.SetQi(kQuantiser);
    encoder.SetQp(kQuantiser);
    encoder.SetIntraThreshold(kIntraThreshold);
    std::vector<BYTE> buffer(static_cast<std::size_t>(size.nCaptureWidth) * size.nCaptureHeight * 3);
    std::vector<std::vector<BYTE>> records;
    for (int f = 0; f < kPoolFrames; ++f) {
        std::memcpy(buffer.data(), pool[static_cast<std::size_t>(f)].data(), pool[static_cast<std::size_t>(f)].size());
        const ENCODER_RETURN result = encoder.Encode(buffer.data(), FALSE, f == 0 ? 0 : 2);
        records.emplace_back(result.pBuffer, result.pBuffer + result.nLength);
    }
    std::vector<BYTE> output(static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3);
    std::int64_t nFrames = 0;
    std::int64_t nBytes = 0;
    for (auto _ : state) {
        const std::vector<BYTE>& record = records[static_cast<std::size_t>(nFrames % kPoolFrames)];
        decoder.DecodeOneFrame(record.data(), static_cast<int>(record.size()), output.data(), FALSE);
        nBytes += static_cast<std::int64_t>(record.size());
        ++nFrames;
    }
    state.counters["fps"] = benchmark::Counter(static_cast<double>(nFrames), benchmark::Counter::kIsRate);
    state.counters["bytes_per_frame"] = static_cast<double>(nBytes) / static_cast<double>(nFrames);
}

void RegisterAll()
{
    for (const tag_BENCHSIZE& size : kSizes) {
        for (const tag_SCENE scene : {SCENE_STILL, SCENE_BUSY}) {
            for (const BOOL bUseMMX : {FALSE, TRUE}) {
                char szSize[64];
                std::snprintf(szSize, sizeof szSize, "/%x/%dx%d/", size.dwRevision, size.nWidth, size.nHeight);
                const std::string strSuffix =
                    szSize + std::string(kSceneNames[scene]) + (bUseMMX ? "/simd" : "/scalar");
                for (const bool bEncode : {true, false}) {
                    const std::string strName = (bEncode ? "Encode" : "Decode") + strSuffix;
                    benchmark::RegisterBenchmark(strName.c_str(), [size, scene, bUseMMX, bEncode](benchmark::State& state) {
                        if (bEncode)
                            Encode(state, size, scene, bUseMMX);
                        else
                            Decode(state, size, scene, bUseMMX);
                    })->MinTime(0.3)->Unit(benchmark::kMicrosecond);
                }
            }
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    RegisterAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
