// The board's sound processor over its bus, by the test clock: counts in quarter blocks
// of what has come in, blocks of the input's code in order at 120 ms each, a buffer of
// 16 blocks that keeps the newest, stopped channels, and the busy and stalled faults.
#include "DriverTestSupport.h"

#include "driver/virtual/CBoardSoundProcessor.h"
#include "platform/TickClock.h"

#include <array>
#include <vector>

namespace {

using tag_BLOCK = std::array<BYTE, CBoardSoundProcessor::BLOCK_BYTES>;

// A coder that can be checked by hand: each group of 8 samples gives the low bytes of
// its first three.
class CPlainEncoder : public CSpeechEncoder {
public:
    int Encode(const short* pPcm, BYTE* pCode, int nSamples) override
    {
        for (int n = 0; n < nSamples; n += 8)
            for (int i = 0; i < 3; ++i)
                *pCode++ = static_cast<BYTE>(pPcm[n + i]);
        return 1;
    }
};

// Block nBlock of input nChannel, as the plain coder makes it.
tag_BLOCK ExpectedBlock(int nChannel, int nBlock)
{
    const tag_BOARDSOUND setup;
    CWaveSignal signal;
    EXPECT_TRUE(signal.Open(setup.inputs[nChannel], WAVEFORMATEX{WAVE_FORMAT_PCM, 1, 8000, 16000, 2, 16, 0}));
    signal.Skip(static_cast<DWORD>(nBlock) * CBoardSoundProcessor::BLOCK_SAMPLES);
    std::vector<short> pcm(CBoardSoundProcessor::BLOCK_SAMPLES);
    signal.Generate(reinterpret_cast<BYTE*>(pcm.data()), CBoardSoundProcessor::BLOCK_SAMPLES);
    tag_BLOCK block{};
    CPlainEncoder().Encode(pcm.data(), block.data(), CBoardSoundProcessor::BLOCK_SAMPLES);
    return block;
}

class BoardSoundProcessor : public CRackTest {
protected:
    void SetUp() override
    {
        CRackTest::SetUp();
        tag_VIRTUALBOARD board;
        board.sound.pfnCreateEncoder = [] { return std::make_unique<CPlainEncoder>(); };
        ASSERT_EQ(CVirtualRack::InstallBoard(board), 0);
        m_pBoard = CVirtualRack::GetBoard(0);
        m_pDebi = m_pBoard->GetDebi();
        m_pSound = m_pBoard->GetSoundProcessor();
        ASSERT_NE(m_pSound, nullptr);
    }

    void Command(BYTE byKind, int nChannel) { m_pDebi->WriteDebiByte(BUS_ADDRESS_COMMAND, static_cast<BYTE>(byKind + nChannel), 5); }

    BYTE RequestCount(int nChannel)
    {
        Command(SOUND_COMMAND_REQUEST, nChannel);
        BYTE byCount = 0;
        EXPECT_EQ(m_pDebi->ReadDebiByte(static_cast<WORD>(BUS_ADDRESS_SOUNDCOUNT + nChannel), byCount, 5), 1);
        return byCount;
    }

    int ReadBlock(tag_BLOCK& block) { return m_pDebi->ReadDebiBlock(BUS_ADDRESS_SOUNDBLOCK, block.data(), static_cast<int>(block.size()), 15); }

