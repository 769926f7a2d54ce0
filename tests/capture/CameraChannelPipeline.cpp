// The camera channel: the signal test, the quantiser mapping, key-frame cadence, lost
// signal and its recovery, analysis-only mode, settings changed while frames run,
// closing with a frame at the encoder, and the motion alarms of its areas.
#include "CaptureTestSupport.h"

#include "capture/CCameraWnd.h"
#include "platform/TickClock.h"

#include <vector>

namespace {

// A board with one kind of picture on every camera, a host whose clock moves 40 ms a
// frame, and a CVideo opened on it.
class CameraChannelPipeline : public CCaptureTest {
protected:
    void OpenBoard(tag_SOURCEKIND nKind, tag_FRAMESIZE nSize = FRAMESIZE_160X112, BYTE byGeneration = 1)
    {
        ASSERT_TRUE(OpenOn(m_video, m_host, MakeCaptureBoard(4, byGeneration, nKind), nSize));
        m_host.m_pfnOnFrame = [this](HWND, tag_ZNCAPTUREFRAME* pFrame) { CheckStampAndMoveClock(pFrame); };
    }

    // A frame is stamped when it arrives from the stream; the clock moves only here, in
    // the host's handler, so the stamp is the clock's time now.
    void CheckStampAndMoveClock(const tag_ZNCAPTUREFRAME* pFrame)
    {
        EXPECT_EQ(pFrame->pData->dwTimeStamp, m_clock.GetTime());
        EXPECT_NE(pFrame->pParam, nullptr);
        m_clock.Advance(40);
    }

    // Serves messages until the host has one more frame, and gives what it saw of it.
    tag_HOSTFRAME NextFrame()
    {
        const std::size_t nFrames = m_host.m_frames.size();
        EXPECT_TRUE(PumpFrames(nFrames + 1));
        return m_host.m_frames.at(nFrames);
    }

    bool PumpFrames(std::size_t nFrames)
    {
        return PumpUntil([&] { return m_host.m_frames.size() >= nFrames; });
    }

    CTestClock m_clock{1000};
    CHostWindow m_host;
    CVideo m_video;
};

TEST(CameraChannelSignal, ElevenLumaSamplesAboveTwentyMakeASignal)
{
    std::vector<BYTE> frame(16 * 4 * 2, 0);
    // Chroma bytes never count, however bright.
    for (std::size_t i = 0; i < frame.size(); i += 2)
        frame[i] = 255;
    for (int i = 0; i < 30; ++i)
        frame[2 * i + 1] = 20;
    EXPECT_FALSE(CCameraWnd::HasVideoSignal(frame.data(), 16, 4));
    for (int i = 0; i < 10; ++i)
        frame[2 * (i * 3) + 1] = 21;
    EXPECT_FALSE(CCameraWnd::HasVideoSignal(frame.data(), 16, 4));
    frame[frame.size() - 1] = 21;
    EXPECT_TRUE(CCameraWnd::HasVideoSignal(frame.data(), 16, 4));
    EXPECT_FALSE(CCameraWnd::HasVideoSignal(nullptr, 16, 4));
}

// The encoder takes quantisers of 1 to 31 only; the second revision knows four steps.
TEST(CameraChannelSignal, QuantiserReachesTheEncoderInItsRange)
{
    const int nSettings[] = {-5, 0, 1, 7, 8, 11, 12, 15, 16, 31, 32, 40};
    const int nFirst[] = {1, 1, 1, 7, 8, 11, 12, 15, 16, 31, 31, 31};
    const int nSecond[] = {4, 4, 4, 4, 6, 6, 8, 8, 10, 10, 10, 10};
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(CCameraWnd::MapQuantiser(nSettings[i], STREAM_REVISION_20020114), nFirst[i]) << nSettings[i];
        EXPECT_EQ(CCameraWnd::MapQuantiser(nSettings[i], STREAM_REVISION_20020219), nSecond[i]) << nSettings[i];
    }
}

// Analysing counts 128 a step of sensitivity; coding 256, or 128 in the second
// revision, which codes at half size.
TEST(CameraChannelSignal, SensitivityScalesToTheEncodersThresholds)
{
    for (DWORD dwRevision : {STREAM_REVISION_20020114, STREAM_REVISION_20020219})
        EXPECT_EQ(CCameraWnd::GetEncoderThreshold(5, TRUE, dwRevision), 640);
    EXPECT_EQ(CCameraWnd::GetEncoderThreshold(5, FALSE, STREAM_REVISION_20020114), 1280);
    EXPECT_EQ(CCameraWnd::GetEncoderThreshold(31, FALSE, STREAM_REVISION_20020219), 3968);
}

