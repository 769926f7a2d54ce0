// One disk of the recording store: a base directory on one volume, the three trees of day
// directories below it ("Local", "Remote", "Picture"), the disk's space figures and its
// recycling and alarm settings. Owned by a CZnDatabase, or by the host for a snapshot. No
// locks and no threads: the owner calls it from one thread at a time.
//
// Volumes. A disk is known by its volume: the mount point of the file system that holds
// the base directory, or a quota volume declared above it (platform/Disks.h), written with
// a trailing '/'. GetHDD gives it, the display name carries it ("ZnDatabase(/srv/disk2/)"),
// and operator== compares it. Only fixed and network volumes take recordings. Paths are
// kept absolute and as written: nothing is lower-cased, the trees have one spelling.
//
// Days. A day directory is "d" and the local date "%Y%m%d" ("d20020301"); a name that is
// no calendar date ("d20021399") is no day. Its date value is the time of the first moment
// of that local day, local midnight, as seconds since 1970 in 32 bits. Names are matched
// as written: "D20020301" is no day, since the store makes and deletes only "d" names. A day of 23 or 25
// hours under daylight saving is one directory and one date value like any other; the day
// after a date is found by the calendar (GetNextDate), never by adding 86 400 seconds, so
// that a walk over days neither visits one twice nor skips one. Where a zone skips
// midnight itself, the date value is the first moment that exists on that day.
//
// Search. A search reads the day directories as they stand on the disk, not the lists,
// and every regular file in them whose head is a recording's. Times compare as unsigned
// 32-bit seconds, as the day values do, so that recordings after 2038 sort and match.
//
// Directory buffer. Its reader trusts nothing in a buffer: a length that runs past it, or
// a list that isn't strictly ascending, refuses the whole buffer and leaves the object as
// it was. A listing read from a buffer may name a disk of another machine, so it is bound
// to no volume here (GetHDD gives "").
#pragma once

#include "platform/CArchive.h"
#include "platform/CArray.h"
#include "platform/CObject.h"
#include "platform/CString.h"
#include "platform/CTime.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "storage/StorageRecords.h"

class CFileSearchInfo;

// What stands at a base directory, by CHddObj::CheckBaseDir. Create accepts the first two.
enum tag_BASEDIRCHECK : int {
    BASEDIR_EXISTS = 0,     // a directory on a fixed or network volume
    BASEDIR_TO_MAKE,        // missing, and its parent is a directory there
    BASEDIR_EMPTY,          // no path was given
    BASEDIR_NO_VOLUME,      // no volume can be found for the path
    BASEDIR_RAM_VOLUME,     // tmpfs or ramfs: recordings would not outlive the machine
    BASEDIR_READONLY,       // a read-only or optical file system
    BASEDIR_NOT_A_DISK,     // a kernel file system that holds no data
    BASEDIR_NOT_DIRECTORY,  // something other than a directory stands at the path
    BASEDIR_NO_PARENT,      // missing, and its parent is no directory (only the last level is made)
};

class ZNDVR_API CHddObj : public CObject {
    DECLARE_SERIAL(CHddObj)

public:
    // nType of GetDirNum, GetDirDate and FindDate: 0 the "Local" tree, any other the "Remote".
    static constexpr int DIR_LOCAL = 0;
    static constexpr int DIR_REMOTE = 1;
    // Free space below the alarm space counts as low; Create sets it this far above the
    // reserved space.
    static constexpr DWORD ALARM_MARGIN_MB = 50;
    static constexpr DWORD NO_DATE = 0xFFFFFFFF;

    CHddObj();
    ~CHddObj() override;
    // A snapshot: copies the base directory, its volume, the display name and the three
    // lists, and nothing else.
    CHddObj& operator=(const CHddObj& other);

    // Binds the object to the disk of pParam->strBaseDir, making that directory if it is
    // missing (its parent must exist); a volume root is taken as it stands. 1 done, 0
    // failed. The settings of pParam are taken even when a later step fails.
    int Create(tag_HDDPARAM* pParam, DWORD dwRevision);
    // Create again, with the kept revision, on the same volume only; 0 for another volume.
    int ChangeBaseDir(tag_HDDPARAM* pParam);
    // What Create would find at strBaseDir, without making anything.
    static tag_BASEDIRCHECK CheckBaseDir(CString strBaseDir);

    // Space of the volume of strPath in MB (2 to the power 20 bytes): total, total less the
    // free space available to this process, and that free space. 1 done, 0 failed.
    static int GetHDDSpace(CString strPath, DWORD& dwTotal, DWORD& dwUsed, DWORD& dwFree);
    int GetHDDSpace(DWORD& dwTotal, DWORD& dwUsed, DWORD& dwFree) const;

    // Today's directory of a tree, made if missing, without a trailing '/'; "" on failure.
    CString GetVideoDir();
    CString GetRemoteVideoDir();
    CString GetPictureDir();

