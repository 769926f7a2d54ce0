// A host may close the camera, its board or the whole library from inside its frame
// handler: for a frame with signal, handed over when the encoder answers, and for a
// frame without signal, handed over inside the stream's own frame handling. Boards
// answer at once, so the driver is drawing the next read whenever the host closes.
// Nothing closed may be touched afterwards; the AddressSanitizer build proves it.
#include "CaptureTestSupport.h"

#include <memory>
#include <tuple>

namespace {

enum tag_CLOSETARGET { CLOSE_CAMERA, CLOSE_BOARD, CLOSE_LIBRARY };

class CloseFromHandlers : public CCaptureTest,
                          public ::testing::WithParamInterface<std::tuple<tag_SOURCEKIND, tag_CLOSETARGET>> {};

TEST_P(CloseFromHandlers, NothingClosedIsTouchedAndTheRestGoesOn)
{
    const auto [nKind, nTarget] = GetParam();
    // Camera 0 shows the kind of picture under test, camera 1 a scene with signal.
    tag_VIRTUALBOARD board = MakeCaptureBoard(4, 1, SOURCE_STILL);
    board.sources[0].nKind = nKind;
    CHostWindow host;
    auto pVideo = std::make_unique<CVideo>();
    ASSERT_TRUE(OpenOn(*pVideo, host, board, FRAMESIZE_160X112));
    CEncodeParam param;
    ASSERT_EQ(pVideo->OpenCamera(0, 0, &param, nullptr), ZNRET_OK);
    ASSERT_EQ(pVideo->OpenCamera(0, 1, &param, nullptr), ZNRET_OK);

    std::size_t nClosedAt = 0;
    int nOthersAtClose = 0;
    host.m_pfnOnFrame = [&](HWND, tag_ZNCAPTUREFRAME* pFrame) {
        if (nClosedAt != 0 || pFrame->pInfo->nCamera != 0 || host.CountFrames(0) < 3)
            return;
        EXPECT_EQ(pFrame->bVideoLost, nKind == SOURCE_NOSIGNAL ? 1 : 0);
        nClosedAt = host.m_frames.size();
        nOthersAtClose = host.CountFrames(1);
        if (nTarget == CLOSE_CAMERA)
            EXPECT_EQ(pVideo->CloseCamera(0, 0), ZNRET_OK);
        else if (nTarget == CLOSE_BOARD)
            EXPECT_EQ(pVideo->CloseBoard(0), ZNRET_OK);
        else
            pVideo.reset();
    };
    ASSERT_TRUE(PumpUntil([&] { return nClosedAt != 0; }));
    if (nTarget == CLOSE_CAMERA) {
        ASSERT_TRUE(PumpUntil([&] { return host.CountFrames(1) >= nOthersAtClose + 5; }));
        EXPECT_EQ(pVideo->IsCameraStart(0, 0), 0);
        EXPECT_EQ(pVideo->IsCameraStart(0, 1), 1);
    } else {
        // The board's streams and threads are gone; what is still queued finds no window.
        DrainMessages();
    }
    for (std::size_t i = nClosedAt; i < host.m_frames.size(); ++i)
        EXPECT_EQ(host.m_frames[i].nCamera, 1) << i;
    EXPECT_EQ(host.m_frames.size() > nClosedAt, nTarget == CLOSE_CAMERA);
}

INSTANTIATE_TEST_SUITE_P(FrameKindsAndTargets, CloseFromHandlers,
                         ::testing::Combine(::testing::Values(SOURCE_STILL, SOURCE_NOSIGNAL),
                                            ::testing::Values(CLOSE_CAMERA, CLOSE_BOARD, CLOSE_LIBRARY)));

} // namespace
