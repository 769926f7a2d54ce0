#include "platform/PlatformState.h"

#include "platform/CWnd.h"

#include <algorithm>
#include <chrono>

namespace zndvr {

namespace {

// Owns the calling thread's record; at thread end it takes the record out.
class CThreadStateHolder {
public:
    ~CThreadStateHolder()
    {
        if (m_pState == nullptr)
            return;
        PlatformLock lock(GetPlatformState().m_mutex);
        EndCurrentThreadState(lock);
    }

    std::unique_ptr<tag_THREADSTATE> m_pState;
};

thread_local CThreadStateHolder t_holder;

tag_THREADSTATE& MakeCurrentThreadState(DWORD dwThreadId)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    t_holder.m_pState = std::make_unique<tag_THREADSTATE>();
    tag_THREADSTATE& self = *t_holder.m_pState;
    self.m_dwThreadId = dwThreadId;
    state.m_threads[dwThreadId] = &self;
    return self;
}

bool IsSuspended(const tag_THREADSTATE& self)
{
    return self.m_pThreadObject != nullptr && self.m_pThreadObject->m_dwSuspendCount > 0;
}

bool HasTimedOut(const tag_THREADSTATE& self)
{
    return self.m_dwWaitTimeout != INFINITE &&
           GetNowMs() - self.m_tWaitStart >= self.m_dwWaitTimeout;
}

bool MayReturn(const tag_THREADSTATE& self)
{
    return !IsSuspended(self) && ((*self.m_pfnReady)() || HasTimedOut(self));
}

std::chrono::steady_clock::time_point ToSteadyTime(TimeMs tMs)
{
    return std::chrono::steady_clock::time_point(std::chrono::milliseconds(tMs));
}

} // namespace

bool CEventObject::IsSignalledFor(DWORD) const
{
    return m_bSignalled;
}

bool CEventObject::AcquireFor(DWORD)
{
    if (!m_bManualReset)
        m_bSignalled = false;
    return false;
}

bool CMutexObject::IsSignalledFor(DWORD dwThreadId) const
{
    return m_dwOwner == 0 || m_dwOwner == dwThreadId;
}

bool CMutexObject::AcquireFor(DWORD dwThreadId)
{
    bool bAbandoned = m_bAbandoned;
    m_bAbandoned = false;
    m_dwOwner = dwThreadId;
    ++m_nRecursion;
    return bAbandoned;
}

bool CThreadObject::IsSignalledFor(DWORD) const
{
    return m_bEnded;
}

bool CThreadObject::AcquireFor(DWORD)
{
    return false;
}

tag_PLATFORMSTATE& GetPlatformState()
{
    static tag_PLATFORMSTATE* s_pState = new tag_PLATFORMSTATE;
    return *s_pState;
}

tag_THREADSTATE& GetCurrentThreadState([[maybe_unused]] PlatformLock& lock)
{
    if (t_holder.m_pState != nullptr)
        return *t_holder.m_pState;
    return MakeCurrentThreadState(GetPlatformState().m_dwNextThreadId++);
}

tag_THREADSTATE& GetCurrentQueue(PlatformLock& lock)
{
    tag_THREADSTATE& self = GetCurrentThreadState(lock);
    self.m_bHasQueue = true;
    return self;
}

tag_THREADSTATE* FindQueue(DWORD dwThreadId)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    auto it = state.m_threads.find(dwThreadId);
    if (it == state.m_threads.end() || !it->second->m_bHasQueue)
        return nullptr;
    return it->second;
}

tag_THREADSTATE& AttachThreadObject([[maybe_unused]] PlatformLock& lock, const std::shared_ptr<CThreadObject>& pThread)
{
    tag_THREADSTATE& self = MakeCurrentThreadState(pThread->m_dwThreadId);
    self.m_pThreadObject = pThread;
    return self;
}

namespace {

void ReleaseSenders(tag_THREADSTATE& self)
{
    for (const std::shared_ptr<tag_SENTMESSAGE>& pSent : self.m_sent)
        pSent->m_bDone = true;
    self.m_sent.clear();
}

void ForgetWindowsOf(DWORD dwThreadId)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    std::vector<std::uintptr_t> owned;
    for (const auto& [nHandle, record] : state.m_windows) {
        if (record.m_dwThreadId == dwThreadId)
            owned.push_back(nHandle);
    }
    for (std::uintptr_t nHandle : owned) {
        state.m_windows[nHandle].m_pWnd->m_hWnd = nullptr;
        state.m_windows.erase(nHandle);
    }
}

