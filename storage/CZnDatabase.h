// The host's handle on the recording store: an ordered list of disks (CHddObj), the small
// database file that remembers them, and the work disk on which recording goes on now.
// Owned by the host; no thread, no timer, no lock: every call runs on the host's thread,
// and days are deleted only inside ChangeWorkDir.
//
// Decisions of this store:
// - The database file is written whole beside its place and renamed over it, so that a
//   crash during a save leaves the old file or the new one, never a part.
// - Open reads a file that ends early, or holds bytes behind its last record, as damaged:
//   it reports that through the process's exception reporter (CException.h), sets the
//   file aside as <file>.damaged so that the next save does not destroy the only copy of
//   the settings, and starts with the default disk.
// - A disk whose base directory no longer exists at Open is dropped like a disk whose
//   drive is gone: an unmounted disk must not turn its empty mount point into a recording
//   disk on another file system. Every disk left out is reported, so that a user learns
//   of it before the next save forgets it.
// - There is no cache of search results: every search reads the disk, so none is stale.
//   A search runs on the caller's thread and walks the calendar of its span (SearchFile).
// - Recycled dates go to the window given to Open (WM_ZN_DATEDELETED, Messages.h) and to
//   the callback of SetDateDeletedCallback, for hosts without a window; both are called
//   synchronously inside ChangeWorkDir and must not call back into the disk list.
#pragma once

#include "platform/CObList.h"
#include "platform/CObject.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "storage/CFileSearchInfo.h"
#include "storage/CHddObj.h"
#include "storage/StorageRecords.h"

#include <memory>
#include <vector>

// Told the date value of each recycled day; pContext is the host's.
using DATEDELETEDPROC = void (*)(DWORD dwDate, LPVOID pContext);

class ZNDVR_API CZnDatabase : public CObject {
    DECLARE_SERIAL(CZnDatabase)

public:
    // Once-delete space: kept for the host, never below this; no deletion consults it.
    static constexpr DWORD MIN_ONCE_DEL_SPACE = 50;
    static constexpr DWORD DEFAULT_ONCE_DEL_SPACE = 100;

    CZnDatabase();
    ~CZnDatabase() override;

    // Nothing: the database file has a form of its own.
    void Serialize(CArchive& ar) override;

    // Loads the disks of strDbsFile, or makes the default disk at strDefaultDir/database
    // (strDefaultDir must exist) when the file names none that can be used. The first disk
    // is the work disk. 1 opened, 0 failed (no disk). For a store that is not open.
    int Open(CString strDefaultDir, DWORD dwRevision, HWND hWnd, CString strDbsFile, CString strHostName);
    // Saves the file, destroys the disks and forgets the work disk; with no disks it does
    // nothing, not even save. The destructor calls it.
    void Close();
    // Writes the file and keeps everything open: 1 saved, 0 not (the old file stays); a
    // store without disks saves nothing, as Close does.
    int SaveDatabase();
    void SetDateDeletedCallback(DATEDELETEDPROC pfnCallback, LPVOID pContext);

