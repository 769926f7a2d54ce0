// The disk list of a store and its work disk: one disk per volume, how adding and the two
// ways of removing move the work disk, snapshots, and the space thresholds of CheckWorkHDD.
#include "storage/CZnDatabase.h"

#include "storage/StorageTestSupport.h"

#include <memory>

namespace {

class ZnDatabaseDisks : public StorageClockTest {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(m_disk1 / "store");
        ASSERT_EQ(m_db.Open((m_disk1 / "store").c_str(), 0x20020219, nullptr, (m_disk1 / "zndvr.dbs").c_str(), ""), 1);
    }

    int Add(const std::string& strBaseDir, DWORD dwReserved = 500)
    {
        tag_HDDPARAM param;
        param.strBaseDir = strBaseDir.c_str();
        param.dwReservedSpace = dwReserved;
        return m_db.AddHDD(&param);
    }

    std::string WorkBaseDir()
    {
        CString strName;
        CString strBase = "(none)";
        m_db.GetWorkHDD(strName, strBase);
        return static_cast<LPCSTR>(strBase);
    }

    ScopedQuotaDisk m_disk1{m_dir.Path() / "disk1", 1000};
    ScopedQuotaDisk m_disk2{m_dir.Path() / "disk2", 1000};
    CZnDatabase m_db;
};

TEST_F(ZnDatabaseDisks, OneDiskPerVolumeAndTheTwoRemovalsTreatTheWorkDiskDifferently)
{
    const std::string strFirst = m_disk1 / "store/database/";
    EXPECT_FALSE(Add(m_disk1 / "second"));
    EXPECT_FALSE(std::filesystem::exists(m_disk1 / "second"));
    ASSERT_EQ(Add(m_disk2 / "vdb", 20), 1);
    ASSERT_EQ(m_db.GetHddNum(), 2);
    EXPECT_EQ(WorkBaseDir(), strFirst);
    EXPECT_EQ(m_db.FindHddIndex(m_db.GetDbsName(1)), 1);
    EXPECT_EQ(m_db.FindHddIndex("ZnDatabase"), -1);
    EXPECT_EQ(m_db.GetHDDInfo("nothing"), nullptr);
    EXPECT_STREQ(m_db.GetBaseDir(2), "");
    EXPECT_STREQ(m_db.GetDbsName(-1), "");
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    DWORD dwFree = 0;
    m_disk2.SetFreeMegabytes(700);
    ASSERT_EQ(m_db.GetHddSpace(1, dwTotal, dwUsed, dwFree), 1);
    EXPECT_EQ(dwFree, 700u);
    EXPECT_FALSE(m_db.GetHddSpace(2, dwTotal, dwUsed, dwFree));

    // By path: the work disk goes and none takes its place until ChangeWorkDir.
    EXPECT_FALSE(m_db.RemoveHDD((m_dir / "elsewhere").c_str()));
    ASSERT_EQ(m_db.RemoveHDD((m_disk1 / "anything").c_str()), 1);
    EXPECT_EQ(WorkBaseDir(), "(none)");
    EXPECT_EQ(m_db.CheckWorkHDD(dwFree), DBS_ERROR_NOHDD);
    EXPECT_STREQ(m_db.GetVideoDir(), "");
    EXPECT_EQ(m_db.GetWorkHddFreeSpace(), 1000u);
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_EQ(WorkBaseDir(), m_disk2 / "vdb/");

    // By index: the first remaining disk takes over; the last one can't.
    ASSERT_EQ(Add(m_disk1 / "again"), 1);
    EXPECT_EQ(WorkBaseDir(), m_disk2 / "vdb/");
    EXPECT_EQ(m_db.RemoveHDD(0), 1);
    EXPECT_EQ(WorkBaseDir(), m_disk1 / "again/");
    EXPECT_FALSE(m_db.RemoveHDD(-1));
    EXPECT_FALSE(m_db.RemoveHDD(1));
    EXPECT_FALSE(m_db.RemoveHDD(0));
    EXPECT_EQ(m_db.GetHddNum(), 0);
    // The first disk of an empty store becomes the work disk.
    ASSERT_EQ(Add(m_disk2 / "vdb"), 1);
    EXPECT_EQ(WorkBaseDir(), m_disk2 / "vdb/");
    ASSERT_EQ(Add(m_disk1 / "again"), 1);
    EXPECT_EQ(m_db.RemoveHDD(1), 1);
    EXPECT_EQ(WorkBaseDir(), m_disk2 / "vdb/");
}

