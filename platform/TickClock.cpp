#include "platform/TickClock.h"

#include "platform/PlatformState.h"

#include <algorithm>
#include <chrono>

using namespace zndvr;

namespace {

int CountIdleThreads()
{
    const tag_PLATFORMSTATE& state = GetPlatformState();
    return static_cast<int>(std::count_if(
        state.m_blocked.begin(), state.m_blocked.end(),
        [](const tag_THREADSTATE* pThread) { return IsThreadIdle(*pThread); }));
}

void SetClock(bool bTestClock, TimeMs tStart)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    state.m_bTestClock = bTestClock;
    state.m_tTestNow = tStart;
    RestartTimedWaits();
}

} // namespace

DWORD GetTickCount()
{
    PlatformLock lock(GetPlatformState().m_mutex);
    return static_cast<DWORD>(GetNowMs());
}

CTestClock::CTestClock(DWORD dwStart)
{
    SetClock(true, dwStart);
}

CTestClock::~CTestClock()
{
    SetClock(false, 0);
}

void CTestClock::Advance(DWORD dwMilliseconds)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    state.m_tTestNow += dwMilliseconds;
    WakeBlockedThreads();
}

DWORD CTestClock::GetTime() const
{
    return GetTickCount();
}

int CTestClock::GetIdleThreads()
{
    PlatformLock lock(GetPlatformState().m_mutex);
    return CountIdleThreads();
}

BOOL CTestClock::WaitForIdleThreads(int nThreads, DWORD dwTimeout)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    return state.m_cvIdle.wait_for(lock, std::chrono::milliseconds(dwTimeout),
                                   [&] { return CountIdleThreads() >= nThreads; });
}
