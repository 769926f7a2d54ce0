#include "platform/CTime.h"

#include "platform/PlatformState.h"

#include <climits>
#include <string>
#include <type_traits>

namespace {

constexpr time_t kSecondsPerMinute = 60;
constexpr time_t kSecondsPerHour = 60 * kSecondsPerMinute;
constexpr time_t kSecondsPerDay = 24 * kSecondsPerHour;
constexpr std::size_t kFirstFormatBuffer = 128;
constexpr std::size_t kMaxFormatBuffer = 64 * 1024;
constexpr int kTmYearBase = 1900;

thread_local struct tm t_tmBuffer;

struct tm* TargetOf(struct tm* ptm)
{
    return ptm != nullptr ? ptm : &t_tmBuffer;
}

// Arithmetic on times wraps instead of overflowing, so that no value can trap.
time_t WrappingAdd(time_t timeLeft, time_t timeRight)
{
    using UnsignedTime = std::make_unsigned_t<time_t>;
    return static_cast<time_t>(static_cast<UnsignedTime>(timeLeft) + static_cast<UnsignedTime>(timeRight));
}

time_t WrappingSubtract(time_t timeLeft, time_t timeRight)
{
    using UnsignedTime = std::make_unsigned_t<time_t>;
    return static_cast<time_t>(static_cast<UnsignedTime>(timeLeft) - static_cast<UnsignedTime>(timeRight));
}

// The C library's strftime gives 0 both for an empty result and for a result that does
// not fit; the buffer grows until the text fits or the limit says it never will.
CString FormatTm(LPCSTR pFormat, const struct tm* ptm)
{
    if (pFormat == nullptr || *pFormat == '\0' || ptm == nullptr)
        return CString();
    std::string strBuffer(kFirstFormatBuffer, '\0');
    for (;;) {
        std::size_t nLength = std::strftime(strBuffer.data(), strBuffer.size(), pFormat, ptm);
        if (nLength > 0) {
            strBuffer.resize(nLength);
            return CString(std::move(strBuffer));
        }
        if (strBuffer.size() >= kMaxFormatBuffer)
            return CString();
        strBuffer.resize(strBuffer.size() * 2);
    }
}

} // namespace

CTimeSpan::CTimeSpan(time_t time) : m_timeSpan(time)
{
}

CTimeSpan::CTimeSpan(LONG lDays, int nHours, int nMins, int nSecs)
    : m_timeSpan(lDays * kSecondsPerDay + nHours * kSecondsPerHour + nMins * kSecondsPerMinute + nSecs)
{
}

LONG CTimeSpan::GetDays() const
{
    return static_cast<LONG>(m_timeSpan / kSecondsPerDay);
}

LONG CTimeSpan::GetTotalHours() const
{
    return static_cast<LONG>(m_timeSpan / kSecondsPerHour);
}

int CTimeSpan::GetHours() const
{
    return static_cast<int>(GetTotalHours() - GetDays() * 24);
}

LONG CTimeSpan::GetTotalMinutes() const
{
    return static_cast<LONG>(m_timeSpan / kSecondsPerMinute);
}

int CTimeSpan::GetMinutes() const
{
    return static_cast<int>(GetTotalMinutes() - GetTotalHours() * 60);
}

time_t CTimeSpan::GetTimeSpan() const
{
    return m_timeSpan;
}

LONG CTimeSpan::GetTotalSeconds() const
{
    return static_cast<LONG>(m_timeSpan);
}

int CTimeSpan::GetSeconds() const
{
    return static_cast<int>(GetTotalSeconds() - GetTotalMinutes() * 60);
}

CTimeSpan CTimeSpan::operator-(CTimeSpan timeSpan) const
{
    return CTimeSpan(WrappingSubtract(m_timeSpan, timeSpan.m_timeSpan));
}

CTimeSpan CTimeSpan::operator+(CTimeSpan timeSpan) const
{
    return CTimeSpan(WrappingAdd(m_timeSpan, timeSpan.m_timeSpan));
}

const CTimeSpan& CTimeSpan::operator+=(CTimeSpan timeSpan)
{
    m_timeSpan = WrappingAdd(m_timeSpan, timeSpan.m_timeSpan);
    return *this;
}

