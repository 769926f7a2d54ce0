#include "capture/CBoardList.h"

#include "vocabulary/BoardLayout.h"
#include "capture/CaptureTypes.h"

CBoardList::CBoardList(DWORD dwRevision)
    : m_pSpare(new CSpciIO)
{
    const int nDevices = CSpciIO::GetDeviceNum();
    for (int nDevice = 0; nDevice < nDevices && m_nBoardNum < MAX_BOARDS; ++nDevice) {
        CSpciIO* pIO = new CSpciIO;
        m_pBoards[m_nBoardNum] = pIO;
        if (pIO->Open(nDevice)) {
            if (IsTakenBy(dwRevision, pIO->GetDspVersion())) {
                ++m_nBoardNum;
                continue;
            }
            pIO->Close();
        }
        delete pIO;
        m_pBoards[m_nBoardNum] = nullptr;
    }
}

CBoardList::~CBoardList()
{
    for (CSpciIO*& pIO : m_pBoards) {
        if (pIO != nullptr) {
            pIO->Close();
            delete pIO;
            pIO = nullptr;
        }
    }
    delete m_pSpare;
}

bool CBoardList::IsTakenBy(DWORD dwRevision, tag_AVVersion version)
{
    const bool bTwoStream = IsTwoStreamBoard(version);
    return dwRevision == STREAM_REVISION_20020219 ? bTwoStream : !bTwoStream;
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
    return m_pBoards[nBoard];
}
