#include "capture/CVideo.h"

#include "capture/CBoardList.h"
#include "capture/CCaptureWnd.h"
#include "capture/CEncodeParam.h"
#include "vocabulary/BoardLayout.h"

#include <new>

namespace {

// The bus lock is waited for this long by a port operation, in the driver's unit.
constexpr DWORD kPortLockTimeout = 1000;
// The last argument of every port transfer, passed through to the driver.
constexpr int kPortRetry = 5;

enum tag_PORTOPERATION : DWORD {
    PORTOP_READINPUT = 1,
    PORTOP_NONE = 2,
    PORTOP_COMMAND98 = 3,
    PORTOP_COMMAND98_AGAIN = 4,
    PORTOP_COMMAND90 = 5,
    PORTOP_WRITEOUTPUT = 6,
};

// The bus calls of one port operation; false when one of them failed or the operation
// does nothing.
bool RunPortOperation(CSpciDebi& debi, DWORD dwOperation, DWORD dwValue, DWORD& dwResult)
{
    switch (dwOperation) {
    case PORTOP_READINPUT: {
        BYTE byInput = 0;
        if (debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_READINPUT, kPortRetry) == -1 ||
            debi.ReadDebiByte(BUS_ADDRESS_COMMAND, byInput, kPortRetry) == -1)
            return false;
        dwResult = static_cast<BYTE>(~byInput);
        return true;
    }
    case PORTOP_COMMAND98:
    case PORTOP_COMMAND98_AGAIN:
        return debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_98, kPortRetry) != -1;
    case PORTOP_COMMAND90:
        return debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_90, kPortRetry) != -1;
    case PORTOP_WRITEOUTPUT:
        return debi.WriteDebiByte(BUS_ADDRESS_DATA, static_cast<BYTE>(dwValue), kPortRetry) != -1 &&
               debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_WRITEOUTPUT, kPortRetry) != -1;
    default:
        return false;
    }
}

} // namespace

DWORD CVideo::m_dwObjNumber = 0;

CVideo::CVideo()
    : m_dwRevision(STREAM_REVISION_20020114)
{
    ++m_dwObjNumber;
}

CVideo::~CVideo()
{
    --m_dwObjNumber;
    // Each object closes what it opened, the last one included.
    Close();
}

tag_ZNRETURN CVideo::Open(CWnd* pParent, DWORD dwRevision)
{
    if (m_dwObjNumber > 1 || m_pBoardList != nullptr)
        return ZNRET_NOT_AVAILABLE;
    if (pParent == nullptr)
        return ZNRET_BAD_ARGUMENT;
    m_pParent = pParent;
    m_pBoardList.reset(new (std::nothrow) CBoardList(dwRevision));
    const int nBoards = m_pBoardList != nullptr ? m_pBoardList->GetBoardNum() : 0;
    if (nBoards > 0)
        m_ppCaptureWnd.reset(new (std::nothrow) std::unique_ptr<CCaptureWnd>[nBoards]);
    if (m_pBoardList == nullptr || !m_pBoardList->IsComplete() || (nBoards > 0 && m_ppCaptureWnd == nullptr)) {
        Close();
        return ZNRET_NO_MEMORY;
    }
    m_dwRevision = dwRevision;
    return ZNRET_OK;
}

void CVideo::Close()
{
    if (m_ppCaptureWnd != nullptr) {
        for (int nBoard = 0; nBoard < GetBoardNum(); ++nBoard)
            CloseBoard(nBoard);
        m_ppCaptureWnd.reset();
    }
    m_pBoardList.reset();
    m_pParent = nullptr;
}

bool CVideo::IsBoardNumber(int nBoard) const
{
    return nBoard >= 0 && nBoard < GetBoardNum();
}