// Under the second revision the encoder works at half size: the width stored with an
// area picks the working size its rectangle is taken to; other widths, and the first
// revision, ask about the stored rectangle.
TEST(CameraChannelSignal, MotionAreasAreAskedAboutAtTheEncodersWorkingSize)
{
    struct tag_AREACASE {
        CRect rcArea;
        int nWidth;
        int nHeight;
        DWORD dwRevision;
        CRect rcAsked;
    };
    const tag_AREACASE cases[] = {
        {CRect(0, 0, 640, 240), 640, 240, STREAM_REVISION_20020219, CRect(0, 0, 320, 240)},
        {CRect(0, 0, 320, 240), 320, 240, STREAM_REVISION_20020219, CRect(0, 0, 160, 128)},
        {CRect(0, 0, 352, 288), 352, 288, STREAM_REVISION_20020219, CRect(0, 0, 176, 144)},
        {CRect(0, 0, 704, 576), 704, 576, STREAM_REVISION_20020219, CRect(0, 0, 352, 288)},
        {CRect(0, 0, 100, 100), 500, 400, STREAM_REVISION_20020219, CRect(0, 0, 100, 100)},
        {CRect(0, 0, 320, 240), 320, 240, STREAM_REVISION_20020114, CRect(0, 0, 320, 240)},
    };
    for (const tag_AREACASE& c : cases) {
        CRect rcArea = c.rcArea;
        const CMaskInfo area(&rcArea, c.nWidth, c.nHeight);
        EXPECT_EQ(CCameraWnd::GetMotionTestRect(area, c.dwRevision), c.rcAsked) << c.nWidth << "x" << c.nHeight;
        EXPECT_EQ(area.GetMaskRect(), c.rcArea) << "the area itself keeps its rectangle";
    }
}

TEST(CameraChannelSignal, ChannelWithoutItsBoardDoesNotOpen)
{
    CEncodeParam param;
    CCameraWnd camera;
    EXPECT_EQ(camera.Open(0, nullptr, &param, STREAM_REVISION_20020114), 0);
    EXPECT_EQ(camera.GetStatus(), static_cast<DWORD>(CAMSTATUS_NONE));
}

TEST_F(CameraChannelPipeline, EveryHundredAndSixtiethFrameIsAKeyFrame)
{
    OpenBoard(SOURCE_STILL);
    CEncodeParam param;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpFrames(CCameraWnd::KEY_FRAME_CYCLE + 2));
    for (std::size_t i = 0; i < m_host.m_frames.size(); ++i) {
        const tag_HOSTFRAME& frame = m_host.m_frames[i];
        EXPECT_EQ(frame.wFrameType, i % CCameraWnd::KEY_FRAME_CYCLE == 0 ? ZNFRAME_I : ZNFRAME_P) << i;
        EXPECT_EQ(frame.bVideoLost, 0);
        if (frame.wFrameType == ZNFRAME_I)
            EXPECT_GT(frame.dwVideoLen, 100u);
        else
            EXPECT_GE(frame.dwVideoLen, 4u);
    }
}

