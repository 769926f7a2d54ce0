// The devices a process sees: the boards of the rack, their firmware words, opening
// and its faults.
#include "DriverTestSupport.h"

#include "driver/CSpciIO.h"

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

// Streams and cameras as the firmware word lays them out.
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
        {16, 2, 2, 4, 4, 4}, {8, 1, 1, 4, 0, 0}, {4, 3, 0, 0, 0, 0},
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
    }
}

} // namespace
