#include "platform/CVirtualWave.h"

#include "platform/WaveStreams.h"

#include <algorithm>
#include <mutex>

using namespace zndvr;

namespace {

// What an output keeps of its playing, at most: over an hour of format 0's sound.
constexpr std::size_t kMaxPlayedBytes = 64u << 20;
constexpr unsigned long long kMsPerSecond = 1000;

struct tag_VIRTUALSTATE {
    tag_VIRTUALWAVEDEVICE device;
    bool bOpen = false;
    std::vector<BYTE> played;
    WAVEFORMATEX playedFormat{};
    std::vector<tag_PLAYEDBUFFER> playedBuffers;
};

struct tag_VIRTUALWAVES {
    std::mutex mutex;
    std::vector<std::shared_ptr<tag_VIRTUALSTATE>> inputs;
    std::vector<std::shared_ptr<tag_VIRTUALSTATE>> outputs;
    bool bSystemDevices = true;
};

std::vector<std::shared_ptr<tag_VIRTUALSTATE>>& ListOf(tag_VIRTUALWAVES& waves, bool bInput)
{
    return bInput ? waves.inputs : waves.outputs;
}

void AddDefaults(tag_VIRTUALWAVES& waves)
{
    auto pIn = std::make_shared<tag_VIRTUALSTATE>();
    pIn->device.strName = "virtual-in";
    auto pOut = std::make_shared<tag_VIRTUALSTATE>();
    pOut->device.strName = "virtual-out";
    waves.inputs = {pIn};
    waves.outputs = {pOut};
    waves.bSystemDevices = true;
}

tag_VIRTUALWAVES& TheWaves()
{
    static tag_VIRTUALWAVES* s_pWaves = [] {
        auto* pWaves = new tag_VIRTUALWAVES;
        AddDefaults(*pWaves);
        return pWaves;
    }();
    return *s_pWaves;
}

std::shared_ptr<tag_VIRTUALSTATE> FindState(bool bInput, UINT uIndex)
{
    auto& list = ListOf(TheWaves(), bInput);
    return uIndex < list.size() ? list[uIndex] : nullptr;
}

// The platform clock's time of a frame counted from tEpoch: the first millisecond by
// which it has been played or recorded.
TimeMs TimeOfFrame(TimeMs tEpoch, unsigned long long nFrame, DWORD dwRate)
{
    return tEpoch + (nFrame * kMsPerSecond + dwRate - 1) / dwRate;
}

// An output that plays each buffer in the time its frames take at the format's rate,
// one after the other, and keeps the sound in its device's record.
class CVirtualWaveOut final : public CWaveStream {
public:
    CVirtualWaveOut(std::shared_ptr<tag_VIRTUALSTATE> pState, const WAVEFORMATEX& format, HWND hWnd)
        : CWaveStream(false, format, hWnd), m_pState(std::move(pState))
    {
    }

    ~CVirtualWaveOut() override
    {
        std::lock_guard lock(TheWaves().mutex);
        m_pState->bOpen = false;
    }

protected:
    void OnQueued(Lock&) override
    {
        const TimeMs tNow = GetNowMs();
        const TimeMs tDrained = TimeOfFrame(m_tEpoch, m_nScheduled, m_format.nSamplesPerSec);
        if (m_spans.empty() && tDrained <= tNow) {
            // The device had run dry and starts again now; a gap after sound is an underrun.
            if (m_bPlayed && tDrained < tNow)
                ++m_dwXruns;
            m_tEpoch = tNow;
            m_nScheduled = 0;
        }
        const unsigned long long nStart = m_nScheduled;
        m_nScheduled += FramesIn(m_format, m_queue.back()->dwBufferLength);
        m_spans.push_back({nStart, m_nScheduled});
        Reschedule();
    }

    void OnServe(Lock&) override
    {
        const TimeMs tNow = GetNowMs();
        while (!m_queue.empty() && TimeOfFrame(m_tEpoch, m_spans.front().nEnd, m_format.nSamplesPerSec) <= tNow) {
            Keep(*m_queue.front(), m_spans.front().nStart);
            m_spans.pop_front();
            m_bPlayed = true;
            CompleteFront(0);
        }
        Reschedule();
    }

    void OnReset(Lock&) override
    {
        m_spans.clear();
        m_nScheduled = 0;
        m_bPlayed = false;
        ScheduleServe(std::nullopt);
    }

private:
    struct tag_SPAN {
        unsigned long long nStart;
        unsigned long long nEnd;
    };

    void Reschedule()
    {
        if (m_queue.empty())
            ScheduleServe(std::nullopt);
        else
            ScheduleServe(TimeOfFrame(m_tEpoch, m_spans.front().nEnd, m_format.nSamplesPerSec));
    }

