#include "platform/CArchiveException.h"

#include <string>

namespace {

// What each cause means, in the order of the cause codes.
constexpr LPCSTR kCauseTexts[] = {
    "no error",
    "an unspecified error occurred",
    "the archive is being read and can't be written",
    "the end of the archive was reached",
    "the archive is being written and can't be read",
    "the archive holds an invalid object index",
    "the archive holds an unexpected class",
    "the archive holds an unexpected schema",
};

} // namespace

CArchiveException::CArchiveException(int cause, LPCSTR lpszArchiveName)
    : m_cause(cause), m_strFileName(lpszArchiveName != nullptr ? lpszArchiveName : "")
{
}

BOOL CArchiveException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext) const
{
    if (pnHelpContext != nullptr)
        *pnHelpContext = 0;
    bool bKnownCause = m_cause >= none && m_cause <= badSchema;
    std::string strMessage;
    if (!m_strFileName.IsEmpty())
        strMessage = std::string(static_cast<LPCSTR>(m_strFileName)) + ": ";
    strMessage += bKnownCause ? kCauseTexts[m_cause] : kCauseTexts[generic];
    return CopyErrorMessage(strMessage.c_str(), lpszError, nMaxError);
}

void AfxThrowArchiveException(int cause, LPCSTR lpszArchiveName)
{
    throw new CArchiveException(cause, lpszArchiveName);
}
