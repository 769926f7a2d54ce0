// How a board's firmware word shapes it: streams, cameras per stream, the first camera
// of each stream, where a camera's sound comes from and which ports it has. Pure
// functions of the word, shared by the board list, capture window, streams and ports.
#pragma once

#include "driver/DriverRecords.h"

#include <algorithm>

// Generation 2 boards have two streams and belong to stream revision 0x20020219;
// older generations have one; newer ones can't be driven.
inline constexpr BYTE BOARD_GENERATION_TWO_STREAMS = 2;
// A stream has four camera slots. A firmware word that claims more is cut to four.
inline constexpr int STREAM_CAMERA_SLOTS = 4;

inline bool IsTwoStreamBoard(tag_AVVersion version)
{
    return version.GetGeneration() == BOARD_GENERATION_TWO_STREAMS;
}

inline bool IsDrivableBoard(tag_AVVersion version)
{
    return version.GetGeneration() <= BOARD_GENERATION_TWO_STREAMS;
}

inline int GetStreamCameraNum(tag_AVVersion version)
{
    const int nChannels = version.GetChannels();
    const int nPerStream = IsTwoStreamBoard(version) ? nChannels / 2 : nChannels;
    return std::min(nPerStream, STREAM_CAMERA_SLOTS);
}

inline int GetStreamFirstCamera(tag_AVVersion version, int nStream)
{
    return IsTwoStreamBoard(version) ? nStream * GetStreamCameraNum(version) : 0;
}

// Boards of two channels on the older generations, and every generation 2 board, have
// the byte bus ports and sound of their own.
inline bool HasBoardPorts(tag_AVVersion version)
{
    const BYTE byGeneration = version.GetGeneration();
    return byGeneration == BOARD_GENERATION_TWO_STREAMS ||
           (byGeneration < BOARD_GENERATION_TWO_STREAMS && version.GetChannels() == 2);
}
