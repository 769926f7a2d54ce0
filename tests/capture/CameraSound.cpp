// Sound recorded with a camera's frames: a virtual wave-in device's signal, gathered by
// the channel and attached to each frame, is the signal's code without a gap or a
// repetition from frame to frame, across key frames and a change of parameters; the
// sound settings take effect, and a sound device that fails never stops a picture.
#include "CaptureTestSupport.h"

#include "platform/CVirtualWave.h"
#include "platform/TickClock.h"
#include "sound/CAdpcm.h"
#include "sound/CWaveCodec.h"

#include <vector>

namespace {

constexpr DWORD kSeed = 11;
// On a board of the second generation cameras 0 and 1 take the board's sound; camera 2
// records from a wave-in device.
constexpr int kWaveInCamera = 2;

// What the host keeps of each frame: the picture's length, the flags and the sound.
struct tag_SOUNDFRAME {
    WORD wFlags;
    WORD wFrameType;
    DWORD dwVideoLen;
    std::vector<BYTE> sound;
};

class CameraSound : public CCaptureTest {
protected:
    void SetUp() override
    {
        CCaptureTest::SetUp();
        CVirtualWave::Clear();
        CVirtualWave::EnableSystemDevices(false);
        tag_VIRTUALWAVEDEVICE microphone;
        microphone.strName = "microphone";
        microphone.signal.dwSeed = kSeed;
        CVirtualWave::AddInput(microphone);
        // Each frame takes 40 ms of the clock, as at 25 frames a second.
        m_host.m_pfnOnFrame = [this](HWND, tag_ZNCAPTUREFRAME* pFrame) {
            m_clock.Advance(40);
            const tag_ZNFRAMEDATA& data = *pFrame->pData;
            m_frames.push_back({data.wFlags, data.wFrameType, data.dwVideoLen,
                                std::vector<BYTE>(data.pSound, data.pSound + data.dwSoundLen)});
        };
        ASSERT_TRUE(OpenOn(m_video, m_host, MakeCaptureBoard(4, 2), FRAMESIZE_320X240_R2));
        m_param.m_bEncodeSound = 1;
        ASSERT_EQ(m_video.OpenCamera(0, kWaveInCamera, &m_param, nullptr), ZNRET_OK);
    }

    void TearDown() override
    {
        m_video.CloseCamera(0, kWaveInCamera);
        m_video.CloseBoard(0);
        CVirtualWave::InstallDefault();
        CCaptureTest::TearDown();
    }

    bool RunFrames(std::size_t nFrames)
    {
        const std::size_t nEnd = m_frames.size() + nFrames;
        return PumpUntil([&] { return m_frames.size() >= nEnd; });
    }

    // The microphone's signal, as the device records it from its start.
    static std::vector<short> MicrophoneSignal(std::size_t nSamples)
    {
        tag_WAVESIGNAL signal;
        signal.dwSeed = kSeed;
        WAVEFORMATEX format{};
        CWaveCodec::GetSoundFmt(SOUNDFMT_ADPCM, &format);
        CWaveSignal reference;
        EXPECT_TRUE(reference.Open(signal, format));
        std::vector<short> pcm(nSamples);
        reference.Generate(reinterpret_cast<BYTE*>(pcm.data()), static_cast<DWORD>(nSamples));
        return pcm;
    }

