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

class CExceptionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_aReported.clear();
        m_pfnPrevious = SetExceptionReporter(&CollectReport);
    }
    void TearDown() override { SetExceptionReporter(m_pfnPrevious); }

    EXCEPTIONREPORTER m_pfnPrevious = nullptr;
};

} // namespace

TEST_F(CExceptionTest, ReportErrorGoesToTheInstalledReporterAsOneLine)
{
    CFileException fileError(CFileException::diskFull, ENOSPC, "/srv/disk2/rec.zn");
    EXPECT_EQ(fileError.ReportError(), IDOK);
    CMemoryException memoryError;
    memoryError.ReportError();
    CArchiveException archiveError(CArchiveException::endOfFile, "db");
    archiveError.ReportError();

    ASSERT_EQ(g_aReported.size(), 3u);
    EXPECT_NE(g_aReported[0].find("/srv/disk2/rec.zn"), std::string::npos);
    EXPECT_NE(g_aReported[0].find("disk is full"), std::string::npos);
    EXPECT_EQ(g_aReported[1], "out of memory");
    EXPECT_NE(g_aReported[2].find("end of the archive"), std::string::npos);
    for (const std::string& strLine : g_aReported)
        EXPECT_EQ(strLine.find('\n'), std::string::npos);
}

TEST_F(CExceptionTest, TheDefaultReporterWritesOneLineToStandardError)
{
    EXPECT_EQ(SetExceptionReporter(nullptr), &CollectReport);
    ::testing::internal::CaptureStderr();
    CFileException(CFileException::fileNotFound, ENOENT, "x.zn").ReportError();
    std::string strOutput = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(strOutput.back(), '\n');
    EXPECT_EQ(strOutput.find('\n'), strOutput.size() - 1);
    EXPECT_NE(strOutput.find("x.zn"), std::string::npos);
    EXPECT_TRUE(g_aReported.empty());
}

TEST_F(CExceptionTest, GetErrorMessageCutsToTheBufferAndTerminates)
{
    CFileException error(CFileException::sharingViolation, EAGAIN, "a-rather-long-file-name.zn");
    char aSmall[8];
    std::fill(std::begin(aSmall), std::end(aSmall), 'x');
    EXPECT_TRUE(error.GetErrorMessage(aSmall, sizeof(aSmall)));
    EXPECT_EQ(std::string(aSmall), "a-rathe");
    EXPECT_FALSE(error.GetErrorMessage(aSmall, 0));
    EXPECT_FALSE(error.GetErrorMessage(nullptr, 100));

    CFileException strange(1234, -1, nullptr);
    char aText[200];
    EXPECT_TRUE(strange.GetErrorMessage(aText, sizeof(aText)));
    EXPECT_EQ(std::string(aText), "an unspecified error occurred");
}

TEST_F(CExceptionTest, SystemErrorsMapToTheCausesTheRecorderActsOn)
{
    EXPECT_EQ(CFileException::OsErrorToException(ENOSPC), CFileException::diskFull);
    EXPECT_EQ(CFileException::OsErrorToException(EDQUOT), CFileException::diskFull);
    EXPECT_EQ(CFileException::OsErrorToException(ENOENT), CFileException::fileNotFound);
    EXPECT_EQ(CFileException::OsErrorToException(EAGAIN), CFileException::sharingViolation);
    try {
        CFileException::ThrowOsError(ENOSPC, "f");
        ADD_FAILURE() << "nothing thrown";
    } catch (CFileException* pError) {
        EXPECT_EQ(pError->m_cause, CFileException::diskFull);
        EXPECT_EQ(pError->m_lOsError, ENOSPC);
        EXPECT_STREQ(pError->m_strFileName, "f");
        pError->Delete();
    }
}
