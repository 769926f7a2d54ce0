// Files up to the format's limit of 4 GiB - 1: offsets beyond the signed 32-bit range
// are written, walked, read and clipped, and a writer at the limit refuses what would
// pass it. The files are sparse: only their records and the frames checked hold data.
#include "RecordingTestSupport.h"

#include "platform/CException.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <linux/magic.h>

namespace {

constexpr std::uint64_t kMaxLength = 0xFFFFFFFF;
constexpr DWORD kLastOffset = 0xFFFFFFFE;
constexpr std::uint64_t k2GiB = 0x80000000u;

int g_nReports = 0;

void CountReport(LPCSTR)
{
    ++g_nReports;
}

// Moves the blocks of a hand-built recording so that its last byte stands at kLastOffset,
// with a hole between the names and the data; false where the file system can't.
bool WriteAtTheTop(const std::string& strPath, std::vector<BYTE> bytes)
{
    const DWORD dwOldOffset = GetLe32(bytes, 28);
    const DWORD dwNewOffset = kLastOffset + 1 - static_cast<DWORD>(bytes.size() - dwOldOffset);
    const DWORD dwShift = dwNewOffset - dwOldOffset;
    SetLe32(bytes, 28, dwNewOffset);
    for (DWORD dwPos = dwOldOffset;;) {
        const DWORD dwPrev = GetLe32(bytes, dwPos);
        const DWORD dwNext = GetLe32(bytes, dwPos + 4);
        if (dwPrev != ZNBLOCK_NO_LINK)
            SetLe32(bytes, dwPos, dwPrev + dwShift);
        if (dwNext == ZNBLOCK_NO_LINK)
            break;
        SetLe32(bytes, dwPos + 4, dwNext + dwShift);
        dwPos = dwNext;
    }
    const int hFile = open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::size_t nDataLength = bytes.size() - dwOldOffset;
    const bool bWritten = hFile >= 0 && pwrite(hFile, bytes.data(), dwOldOffset, 0) == dwOldOffset &&
                          pwrite(hFile, bytes.data() + dwOldOffset, nDataLength, dwNewOffset) ==
                              static_cast<ssize_t>(nDataLength);
    if (hFile >= 0)
        close(hFile);
    return bWritten;
}

TEST(ZnFileLargeFiles, ReadsWalksAndClipsAtTheTopOfTheOffsets)
{
    TempDir dir;
    HandBuiltRecording recording;
    recording.blocks = {MakeBlockFrames({3}, 0), MakeBlockFrames({2}, 3), MakeBlockFrames({4}, 5)};
    std::vector<TestFrame> frames;
    for (const std::vector<TestFrame>& block : recording.blocks)
        frames.insert(frames.end(), block.begin(), block.end());
    if (!WriteAtTheTop(dir.Path("top.zn"), recording.Build()))
        GTEST_SKIP() << "the file system can't hold a file of 4 GiB - 1";

    CZnFile file;
    ASSERT_EQ(OpenToRead(file, dir.Path("top.zn")), 1);
    ASSERT_EQ(file.GetTotalBlock(), 4u);
    EXPECT_GT(file.GetBlockInfo()->GetAt(0).dwOffset, k2GiB);
    ExpectFramesThenEnd(file, frames);
    FrameBuffers buffers(file);
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), 2, 3), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), frames[8]));

    ASSERT_EQ(file.ClipFile(dir.Path("clip.zn").c_str(), 1, static_cast<int>(file.GetTotalBlock()), 0), 1);
    CZnFile clip;
    ASSERT_EQ(OpenToRead(clip, dir.Path("clip.zn")), 1);
    ExpectFramesThenEnd(clip, &frames[3], 6);
}

