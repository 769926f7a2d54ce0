#include "StopSignals.h"

#include "platform/WinMessages.h"
#include "platform/WinThreads.h"

#include <pthread.h>
#include <system_error>

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};
// Sent by the destructor to end the waiting thread; blocked with the stop signals.
constexpr int kEndWaiting = SIGUSR1;

} // namespace

CStopSignals::CStopSignals()
{
    sigemptyset(&m_stopSignals);
    for (int nSignal : kStopSignals)
        sigaddset(&m_stopSignals, nSignal);
    sigaddset(&m_stopSignals, kEndWaiting);
    pthread_sigmask(SIG_BLOCK, &m_stopSignals, &m_previousMask);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &m_previousPipe);
}

CStopSignals::~CStopSignals()
{
    if (m_waiter.joinable()) {
        pthread_kill(m_waiter.native_handle(), kEndWaiting);
        m_waiter.join();
    }
    pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
    sigaction(SIGPIPE, &m_previousPipe, nullptr);
}

bool CStopSignals::Watch(UINT nMessage)
{
    // The message needs the calling thread's queue, which its first peek makes.
    MSG msg;
    ::PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE);
    const DWORD dwThreadId = GetCurrentThreadId();
    try {
        m_waiter = std::thread(&CStopSignals::Wait, this, dwThreadId, nMessage);
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

int CStopSignals::GetSignal() const
{
    return m_nSignal.load();
}

// Only the first stop signal counts: a second Ctrl-C while files are closed mustn't cut
// that short.
void CStopSignals::Wait(DWORD dwThreadId, UINT nMessage)
{
    for (;;) {
        int nSignal = 0;
        if (sigwait(&m_stopSignals, &nSignal) != 0 || nSignal == kEndWaiting)
            return;
        int nNone = 0;
        if (m_nSignal.compare_exchange_strong(nNone, nSignal) && nMessage != 0)
            ::PostThreadMessage(dwThreadId, nMessage, static_cast<WPARAM>(nSignal), 0);
    }
}
