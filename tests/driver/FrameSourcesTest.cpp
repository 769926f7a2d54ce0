// What the virtual cameras show: UYVY pictures that stay inside the frame, depend only
// on seed and time, and read Y4M footage faithfully; hostile files are refused.
#include "DriverTestSupport.h"

#include "driver/virtual/FrameSources.h"
#include "vocabulary/VideoSignal.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace {

constexpr BYTE kGuard = 0xA5;
constexpr std::size_t kGuardBytes = 64;

// A frame buffer with guard bytes after the frame, to catch writes beyond it.
struct tag_GUARDEDFRAME {
    explicit tag_GUARDEDFRAME(const tag_FRAMEFORMAT& format)
        : nBytes(static_cast<std::size_t>(format.nWidth) * format.nHeight * 2), data(nBytes + kGuardBytes, kGuard)
    {
    }

    bool GuardIntact() const
    {
        return std::all_of(data.begin() + static_cast<std::ptrdiff_t>(nBytes), data.end(),
                           [](BYTE by) { return by == kGuard; });
    }

    BYTE Luma(const tag_FRAMEFORMAT& format, int x, int y) const
    {
        return data[(static_cast<std::size_t>(y) * format.nWidth + x) * 2 + 1];
    }

    std::size_t nBytes;
    std::vector<BYTE> data;
};

tag_GUARDEDFRAME Draw(CFrameSource& source, const tag_FRAMEFORMAT& format, DWORD dwTime)
{
    tag_GUARDEDFRAME frame(format);
    source.WriteFrame(frame.data.data(), format, dwTime);
    return frame;
}

int LargestLumaDifference(const tag_GUARDEDFRAME& first, const tag_GUARDEDFRAME& second)
{
    int nLargest = 0;
    for (std::size_t i = 1; i < first.nBytes; i += 2)
        nLargest = std::max(nLargest, std::abs(first.data[i] - second.data[i]));
    return nLargest;
}

constexpr tag_FRAMEFORMAT kCif{352, 288, DRIVER_STANDARD_PAL};
constexpr tag_FRAMEFORMAT kNtsc{320, 240, DRIVER_STANDARD_NTSC};

TEST(FrameSources, SameSeedGivesSamePicturesAndAnotherSeedOthers)
{
    for (tag_SOURCEKIND nKind : {SOURCE_SYNTHETIC, SOURCE_STILL, SOURCE_NOSIGNAL, SOURCE_FAULTPATTERN}) {
        SCOPED_TRACE(nKind);
        auto pFirst = CreateFrameSource({nKind, 7, ""});
        auto pSecond = CreateFrameSource({nKind, 7, ""});
        auto pOther = CreateFrameSource({nKind, 8, ""});
        for (DWORD dwTime : {0u, 40u, 5000u}) {
            const tag_GUARDEDFRAME first = Draw(*pFirst, kCif, dwTime);
            EXPECT_EQ(first.data, Draw(*pSecond, kCif, dwTime).data);
            EXPECT_NE(first.data, Draw(*pOther, kCif, dwTime).data);
        }
    }
}

TEST(FrameSources, SyntheticSceneMovesWhileStillSceneOnlyFlickers)
{
    auto pScene = CreateFrameSource({SOURCE_SYNTHETIC, 3, ""});
    auto pStill = CreateFrameSource({SOURCE_STILL, 3, ""});
    const tag_GUARDEDFRAME sceneEarly = Draw(*pScene, kCif, 1000);
    const tag_GUARDEDFRAME sceneLate = Draw(*pScene, kCif, 3000);
    const tag_GUARDEDFRAME stillEarly = Draw(*pStill, kCif, 1000);
    const tag_GUARDEDFRAME stillLate = Draw(*pStill, kCif, 3000);

    EXPECT_GT(LargestLumaDifference(sceneEarly, sceneLate), 40) << "objects and clock move";
    EXPECT_LE(LargestLumaDifference(stillEarly, stillLate), 4) << "sensor noise only";
    EXPECT_GT(LargestLumaDifference(stillEarly, stillLate), 0) << "but there is noise";
}

