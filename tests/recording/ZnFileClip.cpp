// Clips: which frames a clip holds, that it is a recording of its own with new links and
// times, and that the source's read position survives.
#include "RecordingTestSupport.h"

#include "platform/TickClock.h"

#include <sys/stat.h>

#include <cstdint>

namespace {

const std::vector<int> kBlockSizes = {4, 5, 3, 6, 4, 5, 4};

class ZnFileClip : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_frames = MakeBlockFrames(kBlockSizes, 0);
        for (std::size_t i = 0; i < m_frames.size(); ++i) {
            if (m_frames[i].wFrameType == ZNFRAME_I)
                m_blockStarts.push_back(i);
            // Stamps across the wrap of the millisecond counter, 1.3 s apart.
            m_frames[i].dwTimeStamp = 0xFFFF0000u + static_cast<DWORD>(i) * 1300;
        }
        // The source's end block carries the millisecond count of its closing: let that
        // be the stamp of its last frame, as for a recorder that closes right after it.
        {
            CTestClock clock(m_frames.back().dwTimeStamp);
            WriteRecording(m_dir.Path("source.zn"), m_frames);
        }
        ASSERT_EQ(OpenToRead(m_source, m_dir.Path("source.zn")), 1);
    }

    // Opens the clip and checks that it holds exactly frames [nFirst, nFirst + nCount) of
    // the source. The clip's times end at the stamp of its last frame, or of the source
    // block whose record became its end block (nEndStampFrame is that block's key frame).
    void ExpectClipHolds(const std::string& strClip, std::size_t nFirst, std::size_t nCount,
                         std::size_t nEndStampFrame = SIZE_MAX)
    {
        CZnFile clip;
        ASSERT_EQ(OpenToRead(clip, strClip), 1);
        EXPECT_EQ(clip.GetTotalFrameNum(), nCount);
        ExpectFramesThenEnd(clip, &m_frames[nFirst], nCount);
        const DWORD dwFirstStamp = m_frames[nFirst].dwTimeStamp;
        const DWORD dwLastStamp =
            m_frames[nEndStampFrame != SIZE_MAX ? nEndStampFrame : nFirst + nCount - 1].dwTimeStamp;
        EXPECT_EQ(clip.GetBeginTimeStamp(), dwFirstStamp);
        EXPECT_EQ(clip.GetBeginTime(),
                  m_source.GetBeginTime() + (dwFirstStamp - m_source.GetBeginTimeStamp()) / 1000);
        EXPECT_EQ(clip.GetEndTime(), clip.GetBeginTime() + (dwLastStamp - dwFirstStamp) / 1000);
        EXPECT_EQ(clip.GetCameraName(), m_source.GetCameraName());
        EXPECT_EQ(clip.GetHostName(), m_source.GetHostName());
        EXPECT_EQ(clip.GetGmt(), m_source.GetGmt());
        const CArray<tag_ZNBLOCKINFO, tag_ZNBLOCKINFO&>* pTable = clip.GetBlockInfo();
        EXPECT_EQ(pTable->GetAt(static_cast<int>(clip.GetTotalBlock()) - 1).dwFrames, 0u);
    }

    std::string ClipPath() const { return m_dir.Path("clip.zn"); }

    TempDir m_dir;
    std::vector<TestFrame> m_frames;
    std::vector<std::size_t> m_blockStarts;
    CZnFile m_source;
};

TEST_F(ZnFileClip, WholeFileIsACopyWithNewLinks)
{
    ASSERT_EQ(m_source.ClipFile(ClipPath().c_str(), 0, static_cast<int>(m_source.GetTotalBlock()), 0), 1);
    ExpectClipHolds(ClipPath(), 0, m_frames.size());
    // Every byte but the end time is the source's: the same links, the same end block.
    std::vector<BYTE> source = ReadFileBytes(m_dir.Path("source.zn"));
    std::vector<BYTE> clip = ReadFileBytes(ClipPath());
    ASSERT_EQ(clip.size(), source.size());
    SetLe32(source, 12, 0);
    SetLe32(clip, 12, 0);
    EXPECT_EQ(clip, source);
}

TEST_F(ZnFileClip, BlockRangesAndFrameCounts)
{
    struct Case {
        int nFirstBlock;
        int nLastBlock;
        int nLastFrames;
        std::size_t nFirstFrame;
        std::size_t nFrames;
        std::size_t nEndStampFrame;
    };
    const Case cases[] = {
        // One key frame; all of a block.
        {2, 2, 1, m_blockStarts[2], 1, SIZE_MAX},
        {2, 2, 100, m_blockStarts[2], 3, SIZE_MAX},
        // Exactly one block: the record of the next becomes the end block.
        {2, 3, 0, m_blockStarts[2], 3, m_blockStarts[3]},
        // Whole blocks and part of one.
        {1, 4, 2, m_blockStarts[1], 5 + 3 + 6 + 2, SIZE_MAX},
        // First above last: part of the first.
        {5, 2, 3, m_blockStarts[5], 3, SIZE_MAX},
        // The rest of the file; the last block with frames.
        {3, 100, 7, m_blockStarts[3], 6 + 4 + 5 + 4, SIZE_MAX},
        {6, 7, 0, m_blockStarts[6], 4, SIZE_MAX},
    };
    for (const Case& clipCase : cases) {
        SCOPED_TRACE(testing::Message() << clipCase.nFirstBlock << "," << clipCase.nLastBlock << ","
                                        << clipCase.nLastFrames);
        ASSERT_EQ(m_source.ClipFile(ClipPath().c_str(), clipCase.nFirstBlock, clipCase.nLastBlock,
                                    clipCase.nLastFrames),
                  1);
        ExpectClipHolds(ClipPath(), clipCase.nFirstFrame, clipCase.nFrames, clipCase.nEndStampFrame);
    }
}

