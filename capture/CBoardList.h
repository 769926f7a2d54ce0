// The capture boards of the machine that fit one stream revision, opened at device
// level for as long as the list lives. Owned by CVideo while it is open; not changed
// after construction, so it can be read from any thread.
#pragma once

#include "platform/PrivateHeader.h"

#include "driver/CSpciIO.h"
#include "driver/DriverRecords.h"
#include "platform/CObject.h"
#include "platform/WinTypes.h"

#include <memory>

class CBoardList : public CObject {
public:
    static constexpr int MAX_BOARDS = 4;

    // Takes up to MAX_BOARDS devices, in device order, whose generation fits dwRevision.
    explicit CBoardList(DWORD dwRevision);
    // Closes and deletes each board, then the spare.
    ~CBoardList() override;

    // False when a device object couldn't be allocated: the list is then incomplete.
    bool IsComplete() const;
    int GetBoardNum() const;
    // The firmware word, 0 for a number that isn't a board of the list.
    tag_AVVersion GetVersion(int nBoard) const;
    // The slot, null for a number outside the four slots.
    CSpciIO* GetBoard(int nBoard) const;

private:
    static bool IsTakenBy(DWORD dwRevision, tag_AVVersion version);

    // Made before the first use of the driver and never opened. Declared before the
    // boards, so that it goes after them.
    std::unique_ptr<CSpciIO> m_pSpare;
    // A device closes as it goes.
    std::unique_ptr<CSpciIO> m_pBoards[MAX_BOARDS];
    int m_nBoardNum = 0;
    bool m_bComplete = true;
};
