#include "playback/CDecodeWnd.h"

#include "codec/CDecoder.h"
#include "platform/CRect.h"
#include "platform/TickClock.h"
#include "sound/CAdpcm.h"
#include "sound/CWaveCodec.h"
#include "vocabulary/StreamRevision.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

// A frame record with buffers of its own for one frame size: the pending frame, and the
// frame a seek reads into.
struct tag_OWNEDFRAME {
    tag_ZNFRAMEDATA frame{};
    std::unique_ptr<BYTE[]> pVideo;
    std::unique_ptr<BYTE[]> pSound;
};

namespace {

constexpr UINT kPlayTimerId = 102;
constexpr UINT kPlayTimerPeriodMs = 20;
constexpr UINT kWindowClassStyle = CS_VREDRAW | CS_HREDRAW | CS_NOCLOSE;
constexpr UINT kFirstControlId = 400;
constexpr DWORD kMillisecondsPerSecond = 1000;
// 3 code bytes of G.726 at 24 kbit/s are 8 samples, 16 bytes of PCM.
constexpr long long kPcmBytesPerCodeGroup = 16;
// ZNFRAME_LOST, ZNFRAME_ALARM and the flag 0x0004 reach the host as they are.
constexpr WORD kDecodeInfoFlags = DECODEINFO_LOST | DECODEINFO_ALARM | DECODEINFO_FLAG4;

std::unique_ptr<tag_OWNEDFRAME> MakeOwnedFrame(int nWidth, int nHeight)
{
    std::unique_ptr<tag_OWNEDFRAME> pFrame(new (std::nothrow) tag_OWNEDFRAME);
    if (pFrame == nullptr)
        return nullptr;
    pFrame->pVideo.reset(new (std::nothrow) BYTE[static_cast<std::size_t>(nWidth) * nHeight * 2]);
    pFrame->pSound.reset(new (std::nothrow) BYTE[ZNFRAME_SOUND_BUFFER_SIZE]);
    if (pFrame->pVideo == nullptr || pFrame->pSound == nullptr)
        return nullptr;
    pFrame->frame.pVideo = pFrame->pVideo.get();
    pFrame->frame.pSound = pFrame->pSound.get();
    return pFrame;
}

// Play time on the scale of the file's stamps: 2n times the elapsed time at speed +n,
// 1/2n of it at speed -n.
unsigned long long ScaleToStamps(DWORD dwElapsed, int nSpeed)
{
    if (nSpeed > 0)
        return dwElapsed * 2ULL * static_cast<unsigned long long>(nSpeed);
    if (nSpeed < 0)
        return dwElapsed / (2ULL * static_cast<unsigned long long>(-static_cast<long long>(nSpeed)));
    return dwElapsed;
}

// How far the position clock moves between frames: the inverse of the play scale, so at
// high speed the clock creeps and the next frame shown sets it right.
unsigned long long ScaleToClock(DWORD dwElapsed, int nSpeed)
{
    if (nSpeed > 0)
        return dwElapsed / (2ULL * static_cast<unsigned long long>(nSpeed));
    if (nSpeed < 0)
        return dwElapsed * 2ULL * static_cast<unsigned long long>(-static_cast<long long>(nSpeed));
    return dwElapsed;
}

// The stream revision of a file's pictures, from its version.
DWORD GetFileRevision(const CZnFile& file)
{
    return file.GetFileVersion() == ZNFILE_VERSION_R2 ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114;
}

// Lengths beyond what an int holds are refused by the decoder as negative ones are.
int GetRecordLength(DWORD dwLength)
{
    return dwLength > static_cast<DWORD>(INT_MAX) ? -1 : static_cast<int>(dwLength);
}

} // namespace

DWORD CDecodeWnd::m_dwObjNum = 0;

BEGIN_MESSAGE_MAP(CDecodeWnd, CWnd)
    ON_WM_TIMER()
    ON_MESSAGE(MM_WOM_DONE, OnWomDone)
