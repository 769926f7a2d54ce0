#include "capture/CCameraWnd.h"

#include "capture/CCaptureStream.h"
#include "capture/CCaptureWnd.h"
#include "capture/CMaskInfo.h"
#include "codec/CEncoder.h"
#include "platform/TickClock.h"
#include "platform/WinThreads.h"
#include "sound/CVoiceCodec.h"
#include "vocabulary/VideoSignal.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {


// The quantisers the encoder takes.
constexpr int kMinQuantiser = 1;
constexpr int kMaxQuantiser = 31;

constexpr int kMinCheckSen = 1;
constexpr int kMaxCheckSen = 31;
// Revision 0x20020219 codes at half size, where one step of sensitivity counts half.
constexpr int kThresholdScaleHalfSize = 128;
constexpr int kThresholdScale = 256;
constexpr int kMoveThresholdScale = 128;

// A thread message that can't be posted yet is tried again after this long.
constexpr DWORD kPostRetryMs = 100;

// The working size of the encoder under revision 0x20020219 for each width that an
// area can be stored with.
struct tag_WORKINGSIZE {
    int nStoredWidth;
    int nWidth;
    int nHeight;
};

constexpr tag_WORKINGSIZE kWorkingSizes[] = {
    {640, 320, 240},
    {320, 160, 128},
    {352, 176, 144},
    {704, 352, 288},
};

} // namespace

BEGIN_MESSAGE_MAP(CCameraWnd, CWnd)
    ON_MESSAGE(WM_ZN_ENCODED, OnEncoded)
    ON_MESSAGE(WM_ZN_FRAMEDONE, OnFrameDone)
    ON_MESSAGE(WM_ZN_SETPARAM, OnSetParam)
    ON_MESSAGE(WM_ZN_GETPARAM, OnGetParam)
    ON_MESSAGE(MM_WIM_DATA, OnWaveInData)
END_MESSAGE_MAP()

CCameraWnd::CCameraWnd() : m_pParam(new (std::nothrow) CEncodeParam)
{
}

CCameraWnd::~CCameraWnd()
{
    Close();
}

int CCameraWnd::MapQuantiser(int nQi, DWORD dwRevision)
{
    nQi = std::clamp(nQi, kMinQuantiser, kMaxQuantiser);
    if (dwRevision != STREAM_REVISION_20020219)
        return nQi;
    if (nQi < 8)
        return 4;
    if (nQi < 12)
        return 6;
    if (nQi < 16)
        return 8;
    return 10;
}

bool CCameraWnd::HasVideoSignal(const BYTE* pFrame, int nWidth, int nHeight)
{
    return ::HasVideoSignal(pFrame, static_cast<DWORD>(nWidth) * static_cast<DWORD>(nHeight) * 2);
}

int CCameraWnd::Open(int nCamera, CCaptureWnd* pWnd, CEncodeParam* pParam, DWORD dwRevision)
{
    if (pWnd == nullptr || pParam == nullptr || m_pParam == nullptr)
        return 0;
    m_dwRevision = dwRevision;
    m_pCaptureWnd = pWnd;
    m_Info.nBoard = pWnd->GetBoard();
    m_Info.nCamera = nCamera;
    pWnd->GetVideoSize(&m_Info.nWidth, &m_Info.nHeight, &m_Info.nStandard);
    *m_pParam = *pParam;
    CCaptureStream::GetDeliveredSize(m_Info.nWidth, m_Info.nHeight, m_Info.nStandard, dwRevision,
                                     m_nSignalWidth, m_nSignalHeight);
    if (!AllocateBuffers()) {
        FreeBuffers();
        return 0;
    }
    RestartCadence();
    StartThread();
    m_nStatus = CAMSTATUS_READY;
    if (m_pParam->m_bEncodeSound)
        OpenSound();
    return 1;
}

