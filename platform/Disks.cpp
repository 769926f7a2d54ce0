#include "platform/Disks.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr int kMegabyteShift = 20;
constexpr char kMountTable[] = "/proc/self/mountinfo";

constexpr std::array<std::string_view, 2> kRamFileSystems = {"tmpfs", "ramfs"};
constexpr std::array<std::string_view, 2> kOpticalFileSystems = {"iso9660", "udf"};
constexpr std::array<std::string_view, 11> kNetworkFileSystems = {
    "nfs", "nfs4", "cifs", "smb3", "smbfs", "9p", "ceph", "glusterfs", "afs", "fuse.sshfs", "fuse.glusterfs"};
constexpr std::array<std::string_view, 24> kKernelFileSystems = {
    "proc", "sysfs", "devtmpfs", "devpts", "cgroup", "cgroup2", "debugfs", "tracefs",
    "securityfs", "pstore", "bpf", "mqueue", "hugetlbfs", "configfs", "fusectl", "autofs",
    "binfmt_misc", "efivarfs", "nsfs", "rpc_pipefs", "selinuxfs", "sockfs", "pipefs", "anon_inodefs"};

template <std::size_t N> bool IsOneOf(const std::array<std::string_view, N>& aNames, std::string_view strName)
{
    for (std::string_view strEntry : aNames) {
        if (strEntry == strName)
            return true;
    }
    return false;
}

// A path made absolute, with symbolic links resolved as far as the path exists; the part
// that doesn't exist yet is appended as written. strExisting receives the existing part.
std::string ResolvePath(LPCSTR lpszPath, std::string& strExisting)
{
    std::error_code error;
    std::filesystem::path fullPath = std::filesystem::absolute(lpszPath, error).lexically_normal();
    if (error)
        return {};
    std::filesystem::path existing = fullPath;
    std::filesystem::path missing;
    while (!std::filesystem::exists(existing, error)) {
        if (!existing.has_relative_path())
            return {};
        missing = existing.filename() / missing;
        existing = existing.parent_path();
    }
    std::filesystem::path canonical = std::filesystem::canonical(existing, error);
    if (error)
        return {};
    strExisting = canonical.string();
    std::string strResolved = (canonical / missing).lexically_normal().string();
    while (strResolved.size() > 1 && strResolved.back() == '/')
        strResolved.pop_back();
    return strResolved;
}

// strPath lies in or below strDir (both absolute, without a trailing '/').
bool IsBelow(const std::string& strPath, const std::string& strDir)
{
    if (strDir == "/")
        return true;
    return strPath.compare(0, strDir.size(), strDir) == 0 &&
           (strPath.size() == strDir.size() || strPath[strDir.size()] == '/');
}

// Mount points in the table escape blanks, tabs, newlines and backslashes as octal.
std::string DecodeMountField(const std::string& strField)
{
    std::string strDecoded;
    for (std::size_t i = 0; i < strField.size(); ++i) {
        bool bEscape = strField[i] == '\\' && i + 3 < strField.size();
        for (std::size_t nDigit = 1; bEscape && nDigit <= 3; ++nDigit)
            bEscape = strField[i + nDigit] >= '0' && strField[i + nDigit] <= '7';
        if (bEscape) {
            int nCode = (strField[i + 1] - '0') * 64 + (strField[i + 2] - '0') * 8 + (strField[i + 3] - '0');
            strDecoded += static_cast<char>(nCode);
            i += 3;
        } else {
            strDecoded += strField[i];
        }
    }
    return strDecoded;
}

struct tag_MOUNTENTRY {
    std::string strMountPoint;
    std::string strFileSystem;
};

// The mount that holds strPath: the longest mount point above it, the later of two
// mounts on one point being the one on top.
bool FindMount(const std::string& strPath, tag_MOUNTENTRY& mount)
{
    std::ifstream table(kMountTable);
    if (!table)
        return false;
    bool bFound = false;
    std::string strLine;
    while (std::getline(table, strLine)) {
        std::istringstream fields(strLine);
        std::string strId, strParent, strDevice, strRoot, strMountPoint;
        if (!(fields >> strId >> strParent >> strDevice >> strRoot >> strMountPoint))
            continue;
        std::string strField;
        while (fields >> strField && strField != "-") {
        }
        std::string strFileSystem;
        if (!(fields >> strFileSystem))
            continue;
        strMountPoint = DecodeMountField(strMountPoint);
        if (!IsBelow(strPath, strMountPoint))
            continue;
        if (!bFound || strMountPoint.size() >= mount.strMountPoint.size()) {
            mount = {strMountPoint, strFileSystem};
            bFound = true;
        }
    }
    return bFound;
}

