// Sound files on the virtual devices, driven by the test clock: a file plays whole, from
// its first sample, found among other chunks, and its end reaches the host; what can't
// be played is refused with its reason; a recording has the 44-byte head, its true
// sizes and every sample up to the stop. sox and ffmpeg read what we write and make
// files we play.
#include "SoundDevicesFixture.h"
#include "platform/TickClock.h"
#include "platform/WaveFile.h"
#include "sound/CWaveWnd.h"
#include "vocabulary/Messages.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr DWORD kSpeakerId = 0;
constexpr DWORD kPhoneId = 1;   // plays mono 8 kHz only
constexpr DWORD kMicrophoneSeed = 3;

void PutLe(std::vector<BYTE>& bytes, DWORD dwValue, int nBytes)
{
    for (int i = 0; i < nBytes; ++i)
        bytes.push_back(static_cast<BYTE>(dwValue >> (8 * i)));
}

void PutChunk(std::vector<BYTE>& bytes, const char* pszId, const std::vector<BYTE>& body)
{
    PutLe(bytes, mmioFOURCC(pszId[0], pszId[1], pszId[2], pszId[3]), 4);
    PutLe(bytes, static_cast<DWORD>(body.size()), 4);
    bytes.insert(bytes.end(), body.begin(), body.end());
    if (body.size() % 2 != 0)
        bytes.push_back(0);
}

// A WAVE file as other programs write them: a chunk before "fmt ", a format chunk of
// nFmtBytes (18 with cbSize), a LIST chunk between it and the data, and one behind.
std::vector<BYTE> MakeWave(WORD wTag, WORD nChannels, DWORD dwRate, WORD wBits, const std::vector<BYTE>& data,
                           DWORD nFmtBytes = 18)
{
    std::vector<BYTE> fmt;
    PutLe(fmt, wTag, 2);
    PutLe(fmt, nChannels, 2);
    PutLe(fmt, dwRate, 4);
    PutLe(fmt, dwRate * nChannels * wBits / 8, 4);
    PutLe(fmt, static_cast<DWORD>(nChannels * wBits / 8), 2);
    PutLe(fmt, wBits, 2);
    fmt.resize(nFmtBytes);
    std::vector<BYTE> body = {'W', 'A', 'V', 'E'};
    PutChunk(body, "JUNK", {1, 2, 3});
    PutChunk(body, "fmt ", fmt);
    PutChunk(body, "LIST", {'I', 'N', 'F', 'O'});
    PutChunk(body, "data", data);
    PutChunk(body, "id3 ", std::vector<BYTE>(5000, 0x55));
    std::vector<BYTE> file;
    PutChunk(file, "RIFF", body);
    return file;
}

std::vector<BYTE> Pattern(std::size_t nBytes)
{
    std::vector<BYTE> data(nBytes);
    for (std::size_t i = 0; i < nBytes; ++i)
        data[i] = static_cast<BYTE>(i * 7 + i / 251);
    return data;
}

std::vector<BYTE> ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteFile(const fs::path& path, const std::vector<BYTE>& bytes)
{
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool HasProgram(const char* pszName)
{
    return std::system((std::string("command -v ") + pszName + " >/dev/null 2>&1").c_str()) == 0;
}

// The host window: counts the ends of files.
class CSoundHost : public CWnd {
public:
    CSoundHost() { CreateEx(0, nullptr, "sound host", WS_POPUP, RECT{}, nullptr, 0); }
    ~CSoundHost() override { DestroyWindow(); }
    int m_nEnds = 0;

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        m_nEnds += message == WM_WAVEPLAYEND && wParam == 0 && lParam == 0;
        return CWnd::WindowProc(message, wParam, lParam);
    }
};

class WaveWndTest : public SoundDevicesFixture {
protected:
    void SetUp() override
    {
        InstallDevices({"microphone"}, kMicrophoneSeed);
        fs::create_directories(m_dir);
        ASSERT_TRUE(m_wave.Open(m_host.m_hWnd));
    }

    void TearDown() override
    {
        m_wave.Close();
        fs::remove_all(m_dir);
        SoundDevicesFixture::TearDown();
    }

    // Lets dwMs pass on the clock in steps of 50 ms, serving this thread's messages.
    void Run(DWORD dwMs)
    {
        for (DWORD dwDone = 0; dwDone < dwMs; dwDone += 50) {
            m_clock.Advance(50);
            MSG msg;
            while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
                DispatchMessage(&msg);
        }
    }

