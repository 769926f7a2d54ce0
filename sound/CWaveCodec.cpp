#include "sound/CWaveCodec.h"

#include "platform/WinMessages.h"
#include "sound/CAdpcm.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

IMPLEMENT_DYNAMIC(CWaveCodec, CObject)

DWORD CWaveCodec::m_dwObjNum = 0;
DWORD CWaveCodec::m_dwWaveInNum = 0;
DWORD CWaveCodec::m_dwWaveOutNum = 0;
std::unique_ptr<int[]> CWaveCodec::m_pfWaveInFlag;
std::unique_ptr<int[]> CWaveCodec::m_pfWaveOutFlag;

namespace {

// Objects may live on different window threads; the counts and flags they share are
// kept under this lock.
std::mutex& DriverMutex()
{
    static std::mutex s_mutex;
    return s_mutex;
}

struct tag_FORMATROW {
    tag_SOUNDFMT nFmt;
    WORD nChannels;
    DWORD nSamplesPerSec;
    WORD wBitsPerSample;
};

// The device formats of the sound formats. Format 0 is 8000 Hz 16-bit mono PCM at the
// device, G.726 at 24 kbit/s in the stream.
constexpr tag_FORMATROW kFormats[] = {
    {SOUNDFMT_ADPCM, 1, 8000, 16},
    {SOUNDFMT_8K_8BIT_MONO, 1, 8000, 8},
    {SOUNDFMT_8K_8BIT_STEREO, 2, 8000, 8},
    {SOUNDFMT_8K_16BIT_MONO, 1, 8000, 16},
    {SOUNDFMT_8K_16BIT_STEREO, 2, 8000, 16},
    {SOUNDFMT_44K_16BIT_STEREO, 2, 44100, 16},
    {SOUNDFMT_22K_16BIT_STEREO, 2, 22050, 16},
};

// Buffers of format 0 follow the board's sound block: a 1920-byte play buffer is one
// 360-byte code block (120 ms); a 1600-byte record buffer is 100 ms, 300 code bytes.
constexpr int kAdpcmPlayBuffers = 20;
constexpr int kAdpcmPlayBufferBytes = 1920;
constexpr int kAdpcmRecordBuffers = 4;
constexpr int kAdpcmRecordBufferBytes = 1600;
constexpr int kPcm8MonoPlayBuffers = 6;
constexpr int kPcm8MonoPlayBufferBytes = 19200;
constexpr int kPcmBuffers = 3;
constexpr int kPcmBufferBytes = 48000;
// Format 0 starts playing behind this many silent buffers (240 ms).
constexpr int kAdpcmLeadBuffers = 2;
// 16 PCM bytes (8 samples) make one 3-byte code group.
constexpr int kPcmBytesPerGroupShift = 4;

const tag_FORMATROW* FindFormat(tag_SOUNDFMT nFmt)
{
    for (const tag_FORMATROW& row : kFormats) {
        if (row.nFmt == nFmt)
            return &row;
    }
    return nullptr;
}

CString NameOf(const char* pszName)
{
    return CString(pszName, static_cast<int>(strnlen(pszName, MAXPNAMELEN)));
}

} // namespace

CWaveCodec::CWaveCodec()
{
    GetSoundFmt(SOUNDFMT_ADPCM, &m_WaveFormat);
    InitWaveDriver();
}

CWaveCodec::~CWaveCodec()
{
    CWaveCodec::Close();
    CloseWaveDriver();
}

void CWaveCodec::InitWaveDriver()
{
    std::lock_guard lock(DriverMutex());
    if (m_dwObjNum++ > 0)
        return;
    m_dwWaveOutNum = waveOutGetNumDevs();
    m_dwWaveInNum = waveInGetNumDevs();
    if (m_dwWaveOutNum > 0)
        m_pfWaveOutFlag.reset(new (std::nothrow) int[m_dwWaveOutNum]());
    if (m_dwWaveInNum > 0)
        m_pfWaveInFlag.reset(new (std::nothrow) int[m_dwWaveInNum]());
    // Without its flags a device can't be shared safely, so it isn't offered at all.
    if (m_pfWaveOutFlag == nullptr)
        m_dwWaveOutNum = 0;
    if (m_pfWaveInFlag == nullptr)
        m_dwWaveInNum = 0;
}

