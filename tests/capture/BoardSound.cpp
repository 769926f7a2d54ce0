// Cameras that take the board's own sound: their frames carry the board's code as a
// wave-in camera's carry its device's, and the file written from them holds each input's
// signal coded in one piece.
#include "CaptureTestSupport.h"

#include "platform/TickClock.h"
#include "recording/CZnFile.h"
#include "sound/CAdpcmSpeechEncoder.h"
#include "sound/CWaveCodec.h"

#include <filesystem>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

// Every other thread is waiting: two stream pumps, two encoder threads, the voice thread.
constexpr int kOtherThreads = 5;
constexpr DWORD kFrameMs = 40;

WAVEFORMATEX SpeechFormat()
{
    WAVEFORMATEX format{};
    CWaveCodec::GetSoundFmt(SOUNDFMT_ADPCM, &format);
    return format;
}

std::vector<short> InputSignal(const tag_WAVESIGNAL& signal, std::size_t nSamples)
{
    CWaveSignal input;
    EXPECT_TRUE(input.Open(signal, SpeechFormat()));
    std::vector<short> pcm(nSamples);
    input.Generate(reinterpret_cast<BYTE*>(pcm.data()), static_cast<DWORD>(nSamples));
    return pcm;
}

std::vector<BYTE> CodeInOnePiece(const std::vector<short>& pcm)
{
    std::unique_ptr<CSpeechEncoder> pEncoder = CAdpcmSpeechEncoder::Create();
    std::vector<BYTE> code(pcm.size() / 8 * 3);
    for (std::size_t n = 0; n < pcm.size(); n += 960)
        pEncoder->Encode(&pcm[n], &code[n / 8 * 3], 960);
    return code;
}

class BoardSound : public CCaptureTest {
protected:
    void SetUp() override
    {
        CCaptureTest::SetUp();
        tag_VIRTUALBOARD board = MakeCaptureBoard(4, 2);
        board.sound.pfnCreateEncoder = &CAdpcmSpeechEncoder::Create;
        board.sound.inputs[1].nKind = WAVESIGNAL_TONE;
        m_inputs[0] = board.sound.inputs[0];
        m_inputs[1] = board.sound.inputs[1];
        // A frame lets 40 ms pass once every other thread is waiting: the voice thread
        // never falls behind the clock, however busy the machine.
        m_host.m_pfnOnFrame = [this](HWND, tag_ZNCAPTUREFRAME* pFrame) {
            ASSERT_TRUE(CTestClock::WaitForIdleThreads(kOtherThreads));
            m_clock.Advance(kFrameMs);
            const int nCamera = pFrame->pInfo->nCamera;
            if (m_files[nCamera] == nullptr) {
                m_files[nCamera] = std::make_unique<CZnFile>();
                ASSERT_EQ(m_files[nCamera]->Open(Path(nCamera).c_str(), pFrame->pInfo, STREAM_REVISION_20020219, ZNFILE_WRITE), 1);
            }
            ASSERT_EQ(m_files[nCamera]->WriteOneFrame(pFrame->pData), 1);
            m_nFlagged[nCamera] += (pFrame->pData->wFlags & ZNFRAME_SOUND) != 0;
        };
        std::filesystem::create_directories(m_dir);
        ASSERT_TRUE(OpenOn(m_video, m_host, board, FRAMESIZE_320X240_R2));
        CEncodeParam param;
        param.m_bEncodeSound = 1;
        for (int nCamera = 0; nCamera < 2; ++nCamera)
            ASSERT_EQ(m_video.OpenCamera(0, nCamera, &param, nullptr), ZNRET_OK);
    }

    void TearDown() override
    {
        m_video.CloseBoard(0);
        std::filesystem::remove_all(m_dir);
        CCaptureTest::TearDown();
    }

    std::string Path(int nCamera) const { return (m_dir / ("camera" + std::to_string(nCamera) + ".zn")).string(); }

    // The sound of a recording file, frame after frame.
    std::vector<BYTE> RecordedSound(int nCamera)
    {
        CZnFile reader;
        tag_CAMERAINFO info{};
        EXPECT_EQ(reader.Open(Path(nCamera).c_str(), &info, STREAM_REVISION_20020219, ZNFILE_READ), 1);
        std::vector<BYTE> video(320 * 240 * 2);
        std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
        tag_ZNFRAMEDATA frame{};
        frame.pVideo = video.data();
        frame.pSound = sound.data();
        std::vector<BYTE> code;
        while (reader.ReadOneFrame(&frame, -1, 0) == 1)
            code.insert(code.end(), frame.pSound, frame.pSound + frame.dwSoundLen);
        return code;
    }

    CTestClock m_clock{20000};
    CHostWindow m_host;
    CVideo m_video;
    tag_WAVESIGNAL m_inputs[2];
    std::unique_ptr<CZnFile> m_files[2];
    int m_nFlagged[2] = {};
    std::filesystem::path m_dir = std::filesystem::temp_directory_path() / ("zndvr-boardsound-" + std::to_string(::getpid()));
};

TEST_F(BoardSound, RecordingsHoldEachInputsSignalCodedInOnePiece)
{
    // 6 s of clock: both cameras deliver frames, each advancing it by 40 ms.
    ASSERT_TRUE(PumpUntil([this] { return m_clock.GetTime() >= 26000; }));
    m_video.CloseCamera(0, 0);
    m_video.CloseCamera(0, 1);
    m_files[0]->Close();
    m_files[1]->Close();

    std::vector<BYTE> code[2];
    for (int nCamera = 0; nCamera < 2; ++nCamera) {
        code[nCamera] = RecordedSound(nCamera);
        EXPECT_GT(m_nFlagged[nCamera], 10) << "frames carry the flag as from a wave-in device";
        // The polls took all but the last few blocks, whole blocks, nothing twice.
        ASSERT_EQ(code[nCamera].size() % 360, 0u);
        ASSERT_GE(code[nCamera].size(), (6000u - 400) / 120 * 360) << "camera " << nCamera;
        const std::vector<short> pcm = InputSignal(m_inputs[nCamera], code[nCamera].size() / 3 * 8);
        EXPECT_EQ(code[nCamera], CodeInOnePiece(pcm)) << "camera " << nCamera;
    }
}

} // namespace