TEST(FrameSources, RunningClockShowsTheTime)
{
    auto pScene = CreateFrameSource({SOURCE_SYNTHETIC, 3, ""});
    // Only the hundredths differ between these two; the clock sits in the top left corner.
    const tag_GUARDEDFRAME first = Draw(*pScene, kNtsc, 100000);
    const tag_GUARDEDFRAME second = Draw(*pScene, kNtsc, 100010);
    int nChangedInClock = 0;
    for (int y = 8; y < 15; ++y) {
        for (int x = 8; x < 8 + 11 * 6; ++x)
            nChangedInClock += std::abs(first.Luma(kNtsc, x, y) - second.Luma(kNtsc, x, y)) > 100 ? 1 : 0;
    }
    EXPECT_GT(nChangedInClock, 3);
}

// The capture side tells a camera without signal by its luma: a dark picture with grey
// chroma stays at or below the threshold, and every scene has most of its luma above.
TEST(FrameSources, OnlyNoSignalStaysAtOrBelowTheSignalThreshold)
{
    const tag_GUARDEDFRAME dark = Draw(*CreateFrameSource({SOURCE_NOSIGNAL, 5, ""}), kCif, 0);
    for (std::size_t i = 0; i < dark.nBytes; i += 2) {
        ASSERT_EQ(dark.data[i], 128) << "chroma at byte " << i;
        ASSERT_LE(dark.data[i + 1], VIDEO_SIGNAL_LUMA) << "luma at byte " << i + 1;
    }
    for (tag_SOURCEKIND nKind : {SOURCE_SYNTHETIC, SOURCE_STILL, SOURCE_FAULTPATTERN}) {
        const tag_GUARDEDFRAME frame = Draw(*CreateFrameSource({nKind, 5, ""}), kNtsc, 0);
        int nBright = 0;
        for (std::size_t i = 1; i < frame.nBytes; i += 2)
            nBright += frame.data[i] > VIDEO_SIGNAL_LUMA ? 1 : 0;
        EXPECT_GT(nBright, static_cast<int>(frame.nBytes / 4)) << nKind;
    }
}

// The four luma bytes of lines 2 to 9 that mark a faulty stream-1 read, at the places of
// each standard.
TEST(FrameSources, FaultPatternSitsInLinesTwoToNine)
{
    struct tag_PLACES {
        tag_FRAMEFORMAT format;
        std::size_t nThird;
        std::size_t nFourth;
    };
    for (const tag_PLACES& places : {tag_PLACES{kCif, 339, 341}, tag_PLACES{kNtsc, 333, 335}}) {
        auto pSource = CreateFrameSource({SOURCE_FAULTPATTERN, 9, ""});
        const tag_GUARDEDFRAME frame = Draw(*pSource, places.format, 0);
        const std::size_t nLine = static_cast<std::size_t>(places.format.nWidth) * 2;
        for (std::size_t y = 2; y <= 9; ++y) {
            EXPECT_EQ(frame.data[y * nLine + 197], 0x27);
            EXPECT_EQ(frame.data[y * nLine + 199], 0x28);
            EXPECT_EQ(frame.data[y * nLine + places.nThird], 0x20);
            EXPECT_EQ(frame.data[y * nLine + places.nFourth], 0x20);
        }
        const bool bLineTenMarked = frame.data[10 * nLine + 197] == 0x27 && frame.data[10 * nLine + 199] == 0x28;
        EXPECT_FALSE(bLineTenMarked);
    }
}

TEST(FrameSources, SmallAndOddFramesStayInsideTheirBuffer)
{
    const tag_FRAMEFORMAT formats[] = {{2, 1, DRIVER_STANDARD_NTSC}, {64, 9, DRIVER_STANDARD_PAL},
                                       {90, 3, DRIVER_STANDARD_NTSC}, {1024, 2, DRIVER_STANDARD_PAL}};
    CY4mFile footage(33, 17, 2, 50);
    for (const tag_FRAMEFORMAT& format : formats) {
        for (tag_SOURCEKIND nKind :
             {SOURCE_SYNTHETIC, SOURCE_STILL, SOURCE_NOSIGNAL, SOURCE_FAULTPATTERN, SOURCE_Y4MFILE}) {
            auto pSource = CreateFrameSource({nKind, 1, footage.GetPath()});
            ASSERT_NE(pSource, nullptr);
            for (DWORD dwTime : {0u, 12345u, 0xFFFFFFF0u})
                EXPECT_TRUE(Draw(*pSource, format, dwTime).GuardIntact()) << format.nWidth << " x " << format.nHeight;
        }
    }
}

