// The two stream revisions: two families of boards and two forms of the bit stream.
// A host names one when it opens the capture side, a recording file, the database or a
// player; every other value reads as the first family's.
#pragma once

#include "platform/WinTypes.h"

inline constexpr DWORD STREAM_REVISION_20020114 = 0x20020114;
inline constexpr DWORD STREAM_REVISION_20020219 = 0x20020219;
