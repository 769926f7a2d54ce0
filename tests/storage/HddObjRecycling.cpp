// What one disk offers for recycling: its oldest day over the three trees, the deletion of
// a day, and a tree walk that deletes only what lies inside the tree.
#include "storage/CHddObj.h"

#include "platform/CFile.h"
#include "storage/StorageTestSupport.h"

namespace {

class HddObjRecycling : public StorageClockTest {
protected:
    void Bind()
    {
        tag_HDDPARAM param;
        param.strBaseDir = m_strBase.c_str();
        ASSERT_EQ(m_hdd.Create(&param, 0), 1);
    }

    static DWORD Day(int nDay) { return LocalDate(2026, 3, nDay); }

    ScopedQuotaDisk m_disk{m_dir.Path() / "disk", 1000};
    std::string m_strBase = m_disk / "vdb";
    CHddObj m_hdd;
};

TEST_F(HddObjRecycling, TheOldestDayIsTakenOverAllThreeTreesAboveTheMark)
{
    Bind();
    DWORD dwDate = 99;
    EXPECT_FALSE(m_hdd.FindOldestDir(dwDate, 0));
    EXPECT_EQ(dwDate, 0u);

    MakeDay(m_strBase, "Local", Day(5), {1});
    MakeDay(m_strBase, "Local", Day(9), {1});
    MakeDay(m_strBase, "Remote", Day(7), {1});
    MakeDay(m_strBase, "Picture", Day(3), {1});
    m_hdd.Refresh();
    const std::pair<DWORD, DWORD> aSteps[] = {
        {0, Day(3)}, {Day(3), Day(5)}, {Day(5), Day(7)}, {Day(7), Day(9)}, {Day(9), 0}};
    for (const auto& [dwAfter, dwOldest] : aSteps) {
        SCOPED_TRACE(DayName(dwAfter));
        EXPECT_EQ(m_hdd.FindOldestDir(dwDate, dwAfter), dwOldest != 0);
        EXPECT_EQ(dwDate, dwOldest);
    }
}

TEST_F(HddObjRecycling, DeletingADayRemovesItFromEveryTreeThatHasItAndCountsItsBytes)
{
    MakeDay(m_strBase, "Local", Day(4), {1000, 2 * kMegabyte});
    MakeDay(m_strBase, "Picture", Day(4), {24});
    MakeDay(m_strBase, "Remote", Day(5), {7});
    MakeDay(m_strBase, "Local", Day(6), {5});
    Bind();

    DWORD dwDeleted = 99;
    EXPECT_EQ(m_hdd.DeleteDate(Day(1), dwDeleted), 0);
    EXPECT_EQ(dwDeleted, 0u);
    ASSERT_EQ(m_hdd.DeleteDate(Day(4), dwDeleted), 1);
    EXPECT_EQ(dwDeleted, 1000 + 2 * kMegabyte + 24);
    EXPECT_FALSE(std::filesystem::exists(m_strBase + "/Local/" + DayName(Day(4))));
    EXPECT_FALSE(std::filesystem::exists(m_strBase + "/Picture/" + DayName(Day(4))));
    EXPECT_TRUE(std::filesystem::exists(m_strBase + "/Remote/" + DayName(Day(5))));
    EXPECT_EQ(m_hdd.GetDirNum(CHddObj::DIR_LOCAL), 1);
    EXPECT_EQ(m_hdd.GetPictureDirNum(), 0);

    // An empty day goes too, but frees nothing.
    MakeDay(m_strBase, "Local", Day(2));
    MakeDay(m_strBase, "Local", Day(3), {1});
    m_hdd.Refresh();
    EXPECT_FALSE(m_hdd.DeleteDate(Day(2), dwDeleted));
    EXPECT_FALSE(std::filesystem::exists(m_strBase + "/Local/" + DayName(Day(2))));
    EXPECT_FALSE(m_hdd.FindDate(Day(2), CHddObj::DIR_LOCAL));
}

TEST_F(HddObjRecycling, DeleteDirRemovesNestedTreesDepthFirstAndNeverFollowsALink)
{
    const std::string strDay = MakeDay(m_strBase, "Local", Day(4), {100, 200});
    MakeDay(strDay, "sub", Day(1), {30});
    std::filesystem::create_directory(m_disk / "keep");
    WriteWholeFile(m_disk / "keep/precious", "outside the store");
    WriteWholeFile(m_disk / "keep/file", "also outside");
    std::filesystem::create_directory_symlink(m_disk / "keep", strDay + "/linkdir");
    std::filesystem::create_symlink(m_disk / "keep/file", strDay + "/linkfile");
    std::filesystem::create_directory_symlink(m_disk / "keep", m_strBase + "/Local/" + DayName(Day(5)));

    CHddObj hdd;
    DWORD dwDeleted = 99;
    EXPECT_EQ(hdd.DeleteDir(strDay.c_str(), dwDeleted), 1);
    EXPECT_EQ(dwDeleted, 330u);
    EXPECT_FALSE(std::filesystem::exists(strDay));
    // A day directory that is itself a link goes as a link.
    EXPECT_EQ(hdd.DeleteDir((m_strBase + "/Local/" + DayName(Day(5))).c_str(), dwDeleted), 1);
    EXPECT_EQ(dwDeleted, 0u);
    EXPECT_EQ(ReadWholeFile(m_disk / "keep/precious").size(), 17u);
    EXPECT_TRUE(std::filesystem::exists(m_disk / "keep/file"));

    EXPECT_FALSE(hdd.DeleteDir((m_disk / "missing").c_str(), dwDeleted));
    EXPECT_EQ(dwDeleted, 0u);
}

TEST_F(HddObjRecycling, AFileInUseStopsTheDayWhichLeavesTheListAndStaysOnDiskUntilRefresh)
{
    const std::string strDay = MakeDay(m_strBase, "Local", Day(4), {100, 200, 300});
    MakeDay(m_strBase, "Local", Day(5), {1});
    Bind();
    CFile writer;
    ASSERT_EQ(writer.Open((strDay + "/cam1.zn").c_str(), CFile::modeWrite | CFile::modeNoTruncate), 1);

    DWORD dwDeleted = 0;
    EXPECT_EQ(m_hdd.DeleteDate(Day(4), dwDeleted), 1);
    EXPECT_EQ(dwDeleted, 100u);
    EXPECT_TRUE(std::filesystem::exists(strDay + "/cam1.zn"));
    EXPECT_TRUE(std::filesystem::exists(strDay + "/cam2.zn"));
    EXPECT_EQ(m_hdd.GetDirDate(0, CHddObj::DIR_LOCAL), Day(5));
    m_hdd.Refresh();
    EXPECT_EQ(m_hdd.GetDirDate(0, CHddObj::DIR_LOCAL), Day(4));

    writer.Close();
    EXPECT_EQ(m_hdd.DeleteDate(Day(4), dwDeleted), 1);
    EXPECT_EQ(dwDeleted, 500u);
    EXPECT_FALSE(std::filesystem::exists(strDay));
}

TEST_F(HddObjRecycling, TheDeletedSizeCountsWholeFilesInThirtyTwoBits)
{
    MakeDay(m_strBase, "Local", Day(4), {(std::uint64_t{5} << 30) + 7, std::uint64_t{3} << 30});
    Bind();
    DWORD dwDeleted = 0;
    EXPECT_EQ(m_hdd.DeleteDate(Day(4), dwDeleted), 1);
    // 5 GiB + 7 is 1 GiB + 7 in 32 bits; the 3 GiB file wraps the sum once more.
    EXPECT_EQ(dwDeleted, static_cast<DWORD>((std::uint64_t{1} << 30) + 7 + (std::uint64_t{3} << 30)));
}

} // namespace
