// Helpers of the capture tests: a rack emptied around each test, a host window on the
// test thread that takes the frame records of the library, and a message pump that
// runs until a condition holds. Boards answer reads at once, so no test waits on time.
#pragma once

#include "capture/CEncodeParam.h"
#include "capture/CVideo.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "platform/WinMessages.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

// The stream revision a board of the generation works with.
inline DWORD RevisionOf(BYTE byGeneration)
{
    return byGeneration == 2 ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114;
}

class CCaptureTest : public ::testing::Test {
protected:
    void SetUp() override { CVirtualRack::Clear(); }
    void TearDown() override { CVirtualRack::Clear(); }

    // Installs the board, opens video for the host at the revision of the board's
    // generation and, unless nSize is FRAMESIZE_INVALID, board 0 at nSize.
    static ::testing::AssertionResult OpenOn(CVideo& video, CWnd& host, const tag_VIRTUALBOARD& board,
                                             tag_FRAMESIZE nSize = FRAMESIZE_INVALID)
    {
        CVirtualRack::InstallBoard(board);
        if (video.Open(&host, RevisionOf(board.byGeneration)) != ZNRET_OK)
            return ::testing::AssertionFailure() << "the facade did not open";
        if (nSize != FRAMESIZE_INVALID && video.OpenBoard(0, nSize, 0, nullptr) != ZNRET_OK)
            return ::testing::AssertionFailure() << "board 0 did not open";
        return ::testing::AssertionSuccess();
    }
};

inline tag_VIRTUALBOARD MakeCaptureBoard(BYTE byChannels, BYTE byGeneration)
{
    tag_VIRTUALBOARD board;
    board.byChannels = byChannels;
    board.byGeneration = byGeneration;
    board.nPacing = PACING_IMMEDIATE;
    return board;
}

inline tag_VIRTUALBOARD MakeCaptureBoard(BYTE byChannels, BYTE byGeneration, tag_SOURCEKIND nKind)
{
    tag_VIRTUALBOARD board = MakeCaptureBoard(byChannels, byGeneration);
    for (BYTE i = 0; i < byChannels; ++i) {
        tag_CAMERASOURCE source;
        source.nKind = nKind;
        source.dwSeed = i + 1u;
        board.sources.push_back(source);
    }
    return board;
}

// What the host saw of one frame record.
struct tag_HOSTFRAME {
    HWND hCamera;
    int nCamera;
    int bVideoLost;
    WORD wFrameType;
    WORD wFlags;
    DWORD dwVideoLen;
};

// The host window: keeps a line per frame record, lets a test look at the record while
// it is held, and gives it back at once unless told to hold it.
class CHostWindow : public CWnd {
public:
    using FrameHandler = std::function<void(HWND hCamera, tag_ZNCAPTUREFRAME* pFrame)>;

    CHostWindow()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "capture test host", WS_POPUP, rect, nullptr, 0);
    }
    ~CHostWindow() override { DestroyWindow(); }

    std::vector<tag_HOSTFRAME> m_frames;
    FrameHandler m_pfnOnFrame;
    bool m_bHold = false;
    HWND m_hHeld = nullptr;

    int CountFrames(int nCamera) const
    {
        int n = 0;
        for (const tag_HOSTFRAME& frame : m_frames)
            n += frame.nCamera == nCamera;
        return n;
    }

    // Gives back the record that is held.
    void GiveBack()
    {
        ::PostMessage(m_hHeld, WM_ZN_FRAMEDONE, 0, 0);
        m_hHeld = nullptr;
    }

protected:
    LRESULT OnCaptureFrame(WPARAM wCamera, LPARAM lFrame)
    {
        HWND hCamera = reinterpret_cast<HWND>(wCamera);
        auto* pFrame = reinterpret_cast<tag_ZNCAPTUREFRAME*>(lFrame);
        m_frames.push_back({hCamera, pFrame->pInfo->nCamera, pFrame->bVideoLost, pFrame->pData->wFrameType,
                            pFrame->pData->wFlags, pFrame->pData->dwVideoLen});
        if (m_pfnOnFrame)
            m_pfnOnFrame(hCamera, pFrame);
        if (m_bHold)
            m_hHeld = hCamera;
        else
            ::PostMessage(hCamera, WM_ZN_FRAMEDONE, 0, 0);
        return 0;
    }
    DECLARE_MESSAGE_MAP()
};

// Serves the test thread's messages until bDone holds; false if the queue stays empty
// for long (a stalled pipeline) or nMaxMessages have been served. Under a test clock an
// empty queue is waited for until something arrives.
inline bool PumpUntil(const std::function<bool()>& bDone, int nMaxMessages = 200000)
{
    constexpr DWORD kStallMs = 10000;
    MSG msg;
    for (int n = 0; n < nMaxMessages; ++n) {
        if (bDone())
            return true;
        if (!PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (MsgWaitForMultipleObjects(0, nullptr, FALSE, kStallMs, QS_ALLINPUT) == WAIT_TIMEOUT)
                return false;
            continue;
        }
        DispatchMessage(&msg);
    }
    return bDone();
}

// Serves what is in the test thread's queue now, without waiting for more; whether
// there was anything.
inline bool DrainMessages()
{
    bool bServed = false;
    MSG msg;
    while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessage(&msg);
        bServed = true;
    }
    return bServed;
}

// Moves the test clock on by dwMilliseconds, one millisecond at a time; after each step
// the nThreads driver and encoder threads have done all they can and what they posted
// has been served. False if they don't come to rest.
// Lets nThreads driver and encoder threads do all they can and serves what they post,
// until nothing moves; false if they don't come to rest.
inline bool SettleThreads(int nThreads)
{
    do {
        if (!CTestClock::WaitForIdleThreads(nThreads))
            return false;
    } while (DrainMessages());
    return true;
}

inline bool RunByTestClock(CTestClock& clock, DWORD dwMilliseconds, int nThreads)
{
    for (DWORD t = 0; t < dwMilliseconds; ++t) {
        clock.Advance(1);
        if (!SettleThreads(nThreads))
            return false;
    }
    return true;
}