// The biggest frames of the biggest picture, 16 to a block. Blocks are punched out of the
// file once stored, but for the one across 2 GiB and the last, which are read back.
TEST(ZnFileLargeFiles, WriterPasses2GiBAndStopsAtTheLimit)
{
    struct statfs fileSystem {};
    struct statvfs space {};
    if (statfs("/dev/shm", &fileSystem) != 0 || fileSystem.f_type != TMPFS_MAGIC || statvfs("/dev/shm", &space) != 0 ||
        static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize < (64u << 20))
        GTEST_SKIP() << "needs a tmpfs at /dev/shm with 64 MB free, to write 4 GiB without a disk";
    char szDir[] = "/dev/shm/zndvr-large-XXXXXX";
    ASSERT_NE(mkdtemp(szDir), nullptr);
    const std::string strPath = std::string(szDir) + "/large.zn";

    constexpr DWORD kBlockFrames = 16;
    tag_CAMERAINFO info = MakeCameraInfo(704, 288, STANDARD_PAL);
    TestFrame frame;
    frame.wFlags = ZNFRAME_SOUND;
    frame.video = PatternBytes(704 * 288 * 2, 1);
    frame.sound = PatternBytes(ZNFRAME_SOUND_BUFFER_SIZE, 2);
    const DWORD dwDataOffset = 36 + 4 + 4;
    const std::uint64_t nBlockLength = 16 + kBlockFrames * static_cast<std::uint64_t>(frame.RecordSize());
    auto makeFrame = [&](DWORD i) {
        TestFrame made = frame;
        made.wFrameType = i % kBlockFrames == 0 ? ZNFRAME_I : ZNFRAME_P;
        made.dwTimeStamp = i * 40;
        SetLe32(made.video, 0, i);
        return made;
    };
    const std::uint64_t nBlockAcross2GiB = (k2GiB - dwDataOffset) / nBlockLength;

    const EXCEPTIONREPORTER pfnOld = SetExceptionReporter(CountReport);
    g_nReports = 0;
    CZnFile writer;
    ASSERT_EQ(writer.Open(strPath.c_str(), &info, STREAM_REVISION_20020219, ZNFILE_WRITE), 1);
    const int hPunch = open(strPath.c_str(), O_WRONLY);
    ASSERT_GE(hPunch, 0);
    DWORD dwTaken = 0;
    int nResult = 1;
    for (; nResult == 1; ++dwTaken) {
        SetLe32(frame.video, 0, dwTaken);
        frame.wFrameType = dwTaken % kBlockFrames == 0 ? ZNFRAME_I : ZNFRAME_P;
        frame.dwTimeStamp = dwTaken * 40;
        nResult = WriteTestFrame(writer, frame);
        const std::uint64_t nStored = dwTaken / kBlockFrames;
        if (nResult == 1 && dwTaken % kBlockFrames == 0 && nStored > 0 && nStored - 1 != nBlockAcross2GiB) {
            const std::uint64_t nData = dwDataOffset + (nStored - 1) * nBlockLength + 16;
            const std::uint64_t nFirst = (nData + 4095) / 4096 * 4096;
            const std::uint64_t nEnd = (nData + nBlockLength - 16) / 4096 * 4096;
            ASSERT_EQ(fallocate(hPunch, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(nFirst),
                                static_cast<off_t>(nEnd - nFirst)),
                      0);
        }
    }
    close(hPunch);
    --dwTaken;
    SetExceptionReporter(pfnOld);
    EXPECT_EQ(nResult, -1);
    EXPECT_EQ(g_nReports, 1);
    EXPECT_NE(writer.IsNextIFrame(), 0);
    ASSERT_EQ(writer.Close(), 1);
    EXPECT_LE(std::filesystem::file_size(strPath), kMaxLength);
    EXPECT_GT(std::filesystem::file_size(strPath) + nBlockLength, kMaxLength);

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, strPath), 1);
    EXPECT_EQ(reader.GetTotalFrameNum(), dwTaken);
    const DWORD dwLastBlock = reader.GetTotalBlock() - 2;
    EXPECT_EQ(dwLastBlock, (dwTaken - 1) / kBlockFrames);
    FrameBuffers buffers(reader);
    for (DWORD dwBlock : {static_cast<DWORD>(nBlockAcross2GiB), dwLastBlock}) {
        const DWORD dwFrames = reader.GetBlockInfo()->GetAt(static_cast<int>(dwBlock)).dwFrames;
        for (DWORD f = 0; f < dwFrames; ++f) {
            ASSERT_EQ(reader.ReadOneFrame(buffers.Frame(), static_cast<int>(dwBlock), static_cast<int>(f)), 1);
            ASSERT_TRUE(FrameEquals(*buffers.Frame(), makeFrame(dwBlock * kBlockFrames + f))) << dwBlock << " " << f;
        }
    }
    std::filesystem::remove_all(szDir);
}

} // namespace
