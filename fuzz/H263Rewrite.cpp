// Fuzz target of the H.263 rewrite. The input is that of the decoder's target: a mode
// byte (not used here), then up to eight records, each behind a 16-bit big-endian
// length (cut to what is left). One writer takes them in turn, so P pictures meet the
// size that the earlier records left. A picture it writes must lie inside its output.
#include "codec/CDecoder.h"
#include "codec/CH263Writer.h"

#include <cstdint>
#include <vector>

namespace {

constexpr int kMaxRecords = 8;
// Header, and per macroblock at most 5 bits more than the record spent on it.
constexpr std::size_t kMaxGrowthBytes = 64 + CDecoder::MAX_WIDTH * CDecoder::MAX_HEIGHT / 256;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    static CH263Writer writer;
    static const bool bCreated = writer.Create();
    if (nSize < 1 || !bCreated)
        return 0;
    std::size_t nPos = 1;
    for (int r = 0; r < kMaxRecords && nPos + 2 <= nSize; ++r) {
        std::size_t nLength = static_cast<std::size_t>(pData[nPos] << 8 | pData[nPos + 1]);
        nPos += 2;
        if (nLength > nSize - nPos)
            nLength = nSize - nPos;
        // A copy of exactly the record's size, so that a read past its end is caught.
        const std::vector<BYTE> record(pData + nPos, pData + nPos + nLength);
        nPos += nLength;
        const tag_H263RESULT nResult =
            writer.Rewrite(record.data(), static_cast<int>(record.size()), static_cast<DWORD>(r) * 40);
        const std::size_t nOut = static_cast<std::size_t>(writer.GetPictureLength());
        if ((nResult != H263_OK && nOut != 0) || (nResult == H263_OK && nOut == 0))
            __builtin_trap();
        // Every bit of a picture comes from the record's bits or from a short header.
        if (nResult == H263_OK && nOut > record.size() + kMaxGrowthBytes + 20)
            __builtin_trap();
    }
    return 0;
}
