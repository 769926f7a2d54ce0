// The byte bus of a virtual board: the driver's bus with a timed recursive lock, the
// port controller's registers (command byte at address 0, data byte at address 1,
// latched input lines), the way to the board's sound processor, injectable faults and
// a log of the traffic for tests. Owned by its virtual board; thread-safe.
#pragma once

#include "driver/CSpciDebi.h"
#include "driver/virtual/CBoardSoundPort.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

// What the port controller holds, as a test or host sees it. The input lines are the
// state of the board's inputs (a set bit is an active input); the lines are active
// low, so the register that command 0x82 latches reads as their complement.
struct tag_PORTSTATE {
    BYTE byInputLines;
    BYTE byLatchedInput;
    BYTE byData;
    BYTE byOutput;
    DWORD dwOutputWrites;
    DWORD dwCommand90;
    DWORD dwCommand98;
    DWORD dwCommands;
    BYTE byLastCommand;
};

enum tag_BUSACCESS : int {
    BUS_LOCK = 0,
    BUS_UNLOCK = 1,
    BUS_WRITE = 2,
    BUS_READ = 3,
    BUS_READBLOCK = 4,
};

// One entry of the traffic log: what was asked and what the bus answered.
struct tag_BUSEVENT {
    tag_BUSACCESS nAccess;
    WORD wAddress;
    BYTE byValue;      // the byte written or read
    int nLength;       // of a block read; the time-out of a lock
    int nRetry;        // the last argument of a transfer
    int nResult;
};

class ZNDVR_API CVirtualBus : public CSpciDebi {
public:
    static constexpr std::size_t TRAFFIC_LOG_LIMIT = 4096;

    CVirtualBus();
    ~CVirtualBus() override;

    int Lock(DWORD dwTimeout) override;
    void Unlock() override;
    int WriteDebiByte(WORD wAddress, BYTE byValue, int nRetry) override;
    int ReadDebiByte(WORD wAddress, BYTE& byValue, int nRetry) override;
    int ReadDebiBlock(WORD wAddress, BYTE* pData, int nLen, int nRetry) override;

    // For a host or test: the inputs of the board, and what the controller holds.
    void SetInputLines(BYTE byLines);
    tag_PORTSTATE GetPortState() const;

    // The last TRAFFIC_LOG_LIMIT bus events, oldest first.
    std::vector<tag_BUSEVENT> GetTraffic() const;
    void ClearTraffic();

    // Faults: a lock that never succeeds, transfers that all fail.
    void SetFaults(bool bLockFails, bool bTransfersFail);

    // The board's sound processor; null leaves the bus without one.
    void AttachSoundPort(std::shared_ptr<CBoardSoundPort> pSoundPort);

private:
    static bool IsSoundCommand(BYTE byCommand);
    void Record(const tag_BUSEVENT& event);
    void ExecuteCommand(BYTE byCommand);

    HANDLE m_hBusMutex;
    mutable std::mutex m_mutexState;
    tag_PORTSTATE m_state;
    std::deque<tag_BUSEVENT> m_traffic;
    bool m_bLockFails = false;
    bool m_bTransfersFail = false;
    std::shared_ptr<CBoardSoundPort> m_pSoundPort;
};