void CWaveCodec::CloseWaveDriver()
{
    std::lock_guard lock(DriverMutex());
    if (--m_dwObjNum > 0)
        return;
    m_pfWaveOutFlag.reset();
    m_pfWaveInFlag.reset();
    m_dwWaveOutNum = 0;
    m_dwWaveInNum = 0;
}

DWORD CWaveCodec::GetWaveInDevNum()
{
    std::lock_guard lock(DriverMutex());
    return m_dwWaveInNum;
}

DWORD CWaveCodec::GetWaveOutDevNum()
{
    std::lock_guard lock(DriverMutex());
    return m_dwWaveOutNum;
}

CString CWaveCodec::GetWaveInDevName(DWORD dwID)
{
    WAVEINCAPS caps;
    if (waveInGetDevCaps(dwID, &caps, sizeof(caps)) != MMSYSERR_NOERROR)
        return CString();
    return NameOf(caps.szPname);
}

CString CWaveCodec::GetWaveOutDevName(DWORD dwID)
{
    WAVEOUTCAPS caps;
    if (waveOutGetDevCaps(dwID, &caps, sizeof(caps)) != MMSYSERR_NOERROR)
        return CString();
    return NameOf(caps.szPname);
}

DWORD CWaveCodec::GetWaveInID(const CString& strName)
{
    const UINT nDevices = waveInGetNumDevs();
    for (UINT u = 0; u < nDevices; ++u) {
        WAVEINCAPS caps;
        if (waveInGetDevCaps(u, &caps, sizeof(caps)) == MMSYSERR_NOERROR && NameOf(caps.szPname).Compare(strName) == 0)
            return u;
    }
    return ANY_DEVICE;
}

DWORD CWaveCodec::GetWaveOutID(const CString& strName)
{
    const UINT nDevices = waveOutGetNumDevs();
    for (UINT u = 0; u < nDevices; ++u) {
        WAVEOUTCAPS caps;
        if (waveOutGetDevCaps(u, &caps, sizeof(caps)) == MMSYSERR_NOERROR && NameOf(caps.szPname).Compare(strName) == 0)
            return u;
    }
    return ANY_DEVICE;
}

int CWaveCodec::CheckInFmt(DWORD dwID, tag_SOUNDFMT nFmt)
{
    WAVEFORMATEX format;
    if (dwID >= waveInGetNumDevs() || !GetSoundFmt(nFmt, &format))
        return 0;
    return waveInOpen(nullptr, dwID, &format, 0, 0, WAVE_FORMAT_QUERY) == MMSYSERR_NOERROR ? 1 : 0;
}

int CWaveCodec::CheckOutFmt(DWORD dwID, tag_SOUNDFMT nFmt)
{
    WAVEFORMATEX format;
    if (dwID >= waveOutGetNumDevs() || !GetSoundFmt(nFmt, &format))
        return 0;
    return waveOutOpen(nullptr, dwID, &format, 0, 0, WAVE_FORMAT_QUERY) == MMSYSERR_NOERROR ? 1 : 0;
}

tag_SOUNDFMT CWaveCodec::GetSoundFmt(const WAVEFORMATEX* pFormat)
{
    if (pFormat == nullptr || pFormat->wFormatTag != WAVE_FORMAT_PCM)
        return SOUNDFMT_UNKNOWN;
    const WORD wBits = pFormat->wBitsPerSample;
    const DWORD dwRate = pFormat->nSamplesPerSec;
    if (pFormat->nChannels == 1 && dwRate == 8000) {
        if (wBits == 8)
            return SOUNDFMT_8K_8BIT_MONO;
        if (wBits == 16)
            return SOUNDFMT_8K_16BIT_MONO;
    }
    if (pFormat->nChannels == 2) {
        if (dwRate == 8000 && wBits == 8)
            return SOUNDFMT_8K_8BIT_STEREO;
        if (wBits == 16 && dwRate == 8000)
            return SOUNDFMT_8K_16BIT_STEREO;
        if (wBits == 16 && dwRate == 44100)
            return SOUNDFMT_44K_16BIT_STEREO;
        if (wBits == 16 && dwRate == 22050)
            return SOUNDFMT_22K_16BIT_STEREO;
    }
    return SOUNDFMT_UNKNOWN;
}

