#include "sound/CAdpcmSpeechEncoder.h"

#include "sound/CAdpcm.h"

#include <new>

std::unique_ptr<CSpeechEncoder> CAdpcmSpeechEncoder::Create()
{
    std::unique_ptr<CAdpcmSpeechEncoder> pEncoder(new (std::nothrow) CAdpcmSpeechEncoder);
    if (pEncoder == nullptr || pEncoder->m_pAdpcm == nullptr || !pEncoder->m_pAdpcm->Init(CAdpcm::kModeEncoder))
        return nullptr;
    return pEncoder;
}

CAdpcmSpeechEncoder::CAdpcmSpeechEncoder() : m_pAdpcm(new (std::nothrow) CAdpcm)
{
}

CAdpcmSpeechEncoder::~CAdpcmSpeechEncoder() = default;

int CAdpcmSpeechEncoder::Encode(const short* pPcm, BYTE* pCode, int nSamples)
{
    return m_pAdpcm->Encode(pPcm, pCode, nSamples, 0);
}
