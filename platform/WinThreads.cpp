#include "platform/WinThreads.h"

#include "platform/PlatformState.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

namespace zndvr {

namespace {

struct tag_PRIORITYNICE {
    int nPriority;
    int nNice;
};

// Win32 priority levels as steps of the nice value from the process's own: below
// normal runs at a lower share of the processor than the process's other threads,
// above normal at a higher one, each step about a factor of 3.
constexpr tag_PRIORITYNICE kPriorityNice[] = {
    {THREAD_PRIORITY_IDLE, 19},        {THREAD_PRIORITY_LOWEST, 10},
    {THREAD_PRIORITY_BELOW_NORMAL, 5}, {THREAD_PRIORITY_NORMAL, 0},
    {THREAD_PRIORITY_ABOVE_NORMAL, -5}, {THREAD_PRIORITY_HIGHEST, -10},
    {THREAD_PRIORITY_TIME_CRITICAL, -20},
};

const tag_PRIORITYNICE* FindPriority(int nPriority)
{
    for (const tag_PRIORITYNICE& entry : kPriorityNice) {
        if (entry.nPriority == nPriority)
            return &entry;
    }
    return nullptr;
}

// The nice value the process runs at, read from its main thread when a priority is
// first applied. A thread's level counts from it, as a thread priority counts from the
// priority class of its process: in a process started nicer, below normal is nicer still.
int ProcessNice()
{
    static const int nProcessNice = [] {
        errno = 0;
        const int nNice = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
        return errno == 0 ? nNice : 0;
    }();
    return nProcessNice;
}

// Sets the nice value of a running thread. Without privilege a thread may only be
// made nicer; a refusal leaves the priority recorded and nothing else.
void ApplyPriority(const CThreadObject& thread)
{
    if (thread.m_nKernelTid == 0 || thread.m_bEnded)
        return;
    constexpr int kNiceMin = -20;
    constexpr int kNiceMax = 19;
    setpriority(PRIO_PROCESS, static_cast<id_t>(thread.m_nKernelTid),
                std::clamp(ProcessNice() + FindPriority(thread.m_nPriority)->nNice, kNiceMin, kNiceMax));
}

template <typename TObject>
TObject* FindObject(HANDLE hObject)
{
    return dynamic_cast<TObject*>(FindHandle(hObject).get());
}

void RunThread(const std::shared_ptr<CThreadObject>& pThread)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    {
        PlatformLock lock(state.m_mutex);
        tag_THREADSTATE& self = AttachThreadObject(lock, pThread);
        pThread->m_nKernelTid = gettid();
        ApplyPriority(*pThread);
        PassSuspensionPoint(lock, self);
    }
    DWORD dwExitCode = pThread->m_pfnStart(pThread->m_pParameter);
    PlatformLock lock(state.m_mutex);
    EndCurrentThreadState(lock);
    pThread->m_dwExitCode = dwExitCode;
    pThread->m_bEnded = true;
    WakeBlockedThreads();
}

constexpr int kNoObject = -1;

} // namespace

DWORD WaitForObjects(PlatformLock& lock, tag_THREADSTATE& self, DWORD nCount, const HANDLE* pHandles,
                     bool bWaitAll, DWORD dwMilliseconds, const std::function<bool()>& fnInput,
                     const std::function<std::optional<TimeMs>()>& fnNextDue)
{
    if (nCount > MAXIMUM_WAIT_OBJECTS || (nCount > 0 && pHandles == nullptr))
        return WAIT_FAILED;
    std::vector<std::shared_ptr<CKernelObject>> objects;
    for (DWORD i = 0; i < nCount; ++i) {
        objects.push_back(FindHandle(pHandles[i]));
        if (objects.back() == nullptr)
            return WAIT_FAILED;
    }
    DWORD dwThreadId = self.m_dwThreadId;
    auto fnIsSignalled = [dwThreadId](const std::shared_ptr<CKernelObject>& pObject) {
        return pObject->IsSignalledFor(dwThreadId);
    };
    // The index the wait would return now, or kNoObject.
    auto fnSignalled = [&]() -> int {
        if (bWaitAll) {
            bool bAll = std::all_of(objects.begin(), objects.end(), fnIsSignalled);
            return bAll && !objects.empty() ? 0 : kNoObject;
        }
        auto itFirst = std::find_if(objects.begin(), objects.end(), fnIsSignalled);
        return itFirst == objects.end() ? kNoObject : static_cast<int>(itFirst - objects.begin());
    };
    std::function<bool()> fnReady = [&] {
        return fnSignalled() != kNoObject || (fnInput && fnInput());
    };
    self.m_bWaitsForObjects = nCount > 0;
    BlockUntil(lock, self, fnReady, dwMilliseconds, fnNextDue);
    self.m_bWaitsForObjects = false;
    int nIndex = fnSignalled();
    if (nIndex != kNoObject) {
        DWORD dwResult = WAIT_OBJECT_0 + static_cast<DWORD>(nIndex);
        for (std::size_t i = 0; i < objects.size(); ++i) {
            if ((bWaitAll || i == static_cast<std::size_t>(nIndex)) &&
                objects[i]->AcquireFor(dwThreadId))
                dwResult = WAIT_ABANDONED_0 + static_cast<DWORD>(i);
        }
        WakeObjectWaiters();
        return dwResult;
    }
    if (fnInput && fnInput())
        return WAIT_OBJECT_0 + nCount;
    return WAIT_TIMEOUT;
}

} // namespace zndvr

