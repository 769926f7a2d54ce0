// Writing recordings: what reaches the disk, byte by byte, and how the writer refuses
// frames and fails.
#include "RecordingTestSupport.h"

#include "platform/CTime.h"
#include "platform/TickClock.h"

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>

namespace {

std::vector<TestFrame> MakeSequence(DWORD nFrames, DWORD dwSeed = 1)
{
    std::vector<TestFrame> frames;
    for (DWORD i = 0; i < nFrames; ++i)
        frames.push_back(MakeSequenceFrame(i, dwSeed));
    return frames;
}

bool FileExists(const std::string& strPath)
{
    struct stat status {};
    return stat(strPath.c_str(), &status) == 0;
}

TEST(ZnFileWriting, HeadNamesLinksAndFramesStandByteByByte)
{
    TempDir dir;
    const std::string strPath = dir.Path("layout.zn");
    std::vector<TestFrame> frames = MakeSequence(2);
    frames[1].wFrameType = ZNFRAME_I;
    // Sound bytes without ZNFRAME_SOUND aren't the frame's.
    frames[0].sound = {1, 2, 3};
    tag_CAMERAINFO info = MakeCameraInfo(640, 240);
    info.nBoard = 0x105;
    info.nCamera = 3;
    // The end block carries the millisecond count of the closing.
    const DWORD dwCloseStamp = 0x00C105Eu;
    CTestClock clock(dwCloseStamp);
    CZnFile file("camera", "board", "host");
    ASSERT_EQ(file.Open(strPath.c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    const DWORD dwBefore = static_cast<DWORD>(CTime::GetCurrentTime().GetTime());
    for (TestFrame& frame : frames)
        ASSERT_EQ(WriteTestFrame(file, frame), 1);
    const DWORD dwAfter = static_cast<DWORD>(CTime::GetCurrentTime().GetTime());
    file.Close();

    const std::vector<BYTE> bytes = ReadFileBytes(strPath);
    ASSERT_GE(bytes.size(), 36u);
    // Magic, version 0x0101, frame size, board 0x105 by its low byte, camera, key-frame
    // interval.
    EXPECT_EQ(std::vector<BYTE>(bytes.begin(), bytes.begin() + 8),
              (std::vector<BYTE>{0x5A, 0x4E, 0x01, 0x01, FRAMESIZE_640X240, 0x05, 3, 160}));
    EXPECT_GE(GetLe32(bytes, 8), dwBefore);
    EXPECT_LE(GetLe32(bytes, 12), dwAfter);
    EXPECT_LE(GetLe32(bytes, 8), GetLe32(bytes, 12));
    EXPECT_EQ(GetLe32(bytes, 16), frames[0].dwTimeStamp);
    EXPECT_EQ(GetLe16(bytes, 20), 5);
    EXPECT_EQ(GetLe16(bytes, 22), 6);
    EXPECT_EQ(bytes[24], 0);
    EXPECT_EQ(GetLe32(bytes, 32), 0u);
    const DWORD dwDataOffset = GetLe32(bytes, 28);
    EXPECT_EQ(dwDataOffset, 36u + 5 + 6 + 4 + 4 + 4);
    // Board and camera names, then the host name behind its length.
    EXPECT_EQ(std::string(bytes.begin() + 36, bytes.begin() + 55), std::string("boardcamera\x04\0\0\0host", 19));
    EXPECT_LT(GetLe32(bytes, 55), 24u);

    // Two blocks of one frame each, then the end block and nothing behind it.
    DWORD dwRecord = dwDataOffset;
    DWORD dwPrev = 0xFFFFFFFF;
    for (const TestFrame& frame : frames) {
        EXPECT_EQ(GetLe32(bytes, dwRecord), dwPrev);
        EXPECT_EQ(GetLe32(bytes, dwRecord + 4), dwRecord + 16 + frame.RecordSize());
        EXPECT_EQ(GetLe16(bytes, dwRecord + 8), 1);
        EXPECT_EQ(GetLe32(bytes, dwRecord + 12), frame.dwTimeStamp);
        std::vector<BYTE> expected;
        HandBuiltRecording::AppendFrameRecord(expected, frame);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes.begin() + dwRecord + 16));
        dwPrev = dwRecord;
        dwRecord += 16 + frame.RecordSize();
    }
    ASSERT_EQ(bytes.size(), dwRecord + 16u);
    EXPECT_EQ(GetLe32(bytes, dwRecord), dwPrev);
    EXPECT_EQ(GetLe32(bytes, dwRecord + 4), 0xFFFFFFFFu);
    EXPECT_EQ(GetLe16(bytes, dwRecord + 8), 0);
    EXPECT_EQ(GetLe32(bytes, dwRecord + 12), dwCloseStamp);
}

// A writer on a fresh path in a temporary directory.
class ZnFileWriter : public ::testing::Test {
protected:
    int Open(CZnFile& file, const std::string& strName, tag_CAMERAINFO* pInfo = nullptr,
             DWORD dwRevision = STREAM_REVISION_20020114, tag_ZNFILEMODE nMode = ZNFILE_WRITE)
    {
        return file.Open(m_dir.Path(strName).c_str(), pInfo != nullptr ? pInfo : &m_info, dwRevision, nMode);
    }

