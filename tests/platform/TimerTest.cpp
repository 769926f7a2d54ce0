// Window timers, driven by the test clock: when they tick, that a stalled loop gets
// one tick and not a backlog, that posted messages go first, and KillTimer.
#include "platform/PlatformTestWindows.h"
#include "platform/TickClock.h"

#include <gtest/gtest.h>

namespace {

constexpr UINT kTimerId = 102;
constexpr UINT kPeriod = 20;

int CountTicks(HWND hWnd, UINT nIDEvent)
{
    int nTicks = 0;
    for (const MSG& msg : TakeQueuedMessages(hWnd)) {
        if (msg.message == WM_TIMER && msg.wParam == nIDEvent)
            ++nTicks;
    }
    return nTicks;
}

class TimerTest : public ::testing::Test {
protected:
    CTestClock m_clock{1000};
    CRecordingWnd m_wnd;
};

TEST_F(TimerTest, TicksWhenThePeriodHasPassedByTheTestClock)
{
    ASSERT_EQ(SetTimer(m_wnd.m_hWnd, kTimerId, kPeriod, nullptr), kTimerId);
    m_clock.Advance(kPeriod - 1);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 0);
    m_clock.Advance(1);
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(msg.message, WM_TIMER);
    EXPECT_EQ(msg.hwnd, m_wnd.m_hWnd);
    EXPECT_EQ(msg.wParam, kTimerId);
    EXPECT_EQ(msg.time, 1000u + kPeriod);
    m_clock.Advance(kPeriod);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 1);

    // Periods below 10 ms are raised to 10.
    SetTimer(m_wnd.m_hWnd, kTimerId, 1, nullptr);
    m_clock.Advance(9);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 0);
    m_clock.Advance(1);
    EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_TIMER), WAIT_OBJECT_0) << "due now";
    EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_POSTMESSAGE), WAIT_TIMEOUT) << "not asked for";
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 1);
}

TEST_F(TimerTest, AStalledLoopGetsOneTickAndThePeriodRestartsFromIt)
{
    SetTimer(m_wnd.m_hWnd, kTimerId, kPeriod, nullptr);
    m_clock.Advance(kPeriod * 10 + 5);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 1);
    m_clock.Advance(kPeriod - 1);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 0);
    m_clock.Advance(1);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 1);
}

TEST_F(TimerTest, QueuedMessagesComeBeforeTheTickAndNoRemoveLeavesIt)
{
    SetTimer(m_wnd.m_hWnd, kTimerId, kPeriod, nullptr);
    m_clock.Advance(kPeriod);
    PostMessage(m_wnd.m_hWnd, WM_USER, 0, 0);
    PostMessage(m_wnd.m_hWnd, WM_USER + 1, 0, 0);
    // Looking at the tick without removing it leaves it where it was.
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, nullptr, WM_TIMER, WM_TIMER, PM_NOREMOVE));
    std::vector<MSG> messages = TakeQueuedMessages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].message, WM_USER);
    EXPECT_EQ(messages[1].message, WM_USER + 1);
    EXPECT_EQ(messages[2].message, WM_TIMER);
}

TEST_F(TimerTest, KillTimerWithATickPendingDropsTheTickOfThatTimerAlone)
{
    CRecordingWnd other;
    SetTimer(m_wnd.m_hWnd, kTimerId, kPeriod, nullptr);
    SetTimer(m_wnd.m_hWnd, kTimerId + 1, kPeriod, nullptr);
    SetTimer(other.m_hWnd, kTimerId, kPeriod, nullptr);
    EXPECT_EQ(SetTimer(m_wnd.m_hWnd, 0, kPeriod, nullptr), 0u) << "id 0 is no timer";
    m_clock.Advance(kPeriod * 3);
    EXPECT_TRUE(KillTimer(m_wnd.m_hWnd, kTimerId));
    EXPECT_FALSE(KillTimer(m_wnd.m_hWnd, kTimerId));
    std::vector<MSG> ticks = TakeQueuedMessages(m_wnd.m_hWnd);
    ASSERT_EQ(ticks.size(), 1u);
    EXPECT_EQ(ticks[0].wParam, kTimerId + 1);
    EXPECT_EQ(CountTicks(other.m_hWnd, kTimerId), 1);
}

TEST_F(TimerTest, SetTimerAgainRestartsThePeriodAndDestroyingTheWindowEndsIt)
{
    SetTimer(m_wnd.m_hWnd, kTimerId, kPeriod, nullptr);
    m_clock.Advance(kPeriod - 5);
    m_wnd.SetTimer(kTimerId, kPeriod, nullptr);
    m_clock.Advance(kPeriod - 1);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, kTimerId), 0);
    m_clock.Advance(1);
    HWND hWnd = m_wnd.m_hWnd;
    m_wnd.DestroyWindow();
    EXPECT_EQ(CountTicks(hWnd, kTimerId), 0);
    EXPECT_EQ(SetTimer(hWnd, kTimerId, kPeriod, nullptr), 0u);
}

TEST_F(TimerTest, AWindowFilterTakesOnlyThatWindowsTicks)
{
    CRecordingWnd other;
    SetTimer(m_wnd.m_hWnd, 1, kPeriod, nullptr);
    SetTimer(other.m_hWnd, 2, kPeriod * 2, nullptr);
    m_clock.Advance(kPeriod * 2);
    std::vector<MSG> otherTicks = TakeQueuedMessages(other.m_hWnd);
    ASSERT_EQ(otherTicks.size(), 1u);
    EXPECT_EQ(otherTicks[0].wParam, 2u);
    EXPECT_EQ(CountTicks(m_wnd.m_hWnd, 1), 1);
}

TEST_F(TimerTest, ABlockedLoopOnAnotherThreadWakesForItsTick)
{
    CWindowThread owner;
    ASSERT_EQ(SetTimer(owner.m_hWnd, kTimerId, kPeriod, nullptr), kTimerId);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    m_clock.Advance(kPeriod * 5);
    // Idle again once it has taken its one tick and found nothing more.
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    m_clock.Advance(kPeriod);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    owner.Stop();
    int nTicks = 0;
    for (const MSG& msg : owner.m_received)
        nTicks += msg.message == WM_TIMER ? 1 : 0;
    EXPECT_EQ(nTicks, 2);
}

int g_nTimerProcCalls = 0;

void CountTimerProc(HWND, UINT uMsg, UINT nIDEvent, DWORD)
{
    if (uMsg == WM_TIMER && nIDEvent == kTimerId)
        ++g_nTimerProcCalls;
}

TEST_F(TimerTest, ATimerProcedureIsCalledByDispatchInsteadOfTheWindow)
{
    g_nTimerProcCalls = 0;
    SetTimer(m_wnd.m_hWnd, kTimerId, kPeriod, CountTimerProc);
    m_clock.Advance(kPeriod);
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    DispatchMessage(&msg);
    EXPECT_EQ(g_nTimerProcCalls, 1);
    EXPECT_TRUE(m_wnd.m_received.empty());
}

TEST(RealClockTimerTest, TicksByTheRealClockWithoutATestClock)
{
    CRecordingWnd wnd;
    DWORD dwStart = GetTickCount();
    SetTimer(wnd.m_hWnd, kTimerId, 10, nullptr);
    MSG msg;
    ASSERT_EQ(GetMessage(&msg, nullptr, 0, 0), TRUE);
    EXPECT_EQ(msg.message, WM_TIMER);
    EXPECT_GE(GetTickCount() - dwStart, 10u);
    // A wait for queue input wakes by itself for the next tick.
    EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, INFINITE, QS_TIMER), WAIT_OBJECT_0);
}

} // namespace
