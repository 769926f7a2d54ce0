// Search: summaries read from a day directory of 10 000 recordings, and searches over 30
// days of 16 cameras, one recording an hour each. The recordings are copies of real ones
// with a block of frames, on a quota volume below the working directory (ZNDVR_BENCH_DIR
// overrides). The first run of each warms the file system's cache; what is measured is a
// warm search, as a user searching twice gets it.
#include "platform/CTime.h"
#include "platform/Disks.h"
#include "recording/CZnFile.h"
#include "storage/CFileSearchInfo.h"
#include "storage/CZnDatabase.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kDayRecordings = 10000;
constexpr int kDays = 30;
constexpr int kCameras = 16;
constexpr int kRecordingsPerCameraDay = 24;
constexpr DWORD kQuotaMegabytes = 4000;
constexpr DWORD kRevision = 0x20020219;

class BenchStore {
public:
    BenchStore()
    {
        const char* pBase = std::getenv("ZNDVR_BENCH_DIR");
        m_path = std::filesystem::path(pBase != nullptr ? pBase : ".") / ("zndvr-search-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_path / "store");
        DeclareQuotaVolume(m_path.c_str(), kQuotaMegabytes);
        m_bOpen = m_db.Open((m_path / "store").c_str(), kRevision, nullptr, (m_path / "zndvr.dbs").c_str(), "bench");
    }
    ~BenchStore()
    {
        m_db.Close();
        RemoveQuotaVolume(m_path.c_str());
        std::filesystem::remove_all(m_path);
    }

    bool IsOpen() const { return m_bOpen; }
    CZnDatabase& Database() { return m_db; }
    std::filesystem::path Path() const { return m_path; }

    std::filesystem::path DayDir(const CTime& tDay) const
    {
        std::string strName = "d";
        strName += tDay.Format("%Y%m%d");
        const std::filesystem::path day = m_path / "store/database/Local" / strName;
        std::filesystem::create_directories(day);
        return day;
    }

    // A recording of camera nCamera with one block of 50 frames of 2 KB.
    std::filesystem::path MakeRecording(int nCamera) const
    {
        const std::filesystem::path path = m_path / ("camera" + std::to_string(nCamera) + ".zn");
        CZnFile file(("camera " + std::to_string(nCamera)).c_str(), "board 0", "bench");
        tag_CAMERAINFO camera{0, nCamera, 320, 240, STANDARD_NTSC};
        file.Open(path.c_str(), &camera, kRevision, ZNFILE_WRITE);
        std::vector<BYTE> video(2048, 0x5A);
        tag_ZNFRAMEDATA frame{ZNFRAME_I, 0, 0, static_cast<DWORD>(video.size()), video.data(), 0, nullptr};
        for (int i = 0; i < 50; ++i, frame.wFrameType = ZNFRAME_P, frame.dwTimeStamp += 40)
            file.WriteOneFrame(&frame);
        file.Close();
        return path;
    }

private:
    std::filesystem::path m_path;
    CZnDatabase m_db;
    bool m_bOpen = false;
};

int Search(CZnDatabase& db, const tag_SEARCHPARAM& param)
{
    CFileSearchInfo search(&param);
    db.SearchFile(&search);
    return search.GetCount();
}

void BM_SummariesOfADayOf10000Recordings(benchmark::State& state)
{
    BenchStore store;
    const CTime tToday = CTime::GetCurrentTime();
    const std::filesystem::path day = store.DayDir(tToday);
    const std::filesystem::path recording = store.MakeRecording(0);
    for (int i = 0; i < kDayRecordings; ++i)
        std::filesystem::copy_file(recording, day / ("rec" + std::to_string(i) + ".zn"));
    tag_SEARCHPARAM param;
    param.dwFlags = SEARCH_DATE;
    param.dwDate = static_cast<DWORD>(tToday.GetTime());
    if (!store.IsOpen() || Search(store.Database(), param) != kDayRecordings)
        state.SkipWithError("the day's recordings were not all found");
    for (auto _ : state)
        benchmark::DoNotOptimize(Search(store.Database(), param));
    state.counters["summaries/s"] =
        benchmark::Counter(static_cast<double>(kDayRecordings), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_SummariesOfADayOf10000Recordings)->Unit(benchmark::kMillisecond)->UseRealTime();

// Range 0: every camera; range 1: one camera by name.
void BM_SearchThirtyDaysOf16Cameras(benchmark::State& state)
{
    BenchStore store;
    std::vector<std::filesystem::path> recordings;
    for (int nCamera = 0; nCamera < kCameras; ++nCamera)
        recordings.push_back(store.MakeRecording(nCamera));
    const CTime tNow = CTime::GetCurrentTime();
    const CTime tFirst(tNow.GetYear(), tNow.GetMonth(), tNow.GetDay() - (kDays - 1), 12, 0, 0, -1);
    for (int nDay = 0; nDay < kDays; ++nDay) {
        const std::filesystem::path day = store.DayDir(CTime(tFirst.GetYear(), tFirst.GetMonth(), tFirst.GetDay() + nDay, 12, 0, 0, -1));
        for (int nCamera = 0; nCamera < kCameras; ++nCamera) {
            for (int nHour = 0; nHour < kRecordingsPerCameraDay; ++nHour)
                std::filesystem::copy_file(recordings[nCamera],
                                           day / ("b0-cam" + std::to_string(nCamera) + "-" + std::to_string(nHour) + ".zn"));
        }
    }
    tag_SEARCHPARAM param;
    param.dwFlags = SEARCH_BEGIN | SEARCH_END;
    param.dwBeginTime = static_cast<DWORD>(CTime(tFirst.GetYear(), tFirst.GetMonth(), tFirst.GetDay(), 0, 0, 0, -1).GetTime());
    param.dwEndTime = static_cast<DWORD>(tNow.GetTime());
    const bool bOneCamera = state.range(0) != 0;
    if (bOneCamera) {
        param.dwFlags |= SEARCH_CAMERA;
        param.strCameraName = "camera 5";
    }
    const int nExpected = kDays * kRecordingsPerCameraDay * (bOneCamera ? 1 : kCameras);
    if (!store.IsOpen() || Search(store.Database(), param) != nExpected)
        state.SkipWithError("the recordings were not all found");
    for (auto _ : state)
        benchmark::DoNotOptimize(Search(store.Database(), param));
    state.counters["files"] = kDays * kCameras * kRecordingsPerCameraDay;
    state.counters["found"] = nExpected;
}
BENCHMARK(BM_SearchThirtyDaysOf16Cameras)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
