// Window messages, per-thread message queues and timers in the form of the Win32 user
// calls. A thread gets its queue at its first call to a function here that posts,
// sends, retrieves or waits for messages, or sets a timer, or when it creates a
// window; a window's messages go to the queue of the thread that created it. Every
// function is thread-safe.
#pragma once

#include "platform/Export.h"
#include "platform/WinThreads.h"
#include "platform/WinTypes.h"

struct tagMSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
};
using MSG = tagMSG;
using LPMSG = MSG*;

using TIMERPROC = void (*)(HWND hWnd, UINT uMsg, UINT nIDEvent, DWORD dwTime);

inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_CREATE = 0x0001;
inline constexpr UINT WM_DESTROY = 0x0002;
inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_NCDESTROY = 0x0082;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT WM_APP = 0x8000;

// PeekMessage: whether the message found is taken out of the queue.
inline constexpr UINT PM_NOREMOVE = 0x0000;
inline constexpr UINT PM_REMOVE = 0x0001;
inline constexpr UINT PM_NOYIELD = 0x0002;

// Wake masks of MsgWaitForMultipleObjects. Keyboard, mouse and paint input never
// occurs here; the flags exist so that masks written for it are accepted.
inline constexpr DWORD QS_KEY = 0x0001;
inline constexpr DWORD QS_MOUSEMOVE = 0x0002;
inline constexpr DWORD QS_MOUSEBUTTON = 0x0004;
inline constexpr DWORD QS_POSTMESSAGE = 0x0008;
inline constexpr DWORD QS_TIMER = 0x0010;
inline constexpr DWORD QS_PAINT = 0x0020;
inline constexpr DWORD QS_SENDMESSAGE = 0x0040;
inline constexpr DWORD QS_HOTKEY = 0x0080;
inline constexpr DWORD QS_ALLPOSTMESSAGE = 0x0100;
inline constexpr DWORD QS_MOUSE = QS_MOUSEMOVE | QS_MOUSEBUTTON;
inline constexpr DWORD QS_INPUT = QS_MOUSE | QS_KEY;
inline constexpr DWORD QS_ALLEVENTS = QS_INPUT | QS_POSTMESSAGE | QS_TIMER | QS_PAINT | QS_HOTKEY;
inline constexpr DWORD QS_ALLINPUT = QS_ALLEVENTS | QS_SENDMESSAGE;

// Posting: FALSE when the window is gone or its thread has ended; PostThreadMessage
// also fails while the target thread has no queue yet. PostMessage to NULL posts a
// thread message to the calling thread. PostQuitMessage asks the calling thread's
// loop to end once the messages posted before are taken.
ZNDVR_API BOOL PostMessage(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);
ZNDVR_API BOOL PostThreadMessage(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam);
ZNDVR_API void PostQuitMessage(int nExitCode);

// Calls the window's procedure on the window's thread and returns its result. From
// another thread the caller waits and meanwhile serves messages sent to its own
// thread. 0 when the window is gone or its thread ends before answering. The owner
// serves sends in GetMessage, PeekMessage and its own SendMessage, not in the waits
// of WinThreads.h: a thread that waits there for a thread that sends to it waits
// for ever, so it waits with MsgWaitForMultipleObjects and QS_SENDMESSAGE instead.
ZNDVR_API LRESULT SendMessage(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);

// Retrieval. Messages sent from other threads are served first, then posted
// messages in order, then WM_TIMER of a due timer. hWnd NULL takes every message of
// the thread, (HWND)-1 only thread messages; wMsgFilterMin = wMsgFilterMax = 0 takes
// every number. GetMessage returns 0 for WM_QUIT and -1 for a hWnd that is no window.
ZNDVR_API BOOL GetMessage(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax);
ZNDVR_API BOOL PeekMessage(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax,
                           UINT wRemoveMsg);
ZNDVR_API LRESULT DispatchMessage(const MSG* lpMsg);

// Waits for one of the objects or for queue input of the kinds in dwWakeMask (present
// in the queue). Returns WAIT_OBJECT_0 + index for an object, WAIT_OBJECT_0 + nCount
// for input, WAIT_TIMEOUT or WAIT_FAILED. bWaitAll must be FALSE.
ZNDVR_API DWORD MsgWaitForMultipleObjects(DWORD nCount, const HANDLE* pHandles, BOOL bWaitAll,
                                          DWORD dwMilliseconds, DWORD dwWakeMask);

// Timers of a window, ticking by the platform clock. WM_TIMER (wParam the id, lParam
// the TIMERPROC) is made when the owner's thread retrieves messages and nothing else
// matching waits, at most one per timer: a thread that stalls gets one tick, not a
// backlog. SetTimer with an id in use restarts that timer. Returns nIDEvent, or 0.
ZNDVR_API UINT SetTimer(HWND hWnd, UINT nIDEvent, UINT uElapse, TIMERPROC lpTimerFunc);
ZNDVR_API BOOL KillTimer(HWND hWnd, UINT uIDEvent);

ZNDVR_API BOOL IsWindow(HWND hWnd);
// The id of the thread that owns the window, or 0.
ZNDVR_API DWORD GetWindowThreadProcessId(HWND hWnd, LPDWORD lpdwProcessId);
