// Reading recordings: the block table, sequential and positioned reads, the read
// position, and the fields of the head.
#include "RecordingTestSupport.h"

#include "platform/CDiskSimulator.h"

#include <cerrno>
#include <tuple>

namespace {

class ZnFileReading : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Blocks of 4, 2, 5 and 3 frames with sound, lost signal and empty sound among them.
        m_frames = MakeBlockFrames({4, 2, 5, 3}, 1);
        WriteRecording(m_dir.Path("read.zn"), m_frames);
        ASSERT_EQ(OpenToRead(m_file, m_dir.Path("read.zn")), 1);
    }

    // Index into m_frames of frame nFrame of block nBlock.
    std::size_t FrameIndex(int nBlock, int nFrame) const
    {
        static const int blockStarts[] = {0, 4, 6, 11, 14};
        return static_cast<std::size_t>(blockStarts[nBlock] + nFrame);
    }

    TempDir m_dir;
    std::vector<TestFrame> m_frames;
    CZnFile m_file;
};

TEST_F(ZnFileReading, BlockTableCountsTheEndBlockAndIsZeroBehindIt)
{
    EXPECT_EQ(m_file.GetTotalFrameNum(), 14u);
    ASSERT_EQ(m_file.GetTotalBlock(), 5u);
    const CArray<tag_ZNBLOCKINFO, tag_ZNBLOCKINFO&>* pTable = m_file.GetBlockInfo();
    ASSERT_GE(pTable->GetSize(), 1024);
    const DWORD expectedFrames[] = {4, 2, 5, 3, 0};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(pTable->GetAt(i).dwFrames, expectedFrames[i]);
        if (i < 4) {
            EXPECT_EQ(pTable->GetAt(i).dwTimeStamp, m_frames[FrameIndex(i, 0)].dwTimeStamp);
        }
    }
    EXPECT_LT(pTable->GetAt(0).dwOffset, pTable->GetAt(1).dwOffset);
    for (int i = 5; i < pTable->GetSize(); ++i) {
        const tag_ZNBLOCKINFO entry = pTable->GetAt(i);
        ASSERT_EQ(entry.dwOffset | entry.dwFrames | entry.dwTimeStamp, 0u) << "entry " << i;
    }
}

TEST_F(ZnFileReading, SequentialAndPositionedReadsMoveThePosition)
{
    ExpectFilePos(m_file, 0, 0);
    ExpectFramesThenEnd(m_file, m_frames.data(), m_frames.size(), false);
    // Behind the last real frame the table still lists the end block: only the next read
    // tells the end, and reading at the end moves nothing.
    ExpectFilePos(m_file, 3, 3);
    ExpectFramesThenEnd(m_file, nullptr, 0);
    ExpectFramesThenEnd(m_file, nullptr, 0);
    ExpectFilePos(m_file, 3, 3);

    FrameBuffers buffers(m_file);
    ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), 2, 3), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), m_frames[FrameIndex(2, 3)]));
    ExpectFilePos(m_file, 2, 4);
    ExpectFramesThenEnd(m_file, &m_frames[FrameIndex(2, 4)], m_frames.size() - FrameIndex(2, 4));

    // One past the end of a block is the first frame of the next.
    ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), 1, 2), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), m_frames[FrameIndex(2, 0)]));
    ExpectFilePos(m_file, 2, 1);

    // Every frame by its place.
    for (int b = 0; b < 4; ++b) {
        for (DWORD f = 0; f < m_file.GetBlockInfo()->GetAt(b).dwFrames; ++f) {
            ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), b, static_cast<int>(f)), 1);
            EXPECT_TRUE(FrameEquals(*buffers.Frame(), m_frames[FrameIndex(b, static_cast<int>(f))]));
        }
    }
}

TEST_F(ZnFileReading, ReadsOutsideTheFileChangeNothing)
{
    FrameBuffers buffers(m_file);
    ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), 1, 1), 1);
    EXPECT_EQ(m_file.ReadOneFrame(buffers.Frame(), static_cast<int>(m_file.GetTotalBlock()), 0), 0);
    EXPECT_EQ(m_file.ReadOneFrame(buffers.Frame(), 0, -1), 0);
    EXPECT_EQ(m_file.ReadOneFrame(buffers.Frame(), 3, 3), 0);
    EXPECT_EQ(m_file.ReadOneFrame(buffers.Frame(), 4, 0), 0);
    EXPECT_EQ(m_file.ReadOneFrame(nullptr, -1, 0), 0);
    ExpectFilePos(m_file, 1, 2);
    ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), -1, 0), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), m_frames[FrameIndex(2, 0)]));
}

TEST_F(ZnFileReading, DiskErrorsAreReportedAndChangeNothing)
{
    FrameBuffers buffers(m_file);
    ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), 1, 0), 1);
    CDiskSimulator disk;
    ReportCounter reports;
    disk.InjectFailures(CDiskSimulator::opRead, 0, 2, EIO);
    EXPECT_EQ(m_file.ReadOneFrame(buffers.Frame(), -1, 0), 0);
    EXPECT_EQ(m_file.ReadOneFrame(buffers.Frame(), 2, 0), 0);
    ExpectFilePos(m_file, 1, 1);
    ASSERT_EQ(m_file.ReadOneFrame(buffers.Frame(), -1, 0), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), m_frames[FrameIndex(1, 1)]));
    disk.InjectFailures(CDiskSimulator::opRead, 1, 1, EIO);
    CZnFile file;
    EXPECT_EQ(OpenToRead(file, m_dir.Path("read.zn")), 0);
    EXPECT_EQ(ReportCounter::Count(), 3);
}

