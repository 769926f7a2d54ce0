// An example of a host: its window lives on the host's thread, which runs the usual
// message loop, and gets posted messages from one thread, sent messages from another
// and ticks of its own timer, paced by the test clock that the sending thread moves.
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "platform/WinMessages.h"
#include "platform/WinThreads.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

constexpr UINT WM_HOST_POSTED = WM_USER + 30;
constexpr UINT WM_HOST_SENT = WM_USER + 31;
constexpr UINT kPlayTimer = 102;
constexpr UINT kPlayPeriod = 20;
constexpr int kMessagesPerThread = 100;
constexpr DWORD kClockStepPerSend = 10;

class CHostWnd : public CWnd {
public:
    CHostWnd() { CreateEx(0, nullptr, "host", WS_OVERLAPPED, RECT{}, nullptr, 0); }

    std::vector<LPARAM> m_posted;
    std::vector<LPARAM> m_sent;
    int m_nTicks = 0;
    DWORD m_dwOwnThread = GetCurrentThreadId();
    int m_nForeignCalls = 0;

protected:
    LRESULT OnPosted(WPARAM, LPARAM lParam)
    {
        Record(m_posted, lParam);
        return 0;
    }
    LRESULT OnSent(WPARAM, LPARAM lParam)
    {
        Record(m_sent, lParam);
        return lParam * 3;
    }
    void OnTimer(UINT nIDEvent)
    {
        if (nIDEvent == kPlayTimer)
            ++m_nTicks;
    }

    DECLARE_MESSAGE_MAP()

private:
    void Record(std::vector<LPARAM>& values, LPARAM lParam)
    {
        values.push_back(lParam);
        m_nForeignCalls += GetCurrentThreadId() == m_dwOwnThread ? 0 : 1;
        if (m_posted.size() == kMessagesPerThread && m_sent.size() == kMessagesPerThread)
            PostQuitMessage(0);
    }
};

BEGIN_MESSAGE_MAP(CHostWnd, CWnd)
    ON_MESSAGE(WM_HOST_POSTED, OnPosted)
    ON_MESSAGE(WM_HOST_SENT, OnSent)
    ON_WM_TIMER()
END_MESSAGE_MAP()

TEST(HostMessageLoopTest, AHostWindowGetsPostedSentAndTimerMessagesFromOtherThreads)
{
    CTestClock clock(5000);
    CHostWnd host;
    ASSERT_EQ(host.SetTimer(kPlayTimer, kPlayPeriod, nullptr), kPlayTimer);
    HWND hHost = host.m_hWnd;

    std::thread poster([hHost] {
        for (int i = 0; i < kMessagesPerThread; ++i)
            PostMessage(hHost, WM_HOST_POSTED, 0, i);
    });
    int nWrongAnswers = 0;
    std::thread sender([hHost, &clock, &nWrongAnswers] {
        for (int i = 0; i < kMessagesPerThread; ++i) {
            if (SendMessage(hHost, WM_HOST_SENT, 0, i) != i * 3)
                ++nWrongAnswers;
            clock.Advance(kClockStepPerSend);
        }
    });

    MSG msg;
    std::vector<DWORD> tickTimes;
    while (GetMessage(&msg, nullptr, 0, 0) > 0) {
        if (msg.message == WM_TIMER)
            tickTimes.push_back(msg.time);
        DispatchMessage(&msg);
    }
    poster.join();
    sender.join();

    std::vector<LPARAM> expected;
    for (int i = 0; i < kMessagesPerThread; ++i)
        expected.push_back(i);
    EXPECT_EQ(host.m_posted, expected);
    EXPECT_EQ(host.m_sent, expected);
    EXPECT_EQ(nWrongAnswers, 0);
    EXPECT_EQ(host.m_nForeignCalls, 0);

    // The clock moved 1000 ms: ticks came at least a period apart, at most one per
    // period, and none was owed when the loop ended.
    ASSERT_FALSE(tickTimes.empty());
    EXPECT_EQ(host.m_nTicks, static_cast<int>(tickTimes.size()));
    EXPECT_LE(tickTimes.size(), kMessagesPerThread * kClockStepPerSend / kPlayPeriod);
    for (std::size_t i = 1; i < tickTimes.size(); ++i)
        EXPECT_GE(tickTimes[i] - tickTimes[i - 1], kPlayPeriod);

    // From now on the loop's clock is the test's alone: one period, one tick.
    while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessage(&msg);
    int nTicks = host.m_nTicks;
    clock.Advance(kPlayPeriod);
    ASSERT_EQ(GetMessage(&msg, nullptr, 0, 0), TRUE);
    DispatchMessage(&msg);
    EXPECT_EQ(host.m_nTicks, nTicks + 1);
}

} // namespace
