// The summary of one recording that a search reports: who made it, when, in what format,
// how long the file is and where it lies. Filled from the head and names of the file
// alone, never from its blocks, or from a flat record of a search buffer. Owned by the
// CFileSearchInfo that holds it (or by the host); plain fields that the host reads
// directly; thread-bound, no locks.
//
// The summary reader opens the file for reading only, which never waits for a writer, so
// a recording still being written is found with the end time of its last block change.
// It takes regular files only and never goes through a symbolic link: a link in a day
// directory points outside the store, where recycling never reaches. It refuses a head
// whose host name claims more than 65 535 bytes. A refused file or a damaged flat record
// leaves the object as it was, apart from m_dwFileLength, which a refused file sets to 0.
#pragma once

#include "platform/CObject.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class ZNDVR_API CZnFileInfo : public CObject {
    DECLARE_DYNAMIC(CZnFileInfo)

public:
    // The result of the flat forms for a refused buffer.
    static constexpr DWORD BUF_ERROR = 0xFFFFFFFF;
    // A flat record with four empty strings: five bytes, three times, four string lengths
    // and the GMT offset.
    static constexpr DWORD FIXED_RECORD_SIZE = 37;

    CZnFileInfo();
    ~CZnFileInfo() override;
    CZnFileInfo& operator=(const CZnFileInfo& other);

    // Reads the summary of the recording at strPath; dwRevision is the stream revision of
    // this run (a file of version 0x1000 counts only in a run of 0x20020219). 1 done, 0
    // refused: not openable, no regular file, short, no recording, or of a later version.
    int Create(CString strPath, DWORD dwRevision);

    // The bytes of the flat record: FIXED_RECORD_SIZE and the four strings.
    DWORD GetSize() const;
    // Bytes written, or BUF_ERROR with nothing written when pBuf is null or nSize is below
    // GetSize().
    DWORD WriteToBuf(BYTE* pBuf, DWORD nSize) const;
    // Bytes read, or BUF_ERROR and nothing taken when pBuf is null or the record, by the
    // lengths it holds, runs past nSize.
    DWORD ReadFromBuf(const BYTE* pBuf, DWORD nSize);

    BYTE m_byCamera;
    BYTE m_byBoard;
    BYTE m_byFrameSize;         // a tag_FRAMESIZE
    BYTE m_bySoundFormat;       // a tag_SOUNDFMT
    BYTE m_byReserved;          // never read from a file; travels in the flat record
    DWORD m_dwEndTime;          // seconds since 1970, as the head held them when read
    DWORD m_dwBeginTime;
    DWORD m_dwFileLength;       // the low 32 bits of the file's length
    CString m_strCameraName;
    CString m_strBoardName;
    CString m_strFilePath;      // the path given to Create
    CString m_strHostName;      // empty before version 0x0100
    int m_nGmtOffset;           // 0 before version 0x0101
};
