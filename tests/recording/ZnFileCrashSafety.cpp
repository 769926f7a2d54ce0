// A recorder killed at any moment leaves a file that opens and holds, exactly, every
// block closed before the kill. The recorder is a forked child that writes the endless
// test sequence and reports each frame it stored through a pipe; the parent kills it
// with SIGKILL once it has stored a random number of frames.
#include "RecordingTestSupport.h"

#include <csignal>
#include <cstdio>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kRuns = 80;
constexpr DWORD kKeyFrameInterval = 160;
constexpr DWORD kDefaultSeed = 20021114;
// A child that is never killed stops by itself after this many frames.
constexpr DWORD kChildFrameLimit = 20000;

DWORD GetSeed()
{
    const char* pSeed = std::getenv("ZNDVR_CRASH_SEED");
    return pSeed != nullptr ? static_cast<DWORD>(std::strtoul(pSeed, nullptr, 10)) : kDefaultSeed;
}

[[noreturn]] void RunRecorder(const std::string& strPath, DWORD dwSeed, int nReportFd)
{
    tag_CAMERAINFO info = MakeCameraInfo();
    CZnFile file("camera", "board", "host");
    if (file.Open(strPath.c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE) != 1)
        _exit(2);
    for (DWORD i = 0; i < kChildFrameLimit; ++i) {
        TestFrame frame = MakeSequenceFrame(i, dwSeed);
        if (WriteTestFrame(file, frame) != 1)
            _exit(3);
        if (write(nReportFd, &i, sizeof(i)) != sizeof(i))
            _exit(4);
    }
    _exit(0);
}

// Reads reports until the child has stored frame dwTarget; returns the last frame reported.
DWORD WaitForFrame(int nReportFd, DWORD dwTarget)
{
    DWORD dwLast = 0;
    DWORD dwReport = 0;
    while (read(nReportFd, &dwReport, sizeof(dwReport)) == sizeof(dwReport)) {
        dwLast = dwReport;
        if (dwLast >= dwTarget)
            break;
    }
    return dwLast;
}

TEST(ZnFileCrashSafety, KilledRecorderLeavesEveryClosedBlock)
{
    const DWORD dwSeed = GetSeed();
    std::printf("crash test seed %u (set ZNDVR_CRASH_SEED to repeat another)\n", dwSeed);
    std::mt19937 random(dwSeed);
    TempDir dir(GetSimulationBase());
    for (int nRun = 0; nRun < kRuns; ++nRun) {
        SCOPED_TRACE(testing::Message() << "run " << nRun << " seed " << dwSeed);
        const std::string strPath = dir.Path("crash" + std::to_string(nRun) + ".zn");
        const DWORD dwRunSeed = dwSeed + static_cast<DWORD>(nRun);
        // At least one block closed; the kill lands anywhere in the block after it,
        // block changes included.
        const DWORD dwTarget = kKeyFrameInterval * (1 + random() % 3) + random() % kKeyFrameInterval;

        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            RunRecorder(strPath, dwRunSeed, fds[1]);
        }
        close(fds[1]);
        const DWORD dwLastStored = WaitForFrame(fds[0], dwTarget);
        kill(pid, SIGKILL);
        int nStatus = 0;
        waitpid(pid, &nStatus, 0);
        close(fds[0]);
        ASSERT_GE(dwLastStored, dwTarget) << "the recorder stopped early, status " << nStatus;

        // Frame dwLastStored was taken, so every block before its own was closed.
        const DWORD dwClosedBlocks = dwLastStored / kKeyFrameInterval;
        CZnFile file;
        ASSERT_EQ(file.Open(strPath.c_str(), nullptr, 0, ZNFILE_READ), 1);
        ASSERT_GE(file.GetTotalBlock(), dwClosedBlocks + 1);
        ASSERT_GE(file.GetTotalFrameNum(), dwClosedBlocks * kKeyFrameInterval);
        FrameBuffers buffers(file);
        DWORD nRead = 0;
        while (file.ReadOneFrame(buffers.Frame(), -1, 0) == 1) {
            ASSERT_TRUE(FrameEquals(*buffers.Frame(), MakeSequenceFrame(nRead, dwRunSeed))) << "frame " << nRead;
            ++nRead;
        }
        // A kill inside a block change leaves that block whole or not in the chain at all.
        EXPECT_GE(nRead, dwClosedBlocks * kKeyFrameInterval);
        EXPECT_EQ(nRead % kKeyFrameInterval, 0u);
        EXPECT_LE(nRead, file.GetTotalFrameNum());
        std::remove(strPath.c_str());
    }
}

} // namespace
