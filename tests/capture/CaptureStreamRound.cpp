// The read round of a stream: which camera is read next, what happens while a channel
// is busy, the rate the cameras share, the ports and delivered sizes, the 112-line rule
// and the picture test of stream 1.
#include "CaptureTestSupport.h"

#include "capture/CBoardList.h"
#include "capture/CCaptureStream.h"
#include "capture/CCaptureWnd.h"
#include "driver/CSpciIO.h"
#include "platform/TickClock.h"


namespace {

class CaptureStreamRound : public CCaptureTest {
protected:
    tag_STREAMRECORD Record(int nStream) { return CVirtualRack::GetBoard(0)->GetStreamRecord(nStream); }
};

// Real-time pacing by the test clock, a millisecond at a time: each camera of a stream
// gets the stream's 30 frames a second divided by the cameras that share it.
TEST_F(CaptureStreamRound, CamerasShareTheStreamsFrameRate)
{
    constexpr DWORD kWarmUpMs = 500;
    constexpr DWORD kMeasureMs = 3000;
    constexpr double kStreamRate = 30.0;
    for (int nCameras = 1; nCameras <= 4; ++nCameras) {
        CVirtualRack::Clear();
        tag_VIRTUALBOARD board = MakeCaptureBoard(4, 1);
        board.nPacing = PACING_REALTIME;
        CTestClock clock(1000);
        CHostWindow host;
        CVideo video;
        ASSERT_TRUE(OpenOn(video, host, board, FRAMESIZE_160X112));
        CEncodeParam param;
        for (int nCamera = 0; nCamera < nCameras; ++nCamera)
            ASSERT_EQ(video.OpenCamera(0, nCamera, &param, nullptr), ZNRET_OK);
        // The stream's driver thread and one encoder thread per camera.
        const int nThreads = 1 + nCameras;
        ASSERT_TRUE(RunByTestClock(clock, kWarmUpMs, nThreads));
        const std::size_t nBefore = host.m_frames.size();
        ASSERT_TRUE(RunByTestClock(clock, kMeasureMs, nThreads));
        const double fExpected = kStreamRate / nCameras * kMeasureMs / 1000;
        for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
            int nFrames = 0;
            for (std::size_t i = nBefore; i < host.m_frames.size(); ++i)
                nFrames += host.m_frames[i].nCamera == nCamera;
            EXPECT_NEAR(nFrames, fExpected, fExpected * 0.05) << nCameras << " cameras, camera " << nCamera;
        }
    }
}

TEST_F(CaptureStreamRound, ShortFramesReadEightMoreLinesOnStreamOneOnly)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 2)));
    // Two streams and a 112-line size meet only on a board opened below the facade.
    CCaptureWnd board;
    ASSERT_TRUE(board.Create(&host, video.m_pBoardList->GetBoard(0), &video, 0));
    ASSERT_TRUE(board.Open(160, 112, STANDARD_NTSC, 0, STREAM_REVISION_20020114));
    EXPECT_EQ(Record(0).pciPort.dwHeight, 112u);
    EXPECT_EQ(Record(1).pciPort.dwHeight, 120u);
    int nWidth = 0;
    int nHeight = 0;
    tag_VIDEOSTANDARD nStandard = STANDARD_PAL;
    board.GetVideoSize(&nWidth, &nHeight, &nStandard);
    EXPECT_EQ(nHeight, 112);
    CEncodeParam param;
    ASSERT_TRUE(board.OpenCamera(2, &param));
    ASSERT_TRUE(board.OpenCamera(3, &param));
    int nInfoHeight = 0;
    host.m_pfnOnFrame = [&](HWND, tag_ZNCAPTUREFRAME* pFrame) { nInfoHeight = pFrame->pInfo->nHeight; };
    ASSERT_TRUE(PumpUntil([&] { return host.CountFrames(3) >= 3; }));
    EXPECT_EQ(nInfoHeight, 112);
    EXPECT_GT(host.m_frames.back().dwVideoLen, 0u);
    // Closing the board closes the cameras its streams still have.
    const HWND hCameras[] = {board.GetCameraWnd(2), board.GetCameraWnd(3)};
    board.Close();
    for (HWND hCamera : hCameras)
        EXPECT_FALSE(IsWindow(hCamera));
    board.DestroyWindow();
}