    // strPath lies on this disk's volume; false when either path is empty.
    int operator==(CString strPath) const;
    // The volume with its trailing '/', or "" before Create.
    CString GetHDD() const;
    CString GetBaseDir() const;
    CString GetDbsName() const;
    CString GetDbsName1() const;
    // Replaces the display name only.
    void SetDbsName(CString strName);

    // The last path component is a day directory name, by its form alone.
    static int IsVideoDir(CString strDir);
    // Parses such a name that is a calendar date into tDate; else 0 and tDate untouched.
    static int GetVideoDirDate(CTime& tDate, CString strDir);
    // The date value of the local day that holds tTime; 0 outside the 32-bit range.
    static DWORD GetDateOf(CTime tTime);
    // The date value of the local day after dwDate; 0 outside the 32-bit range.
    static DWORD GetNextDate(DWORD dwDate);

    // dwDate is listed: nType 0 looks in Local; any other looks in Remote, and when the
    // Remote list ends below dwDate, in Local too. Picture is not consulted.
    int FindDate(DWORD dwDate, int nType) const;
    int GetDirNum(int nType) const;
    // Entry nIndex of a list, NO_DATE outside it.
    DWORD GetDirDate(int nIndex, int nType) const;
    int GetPictureDirNum() const;
    DWORD GetPictureDirDate(int nIndex) const;
    // Reads the three lists again from the disk: Local, Remote, Picture.
    void Refresh();

    // Settings only: recycle flag, base directory, display name, reserved space, alarm flag
    // and sound, in this order. For hosts that archive disk objects; the database file has
    // a form of its own.
    void Serialize(CArchive& ar) override;

    int IsRecycle() const;
    void EnableRecycle();
    void DisableRecycle();
    DWORD GetReservedSpace() const;
    DWORD GetAlarmSpace() const;
    int IsAlarmWhenSpaceNotEnough() const;
    void EnableAlarmWhenSpaceNotEnough(int bEnable);
    CString GetAlarmSound() const;
    void SetAlarmSound(CString strFile);

    // The oldest listed date above dwAfter over all three trees; 1 found, 0 none (dwDate 0).
    int FindOldestDir(DWORD& dwDate, DWORD dwAfter) const;
    // Removes dwDate from the lists and its directories from the three trees; dwDeleted
    // sums the bytes of the files removed, in 32 bits. 1 when some bytes were freed. A
    // directory that can't be removed completely stays on the disk, unlisted until the
    // next Refresh.
    int DeleteDate(DWORD dwDate, DWORD& dwDeleted);
    // Removes strDir with everything in it, depth first; stops at the first failure. A
    // symbolic link is removed as a link and never followed, so that nothing outside the
    // tree is touched. 1 when strDir is gone.
    int DeleteDir(CString strDir, DWORD& dwDeleted);

    // Appends to pInfo the recordings of this disk that match its request: days ascending,
    // in a day by file name. Nothing for a null pointer.
    void SearchFile(CFileSearchInfo* pInfo);

    // The flat listing: base directory, display name, and the Local and Remote lists.
    DWORD GetDirSize() const;
    // Bytes written; 0 and nothing written when pBuf is null or nSize below GetDirSize().
    DWORD WriteDirToBuf(BYTE* pBuf, DWORD nSize) const;
    // Takes base directory, display name and the Local and Remote lists from the buffer;
    // the Picture list stays. An empty base directory empties them all. Bytes read; 0 and
    // nothing changed for a null or damaged buffer.
    DWORD ReadDirFromBuf(const BYTE* pBuf, DWORD nSize);

protected:
    int m_bRecycle;
    CString m_strBaseDir;    // absolute, with a trailing '/' once Create has succeeded
    CString m_strDbsName;    // plain name + "(" + volume + ")"
    CString m_strDbsName1;   // plain name, the one the database file stores
    DWORD m_dwReservedSpace;
    DWORD m_dwAlarmSpace;
    int m_bAlarmWhenSpaceNotEnough;
    CString m_strAlarmSound;
    CDWordArray m_aLocalDir;
    CDWordArray m_aRemoteDir;
    CDWordArray m_aPictureDir;
    DWORD m_dwRevision;     // stream revision of this run, for the readers of recordings

    void LoadLocalDir();
    void LoadRemoteDir();
    void LoadPictureDir();
    // Appends the days found in strDir. Of the entries that the enumeration delivers, the
    // last is listed only if it holds a file.
    void GetDirStruct(CDWordArray* pList, CString strDir);
    // strDir holds at least one entry that is not a directory.
    int IsAnyFile(CString strDir);
    // Appends the recordings of one day directory that match; strDir ends in '/'. Entries
    // that are directories are passed over.
    void SearchDirectory(CFileSearchInfo* pInfo, CString strDir);

private:
    static int CompareFunc(const void* pLeft, const void* pRight);
    void LoadDir(CDWordArray& aList, LPCSTR pszTree);
    CString GetTodayDir(CDWordArray& aList, LPCSTR pszTree);
    DWORD DeleteDateFrom(CDWordArray& aList, LPCSTR pszTree, DWORD dwDate);
    void SearchDays(CFileSearchInfo* pInfo, const CString& strTree);

    CString m_strVolume;
};
