// Shared by the player tests: a host window that notes every WM_VIDEOPLAY, and a
// fixture that drives the player's timer by the test clock.
#pragma once

#include "TestRecordings.h"

#include "playback/CDecodeWnd.h"
#include "platform/CVirtualWave.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace playback_test {

// One WM_VIDEOPLAY as the host saw it.
struct tag_PLAYEVENT {
    WPARAM wKind;
    DWORD dwTick;
    int nFrame;         // the frame named by the picture's first pixel, for VIDEOPLAY_FRAME
    int nLastFrame;     // and by its last pixel
    int nBlockIndex;
    int nFrameIndex;
    time_t tCurrent;
    bool bAllBlack;
};

class CPlayHostWnd : public CWnd {
public:
    CPlayHostWnd()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "play host", WS_POPUP, rect, nullptr, 0);
    }
    ~CPlayHostWnd() override { DestroyWindow(); }

    std::vector<tag_PLAYEVENT> m_events;
    int m_nPictureBytes = 160 * 112 * 3;
    std::function<void(const tag_PLAYFRAME&)> m_pfnOnFrame;

    std::vector<tag_PLAYEVENT> Frames() const
    {
        std::vector<tag_PLAYEVENT> frames;
        for (const tag_PLAYEVENT& event : m_events) {
            if (event.wKind == VIDEOPLAY_FRAME)
                frames.push_back(event);
        }
        return frames;
    }

protected:
    LRESULT OnVideoPlay(WPARAM wParam, LPARAM lParam)
    {
        tag_PLAYEVENT event{wParam, GetTickCount(), -1, -1, 0, 0, 0, false};
        if (wParam == VIDEOPLAY_FRAME) {
            const auto* pPlay = reinterpret_cast<const tag_PLAYFRAME*>(lParam);
            event.nFrame = FrameOfPicture(pPlay->pPicture);
            event.nLastFrame = FrameOfPicture(pPlay->pPicture + m_nPictureBytes - 3);
            event.nBlockIndex = pPlay->pPlayInfo->nBlockIndex;
            event.nFrameIndex = pPlay->pPlayInfo->nFrameIndex;
            event.tCurrent = pPlay->pPlayInfo->tCurrent.GetTime();
            event.bAllBlack = std::all_of(pPlay->pPicture, pPlay->pPicture + m_nPictureBytes, [](BYTE b) { return b == 0; });
            if (m_pfnOnFrame)
                m_pfnOnFrame(*pPlay);
        } else if (wParam == VIDEOPLAY_CLOCK) {
            event.tCurrent = reinterpret_cast<const tag_VIDEOPLAYINFO*>(lParam)->tCurrent.GetTime();
        }
        m_events.push_back(event);
        return 0;
    }
    DECLARE_MESSAGE_MAP()
};

inline bool IsAllZero(const tag_VIDEOPLAYINFO& info)
{
    return info.nBlockIndex == 0 && info.nFrameIndex == 0 && info.dwFrameStamp == 0 && info.dwBeginStamp == 0 &&
           info.dwLastTick == 0 && info.tBegin.GetTime() == 0 && info.tEnd.GetTime() == 0 &&
           info.tCurrent.GetTime() == 0 && info.nPlaySpeed == 0 && info.nSoundFmt == 0 && info.bEnableSound == 0 &&
           info.nWaveOutID == 0;
}

inline void PumpMessages()
{
    MSG msg;
    while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessage(&msg);
}

// A player in window mode under the test clock, with a recording to play and one
// virtual sound output, device 0, that keeps what it played.
class PlayerTest : public ::testing::Test {
protected:
    static constexpr DWORD kClockStart = 0x10000;

    void SetUp() override
    {
        CVirtualWave::Clear();
        CVirtualWave::EnableSystemDevices(false);
        tag_VIRTUALWAVEDEVICE speaker;
        speaker.strName = "speaker";
        CVirtualWave::AddOutput(speaker);
        ASSERT_EQ(player.OpenDecodeWnd(host.m_hWnd, 0, 0), 1);
    }
    void TearDown() override
    {
        player.CloseDecodeWnd();
        CVirtualWave::InstallDefault();
    }

    // The sound the output has played, as samples.
    static std::vector<short> PlayedSound(std::vector<tag_PLAYEDBUFFER>* pBuffers = nullptr)
    {
        std::vector<BYTE> bytes;
        WAVEFORMATEX format{};
        EXPECT_TRUE(CVirtualWave::GetPlayed(0, bytes, format, pBuffers));
        std::vector<short> samples(bytes.size() / 2);
        std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
        return samples;
    }

    // Writes the recording and starts playing it at the speed given.
    void Open(std::vector<tag_TESTFRAME> frames, int nSpeed = 0)
    {
        WriteRecording(strFile, frames);
        ASSERT_EQ(player.OpenVideo(strFile.c_str(), nSpeed, 0, -1), 1);
    }

    // nTicks timer periods of nMs each, the messages served after each.
    void Tick(int nTicks = 1, DWORD dwMs = 20)
    {
        for (int i = 0; i < nTicks; ++i) {
            clock.Advance(dwMs);
            PumpMessages();
        }
    }

    // Ticks until the host has seen nFrames pictures (at most nMaxTicks).
    void TickUntilFrames(std::size_t nFrames, int nMaxTicks = 1000)
    {
        for (int i = 0; i < nMaxTicks && host.Frames().size() < nFrames; ++i)
            Tick();
    }

    CTestClock clock{kClockStart};
    CTempDir dir;
    std::string strFile = dir.Path("play.zn");
    CPlayHostWnd host;
    CDecodeWnd player;
};

} // namespace playback_test
