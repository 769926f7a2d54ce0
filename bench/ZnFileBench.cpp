// Recording files: frame data written through WriteOneFrame against plain sequential
// writes of the same bytes (piece by piece as frames come, and from one prepared buffer),
// sequential reading, and opening a file of 10 000 blocks.
// Files go to a fresh directory below the working directory (ZNDVR_BENCH_DIR overrides).
#include "platform/CFile.h"
#include "recording/CZnFile.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kFramesPerFile = 1600;      // ten blocks at the key-frame cadence
constexpr int kKeyFrameInterval = 160;
constexpr DWORD kSoundBytes = 360;        // one board block of speech
constexpr int kOpenBlocks = 10000;

class BenchDir {
public:
    BenchDir()
    {
        const char* pBase = std::getenv("ZNDVR_BENCH_DIR");
        m_path = std::filesystem::path(pBase != nullptr ? pBase : ".") /
                 ("zndvr-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_path);
    }
    ~BenchDir() { std::filesystem::remove_all(m_path); }
    std::string Path(const std::string& strName) const { return (m_path / strName).string(); }

private:
    std::filesystem::path m_path;
};

BenchDir& GetBenchDir()
{
    static BenchDir dir;
    return dir;
}

struct FrameSource {
    explicit FrameSource(DWORD dwVideoLen) : video(dwVideoLen), sound(kSoundBytes)
    {
        for (std::size_t i = 0; i < video.size(); ++i)
            video[i] = static_cast<BYTE>(i * 131 + 17);
        for (std::size_t i = 0; i < sound.size(); ++i)
            sound[i] = static_cast<BYTE>(i * 7 + 3);
    }

    // Frame i of a file: a key frame every 160, sound on every third frame.
    tag_ZNFRAMEDATA Frame(int i)
    {
        tag_ZNFRAMEDATA frame{};
        frame.wFrameType = i % kKeyFrameInterval == 0 ? ZNFRAME_I : ZNFRAME_P;
        frame.dwTimeStamp = static_cast<DWORD>(i) * 40;
        frame.dwVideoLen = static_cast<DWORD>(video.size());
        frame.pVideo = video.data();
        if (i % 3 == 0) {
            frame.wFlags = ZNFRAME_SOUND;
            frame.dwSoundLen = kSoundBytes;
            frame.pSound = sound.data();
        }
        return frame;
    }

    std::int64_t FileDataBytes()
    {
        std::int64_t nBytes = 0;
        for (int i = 0; i < kFramesPerFile; ++i)
            nBytes += Frame(i).dwVideoLen + Frame(i).dwSoundLen;
        return nBytes;
    }

