// The capture chain from driver to host, one camera on a board that answers every read
// at once: the processor time of one frame (driver drawing, stream, encoder thread,
// motion analysis, host handler), and from it the cameras one core sustains at 25
// frames a second, per frame size of both revisions; and the latency from the driver's
// message that hands a frame to the channel to the host's frame message (coding
// included). Then the real-time round: the frames a second each camera gets when
// several share a stream paced at its frame rate.
#include "capture/CEncodeParam.h"
#include "capture/CVideo.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CWnd.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>

namespace {

constexpr double kFramePeriodMs = 40.0;

double ProcessCpuMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1000.0 + static_cast<double>(time.tv_nsec) / 1e6;
}

// The host: counts the records and gives each back at once.
class CBenchHost : public CWnd {
public:
    CBenchHost()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "capture bench host", WS_POPUP, rect, nullptr, 0);
    }
    ~CBenchHost() override { DestroyWindow(); }

    long m_nFrames = 0;
    bool m_bAtEncoder = false;
    std::chrono::steady_clock::time_point m_handOver;
    double m_dLatencySumUs = 0;
    double m_dLatencyMaxUs = 0;

protected:
    LRESULT OnCaptureFrame(WPARAM wCamera, LPARAM)
    {
        const double dUs =
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - m_handOver).count();
        m_dLatencySumUs += dUs;
        m_dLatencyMaxUs = dUs > m_dLatencyMaxUs ? dUs : m_dLatencyMaxUs;
        ++m_nFrames;
        m_bAtEncoder = false;
        ::PostMessage(reinterpret_cast<HWND>(wCamera), WM_ZN_FRAMEDONE, 0, 0);
        return 0;
    }
    DECLARE_MESSAGE_MAP()
};

BEGIN_MESSAGE_MAP(CBenchHost, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnCaptureFrame)
END_MESSAGE_MAP()

// Serves messages until the host has one more frame. A driver message after which the
// channel is at its encoder is the moment the frame was handed over.
void PumpOneFrame(CBenchHost& host, CVideo& video)
{
    const long nTarget = host.m_nFrames + 1;
    MSG msg;
    while (host.m_nFrames < nTarget && GetMessage(&msg, nullptr, 0, 0) > 0) {
        const bool bDriverFrame = msg.message == WM_ZN_FRAME && msg.hwnd != host.m_hWnd;
        DispatchMessage(&msg);
        if (bDriverFrame) {
            tag_CAMERASTATUS nStatus = CAMSTATUS_NONE;
            video.GetCameraStatus(0, 0, nStatus);
            if (nStatus == CAMSTATUS_ENCODING && !host.m_bAtEncoder) {
                host.m_handOver = std::chrono::steady_clock::now();
                host.m_bAtEncoder = true;
            }
        }
    }
}

void BM_CaptureChain(benchmark::State& state)
{
    const auto nSize = static_cast<tag_FRAMESIZE>(state.range(0));
    const bool bSecond = nSize == FRAMESIZE_320X240_R2 || nSize == FRAMESIZE_640X240_R2 ||
                         nSize == FRAMESIZE_352X288_R2 || nSize == FRAMESIZE_704X288_R2;
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    board.byChannels = 4;
    board.byGeneration = bSecond ? 2 : 1;
    board.nPacing = PACING_IMMEDIATE;
    CVirtualRack::InstallBoard(board);
    CBenchHost host;
    {
        CVideo video;
        video.Open(&host, bSecond ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114);
        if (video.OpenBoard(0, nSize, 0, nullptr) != ZNRET_OK) {
            state.SkipWithError("board doesn't open");
            return;
        }
        CEncodeParam param;
        CRect rcAll(0, 0, 320, 240);
        CMaskInfo area(&rcAll, 320, 240);
        param.AddMaskInfo(&area, 320, 240);
        if (video.OpenCamera(0, 0, &param, nullptr) != ZNRET_OK) {
            state.SkipWithError("camera doesn't open");
            return;
        }
        for (int i = 0; i < 5; ++i)
            PumpOneFrame(host, video);
        host.m_dLatencySumUs = 0;
        host.m_dLatencyMaxUs = 0;
        const long nFirst = host.m_nFrames;
        const double dCpuStart = ProcessCpuMs();
        const auto wallStart = std::chrono::steady_clock::now();
        for (auto _ : state)
            PumpOneFrame(host, video);
        const double dCpuMs = ProcessCpuMs() - dCpuStart;
        const double dWallMs =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - wallStart).count();
        const double nFrames = static_cast<double>(host.m_nFrames - nFirst);
        const double dCpuPerFrame = dCpuMs / nFrames;
        // The process time counts the driver thread too, which under immediate pacing
        // draws every reread frame while the channel works: a lower bound. One camera's
        // frame passes window thread and encoder thread one after the other, so the wall
        // time of a frame is the work of one core without the driver's drawing.
        state.counters["cpu_ms_per_frame"] = dCpuPerFrame;
        state.counters["cameras_at_25fps_cpu"] = kFramePeriodMs / dCpuPerFrame;
        state.counters["cameras_at_25fps_chain"] = kFramePeriodMs / (dWallMs / nFrames);
        state.counters["latency_us_mean"] = host.m_dLatencySumUs / nFrames;
        state.counters["latency_us_max"] = host.m_dLatencyMaxUs;
    }
    CVirtualRack::Clear();
}

