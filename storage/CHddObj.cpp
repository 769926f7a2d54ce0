#include "storage/CHddObj.h"

#include "platform/CFileFind.h"
#include "platform/Disks.h"
#include "storage/CFileSearchInfo.h"
#include "storage/FlatBuffer.h"

#include <cstdlib>
#include <memory>
#include <new>

IMPLEMENT_SERIAL(CHddObj, CObject, 0)

namespace {

constexpr char kLocalTree[] = "Local";
constexpr char kRemoteTree[] = "Remote";
constexpr char kPictureTree[] = "Picture";
constexpr char kDefaultName[] = "ZnDatabase";
constexpr char kDayFormat[] = "%Y%m%d";
constexpr char kDayPrefix = 'd';
constexpr int kDayNameLength = 9;
// Every entry of a directory, "." and ".." included.
constexpr char kAllEntries[] = "*.*";
constexpr DWORD kDefaultReservedSpace = 500;
constexpr int kMegabyteShift = 20;

// The entry of a plain path, made current in finder; false when nothing is there.
bool FindEntry(CFileFind& finder, const CString& strPath)
{
    if (strPath.IsEmpty() || !finder.FindFile(strPath))
        return false;
    finder.FindNextFile();
    return true;
}

bool IsExistingDirectory(const CString& strPath)
{
    CFileFind finder;
    return FindEntry(finder, strPath) && finder.IsDirectory();
}

bool IsSymbolicLink(const CString& strPath)
{
    CFileFind finder;
    return FindEntry(finder, strPath) && finder.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT);
}

// A tree directory that exists as a directory, or is made now.
bool MakeTreeDir(const CString& strDir)
{
    CFileFind finder;
    if (FindEntry(finder, strDir))
        return finder.IsDirectory() != 0;
    return CreateDirectoryA(strDir, nullptr) != 0;
}

CString WithTrailingSlash(const CString& strDir)
{
    return strDir.Right(1) == "/" ? strDir : strDir + "/";
}

CString GetDayName(DWORD dwDate)
{
    return CString(kDayPrefix) + CTime(static_cast<time_t>(dwDate)).Format(kDayFormat);
}

// The last path component, the whole text when it has no '/'.
CString GetLastComponent(const CString& strDir)
{
    return strDir.Mid(strDir.ReverseFind('/') + 1);
}

// Date values are 32-bit; 0 and NO_DATE mean "none" in the lists' operations.
DWORD ToDateValue(const CTime& tDate)
{
    const time_t tValue = tDate.GetTime();
    if (tValue <= 0 || tValue >= static_cast<time_t>(CHddObj::NO_DATE))
        return 0;
    return static_cast<DWORD>(tValue);
}

// Keeps a list ascending and free of repeats whatever order its dates come in, also when
// the clock has been set back.
void InsertDate(CDWordArray& aList, DWORD dwDate)
{
    int nIndex = 0;
    while (nIndex < aList.GetSize() && aList[nIndex] < dwDate)
        ++nIndex;
    if (nIndex == aList.GetSize() || aList[nIndex] != dwDate)
        aList.InsertAt(nIndex, dwDate);
}

// The first entry of an ascending list above dwAfter, 0 if none.
DWORD FirstDateAfter(const CDWordArray& aList, DWORD dwAfter)
{
    for (int i = 0; i < aList.GetSize(); ++i) {
        if (aList[i] > dwAfter)
            return aList[i];
    }
    return 0;
}

enum tag_SCANRESULT { SCAN_FOUND, SCAN_PASSED, SCAN_ENDED };

tag_SCANRESULT ScanAscending(const CDWordArray& aList, DWORD dwDate)
{
    for (int i = 0; i < aList.GetSize(); ++i) {
        if (aList[i] == dwDate)
            return SCAN_FOUND;
        if (aList[i] > dwDate)
            return SCAN_PASSED;
    }
    return SCAN_ENDED;
}

