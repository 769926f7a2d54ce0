// The machine's sound devices through ALSA (libasound2). Each open device has a worker
// thread of the platform layer that does the blocking reads or writes; the headers are
// filled and completed on the owner's thread from what the worker moved. Devices
// without timing of their own (ALSA's "null") are held to the platform clock, so they
// behave like a sound card, also under a test clock.
#include "platform/PlatformState.h"
#include "platform/WaveStreams.h"
#include "platform/WinThreads.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace zndvr {

namespace {

// How far ahead of the sound ALSA's buffer runs, and the piece the worker moves at once.
constexpr unsigned kLatencyUs = 100000;
constexpr DWORD kChunksPerSecond = 50;
// The most a capture keeps while no buffer is queued.
constexpr DWORD kCaptureRingSeconds = 1;
constexpr unsigned long long kMsPerSecond = 1000;

// ALSA reports its failures on standard error by default; ours are results instead.
void IgnoreAlsaError(const char*, int, const char*, int, const char*, ...) {}

void QuietAlsa()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] { snd_lib_error_set_handler(&IgnoreAlsaError); });
}

snd_pcm_t* OpenPcm(bool bInput, const std::string& strName, const WAVEFORMATEX& format, int nMode)
{
    QuietAlsa();
    snd_pcm_t* pPcm = nullptr;
    if (snd_pcm_open(&pPcm, strName.c_str(), bInput ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK, nMode) < 0)
        return nullptr;
    const snd_pcm_format_t nFormat = format.wBitsPerSample == 8 ? SND_PCM_FORMAT_U8 : SND_PCM_FORMAT_S16_LE;
    if (snd_pcm_set_params(pPcm, nFormat, SND_PCM_ACCESS_RW_INTERLEAVED, format.nChannels, format.nSamplesPerSec,
                           1, kLatencyUs) < 0) {
        snd_pcm_close(pPcm);
        return nullptr;
    }
    return pPcm;
}

class CAlsaWaveStream final : public CWaveStream {
public:
    CAlsaWaveStream(bool bInput, const WAVEFORMATEX& format, HWND hWnd, snd_pcm_t* pPcm)
        : CWaveStream(bInput, format, hWnd), m_pPcm(pPcm), m_bPaced(snd_pcm_type(pPcm) == SND_PCM_TYPE_NULL),
          m_nChunkFrames(std::max<DWORD>(format.nSamplesPerSec / kChunksPerSecond, 1))
    {
    }

    ~CAlsaWaveStream() override { snd_pcm_close(m_pPcm); }

    // Buffers and the worker; false if either can't be had.
    bool Run()
    {
        m_chunk.resize(static_cast<std::size_t>(m_nChunkFrames) * m_format.nBlockAlign);
        if (m_bInput)
            m_ring.resize(static_cast<std::size_t>(m_format.nAvgBytesPerSec) * kCaptureRingSeconds);
        m_hWake = CreateEvent(nullptr, TRUE, FALSE, nullptr);
        m_hExit = CreateEvent(nullptr, TRUE, FALSE, nullptr);
        if (m_hWake != nullptr && m_hExit != nullptr)
            m_hThread = CreateThread(nullptr, 0, &CAlsaWaveStream::ThreadMain, this, 0, nullptr);
        return m_hThread != nullptr;
    }

    void Shutdown() override
    {
        {
            Lock lock(m_mutex);
            m_bExit = true;
            if (m_hWake != nullptr)
                SetEvent(m_hWake);
            if (m_hExit != nullptr)
                SetEvent(m_hExit);
        }
        if (m_hThread != nullptr) {
            WaitForSingleObject(m_hThread, INFINITE);
            CloseHandle(m_hThread);
        }
        for (HANDLE hEvent : {m_hWake, m_hExit}) {
            if (hEvent != nullptr)
                CloseHandle(hEvent);
        }
        CWaveStream::Shutdown();
    }

protected:
    void OnQueued(Lock&) override { SetEvent(m_hWake); }

    void OnStart(Lock&) override { Restart(); }

    void OnStop(Lock&) override
    {
        TakeCaptured();
        if (!m_queue.empty() && m_nFrontFill > 0)
            CompleteFront(m_nFrontFill);
        m_nFrontFill = 0;
        m_nRingFill = 0;
        Restart();
    }

    void OnReset(Lock&) override
    {
        m_nWrittenHeaders = 0;
        m_nWrittenBytes = 0;
        m_nFrontFill = 0;
        m_nRingFill = 0;
        Restart();
    }

    void OnServe(Lock&) override
    {
        if (m_bInput) {
            TakeCaptured();
            return;
        }
        for (; m_nWrittenHeaders > 0; --m_nWrittenHeaders)
            CompleteFront(0);
    }

private:
    static DWORD ThreadMain(LPVOID pParam)
    {
        static_cast<CAlsaWaveStream*>(pParam)->Work();
        return 0;
    }