TEST(FrameSources, Y4mFramesBecomeUyvyAtTheirOwnSizeAndLoop)
{
    constexpr int kWidth = 32;
    constexpr int kHeight = 16;
    constexpr int kFrames = 3;
    CY4mFile footage(kWidth, kHeight, kFrames, 40);
    auto pSource = CreateFrameSource({SOURCE_Y4MFILE, 0, footage.GetPath()});
    ASSERT_NE(pSource, nullptr);
    const tag_FRAMEFORMAT format{kWidth, kHeight, DRIVER_STANDARD_PAL};
    // The footage runs at 25 frames a second: one every 40 ms.
    for (int nDelivered = 0; nDelivered < 2 * kFrames; ++nDelivered) {
        const int f = nDelivered % kFrames;
        const tag_GUARDEDFRAME frame = Draw(*pSource, format, static_cast<DWORD>(nDelivered) * 40);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; x += 2) {
                const BYTE* pPair = &frame.data[(static_cast<std::size_t>(y) * kWidth + x) * 2];
                ASSERT_EQ(pPair[0], 100 + f) << "U of frame " << f;
                ASSERT_EQ(pPair[1], CY4mFile::LumaAt(40, f, x, y));
                ASSERT_EQ(pPair[2], 150 + f) << "V of frame " << f;
                ASSERT_EQ(pPair[3], CY4mFile::LumaAt(40, f, x + 1, y));
            }
        }
    }
}

TEST(FrameSources, Y4mIsScaledBySampling)
{
    CY4mFile footage(32, 16, 1, 40);
    auto pSource = CreateFrameSource({SOURCE_Y4MFILE, 0, footage.GetPath()});
    const tag_FRAMEFORMAT doubled{64, 32, DRIVER_STANDARD_NTSC};
    const tag_GUARDEDFRAME large = Draw(*pSource, doubled, 0);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 64; ++x)
            ASSERT_EQ(large.Luma(doubled, x, y), CY4mFile::LumaAt(40, 0, x / 2, y / 2));
    }
    const tag_FRAMEFORMAT halved{16, 8, DRIVER_STANDARD_NTSC};
    const tag_GUARDEDFRAME small = Draw(*pSource, halved, 0);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 16; ++x)
            ASSERT_EQ(small.Luma(halved, x, y), CY4mFile::LumaAt(40, 0, x * 2, y * 2));
    }
}

std::string WriteFile(const std::string& strName, const std::string& strContent)
{
    const std::string strPath =
        (std::filesystem::temp_directory_path() / (std::to_string(getpid()) + "-" + strName)).string();
    std::ofstream(strPath, std::ios::binary) << strContent;
    return strPath;
}

