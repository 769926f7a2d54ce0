#include "platform/CTime.h"
#include "platform/TimeZoneTestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <string>

namespace {

constexpr time_t kHour = 3600;

class CTimeBerlin : public ::testing::Test {
protected:
    ScopedTimeZone m_zone{BerlinZone()};
};

TEST_F(CTimeBerlin, LocalMidnightsAroundTheSpringChangeAre23AndAroundTheAutumnChange25HoursApart)
{
    CTime tSaturday(2026, 3, 28, 0, 0, 0, -1);
    CTime tSunday(2026, 3, 29, 0, 0, 0, -1);
    CTime tMonday(2026, 3, 30, 0, 0, 0, -1);
    EXPECT_EQ(tSunday.GetTime(), 1774738800);    // 2026-03-28 23:00 UTC
    EXPECT_EQ((tSunday - tSaturday).GetTotalSeconds(), 24 * kHour);
    EXPECT_EQ((tMonday - tSunday).GetTotalSeconds(), 23 * kHour);
    EXPECT_EQ(tMonday.Format("d%Y%m%d"), "d20260330");
    EXPECT_EQ(tMonday.GetHour(), 0);

    CTime tAutumnSunday(2026, 10, 25, 0, 0, 0, -1);
    CTime tAutumnMonday(2026, 10, 26, 0, 0, 0, -1);
    EXPECT_EQ((tAutumnMonday - tAutumnSunday).GetTotalSeconds(), 25 * kHour);
    EXPECT_EQ(tAutumnSunday.Format("%Y-%m-%d %H:%M:%S"), "2026-10-25 00:00:00");
    EXPECT_EQ(tAutumnMonday.Format("%Y-%m-%d %H:%M:%S"), "2026-10-26 00:00:00");
}

TEST_F(CTimeBerlin, DaylightFlagChoosesBetweenTheTwoReadingsOfARepeatedHour)
{
    // 02:30 on 2026-10-25 happens twice: first in summer time, then in winter time.
    CTime tSummer(2026, 10, 25, 2, 30, 0, 1);
    CTime tWinter(2026, 10, 25, 2, 30, 0, 0);
    EXPECT_EQ(tSummer.FormatGmt("%H:%M"), "00:30");
    EXPECT_EQ(tWinter.FormatGmt("%H:%M"), "01:30");
    CTime tEither(2026, 10, 25, 2, 30, 0, -1);
    EXPECT_TRUE(tEither == tSummer || tEither == tWinter);
    EXPECT_EQ(tEither.GetHour(), 2);
    EXPECT_EQ(tEither.GetMinute(), 30);
}

TEST_F(CTimeBerlin, MissingHourOfTheSpringChangeStillGivesATime)
{
    CTime tMissing(2026, 3, 29, 2, 30, 0, -1);
    ASSERT_NE(tMissing.GetTime(), -1);
    CTime tBefore(2026, 3, 29, 1, 59, 59, -1);
    CTime tAfter(2026, 3, 29, 4, 0, 0, -1);
    EXPECT_GT(tMissing, tBefore);
    EXPECT_LT(tMissing, tAfter);
}

TEST_F(CTimeBerlin, BrokenDownFieldsFollowTheLocalZone)
{
    CTime tWhen(static_cast<time_t>(1014937200));    // 2002-02-28 23:00 UTC
    struct tm atm = {};
    ASSERT_EQ(tWhen.GetLocalTm(&atm), &atm);
    EXPECT_EQ(atm.tm_year, 102);
    EXPECT_EQ(atm.tm_mon, 2);
    EXPECT_EQ(atm.tm_mday, 1);
    EXPECT_EQ(atm.tm_hour, 0);
    struct tm* pThreadTm = tWhen.GetLocalTm();
    ASSERT_NE(pThreadTm, nullptr);
    EXPECT_EQ(pThreadTm->tm_mday, 1);
    EXPECT_EQ(tWhen.GetYear(), 2002);
    EXPECT_EQ(tWhen.GetMonth(), 3);
    EXPECT_EQ(tWhen.GetDay(), 1);
    EXPECT_EQ(tWhen.GetDayOfWeek(), 6);    // a Friday
    EXPECT_EQ(tWhen.GetSecond(), 0);
    EXPECT_EQ(tWhen.GetGmtTm()->tm_mday, 28);
}

TEST(CTimeZone, ChangedZoneIsSeenByTheNextConversion)
{
    CTime tWhen(static_cast<time_t>(1014937200));
    {
        ScopedTimeZone zone("UTC");
        EXPECT_EQ(tWhen.Format("%d %H"), "28 23");
    }
    {
        ScopedTimeZone zone("JST-9");
        EXPECT_EQ(tWhen.Format("%d %H"), "01 08");
        EXPECT_EQ(CTime(2002, 3, 1, 8, 0, 0, -1), tWhen);
    }
}

TEST_F(CTimeBerlin, OutOfRangeFieldsCarryIntoTheNextField)
{
    // A day directory "d20021399": month 13 is January 2003, day 99 of it is April 9.
    EXPECT_EQ(CTime(2002, 13, 99, 0, 0, 0, -1), CTime(2003, 4, 9, 0, 0, 0, -1));
    EXPECT_EQ(CTime(2002, 3, 0, 0, 0, 0, -1), CTime(2002, 2, 28, 0, 0, 0, -1));
}

TEST_F(CTimeBerlin, UnrepresentableFieldsGiveMinusOneAndNeverTrap)
{
    EXPECT_EQ(CTime(INT_MIN, 1, 1, 0, 0, 0, -1).GetTime(), -1);
    EXPECT_EQ(CTime(2002, INT_MIN, 1, 0, 0, 0, -1).GetTime(), -1);
    EXPECT_EQ(CTime(INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, -1).GetTime(), -1);
    CTime tHuge(static_cast<time_t>(LLONG_MAX));
    EXPECT_EQ(tHuge.GetLocalTm(), nullptr);
    EXPECT_EQ(tHuge.GetYear(), 0);
    EXPECT_EQ(tHuge.GetDayOfWeek(), 0);
    EXPECT_EQ(tHuge.Format("%Y"), "");
    CTime tWrapped = tHuge + CTimeSpan(1);
    EXPECT_EQ(tWrapped.GetTime(), LLONG_MIN);
}

TEST(CTimeFormat, PatternsExpandBeyondAnyFixedBufferAndEmptyPatternsGiveNothing)
{
    ScopedTimeZone zone("UTC");
    CTime tWhen(static_cast<time_t>(1014940800));    // 2002-03-01 00:00 UTC
    std::string strPattern;
    std::string strExpected;
    for (int i = 0; i < 100; ++i) {
        strPattern += "%Y%m%d ";
        strExpected += "20020301 ";
    }
    EXPECT_EQ(tWhen.Format(strPattern.c_str()), strExpected.c_str());
    EXPECT_EQ(tWhen.Format(""), "");
    EXPECT_EQ(tWhen.Format(nullptr), "");
    EXPECT_EQ(tWhen.FormatGmt("%H:%M:%S"), "00:00:00");
}

TEST(CTimeArithmetic, SecondsAddAndTimesCompare)
{
    CTime tBegin(static_cast<time_t>(1014940800));
    CTime tLater = tBegin + CTimeSpan(90);
    EXPECT_EQ(tLater.GetTime(), 1014940890);
    EXPECT_EQ((tLater - tBegin).GetTotalSeconds(), 90);
    EXPECT_EQ((tBegin - tLater).GetTotalSeconds(), -90);
    EXPECT_EQ(tLater - CTimeSpan(90), tBegin);
    EXPECT_TRUE(tBegin < tLater);
    EXPECT_FALSE(tBegin > tBegin);
    tLater -= CTimeSpan(0, 0, 1, 30);
    tLater += CTimeSpan(1, 2, 3, 4);
    CTimeSpan span = tLater - tBegin;
    EXPECT_EQ(span.GetDays(), 1);
    EXPECT_EQ(span.GetHours(), 2);
    EXPECT_EQ(span.GetMinutes(), 3);
    EXPECT_EQ(span.GetSeconds(), 4);
    EXPECT_EQ(span.GetTotalMinutes(), 24 * 60 + 2 * 60 + 3);
}

} // namespace
