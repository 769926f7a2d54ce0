#include "platform/CFile.h"

#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr UINT kCreateWrite = CFile::modeCreate | CFile::modeWrite;
constexpr UINT kWriteNoTruncate = CFile::modeWrite | CFile::modeNoTruncate;

void WriteText(CFile& file, const std::string& strText)
{
    file.Write(strText.data(), static_cast<UINT>(strText.size()));
}

std::string ReadText(CFile& file, UINT nCount)
{
    std::string strText(nCount, '\0');
    strText.resize(file.Read(strText.data(), nCount));
    return strText;
}

} // namespace

TEST(CFileOpen, CreatesWritesAndReportsTheFullNormalisedPath)
{
    ScopedTempDir dir;
    std::filesystem::create_directory(dir.Path() / "sub");
    CFile file;
    ASSERT_TRUE(file.Open((dir / "sub/../sub/./rec.zn").c_str(), kCreateWrite));
    WriteText(file, "hello");
    EXPECT_EQ(file.GetLength(), 5u);
    EXPECT_EQ(file.GetPosition(), 5u);
    EXPECT_STREQ(file.GetFilePath(), (dir / "sub/rec.zn").c_str());
    EXPECT_STREQ(file.GetFileName(), "rec.zn");
    file.Close();
    EXPECT_EQ(ReadWholeFile(dir / "sub/rec.zn").size(), 5u);
    // A new file may be read and written by everyone the process's umask allows.
    const mode_t nMask = umask(0);
    umask(nMask);
    struct stat status;
    ASSERT_EQ(stat((dir / "sub/rec.zn").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666 & ~nMask);
}

TEST(CFileOpen, CreateTruncatesAndNoTruncateKeepsTheContents)
{
    ScopedTempDir dir;
    std::string strPath = dir / "f";
    WriteWholeFile(strPath, "0123456789");
    {
        CFile file;
        ASSERT_TRUE(file.Open(strPath.c_str(), kWriteNoTruncate));
        EXPECT_EQ(file.GetLength(), 10u);
        EXPECT_EQ(file.GetPosition(), 0u);
        WriteText(file, "ab");
    }
    EXPECT_EQ(ReadWholeFile(strPath).size(), 10u);
    {
        CFile reader;
        ASSERT_TRUE(reader.Open(strPath.c_str(), CFile::modeCreate | CFile::modeRead));
        EXPECT_EQ(reader.GetLength(), 10u);
    }
    CFile file;
    ASSERT_TRUE(file.Open(strPath.c_str(), kCreateWrite));
    EXPECT_EQ(file.GetLength(), 0u);
}

TEST(CFileOpen, FailuresGiveFalseAndACause)
{
    ScopedTempDir dir;
    CFile file;
    CFileException error;
    EXPECT_FALSE(file.Open((dir / "missing").c_str(), CFile::modeRead, &error));
    EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
    EXPECT_STREQ(error.m_strFileName, (dir / "missing").c_str());
    EXPECT_FALSE(file.Open((dir / "missing").c_str(), kWriteNoTruncate, &error));
    EXPECT_FALSE(file.Open((dir / "no/such/dir/f").c_str(), kCreateWrite, &error));
    EXPECT_FALSE(file.Open(dir.Path().c_str(), CFile::modeRead, &error));
    EXPECT_EQ(error.m_cause, CFileException::accessDenied);
    EXPECT_FALSE(file.Open(nullptr, CFile::modeRead, &error));
    EXPECT_FALSE(file.Open("", kCreateWrite));

    ASSERT_TRUE(file.Open((dir / "f").c_str(), kCreateWrite));
    EXPECT_FALSE(file.Open((dir / "g").c_str(), kCreateWrite, &error));
    EXPECT_EQ(error.m_cause, CFileException::generic);
    EXPECT_EQ(error.m_lOsError, EBUSY);
    EXPECT_STREQ(file.GetFilePath(), (dir / "f").c_str());

    // A link is followed unless only regular files are wanted.
    std::filesystem::create_symlink(dir / "f", dir / "link");
    CFile linked;
    EXPECT_FALSE(linked.Open((dir / "link").c_str(), CFile::modeRead | CFile::modeRegularOnly));
    EXPECT_TRUE(linked.Open((dir / "link").c_str(), CFile::modeRead));
    // A reader asks for reading only: even the running program, which no one may write, opens.
    CFile running;
    EXPECT_TRUE(running.Open("/proc/self/exe", CFile::modeRead));
}

// A writer removes its file only while the name still leads to the file it holds.
TEST(CFileOpen, RemoveOpenFileTakesOnlyTheFileItHolds)
{
    ScopedTempDir dir;
    CFile file;
    EXPECT_FALSE(file.RemoveOpenFile());
    ASSERT_TRUE(file.Open((dir / "f").c_str(), kCreateWrite));
    EXPECT_TRUE(file.RemoveOpenFile());
    EXPECT_FALSE(std::filesystem::exists(dir / "f"));
    WriteWholeFile(dir / "f", "new");
    EXPECT_FALSE(file.RemoveOpenFile());
    EXPECT_EQ(ReadWholeFile(dir / "f").size(), 3u);
}

TEST(CFileRead, GivesFewerBytesAtTheEndWithoutThrowing)
{
    ScopedTempDir dir;
    WriteWholeFile(dir / "f", "abcdef");
    CFile file;
    ASSERT_TRUE(file.Open((dir / "f").c_str(), CFile::modeRead));
    EXPECT_EQ(ReadText(file, 4), "abcd");
    EXPECT_EQ(ReadText(file, 100), "ef");
    EXPECT_EQ(ReadText(file, 100), "");
    file.Seek(1000, CFile::begin);
    EXPECT_EQ(ReadText(file, 10), "");
    EXPECT_EQ(file.Read(nullptr, 10), 0u);
}

TEST(CFileSeek, MovesFromBeginCurrentAndEndAndRefusesBadTargets)
{
    ScopedTempDir dir;
    WriteWholeFile(dir / "f", "0123456789");
    CFile file;
    ASSERT_TRUE(file.Open((dir / "f").c_str(), CFile::modeRead));
    EXPECT_EQ(file.Seek(3, CFile::begin), 3);
    EXPECT_EQ(file.Seek(2, CFile::current), 5);
    EXPECT_EQ(file.Seek(-4, CFile::end), 6);
    EXPECT_EQ(ReadText(file, 1), "6");
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Seek(-1, CFile::begin); }), CFileException::badSeek);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Seek(0, 7); }), CFileException::badSeek);
    EXPECT_EQ(file.GetPosition(), 7u);
    file.SeekToBegin();
    EXPECT_EQ(ReadText(file, 1), "0");
}

