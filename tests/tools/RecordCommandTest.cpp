// zndvr record as a user runs it, in a process of its own: arguments that are refused by
// name, inputs and stores checked before anything is recorded, stop signals and a failing
// disk that end the run with everything recorded kept, and footage recorded at its own
// size and speed next to a camera without signal.
#include "recording/CZnFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// How a run of the tool ended and what it printed on its output and error together.
struct tag_TOOLRUN {
    int nStatus;  // the exit status, or 128 + the signal that ended it
    std::string strOut;
};

// What a run is to meet: a stop signal sent once the output has shown nLines lines, and
// a largest file size (0 for none), beyond which writes fail.
struct tag_RUNEVENTS {
    int nSignal = 0;
    int nLines = 0;
    rlim_t nFileLimit = 0;
};

tag_TOOLRUN RunTool(const std::vector<std::string>& args, const tag_RUNEVENTS& events = {})
{
    int out[2];
    if (pipe(out) != 0)
        return {-1, "no pipe"};
    const pid_t pid = fork();
    if (pid == 0) {
        // The tool ends with the test, also with one stopped for hanging.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        close(out[0]);
        close(out[1]);
        if (events.nFileLimit != 0) {
            const rlimit limit{events.nFileLimit, events.nFileLimit};
            setrlimit(RLIMIT_FSIZE, &limit);
            // A write past the limit then fails as on a full disk instead of killing.
            std::signal(SIGXFSZ, SIG_IGN);
        }
        std::vector<char*> argv{const_cast<char*>(ZNDVR_TOOL_PATH), const_cast<char*>("record")};
        for (const std::string& strArg : args)
            argv.push_back(const_cast<char*>(strArg.c_str()));
        argv.push_back(nullptr);
        execv(ZNDVR_TOOL_PATH, argv.data());
        _exit(127);
    }
    close(out[1]);
    tag_TOOLRUN run{-1, ""};
    int nLines = 0;
    char ch = 0;
    while (read(out[0], &ch, 1) == 1) {
        run.strOut.push_back(ch);
        if (ch == '\n' && ++nLines == events.nLines && events.nSignal != 0)
            kill(pid, events.nSignal);
    }
    close(out[0]);
    int nWait = 0;
    waitpid(pid, &nWait, 0);
    run.nStatus = WIFEXITED(nWait) ? WEXITSTATUS(nWait) : 128 + WTERMSIG(nWait);
    return run;
}

// Frames that can be read from a recording file one after the other, and those of them
// that carry an alarm; -1 frames if it can't be opened.
std::pair<int, int> CountFrames(const fs::path& file)
{
    CZnFile reader;
    tag_CAMERAINFO info{};
    if (reader.Open(file.string().c_str(), &info, STREAM_REVISION_20020219, ZNFILE_READ) != 1)
        return {-1, 0};
    std::vector<BYTE> video(static_cast<std::size_t>(reader.GetVideoWidth()) * reader.GetVideoHeight() * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    tag_ZNFRAMEDATA frame{};
    frame.pVideo = video.data();
    frame.pSound = sound.data();
    std::pair<int, int> counts{0, 0};
    while (reader.ReadOneFrame(&frame, -1, 0) == 1) {
        ++counts.first;
        counts.second += (frame.wFlags & ZNFRAME_ALARM) != 0;
    }
    return counts;
}

// The frames and the alarms each camera got, by the summary's "camera N: F frames, ...,
// A alarms" lines, and its frame rate.
struct tag_CAMERASUMMARY {
    std::pair<int, int> counts;
    double dRate;
};

std::map<int, tag_CAMERASUMMARY> ReadSummary(const std::string& strOut)
{
    std::map<int, tag_CAMERASUMMARY> cameras;
    for (std::size_t nPos = 0; (nPos = strOut.find("\n  camera ", nPos)) != std::string::npos; ++nPos) {
        int nCamera = 0;
        tag_CAMERASUMMARY summary{};
        int nLost = 0;
        int nKilobytes = 0;
        if (std::sscanf(strOut.c_str() + nPos, "\n  camera %d: %d frames, %lf a second, %d without signal, %d KB coded, %d alarms",
                        &nCamera, &summary.counts.first, &summary.dRate, &nLost, &nKilobytes,
                        &summary.counts.second) == 6)
            cameras[nCamera] = summary;
    }
    return cameras;
}

// The recordings in the day directories of a store, by board and camera ("b0-cam1-...").
std::map<std::pair<int, int>, std::vector<fs::path>> Recordings(const fs::path& store)
{
    std::map<std::pair<int, int>, std::vector<fs::path>> recordings;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(store)) {
        int nBoard = 0;
        int nCamera = 0;
        if (entry.path().extension() == ".zn" &&
            std::sscanf(entry.path().filename().c_str(), "b%d-cam%d-", &nBoard, &nCamera) == 2)
            recordings[{nBoard, nCamera}].push_back(entry.path());
    }
    return recordings;
}

