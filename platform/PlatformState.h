// The shared state behind windows, queues, timers, threads and waits: one lock, the
// registries of threads, windows and handles, and the blocking wait that every
// waiting call goes through. Internal to the platform layer; every access holds the
// platform lock.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/WinMessages.h"
#include "platform/WinTypes.h"

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

class CWnd;

namespace zndvr {

using PlatformLock = std::unique_lock<std::mutex>;
using TimeMs = std::uint64_t;

struct tag_THREADSTATE;

// Something a thread can wait for: an event, a mutex or a thread.
struct CKernelObject {
    virtual ~CKernelObject() = default;
    virtual bool IsSignalledFor(DWORD dwThreadId) const = 0;
    // Takes the object for the thread that has waited for it; true if it was abandoned.
    virtual bool AcquireFor(DWORD dwThreadId) = 0;
};

struct CEventObject final : CKernelObject {
    bool m_bManualReset = false;
    bool m_bSignalled = false;

    bool IsSignalledFor(DWORD dwThreadId) const override;
    bool AcquireFor(DWORD dwThreadId) override;
};

struct CMutexObject final : CKernelObject {
    DWORD m_dwOwner = 0;
    int m_nRecursion = 0;
    bool m_bAbandoned = false;

    bool IsSignalledFor(DWORD dwThreadId) const override;
    bool AcquireFor(DWORD dwThreadId) override;
};

// A thread made by CreateThread: signalled when it has ended.
struct CThreadObject final : CKernelObject {
    DWORD m_dwThreadId = 0;
    LPTHREAD_START_ROUTINE m_pfnStart = nullptr;
    LPVOID m_pParameter = nullptr;
    bool m_bEnded = false;
    DWORD m_dwExitCode = STILL_ACTIVE;
    DWORD m_dwSuspendCount = 0;
    int m_nPriority = THREAD_PRIORITY_NORMAL;
    pid_t m_nKernelTid = 0;

    bool IsSignalledFor(DWORD dwThreadId) const override;
    bool AcquireFor(DWORD dwThreadId) override;
};

struct tag_SENTMESSAGE {
    MSG m_msg{};
    tag_THREADSTATE* m_pSender = nullptr;
    LRESULT m_lResult = 0;
    bool m_bDone = false;
};

struct tag_WINDOWTIMER {
    HWND m_hWnd = nullptr;
    UINT m_nIDEvent = 0;
    UINT m_nElapse = 0;
    TIMERPROC m_pfnTimer = nullptr;
    TimeMs m_tDue = 0;
};

// Every thread that has used the platform layer; the queue parts only once it has a queue.
struct tag_THREADSTATE {
    DWORD m_dwThreadId = 0;
    std::shared_ptr<CThreadObject> m_pThreadObject;
    std::condition_variable m_cvWake;

    bool m_bHasQueue = false;
    std::deque<MSG> m_posted;
    std::deque<std::shared_ptr<tag_SENTMESSAGE>> m_sent;
    std::vector<tag_WINDOWTIMER> m_timers;
    bool m_bQuit = false;
    int m_nQuitCode = 0;

    // While the thread is blocked: what it waits for and since when.
    const std::function<bool()>* m_pfnReady = nullptr;
    bool m_bWaitsForObjects = false;
    TimeMs m_tWaitStart = 0;
    DWORD m_dwWaitTimeout = INFINITE;
};

// Something that makes messages for one thread's queue by itself, such as an open sound
// device: the thread runs m_fnServe, without the platform lock, when it retrieves
// messages and the source has fallen due. A source that is not due has no m_tDue.
struct tag_QUEUESOURCE {
    DWORD m_dwThreadId = 0;
    std::optional<TimeMs> m_tDue;
    std::function<void()> m_fnServe;
    bool m_bServing = false;
};

struct tag_WINDOWRECORD {
    CWnd* m_pWnd = nullptr;
    DWORD m_dwThreadId = 0;
    HWND m_hParent = nullptr;
    DWORD m_dwStyle = 0;
    UINT m_nID = 0;
    RECT m_rect{};
    std::string m_strName;
    bool m_bDestroying = false;
};

struct tag_PLATFORMSTATE {
    std::mutex m_mutex;
    std::condition_variable m_cvIdle;

    std::unordered_map<DWORD, tag_THREADSTATE*> m_threads;
    std::vector<tag_THREADSTATE*> m_blocked;
    DWORD m_dwNextThreadId = 1;

