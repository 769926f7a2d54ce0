// One virtual capture board: its firmware word, its cameras' frame sources, its byte
// bus, the faults it is told to show, and a record of what its streams were asked.
// Shared by the rack and every device object that opened it; thread-safe.
#pragma once

#include "driver/CSpciDebi.h"
#include "driver/DriverRecords.h"
#include "driver/virtual/CBoardSoundProcessor.h"
#include "driver/virtual/CVirtualBus.h"
#include "driver/virtual/FrameSources.h"
#include "platform/Export.h"
#include "vocabulary/FrameSizes.h"
#include "vocabulary/StreamRevision.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Faults a board shows on request; all off by default.
struct tag_BOARDFAULTS {
    bool bOpenFails = false;      // the device doesn't open
    bool bStartFails = false;     // CVideoStream::Start fails
    bool bLockTimesOut = false;   // the bus lock is never obtained
    bool bTransfersFail = false;  // every bus transfer gives -1
};

enum tag_PACING : int {
    PACING_REALTIME = 0,   // each stream answers at its frame period, by the platform clock
    PACING_IMMEDIATE = 1,  // each order is answered as soon as the driver thread takes it
};

// What a host or test installs: a board of byChannels inputs of generation
// byGeneration. Cameras without an entry in sources show a synthetic scene seeded
// with their board-wide number + 1.
struct tag_VIRTUALBOARD {
    BYTE byChannels = 4;
    BYTE byGeneration = 2;
    WORD wFirmware = 0x0100;
    std::vector<tag_CAMERASOURCE> sources;
    tag_BOARDFAULTS faults;
    tag_PACING nPacing = PACING_REALTIME;
    int nFramesPerSecond = 0;  // of a stream; 0 takes the standard's: 30, or 25 for PAL
    // The board's own sound inputs; a board whose sound has no coder has no sound processor.
    tag_BOARDSOUND sound;
};

inline constexpr int READ_HISTORY = 64;

// What one stream of the board has been asked, for tests and the host program.
struct tag_STREAMRECORD {
    bool bOpen;
    bool bStarted;
    HWND hWnd;
    tag_VIDEOSTANDARD1 nStandard;
    tag_VideoPort videoPort;
    tag_PciPort pciPort;
    DWORD dwOpens;
    DWORD dwStarts;
    DWORD dwStops;
    DWORD dwOrders;
    DWORD dwFramesDelivered;
    // The last READ_HISTORY orders, oldest first; dwOrders counts all of them.
    int nHistory;
    tag_VIDEOREAD history[READ_HISTORY];
};

class ZNDVR_API CVirtualBoard {
public:
    // Null if a camera's source can't be made (a file that can't be read as Y4M), or a
    // sound input's (a WAVE file that can't be read), with the camera or input, the file
    // and the reason in *pstrError.
    static std::shared_ptr<CVirtualBoard> Create(const tag_VIRTUALBOARD& setup, std::string* pstrError = nullptr);

    CVirtualBoard(const CVirtualBoard&) = delete;
    CVirtualBoard& operator=(const CVirtualBoard&) = delete;

    tag_AVVersion GetVersion() const;
    // The board's bus as the driver hands it out, and as a host or test drives its
    // inputs and reads its registers and traffic.
    CSpciDebi* GetDebi();
    CVirtualBus& GetBus();
    // The board's sound processor, or null.
    CBoardSoundProcessor* GetSoundProcessor();

    // The layout the firmware word gives: streams, their cameras and first camera.
    int GetStreamCount() const;
    int GetStreamCameras(int nStream) const;
    int GetFirstCamera(int nStream) const;

    // The source record of board-wide camera nCamera; a default record for a camera the
    // board doesn't have.
    tag_CAMERASOURCE GetCameraSource(int nCamera) const;
    // Plugs another source into camera nCamera, as a camera is changed or unplugged on
    // a running board; false (and the old source kept) if it can't be made.
    bool SetCameraSource(int nCamera, const tag_CAMERASOURCE& source, std::string* pstrError = nullptr);
    // The frame size of revision dwRevision that shows the picture of camera nCamera
    // best: its own size and standard where the revision has them, else the largest size
    // that fits inside it, else the smallest. FRAMESIZE_INVALID for a drawn scene,
    // which suits every size.
    tag_FRAMESIZE GetCameraFrameSize(int nCamera, DWORD dwRevision) const;

    tag_PACING GetPacing() const;
    int GetFramesPerSecond(tag_VIDEOSTANDARD1 nStandard) const;

    tag_BOARDFAULTS GetFaults() const;
    void SetFaults(const tag_BOARDFAULTS& faults);

    // Draws the frame of board-wide camera nCamera into pFrame; false for a camera
    // the board doesn't have.
    bool WriteFrame(int nCamera, BYTE* pFrame, const tag_FRAMEFORMAT& format, DWORD dwTime);

    tag_STREAMRECORD GetStreamRecord(int nStream) const;

    // Kept up to date by the board's streams.
    void RecordOpen(int nStream, HWND hWnd, tag_VIDEOSTANDARD1 nStandard, const tag_VideoPort& videoPort,
                    const tag_PciPort& pciPort);
    void RecordClose(int nStream);
    void RecordStart(int nStream);
    void RecordStop(int nStream);
    void RecordOrder(int nStream, const tag_VIDEOREAD& read);
    void RecordDelivery(int nStream);

private:
    explicit CVirtualBoard(const tag_VIRTUALBOARD& setup);

    // One camera input: its source, used by one driver thread at a time.
    struct tag_CAMERAINPUT {
        std::mutex mutexSource;
        tag_CAMERASOURCE record;
        std::unique_ptr<CFrameSource> pSource;
    };

    tag_AVVersion m_version;
    tag_PACING m_nPacing;
    int m_nFramesPerSecond;
    std::vector<std::unique_ptr<tag_CAMERAINPUT>> m_inputs;
    CVirtualBus m_bus;
    std::shared_ptr<CBoardSoundProcessor> m_pSound;
    mutable std::mutex m_mutexRecords;
    tag_BOARDFAULTS m_faults;
    tag_STREAMRECORD m_records[MAX_BOARD_STREAMS];
};
