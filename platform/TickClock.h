// The platform's millisecond clock, and a test clock that replaces it. GetTickCount is
// thread-safe; a CTestClock belongs to the test that makes it, one at a time.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <ctime>

// Milliseconds of the platform clock as a 32-bit count that wraps after 49.7 days:
// differences are taken in DWORD arithmetic. Real time (since boot) by default.
ZNDVR_API DWORD GetTickCount();

// While a CTestClock lives, the platform clock stands still except when the test
// advances it: GetTickCount, every timer and every timed wait of the platform layer
// (events, mutexes, threads, MsgWaitForMultipleObjects, Sleep) go by it, and
// advancing it wakes what has fallen due. The wall clock of CTime::GetCurrentTime
// goes by it too: it starts at the real time and moves only with Advance, so that a
// test can carry a recorder over midnight or through a month. Waits and timers running when it is made
// or ends start their time-out afresh by the clock then in force.
class ZNDVR_API CTestClock {
public:
    explicit CTestClock(DWORD dwStart = 0);
    ~CTestClock();
    CTestClock(const CTestClock&) = delete;
    CTestClock& operator=(const CTestClock&) = delete;

    void Advance(DWORD dwMilliseconds);
    DWORD GetTime() const;
    // Sets the wall clock to tNow (seconds since 1970); it moves on from there with Advance.
    void SetCurrentTime(time_t tNow);

    // Threads blocked in a wait, message call or Sleep of the platform layer that
    // nothing has satisfied yet: they move only when the clock or another thread
    // moves them. Counts under either clock.
    static int GetIdleThreads();
    // Blocks (in real time, at most dwTimeout ms) until at least nThreads are idle.
    // For tests to know that the threads they drive have done all they can.
    static BOOL WaitForIdleThreads(int nThreads, DWORD dwTimeout = 10000);
};
