#include "driver/virtual/CVirtualBoard.h"

#include <algorithm>

namespace {

constexpr int kNtscFramesPerSecond = 30;
constexpr int kPalFramesPerSecond = 25;

} // namespace

std::shared_ptr<CVirtualBoard> CVirtualBoard::Create(const tag_VIRTUALBOARD& setup)
{
    std::shared_ptr<CVirtualBoard> pBoard(new CVirtualBoard(setup));
    const int nCameras = std::min<int>(setup.byChannels, MAX_BOARD_CAMERAS);
    for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
        tag_CAMERASOURCE source;
        source.dwSeed = static_cast<DWORD>(nCamera + 1);
        if (nCamera < static_cast<int>(setup.sources.size()))
            source = setup.sources[nCamera];
        auto pInput = std::make_unique<tag_CAMERAINPUT>();
        pInput->record = source;
        pInput->pSource = CreateFrameSource(source);
        if (pInput->pSource == nullptr)
            return nullptr;
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