int CWaveCodec::GetSoundFmt(tag_SOUNDFMT nFmt, WAVEFORMATEX* pFormat)
{
    const tag_FORMATROW* pRow = FindFormat(nFmt);
    if (pFormat == nullptr || pRow == nullptr)
        return 0;
    pFormat->wFormatTag = WAVE_FORMAT_PCM;
    pFormat->nChannels = pRow->nChannels;
    pFormat->nSamplesPerSec = pRow->nSamplesPerSec;
    pFormat->wBitsPerSample = pRow->wBitsPerSample;
    pFormat->nBlockAlign = static_cast<WORD>(pRow->nChannels * pRow->wBitsPerSample / 8);
    pFormat->nAvgBytesPerSec = pRow->nSamplesPerSec * pFormat->nBlockAlign;
    pFormat->cbSize = 0;
    return 1;
}

bool CWaveCodec::GetBufferRow(tag_SOUNDFMT nFmt, tag_ZNFILEMODE nMode, int& nBufNum, int& nBufSize)
{
    if (FindFormat(nFmt) == nullptr)
        return false;
    nBufNum = kPcmBuffers;
    nBufSize = kPcmBufferBytes;
    if (nFmt == SOUNDFMT_ADPCM) {
        const bool bPlay = nMode == ZNFILE_WRITE;
        nBufNum = bPlay ? kAdpcmPlayBuffers : kAdpcmRecordBuffers;
        nBufSize = bPlay ? kAdpcmPlayBufferBytes : kAdpcmRecordBufferBytes;
    } else if (nFmt == SOUNDFMT_8K_8BIT_MONO && nMode == ZNFILE_WRITE) {
        nBufNum = kPcm8MonoPlayBuffers;
        nBufSize = kPcm8MonoPlayBufferBytes;
    }
    return true;
}

int CWaveCodec::Open(HWND hWnd, DWORD dwID, tag_SOUNDFMT nFmt, tag_ZNFILEMODE nMode)
{
    if (m_nDevice != ANY_DEVICE)
        return 0;
    m_hOpenWnd = hWnd;
    m_nOpenFmt = nFmt;
    m_nOpenMode = nMode;
    if (nMode != ZNFILE_WRITE && nMode != ZNFILE_READ) {
        ForgetOpen();
        return 0;
    }
    if (dwID != ANY_DEVICE)
        return TryDevice(dwID);
    const DWORD dwDevices = nMode == ZNFILE_WRITE ? GetWaveOutDevNum() : GetWaveInDevNum();
    for (DWORD dwDevice = 0; dwDevice < dwDevices; ++dwDevice) {
        if (TryDevice(dwDevice))
            return 1;
    }
    return 0;
}

int CWaveCodec::TryDevice(DWORD dwID)
{
    m_hWnd = m_hOpenWnd;
    m_nSoundFmt = m_nOpenFmt;
    m_nMode = m_nOpenMode;
    const bool bPlay = m_nMode == ZNFILE_WRITE;
    // A device that an object of this library holds is passed over without asking the
    // platform: a channel that retries at every frame then costs nothing.
    if (IsTaken(m_nMode, dwID) || !(bPlay ? CheckOutFmt(dwID, m_nSoundFmt) : CheckInFmt(dwID, m_nSoundFmt))) {
        ForgetOpen();
        return 0;
    }
    m_nDevice = dwID;
    return bPlay ? OpenWavePlay() : OpenWaveRecord();
}

