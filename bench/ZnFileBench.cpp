// Recording files: frame data written through WriteOneFrame (each block committed with
// two syncs) against plain sequential writes of the same bytes (piece by piece as frames
// come, and from one prepared buffer); what one block change with its syncs costs; 16
// cameras of realistic frame sizes written on one thread, with the longest call, against
// the same records written plainly; sequential reading; opening a file of 10 000 blocks.
// Files go to a fresh directory below the working directory (ZNDVR_BENCH_DIR overrides),
// so that the syncs meet the disk that a recorder would use.
#include "platform/CFile.h"
#include "recording/CZnFile.h"
#include "recording/ZnFileLayout.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
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

// The file is laid out directly: a writer would sync 10 000 block changes first.
void BM_OpenTenThousandBlocks(benchmark::State& state)
{
    FrameSource source(64);
    const std::string strPath = GetBenchDir().Path("blocks.zn");
    {
        tag_ZNHEADWITHNAMES head{};
        head.Header = tag_ZNFILEHEADER{{ZNFILE_MAGIC_0, ZNFILE_MAGIC_1}, ZNFILE_VERSION_R2, FRAMESIZE_704X288_R2, 0, 0,
                                       ZNFILE_KEY_FRAME_INTERVAL, 0, 0, 0, 0, 0, 0, {}, 0, 0};
        head.Header.dwDataOffset = GetDataOffset(head);
        CFile file(strPath.c_str(), CFile::modeCreate | CFile::modeWrite);
        WriteFileHead(file, head);
        const tag_ZNFRAMEDATA frame = source.Frame(0);
        BYTE fields[ZNFRAME_MAX_FIELDS_SIZE];
        const UINT nFieldsSize = StoreFrameFields(frame, fields);
        const DWORD dwBlockLength = ZNBLOCK_HEADER_SIZE + static_cast<DWORD>(GetFrameRecordLength(frame));
        DWORD dwPos = head.Header.dwDataOffset;
        for (int i = 0; i <= kOpenBlocks; ++i, dwPos += dwBlockLength) {
            const bool bEnd = i == kOpenBlocks;
            WriteBlockRecord(file, tag_ZNBLOCKHEADER{i == 0 ? ZNBLOCK_NO_LINK : dwPos - dwBlockLength,
                                                     bEnd ? ZNBLOCK_NO_LINK : dwPos + dwBlockLength,
                                                     static_cast<WORD>(bEnd ? 0 : 1), 0, 0});
            if (!bEnd) {
                file.Write(fields, nFieldsSize);
                file.Write(frame.pVideo, frame.dwVideoLen);
                file.Write(frame.pSound, frame.dwSoundLen);
            }
        }
    }
    for (auto _ : state) {
        CZnFile file;
        if (file.Open(strPath.c_str(), nullptr, 0, ZNFILE_READ) != 1 ||
            file.GetTotalBlock() != static_cast<DWORD>(kOpenBlocks + 1))
            state.SkipWithError("the file did not open whole");
    }
}

// Frames as a camera of 352 x 288 gives them at 25 frames a second: a key frame of about
// 20 KB every 160 frames, predicted frames of 1 to 6 KB, and a 360-byte board block of
// speech on every third frame.
class RealisticCamera {
public:
    explicit RealisticCamera(DWORD dwSeed) : m_random(dwSeed), m_video(24 * 1024), m_sound(kSoundBytes)
    {
        for (std::size_t i = 0; i < m_video.size(); ++i)
            m_video[i] = static_cast<BYTE>(m_random());
    }

    tag_ZNFRAMEDATA Frame(int i)
    {
        tag_ZNFRAMEDATA frame{};
        const bool bKey = i % kKeyFrameInterval == 0;
        frame.wFrameType = bKey ? ZNFRAME_I : ZNFRAME_P;
        frame.dwTimeStamp = static_cast<DWORD>(i) * 40;
        frame.dwVideoLen = bKey ? 18 * 1024 + m_random() % 4096 : 1024 + m_random() % (5 * 1024);
        frame.pVideo = m_video.data();
        if (i % 3 == 0) {
            frame.wFlags = ZNFRAME_SOUND;
            frame.dwSoundLen = kSoundBytes;
            frame.pSound = m_sound.data();
        }
        return frame;
    }

private:
    std::mt19937 m_random;
    std::vector<BYTE> m_video;
    std::vector<BYTE> m_sound;
};

constexpr int kCameras = 16;
constexpr int kCameraFrames = 5 * kKeyFrameInterval;

