#include "platform/WinWave.h"

#include "platform/WaveStreams.h"
#include "platform/WinMessages.h"

#include <cstring>
#include <mutex>
#include <unordered_map>

using namespace zndvr;

namespace {

constexpr DWORD kCallbackMask = 0x00070000;
constexpr UINT kDriverVersion = 0x0100;
constexpr WORD kMaxChannels = 2;

// A device of a list: a virtual one by its index, or an ALSA one by its name.
struct tag_DEVICEREF {
    bool bVirtual = true;
    UINT uIndex = 0;
    std::string strName;
};

struct tag_OPENSTREAM {
    std::shared_ptr<CWaveStream> pStream;
    bool bInput = false;
};

// The open devices by handle. Handles count up and are never reused.
struct tag_HANDLES {
    std::mutex mutex;
    std::unordered_map<std::uintptr_t, tag_OPENSTREAM> streams;
    std::uintptr_t nNext = 0x1000;
};

tag_HANDLES& TheHandles()
{
    static tag_HANDLES* s_pHandles = new tag_HANDLES;
    return *s_pHandles;
}

// Virtual devices first, then the machine's; names longer than a caps name can hold
// can't be asked for by name and are left out.
std::vector<tag_DEVICEREF> ListDevices(bool bInput)
{
    std::vector<tag_DEVICEREF> devices;
    std::vector<std::string> virtualNames = ListVirtualWave(bInput);
    for (UINT u = 0; u < virtualNames.size(); ++u)
        devices.push_back({true, u, virtualNames[u]});
#if ZNDVR_HAVE_ALSA
    if (AreSystemWaveDevicesEnabled()) {
        for (std::string& strName : ListAlsaWave(bInput)) {
            if (strName.size() < static_cast<std::size_t>(MAXPNAMELEN))
                devices.push_back({false, 0, std::move(strName)});
        }
    }
#endif
    return devices;
}

bool FindDevice(bool bInput, UINT uDeviceID, tag_DEVICEREF& device)
{
    std::vector<tag_DEVICEREF> devices = ListDevices(bInput);
    if (uDeviceID >= devices.size())
        return false;
    device = devices[uDeviceID];
    return true;
}

bool IsPcmFormat(const WAVEFORMATEX& format)
{
    return format.wFormatTag == WAVE_FORMAT_PCM && format.nChannels >= 1 && format.nChannels <= kMaxChannels &&
           (format.wBitsPerSample == 8 || format.wBitsPerSample == 16) && format.nSamplesPerSec > 0 &&
           format.nBlockAlign == format.nChannels * format.wBitsPerSample / 8 &&
           format.nAvgBytesPerSec == format.nSamplesPerSec * format.nBlockAlign;
}

bool Accepts(bool bInput, const tag_DEVICEREF& device, const WAVEFORMATEX& format)
{
    if (device.bVirtual)
        return VirtualWaveAccepts(bInput, device.uIndex, format);
#if ZNDVR_HAVE_ALSA
    return AlsaWaveAccepts(bInput, device.strName, format);
#else
    return false;
#endif
}

MMRESULT OpenStream(bool bInput, const tag_DEVICEREF& device, const WAVEFORMATEX& format, HWND hWnd,
                    std::uintptr_t& nHandle)
{
    std::unique_ptr<CWaveStream> pStream;
    MMRESULT nResult = MMSYSERR_NODRIVER;
    if (device.bVirtual)
        nResult = OpenVirtualWave(bInput, device.uIndex, format, hWnd, pStream);
#if ZNDVR_HAVE_ALSA
    else
        nResult = OpenAlsaWave(bInput, device.strName, format, hWnd, pStream);
#endif
    if (nResult != MMSYSERR_NOERROR)
        return nResult;
    tag_HANDLES& handles = TheHandles();
    {
        std::lock_guard lock(handles.mutex);
        nHandle = handles.nNext++;
    }
    pStream->Attach(nHandle);
    std::lock_guard lock(handles.mutex);
    handles.streams[nHandle] = {std::shared_ptr<CWaveStream>(std::move(pStream)), bInput};
    return MMSYSERR_NOERROR;
}

// Opening in either direction: the arguments checked, then the device or, for
// WAVE_MAPPER, the first device that takes the format and opens.
MMRESULT OpenDevice(bool bInput, std::uintptr_t* pHandle, UINT uDeviceID, const WAVEFORMATEX* pwfx,
                    DWORD_PTR dwCallback, DWORD fdwOpen)
{
    if (pwfx == nullptr)
        return MMSYSERR_INVALPARAM;
    const bool bQuery = (fdwOpen & WAVE_FORMAT_QUERY) != 0;
    const DWORD dwCallbackKind = fdwOpen & kCallbackMask;
    if (dwCallbackKind != CALLBACK_NULL && dwCallbackKind != CALLBACK_WINDOW)
        return MMSYSERR_INVALFLAG;
    HWND hWnd = dwCallbackKind == CALLBACK_WINDOW ? reinterpret_cast<HWND>(dwCallback) : nullptr;
    if (!bQuery && (pHandle == nullptr || (dwCallbackKind == CALLBACK_WINDOW && !IsWindow(hWnd))))
        return MMSYSERR_INVALPARAM;
    if (!IsPcmFormat(*pwfx))
        return WAVERR_BADFORMAT;
    std::vector<tag_DEVICEREF> candidates;
    if (uDeviceID == WAVE_MAPPER) {
        candidates = ListDevices(bInput);
    } else {
        tag_DEVICEREF device;
        if (!FindDevice(bInput, uDeviceID, device))
            return MMSYSERR_BADDEVICEID;
        candidates.push_back(device);
    }
    MMRESULT nResult = candidates.empty() ? MMSYSERR_NODRIVER : WAVERR_BADFORMAT;
    for (const tag_DEVICEREF& device : candidates) {
        if (!Accepts(bInput, device, *pwfx))
            continue;
        if (bQuery)
            return MMSYSERR_NOERROR;
        nResult = OpenStream(bInput, device, *pwfx, hWnd, *pHandle);
        if (nResult == MMSYSERR_NOERROR)
            return nResult;
    }
    return nResult;
}

std::shared_ptr<CWaveStream> FindStream(std::uintptr_t nHandle, bool bInput)
{
    tag_HANDLES& handles = TheHandles();
    std::lock_guard lock(handles.mutex);
    auto it = handles.streams.find(nHandle);
    if (it == handles.streams.end() || it->second.bInput != bInput)
        return nullptr;
    return it->second.pStream;
}

MMRESULT CloseDevice(std::uintptr_t nHandle, bool bInput)
{
    std::shared_ptr<CWaveStream> pStream = FindStream(nHandle, bInput);
    if (pStream == nullptr)
        return MMSYSERR_INVALHANDLE;
    if (pStream->HasQueued())
        return WAVERR_STILLPLAYING;
    {
        tag_HANDLES& handles = TheHandles();
        std::lock_guard lock(handles.mutex);
        handles.streams.erase(nHandle);
    }
    pStream->Shutdown();
    return MMSYSERR_NOERROR;
}

MMRESULT CheckHeader(LPWAVEHDR pwh, UINT cbwh)
{
    return pwh == nullptr || cbwh < sizeof(WAVEHDR) || pwh->lpData == nullptr ? MMSYSERR_INVALPARAM
                                                                             : MMSYSERR_NOERROR;
}

MMRESULT PrepareHeader(std::uintptr_t nHandle, bool bInput, LPWAVEHDR pwh, UINT cbwh)
{
    if (FindStream(nHandle, bInput) == nullptr)
        return MMSYSERR_INVALHANDLE;
    if (MMRESULT nResult = CheckHeader(pwh, cbwh); nResult != MMSYSERR_NOERROR)
        return nResult;
    pwh->dwFlags |= WHDR_PREPARED;
    return MMSYSERR_NOERROR;
}

MMRESULT UnprepareHeader(std::uintptr_t nHandle, bool bInput, LPWAVEHDR pwh, UINT cbwh)
{
    if (FindStream(nHandle, bInput) == nullptr)
        return MMSYSERR_INVALHANDLE;
    if (MMRESULT nResult = CheckHeader(pwh, cbwh); nResult != MMSYSERR_NOERROR)
        return nResult;
    if ((pwh->dwFlags & WHDR_INQUEUE) != 0)
        return WAVERR_STILLPLAYING;
    pwh->dwFlags &= ~WHDR_PREPARED;
    return MMSYSERR_NOERROR;
}

MMRESULT QueueHeader(std::uintptr_t nHandle, bool bInput, LPWAVEHDR pwh, UINT cbwh)
{
    std::shared_ptr<CWaveStream> pStream = FindStream(nHandle, bInput);
    if (pStream == nullptr)
        return MMSYSERR_INVALHANDLE;
    if (MMRESULT nResult = CheckHeader(pwh, cbwh); nResult != MMSYSERR_NOERROR)
        return nResult;
    return pStream->Queue(pwh);
}

template <typename TCaps>
MMRESULT GetCaps(bool bInput, UINT_PTR uDeviceID, TCaps* pCaps, UINT cbCaps)
{
    if (pCaps == nullptr || cbCaps < sizeof(TCaps))
        return MMSYSERR_INVALPARAM;
    tag_DEVICEREF device;
    if (uDeviceID > 0xFFFFFFFFu || !FindDevice(bInput, static_cast<UINT>(uDeviceID), device))
        return MMSYSERR_BADDEVICEID;
    std::memset(pCaps, 0, sizeof(TCaps));
    pCaps->vDriverVersion = kDriverVersion;
    std::memcpy(pCaps->szPname, device.strName.data(), device.strName.size());
    pCaps->wChannels = kMaxChannels;
    return MMSYSERR_NOERROR;
}

std::uintptr_t ToKey(const void* pHandle)
{
    return reinterpret_cast<std::uintptr_t>(pHandle);
}

MMRESULT GetXruns(std::uintptr_t nHandle, bool bInput, LPDWORD pdwCount)
{
    std::shared_ptr<CWaveStream> pStream = FindStream(nHandle, bInput);
    if (pStream == nullptr)
        return MMSYSERR_INVALHANDLE;
    if (pdwCount == nullptr)
        return MMSYSERR_INVALPARAM;
    *pdwCount = pStream->GetXrunCount();
    return MMSYSERR_NOERROR;
}

template <typename TCall>
MMRESULT WithStream(std::uintptr_t nHandle, bool bInput, TCall fnCall)
{
    std::shared_ptr<CWaveStream> pStream = FindStream(nHandle, bInput);
    return pStream == nullptr ? MMSYSERR_INVALHANDLE : fnCall(*pStream);
}

} // namespace