END_MESSAGE_MAP()

CDecodeWnd::CDecodeWnd()
    : m_CameraInfo{}, m_hNotifyWnd(nullptr), m_nTimer(0), m_PlayInfo{}, m_bDecodeOnly(0), m_nPictureBytes(0)
{
    ++m_dwObjNum;
}

CDecodeWnd::~CDecodeWnd()
{
    CloseDecodeWnd();
    --m_dwObjNum;
}

// ---------------------------------------------------------------------------
// Opening and closing

int CDecodeWnd::OpenDecodeWnd(HWND hParent, int bDecodeOnly, DWORD dwRevision)
{
    return bDecodeOnly == 0 ? OpenWindowMode(hParent) : OpenDecodeOnlyMode(bDecodeOnly, dwRevision);
}

int CDecodeWnd::OpenWindowMode(HWND hParent)
{
    if (m_bDecodeOnly || m_hWnd != nullptr)
        return 0;
    m_hNotifyWnd = hParent;
    CString strName;
    strName.Format("video play wnd %lu", static_cast<unsigned long>(m_dwObjNum));
    const CRect rcNone(0, 0, 0, 0);
    return Create(AfxRegisterWndClass(kWindowClassStyle), strName, WS_CHILD, rcNone, CWnd::FromHandle(hParent),
                  kFirstControlId + m_dwObjNum);
}

// A decoder that can't be created shows only later: DecodeOneFrame then fails each frame.
int CDecodeWnd::OpenDecodeOnlyMode(int bDecodeOnly, DWORD dwRevision)
{
    if (m_pDecoder != nullptr || m_hWnd != nullptr)
        return 0;
    m_pPicture.reset(new (std::nothrow) BYTE[DECODE_ONLY_PICTURE_BYTES]);
    m_pPcmPiece.reset(new (std::nothrow) short[CAdpcm::kMaxSamples]);
    if (m_pPicture == nullptr || m_pPcmPiece == nullptr)
        return 0;
    CreateDecoder(dwRevision, DECODE_ONLY_PICTURE_BYTES);
    m_bDecodeOnly = bDecodeOnly;
    return 1;
}

void CDecodeWnd::CloseDecodeWnd()
{
    if (m_bDecodeOnly) {
        m_pDecoder.reset();
        m_bDecodeOnly = 0;
        m_pPicture.reset();
        m_pAdpcm.reset();
        m_pPcmPiece.reset();
        return;
    }
    CloseVideo(0);
    if (m_hWnd != nullptr)
        DestroyWindow();
}

int CDecodeWnd::OpenVideo(CString strFile, int nPlaySpeed, int /*nReserved*/, int nWaveOutID)
{
    if (m_bDecodeOnly || m_pFile != nullptr || m_hWnd == nullptr)
        return 0;
    std::unique_ptr<CZnFile> pFile(new (std::nothrow) CZnFile);
    if (pFile == nullptr || !pFile->Open(strFile, &m_CameraInfo, 0, ZNFILE_READ))
        return 0;
    m_pFile = std::move(pFile);
    if (!AllocatePlayBuffers()) {
        CloseVideo(0);
        return 0;
    }
    FillPlayInfo(nPlaySpeed, nWaveOutID);
    if (!m_pFile->ReadOneFrame(&m_pFrame->frame, -1, 0)) {
        CloseVideo(0);
        return 0;
    }
    // The first tick finds the first frame due at once.
    m_PlayInfo.dwFrameStamp = m_pFrame->frame.dwTimeStamp;
    if (!CreateDecoder(GetFileRevision(*m_pFile), m_nPictureBytes) || !StartTimer()) {
        CloseVideo(0);
        return 0;
    }
    return 1;
}

