#include "storage/CZnDatabase.h"

#include "platform/CArchive.h"
#include "platform/CException.h"
#include "platform/CFile.h"
#include "platform/CFileFind.h"
#include "platform/Disks.h"
#include "platform/WinMessages.h"
#include "storage/DatabaseFile.h"
#include "vocabulary/Messages.h"

#include <new>

IMPLEMENT_SERIAL(CZnDatabase, CObject, 0)

namespace {

constexpr char kDefaultDiskDir[] = "/database";
constexpr int kArchiveBufferSize = 4096;
constexpr char kNewFileSuffix[] = ".new";
constexpr char kDamagedFileSuffix[] = ".damaged";
constexpr int kMegabyteShift = 20;

// The record that the database file keeps of a disk: its plain name, not the display name.
tag_HDDPARAM MakeRecord(const CHddObj& disk)
{
    tag_HDDPARAM record;
    record.dwReservedSpace = disk.GetReservedSpace();
    record.bRecycle = disk.IsRecycle();
    record.strBaseDir = disk.GetBaseDir();
    record.strDbsName = disk.GetDbsName1();
    record.bAlarmWhenSpaceNotEnough = disk.IsAlarmWhenSpaceNotEnough();
    record.strAlarmSound = disk.GetAlarmSound();
    return record;
}

// Why the database file could not be read through.
LPCSTR DescribeReadFailure(const CException& failure)
{
    const auto* pArchiveFailure = dynamic_cast<const CArchiveException*>(&failure);
    if (pArchiveFailure == nullptr)
        return "can't be read";
    return pArchiveFailure->m_cause == CArchiveException::endOfFile ? "ends inside a record"
                                                                     : "holds bytes behind its last record";
}

} // namespace

CZnDatabase::CZnDatabase()
    : m_hWnd(nullptr),
      m_dwOnceDelSpace(DEFAULT_ONCE_DEL_SPACE),
      m_dwRevision(0),
      m_pfnDateDeleted(nullptr),
      m_pDateDeletedContext(nullptr)
{
}

CZnDatabase::~CZnDatabase()
{
    Close();
}

void CZnDatabase::Serialize(CArchive&)
{
}

int CZnDatabase::Open(CString strDefaultDir, DWORD dwRevision, HWND hWnd, CString strDbsFile, CString strHostName)
{
    m_dwRevision = dwRevision;
    m_hWnd = hWnd;
    m_strHostName = strHostName;
    m_strDefaultDir = strDefaultDir;
    m_strDbsFile = strDbsFile;
    LoadDatabaseFile();
    if (m_listHDD.empty() && !MakeDefaultDisk())
        return 0;
    m_strWorkHDD = m_listHDD.front()->GetHDD();
    return 1;
}

void CZnDatabase::LoadDatabaseFile()
{
    CFile file;
    if (m_strDbsFile.IsEmpty() || !file.Open(m_strDbsFile, CFile::modeRead))
        return;
    std::vector<tag_HDDPARAM> aRecords;
    try {
        CArchive ar(&file, CArchive::load, kArchiveBufferSize);
        ReadDatabaseRecords(ar, aRecords);
    } catch (CException* pException) {
        SetDamagedFileAside(DescribeReadFailure(*pException));
        pException->Delete();
        return;
    }
    for (tag_HDDPARAM& record : aRecords) {
        // Only a base directory that is there: see the header. One disk per volume.
        std::unique_ptr<CHddObj> pDisk;
        if (CHddObj::CheckBaseDir(record.strBaseDir) == BASEDIR_EXISTS && FindDisk(record.strBaseDir) == nullptr)
            pDisk = MakeDisk(record);
        if (pDisk != nullptr)
            m_listHDD.push_back(std::move(pDisk));
        else
            ReportDroppedDisk(record.strBaseDir);
    }
}

void CZnDatabase::ReportDroppedDisk(const CString& strBaseDir) const
{
    CString strWhat;
    strWhat.Format("%s: the disk at %s can't be used now and is left out; the next save forgets it",
                   static_cast<LPCSTR>(m_strDbsFile), static_cast<LPCSTR>(strBaseDir));
    ReportFailure(strWhat);
}