UINT waveOutGetNumDevs()
{
    return static_cast<UINT>(ListDevices(false).size());
}

MMRESULT waveOutGetDevCaps(UINT_PTR uDeviceID, LPWAVEOUTCAPS pwoc, UINT cbwoc)
{
    MMRESULT nResult = GetCaps(false, uDeviceID, pwoc, cbwoc);
    if (nResult == MMSYSERR_NOERROR)
        pwoc->dwSupport = WAVECAPS_VOLUME;
    return nResult;
}

MMRESULT waveOutOpen(LPHWAVEOUT phwo, UINT uDeviceID, const WAVEFORMATEX* pwfx, DWORD_PTR dwCallback,
                     DWORD_PTR, DWORD fdwOpen)
{
    std::uintptr_t nHandle = 0;
    MMRESULT nResult = OpenDevice(false, phwo == nullptr ? nullptr : &nHandle, uDeviceID, pwfx, dwCallback, fdwOpen);
    if (nResult == MMSYSERR_NOERROR && phwo != nullptr && (fdwOpen & WAVE_FORMAT_QUERY) == 0)
        *phwo = reinterpret_cast<HWAVEOUT>(nHandle);
    return nResult;
}

MMRESULT waveOutClose(HWAVEOUT hwo)
{
    return CloseDevice(ToKey(hwo), false);
}

