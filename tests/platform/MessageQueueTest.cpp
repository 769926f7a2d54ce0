// Message queues: order, filters, removal, quit, sent-before-posted, thread queues
// made on first use, and messages of destroyed windows.
#include "platform/PlatformTestWindows.h"
#include "platform/TickClock.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

namespace {

constexpr UINT WM_TEST_A = WM_USER + 1;
constexpr UINT WM_TEST_B = WM_USER + 2;
constexpr UINT WM_TEST_C = WM_USER + 3;

const HWND kThreadOnly = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-1));

std::vector<UINT> NumbersOf(const std::vector<MSG>& messages)
{
    std::vector<UINT> numbers;
    for (const MSG& msg : messages)
        numbers.push_back(msg.message);
    return numbers;
}

TEST(MessageQueueTest, FiltersTakeMatchingMessagesAndLeaveTheRestInOrder)
{
    CRecordingWnd first;
    CRecordingWnd second;
    ASSERT_TRUE(PostMessage(first.m_hWnd, WM_TEST_A, 1, 0));
    ASSERT_TRUE(PostMessage(second.m_hWnd, WM_TEST_B, 2, 0));
    ASSERT_TRUE(PostThreadMessage(GetCurrentThreadId(), WM_TEST_C, 3, 0));
    ASSERT_TRUE(PostMessage(first.m_hWnd, WM_TEST_B, 4, 0));
    ASSERT_TRUE(PostMessage(second.m_hWnd, WM_TEST_A, 5, 0));

    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, second.m_hWnd, 0, 0, PM_REMOVE));
    EXPECT_EQ(msg.wParam, 2u);
    ASSERT_TRUE(PeekMessage(&msg, nullptr, WM_TEST_A, WM_TEST_A, PM_REMOVE));
    EXPECT_EQ(msg.wParam, 1u);
    ASSERT_TRUE(PeekMessage(&msg, kThreadOnly, 0, 0, PM_REMOVE));
    EXPECT_EQ(msg.wParam, 3u);
    EXPECT_EQ(msg.hwnd, nullptr);
    EXPECT_FALSE(PeekMessage(&msg, kThreadOnly, 0, 0, PM_REMOVE));
    EXPECT_FALSE(PeekMessage(&msg, first.m_hWnd, WM_TEST_C, WM_USER + 100, PM_REMOVE));
    EXPECT_FALSE(PeekMessage(&msg, nullptr, 0, WM_TEST_A - 1, PM_REMOVE)) << "a filter from 0";

    std::vector<MSG> rest = TakeQueuedMessages();
    ASSERT_EQ(rest.size(), 2u);
    EXPECT_EQ(rest[0].wParam, 4u);
    EXPECT_EQ(rest[0].hwnd, first.m_hWnd);
    EXPECT_EQ(rest[1].wParam, 5u);
}

TEST(MessageQueueTest, NoRemoveLeavesTheMessageAndDispatchReturnsTheProceduresResult)
{
    CRecordingWnd wnd;
    PostMessage(wnd.m_hWnd, WM_TEST_A, 30, 12);
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE));
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE));
    ASSERT_EQ(GetMessage(&msg, nullptr, 0, 0), TRUE);
    EXPECT_EQ(msg.message, WM_TEST_A);
    EXPECT_EQ(msg.lParam, 12);
    EXPECT_FALSE(PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(DispatchMessage(&msg), 42);
    EXPECT_EQ(DispatchMessage(nullptr), 0);
    EXPECT_EQ(NumbersOf(wnd.m_received), (std::vector<UINT>{WM_TEST_A}));
}

TEST(MessageQueueTest, QuitEndsGetMessageOnlyWhenItsNumberIsInTheFilter)
{
    CRecordingWnd wnd;
    PostThreadMessage(GetCurrentThreadId(), WM_QUIT, 5, 0);
    PostMessage(wnd.m_hWnd, WM_TEST_A, 0, 0);

    // Waiting for one message of one window passes over the quit request.
    MSG msg;
    ASSERT_EQ(GetMessage(&msg, wnd.m_hWnd, WM_TEST_A, WM_TEST_A), TRUE);
    EXPECT_EQ(msg.message, WM_TEST_A);
    EXPECT_EQ(GetMessage(&msg, nullptr, 0, 0), FALSE);
    EXPECT_EQ(msg.message, WM_QUIT);
    EXPECT_EQ(msg.wParam, 5u);
}

TEST(MessageQueueTest, PostQuitMessageComesAfterThePostedMessages)
{
    CRecordingWnd wnd;
    PostQuitMessage(3);
    PostMessage(wnd.m_hWnd, WM_TEST_A, 0, 0);
    PostMessage(wnd.m_hWnd, WM_TEST_B, 0, 0);
    MSG msg;
    std::vector<UINT> numbers;
    while (GetMessage(&msg, nullptr, 0, 0) > 0)
        numbers.push_back(msg.message);
    EXPECT_EQ(numbers, (std::vector<UINT>{WM_TEST_A, WM_TEST_B}));
    EXPECT_EQ(msg.wParam, 3u);
}