TEST_F(CameraChannelPipeline, LostSignalSkipsTheEncoderAndItsReturnIsAKeyFrame)
{
    OpenBoard(SOURCE_NOSIGNAL);
    CEncodeParam param;
    BYTE byRawFirst = 0;
    m_host.m_pfnOnFrame = [&](HWND, tag_ZNCAPTUREFRAME* pFrame) {
        CheckStampAndMoveClock(pFrame);
        byRawFirst = pFrame->pRaw[1];
        // The record is with the host, never with the encoder.
        tag_CAMERASTATUS nStatus = CAMSTATUS_NONE;
        EXPECT_EQ(m_video.GetCameraStatus(0, 1, nStatus), ZNRET_OK);
        EXPECT_EQ(nStatus, CAMSTATUS_HOST);
    };
    ASSERT_EQ(m_video.OpenCamera(0, 1, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpFrames(5));
    for (std::size_t i = 0; i < m_host.m_frames.size(); ++i) {
        const tag_HOSTFRAME& frame = m_host.m_frames[i];
        EXPECT_EQ(frame.bVideoLost, 1);
        EXPECT_EQ(frame.wFlags, ZNFRAME_LOST);
        EXPECT_EQ(frame.dwVideoLen, 0u);
        EXPECT_EQ(frame.wFrameType, i == 0 ? ZNFRAME_I : ZNFRAME_P);
    }
    // The raw frame is what the host gets while the encoder hasn't run.
    EXPECT_LE(byRawFirst, 20);
    // Taking the signal test away is the signal's return for the channel.
    param.m_bCheckVideo = 0;
    ASSERT_EQ(m_video.SetEncodeParam(0, 1, &param), ZNRET_OK);
    const std::size_t nLost = m_host.m_frames.size();
    ASSERT_TRUE(PumpFrames(nLost + 3));
    EXPECT_EQ(m_host.m_frames[nLost].bVideoLost, 0);
    EXPECT_EQ(m_host.m_frames[nLost].wFrameType, ZNFRAME_I);
    EXPECT_EQ(m_host.m_frames[nLost + 1].wFrameType, ZNFRAME_P);
}

TEST_F(CameraChannelPipeline, SettingsTakeEffectBetweenFrames)
{
    OpenBoard(SOURCE_SYNTHETIC);
    CEncodeParam param;
    param.m_nQi = 2;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    const auto predictedBytes = [this](std::size_t nFirst) {
        DWORD dwBytes = 0;
        for (std::size_t i = nFirst; i < nFirst + 8; ++i)
            dwBytes += m_host.m_frames[i].dwVideoLen;
        return dwBytes;
    };
    ASSERT_TRUE(PumpFrames(9));
    const DWORD dwFineKey = m_host.m_frames[0].dwVideoLen;
    const DWORD dwFinePredicted = predictedBytes(1);
    // 40 is above the encoder's range: it codes at 31, and the setting stays 40. The
    // quantiser of the setting codes predicted frames too.
    ASSERT_EQ(m_video.SetQi(0, 0, 40), ZNRET_OK);
    ASSERT_EQ(m_video.ResetEncodeSeq(0, 0), ZNRET_OK);
    const std::size_t nReset = m_host.m_frames.size();
    ASSERT_TRUE(PumpFrames(nReset + 9));
    EXPECT_EQ(m_host.m_frames[nReset].wFrameType, ZNFRAME_I);
    EXPECT_LT(m_host.m_frames[nReset].dwVideoLen * 2, dwFineKey);
    EXPECT_LT(predictedBytes(nReset + 1) * 2, dwFinePredicted);
    // The sensitivity is stored as given and held to its range when a frame is coded.
    ASSERT_EQ(m_video.SetCheckSen(0, 0, 40), ZNRET_OK);
    CEncodeParam current;
    ASSERT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
    EXPECT_EQ(current.m_nCheckSen, 40);
    ASSERT_TRUE(PumpFrames(m_host.m_frames.size() + 2));
    ASSERT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
    EXPECT_EQ(current.m_nCheckSen, 31);
    ASSERT_EQ(m_video.SetCheckSen(0, 0, 0), ZNRET_OK);
    ASSERT_TRUE(PumpFrames(m_host.m_frames.size() + 2));
    ASSERT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
    EXPECT_EQ(current.m_nCheckSen, 1);
    EXPECT_EQ(current.m_nQi, 40);
}

TEST_F(CameraChannelPipeline, CloseWithAFrameAtTheEncoderDropsThatFrame)
{
    OpenBoard(SOURCE_SYNTHETIC);
    CEncodeParam param;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    tag_CAMERASTATUS nStatus = CAMSTATUS_NONE;
    ASSERT_TRUE(PumpUntil([&] {
        m_video.GetCameraStatus(0, 0, nStatus);
        return nStatus == CAMSTATUS_ENCODING;
    }));
    const std::size_t nDelivered = m_host.m_frames.size();
    ASSERT_EQ(m_video.CloseCamera(0, 0), ZNRET_OK);
    EXPECT_EQ(m_video.IsCameraStart(0, 0), 0);
    // Whatever the driver still posts finds no channel; no record reaches the host.
    DrainMessages();
    EXPECT_EQ(m_host.m_frames.size(), nDelivered);
}

TEST_F(CameraChannelPipeline, CloseWithTheRecordAtTheHostDoesNotWait)
{
    OpenBoard(SOURCE_NOSIGNAL);
    CEncodeParam param;
    m_host.m_bHold = true;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpUntil([&] { return m_host.m_hHeld != nullptr; }));
    tag_CAMERASTATUS nStatus = CAMSTATUS_NONE;
    ASSERT_EQ(m_video.GetCameraStatus(0, 0, nStatus), ZNRET_OK);
    ASSERT_EQ(nStatus, CAMSTATUS_HOST);
    ASSERT_EQ(m_video.CloseCamera(0, 0), ZNRET_OK);
    DrainMessages();
    EXPECT_EQ(m_host.m_frames.size(), 1u);
}

