// A search for recordings, request and answer in one: a tag_SEARCHPARAM and, as a
// CObList, the CZnFileInfo summaries found, which this object owns and deletes. Owned by
// the host, which hands it to CZnDatabase::SearchFile (or CHddObj::SearchFile) and reads
// the results with the list operations; thread-bound, no locks.
//
// The flat form carries the request and one page of results. Its readers trust nothing
// in a buffer: a length that runs past the buffer, a page that claims more records than
// the bytes can hold, or a record that doesn't fit refuses the whole buffer, and the
// object stays as it was. Strings travel whole up to the 65 535 bytes that their 16-bit
// length can say; a request with a longer string is not written at all.
#pragma once

#include "platform/CObList.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "storage/CZnFileInfo.h"
#include "vocabulary/FrameSizes.h"

// Bits of tag_SEARCHPARAM::dwFlags: which fields count, and how. No other bit has a
// meaning; unknown bits travel and compare like the others.
inline constexpr DWORD SEARCH_HOST = 0x001;       // the file's host name equals strHostName
inline constexpr DWORD SEARCH_DBS = 0x002;        // only the disk whose display name is strDbsName
inline constexpr DWORD SEARCH_BOARD = 0x004;      // the file's board name equals strBoardName
inline constexpr DWORD SEARCH_CAMERA = 0x008;     // the file's camera name equals strCameraName
inline constexpr DWORD SEARCH_DATE = 0x010;       // the one day directory of the local day of dwDate
inline constexpr DWORD SEARCH_BEGIN = 0x020;      // the days from dwBeginTime's to dwEndTime's; the
                                                  // file doesn't end before dwBeginTime
inline constexpr DWORD SEARCH_END = 0x040;        // the file doesn't begin after dwEndTime
inline constexpr DWORD SEARCH_FRAMESIZE = 0x080;  // the file's frame size is dwFrameSize
inline constexpr DWORD SEARCH_MOMENT = 0x100;     // the file covers the moment dwBeginTime
inline constexpr DWORD SEARCH_REMOTE = 0x800;     // the "Remote" tree instead of "Local"

// A search request. Times are seconds since 1970 in 32 bits; the ends of a span count.
struct tag_SEARCHPARAM {
    DWORD dwFlags = 0;
    CString strHostName;
    CString strDbsName;
    CString strBoardName;
    CString strCameraName;
    DWORD dwDate = 0;                       // any moment of the wanted day
    DWORD dwFrameSize = FRAMESIZE_320X240;
    DWORD dwBeginTime = 0;                  // start of the span, or the moment
    DWORD dwEndTime = 0;
};

class ZNDVR_API CFileSearchInfo : public CObList {
    DECLARE_DYNAMIC(CFileSearchInfo)

public:
    // The longest string that the flat form carries.
    static constexpr DWORD MAX_BUF_STRING = 0xFFFF;

    // Copies *pParam; null gives the default request. The list starts empty.
    explicit CFileSearchInfo(const tag_SEARCHPARAM* pParam = nullptr);
    ~CFileSearchInfo() override;

    const tag_SEARCHPARAM& GetSearchParam() const;
    // Deletes every result; the request stays.
    void Reset();
    // Takes other's request and appends copies of its results behind those already here.
    CFileSearchInfo& operator=(const CFileSearchInfo& other);
    // Appends copies of other's results; the request stays.
    CFileSearchInfo& operator+=(const CFileSearchInfo& other);
    // The same request: equal flags, and equal fields where the flags name them.
    int operator==(const tag_SEARCHPARAM& param) const;
    int operator==(const CFileSearchInfo& other) const;
    // Takes ownership of pInfo and appends it; 0 (and pInfo deleted) if memory ran out.
    int AddResult(CZnFileInfo* pInfo);

    // Bytes of the flat form with up to nCount results from list position nStart.
    DWORD GetSize(int nStart, int nCount) const;
    // Writes the request and the page from nStart, at most nCount results; nStart and
    // nCount come back as written, both 0 when the list is empty or nStart is outside it.
    // Bytes written; 0 and nothing written when pBuf is null, nSize is below what GetSize
    // gives for that page, or a string is longer than MAX_BUF_STRING.
    DWORD WriteToBuf(BYTE* pBuf, DWORD nSize, int& nStart, int& nCount) const;
    // Takes the request of the buffer (fields that its flags don't name keep their value
    // here) and appends its results behind those already here; nStart and nCount tell
    // what the buffer held. Bytes read; 0, and nothing changed, for a null or damaged
    // buffer.
    DWORD ReadFromBuf(const BYTE* pBuf, DWORD nSize, int& nStart, int& nCount);

private:
    tag_SEARCHPARAM m_SearchParam;
};
