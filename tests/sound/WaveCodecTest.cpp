// CWaveCodec over the virtual devices, driven by the test clock: the format table, the
// device lists and the flags that keep two objects off one device, playing format 0 code
// with its lead-in and low-water mark, recording format 0 code that equals the coded
// input signal, and closing with the notices still queued dropped.
#include "SoundDevicesFixture.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "sound/CAdpcm.h"
#include "sound/CWaveCodec.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

// A window of the test thread that hands the device notices to its codec, as the
// library's windows do, and counts them.
class CSoundWnd : public CWnd {
public:
    CSoundWnd() { CreateEx(0, nullptr, "sound", WS_OVERLAPPED, RECT{}, nullptr, 0); }

    CWaveCodec* m_pCodec = nullptr;
    int m_nNotices = 0;
    int m_nAccepted = 0;
    int m_bNeedData = -1;

    // Lets the devices run and handles every notice now due.
    void Pump()
    {
        MSG msg;
        while (PeekMessage(&msg, m_hWnd, 0, 0, PM_REMOVE))
            DispatchMessage(&msg);
    }

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        if (message == MM_WIM_DATA) {
            ++m_nNotices;
            m_nAccepted += m_pCodec->OnRecordData(wParam, lParam);
        } else if (message == MM_WOM_DONE) {
            ++m_nNotices;
            m_nAccepted += m_pCodec->OnPlayDone(reinterpret_cast<HWAVEOUT>(wParam), reinterpret_cast<WAVEHDR*>(lParam),
                                                m_bNeedData);
        }
        return 0;
    }
};

// Shows what a failed opening leaves, and the buffer allocation of derived classes.
class CPeekCodec : public CWaveCodec {
public:
    using CWaveCodec::AllocBuf;
    HWND GetWindow() const { return m_hWnd; }
    DWORD GetDevice() const { return m_nDevice; }
};

// Two inputs beside the two outputs.
class WaveCodecTest : public SoundDevicesFixture {
protected:
    void SetUp() override { InstallDevices({"microphone", "line"}, 7); }

    CTestClock m_clock{1000};
    CSoundWnd m_wnd;
};

TEST(WaveCodecFormats, TableFillsAndRecognisesEveryFormat)
{
    struct tag_ROW {
        tag_SOUNDFMT nFmt;
        WORD nChannels;
        DWORD dwRate;
        WORD wBits;
        DWORD dwBytesPerSecond;
        tag_SOUNDFMT nRecognised;
    };
    const tag_ROW rows[] = {
        {SOUNDFMT_ADPCM, 1, 8000, 16, 16000, SOUNDFMT_8K_16BIT_MONO},
        {SOUNDFMT_8K_8BIT_MONO, 1, 8000, 8, 8000, SOUNDFMT_8K_8BIT_MONO},
        {SOUNDFMT_8K_8BIT_STEREO, 2, 8000, 8, 16000, SOUNDFMT_8K_8BIT_STEREO},
        {SOUNDFMT_8K_16BIT_MONO, 1, 8000, 16, 16000, SOUNDFMT_8K_16BIT_MONO},
        {SOUNDFMT_8K_16BIT_STEREO, 2, 8000, 16, 32000, SOUNDFMT_8K_16BIT_STEREO},
        {SOUNDFMT_44K_16BIT_STEREO, 2, 44100, 16, 176400, SOUNDFMT_44K_16BIT_STEREO},
        {SOUNDFMT_22K_16BIT_STEREO, 2, 22050, 16, 88200, SOUNDFMT_22K_16BIT_STEREO},
    };
    for (const tag_ROW& row : rows) {
        WAVEFORMATEX format{};
        ASSERT_EQ(CWaveCodec::GetSoundFmt(row.nFmt, &format), 1) << row.nFmt;
        EXPECT_EQ(format.wFormatTag, WAVE_FORMAT_PCM);
        EXPECT_EQ(format.nChannels, row.nChannels) << row.nFmt;
        EXPECT_EQ(format.nSamplesPerSec, row.dwRate) << row.nFmt;
        EXPECT_EQ(format.wBitsPerSample, row.wBits) << row.nFmt;
        EXPECT_EQ(format.nAvgBytesPerSec, row.dwBytesPerSecond) << row.nFmt;
        EXPECT_EQ(format.nBlockAlign, row.nChannels * row.wBits / 8) << row.nFmt;
        EXPECT_EQ(format.cbSize, 0);
        EXPECT_EQ(CWaveCodec::GetSoundFmt(&format), row.nRecognised) << row.nFmt;
    }
    WAVEFORMATEX format{};
    for (int nFmt : {1, 2, 9, 255, -1})
        EXPECT_EQ(CWaveCodec::GetSoundFmt(static_cast<tag_SOUNDFMT>(nFmt), &format), 0) << nFmt;
    EXPECT_EQ(CWaveCodec::GetSoundFmt(SOUNDFMT_ADPCM, nullptr), 0);
    EXPECT_EQ(CWaveCodec::GetSoundFmt(nullptr), SOUNDFMT_UNKNOWN);
    const WAVEFORMATEX unknown[] = {
        {WAVE_FORMAT_PCM, 1, 44100, 88200, 2, 16, 0}, {WAVE_FORMAT_PCM, 2, 22050, 44100, 2, 8, 0},
        {WAVE_FORMAT_PCM, 1, 8000, 24000, 3, 24, 0},  {2, 1, 8000, 16000, 2, 16, 0},
    };
    for (const WAVEFORMATEX& other : unknown)
        EXPECT_EQ(CWaveCodec::GetSoundFmt(&other), SOUNDFMT_UNKNOWN) << other.nSamplesPerSec;
}

