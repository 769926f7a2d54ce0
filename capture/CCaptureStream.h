// One video stream of a board: up to four cameras take turns on it. The stream orders
// the driver's reads, hands each finished frame to its camera's channel by swapping
// buffers, and rereads a camera while the channel served last is still busy. Owned by
// its CCaptureWnd; runs on the window thread, in the handler of the driver's message.
#pragma once

#include "platform/PrivateHeader.h"

#include "capture/CaptureRecords.h"
#include "capture/CaptureTypes.h"
#include "driver/CVideoStream.h"
#include "vocabulary/BoardLayout.h"

#include <memory>

class CCameraWnd;
class CCaptureWnd;
class CEncodeParam;

class CCaptureStream : public CVideoStream {
public:
    CCaptureStream(CCaptureWnd* pWnd, CSpciIO* pIO, int nStream);
    ~CCaptureStream() override;

    // The size the driver delivers for a frame size: boards of revision 0x20020219
    // deliver one fixed size per standard, the others the frame size itself.
    static void GetDeliveredSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, DWORD dwRevision,
                                 int& nDeliveredWidth, int& nDeliveredHeight);
    // Bytes of every frame buffer of a stream and its channels: room for the frame and
    // for the 3-byte preview the encoder writes over it, at the frame size (112 lines
    // read as 120) and at the delivered size, whichever is larger, so that a board run
    // at a frame size of the other revision can't be written past its buffers.
    static DWORD GetFrameBufferSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, DWORD dwRevision);
    // Whether a frame of nWidth x nHeight delivered pixels holds the pattern that stream 1
    // sometimes delivers instead of a picture: four fixed luma bytes in each of lines 2
    // to 9. A frame too small to hold it doesn't.
    static bool IsFaultPattern(const BYTE* pFrame, int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard);

    int Open(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard, int nRecordSpeed, DWORD dwRevision);
    int Close();

    // With the board-wide camera number; 0 when the camera isn't this stream's.
    int OpenCamera(int nCamera, CEncodeParam* pParam);
    int CloseCamera(int nCamera);
    // A read of camera nCamera (within the stream) has finished.
    int OnFrame(int nCamera);

    int GetVideoSize(int* pWidth, int* pHeight, tag_VIDEOSTANDARD* pStandard);
    int SetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor);
    int GetVideoColor(int nCamera, tag_VIDEOCOLOR* pColor);
    int IsCameraStart(int nCamera);
    HWND GetCameraWnd(int nCamera);
    void SetRecordSpeed(int nSpeed);

    // Slot nCamera holds a channel that isn't ready for a frame.
    int IsCameraBusy(int nCamera) override;

private:
    int IsUsable();
    // The camera after n, in cyclic order, whose channel runs; n itself comes last.
    int NextCamera(int n);
    bool IsPictureValid(const BYTE* pFrame) const;
    // Orders a read of nCamera, one of the stream's cameras, into its slot's buffer.
    void OrderRead(int nCamera, int nNext, int nSecondNext);
    void OrderReread(int nCamera);
    // The slot of a board-wide camera number, or -1.
    int GetSlot(int nCamera) const;
    bool AllocateBuffers();
    void FreeBuffers();
    void FillPorts(tag_VideoPort& videoPort, tag_PciPort& pciPort) const;

    // One hand-over of a frame to a channel in progress. A channel without signal hands
    // its record to the host at once, and the host may close the camera, the board or
    // the library in its handler; Close marks every hand-over in progress, so that
    // OnFrame touches nothing of a closed stream. Hand-overs nest when a host serves
    // messages inside its handler.
    struct tag_HANDOVER {
        bool bStreamClosed;
        tag_HANDOVER* pOuter;
    };

    int m_nStream;
    int m_nWidth = 320;
    int m_nHeight = 240;
    int m_nVideoWidth = 320;
    int m_nVideoHeight = 240;
    tag_VIDEOSTANDARD m_nStandard = STANDARD_NTSC;
    int m_nRecordSpeed = 0;
    CSpciIO* m_pIO;
    CCaptureWnd* m_pCaptureWnd;
    int m_nCameraNum = 0;
    int m_nFirstCamera = 0;
    int m_nCurrent = 0;
    // One frame buffer per camera; a finished frame's buffer changes hands with the
    // camera's channel.
    std::unique_ptr<BYTE[]> m_pBuffer[STREAM_CAMERA_SLOTS];
    std::unique_ptr<CCameraWnd> m_pCamera[STREAM_CAMERA_SLOTS];
    DWORD m_dwRevision = 0;
    tag_HANDOVER* m_pHandOver = nullptr;
};
