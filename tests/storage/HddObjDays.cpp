// Day directory names and date values, under daylight saving as well: one directory and
// one date value per local day, whatever its length, and a walk over days that neither
// repeats nor skips one.
#include "storage/CHddObj.h"

#include "storage/StorageTestSupport.h"

#include <set>

namespace {

constexpr time_t kHour = 3600;

TEST(HddObjDays, OnlyNineCharacterDayNamesThatAreCalendarDatesAreDays)
{
    ScopedTimeZone zone(BerlinZone());
    struct tag_NAMECASE {
        const char* pszName;
        bool bForm;
        bool bDate;
    };
    const tag_NAMECASE aCases[] = {
        {"d20020301", true, true},          {"/srv/vdb/Local/d20020301", true, true},
        {"d20000229", true, true},          {"d20021399", true, false},
        {"d20020230", true, false},         {"d20020300", true, false},
        {"d19600101", true, false},         {"d99991231", true, false},
        {"D20020301", false, false},        {"d2002030", false, false},
        {"d200203011", false, false},       {"d2002030a", false, false},
        {"/srv/d20020301/other", false, false}, {"", false, false},
    };
    for (const tag_NAMECASE& nameCase : aCases) {
        SCOPED_TRACE(nameCase.pszName);
        EXPECT_EQ(CHddObj::IsVideoDir(nameCase.pszName) != 0, nameCase.bForm);
        const CTime tUntouched(12345);
        CTime tDate = tUntouched;
        EXPECT_EQ(CHddObj::GetVideoDirDate(tDate, nameCase.pszName) != 0, nameCase.bDate);
        if (nameCase.bDate)
            EXPECT_EQ(DayName(static_cast<DWORD>(tDate.GetTime())), std::filesystem::path(nameCase.pszName).filename());
        else
            EXPECT_EQ(tDate, tUntouched);
    }
    CTime tDate;
    ASSERT_TRUE(CHddObj::GetVideoDirDate(tDate, "d20020301"));
    EXPECT_EQ(tDate.GetTime(), CTime(2002, 3, 1, 0, 0, 0, -1).GetTime());
}

TEST(HddObjDays, DaysOf23And25HoursHaveOneDateValueAndTheCalendarStepsOverThem)
{
    ScopedTimeZone zone(BerlinZone());
    struct tag_DAYCASE {
        int nMonth;
        int nDay;
        time_t tLength;
    };
    const tag_DAYCASE aCases[] = {{3, 29, 23 * kHour}, {10, 25, 25 * kHour}, {6, 1, 24 * kHour}};
    for (const tag_DAYCASE& dayCase : aCases) {
        SCOPED_TRACE(dayCase.nMonth);
        const DWORD dwDate = LocalDate(2026, dayCase.nMonth, dayCase.nDay);
        EXPECT_EQ(CHddObj::GetDateOf(CTime(dwDate)), dwDate);
        EXPECT_EQ(CHddObj::GetDateOf(CTime(dwDate + dayCase.tLength - 1)), dwDate);
        EXPECT_EQ(CHddObj::GetNextDate(dwDate), dwDate + dayCase.tLength);
        EXPECT_EQ(CHddObj::GetDateOf(CTime(dwDate + dayCase.tLength)), dwDate + dayCase.tLength);
    }
    // A year of steps names every day once, in order.
    std::set<std::string> aNames;
    DWORD dwDate = LocalDate(2026, 1, 1);
    for (int i = 0; i < 365; ++i) {
        aNames.insert(DayName(dwDate));
        dwDate = CHddObj::GetNextDate(dwDate);
    }
    EXPECT_EQ(aNames.size(), 365u);
    EXPECT_EQ(DayName(dwDate), "d20270101");
}

TEST(HddObjDays, AZoneThatSkipsMidnightStartsTheDayAtItsFirstMoment)
{
    // On 2018-11-04 the clocks of Sao Paulo went from 00:00 straight to 01:00.
    if (!std::filesystem::exists("/usr/share/zoneinfo/America/Sao_Paulo"))
        GTEST_SKIP() << "no zone database";
    ScopedTimeZone zone("America/Sao_Paulo");
    const DWORD dwBefore = LocalDate(2018, 11, 3);
    const DWORD dwSkipped = CHddObj::GetNextDate(dwBefore);
    EXPECT_EQ(DayName(dwSkipped), "d20181104");
    EXPECT_EQ(CTime(dwSkipped).GetHour(), 1);
    EXPECT_EQ(CHddObj::GetDateOf(CTime(dwSkipped + 5 * kHour)), dwSkipped);
    EXPECT_EQ(DayName(CHddObj::GetNextDate(dwSkipped)), "d20181105");
    CTime tDate;
    ASSERT_TRUE(CHddObj::GetVideoDirDate(tDate, "d20181104"));
    EXPECT_EQ(static_cast<DWORD>(tDate.GetTime()), dwSkipped);
}

TEST(HddObjDays, DateValuesOutsideThirtyTwoBitsAreNone)
{
    ScopedTimeZone zone("UTC0");
    EXPECT_EQ(CHddObj::GetDateOf(CTime(-kHour)), 0u);
    EXPECT_EQ(CHddObj::GetDateOf(CTime(kHour)), 0u);
    EXPECT_EQ(CHddObj::GetDateOf(CTime(86400 + kHour)), 86400u);
    EXPECT_EQ(CHddObj::GetNextDate(LocalDate(2106, 2, 6)), LocalDate(2106, 2, 7));
    EXPECT_EQ(CHddObj::GetNextDate(LocalDate(2106, 2, 7)), 0u);
}

class HddObjToday : public StorageClockTest {
protected:
    void SetUp() override
    {
        tag_HDDPARAM param;
        param.strBaseDir = m_disk.Path().c_str();
        ASSERT_TRUE(m_hdd.Create(&param, 0));
    }

