// Which devices the board list takes for a revision, in which order, and how the
// firmware word shapes the streams and cameras of a board.
#include "CaptureTestSupport.h"

#include "capture/CBoardList.h"
#include "capture/CCaptureWnd.h"

namespace {

class BoardListEnumeration : public CCaptureTest {};

TEST_F(BoardListEnumeration, TakesAtMostFourBoardsInDeviceOrder)
{
    for (BYTE i = 0; i < 6; ++i)
        CVirtualRack::InstallBoard(MakeCaptureBoard(static_cast<BYTE>(i + 1), 1));
    CBoardList list(STREAM_REVISION_20020114);
    ASSERT_EQ(list.GetBoardNum(), 4);
    for (int nBoard = 0; nBoard < 4; ++nBoard)
        EXPECT_EQ(list.GetVersion(nBoard).GetChannels(), nBoard + 1);
    EXPECT_EQ(list.GetVersion(4).dwVersion, 0u);
    EXPECT_EQ(list.GetVersion(-1).dwVersion, 0u);
    EXPECT_EQ(list.GetBoard(4), nullptr);
    EXPECT_EQ(list.GetBoard(-1), nullptr);
}

TEST_F(BoardListEnumeration, PassesOverBoardsOfTheOtherRevisionAndBoardsThatDontOpen)
{
    tag_VIRTUALBOARD broken = MakeCaptureBoard(3, 1);
    broken.faults.bOpenFails = true;
    CVirtualRack::InstallBoard(MakeCaptureBoard(2, 0));
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 2));
    CVirtualRack::InstallBoard(broken);
    CVirtualRack::InstallBoard(MakeCaptureBoard(1, 1));
    CBoardList first(STREAM_REVISION_20020114);
    ASSERT_EQ(first.GetBoardNum(), 2);
    EXPECT_EQ(first.GetVersion(0).GetChannels(), 2);
    EXPECT_EQ(first.GetVersion(1).GetChannels(), 1);
    CBoardList second(STREAM_REVISION_20020219);
    ASSERT_EQ(second.GetBoardNum(), 1);
    EXPECT_EQ(second.GetVersion(0).GetGeneration(), 2);
}

TEST_F(BoardListEnumeration, MachineWithoutSuitableBoardOpensEmpty)
{
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 1));
    CHostWindow host;
    CVideo video;
    EXPECT_EQ(video.Open(&host, STREAM_REVISION_20020219), ZNRET_OK);
    EXPECT_EQ(video.GetBoardNum(), 0);
    EXPECT_EQ(video.GetTotalCameraNum(), 0);
    EXPECT_EQ(video.OpenBoard(0, FRAMESIZE_320X240_R2, 0, nullptr), ZNRET_FAILED);
}

TEST_F(BoardListEnumeration, TwoStreamBoardNumbersCamerasAcrossBothStreams)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(5, 2)));
    EXPECT_EQ(video.GetCameraNum(0), 5);
    EXPECT_EQ(video.GetTotalCameraNum(), 5);
    ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_320X240_R2, 0, nullptr), ZNRET_OK);
    CEncodeParam param;
    for (int nCamera = 0; nCamera < 4; ++nCamera)
        EXPECT_EQ(video.OpenCamera(0, nCamera, &param, nullptr), ZNRET_OK) << nCamera;
    EXPECT_EQ(video.OpenCamera(0, 4, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.IsCardPlusSupport(0), 1);
}

TEST_F(BoardListEnumeration, FirmwareClaimingMoreThanFourCamerasPerStreamIsCutToFour)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(7, 1), FRAMESIZE_160X112));
    EXPECT_EQ(video.GetCameraNum(0), 7);
    CEncodeParam param;
    EXPECT_EQ(video.OpenCamera(0, 3, &param, nullptr), ZNRET_OK);
    EXPECT_EQ(video.OpenCamera(0, 4, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.OpenCamera(0, 6, &param, nullptr), ZNRET_FAILED);
}

TEST_F(BoardListEnumeration, BoardOfANewerGenerationCantBeOpened)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 3)));
    ASSERT_EQ(video.GetBoardNum(), 1);
    EXPECT_EQ(video.OpenBoard(0, FRAMESIZE_320X240, 0, nullptr), ZNRET_NOT_AVAILABLE);
    EXPECT_EQ(video.GetBoardStatus(0), ZNRET_NOT_AVAILABLE);
}

TEST_F(BoardListEnumeration, SoundOfACameraComesFromTheBoardByGeneration)
{
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 2));
    CVirtualRack::InstallBoard(MakeCaptureBoard(2, 1));
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 1));
    CBoardList second(STREAM_REVISION_20020219);
    CBoardList first(STREAM_REVISION_20020114);
    CHostWindow host;
    CVideo video;
    ASSERT_EQ(video.Open(&host, STREAM_REVISION_20020114), ZNRET_OK);
    CCaptureWnd twoStream;
    CCaptureWnd twoChannel;
    CCaptureWnd fourChannel;
    ASSERT_TRUE(twoStream.Create(&host, second.GetBoard(0), &video, 0));
    ASSERT_TRUE(twoChannel.Create(&host, first.GetBoard(0), &video, 0));
    ASSERT_TRUE(fourChannel.Create(&host, first.GetBoard(1), &video, 1));
    EXPECT_TRUE(twoStream.IsBoardVoice(1));
    EXPECT_FALSE(twoStream.IsBoardVoice(2));
    EXPECT_TRUE(twoChannel.IsBoardVoice(1));
    EXPECT_FALSE(fourChannel.IsBoardVoice(0));
    EXPECT_FALSE(twoStream.Create(&host, second.GetBoard(0), &video, 2));
    twoStream.DestroyWindow();
    twoChannel.DestroyWindow();
    fourChannel.DestroyWindow();
}

} // namespace
