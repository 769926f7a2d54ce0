// Streams of a virtual board: reads answered in order on a driver thread with frames
// of the ordered camera, pending orders replaced, pacing by the test clock, and nothing
// after Stop or Close.
#include "DriverTestSupport.h"

#include <algorithm>
#include <memory>

namespace {

constexpr int kWidth = 32;
constexpr int kHeight = 16;
constexpr DWORD kFrameBytes = kWidth * kHeight * 2;
constexpr BYTE kUntouched = 0xA5;
constexpr std::size_t kGuardBytes = 64;

// A buffer of one frame plus guard bytes, all marked untouched.
struct tag_READBUFFER {
    std::vector<BYTE> data = std::vector<BYTE>(kFrameBytes + kGuardBytes, kUntouched);

    bool IsUntouched() const
    {
        return std::all_of(data.begin(), data.end(), [](BYTE by) { return by == kUntouched; });
    }
    bool GuardIntact() const
    {
        return std::all_of(data.begin() + kFrameBytes, data.end(), [](BYTE by) { return by == kUntouched; });
    }
};

tag_VIDEOREAD MakeRead(int nCamera, tag_READBUFFER& buffer, int nNext = -1, int nSecondNext = -1)
{
    return {0, nCamera, nNext < 0 ? nCamera : nNext, nSecondNext < 0 ? nCamera : nSecondNext, buffer.data.data(),
            kFrameBytes};
}

// Opens stream nStream of device 0 on a window of the test thread, at 32 x 16.
class StreamTest : public CRackTest {
protected:
    // Installs a board whose camera c shows flat footage of luma 30 + 40 * c.
    void InstallFootageBoard(BYTE byChannels, BYTE byGeneration, tag_PACING nPacing)
    {
        tag_VIRTUALBOARD board = MakeTestBoard(byChannels, byGeneration, nPacing);
        for (int c = 0; c < byChannels; ++c) {
            m_footage.push_back(std::make_unique<CY4mFile>(8, 4, 1, CameraLuma(c), true));
            board.sources.push_back({SOURCE_Y4MFILE, 0, m_footage.back()->GetPath()});
        }
        ASSERT_EQ(CVirtualRack::InstallBoard(board), 0);
        ASSERT_NE(m_io.Open(0), 0);
    }

    static int CameraLuma(int nBoardCamera) { return 30 + 40 * nBoardCamera; }

    template <typename TStream = CVideoStream>
    std::unique_ptr<TStream> OpenStream(int nStream, tag_VIDEOSTANDARD1 nStandard = DRIVER_STANDARD_NTSC)
    {
        auto pStream = std::make_unique<TStream>(m_io, nStream);
        tag_VideoPort videoPort{static_cast<DWORD>(nStream), 0, 12, 22, 640, 240};
        tag_PciPort pciPort{0, 0, 0, kWidth, kHeight};
        EXPECT_NE(pStream->Open(m_window.m_hWnd, nStandard, &videoPort, &pciPort), 0);
        return pStream;
    }

    CSpciIO m_io;
    CFrameWindow m_window;
    std::vector<std::unique_ptr<CY4mFile>> m_footage;
};

TEST_F(StreamTest, AnswersReadsInOrderWithStreamAndCameraAndTheCamerasFrame)
{
    InstallFootageBoard(4, 2, PACING_IMMEDIATE);
    auto pStream = OpenStream(1);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;
    for (int nCamera : {0, 1, 1, 0, 1}) {
        tag_VIDEOREAD read = MakeRead(nCamera, buffer);
        ASSERT_NE(pStream->ReadVideo(&read), 0);
        SettleDriverThreads(1);
        const std::vector<MSG> frames = m_window.TakeFrames();
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].wParam, 1u) << "the stream";
        EXPECT_EQ(frames[0].lParam, nCamera) << "the camera within the stream";
        EXPECT_EQ(buffer.data[1], CameraLuma(2 + nCamera)) << "stream 1 starts at camera 2 of the board";
    }
    const tag_STREAMRECORD record = CVirtualRack::GetBoard(0)->GetStreamRecord(1);
    EXPECT_EQ(record.dwOrders, 5u);
    EXPECT_EQ(record.dwFramesDelivered, 5u);
    ASSERT_EQ(record.nHistory, 5);
    EXPECT_EQ(record.history[2].nCamera, 1);
    EXPECT_EQ(record.history[3].nCamera, 0);
}

