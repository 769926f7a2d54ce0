// Memory has run out. Thrown as a pointer by CMemFile when its block can't grow; the
// handler owns it. Reentrant.
#pragma once

#include "platform/CException.h"

class ZNDVR_API CMemoryException : public CException {
public:
    CMemoryException() = default;

    BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr) const override;
};

[[noreturn]] ZNDVR_API void AfxThrowMemoryException();
