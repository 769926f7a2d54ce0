#include "RecordStore.h"

#include "platform/CTime.h"
#include "platform/Disks.h"
#include "platform/TickClock.h"
#include "recording/CZnFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace {

constexpr char kDefaultDiskDir[] = "/database";

std::string Join(const std::string& strDir, const char* pszName)
{
    return strDir + "/" + pszName;
}

// The quota list: directory to MB, as the store keeps it.
bool ReadQuotaList(const std::string& strStoreDir, std::map<std::string, DWORD>& mapVolumes, std::string& strError)
{
    const std::string strList = Join(strStoreDir, STORE_QUOTA_FILE);
    if (!std::filesystem::exists(strList))
        return true;
    std::ifstream list(strList);
    if (!list) {
        strError = strList + ": can't be read";
        return false;
    }
    std::string strLine;
    for (int nLine = 1; std::getline(list, strLine); ++nLine) {
        std::istringstream fields(strLine);
        unsigned long nMegabytes = 0;
        std::string strDirectory;
        fields >> nMegabytes >> std::ws;
        std::getline(fields, strDirectory);
        if (nMegabytes == 0 || nMegabytes > 0xFFFFFFFFul || strDirectory.empty()) {
            strError = strList + ":" + std::to_string(nLine) + ": not a line \"MB directory\"";
            return false;
        }
        mapVolumes[strDirectory] = static_cast<DWORD>(nMegabytes);
    }
    return true;
}

std::string FormatDate(DWORD dwDate)
{
    return static_cast<LPCSTR>(CTime(static_cast<time_t>(dwDate)).Format("%Y-%m-%d"));
}

} // namespace

std::string DescribeBaseDirProblem(tag_BASEDIRCHECK nCheck)
{
    switch (nCheck) {
    case BASEDIR_EXISTS:
    case BASEDIR_TO_MAKE:
        return "can't be made";
    case BASEDIR_EMPTY:
        return "is empty";
    case BASEDIR_NO_VOLUME:
        return "lies on no volume that can be found";
    case BASEDIR_RAM_VOLUME:
        return "lies on a RAM file system, whose recordings would not outlive the machine";
    case BASEDIR_READONLY:
        return "lies on a read-only file system";
    case BASEDIR_NOT_A_DISK:
        return "lies on a kernel file system that holds no data";
    case BASEDIR_NOT_DIRECTORY:
        return "is not a directory";
    case BASEDIR_NO_PARENT:
        return "has no parent directory (only the last level is made)";
    }
    return "can't be used";
}

bool LoadQuotaVolumes(const std::string& strStoreDir, std::string& strError)
{
    std::map<std::string, DWORD> mapVolumes;
    if (!ReadQuotaList(strStoreDir, mapVolumes, strError))
        return false;
    // A directory that is gone is a disk that is gone: the database drops it.
    for (const auto& [strDirectory, dwMegabytes] : mapVolumes)
        DeclareQuotaVolume(strDirectory.c_str(), dwMegabytes);
    return true;
}

