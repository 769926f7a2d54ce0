#include "ToolFormat.h"

#include "platform/CTime.h"

#include <cstdio>

bool ParseLocalTime(const char* pszText, bool bDayOnly, DWORD& dwTime)
{
    int nYear = 0;
    int nMonth = 0;
    int nDay = 0;
    int nHour = 0;
    int nMinute = 0;
    int nSecond = 0;
    int nLength = 0;
    const std::string strText = pszText;
    bool bParsed = std::sscanf(pszText, "%4d-%2d-%2d%n", &nYear, &nMonth, &nDay, &nLength) == 3 &&
                   static_cast<std::size_t>(nLength) == strText.size();
    if (!bParsed && !bDayOnly) {
        nLength = 0;
        bParsed = (std::sscanf(pszText, "%4d-%2d-%2d%*1[ T]%2d:%2d:%2d%n", &nYear, &nMonth, &nDay, &nHour, &nMinute,
                               &nSecond, &nLength) == 6 ||
                   std::sscanf(pszText, "%4d-%2d-%2d%*1[ T]%2d:%2d%n", &nYear, &nMonth, &nDay, &nHour, &nMinute,
                               &nLength) == 5) &&
                  static_cast<std::size_t>(nLength) == strText.size();
    }
    if (!bParsed || nYear < 1970 || nHour > 23 || nMinute > 59 || nSecond > 59)
        return false;
    const CTime tTime(nYear, nMonth, nDay, nHour, nMinute, nSecond, -1);
    // The constructor carries a day 31 of a short month into the next: only a date that
    // comes back as it was written exists.
    if (tTime.GetYear() != nYear || tTime.GetMonth() != nMonth || tTime.GetDay() != nDay || tTime.GetTime() < 0 ||
        tTime.GetTime() > static_cast<time_t>(0xFFFFFFFF))
        return false;
    dwTime = static_cast<DWORD>(tTime.GetTime());
    return true;
}

std::string FormatLocalTime(DWORD dwTime)
{
    return static_cast<LPCSTR>(CTime(static_cast<time_t>(dwTime)).Format("%Y-%m-%d %H:%M:%S"));
}

std::string FormatDuration(DWORD dwBegin, DWORD dwEnd)
{
    if (dwEnd < dwBegin)
        return "-";
    const DWORD dwSeconds = dwEnd - dwBegin;
    char szText[32];
    std::snprintf(szText, sizeof(szText), "%lu:%02lu:%02lu", static_cast<unsigned long>(dwSeconds / 3600),
                  static_cast<unsigned long>(dwSeconds / 60 % 60), static_cast<unsigned long>(dwSeconds % 60));
    return szText;
}

std::string JsonString(const CString& strText)
{
    std::string strJson = "\"";
    for (int i = 0; i < strText.GetLength(); ++i) {
        const auto byChar = static_cast<unsigned char>(strText[i]);
        if (byChar == '"' || byChar == '\\') {
            strJson += '\\';
            strJson += static_cast<char>(byChar);
        } else if (byChar < 0x20 || byChar >= 0x7F) {
            char szEscape[8];
            std::snprintf(szEscape, sizeof(szEscape), "\\u%04x", byChar);
            strJson += szEscape;
        } else {
            strJson += static_cast<char>(byChar);
        }
    }
    return strJson + "\"";
}
