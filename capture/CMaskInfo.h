// One motion area of a camera: a rectangle, the video size it is measured in, and the
// running state of its detection. Owned by the CEncodeParam whose list holds it (or by
// whoever made it); used on the window thread only.
#pragma once

#include "platform/CObject.h"
#include "platform/CRect.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class CArchive;

class ZNDVR_API CMaskInfo : public CObject {
    DECLARE_SERIAL(CMaskInfo)

public:
    static constexpr int kDefaultWidth = 320;
    static constexpr int kDefaultHeight = 240;
    // Bytes of the flat form: state byte, width, height, four edges.
    static constexpr int kFlatSize = 25;
    // Bytes of the archive form: width, height, four edges.
    static constexpr int kArchiveSize = 24;

    // A null pRect gives the empty rectangle. The rectangle is normalized; state is clear.
    explicit CMaskInfo(CRect* pRect = nullptr, int nWidth = kDefaultWidth,
                       int nHeight = kDefaultHeight);
    ~CMaskInfo() override;

    void Reset();
    int IsMove() const;
    int IsAlarm() const;

    const CRect& GetMaskRect() const;
    void GetVideoSize(int& nWidth, int& nHeight) const;

    // The area on a display rectangle: each edge scaled by the display size over the
    // stored size, rounded down, and moved to the display's origin. An axis whose stored
    // size is not positive is not scaled. A null pRect does nothing.
    void GetMaskRect(CRect rcWnd, CRect* pRect) const;

    // Takes the rectangle to another video size and stores that size with it, so that
    // the stored size always names the units of the rectangle. Edges are scaled in
    // double precision, multiplication before division, and rounded down. An axis whose
    // stored size is not positive has no known units: its edges stay as they are.
    void SetVideoSize(int nWidth, int nHeight);

    // One frame's result for this area. A still frame ends the run of motion; a run of
    // nAlarmFrameNum moving frames raises the alarm for one frame and starts the count
    // again, so steady motion alarms once every nAlarmFrameNum frames.
    void SetAreaMove(int bMove, int nAlarmFrameNum);

    // Copies rectangle and video size; the state of this object stays.
    void operator=(const CMaskInfo& src);
    // Same video size and same rectangle; the state doesn't count.
    int operator==(const CMaskInfo& other) const;

    // Writes the flat form to pBuf, which holds at least kFlatSize bytes; returns kFlatSize.
    int operator>>(BYTE* pBuf) const;
    // Reads the flat form from pBuf, which holds at least kFlatSize bytes; returns
    // kFlatSize. The state bits only ever set m_bMove and m_bAlarm, never clear them, and
    // the move count stays, so an area read onto a live one keeps its alarm.
    int operator<<(const BYTE* pBuf);
    int GetSize() const;

    // The archive form, the same both ways; the state isn't stored.
    void Serialize(CArchive& ar) override;

    CRect m_rcMask;
    int m_nWidth;
    int m_nHeight;
    int m_bMove = 0;
    int m_bAlarm = 0;
    int m_nMoveCount = 0;
};
