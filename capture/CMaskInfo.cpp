#include "capture/CMaskInfo.h"

#include "platform/CArchive.h"

#include <cmath>
#include <limits>

IMPLEMENT_SERIAL(CMaskInfo, CObject, 0)

namespace {

constexpr BYTE kFlatMoveBit = 0x01;
constexpr BYTE kFlatAlarmBit = 0x02;

void StoreLong(BYTE* pBuf, LONG lValue)
{
    const DWORD dwValue = static_cast<DWORD>(lValue);
    for (int i = 0; i < 4; ++i)
        pBuf[i] = static_cast<BYTE>(dwValue >> (8 * i));
}

LONG LoadLong(const BYTE* pBuf)
{
    DWORD dwValue = 0;
    for (int i = 0; i < 4; ++i)
        dwValue |= static_cast<DWORD>(pBuf[i]) << (8 * i);
    return static_cast<LONG>(dwValue);
}

// Rounds down and holds the result to the range of an edge, so that no size, however
// large or hostile, makes the conversion overflow.
LONG FloorToEdge(double dValue)
{
    const double dFloor = std::floor(dValue);
    if (dFloor <= static_cast<double>(std::numeric_limits<LONG>::min()))
        return std::numeric_limits<LONG>::min();
    if (dFloor >= static_cast<double>(std::numeric_limits<LONG>::max()))
        return std::numeric_limits<LONG>::max();
    return static_cast<LONG>(dFloor);
}

// One edge taken from a stored size to a new one, multiplication first. Without a
// positive stored size the edge has no known units and stays.
LONG ScaleEdge(LONG lEdge, int nNewSize, int nStoredSize)
{
    if (nStoredSize <= 0)
        return lEdge;
    return FloorToEdge(static_cast<double>(lEdge) * nNewSize / nStoredSize);
}

// The display scale of one axis, division first; 1 without a positive stored size.
double DisplayScale(int nDisplaySize, int nStoredSize)
{
    if (nStoredSize <= 0)
        return 1.0;
    return static_cast<double>(nDisplaySize) / nStoredSize;
}

} // namespace

CMaskInfo::CMaskInfo(CRect* pRect, int nWidth, int nHeight)
    : m_rcMask(pRect != nullptr ? *pRect : CRect()), m_nWidth(nWidth), m_nHeight(nHeight)
{
    m_rcMask.NormalizeRect();
}

CMaskInfo::~CMaskInfo() = default;

void CMaskInfo::Reset()
{
    m_bMove = 0;
    m_bAlarm = 0;
    m_nMoveCount = 0;
}

int CMaskInfo::IsMove() const
{
    return m_bMove;
}

int CMaskInfo::IsAlarm() const
{
    return m_bAlarm;
}

const CRect& CMaskInfo::GetMaskRect() const
{
    return m_rcMask;
}

void CMaskInfo::GetVideoSize(int& nWidth, int& nHeight) const
{
    nWidth = m_nWidth;
    nHeight = m_nHeight;
}

void CMaskInfo::GetMaskRect(CRect rcWnd, CRect* pRect) const
{
    if (pRect == nullptr)
        return;
    const double dScaleX = DisplayScale(rcWnd.Width(), m_nWidth);
    const double dScaleY = DisplayScale(rcWnd.Height(), m_nHeight);
    pRect->left = FloorToEdge(std::floor(m_rcMask.left * dScaleX) + rcWnd.left);
    pRect->right = FloorToEdge(std::floor(m_rcMask.right * dScaleX) + rcWnd.left);
    pRect->top = FloorToEdge(std::floor(m_rcMask.top * dScaleY) + rcWnd.top);
    pRect->bottom = FloorToEdge(std::floor(m_rcMask.bottom * dScaleY) + rcWnd.top);
}

void CMaskInfo::SetVideoSize(int nWidth, int nHeight)
{
    if (nWidth == m_nWidth && nHeight == m_nHeight)
        return;
    m_rcMask.left = ScaleEdge(m_rcMask.left, nWidth, m_nWidth);
    m_rcMask.right = ScaleEdge(m_rcMask.right, nWidth, m_nWidth);
    m_rcMask.top = ScaleEdge(m_rcMask.top, nHeight, m_nHeight);
    m_rcMask.bottom = ScaleEdge(m_rcMask.bottom, nHeight, m_nHeight);
    m_nWidth = nWidth;
    m_nHeight = nHeight;
}

void CMaskInfo::SetAreaMove(int bMove, int nAlarmFrameNum)
{
    if (bMove == 0) {
        Reset();
        return;
    }
    ++m_nMoveCount;
    m_bMove = 1;
    if (m_nMoveCount < nAlarmFrameNum) {
        m_bAlarm = 0;
    } else {
        m_bAlarm = 1;
        m_nMoveCount = 0;
    }
}

void CMaskInfo::operator=(const CMaskInfo& src)
{
    m_rcMask = src.m_rcMask;
    m_nWidth = src.m_nWidth;
    m_nHeight = src.m_nHeight;
}

int CMaskInfo::operator==(const CMaskInfo& other) const
{
    return m_nWidth == other.m_nWidth && m_nHeight == other.m_nHeight &&
           m_rcMask == other.m_rcMask;
}

int CMaskInfo::operator>>(BYTE* pBuf) const
{
    BYTE byState = 0;
    if (m_bMove != 0)
        byState |= kFlatMoveBit;
    if (m_bAlarm != 0)
        byState |= kFlatAlarmBit;
    pBuf[0] = byState;
    StoreLong(pBuf + 1, m_nWidth);
    StoreLong(pBuf + 5, m_nHeight);
    StoreLong(pBuf + 9, m_rcMask.left);
    StoreLong(pBuf + 13, m_rcMask.top);
    StoreLong(pBuf + 17, m_rcMask.right);
    StoreLong(pBuf + 21, m_rcMask.bottom);
    return kFlatSize;
}

int CMaskInfo::operator<<(const BYTE* pBuf)
{
    if ((pBuf[0] & kFlatMoveBit) != 0)
        m_bMove = 1;
    if ((pBuf[0] & kFlatAlarmBit) != 0)
        m_bAlarm = 1;
    m_nWidth = LoadLong(pBuf + 1);
    m_nHeight = LoadLong(pBuf + 5);
    m_rcMask.left = LoadLong(pBuf + 9);
    m_rcMask.top = LoadLong(pBuf + 13);
    m_rcMask.right = LoadLong(pBuf + 17);
    m_rcMask.bottom = LoadLong(pBuf + 21);
    return kFlatSize;
}

int CMaskInfo::GetSize() const
{
    return kFlatSize;
}

void CMaskInfo::Serialize(CArchive& ar)
{
    if (ar.IsStoring()) {
        ar << m_nWidth << m_nHeight << m_rcMask.left << m_rcMask.top << m_rcMask.right
           << m_rcMask.bottom;
    } else {
        ar >> m_nWidth >> m_nHeight >> m_rcMask.left >> m_rcMask.top >> m_rcMask.right >>
            m_rcMask.bottom;
    }
}
