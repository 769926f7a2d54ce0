// SendMessage: direct calls on the owner thread, waiting calls from other threads,
// and two threads that send to each other at the same time.
#include "platform/PlatformTestWindows.h"
#include "platform/TickClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

constexpr UINT WM_PING = WM_USER + 10;
constexpr UINT WM_PONG = WM_USER + 11;

TEST(SendMessageTest, OnTheOwnerThreadTheProcedureRunsAtOnceAndNothingIsQueued)
{
    CRecordingWnd wnd;
    EXPECT_EQ(SendMessage(wnd.m_hWnd, WM_PING, 40, 2), 42);
    ASSERT_EQ(wnd.m_received.size(), 1u);
    EXPECT_TRUE(TakeQueuedMessages().empty());
}

// Records the thread its procedure runs on.
class CThreadProbeWnd : public CWnd {
public:
    CThreadProbeWnd() { CreateEx(0, nullptr, "probe", WS_OVERLAPPED, RECT{}, nullptr, 0); }

    std::atomic<DWORD> m_dwHandlerThread{0};

protected:
    LRESULT WindowProc(UINT, WPARAM wParam, LPARAM) override
    {
        m_dwHandlerThread = GetCurrentThreadId();
        return static_cast<LRESULT>(wParam * 2);
    }
};

TEST(SendMessageTest, FromAnotherThreadTheProcedureRunsOnTheOwnerThread)
{
    CThreadProbeWnd wnd;
    DWORD dwOwner = GetCurrentThreadId();
    LRESULT lAnswer = 0;
    std::thread sender([&] { lAnswer = SendMessage(wnd.m_hWnd, WM_PING, 21, 0); });
    // The owner serves the send when it next looks at its queue.
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    MSG msg;
    EXPECT_FALSE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    sender.join();
    EXPECT_EQ(lAnswer, 42);
    EXPECT_EQ(wnd.m_dwHandlerThread.load(), dwOwner);
}

// A window whose handler of WM_PING sends WM_PONG back to a peer window on another
// thread before answering: a send within a send, in both directions at once.
class CPingWnd : public CWnd {
public:
    CPingWnd() { CreateEx(0, nullptr, "ping", WS_OVERLAPPED, RECT{}, nullptr, 0); }

    HWND m_hPeer = nullptr;
    int m_nPongs = 0;

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        if (message == WM_PONG) {
            ++m_nPongs;
            return static_cast<LRESULT>(wParam + 1);
        }
        if (message == WM_PING)
            return ::SendMessage(m_hPeer, WM_PONG, wParam, lParam) + 1;
        return CWnd::WindowProc(message, wParam, lParam);
    }
};

// The platform's lock is let go before a procedure runs, so that a handler may use
// the message calls itself.
TEST(SendMessageTest, AHandlerOfADispatchedMessageMaySendInTurn)
{
    CPingWnd wnd;
    wnd.m_hPeer = wnd.m_hWnd;
    ASSERT_TRUE(PostMessage(wnd.m_hWnd, WM_PING, 5, 0));
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(DispatchMessage(&msg), 7);
    EXPECT_EQ(wnd.m_nPongs, 1);
}

TEST(SendMessageTest, TwoThreadsSendingToEachOtherAtOnceBothGetTheirAnswers)
{
    constexpr int kRounds = 2000;
    HWND hWindow[2] = {};
    std::atomic<int> nCreated{0};
    int nWrongAnswers[2] = {};
    int nPongs[2] = {};
    auto fnSide = [&](int nSide) {
        CPingWnd wnd;
        hWindow[nSide] = wnd.m_hWnd;
        ++nCreated;
        while (nCreated.load() < 2)
            std::this_thread::yield();
        wnd.m_hPeer = hWindow[1 - nSide];
        for (int i = 0; i < kRounds; ++i) {
            // The peer's WM_PING handler sends WM_PONG back here while we wait.
            LRESULT lAnswer = ::SendMessage(hWindow[1 - nSide], WM_PING, static_cast<WPARAM>(i), 0);
            if (lAnswer != i + 2)
                ++nWrongAnswers[nSide];
        }
        // Keep answering the peer until it has finished too.
        ++nCreated;
        MSG msg;
        while (nCreated.load() < 4)
            PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE);
        nPongs[nSide] = wnd.m_nPongs;
    };
    std::thread first(fnSide, 0);
    std::thread second(fnSide, 1);
    first.join();
    second.join();
    EXPECT_EQ(nWrongAnswers[0], 0);
    EXPECT_EQ(nWrongAnswers[1], 0);
    EXPECT_EQ(nPongs[0], kRounds);
    EXPECT_EQ(nPongs[1], kRounds);
}

TEST(SendMessageTest, ASenderIsReleasedWithZeroWhenTheOwnerEndsWithoutAnswering)
{
    HANDLE hMayEnd = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    HWND hWnd = nullptr;
    HANDLE hCreated = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    std::thread owner([&] {
        CRecordingWnd wnd;
        hWnd = wnd.m_hWnd;
        SetEvent(hCreated);
        // Never looks at its queue: the send stays unanswered.
        WaitForSingleObject(hMayEnd, INFINITE);
    });
    WaitForSingleObject(hCreated, INFINITE);
    LRESULT lAnswer = -1;
    std::thread sender([&] { lAnswer = SendMessage(hWnd, WM_PING, 1, 1); });
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(2));
    SetEvent(hMayEnd);
    owner.join();
    sender.join();
    EXPECT_EQ(lAnswer, 0);
    CloseHandle(hMayEnd);
    CloseHandle(hCreated);
}

TEST(SendMessageTest, AThreadWaitingForObjectsCanServeSendsBetweenItsWaits)
{
    CRecordingWnd wnd;
    HANDLE hSenderDone = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    LRESULT lAnswer = 0;
    std::thread sender([&] {
        lAnswer = SendMessage(wnd.m_hWnd, WM_PING, 5, 6);
        SetEvent(hSenderDone);
    });
    DWORD dwResult = 0;
    MSG msg;
    while ((dwResult = MsgWaitForMultipleObjects(1, &hSenderDone, FALSE, INFINITE,
                                                 QS_SENDMESSAGE)) == WAIT_OBJECT_0 + 1)
        PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE);
    sender.join();
    EXPECT_EQ(dwResult, WAIT_OBJECT_0);
    EXPECT_EQ(lAnswer, 11);
    CloseHandle(hSenderDone);
}

} // namespace
