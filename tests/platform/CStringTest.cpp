#include "platform/CString.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

TEST(CStringFormat, FormatsPrintfConversionsLikeTheCLibraryEvenFromItsOwnText)
{
    CString str;
    str.Format("video play wnd %d", 7);
    EXPECT_STREQ(str, "video play wnd 7");
    str.Format("%s|%5.1f|%-4s|%08X|%c|%%", "ab", 2.25, "x", 0xBEEFu, 'q');
    EXPECT_STREQ(str, "ab|  2.2|x   |0000BEEF|q|%");
    str.Format("d%04d%02d%02d", 2002, 3, 1);
    EXPECT_EQ(str, "d20020301");
    // Its own text may be an argument.
    str = "c:\\vdb";
    str.Format("%s\\%s\\", static_cast<LPCSTR>(str), "local");
    EXPECT_EQ(str, "c:\\vdb\\local\\");
}

TEST(CStringFormat, LongResultsAreNotCutAndNullOrEmptyFormatsGiveTheEmptyString)
{
    std::string strLong(10000, 'z');
    CString str;
    str.Format("<%s>", strLong.c_str());
    ASSERT_EQ(str.GetLength(), 10002);
    EXPECT_EQ(str.Left(3), "<zz");
    EXPECT_EQ(str.Right(2), "z>");
    str.Format("%s", "");
    EXPECT_TRUE(str.IsEmpty());
    str = "old";
    LPCSTR pNoFormat = nullptr;
    str.Format(pNoFormat);
    EXPECT_TRUE(str.IsEmpty());
}

TEST(CStringSlices, ArgumentsBeyondTheEdgesAreClamped)
{
    const CString str("d20020301");
    EXPECT_EQ(str.Left(100), "d20020301");
    EXPECT_EQ(str.Left(-5), "");
    EXPECT_EQ(str.Right(100), "d20020301");
    EXPECT_EQ(str.Right(-1), "");
    EXPECT_EQ(str.Mid(1, 4), "2002");
    EXPECT_EQ(str.Mid(7, 100), "01");
    EXPECT_EQ(str.Mid(9), "");
    EXPECT_EQ(str.Mid(50, 2), "");
    EXPECT_EQ(str.Mid(-3, 2), "d2");
    EXPECT_EQ(str.Mid(2, -1), "");
    EXPECT_EQ(CString().Mid(0, 1), "");
}

TEST(CStringSlices, IndexedAccessOutsideTheStringReadsNulAndWritesNothing)
{
    CString str("abc");
    EXPECT_EQ(str.GetAt(0), 'a');
    EXPECT_EQ(str[2], 'c');
    EXPECT_EQ(str.GetAt(3), '\0');
    EXPECT_EQ(str.GetAt(-1), '\0');
    str.SetAt(3, 'x');
    str.SetAt(-1, 'x');
    str.SetAt(1, 'B');
    EXPECT_EQ(str, "aBc");
}

TEST(CStringSearch, FindsFirstAndLastOrMinusOne)
{
    const CString str("c:\\vdb\\local\\d20020301");
    EXPECT_EQ(str.Find('\\'), 2);
    EXPECT_EQ(str.Find('\\', 3), 6);
    EXPECT_EQ(str.ReverseFind('\\'), 12);
    EXPECT_EQ(str.Find("local"), 7);
    EXPECT_EQ(str.Find("remote"), -1);
    EXPECT_EQ(str.Find('c', 100), -1);
    EXPECT_EQ(str.Find('c', -1), -1);
    EXPECT_EQ(str.Find(""), -1);
    EXPECT_EQ(str.Find(static_cast<LPCSTR>(nullptr)), -1);
    EXPECT_EQ(str.FindOneOf("0123456789"), 14);
    EXPECT_EQ(CString().ReverseFind('a'), -1);
}

TEST(CStringCase, FoldsAsciiLettersOnly)
{
    CString str("C:\\VDB\\Local\\D2002\xC4\xE4");
    str.MakeLower();
    EXPECT_EQ(str, "c:\\vdb\\local\\d2002\xC4\xE4");
    str.MakeUpper();
    EXPECT_EQ(str, "C:\\VDB\\LOCAL\\D2002\xC4\xE4");
}

TEST(CStringCompare, OrdersBytewiseWithSignResults)
{
    CString strA("abc");
    EXPECT_EQ(strA.Compare("abc"), 0);
    EXPECT_EQ(strA.Compare("abd"), -1);
    EXPECT_EQ(strA.Compare("ab"), 1);
    EXPECT_EQ(strA.Compare("ABC"), 1);
    EXPECT_EQ(strA.Compare(nullptr), 1);
    EXPECT_EQ(CString().Compare(nullptr), 0);
    // Bytes above 0x7F sort after ASCII, as unsigned bytes do.
    EXPECT_EQ(CString("\xE4").Compare("z"), 1);
    EXPECT_EQ(strA.CompareNoCase("ABC"), 0);
    EXPECT_EQ(CString("Local").CompareNoCase("lOCAL"), 0);
    EXPECT_TRUE(CString("d20011231") < CString("d20020301"));
    EXPECT_FALSE(CString("d20020301") < CString("d20020301"));
}

TEST(CStringConcat, JoinsStringsPointersAndCharacters)
{
    CString strBase("c:\\vdb");
    CString strPath = strBase + '\\' + "Local" + CString("\\") + "d20020301";
    EXPECT_EQ(strPath, "c:\\vdb\\Local\\d20020301");
    strBase += static_cast<LPCSTR>(nullptr);
    strBase += '\\';
    EXPECT_EQ(strBase, "c:\\vdb\\");
    EXPECT_EQ(CString(static_cast<LPCSTR>(nullptr)), "");
    EXPECT_EQ(CString('-', 3), "---");
    EXPECT_EQ(CString('-', -3), "");
    EXPECT_EQ(CString("abcdef", 3), "abc");
    EXPECT_EQ(CString("abc", -1), "");
}

TEST(CStringBuffer, CWritersFillTheBufferAndReleaseSetsTheLength)
{
    CString str("old");
    LPSTR pBuffer = str.GetBuffer(64);
    std::snprintf(pBuffer, 65, "%s-%d", "cam", 12);
    str.ReleaseBuffer();
    EXPECT_EQ(str, "cam-12");
    EXPECT_EQ(str.GetLength(), 6);

    pBuffer = str.GetBuffer(2);
    pBuffer[0] = 'C';
    str.ReleaseBuffer(1000);
    EXPECT_EQ(str, "Cam-12");
    str.GetBuffer(0);
    str.ReleaseBuffer(3);
    EXPECT_EQ(str, "Cam");
    pBuffer = str.GetBufferSetLength(5);
    pBuffer[3] = '!';
    pBuffer[4] = '!';
    EXPECT_EQ(str, "Cam!!");
    str.GetBufferSetLength(-1);
    EXPECT_TRUE(str.IsEmpty());
}

TEST(CStringEdit, TrimAndReplace)
{
    CString str(" \t name \r\n");
    str.TrimLeft();
    str.TrimRight();
    EXPECT_EQ(str, "name");
    CString strPath("a/b/c");
    EXPECT_EQ(strPath.Replace('/', '\\'), 2);
    EXPECT_EQ(strPath, "a\\b\\c");
    EXPECT_EQ(strPath.Replace("\\", "::"), 2);
    EXPECT_EQ(strPath, "a::b::c");
    EXPECT_EQ(strPath.Replace("", "x"), 0);
    EXPECT_EQ(strPath.Replace("::", nullptr), 2);
    EXPECT_EQ(strPath, "abc");
}

} // namespace