// Y4M footage of nFrames frames at 25 a second, each frame one flat luma.
void WriteFootage(const fs::path& file, int nWidth, int nHeight, int nFrames, int nLuma, int nLumaStep)
{
    std::ofstream footage(file, std::ios::binary);
    footage << "YUV4MPEG2 W" << nWidth << " H" << nHeight << " F25:1 C420jpeg\n";
    for (int f = 0; f < nFrames; ++f) {
        footage << "FRAME\n" << std::string(static_cast<std::size_t>(nWidth) * nHeight, static_cast<char>(nLuma + f * nLumaStep))
                << std::string(static_cast<std::size_t>(nWidth) * nHeight / 2, '\x80');
    }
}

class RecordCommand : public ::testing::Test {
protected:
    void SetUp() override
    {
        // In the build tree, not in /tmp: a store refuses RAM file systems.
        m_dir = fs::current_path() / ("zndvr-record-" + std::to_string(getpid()));
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    fs::path m_dir;
};

// Bad arguments (status 2), footage that can't be read and a store that can't be made
// (status 1) are refused before anything is made or recorded, by a message that names
// the argument or path and the reason.
TEST_F(RecordCommand, RefusesWhatItCannotUseBeforeRecording)
{
    const std::string strStore = (m_dir / "store").string();
    const fs::path broken = m_dir / "broken.y4m";
    std::ofstream(broken) << "YUV4MPEG2 W4 H2 C422\nFRAME\n";
    const fs::path file = m_dir / "file";
    std::ofstream(file) << "not a directory";
    const std::string strMissing = (m_dir / "missing.y4m").string();
    const struct {
        std::vector<std::string> args;
        int nStatus;
        std::string strMessage;
    } cases[] = {
        {{"-s", "1.5"}, 2, "-s '1.5'"},
        {{"-s", "3x"}, 2, "-s '3x'"},
        {{"-s", "4294968"}, 2, "-s '4294968'"},
        {{"-s", "-1"}, 2, "-s '-1'"},
        {{"--seconds", ""}, 2, "--seconds ''"},
        {{"-s"}, 2, "-s needs a value"},
        {{"--bogus"}, 2, "'--bogus'"},
        {{"-d", ""}, 2, "-d needs a directory"},
        {{"a.y4m", "b.y4m", "c.y4m", "d.y4m", "e.y4m"}, 2, "at most 4 footage files"},
        {{strMissing}, 1, strMissing + ": No such file or directory"},
        {{broken.string()}, 1, broken.string() + ": colour space 'C422' is not 8-bit 4:2:0"},
        {{"-d", (file / "store").string()}, 1, (file / "store").string() + ": has no parent directory"},
    };
    for (auto c : cases) {
        c.args.insert(c.args.begin(), {"-d", strStore});
        const tag_TOOLRUN run = RunTool(c.args);
        EXPECT_EQ(run.nStatus, c.nStatus) << c.strMessage;
        EXPECT_NE(run.strOut.find(c.strMessage), std::string::npos) << run.strOut;
        EXPECT_EQ(run.strOut.find("recording"), std::string::npos) << run.strOut;
        EXPECT_FALSE(fs::exists(strStore)) << c.strMessage;
    }
}

// A stop signal at any moment closes cameras and files, so each file holds every frame
// (and alarm) its camera got; the exit status tells the signal. Runs never replace one
// another: a file is named by board, camera and start time in its day's directory, and a
// later one of the same second gets a count.
TEST_F(RecordCommand, StopSignalsKeepEverythingRecorded)
{
    const fs::path store = m_dir / "store";
    const tag_RUNEVENTS stops[] = {{SIGINT, 1, 0}, {SIGTERM, 2, 0}, {SIGHUP, 3, 0}};
    std::vector<std::map<int, tag_CAMERASUMMARY>> runs;
    for (const tag_RUNEVENTS& stop : stops) {
        const tag_TOOLRUN run = RunTool({"-s", "0", "-d", store.string()}, stop);
        EXPECT_EQ(run.nStatus, 128 + stop.nSignal) << run.strOut;
        EXPECT_NE(run.strOut.find("stopped by signal " + std::to_string(stop.nSignal)), std::string::npos);
        runs.push_back(ReadSummary(run.strOut));
        EXPECT_EQ(runs.back().size(), 4u) << run.strOut;
    }
    const std::map<std::pair<int, int>, std::vector<fs::path>> recordings = Recordings(store);
    ASSERT_EQ(recordings.size(), 4u);
    for (const auto& [camera, files] : recordings) {
        const int nCamera = camera.second;
        // A run that ended before a camera's first frame left no file of it.
        std::vector<std::pair<int, int>> expected;
        for (const std::map<int, tag_CAMERASUMMARY>& run : runs) {
            if (run.at(nCamera).counts.first > 0)
                expected.push_back(run.at(nCamera).counts);
        }
        std::vector<std::pair<int, int>> stored;
        for (const fs::path& file : files)
            stored.push_back(CountFrames(file));
        // Runs of the same second sort by their count, not by their order.
        std::sort(expected.begin(), expected.end());
        std::sort(stored.begin(), stored.end());
        EXPECT_EQ(stored, expected) << "camera " << nCamera;
        for (const fs::path& file : files) {
            EXPECT_TRUE(std::regex_match(file.filename().string(), std::regex("b0-cam[0-3]-[0-9]{6}(-[0-9]+)?\\.zn")))
                << file;
            EXPECT_TRUE(std::regex_match(file.parent_path().filename().string(), std::regex("d[0-9]{8}"))) << file;
        }
    }
}

// Footage of 352 x 288 gets a board of its own and is recorded at that size and standard,
// with sound; black footage is a camera without signal, which is reported and fails
// nothing.
TEST_F(RecordCommand, FootageKeepsItsSizeAndSpeedAndNoSignalIsNoFailure)
{
    const fs::path cif = m_dir / "cif.y4m";
    const fs::path black = m_dir / "black.y4m";
    WriteFootage(cif, 352, 288, 5, 60, 30);
    WriteFootage(black, 176, 144, 1, 16, 0);
    const tag_TOOLRUN run =
        RunTool({"-s", "2", "--sound", "-d", (m_dir / "store").string(), cif.string(), black.string()});
    EXPECT_EQ(run.nStatus, 0) << run.strOut;
    // A progress line a second (fewer if a loaded machine holds the timer up), and the
    // run ends with its time.
    const std::regex progress("\n +[0-9]+s  cam0 ");
    const auto nProgress =
        std::distance(std::sregex_iterator(run.strOut.begin(), run.strOut.end(), progress), std::sregex_iterator());
    EXPECT_GE(nProgress, 1) << run.strOut;
    EXPECT_LE(nProgress, 2) << run.strOut;
    // Each camera records its own microphone, which the summary checks.
    const std::string strSound = "dB from its microphone's signal";
    EXPECT_NE(run.strOut.find(strSound, run.strOut.find(strSound) + 1), std::string::npos) << run.strOut;
    // No camera gets more than its stream's 25 frames a second; the rate comes from the
    // frames' stamps, which a busy machine may shift by a few milliseconds.
    const std::map<int, tag_CAMERASUMMARY> cameras = ReadSummary(run.strOut);
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_LE(cameras.at(0).dRate, 26.0);
    EXPECT_GT(cameras.at(0).dRate, 0.0);
    EXPECT_NE(run.strOut.find(" a second, 0 without signal"), std::string::npos) << run.strOut;
    EXPECT_NE(run.strOut.find("no video signal"), std::string::npos) << run.strOut;
    const std::map<std::pair<int, int>, std::vector<fs::path>> recordings = Recordings(m_dir / "store");
    ASSERT_EQ(recordings.size(), 2u);
    CZnFile reader;
    tag_CAMERAINFO info{};
    ASSERT_EQ(reader.Open(recordings.at({0, 0})[0].string().c_str(), &info, STREAM_REVISION_20020114, ZNFILE_READ), 1);
    EXPECT_EQ(reader.GetVideoWidth(), 352);
    EXPECT_EQ(reader.GetVideoHeight(), 288);
    EXPECT_EQ(reader.GetVideoStandard(), STANDARD_PAL);
}

// A disk that refuses a block ends the run cleanly: the failure names the file, and what
// was stored before it stays (the first block, of one key frame cycle, fits under the
// limit; the second doesn't). A run that passes midnight goes on in the new day's file.
TEST_F(RecordCommand, FullDiskEndsTheRunAndKeepsWhatWasStored)
{
    const fs::path footage = m_dir / "footage.y4m";
    WriteFootage(footage, 176, 144, 50, 40, 4);
    const fs::path store = m_dir / "store";
    tag_RUNEVENTS events;
    events.nFileLimit = 48 * 1024;
    const tag_TOOLRUN run = RunTool({"-s", "30", "-d", store.string(), footage.string()}, events);
    EXPECT_EQ(run.nStatus, 1) << run.strOut;
    EXPECT_NE(run.strOut.find("recording stops"), std::string::npos) << run.strOut;
    EXPECT_EQ(run.strOut.find(" 30s "), std::string::npos) << "the run ended early";
    EXPECT_TRUE(std::regex_search(run.strOut, std::regex("store: [^\n]*/b0-cam0-[^\n]*\\.zn: (writing failed|its last frames can't be stored)")))
        << run.strOut;
    const std::vector<fs::path> files = Recordings(store)[{0, 0}];
    ASSERT_FALSE(files.empty()) << run.strOut;
    int nFrames = 0;
    for (const fs::path& file : files) {
        const int nFileFrames = CountFrames(file).first;
        EXPECT_GE(nFileFrames, 0) << file;
        nFrames += std::max(nFileFrames, 0);
    }
    EXPECT_GT(nFrames, 0) << run.strOut;
}

} // namespace