    // A disk on a volume that holds none of the store's yet; it is the work disk if it is
    // the only one. 1 added, 0 refused.
    int AddHDD(tag_HDDPARAM* pParam);
    // The disk of strPath's volume leaves; the work disk is not touched, so removing it
    // leaves the store without one until ChangeWorkDir. 0 if there is none.
    int RemoveHDD(CString strPath);
    // The disk at nIndex leaves; if it was the work disk, the first remaining one takes
    // over. 0 for an index outside the list, and when the last disk, the work disk, went.
    int RemoveHDD(int nIndex);
    // The disk on the volume of pParam->strBaseDir takes all of pParam (nIndex plays no
    // part); the result of CHddObj::ChangeBaseDir, 0 if no disk is on that volume.
    int ChangeBaseDir(int nIndex, tag_HDDPARAM* pParam);
    int GetHddNum() const;
    CString GetBaseDir(int nIndex) const;
    CString GetDbsName(int nIndex) const;
    int GetHddSpace(int nIndex, DWORD& dwTotal, DWORD& dwUsed, DWORD& dwFree) const;
    // Fills pParam from the disk at nIndex, with the display name in strDbsName.
    int GetHddParam(int nIndex, tag_HDDPARAM* pParam) const;
    // The list position of the disk with this display name, or -1.
    int FindHddIndex(CString strDbsName) const;
    // The disk with this display name, or null; it stays the store's.
    CHddObj* GetHDDInfo(CString strDbsName);
    // Appends to pList a snapshot of every disk, its lists read afresh from the disk; the
    // caller owns and deletes them. 1, or 0 if memory ran out.
    int GetHDDInfo(CObList* pList);
    // 1 stored, 0 and no change below MIN_ONCE_DEL_SPACE.
    int SetOnceDelSpace(DWORD dwSpace);
    DWORD GetOnceDelSpace() const;
    CString GetHostName() const;

    // Runs pInfo's request over every disk in list order and appends what is found behind
    // the results it holds. 0 for a null pointer, else 1: obstacles only leave files out.
    virtual int SearchFile(CFileSearchInfo* pInfo);

    // Display name and base directory of the work disk; DBS_ERROR_NOHDD leaves both alone.
    tag_ERROR_DBS GetWorkHDD(CString& strDbsName, CString& strBaseDir) const;
    // The free MB of the work disk against its reserved and alarm space.
    tag_ERROR_DBS CheckWorkHDD(DWORD& dwFree);
    // Free MB of the work disk's volume; 0 without a work disk or a measurement.
    DWORD GetWorkHddFreeSpace() const;
    // Makes the first disk in list order with free space above its alarm space the work
    // disk. Failing that, deletes the oldest days before today across the recycling disks,
    // oldest first, until one disk has more than its reserved space; that disk becomes the
    // work disk. DBS_ERROR_NOSPACE, and no work disk, when nothing more can be freed.
    tag_ERROR_DBS ChangeWorkDir();
    // Today's directory of a tree of the work disk, made if missing; "" without one.
    CString GetVideoDir();
    CString GetRemoteDir();
    CString GetPictureDir();

private:
    // One disk's part in a ChangeWorkDir call.
    struct tag_RECYCLESLOT {
        DWORD dwCandidate = 0;
        DWORD dwKnownFree = 0xFFFFFFFF;
        DWORD dwMark = 0;
    };

    CHddObj* FindDisk(const CString& strPath) const;
    CHddObj* FindWorkDisk() const;
    CHddObj* GetDiskAt(int nIndex) const;
    std::unique_ptr<CHddObj> MakeDisk(tag_HDDPARAM& param) const;
    void LoadDatabaseFile();
    void SetDamagedFileAside(LPCSTR pszReason);
    void ReportDroppedDisk(const CString& strBaseDir) const;
    BOOL MakeDefaultDisk();
    BOOL WriteDatabaseFile();
    BOOL FindDiskWithRoom(std::vector<tag_RECYCLESLOT>& aSlots);
    int SelectOldestDate(std::vector<tag_RECYCLESLOT>& aSlots, DWORD dwToday) const;
    void RecycleDate(CHddObj& disk, tag_RECYCLESLOT& slot);
    void NotifyDateDeleted(DWORD dwDate);

    HWND m_hWnd;
    DWORD m_dwOnceDelSpace;
    CString m_strWorkHDD;     // the volume of the work disk, "" when there is none
    CString m_strDefaultDir;
    CString m_strHostName;
    CString m_strDbsFile;
    std::vector<std::unique_ptr<CHddObj>> m_listHDD;
    DWORD m_dwRevision;
    DATEDELETEDPROC m_pfnDateDeleted;
    LPVOID m_pDateDeletedContext;
};
