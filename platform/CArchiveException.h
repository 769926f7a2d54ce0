// The failure of an archive operation, above all a read behind the end of the data.
// Thrown as a pointer by CArchive; the handler owns it. Reentrant.
#pragma once

#include "platform/CException.h"
#include "platform/CString.h"

class ZNDVR_API CArchiveException : public CException {
public:
    enum { none, generic, readOnly, endOfFile, writeOnly, badIndex, badClass, badSchema };

    explicit CArchiveException(int cause = CArchiveException::none, LPCSTR lpszArchiveName = nullptr);

    BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr) const override;

    int m_cause;
    CString m_strFileName;
};

[[noreturn]] ZNDVR_API void AfxThrowArchiveException(int cause, LPCSTR lpszArchiveName = nullptr);
