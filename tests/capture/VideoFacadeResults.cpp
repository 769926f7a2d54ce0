// The capture facade's result codes, in the order each operation tests its failures,
// and the numbering of boards and cameras.
#include "CaptureTestSupport.h"

namespace {

class VideoFacadeResults : public CCaptureTest {};

TEST_F(VideoFacadeResults, ClosedFacadeAnswersByTheOrderOfItsTests)
{
    CVideo video;
    CEncodeParam param;
    tag_CAMERASTATUS nStatus = CAMSTATUS_READY;
    tag_FRAMESIZE nSize = FRAMESIZE_320X240;
    tag_VIDEOCOLOR color{};
    EXPECT_EQ(video.GetBoardNum(), -1);
    EXPECT_EQ(video.GetTotalCameraNum(), -1);
    EXPECT_EQ(video.GetCameraNum(0), -1);
    EXPECT_EQ(video.IsCameraStart(0, 0), 0);
    EXPECT_EQ(video.OpenBoard(0, FRAMESIZE_320X240, 0, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.OpenBoard(0, static_cast<tag_FRAMESIZE>(6), 0, nullptr), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.CloseBoard(0), ZNRET_FAILED);
    EXPECT_EQ(video.OpenCamera(0, 0, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.SetQi(0, 0, 8), ZNRET_FAILED);
    EXPECT_EQ(video.GetEncodeParam(0, 0, &param), ZNRET_FAILED);
    // The status questions test the board number first.
    EXPECT_EQ(video.GetCameraStatus(0, 0, nStatus), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.GetBoardStatus(0), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.GetVideoSize(0, nSize), ZNRET_FAILED);
    EXPECT_EQ(video.SetVideoColor(0, 0, &color), ZNRET_FAILED);
    EXPECT_EQ(video.SetRecordSpeed(0, 1), ZNRET_FAILED);
}

TEST_F(VideoFacadeResults, OpenBoardAndItsFailures)
{
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 1));
    CHostWindow host;
    CVideo video;
    EXPECT_EQ(video.Open(nullptr, STREAM_REVISION_20020114), ZNRET_BAD_ARGUMENT);
    ASSERT_EQ(video.Open(&host, STREAM_REVISION_20020114), ZNRET_OK);
    EXPECT_EQ(video.Open(&host, STREAM_REVISION_20020114), ZNRET_NOT_AVAILABLE);
    EXPECT_EQ(video.GetBoardNum(), 1);
    EXPECT_EQ(video.OpenBoard(1, static_cast<tag_FRAMESIZE>(6), 0, nullptr), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.OpenBoard(1, FRAMESIZE_160X112, 0, nullptr), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.OpenBoard(-1, FRAMESIZE_160X112, 0, nullptr), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.CloseBoard(0), ZNRET_OK);
    EXPECT_EQ(video.GetBoardStatus(0), ZNRET_NOT_AVAILABLE);
    ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_160X112, 0, nullptr), ZNRET_OK);
    EXPECT_EQ(video.OpenBoard(0, FRAMESIZE_320X240, 0, nullptr), ZNRET_ALREADY_OPEN);
    tag_FRAMESIZE nSize = FRAMESIZE_INVALID;
    EXPECT_EQ(video.GetVideoSize(0, nSize), ZNRET_OK);
    EXPECT_EQ(nSize, FRAMESIZE_160X112);
    EXPECT_EQ(video.GetBoardStatus(0), ZNRET_OK);
}