BENCHMARK(BM_CaptureChain)
    ->ArgName("frame_size")
    ->Arg(FRAMESIZE_160X112)
    ->Arg(FRAMESIZE_240X176)
    ->Arg(FRAMESIZE_320X240)
    ->Arg(FRAMESIZE_640X240)
    ->Arg(FRAMESIZE_176X144)
    ->Arg(FRAMESIZE_256X192)
    ->Arg(FRAMESIZE_352X288)
    ->Arg(FRAMESIZE_640X240_PAL)
    ->Arg(FRAMESIZE_320X240_R2)
    ->Arg(FRAMESIZE_640X240_R2)
    ->Arg(FRAMESIZE_352X288_R2)
    ->Arg(FRAMESIZE_704X288_R2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// What a user gets in real time: boards paced at their frame rate, N cameras sharing each
// stream, every record handed back at once. The frames each camera gets in a second,
// against the stream's rate divided by its cameras, which is what the round allows.
void BM_RealTimeRound(benchmark::State& state)
{
    constexpr int kStreamRate = 30;
    constexpr auto kRun = std::chrono::seconds(3);
    const int nCamerasPerStream = static_cast<int>(state.range(0));
    const bool bTwoStreams = state.range(1) != 0;
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    board.byChannels = static_cast<BYTE>(bTwoStreams ? 4 : nCamerasPerStream);
    board.byGeneration = bTwoStreams ? 2 : 1;
    CVirtualRack::InstallBoard(board);
    CBenchHost host;
    {
        CVideo video;
        video.Open(&host, bTwoStreams ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114);
        if (video.OpenBoard(0, bTwoStreams ? FRAMESIZE_320X240_R2 : FRAMESIZE_320X240, 0, nullptr) != ZNRET_OK) {
            state.SkipWithError("board doesn't open");
            return;
        }
        CEncodeParam param;
        const int nCameras = bTwoStreams ? 2 * nCamerasPerStream : nCamerasPerStream;
        for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
            // On the two-stream board cameras 0, 1 are stream 0's and 2, 3 stream 1's.
            const int nBoardCamera = bTwoStreams ? nCamera / nCamerasPerStream * 2 + nCamera % nCamerasPerStream
                                                 : nCamera;
            video.OpenCamera(0, nBoardCamera, &param, nullptr);
        }
        for (auto _ : state) {
            const long nFirst = host.m_nFrames;
            const auto start = std::chrono::steady_clock::now();
            MSG msg;
            while (std::chrono::steady_clock::now() - start < kRun &&
                   MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT) != WAIT_FAILED) {
                while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
                    DispatchMessage(&msg);
            }
            const double dSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            const double dPerCamera = static_cast<double>(host.m_nFrames - nFirst) / nCameras / dSeconds;
            state.counters["fps_per_camera"] = dPerCamera;
            state.counters["share_of_round"] = dPerCamera / (static_cast<double>(kStreamRate) / nCamerasPerStream);
        }
    }
    CVirtualRack::Clear();
}

BENCHMARK(BM_RealTimeRound)
    ->ArgNames({"cameras_per_stream", "two_streams"})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Args({3, 0})
    ->Args({4, 0})
    ->Args({2, 1})
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