void CZnDatabase::SetDamagedFileAside(LPCSTR pszReason)
{
    const CString strAside = m_strDbsFile + kDamagedFileSuffix;
    CString strWhat;
    if (MoveFileExA(m_strDbsFile, strAside, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        strWhat.Format("%s: the database file %s; kept as %s, the store starts with its default disk",
                       static_cast<LPCSTR>(m_strDbsFile), pszReason, static_cast<LPCSTR>(strAside));
    else
        strWhat.Format("%s: the database file %s and can't be set aside; the store starts with its default disk",
                       static_cast<LPCSTR>(m_strDbsFile), pszReason);
    ReportFailure(strWhat);
}

BOOL CZnDatabase::MakeDefaultDisk()
{
    CFileFind finder;
    if (m_strDefaultDir.IsEmpty() || !finder.FindFile(m_strDefaultDir))
        return FALSE;
    finder.FindNextFile();
    if (!finder.IsDirectory())
        return FALSE;
    // The block's defaults are those of the default disk.
    tag_HDDPARAM param;
    param.strBaseDir = m_strDefaultDir + kDefaultDiskDir;
    std::unique_ptr<CHddObj> pDisk = MakeDisk(param);
    if (pDisk == nullptr)
        return FALSE;
    m_listHDD.push_back(std::move(pDisk));
    return TRUE;
}

std::unique_ptr<CHddObj> CZnDatabase::MakeDisk(tag_HDDPARAM& param) const
{
    std::unique_ptr<CHddObj> pDisk(new (std::nothrow) CHddObj);
    if (pDisk == nullptr || !pDisk->Create(&param, m_dwRevision))
        return nullptr;
    return pDisk;
}

void CZnDatabase::Close()
{
    if (m_listHDD.empty())
        return;
    WriteDatabaseFile();
    m_listHDD.clear();
    m_strWorkHDD.Empty();
}

int CZnDatabase::SaveDatabase()
{
    return WriteDatabaseFile();
}

BOOL CZnDatabase::WriteDatabaseFile()
{
    // A store without disks is closed or was never opened: its file keeps what it holds.
    if (m_strDbsFile.IsEmpty() || m_listHDD.empty())
        return FALSE;
    std::vector<tag_HDDPARAM> aRecords;
    for (const std::unique_ptr<CHddObj>& pDisk : m_listHDD)
        aRecords.push_back(MakeRecord(*pDisk));
    const CString strNew = m_strDbsFile + kNewFileSuffix;
    CFile file;
    if (!file.Open(strNew, CFile::modeCreate | CFile::modeWrite))
        return FALSE;
    try {
        CArchive ar(&file, CArchive::store, kArchiveBufferSize);
        WriteDatabaseRecords(ar, aRecords);
        ar.Close();
        file.Flush();
        file.Close();
    } catch (CException* pException) {
        pException->Delete();
        file.Abort();
        DeleteFileA(strNew);
        return FALSE;
    }
    if (!MoveFileExA(strNew, m_strDbsFile, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        DeleteFileA(strNew);
        return FALSE;
    }
    return TRUE;
}

void CZnDatabase::SetDateDeletedCallback(DATEDELETEDPROC pfnCallback, LPVOID pContext)
{
    m_pfnDateDeleted = pfnCallback;
    m_pDateDeletedContext = pContext;
}

int CZnDatabase::AddHDD(tag_HDDPARAM* pParam)
{
    if (pParam == nullptr || FindDisk(pParam->strBaseDir) != nullptr)
        return 0;
    std::unique_ptr<CHddObj> pDisk = MakeDisk(*pParam);
    if (pDisk == nullptr)
        return 0;
    m_listHDD.push_back(std::move(pDisk));
    if (m_listHDD.size() == 1)
        m_strWorkHDD = m_listHDD.front()->GetHDD();
    return 1;
}

int CZnDatabase::RemoveHDD(CString strPath)
{
    for (auto it = m_listHDD.begin(); it != m_listHDD.end(); ++it) {
        if (**it == strPath) {
            m_listHDD.erase(it);
            return 1;
        }
    }
    return 0;
}

int CZnDatabase::RemoveHDD(int nIndex)
{
    if (GetDiskAt(nIndex) == nullptr)
        return 0;
    const bool bWasWorkDisk = *m_listHDD[static_cast<std::size_t>(nIndex)] == m_strWorkHDD;
    m_listHDD.erase(m_listHDD.begin() + nIndex);
    if (!bWasWorkDisk)
        return 1;
    if (m_listHDD.empty())
        return 0;
    m_strWorkHDD = m_listHDD.front()->GetHDD();
    return 1;
}

int CZnDatabase::ChangeBaseDir(int, tag_HDDPARAM* pParam)
{
    if (pParam == nullptr || pParam->strBaseDir.IsEmpty())
        return 0;
    CHddObj* pDisk = FindDisk(pParam->strBaseDir);
    return pDisk != nullptr ? pDisk->ChangeBaseDir(pParam) : 0;
}

int CZnDatabase::GetHddNum() const
{
    return static_cast<int>(m_listHDD.size());
}

CString CZnDatabase::GetBaseDir(int nIndex) const
{
    const CHddObj* pDisk = GetDiskAt(nIndex);
    return pDisk != nullptr ? pDisk->GetBaseDir() : CString();
}

CString CZnDatabase::GetDbsName(int nIndex) const
{
    const CHddObj* pDisk = GetDiskAt(nIndex);
    return pDisk != nullptr ? pDisk->GetDbsName() : CString();
}

int CZnDatabase::GetHddSpace(int nIndex, DWORD& dwTotal, DWORD& dwUsed, DWORD& dwFree) const
{
    const CHddObj* pDisk = GetDiskAt(nIndex);
    return pDisk != nullptr ? pDisk->GetHDDSpace(dwTotal, dwUsed, dwFree) : 0;
}

int CZnDatabase::GetHddParam(int nIndex, tag_HDDPARAM* pParam) const
{
    const CHddObj* pDisk = GetDiskAt(nIndex);
    if (pDisk == nullptr || pParam == nullptr)
        return 0;
    *pParam = MakeRecord(*pDisk);
    pParam->strDbsName = pDisk->GetDbsName();
    return 1;
}

int CZnDatabase::FindHddIndex(CString strDbsName) const
{
    for (std::size_t i = 0; i < m_listHDD.size(); ++i) {
        if (m_listHDD[i]->GetDbsName() == strDbsName)
            return static_cast<int>(i);
    }
    return -1;
}

CHddObj* CZnDatabase::GetHDDInfo(CString strDbsName)
{
    const int nIndex = FindHddIndex(strDbsName);
    return nIndex >= 0 ? m_listHDD[static_cast<std::size_t>(nIndex)].get() : nullptr;
}

int CZnDatabase::GetHDDInfo(CObList* pList)
{
    if (pList == nullptr)
        return 0;
    for (const std::unique_ptr<CHddObj>& pDisk : m_listHDD) {
        pDisk->Refresh();
        std::unique_ptr<CHddObj> pSnapshot(new (std::nothrow) CHddObj);
        if (pSnapshot == nullptr)
            return 0;
        *pSnapshot = *pDisk;
        pList->AddTail(pSnapshot.release());
    }
    return 1;
}

int CZnDatabase::SearchFile(CFileSearchInfo* pInfo)
{
    if (pInfo == nullptr)
        return 0;
    for (const std::unique_ptr<CHddObj>& pDisk : m_listHDD)
        pDisk->SearchFile(pInfo);
    return 1;
}

int CZnDatabase::SetOnceDelSpace(DWORD dwSpace)
{
    if (dwSpace < MIN_ONCE_DEL_SPACE)
        return 0;
    m_dwOnceDelSpace = dwSpace;
    return 1;
}

DWORD CZnDatabase::GetOnceDelSpace() const
{
    return m_dwOnceDelSpace;
}

CString CZnDatabase::GetHostName() const
{
    return m_strHostName;
}

tag_ERROR_DBS CZnDatabase::GetWorkHDD(CString& strDbsName, CString& strBaseDir) const
{
    const CHddObj* pDisk = FindWorkDisk();
    if (pDisk == nullptr)
        return DBS_ERROR_NOHDD;
    strDbsName = pDisk->GetDbsName();
    strBaseDir = pDisk->GetBaseDir();
    return DBS_OK;
}

tag_ERROR_DBS CZnDatabase::CheckWorkHDD(DWORD& dwFree)
{
    const CHddObj* pDisk = FindWorkDisk();
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    if (pDisk == nullptr || !pDisk->GetHDDSpace(dwTotal, dwUsed, dwFree))
        return DBS_ERROR_NOHDD;
    if (dwFree < pDisk->GetReservedSpace())
        return DBS_ERROR_NOSPACE;
    if (dwFree < pDisk->GetAlarmSpace())
        return DBS_ERROR_LOWSPACE;
    return DBS_OK;
}

DWORD CZnDatabase::GetWorkHddFreeSpace() const
{
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    DWORD dwFree = 0;
    return CHddObj::GetHDDSpace(m_strWorkHDD, dwTotal, dwUsed, dwFree) ? dwFree : 0;
}

tag_ERROR_DBS CZnDatabase::ChangeWorkDir()
{
    if (m_listHDD.empty())
        return DBS_ERROR_NOHDD;
    std::vector<tag_RECYCLESLOT> aSlots;
    try {
        aSlots.resize(m_listHDD.size());
    } catch (const std::bad_alloc&) {
        return DBS_ERROR_NOHDD;
    }
    if (FindDiskWithRoom(aSlots))
        return DBS_OK;
    const DWORD dwToday = CHddObj::GetDateOf(CTime::GetCurrentTime());
    for (;;) {
        const int nBest = SelectOldestDate(aSlots, dwToday);
        if (nBest < 0) {
            m_strWorkHDD.Empty();
            return DBS_ERROR_NOSPACE;
        }
        CHddObj& disk = *m_listHDD[static_cast<std::size_t>(nBest)];
        tag_RECYCLESLOT& slot = aSlots[static_cast<std::size_t>(nBest)];
        RecycleDate(disk, slot);
        // Enough is the reserved space here, not the alarm space of the room pass.
        if (slot.dwKnownFree > disk.GetReservedSpace()) {
            m_strWorkHDD = disk.GetHDD();
            return DBS_OK;
        }
    }
}

// The room pass: the first disk in list order above its alarm space wins, the current
// work disk included, so that a disk freed earlier in the list takes recording back.
BOOL CZnDatabase::FindDiskWithRoom(std::vector<tag_RECYCLESLOT>& aSlots)
{
    for (std::size_t i = 0; i < m_listHDD.size(); ++i) {
        DWORD dwTotal = 0;
        DWORD dwUsed = 0;
        DWORD dwFree = 0;
        if (!m_listHDD[i]->GetHDDSpace(dwTotal, dwUsed, dwFree))
            continue;
        if (dwFree > m_listHDD[i]->GetAlarmSpace()) {
            m_strWorkHDD = m_listHDD[i]->GetHDD();
            return TRUE;
        }
        aSlots[i].dwKnownFree = dwFree;
    }
    return FALSE;
}

// The oldest date before today over all recycling disks, or -1. A disk's mark moves as
// soon as it leads, so a date that led and lost is passed over for the rest of the call.
int CZnDatabase::SelectOldestDate(std::vector<tag_RECYCLESLOT>& aSlots, DWORD dwToday) const
{
    DWORD dwBest = dwToday;
    int nBest = -1;
    for (std::size_t i = 0; i < m_listHDD.size(); ++i) {
        tag_RECYCLESLOT& slot = aSlots[i];
        if (!m_listHDD[i]->IsRecycle())
            continue;
        if (m_listHDD[i]->FindOldestDir(slot.dwCandidate, slot.dwMark) && slot.dwCandidate < dwBest) {
            dwBest = slot.dwCandidate;
            nBest = static_cast<int>(i);
            slot.dwMark = slot.dwCandidate;
        }
    }
    return nBest;
}

void CZnDatabase::RecycleDate(CHddObj& disk, tag_RECYCLESLOT& slot)
{
    DWORD dwDeleted = 0;
    if (!disk.DeleteDate(slot.dwCandidate, dwDeleted))
        return;
    slot.dwKnownFree += dwDeleted >> kMegabyteShift;
    NotifyDateDeleted(slot.dwCandidate);
}

void CZnDatabase::NotifyDateDeleted(DWORD dwDate)
{
    if (IsWindow(m_hWnd))
        SendMessage(m_hWnd, WM_ZN_DATEDELETED, 0, static_cast<LPARAM>(dwDate));
    if (m_pfnDateDeleted != nullptr)
        m_pfnDateDeleted(dwDate, m_pDateDeletedContext);
}

CString CZnDatabase::GetVideoDir()
{
    CHddObj* pDisk = FindWorkDisk();
    return pDisk != nullptr ? pDisk->GetVideoDir() : CString();
}

CString CZnDatabase::GetRemoteDir()
{
    CHddObj* pDisk = FindWorkDisk();
    return pDisk != nullptr ? pDisk->GetRemoteVideoDir() : CString();
}

CString CZnDatabase::GetPictureDir()
{
    CHddObj* pDisk = FindWorkDisk();
    return pDisk != nullptr ? pDisk->GetPictureDir() : CString();
}

CHddObj* CZnDatabase::FindDisk(const CString& strPath) const
{
    for (const std::unique_ptr<CHddObj>& pDisk : m_listHDD) {
        if (*pDisk == strPath)
            return pDisk.get();
    }
    return nullptr;
}

CHddObj* CZnDatabase::FindWorkDisk() const
{
    return m_strWorkHDD.IsEmpty() ? nullptr : FindDisk(m_strWorkHDD);
}

CHddObj* CZnDatabase::GetDiskAt(int nIndex) const
{
    if (nIndex < 0 || nIndex >= GetHddNum())
        return nullptr;
    return m_listHDD[static_cast<std::size_t>(nIndex)].get();
}
