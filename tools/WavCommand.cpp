// zndvr wav: plays a WAVE file, or records one, through CWaveWnd on a host window of
// this thread, with a progress line each second. Ctrl-C, SIGTERM and SIGHUP stop cleanly: a recording is
// finished and kept. Without --device the machine's own devices are used.
#include "Commands.h"
#include "StopSignals.h"

#include "platform/CVirtualWave.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "sound/CWaveWnd.h"
#include "vocabulary/Messages.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr UINT kTickTimer = 1;
// Ctrl-C is looked for this often; the progress line comes once a second.
constexpr UINT kTickMs = 100;
constexpr DWORD kProgressMs = 1000;
constexpr char kUsage[] = "usage: zndvr wav play FILE [--device NAME]\n"
                          "       zndvr wav record FILE -s SECONDS [--format N] [--device NAME]\n";

struct tag_WAVOPTIONS {
    bool bRecord = false;
    std::string strFile;
    int nSeconds = 0;
    int nFormat = SOUNDFMT_8K_16BIT_MONO;
    std::string strDevice;
};

std::string DescribeFormat(const WAVEFORMATEX& format)
{
    char szText[96];
    std::snprintf(szText, sizeof(szText), "%lu Hz, %u-bit, %s", static_cast<unsigned long>(format.nSamplesPerSec),
                  format.wBitsPerSample, format.nChannels == 1 ? "mono" : "stereo");
    return szText;
}

double SecondsOf(DWORD dwBytes, const WAVEFORMATEX& format)
{
    return format.nAvgBytesPerSec > 0 ? static_cast<double>(dwBytes) / format.nAvgBytesPerSec : 0.0;
}

// The host window: ends the loop at the end of the file, at the recording's time or
// at Ctrl-C, and prints the progress line.
class CWavHost : public CWnd {
public:
    CWavHost(CWaveWnd& wave, const tag_WAVOPTIONS& options, const CStopSignals& stop)
        : m_wave(wave), m_options(options), m_stop(stop)
    {
        CreateEx(0, nullptr, "zndvr wav", WS_POPUP, RECT{0, 0, 0, 0}, nullptr, 0);
    }
    ~CWavHost() override { DestroyWindow(); }

    // Serves the loop; true when it ended by Ctrl-C.
    bool Run()
    {
        m_dwStart = GetTickCount();
        m_dwNextLine = kProgressMs;
        SetTimer(kTickTimer, kTickMs, nullptr);
        MSG msg;
        while (GetMessage(&msg, nullptr, 0, 0) > 0)
            DispatchMessage(&msg);
        KillTimer(kTickTimer);
        return m_bInterrupted;
    }

protected:
    LRESULT OnPlayEnd(WPARAM, LPARAM)
    {
        PostQuitMessage(0);
        return 0;
    }

    LRESULT OnTick(WPARAM, LPARAM)
    {
        const DWORD dwElapsed = GetTickCount() - m_dwStart;
        if (dwElapsed >= m_dwNextLine) {
            m_dwNextLine += kProgressMs;
            PrintProgress(dwElapsed);
        }
        const bool bTimeUp = m_options.bRecord && dwElapsed >= static_cast<DWORD>(m_options.nSeconds) * 1000;
        if (m_stop.IsStopped() || bTimeUp) {
            m_bInterrupted = m_stop.IsStopped();
            m_wave.StopPlay(0);
            m_wave.StopRecord();
            PostQuitMessage(0);
        }
        return 0;
    }
    DECLARE_MESSAGE_MAP()

private:
    void PrintProgress(DWORD dwElapsed) const
    {
        const double dTotal =
            m_options.bRecord ? m_options.nSeconds : SecondsOf(m_wave.GetDataBytes(), m_wave.GetFormat());
        std::printf("%4lu s of %.1f s\n", static_cast<unsigned long>(dwElapsed / 1000), dTotal);
        std::fflush(stdout);
    }

    CWaveWnd& m_wave;
    const tag_WAVOPTIONS& m_options;
    const CStopSignals& m_stop;
    DWORD m_dwStart = 0;
    DWORD m_dwNextLine = 0;
    bool m_bInterrupted = false;
};

BEGIN_MESSAGE_MAP(CWavHost, CWnd)
    ON_MESSAGE(WM_WAVEPLAYEND, OnPlayEnd)
    ON_MESSAGE(WM_TIMER, OnTick)
END_MESSAGE_MAP()

