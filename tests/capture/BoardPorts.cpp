// The capability questions of a board and the port commands on its byte bus.
#include "CaptureTestSupport.h"

namespace {

class BoardPorts : public CCaptureTest {
protected:
    CVirtualBus* OpenPortBoard(BYTE byChannels, BYTE byGeneration)
    {
        EXPECT_TRUE(OpenOn(m_video, m_host, MakeCaptureBoard(byChannels, byGeneration),
                           byGeneration == 2 ? FRAMESIZE_320X240_R2 : FRAMESIZE_160X112));
        CVirtualBus* pDebi = &CVirtualRack::GetBoard(0)->GetBus();
        pDebi->ClearTraffic();
        return pDebi;
    }

    // The transfers in the log, without lock and unlock.
    static std::vector<tag_BUSEVENT> Transfers(CVirtualBus* pDebi)
    {
        std::vector<tag_BUSEVENT> transfers;
        for (const tag_BUSEVENT& event : pDebi->GetTraffic()) {
            if (event.nAccess == BUS_WRITE || event.nAccess == BUS_READ)
                transfers.push_back(event);
        }
        return transfers;
    }

    CHostWindow m_host;
    CVideo m_video;
};

class BoardCapabilities : public CCaptureTest {};

TEST_F(BoardCapabilities, FollowGenerationAndChannels)
{
    CHostWindow host;
    struct {
        BYTE byChannels;
        BYTE byGeneration;
        int bPorts;
        int bCardPlus;
    } const cases[] = {{2, 0, 1, 0}, {2, 1, 1, 0}, {4, 1, 0, 0}, {4, 2, 1, 1}, {2, 3, 0, 0}};
    for (const auto& c : cases) {
        CVirtualRack::Clear();
        CVirtualRack::InstallBoard(MakeCaptureBoard(c.byChannels, c.byGeneration));
        CVideo video;
        ASSERT_EQ(video.Open(&host, RevisionOf(c.byGeneration)), ZNRET_OK);
        EXPECT_EQ(video.IsIOSupport(0), c.bPorts) << int(c.byGeneration) << "/" << int(c.byChannels);
        EXPECT_EQ(video.IsVoiceSupport(0), c.bPorts);
        EXPECT_EQ(video.IsWatchDogSupport(0), c.bPorts);
        EXPECT_EQ(video.IsCardPlusSupport(0), c.bCardPlus);
        EXPECT_EQ(video.IsIOSupport(1), 0);
        EXPECT_EQ(video.IsIOSupport(-1), 0);
        EXPECT_EQ(video.IsCardPlusSupport(1), 0);
    }
    CVideo closed;
    EXPECT_EQ(closed.IsIOSupport(0), 0);
    EXPECT_EQ(closed.IsCardPlusSupport(0), 0);
}

// Each operation's transfers: access, address, byte and retry count. Reading the
// inputs gives the latched byte inverted; the other commands leave the result alone.
TEST_F(BoardPorts, OperationsWriteTheirBytesAndReadTheInputsInverted)
{
    CVirtualBus* pDebi = OpenPortBoard(4, 2);
    pDebi->SetInputLines(0x05);
    DWORD dwResult = 0xFFFFFFFF;
    ASSERT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 1, 0, dwResult), 1);
    EXPECT_EQ(dwResult, 0x05u);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 2, 0, dwResult), 0);
    EXPECT_EQ(Transfers(pDebi).size(), 2u);
    EXPECT_EQ(pDebi->GetTraffic().size(), 6u) << "an operation that does nothing still takes the bus";
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 3, 0, dwResult), 1);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 4, 0, dwResult), 1);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 5, 0, dwResult), 1);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 6, 0x1A5, dwResult), 1);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 7, 0, dwResult), 0);
    std::vector<std::vector<int>> rows;
    for (const tag_BUSEVENT& event : Transfers(pDebi))
        rows.push_back({event.nAccess, event.wAddress, event.byValue, event.nRetry});
    const std::vector<std::vector<int>> expected = {
        {BUS_WRITE, 0, 0x82, 5}, {BUS_READ, 0, 0xFA, 5}, {BUS_WRITE, 0, 0x98, 5}, {BUS_WRITE, 0, 0x98, 5},
        {BUS_WRITE, 0, 0x90, 5}, {BUS_WRITE, 1, 0xA5, 5}, {BUS_WRITE, 0, 0x80, 5},
    };
    EXPECT_EQ(rows, expected);
    // Every operation waits for the bus for 1000 of the driver's units.
    for (const tag_BUSEVENT& event : pDebi->GetTraffic()) {
        if (event.nAccess == BUS_LOCK) {
            EXPECT_EQ(event.nLength, 1000);
        }
    }
    EXPECT_EQ(pDebi->GetPortState().byOutput, 0xA5);
    EXPECT_EQ(dwResult, 0x05u);
}

TEST_F(BoardPorts, FailuresGiveZeroAndReleaseTheBus)
{
    CVirtualBus* pDebi = OpenPortBoard(4, 2);
    DWORD dwResult = 0;
    EXPECT_EQ(CVideo::ZN2AVPortOperation(nullptr, 0, 3, 0, dwResult), 0);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, -1, 3, 0, dwResult), 0);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 1, 3, 0, dwResult), 0);
    EXPECT_EQ(pDebi->GetTraffic().size(), 0u);
    pDebi->SetFaults(false, true);
    for (DWORD dwOperation : {1, 3, 4, 5})
        EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, dwOperation, 0, dwResult), 0) << dwOperation;
    EXPECT_EQ(dwResult, 0u) << "a failed read leaves the result alone";
    pDebi->ClearTraffic();
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 6, 0x11, dwResult), 0);
    const std::vector<tag_BUSEVENT> transfers = Transfers(pDebi);
    // The failing data write ends the command: address 0 is never written.
    ASSERT_EQ(transfers.size(), 1u);
    EXPECT_EQ(transfers[0].wAddress, 1);
    EXPECT_EQ(pDebi->GetTraffic().back().nAccess, BUS_UNLOCK);
    pDebi->SetFaults(true, false);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 3, 0, dwResult), 0);
    ASSERT_EQ(m_video.CloseBoard(0), ZNRET_OK);
    pDebi->SetFaults(false, false);
    EXPECT_EQ(CVideo::ZN2AVPortOperation(&m_video, 0, 3, 0, dwResult), 0);
}

} // namespace
