// The byte bus: its lock against other threads and by the test clock, the port
// registers, the traffic log, faults, and the place of the sound processor.
#include "DriverTestSupport.h"

#include "driver/virtual/CVirtualBus.h"

#include <atomic>
#include <thread>

namespace {

TEST(ByteBus, InputLinesAreLatchedByCommand82AndReadInverted)
{
    CVirtualBus debi;
    BYTE byRead = 0;
    ASSERT_EQ(debi.ReadDebiByte(BUS_ADDRESS_COMMAND, byRead, 5), 1);
    EXPECT_EQ(byRead, 0xFF) << "no input active";

    debi.SetInputLines(0x05);
    ASSERT_EQ(debi.ReadDebiByte(BUS_ADDRESS_COMMAND, byRead, 5), 1);
    EXPECT_EQ(byRead, 0xFF) << "the lines count only once latched";
    ASSERT_EQ(debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_READINPUT, 5), 1);
    debi.SetInputLines(0x00);
    ASSERT_EQ(debi.ReadDebiByte(BUS_ADDRESS_COMMAND, byRead, 5), 1);
    EXPECT_EQ(byRead, 0xFA);
    EXPECT_EQ(debi.GetPortState().byLatchedInput, 0xFA);
}

TEST(ByteBus, Command80PutsTheDataByteOnTheOutputsAndOtherCommandsAreCounted)
{
    CVirtualBus debi;
    ASSERT_EQ(debi.WriteDebiByte(BUS_ADDRESS_DATA, 0x3C, 5), 1);
    EXPECT_EQ(debi.GetPortState().byOutput, 0) << "data alone changes no output";
    ASSERT_EQ(debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_WRITEOUTPUT, 5), 1);
    debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_98, 5);
    debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_98, 5);
    debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_90, 5);
    const tag_PORTSTATE state = debi.GetPortState();
    EXPECT_EQ(state.byOutput, 0x3C);
    EXPECT_EQ(state.dwOutputWrites, 1u);
    EXPECT_EQ(state.dwCommand98, 2u);
    EXPECT_EQ(state.dwCommand90, 1u);
    EXPECT_EQ(state.dwCommands, 4u);
    EXPECT_EQ(state.byLastCommand, PORT_COMMAND_90);

    BYTE byRead = 0x11;
    BYTE block[4] = {};
    EXPECT_EQ(debi.WriteDebiByte(2, 0x80, 5), -1) << "unknown address";
    EXPECT_EQ(debi.ReadDebiByte(3, byRead, 5), -1);
    EXPECT_EQ(byRead, 0x11) << "a failed read leaves the byte alone";
    EXPECT_EQ(debi.ReadDebiBlock(1, block, 4, 15), -1);
}

TEST(ByteBus, LogsEveryAccessWithItsArguments)
{
    CVirtualBus debi;
    BYTE byRead = 0;
    ASSERT_NE(debi.Lock(1000), 0);
    debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_READINPUT, 5);
    debi.ReadDebiByte(BUS_ADDRESS_COMMAND, byRead, 5);
    debi.WriteDebiByte(7, 1, 3);
    debi.Unlock();
    debi.Unlock();   // not held any more
    BYTE block[4] = {};
    debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, block, 4, 15);
    const std::vector<std::vector<int>> expected = {
        {BUS_LOCK, 0, 0, 1000, 0, 1},   {BUS_WRITE, 0, PORT_COMMAND_READINPUT, 1, 5, 1},
        {BUS_READ, 0, 0xFF, 1, 5, 1},   {BUS_WRITE, 7, 1, 1, 3, -1},
        {BUS_UNLOCK, 0, 0, 0, 0, 1},    {BUS_UNLOCK, 0, 0, 0, 0, 0},
        {BUS_READBLOCK, 0, 0, 4, 15, -1},
    };
    std::vector<std::vector<int>> logged;
    for (const tag_BUSEVENT& event : debi.GetTraffic())
        logged.push_back({event.nAccess, event.wAddress, event.byValue, event.nLength, event.nRetry, event.nResult});
    EXPECT_EQ(logged, expected);
    debi.ClearTraffic();
    EXPECT_TRUE(debi.GetTraffic().empty());
}

TEST(ByteBus, LogKeepsTheNewestEntries)
{
    CVirtualBus debi;
    for (std::size_t i = 0; i < CVirtualBus::TRAFFIC_LOG_LIMIT + 10; ++i)
        debi.WriteDebiByte(BUS_ADDRESS_DATA, static_cast<BYTE>(i), 5);
    const std::vector<tag_BUSEVENT> traffic = debi.GetTraffic();
    ASSERT_EQ(traffic.size(), CVirtualBus::TRAFFIC_LOG_LIMIT);
    EXPECT_EQ(traffic.front().byValue, 10);
    EXPECT_EQ(traffic.back().byValue, static_cast<BYTE>(CVirtualBus::TRAFFIC_LOG_LIMIT + 9));
}

