// Open wave devices behind the handles of WinWave.h: the queue of the caller's headers,
// the notices to the owner window, and the backends that move the sound (virtual or
// ALSA). Internal to the platform layer.
//
// Headers are touched only under the stream's lock, and finished ones are completed on
// the thread that owns the notice window, when it retrieves messages (a queue source of
// PlatformState.h): so the caller, which reads its headers' flags on that thread, never
// races the device.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/PlatformState.h"
#include "platform/WinWave.h"

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zndvr {

class CWaveStream {
public:
    CWaveStream(bool bInput, const WAVEFORMATEX& format, HWND hWnd);
    virtual ~CWaveStream();
    CWaveStream(const CWaveStream&) = delete;
    CWaveStream& operator=(const CWaveStream&) = delete;

    // Binds the stream to its handle (the wParam of notices) and to the thread that gets
    // them: the window's, or the calling thread's without a window.
    void Attach(std::uintptr_t nHandle);
    // Called once before the stream is destroyed, without any lock held: ends the
    // backend's thread if it has one and takes the queue source away.
    virtual void Shutdown();

    MMRESULT Queue(LPWAVEHDR pHdr);
    MMRESULT Start();
    MMRESULT Stop();
    MMRESULT Reset();
    bool HasQueued();
    DWORD GetXrunCount();
    void SetVolume(DWORD dwVolume);
    DWORD GetVolume();

protected:
    using Lock = std::unique_lock<std::mutex>;

    // Backend hooks, called with m_mutex held (the lock is passed where the hook may
    // wait). OnServe runs on the owner thread when the stream has fallen due.
    virtual void OnQueued(Lock& lock) = 0;
    virtual void OnStart(Lock& lock);
    // Input: fill the head buffer with what has been recorded of it, before it is returned.
    virtual void OnStop(Lock& lock);
    virtual void OnReset(Lock& lock);
    virtual void OnServe(Lock& lock) = 0;

    // Takes the head buffer off the queue, marks it done and posts its notice.
    void CompleteFront(DWORD dwBytesRecorded);
    // When OnServe should next run; nothing for never.
    void ScheduleServe(std::optional<TimeMs> tDue);

    std::mutex m_mutex;
    std::deque<LPWAVEHDR> m_queue;
    const bool m_bInput;
    const WAVEFORMATEX m_format;
    bool m_bStarted = false;
    DWORD m_dwXruns = 0;
    DWORD m_dwVolume = 0xFFFFFFFF;

private:
    void Serve();

    const HWND m_hWnd;
    std::uintptr_t m_nHandle = 0;
    std::uint64_t m_nSource = 0;
};

// The frames a format's buffer of nBytes holds.
DWORD FramesIn(const WAVEFORMATEX& format, DWORD nBytes);

// Virtual devices (CVirtualWave.cpp): the names in id order, the format test, opening.
std::vector<std::string> ListVirtualWave(bool bInput);
bool VirtualWaveAccepts(bool bInput, UINT uIndex, const WAVEFORMATEX& format);
// MMSYSERR_ALLOCATED while the device is open elsewhere.
MMRESULT OpenVirtualWave(bool bInput, UINT uIndex, const WAVEFORMATEX& format, HWND hWnd,
                         std::unique_ptr<CWaveStream>& pStream);
void ReleaseVirtualWave(bool bInput, UINT uIndex);
bool AreSystemWaveDevicesEnabled();

// ALSA devices (AlsaWaveStreams.cpp), present only where the library is built with ALSA.
std::vector<std::string> ListAlsaWave(bool bInput);
bool AlsaWaveAccepts(bool bInput, const std::string& strName, const WAVEFORMATEX& format);
MMRESULT OpenAlsaWave(bool bInput, const std::string& strName, const WAVEFORMATEX& format, HWND hWnd,
                      std::unique_ptr<CWaveStream>& pStream);

} // namespace zndvr