    CTestClock m_clock{7000};
    std::shared_ptr<CVirtualBoard> m_pBoard;
    CSpciDebi* m_pDebi = nullptr;
    CBoardSoundProcessor* m_pSound = nullptr;
};

TEST_F(BoardSoundProcessor, CountsQuarterBlocksAndGivesTheInputsCodeInOrder)
{
    tag_BLOCK block{};
    EXPECT_EQ(RequestCount(0), CBoardSoundProcessor::COUNT_NONE) << "not started";
    EXPECT_EQ(ReadBlock(block), -1);
    Command(SOUND_COMMAND_START, 0);
    Command(SOUND_COMMAND_START, 1);
    EXPECT_EQ(RequestCount(0), 0);
    m_clock.Advance(119);
    EXPECT_EQ(RequestCount(0), 3);
    EXPECT_EQ(ReadBlock(block), -1) << "no whole block yet";
    m_clock.Advance(1);
    EXPECT_EQ(RequestCount(0), 4);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 0));
    EXPECT_EQ(ReadBlock(block), -1) << "one block a request";

    // 280 ms later: blocks 1 and 2 and a third of block 3 on channel 0; all of 400 ms on 1.
    m_clock.Advance(280);
    EXPECT_EQ(RequestCount(0), 9);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 1));
    EXPECT_EQ(RequestCount(1), 13);
    Command(SOUND_COMMAND_STOP, 0);
    Command(SOUND_COMMAND_START, 0);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES) << "another channel's stop leaves the block ready";
    EXPECT_EQ(block, ExpectedBlock(1, 0)) << "each input its own signal";
    EXPECT_EQ(m_pSound->ReadCount(2), CBoardSoundProcessor::COUNT_NONE);
    EXPECT_FALSE(m_pSound->GetChannelState(2).bRunning);

    // A stop drops what was held; a new start hears the input from its beginning.
    EXPECT_EQ(RequestCount(0), 0);
    EXPECT_TRUE(m_pSound->GetChannelState(1).bRunning);
    m_clock.Advance(120);
    EXPECT_EQ(RequestCount(0), 4);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 0));
    const tag_SOUNDCHANNELSTATE state = m_pSound->GetChannelState(0);
    EXPECT_TRUE(state.bRunning);
    EXPECT_EQ(state.dwBlocksCoded, 1u);
    EXPECT_EQ(state.dwBlocksRead, 1u);
    Command(SOUND_COMMAND_STOP, 0);
    EXPECT_EQ(RequestCount(0), CBoardSoundProcessor::COUNT_NONE);
    EXPECT_FALSE(m_pSound->GetChannelState(0).bRunning);
}

TEST_F(BoardSoundProcessor, KeepsTheNewestSixteenBlocksAndShowsItsFaults)
{
    tag_BLOCK block{};
    Command(SOUND_COMMAND_START, 0);
    // 3 s: 25 blocks came, the first 9 were pushed out.
    m_clock.Advance(3000);
    EXPECT_EQ(RequestCount(0), 16 * 4);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 9));
    EXPECT_EQ(m_pSound->GetChannelState(0).dwBlocksLost, 9u);
    // 30 s without a request: only the newest buffer-full is kept, from the right place.
    m_clock.Advance(30000);
    EXPECT_EQ(RequestCount(0), 16 * 4);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 275 - 16));

    // Busy: the count reads 255 while the sound goes on coming in; two more blocks in a
    // full buffer push out the oldest.
    m_pSound->SetFault(0, SOUNDFAULT_BUSY);
    m_clock.Advance(240);
    EXPECT_EQ(RequestCount(0), CBoardSoundProcessor::COUNT_NONE);
    m_pSound->SetFault(0, SOUNDFAULT_NONE);
    EXPECT_EQ(RequestCount(0), 16 * 4);
    EXPECT_EQ(m_pSound->GetChannelState(0).dwBlocksLost, 9u + 249 + 1);

    // Stalled: the count stands still, reading goes on, and afterwards the sound goes on
    // where it stopped.
    for (int i = 0; i < 15; ++i) {
        RequestCount(0);
        ReadBlock(block);
    }
    EXPECT_EQ(block, ExpectedBlock(0, 275));
    m_pSound->SetFault(0, SOUNDFAULT_STALLED);
    m_clock.Advance(600);
    EXPECT_EQ(RequestCount(0), 4);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 276));
    EXPECT_EQ(RequestCount(0), 0);
    m_pSound->SetFault(0, SOUNDFAULT_NONE);
    m_clock.Advance(120);
    EXPECT_EQ(RequestCount(0), 4);
    ASSERT_EQ(ReadBlock(block), CBoardSoundProcessor::BLOCK_BYTES);
    EXPECT_EQ(block, ExpectedBlock(0, 277));
}

} // namespace
