// A recording file of one camera: written frame by frame, block by block, with the disk
// file closed between blocks; read by walking its chain of blocks; cut into clips. Owned
// by the host (or the player); one object is used by one thread at a time.
#pragma once

#include "platform/CArray.h"
#include "platform/CException.h"
#include "platform/CFile.h"
#include "platform/CMemFile.h"
#include "platform/CObject.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "recording/FileRecords.h"
#include "vocabulary/SoundFormat.h"
#include "vocabulary/StreamRevision.h"

struct tag_ZNHEADWITHNAMES;

class ZNDVR_API CZnFile : public CObject {
public:
    CZnFile(CString strCamera = "", CString strBoard = "", CString strHost = "");
    ~CZnFile() override;

    // 1 on success, 0 on failure. Writing needs pInfo and a picture size of dwRevision;
    // reading takes the camera description from the file into pInfo when it is given.
    int Open(CString strFile, tag_CAMERAINFO* pInfo, DWORD dwRevision, tag_ZNFILEMODE nMode);
    // Finishes a file being written (or deletes it if it never took a frame) and frees
    // everything; the object can be opened again afterwards.
    void Close();

    // 1 stored, 0 refused (a block must begin with a key frame), -1 failure.
    int WriteOneFrame(tag_ZNFRAMEDATA* pFrame);
    // Nonzero while the next frame this file takes must be a key frame.
    int IsNextIFrame();

    // nBlock below 0 reads the next frame; otherwise frame nFrame of block nBlock. The
    // caller's buffers must hold GetVideoWidth() x GetVideoHeight() x 2 video bytes and
    // ZNFRAME_SOUND_BUFFER_SIZE sound bytes; a longer record is refused as damage.
    // 1 read, 0 nothing read; the read position changes only on success.
    int ReadOneFrame(tag_ZNFRAMEDATA* pFrame, int nBlock, int nFrame);
    // Reading: the read position, and 0 when nothing can follow. Writing: the place of the
    // frame written last.
    int GetFilePos(int& nBlock, int& nFrame) const;

    DWORD GetTotalFrameNum() const;
    // The blocks of the chain, the end block included.
    DWORD GetTotalBlock() const;
    const CArray<tag_ZNBLOCKINFO, tag_ZNBLOCKINFO&>* GetBlockInfo() const;

    DWORD GetBeginTime() const;
    DWORD GetEndTime() const;
    DWORD GetBeginTimeStamp() const;
    WORD GetFileVersion() const;
    tag_SOUNDFMT GetSoundFormat() const;
    int GetVideoWidth() const;
    int GetVideoHeight() const;
    tag_VIDEOSTANDARD GetVideoStandard() const;
    CString GetBoardName() const;
    CString GetCameraName() const;
    CString GetHostName() const;
    CString GetFileName() const;
    int GetGmt() const;

    // Copies blocks nFirstBlock up to nLastBlock, and the first nLastFrames frames of
    // block nLastBlock, into a new recording. 1 on success, 0 on failure; the read
    // position is kept. Failures of the new file's writes are thrown to the caller.
    int ClipFile(CString strNewFile, int nFirstBlock, int nLastBlock, int nLastFrames);

private:
    // Shared by writing, reading and clips.
    void ReleaseAll();
    void AddBlockEntry(DWORD dwOffset, DWORD dwFrames, DWORD dwTimeStamp);
    tag_ZNHEADWITHNAMES GetHeadWithNames(const tag_ZNFILEHEADER& header) const;
    static void ReportAndDelete(CException* pException);

    // Writing.
    int OpenForWrite(const CString& strFile, const tag_CAMERAINFO* pInfo, DWORD dwRevision);
    void AppendFrame(const tag_ZNFRAMEDATA& frame);
    void CountFrame(const tag_ZNFRAMEDATA& frame);
    int CloseBlock(DWORD dwKeyFrameStamp);
    BOOL ReopenDiskFile();
    void WriteBlockData(DWORD dwRecordPos);
    void Flush();

    // Reading.
    int OpenForRead(const CString& strFile, tag_CAMERAINFO* pInfo);
    BOOL ReadHeadAndNames();
    void WalkBlockChain();
    void DropReadFile();
    int ReadNextFrame(tag_ZNFRAMEDATA* pFrame);
    int ReadFrameAt(tag_ZNFRAMEDATA* pFrame, int nBlock, int nFrame);
    int ReadFrameRecord(tag_ZNFRAMEDATA* pFrame, DWORD dwPos, DWORD& dwNextPos);
    BOOL SkipFrameRecord(DWORD dwPos, DWORD& dwNextPos);
    void SetReadPos(DWORD dwPos, int nBlock, int nFrame);
    DWORD GetVideoCapacity() const;

    // Clips.
    DWORD CountClipFrames(int nFirstBlock, int nLastBlock, int nLastFrames) const;
    void CopyClipBlocks(CFile& clip, int nFirstBlock, int nLastBlock, tag_ZNBLOCKHEADER& block);
    DWORD CopyClipLastBlock(CFile& clip, tag_ZNBLOCKHEADER& block, int nLastFrames);
    BOOL CopyClipFrame(CFile& clip, DWORD& dwLastStamp);

    CString m_strBoardName;
    CString m_strCameraName;
    int m_nMode;
    CString m_strFileName;
    CString m_strHostName;
    int m_nGmt;
    CMemFile* m_pMemFile;
    CFile* m_pFile;
    tag_ZNFILEHEADER m_Header;
    tag_ZNBLOCKHEADER m_Block;
    DWORD m_dwBlockLen;
    DWORD m_dwTotalFrames;
    DWORD m_dwTotalBlocks;
    CArray<tag_ZNBLOCKINFO, tag_ZNBLOCKINFO&> m_BlockTable;
    DWORD m_dwReadPos;
    int m_nReadBlock;
    int m_nReadFrame;
};
