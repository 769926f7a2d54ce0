// A window as a message target: created hidden, bound to the thread that creates it,
// answering messages through its class's message map. The creator owns the object;
// the window (its HWND) lives from Create to DestroyWindow. Thread-bound: Create,
// DestroyWindow and the handlers run on the owner thread; handles may be used anywhere.
#pragma once

#include "platform/Export.h"
#include "platform/WinMessages.h"
#include "platform/WinTypes.h"

#include <cstdint>
#include <tuple>
#include <type_traits>

class CWnd;
struct CCreateContext;

inline constexpr DWORD WS_OVERLAPPED = 0x00000000;
inline constexpr DWORD WS_VISIBLE = 0x10000000;
inline constexpr DWORD WS_CHILD = 0x40000000;
inline constexpr DWORD WS_POPUP = 0x80000000;

inline constexpr UINT CS_VREDRAW = 0x0001;
inline constexpr UINT CS_HREDRAW = 0x0002;
inline constexpr UINT CS_NOCLOSE = 0x0200;

// One line of a message map: the message number and the handler, reached through a
// thunk that unpacks wParam and lParam into the handler's own argument types.
using AFX_PMSG_THUNK = LRESULT (*)(CWnd* pWnd, WPARAM wParam, LPARAM lParam);

struct AFX_MSGMAP_ENTRY {
    UINT nMessage;
    AFX_PMSG_THUNK pfnThunk;
};

struct AFX_MSGMAP {
    const AFX_MSGMAP* (*pfnGetBaseMap)();
    const AFX_MSGMAP_ENTRY* lpEntries;
};

namespace zndvr_msgmap {

template <typename T>
T UnpackArgument(std::uintptr_t nValue)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(nValue);
    else
        return static_cast<T>(nValue);
}

template <typename TMember>
struct HandlerTraits;

template <typename TClass, typename TResult, typename... TArgs>
struct HandlerTraits<TResult (TClass::*)(TArgs...)> {
    using Class = TClass;
    using Result = TResult;
    using Args = std::tuple<std::remove_cvref_t<TArgs>...>;
};

// Calls a handler that takes no argument, wParam, or wParam and lParam, each
// converted to the type the handler declares; a handler without result answers 0.
template <auto pfnHandler>
LRESULT CallHandler(CWnd* pWnd, WPARAM wParam, LPARAM lParam)
{
    using Traits = HandlerTraits<decltype(pfnHandler)>;
    using Args = typename Traits::Args;
    auto* pThis = static_cast<typename Traits::Class*>(pWnd);
    auto fnCall = [&]() -> typename Traits::Result {
        if constexpr (std::tuple_size_v<Args> == 0)
            return (pThis->*pfnHandler)();
        else if constexpr (std::tuple_size_v<Args> == 1)
            return (pThis->*pfnHandler)(UnpackArgument<std::tuple_element_t<0, Args>>(wParam));
        else
            return (pThis->*pfnHandler)(
                UnpackArgument<std::tuple_element_t<0, Args>>(wParam),
                UnpackArgument<std::tuple_element_t<1, Args>>(static_cast<std::uintptr_t>(lParam)));
    };
    if constexpr (std::is_void_v<typename Traits::Result>) {
        fnCall();
        return 0;
    } else {
        return static_cast<LRESULT>(fnCall());
    }
}

} // namespace zndvr_msgmap

// Inside a class derived from CWnd: declares its message map (and leaves the class
// in its protected section).
#define DECLARE_MESSAGE_MAP()                                                                     \
protected:                                                                                        \
    static const AFX_MSGMAP* GetThisMessageMap();                                                 \
    const AFX_MSGMAP* GetMessageMap() const override;

