// Opening and closing the player in both modes, what each refuses, and the host
// messages that closing sends.
#include "PlaybackTestSupport.h"

#include <cstring>

using namespace playback_test;

TEST_F(PlayerTest, OpenAndCloseRefusalsAndNotices)
{
    std::vector<tag_TESTFRAME> frames = MakeFrames(EvenStamps(40, 100, 40));
    WriteRecording(strFile, frames);
    EXPECT_EQ(player.OpenVideo(dir.Path("missing.zn").c_str(), 0, 0, -1), 0);
    std::vector<tag_TESTFRAME> overlong = MakeFrames({100});
    overlong[0].video.resize(160 * 112 * 2 + 2);   // the first frame can't be read
    WriteRecording(dir.Path("overlong.zn"), overlong);
    EXPECT_EQ(player.OpenVideo(dir.Path("overlong.zn").c_str(), 0, 0, -1), 0);
    EXPECT_EQ(player.GetZnFile(), nullptr);
    EXPECT_TRUE(IsAllZero(*player.GetPlayInfo()));
    EXPECT_EQ(player.OpenDecodeWnd(nullptr, 0, 0), 0);   // open already: the host stays
    player.ResetPlay();   // nothing to run
    Tick();
    EXPECT_TRUE(player.IsPause());
    player.CloseVideo(0);
    EXPECT_TRUE(host.m_events.empty());
    player.CloseVideo(1);
    ASSERT_EQ(host.m_events.size(), 1u);
    EXPECT_EQ(host.m_events[0].wKind, VIDEOPLAY_END);
    host.m_events.clear();

    ASSERT_EQ(player.OpenVideo(strFile.c_str(), 0, 0, -1), 1);
    EXPECT_EQ(player.GetZnFile()->GetTotalFrameNum(), 40u);
    Tick(3);
    EXPECT_EQ(player.OpenVideo(dir.Path("other.zn").c_str(), 0, 0, -1), 0);
    EXPECT_EQ(player.OpenDecodeWnd(nullptr, 1, 0), 0);
    Tick(3);
    EXPECT_EQ(host.Frames().size(), 3u);   // the running video goes on: 120 ms, 40 ms a frame
    EXPECT_EQ(host.Frames().back().nFrame, 2);
    // Closing the window mode while playing stops everything, without a message.
    const HWND hPlayer = player.m_hWnd;
    player.CloseDecodeWnd();
    EXPECT_FALSE(IsWindow(hPlayer));
    EXPECT_EQ(player.GetZnFile(), nullptr);
    Tick(3);

    CDecodeWnd decodeOnly;
    ASSERT_EQ(decodeOnly.OpenDecodeWnd(nullptr, 1, 0), 1);
    EXPECT_EQ(decodeOnly.OpenDecodeWnd(nullptr, 1, 0), 0);
    EXPECT_EQ(decodeOnly.OpenDecodeWnd(host.m_hWnd, 0, 0), 0);
    EXPECT_EQ(decodeOnly.OpenVideo(strFile.c_str(), 0, 0, -1), 0);
    decodeOnly.CloseVideo(1);
    decodeOnly.Pause();
    EXPECT_TRUE(decodeOnly.IsPause());
    EXPECT_EQ(host.m_events.size(), 3u);
}

// Window names and control ids follow the count of live objects.
TEST_F(PlayerTest, WindowsAreNamedByTheObjectCount)
{
    CDecodeWnd second;
    ASSERT_EQ(second.OpenDecodeWnd(host.m_hWnd, 0, 0), 1);
    char szFirst[64];
    char szSecond[64];
    player.GetWindowText(szFirst, sizeof szFirst);
    second.GetWindowText(szSecond, sizeof szSecond);
    EXPECT_EQ(std::string(szSecond), "video play wnd " + std::to_string(CDecodeWnd::m_dwObjNum));
    EXPECT_STRNE(szFirst, szSecond);
    EXPECT_EQ(second.GetDlgCtrlID(), 400 + static_cast<int>(CDecodeWnd::m_dwObjNum));
    EXPECT_EQ(second.GetParent(), &host);
    EXPECT_EQ(second.GetStyle() & WS_VISIBLE, 0u);
}

// A file of version 0x1000 holds pictures of the second revision, coded at half the size
// of 320 x 240 and doubled on display; decoded as the first revision's, they would fill
// only the top left of the picture.
TEST_F(PlayerTest, SecondRevisionFilesDecodeAtTheirDisplaySize)
{
    std::vector<tag_TESTFRAME> frames = MakeFrames(EvenStamps(2, 100, 40), {0}, 160, 128);
    WriteRecording(strFile, frames, FRAMESIZE_320X240_R2, STREAM_REVISION_20020219);
    host.m_nPictureBytes = 320 * 240 * 3;
    ASSERT_EQ(player.OpenVideo(strFile.c_str(), 0, 0, -1), 1);
    ASSERT_EQ(player.GetZnFile()->GetFileVersion(), ZNFILE_VERSION_R2);
    Tick(3);
    ASSERT_EQ(host.Frames().size(), 2u);
    EXPECT_EQ(host.Frames()[1].nFrame, 1);
    EXPECT_EQ(host.Frames()[1].nLastFrame, 1);
}