TEST_F(StreamTest, FrameFillsTheDeliveredSizeAsUyvyAndNoMore)
{
    InstallFootageBoard(1, 1, PACING_IMMEDIATE);
    auto pStream = OpenStream(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;
    tag_VIDEOREAD read = MakeRead(0, buffer);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    SettleDriverThreads(1);
    ASSERT_EQ(m_window.TakeFrames().size(), 1u);
    for (DWORD i = 0; i < kFrameBytes; i += 4) {
        ASSERT_EQ(buffer.data[i], 100) << "U at " << i;
        ASSERT_EQ(buffer.data[i + 1], CameraLuma(0)) << "Y at " << i + 1;
        ASSERT_EQ(buffer.data[i + 2], 150) << "V at " << i + 2;
        ASSERT_EQ(buffer.data[i + 3], CameraLuma(0)) << "Y at " << i + 3;
    }
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST_F(StreamTest, RefusesOrdersItCannotAnswer)
{
    CVirtualRack::InstallBoard(MakeTestBoard(4, 2));
    ASSERT_NE(m_io.Open(0), 0);
    auto pStream = OpenStream(0);
    tag_READBUFFER buffer;
    tag_VIDEOREAD read = MakeRead(0, buffer);
    EXPECT_EQ(pStream->ReadVideo(&read), 0) << "not started";
    ASSERT_NE(pStream->Start(), 0);

    tag_VIDEOREAD tooSmall = MakeRead(0, buffer);
    tooSmall.dwSize = kFrameBytes - 1;
    tag_VIDEOREAD noBuffer = MakeRead(0, buffer);
    noBuffer.pBuffer = nullptr;
    tag_VIDEOREAD otherStreamsCamera = MakeRead(2, buffer);
    tag_VIDEOREAD negativeCamera = MakeRead(-1, buffer);
    for (tag_VIDEOREAD* pRead : {&tooSmall, &noBuffer, &otherStreamsCamera, &negativeCamera})
        EXPECT_EQ(pStream->ReadVideo(pRead), 0);
    EXPECT_EQ(pStream->ReadVideo(nullptr), 0);
    SettleDriverThreads(1);
    EXPECT_TRUE(m_window.TakeFrames().empty());
    EXPECT_TRUE(buffer.IsUntouched());
}

TEST_F(StreamTest, OpenRefusesWhatTheBoardCannotDo)
{
    tag_VIRTUALBOARD thirdGeneration = MakeTestBoard(4, 3);
    CVirtualRack::InstallBoard(MakeTestBoard(4, 1));
    CVirtualRack::InstallBoard(thirdGeneration);
    tag_VideoPort videoPort{};
    tag_PciPort pciPort{0, 0, 0, kWidth, kHeight};
    const HWND hWnd = m_window.m_hWnd;

    CSpciIO closed;
    EXPECT_EQ(CVideoStream(closed, 0).Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &pciPort), 0);

    ASSERT_NE(m_io.Open(0), 0);
    EXPECT_EQ(CVideoStream(m_io, 1).Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &pciPort), 0)
        << "a first-generation board has one stream";
    EXPECT_EQ(CVideoStream(m_io, -1).Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &pciPort), 0);
    EXPECT_EQ(CVideoStream(m_io, 0).Open(nullptr, DRIVER_STANDARD_NTSC, &videoPort, &pciPort), 0);
    EXPECT_EQ(CVideoStream(m_io, 0).Open(hWnd, static_cast<tag_VIDEOSTANDARD1>(2), &videoPort, &pciPort), 0);
    EXPECT_EQ(CVideoStream(m_io, 0).Open(hWnd, DRIVER_STANDARD_NTSC, nullptr, &pciPort), 0);
    EXPECT_EQ(CVideoStream(m_io, 0).Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, nullptr), 0);
    for (tag_PciPort badSize : {tag_PciPort{0, 0, 0, 31, 16}, tag_PciPort{0, 0, 0, 0, 16},
                                tag_PciPort{0, 0, 0, 32, 0}, tag_PciPort{0, 0, 0, 2048, 16}})
        EXPECT_EQ(CVideoStream(m_io, 0).Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &badSize), 0);

    CVideoStream twice(m_io, 0);
    tag_PciPort largest{0, 0, 0, MAX_DELIVERED_WIDTH, MAX_DELIVERED_HEIGHT};
    EXPECT_NE(twice.Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &largest), 0);
    EXPECT_EQ(twice.Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &pciPort), 0);

    CSpciIO newer;
    ASSERT_NE(newer.Open(1), 0);
    EXPECT_EQ(CVideoStream(newer, 0).Open(hWnd, DRIVER_STANDARD_NTSC, &videoPort, &pciPort), 0)
        << "a third-generation board has no stream this driver knows";
}

