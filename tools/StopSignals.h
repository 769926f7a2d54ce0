// The signals that ask a command to stop (SIGINT, SIGTERM, SIGHUP), turned into a
// thread message to the command's thread, so that it stops between two messages and
// closes what it has open, or only noted, for a command that looks between frames. Made by a command on its main thread before it starts any
// other thread, which then inherit the blocked signals; one at a time per process.
#pragma once

#include "platform/WinTypes.h"

#include <atomic>
#include <csignal>
#include <thread>

inline constexpr int STOP_EXIT_BASE = 128;

class CStopSignals {
public:
    // Blocks the stop signals in this thread and those it makes from now on, and ignores
    // SIGPIPE, so that a closed output pipe is a failed write instead of the end.
    CStopSignals();
    // Ends the waiting thread and unblocks the signals; a signal that came is kept.
    ~CStopSignals();
    CStopSignals(const CStopSignals&) = delete;
    CStopSignals& operator=(const CStopSignals&) = delete;

    // From now on the first stop signal is noted and, unless nMessage is 0, posts
    // nMessage with the signal's number to the calling thread. False if the waiting thread
    // can't be made.
    bool Watch(UINT nMessage = 0);
    // The stop signal that came, or 0.
    int GetSignal() const;
    bool IsStopped() const { return GetSignal() != 0; }
    // The shell's exit status for a death by the signal that came: 128 + its number.
    int GetExitStatus() const { return STOP_EXIT_BASE + GetSignal(); }

private:
    void Wait(DWORD dwThreadId, UINT nMessage);

    sigset_t m_stopSignals{};
    sigset_t m_previousMask{};
    struct sigaction m_previousPipe {};
    std::atomic<int> m_nSignal{0};
    std::thread m_waiter;
};
