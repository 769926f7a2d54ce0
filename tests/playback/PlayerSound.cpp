// The player's sound: the code of each frame reaches the virtual output in order behind
// two silent buffers, the output pulls frames forward when it runs low, the device closes
// and opens again with the settings, and a recording made by capture with sound plays
// with the decoder's pictures and its sound.
#include "PlaybackTestSupport.h"

#include "capture/CEncodeParam.h"
#include "capture/CVideo.h"
#include "codec/CDecoder.h"
#include "driver/virtual/CVirtualRack.h"

#include <map>

using namespace playback_test;

namespace {

constexpr int kCodeBytes = 360;                    // one 120 ms buffer of the output
constexpr int kSilentSamples = 2 * kCodeBytes / 3 * 8;

// Frames at the stamps, each with 120 ms of one continuous coded tone.
std::vector<tag_TESTFRAME> MakeSoundFrames(const std::vector<DWORD>& stamps)
{
    std::vector<tag_TESTFRAME> frames = MakeFrames(stamps);
    const std::vector<BYTE> code = MakeToneCode(static_cast<int>(frames.size()) * kCodeBytes);
    for (std::size_t f = 0; f < frames.size(); ++f) {
        frames[f].wFlags = ZNFRAME_SOUND;
        frames[f].sound.assign(code.begin() + static_cast<std::ptrdiff_t>(f * kCodeBytes),
                               code.begin() + static_cast<std::ptrdiff_t>((f + 1) * kCodeBytes));
    }
    return frames;
}

// A capture host: hands each frame record to a function and gives it back.
class CRecorderWnd : public CWnd {
public:
    CRecorderWnd()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "recorder", WS_POPUP, rect, nullptr, 0);
    }
    ~CRecorderWnd() override { DestroyWindow(); }

    std::function<void(const tag_ZNCAPTUREFRAME&)> m_pfnOnFrame;

protected:
    LRESULT OnCaptureFrame(WPARAM wCamera, LPARAM lFrame)
    {
        m_pfnOnFrame(*reinterpret_cast<const tag_ZNCAPTUREFRAME*>(lFrame));
        ::PostMessage(reinterpret_cast<HWND>(wCamera), WM_ZN_FRAMEDONE, 0, 0);
        return 0;
    }
    DECLARE_MESSAGE_MAP()
};

BEGIN_MESSAGE_MAP(CRecorderWnd, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnCaptureFrame)
END_MESSAGE_MAP()

} // namespace

// Stamps 1 s apart with 120 ms of sound each: the timer alone would show a frame a
// second; the output, running low, takes one whenever a buffer ends.
TEST_F(PlayerTest, SoundPlaysInOrderBehindItsPictureAndPullsItForward)
{
    std::vector<tag_TESTFRAME> frames = MakeSoundFrames(EvenStamps(20, 1000, 1000));
    Open(frames);
    TickUntilFrames(12);
    std::vector<tag_PLAYEDBUFFER> buffers;
    const std::vector<short> played = PlayedSound(&buffers);
    const std::vector<tag_PLAYEVENT> shown = host.Frames();
    ASSERT_EQ(shown.size(), 12u);
    EXPECT_LT(shown[11].dwTick - shown[0].dwTick, 11u * 200);
    std::vector<BYTE> code;
    for (const tag_TESTFRAME& frame : frames)
        code.insert(code.end(), frame.sound.begin(), frame.sound.end());
    const std::vector<short> expected = DecodeCode(code);
    ASSERT_GT(played.size(), static_cast<std::size_t>(kSilentSamples) + 5 * 960);
    EXPECT_TRUE(std::all_of(played.begin(), played.begin() + kSilentSamples, [](short s) { return s == 0; }));
    EXPECT_TRUE(std::equal(played.begin() + kSilentSamples, played.end(), expected.begin()));
    // Buffer k + 2 holds the sound of frame k.
    for (std::size_t k = 0; k + 2 < buffers.size() && k < shown.size(); ++k) {
        const DWORD dwBehind = buffers[k + 2].dwStartTime - shown[k].dwTick;
        EXPECT_GE(dwBehind, 240u) << k;
        EXPECT_LE(dwBehind, 480u) << k;
    }
}

// Each way of stopping the sound closes the device at once; sound comes back at the next
// frame with sound, behind new silence.
TEST_F(PlayerTest, SoundClosesWhenDisabledSpedUpOrPausedAndReopensBehindSilence)
{
    std::vector<tag_TESTFRAME> frames = MakeSoundFrames(EvenStamps(80, 1000, 120));
    WriteRecording(strFile, frames);
    const struct {
        const char* pName;
        std::function<void(CDecodeWnd&, bool)> fnSet;
    } rows[] = {
        {"EnableSound", [](CDecodeWnd& p, bool bOn) { p.EnableSound(bOn ? 1 : 0); }},
        {"ChangePlaySpeed", [](CDecodeWnd& p, bool bOn) { p.ChangePlaySpeed(bOn ? 0 : 1); }},
        {"Pause", [](CDecodeWnd& p, bool) { p.Pause(); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pName);
        player.CloseVideo(0);
        CVirtualWave::ClearPlayed(0);
        ASSERT_EQ(player.OpenVideo(strFile.c_str(), 0, 0, -1), 1);
        Tick(50);
        row.fnSet(player, false);
        Tick(10);   // a frame or a finished buffer comes within 120 ms
        const std::size_t nClosedAt = PlayedSound().size();
        ASSERT_GT(nClosedAt, static_cast<std::size_t>(kSilentSamples));
        Tick(50);
        EXPECT_EQ(PlayedSound().size(), nClosedAt);
        row.fnSet(player, true);
        Tick(50);
        const std::vector<short> played = PlayedSound();
        ASSERT_GT(played.size(), nClosedAt + kSilentSamples + 960);
        const auto itReopened = played.begin() + static_cast<std::ptrdiff_t>(nClosedAt);
        EXPECT_TRUE(std::all_of(itReopened, itReopened + kSilentSamples, [](short s) { return s == 0; }));
        EXPECT_FALSE(std::all_of(itReopened + kSilentSamples, itReopened + kSilentSamples + 960, [](short s) { return s == 0; }));
    }
}

// Frames flagged with sound but without its bytes queue nothing; when the output runs
// low they are run through unseen, and the next frame with sound is shown.
TEST_F(PlayerTest, FramesFlaggedWithoutSoundBytesAreRunThroughUnseen)
{
    std::vector<tag_TESTFRAME> frames = MakeSoundFrames(EvenStamps(6, 1000, 2000));
    frames[1].sound.clear();
    frames[2].sound.clear();
    Open(frames);
    Tick(10);
    std::vector<int> shown;
    for (const tag_PLAYEVENT& event : host.Frames())
        shown.push_back(event.nFrame);
    ASSERT_GE(shown.size(), 2u);
    EXPECT_EQ(shown[0], 0);
    EXPECT_EQ(shown[1], 3);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 1) + std::count(shown.begin(), shown.end(), 2), 0);
}

