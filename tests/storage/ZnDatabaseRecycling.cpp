// ChangeWorkDir: the room pass, then the oldest days before today across the recycling
// disks, each recycled day told to the host, until one disk has enough.
#include "storage/CZnDatabase.h"

#include "platform/CFile.h"
#include "platform/PlatformTestWindows.h"
#include "storage/StorageTestSupport.h"
#include "vocabulary/Messages.h"

namespace {

void CollectDate(DWORD dwDate, LPVOID pContext)
{
    static_cast<std::vector<DWORD>*>(pContext)->push_back(dwDate);
}

class ZnDatabaseRecycling : public StorageClockTest {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 3; ++i)
            m_aDisks.push_back(std::make_unique<ScopedQuotaDisk>(m_dir.Path() / ("disk" + std::to_string(i)), 2000));
    }

    // Opens the store with the first nDisks disks, each at "<disk>/vdb".
    void OpenStore(int nDisks)
    {
        ASSERT_EQ(m_db.Open(m_aDisks[0]->Path().c_str(), 0, m_window.m_hWnd, (*m_aDisks[0] / "zndvr.dbs").c_str(), ""), 1);
        m_db.RemoveHDD(0);
        ASSERT_EQ(m_db.GetHddNum(), 0);
        for (int i = 0; i < nDisks; ++i) {
            tag_HDDPARAM param;
            param.strBaseDir = (*m_aDisks[static_cast<std::size_t>(i)] / "vdb").c_str();
            ASSERT_EQ(m_db.AddHDD(&param), 1);
        }
        m_db.SetDateDeletedCallback(&CollectDate, &m_aCalledBack);
    }

    // A day of one file of nMegabytes on disk nDisk.
    std::string PutDay(int nDisk, int nDay, std::uint64_t nMegabytes, const char* pszTree = "Local")
    {
        return MakeDay(*m_aDisks[static_cast<std::size_t>(nDisk)] / "vdb", pszTree, Day(nDay), {nMegabytes * kMegabyte});
    }

    void SetFree(int nDisk, DWORD dwFree) { m_aDisks[static_cast<std::size_t>(nDisk)]->SetFreeMegabytes(dwFree); }

    bool HasDay(int nDisk, int nDay, const char* pszTree = "Local") const
    {
        return std::filesystem::exists(*m_aDisks[static_cast<std::size_t>(nDisk)] / "vdb/" + pszTree + "/" +
                                       DayName(Day(nDay)));
    }

    std::string WorkVolume()
    {
        CString strName;
        CString strBase;
        if (m_db.GetWorkHDD(strName, strBase) != DBS_OK)
            return "(none)";
        return static_cast<LPCSTR>(m_db.GetHDDInfo(strName)->GetHDD());
    }

    // The dates that reached the window, in order.
    std::vector<DWORD> SentDates() const
    {
        std::vector<DWORD> aDates;
        for (const MSG& msg : m_window.m_received) {
            EXPECT_EQ(msg.message, WM_ZN_DATEDELETED);
            EXPECT_EQ(msg.wParam, 0u);
            aDates.push_back(static_cast<DWORD>(msg.lParam));
        }
        return aDates;
    }

    static DWORD Day(int nDay) { return LocalDate(2026, 3, nDay); }

    std::vector<std::unique_ptr<ScopedQuotaDisk>> m_aDisks;
    CRecordingWnd m_window;
    CZnDatabase m_db;
    std::vector<DWORD> m_aCalledBack;
};

TEST_F(ZnDatabaseRecycling, TheFirstDiskAboveItsAlarmSpaceWinsWithoutDeletingAnything)
{
    PutDay(0, 1, 150);
    PutDay(1, 2, 1);
    OpenStore(2);
    SetFree(0, 400);
    SetFree(1, 600);
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_EQ(WorkVolume(), m_aDisks[1]->Volume());
    EXPECT_TRUE(HasDay(0, 1));
    EXPECT_TRUE(m_aCalledBack.empty());

    // At exactly its alarm space a disk has no room: the oldest day goes instead, and the
    // disk it went from has enough by the reserved space.
    SetFree(1, 550);
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_FALSE(HasDay(0, 1));
    EXPECT_TRUE(HasDay(1, 2));
    EXPECT_EQ(WorkVolume(), m_aDisks[0]->Volume());
    EXPECT_EQ(m_aCalledBack, std::vector<DWORD>{Day(1)});
    EXPECT_EQ(SentDates(), std::vector<DWORD>{Day(1)});
    // A disk emptied earlier in the list takes recording back.
    SetFree(0, 551);
    SetFree(1, 900);
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_EQ(WorkVolume(), m_aDisks[0]->Volume());
}