// The first day of a walk whose start lies before the first day that has a date value.
DWORD GetFirstDate()
{
    return CHddObj::GetNextDate(0);
}

DWORD GetDateOfTime(DWORD dwTime)
{
    return CHddObj::GetDateOf(CTime(static_cast<time_t>(dwTime)));
}

// The filters of a request that a file's summary must pass. The ends of a span count.
bool MatchesRequest(const tag_SEARCHPARAM& param, const CZnFileInfo& info)
{
    const DWORD dwFlags = param.dwFlags;
    if ((dwFlags & SEARCH_HOST) != 0 && info.m_strHostName != param.strHostName)
        return false;
    if ((dwFlags & SEARCH_BOARD) != 0 && info.m_strBoardName != param.strBoardName)
        return false;
    if ((dwFlags & SEARCH_CAMERA) != 0 && info.m_strCameraName != param.strCameraName)
        return false;
    if ((dwFlags & SEARCH_BEGIN) != 0 && param.dwBeginTime > info.m_dwEndTime)
        return false;
    if ((dwFlags & SEARCH_END) != 0 && param.dwEndTime < info.m_dwBeginTime)
        return false;
    if ((dwFlags & SEARCH_FRAMESIZE) != 0 && param.dwFrameSize != info.m_byFrameSize)
        return false;
    if ((dwFlags & SEARCH_MOMENT) != 0 &&
        (param.dwBeginTime > info.m_dwEndTime || param.dwBeginTime < info.m_dwBeginTime))
        return false;
    return true;
}

// A list of the directory buffer: its count, then the dates, strictly ascending.
bool ReadDateList(CFlatReader& reader, CDWordArray& aList)
{
    const DWORD dwCount = reader.Get32();
    if (reader.IsDamaged() || dwCount > reader.GetRemaining() / sizeof(DWORD))
        return false;
    aList.SetSize(static_cast<int>(dwCount));
    for (DWORD i = 0; i < dwCount; ++i) {
        aList[static_cast<int>(i)] = reader.Get32();
        if (i > 0 && aList[static_cast<int>(i)] <= aList[static_cast<int>(i - 1)])
            return false;
    }
    return true;
}

void WriteDateList(CFlatWriter& writer, const CDWordArray& aList)
{
    writer.Put32(static_cast<DWORD>(aList.GetSize()));
    for (int i = 0; i < aList.GetSize(); ++i)
        writer.Put32(aList[i]);
}

} // namespace

CHddObj::CHddObj()
    : m_bRecycle(0),
      m_strDbsName(kDefaultName),
      m_strDbsName1(kDefaultName),
      m_dwReservedSpace(kDefaultReservedSpace),
      m_dwAlarmSpace(kDefaultReservedSpace + ALARM_MARGIN_MB),
      m_bAlarmWhenSpaceNotEnough(0),
      m_dwRevision(0)
{
}

CHddObj::~CHddObj() = default;

CHddObj& CHddObj::operator=(const CHddObj& other)
{
    if (this != &other) {
        m_strBaseDir = other.m_strBaseDir;
        m_strVolume = other.m_strVolume;
        m_strDbsName = other.m_strDbsName;
        m_aLocalDir.Copy(other.m_aLocalDir);
        m_aRemoteDir.Copy(other.m_aRemoteDir);
        m_aPictureDir.Copy(other.m_aPictureDir);
    }
    return *this;
}

