// The library's G.726 coder as the speech coder of a board's sound processor: what a host
// or a test gives a simulated board so that its code is that of a real board. Made by
// Create and owned by the processor's channel; one thread at a time.
#pragma once

#include "driver/CSpeechEncoder.h"
#include "platform/Export.h"

#include <memory>

class CAdpcm;

class ZNDVR_API CAdpcmSpeechEncoder : public CSpeechEncoder {
public:
    // A coder at the start of a stream; null when it can't be made.
    static std::unique_ptr<CSpeechEncoder> Create();

    ~CAdpcmSpeechEncoder() override;
    int Encode(const short* pPcm, BYTE* pCode, int nSamples) override;

private:
    CAdpcmSpeechEncoder();

    std::unique_ptr<CAdpcm> m_pAdpcm;
};