    TempDir m_dir;
    tag_CAMERAINFO m_info = MakeCameraInfo();
};

TEST_F(ZnFileWriter, RevisionSelectsVersionAndFrameSizes)
{
    tag_CAMERAINFO large = MakeCameraInfo(704, 288, STANDARD_PAL);
    std::vector<TestFrame> frames = MakeSequence(3);
    WriteRecording(m_dir.Path("r2.zn"), frames, STREAM_REVISION_20020219, large);
    const std::vector<BYTE> bytes = ReadFileBytes(m_dir.Path("r2.zn"));
    ASSERT_GE(bytes.size(), 36u);
    EXPECT_EQ(GetLe16(bytes, 2), 0x1000);
    EXPECT_EQ(bytes[4], FRAMESIZE_704X288_R2);

    // Sizes of the other revision, no camera, an unknown mode or a missing directory make
    // no file.
    CZnFile file;
    tag_CAMERAINFO small = MakeCameraInfo(160, 112);
    EXPECT_EQ(Open(file, "none.zn", &small, STREAM_REVISION_20020219), 0);
    EXPECT_EQ(Open(file, "none.zn", &large), 0);
    EXPECT_EQ(file.Open(m_dir.Path("none.zn").c_str(), nullptr, STREAM_REVISION_20020114, ZNFILE_WRITE), 0);
    EXPECT_EQ(Open(file, "none.zn", &small, STREAM_REVISION_20020114, static_cast<tag_ZNFILEMODE>(2)), 0);
    EXPECT_EQ(Open(file, "missing/dir.zn"), 0);
    EXPECT_FALSE(FileExists(m_dir.Path("none.zn")));
}

// A file must begin with a key frame: a predicted one is refused and leaves the file
// empty, so that Close deletes it. The head and the first block describe the first
// frame taken.
TEST_F(ZnFileWriter, FirstAcceptedKeyFrameBeginsTheFile)
{
    CZnFile file;
    TestFrame predicted = MakeSequenceFrame(1);
    predicted.dwTimeStamp = 100;
    ASSERT_EQ(Open(file, "p.zn"), 1);
    EXPECT_TRUE(FileExists(m_dir.Path("p.zn")));
    EXPECT_EQ(WriteTestFrame(file, predicted), 0);
    EXPECT_NE(file.IsNextIFrame(), 0);
    file.Close();
    EXPECT_FALSE(FileExists(m_dir.Path("p.zn")));

    ASSERT_EQ(Open(file, "first.zn"), 1);
    EXPECT_EQ(WriteTestFrame(file, predicted), 0);
    TestFrame key = MakeSequenceFrame(0);
    key.dwTimeStamp = 987654;
    const DWORD dwBefore = static_cast<DWORD>(CTime::GetCurrentTime().GetTime());
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    EXPECT_EQ(file.IsNextIFrame(), 0);
    EXPECT_EQ(file.GetBeginTimeStamp(), 987654u);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, m_dir.Path("first.zn")), 1);
    EXPECT_EQ(reader.GetBeginTimeStamp(), 987654u);
    EXPECT_GE(reader.GetBeginTime(), dwBefore);
    EXPECT_EQ(reader.GetBlockInfo()->GetAt(0).dwTimeStamp, 987654u);
    EXPECT_EQ(reader.GetTotalBlock(), 2u);
    EXPECT_EQ(reader.GetTotalFrameNum(), 1u);
}

