// How exceptions reach the user: one line each, to the installed reporter or to
// standard error, cut safely into a caller's buffer.
#include "platform/CArchiveException.h"
#include "platform/CFileException.h"
#include "platform/CMemoryException.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

namespace {

std::vector<std::string> g_aReported;

void CollectReport(LPCSTR pszMessage)
{
    g_aReported.emplace_back(pszMessage);
}

TEST(CExceptionTest, ReportsGoAsOneLineToTheInstalledReporterOrToStandardError)
{
    g_aReported.clear();
    EXCEPTIONREPORTER pfnPrevious = SetExceptionReporter(&CollectReport);
    EXPECT_EQ(CFileException(CFileException::diskFull, ENOSPC, "/srv/disk2/rec.zn").ReportError(), IDOK);
    CMemoryException().ReportError();
    CArchiveException(CArchiveException::endOfFile, "db").ReportError();
    ASSERT_EQ(g_aReported.size(), 3u);
    EXPECT_NE(g_aReported[0].find("/srv/disk2/rec.zn"), std::string::npos);
    EXPECT_NE(g_aReported[0].find("disk is full"), std::string::npos);
    EXPECT_EQ(g_aReported[1], "out of memory");
    EXPECT_NE(g_aReported[2].find("end of the archive"), std::string::npos);

    EXPECT_EQ(SetExceptionReporter(nullptr), &CollectReport);
    ::testing::internal::CaptureStderr();
    CFileException(CFileException::fileNotFound, ENOENT, "x.zn").ReportError();
    std::string strOutput = ::testing::internal::GetCapturedStderr();
    SetExceptionReporter(pfnPrevious);
    EXPECT_EQ(strOutput.find('\n'), strOutput.size() - 1);
    EXPECT_NE(strOutput.find("x.zn"), std::string::npos);
    EXPECT_EQ(g_aReported.size(), 3u);
}

TEST(CExceptionTest, GetErrorMessageCutsToTheBufferAndTerminates)
{
    CFileException error(CFileException::sharingViolation, EAGAIN, "a-rather-long-file-name.zn");
    char aSmall[8];
    std::fill(std::begin(aSmall), std::end(aSmall), 'x');
    EXPECT_TRUE(error.GetErrorMessage(aSmall, sizeof(aSmall)));
    EXPECT_EQ(std::string(aSmall), "a-rathe");
    EXPECT_FALSE(error.GetErrorMessage(aSmall, 0));
    EXPECT_FALSE(error.GetErrorMessage(nullptr, 100));

    char aText[200];
    EXPECT_TRUE(CFileException(1234, -1, nullptr).GetErrorMessage(aText, sizeof(aText)));
    EXPECT_EQ(std::string(aText), "an unspecified error occurred");
}

} // namespace
