// The parameter block of one disk of the recording store, and the results of the
// operations on the work disk. Plain values that the host fills and reads.
#pragma once

#include "platform/CString.h"
#include "platform/WinTypes.h"

// The defaults are those of the disk that a new store starts with.
struct tag_HDDPARAM {
    DWORD dwReservedSpace = 500;      // MB that must stay free on the disk
    int bRecycle = TRUE;              // the disk gives up its oldest days when space runs out
    CString strBaseDir;               // base directory; its volume is the disk
    CString strDbsName;               // plain name of the disk; empty means "ZnDatabase"
    int bAlarmWhenSpaceNotEnough = FALSE;
    CString strAlarmSound;            // sound file of that alarm, kept for the host
};

enum tag_ERROR_DBS : int {
    DBS_ERROR_NOHDD = -1,    // no disk, no work disk, or its space can't be read
    DBS_OK = 0,
    DBS_ERROR_NOSPACE = 1,   // below the reserved space; from ChangeWorkDir: nothing can be freed
    DBS_ERROR_LOWSPACE = 2,  // at or above the reserved space but below the alarm space
};
