#include "platform/Disks.h"

#include "platform/CFile.h"
#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

namespace {

constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;

std::uint64_t FreeBytes(const std::string& strPath)
{
    ULARGE_INTEGER freeToCaller{~std::uint64_t{0}};
    ULARGE_INTEGER total{0};
    ULARGE_INTEGER totalFree{0};
    EXPECT_TRUE(GetDiskFreeSpaceExA(strPath.c_str(), &freeToCaller, &total, &totalFree));
    EXPECT_EQ(freeToCaller.QuadPart, totalFree.QuadPart);
    return freeToCaller.QuadPart;
}

class QuotaVolumeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_strDisk = m_dir / "disk1";
        std::filesystem::create_directory(m_strDisk);
        ASSERT_TRUE(DeclareQuotaVolume(m_strDisk.c_str(), 10));
    }
    void TearDown() override
    {
        RemoveQuotaVolume(m_strDisk.c_str());
        RemoveQuotaVolume((m_dir / "disk1/inner").c_str());
    }

    ScopedTempDir m_dir;
    std::string m_strDisk;
};

} // namespace

TEST(DiskVolume, RootIsItsOwnVolumeWithAFileSystemAndSpace)
{
    tag_VOLUMEINFO info;
    ASSERT_TRUE(GetVolumeInfo("/", &info));
    EXPECT_STREQ(info.strVolume, "/");
    EXPECT_FALSE(info.strFileSystem.IsEmpty());
    EXPECT_FALSE(info.bQuota);

    ULARGE_INTEGER freeToCaller{0}, total{0}, totalFree{0};
    ASSERT_TRUE(GetDiskFreeSpaceExA("/", &freeToCaller, &total, &totalFree));
    EXPECT_EQ(total.QuadPart, std::filesystem::space("/").capacity);
    EXPECT_LE(freeToCaller.QuadPart, totalFree.QuadPart);
    EXPECT_LE(totalFree.QuadPart, total.QuadPart);
    EXPECT_TRUE(GetDiskFreeSpaceExA("/", nullptr, nullptr, nullptr));
}

TEST(DiskVolume, AMissingPathBelongsToTheVolumeOfItsNearestAncestor)
{
    ScopedTempDir dir;
    CString strVolume = GetVolumePath(dir.Path().c_str());
    ASSERT_FALSE(strVolume.IsEmpty());
    EXPECT_EQ(strVolume.Right(1), CString("/"));
    EXPECT_TRUE(GetVolumePath((dir / "not/yet/made").c_str()) == strVolume);
    EXPECT_TRUE(IsSameVolume(dir.Path().c_str(), (dir / "not/yet").c_str()));
    EXPECT_EQ(GetDriveTypeA((dir / "not/yet").c_str()), GetDriveTypeA(dir.Path().c_str()));
    EXPECT_FALSE(GetDiskFreeSpaceExA((dir / "not/yet").c_str(), nullptr, nullptr, nullptr));
}

TEST(DiskVolume, KernelAndRamFileSystemsAreRefused)
{
    EXPECT_EQ(GetDriveTypeA("/proc/self"), DRIVE_UNKNOWN);
    EXPECT_FALSE(IsAcceptedVolume("/proc"));
    tag_VOLUMEINFO info;
    if (!GetVolumeInfo("/dev/shm", &info) || info.strFileSystem != CString("tmpfs"))
        GTEST_SKIP() << "/dev/shm is not a tmpfs here";
    EXPECT_STREQ(info.strVolume, "/dev/shm/");
    EXPECT_EQ(info.nDriveType, DRIVE_RAMDISK);
    EXPECT_FALSE(IsAcceptedVolume("/dev/shm/some/dir"));
    EXPECT_FALSE(IsSameVolume("/dev/shm", "/proc"));
}