void AbandonMutexesOf(DWORD dwThreadId)
{
    for (auto& [nHandle, pObject] : GetPlatformState().m_handles) {
        auto* pMutex = dynamic_cast<CMutexObject*>(pObject.get());
        if (pMutex != nullptr && pMutex->m_dwOwner == dwThreadId) {
            pMutex->m_dwOwner = 0;
            pMutex->m_nRecursion = 0;
            pMutex->m_bAbandoned = true;
        }
    }
}

} // namespace

void EndCurrentThreadState([[maybe_unused]] PlatformLock& lock)
{
    if (t_holder.m_pState == nullptr)
        return;
    tag_THREADSTATE& self = *t_holder.m_pState;
    ReleaseSenders(self);
    ForgetWindowsOf(self.m_dwThreadId);
    AbandonMutexesOf(self.m_dwThreadId);
    std::erase_if(GetPlatformState().m_sources,
                  [&self](const auto& entry) { return entry.second.m_dwThreadId == self.m_dwThreadId; });
    GetPlatformState().m_threads.erase(self.m_dwThreadId);
    t_holder.m_pState.reset();
    WakeBlockedThreads();
}

TimeMs GetNowMs()
{
    const tag_PLATFORMSTATE& state = GetPlatformState();
    if (state.m_bTestClock)
        return state.m_tTestNow;
    auto since = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<TimeMs>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

bool BlockUntil(PlatformLock& lock, tag_THREADSTATE& self, const std::function<bool()>& fnReady,
                DWORD dwTimeout, const std::function<std::optional<TimeMs>()>& fnNextDue)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    self.m_pfnReady = &fnReady;
    self.m_tWaitStart = GetNowMs();
    self.m_dwWaitTimeout = dwTimeout;
    state.m_blocked.push_back(&self);
    state.m_cvIdle.notify_all();
    while (!MayReturn(self)) {
        std::optional<TimeMs> tWake;
        if (dwTimeout != INFINITE)
            tWake = self.m_tWaitStart + dwTimeout;
        std::optional<TimeMs> tDue = fnNextDue ? fnNextDue() : std::nullopt;
        if (tDue && (!tWake || *tDue < *tWake))
            tWake = tDue;
        // A suspended thread waits for ResumeThread alone, whatever falls due meanwhile.
        if (state.m_bTestClock || !tWake || IsSuspended(self))
            self.m_cvWake.wait(lock);
        else
            self.m_cvWake.wait_until(lock, ToSteadyTime(*tWake));
    }
    bool bReady = fnReady();
    std::erase(state.m_blocked, &self);
    self.m_pfnReady = nullptr;
    return bReady;
}

bool IsThreadIdle(const tag_THREADSTATE& thread)
{
    return !MayReturn(thread);
}

void PassSuspensionPoint(PlatformLock& lock, tag_THREADSTATE& self)
{
    if (!IsSuspended(self))
        return;
    static const std::function<bool()> fnAlways = [] { return true; };
    BlockUntil(lock, self, fnAlways, INFINITE);
}

void WakeBlockedThreads()
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    for (tag_THREADSTATE* pThread : state.m_blocked)
        pThread->m_cvWake.notify_one();
    state.m_cvIdle.notify_all();
}

void WakeThread(tag_THREADSTATE& thread)
{
    thread.m_cvWake.notify_one();
    GetPlatformState().m_cvIdle.notify_all();
}

void WakeObjectWaiters()
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    for (tag_THREADSTATE* pThread : state.m_blocked) {
        if (pThread->m_bWaitsForObjects)
            pThread->m_cvWake.notify_one();
    }
    state.m_cvIdle.notify_all();
}

void RestartTimedWaits()
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    TimeMs tNow = GetNowMs();
    for (auto& [dwThreadId, pThread] : state.m_threads) {
        for (tag_WINDOWTIMER& timer : pThread->m_timers)
            timer.m_tDue = tNow + timer.m_nElapse;
    }
    for (tag_THREADSTATE* pThread : state.m_blocked)
        pThread->m_tWaitStart = tNow;
    WakeBlockedThreads();
}

std::shared_ptr<CKernelObject> FindHandle(HANDLE hObject)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    auto it = state.m_handles.find(reinterpret_cast<std::uintptr_t>(hObject));
    return it == state.m_handles.end() ? nullptr : it->second;
}

