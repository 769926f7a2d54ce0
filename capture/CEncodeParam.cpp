#include "capture/CEncodeParam.h"

#include "platform/CArchive.h"

#include <cstdint>
#include <memory>

IMPLEMENT_SERIAL(CEncodeParam, CObject, 0)

namespace {

constexpr int kMaskListBlockSize = 10;
constexpr DWORD kFieldSize = 4;
constexpr DWORD kFlagEncodeMode = 0x1;
constexpr DWORD kFlagEncodeSound = 0x2;

void StoreDword(BYTE* pBuf, DWORD dwValue)
{
    for (DWORD i = 0; i < kFieldSize; ++i)
        pBuf[i] = static_cast<BYTE>(dwValue >> (8 * i));
}

DWORD LoadDword(const BYTE* pBuf)
{
    DWORD dwValue = 0;
    for (DWORD i = 0; i < kFieldSize; ++i)
        dwValue |= static_cast<DWORD>(pBuf[i]) << (8 * i);
    return dwValue;
}

// Bytes of the scalar fields of the flat form that dwMask selects; the area count and
// the areas follow them.
DWORD FlatScalarBytes(DWORD dwMask)
{
    DWORD dwBytes = 0;
    for (DWORD dwBit : {ENCODEPARAM_QUANTISER, ENCODEPARAM_MODE, ENCODEPARAM_CHECKSEN}) {
        if ((dwMask & dwBit) != 0)
            dwBytes += kFieldSize;
    }
    return dwBytes;
}

// Whether the dwSize bytes at pBuf hold every field that dwMask selects, the areas that
// the buffer's own count announces included. Counted in 64 bits, so no count overflows.
bool FlatBufferHoldsFields(const BYTE* pBuf, DWORD dwSize, DWORD dwMask)
{
    std::uint64_t nNeeded = FlatScalarBytes(dwMask);
    if ((dwMask & ENCODEPARAM_MASKS) != 0) {
        if (nNeeded + kFieldSize > dwSize)
            return false;
        const DWORD dwCount = LoadDword(pBuf + nNeeded);
        nNeeded += kFieldSize + static_cast<std::uint64_t>(dwCount) * CMaskInfo::kFlatSize;
    }
    return nNeeded <= dwSize;
}

} // namespace

CEncodeParam::CEncodeParam() : m_MaskList(kMaskListBlockSize)
{
}

CEncodeParam::~CEncodeParam()
{
    DeleteMaskInfo();
}

void CEncodeParam::operator=(const CEncodeParam& src)
{
    if (&src == this)
        return;
    DeleteMaskInfo();
    CopyScalarSettings(src);
    m_bCheckVideo = src.m_bCheckVideo;
    for (POSITION pos = src.m_MaskList.GetHeadPosition(); pos != nullptr;) {
        const auto* pMask = static_cast<const CMaskInfo*>(src.m_MaskList.GetNext(pos));
        auto pCopy = std::make_unique<CMaskInfo>();
        *pCopy = *pMask;
        m_MaskList.AddTail(pCopy.get());
        pCopy.release();
    }
}

void CEncodeParam::CopyScalarSettings(const CEncodeParam& src)
{
    m_nReserved = src.m_nReserved;
    m_nQp = src.m_nQp;
    m_nQi = src.m_nQi;
    m_nAlarmFrameNum = src.m_nAlarmFrameNum;
    m_nCheckSen = src.m_nCheckSen;
    m_bEncodeMode = src.m_bEncodeMode;
    m_bEncodeSound = src.m_bEncodeSound;
    m_dwSoundDev = src.m_dwSoundDev;
}

void CEncodeParam::DeleteMaskInfo()
{
    while (!m_MaskList.IsEmpty())
        delete static_cast<CMaskInfo*>(m_MaskList.RemoveHead());
}

