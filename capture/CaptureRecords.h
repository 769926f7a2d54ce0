// What the capture side exchanges with the host and with its own windows: the message
// numbers, the picture settings of a camera and the record of a captured frame.
// Plain values; the record points into memory owned by a camera channel.
#pragma once

#include "platform/WinMessages.h"
#include "platform/WinTypes.h"
#include "vocabulary/FrameRecords.h"
#include "vocabulary/Messages.h"

class CEncodeParam;

// CVideo to camera window: change a setting, read a setting.
inline constexpr UINT WM_ZN_SETPARAM = WM_USER + 104;
inline constexpr UINT WM_ZN_GETPARAM = WM_USER + 105;

// The operation numbers that WM_ZN_SETPARAM and WM_ZN_GETPARAM carry in wParam.
enum tag_CAMERAOPERATION : int {
    CAMOP_ENCODEPARAM = 0,
    CAMOP_ENCODEMODE = 1,
    CAMOP_ENCODESOUND = 2,
    CAMOP_SOUNDDEVICE = 3,
    CAMOP_CHECKSEN = 4,
    CAMOP_MASK = 5,
    CAMOP_ALARMFRAMENUM = 6,
    CAMOP_QI = 7,
    CAMOP_QP = 8,
    CAMOP_RESETSEQUENCE = 9,
    CAMOP_STATUS = 10,
};

// The picture settings of a camera: five slots of four words. The library passes the
// first word of slots 0, 2, 3 and 4 to the driver; the others are the host's.
inline constexpr int VIDEOCOLOR_SLOTS = 5;
inline constexpr int VIDEOCOLOR_WORDS = 4;

struct tag_VIDEOCOLOR {
    WORD wValue[VIDEOCOLOR_SLOTS][VIDEOCOLOR_WORDS];
};

// What host message WM_ZN_FRAME points to. Everything belongs to the camera channel and
// stays valid until the host gives the record back with WM_ZN_FRAMEDONE.
struct tag_ZNCAPTUREFRAME {
    int bVideoLost;
    tag_CAMERAINFO* pInfo;
    tag_ZNFRAMEDATA* pData;
    BYTE* pRaw;               // the preview (blue, green, red) or, without signal, the raw frame
    CEncodeParam* pParam;
};
