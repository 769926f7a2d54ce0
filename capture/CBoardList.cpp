#include "capture/CBoardList.h"

#include "capture/CaptureTypes.h"
#include "vocabulary/BoardLayout.h"

#include <new>

CBoardList::CBoardList(DWORD dwRevision) : m_pSpare(new (std::nothrow) CSpciIO)
{
    m_bComplete = m_pSpare != nullptr;
    const int nDevices = CSpciIO::GetDeviceNum();
    for (int nDevice = 0; m_bComplete && nDevice < nDevices && m_nBoardNum < MAX_BOARDS; ++nDevice) {
        std::unique_ptr<CSpciIO> pIO(new (std::nothrow) CSpciIO);
        if (pIO == nullptr) {
            m_bComplete = false;
            break;
        }
        if (!pIO->Open(nDevice))
            continue;
        if (IsTakenBy(dwRevision, pIO->GetDspVersion()))
            m_pBoards[m_nBoardNum++] = std::move(pIO);
        else
            pIO->Close();
    }
}

CBoardList::~CBoardList() = default;

bool CBoardList::IsTakenBy(DWORD dwRevision, tag_AVVersion version)
{
    const bool bTwoStream = IsTwoStreamBoard(version);
    return dwRevision == STREAM_REVISION_20020219 ? bTwoStream : !bTwoStream;
}

bool CBoardList::IsComplete() const
{
    return m_bComplete;
}

int CBoardList::GetBoardNum() const
{
    return m_nBoardNum;
}

tag_AVVersion CBoardList::GetVersion(int nBoard) const
{
    if (nBoard < 0 || nBoard >= m_nBoardNum)
        return tag_AVVersion{0};
    return m_pBoards[nBoard]->GetDspVersion();
}

CSpciIO* CBoardList::GetBoard(int nBoard) const
{
    if (nBoard < 0 || nBoard >= MAX_BOARDS)
        return nullptr;
    return m_pBoards[nBoard].get();
}