MMRESULT waveOutPrepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh)
{
    return PrepareHeader(ToKey(hwo), false, pwh, cbwh);
}

MMRESULT waveOutUnprepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh)
{
    return UnprepareHeader(ToKey(hwo), false, pwh, cbwh);
}

MMRESULT waveOutWrite(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh)
{
    return QueueHeader(ToKey(hwo), false, pwh, cbwh);
}

MMRESULT waveOutReset(HWAVEOUT hwo)
{
    return WithStream(ToKey(hwo), false, [](CWaveStream& stream) { return stream.Reset(); });
}

MMRESULT waveOutSetVolume(HWAVEOUT hwo, DWORD dwVolume)
{
    return WithStream(ToKey(hwo), false, [dwVolume](CWaveStream& stream) {
        stream.SetVolume(dwVolume);
        return MMSYSERR_NOERROR;
    });
}

MMRESULT waveOutGetVolume(HWAVEOUT hwo, LPDWORD pdwVolume)
{
    if (pdwVolume == nullptr)
        return MMSYSERR_INVALPARAM;
    return WithStream(ToKey(hwo), false, [pdwVolume](CWaveStream& stream) {
        *pdwVolume = stream.GetVolume();
        return MMSYSERR_NOERROR;
    });
}

MMRESULT waveOutGetUnderrunCount(HWAVEOUT hwo, LPDWORD pdwCount)
{
    return GetXruns(ToKey(hwo), false, pdwCount);
}

