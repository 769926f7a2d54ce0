// The recording store of the zndvr host: a CZnDatabase kept in a store directory, and the
// camera files in it. Each camera records into today's directory of the work disk, one
// file per camera and run named after the camera and its start time; a block change (a key
// frame) checks the work disk, lets the database move recording or recycle old days when
// space runs low, and starts a new file after midnight, on a new work disk, or before a
// file grows too big. Nothing closed is ever touched again. Lives on the host's window
// thread; one object per run.
#pragma once

#include "platform/WinTypes.h"
#include "storage/CZnDatabase.h"
#include "vocabulary/FrameRecords.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class CZnFile;

// The store directory's own files: the database and the quota volumes a user declared.
inline constexpr char STORE_DATABASE_FILE[] = "zndvr.dbs";
inline constexpr char STORE_QUOTA_FILE[] = "quota-volumes";

// Why a base directory can't take recordings, as a sentence part ("is not a directory").
std::string DescribeBaseDirProblem(tag_BASEDIRCHECK nCheck);

// Declares the quota volumes listed in the store (lines "MB directory"); a missing list is
// none. False, with the reason, for a list that can't be read or used.
bool LoadQuotaVolumes(const std::string& strStoreDir, std::string& strError);
// Declares a directory (made if missing, one level) a volume of dwMegabytes MB and adds
// it to the store's list, or with 0 takes it off the list.
bool SaveQuotaVolume(const std::string& strStoreDir, const std::string& strDirectory, DWORD dwMegabytes,
                     std::string& strError);

// Opens the database of a store directory, making the directory (one level) when bMake
// says so. False with the path and reason in strError.
bool OpenStoreDatabase(CZnDatabase& db, const std::string& strStoreDir, bool bMake, const std::string& strHostName,
                       DWORD dwRevision, std::string& strError);

struct tag_STOREOPTIONS {
    std::string strStoreDir = "store";
    std::string strHostName = "zndvr";
    DWORD dwRevision = 0;
    // A file is closed at the first block change at which its blocks on disk reach this
    // size, far below the 4 GiB that the file's 32-bit offsets allow.
    std::uint64_t nMaxFileBytes = std::uint64_t{1} << 30;
    // While no disk has room, the store looks again at a block change this often.
    DWORD dwRetryMs = 5000;
};

// One file that this run recorded.
struct tag_STOREDFILE {
    std::string strPath;
    int nBoard = 0;
    int nCamera = 0;
    DWORD dwFrames = 0;
};

class CRecordStore {
public:
    CRecordStore();
    ~CRecordStore();
    CRecordStore(const CRecordStore&) = delete;
    CRecordStore& operator=(const CRecordStore&) = delete;

    // Lines for the user: recycled days, changes of the work disk, waiting for room.
    void SetReporter(std::function<void(const std::string&)> fnReport);
    bool Open(const tag_STOREOPTIONS& options, std::string& strError);
    // Writes a frame of the camera that info describes; a file begins at a key frame, so
    // frames before the first one, and frames while no disk has room, are not stored.
    // True when the frame is stored.
    bool WriteFrame(const tag_CAMERAINFO& info, tag_ZNFRAMEDATA& frame);
    // Closes every file, writing the blocks that are collecting, and the database.
    void Close();

    const std::vector<tag_STOREDFILE>& GetFiles() const;
    const std::vector<DWORD>& GetRecycledDates() const;
    // Frames that came while no file could take them.
    DWORD GetUnstoredFrames() const;
    // Whether a file refused a frame or its last block although the store had found room
    // for it: a failing disk, which recycling can't help.
    bool HasWriteFailed() const;
    bool IsWaitingForRoom() const;
    CZnDatabase& GetDatabase();

private:
    struct tag_CAMERAFILE;

    tag_CAMERAFILE& FindCamera(const tag_CAMERAINFO& info);
    void ChangeBlock(tag_CAMERAFILE& camera, const tag_CAMERAINFO& info);
    void CheckWorkDisk();
    void WaitForRoom();
    std::string GetWorkDiskName();
    void OpenCameraFile(tag_CAMERAFILE& camera, const tag_CAMERAINFO& info, const std::string& strDir);
    bool IsFileFull(const tag_CAMERAFILE& camera) const;
    void CloseCameraFile(tag_CAMERAFILE& camera);
    void Report(const std::string& strLine) const;
    static void OnDateDeleted(DWORD dwDate, LPVOID pContext);

    tag_STOREOPTIONS m_options;
    CZnDatabase m_db;
    std::vector<std::unique_ptr<tag_CAMERAFILE>> m_cameras;
    std::vector<tag_STOREDFILE> m_files;
    std::vector<DWORD> m_aRecycled;
    std::function<void(const std::string&)> m_fnReport;
    std::string m_strWorkDisk;
    bool m_bOpen = false;
    bool m_bWaitingForRoom = false;
    bool m_bWriteFailed = false;
    DWORD m_dwLastTry = 0;
    DWORD m_dwUnstored = 0;
};