tag_BASEDIRCHECK CHddObj::CheckBaseDir(CString strBaseDir)
{
    const CString strFull = GetFullPathName(strBaseDir);
    if (strFull.IsEmpty())
        return BASEDIR_EMPTY;
    tag_VOLUMEINFO volume;
    if (!GetVolumeInfo(strFull, &volume))
        return BASEDIR_NO_VOLUME;
    switch (volume.nDriveType) {
    case DRIVE_FIXED:
    case DRIVE_REMOTE:
        break;
    case DRIVE_RAMDISK:
        return BASEDIR_RAM_VOLUME;
    case DRIVE_CDROM:
        return BASEDIR_READONLY;
    default:
        return BASEDIR_NOT_A_DISK;
    }
    CFileFind finder;
    if (FindEntry(finder, strFull))
        return finder.IsDirectory() ? BASEDIR_EXISTS : BASEDIR_NOT_DIRECTORY;
    const CString strParent = strFull.Left(strFull.ReverseFind('/'));
    return strParent.IsEmpty() || IsExistingDirectory(strParent) ? BASEDIR_TO_MAKE : BASEDIR_NO_PARENT;
}

int CHddObj::Create(tag_HDDPARAM* pParam, DWORD dwRevision)
{
    if (pParam == nullptr)
        return 0;
    m_bRecycle = pParam->bRecycle;
    m_bAlarmWhenSpaceNotEnough = pParam->bAlarmWhenSpaceNotEnough;
    m_strAlarmSound = pParam->strAlarmSound;
    m_dwReservedSpace = pParam->dwReservedSpace;
    m_dwAlarmSpace = pParam->dwReservedSpace + ALARM_MARGIN_MB;

    const CString strBaseDir = GetFullPathName(pParam->strBaseDir);
    if (strBaseDir.IsEmpty())
        return 0;
    m_dwRevision = dwRevision;
    const tag_BASEDIRCHECK nCheck = CheckBaseDir(strBaseDir);
    if (nCheck != BASEDIR_EXISTS && nCheck != BASEDIR_TO_MAKE)
        return 0;
    const CString strName = pParam->strDbsName.IsEmpty() ? CString(kDefaultName) : pParam->strDbsName;
    const CString strVolume = GetVolumePath(strBaseDir);
    // A volume root is taken as it stands; any other base directory is made if missing.
    if (WithTrailingSlash(strBaseDir) != strVolume && nCheck == BASEDIR_TO_MAKE &&
        !CreateDirectoryA(strBaseDir, nullptr))
        return 0;
    m_strBaseDir = WithTrailingSlash(strBaseDir);
    m_strVolume = strVolume;
    m_strDbsName1 = strName;
    m_strDbsName = strName + "(" + strVolume + ")";
    LoadLocalDir();
    LoadRemoteDir();
    LoadPictureDir();
    return 1;
}

int CHddObj::ChangeBaseDir(tag_HDDPARAM* pParam)
{
    if (pParam == nullptr || pParam->strBaseDir.IsEmpty() || !(*this == pParam->strBaseDir))
        return 0;
    return Create(pParam, m_dwRevision);
}

int CHddObj::GetHDDSpace(CString strPath, DWORD& dwTotal, DWORD& dwUsed, DWORD& dwFree)
{
    ULARGE_INTEGER freeToCaller{0};
    ULARGE_INTEGER total{0};
    if (strPath.IsEmpty() || !GetDiskFreeSpaceExA(strPath, &freeToCaller, &total, nullptr))
        return 0;
    dwTotal = static_cast<DWORD>(total.QuadPart >> kMegabyteShift);
    dwFree = static_cast<DWORD>(freeToCaller.QuadPart >> kMegabyteShift);
    dwUsed = static_cast<DWORD>((total.QuadPart - freeToCaller.QuadPart) >> kMegabyteShift);
    return 1;
}

int CHddObj::GetHDDSpace(DWORD& dwTotal, DWORD& dwUsed, DWORD& dwFree) const
{
    return GetHDDSpace(m_strBaseDir, dwTotal, dwUsed, dwFree);
}

CString CHddObj::GetVideoDir()
{
    return GetTodayDir(m_aLocalDir, kLocalTree);
}

CString CHddObj::GetRemoteVideoDir()
{
    return GetTodayDir(m_aRemoteDir, kRemoteTree);
}

CString CHddObj::GetPictureDir()
{
    return GetTodayDir(m_aPictureDir, kPictureTree);
}