    CTestClock m_clock{5000};
    CHostWindow m_host;
    CVideo m_video;
    CEncodeParam m_param;
    std::vector<tag_SOUNDFRAME> m_frames;
};

TEST_F(CameraSound, FramesCarryTheInputSignalWithoutGapOrRepetition)
{
    ASSERT_TRUE(RunFrames(100));
    CEncodeParam changed;
    changed = m_param;
    changed.m_nQi = 20;
    ASSERT_EQ(m_video.SetEncodeParam(0, kWaveInCamera, &changed), ZNRET_OK);
    ASSERT_TRUE(RunFrames(100));

    std::vector<BYTE> code;
    int nKeyFrames = 0;
    for (const tag_SOUNDFRAME& frame : m_frames) {
        EXPECT_NE(frame.wFlags & ZNFRAME_SOUND, 0);
        EXPECT_GT(frame.dwVideoLen, 0u);
        EXPECT_EQ(frame.sound.size() % 3, 0u);
        nKeyFrames += frame.wFrameType == ZNFRAME_I;
        code.insert(code.end(), frame.sound.begin(), frame.sound.end());
    }
    EXPECT_EQ(nKeyFrames, 2) << "frames 0 and 160";
    // 200 frames of 40 ms: 8 s, of which the device has handed over whole 100 ms buffers.
    ASSERT_GE(code.size(), 7800u / 100 * 300);

    // The attached code is the signal coded in one piece: nothing missing, nothing twice.
    const std::vector<short> pcm = MicrophoneSignal(code.size() / 3 * 8);
    CAdpcm encoder;
    ASSERT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    std::vector<BYTE> expected(code.size());
    for (std::size_t nGroup = 0; nGroup < code.size() / 3; nGroup += 1000) {
        const std::size_t nGroups = std::min<std::size_t>(1000, code.size() / 3 - nGroup);
        ASSERT_EQ(encoder.Encode(&pcm[nGroup * 8], &expected[nGroup * 3], static_cast<int>(nGroups * 8), 0), 1);
    }
    EXPECT_EQ(code, expected);
}

TEST_F(CameraSound, SettingsTakeEffectAndAFailingDeviceNeverStopsAPicture)
{
    auto fnSoundOfLast = [this](std::size_t nFrames, bool& bFlagged) {
        std::size_t nBytes = 0;
        bFlagged = true;
        for (std::size_t i = m_frames.size() - nFrames; i < m_frames.size(); ++i) {
            nBytes += m_frames[i].sound.size();
            bFlagged = bFlagged && (m_frames[i].wFlags & ZNFRAME_SOUND) != 0;
        }
        return nBytes;
    };
    bool bFlagged = false;
    ASSERT_TRUE(RunFrames(10));
    EXPECT_GT(fnSoundOfLast(10, bFlagged), 0u);
    EXPECT_TRUE(bFlagged);

    ASSERT_EQ(m_video.SetEncodeSound(0, kWaveInCamera, 0), ZNRET_OK);
    ASSERT_TRUE(RunFrames(10));
    EXPECT_EQ(fnSoundOfLast(10, bFlagged), 0u);
    EXPECT_FALSE(bFlagged);

    // A device that isn't there: no source, pictures go on, each frame tries again.
    ASSERT_EQ(m_video.SetEncodeSound(0, kWaveInCamera, 1), ZNRET_OK);
    ASSERT_EQ(m_video.SetEncodeSoundDev(0, kWaveInCamera, 5), ZNRET_OK);
    ASSERT_TRUE(RunFrames(10));
    EXPECT_EQ(fnSoundOfLast(10, bFlagged), 0u);
    EXPECT_FALSE(bFlagged);
    for (std::size_t i = m_frames.size() - 10; i < m_frames.size(); ++i)
        EXPECT_GT(m_frames[i].dwVideoLen, 0u) << "frame " << i;
    tag_VIRTUALWAVEDEVICE late;
    for (int i = 0; i < 5; ++i)
        CVirtualWave::AddInput(late);
    ASSERT_TRUE(RunFrames(10));
    EXPECT_GT(fnSoundOfLast(10, bFlagged), 0u) << "the device that came is taken";

    // Without encoding no sound is recorded; with it back, sound is.
    ASSERT_EQ(m_video.SetEncodeMode(0, kWaveInCamera, 0), ZNRET_OK);
    ASSERT_TRUE(RunFrames(10));
    EXPECT_EQ(fnSoundOfLast(9, bFlagged), 0u);
    ASSERT_EQ(m_video.SetEncodeMode(0, kWaveInCamera, 1), ZNRET_OK);
    ASSERT_EQ(m_video.SetEncodeSoundDev(0, kWaveInCamera, 0), ZNRET_OK);
    ASSERT_TRUE(RunFrames(10));
    EXPECT_GT(fnSoundOfLast(8, bFlagged), 0u);
}

} // namespace
