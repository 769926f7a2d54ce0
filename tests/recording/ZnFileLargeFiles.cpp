// Files up to the format's limit of 4 GiB - 1: offsets beyond the signed 32-bit range
// are written, walked, read and clipped, and a writer at the limit refuses what would
// pass it. The files are sparse: only their records and the frames checked hold data.
#include "RecordingTestSupport.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <tuple>

#include <linux/magic.h>

namespace {

constexpr std::uint64_t kMaxLength = 0xFFFFFFFF;
constexpr DWORD kLastOffset = 0xFFFFFFFE;

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
    EXPECT_GT(file.GetBlockInfo()->GetAt(0).dwOffset, 0x80000000u);
    ExpectFramesThenEnd(file, frames);
    FrameBuffers buffers(file);
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), 2, 3), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), frames[8]));

    ASSERT_EQ(file.ClipFile(dir.Path("clip.zn").c_str(), 1, static_cast<int>(file.GetTotalBlock()), 0), 1);
    CZnFile clip;
    ASSERT_EQ(OpenToRead(clip, dir.Path("clip.zn")), 1);
    ExpectFramesThenEnd(clip, &frames[3], 6);
}

// Written with the biggest frames of the biggest picture, 16 to a block, then filled to
// the last byte: a file of exactly 4 GiB - 1 is taken, a byte more is refused. Blocks are
// punched out of the file once stored, all but the last two, which are read back.
TEST(ZnFileLargeFiles, WriterPasses2GiBAndStopsExactlyAtTheLimit)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "one thread copying 4 GiB: the thread sanitizer only makes it slow";
#endif
    struct statfs fileSystem {};
    struct statvfs space {};
    if (statfs("/dev/shm", &fileSystem) != 0 || fileSystem.f_type != TMPFS_MAGIC || statvfs("/dev/shm", &space) != 0 ||
        static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize < (64u << 20))
        GTEST_SKIP() << "needs a tmpfs at /dev/shm with 64 MB free, to write 4 GiB without a disk";
    TempDir dir("/dev/shm");
    const std::string strPath = dir.Path("large.zn");

    constexpr DWORD kBlockFrames = 16;
    constexpr DWORD kMaxVideo = 704 * 288 * 2;
    constexpr std::uint64_t kMaxRecord = 16 + kMaxVideo + ZNFRAME_SOUND_BUFFER_SIZE;
    constexpr std::uint64_t kBlockLength = 16 + kBlockFrames * kMaxRecord;
    std::vector<BYTE> video = PatternBytes(kMaxVideo, 1);
    std::vector<BYTE> sound = PatternBytes(ZNFRAME_SOUND_BUFFER_SIZE, 2);
    // The writer's place, from the record lengths alone: the record of the block that
    // collects, and the bytes of the frames behind it.
    std::uint64_t nRecordPos = 36 + 4 + 4;
    std::uint64_t nCollected = 0;
    auto room = [&] { return kMaxLength - (nRecordPos + 16 + nCollected + 16); };
    // Every frame taken, as it was given.
    std::vector<tag_ZNFRAMEDATA> taken;

    tag_CAMERAINFO info = MakeCameraInfo(704, 288, STANDARD_PAL);
    CZnFile writer;
    ASSERT_EQ(writer.Open(strPath.c_str(), &info, STREAM_REVISION_20020219, ZNFILE_WRITE), 1);
    auto write = [&](WORD wType, DWORD dwVideo, DWORD dwSound) {
        const DWORD dwIndex = static_cast<DWORD>(taken.size());
        SetLe32(video, 0, dwIndex);
        tag_ZNFRAMEDATA frame{wType, static_cast<WORD>(dwSound != 0 ? ZNFRAME_SOUND : 0), dwIndex * 40, dwVideo,
                              video.data(), dwSound, sound.data()};
        const int nResult = writer.WriteOneFrame(&frame);
        if (nResult == 1) {
            if (wType == ZNFRAME_I && nCollected != 0) {
                nRecordPos += 16 + nCollected;
                nCollected = 0;
            }
            nCollected += (dwSound != 0 ? 16 : 12) + static_cast<std::uint64_t>(dwVideo) + dwSound;
            taken.push_back(frame);
        }
        return nResult;
    };

    const int hPunch = open(strPath.c_str(), O_WRONLY);
    ASSERT_GE(hPunch, 0);
    while (room() > 2 * kBlockLength) {
        const std::uint64_t nStoredPos = nRecordPos;
        ASSERT_EQ(write(ZNFRAME_I, kMaxVideo, ZNFRAME_SOUND_BUFFER_SIZE), 1);
        if (nRecordPos != nStoredPos) {
            ASSERT_EQ(fallocate(hPunch, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(nStoredPos + 4096),
                                static_cast<off_t>(kBlockLength - 8192)),
                      0);
        }
        for (DWORD i = 1; i < kBlockFrames; ++i)
            ASSERT_EQ(write(ZNFRAME_P, kMaxVideo, ZNFRAME_SOUND_BUFFER_SIZE), 1);
    }
    close(hPunch);
    // Predicted frames until one key frame, no bigger than a reader takes, fills the rest.
    constexpr std::uint64_t kLastKeyRoom = 16 + kMaxRecord - 1000;
    while (room() >= kLastKeyRoom + 12) {
        const std::uint64_t nRecord = std::min(kMaxRecord, room() - kLastKeyRoom);
        if (nRecord >= 16 + ZNFRAME_SOUND_BUFFER_SIZE)
            ASSERT_EQ(write(ZNFRAME_P, static_cast<DWORD>(nRecord - 16 - ZNFRAME_SOUND_BUFFER_SIZE), ZNFRAME_SOUND_BUFFER_SIZE), 1);
        else
            ASSERT_EQ(write(ZNFRAME_P, static_cast<DWORD>(nRecord - 12), 0), 1);
    }
    // The key frame starts a block of its own, whose record takes 16 bytes of the room.
    const std::uint64_t nLastVideo = room() - 16 - 16 - ZNFRAME_SOUND_BUFFER_SIZE;
    ReportCounter reports;
    EXPECT_EQ(write(ZNFRAME_I, static_cast<DWORD>(nLastVideo + 1), ZNFRAME_SOUND_BUFFER_SIZE), -1);
    ASSERT_EQ(write(ZNFRAME_I, static_cast<DWORD>(nLastVideo), ZNFRAME_SOUND_BUFFER_SIZE), 1);
    EXPECT_EQ(write(ZNFRAME_P, 0, 0), -1);
    EXPECT_EQ(ReportCounter::Count(), 2);
    ASSERT_EQ(writer.Close(), 1);
    EXPECT_EQ(std::filesystem::file_size(strPath), kMaxLength);

    CZnFile reader;
    ASSERT_EQ(OpenToRead(reader, strPath), 1);
    ASSERT_EQ(reader.GetTotalFrameNum(), taken.size());
    FrameBuffers buffers(reader);
    const int nLastBlock = static_cast<int>(reader.GetTotalBlock()) - 2;
    for (int nBlock : {nLastBlock - 1, nLastBlock}) {
        std::size_t nFirst = 0;
        for (int b = 0; b < nBlock; ++b)
            nFirst += reader.GetBlockInfo()->GetAt(b).dwFrames;
        const DWORD dwFrames = reader.GetBlockInfo()->GetAt(nBlock).dwFrames;
        for (DWORD f = 0; f < dwFrames; ++f) {
            SCOPED_TRACE(testing::Message() << "block " << nBlock << " frame " << f);
            ASSERT_EQ(reader.ReadOneFrame(buffers.Frame(), nBlock, static_cast<int>(f)), 1);
            const tag_ZNFRAMEDATA& read = *buffers.Frame();
            const tag_ZNFRAMEDATA& written = taken[nFirst + f];
            SetLe32(video, 0, static_cast<DWORD>(nFirst + f));
            ASSERT_EQ(std::tie(read.wFrameType, read.wFlags, read.dwTimeStamp, read.dwVideoLen),
                      std::tie(written.wFrameType, written.wFlags, written.dwTimeStamp, written.dwVideoLen));
            ASSERT_TRUE(std::equal(read.pVideo, read.pVideo + read.dwVideoLen, video.begin()));
        }
    }
}

} // namespace