CString CHddObj::GetTodayDir(CDWordArray& aList, LPCSTR pszTree)
{
    if (m_strBaseDir.IsEmpty())
        return m_strBaseDir;
    const CTime tNow = CTime::GetCurrentTime();
    const CString strTree = m_strBaseDir + pszTree;
    if (!MakeTreeDir(strTree))
        return CString();
    const CString strDay = strTree + "/" + kDayPrefix + tNow.Format(kDayFormat);
    if (CreateDirectoryA(strDay, nullptr)) {
        const DWORD dwToday = GetDateOf(tNow);
        if (dwToday != 0)
            InsertDate(aList, dwToday);
        return strDay;
    }
    return IsExistingDirectory(strDay) ? strDay : CString();
}

int CHddObj::operator==(CString strPath) const
{
    return !strPath.IsEmpty() && !m_strVolume.IsEmpty() && GetVolumePath(strPath) == m_strVolume;
}

CString CHddObj::GetHDD() const
{
    return m_strVolume;
}

CString CHddObj::GetBaseDir() const
{
    return m_strBaseDir;
}

CString CHddObj::GetDbsName() const
{
    return m_strDbsName;
}

CString CHddObj::GetDbsName1() const
{
    return m_strDbsName1;
}

void CHddObj::SetDbsName(CString strName)
{
    m_strDbsName = strName;
}

int CHddObj::IsVideoDir(CString strDir)
{
    const CString strName = GetLastComponent(strDir);
    if (strName.GetLength() != kDayNameLength || strName[0] != kDayPrefix)
        return 0;
    for (int i = 1; i < kDayNameLength; ++i) {
        if (strName[i] < '0' || strName[i] > '9')
            return 0;
    }
    return 1;
}

int CHddObj::GetVideoDirDate(CTime& tDate, CString strDir)
{
    if (!IsVideoDir(strDir))
        return 0;
    const CString strName = GetLastComponent(strDir);
    const int nYear = std::atoi(strName.Mid(1, 4));
    const int nMonth = std::atoi(strName.Mid(5, 2));
    const int nDay = std::atoi(strName.Mid(7, 2));
    const CTime tMidnight(nYear, nMonth, nDay, 0, 0, 0, -1);
    // The constructor carries day 32 into the next month: only a date that comes back as
    // it was written is a calendar date.
    if (tMidnight.GetYear() != nYear || tMidnight.GetMonth() != nMonth || tMidnight.GetDay() != nDay ||
        ToDateValue(tMidnight) == 0)
        return 0;
    tDate = tMidnight;
    return 1;
}

DWORD CHddObj::GetDateOf(CTime tTime)
{
    return ToDateValue(CTime(tTime.GetYear(), tTime.GetMonth(), tTime.GetDay(), 0, 0, 0, -1));
}

DWORD CHddObj::GetNextDate(DWORD dwDate)
{
    const CTime tDate(static_cast<time_t>(dwDate));
    return ToDateValue(CTime(tDate.GetYear(), tDate.GetMonth(), tDate.GetDay() + 1, 0, 0, 0, -1));
}

int CHddObj::FindDate(DWORD dwDate, int nType) const
{
    if (nType != DIR_LOCAL) {
        const tag_SCANRESULT nRemote = ScanAscending(m_aRemoteDir, dwDate);
        if (nRemote != SCAN_ENDED)
            return nRemote == SCAN_FOUND;
    }
    return ScanAscending(m_aLocalDir, dwDate) == SCAN_FOUND;
}

int CHddObj::GetDirNum(int nType) const
{
    return nType == DIR_LOCAL ? m_aLocalDir.GetSize() : m_aRemoteDir.GetSize();
}

DWORD CHddObj::GetDirDate(int nIndex, int nType) const
{
    const CDWordArray& aList = nType == DIR_LOCAL ? m_aLocalDir : m_aRemoteDir;
    return nIndex >= 0 && nIndex < aList.GetSize() ? aList[nIndex] : NO_DATE;
}

