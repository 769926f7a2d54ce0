// Fuzz target of the footage reader of the virtual cameras: the input is a Y4M file,
// read through a memory file. A source that opens draws frames at several sizes and
// times, each into a buffer of exactly one frame followed by guard bytes that must stay
// untouched.
#include "driver/virtual/FrameSources.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr BYTE kGuard = 0xA5;
constexpr std::size_t kGuardBytes = 16;

void DrawGuarded(CFrameSource& source, const tag_FRAMEFORMAT& format, DWORD dwTime)
{
    const std::size_t nFrame = static_cast<std::size_t>(format.nWidth) * format.nHeight * 2;
    std::vector<BYTE> buffer(nFrame + kGuardBytes, kGuard);
    source.WriteFrame(buffer.data(), format, dwTime);
    for (std::size_t i = nFrame; i < buffer.size(); ++i) {
        if (buffer[i] != kGuard)
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    const int nFile = memfd_create("footage", 0);
    if (nFile < 0)
        return 0;
    if (write(nFile, pData, nSize) == static_cast<ssize_t>(nSize)) {
        tag_CAMERASOURCE footage;
        footage.nKind = SOURCE_Y4MFILE;
        footage.strFile = "/proc/self/fd/" + std::to_string(nFile);
        std::string strError;
        const std::unique_ptr<CFrameSource> pSource = CreateFrameSource(footage, &strError);
        if (pSource != nullptr) {
            const tag_FRAMEFORMAT formats[] = {{16, 8, DRIVER_STANDARD_NTSC}, {6, 3, DRIVER_STANDARD_PAL}};
            for (const tag_FRAMEFORMAT& format : formats) {
                for (DWORD dwTime : {0u, 39u, 41u, 1000u, 0xFFFFFFF0u})
                    DrawGuarded(*pSource, format, dwTime);
            }
        } else if (strError.empty()) {
            std::abort();
        }
    }
    close(nFile);
    return 0;
}
