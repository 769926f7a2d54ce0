// The wave devices: buffers played and recorded in order at the pace of the platform
// clock, notices to the owner window, resets that return every buffer, the device list
// and format query, WAVE files as input, and ALSA's null device where ALSA is built in.
#include "PlatformTestWindows.h"
#include "platform/FileTestSupport.h"
#include "platform/CVirtualWave.h"
#include "platform/TickClock.h"
#include "platform/WinWave.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

WAVEFORMATEX Pcm(WORD nChannels, DWORD dwRate, WORD wBits)
{
    const WORD wAlign = static_cast<WORD>(nChannels * wBits / 8);
    return WAVEFORMATEX{WAVE_FORMAT_PCM, nChannels, dwRate, dwRate * wAlign, wAlign, wBits, 0};
}

const WAVEFORMATEX kSpeechFormat = Pcm(1, 8000, 16);

// A clock, the default devices without the machine's, and a window on this thread
// whose notices the test takes with PeekMessage (which also lets the devices run).
class WaveDeviceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        CVirtualWave::InstallDefault();
        CVirtualWave::EnableSystemDevices(false);
    }
    void TearDown() override { CVirtualWave::InstallDefault(); }

    std::vector<MSG> Notices(UINT nMessage) { return TakeQueuedMessages(m_wnd.m_hWnd, nMessage, nMessage); }

    struct tag_BUFFER {
        std::vector<char> data;
        WAVEHDR hdr{};
    };

    // nCount buffers of nBytes each, the data of the i-th filled with i + 1.
    static std::vector<tag_BUFFER> MakeBuffers(int nCount, DWORD nBytes)
    {
        std::vector<tag_BUFFER> buffers(static_cast<std::size_t>(nCount));
        for (int i = 0; i < nCount; ++i) {
            buffers[i].data.assign(nBytes, static_cast<char>(i + 1));
            buffers[i].hdr.lpData = buffers[i].data.data();
            buffers[i].hdr.dwBufferLength = nBytes;
        }
        return buffers;
    }

    CTestClock m_clock{5000};
    CRecordingWnd m_wnd;
};