tag_ZNRETURN CVideo::OpenBoard(int nBoard, tag_FRAMESIZE nSize, int nRecordSpeed, tag_VIDEOCOLOR*)
{
    tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
    int nWidth = 0;
    int nHeight = 0;
    if (GetVideoSize(nSize, nStandard, nWidth, nHeight) != ZNRET_OK)
        return ZNRET_BAD_ARGUMENT;
    if (m_ppCaptureWnd == nullptr)
        return ZNRET_FAILED;
    if (!IsBoardNumber(nBoard))
        return ZNRET_BAD_ARGUMENT;
    if (m_ppCaptureWnd[nBoard] != nullptr)
        return ZNRET_ALREADY_OPEN;
    m_ppCaptureWnd[nBoard].reset(new (std::nothrow) CCaptureWnd);
    CCaptureWnd* pWnd = m_ppCaptureWnd[nBoard].get();
    if (pWnd == nullptr)
        return ZNRET_NO_MEMORY;
    if (!pWnd->Create(m_pParent, m_pBoardList->GetBoard(nBoard), this, nBoard)) {
        m_ppCaptureWnd[nBoard].reset();
        return ZNRET_NOT_AVAILABLE;
    }
    if (!pWnd->Open(nWidth, nHeight, nStandard, nRecordSpeed, m_dwRevision)) {
        pWnd->DestroyWindow();
        m_ppCaptureWnd[nBoard].reset();
        return ZNRET_NOT_AVAILABLE;
    }
    return ZNRET_OK;
}

tag_ZNRETURN CVideo::CloseBoard(int nBoard)
{
    if (m_ppCaptureWnd == nullptr)
        return ZNRET_FAILED;
    if (!IsBoardNumber(nBoard))
        return ZNRET_BAD_ARGUMENT;
    CCaptureWnd* pWnd = m_ppCaptureWnd[nBoard].get();
    if (pWnd == nullptr)
        return ZNRET_OK;
    for (int nCamera = 0; nCamera < GetCameraNum(nBoard); ++nCamera)
        CloseCamera(nBoard, nCamera);
    pWnd->Close();
    pWnd->DestroyWindow();
    m_ppCaptureWnd[nBoard].reset();
    return ZNRET_OK;
}

tag_ZNRETURN CVideo::OpenCamera(int nBoard, int nCamera, CEncodeParam* pParam, tag_VIDEOCOLOR*)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_FAILED, nResult);
    if (pWnd == nullptr)
        return nResult;
    return pWnd->OpenCamera(nCamera, pParam) ? ZNRET_OK : ZNRET_FAILED;
}

tag_ZNRETURN CVideo::CloseCamera(int nBoard, int nCamera)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_FAILED, nResult);
    if (pWnd == nullptr)
        return nResult;
    return pWnd->CloseCamera(nCamera) ? ZNRET_OK : ZNRET_FAILED;
}

int CVideo::GetBoardNum() const
{
    return m_pBoardList != nullptr ? m_pBoardList->GetBoardNum() : -1;
}

int CVideo::GetCameraNum(int nBoard) const
{
    if (!IsBoardNumber(nBoard))
        return -1;
    return m_pBoardList->GetVersion(nBoard).GetChannels();
}

int CVideo::GetTotalCameraNum() const
{
    if (m_pBoardList == nullptr)
        return -1;
    int nTotal = 0;
    for (int nBoard = 0; nBoard < GetBoardNum(); ++nBoard)
        nTotal += GetCameraNum(nBoard);
    return nTotal;
}

tag_ZNRETURN CVideo::GetBoardStatus(int nBoard)
{
    if (!IsBoardNumber(nBoard))
        return ZNRET_BAD_ARGUMENT;
    if (m_ppCaptureWnd == nullptr || m_ppCaptureWnd[nBoard] == nullptr)
        return ZNRET_NOT_AVAILABLE;
    return ZNRET_OK;
}

int CVideo::IsCameraStart(int nBoard, int nCamera)
{
    if (m_ppCaptureWnd == nullptr || !IsBoardNumber(nBoard) || m_ppCaptureWnd[nBoard] == nullptr)
        return 0;
    return m_ppCaptureWnd[nBoard]->IsCameraStart(nCamera) ? 1 : 0;
}

