// The enumerations of the capture side: results of the capture facade and the states
// of a camera channel.
#pragma once

#include "platform/WinTypes.h"
#include "vocabulary/FrameSizes.h"
#include "vocabulary/StreamRevision.h"

enum tag_ZNRETURN : int {
    ZNRET_FAILED = -1,
    ZNRET_OK = 0,
    ZNRET_ALREADY_OPEN = 1,
    ZNRET_NOT_AVAILABLE = 2,
    ZNRET_NO_MEMORY = 3,
    ZNRET_BAD_ARGUMENT = 4,
};

enum tag_CAMERASTATUS : int {
    CAMSTATUS_NONE = 0,
    CAMSTATUS_READY = 1,
    CAMSTATUS_ENCODING = 2,
    CAMSTATUS_HOST = 3,
};