    std::vector<BYTE> Played(DWORD dwId, std::vector<tag_PLAYEDBUFFER>* pBuffers = nullptr)
    {
        std::vector<BYTE> sound;
        WAVEFORMATEX format{};
        EXPECT_TRUE(CVirtualWave::GetPlayed(dwId, sound, format, pBuffers));
        return sound;
    }

    CTestClock m_clock{1000};
    CSoundHost m_host;
    CWaveWnd m_wave;
    fs::path m_dir = fs::temp_directory_path() / ("zndvr-wavewnd-" + std::to_string(::getpid()));
};

TEST_F(WaveWndTest, PlaysTheWholeSoundFromItsFirstSampleAndTellsTheEnd)
{
    // Format 6, 7.8 s: five full buffers of 1.5 s and a part, refilled as they play.
    const std::vector<BYTE> data = Pattern(250000);
    const fs::path file = m_dir / "stereo.wav";
    WriteFile(file, MakeWave(WAVE_FORMAT_PCM, 2, 8000, 16, data));
    ASSERT_EQ(m_wave.Play(file.c_str(), CWaveWnd::ANY_DEVICE), 1) << CWaveWnd::GetResultText(m_wave.GetLastResult());
    EXPECT_EQ(m_wave.GetDevice(), kSpeakerId) << "the phone can't play stereo";
    EXPECT_EQ(m_wave.GetDlgCtrlID(), 201);
    char szName[32];
    m_wave.GetWindowText(szName, sizeof(szName));
    EXPECT_STREQ(szName, "wave wnd 1");
    EXPECT_EQ(m_wave.GetDataBytes(), data.size());
    EXPECT_EQ(m_wave.Play(file.c_str(), kSpeakerId), 0);
    EXPECT_EQ(m_wave.GetLastResult(), WAVEWND_BUSY);
    EXPECT_EQ(m_wave.Record((m_dir / "no.wav").c_str(), SOUNDFMT_8K_16BIT_MONO, CWaveWnd::ANY_DEVICE), 0);
    EXPECT_FALSE(fs::exists(m_dir / "no.wav"));
    m_wave.StopRecord();

    Run(7800);
    EXPECT_EQ(m_host.m_nEnds, 0) << "the last buffer is still playing";
    Run(100);
    EXPECT_EQ(m_host.m_nEnds, 1);
    std::vector<tag_PLAYEDBUFFER> buffers;
    EXPECT_EQ(Played(kSpeakerId, &buffers), data) << "every sample, nothing of the chunks around the data";
    ASSERT_FALSE(buffers.empty());
    EXPECT_EQ(buffers.front().dwStartTime, 1000u) << "no silence ahead of the sound";

    // Stopped by the host: no end message; the object plays again.
    ASSERT_EQ(m_wave.Play(file.c_str(), kSpeakerId), 1);
    Run(100);
    m_wave.StopPlay(0);
    m_wave.StopPlay(1);
    Run(100);
    EXPECT_EQ(m_host.m_nEnds, 1);
}

