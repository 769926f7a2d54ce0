// A writer that meets failures loses nothing it has stored: every step of a block change
// and of the opening and closing fails in turn on a simulated disk; one writer owns its
// file; frames that can't be stored or read are refused.
#include "RecordingTestSupport.h"

#include "platform/CDiskSimulator.h"
#include "platform/Disks.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool Exists(const std::string& strPath)
{
    struct stat status {};
    return lstat(strPath.c_str(), &status) == 0;
}

// Reads the file from the start: exactly the frames given, in order, and then the end.
::testing::AssertionResult HoldsExactly(const std::string& strPath, const std::vector<TestFrame>& frames)
{
    CZnFile reader;
    if (OpenToRead(reader, strPath) != 1)
        return ::testing::AssertionFailure() << "doesn't open";
    FrameBuffers buffers(reader);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (reader.ReadOneFrame(buffers.Frame(), -1, 0) != 1)
            return ::testing::AssertionFailure() << "ends at frame " << i << " of " << frames.size();
        ::testing::AssertionResult equal = FrameEquals(*buffers.Frame(), frames[i]);
        if (!equal)
            return equal << " at frame " << i;
    }
    if (reader.ReadOneFrame(buffers.Frame(), -1, 0) != 0)
        return ::testing::AssertionFailure() << "more than " << frames.size() << " frames";
    return ::testing::AssertionSuccess();
}

// Fails each operation of a block change in turn, with a full disk and with a broken one.
// The key frame gives -1 and is reported; predicted frames are refused until a key frame
// is stored; a reader sees the stored block whole; the retry stores everything.
TEST(ZnFileFailures, EveryStepOfABlockChangeCanFailAndBeRetried)
{
    TempDir dir(GetSimulationBase());
    const std::vector<TestFrame> frames = MakeBlockFrames({3, 4, 2}, 0, 1, 70000);
    const std::string strPath = dir.Path("fail.zn");
    auto writeFirstBlocks = [&](CZnFile& file) {
        std::remove(strPath.c_str());
        ASSERT_EQ(OpenToWrite(file, strPath), 1);
        for (std::size_t i = 0; i < 7; ++i)
            ASSERT_EQ(WriteTestFrame(file, frames[i]), 1);
    };
    DWORD dwChangeOperations = 0;
    {
        CDiskSimulator disk;
        CZnFile file;
        writeFirstBlocks(file);
        const DWORD dwBefore = disk.GetOperationCount();
        ASSERT_EQ(WriteTestFrame(file, frames[7]), 1);
        dwChangeOperations = disk.GetOperationCount() - dwBefore;
    }
    ASSERT_GE(dwChangeOperations, 6u);

    for (DWORD dwFailing = 0; dwFailing < dwChangeOperations; ++dwFailing) {
        for (int nErrno : {ENOSPC, EIO}) {
            SCOPED_TRACE(testing::Message() << "operation " << dwFailing << " errno " << nErrno);
            CDiskSimulator disk;
            ReportCounter reports;
            CZnFile file;
            writeFirstBlocks(file);
            disk.InjectFailures(CDiskSimulator::opWrite | CDiskSimulator::opSync, dwFailing, 1, nErrno);
            ASSERT_EQ(WriteTestFrame(file, frames[7]), -1);
            EXPECT_EQ(ReportCounter::Count(), 1);
            EXPECT_NE(file.IsNextIFrame(), 0);
            EXPECT_EQ(WriteTestFrame(file, frames[8]), 0);
            // Block 0 is stored; block 1 shows whole or not at all.
            CZnFile reader;
            ASSERT_EQ(OpenToRead(reader, strPath), 1);
            EXPECT_TRUE(reader.GetTotalFrameNum() == 3 || reader.GetTotalFrameNum() == 7) << reader.GetTotalFrameNum();

            ASSERT_EQ(WriteTestFrame(file, frames[7]), 1);
            EXPECT_EQ(file.IsNextIFrame(), 0);
            ASSERT_EQ(WriteTestFrame(file, frames[8]), 1);
            EXPECT_EQ(file.Close(), 1);
            EXPECT_TRUE(HoldsExactly(strPath, frames));
        }
    }
}