tag_ZNRETURN CVideo::GetCameraStatus(int nBoard, int nCamera, tag_CAMERASTATUS& nStatus)
{
    if (!IsBoardNumber(nBoard))
        return ZNRET_BAD_ARGUMENT;
    nStatus = CAMSTATUS_NONE;
    if (m_ppCaptureWnd == nullptr || m_ppCaptureWnd[nBoard] == nullptr)
        return ZNRET_NOT_AVAILABLE;
    HWND hCamera = m_ppCaptureWnd[nBoard]->GetCameraWnd(nCamera);
    if (hCamera == nullptr)
        return ZNRET_FAILED;
    int nValue = CAMSTATUS_NONE;
    ::SendMessage(hCamera, WM_ZN_GETPARAM, CAMOP_STATUS, reinterpret_cast<LPARAM>(&nValue));
    nStatus = static_cast<tag_CAMERASTATUS>(nValue);
    return ZNRET_OK;
}

tag_ZNRETURN CVideo::GetVideoSize(int nBoard, tag_FRAMESIZE& nSize)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_NOT_AVAILABLE, nResult);
    if (pWnd == nullptr)
        return nResult;
    int nWidth = 0;
    int nHeight = 0;
    tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
    pWnd->GetVideoSize(&nWidth, &nHeight, &nStandard);
    nSize = GetVideoSize(nWidth, nHeight, nStandard, m_dwRevision);
    return nSize == FRAMESIZE_INVALID ? ZNRET_FAILED : ZNRET_OK;
}

CCaptureWnd* CVideo::FindOpenBoard(int nBoard, tag_ZNRETURN nWhenClosed, tag_ZNRETURN& nResult) const
{
    nResult = ZNRET_FAILED;
    if (m_ppCaptureWnd == nullptr)
        return nullptr;
    if (!IsBoardNumber(nBoard)) {
        nResult = ZNRET_BAD_ARGUMENT;
        return nullptr;
    }
    if (m_ppCaptureWnd[nBoard] == nullptr)
        nResult = nWhenClosed;
    return m_ppCaptureWnd[nBoard].get();
}

tag_ZNRETURN CVideo::SendSetting(int nBoard, int nCamera, int nOperation, LPARAM nValue)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_FAILED, nResult);
    if (pWnd == nullptr)
        return nResult;
    HWND hCamera = pWnd->GetCameraWnd(nCamera);
    if (hCamera == nullptr)
        return ZNRET_FAILED;
    ::SendMessage(hCamera, WM_ZN_SETPARAM, static_cast<WPARAM>(nOperation), nValue);
    return ZNRET_OK;
}

tag_ZNRETURN CVideo::SetEncodeParam(int nBoard, int nCamera, CEncodeParam* pParam)
{
    return SendSetting(nBoard, nCamera, CAMOP_ENCODEPARAM, reinterpret_cast<LPARAM>(pParam));
}

tag_ZNRETURN CVideo::SetEncodeMode(int nBoard, int nCamera, int bEncode)
{
    return SendSetting(nBoard, nCamera, CAMOP_ENCODEMODE, bEncode);
}

tag_ZNRETURN CVideo::SetEncodeSound(int nBoard, int nCamera, int bSound)
{
    return SendSetting(nBoard, nCamera, CAMOP_ENCODESOUND, bSound);
}

tag_ZNRETURN CVideo::SetEncodeSoundDev(int nBoard, int nCamera, int nDevice)
{
    return SendSetting(nBoard, nCamera, CAMOP_SOUNDDEVICE, static_cast<LPARAM>(static_cast<DWORD>(nDevice)));
}

tag_ZNRETURN CVideo::SetCheckSen(int nBoard, int nCamera, int nSen)
{
    return SendSetting(nBoard, nCamera, CAMOP_CHECKSEN, nSen);
}

tag_ZNRETURN CVideo::SetMask(int nBoard, int nCamera, CMaskInfo* pMask)
{
    return SendSetting(nBoard, nCamera, CAMOP_MASK, reinterpret_cast<LPARAM>(pMask));
}

tag_ZNRETURN CVideo::SetAlarmFrameNum(int nBoard, int nCamera, int nFrames)
{
    return SendSetting(nBoard, nCamera, CAMOP_ALARMFRAMENUM, nFrames);
}

tag_ZNRETURN CVideo::SetQi(int nBoard, int nCamera, int nQ)
{
    return SendSetting(nBoard, nCamera, CAMOP_QI, nQ);
}

tag_ZNRETURN CVideo::SetQp(int nBoard, int nCamera, int nQ)
{
    return SendSetting(nBoard, nCamera, CAMOP_QP, nQ);
}

