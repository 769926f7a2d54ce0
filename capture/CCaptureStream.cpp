#include "capture/CCaptureStream.h"

#include "capture/CCameraWnd.h"
#include "capture/CCaptureWnd.h"

#include <algorithm>
#include <cstdio>
#include <new>

namespace {

constexpr UINT kCameraClassStyle = CS_VREDRAW | CS_HREDRAW | CS_NOCLOSE;
constexpr RECT kCameraWndRect{0, 0, 0, 0};

// 112-line frames are read with 120 lines on stream 1; the channel and encoder use the
// first 112.
constexpr int kShortFrameHeight = 112;
constexpr int kShortFrameReadHeight = 120;

constexpr int kFixedWidthNtsc = 320;
constexpr int kFixedHeightNtsc = 240;
constexpr int kFixedWidthPal = 352;
constexpr int kFixedHeightPal = 288;

// The pattern of a failed stream-1 read: the same four luma bytes in lines 2 to 9.
constexpr int kPatternFirstLine = 2;
constexpr int kPatternLastLine = 9;
// Four bytes of each line, at offsets in rising order.
constexpr int kPatternBytes = 4;
constexpr int kPatternOffsetsPal[kPatternBytes] = {197, 199, 339, 341};
constexpr int kPatternOffsetsNtsc[kPatternBytes] = {197, 199, 333, 335};
constexpr BYTE kPatternValues[kPatternBytes] = {0x27, 0x28, 0x20, 0x20};

// The input window of tag_VideoPort per standard.
constexpr DWORD kPortLeft = 12;
constexpr DWORD kPortTopNtsc = 22;
constexpr DWORD kPortTopPal = 24;
constexpr DWORD kPortWidthNtsc = 640;
constexpr DWORD kPortHeightNtsc = 240;
constexpr DWORD kPortWidthPal = 704;
constexpr DWORD kPortHeightPal = 288;

// The stream base class needs a device; a stream made without one is never usable.
const CSpciIO& DeviceOrUnopened(const CSpciIO* pIO)
{
    static const CSpciIO unopened;
    return pIO != nullptr ? *pIO : unopened;
}

} // namespace

CCaptureStream::CCaptureStream(CCaptureWnd* pWnd, CSpciIO* pIO, int nStream)
    : CVideoStream(DeviceOrUnopened(pIO), nStream), m_nStream(nStream), m_pIO(pIO), m_pCaptureWnd(pWnd)
{
}

CCaptureStream::~CCaptureStream()
{
    Close();
}

void CCaptureStream::GetDeliveredSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, DWORD dwRevision,
                                      int& nDeliveredWidth, int& nDeliveredHeight)
{
    if (dwRevision != STREAM_REVISION_20020219) {
        nDeliveredWidth = nWidth;
        nDeliveredHeight = nHeight;
    } else if (nStandard == STANDARD_PAL) {
        nDeliveredWidth = kFixedWidthPal;
        nDeliveredHeight = kFixedHeightPal;
    } else {
        nDeliveredWidth = kFixedWidthNtsc;
        nDeliveredHeight = kFixedHeightNtsc;
    }
}

DWORD CCaptureStream::GetFrameBufferSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, DWORD dwRevision)
{
    const int nReadHeight = nHeight == kShortFrameHeight ? kShortFrameReadHeight : nHeight;
    int nDeliveredWidth = 0;
    int nDeliveredHeight = 0;
    GetDeliveredSize(nWidth, nReadHeight, nStandard, dwRevision, nDeliveredWidth, nDeliveredHeight);
    const DWORD dwPixels = std::max(static_cast<DWORD>(nWidth) * nReadHeight,
                                    static_cast<DWORD>(nDeliveredWidth) * nDeliveredHeight);
    return dwPixels * 3;
}

int CCaptureStream::IsUsable()
{
    if (m_pIO == nullptr || !m_pIO->IsValid() || m_pCaptureWnd == nullptr || m_nStream < 0)
        return 0;
    const tag_AVVersion version = m_pIO->GetDspVersion();
    return m_nStream < (version.GetGeneration() >= BOARD_GENERATION_TWO_STREAMS ? 2 : 1);
}