// The pattern of a failed stream-1 read: four luma bytes, at places that depend on the
// standard, in each of lines 2 to 9; a single difference makes a picture of it, and a
// frame whose lines are too short to hold it never shows it.
TEST(CaptureStreamPicture, FaultPatternIsFourLumaBytesInLinesTwoToNine)
{
    constexpr int kHeight = 12;
    const struct {
        tag_VIDEOSTANDARD nStandard;
        int nOffsets[4];
    } patterns[] = {{STANDARD_NTSC, {197, 199, 333, 335}}, {STANDARD_PAL, {197, 199, 339, 341}}};
    const BYTE byValues[4] = {0x27, 0x28, 0x20, 0x20};
    for (const auto& pattern : patterns) {
        const auto patterned = [&](int nWidth) {
            std::vector<BYTE> frame(nWidth * (kHeight + 1) * 2, 0x80);
            for (int nLine = 2; nLine <= 9; ++nLine) {
                for (int k = 0; k < 4; ++k)
                    frame[nLine * nWidth * 2 + pattern.nOffsets[k]] = byValues[k];
            }
            return frame;
        };
        // The narrowest even width whose lines hold the last byte, and the next narrower.
        const int nFits = (pattern.nOffsets[3] / 2 + 2) & ~1;
        const tag_VIDEOSTANDARD nOther = pattern.nStandard == STANDARD_PAL ? STANDARD_NTSC : STANDARD_PAL;
        EXPECT_TRUE(CCaptureStream::IsFaultPattern(patterned(nFits).data(), nFits, kHeight, pattern.nStandard));
        EXPECT_FALSE(CCaptureStream::IsFaultPattern(patterned(nFits - 2).data(), nFits - 2, kHeight, pattern.nStandard));
        std::vector<BYTE> frame = patterned(320);
        EXPECT_TRUE(CCaptureStream::IsFaultPattern(frame.data(), 320, kHeight, pattern.nStandard));
        EXPECT_FALSE(CCaptureStream::IsFaultPattern(frame.data(), 320, kHeight, nOther));
        EXPECT_FALSE(CCaptureStream::IsFaultPattern(frame.data(), 320, 9, pattern.nStandard)) << "too short";
        for (int nLine = 2; nLine <= 9; ++nLine) {
            for (int k = 0; k < 4; ++k) {
                BYTE& byPatterned = frame[nLine * 320 * 2 + pattern.nOffsets[k]];
                ++byPatterned;
                EXPECT_FALSE(CCaptureStream::IsFaultPattern(frame.data(), 320, kHeight, pattern.nStandard))
                    << "line " << nLine << " byte " << pattern.nOffsets[k];
                --byPatterned;
            }
        }
    }
}

// A stream opens on a working device and a board window, for a stream its board has, at
// a picture of some size.
TEST_F(CaptureStreamRound, StreamOpensOnlyWhereItsBoardHasIt)
{
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 1));
    CVirtualRack::InstallBoard(MakeCaptureBoard(4, 2));
    CSpciIO oneStream;
    CSpciIO twoStreams;
    CSpciIO closed;
    ASSERT_NE(oneStream.Open(0), 0);
    ASSERT_NE(twoStreams.Open(1), 0);
    CCaptureWnd board;
    ASSERT_TRUE(board.CreateEx(0, nullptr, "board", WS_POPUP, RECT{}, nullptr, 0));
    const auto opens = [&](CCaptureWnd* pBoard, CSpciIO* pIO, int nStream, int nWidth, int nHeight) {
        return CCaptureStream(pBoard, pIO, nStream).Open(nWidth, nHeight, STANDARD_NTSC, 0, STREAM_REVISION_20020114);
    };
    EXPECT_EQ(opens(&board, &oneStream, 0, 320, 240), 1);
    EXPECT_EQ(opens(&board, &twoStreams, 1, 320, 240), 1);
    EXPECT_EQ(opens(&board, &oneStream, 1, 320, 240), 0);
    EXPECT_EQ(opens(&board, &twoStreams, 2, 320, 240), 0);
    EXPECT_EQ(opens(&board, &closed, 0, 320, 240), 0);
    EXPECT_EQ(opens(nullptr, &oneStream, 0, 320, 240), 0);
    EXPECT_EQ(opens(&board, &oneStream, 0, 0, 240), 0);
    EXPECT_EQ(opens(&board, &oneStream, 0, 320, 0), 0);
    board.DestroyWindow();
}

