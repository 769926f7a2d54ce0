// Time to draw one frame of each virtual camera source at the sizes streams deliver,
// and the round trip of an immediate read through a stream's driver thread.
#include "driver/CVideoStream.h"
#include "driver/virtual/CVirtualRack.h"
#include "driver/virtual/FrameSources.h"
#include "platform/CWnd.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

void DrawFrames(benchmark::State& state, const tag_CAMERASOURCE& source)
{
    const tag_FRAMEFORMAT format{static_cast<int>(state.range(0)), static_cast<int>(state.range(1)),
                                 DRIVER_STANDARD_PAL};
    auto pSource = CreateFrameSource(source);
    std::vector<BYTE> frame(static_cast<std::size_t>(format.nWidth) * format.nHeight * 2);
    DWORD dwTime = 0;
    for (auto _ : state) {
        pSource->WriteFrame(frame.data(), format, dwTime += 40);
        benchmark::DoNotOptimize(frame.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(frame.size()));
}

void BM_SyntheticScene(benchmark::State& state)
{
    DrawFrames(state, {SOURCE_SYNTHETIC, 1, ""});
}

void BM_StillScene(benchmark::State& state)
{
    DrawFrames(state, {SOURCE_STILL, 1, ""});
}

void BM_NoSignal(benchmark::State& state)
{
    DrawFrames(state, {SOURCE_NOSIGNAL, 1, ""});
}

// Footage of 352 x 288 in a temporary file, scaled to the delivered size.
void BM_Y4mFootage(benchmark::State& state)
{
    const std::string strPath = (std::filesystem::temp_directory_path() / "zndvr-bench-footage.y4m").string();
    std::FILE* pFile = std::fopen(strPath.c_str(), "wb");
    std::fprintf(pFile, "YUV4MPEG2 W352 H288 C420jpeg\n");
    const std::vector<char> planes(352 * 288 * 3 / 2, 90);
    for (int f = 0; f < 4; ++f) {
        std::fputs("FRAME\n", pFile);
        std::fwrite(planes.data(), 1, planes.size(), pFile);
    }
    std::fclose(pFile);
    DrawFrames(state, {SOURCE_Y4MFILE, 0, strPath});
    std::filesystem::remove(strPath);
}

// One read ordered and its message taken, with immediate pacing.
void BM_ImmediateReadRoundTrip(benchmark::State& state)
{
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    board.nPacing = PACING_IMMEDIATE;
    CVirtualRack::InstallBoard(board);
    CSpciIO io;
    io.Open(0);
    CWnd window;
    const RECT rect{0, 0, 0, 0};
    window.CreateEx(0, nullptr, "bench", WS_POPUP, rect, nullptr, 0);
    CVideoStream stream(io, 0);
    tag_VideoPort videoPort{0, 0, 12, 24, 704, 288};
    tag_PciPort pciPort{0, 0, 0, 352, 288};
    stream.Open(window.m_hWnd, DRIVER_STANDARD_PAL, &videoPort, &pciPort);
    stream.Start();
    std::vector<BYTE> frame(352 * 288 * 2);
    tag_VIDEOREAD read{0, 0, 1, 0, frame.data(), static_cast<DWORD>(frame.size())};
    MSG msg;
    for (auto _ : state) {
        read.nCamera = 1 - read.nCamera;
        stream.ReadVideo(&read);
        GetMessage(&msg, window.m_hWnd, WM_ZN_FRAME, WM_ZN_FRAME);
    }
    stream.Close();
    window.DestroyWindow();
    CVirtualRack::Clear();
}

} // namespace

BENCHMARK(BM_SyntheticScene)->Args({352, 288})->Args({704, 576});
BENCHMARK(BM_StillScene)->Args({352, 288});
BENCHMARK(BM_NoSignal)->Args({352, 288});
BENCHMARK(BM_Y4mFootage)->Args({352, 288})->Args({704, 576});
BENCHMARK(BM_ImmediateReadRoundTrip);

BENCHMARK_MAIN();