int CCaptureStream::Open(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, int nRecordSpeed, DWORD dwRevision)
{
    if (!IsUsable() || nWidth <= 0 || nHeight <= 0)
        return 0;
    m_dwRevision = dwRevision;
    const tag_AVVersion version = m_pIO->GetDspVersion();
    if (!IsDrivableBoard(version))
        return 0;
    m_nCameraNum = GetStreamCameraNum(version);
    m_nFirstCamera = GetStreamFirstCamera(version, m_nStream);
    m_nWidth = nWidth;
    m_nHeight = nHeight == kShortFrameHeight && m_nStream == 1 ? kShortFrameReadHeight : nHeight;
    m_nVideoWidth = m_nWidth;
    m_nVideoHeight = m_nHeight;
    m_nStandard = nStandard;
    m_nRecordSpeed = nRecordSpeed;
    if (!AllocateBuffers()) {
        Close();
        return 0;
    }
    GetDeliveredSize(m_nVideoWidth, m_nVideoHeight, m_nStandard, m_dwRevision, m_nWidth, m_nHeight);
    tag_VideoPort videoPort{};
    tag_PciPort pciPort{};
    FillPorts(videoPort, pciPort);
    if (!CVideoStream::Open(m_pCaptureWnd->GetSafeHwnd(), static_cast<tag_VIDEOSTANDARD1>(m_nStandard),
                            &videoPort, &pciPort)) {
        Close();
        return 0;
    }
    m_nCurrent = 0;
    return 1;
}

bool CCaptureStream::AllocateBuffers()
{
    const DWORD dwSize = GetFrameBufferSize(m_nVideoWidth, m_nVideoHeight == kShortFrameReadHeight
                                                               ? kShortFrameHeight
                                                               : m_nVideoHeight,
                                            m_nStandard, m_dwRevision);
    for (int i = 0; i < m_nCameraNum; ++i) {
        m_pBuffer[i].reset(new (std::nothrow) BYTE[dwSize]());
        if (m_pBuffer[i] == nullptr)
            return false;
    }
    return true;
}

void CCaptureStream::FreeBuffers()
{
    for (std::unique_ptr<BYTE[]>& pBuffer : m_pBuffer)
        pBuffer.reset();
}

void CCaptureStream::FillPorts(tag_VideoPort& videoPort, tag_PciPort& pciPort) const
{
    const bool bPal = m_nStandard == STANDARD_PAL;
    videoPort.dwInput = m_nStream != 0 ? 1 : 0;
    videoPort.dwFlags = 0;
    videoPort.dwLeft = kPortLeft;
    videoPort.dwTop = bPal ? kPortTopPal : kPortTopNtsc;
    videoPort.dwWidth = bPal ? kPortWidthPal : kPortWidthNtsc;
    videoPort.dwHeight = bPal ? kPortHeightPal : kPortHeightNtsc;
    if (bPal && m_nStream == 1 && m_nWidth == 640 && m_nHeight == 240 && m_dwRevision != STREAM_REVISION_20020219) {
        videoPort.dwWidth = kPortWidthNtsc;
        videoPort.dwHeight = kPortHeightNtsc;
    }
    pciPort = tag_PciPort{0, 0, 0, static_cast<DWORD>(m_nWidth), static_cast<DWORD>(m_nHeight)};
}

int CCaptureStream::Close()
{
    for (tag_HANDOVER* pHandOver = m_pHandOver; pHandOver != nullptr; pHandOver = pHandOver->pOuter)
        pHandOver->bStreamClosed = true;
    m_pHandOver = nullptr;
    for (int i = 0; i < STREAM_CAMERA_SLOTS; ++i) {
        if (m_pCamera[i] != nullptr)
            CloseCamera(m_nFirstCamera + i);
    }
    CVideoStream::Close();
    FreeBuffers();
    return 1;
}