TEST_F(ZnFileReading, HeadFieldsAndCameraDescriptionComeFromTheFile)
{
    const CZnFile fresh;
    CZnFile file("x", "y", "z");
    tag_CAMERAINFO info{};
    ASSERT_EQ(file.Open(m_dir.Path("read.zn").c_str(), &info, 0, ZNFILE_READ), 1);
    EXPECT_EQ(std::tie(info.nBoard, info.nCamera, info.nWidth, info.nHeight, info.nStandard),
              std::make_tuple(1, 2, 320, 240, STANDARD_NTSC));
    EXPECT_EQ(file.GetVideoWidth(), 320);
    EXPECT_EQ(file.GetVideoHeight(), 240);
    EXPECT_EQ(file.GetFileVersion(), 0x0101);
    EXPECT_EQ(file.GetSoundFormat(), SOUNDFMT_ADPCM);
    EXPECT_EQ(file.GetCameraName(), "camera");
    EXPECT_EQ(file.GetBoardName(), "board");
    EXPECT_EQ(file.GetHostName(), "host");
    EXPECT_EQ(file.GetBeginTimeStamp(), m_frames[0].dwTimeStamp);
    EXPECT_LE(file.GetBeginTime(), file.GetEndTime());
    EXPECT_LT(file.GetGmt(), 24);
    EXPECT_GE(file.GetGmt(), 0);
    EXPECT_NE(file.GetFileName().Find("read.zn"), -1);
    EXPECT_EQ(file.GetFileName()[0], '/');
    // A record without sound leaves the caller's sound length as it was.
    FrameBuffers buffers(file);
    buffers.Frame()->dwSoundLen = 4321;
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), 0, 1), 1);
    EXPECT_EQ(buffers.Frame()->dwSoundLen, 4321u);
    // A file that is open can't be opened again until it is closed; after a failed
    // opening the object can be opened.
    EXPECT_EQ(file.Open(m_dir.Path("read.zn").c_str(), &info, 0, ZNFILE_READ), 0);
    file.Close();
    // A closed object, like a new one, describes no file.
    for (const CZnFile* pFile : {static_cast<const CZnFile*>(&file), &fresh}) {
        EXPECT_EQ(pFile->GetTotalBlock(), 0u);
        EXPECT_EQ(pFile->GetTotalFrameNum(), 0u);
        EXPECT_EQ(pFile->GetBlockInfo()->GetSize(), 0);
    }
    EXPECT_EQ(file.Open(m_dir.Path("missing.zn").c_str(), &info, 0, ZNFILE_READ), 0);
    EXPECT_EQ(file.Open(m_dir.Path("read.zn").c_str(), &info, 0, ZNFILE_READ), 1);
}

TEST(ZnFileReadingTable, TableGrowsBeyondItsFirstSize)
{
    TempDir dir;
    // Built by hand: a writer would sync 1500 block changes.
    std::vector<TestFrame> frames;
    HandBuiltRecording recording;
    for (DWORD i = 0; i < 1500; ++i) {
        frames.push_back(MakeSequenceFrame(i, 1, 300));
        frames.back().wFrameType = ZNFRAME_I;
        recording.blocks.push_back({frames.back()});
    }
    const std::vector<BYTE> bytes = recording.Build();
    WriteFileBytes(dir.Path("many.zn"), bytes, bytes.size());
    CZnFile file;
    ASSERT_EQ(OpenToRead(file, dir.Path("many.zn")), 1);
    ASSERT_EQ(file.GetTotalBlock(), 1501u);
    ASSERT_GE(file.GetBlockInfo()->GetSize(), 1501);
    for (int i = 0; i < 1500; ++i)
        ASSERT_EQ(file.GetBlockInfo()->GetAt(i).dwTimeStamp, frames[static_cast<std::size_t>(i)].dwTimeStamp);
    FrameBuffers buffers(file);
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), 1499, 0), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), frames[1499]));
    EXPECT_EQ(file.ReadOneFrame(buffers.Frame(), -1, 0), 0);
}

TEST(ZnFileReadingTable, WriterCanBeReadBetweenBlockChanges)
{
    TempDir dir;
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile writer;
    ASSERT_EQ(writer.Open(dir.Path("live.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    std::vector<TestFrame> frames;
    for (DWORD i = 0; i < 330; ++i) {
        frames.push_back(MakeSequenceFrame(i));
        ASSERT_EQ(WriteTestFrame(writer, frames.back()), 1);
    }
    // Two blocks are closed; the third collects in memory.
    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, dir.Path("live.zn")), 1);
    EXPECT_EQ(reader.GetTotalBlock(), 3u);
    EXPECT_EQ(reader.GetTotalFrameNum(), 320u);
    ExpectFramesThenEnd(reader, frames.data(), 320);
    writer.Close();
}

} // namespace