    // A new generation: the worker drops what the device holds and starts afresh.
    void Restart()
    {
        ++m_nGeneration;
        SetEvent(m_hWake);
    }

    // The wake event is reset under the lock before the state is looked at, and every
    // change of state sets it under the same lock, so no change is missed.
    void Work()
    {
        Lock lock(m_mutex);
        // A start made before the worker ran finds the device prepared already.
        unsigned nSeen = m_nGeneration;
        m_tPaceStart = GetNowMs();
        while (!m_bExit) {
            ResetEvent(m_hWake);
            if (nSeen != m_nGeneration) {
                nSeen = m_nGeneration;
                lock.unlock();
                snd_pcm_drop(m_pPcm);
                snd_pcm_prepare(m_pPcm);
                lock.lock();
                m_tPaceStart = GetNowMs();
                m_nPacedFrames = 0;
                continue;
            }
            const bool bMoved = m_bInput ? ReadChunk(lock, nSeen) : WriteChunk(lock, nSeen);
            if (!bMoved) {
                lock.unlock();
                WaitForSingleObject(m_hWake, INFINITE);
                lock.lock();
                m_tPaceStart = GetNowMs();
                m_nPacedFrames = 0;
            }
        }
    }

    // Copies the next piece of the queued sound and plays it; false when there is none.
    bool WriteChunk(Lock& lock, unsigned nGeneration)
    {
        if (m_nWrittenHeaders >= m_queue.size())
            return false;
        const WAVEHDR& hdr = *m_queue[m_nWrittenHeaders];
        const DWORD dwLength = FramesIn(m_format, hdr.dwBufferLength) * m_format.nBlockAlign;
        const DWORD dwBytes = std::min<DWORD>(dwLength - m_nWrittenBytes, static_cast<DWORD>(m_chunk.size()));
        std::memcpy(m_chunk.data(), hdr.lpData + m_nWrittenBytes, dwBytes);
        lock.unlock();
        DWORD dwXruns = 0;
        Transfer(dwBytes / m_format.nBlockAlign, dwXruns);
        lock.lock();
        m_dwXruns += dwXruns;
        if (nGeneration != m_nGeneration)
            return true;
        m_nWrittenBytes += dwBytes;
        if (m_nWrittenBytes >= dwLength) {
            ++m_nWrittenHeaders;
            m_nWrittenBytes = 0;
            ScheduleServe(GetNowMs());
        }
        return true;
    }

    // Records a piece into the ring while started; false when stopped.
    bool ReadChunk(Lock& lock, unsigned nGeneration)
    {
        if (!m_bStarted)
            return false;
        lock.unlock();
        DWORD dwXruns = 0;
        const DWORD dwFrames = Transfer(m_nChunkFrames, dwXruns);
        lock.lock();
        m_dwXruns += dwXruns;
        if (nGeneration != m_nGeneration)
            return true;
        const std::size_t nBytes = static_cast<std::size_t>(dwFrames) * m_format.nBlockAlign;
        const std::size_t nRoom = m_ring.size() - m_nRingFill;
        if (nBytes > nRoom)
            ++m_dwXruns;
        const std::size_t nKept = std::min(nBytes, nRoom);
        std::memcpy(m_ring.data() + m_nRingFill, m_chunk.data(), nKept);
        m_nRingFill += nKept;
        ScheduleServe(GetNowMs());
        return true;
    }

    // One read or write of the chunk buffer, with under- and overruns recovered; the
    // frames moved. A device that keeps failing is taken as having moved the piece, so
    // that queued buffers still come back.
    DWORD Transfer(DWORD dwFrames, DWORD& dwXruns)
    {
        DWORD dwDone = 0;
        int nFailures = 0;
        while (dwDone < dwFrames && nFailures < 2) {
            BYTE* pData = m_chunk.data() + static_cast<std::size_t>(dwDone) * m_format.nBlockAlign;
            const snd_pcm_sframes_t nMoved =
                m_bInput ? snd_pcm_readi(m_pPcm, pData, dwFrames - dwDone) : snd_pcm_writei(m_pPcm, pData, dwFrames - dwDone);
            if (nMoved >= 0) {
                dwDone += static_cast<DWORD>(nMoved);
                continue;
            }
            if (nMoved == -EPIPE)
                ++dwXruns;
            if (snd_pcm_recover(m_pPcm, static_cast<int>(nMoved), 1) < 0)
                ++nFailures;
        }
        if (m_bPaced)
            Pace(dwFrames);
        return m_bInput ? dwDone : dwFrames;
    }

