// A month of recording in seconds: two cameras record onto three small disks while the
// test clock and the wall clock run through 30 days, across the spring change of the
// clocks. The oldest days go first across the recycling disks, the disk with recycling
// off keeps everything, today stays, a disk filled by other files is served by recycling,
// and every recording that was not recycled reads back frame for frame.
#include "RecordStoreTestSupport.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace {

constexpr int kDays = 30;
constexpr DWORD kFrameSpacingMs = 135 * 1000; // 160 frames, one block, every six hours
constexpr int kKeyFrameInterval = 160;
constexpr DWORD kDiskMegabytes = 56;          // 5 MB above the alarm space of 1 + 50
constexpr int kFullDiskDay = 20;

class RecordStoreLongRun : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_clock.SetCurrentTime(CTime(2026, 3, 15, 0, 10, 0, -1).GetTime());
        tag_STOREOPTIONS options;
        options.strStoreDir = m_aDisks[0] / "store";
        options.dwRevision = STREAM_REVISION_20020219;
        m_store.SetReporter([this](const std::string& strLine) { m_aLines.push_back(strLine); });
        std::string strError;
        ASSERT_TRUE(m_store.Open(options, strError)) << strError;
        CZnDatabase& db = m_store.GetDatabase();
        tag_HDDPARAM param;
        ASSERT_TRUE(db.GetHddParam(0, &param));
        param.dwReservedSpace = 1;
        param.strDbsName = "disk0";
        ASSERT_TRUE(db.ChangeBaseDir(0, &param));
        for (int i = 1; i < 3; ++i) {
            param.strBaseDir = (m_aDisks[i] / "vdb").c_str();
            param.strDbsName = ("disk" + std::to_string(i)).c_str();
            param.bRecycle = i != 1;
            ASSERT_TRUE(db.AddHDD(&param));
        }
    }

    // The index of the disk whose volume holds a path, or -1.
    int DiskOf(const std::string& strPath) const
    {
        for (int i = 0; i < 3; ++i) {
            if (strPath.rfind(m_aDisks[i].Volume(), 0) == 0)
                return i;
        }
        return -1;
    }

    int WorkDisk()
    {
        CString strName;
        CString strBase;
        return m_store.GetDatabase().GetWorkHDD(strName, strBase) == DBS_OK ? DiskOf(std::string(strBase)) : -1;
    }

    // The oldest day on the recycling disks, 0 if there is none.
    DWORD OldestRecyclableDay()
    {
        CZnDatabase& db = m_store.GetDatabase();
        DWORD dwOldest = 0;
        for (int i = 0; i < db.GetHddNum(); ++i) {
            DWORD dwDate = 0;
            const CHddObj* pDisk = db.GetHDDInfo(db.GetDbsName(i));
            if (pDisk->IsRecycle() && pDisk->FindOldestDir(dwDate, 0) && (dwOldest == 0 || dwDate < dwOldest))
                dwOldest = dwDate;
        }
        return dwOldest;
    }

    // The days that one ChangeWorkDir recycled: the oldest on the recycling disks first,
    // then later ones, all before today. (A day that was on two disks goes twice.)
    void CheckRecycledDays(DWORD dwOldestBefore)
    {
        const std::vector<DWORD>& aAll = m_store.GetRecycledDates();
        for (std::size_t i = m_aRecycled.size(); i < aAll.size(); ++i) {
            SCOPED_TRACE(DayName(aAll[i]));
            EXPECT_LT(aAll[i], CHddObj::GetDateOf(CTime::GetCurrentTime()));
            if (i == m_aRecycled.size())
                EXPECT_EQ(aAll[i], dwOldestBefore);
            else
                EXPECT_GT(aAll[i], aAll[i - 1]);
        }
        m_aRecycled = aAll;
    }

    void RecordOneFrameEach(int nFrame)
    {
        for (CSyntheticCamera& camera : m_aCameras) {
            const bool bKeyFrame = nFrame % kKeyFrameInterval == 0;
            const DWORD dwOldestBefore = bKeyFrame ? OldestRecyclableDay() : 0;
            tag_ZNFRAMEDATA frame = camera.Next(bKeyFrame);
            m_store.WriteFrame(CameraInfo(camera.GetCamera()), frame);
            CheckRecycledDays(dwOldestBefore);
            const int nWork = WorkDisk();
            if (m_aWorkDisks.empty() || m_aWorkDisks.back() != nWork)
                m_aWorkDisks.push_back(nWork);
        }
    }

    // Other files take all but half a MB of the work disk's free space.
    void FillWorkDiskWithOtherFiles()
    {
        const int nWork = WorkDisk();
        ASSERT_GE(nWork, 0);
        ULARGE_INTEGER free{0};
        ASSERT_TRUE(GetDiskFreeSpaceExA(m_aDisks[nWork].Path().c_str(), &free, nullptr, nullptr));
        m_aDisks[nWork].PutSparseFile("other-files/big", free.QuadPart - kMegabyte / 2);
        m_nFilledDisk = nWork;
    }

    ScopedTimeZone m_zone{BerlinZone()};
    CTestClock m_clock;
    ScopedTempDir m_dir;
    ScopedQuotaDisk m_aDisks[3] = {{m_dir.Path() / "disk0", kDiskMegabytes},
                                   {m_dir.Path() / "disk1", kDiskMegabytes},
                                   {m_dir.Path() / "disk2", kDiskMegabytes}};
    CRecordStore m_store;
    std::vector<CSyntheticCamera> m_aCameras = {CSyntheticCamera(0), CSyntheticCamera(1)};
    std::vector<std::string> m_aLines;
    std::vector<DWORD> m_aRecycled;
    std::vector<int> m_aWorkDisks;
    int m_nFilledDisk = -1;
};