class CQuotaRegistry {
public:
    static CQuotaRegistry& Get()
    {
        static CQuotaRegistry registry;
        return registry;
    }

    void Set(const std::string& strDir, DWORD dwMegabytes)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mapVolumes[strDir] = dwMegabytes;
    }

    bool Remove(const std::string& strDir)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_mapVolumes.erase(strDir) > 0;
    }

    // The innermost quota directory that holds strPath.
    bool Find(const std::string& strPath, std::string& strDir, DWORD& dwMegabytes) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        bool bFound = false;
        for (const auto& [strEntry, dwSize] : m_mapVolumes) {
            if (IsBelow(strPath, strEntry) && (!bFound || strEntry.size() > strDir.size())) {
                strDir = strEntry;
                dwMegabytes = dwSize;
                bFound = true;
            }
        }
        return bFound;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, DWORD> m_mapVolumes;
};

UINT DriveTypeOf(const std::string& strFileSystem, bool bReadOnly)
{
    if (IsOneOf(kKernelFileSystems, strFileSystem))
        return DRIVE_UNKNOWN;
    if (IsOneOf(kRamFileSystems, strFileSystem))
        return DRIVE_RAMDISK;
    // Read-only file systems are classed with optical media: both can't take recordings.
    if (IsOneOf(kOpticalFileSystems, strFileSystem) || bReadOnly)
        return DRIVE_CDROM;
    if (IsOneOf(kNetworkFileSystems, strFileSystem))
        return DRIVE_REMOTE;
    return DRIVE_FIXED;
}

std::string WithTrailingSlash(const std::string& strDir)
{
    return strDir == "/" ? strDir : strDir + "/";
}

// Bytes of the regular files in and below strDir; entries that can't be read count 0.
std::uint64_t SumFileBytes(const std::string& strDir)
{
    std::error_code error;
    std::uint64_t nBytes = 0;
    auto options = std::filesystem::directory_options::skip_permission_denied;
    for (std::filesystem::recursive_directory_iterator it(strDir, options, error), itEnd; !error && it != itEnd;
         it.increment(error)) {
        std::error_code statusError;
        if (it->symlink_status(statusError).type() != std::filesystem::file_type::regular)
            continue;
        std::uintmax_t nSize = it->file_size(statusError);
        if (!statusError)
            nBytes += nSize;
    }
    return nBytes;
}

void Store(ULARGE_INTEGER* pValue, std::uint64_t nValue)
{
    if (pValue != nullptr)
        pValue->QuadPart = nValue;
}

