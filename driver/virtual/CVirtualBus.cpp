#include "driver/virtual/CVirtualBus.h"

#include "platform/WinThreads.h"

namespace {

constexpr int kTransferDone = 1;
constexpr int kTransferFailed = -1;
constexpr WORD kAddressCountChannel0 = BUS_ADDRESS_SOUNDCOUNT;
constexpr WORD kAddressCountChannel1 = BUS_ADDRESS_SOUNDCOUNT + 1;
// Inputs that nobody drives read as inactive: all lines high.
constexpr BYTE kIdleInputRegister = 0xFF;

} // namespace

CVirtualBus::CVirtualBus() : m_hBusMutex(CreateMutex(nullptr, FALSE, nullptr)), m_state{}
{
    m_state.byLatchedInput = kIdleInputRegister;
}

CVirtualBus::~CVirtualBus()
{
    if (m_hBusMutex != nullptr)
        CloseHandle(m_hBusMutex);
}

int CVirtualBus::Lock(DWORD dwTimeout)
{
    bool bLockFails = false;
    {
        std::lock_guard lock(m_mutexState);
        bLockFails = m_bLockFails;
    }
    int nResult = 0;
    if (!bLockFails && m_hBusMutex != nullptr) {
        const DWORD dwWait = WaitForSingleObject(m_hBusMutex, dwTimeout);
        nResult = dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED_0 ? 1 : 0;
    }
    Record({BUS_LOCK, 0, 0, static_cast<int>(dwTimeout), 0, nResult});
    return nResult;
}

void CVirtualBus::Unlock()
{
    const int nResult = m_hBusMutex != nullptr && ReleaseMutex(m_hBusMutex) ? 1 : 0;
    Record({BUS_UNLOCK, 0, 0, 0, 0, nResult});
}

int CVirtualBus::WriteDebiByte(WORD wAddress, BYTE byValue, int nRetry)
{
    std::shared_ptr<CBoardSoundPort> pSoundPort;
    int nResult = kTransferDone;
    {
        std::lock_guard lock(m_mutexState);
        if (m_bTransfersFail || (wAddress != BUS_ADDRESS_COMMAND && wAddress != BUS_ADDRESS_DATA)) {
            nResult = kTransferFailed;
        } else if (wAddress == BUS_ADDRESS_DATA) {
            m_state.byData = byValue;
        } else if (IsSoundCommand(byValue)) {
            ++m_state.dwCommands;
            m_state.byLastCommand = byValue;
            pSoundPort = m_pSoundPort;
        } else {
            ExecuteCommand(byValue);
        }
    }
    if (pSoundPort != nullptr)
        pSoundPort->OnCommand(byValue);
    Record({BUS_WRITE, wAddress, byValue, 1, nRetry, nResult});
    return nResult;
}

int CVirtualBus::ReadDebiByte(WORD wAddress, BYTE& byValue, int nRetry)
{
    std::shared_ptr<CBoardSoundPort> pSoundPort;
    int nResult = kTransferDone;
    BYTE byRead = 0;
    {
        std::lock_guard lock(m_mutexState);
        if (m_bTransfersFail || wAddress > kAddressCountChannel1)
            nResult = kTransferFailed;
        else if (wAddress == BUS_ADDRESS_COMMAND)
            byRead = m_state.byLatchedInput;
        else
            pSoundPort = m_pSoundPort;
    }
    if (pSoundPort != nullptr)
        byRead = pSoundPort->ReadCount(wAddress == kAddressCountChannel0 ? 0 : 1);
    if (nResult == kTransferDone)
        byValue = byRead;
    Record({BUS_READ, wAddress, byRead, 1, nRetry, nResult});
    return nResult;
}

int CVirtualBus::ReadDebiBlock(WORD wAddress, BYTE* pData, int nLen, int nRetry)
{
    std::shared_ptr<CBoardSoundPort> pSoundPort;
    {
        std::lock_guard lock(m_mutexState);
        if (!m_bTransfersFail && wAddress == BUS_ADDRESS_COMMAND && pData != nullptr && nLen > 0)
            pSoundPort = m_pSoundPort;
    }
    const int nResult = pSoundPort != nullptr ? pSoundPort->ReadBlock(pData, nLen) : kTransferFailed;
    Record({BUS_READBLOCK, wAddress, 0, nLen, nRetry, nResult});
    return nResult;
}

void CVirtualBus::SetInputLines(BYTE byLines)
{
    std::lock_guard lock(m_mutexState);
    m_state.byInputLines = byLines;
}

tag_PORTSTATE CVirtualBus::GetPortState() const
{
    std::lock_guard lock(m_mutexState);
    return m_state;
}

std::vector<tag_BUSEVENT> CVirtualBus::GetTraffic() const
{
    std::lock_guard lock(m_mutexState);
    return {m_traffic.begin(), m_traffic.end()};
}

void CVirtualBus::ClearTraffic()
{
    std::lock_guard lock(m_mutexState);
    m_traffic.clear();
}

void CVirtualBus::SetFaults(bool bLockFails, bool bTransfersFail)
{
    std::lock_guard lock(m_mutexState);
    m_bLockFails = bLockFails;
    m_bTransfersFail = bTransfersFail;
}

void CVirtualBus::AttachSoundPort(std::shared_ptr<CBoardSoundPort> pSoundPort)
{
    std::lock_guard lock(m_mutexState);
    m_pSoundPort = std::move(pSoundPort);
}

// Start, stop and block requests of the two sound channels: 0x20, 0x30, 0x40 and the
// same plus one for channel 1.
bool CVirtualBus::IsSoundCommand(BYTE byCommand)
{
    const BYTE byKind = byCommand & 0xF0;
    return (byKind == SOUND_COMMAND_START || byKind == SOUND_COMMAND_STOP || byKind == SOUND_COMMAND_REQUEST) &&
           (byCommand & 0x0F) <= 1;
}

void CVirtualBus::Record(const tag_BUSEVENT& event)
{
    std::lock_guard lock(m_mutexState);
    if (m_traffic.size() == TRAFFIC_LOG_LIMIT)
        m_traffic.pop_front();
    m_traffic.push_back(event);
}

// Runs a port command; called with m_mutexState held.
void CVirtualBus::ExecuteCommand(BYTE byCommand)
{
    ++m_state.dwCommands;
    m_state.byLastCommand = byCommand;
    switch (byCommand) {
    case PORT_COMMAND_WRITEOUTPUT:
        m_state.byOutput = m_state.byData;
        ++m_state.dwOutputWrites;
        break;
    case PORT_COMMAND_READINPUT:
        m_state.byLatchedInput = static_cast<BYTE>(~m_state.byInputLines);
        break;
    case PORT_COMMAND_90:
        ++m_state.dwCommand90;
        break;
    case PORT_COMMAND_98:
        ++m_state.dwCommand98;
        break;
    default:
        break;
    }
}
