#include "platform/CWnd.h"

#include "platform/PlatformState.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using namespace zndvr;

namespace {

// The message the calling thread's innermost window procedure is handling, for Default.
thread_local MSG t_msgCurrent{};

std::uintptr_t ToKey(HWND hWnd)
{
    return reinterpret_cast<std::uintptr_t>(hWnd);
}

// The windows of the calling thread whose parent is hParent.
std::vector<CWnd*> FindOwnChildren(HWND hParent, DWORD dwThreadId)
{
    std::vector<CWnd*> children;
    for (const auto& [nHandle, record] : GetPlatformState().m_windows) {
        if (record.m_hParent == hParent && record.m_dwThreadId == dwThreadId)
            children.push_back(record.m_pWnd);
    }
    return children;
}

const tag_WINDOWRECORD* FindRecordOf(const CWnd& wnd)
{
    const tag_WINDOWRECORD* pRecord = FindWindow(wnd.m_hWnd);
    return pRecord != nullptr && pRecord->m_pWnd == &wnd ? pRecord : nullptr;
}

} // namespace

LRESULT AfxCallWndProc(CWnd* pWnd, HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam)
{
    MSG msgOuter = t_msgCurrent;
    t_msgCurrent = MSG{hWnd, nMsg, wParam, lParam, 0};
    LRESULT lResult = pWnd->WindowProc(nMsg, wParam, lParam);
    t_msgCurrent = msgOuter;
    return lResult;
}

LPCSTR AfxRegisterWndClass(UINT nClassStyle, HCURSOR hCursor, HBRUSH hbrBackground, HICON hIcon)
{
    char szName[96];
    std::snprintf(szName, sizeof(szName), "ZnWnd:%x:%p:%p:%p", nClassStyle,
                  static_cast<void*>(hCursor), static_cast<void*>(hbrBackground),
                  static_cast<void*>(hIcon));
    PlatformLock lock(GetPlatformState().m_mutex);
    return GetPlatformState().m_windowClasses.insert(szName).first->c_str();
}

CWnd::CWnd() : m_hWnd(nullptr) {}

CWnd::~CWnd()
{
    PlatformLock lock(GetPlatformState().m_mutex);
    if (FindRecordOf(*this) != nullptr)
        RemoveWindow(m_hWnd);
    m_hWnd = nullptr;
}

HWND CWnd::GetSafeHwnd() const
{
    return m_hWnd;
}

CWnd* CWnd::FromHandle(HWND hWnd)
{
    PlatformLock lock(GetPlatformState().m_mutex);
    tag_WINDOWRECORD* pRecord = FindWindow(hWnd);
    return pRecord == nullptr ? nullptr : pRecord->m_pWnd;
}

BOOL CWnd::Create(LPCSTR lpszClassName, LPCSTR lpszWindowName, DWORD dwStyle, const RECT& rect,
                  CWnd* pParentWnd, UINT nID, CCreateContext*)
{
    return CreateEx(0, lpszClassName, lpszWindowName, dwStyle | WS_CHILD, rect, pParentWnd, nID);
}

BOOL CWnd::CreateEx(DWORD, LPCSTR lpszClassName, LPCSTR lpszWindowName, DWORD dwStyle,
                    const RECT& rect, CWnd* pParentWnd, UINT nID, LPVOID)
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    tag_THREADSTATE& self = GetCurrentQueue(lock);
    HWND hParent = pParentWnd == nullptr ? nullptr : pParentWnd->m_hWnd;
    bool bParentMissing = pParentWnd != nullptr && FindWindow(hParent) == nullptr;
    bool bChildWithoutParent = (dwStyle & WS_CHILD) != 0 && pParentWnd == nullptr;
    bool bUnknownClass = lpszClassName != nullptr && !state.m_windowClasses.contains(lpszClassName);
    if (m_hWnd != nullptr || bParentMissing || bChildWithoutParent || bUnknownClass)
        return FALSE;
    HWND hWnd = reinterpret_cast<HWND>(state.m_nNextWindow++);
    tag_WINDOWRECORD& record = state.m_windows[ToKey(hWnd)];
    record.m_pWnd = this;
    record.m_dwThreadId = self.m_dwThreadId;
    record.m_hParent = hParent;
    record.m_dwStyle = dwStyle;
    record.m_nID = nID;
    record.m_rect = rect;
    record.m_strName = lpszWindowName == nullptr ? "" : lpszWindowName;
    m_hWnd = hWnd;
    return TRUE;
}

BOOL CWnd::DestroyWindow()
{
    tag_PLATFORMSTATE& state = GetPlatformState();
    PlatformLock lock(state.m_mutex);
    HWND hWnd = m_hWnd;
    tag_WINDOWRECORD* pRecord = FindWindow(hWnd);
    DWORD dwThreadId = GetCurrentThreadState(lock).m_dwThreadId;
    if (pRecord == nullptr || pRecord->m_pWnd != this || pRecord->m_dwThreadId != dwThreadId ||
        pRecord->m_bDestroying)
        return FALSE;
    pRecord->m_bDestroying = true;
    lock.unlock();
    AfxCallWndProc(this, hWnd, WM_DESTROY, 0, 0);
    lock.lock();
    std::vector<CWnd*> children = FindOwnChildren(hWnd, dwThreadId);
    lock.unlock();
    for (CWnd* pChild : children)
        pChild->DestroyWindow();
    lock.lock();
    RemoveWindow(hWnd);
    m_hWnd = nullptr;
    lock.unlock();
    PostNcDestroy();
    return TRUE;
}

