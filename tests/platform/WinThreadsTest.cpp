// Threads, suspension, priorities, events, mutexes, multiple waits and handles.
#include "platform/TickClock.h"
#include "platform/WinMessages.h"
#include "platform/WinThreads.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace {

DWORD ReturnParameter(LPVOID lpParameter)
{
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(lpParameter));
}

TEST(WinThreadsTest, AThreadRunsItsFunctionAndIsSignalledWithItsExitCode)
{
    DWORD dwThreadId = 0;
    HANDLE hThread = CreateThread(nullptr, 0, ReturnParameter, reinterpret_cast<LPVOID>(77), 0,
                                  &dwThreadId);
    ASSERT_NE(hThread, nullptr);
    EXPECT_NE(dwThreadId, 0u);
    EXPECT_NE(dwThreadId, GetCurrentThreadId());
    EXPECT_EQ(WaitForSingleObject(hThread, INFINITE), WAIT_OBJECT_0);
    DWORD dwExitCode = 0;
    ASSERT_TRUE(GetExitCodeThread(hThread, &dwExitCode));
    EXPECT_EQ(dwExitCode, 77u);
    EXPECT_EQ(WaitForSingleObject(hThread, 0), WAIT_OBJECT_0) << "stays signalled";
    EXPECT_TRUE(CloseHandle(hThread));
    EXPECT_FALSE(CloseHandle(hThread));
    EXPECT_EQ(WaitForSingleObject(hThread, 0), WAIT_FAILED);
    EXPECT_EQ(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), nullptr);
}

std::atomic<int> g_nSuspendedRuns{0};

DWORD CountRun(LPVOID)
{
    ++g_nSuspendedRuns;
    return 0;
}

