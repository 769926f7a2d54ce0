#include "platform/WinMessages.h"

#include "platform/CWnd.h"
#include "platform/PlatformState.h"
#include "platform/TickClock.h"

#include <unistd.h>

#include <algorithm>

using namespace zndvr;

namespace {

// The shortest timer period; shorter requests are raised to it, as Win32 does.
constexpr UINT kMinTimerElapse = 10;

const HWND kThreadMessagesOnly = reinterpret_cast<HWND>(static_cast<std::intptr_t>(-1));

struct tag_MESSAGEFILTER {
    HWND hWnd;
    UINT nMin;
    UINT nMax;

    bool MatchesNumber(UINT nMsg) const
    {
        return (nMin == 0 && nMax == 0) || (nMsg >= nMin && nMsg <= nMax);
    }

    bool MatchesWindow(HWND hMsgWnd) const
    {
        if (hWnd == nullptr)
            return true;
        return hWnd == kThreadMessagesOnly ? hMsgWnd == nullptr : hMsgWnd == hWnd;
    }

    bool Matches(const MSG& msg) const
    {
        return MatchesWindow(msg.hwnd) && MatchesNumber(msg.message);
    }

    bool NamesWindow() const { return hWnd != nullptr && hWnd != kThreadMessagesOnly; }
};

MSG MakeMessage(HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam)
{
    return MSG{hWnd, nMsg, wParam, lParam, static_cast<DWORD>(GetNowMs())};
}

BOOL PostTo(tag_THREADSTATE& target, const MSG& msg)
{
    target.m_posted.push_back(msg);
    WakeThread(target);
    return TRUE;
}

// The matching timer that is due and has waited longest, or null.
tag_WINDOWTIMER* FindDueTimer(tag_THREADSTATE& self, const tag_MESSAGEFILTER& filter)
{
    if (!filter.MatchesNumber(WM_TIMER))
        return nullptr;
    TimeMs tNow = GetNowMs();
    tag_WINDOWTIMER* pDue = nullptr;
    for (tag_WINDOWTIMER& timer : self.m_timers) {
        if (filter.MatchesWindow(timer.m_hWnd) && timer.m_tDue <= tNow &&
            (pDue == nullptr || timer.m_tDue < pDue->m_tDue))
            pDue = &timer;
    }
    return pDue;
}

std::optional<TimeMs> NextTimerDue(const tag_THREADSTATE& self, const tag_MESSAGEFILTER& filter)
{
    std::optional<TimeMs> tNext;
    if (!filter.MatchesNumber(WM_TIMER))
        return tNext;
    for (const tag_WINDOWTIMER& timer : self.m_timers) {
        if (filter.MatchesWindow(timer.m_hWnd) && (!tNext || timer.m_tDue < *tNext))
            tNext = timer.m_tDue;
    }
    return tNext;
}

std::optional<TimeMs> Earliest(std::optional<TimeMs> tFirst, std::optional<TimeMs> tSecond)
{
    if (!tFirst)
        return tSecond;
    if (!tSecond)
        return tFirst;
    return std::min(*tFirst, *tSecond);
}

bool HasQuit(const tag_THREADSTATE& self, const tag_MESSAGEFILTER& filter)
{
    return self.m_bQuit && filter.MatchesNumber(WM_QUIT);
}

bool HasMessage(tag_THREADSTATE& self, const tag_MESSAGEFILTER& filter)
{
    bool bPosted = std::any_of(self.m_posted.begin(), self.m_posted.end(),
                               [&](const MSG& msg) { return filter.Matches(msg); });
    return bPosted || HasQuit(self, filter) || FindDueTimer(self, filter) != nullptr;
}

// Posted messages first, in order; then the quit request; then a due timer, which is
// restarted from now when its tick is taken.
bool TakeMessage(tag_THREADSTATE& self, const tag_MESSAGEFILTER& filter, bool bRemove, MSG& msg)
{
    auto it = std::find_if(self.m_posted.begin(), self.m_posted.end(),
                           [&](const MSG& posted) { return filter.Matches(posted); });
    if (it != self.m_posted.end()) {
        msg = *it;
        if (bRemove)
            self.m_posted.erase(it);
        return true;
    }
    if (HasQuit(self, filter)) {
        msg = MakeMessage(nullptr, WM_QUIT, static_cast<WPARAM>(self.m_nQuitCode), 0);
        if (bRemove)
            self.m_bQuit = false;
        return true;
    }
    tag_WINDOWTIMER* pTimer = FindDueTimer(self, filter);
    if (pTimer == nullptr)
        return false;
    msg = MakeMessage(pTimer->m_hWnd, WM_TIMER, pTimer->m_nIDEvent,
                      reinterpret_cast<LPARAM>(pTimer->m_pfnTimer));
    if (bRemove)
        pTimer->m_tDue = GetNowMs() + pTimer->m_nElapse;
    return true;
}

// The live window's object if the calling thread owns it, else null.
CWnd* FindOwnWindow(const tag_THREADSTATE& self, HWND hWnd)
{
    tag_WINDOWRECORD* pRecord = FindWindow(hWnd);
    if (pRecord == nullptr || pRecord->m_dwThreadId != self.m_dwThreadId)
        return nullptr;
    return pRecord->m_pWnd;
}

// Runs the handlers of the messages other threads have sent to this one, in order.
void ServeSentMessages(PlatformLock& lock, tag_THREADSTATE& self)
{
    while (!self.m_sent.empty()) {
        std::shared_ptr<tag_SENTMESSAGE> pSent = self.m_sent.front();
        self.m_sent.pop_front();
        const MSG& msg = pSent->m_msg;
        CWnd* pWnd = FindOwnWindow(self, msg.hwnd);
        if (pWnd != nullptr) {
            lock.unlock();
            LRESULT lResult = AfxCallWndProc(pWnd, msg.hwnd, msg.message, msg.wParam, msg.lParam);
            lock.lock();
            pSent->m_lResult = lResult;
        }
        pSent->m_bDone = true;
        WakeThread(*pSent->m_pSender);
    }
}

tag_THREADSTATE* FindWindowQueue(HWND hWnd)
{
    tag_WINDOWRECORD* pRecord = FindWindow(hWnd);
    return pRecord == nullptr ? nullptr : FindQueue(pRecord->m_dwThreadId);
}

bool HasInput(const tag_THREADSTATE& self, DWORD dwWakeMask)
{
    tag_MESSAGEFILTER all{nullptr, 0, 0};
    if ((dwWakeMask & (QS_POSTMESSAGE | QS_ALLPOSTMESSAGE)) != 0 &&
        (!self.m_posted.empty() || self.m_bQuit))
        return true;
    if ((dwWakeMask & QS_SENDMESSAGE) != 0 && !self.m_sent.empty())
        return true;
    if ((dwWakeMask & (QS_POSTMESSAGE | QS_ALLPOSTMESSAGE)) != 0 && HasDueQueueSource(self))
        return true;
    std::optional<TimeMs> tDue = NextTimerDue(self, all);
    return (dwWakeMask & QS_TIMER) != 0 && tDue && *tDue <= GetNowMs();
}

} // namespace

