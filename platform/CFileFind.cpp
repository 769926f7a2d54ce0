#include "platform/CFileFind.h"

#include <algorithm>
#include <dirent.h>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace {

constexpr std::string_view kMatchAll = "*.*";

bool IsDotsName(std::string_view strName)
{
    return strName == "." || strName == "..";
}

bool HasWildcard(std::string_view strPattern)
{
    return strPattern.find_first_of("*?") != std::string_view::npos;
}

// '*' stands for any run of characters, '?' for one character; "*.*" matches every
// name, also one without a dot. Letters are compared as they are.
bool MatchesPattern(std::string_view strPattern, std::string_view strName)
{
    if (strPattern == kMatchAll)
        return true;
    std::size_t nPattern = 0;
    std::size_t nName = 0;
    std::size_t nStarPattern = std::string_view::npos;
    std::size_t nStarName = 0;
    while (nName < strName.size()) {
        if (nPattern < strPattern.size() && (strPattern[nPattern] == '?' || strPattern[nPattern] == strName[nName])) {
            ++nPattern;
            ++nName;
        } else if (nPattern < strPattern.size() && strPattern[nPattern] == '*') {
            nStarPattern = nPattern++;
            nStarName = nName;
        } else if (nStarPattern != std::string_view::npos) {
            nPattern = nStarPattern + 1;
            nName = ++nStarName;
        } else {
            return false;
        }
    }
    while (nPattern < strPattern.size() && strPattern[nPattern] == '*')
        ++nPattern;
    return nPattern == strPattern.size();
}

std::string JoinPath(const std::string& strRoot, std::string_view strName)
{
    std::string strPath = strRoot;
    if (strPath != "/")
        strPath += '/';
    strPath.append(strName);
    return strPath;
}

} // namespace

CFileFind::CFileFind() : m_nNext(0)
{
}

CFileFind::~CFileFind() = default;

BOOL CFileFind::FindFile(LPCSTR pstrName, DWORD)
{
    Close();
    std::string strName = pstrName != nullptr ? pstrName : std::string(kMatchAll);
    while (strName.size() > 1 && strName.back() == '/')
        strName.pop_back();
    if (strName.empty() || strName == "/")
        return FALSE;
    std::size_t nSlash = strName.find_last_of('/');
    std::string strDir = nSlash == std::string::npos ? "." : nSlash == 0 ? "/" : strName.substr(0, nSlash);
    std::string strPattern = nSlash == std::string::npos ? strName : strName.substr(nSlash + 1);
    if (HasWildcard(strDir))
        return FALSE;
    std::error_code error;
    std::filesystem::path rootPath = std::filesystem::absolute(strDir, error).lexically_normal();
    std::string strRoot = error ? strDir : rootPath.string();
    while (strRoot.size() > 1 && strRoot.back() == '/')
        strRoot.pop_back();

    std::vector<std::string> aNames;
    if (HasWildcard(strPattern)) {
        DIR* pDir = opendir(strRoot.c_str());
        if (pDir == nullptr)
            return FALSE;
        while (const dirent* pEntry = readdir(pDir)) {
            if (MatchesPattern(strPattern, pEntry->d_name))
                aNames.emplace_back(pEntry->d_name);
        }
        closedir(pDir);
    } else {
        aNames.push_back(strPattern);
    }

    for (const std::string& strEntry : aNames) {
        std::string strPath = JoinPath(strRoot, strEntry);
        struct stat status;
        if (stat(strPath.c_str(), &status) != 0 && lstat(strPath.c_str(), &status) != 0)
            continue;
        DWORD dwAttributes = S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
        if ((status.st_mode & S_IWUSR) == 0)
            dwAttributes |= FILE_ATTRIBUTE_READONLY;
        if (strEntry.front() == '.' && !IsDotsName(strEntry))
            dwAttributes |= FILE_ATTRIBUTE_HIDDEN;
        std::uint64_t nLength = S_ISDIR(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size);
        m_aEntries.push_back({CString(strEntry), dwAttributes, nLength});
    }
    std::sort(m_aEntries.begin(), m_aEntries.end(), [](const tag_FOUNDENTRY& left, const tag_FOUNDENTRY& right) {
        bool bLeftDots = IsDotsName(left.strName.GetStdString());
        bool bRightDots = IsDotsName(right.strName.GetStdString());
        if (bLeftDots != bRightDots)
            return bLeftDots;
        return left.strName.GetStdString() < right.strName.GetStdString();
    });
    if (m_aEntries.empty())
        return FALSE;
    m_strRoot = CString(strRoot);
    return TRUE;
}

BOOL CFileFind::FindNextFile()
{
    if (m_nNext >= m_aEntries.size())
        return FALSE;
    ++m_nNext;
    return m_nNext < m_aEntries.size();
}

void CFileFind::Close()
{
    m_aEntries.clear();
    m_strRoot.Empty();
    m_nNext = 0;
}

DWORD CFileFind::GetLength() const
{
    return static_cast<DWORD>(GetLength64());
}

std::uint64_t CFileFind::GetLength64() const
{
    const tag_FOUNDENTRY* pEntry = GetCurrentEntry();
    return pEntry != nullptr ? pEntry->nLength : 0;
}

CString CFileFind::GetFileName() const
{
    const tag_FOUNDENTRY* pEntry = GetCurrentEntry();
    return pEntry != nullptr ? pEntry->strName : CString();
}

CString CFileFind::GetFilePath() const
{
    const tag_FOUNDENTRY* pEntry = GetCurrentEntry();
    if (pEntry == nullptr)
        return CString();
    return CString(JoinPath(m_strRoot.GetStdString(), pEntry->strName.GetStdString()));
}

CString CFileFind::GetRoot() const
{
    return m_strRoot;
}

BOOL CFileFind::MatchesMask(DWORD dwMask) const
{
    const tag_FOUNDENTRY* pEntry = GetCurrentEntry();
    return pEntry != nullptr && (pEntry->dwAttributes & dwMask) != 0;
}

BOOL CFileFind::IsDots() const
{
    const tag_FOUNDENTRY* pEntry = GetCurrentEntry();
    return pEntry != nullptr && IsDotsName(pEntry->strName.GetStdString());
}

BOOL CFileFind::IsDirectory() const
{
    return MatchesMask(FILE_ATTRIBUTE_DIRECTORY);
}

const CFileFind::tag_FOUNDENTRY* CFileFind::GetCurrentEntry() const
{
    return m_nNext > 0 && m_nNext <= m_aEntries.size() ? &m_aEntries[m_nNext - 1] : nullptr;
}
