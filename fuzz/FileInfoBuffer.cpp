// Reads arbitrary bytes as the flat record of a file summary: the reader stays inside
// them, a record it takes writes back to the same bytes, and a refused one changes nothing.
#include "storage/CZnFileInfo.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    std::vector<BYTE> input(pData, pData + nSize);
    CZnFileInfo info;
    info.m_strFilePath = "unchanged";
    const DWORD dwRead = info.ReadFromBuf(input.data(), static_cast<DWORD>(input.size()));
    if (dwRead == CZnFileInfo::BUF_ERROR) {
        if (info.m_strFilePath != "unchanged" || info.m_dwFileLength != 0)
            std::abort();
        return 0;
    }
    if (dwRead > nSize || dwRead != info.GetSize())
        std::abort();
    std::vector<BYTE> output(info.GetSize());
    if (info.WriteToBuf(output.data(), static_cast<DWORD>(output.size())) != dwRead ||
        std::memcmp(output.data(), input.data(), dwRead) != 0)
        std::abort();
    return 0;
}