int CEncodeParam::AddMaskInfo(CMaskInfo* pMask, int nWidth, int nHeight)
{
    if (pMask == nullptr)
        return 0;
    auto pCopy = std::make_unique<CMaskInfo>();
    *pCopy = *pMask;
    pCopy->SetVideoSize(nWidth, nHeight);
    m_MaskList.AddTail(pCopy.get());
    pCopy.release();
    return 1;
}

int CEncodeParam::AddMaskInfo(CObList* pList, int nWidth, int nHeight)
{
    if (pList == nullptr)
        return 1;
    for (POSITION pos = pList->GetHeadPosition(); pos != nullptr;)
        AddMaskInfo(static_cast<CMaskInfo*>(pList->GetNext(pos)), nWidth, nHeight);
    return 1;
}

DWORD CEncodeParam::GetSize(DWORD dwMask)
{
    DWORD dwSize = FlatScalarBytes(dwMask);
    if ((dwMask & ENCODEPARAM_MASKS) != 0)
        dwSize += kFieldSize + static_cast<DWORD>(m_MaskList.GetCount()) * CMaskInfo::kFlatSize;
    return dwSize;
}

DWORD CEncodeParam::WriteToBuf(BYTE* pBuf, DWORD dwSize, DWORD dwMask)
{
    if (pBuf == nullptr || dwSize < GetSize(dwMask))
        return 0;
    BYTE* pOut = pBuf;
    if ((dwMask & ENCODEPARAM_QUANTISER) != 0) {
        StoreDword(pOut, static_cast<DWORD>(m_nQi));
        pOut += kFieldSize;
    }
    if ((dwMask & ENCODEPARAM_MODE) != 0) {
        DWORD dwFlags = 0;
        if (m_bEncodeMode != 0)
            dwFlags |= kFlagEncodeMode;
        if (m_bEncodeSound != 0)
            dwFlags |= kFlagEncodeSound;
        StoreDword(pOut, dwFlags);
        pOut += kFieldSize;
    }
    if ((dwMask & ENCODEPARAM_CHECKSEN) != 0) {
        StoreDword(pOut, static_cast<DWORD>(m_nCheckSen));
        pOut += kFieldSize;
    }
    if ((dwMask & ENCODEPARAM_MASKS) != 0) {
        StoreDword(pOut, static_cast<DWORD>(m_MaskList.GetCount()));
        pOut += kFieldSize;
        for (POSITION pos = m_MaskList.GetHeadPosition(); pos != nullptr;)
            pOut += *static_cast<const CMaskInfo*>(m_MaskList.GetNext(pos)) >> pOut;
    }
    return static_cast<DWORD>(pOut - pBuf);
}

DWORD CEncodeParam::ReadFromBuf(BYTE* pBuf, DWORD dwSize, DWORD dwMask)
{
    if (pBuf == nullptr || dwSize == 0 || !FlatBufferHoldsFields(pBuf, dwSize, dwMask))
        return 0;
    const BYTE* pIn = pBuf;
    if ((dwMask & ENCODEPARAM_QUANTISER) != 0) {
        m_nQi = static_cast<int>(LoadDword(pIn));
        m_nQp = m_nQi;
        pIn += kFieldSize;
    }
    if ((dwMask & ENCODEPARAM_MODE) != 0) {
        const DWORD dwFlags = LoadDword(pIn);
        m_bEncodeMode = (dwFlags & kFlagEncodeMode) != 0 ? 1 : 0;
        m_bEncodeSound = (dwFlags & kFlagEncodeSound) != 0 ? 1 : 0;
        pIn += kFieldSize;
    }
    if ((dwMask & ENCODEPARAM_CHECKSEN) != 0) {
        m_nCheckSen = static_cast<int>(LoadDword(pIn));
        pIn += kFieldSize;
    }
    if ((dwMask & ENCODEPARAM_MASKS) != 0) {
        DeleteMaskInfo();
        const DWORD dwCount = LoadDword(pIn);
        pIn += kFieldSize;
        for (DWORD i = 0; i < dwCount; ++i) {
            auto pMask = std::make_unique<CMaskInfo>();
            pIn += *pMask << pIn;
            m_MaskList.AddTail(pMask.get());
            pMask.release();
        }
    }
    return static_cast<DWORD>(pIn - pBuf);
}

