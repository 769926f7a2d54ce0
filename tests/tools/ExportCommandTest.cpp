// zndvr export, run in process on recordings of flat pictures and a tone: the sound
// lies on the stamps, pictures follow the steady rate, and the files read back by
// independent readers (sox, ffmpeg) where those are installed.
#include "tools/Commands.h"
#include "tools/ExportWriters.h"

#include "playback/TestRecordings.h"
#include "sound/CAdpcm.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

using namespace playback_test;

namespace {

constexpr int kCodeBytesPerFrame = 360;   // 120 ms

int RunExport(std::vector<std::string> args)
{
    std::vector<char*> argv;
    for (std::string& strArg : args)
        argv.push_back(strArg.data());
    return RunExportCommand(argv);
}

std::vector<BYTE> ReadAll(const std::string& strPath)
{
    std::ifstream stream(strPath, std::ios::binary);
    return std::vector<BYTE>((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
}

// The first line a command prints, or empty when it fails.
std::string RunPeer(const std::string& strCommand)
{
    FILE* pPipe = popen((strCommand + " 2>/dev/null").c_str(), "r");
    char szLine[256] = {};
    const bool bRead = pPipe != nullptr && std::fgets(szLine, sizeof szLine, pPipe) != nullptr;
    const bool bExited = pPipe != nullptr && pclose(pPipe) == 0;
    return bRead && bExited ? std::string(szLine, std::strcspn(szLine, "\n")) : std::string();
}

bool IsInstalled(const char* pProgram)
{
    return std::system((std::string(pProgram) + " --version > /dev/null 2>&1").c_str()) == 0 ||
           std::system((std::string(pProgram) + " -version > /dev/null 2>&1").c_str()) == 0;
}

class ExportTest : public ::testing::Test {
protected:
    // Frames 120 ms apart, each with 120 ms of a tone, but for frame 3, which has none.
    void WriteSoundRecording()
    {
        frames = MakeFrames(EvenStamps(6, 5000, 120));
        CAdpcm encoder;
        ASSERT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
        std::vector<short> tone(kCodeBytesPerFrame / 3 * 8);
        for (std::size_t f = 0; f < frames.size(); ++f) {
            for (std::size_t i = 0; i < tone.size(); ++i)
                tone[i] = static_cast<short>(8000 * std::sin(0.2 * static_cast<double>(f * tone.size() + i)));
            frames[f].sound.resize(kCodeBytesPerFrame);
            ASSERT_EQ(encoder.Encode(tone.data(), frames[f].sound.data(), static_cast<int>(tone.size()), 0), 1);
            frames[f].wFlags = ZNFRAME_SOUND;
        }
        frames[3].wFlags = 0;
        frames[3].sound.clear();
        WriteRecording(strFile, frames);
    }

    CTempDir dir;
    std::string strFile = dir.Path("rec.zn");
    std::vector<tag_TESTFRAME> frames;
};

} // namespace

// The sound of each frame ends at its stamp; silence fills the frame without sound, and
// the sound after it starts a fresh decoder. Loud code saturates at the 16-bit limits.
TEST_F(ExportTest, WavHoldsTheSoundOnTheStampsAtTheInputLevel)
{
    WriteSoundRecording();
    frames[5].sound.assign(kCodeBytesPerFrame, 0x77);
    frames[2].video.clear();   // a picture that doesn't decode keeps its sound
    WriteRecording(strFile, frames);
    const std::string strWav = dir.Path("out.wav");
    ASSERT_EQ(RunExport({strFile, "-o", strWav}), 0);
    constexpr int kFrameSamples = kCodeBytesPerFrame / 3 * 8;
    std::vector<short> expected;
    auto pDecoder = std::make_unique<CAdpcm>();
    ASSERT_EQ(pDecoder->Init(CAdpcm::kModeDecoder), 1);
    for (const tag_TESTFRAME& frame : frames) {
        std::vector<short> samples(kFrameSamples, 0);
        if (frame.sound.empty()) {
            pDecoder = std::make_unique<CAdpcm>();
            ASSERT_EQ(pDecoder->Init(CAdpcm::kModeDecoder), 1);
        } else {
            ASSERT_EQ(pDecoder->Decode(frame.sound.data(), samples.data(), kCodeBytesPerFrame, 0), 1);
        }
        for (short sSample : samples)
            expected.push_back(static_cast<short>(std::clamp(sSample * 4, -32768, 32767)));
    }
    const std::vector<BYTE> wav = ReadAll(strWav);
    ASSERT_EQ(wav.size(), 44 + expected.size() * 2);
    const auto le32 = [&](std::size_t n) { return wav[n] | wav[n + 1] << 8 | wav[n + 2] << 16 | wav[n + 3] << 24; };
    EXPECT_EQ(std::string(wav.begin(), wav.begin() + 4), "RIFF");
    EXPECT_EQ(le32(24), 8000);
    EXPECT_EQ(le32(40), static_cast<int>(wav.size()) - 44);
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_EQ(static_cast<short>(wav[44 + 2 * i] | wav[45 + 2 * i] << 8), expected[i]) << i;
    EXPECT_NE(std::count(expected.begin(), expected.end(), 32767), 0);
    std::filesystem::create_symlink("/dev/full", dir.Path("full.wav"));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(RunExport({strFile, "-o", dir.Path("full.wav")}), 1);
    EXPECT_NE(::testing::internal::GetCapturedStderr().find("full.wav: No space left on device"), std::string::npos);
    if (IsInstalled("soxi")) {
        EXPECT_EQ(RunPeer("soxi -D '" + strWav + "'"), "0.720000");
    }
}

// At 10 pictures a second, frames 200 ms apart each fill two; a lost frame is black.
TEST_F(ExportTest, Y4mShowsEachFrameFromItsStampOn)
{
    frames = MakeFrames({100, 300, 500});
    frames[1].wFlags = ZNFRAME_LOST;
    frames[1].video.clear();
    WriteRecording(strFile, frames);
    const std::string strY4m = dir.Path("out.y4m");
    ASSERT_EQ(RunExport({strFile, "-o", strY4m, "--fps", "10"}), 0);
    const std::vector<BYTE> y4m = ReadAll(strY4m);
    const std::string strHead = "YUV4MPEG2 W160 H112 F10:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n";
    ASSERT_EQ(std::string(y4m.begin(), y4m.begin() + static_cast<std::ptrdiff_t>(strHead.size())), strHead);
    const std::size_t nFrameBytes = 6 + 160 * 112 * 3 / 2;
    ASSERT_EQ(y4m.size(), strHead.size() + 5 * nFrameBytes);
    const int expectedLuma[] = {kFirstLuma, kFirstLuma, 0, 0, kFirstLuma + 4};
    for (int n = 0; n < 5; ++n) {
        const BYTE* pFrame = y4m.data() + strHead.size() + static_cast<std::size_t>(n) * nFrameBytes;
        EXPECT_EQ(std::string(pFrame, pFrame + 6), "FRAME\n");
        EXPECT_EQ(pFrame[6], expectedLuma[n]) << n;
        EXPECT_NEAR(pFrame[6 + 160 * 112], 128, 1) << n;   // U of neutral chroma
    }
    // Without --fps, the recording's own rate: two gaps of 200 ms.
    ASSERT_EQ(RunExport({strFile, "-o", strY4m}), 0);
    const std::vector<BYTE> ownRate = ReadAll(strY4m);
    EXPECT_EQ(std::string(ownRate.begin(), ownRate.begin() + 25), "YUV4MPEG2 W160 H112 F5:1 ");
}

TEST_F(ExportTest, FFmpegReadsTheContainerAndTheH263Stream)
{
    if (!IsInstalled("ffmpeg") || !IsInstalled("ffprobe"))
        GTEST_SKIP() << "ffmpeg is not installed";
    WriteSoundRecording();
    const std::string strMp4 = dir.Path("out.mp4");
    ASSERT_EQ(RunExport({strFile, "-o", strMp4}), 0);
    EXPECT_EQ(RunPeer("ffprobe -v error -show_entries stream=codec_type -of csv=p=0 '" + strMp4 + "' | sort | tr '\\n' ' '"),
              "audio video ");
    EXPECT_FALSE(std::filesystem::exists(strMp4 + ".sound.wav"));
    const std::string strH263 = dir.Path("out.h263");
    ASSERT_EQ(RunExport({strFile, "-o", strH263, "--h263"}), 0);
    EXPECT_EQ(RunPeer("ffprobe -v error -f h263 -count_frames -show_entries stream=nb_read_frames,width -of csv=p=0 '" +
                      strH263 + "'"),
              "160,6");
}

TEST_F(ExportTest, PngFramesAreNumberedByThePattern)
{
    if (!CPngWriter::IsAvailable())
        GTEST_SKIP() << "built without libpng";
    frames = MakeFrames(EvenStamps(3, 0, 40));
    WriteRecording(strFile, frames);
    ASSERT_EQ(RunExport({strFile, "-o", dir.Path("f%03d.png")}), 0);
    for (int n = 0; n < 3; ++n) {
        const std::vector<BYTE> png = ReadAll(dir.Path("f00" + std::to_string(n) + ".png"));
        ASSERT_GT(png.size(), 24u);
        EXPECT_EQ(std::string(png.begin() + 1, png.begin() + 4), "PNG");
        EXPECT_EQ(png[16] << 24 | png[17] << 16 | png[18] << 8 | png[19], 160);   // IHDR width
    }
    EXPECT_FALSE(std::filesystem::exists(dir.Path("f003.png")));
}

TEST_F(ExportTest, RefusalsNameTheFileAndTheReason)
{
    frames = MakeFrames(EvenStamps(3, 0, 40));
    WriteRecording(strFile, frames);
    frames[1].video = MakeFlatPicture(160, 112, 0);   // an intra DC of 0
    WriteRecording(dir.Path("dc0.zn"), frames);
    std::filesystem::create_symlink("/dev/full", dir.Path("full.y4m"));
    std::filesystem::create_symlink("/dev/full", dir.Path("full.h263"));
    const struct {
        std::vector<std::string> args;
        int nExit;
        std::string strMessage;
    } rows[] = {
        {{dir.Path("none.zn"), "-o", dir.Path("a.y4m")}, 1, "none.zn can't be read as a recording"},
        {{strFile, "-o", dir.Path("a.txt")}, 2, "a.txt: no known format"},
        {{strFile, "-o", dir.Path("a.png")}, 2,
         CPngWriter::IsAvailable() ? "a.png: needs one number pattern" : "built without libpng"},
        {{strFile, "-o", dir.Path("a.y4m"), "--fps", "0"}, 2, "--fps 0"},
        {{strFile, "-o", dir.Path("a.wav")}, 1, "rec.zn has no sound"},
        {{strFile}, 2, "usage: zndvr export"},
        {{strFile, "more.zn", "-o", dir.Path("a.y4m")}, 2, "more.zn: unknown or incomplete argument"},
        {{strFile, "-o", dir.Path("full.y4m")}, 1, "full.y4m: No space left on device"},
        {{strFile, "-o", dir.Path("full.h263"), "--h263"}, 1, "full.h263: No space left on device"},
        {{dir.Path("dc0.zn"), "-o", dir.Path("a.h263"), "--h263"}, 1,
         "block 0 frame 1 holds values H.263 can't carry; left out up to the next key frame"},
    };
    for (const auto& row : rows) {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(RunExport(row.args), row.nExit);
        EXPECT_NE(::testing::internal::GetCapturedStderr().find(row.strMessage), std::string::npos) << row.strMessage;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.Path("a.wav")));
}
