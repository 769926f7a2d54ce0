// Writes a recording from arbitrary bytes read as a script of frames, injected disk
// failures and reads in between, then reads the file back. Aborts when the writer breaks
// its promises: a stored block that doesn't read back exactly, a frame read that was
// never taken, a predicted frame taken while a key frame is needed, or a file left behind
// with nothing stored.
#include "platform/CDiskSimulator.h"
#include "platform/CException.h"
#include "recording/CZnFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// 160 x 112: a reader takes up to 35840 video bytes, and lengths up to 40959 are asked.
constexpr DWORD kVideoLengthRange = 40960;
constexpr DWORD kSoundLengthRange = 65540;
constexpr int kWidth = 160;
constexpr int kHeight = 112;

void IgnoreReport(LPCSTR)
{
}

void Check(bool bHolds, const char* pWhat)
{
    if (!bHolds) {
        std::fprintf(stderr, "ZnFileWrite: %s\n", pWhat);
        std::abort();
    }
}

// Frame bytes that tell frames apart, so that a frame read from the wrong place shows.
struct tag_SCRIPTFRAME {
    WORD wFrameType;
    WORD wFlags;
    DWORD dwTimeStamp;
    std::vector<BYTE> video;
    std::vector<BYTE> sound;
};

// Takes the script's bytes one at a time; 0 once they are used up.
class CScript {
public:
    CScript(const std::uint8_t* pData, std::size_t nSize) : m_pData(pData), m_nSize(nSize) {}
    bool AtEnd() const { return m_nPos >= m_nSize; }
    DWORD Take() { return m_nPos < m_nSize ? m_pData[m_nPos++] : 0; }
    DWORD Take16() { return Take() | (Take() << 8); }

private:
    const std::uint8_t* m_pData;
    std::size_t m_nSize;
    std::size_t m_nPos = 0;
};

tag_SCRIPTFRAME MakeFrame(CScript& script, DWORD dwIndex)
{
    const DWORD dwKind = script.Take();
    tag_SCRIPTFRAME frame;
    frame.wFrameType = (dwKind & 0x3) == 0 ? ZNFRAME_I : ZNFRAME_P;
    frame.wFlags = static_cast<WORD>(((dwKind & 0x4) != 0 ? ZNFRAME_SOUND : 0) | ((dwKind >> 3) & 0x3));
    frame.dwTimeStamp = dwIndex * 40;
    frame.video.resize(script.Take16() * 7 % kVideoLengthRange);
    if ((frame.wFlags & ZNFRAME_SOUND) != 0)
        frame.sound.resize(script.Take16() * 3 % kSoundLengthRange);
    for (std::size_t i = 0; i < frame.video.size(); ++i)
        frame.video[i] = static_cast<BYTE>(dwIndex * 131 + i);
    for (std::size_t i = 0; i < frame.sound.size(); ++i)
        frame.sound[i] = static_cast<BYTE>(dwIndex * 17 + i * 3);
    return frame;
}

int Write(CZnFile& file, tag_SCRIPTFRAME& frame)
{
    tag_ZNFRAMEDATA data{frame.wFrameType, frame.wFlags, frame.dwTimeStamp, static_cast<DWORD>(frame.video.size()),
                         frame.video.data(), static_cast<DWORD>(frame.sound.size()), frame.sound.data()};
    return file.WriteOneFrame(&data);
}

// The file from its start: at least the stored frames, then at most those that follow
// them, each exactly as it was written.
void CheckReadsBack(const std::string& strPath, const std::vector<tag_SCRIPTFRAME>& taken, std::size_t nStored)
{
    CZnFile reader;
    if (reader.Open(strPath.c_str(), nullptr, 0, ZNFILE_READ) != 1) {
        Check(nStored == 0, "a file with stored blocks doesn't open");
        return;
    }
    std::vector<BYTE> video(static_cast<std::size_t>(kWidth) * kHeight * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    tag_ZNFRAMEDATA read{};
    read.pVideo = video.data();
    read.pSound = sound.data();
    std::size_t nRead = 0;
    while (reader.ReadOneFrame(&read, -1, 0) == 1) {
        Check(nRead < taken.size(), "a frame read that was never taken");
        const tag_SCRIPTFRAME& frame = taken[nRead];
        Check(read.wFrameType == frame.wFrameType && read.wFlags == frame.wFlags &&
                  read.dwTimeStamp == frame.dwTimeStamp && read.dwVideoLen == frame.video.size() &&
                  std::equal(frame.video.begin(), frame.video.end(), read.pVideo),
              "a frame reads back other than written");
        Check((frame.wFlags & ZNFRAME_SOUND) == 0 ||
                  (read.dwSoundLen == frame.sound.size() &&
                   std::equal(frame.sound.begin(), frame.sound.end(), read.pSound)),
              "a frame's sound reads back other than written");
        ++nRead;
    }
    Check(nRead >= nStored, "a stored block is missing");
}

std::string MakePath()
{
    // Syncs cost nothing on a RAM file system, which keeps the runs fast.
    const std::filesystem::path directory = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    return (directory / ("zndvr-fuzz-write-" + std::to_string(getpid()) + ".zn")).string();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    static const std::string strPath = MakePath();
    static CDiskSimulator disk;
    SetExceptionReporter(IgnoreReport);
    std::remove(strPath.c_str());
    disk.InjectFailures(0, 0, 0, 0);

    CScript script(pData, nSize);
    tag_CAMERAINFO info{0, 0, kWidth, kHeight, STANDARD_NTSC};
    CZnFile file;
    if (file.Open(strPath.c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE) != 1)
        return 0;
    // Frames taken, in order; those before nStored are in blocks already stored.
    std::vector<tag_SCRIPTFRAME> taken;
    std::size_t nStored = 0;
    for (DWORD dwIndex = 0; !script.AtEnd(); ++dwIndex) {
        const DWORD dwCommand = script.Take();
        // Failures of the next writes or syncs, or of both; reads between frames; frames.
        if (dwCommand < 0x20) {
            const UINT nKinds = 1 + dwCommand % 3;
            disk.InjectFailures(nKinds, script.Take() % 16, 1 + script.Take() % 3, (dwCommand & 0x8) != 0 ? EIO : ENOSPC);
            continue;
        }
        if (dwCommand < 0x28) {
            CheckReadsBack(strPath, taken, nStored);
            continue;
        }
        tag_SCRIPTFRAME frame = MakeFrame(script, dwIndex);
        const bool bKeyNeeded = file.IsNextIFrame() != 0;
        const int nResult = Write(file, frame);
        Check(nResult >= -1 && nResult <= 1, "a result other than -1, 0, 1");
        Check(!(bKeyNeeded && frame.wFrameType != ZNFRAME_I && nResult != 0), "a predicted frame taken without its key frame");
        Check(nResult == 1 || file.IsNextIFrame() != 0, "no key frame asked for after a frame not taken");
        if (nResult != 1)
            continue;
        if (frame.wFrameType == ZNFRAME_I)
            nStored = taken.size();
        taken.push_back(std::move(frame));
    }
    if (file.Close() == 1)
        nStored = taken.size();
    disk.InjectFailures(0, 0, 0, 0);
    Check(!taken.empty() || !std::filesystem::exists(strPath), "a file without frames is left behind");
    CheckReadsBack(strPath, taken, nStored);
    std::remove(strPath.c_str());
    return 0;
}
