// The host's store: where and when a camera's file begins and ends, waiting for room and
// going on, and stores that can't be opened.
#include "RecordStoreTestSupport.h"

#include <fstream>

namespace {

class RecordStoreTest : public ::testing::Test {
protected:
    bool OpenStore(std::uint64_t nMaxFileBytes = std::uint64_t{1} << 30)
    {
        tag_STOREOPTIONS options;
        options.strStoreDir = m_disk / "store";
        options.dwRevision = STREAM_REVISION_20020219;
        options.nMaxFileBytes = nMaxFileBytes;
        options.dwRetryMs = 10000;
        m_store.SetReporter([this](const std::string& strLine) { m_aLines.push_back(strLine); });
        std::string strError;
        const bool bOpened = m_store.Open(options, strError);
        EXPECT_TRUE(bOpened) << strError;
        tag_HDDPARAM param;
        m_store.GetDatabase().GetHddParam(0, &param);
        param.dwReservedSpace = 1;
        param.strDbsName = "disk";
        m_store.GetDatabase().ChangeBaseDir(0, &param);
        return bOpened;
    }

    // nFrames frames of one camera a second apart, a key frame every nKeyInterval.
    int Record(CSyntheticCamera& camera, int nFrames, int nKeyInterval, int nFirst = 0)
    {
        int nStored = 0;
        for (int i = nFirst; i < nFirst + nFrames; ++i) {
            tag_ZNFRAMEDATA frame = camera.Next(i % nKeyInterval == 0);
            nStored += m_store.WriteFrame(CameraInfo(camera.GetCamera()), frame);
            m_clock.Advance(1000);
        }
        return nStored;
    }

    std::string FileName(std::size_t nFile) const
    {
        return std::filesystem::path(m_store.GetFiles()[nFile].strPath).filename();
    }

    std::string DayOfFile(std::size_t nFile) const
    {
        return std::filesystem::path(m_store.GetFiles()[nFile].strPath).parent_path().filename();
    }

