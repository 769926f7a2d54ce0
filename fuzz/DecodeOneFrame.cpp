// Fuzz target of the decoder. The first byte chooses the stream revision, the display
// mode, the transform form and the output capacity; then come up to eight records, each
// behind a 16-bit big-endian length (cut to what is left). The records go in turn to one
// decoder, so P pictures meet the reference that the earlier records left. One decoder
// per revision serves every input, as creating one clears a few megabytes; each input
// starts it with no coded size, so that an input behaves alike whatever came before it
// but for the samples in the planes. The output holds the capacity the decoder was told,
// and nothing more: the largest picture that a record can announce, or the 640x480 area
// of a player that decodes for its host.
#include "codec/CDecoder.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace {

class CFuzzDecoder : public CDecoder {
public:
    void Restart(BOOL bUseMMX)
    {
        m_nWidth = m_nHeight = m_nMBCols = m_nMBRows = m_nMBCount = 0;
        m_nQi = m_nQp = 0;
        m_bUseMMX = bUseMMX;
    }
};

constexpr int kPlayerOutputBytes = 640 * 480 * 3;
constexpr int kMaxRecords = 8;

CFuzzDecoder* DecoderFor(DWORD dwRevision)
{
    static std::unique_ptr<CFuzzDecoder> decoders[2];
    std::unique_ptr<CFuzzDecoder>& decoder = decoders[dwRevision == 0x20020219 ? 1 : 0];
    if (!decoder) {
        decoder = std::make_unique<CFuzzDecoder>();
        if (!decoder->Create(dwRevision))
            decoder.reset();
    }
    return decoder.get();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize < 1)
        return 0;
    const BYTE byMode = pData[0];
    const int nCapacity = (byMode & 8) != 0 ? kPlayerOutputBytes : CDecoder::MAX_OUTPUT_BYTES;
    std::vector<BYTE> output(static_cast<std::size_t>(nCapacity));
    CFuzzDecoder* pDecoder = DecoderFor((byMode & 1) != 0 ? 0x20020219 : 0x20020114);
    if (pDecoder == nullptr)
        return 0;
    pDecoder->Restart((byMode & 4) != 0);
    pDecoder->SetOutputCapacity(nCapacity);
    std::size_t nPos = 1;
    for (int r = 0; r < kMaxRecords && nPos + 2 <= nSize; ++r) {
        std::size_t nLength = static_cast<std::size_t>(pData[nPos] << 8 | pData[nPos + 1]);
        nPos += 2;
        if (nLength > nSize - nPos)
            nLength = nSize - nPos;
        // A copy of exactly the record's size, so that a read past its end is caught.
        const std::vector<BYTE> record(pData + nPos, pData + nPos + nLength);
        nPos += nLength;
        const DECODER_RETURN result =
            pDecoder->DecodeOneFrame(record.data(), static_cast<int>(record.size()), output.data(), (byMode & 2) != 0);
        if (static_cast<std::size_t>(result.nWidth) * result.nHeight * 3 > output.size())
            __builtin_trap();
    }
    return 0;
}
