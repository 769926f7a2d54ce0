// The window messages that cross from one part of the library to another or to the
// host. Each number is fixed: hosts written against the library compare with them.
#pragma once

#include "platform/WinMessages.h"

// Three targets, one number: the driver to a capture window (a finished read, wParam
// the stream, lParam the camera), a camera channel to its encoder thread (a frame to
// code), and the library to the host (a tag_ZNCAPTUREFRAME).
inline constexpr UINT WM_ZN_FRAME = WM_USER + 101;
// Host to camera window: the frame record is given back.
inline constexpr UINT WM_ZN_FRAMEDONE = WM_USER + 102;
// Encoder thread to camera window: the frame has been coded.
inline constexpr UINT WM_ZN_ENCODED = WM_USER + 103;
// Sound file window to host: the file has played to its end.
inline constexpr UINT WM_WAVEPLAYEND = WM_USER + 106;
// Player to host: a picture and the position (a tag_PLAYFRAME), or the end of a file.
inline constexpr UINT WM_VIDEOPLAY = WM_USER + 107;
// Database to host: lParam is the date value of a day that has been recycled.
inline constexpr UINT WM_ZN_DATEDELETED = WM_USER + 108;