// The part of the input a stream captures: left 12, top 22 (NTSC) or 24 (PAL), the
// standard's whole picture, and input 1 on stream 1. The first revision's 640 x 240 on
// stream 1 in PAL captures a window of that size.
TEST_F(CaptureStreamRound, VideoPortFollowsStandardStreamAndSize)
{
    struct {
        int nWidth;
        int nHeight;
        tag_VIDEOSTANDARD nStandard;
        DWORD dwRevision;
        tag_VideoPort ports[2];
        int nDeliveredWidth;
        int nDeliveredHeight;
    } const cases[] = {
        {320, 240, STANDARD_NTSC, STREAM_REVISION_20020114, {{0, 0, 12, 22, 640, 240}, {1, 0, 12, 22, 640, 240}},
         320, 240},
        {352, 288, STANDARD_PAL, STREAM_REVISION_20020114, {{0, 0, 12, 24, 704, 288}, {1, 0, 12, 24, 704, 288}},
         352, 288},
        {640, 240, STANDARD_PAL, STREAM_REVISION_20020114, {{0, 0, 12, 24, 704, 288}, {1, 0, 12, 24, 640, 240}},
         640, 240},
        {640, 240, STANDARD_PAL, STREAM_REVISION_20020219, {{0, 0, 12, 24, 704, 288}, {1, 0, 12, 24, 704, 288}},
         352, 288},
        {640, 240, STANDARD_NTSC, STREAM_REVISION_20020219, {{0, 0, 12, 22, 640, 240}, {1, 0, 12, 22, 640, 240}},
         320, 240},
    };
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 2)));
    CCaptureWnd refused;
    ASSERT_TRUE(refused.Create(&host, video.m_pBoardList->GetBoard(0), &video, 0));
    EXPECT_FALSE(refused.Open(0, 240, STANDARD_NTSC, 0, STREAM_REVISION_20020114)) << "no width";
    EXPECT_FALSE(refused.Open(320, 0, STANDARD_NTSC, 0, STREAM_REVISION_20020114)) << "no height";
    EXPECT_TRUE(refused.Open(2, 1, STANDARD_NTSC, 0, STREAM_REVISION_20020114)) << "the smallest picture";
    refused.Close();
    refused.DestroyWindow();
    for (const auto& c : cases) {
        // Two streams and the first revision's sizes meet only below the facade.
        CCaptureWnd board;
        ASSERT_TRUE(board.Create(&host, video.m_pBoardList->GetBoard(0), &video, 0));
        ASSERT_TRUE(board.Open(c.nWidth, c.nHeight, c.nStandard, 0, c.dwRevision));
        for (int nStream = 0; nStream < 2; ++nStream) {
            const tag_STREAMRECORD record = Record(nStream);
            const tag_VideoPort& port = record.videoPort;
            const tag_VideoPort& expected = c.ports[nStream];
            EXPECT_EQ(std::vector<DWORD>({port.dwInput, port.dwFlags, port.dwLeft, port.dwTop, port.dwWidth,
                                          port.dwHeight}),
                      std::vector<DWORD>({expected.dwInput, expected.dwFlags, expected.dwLeft, expected.dwTop,
                                          expected.dwWidth, expected.dwHeight}))
                << c.nWidth << " x " << c.nHeight << " stream " << nStream;
            const tag_PciPort& pci = record.pciPort;
            EXPECT_EQ(std::vector<DWORD>({pci.dwBase, pci.dwLeft, pci.dwTop, pci.dwWidth, pci.dwHeight}),
                      std::vector<DWORD>({0, 0, 0, static_cast<DWORD>(c.nDeliveredWidth),
                                          static_cast<DWORD>(c.nDeliveredHeight)}));
        }
        board.Close();
        board.DestroyWindow();
    }
}

