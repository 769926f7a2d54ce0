// What board sound and sound files cost, in processor time per second of sound:
//  - BM_BoardSoundPerBoard: a board's voice thread serving both channels in real time,
//    polling every 200 ms and moving blocks into two CVoiceCodec objects that a camera
//    empties every 40 ms. The virtual processor's coder is a copy, so that the figure is
//    the library's work (and the bus's), not the simulation's G.726;
//  - BM_WaveFileRecord and BM_WaveFilePlay: CWaveWnd recording and playing a file of
//    format 7 (44.1 kHz 16-bit stereo, the largest), under a test clock.
#include "driver/virtual/CVirtualRack.h"
#include "platform/CVirtualWave.h"
#include "platform/TickClock.h"
#include "platform/WinThreads.h"
#include "sound/CVoiceCodec.h"
#include "sound/CVoiceThread.h"
#include "sound/CWaveWnd.h"

#include <benchmark/benchmark.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr DWORD kFrameMs = 40;
constexpr int kSecondsPerRun = 3;

double ProcessCpuUs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

class CCopyEncoder : public CSpeechEncoder {
public:
    int Encode(const short* pPcm, BYTE* pCode, int nSamples) override
    {
        for (int n = 0; n < nSamples / 8 * 3; ++n)
            pCode[n] = static_cast<BYTE>(pPcm[n]);
        return 1;
    }
};

void BM_BoardSoundPerBoard(benchmark::State& state)
{
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    board.sound.pfnCreateEncoder = [] { return std::make_unique<CCopyEncoder>(); };
    CVirtualRack::InstallBoard(board);
    CVoiceThread voice(CVirtualRack::GetBoard(0)->GetDebi());
    CVoiceCodec codec[2];
    std::vector<BYTE> area(CVoiceCodec::CODE_BYTES);
    long nCodeBytes = 0;
    double dCpuUs = 0.0;
    double dSeconds = 0.0;
    for (auto _ : state) {
        const double dStart = ProcessCpuUs();
        for (int nChannel = 0; nChannel < 2; ++nChannel) {
            codec[nChannel].OpenVoice(&voice, nChannel);
            codec[nChannel].StartRecord();
        }
        for (DWORD dwFrame = 0; dwFrame < kSecondsPerRun * 1000 / kFrameMs; ++dwFrame) {
            Sleep(kFrameMs);
            for (CVoiceCodec& channel : codec) {
                int nLen = 0;
                channel.GetRecordData(area.data(), nLen, CVoiceCodec::CODE_BYTES);
                nCodeBytes += nLen;
            }
        }
        codec[0].Close();
        codec[1].Close();
        dCpuUs += ProcessCpuUs() - dStart;
        dSeconds += kSecondsPerRun;
    }
    state.counters["cpu_us_per_s_per_board"] = dCpuUs / dSeconds;
    state.counters["core_percent_per_board"] = dCpuUs / dSeconds / 1e4;
    state.counters["code_bytes_per_s_per_channel"] = static_cast<double>(nCodeBytes) / dSeconds / 2;
    CVirtualRack::Clear();
}
BENCHMARK(BM_BoardSoundPerBoard)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The sound window's host: serves its messages as the clock runs.
class CBenchHost : public CWnd {
public:
    CBenchHost() { CreateEx(0, nullptr, "wave bench", WS_POPUP, RECT{}, nullptr, 0); }
    ~CBenchHost() override { DestroyWindow(); }
    static void Pump()
    {
        MSG msg;
        while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessage(&msg);
    }
};

const std::string& BenchFile()
{
    static const std::string strFile = (std::filesystem::temp_directory_path() / "zndvr-bench-format7.wav").string();
    return strFile;
}

// Records (or plays) 60 s of format 7 an iteration, a frame's 40 ms at a time.
void RunWaveFile(benchmark::State& state, bool bRecord)
{
    constexpr int kSeconds = 60;
    CVirtualWave::Clear();
    CVirtualWave::EnableSystemDevices(false);
    // A silent input: the figure is the file's and the window's work, not the signal's.
    tag_VIRTUALWAVEDEVICE device;
    device.strName = "bench";
    device.signal.nKind = WAVESIGNAL_SILENCE;
    CVirtualWave::AddInput(device);
    CVirtualWave::AddOutput(device);
    CTestClock clock;
    CBenchHost host;
    CWaveWnd wave;
    wave.Open(host.m_hWnd);
    double dCpuUs = 0.0;
    double dBytes = 0.0;
    for (auto _ : state) {
        const double dStart = ProcessCpuUs();
        const int bStarted = bRecord ? wave.Record(BenchFile().c_str(), SOUNDFMT_44K_16BIT_STEREO, 0)
                                     : wave.Play(BenchFile().c_str(), 0);
        if (!bStarted) {
            state.SkipWithError(CWaveWnd::GetResultText(wave.GetLastResult()));
            return;
        }
        for (int n = 0; n < kSeconds * 1000 / static_cast<int>(kFrameMs); ++n) {
            clock.Advance(kFrameMs);
            CBenchHost::Pump();
        }
        dBytes += wave.GetDataBytes();
        wave.StopPlay(0);
        wave.StopRecord();
        CVirtualWave::ClearPlayed(0);
        dCpuUs += ProcessCpuUs() - dStart;
    }
    const double dSoundSeconds = static_cast<double>(state.iterations()) * kSeconds;
    state.counters["cpu_us_per_s_of_sound"] = dCpuUs / dSoundSeconds;
    state.counters["mb_per_s_of_cpu"] = dBytes / dCpuUs;
    wave.Close();
    CVirtualWave::InstallDefault();
}

void BM_WaveFileRecord(benchmark::State& state)
{
    RunWaveFile(state, true);
}
BENCHMARK(BM_WaveFileRecord)->Iterations(5)->Unit(benchmark::kMillisecond);

void BM_WaveFilePlay(benchmark::State& state)
{
    RunWaveFile(state, false);
}
BENCHMARK(BM_WaveFilePlay)->Iterations(5)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
