// The process-wide rack of virtual boards: what a host or a test installs here is
// what CSpciIO finds as the devices of the machine. An empty rack is a machine without
// boards. Thread-safe; a board taken out stays alive while a device object holds it.
#pragma once

#include "driver/virtual/CVirtualBoard.h"
#include "platform/Export.h"

#include <memory>
#include <string>

class ZNDVR_API CVirtualRack {
public:
    // Adds a board as the next device; its device number, or -1 if a camera's source
    // can't be made, with the camera, its file and the reason in *pstrError.
    static int InstallBoard(const tag_VIRTUALBOARD& setup, std::string* pstrError = nullptr);
    // The default machine: one generation-2 board with 4 channels of synthetic scenes,
    // paced in real time. Replaces what was installed.
    static void InstallDefault();
    // Takes every board out.
    static void Clear();

    static int GetDeviceNum();
    // The board of device nDevice, or null.
    static std::shared_ptr<CVirtualBoard> GetBoard(int nDevice);
};