    void Keep(const WAVEHDR& hdr, unsigned long long nStartFrame)
    {
        const DWORD dwBytes = FramesIn(m_format, hdr.dwBufferLength) * m_format.nBlockAlign;
        std::lock_guard lock(TheWaves().mutex);
        tag_VIRTUALSTATE& state = *m_pState;
        if (state.played.size() + dwBytes > kMaxPlayedBytes)
            return;
        state.playedFormat = m_format;
        state.playedBuffers.push_back({static_cast<DWORD>(TimeOfFrame(m_tEpoch, nStartFrame, m_format.nSamplesPerSec)),
                                       static_cast<DWORD>(state.played.size()), dwBytes});
        state.played.insert(state.played.end(), hdr.lpData, hdr.lpData + dwBytes);
    }

    std::shared_ptr<tag_VIRTUALSTATE> m_pState;
    // The frames of each queued buffer, in step with the queue, counted from the moment
    // the device last started.
    std::deque<tag_SPAN> m_spans;
    TimeMs m_tEpoch = 0;
    unsigned long long m_nScheduled = 0;
    bool m_bPlayed = false;
};

// An input that records its signal at the format's rate while it is started; the frames
// that pass while no buffer is queued are lost.
class CVirtualWaveIn final : public CWaveStream {
public:
    CVirtualWaveIn(std::shared_ptr<tag_VIRTUALSTATE> pState, const WAVEFORMATEX& format, HWND hWnd)
        : CWaveStream(true, format, hWnd), m_pState(std::move(pState))
    {
    }

    ~CVirtualWaveIn() override
    {
        std::lock_guard lock(TheWaves().mutex);
        m_pState->bOpen = false;
    }

    bool OpenSignal(const tag_WAVESIGNAL& signal) { return m_signal.Open(signal, m_format); }

protected:
    void OnQueued(Lock&) override
    {
        if (m_bStarted && m_queue.size() == 1)
            SkipElapsed();
        Reschedule();
    }

    void OnStart(Lock&) override
    {
        m_tEpoch = GetNowMs();
        m_nCursor = 0;
        Reschedule();
    }

    void OnStop(Lock&) override
    {
        const unsigned long long nElapsed = Elapsed();
        if (!m_queue.empty() && nElapsed > m_nCursor) {
            const DWORD nFrames = static_cast<DWORD>(
                std::min<unsigned long long>(nElapsed - m_nCursor, FramesIn(m_format, m_queue.front()->dwBufferLength)));
            Record(nFrames);
        }
        ScheduleServe(std::nullopt);
    }

    void OnServe(Lock&) override
    {
        if (!m_bStarted)
            return;
        const unsigned long long nElapsed = Elapsed();
        while (!m_queue.empty()) {
            const DWORD nFrames = FramesIn(m_format, m_queue.front()->dwBufferLength);
            if (m_nCursor + nFrames > nElapsed)
                break;
            Record(nFrames);
        }
        Reschedule();
    }

private:
    unsigned long long Elapsed() const
    {
        return (GetNowMs() - m_tEpoch) * m_format.nSamplesPerSec / kMsPerSecond;
    }

    void Record(DWORD nFrames)
    {
        m_signal.Generate(reinterpret_cast<BYTE*>(m_queue.front()->lpData), nFrames);
        m_nCursor += nFrames;
        CompleteFront(nFrames * m_format.nBlockAlign);
    }

    // The sound that passed while no buffer was queued is gone: an overrun.
    void SkipElapsed()
    {
        const unsigned long long nElapsed = Elapsed();
        if (nElapsed <= m_nCursor)
            return;
        m_signal.Skip(static_cast<DWORD>(nElapsed - m_nCursor));
        m_nCursor = nElapsed;
        ++m_dwXruns;
    }

    void Reschedule()
    {
        if (!m_bStarted || m_queue.empty()) {
            ScheduleServe(std::nullopt);
            return;
        }
        const DWORD nFrames = FramesIn(m_format, m_queue.front()->dwBufferLength);
        ScheduleServe(TimeOfFrame(m_tEpoch, m_nCursor + nFrames, m_format.nSamplesPerSec));
    }

    std::shared_ptr<tag_VIRTUALSTATE> m_pState;
    CWaveSignal m_signal;
    TimeMs m_tEpoch = 0;
    // Frames recorded or lost since the start.
    unsigned long long m_nCursor = 0;
};

} // namespace