tag_ZNRETURN CVideo::ResetEncodeSeq(int nBoard, int nCamera)
{
    return SendSetting(nBoard, nCamera, CAMOP_RESETSEQUENCE, 0);
}

tag_ZNRETURN CVideo::GetEncodeParam(int nBoard, int nCamera, CEncodeParam* pParam)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_NOT_AVAILABLE, nResult);
    if (pWnd == nullptr)
        return nResult;
    if (pParam == nullptr)
        return ZNRET_BAD_ARGUMENT;
    HWND hCamera = pWnd->GetCameraWnd(nCamera);
    if (hCamera == nullptr)
        return ZNRET_FAILED;
    ::SendMessage(hCamera, WM_ZN_GETPARAM, CAMOP_ENCODEPARAM, reinterpret_cast<LPARAM>(pParam));
    return ZNRET_OK;
}

tag_ZNRETURN CVideo::SetVideoColor(int nBoard, int nCamera, tag_VIDEOCOLOR* pColor)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_NOT_AVAILABLE, nResult);
    if (pWnd == nullptr)
        return nResult;
    return pWnd->SetVideoColor(nCamera, pColor) ? ZNRET_OK : ZNRET_FAILED;
}

tag_ZNRETURN CVideo::GetVideoColor(int nBoard, int nCamera, tag_VIDEOCOLOR* pColor)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_NOT_AVAILABLE, nResult);
    if (pWnd == nullptr)
        return nResult;
    return pWnd->GetVideoColor(nCamera, pColor) ? ZNRET_OK : ZNRET_FAILED;
}

tag_ZNRETURN CVideo::SetRecordSpeed(int nBoard, int nSpeed)
{
    tag_ZNRETURN nResult = ZNRET_FAILED;
    CCaptureWnd* pWnd = FindOpenBoard(nBoard, ZNRET_NOT_AVAILABLE, nResult);
    if (pWnd == nullptr)
        return nResult;
    pWnd->SetRecordSpeed(nSpeed);
    return ZNRET_OK;
}

int CVideo::IsIOSupport(int nBoard) const
{
    if (!IsBoardNumber(nBoard))
        return 0;
    return HasBoardPorts(m_pBoardList->GetVersion(nBoard)) ? 1 : 0;
}

int CVideo::IsVoiceSupport(int nBoard) const
{
    return IsIOSupport(nBoard);
}

int CVideo::IsWatchDogSupport(int nBoard) const
{
    return IsIOSupport(nBoard);
}

int CVideo::IsCardPlusSupport(int nBoard) const
{
    if (!IsBoardNumber(nBoard))
        return 0;
    return IsTwoStreamBoard(m_pBoardList->GetVersion(nBoard)) ? 1 : 0;
}

int CVideo::ZN2AVPortOperation(void* pVideo, int nBoard, DWORD dwOperation, DWORD dwValue, DWORD& dwResult)
{
    auto* pThis = static_cast<CVideo*>(pVideo);
    if (pThis == nullptr || pThis->m_ppCaptureWnd == nullptr || !pThis->IsBoardNumber(nBoard) ||
        pThis->m_ppCaptureWnd[nBoard] == nullptr)
        return 0;
    CSpciDebi* pDebi = pThis->m_ppCaptureWnd[nBoard]->GetDebi();
    if (pDebi == nullptr || !pDebi->Lock(kPortLockTimeout))
        return 0;
    const bool bDone = RunPortOperation(*pDebi, dwOperation, dwValue, dwResult);
    pDebi->Unlock();
    return bDone ? 1 : 0;
}

tag_ZNRETURN CVideo::GetVideoSize(tag_FRAMESIZE nSize, tag_VIDEOSTANDARD& nStandard, int& nWidth,
                                  int& nHeight)
{
    return GetFrameSizePicture(nSize, nStandard, nWidth, nHeight) ? ZNRET_OK : ZNRET_FAILED;
}

tag_FRAMESIZE CVideo::GetVideoSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard,
                                   DWORD dwRevision)
{
    return GetFrameSizeOfPicture(nWidth, nHeight, nStandard, dwRevision);
}
