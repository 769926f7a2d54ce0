// The simulated disk that the crash tests of the file writers stand on: what a power cut
// keeps, and the failures it injects.
#include "platform/CDiskSimulator.h"

#include "platform/CFile.h"
#include "platform/CFileException.h"
#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

namespace {

std::string AsText(const std::vector<BYTE>& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

// Synced bytes always survive; an unsynced write spanning sectors survives whole, not at
// all, or in sector pieces; a created file's name needs its directory synced.
TEST(CDiskSimulator, CrashImagesKeepWhatWasSyncedAndPiecesOfTheRest)
{
    ScopedTempDir dir;
    const std::string strPath = dir / "sim";
    CDiskSimulator disk;
    std::mt19937 random(7);
    std::vector<BYTE> image;
    const std::string strSynced(CDiskSimulator::kSectorSize, 's');
    const std::string strSector(CDiskSimulator::kSectorSize, 'u');
    CFile file;
    ASSERT_TRUE(file.Open(strPath.c_str(), CFile::modeCreate | CFile::modeWrite));
    file.Write(strSynced.data(), CDiskSimulator::kSectorSize);
    file.Flush();
    EXPECT_FALSE(disk.MakeCrashImage(strPath.c_str(), random, image));
    file.FlushDirectory();

    file.Write((strSector + strSector).data(), 2 * CDiskSimulator::kSectorSize);
    std::set<std::string> images;
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(disk.MakeCrashImage(strPath.c_str(), random, image));
        images.insert(AsText(image));
    }
    const std::set<std::string> expected = {strSynced, strSynced + strSector,
                                            strSynced + std::string(strSector.size(), '\0') + strSector,
                                            strSynced + strSector + strSector};
    EXPECT_EQ(images, expected);
    file.SetLength(CDiskSimulator::kSectorSize + 1);
    file.Flush();
    ASSERT_TRUE(disk.MakeCrashImage(strPath.c_str(), random, image));
    EXPECT_EQ(AsText(image), strSynced + "u");
}

// The chosen operations fail with the chosen error; a failing write stores half its bytes.
TEST(CDiskSimulator, InjectedFailuresHitTheChosenOperations)
{
    ScopedTempDir dir;
    const std::string strPath = dir / "fail";
    CDiskSimulator disk;
    CFile file;
    ASSERT_TRUE(file.Open(strPath.c_str(), CFile::modeCreate | CFile::modeWrite));
    disk.InjectFailures(CDiskSimulator::opWrite, 1, 1, ENOSPC);
    file.Write("abcd", 4);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Write("efgh", 4); }), CFileException::diskFull);
    file.Write("ijkl", 4);
    file.Flush();
    disk.InjectFailures(CDiskSimulator::opSync, 0, 1, EIO);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Flush(); }), CFileException::hardIO);
    file.Flush();
    EXPECT_EQ(disk.GetOperationCount(), 6u);
    file.Close();
    EXPECT_EQ(ReadWholeFile(strPath), (std::vector<unsigned char>{'a', 'b', 'c', 'd', 'e', 'f', 'i', 'j', 'k', 'l'}));
}

} // namespace