BOOL PostMessage(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    if (hWnd == nullptr)
        return PostTo(self, MakeMessage(nullptr, Msg, wParam, lParam));
    tag_THREADSTATE* pTarget = FindWindowQueue(hWnd);
    if (pTarget == nullptr)
        return FALSE;
    return PostTo(*pTarget, MakeMessage(hWnd, Msg, wParam, lParam));
}

BOOL PostThreadMessage(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    GetCurrentQueue(lock);
    tag_THREADSTATE* pTarget = FindQueue(idThread);
    if (pTarget == nullptr)
        return FALSE;
    return PostTo(*pTarget, MakeMessage(nullptr, Msg, wParam, lParam));
}

void PostQuitMessage(int nExitCode)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    self.m_bQuit = true;
    self.m_nQuitCode = nExitCode;
}

LRESULT SendMessage(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    if (CWnd* pWnd = FindOwnWindow(self, hWnd); pWnd != nullptr) {
        lock.unlock();
        return AfxCallWndProc(pWnd, hWnd, Msg, wParam, lParam);
    }
    tag_THREADSTATE* pTarget = FindWindowQueue(hWnd);
    if (pTarget == nullptr)
        return 0;
    auto pSent = std::make_shared<tag_SENTMESSAGE>();
    pSent->m_msg = MakeMessage(hWnd, Msg, wParam, lParam);
    pSent->m_pSender = &self;
    pTarget->m_sent.push_back(pSent);
    WakeThread(*pTarget);
    std::function<bool()> fnReady = [&] { return pSent->m_bDone || !self.m_sent.empty(); };
    while (!pSent->m_bDone) {
        BlockUntil(lock, self, fnReady, INFINITE);
        ServeSentMessages(lock, self);
    }
    return pSent->m_lResult;
}

BOOL GetMessage(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax)
{
    constexpr BOOL kGetMessageError = -1;
    if (lpMsg == nullptr)
        return kGetMessageError;
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    const tag_MESSAGEFILTER filter{hWnd, wMsgFilterMin, wMsgFilterMax};
    auto fnWindowGone = [&] { return filter.NamesWindow() && FindWindow(hWnd) == nullptr; };
    std::function<bool()> fnReady = [&] {
        return !self.m_sent.empty() || HasMessage(self, filter) || HasDueQueueSource(self) || fnWindowGone();
    };
    std::function<std::optional<TimeMs>()> fnNextDue = [&] {
        return Earliest(NextTimerDue(self, filter), NextQueueSourceDue(self));
    };
    for (;;) {
        PassSuspensionPoint(lock, self);
        ServeSentMessages(lock, self);
        ServeQueueSources(lock, self);
        if (fnWindowGone())
            return kGetMessageError;
        if (TakeMessage(self, filter, true, *lpMsg))
            return lpMsg->message != WM_QUIT;
        BlockUntil(lock, self, fnReady, INFINITE, fnNextDue);
    }
}

