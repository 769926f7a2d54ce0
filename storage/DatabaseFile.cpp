#include "storage/DatabaseFile.h"

#include "platform/CFile.h"

void WriteDatabaseRecords(CArchive& ar, const std::vector<tag_HDDPARAM>& aRecords)
{
    ar << static_cast<DWORD>(aRecords.size());
    for (const tag_HDDPARAM& record : aRecords) {
        ar << record.dwReservedSpace;
        ar << record.bRecycle;
        ar << record.strBaseDir;
        ar << record.strDbsName;
        ar << record.bAlarmWhenSpaceNotEnough;
        ar << record.strAlarmSound;
    }
}

void ReadDatabaseRecords(CArchive& ar, std::vector<tag_HDDPARAM>& aRecords)
{
    DWORD dwCount = 0;
    ar >> dwCount;
    // The count is not trusted for memory: records are taken one by one as they arrive.
    for (DWORD i = 0; i < dwCount; ++i) {
        tag_HDDPARAM record;
        ar >> record.dwReservedSpace;
        ar >> record.bRecycle;
        ar >> record.strBaseDir;
        ar >> record.strDbsName;
        ar >> record.bAlarmWhenSpaceNotEnough;
        ar >> record.strAlarmSound;
        aRecords.push_back(record);
    }
    BYTE byBehind = 0;
    if (ar.Read(&byBehind, 1) != 0)
        AfxThrowArchiveException(CArchiveException::generic, ar.GetFile()->GetFilePath());
}