// In the class's source file: the messages it handles, in order of precedence; any
// other message goes to the base class's map, and at the end to default handling.
#define BEGIN_MESSAGE_MAP(theClass, baseClass)                                                    \
    const AFX_MSGMAP* theClass::GetMessageMap() const { return GetThisMessageMap(); }             \
    const AFX_MSGMAP* theClass::GetThisMessageMap()                                               \
    {                                                                                             \
        using ThisClass = theClass;                                                               \
        using TheBaseClass = baseClass;                                                           \
        static const AFX_MSGMAP_ENTRY messageEntries[] = {

// A handler for message number nMessage: LRESULT or void, taking (), (WPARAM-like) or
// (WPARAM-like, LPARAM-like) arguments, e.g. OnFrame(WPARAM, LPARAM), OnTimer(UINT).
#define ON_MESSAGE(nMessage, memberFxn)                                                           \
    {(nMessage), &zndvr_msgmap::CallHandler<&ThisClass::memberFxn>},

// WM_TIMER to OnTimer(UINT nIDEvent); CWnd's own OnTimer gives default handling.
#define ON_WM_TIMER() ON_MESSAGE(WM_TIMER, OnTimer)

#define END_MESSAGE_MAP()                                                                         \
    {0, nullptr}                                                                                  \
    }                                                                                             \
    ;                                                                                             \
    static const AFX_MSGMAP messageMap = {&TheBaseClass::GetThisMessageMap, &messageEntries[0]}; \
    return &messageMap;                                                                           \
    }

// Registers a window class with the given class style and returns its name, valid
// for the life of the process. The same arguments give the same name.
ZNDVR_API LPCSTR AfxRegisterWndClass(UINT nClassStyle, HCURSOR hCursor = nullptr,
                                     HBRUSH hbrBackground = nullptr, HICON hIcon = nullptr);

class ZNDVR_API CWnd {
public:
    CWnd();
    // Takes a window that is still there away without sending it messages.
    virtual ~CWnd();
    CWnd(const CWnd&) = delete;
    CWnd& operator=(const CWnd&) = delete;

    HWND m_hWnd;

    HWND GetSafeHwnd() const;
    // The object of a live window, or NULL for NULL, a destroyed or an unknown handle.
    static CWnd* FromHandle(HWND hWnd);

    // A child window of pParentWnd (which must be a window): dwStyle gets WS_CHILD.
    // lpszClassName is NULL or a registered class. Fails if this object already has a
    // window. The window is never shown, whatever the style says.
    virtual BOOL Create(LPCSTR lpszClassName, LPCSTR lpszWindowName, DWORD dwStyle,
                        const RECT& rect, CWnd* pParentWnd, UINT nID,
                        CCreateContext* pContext = nullptr);
    // A window of any style; with WS_CHILD it needs a parent, without it may have none.
    BOOL CreateEx(DWORD dwExStyle, LPCSTR lpszClassName, LPCSTR lpszWindowName, DWORD dwStyle,
                  const RECT& rect, CWnd* pParentWnd, UINT nID, LPVOID lpParam = nullptr);
    // Sends WM_DESTROY, destroys the child windows of this thread, unregisters the
    // handle, kills its timers and drops its queued messages. Only on the owner thread.
    virtual BOOL DestroyWindow();

    LRESULT SendMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    BOOL PostMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    UINT SetTimer(UINT nIDEvent, UINT nElapse, TIMERPROC lpfnTimer);
    BOOL KillTimer(UINT nIDEvent);

    CWnd* GetParent() const;
    int GetDlgCtrlID() const;
    DWORD GetStyle() const;
    void GetWindowRect(LPRECT lpRect) const;
    // Copies the window name, cut to nMaxCount - 1 characters and terminated; returns
    // the characters copied.
    int GetWindowText(LPSTR lpszStringBuf, int nMaxCount) const;

protected:
    static const AFX_MSGMAP* GetThisMessageMap();
    virtual const AFX_MSGMAP* GetMessageMap() const;

    // The window procedure: the message map, then DefWindowProc.
    virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    virtual BOOL OnWndMsg(UINT message, WPARAM wParam, LPARAM lParam, LRESULT* pResult);
    virtual LRESULT DefWindowProc(UINT message, WPARAM wParam, LPARAM lParam);
    // Default handling of the message being handled now.
    LRESULT Default();
    // Called after the window has been destroyed; the object may delete itself here.
    virtual void PostNcDestroy();

    void OnTimer(UINT nIDEvent);

private:
    friend LRESULT AfxCallWndProc(CWnd* pWnd, HWND hWnd, UINT nMsg, WPARAM wParam,
                                  LPARAM lParam);
};

// Hands a message to the window procedure of pWnd. Used by SendMessage and
// DispatchMessage; it is the one way into a window's handlers.
LRESULT AfxCallWndProc(CWnd* pWnd, HWND hWnd, UINT nMsg, WPARAM wParam, LPARAM lParam);
