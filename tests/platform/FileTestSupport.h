// Helpers of the file tests: a fresh temporary directory that removes itself, whole-file
// reads and writes, and the catching of exceptions thrown as pointers.
#pragma once

#include "platform/CException.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class ScopedTempDir {
public:
    ScopedTempDir()
    {
        std::string strTemplate = (std::filesystem::temp_directory_path() / "zndvr-test-XXXXXX").string();
        if (mkdtemp(strTemplate.data()) != nullptr)
            m_path = strTemplate;
    }
    ScopedTempDir(const ScopedTempDir&) = delete;
    ScopedTempDir& operator=(const ScopedTempDir&) = delete;
    ~ScopedTempDir()
    {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }

    const std::filesystem::path& Path() const { return m_path; }
    std::string operator/(const std::string& strName) const { return (m_path / strName).string(); }

private:
    std::filesystem::path m_path;
};

inline std::vector<unsigned char> ReadWholeFile(const std::string& strPath)
{
    std::ifstream file(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteWholeFile(const std::string& strPath, const std::string& strContents)
{
    std::ofstream file(strPath, std::ios::binary | std::ios::trunc);
    file.write(strContents.data(), static_cast<std::streamsize>(strContents.size()));
}

// Runs fn and returns the cause of the TException* it throws, freeing it; -1 if fn
// throws nothing.
template <typename TException, typename TFunction> int CatchCause(TFunction fn)
{
    try {
        fn();
    } catch (TException* pException) {
        int nCause = pException->m_cause;
        pException->Delete();
        return nCause;
    }
    return -1;
}