// The write position names the frame written last; two key frames in a row make a block
// of one frame. Misuse is refused by result and stores nothing.
TEST_F(ZnFileWriter, WritePositionAndMisuse)
{
    CZnFile file;
    TestFrame key = MakeSequenceFrame(0, 2);
    EXPECT_EQ(WriteTestFrame(file, key), -1);
    EXPECT_EQ(file.WriteOneFrame(nullptr), -1);
    ASSERT_EQ(Open(file, "pos.zn"), 1);
    EXPECT_EQ(Open(file, "pos.zn"), 0);
    ExpectFilePos(file, 0, 0);
    std::vector<TestFrame> frames = MakeSequence(3);
    for (TestFrame& frame : frames)
        ASSERT_EQ(WriteTestFrame(file, frame), 1);
    ExpectFilePos(file, 0, 2);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    ExpectFilePos(file, 2, 0);
    tag_ZNFRAMEDATA noBuffer{ZNFRAME_P, 0, 0, 10, nullptr, 0, nullptr};
    EXPECT_EQ(file.WriteOneFrame(&noBuffer), -1);
    EXPECT_EQ(file.Close(), 1);

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, m_dir.Path("pos.zn")), 1);
    ASSERT_EQ(reader.GetTotalBlock(), 4u);
    const DWORD expectedFrames[] = {3, 1, 1, 0};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(reader.GetBlockInfo()->GetAt(i).dwFrames, expectedFrames[i]) << "block " << i;
}

TEST_F(ZnFileWriter, NamesLongerThanAReaderTakesAreCut)
{
    const std::string strLong(1500, 'x');
    CZnFile file(strLong.c_str(), strLong.c_str(), strLong.c_str());
    ASSERT_EQ(Open(file, "long.zn"), 1);
    TestFrame key = MakeSequenceFrame(0);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, m_dir.Path("long.zn")), 1);
    EXPECT_EQ(reader.GetCameraName().GetLength(), 1000);
    EXPECT_EQ(reader.GetBoardName().GetLength(), 1000);
    EXPECT_EQ(reader.GetHostName().GetLength(), 1000);
}

// A block holds at most 65535 frames: then only a key frame, which starts a new block,
// goes in.
TEST_F(ZnFileWriter, BlockCounterNeverWraps)
{
    CZnFile file;
    ASSERT_EQ(Open(file, "full.zn"), 1);
    tag_ZNFRAMEDATA frame{ZNFRAME_I, 0, 0, 0, nullptr, 0, nullptr};
    ASSERT_EQ(file.WriteOneFrame(&frame), 1);
    frame.wFrameType = ZNFRAME_P;
    for (DWORD i = 1; i < 0xFFFF; ++i)
        ASSERT_EQ(file.WriteOneFrame(&frame), 1);
    EXPECT_EQ(file.WriteOneFrame(&frame), 0);
    frame.wFrameType = ZNFRAME_I;
    EXPECT_EQ(file.WriteOneFrame(&frame), 1);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, m_dir.Path("full.zn")), 1);
    EXPECT_EQ(reader.GetBlockInfo()->GetAt(0).dwFrames, 0xFFFFu);
    EXPECT_EQ(reader.GetTotalFrameNum(), 0x10000u);
}

// The head keeps whole hours of local time ahead of UTC, folded into 0 to 23: a zone
// behind UTC at noon UTC is 24 less its lag; one ahead of it late in the UTC day is the
// lead however the local day turned.
TEST_F(ZnFileWriter, GmtOffsetIsTheLocalLeadFoldedIntoOneDay)
{
    const char* pszOldZone = std::getenv("TZ");
    const std::string strOldZone = pszOldZone != nullptr ? pszOldZone : "";
    struct Case {
        const char* pszZone;
        int nUtcHour;
        LONG nGmt;
    };
    const Case cases[] = {{"UTC0", 12, 0}, {"EST5", 12, 19}, {"EST5", 2, 19}, {"JST-9", 20, 9}, {"JST-9", 3, 9}};
    CTestClock clock;
    for (const Case& gmtCase : cases) {
        SCOPED_TRACE(testing::Message() << gmtCase.pszZone << " at " << gmtCase.nUtcHour << ":00 UTC");
        setenv("TZ", gmtCase.pszZone, 1);
        clock.SetCurrentTime(1018828800 + gmtCase.nUtcHour * 3600);  // 2002-04-15 00:00 UTC
        CZnFile file;
        ASSERT_EQ(Open(file, "gmt.zn"), 1);
        EXPECT_EQ(file.GetGmt(), gmtCase.nGmt);
        file.Close();
    }
    if (pszOldZone != nullptr)
        setenv("TZ", strOldZone.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

} // namespace
