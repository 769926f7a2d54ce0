// A disk object: what it accepts as a base directory, how it names and measures its
// volume, and the day lists it reads from the disk.
#include "storage/CHddObj.h"

#include "storage/StorageTestSupport.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class HddObjDisk : public StorageClockTest {
protected:
    int Bind(CHddObj& hdd, const std::string& strBaseDir, DWORD dwReserved = 500, const char* pszName = "")
    {
        tag_HDDPARAM param;
        param.strBaseDir = strBaseDir.c_str();
        param.dwReservedSpace = dwReserved;
        param.strDbsName = pszName;
        return hdd.Create(&param, 0x20020219);
    }

    ScopedQuotaDisk m_disk{m_dir.Path() / "disk1", 100};
    CHddObj m_hdd;
};

TEST_F(HddObjDisk, CreateBindsToTheVolumeAndMakesOnlyTheLastLevel)
{
    ASSERT_EQ(Bind(m_hdd, m_disk.Path() + "//vdb/./", 300), 1);
    EXPECT_EQ(std::string(m_hdd.GetBaseDir()), m_disk / "vdb/");
    EXPECT_EQ(std::string(m_hdd.GetHDD()), m_disk.Volume());
    EXPECT_EQ(std::string(m_hdd.GetDbsName()), "ZnDatabase(" + m_disk.Volume() + ")");
    EXPECT_STREQ(m_hdd.GetDbsName1(), "ZnDatabase");
    EXPECT_EQ(m_hdd.GetAlarmSpace(), 350u);
    EXPECT_FALSE(std::filesystem::exists(m_disk / "vdb/Local"));
    // The volume root is taken as it stands, and its trees lie right below it.
    CHddObj root;
    ASSERT_EQ(Bind(root, m_disk.Path(), 10, "Cam disk"), 1);
    EXPECT_EQ(std::string(root.GetDbsName()), "Cam disk(" + m_disk.Volume() + ")");
    EXPECT_EQ(std::string(root.GetVideoDir()), m_disk / "Local/d20260310");
    EXPECT_EQ(std::string(root.GetRemoteVideoDir()), m_disk / "Remote/d20260310");
    // Something that is no directory where a tree goes gives "".
    WriteWholeFile(m_disk / "Picture", "in the way");
    EXPECT_STREQ(root.GetPictureDir(), "");
}

TEST_F(HddObjDisk, RefusesWhatCannotHoldRecordingsAndKeepsItsBaseDirectory)
{
    WriteWholeFile(m_disk / "plainfile", "x");
    std::vector<std::pair<std::string, tag_BASEDIRCHECK>> aCases = {
        {"", BASEDIR_EMPTY},
        {m_disk / "plainfile", BASEDIR_NOT_DIRECTORY},
        {m_disk / "missing/vdb", BASEDIR_NO_PARENT},
        {m_disk / "plainfile/vdb", BASEDIR_NO_PARENT},
        {"/proc/zndvr", BASEDIR_NOT_A_DISK},
    };
    tag_VOLUMEINFO shm;
    if (GetVolumeInfo("/dev/shm", &shm) && shm.strFileSystem == "tmpfs")
        aCases.emplace_back("/dev/shm/zndvr-store", BASEDIR_RAM_VOLUME);
    ASSERT_EQ(Bind(m_hdd, m_disk / "vdb"), 1);
    for (const auto& [strBaseDir, nCheck] : aCases) {
        SCOPED_TRACE(strBaseDir);
        EXPECT_EQ(CHddObj::CheckBaseDir(strBaseDir.c_str()), nCheck);
        EXPECT_EQ(Bind(m_hdd, strBaseDir, 77), 0);
        EXPECT_EQ(std::string(m_hdd.GetBaseDir()), m_disk / "vdb/");
        EXPECT_EQ(m_hdd.GetReservedSpace(), 77u);
    }
    EXPECT_EQ(m_hdd.Create(nullptr, 0), 0);
    EXPECT_EQ(m_hdd.ChangeBaseDir(nullptr), 0);
    EXPECT_FALSE(std::filesystem::exists(m_disk / "missing"));
    EXPECT_FALSE(std::filesystem::exists("/dev/shm/zndvr-store"));
    EXPECT_EQ(CHddObj::CheckBaseDir((m_disk / "vdb").c_str()), BASEDIR_EXISTS);
    EXPECT_EQ(CHddObj::CheckBaseDir((m_disk / "vdb2").c_str()), BASEDIR_TO_MAKE);
}

