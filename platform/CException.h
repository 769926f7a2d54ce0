// The base of the exceptions that the file classes throw. An exception is thrown as a
// pointer made with new; its handler shows it with ReportError and frees it with Delete.
// Reentrant; the reporter is process-wide and may be replaced from any thread.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

inline constexpr UINT MB_OK = 0x0;
inline constexpr int IDOK = 1;

// Receives the one-line text of every reported exception.
using EXCEPTIONREPORTER = void (*)(LPCSTR pszMessage);

// Installs pfnReporter as the process-wide reporter and returns the one it replaces; a
// null pointer restores the default, which writes one line to standard error.
ZNDVR_API EXCEPTIONREPORTER SetExceptionReporter(EXCEPTIONREPORTER pfnReporter);
// Hands a line to the reporter, for a failure that the library recovers from without an
// exception of its own to show.
ZNDVR_API void ReportFailure(LPCSTR pszMessage);

class ZNDVR_API CException {
public:
    virtual ~CException();

    // Frees an exception that was thrown as a pointer made with new.
    void Delete();

    // Copies the text of the exception, cut to nMaxError - 1 characters and terminated;
    // FALSE if there is no text or no room.
    virtual BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr) const;

    // Hands the text to the reporter; returns IDOK.
    virtual int ReportError(UINT nType = MB_OK, UINT nMessageID = 0) const;

protected:
    CException() = default;

    // Shared by the derived classes: copies strMessage into the caller's buffer.
    static BOOL CopyErrorMessage(LPCSTR pszMessage, LPSTR lpszError, UINT nMaxError);
};