TEST(FrameSources, RefusesY4mFilesThatAreNot8Bit420OrAreBroken)
{
    // 4 x 2 luma samples and two chroma planes of 2 x 1.
    const std::string strFrame = "FRAME\n" + std::string(4 * 2 + 2 * 2, '\x50');
    const std::pair<const char*, std::string> files[] = {
        {"empty", ""},
        {"nomagic", "YUV4MPEG W4 H2\n" + strFrame},
        {"nowidth", "YUV4MPEG2 H2\n" + strFrame},
        {"zerowidth", "YUV4MPEG2 W0 H2\n" + strFrame},
        {"negative", "YUV4MPEG2 W-4 H2\n" + strFrame},
        {"huge", "YUV4MPEG2 W100000 H100000\n" + strFrame},
        {"toowide", "YUV4MPEG2 W4097 H2\n" + strFrame},
        {"garbage", "YUV4MPEG2 W4x H2\n" + strFrame},
        {"c422", "YUV4MPEG2 W4 H2 C422\n" + strFrame},
        {"zerorate", "YUV4MPEG2 W4 H2 F0:1\n" + strFrame},
        {"norate", "YUV4MPEG2 W4 H2 F25\n" + strFrame},
        {"c420p10", "YUV4MPEG2 W4 H2 C420p10\n" + strFrame},
        {"mono", "YUV4MPEG2 W4 H2 Cmono\n" + strFrame},
        {"noframe", "YUV4MPEG2 W4 H2\n"},
        {"shortframe", "YUV4MPEG2 W4 H2\nFRAME\n\x50\x50\x50"},
        {"badframe", "YUV4MPEG2 W4 H2\nFRAMX\n" + std::string(12, '\x50')},
        {"endlessheader", "YUV4MPEG2 W4 H2 " + std::string(100000, 'X')},
    };
    for (const auto& [strName, strContent] : files) {
        const std::string strPath = WriteFile(strName, strContent);
        std::string strError;
        EXPECT_EQ(CreateFrameSource({SOURCE_Y4MFILE, 0, strPath}, &strError), nullptr) << strName;
        // The reason names the file and says what is wrong with it.
        EXPECT_EQ(strError.rfind(strPath + ": ", 0), 0u) << strError;
        EXPECT_GT(strError.size(), strPath.size() + 10) << strError;
        std::filesystem::remove(strPath);
    }
    std::string strError;
    EXPECT_EQ(CreateFrameSource({SOURCE_Y4MFILE, 0, "/nonexistent/a.y4m"}, &strError), nullptr);
    EXPECT_EQ(strError, "/nonexistent/a.y4m: No such file or directory");
    const std::string strGood = WriteFile("good", "YUV4MPEG2 W4 H2 C420mpeg2 XYSCSS=420MPEG2\n" + strFrame);
    EXPECT_NE(CreateFrameSource({SOURCE_Y4MFILE, 0, strGood}), nullptr);
    std::filesystem::remove(strGood);
}

TEST(FrameSources, Y4mWithATruncatedLastFrameLoopsOverTheWholeFrames)
{
    CY4mFile footage(4, 2, 2, 60, true);
    {
        std::ofstream append(footage.GetPath(), std::ios::binary | std::ios::app);
        append << "FRAME\n\x01\x02";
    }
    auto pSource = CreateFrameSource({SOURCE_Y4MFILE, 0, footage.GetPath()});
    ASSERT_NE(pSource, nullptr);
    const tag_FRAMEFORMAT format{4, 2, DRIVER_STANDARD_NTSC};
    const int nExpected[] = {60, 70, 60, 70, 60};
    DWORD dwTime = 0;
    for (int nLuma : nExpected) {
        EXPECT_EQ(Draw(*pSource, format, dwTime).Luma(format, 0, 0), nLuma);
        dwTime += 40;
    }
}

