#include "sound/CWaveWnd.h"

#include "platform/WinMessages.h"
#include "vocabulary/Messages.h"

#include <algorithm>
#include <cstdio>
#include <new>

std::atomic<DWORD> CWaveWnd::m_dwObjNum{0};

namespace {

constexpr UINT kWaveClassStyle = CS_VREDRAW | CS_HREDRAW | CS_NOCLOSE;
constexpr UINT kWaveWndIdBase = 200;
constexpr FOURCC kFormWave = mmioFOURCC('W', 'A', 'V', 'E');
constexpr FOURCC kChunkFmt = mmioFOURCC('f', 'm', 't', ' ');
constexpr FOURCC kChunkData = mmioFOURCC('d', 'a', 't', 'a');
// The fmt chunk this class writes and the part of a longer one it reads: the format
// without its cbSize.
constexpr LONG kFmtBytes = 16;

void PutWord(BYTE* p, WORD wValue)
{
    p[0] = static_cast<BYTE>(wValue);
    p[1] = static_cast<BYTE>(wValue >> 8);
}

void PutDword(BYTE* p, DWORD dwValue)
{
    PutWord(p, static_cast<WORD>(dwValue));
    PutWord(p + 2, static_cast<WORD>(dwValue >> 16));
}

WORD GetWord(const BYTE* p)
{
    return static_cast<WORD>(p[0] | p[1] << 8);
}

DWORD GetDword(const BYTE* p)
{
    return GetWord(p) | static_cast<DWORD>(GetWord(p + 2)) << 16;
}

// The fmt chunk's 16 bytes, little-endian as the file holds them.
void FormatToChunk(const WAVEFORMATEX& format, BYTE* pChunk)
{
    PutWord(pChunk, format.wFormatTag);
    PutWord(pChunk + 2, format.nChannels);
    PutDword(pChunk + 4, format.nSamplesPerSec);
    PutDword(pChunk + 8, format.nAvgBytesPerSec);
    PutWord(pChunk + 12, format.nBlockAlign);
    PutWord(pChunk + 14, format.wBitsPerSample);
}

// What tells the format apart; block size and byte rate follow from it.
WAVEFORMATEX FormatFromChunk(const BYTE* pChunk)
{
    return WAVEFORMATEX{GetWord(pChunk), GetWord(pChunk + 2), GetDword(pChunk + 4), 0, 0, GetWord(pChunk + 14), 0};
}

// A chunk to find or create by its name (and form).
MMCKINFO ChunkNamed(FOURCC ckid, FOURCC fccType)
{
    return MMCKINFO{ckid, 0, fccType, 0, 0};
}

} // namespace

BEGIN_MESSAGE_MAP(CWaveWnd, CWnd)
    ON_MESSAGE(MM_WOM_DONE, OnWomDone)
    ON_MESSAGE(MM_WIM_DATA, OnWimData)
END_MESSAGE_MAP()

CWaveWnd::CWaveWnd()
{
    ++m_dwObjNum;
}

CWaveWnd::~CWaveWnd()
{
    Close();
    --m_dwObjNum;
}

int CWaveWnd::Open(HWND hParent)
{
    m_hNotifyWnd = hParent;
    m_nState = STATE_IDLE;
    LPCSTR lpszClass = AfxRegisterWndClass(kWaveClassStyle);
    const DWORD dwNumber = m_dwObjNum;
    char szName[32];
    std::snprintf(szName, sizeof(szName), "wave wnd %lu", static_cast<unsigned long>(dwNumber));
    return Create(lpszClass, szName, WS_CHILD, RECT{0, 0, 0, 0}, CWnd::FromHandle(hParent), kWaveWndIdBase + dwNumber);
}

void CWaveWnd::Close()
{
    StopPlay(0);
    StopRecord();
    if (m_hWnd != nullptr)
        DestroyWindow();
}

int CWaveWnd::Play(const CString& strFile, DWORD dwWaveOutID)
{
    if (m_nState != STATE_IDLE)
        return Fail(WAVEWND_BUSY);
    if (m_hWnd == nullptr)
        return Fail(WAVEWND_NOWINDOW);
    CloseFile();
    m_strFile = strFile;
    const tag_WAVEWNDRESULT nResult = OpenSoundFile();
    if (nResult != WAVEWND_OK) {
        CloseFile();
        return Fail(nResult);
    }
    std::unique_ptr<CWaveCodec> pCodec(new (std::nothrow) CWaveCodec);
    if (pCodec == nullptr || !pCodec->Open(m_hWnd, dwWaveOutID, CWaveCodec::GetSoundFmt(&m_Format), ZNFILE_WRITE)) {
        CloseFile();
        return Fail(WAVEWND_NODEVICE);
    }
    m_pCodec = std::move(pCodec);
    m_nState = STATE_PLAYING;
    m_nLastResult = WAVEWND_OK;
    // The buffers go out full of the file's sound, not of silence: it is heard at once.
    for (int i = 0; i < m_pCodec->m_nBufNum && QueueNextSound(m_pCodec->m_pWaveHdr[i]); ++i) {
    }
    return 1;
}