TEST_F(StreamTest, OpenKeepsWindowStandardAndPortRecordsForTheBoard)
{
    CVirtualRack::InstallBoard(MakeTestBoard(4, 2));
    ASSERT_NE(m_io.Open(0), 0);
    auto pStream = OpenStream(1, DRIVER_STANDARD_PAL);
    const tag_STREAMRECORD record = CVirtualRack::GetBoard(0)->GetStreamRecord(1);
    EXPECT_TRUE(record.bOpen);
    EXPECT_EQ(record.hWnd, m_window.m_hWnd);
    EXPECT_EQ(record.nStandard, DRIVER_STANDARD_PAL);
    EXPECT_EQ(record.videoPort.dwInput, 1u);
    EXPECT_EQ(record.videoPort.dwTop, 22u);
    EXPECT_EQ(record.videoPort.dwWidth, 640u);
    EXPECT_EQ(record.pciPort.dwWidth, static_cast<DWORD>(kWidth));
    EXPECT_EQ(record.pciPort.dwHeight, static_cast<DWORD>(kHeight));
    ASSERT_NE(pStream->Start(), 0);
    EXPECT_EQ(CVirtualRack::GetBoard(0)->GetStreamRecord(1).dwStarts, 1u);
    pStream->Close();
    EXPECT_FALSE(CVirtualRack::GetBoard(0)->GetStreamRecord(1).bOpen);
    OpenStream(0).reset();
    EXPECT_FALSE(CVirtualRack::GetBoard(0)->GetStreamRecord(0).bOpen) << "a stream closes itself when it goes";
}

TEST_F(StreamTest, StartFailsOnABoardToldToFail)
{
    tag_VIRTUALBOARD board = MakeTestBoard(4, 2);
    board.faults.bStartFails = true;
    CVirtualRack::InstallBoard(board);
    ASSERT_NE(m_io.Open(0), 0);
    auto pStream = OpenStream(0);
    EXPECT_EQ(pStream->Start(), 0);
    tag_READBUFFER buffer;
    tag_VIDEOREAD read = MakeRead(0, buffer);
    EXPECT_EQ(pStream->ReadVideo(&read), 0);
    CVideoStream closed(m_io, 0);
    EXPECT_EQ(closed.Start(), 0) << "a stream that isn't open can't start either";
}