    std::unordered_map<std::uintptr_t, tag_WINDOWRECORD> m_windows;
    std::uintptr_t m_nNextWindow = 0x10000;
    std::set<std::string> m_windowClasses;

    std::unordered_map<std::uintptr_t, std::shared_ptr<CKernelObject>> m_handles;
    std::uintptr_t m_nNextHandle = 0x10000;

    std::unordered_map<std::uint64_t, tag_QUEUESOURCE> m_sources;
    std::uint64_t m_nNextSource = 1;
    std::condition_variable m_cvSourceServed;

    bool m_bTestClock = false;
    TimeMs m_tTestNow = 0;
};

// The process's platform state; never destroyed, so threads ending late still find it.
tag_PLATFORMSTATE& GetPlatformState();

// The calling thread's record, made on first use. Needs the platform lock.
tag_THREADSTATE& GetCurrentThreadState(PlatformLock& lock);
// The same, with its message queue made if it has none yet.
tag_THREADSTATE& GetCurrentQueue(PlatformLock& lock);
// The record of a live thread with a queue, or null.
tag_THREADSTATE* FindQueue(DWORD dwThreadId);
// Binds a thread made by CreateThread to its object; on that thread, before it runs.
tag_THREADSTATE& AttachThreadObject(PlatformLock& lock, const std::shared_ptr<CThreadObject>& pThread);
// Ends the calling thread's record: its queue, windows and mutexes go, and threads
// waiting for answers from it are released. Later calls make a new record.
void EndCurrentThreadState(PlatformLock& lock);

// The platform clock in milliseconds, by the test clock while one is in force.
TimeMs GetNowMs();

// Blocks the calling thread until fnReady holds (true) or dwTimeout ms have passed
// (false). fnNextDue, if given, tells when fnReady may come true by time alone. A
// suspended thread stays blocked until it is resumed.
bool BlockUntil(PlatformLock& lock, tag_THREADSTATE& self, const std::function<bool()>& fnReady,
                DWORD dwTimeout, const std::function<std::optional<TimeMs>()>& fnNextDue = {});
// A blocked thread that nothing has released yet: only the clock or another thread can.
bool IsThreadIdle(const tag_THREADSTATE& thread);
// Blocks while the calling thread is suspended.
void PassSuspensionPoint(PlatformLock& lock, tag_THREADSTATE& self);
// Every blocked thread looks again at what it waits for.
void WakeBlockedThreads();
// The thread looks again at its queue, if it is blocked.
void WakeThread(tag_THREADSTATE& thread);
// The threads blocked on kernel objects look again at them.
void WakeObjectWaiters();

// Waits for one of the objects (all of them with bWaitAll) or until fnInput holds, and
// takes the objects it waited for. The result of a Win32 wait, with WAIT_OBJECT_0 +
// nCount for input.
DWORD WaitForObjects(PlatformLock& lock, tag_THREADSTATE& self, DWORD nCount, const HANDLE* pHandles,
                     bool bWaitAll, DWORD dwMilliseconds, const std::function<bool()>& fnInput,
                     const std::function<std::optional<TimeMs>()>& fnNextDue);

// Restarts every timer and every timed wait from now, after a change of clock.
void RestartTimedWaits();

std::shared_ptr<CKernelObject> FindHandle(HANDLE hObject);
HANDLE AddHandle(std::shared_ptr<CKernelObject> pObject);

// Queue sources of a thread (see tag_QUEUESOURCE). Adding gives the source's number, never
// reused. Setting the due time wakes the owner. Removing waits while another thread is
// serving the source, so nothing of it runs once the call returns.
std::uint64_t AddQueueSource(DWORD dwThreadId, std::function<void()> fnServe);
void SetQueueSourceDue(std::uint64_t nSource, std::optional<TimeMs> tDue);
void RemoveQueueSource(std::uint64_t nSource);
// Under the platform lock: the earliest due time of the thread's sources, whether one is
// due now, and serving the due ones (the lock is let go while each runs).
std::optional<TimeMs> NextQueueSourceDue(const tag_THREADSTATE& self);
bool HasDueQueueSource(const tag_THREADSTATE& self);
void ServeQueueSources(PlatformLock& lock, tag_THREADSTATE& self);

tag_WINDOWRECORD* FindWindow(HWND hWnd);
// Takes the window out of the registry with its timers and queued messages.
void RemoveWindow(HWND hWnd);

} // namespace zndvr