// Stands at the first sample of the file's data chunk, with the format in m_Format.
tag_WAVEWNDRESULT CWaveWnd::OpenSoundFile()
{
    m_hMmio = mmioOpen(m_strFile, nullptr, MMIO_READ);
    if (m_hMmio == nullptr)
        return WAVEWND_NOFILE;
    m_ckRiff = ChunkNamed(FOURCC_RIFF, kFormWave);
    if (mmioDescend(m_hMmio, &m_ckRiff, nullptr, MMIO_FINDRIFF) != MMSYSERR_NOERROR)
        return WAVEWND_NOTWAVE;
    m_ckData = ChunkNamed(kChunkFmt, 0);
    if (mmioDescend(m_hMmio, &m_ckData, &m_ckRiff, MMIO_FINDCHUNK) != MMSYSERR_NOERROR)
        return WAVEWND_NOTWAVE;
    // A shorter format chunk doesn't say the sample size; it isn't guessed.
    BYTE fmt[kFmtBytes];
    if (m_ckData.cksize < static_cast<DWORD>(kFmtBytes))
        return WAVEWND_BADFORMAT;
    if (mmioRead(m_hMmio, reinterpret_cast<char*>(fmt), kFmtBytes) != kFmtBytes)
        return WAVEWND_NOTWAVE;
    // The table's values stand in for the block size and byte rate the file states.
    const WAVEFORMATEX fileFormat = FormatFromChunk(fmt);
    const tag_SOUNDFMT nFmt = CWaveCodec::GetSoundFmt(&fileFormat);
    if (nFmt == SOUNDFMT_UNKNOWN || !CWaveCodec::GetSoundFmt(nFmt, &m_Format))
        return WAVEWND_BADFORMAT;
    mmioAscend(m_hMmio, &m_ckData, 0);
    m_ckData = ChunkNamed(kChunkData, 0);
    if (mmioDescend(m_hMmio, &m_ckData, &m_ckRiff, MMIO_FINDCHUNK) != MMSYSERR_NOERROR)
        return WAVEWND_NOTWAVE;
    // A file cut short plays what it holds.
    const LONG nEnd = mmioSeek(m_hMmio, 0, SEEK_END);
    if (nEnd < 0 || mmioSeek(m_hMmio, static_cast<LONG>(m_ckData.dwDataOffset), SEEK_SET) < 0)
        return WAVEWND_NOTWAVE;
    const DWORD dwHeld = static_cast<DWORD>(std::max<LONG>(nEnd - static_cast<LONG>(m_ckData.dwDataOffset), 0));
    m_dwDataBytes = std::min(m_ckData.cksize, dwHeld);
    m_dwDataLeft = m_dwDataBytes;
    return m_dwDataBytes < WAVE_MIN_DATA_BYTES ? WAVEWND_SHORTDATA : WAVEWND_OK;
}

// Reads the next whole frames of the data chunk into a free buffer and queues it; false
// when the sound has run out (or the device refuses the buffer).
bool CWaveWnd::QueueNextSound(WAVEHDR& hdr)
{
    const DWORD dwWant = std::min(m_dwDataLeft, static_cast<DWORD>(m_pCodec->m_nBufSize));
    if (m_hMmio == nullptr || dwWant == 0)
        return false;
    const LONG nRead = mmioRead(m_hMmio, hdr.lpData, static_cast<LONG>(dwWant));
    // Whole frames only; a read that comes short, or ends in part of a frame, is the end.
    const DWORD dwGot = nRead > 0 ? static_cast<DWORD>(nRead) - static_cast<DWORD>(nRead) % m_Format.nBlockAlign : 0;
    m_dwDataLeft = dwGot == dwWant ? m_dwDataLeft - dwGot : 0;
    if (dwGot == 0)
        return false;
    hdr.dwBufferLength = dwGot;
    hdr.dwFlags = 0;
    HWAVEOUT hOut = m_pCodec->m_hWaveOut;
    if (waveOutPrepareHeader(hOut, &hdr, sizeof(WAVEHDR)) != MMSYSERR_NOERROR)
        return false;
    if (waveOutWrite(hOut, &hdr, sizeof(WAVEHDR)) != MMSYSERR_NOERROR) {
        waveOutUnprepareHeader(hOut, &hdr, sizeof(WAVEHDR));
        return false;
    }
    return true;
}

