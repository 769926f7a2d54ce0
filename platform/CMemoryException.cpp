#include "platform/CMemoryException.h"

BOOL CMemoryException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext) const
{
    if (pnHelpContext != nullptr)
        *pnHelpContext = 0;
    return CopyErrorMessage("out of memory", lpszError, nMaxError);
}

void AfxThrowMemoryException()
{
    throw new CMemoryException;
}