TEST_F(StreamTest, ColoursAreKeptPerCameraOfTheStream)
{
    CVirtualRack::InstallBoard(MakeTestBoard(4, 2));
    ASSERT_NE(m_io.Open(0), 0);
    auto pStream = OpenStream(0);
    tag_ZNCOLOR first{{10, -20, 30, 40}};
    tag_ZNCOLOR second{{1, 2, 3, 4}};
    ASSERT_NE(pStream->SetVideoColor(0, &first), 0);
    ASSERT_NE(pStream->SetVideoColor(1, &second), 0);
    tag_ZNCOLOR read{};
    ASSERT_NE(pStream->GetVideoColor(0, &read), 0);
    EXPECT_TRUE(std::equal(read.lValue, read.lValue + ZNCOLOR_VALUES, first.lValue));
    ASSERT_NE(pStream->GetVideoColor(1, &read), 0);
    EXPECT_TRUE(std::equal(read.lValue, read.lValue + ZNCOLOR_VALUES, second.lValue));
    EXPECT_EQ(pStream->SetVideoColor(2, &first), 0) << "stream 0 has cameras 0 and 1";
    EXPECT_EQ(pStream->GetVideoColor(-1, &read), 0);
    EXPECT_EQ(pStream->GetVideoColor(0, nullptr), 0);
}

// Real-time pacing by the test clock: reads are answered at the boundaries of a 30
// frames-a-second period counted from Start.
class PacedStreamTest : public StreamTest {
protected:
    PacedStreamTest() : m_clock(1000) {}

    // Moves the clock and reports the frames that arrived.
    std::vector<MSG> AdvanceAndTake(DWORD dwMilliseconds)
    {
        m_clock.Advance(dwMilliseconds);
        SettleDriverThreads(1);
        return m_window.TakeFrames();
    }

    CTestClock m_clock;
};

