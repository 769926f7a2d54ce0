// The way in to the capture side: the host makes one CVideo and opens boards and
// cameras through it. Owned by the host; lives on the host's window thread. The
// frame-size table is usable without a board through the static GetVideoSize forms.
#pragma once

#include "capture/CaptureRecords.h"
#include "capture/CaptureTypes.h"
#include "platform/CObject.h"
#include "platform/CWnd.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <memory>

class CBoardList;
class CCaptureWnd;
class CEncodeParam;
class CMaskInfo;

class ZNDVR_API CVideo : public CObject {
public:
    CVideo();
    ~CVideo() override;

    tag_ZNRETURN Open(CWnd* pParent, DWORD dwRevision);
    tag_ZNRETURN OpenBoard(int nBoard, tag_FRAMESIZE nSize, int nRecordSpeed, tag_VIDEOCOLOR* pColor);
    tag_ZNRETURN CloseBoard(int nBoard);
    tag_ZNRETURN OpenCamera(int nBoard, int nCamera, CEncodeParam* pParam, tag_VIDEOCOLOR* pColor);
    tag_ZNRETURN CloseCamera(int nBoard, int nCamera);

    int GetBoardNum() const;
    int GetCameraNum(int nBoard) const;
    int GetTotalCameraNum() const;
    tag_ZNRETURN GetBoardStatus(int nBoard);
    int IsCameraStart(int nBoard, int nCamera);
    tag_ZNRETURN GetCameraStatus(int nBoard, int nCamera, tag_CAMERASTATUS& nStatus);
    tag_ZNRETURN GetVideoSize(int nBoard, tag_FRAMESIZE& nSize);

    // Width, height and standard of a frame size; ZNRET_FAILED for a value that is
    // not in the table, leaving the outputs untouched.
    static tag_ZNRETURN GetVideoSize(tag_FRAMESIZE nSize, tag_VIDEOSTANDARD& nStandard,
                                     int& nWidth, int& nHeight);
    // The frame size of that picture among the sizes of that revision and standard;
    // FRAMESIZE_INVALID when there is none.
    static tag_FRAMESIZE GetVideoSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard,
                                      DWORD dwRevision);

    // Settings of a running camera, carried out by its window between two frames.
    tag_ZNRETURN SetEncodeParam(int nBoard, int nCamera, CEncodeParam* pParam);
    tag_ZNRETURN SetEncodeMode(int nBoard, int nCamera, int bEncode);
    tag_ZNRETURN SetEncodeSound(int nBoard, int nCamera, int bSound);
    tag_ZNRETURN SetEncodeSoundDev(int nBoard, int nCamera, int nDevice);
    tag_ZNRETURN SetCheckSen(int nBoard, int nCamera, int nSen);
    tag_ZNRETURN SetMask(int nBoard, int nCamera, CMaskInfo* pMask);
    tag_ZNRETURN SetAlarmFrameNum(int nBoard, int nCamera, int nFrames);
    tag_ZNRETURN SetQi(int nBoard, int nCamera, int nQ);
    tag_ZNRETURN SetQp(int nBoard, int nCamera, int nQ);
    tag_ZNRETURN ResetEncodeSeq(int nBoard, int nCamera);
    tag_ZNRETURN GetEncodeParam(int nBoard, int nCamera, CEncodeParam* pParam);

    tag_ZNRETURN SetVideoColor(int nBoard, int nCamera, tag_VIDEOCOLOR* pColor);
    tag_ZNRETURN GetVideoColor(int nBoard, int nCamera, tag_VIDEOCOLOR* pColor);
    tag_ZNRETURN SetRecordSpeed(int nBoard, int nSpeed);

    // What a board offers besides video.
    int IsIOSupport(int nBoard) const;
    int IsVoiceSupport(int nBoard) const;
    int IsWatchDogSupport(int nBoard) const;
    int IsCardPlusSupport(int nBoard) const;
    // One command of the board's port controller; 1 if it went through, else 0.
    static int ZN2AVPortOperation(void* pVideo, int nBoard, DWORD dwOperation, DWORD dwValue, DWORD& dwResult);

    CWnd* m_pParent = nullptr;
    // The boards found by Open; null while not open.
    std::unique_ptr<CBoardList> m_pBoardList;
    // One slot per board of the list, null for a board that isn't open; the array
    // itself exists only if Open found a board.
    std::unique_ptr<std::unique_ptr<CCaptureWnd>[]> m_ppCaptureWnd;
    DWORD m_dwRevision;
    static DWORD m_dwObjNumber;

protected:
    void Close();

private:
    // The capture window of an open board, or nullptr with the result that stops the
    // operation: failure before Open, a bad argument for a board number out of range,
    // and nWhenClosed for a board that isn't open.
    CCaptureWnd* FindOpenBoard(int nBoard, tag_ZNRETURN nWhenClosed, tag_ZNRETURN& nResult) const;
    tag_ZNRETURN SendSetting(int nBoard, int nCamera, int nOperation, LPARAM nValue);
    bool IsBoardNumber(int nBoard) const;
};