using namespace zndvr;

HANDLE CreateThread(LPVOID, DWORD, LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                    DWORD dwCreationFlags, LPDWORD lpThreadId)
{
    if (lpStartAddress == nullptr)
        return nullptr;
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    auto pThread = std::make_shared<CThreadObject>();
    pThread->m_dwThreadId = state.m_dwNextThreadId++;
    pThread->m_pfnStart = lpStartAddress;
    pThread->m_pParameter = lpParameter;
    pThread->m_dwSuspendCount = (dwCreationFlags & CREATE_SUSPENDED) != 0 ? 1 : 0;
    try {
        std::thread(RunThread, pThread).detach();
    } catch (const std::system_error&) {
        return nullptr;
    }
    if (lpThreadId != nullptr)
        *lpThreadId = pThread->m_dwThreadId;
    return AddHandle(pThread);
}

DWORD GetCurrentThreadId()
{
    PlatformLock lock(GetPlatformState().m_mutex);
    return GetCurrentThreadState(lock).m_dwThreadId;
}

BOOL GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pThread = FindObject<CThreadObject>(hThread);
    if (pThread == nullptr || lpExitCode == nullptr)
        return FALSE;
    *lpExitCode = pThread->m_dwExitCode;
    return TRUE;
}

namespace {

constexpr DWORD kNotAThread = 0xFFFFFFFFu;

} // namespace

DWORD SuspendThread(HANDLE hThread)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pThread = FindObject<CThreadObject>(hThread);
    if (pThread == nullptr || pThread->m_bEnded)
        return kNotAThread;
    DWORD dwPrevious = pThread->m_dwSuspendCount++;
    tag_THREADSTATE& self = GetCurrentThreadState(lock);
    if (self.m_pThreadObject.get() == pThread)
        PassSuspensionPoint(lock, self);
    return dwPrevious;
}

DWORD ResumeThread(HANDLE hThread)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pThread = FindObject<CThreadObject>(hThread);
    if (pThread == nullptr)
        return kNotAThread;
    DWORD dwPrevious = pThread->m_dwSuspendCount;
    if (dwPrevious > 0) {
        --pThread->m_dwSuspendCount;
        WakeBlockedThreads();
    }
    return dwPrevious;
}

BOOL SetThreadPriority(HANDLE hThread, int nPriority)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pThread = FindObject<CThreadObject>(hThread);
    if (pThread == nullptr || FindPriority(nPriority) == nullptr)
        return FALSE;
    pThread->m_nPriority = nPriority;
    ApplyPriority(*pThread);
    return TRUE;
}

int GetThreadPriority(HANDLE hThread)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pThread = FindObject<CThreadObject>(hThread);
    return pThread == nullptr ? THREAD_PRIORITY_ERROR_RETURN : pThread->m_nPriority;
}

HANDLE CreateEvent(LPVOID, BOOL bManualReset, BOOL bInitialState, LPCSTR)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto pEvent = std::make_shared<CEventObject>();
    pEvent->m_bManualReset = bManualReset != FALSE;
    pEvent->m_bSignalled = bInitialState != FALSE;
    return AddHandle(std::move(pEvent));
}

namespace {

BOOL SetEventState(HANDLE hEvent, bool bSignalled)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pEvent = FindObject<CEventObject>(hEvent);
    if (pEvent == nullptr)
        return FALSE;
    pEvent->m_bSignalled = bSignalled;
    WakeObjectWaiters();
    return TRUE;
}

} // namespace

BOOL SetEvent(HANDLE hEvent)
{
    return SetEventState(hEvent, true);
}

BOOL ResetEvent(HANDLE hEvent)
{
    return SetEventState(hEvent, false);
}

HANDLE CreateMutex(LPVOID, BOOL bInitialOwner, LPCSTR)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto pMutex = std::make_shared<CMutexObject>();
    if (bInitialOwner)
        pMutex->AcquireFor(GetCurrentThreadState(lock).m_dwThreadId);
    return AddHandle(std::move(pMutex));
}

BOOL ReleaseMutex(HANDLE hMutex)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    auto* pMutex = FindObject<CMutexObject>(hMutex);
    if (pMutex == nullptr || pMutex->m_dwOwner != GetCurrentThreadState(lock).m_dwThreadId)
        return FALSE;
    if (--pMutex->m_nRecursion == 0) {
        pMutex->m_dwOwner = 0;
        WakeObjectWaiters();
    }
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds)
{
    return WaitForMultipleObjects(1, &hHandle, FALSE, dwMilliseconds);
}

DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                             DWORD dwMilliseconds)
{
    if (nCount == 0)
        return WAIT_FAILED;
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentThreadState(lock);
    return WaitForObjects(lock, self, nCount, lpHandles, bWaitAll != FALSE, dwMilliseconds, {},
                          {});
}

void Sleep(DWORD dwMilliseconds)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentThreadState(lock);
    if (dwMilliseconds == 0) {
        PassSuspensionPoint(lock, self);
        lock.unlock();
        std::this_thread::yield();
        return;
    }
    static const std::function<bool()> fnNever = [] { return false; };
    BlockUntil(lock, self, fnNever, dwMilliseconds);
}

BOOL CloseHandle(HANDLE hObject)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    return GetPlatformState().m_handles.erase(reinterpret_cast<std::uintptr_t>(hObject)) > 0;
}
