// Enumerates the entries of a directory that match a name pattern ("dir/*.*", "dir/d*"),
// or finds one plain path, which makes it the test of existence. "." and ".." come first,
// the other entries follow sorted by name. Thread-bound: one thread uses an object.
//
// FindFile says whether anything matches; no entry is current until FindNextFile, which
// moves to the next entry and returns 0 when the entry it moved to is the last one, whose
// data are still readable.
#pragma once

#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <cstdint>
#include <vector>

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x00000001;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x00000002;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x00000020;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;

class ZNDVR_API CFileFind {
public:
    CFileFind();
    CFileFind(const CFileFind&) = delete;
    CFileFind& operator=(const CFileFind&) = delete;
    virtual ~CFileFind();

    // With a null name every entry of the working directory is enumerated.
    virtual BOOL FindFile(LPCSTR pstrName = nullptr, DWORD dwUnused = 0);
    virtual BOOL FindNextFile();
    void Close();

    // The data of the current entry; "" or 0 while there is none.
    DWORD GetLength() const;
    std::uint64_t GetLength64() const;
    virtual CString GetFileName() const;
    virtual CString GetFilePath() const;
    virtual CString GetRoot() const;
    BOOL MatchesMask(DWORD dwMask) const;
    BOOL IsDots() const;
    BOOL IsDirectory() const;

private:
    struct tag_FOUNDENTRY {
        CString strName;
        DWORD dwAttributes;
        std::uint64_t nLength;
    };

    const tag_FOUNDENTRY* GetCurrentEntry() const;

    CString m_strRoot;
    std::vector<tag_FOUNDENTRY> m_aEntries;
    std::size_t m_nNext;
};
