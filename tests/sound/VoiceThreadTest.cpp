// Board sound over a virtual board's bus, by the test clock a millisecond at a time: how
// many blocks a poll takes for each count, two channels on one thread, the thread's
// life from the first Start to the last Stop, a failed bus lock that ends the thread
// without leaving a Stop or Close waiting, and the codec's fill buffer.
#include "driver/virtual/CVirtualRack.h"
#include "platform/TickClock.h"
#include "platform/WinThreads.h"
#include "sound/CAdpcmSpeechEncoder.h"
#include "sound/CVoiceCodec.h"
#include "sound/CVoiceThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

class VoiceThreadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        CVirtualRack::Clear();
        tag_VIRTUALBOARD board;
        board.sound.pfnCreateEncoder = &CAdpcmSpeechEncoder::Create;
        ASSERT_EQ(CVirtualRack::InstallBoard(board), 0);
        m_pBoard = CVirtualRack::GetBoard(0);
        m_pVoice = std::make_unique<CVoiceThread>(m_pBoard->GetDebi());
        for (int nChannel = 0; nChannel < 2; ++nChannel)
            ASSERT_EQ(m_codec[nChannel].OpenVoice(m_pVoice.get(), nChannel), 1);
    }

    void TearDown() override
    {
        m_codec[0].Close();
        m_codec[1].Close();
        m_pVoice.reset();
        CVirtualRack::Clear();
    }

    // Lets dwMs pass a millisecond at a time, each only once the voice thread waits.
    void Step(DWORD dwMs)
    {
        for (DWORD dw = 0; dw < dwMs; ++dw) {
            ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
            m_clock.Advance(1);
        }
        ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    }

    // The bus traffic since the last call: L lock (L! failed), U unlock, Wxx a command,
    // Rn:c the count c of channel n - 1, B a block of 360 bytes.
    std::string Traffic()
    {
        std::string strTraffic;
        for (const tag_BUSEVENT& event : m_pBoard->GetBus().GetTraffic()) {
            char szEvent[16];
            switch (event.nAccess) {
            case BUS_LOCK:
                std::snprintf(szEvent, sizeof(szEvent), event.nResult ? "L" : "L!");
                break;
            case BUS_UNLOCK:
                std::snprintf(szEvent, sizeof(szEvent), "U");
                break;
            case BUS_WRITE:
                std::snprintf(szEvent, sizeof(szEvent), "W%02X", event.byValue);
                break;
            case BUS_READ:
                std::snprintf(szEvent, sizeof(szEvent), "R%d:%d", event.wAddress, event.byValue);
                break;
            case BUS_READBLOCK:
                std::snprintf(szEvent, sizeof(szEvent), "B%d", event.nResult);
                break;
            }
            if (!strTraffic.empty())
                strTraffic += ' ';
            strTraffic += szEvent;
        }
        m_pBoard->GetBus().ClearTraffic();
        return strTraffic;
    }

    int TakeCode(int nChannel, std::vector<BYTE>* pCode = nullptr)
    {
        std::vector<BYTE> code(CVoiceCodec::CODE_BYTES);
        int nLen = -1;
        EXPECT_EQ(m_codec[nChannel].GetRecordData(code.data(), nLen, CVoiceCodec::CODE_BYTES), 1);
        if (pCode != nullptr)
            pCode->assign(code.begin(), code.begin() + std::max(nLen, 0));
        return nLen;
    }

    // For the one moment no platform wait tells: the voice thread ending by itself.
    static bool WaitUntil(const std::function<bool()>& fnDone)
    {
        const auto tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!fnDone()) {
            if (std::chrono::steady_clock::now() > tEnd)
                return false;
            std::this_thread::yield();
        }
        return true;
    }

    CTestClock m_clock{5000};
    std::shared_ptr<CVirtualBoard> m_pBoard;
    std::unique_ptr<CVoiceThread> m_pVoice;
    CVoiceCodec m_codec[2];
};