// A recording made by capture from a virtual board, with the speech of a virtual
// microphone, plays with the pictures CDecoder makes of its records and its sound in
// order on the output.
TEST_F(PlayerTest, CaptureRecordingWithSoundPlaysEndToEnd)
{
    tag_VIRTUALWAVEDEVICE microphone;
    microphone.strName = "microphone";
    microphone.signal.dwSeed = 3;
    CVirtualWave::AddInput(microphone);
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    board.nPacing = PACING_IMMEDIATE;
    CVirtualRack::InstallBoard(board);
    constexpr int kWaveInCamera = 2;   // cameras 0 and 1 of the board take its own sound
    constexpr std::size_t kFrames = 100;
    struct tag_RECORD {
        DWORD dwStamp;
        std::vector<BYTE> video;
        std::vector<BYTE> sound;
    };
    std::vector<tag_RECORD> records;
    {
        CZnFile file("camera", "board", "host");
        CRecorderWnd recorder;
        recorder.m_pfnOnFrame = [&](const tag_ZNCAPTUREFRAME& frame) {
            if (records.size() >= kFrames)
                return;
            if (records.empty() && !file.Open(strFile.c_str(), frame.pInfo, STREAM_REVISION_20020219, ZNFILE_WRITE))
                return;
            const tag_ZNFRAMEDATA& data = *frame.pData;
            if (file.WriteOneFrame(frame.pData) != 1)
                return;
            records.push_back({data.dwTimeStamp, std::vector<BYTE>(data.pVideo, data.pVideo + data.dwVideoLen),
                               std::vector<BYTE>(data.pSound, data.pSound + data.dwSoundLen)});
            clock.Advance(40);   // 25 frames a second
        };
        CVideo video;
        CEncodeParam param;
        param.m_bEncodeSound = 1;
        ASSERT_EQ(video.Open(&recorder, STREAM_REVISION_20020219), ZNRET_OK);
        ASSERT_EQ(video.OpenBoard(0, FRAMESIZE_320X240_R2, 0, nullptr), ZNRET_OK);
        ASSERT_EQ(video.OpenCamera(0, kWaveInCamera, &param, nullptr), ZNRET_OK);
        MSG msg;
        while (records.size() < kFrames) {
            if (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE))
                DispatchMessage(&msg);
            else
                ASSERT_NE(MsgWaitForMultipleObjects(0, nullptr, FALSE, 10000, QS_ALLINPUT), WAIT_TIMEOUT);
        }
        video.CloseCamera(0, kWaveInCamera);
        video.CloseBoard(0);
        file.Close();
    }
    CVirtualRack::Clear();

    // The pictures the decoder makes of the records, by stamp.
    CDecoder decoder;
    ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020219));
    std::map<DWORD, std::vector<BYTE>> pictures;
    std::vector<BYTE> code;
    for (const tag_RECORD& record : records) {
        std::vector<BYTE> picture(320 * 240 * 3);
        decoder.DecodeOneFrame(record.video.data(), static_cast<int>(record.video.size()), picture.data(), FALSE);
        pictures[record.dwStamp] = picture;
        code.insert(code.end(), record.sound.begin(), record.sound.end());
    }
    ASSERT_GT(code.size(), 3000u);

    host.m_nPictureBytes = 320 * 240 * 3;
    int nShown = 0;
    int nMismatches = 0;
    host.m_pfnOnFrame = [&](const tag_PLAYFRAME& play) {
        ++nShown;
        nMismatches += !std::equal(pictures[play.pFrame->dwTimeStamp].begin(), pictures[play.pFrame->dwTimeStamp].end(),
                                   play.pPicture);
    };
    ASSERT_EQ(player.OpenVideo(strFile.c_str(), 0, 0, -1), 1);
    Tick(150);   // 3 s of the 4 s recorded
    EXPECT_EQ(nMismatches, 0);
    EXPECT_GT(nShown, 40);

    const std::vector<short> played = PlayedSound();
    const std::vector<short> expected = DecodeCode(code);
    ASSERT_GT(played.size(), static_cast<std::size_t>(kSilentSamples) + 8000);
    EXPECT_TRUE(std::equal(played.begin() + kSilentSamples, played.end(), expected.begin()));
}