    std::vector<BYTE> video;
    std::vector<BYTE> sound;
};

tag_CAMERAINFO BenchCamera()
{
    return tag_CAMERAINFO{0, 0, 704, 288, STANDARD_PAL};
}

void WriteRecordingFile(const std::string& strPath, FrameSource& source, int nFrames)
{
    tag_CAMERAINFO info = BenchCamera();
    CZnFile file("camera", "board", "host");
    file.Open(strPath.c_str(), &info, 0x20020219, ZNFILE_WRITE);
    for (int i = 0; i < nFrames; ++i) {
        tag_ZNFRAMEDATA frame = source.Frame(i);
        file.WriteOneFrame(&frame);
    }
    file.Close();
}

void BM_WriteOneFrame(benchmark::State& state)
{
    FrameSource source(static_cast<DWORD>(state.range(0)));
    const std::string strPath = GetBenchDir().Path("write.zn");
    for (auto _ : state)
        WriteRecordingFile(strPath, source, kFramesPerFile);
    state.SetBytesProcessed(state.iterations() * source.FileDataBytes());
}

// The same records written as they come, each piece with one write, in a file held open.
void BM_PlainWrite(benchmark::State& state)
{
    FrameSource source(static_cast<DWORD>(state.range(0)));
    const std::string strPath = GetBenchDir().Path("plain.zn");
    for (auto _ : state) {
        CFile file;
        file.Open(strPath.c_str(), CFile::modeCreate | CFile::modeWrite);
        for (int i = 0; i < kFramesPerFile; ++i) {
            const tag_ZNFRAMEDATA frame = source.Frame(i);
            BYTE fields[16] = {};
            file.Write(fields, frame.dwSoundLen != 0 ? 16 : 12);
            file.Write(frame.pVideo, frame.dwVideoLen);
            if (frame.dwSoundLen != 0)
                file.Write(frame.pSound, frame.dwSoundLen);
        }
        file.Close();
    }
    state.SetBytesProcessed(state.iterations() * source.FileDataBytes());
}

// The best case of a plain write: the same records laid out in memory beforehand and
// written in 64 KiB pieces.
void BM_PlainWriteFromMemory(benchmark::State& state)
{
    FrameSource source(static_cast<DWORD>(state.range(0)));
    std::vector<BYTE> records;
    for (int i = 0; i < kFramesPerFile; ++i) {
        const tag_ZNFRAMEDATA frame = source.Frame(i);
        records.resize(records.size() + (frame.dwSoundLen != 0 ? 16 : 12));
        records.insert(records.end(), frame.pVideo, frame.pVideo + frame.dwVideoLen);
        if (frame.dwSoundLen != 0)
            records.insert(records.end(), frame.pSound, frame.pSound + frame.dwSoundLen);
    }
    const std::string strPath = GetBenchDir().Path("memory.zn");
    constexpr std::size_t nPiece = 65536;
    for (auto _ : state) {
        CFile file;
        file.Open(strPath.c_str(), CFile::modeCreate | CFile::modeWrite);
        for (std::size_t nDone = 0; nDone < records.size(); nDone += nPiece)
            file.Write(records.data() + nDone, static_cast<UINT>(std::min(nPiece, records.size() - nDone)));
        file.Close();
    }
    state.SetBytesProcessed(state.iterations() * source.FileDataBytes());
}

void BM_ReadOneFrameSequential(benchmark::State& state)
{
    FrameSource source(static_cast<DWORD>(state.range(0)));
    const std::string strPath = GetBenchDir().Path("read.zn");
    WriteRecordingFile(strPath, source, kFramesPerFile);
    std::vector<BYTE> video(704 * 288 * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    for (auto _ : state) {
        CZnFile file;
        file.Open(strPath.c_str(), nullptr, 0, ZNFILE_READ);
        tag_ZNFRAMEDATA frame{};
        frame.pVideo = video.data();
        frame.pSound = sound.data();
        int nFrames = 0;
        while (file.ReadOneFrame(&frame, -1, 0) == 1)
            ++nFrames;
        if (nFrames != kFramesPerFile)
            state.SkipWithError("the file did not read back whole");
    }
    state.SetBytesProcessed(state.iterations() * source.FileDataBytes());
}

void BM_OpenTenThousandBlocks(benchmark::State& state)
{
    FrameSource source(64);
    const std::string strPath = GetBenchDir().Path("blocks.zn");
    tag_CAMERAINFO info = BenchCamera();
    {
        CZnFile file;
        file.Open(strPath.c_str(), &info, 0x20020219, ZNFILE_WRITE);
        for (int i = 0; i < kOpenBlocks; ++i) {
            tag_ZNFRAMEDATA frame = source.Frame(0);
            file.WriteOneFrame(&frame);
        }
        file.Close();
    }
    for (auto _ : state) {
        CZnFile file;
        if (file.Open(strPath.c_str(), nullptr, 0, ZNFILE_READ) != 1 ||
            file.GetTotalBlock() != static_cast<DWORD>(kOpenBlocks + 1))
            state.SkipWithError("the file did not open whole");
    }
}

// Coded frames of a small picture, of 320 x 240 and of 704 x 288 at a high rate.
BENCHMARK(BM_WriteOneFrame)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainWrite)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainWriteFromMemory)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadOneFrameSequential)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenTenThousandBlocks)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
