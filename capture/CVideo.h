// The way in to the capture side: the host makes one CVideo and opens boards and
// cameras through it. Owned by the host; lives on the host's window thread. The
// frame-size table is usable without a board through the static GetVideoSize forms.
#pragma once

#include "capture/CaptureTypes.h"
#include "platform/CObject.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class ZNDVR_API CVideo : public CObject {
public:
    // Width, height and standard of a frame size; ZNRET_FAILED for a value that is
    // not in the table, leaving the outputs untouched.
    static tag_ZNRETURN GetVideoSize(tag_FRAMESIZE nSize, tag_VIDEOSTANDARD& nStandard,
                                     int& nWidth, int& nHeight);
    // The frame size of that picture among the sizes of that revision and standard;
    // FRAMESIZE_INVALID when there is none.
    static tag_FRAMESIZE GetVideoSize(int nWidth, int nHeight, tag_VIDEOSTANDARD nStandard,
                                      DWORD dwRevision);
};
