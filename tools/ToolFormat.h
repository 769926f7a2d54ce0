// Times and text as the host program's commands show and take them: local times,
// durations, and JSON strings.
#pragma once

#include "platform/CString.h"
#include "platform/WinTypes.h"

#include <string>

// "YYYY-MM-DD" (midnight) or, unless bDayOnly, also "YYYY-MM-DD HH:MM[:SS]" or with a 'T',
// in local time; false for anything else, a date that doesn't exist included.
bool ParseLocalTime(const char* pszText, bool bDayOnly, DWORD& dwTime);
// "YYYY-MM-DD HH:MM:SS" in local time.
std::string FormatLocalTime(DWORD dwTime);
// "H:MM:SS" from dwBegin to dwEnd; "-" when the end lies before the begin.
std::string FormatDuration(DWORD dwBegin, DWORD dwEnd);
// The text as a JSON string with its quotes; bytes that aren't printable ASCII are
// escaped as \u00XX, so that names of any encoding give valid JSON.
std::string JsonString(const CString& strText);