bool CWaveWnd::IsDoneBuffer(WPARAM wParam, const WAVEHDR* pHdr) const
{
    if (m_pCodec == nullptr || pHdr == nullptr || !m_pCodec->IsOwnHeader(pHdr) || (pHdr->dwFlags & WHDR_DONE) == 0)
        return false;
    const WPARAM wDevice = m_nState == STATE_PLAYING ? reinterpret_cast<WPARAM>(m_pCodec->m_hWaveOut)
                                                     : reinterpret_cast<WPARAM>(m_pCodec->m_hWaveIn);
    return wDevice != 0 && wParam == wDevice;
}

// A buffer has played: it takes the next part of the file. When none is left and the
// last buffer has played, the file is over.
void CWaveWnd::OnWomDone(WPARAM wParam, LPARAM lParam)
{
    auto* pHdr = reinterpret_cast<WAVEHDR*>(lParam);
    if (m_nState != STATE_PLAYING || !IsDoneBuffer(wParam, pHdr))
        return;
    waveOutUnprepareHeader(m_pCodec->m_hWaveOut, pHdr, sizeof(WAVEHDR));
    pHdr->dwFlags = 0;
    if (!QueueNextSound(*pHdr) && m_pCodec->CountQueued() == 0)
        StopPlay(1);
}

void CWaveWnd::StopPlay(int bNotify)
{
    if (m_nState != STATE_PLAYING)
        return;
    // Closing the device cuts off its buffers and drops their notices.
    m_pCodec.reset();
    CloseFile();
    m_nState = STATE_IDLE;
    if (bNotify && IsWindow(m_hNotifyWnd))
        ::PostMessage(m_hNotifyWnd, WM_WAVEPLAYEND, 0, 0);
}

int CWaveWnd::Record(const CString& strFile, tag_SOUNDFMT nFmt, DWORD dwWaveInID)
{
    if (m_nState != STATE_IDLE)
        return Fail(WAVEWND_BUSY);
    if (m_hWnd == nullptr)
        return Fail(WAVEWND_NOWINDOW);
    if (!CWaveCodec::GetSoundFmt(nFmt, &m_Format))
        return Fail(WAVEWND_BADFORMAT);
    CloseFile();
    m_strFile = strFile;
    // The device first: a file is made (and one of that name emptied) only for sound.
    std::unique_ptr<CWaveCodec> pCodec(new (std::nothrow) CWaveCodec);
    if (pCodec == nullptr || !pCodec->Open(m_hWnd, dwWaveInID, nFmt, ZNFILE_READ))
        return Fail(WAVEWND_NODEVICE);
    if (!CreateSoundFile()) {
        CloseFile();
        return Fail(WAVEWND_NOFILE);
    }
    m_pCodec = std::move(pCodec);
    m_pCodec->StartRecord();
    m_nState = STATE_RECORDING;
    m_nLastResult = WAVEWND_OK;
    return 1;
}

// The RIFF head, the fmt chunk and the head of the data chunk; the file then stands at
// the first sample.
bool CWaveWnd::CreateSoundFile()
{
    m_dwDataBytes = 0;
    m_hMmio = mmioOpen(m_strFile, nullptr, MMIO_CREATE | MMIO_WRITE);
    if (m_hMmio == nullptr)
        return false;
    m_ckRiff = ChunkNamed(FOURCC_RIFF, kFormWave);
    if (mmioCreateChunk(m_hMmio, &m_ckRiff, MMIO_CREATERIFF) != MMSYSERR_NOERROR)
        return false;
    m_ckData = ChunkNamed(kChunkFmt, 0);
    BYTE fmt[kFmtBytes];
    FormatToChunk(m_Format, fmt);
    if (mmioCreateChunk(m_hMmio, &m_ckData, 0) != MMSYSERR_NOERROR ||
        mmioWrite(m_hMmio, reinterpret_cast<const char*>(fmt), kFmtBytes) != kFmtBytes ||
        mmioAscend(m_hMmio, &m_ckData, 0) != MMSYSERR_NOERROR)
        return false;
    m_ckData = ChunkNamed(kChunkData, 0);
    return mmioCreateChunk(m_hMmio, &m_ckData, 0) == MMSYSERR_NOERROR;
}

bool CWaveWnd::WriteSound(const WAVEHDR& hdr)
{
    const LONG nBytes = static_cast<LONG>(hdr.dwBytesRecorded);
    if (m_hMmio == nullptr || mmioWrite(m_hMmio, hdr.lpData, nBytes) != nBytes)
        return false;
    m_dwDataBytes += hdr.dwBytesRecorded;
    return true;
}

