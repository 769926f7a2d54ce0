// The driver thread of one open stream: it takes the pending read order when its
// frame is due, draws the camera's frame into the order's buffer and posts the frame
// message to the stream's window. Owned by its CVideoStream; Start, Stop and Order
// come from the stream's thread, the drawing and posting happen on the driver thread.
#pragma once

#include "platform/PrivateHeader.h"

#include "driver/DriverRecords.h"
#include "driver/virtual/CVirtualBoard.h"
#include "driver/virtual/FrameSources.h"
#include "platform/WinTypes.h"

#include <condition_variable>
#include <memory>
#include <mutex>

class CStreamPump {
public:
    CStreamPump(std::shared_ptr<CVirtualBoard> pBoard, int nStream, HWND hWnd, const tag_FRAMEFORMAT& format);
    // Ends the thread; no frame is drawn or posted once it returns.
    ~CStreamPump();
    CStreamPump(const CStreamPump&) = delete;
    CStreamPump& operator=(const CStreamPump&) = delete;

    // Makes the driver thread; false if it can't be made.
    bool Run();
    // Frames are timed from the start: the frame period's boundaries count from here.
    void Start();
    // Drops the pending order and waits for a frame being drawn; nothing is posted
    // after it returns.
    void Stop();
    bool IsStarted() const;
    // Whether an order waits to be answered.
    bool IsPending() const;
    // Replaces the pending order. nInputCamera is the camera the board's input shows
    // now (-1: none yet); reading another one waits a frame longer while it settles.
    void Order(const tag_VIDEOREAD& read, int nInputCamera);

private:
    static DWORD ThreadMain(LPVOID pParam);
    void Serve();
    void DeliverPending(std::unique_lock<std::mutex>& lock);
    DWORD DueTime(DWORD dwNow, bool bSettle) const;

    std::shared_ptr<CVirtualBoard> m_pBoard;
    const int m_nStream;
    const HWND m_hWnd;
    const tag_FRAMEFORMAT m_format;
    const int m_nFirstCamera;
    const bool m_bImmediate;
    const int m_nFramesPerSecond;

    HANDLE m_hThread = nullptr;
    HANDLE m_hWake = nullptr;

    mutable std::mutex m_mutexState;
    std::condition_variable m_drawingDone;
    bool m_bExit = false;
    bool m_bStarted = false;
    bool m_bHasOrder = false;
    bool m_bDrawing = false;
    DWORD m_dwStartTime = 0;
    DWORD m_dwDue = 0;
    tag_VIDEOREAD m_order{};
};