// One block change: the key frame that commits 160 frames of a realistic camera. The
// predicted frames before it are not timed.
void BM_BlockChangeWithSyncs(benchmark::State& state)
{
    RealisticCamera camera(1);
    tag_CAMERAINFO info{0, 0, 352, 288, STANDARD_PAL};
    const std::string strPath = GetBenchDir().Path("block.zn");
    CZnFile file;
    file.Open(strPath.c_str(), &info, 0x20020114, ZNFILE_WRITE);
    int i = 0;
    for (auto _ : state) {
        state.PauseTiming();
        do {
            tag_ZNFRAMEDATA frame = camera.Frame(i++);
            file.WriteOneFrame(&frame);
        } while (i % kKeyFrameInterval != 0);
        tag_ZNFRAMEDATA key = camera.Frame(i++);
        state.ResumeTiming();
        if (file.WriteOneFrame(&key) != 1)
            state.SkipWithError("a block change failed");
    }
    file.Close();
}

// 16 cameras whose frames arrive in turn on one thread, as on the window thread of a
// recorder: the throughput, and the longest single call and the 99th percentile, which
// is how long the thread can be held by a block change.
void BM_SixteenCamerasWriteOneFrame(benchmark::State& state)
{
    std::vector<RealisticCamera> cameras;
    for (int c = 0; c < kCameras; ++c)
        cameras.emplace_back(static_cast<DWORD>(c + 1));
    tag_CAMERAINFO info{0, 0, 352, 288, STANDARD_PAL};
    std::vector<double> calls;
    std::int64_t nBytes = 0;
    for (auto _ : state) {
        std::vector<std::unique_ptr<CZnFile>> files;
        for (int c = 0; c < kCameras; ++c) {
            files.push_back(std::make_unique<CZnFile>());
            files.back()->Open(GetBenchDir().Path("cam" + std::to_string(c) + ".zn").c_str(), &info, 0x20020114,
                               ZNFILE_WRITE);
        }
        for (int i = 0; i < kCameraFrames; ++i) {
            for (int c = 0; c < kCameras; ++c) {
                tag_ZNFRAMEDATA frame = cameras[static_cast<std::size_t>(c)].Frame(i);
                nBytes += frame.dwVideoLen + frame.dwSoundLen;
                const auto start = std::chrono::steady_clock::now();
                if (files[static_cast<std::size_t>(c)]->WriteOneFrame(&frame) != 1)
                    state.SkipWithError("a frame was not taken");
                calls.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
            }
        }
        for (std::unique_ptr<CZnFile>& file : files)
            file->Close();
    }
    std::sort(calls.begin(), calls.end());
    state.counters["max_call_ms"] = calls.back();
    state.counters["p99_call_ms"] = calls[calls.size() * 99 / 100];
    state.counters["p999_call_ms"] = calls[calls.size() * 999 / 1000];
    state.SetBytesProcessed(nBytes);
}

// The same records of the 16 cameras written plainly as they come, 16 files held open,
// nothing synced.
void BM_SixteenCamerasPlainWrite(benchmark::State& state)
{
    std::vector<RealisticCamera> cameras;
    for (int c = 0; c < kCameras; ++c)
        cameras.emplace_back(static_cast<DWORD>(c + 1));
    std::int64_t nBytes = 0;
    for (auto _ : state) {
        std::vector<std::unique_ptr<CFile>> files;
        for (int c = 0; c < kCameras; ++c) {
            files.push_back(std::make_unique<CFile>());
            files.back()->Open(GetBenchDir().Path("plain" + std::to_string(c) + ".zn").c_str(),
                               CFile::modeCreate | CFile::modeWrite);
        }
        for (int i = 0; i < kCameraFrames; ++i) {
            for (int c = 0; c < kCameras; ++c) {
                const tag_ZNFRAMEDATA frame = cameras[static_cast<std::size_t>(c)].Frame(i);
                BYTE fields[ZNFRAME_MAX_FIELDS_SIZE] = {};
                CFile& file = *files[static_cast<std::size_t>(c)];
                file.Write(fields, frame.dwSoundLen != 0 ? 16 : 12);
                file.Write(frame.pVideo, frame.dwVideoLen);
                if (frame.dwSoundLen != 0)
                    file.Write(frame.pSound, frame.dwSoundLen);
                nBytes += frame.dwVideoLen + frame.dwSoundLen;
            }
        }
    }
    state.SetBytesProcessed(nBytes);
}

// Coded frames of a small picture, of 320 x 240 and of 704 x 288 at a high rate.
BENCHMARK(BM_WriteOneFrame)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainWrite)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainWriteFromMemory)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadOneFrameSequential)->Arg(2048)->Arg(12288)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenTenThousandBlocks)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BlockChangeWithSyncs)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SixteenCamerasWriteOneFrame)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_SixteenCamerasPlainWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace

BENCHMARK_MAIN();