// The frame buffer, the encoder with its buffers, and the records with theirs; false
// when memory can't be had or the encoder refuses the board's frame size, since an
// encoder without buffers can't take a frame.
bool CCameraWnd::AllocateBuffers()
{
    m_pFrame.reset(new (std::nothrow)
                       BYTE[CCaptureStream::GetFrameBufferSize(m_Info.nWidth, m_Info.nHeight, m_Info.nStandard,
                                                               m_dwRevision)]());
    m_pEncoder.reset(new (std::nothrow) CEncoder);
    if (m_pFrame == nullptr || m_pEncoder == nullptr ||
        !m_pEncoder->Create(m_Info.nWidth, m_Info.nHeight, m_dwRevision, 0))
        return false;
    m_dwVideoCapacity = static_cast<DWORD>(
        std::max<std::size_t>(static_cast<std::size_t>(m_Info.nWidth) * m_Info.nHeight * 2,
                              CEncoder::GetMaxRecordLength(m_Info.nWidth, m_Info.nHeight)));
    m_pRecord.reset(new (std::nothrow) tag_ZNCAPTUREFRAME{});
    m_pFrameData.reset(new (std::nothrow) tag_ZNFRAMEDATA{});
    m_pVideoBuffer.reset(new (std::nothrow) BYTE[m_dwVideoCapacity]());
    m_pSoundBuffer.reset(new (std::nothrow) BYTE[ZNFRAME_SOUND_BUFFER_SIZE]());
    if (m_pRecord == nullptr || m_pFrameData == nullptr || m_pVideoBuffer == nullptr || m_pSoundBuffer == nullptr)
        return false;
    m_pFrameData->pVideo = m_pVideoBuffer.get();
    m_pFrameData->pSound = m_pSoundBuffer.get();
    return true;
}

void CCameraWnd::StartThread()
{
    m_hThreadEnd = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    m_hThreadReady = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    if (m_hThreadEnd != nullptr && m_hThreadReady != nullptr)
        m_hThread = CreateThread(nullptr, 0, &CCameraWnd::EncoderThreadMain, this, CREATE_SUSPENDED, &m_dwThreadId);
    if (m_hThread == nullptr) {
        for (HANDLE* pEvent : {&m_hThreadEnd, &m_hThreadReady}) {
            if (*pEvent != nullptr)
                CloseHandle(*pEvent);
            *pEvent = nullptr;
        }
        return;
    }
    SetThreadPriority(m_hThread, THREAD_PRIORITY_BELOW_NORMAL);
    ResumeThread(m_hThread);
    // Frames are posted to the thread's queue, which exists once the thread runs.
    WaitForSingleObject(m_hThreadReady, INFINITE);
    CloseHandle(m_hThreadReady);
    m_hThreadReady = nullptr;
}

DWORD CCameraWnd::EncoderThreadMain(LPVOID pParam)
{
    static_cast<CCameraWnd*>(pParam)->RunEncoderThread();
    return 0;
}

void CCameraWnd::RunEncoderThread()
{
    MSG msg;
    PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE);
    SetEvent(m_hThreadReady);
    while (GetMessage(&msg, nullptr, 0, 0) > 0) {
        if (msg.message == WM_ZN_FRAME)
            EncodeFrame(static_cast<BOOL>(msg.wParam), static_cast<int>(msg.lParam));
    }
    SetEvent(m_hThreadEnd);
}

void CCameraWnd::EncodeFrame(BOOL bDetectOnly, int nFrameType)
{
    const tag_ENCODESETTINGS settings = m_encodeSettings;
    m_pEncoder->SetQi(settings.nQuantiser);
    m_pEncoder->SetQp(settings.nQuantiser);
    if (bDetectOnly)
        m_pEncoder->SetMoveThreshold(settings.nThreshold);
    else
        m_pEncoder->SetIntraThreshold(settings.nThreshold);
    const ENCODER_RETURN result = m_pEncoder->Encode(m_pFrame.get(), bDetectOnly, nFrameType);
    if (!bDetectOnly) {
        const DWORD dwLength = std::min(static_cast<DWORD>(std::max(result.nLength, 0)), m_dwVideoCapacity);
        if (dwLength > 0)
            std::memcpy(m_pFrameData->pVideo, result.pBuffer, dwLength);
        m_pFrameData->dwVideoLen = dwLength;
    }
    ::PostMessage(m_hWnd, WM_ZN_ENCODED, static_cast<WPARAM>(bDetectOnly), 0);
}

void CCameraWnd::PrepareEncodeSettings()
{
    // The sensitivity is held to its range in the parameters themselves, so the host
    // reads back what the encoder used.
    m_pParam->m_nCheckSen = std::clamp(m_pParam->m_nCheckSen, kMinCheckSen, kMaxCheckSen);
    m_encodeSettings.nQuantiser = MapQuantiser(m_pParam->m_nQi, m_dwRevision);
    m_encodeSettings.nThreshold = GetEncoderThreshold(m_pParam->m_nCheckSen, !m_pParam->m_bEncodeMode, m_dwRevision);
}

