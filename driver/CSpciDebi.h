// The byte bus of a board as capture and board sound use it: a lock that users take
// around their transfers, and byte transfers to the port controller and the sound
// processor. Each open board of the driver has one, owned by the board; thread-safe.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

// Command bytes of the port controller, written to address 0.
inline constexpr BYTE PORT_COMMAND_WRITEOUTPUT = 0x80;  // latches the data byte onto the outputs
inline constexpr BYTE PORT_COMMAND_READINPUT = 0x82;    // latches the input lines for reading
inline constexpr BYTE PORT_COMMAND_90 = 0x90;
inline constexpr BYTE PORT_COMMAND_98 = 0x98;

inline constexpr WORD BUS_ADDRESS_COMMAND = 0;
inline constexpr WORD BUS_ADDRESS_DATA = 1;

// Command bytes of the board's sound processor, written to address 0: the kind plus the
// channel (0 or 1). After a request, address channel + 1 reads the channel's count in
// quarter blocks (255 and below 4: no whole block) and address 0 a block of the code.
inline constexpr BYTE SOUND_COMMAND_START = 0x20;
inline constexpr BYTE SOUND_COMMAND_STOP = 0x30;
inline constexpr BYTE SOUND_COMMAND_REQUEST = 0x40;
inline constexpr WORD BUS_ADDRESS_SOUNDBLOCK = 0;
inline constexpr WORD BUS_ADDRESS_SOUNDCOUNT = 1;

class ZNDVR_API CSpciDebi {
public:
    virtual ~CSpciDebi() = default;
    CSpciDebi(const CSpciDebi&) = delete;
    CSpciDebi& operator=(const CSpciDebi&) = delete;

    // Nonzero when the bus was taken within dwTimeout milliseconds. The lock is
    // recursive: its owner may take it again and releases it as often.
    virtual int Lock(DWORD dwTimeout) = 0;
    virtual void Unlock() = 0;

    // Transfers: 1 on success (a block read gives its length), -1 on failure. nRetry is
    // the driver's retry count for the transfer.
    virtual int WriteDebiByte(WORD wAddress, BYTE byValue, int nRetry) = 0;
    virtual int ReadDebiByte(WORD wAddress, BYTE& byValue, int nRetry) = 0;
    virtual int ReadDebiBlock(WORD wAddress, BYTE* pData, int nLen, int nRetry) = 0;

protected:
    CSpciDebi() = default;
};
