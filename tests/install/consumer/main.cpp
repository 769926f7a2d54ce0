// A program outside the project that uses the installed library: it asks for the volume
// of the root directory.
#include "platform/Disks.h"

#include <cstdio>

static_assert(__cplusplus >= 202002L, "zndvr's headers are C++20; the package asks for it");

int main()
{
    CString strVolume = GetVolumePath("/");
    std::printf("volume of /: %s\n", static_cast<LPCSTR>(strVolume));
    return strVolume == CString("/") ? 0 : 1;
}
