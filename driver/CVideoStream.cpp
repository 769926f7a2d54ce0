#include "driver/CVideoStream.h"

#include "driver/CStreamPump.h"

CVideoStream::CVideoStream(const CSpciIO& io, int nStream) : m_pDriverDevice(&io), m_nDriverStream(nStream)
{
}

CVideoStream::~CVideoStream()
{
    Close();
}

int CVideoStream::IsCameraBusy(int)
{
    return 0;
}

int CVideoStream::Open(HWND hWnd, tag_VIDEOSTANDARD1 nStandard, tag_VideoPort* pVideoPort, tag_PciPort* pPciPort)
{
    if (m_pDriverPump != nullptr || pVideoPort == nullptr || pPciPort == nullptr || !IsWindow(hWnd))
        return 0;
    if (nStandard != DRIVER_STANDARD_NTSC && nStandard != DRIVER_STANDARD_PAL)
        return 0;
    const DWORD dwWidth = pPciPort->dwWidth;
    const DWORD dwHeight = pPciPort->dwHeight;
    if (dwWidth == 0 || dwWidth % 2 != 0 || dwWidth > MAX_DELIVERED_WIDTH || dwHeight == 0 ||
        dwHeight > MAX_DELIVERED_HEIGHT)
        return 0;
    std::shared_ptr<CVirtualBoard> pBoard = m_pDriverDevice->GetVirtualBoard();
    if (pBoard == nullptr || m_nDriverStream < 0 || m_nDriverStream >= pBoard->GetStreamCount())
        return 0;
    const tag_FRAMEFORMAT format{static_cast<int>(dwWidth), static_cast<int>(dwHeight), nStandard};
    auto pPump = std::make_unique<CStreamPump>(pBoard, m_nDriverStream, hWnd, format);
    if (!pPump->Run())
        return 0;
    m_pDriverBoard = std::move(pBoard);
    m_pDriverPump = std::move(pPump);
    m_nDriverCameras = m_pDriverBoard->GetStreamCameras(m_nDriverStream);
    m_driverFormat = format;
    for (tag_ZNCOLOR& color : m_driverColors)
        color = tag_ZNCOLOR{};
    m_pDriverBoard->RecordOpen(m_nDriverStream, hWnd, nStandard, *pVideoPort, *pPciPort);
    return 1;
}

void CVideoStream::Close()
{
    if (m_pDriverPump == nullptr)
        return;
    m_pDriverPump.reset();
    m_pDriverBoard->RecordClose(m_nDriverStream);
    m_pDriverBoard.reset();
    m_nDriverCameras = 0;
}

int CVideoStream::Start()
{
    if (m_pDriverPump == nullptr || m_pDriverBoard->GetFaults().bStartFails)
        return 0;
    m_pDriverPump->Start();
    m_pDriverBoard->RecordStart(m_nDriverStream);
    return 1;
}

int CVideoStream::Stop()
{
    if (m_pDriverPump == nullptr)
        return 0;
    m_pDriverPump->Stop();
    m_pDriverBoard->RecordStop(m_nDriverStream);
    return 1;
}

int CVideoStream::ReadVideo(tag_VIDEOREAD* pRead)
{
    if (pRead == nullptr || m_pDriverPump == nullptr || !m_pDriverPump->IsStarted() || !IsReadable(*pRead))
        return 0;
    m_pDriverBoard->RecordOrder(m_nDriverStream, *pRead);
    m_pDriverPump->Order(*pRead, PreparedCamera(*pRead));
    return 1;
}

int CVideoStream::SetVideoColor(int nCamera, tag_ZNCOLOR* pColor)
{
    if (pColor == nullptr || !IsStreamCamera(nCamera))
        return 0;
    m_driverColors[nCamera] = *pColor;
    return 1;
}

int CVideoStream::GetVideoColor(int nCamera, tag_ZNCOLOR* pColor)
{
    if (pColor == nullptr || !IsStreamCamera(nCamera))
        return 0;
    *pColor = m_driverColors[nCamera];
    return 1;
}

bool CVideoStream::IsReadable(const tag_VIDEOREAD& read) const
{
    const std::size_t nFrameBytes =
        static_cast<std::size_t>(m_driverFormat.nWidth) * static_cast<std::size_t>(m_driverFormat.nHeight) * 2;
    return IsStreamCamera(read.nCamera) && read.pBuffer != nullptr && read.dwSize >= nFrameBytes;
}

// The input the board switches to while this read is answered: the next camera, or
// the one after it if the next one's channel is busy; otherwise it stays on the
// camera it reads.
int CVideoStream::PreparedCamera(const tag_VIDEOREAD& read)
{
    for (int nCandidate : {read.nNextCamera, read.nSecondNextCamera}) {
        if (IsStreamCamera(nCandidate) && !IsCameraBusy(nCandidate))
            return nCandidate;
    }
    return read.nCamera;
}

bool CVideoStream::IsStreamCamera(int nCamera) const
{
    return m_pDriverPump != nullptr && nCamera >= 0 && nCamera < m_nDriverCameras;
}
