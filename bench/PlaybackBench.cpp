// The player on recordings made by the capture chain of a virtual board: the processor
// time that playing one stream at normal speed with its sound costs, as a share of one
// core, and the time of a seek by time in a recording of one hour. Pictures are what the
// encoder makes of the board's moving scene; the recordings repeat one recorded block
// with the stamps of 25 frames a second, each frame with its 40 ms of coded speech. The
// player's timer and the virtual sound output run by the test clock, so a recording plays
// as fast as the processor allows while its stamps are followed as in real time.
// Files go to a fresh directory below the working directory (ZNDVR_BENCH_DIR overrides).
#include "capture/CEncodeParam.h"
#include "capture/CVideo.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CVirtualWave.h"
#include "playback/CDecodeWnd.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "recording/CZnFile.h"
#include "sound/CAdpcm.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kBlockFrames = 160;
constexpr DWORD kFramePeriodMs = 40;
constexpr UINT kTickMs = 20;
constexpr int kPlayedSeconds = 10;
constexpr int kHourSeconds = 3600;
constexpr int kSoundBytesPerFrame = 120;   // 40 ms of G.726 at 24 kbit/s

double ProcessCpuMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1000.0 + static_cast<double>(time.tv_nsec) / 1e6;
}

class BenchDir {
public:
    BenchDir()
    {
        const char* pBase = std::getenv("ZNDVR_BENCH_DIR");
        m_path = std::filesystem::path(pBase != nullptr ? pBase : ".") / ("zndvr-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_path);
    }
    ~BenchDir() { std::filesystem::remove_all(m_path); }
    std::string Path(const std::string& strName) const { return (m_path / strName).string(); }

private:
    std::filesystem::path m_path;
};

std::string BenchPath(const std::string& strName)
{
    static BenchDir dir;
    return dir.Path(strName);
}

// One recorded frame, with copies of its bytes.
struct tag_RECORDEDFRAME {
    WORD wFrameType;
    WORD wFlags;
    std::vector<BYTE> video;
};

// The host of the recording: keeps the first block of camera 0's records.
class CRecordingHost : public CWnd {
public:
    CRecordingHost()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "playback bench recorder", WS_POPUP, rect, nullptr, 0);
    }
    ~CRecordingHost() override { DestroyWindow(); }

    std::vector<tag_RECORDEDFRAME> m_frames;
    tag_CAMERAINFO m_info{};

protected:
    LRESULT OnCaptureFrame(WPARAM wCamera, LPARAM lFrame)
    {
        const auto* pFrame = reinterpret_cast<const tag_ZNCAPTUREFRAME*>(lFrame);
        const tag_ZNFRAMEDATA& data = *pFrame->pData;
        if (m_frames.size() < kBlockFrames && (!m_frames.empty() || data.wFrameType == ZNFRAME_I)) {
            m_info = *pFrame->pInfo;
            m_frames.push_back({data.wFrameType, static_cast<WORD>(data.wFlags & ~ZNFRAME_SOUND),
                                std::vector<BYTE>(data.pVideo, data.pVideo + data.dwVideoLen)});
        }
        ::PostMessage(reinterpret_cast<HWND>(wCamera), WM_ZN_FRAMEDONE, 0, 0);
        if (m_frames.size() == kBlockFrames)
            PostQuitMessage(0);
        return 0;
    }
    DECLARE_MESSAGE_MAP()
};

BEGIN_MESSAGE_MAP(CRecordingHost, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnCaptureFrame)
END_MESSAGE_MAP()

// A recording of nSeconds at 25 frames a second of the frame size, made once per size
// and length: one block recorded from the board, repeated.
std::string MakeRecording(tag_FRAMESIZE nSize, int nSeconds)
{
    static std::map<std::pair<int, int>, std::string> made;
    const auto key = std::make_pair(static_cast<int>(nSize), nSeconds);
    if (made.count(key) != 0)
        return made[key];
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    board.nPacing = PACING_IMMEDIATE;
    CVirtualRack::InstallBoard(board);
    CRecordingHost host;
    {
        CVideo video;
        CEncodeParam param;
        if (video.Open(&host, STREAM_REVISION_20020219) != ZNRET_OK || video.OpenBoard(0, nSize, 0, nullptr) != ZNRET_OK ||
            video.OpenCamera(0, 0, &param, nullptr) != ZNRET_OK)
            return {};
        MSG msg;
        while (GetMessage(&msg, nullptr, 0, 0) > 0)
            DispatchMessage(&msg);
    }
    CVirtualRack::Clear();
    const std::string strPath = BenchPath("play-" + std::to_string(nSize) + "-" + std::to_string(nSeconds) + ".zn");
    CZnFile file("camera", "board", "bench");
    if (!file.Open(strPath.c_str(), &host.m_info, STREAM_REVISION_20020219, ZNFILE_WRITE))
        return {};
    // A block's worth of a coded tone, 40 ms a frame.
    std::vector<short> tone(kBlockFrames * kSoundBytesPerFrame / 3 * 8);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<short>(8000 * std::sin(0.07 * static_cast<double>(i)));
    std::vector<BYTE> code(kBlockFrames * kSoundBytesPerFrame);
    CAdpcm encoder;
    encoder.Init(CAdpcm::kModeEncoder);
    for (int f = 0; f < kBlockFrames; f += 50) {
        const int nFrames = std::min(50, kBlockFrames - f);
        encoder.Encode(&tone[static_cast<std::size_t>(f) * kSoundBytesPerFrame / 3 * 8],
                       &code[static_cast<std::size_t>(f) * kSoundBytesPerFrame], nFrames * kSoundBytesPerFrame / 3 * 8, 0);
    }
    const int nFrames = nSeconds * 1000 / static_cast<int>(kFramePeriodMs);
    for (int i = 0; i < nFrames; ++i) {
        tag_RECORDEDFRAME& recorded = host.m_frames[static_cast<std::size_t>(i % kBlockFrames)];
        tag_ZNFRAMEDATA frame{recorded.wFrameType, static_cast<WORD>(recorded.wFlags | ZNFRAME_SOUND),
                              1000 + static_cast<DWORD>(i) * kFramePeriodMs, static_cast<DWORD>(recorded.video.size()),
                              recorded.video.data(), kSoundBytesPerFrame,
                              &code[static_cast<std::size_t>(i % kBlockFrames) * kSoundBytesPerFrame]};
        file.WriteOneFrame(&frame);
    }
    file.Close();
    made[key] = strPath;
    return strPath;
}

