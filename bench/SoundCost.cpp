// What recording sound costs one camera: the work of its wave-in CWaveCodec as a camera
// channel runs it (the device's notices served and coded, the code taken at each frame
// of 40 ms), in processor time per second of sound and as a share of one core.
//  - BM_SoundPerCamera: a virtual microphone fed from a WAVE file, under a test clock, so
//    that each iteration is one frame's 40 ms of sound without waiting for it;
//  - BM_SoundPerCameraAlsa: ALSA's null device in real time, with its worker thread, where
//    the library is built with ALSA.
#include "platform/CVirtualWave.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "sound/CWaveCodec.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr DWORD kFrameMs = 40;
constexpr double kFramesPerSecond = 25.0;

double ProcessCpuUs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// The camera window's part: MM_WIM_DATA to the codec.
class CSoundWnd : public CWnd {
public:
    explicit CSoundWnd(CWaveCodec& codec) : m_codec(codec)
    {
        CreateEx(0, nullptr, "sound bench", WS_OVERLAPPED, RECT{}, nullptr, 0);
    }
    ~CSoundWnd() override { DestroyWindow(); }

    void Pump()
    {
        MSG msg;
        while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
            DispatchMessage(&msg);
    }

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        if (message == MM_WIM_DATA)
            m_codec.OnRecordData(wParam, lParam);
        return 0;
    }

private:
    CWaveCodec& m_codec;
};

// Ten seconds of speech-like sound in a WAVE file, so that the device only copies it.
std::string WriteSpeechFile()
{
    const std::string strFile = (std::filesystem::temp_directory_path() / "zndvr-bench-speech.wav").string();
    WAVEFORMATEX format{};
    CWaveCodec::GetSoundFmt(SOUNDFMT_ADPCM, &format);
    CWaveSignal speech;
    speech.Open(tag_WAVESIGNAL{}, format);
    std::vector<BYTE> pcm(format.nAvgBytesPerSec * 10);
    speech.Generate(pcm.data(), static_cast<DWORD>(pcm.size() / 2));
    auto fnPut = [](std::FILE* pFile, DWORD dwValue, int nBytes) {
        for (int i = 0; i < nBytes; ++i)
            std::fputc(static_cast<int>((dwValue >> (8 * i)) & 0xFF), pFile);
    };
    std::FILE* pFile = std::fopen(strFile.c_str(), "wb");
    if (pFile == nullptr)
        return strFile;
    std::fputs("RIFF", pFile);
    fnPut(pFile, static_cast<DWORD>(36 + pcm.size()), 4);
    std::fputs("WAVEfmt ", pFile);
    fnPut(pFile, 16, 4);
    fnPut(pFile, format.wFormatTag, 2);
    fnPut(pFile, format.nChannels, 2);
    fnPut(pFile, format.nSamplesPerSec, 4);
    fnPut(pFile, format.nAvgBytesPerSec, 4);
    fnPut(pFile, format.nBlockAlign, 2);
    fnPut(pFile, format.wBitsPerSample, 2);
    std::fputs("data", pFile);
    fnPut(pFile, static_cast<DWORD>(pcm.size()), 4);
    std::fwrite(pcm.data(), 1, pcm.size(), pFile);
    std::fclose(pFile);
    return strFile;
}

void ReportCost(benchmark::State& state, double dCpuUs, double dSoundSeconds, long nCodeBytes)
{
    const double dUsPerSecond = dCpuUs / dSoundSeconds;
    state.counters["cpu_us_per_s_of_sound"] = dUsPerSecond;
    state.counters["core_percent_per_camera"] = dUsPerSecond / 1e4;
    state.counters["code_bytes_per_s"] = static_cast<double>(nCodeBytes) / dSoundSeconds;
}

void BM_SoundPerCamera(benchmark::State& state)
{
    const std::string strFile = WriteSpeechFile();
    CVirtualWave::Clear();
    CVirtualWave::EnableSystemDevices(false);
    tag_VIRTUALWAVEDEVICE microphone;
    microphone.strName = "bench microphone";
    microphone.signal.nKind = WAVESIGNAL_FILE;
    microphone.signal.strFile = strFile;
    CVirtualWave::AddInput(microphone);
    {
        CTestClock clock;
        CWaveCodec codec;
        CSoundWnd wnd(codec);
        std::vector<BYTE> area(ZNFRAME_SOUND_BUFFER_SIZE);
        if (!codec.Open(wnd.m_hWnd, 0, SOUNDFMT_ADPCM, ZNFILE_READ) || !codec.StartRecord()) {
            state.SkipWithError("the virtual microphone doesn't open");
            return;
        }
        long nCodeBytes = 0;
        long nFrames = 0;
        const double dCpuStart = ProcessCpuUs();
        for (auto _ : state) {
            clock.Advance(kFrameMs);
            wnd.Pump();
            int nLen = 0;
            codec.GetRecordData(area.data(), nLen, static_cast<int>(area.size()));
            nCodeBytes += nLen;
            ++nFrames;
        }
        ReportCost(state, ProcessCpuUs() - dCpuStart, static_cast<double>(nFrames) / kFramesPerSecond, nCodeBytes);
    }
    CVirtualWave::InstallDefault();
    std::filesystem::remove(strFile);
}

BENCHMARK(BM_SoundPerCamera)->Unit(benchmark::kMicrosecond);

void BM_SoundPerCameraAlsa(benchmark::State& state)
{
    CVirtualWave::Clear();
    CVirtualWave::EnableSystemDevices(true);
    {
        CWaveCodec codec;
        CSoundWnd wnd(codec);
        const DWORD dwNull = CWaveCodec::GetWaveInID("null");
        if (!CVirtualWave::IsSystemBackendBuilt() || dwNull == CWaveCodec::ANY_DEVICE ||
            !codec.Open(wnd.m_hWnd, dwNull, SOUNDFMT_ADPCM, ZNFILE_READ) || !codec.StartRecord()) {
            state.SkipWithError("no ALSA null device here");
            CVirtualWave::InstallDefault();
            return;
        }
        std::vector<BYTE> area(ZNFRAME_SOUND_BUFFER_SIZE);
        long nCodeBytes = 0;
        long nFrames = 0;
        const double dCpuStart = ProcessCpuUs();
        for (auto _ : state) {
            // One frame period of real time, serving the notices as a window thread does.
            const DWORD dwEnd = GetTickCount() + kFrameMs;
            for (LONG nLeft = kFrameMs; nLeft > 0; nLeft = static_cast<LONG>(dwEnd - GetTickCount())) {
                MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(nLeft), QS_ALLINPUT);
                wnd.Pump();
            }
            int nLen = 0;
            codec.GetRecordData(area.data(), nLen, static_cast<int>(area.size()));
            nCodeBytes += nLen;
            ++nFrames;
        }
        ReportCost(state, ProcessCpuUs() - dCpuStart, static_cast<double>(nFrames) / kFramesPerSecond, nCodeBytes);
    }
    CVirtualWave::InstallDefault();
}

BENCHMARK(BM_SoundPerCameraAlsa)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(125);

} // namespace

BENCHMARK_MAIN();