// false with a message for anything it can't take.
bool ParseOptions(std::span<char* const> args, tag_WAVOPTIONS& options, std::string& strError)
{
    if (args.size() < 2 || (std::string_view(args[0]) != "play" && std::string_view(args[0]) != "record"))
        return false;
    options.bRecord = std::string_view(args[0]) == "record";
    options.strFile = args[1];
    for (std::size_t i = 2; i < args.size(); ++i) {
        const std::string_view strArg = args[i];
        if (i + 1 >= args.size())
            return false;
        const char* pszValue = args[++i];
        if (strArg == "--device") {
            options.strDevice = pszValue;
        } else if (options.bRecord && (strArg == "-s" || strArg == "--seconds")) {
            options.nSeconds = std::atoi(pszValue);
            if (options.nSeconds <= 0) {
                strError = std::string("-s ") + pszValue + ": the seconds to record, at least 1";
                return false;
            }
        } else if (options.bRecord && strArg == "--format") {
            options.nFormat = std::atoi(pszValue);
            WAVEFORMATEX format{};
            if (!CWaveCodec::GetSoundFmt(static_cast<tag_SOUNDFMT>(options.nFormat), &format) ||
                std::string_view(pszValue).find_first_not_of("0123456789") != std::string_view::npos) {
                strError = std::string("--format ") + pszValue + ": not a sound format (0, 3 to 8; zndvr devices lists them)";
                return false;
            }
        } else {
            return false;
        }
    }
    if (options.bRecord && options.nSeconds <= 0)
        strError = "record needs -s SECONDS";
    return strError.empty();
}

// The device to use: the one named, or the first of the machine's own that works.
bool ChooseDevice(const tag_WAVOPTIONS& options, DWORD& dwDevice, std::string& strError)
{
    dwDevice = CWaveWnd::ANY_DEVICE;
    if (options.strDevice.empty()) {
        CVirtualWave::Clear();
        return true;
    }
    dwDevice = options.bRecord ? CWaveCodec::GetWaveInID(options.strDevice.c_str())
                               : CWaveCodec::GetWaveOutID(options.strDevice.c_str());
    if (dwDevice == CWaveWnd::ANY_DEVICE)
        strError = "no wave-" + std::string(options.bRecord ? "in" : "out") + " device is called '" + options.strDevice +
                   "' (zndvr devices lists them)";
    return strError.empty();
}

} // namespace

int RunWavCommand(std::span<char* const> args)
{
    // Before any thread exists, so that all of them leave the stop signals to the one
    // that waits for them.
    CStopSignals stopSignals;
    tag_WAVOPTIONS options;
    std::string strError;
    if (!ParseOptions(args, options, strError)) {
        if (!strError.empty())
            std::fprintf(stderr, "zndvr wav: %s\n", strError.c_str());
        std::fprintf(stderr, "%s", kUsage);
        return 2;
    }
    // The device list is that of the moment the first codec object lives.
    CWaveCodec devices;
    DWORD dwDevice = CWaveWnd::ANY_DEVICE;
    if (!ChooseDevice(options, dwDevice, strError)) {
        std::fprintf(stderr, "zndvr wav: %s\n", strError.c_str());
        return 2;
    }
    CWaveWnd wave;
    CWavHost host(wave, options, stopSignals);
    const bool bStarted =
        wave.Open(host.m_hWnd) &&
        (options.bRecord ? wave.Record(options.strFile.c_str(), static_cast<tag_SOUNDFMT>(options.nFormat), dwDevice)
                         : wave.Play(options.strFile.c_str(), dwDevice));
    if (!bStarted) {
        std::string strWhy = CWaveWnd::GetResultText(wave.GetLastResult());
        if (wave.GetLastResult() == WAVEWND_NOFILE) {
            const std::string strDir = std::filesystem::path(options.strFile).parent_path().string();
            const bool bAccess = options.bRecord ? access(strDir.empty() ? "." : strDir.c_str(), W_OK) == 0
                                                 : access(options.strFile.c_str(), R_OK) == 0;
            if (!bAccess)
                strWhy += std::string(" (") + std::strerror(errno) + ")";
        }
        std::fprintf(stderr, "zndvr wav: %s: %s\n", options.strFile.c_str(), strWhy.c_str());
        if (wave.GetLastResult() == WAVEWND_BADFORMAT && !options.bRecord)
            std::fprintf(stderr, "  the file's sound: %s\n", DescribeFormat(wave.GetFormat()).c_str());
        return 1;
    }
    const WAVEFORMATEX& format = wave.GetFormat();
    const CString strDevice = options.bRecord ? CWaveCodec::GetWaveInDevName(wave.GetDevice())
                                              : CWaveCodec::GetWaveOutDevName(wave.GetDevice());
    if (options.bRecord)
        std::printf("recording %s for %d s: %s, from %s\n", options.strFile.c_str(), options.nSeconds,
                    DescribeFormat(format).c_str(), static_cast<LPCSTR>(strDevice));
    else
        std::printf("playing %s: %.1f s, %s, on %s\n", options.strFile.c_str(), SecondsOf(wave.GetDataBytes(), format),
                    DescribeFormat(format).c_str(), static_cast<LPCSTR>(strDevice));
    std::fflush(stdout);

    if (!stopSignals.Watch())
        std::fprintf(stderr, "zndvr wav: stop signals can't be watched; Ctrl-C ends it at once\n");
    const bool bInterrupted = host.Run();
    wave.Close();

    const char* pszHow = bInterrupted ? "stopped" : "done";
    if (options.bRecord)
        std::printf("%s: %s holds %.2f s of sound (%lu bytes)\n", pszHow, options.strFile.c_str(),
                    SecondsOf(wave.GetDataBytes(), format), static_cast<unsigned long>(wave.GetDataBytes()));
    else
        std::printf("%s\n", pszHow);
    return 0;
}
