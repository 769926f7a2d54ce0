// Reads arbitrary bytes as a search buffer. Whatever they hold, the reader stays inside
// them; a buffer it takes writes back to the same bytes, and one it refuses changes
// nothing.
#include "storage/CFileSearchInfo.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    // An exact-size copy, so that a read past the end is caught.
    std::vector<BYTE> input(pData, pData + nSize);
    CFileSearchInfo search;
    int nStart = -1;
    int nCount = -1;
    const DWORD dwRead = search.ReadFromBuf(input.data(), static_cast<DWORD>(input.size()), nStart, nCount);
    if (dwRead == 0) {
        if (search.GetCount() != 0 || search.GetSearchParam().dwFlags != 0 || nStart != -1 || nCount != -1)
            std::abort();
        return 0;
    }
    if (dwRead > nSize || search.GetCount() != nCount)
        std::abort();
    // Written back as page 0 of its own results, it gives the bytes read but for nStart.
    int nPageStart = 0;
    int nPageCount = nCount;
    std::vector<BYTE> output(search.GetSize(nPageStart, nPageCount));
    if (search.WriteToBuf(output.data(), static_cast<DWORD>(output.size()), nPageStart, nPageCount) != dwRead)
        std::abort();
    const std::size_t nStartAt = dwRead - 8 - (output.size() - search.GetSize(0, 0));
    if (std::memcmp(output.data(), input.data(), nStartAt) != 0 ||
        std::memcmp(output.data() + nStartAt + 4, input.data() + nStartAt + 4, dwRead - nStartAt - 4) != 0)
        std::abort();
    return 0;
}
