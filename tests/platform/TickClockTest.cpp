// The platform clock: 32-bit wrap of GetTickCount, and timed waits of every kind
// that end when the test clock is advanced past their deadline, not before.
#include "platform/PlatformTestWindows.h"
#include "platform/CTime.h"
#include "platform/TickClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <thread>

namespace {

constexpr DWORD kNearWrap = 0xFFFFFFF0u;

TEST(TickClockTest, DifferencesStayRightAcrossTheWrap)
{
    CTestClock clock(kNearWrap);
    DWORD dwBefore = GetTickCount();
    EXPECT_EQ(dwBefore, kNearWrap);
    clock.Advance(0x30);
    DWORD dwAfter = GetTickCount();
    EXPECT_EQ(dwAfter, 0x20u);
    EXPECT_EQ(dwAfter - dwBefore, 0x30u);
    EXPECT_EQ(clock.GetTime(), dwAfter);
}

TEST(TickClockTest, TheWallClockMovesOnlyWithTheTestClock)
{
    {
        CTestClock clock(5);
        const time_t tReal = CTime::GetCurrentTime().GetTime();
        EXPECT_LE(std::abs(tReal - std::time(nullptr)), 2);
        clock.SetCurrentTime(1000000);
        EXPECT_EQ(CTime::GetCurrentTime().GetTime(), 1000000);
        clock.Advance(999);
        EXPECT_EQ(CTime::GetCurrentTime().GetTime(), 1000000);
        clock.Advance(1);
        EXPECT_EQ(CTime::GetCurrentTime().GetTime(), 1000001);
        clock.Advance(86400u * 1000u);
        EXPECT_EQ(CTime::GetCurrentTime().GetTime(), 1086401);
    }
    EXPECT_LE(std::abs(CTime::GetCurrentTime().GetTime() - std::time(nullptr)), 2);
}

TEST(TickClockTest, ATimerSetBeforeTheWrapTicksAfterIt)
{
    CTestClock clock(kNearWrap);
    CRecordingWnd wnd;
    SetTimer(wnd.m_hWnd, 1, 0x20, nullptr);
    clock.Advance(0x1F);
    MSG msg;
    EXPECT_FALSE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    clock.Advance(1);
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(msg.message, WM_TIMER);
    EXPECT_EQ(msg.time, 0x10u);
}

// Runs fnWait on its own thread and reports whether it has returned.
class CWaitingThread {
public:
    explicit CWaitingThread(std::function<DWORD()> fnWait)
        : m_thread([this, fnWait] {
              m_dwResult = fnWait();
              m_bDone = true;
          })
    {
    }

    ~CWaitingThread() { Join(); }

    DWORD Join()
    {
        if (m_thread.joinable())
            m_thread.join();
        return m_dwResult;
    }

    std::atomic<bool> m_bDone{false};

private:
    DWORD m_dwResult = 0;
    std::thread m_thread;
};

// The thread is blocked once it is idle; it must stay blocked until the clock has
// moved the whole time-out, and then return without any other help.
void ExpectWakesExactlyAfter(CTestClock& clock, CWaitingThread& waiter, DWORD dwTimeout)
{
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    clock.Advance(dwTimeout - 1);
    EXPECT_EQ(CTestClock::GetIdleThreads(), 1);
    EXPECT_FALSE(waiter.m_bDone.load());
    clock.Advance(1);
}

TEST(TickClockTest, SleepAndObjectWaitsEndWhenTheClockPassesTheirTimeOut)
{
    HANDLE hEvent = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    HANDLE hMutex = CreateMutex(nullptr, TRUE, nullptr);
    struct Case {
        LPCSTR pszWait;
        std::function<DWORD()> fnWait;
        DWORD dwTimeout;
    };
    const Case aCases[] = {
        {"Sleep", [] { Sleep(100); return DWORD(WAIT_TIMEOUT); }, 100},
        {"event", [hEvent] { return WaitForSingleObject(hEvent, 50); }, 50},
        {"mutex held by this thread", [hMutex] { return WaitForSingleObject(hMutex, 100); }, 100},
    };
    for (const Case& waitCase : aCases) {
        SCOPED_TRACE(waitCase.pszWait);
        CTestClock clock;
        CWaitingThread waiter(waitCase.fnWait);
        ExpectWakesExactlyAfter(clock, waiter, waitCase.dwTimeout);
        EXPECT_EQ(waiter.Join(), WAIT_TIMEOUT);
    }
    ReleaseMutex(hMutex);
    CloseHandle(hMutex);
    CloseHandle(hEvent);
}

TEST(TickClockTest, MessageWaitTimesOutAndAPostEndsItEarly)
{
    CTestClock clock;
    HANDLE hStop = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    std::atomic<DWORD> dwWaiterId{0};
    CWaitingThread waiter([&] {
        dwWaiterId = GetCurrentThreadId();
        DWORD dwFirst = MsgWaitForMultipleObjects(1, &hStop, FALSE, 200, QS_ALLPOSTMESSAGE);
        DWORD dwSecond = MsgWaitForMultipleObjects(1, &hStop, FALSE, 200, QS_ALLPOSTMESSAGE);
        MSG msg;
        bool bTaken = PeekMessage(&msg, nullptr, WM_USER, WM_USER, PM_REMOVE) != FALSE;
        DWORD dwThird = MsgWaitForMultipleObjects(1, &hStop, FALSE, 200, QS_ALLPOSTMESSAGE);
        return DWORD(dwFirst == WAIT_TIMEOUT && dwSecond == WAIT_OBJECT_0 + 1 && bTaken &&
                     dwThird == WAIT_OBJECT_0);
    });
    ExpectWakesExactlyAfter(clock, waiter, 200);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    EXPECT_TRUE(PostThreadMessage(dwWaiterId.load(), WM_USER, 0, 0));
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    SetEvent(hStop);
    EXPECT_EQ(waiter.Join(), 1u);
    CloseHandle(hStop);
}

TEST(TickClockTest, AWaitRunningWhenTheTestClockStartsTakesItsTimeOutFromIt)
{
    HANDLE hEvent = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    CWaitingThread waiter([hEvent] { return WaitForSingleObject(hEvent, 60000); });
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    CTestClock clock;
    ExpectWakesExactlyAfter(clock, waiter, 60000);
    EXPECT_EQ(waiter.Join(), WAIT_TIMEOUT);
    CloseHandle(hEvent);
}

TEST(TickClockTest, RealClockWaitsEndByThemselves)
{
    HANDLE hEvent = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    DWORD dwStart = GetTickCount();
    EXPECT_EQ(WaitForSingleObject(hEvent, 15), WAIT_TIMEOUT);
    EXPECT_GE(GetTickCount() - dwStart, 15u);
    CloseHandle(hEvent);
}

} // namespace