void CWaveCodec::ForgetOpen()
{
    m_hWaveOut = nullptr;
    m_hWaveIn = nullptr;
    m_hWnd = nullptr;
    m_nMode = ZNFILE_WRITE;
    m_nSoundFmt = SOUNDFMT_ADPCM;
    m_nDevice = ANY_DEVICE;
}

int* CWaveCodec::FlagOf(tag_ZNFILEMODE nMode, DWORD dwID)
{
    const bool bPlay = nMode == ZNFILE_WRITE;
    int* pFlags = bPlay ? m_pfWaveOutFlag.get() : m_pfWaveInFlag.get();
    const DWORD dwDevices = bPlay ? m_dwWaveOutNum : m_dwWaveInNum;
    return pFlags != nullptr && dwID < dwDevices ? &pFlags[dwID] : nullptr;
}

bool CWaveCodec::IsTaken(tag_ZNFILEMODE nMode, DWORD dwID)
{
    std::lock_guard lock(DriverMutex());
    const int* pFlag = FlagOf(nMode, dwID);
    return pFlag != nullptr && *pFlag != 0;
}

int CWaveCodec::OpenWavePlay()
{
    int nBufNum = 0;
    int nBufSize = 0;
    {
        std::lock_guard lock(DriverMutex());
        int* pFlag = FlagOf(ZNFILE_WRITE, m_nDevice);
        if (pFlag == nullptr || *pFlag != 0 || !GetBufferRow(m_nSoundFmt, ZNFILE_WRITE, nBufNum, nBufSize)) {
            ForgetOpen();
            return 0;
        }
        // Taken at once, so that no other object opens the device meanwhile.
        *pFlag = 1;
    }
    GetSoundFmt(m_nSoundFmt, &m_WaveFormat);
    bool bOpen = waveOutOpen(&m_hWaveOut, m_nDevice, &m_WaveFormat, reinterpret_cast<DWORD_PTR>(m_hWnd), 0,
                             CALLBACK_WINDOW) == MMSYSERR_NOERROR;
    if (bOpen && !AllocBuf(nBufNum, nBufSize)) {
        waveOutClose(m_hWaveOut);
        bOpen = false;
    }
    if (bOpen && m_nSoundFmt == SOUNDFMT_ADPCM) {
        m_pAdpcm.reset(new (std::nothrow) CAdpcm);
        if (m_pAdpcm == nullptr || !m_pAdpcm->Init(CAdpcm::kModeDecoder)) {
            m_pAdpcm.reset();
            FreeBuf();
            waveOutClose(m_hWaveOut);
            bOpen = false;
        }
    }
    if (!bOpen) {
        std::lock_guard lock(DriverMutex());
        *FlagOf(ZNFILE_WRITE, m_nDevice) = 0;
        ForgetOpen();
        return 0;
    }
    waveOutSetVolume(m_hWaveOut, 0xFFFFFFFF);
    return 1;
}

int CWaveCodec::OpenWaveRecord()
{
    int nBufNum = 0;
    int nBufSize = 0;
    {
        std::lock_guard lock(DriverMutex());
        int* pFlag = FlagOf(ZNFILE_READ, m_nDevice);
        if (pFlag == nullptr || *pFlag != 0 || !GetBufferRow(m_nSoundFmt, ZNFILE_READ, nBufNum, nBufSize)) {
            ForgetOpen();
            return 0;
        }
        *pFlag = 1;
    }
    GetSoundFmt(m_nSoundFmt, &m_WaveFormat);
    bool bOpen = waveInOpen(&m_hWaveIn, m_nDevice, &m_WaveFormat, reinterpret_cast<DWORD_PTR>(m_hWnd), 0,
                            CALLBACK_WINDOW) == MMSYSERR_NOERROR;
    if (bOpen && !AllocBuf(nBufNum, nBufSize)) {
        waveInClose(m_hWaveIn);
        bOpen = false;
    }
    if (bOpen && m_nSoundFmt == SOUNDFMT_ADPCM) {
        m_pAdpcm.reset(new (std::nothrow) CAdpcm);
        if (m_pAdpcm == nullptr || !m_pAdpcm->Init(CAdpcm::kModeEncoder)) {
            m_pAdpcm.reset();
            FreeBuf();
            waveInClose(m_hWaveIn);
            bOpen = false;
        }
    }
    if (!bOpen) {
        std::lock_guard lock(DriverMutex());
        *FlagOf(ZNFILE_READ, m_nDevice) = 0;
        ForgetOpen();
        return 0;
    }
    return 1;
}

