// The board's sound processor as the byte bus sees it: the bus hands it the sound
// commands written to address 0, the count reads at addresses 1 and 2 and the block
// reads. Owned by the board's bus (shared); called on whichever thread uses the bus,
// so an implementation is thread-safe. A board without one reports no sound ready.
#pragma once

#include "platform/WinTypes.h"

class CBoardSoundPort {
public:
    virtual ~CBoardSoundPort() = default;

    // A command byte of the sound range (start, stop, request a block; per channel).
    virtual void OnCommand(BYTE byCommand) = 0;
    // The count of channel nChannel (0 or 1) in quarter blocks, after a request.
    virtual BYTE ReadCount(int nChannel) = 0;
    // Fills nLen bytes of the block that the last request made ready; -1 on failure.
    virtual int ReadBlock(BYTE* pData, int nLen) = 0;
};
