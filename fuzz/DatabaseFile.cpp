// Reads arbitrary bytes as a store's database file, twice: as records in memory, which
// must survive being written and read again unchanged, and through CZnDatabase::Open,
// which must end with a store of at least the default disk and a file it can read back.
#include "platform/CException.h"
#include "platform/CMemFile.h"
#include "storage/CZnDatabase.h"
#include "storage/DatabaseFile.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

void IgnoreReport(LPCSTR)
{
}

bool IsSameRecord(const tag_HDDPARAM& left, const tag_HDDPARAM& right)
{
    return left.dwReservedSpace == right.dwReservedSpace && left.bRecycle == right.bRecycle &&
           left.strBaseDir == right.strBaseDir && left.strDbsName == right.strDbsName &&
           left.bAlarmWhenSpaceNotEnough == right.bAlarmWhenSpaceNotEnough &&
           left.strAlarmSound == right.strAlarmSound;
}

// Strings may hold any byte but '\0' ends a CString's comparison; the lengths tell.
bool IsSameRecords(const std::vector<tag_HDDPARAM>& aLeft, const std::vector<tag_HDDPARAM>& aRight)
{
    if (aLeft.size() != aRight.size())
        return false;
    for (std::size_t i = 0; i < aLeft.size(); ++i) {
        if (!IsSameRecord(aLeft[i], aRight[i]) ||
            aLeft[i].strBaseDir.GetStdString() != aRight[i].strBaseDir.GetStdString() ||
            aLeft[i].strAlarmSound.GetStdString() != aRight[i].strAlarmSound.GetStdString())
            return false;
    }
    return true;
}

void CheckRecordsRoundTrip(const std::uint8_t* pData, std::size_t nSize)
{
    std::vector<BYTE> aInput(pData, pData + nSize);
    CMemFile input(aInput.data(), static_cast<UINT>(aInput.size()));
    std::vector<tag_HDDPARAM> aRecords;
    try {
        CArchive ar(&input, CArchive::load);
        ReadDatabaseRecords(ar, aRecords);
    } catch (CException* pException) {
        pException->Delete();
        return;
    }
    CMemFile output;
    {
        CArchive ar(&output, CArchive::store);
        WriteDatabaseRecords(ar, aRecords);
    }
    output.SeekToBegin();
    std::vector<tag_HDDPARAM> aAgain;
    CArchive ar(&output, CArchive::load);
    ReadDatabaseRecords(ar, aAgain);
    if (!IsSameRecords(aRecords, aAgain))
        std::abort();
}

void CheckOpen(const std::uint8_t* pData, std::size_t nSize)
{
    static const std::string strStore = [] {
        std::string strDir = "/tmp/zndvr-fuzz-" + std::to_string(getpid()) + "-store";
        std::filesystem::create_directories(strDir);
        return strDir;
    }();
    const std::string strFile = strStore + "/zndvr.dbs";
    FILE* pFile = std::fopen(strFile.c_str(), "wb");
    if (pFile == nullptr)
        return;
    std::fwrite(pData, 1, nSize, pFile);
    std::fclose(pFile);
    CZnDatabase db;
    // The store's own volume may be refused (a RAM file system): then nothing opens.
    if (!db.Open(strStore.c_str(), 0x20020219, nullptr, strFile.c_str(), "fuzz"))
        return;
    if (db.GetHddNum() < 1)
        std::abort();
    db.Close();
    CZnDatabase again;
    if (!again.Open(strStore.c_str(), 0x20020219, nullptr, strFile.c_str(), "fuzz") || again.GetHddNum() < 1)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    SetExceptionReporter(IgnoreReport);
    CheckRecordsRoundTrip(pData, nSize);
    CheckOpen(pData, nSize);
    return 0;
}
