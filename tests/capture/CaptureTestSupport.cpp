#include "CaptureTestSupport.h"

BEGIN_MESSAGE_MAP(CHostWindow, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnCaptureFrame)
END_MESSAGE_MAP()