BOOL CDecodeWnd::AllocatePlayBuffers()
{
    const int nWidth = m_CameraInfo.nWidth;
    const int nHeight = m_CameraInfo.nHeight;
    m_nPictureBytes = nWidth * nHeight * 3;
    // Black until the first picture decodes.
    m_pPicture.reset(new (std::nothrow) BYTE[static_cast<std::size_t>(m_nPictureBytes)]());
    m_pFrame = MakeOwnedFrame(nWidth, nHeight);
    m_pSeekFrame = MakeOwnedFrame(nWidth, nHeight);
    return m_pPicture != nullptr && m_pFrame != nullptr && m_pSeekFrame != nullptr;
}

void CDecodeWnd::FillPlayInfo(int nPlaySpeed, int nWaveOutID)
{
    m_PlayInfo.nWaveOutID = nWaveOutID;
    m_PlayInfo.bEnableSound = 1;
    m_PlayInfo.nSoundFmt = m_pFile->GetSoundFormat();
    m_PlayInfo.nPlaySpeed = nPlaySpeed;
    m_PlayInfo.tBegin = CTime(static_cast<time_t>(m_pFile->GetBeginTime()));
    m_PlayInfo.tCurrent = m_PlayInfo.tBegin;
    m_PlayInfo.tEnd = CTime(static_cast<time_t>(m_pFile->GetEndTime()));
    m_PlayInfo.dwBeginStamp = m_pFile->GetBeginTimeStamp();
    m_PlayInfo.dwLastTick = GetTickCount();
    m_pFile->GetFilePos(m_PlayInfo.nBlockIndex, m_PlayInfo.nFrameIndex);
}

// The decoder writes into m_pPicture, so it learns its size before the first record.
BOOL CDecodeWnd::CreateDecoder(DWORD dwRevision, int nPictureBytes)
{
    m_pDecoder.reset(new (std::nothrow) CDecoder);
    if (m_pDecoder == nullptr || !m_pDecoder->Create(dwRevision)) {
        m_pDecoder.reset();
        return FALSE;
    }
    m_pDecoder->SetOutputCapacity(nPictureBytes);
    return TRUE;
}

BOOL CDecodeWnd::StartTimer()
{
    m_nTimer = SetTimer(kPlayTimerId, kPlayTimerPeriodMs, nullptr);
    return m_nTimer != 0;
}

void CDecodeWnd::CloseVideo(int bNotify)
{
    if (m_bDecodeOnly)
        return;
    if (m_nTimer != 0) {
        KillTimer(m_nTimer);
        m_nTimer = 0;
    }
    CloseAudio();
    m_pFile.reset();   // closes the file
    m_pPicture.reset();
    m_nPictureBytes = 0;
    m_pFrame.reset();
    m_pSeekFrame.reset();
    m_pDecoder.reset();
    m_PlayInfo = {};
    if (bNotify)
        NotifyHost(VIDEOPLAY_END, 0);
}

CZnFile* CDecodeWnd::GetZnFile() const
{
    return m_pFile.get();
}

const tag_VIDEOPLAYINFO* CDecodeWnd::GetPlayInfo()
{
    return &m_PlayInfo;
}

int CDecodeWnd::GetPlaySpeed()
{
    return m_PlayInfo.nPlaySpeed;
}

void CDecodeWnd::ChangePlaySpeed(int nSpeed)
{
    m_PlayInfo.nPlaySpeed = nSpeed;
}

void CDecodeWnd::EnableSound(int bEnable)
{
    if (!m_bDecodeOnly)
        m_PlayInfo.bEnableSound = bEnable;
}

// ---------------------------------------------------------------------------
// The playback clock