TEST(ByteBus, FailingTransfersChangeNothingAndALockFaultRefusesTheBus)
{
    std::shared_ptr<CVirtualBoard> pBoard = CVirtualBoard::Create(MakeTestBoard(4, 2));
    tag_BOARDFAULTS faults;
    faults.bTransfersFail = true;
    pBoard->SetFaults(faults);
    CVirtualBus& debi = pBoard->GetBus();
    debi.SetInputLines(0x01);
    BYTE byRead = 0x11;
    EXPECT_EQ(debi.WriteDebiByte(BUS_ADDRESS_DATA, 0x42, 5), -1);
    EXPECT_EQ(debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_WRITEOUTPUT, 5), -1);
    EXPECT_EQ(debi.WriteDebiByte(BUS_ADDRESS_COMMAND, PORT_COMMAND_READINPUT, 5), -1);
    EXPECT_EQ(debi.ReadDebiByte(BUS_ADDRESS_COMMAND, byRead, 5), -1);
    EXPECT_EQ(byRead, 0x11);
    const tag_PORTSTATE state = debi.GetPortState();
    EXPECT_EQ(state.byData, 0);
    EXPECT_EQ(state.byOutput, 0);
    EXPECT_EQ(state.byLatchedInput, 0xFF);
    EXPECT_EQ(state.dwCommands, 0u);
    ASSERT_NE(debi.Lock(0), 0) << "the lock still works";
    ASSERT_NE(debi.Lock(0), 0) << "and its owner may take it again";
    debi.Unlock();
    debi.Unlock();

    faults.bLockTimesOut = true;
    pBoard->SetFaults(faults);
    EXPECT_EQ(pBoard->GetDebi()->Lock(INFINITE), 0);
}

// One thread holds the bus; another asks for it with a time-out that the test clock
// runs out, then gets it at once once it is free.
TEST(ByteBus, LockHeldByOneThreadTimesOutForAnother)
{
    CTestClock clock(5000);
    CVirtualBus debi;
    ASSERT_NE(debi.Lock(0), 0);

    std::atomic<int> nResult{-1};
    std::thread other([&] { nResult = debi.Lock(1000); });
    SettleDriverThreads(1);
    clock.Advance(999);
    SettleDriverThreads(1);
    EXPECT_EQ(nResult.load(), -1) << "still waiting 1 ms before its time-out";
    clock.Advance(1);
    other.join();
    EXPECT_EQ(nResult.load(), 0);

    debi.Unlock();
    std::thread later([&] {
        nResult = debi.Lock(1000);
        if (nResult != 0)
            debi.Unlock();
    });
    later.join();
    EXPECT_EQ(nResult.load(), 1);
}

TEST(ByteBus, WaitingLockIsGrantedWhenTheOwnerLetsGo)
{
    CTestClock clock;
    CVirtualBus debi;
    ASSERT_NE(debi.Lock(0), 0);
    std::atomic<int> nResult{-1};
    std::thread other([&] {
        nResult = debi.Lock(1000);
        if (nResult != 0)
            debi.Unlock();
    });
    SettleDriverThreads(1);
    debi.Unlock();
    other.join();
    EXPECT_EQ(nResult.load(), 1);
}

// A stand-in sound processor that remembers what reached it.
class CRecordingSoundPort : public CBoardSoundPort {
public:
    void OnCommand(BYTE byCommand) override { commands.push_back(byCommand); }
    BYTE ReadCount(int nChannel) override { return static_cast<BYTE>(nChannel == 0 ? 4 : 9); }
    int ReadBlock(BYTE* pData, int nLen) override
    {
        std::fill(pData, pData + nLen, BYTE{0x5A});
        return nLen;
    }

    std::vector<BYTE> commands;
};

TEST(ByteBus, SoundCommandsAndReadsGoToTheSoundProcessor)
{
    CVirtualBus debi;
    auto pSound = std::make_shared<CRecordingSoundPort>();
    debi.AttachSoundPort(pSound);
    for (BYTE byCommand : {0x20, 0x41, 0x31, 0x82})
        ASSERT_EQ(debi.WriteDebiByte(BUS_ADDRESS_COMMAND, byCommand, 5), 1);
    EXPECT_EQ(pSound->commands, (std::vector<BYTE>{0x20, 0x41, 0x31}));
    EXPECT_EQ(debi.GetPortState().dwCommand90 + debi.GetPortState().dwCommand98, 0u);

    BYTE byCount = 0;
    ASSERT_EQ(debi.ReadDebiByte(1, byCount, 5), 1);
    EXPECT_EQ(byCount, 4);
    ASSERT_EQ(debi.ReadDebiByte(2, byCount, 5), 1);
    EXPECT_EQ(byCount, 9);
    BYTE block[360] = {};
    EXPECT_EQ(debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, block, 360, 15), 360);
    EXPECT_EQ(block[359], 0x5A);
    // Blocks come from address 0 only, into a buffer, and not while transfers fail.
    EXPECT_EQ(debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, block, 0, 15), -1);
    EXPECT_EQ(debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, nullptr, 360, 15), -1);
    EXPECT_EQ(debi.ReadDebiBlock(1, block, 360, 15), -1);
    debi.SetFaults(false, true);
    EXPECT_EQ(debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, block, 360, 15), -1);
}

TEST(ByteBus, WithoutSoundProcessorNoSoundIsReady)
{
    CVirtualBus debi;
    BYTE byCount = 0xEE;
    ASSERT_EQ(debi.WriteDebiByte(BUS_ADDRESS_COMMAND, 0x40, 5), 1);
    ASSERT_EQ(debi.ReadDebiByte(1, byCount, 5), 1);
    EXPECT_LT(byCount, 4);
    BYTE block[360] = {};
    EXPECT_EQ(debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, block, 360, 15), -1);
    EXPECT_EQ(debi.ReadDebiBlock(BUS_ADDRESS_COMMAND, nullptr, 360, 15), -1);
}

} // namespace