// A buffer is full: its sound goes into the file and the buffer back to the device. A
// write that fails ends the recording with the file finished as far as it got.
void CWaveWnd::OnWimData(WPARAM wParam, LPARAM lParam)
{
    auto* pHdr = reinterpret_cast<WAVEHDR*>(lParam);
    if (m_nState != STATE_RECORDING || !IsDoneBuffer(wParam, pHdr))
        return;
    HWAVEIN hIn = m_pCodec->m_hWaveIn;
    waveInUnprepareHeader(hIn, pHdr, sizeof(WAVEHDR));
    pHdr->dwFlags = 0;
    if (!WriteSound(*pHdr)) {
        StopRecord();
        return;
    }
    pHdr->dwBufferLength = static_cast<DWORD>(m_pCodec->m_nBufSize);
    waveInPrepareHeader(hIn, pHdr, sizeof(WAVEHDR));
    waveInAddBuffer(hIn, pHdr, sizeof(WAVEHDR));
}

// Writes the buffers the device has returned and whose notices wait in the queue;
// false when a write fails.
bool CWaveWnd::WriteQueuedSound()
{
    MSG msg;
    while (PeekMessage(&msg, m_hWnd, MM_WIM_DATA, MM_WIM_DATA, PM_REMOVE)) {
        auto* pHdr = reinterpret_cast<WAVEHDR*>(msg.lParam);
        if (!IsDoneBuffer(msg.wParam, pHdr))
            continue;
        waveInUnprepareHeader(m_pCodec->m_hWaveIn, pHdr, sizeof(WAVEHDR));
        pHdr->dwFlags = 0;
        if (!WriteSound(*pHdr))
            return false;
    }
    return true;
}

void CWaveWnd::StopRecord()
{
    if (m_nState != STATE_RECORDING)
        return;
    // The sound since the last full buffer is kept: stopping the device returns the
    // buffer in work with what it holds, behind the full ones still waiting.
    if (WriteQueuedSound()) {
        waveInStop(m_pCodec->m_hWaveIn);
        WriteQueuedSound();
    }
    m_pCodec.reset();
    FinishSoundFile();
    m_nState = STATE_IDLE;
}

// Both chunks get their true sizes (the RIFF chunk's is 36 + the sound's, with the pad
// byte of an odd length), and the file reaches the disk.
void CWaveWnd::FinishSoundFile()
{
    if (m_hMmio == nullptr)
        return;
    m_ckData.dwFlags |= MMIO_DIRTY;
    if (mmioAscend(m_hMmio, &m_ckData, 0) == MMSYSERR_NOERROR) {
        m_ckRiff.dwFlags |= MMIO_DIRTY;
        mmioAscend(m_hMmio, &m_ckRiff, 0);
    }
    mmioFlush(m_hMmio, 0);
    CloseFile();
}

void CWaveWnd::CloseFile()
{
    if (m_hMmio != nullptr)
        mmioClose(m_hMmio, 0);
    m_hMmio = nullptr;
}

int CWaveWnd::Fail(tag_WAVEWNDRESULT nResult)
{
    m_nLastResult = nResult;
    return 0;
}

int CWaveWnd::GetLastResult() const
{
    return m_nLastResult;
}

const char* CWaveWnd::GetResultText(int nResult)
{
    switch (nResult) {
    case WAVEWND_OK:
        return "done";
    case WAVEWND_NOWINDOW:
        return "the sound window isn't open";
    case WAVEWND_BUSY:
        return "a file is playing or recording already";
    case WAVEWND_NOFILE:
        return "the file can't be opened";
    case WAVEWND_NOTWAVE:
        return "not a RIFF WAVE file with a format and a data chunk";
    case WAVEWND_BADFORMAT:
        return "not one of the sound formats 3 to 8 (8-bit or 16-bit PCM, mono or stereo at 8 kHz, "
               "stereo 16-bit at 22.05 or 44.1 kHz)";
    case WAVEWND_SHORTDATA:
        return "less than 1600 bytes of sound";
    case WAVEWND_NODEVICE:
        return "no sound device opens for the format";
    default:
        return "unknown result";
    }
}

const WAVEFORMATEX& CWaveWnd::GetFormat() const
{
    return m_Format;
}

DWORD CWaveWnd::GetDevice() const
{
    return m_pCodec != nullptr ? m_pCodec->m_nDevice : ANY_DEVICE;
}

DWORD CWaveWnd::GetDataBytes() const
{
    return m_dwDataBytes;
}
