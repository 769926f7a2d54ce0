// The database file: its bytes, what Open makes of a missing, partly usable or damaged
// file, and saving that never leaves a part of a file behind.
#include "storage/CZnDatabase.h"

#include "platform/CException.h"
#include "storage/StorageTestSupport.h"

#include <random>

namespace {

using Bytes = std::vector<unsigned char>;

void AppendDword(Bytes& aBytes, DWORD dwValue)
{
    for (int i = 0; i < 4; ++i)
        aBytes.push_back(static_cast<unsigned char>(dwValue >> (8 * i)));
}

void AppendShortString(Bytes& aBytes, const std::string& strText)
{
    aBytes.push_back(static_cast<unsigned char>(strText.size()));
    aBytes.insert(aBytes.end(), strText.begin(), strText.end());
}

// One disk record, written out by hand.
void AppendRecord(Bytes& aBytes, DWORD dwReserved, DWORD bRecycle, const std::string& strBase,
                  const std::string& strName, DWORD bAlarm = 0, const std::string& strSound = "")
{
    AppendDword(aBytes, dwReserved);
    AppendDword(aBytes, bRecycle);
    AppendShortString(aBytes, strBase);
    AppendShortString(aBytes, strName);
    AppendDword(aBytes, bAlarm);
    AppendShortString(aBytes, strSound);
}

void WriteBytes(const std::string& strPath, const Bytes& aBytes)
{
    WriteWholeFile(strPath, std::string(aBytes.begin(), aBytes.end()));
}

std::vector<std::string> g_aReported;

void CollectReport(LPCSTR pszMessage)
{
    g_aReported.emplace_back(pszMessage);
}

class ZnDatabaseFile : public StorageClockTest {
protected:
    void SetUp() override
    {
        g_aReported.clear();
        m_pfnPrevious = SetExceptionReporter(&CollectReport);
        std::filesystem::create_directories(m_strStore);
    }
    void TearDown() override { SetExceptionReporter(m_pfnPrevious); }

    int Open(CZnDatabase& db) { return db.Open(m_strStore.c_str(), 0x20020219, nullptr, m_strFile.c_str(), "host1"); }