TEST(CFileWrite, ThrowsDiskFullWhenTheDeviceHasNoRoom)
{
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "/dev/full is not available";
    CFile file;
    ASSERT_TRUE(file.Open("/dev/full", kWriteNoTruncate));
    char aBlock[512] = {};
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Write(aBlock, sizeof(aBlock)); }), CFileException::diskFull);
}

TEST(CFileWrite, RefusesReadOnlyFilesNullDataAndClosedFiles)
{
    ScopedTempDir dir;
    WriteWholeFile(dir / "f", "abc");
    CFile file;
    ASSERT_TRUE(file.Open((dir / "f").c_str(), CFile::modeRead));
    EXPECT_EQ(CatchCause<CFileException>([&] { WriteText(file, "x"); }), CFileException::accessDenied);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Write(nullptr, 4); }), CFileException::generic);
    file.Write(nullptr, 0);
    file.Close();
    file.Close();
    EXPECT_EQ(CatchCause<CFileException>([&] { WriteText(file, "x"); }), CFileException::invalidFile);
    EXPECT_EQ(CatchCause<CFileException>([&] { ReadText(file, 1); }), CFileException::invalidFile);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Seek(0, CFile::begin); }), CFileException::invalidFile);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.GetLength(); }), CFileException::invalidFile);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Flush(); }), CFileException::invalidFile);
    EXPECT_EQ(ReadWholeFile(dir / "f").size(), 3u);
}

TEST(CFileSharing, ASecondWriterIsRefusedUntilTheFirstIsClosedOrDestroyed)
{
    ScopedTempDir dir;
    std::string strPath = dir / "rec";
    CFile writer;
    ASSERT_TRUE(writer.Open(strPath.c_str(), kCreateWrite));
    WriteText(writer, "block-1");

    CFile second;
    CFileException error;
    EXPECT_FALSE(second.Open(strPath.c_str(), kCreateWrite, &error));
    EXPECT_EQ(error.m_cause, CFileException::sharingViolation);
    EXPECT_FALSE(second.Open(strPath.c_str(), kWriteNoTruncate));
    EXPECT_FALSE(second.Open(strPath.c_str(), CFile::modeReadWrite));
    EXPECT_EQ(writer.GetLength(), 7u);

    writer.Close();
    {
        CFile next(strPath.c_str(), kWriteNoTruncate);
    }
    EXPECT_TRUE(second.Open(strPath.c_str(), kWriteNoTruncate)) << "the destructor let the writer go";
}

TEST(CFileSharing, ReadersComeAndGoWhileTheWriterWrites)
{
    ScopedTempDir dir;
    std::string strPath = dir / "rec";
    CFile writer;
    ASSERT_TRUE(writer.Open(strPath.c_str(), kCreateWrite));
    WriteText(writer, "first");
    {
        CFile reader;
        ASSERT_TRUE(reader.Open(strPath.c_str(), CFile::modeRead | CFile::shareDenyWrite));
        EXPECT_EQ(ReadText(reader, 100), "first");
        WriteText(writer, "second");
        EXPECT_EQ(ReadText(reader, 100), "second");
    }
    CFile lateReader;
    ASSERT_TRUE(lateReader.Open(strPath.c_str(), CFile::modeRead));
    WriteText(writer, "third");
    EXPECT_EQ(ReadText(lateReader, 100), "firstsecondthird");
}

TEST(CFileSharing, WriterInAnotherProcessIsRefusedButItsReaderIsNot)
{
    ScopedTempDir dir;
    std::string strPath = dir / "rec";
    CFile writer;
    ASSERT_TRUE(writer.Open(strPath.c_str(), kCreateWrite));
    WriteText(writer, "data");

    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        CFile childWriter;
        CFile childReader;
        bool bWriterRefused = !childWriter.Open(strPath.c_str(), kWriteNoTruncate);
        bool bReaderServed = childReader.Open(strPath.c_str(), CFile::modeRead) && childReader.GetLength() == 4;
        _exit(bWriterRefused && bReaderServed ? 0 : 1);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(pid, &nStatus, 0), pid);
    ASSERT_TRUE(WIFEXITED(nStatus));
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
    EXPECT_EQ(writer.GetLength(), 4u);
}

TEST(CFileConstructor, ThrowsWhenTheFileCantBeOpened)
{
    ScopedTempDir dir;
    EXPECT_EQ(CatchCause<CFileException>([&] { CFile file((dir / "missing").c_str(), CFile::modeRead); }),
              CFileException::fileNotFound);
}
