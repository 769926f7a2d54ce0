// Files of older versions, damaged files and cut files: what opens, what is refused, and
// that no record is read past the caller's buffers.
#include "RecordingTestSupport.h"

namespace {

std::vector<TestFrame> MakeBlock(DWORD nFirst, int nFrames)
{
    return MakeBlockFrames({nFrames}, nFirst, 3, 500);
}

HandBuiltRecording MakeHandBuilt(WORD wVersion)
{
    HandBuiltRecording recording;
    recording.wVersion = wVersion;
    recording.blocks = {MakeBlock(0, 3), MakeBlock(10, 2)};
    return recording;
}

int OpenBytes(CZnFile& file, const TempDir& dir, const std::vector<BYTE>& bytes)
{
    file.Close();
    WriteFileBytes(dir.Path("damaged.zn"), bytes, bytes.size());
    return OpenToRead(file, dir.Path("damaged.zn"));
}

void ExpectAllFramesRead(CZnFile& file, const HandBuiltRecording& recording)
{
    std::vector<TestFrame> frames;
    for (const std::vector<TestFrame>& block : recording.blocks)
        frames.insert(frames.end(), block.begin(), block.end());
    ExpectFramesThenEnd(file, frames);
}

TEST(ZnFileOldVersions, EachVersionReadsWithTheFieldsItHas)
{
    TempDir dir;
    CZnFile file;

    // Before 0x0100: no host name, no GMT offset; unknown bytes before the data are
    // passed over by the data offset.
    HandBuiltRecording oldest = MakeHandBuilt(0x00FF);
    oldest.dwPadding = 9;
    ASSERT_EQ(OpenBytes(file, dir, oldest.Build()), 1);
    EXPECT_EQ(file.GetFileVersion(), 0x00FF);
    EXPECT_EQ(file.GetHostName(), "");
    EXPECT_EQ(file.GetGmt(), 0);
    EXPECT_EQ(file.GetCameraName(), "cam");
    EXPECT_EQ(file.GetTotalBlock(), 3u);
    ExpectAllFramesRead(file, oldest);

    HandBuiltRecording withGmt = MakeHandBuilt(0x0101);
    withGmt.nGmt = 19;
    ASSERT_EQ(OpenBytes(file, dir, withGmt.Build()), 1);
    EXPECT_EQ(file.GetGmt(), 19);

    // 0x0100 has a host name and no GMT offset: a reused object doesn't keep the last one.
    HandBuiltRecording hostOnly = MakeHandBuilt(0x0100);
    ASSERT_EQ(OpenBytes(file, dir, hostOnly.Build()), 1);
    EXPECT_EQ(file.GetHostName(), "hostname");
    EXPECT_EQ(file.GetGmt(), 0);
    ExpectAllFramesRead(file, hostOnly);

    HandBuiltRecording second = MakeHandBuilt(0x1000);
    second.byFrameSize = 0x85;
    ASSERT_EQ(OpenBytes(file, dir, second.Build()), 1);
    EXPECT_EQ(file.GetFileVersion(), 0x1000);
    EXPECT_EQ(file.GetVideoWidth(), 704);
    EXPECT_EQ(file.GetVideoHeight(), 288);
    EXPECT_EQ(file.GetVideoStandard(), STANDARD_PAL);
}

TEST(ZnFileOldVersions, HeadsOutsideTheFormatAreRefused)
{
    TempDir dir;
    CZnFile file;
    const std::vector<BYTE> good = MakeHandBuilt(0x0101).Build();
    ASSERT_EQ(OpenBytes(file, dir, good), 1);

    struct Damage {
        std::size_t nOffset;
        BYTE byValue;
    };
    const Damage damages[] = {
        {0, 'X'}, {1, 'X'},              // magic
        {3, 0x10},                        // version 0x1001
        {7, 161},                         // key-frame interval
        {4, 0x06}, {4, 0x86}, {4, 0x45},  // frame sizes that don't exist
        {21, 0x04},                       // board name of 1025 bytes
    };
    for (const Damage& damage : damages) {
        std::vector<BYTE> bytes = good;
        bytes[damage.nOffset] = damage.byValue;
        if (damage.nOffset == 3)
            bytes[2] = 0x01;
        EXPECT_EQ(OpenBytes(file, dir, bytes), 0) << "offset " << damage.nOffset;
    }

    // A name of 1001 bytes is longer than a reader takes. The host name has no limit in
    // the format, but longer than a reader takes is damage all the same.
    for (std::size_t nLength : {1001, 1000}) {
        SCOPED_TRACE(nLength);
        HandBuiltRecording longName = MakeHandBuilt(0x0101);
        longName.strBoard.assign(nLength, 'b');
        EXPECT_EQ(OpenBytes(file, dir, longName.Build()), nLength == 1000 ? 1 : 0);
        HandBuiltRecording longHost = MakeHandBuilt(0x0101);
        longHost.strHost.assign(nLength, 'h');
        EXPECT_EQ(OpenBytes(file, dir, longHost.Build()), nLength == 1000 ? 1 : 0);
    }
    EXPECT_EQ(file.GetHostName().GetLength(), 1000);
    HandBuiltRecording hugeHost = MakeHandBuilt(0x0100);
    hugeHost.dwHostLenField = 0xFFFFFFF0;
    EXPECT_EQ(OpenBytes(file, dir, hugeHost.Build()), 0);

    // A chain without frames is no recording.
    HandBuiltRecording empty = MakeHandBuilt(0x0101);
    empty.blocks = {{}};
    EXPECT_EQ(OpenBytes(file, dir, empty.Build()), 0);
}

TEST(ZnFileDamagedChain, LinksThatDontLeadForwardEndTheChain)
{
    TempDir dir;
    CZnFile file;
    HandBuiltRecording recording = MakeHandBuilt(0x0101);
    recording.blocks.push_back(MakeBlock(20, 4));
    std::vector<BYTE> bytes = recording.Build();
    const DWORD dwBlock0 = GetLe32(bytes, 28);
    const DWORD dwBlock1 = GetLe32(bytes, dwBlock0 + 4);

    // Block 1 linking back to block 0 would make the walk go round.
    std::vector<BYTE> loop = bytes;
    SetLe32(loop, dwBlock1 + 4, dwBlock0);
    ASSERT_EQ(OpenBytes(file, dir, loop), 1);
    EXPECT_EQ(file.GetTotalBlock(), 2u);
    EXPECT_EQ(file.GetTotalFrameNum(), 5u);
    SetLe32(loop, dwBlock1 + 4, dwBlock1);
    ASSERT_EQ(OpenBytes(file, dir, loop), 1);
    EXPECT_EQ(file.GetTotalBlock(), 2u);
    // Block 0, whose back link nothing checks, linking to itself both ways.
    SetLe32(loop, dwBlock0, dwBlock0);
    SetLe32(loop, dwBlock0 + 4, dwBlock0);
    ASSERT_EQ(OpenBytes(file, dir, loop), 1);
    EXPECT_EQ(file.GetTotalBlock(), 1u);

    // A link into the frames of the next block finds a "record" that doesn't link back.
    std::vector<BYTE> intoFrames = bytes;
    SetLe32(intoFrames, dwBlock0 + 4, dwBlock1 + 16);
    ASSERT_EQ(OpenBytes(file, dir, intoFrames), 1);
    EXPECT_EQ(file.GetTotalBlock(), 1u);
    EXPECT_EQ(file.GetTotalFrameNum(), 3u);

    // A link at or beyond the end ends the chain at its block, which still counts.
    std::vector<BYTE> beyond = bytes;
    SetLe32(beyond, dwBlock1 + 4, static_cast<DWORD>(bytes.size()));
    ASSERT_EQ(OpenBytes(file, dir, beyond), 1);
    EXPECT_EQ(file.GetTotalBlock(), 2u);
    EXPECT_EQ(file.GetTotalFrameNum(), 5u);
    // With no end block behind it, the place behind the last frame is no read position.
    ExpectAllFramesRead(file, MakeHandBuilt(0x0101));
    int nBlock = -1;
    int nFrame = -1;
    EXPECT_EQ(file.GetFilePos(nBlock, nFrame), 0);

    // A data offset beyond the file leaves no block.
    std::vector<BYTE> noData = bytes;
    SetLe32(noData, 28, 0x90000000);
    EXPECT_EQ(OpenBytes(file, dir, noData), 0);
}

TEST(ZnFileDamagedFrames, RecordsLongerThanTheBuffersAreRefused)
{
    TempDir dir;
    CZnFile file;
    // 160 x 112: 35840 video bytes; sound areas hold 65536 bytes.
    const DWORD dwVideoCapacity = 160 * 112 * 2;
    HandBuiltRecording recording = MakeHandBuilt(0x0101);
    recording.blocks = {MakeBlock(0, 5), MakeBlock(10, 2)};
    std::vector<TestFrame>& block = recording.blocks[0];
    block[1].video = PatternBytes(dwVideoCapacity, 1);
    block[2].video = PatternBytes(dwVideoCapacity + 1, 2);
    block[3].wFlags = ZNFRAME_SOUND;
    block[3].sound = PatternBytes(ZNFRAME_SOUND_BUFFER_SIZE, 3);
    block[4].wFlags = ZNFRAME_SOUND;
    block[4].sound = PatternBytes(ZNFRAME_SOUND_BUFFER_SIZE + 1, 4);
    ASSERT_EQ(OpenBytes(file, dir, recording.Build()), 1);

    FrameBuffers buffers(file);
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), -1, 0), 1);
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), -1, 0), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), block[1]));
    // Reading one after the other goes on with the next block that reads.
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), -1, 0), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), recording.blocks[1][0]));
    ExpectFilePos(file, 1, 1);
    ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), 0, 3), 1);
    EXPECT_TRUE(FrameEquals(*buffers.Frame(), block[3]));
    EXPECT_EQ(file.ReadOneFrame(buffers.Frame(), 0, 4), 0);
    EXPECT_EQ(file.ReadOneFrame(buffers.Frame(), 0, 2), 0);
    ExpectFilePos(file, 0, 4);
}

