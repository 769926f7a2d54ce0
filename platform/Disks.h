// Disks and paths. A path has no drive letter: its volume is the mount point of the file
// system that holds it, with a trailing '/' ("/", "/srv/disk2/"), or the innermost quota
// volume above it. The drive types, the free-space query and the directory and file
// operations keep the names and results of the interfaces the storage code was written
// against. All functions are thread-safe.
#pragma once

#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <cstdint>

inline constexpr UINT DRIVE_UNKNOWN = 0;
inline constexpr UINT DRIVE_NO_ROOT_DIR = 1;
inline constexpr UINT DRIVE_REMOVABLE = 2;
inline constexpr UINT DRIVE_FIXED = 3;
inline constexpr UINT DRIVE_REMOTE = 4;
inline constexpr UINT DRIVE_CDROM = 5;
inline constexpr UINT DRIVE_RAMDISK = 6;

struct ULARGE_INTEGER {
    std::uint64_t QuadPart;
};

// What is known of the volume of a path.
struct tag_VOLUMEINFO {
    CString strVolume;     // mount point or quota directory, with a trailing '/'
    CString strFileSystem; // type of the file system, for a quota volume that of its host
    UINT nDriveType;       // DRIVE_...
    BOOL bReadOnly;
    BOOL bQuota;           // a directory declared to be a volume
};

// The volume of a path, which need not exist yet: its nearest existing ancestor decides.
// FALSE for a null or empty path or when the mounts can't be read.
ZNDVR_API BOOL GetVolumeInfo(LPCSTR lpszPath, tag_VOLUMEINFO* pInfo);
// The volume with its trailing '/', or "" on failure.
ZNDVR_API CString GetVolumePath(LPCSTR lpszPath);
// Both paths lie on one volume (and neither fails to resolve).
ZNDVR_API BOOL IsSameVolume(LPCSTR lpszPath1, LPCSTR lpszPath2);

// The absolute form of a path, with "." and ".." resolved by name (links are not
// followed) and no trailing '/' but that of "/" itself: its length, or 0 for a null or
// empty name. Fills lpBuffer when the result and its terminator fit in nBufferLength
// characters; otherwise the result is the length the buffer needs, terminator included.
// lpFilePart, if given, points at the last component in the buffer.
ZNDVR_API DWORD GetFullPathNameA(LPCSTR lpFileName, DWORD nBufferLength, LPSTR lpBuffer, LPSTR* lpFilePart);
// The same as a string; "" on failure.
ZNDVR_API CString GetFullPathName(LPCSTR lpFileName);

// The type of the volume of any path: DRIVE_FIXED for local disks and writable quota volumes,
// DRIVE_REMOTE for network file systems, DRIVE_RAMDISK for tmpfs and ramfs, DRIVE_CDROM
// for optical and read-only file systems, DRIVE_UNKNOWN for kernel file systems that hold
// no data, DRIVE_NO_ROOT_DIR when the path can't be resolved.
ZNDVR_API UINT GetDriveTypeA(LPCSTR lpRootPathName);
// A recording disk must be fixed or network.
ZNDVR_API BOOL IsAcceptedVolume(LPCSTR lpszPath);

// Bytes of the volume of an existing path: free to this caller, total, free in all. Any
// output pointer may be null. For a quota volume the total is its size and both free
// figures are the size minus the bytes of the files below it, never below 0.
ZNDVR_API BOOL GetDiskFreeSpaceExA(LPCSTR lpDirectoryName, ULARGE_INTEGER* lpFreeBytesAvailableToCaller,
                                   ULARGE_INTEGER* lpTotalNumberOfBytes, ULARGE_INTEGER* lpTotalNumberOfFreeBytes);

// Declares an existing directory to be a volume of dwMegabytes MB (a MB being 2 to the
// power 20 bytes), or changes the size of one; it is then its own volume, a fixed disk.
ZNDVR_API BOOL DeclareQuotaVolume(LPCSTR lpszDirectory, DWORD dwMegabytes);
ZNDVR_API BOOL RemoveQuotaVolume(LPCSTR lpszDirectory);

// Makes one directory level; its parent must exist. FALSE if it exists already.
ZNDVR_API BOOL CreateDirectoryA(LPCSTR lpPathName, void* lpSecurityAttributes);
// Removes an empty directory.
ZNDVR_API BOOL RemoveDirectoryA(LPCSTR lpPathName);
inline constexpr DWORD MOVEFILE_REPLACE_EXISTING = 0x00000001;
inline constexpr DWORD MOVEFILE_WRITE_THROUGH = 0x00000008;

// Renames a file or directory within its volume. An existing target is replaced only with
// MOVEFILE_REPLACE_EXISTING, and then in one step: a reader finds the old file or the new
// one, never neither. With MOVEFILE_WRITE_THROUGH the new name is on the disk (its
// directory synced) before the call returns.
ZNDVR_API BOOL MoveFileExA(LPCSTR lpExistingFileName, LPCSTR lpNewFileName, DWORD dwFlags);
// Deletes a file; FALSE for a directory and for a file that a CFile holds open for writing,
// so that a recording in progress is never deleted under its writer.
ZNDVR_API BOOL DeleteFileA(LPCSTR lpFileName);
