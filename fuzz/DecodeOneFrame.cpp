// Fuzz target of the decoder. The first byte chooses the stream revision, the display
// mode and the transform form; then come up to eight records, each behind a 16-bit
// big-endian length (cut to what is left). One decoder takes them in turn, so P pictures
// meet the reference that the earlier records left. The output holds the largest
// picture that a record can announce, and nothing more.
#include "codec/CDecoder.h"

#include <cstdint>
#include <vector>

namespace {

class CFuzzDecoder : public CDecoder {
public:
    void SetSIMDForm(BOOL bUseMMX) { m_bUseMMX = bUseMMX; }
};

constexpr std::size_t kOutputBytes = static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3;
constexpr int kMaxRecords = 8;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize < 1)
        return 0;
    static std::vector<BYTE> output(kOutputBytes);
    const BYTE byMode = pData[0];
    CFuzzDecoder decoder;
    if (!decoder.Create((byMode & 1) != 0 ? 0x20020219 : 0x20020114))
        return 0;
    decoder.SetSIMDForm((byMode & 4) != 0);
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
        if (static_cast<std::size_t>(result.nWidth) * result.nHeight * 3 > kOutputBytes)
            __builtin_trap();
    }
    return 0;
}
