// A disk object: what it accepts as a base directory, how it names and measures its
// volume, and the day lists it reads from the disk.
#include "storage/CHddObj.h"

#include "platform/CMemFile.h"
#include "storage/StorageTestSupport.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class HddObjDisk : public StorageClockTest {
protected:
    tag_HDDPARAM Param(const std::string& strBaseDir, DWORD dwReserved = 500, const char* pszName = "")
    {
        tag_HDDPARAM param;
        param.strBaseDir = strBaseDir.c_str();
        param.dwReservedSpace = dwReserved;
        param.strDbsName = pszName;
        return param;
    }

    ScopedQuotaDisk m_disk{m_dir.Path() / "disk1", 100};
};

TEST_F(HddObjDisk, CreateBindsToTheVolumeAndMakesOnlyTheLastLevel)
{
    CHddObj hdd;
    tag_HDDPARAM param = Param(m_disk.Path() + "//vdb/./", 300);
    ASSERT_TRUE(hdd.Create(&param, 0x20020219));
    EXPECT_EQ(std::string(hdd.GetBaseDir()), m_disk / "vdb/");
    EXPECT_EQ(std::string(hdd.GetHDD()), m_disk.Volume());
    EXPECT_EQ(std::string(hdd.GetDbsName()), "ZnDatabase(" + m_disk.Volume() + ")");
    EXPECT_STREQ(hdd.GetDbsName1(), "ZnDatabase");
    EXPECT_EQ(hdd.GetReservedSpace(), 300u);
    EXPECT_EQ(hdd.GetAlarmSpace(), 350u);
    EXPECT_TRUE(std::filesystem::is_directory(m_disk / "vdb"));
    EXPECT_FALSE(std::filesystem::exists(m_disk / "vdb/Local"));

    // The volume root is taken as it stands, and its trees lie right below it.
    CHddObj root;
    tag_HDDPARAM rootParam = Param(m_disk.Path(), 10, "Cam disk");
    ASSERT_TRUE(root.Create(&rootParam, 0));
    EXPECT_EQ(std::string(root.GetBaseDir()), m_disk.Volume());
    EXPECT_EQ(std::string(root.GetDbsName()), "Cam disk(" + m_disk.Volume() + ")");
    EXPECT_EQ(std::string(root.GetVideoDir()), m_disk / "Local/d20260310");
}

