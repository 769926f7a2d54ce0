// The devices a process sees: the boards of the rack, their firmware words, opening
// and its faults.
#include "DriverTestSupport.h"

#include "driver/CSpciIO.h"
#include "driver/virtual/FrameSources.h"

#include <algorithm>

namespace {

using DeviceTest = CRackTest;

TEST_F(DeviceTest, OpensEachInstalledBoardWithItsFirmwareWordAndItsOwnBus)
{
    ASSERT_EQ(CVirtualRack::InstallBoard(MakeTestBoard(4, 1)), 0);
    ASSERT_EQ(CVirtualRack::InstallBoard(MakeTestBoard(8, 2)), 1);
    ASSERT_EQ(CSpciIO::GetDeviceNum(), 2);

    CSpciIO first;
    CSpciIO second;
    ASSERT_NE(first.Open(0), 0);
    ASSERT_NE(second.Open(1), 0);
    EXPECT_EQ(first.GetDspVersion().GetChannels(), 4);
    EXPECT_EQ(first.GetDspVersion().GetGeneration(), 1);
    EXPECT_EQ(second.GetDspVersion().dwVersion, 0x02080100u);
    EXPECT_NE(first.GetDebi(), nullptr);
    EXPECT_NE(first.GetDebi(), second.GetDebi());
    EXPECT_EQ(first.Open(0), 0) << "an open object stays tied to its device";

    first.Close();
    EXPECT_EQ(first.IsValid(), 0);
    EXPECT_EQ(first.GetDebi(), nullptr);
    EXPECT_EQ(first.GetDspVersion().dwVersion, 0u);
    EXPECT_NE(first.Open(0), 0) << "a closed object can be opened again";
}

TEST_F(DeviceTest, MissingAndFailingBoardsDoNotOpen)
{
    CSpciIO io;
    EXPECT_EQ(io.Open(0), 0) << "empty rack";
    tag_VIRTUALBOARD broken = MakeTestBoard(4, 2);
    broken.faults.bOpenFails = true;
    CVirtualRack::InstallBoard(broken);
    CVirtualRack::InstallBoard(MakeTestBoard(4, 2));
    EXPECT_EQ(CSpciIO::GetDeviceNum(), 2);
    for (int nDevice : {-1, 0, 2})
        EXPECT_EQ(io.Open(nDevice), 0) << nDevice;
    EXPECT_EQ(io.IsValid(), 0);
    EXPECT_EQ(io.GetDebi(), nullptr);
    EXPECT_NE(io.Open(1), 0);

    tag_VIRTUALBOARD board = MakeTestBoard(2, 1);
    board.sources.push_back({SOURCE_Y4MFILE, 1, "/nonexistent/footage.y4m"});
    EXPECT_EQ(CVirtualRack::InstallBoard(board), -1) << "unreadable footage";
    EXPECT_EQ(CSpciIO::GetDeviceNum(), 2);
}

TEST_F(DeviceTest, OpenDeviceKeepsItsBoardWhenTheRackIsCleared)
{
    CVirtualRack::InstallBoard(MakeTestBoard(4, 2));
    CSpciIO io;
    ASSERT_NE(io.Open(0), 0);
    CVirtualRack::Clear();
    EXPECT_EQ(CSpciIO::GetDeviceNum(), 0);
    EXPECT_NE(io.IsValid(), 0);
    EXPECT_EQ(io.GetDspVersion().GetChannels(), 4);
}

TEST_F(DeviceTest, DefaultRackIsOneFourChannelSecondGenerationBoard)
{
    CVirtualRack::InstallBoard(MakeTestBoard(2, 1));
    CVirtualRack::InstallDefault();
    ASSERT_EQ(CSpciIO::GetDeviceNum(), 1);
    const std::shared_ptr<CVirtualBoard> pBoard = CVirtualRack::GetBoard(0);
    EXPECT_EQ(pBoard->GetVersion().GetChannels(), 4);
    EXPECT_EQ(pBoard->GetVersion().GetGeneration(), 2);
    EXPECT_EQ(pBoard->GetPacing(), PACING_REALTIME);
}

TEST_F(DeviceTest, BoardWithUnreadableFootageIsNotInstalled)
{
    tag_VIRTUALBOARD board = MakeTestBoard(2, 1);
    board.sources.push_back({SOURCE_Y4MFILE, 1, "/nonexistent/footage.y4m"});
    std::string strError;
    EXPECT_EQ(CVirtualRack::InstallBoard(board, &strError), -1);
    EXPECT_EQ(strError, "camera 0: /nonexistent/footage.y4m: No such file or directory");
    EXPECT_EQ(CSpciIO::GetDeviceNum(), 0);
}

// Streams and cameras as the firmware word lays them out. A two-stream board starts its
// second stream at half its channels, even where a stream uses only four of them.
TEST_F(DeviceTest, GenerationDecidesStreamsAndCameras)
{
    struct tag_LAYOUT {
        BYTE byChannels;
        BYTE byGeneration;
        int nStreams;
        int nCameras0;
        int nCameras1;
        int nFirst1;
    };
    const tag_LAYOUT layouts[] = {
        {4, 1, 1, 4, 0, 0}, {2, 0, 1, 2, 0, 0}, {4, 2, 2, 2, 2, 2}, {5, 2, 2, 2, 2, 2},
        {16, 2, 2, 4, 4, 8}, {10, 2, 2, 4, 4, 5}, {8, 1, 1, 4, 0, 0}, {4, 3, 0, 0, 0, 0},
    };
    for (const tag_LAYOUT& layout : layouts) {
        const std::shared_ptr<CVirtualBoard> pBoard =
            CVirtualBoard::Create(MakeTestBoard(layout.byChannels, layout.byGeneration));
        SCOPED_TRACE(testing::Message() << int(layout.byChannels) << " channels, generation "
                                        << int(layout.byGeneration));
        EXPECT_EQ(pBoard->GetStreamCount(), layout.nStreams);
        EXPECT_EQ(pBoard->GetStreamCameras(0), layout.nCameras0);
        EXPECT_EQ(pBoard->GetStreamCameras(1), layout.nCameras1);
        EXPECT_EQ(pBoard->GetFirstCamera(1), layout.nFirst1);
        EXPECT_EQ(pBoard->GetStreamCameras(-1) + pBoard->GetFirstCamera(-1) + pBoard->GetFirstCamera(2), 0);
    }
}

// A camera without a source of its own shows a scene seeded by its number; sources can
// be changed on cameras the board has. The stream records keep the state and the newest
// orders of each stream the board has.
TEST_F(DeviceTest, BoardKeepsCameraSourcesAndStreamRecords)
{
    const std::shared_ptr<CVirtualBoard> pBoard = CVirtualBoard::Create(MakeTestBoard(4, 2));
    const tag_FRAMEFORMAT format{16, 8, DRIVER_STANDARD_NTSC};
    std::vector<BYTE> drawn(16 * 8 * 2);
    std::vector<BYTE> expected(drawn.size());
    for (int nCamera = 0; nCamera < 4; ++nCamera) {
        EXPECT_EQ(pBoard->GetCameraSource(nCamera).dwSeed, static_cast<DWORD>(nCamera + 1));
        ASSERT_TRUE(pBoard->WriteFrame(nCamera, drawn.data(), format, 500));
        CreateFrameSource({SOURCE_SYNTHETIC, static_cast<DWORD>(nCamera + 1), ""})->WriteFrame(expected.data(), format, 500);
        EXPECT_EQ(drawn, expected) << "camera " << nCamera;
    }
    EXPECT_FALSE(pBoard->WriteFrame(4, drawn.data(), format, 500));
    ASSERT_TRUE(pBoard->SetCameraSource(0, {SOURCE_NOSIGNAL, 9, ""}));
    EXPECT_EQ(pBoard->GetCameraSource(0).nKind, SOURCE_NOSIGNAL);
    pBoard->WriteFrame(0, drawn.data(), format, 500);
    EXPECT_LE(*std::max_element(drawn.begin(), drawn.end()), 128);

    pBoard->RecordOpen(1, nullptr, DRIVER_STANDARD_NTSC, tag_VideoPort{}, tag_PciPort{});
    pBoard->RecordStart(1);
    EXPECT_TRUE(pBoard->GetStreamRecord(1).bStarted);
    for (int nOrder = 0; nOrder < READ_HISTORY + 2; ++nOrder)
        pBoard->RecordOrder(1, tag_VIDEOREAD{0, nOrder % 4, 0, 0, nullptr, static_cast<DWORD>(nOrder)});
    const tag_STREAMRECORD record = pBoard->GetStreamRecord(1);
    EXPECT_EQ(record.nHistory, READ_HISTORY);
    EXPECT_EQ(record.history[0].dwSize, 2u);
    EXPECT_EQ(record.history[READ_HISTORY - 1].dwSize, static_cast<DWORD>(READ_HISTORY + 1));
    pBoard->RecordStop(1);
    EXPECT_FALSE(pBoard->GetStreamRecord(1).bStarted);
    EXPECT_EQ(pBoard->GetStreamRecord(1).dwStops, 1u);
    pBoard->RecordStart(0);
    EXPECT_TRUE(pBoard->GetStreamRecord(0).bStarted);
    for (int nStream : {-1, MAX_BOARD_STREAMS})
        EXPECT_EQ(pBoard->GetStreamRecord(nStream).dwStarts, 0u) << nStream;
}

// Footage gets the frame size that shows its picture best: its own where the revision
// has it, else the largest that fits inside it (a field size only for its own picture),
// else the smallest. A drawn scene suits every size. A camera the board doesn't have
// takes no source.
TEST_F(DeviceTest, FootagePicksTheFrameSizeOfItsPicture)
{
    struct {
        int nWidth;
        int nHeight;
        DWORD dwRevision;
        tag_FRAMESIZE nSize;
    } const cases[] = {
        {352, 288, STREAM_REVISION_20020114, FRAMESIZE_352X288},
        {352, 288, STREAM_REVISION_20020219, FRAMESIZE_352X288_R2},
        {176, 144, STREAM_REVISION_20020114, FRAMESIZE_176X144},
        {640, 240, STREAM_REVISION_20020114, FRAMESIZE_640X240},
        {704, 288, STREAM_REVISION_20020219, FRAMESIZE_704X288_R2},
        {640, 480, STREAM_REVISION_20020114, FRAMESIZE_352X288},
        {720, 576, STREAM_REVISION_20020219, FRAMESIZE_352X288_R2},
        {330, 250, STREAM_REVISION_20020114, FRAMESIZE_320X240},
        {400, 240, STREAM_REVISION_20020114, FRAMESIZE_320X240},
        {100, 50, STREAM_REVISION_20020114, FRAMESIZE_160X112},
        {100, 50, STREAM_REVISION_20020219, FRAMESIZE_320X240_R2},
    };
    for (const auto& c : cases) {
        CY4mFile footage(c.nWidth, c.nHeight, 1, 50);
        tag_VIRTUALBOARD setup = MakeTestBoard(2, 1);
        setup.sources.push_back({SOURCE_Y4MFILE, 0, footage.GetPath()});
        const std::shared_ptr<CVirtualBoard> pBoard = CVirtualBoard::Create(setup);
        ASSERT_NE(pBoard, nullptr);
        EXPECT_EQ(pBoard->GetCameraFrameSize(0, c.dwRevision), c.nSize) << c.nWidth << " x " << c.nHeight;
        EXPECT_EQ(pBoard->GetCameraFrameSize(1, c.dwRevision), FRAMESIZE_INVALID);
        EXPECT_EQ(pBoard->GetCameraFrameSize(2, c.dwRevision), FRAMESIZE_INVALID);
    }
    const std::shared_ptr<CVirtualBoard> pBoard = CVirtualBoard::Create(MakeTestBoard(2, 1));
    std::string strError;
    EXPECT_FALSE(pBoard->SetCameraSource(2, tag_CAMERASOURCE{}, &strError));
    EXPECT_EQ(strError, "the board has no camera 2");
    EXPECT_FALSE(pBoard->SetCameraSource(-1, tag_CAMERASOURCE{}));
}

} // namespace