UINT waveInGetNumDevs()
{
    return static_cast<UINT>(ListDevices(true).size());
}

MMRESULT waveInGetDevCaps(UINT_PTR uDeviceID, LPWAVEINCAPS pwic, UINT cbwic)
{
    return GetCaps(true, uDeviceID, pwic, cbwic);
}

MMRESULT waveInOpen(LPHWAVEIN phwi, UINT uDeviceID, const WAVEFORMATEX* pwfx, DWORD_PTR dwCallback,
                    DWORD_PTR, DWORD fdwOpen)
{
    std::uintptr_t nHandle = 0;
    MMRESULT nResult = OpenDevice(true, phwi == nullptr ? nullptr : &nHandle, uDeviceID, pwfx, dwCallback, fdwOpen);
    if (nResult == MMSYSERR_NOERROR && phwi != nullptr && (fdwOpen & WAVE_FORMAT_QUERY) == 0)
        *phwi = reinterpret_cast<HWAVEIN>(nHandle);
    return nResult;
}

MMRESULT waveInClose(HWAVEIN hwi)
{
    return CloseDevice(ToKey(hwi), true);
}

MMRESULT waveInPrepareHeader(HWAVEIN hwi, LPWAVEHDR pwh, UINT cbwh)
{
    return PrepareHeader(ToKey(hwi), true, pwh, cbwh);
}

MMRESULT waveInUnprepareHeader(HWAVEIN hwi, LPWAVEHDR pwh, UINT cbwh)
{
    return UnprepareHeader(ToKey(hwi), true, pwh, cbwh);
}

MMRESULT waveInAddBuffer(HWAVEIN hwi, LPWAVEHDR pwh, UINT cbwh)
{
    return QueueHeader(ToKey(hwi), true, pwh, cbwh);
}

MMRESULT waveInStart(HWAVEIN hwi)
{
    return WithStream(ToKey(hwi), true, [](CWaveStream& stream) { return stream.Start(); });
}

MMRESULT waveInStop(HWAVEIN hwi)
{
    return WithStream(ToKey(hwi), true, [](CWaveStream& stream) { return stream.Stop(); });
}

MMRESULT waveInReset(HWAVEIN hwi)
{
    return WithStream(ToKey(hwi), true, [](CWaveStream& stream) { return stream.Reset(); });
}

MMRESULT waveInGetOverrunCount(HWAVEIN hwi, LPDWORD pdwCount)
{
    return GetXruns(ToKey(hwi), true, pdwCount);
}
