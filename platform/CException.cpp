#include "platform/CException.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

void ReportToStandardError(LPCSTR pszMessage)
{
    std::fprintf(stderr, "zndvr: %s\n", pszMessage);
}

std::atomic<EXCEPTIONREPORTER> g_pfnReporter{&ReportToStandardError};

constexpr UINT kMaxReportLength = 1024;
constexpr char kUnknownError[] = "an unknown error has occurred";

} // namespace

EXCEPTIONREPORTER SetExceptionReporter(EXCEPTIONREPORTER pfnReporter)
{
    return g_pfnReporter.exchange(pfnReporter != nullptr ? pfnReporter : &ReportToStandardError);
}

void ReportFailure(LPCSTR pszMessage)
{
    g_pfnReporter.load()(pszMessage != nullptr ? pszMessage : kUnknownError);
}

CException::~CException() = default;

void CException::Delete()
{
    delete this;
}

BOOL CException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, UINT* pnHelpContext) const
{
    if (pnHelpContext != nullptr)
        *pnHelpContext = 0;
    if (lpszError != nullptr && nMaxError > 0)
        lpszError[0] = '\0';
    return FALSE;
}

int CException::ReportError(UINT, UINT) const
{
    char strMessage[kMaxReportLength];
    if (!GetErrorMessage(strMessage, kMaxReportLength))
        std::strcpy(strMessage, kUnknownError);
    g_pfnReporter.load()(strMessage);
    return IDOK;
}

BOOL CException::CopyErrorMessage(LPCSTR pszMessage, LPSTR lpszError, UINT nMaxError)
{
    if (lpszError == nullptr || nMaxError == 0)
        return FALSE;
    std::size_t nLength = std::min<std::size_t>(std::strlen(pszMessage), nMaxError - 1);
    std::memcpy(lpszError, pszMessage, nLength);
    lpszError[nLength] = '\0';
    return TRUE;
}