TEST_F(ZnDatabaseRecycling, TodayIsNeverRecycledAndWithoutRoomThereIsNoWorkDisk)
{
    PutDay(0, 10, 300);
    PutDay(1, 10, 300);
    OpenStore(2);
    SetFree(0, 100);
    SetFree(1, 100);
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_ERROR_NOSPACE);
    EXPECT_TRUE(HasDay(0, 10) && HasDay(1, 10));
    EXPECT_TRUE(m_aCalledBack.empty() && m_window.m_received.empty());
    EXPECT_EQ(WorkVolume(), "(none)");
    EXPECT_STREQ(m_db.GetVideoDir(), "");
    // A disk added now is not the work disk until ChangeWorkDir chooses it.
    tag_HDDPARAM param;
    param.strBaseDir = (*m_aDisks[2] / "vdb").c_str();
    ASSERT_EQ(m_db.AddHDD(&param), 1);
    EXPECT_EQ(WorkVolume(), "(none)");
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_EQ(WorkVolume(), m_aDisks[2]->Volume());
}

TEST_F(ZnDatabaseRecycling, DaysGoOldestFirstAcrossRecyclingDisksAndALeaderThatLostWaitsForTheNextCall)
{
    PutDay(0, 1, 100);
    PutDay(0, 2, 100);
    PutDay(1, 3, 100);
    PutDay(1, 5, 100, "Picture");
    PutDay(2, 4, 100, "Remote");
    PutDay(2, 6, 100);
    OpenStore(3);
    m_db.GetHDDInfo(m_db.GetDbsName(0))->DisableRecycle();
    for (int i = 0; i < 3; ++i)
        SetFree(i, 100);

    // Day 5 leads for a moment and loses to day 4: it is passed over in this call.
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_ERROR_NOSPACE);
    EXPECT_EQ(m_aCalledBack, (std::vector<DWORD>{Day(3), Day(4), Day(6)}));
    EXPECT_EQ(SentDates(), m_aCalledBack);
    EXPECT_TRUE(HasDay(1, 5, "Picture"));
    EXPECT_TRUE(HasDay(0, 1));
    EXPECT_TRUE(HasDay(0, 2));

    m_aCalledBack.clear();
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_ERROR_NOSPACE);
    EXPECT_EQ(m_aCalledBack, std::vector<DWORD>{Day(5)});
    EXPECT_TRUE(HasDay(0, 1));
}

TEST_F(ZnDatabaseRecycling, TheDiskThatFinallyHasEnoughBecomesTheWorkDiskAndPartlyDeletedDaysCount)
{
    const std::string strHeld = PutDay(0, 1, 150);
    std::filesystem::rename(strHeld + "/cam0.zn", strHeld + "/b.zn");
    WriteWholeFile(strHeld + "/c.zn", "recording in progress");
    PutDay(1, 2, 50);
    PutDay(0, 3, 100);
    PutDay(1, 4, 100);
    OpenStore(2);
    SetFree(0, 300);
    SetFree(1, 400);
    CFile writer;
    ASSERT_EQ(writer.Open((strHeld + "/c.zn").c_str(), CFile::modeWrite | CFile::modeNoTruncate), 1);

    // Day 1 gives 150 MB and stops at the file in use (disk 0 at 450); day 3 leads and
    // loses to day 2 (disk 1 at 450); day 4 brings disk 1 to 550, above 500.
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_EQ(m_aCalledBack, (std::vector<DWORD>{Day(1), Day(2), Day(4)}));
    EXPECT_EQ(WorkVolume(), m_aDisks[1]->Volume());
    EXPECT_TRUE(std::filesystem::exists(strHeld + "/c.zn"));
    EXPECT_FALSE(std::filesystem::exists(strHeld + "/b.zn"));
    EXPECT_TRUE(HasDay(0, 3));
}

TEST_F(ZnDatabaseRecycling, ADiskBetweenReservedAndAlarmSpaceIsServedByOneDayEvenAnEmptyOne)
{
    MakeDay(*m_aDisks[0] / "vdb", "Local", Day(1));
    PutDay(0, 2, 10);
    OpenStore(1);
    SetFree(0, 520);
    EXPECT_EQ(m_db.ChangeWorkDir(), DBS_OK);
    EXPECT_FALSE(HasDay(0, 1));
    EXPECT_TRUE(HasDay(0, 2));
    EXPECT_TRUE(m_aCalledBack.empty());
    EXPECT_EQ(WorkVolume(), m_aDisks[0]->Volume());
}

} // namespace
