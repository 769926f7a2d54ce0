#include "driver/CSpciIO.h"

#include "driver/CVirtualRack.h"

CSpciIO::CSpciIO() = default;

CSpciIO::~CSpciIO()
{
    Close();
}

int CSpciIO::GetDeviceNum()
{
    return CVirtualRack::GetDeviceNum();
}

int CSpciIO::Open(int nDevice)
{
    if (m_pBoard != nullptr)
        return 0;
    std::shared_ptr<CVirtualBoard> pBoard = CVirtualRack::GetBoard(nDevice);
    if (pBoard == nullptr || pBoard->GetFaults().bOpenFails)
        return 0;
    m_pBoard = std::move(pBoard);
    return 1;
}

void CSpciIO::Close()
{
    m_pBoard.reset();
}

int CSpciIO::IsValid()
{
    return m_pBoard != nullptr ? 1 : 0;
}

tag_AVVersion CSpciIO::GetDspVersion()
{
    return m_pBoard != nullptr ? m_pBoard->GetVersion() : tag_AVVersion{0};
}

CSpciDebi* CSpciIO::GetDebi()
{
    return m_pBoard != nullptr ? m_pBoard->GetDebi() : nullptr;
}

std::shared_ptr<CVirtualBoard> CSpciIO::GetVirtualBoard() const
{
    return m_pBoard;
}