int CCameraWnd::GetEncoderThreshold(int nCheckSen, BOOL bDetectOnly, DWORD dwRevision)
{
    if (bDetectOnly)
        return nCheckSen * kMoveThresholdScale;
    return nCheckSen * (dwRevision == STREAM_REVISION_20020219 ? kThresholdScaleHalfSize : kThresholdScale);
}

int CCameraWnd::OnFrame(std::unique_ptr<BYTE[]>& pFrame)
{
    m_pFrame.swap(pFrame);
    if (m_pParam->m_bEncodeMode && m_pParam->m_bEncodeSound)
        OpenSound();
    else
        CloseSound();
    const DWORD dwTime = GetTickCount();
    const int bLastLost = m_pRecord->bVideoLost;
    m_pRecord->bVideoLost = IsVideoLost() ? 1 : 0;
    if (m_pRecord->bVideoLost) {
        DeliverLostFrame(dwTime);
        return 1;
    }
    if (bLastLost)
        RestartCadence();
    m_pFrameData->wFlags = 0;
    m_pFrameData->wFrameType = static_cast<WORD>(m_nFrameType);
    m_pFrameData->dwTimeStamp = dwTime;
    m_pFrameData->dwVideoLen = 0;
    m_pFrameData->dwSoundLen = 0;
    m_nStatus = CAMSTATUS_ENCODING;
    PrepareEncodeSettings();
    PostFrameToThread();
    return 1;
}

bool CCameraWnd::IsVideoLost() const
{
    if (!m_pParam->m_bCheckVideo)
        return false;
    return !HasVideoSignal(m_pFrame.get(), m_nSignalWidth, m_nSignalHeight);
}

void CCameraWnd::DeliverLostFrame(DWORD dwTime)
{
    m_pFrameData->dwTimeStamp = dwTime;
    m_pFrameData->wFrameType = static_cast<WORD>(m_nFrameType);
    m_pFrameData->wFlags = ZNFRAME_LOST;
    m_pFrameData->dwSoundLen = 0;
    m_pFrameData->dwVideoLen = 0;
    AttachSound();
    AdvanceCadence();
    FillRecord();
    m_nStatus = CAMSTATUS_HOST;
    SendToHost();
}

void CCameraWnd::PostFrameToThread()
{
    for (;;) {
        // Worked out afresh for every try: the mode may change meanwhile.
        const bool bEncode = m_pParam->m_bEncodeMode != 0;
        const WPARAM bDetectOnly = bEncode ? 0 : 1;
        const LPARAM nFrameType = bEncode ? m_nFrameType : 1;
        if (m_hThread == nullptr) {
            // Without its thread the channel answers the frame itself, uncoded.
            PostMessage(WM_ZN_ENCODED, bDetectOnly, 0);
            return;
        }
        if (::PostThreadMessage(m_dwThreadId, WM_ZN_FRAME, bDetectOnly, nFrameType)) {
            if (bEncode)
                AdvanceCadence();
            else
                RestartCadence();
            return;
        }
        Sleep(kPostRetryMs);
    }
}

void CCameraWnd::AdvanceCadence()
{
    m_nFrameCount = (m_nFrameCount + 1) % KEY_FRAME_CYCLE;
    m_nFrameType = m_nFrameCount == 0 ? ZNFRAME_I : ZNFRAME_P;
}

void CCameraWnd::RestartCadence()
{
    m_nFrameType = ZNFRAME_I;
    m_nFrameCount = 0;
}

LRESULT CCameraWnd::OnEncoded(WPARAM, LPARAM)
{
    m_nStatus = CAMSTATUS_HOST;
    m_pFrameData->wFlags = AnalyseMotion() ? ZNFRAME_ALARM : 0;
    AttachSound();
    FillRecord();
    SendToHost();
    return 0;
}

LRESULT CCameraWnd::OnFrameDone(WPARAM, LPARAM)
{
    m_nStatus = CAMSTATUS_READY;
    return 0;
}

