// One opened board: a hidden child of the host window that owns the board's one or two
// capture streams and receives the driver's frame messages for them. Made and owned by
// CVideo; bound to the thread that called CVideo::OpenBoard.
#pragma once

#include "platform/PrivateHeader.h"

#include "capture/CaptureRecords.h"
#include "capture/CaptureTypes.h"
#include "driver/CSpciDebi.h"
#include "driver/CSpciIO.h"
#include "platform/CWnd.h"

#include <memory>

class CCaptureStream;
class CEncodeParam;
class CVideo;
class CVoiceThread;

class CCaptureWnd : public CWnd {
public:
    static constexpr int MAX_STREAMS = 2;

    CCaptureWnd();
    ~CCaptureWnd() override;

    // The hidden window; fails without parent, board or owner, or for a board number
    // that the owner doesn't have.
    int Create(CWnd* pParent, CSpciIO* pIO, CVideo* pVideo, int nBoard);
    // Makes the streams; nonzero when stream 0 opened.
    int Open(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, int nRecordSpeed, DWORD dwRevision);
    void Close();

    // With the board-wide camera number: stream 0 is asked first, then stream 1.
    int OpenCamera(int nCamera, CEncodeParam* pParam);
    int CloseCamera(int nCamera);
    int SetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor);
    int GetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor);
    int IsCameraStart(int nCamera);
    HWND GetCameraWnd(int nCamera);

    void GetVideoSize(int* pWidth, int* pHeight, tag_VIDEOSTANDARD* pStandard);
    void SetRecordSpeed(int nSpeed);
    // Whether this camera's sound comes from the board rather than a wave-in device.
    int IsBoardVoice(int nCamera);
    CSpciDebi* GetDebi();
    HWND GetParentWnd();
    int GetBoard();
    CVoiceThread* GetVoiceThread();

protected:
    LRESULT OnFrame(WPARAM nStream, LPARAM nCamera);
    DECLARE_MESSAGE_MAP()

private:
    tag_AVVersion GetVersion();

    int m_nBoard = 0;
    std::unique_ptr<CCaptureStream> m_pStream[MAX_STREAMS];
    CWnd* m_pParent = nullptr;
    CSpciIO* m_pIO = nullptr;
    CVideo* m_pVideo = nullptr;
    // The board's own sound, where it has sound inputs and both its streams.
    std::unique_ptr<CVoiceThread> m_pVoice;
};