void CDecodeWnd::OnTimer(UINT nIDEvent)
{
    // Also drops a tick that was still queued when the timer was killed.
    if (nIDEvent != m_nTimer)
        return;
    const DWORD dwNow = GetTickCount();
    const DWORD dwElapsed = dwNow - m_PlayInfo.dwLastTick;
    const DWORD dwGap = m_pFrame->frame.dwTimeStamp - m_PlayInfo.dwFrameStamp;
    if (dwGap <= ScaleToStamps(dwElapsed, m_PlayInfo.nPlaySpeed)) {
        DecodeOneFrame(dwNow);
        return;
    }
    UpdatePlayClock(dwElapsed);
}

// A tick without a due frame: the host's clock moves on. None comes in the first second
// of a file.
void CDecodeWnd::UpdatePlayClock(DWORD dwElapsed)
{
    const unsigned long long nPos = static_cast<DWORD>(m_PlayInfo.dwFrameStamp - m_PlayInfo.dwBeginStamp) +
                                    ScaleToClock(dwElapsed, m_PlayInfo.nPlaySpeed);
    const unsigned long long nSeconds = nPos / kMillisecondsPerSecond;
    if (nSeconds == 0)
        return;
    m_PlayInfo.tCurrent = m_PlayInfo.tBegin + CTimeSpan(static_cast<time_t>(nSeconds));
    NotifyHost(VIDEOPLAY_CLOCK, reinterpret_cast<LPARAM>(&m_PlayInfo));
}

// Shows the pending frame and reads the next one; at the end of the file the playing ends.
void CDecodeWnd::DecodeOneFrame(DWORD dwNow)
{
    // Sound goes to the device before the picture is decoded.
    CheckAudio();
    tag_ZNFRAMEDATA& frame = m_pFrame->frame;
    m_pFile->GetFilePos(m_PlayInfo.nBlockIndex, m_PlayInfo.nFrameIndex);
    m_PlayInfo.dwLastTick = dwNow;
    m_PlayInfo.dwFrameStamp = frame.dwTimeStamp;
    const DWORD dwSeconds = (m_PlayInfo.dwFrameStamp - m_PlayInfo.dwBeginStamp) / kMillisecondsPerSecond;
    if (dwSeconds != 0)
        m_PlayInfo.tCurrent = m_PlayInfo.tBegin + CTimeSpan(static_cast<time_t>(dwSeconds));
    DecodePicture(frame);
    tag_PLAYFRAME play{0, &m_CameraInfo, &frame, m_pPicture.get(), &m_PlayInfo};
    NotifyHost(VIDEOPLAY_FRAME, reinterpret_cast<LPARAM>(&play));
    // A host that closed the video inside its handler has taken the frame and the file.
    if (m_pFile == nullptr)
        return;
    if (!m_pFile->ReadOneFrame(&frame, -1, 0))
        CloseVideo(1);
}

// A lost frame shows black; a record that doesn't decode leaves the picture as it stands.
void CDecodeWnd::DecodePicture(const tag_ZNFRAMEDATA& frame)
{
    if ((frame.wFlags & ZNFRAME_LOST) != 0) {
        std::memset(m_pPicture.get(), 0, static_cast<std::size_t>(m_nPictureBytes));
        return;
    }
    m_pDecoder->DecodeOneFrame(frame.pVideo, GetRecordLength(frame.dwVideoLen), m_pPicture.get(), FALSE);
}

void CDecodeWnd::NotifyHost(WPARAM wParam, LPARAM lParam)
{
    if (IsWindow(m_hNotifyWnd))
        ::SendMessage(m_hNotifyWnd, WM_VIDEOPLAY, wParam, lParam);
}

CTime CDecodeWnd::GetStampTime(DWORD dwStamp) const
{
    const DWORD dwSeconds = (dwStamp - m_PlayInfo.dwBeginStamp) / kMillisecondsPerSecond;
    return m_PlayInfo.tBegin + CTimeSpan(static_cast<time_t>(dwSeconds));
}

// ---------------------------------------------------------------------------
// Sound