int CWaveCodec::AllocBuf(int nBufNum, int nBufSize)
{
    if (nBufNum < 1 || nBufSize < 1)
        return 0;
    FreeBuf();
    m_pWaveHdr.reset(new (std::nothrow) WAVEHDR[nBufNum]());
    m_pBufData.reset(new (std::nothrow) std::unique_ptr<BYTE[]>[nBufNum]);
    m_pCode.reset(new (std::nothrow) BYTE[ZNFRAME_SOUND_BUFFER_SIZE]());
    bool bAllocated = m_pWaveHdr != nullptr && m_pBufData != nullptr && m_pCode != nullptr;
    for (int i = 0; bAllocated && i < nBufNum; ++i) {
        m_pBufData[i].reset(new (std::nothrow) BYTE[nBufSize]());
        bAllocated = m_pBufData[i] != nullptr;
        if (bAllocated) {
            m_pWaveHdr[i].lpData = reinterpret_cast<LPSTR>(m_pBufData[i].get());
            m_pWaveHdr[i].dwBufferLength = static_cast<DWORD>(nBufSize);
        }
    }
    if (!bAllocated) {
        FreeBuf();
        return 0;
    }
    m_nBufNum = nBufNum;
    m_nBufSize = nBufSize;
    m_nCodeLen = 0;
    return 1;
}

void CWaveCodec::FreeBuf()
{
    m_pWaveHdr.reset();
    m_pBufData.reset();
    m_pCode.reset();
    m_nBufNum = 0;
    m_nBufSize = 0;
    m_nCodeLen = 0;
}

bool CWaveCodec::IsOwnHeader(const WAVEHDR* pHdr) const
{
    return m_pWaveHdr != nullptr && pHdr >= m_pWaveHdr.get() && pHdr < m_pWaveHdr.get() + m_nBufNum;
}

int CWaveCodec::CountQueued() const
{
    int nQueued = 0;
    for (int i = 0; i < m_nBufNum; ++i)
        nQueued += (m_pWaveHdr[i].dwFlags & WHDR_PREPARED) != 0 ? 1 : 0;
    return nQueued;
}

int CWaveCodec::StartPlay()
{
    if (m_hWaveOut == nullptr || m_pWaveHdr == nullptr)
        return 0;
    const int nStart = m_nSoundFmt == SOUNDFMT_ADPCM ? kAdpcmLeadBuffers : m_nBufNum;
    for (int i = 0; i < nStart; ++i) {
        WAVEHDR& hdr = m_pWaveHdr[i];
        // A buffer still queued from an earlier start stays as it is.
        if ((hdr.dwFlags & WHDR_PREPARED) != 0)
            continue;
        // Format 0 begins with silence, whatever the buffer held before.
        if (m_nSoundFmt == SOUNDFMT_ADPCM)
            std::memset(hdr.lpData, 0, static_cast<std::size_t>(m_nBufSize));
        hdr.dwFlags = 0;
        hdr.dwBufferLength = static_cast<DWORD>(m_nBufSize);
        waveOutPrepareHeader(m_hWaveOut, &hdr, sizeof(WAVEHDR));
        waveOutWrite(m_hWaveOut, &hdr, sizeof(WAVEHDR));
    }
    return 1;
}

