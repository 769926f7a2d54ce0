// Helpers of the storage tests: disks as quota volumes in a temporary directory (so that
// the tests run on any file system and can set a disk's free space to the MB with sparse
// files), day directories with files, a fixed local time zone and a fixed "now".
#pragma once

#include "platform/CTime.h"
#include "platform/Disks.h"
#include "platform/FileTestSupport.h"
#include "platform/TickClock.h"
#include "platform/TimeZoneTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

inline constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;

// The date value of a local day, built as the store builds it.
inline DWORD LocalDate(int nYear, int nMonth, int nDay)
{
    return static_cast<DWORD>(CTime(nYear, nMonth, nDay, 0, 0, 0, -1).GetTime());
}

inline std::string DayName(DWORD dwDate)
{
    std::string strName = "d";
    strName += CTime(static_cast<time_t>(dwDate)).Format("%Y%m%d");
    return strName;
}

// A directory declared to be a volume of a given size; removed with the test.
class ScopedQuotaDisk {
public:
    ScopedQuotaDisk(const std::filesystem::path& path, DWORD dwMegabytes) : m_strPath(path.string())
    {
        std::filesystem::create_directories(path);
        EXPECT_TRUE(DeclareQuotaVolume(m_strPath.c_str(), dwMegabytes));
    }
    ~ScopedQuotaDisk() { RemoveQuotaVolume(m_strPath.c_str()); }
    ScopedQuotaDisk(const ScopedQuotaDisk&) = delete;
    ScopedQuotaDisk& operator=(const ScopedQuotaDisk&) = delete;

    const std::string& Path() const { return m_strPath; }
    std::string operator/(const std::string& strName) const { return m_strPath + "/" + strName; }
    // The volume as the store writes it.
    std::string Volume() const { return m_strPath + "/"; }

    // A sparse file of nBytes: it counts against the quota without taking the disk.
    void PutSparseFile(const std::string& strName, std::uint64_t nBytes) const
    {
        const std::filesystem::path path = *this / strName;
        std::filesystem::create_directories(path.parent_path());
        WriteWholeFile(path.string(), "");
        std::filesystem::resize_file(path, nBytes);
    }

    // Sizes a sparse filler so that the volume has exactly dwFree MB free now.
    void SetFreeMegabytes(DWORD dwFree) const
    {
        const std::filesystem::path filler = *this / "filler";
        std::uint64_t nOthers = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_strPath)) {
            if (entry.is_regular_file() && !entry.is_symlink() && entry.path() != filler)
                nOthers += entry.file_size();
        }
        ULARGE_INTEGER total{0};
        ASSERT_TRUE(GetDiskFreeSpaceExA(m_strPath.c_str(), nullptr, &total, nullptr));
        ASSERT_GE(total.QuadPart, nOthers + dwFree * kMegabyte);
        PutSparseFile("filler", total.QuadPart - nOthers - dwFree * kMegabyte);
    }

private:
    std::string m_strPath;
};

// A day directory of a tree below strBase, with files of the given sizes (sparse above a
// KB, so that days of many MB cost nothing).
inline std::string MakeDay(const std::string& strBase, const char* pszTree, DWORD dwDate,
                           const std::vector<std::uint64_t>& aFileSizes = {})
{
    const std::filesystem::path day = std::filesystem::path(strBase) / pszTree / DayName(dwDate);
    std::filesystem::create_directories(day);
    for (std::size_t i = 0; i < aFileSizes.size(); ++i) {
        const std::string strFile = (day / ("cam" + std::to_string(i) + ".zn")).string();
        WriteWholeFile(strFile, std::string(std::min<std::uint64_t>(aFileSizes[i], 1024), 'v'));
        std::filesystem::resize_file(strFile, aFileSizes[i]);
    }
    return day.string();
}

// A fixed zone and a test clock whose wall clock stands at noon of 2026-03-10.
class StorageClockTest : public ::testing::Test {
protected:
    StorageClockTest() { m_clock.SetCurrentTime(CTime(2026, 3, 10, 12, 0, 0, -1).GetTime()); }

    ScopedTimeZone m_zone{BerlinZone()};
    CTestClock m_clock;
    ScopedTempDir m_dir;
};