// Each setting operation changes its own setting and no other.
TEST_F(CameraChannelPipeline, EachSettingOperationStoresItsOwnSetting)
{
    OpenBoard(SOURCE_STILL);
    CEncodeParam param;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    const auto read = [&] {
        CEncodeParam current;
        EXPECT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
        return std::vector<long>{current.m_nCheckSen, current.m_nAlarmFrameNum, current.m_nQi, current.m_nQp,
                                 current.m_bEncodeSound, static_cast<long>(current.m_dwSoundDev)};
    };
    struct {
        tag_ZNRETURN (CVideo::*pfnSet)(int, int, int);
        int nValue;
        std::size_t nField;
    } const operations[] = {
        {&CVideo::SetCheckSen, 7, 0}, {&CVideo::SetAlarmFrameNum, 9, 1}, {&CVideo::SetQi, 12, 2},
        {&CVideo::SetQp, 14, 3},      {&CVideo::SetEncodeSound, 1, 4},   {&CVideo::SetEncodeSoundDev, 3, 5},
    };
    for (const auto& operation : operations) {
        std::vector<long> expected = read();
        expected[operation.nField] = operation.nValue;
        ASSERT_EQ((m_video.*operation.pfnSet)(0, 0, operation.nValue), ZNRET_OK);
        EXPECT_EQ(read(), expected) << "field " << operation.nField;
    }
}

// The key-frame cycle restarts when coding is switched off or on, by either operation,
// and not when the mode is set to what it is; analysing only sends uncoded records.
TEST_F(CameraChannelPipeline, ModeChangesRestartTheKeyFrameCycle)
{
    OpenBoard(SOURCE_STILL);
    CEncodeParam param;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpFrames(3));
    ASSERT_EQ(m_video.SetEncodeMode(0, 0, 1), ZNRET_OK);
    EXPECT_EQ(NextFrame().wFrameType, ZNFRAME_P);
    ASSERT_EQ(m_video.SetEncodeParam(0, 0, &param), ZNRET_OK);
    EXPECT_EQ(NextFrame().wFrameType, ZNFRAME_P);

    CEncodeParam analyse;
    analyse.m_bEncodeMode = 0;
    ASSERT_EQ(m_video.SetEncodeParam(0, 0, &analyse), ZNRET_OK);
    tag_HOSTFRAME frame = NextFrame();
    EXPECT_EQ(frame.wFrameType, ZNFRAME_I);
    EXPECT_EQ(frame.dwVideoLen, 0u);
    ASSERT_EQ(m_video.SetEncodeParam(0, 0, &param), ZNRET_OK);
    EXPECT_EQ(NextFrame().wFrameType, ZNFRAME_I);
    EXPECT_EQ(NextFrame().wFrameType, ZNFRAME_P);

    // Analysing only, every record is an uncoded key record.
    ASSERT_EQ(m_video.SetEncodeMode(0, 0, 0), ZNRET_OK);
    for (int i = 0; i < 2; ++i) {
        frame = NextFrame();
        EXPECT_EQ(frame.wFrameType, ZNFRAME_I);
        EXPECT_EQ(frame.dwVideoLen, 0u);
    }
    ASSERT_EQ(m_video.SetEncodeMode(0, 0, 1), ZNRET_OK);
    frame = NextFrame();
    EXPECT_EQ(frame.wFrameType, ZNFRAME_I);
    EXPECT_GT(frame.dwVideoLen, 100u);
}

// Boards of the second revision deliver 320 x 240 for the 640 x 240 frame size, and the
// channel's buffers are larger than that: the signal test reads the delivered frame
// only, not what the last preview left behind it.
TEST_F(CameraChannelPipeline, SignalIsTestedAtTheDeliveredSize)
{
    OpenBoard(SOURCE_STILL, FRAMESIZE_640X240_R2, 2);
    CEncodeParam param;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpFrames(4));
    EXPECT_EQ(m_host.m_frames.back().bVideoLost, 0);
    tag_CAMERASOURCE unplugged;
    unplugged.nKind = SOURCE_NOSIGNAL;
    ASSERT_TRUE(CVirtualRack::GetBoard(0)->SetCameraSource(0, unplugged));
    // A frame read before the change may still come; after it every frame is lost.
    ASSERT_TRUE(PumpFrames(m_host.m_frames.size() + 6));
    for (std::size_t i = m_host.m_frames.size() - 4; i < m_host.m_frames.size(); ++i)
        EXPECT_EQ(m_host.m_frames[i].bVideoLost, 1) << i;
}

