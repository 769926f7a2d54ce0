#include "platform/CFileException.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace {

// What each cause means, in the order of the cause codes.
constexpr LPCSTR kCauseTexts[] = {
    "no error",
    "an unspecified error occurred",
    "the file could not be found",
    "all or part of the path is invalid",
    "too many files are open",
    "access to the file was denied",
    "the file handle is not valid",
    "the current working directory cannot be removed",
    "there are no more directory entries",
    "the file pointer could not be moved",
    "a hardware input/output error occurred",
    "the file is being written by another writer",
    "a locked region could not be used",
    "the disk is full",
    "the end of the file was reached",
};

} // namespace

CFileException::CFileException(int cause, LONG lOsError, LPCSTR lpszArchiveName)
    : m_cause(cause), m_lOsError(lOsError), m_strFileName(lpszArchiveName != nullptr ? lpszArchiveName : "")
{
}

int CFileException::OsErrorToException(LONG lOsError)
{
    switch (lOsError) {
    case 0:
        return none;
    case ENOENT:
        return fileNotFound;
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
        return badPath;
    case EMFILE:
    case ENFILE:
        return tooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case ETXTBSY:
        return accessDenied;
    case EBADF:
        return invalidFile;
    case EBUSY:
        return removeCurrentDir;
    case EINVAL:
    case ESPIPE:
    case EOVERFLOW:
        return badSeek;
    case EIO:
        return hardIO;
    case EAGAIN:
        return sharingViolation;
    case ENOLCK:
        return lockViolation;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return diskFull;
    default:
        return generic;
    }
}

void CFileException::ThrowOsError(LONG lOsError, LPCSTR lpszFileName)
{
    if (lOsError != 0)
        AfxThrowFileException(OsErrorToException(lOsError), lOsError, lpszFileName);
}

BOOL CFileException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext) const
{
    if (pnHelpContext != nullptr)
        *pnHelpContext = 0;
    bool bKnownCause = m_cause >= none && m_cause <= endOfFile;
    std::string strMessage;
    if (!m_strFileName.IsEmpty())
        strMessage = std::string(static_cast<LPCSTR>(m_strFileName)) + ": ";
    strMessage += bKnownCause ? kCauseTexts[m_cause] : kCauseTexts[generic];
    if (m_lOsError > 0)
        strMessage += std::string(" (") + std::strerror(static_cast<int>(m_lOsError)) + ")";
    return CopyErrorMessage(strMessage.c_str(), lpszError, nMaxError);
}

void AfxThrowFileException(int cause, LONG lOsError, LPCSTR lpszFileName)
{
    throw new CFileException(cause, lOsError, lpszFileName);
}