int CHddObj::GetPictureDirNum() const
{
    return m_aPictureDir.GetSize();
}

DWORD CHddObj::GetPictureDirDate(int nIndex) const
{
    return nIndex >= 0 && nIndex < m_aPictureDir.GetSize() ? m_aPictureDir[nIndex] : NO_DATE;
}

void CHddObj::Refresh()
{
    LoadLocalDir();
    LoadRemoteDir();
    LoadPictureDir();
}

void CHddObj::Serialize(CArchive& ar)
{
    if (ar.IsStoring()) {
        ar << m_bRecycle;
        ar << m_strBaseDir;
        ar << m_strDbsName;
        ar << m_dwReservedSpace;
        ar << m_bAlarmWhenSpaceNotEnough;
        ar << m_strAlarmSound;
    } else {
        ar >> m_bRecycle;
        ar >> m_strBaseDir;
        ar >> m_strDbsName;
        ar >> m_dwReservedSpace;
        ar >> m_bAlarmWhenSpaceNotEnough;
        ar >> m_strAlarmSound;
    }
}

int CHddObj::IsRecycle() const
{
    return m_bRecycle;
}

void CHddObj::EnableRecycle()
{
    m_bRecycle = 1;
}

void CHddObj::DisableRecycle()
{
    m_bRecycle = 0;
}

DWORD CHddObj::GetReservedSpace() const
{
    return m_dwReservedSpace;
}

DWORD CHddObj::GetAlarmSpace() const
{
    return m_dwAlarmSpace;
}

int CHddObj::IsAlarmWhenSpaceNotEnough() const
{
    return m_bAlarmWhenSpaceNotEnough;
}

void CHddObj::EnableAlarmWhenSpaceNotEnough(int bEnable)
{
    m_bAlarmWhenSpaceNotEnough = bEnable;
}

CString CHddObj::GetAlarmSound() const
{
    return m_strAlarmSound;
}

void CHddObj::SetAlarmSound(CString strFile)
{
    m_strAlarmSound = strFile;
}

int CHddObj::FindOldestDir(DWORD& dwDate, DWORD dwAfter) const
{
    dwDate = FirstDateAfter(m_aLocalDir, dwAfter);
    for (const CDWordArray* pList : {&m_aRemoteDir, &m_aPictureDir}) {
        const DWORD dwFirst = FirstDateAfter(*pList, dwAfter);
        if (dwFirst != 0 && (dwDate == 0 || dwFirst < dwDate))
            dwDate = dwFirst;
    }
    return dwDate != 0;
}

int CHddObj::DeleteDate(DWORD dwDate, DWORD& dwDeleted)
{
    dwDeleted = 0;
    if (m_strBaseDir.IsEmpty())
        return 0;
    dwDeleted += DeleteDateFrom(m_aLocalDir, kLocalTree, dwDate);
    dwDeleted += DeleteDateFrom(m_aRemoteDir, kRemoteTree, dwDate);
    dwDeleted += DeleteDateFrom(m_aPictureDir, kPictureTree, dwDate);
    return dwDeleted != 0;
}

// The list entry goes first, whatever becomes of the directory.
DWORD CHddObj::DeleteDateFrom(CDWordArray& aList, LPCSTR pszTree, DWORD dwDate)
{
    for (int i = 0; i < aList.GetSize() && aList[i] <= dwDate; ++i) {
        if (aList[i] == dwDate) {
            aList.RemoveAt(i);
            DWORD dwDeleted = 0;
            DeleteDir(m_strBaseDir + pszTree + "/" + GetDayName(dwDate), dwDeleted);
            return dwDeleted;
        }
    }
    return 0;
}

