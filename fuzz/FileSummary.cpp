// Takes arbitrary bytes as a recording file and reads its summary: whatever the head and
// its lengths claim, the reader stays inside the file, and a summary it takes has the
// file's length and names no longer than the file.
#include "storage/CZnFileInfo.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

const std::string& GetFilePath()
{
    static const std::string strPath = "/tmp/zndvr-fuzz-" + std::to_string(getpid()) + "-summary.zn";
    return strPath;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    FILE* pFile = std::fopen(GetFilePath().c_str(), "wb");
    if (pFile == nullptr)
        return 0;
    std::fwrite(pData, 1, nSize, pFile);
    std::fclose(pFile);
    for (DWORD dwRevision : {0x20020114u, 0x20020219u}) {
        CZnFileInfo info;
        if (!info.Create(GetFilePath().c_str(), dwRevision)) {
            if (info.m_dwFileLength != 0 || !info.m_strFilePath.IsEmpty())
                std::abort();
            continue;
        }
        const std::size_t nNames = static_cast<std::size_t>(info.m_strBoardName.GetLength()) +
                                   info.m_strCameraName.GetLength() + info.m_strHostName.GetLength();
        if (info.m_dwFileLength != nSize || nSize < 36 + nNames || info.m_byReserved != 0)
            std::abort();
    }
    return 0;
}
