#include "driver/virtual/CStreamPump.h"

#include "driver/CVideoStream.h"
#include "platform/TickClock.h"
#include "platform/WinMessages.h"
#include "platform/WinThreads.h"

namespace {

constexpr unsigned long long kMillisecondsPerSecond = 1000;

} // namespace

CStreamPump::CStreamPump(std::shared_ptr<CVirtualBoard> pBoard, int nStream, HWND hWnd,
                         const tag_FRAMEFORMAT& format)
    : m_pBoard(std::move(pBoard)), m_nStream(nStream), m_hWnd(hWnd), m_format(format),
      m_nFirstCamera(m_pBoard->GetFirstCamera(nStream)), m_bImmediate(m_pBoard->GetPacing() == PACING_IMMEDIATE),
      m_nFramesPerSecond(m_pBoard->GetFramesPerSecond(format.nStandard))
{
}

CStreamPump::~CStreamPump()
{
    {
        std::lock_guard lock(m_mutexState);
        m_bExit = true;
        m_bStarted = false;
        m_bHasOrder = false;
        if (m_hWake != nullptr)
            SetEvent(m_hWake);
    }
    if (m_hThread != nullptr) {
        WaitForSingleObject(m_hThread, INFINITE);
        CloseHandle(m_hThread);
    }
    if (m_hWake != nullptr)
        CloseHandle(m_hWake);
}

bool CStreamPump::Run()
{
    m_hWake = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    if (m_hWake == nullptr)
        return false;
    m_hThread = CreateThread(nullptr, 0, &CStreamPump::ThreadMain, this, 0, nullptr);
    return m_hThread != nullptr;
}

void CStreamPump::Start()
{
    std::lock_guard lock(m_mutexState);
    if (m_bStarted)
        return;
    m_bStarted = true;
    m_dwStartTime = GetTickCount();
}

void CStreamPump::Stop()
{
    std::unique_lock lock(m_mutexState);
    m_bStarted = false;
    m_bHasOrder = false;
    m_drawingDone.wait(lock, [this] { return !m_bDrawing; });
    SetEvent(m_hWake);
}

bool CStreamPump::IsStarted() const
{
    std::lock_guard lock(m_mutexState);
    return m_bStarted;
}

bool CStreamPump::IsPending() const
{
    std::lock_guard lock(m_mutexState);
    return m_bHasOrder;
}

void CStreamPump::Order(const tag_VIDEOREAD& read, int nInputCamera)
{
    const DWORD dwNow = GetTickCount();
    std::lock_guard lock(m_mutexState);
    m_order = read;
    m_bHasOrder = true;
    m_dwDue = DueTime(dwNow, nInputCamera >= 0 && nInputCamera != read.nCamera);
    SetEvent(m_hWake);
}

DWORD CStreamPump::ThreadMain(LPVOID pParam)
{
    static_cast<CStreamPump*>(pParam)->Serve();
    return 0;
}

// Waits for an order whose frame is due and answers it, until the stream closes.
// The wake event is reset under the state lock before the state is looked at, and
// every change of state sets it under the same lock, so no change is missed.
void CStreamPump::Serve()
{
    std::unique_lock lock(m_mutexState);
    while (!m_bExit) {
        ResetEvent(m_hWake);
        DWORD dwWait = INFINITE;
        if (m_bStarted && m_bHasOrder) {
            const DWORD dwNow = GetTickCount();
            const LONG nLeft = static_cast<LONG>(m_dwDue - dwNow);
            if (m_bImmediate || nLeft <= 0) {
                DeliverPending(lock);
                continue;
            }
            dwWait = static_cast<DWORD>(nLeft);
        }
        lock.unlock();
        WaitForSingleObject(m_hWake, dwWait);
        lock.lock();
    }
}

// Draws the pending order's frame without holding the lock, so that a new order or a
// Stop isn't held up by the drawing. Stop waits for m_bDrawing to clear, and the lock
// is held from there to the post, so a frame whose stream was stopped meanwhile isn't
// announced.
void CStreamPump::DeliverPending(std::unique_lock<std::mutex>& lock)
{
    const tag_VIDEOREAD read = m_order;
    const DWORD dwFrameTime = m_bImmediate ? GetTickCount() : m_dwDue;
    m_bHasOrder = false;
    m_bDrawing = true;
    lock.unlock();
    m_pBoard->WriteFrame(m_nFirstCamera + read.nCamera, read.pBuffer, m_format, dwFrameTime);
    lock.lock();
    m_bDrawing = false;
    m_drawingDone.notify_all();
    if (m_bStarted) {
        PostMessage(m_hWnd, WM_ZN_FRAME, static_cast<WPARAM>(m_nStream), static_cast<LPARAM>(read.nCamera));
        m_pBoard->RecordDelivery(m_nStream);
    }
}

// The first frame boundary after dwNow, counted from the start; one frame later if the
// board has to switch its input to another camera, while the picture settles.
DWORD CStreamPump::DueTime(DWORD dwNow, bool bSettle) const
{
    const unsigned long long nFps = static_cast<unsigned long long>(m_nFramesPerSecond);
    const unsigned long long nSinceStart = static_cast<DWORD>(dwNow - m_dwStartTime);
    unsigned long long nFrame = nSinceStart * nFps / kMillisecondsPerSecond + 1;
    while (nFrame * kMillisecondsPerSecond / nFps <= nSinceStart)
        ++nFrame;
    if (bSettle)
        ++nFrame;
    return m_dwStartTime + static_cast<DWORD>(nFrame * kMillisecondsPerSecond / nFps);
}