// Cuts a recording of three blocks at every length and compares with what the format
// promises: the head and its strings must be whole; a block counts when its record is
// whole; a frame reads when its record is whole, and exactly as written.
TEST(ZnFileDamagedFrames, EveryCutOpensOrFailsAsTheChainAllows)
{
    TempDir dir;
    std::vector<TestFrame> frames;
    for (DWORD i = 0; i < 9; ++i) {
        TestFrame frame = MakeSequenceFrame(i, 5, 40);
        frame.wFrameType = i % 4 == 0 ? ZNFRAME_I : ZNFRAME_P;
        frame.sound.resize(std::min<std::size_t>(frame.sound.size(), 9));
        frames.push_back(frame);
    }
    WriteRecording(dir.Path("full.zn"), frames);
    const std::vector<BYTE> full = ReadFileBytes(dir.Path("full.zn"));

    // Where the records lie, worked out from the lengths alone.
    const DWORD dwDataOffset = 36 + 5 + 6 + 4 + 4 + 4;
    std::vector<DWORD> blockRecords;
    std::vector<DWORD> frameEnds;
    DWORD dwPos = dwDataOffset;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].wFrameType == ZNFRAME_I) {
            blockRecords.push_back(dwPos);
            dwPos += 16;
        }
        dwPos += frames[i].RecordSize();
        frameEnds.push_back(dwPos);
    }
    blockRecords.push_back(dwPos);
    ASSERT_EQ(full.size(), dwPos + 16u);

    for (std::size_t nLength = 0; nLength <= full.size(); ++nLength) {
        SCOPED_TRACE(nLength);
        WriteFileBytes(dir.Path("cut.zn"), full, nLength);
        std::size_t nBlocks = 0;
        while (nBlocks < blockRecords.size() && blockRecords[nBlocks] + 16 <= nLength) {
            ++nBlocks;
            if (nBlocks < blockRecords.size() && blockRecords[nBlocks] >= nLength)
                break;
        }
        const std::size_t nFramesInChain =
            nBlocks == 0 ? 0 : std::min<std::size_t>(4 * nBlocks, frames.size());
        CZnFile file;
        const int nOpened = file.Open(dir.Path("cut.zn").c_str(), nullptr, 0, ZNFILE_READ);
        if (nLength < dwDataOffset || nFramesInChain == 0) {
            EXPECT_EQ(nOpened, 0);
            continue;
        }
        ASSERT_EQ(nOpened, 1);
        EXPECT_EQ(file.GetTotalBlock(), nBlocks);
        EXPECT_EQ(file.GetTotalFrameNum(), nFramesInChain);
        FrameBuffers buffers(file);
        std::size_t nRead = 0;
        while (file.ReadOneFrame(buffers.Frame(), -1, 0) == 1) {
            ASSERT_LT(nRead, frames.size());
            EXPECT_TRUE(FrameEquals(*buffers.Frame(), frames[nRead]));
            ++nRead;
        }
        const std::size_t nWhole = static_cast<std::size_t>(
            std::count_if(frameEnds.begin(), frameEnds.end(), [&](DWORD dwEnd) { return dwEnd <= nLength; }));
        EXPECT_EQ(nRead, std::min(nWhole, nFramesInChain));
    }
}

} // namespace