TEST_F(ZnDatabaseDisks, ParametersGoOutWithTheDisplayNameAndComeBackAsThePlainName)
{
    tag_HDDPARAM param;
    EXPECT_EQ(m_db.GetHddParam(1, &param), 0);
    ASSERT_EQ(m_db.GetHddParam(0, &param), 1);
    const std::string strDisplay = "ZnDatabase(" + m_disk1.Volume() + ")";
    EXPECT_EQ(std::string(param.strDbsName), strDisplay);
    param.dwReservedSpace = 100;
    ASSERT_EQ(m_db.ChangeBaseDir(7, &param), 1);
    EXPECT_EQ(std::string(m_db.GetDbsName(0)), strDisplay + "(" + m_disk1.Volume() + ")");
    EXPECT_EQ(m_db.GetHDDInfo(m_db.GetDbsName(0))->GetAlarmSpace(), 150u);
    param.strBaseDir = (m_disk2 / "vdb").c_str();
    EXPECT_EQ(m_db.ChangeBaseDir(0, &param), 0);
    EXPECT_EQ(m_db.SetOnceDelSpace(49), 0);
    EXPECT_EQ(m_db.GetOnceDelSpace(), 100u);
    EXPECT_EQ(m_db.SetOnceDelSpace(50), 1);
    EXPECT_EQ(m_db.GetOnceDelSpace(), 50u);
}

TEST_F(ZnDatabaseDisks, SnapshotsShowTheDaysOnDiskNowAndBelongToTheCaller)
{
    ASSERT_EQ(Add(m_disk2 / "vdb"), 1);
    MakeDay(m_disk2 / "vdb", "Local", LocalDate(2026, 3, 2), {1});
    MakeDay(m_disk2 / "vdb", "Remote", LocalDate(2026, 3, 3), {1});
    CObList list;
    ASSERT_EQ(m_db.GetHDDInfo(&list), 1);
    ASSERT_EQ(list.GetCount(), 2);
    auto* pSecond = static_cast<CHddObj*>(list.GetTail());
    EXPECT_EQ(pSecond->GetBaseDir(), m_db.GetBaseDir(1));
    EXPECT_EQ(pSecond->GetDbsName(), m_db.GetDbsName(1));
    EXPECT_EQ(pSecond->GetDirDate(0, CHddObj::DIR_LOCAL), LocalDate(2026, 3, 2));
    EXPECT_EQ(pSecond->GetDirDate(0, CHddObj::DIR_REMOTE), LocalDate(2026, 3, 3));
    EXPECT_EQ(m_db.GetHDDInfo(m_db.GetDbsName(1))->GetDirNum(CHddObj::DIR_LOCAL), 1);
    while (!list.IsEmpty())
        delete list.RemoveHead();
    EXPECT_FALSE(m_db.GetHDDInfo(static_cast<CObList*>(nullptr)));
}

TEST_F(ZnDatabaseDisks, CheckWorkHDDPlacesTheReservedSpaceInLowAndTheAlarmSpaceInOrder)
{
    const std::pair<DWORD, tag_ERROR_DBS> aCases[] = {{0, DBS_ERROR_NOSPACE},   {499, DBS_ERROR_NOSPACE},
                                                      {500, DBS_ERROR_LOWSPACE}, {549, DBS_ERROR_LOWSPACE},
                                                      {550, DBS_OK},             {900, DBS_OK}};
    for (const auto& [dwFree, nResult] : aCases) {
        SCOPED_TRACE(dwFree);
        m_disk1.SetFreeMegabytes(dwFree);
        DWORD dwMeasured = 12345;
        EXPECT_EQ(m_db.CheckWorkHDD(dwMeasured), nResult);
        EXPECT_EQ(dwMeasured, dwFree);
        EXPECT_EQ(m_db.GetWorkHddFreeSpace(), dwFree);
    }
    CZnDatabase closed;
    DWORD dwFree = 0;
    EXPECT_EQ(closed.CheckWorkHDD(dwFree), DBS_ERROR_NOHDD);
    EXPECT_EQ(closed.GetWorkHddFreeSpace(), 0u);
    EXPECT_EQ(closed.ChangeWorkDir(), DBS_ERROR_NOHDD);
    EXPECT_STREQ(closed.GetPictureDir(), "");
}

} // namespace