int CWaveCodec::Play(const BYTE* pCode, int nLen)
{
    if (m_hWaveOut == nullptr || m_pWaveHdr == nullptr || pCode == nullptr || nLen < 1)
        return 0;
    // Only format 0 is code that this object turns into sound.
    if (m_nSoundFmt != SOUNDFMT_ADPCM || m_pAdpcm == nullptr)
        return 0;
    int nRemain = nLen;
    for (int i = 0; i < m_nBufNum; ++i) {
        // A last 1 or 2 bytes fill no group of 8 samples: they are dropped.
        if (nRemain < CAdpcm::kBytesPerGroup)
            return 1;
        WAVEHDR& hdr = m_pWaveHdr[i];
        if ((hdr.dwFlags & WHDR_PREPARED) != 0)
            continue;
        const int nPcmBytes = std::min((nRemain / CAdpcm::kBytesPerGroup) << kPcmBytesPerGroupShift, m_nBufSize);
        const int nCodeBytes = (nPcmBytes >> kPcmBytesPerGroupShift) * CAdpcm::kBytesPerGroup;
        hdr.dwBufferLength = static_cast<DWORD>(nPcmBytes);
        m_pAdpcm->Decode(pCode, reinterpret_cast<short*>(hdr.lpData), nCodeBytes, 0);
        pCode += nCodeBytes;
        nRemain -= nCodeBytes;
        if (waveOutPrepareHeader(m_hWaveOut, &hdr, sizeof(WAVEHDR)) != MMSYSERR_NOERROR)
            return 0;
        if (waveOutWrite(m_hWaveOut, &hdr, sizeof(WAVEHDR)) != MMSYSERR_NOERROR) {
            waveOutUnprepareHeader(m_hWaveOut, &hdr, sizeof(WAVEHDR));
            return 0;
        }
    }
    return nRemain < CAdpcm::kBytesPerGroup ? 1 : 0;
}

int CWaveCodec::OnPlayDone(HWAVEOUT hWaveOut, WAVEHDR* pHdr, int& bNeedData)
{
    if (m_hWaveOut == nullptr || hWaveOut != m_hWaveOut || !IsOwnHeader(pHdr) || (pHdr->dwFlags & WHDR_DONE) == 0)
        return 0;
    waveOutUnprepareHeader(m_hWaveOut, pHdr, sizeof(WAVEHDR));
    pHdr->dwFlags = 0;
    bNeedData = CountQueued() < PLAY_LOW_WATER ? 1 : 0;
    return 1;
}

int CWaveCodec::StartRecord()
{
    if (m_hWaveIn == nullptr || m_pWaveHdr == nullptr)
        return 0;
    for (int i = 0; i < m_nBufNum; ++i) {
        WAVEHDR& hdr = m_pWaveHdr[i];
        if ((hdr.dwFlags & WHDR_PREPARED) != 0)
            continue;
        hdr.dwBufferLength = static_cast<DWORD>(m_nBufSize);
        hdr.dwFlags = 0;
        waveInPrepareHeader(m_hWaveIn, &hdr, sizeof(WAVEHDR));
        waveInAddBuffer(m_hWaveIn, &hdr, sizeof(WAVEHDR));
    }
    waveInStart(m_hWaveIn);
    return 1;
}