    ScopedQuotaDisk m_disk{m_dir.Path() / "disk1", 1000};
    ScopedQuotaDisk m_disk2{m_dir.Path() / "disk2", 1000};
    std::string m_strStore = m_disk / "store";
    std::string m_strFile = m_disk / "store/zndvr.dbs";
    EXCEPTIONREPORTER m_pfnPrevious = nullptr;
};

TEST_F(ZnDatabaseFile, AFirstStartMakesTheDefaultDiskAndCloseWritesItsRecord)
{
    CZnDatabase db;
    ASSERT_TRUE(Open(db));
    ASSERT_EQ(db.GetHddNum(), 1);
    const std::string strBase = m_strStore + "/database/";
    EXPECT_EQ(std::string(db.GetBaseDir(0)), strBase);
    EXPECT_EQ(std::string(db.GetDbsName(0)), "ZnDatabase(" + m_disk.Volume() + ")");
    EXPECT_STREQ(db.GetHostName(), "host1");
    EXPECT_EQ(db.GetOnceDelSpace(), 100u);
    CString strName;
    CString strBaseDir;
    ASSERT_EQ(db.GetWorkHDD(strName, strBaseDir), DBS_OK);
    EXPECT_EQ(std::string(strBaseDir), strBase);
    EXPECT_EQ(db.GetHDDInfo(db.GetDbsName(0))->GetAlarmSpace(), 550u);
    EXPECT_FALSE(std::filesystem::exists(m_strFile));

    db.Close();
    Bytes aExpected;
    AppendDword(aExpected, 1);
    AppendRecord(aExpected, 500, 1, strBase, "ZnDatabase");
    EXPECT_EQ(ReadWholeFile(m_strFile), aExpected);
    EXPECT_EQ(db.GetWorkHDD(strName, strBaseDir), DBS_ERROR_NOHDD);

    // The file brings the disk back, and a store with no disk leaves the file alone.
    CZnDatabase again;
    ASSERT_TRUE(Open(again));
    EXPECT_EQ(std::string(again.GetBaseDir(0)), strBase);
    again.Close();
    again.Close();
    EXPECT_EQ(again.SaveDatabase(), 0);
    EXPECT_EQ(ReadWholeFile(m_strFile), aExpected);
    CZnDatabase none;
    EXPECT_FALSE(none.Open((m_disk / "no-store").c_str(), 0, nullptr, (m_disk / "other.dbs").c_str(), ""));
    EXPECT_EQ(none.GetHddNum(), 0);
    EXPECT_FALSE(std::filesystem::exists(m_disk / "no-store"));
    WriteWholeFile(m_disk / "a-file", "");
    EXPECT_FALSE(none.Open((m_disk / "a-file").c_str(), 0, nullptr, (m_disk / "other.dbs").c_str(), ""));
}

TEST_F(ZnDatabaseFile, DisksThatCannotBeUsedAtOpenVanishFromTheNextSave)
{
    std::filesystem::create_directories(m_disk2 / "vdb");
    std::filesystem::create_directories(m_disk2 / "other");
    Bytes aFile;
    AppendDword(aFile, 4);
    AppendRecord(aFile, 20, 0, m_disk / "gone/", "Gone");
    AppendRecord(aFile, 30, 0, m_disk2 / "vdb/", "Second", 1, "bell.wav");
    AppendRecord(aFile, 40, 1, m_disk2 / "other/", "Same volume");
    AppendRecord(aFile, 50, 1, "/proc/", "Kernel");
    WriteBytes(m_strFile, aFile);

    CZnDatabase db;
    ASSERT_TRUE(Open(db));
    ASSERT_EQ(db.GetHddNum(), 1);
    EXPECT_EQ(std::string(db.GetDbsName(0)), "Second(" + m_disk2.Volume() + ")");
    EXPECT_FALSE(std::filesystem::exists(m_disk / "gone"));
    EXPECT_FALSE(std::filesystem::exists(m_strStore + "/database"));
    CString strName;
    CString strBase;
    ASSERT_EQ(db.GetWorkHDD(strName, strBase), DBS_OK);
    EXPECT_EQ(std::string(strBase), m_disk2 / "vdb/");
    db.Close();
    Bytes aExpected;
    AppendDword(aExpected, 1);
    AppendRecord(aExpected, 30, 0, m_disk2 / "vdb/", "Second", 1, "bell.wav");
    EXPECT_EQ(ReadWholeFile(m_strFile), aExpected);
    ASSERT_EQ(g_aReported.size(), 3u);
    EXPECT_NE(g_aReported[0].find(m_disk / "gone/"), std::string::npos);
    EXPECT_NE(g_aReported[2].find("/proc/"), std::string::npos);

    // With no usable disk at all, the default disk takes over.
    std::filesystem::remove_all(m_disk2 / "vdb");
    CZnDatabase fallback;
    ASSERT_TRUE(Open(fallback));
    ASSERT_EQ(fallback.GetHddNum(), 1);
    EXPECT_EQ(std::string(fallback.GetBaseDir(0)), m_strStore + "/database/");
}

TEST_F(ZnDatabaseFile, ADamagedFileIsReportedAndSetAsideAndDeletesNothing)
{
    const std::string strKept = MakeDay(m_disk2 / "vdb", "Local", LocalDate(2026, 3, 1), {100});
    Bytes aGood;
    AppendDword(aGood, 1);
    AppendRecord(aGood, 1, 1, m_disk2 / "vdb/", "Second");
    Bytes aGarbage(300);
    std::mt19937 random(15);
    for (unsigned char& byValue : aGarbage)
        byValue = static_cast<unsigned char>(random());
    aGarbage[0] = 0x40;
    const std::pair<const char*, Bytes> aCases[] = {
        {"ends inside a record", Bytes(aGood.begin(), aGood.end() - 3)},
        {"holds bytes behind its last record", [&] {
             Bytes aLonger = aGood;
             aLonger.push_back(0);
             return aLonger;
         }()},
        {"ends inside a record", aGarbage},
        {"ends inside a record", Bytes{1, 0}},
    };
    for (const auto& [pszReason, aBytes] : aCases) {
        SCOPED_TRACE(pszReason);
        g_aReported.clear();
        WriteBytes(m_strFile, aBytes);
        CZnDatabase db;
        ASSERT_TRUE(Open(db));
        ASSERT_EQ(db.GetHddNum(), 1);
        EXPECT_EQ(std::string(db.GetBaseDir(0)), m_strStore + "/database/");
        ASSERT_EQ(g_aReported.size(), 1u);
        EXPECT_NE(g_aReported[0].find(m_strFile), std::string::npos);
        EXPECT_NE(g_aReported[0].find(pszReason), std::string::npos);
        EXPECT_EQ(ReadWholeFile(m_strFile + ".damaged"), aBytes);
        EXPECT_FALSE(std::filesystem::exists(m_strFile));
        EXPECT_EQ(db.ChangeWorkDir(), DBS_OK);
        db.Close();
        EXPECT_TRUE(std::filesystem::exists(m_strFile));
        EXPECT_TRUE(std::filesystem::exists(strKept + "/cam0.zn"));
    }
}

TEST_F(ZnDatabaseFile, AFailedSaveLeavesTheOldFileWhole)
{
    CZnDatabase db;
    ASSERT_TRUE(Open(db));
    ASSERT_EQ(db.SaveDatabase(), 1);
    const Bytes aSaved = ReadWholeFile(m_strFile);
    // A directory standing where the new file is written makes the save fail.
    std::filesystem::create_directory(m_strFile + ".new");
    tag_HDDPARAM param;
    param.strBaseDir = (m_disk2 / "vdb").c_str();
    ASSERT_EQ(db.AddHDD(&param), 1);
    EXPECT_FALSE(db.SaveDatabase());
    EXPECT_EQ(ReadWholeFile(m_strFile), aSaved);
    std::filesystem::remove(m_strFile + ".new");
    EXPECT_EQ(db.SaveDatabase(), 1);
    EXPECT_GT(ReadWholeFile(m_strFile).size(), aSaved.size());

    CZnDatabase nowhere;
    ASSERT_EQ(nowhere.Open(m_strStore.c_str(), 0, nullptr, (m_disk / "missing/zndvr.dbs").c_str(), ""), 1);
    EXPECT_FALSE(nowhere.SaveDatabase());
    // A directory in the file's place is not replaced, and the new file does not stay.
    std::filesystem::create_directories(m_disk / "dir.dbs/inside");
    CZnDatabase blocked;
    ASSERT_EQ(blocked.Open(m_strStore.c_str(), 0, nullptr, (m_disk / "dir.dbs").c_str(), ""), 1);
    EXPECT_FALSE(blocked.SaveDatabase());
    EXPECT_FALSE(std::filesystem::exists(m_disk / "dir.dbs.new"));
    EXPECT_TRUE(std::filesystem::is_directory(m_disk / "dir.dbs/inside"));
}

} // namespace