TEST(DiskVolume, BadPathsGiveFailureResults)
{
    tag_VOLUMEINFO info;
    EXPECT_FALSE(GetVolumeInfo(nullptr, &info));
    EXPECT_FALSE(GetVolumeInfo("", &info));
    EXPECT_FALSE(GetVolumeInfo("/", nullptr));
    EXPECT_STREQ(GetVolumePath(nullptr), "");
    EXPECT_EQ(GetDriveTypeA(nullptr), DRIVE_NO_ROOT_DIR);
    EXPECT_FALSE(IsSameVolume(nullptr, nullptr));
    EXPECT_FALSE(GetDiskFreeSpaceExA(nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(DeclareQuotaVolume(nullptr, 1));
    EXPECT_FALSE(DeclareQuotaVolume("/no/such/directory", 1));
    EXPECT_FALSE(RemoveQuotaVolume(""));
    EXPECT_FALSE(CreateDirectoryA(nullptr, nullptr));
    EXPECT_FALSE(RemoveDirectoryA(""));
    EXPECT_FALSE(DeleteFileA(nullptr));
}

TEST_F(QuotaVolumeTest, IsItsOwnFixedVolume)
{
    tag_VOLUMEINFO info;
    ASSERT_TRUE(GetVolumeInfo((m_strDisk + "/Local/d20020301").c_str(), &info));
    EXPECT_STREQ(info.strVolume, (m_strDisk + "/").c_str());
    EXPECT_TRUE(info.bQuota);
    EXPECT_EQ(info.nDriveType, DRIVE_FIXED);
    EXPECT_TRUE(IsSameVolume(m_strDisk.c_str(), (m_strDisk + "/Local").c_str()));
    EXPECT_FALSE(IsSameVolume(m_strDisk.c_str(), m_dir.Path().c_str()));
    EXPECT_FALSE(IsSameVolume(m_strDisk.c_str(), (m_dir / "disk10").c_str()));
}

TEST_F(QuotaVolumeTest, FreeSpaceFollowsTheFilesAddedAndDeleted)
{
    ULARGE_INTEGER total{0};
    ASSERT_TRUE(GetDiskFreeSpaceExA(m_strDisk.c_str(), nullptr, &total, nullptr));
    EXPECT_EQ(total.QuadPart, 10 * kMegabyte);
    EXPECT_EQ(FreeBytes(m_strDisk), 10 * kMegabyte);

    ASSERT_TRUE(CreateDirectoryA((m_strDisk + "/Local").c_str(), nullptr));
    WriteWholeFile(m_strDisk + "/Local/a", std::string(kMegabyte, 'a'));
    WriteWholeFile(m_strDisk + "/b", std::string(1000, 'b'));
    EXPECT_EQ(FreeBytes(m_strDisk + "/Local"), 9 * kMegabyte - 1000);

    ASSERT_TRUE(DeleteFileA((m_strDisk + "/Local/a").c_str()));
    EXPECT_EQ(FreeBytes(m_strDisk), 10 * kMegabyte - 1000);

    ASSERT_TRUE(DeclareQuotaVolume(m_strDisk.c_str(), 0));
    EXPECT_EQ(FreeBytes(m_strDisk), 0u);
}

TEST_F(QuotaVolumeTest, TheInnermostDeclarationWinsAndRemovalRestoresTheMount)
{
    CString strMountVolume = GetVolumePath(m_dir.Path().c_str());
    std::string strInner = m_strDisk + "/inner";
    ASSERT_TRUE(CreateDirectoryA(strInner.c_str(), nullptr));
    ASSERT_TRUE(DeclareQuotaVolume(strInner.c_str(), 3));
    WriteWholeFile(strInner + "/f", std::string(100, 'f'));
    EXPECT_STREQ(GetVolumePath((strInner + "/f").c_str()), (strInner + "/").c_str());
    EXPECT_EQ(FreeBytes(strInner), 3 * kMegabyte - 100);
    EXPECT_EQ(FreeBytes(m_strDisk), 10 * kMegabyte - 100);

    EXPECT_TRUE(RemoveQuotaVolume(strInner.c_str()));
    EXPECT_FALSE(RemoveQuotaVolume(strInner.c_str()));
    EXPECT_STREQ(GetVolumePath(strInner.c_str()), (m_strDisk + "/").c_str());
    EXPECT_TRUE(RemoveQuotaVolume(m_strDisk.c_str()));
    EXPECT_TRUE(GetVolumePath(m_strDisk.c_str()) == strMountVolume);
}

TEST(DiskDirectories, CreateMakesOneLevelAndRemoveOnlyEmptyDirectories)
{
    ScopedTempDir dir;
    EXPECT_FALSE(CreateDirectoryA((dir / "a/b").c_str(), nullptr));
    EXPECT_TRUE(CreateDirectoryA((dir / "a").c_str(), nullptr));
    EXPECT_FALSE(CreateDirectoryA((dir / "a").c_str(), nullptr));
    EXPECT_TRUE(CreateDirectoryA((dir / "a/b").c_str(), nullptr));
    EXPECT_FALSE(RemoveDirectoryA((dir / "a").c_str()));
    EXPECT_TRUE(RemoveDirectoryA((dir / "a/b").c_str()));
    EXPECT_TRUE(RemoveDirectoryA((dir / "a").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "a"));
}

TEST(DiskFiles, DeleteRefusesDirectoriesAndFilesHeldByAWriter)
{
    ScopedTempDir dir;
    std::string strPath = dir / "rec.zn";
    CFile writer;
    ASSERT_TRUE(writer.Open(strPath.c_str(), CFile::modeCreate | CFile::modeWrite));
    CFile reader;
    ASSERT_TRUE(reader.Open(strPath.c_str(), CFile::modeRead));
    EXPECT_FALSE(DeleteFileA(strPath.c_str()));
    EXPECT_FALSE(DeleteFileA(dir.Path().c_str()));
    writer.Close();
    EXPECT_TRUE(DeleteFileA(strPath.c_str()));
    EXPECT_FALSE(DeleteFileA(strPath.c_str()));
}

TEST(DiskFiles, MoveReplacesOnlyWhenAskedAndLeavesOneWholeFile)
{
    ScopedTempDir dir;
    WriteWholeFile(dir / "old", "old");
    WriteWholeFile(dir / "new", "new");
    EXPECT_FALSE(MoveFileExA((dir / "new").c_str(), (dir / "old").c_str(), MOVEFILE_WRITE_THROUGH));
    EXPECT_EQ(ReadWholeFile(dir / "old"), std::vector<unsigned char>({'o', 'l', 'd'}));
    ASSERT_TRUE(MoveFileExA((dir / "new").c_str(), (dir / "old").c_str(),
                            MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
    EXPECT_EQ(ReadWholeFile(dir / "old"), std::vector<unsigned char>({'n', 'e', 'w'}));
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
    EXPECT_TRUE(MoveFileExA((dir / "old").c_str(), (dir / "moved").c_str(), 0));
    EXPECT_FALSE(MoveFileExA((dir / "old").c_str(), (dir / "moved2").c_str(), 0));
    EXPECT_FALSE(MoveFileExA(nullptr, (dir / "x").c_str(), 0));
}

TEST(DiskFiles, FullPathNamesAreAbsoluteAndNormalisedByName)
{
    const std::string strCurrent = std::filesystem::current_path().string();
    struct tag_FULLPATHCASE {
        const char* pszName;
        std::string strFull;
    };
    const tag_FULLPATHCASE aCases[] = {
        {"/srv//disk2/./vdb/", "/srv/disk2/vdb"}, {"/a/b/../c", "/a/c"}, {"/", "/"}, {"//", "/"},
        {"store", strCurrent + "/store"}, {"./store/../x/", strCurrent + "/x"}};
    for (const tag_FULLPATHCASE& fullCase : aCases) {
        SCOPED_TRACE(fullCase.pszName);
        EXPECT_STREQ(GetFullPathName(fullCase.pszName), fullCase.strFull.c_str());
        char aBuffer[8];
        LPSTR pFilePart = nullptr;
        const DWORD dwLength = GetFullPathNameA(fullCase.pszName, sizeof(aBuffer), aBuffer, &pFilePart);
        if (fullCase.strFull.size() < sizeof(aBuffer)) {
            EXPECT_EQ(dwLength, fullCase.strFull.size());
            EXPECT_STREQ(aBuffer, fullCase.strFull.c_str());
            EXPECT_STREQ(pFilePart, fullCase.strFull.substr(fullCase.strFull.find_last_of('/') + 1).c_str());
        } else {
            EXPECT_EQ(dwLength, fullCase.strFull.size() + 1);
        }
    }
    EXPECT_EQ(GetFullPathNameA("", 8, nullptr, nullptr), 0u);
    EXPECT_STREQ(GetFullPathName(nullptr), "");
}