bool IsHeldByWriter(LPCSTR lpFileName)
{
    int hFile = open(lpFileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (hFile < 0)
        return false;
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    bool bHeld = fcntl(hFile, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    close(hFile);
    return bHeld;
}

bool IsUsablePath(LPCSTR lpszPath)
{
    return lpszPath != nullptr && lpszPath[0] != '\0';
}

} // namespace

BOOL GetVolumeInfo(LPCSTR lpszPath, tag_VOLUMEINFO* pInfo)
{
    if (!IsUsablePath(lpszPath) || pInfo == nullptr)
        return FALSE;
    std::string strExisting;
    std::string strPath = ResolvePath(lpszPath, strExisting);
    tag_MOUNTENTRY mount;
    if (strPath.empty() || !FindMount(strPath, mount))
        return FALSE;
    struct statvfs status;
    bool bReadOnly = statvfs(strExisting.c_str(), &status) == 0 && (status.f_flag & ST_RDONLY) != 0;
    std::string strQuotaDir;
    DWORD dwMegabytes = 0;
    bool bQuota = CQuotaRegistry::Get().Find(strPath, strQuotaDir, dwMegabytes);
    pInfo->strVolume = CString(WithTrailingSlash(bQuota ? strQuotaDir : mount.strMountPoint));
    pInfo->strFileSystem = CString(mount.strFileSystem);
    if (bQuota)
        pInfo->nDriveType = bReadOnly ? DRIVE_CDROM : DRIVE_FIXED;
    else
        pInfo->nDriveType = DriveTypeOf(mount.strFileSystem, bReadOnly);
    pInfo->bReadOnly = bReadOnly;
    pInfo->bQuota = bQuota;
    return TRUE;
}

CString GetVolumePath(LPCSTR lpszPath)
{
    tag_VOLUMEINFO info;
    return GetVolumeInfo(lpszPath, &info) ? info.strVolume : CString();
}

BOOL IsSameVolume(LPCSTR lpszPath1, LPCSTR lpszPath2)
{
    CString strVolume1 = GetVolumePath(lpszPath1);
    return !strVolume1.IsEmpty() && strVolume1 == GetVolumePath(lpszPath2);
}

UINT GetDriveTypeA(LPCSTR lpRootPathName)
{
    tag_VOLUMEINFO info;
    return GetVolumeInfo(lpRootPathName, &info) ? info.nDriveType : DRIVE_NO_ROOT_DIR;
}

BOOL IsAcceptedVolume(LPCSTR lpszPath)
{
    UINT nDriveType = GetDriveTypeA(lpszPath);
    return nDriveType == DRIVE_FIXED || nDriveType == DRIVE_REMOTE;
}

BOOL GetDiskFreeSpaceExA(LPCSTR lpDirectoryName, ULARGE_INTEGER* lpFreeBytesAvailableToCaller,
                         ULARGE_INTEGER* lpTotalNumberOfBytes, ULARGE_INTEGER* lpTotalNumberOfFreeBytes)
{
    struct stat fileStatus;
    if (!IsUsablePath(lpDirectoryName) || stat(lpDirectoryName, &fileStatus) != 0)
        return FALSE;
    std::string strExisting;
    std::string strPath = ResolvePath(lpDirectoryName, strExisting);
    std::string strQuotaDir;
    DWORD dwMegabytes = 0;
    if (!strPath.empty() && CQuotaRegistry::Get().Find(strPath, strQuotaDir, dwMegabytes)) {
        std::uint64_t nTotal = static_cast<std::uint64_t>(dwMegabytes) << kMegabyteShift;
        std::uint64_t nUsed = SumFileBytes(strQuotaDir);
        std::uint64_t nFree = nUsed < nTotal ? nTotal - nUsed : 0;
        Store(lpFreeBytesAvailableToCaller, nFree);
        Store(lpTotalNumberOfBytes, nTotal);
        Store(lpTotalNumberOfFreeBytes, nFree);
        return TRUE;
    }
    struct statvfs status;
    if (statvfs(lpDirectoryName, &status) != 0)
        return FALSE;
    std::uint64_t nBlockSize = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
    Store(lpFreeBytesAvailableToCaller, static_cast<std::uint64_t>(status.f_bavail) * nBlockSize);
    Store(lpTotalNumberOfBytes, static_cast<std::uint64_t>(status.f_blocks) * nBlockSize);
    Store(lpTotalNumberOfFreeBytes, static_cast<std::uint64_t>(status.f_bfree) * nBlockSize);
    return TRUE;
}

BOOL DeclareQuotaVolume(LPCSTR lpszDirectory, DWORD dwMegabytes)
{
    struct stat status;
    if (!IsUsablePath(lpszDirectory) || stat(lpszDirectory, &status) != 0 || !S_ISDIR(status.st_mode))
        return FALSE;
    std::string strExisting;
    std::string strDir = ResolvePath(lpszDirectory, strExisting);
    if (strDir.empty())
        return FALSE;
    CQuotaRegistry::Get().Set(strDir, dwMegabytes);
    return TRUE;
}

BOOL RemoveQuotaVolume(LPCSTR lpszDirectory)
{
    if (!IsUsablePath(lpszDirectory))
        return FALSE;
    std::string strExisting;
    std::string strDir = ResolvePath(lpszDirectory, strExisting);
    return !strDir.empty() && CQuotaRegistry::Get().Remove(strDir);
}

BOOL CreateDirectoryA(LPCSTR lpPathName, void*)
{
    return IsUsablePath(lpPathName) && mkdir(lpPathName, 0777) == 0;
}

BOOL RemoveDirectoryA(LPCSTR lpPathName)
{
    return IsUsablePath(lpPathName) && rmdir(lpPathName) == 0;
}

BOOL DeleteFileA(LPCSTR lpFileName)
{
    struct stat status;
    if (!IsUsablePath(lpFileName) || lstat(lpFileName, &status) != 0 || S_ISDIR(status.st_mode))
        return FALSE;
    if (S_ISREG(status.st_mode) && IsHeldByWriter(lpFileName))
        return FALSE;
    return unlink(lpFileName) == 0;
}