const CTimeSpan& CTimeSpan::operator-=(CTimeSpan timeSpan)
{
    m_timeSpan = WrappingSubtract(m_timeSpan, timeSpan.m_timeSpan);
    return *this;
}

CTime CTime::GetCurrentTime()
{
    zndvr::PlatformLock lock(zndvr::GetPlatformState().m_mutex);
    const std::int64_t nWallMs = zndvr::GetWallClockMs();
    return CTime(static_cast<time_t>(nWallMs / 1000));
}

CTime::CTime(time_t time) : m_time(time)
{
}

CTime::CTime(int nYear, int nMonth, int nDay, int nHour, int nMin, int nSec, int nDST)
{
    // tm_year counts from 1900 and tm_mon from 0; values whose offset would overflow
    // are refused rather than wrapped.
    if (nYear < INT_MIN + kTmYearBase || nMonth == INT_MIN) {
        m_time = -1;
        return;
    }
    struct tm atm = {};
    atm.tm_sec = nSec;
    atm.tm_min = nMin;
    atm.tm_hour = nHour;
    atm.tm_mday = nDay;
    atm.tm_mon = nMonth - 1;
    atm.tm_year = nYear - kTmYearBase;
    atm.tm_isdst = nDST;
    m_time = std::mktime(&atm);
}

time_t CTime::GetTime() const
{
    return m_time;
}

struct tm* CTime::GetGmtTm(struct tm* ptm) const
{
    return gmtime_r(&m_time, TargetOf(ptm));
}

struct tm* CTime::GetLocalTm(struct tm* ptm) const
{
    // localtime_r, unlike localtime, need not look at TZ again.
    tzset();
    return localtime_r(&m_time, TargetOf(ptm));
}

int CTime::GetYear() const
{
    struct tm atm;
    if (GetLocalTm(&atm) == nullptr || atm.tm_year > INT_MAX - kTmYearBase)
        return 0;
    return atm.tm_year + kTmYearBase;
}

int CTime::GetMonth() const
{
    struct tm atm;
    return GetLocalTm(&atm) != nullptr ? atm.tm_mon + 1 : 0;
}

int CTime::GetDay() const
{
    struct tm atm;
    return GetLocalTm(&atm) != nullptr ? atm.tm_mday : 0;
}

int CTime::GetHour() const
{
    struct tm atm;
    return GetLocalTm(&atm) != nullptr ? atm.tm_hour : 0;
}

int CTime::GetMinute() const
{
    struct tm atm;
    return GetLocalTm(&atm) != nullptr ? atm.tm_min : 0;
}

int CTime::GetSecond() const
{
    struct tm atm;
    return GetLocalTm(&atm) != nullptr ? atm.tm_sec : 0;
}

int CTime::GetDayOfWeek() const
{
    struct tm atm;
    return GetLocalTm(&atm) != nullptr ? atm.tm_wday + 1 : 0;
}

CString CTime::Format(LPCSTR pFormat) const
{
    struct tm atm;
    return FormatTm(pFormat, GetLocalTm(&atm));
}

CString CTime::FormatGmt(LPCSTR pFormat) const
{
    struct tm atm;
    return FormatTm(pFormat, GetGmtTm(&atm));
}

CTimeSpan CTime::operator-(CTime time) const
{
    return CTimeSpan(WrappingSubtract(m_time, time.m_time));
}

CTime CTime::operator-(CTimeSpan timeSpan) const
{
    return CTime(WrappingSubtract(m_time, timeSpan.GetTimeSpan()));
}

CTime CTime::operator+(CTimeSpan timeSpan) const
{
    return CTime(WrappingAdd(m_time, timeSpan.GetTimeSpan()));
}

const CTime& CTime::operator+=(CTimeSpan timeSpan)
{
    m_time = WrappingAdd(m_time, timeSpan.GetTimeSpan());
    return *this;
}

const CTime& CTime::operator-=(CTimeSpan timeSpan)
{
    m_time = WrappingSubtract(m_time, timeSpan.GetTimeSpan());
    return *this;
}
