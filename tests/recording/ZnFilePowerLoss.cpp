// A power cut at any moment of a recording, simulated by the disk simulator: what was
// synced stays, and any part of what wasn't, torn at sector boundaries and in any order.
// At each cut the file must open and read back, exactly, every block whose WriteOneFrame
// had returned, and after them nothing but frames as they were written.
#include "RecordingTestSupport.h"

#include "platform/CDiskSimulator.h"

#include <cstdio>
#include <random>

namespace {

constexpr DWORD kDefaultSeed = 20130219;
constexpr DWORD kFrames = 900;
constexpr DWORD kMaxBlockFrames = 12;
constexpr DWORD kMinCuts = 500;

DWORD GetSeed()
{
    const char* pSeed = std::getenv("ZNDVR_CRASH_SEED");
    return pSeed != nullptr ? static_cast<DWORD>(std::strtoul(pSeed, nullptr, 10)) : kDefaultSeed;
}

// Blocks of 1 to kMaxBlockFrames frames of up to 900 bytes, so that records, frames and
// block changes fall across sector boundaries everywhere.
std::vector<TestFrame> MakeFrames(std::mt19937& random, DWORD dwSeed)
{
    std::vector<TestFrame> frames;
    DWORD dwLeftInBlock = 0;
    for (DWORD i = 0; i < kFrames; ++i) {
        frames.push_back(MakeSequenceFrame(i, dwSeed, 900));
        const bool bBlockStart = dwLeftInBlock == 0;
        if (bBlockStart)
            dwLeftInBlock = 1 + random() % kMaxBlockFrames;
        --dwLeftInBlock;
        frames.back().wFrameType = bBlockStart ? ZNFRAME_I : ZNFRAME_P;
    }
    return frames;
}

// The image read from the start: exactly the frames written, at least dwStored of them.
::testing::AssertionResult ReadsBack(const std::string& strImage, const std::vector<TestFrame>& frames,
                                     DWORD dwStored)
{
    CZnFile reader;
    if (OpenToRead(reader, strImage) != 1) {
        if (dwStored == 0)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "doesn't open with " << dwStored << " frames stored";
    }
    FrameBuffers buffers(reader);
    DWORD dwRead = 0;
    while (reader.ReadOneFrame(buffers.Frame(), -1, 0) == 1) {
        if (dwRead >= frames.size() || !FrameEquals(*buffers.Frame(), frames[dwRead]))
            return ::testing::AssertionFailure() << "frame " << dwRead << " isn't as written";
        ++dwRead;
    }
    if (dwRead < dwStored)
        return ::testing::AssertionFailure() << dwRead << " frames read of " << dwStored << " stored";
    return ::testing::AssertionSuccess();
}

TEST(ZnFilePowerLoss, EveryStoredBlockSurvivesACutAtAnyMoment)
{
    const DWORD dwSeed = GetSeed();
    std::printf("power-loss seed %u (set ZNDVR_CRASH_SEED to repeat another)\n", dwSeed);
    std::mt19937 random(dwSeed);
    const std::vector<TestFrame> frames = MakeFrames(random, dwSeed);
    TempDir dir(GetSimulationBase());
    const std::string strPath = dir.Path("power.zn");
    const std::string strImage = dir.Path("image.zn");

    CDiskSimulator disk;
    DWORD dwStored = 0;
    DWORD dwCuts = 0;
    auto cut = [&](DWORD dwOperation) {
        std::vector<BYTE> image;
        if (!disk.MakeCrashImage(strPath.c_str(), random, image)) {
            EXPECT_EQ(dwStored, 0u) << "the name is lost at operation " << dwOperation;
            return;
        }
        WriteFileBytes(strImage, image, image.size());
        EXPECT_TRUE(ReadsBack(strImage, frames, dwStored)) << "cut at operation " << dwOperation;
        ++dwCuts;
    };
    disk.SetOperationHook(cut);

    CZnFile file;
    ASSERT_EQ(OpenToWrite(file, strPath), 1);
    for (DWORD i = 0; i < frames.size(); ++i) {
        ASSERT_EQ(WriteTestFrame(file, frames[i]), 1);
        // A key frame taken means the block before it is stored.
        if (frames[i].wFrameType == ZNFRAME_I)
            dwStored = i;
    }
    ASSERT_EQ(file.Close(), 1);
    disk.SetOperationHook(nullptr);
    dwStored = kFrames;
    cut(disk.GetOperationCount());
    std::printf("%u simulated power cuts survived\n", dwCuts);
    EXPECT_GE(dwCuts, kMinCuts);
}

} // namespace
