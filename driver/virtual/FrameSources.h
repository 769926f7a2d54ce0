// The pictures a virtual camera delivers: a synthetic scene, a still scene, no signal,
// the stream-1 fault pattern, or footage read from a Y4M or raw UYVY file at its own
// speed. A source belongs to one
// camera of a virtual board; it is thread-bound (the board serialises its use).
#pragma once

#include "driver/DriverRecords.h"

#include <memory>
#include <string>

enum tag_SOURCEKIND : int {
    SOURCE_SYNTHETIC = 0,    // textured background, moving objects, sensor noise, a clock
    SOURCE_STILL = 1,        // the same background with sensor noise only
    SOURCE_NOSIGNAL = 2,     // black: every luma sample at or below the signal threshold
    SOURCE_FAULTPATTERN = 3, // a still scene carrying the pattern of a faulty stream-1 read
    SOURCE_Y4MFILE = 4,      // 4:2:0 frames from a Y4M file at its frame rate, looped
    SOURCE_UYVYFILE = 5,     // raw UYVY frames of nFileWidth x nFileHeight at nFileRate, looped
};

// What a camera of a virtual board shows. Equal seeds give equal pictures.
struct tag_CAMERASOURCE {
    tag_SOURCEKIND nKind = SOURCE_SYNTHETIC;
    DWORD dwSeed = 1;
    std::string strFile;
    int nFileWidth = 0;   // of a raw UYVY file's frames
    int nFileHeight = 0;
    // Frames a second of a raw UYVY file, or of a Y4M file whose header gives none;
    // 0 takes FOOTAGE_DEFAULT_RATE.
    int nFileRate = 0;
};

inline constexpr unsigned FOOTAGE_DEFAULT_RATE = 25;

// The size and standard of the frames a stream delivers.
struct tag_FRAMEFORMAT {
    int nWidth;
    int nHeight;
    tag_VIDEOSTANDARD1 nStandard;
};

class CFrameSource {
public:
    virtual ~CFrameSource() = default;

    // Writes one frame of format.nWidth x format.nHeight UYVY pixels (lines of
    // nWidth * 2 bytes) into pFrame, as seen at tick dwTime.
    virtual void WriteFrame(BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime) = 0;
    // The size of the picture that footage holds; false for a drawn scene, which has
    // none of its own and is drawn at any size.
    virtual bool GetPictureSize(int& /*nWidth*/, int& /*nHeight*/) const { return false; }
};

// Makes the source a camera record asks for; null if its file can't be read, with the
// file and the reason in *pstrError.
std::unique_ptr<CFrameSource> CreateFrameSource(const tag_CAMERASOURCE& source, std::string* pstrError = nullptr);