TEST_F(WaveDeviceTest, OutputPlaysBuffersInOrderAtTheClocksPaceAndKeepsTheSound)
{
    HWAVEOUT hOut = nullptr;
    ASSERT_EQ(waveOutOpen(&hOut, 0, &kSpeechFormat, reinterpret_cast<DWORD_PTR>(m_wnd.m_hWnd), 0, CALLBACK_WINDOW),
              MMSYSERR_NOERROR);
    CVirtualWave::ClearPlayed(0);
    // 100 ms, 50 ms and 100 ms of sound.
    std::vector<tag_BUFFER> buffers = MakeBuffers(3, 1600);
    buffers[1].hdr.dwBufferLength = 800;
    WAVEHDR noData{};
    noData.dwBufferLength = 1600;
    EXPECT_EQ(waveOutPrepareHeader(hOut, &noData, sizeof(WAVEHDR)), MMSYSERR_INVALPARAM);
    DWORD dwVolume = 0;
    ASSERT_EQ(waveOutSetVolume(hOut, 0x80004000), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutGetVolume(hOut, &dwVolume), MMSYSERR_NOERROR);
    EXPECT_EQ(dwVolume, 0x80004000u);
    EXPECT_EQ(waveOutWrite(hOut, &buffers[0].hdr, sizeof(WAVEHDR)), WAVERR_UNPREPARED);
    for (tag_BUFFER& buffer : buffers) {
        ASSERT_EQ(waveOutPrepareHeader(hOut, &buffer.hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        ASSERT_EQ(waveOutWrite(hOut, &buffer.hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    EXPECT_EQ(waveOutUnprepareHeader(hOut, &buffers[0].hdr, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(waveOutClose(hOut), WAVERR_STILLPLAYING);

    // Each buffer is done when its last frame has played: at 100, 150 and 250 ms.
    const std::array<std::pair<DWORD, std::size_t>, 4> steps = {{{99, 0}, {1, 1}, {50, 1}, {100, 1}}};
    std::size_t nDone = 0;
    for (auto [dwAdvance, nExpected] : steps) {
        m_clock.Advance(dwAdvance);
        std::vector<MSG> notices = Notices(MM_WOM_DONE);
        ASSERT_EQ(notices.size(), nExpected) << "at +" << dwAdvance;
        for (const MSG& msg : notices) {
            EXPECT_EQ(msg.wParam, reinterpret_cast<WPARAM>(hOut));
            EXPECT_EQ(msg.lParam, reinterpret_cast<LPARAM>(&buffers[nDone].hdr));
            EXPECT_EQ(buffers[nDone].hdr.dwFlags, WHDR_PREPARED | WHDR_DONE);
            ++nDone;
        }
    }

    // A gap after sound is an underrun; writing again in time is not.
    DWORD dwUnderruns = 99;
    m_clock.Advance(10);
    ASSERT_EQ(waveOutWrite(hOut, &buffers[0].hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    m_clock.Advance(100);
    ASSERT_EQ(Notices(MM_WOM_DONE).size(), 1u);
    ASSERT_EQ(waveOutWrite(hOut, &buffers[2].hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutGetUnderrunCount(hOut, &dwUnderruns), MMSYSERR_NOERROR);
    EXPECT_EQ(dwUnderruns, 1u);

    // A reset returns the queued buffer at once, with its notice.
    ASSERT_EQ(waveOutReset(hOut), MMSYSERR_NOERROR);
    EXPECT_EQ(buffers[2].hdr.dwFlags, WHDR_PREPARED | WHDR_DONE);
    EXPECT_EQ(Notices(MM_WOM_DONE).size(), 1u);
    EXPECT_EQ(waveOutClose(hOut), MMSYSERR_NOERROR);

    std::vector<BYTE> played;
    WAVEFORMATEX format{};
    std::vector<tag_PLAYEDBUFFER> playedBuffers;
    ASSERT_TRUE(CVirtualWave::GetPlayed(0, played, format, &playedBuffers));
    std::vector<BYTE> expected;
    for (int i : {0, 1, 2, 0})
        expected.insert(expected.end(), buffers[i].data.begin(), buffers[i].data.begin() + buffers[i].hdr.dwBufferLength);
    EXPECT_EQ(played, expected);
    ASSERT_EQ(playedBuffers.size(), 4u);
    EXPECT_EQ(playedBuffers[1].dwStartTime, 5100u);
    EXPECT_EQ(playedBuffers[3].dwStartTime, 5260u);
    CVirtualWave::ClearPlayed(0);
    ASSERT_TRUE(CVirtualWave::GetPlayed(0, played, format));
    EXPECT_TRUE(played.empty());
}

TEST_F(WaveDeviceTest, InputRecordsItsSignalWithoutGapsAndLosesWhatNoBufferTakes)
{
    tag_VIRTUALWAVEDEVICE device;
    device.strName = "tone-in";
    device.signal.nKind = WAVESIGNAL_TONE;
    device.signal.dFrequency = 1000.0;
    const UINT uTone = CVirtualWave::AddInput(device);
    HWAVEIN hIn = nullptr;
    ASSERT_EQ(waveInOpen(&hIn, uTone, &kSpeechFormat, reinterpret_cast<DWORD_PTR>(m_wnd.m_hWnd), 0, CALLBACK_WINDOW),
              MMSYSERR_NOERROR);
    std::vector<tag_BUFFER> buffers = MakeBuffers(2, 1600);
    for (tag_BUFFER& buffer : buffers) {
        waveInPrepareHeader(hIn, &buffer.hdr, sizeof(WAVEHDR));
        ASSERT_EQ(waveInAddBuffer(hIn, &buffer.hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    m_clock.Advance(500);
    EXPECT_TRUE(Notices(MM_WIM_DATA).empty()) << "nothing is recorded before the start";
    ASSERT_EQ(waveInStart(hIn), MMSYSERR_NOERROR);

    CWaveSignal reference;
    ASSERT_TRUE(reference.Open(device.signal, kSpeechFormat));
    std::vector<BYTE> expected(1600);
    auto fnExpectNext = [&](const tag_BUFFER& buffer, DWORD dwBytes) {
        reference.Generate(expected.data(), dwBytes / 2);
        EXPECT_EQ(buffer.hdr.dwBytesRecorded, dwBytes);
        EXPECT_EQ(std::memcmp(buffer.data.data(), expected.data(), dwBytes), 0);
    };
    m_clock.Advance(99);
    EXPECT_TRUE(Notices(MM_WIM_DATA).empty());
    m_clock.Advance(1);
    std::vector<MSG> notices = Notices(MM_WIM_DATA);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].lParam, reinterpret_cast<LPARAM>(&buffers[0].hdr));
    fnExpectNext(buffers[0], 1600);
    ASSERT_EQ(waveInAddBuffer(hIn, &buffers[0].hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    m_clock.Advance(100);
    ASSERT_EQ(Notices(MM_WIM_DATA).size(), 1u);
    fnExpectNext(buffers[1], 1600);

    // 300 ms pass with buffer 1 away: buffer 0 takes the first 100, the rest is lost.
    m_clock.Advance(300);
    ASSERT_EQ(Notices(MM_WIM_DATA).size(), 1u);
    fnExpectNext(buffers[0], 1600);
    reference.Skip(1600);
    ASSERT_EQ(waveInAddBuffer(hIn, &buffers[1].hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    DWORD dwOverruns = 0;
    ASSERT_EQ(waveInGetOverrunCount(hIn, &dwOverruns), MMSYSERR_NOERROR);
    EXPECT_EQ(dwOverruns, 1u);

    // Stop returns the buffer in work with what it holds; reset returns the rest empty.
    ASSERT_EQ(waveInAddBuffer(hIn, &buffers[0].hdr, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    m_clock.Advance(30);
    ASSERT_EQ(waveInStop(hIn), MMSYSERR_NOERROR);
    ASSERT_EQ(Notices(MM_WIM_DATA).size(), 1u);
    fnExpectNext(buffers[1], 480);
    ASSERT_EQ(waveInReset(hIn), MMSYSERR_NOERROR);
    ASSERT_EQ(Notices(MM_WIM_DATA).size(), 1u);
    EXPECT_EQ(buffers[0].hdr.dwBytesRecorded, 0u);
    EXPECT_EQ(buffers[0].hdr.dwFlags, WHDR_PREPARED | WHDR_DONE);
    EXPECT_EQ(waveInClose(hIn), MMSYSERR_NOERROR);
}

TEST_F(WaveDeviceTest, ListsNamesAnswersFormatQueriesAndRefusesBadRequests)
{
    tag_VIRTUALWAVEDEVICE narrow;
    narrow.strName = "mono-8k";
    narrow.wMaxChannels = 1;
    narrow.dwMinRate = 8000;
    narrow.dwMaxRate = 8000;
    const UINT uNarrow = CVirtualWave::AddOutput(narrow);
    ASSERT_EQ(waveOutGetNumDevs(), 2u);
    // The caps are written whole, the name terminated, and never past the size given.
    WAVEOUTCAPS caps;
    std::memset(&caps, 0xFF, sizeof(caps));
    EXPECT_EQ(waveOutGetDevCaps(uNarrow, &caps, sizeof(caps) - 1), MMSYSERR_INVALPARAM);
    ASSERT_EQ(waveOutGetDevCaps(uNarrow, &caps, sizeof(caps)), MMSYSERR_NOERROR);
    EXPECT_STREQ(caps.szPname, "mono-8k");
    EXPECT_EQ(waveOutGetDevCaps(2, &caps, sizeof(caps)), MMSYSERR_BADDEVICEID);

    const WAVEFORMATEX stereo = Pcm(2, 44100, 16);
    const DWORD_PTR hWnd = reinterpret_cast<DWORD_PTR>(m_wnd.m_hWnd);
    EXPECT_EQ(waveOutOpen(nullptr, uNarrow, &kSpeechFormat, 0, 0, WAVE_FORMAT_QUERY), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutOpen(nullptr, uNarrow, &stereo, 0, 0, WAVE_FORMAT_QUERY), WAVERR_BADFORMAT);
    WAVEFORMATEX badAlign = kSpeechFormat;
    badAlign.nBlockAlign = 4;
    WAVEFORMATEX float32 = Pcm(1, 8000, 32);
    for (const WAVEFORMATEX* pBad : {&badAlign, &float32})
        EXPECT_EQ(waveOutOpen(nullptr, 0, pBad, 0, 0, WAVE_FORMAT_QUERY), WAVERR_BADFORMAT);
    EXPECT_EQ(waveOutOpen(nullptr, 7, &kSpeechFormat, 0, 0, WAVE_FORMAT_QUERY), MMSYSERR_BADDEVICEID);
    HWAVEOUT hOut = nullptr;
    EXPECT_EQ(waveOutOpen(&hOut, 0, &kSpeechFormat, 0x12345, 0, CALLBACK_WINDOW), MMSYSERR_INVALPARAM);
    EXPECT_EQ(waveOutOpen(&hOut, 0, &kSpeechFormat, hWnd, 0, 0x00030000), MMSYSERR_INVALFLAG);

    // The mapper takes the first device that takes the format and is free.
    HWAVEOUT hFirst = nullptr;
    HWAVEOUT hSecond = nullptr;
    ASSERT_EQ(waveOutOpen(&hFirst, WAVE_MAPPER, &kSpeechFormat, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_NOERROR);
    HWAVEOUT hUntouched = reinterpret_cast<HWAVEOUT>(0x5A5A);
    EXPECT_EQ(waveOutOpen(&hUntouched, 0, &kSpeechFormat, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_ALLOCATED);
    EXPECT_EQ(hUntouched, reinterpret_cast<HWAVEOUT>(0x5A5A)) << "a failed open leaves the handle alone";
    ASSERT_EQ(waveOutOpen(&hSecond, WAVE_MAPPER, &kSpeechFormat, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_NOERROR);
    EXPECT_NE(hFirst, hSecond);
    EXPECT_EQ(waveOutOpen(&hOut, WAVE_MAPPER, &stereo, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_ALLOCATED);
    EXPECT_EQ(waveOutClose(hFirst), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(hFirst), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(waveOutClose(hSecond), MMSYSERR_NOERROR);
    EXPECT_EQ(waveInClose(reinterpret_cast<HWAVEIN>(hFirst)), MMSYSERR_INVALHANDLE);
}

// A 16-bit WAVE image in memory: RIFF head, a chunk before "fmt ", fmt, data.
std::vector<BYTE> WaveImage(const WAVEFORMATEX& format, const std::vector<short>& samples)
{
    std::vector<BYTE> image;
    auto fnPut = [&image](DWORD dwValue, int nBytes) {
        for (int i = 0; i < nBytes; ++i)
            image.push_back(static_cast<BYTE>(dwValue >> (8 * i)));
    };
    auto fnTag = [&image](const char* pszTag) { image.insert(image.end(), pszTag, pszTag + 4); };
    const DWORD dwData = static_cast<DWORD>(samples.size() * 2);
    fnTag("RIFF");
    fnPut(4 + 12 + 24 + 8 + dwData, 4);
    fnTag("WAVE");
    fnTag("LIST");
    fnPut(3, 4);
    fnPut(0, 4); // 3 bytes and a pad byte
    fnTag("fmt ");
    fnPut(16, 4);
    fnPut(format.wFormatTag, 2);
    fnPut(format.nChannels, 2);
    fnPut(format.nSamplesPerSec, 4);
    fnPut(format.nAvgBytesPerSec, 4);
    fnPut(format.nBlockAlign, 2);
    fnPut(format.wBitsPerSample, 2);
    fnTag("data");
    fnPut(dwData, 4);
    for (short sample : samples)
        fnPut(static_cast<WORD>(sample), 2);
    return image;
}

TEST(WaveFile, ParsesPcmAmongOtherChunksAndRefusesWhatItCantPlay)
{
    const std::vector<short> samples = {0, 1000, -1000, 32767, -32768, 5};
    tag_WAVEFILEDATA wave;
    std::string strReason;
    std::vector<BYTE> image = WaveImage(kSpeechFormat, samples);
    ASSERT_TRUE(ParseWaveFile(image.data(), image.size(), wave, strReason)) << strReason;
    EXPECT_EQ(wave.format.nSamplesPerSec, 8000u);
    ASSERT_EQ(wave.data.size(), samples.size() * 2);
    EXPECT_EQ(std::memcmp(wave.data.data(), samples.data(), wave.data.size()), 0);

    // A data chunk cut short keeps its whole frames.
    image.pop_back();
    ASSERT_TRUE(ParseWaveFile(image.data(), image.size(), wave, strReason));
    EXPECT_EQ(wave.data.size(), (samples.size() - 1) * 2);

    struct tag_BAD {
        const char* pszName;
        WAVEFORMATEX format;
        std::size_t nCut;
        const char* pszReason;
    };
    WAVEFORMATEX extensible = kSpeechFormat;
    extensible.wFormatTag = 0xFFFE;
    const tag_BAD bad[] = {
        {"extensible", extensible, 0, "not linear PCM"},
        {"24-bit", Pcm(1, 8000, 24), 0, "channels of 24 bits"},
        {"six channels", Pcm(6, 8000, 16), 0, "6 channels"},
        {"rate 0", Pcm(1, 0, 16), 0, "sample rate 0"},
        {"no data chunk", kSpeechFormat, 20, "no data chunk"},
        {"short fmt", kSpeechFormat, 26, "format chunk too short"},
        {"head only", kSpeechFormat, 60, "not a RIFF WAVE file"},
    };
    for (const tag_BAD& test : bad) {
        std::vector<BYTE> badImage = WaveImage(test.format, samples);
        badImage.resize(badImage.size() - test.nCut);
        EXPECT_FALSE(ParseWaveFile(badImage.data(), badImage.size(), wave, strReason)) << test.pszName;
        EXPECT_NE(strReason.find(test.pszReason), std::string::npos) << test.pszName << ": " << strReason;
    }
}

// A device's notices are posted input: a wait for posted messages wakes for them, a
// wait for timers does not, and a thread blocked in GetMessage gets them when they fall due.
TEST_F(WaveDeviceTest, NoticesWakeWaitsForPostedInput)
{
    std::vector<tag_BUFFER> buffers = MakeBuffers(2, 1600);
    HWAVEOUT hOut = nullptr;
    ASSERT_EQ(waveOutOpen(&hOut, 0, &kSpeechFormat, reinterpret_cast<DWORD_PTR>(m_wnd.m_hWnd), 0, CALLBACK_WINDOW),
              MMSYSERR_NOERROR);
    waveOutPrepareHeader(hOut, &buffers[0].hdr, sizeof(WAVEHDR));
    waveOutWrite(hOut, &buffers[0].hdr, sizeof(WAVEHDR));
    m_clock.Advance(100);
    EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_TIMER), WAIT_TIMEOUT);
    EXPECT_EQ(MsgWaitForMultipleObjects(0, nullptr, FALSE, 0, QS_ALLPOSTMESSAGE), WAIT_OBJECT_0);
    EXPECT_EQ(Notices(MM_WOM_DONE).size(), 1u);
    EXPECT_EQ(waveOutClose(hOut), MMSYSERR_NOERROR);

    CWindowThread owner;
    ASSERT_EQ(waveOutOpen(&hOut, 0, &kSpeechFormat, reinterpret_cast<DWORD_PTR>(owner.m_hWnd), 0, CALLBACK_WINDOW),
              MMSYSERR_NOERROR);
    waveOutPrepareHeader(hOut, &buffers[1].hdr, sizeof(WAVEHDR));
    waveOutWrite(hOut, &buffers[1].hdr, sizeof(WAVEHDR));
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    m_clock.Advance(100);
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(1));
    owner.Stop();
    EXPECT_EQ(waveOutClose(hOut), MMSYSERR_NOERROR);
    std::size_t nDone = 0;
    for (const MSG& msg : owner.m_received)
        nDone += msg.message == MM_WOM_DONE ? 1 : 0;
    EXPECT_EQ(nDone, 1u);
}

TEST_F(WaveDeviceTest, InputPlaysAWaveFileInALoopAndAFileThatCantBeReadFailsTheOpen)
{
    const std::vector<short> samples = {100, -200, 300, -400, 500};
    // A directory of this test's own: suites of other builds run beside this one.
    ScopedTempDir dir;
    const std::string strFile = dir / "input.wav";
    std::vector<BYTE> image = WaveImage(kSpeechFormat, samples);
    std::FILE* pFile = std::fopen(strFile.c_str(), "wb");
    ASSERT_NE(pFile, nullptr);
    std::fwrite(image.data(), 1, image.size(), pFile);
    std::fclose(pFile);

    tag_VIRTUALWAVEDEVICE device;
    device.signal.nKind = WAVESIGNAL_FILE;
    device.signal.strFile = strFile;
    const UINT uFile = CVirtualWave::AddInput(device);
    device.signal.strFile = strFile + ".missing";
    const UINT uMissing = CVirtualWave::AddInput(device);
    const DWORD_PTR hWnd = reinterpret_cast<DWORD_PTR>(m_wnd.m_hWnd);
    HWAVEIN hIn = nullptr;
    EXPECT_EQ(waveInOpen(&hIn, uMissing, &kSpeechFormat, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_ERROR);

    // Stereo 8-bit at the file's rate: each sample in both channels, the loop unbroken.
    const WAVEFORMATEX stereo8 = Pcm(2, 8000, 8);
    ASSERT_EQ(waveInOpen(&hIn, uFile, &stereo8, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_NOERROR);
    std::vector<tag_BUFFER> buffers = MakeBuffers(1, 24);
    waveInPrepareHeader(hIn, &buffers[0].hdr, sizeof(WAVEHDR));
    waveInAddBuffer(hIn, &buffers[0].hdr, sizeof(WAVEHDR));
    waveInStart(hIn);
    m_clock.Advance(2);
    ASSERT_EQ(Notices(MM_WIM_DATA).size(), 1u);
    for (int n = 0; n < 12; ++n) {
        const BYTE byExpected = static_cast<BYTE>((samples[n % samples.size()] >> 8) + 128);
        EXPECT_EQ(static_cast<BYTE>(buffers[0].data[2 * n]), byExpected) << n;
        EXPECT_EQ(buffers[0].data[2 * n + 1], buffers[0].data[2 * n]) << n;
    }
    EXPECT_EQ(waveInClose(hIn), MMSYSERR_NOERROR);
}

// ALSA's null device records silence and swallows what it plays, at the pace of the
// platform clock, through a worker thread that waits on the platform's waits.
TEST_F(WaveDeviceTest, AlsaNullDevicePlaysAndRecordsAtTheClocksPace)
{
    if (!CVirtualWave::IsSystemBackendBuilt())
        GTEST_SKIP() << "built without ALSA";
    CVirtualWave::Clear();
    CVirtualWave::EnableSystemDevices(true);
    UINT uNull = WAVE_MAPPER;
    for (UINT u = 0; u < waveInGetNumDevs(); ++u) {
        WAVEINCAPS caps{};
        if (waveInGetDevCaps(u, &caps, sizeof(caps)) == MMSYSERR_NOERROR && std::string(caps.szPname) == "null")
            uNull = u;
    }
    if (uNull == WAVE_MAPPER)
        GTEST_SKIP() << "ALSA lists no null device here";
    const DWORD_PTR hWnd = reinterpret_cast<DWORD_PTR>(m_wnd.m_hWnd);
    HWAVEIN hIn = nullptr;
    HWAVEOUT hOut = nullptr;
    ASSERT_EQ(waveInOpen(&hIn, uNull, &kSpeechFormat, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutOpen(&hOut, uNull, &kSpeechFormat, hWnd, 0, CALLBACK_WINDOW), MMSYSERR_NOERROR);
    std::vector<tag_BUFFER> inBuffers = MakeBuffers(2, 1600);
    std::vector<tag_BUFFER> outBuffers = MakeBuffers(2, 1600);
    for (int i = 0; i < 2; ++i) {
        waveInPrepareHeader(hIn, &inBuffers[i].hdr, sizeof(WAVEHDR));
        waveInAddBuffer(hIn, &inBuffers[i].hdr, sizeof(WAVEHDR));
        waveOutPrepareHeader(hOut, &outBuffers[i].hdr, sizeof(WAVEHDR));
        waveOutWrite(hOut, &outBuffers[i].hdr, sizeof(WAVEHDR));
    }
    waveInStart(hIn);
    const DWORD dwStart = m_clock.GetTime();
    std::size_t nRecorded = 0;
    std::size_t nPlayed = 0;
    // Both workers wait for the clock; 20 ms steps let each move one piece.
    for (int nStep = 0; nStep < 25 && (nRecorded < 2 || nPlayed < 2); ++nStep) {
        ASSERT_TRUE(CTestClock::WaitForIdleThreads(2));
        m_clock.Advance(20);
        ASSERT_TRUE(CTestClock::WaitForIdleThreads(2));
        nRecorded += Notices(MM_WIM_DATA).size();
        nPlayed += Notices(MM_WOM_DONE).size();
    }
    EXPECT_EQ(nRecorded, 2u);
    EXPECT_EQ(nPlayed, 2u);
    // 200 ms of sound take 200 ms of the clock, give or take the piece in work.
    EXPECT_GE(m_clock.GetTime() - dwStart, 200u);
    EXPECT_LE(m_clock.GetTime() - dwStart, 240u);
    EXPECT_EQ(inBuffers[0].hdr.dwBytesRecorded, 1600u);
    EXPECT_EQ(inBuffers[0].data, std::vector<char>(1600, 0)) << "the null device records silence";
    EXPECT_EQ(waveInReset(hIn), MMSYSERR_NOERROR);
    EXPECT_EQ(waveInClose(hIn), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(hOut), MMSYSERR_NOERROR);
}

} // namespace