// The host of the player: notes the end.
class CPlayHost : public CWnd {
public:
    CPlayHost()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "playback bench host", WS_POPUP, rect, nullptr, 0);
    }
    ~CPlayHost() override { DestroyWindow(); }

    bool m_bEnded = false;
    long m_nFrames = 0;

protected:
    LRESULT OnVideoPlay(WPARAM wParam, LPARAM)
    {
        m_bEnded = m_bEnded || wParam == VIDEOPLAY_END;
        m_nFrames += wParam == VIDEOPLAY_FRAME;
        return 0;
    }
    DECLARE_MESSAGE_MAP()
};

BEGIN_MESSAGE_MAP(CPlayHost, CWnd)
    ON_MESSAGE(WM_VIDEOPLAY, OnVideoPlay)
END_MESSAGE_MAP()

void BM_PlayOneStreamAtNormalSpeed(benchmark::State& state)
{
    const std::string strFile = MakeRecording(static_cast<tag_FRAMESIZE>(state.range(0)), kPlayedSeconds);
    if (strFile.empty()) {
        state.SkipWithError("the recording can't be made");
        return;
    }
    CTestClock clock;
    CVirtualWave::ClearPlayed(0);
    CPlayHost host;
    CDecodeWnd player;
    player.OpenDecodeWnd(host.m_hWnd, 0, 0);
    double dCpuMs = 0;
    long nPlays = 0;
    for (auto _ : state) {
        host.m_bEnded = false;
        const double dStart = ProcessCpuMs();
        player.OpenVideo(strFile.c_str(), 0, 0, -1);
        MSG msg;
        while (!host.m_bEnded) {
            clock.Advance(kTickMs);
            while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
                DispatchMessage(&msg);
        }
        dCpuMs += ProcessCpuMs() - dStart;
        ++nPlays;
    }
    std::vector<BYTE> played;
    WAVEFORMATEX format{};
    CVirtualWave::GetPlayed(0, played, format);
    state.counters["frames"] = static_cast<double>(host.m_nFrames) / static_cast<double>(nPlays);
    state.counters["sound_s_played"] = static_cast<double>(played.size()) / 16000.0 / static_cast<double>(nPlays);
    state.counters["cpu_percent_of_a_core"] = 100.0 * dCpuMs / (static_cast<double>(nPlays) * kPlayedSeconds * 1000);
}

BENCHMARK(BM_PlayOneStreamAtNormalSpeed)
    ->ArgName("frame_size")
    ->Arg(FRAMESIZE_320X240_R2)
    ->Arg(FRAMESIZE_704X288_R2)
    ->Unit(benchmark::kMillisecond);

void BM_SeekByTimeInAnHour(benchmark::State& state)
{
    const std::string strFile = MakeRecording(FRAMESIZE_704X288_R2, kHourSeconds);
    CPlayHost host;
    CDecodeWnd player;
    if (strFile.empty() || !player.OpenDecodeWnd(host.m_hWnd, 0, 0) || !player.OpenVideo(strFile.c_str(), 0, 0, -1)) {
        state.SkipWithError("the recording can't be played");
        return;
    }
    const CTime tBegin = player.GetPlayInfo()->tBegin;
    std::mt19937 random(20241);
    std::uniform_int_distribution<int> second(0, kHourSeconds - 2);
    long nFailed = 0;
    for (auto _ : state)
        nFailed += player.PlayFrom(tBegin + CTimeSpan(second(random))) == 0;
    state.counters["failed"] = static_cast<double>(nFailed);
    state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(strFile)) / (1 << 20);
}

BENCHMARK(BM_SeekByTimeInAnHour)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