// A child process in a mount namespace of its own mounts the disk read-only over itself,
// so that nothing outlives the test; skipped where namespaces or mounts are not allowed.
TEST_F(HddObjDisk, RefusesAReadOnlyFileSystem)
{
    const std::string strDisk = m_disk.Path();
    const pid_t nChild = fork();
    ASSERT_GE(nChild, 0);
    if (nChild == 0) {
        if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            _exit(77);
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(strDisk.c_str(), strDisk.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            mount(nullptr, strDisk.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0)
            _exit(77);
        CHddObj hdd;
        _exit(CHddObj::CheckBaseDir((strDisk + "/vdb").c_str()) == BASEDIR_READONLY && !Bind(hdd, strDisk + "/vdb") ? 0 : 1);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    if (WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 77)
        GTEST_SKIP() << "no mount namespace here";
    EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0);
    EXPECT_FALSE(std::filesystem::exists(m_disk / "vdb"));
}

TEST_F(HddObjDisk, ListsHoldTheDaysOnDiskInOrderAndRefreshReadsThemAgain)
{
    const std::string strBase = m_disk / "vdb";
    auto day = [](int nDay) { return LocalDate(2026, 3, nDay); };
    MakeDay(strBase, "Local", day(5), {10});
    MakeDay(strBase, "Local", day(1));
    MakeDay(strBase, "Local", day(3), {10});
    std::filesystem::create_directories(strBase + "/Local/d20261399");
    std::filesystem::create_directories(strBase + "/Local/notes");
    WriteWholeFile(strBase + "/Local/" + DayName(day(2)), "a file named like a day");
    MakeDay(strBase, "Remote", day(1));
    MakeDay(strBase, "Remote", day(2));
    MakeDay(strBase, "Remote", day(4), {10});
    MakeDay(strBase, "Picture", day(4), {10});
    MakeDay(strBase, "Picture", day(6));  // empty and the last entry: not listed
    ASSERT_EQ(Bind(m_hdd, strBase), 1);
    auto list = [this](int nType) {
        std::vector<DWORD> aDates;
        for (int i = 0; i <= m_hdd.GetDirNum(nType); ++i)
            aDates.push_back(m_hdd.GetDirDate(i, nType));
        return aDates;
    };
    EXPECT_EQ(list(CHddObj::DIR_LOCAL), (std::vector<DWORD>{day(1), day(3), day(5), CHddObj::NO_DATE}));
    EXPECT_EQ(list(7), (std::vector<DWORD>{day(1), day(2), day(4), CHddObj::NO_DATE}));
    EXPECT_EQ(m_hdd.GetPictureDirNum(), 1);
    EXPECT_EQ(m_hdd.GetPictureDirDate(0), day(4));
    EXPECT_EQ(m_hdd.GetPictureDirDate(1), CHddObj::NO_DATE);
    EXPECT_EQ(m_hdd.GetDirDate(-1, CHddObj::DIR_LOCAL), CHddObj::NO_DATE);
    // Remote is scanned first; when it ends below the date, Local is scanned too.
    const std::tuple<int, int, int> aFinds[] = {{3, 0, 1}, {2, 0, 0}, {2, 1, 1}, {3, 1, 0}, {5, 1, 1}, {6, 1, 0}};
    for (const auto& [nDay, nType, bFound] : aFinds)
        EXPECT_EQ(m_hdd.FindDate(day(nDay), nType), bFound) << nDay << " in " << nType;

    std::filesystem::remove_all(strBase + "/Local/" + DayName(day(3)));
    MakeDay(strBase, "Local", day(7), {10});
    EXPECT_EQ(m_hdd.GetDirDate(1, CHddObj::DIR_LOCAL), day(3));
    m_hdd.Refresh();
    EXPECT_EQ(list(CHddObj::DIR_LOCAL), (std::vector<DWORD>{day(1), day(5), day(7), CHddObj::NO_DATE}));
}

TEST_F(HddObjDisk, IdentityIsTheVolumeAndChangeBaseDirStaysOnIt)
{
    ScopedQuotaDisk other(m_dir.Path() / "disk2", 100);
    ASSERT_EQ(Bind(m_hdd, m_disk / "vdb"), 1);
    EXPECT_TRUE(m_hdd == (m_disk / "elsewhere").c_str());
    EXPECT_FALSE(m_hdd == other.Path().c_str());
    EXPECT_FALSE(m_hdd == "");
    EXPECT_FALSE(CHddObj() == m_disk.Path().c_str());
    EXPECT_EQ(Bind(m_hdd, other / "vdb"), 1);
    tag_HDDPARAM param;
    param.strBaseDir = (m_disk / "new").c_str();
    EXPECT_EQ(m_hdd.ChangeBaseDir(&param), 0);
    EXPECT_EQ(std::string(m_hdd.GetBaseDir()), other / "vdb/");
    param.strBaseDir = (other / "new").c_str();
    param.dwReservedSpace = 100;
    ASSERT_EQ(m_hdd.ChangeBaseDir(&param), 1);
    EXPECT_EQ(std::string(m_hdd.GetBaseDir()), other / "new/");
    EXPECT_EQ(m_hdd.GetAlarmSpace(), 150u);
}

TEST_F(HddObjDisk, SpaceIsMeasuredInWholeMegabytesOfTheVolume)
{
    m_disk.PutSparseFile("filler", 30 * kMegabyte + kMegabyte / 2);
    ASSERT_EQ(Bind(m_hdd, m_disk / "vdb"), 1);
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    DWORD dwFree = 0;
    ASSERT_EQ(m_hdd.GetHDDSpace(dwTotal, dwUsed, dwFree), 1);
    EXPECT_EQ(std::vector<DWORD>({dwTotal, dwUsed, dwFree}), std::vector<DWORD>({100, 30, 69}));
    EXPECT_EQ(CHddObj::GetHDDSpace("", dwTotal, dwUsed, dwFree), 0);
    EXPECT_EQ(CHddObj::GetHDDSpace((m_disk / "missing").c_str(), dwTotal, dwUsed, dwFree), 0);
}

} // namespace
