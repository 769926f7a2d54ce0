// zndvr play: plays a recording in real time through the player window of the library,
// with a progress line of time, frame and speed. When standard input is a terminal, keys
// pause, speed up, slow down and quit; Ctrl-C stops the playing cleanly.
#include "Commands.h"
#include "StopSignals.h"

#include "playback/CDecodeWnd.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "sound/CWaveCodec.h"

#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <string>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr UINT kInputTimer = 1;
constexpr UINT kInputPeriodMs = 50;
constexpr DWORD kTerminalStatusPeriodMs = 250;
constexpr DWORD kLogStatusPeriodMs = 1000;
constexpr int kSecondsPerMinute = 60;
constexpr int kMinutesPerHour = 60;
constexpr int kHoursPerDay = 24;

constexpr char kUsage[] =
    "usage: zndvr play FILE [--speed N] [--from HH:MM:SS | --block B --frame F] [--device NAME | --no-sound]\n"
    "  --speed N   0 normal; N above 0 plays 2N times faster, below 0 2|N| times slower\n"
    "  --device    the wave-out device to play the sound on (zndvr devices lists them); by\n"
    "              default the machine's first one, or the virtual output when it has none\n"
    "  --from      the first frames after that time of day on the recording's first day\n"
    "  keys: space pause, + faster, - slower, r normal speed, q quit\n";

struct tag_PLAYOPTIONS {
    std::string strFile;
    int nSpeed = 0;
    bool bFromTime = false;
    int nHour = 0;
    int nMinute = 0;
    int nSecond = 0;
    bool bFromBlock = false;
    int nBlock = 0;
    int nFrame = 0;
    std::string strDevice;
    bool bNoSound = false;
};

bool ParseTimeOfDay(const char* pText, tag_PLAYOPTIONS& options)
{
    char cEnd = 0;
    return std::sscanf(pText, "%d:%d:%d%c", &options.nHour, &options.nMinute, &options.nSecond, &cEnd) == 3 &&
           options.nHour >= 0 && options.nHour < kHoursPerDay && options.nMinute >= 0 &&
           options.nMinute < kMinutesPerHour && options.nSecond >= 0 && options.nSecond < kSecondsPerMinute;
}

bool ParseOptions(std::span<char* const> args, tag_PLAYOPTIONS& options)
{
    bool bHasFrame = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view strArg = args[i];
        const bool bHasValue = i + 1 < args.size();
        if (strArg == "--speed" && bHasValue) {
            options.nSpeed = std::atoi(args[++i]);
        } else if (strArg == "--from" && bHasValue) {
            options.bFromTime = true;
            if (!ParseTimeOfDay(args[++i], options)) {
                std::fprintf(stderr, "zndvr play: --from %s: a time of day as HH:MM:SS\n", args[i]);
                return false;
            }
        } else if (strArg == "--block" && bHasValue) {
            options.bFromBlock = true;
            options.nBlock = std::atoi(args[++i]);
        } else if (strArg == "--device" && bHasValue) {
            options.strDevice = args[++i];
        } else if (strArg == "--no-sound") {
            options.bNoSound = true;
        } else if (strArg == "--frame" && bHasValue) {
            bHasFrame = true;
            options.nFrame = std::atoi(args[++i]);
        } else if (options.strFile.empty() && !strArg.empty() && strArg[0] != '-') {
            options.strFile = strArg;
        } else {
            std::fprintf(stderr, "zndvr play: %.*s: unknown or incomplete argument\n", static_cast<int>(strArg.size()),
                         strArg.data());
            return false;
        }
    }
    if (options.strFile.empty() || (bHasFrame && !options.bFromBlock) || (options.bFromTime && options.bFromBlock) ||
        (options.bNoSound && !options.strDevice.empty())) {
        std::fputs(kUsage, stderr);
        return false;
    }
    return true;
}

// Standard input as single key presses without echo while the player runs.
class CKeyboard {
public:
    CKeyboard()
    {
        m_bTerminal = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &m_saved) == 0;
        if (!m_bTerminal)
            return;
        termios raw = m_saved;
        raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
        raw.c_cc[VMIN] = 0;
        raw.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    ~CKeyboard()
    {
        if (m_bTerminal)
            tcsetattr(STDIN_FILENO, TCSANOW, &m_saved);
    }
    // The next key pressed, or 0.
    char ReadKey() const
    {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        char cKey = 0;
        if (!m_bTerminal || poll(&input, 1, 0) <= 0 || read(STDIN_FILENO, &cKey, 1) != 1)
            return 0;
        return cKey;
    }
    bool IsTerminal() const { return m_bTerminal; }

private:
    bool m_bTerminal = false;
    termios m_saved{};
};

