// The capture devices of this driver are the boards of the virtual rack.
#include "driver/CSpciIO.h"

#include "driver/virtual/CVirtualRack.h"
#include "driver/virtual/SpciDevice.h"

#include <new>

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
    if (m_pDevice != nullptr)
        return 0;
    std::shared_ptr<CVirtualBoard> pBoard = CVirtualRack::GetBoard(nDevice);
    if (pBoard == nullptr || pBoard->GetFaults().bOpenFails)
        return 0;
    m_pDevice.reset(new (std::nothrow) tag_DEVICE{std::move(pBoard)});
    return m_pDevice != nullptr ? 1 : 0;
}

void CSpciIO::Close()
{
    m_pDevice.reset();
}

int CSpciIO::IsValid()
{
    return m_pDevice != nullptr ? 1 : 0;
}

tag_AVVersion CSpciIO::GetDspVersion()
{
    return m_pDevice != nullptr ? m_pDevice->pBoard->GetVersion() : tag_AVVersion{0};
}

CSpciDebi* CSpciIO::GetDebi()
{
    return m_pDevice != nullptr ? m_pDevice->pBoard->GetDebi() : nullptr;
}
