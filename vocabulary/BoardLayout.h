// A board's firmware word and how it shapes the board: streams, cameras per stream, the
// first camera of each stream, and which boards have ports and sound of their own. The
// driver lays out its streams by these rules and capture drives them by the same ones.
// Pure functions of the word.
#pragma once

#include "platform/WinTypes.h"

#include <algorithm>

// The firmware word of a board. Byte 2 holds the number of camera inputs, byte 3 the
// board generation; the two low bytes are the firmware's own revision.
struct tag_AVVersion {
    DWORD dwVersion;

    BYTE GetChannels() const { return static_cast<BYTE>(dwVersion >> 16); }
    BYTE GetGeneration() const { return static_cast<BYTE>(dwVersion >> 24); }
};

inline constexpr tag_AVVersion MakeAVVersion(BYTE byChannels, BYTE byGeneration, WORD wRevision = 0)
{
    return tag_AVVersion{static_cast<DWORD>(byGeneration) << 24 | static_cast<DWORD>(byChannels) << 16 | wRevision};
}

// Generation 2 boards have two streams and belong to stream revision 0x20020219;
// older generations have one; newer ones can't be driven.
inline constexpr BYTE BOARD_GENERATION_TWO_STREAMS = 2;
inline constexpr int MAX_BOARD_STREAMS = 2;
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

// The streams of a board; none for a generation that can't be driven.
inline int GetBoardStreamNum(tag_AVVersion version)
{
    if (!IsDrivableBoard(version))
        return 0;
    return IsTwoStreamBoard(version) ? MAX_BOARD_STREAMS : 1;
}

inline int GetStreamCameraNum(tag_AVVersion version)
{
    const int nChannels = version.GetChannels();
    const int nPerStream = IsTwoStreamBoard(version) ? nChannels / 2 : nChannels;
    return std::min(nPerStream, STREAM_CAMERA_SLOTS);
}

// A two-stream board splits its channels in halves: stream 1 starts at the first camera
// of the second half even where a stream uses only its first four.
inline int GetStreamFirstCamera(tag_AVVersion version, int nStream)
{
    return IsTwoStreamBoard(version) ? nStream * (version.GetChannels() / 2) : 0;
}

// The camera inputs the streams of a board reach: one past the last camera of its last
// stream.
inline int GetBoardInputNum(tag_AVVersion version)
{
    const int nStreams = GetBoardStreamNum(version);
    return nStreams == 0 ? 0 : GetStreamFirstCamera(version, nStreams - 1) + GetStreamCameraNum(version);
}

// Boards of two channels on the older generations, and every generation 2 board, have
// the byte bus ports and sound of their own.
inline bool HasBoardPorts(tag_AVVersion version)
{
    const BYTE byGeneration = version.GetGeneration();
    return byGeneration == BOARD_GENERATION_TWO_STREAMS ||
           (byGeneration < BOARD_GENERATION_TWO_STREAMS && version.GetChannels() == 2);
}
