// The speech coder of a board's sound processor: 16-bit linear PCM at 8000 samples a
// second into ITU-T G.726 at 24 kbit/s, the code of board sound and of recordings. A
// board codes in its own processor; a board simulated in software is given a coder by
// whoever installs it. One object per sound input, its state carried from call to call;
// used by one thread at a time.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

class ZNDVR_API CSpeechEncoder {
public:
    virtual ~CSpeechEncoder() = default;

    // Codes nSamples samples (a multiple of 8) into nSamples / 8 * 3 bytes of pCode;
    // 0 when it can't.
    virtual int Encode(const short* pPcm, BYTE* pCode, int nSamples) = 0;

protected:
    CSpeechEncoder() = default;
};
