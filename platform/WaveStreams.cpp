#include "platform/WaveStreams.h"

#include "platform/WinMessages.h"
#include "platform/WinThreads.h"

namespace zndvr {

DWORD FramesIn(const WAVEFORMATEX& format, DWORD nBytes)
{
    return format.nBlockAlign == 0 ? 0 : nBytes / format.nBlockAlign;
}

CWaveStream::CWaveStream(bool bInput, const WAVEFORMATEX& format, HWND hWnd)
    : m_bInput(bInput), m_format(format), m_hWnd(hWnd)
{
}

CWaveStream::~CWaveStream() = default;

void CWaveStream::Attach(std::uintptr_t nHandle)
{
    m_nHandle = nHandle;
    const DWORD dwOwner = m_hWnd != nullptr ? GetWindowThreadProcessId(m_hWnd, nullptr) : GetCurrentThreadId();
    m_nSource = AddQueueSource(dwOwner, [this] { Serve(); });
}

void CWaveStream::Shutdown()
{
    RemoveQueueSource(m_nSource);
}

void CWaveStream::Serve()
{
    Lock lock(m_mutex);
    OnServe(lock);
}

MMRESULT CWaveStream::Queue(LPWAVEHDR pHdr)
{
    Lock lock(m_mutex);
    if ((pHdr->dwFlags & WHDR_PREPARED) == 0)
        return WAVERR_UNPREPARED;
    if ((pHdr->dwFlags & WHDR_INQUEUE) != 0)
        return WAVERR_STILLPLAYING;
    pHdr->dwFlags = (pHdr->dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    m_queue.push_back(pHdr);
    OnQueued(lock);
    return MMSYSERR_NOERROR;
}

MMRESULT CWaveStream::Start()
{
    Lock lock(m_mutex);
    if (!m_bStarted) {
        m_bStarted = true;
        OnStart(lock);
    }
    return MMSYSERR_NOERROR;
}

MMRESULT CWaveStream::Stop()
{
    Lock lock(m_mutex);
    if (m_bStarted) {
        OnStop(lock);
        m_bStarted = false;
    }
    return MMSYSERR_NOERROR;
}

MMRESULT CWaveStream::Reset()
{
    Lock lock(m_mutex);
    if (m_bInput && m_bStarted)
        OnStop(lock);
    m_bStarted = false;
    OnReset(lock);
    while (!m_queue.empty())
        CompleteFront(0);
    return MMSYSERR_NOERROR;
}

bool CWaveStream::HasQueued()
{
    Lock lock(m_mutex);
    return !m_queue.empty();
}

DWORD CWaveStream::GetXrunCount()
{
    Lock lock(m_mutex);
    return m_dwXruns;
}

void CWaveStream::SetVolume(DWORD dwVolume)
{
    Lock lock(m_mutex);
    m_dwVolume = dwVolume;
}

DWORD CWaveStream::GetVolume()
{
    Lock lock(m_mutex);
    return m_dwVolume;
}

void CWaveStream::OnStart(Lock&) {}

void CWaveStream::OnStop(Lock&) {}

void CWaveStream::OnReset(Lock&) {}

void CWaveStream::CompleteFront(DWORD dwBytesRecorded)
{
    LPWAVEHDR pHdr = m_queue.front();
    m_queue.pop_front();
    if (m_bInput)
        pHdr->dwBytesRecorded = dwBytesRecorded;
    pHdr->dwFlags = (pHdr->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
    if (m_hWnd != nullptr)
        PostMessage(m_hWnd, m_bInput ? MM_WIM_DATA : MM_WOM_DONE, m_nHandle, reinterpret_cast<LPARAM>(pHdr));
}

void CWaveStream::ScheduleServe(std::optional<TimeMs> tDue)
{
    SetQueueSourceDue(m_nSource, tDue);
}

} // namespace zndvr