TEST_F(WaveCodecTest, ListsDevicesAndKeepsTwoObjectsOffOneDevice)
{
    EXPECT_EQ(CWaveCodec::GetWaveOutDevNum(), 0u) << "counts exist only while an object lives";
    {
        CWaveCodec first;
        CWaveCodec second;
        CWaveCodec third;
        EXPECT_EQ(CWaveCodec::GetWaveOutDevNum(), 2u);
        EXPECT_EQ(CWaveCodec::GetWaveInDevNum(), 2u);
        EXPECT_EQ(CWaveCodec::GetWaveOutDevName(1), CString("phone"));
        EXPECT_EQ(CWaveCodec::GetWaveInDevName(2), CString());
        EXPECT_EQ(CWaveCodec::GetWaveInID("line"), 1u);
        EXPECT_EQ(CWaveCodec::GetWaveOutID("Phone"), CWaveCodec::ANY_DEVICE);
        EXPECT_EQ(CWaveCodec::CheckOutFmt(1, SOUNDFMT_ADPCM), 1);
        EXPECT_EQ(CWaveCodec::CheckOutFmt(1, SOUNDFMT_8K_16BIT_STEREO), 0);
        EXPECT_EQ(CWaveCodec::CheckOutFmt(0, static_cast<tag_SOUNDFMT>(2)), 0);
        EXPECT_EQ(CWaveCodec::CheckInFmt(2, SOUNDFMT_ADPCM), 0);

        CPeekCodec peek;
        for (int nFmt : {1, 2, 9}) {
            EXPECT_EQ(peek.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, static_cast<tag_SOUNDFMT>(nFmt), ZNFILE_WRITE), 0);
            EXPECT_EQ(peek.GetWindow(), nullptr) << "a failed opening keeps nothing";
            EXPECT_EQ(peek.GetDevice(), CWaveCodec::ANY_DEVICE);
        }
        EXPECT_EQ(peek.AllocBuf(0, 16), 0);
        EXPECT_EQ(peek.AllocBuf(2, 0), 0);
        EXPECT_EQ(peek.AllocBuf(2, 16), 1);
        EXPECT_EQ(first.Open(m_wnd.m_hWnd, 0, SOUNDFMT_ADPCM, static_cast<tag_ZNFILEMODE>(2)), 0);
        EXPECT_EQ(first.Open(nullptr, 0, SOUNDFMT_ADPCM, ZNFILE_WRITE), 0) << "a device needs a window";
        // A stereo format takes the one device that plays it; then nothing is left for it.
        ASSERT_EQ(first.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, SOUNDFMT_8K_16BIT_STEREO, ZNFILE_WRITE), 1);
        EXPECT_EQ(second.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, SOUNDFMT_8K_16BIT_STEREO, ZNFILE_WRITE), 0);
        EXPECT_EQ(first.Open(m_wnd.m_hWnd, 1, SOUNDFMT_ADPCM, ZNFILE_WRITE), 0) << "open already";
        // Format 0 finds the second device; a third object finds none; recording is apart.
        EXPECT_EQ(second.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, SOUNDFMT_ADPCM, ZNFILE_WRITE), 1);
        EXPECT_EQ(third.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, SOUNDFMT_ADPCM, ZNFILE_WRITE), 0);
        EXPECT_EQ(third.Open(m_wnd.m_hWnd, 0, SOUNDFMT_ADPCM, ZNFILE_READ), 1);
        third.Close();
        // The device the first object had is free again once it closes.
        first.Close();
        EXPECT_EQ(third.Open(m_wnd.m_hWnd, 0, SOUNDFMT_ADPCM, ZNFILE_WRITE), 1);
    }
    EXPECT_EQ(CWaveCodec::GetWaveInDevNum(), 0u);
    EXPECT_EQ(CWaveCodec::GetWaveOutDevNum(), 0u);
}

