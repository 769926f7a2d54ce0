// CZnFileInfo::Create: what the summary takes from a recording's head, which heads it
// refuses, and a recording found while it is still being written.
#include "SearchTestSupport.h"

#include "platform/CException.h"
#include "recording/CZnFile.h"
#include "storage/CZnFileInfo.h"

#include <filesystem>

namespace {

class FileSummaryTest : public ::testing::Test {
protected:
    std::string Put(const std::string& strName, const std::string& strBytes)
    {
        WriteWholeFile(m_dir / strName, strBytes);
        return m_dir / strName;
    }

    ScopedTempDir m_dir;
};

TEST_F(FileSummaryTest, TakesEveryFieldFromTheHeadAndNames)
{
    TestHead head;
    head.byFrameSize = 0x81;
    head.byBoard = 7;
    head.byCamera = 2;
    head.dwBeginTime = 1000;
    head.dwEndTime = 5000;
    head.bySoundFormat = 3;
    head.nGmt = -7200;
    const std::string strBytes = head.Bytes();
    const std::string strPath = Put("any name.dat", strBytes);

    CZnFileInfo info;
    ASSERT_EQ(info.Create(strPath.c_str(), kRevision1), 1);
    EXPECT_EQ(info.m_byFrameSize, 0x81);
    EXPECT_EQ(info.m_byBoard, 7);
    EXPECT_EQ(info.m_byCamera, 2);
    EXPECT_EQ(info.m_dwBeginTime, 1000u);
    EXPECT_EQ(info.m_dwEndTime, 5000u);
    EXPECT_EQ(info.m_bySoundFormat, 3);
    EXPECT_EQ(info.m_byReserved, 0);
    EXPECT_EQ(info.m_dwFileLength, strBytes.size());
    EXPECT_EQ(info.m_strBoardName, "board");
    EXPECT_EQ(info.m_strCameraName, "camera");
    EXPECT_EQ(info.m_strHostName, "host");
    EXPECT_EQ(info.m_nGmtOffset, -7200);
    EXPECT_EQ(info.m_strFilePath, strPath.c_str());
}

// Which fields each version has, and which versions a run of each stream revision reads.
TEST_F(FileSummaryTest, VersionsDecideHostNameGmtAndWhichRunReadsThem)
{
    struct Case {
        WORD wVersion;
        DWORD dwRevision;
        int nResult;
        const char* pszHost;
        int nGmt;
    };
    const Case cases[] = {
        {0x00FF, kRevision1, 1, "", 0},      {0x0100, kRevision1, 1, "host", 0},
        {0x0101, kRevision1, 1, "host", 60}, {0x0101, kRevision2, 1, "host", 60},
        {0x1000, kRevision2, 1, "host", 60}, {0x1000, kRevision1, 0, "", 0},
        {0x1001, kRevision2, 0, "", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.wVersion << " in a run of " << c.dwRevision);
        TestHead head;
        head.wVersion = c.wVersion;
        head.nGmt = 60;
        head.strBoardName.clear();  // an empty name reads nothing for it
        CZnFileInfo info;
        EXPECT_EQ(info.Create(Put("v.zn", head.Bytes()).c_str(), c.dwRevision), c.nResult);
        EXPECT_EQ(info.m_strHostName, c.pszHost);
        EXPECT_EQ(info.m_nGmtOffset, c.nGmt);
    }
}

// A refused file leaves the summary as it was, but for a file length of 0.
TEST_F(FileSummaryTest, RefusedFilesLeaveTheSummaryAsItWas)
{
    TestHead head;
    head.strCameraName = std::string(3000, 'c');  // longer than a player takes: still listed
    const std::string strWhole = head.Bytes();
    TestHead foreign = head;
    foreign.dwHostNameLength = 0x10004;  // only 16 bits would be 4: refused instead
    TestHead wrongMagic = head;
    std::string strWrongMagic = wrongMagic.Bytes();
    strWrongMagic[1] = 'M';
    std::filesystem::create_directory(m_dir / "dir.zn");
    std::filesystem::create_symlink(Put("target.zn", strWhole), m_dir / "link.zn");

    const std::string aPaths[] = {
        Put("35.zn", strWhole.substr(0, 35)),
        Put("cut-in-camera.zn", strWhole.substr(0, 36 + 5 + 100)),
        Put("cut-in-gmt.zn", strWhole.substr(0, strWhole.size() - 16 - 2)),
        Put("host-length.zn", foreign.Bytes()),
        Put("magic.zn", strWrongMagic),
        m_dir / "dir.zn",
        m_dir / "link.zn",
        m_dir / "missing.zn",
    };
    for (const std::string& strPath : aPaths) {
        SCOPED_TRACE(strPath);
        CZnFileInfo info;
        ASSERT_EQ(info.Create((m_dir / "target.zn").c_str(), kRevision2), 1);
        EXPECT_EQ(info.m_strCameraName.GetLength(), 3000);
        EXPECT_EQ(info.Create(strPath.c_str(), kRevision2), 0);
        EXPECT_EQ(info.m_dwFileLength, 0u);
        EXPECT_EQ(info.m_strCameraName.GetLength(), 3000);
        EXPECT_EQ(info.m_strFilePath, (m_dir / "target.zn").c_str());
    }
}

// The writer keeps its file open and rewrites the head at each block change; a summary
// taken meanwhile has the end time of the last one.
TEST_F(FileSummaryTest, RecordingBeingWrittenHasTheEndTimeOfItsLastBlockChange)
{
    CTestClock clock;
    clock.SetCurrentTime(1'700'000'000);
    const std::string strPath = m_dir / "live.zn";
    CZnFile file("cam", "brd", "host");
    tag_CAMERAINFO camera{0, 1, 320, 240, STANDARD_NTSC};
    ASSERT_EQ(file.Open(strPath.c_str(), &camera, kRevision1, ZNFILE_WRITE), 1);
    std::vector<BYTE> video(100, 0x11);
    tag_ZNFRAMEDATA frame{ZNFRAME_I, 0, 0, 100, video.data(), 0, nullptr};
    ASSERT_EQ(file.WriteOneFrame(&frame), 1);
    clock.Advance(60'000);
    frame.wFrameType = ZNFRAME_P;
    ASSERT_EQ(file.WriteOneFrame(&frame), 1);
    clock.Advance(60'000);
    frame.wFrameType = ZNFRAME_I;
    ASSERT_EQ(file.WriteOneFrame(&frame), 1);  // the block change, at +120 s
    clock.Advance(60'000);
    ASSERT_EQ(file.WriteOneFrame(&frame), 1);  // collecting, not yet on the disk

    CZnFileInfo info;
    ASSERT_EQ(info.Create(strPath.c_str(), kRevision1), 1);
    EXPECT_EQ(info.m_dwBeginTime, 1'700'000'000u);
    EXPECT_EQ(info.m_dwEndTime, 1'700'000'120u);
    EXPECT_EQ(info.m_strCameraName, "cam");
    EXPECT_EQ(file.Close(), 1);
}

} // namespace