bool SaveQuotaVolume(const std::string& strStoreDir, const std::string& strDirectory, DWORD dwMegabytes,
                     std::string& strError)
{
    std::map<std::string, DWORD> mapVolumes;
    if (!ReadQuotaList(strStoreDir, mapVolumes, strError))
        return false;
    const std::string strFull = static_cast<LPCSTR>(GetFullPathName(strDirectory.c_str()));
    if (dwMegabytes == 0) {
        mapVolumes.erase(strFull);
        RemoveQuotaVolume(strFull.c_str());
    } else {
        const tag_BASEDIRCHECK nCheck = CHddObj::CheckBaseDir(strFull.c_str());
        if (nCheck == BASEDIR_TO_MAKE && !CreateDirectoryA(strFull.c_str(), nullptr)) {
            strError = strFull + ": can't be made: " + std::strerror(errno);
            return false;
        }
        if ((nCheck != BASEDIR_EXISTS && nCheck != BASEDIR_TO_MAKE) || !DeclareQuotaVolume(strFull.c_str(), dwMegabytes)) {
            strError = strFull + ": " + DescribeBaseDirProblem(nCheck);
            return false;
        }
        mapVolumes[strFull] = dwMegabytes;
    }
    const std::string strList = Join(strStoreDir, STORE_QUOTA_FILE);
    const std::string strNew = strList + ".new";
    {
        std::ofstream list(strNew, std::ios::trunc);
        for (const auto& [strEntry, dwSize] : mapVolumes)
            list << dwSize << ' ' << strEntry << '\n';
        if (!list.flush()) {
            strError = strNew + ": can't be written";
            return false;
        }
    }
    if (!MoveFileExA(strNew.c_str(), strList.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        strError = strList + ": can't be replaced: " + std::strerror(errno);
        return false;
    }
    return true;
}

bool OpenStoreDatabase(CZnDatabase& db, const std::string& strStoreDir, bool bMake, const std::string& strHostName,
                       DWORD dwRevision, std::string& strError)
{
    const tag_BASEDIRCHECK nCheck = CHddObj::CheckBaseDir(strStoreDir.c_str());
    if (nCheck == BASEDIR_TO_MAKE && !bMake) {
        strError = strStoreDir + ": no store here (record into it or add a disk first)";
        return false;
    }
    if (nCheck == BASEDIR_TO_MAKE && !CreateDirectoryA(strStoreDir.c_str(), nullptr)) {
        strError = strStoreDir + ": can't be made: " + std::strerror(errno);
        return false;
    }
    if (nCheck == BASEDIR_EMPTY || nCheck == BASEDIR_NOT_DIRECTORY || nCheck == BASEDIR_NO_PARENT) {
        strError = strStoreDir + ": " + DescribeBaseDirProblem(nCheck);
        return false;
    }
    if (!LoadQuotaVolumes(strStoreDir, strError))
        return false;
    if (!db.Open(strStoreDir.c_str(), dwRevision, nullptr, Join(strStoreDir, STORE_DATABASE_FILE).c_str(),
                 strHostName.c_str())) {
        // Only the default disk can have failed: the store names no usable disk.
        const std::string strDefault = strStoreDir + kDefaultDiskDir;
        strError = strDefault + ": " + DescribeBaseDirProblem(CHddObj::CheckBaseDir(strDefault.c_str()));
        return false;
    }
    return true;
}

struct CRecordStore::tag_CAMERAFILE {
    int nBoard = 0;
    int nCamera = 0;
    std::unique_ptr<CZnFile> pFile;
    std::string strDir;
    std::size_t nFile = 0;
    bool bOpenFailed = false;
};

CRecordStore::CRecordStore() = default;

CRecordStore::~CRecordStore()
{
    Close();
}

void CRecordStore::SetReporter(std::function<void(const std::string&)> fnReport)
{
    m_fnReport = std::move(fnReport);
}

bool CRecordStore::Open(const tag_STOREOPTIONS& options, std::string& strError)
{
    m_options = options;
    if (!OpenStoreDatabase(m_db, options.strStoreDir, true, options.strHostName, options.dwRevision, strError))
        return false;
    m_db.SetDateDeletedCallback(&CRecordStore::OnDateDeleted, this);
    m_strWorkDisk = GetWorkDiskName();
    m_bOpen = true;
    return true;
}

bool CRecordStore::WriteFrame(const tag_CAMERAINFO& info, tag_ZNFRAMEDATA& frame)
{
    if (!m_bOpen)
        return false;
    tag_CAMERAFILE& camera = FindCamera(info);
    if (frame.wFrameType == ZNFRAME_I)
        ChangeBlock(camera, info);
    if (camera.pFile != nullptr) {
        const int nWritten = camera.pFile->WriteOneFrame(&frame);
        if (nWritten == 1) {
            ++m_files[camera.nFile].dwFrames;
            return true;
        }
        if (nWritten < 0) {
            Report(m_files[camera.nFile].strPath + ": writing failed; the file keeps what reached the disk");
            m_bWriteFailed = true;
            CloseCameraFile(camera);
        }
    }
    ++m_dwUnstored;
    return false;
}

CRecordStore::tag_CAMERAFILE& CRecordStore::FindCamera(const tag_CAMERAINFO& info)
{
    for (const std::unique_ptr<tag_CAMERAFILE>& pCamera : m_cameras) {
        if (pCamera->nBoard == info.nBoard && pCamera->nCamera == info.nCamera)
            return *pCamera;
    }
    m_cameras.push_back(std::make_unique<tag_CAMERAFILE>());
    m_cameras.back()->nBoard = info.nBoard;
    m_cameras.back()->nCamera = info.nCamera;
    return *m_cameras.back();
}

// A block change: the only moment a camera can move to another file.
void CRecordStore::ChangeBlock(tag_CAMERAFILE& camera, const tag_CAMERAINFO& info)
{
    if (m_bWaitingForRoom) {
        if (GetTickCount() - m_dwLastTry < m_options.dwRetryMs)
            return;
        m_dwLastTry = GetTickCount();
        if (m_db.ChangeWorkDir() != DBS_OK)
            return;
        m_bWaitingForRoom = false;
        m_strWorkDisk = GetWorkDiskName();
        Report("room again: recording goes on at " + m_strWorkDisk);
    }
    CheckWorkDisk();
    if (m_bWaitingForRoom)
        return;
    const std::string strDir = static_cast<LPCSTR>(m_db.GetVideoDir());
    if (camera.pFile != nullptr && (camera.strDir != strDir || IsFileFull(camera)))
        CloseCameraFile(camera);
    if (camera.pFile == nullptr && !strDir.empty())
        OpenCameraFile(camera, info, strDir);
}

// Low space moves recording to a disk with room, or recycles the oldest days.
void CRecordStore::CheckWorkDisk()
{
    DWORD dwFree = 0;
    if (m_db.CheckWorkHDD(dwFree) == DBS_OK)
        return;
    if (m_db.ChangeWorkDir() != DBS_OK) {
        WaitForRoom();
        return;
    }
    const std::string strDisk = GetWorkDiskName();
    if (strDisk != m_strWorkDisk)
        Report("work disk: " + strDisk + " (" + std::to_string(dwFree) + " MB were left on " + m_strWorkDisk + ")");
    m_strWorkDisk = strDisk;
}

void CRecordStore::WaitForRoom()
{
    m_bWaitingForRoom = true;
    m_dwLastTry = GetTickCount();
    for (const std::unique_ptr<tag_CAMERAFILE>& pCamera : m_cameras)
        CloseCameraFile(*pCamera);
    Report("no disk has room and no day can be recycled: recording waits for room (every " +
           std::to_string(m_options.dwRetryMs / 1000) + " s)");
}

std::string CRecordStore::GetWorkDiskName()
{
    CString strName;
    CString strBase;
    return m_db.GetWorkHDD(strName, strBase) == DBS_OK ? std::string(strBase) : std::string("(none)");
}

void CRecordStore::OpenCameraFile(tag_CAMERAFILE& camera, const tag_CAMERAINFO& info, const std::string& strDir)
{
    const std::string strStem = strDir + "/b" + std::to_string(camera.nBoard) + "-cam" + std::to_string(camera.nCamera) +
                                "-" + static_cast<LPCSTR>(CTime::GetCurrentTime().Format("%H%M%S"));
    std::string strPath = strStem + ".zn";
    for (int n = 2; std::filesystem::exists(strPath); ++n)
        strPath = strStem + "-" + std::to_string(n) + ".zn";
    auto pFile = std::make_unique<CZnFile>(("camera " + std::to_string(camera.nCamera)).c_str(),
                                           ("board " + std::to_string(camera.nBoard)).c_str(),
                                           m_options.strHostName.c_str());
    tag_CAMERAINFO fileInfo = info;
    if (!pFile->Open(strPath.c_str(), &fileInfo, m_options.dwRevision, ZNFILE_WRITE)) {
        if (!camera.bOpenFailed)
            Report(strPath + ": can't be opened for writing; the camera waits for the next block");
        camera.bOpenFailed = true;
        return;
    }
    camera.bOpenFailed = false;
    camera.pFile = std::move(pFile);
    camera.strDir = strDir;
    camera.nFile = m_files.size();
    m_files.push_back({strPath, camera.nBoard, camera.nCamera, 0});
}

// What the file holds on disk: every block but the one collecting.
bool CRecordStore::IsFileFull(const tag_CAMERAFILE& camera) const
{
    std::error_code error;
    const std::uintmax_t nBytes = std::filesystem::file_size(m_files[camera.nFile].strPath, error);
    return !error && nBytes >= m_options.nMaxFileBytes;
}

void CRecordStore::CloseCameraFile(tag_CAMERAFILE& camera)
{
    if (camera.pFile == nullptr)
        return;
    if (camera.pFile->Close() != 1) {
        Report(m_files[camera.nFile].strPath + ": its last frames can't be stored");
        m_bWriteFailed = true;
    }
    camera.pFile.reset();
}

void CRecordStore::Close()
{
    if (!m_bOpen)
        return;
    for (const std::unique_ptr<tag_CAMERAFILE>& pCamera : m_cameras)
        CloseCameraFile(*pCamera);
    if (!m_db.SaveDatabase())
        Report(Join(m_options.strStoreDir, STORE_DATABASE_FILE) + ": the disk list can't be saved");
    m_db.Close();
    m_bOpen = false;
}

const std::vector<tag_STOREDFILE>& CRecordStore::GetFiles() const
{
    return m_files;
}

const std::vector<DWORD>& CRecordStore::GetRecycledDates() const
{
    return m_aRecycled;
}

DWORD CRecordStore::GetUnstoredFrames() const
{
    return m_dwUnstored;
}

bool CRecordStore::HasWriteFailed() const
{
    return m_bWriteFailed;
}

bool CRecordStore::IsWaitingForRoom() const
{
    return m_bWaitingForRoom;
}

CZnDatabase& CRecordStore::GetDatabase()
{
    return m_db;
}

void CRecordStore::Report(const std::string& strLine) const
{
    if (m_fnReport)
        m_fnReport(strLine);
}

void CRecordStore::OnDateDeleted(DWORD dwDate, LPVOID pContext)
{
    auto* pStore = static_cast<CRecordStore*>(pContext);
    pStore->m_aRecycled.push_back(dwDate);
    pStore->Report("recycled the recordings of " + FormatDate(dwDate));
}