// Footage of 25 frames a second drawn at the times a stream delivers: at 30 frames a
// second some frames come twice, at 10 some never come, and the file starts over at its
// end. The clock starts at the first frame asked for, across the tick count's wrap.
TEST(FrameSources, FootageRunsAtItsOwnRateAgainstTheCaptureClock)
{
    CY4mFile footage(4, 2, 4, 40, true);
    const tag_FRAMEFORMAT format{4, 2, DRIVER_STANDARD_NTSC};
    struct {
        DWORD dwFirst;
        DWORD dwStep;
        std::vector<int> frames;
    } const cases[] = {
        {5000, 0, {0, 0, 0}},
        {5000, 1000 / 30 + 1, {0, 0, 1, 2, 3, 0, 1, 1}},
        {0xFFFFFFF0u, 100, {0, 2, 1, 3, 2}},
        {7, 40, {0, 1, 2, 3, 0, 1}},
    };
    for (const auto& c : cases) {
        auto pSource = CreateFrameSource({SOURCE_Y4MFILE, 0, footage.GetPath()});
        ASSERT_NE(pSource, nullptr);
        DWORD dwTime = c.dwFirst;
        for (std::size_t i = 0; i < c.frames.size(); ++i) {
            EXPECT_EQ(Draw(*pSource, format, dwTime).Luma(format, 0, 0), 40 + 10 * c.frames[i])
                << "step " << c.dwStep << " frame " << i;
            dwTime += c.dwStep;
        }
    }
    // A rate of 30000/1001: frame 1 is due 33.37 ms after frame 0, so not at 33 ms.
    const std::string strHeader = "YUV4MPEG2 W4 H2 F30000:1001\n";
    std::string strContent = strHeader;
    for (char chLuma : {'\x10', '\x20'})
        strContent += "FRAME\n" + std::string(8, chLuma) + std::string(4, '\x80');
    const std::string strPath = WriteFile("ntsc.y4m", strContent);
    auto pNtsc = CreateFrameSource({SOURCE_Y4MFILE, 0, strPath});
    ASSERT_NE(pNtsc, nullptr);
    EXPECT_EQ(Draw(*pNtsc, format, 100).Luma(format, 0, 0), 0x10);
    EXPECT_EQ(Draw(*pNtsc, format, 133).Luma(format, 0, 0), 0x10);
    EXPECT_EQ(Draw(*pNtsc, format, 134).Luma(format, 0, 0), 0x20);
    std::filesystem::remove(strPath);
}

// Raw UYVY footage of 8 x 4: frame f holds byte i as f * 64 + i % 64.
TEST(FrameSources, RawUyvyFramesAreDeliveredLoopedAndScaled)
{
    constexpr int kWidth = 8;
    constexpr int kHeight = 4;
    constexpr int kFrameBytes = kWidth * kHeight * 2;
    std::string strContent;
    for (int f = 0; f < 2; ++f) {
        for (int i = 0; i < kFrameBytes; ++i)
            strContent.push_back(static_cast<char>(f * 64 + i % 64));
    }
    const std::string strPath = WriteFile("raw.uyvy", strContent);
    auto pSource = CreateFrameSource({SOURCE_UYVYFILE, 0, strPath, kWidth, kHeight});
    ASSERT_NE(pSource, nullptr);
    const tag_FRAMEFORMAT same{kWidth, kHeight, DRIVER_STANDARD_NTSC};
    // Raw footage runs at 25 frames a second unless told otherwise.
    DWORD dwTime = 0;
    for (int f : {0, 1, 0}) {
        const tag_GUARDEDFRAME frame = Draw(*pSource, same, dwTime);
        dwTime += 40;
        for (int i = 0; i < kFrameBytes; ++i)
            ASSERT_EQ(frame.data[i], f * 64 + i % 64) << "frame " << f << " byte " << i;
    }
    const tag_FRAMEFORMAT doubled{2 * kWidth, 2 * kHeight, DRIVER_STANDARD_NTSC};
    const tag_GUARDEDFRAME large = Draw(*pSource, doubled, dwTime);
    for (int y = 0; y < 2 * kHeight; ++y) {
        for (int x = 0; x < 2 * kWidth; ++x) {
            const int nSource = (y / 2 * kWidth + x / 2) * 2;
            ASSERT_EQ(large.Luma(doubled, x, y), 64 + (nSource + 1) % 64);
            if (x % 2 == 0) {
                ASSERT_EQ(large.data[(y * 2 * kWidth + x) * 2], 64 + (nSource & ~3) % 64) << "U of the pair";
            }
        }
    }
    EXPECT_TRUE(large.GuardIntact());

    EXPECT_EQ(CreateFrameSource({SOURCE_UYVYFILE, 0, strPath, kWidth - 1, kHeight}), nullptr) << "odd width";
    EXPECT_EQ(CreateFrameSource({SOURCE_UYVYFILE, 0, strPath, 0, kHeight}), nullptr);
    EXPECT_EQ(CreateFrameSource({SOURCE_UYVYFILE, 0, strPath, kWidth, 3 * kHeight}), nullptr)
        << "shorter than one frame";
    std::filesystem::remove(strPath);
}

} // namespace