TEST(WinThreadsTest, ACreatedSuspendedThreadStartsAtResume)
{
    g_nSuspendedRuns = 0;
    HANDLE hThread = CreateThread(nullptr, 0, CountRun, nullptr, CREATE_SUSPENDED, nullptr);
    ASSERT_NE(hThread, nullptr);
    DWORD dwExitCode = 0;
    GetExitCodeThread(hThread, &dwExitCode);
    EXPECT_EQ(dwExitCode, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(hThread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(g_nSuspendedRuns.load(), 0);
    EXPECT_EQ(ResumeThread(hThread), 1u);
    EXPECT_EQ(WaitForSingleObject(hThread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(g_nSuspendedRuns.load(), 1);
    EXPECT_EQ(ResumeThread(hThread), 0u);
    EXPECT_EQ(SuspendThread(hThread), 0xFFFFFFFFu) << "an ended thread";
    CloseHandle(hThread);
}

// Waits for messages until WM_QUIT and sets the event of lpParameter for each.
DWORD SignalEachMessage(LPVOID lpParameter)
{
    MSG msg;
    while (GetMessage(&msg, nullptr, 0, 0) > 0)
        SetEvent(static_cast<HANDLE>(lpParameter));
    return 0;
}

TEST(WinThreadsTest, ASuspendedThreadStopsAtItsNextWaitUntilResumed)
{
    HANDLE hGot = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    DWORD dwThreadId = 0;
    HANDLE hThread = CreateThread(nullptr, 0, SignalEachMessage, hGot, 0, &dwThreadId);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));

    // As the channels do when they change the priority of their encoder thread.
    EXPECT_EQ(SuspendThread(hThread), 0u);
    EXPECT_EQ(SuspendThread(hThread), 1u);
    EXPECT_TRUE(PostThreadMessage(dwThreadId, WM_USER, 0, 0));
    // Its message has come, but it stays blocked.
    EXPECT_EQ(CTestClock::GetIdleThreads(), 1);
    EXPECT_EQ(WaitForSingleObject(hGot, 0), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(hThread), 2u);
    EXPECT_EQ(WaitForSingleObject(hGot, 0), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(hThread), 1u);
    EXPECT_EQ(WaitForSingleObject(hGot, INFINITE), WAIT_OBJECT_0);

    PostThreadMessage(dwThreadId, WM_QUIT, 0, 0);
    EXPECT_EQ(WaitForSingleObject(hThread, INFINITE), WAIT_OBJECT_0);
    CloseHandle(hThread);
    CloseHandle(hGot);
}

DWORD SuspendSelf(LPVOID lpOwnHandle)
{
    return SuspendThread(*static_cast<HANDLE*>(lpOwnHandle));
}

TEST(WinThreadsTest, AThreadThatSuspendsItselfStopsAtOnceUntilResumed)
{
    HANDLE hThread = nullptr;
    hThread = CreateThread(nullptr, 0, SuspendSelf, &hThread, CREATE_SUSPENDED, nullptr);
    ResumeThread(hThread);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    EXPECT_EQ(WaitForSingleObject(hThread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(hThread), 1u);
    EXPECT_EQ(WaitForSingleObject(hThread, INFINITE), WAIT_OBJECT_0);
    DWORD dwPrevious = 1;
    GetExitCodeThread(hThread, &dwPrevious);
    EXPECT_EQ(dwPrevious, 0u);
    CloseHandle(hThread);
}

DWORD ReportOwnNiceValue(LPVOID)
{
    return static_cast<DWORD>(getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())));
}

TEST(WinThreadsTest, BelowNormalPriorityMakesTheThreadNicer)
{
    int nOwnNice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
    HANDLE hThread = CreateThread(nullptr, 0, ReportOwnNiceValue, nullptr, CREATE_SUSPENDED, nullptr);
    EXPECT_EQ(GetThreadPriority(hThread), THREAD_PRIORITY_NORMAL);
    EXPECT_TRUE(SetThreadPriority(hThread, THREAD_PRIORITY_BELOW_NORMAL));
    EXPECT_FALSE(SetThreadPriority(hThread, 7)) << "not a priority level";
    EXPECT_EQ(GetThreadPriority(hThread), THREAD_PRIORITY_BELOW_NORMAL);
    ResumeThread(hThread);
    WaitForSingleObject(hThread, INFINITE);
    DWORD dwNice = 0;
    GetExitCodeThread(hThread, &dwNice);
    EXPECT_EQ(static_cast<int>(dwNice), std::min(nOwnNice + 5, 19));
    // Raising it again may be refused by the system; the level is recorded anyway.
    EXPECT_TRUE(SetThreadPriority(hThread, THREAD_PRIORITY_ABOVE_NORMAL));
    EXPECT_EQ(GetThreadPriority(hThread), THREAD_PRIORITY_ABOVE_NORMAL);
    CloseHandle(hThread);
    HANDLE hEvent = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    EXPECT_FALSE(SetThreadPriority(hEvent, THREAD_PRIORITY_NORMAL)) << "not a thread";
    EXPECT_EQ(GetThreadPriority(hEvent), THREAD_PRIORITY_ERROR_RETURN);
    CloseHandle(hEvent);
}

TEST(WinThreadsTest, EventsAreManualOrAutoResetAndSeveralWaitForTheFirstOrAll)
{
    HANDLE hManual = CreateEvent(nullptr, TRUE, TRUE, nullptr);
    HANDLE hAuto = CreateEvent(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(hManual, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(hManual, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(hAuto, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(hAuto, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ResetEvent(hManual));
    EXPECT_EQ(WaitForSingleObject(hManual, 0), WAIT_TIMEOUT);
    EXPECT_FALSE(SetEvent(nullptr));

    HANDLE hEvents[3] = {hManual, CreateEvent(nullptr, TRUE, TRUE, nullptr), CreateEvent(nullptr, TRUE, TRUE, nullptr)};
    EXPECT_EQ(WaitForMultipleObjects(3, hEvents, FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(3, hEvents, TRUE, 0), WAIT_TIMEOUT);
    SetEvent(hEvents[0]);
    EXPECT_EQ(WaitForMultipleObjects(3, hEvents, TRUE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjects(0, hEvents, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS + 1, hEvents, FALSE, 0), WAIT_FAILED);
    for (HANDLE hEvent : hEvents)
        CloseHandle(hEvent);
    CloseHandle(hAuto);
}

TEST(WinThreadsTest, SettingAnAutoResetEventReleasesOneOfTwoWaiters)
{
    HANDLE hAuto = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    auto fnWait = [](LPVOID lpEvent) -> DWORD {
        return WaitForSingleObject(static_cast<HANDLE>(lpEvent), INFINITE);
    };
    HANDLE hThreads[2] = {CreateThread(nullptr, 0, fnWait, hAuto, 0, nullptr),
                          CreateThread(nullptr, 0, fnWait, hAuto, 0, nullptr)};
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(2));
    SetEvent(hAuto);
    DWORD dwFirst = WaitForMultipleObjects(2, hThreads, FALSE, INFINITE);
    ASSERT_LT(dwFirst, WAIT_OBJECT_0 + 2);
    EXPECT_EQ(WaitForSingleObject(hThreads[1 - dwFirst], 0), WAIT_TIMEOUT);
    EXPECT_EQ(CTestClock::GetIdleThreads(), 1);
    SetEvent(hAuto);
    EXPECT_EQ(WaitForMultipleObjects(2, hThreads, TRUE, INFINITE), WAIT_OBJECT_0);
    CloseHandle(hThreads[0]);
    CloseHandle(hThreads[1]);
    CloseHandle(hAuto);
}

TEST(WinThreadsTest, AMutexIsRecursiveForItsOwnerAndClosedToOthers)
{
    HANDLE hMutex = CreateMutex(nullptr, FALSE, nullptr);
    EXPECT_EQ(WaitForSingleObject(hMutex, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(hMutex, 0), WAIT_OBJECT_0);
    DWORD dwOther = 0;
    std::thread([&] { dwOther = WaitForSingleObject(hMutex, 0); }).join();
    EXPECT_EQ(dwOther, WAIT_TIMEOUT);
    BOOL bForeignRelease = TRUE;
    std::thread([&] { bForeignRelease = ReleaseMutex(hMutex); }).join();
    EXPECT_FALSE(bForeignRelease);
    EXPECT_TRUE(ReleaseMutex(hMutex));
    std::thread([&] { dwOther = WaitForSingleObject(hMutex, 0); }).join();
    EXPECT_EQ(dwOther, WAIT_TIMEOUT) << "still held once";
    EXPECT_TRUE(ReleaseMutex(hMutex));
    EXPECT_FALSE(ReleaseMutex(hMutex));
    CloseHandle(hMutex);
}

TEST(WinThreadsTest, AMutexWhoseOwnerEndsIsAbandonedToTheNextWaiter)
{
    HANDLE hMutex = CreateMutex(nullptr, FALSE, nullptr);
    std::thread([&] { WaitForSingleObject(hMutex, 0); }).join();
    EXPECT_EQ(WaitForSingleObject(hMutex, 0), WAIT_ABANDONED_0);
    EXPECT_TRUE(ReleaseMutex(hMutex));
    EXPECT_EQ(WaitForSingleObject(hMutex, 0), WAIT_OBJECT_0);
    ReleaseMutex(hMutex);
    CloseHandle(hMutex);
}

TEST(WinThreadsTest, AWaiterBlockedOnAMutexGetsItWhenReleased)
{
    HANDLE hMutex = CreateMutex(nullptr, TRUE, nullptr);
    DWORD dwResult = WAIT_FAILED;
    std::thread waiter([&] {
        dwResult = WaitForSingleObject(hMutex, INFINITE);
        ReleaseMutex(hMutex);
    });
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    ReleaseMutex(hMutex);
    waiter.join();
    EXPECT_EQ(dwResult, WAIT_OBJECT_0);
    CloseHandle(hMutex);
}

TEST(WinThreadsTest, MessageWaitRejectsWaitingForAllAndBadHandles)
{
    HANDLE hEvent = CreateEvent(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(MsgWaitForMultipleObjects(1, &hEvent, TRUE, 0, QS_ALLINPUT), WAIT_FAILED);
    EXPECT_EQ(MsgWaitForMultipleObjects(1, &hEvent, FALSE, 0, QS_ALLINPUT), WAIT_OBJECT_0);
    CloseHandle(hEvent);
    EXPECT_EQ(MsgWaitForMultipleObjects(1, &hEvent, FALSE, 0, QS_ALLINPUT), WAIT_FAILED);
    EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_ALLINPUT), WAIT_TIMEOUT);
}

} // namespace