// Sound plays at normal speed, when it is wanted, for a pending frame that has some.
BOOL CDecodeWnd::WantsSound() const
{
    return m_pFrame != nullptr && m_PlayInfo.bEnableSound && m_PlayInfo.nPlaySpeed == 0 &&
           (m_pFrame->frame.wFlags & ZNFRAME_SOUND) != 0;
}

// Keeps the device in the state the pending frame needs and queues its sound. A frame
// without sound closes the device; the next one with sound opens it anew, behind fresh
// silence. A device that doesn't open leaves the frame silent, and the next one tries.
void CDecodeWnd::CheckAudio()
{
    if (!WantsSound()) {
        CloseAudio();
        return;
    }
    if (OpenAudio())
        m_pWave->Play(m_pFrame->frame.pSound, static_cast<int>(m_pFrame->frame.dwSoundLen));
}

int CDecodeWnd::OpenAudio()
{
    if (m_pWave != nullptr)
        return 1;
    m_pWave.reset(new (std::nothrow) CWaveCodec);
    if (m_pWave == nullptr ||
        !m_pWave->Open(m_hWnd, static_cast<DWORD>(m_PlayInfo.nWaveOutID), m_PlayInfo.nSoundFmt, ZNFILE_WRITE)) {
        m_pWave.reset();
        return 0;
    }
    m_pWave->StartPlay();
    return 1;
}

// Closing resets the device: what is queued is cut off.
void CDecodeWnd::CloseAudio()
{
    if (m_pWave == nullptr)
        return;
    m_pWave->Close();
    m_pWave.reset();
}

// A finished buffer. When fewer than the low-water mark stay queued, the pending frame
// comes at once, whatever its stamp: the sound can hurry the picture, never hold it.
void CDecodeWnd::OnWomDone(WPARAM wParam, LPARAM lParam)
{
    if (m_pWave == nullptr)
        return;
    int bNeedData = 0;
    m_pWave->OnPlayDone(reinterpret_cast<HWAVEOUT>(wParam), reinterpret_cast<WAVEHDR*>(lParam), bNeedData);
    if (!bNeedData)
        return;
    if (!WantsSound()) {
        CloseAudio();
        return;
    }
    const DWORD dwNow = GetTickCount();
    if (SkipFramesWithoutSoundBytes())
        DecodeOneFrame(dwNow);
}

// Frames that carry the sound flag but no sound are decoded unseen, since the frames
// after them build on their pictures; FALSE when the file ends among them.
BOOL CDecodeWnd::SkipFramesWithoutSoundBytes()
{
    tag_ZNFRAMEDATA& frame = m_pFrame->frame;
    while ((frame.wFlags & ZNFRAME_SOUND) != 0 && frame.dwSoundLen == 0) {
        m_pFile->GetFilePos(m_PlayInfo.nBlockIndex, m_PlayInfo.nFrameIndex);
        m_PlayInfo.dwFrameStamp = frame.dwTimeStamp;
        DecodePicture(frame);
        if (!m_pFile->ReadOneFrame(&frame, -1, 0)) {
            CloseVideo(1);
            return FALSE;
        }
    }
    return TRUE;
}

// ---------------------------------------------------------------------------
// Pausing and seeking

void CDecodeWnd::Pause()
{
    if (m_bDecodeOnly || m_pFile == nullptr)
        return;
    if (m_nTimer != 0) {
        KillTimer(m_nTimer);
        m_nTimer = 0;
        CloseAudio();   // the queued sound is cut off
        return;
    }
    // The pending frame waits its full gap from now.
    if (StartTimer())
        m_PlayInfo.dwLastTick = GetTickCount();
}

// The time of a pause counts as elapsed: the pending frame is due at once after a pause
// longer than its gap.
void CDecodeWnd::ResetPlay()
{
    if (m_bDecodeOnly)
        return;
    m_PlayInfo.nPlaySpeed = 0;
    if (m_pFile != nullptr && m_nTimer == 0)
        StartTimer();
}

