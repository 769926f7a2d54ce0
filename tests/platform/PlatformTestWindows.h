// Windows and threads the platform tests share: a window that records what reaches
// its procedure, and a thread that owns such a window and runs a message loop.
#pragma once

#include "platform/CWnd.h"
#include "platform/WinMessages.h"
#include "platform/WinThreads.h"

#include <future>
#include <thread>
#include <vector>

// A top-level window of the constructing thread. It records every message reaching
// its procedure and answers wParam + lParam. Its records are read on its own thread,
// or after that thread has been joined.
class CRecordingWnd : public CWnd {
public:
    CRecordingWnd()
    {
        CreateEx(0, nullptr, "recording window", WS_OVERLAPPED, RECT{}, nullptr, 0);
    }

    std::vector<MSG> m_received;

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        m_received.push_back(MSG{m_hWnd, message, wParam, lParam, 0});
        return static_cast<LRESULT>(wParam + static_cast<WPARAM>(lParam));
    }
};

// Takes every message now in the calling thread's queue and returns them in order.
inline std::vector<MSG> TakeQueuedMessages(HWND hWnd = nullptr, UINT nMin = 0, UINT nMax = 0)
{
    std::vector<MSG> messages;
    MSG msg;
    while (PeekMessage(&msg, hWnd, nMin, nMax, PM_REMOVE))
        messages.push_back(msg);
    return messages;
}

// A thread that owns a CRecordingWnd and dispatches its messages until WM_QUIT.
class CWindowThread {
public:
    CWindowThread()
    {
        std::promise<void> created;
        std::future<void> ready = created.get_future();
        m_thread = std::thread([this, &created] {
            CRecordingWnd wnd;
            m_hWnd = wnd.m_hWnd;
            m_dwThreadId = GetCurrentThreadId();
            created.set_value();
            MSG msg;
            while (GetMessage(&msg, nullptr, 0, 0) > 0)
                DispatchMessage(&msg);
            m_received = wnd.m_received;
        });
        ready.wait();
    }

    ~CWindowThread() { Stop(); }

    // Ends the loop and waits for the thread; m_received is then complete.
    void Stop()
    {
        if (!m_thread.joinable())
            return;
        PostThreadMessage(m_dwThreadId, WM_QUIT, 0, 0);
        m_thread.join();
    }

    HWND m_hWnd = nullptr;
    DWORD m_dwThreadId = 0;
    std::vector<MSG> m_received;

private:
    std::thread m_thread;
};