std::string SpeedText(int nSpeed)
{
    if (nSpeed > 0)
        return std::to_string(2LL * nSpeed) + "x";
    if (nSpeed < 0)
        return "1/" + std::to_string(-2LL * nSpeed) + "x";
    return "1x";
}

// The host window: counts the pictures, keeps the progress line and takes the keys.
class CPlayHost : public CWnd {
public:
    CPlayHost(CDecodeWnd& player, const CStopSignals& stop) : m_player(player), m_stop(stop)
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "zndvr play", WS_POPUP, rect, nullptr, 0);
    }
    ~CPlayHost() override { DestroyWindow(); }

    void Run()
    {
        m_dwStart = GetTickCount();
        SetTimer(kInputTimer, kInputPeriodMs, nullptr);
        MSG msg;
        while (GetMessage(&msg, nullptr, 0, 0) > 0)
            DispatchMessage(&msg);
        KillTimer(kInputTimer);
        if (m_keyboard.IsTerminal())
            std::printf("\n");
        std::printf("played %lu frames in %.1f s%s\n", static_cast<unsigned long>(m_dwFrames),
                    (GetTickCount() - m_dwStart) / 1000.0, m_stop.IsStopped() ? " (interrupted)" : "");
    }

protected:
    LRESULT OnVideoPlay(WPARAM wParam, LPARAM lParam)
    {
        if (wParam == VIDEOPLAY_END) {
            PostQuitMessage(0);
            return 0;
        }
        if (wParam == VIDEOPLAY_FRAME) {
            ++m_dwFrames;
            m_info = *reinterpret_cast<const tag_PLAYFRAME*>(lParam)->pPlayInfo;
        } else {
            m_info = *reinterpret_cast<const tag_VIDEOPLAYINFO*>(lParam);
        }
        ShowStatus(false);
        return 0;
    }

    // Keys and Ctrl-C. The player is never closed from inside its own message.
    void OnTimer(UINT)
    {
        if (m_stop.IsStopped()) {
            Quit();
            return;
        }
        switch (m_keyboard.ReadKey()) {
        case ' ':
        case 'p':
            m_player.Pause();
            break;
        case '+':
        case 'f':
            m_player.ChangePlaySpeed(m_player.GetPlaySpeed() + 1);
            break;
        case '-':
        case 's':
            m_player.ChangePlaySpeed(m_player.GetPlaySpeed() - 1);
            break;
        case 'r':
            m_player.ResetPlay();
            break;
        case 'q':
            Quit();
            return;
        default:
            return;
        }
        ShowStatus(true);
    }
    DECLARE_MESSAGE_MAP()

private:
    void Quit()
    {
        m_player.CloseVideo(0);
        PostQuitMessage(0);
    }

    void ShowStatus(bool bNow)
    {
        const bool bTerminal = m_keyboard.IsTerminal();
        const DWORD dwNow = GetTickCount();
        if (!bNow && dwNow - m_dwLastStatus < (bTerminal ? kTerminalStatusPeriodMs : kLogStatusPeriodMs))
            return;
        m_dwLastStatus = dwNow;
        const CString strTime = m_info.tCurrent.Format("%Y-%m-%d %H:%M:%S");
        std::printf("%s%s  frame %lu (block %d)  speed %s%s%s", bTerminal ? "\r" : "", static_cast<LPCSTR>(strTime),
                    static_cast<unsigned long>(m_dwFrames), m_info.nBlockIndex,
                    SpeedText(m_player.GetPlaySpeed()).c_str(), m_player.IsPause() ? "  paused" : "",
                    bTerminal ? "\x1b[K" : "\n");
        std::fflush(stdout);
    }

    CDecodeWnd& m_player;
    const CStopSignals& m_stop;
    CKeyboard m_keyboard;
    tag_VIDEOPLAYINFO m_info{};
    DWORD m_dwFrames = 0;
    DWORD m_dwStart = 0;
    DWORD m_dwLastStatus = 0;
};

BEGIN_MESSAGE_MAP(CPlayHost, CWnd)
    ON_MESSAGE(WM_VIDEOPLAY, OnVideoPlay)
    ON_WM_TIMER()
END_MESSAGE_MAP()

// The time of day on the recording's first day, or on the next day when the recording
// runs past midnight and the time lies before its start.
CTime ResolveTimeOfDay(const tag_PLAYOPTIONS& options, const tag_VIDEOPLAYINFO& info)
{
    const CTime& tBegin = info.tBegin;
    CTime tWhen(tBegin.GetYear(), tBegin.GetMonth(), tBegin.GetDay(), options.nHour, options.nMinute, options.nSecond);
    const CTime tNextDay(tBegin.GetYear(), tBegin.GetMonth(), tBegin.GetDay() + 1, options.nHour, options.nMinute,
                         options.nSecond);
    if (tWhen < tBegin && tNextDay <= info.tEnd)
        tWhen = tNextDay;
    return tWhen;
}