LRESULT CWnd::SendMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    return ::SendMessage(m_hWnd, message, wParam, lParam);
}

BOOL CWnd::PostMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    return ::PostMessage(m_hWnd, message, wParam, lParam);
}

UINT CWnd::SetTimer(UINT nIDEvent, UINT nElapse, TIMERPROC lpfnTimer)
{
    return ::SetTimer(m_hWnd, nIDEvent, nElapse, lpfnTimer);
}

BOOL CWnd::KillTimer(UINT nIDEvent)
{
    return ::KillTimer(m_hWnd, nIDEvent);
}

CWnd* CWnd::GetParent() const
{
    PlatformLock lock(GetPlatformState().m_mutex);
    const tag_WINDOWRECORD* pRecord = FindRecordOf(*this);
    if (pRecord == nullptr)
        return nullptr;
    tag_WINDOWRECORD* pParent = FindWindow(pRecord->m_hParent);
    return pParent == nullptr ? nullptr : pParent->m_pWnd;
}

int CWnd::GetDlgCtrlID() const
{
    PlatformLock lock(GetPlatformState().m_mutex);
    const tag_WINDOWRECORD* pRecord = FindRecordOf(*this);
    return pRecord == nullptr ? 0 : static_cast<int>(pRecord->m_nID);
}

DWORD CWnd::GetStyle() const
{
    PlatformLock lock(GetPlatformState().m_mutex);
    const tag_WINDOWRECORD* pRecord = FindRecordOf(*this);
    return pRecord == nullptr ? 0 : pRecord->m_dwStyle;
}

void CWnd::GetWindowRect(LPRECT lpRect) const
{
    if (lpRect == nullptr)
        return;
    PlatformLock lock(GetPlatformState().m_mutex);
    const tag_WINDOWRECORD* pRecord = FindRecordOf(*this);
    *lpRect = pRecord == nullptr ? RECT{} : pRecord->m_rect;
}

int CWnd::GetWindowText(LPSTR lpszStringBuf, int nMaxCount) const
{
    if (lpszStringBuf == nullptr || nMaxCount <= 0)
        return 0;
    PlatformLock lock(GetPlatformState().m_mutex);
    const tag_WINDOWRECORD* pRecord = FindRecordOf(*this);
    std::size_t nLen = pRecord == nullptr ? 0 : pRecord->m_strName.size();
    nLen = std::min(nLen, static_cast<std::size_t>(nMaxCount - 1));
    if (nLen > 0)
        std::memcpy(lpszStringBuf, pRecord->m_strName.data(), nLen);
    lpszStringBuf[nLen] = '\0';
    return static_cast<int>(nLen);
}

const AFX_MSGMAP* CWnd::GetThisMessageMap()
{
    static const AFX_MSGMAP_ENTRY messageEntries[] = {{0, nullptr}};
    static const AFX_MSGMAP messageMap = {nullptr, &messageEntries[0]};
    return &messageMap;
}

const AFX_MSGMAP* CWnd::GetMessageMap() const
{
    return GetThisMessageMap();
}

LRESULT CWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam)
{
    LRESULT lResult = 0;
    if (!OnWndMsg(message, wParam, lParam, &lResult))
        lResult = DefWindowProc(message, wParam, lParam);
    return lResult;
}

BOOL CWnd::OnWndMsg(UINT message, WPARAM wParam, LPARAM lParam, LRESULT* pResult)
{
    for (const AFX_MSGMAP* pMap = GetMessageMap(); pMap != nullptr;
         pMap = pMap->pfnGetBaseMap == nullptr ? nullptr : pMap->pfnGetBaseMap()) {
        for (const AFX_MSGMAP_ENTRY* pEntry = pMap->lpEntries; pEntry->pfnThunk != nullptr; ++pEntry) {
            if (pEntry->nMessage == message) {
                *pResult = pEntry->pfnThunk(this, wParam, lParam);
                return TRUE;
            }
        }
    }
    return FALSE;
}

// Our windows are never shown, so the only default action is that a request to
// close destroys the window.
LRESULT CWnd::DefWindowProc(UINT message, WPARAM, LPARAM)
{
    if (message == WM_CLOSE)
        DestroyWindow();
    return 0;
}

LRESULT CWnd::Default()
{
    return DefWindowProc(t_msgCurrent.message, t_msgCurrent.wParam, t_msgCurrent.lParam);
}

void CWnd::PostNcDestroy() {}

void CWnd::OnTimer(UINT)
{
    Default();
}