int CHddObj::DeleteDir(CString strDir, DWORD& dwDeleted)
{
    dwDeleted = 0;
    if (IsSymbolicLink(strDir))
        return DeleteFileA(strDir);
    CFileFind finder;
    if (!finder.FindFile(strDir + "/" + kAllEntries))
        return 0;
    BOOL bMore = TRUE;
    while (bMore) {
        bMore = finder.FindNextFile();
        if (finder.IsDots())
            continue;
        const CString strPath = finder.GetFilePath();
        if (finder.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT)) {
            if (!DeleteFileA(strPath))
                return 0;
        } else if (finder.IsDirectory()) {
            DWORD dwInner = 0;
            const int bGone = DeleteDir(strPath, dwInner);
            dwDeleted += dwInner;
            if (!bGone)
                return 0;
        } else {
            const DWORD dwLength = finder.GetLength();
            if (!DeleteFileA(strPath))
                return 0;
            dwDeleted += dwLength;
        }
    }
    finder.Close();
    return RemoveDirectoryA(strDir);
}

void CHddObj::LoadLocalDir()
{
    LoadDir(m_aLocalDir, kLocalTree);
}

void CHddObj::LoadRemoteDir()
{
    LoadDir(m_aRemoteDir, kRemoteTree);
}

void CHddObj::LoadPictureDir()
{
    LoadDir(m_aPictureDir, kPictureTree);
}

void CHddObj::LoadDir(CDWordArray& aList, LPCSTR pszTree)
{
    aList.RemoveAll();
    if (m_strBaseDir.IsEmpty())
        return;
    GetDirStruct(&aList, m_strBaseDir + pszTree);
    if (aList.GetSize() > 0)
        std::qsort(aList.GetData(), static_cast<std::size_t>(aList.GetSize()), sizeof(DWORD), &CompareFunc);
}

void CHddObj::GetDirStruct(CDWordArray* pList, CString strDir)
{
    if (pList == nullptr || strDir.IsEmpty() || !IsExistingDirectory(strDir))
        return;
    CFileFind finder;
    if (!finder.FindFile(strDir + "/" + kAllEntries))
        return;
    BOOL bMore = TRUE;
    while (bMore) {
        bMore = finder.FindNextFile();
        CTime tDate;
        if (!finder.IsDirectory() || finder.IsDots() || !GetVideoDirDate(tDate, finder.GetFileName()))
            continue;
        if (!bMore && !IsAnyFile(finder.GetFilePath()))
            continue;
        pList->Add(static_cast<DWORD>(tDate.GetTime()));
    }
}

int CHddObj::IsAnyFile(CString strDir)
{
    if (!IsExistingDirectory(strDir))
        return 0;
    CFileFind finder;
    if (!finder.FindFile(strDir + "/" + kAllEntries))
        return 0;
    BOOL bMore = TRUE;
    while (bMore) {
        bMore = finder.FindNextFile();
        if (!finder.IsDirectory())
            return 1;
    }
    return 0;
}

int CHddObj::CompareFunc(const void* pLeft, const void* pRight)
{
    const DWORD dwLeft = *static_cast<const DWORD*>(pLeft);
    const DWORD dwRight = *static_cast<const DWORD*>(pRight);
    return dwLeft < dwRight ? -1 : dwLeft > dwRight ? 1 : 0;
}

void CHddObj::SearchFile(CFileSearchInfo* pInfo)
{
    if (pInfo == nullptr)
        return;
    const tag_SEARCHPARAM& param = pInfo->GetSearchParam();
    if ((param.dwFlags & SEARCH_DBS) != 0 && param.strDbsName != m_strDbsName)
        return;
    if (m_strBaseDir.IsEmpty() || !IsExistingDirectory(m_strBaseDir))
        return;
    const CString strTree = m_strBaseDir + ((param.dwFlags & SEARCH_REMOTE) != 0 ? kRemoteTree : kLocalTree) + "/";
    if ((param.dwFlags & SEARCH_DATE) != 0) {
        const CString strDay = strTree + kDayPrefix + CTime(static_cast<time_t>(param.dwDate)).Format(kDayFormat);
        if (IsExistingDirectory(strDay))
            SearchDirectory(pInfo, strDay + "/");
        return;
    }
    if ((param.dwFlags & SEARCH_BEGIN) != 0)
        SearchDays(pInfo, strTree);
}

