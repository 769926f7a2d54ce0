// Opens arbitrary bytes as a store's database file. Whatever the file holds, Open must
// end with at least one disk, and the file it saves must open again to the same disks and
// save again to the same bytes.
#include "platform/CException.h"
#include "storage/CZnDatabase.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

void IgnoreReport(LPCSTR)
{
}

std::vector<char> ReadBytes(const std::string& strPath)
{
    std::ifstream file(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

const std::string& GetStoreDir()
{
    static const std::string strDir = [] {
        std::string strPath = "/tmp/zndvr-fuzz-" + std::to_string(getpid()) + "-store";
        std::filesystem::create_directories(strPath);
        return strPath;
    }();
    return strDir;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    SetExceptionReporter(IgnoreReport);
    const std::string strFile = GetStoreDir() + "/zndvr.dbs";
    FILE* pFile = std::fopen(strFile.c_str(), "wb");
    if (pFile == nullptr)
        return 0;
    std::fwrite(pData, 1, nSize, pFile);
    std::fclose(pFile);

    CZnDatabase db;
    // The store's own volume may be refused (a RAM file system): then nothing opens.
    if (!db.Open(GetStoreDir().c_str(), 0x20020219, nullptr, strFile.c_str(), "fuzz"))
        return 0;
    const int nDisks = db.GetHddNum();
    if (nDisks < 1)
        std::abort();
    db.Close();
    const std::vector<char> aSaved = ReadBytes(strFile);
    CZnDatabase again;
    if (!again.Open(GetStoreDir().c_str(), 0x20020219, nullptr, strFile.c_str(), "fuzz") || again.GetHddNum() != nDisks)
        std::abort();
    again.Close();
    if (ReadBytes(strFile) != aSaved)
        std::abort();
    return 0;
}