TEST_F(RecordStoreLongRun, AMonthOnThreeSmallDisksKeepsEverythingThatIsNotRecycled)
{
    const DWORD dwFirstDay = CHddObj::GetDateOf(CTime::GetCurrentTime());
    const int nFramesPerDay = 24 * 3600 * 1000 / static_cast<int>(kFrameSpacingMs);
    std::size_t nFilesBeforeFull = 0;
    for (int nFrame = 0; nFrame < kDays * nFramesPerDay; ++nFrame) {
        if (nFrame == kFullDiskDay * nFramesPerDay + 3) {
            FillWorkDiskWithOtherFiles();
            nFilesBeforeFull = m_store.GetFiles().size();
        }
        RecordOneFrameEach(nFrame);
        m_clock.Advance(kFrameSpacingMs);
    }
    m_store.Close();
    const DWORD dwLastDay = CHddObj::GetDateOf(CTime::GetCurrentTime());

    // The work disk moved by the room pass 0, 1, 2; the disk that keeps its days had no
    // room after that; recycling then served disks 0 and 2 in turn.
    ASSERT_GE(m_aWorkDisks.size(), 4u);
    EXPECT_EQ(std::vector<int>(m_aWorkDisks.begin(), m_aWorkDisks.begin() + 3), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(std::count(m_aWorkDisks.begin(), m_aWorkDisks.end(), 1), 1);
    EXPECT_EQ(std::count(m_aWorkDisks.begin(), m_aWorkDisks.end(), -1), 0);
    EXPECT_EQ(m_store.GetUnstoredFrames(), 0u);

    // Every file this run made is whole, or lies in a day that was recycled.
    const std::set<DWORD> aRecycled(m_aRecycled.begin(), m_aRecycled.end());
    std::set<std::string> aDaysRecorded;
    int nFilesRead = 0;
    int nFilesRecycled = 0;
    DWORD dwFramesRead = 0;
    for (const tag_STOREDFILE& file : m_store.GetFiles()) {
        const std::string strDay = std::filesystem::path(file.strPath).parent_path().filename();
        aDaysRecorded.insert(strDay);
        if (!std::filesystem::exists(file.strPath)) {
            CTime tDay;
            ASSERT_TRUE(CHddObj::GetVideoDirDate(tDay, strDay.c_str()));
            EXPECT_EQ(aRecycled.count(static_cast<DWORD>(tDay.GetTime())), 1u) << file.strPath;
            EXPECT_NE(DiskOf(file.strPath), 1) << file.strPath;
            ++nFilesRecycled;
            continue;
        }
        EXPECT_EQ(ReadBackFrames(file.strPath, file.nCamera), static_cast<int>(file.dwFrames)) << file.strPath;
        ++nFilesRead;
        dwFramesRead += file.dwFrames;
    }
    EXPECT_EQ(aDaysRecorded.size(), static_cast<std::size_t>(kDays));
    EXPECT_EQ(aRecycled.count(dwLastDay), 0u);
    EXPECT_GE(m_aRecycled.size(), 15u);
    EXPECT_EQ(m_aRecycled.front(), dwFirstDay);

    // The disk that filled with other files gave its oldest days and recording went on;
    // the files closed before are among those read back above.
    ASSERT_GE(m_nFilledDisk, 0);
    EXPECT_GE(m_store.GetFiles().size(), nFilesBeforeFull + 20);
    EXPECT_TRUE(std::filesystem::exists(m_aDisks[m_nFilledDisk] / "other-files/big"));
    std::printf("[ long run ] %zu days recorded, %zu recycled, %d files read back (%lu frames), %d files recycled, "
                "%zu changes of work disk\n",
                aDaysRecorded.size(), m_aRecycled.size(), nFilesRead, static_cast<unsigned long>(dwFramesRead),
                nFilesRecycled, m_aWorkDisks.size() - 1);
}

} // namespace