// A frame carries the code gathered since the frame before. A source that fails gives
// a frame with the flag and no sound; the picture goes out all the same.
void CCameraWnd::AttachSound()
{
    m_pFrameData->dwSoundLen = 0;
    if (!m_pParam->m_bEncodeSound || m_pSound == nullptr) {
        m_pFrameData->wFlags &= static_cast<WORD>(~ZNFRAME_SOUND);
        return;
    }
    m_pFrameData->wFlags |= ZNFRAME_SOUND;
    int nLen = 0;
    if (m_pSound->GetRecordData(m_pFrameData->pSound, nLen, static_cast<int>(ZNFRAME_SOUND_BUFFER_SIZE)))
        m_pFrameData->dwSoundLen = static_cast<DWORD>(nLen);
}

// Only a channel that encodes records sound, from the board's own inputs where the
// board has them for this camera, else from its wave-in device. Both give the same code
// through the same calls. A source that can't be opened leaves the channel silent, and
// the next frame tries again.
void CCameraWnd::OpenSound()
{
    if (m_pSound != nullptr || !m_pParam->m_bEncodeMode)
        return;
    std::unique_ptr<CWaveCodec> pSound;
    if (m_pCaptureWnd->IsBoardVoice(m_Info.nCamera)) {
        // A board whose voice thread couldn't be made costs nothing at each frame.
        CVoiceThread* pVoiceThread = m_pCaptureWnd->GetVoiceThread();
        if (pVoiceThread == nullptr)
            return;
        std::unique_ptr<CVoiceCodec> pVoice(new (std::nothrow) CVoiceCodec);
        if (pVoice == nullptr || !pVoice->OpenVoice(pVoiceThread, m_Info.nCamera))
            return;
        pSound = std::move(pVoice);
    } else {
        pSound.reset(new (std::nothrow) CWaveCodec);
        if (pSound == nullptr || !pSound->Open(m_hWnd, m_pParam->m_dwSoundDev, SOUNDFMT_ADPCM, ZNFILE_READ))
            return;
    }
    pSound->StartRecord();
    m_pSound = std::move(pSound);
}

void CCameraWnd::CloseSound()
{
    if (m_pSound == nullptr)
        return;
    m_pSound->Close();
    m_pSound.reset();
}

LRESULT CCameraWnd::OnWaveInData(WPARAM hWaveIn, LPARAM pHdr)
{
    if (m_pSound != nullptr)
        m_pSound->OnRecordData(hWaveIn, pHdr);
    return 0;
}

// The signal flag was set when the frame arrived.
void CCameraWnd::FillRecord()
{
    m_pRecord->pInfo = &m_Info;
    m_pRecord->pData = m_pFrameData.get();
    m_pRecord->pRaw = m_pFrame.get();
    m_pRecord->pParam = m_pParam.get();
}

// The host may close this camera, its board or the library in its handler: nothing of
// this object is touched after the call, here or in its callers.
void CCameraWnd::SendToHost()
{
    ::SendMessage(m_pCaptureWnd->GetParentWnd(), WM_ZN_FRAME, reinterpret_cast<WPARAM>(m_hWnd),
                  reinterpret_cast<LPARAM>(m_pRecord.get()));
}

int CCameraWnd::AnalyseMotion()
{
    int bAlarm = 0;
    for (POSITION pos = m_pParam->m_MaskList.GetHeadPosition(); pos != nullptr;) {
        auto* pMask = static_cast<CMaskInfo*>(m_pParam->m_MaskList.GetNext(pos));
        if (pMask == nullptr)
            continue;
        const CRect rcTest = GetMotionTestRect(*pMask, m_dwRevision);
        const BOOL bMove = m_pEncoder->IsAreaMove(rcTest.left, rcTest.top, rcTest.right, rcTest.bottom);
        pMask->SetAreaMove(bMove, m_pParam->m_nAlarmFrameNum);
        if (pMask->IsAlarm() != 0)
            bAlarm = 1;
    }
    return bAlarm;
}

CRect CCameraWnd::GetMotionTestRect(const CMaskInfo& mask, DWORD dwRevision)
{
    if (dwRevision != STREAM_REVISION_20020219)
        return mask.GetMaskRect();
    int nWidth = 0;
    int nHeight = 0;
    mask.GetVideoSize(nWidth, nHeight);
    for (const tag_WORKINGSIZE& size : kWorkingSizes) {
        if (size.nStoredWidth == nWidth) {
            nWidth = size.nWidth;
            nHeight = size.nHeight;
            break;
        }
    }
    CMaskInfo working;
    working = mask;
    working.SetVideoSize(nWidth, nHeight);
    return working.GetMaskRect();
}