// Opening on a full disk and closing on a broken one are reported results. A file left
// with no stored frame is removed; one with stored blocks keeps them.
TEST(ZnFileFailures, OpenAndCloseReportFailuresAndLeaveNoHalfMadeFile)
{
    TempDir dir(GetSimulationBase());
    const std::string strPath = dir.Path("half.zn");
    CDiskSimulator disk;
    ReportCounter reports;
    std::vector<TestFrame> frames = MakeBlockFrames({2, 2}, 0);
    for (UINT nKind : {CDiskSimulator::opWrite, CDiskSimulator::opSync}) {
        disk.InjectFailures(nKind, 0, 1, ENOSPC);
        CZnFile file;
        EXPECT_EQ(OpenToWrite(file, strPath), 0);
        EXPECT_FALSE(Exists(strPath));
    }
    EXPECT_EQ(ReportCounter::Count(), 2);

    CZnFile file;
    ASSERT_EQ(OpenToWrite(file, strPath), 1);
    ASSERT_EQ(WriteTestFrame(file, frames[0]), 1);
    disk.InjectFailures(CDiskSimulator::opSync, 0, 1, EIO);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_FALSE(Exists(strPath));

    ASSERT_EQ(OpenToWrite(file, strPath), 1);
    for (TestFrame& frame : frames)
        ASSERT_EQ(WriteTestFrame(file, frame), 1);
    disk.InjectFailures(CDiskSimulator::opWrite, 0, 1, ENOSPC);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(ReportCounter::Count(), 4);
    EXPECT_TRUE(HoldsExactly(strPath, std::vector<TestFrame>(frames.begin(), frames.begin() + 2)));
}

// The writer holds its file from Open to Close: no second writer, no deletion under it,
// no writing through a link, and at Close it deletes nothing but its own file.
TEST(ZnFileFailures, OneWriterOwnsItsFileAndNeverFollowsALink)
{
    TempDir dir(GetSimulationBase());
    ReportCounter reports;
    const std::string strPath = dir.Path("owned.zn");
    const std::string strOther = dir.Path("other");
    WriteFileBytes(strOther, {'k', 'e', 'e', 'p'}, 4);
    std::vector<TestFrame> frames = MakeBlockFrames({2, 2}, 0);

    ASSERT_EQ(symlink(strOther.c_str(), strPath.c_str()), 0);
    CZnFile file;
    EXPECT_EQ(OpenToWrite(file, strPath), 0);
    ASSERT_EQ(std::remove(strPath.c_str()), 0);

    ASSERT_EQ(OpenToWrite(file, strPath), 1);
    ASSERT_EQ(WriteTestFrame(file, frames[0]), 1);
    CZnFile second;
    EXPECT_EQ(OpenToWrite(second, strPath), 0);
    EXPECT_FALSE(DeleteFileA(strPath.c_str()));
    EXPECT_EQ(ReportCounter::Count(), 2);

    // The path swapped for a link to another file: the blocks still go to the recording.
    const std::string strAside = dir.Path("aside.zn");
    ASSERT_EQ(std::rename(strPath.c_str(), strAside.c_str()), 0);
    ASSERT_EQ(symlink(strOther.c_str(), strPath.c_str()), 0);
    for (std::size_t i = 1; i < frames.size(); ++i)
        ASSERT_EQ(WriteTestFrame(file, frames[i]), 1);
    EXPECT_EQ(file.Close(), 1);
    EXPECT_TRUE(HoldsExactly(strAside, frames));
    EXPECT_EQ(ReadFileBytes(strOther), (std::vector<BYTE>{'k', 'e', 'e', 'p'}));

    // A writer without frames deletes its file at Close, but not what took its place.
    ASSERT_EQ(std::remove(strPath.c_str()), 0);
    ASSERT_EQ(OpenToWrite(file, strPath), 1);
    ASSERT_EQ(std::rename(strOther.c_str(), strPath.c_str()), 0);
    EXPECT_EQ(file.Close(), 1);
    EXPECT_EQ(ReadFileBytes(strPath), (std::vector<BYTE>{'k', 'e', 'e', 'p'}));
}

// A frame that a reader would refuse isn't stored, and neither are the predicted frames
// that depend on it.
TEST(ZnFileFailures, FramesAReaderWouldRefuseAreRefused)
{
    TempDir dir(GetSimulationBase());
    const std::string strPath = dir.Path("refuse.zn");
    CZnFile file;
    ASSERT_EQ(OpenToWrite(file, strPath), 1);
    std::vector<TestFrame> frames = MakeBlockFrames({2, 1}, 0);
    ASSERT_EQ(WriteTestFrame(file, frames[0]), 1);
    // Key frames, which a missing key frame doesn't hold back.
    TestFrame tooLong = frames[2];
    tooLong.video.assign(320 * 240 * 2 + 1, 7);
    TestFrame loud = frames[2];
    loud.wFlags = ZNFRAME_SOUND;
    loud.sound.assign(ZNFRAME_SOUND_BUFFER_SIZE + 1, 9);
    for (TestFrame* pFrame : {&tooLong, &loud}) {
        EXPECT_EQ(WriteTestFrame(file, *pFrame), 0);
        EXPECT_NE(file.IsNextIFrame(), 0);
        EXPECT_EQ(WriteTestFrame(file, frames[1]), 0);
    }
    ASSERT_EQ(WriteTestFrame(file, frames[2]), 1);
    EXPECT_EQ(file.Close(), 1);
    EXPECT_TRUE(HoldsExactly(strPath, {frames[0], frames[2]}));
}

} // namespace