TEST_F(VoiceThreadTest, TheCountDecidesHowManyBlocksAPollTakes)
{
    struct tag_CASE {
        const char* pszName;
        DWORD dwStallAt;  // when the processor stalls, or 0
        tag_SOUNDFAULT nFault;
        DWORD dwRun;
        const char* pszTraffic;
        int nCodeBytes;
    };
    const tag_CASE cases[] = {
        {"count 3", 100, SOUNDFAULT_STALLED, 202, "W20 L W40 R1:3 U", 0},
        {"count 4", 125, SOUNDFAULT_STALLED, 202, "W20 L W40 R1:4 B360 U", 360},
        {"count 255", 1, SOUNDFAULT_BUSY, 202, "W20 L W40 R1:255 U", 0},
        // 6 at the first poll: one block, 2 quarters left; 9 at the second: a block, a
        // new request, 5, another block.
        {"counts 6 and 9", 0, SOUNDFAULT_NONE, 403, "W20 L W40 R1:6 B360 U L W40 R1:9 B360 W40 R1:5 B360 U", 3 * 360},
    };
    for (const tag_CASE& test : cases) {
        ASSERT_EQ(m_codec[0].StartRecord(), 1) << test.pszName;
        EXPECT_EQ(TakeCode(0), 0) << "nothing before the first block";
        Step(test.dwStallAt);
        m_pBoard->GetSoundProcessor()->SetFault(0, test.nFault);
        Step(test.dwRun - test.dwStallAt);
        m_pBoard->GetSoundProcessor()->SetFault(0, SOUNDFAULT_NONE);
        EXPECT_EQ(Traffic(), test.pszTraffic) << test.pszName;
        EXPECT_EQ(TakeCode(0), test.nCodeBytes) << test.pszName;
        m_codec[0].Close();
        EXPECT_EQ(Traffic(), "W30") << test.pszName;
        ASSERT_EQ(m_codec[0].OpenVoice(m_pVoice.get(), 0), 1);
    }
}

TEST_F(VoiceThreadTest, TwoChannelsShareOneThreadThatEndsWithTheLastAndComesBack)
{
    // Before any Start there is no thread to end or wait for.
    m_pVoice->Exit();
    EXPECT_EQ(CTestClock::GetIdleThreads(), 0);
    ASSERT_EQ(m_codec[0].StartRecord(), 1);
    EXPECT_EQ(m_pVoice->IsRunning(0), 1) << "taken before Start returns";
    ASSERT_EQ(m_codec[1].StartRecord(), 1);
    EXPECT_EQ(m_codec[1].StartRecord(), 1);
    EXPECT_EQ(m_pVoice->Start(1, &m_codec[1]), 0) << "a running channel";
    EXPECT_EQ(m_pVoice->Start(2, &m_codec[1]), 0);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    EXPECT_EQ(CTestClock::GetIdleThreads(), 1) << "one thread for both";
    Step(202);
    EXPECT_EQ(Traffic(), "W20 W21 L W40 R1:6 B360 U L W41 R2:6 B360 U");
    std::vector<BYTE> code0;
    std::vector<BYTE> code1;
    EXPECT_EQ(TakeCode(0, &code0), 360);
    EXPECT_EQ(TakeCode(1, &code1), 360);
    EXPECT_NE(code0, code1) << "each channel its own input";

    m_pVoice->Stop(0);
    EXPECT_EQ(m_pVoice->IsRunning(0), 0);
    EXPECT_EQ(m_pVoice->AnyChannel(), 1);
    Step(202);
    EXPECT_EQ(Traffic(), "W30 L W41 R2:9 B360 W41 R2:5 B360 U") << "the thread goes on for channel 1";
    m_pVoice->Stop(0);
    m_codec[1].Close();
    EXPECT_EQ(Traffic(), "W31");
    EXPECT_EQ(CTestClock::GetIdleThreads(), 0) << "the last Stop ends the thread";

    ASSERT_EQ(m_codec[1].OpenVoice(m_pVoice.get(), 1), 1);
    ASSERT_EQ(m_codec[1].StartRecord(), 1);
    EXPECT_TRUE(CTestClock::WaitForIdleThreads(1)) << "a new thread";
    Step(202);
    EXPECT_EQ(Traffic(), "W21 L W41 R2:6 B360 U");
}

