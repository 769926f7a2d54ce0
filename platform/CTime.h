// Wall-clock time in whole seconds since 1970-01-01 00:00:00 UTC, with local time taken
// from the C library under the process's TZ (re-read at every local conversion). Value
// types; reentrant.
#pragma once

#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <ctime>

// A signed difference of two times, in seconds.
class ZNDVR_API CTimeSpan {
public:
    CTimeSpan() = default;
    CTimeSpan(time_t time);
    CTimeSpan(LONG lDays, int nHours, int nMins, int nSecs);

    // The whole span; the LONG getters below cut it to 32 bits.
    time_t GetTimeSpan() const;
    LONG GetDays() const;
    LONG GetTotalHours() const;
    int GetHours() const;
    LONG GetTotalMinutes() const;
    int GetMinutes() const;
    LONG GetTotalSeconds() const;
    int GetSeconds() const;

    CTimeSpan operator-(CTimeSpan timeSpan) const;
    CTimeSpan operator+(CTimeSpan timeSpan) const;
    const CTimeSpan& operator+=(CTimeSpan timeSpan);
    const CTimeSpan& operator-=(CTimeSpan timeSpan);
    auto operator<=>(const CTimeSpan&) const = default;

private:
    time_t m_timeSpan = 0;
};

class ZNDVR_API CTime {
public:
    // The wall clock, or the one a CTestClock drives while it lives (TickClock.h).
    static CTime GetCurrentTime();

    CTime() = default;
    CTime(time_t time);
    // Local time. Fields out of their range are carried into the next larger field as
    // the C library's mktime does (month 13 is January of the next year). nDST -1 lets
    // the time-zone rules decide whether daylight saving applies, 0 says standard time,
    // 1 daylight time. A moment that cannot be represented gives the value -1.
    CTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec, int nDST = -1);

    time_t GetTime() const;

    // Broken-down time: into *ptm, or into a buffer of the calling thread when ptm is
    // null. Null when the value has no broken-down form.
    struct tm* GetGmtTm(struct tm* ptm = nullptr) const;
    struct tm* GetLocalTm(struct tm* ptm = nullptr) const;

    // Fields of the local time; 0 when the value has no broken-down form.
    int GetYear() const;
    int GetMonth() const;        // 1 to 12
    int GetDay() const;          // 1 to 31
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    int GetDayOfWeek() const;    // 1 = Sunday to 7 = Saturday

    // strftime patterns on the local (Format) or UTC (FormatGmt) time; empty when the
    // pattern is null or the value has no broken-down form.
    CString Format(LPCSTR pFormat) const;
    CString FormatGmt(LPCSTR pFormat) const;

    CTimeSpan operator-(CTime time) const;
    CTime operator-(CTimeSpan timeSpan) const;
    CTime operator+(CTimeSpan timeSpan) const;
    const CTime& operator+=(CTimeSpan timeSpan);
    const CTime& operator-=(CTimeSpan timeSpan);
    auto operator<=>(const CTime&) const = default;

private:
    time_t m_time = 0;
};