int CDecodeWnd::IsPause()
{
    return m_nTimer == 0;
}

int CDecodeWnd::PlayFrom(int nBlock, int nFrame)
{
    if (m_bDecodeOnly || m_pFile == nullptr || nFrame < 0)
        return 0;
    for (int i = 0; i < nFrame; ++i) {
        if (!ReadAndDecode(i == 0 ? nBlock : -1))
            return 0;
    }
    return TakeSeekFrame(nBlock, nFrame, TRUE);
}

int CDecodeWnd::PlayFrom(CTime tWhen)
{
    if (m_bDecodeOnly || m_pFile == nullptr)
        return 0;
    const int nBlock = FindBlock(tWhen);
    const int nFrames = static_cast<int>(m_pFile->GetBlockInfo()->GetAt(nBlock).dwFrames);
    int i = 0;
    for (; i < nFrames; ++i) {
        if (!ReadAndDecode(i == 0 ? nBlock : -1))
            return 0;
        if (GetStampTime(m_pSeekFrame->frame.dwTimeStamp) > tWhen)
            break;
    }
    return TakeSeekFrame(nBlock, i, FALSE);
}

// Reads one frame of the seek (nBlock below 0: the next one) and decodes it unseen.
BOOL CDecodeWnd::ReadAndDecode(int nBlock)
{
    if (!m_pFile->ReadOneFrame(&m_pSeekFrame->frame, nBlock, 0))
        return FALSE;
    DecodePicture(m_pSeekFrame->frame);
    return TRUE;
}

// Reads the frame that becomes pending after nFrame frames of block nBlock were decoded,
// and makes it the pending frame. The next tick shows it, so the video runs. A seek to a
// block refuses a first frame without picture in a file of a single block: nothing there
// would show.
int CDecodeWnd::TakeSeekFrame(int nBlock, int nFrame, BOOL bRefuseBlankSingleBlock)
{
    tag_ZNFRAMEDATA& scratch = m_pSeekFrame->frame;
    int nPosBlock = nBlock;
    int nPosFrame = 0;
    if (nFrame == 0) {
        if (!m_pFile->ReadOneFrame(&scratch, nBlock, 0))
            return 0;
        if (bRefuseBlankSingleBlock && scratch.dwVideoLen == 0 && m_pFile->GetTotalBlock() < 3)
            return 0;
    } else {
        m_pFile->GetFilePos(nPosBlock, nPosFrame);
        if (!m_pFile->ReadOneFrame(&scratch, -1, 0))
            return 0;
    }
    std::swap(m_pFrame, m_pSeekFrame);
    m_PlayInfo.dwFrameStamp = m_pFrame->frame.dwTimeStamp;
    m_PlayInfo.dwLastTick = GetTickCount();
    m_PlayInfo.nBlockIndex = nPosBlock;
    m_PlayInfo.nFrameIndex = nPosFrame;
    if (m_nTimer == 0)
        StartTimer();
    return 1;
}

// Binary search over the block table for the last block that begins at or before tWhen,
// or block 0 when the file begins later. An open file has at least its end block.
int CDecodeWnd::FindBlock(CTime tWhen) const
{
    const CArray<tag_ZNBLOCKINFO, tag_ZNBLOCKINFO&>& blocks = *m_pFile->GetBlockInfo();
    int nLow = 0;
    int nHigh = static_cast<int>(m_pFile->GetTotalBlock()) - 1;
    int nMid = 0;
    CTime tMid;
    do {
        nMid = (nLow + nHigh) / 2;
        tMid = GetStampTime(blocks.GetAt(nMid).dwTimeStamp);
        if (tMid > tWhen)
            nHigh = nMid > nLow ? nMid - 1 : nMid;
        else
            nLow = nMid < nHigh ? nMid + 1 : nMid;
    } while (nMid != nLow || nMid != nHigh);
    if (tMid > tWhen && nMid >= 1)
        --nMid;
    return nMid;
}