// The calendar of the span, from the day of the begin time to that of the end time and
// never past today, one local day after the other whatever its length.
void CHddObj::SearchDays(CFileSearchInfo* pInfo, const CString& strTree)
{
    const tag_SEARCHPARAM& param = pInfo->GetSearchParam();
    const DWORD dwToday = GetDateOf(CTime::GetCurrentTime());
    const DWORD dwLastDay = GetDateOfTime(param.dwEndTime);
    DWORD dwDay = GetDateOfTime(param.dwBeginTime);
    if (dwDay == 0)
        dwDay = GetFirstDate();
    for (; dwDay != 0 && dwDay <= dwLastDay && dwDay <= dwToday; dwDay = GetNextDate(dwDay)) {
        const CString strDay = strTree + GetDayName(dwDay);
        if (IsExistingDirectory(strDay))
            SearchDirectory(pInfo, strDay + "/");
    }
}

void CHddObj::SearchDirectory(CFileSearchInfo* pInfo, CString strDir)
{
    CFileFind finder;
    if (pInfo == nullptr || !finder.FindFile(strDir + kAllEntries))
        return;
    BOOL bMore = TRUE;
    while (bMore) {
        bMore = finder.FindNextFile();
        if (finder.IsDirectory())
            continue;
        std::unique_ptr<CZnFileInfo> pFile(new (std::nothrow) CZnFileInfo);
        if (pFile == nullptr)
            return;
        if (pFile->Create(finder.GetFilePath(), m_dwRevision) && MatchesRequest(pInfo->GetSearchParam(), *pFile))
            pInfo->AddResult(pFile.release());
    }
}

DWORD CHddObj::GetDirSize() const
{
    if (m_strBaseDir.IsEmpty())
        return sizeof(DWORD);
    return 4 * sizeof(DWORD) + static_cast<DWORD>(m_strBaseDir.GetLength()) +
           static_cast<DWORD>(m_strDbsName.GetLength()) +
           sizeof(DWORD) * static_cast<DWORD>(m_aLocalDir.GetSize() + m_aRemoteDir.GetSize());
}

DWORD CHddObj::WriteDirToBuf(BYTE* pBuf, DWORD nSize) const
{
    if (pBuf == nullptr || nSize < GetDirSize())
        return 0;
    CFlatWriter writer(pBuf, nSize);
    writer.Put32(static_cast<DWORD>(m_strBaseDir.GetLength()));
    if (m_strBaseDir.IsEmpty())
        return writer.GetPosition();
    writer.PutBytes(m_strBaseDir);
    writer.Put32(static_cast<DWORD>(m_strDbsName.GetLength()));
    writer.PutBytes(m_strDbsName);
    WriteDateList(writer, m_aLocalDir);
    WriteDateList(writer, m_aRemoteDir);
    return writer.HasFailed() ? 0 : writer.GetPosition();
}

DWORD CHddObj::ReadDirFromBuf(const BYTE* pBuf, DWORD nSize)
{
    if (pBuf == nullptr)
        return 0;
    CFlatReader reader(pBuf, nSize);
    const CString strBaseDir = reader.GetString(reader.Get32());
    CString strDbsName;
    CDWordArray aLocal;
    CDWordArray aRemote;
    if (!strBaseDir.IsEmpty()) {
        strDbsName = reader.GetString(reader.Get32());
        if (!ReadDateList(reader, aLocal) || !ReadDateList(reader, aRemote))
            return 0;
    }
    if (reader.IsDamaged())
        return 0;
    m_strBaseDir = strBaseDir;
    m_strVolume.Empty();
    m_strDbsName = strDbsName;
    m_aLocalDir.Copy(aLocal);
    m_aRemoteDir.Copy(aRemote);
    return reader.GetPosition();
}