int CCaptureStream::GetSlot(int nCamera) const
{
    const int i = nCamera - m_nFirstCamera;
    return i >= 0 && i < m_nCameraNum ? i : -1;
}

int CCaptureStream::NextCamera(int n)
{
    for (int i = n + 1; i < m_nCameraNum; ++i) {
        if (m_pCamera[i] != nullptr && m_pCamera[i]->GetStatus() != CAMSTATUS_NONE)
            return i;
    }
    if (n < 0)
        return -1;
    for (int i = 0; i <= n && i < m_nCameraNum; ++i) {
        if (m_pCamera[i] != nullptr && m_pCamera[i]->GetStatus() != CAMSTATUS_NONE)
            return i;
    }
    return -1;
}

int CCaptureStream::OpenCamera(int nCamera, CEncodeParam* pParam)
{
    const int i = GetSlot(nCamera);
    if (pParam == nullptr || i < 0 || !IsUsable() || m_pCamera[i] != nullptr)
        return 0;
    std::unique_ptr<CCameraWnd> pCamera(new (std::nothrow) CCameraWnd);
    if (pCamera == nullptr)
        return 0;
    char szName[32];
    std::snprintf(szName, sizeof(szName), "Camera(%d,%d)", m_pCaptureWnd->GetBoard(), nCamera);
    const UINT nId = static_cast<UINT>((m_pCaptureWnd->GetBoard() + 10) * 10 + nCamera);
    if (!pCamera->Create(AfxRegisterWndClass(kCameraClassStyle), szName, WS_CHILD, kCameraWndRect,
                         m_pCaptureWnd, nId))
        return 0;
    if (!pCamera->Open(nCamera, m_pCaptureWnd, pParam, m_dwRevision)) {
        pCamera->DestroyWindow();
        return 0;
    }
    if (NextCamera(i) == -1) {
        if (!Start()) {
            pCamera->Close();
            pCamera->DestroyWindow();
            return 0;
        }
        m_pCamera[i] = std::move(pCamera);
        OrderReread(i);
        return 1;
    }
    m_pCamera[i] = std::move(pCamera);
    return 1;
}

int CCaptureStream::CloseCamera(int nCamera)
{
    const int i = GetSlot(nCamera);
    if (i < 0)
        return 0;
    if (m_pCamera[i] == nullptr)
        return 1;
    m_pCamera[i]->Close();
    m_pCamera[i]->DestroyWindow();
    m_pCamera[i].reset();
    if (NextCamera(i) == -1)
        Stop();
    return 1;
}

int CCaptureStream::IsCameraBusy(int nCamera)
{
    if (nCamera < 0 || nCamera >= STREAM_CAMERA_SLOTS || m_pCamera[nCamera] == nullptr)
        return 0;
    return m_pCamera[nCamera]->GetStatus() != CAMSTATUS_READY;
}

int CCaptureStream::OnFrame(int nCamera)
{
    const int i = nCamera;
    // A message for a camera the stream doesn't have names no buffer to read into.
    if (i < 0 || i >= m_nCameraNum)
        return 0;
    if (NextCamera(i) == -1) {
        Stop();
        return 0;
    }
    if (m_pCamera[m_nCurrent] != nullptr && IsCameraBusy(m_nCurrent)) {
        OrderReread(i);
        return 1;
    }
    if (m_pCamera[i] != nullptr) {
        if (IsCameraBusy(i) || !IsPictureValid(m_pBuffer[i].get())) {
            OrderReread(i);
            return 1;
        }
        tag_HANDOVER handOver{false, m_pHandOver};
        m_pHandOver = &handOver;
        m_pCamera[i]->OnFrame(m_pBuffer[i]);
        if (handOver.bStreamClosed)
            return 0;
        m_pHandOver = handOver.pOuter;
        m_nCurrent = i;
    }
    const int a = NextCamera(m_nCurrent);
    // The host closed the last channel in its handler, which stopped the stream.
    if (a == -1)
        return 0;
    const int b = NextCamera(a);
    const int c = NextCamera(b);
    OrderRead(a, b, c);
    return 1;
}

