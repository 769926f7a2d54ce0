// The player's clock in window mode: when each frame reaches the host at each speed,
// across stalls and the wrap of the stamps, what the host gets between frames, and how
// the playing ends.
#include "PlaybackTestSupport.h"

using namespace playback_test;

TEST_F(PlayerTest, FirstTickShowsTheFirstFrameAndSpeedsScaleTheGaps)
{
    const struct {
        int nSpeed;
        DWORD dwGapShownIn;   // a 400 ms gap of stamps
    } rows[] = {{0, 400}, {1, 200}, {2, 100}, {-1, 800}, {-2, 1600}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.nSpeed);
        player.CloseVideo(0);
        host.m_events.clear();
        Open(MakeFrames({5000, 5400, 5800}), row.nSpeed);
        Tick();
        ASSERT_EQ(host.Frames().size(), 1u);
        EXPECT_EQ(host.Frames()[0].nFrame, 0);
        TickUntilFrames(2);
        ASSERT_EQ(host.Frames().size(), 2u);
        EXPECT_EQ(host.Frames()[1].nFrame, 1);
        EXPECT_EQ(host.Frames()[1].dwTick - host.Frames()[0].dwTick, row.dwGapShownIn);
    }
}

TEST_F(PlayerTest, AtMostOneFrameATick)
{
    Open(MakeFrames(EvenStamps(120, 700, 1)), 3);
    Tick(50);
    EXPECT_EQ(host.Frames().size(), 50u);
}

// A stall gives one late frame; the frames after it keep their gaps from it.
TEST_F(PlayerTest, AfterAStallTheNextFrameIsDueAtOnce)
{
    Open(MakeFrames(EvenStamps(4, 100, 40)));
    Tick();
    Tick(1, 500);
    Tick(2);
    const std::vector<tag_PLAYEVENT> frames = host.Frames();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[1].dwTick - frames[0].dwTick, 500u);
    EXPECT_EQ(frames[2].dwTick - frames[1].dwTick, 40u);
}

// Stamps wrap at 2^32; a stamp below the one before is never due by the clock, and the
// host's clock goes on from the frame shown last, after the first second of the file.
TEST_F(PlayerTest, StampsAcrossTheWrapAndAStampGoingBack)
{
    Open(MakeFrames({0xFFFFFF9C, 0x64, 0x10}));
    const time_t tBegin = player.GetPlayInfo()->tBegin.GetTime();
    Tick();
    TickUntilFrames(2);
    ASSERT_EQ(host.Frames().size(), 2u);
    const DWORD dwSecondShown = host.Frames()[1].dwTick;
    EXPECT_EQ(dwSecondShown - host.Frames()[0].dwTick, 200u);
    Tick(200);
    EXPECT_EQ(host.Frames().size(), 2u);
    std::vector<tag_PLAYEVENT> clocks;
    for (const tag_PLAYEVENT& event : host.m_events) {
        if (event.wKind == VIDEOPLAY_CLOCK)
            clocks.push_back(event);
    }
    ASSERT_FALSE(clocks.empty());
    // 200 ms of stamps were shown; the clock reaches the first second 800 ms later.
    EXPECT_EQ(clocks.front().dwTick - dwSecondShown, 800u);
    EXPECT_EQ(clocks.front().tCurrent, tBegin + 1);
    EXPECT_EQ(clocks.back().tCurrent, tBegin + 4);
    EXPECT_EQ(clocks.size(), 200u - 800 / 20 + 1);
}

// Between frames the host's clock moves by the inverse of the play scale: at speed 1 it
// reaches the first second after 2 s, at speed -1 after 500 ms.
TEST_F(PlayerTest, ClockBetweenFramesRunsByTheInverseScale)
{
    const struct {
        int nSpeed;
        DWORD dwFirstSecondAfter;
    } rows[] = {{0, 1000}, {1, 2000}, {-1, 500}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.nSpeed);
        player.CloseVideo(0);
        Open(MakeFrames({100, 100000}), row.nSpeed);
        Tick();
        host.m_events.clear();
        const DWORD dwShown = clock.GetTime();
        Tick(110);
        ASSERT_FALSE(host.m_events.empty());
        EXPECT_EQ(host.m_events[0].wKind, VIDEOPLAY_CLOCK);
        EXPECT_EQ(host.m_events[0].dwTick - dwShown, row.dwFirstSecondAfter);
    }
}

TEST_F(PlayerTest, LostFrameIsBlackAndTheLastFrameComesBeforeTheEnd)
{
    std::vector<tag_TESTFRAME> frames = MakeFrames(EvenStamps(3, 100, 40));
    frames[1].wFlags = ZNFRAME_LOST;
    frames[1].video.clear();
    frames[2].wFlags = ZNFRAME_SOUND;   // read into the pending frame's own sound area
    frames[2].sound.assign(360, 0x5A);
    Open(frames);
    TickUntilFrames(4, 20);
    ASSERT_EQ(host.m_events.size(), 4u);
    EXPECT_FALSE(host.m_events[0].bAllBlack);
    EXPECT_TRUE(host.m_events[1].bAllBlack);
    EXPECT_EQ(host.m_events[2].nFrame, 2);
    for (int i = 0; i < 3; ++i) {   // the read position: the frame after the one shown
        EXPECT_EQ(host.m_events[i].nBlockIndex, 0);
        EXPECT_EQ(host.m_events[i].nFrameIndex, i + 1);
    }
    EXPECT_EQ(host.m_events[3].wKind, VIDEOPLAY_END);
    EXPECT_TRUE(IsAllZero(*player.GetPlayInfo()));
    EXPECT_EQ(player.GetZnFile(), nullptr);
    EXPECT_TRUE(player.IsPause());
    // Back in the idle state: the same window plays again.
    ASSERT_EQ(player.OpenVideo(strFile.c_str(), 0, 0, -1), 1);
    Tick();
    EXPECT_EQ(host.Frames().back().nFrame, 0);
}

// The reader refuses a record longer than the frame buffers hold; that read ends the
// playing as the end of the file does, after the frames before it.
TEST_F(PlayerTest, FrameLongerThanItsBuffersEndsThePlaying)
{
    std::vector<tag_TESTFRAME> frames = MakeFrames(EvenStamps(3, 100, 40));
    frames[1].video.resize(160 * 112 * 2 + 2);
    Open(frames);
    Tick(5);
    ASSERT_EQ(host.m_events.size(), 2u);
    EXPECT_EQ(host.m_events[0].nFrame, 0);
    EXPECT_EQ(host.m_events[1].wKind, VIDEOPLAY_END);
}
