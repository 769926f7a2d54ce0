// Fuzz target of the decoder. The first byte chooses the stream revision, the display
// mode, the transform form and the output capacity; then come up to eight records, each
// behind a 16-bit big-endian length (cut to what is left). One decoder takes them in
// turn, so P pictures meet the reference that the earlier records left. The output
// holds the capacity the decoder was told, and nothing more: the largest picture that
// a record can announce, or the 640x480 area of a player that decodes for its host.
#include "codec/CDecoder.h"

#include <cstdint>
#include <vector>

namespace {

class CFuzzDecoder : public CDecoder {
public:
    void SetSIMDForm(BOOL bUseMMX) { m_bUseMMX = bUseMMX; }
};

constexpr int kPlayerOutputBytes = 640 * 480 * 3;
constexpr int kMaxRecords = 8;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize < 1)
        return 0;
    const BYTE byMode = pData[0];
    const int nCapacity = (byMode & 8) != 0 ? kPlayerOutputBytes : CDecoder::MAX_OUTPUT_BYTES;
    std::vector<BYTE> output(static_cast<std::size_t>(nCapacity));
    CFuzzDecoder decoder;
    if (!decoder.Create((byMode & 1) != 0 ? 0x20020219 : 0x20020114))
        return 0;
    decoder.SetSIMDForm((byMode & 4) != 0);
    decoder.SetOutputCapacity(nCapacity);
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
            decoder.DecodeOneFrame(record.data(), static_cast<int>(record.size()), output.data(), (byMode & 2) != 0);
        if (static_cast<std::size_t>(result.nWidth) * result.nHeight * 3 > output.size())
            __builtin_trap();
    }
    return 0;
}