TEST_F(WaveWndTest, RefusesWhatItCantPlayWithTheReason)
{
    struct tag_CASE {
        const char* pszName;
        std::vector<BYTE> file;
        DWORD dwDevice;
        int nResult;
    };
    const std::vector<BYTE> sound = Pattern(1600);
    const std::vector<BYTE> good = MakeWave(WAVE_FORMAT_PCM, 1, 8000, 16, sound);
    std::vector<BYTE> notRiff = good;
    notRiff[0] = 'X';
    const tag_CASE cases[] = {
        {"not RIFF", notRiff, CWaveWnd::ANY_DEVICE, WAVEWND_NOTWAVE},
        {"no data", std::vector<BYTE>(good.begin(), good.begin() + 60), CWaveWnd::ANY_DEVICE, WAVEWND_NOTWAVE},
        {"extensible", MakeWave(0xFFFE, 2, 44100, 16, sound, 40), CWaveWnd::ANY_DEVICE, WAVEWND_BADFORMAT},
        {"24-bit", MakeWave(WAVE_FORMAT_PCM, 2, 8000, 24, sound), CWaveWnd::ANY_DEVICE, WAVEWND_BADFORMAT},
        {"44.1 kHz mono", MakeWave(WAVE_FORMAT_PCM, 1, 44100, 16, sound), CWaveWnd::ANY_DEVICE, WAVEWND_BADFORMAT},
        {"73 536 Hz", MakeWave(WAVE_FORMAT_PCM, 1, 65536 + 8000, 16, sound), CWaveWnd::ANY_DEVICE, WAVEWND_BADFORMAT},
        {"14-byte format", MakeWave(WAVE_FORMAT_PCM, 1, 8000, 16, sound, 14), CWaveWnd::ANY_DEVICE, WAVEWND_BADFORMAT},
        {"1599 bytes", MakeWave(WAVE_FORMAT_PCM, 1, 8000, 8, Pattern(1599)), CWaveWnd::ANY_DEVICE, WAVEWND_SHORTDATA},
        {"stereo on the phone", MakeWave(WAVE_FORMAT_PCM, 2, 8000, 16, sound), kPhoneId, WAVEWND_NODEVICE},
    };
    const fs::path file = m_dir / "case.wav";
    for (const tag_CASE& test : cases) {
        WriteFile(file, test.file);
        EXPECT_EQ(m_wave.Play(file.c_str(), test.dwDevice), 0) << test.pszName;
        EXPECT_EQ(m_wave.GetLastResult(), test.nResult) << test.pszName;
    }
    EXPECT_EQ(m_wave.Play((m_dir / "missing.wav").c_str(), kSpeakerId), 0);
    EXPECT_EQ(m_wave.GetLastResult(), WAVEWND_NOFILE);

    // 1600 bytes of mono 16-bit sound play, on the phone, in 100 ms.
    WriteFile(file, good);
    ASSERT_EQ(m_wave.Play(file.c_str(), kPhoneId), 1);
    Run(100);
    EXPECT_EQ(m_host.m_nEnds, 1);
    EXPECT_EQ(Played(kPhoneId), sound);

    // A file cut short in the middle of a stereo frame plays its whole frames.
    std::vector<BYTE> cut = MakeWave(WAVE_FORMAT_PCM, 2, 8000, 16, Pattern(4000));
    cut.resize(cut.size() - (8 + 5000) - 4000 + 2003);
    WriteFile(file, cut);
    CVirtualWave::ClearPlayed(kSpeakerId);
    ASSERT_EQ(m_wave.Play(file.c_str(), kSpeakerId), 1);
    EXPECT_EQ(m_wave.GetDataBytes(), 2003u);
    Run(100);
    EXPECT_EQ(m_host.m_nEnds, 2);
    EXPECT_EQ(Played(kSpeakerId), Pattern(2000));
}

TEST_F(WaveWndTest, RecordsTheExactHeadTrueSizesAndEverySampleUpToTheStop)
{
    const fs::path file = m_dir / "speech.wav";
    EXPECT_EQ(m_wave.Record(file.c_str(), SOUNDFMT_8K_16BIT_MONO, 7), 0);
    EXPECT_EQ(m_wave.GetLastResult(), WAVEWND_NODEVICE);
    EXPECT_FALSE(fs::exists(file)) << "no file without a device";
    for (const char* pszUnwritable : {"missing/x.wav", "/dev/full"}) {
        EXPECT_EQ(m_wave.Record((m_dir / pszUnwritable).c_str(), SOUNDFMT_8K_16BIT_MONO, 0), 0) << pszUnwritable;
        EXPECT_EQ(m_wave.GetLastResult(), WAVEWND_NOFILE) << pszUnwritable;
    }

    // 4.25 s: one full buffer of 3 s and the part in work at the stop.
    ASSERT_EQ(m_wave.Record(file.c_str(), SOUNDFMT_8K_16BIT_MONO, CWaveWnd::ANY_DEVICE), 1);
    EXPECT_EQ(m_wave.Play(file.c_str(), kSpeakerId), 0);
    m_wave.StopPlay(1);
    Run(4250);
    EXPECT_EQ(m_wave.GetDataBytes(), 48000u);
    m_wave.StopRecord();
    EXPECT_EQ(m_host.m_nEnds, 0);

    const DWORD dwData = 4250 * 16;
    // "RIFF", 36 + data, "WAVE", "fmt ", 16, tag 1 and 1 channel, 8000, 16000, align 2
    // and 16 bits, "data", data.
    std::vector<BYTE> head;
    for (DWORD dwValue : {mmioFOURCC('R', 'I', 'F', 'F'), 36 + dwData, mmioFOURCC('W', 'A', 'V', 'E'),
                          mmioFOURCC('f', 'm', 't', ' '), 16u, 1u | 1u << 16, 8000u, 16000u, 2u | 16u << 16,
                          mmioFOURCC('d', 'a', 't', 'a'), dwData})
        PutLe(head, dwValue, 4);
    const std::vector<BYTE> bytes = ReadFile(file);
    ASSERT_EQ(bytes.size(), 44 + dwData);
    EXPECT_EQ(std::vector<BYTE>(bytes.begin(), bytes.begin() + 44), head);

    std::vector<BYTE> signal(dwData);
    CWaveSignal microphone;
    tag_WAVESIGNAL speech;
    speech.dwSeed = kMicrophoneSeed;
    ASSERT_TRUE(microphone.Open(speech, m_wave.GetFormat()));
    microphone.Generate(signal.data(), dwData / 2);
    EXPECT_TRUE(std::equal(signal.begin(), signal.end(), bytes.begin() + 44));

    // Format 0 records with its own small buffers into a file of format 5.
    ASSERT_EQ(m_wave.Record(file.c_str(), SOUNDFMT_ADPCM, CWaveWnd::ANY_DEVICE), 1);
    Run(250);
    m_wave.Close();
    const std::vector<BYTE> adpcmFile = ReadFile(file);
    ASSERT_EQ(adpcmFile.size(), 44u + 250 * 16);
    EXPECT_TRUE(std::equal(head.begin() + 8, head.begin() + 40, adpcmFile.begin() + 8));
}

