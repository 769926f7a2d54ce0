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
    // Name, a day by its form, a calendar date.
    const std::tuple<const char*, bool, bool> aCases[] = {
        {"d20020301", true, true},  {"/srv/vdb/Local/d20020301", true, true}, {"d20000229", true, true},
        {"d20021399", true, false}, {"d20020230", true, false},  {"d19600101", true, false},
        {"d99991231", true, false}, {"D20020301", false, false}, {"d2002030", false, false},
        {"d200203011", false, false}, {"d2002030a", false, false}, {"/srv/d20020301/x", false, false},
    };
    for (const auto& [pszName, bForm, bDate] : aCases) {
        SCOPED_TRACE(pszName);
        EXPECT_EQ(CHddObj::IsVideoDir(pszName), bForm ? 1 : 0);
        CTime tDate(12345);
        EXPECT_EQ(CHddObj::GetVideoDirDate(tDate, pszName), bDate ? 1 : 0);
        if (bDate) {
            EXPECT_EQ(DayName(static_cast<DWORD>(tDate.GetTime())), std::filesystem::path(pszName).filename());
        } else {
            EXPECT_EQ(tDate.GetTime(), 12345);
        }
    }
    CTime tDate;
    CHddObj::GetVideoDirDate(tDate, "d20020301");
    EXPECT_EQ(tDate.GetTime(), CTime(2002, 3, 1, 0, 0, 0, -1).GetTime());
}

TEST(HddObjDays, DaysOf23And25HoursHaveOneDateValueAndTheCalendarStepsOverThem)
{
    ScopedTimeZone zone(BerlinZone());
    for (const auto& [nMonth, nDay, tLength] : {std::tuple{3, 29, 23 * kHour}, {10, 25, 25 * kHour}, {6, 1, 24 * kHour}}) {
        SCOPED_TRACE(nMonth);
        const DWORD dwDate = LocalDate(2026, nMonth, nDay);
        EXPECT_EQ(CHddObj::GetDateOf(CTime(dwDate + tLength - 1)), dwDate);
        EXPECT_EQ(CHddObj::GetNextDate(dwDate), dwDate + tLength);
        EXPECT_EQ(CHddObj::GetDateOf(CTime(dwDate + tLength)), dwDate + tLength);
    }
    std::set<std::string> aNames;
    DWORD dwDate = LocalDate(2026, 1, 1);
    for (int i = 0; i < 365; ++i, dwDate = CHddObj::GetNextDate(dwDate))
        aNames.insert(DayName(dwDate));
    EXPECT_EQ(aNames.size(), 365u);
    EXPECT_EQ(DayName(dwDate), "d20270101");

    // Sao Paulo went from 2018-11-04 00:00 straight to 01:00: that day starts at 01:00.
    ScopedTimeZone skipping("America/Sao_Paulo");
    if (std::filesystem::exists("/usr/share/zoneinfo/America/Sao_Paulo")) {
        const DWORD dwSkipped = CHddObj::GetNextDate(LocalDate(2018, 11, 3));
        EXPECT_EQ(DayName(dwSkipped) + CTime(dwSkipped).Format(" %H:%M").GetStdString(), "d20181104 01:00");
        EXPECT_EQ(CHddObj::GetDateOf(CTime(dwSkipped + 5 * kHour)), dwSkipped);
        EXPECT_EQ(DayName(CHddObj::GetNextDate(dwSkipped)), "d20181105");
    }
}

TEST_F(StorageClockTest, TodaysDirectoryIsOnePerLocalDayAndTheListStaysAscendingWhenTheClockGoesBack)
{
    ScopedQuotaDisk disk(m_dir.Path() / "disk", 100);
    tag_HDDPARAM param;
    param.strBaseDir = disk.Path().c_str();
    CHddObj hdd;
    ASSERT_EQ(hdd.Create(&param, 0), 1);
    // The autumn day has 25 hours: 24 hours after 00:30 it is still that day.
    m_clock.SetCurrentTime(CTime(2026, 10, 25, 0, 30, 0, -1).GetTime());
    EXPECT_EQ(std::string(hdd.GetVideoDir()), disk / "Local/d20261025");
    m_clock.Advance(24 * kHour * 1000);
    EXPECT_EQ(std::string(hdd.GetVideoDir()), disk / "Local/d20261025");
    m_clock.Advance(kHour * 1000);
    EXPECT_EQ(std::string(hdd.GetVideoDir()), disk / "Local/d20261026");
    // Made again after someone removed it, a day is still listed once.
    std::filesystem::remove(disk / "Local/d20261026");
    EXPECT_EQ(std::string(hdd.GetVideoDir()), disk / "Local/d20261026");
    // The spring day has 23: steps of 23 hours from 23:30 meet every day. The clock went
    // back from October to March, and the March days still come first in the list.
    m_clock.SetCurrentTime(CTime(2026, 3, 28, 23, 30, 0, -1).GetTime());
    for (int i = 0; i < 4; ++i, m_clock.Advance(23 * kHour * 1000))
        hdd.GetVideoDir();
    std::vector<std::string> aDays;
    for (int i = 0; i < hdd.GetDirNum(CHddObj::DIR_LOCAL); ++i)
        aDays.push_back(DayName(hdd.GetDirDate(i, CHddObj::DIR_LOCAL)));
    EXPECT_EQ(aDays, (std::vector<std::string>{"d20260328", "d20260329", "d20260330", "d20260331", "d20261025",
                                               "d20261026"}));
}

} // namespace
