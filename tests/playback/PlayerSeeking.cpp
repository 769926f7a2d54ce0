// Pausing, resuming and seeking a playing recording: what becomes the pending frame,
// the position reported, and that a failed seek keeps the playing where it was.
#include "PlaybackTestSupport.h"

using namespace playback_test;

namespace {

// Frames 500 ms apart in blocks of the given sizes.
std::vector<tag_TESTFRAME> MakeBlocks(const std::vector<int>& blockSizes)
{
    std::vector<int> keyFrames;
    int nFrames = 0;
    for (int nSize : blockSizes) {
        keyFrames.push_back(nFrames);
        nFrames += nSize;
    }
    return MakeFrames(EvenStamps(static_cast<std::size_t>(nFrames), 1000, 500), keyFrames);
}

class PlayerSeekTest : public PlayerTest {
protected:
    // Plays the recording's first frame, so that frame 1 is pending, and pauses.
    void StartPaused()
    {
        player.CloseVideo(0);
        host.m_events.clear();
        ASSERT_EQ(player.OpenVideo(strFile.c_str(), 0, 0, -1), 1);
        Tick();
        player.Pause();
    }

    // The seek result is 1 and the next tick shows the pending frame at the position; a
    // failed seek leaves the paused player's position and pending frame as they were.
    void ExpectSeek(int nResult, int nPending, int nBlock, int nFrame)
    {
        if (nResult == 0) {
            EXPECT_TRUE(player.IsPause());
            EXPECT_EQ(player.GetPlayInfo()->nBlockIndex, 0);
            EXPECT_EQ(player.GetPlayInfo()->nFrameIndex, 1);
            player.Pause();
            TickUntilFrames(2);
            EXPECT_EQ(host.Frames().back().nFrame, 1);
            return;
        }
        EXPECT_FALSE(player.IsPause());
        EXPECT_EQ(player.GetPlayInfo()->nBlockIndex, nBlock);
        EXPECT_EQ(player.GetPlayInfo()->nFrameIndex, nFrame);
        EXPECT_EQ(player.GetPlayInfo()->dwFrameStamp, 1000u + 500u * static_cast<DWORD>(nPending));
        const time_t tBegin = player.GetPlayInfo()->tBegin.GetTime();
        Tick();
        ASSERT_EQ(host.Frames().size(), 2u);
        EXPECT_EQ(host.Frames().back().nFrame, nPending);
        EXPECT_EQ(host.Frames().back().tCurrent, tBegin + nPending / 2);   // frames lie 500 ms apart
    }
};

} // namespace

TEST_F(PlayerSeekTest, PlayFromBlockAndFrame)
{
    std::vector<tag_TESTFRAME> frames = MakeBlocks({8, 5, 6});
    WriteRecording(strFile, frames);
    const struct {
        int nBlock;
        int nFrame;
        int nResult;
        int nPending;
        int nPosBlock;
        int nPosFrame;
    } rows[] = {
        {1, 0, 1, 8, 1, 0},
        {0, 5, 1, 5, 0, 5},
        {1, 5, 1, 13, 1, 5},   // one past the end of a block: the next block's first frame
        {2, 6, 0, 0, 0, 0},    // one past the last frame
        {3, 0, 0, 0, 0, 0},    // the end block
        {4, 0, 0, 0, 0, 0},
        {0, -1, 0, 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.nBlock << ", " << row.nFrame);
        StartPaused();
        EXPECT_EQ(player.PlayFrom(row.nBlock, row.nFrame), row.nResult);
        ExpectSeek(row.nResult, row.nPending, row.nPosBlock, row.nPosFrame);
    }
}

// A block's time is that of its first frame; only a later second stops the decoding, so
// frames in the same second as the time asked for are passed over.
TEST_F(PlayerSeekTest, PlayFromTime)
{
    std::vector<tag_TESTFRAME> frames = MakeBlocks({4, 4, 4});
    WriteRecording(strFile, frames);   // frame i lies i / 2 s into the file
    const struct {
        int nSeconds;
        int nResult;
        int nPending;
        int nPosBlock;
        int nPosFrame;
    } rows[] = {
        {-10, 1, 0, 0, 0},   // before the beginning: the start
        {2, 1, 7, 1, 3},     // the exact start of block 1 lands in block 1
        {3, 1, 8, 1, 4},
        {1, 1, 4, 0, 4},
        {5, 0, 0, 0, 0},     // after the last frame
        {64, 0, 0, 0, 0},    // the end block, closed at the clock's start
        {100, 0, 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.nSeconds);
        StartPaused();
        const CTime tWhen = player.GetPlayInfo()->tBegin + CTimeSpan(row.nSeconds);
        EXPECT_EQ(player.PlayFrom(tWhen), row.nResult);
        ExpectSeek(row.nResult, row.nPending, row.nPosBlock, row.nPosFrame);
    }
}

// A single block whose first frame has no picture can't be sought by block; a frame
// that can't be read on the way ends a seek of either kind.
TEST_F(PlayerSeekTest, SeeksIntoADamagedSingleBlock)
{
    std::vector<tag_TESTFRAME> frames = MakeBlocks({4});
    frames[0].video.clear();
    frames[2].video.resize(160 * 112 * 2 + 2);
    WriteRecording(strFile, frames);
    StartPaused();
    const CTime tBegin = player.GetPlayInfo()->tBegin;
    EXPECT_EQ(player.PlayFrom(0, 0), 0);
    EXPECT_EQ(player.PlayFrom(0, 3), 0);
    EXPECT_EQ(player.PlayFrom(tBegin + CTimeSpan(5)), 0);
    EXPECT_EQ(player.PlayFrom(tBegin - CTimeSpan(5)), 1);
}

TEST_F(PlayerTest, PauseTwiceResumesAfterAFullGapAndResetPlayCountsThePause)
{
    player.Pause();
    EXPECT_TRUE(player.IsPause());
    Open(MakeFrames(EvenStamps(4, 100, 400)), 2);
    Tick();
    player.Pause();
    EXPECT_TRUE(player.IsPause());
    Tick(50);
    EXPECT_EQ(host.m_events.size(), 1u);
    player.Pause();
    EXPECT_FALSE(player.IsPause());
    const DWORD dwResumed = clock.GetTime();
    TickUntilFrames(2);
    EXPECT_EQ(host.Frames()[1].dwTick - dwResumed, 100u);   // 400 ms of stamps at speed 2
    player.Pause();
    Tick(1, 1000);
    player.ResetPlay();
    EXPECT_EQ(player.GetPlaySpeed(), 0);
    EXPECT_FALSE(player.IsPause());
    Tick();
    EXPECT_EQ(host.Frames().size(), 3u);
}