    // Holds a device without timing to the platform clock; the wait ends early when
    // the stream closes.
    void Pace(DWORD dwFrames)
    {
        m_nPacedFrames += dwFrames;
        const TimeMs tDue = m_tPaceStart + m_nPacedFrames * kMsPerSecond / m_format.nSamplesPerSec;
        const TimeMs tNow = GetNowMs();
        if (tDue > tNow)
            WaitForSingleObject(m_hExit, static_cast<DWORD>(tDue - tNow));
    }

    // Moves recorded sound from the ring into the queued buffers, completing full ones.
    void TakeCaptured()
    {
        std::size_t nTaken = 0;
        while (!m_queue.empty() && nTaken < m_nRingFill) {
            WAVEHDR& hdr = *m_queue.front();
            const DWORD dwLength = FramesIn(m_format, hdr.dwBufferLength) * m_format.nBlockAlign;
            const std::size_t nBytes = std::min<std::size_t>(dwLength - m_nFrontFill, m_nRingFill - nTaken);
            std::memcpy(hdr.lpData + m_nFrontFill, m_ring.data() + nTaken, nBytes);
            nTaken += nBytes;
            m_nFrontFill += static_cast<DWORD>(nBytes);
            if (m_nFrontFill >= dwLength) {
                CompleteFront(m_nFrontFill);
                m_nFrontFill = 0;
            }
        }
        std::memmove(m_ring.data(), m_ring.data() + nTaken, m_nRingFill - nTaken);
        m_nRingFill -= nTaken;
    }

    snd_pcm_t* const m_pPcm;
    const bool m_bPaced;
    const DWORD m_nChunkFrames;
    HANDLE m_hThread = nullptr;
    HANDLE m_hWake = nullptr;
    HANDLE m_hExit = nullptr;
    bool m_bExit = false;
    unsigned m_nGeneration = 0;
    std::vector<BYTE> m_chunk;
    // Playing: the queued headers the worker has wholly written, and the bytes of the next.
    std::size_t m_nWrittenHeaders = 0;
    DWORD m_nWrittenBytes = 0;
    // Recording: sound read and not yet in a buffer, and the bytes in the head buffer.
    std::vector<BYTE> m_ring;
    std::size_t m_nRingFill = 0;
    DWORD m_nFrontFill = 0;
    TimeMs m_tPaceStart = 0;
    unsigned long long m_nPacedFrames = 0;
};

} // namespace

namespace {

std::vector<std::string> FindAlsaPcms(bool bInput)
{
    QuietAlsa();
    std::vector<std::string> names;
    void** ppHints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &ppHints) < 0)
        return names;
    const char* pszWanted = bInput ? "Input" : "Output";
    for (void** ppHint = ppHints; *ppHint != nullptr; ++ppHint) {
        std::unique_ptr<char, decltype(&std::free)> pName(snd_device_name_get_hint(*ppHint, "NAME"), &std::free);
        std::unique_ptr<char, decltype(&std::free)> pIo(snd_device_name_get_hint(*ppHint, "IOID"), &std::free);
        // A hint without a direction serves both.
        if (pName != nullptr && (pIo == nullptr || std::strcmp(pIo.get(), pszWanted) == 0) &&
            std::find(names.begin(), names.end(), pName.get()) == names.end())
            names.emplace_back(pName.get());
    }
    snd_device_name_free_hint(ppHints);
    return names;
}

} // namespace

// ALSA reads its whole configuration for the hints, so they are asked once: device ids
// then stay the same for the life of the process, and asking for a device's caps at every
// frame costs nothing.
std::vector<std::string> ListAlsaWave(bool bInput)
{
    static std::once_flag s_once;
    static std::vector<std::string>* s_pNames[2];
    std::call_once(s_once, [] {
        s_pNames[0] = new std::vector<std::string>(FindAlsaPcms(false));
        s_pNames[1] = new std::vector<std::string>(FindAlsaPcms(true));
    });
    return *s_pNames[bInput ? 1 : 0];
}

bool AlsaWaveAccepts(bool bInput, const std::string& strName, const WAVEFORMATEX& format)
{
    snd_pcm_t* pPcm = OpenPcm(bInput, strName, format, SND_PCM_NONBLOCK);
    if (pPcm == nullptr)
        return false;
    snd_pcm_close(pPcm);
    return true;
}

MMRESULT OpenAlsaWave(bool bInput, const std::string& strName, const WAVEFORMATEX& format, HWND hWnd,
                      std::unique_ptr<CWaveStream>& pStream)
{
    snd_pcm_t* pPcm = OpenPcm(bInput, strName, format, 0);
    if (pPcm == nullptr)
        return MMSYSERR_ALLOCATED;
    auto pAlsa = std::make_unique<CAlsaWaveStream>(bInput, format, hWnd, pPcm);
    if (!pAlsa->Run()) {
        pAlsa->Shutdown();
        return MMSYSERR_NOMEM;
    }
    pStream = std::move(pAlsa);
    return MMSYSERR_NOERROR;
}

} // namespace zndvr