TEST_F(HddObjDisk, RefusesWhatCannotHoldRecordingsAndKeepsItsBaseDirectory)
{
    WriteWholeFile(m_disk / "plainfile", "x");
    struct tag_REFUSALCASE {
        std::string strBaseDir;
        tag_BASEDIRCHECK nCheck;
    };
    std::vector<tag_REFUSALCASE> aCases = {
        {"", BASEDIR_EMPTY},
        {m_disk / "plainfile", BASEDIR_NOT_DIRECTORY},
        {m_disk / "missing/vdb", BASEDIR_NO_PARENT},
        {m_disk / "plainfile/vdb", BASEDIR_NO_PARENT},
        {"/proc/zndvr", BASEDIR_NOT_A_DISK},
    };
    tag_VOLUMEINFO shm;
    if (GetVolumeInfo("/dev/shm", &shm) && shm.strFileSystem == "tmpfs")
        aCases.push_back({"/dev/shm/zndvr-store", BASEDIR_RAM_VOLUME});
    CHddObj hdd;
    tag_HDDPARAM good = Param(m_disk / "vdb");
    ASSERT_TRUE(hdd.Create(&good, 0));
    for (const tag_REFUSALCASE& refusal : aCases) {
        SCOPED_TRACE(refusal.strBaseDir);
        EXPECT_EQ(CHddObj::CheckBaseDir(refusal.strBaseDir.c_str()), refusal.nCheck);
        tag_HDDPARAM param = Param(refusal.strBaseDir, 77);
        EXPECT_FALSE(hdd.Create(&param, 0));
        EXPECT_EQ(std::string(hdd.GetBaseDir()), m_disk / "vdb/");
        EXPECT_EQ(hdd.GetReservedSpace(), 77u);
    }
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
        tag_HDDPARAM param;
        param.strBaseDir = (strDisk + "/vdb").c_str();
        CHddObj hdd;
        const bool bRefused = CHddObj::CheckBaseDir(param.strBaseDir) == BASEDIR_READONLY && !hdd.Create(&param, 0);
        _exit(bRefused ? 0 : 1);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    ASSERT_TRUE(WIFEXITED(nStatus));
    if (WEXITSTATUS(nStatus) == 77)
        GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
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
    MakeDay(strBase, "Picture", day(6));  // empty and last: not listed

    CHddObj hdd;
    tag_HDDPARAM param = Param(strBase);
    ASSERT_TRUE(hdd.Create(&param, 0));
    auto list = [&hdd](int nType) {
        std::vector<DWORD> aDates;
        for (int i = 0; i < hdd.GetDirNum(nType); ++i)
            aDates.push_back(hdd.GetDirDate(i, nType));
        return aDates;
    };
    EXPECT_EQ(list(CHddObj::DIR_LOCAL), (std::vector<DWORD>{day(1), day(3), day(5)}));
    EXPECT_EQ(list(CHddObj::DIR_REMOTE), (std::vector<DWORD>{day(1), day(2), day(4)}));
    EXPECT_EQ(list(7), list(CHddObj::DIR_REMOTE));
    ASSERT_EQ(hdd.GetPictureDirNum(), 1);
    EXPECT_EQ(hdd.GetPictureDirDate(0), day(4));
    EXPECT_EQ(hdd.GetPictureDirDate(1), CHddObj::NO_DATE);
    EXPECT_EQ(hdd.GetDirDate(3, CHddObj::DIR_LOCAL), CHddObj::NO_DATE);
    EXPECT_EQ(hdd.GetDirDate(-1, CHddObj::DIR_LOCAL), CHddObj::NO_DATE);

    struct tag_FINDCASE {
        int nDay;
        int nType;
        int bFound;
    };
    // Remote is scanned first; when it ends below the date, Local is scanned too.
    const tag_FINDCASE aFinds[] = {{3, 0, 1}, {2, 0, 0}, {2, 1, 1}, {3, 1, 0}, {5, 1, 1}, {6, 1, 0}, {4, 0, 0}};
    for (const tag_FINDCASE& find : aFinds) {
        SCOPED_TRACE(find.nDay * 10 + find.nType);
        EXPECT_EQ(hdd.FindDate(day(find.nDay), find.nType), find.bFound);
    }

    std::filesystem::remove_all(strBase + "/Local/" + DayName(day(3)));
    MakeDay(strBase, "Local", day(7), {10});
    EXPECT_EQ(list(CHddObj::DIR_LOCAL), (std::vector<DWORD>{day(1), day(3), day(5)}));
    hdd.Refresh();
    EXPECT_EQ(list(CHddObj::DIR_LOCAL), (std::vector<DWORD>{day(1), day(5), day(7)}));
}

TEST_F(HddObjDisk, TodaysDirectoryIsMadeOnceInEachTree)
{
    CHddObj unbound;
    EXPECT_STREQ(unbound.GetVideoDir(), "");
    CHddObj hdd;
    tag_HDDPARAM param = Param(m_disk / "vdb");
    ASSERT_TRUE(hdd.Create(&param, 0));
    EXPECT_EQ(std::string(hdd.GetVideoDir()), m_disk / "vdb/Local/d20260310");
    EXPECT_EQ(std::string(hdd.GetVideoDir()), m_disk / "vdb/Local/d20260310");
    EXPECT_EQ(hdd.GetDirNum(CHddObj::DIR_LOCAL), 1);
    EXPECT_EQ(hdd.GetDirDate(0, CHddObj::DIR_LOCAL), LocalDate(2026, 3, 10));
    EXPECT_EQ(std::string(hdd.GetRemoteVideoDir()), m_disk / "vdb/Remote/d20260310");
    EXPECT_EQ(hdd.GetDirNum(CHddObj::DIR_REMOTE), 1);
    EXPECT_EQ(hdd.GetPictureDirNum(), 0);
    // Something that is no directory in the way gives "".
    WriteWholeFile(m_disk / "vdb/Picture", "in the way");
    EXPECT_STREQ(hdd.GetPictureDir(), "");
    std::filesystem::remove_all(m_disk / "vdb/Remote/d20260310");
    WriteWholeFile(m_disk / "vdb/Remote/d20260310", "in the way");
    EXPECT_STREQ(hdd.GetRemoteVideoDir(), "");
}