namespace zndvr {

std::vector<std::string> ListVirtualWave(bool bInput)
{
    tag_VIRTUALWAVES& waves = TheWaves();
    std::lock_guard lock(waves.mutex);
    std::vector<std::string> names;
    for (const auto& pState : ListOf(waves, bInput))
        names.push_back(pState->device.strName);
    return names;
}

bool VirtualWaveAccepts(bool bInput, UINT uIndex, const WAVEFORMATEX& format)
{
    std::lock_guard lock(TheWaves().mutex);
    std::shared_ptr<tag_VIRTUALSTATE> pState = FindState(bInput, uIndex);
    if (pState == nullptr)
        return false;
    const tag_VIRTUALWAVEDEVICE& device = pState->device;
    return format.nChannels <= device.wMaxChannels && format.nSamplesPerSec >= device.dwMinRate &&
           (device.dwMaxRate == 0 || format.nSamplesPerSec <= device.dwMaxRate);
}

MMRESULT OpenVirtualWave(bool bInput, UINT uIndex, const WAVEFORMATEX& format, HWND hWnd,
                         std::unique_ptr<CWaveStream>& pStream)
{
    std::shared_ptr<tag_VIRTUALSTATE> pState;
    tag_WAVESIGNAL signal;
    {
        std::lock_guard lock(TheWaves().mutex);
        pState = FindState(bInput, uIndex);
        if (pState == nullptr)
            return MMSYSERR_BADDEVICEID;
        if (pState->bOpen)
            return MMSYSERR_ALLOCATED;
        pState->bOpen = true;
        signal = pState->device.signal;
    }
    if (!bInput) {
        pStream = std::make_unique<CVirtualWaveOut>(pState, format, hWnd);
        return MMSYSERR_NOERROR;
    }
    auto pIn = std::make_unique<CVirtualWaveIn>(pState, format, hWnd);
    // A signal that can't be made (a file that can't be read) is a device that fails.
    if (!pIn->OpenSignal(signal))
        return MMSYSERR_ERROR;
    pStream = std::move(pIn);
    return MMSYSERR_NOERROR;
}

bool AreSystemWaveDevicesEnabled()
{
    std::lock_guard lock(TheWaves().mutex);
    return TheWaves().bSystemDevices;
}

} // namespace zndvr

void CVirtualWave::InstallDefault()
{
    std::lock_guard lock(TheWaves().mutex);
    AddDefaults(TheWaves());
}

void CVirtualWave::Clear()
{
    tag_VIRTUALWAVES& waves = TheWaves();
    std::lock_guard lock(waves.mutex);
    waves.inputs.clear();
    waves.outputs.clear();
}

UINT CVirtualWave::AddInput(const tag_VIRTUALWAVEDEVICE& device)
{
    tag_VIRTUALWAVES& waves = TheWaves();
    std::lock_guard lock(waves.mutex);
    auto pState = std::make_shared<tag_VIRTUALSTATE>();
    pState->device = device;
    waves.inputs.push_back(pState);
    return static_cast<UINT>(waves.inputs.size() - 1);
}

UINT CVirtualWave::AddOutput(const tag_VIRTUALWAVEDEVICE& device)
{
    tag_VIRTUALWAVES& waves = TheWaves();
    std::lock_guard lock(waves.mutex);
    auto pState = std::make_shared<tag_VIRTUALSTATE>();
    pState->device = device;
    waves.outputs.push_back(pState);
    return static_cast<UINT>(waves.outputs.size() - 1);
}

void CVirtualWave::EnableSystemDevices(bool bEnable)
{
    std::lock_guard lock(TheWaves().mutex);
    TheWaves().bSystemDevices = bEnable;
}

bool CVirtualWave::IsSystemBackendBuilt()
{
#if ZNDVR_HAVE_ALSA
    return true;
#else
    return false;
#endif
}

bool CVirtualWave::GetPlayed(UINT uDeviceID, std::vector<BYTE>& sound, WAVEFORMATEX& format,
                             std::vector<tag_PLAYEDBUFFER>* pBuffers)
{
    std::lock_guard lock(TheWaves().mutex);
    std::shared_ptr<tag_VIRTUALSTATE> pState = FindState(false, uDeviceID);
    if (pState == nullptr)
        return false;
    sound = pState->played;
    format = pState->playedFormat;
    if (pBuffers != nullptr)
        *pBuffers = pState->playedBuffers;
    return true;
}

void CVirtualWave::ClearPlayed(UINT uDeviceID)
{
    std::lock_guard lock(TheWaves().mutex);
    std::shared_ptr<tag_VIRTUALSTATE> pState = FindState(false, uDeviceID);
    if (pState == nullptr)
        return;
    pState->played.clear();
    pState->playedBuffers.clear();
}