// A two-stream board splits its channels in halves, of which a stream uses four at
// most: with 10 channels stream 1 starts at camera 5, and cameras 4 and 9 have no slot.
TEST_F(CaptureStreamRound, StreamOneOfATenChannelBoardStartsAtCameraFive)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(10, 2), FRAMESIZE_320X240_R2));
    EXPECT_EQ(video.GetCameraNum(0), 10);
    CEncodeParam param;
    EXPECT_EQ(video.OpenCamera(0, 4, &param, nullptr), ZNRET_FAILED);
    EXPECT_EQ(video.OpenCamera(0, 9, &param, nullptr), ZNRET_FAILED);
    ASSERT_EQ(video.OpenCamera(0, 5, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpUntil([&] { return host.m_frames.size() >= 2; }));
    EXPECT_EQ(host.m_frames[0].nCamera, 5);
    EXPECT_EQ(Record(1).history[0].nCamera, 0);
    // The camera window is named and numbered by board and board-wide camera.
    CWnd* pCamera = CWnd::FromHandle(video.m_ppCaptureWnd[0]->GetCameraWnd(5));
    ASSERT_NE(pCamera, nullptr);
    char strName[32] = {};
    pCamera->GetWindowText(strName, sizeof(strName));
    EXPECT_STREQ(strName, "Camera(0,5)");
    EXPECT_EQ(pCamera->GetDlgCtrlID(), 105);
    EXPECT_EQ(pCamera->GetParent(), video.m_ppCaptureWnd[0].get());
    const HWND hCamera = pCamera->GetSafeHwnd();
    ASSERT_EQ(video.CloseCamera(0, 5), ZNRET_OK);
    EXPECT_EQ(video.IsCameraStart(0, 5), 0);
    EXPECT_FALSE(IsWindow(hCamera));
}

