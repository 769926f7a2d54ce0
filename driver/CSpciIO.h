// A capture device of the machine: made unopened, tied to one board of the rack by
// Open. Owned by whoever makes it (the board list); thread-compatible, its board and
// bus are thread-safe.
#pragma once

#include "driver/CSpciDebi.h"
#include "driver/DriverRecords.h"
#include "platform/Export.h"

#include <memory>

class CVirtualBoard;

class ZNDVR_API CSpciIO {
public:
    CSpciIO();
    virtual ~CSpciIO();
    CSpciIO(const CSpciIO&) = delete;
    CSpciIO& operator=(const CSpciIO&) = delete;

    // The number of devices in the machine: the boards in the rack.
    static int GetDeviceNum();

    // Nonzero if device nDevice could be opened. Opening an open object fails.
    int Open(int nDevice);
    void Close();
    int IsValid();
    // The firmware word; 0 while not open.
    tag_AVVersion GetDspVersion();
    // The bus of the device, owned by it; null while not open.
    CSpciDebi* GetDebi();

    // The board behind an open device, for the device's streams.
    std::shared_ptr<CVirtualBoard> GetVirtualBoard() const;

private:
    std::shared_ptr<CVirtualBoard> m_pBoard;
};