LRESULT CCameraWnd::OnSetParam(WPARAM nOperation, LPARAM nValue)
{
    if (m_pParam == nullptr || nOperation > CAMOP_RESETSEQUENCE)
        return 0;
    switch (static_cast<int>(nOperation)) {
    case CAMOP_ENCODEPARAM: {
        auto* pNew = reinterpret_cast<CEncodeParam*>(nValue);
        if (pNew == nullptr)
            return 0;
        if (!(m_pParam->m_bEncodeMode && pNew->m_bEncodeMode))
            RestartCadence();
        m_pParam->SetMaskInfo(pNew);
        m_pParam->SetParam(pNew, ENCODEPARAM_QUANTISER | ENCODEPARAM_MODE | ENCODEPARAM_CHECKSEN |
                                     ENCODEPARAM_CHECKVIDEO);
        break;
    }
    case CAMOP_ENCODEMODE:
        if (nValue != 0 && m_pParam->m_bEncodeMode != 0)
            return 0;
        RestartCadence();
        m_pParam->m_bEncodeMode = static_cast<int>(nValue);
        break;
    case CAMOP_ENCODESOUND:
        m_pParam->m_bEncodeSound = static_cast<int>(nValue);
        CloseSound();
        if (nValue != 0)
            OpenSound();
        break;
    case CAMOP_SOUNDDEVICE:
        if (m_pParam->m_dwSoundDev == static_cast<DWORD>(nValue))
            return 0;
        m_pParam->m_dwSoundDev = static_cast<DWORD>(nValue);
        CloseSound();
        if (m_pParam->m_bEncodeSound)
            OpenSound();
        break;
    case CAMOP_CHECKSEN:
        m_pParam->m_nCheckSen = static_cast<int>(nValue);
        break;
    case CAMOP_MASK:
        if (nValue == 0)
            m_pParam->DeleteMaskInfo();
        else
            m_pParam->AddMaskInfo(reinterpret_cast<CMaskInfo*>(nValue), m_Info.nWidth, m_Info.nHeight);
        break;
    case CAMOP_ALARMFRAMENUM:
        m_pParam->m_nAlarmFrameNum = static_cast<int>(nValue);
        break;
    case CAMOP_QI:
        m_pParam->m_nQi = static_cast<int>(nValue);
        break;
    case CAMOP_QP:
        m_pParam->m_nQp = static_cast<int>(nValue);
        break;
    case CAMOP_RESETSEQUENCE:
        RestartCadence();
        break;
    default:
        break;
    }
    return 0;
}

LRESULT CCameraWnd::OnGetParam(WPARAM nOperation, LPARAM pResult)
{
    if (m_pParam == nullptr || nOperation == CAMOP_RESETSEQUENCE || pResult == 0)
        return 0;
    if (nOperation == CAMOP_STATUS)
        *reinterpret_cast<int*>(pResult) = m_nStatus;
    else
        *reinterpret_cast<CEncodeParam*>(pResult) = *m_pParam;
    return 0;
}

DWORD CCameraWnd::GetStatus() const
{
    return static_cast<DWORD>(m_nStatus);
}

void CCameraWnd::Close()
{
    CloseSound();
    StopThread();
    FreeBuffers();
    m_nStatus = CAMSTATUS_NONE;
}

void CCameraWnd::StopThread()
{
    if (m_hThread == nullptr)
        return;
    SuspendThread(m_hThread);
    SetThreadPriority(m_hThread, THREAD_PRIORITY_ABOVE_NORMAL);
    ResumeThread(m_hThread);
    if (m_nStatus == CAMSTATUS_ENCODING) {
        // The frame in work is waited for and dropped: it never reaches the host.
        MSG msg;
        GetMessage(&msg, m_hWnd, WM_ZN_ENCODED, WM_ZN_ENCODED);
    }
    while (!::PostThreadMessage(m_dwThreadId, WM_QUIT, 0, 0))
        Sleep(kPostRetryMs);
    WaitForSingleObject(m_hThreadEnd, INFINITE);
    CloseHandle(m_hThreadEnd);
    CloseHandle(m_hThread);
    m_hThread = nullptr;
    m_hThreadEnd = nullptr;
    m_dwThreadId = 0;
}

void CCameraWnd::FreeBuffers()
{
    m_pEncoder.reset();
    m_pFrame.reset();
    m_pRecord.reset();
    m_pFrameData.reset();
    m_pVideoBuffer.reset();
    m_pSoundBuffer.reset();
}
