// One video stream of a board as the driver offers it: opened on a window that gets
// WM_ZN_FRAME for every finished read, started and stopped, given one read order
// at a time. The capture stream derives from it. Thread-bound to the thread that opens
// it (the window's thread); frames are drawn on a driver thread of its own.
#pragma once

#include "driver/CSpciIO.h"
#include "driver/DriverRecords.h"
#include "platform/Export.h"
#include "platform/WinMessages.h"
#include "vocabulary/Messages.h"

#include <memory>

// The largest frame a stream delivers.
inline constexpr int MAX_DELIVERED_WIDTH = 1024;
inline constexpr int MAX_DELIVERED_HEIGHT = 1024;

class ZNDVR_API CVideoStream {
public:
    CVideoStream(const CSpciIO& io, int nStream);
    virtual ~CVideoStream();
    CVideoStream(const CVideoStream&) = delete;
    CVideoStream& operator=(const CVideoStream&) = delete;

    // Whether the channel of camera nCamera (within the stream) still holds its last
    // frame. When a read ends the board switches its input ahead to the following
    // camera of that order, passing over one that is busy. Asked on the ordering thread
    // when the next read is ordered, the first moment after the read's end at which the
    // channels can be asked without a lock. Not busy by default.
    virtual int IsCameraBusy(int nCamera);

    // Prepares the stream: hWnd gets the frame messages, pPciPort gives the delivered
    // size (an even width). Nonzero on success; fails on an open stream, a closed device,
    // a stream the board doesn't have, or records that make no sense.
    int Open(HWND hWnd, tag_VIDEOSTANDARD1 nStandard, tag_VideoPort* pVideoPort, tag_PciPort* pPciPort);
    // Stops and ends the driver thread; no message is posted after it returns.
    void Close();
    int Start();
    // Drops the pending order; no frame is drawn or posted once it returns.
    int Stop();
    // Orders a read, replacing one that is pending. Fails while not started, for a
    // camera the stream doesn't have, a null buffer or one smaller than a frame.
    int ReadVideo(tag_VIDEOREAD* pRead);
    int SetVideoColor(int nCamera, tag_ZNCOLOR* pColor);
    int GetVideoColor(int nCamera, tag_ZNCOLOR* pColor);

private:
    // The open stream as the driver's implementation holds it; null while closed.
    struct tag_OPENSTREAM;

    bool IsReadable(const tag_VIDEOREAD& read) const;
    int SwitchedInput();
    bool IsStreamCamera(int nCamera) const;

    const CSpciIO* m_pDriverDevice;
    int m_nDriverStream;
    std::unique_ptr<tag_OPENSTREAM> m_pOpenStream;
};