TEST_F(VideoFacadeResults, CameraOperationsNeedAnOpenBoardAndCamera)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 1)));
    CEncodeParam param;
    tag_CAMERASTATUS nStatus = CAMSTATUS_READY;
    EXPECT_EQ(video.OpenCamera(0, 0, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.OpenCamera(-1, 0, &param, nullptr), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.GetCameraStatus(0, 0, nStatus), ZNRET_NOT_AVAILABLE);
    EXPECT_EQ(nStatus, CAMSTATUS_NONE);
    EXPECT_EQ(video.GetEncodeParam(0, 0, &param), ZNRET_NOT_AVAILABLE);
    EXPECT_EQ(video.SetCheckSen(0, 0, 3), ZNRET_FAILED);
    ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_160X112, 0, nullptr), ZNRET_OK);
    EXPECT_EQ(video.GetEncodeParam(0, 0, nullptr), ZNRET_BAD_ARGUMENT);
    EXPECT_EQ(video.GetEncodeParam(0, 0, &param), ZNRET_FAILED);
    EXPECT_EQ(video.GetCameraStatus(0, 0, nStatus), ZNRET_FAILED);
    EXPECT_EQ(video.SetCheckSen(0, 0, 3), ZNRET_FAILED);
    EXPECT_EQ(video.OpenCamera(0, 0, nullptr, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.OpenCamera(0, 4, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.CloseCamera(0, 2), ZNRET_OK);
    ASSERT_EQ(video.OpenCamera(0, 2, &param, nullptr), ZNRET_OK);
    EXPECT_EQ(video.OpenCamera(0, 2, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.IsCameraStart(0, 2), 1);
    EXPECT_EQ(video.IsCameraStart(0, 1), 0);
    EXPECT_EQ(video.GetCameraStatus(0, 2, nStatus), ZNRET_OK);
    EXPECT_EQ(nStatus, CAMSTATUS_READY);
    EXPECT_EQ(video.SetCheckSen(0, 2, 3), ZNRET_OK);
    CEncodeParam copy;
    EXPECT_EQ(video.GetEncodeParam(0, 2, &copy), ZNRET_OK);
    EXPECT_EQ(copy.m_nCheckSen, 3);
    EXPECT_EQ(video.CloseCamera(0, 2), ZNRET_OK);
    EXPECT_EQ(video.IsCameraStart(0, 2), 0);
}

TEST_F(VideoFacadeResults, OnlyOneLivingFacadeCanBeOpened)
{
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 1));
    CHostWindow host;
    {
        CVideo first;
        CVideo second;
        EXPECT_EQ(CVideo::m_dwObjNumber, 2u);
        EXPECT_EQ(first.Open(&host, STREAM_REVISION_20020114), ZNRET_NOT_AVAILABLE);
        EXPECT_EQ(second.Open(&host, STREAM_REVISION_20020114), ZNRET_NOT_AVAILABLE);
    }
    {
        CVideo video;
        ASSERT_EQ(video.Open(&host, STREAM_REVISION_20020114), ZNRET_OK);
        ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_160X112, 0, nullptr), ZNRET_OK);
        CEncodeParam param;
        ASSERT_EQ(video.OpenCamera(0, 1, &param, nullptr), ZNRET_OK);
        EXPECT_EQ(video.IsCameraStart(1, 1), 0);
    }
    // The facade that goes closes what it opened.
    const tag_STREAMRECORD record = CVirtualRack::GetBoard(0)->GetStreamRecord(0);
    EXPECT_FALSE(record.bOpen);
    EXPECT_EQ(record.dwStops, 1u);
}

TEST_F(VideoFacadeResults, BoardOfTheOtherRevisionsSizeReportsNoFrameSize)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 2), FRAMESIZE_320X240_R2));
    tag_FRAMESIZE nSize = FRAMESIZE_INVALID;
    EXPECT_EQ(video.GetVideoSize(0, nSize), ZNRET_OK);
    EXPECT_EQ(nSize, FRAMESIZE_320X240_R2);
    ASSERT_EQ(video.CloseBoard(0), ZNRET_OK);
    // A first-revision size on a second-revision board: the board opens, but the size
    // has no value in this revision, and no camera runs at it.
    ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_160X112, 0, nullptr), ZNRET_OK);
    EXPECT_EQ(video.GetVideoSize(0, nSize), ZNRET_FAILED);
    EXPECT_EQ(nSize, FRAMESIZE_INVALID);
    CEncodeParam param;
    EXPECT_EQ(video.OpenCamera(0, 0, &param, nullptr), ZNRET_FAILED);
}

TEST_F(VideoFacadeResults, VideoColorReachesTheDriverByTheSlotTable)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 2)));
    tag_VIDEOCOLOR color{};
    EXPECT_EQ(video.SetVideoColor(0, 3, &color), ZNRET_NOT_AVAILABLE);
    ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_320X240_R2, 0, nullptr), ZNRET_OK);
    for (int nSlot = 0; nSlot < VIDEOCOLOR_SLOTS; ++nSlot)
        color.wValue[nSlot][0] = static_cast<WORD>(-(nSlot + 1) * 10);
    color.wValue[0][1] = 77;
    // Camera 3 is the second camera of stream 1.
    ASSERT_EQ(video.SetVideoColor(0, 3, &color), ZNRET_OK);
    // Camera 2, the first of stream 1, keeps settings of its own.
    tag_VIDEOCOLOR other{};
    ASSERT_EQ(video.SetVideoColor(0, 2, &other), ZNRET_OK);
    tag_VIDEOCOLOR back{};
    back.wValue[1][0] = 5;
    ASSERT_EQ(video.GetVideoColor(0, 3, &back), ZNRET_OK);
    EXPECT_EQ(static_cast<short>(back.wValue[0][0]), -10);
    EXPECT_EQ(back.wValue[1][0], 5);
    EXPECT_EQ(static_cast<short>(back.wValue[2][0]), -30);
    EXPECT_EQ(static_cast<short>(back.wValue[3][0]), -40);
    EXPECT_EQ(static_cast<short>(back.wValue[4][0]), -50);
    EXPECT_EQ(back.wValue[0][1], 0);
    EXPECT_EQ(video.SetVideoColor(0, 4, &color), ZNRET_FAILED);
    EXPECT_EQ(video.SetVideoColor(0, 3, nullptr), ZNRET_FAILED);
}

} // namespace
