// A capture device of the machine: made unopened, tied to one board by Open. Owned by
// whoever makes it (the board list); thread-compatible, its board and bus are
// thread-safe.
#pragma once

#include "driver/CSpciDebi.h"
#include "driver/DriverRecords.h"
#include "platform/Export.h"

#include <memory>

class ZNDVR_API CSpciIO {
public:
    CSpciIO();
    virtual ~CSpciIO();
    CSpciIO(const CSpciIO&) = delete;
    CSpciIO& operator=(const CSpciIO&) = delete;

    // The number of capture devices in the machine.
    static int GetDeviceNum();

    // Nonzero if device nDevice could be opened. Opening an open object fails.
    int Open(int nDevice);
    void Close();
    int IsValid();
    // The firmware word; 0 while not open.
    tag_AVVersion GetDspVersion();
    // The bus of the device, owned by it; null while not open.
    CSpciDebi* GetDebi();

private:
    // The open board as the driver's implementation holds it; its streams reach it.
    struct tag_DEVICE;
    friend class CVideoStream;

    std::unique_ptr<tag_DEVICE> m_pDevice;
};