TEST_F(WaveWndTest, SoxAndFfmpegReadWhatWeRecordAndMakeFilesWePlay)
{
    if (!HasProgram("sox") || !HasProgram("ffmpeg"))
        GTEST_SKIP() << "sox or ffmpeg is not installed";
    const fs::path ours = m_dir / "ours.wav";
    ASSERT_EQ(m_wave.Record(ours.c_str(), SOUNDFMT_8K_8BIT_STEREO, CWaveWnd::ANY_DEVICE), 1);
    Run(500);
    m_wave.StopRecord();
    const std::vector<BYTE> recorded = ReadFile(ours);
    ASSERT_EQ(recorded.size(), 44u + 8000);
    const std::string strQuiet = " 2>/dev/null";
    ASSERT_EQ(std::system(("sox " + ours.string() + " -t raw " + (m_dir / "sox.raw").string() + strQuiet).c_str()), 0);
    ASSERT_EQ(std::system(("ffmpeg -v error -i " + ours.string() + " -f u8 " + (m_dir / "ffmpeg.raw").string()).c_str()), 0);
    EXPECT_TRUE(ReadFile(m_dir / "sox.raw") == std::vector<BYTE>(recorded.begin() + 44, recorded.end()));
    EXPECT_TRUE(ReadFile(m_dir / "ffmpeg.raw") == std::vector<BYTE>(recorded.begin() + 44, recorded.end()));

    // ffmpeg's files carry a LIST chunk ahead of the data; sox's 24-bit one is extensible.
    const fs::path stereo44 = m_dir / "stereo44.wav";
    ASSERT_EQ(std::system(("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=0.3 -ac 2 -ar 44100 -c:a pcm_s16le " +
                           stereo44.string() + " && ffmpeg -v error -i " + stereo44.string() + " -f s16le " +
                           (m_dir / "stereo44.raw").string())
                              .c_str()),
              0);
    ASSERT_EQ(m_wave.Play(stereo44.c_str(), kSpeakerId), 1) << CWaveWnd::GetResultText(m_wave.GetLastResult());
    Run(400);
    EXPECT_EQ(m_host.m_nEnds, 1);
    EXPECT_TRUE(Played(kSpeakerId) == ReadFile(m_dir / "stereo44.raw"));
    const struct {
        const char* pszCommand;
        int nResult;
    } refused[] = {
        {"sox -n -r 8000 -c 2 -b 24 %s synth 0.3 sine 300", WAVEWND_BADFORMAT},
        {"ffmpeg -v error -f lavfi -i sine=duration=0.3 -ar 44100 -ac 1 %s", WAVEWND_BADFORMAT},
        {"ffmpeg -v error -f lavfi -i sine=duration=0.3 -ar 8000 -ac 1 -c:a pcm_alaw %s", WAVEWND_BADFORMAT},
    };
    for (const auto& test : refused) {
        const fs::path file = m_dir / "refused.wav";
        char szCommand[256];
        std::snprintf(szCommand, sizeof(szCommand), test.pszCommand, file.c_str());
        fs::remove(file);
        ASSERT_EQ(std::system((std::string(szCommand) + strQuiet).c_str()), 0) << szCommand;
        EXPECT_EQ(m_wave.Play(file.c_str(), kSpeakerId), 0) << szCommand;
        EXPECT_EQ(m_wave.GetLastResult(), test.nResult) << szCommand;
    }
}

} // namespace
