#include "platform/CFile.h"

#include "platform/CDiskSimulator.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t kNewFileMode = 0666;

int ToDescriptor(UINT hFile)
{
    return static_cast<int>(hFile);
}

// Absolute and without "." or ".." components, as the user spelled it otherwise.
std::string MakeFullPath(LPCSTR lpszFileName)
{
    std::error_code error;
    std::filesystem::path fullPath = std::filesystem::absolute(lpszFileName, error);
    if (error)
        return lpszFileName;
    return fullPath.lexically_normal().string();
}

int OpenFlagsToPosix(UINT nOpenFlags)
{
    int nFlags = O_CLOEXEC | O_NONBLOCK;
    if ((nOpenFlags & CFile::modeReadWrite) != 0)
        nFlags |= O_RDWR;
    else if ((nOpenFlags & CFile::modeWrite) != 0)
        nFlags |= O_WRONLY;
    else
        nFlags |= O_RDONLY;
    if ((nOpenFlags & CFile::modeCreate) != 0)
        nFlags |= O_CREAT;
    if ((nOpenFlags & CFile::modeRegularOnly) != 0)
        nFlags |= O_NOFOLLOW;
    return nFlags;
}

// The writer's claim on the file: an open file description lock, which conflicts with
// every other description of the file, in this process as in others. A file system that
// has no such locks is written without the claim rather than refused.
int ClaimForWriting(int hFile)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(hFile, F_OFD_SETLK, &lock) == 0)
        return 0;
    if (errno == EACCES || errno == EAGAIN)
        return EAGAIN;
    return 0;
}

void FillError(CFileException* pError, int nErrno, const std::string& strPath)
{
    if (pError == nullptr)
        return;
    pError->m_cause = CFileException::OsErrorToException(nErrno);
    pError->m_lOsError = nErrno;
    pError->m_strFileName = strPath.c_str();
}

} // namespace

CFile::CFile() : m_hFile(hFileNull), m_bWritable(FALSE)
{
}

CFile::CFile(LPCSTR lpszFileName, UINT nOpenFlags) : CFile()
{
    CFileException error;
    if (!Open(lpszFileName, nOpenFlags, &error))
        AfxThrowFileException(error.m_cause, error.m_lOsError, error.m_strFileName);
}

CFile::~CFile()
{
    Abort();
}

BOOL CFile::Open(LPCSTR lpszFileName, UINT nOpenFlags, CFileException* pError)
{
    if (m_hFile != hFileNull) {
        FillError(pError, EBUSY, static_cast<LPCSTR>(m_strFileName));
        if (pError != nullptr)
            pError->m_cause = CFileException::generic;
        return FALSE;
    }
    if (lpszFileName == nullptr || lpszFileName[0] == '\0') {
        FillError(pError, ENOENT, "");
        return FALSE;
    }
    std::string strPath = MakeFullPath(lpszFileName);
    bool bWritable = (nOpenFlags & (modeWrite | modeReadWrite)) != 0;
    struct stat status;
    const bool bExisted = lstat(lpszFileName, &status) == 0;
    int hFile = open(lpszFileName, OpenFlagsToPosix(nOpenFlags), kNewFileMode);
    if (hFile < 0) {
        FillError(pError, errno, strPath);
        return FALSE;
    }
    int nErrno = 0;
    if (fstat(hFile, &status) != 0)
        nErrno = errno;
    else if (S_ISDIR(status.st_mode))
        nErrno = EISDIR;
    else if (!S_ISREG(status.st_mode) && (!S_ISCHR(status.st_mode) || (nOpenFlags & modeRegularOnly) != 0))
        nErrno = EACCES;
    if (nErrno == 0 && bWritable)
        nErrno = ClaimForWriting(hFile);
    // Only a writer that holds its claim empties the file: a reader never loses a writer's data.
    bool bTruncate = bWritable && (nOpenFlags & modeCreate) != 0 && (nOpenFlags & modeNoTruncate) == 0;
    if (nErrno == 0 && bTruncate && S_ISREG(status.st_mode) && ftruncate(hFile, 0) != 0)
        nErrno = errno;
    int nBlockingFlags = fcntl(hFile, F_GETFL);
    if (nErrno == 0 && (nBlockingFlags < 0 || fcntl(hFile, F_SETFL, nBlockingFlags & ~O_NONBLOCK) != 0))
        nErrno = errno;
    if (nErrno != 0) {
        close(hFile);
        FillError(pError, nErrno, strPath);
        return FALSE;
    }
    m_hFile = static_cast<UINT>(hFile);
    m_bWritable = bWritable;
    m_strFileName = strPath.c_str();
    if (bWritable)
        CDiskSimulator::OnOpenForWriting(strPath.c_str(), !bExisted);
    return TRUE;
}

UINT CFile::Read(void* lpBuf, UINT nCount)
{
    ThrowIfClosed();
    if (lpBuf == nullptr || nCount == 0)
        return 0;
    if (const int nInjected = CDiskSimulator::OnRead(); nInjected != 0)
        ThrowErrno(nInjected);
    BYTE* pDest = static_cast<BYTE*>(lpBuf);
    UINT nDone = 0;
    while (nDone < nCount) {
        ssize_t nRead = read(ToDescriptor(m_hFile), pDest + nDone, nCount - nDone);
        if (nRead < 0 && errno == EINTR)
            continue;
        if (nRead < 0)
            ThrowErrno(errno);
        if (nRead == 0)
            break;
        nDone += static_cast<UINT>(nRead);
    }
    return nDone;
}

