// The failure of a file operation: a cause code, the system's error number and the
// file's path. Thrown as a pointer by CFile and CMemFile; the handler owns it.
// Reentrant.
#pragma once

#include "platform/CException.h"
#include "platform/CString.h"

class ZNDVR_API CFileException : public CException {
public:
    enum {
        none,
        generic,
        fileNotFound,
        badPath,
        tooManyOpenFiles,
        accessDenied,
        invalidFile,
        removeCurrentDir,
        directoryFull,
        badSeek,
        hardIO,
        sharingViolation,
        lockViolation,
        diskFull,
        endOfFile
    };

    explicit CFileException(int cause = CFileException::none, LONG lOsError = -1,
                            LPCSTR lpszArchiveName = nullptr);

    // The cause that a system error number (errno) stands for.
    static int OsErrorToException(LONG lOsError);
    static void ThrowOsError(LONG lOsError, LPCSTR lpszFileName = nullptr);

    BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr) const override;

    int m_cause;
    LONG m_lOsError;
    CString m_strFileName;
};

[[noreturn]] ZNDVR_API void AfxThrowFileException(int cause, LONG lOsError = -1, LPCSTR lpszFileName = nullptr);