TEST_F(CaptureStreamRound, FaultPatternIsReadAgainOnStreamOneAndPassesOnStreamZero)
{
    CHostWindow host;
    CVideo video;
    ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(4, 2, SOURCE_FAULTPATTERN), FRAMESIZE_320X240_R2));
    CEncodeParam param;
    ASSERT_EQ(video.OpenCamera(0, 2, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpUntil([&] { return Record(1).dwFramesDelivered > 30; }));
    EXPECT_EQ(host.m_frames.size(), 0u);
    ASSERT_EQ(video.OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_TRUE(PumpUntil([&] { return host.CountFrames(0) >= 3; }));
    EXPECT_EQ(host.CountFrames(2), 0);
}

// The round driven by hand: the board paces in real time by a test clock that never
// moves, so the driver answers nothing, and the test sends the driver's message that a
// read has ended. Orders are read from the board's record.
class CaptureRoundByHand : public CCaptureTest {
protected:
    void Open(std::initializer_list<int> cameras, tag_SOURCEKIND nCameraZero = SOURCE_STILL, int nSpeed = 0)
    {
        if (m_video.GetBoardNum() < 0) {
            tag_VIRTUALBOARD board = MakeCaptureBoard(4, 1, SOURCE_STILL);
            board.nPacing = PACING_REALTIME;
            board.sources[0].nKind = nCameraZero;
            ASSERT_TRUE(OpenOn(m_video, m_host, board));
            ASSERT_EQ(m_video.OpenBoard(0, FRAMESIZE_160X112, nSpeed, nullptr), ZNRET_OK);
        }
        CEncodeParam param;
        for (int nCamera : cameras)
            ASSERT_EQ(m_video.OpenCamera(0, nCamera, &param, nullptr), ZNRET_OK);
        m_nOpen += static_cast<int>(cameras.size());
        m_hCapture = m_video.m_ppCaptureWnd[0]->GetSafeHwnd();
    }

    void Close(int nCamera)
    {
        ASSERT_EQ(m_video.CloseCamera(0, nCamera), ZNRET_OK);
        --m_nOpen;
    }

    // The read of nCamera has ended; the channels then do all they can. The stream's
    // answer: 1 when it ordered the next read, 0 when it ordered none.
    LRESULT Deliver(int nCamera)
    {
        const LRESULT nResult = ::SendMessage(m_hCapture, WM_ZN_FRAME, 0, nCamera);
        // The stream's driver thread and an encoder thread per open camera.
        EXPECT_TRUE(SettleThreads(1 + m_nOpen));
        return nResult;
    }

    tag_STREAMRECORD Record() { return CVirtualRack::GetBoard(0)->GetStreamRecord(0); }

    static void ExpectOrder(const tag_STREAMRECORD& record, int nCamera, int nNext, int nSecondNext)
    {
        ASSERT_GT(record.nHistory, 0);
        const tag_VIDEOREAD& read = record.history[record.nHistory - 1];
        EXPECT_EQ(read.nCamera, nCamera);
        EXPECT_EQ(read.nNextCamera, nNext);
        EXPECT_EQ(read.nSecondNextCamera, nSecondNext);
    }

    CTestClock m_clock{1000};
    CHostWindow m_host;
    CVideo m_video;
    HWND m_hCapture = nullptr;
    int m_nOpen = 0;
};

// Every read names the camera to read and the two that follow in the round; a lone
// camera is all three.
TEST_F(CaptureRoundByHand, OrdersNameTheCamerasThatFollow)
{
    Open({1});
    ExpectOrder(Record(), 1, 1, 1);
    Deliver(1);
    ExpectOrder(Record(), 1, 1, 1);
    Close(1);
    Open({0, 2});
    EXPECT_EQ(Deliver(0), 1);
    ExpectOrder(Record(), 2, 0, 2);
    EXPECT_EQ(Deliver(2), 1);
    ExpectOrder(Record(), 0, 2, 0);
    EXPECT_EQ(m_host.CountFrames(0), 1);
    EXPECT_EQ(m_host.CountFrames(2), 1);
}

TEST_F(CaptureRoundByHand, RecordSpeedReachesEveryRead)
{
    Open({0}, SOURCE_STILL, 7);
    EXPECT_EQ(Record().history[0].nSpeed, 7);
    ASSERT_EQ(m_video.SetRecordSpeed(0, 9), ZNRET_OK);
    Deliver(0);
    EXPECT_EQ(Record().history[Record().nHistory - 1].nSpeed, 9);
}

// While the channel served last holds its record, the camera whose read ended is read
// again and its frame thrown away; the host's answer lets the round move on.
TEST_F(CaptureRoundByHand, RoundWaitsForTheChannelServedLast)
{
    Open({0, 1});
    m_host.m_bHold = true;
    Deliver(0);
    ASSERT_EQ(m_host.m_frames.size(), 1u);
    ExpectOrder(Record(), 1, 0, 1);
    Deliver(1);
    EXPECT_EQ(Deliver(1), 1);
    EXPECT_EQ(m_host.m_frames.size(), 1u);
    ExpectOrder(Record(), 1, 1, 1);
    m_host.m_bHold = false;
    m_host.GiveBack();
    ASSERT_TRUE(SettleThreads(3));
    Deliver(1);
    EXPECT_EQ(m_host.CountFrames(1), 1);
    ExpectOrder(Record(), 0, 1, 0);
}

// A host that serves messages in its handler of a frame without signal: a read of that
// camera ending meanwhile finds its channel busy and is read again, not delivered.
TEST_F(CaptureRoundByHand, BusyChannelGetsNoFrameWhileItsHostServesMessages)
{
    Open({0, 1}, SOURCE_NOSIGNAL);
    Deliver(1);
    bool bNested = false;
    m_host.m_pfnOnFrame = [&](HWND, tag_ZNCAPTUREFRAME* pFrame) {
        if (bNested || pFrame->pInfo->nCamera != 0)
            return;
        bNested = true;
        EXPECT_EQ(::SendMessage(m_hCapture, WM_ZN_FRAME, 0, 0), 1);
        EXPECT_EQ(m_host.CountFrames(0), 1);
        ExpectOrder(Record(), 0, 0, 0);
    };
    Deliver(0);
    EXPECT_TRUE(bNested);
    EXPECT_EQ(m_host.CountFrames(0), 1);
    ExpectOrder(Record(), 1, 0, 1);
}

// A read of a camera closed meanwhile: its frame goes nowhere and the round goes on from
// the camera served last.
TEST_F(CaptureRoundByHand, FrameOfAClosedCameraGoesOnFromTheCameraServedLast)
{
    Open({0, 1, 2});
    Deliver(0);
    ExpectOrder(Record(), 1, 2, 0);
    Close(1);
    Deliver(1);
    EXPECT_EQ(m_host.CountFrames(1), 0);
    ExpectOrder(Record(), 2, 0, 2);
}

// The first camera starts the stream and the last one closed stops it. A frame that
// still arrives for it finds no channel and stops the stream a second time. Messages
// for cameras the stream doesn't have change nothing.
TEST_F(CaptureRoundByHand, FirstCameraStartsTheStreamAndTheLastStopsIt)
{
    Open({0, 2});
    EXPECT_EQ(Record().dwStarts, 1u);
    const DWORD dwOrders = Record().dwOrders;
    EXPECT_EQ(Deliver(-1), 0);
    EXPECT_EQ(Deliver(4), 0);
    EXPECT_EQ(Record().dwOrders, dwOrders);
    Close(0);
    EXPECT_TRUE(Record().bStarted);
    Close(2);
    EXPECT_EQ(Record().dwStops, 1u);
    EXPECT_EQ(Deliver(2), 0);
    EXPECT_EQ(Record().dwStops, 2u);
    EXPECT_EQ(Record().dwOrders, dwOrders);
    EXPECT_TRUE(m_host.m_frames.empty());
}

} // namespace