TEST_F(PacedStreamTest, ReadIsAnsweredAtTheNextFrameBoundary)
{
    InstallFootageBoard(2, 1, PACING_REALTIME);
    auto pStream = OpenStream(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;
    tag_VIDEOREAD read = MakeRead(0, buffer);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_TRUE(AdvanceAndTake(32).empty());
    EXPECT_TRUE(buffer.IsUntouched()) << "the frame isn't there before its time";
    EXPECT_EQ(AdvanceAndTake(1).size(), 1u) << "1000 / 30 ms after the start";
    EXPECT_EQ(buffer.data[1], CameraLuma(0));

    // Ordered 10 ms into the second period: answered at its end, 66 ms after the start.
    m_clock.Advance(10);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_TRUE(AdvanceAndTake(22).empty());
    EXPECT_EQ(AdvanceAndTake(1).size(), 1u);
}

TEST_F(PacedStreamTest, NewOrderReplacesThePendingOne)
{
    InstallFootageBoard(2, 1, PACING_REALTIME);
    auto pStream = OpenStream(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER first;
    tag_READBUFFER second;
    tag_VIDEOREAD firstRead = MakeRead(0, first);
    tag_VIDEOREAD secondRead = MakeRead(1, second);
    ASSERT_NE(pStream->ReadVideo(&firstRead), 0);
    ASSERT_NE(pStream->ReadVideo(&secondRead), 0);
    const std::vector<MSG> frames = AdvanceAndTake(100);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lParam, 1);
    EXPECT_TRUE(first.IsUntouched());
    EXPECT_EQ(second.data[1], CameraLuma(1));
}

// A stream whose channels the test marks busy, as a capture stream would report them.
class CBusyStream : public CVideoStream {
public:
    using CVideoStream::CVideoStream;
    int IsCameraBusy(int nCamera) override { return nCamera == m_nBusyCamera ? 1 : 0; }
    int m_nBusyCamera = -1;
};

// The board switches its input ahead to the camera that follows; reading another one
// costs a frame while the picture settles. A busy next camera isn't switched to.
TEST_F(PacedStreamTest, SwitchingToAnUnpreparedCameraCostsAFrame)
{
    InstallFootageBoard(4, 1, PACING_REALTIME);
    auto pStream = OpenStream<CBusyStream>(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;

    tag_VIDEOREAD read = MakeRead(0, buffer, 1, 2);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    ASSERT_EQ(AdvanceAndTake(34).size(), 1u);

    read = MakeRead(1, buffer, 2, 3);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_EQ(AdvanceAndTake(33).size(), 1u) << "camera 1 was prepared: the next boundary, 66 ms";

    pStream->m_nBusyCamera = 2;
    read = MakeRead(0, buffer, 2, 3);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_TRUE(AdvanceAndTake(34).empty()) << "camera 0 wasn't prepared: not at 100 ms";
    EXPECT_EQ(AdvanceAndTake(33).size(), 1u) << "but at 133 ms";

    read = MakeRead(3, buffer, 1, 0);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_EQ(AdvanceAndTake(33).size(), 1u) << "busy camera 2 was passed over for camera 3";
}

// With two cameras the camera that follows is the one just served: its channel is busy
// when the next read is ordered and free again by the time that read ends, so the board
// switches to it and every read takes one period.
TEST_F(PacedStreamTest, CameraFreedWhileTheReadRunsIsSwitchedTo)
{
    InstallFootageBoard(2, 1, PACING_REALTIME);
    auto pStream = OpenStream<CBusyStream>(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;
    pStream->m_nBusyCamera = 0;
    tag_VIDEOREAD read = MakeRead(1, buffer, 0, 1);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    ASSERT_EQ(AdvanceAndTake(34).size(), 1u);
    pStream->m_nBusyCamera = -1;
    read = MakeRead(0, buffer, 1, 0);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_EQ(AdvanceAndTake(33).size(), 1u) << "camera 0 was switched to: the next boundary, 66 ms";
}

TEST_F(PacedStreamTest, NothingArrivesAfterStop)
{
    InstallFootageBoard(2, 1, PACING_REALTIME);
    auto pStream = OpenStream(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;
    tag_VIDEOREAD read = MakeRead(0, buffer);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    ASSERT_NE(pStream->Stop(), 0);
    EXPECT_TRUE(AdvanceAndTake(1000).empty());
    EXPECT_TRUE(buffer.IsUntouched());
    EXPECT_EQ(pStream->ReadVideo(&read), 0) << "a stopped stream takes no order";

    // Restarted, it works again and knows no input yet: reading camera 1 costs no switch.
    // Camera 0 follows it and isn't busy, so the input is switched to it ahead.
    ASSERT_NE(pStream->Start(), 0);
    read = MakeRead(1, buffer, 0, 0);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_EQ(AdvanceAndTake(34).size(), 1u);
    read = MakeRead(0, buffer);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    EXPECT_EQ(AdvanceAndTake(33).size(), 1u);
}

TEST_F(PacedStreamTest, NothingArrivesAfterClose)
{
    InstallFootageBoard(2, 1, PACING_REALTIME);
    auto pStream = OpenStream(0);
    ASSERT_NE(pStream->Start(), 0);
    tag_READBUFFER buffer;
    tag_VIDEOREAD read = MakeRead(0, buffer);
    ASSERT_NE(pStream->ReadVideo(&read), 0);
    pStream->Close();
    m_clock.Advance(1000);
    SettleDriverThreads(0);
    EXPECT_TRUE(m_window.TakeFrames().empty());
    EXPECT_TRUE(buffer.IsUntouched());
    EXPECT_EQ(pStream->ReadVideo(&read), 0);
    EXPECT_EQ(pStream->Start(), 0);
}

// Close while the driver answers as fast as it can: whatever was posted is in the queue
// when Close returns, and nothing follows.
TEST_F(StreamTest, CloseEndsTheDriverThreadBeforeItReturns)
{
    InstallFootageBoard(2, 1, PACING_IMMEDIATE);
    tag_READBUFFER buffer;
    std::size_t nTaken = 0;
    for (int nRound = 0; nRound < 50; ++nRound) {
        auto pStream = OpenStream(0);
        ASSERT_NE(pStream->Start(), 0);
        tag_VIDEOREAD read = MakeRead(nRound % 2, buffer);
        ASSERT_NE(pStream->ReadVideo(&read), 0);
        pStream->Close();
        const DWORD dwDelivered = CVirtualRack::GetBoard(0)->GetStreamRecord(0).dwFramesDelivered;
        SettleDriverThreads(0);
        nTaken += m_window.TakeFrames().size();
        EXPECT_EQ(nTaken, dwDelivered);
    }
}

} // namespace