    void MoveClockTo(int nMonth, int nDay, int nHour, int nMinute)
    {
        m_clock.SetCurrentTime(CTime(2026, nMonth, nDay, nHour, nMinute, 0, -1).GetTime());
    }

    ScopedQuotaDisk m_disk{m_dir.Path() / "disk", 100};
    CHddObj m_hdd;
};

TEST_F(HddObjToday, TheLongAutumnDayIsOneDirectoryAndMidnightStartsTheNext)
{
    MoveClockTo(10, 25, 0, 30);
    const std::string strFirst = static_cast<LPCSTR>(m_hdd.GetVideoDir());
    EXPECT_EQ(strFirst, m_disk / "Local/d20261025");
    // 24 hours later it is still the same day.
    m_clock.Advance(24 * kHour * 1000);
    EXPECT_EQ(CTime::GetCurrentTime().GetHour(), 23);
    EXPECT_EQ(std::string(m_hdd.GetVideoDir()), strFirst);
    EXPECT_EQ(m_hdd.GetDirNum(CHddObj::DIR_LOCAL), 1);
    m_clock.Advance(kHour * 1000);
    EXPECT_EQ(std::string(m_hdd.GetVideoDir()), m_disk / "Local/d20261026");
    ASSERT_EQ(m_hdd.GetDirNum(CHddObj::DIR_LOCAL), 2);
    EXPECT_EQ(m_hdd.GetDirDate(0, 0), LocalDate(2026, 10, 25));
    EXPECT_EQ(m_hdd.GetDirDate(1, 0), LocalDate(2026, 10, 26));
}

TEST_F(HddObjToday, TheShortSpringDayEndsAfter23HoursAndNoDayIsSkipped)
{
    MoveClockTo(3, 28, 23, 30);
    m_hdd.GetPictureDir();
    for (int i = 0; i < 3; ++i) {
        m_clock.Advance(23 * kHour * 1000);
        m_hdd.GetPictureDir();
    }
    ASSERT_EQ(m_hdd.GetPictureDirNum(), 4);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(m_hdd.GetPictureDirDate(i + 1), CHddObj::GetNextDate(m_hdd.GetPictureDirDate(i)));
    EXPECT_EQ(DayName(m_hdd.GetPictureDirDate(3)), "d20260331");
}

TEST_F(HddObjToday, AClockSetBackKeepsTheListsAscending)
{
    MoveClockTo(3, 12, 9, 0);
    m_hdd.GetRemoteVideoDir();
    MoveClockTo(3, 11, 9, 0);
    m_hdd.GetRemoteVideoDir();
    m_hdd.GetRemoteVideoDir();
    ASSERT_EQ(m_hdd.GetDirNum(CHddObj::DIR_REMOTE), 2);
    EXPECT_EQ(m_hdd.GetDirDate(0, CHddObj::DIR_REMOTE), LocalDate(2026, 3, 11));
    EXPECT_EQ(m_hdd.GetDirDate(1, CHddObj::DIR_REMOTE), LocalDate(2026, 3, 12));
}

} // namespace