TEST_F(HddObjDisk, IdentityIsTheVolumeAndChangeBaseDirStaysOnIt)
{
    ScopedQuotaDisk other(m_dir.Path() / "disk2", 100);
    CHddObj hdd;
    tag_HDDPARAM param = Param(m_disk / "vdb");
    ASSERT_TRUE(hdd.Create(&param, 0x20020114));
    MakeDay(m_disk / "new", "Local", LocalDate(2026, 3, 1), {1});
    EXPECT_TRUE(hdd == (m_disk / "elsewhere").c_str());
    EXPECT_TRUE(hdd == m_disk.Path().c_str());
    EXPECT_FALSE(hdd == other.Path().c_str());
    EXPECT_FALSE(hdd == "");
    EXPECT_FALSE(CHddObj() == m_disk.Path().c_str());

    tag_HDDPARAM away = Param(other / "vdb");
    EXPECT_FALSE(hdd.ChangeBaseDir(&away));
    EXPECT_EQ(std::string(hdd.GetBaseDir()), m_disk / "vdb/");
    EXPECT_FALSE(std::filesystem::exists(other / "vdb"));

    tag_HDDPARAM moved = Param(m_disk / "new", 100, "N");
    moved.bRecycle = FALSE;
    ASSERT_TRUE(hdd.ChangeBaseDir(&moved));
    EXPECT_EQ(std::string(hdd.GetBaseDir()), m_disk / "new/");
    EXPECT_EQ(std::string(hdd.GetDbsName()), "N(" + m_disk.Volume() + ")");
    EXPECT_EQ(hdd.GetAlarmSpace(), 150u);
    EXPECT_FALSE(hdd.IsRecycle());
    EXPECT_EQ(hdd.GetDirNum(CHddObj::DIR_LOCAL), 1);
}

TEST_F(HddObjDisk, SpaceIsMeasuredInWholeMegabytesOfTheVolume)
{
    m_disk.PutSparseFile("filler", 30 * kMegabyte + kMegabyte / 2);
    CHddObj hdd;
    tag_HDDPARAM param = Param(m_disk / "vdb");
    ASSERT_TRUE(hdd.Create(&param, 0));
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    DWORD dwFree = 0;
    ASSERT_TRUE(hdd.GetHDDSpace(dwTotal, dwUsed, dwFree));
    EXPECT_EQ(dwTotal, 100u);
    EXPECT_EQ(dwFree, 69u);
    EXPECT_EQ(dwUsed, 30u);
    EXPECT_FALSE(CHddObj::GetHDDSpace("", dwTotal, dwUsed, dwFree));
    EXPECT_FALSE(CHddObj::GetHDDSpace((m_disk / "missing").c_str(), dwTotal, dwUsed, dwFree));
    EXPECT_FALSE(CHddObj().GetHDDSpace(dwTotal, dwUsed, dwFree));
}

TEST_F(HddObjDisk, ASnapshotCarriesNamesAndListsAndTheArchiveFormCarriesSettings)
{
    CHddObj hdd;
    tag_HDDPARAM param = Param(m_disk / "vdb", 123, "Front");
    param.bRecycle = TRUE;
    param.bAlarmWhenSpaceNotEnough = TRUE;
    param.strAlarmSound = "bell.wav";
    ASSERT_TRUE(hdd.Create(&param, 0));
    hdd.GetVideoDir();
    hdd.SetDbsName("Shown");

    CHddObj snapshot;
    snapshot = hdd;
    EXPECT_EQ(snapshot.GetBaseDir(), hdd.GetBaseDir());
    EXPECT_EQ(snapshot.GetHDD(), hdd.GetHDD());
    EXPECT_STREQ(snapshot.GetDbsName(), "Shown");
    EXPECT_EQ(snapshot.GetDirDate(0, CHddObj::DIR_LOCAL), LocalDate(2026, 3, 10));
    EXPECT_STREQ(snapshot.GetDbsName1(), "ZnDatabase");
    EXPECT_EQ(snapshot.GetReservedSpace(), 500u);
    EXPECT_FALSE(snapshot.IsRecycle());

    CMemFile file;
    {
        CArchive ar(&file, CArchive::store);
        hdd.Serialize(ar);
    }
    const std::string strBase = static_cast<LPCSTR>(hdd.GetBaseDir());
    EXPECT_EQ(file.GetLength(), 4 + 1 + strBase.size() + 1 + 5 + 4 + 4 + 1 + 8);
    file.SeekToBegin();
    CHddObj loaded;
    {
        CArchive ar(&file, CArchive::load);
        loaded.Serialize(ar);
    }
    EXPECT_TRUE(loaded.IsRecycle());
    EXPECT_EQ(loaded.GetBaseDir(), hdd.GetBaseDir());
    EXPECT_STREQ(loaded.GetDbsName(), "Shown");
    EXPECT_EQ(loaded.GetReservedSpace(), 123u);
    EXPECT_TRUE(loaded.IsAlarmWhenSpaceNotEnough());
    EXPECT_STREQ(loaded.GetAlarmSound(), "bell.wav");
}

} // namespace