void CFile::Write(const void* lpBuf, UINT nCount)
{
    ThrowIfClosed();
    if (nCount == 0)
        return;
    if (lpBuf == nullptr)
        AfxThrowFileException(CFileException::generic, EINVAL, m_strFileName);
    if (!m_bWritable)
        ThrowErrno(EACCES);
    const BYTE* pSource = static_cast<const BYTE*>(lpBuf);
    UINT nToStore = nCount;
    int nInjected = 0;
    if (CDiskSimulator::IsInstalled())
        nInjected = CDiskSimulator::OnWrite(m_strFileName, GetPosition(), pSource, nCount, nToStore);
    UINT nDone = 0;
    while (nDone < nToStore) {
        ssize_t nWritten = write(ToDescriptor(m_hFile), pSource + nDone, nToStore - nDone);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten < 0)
            ThrowErrno(errno);
        if (nWritten == 0)
            ThrowErrno(ENOSPC);
        nDone += static_cast<UINT>(nWritten);
    }
    if (nInjected != 0)
        ThrowErrno(nInjected);
}

LONG CFile::Seek(LONG lOff, UINT nFrom)
{
    ThrowIfClosed();
    int nWhence = nFrom == begin ? SEEK_SET : nFrom == current ? SEEK_CUR : nFrom == end ? SEEK_END : -1;
    if (nWhence < 0)
        ThrowErrno(EINVAL);
    off_t nPosition = lseek(ToDescriptor(m_hFile), lOff, nWhence);
    if (nPosition < 0)
        ThrowErrno(errno);
    return static_cast<LONG>(nPosition);
}

DWORD CFile::SeekToEnd()
{
    return static_cast<DWORD>(Seek(0, end));
}

void CFile::SeekToBegin()
{
    Seek(0, begin);
}

DWORD CFile::GetPosition() const
{
    ThrowIfClosed();
    off_t nPosition = lseek(ToDescriptor(m_hFile), 0, SEEK_CUR);
    if (nPosition < 0)
        ThrowErrno(errno);
    return static_cast<DWORD>(nPosition);
}

DWORD CFile::GetLength() const
{
    ThrowIfClosed();
    struct stat status;
    if (fstat(ToDescriptor(m_hFile), &status) != 0)
        ThrowErrno(errno);
    return static_cast<DWORD>(status.st_size);
}

void CFile::SetLength(DWORD dwNewLen)
{
    ThrowIfClosed();
    if (!m_bWritable)
        ThrowErrno(EACCES);
    if (const int nInjected = CDiskSimulator::OnSetLength(m_strFileName, dwNewLen); nInjected != 0)
        ThrowErrno(nInjected);
    if (ftruncate(ToDescriptor(m_hFile), static_cast<off_t>(dwNewLen)) != 0)
        ThrowErrno(errno);
}

void CFile::Flush()
{
    ThrowIfClosed();
    if (!m_bWritable)
        return;
    if (const int nInjected = CDiskSimulator::OnSync(m_strFileName); nInjected != 0)
        ThrowErrno(nInjected);
    // A file system that can't sync (EINVAL) keeps nothing back to sync either.
    if (fdatasync(ToDescriptor(m_hFile)) != 0 && errno != EINVAL)
        ThrowErrno(errno);
}

void CFile::FlushDirectory()
{
    ThrowIfClosed();
    const std::string strDirectory = std::filesystem::path(static_cast<LPCSTR>(m_strFileName)).parent_path().string();
    if (const int nInjected = CDiskSimulator::OnSyncDirectory(strDirectory.c_str()); nInjected != 0)
        ThrowErrno(nInjected);
    const int hDirectory = open(strDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (hDirectory < 0)
        ThrowErrno(errno);
    const int nResult = fsync(hDirectory);
    const int nErrno = errno;
    close(hDirectory);
    if (nResult != 0 && nErrno != EINVAL)
        ThrowErrno(nErrno);
}

BOOL CFile::RemoveOpenFile()
{
    if (m_hFile == hFileNull)
        return FALSE;
    struct stat held;
    struct stat named;
    if (fstat(ToDescriptor(m_hFile), &held) != 0 || lstat(m_strFileName, &named) != 0 || !S_ISREG(named.st_mode) ||
        held.st_dev != named.st_dev || held.st_ino != named.st_ino)
        return FALSE;
    return unlink(m_strFileName) == 0;
}

void CFile::Close()
{
    if (m_hFile == hFileNull)
        return;
    int hFile = ToDescriptor(m_hFile);
    m_hFile = hFileNull;
    m_bWritable = FALSE;
    if (close(hFile) != 0 && errno != EINTR)
        ThrowErrno(errno);
}

void CFile::Abort()
{
    if (m_hFile == hFileNull)
        return;
    close(ToDescriptor(m_hFile));
    m_hFile = hFileNull;
    m_bWritable = FALSE;
}

CString CFile::GetFilePath() const
{
    return m_strFileName;
}

CString CFile::GetFileName() const
{
    return m_strFileName.Mid(m_strFileName.ReverseFind('/') + 1);
}

void CFile::ThrowErrno(int nErrno) const
{
    AfxThrowFileException(CFileException::OsErrorToException(nErrno), nErrno, m_strFileName);
}

void CFile::ThrowIfClosed() const
{
    if (m_hFile == hFileNull)
        ThrowErrno(EBADF);
}