    ScopedTimeZone m_zone{BerlinZone()};
    CTestClock m_clock;
    ScopedTempDir m_dir;
    ScopedQuotaDisk m_disk{m_dir.Path() / "disk", 60};
    CRecordStore m_store;
    std::vector<std::string> m_aLines;
};

TEST_F(RecordStoreTest, EachCameraGetsAFilePerRunThatEndsAtMidnightOrAtItsSizeOnlyAtAKeyFrame)
{
    m_clock.SetCurrentTime(CTime(2026, 3, 10, 23, 59, 40, -1).GetTime());
    ASSERT_TRUE(OpenStore(40 * 1024));
    CSyntheticCamera camera0(0);
    CSyntheticCamera camera1(1);
    // Frames before the first key frame have no file to go to.
    EXPECT_EQ(Record(camera0, 5, 10, 5), 0);
    EXPECT_EQ(m_store.GetUnstoredFrames(), 5u);
    // Midnight passes at camera 1's 16th frame; its file goes on to the key frame at 20.
    EXPECT_EQ(Record(camera1, 30, 10), 30);
    EXPECT_EQ(Record(camera0, 10, 10), 10);
    ASSERT_EQ(m_store.GetFiles().size(), 3u);
    EXPECT_EQ(FileName(0), "b0-cam1-235945.zn");
    EXPECT_EQ(DayOfFile(0), "d20260310");
    EXPECT_EQ(m_store.GetFiles()[0].dwFrames, 20u);
    EXPECT_EQ(FileName(1), "b0-cam1-000005.zn");
    EXPECT_EQ(DayOfFile(1), "d20260311");
    EXPECT_EQ(FileName(2), "b0-cam0-000015.zn");

    // A file ends at the first key frame at which its blocks on disk reach 40 KB: three
    // blocks of ten frames of about 1.5 KB, while the fourth is collecting.
    m_clock.SetCurrentTime(CTime(2026, 3, 11, 10, 0, 0, -1).GetTime());
    EXPECT_EQ(Record(camera0, 80, 10), 80);
    ASSERT_EQ(m_store.GetFiles().size(), 5u);
    EXPECT_EQ(m_store.GetFiles()[2].dwFrames, 40u);
    EXPECT_EQ(FileName(3), "b0-cam0-100030.zn");
    EXPECT_EQ(m_store.GetFiles()[3].dwFrames, 40u);
    EXPECT_EQ(FileName(4), "b0-cam0-100110.zn");
    m_store.Close();
    for (const tag_STOREDFILE& file : m_store.GetFiles())
        EXPECT_EQ(ReadBackFrames(file.strPath, file.nCamera), static_cast<int>(file.dwFrames)) << file.strPath;
    // A second run in the same second never writes over the first one's files.
    CRecordStore again;
    std::string strError;
    tag_STOREOPTIONS options;
    options.strStoreDir = m_disk / "store";
    options.dwRevision = STREAM_REVISION_20020219;
    again.SetReporter([this](const std::string& strLine) { m_aLines.push_back(strLine); });
    ASSERT_TRUE(again.Open(options, strError));
    m_clock.SetCurrentTime(CTime(2026, 3, 11, 10, 0, 30, -1).GetTime());
    CSyntheticCamera next0(0);
    tag_ZNFRAMEDATA frame = next0.Next(true);
    EXPECT_TRUE(again.WriteFrame(CameraInfo(0), frame));
    EXPECT_EQ(std::filesystem::path(again.GetFiles()[0].strPath).filename(), "b0-cam0-100030-2.zn");
    tag_CAMERAINFO board1 = CameraInfo(0);
    board1.nBoard = 1;
    frame = next0.Next(true);
    EXPECT_TRUE(again.WriteFrame(board1, frame));
    EXPECT_EQ(std::filesystem::path(again.GetFiles()[1].strPath).filename(), "b1-cam0-100030.zn");
    // A camera whose file can't be made (a picture size no recording has) is told once.
    const std::size_t nLines = m_aLines.size();
    tag_CAMERAINFO odd = CameraInfo(3);
    odd.nWidth = 123;
    for (int i = 0; i < 3; ++i) {
        tag_ZNFRAMEDATA key = next0.Next(true);
        EXPECT_FALSE(again.WriteFrame(odd, key));
    }
    ASSERT_EQ(m_aLines.size(), nLines + 1);
    EXPECT_NE(m_aLines.back().find("can't be opened for writing"), std::string::npos);
}

TEST_F(RecordStoreTest, WithoutRoomRecordingWaitsKeepsWhatItHasAndGoesOnWhenThereIsRoom)
{
    m_clock.SetCurrentTime(CTime(2026, 3, 10, 12, 0, 0, -1).GetTime());
    ASSERT_TRUE(OpenStore());
    CSyntheticCamera camera(0);
    EXPECT_EQ(Record(camera, 25, 10), 25);
    // Other files take the disk: only today is there, so nothing can be recycled.
    m_disk.SetFreeMegabytes(0);
    EXPECT_EQ(Record(camera, 10, 10, 25), 5);
    EXPECT_TRUE(m_store.IsWaitingForRoom());
    ASSERT_EQ(m_store.GetFiles().size(), 1u);
    EXPECT_EQ(ReadBackFrames(m_store.GetFiles()[0].strPath, 0), 30);
    EXPECT_EQ(m_store.GetUnstoredFrames(), 5u);
    ASSERT_FALSE(m_aLines.empty());
    EXPECT_NE(m_aLines.back().find("waits for room"), std::string::npos);

    // Room comes back; the store looks again no sooner than its retry time.
    std::filesystem::remove(m_disk / "filler");
    EXPECT_EQ(Record(camera, 5, 5, 35), 0);
    EXPECT_EQ(Record(camera, 20, 10, 40), 20);
    EXPECT_FALSE(m_store.IsWaitingForRoom());
    EXPECT_NE(m_aLines.back().find("room again"), std::string::npos);
    ASSERT_EQ(m_store.GetFiles().size(), 2u);
    m_store.Close();
    const std::size_t nLines = m_aLines.size();
    m_store.Close();
    EXPECT_EQ(m_aLines.size(), nLines);
    EXPECT_EQ(m_store.GetDatabase().GetHddNum(), 0);
    EXPECT_EQ(ReadBackFrames(m_store.GetFiles()[1].strPath, 0), 20);
    CZnDatabase saved;
    std::string strError;
    ASSERT_TRUE(OpenStoreDatabase(saved, m_disk / "store", false, "", 0, strError)) << strError;
    EXPECT_EQ(std::string(saved.GetDbsName(0)), "disk(" + m_disk.Volume() + ")");
}

TEST(RecordStoreQuota, TheStoreListsItsQuotaVolumesAndDeclaresThemAgainAtOpen)
{
    ScopedTempDir dir;
    ScopedQuotaDisk disk(dir.Path() / "disk", 100);
    const std::string strStore = disk / "store";
    std::filesystem::create_directories(strStore);
    std::string strError;
    ASSERT_TRUE(SaveQuotaVolume(strStore, disk / "q1", 60, strError)) << strError;
    ASSERT_TRUE(SaveQuotaVolume(strStore, disk / "q2", 30, strError)) << strError;
    ASSERT_TRUE(SaveQuotaVolume(strStore, disk / "q1/", 70, strError)) << strError;
    const std::string strList = strStore + "/" + STORE_QUOTA_FILE;
    const std::string strExpected = "70 " + (disk / "q1") + "\n30 " + (disk / "q2") + "\n";
    EXPECT_EQ(ReadWholeFile(strList), std::vector<unsigned char>(strExpected.begin(), strExpected.end()));
    EXPECT_EQ(std::string(GetVolumePath((disk / "q1").c_str())), disk / "q1/");

    ASSERT_TRUE(SaveQuotaVolume(strStore, disk / "q2", 0, strError)) << strError;
    EXPECT_EQ(std::string(GetVolumePath((disk / "q2").c_str())), disk.Volume());
    EXPECT_EQ(ReadWholeFile(strList).size(), strExpected.find('\n') + 1);
    RemoveQuotaVolume((disk / "q1").c_str());
    ASSERT_TRUE(LoadQuotaVolumes(strStore, strError)) << strError;
    ULARGE_INTEGER total{0};
    ASSERT_TRUE(GetDiskFreeSpaceExA((disk / "q1").c_str(), nullptr, &total, nullptr));
    EXPECT_EQ(total.QuadPart, 70 * kMegabyte);
    RemoveQuotaVolume((disk / "q1").c_str());

    EXPECT_FALSE(SaveQuotaVolume(strStore, disk / "none/q3", 10, strError));
    EXPECT_EQ(strError, disk / "none/q3: has no parent directory (only the last level is made)");
    WriteWholeFile(strList, "4294967295 /largest\n");
    EXPECT_TRUE(LoadQuotaVolumes(strStore, strError));
    for (const char* pszLine : {"0 /x\n", "4294967296 /x\n", "60\n", "60 \n", "x /y\n"}) {
        SCOPED_TRACE(pszLine);
        WriteWholeFile(strList, std::string("5 /ok\n") + pszLine);
        EXPECT_FALSE(LoadQuotaVolumes(strStore, strError));
        EXPECT_EQ(strError, strList + ":2: not a line \"MB directory\"");
    }
}

TEST(RecordStoreOpen, AStoreThatCannotBeOpenedIsNamedWithTheReason)
{
    ScopedTempDir dir;
    ScopedQuotaDisk disk(dir.Path() / "disk", 100);
    WriteWholeFile(disk / "afile", "x");
    std::filesystem::create_directories(disk / "badquota");
    WriteWholeFile(disk / "badquota/quota-volumes", "sixty /somewhere\n");
    std::filesystem::create_directories(disk / "defaultblocked");
    WriteWholeFile(disk / "defaultblocked/database", "a file where the default disk goes");
    struct tag_OPENCASE {
        std::string strStore;
        std::string strReason;
    };
    std::vector<tag_OPENCASE> aCases = {
        {disk / "afile", disk / "afile: is not a directory"},
        {disk / "no/store", disk / "no/store: has no parent directory"},
        {disk / "badquota", disk / "badquota/quota-volumes:1: not a line \"MB directory\""},
        {disk / "defaultblocked", disk / "defaultblocked/database: is not a directory"},
    };
    tag_VOLUMEINFO shm;
    if (GetVolumeInfo("/dev/shm", &shm) && shm.strFileSystem == "tmpfs")
        aCases.push_back({"/dev/shm", "/dev/shm/database: lies on a RAM file system"});
    for (const tag_OPENCASE& openCase : aCases) {
        SCOPED_TRACE(openCase.strStore);
        CRecordStore store;
        tag_STOREOPTIONS options;
        options.strStoreDir = openCase.strStore;
        std::string strError;
        EXPECT_FALSE(store.Open(options, strError));
        EXPECT_EQ(strError.rfind(openCase.strReason, 0), 0u) << strError;
    }
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/database"));
    CZnDatabase db;
    std::string strError;
    EXPECT_FALSE(OpenStoreDatabase(db, disk / "new", false, "", 0, strError));
    EXPECT_NE(strError.find("no store here"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(disk / "new"));
}

} // namespace