void CEncodeParam::SetParam(CEncodeParam* pParam, DWORD dwMask)
{
    if (pParam == nullptr)
        return;
    if ((dwMask & ENCODEPARAM_QUANTISER) != 0) {
        m_nQp = pParam->m_nQp;
        m_nQi = pParam->m_nQi;
    }
    if ((dwMask & ENCODEPARAM_MODE) != 0) {
        m_bEncodeMode = pParam->m_bEncodeMode;
        m_bEncodeSound = pParam->m_bEncodeSound;
    }
    if ((dwMask & ENCODEPARAM_MASKS) != 0)
        *this = *pParam;
    if ((dwMask & ENCODEPARAM_CHECKSEN) != 0)
        m_nCheckSen = pParam->m_nCheckSen;
    if ((dwMask & ENCODEPARAM_CHECKVIDEO) != 0)
        m_bCheckVideo = pParam->m_bCheckVideo;
}

void CEncodeParam::SetMaskInfo(CEncodeParam* pParam)
{
    if (pParam == nullptr || pParam == this)
        return;
    CopyScalarSettings(*pParam);
    if (pParam->m_MaskList.IsEmpty()) {
        DeleteMaskInfo();
        return;
    }
    KeepMatchingAreas(pParam->m_MaskList);
    m_MaskList.AddTail(&pParam->m_MaskList);
    pParam->m_MaskList.RemoveAll();
}

void CEncodeParam::KeepMatchingAreas(CObList& newList)
{
    for (POSITION posNew = newList.GetHeadPosition(); posNew != nullptr && !m_MaskList.IsEmpty();) {
        const POSITION posThis = posNew;
        auto* pNew = static_cast<CMaskInfo*>(newList.GetNext(posNew));
        if (pNew == nullptr)
            continue;
        const POSITION posOld = FindEqualArea(*pNew);
        if (posOld == nullptr)
            continue;
        auto* pOld = static_cast<CMaskInfo*>(m_MaskList.GetAt(posOld));
        m_MaskList.RemoveAt(posOld);
        newList.SetAt(posThis, pOld);
        if (pNew != pOld)
            delete pNew;
    }
    DeleteMaskInfo();
}

POSITION CEncodeParam::FindEqualArea(const CMaskInfo& mask) const
{
    for (POSITION pos = m_MaskList.GetHeadPosition(); pos != nullptr;) {
        const POSITION posFound = pos;
        const auto* pArea = static_cast<const CMaskInfo*>(m_MaskList.GetNext(pos));
        if (pArea != nullptr && *pArea == mask)
            return posFound;
    }
    return nullptr;
}

void CEncodeParam::Serialize(CArchive& ar)
{
    if (ar.IsStoring()) {
        ar << m_nQp << m_nQi << m_nAlarmFrameNum << m_bEncodeMode << m_bEncodeSound
           << m_dwSoundDev << m_nCheckSen << static_cast<DWORD>(m_MaskList.GetCount())
           << m_bCheckVideo;
        for (POSITION pos = m_MaskList.GetHeadPosition(); pos != nullptr;)
            static_cast<CMaskInfo*>(m_MaskList.GetNext(pos))->Serialize(ar);
        return;
    }
    ar >> m_nQp >> m_nQi >> m_nAlarmFrameNum >> m_bEncodeMode >> m_bEncodeSound >>
        m_dwSoundDev >> m_nCheckSen;
    DWORD dwCount = 0;
    ar >> dwCount >> m_bCheckVideo;
    DeleteMaskInfo();
    for (DWORD i = 0; i < dwCount; ++i) {
        auto pMask = std::make_unique<CMaskInfo>();
        m_MaskList.AddTail(pMask.get());
        pMask.release()->Serialize(ar);
    }
}