HANDLE AddHandle(std::shared_ptr<CKernelObject> pObject)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    std::uintptr_t nHandle = state.m_nNextHandle;
    state.m_nNextHandle += 4;
    state.m_handles.emplace(nHandle, std::move(pObject));
    return reinterpret_cast<HANDLE>(nHandle);
}

std::uint64_t AddQueueSource(DWORD dwThreadId, std::function<void()> fnServe)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    const std::uint64_t nSource = state.m_nNextSource++;
    tag_QUEUESOURCE& source = state.m_sources[nSource];
    source.m_dwThreadId = dwThreadId;
    source.m_fnServe = std::move(fnServe);
    return nSource;
}

void SetQueueSourceDue(std::uint64_t nSource, std::optional<TimeMs> tDue)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    auto it = state.m_sources.find(nSource);
    if (it == state.m_sources.end())
        return;
    it->second.m_tDue = tDue;
    auto itOwner = state.m_threads.find(it->second.m_dwThreadId);
    if (itOwner != state.m_threads.end())
        WakeThread(*itOwner->second);
}

void RemoveQueueSource(std::uint64_t nSource)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    const DWORD dwSelf = GetCurrentThreadState(lock).m_dwThreadId;
    auto fnIdle = [&] {
        auto it = state.m_sources.find(nSource);
        return it == state.m_sources.end() || !it->second.m_bServing || it->second.m_dwThreadId == dwSelf;
    };
    state.m_cvSourceServed.wait(lock, fnIdle);
    state.m_sources.erase(nSource);
}

std::optional<TimeMs> NextQueueSourceDue(const tag_THREADSTATE& self)
{
    std::optional<TimeMs> tNext;
    for (const auto& [nSource, source] : GetPlatformState().m_sources) {
        if (source.m_dwThreadId == self.m_dwThreadId && source.m_tDue && (!tNext || *source.m_tDue < *tNext))
            tNext = source.m_tDue;
    }
    return tNext;
}

bool HasDueQueueSource(const tag_THREADSTATE& self)
{
    std::optional<TimeMs> tNext = NextQueueSourceDue(self);
    return tNext && *tNext <= GetNowMs();
}

void ServeQueueSources(PlatformLock& lock, tag_THREADSTATE& self)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    const TimeMs tNow = GetNowMs();
    // Kept between calls, so that serving allocates nothing once it has run.
    static thread_local std::vector<std::uint64_t> due;
    due.clear();
    for (const auto& [nSource, source] : state.m_sources) {
        if (source.m_dwThreadId == self.m_dwThreadId && source.m_tDue && *source.m_tDue <= tNow)
            due.push_back(nSource);
    }
    for (std::uint64_t nSource : due) {
        auto it = state.m_sources.find(nSource);
        if (it == state.m_sources.end() || it->second.m_bServing)
            continue;
        // The source sets its next due time itself while it is served.
        it->second.m_tDue.reset();
        it->second.m_bServing = true;
        // The node stays put: only its own thread removes a source that is being served.
        const std::function<void()>& fnServe = it->second.m_fnServe;
        lock.unlock();
        fnServe();
        lock.lock();
        it = state.m_sources.find(nSource);
        if (it != state.m_sources.end())
            it->second.m_bServing = false;
        state.m_cvSourceServed.notify_all();
    }
}

tag_WINDOWRECORD* FindWindow(HWND hWnd)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    auto it = state.m_windows.find(reinterpret_cast<std::uintptr_t>(hWnd));
    return it == state.m_windows.end() ? nullptr : &it->second;
}

void RemoveWindow(HWND hWnd)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    tag_WINDOWRECORD* pRecord = FindWindow(hWnd);
    if (pRecord == nullptr)
        return;
    auto itOwner = state.m_threads.find(pRecord->m_dwThreadId);
    if (itOwner != state.m_threads.end()) {
        tag_THREADSTATE& owner = *itOwner->second;
        std::erase_if(owner.m_posted, [hWnd](const MSG& msg) { return msg.hwnd == hWnd; });
        std::erase_if(owner.m_timers,
                      [hWnd](const tag_WINDOWTIMER& timer) { return timer.m_hWnd == hWnd; });
    }
    state.m_windows.erase(reinterpret_cast<std::uintptr_t>(hWnd));
    WakeBlockedThreads();
}

} // namespace zndvr
