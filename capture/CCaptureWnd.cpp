#include "capture/CCaptureWnd.h"

#include "capture/CCaptureStream.h"
#include "capture/CVideo.h"
#include "sound/CVoiceThread.h"
#include "vocabulary/BoardLayout.h"

#include <new>

namespace {

constexpr UINT kCaptureClassStyle = CS_VREDRAW | CS_HREDRAW | CS_NOCLOSE;
constexpr UINT kCaptureWndIdBase = 300;
constexpr RECT kCaptureWndRect{0, 0, 100, 100};

} // namespace

BEGIN_MESSAGE_MAP(CCaptureWnd, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnFrame)
END_MESSAGE_MAP()

CCaptureWnd::CCaptureWnd() = default;

CCaptureWnd::~CCaptureWnd()
{
    Close();
}

int CCaptureWnd::Create(CWnd* pParent, CSpciIO* pIO, CVideo* pVideo, int nBoard)
{
    if (pParent == nullptr || pVideo == nullptr || pIO == nullptr || nBoard < 0 ||
        nBoard >= pVideo->GetBoardNum())
        return 0;
    m_pParent = pParent;
    m_pIO = pIO;
    m_pVideo = pVideo;
    m_nBoard = nBoard;
    LPCSTR lpszClass = AfxRegisterWndClass(kCaptureClassStyle);
    return CWnd::Create(lpszClass, "capture window", WS_CHILD, kCaptureWndRect, pParent,
                        kCaptureWndIdBase + nBoard);
}

int CCaptureWnd::Open(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, int nRecordSpeed,
                      DWORD dwRevision)
{
    if (m_pIO == nullptr || m_pStream[0] != nullptr)
        return 0;
    m_pStream[0].reset(new (std::nothrow) CCaptureStream(this, m_pIO, 0));
    if (m_pStream[0] == nullptr || !m_pStream[0]->Open(nWidth, nHeight, nStandard, nRecordSpeed, dwRevision)) {
        m_pStream[0].reset();
        return 0;
    }
    const tag_AVVersion version = GetVersion();
    if (version.GetGeneration() > 1) {
        // Without its second stream the board goes on with the cameras of the first, and
        // without sound of its own.
        m_pStream[1].reset(new (std::nothrow) CCaptureStream(this, m_pIO, 1));
        if (m_pStream[1] != nullptr && !m_pStream[1]->Open(nWidth, nHeight, nStandard, nRecordSpeed, dwRevision))
            m_pStream[1].reset();
        if (m_pStream[1] == nullptr)
            return 1;
    } else if (version.GetChannels() != 2) {
        return 1;
    }
    m_pVoice.reset(new (std::nothrow) CVoiceThread(GetDebi()));
    return 1;
}

void CCaptureWnd::Close()
{
    // A stream closes as it goes.
    for (std::unique_ptr<CCaptureStream>& pStream : m_pStream)
        pStream.reset();
    m_pVoice.reset();
}

LRESULT CCaptureWnd::OnFrame(WPARAM nStream, LPARAM nCamera)
{
    if (nStream >= MAX_STREAMS || m_pStream[nStream] == nullptr)
        return 0;
    return m_pStream[nStream]->OnFrame(static_cast<int>(nCamera));
}

int CCaptureWnd::OpenCamera(int nCamera, CEncodeParam* pParam)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream != nullptr && pStream->OpenCamera(nCamera, pParam))
            return 1;
    }
    return 0;
}

int CCaptureWnd::CloseCamera(int nCamera)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream != nullptr && pStream->CloseCamera(nCamera))
            return 1;
    }
    return 0;
}

int CCaptureWnd::SetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream != nullptr && pStream->SetVideoColor(nCamera, pColor))
            return 1;
    }
    return 0;
}

int CCaptureWnd::GetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream != nullptr && pStream->GetVideoColor(nCamera, pColor))
            return 1;
    }
    return 0;
}

int CCaptureWnd::IsCameraStart(int nCamera)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream != nullptr && pStream->IsCameraStart(nCamera))
            return 1;
    }
    return 0;
}

HWND CCaptureWnd::GetCameraWnd(int nCamera)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream == nullptr)
            continue;
        if (HWND hWnd = pStream->GetCameraWnd(nCamera))
            return hWnd;
    }
    return nullptr;
}

void CCaptureWnd::GetVideoSize(int* pWidth, int* pHeight, tag_VIDEOSTANDARD* pStandard)
{
    CCaptureStream* pStream = m_pStream[0] != nullptr ? m_pStream[0].get() : m_pStream[1].get();
    if (pStream != nullptr)
        pStream->GetVideoSize(pWidth, pHeight, pStandard);
}

void CCaptureWnd::SetRecordSpeed(int nSpeed)
{
    for (const std::unique_ptr<CCaptureStream>& pStream : m_pStream) {
        if (pStream != nullptr)
            pStream->SetRecordSpeed(nSpeed);
    }
}

int CCaptureWnd::IsBoardVoice(int nCamera)
{
    const tag_AVVersion version = GetVersion();
    if (version.GetGeneration() >= BOARD_GENERATION_TWO_STREAMS)
        return nCamera == 0 || nCamera == 1;
    return version.GetChannels() == 2;
}

CSpciDebi* CCaptureWnd::GetDebi()
{
    return m_pIO != nullptr ? m_pIO->GetDebi() : nullptr;
}

HWND CCaptureWnd::GetParentWnd()
{
    return m_pParent != nullptr ? m_pParent->GetSafeHwnd() : nullptr;
}

int CCaptureWnd::GetBoard()
{
    return m_nBoard;
}

CVoiceThread* CCaptureWnd::GetVoiceThread()
{
    return m_pVoice.get();
}

tag_AVVersion CCaptureWnd::GetVersion()
{
    return m_pIO != nullptr ? m_pIO->GetDspVersion() : tag_AVVersion{0};
}