TEST_F(ZnFileClip, EmptyOrInvalidClipsAreRefusedWithoutAFile)
{
    const int nTotal = static_cast<int>(m_source.GetTotalBlock());
    EXPECT_EQ(m_source.ClipFile(ClipPath().c_str(), 3, 3, 0), 0);
    EXPECT_EQ(m_source.ClipFile(ClipPath().c_str(), 5, 2, 0), 0);
    EXPECT_EQ(m_source.ClipFile(ClipPath().c_str(), 3, 3, -4), 0);
    EXPECT_EQ(m_source.ClipFile(ClipPath().c_str(), -1, 3, 2), 0);
    EXPECT_EQ(m_source.ClipFile(ClipPath().c_str(), nTotal, nTotal, 2), 0);
    EXPECT_EQ(m_source.ClipFile(ClipPath().c_str(), nTotal - 1, nTotal, 0), 0);
    EXPECT_EQ(m_source.ClipFile("", 0, 3, 0), 0);
    EXPECT_EQ(m_source.ClipFile(m_dir.Path("source.zn").c_str(), 0, 3, 0), 0);
    CZnFile reopened;
    ASSERT_EQ(OpenToRead(reopened, m_dir.Path("source.zn")), 1);
    EXPECT_EQ(reopened.GetTotalFrameNum(), m_frames.size());
    EXPECT_EQ(m_source.ClipFile(m_dir.Path("no/dir.zn").c_str(), 0, 3, 0), 0);
    struct stat status {};
    EXPECT_NE(stat(ClipPath().c_str(), &status), 0);

    CZnFile closed;
    EXPECT_EQ(closed.ClipFile(ClipPath().c_str(), 0, 3, 0), 0);
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile writer;
    ASSERT_EQ(writer.Open(m_dir.Path("w.zn").c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE), 1);
    ASSERT_EQ(WriteTestFrame(writer, m_frames[0]), 1);
    EXPECT_EQ(writer.ClipFile(ClipPath().c_str(), 0, 1, 0), 0);
}

TEST_F(ZnFileClip, ReadPositionIsKeptAcrossAClip)
{
    ExpectFramesThenEnd(m_source, m_frames.data(), 6, false);
    ASSERT_EQ(m_source.ClipFile(ClipPath().c_str(), 3, 5, 2), 1);
    ExpectFramesThenEnd(m_source, &m_frames[6], m_frames.size() - 6);
}

TEST(ZnFileClipFormats, SecondRevisionAndLargeFramesSurviveAClip)
{
    TempDir dir;
    // 704 x 288 takes frames above the 307200 bytes of a 320 x 240 picture.
    const tag_CAMERAINFO info = MakeCameraInfo(704, 288, STANDARD_PAL);
    std::vector<TestFrame> frames;
    for (DWORD i = 0; i < 6; ++i) {
        TestFrame frame = MakeSequenceFrame(i);
        frame.wFrameType = i % 3 == 0 ? ZNFRAME_I : ZNFRAME_P;
        frame.video = PatternBytes(400000 + i, i);
        frame.wFlags = ZNFRAME_SOUND;
        frame.sound = PatternBytes(ZNFRAME_SOUND_BUFFER_SIZE, i + 9);
        frames.push_back(frame);
    }
    WriteRecording(dir.Path("big.zn"), frames, STREAM_REVISION_20020219, info);
    CZnFile source;
    ASSERT_EQ(source.Open(dir.Path("big.zn").c_str(), nullptr, STREAM_REVISION_20020114, ZNFILE_READ), 1);
    ASSERT_EQ(source.ClipFile(dir.Path("clip.zn").c_str(), 0, 1, 2), 1);

    CZnFile clip;
    ASSERT_EQ(OpenToRead(clip, dir.Path("clip.zn")), 1);
    EXPECT_EQ(clip.GetFileVersion(), 0x1000);
    ASSERT_EQ(clip.GetTotalFrameNum(), 5u);
    ExpectFramesThenEnd(clip, frames.data(), 5);
}

TEST(ZnFileClipFormats, ClipOfAnOldVersionGainsHostAndGmtFields)
{
    TempDir dir;
    HandBuiltRecording oldest;
    oldest.wVersion = 0x00FF;
    oldest.dwPadding = 5;
    std::vector<TestFrame> block;
    for (DWORD i = 0; i < 3; ++i) {
        block.push_back(MakeSequenceFrame(i, 4, 300));
        block.back().wFrameType = i == 0 ? ZNFRAME_I : ZNFRAME_P;
    }
    oldest.blocks = {block, block};
    const std::vector<BYTE> bytes = oldest.Build();
    WriteFileBytes(dir.Path("old.zn"), bytes, bytes.size());
    CZnFile source;
    ASSERT_EQ(OpenToRead(source, dir.Path("old.zn")), 1);
    ASSERT_EQ(source.ClipFile(dir.Path("clip.zn").c_str(), 1, 5, 0), 1);

    const std::vector<BYTE> clipBytes = ReadFileBytes(dir.Path("clip.zn"));
    ASSERT_GT(clipBytes.size(), 36u);
    EXPECT_EQ(GetLe16(clipBytes, 2), 0x00FF);
    EXPECT_EQ(GetLe32(clipBytes, 28), 36u + 1 + 3 + 4 + 0 + 4);
    CZnFile clip;
    ASSERT_EQ(OpenToRead(clip, dir.Path("clip.zn")), 1);
    ExpectFramesThenEnd(clip, block);
}

} // namespace
