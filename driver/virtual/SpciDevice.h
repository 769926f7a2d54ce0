// What an open CSpciIO holds in this driver: the virtual board of the rack that it
// opened, kept alive while the device or one of its streams uses it.
#pragma once

#include "platform/PrivateHeader.h"

#include "driver/CSpciIO.h"
#include "driver/virtual/CVirtualBoard.h"

#include <memory>

struct CSpciIO::tag_DEVICE {
    std::shared_ptr<CVirtualBoard> pBoard;
};