TEST_F(WaveCodecTest, PlaysCodeBehindTwoSilentBuffersAndAsksForMoreBelowFourQueued)
{
    CWaveCodec codec;
    m_wnd.m_pCodec = &codec;
    EXPECT_EQ(codec.StartPlay(), 0);
    ASSERT_EQ(codec.Open(m_wnd.m_hWnd, 0, SOUNDFMT_ADPCM, ZNFILE_WRITE), 1);
    CVirtualWave::ClearPlayed(0);
    ASSERT_EQ(codec.StartPlay(), 1);

    // Code to play: a coded tone, three blocks and a part; a last 2 bytes hold no sample.
    std::vector<short> pcm(2 * 960 * 3 + 800);
    for (std::size_t n = 0; n < pcm.size(); ++n)
        pcm[n] = static_cast<short>(8000 * ((n / 20) % 2 ? 1 : -1));
    CAdpcm encoder;
    ASSERT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    std::vector<BYTE> code(pcm.size() / 8 * 3 + 2, 0x5A);
    ASSERT_EQ(encoder.Encode(pcm.data(), code.data(), static_cast<int>(pcm.size()), 0), 1);
    EXPECT_EQ(codec.Play(code.data(), 0), 0);
    EXPECT_EQ(codec.Play(code.data(), 2), 1) << "nothing whole to play, nothing lost";
    EXPECT_EQ(codec.Play(code.data(), static_cast<int>(code.size())), 1);

    // 2 + 7 buffers queued: the first one back leaves 8 queued, no need for data.
    m_clock.Advance(120);
    m_wnd.Pump();
    EXPECT_EQ(m_wnd.m_nAccepted, 1);
    EXPECT_EQ(m_wnd.m_bNeedData, 0);
    m_clock.Advance(5 * 120);
    m_wnd.Pump();
    EXPECT_EQ(m_wnd.m_bNeedData, 1) << "3 still queued";
    m_clock.Advance(3 * 120);
    m_wnd.Pump();
    EXPECT_EQ(m_wnd.m_nAccepted, 9);

    // What played: 240 ms of silence, then the code decoded, the 1600-byte part included.
    CAdpcm decoder;
    ASSERT_EQ(decoder.Init(CAdpcm::kModeDecoder), 1);
    std::vector<short> expected(2 * 960 + pcm.size(), 0);
    ASSERT_EQ(decoder.Decode(code.data(), expected.data() + 2 * 960, static_cast<int>(code.size() - 2), 0), 1);
    std::vector<BYTE> played;
    WAVEFORMATEX format{};
    ASSERT_TRUE(CVirtualWave::GetPlayed(0, played, format));
    ASSERT_EQ(played.size(), expected.size() * 2);
    EXPECT_EQ(std::memcmp(played.data(), expected.data(), played.size()), 0);

    // With every buffer queued the sound of a call is lost, and the call says so.
    int bNeedData = 7;
    std::vector<BYTE> many(20 * 360 + 3, 0);
    EXPECT_EQ(codec.Play(many.data(), static_cast<int>(many.size())), 0);
    // A finished header that isn't this object's, or another device's notice, is refused.
    WAVEHDR foreign{};
    foreign.dwFlags = WHDR_DONE;
    m_clock.Advance(120);
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, m_wnd.m_hWnd, MM_WOM_DONE, MM_WOM_DONE, PM_REMOVE));
    const auto hOut = reinterpret_cast<HWAVEOUT>(msg.wParam);
    EXPECT_EQ(codec.OnPlayDone(hOut, &foreign, bNeedData), 0);
    EXPECT_EQ(codec.OnPlayDone(nullptr, reinterpret_cast<WAVEHDR*>(msg.lParam), bNeedData), 0);
    EXPECT_EQ(bNeedData, 7);
    EXPECT_EQ(codec.OnPlayDone(hOut, reinterpret_cast<WAVEHDR*>(msg.lParam), bNeedData), 1);

    CWaveCodec pcmCodec;
    ASSERT_EQ(pcmCodec.Open(m_wnd.m_hWnd, 1, SOUNDFMT_8K_8BIT_MONO, ZNFILE_WRITE), 1);
    EXPECT_EQ(pcmCodec.Play(code.data(), 360), 0) << "only format 0 is code";
}

