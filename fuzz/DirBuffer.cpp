// Reads arbitrary bytes as a disk's directory buffer: the reader stays inside them, a
// listing it takes writes back to the same bytes, and a refused one changes nothing.
#include "storage/CHddObj.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    std::vector<BYTE> input(pData, pData + nSize);
    CHddObj disk;
    const DWORD dwRead = disk.ReadDirFromBuf(input.data(), static_cast<DWORD>(input.size()));
    if (dwRead == 0) {
        if (!disk.GetBaseDir().IsEmpty() || disk.GetDbsName() != "ZnDatabase")
            std::abort();
        return 0;
    }
    if (dwRead > nSize || dwRead != disk.GetDirSize())
        std::abort();
    for (int nType : {CHddObj::DIR_LOCAL, CHddObj::DIR_REMOTE}) {
        for (int i = 1; i < disk.GetDirNum(nType); ++i) {
            if (disk.GetDirDate(i, nType) <= disk.GetDirDate(i - 1, nType))
                std::abort();
        }
    }
    std::vector<BYTE> output(disk.GetDirSize());
    if (disk.WriteDirToBuf(output.data(), static_cast<DWORD>(output.size())) != dwRead ||
        std::memcmp(output.data(), input.data(), dwRead) != 0)
        std::abort();
    return 0;
}
