// Threads, events, mutexes and waits in the form of the Win32 kernel calls. Every
// function is thread-safe. Timed waits and Sleep are measured by the platform clock
// (TickClock.h): while a test clock is in force they end only when it is advanced.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID lpParameter);

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED_0 = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

inline constexpr DWORD CREATE_SUSPENDED = 0x4;
inline constexpr DWORD STILL_ACTIVE = 259;

inline constexpr int THREAD_PRIORITY_IDLE = -15;
inline constexpr int THREAD_PRIORITY_LOWEST = -2;
inline constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
inline constexpr int THREAD_PRIORITY_NORMAL = 0;
inline constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
inline constexpr int THREAD_PRIORITY_HIGHEST = 2;
inline constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;
inline constexpr int THREAD_PRIORITY_ERROR_RETURN = 0x7FFFFFFF;

// Threads. lpThreadAttributes and dwStackSize are accepted and not used. With
// CREATE_SUSPENDED the thread function starts at the first ResumeThread.
ZNDVR_API HANDLE CreateThread(LPVOID lpThreadAttributes, DWORD dwStackSize,
                              LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                              DWORD dwCreationFlags, LPDWORD lpThreadId);
ZNDVR_API DWORD GetCurrentThreadId();
ZNDVR_API BOOL GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode);

// Suspension is cooperative: a suspended thread stops at its next wait, message call
// or Sleep of this platform layer (at once if it suspends itself) and stays there
// until its suspend count is back to 0. Both return the previous count, or
// 0xFFFFFFFF for a handle that isn't a thread of CreateThread.
ZNDVR_API DWORD SuspendThread(HANDLE hThread);
ZNDVR_API DWORD ResumeThread(HANDLE hThread);

// Priorities are recorded and applied as the thread's nice value where the system
// permits it (raising a priority needs privilege); otherwise only recorded.
ZNDVR_API BOOL SetThreadPriority(HANDLE hThread, int nPriority);
ZNDVR_API int GetThreadPriority(HANDLE hThread);

// Events and mutexes. Names are accepted and not used: every object is private to
// its creator. A mutex is recursive; one whose owner ends is abandoned, and the next
// wait that takes it returns WAIT_ABANDONED_0 + index.
ZNDVR_API HANDLE CreateEvent(LPVOID lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                             LPCSTR lpName);
ZNDVR_API BOOL SetEvent(HANDLE hEvent);
ZNDVR_API BOOL ResetEvent(HANDLE hEvent);
ZNDVR_API HANDLE CreateMutex(LPVOID lpMutexAttributes, BOOL bInitialOwner, LPCSTR lpName);
ZNDVR_API BOOL ReleaseMutex(HANDLE hMutex);

// Waits on events, mutexes and threads (a thread is signalled when it has ended).
ZNDVR_API DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
ZNDVR_API DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                                       DWORD dwMilliseconds);
ZNDVR_API void Sleep(DWORD dwMilliseconds);

// Ends the handle. The object lives on while a wait or a running thread still uses it;
// a closed handle is never valid again.
ZNDVR_API BOOL CloseHandle(HANDLE hObject);