BOOL PeekMessage(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg)
{
    if (lpMsg == nullptr)
        return FALSE;
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    PassSuspensionPoint(lock, self);
    ServeSentMessages(lock, self);
    ServeQueueSources(lock, self);
    const tag_MESSAGEFILTER filter{hWnd, wMsgFilterMin, wMsgFilterMax};
    return TakeMessage(self, filter, (wRemoveMsg & PM_REMOVE) != 0, *lpMsg);
}

LRESULT DispatchMessage(const MSG* lpMsg)
{
    if (lpMsg == nullptr)
        return 0;
    if (lpMsg->message == WM_TIMER && lpMsg->lParam != 0) {
        auto pfnTimer = reinterpret_cast<TIMERPROC>(lpMsg->lParam);
        pfnTimer(lpMsg->hwnd, WM_TIMER, static_cast<UINT>(lpMsg->wParam), GetTickCount());
        return 0;
    }
    PlatformLock lock(GetPlatformState().m_mutex);
    CWnd* pWnd = FindOwnWindow(GetCurrentThreadState(lock), lpMsg->hwnd);
    if (pWnd == nullptr)
        return 0;
    lock.unlock();
    return AfxCallWndProc(pWnd, lpMsg->hwnd, lpMsg->message, lpMsg->wParam, lpMsg->lParam);
}

DWORD MsgWaitForMultipleObjects(DWORD nCount, const HANDLE* pHandles, BOOL bWaitAll,
                                DWORD dwMilliseconds, DWORD dwWakeMask)
{
    if (bWaitAll)
        return WAIT_FAILED;
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    std::function<bool()> fnInput = [&] { return HasInput(self, dwWakeMask); };
    std::function<std::optional<TimeMs>()> fnNextDue = [&] {
        std::optional<TimeMs> tTimer;
        std::optional<TimeMs> tSource;
        if ((dwWakeMask & QS_TIMER) != 0)
            tTimer = NextTimerDue(self, tag_MESSAGEFILTER{nullptr, 0, 0});
        if ((dwWakeMask & (QS_POSTMESSAGE | QS_ALLPOSTMESSAGE)) != 0)
            tSource = NextQueueSourceDue(self);
        return Earliest(tTimer, tSource);
    };
    return WaitForObjects(lock, self, nCount, pHandles, false, dwMilliseconds, fnInput, fnNextDue);
}

UINT SetTimer(HWND hWnd, UINT nIDEvent, UINT uElapse, TIMERPROC lpTimerFunc)
{
    if (nIDEvent == 0)
        return 0;
    PlatformLock lock(GetPlatformState().m_mutex);
    GetCurrentQueue(lock);
    tag_THREADSTATE* pOwner = FindWindowQueue(hWnd);
    if (pOwner == nullptr)
        return 0;
    auto it = std::find_if(pOwner->m_timers.begin(), pOwner->m_timers.end(),
                           [&](const tag_WINDOWTIMER& timer) {
                               return timer.m_hWnd == hWnd && timer.m_nIDEvent == nIDEvent;
                           });
    if (it == pOwner->m_timers.end())
        it = pOwner->m_timers.insert(it, tag_WINDOWTIMER{});
    it->m_hWnd = hWnd;
    it->m_nIDEvent = nIDEvent;
    it->m_nElapse = std::max(uElapse, kMinTimerElapse);
    it->m_pfnTimer = lpTimerFunc;
    it->m_tDue = GetNowMs() + it->m_nElapse;
    WakeThread(*pOwner);
    return nIDEvent;
}

BOOL KillTimer(HWND hWnd, UINT uIDEvent)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    GetCurrentQueue(lock);
    tag_THREADSTATE* pOwner = FindWindowQueue(hWnd);
    if (pOwner == nullptr)
        return FALSE;
    std::size_t nErased = std::erase_if(pOwner->m_timers, [&](const tag_WINDOWTIMER& timer) {
        return timer.m_hWnd == hWnd && timer.m_nIDEvent == uIDEvent;
    });
    WakeThread(*pOwner);
    return nErased > 0;
}

BOOL IsWindow(HWND hWnd)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    return FindWindow(hWnd) != nullptr;
}

DWORD GetWindowThreadProcessId(HWND hWnd, LPDWORD lpdwProcessId)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_WINDOWRECORD* pRecord = FindWindow(hWnd);
    if (pRecord == nullptr)
        return 0;
    if (lpdwProcessId != nullptr)
        *lpdwProcessId = static_cast<DWORD>(getpid());
    return pRecord->m_dwThreadId;
}
