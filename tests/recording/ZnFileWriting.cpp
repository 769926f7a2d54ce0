// Writing recordings: what reaches the disk, byte by byte, and how the writer refuses
// frames and fails.
#include "RecordingTestSupport.h"

#include "platform/TickClock.h"

#include "platform/CTime.h"

#include <sys/stat.h>

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

TEST(ZnFileWriting, RevisionSelectsVersionAndFrameSizes)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo(704, 288, STANDARD_PAL);
    std::vector<TestFrame> frames = MakeSequence(3);
    WriteRecording(dir.Path("r2.zn"), frames, STREAM_REVISION_20020219, info);
    const std::vector<BYTE> bytes = ReadFileBytes(dir.Path("r2.zn"));
    ASSERT_GE(bytes.size(), 36u);
    EXPECT_EQ(GetLe16(bytes, 2), 0x1000);
    EXPECT_EQ(bytes[4], FRAMESIZE_704X288_R2);

    // Sizes of the other revision make no file.
    CZnFile file;
    tag_CAMERAINFO small = MakeCameraInfo(160, 112);
    EXPECT_EQ(file.Open(dir.Path("none.zn").c_str(), &small, STREAM_REVISION_20020219, ZNFILE_WRITE), 0);
    EXPECT_FALSE(FileExists(dir.Path("none.zn")));
    EXPECT_EQ(file.Open(dir.Path("none.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 0);
    EXPECT_EQ(file.Open(dir.Path("none.zn").c_str(), nullptr, STREAM_REVISION_20020114, ZNFILE_WRITE), 0);
    EXPECT_EQ(file.Open(dir.Path("none.zn").c_str(), &small, STREAM_REVISION_20020114,
                        static_cast<tag_ZNFILEMODE>(2)),
              0);
    EXPECT_FALSE(FileExists(dir.Path("none.zn")));
}

TEST(ZnFileWriting, FileWithoutFramesIsDeletedAtClose)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile file;
    ASSERT_EQ(file.Open(dir.Path("empty.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    EXPECT_TRUE(FileExists(dir.Path("empty.zn")));
    file.Close();
    EXPECT_FALSE(FileExists(dir.Path("empty.zn")));

    // A predicted frame can't begin a file: refused, and the file still counts as empty.
    ASSERT_EQ(file.Open(dir.Path("p.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    TestFrame predicted = MakeSequenceFrame(1);
    EXPECT_EQ(WriteTestFrame(file, predicted), 0);
    EXPECT_NE(file.IsNextIFrame(), 0);
    file.Close();
    EXPECT_FALSE(FileExists(dir.Path("p.zn")));
}

TEST(ZnFileWriting, HeadAndFirstBlockDescribeTheFirstAcceptedFrame)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile file;
    ASSERT_EQ(file.Open(dir.Path("first.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    TestFrame predicted = MakeSequenceFrame(1);
    predicted.dwTimeStamp = 100;
    EXPECT_EQ(WriteTestFrame(file, predicted), 0);
    TestFrame key = MakeSequenceFrame(0);
    key.dwTimeStamp = 987654;
    const DWORD dwBefore = static_cast<DWORD>(CTime::GetCurrentTime().GetTime());
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    EXPECT_EQ(file.IsNextIFrame(), 0);
    EXPECT_EQ(file.GetBeginTimeStamp(), 987654u);
    EXPECT_GE(file.GetBeginTime(), dwBefore);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, dir.Path("first.zn")), 1);
    EXPECT_EQ(reader.GetBeginTimeStamp(), 987654u);
    EXPECT_GE(reader.GetBeginTime(), dwBefore);
    EXPECT_EQ(reader.GetBlockInfo()->GetAt(0).dwTimeStamp, 987654u);
    EXPECT_EQ(reader.GetTotalBlock(), 2u);
    EXPECT_EQ(reader.GetTotalFrameNum(), 1u);
}

TEST(ZnFileWriting, WritePositionNamesTheFrameWrittenLast)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile file;
    ASSERT_EQ(file.Open(dir.Path("pos.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    ExpectFilePos(file, 0, 0);
    std::vector<TestFrame> frames = MakeSequence(3);
    for (TestFrame& frame : frames)
        ASSERT_EQ(WriteTestFrame(file, frame), 1);
    ExpectFilePos(file, 0, 2);
    // Two key frames in a row: the first forms a block of one frame.
    TestFrame key = MakeSequenceFrame(0, 2);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    ExpectFilePos(file, 2, 0);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, dir.Path("pos.zn")), 1);
    ASSERT_EQ(reader.GetTotalBlock(), 4u);
    const DWORD expectedFrames[] = {3, 1, 1, 0};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(reader.GetBlockInfo()->GetAt(i).dwFrames, expectedFrames[i]) << "block " << i;
}

TEST(ZnFileWriting, MisuseIsRefusedByResult)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile file;
    TestFrame key = MakeSequenceFrame(0);
    EXPECT_EQ(WriteTestFrame(file, key), -1);
    EXPECT_EQ(file.WriteOneFrame(nullptr), -1);
    EXPECT_EQ(file.Open(dir.Path("missing/dir.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 0);
    EXPECT_EQ(WriteTestFrame(file, key), -1);

    const std::string strPath = dir.Path("misuse.zn");
    ASSERT_EQ(file.Open(strPath.c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    EXPECT_EQ(file.Open(strPath.c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 0);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    tag_ZNFRAMEDATA noBuffer{ZNFRAME_P, 0, 0, 10, nullptr, 0, nullptr};
    EXPECT_EQ(file.WriteOneFrame(&noBuffer), -1);
    EXPECT_EQ(file.Close(), 1);
    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, strPath), 1);
    EXPECT_EQ(reader.GetTotalFrameNum(), 1u);
}

TEST(ZnFileWriting, NamesLongerThanAReaderTakesAreCut)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    const std::string strLong(1500, 'x');
    CZnFile file(strLong.c_str(), strLong.c_str(), strLong.c_str());
    ASSERT_EQ(file.Open(dir.Path("long.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    TestFrame key = MakeSequenceFrame(0);
    ASSERT_EQ(WriteTestFrame(file, key), 1);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, dir.Path("long.zn")), 1);
    EXPECT_EQ(reader.GetCameraName().GetLength(), 1000);
    EXPECT_EQ(reader.GetBoardName().GetLength(), 1000);
    EXPECT_EQ(reader.GetHostName().GetLength(), 1000);
}

TEST(ZnFileWritingLimits, BlockCounterNeverWraps)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile file;
    ASSERT_EQ(file.Open(dir.Path("full.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    tag_ZNFRAMEDATA frame{ZNFRAME_I, 0, 0, 0, nullptr, 0, nullptr};
    ASSERT_EQ(file.WriteOneFrame(&frame), 1);
    frame.wFrameType = ZNFRAME_P;
    for (DWORD i = 1; i < 0xFFFF; ++i)
        ASSERT_EQ(file.WriteOneFrame(&frame), 1);
    // The block holds 65535 frames: only a key frame, which starts a new block, goes in.
    EXPECT_EQ(file.WriteOneFrame(&frame), 0);
    frame.wFrameType = ZNFRAME_I;
    EXPECT_EQ(file.WriteOneFrame(&frame), 1);
    file.Close();

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, dir.Path("full.zn")), 1);
    EXPECT_EQ(reader.GetBlockInfo()->GetAt(0).dwFrames, 0xFFFFu);
    EXPECT_EQ(reader.GetTotalFrameNum(), 0x10000u);
}

} // namespace
