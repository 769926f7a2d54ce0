#include "driver/virtual/CVirtualBoard.h"

#include <algorithm>

namespace {

constexpr int kNtscFramesPerSecond = 30;
constexpr int kPalFramesPerSecond = 25;

// Every frame size, for the search of the one that suits a picture.
constexpr tag_FRAMESIZE kFrameSizes[] = {
    FRAMESIZE_160X112,     FRAMESIZE_240X176, FRAMESIZE_320X240, FRAMESIZE_640X240,
    FRAMESIZE_320X240_R2,  FRAMESIZE_640X240_R2, FRAMESIZE_176X144, FRAMESIZE_256X192,
    FRAMESIZE_352X288,     FRAMESIZE_640X240_PAL, FRAMESIZE_352X288_R2, FRAMESIZE_704X288_R2,
};
// The sizes more than twice as wide as tall (640 x 240, 704 x 288) are fields of a full
// picture, whose pixels are twice as tall as wide: they suit only footage of that very
// size.
bool IsFieldSize(int nWidth, int nHeight)
{
    return nWidth > 2 * nHeight;
}

// The picture size of revision dwRevision's boards that shows a nWidth x nHeight picture
// best; see GetCameraFrameSize.
tag_FRAMESIZE FindFrameSizeForPicture(int nWidth, int nHeight, DWORD dwRevision)
{
    const DWORD dwSizeRevision =
        dwRevision == STREAM_REVISION_20020219 ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114;
    tag_FRAMESIZE nFitting = FRAMESIZE_INVALID;
    tag_FRAMESIZE nSmallest = FRAMESIZE_INVALID;
    long nFittingArea = 0;
    long nSmallestArea = 0;
    for (tag_FRAMESIZE nSize : kFrameSizes) {
        tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
        int nSizeWidth = 0;
        int nSizeHeight = 0;
        GetFrameSizePicture(nSize, nStandard, nSizeWidth, nSizeHeight);
        if (GetFrameSizeOfPicture(nSizeWidth, nSizeHeight, nStandard, dwSizeRevision) != nSize)
            continue;
        if (nSizeWidth == nWidth && nSizeHeight == nHeight)
            return nSize;
        const long nArea = static_cast<long>(nSizeWidth) * nSizeHeight;
        if (IsFieldSize(nSizeWidth, nSizeHeight))
            continue;
        if (nSizeWidth <= nWidth && nSizeHeight <= nHeight && nArea > nFittingArea) {
            nFitting = nSize;
            nFittingArea = nArea;
        }
        if (nSmallest == FRAMESIZE_INVALID || nArea < nSmallestArea) {
            nSmallest = nSize;
            nSmallestArea = nArea;
        }
    }
    return nFitting != FRAMESIZE_INVALID ? nFitting : nSmallest;
}

} // namespace

std::shared_ptr<CVirtualBoard> CVirtualBoard::Create(const tag_VIRTUALBOARD& setup, std::string* pstrError)
{
    std::shared_ptr<CVirtualBoard> pBoard(new CVirtualBoard(setup));
    const int nCameras = GetBoardInputNum(pBoard->m_version);
    for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
        tag_CAMERASOURCE source;
        source.dwSeed = static_cast<DWORD>(nCamera + 1);
        if (nCamera < static_cast<int>(setup.sources.size()))
            source = setup.sources[nCamera];
        auto pInput = std::make_unique<tag_CAMERAINPUT>();
        pInput->record = source;
        std::string strError;
        pInput->pSource = CreateFrameSource(source, &strError);
        if (pInput->pSource == nullptr) {
            if (pstrError != nullptr)
                *pstrError = "camera " + std::to_string(nCamera) + ": " + strError;
            return nullptr;
        }
        pBoard->m_inputs.push_back(std::move(pInput));
    }
    if (setup.sound.pfnCreateEncoder) {
        std::string strError;
        pBoard->m_pSound = CBoardSoundProcessor::Create(setup.sound, strError);
        if (pBoard->m_pSound == nullptr)
            return nullptr;
        pBoard->m_bus.AttachSoundPort(pBoard->m_pSound);
    }
    return pBoard;
}

CVirtualBoard::CVirtualBoard(const tag_VIRTUALBOARD& setup)
    : m_version(MakeAVVersion(setup.byChannels, setup.byGeneration, setup.wFirmware)),
      m_nPacing(setup.nPacing), m_nFramesPerSecond(std::max(setup.nFramesPerSecond, 0)), m_records{}
{
    SetFaults(setup.faults);
}

tag_AVVersion CVirtualBoard::GetVersion() const
{
    return m_version;
}

CSpciDebi* CVirtualBoard::GetDebi()
{
    return &m_bus;
}

CVirtualBus& CVirtualBoard::GetBus()
{
    return m_bus;
}

CBoardSoundProcessor* CVirtualBoard::GetSoundProcessor()
{
    return m_pSound.get();
}

// The layout follows the shared board rules, so that capture finds each camera where
// the board delivers it.
int CVirtualBoard::GetStreamCount() const
{
    return GetBoardStreamNum(m_version);
}

int CVirtualBoard::GetStreamCameras(int nStream) const
{
    if (nStream < 0 || nStream >= GetStreamCount())
        return 0;
    return GetStreamCameraNum(m_version);
}

