#include "PlaybackTestSupport.h"

namespace playback_test {

BEGIN_MESSAGE_MAP(CPlayHostWnd, CWnd)
    ON_MESSAGE(WM_VIDEOPLAY, OnVideoPlay)
END_MESSAGE_MAP()

} // namespace playback_test
