// The store: ChangeWorkDir recycling a day of 10 000 recordings, and Refresh of a disk
// that holds three years of day directories. The disk is a quota volume below the working
// directory (ZNDVR_BENCH_DIR overrides), with the default reserved and alarm space.
#include "platform/CTime.h"
#include "platform/Disks.h"
#include "storage/CZnDatabase.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

constexpr int kDayFiles = 10000;
constexpr std::size_t kFileBytes = 4096;
constexpr int kYears = 3;
constexpr int kFilesPerDay = 8;
constexpr DWORD kQuotaMegabytes = 2000;
constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;

class BenchDisk {
public:
    BenchDisk()
    {
        const char* pBase = std::getenv("ZNDVR_BENCH_DIR");
        m_path = std::filesystem::path(pBase != nullptr ? pBase : ".") / ("zndvr-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_path / "store");
        DeclareQuotaVolume(m_path.c_str(), kQuotaMegabytes);
    }
    ~BenchDisk()
    {
        RemoveQuotaVolume(m_path.c_str());
        std::filesystem::remove_all(m_path);
    }
    std::filesystem::path Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

std::string DayDir(const std::filesystem::path& base, const CTime& tDay)
{
    std::string strName = "d";
    strName += tDay.Format("%Y%m%d");
    return (base / "Local" / strName).string();
}

void WriteFile(const std::string& strPath, std::size_t nBytes)
{
    std::ofstream file(strPath, std::ios::binary);
    const std::string strData(nBytes, 'z');
    file.write(strData.data(), static_cast<std::streamsize>(strData.size()));
}

// The oldest day holds 10 000 files; free space sits below the alarm space and the day
// brings it above the reserved space, so one ChangeWorkDir deletes exactly that day.
void BM_ChangeWorkDirRecyclesADayOf10000Files(benchmark::State& state)
{
    BenchDisk disk;
    const std::filesystem::path base = disk.Path() / "store/database";
    const CTime tOld = CTime(2020, 1, 1, 0, 0, 0, -1);
    for (auto _ : state) {
        state.PauseTiming();
        const std::string strDay = DayDir(base, tOld);
        std::filesystem::create_directories(strDay);
        for (int i = 0; i < kDayFiles; ++i)
            WriteFile(strDay + "/rec" + std::to_string(i) + ".zn", kFileBytes);
        std::filesystem::create_directories(DayDir(base, CTime::GetCurrentTime()));
        // A filler that leaves 500 MB free, less what the day itself takes.
        std::filesystem::path filler = disk.Path() / "filler";
        WriteFile(filler.string(), 0);
        std::filesystem::resize_file(filler, (kQuotaMegabytes - 500) * kMegabyte - kDayFiles * kFileBytes + kMegabyte);
        CZnDatabase db;
        db.Open((disk.Path() / "store").c_str(), 0x20020219, nullptr, (disk.Path() / "zndvr.dbs").c_str(), "bench");
        state.ResumeTiming();
        if (db.ChangeWorkDir() != DBS_OK || std::filesystem::exists(strDay))
            state.SkipWithError("the day was not recycled");
    }
    state.counters["files/s"] = benchmark::Counter(static_cast<double>(kDayFiles), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ChangeWorkDirRecyclesADayOf10000Files)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

void BM_RefreshThreeYearsOfDays(benchmark::State& state)
{
    BenchDisk disk;
    const std::filesystem::path base = disk.Path() / "store/database";
    int nDays = 0;
    for (CTime tDay(2023, 1, 1, 12, 0, 0, -1); tDay.GetYear() < 2023 + kYears; tDay += CTimeSpan(1, 0, 0, 0), ++nDays) {
        const std::string strDay = DayDir(base, tDay);
        std::filesystem::create_directories(strDay);
        for (int i = 0; i < kFilesPerDay; ++i)
            WriteFile(strDay + "/cam" + std::to_string(i) + ".zn", 0);
    }
    tag_HDDPARAM param;
    param.strBaseDir = base.c_str();
    CHddObj hdd;
    if (!hdd.Create(&param, 0x20020219))
        state.SkipWithError("the disk was refused");
    for (auto _ : state) {
        hdd.Refresh();
        benchmark::DoNotOptimize(hdd.GetDirNum(CHddObj::DIR_LOCAL));
    }
    if (hdd.GetDirNum(CHddObj::DIR_LOCAL) != nDays)
        state.SkipWithError("days missing from the list");
    state.counters["days"] = nDays;
}
BENCHMARK(BM_RefreshThreeYearsOfDays)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
