// Opens arbitrary bytes as a recording, reads every frame one after the other and by
// its place in the block table, and cuts a clip of the whole file. The frame buffers have
// exactly the capacities that the file's frame size promises, so that a read past them is
// caught.
#include "recording/CZnFile.h"

#include "platform/CException.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

void IgnoreReport(LPCSTR)
{
}

std::string MakeTempPath(const char* pName)
{
    return "/tmp/zndvr-fuzz-" + std::to_string(getpid()) + "-" + pName;
}

void ReadEveryFrame(CZnFile& file)
{
    std::vector<BYTE> video(static_cast<std::size_t>(file.GetVideoWidth()) * file.GetVideoHeight() * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    tag_ZNFRAMEDATA frame{};
    frame.pVideo = video.data();
    frame.pSound = sound.data();
    int nBlock = 0;
    int nFrame = 0;
    while (file.ReadOneFrame(&frame, -1, 0) == 1)
        file.GetFilePos(nBlock, nFrame);
    const int nBlocks = static_cast<int>(file.GetTotalBlock());
    for (int b = 0; b < nBlocks && b < 64; ++b) {
        file.ReadOneFrame(&frame, b, 0);
        file.ReadOneFrame(&frame, b, static_cast<int>(file.GetBlockInfo()->GetAt(b).dwFrames));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    static const std::string strInput = MakeTempPath("input.zn");
    static const std::string strClip = MakeTempPath("clip.zn");
    SetExceptionReporter(IgnoreReport);
    FILE* pFile = std::fopen(strInput.c_str(), "wb");
    if (pFile == nullptr)
        return 0;
    std::fwrite(pData, 1, nSize, pFile);
    std::fclose(pFile);

    CZnFile file;
    if (file.Open(strInput.c_str(), nullptr, 0, ZNFILE_READ) == 1) {
        ReadEveryFrame(file);
        try {
            if (file.ClipFile(strClip.c_str(), 0, static_cast<int>(file.GetTotalBlock()), 0) == 1) {
                CZnFile clip;
                if (clip.Open(strClip.c_str(), nullptr, 0, ZNFILE_READ) == 1)
                    ReadEveryFrame(clip);
            }
        } catch (CException* pException) {
            pException->Delete();
        }
    }
    file.Close();
    std::remove(strInput.c_str());
    std::remove(strClip.c_str());
    return 0;
}
