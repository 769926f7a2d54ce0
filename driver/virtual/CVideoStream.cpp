// The streams of this driver: an open stream keeps its virtual board alive and has a
// pump, the driver thread that answers its read orders.
#include "driver/CVideoStream.h"

#include "driver/virtual/CStreamPump.h"
#include "driver/virtual/SpciDevice.h"

#include <new>

struct CVideoStream::tag_OPENSTREAM {
    std::shared_ptr<CVirtualBoard> pBoard;
    std::unique_ptr<CStreamPump> pPump;
    int nCameras;
    tag_FRAMEFORMAT format;
    tag_ZNCOLOR colors[STREAM_CAMERA_SLOTS];
    // The last order since Start, whose following cameras the input moves on to.
    bool bHasLastRead;
    tag_VIDEOREAD lastRead;
};

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
    if (m_pOpenStream != nullptr || pVideoPort == nullptr || pPciPort == nullptr || !IsWindow(hWnd))
        return 0;
    if (nStandard != DRIVER_STANDARD_NTSC && nStandard != DRIVER_STANDARD_PAL)
        return 0;
    const DWORD dwWidth = pPciPort->dwWidth;
    const DWORD dwHeight = pPciPort->dwHeight;
    if (dwWidth == 0 || dwWidth % 2 != 0 || dwWidth > MAX_DELIVERED_WIDTH || dwHeight == 0 ||
        dwHeight > MAX_DELIVERED_HEIGHT)
        return 0;
    const CSpciIO::tag_DEVICE* pDevice = m_pDriverDevice->m_pDevice.get();
    if (pDevice == nullptr || m_nDriverStream < 0 || m_nDriverStream >= pDevice->pBoard->GetStreamCount())
        return 0;
    const tag_FRAMEFORMAT format{static_cast<int>(dwWidth), static_cast<int>(dwHeight), nStandard};
    std::unique_ptr<tag_OPENSTREAM> pOpen(new (std::nothrow) tag_OPENSTREAM{
        pDevice->pBoard, nullptr, pDevice->pBoard->GetStreamCameras(m_nDriverStream), format, {}, false, {}});
    if (pOpen == nullptr)
        return 0;
    pOpen->pPump.reset(new (std::nothrow) CStreamPump(pOpen->pBoard, m_nDriverStream, hWnd, format));
    if (pOpen->pPump == nullptr || !pOpen->pPump->Run())
        return 0;
    m_pOpenStream = std::move(pOpen);
    m_pOpenStream->pBoard->RecordOpen(m_nDriverStream, hWnd, nStandard, *pVideoPort, *pPciPort);
    return 1;
}

void CVideoStream::Close()
{
    if (m_pOpenStream == nullptr)
        return;
    const std::shared_ptr<CVirtualBoard> pBoard = m_pOpenStream->pBoard;
    m_pOpenStream.reset();
    pBoard->RecordClose(m_nDriverStream);
}

int CVideoStream::Start()
{
    if (m_pOpenStream == nullptr || m_pOpenStream->pBoard->GetFaults().bStartFails)
        return 0;
    m_pOpenStream->pPump->Start();
    m_pOpenStream->bHasLastRead = false;
    m_pOpenStream->pBoard->RecordStart(m_nDriverStream);
    return 1;
}

int CVideoStream::Stop()
{
    if (m_pOpenStream == nullptr)
        return 0;
    m_pOpenStream->pPump->Stop();
    m_pOpenStream->pBoard->RecordStop(m_nDriverStream);
    return 1;
}

int CVideoStream::ReadVideo(tag_VIDEOREAD* pRead)
{
    if (pRead == nullptr || m_pOpenStream == nullptr || !m_pOpenStream->pPump->IsStarted() || !IsReadable(*pRead))
        return 0;
    m_pOpenStream->pBoard->RecordOrder(m_nDriverStream, *pRead);
    m_pOpenStream->pPump->Order(*pRead, SwitchedInput());
    m_pOpenStream->bHasLastRead = true;
    m_pOpenStream->lastRead = *pRead;
    return 1;
}

int CVideoStream::SetVideoColor(int nCamera, tag_ZNCOLOR* pColor)
{
    if (pColor == nullptr || !IsStreamCamera(nCamera))
        return 0;
    m_pOpenStream->colors[nCamera] = *pColor;
    return 1;
}

int CVideoStream::GetVideoColor(int nCamera, tag_ZNCOLOR* pColor)
{
    if (pColor == nullptr || !IsStreamCamera(nCamera))
        return 0;
    *pColor = m_pOpenStream->colors[nCamera];
    return 1;
}

bool CVideoStream::IsReadable(const tag_VIDEOREAD& read) const
{
    const tag_FRAMEFORMAT& format = m_pOpenStream->format;
    const std::size_t nFrameBytes = static_cast<std::size_t>(format.nWidth) * static_cast<std::size_t>(format.nHeight) * 2;
    return IsStreamCamera(read.nCamera) && read.pBuffer != nullptr && read.dwSize >= nFrameBytes;
}

// The camera the board's input shows now. Once the last read has ended it is the first
// of that order's following cameras whose channel isn't busy, or else the camera read;
// while that read is still pending the input stays on its camera.
int CVideoStream::SwitchedInput()
{
    const tag_OPENSTREAM& open = *m_pOpenStream;
    if (!open.bHasLastRead)
        return -1;
    if (!open.pPump->IsPending()) {
        for (int nCandidate : {open.lastRead.nNextCamera, open.lastRead.nSecondNextCamera}) {
            if (IsStreamCamera(nCandidate) && !IsCameraBusy(nCandidate))
                return nCandidate;
        }
    }
    return open.lastRead.nCamera;
}

bool CVideoStream::IsStreamCamera(int nCamera) const
{
    return m_pOpenStream != nullptr && nCamera >= 0 && nCamera < m_pOpenStream->nCameras;
}