TEST_F(WaveCodecTest, RecordsTheCodeOfItsInputAndDropsWhatDoesntFit)
{
    CWaveCodec codec;
    m_wnd.m_pCodec = &codec;
    BYTE area[ZNFRAME_SOUND_BUFFER_SIZE];
    int nLen = -1;
    EXPECT_EQ(codec.GetRecordData(area, nLen, sizeof(area)), 0);
    ASSERT_EQ(codec.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, SOUNDFMT_ADPCM, ZNFILE_READ), 1);
    ASSERT_EQ(codec.StartRecord(), 1);

    // The microphone's signal, coded in one piece, is what the object gathers.
    tag_WAVESIGNAL signal;
    signal.dwSeed = 7;
    CWaveSignal reference;
    WAVEFORMATEX format{};
    CWaveCodec::GetSoundFmt(SOUNDFMT_ADPCM, &format);
    ASSERT_TRUE(reference.Open(signal, format));
    std::vector<short> pcm(8000 * 30);
    reference.Generate(reinterpret_cast<BYTE*>(pcm.data()), static_cast<DWORD>(pcm.size()));
    CAdpcm encoder;
    ASSERT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    std::vector<BYTE> expected(pcm.size() / 8 * 3);
    for (std::size_t n = 0; n < pcm.size(); n += 8000)
        ASSERT_EQ(encoder.Encode(&pcm[n], &expected[n / 8 * 3], 8000, 0), 1);

    m_clock.Advance(350);
    m_wnd.Pump();
    ASSERT_EQ(codec.GetRecordData(area, nLen, sizeof(area)), 1);
    ASSERT_EQ(nLen, 900);
    EXPECT_EQ(std::memcmp(area, expected.data(), 900), 0);

    // A smaller area takes the start; the rest is gone, and the stream goes on after it.
    m_clock.Advance(250);
    m_wnd.Pump();
    ASSERT_EQ(codec.GetRecordData(area, nLen, 100), 1);
    EXPECT_EQ(nLen, 100);
    EXPECT_EQ(std::memcmp(area, &expected[900], 100), 0);
    m_clock.Advance(100);
    m_wnd.Pump();
    ASSERT_EQ(codec.GetRecordData(area, nLen, sizeof(area)), 1);
    ASSERT_EQ(nLen, 300);
    EXPECT_EQ(std::memcmp(area, &expected[1800], 300), 0);

    // Nobody takes the code for 24 s: the area holds whole groups to its end, the older
    // code stays and the newer is lost.
    for (int i = 0; i < 240; ++i) {
        m_clock.Advance(100);
        m_wnd.Pump();
    }
    ASSERT_EQ(codec.GetRecordData(area, nLen, sizeof(area)), 1);
    ASSERT_EQ(nLen, CWaveCodec::CODE_CAPACITY);
    EXPECT_EQ(std::memcmp(area, &expected[2100], static_cast<std::size_t>(nLen)), 0);
    EXPECT_EQ(m_wnd.m_nNotices, m_wnd.m_nAccepted);
}

TEST_F(WaveCodecTest, CloseDropsTheNoticesStillQueuedAndFreesTheDevice)
{
    CWaveCodec codec;
    m_wnd.m_pCodec = &codec;
    ASSERT_EQ(codec.Open(m_wnd.m_hWnd, 0, SOUNDFMT_ADPCM, ZNFILE_READ), 1);
    ASSERT_EQ(codec.StartRecord(), 1);
    m_clock.Advance(250);
    // Two buffers are done, their notices queued; a third device's notice stays.
    MSG msg;
    ASSERT_TRUE(PeekMessage(&msg, m_wnd.m_hWnd, 0, 0, PM_NOREMOVE));
    PostMessage(m_wnd.m_hWnd, MM_WIM_DATA, 0x77, 0);
    codec.Close();
    int nLen = 0;
    BYTE area[16];
    EXPECT_EQ(codec.GetRecordData(area, nLen, sizeof(area)), 0);
    ASSERT_TRUE(PeekMessage(&msg, m_wnd.m_hWnd, MM_WIM_DATA, MM_WIM_DATA, PM_REMOVE));
    EXPECT_EQ(msg.wParam, 0x77u);
    EXPECT_FALSE(PeekMessage(&msg, m_wnd.m_hWnd, 0, 0, PM_REMOVE));
    m_clock.Advance(1000);
    EXPECT_FALSE(PeekMessage(&msg, m_wnd.m_hWnd, 0, 0, PM_REMOVE)) << "the device is closed";
    CWaveCodec other;
    EXPECT_EQ(other.Open(m_wnd.m_hWnd, 0, SOUNDFMT_ADPCM, ZNFILE_READ), 1);
    ASSERT_EQ(codec.Open(m_wnd.m_hWnd, CWaveCodec::ANY_DEVICE, SOUNDFMT_ADPCM, ZNFILE_READ), 1);
    EXPECT_EQ(CWaveCodec::GetWaveInDevName(1), CString("line"));
}

} // namespace