int CVirtualBoard::GetFirstCamera(int nStream) const
{
    if (nStream < 0 || nStream >= GetStreamCount())
        return 0;
    return GetStreamFirstCamera(m_version, nStream);
}

tag_CAMERASOURCE CVirtualBoard::GetCameraSource(int nCamera) const
{
    if (nCamera < 0 || nCamera >= static_cast<int>(m_inputs.size()))
        return tag_CAMERASOURCE{};
    return m_inputs[nCamera]->record;
}

bool CVirtualBoard::SetCameraSource(int nCamera, const tag_CAMERASOURCE& source, std::string* pstrError)
{
    if (nCamera < 0 || nCamera >= static_cast<int>(m_inputs.size())) {
        if (pstrError != nullptr)
            *pstrError = "the board has no camera " + std::to_string(nCamera);
        return false;
    }
    std::unique_ptr<CFrameSource> pSource = CreateFrameSource(source, pstrError);
    if (pSource == nullptr)
        return false;
    tag_CAMERAINPUT& input = *m_inputs[nCamera];
    std::lock_guard lock(input.mutexSource);
    input.record = source;
    input.pSource = std::move(pSource);
    return true;
}

tag_FRAMESIZE CVirtualBoard::GetCameraFrameSize(int nCamera, DWORD dwRevision) const
{
    if (nCamera < 0 || nCamera >= static_cast<int>(m_inputs.size()))
        return FRAMESIZE_INVALID;
    int nPictureWidth = 0;
    int nPictureHeight = 0;
    {
        tag_CAMERAINPUT& input = *m_inputs[nCamera];
        std::lock_guard lock(input.mutexSource);
        if (!input.pSource->GetPictureSize(nPictureWidth, nPictureHeight))
            return FRAMESIZE_INVALID;
    }
    return FindFrameSizeForPicture(nPictureWidth, nPictureHeight, dwRevision);
}

tag_PACING CVirtualBoard::GetPacing() const
{
    return m_nPacing;
}

int CVirtualBoard::GetFramesPerSecond(tag_VIDEOSTANDARD1 nStandard) const
{
    if (m_nFramesPerSecond > 0)
        return m_nFramesPerSecond;
    return nStandard == DRIVER_STANDARD_PAL ? kPalFramesPerSecond : kNtscFramesPerSecond;
}

tag_BOARDFAULTS CVirtualBoard::GetFaults() const
{
    std::lock_guard lock(m_mutexRecords);
    return m_faults;
}

void CVirtualBoard::SetFaults(const tag_BOARDFAULTS& faults)
{
    {
        std::lock_guard lock(m_mutexRecords);
        m_faults = faults;
    }
    m_bus.SetFaults(faults.bLockTimesOut, faults.bTransfersFail);
}

bool CVirtualBoard::WriteFrame(int nCamera, BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime)
{
    if (nCamera < 0 || nCamera >= static_cast<int>(m_inputs.size()))
        return false;
    tag_CAMERAINPUT& input = *m_inputs[nCamera];
    std::lock_guard lock(input.mutexSource);
    input.pSource->WriteFrame(pFrame, format, dwTime);
    return true;
}

tag_STREAMRECORD CVirtualBoard::GetStreamRecord(int nStream) const
{
    std::lock_guard lock(m_mutexRecords);
    if (nStream < 0 || nStream >= MAX_BOARD_STREAMS)
        return tag_STREAMRECORD{};
    return m_records[nStream];
}

void CVirtualBoard::RecordOpen(int nStream, HWND hWnd, tag_VIDEOSTANDARD1 nStandard, const tag_VideoPort& videoPort,
                               const tag_PciPort& pciPort)
{
    std::lock_guard lock(m_mutexRecords);
    tag_STREAMRECORD& record = m_records[nStream];
    record.bOpen = true;
    record.hWnd = hWnd;
    record.nStandard = nStandard;
    record.videoPort = videoPort;
    record.pciPort = pciPort;
    ++record.dwOpens;
}

void CVirtualBoard::RecordClose(int nStream)
{
    std::lock_guard lock(m_mutexRecords);
    m_records[nStream].bOpen = false;
    m_records[nStream].bStarted = false;
}

void CVirtualBoard::RecordStart(int nStream)
{
    std::lock_guard lock(m_mutexRecords);
    m_records[nStream].bStarted = true;
    ++m_records[nStream].dwStarts;
}

void CVirtualBoard::RecordStop(int nStream)
{
    std::lock_guard lock(m_mutexRecords);
    m_records[nStream].bStarted = false;
    ++m_records[nStream].dwStops;
}

void CVirtualBoard::RecordOrder(int nStream, const tag_VIDEOREAD& read)
{
    std::lock_guard lock(m_mutexRecords);
    tag_STREAMRECORD& record = m_records[nStream];
    if (record.nHistory == READ_HISTORY) {
        std::copy(record.history + 1, record.history + READ_HISTORY, record.history);
        --record.nHistory;
    }
    record.history[record.nHistory++] = read;
    ++record.dwOrders;
}

void CVirtualBoard::RecordDelivery(int nStream)
{
    std::lock_guard lock(m_mutexRecords);
    ++m_records[nStream].dwFramesDelivered;
}