TEST_F(CameraChannelPipeline, EncoderThatRefusesTheSizeLeavesTheCameraClosed)
{
    CEncodeParam param;
    // A first-revision size on a second-revision board: the encoder knows no such size.
    OpenBoard(SOURCE_SYNTHETIC, FRAMESIZE_240X176, 2);
    EXPECT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(m_video.IsCameraStart(0, 0), 0);
    EXPECT_FALSE(CVirtualRack::GetBoard(0)->GetStreamRecord(0).bStarted);
}

// Alarms of a whole-picture area over frames, for moving and still scenes.
class CameraChannelMotion : public CameraChannelPipeline {
protected:
    int CountAlarms(tag_SOURCEKIND nKind, int bEncodeMode)
    {
        OpenBoard(nKind);
        CEncodeParam param;
        param.m_bEncodeMode = bEncodeMode;
        // Every moving frame alarms: the driver may hand over a picture drawn before the
        // host moved the clock, which repeats the last one and breaks a run of motion.
        param.m_nAlarmFrameNum = 1;
        CRect rcAll(0, 0, 160, 112);
        CMaskInfo area(&rcAll, 160, 112);
        param.AddMaskInfo(&area, 160, 112);
        EXPECT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
        EXPECT_TRUE(PumpFrames(20));
        int nAlarms = 0;
        for (const tag_HOSTFRAME& frame : m_host.m_frames)
            nAlarms += (frame.wFlags & ZNFRAME_ALARM) != 0;
        return nAlarms;
    }
};

TEST_F(CameraChannelMotion, MovingObjectsRaiseAlarmsAlsoWhenOnlyAnalysing)
{
    EXPECT_GE(CountAlarms(SOURCE_SYNTHETIC, 0), 5);
}

TEST_F(CameraChannelMotion, StillSceneStaysQuiet)
{
    EXPECT_EQ(CountAlarms(SOURCE_STILL, 1), 0);
}

TEST_F(CameraChannelMotion, AreasSetDuringCaptureAreScaledToTheFrameSizeAndCleared)
{
    OpenBoard(SOURCE_SYNTHETIC, FRAMESIZE_176X144);
    CEncodeParam param;
    param.m_nAlarmFrameNum = 1;
    ASSERT_EQ(m_video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpFrames(4));
    for (const tag_HOSTFRAME& frame : m_host.m_frames)
        EXPECT_EQ(frame.wFlags & ZNFRAME_ALARM, 0);
    // An area given at 352 x 288 units covers the whole 176 x 144 picture.
    CRect rcAll(0, 0, 352, 288);
    CMaskInfo area(&rcAll, 352, 288);
    ASSERT_EQ(m_video.SetMask(0, 0, &area), ZNRET_OK);
    CEncodeParam current;
    ASSERT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
    ASSERT_EQ(current.m_MaskList.GetCount(), 1);
    const auto* pArea = static_cast<CMaskInfo*>(current.m_MaskList.GetHead());
    EXPECT_EQ(pArea->GetMaskRect(), CRect(0, 0, 176, 144));
    const std::size_t nWithArea = m_host.m_frames.size();
    ASSERT_TRUE(PumpFrames(nWithArea + 10));
    int nAlarms = 0;
    for (std::size_t i = nWithArea; i < m_host.m_frames.size(); ++i)
        nAlarms += (m_host.m_frames[i].wFlags & ZNFRAME_ALARM) != 0;
    EXPECT_GE(nAlarms, 5);
    ASSERT_EQ(m_video.SetMask(0, 0, nullptr), ZNRET_OK);
    ASSERT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
    EXPECT_EQ(current.m_MaskList.GetCount(), 0);
    // Parameters given whole bring their areas, which move into the channel.
    CEncodeParam withArea;
    withArea.AddMaskInfo(&area, 176, 144);
    ASSERT_EQ(m_video.SetEncodeParam(0, 0, &withArea), ZNRET_OK);
    EXPECT_EQ(withArea.m_MaskList.GetCount(), 0);
    ASSERT_EQ(m_video.GetEncodeParam(0, 0, &current), ZNRET_OK);
    EXPECT_EQ(current.m_MaskList.GetCount(), 1);
}

} // namespace