int CWaveCodec::OnRecordData(WPARAM wParam, LPARAM lParam)
{
    auto* pHdr = reinterpret_cast<WAVEHDR*>(lParam);
    if (m_hWaveIn == nullptr || reinterpret_cast<HWAVEIN>(wParam) != m_hWaveIn || !IsOwnHeader(pHdr) ||
        (pHdr->dwFlags & WHDR_DONE) == 0)
        return 0;
    waveInUnprepareHeader(m_hWaveIn, pHdr, sizeof(WAVEHDR));
    pHdr->dwFlags = 0;
    if (m_nSoundFmt == SOUNDFMT_ADPCM && m_pAdpcm != nullptr && m_pCode != nullptr) {
        // When nobody takes the code the older code stays and the new sound is lost.
        const DWORD dwGroups = std::min<DWORD>(pHdr->dwBytesRecorded, static_cast<DWORD>(m_nBufSize)) >> kPcmBytesPerGroupShift;
        const int nEnd = std::min(m_nCodeLen + static_cast<int>(dwGroups) * CAdpcm::kBytesPerGroup, CODE_CAPACITY);
        const int nSamples = (nEnd - m_nCodeLen) / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup;
        if (nSamples > 0)
            m_pAdpcm->Encode(reinterpret_cast<const short*>(pHdr->lpData), m_pCode.get() + m_nCodeLen, nSamples, 0);
        m_nCodeLen = nEnd;
    }
    pHdr->dwBufferLength = static_cast<DWORD>(m_nBufSize);
    waveInPrepareHeader(m_hWaveIn, pHdr, sizeof(WAVEHDR));
    waveInAddBuffer(m_hWaveIn, pHdr, sizeof(WAVEHDR));
    return 1;
}

int CWaveCodec::GetRecordData(BYTE* pData, int& nLen, int nMaxLen)
{
    if (m_nDevice == ANY_DEVICE || m_pCode == nullptr || pData == nullptr)
        return 0;
    const int nCopy = std::clamp(m_nCodeLen, 0, std::max(nMaxLen, 0));
    std::memcpy(pData, m_pCode.get(), static_cast<std::size_t>(nCopy));
    nLen = nCopy;
    m_nCodeLen = 0;
    return 1;
}

void CWaveCodec::Close()
{
    if (m_nDevice == ANY_DEVICE)
        return;
    CloseWavePlay();
    CloseWaveRecord();
    {
        std::lock_guard lock(DriverMutex());
        if (int* pFlag = FlagOf(m_nMode, m_nDevice); pFlag != nullptr)
            *pFlag = 0;
    }
    m_nDevice = ANY_DEVICE;
    m_hWnd = nullptr;
}

// Notices of this window for other devices are put back, in their order, behind the
// messages queued now: only this device's buffers must not reach the window again.
void CWaveCodec::DropNotices(UINT nMessage, WPARAM wDevice)
{
    MSG msg;
    std::vector<MSG> others;
    while (PeekMessage(&msg, m_hWnd, nMessage, nMessage, PM_REMOVE)) {
        if (msg.wParam != wDevice)
            others.push_back(msg);
    }
    for (const MSG& other : others)
        PostMessage(other.hwnd, other.message, other.wParam, other.lParam);
}

int CWaveCodec::CloseWavePlay()
{
    if (m_hWaveOut == nullptr)
        return 1;
    if (waveOutReset(m_hWaveOut) != MMSYSERR_NOERROR)
        return 0;
    DropNotices(MM_WOM_DONE, reinterpret_cast<WPARAM>(m_hWaveOut));
    for (int i = 0; i < m_nBufNum; ++i) {
        if ((m_pWaveHdr[i].dwFlags & WHDR_PREPARED) != 0)
            waveOutUnprepareHeader(m_hWaveOut, &m_pWaveHdr[i], sizeof(WAVEHDR));
    }
    FreeBuf();
    waveOutClose(m_hWaveOut);
    m_hWaveOut = nullptr;
    m_pAdpcm.reset();
    return 1;
}

int CWaveCodec::CloseWaveRecord()
{
    if (m_hWaveIn == nullptr)
        return 1;
    if (waveInReset(m_hWaveIn) != MMSYSERR_NOERROR)
        return 0;
    DropNotices(MM_WIM_DATA, reinterpret_cast<WPARAM>(m_hWaveIn));
    for (int i = 0; i < m_nBufNum; ++i) {
        if ((m_pWaveHdr[i].dwFlags & WHDR_PREPARED) != 0)
            waveInUnprepareHeader(m_hWaveIn, &m_pWaveHdr[i], sizeof(WAVEHDR));
    }
    FreeBuf();
    waveInClose(m_hWaveIn);
    m_hWaveIn = nullptr;
    m_pAdpcm.reset();
    return 1;
}