TEST(MessageQueueTest, GetMessageFailsForAWindowThatIsNone)
{
    CRecordingWnd wnd;
    HWND hGone = wnd.m_hWnd;
    wnd.DestroyWindow();
    MSG msg;
    EXPECT_EQ(GetMessage(&msg, hGone, 0, 0), -1);
    EXPECT_EQ(GetMessage(nullptr, nullptr, 0, 0), -1);
}

TEST(MessageQueueTest, SentMessagesAreServedBeforeQueuedOnes)
{
    CRecordingWnd wnd;
    PostMessage(wnd.m_hWnd, WM_TEST_A, 1, 0);
    LRESULT lAnswer = 0;
    std::thread sender([&] { lAnswer = SendMessage(wnd.m_hWnd, WM_TEST_B, 20, 3); });
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));

    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));
    sender.join();
    EXPECT_EQ(msg.message, WM_TEST_A);
    EXPECT_EQ(lAnswer, 23);
    // The sent message reached the procedure inside PeekMessage, before anything was
    // dispatched.
    EXPECT_EQ(NumbersOf(wnd.m_received), (std::vector<UINT>{WM_TEST_B}));
}

// Waits of objects make no queue; the first message call does, even one that fails,
// such as a timer for no window.
TEST(MessageQueueTest, PostThreadMessageFailsUntilTheTargetHasAQueue)
{
    HANDLE hIdKnown = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    HANDLE hMayMakeQueue = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    HANDLE hQueueMade = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    HANDLE hPosted = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    DWORD dwTarget = 0;
    MSG received{};
    std::thread target([&] {
        dwTarget = GetCurrentThreadId();
        SetEvent(hIdKnown);
        WaitForSingleObject(hMayMakeQueue, INFINITE);
        SetTimer(nullptr, 1, 10, nullptr);
        SetEvent(hQueueMade);
        WaitForSingleObject(hPosted, INFINITE);
        GetMessage(&received, nullptr, 0, 0);
    });
    WaitForSingleObject(hIdKnown, INFINITE);
    EXPECT_FALSE(PostThreadMessage(dwTarget, WM_TEST_A, 1, 0));
    SetEvent(hMayMakeQueue);
    WaitForSingleObject(hQueueMade, INFINITE);
    const BOOL bPosted = PostThreadMessage(dwTarget, WM_TEST_A, 2, 0);
    SetEvent(hPosted);
    EXPECT_TRUE(bPosted);
    // Without its queue the thread makes one in GetMessage: let it end all the same.
    while (!bPosted && !PostThreadMessage(dwTarget, WM_TEST_A, 2, 0))
        std::this_thread::yield();
    target.join();
    EXPECT_EQ(received.message, WM_TEST_A);
    EXPECT_EQ(received.wParam, 2u);
    EXPECT_FALSE(PostThreadMessage(dwTarget, WM_TEST_A, 3, 0)) << "the thread has ended";
    EXPECT_FALSE(PostThreadMessage(0, WM_TEST_A, 3, 0));
    for (HANDLE hEvent : {hIdKnown, hMayMakeQueue, hQueueMade, hPosted})
        CloseHandle(hEvent);
}

TEST(MessageQueueTest, DestroyedWindowLosesItsQueuedMessagesAndRefusesNewOnes)
{
    CRecordingWnd keep;
    CRecordingWnd gone;
    PostMessage(gone.m_hWnd, WM_TEST_A, 0, 0);
    PostMessage(keep.m_hWnd, WM_TEST_B, 0, 0);
    PostMessage(gone.m_hWnd, WM_TEST_C, 0, 0);
    HWND hGone = gone.m_hWnd;
    ASSERT_TRUE(gone.DestroyWindow());

    EXPECT_FALSE(IsWindow(hGone));
    EXPECT_EQ(gone.m_hWnd, nullptr);
    EXPECT_FALSE(PostMessage(hGone, WM_TEST_A, 0, 0));
    EXPECT_EQ(SendMessage(hGone, WM_TEST_A, 1, 1), 0);
    EXPECT_EQ(CWnd::FromHandle(hGone), nullptr);
    EXPECT_EQ(GetWindowThreadProcessId(hGone, nullptr), 0u);
    std::vector<MSG> rest = TakeQueuedMessages();
    ASSERT_EQ(rest.size(), 1u);
    EXPECT_EQ(rest[0].hwnd, keep.m_hWnd);
    // Only WM_DESTROY reached the destroyed window.
    EXPECT_EQ(NumbersOf(gone.m_received), (std::vector<UINT>{WM_DESTROY}));
}

TEST(MessageQueueTest, WindowsOfAnEndedThreadAreGone)
{
    std::optional<CRecordingWnd> wnd;
    HWND hWnd = nullptr;
    std::thread owner([&] {
        wnd.emplace();
        hWnd = wnd->m_hWnd;
    });
    owner.join();
    ASSERT_NE(hWnd, nullptr);
    EXPECT_EQ(wnd->m_hWnd, nullptr);
    EXPECT_FALSE(IsWindow(hWnd));
    EXPECT_FALSE(PostMessage(hWnd, WM_TEST_A, 0, 0));
}

} // namespace