TEST_F(VoiceThreadTest, AFailedBusLockEndsTheThreadAndNothingWaitsForIt)
{
    ASSERT_EQ(m_codec[0].StartRecord(), 1);
    ASSERT_EQ(m_codec[1].StartRecord(), 1);
    tag_BOARDFAULTS faults;
    faults.bLockTimesOut = true;
    m_pBoard->SetFaults(faults);
    Step(199);
    m_clock.Advance(1);
    ASSERT_TRUE(WaitUntil([this] { return !m_pVoice->AnyChannel() && !m_pVoice->IsRunning(1); }));
    EXPECT_EQ(Traffic(), "W20 W21 L! W30 W31") << "both channels stopped at the processor";
    EXPECT_EQ(m_pVoice->IsRunning(0), 0);
    EXPECT_EQ(m_pVoice->AnyChannel(), 0);
    EXPECT_EQ(TakeCode(1), 0) << "frames go on without sound";

    // Neither Stop nor Close waits for the thread that is gone; a new start brings a new one.
    m_pVoice->Stop(1);
    m_codec[0].Close();
    m_pBoard->SetFaults(tag_BOARDFAULTS{});
    ASSERT_EQ(m_codec[0].OpenVoice(m_pVoice.get(), 0), 1);
    ASSERT_EQ(m_codec[0].StartRecord(), 1);
    Step(202);
    EXPECT_EQ(Traffic(), "W20 L W40 R1:6 B360 U");
    m_codec[1].Close();
    EXPECT_EQ(m_pVoice->IsRunning(0), 1);
}

TEST_F(VoiceThreadTest, TheFillBufferKeepsItsPlaceAndTheNewestBlockReplacesTheLast)
{
    int nLen = 77;
    BYTE data[CVoiceCodec::CODE_BYTES];
    EXPECT_EQ(m_codec[0].GetRecordData(data, nLen, CVoiceCodec::CODE_BYTES), 0);
    EXPECT_EQ(nLen, 77) << "a codec that isn't started leaves nLen alone";
    EXPECT_EQ(m_codec[0].OnRecordData(0, 0), 0);
    EXPECT_EQ(m_codec[0].OpenVoice(m_pVoice.get(), 0), 0) << "open already";
    CVoiceCodec other;
    EXPECT_EQ(other.OpenVoice(m_pVoice.get(), 2), 0);
    EXPECT_EQ(other.OpenVoice(nullptr, 1), 0);
    EXPECT_EQ(other.StartRecord(), 0);

    // 65 520 bytes held: the next block takes the place of the last.
    ASSERT_EQ(m_codec[0].StartRecord(), 1);
    int nPos = 0;
    BYTE* pCode = m_codec[0].LockCode(nPos);
    ASSERT_NE(pCode, nullptr);
    EXPECT_EQ(nPos, 0);
    std::fill(pCode, pCode + CVoiceCodec::CODE_BYTES, BYTE{0xA5});
    m_codec[0].UnlockCode(65520);
    Step(202);
    std::vector<BYTE> code;
    ASSERT_EQ(TakeCode(0, &code), 65520);
    EXPECT_EQ(std::count(code.begin(), code.begin() + 65160, BYTE{0xA5}), 65160);
    EXPECT_NE(std::count(code.begin() + 65160, code.end(), BYTE{0xA5}), 360);

    // A buffer the thread holds for 100 ms: the frame goes without sound, the code stays.
    const HANDLE hRelease = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    std::thread holder([&] {
        int nHeld = 0;
        m_codec[0].LockCode(nHeld);
        m_codec[0].UnlockCode(3);
        m_codec[0].LockCode(nHeld);
        WaitForSingleObject(hRelease, INFINITE);
        m_codec[0].UnlockCode(nHeld);
    });
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(2));
    std::thread frame([&] {
        nLen = 77;
        EXPECT_EQ(m_codec[0].GetRecordData(data, nLen, CVoiceCodec::CODE_BYTES), 0);
        EXPECT_EQ(nLen, 0);
    });
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(3));
    m_clock.Advance(CVoiceCodec::CODE_WAIT_MS);
    frame.join();
    SetEvent(hRelease);
    holder.join();
    CloseHandle(hRelease);
    EXPECT_EQ(TakeCode(0), 3);

    // A frame takes at most what it asks for; the rest is dropped.
    Step(200);
    EXPECT_EQ(m_codec[0].GetRecordData(data, nLen, 100), 1);
    EXPECT_EQ(nLen, 100);
    EXPECT_EQ(TakeCode(0), 0);
}

} // namespace