// ---------------------------------------------------------------------------
// Decoder-only mode

int CDecodeWnd::DecodeOneFrame(tag_ZNFRAMEDATA* pFrame, tag_DECODEINFO& info, BYTE* pPicture, int nPictureSize,
                               BYTE* pSound, int nSoundSize, tag_SOUNDFMT nFmt)
{
    if (!m_bDecodeOnly || pFrame == nullptr || m_pDecoder == nullptr || m_pPicture == nullptr)
        return 0;
    info.wFlags = static_cast<WORD>(pFrame->wFlags & kDecodeInfoFlags);
    if ((pFrame->wFlags & ZNFRAME_LOST) != 0) {
        info.bError = 0;
        info.nWidth = 0;
        info.nHeight = 0;
    } else {
        const DECODER_RETURN result =
            m_pDecoder->DecodeOneFrame(pFrame->pVideo, GetRecordLength(pFrame->dwVideoLen), m_pPicture.get(), TRUE);
        info.nFrameType = result.nFrameType;
        info.bError = result.bError;
        info.nWidth = result.nWidth;
        info.nHeight = result.nHeight;
        if (result.bError)
            return 0;
        if (pPicture != nullptr) {
            const long long nBytes = static_cast<long long>(result.nWidth) * result.nHeight * 3;
            if (nBytes > nPictureSize)
                return 0;
            std::memcpy(pPicture, m_pPicture.get(), static_cast<std::size_t>(nBytes));
        }
    }
    return DecodeSound(*pFrame, info, pSound, nSoundSize, nFmt);
}

// The frame's G.726 code as PCM in the host's buffer. Sound that stops starts again
// with a fresh decoder; code longer than one CAdpcm call takes goes in pieces.
int CDecodeWnd::DecodeSound(const tag_ZNFRAMEDATA& frame, tag_DECODEINFO& info, BYTE* pSound, int nSoundSize,
                            tag_SOUNDFMT nFmt)
{
    info.nSoundLen = 0;
    if (pSound == nullptr || nSoundSize <= 0)
        return 1;
    if ((frame.wFlags & ZNFRAME_SOUND) == 0) {
        m_pAdpcm.reset();
        return 1;
    }
    if (nFmt != SOUNDFMT_ADPCM)
        return 1;
    const long long nNeeded = static_cast<long long>(frame.dwSoundLen / CAdpcm::kBytesPerGroup) * kPcmBytesPerCodeGroup;
    info.nSoundLen = static_cast<int>(std::min<long long>(nNeeded, INT_MAX));
    if (nNeeded == 0)
        return 1;
    if (nNeeded > nSoundSize)
        return 0;
    // Code that ends inside a group carries no whole sample: nothing is written.
    if (frame.dwSoundLen % CAdpcm::kBytesPerGroup != 0)
        return 1;
    if (m_pAdpcm == nullptr) {
        m_pAdpcm.reset(new (std::nothrow) CAdpcm);
        if (m_pAdpcm == nullptr || !m_pAdpcm->Init(CAdpcm::kModeDecoder)) {
            m_pAdpcm.reset();
            return 0;
        }
    }
    for (DWORD dwDone = 0; dwDone < frame.dwSoundLen;) {
        const int nPiece = static_cast<int>(std::min<DWORD>(frame.dwSoundLen - dwDone, CAdpcm::kMaxCodeBytes));
        const int nSamples = nPiece / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup;
        m_pAdpcm->Decode(frame.pSound + dwDone, m_pPcmPiece.get(), nPiece, 0);
        std::memcpy(pSound + dwDone / CAdpcm::kBytesPerGroup * kPcmBytesPerCodeGroup, m_pPcmPiece.get(),
                    static_cast<std::size_t>(nSamples) * sizeof(short));
        dwDone += static_cast<DWORD>(nPiece);
    }
    return 1;
}