// On stream 1 a read sometimes fails and leaves a known pattern instead of a picture.
bool CCaptureStream::IsPictureValid(const BYTE* pFrame) const
{
    if (m_nStream == 0)
        return true;
    return pFrame != nullptr && !IsFaultPattern(pFrame, m_nWidth, m_nHeight, m_nStandard);
}

bool CCaptureStream::IsFaultPattern(const BYTE* pFrame, int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard)
{
    const int* pOffsets = nStandard == STANDARD_PAL ? kPatternOffsetsPal : kPatternOffsetsNtsc;
    const DWORD dwLine = static_cast<DWORD>(nWidth) * 2;
    if (dwLine <= static_cast<DWORD>(pOffsets[kPatternBytes - 1]) || nHeight <= kPatternLastLine)
        return false;
    for (int nLine = kPatternFirstLine; nLine <= kPatternLastLine; ++nLine) {
        const BYTE* pLine = pFrame + nLine * dwLine;
        for (int k = 0; k < kPatternBytes; ++k) {
            if (pLine[pOffsets[k]] != kPatternValues[k])
                return false;
        }
    }
    return true;
}

void CCaptureStream::OrderRead(int nCamera, int nNext, int nSecondNext)
{
    tag_VIDEOREAD read{m_nRecordSpeed, nCamera, nNext, nSecondNext, m_pBuffer[nCamera].get(),
                       static_cast<DWORD>(m_nWidth) * m_nHeight * 2};
    ReadVideo(&read);
}

void CCaptureStream::OrderReread(int nCamera)
{
    OrderRead(nCamera, nCamera, nCamera);
}

int CCaptureStream::GetVideoSize(int* pWidth, int* pHeight, tag_VIDEOSTANDARD* pStandard)
{
    if (!IsUsable())
        return 0;
    if (pWidth != nullptr)
        *pWidth = m_nVideoWidth;
    if (pHeight != nullptr)
        *pHeight = m_nVideoHeight == kShortFrameReadHeight ? kShortFrameHeight : m_nVideoHeight;
    if (pStandard != nullptr)
        *pStandard = m_nStandard;
    return 1;
}

int CCaptureStream::SetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor)
{
    const int i = GetSlot(nCamera);
    if (pColor == nullptr || i < 0 || !IsUsable())
        return 0;
    tag_ZNCOLOR color{};
    color.lValue[0] = static_cast<short>(pColor->wValue[0][0]);
    color.lValue[3] = static_cast<short>(pColor->wValue[2][0]);
    color.lValue[1] = static_cast<short>(pColor->wValue[3][0]);
    color.lValue[2] = static_cast<short>(pColor->wValue[4][0]);
    return CVideoStream::SetVideoColor(i, &color);
}

int CCaptureStream::GetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor)
{
    const int i = GetSlot(nCamera);
    if (pColor == nullptr || i < 0 || !IsUsable())
        return 0;
    tag_ZNCOLOR color{};
    if (!CVideoStream::GetVideoColor(i, &color))
        return 0;
    pColor->wValue[0][0] = static_cast<WORD>(color.lValue[0]);
    pColor->wValue[2][0] = static_cast<WORD>(color.lValue[3]);
    pColor->wValue[3][0] = static_cast<WORD>(color.lValue[1]);
    pColor->wValue[4][0] = static_cast<WORD>(color.lValue[2]);
    return 1;
}

int CCaptureStream::IsCameraStart(int nCamera)
{
    const int i = GetSlot(nCamera);
    if (i < 0 || !IsUsable())
        return 0;
    return m_pCamera[i] != nullptr;
}

HWND CCaptureStream::GetCameraWnd(int nCamera)
{
    const int i = GetSlot(nCamera);
    if (i < 0 || m_pCamera[i] == nullptr)
        return nullptr;
    return m_pCamera[i]->GetSafeHwnd();
}

void CCaptureStream::SetRecordSpeed(int nSpeed)
{
    m_nRecordSpeed = nSpeed;
}