bool Seek(CDecodeWnd& player, const tag_PLAYOPTIONS& options)
{
    if (options.bFromBlock && !player.PlayFrom(options.nBlock, options.nFrame)) {
        std::fprintf(stderr, "zndvr play: %s has no frame %d in block %d (it has %lu blocks with frames)\n",
                     options.strFile.c_str(), options.nFrame, options.nBlock,
                     static_cast<unsigned long>(player.GetZnFile()->GetTotalBlock() - 1));
        return false;
    }
    if (options.bFromTime) {
        const tag_VIDEOPLAYINFO& info = *player.GetPlayInfo();
        const CTime tWhen = ResolveTimeOfDay(options, info);
        if (!player.PlayFrom(tWhen)) {
            std::fprintf(stderr, "zndvr play: %s has no frames after %s (it runs from %s to %s)\n",
                         options.strFile.c_str(), static_cast<LPCSTR>(tWhen.Format("%Y-%m-%d %H:%M:%S")),
                         static_cast<LPCSTR>(info.tBegin.Format("%H:%M:%S")),
                         static_cast<LPCSTR>(info.tEnd.Format("%H:%M:%S")));
            return false;
        }
    }
    return true;
}

// The virtual devices come first in the lists; a machine's own output is preferred,
// but not ALSA's null device, which throws the sound away.
constexpr char kVirtualDevicePrefix[] = "virtual-";
constexpr char kDiscardingDevice[] = "null";

// The wave-out device for the sound: the one named, or the machine's first that takes
// the speech format, or any (the virtual output). false for a name no device has.
bool ChooseOutput(const tag_PLAYOPTIONS& options, int& nWaveOutID)
{
    CWaveCodec lister;   // the device lists live while an object does
    nWaveOutID = -1;
    if (!options.strDevice.empty()) {
        const DWORD dwID = CWaveCodec::GetWaveOutID(options.strDevice.c_str());
        nWaveOutID = static_cast<int>(dwID);
        return dwID != CWaveCodec::ANY_DEVICE;
    }
    for (DWORD dwID = 0; dwID < CWaveCodec::GetWaveOutDevNum(); ++dwID) {
        const std::string strName = static_cast<LPCSTR>(CWaveCodec::GetWaveOutDevName(dwID));
        if (strName.rfind(kVirtualDevicePrefix, 0) != 0 && strName != kDiscardingDevice &&
            CWaveCodec::CheckOutFmt(dwID, SOUNDFMT_ADPCM)) {
            nWaveOutID = static_cast<int>(dwID);
            return true;
        }
    }
    return true;
}

} // namespace

int RunPlayCommand(std::span<char* const> args)
{
    // Before any thread exists, so that all of them leave the stop signals to the one
    // that waits for them.
    CStopSignals stopSignals;
    tag_PLAYOPTIONS options;
    if (!ParseOptions(args, options))
        return kExitUsage;
    int nWaveOutID = -1;
    if (!ChooseOutput(options, nWaveOutID)) {
        std::fprintf(stderr, "zndvr play: --device %s: no wave-out device of that name (zndvr devices lists them)\n",
                     options.strDevice.c_str());
        return kExitUsage;
    }
    CDecodeWnd player;
    CPlayHost host(player, stopSignals);
    if (!player.OpenDecodeWnd(host.m_hWnd, 0, 0) ||
        !player.OpenVideo(options.strFile.c_str(), options.nSpeed, 0, nWaveOutID)) {
        std::fprintf(stderr, "zndvr play: %s can't be played: not a recording, damaged, or without frames\n",
                     options.strFile.c_str());
        return kExitFailed;
    }
    if (!Seek(player, options))
        return kExitFailed;
    player.EnableSound(options.bNoSound ? 0 : 1);
    const bool bHasSound = player.GetZnFile()->GetSoundFormat() == SOUNDFMT_ADPCM;
    std::printf("playing %s: %dx%d, %lu frames, %s\n", options.strFile.c_str(), player.GetZnFile()->GetVideoWidth(),
                player.GetZnFile()->GetVideoHeight(), static_cast<unsigned long>(player.GetZnFile()->GetTotalFrameNum()),
                options.bNoSound || !bHasSound ? "without sound"
                : nWaveOutID < 0 ? "sound on the first output that takes it"
                                 : ("sound on " + std::string(static_cast<LPCSTR>(CWaveCodec::GetWaveOutDevName(
                                                      static_cast<DWORD>(nWaveOutID))))).c_str());
    if (!stopSignals.Watch())
        std::fprintf(stderr, "zndvr play: stop signals can't be watched; Ctrl-C ends it at once\n");
    host.Run();
    player.CloseDecodeWnd();
    return stopSignals.IsStopped() ? stopSignals.GetExitStatus() : kExitOk;
}
